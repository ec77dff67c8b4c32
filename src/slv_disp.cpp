// Formula dispensing: formulas in colourant ids rewritten in colourant
// codes for the dispensers that are addressed by code.
#include <stdio.h>
#include <string.h>

#include <cmath>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_disp";

// Reads the codes of the colourant table's records on index 1 into *codes:
// those of the ids in *wanted, or of every id when wanted is null.
void ReadCodes(Qdbase* table, const std::unordered_set<long long>* wanted,
               SlvColourantCodes* codes) {
  table->SelectIdx(1);
  for (int more = table->Top(); more && !table->Eof(); more = table->Next()) {
    long id = 0;
    if (!table->ReadLong("ID", &id)) continue;
    if (wanted != nullptr && wanted->count(id) == 0) continue;
    SlvColourantCode record;
    record.length = table->TextLength("CODE");
    record.read = record.length < static_cast<int>(sizeof record.code) &&
                  table->ReadString("CODE", record.code, sizeof record.code, 1, 1);
    (*codes)[id].push_back(record);
  }
}

}  // namespace

int slave::TranslateFormulaFromCntIdToCntCode(char* frm, char* out, double f, double u, int w) try {
  CZutable colorants;
  colorants.SetDataId(m_DataId);
  colorants.Handle(ZUSPEC_COLORANTS);
  if (m_DispId < 1 || frm == nullptr) return 0;

  // Every quantity is scaled by f and u (the formula's resize from 1 to
  // f*u) and, for weights, converted to volumes.
  kformula formula;
  formula.set(frm);
  if (formula.resize(1.0, f * u, 3, 0) < 0) return 0;
  if (w && formula.to_volume(&colorants, 1.0, 3, 0) < 0) return 0;
  const int n = formula.count();
  if (n < 0) return 0;
  std::vector<long long> ids(static_cast<size_t>(n));
  std::vector<double> qnts(static_cast<size_t>(n));
  formula.parse(ids.data(), qnts.data());

  // The codes of the formula's colourants, read in one walk of the table
  // (an id held by several records is written once for each). Within a
  // call of the library the whole table is read once and kept for the call.
  SlvState* state = m_State != nullptr && m_State->callDepth > 0 ? m_State : nullptr;
  SlvColourantCodes own;
  const SlvColourantCodes* codesOf = &own;
  if (state != nullptr && state->codesKnown) {
    codesOf = &state->codes;
  } else {
    Qdbase* table = colorants.TmpOpen() ? colorants.Table() : nullptr;
    if (table == nullptr || table->RecCount() < 1) {
      TarvoTrace("%s(%d): error ... unable to open colorant database", kSource, __LINE__);
      colorants.TmpClose();
      return -1;
    }
    if (state != nullptr) {
      state->codes.clear();
      ReadCodes(table, nullptr, &state->codes);
      state->codesKnown = true;
      codesOf = &state->codes;
    } else if (n > 0) {
      const std::unordered_set<long long> wanted(ids.begin(), ids.end());
      ReadCodes(table, &wanted, &own);
    }
    colorants.TmpClose();
  }
  // The text grows as needed: a long formula is translated whole.
  std::string text;
  for (int i = 0; i < n; ++i) {
    const long long id = ids[static_cast<size_t>(i)];
    const auto records = codesOf->find(id);
    if (records == codesOf->end()) continue;
    for (const SlvColourantCode& record : records->second) {
      // The code goes to the machine: one the buffer cannot hold whole
      // fails the translation (nothing is dosed) rather than being cut to
      // another colourant's code or left out of the formula.
      if (!record.read) {
        TarvoTrace("\n%s(%d): colorant %ld: code of %d characters refused: room for %zu", kSource,
                   __LINE__, static_cast<long>(id), record.length, sizeof record.code - 1);
        m_LastError = SLV_ERR_GENERIC;
        return -1;
      }
      text += SlvFormat("(%s:%.3lf)", record.code, qnts[static_cast<size_t>(i)]);
    }
  }
  if (out != nullptr) memcpy(out, text.c_str(), text.size() + 1);
  return static_cast<int>(text.size());
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, -1);
}

// --- Formula reading and splitting over the tanks -------------------------

namespace {

std::string ComponentList(const char* label, const std::vector<long>& ids,
                          const std::vector<double>& qnts) {
  std::string line = label;
  for (size_t i = 0; i < ids.size(); ++i) line += SlvFormat("   %5ld %10.2lf,", ids[i], qnts[i]);
  return line;
}

}  // namespace

