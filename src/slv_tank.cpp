// Questions about the dispenser's tanks and the colourants in them, answered
// from the tank map and the tank and cistern tables.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <unordered_set>
#include <vector>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_tank";

bool ValidTank(const slave* s, int tank) {
  return tank >= 1 && tank <= s->m_NumTanks && s->m_TankRecNo != nullptr &&
         s->m_TankCntId != nullptr;
}

}  // namespace

Qdbase* SlvTankRecord(slave* s, int tank, Qdbase** cist) {
  SlvKeepTankMapCurrent(s);
  if (s->m_DispId < 1 || !ValidTank(s, tank)) return nullptr;
  const long recno = s->m_TankRecNo[tank - 1];
  Qdbase* tanks = nullptr;
  if (recno < 1 || !_slv_dbhandles(nullptr, &tanks, nullptr)) return nullptr;
  if (cist != nullptr) _slv_dbhandles(nullptr, nullptr, cist);
  // The record is read as it is now, also when the table is on it already.
  if (!tanks->Go(recno)) return nullptr;
  return tanks;
}

void SlvForgetSplitLevels(slave* s, Qdbase* tanks) {
  SlvState* state = s->m_State;
  if (state == nullptr || state->splitLevels.empty()) return;
  const long recNo = tanks->RecNo();
  for (SlvState::SplitLevels& kept : state->splitLevels) {
    if (kept.recNo == recNo) kept.recNo = 0;
  }
}

int SlvSeekCistern(Qdbase* cist, long id) {
  char key[kSlvIdTextSize];
  SlvIdText(id, key);
  cist->SelectIdx(1);
  return cist->Seek(key);
}

