// Selecting a dispenser: reading its record, choosing and configuring its
// driver, and building the tank map.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_set";

struct DriverChoice {
  const char* hideId;  // null: any HIDE_ID
  const char* model;   // null: any MODEL
  int type;
  int variant;
  bool clearsOption7;
};

// Tested in order; the first match wins.
const DriverChoice kDriverTable[] = {
    {"ZARVO", nullptr, 2, 0, false},   {"PELKO", nullptr, 3, 0, false},
    {"SALVIMAT", nullptr, 4, 0, true}, {"VOREN", nullptr, 5, 0, true},
    {"LIQON", nullptr, 7, 0, false},   {"K240", nullptr, 6, 0, false},
    {"VEX", "TORN500", 8, 1, false},   {"VEX", "M9000", 8, 2, false},
    {"VEX", nullptr, 8, 0, false},     {"T7R", nullptr, 9, 0, false},
    {nullptr, "TORN500", 1, 1, false}, {nullptr, "M9000", 1, 2, false},
    {nullptr, nullptr, 1, 0, false},
};

// A field matches a word when it begins with it, ignoring case.
bool BeginsWith(const char* field, const char* word) {
  return word == nullptr || strncasecmp(field, word, strlen(word)) == 0;
}

const DriverChoice& ChooseDriver(const char* hideId, const char* model) {
  for (const DriverChoice& choice : kDriverTable) {
    if (BeginsWith(hideId, choice.hideId) && BeginsWith(model, choice.model)) return choice;
  }
  return kDriverTable[sizeof kDriverTable / sizeof kDriverTable[0] - 1];
}

// COMMUNIC holds the serial line at fixed positions. The driver receives
// the two two-digit line parameters in the reverse of their order here.
void ConfigureSerialLine(slave* s, const char* communic) {
  const int port = static_cast<int>(SlvPieceLong(communic, 0, 1));
  const int baud = static_cast<int>(SlvPieceLong(communic, 2, 7));
  // A text too short to hold the parity letter passes a blank.
  const char parity = strlen(communic) > 8 ? communic[8] : ' ';
  const int param1 = static_cast<int>(SlvPieceLong(communic, 10, 11));
  const int param2 = static_cast<int>(SlvPieceLong(communic, 12, 13));
  const float timeout = static_cast<float>(SlvPieceDouble(communic, 41, 49));
  s->m_CommPort = port;
  s->m_Dsp->SetCommunication(port, baud, parity, param2, param1, timeout);
}

// Positions the tank table on the dispenser's highest-numbered tank record
// (key (id+1)*1000, one step back) and answers its TANK, or 0 when the
// dispenser has no tank record. The selected index is restored.
int HighestTank(Qdbase* tanks, long id) {
  const int savedIdx = tanks->CurrentIdx();
  tanks->SelectIdx(2);
  // In double: an id read from a wide ID field may be LONG_MAX.
  tanks->Seek((static_cast<double>(id) + 1.0) * 1000.0);
  tanks->Prev();
  tanks->SelectIdx(savedIdx);
  long dispId = 0;
  int tank = 0;
  if (tanks->RecNo() < 1 || !tanks->ReadLong("DISP_ID", &dispId) || dispId != id) return 0;
  if (!tanks->ReadInt("TANK", &tank) || tank < 1) return 0;
  return tank;
}

// Leaves s with no tank map, to be read again at its next call.
SlvTankMapLoad ForgetTankMap(slave* s) {
  free(s->m_TankRecNo);
  free(s->m_TankCntId);
  s->m_TankRecNo = nullptr;
  s->m_TankCntId = nullptr;
  s->m_NumTanks = 0;
  if (s->m_State != nullptr) s->m_State->tankGeneration = -1;
  return SlvTankMapLoad::kUnreadable;
}

}  // namespace

