// Formula texts through everything that reads them: SplitFrmToTanks,
// VerifyFormula, TranslateFormulaFromCntIdToCntCode, CheckLevel and
// Dispense.
//
// Input: one selector byte, then the formula text.
//   bits 0-1  dispenser: 0/3 dispenser 1 (splitting and stopper on),
//             1 dispenser 2 (plain), 2 dispenser 9 (type 9, by code)
//   bit  2    quantities are weights (w = 1)
//   bits 3-5  factors f and u (see kFactors)
//   bit  6    Dispense books the levels (updLevels = 1)
//   bit  7    stopper commands around the dispense (g2Before = g0After = 1)
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <cmath>
#include <limits>
#include <vector>

#include "fuzz_tables.h"
#include "slave.h"

namespace {

const long kDispensers[4] = {1, 2, 9, 1};

struct Factors {
  double f, u;
};
const Factors kFactors[8] = {
    {1.0, 1.0},     {2.0, 0.5},     {0.001, 1.0},
    {1000.0, 3.7},  {-1.0, 1.0},    {0.0, 1.0},
    {std::numeric_limits<double>::quiet_NaN(), 1.0},
    {1e300, 1e300},
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qfuzz::InitDataDir();
  qfuzz::WriteStandardTables();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > 4096) return 0;
  const uint8_t sel = data[0];
  const long id = kDispensers[sel & 3];
  const int w = (sel >> 2) & 1;
  const Factors fu = kFactors[(sel >> 3) & 7];
  const int upd = (sel >> 6) & 1;
  const int stopper = (sel >> 7) & 1;

  qfuzz::Restore();
  {
    qfuzz::SlaveGuard s(id);

    std::vector<char> text = qfuzz::CText(data + 1, size - 1);
    Zu_LongArray cnts;
    Zu_IntArray tanks;
    Zu_DoubleArray qnts;
    int convFailed = 0;
    const int n = s->SplitFrmToTanks(text.data(), &cnts, &tanks, &qnts, fu.f, fu.u, w, 1,
                                     &convFailed);
    if (n > 0 && (tanks.size() != n || qnts.size() != n || cnts.size() != n)) __builtin_trap();

    text = qfuzz::CText(data + 1, size - 1);
    s->VerifyFormula(text.data(), w);

    // The length asked first, then the text into a buffer of exactly that
    // size plus its terminator.
    text = qfuzz::CText(data + 1, size - 1);
    const int len = s->TranslateFormulaFromCntIdToCntCode(text.data(), nullptr, fu.f, fu.u, w);
    if (len > 0) {
      std::vector<char> out(static_cast<size_t>(len) + 1);
      const int again =
          s->TranslateFormulaFromCntIdToCntCode(text.data(), out.data(), fu.f, fu.u, w);
      if (again != len || strlen(out.data()) != static_cast<size_t>(len)) __builtin_trap();
    }

    text = qfuzz::CText(data + 1, size - 1);
    Zu_IntArray low;
    s->CheckLevel(text.data(), fu.f, fu.u, w, &low);

    text = qfuzz::CText(data + 1, size - 1);
    s->Dispense(text.data(), fu.f, fu.u, w, upd, stopper, stopper);

    text = qfuzz::CText(data + 1, size - 1);
    std::vector<char> drv(65);
    s->DispDrv(text.data(), drv.data(), 64, fu.f, fu.u, w, 0, sel & 1);
  }
  return 0;
}
