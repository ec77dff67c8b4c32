// Splitting a quantity of one colourant over the tanks that hold it, and
// linking or unlinking a colourant's tanks to one reservoir.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_split";

double Usable(const CtInDspTank& e) { return e.cur_q - e.res_q; }

// bit_check answers -1 for a bit past the end of the flags; "precisely off"
// means a readable '0'.
bool SuspOff(CtInDspTank& e) { return bit_check(e.status_flg, TNK_SUSP) == 0; }
bool SimNotOff(CtInDspTank& e) { return bit_check(e.status_flg, TNK_SIM) != 0; }

void Suspend(CtInDspTank& e) {
  bit_turnup(e.status_flg, TNK_SUSP);
  bit_turndn(e.status_flg, TNK_SIM);
}

void ZeroSplit(CtInDspTank* tanks, int lo, int hi) {
  for (int i = lo; i <= hi; ++i) tanks[i].split_q = 0.0;
}

// The level verdict of the tanks the split drew from.
int GroupVerdict(ColourantInDispenser* c, int lo, int hi) {
  int verdict = 2;
  for (int i = lo; i <= hi; ++i) {
    const CtInDspTank& e = c->m_Tanks[i];
    if (e.split_q > 0) verdict = std::min(verdict, c->VerifyLevel(e.cur_q - e.split_q, e.res_q));
  }
  return verdict;
}

// Drivers of type 9 judge a colourant's level themselves, from a formula in
// colourant codes.
int DriverLevelCheck(slave* s, long cnt, double qnt) {
  std::string text = SlvFormat("%ld,%.3lf", cnt, qnt);
  const int len = s->TranslateFormulaFromCntIdToCntCode(&text[0], nullptr, 1.0, 1.0, 0);
  // Nothing to judge is enough; a translation that failed (no colourant
  // table, a code too long to send) vouches for nothing.
  if (len < 0) return 0;
  if (len == 0) return 2;
  std::vector<char> codes(static_cast<size_t>(len) + 1);
  s->TranslateFormulaFromCntIdToCntCode(&text[0], codes.data(), 1.0, 1.0, 0);
  return s->m_Dsp->CheckFormulaLevel(codes.data());
}

// Several independent tanks dispensing at once: the share is recomputed as
// tanks drop out, from the tank holding least (top of the group) down.
bool SimultaneousSplit(ColourantInDispenser* c, int lo, int hi, double qnt, int m) {
  CtInDspTank* t = c->m_Tanks;
  ZeroSplit(t, lo, hi);
  double rest = qnt;
  int k = hi;
  for (;;) {
    const double share = rest / m;
    if (t[k].threshold > share && k > lo) {
      // The share is too small for this group: one tank fewer.
      --m;
      for (int j = k; j > lo; --j) {
        if (bit_check(t[j].status_flg, TNK_SIM) != 0) {
          Suspend(t[j]);
          break;
        }
      }
    } else if (Usable(t[k]) >= share) {
      for (int j = lo; j <= k; ++j) {
        if (SuspOff(t[j])) t[j].split_q = share;
      }
      return true;
    } else if (SuspOff(t[k])) {
      // This tank cannot give a full share: it gives all it has.
      t[k].split_q = Usable(t[k]);
      rest -= t[k].split_q;
      --m;
    }
    do {
      --k;
    } while (k >= lo && !SimNotOff(t[k]));
    if (k < lo || m < 1) return false;
  }
}

int SplitIndependent(ColourantInDispenser* c, int lo, int hi, double qnt) {
  CtInDspTank* t = c->m_Tanks;
  for (int i = c->m_NumTanks - 1; i >= 0; --i) {
    if (Usable(t[i]) < t[i].threshold) Suspend(t[i]);
  }
  // A zero-threshold group splits no share below the dispenser threshold.
  const bool raised = t[lo].threshold <= kSlvEpsilon;
  if (raised) {
    for (int i = lo; i <= hi; ++i) t[i].threshold = c->m_DispThres;
  }

  bool ok = false;
  for (int i = lo; i <= hi; ++i) {
    if (Usable(t[i]) >= qnt && bit_check(t[i].status_flg, TNK_SUSP) <= 0) {
      t[i].split_q = qnt;
      ok = true;
      break;
    }
  }
  int m = 0;
  double sum = 0.0;
  for (int i = lo; i <= hi; ++i) {
    if (SuspOff(t[i]) && SimNotOff(t[i])) {
      ++m;
      sum += Usable(t[i]);
    }
  }
  if (sum >= qnt && m >= 2) ok = SimultaneousSplit(c, lo, hi, qnt, m);

  if (raised) {
    for (int i = lo; i <= hi; ++i) {
      if (t[i].threshold - c->m_DispThres <= kSlvEpsilon) t[i].threshold = 0.0;
    }
  }
  if (!ok) {
    ZeroSplit(t, lo, hi);
    return 0;
  }
  return GroupVerdict(c, lo, hi);
}

