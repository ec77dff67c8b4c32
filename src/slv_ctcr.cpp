// ColourantInDispenser: the tanks that hold one colourant in one dispenser,
// gathered from the tank and cistern tables, judged, and written back.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_ctcr";

// Dispensers without a THRESHOLD of their own split no smaller share.
const double kDefaultDispThreshold = 50.0;

void ClearEntry(CtInDspTank* entry) {
  memset(entry, 0, sizeof *entry);
  snprintf(entry->status_flg, sizeof entry->status_flg, "%s", "00000000");
  snprintf(entry->cist_id, sizeof entry->cist_id, "%s", "    0");
}

// MPX: the multiplexing factor is the number before the first ';'. A field
// that begins with a blank or ';', or holds no number, gives 0.
double ReadMpx(Qdbase* tanks) {
  char mpx[86] = "";
  if (!tanks->ReadString("MPX", mpx, sizeof mpx, 0, 0) || mpx[0] == ' ') return 0.0;
  char number[17] = "";
  size_t len = strcspn(mpx, ";");
  if (len > 16) len = 16;
  memcpy(number, mpx, len);
  number[len] = '\0';
  const double value = strtod(number, nullptr);
  return std::isfinite(value) ? value : 0.0;
}

// A tank that holds its own level (a maximum above -1) and names no
// cistern has its quantities in its record's MAX_Q, CUR_Q and RES_Q, as
// TankQnts reads them: they are kept for the level update of a dispense in
// progress (SlvSplitLevelsScope).
void KeepSplitLevels(slave* s, Qdbase* tanks, const SlvLevelFields& fields, long cistId,
                     const CtInDspTank& entry) {
  SlvState* state = s->m_State;
  if (state == nullptr || !state->keepSplitLevels || cistId != 0 || !(entry.max_q > -1.0) ||
      fields.maxQ == 0 || fields.curQ == 0 || fields.resQ == 0) {
    return;
  }
  SlvState::SplitLevels kept;
  kept.recNo = tanks->RecNo();
  kept.generation = tanks->Generation();
  kept.cur = entry.cur_q;
  kept.res = entry.res_q;
  kept.max = entry.max_q;
  // A record read again (a colourant named twice) replaces what it had.
  SlvForgetSplitLevels(s, tanks);
  try {
    state->splitLevels.push_back(kept);
  } catch (const std::bad_alloc&) {
    // Without room to keep them the tank's quantities are read again when
    // its level is booked: nothing of the dispense depends on them.
  }
}

long CistId(const CtInDspTank& entry) { return strtol(entry.cist_id, nullptr, 10); }

// Writes id into the entry's cistern text ("%5ld"); false when it needs
// more than the text holds.
bool StoreCistId(CtInDspTank* entry, long id) {
  char text[kSlvIdTextSize];
  const int len = SlvIdText(id, text);
  if (static_cast<size_t>(len) >= sizeof entry->cist_id) return false;
  memcpy(entry->cist_id, text, static_cast<size_t>(len) + 1);
  return true;
}

}  // namespace

ColourantInDispenser::ColourantInDispenser(slave* s)
    : m_Slave(s), m_CntId(0), m_NumTanks(0), m_SingleCircuit(0),
      m_DispThres(kDefaultDispThreshold), m_Tanks(nullptr) {
  Clear();
  SetDispenserThres();
}

ColourantInDispenser::~ColourantInDispenser() { Clear(); }

int ColourantInDispenser::Clear() {
  free(m_Tanks);
  m_Tanks = nullptr;
  m_CntId = 0;
  m_NumTanks = 0;
  m_SingleCircuit = 0;
  return 1;
}

