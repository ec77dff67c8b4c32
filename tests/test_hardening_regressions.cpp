// Regression tests for faults found while hardening the library and the
// reference host with the fuzz targets (fuzz/) and a review of the paths
// they drive. Each test pins the behaviour that replaced the fault; where
// the fault shows only under the sanitizers (scripts/sanitize.sh) the test
// says so.
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "library_env.h"

namespace {

using qtest::CisternRow;
using qtest::DispenserRow;
using qtest::FixedText;
using qtest::StandardDispenser;
using qtest::TankRow;

class HardeningRegressions : public qtest::LibraryEnv {
 protected:
  std::unique_ptr<slave> OpenWithCfg(const std::string& cfg) {
    DispenserRow row = StandardDispenser(1);
    row.cfg_str = cfg;
    EXPECT_GT(tables_.AddDispenser(row), 0);
    std::unique_ptr<slave> s(new slave(1));
    EXPECT_EQ(s->m_DispId, 1);
    return s;
  }
};

// --- Heights from CFG_STR outside int (fuzz_dispenser_record) ------------
// A CFG_STR piece may be written with an exponent; the height it gives was
// converted to int whatever its size, which is undefined for a value that
// int cannot hold (and came out as INT_MIN on x86).

TEST_F(HardeningRegressions, HfotoOfAHeightBeyondIntIsZero) {
  std::unique_ptr<slave> s = OpenWithCfg(FixedText(50, {{1, "100"}, {4, "1e99"}}));
  EXPECT_EQ(s->Hfoto(), 0);
}

TEST_F(HardeningRegressions, HfotoOfANegativeHeightBeyondIntIsZero) {
  std::unique_ptr<slave> s = OpenWithCfg(FixedText(50, {{1, "999"}, {4, "-1e9"}}));
  EXPECT_EQ(s->Hfoto(), 0);
}

TEST_F(HardeningRegressions, HfotoJustInsideIntIsKept) {
  // 100% of 9999 is far inside int and stays as it was.
  std::unique_ptr<slave> s = OpenWithCfg(FixedText(50, {{1, "100"}, {4, "9999"}}));
  EXPECT_EQ(s->Hfoto(), 9999);
}

TEST_F(HardeningRegressions, HfotoOfAProductOfTwoExponentsIsZero) {
  // 1e9 % of 1e99: each piece is a number, the product no height.
  std::unique_ptr<slave> s = OpenWithCfg(FixedText(50, {{1, "1e9"}, {4, "1e99"}}));
  EXPECT_EQ(s->Hfoto(), 0);
}

TEST_F(HardeningRegressions, HPrefPosOfAHeightBeyondIntIsZero) {
  std::unique_ptr<slave> s = OpenWithCfg(FixedText(50, {{1, "100"}, {33, "9e20"}}));
  EXPECT_EQ(s->HPrefPos(), 0);
}

// --- ForceOption past the end of a short OPTIONS (review of the path -----
// fuzz_dispenser_record drives) ---------------------------------------------
// The option text was copied into an uninitialised buffer and filled with
// '0' past its terminator up to the position; whether the text then ended
// right after the position depended on whatever bytes the stack held. With
// a stack full of other bytes the text ran on past the buffer and the
// write was refused.

// Leaves a large part of the stack below the caller full of '1' bytes, as
// an earlier call may have.
__attribute__((noinline)) void DirtyStack() {
  volatile char junk[8192];
  for (size_t i = 0; i < sizeof junk; ++i) junk[i] = '1';
}

__attribute__((noinline)) int ForceAfterDirtyStack(slave* s, int pos, int on) {
  DirtyStack();
  return s->ForceOption(pos, on);
}

// Tables from some tools pad texts with NUL bytes instead of blanks; such an
// OPTIONS reads as a text shorter than its field, and ForceOption then
// extends it. The record is written with blanks and its padding turned
// into NULs on disk.
void PadOptionsWithNuls(const std::string& file, const std::string& options) {
  std::string bytes = qtest::ReadFile(file);
  const std::string blank = options + std::string(32 - options.size(), ' ');
  const size_t at = bytes.find(blank);
  ASSERT_NE(at, std::string::npos);
  bytes.replace(at + options.size(), 32 - options.size(), 32 - options.size(), '\0');
  qtest::WriteFile(file, bytes);
}

TEST_F(HardeningRegressions, ForceOptionPastAShortOptionsTextEndsRightAfterIt) {
  DispenserRow row = StandardDispenser(1);
  row.options = "0001";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  PadOptionsWithNuls(tables_.FileOf(QDB_SCHEMA_DISPS), "0001");
  {
    slave s(1);
    ASSERT_STREQ(s.m_Options, "0001");
    EXPECT_EQ(ForceAfterDirtyStack(&s, 20, 1), 1);
    EXPECT_STREQ(s.m_Options, "000100000000000000001");
    EXPECT_EQ(ForceAfterDirtyStack(&s, 31, 0), 1);
    EXPECT_STREQ(s.m_Options, "00010000000000000000100000000000");
  }
  EXPECT_EQ(tables_.ReadDispenserField(1, "OPTIONS"), "00010000000000000000100000000000");
}

TEST_F(HardeningRegressions, ForceOptionPastATwoCharacterOptionsText) {
  DispenserRow row = StandardDispenser(1);
  row.options = "01";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  PadOptionsWithNuls(tables_.FileOf(QDB_SCHEMA_DISPS), "01");
  {
    slave s(1);
    ASSERT_STREQ(s.m_Options, "01");
    EXPECT_EQ(ForceAfterDirtyStack(&s, 5, 1), 1);
    EXPECT_STREQ(s.m_Options, "010001");
  }
  EXPECT_EQ(tables_.ReadDispenserField(1, "OPTIONS"), "010001");
}

// --- Ids at the end of long (code review; sanitizer build) ----------------
// Tables from other tools may store ids in wider numeric fields than the
// reference layouts. Arithmetic on such an id overflowed long.

TEST_F(HardeningRegressions, SelectingTheLargestDispenserIdDoesNotOverflow) {
  // Selecting the dispenser looked for its highest tank at key (id+1)*1000,
  // computed in long: undefined for LONG_MAX (the sanitizer build stops
  // here without the fix).
  ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_DISPS, {{"ID", 19}}));
  DispenserRow row = StandardDispenser(1);
  row.id = LONG_MAX;
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(LONG_MAX);
  EXPECT_EQ(s.m_DispId, LONG_MAX);
  EXPECT_EQ(s.m_NumTanks, 0);
  EXPECT_NE(s.m_Dsp, nullptr);
}

