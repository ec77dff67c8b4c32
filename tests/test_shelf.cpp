// Shelf, can and single-circuit operations: reading a can from the cans
// table, moving the shelf to a height within its limit, pre-positioning,
// positioning with its fall-backs and returning home, single-circuit
// recirculation and mixing, and a tank's colourant code.
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

#include "circuit_env.h"

namespace {

using qtest::CanRow;
using qtest::Circuit;
using qtest::CountMatching;
using qtest::DispenserRow;
using qtest::DispenserTables;
using qtest::FixedText;
using qtest::OptionsWith;
using qtest::Sim;
using qtest::SourceRe;
using qtest::StandardDispenser;

using Strings = std::vector<std::string>;

const int kPreferredShelf = 5;

// CFG_STR with percentage p (positions 1-3), the height h1 (4-7) that
// limits the shelf, and the preferred height h2 (33-36).
std::string Cfg(int p, int h1, int h2) {
  char pc[8], h1c[8], h2c[8];
  snprintf(pc, sizeof pc, "%3d", p);
  snprintf(h1c, sizeof h1c, "%4d", h1);
  snprintf(h2c, sizeof h2c, "%4d", h2);
  return FixedText(127, {{1, pc}, {4, h1c}, {33, h2c}});
}

CanRow Can(long id, int h_min, int h_max, bool zero_flag = false, const std::string& flags = "",
           bool no_punch = false) {
  CanRow row;
  row.id = id;
  row.h_min = h_min;
  row.h_max = h_max;
  row.zero_flag = zero_flag;
  row.flags = flags;
  row.no_punch = no_punch;
  return row;
}

class Shelf : public qtest::CircuitEnv {
 protected:
  void AddCans(const std::vector<CanRow>& rows) {
    for (const CanRow& row : rows) ASSERT_GT(tables_.AddCan(row), 0);
  }