namespace {

// A driver's level row for one tank: the figures its record takes.
struct MachineFigures {
  double cur = 0.0, max = 0.0, res = 0.0;
};

// Reads the quantities of one tank's own record: 1 with the outputs filled,
// 0 for a secondary tank of a linked group, -1 when its maximum cannot be
// had. *cistId gets the cistern id the record names (0: none). onRecord:
// the tank table when the caller has just put it on the tank's record.
// machine: the driver's figures for the tank when they could not be copied
// into its record; they are read in place of its CUR_Q, MAX_Q and RES_Q,
// so the answer is what it would be had the copy been made.
// Every level read goes through it: it is asked to be inlined.
inline int ReadTankQnts(slave* s, int tank, double* cur, double* res, double* max,
                        long* cistId, Qdbase* onRecord = nullptr,
                        const MachineFigures* machine = nullptr) {
  Qdbase* cist = nullptr;
  Qdbase* tanks = onRecord;
  if (tanks != nullptr) {
    _slv_dbhandles(nullptr, nullptr, &cist);
  } else {
    tanks = SlvTankRecord(s, tank, &cist);
  }
  if (tanks == nullptr) return -1;
  // A quantity that cannot be read is no quantity: it is never taken as 0.
  const SlvLevelFields fields = SlvLevelFieldsOf(tanks);
  double maxQ = 0.0;
  if (machine != nullptr) {
    maxQ = machine->max;
  } else if (!tanks->ReadFieldDouble(fields.maxQ, &maxQ)) {
    return -1;
  }
  if (!(maxQ > -1.0)) return 0;

  long id = 0;
  if (!SlvReadNumber(tanks, fields.cistId, &id)) return -1;
  if (id != 0) {
    if (cist == nullptr || !SlvSeekCistern(cist, id)) return -1;
    if (!cist->ReadFieldDouble(SlvLevelFieldsOf(cist).maxQ, &maxQ)) return -1;
  }
  if (maxQ == -1.0) return -1;
  double curQ = 0.0, resQ = 0.0;
  if (machine != nullptr) {
    curQ = machine->cur;
    resQ = machine->res;
  } else if (!tanks->ReadFieldDouble(fields.curQ, &curQ) ||
             !tanks->ReadFieldDouble(fields.resQ, &resQ)) {
    return -1;
  }
  if (cur != nullptr) *cur = curQ;
  if (res != nullptr) *res = resQ;
  if (max != nullptr) *max = maxQ;
  if (cistId != nullptr) *cistId = id;
  return 1;
}

// The quantities the split of the dispense in progress read of the record
// the tank table is on, while that record is the one they were read from
// (see SlvSplitLevelsScope).
bool SplitLevelsOf(slave* s, Qdbase* tanks, double* cur, double* res, double* max) {
  const SlvState* state = s->m_State;
  if (state == nullptr || !state->keepSplitLevels) return false;
  const long recNo = tanks->RecNo();
  for (const SlvState::SplitLevels& kept : state->splitLevels) {
    if (kept.recNo != recNo) continue;
    if (kept.generation != tanks->Generation()) return false;
    if (cur != nullptr) *cur = kept.cur;
    if (res != nullptr) *res = kept.res;
    if (max != nullptr) *max = kept.max;
    return true;
  }
  return false;
}

// Copies a level row reported by the driver into the tank's record, its
// three figures in one booking (the caller's, when it holds one): they
// reach the record together, under one lock, and a record never keeps a
// new level beside an old maximum. A copy does not wait for another
// process's booking: the machine keeps the figures, so one that cannot be
// made now is made by a later read. False when it was not made; when the
// tables were busy, rows->copiesRefused says so and no later tank of the
// call tries, unless it is read within a booking of the call (which holds
// the tables: its copy is made there).
bool StoreDriverLevels(slave* s, int tank, const MachineFigures& row, SlvDriverRows* rows) {
  if (rows->copiesRefused && !QdbBooking::InProgress()) return false;
  SlvBooking booking{SlvBooking::NoWait()};
  if (!booking.Ok()) {
    rows->copiesRefused = true;
    return false;
  }
  Qdbase* tanks = SlvTankRecord(s, tank, nullptr);
  if (tanks == nullptr) return false;
  const bool written = tanks->WriteDouble("CUR_Q", row.cur) &&
                       tanks->WriteDouble("MAX_Q", row.max) &&
                       tanks->WriteDouble("RES_Q", row.res);
  return written && booking.Commit();
}

// The driver's level rows, fetched into *rows unless they are known.
void FetchDriverRows(slave* s, SlvDriverRows* rows) {
  if (rows->known) return;
  rows->field.clear();
  rows->cur.clear();
  rows->max.clear();
  rows->res.clear();
  rows->lastRowOf.clear();
  rows->copiesRefused = false;
  if (s->m_Dsp->GetType(0, 0) == 7) {
    long count = 0;
    s->m_Dsp->GetCircuitLevelsCount(0, 0, 0, &count);
    if (count >= 1 && count <= 100000) {
      rows->cur.resize(static_cast<size_t>(count));
      rows->max.resize(rows->cur.size());
      rows->res.resize(rows->cur.size());
      s->m_Dsp->GetCircuitLevels(rows->cur.data(), rows->max.data(), rows->res.data(), 0);
    }
  } else {
    const int n = s->m_Dsp->GetTankLevels(s->m_DispId, nullptr, nullptr, nullptr, nullptr, 0);
    if (n >= 1 && n <= 100000) {
      rows->field.resize(static_cast<size_t>(n));
      rows->cur.resize(rows->field.size());
      rows->max.resize(rows->field.size());
      rows->res.resize(rows->field.size());
      s->m_Dsp->GetTankLevels(s->m_DispId, rows->field.data(), rows->cur.data(),
                              rows->max.data(), rows->res.data(), 0);
      for (size_t i = 0; i < rows->field.size(); ++i) rows->lastRowOf[rows->field[i]] = i;
    }
  }
  rows->known = true;
}

// The driver's level rows: within one call of the library (SlvCallScope)
// fetched once and kept for the call, else fetched into *once (which is
// only made then: most reads are within a call).
SlvDriverRows& DriverRowsOf(slave* s, std::optional<SlvDriverRows>* once) {
  SlvDriverRows* rows = nullptr;
  if (s->m_State != nullptr && s->m_State->callDepth > 0) {
    rows = &s->m_State->driverRows;
  } else {
    rows = &once->emplace();
  }
  FetchDriverRows(s, rows);
  return *rows;
}

// What reading a tank's levels found of its driver's.
struct DriverVisit {
  bool visited = false;   // the tables were visited (and may be on another record)
  bool uncopied = false;  // the machine's figures below are not in the record
  MachineFigures machine;
};

// Drivers that keep levels of their own are the reference: their figures
// are copied into the tank's record before it is read. A copy that cannot
// be made leaves the record as it was, and the figures are handed back to
// be answered in its place: the machine holds them, whatever the record
// says.
DriverVisit RefreshFromDriver(slave* s, int tank) {
  DriverVisit visit;
  if (s->m_Dsp == nullptr) return visit;
  std::optional<SlvDriverRows> once;
  SlvDriverRows& rows = DriverRowsOf(s, &once);
  if (rows.cur.empty()) return visit;
  // The tank's row: at tank - 1 (type 7), else the last with its field.
  size_t row = rows.cur.size();
  if (rows.field.empty()) {
    if (tank - 1 >= static_cast<int>(rows.cur.size())) return visit;
    row = static_cast<size_t>(tank - 1);
  } else {
    const auto last = rows.lastRowOf.find(s->TankToTankField(tank));
    if (last != rows.lastRowOf.end()) row = last->second;
  }
  visit.visited = true;
  if (row == rows.cur.size()) return visit;
  visit.machine = MachineFigures{rows.cur[row], rows.max[row], rows.res[row]};
  visit.uncopied = !StoreDriverLevels(s, tank, visit.machine, &rows);
  return visit;
}

}  // namespace