SlvTankMapLoad SlvLoadTankMap(slave* s, Qdbase* tanks) {
  free(s->m_TankRecNo);
  free(s->m_TankCntId);
  s->m_TankRecNo = nullptr;
  s->m_TankCntId = nullptr;
  s->m_NumTanks = 0;
  if (s->m_State != nullptr) {
    s->m_State->tankGeneration = tanks->Generation();
    s->m_State->tanksOfArray = nullptr;  // the arrays are made anew
  }
  const unsigned long failedBefore = tanks->FailedCalls();
  const long id = s->m_DispId;
  const int highest = HighestTank(tanks, id);
  if (tanks->FailedCalls() != failedBefore) return ForgetTankMap(s);
  if (highest < 1) return SlvTankMapLoad::kLoaded;
  s->m_NumTanks = highest;
  s->m_TankRecNo = static_cast<long*>(calloc(static_cast<size_t>(highest), sizeof(long)));
  s->m_TankCntId = static_cast<long*>(calloc(static_cast<size_t>(highest), sizeof(long)));
  if (s->m_TankRecNo == nullptr || s->m_TankCntId == nullptr) return SlvTankMapLoad::kNoMemory;
  // Walk back from the highest tank over the dispenser's records.
  const int savedIdx = tanks->CurrentIdx();
  tanks->SelectIdx(2);
  for (bool more = true; more; more = tanks->Prev() != 0) {
    long dispId = 0;
    if (!tanks->ReadLong("DISP_ID", &dispId) || dispId != id) break;
    int tank = 0;
    long cnt = 0;
    if (tanks->ReadInt("TANK", &tank) && tank >= 1 && tank <= s->m_NumTanks) {
      s->m_TankRecNo[tank - 1] = tanks->RecNo();
      if (tanks->ReadLong("CNT_ID", &cnt)) s->m_TankCntId[tank - 1] = cnt;
    }
  }
  tanks->SelectIdx(savedIdx);
  // A record the disk would not give back ended the walk early: the
  // circuits below it would look as if they had no tank.
  if (tanks->FailedCalls() != failedBefore) return ForgetTankMap(s);
  // Each colourant's tanks, known from the start.
  std::vector<int> scratch;
  SlvTanksOf(s, 0, &scratch);
  return SlvTankMapLoad::kLoaded;
}

bool SlvKeepTankMapCurrent(slave* s) {
  Qdbase* tanks = SlvTankTable();
  if (tanks == nullptr || s->m_DispId < 1 || s->m_State == nullptr) return true;
  if (tanks->Generation() == s->m_State->tankGeneration) return true;
  // Another process changed the tank table's records (added, removed or
  // packed tanks): the record numbers of the map may name other tanks now.
  const SlvTankMapLoad load = SlvLoadTankMap(s, tanks);
  if (load == SlvTankMapLoad::kNoMemory) {
    TarvoTrace("%s(%d): memory alloc error", kSource, __LINE__);
    ForgetTankMap(s);
  }
  if (s->m_Dsp != nullptr && s->m_Dsp->GetType(0, 0) != 9) s->m_NumCircuits = s->m_NumTanks;
  return load == SlvTankMapLoad::kLoaded;
}