  int CansTraceLines() {
    return CountMatching(trace_.messages(), "\\n" + SourceRe("slv_shel") +
                                                 "\\(\\d+\\): error \\.\\.\\. unable to open cans "
                                                 "database");
  }
};

// --- SlaveReadCan -------------------------------------------------------------

TEST_F(Shelf, ReadCanFillsEveryOutput) {
  AddCans({Can(7, 120, 250, true, "1000", true)});
  int hMin = -1, hMax = -1, zero = -1, noPunch = -1, pref = -1;
  EXPECT_EQ(SlaveReadCan(0, 7, &hMin, &hMax, &zero, &noPunch, &pref), 1);
  EXPECT_EQ(hMin, 120);
  EXPECT_EQ(hMax, 250);
  EXPECT_EQ(zero, 1);
  EXPECT_EQ(noPunch, 1);
  EXPECT_EQ(pref, 1);
}

TEST_F(Shelf, ReadCanWithFlagsBeginningWithZeroClearsThePreferredFlag) {
  AddCans({Can(7, 120, 250, false, "01")});
  int hMin = -1, hMax = -1, zero = -1, noPunch = -1, pref = -1;
  EXPECT_EQ(SlaveReadCan(0, 7, &hMin, &hMax, &zero, &noPunch, &pref), 1);
  EXPECT_EQ(zero, 0);
  EXPECT_EQ(noPunch, 0);
  EXPECT_EQ(pref, 0);
}

TEST_F(Shelf, ReadCanWithEmptyFlagsLeavesThePreferredFlag) {
  AddCans({Can(7, 120, 250, false, "")});
  int pref = 5;
  EXPECT_EQ(SlaveReadCan(0, 7, nullptr, nullptr, nullptr, nullptr, &pref), 1);
  EXPECT_EQ(pref, 5);
}

TEST_F(Shelf, ReadCanWithBlankFlagsLeavesThePreferredFlag) {
  AddCans({Can(7, 120, 250, false, "    ")});
  int pref = 5;
  EXPECT_EQ(SlaveReadCan(0, 7, nullptr, nullptr, nullptr, nullptr, &pref), 1);
  EXPECT_EQ(pref, 5);
}

TEST_F(Shelf, ReadCanTrimsTheFlagsBeforeLookingAtTheFirst) {
  AddCans({Can(7, 120, 250, false, "  0"), Can(8, 120, 250, false, "  1")});
  int pref = 5;
  EXPECT_EQ(SlaveReadCan(0, 7, nullptr, nullptr, nullptr, nullptr, &pref), 1);
  EXPECT_EQ(pref, 0);
  EXPECT_EQ(SlaveReadCan(0, 8, nullptr, nullptr, nullptr, nullptr, &pref), 1);
  EXPECT_EQ(pref, 1);
}

TEST_F(Shelf, ReadCanOfACanIdNotInTheTableIsZeroWithOutputsZeroed) {
  AddCans({Can(7, 120, 250, true, "1", true)});
  int hMin = -1, hMax = -1, zero = -1, noPunch = -1, pref = -1;
  EXPECT_EQ(SlaveReadCan(0, 8, &hMin, &hMax, &zero, &noPunch, &pref), 0);
  EXPECT_EQ(hMin, 0);
  EXPECT_EQ(hMax, 0);
  EXPECT_EQ(zero, 0);
  EXPECT_EQ(noPunch, 0);
  EXPECT_EQ(pref, -1);
  EXPECT_EQ(CansTraceLines(), 0);
}

TEST_F(Shelf, ReadCanWithoutCansTableIsZeroAndTraced) {
  int hMin = -1, hMax = -1, zero = -1, noPunch = -1, pref = -1;
  EXPECT_EQ(SlaveReadCan(0, 7, &hMin, &hMax, &zero, &noPunch, &pref), 0);
  EXPECT_EQ(hMin, 0);
  EXPECT_EQ(hMax, 0);
  EXPECT_EQ(zero, 0);
  EXPECT_EQ(noPunch, 0);
  EXPECT_EQ(pref, -1);
  EXPECT_EQ(CansTraceLines(), 1);
}

TEST_F(Shelf, ReadCanOfAnEmptyCansTableIsZeroAndTraced) {
  AddCans({Can(7, 120, 250)});
  // Empty it: a fresh cans table with no record.
  tables_.Remove(QDB_SCHEMA_CANS);
  ASSERT_EQ(QdbSchemaCreate(QDB_SCHEMA_CANS, dir_.path().c_str()), 1);
  int hMax = -1;
  EXPECT_EQ(SlaveReadCan(0, 7, nullptr, &hMax, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(hMax, 0);
  EXPECT_EQ(CansTraceLines(), 1);
}

TEST_F(Shelf, ReadCanUsesTheCansOfTheColourantData) {
  AddCans({Can(7, 100, 200)});
  const std::string sub = dir_.file("data3");
  ASSERT_EQ(mkdir(sub.c_str(), 0755), 0);
  DispenserTables data3(sub);
  ASSERT_GT(data3.AddCan(Can(7, 111, 333)), 0);
  int hMin = -1, hMax = -1;
  EXPECT_EQ(SlaveReadCan(3, 7, &hMin, &hMax, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(hMin, 111);
  EXPECT_EQ(hMax, 333);
  EXPECT_EQ(SlaveReadCan(0, 7, &hMin, &hMax, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(hMax, 200);
}

// --- ShelfMove ------------------------------------------------------------------

TEST_F(Shelf, ShelfMoveAboveTheLimitGoesToTheLimit) {
  AddDispenser("ZARVO", OptionsWith({}), Cfg(100, 300, 0));
  slave s(1);
  ASSERT_EQ(s.Hfoto(), 300);
  EXPECT_EQ(s.ShelfMove(500), 1);
  EXPECT_EQ(Commands(s), (Strings{"/S300"}));
}

TEST_F(Shelf, ShelfMoveWithoutALimitGoesWhereAsked) {
  AddDispenser();
  slave s(1);
  ASSERT_EQ(s.Hfoto(), 0);
  EXPECT_EQ(s.ShelfMove(500), 1);
  EXPECT_EQ(Commands(s), (Strings{"/S500"}));
}

TEST_F(Shelf, ShelfMoveWithinTheLimitGoesWhereAsked) {
  AddDispenser("ZARVO", OptionsWith({}), Cfg(50, 600, 0));
  slave s(1);
  ASSERT_EQ(s.Hfoto(), 300);
  EXPECT_EQ(s.ShelfMove(300), 1);
  EXPECT_EQ(s.ShelfMove(120), 1);
  EXPECT_EQ(Commands(s), (Strings{"/S300", "/S120"}));
}

TEST_F(Shelf, ShelfMoveRefusedIsZeroWithTheCode) {
  AddDispenser();
  slave s(1);
  Sim(s)->AddRule("/S*", 11);
  EXPECT_EQ(s.ShelfMove(100), 0);
  EXPECT_EQ(s.m_LastError, 11);
}

TEST_F(Shelf, ShelfMoveWithoutDispenserIsZero) {
  AddDispenser();
  slave s(99);
  EXPECT_EQ(s.ShelfMove(100), 0);
}

// --- ShelfPrepos ----------------------------------------------------------------

TEST_F(Shelf, PreposWithoutCanSendsTheShelfHome) {
  AddDispenser();
  slave s(1);
  EXPECT_EQ(s.ShelfPrepos(0), 1);
  EXPECT_EQ(Commands(s), (Strings{"/A"}));
}

TEST_F(Shelf, PreposOfACanWithZeroFlagSendsTheShelfHome) {
  AddDispenser();
  AddCans({Can(7, 100, 200, true)});
  slave s(1);
  EXPECT_EQ(s.ShelfPrepos(7), 1);
  EXPECT_EQ(Commands(s), (Strings{"/A"}));
}

TEST_F(Shelf, PreposGoesTenAboveTheCansHeight) {
  AddDispenser();
  AddCans({Can(7, 100, 200)});
  slave s(1);
  EXPECT_EQ(s.ShelfPrepos(7), 1);
  EXPECT_EQ(Commands(s), (Strings{"/S210"}));
}

TEST_F(Shelf, PreposIsKeptWithinTheShelfLimit) {
  AddDispenser("ZARVO", OptionsWith({}), Cfg(100, 205, 0));
  AddCans({Can(7, 100, 200)});
  slave s(1);
  EXPECT_EQ(s.ShelfPrepos(7), 1);
  EXPECT_EQ(Commands(s), (Strings{"/S205"}));
}

TEST_F(Shelf, PreposOfAPreferredCanGoesTenAboveThePreferredHeight) {
  AddDispenser("ZARVO", OptionsWith({kPreferredShelf}), Cfg(100, 9000, 150));
  AddCans({Can(7, 100, 200, false, "1")});
  slave s(1);
  ASSERT_EQ(s.HPrefPos(), 150);
  EXPECT_EQ(s.ShelfPrepos(7), 1);
  EXPECT_EQ(Commands(s), (Strings{"/S160"}));
}

TEST_F(Shelf, PreposOfAPreferredCanWithoutTheOptionUsesTheCansHeight) {
  AddDispenser("ZARVO", OptionsWith({}), Cfg(100, 9000, 150));
  AddCans({Can(7, 100, 200, false, "1")});
  slave s(1);
  EXPECT_EQ(s.ShelfPrepos(7), 1);
  EXPECT_EQ(Commands(s), (Strings{"/S210"}));
}

TEST_F(Shelf, PreposOfACanNotPreferredUsesTheCansHeight) {
  AddDispenser("ZARVO", OptionsWith({kPreferredShelf}), Cfg(100, 9000, 150));
  AddCans({Can(7, 100, 200, false, "0")});
  slave s(1);
  EXPECT_EQ(s.ShelfPrepos(7), 1);
  EXPECT_EQ(Commands(s), (Strings{"/S210"}));
}

TEST_F(Shelf, PreposOfAnUnknownCanDoesNothing) {
  AddDispenser();
  AddCans({Can(7, 100, 200)});
  slave s(1);
  EXPECT_EQ(s.ShelfPrepos(8), 1);
  EXPECT_TRUE(Commands(s).empty());
}

TEST_F(Shelf, PreposWithoutCansTableDoesNothing) {
  AddDispenser();
  slave s(1);
  EXPECT_EQ(s.ShelfPrepos(8), 1);
  EXPECT_TRUE(Commands(s).empty());
}

TEST_F(Shelf, PreposRefusedIsZero) {
  AddDispenser();
  AddCans({Can(7, 100, 200)});
  slave s(1);
  Sim(s)->AddRule("/S*", 10);
  EXPECT_EQ(s.ShelfPrepos(7), 0);
  EXPECT_EQ(s.m_LastError, 10);
}

// --- ShelfPos -------------------------------------------------------------------

TEST_F(Shelf, PosWithoutCanThatMovesIsZero) {
  AddDispenser();
  slave s(1);
  EXPECT_EQ(s.ShelfPos(0), 0);
  EXPECT_EQ(Commands(s), (Strings{"/S0"}));
}

TEST_F(Shelf, PosWithoutCanRefusedAsTooBigIsOneWithLastErrorZero) {
  AddDispenser();
  slave s(1);
  Sim(s)->AddRule("/S0", 9);
  s.m_LastError = 4;
  EXPECT_EQ(s.ShelfPos(0), 1);
  EXPECT_EQ(s.m_LastError, 0);
  EXPECT_EQ(Commands(s), (Strings{"/S0"}));
}

TEST_F(Shelf, PosWithoutCanRefusedOtherwiseIsZero) {
  AddDispenser();
  slave s(1);
  Sim(s)->AddRule("/S0", 11);
  EXPECT_EQ(s.ShelfPos(0), 0);
  EXPECT_EQ(s.m_LastError, 11);
}

TEST_F(Shelf, PosGoesToTheCansHeight) {
  AddDispenser();
  AddCans({Can(7, 100, 200)});
  slave s(1);
  EXPECT_EQ(s.ShelfPos(7), 1);
  EXPECT_EQ(Commands(s), (Strings{"/S200"}));
}

TEST_F(Shelf, PosOfACanMissingAtItsHeightTriesTheLowestHeight) {
  AddDispenser();
  AddCans({Can(7, 100, 200)});
  slave s(1);
  Sim(s)->AddRule("/S200", 8);
  EXPECT_EQ(s.ShelfPos(7), 1);
  EXPECT_EQ(Commands(s), (Strings{"/S200", "/S100"}));
}

TEST_F(Shelf, PosWhoseLowestHeightIsRefusedAsTooBigIsOne) {
  AddDispenser();
  AddCans({Can(7, 100, 200)});
  slave s(1);
  Sim(s)->AddRule("/S200", 8);
  Sim(s)->AddRule("/S100", 9);
  EXPECT_EQ(s.ShelfPos(7), 1);
}

TEST_F(Shelf, PosWhoseLowestHeightIsRefusedOtherwiseIsZero) {
  AddDispenser();
  AddCans({Can(7, 100, 200)});
  slave s(1);
  Sim(s)->AddRule("/S200", 8);
  Sim(s)->AddRule("/S100", 8);
  EXPECT_EQ(s.ShelfPos(7), 0);
  EXPECT_EQ(Commands(s), (Strings{"/S200", "/S100"}));
}

TEST_F(Shelf, PosOfACanTooBigForTheShelfLimitIsOne) {
  AddDispenser("ZARVO", OptionsWith({}), Cfg(100, 300, 0));
  AddCans({Can(7, 100, 400)});
  slave s(1);
  Sim(s)->AddRule("/S300", 9);
  EXPECT_EQ(s.ShelfPos(7), 1);
  EXPECT_EQ(Commands(s), (Strings{"/S300"}));
}

TEST_F(Shelf, PosOfACanTooBigWithinTheShelfLimitIsZero) {
  AddDispenser("ZARVO", OptionsWith({}), Cfg(100, 500, 0));
  AddCans({Can(7, 100, 400)});
  slave s(1);
  Sim(s)->AddRule("/S400", 9);
  EXPECT_EQ(s.ShelfPos(7), 0);
  EXPECT_EQ(Commands(s), (Strings{"/S400"}));
}

TEST_F(Shelf, PosRefusedWithAnotherCodeIsZero) {
  AddDispenser();
  AddCans({Can(7, 100, 200)});
  slave s(1);
  Sim(s)->AddRule("/S200", 11);
  EXPECT_EQ(s.ShelfPos(7), 0);
  EXPECT_EQ(Commands(s), (Strings{"/S200"}));
}

TEST_F(Shelf, PosOfAPreferredCanGoesToThePreferredHeight) {
  AddDispenser("ZARVO", OptionsWith({kPreferredShelf}), Cfg(100, 9000, 150));
  AddCans({Can(7, 100, 200, false, "1")});
  slave s(1);
  EXPECT_EQ(s.ShelfPos(7), 1);
  EXPECT_EQ(Commands(s), (Strings{"/S150"}));
}

TEST_F(Shelf, PosOfAPreferredCanRefusedHasNoFallBack) {
  AddDispenser("ZARVO", OptionsWith({kPreferredShelf}), Cfg(100, 9000, 150));
  AddCans({Can(7, 100, 200, false, "1")});
  slave s(1);
  Sim(s)->AddRule("/S150", 8);
  EXPECT_EQ(s.ShelfPos(7), 0);
  EXPECT_EQ(Commands(s), (Strings{"/S150"}));
}

TEST_F(Shelf, PosOfAnUnknownCanDoesNothing) {
  AddDispenser();
  AddCans({Can(7, 100, 200)});
  slave s(1);
  EXPECT_EQ(s.ShelfPos(8), 1);
  EXPECT_TRUE(Commands(s).empty());
}

TEST_F(Shelf, PosWithoutCansTableDoesNothing) {
  AddDispenser();
  slave s(1);
  EXPECT_EQ(s.ShelfPos(8), 1);
  EXPECT_TRUE(Commands(s).empty());
}

// --- ShelfPostpos ---------------------------------------------------------------

TEST_F(Shelf, PostposWithoutCanSendsTheShelfHome) {
  AddDispenser();
  slave s(1);
  EXPECT_EQ(s.ShelfPostpos(0), 1);
  EXPECT_EQ(Commands(s), (Strings{"/A"}));
}

TEST_F(Shelf, PostposOfACanWithZeroFlagSendsTheShelfHome) {
  AddDispenser();
  AddCans({Can(7, 100, 200, true)});
  slave s(1);
  EXPECT_EQ(s.ShelfPostpos(7), 1);
  EXPECT_EQ(Commands(s), (Strings{"/A"}));
}

TEST_F(Shelf, PostposHomeRefusedIsZero) {
  AddDispenser();
  AddCans({Can(7, 100, 200, true)});
  slave s(1);
  Sim(s)->AddRule("/A", 5);
  EXPECT_EQ(s.ShelfPostpos(7), 0);
  EXPECT_EQ(s.m_LastError, 5);
}

TEST_F(Shelf, PostposOfACanWithoutZeroFlagStays) {
  AddDispenser();
  AddCans({Can(7, 100, 200, false)});
  slave s(1);
  EXPECT_EQ(s.ShelfPostpos(7), 1);
  EXPECT_TRUE(Commands(s).empty());
}

TEST_F(Shelf, PostposOfAnUnknownCanStays) {
  AddDispenser();
  AddCans({Can(7, 100, 200, true)});
  slave s(1);
  EXPECT_EQ(s.ShelfPostpos(8), 1);
  EXPECT_TRUE(Commands(s).empty());
}

// --- Single-circuit commands ------------------------------------------------------

TEST_F(Shelf, RecirculateDoublesTheThirdArgument) {
  AddDispenser();
  slave s(1);
  EXPECT_EQ(s.SingleRecirculate(1, 2, 5), 1);
  EXPECT_EQ(Commands(s), (Strings{"/F(1:2:10)"}));
}

TEST_F(Shelf, RecirculateWithANegativeArgumentSendsNothing) {
  AddDispenser();
  slave s(1);
  EXPECT_EQ(s.SingleRecirculate(-1, 2, 5), 0);
  EXPECT_EQ(s.SingleRecirculate(1, -2, 5), 0);
  EXPECT_EQ(s.SingleRecirculate(1, 2, -5), 0);
  EXPECT_TRUE(Commands(s).empty());
}

TEST_F(Shelf, RecirculateOfTheLargestDoublableValue) {
  AddDispenser();
  slave s(1);
  EXPECT_EQ(s.SingleRecirculate(0, 0, INT_MAX / 2), 1);
  EXPECT_EQ(Commands(s), (Strings{"/F(0:0:" + std::to_string(INT_MAX / 2 * 2) + ")"}));
}

TEST_F(Shelf, RecirculateRefusesAValueWhoseDoubleOverflows) {
  AddDispenser();
  slave s(1);
  EXPECT_EQ(s.SingleRecirculate(1, 2, INT_MAX / 2 + 1), 0);
  EXPECT_EQ(s.SingleRecirculate(1, 2, INT_MAX), 0);
  EXPECT_TRUE(Commands(s).empty());
}

TEST_F(Shelf, RecirculateRefusedIsZeroWithTheCode) {
  AddDispenser();
  slave s(1);
  Sim(s)->AddRule("/F*", 6);
  EXPECT_EQ(s.SingleRecirculate(1, 2, 5), 0);
  EXPECT_EQ(s.m_LastError, 6);
}

TEST_F(Shelf, MixDoublesTheSecondArgument) {
  AddDispenser();
  slave s(1);
  EXPECT_EQ(s.SingleMix(3, 4), 1);
  EXPECT_EQ(Commands(s), (Strings{"/H(3:8)"}));
}

TEST_F(Shelf, MixWithANegativeArgumentSendsNothing) {
  AddDispenser();
  slave s(1);
  EXPECT_EQ(s.SingleMix(3, -1), 0);
  EXPECT_EQ(s.SingleMix(-3, 1), 0);
  EXPECT_TRUE(Commands(s).empty());
}

TEST_F(Shelf, MixRefusesAValueWhoseDoubleOverflows) {
  AddDispenser();
  slave s(1);
  EXPECT_EQ(s.SingleMix(3, INT_MAX / 2 + 1), 0);
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_EQ(s.SingleMix(3, INT_MAX / 2), 1);
  EXPECT_EQ(Commands(s), (Strings{"/H(3:" + std::to_string(INT_MAX / 2 * 2) + ")"}));
}

TEST_F(Shelf, MixRefusedIsZeroWithTheCode) {
  AddDispenser();
  slave s(1);
  Sim(s)->AddRule("/H*", 6);
  EXPECT_EQ(s.SingleMix(3, 4), 0);
  EXPECT_EQ(s.m_LastError, 6);
}

TEST_F(Shelf, SingleCircuitCommandsWithoutDispenserAreZero) {
  AddDispenser();
  slave s(99);
  EXPECT_EQ(s.SingleRecirculate(1, 2, 5), 0);
  EXPECT_EQ(s.SingleMix(3, 4), 0);
}

// --- _slv_GetColorantCode -------------------------------------------------------

class ColorantCodes : public qtest::CircuitEnv {
 protected:
  void SetUp() override {
    qtest::CircuitEnv::SetUp();
    AddDispenser();
    AddTanks({Circuit(1, 12, 10.0), Circuit(3, 15, 10.0)});
    AddColorant(12, 1000.0, "RED", "Red");
    AddColorant(15, 1000.0, "OXIDE1", "Oxide");
  }
};

TEST_F(ColorantCodes, CodeOfATanksColourant) {
  char code[16] = "x";
  EXPECT_EQ(_slv_GetColorantCode(1, 1, code, sizeof code), 1);
  EXPECT_STREQ(code, "RED");
  EXPECT_EQ(_slv_GetColorantCode(1, 3, code, sizeof code), 1);
  EXPECT_STREQ(code, "OXIDE1");
}

TEST_F(ColorantCodes, CodeThatFitsWithItsTerminatorExactly) {
  char code[7] = "x";
  EXPECT_EQ(_slv_GetColorantCode(1, 3, code, 7), 1);
  EXPECT_STREQ(code, "OXIDE1");
}

// The host's buffer gets the code's leading characters that fit, with the
// terminator: never a byte past it.
TEST_F(ColorantCodes, CodeLongerThanTheBufferGivesItsLeadingCharacters) {
  char code[16];
  memset(code, 'x', sizeof code);
  EXPECT_EQ(_slv_GetColorantCode(1, 3, code, 6), 1);
  EXPECT_STREQ(code, "OXIDE");
  EXPECT_EQ(code[6], 'x');
  EXPECT_EQ(_slv_GetColorantCode(1, 1, code, 3), 1);
  EXPECT_STREQ(code, "RE");
  EXPECT_EQ(_slv_GetColorantCode(1, 1, code, 1), 1);
  EXPECT_STREQ(code, "");
}

TEST_F(ColorantCodes, NullCodeIsZero) {
  EXPECT_EQ(_slv_GetColorantCode(1, 1, nullptr, 16), 0);
}

TEST_F(ColorantCodes, TankWithoutColourantIsZero) {
  char code[16] = "x";
  EXPECT_EQ(_slv_GetColorantCode(1, 2, code, sizeof code), 0);
  EXPECT_STREQ(code, "");
}

TEST_F(ColorantCodes, TankOutsideTheDispenserIsZero) {
  char code[16] = "x";
  EXPECT_EQ(_slv_GetColorantCode(1, 4, code, sizeof code), 0);
  EXPECT_STREQ(code, "");
  EXPECT_EQ(_slv_GetColorantCode(1, 0, code, sizeof code), 0);
  EXPECT_STREQ(code, "");
}

TEST_F(ColorantCodes, UnknownDispenserIsZero) {
  char code[16] = "x";
  EXPECT_EQ(_slv_GetColorantCode(9, 1, code, sizeof code), 0);
  EXPECT_STREQ(code, "");
}

TEST_F(ColorantCodes, ColourantMissingFromTheColourantTableIsZero) {
  ASSERT_GT(tables_.AddTank(Circuit(4, 77, 10.0)), 0);
  char code[16] = "x";
  EXPECT_EQ(_slv_GetColorantCode(1, 4, code, sizeof code), 0);
  EXPECT_STREQ(code, "");
}

TEST_F(ColorantCodes, MissingColourantTableIsZero) {
  tables_.Remove(QDB_SCHEMA_COLORANTS);
  char code[16] = "x";
  EXPECT_EQ(_slv_GetColorantCode(1, 1, code, sizeof code), 0);
  EXPECT_STREQ(code, "");
}

TEST_F(ColorantCodes, CodeComesFromTheDispensersColourantData) {
  // Dispenser 2 reads colourant data 3: its colourant 12 is "BLUE" there.
  DispenserRow row = StandardDispenser(2);
  row.data_id = 3;
  ASSERT_GT(tables_.AddDispenser(row), 0);
  qtest::TankRow tank = Circuit(1, 12, 10.0);
  tank.disp_id = 2;
  ASSERT_GT(tables_.AddTank(tank), 0);
  const std::string sub = dir_.file("data3");
  ASSERT_EQ(mkdir(sub.c_str(), 0755), 0);
  DispenserTables data3(sub);
  qtest::ColorantRow blue;
  blue.id = 12;
  blue.code = "BLUE";
  ASSERT_GT(data3.AddColorant(blue), 0);
  char code[16] = "x";
  EXPECT_EQ(_slv_GetColorantCode(2, 1, code, sizeof code), 1);
  EXPECT_STREQ(code, "BLUE");
  EXPECT_EQ(_slv_GetColorantCode(1, 1, code, sizeof code), 1);
  EXPECT_STREQ(code, "RED");
}

TEST_F(ColorantCodes, TablesOpenedForTheLookupAreClosedAgain) {
  char code[16] = "";
  ASSERT_EQ(slave::counter, 0);
  EXPECT_EQ(_slv_GetColorantCode(1, 1, code, sizeof code), 1);
  EXPECT_EQ(slave::counter, 0);
  EXPECT_FALSE(DispOpen());
}

TEST_F(ColorantCodes, TablesOfALiveSlaveStayOpen) {
  slave s(1);
  char code[16] = "";
  EXPECT_EQ(_slv_GetColorantCode(1, 3, code, sizeof code), 1);
  EXPECT_STREQ(code, "OXIDE1");
  EXPECT_EQ(slave::counter, 1);
  EXPECT_TRUE(DispOpen());
  EXPECT_EQ(s.m_NumTanks, 3);
}

}  // namespace