int ColourantInDispenser::SetDispenserThres() try {
  m_DispThres = kDefaultDispThreshold;
  if (m_Slave == nullptr) return 0;
  // Within one call of the library (a split of many colourants) the
  // record is read once.
  SlvState* state = m_Slave->m_State;
  if (state != nullptr && state->callDepth > 0 && state->thresholdKnown) {
    m_DispThres = state->threshold;
    return state->thresholdResult;
  }
  int result = 0;
  Qdbase* disp = SlvDispenserRecord(m_Slave);
  if (disp != nullptr) {
    double threshold = 0.0;
    if (disp->ReadDouble("THRESHOLD", &threshold) && threshold > kSlvEpsilon) {
      m_DispThres = threshold;
    }
    result = 1;
  }
  if (state != nullptr && state->callDepth > 0) {
    state->thresholdKnown = true;
    state->threshold = m_DispThres;
    state->thresholdResult = result;
  }
  return result;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int ColourantInDispenser::Read(long cnt) try {
  Clear();
  if (m_Slave == nullptr || cnt < 1) return 0;
  // The tank list is copied: a tank map read again on the way (another
  // process packed the table) must not change it under the loop. A
  // colourant is in a few tanks: they are copied without an allocation.
  std::vector<int> scratch;
  const std::vector<int>& tanksOf = SlvTanksOf(m_Slave, cnt, &scratch);
  int few[8];
  std::vector<int> many;
  const int* list = few;
  if (tanksOf.size() <= sizeof few / sizeof few[0]) {
    std::copy(tanksOf.begin(), tanksOf.end(), few);
  } else {
    many = tanksOf;
    list = many.data();
  }
  m_NumTanks = static_cast<int>(tanksOf.size());
  Qdbase* tanks = nullptr;
  Qdbase* cist = nullptr;
  if (m_NumTanks == 0 || !_slv_dbhandles(nullptr, &tanks, &cist)) return 0;

  m_Tanks = static_cast<CtInDspTank*>(calloc(static_cast<size_t>(m_NumTanks), sizeof(CtInDspTank)));
  if (m_Tanks == nullptr) {
    TarvoTrace("\nFailure in CtInDsp::Read: %s %d", kSource, 148);
    Clear();
    return 0;
  }

  // Each tank's record is visited once and every field the split and the
  // booking use is read from it there.
  for (int i = 0; i < m_NumTanks; ++i) {
    CtInDspTank& entry = m_Tanks[i];
    // A tank without a record stays zero, which IsCntOK judges bad.
    ClearEntry(&entry);
    if (SlvTankRecord(m_Slave, list[i], nullptr) == nullptr) continue;

    entry.tank = list[i];
    // A quantity that cannot be read is no quantity: the colourant is not
    // read at all rather than split or written back with a 0 in its place.
    // The cistern id is a number, stored as digits or as a number of any
    // width; the entry keeps it as "%5ld". One that does not fit there is
    // refused rather than cut to another id.
    const SlvLevelFields tankFields = SlvLevelFieldsOf(tanks);
    long cistId = 0;
    bool read = SlvReadNumber(tanks, tankFields.cistId, &cistId);
    // 1: the tank's cistern is found (or it names none), 2: it is not.
    int located = 1;
    if (read && cistId != 0 && cist != nullptr) located = SlvSeekCistern(cist, cistId) ? 1 : 2;
    read = read && SlvReadNumber(tanks, tankFields.maxQ, &entry.max_q);
    entry.mpx = ReadMpx(tanks);
    if (cistId != 0 && !StoreCistId(&entry, cistId)) {
      TarvoTrace("\n%s(%d): cistern id %ld of tank %d does not fit", kSource, __LINE__, cistId,
                 entry.tank);
      Clear();
      return 0;
    }
    // A master tank fed by a cistern holds the cistern's quantities; the
    // cistern record is the one found for this tank.
    Qdbase* levels = (entry.max_q != -1.0 && cist != nullptr && located == 1 && cistId != 0)
                         ? cist
                         : tanks;
    const SlvLevelFields levelFields = SlvLevelFieldsOf(levels);
    if (levels == cist) read = read && SlvReadNumber(cist, levelFields.maxQ, &entry.max_q);
    read = read && SlvReadNumber(levels, levelFields.curQ, &entry.cur_q) &&
           SlvReadNumber(levels, levelFields.resQ, &entry.res_q) &&
           SlvReadNumber(tanks, tankFields.threshold, &entry.threshold);
    if (!read) {
      TarvoTrace("\n%s(%d): tank %d of colorant %ld cannot be read", kSource, __LINE__,
                 entry.tank, cnt);
      Clear();
      return 0;
    }
    char flags[sizeof entry.status_flg];
    if (tanks->ReadString("STATUS_FLG", flags, sizeof flags, 0, 0)) {
      memcpy(entry.status_flg, flags, sizeof flags);
    }
    KeepSplitLevels(m_Slave, tanks, tankFields, cistId, entry);
  }
  if (m_NumTanks > 1) {
    qsort(m_Tanks, static_cast<size_t>(m_NumTanks), sizeof(CtInDspTank), CtInDspCompare_s);
  }
  m_CntId = cnt;
  return 1;
} catch (...) {
  Clear();
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int ColourantInDispenser::IsCntOK(CntStatus* st) {
  CntStatus verdict;
  if (m_NumTanks == 0) {
    verdict = CNT_ABSENT;
  } else if (m_NumTanks == 1) {
    verdict = CNT_SINGLE;
  } else if (m_NumTanks < 0 || m_Tanks == nullptr) {
    verdict = CNT_NO_ZERO_THRES;
  } else {
    int zeros = 0;
    long firstCist = 0;
    int secondaries = 0;
    bool bad = false;
    for (int i = 0; i < m_NumTanks && !bad; ++i) {
      const CtInDspTank& entry = m_Tanks[i];
      const long cist = CistId(entry);
      if (std::fabs(entry.threshold) < 0.01) ++zeros;
      if (firstCist == 0 && cist > 0) firstCist = cist;
      // Secondaries of another cistern belong to another group.
      if (entry.max_q < 0 && (cist == 0 || cist == firstCist)) ++secondaries;
      bad = entry.tank < 1 || entry.threshold < 0;
    }
    verdict = bad ? CNT_BAD_TANK : CNT_MULTI;
    if (secondaries > 0) {
      verdict = (m_NumTanks - secondaries != 1) ? CNT_BAD_LINK : CNT_LINKED;
    }
    if (verdict != CNT_BAD_TANK && verdict != CNT_BAD_LINK && zeros == 0) {
      verdict = CNT_NO_ZERO_THRES;
    }
  }
  if (st != nullptr) *st = verdict;
  return verdict < CNT_BAD_TANK ? 1 : 0;
}

int ColourantInDispenser::Write() try {
  Qdbase* tanks = nullptr;
  Qdbase* cist = nullptr;
  if (m_Slave == nullptr || m_CntId < 1 || IsCntOK(nullptr) != 1 ||
      !_slv_dbhandles(nullptr, &tanks, &cist)) {
    TarvoTrace("\nCol..InDispenser::Write error %s %d", kSource, 269);
    return 0;
  }
  // Every tank and cistern of the colourant is written as one booking.
  SlvBooking booking;
  for (int i = 0; i < m_NumTanks && booking.Ok(); ++i) {
    const CtInDspTank& entry = m_Tanks[i];
    const int located = m_Slave->TankLocate(entry.tank);
    if (located == 0) continue;
    // Only a tank that names a cistern writes one: with no cistern the
    // current cistern record belongs to some other reservoir.
    long storedCist = 0;
    tanks->ReadLong("CIST_ID", &storedCist);
    if (entry.max_q != -1.0 && cist != nullptr && located != 2 && storedCist != 0) {
      cist->WriteDouble("MAX_Q", entry.max_q);
      cist->WriteDouble("CUR_Q", entry.cur_q);
      cist->WriteDouble("RES_Q", entry.res_q);
    }
    // The id is written as a number: right-aligned digits in a text field,
    // a number in a numeric one; an unchanged id changes no byte.
    if (cist != nullptr) tanks->WriteLong("CIST_ID", CistId(entry));
    tanks->WriteDouble("MAX_Q", entry.max_q);
    tanks->WriteDouble("CUR_Q", entry.cur_q);
    tanks->WriteDouble("RES_Q", entry.res_q);
    tanks->WriteDouble("THRESHOLD", entry.threshold);
    // The flags the entry holds are written over the start of the field;
    // a wider field keeps the characters past them.
    if (tanks->FieldType("STATUS_FLG") == 'C') {
      tanks->WriteStringAt("STATUS_FLG", 0, entry.status_flg);
    } else {
      tanks->WriteString("STATUS_FLG", entry.status_flg);
    }
    TarvoTrace("\nTank: %5d, max_q: %7.3lf", entry.tank, entry.max_q);
  }
  if (!booking.Commit()) {
    TarvoTrace("\n%s(%d): the tanks of colorant %ld could not be written", kSource, __LINE__,
               m_CntId);
    return 0;
  }
  m_Slave->Set(m_Slave->m_DispId);
  return 1;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int ColourantInDispenser::Adjust() try {
  for (int i = 0; i < m_NumTanks && m_Tanks != nullptr; ++i) {
    m_Tanks[i].max_q = 0.0;
    m_Tanks[i].cur_q = 0.0;
    m_Tanks[i].res_q = 0.0;
    m_Tanks[i].threshold = 0.0;
  }
  return Write();
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

// An index outside the entries names no tank: its bits read as unknown,
// which callers treat as on, and it cannot be changed.
int ColourantInDispenser::ChkStatus(int i, TnkStatus b) {
  if (i < 0 || i >= m_NumTanks || m_Tanks == nullptr) return 1;
  return bit_check(m_Tanks[i].status_flg, b) != 0 ? 1 : 0;
}

int ColourantInDispenser::ModifyStatus(int i, TnkStatus b) {
  if (i < 0 || i >= m_NumTanks || m_Tanks == nullptr) return 0;
  if (bit_check(m_Tanks[i].status_flg, b) != 0) {
    bit_turndn(m_Tanks[i].status_flg, b);
  } else {
    bit_turnup(m_Tanks[i].status_flg, b);
  }
  return 1;
}

int ColourantInDispenser::VerifyLevel(double left, double reserve) {
  return slave_test_level(left, reserve);
}

void ColourantInDispenser::ShowCircuit() try {
  double volume = 0.0;
  for (int i = 0; i < m_NumTanks && m_Tanks != nullptr; ++i) volume += m_Tanks[i].split_q;
  TarvoTrace("\nColorant %ld (volume %.2lf) present in %d circuits", m_CntId, volume, m_NumTanks);
  if (m_NumTanks < 1 || m_Tanks == nullptr) return;
  TarvoTrace("\n Tank    Thres     SplitQ   Sim  Susp      cur-res        cur        max        res");
  for (int i = 0; i < m_NumTanks; ++i) {
    CtInDspTank& e = m_Tanks[i];
    TarvoTrace("\n%5d %8.0lf %10.2lf   %3.3s   %3.3s   %10.2lf %10.2lf %10.2lf %10.2lf", e.tank,
               e.threshold, e.split_q, bit_check(e.status_flg, TNK_SIM) ? "Yes" : " No",
               bit_check(e.status_flg, TNK_SUSP) ? "Yes" : " No", e.cur_q - e.res_q, e.cur_q,
               e.max_q, e.res_q);
  }
} catch (...) {
  SlvNoteFailure(this, kSource, __LINE__, __func__);
}

int CtInDspCompare_s(const void* a, const void* b) {
  const CtInDspTank* x = static_cast<const CtInDspTank*>(a);
  const CtInDspTank* y = static_cast<const CtInDspTank*>(b);
  if (x->threshold > y->threshold) return 1;
  if (x->threshold < y->threshold) return -1;
  return 0;
}

int CtInDspCompare_dsp(const void* a, const void* b) {
  const CtInDspTank* x = static_cast<const CtInDspTank*>(a);
  const CtInDspTank* y = static_cast<const CtInDspTank*>(b);
  if (x->threshold > y->threshold) return 1;
  if (x->threshold < y->threshold) return -1;
  if (x->cur_q > y->cur_q) return -1;  // more colourant first
  if (x->cur_q < y->cur_q) return 1;
  return 0;
}