int slave::Set(long id) try {
  clean();
  Qdbase* disp = nullptr;
  Qdbase* tanks = nullptr;
  Qdbase* cist = nullptr;
  if (!_slv_dbhandles(&disp, &tanks, &cist)) return 0;

  if (id < 1) id = _slv_DefaultDispenser(disp);
  if (!_slv_SelectDispenser(disp, id)) return 0;
  if (m_State != nullptr) {
    m_State->dispRecNo = disp->RecNo();
    m_State->dispGeneration = disp->Generation();
  }

  memset(m_Model, 0, sizeof m_Model);
  m_DispId = id;
  disp->ReadInt("SLAVE", &m_Address);
  disp->ReadString("DESCR", m_Descr, sizeof m_Descr, 0, 0);
  disp->ReadString("OPTIONS", m_Options, sizeof m_Options, 0, 0);
  disp->ReadString("MODEL", m_Model, sizeof m_Model, 0, 0);
  if (disp->FieldNo("SERIAL_N")) {
    disp->ReadString("SERIAL_N", m_SerialNo, sizeof m_SerialNo, 1, 1);
  }

  char hideId[13] = "";
  char model[13] = "";
  disp->ReadString("HIDE_ID", hideId, sizeof hideId, 1, 1);
  if (disp->FieldNo("MODEL")) disp->ReadString("MODEL", model, sizeof model, 1, 1);
  const DriverChoice& choice = ChooseDriver(hideId, model);
  if (choice.clearsOption7 && strlen(m_Options) > 7) m_Options[7] = '0';
  m_Dsp = CDispenser_CreateNew(choice.type, choice.variant);
  if (m_Dsp == nullptr) {
    TarvoTrace("\n%s(%d): CDispenser initialization failed!", kSource, __LINE__);
    return 0;
  }

  char communic[155] = "";
  if (disp->ReadString("COMMUNIC", communic, sizeof communic, 1, 1) &&
      !Zu_StringEmpty(communic)) {
    ConfigureSerialLine(this, communic);
  }

  const SlvTankMapLoad load =
      tanks != nullptr && id >= 1 ? SlvLoadTankMap(this, tanks) : SlvTankMapLoad::kLoaded;
  if (load == SlvTankMapLoad::kNoMemory) {
    TarvoTrace("%s(%d): memory alloc error", kSource, __LINE__);
    clean();
    return 0;
  }
  // A dispenser whose tanks cannot all be read is not selected: a circuit
  // missing from its map would take no bookings.
  if (load == SlvTankMapLoad::kUnreadable) {
    TarvoTrace("%s(%d): the tank records cannot be read", kSource, __LINE__);
    clean();
    return 0;
  }

  m_NumCircuits = (m_Dsp->GetType(0, 0) == 9) ? m_Dsp->GetCircuitCount(id) : m_NumTanks;
  return 1;
} catch (...) {
  // A selection that fails part way leaves no dispenser selected.
  clean();
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

namespace {

// Moves the dispenser table to its first record (or the next one) and
// answers the id there; 0 when there is none or the id is 0.
long StepDispenser(bool first) {
  Qdbase* disp = nullptr;
  if (!_slv_dbhandles(&disp, nullptr, nullptr)) return 0;
  if (!(first ? disp->Top() : disp->Next()) || disp->Eof()) return 0;
  long id = 0;
  return disp->ReadLong("ID", &id) ? id : 0;
}

}  // namespace

int slave::FindFirst() try {
  const long id = StepDispenser(true);
  return id == 0 ? 0 : Set(id);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::FindNext() try {
  const long id = StepDispenser(false);
  return id == 0 ? 0 : Set(id);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::SetCommPort(int port) try {
  if (port == m_CommPort) return 1;
  // The port is written as two characters over the start of COMMUNIC; a
  // port that needs more would shift every other setting, so it is refused
  // before anything is unloaded.
  if (port < 0 || port > 99) {
    TarvoTrace("\n%s(%d): port %d does not fit COMMUNIC", kSource, __LINE__, port);
    return 0;
  }
  Dsp_QuitLoad();
  // These early failures return with the driver layer unloaded, as the
  // host's loader expects a reload only after a successful rewrite.
  Qdbase* disp = SlvDispenserRecord(this);
  if (disp == nullptr) return 0;

  // Only the port's two characters change: the rest of COMMUNIC stays as it
  // is on disk, however wide the field and whatever lies past the part the
  // library reads.
  char portText[3];
  snprintf(portText, sizeof portText, "%2d", port);
  SlvBooking booking;
  const bool written =
      booking.Ok() && disp->WriteStringAt("COMMUNIC", 0, portText) != 0 && booking.Commit();
  if (!written) TarvoTrace("\n%s(%d): COMMUNIC could not be written", kSource, __LINE__);

  Dsp_InitLoad();
  const int selected = Set(m_DispId);
  return written ? selected : 0;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::SetSeparateThread(int on) try {
  // The argument itself is compared with the state (0 or 1): any other
  // value writes the option, as '1', and selects the dispenser again.
  const int current = (m_DispId != 0 && SlvOptionOn(m_Options, 6)) ? 1 : 0;
  if (on == current) return 1;
  const int result = ForceOption(6, on);
  return result ? Set(m_DispId) : result;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}