int SplitLinked(ColourantInDispenser* c, int lo, int hi, double qnt, double th, int avail) {
  CtInDspTank* t = c->m_Tanks;
  // The level is the shared reservoir's, held by the master.
  int verdict = 0;
  for (int i = 0; i < c->m_NumTanks; ++i) {
    if (t[i].cur_q > 0) {
      verdict = c->VerifyLevel(t[i].cur_q - qnt, t[i].res_q);
      break;
    }
  }
  while (avail > 0 && qnt / avail < th) --avail;
  if (avail == 0) avail = 1;
  const double share = qnt / avail;
  for (int i = lo; i <= hi && avail > 0; ++i) {
    if (SuspOff(t[i])) {
      t[i].split_q = share;
      --avail;
    }
  }
  if (verdict == 0) {
    ZeroSplit(t, lo, hi);
    return 0;
  }
  return verdict;
}

}  // namespace

int ColourantInDispenser::SplitQnt(long cnt, double qnt) try {
  // A quantity that is not a number, infinite or negative names no dispense.
  if (!std::isfinite(qnt) || qnt < -kSlvEpsilon) return 0;
  // The machine judges every colourant id it is given, 0 included.
  if (m_Slave != nullptr && m_Slave->m_Dsp != nullptr && m_Slave->m_Dsp->GetType(0, 0) == 9) {
    return DriverLevelCheck(m_Slave, cnt, qnt);
  }
  if (cnt == 0) return 0;
  CntStatus status = CNT_ABSENT;
  if (!Read(cnt) || !IsCntOK(&status)) return 0;

  const int mpx = SplitByMpx(cnt, qnt);
  if (mpx != 0) return mpx;

  if (status == CNT_SINGLE || qnt < kSlvEpsilon) {
    m_Tanks[0].split_q = qnt;
    for (int i = 0; i < m_NumTanks; ++i) {
      if (m_Tanks[i].cur_q > 0) return VerifyLevel(m_Tanks[i].cur_q - qnt, m_Tanks[i].res_q);
    }
    return 0;
  }

  double th = m_DispThres;
  if (m_Slave->m_SingleCircuit) m_SingleCircuit = 1;
  if (m_NumTanks > 1) {
    qsort(m_Tanks, static_cast<size_t>(m_NumTanks), sizeof(CtInDspTank), CtInDspCompare_dsp);
  }

  // The candidate group: the highest threshold the quantity reaches (in
  // single-circuit mode, the tanks without threshold).
  int hi = m_NumTanks - 1;
  if (m_SingleCircuit) {
    while (hi >= 0 && m_Tanks[hi].threshold > 0) --hi;
  } else {
    while (hi >= 0 && m_Tanks[hi].threshold > qnt) --hi;
    if (hi >= 0 && m_Tanks[hi].threshold > kSlvEpsilon) th = m_Tanks[hi].threshold;
  }
  if (hi < 0) return 0;
  int lo = hi;
  while (lo > 0 && m_Tanks[hi].threshold - m_Tanks[lo - 1].threshold < kSlvEpsilon) --lo;

  int avail = 0;
  for (int i = lo; i <= hi; ++i) {
    if (SuspOff(m_Tanks[i])) ++avail;
  }
  if (avail == 0) return 0;

  if (status == CNT_LINKED) return SplitLinked(this, lo, hi, qnt, th, avail);
  return SplitIndependent(this, lo, hi, qnt);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int ColourantInDispenser::SplitByMpx(long, double qnt) try {
  if (m_NumTanks != 2 || m_Tanks == nullptr) return 0;
  CtInDspTank& first = m_Tanks[0];
  CtInDspTank& second = m_Tanks[1];
  if (first.threshold > kSlvEpsilon || second.threshold > kSlvEpsilon) return 0;
  if (!SimNotOff(first) || !SimNotOff(second)) return 0;
  // Without two real factors the circuits are not a multiplexed pair.
  if (!(first.mpx > 0) || !(second.mpx > 0) || !std::isfinite(first.mpx) ||
      !std::isfinite(second.mpx)) {
    return 0;
  }

  // Each circuit gets the share proportional to the other one's factor.
  const double r = second.mpx / first.mpx;
  const double vol1 = r * qnt / (1 + r);
  const double vol2 = qnt / (1 + r);
  TarvoTrace("\nSplitByMpx  Qnt: %7.3lf", qnt);
  TarvoTrace("\nSplitByMpx  Mpx_Circ1: %7.3lf, Vol_Circ1: %7.3lf", first.mpx, vol1);
  TarvoTrace("\nSplitByMpx  Mpx_Circ2: %7.3lf, Vol_Circ2: %7.3lf", second.mpx, vol2);
  if (m_DispThres > vol2 || m_DispThres > vol1) {
    TarvoTrace("\nSplitByMpx  failed: Split volume under Threshold %.3lf", m_DispThres);
    return 0;
  }

  CntStatus status = CNT_ABSENT;
  IsCntOK(&status);
  int lev1 = 0, lev2 = 0;
  if (status == CNT_LINKED) {
    for (int i = 0; i < m_NumTanks; ++i) {
      if (m_Tanks[i].cur_q > 0) {
        lev1 = VerifyLevel(m_Tanks[i].cur_q - vol1, m_Tanks[i].res_q);
        lev2 = VerifyLevel(m_Tanks[i].cur_q - (vol1 + vol2), m_Tanks[i].res_q);
        break;
      }
    }
  } else {
    lev1 = VerifyLevel(first.cur_q - vol1, first.res_q);
    lev2 = VerifyLevel(second.cur_q - vol2, second.res_q);
  }
  if (lev1 == 0 || lev2 == 0) {
    if (m_Slave != nullptr) m_Slave->m_LastError = SLV_ERR_NO_TANK;
    TarvoTrace("\nSplitByMpx  failed: not enough colorant");
    return 0;
  }
  first.split_q = vol1;
  second.split_q = vol2;
  return (lev1 == 1 || lev2 == 1) ? 1 : 2;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int ColourantInDispenser::SplitQntToTanks(long cnt, double qnt, Zu_IntArray* tanks,
                                          Zu_DoubleArray* qnts) try {
  if (SplitQnt(cnt, qnt) == 0 || m_NumTanks < 1 || m_Tanks == nullptr) return 0;
  int listed = 0;
  for (int i = 0; i < m_NumTanks; ++i) {
    // A zero quantity lists every tank; otherwise only the tanks given a share.
    if (qnt >= kSlvEpsilon && m_Tanks[i].split_q <= kSlvEpsilon) continue;
    if (tanks != nullptr) SlvAppend(tanks, m_Tanks[i].tank);
    if (qnts != nullptr) SlvAppend(qnts, m_Tanks[i].split_q);
    ++listed;
  }
  return listed;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::CntQntToTanks(long cnt, double qnt, Zu_IntArray* tanks, Zu_DoubleArray* qnts,
                         int trace) try {
  ColourantInDispenser colourant(this);
  const int listed = colourant.SplitQntToTanks(cnt, qnt, tanks, qnts);
  if (trace) colourant.ShowCircuit();
  return listed;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

namespace {

// A switch the tables refused: the entries get back what they held.
int SwitchRefused(ColourantInDispenser* c, const std::vector<CtInDspTank>& before) {
  std::copy(before.begin(), before.end(), c->m_Tanks);
  TarvoTrace("\n%s(%d): the cisterns of colorant %ld could not be written", kSource, __LINE__,
             c->m_CntId);
  return 0;
}

// Seeks a cistern by its id text on index 1.
int SeekCisternText(Qdbase* cist, const char* id) { return cist->Seek(id); }

}  // namespace

int ColourantInDispenser::SwitchToSingleTank(double max, double res, double cur) try {
  CntStatus status = CNT_ABSENT;
  if (m_Slave == nullptr || m_CntId < 1 || !IsCntOK(&status) || status != CNT_MULTI) return 0;
  // A quantity not given (0 or below) is the largest among the tanks.
  const bool findMax = max <= 0, findRes = res <= 0, findCur = cur <= 0;
  for (int i = 0; i < m_NumTanks; ++i) {
    if (findMax) max = std::max(max, m_Tanks[i].max_q);
    if (findRes) res = std::max(res, m_Tanks[i].res_q);
    if (findCur) cur = std::max(cur, m_Tanks[i].cur_q);
  }
  // The entries change only with the cistern table: a switch the tables
  // refuse leaves both as they were.
  const std::vector<CtInDspTank> before(m_Tanks, m_Tanks + m_NumTanks);
  CtInDspTank& master = m_Tanks[0];
  master.max_q = max;
  master.res_q = res;
  master.cur_q = cur;

  Qdbase* cist = nullptr;
  _slv_dbhandles(nullptr, nullptr, &cist);
  SlvBooking booking;
  if (cist != nullptr && !booking.Ok()) return SwitchRefused(this, before);
  bool emptied = false;  // a cistern's last user left: it is deleted
  for (int i = 1; i < m_NumTanks; ++i) {
    CtInDspTank& entry = m_Tanks[i];
    entry.max_q = entry.cur_q = entry.res_q = -1.0;
    if (cist != nullptr) {
      const int savedIdx = cist->CurrentIdx();
      cist->SelectIdx(1);
      int users = 0;
      if (SeekCisternText(cist, entry.cist_id) && cist->ReadInt("USERS", &users)) {
        // The last user leaving takes its cistern with it; the table is
        // packed once the booking stands.
        if (users == 1) {
          emptied = cist->Delete() != 0 || emptied;
        } else {
          cist->WriteInt("USERS", users - 1);
        }
      }
      memcpy(entry.cist_id, master.cist_id, sizeof entry.cist_id);
      if (SeekCisternText(cist, entry.cist_id) && cist->ReadInt("USERS", &users)) {
        cist->WriteInt("USERS", users + 1);
      }
      cist->SelectIdx(savedIdx);
    } else {
      memcpy(entry.cist_id, master.cist_id, sizeof entry.cist_id);
    }
  }
  if (cist != nullptr && !booking.Commit()) return SwitchRefused(this, before);
  if (emptied) cist->Pack();
  return 1;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

namespace {

// Appends a cistern with one user and the given quantities; answers its id,
// or 0 when there is no table, the append fails, or the id would not fit
// the five characters of a tank's CIST_ID.
long AppendCistern(Qdbase* cist, double max, double cur, double res) {
  if (cist == nullptr) return 0;
  long lastId = 0;
  if (cist->Bottom()) cist->ReadLong("ID", &lastId);
  // Checked before the addition: a wide ID field may hold LONG_MAX.
  if (lastId >= 99999) return 0;
  const long id = lastId + 1;
  if (!cist->Append()) return 0;
  if (!cist->WriteLong("ID", id) || !cist->WriteInt("USERS", 1)) {
    cist->Delete();
    return 0;
  }
  cist->WriteDouble("MAX_Q", max);
  cist->WriteDouble("CUR_Q", cur);
  cist->WriteDouble("RES_Q", res);
  return id;
}

}  // namespace

int ColourantInDispenser::SwitchToMultiTank() try {
  CntStatus status = CNT_ABSENT;
  if (m_Slave == nullptr || m_CntId < 1 || !IsCntOK(&status) || status != CNT_LINKED) return 0;
  if (m_NumTanks < 1) return 1;

  int masterIdx = 0;
  double max = 0.0, cur = 0.0, res = 0.0;
  for (int i = 0; i < m_NumTanks; ++i) {
    if (m_Tanks[i].max_q >= 0) {
      masterIdx = i;
      max = m_Tanks[i].max_q;
      cur = std::max(0.0, m_Tanks[i].cur_q);
      res = std::max(0.0, m_Tanks[i].res_q);
      break;
    }
  }

  // The entries change only with the cistern table: a switch the tables
  // refuse leaves both as they were.
  const std::vector<CtInDspTank> before(m_Tanks, m_Tanks + m_NumTanks);
  Qdbase* cist = nullptr;
  _slv_dbhandles(nullptr, nullptr, &cist);
  SlvBooking booking;
  if (cist != nullptr && !booking.Ok()) return SwitchRefused(this, before);
  const int savedIdx = cist != nullptr ? cist->CurrentIdx() : 0;
  for (int i = 0; i < m_NumTanks; ++i) {
    if (i == masterIdx) continue;
    CtInDspTank& entry = m_Tanks[i];
    // Each tank gets a copy of the master's quantities, not a part of them.
    entry.max_q = max;
    entry.cur_q = cur;
    entry.res_q = res;
    long newId = 0;
    if (cist != nullptr) {
      cist->SelectIdx(1);
      double cmax = 0.0, ccur = 0.0, cres = 0.0;
      int users = 0;
      if (SeekCisternText(cist, m_Tanks[masterIdx].cist_id)) {
        cist->ReadInt("USERS", &users);
        cist->ReadDouble("MAX_Q", &cmax);
        cist->ReadDouble("CUR_Q", &ccur);
        cist->ReadDouble("RES_Q", &cres);
        cist->WriteInt("USERS", users - 1);
      }
      newId = AppendCistern(cist, cmax, ccur, cres);
    }
    // AppendCistern keeps ids within five characters.
    char idText[24];
    snprintf(idText, sizeof idText, "%5ld", newId);
    snprintf(entry.cist_id, sizeof entry.cist_id, "%.5s", idText);
  }
  if (cist != nullptr) cist->SelectIdx(savedIdx);
  if (cist != nullptr && !booking.Commit()) return SwitchRefused(this, before);
  return 1;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}