TEST_F(HardeningRegressions, UnlinkingBesideTheLargestCisternIdAppendsNothing) {
  // A new cistern takes the last id + 1; after LONG_MAX that addition
  // overflowed, and the record appended for it stayed behind, deleted.
  ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_CISTERN, {{"ID", 19}}));
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  TankRow master;
  master.tank = 1;
  master.cnt_id = 5;
  master.cur_q = 60;
  master.res_q = 6;
  master.max_q = 70;
  master.cist_id = 4;
  TankRow secondary = master;
  secondary.tank = 2;
  secondary.cur_q = secondary.res_q = secondary.max_q = -1.0;
  ASSERT_GT(tables_.AddTank(master), 0);
  ASSERT_GT(tables_.AddTank(secondary), 0);
  CisternRow cistern;
  cistern.id = 4;
  cistern.users = 2;
  cistern.max_q = 300;
  cistern.cur_q = 150;
  cistern.res_q = 15;
  ASSERT_GT(tables_.AddCistern(cistern), 0);
  cistern.id = LONG_MAX;
  cistern.users = 1;
  ASSERT_GT(tables_.AddCistern(cistern), 0);
  {
    slave s(1);
    ColourantInDispenser c(&s);
    ASSERT_EQ(c.Read(5), 1);
    CntStatus st = CNT_ABSENT;
    ASSERT_EQ(c.IsCntOK(&st), 1);
    ASSERT_EQ(st, CNT_LINKED);
    EXPECT_EQ(c.SwitchToMultiTank(), 1);
    // No id was left for a new cistern: the secondary tank has none.
    int secondaryIdx = c.m_Tanks[0].tank == 2 ? 0 : 1;
    EXPECT_STREQ(c.m_Tanks[secondaryIdx].cist_id, "    0");
    Qdbase* cist = nullptr;
    _slv_dbhandles(nullptr, nullptr, &cist);
    ASSERT_NE(cist, nullptr);
    EXPECT_EQ(cist->RecCount(), 2);
  }
}

// --- Pack of a table with slack after its field descriptors (fuzz_dbf) ---
// dBase tools may leave a few bytes between the descriptors' terminator and
// the first record. Such a table opens and reads; packing it crashed inside
// shapelib's clone of the empty table.

// A table with one C field NAME of width 3, the given header slack and the
// records "abc" (deleted) and "de".
std::string TableWithHeaderSlack(int slack) {
  const int headerLength = 32 + 32 + 1 + slack;
  std::string bytes(32, '\0');
  bytes[0] = 0x03;
  bytes[1] = 124;
  bytes[2] = 1;
  bytes[3] = 1;
  bytes[4] = 2;  // records
  bytes[8] = static_cast<char>(headerLength & 0xFF);
  bytes[9] = static_cast<char>(headerLength >> 8);
  bytes[10] = 4;  // record length
  std::string field(32, '\0');
  field.replace(0, 4, "NAME");
  field[11] = 'C';
  field[16] = 3;
  bytes += field;
  bytes += '\x0d';
  bytes += std::string(static_cast<size_t>(slack), '\0');
  bytes += "*abc de ";
  bytes += '\x1a';
  return bytes;
}

