// Arbitrary command texts through slave::sendcommand to every kind of
// driver the dispenser table can select, with answer buffers of every size,
// and through the commands built around a host's text
// (SetMachineModelAndSerialNo).
//
// Input: two selector bytes, then the command text.
//   byte 0 bits 0-2  dispenser 1..8: ZARVO, PELKO, SALVIMAT, VOREN, LIQON,
//                    K240, VEX (model M9000), T7R
//          bit  3    separate-thread option on (SendCommandThread)
//          bit  4    simulation switch (slave::debug) on
//   byte 1           answer buffer length (0..255); the buffer is a heap
//                    block of exactly that many bytes
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "fuzz_tables.h"
#include "refhost/qdb/config_schema.h"
#include "slave.h"

namespace {

struct Kind {
  const char* hide;
  const char* model;
};
const Kind kKinds[8] = {{"ZARVO", ""}, {"PELKO", ""}, {"SALVIMAT", ""}, {"VOREN", ""},
                        {"LIQON", ""}, {"K240", ""},  {"VEX", "M9000"}, {"T7R", ""}};

void WriteTables() {
  qfuzz::WriteStandardTables();
  // Two records per kind: options off (ids 1..8) and option 6, the separate
  // thread, on (ids 11..18).
  qfuzz::CreateTable(QDB_SCHEMA_DISPS);
  for (int threaded = 0; threaded < 2; ++threaded) {
    for (int i = 0; i < 8; ++i) {
      const long id = threaded * 10 + i + 1;
      qfuzz::Row r("disps");
      r.Long("ID", id)
          .Long("SLAVE", id)
          .String("DESCR", kKinds[i].hide)
          .String("OPTIONS", threaded ? "00000010000000000000000000000000"
                                      : "00000000000000000000000000000000")
          .String("MODEL", kKinds[i].model)
          .String("HIDE_ID", kKinds[i].hide)
          .String("SERIAL_N", "SN-FUZZ");
      r.Finish();
    }
  }
  for (int i = 0; i < 8; ++i) {
    qfuzz::Row r("tanks");
    r.TextId("DISP_ID", i + 1).Long("TANK", 1).Long("CNT_ID", 10).Double("CUR_Q", 10).Double(
        "MAX_Q", 100);
    r.Finish();
  }
  qfuzz::Snapshot();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qfuzz::InitDataDir();
  WriteTables();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2 || size > 4096) return 0;
  const uint8_t sel = data[0];
  const long id = (sel & 7) + 1 + (((sel >> 3) & 1) ? 10 : 0);
  const int answerLen = data[1];
  data += 2;
  size -= 2;

  slave::debug = (sel >> 4) & 1;
  {
    qfuzz::SlaveGuard s(id);
    std::vector<char> cmd = qfuzz::CText(data, size);
    std::vector<char> answer(static_cast<size_t>(answerLen) + (answerLen == 0 ? 1 : 0));
    s->sendcommand(cmd.data(), answerLen > 0 ? answer.data() : nullptr, answerLen);
    s->LastError();

    cmd = qfuzz::CText(data, size);
    s->SetMachineModelAndSerialNo(cmd.data());
    s->GetMachineModelAndSerialNo();
    s->IsDoorClosed();
  }
  slave::debug = 0;
  return 0;
}
