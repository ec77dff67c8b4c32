// Level bookkeeping: every change of a circuit's level goes through
// change_level, which writes the tank record and the cistern that feeds it.
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_lev";

// Keeps the table library's flush mode at 1 for a batch of writes and puts
// the caller's mode back on every way out.
class FlushEveryWrite {
 public:
  FlushEveryWrite() : saved_(Qdbase::FlushGet()) { Qdbase::FlushSet(1); }
  ~FlushEveryWrite() { Qdbase::FlushSet(saved_); }

 private:
  int saved_;
};

}  // namespace

namespace {

// A level that is no number is refused before anything is booked.
bool LevelIsNumber(int circuit, double quantity) {
  if (std::isfinite(quantity)) return true;
  TarvoTrace("\n%s (%d) level %g refused for circuit %d", kSource, __LINE__, quantity, circuit);
  return false;
}

// Changes circuit's level (by quantity when relative, else to it) within
// the booking its caller holds: the record that holds the level (the
// master's, for a linked circuit) and, when it names one, its cistern's.
// tanks and cist are the library's tables (cist null when the cistern
// table is closed); notify tells the driver the new level.
int BookLevel(slave* s, Qdbase* tanks, Qdbase* cist, int circuit, double quantity, int relative,
              int notify) try {
  double cur = 0.0, res = 0.0, max = 0.0;
  long cistId = 0;
  if (SlvTankLevels(s, circuit, &cur, &res, &max, &cistId) != 1) {
    TarvoTrace("\n%s (%d) TankQnts() failure", kSource, __LINE__);
    return 0;
  }

  double level = relative ? cur + quantity : quantity;
  if (level < 0.0) level = 0.0;
  if (level > max) level = max;

  // Telling the driver a level changes its rows: a call in progress
  // fetches them again.
  if (notify && s->m_State != nullptr) s->m_State->driverRows.known = false;
  if (s->m_Dsp != nullptr && s->m_Dsp->GetType(0, 0) == 7) {
    // This driver keeps the levels itself.
    if (!notify) return 1;
    s->m_Dsp->SetLevels(1, &circuit, &level);
  } else if (notify && s->m_Dsp != nullptr) {
    s->m_Dsp->SetDispenserLevels(s->m_DispId, 1, &circuit, &level);
  }

  SlvForgetSplitLevels(s, tanks);
  // The tank record is the record of the level: it is written first, and
  // its cistern follows only once it holds the new level, so a refused
  // tank write leaves both files as they were.
  if (!tanks->WriteFieldDouble(SlvLevelFieldsOf(tanks).curQ, level)) {
    TarvoTrace("\n%s (%d) failure writing in TANKS database", kSource, __LINE__);
    return 0;
  }
  // A circuit without a cistern writes no cistern record: the current one
  // belongs to another reservoir.
  if (cist != nullptr && cistId != 0 && !cist->WriteFieldDouble(SlvLevelFieldsOf(cist).curQ, level)) {
    TarvoTrace("\n%s (%d) failure writing in CISTERN database", kSource, __LINE__);
  }
  return 1;
} catch (...) {
  return SlvFailed(s, kSource, __LINE__, "change_level", 0);
}

// The tank and cistern tables (the cistern table may be closed), with the
// dispenser table open; else traced with the caller's line.
bool LevelTables(Qdbase** tanks, Qdbase** cist, int line) {
  Qdbase* disp = nullptr;
  if (_slv_dbhandles(&disp, tanks, cist)) return true;
  TarvoTrace("\n%s (%d) _slv_dbhandles() failure", kSource, line);
  return false;
}

}  // namespace