SlvDriverCopies::SlvDriverCopies(slave* s) {
  if (s->m_Dsp == nullptr) return;
  std::optional<SlvDriverRows> once;
  SlvDriverRows& rows = DriverRowsOf(s, &once);
  if (rows.cur.empty()) return;  // the levels are the tables'
  booking_.emplace(SlvBooking::NoWait());
  if (booking_->Ok()) return;
  booking_.reset();
  rows.copiesRefused = true;
}

int slave::NumCnts() try {
  if (m_NumTanks < 1 || m_TankCntId == nullptr) return 0;
  std::unordered_set<long> seen;
  for (int i = 0; i < m_NumTanks; ++i) {
    if (m_TankCntId[i] > 0) seen.insert(m_TankCntId[i]);
  }
  return static_cast<int>(seen.size());
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

void slave::CntsList(long* out) try {
  if (out == nullptr || m_TankCntId == nullptr) return;
  // Each colourant once, in the order of its first tank; what is written
  // is gathered first, so a failure for want of memory writes nothing.
  std::unordered_set<long> seen;
  std::vector<long> list;
  for (int i = 0; i < m_NumTanks; ++i) {
    const long cnt = m_TankCntId[i];
    if (cnt > 0 && seen.insert(cnt).second) list.push_back(cnt);
  }
  std::copy(list.begin(), list.end(), out);
} catch (...) {
  SlvNoteFailure(this, kSource, __LINE__, __func__);
}

const std::vector<int>& SlvTanksOf(slave* s, long cnt, std::vector<int>* scratch) {
  static const std::vector<int> kNone;
  SlvState* state = s->m_State;
  if (s->m_TankCntId == nullptr || s->m_NumTanks < 1) return kNone;
  if (state == nullptr) {
    scratch->clear();
    for (int i = 0; i < s->m_NumTanks; ++i) {
      if (s->m_TankCntId[i] == cnt) scratch->push_back(i + 1);
    }
    return *scratch;
  }
  if (state->tanksOfArray != s->m_TankCntId || state->tanksOfCount != s->m_NumTanks) {
    state->tanksOf.clear();
    state->tanksOfArray = nullptr;
    for (int i = 0; i < s->m_NumTanks; ++i) state->tanksOf[s->m_TankCntId[i]].push_back(i + 1);
    state->tanksOfArray = s->m_TankCntId;
    state->tanksOfCount = s->m_NumTanks;
  }
  const auto it = state->tanksOf.find(cnt);
  return it == state->tanksOf.end() ? kNone : it->second;
}

// The three tank-map queries answer for any colourant id, 0 included: 0
// marks an empty tank (or a gap in the numbering), so they count and list
// the empty tanks. What doses or books refuses colourant 0 itself.
int slave::CntToNumTanks(long cnt) try {
  std::vector<int> scratch;
  return static_cast<int>(SlvTanksOf(this, cnt, &scratch).size());
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::CntToTank(long cnt) try {
  std::vector<int> scratch;
  const std::vector<int>& tanks = SlvTanksOf(this, cnt, &scratch);
  return tanks.empty() ? 0 : tanks.front();
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

void slave::CntToTanks(long cnt, int max, int* out) try {
  if (out == nullptr) return;
  std::vector<int> scratch;
  const std::vector<int>& tanks = SlvTanksOf(this, cnt, &scratch);
  for (size_t i = 0; i < tanks.size() && static_cast<int>(i) < max; ++i) out[i] = tanks[i];
} catch (...) {
  SlvNoteFailure(this, kSource, __LINE__, __func__);
}

int slave::CntQntToTank(long cnt, double qnt) try {
  // The levels of the colourant's tanks are read in one call: a driver that
  // keeps them is asked for its rows once.
  SlvCallScope call(this);
  // The answer is the tank a quantity is taken from: an empty tank (colourant
  // 0) or a colourant id below 0 names none.
  if (cnt < 1 || !std::isfinite(qnt)) return 0;
  const int n = CntToNumTanks(cnt);
  if (n == 0) return 0;
  if (n == 1 || qnt < kSlvEpsilon) return CntToTank(cnt);

  struct Row {
    double threshold;
    int tank;
    double cur;
  };
  std::vector<int> tanks(static_cast<size_t>(n));
  CntToTanks(cnt, n, tanks.data());
  std::vector<Row> rows;
  bool anyThreshold = false;
  for (int tank : tanks) {
    Row row = {0.0, tank, 0.0};
    TankSoglia(tank, &row.threshold, nullptr, nullptr);
    TankQnts(tank, &row.cur, nullptr, nullptr);
    anyThreshold = anyThreshold || row.threshold > kSlvEpsilon;
    rows.push_back(row);
  }
  if (anyThreshold) {
    std::stable_sort(rows.begin(), rows.end(),
                     [](const Row& a, const Row& b) { return a.threshold > b.threshold; });
  }

  const Row& last = rows.back();
  int answer = last.tank;
  if (m_SingleCircuit) return answer;

  // Among the lowest-threshold tanks, the one holding most.
  double best = last.cur;
  for (size_t i = rows.size() - 1; i-- > 0 && rows[i].threshold == last.threshold;) {
    if (rows[i].cur > best) {
      best = rows[i].cur;
      answer = rows[i].tank;
    }
  }

  // With thresholds, the highest threshold the quantity reaches wins, and
  // among its equals the tank holding most.
  if (rows.front().threshold > kSlvEpsilon) {
    for (size_t i = 0; i < rows.size(); ++i) {
      if (rows[i].threshold > qnt) continue;
      answer = rows[i].tank;
      best = rows[i].cur;
      for (size_t j = i + 1; j < rows.size() && rows[j].threshold == rows[i].threshold; ++j) {
        if (rows[j].cur > best) {
          best = rows[j].cur;
          answer = rows[j].tank;
        }
      }
      break;
    }
  }
  return answer;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

namespace {

// Kinds of circuit set, as CntToTypeCircuit answers them.
enum { kNoCircuit = 0, kOneTank = 1, kIndependent = 2, kLinked = 3, kSameThreshold = 4 };

int TypeCircuit(slave* s, long cnt, bool checkThresholds) {
  const int n = s->CntToNumTanks(cnt);
  if (n == 0) return kNoCircuit;
  std::vector<int> tanks(static_cast<size_t>(n));
  s->CntToTanks(cnt, n, tanks.data());
  int count = 0;
  std::vector<double> thresholds;
  for (int tank : tanks) {
    Qdbase* record = SlvTankRecord(s, tank, nullptr);
    if (record == nullptr) {
      count = 0;
      break;
    }
    double maxQ = 0.0, threshold = 0.0;
    record->ReadDouble("MAX_Q", &maxQ);
    if (maxQ == -1.0) continue;
    record->ReadDouble("THRESHOLD", &threshold);
    thresholds.push_back(threshold);
    ++count;
  }
  int kind = kNoCircuit;
  if (count == 1 && n == 1) kind = kOneTank;
  else if (count == 1 && n > 1) kind = kLinked;
  else if (count == n && n > 1) kind = kIndependent;
  if (!checkThresholds || count == 0) return kind;

  std::sort(thresholds.begin(), thresholds.end());
  for (size_t i = 1; i < thresholds.size(); ++i) {
    if (std::fabs(thresholds[i] - thresholds[i - 1]) < kSlvEpsilon) return kSameThreshold;
  }
  return kind;
}

}  // namespace

int slave::CntToTypeCircuit(long cnt) try {
  return TypeCircuit(this, cnt, true);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::CntToTypeCircuitNoTh(long cnt) try {
  return TypeCircuit(this, cnt, false);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::TankToTankField(int tank) try {
  Qdbase* tanks = SlvTankRecord(this, tank, nullptr);
  int field = 0;
  if (tanks == nullptr || !tanks->ReadInt("TANK", &field)) return 0;
  return field;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::CanisterToCanisterField(int canister, bool* a, bool* b) try {
  if (m_Dsp == nullptr || m_Dsp->GetType(0, 0) != 9) return TankToTankField(canister + 1);
  if (a != nullptr) *a = m_Dsp->GetCanisterFlagA(canister) != 0;
  if (b != nullptr) *b = m_Dsp->GetCanisterFlagB(canister) != 0;
  return m_Dsp->GetCanisterField(canister);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::TankAvail(int tank) try {
  if (tank < 0 || tank > m_NumTanks || m_TankRecNo == nullptr) return 0;
  if (tank > 0) return m_TankRecNo[tank - 1] >= 1 ? 1 : 0;
  return static_cast<int>(std::count_if(m_TankRecNo, m_TankRecNo + m_NumTanks,
                                        [](long recno) { return recno >= 1; }));
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::TankLocate(int tank) try {
  Qdbase* cist = nullptr;
  Qdbase* tanks = SlvTankRecord(this, tank, &cist);
  if (tanks == nullptr) return 0;
  long cistId = 0;
  tanks->ReadLong("CIST_ID", &cistId);
  if (cistId == 0 || cist == nullptr) return 1;
  return SlvSeekCistern(cist, cistId) ? 1 : 2;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int SlvTankLevels(slave* s, int tank, double* cur, double* res, double* max, long* cistId) try {
  if (cur != nullptr) *cur = 0.0;
  if (res != nullptr) *res = 0.0;
  if (max != nullptr) *max = 0.0;
  if (cistId != nullptr) *cistId = 0;
  Qdbase* tanks = SlvTankRecord(s, tank, nullptr);
  if (tanks == nullptr) return 0;

  const DriverVisit driver = RefreshFromDriver(s, tank);
  // What the split of this dispense read of the record, untouched since
  // (a driver's levels, copied in, are read instead): the same quantities,
  // not read again (no cistern: *cistId stays 0).
  if (!driver.visited && SplitLevelsOf(s, tanks, cur, res, max)) return 1;
  const int own = ReadTankQnts(s, tank, cur, res, max, cistId, driver.visited ? nullptr : tanks,
                               driver.uncopied ? &driver.machine : nullptr);
  if (own == 1) return 1;
  if (own == -1) return 0;

  // A secondary tank of a linked group answers its master's quantities.
  // Empty tanks (colourant 0) form no group: one never answers, nor books
  // on, another empty tank's record.
  const long cnt = s->m_TankCntId[tank - 1];
  if (cnt < 1) return 0;
  const int n = s->CntToNumTanks(cnt);
  std::vector<int> group(static_cast<size_t>(n));
  s->CntToTanks(cnt, n, group.data());
  int result = 0;
  for (int member : group) {
    if (s->m_TankRecNo[member - 1] < 1) return 0;
    result = ReadTankQnts(s, member, cur, res, max, cistId);
    if (result == 1) break;
  }
  return result;
} catch (...) {
  return SlvFailed(s, kSource, __LINE__, "TankQnts", 0);
}

int slave::TankQnts(int tank, double* cur, double* res, double* max) {
  return SlvTankLevels(this, tank, cur, res, max, nullptr);
}

int slave::TanksQnts(int n, const int* tanks, double* cur, double* res, double* max,
                     int* known) try {
  SlvCallScope call(this);
  if (n < 0 || (n > 0 && (tanks == nullptr || known == nullptr))) return 0;
  SlvDriverCopies copies(this);
  int read = 0;
  for (int i = 0; i < n; ++i) {
    known[i] = SlvTankLevels(this, tanks[i], cur != nullptr ? &cur[i] : nullptr,
                             res != nullptr ? &res[i] : nullptr,
                             max != nullptr ? &max[i] : nullptr, nullptr);
    if (known[i] == 1) ++read;
  }
  copies.Write();
  return read;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::TankResolution(int tank, double* res) try {
  TarvoTrace("\nslave:TankResolution called with param=%d", tank);
  if (res == nullptr) {
    TarvoTrace("\nslave:TankResolution - invalid parameter");
    return 0;
  }
  *res = 0.0;
  Qdbase* tanks = nullptr;
  if (!_slv_dbhandles(nullptr, &tanks, nullptr)) {
    TarvoTrace("\nslave:TankResolution - unable to open tanks.dbf");
    return 0;
  }

  if (ValidTank(this, tank)) {
    const long recno = m_TankRecNo[tank - 1];
    if (recno < 1) {
      TarvoTrace("\nslave:TankResolution - invalid recno %ld for tank %d", recno, tank);
      return 0;
    }
    double value = 0.0;
    if (tanks->Go(recno) && tanks->ReadDouble("RESOLUT", &value) && value > 1e-6) {
      *res = value;
      TarvoTrace("\n02)slave:TankResolution - minimal resolution found = %.4lf", value);
      return 1;
    }
    TarvoTrace("\n02)slave:TankResolution - minimal resolution NOT found");
    return 0;
  }

  // The search over every tank starts from 0 and only takes a smaller value,
  // so it never finds one; hosts rely on this answer for "all tanks".
  double smallest = 0.0;
  for (int t = 1; t <= m_NumTanks && m_TankRecNo != nullptr; ++t) {
    double value = 0.0;
    if (m_TankRecNo[t - 1] >= 1 && tanks->Go(m_TankRecNo[t - 1]) &&
        tanks->ReadDouble("RESOLUT", &value) && value > 1e-6 && value < smallest) {
      smallest = value;
    }
  }
  if (smallest > 1e-6) {
    *res = smallest;
    TarvoTrace("\n01)slave:TankResolution - minimal resolution found = %.4lf", smallest);
    return 1;
  }
  TarvoTrace("\n01)slave:TankResolution - minimal resolution NOT found");
  return 0;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::MoveToFill(int tank) try {
  if (m_Dsp == nullptr) return 0;
  return m_Dsp->MoveToFill(m_DispId, tank) == 0 ? 1 : 0;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::CheckLevel(int tank, double qnt) try {
  Qdbase* tanks = nullptr;
  if (!_slv_dbhandles(nullptr, &tanks, nullptr)) return 0;
  double cur = 0.0, res = 0.0;
  // A secondary whose master's quantities cannot be had answers -1 with
  // both quantities 0; it is judged on those.
  if (TankQnts(tank, &cur, &res, nullptr) == 0) return 0;
  return slave_test_level(cur - qnt, res);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

void slave::SetSingleCircuit(int on) {
  if (on == 0 || on == 1) m_SingleCircuit = on;
}