int slave::CntsToQntsWeights(int n, long* cnts, double* qnts) try {
  if (n <= 0) return 1;
  if (cnts == nullptr || qnts == nullptr) return 0;
  CZutable colorants;
  Qdbase* table = SlvOpenColorants(this, &colorants, kSource, __LINE__);
  if (table == nullptr) {
    // Without weights no quantity can be converted: a weight left in place
    // would be dosed as a volume, so every quantity becomes 0.
    for (int i = 0; i < n; ++i) qnts[i] = 0.0;
    return 0;
  }
  table->SelectIdx(1);
  int result = 1;
  for (int i = 0; i < n; ++i) {
    // Specific weights are in grams per litre: grams / (g/l / 1000) = cc.
    const double kgPerLitre = colorants.SpecificWeight(cnts[i]) / 1000.0;
    if (kgPerLitre > kSlvEpsilon) {
      qnts[i] = qnts[i] / kgPerLitre;
    } else {
      qnts[i] = 0.0;
      result = 0;
    }
  }
  colorants.Close();
  return result;
} catch (...) {
  // A weight left in place would be dosed as a volume: nothing is.
  for (int i = 0; qnts != nullptr && i < n; ++i) qnts[i] = 0.0;
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::SplitFrmToTanks(char* frm, Zu_LongArray* cnts, Zu_IntArray* tanks, Zu_DoubleArray* qnts,
                           double f, double u, int w, int trace, int* convFailed) try {
  SlvCallScope call(this);
  if (convFailed != nullptr) *convFailed = 0;
  if (m_DispId < 1 || frm == nullptr) return -1;
  Qdbase* disp = nullptr;
  Qdbase* tankTable = nullptr;
  Qdbase* cist = nullptr;
  if (!_slv_dbhandles(&disp, &tankTable, &cist)) return -1;

  kformula formula;
  formula.set(frm);
  const int n = formula.count();
  if (n < 0) return -1;
  std::vector<long long> parsedIds(static_cast<size_t>(n));
  std::vector<long> ids(static_cast<size_t>(n));
  std::vector<double> quantities(static_cast<size_t>(n));
  formula.parse(parsedIds.data(), quantities.data());
  for (int i = 0; i < n; ++i) ids[i] = static_cast<long>(parsedIds[i]);

  if (w) {
    if (trace) {
      TarvoTrace("\n __ WEIGHT TO VOLUME CONVERSION: ");
      TarvoTrace("%s", ComponentList("\nbefore : ", ids, quantities).c_str());
    }
    const unsigned failures = SlvFailureCount();
    const bool converted = CntsToQntsWeights(n, ids.data(), quantities.data()) != 0;
    // A conversion cut short for want of memory fails the formula (error
    // 15): no quantity is dosed from a half-converted formula.
    if (SlvFailureCount() != failures) return -1;
    if (!converted && convFailed != nullptr) *convFailed = 1;
    if (trace) {
      TarvoTrace("%s", ComponentList("\nafter  : ", ids, quantities).c_str());
      if (!converted) TarvoTrace("\nWARNING : weight to volume conversion failed !!");
      TarvoTrace("\n");
    }
  }
  if (n == 0) return 0;

  // A quantity that is negative or not a finite number names no dispense:
  // the whole formula is refused before anything is split. A quantity
  // within the tolerance of zero is zero, not negative. A colourant id
  // below 1 is no refusal here: that colourant is in no tank (error 19).
  for (int i = 0; i < n; ++i) {
    const double scaled = f * quantities[i] * u;
    if (!std::isfinite(scaled) || scaled < -kSlvEpsilon) {
      TarvoTrace("\n%s(%d): formula refused: colorant %ld quantity %g", kSource, __LINE__, ids[i],
                 scaled);
      m_LastError = SLV_ERR_GENERIC;
      return -1;
    }
  }

  int total = 0;
  for (int i = 0; i < n; ++i) {
    const double quantity = f * quantities[i] * u;
    const unsigned failures = SlvFailureCount();
    const int k = CntQntToTanks(ids[i], quantity, tanks, qnts, trace);
    // A split that failed for want of memory has answered already (error
    // 15 and its line): the formula fails with it.
    if (k == 0 && SlvFailureCount() != failures) return -1;
    if (trace) TarvoTrace("\nColorant %ld (volume %.2lf) split into %d tanks", ids[i], quantity, k);
    if (k == 0) {
      if (trace) TarvoTrace("\nWARNING : no tanks for colorant %4ld", ids[i]);
      m_LastError = SLV_ERR_NO_TANK;
      return -1;
    }
    for (int j = 0; j < k && cnts != nullptr; ++j) SlvAppend(cnts, ids[i]);
    total += k;
  }
  return total;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, -1);
}

int slave::ParseFormula(char* frm, long* cnts, int* tanks, double* qnts) try {
  Zu_LongArray splitCnts;
  Zu_IntArray splitTanks;
  Zu_DoubleArray splitQnts;
  const int n = SplitFrmToTanks(frm, &splitCnts, &splitTanks, &splitQnts, 1.0, 1.0, 0, 0, nullptr);
  for (int i = 0; i < n; ++i) {
    if (cnts != nullptr) cnts[i] = splitCnts[i];
    if (tanks != nullptr) tanks[i] = splitTanks[i];
    if (qnts != nullptr) qnts[i] = splitQnts[i];
  }
  return n;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}