int slave::change_level(int circuit, double quantity, int relative, int notify) try {
  Qdbase* tanks = nullptr;
  Qdbase* cist = nullptr;
  if (!LevelTables(&tanks, &cist, __LINE__)) return 0;
  if (!LevelIsNumber(circuit, quantity)) return 0;
  // The level is read from the file, changed and written under the lock of
  // the tables, tank and cistern together (or in the booking that called).
  SlvBooking booking;
  if (!booking.Ok()) {
    TarvoTrace("\n%s (%d) failure writing in TANKS database", kSource, __LINE__);
    return 0;
  }
  if (!BookLevel(this, tanks, cist, circuit, quantity, relative, notify)) return 0;
  if (!booking.Commit()) {
    TarvoTrace("\n%s (%d) failure writing in TANKS database", kSource, __LINE__);
    return 0;
  }
  return 1;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::UpdateLevels(int count, int* circuits, double* quantities, double factor, int add) try {
  SlvCallScope call(this);
  if (m_DispId < 1) {
    TarvoTrace("\n%s (%d) id == %ld", kSource, __LINE__, m_DispId);
    return 0;
  }
  Qdbase* tanks = nullptr;
  Qdbase* cist = nullptr;
  if (!LevelTables(&tanks, &cist, __LINE__)) return 0;
  if (count > 0 && (circuits == nullptr || quantities == nullptr)) return 0;

  FlushEveryWrite flush;
  // The whole batch is one booking: its levels reach the tables together,
  // or, when the tables refuse them, none does.
  SlvBooking booking;
  if (!booking.Ok()) {
    TarvoTrace("\n%s (%d) failure writing in TANKS database", kSource, __LINE__);
    return 0;
  }
  const double sign = add ? 1.0 : -1.0;
  int result = 1;
  bool applied = false;
  for (int i = 0; i < count; ++i) {
    if (circuits[i] < 1 || circuits[i] > m_NumTanks || !(quantities[i] > 0.0)) continue;
    quantities[i] *= factor;
    applied = true;
    // Each level is booked in the batch's booking, on the tables it holds.
    const double change = quantities[i] * sign;
    if (!LevelIsNumber(circuits[i], change) ||
        !BookLevel(this, tanks, cist, circuits[i], change, 1, 0)) {
      TarvoTrace("\n%s (%d) ModifyLevel() failure", kSource, __LINE__);
      result = 0;
    }
  }
  if (applied && !booking.Commit()) {
    TarvoTrace("\n%s (%d) failure writing in TANKS database", kSource, __LINE__);
    result = 0;
  }
  return result;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

bool SlvBookLevels(slave* s, SlvBooking* booking, int n, int* tanks, double* qnts) {
  return booking->Ok() && s->UpdateLevels(n, tanks, qnts, 1.0, 0) == 1 && booking->Commit();
}

int slave::UpdateLevels(char* formula, double f1, double f2, int mode, int add) try {
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  const int n = SplitFrmToTanks(formula, nullptr, &tanks, &qnts, f1, f2, mode, 0, nullptr);
  if (n < 1) return 0;
  return UpdateLevels(n, tanks.data(), qnts.data(), 1.0, add);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::UpdateLevelsByFormula(char* text) try {
  SlvCallScope call(this);
  if (text == nullptr || text[0] == '\0') return 0;
  std::string copy = text;
  for (char& c : copy) {
    if (c == '(' || c == ')') c = ' ';
  }
  const size_t n = static_cast<size_t>(std::count(copy.begin(), copy.end(), ':'));
  if (n == 0) return 0;

  std::vector<int> circuits;
  std::vector<double> quantities;
  circuits.reserve(n);
  quantities.reserve(n);
  char* save = nullptr;
  SlvDriverCopies copies(this);
  for (char* token = strtok_r(&copy[0], " :\n", &save); token != nullptr;
       token = strtok_r(nullptr, " :\n", &save)) {
    const int circuit = static_cast<int>(strtol(token, nullptr, 10));
    char* qntToken = strtok_r(nullptr, " :\n", &save);
    if (qntToken == nullptr) return 0;
    const double quantity = strtod(qntToken, nullptr);
    if (!std::isfinite(quantity)) return 0;
    double cur = 0.0;
    TankQnts(circuit, &cur, nullptr, nullptr);
    // Every pair is checked before any level changes.
    if (quantity >= cur) return -1;
    circuits.push_back(circuit);
    quantities.push_back(quantity);
  }
  if (circuits.size() != n) return 0;
  copies.Write();
  return UpdateLevels(static_cast<int>(n), circuits.data(), quantities.data(), 1.0, 0);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::SetLevelMax() try {
  SlvCallScope call(this);
  if (m_DispId < 1) return 0;
  Qdbase* disp = nullptr;
  Qdbase* tanks = nullptr;
  if (!_slv_dbhandles(&disp, &tanks, nullptr)) return 0;
  FlushEveryWrite flush;
  // Every circuit full together, or none when the tables refuse the writes.
  SlvBooking booking;
  if (!booking.Ok()) {
    TarvoTrace("\n%s (%d) failure writing in TANKS database", kSource, __LINE__);
    return 0;
  }
  // The tank map is read again when the lock found the table changed; a
  // map that cannot be read leaves no circuit to fill, which is no refill.
  if (!SlvKeepTankMapCurrent(this)) {
    TarvoTrace("\n%s (%d) failure reading TANKS database", kSource, __LINE__);
    return 0;
  }
  // A circuit without a tank record is skipped. One whose maximum cannot be
  // read, or whose level cannot be written, fails the whole refill: taken
  // as 0 it would book a full tank empty, and a refill reported done must
  // have reached every circuit.
  for (int circuit = 1; circuit <= m_NumTanks; ++circuit) {
    if (m_TankRecNo == nullptr || m_TankRecNo[circuit - 1] < 1) continue;
    double max = 0.0;
    if (TankQnts(circuit, nullptr, nullptr, &max) != 1) {
      TarvoTrace("\n%s (%d) TankQnts() failure", kSource, __LINE__);
      return 0;
    }
    if (change_level(circuit, max, 0, 0) != 1) return 0;
  }
  if (m_NumTanks >= 1 && !booking.Commit()) {
    TarvoTrace("\n%s (%d) failure writing in TANKS database", kSource, __LINE__);
    return 0;
  }
  return 1;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

// --- Level warnings --------------------------------------------------------

namespace {

// The formula's colourants and quantities, made for size from a formula
// written for baseSize (and converted from weights when mode asks).
// Empty when the formula holds nothing or cannot be read or scaled.
struct PreparedFormula {
  std::vector<long long> ids;
  std::vector<double> qnts;
};

PreparedFormula PrepareFormula(slave* s, char* formula, double size, double baseSize, int mode) {
  PreparedFormula prepared;
  CZutable colorants;
  colorants.SetDataId(s->m_DataId);
  colorants.Handle(ZUSPEC_COLORANTS);
  Zu_Frm frm;
  frm.set("");
  frm.set(formula);
  // The conversion only turns weights into volumes (factor 1); the one
  // scaling by size / baseSize is the resize below. Converting with the
  // factor size / baseSize as well would scale the formula twice.
  if (mode != 0 && frm.to_volume(&colorants, 1.0, 3, 0) < 0) return prepared;
  // A formula that cannot be scaled (a base size of 0) stays as written and
  // is judged so.
  frm.resize(baseSize, size, 12, 0);
  const int n = frm.count();
  if (n <= 0) return prepared;
  prepared.ids.resize(static_cast<size_t>(n));
  prepared.qnts.resize(static_cast<size_t>(n));
  frm.parse(prepared.ids.data(), prepared.qnts.data());
  return prepared;
}

// Appends every tank of a colourant, with the colourant beside each.
// Colourant 0 marks an empty tank: it is in no tank, so nothing is listed
// (CntToTanks would list the empty ones).
void ListTanks(slave* s, long cnt, Zu_IntArray& circuits, Zu_IntArray& colourants) {
  if (cnt < 1) return;
  const int n = s->CntToNumTanks(cnt);
  std::vector<int> tanks(static_cast<size_t>(n));
  if (n > 0) s->CntToTanks(cnt, n, tanks.data());
  for (int tank : tanks) {
    SlvAppend(&circuits, tank);
    SlvAppend(&colourants, static_cast<int>(cnt));
  }
}

// Lists the colourants whose split verdict satisfies listed(verdict).
template <typename Predicate>
int ListColourants(slave* s, const PreparedFormula& prepared, Zu_IntArray& circuits,
                   Zu_IntArray& colourants, Predicate listed) {
  int any = 0;
  for (size_t i = 0; i < prepared.ids.size(); ++i) {
    const long cnt = static_cast<long>(prepared.ids[i]);
    ColourantInDispenser colourant(s);
    if (!listed(colourant.SplitQnt(cnt, prepared.qnts[i]))) continue;
    ListTanks(s, cnt, circuits, colourants);
    any = 1;
  }
  return any;
}

}  // namespace

int slave::GetCircuitsUnderCriticalLevel(char* formula, double size, double baseSize, int mode,
                                         Zu_IntArray& circuits, Zu_IntArray& colourants) try {
  SlvCallScope call(this);
  circuits.clear();
  colourants.clear();
  const PreparedFormula prepared = PrepareFormula(this, formula, size, baseSize, mode);
  return ListColourants(this, prepared, circuits, colourants,
                        [](int verdict) { return verdict <= 0; });
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::GetCircuitsUnderWarningLevel(char* formula, double size, double baseSize, int mode,
                                        Zu_IntArray& circuits, Zu_IntArray& colourants) try {
  SlvCallScope call(this);
  const double factor = baseSize > 0.0 ? size / baseSize : 1.0;
  Zu_LongArray ids;
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  const int n = SplitFrmToTanks(formula, &ids, &tanks, &qnts, factor, 1.0, mode, 0, nullptr);
  if (n >= 1) {
    // Appended to what the caller's lists already hold.
    SlvDriverCopies copies(this);
    for (int i = 0; i < n; ++i) {
      if (CheckLevel(tanks[i], qnts[i]) > 1) continue;
      const int tank = tanks[i];
      const bool known = tank >= 1 && tank <= m_NumTanks && m_TankCntId != nullptr;
      SlvAppend(&circuits, tank);
      SlvAppend(&colourants, known ? static_cast<int>(m_TankCntId[tank - 1]) : 0);
    }
    copies.Write();
    return 1;
  }
  // The formula cannot be split: list the colourants only just served.
  circuits.clear();
  colourants.clear();
  const PreparedFormula prepared = PrepareFormula(this, formula, size, baseSize, mode);
  return ListColourants(this, prepared, circuits, colourants,
                        [](int verdict) { return verdict == 1; });
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}
