// A dispenser record whose COMMUNIC, CFG_STR, VALUES, OPTIONS, MODEL and
// HIDE_ID come from the fuzzer: the record is written, a slave selects it,
// and every query that reads those fields runs.
//
// Input: two selector bytes, then the six texts, one per line, in that
// order (COMMUNIC, CFG_STR, VALUES, OPTIONS, MODEL, HIDE_ID; the last keeps
// any further newlines).
//   byte 0 bit  0    wide layout: every text field of the dispenser table
//                    254 characters wide, wider than the library's buffers
//          bit  1    select through Set() on an existing object instead of
//                    the constructor
//          bits 2-6  option position for ForceOption (0..31)
//          bit  7    ForceOption switches it on
//   byte 1           port for SetCommPort (0..255; above 99 is refused)
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string>
#include <vector>

#include "fuzz_tables.h"
#include "refhost/qdb/config_schema.h"
#include "slave.h"

namespace {

const char* const kFields[6] = {"COMMUNIC", "CFG_STR", "VALUES", "OPTIONS", "MODEL", "HIDE_ID"};

std::string g_standard;  // empty disps.dbf, reference layout
std::string g_wide;      // empty disps.dbf, every text 254 wide

std::string Slurp(const std::string& path) {
  std::string text;
  FILE* f = fopen(path.c_str(), "rb");
  if (f == nullptr) return text;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
  fclose(f);
  return text;
}

void Spill(const std::string& path, const std::string& text) {
  FILE* f = fopen(path.c_str(), "wb");
  if (f == nullptr) return;
  fwrite(text.data(), 1, text.size(), f);
  fclose(f);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const std::string& dir = qfuzz::InitDataDir();
  qfuzz::WriteStandardTables();
  // Empty dispenser tables: the fuzzed record is the only one.
  const std::string disps = dir + "/disps.dbf";
  qfuzz::CreateTable(QDB_SCHEMA_DISPS);
  g_standard = Slurp(disps);
  qfuzz::CreateTable(QDB_SCHEMA_DISPS, {{"DESCR", 254},
                                        {"OPTIONS", 254},
                                        {"MODEL", 254},
                                        {"SERIAL_N", 254},
                                        {"HIDE_ID", 254},
                                        {"COMMUNIC", 254},
                                        {"CFG_STR", 254},
                                        {"VALUES", 254}});
  g_wide = Slurp(disps);
  Spill(disps, g_standard);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2 || size > 4096) return 0;
  const uint8_t sel = data[0];
  const int port = data[1];
  const std::vector<std::string> texts = qfuzz::SplitLines(data + 2, size - 2, 6);

  qfuzz::Restore();
  Spill(qfuzz::DataDir() + "/disps.dbf", (sel & 1) ? g_wide : g_standard);
  {
    qfuzz::Row r("disps");
    r.Long("ID", 1).Long("SLAVE", 1).String("DESCR", "Fuzzed").Double("THRESHOLD", 1.0);
    for (size_t i = 0; i < texts.size() && i < 6; ++i) r.String(kFields[i], texts[i]);
    r.Finish();
  }

  {
    // Dispenser 7 does not exist: the object starts with nothing selected.
    qfuzz::SlaveGuard s((sel & 2) ? 7 : 1);
    if (sel & 2) s->Set(1);
    s->GetSplittingPerc();
    s->GetSplittingThreshold();
    // VALUES is at most 127 characters: at most 64 speeds.
    int speeds[64];
    const int n = s->NumSpeeds(speeds);
    if (n < 0 || n > 64 || s->NumSpeeds(nullptr) != n) __builtin_trap();
    s->Hfoto();
    s->HPrefPos();
    s->ManualPuncher();
    s->IsDoorClosed();
    s->IsDoorClosed(0x80);
    s->Dump();
    s->ForceOption((sel >> 2) & 31, (sel >> 7) & 1);
    s->SetSeparateThread((sel >> 7) & 1);
    s->SetCommPort(port);
    s->GetCommPort();
    s->IsDoorClosed();
    s->Dump();
    if (strnlen(s->m_Options, sizeof s->m_Options) >= sizeof s->m_Options ||
        strnlen(s->m_Model, sizeof s->m_Model) >= sizeof s->m_Model ||
        strnlen(s->m_Descr, sizeof s->m_Descr) >= sizeof s->m_Descr ||
        strnlen(s->m_SerialNo, sizeof s->m_SerialNo) >= sizeof s->m_SerialNo) {
      __builtin_trap();
    }
  }
  return 0;
}
