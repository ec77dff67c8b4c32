// A rules file for the simulated dispenser (QSLAVE_SIM) from the fuzzer,
// then the library's machine-facing calls against the scripted machine:
// status and queries, dispenses, dispensed-quantity reports, the error
// queue, firmware, levels kept by the driver, purges and level checks by
// code.
//
// Input: one selector byte, then the rules text.
//   byte 0 bits 0-1  dispenser: 0 dispenser 1 (ZARVO), 1 dispenser 3
//                    (LIQON, type 7, levels kept by the driver), 2
//                    dispenser 9 (T7R, type 9), 3 dispenser 2
// Lines that script a delay are dropped: a run must not sleep.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include <string>
#include <vector>

#include "fuzz_tables.h"
#include "slave.h"

namespace {

const long kDispensers[4] = {1, 3, 9, 2};
std::string g_rules;

void Send(slave* s, const char* text, int answerLen) {
  std::vector<char> cmd(text, text + strlen(text) + 1);
  std::vector<char> answer(static_cast<size_t>(answerLen > 0 ? answerLen : 1));
  s->sendcommand(cmd.data(), answerLen > 0 ? answer.data() : nullptr, answerLen);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const std::string& dir = qfuzz::InitDataDir();
  qfuzz::WriteStandardTables();
  {
    qfuzz::Row r("disps");
    r.Long("ID", 3).Long("SLAVE", 3).String("HIDE_ID", "LIQON").String(
        "OPTIONS", "00011000000000000000000000000000");
    r.Finish();
  }
  for (int t = 1; t <= 3; ++t) {
    qfuzz::Row r("tanks");
    r.TextId("DISP_ID", 3).Long("TANK", t).Long("CNT_ID", t * 10).Double("CUR_Q", 100).Double(
        "RES_Q", 10).Double("MAX_Q", 1000).String("STATUS_FLG", "00000000").TextId("CIST_ID", 0);
    r.Finish();
  }
  qfuzz::Snapshot();
  g_rules = dir + "/sim.rules";
  setenv("QSLAVE_SIM", g_rules.c_str(), 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > 4096) return 0;
  const long id = kDispensers[data[0] & 3];
  std::string rules;
  for (const std::string& line : qfuzz::SplitLines(data + 1, size - 1, 1000)) {
    if (line.find("delay") != std::string::npos) continue;
    rules += line;
    rules += '\n';
  }
  FILE* f = fopen(g_rules.c_str(), "wb");
  if (f == nullptr) return 0;
  fwrite(rules.data(), 1, rules.size(), f);
  fclose(f);

  qfuzz::Restore();
  {
    qfuzz::SlaveGuard s(id);
    Send(s.get(), "/!", 0);
    Send(s.get(), "/M1", 40);
    Send(s.get(), "/D(1:1.000)", 0);
    Send(s.get(), "/O(1:1.000)(2:2.500)", 8);
    Send(s.get(), "/KS(1)", 81);
    s->LastError();
    s->IsDoorClosed();
    s->SlaveFw();
    s->GetMachineModelAndSerialNo();
    s->GetK240CircuitsStatus(1);
    s->GetK240CircuitsStatus(-7);

    wchar_t text[64];
    char code[16];
    int entries = 0;
    for (int more = s->ErrorQueueFirst(text, 64, code, sizeof code); more && entries < 50;
         more = s->ErrorQueueNext(text, 64, code, sizeof code), ++entries) {
    }
    s->ErrorQueueFirst(text, 1, code, 1);
    s->ErrorQueueCount();
    s->ErrorQueueClear();

    for (int t = 0; t <= 4; ++t) {
      double cur = 0, res = 0, max = 0;
      s->TankQnts(t, &cur, &res, &max);
      bool a = false, b = false;
      s->CanisterToCanisterField(t, &a, &b);
    }
    s->IsGravimetric();
    char frm[] = "(10:1.5)(20:2)";
    s->CheckLevel(frm, 1.0, 1.0, 0, nullptr);
    char dfrm[] = "(10:1.5)(20:2)(30:1)";
    s->Dispense(dfrm, 1.0, 1.0, 0, 1, 1, 1);
    char req[] = "(1:1.0)(2:2.0)";
    std::vector<char> out(128);
    s->DispensedRequest(req, out.data(), 128);
    s->MoveToFill(1);
    s->DispenseStep(1, 2, 3);
    s->Purge(1.0, nullptr, true, false);
    long cnts[] = {10, 20, 0};
    s->SelectivePurge(cnts, 0.5);
    s->CanisterPurge(1, 0.5);
    s->Test(true, 0.5);
    s->ShelfMove(10);
    s->ShelfPos(1);
    s->DispenserQuit();
  }
  return 0;
}
