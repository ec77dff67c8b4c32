// Tank records whose STATUS_FLG, MPX and CIST_ID come from the fuzzer, read
// back through ColourantInDispenser and the slave's tank queries.
//
// Input: a header, then three lines per tank (STATUS_FLG, MPX, CIST_ID).
//   byte 0 bit  0    wide layout: STATUS_FLG 40, CIST_ID 20 and MPX 254
//                    characters wide, wider than the library's buffers
//          bits 1-2  number of tanks - 1 (1..4), all holding colourant 10
//          bits 3-5  quantity to split (see kQuantities)
//          bit  6    single-circuit mode
//          bit  7    also link/unlink the group and write it back
//   bytes 1..4       per tank: a level profile (see kProfiles), low bits
//                    choose the profile, bit 7 gives the tank another
//                    colourant (20)
// The cistern table holds cisterns 1, 2 and 99999.
#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "fuzz_tables.h"
#include "refhost/qdb/config_schema.h"
#include "slave.h"

namespace {

const double kQuantities[8] = {0.0, 0.001, 1.0, 5.0, 250.0, 1e6, -3.0, 1e-6};

struct Profile {
  double cur, res, max, threshold;
};
const Profile kProfiles[8] = {
    {1000, 100, 2000, 0},  {-1, -1, -1, 0},    {500, 50, 1000, 5},   {0, 0, 0, 0},
    {900, 100, 1000, 0.5}, {10, 100, 100, -2}, {1e9, 0, 1e9, 1e3},   {-1, 0, 100, 0},
};

std::string g_standard;  // empty tanks.dbf, reference layout
std::string g_wide;      // empty tanks.dbf, wide texts

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
  qfuzz::CreateTable(QDB_SCHEMA_CISTERN);
  {
    qfuzz::Row r("cistern");
    r.Long("ID", 1).Long("USERS", 2).Double("MAX_Q", 5000).Double("CUR_Q", 3000).Double("RES_Q", 200);
    r.Finish();
  }
  {
    qfuzz::Row r("cistern");
    r.Long("ID", 2).Long("USERS", 1).Double("MAX_Q", -1).Double("CUR_Q", 10).Double("RES_Q", 10);
    r.Finish();
  }
  {
    qfuzz::Row r("cistern");
    r.Long("ID", 99999).Long("USERS", 0).Double("MAX_Q", 10).Double("CUR_Q", 1).Double("RES_Q", 0);
    r.Finish();
  }
  qfuzz::Snapshot();
  const std::string tanks = dir + "/tanks.dbf";
  qfuzz::CreateTable(QDB_SCHEMA_TANKS);
  g_standard = Slurp(tanks);
  qfuzz::CreateTable(QDB_SCHEMA_TANKS, {{"STATUS_FLG", 40}, {"CIST_ID", 20}, {"MPX", 254}});
  g_wide = Slurp(tanks);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 5 || size > 4096) return 0;
  const uint8_t sel = data[0];
  const int numTanks = ((sel >> 1) & 3) + 1;
  const double qnt = kQuantities[(sel >> 3) & 7];
  const std::vector<std::string> lines =
      qfuzz::SplitLines(data + 5, size - 5, static_cast<size_t>(3 * numTanks));

  qfuzz::Restore();
  Spill(qfuzz::DataDir() + "/tanks.dbf", (sel & 1) ? g_wide : g_standard);
  for (int t = 0; t < numTanks; ++t) {
    const Profile& p = kProfiles[data[1 + t] & 7];
    const long cnt = (data[1 + t] & 0x80) ? 20 : 10;
    auto line = [&lines](size_t i) { return i < lines.size() ? lines[i] : std::string(); };
    qfuzz::Row r("tanks");
    r.TextId("DISP_ID", 1)
        .Long("TANK", t + 1)
        .Long("CNT_ID", cnt)
        .Double("CUR_Q", p.cur)
        .Double("RES_Q", p.res)
        .Double("MAX_Q", p.max)
        .Double("THRESHOLD", p.threshold)
        .String("STATUS_FLG", line(3 * t))
        .String("MPX", line(3 * t + 1))
        .String("CIST_ID", line(3 * t + 2));
    r.Finish();
  }

  {
    qfuzz::SlaveGuard s(1);
    s->SetSingleCircuit((sel >> 6) & 1);
    {
      ColourantInDispenser c(s.get());
      c.Read(10);
      CntStatus st = CNT_ABSENT;
      c.IsCntOK(&st);
      c.ShowCircuit();
      c.SplitQnt(10, qnt);
      c.ShowCircuit();
      for (int i = -1; i <= c.m_NumTanks; ++i) {
        c.ChkStatus(i, TNK_SIM);
        c.ChkStatus(i, TNK_SUSP);
      }
      if (sel & 0x80) {
        c.Read(10);
        c.SwitchToSingleTank(0, 0, 0);
        c.Write();
        c.Read(10);
        c.SwitchToMultiTank();
        c.Write();
      }
    }
    Zu_IntArray tanks;
    Zu_DoubleArray qnts;
    s->CntQntToTanks(10, qnt, &tanks, &qnts, 1);
    s->CntQntToTanks(20, qnt, &tanks, &qnts, 0);
    s->CntQntToTank(10, qnt);
    s->CntToTypeCircuit(10);
    s->CntToTypeCircuitNoTh(10);
    for (int t = 0; t <= numTanks + 1; ++t) {
      double cur = 0, res = 0, max = 0, th = 0;
      int f0 = 0, f1 = 0;
      s->TankQnts(t, &cur, &res, &max);
      s->TankLocate(t);
      s->TankSoglia(t, &th, &f0, &f1);
      s->CheckLevel(t, qnt);
    }
    s->DumpTanks();
    s->DumpCntsInTanks();
  }
  return 0;
}
