// Whether a formula can be made on this dispenser, and how low it would
// leave the tanks it draws from.
#include <string>
#include <vector>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_ver";

}  // namespace

int slave::VerifyFormula(char* frm, int checkWeights) try {
  if (m_DispId < 1 || frm == nullptr) return 0;
  Qdbase* disp = nullptr;
  Qdbase* tanks = nullptr;
  if (!_slv_dbhandles(&disp, &tanks, nullptr)) return 0;
  kformula formula;
  formula.set(frm);
  const int n = formula.count();
  if (n < 0) return 0;
  std::vector<long long> ids(static_cast<size_t>(n));
  std::vector<double> qnts(static_cast<size_t>(n));
  formula.parse(ids.data(), qnts.data());

  // A colourant this dispenser lacks is acceptable only in a zero quantity.
  // Colourant 0 marks an empty tank: no tank holds it, though CntToTank
  // finds the empty ones.
  for (int i = 0; i < n; ++i) {
    const long cnt = static_cast<long>(ids[i]);
    const bool held = cnt >= 1 && CntToTank(cnt) >= 1;
    if (!held && qnts[i] > kSlvEpsilon) return 0;
  }
  if (!checkWeights) return 1;

  CZutable colorants;
  colorants.SetDataId(m_DataId);
  colorants.Handle(ZUSPEC_COLORANTS);
  if (!colorants.Open()) return 0;
  if (colorants.Table()->RecCount() < 1) {
    TarvoTrace("\n%s(%d): error ... unable to open colorant database", kSource, __LINE__);
    return 0;
  }
  int result = 1;
  for (int i = 0; i < n && result; ++i) {
    if (colorants.SpecificWeight(static_cast<long>(ids[i])) < kSlvEpsilon) result = 0;
  }
  colorants.Close();
  return result;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::CheckLevel(char* frm, double a, double b, int c, Zu_IntArray* low) try {
  SlvCallScope call(this);
  if (m_Dsp != nullptr && m_Dsp->GetType(0, 0) == 9) {
    // The machine judges its levels itself from the codes.
    const int len = TranslateFormulaFromCntIdToCntCode(frm, nullptr, a, b, c);
    // Nothing to judge is enough; a translation that failed (no colourant
    // table, a code too long to send) vouches for nothing.
    if (len < 0) return 0;
    if (len == 0) return 2;
    std::vector<char> codes(static_cast<size_t>(len) + 1);
    TranslateFormulaFromCntIdToCntCode(frm, codes.data(), a, b, c);
    return m_Dsp->CheckFormulaLevel(codes.data());
  }
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  const int rows = SplitFrmToTanks(frm, nullptr, &tanks, &qnts, a, b, c, 0, nullptr);
  if (rows < 1) return 0;
  SlvDriverCopies copies(this);
  int verdict = 2;
  for (int i = 0; i < rows; ++i) {
    const int own = CheckLevel(tanks[i], qnts[i]);
    if (own < verdict) verdict = own;
    if (low != nullptr && own <= 1) SlvAppend(low, tanks[i]);
  }
  copies.Write();
  return verdict;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}
