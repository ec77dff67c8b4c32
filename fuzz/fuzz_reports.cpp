// The machine's dispensed-quantity replies and the by-circuit texts:
// ParseDispensedRequest, FormulaRequest (all three reports),
// DispensedRequest, UpdateLevelsByFormula and DispenseByCircuit.
//
// Input: two selector bytes, then the text.
//   byte 0 bits 0-1  dispenser: 0/3 dispenser 1 (splitting on), 1
//                    dispenser 2 (plain), 2 dispenser 9 (type 9)
//          bits 2-4  pairs per command for DispenseByCircuit (0..7; 0 is
//                    refused by the library)
//          bit  5    purge-server flag (type 9 sends PURGEBYPOS)
//          bit  6    stopper commands around DispenseByCircuit
//   byte 1           size of the output buffers (1..256)
// Every buffer is a heap block of exactly the size the library is told, so
// a write past it is caught.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "fuzz_tables.h"
#include "slave.h"

namespace {

const long kDispensers[4] = {1, 2, 9, 1};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qfuzz::InitDataDir();
  qfuzz::WriteStandardTables();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2 || size > 4096) return 0;
  const uint8_t sel = data[0];
  const long id = kDispensers[sel & 3];
  const int pairs = (sel >> 2) & 7;
  const int outSize = data[1] + 1;
  data += 2;
  size -= 2;

  qfuzz::Restore();
  {
    qfuzz::SlaveGuard s(id);
    s->m_PurgeSrvFlag = (sel >> 5) & 1;

    std::vector<char> text = qfuzz::CText(data, size);
    const int n = s->ParseDispensedRequest(text.data(), nullptr, nullptr, nullptr);
    if (n > 0) {
      std::vector<int> circuits(static_cast<size_t>(n));
      std::vector<double> requested(static_cast<size_t>(n)), dispensed(static_cast<size_t>(n));
      text = qfuzz::CText(data, size);
      const int again =
          s->ParseDispensedRequest(text.data(), circuits.data(), requested.data(), dispensed.data());
      if (again != n) __builtin_trap();
    }

    for (int mode = 0; mode < 3; ++mode) {
      // FormulaRequest's buffer holds outSize + 1 bytes and starts as a text.
      std::vector<char> out(static_cast<size_t>(outSize) + 1, '\0');
      text = qfuzz::CText(data, size);
      s->FormulaRequest(text.data(), out.data(), outSize, mode);
      if (strlen(out.data()) > static_cast<size_t>(outSize)) __builtin_trap();
    }

    {
      std::vector<char> out(static_cast<size_t>(outSize), '\0');
      text = qfuzz::CText(data, size);
      s->DispensedRequest(text.data(), out.data(), outSize);
    }

    text = qfuzz::CText(data, size);
    s->UpdateLevelsByFormula(text.data());

    text = qfuzz::CText(data, size);
    const int stopper = (sel >> 6) & 1;
    s->DispenseByCircuit(text.data(), pairs, stopper, stopper);
  }
  return 0;
}
