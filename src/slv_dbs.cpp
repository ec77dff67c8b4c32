// The three configuration tables (dispensers, tanks, cisterns): opening,
// closing, handing them out, re-indexing, and the default dispenser.
#include <stdio.h>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_dbs";

// Process-wide, shared by every slave object.
Qdbase DispTable;
Qdbase TankTable;
Qdbase CisternTable;

const char* kTankIndexNames[] = {"TANKS", "TANKS2"};
const char* kTankIndexKeys[] = {"DISP_ID", "VAL(DISP_ID)*1000+TANK"};
const char* kCisternIndexNames[] = {"CISTERN"};
const char* kCisternIndexKeys[] = {"ID"};

}  // namespace

Qdbase* SlvDispTable() { return DispTable.IsOpen() ? &DispTable : nullptr; }
Qdbase* SlvTankTable() { return TankTable.IsOpen() ? &TankTable : nullptr; }
Qdbase* SlvCisternTable() { return CisternTable.IsOpen() ? &CisternTable : nullptr; }

int _slv_OpenDatabases() try {
  char path[1024];
  if (!Zu_LocalPathEx(path, sizeof path)) {
    TarvoTrace("\n%s(%d): error opening DISPS.DBF or TANKS.DBF", kSource, __LINE__);
    return 0;
  }
  // Binding fails only for an open table, which keeps its binding.
  DispTable.SetFiles(path, "disps", 0, nullptr, nullptr);
  TankTable.SetFiles(path, "tanks", 2, kTankIndexNames, kTankIndexKeys);
  CisternTable.SetFiles(path, "cistern", 1, kCisternIndexNames, kCisternIndexKeys);

  if (!DispTable.Open()) {
    TarvoTrace("\n%s(%d): error opening DISPS.DBF or TANKS.DBF", kSource, __LINE__);
    return 0;
  }
  // Without the tank table the dispenser table is closed again, so that
  // every later request for the handles fails with a trace.
  if (!TankTable.Open()) DispTable.Close();
  return CisternTable.Open() ? 1 : 2;
} catch (...) {
  return SlvFailed(static_cast<slave*>(nullptr), kSource, __LINE__, __func__, 0);
}

int _slv_CloseDatabases() try {
  if (!DispTable.Close()) return 0;
  if (!TankTable.Close()) return 0;
  if (!CisternTable.Close()) return 0;
  return 1;
} catch (...) {
  return SlvFailed(static_cast<slave*>(nullptr), kSource, __LINE__, __func__, 0);
}

int _slv_dbhandles(Qdbase** disp, Qdbase** tank, Qdbase** cist) try {
  if (disp != nullptr) *disp = nullptr;
  if (tank != nullptr) *tank = nullptr;
  if (cist != nullptr) *cist = nullptr;

  int result = 1;
  if (disp != nullptr) {
    result = 0;
    if (DispTable.IsOpen()) {
      *disp = &DispTable;
      result = 1;
    }
  }
  if (tank != nullptr) {
    if (TankTable.IsOpen()) {
      *tank = &TankTable;
    } else {
      result = 0;
    }
  }
  if (cist != nullptr && CisternTable.IsOpen()) *cist = &CisternTable;

  if (result == 0) {
    TarvoTrace("\n%s(%d): error ... DISPS.DBF or TANKS.DBF are closed", kSource, __LINE__);
  }
  return result;
} catch (...) {
  return SlvFailed(static_cast<slave*>(nullptr), kSource, __LINE__, __func__, 0);
}

int _slv_SelectDispenser(Qdbase* disp, long id) try {
  if (disp == nullptr || id < 1) return 0;
  for (int more = disp->Top(); more && !disp->Eof(); more = disp->Next()) {
    long recordId = 0;
    if (disp->ReadLong("ID", &recordId) && recordId == id) return 1;
  }
  return 0;
} catch (...) {
  return SlvFailed(static_cast<slave*>(nullptr), kSource, __LINE__, __func__, 0);
}

long _slv_DefaultDispenser(Qdbase* disp) try {
  if (disp == nullptr) return 0;
  long candidate = 0;
  bool haveOne = false;
  for (int more = disp->Top(); more && !disp->Eof(); more = disp->Next()) {
    int marked = 0;
    long id = 0;
    disp->ReadLogical("X", &marked);
    disp->ReadLong("ID", &id);
    if (marked) candidate = id;
    if (id == 1) haveOne = true;
    if (candidate > 0) return candidate;
  }
  if (haveOne) return 1;
  long first = 0;
  if (disp->Top()) disp->ReadLong("ID", &first);
  return first;
} catch (...) {
  return SlvFailed(static_cast<slave*>(nullptr), kSource, __LINE__, __func__, 0L);
}

int slave::RebuildIndex(int (*)(char*)) try {
  Qdbase* disp = nullptr;
  Qdbase* tank = nullptr;
  Qdbase* cist = nullptr;
  const bool wasOpen = _slv_dbhandles(&disp, &tank, &cist) != 0;
  if (!wasOpen) {
    _slv_OpenDatabases();
    if (!_slv_dbhandles(&disp, &tank, &cist)) {
      _slv_CloseDatabases();
      return -1;
    }
  }
  const long dispRec = disp->RecNo();
  const long tankRec = tank->RecNo();
  const long cistRec = cist != nullptr ? cist->RecNo() : 0;

  // Each table is attempted whatever the others did; a missing cistern
  // table counts as a failed rebuild.
  bool ok = disp->RebuildIndex() != 0;
  ok = tank->RebuildIndex() != 0 && ok;
  ok = cist != nullptr && cist->RebuildIndex() != 0 && ok;

  if (wasOpen) {
    if (dispRec > 0) disp->Go(dispRec);
    if (tankRec > 0) tank->Go(tankRec);
    if (cistRec > 0) cist->Go(cistRec);
  } else {
    _slv_CloseDatabases();
  }
  return ok ? 0 : -1;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, -1);
}

int slave::CloseDatabases() { return _slv_CloseDatabases(); }
