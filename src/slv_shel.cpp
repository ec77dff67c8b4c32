// The shelf and the can on it, single-circuit recirculation and mixing, and
// a tank's colourant code.
#include <limits.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_shel";
const int kPreferredShelfOption = 5;
// The shelf waits this many units above the can's working height.
const int kPrepositionLift = 10;

struct Can {
  int hMin = 0;
  int hMax = 0;
  int zeroFlag = 0;
  int noPunch = 0;
  int prefFlag = 0;
};

bool ReadCan(slave* s, long canId, Can* can) {
  return SlaveReadCan(static_cast<unsigned long>(s->m_DataId), canId, &can->hMin, &can->hMax,
                      &can->zeroFlag, &can->noPunch, &can->prefFlag) != 0;
}

bool UsesPreferredPosition(const slave* s, const Can& can) {
  return s->m_DispId != 0 && SlvOptionOn(s->m_Options, kPreferredShelfOption) && can.prefFlag;
}

int Send(slave* s, const std::string& command) {
  std::string cmd = command;
  return s->sendcommand(&cmd[0], nullptr, 0);
}

}  // namespace

int SlaveReadCan(unsigned long dataId, long canId, int* hMin, int* hMax, int* zeroFlag,
                 int* noPunch, int* prefFlag) try {
  if (hMin != nullptr) *hMin = 0;
  if (hMax != nullptr) *hMax = 0;
  if (zeroFlag != nullptr) *zeroFlag = 0;
  if (noPunch != nullptr) *noPunch = 0;

  CZutable cans;
  cans.SetDataId(static_cast<long>(dataId));
  cans.Handle(ZUSPEC_CANS);
  Qdbase* table = cans.Open() ? cans.Table() : nullptr;
  if (table == nullptr || table->RecCount() < 1) {
    TarvoTrace("\n%s(%d): error ... unable to open cans database", kSource, __LINE__);
    return 0;
  }
  char key[kSlvIdTextSize];
  SlvIdText(canId, key);
  table->SelectIdx(1);
  int result = 0;
  if (table->Seek(key)) {
    if (hMin != nullptr) table->ReadInt("H_MIN", hMin);
    if (hMax != nullptr) table->ReadInt("H_MAX", hMax);
    if (zeroFlag != nullptr) table->ReadLogical("ZERO_FLAG", zeroFlag);
    if (noPunch != nullptr) table->ReadLogical("NO_PUNCH", noPunch);
    char flags[16] = "";
    table->ReadString("FLAGS", flags, sizeof flags, 1, 1);
    const char* trimmed = flags + strspn(flags, " ");
    if (trimmed[0] != '\0' && prefFlag != nullptr) *prefFlag = trimmed[0] != '0';
    result = 1;
  }
  cans.Close();
  return result;
} catch (...) {
  return SlvFailed(static_cast<slave*>(nullptr), kSource, __LINE__, __func__, 0);
}

int slave::ShelfMove(int height) try {
  // Hfoto is the shelf's upper limit, when the record sets one.
  const int limit = Hfoto();
  if (limit >= 1 && height > limit) height = limit;
  return Send(this, SlvFormat("/S%d", height));
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::ShelfPrepos(long canId) try {
  if (canId == 0) return Send(this, "/A");
  Can can;
  // An unknown can must not stop a dispense.
  if (!ReadCan(this, canId, &can)) return 1;
  if (can.zeroFlag) return Send(this, "/A");
  if (UsesPreferredPosition(this, can)) return ShelfMove(HPrefPos() + kPrepositionLift);
  return ShelfMove(can.hMax + kPrepositionLift);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::ShelfPos(long canId) try {
  if (canId == 0) {
    // Without a can the machine is expected to refuse the move as "can too
    // big" (9): only that refusal counts as success.
    m_LastError = 0;
    if (ShelfMove(0)) return 0;
    if (LastError() == 9) {
      m_LastError = 0;
      return 1;
    }
    return 0;
  }
  Can can;
  if (!ReadCan(this, canId, &can)) return 1;
  if (UsesPreferredPosition(this, can)) return ShelfMove(HPrefPos());
  if (ShelfMove(can.hMax)) return 1;
  if (LastError() == 8) {
    // Can missing or too small: try the lowest height.
    if (ShelfMove(can.hMin)) return 1;
    return LastError() == 9 ? 1 : 0;
  }
  if (LastError() != 9) return 0;
  // Can too big: accepted when the can is higher than the shelf allows.
  return Hfoto() <= can.hMax ? 1 : 0;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::ShelfPostpos(long canId) try {
  if (canId != 0) {
    Can can;
    if (!ReadCan(this, canId, &can) || !can.zeroFlag) return 1;
  }
  return Send(this, "/A");
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::SingleRecirculate(int a, int b, int c) try {
  if (a < 0 || b < 0 || c < 0 || c > INT_MAX / 2) return 0;
  char cmd[64] = {0};
  snprintf(cmd, sizeof cmd, "/F(%d:%d:%d)", a, b, 2 * c);
  return sendcommand(cmd, nullptr, 0);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::SingleMix(int a, int b) try {
  if (a < 0 || b < 0 || b > INT_MAX / 2) return 0;
  char cmd[64] = {0};
  snprintf(cmd, sizeof cmd, "/H(%d:%d)", a, 2 * b);
  return sendcommand(cmd, nullptr, 0);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int _slv_GetColorantCode(long dispId, int tank, char* code, int codeLen) try {
  const long dataId = Zu_DataIdFromSlaveId(dispId);
  if (code == nullptr) return 0;
  if (codeLen > 0) code[0] = '\0';

  slave dispenser(dispId);
  if (dispenser.m_DispId < 1 || codeLen < 1) return 0;
  dispenser.m_DataId = dataId;
  const long cnt = (tank >= 1 && tank <= dispenser.m_NumTanks && dispenser.m_TankCntId != nullptr)
                       ? dispenser.m_TankCntId[tank - 1]
                       : 0;
  CZutable colorants;
  colorants.SetDataId(dataId);
  colorants.Handle(ZUSPEC_COLORANTS);
  Qdbase* table = colorants.TmpOpen() ? colorants.Table() : nullptr;
  int result = 0;
  if (table != nullptr) {
    table->SelectIdx(1);
    if (table->Seek(static_cast<double>(cnt))) {
      result = table->ReadString("CODE", code, codeLen, 1, 1);
    }
  }
  colorants.TmpClose();
  return result;
} catch (...) {
  return SlvFailed(static_cast<slave*>(nullptr), kSource, __LINE__, __func__, 0);
}