TEST_F(HardeningRegressions, PackOfATableWithHeaderSlack) {
  qtest::WriteFile(dir_.file("slack.dbf"), TableWithHeaderSlack(2));
  Qdbase t;
  ASSERT_EQ(t.SetFiles(dir_.path().c_str(), "slack", 0, nullptr, nullptr), 1);
  ASSERT_EQ(t.Open(), 1);
  ASSERT_EQ(t.RecCount(), 2);
  ASSERT_EQ(t.Go(1), 1);
  ASSERT_EQ(t.IsDeleted(), 1);
  EXPECT_EQ(t.Pack(), 1);
  EXPECT_EQ(t.RecCount(), 1);
  ASSERT_EQ(t.Top(), 1);
  char name[8] = "";
  EXPECT_EQ(t.ReadString("NAME", name, sizeof name, 1, 0), 1);
  EXPECT_STREQ(name, "de");
  EXPECT_EQ(t.Close(), 1);

  // The packed file is a plain one that reopens with the same record.
  Qdbase again;
  ASSERT_EQ(again.SetFiles(dir_.path().c_str(), "slack", 0, nullptr, nullptr), 1);
  ASSERT_EQ(again.Open(), 1);
  EXPECT_EQ(again.RecCount(), 1);
  EXPECT_EQ(again.Top(), 1);
  EXPECT_EQ(again.ReadString("NAME", name, sizeof name, 1, 0), 1);
  EXPECT_STREQ(name, "de");
  again.Close();
}

TEST_F(HardeningRegressions, PackOfATableWithTheMostHeaderSlack) {
  // 30 bytes: one more would make room for another descriptor.
  qtest::WriteFile(dir_.file("slack.dbf"), TableWithHeaderSlack(30));
  Qdbase t;
  ASSERT_EQ(t.SetFiles(dir_.path().c_str(), "slack", 0, nullptr, nullptr), 1);
  ASSERT_EQ(t.Open(), 1);
  EXPECT_EQ(t.Pack(), 1);
  EXPECT_EQ(t.RecCount(), 1);
  t.Close();
}

// --- A table left open until the program ends (sanitizer build) -----------
// With the tank table unreadable the cistern table opens and stays open
// after the last slave goes (closing stops at the first table that is not
// open). The library's tables are static objects: the cistern table closed
// at exit, after the table class's own statics were gone, and released its
// journal into a destroyed registry.

TEST_F(HardeningRegressions, TableLeftOpenUntilExitClosesCleanly) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  qtest::CisternRow cistern;
  cistern.users = 1;
  ASSERT_GT(tables_.AddCistern(cistern), 0);
  qtest::WriteFile(tables_.FileOf(QDB_SCHEMA_TANKS), "not a dBase table at all");
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    TarvoTraceSetHook([](const char*) {});
    {
      slave s(1);
    }
    exit(0);  // the static tables close now
  }
  int status = 0;
  waitpid(pid, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

}  // namespace

// --- SetCommPort on a COMMUNIC too wide to read whole (review) ------------
// A COMMUNIC whose text does not fit the 155-byte buffer was rewritten as
// the port alone, losing every other setting of the serial line.

// A COMMUNIC wider than the library reads: the port's two characters
// change, everything after them (also past the read width) stays.
TEST_F(HardeningRegressions, SetCommPortRewritesOnlyThePortOfAWideCommunic) {
  ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_DISPS, {{"COMMUNIC", 200}}));
  DispenserRow row = StandardDispenser(1);
  const std::string line = qtest::Communic(1, 9600, 'N', 1, 8, 2.5);
  row.communic = line + std::string(190 - line.size(), ' ') + "KEEP";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  const std::string before = tables_.ReadDispenserField(1, "COMMUNIC");
  slave s(1);
  ASSERT_EQ(s.m_DispId, 1);
  ASSERT_EQ(s.GetCommPort(), 1);
  EXPECT_EQ(s.SetCommPort(7), 1);
  EXPECT_EQ(tables_.ReadDispenserField(1, "COMMUNIC"), " 7" + before.substr(2));
  EXPECT_EQ(s.m_DispId, 1) << "the dispenser is selected again";
  EXPECT_EQ(s.GetCommPort(), 7);
}
