// Dispense operations: a formula by colourant id carried to the machine
// (Dispense), a ready tank list (Dispense with arrays), dispensers
// addressed by colourant code (DispenseByColorant), long by-tank formulas
// sent in groups (DispenseByCircuit) and the by-tank text built for the
// caller (DispDrv); stopper commands, refused machine commands and bad
// input.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

#include "dispense_fixture.h"
#include "purge_server.h"

namespace {

using qtest::OptionsWith;
using qtest::PurgeAnswer;
using qtest::PurgeServer;
using qtest::Sim;
using qtest::SplitConfig;
using qtest::TankOf;

const int kStopper = 3;
const int kSplit = 7;

class Dispensing : public qtest::DispenseEnv {
 protected:
  // Dispenser 1 of the given kind with tanks 1..8 holding colourants 10,
  // 20, ..., 80, each at 900 of 1000 with reserve 10; colourants 10, 30
  // and 70 have codes and weights.
  void Build(const std::string& hide_id = "ZARVO", const std::vector<int>& options = {},
             const std::string& cfg = SplitConfig(300, 5)) {
    AddDispenser(hide_id, OptionsWith(options), cfg);
    std::vector<qtest::TankRow> rows;
    for (int t = 1; t <= 8; ++t) rows.push_back(TankOf(t, 10 * t, 900.0, 10.0, 1000.0));
    AddTanks(rows);
    AddColorant(10, "RED", 1250.0);
    AddColorant(30, "BLU", 1000.0);
    AddColorant(70, "OX1", 500.0);
  }

  std::map<int, double> Full() {
    std::map<int, double> levels;
    for (int t = 1; t <= 8; ++t) levels[t] = 900.0;
    return levels;
  }
  std::map<int, double> FullExcept(const std::map<int, double>& changes) {
    std::map<int, double> levels = Full();
    for (const auto& c : changes) levels[c.first] = c.second;
    return levels;
  }

  // A slave whose purge-server update is off, so that no test depends on
  // what listens on the default port.
  static void Quiet(slave& s) { s.m_PurgeSrvOff = 1; }

  static int Dispense(slave& s, const std::string& text, double f = 1.0, double u = 1.0,
                      int w = 0, int upd = 0, int g2 = 0, int g0 = 0) {
    std::string frm = text;
    return s.Dispense(&frm[0], f, u, w, upd, g2, g0);
  }
  static int ByCircuit(slave& s, const std::string& text, int pairs, int g2 = 0, int g0 = 0) {
    std::string frm = text;
    return s.DispenseByCircuit(&frm[0], pairs, g2, g0);
  }
};

// --- Dispense(formula) -------------------------------------------------------------

TEST_F(Dispensing, TraceLineComesFirst) {
  Build();
  slave s(1);
  Quiet(s);
  trace_.clear();
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0), 1);
  std::vector<std::string> lines = trace_.messages();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0], "\nQslave::Dispense( Frm=[(10:12.500)], f=1.0000, u=1.0000, w=0)\n");
}

TEST_F(Dispensing, TraceLineShowsFactorsAndWeightFlag) {
  Build();
  slave s(1);
  Quiet(s);
  trace_.clear();
  Dispense(s, "(10:12.500)", 2.5, 0.25, 1);
  std::vector<std::string> lines = trace_.messages();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0], "\nQslave::Dispense( Frm=[(10:12.500)], f=2.5000, u=0.2500, w=1)\n");
}

TEST_F(Dispensing, FormulaBecomesByTankCommand) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)(70:0.800)"), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:12.500)(7:0.800)"}));
}

TEST_F(Dispensing, FactorsAreInTheQuantitiesNotInTheCommand) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)(70:0.800)", 2.0, 3.0), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:75.000)(7:4.800)"}));
}

TEST_F(Dispensing, FactorsTwoAndHalfDispenseAsWritten) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)", 2.0, 0.5), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:12.500)"}));
}

TEST_F(Dispensing, WeightsAreConvertedToVolumes) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:100.000)(70:10.000)", 1.0, 1.0, 1), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:80.000)(7:20.000)"}));
}

TEST_F(Dispensing, LevelsAreLoweredWhenAsked) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)(70:0.800)", 1.0, 1.0, 0, 1), 1);
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 887.5}, {7, 899.2}}));
}

// The level update takes what the split read of each tank; a colourant
// named twice is booked twice, the second time from the level the first
// left.
TEST_F(Dispensing, ColourantNamedTwiceIsBookedTwice) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)(70:0.800)(10:0.500)", 1.0, 1.0, 0, 1), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:12.500)(7:0.800)(1:0.500)"}));
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 887.0}, {7, 899.2}}));
}

// A driver that reports levels of its own is the reference: its level is
// copied into the tank's record when the level is booked, and the booking
// starts from it, not from what the split read of the table before.
TEST_F(Dispensing, DriverReportedLevelIsBookedNotTheSplitsRead) {
  Build();
  slave s(1);
  Quiet(s);
  Sim(s)->SetCircuitLevel(1, 500.0, 1000.0, 10.0);
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 1), 1);
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 487.5}}));
}

// Each dispense reads the levels as the one before left them, also when
// another writer changed them in between.
TEST_F(Dispensing, EachDispenseReadsTheLevelsAgain) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 1), 1);
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 1), 1);
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 875.0}}));
  slave other(1);
  Quiet(other);
  int circuit = 1;
  double quantity = 75.0;
  EXPECT_EQ(other.UpdateLevels(1, &circuit, &quantity, 1.0, 0), 1);
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 1), 1);
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 787.5}}));
}

TEST_F(Dispensing, LevelsStayWhenNotAsked) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)(70:0.800)", 1.0, 1.0, 0, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), Full());
}

TEST_F(Dispensing, RefusedCommandLeavesLevelsLowered) {
  Build();
  SimRules("/D* 4\n");
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 1), 0);
  EXPECT_EQ(s.m_LastError, 4);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:12.500)"}));
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 887.5}}));
}

TEST_F(Dispensing, RefusedCommandIsNotRecordedAsLastDosed) {
  Build();
  SimRules("/D* 4\n");
  slave s(1);
  Quiet(s);
  s.SetLastDosedFormulaRecordMode(1);
  EXPECT_EQ(Dispense(s, "(10:12.500)"), 0);
  EXPECT_EQ(s.LastDosedFormula(), nullptr);
}

TEST_F(Dispensing, AcceptedCommandIsRecordedAsLastDosed) {
  Build();
  slave s(1);
  Quiet(s);
  s.SetLastDosedFormulaRecordMode(1);
  EXPECT_EQ(Dispense(s, "(10:12.500)(70:0.800)"), 1);
  ASSERT_NE(s.LastDosedFormula(), nullptr);
  EXPECT_STREQ(s.LastDosedFormula(), "(1:12.500)(7:0.800)");
  s.ClearLastDosedFormula();
}

TEST_F(Dispensing, EmptyFormulaSendsNothing) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "", 1.0, 1.0, 0, 1), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, BlankFormulaSendsNothing) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "   ", 1.0, 1.0, 0, 1), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ZeroQuantityFormulaSendsNothing) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:0.000)", 1.0, 1.0, 0, 1), 0);
  EXPECT_TRUE(CommandsOf(s).empty()) << "\"/D\" alone is not sent";
  EXPECT_EQ(TankLevelsOnDisk(), Full());
}

TEST_F(Dispensing, ColourantInNoTankSendsNothingAndSetsError19) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)(99:1.000)", 1.0, 1.0, 0, 1), 0);
  EXPECT_EQ(s.m_LastError, 19);
  EXPECT_TRUE(CommandsOf(s).empty());
  EXPECT_EQ(TankLevelsOnDisk(), Full()) << "nothing is booked for a formula that is not sent";
}

TEST_F(Dispensing, UnbalancedFormulaSendsNothing) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500", 1.0, 1.0, 0, 1), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
  EXPECT_EQ(TankLevelsOnDisk(), Full());
}

TEST_F(Dispensing, MissingColonSendsNothing) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10 12.500)"), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, MissingQuantitySendsNothing) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:)"), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, NonNumericIdSendsNothing) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(RED:1.000)"), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, NegativeIdSendsNothing) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(-10:1.000)", 1.0, 1.0, 0, 1), 0);
  EXPECT_EQ(s.m_LastError, 19);
  EXPECT_TRUE(CommandsOf(s).empty());
  EXPECT_EQ(TankLevelsOnDisk(), Full());
}

TEST_F(Dispensing, NegativeQuantitySendsNothing) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:5.000)(70:-1.000)", 1.0, 1.0, 0, 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
  EXPECT_EQ(TankLevelsOnDisk(), Full());
}

TEST_F(Dispensing, HugeQuantitySendsNothing) {
  Build();
  slave s(1);
  Quiet(s);
  std::string digits = "1" + std::string(300, '0');
  EXPECT_EQ(Dispense(s, "(10:" + digits + ".000)", 1.0, 1.0, 0, 1), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
  EXPECT_EQ(TankLevelsOnDisk(), Full());
}

TEST_F(Dispensing, ThousandsOfComponentsAreRefusedWithError15) {
  Build();
  slave s(1);
  Quiet(s);
  std::string frm;
  for (int i = 0; i < 5000; ++i) frm += "(10:0.010)";
  trace_.clear();
  EXPECT_EQ(Dispense(s, frm), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty()) << "a cut command would dispense another colour";
  EXPECT_EQ(qtest::CountCommandRefusals(trace_.messages(), 45000, 511), 1)
      << trace_.text().substr(0, 2000);
}

TEST_F(Dispensing, StopperCommandsSurroundTheDispense) {
  Build("ZARVO", {kStopper});
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 0, 1, 1), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/G2", "/D(1:12.500)", "/G0"}));
}

TEST_F(Dispensing, StopperBeforeOnly) {
  Build("ZARVO", {kStopper});
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 0, 1, 0), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/G2", "/D(1:12.500)"}));
}

TEST_F(Dispensing, StopperAfterOnly) {
  Build("ZARVO", {kStopper});
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 0, 0, 1), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:12.500)", "/G0"}));
}

TEST_F(Dispensing, StopperFlagTwoSendsNothing) {
  Build("ZARVO", {kStopper});
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 0, 2, 2), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:12.500)"}));
}

TEST_F(Dispensing, StopperFlagMinusOneSendsNothing) {
  Build("ZARVO", {kStopper});
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 0, -1, -1), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:12.500)"}));
}

TEST_F(Dispensing, WithoutStopperOptionFlagsSendNothing) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 0, 1, 1), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:12.500)"}));
}

TEST_F(Dispensing, StopperReleasedAfterARefusedDispense) {
  Build("ZARVO", {kStopper});
  SimRules("/D* 4\n");
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 0, 1, 1), 0);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/G2", "/D(1:12.500)", "/G0"}));
}

TEST_F(Dispensing, RefusedStopperDoesNotStopTheDispense) {
  Build("ZARVO", {kStopper});
  SimRules("/G* 4\n");
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 0, 1, 1), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/G2", "/D(1:12.500)", "/G0"}));
}

TEST_F(Dispensing, NoStopperWhenTheFormulaIsNotSent) {
  Build("ZARVO", {kStopper});
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(99:1.000)", 1.0, 1.0, 0, 0, 1, 1), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, TwoPassSplitSendsTheLargePartFirst) {
  Build("ZARVO", {kSplit}, SplitConfig(300, 5));
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(30:40.000)(50:5.000)(80:5.000)"), 1);
  EXPECT_EQ(CommandsOf(s),
            (std::vector<std::string>{"/D(3:20.000);(3:20.000)(5:5.000)(8:5.000)"}));
}

TEST_F(Dispensing, TwoPassSplitBooksTheWholeQuantities) {
  Build("ZARVO", {kSplit}, SplitConfig(300, 5));
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Dispense(s, "(30:40.000)(50:5.000)(80:5.000)", 1.0, 1.0, 0, 1), 1);
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{3, 860.0}, {5, 895.0}, {8, 895.0}}));
}

TEST_F(Dispensing, TypeNineHandsOverToColourantCodes) {
  Build("T7R");
  slave s(1);
  Quiet(s);
  ASSERT_EQ(s.m_Dsp->GetType(0, 0), 9);
  s.SetLastDosedFormulaRecordMode(1);
  trace_.clear();
  EXPECT_EQ(Dispense(s, "(10:12.500)(70:0.800)", 1.0, 1.0, 0, 1), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(RED:12.500)(OX1:0.800)"}));
  EXPECT_EQ(TankLevelsOnDisk(), Full()) << "the machine keeps its own levels";
  EXPECT_EQ(s.LastDosedFormula(), nullptr);
  EXPECT_EQ(qtest::CountOf(trace_.messages(),
                           "\nQslave::DispenseByColorant( Frm=[(10:12.500)(70:0.800)], "
                           "FrmByCntCode=[(RED:12.500)(OX1:0.800)], f=1.0000, u=1.0000, w=0)\n"),
            1)
      << trace_.text();
}

TEST_F(Dispensing, TypeNineWithoutColourantTableSendsNothing) {
  AddDispenser("T7R");
  AddTanks({TankOf(1, 10, 900.0, 10.0, 1000.0)});
  slave s(1);
  Quiet(s);
  trace_.clear();
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 1), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
  EXPECT_GE(qtest::CountMatching(trace_.messages(),
                                 qtest::SourceRe("slv_disp") +
                                     "\\(\\d+\\): error \\.\\.\\. unable to open colorant database"),
            1)
      << trace_.text();
}

TEST_F(Dispensing, ReadOnlyTankTableStillDispenses) {
  Build();
  ASSERT_EQ(chmod(tables_.FileOf(QDB_SCHEMA_TANKS).c_str(), 0444), 0);
  slave s(1);
  Quiet(s);
  trace_.clear();
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 1), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:12.500)"}));
  EXPECT_EQ(qtest::CountMatching(trace_.messages(), "\\n" + qtest::SourceRe("slv_lev") +
                                                        " \\(\\d+\\) failure writing in TANKS database"),
            1)
      << trace_.text();
  EXPECT_EQ(TankLevelsOnDisk(), Full());
}

// Sixty colourants, each in its own tank (colourant 100 + t in tank t, 990
// of 1000): "(1:1.000)" to "(60:1.000)" make a text of 591 characters, too
// long for the 512-byte command. The dispense is refused before any level
// is booked.
TEST_F(Dispensing, CommandTooLongIsRefusedBeforeAnyLevelIsBooked) {
  AddDispenser();
  std::vector<qtest::TankRow> rows;
  std::map<int, double> levels;
  std::string frm;
  for (int t = 1; t <= 60; ++t) {
    rows.push_back(TankOf(t, 100 + t, 990.0, 10.0, 1000.0));
    levels[t] = 990.0;
    frm += "(" + std::to_string(100 + t) + ":1.000)";
  }
  AddTanks(rows);
  slave s(1);
  Quiet(s);
  trace_.clear();
  EXPECT_EQ(Dispense(s, frm, 1.0, 1.0, 0, 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_EQ(s.LevelsNotBooked(), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
  EXPECT_EQ(TankLevelsOnDisk(), levels);
  EXPECT_EQ(qtest::CountCommandRefusals(trace_.messages(), 591, 511), 1) << trace_.text();
}

TEST_F(Dispensing, NoDispenserDispensesNothing) {
  Build();
  slave s(5);
  ASSERT_EQ(s.m_DispId, 0);
  EXPECT_EQ(Dispense(s, "(10:12.500)"), 0);
}

// --- Dispense(tank list) -----------------------------------------------------------

TEST_F(Dispensing, ListWithoutDispenserGivesZero) {
  Build();
  slave s(1);
  Quiet(s);
  s.m_DispId = 0;
  int tanks[] = {3};
  double qnts[] = {12.5};
  EXPECT_EQ(s.Dispense(1, tanks, qnts, 1.0), 0);
  s.m_DispId = 1;
  EXPECT_TRUE(CommandsOf(s).empty());
}

// An empty list sends nothing, and like every dispense command it first
// clears the last dosed formula.
TEST_F(Dispensing, EmptyListClearsTheLastDosedFormula) {
  Build();
  slave s(1);
  Quiet(s);
  s.SetLastDosedFormulaRecordMode(1);
  ASSERT_EQ(Dispense(s, "(10:12.500)"), 1);
  ASSERT_NE(s.LastDosedFormula(), nullptr);
  EXPECT_EQ(s.Dispense(0, nullptr, nullptr, 1.0), 0);
  EXPECT_EQ(s.LastDosedFormula(), nullptr);
  EXPECT_EQ(CommandsOf(s).size(), 1u) << "nothing more was sent";
}

TEST_F(Dispensing, ListWithFactorCarriesTheFactor) {
  Build();
  slave s(1);
  Quiet(s);
  int tanks[] = {3, 7};
  double qnts[] = {12.5, 0.8};
  EXPECT_EQ(s.Dispense(2, tanks, qnts, 2.0), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(3:12.500)(7:0.800)2.000"}));
}

TEST_F(Dispensing, ListSplitWithFactor) {
  Build("ZARVO", {kSplit}, SplitConfig(300, 5));
  slave s(1);
  Quiet(s);
  int tanks[] = {3, 5, 8};
  double qnts[] = {40.0, 5.0, 5.0};
  EXPECT_EQ(s.Dispense(3, tanks, qnts, 2.0), 1);
  EXPECT_EQ(CommandsOf(s),
            (std::vector<std::string>{"/D(3:20.000);(3:20.000)(5:5.000)(8:5.000)2.000"}));
}

TEST_F(Dispensing, ListSplitOfOneEntrySendsItUnsplit) {
  Build("ZARVO", {kSplit}, SplitConfig(300, 5));
  slave s(1);
  Quiet(s);
  int tanks[] = {3};
  double qnts[] = {40.0};
  EXPECT_EQ(s.Dispense(1, tanks, qnts, 1.0), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(3:40.000)"}));
}

TEST_F(Dispensing, ListSplitWithZeroPercentageSendsTheListUnsplit) {
  Build("ZARVO", {kSplit}, SplitConfig(0, 5));
  slave s(1);
  Quiet(s);
  int tanks[] = {3, 5};
  double qnts[] = {40.0, 5.0};
  EXPECT_EQ(s.Dispense(2, tanks, qnts, 1.0), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(3:40.000)(5:5.000)"}));
}

TEST_F(Dispensing, ListWithStoredPercentageAndSplitOffSendsCopyAndSplit) {
  Build();
  slave s(1);
  Quiet(s);
  s.m_SplitPerc = 30.0;
  s.m_SplitThreshold = 5.0;
  int tanks[] = {3, 5, 8};
  double qnts[] = {40.0, 5.0, 5.0};
  EXPECT_EQ(s.Dispense(3, tanks, qnts, 1.0), 1);
  EXPECT_EQ(CommandsOf(s),
            (std::vector<std::string>{
                "/D(3:40.000)(5:5.000)(8:5.000)(3:20.000);(3:20.000)(5:5.000)(8:5.000)"}));
}

TEST_F(Dispensing, ListOfOnlyInvalidEntriesSendsNothing) {
  Build();
  slave s(1);
  Quiet(s);
  int tanks[] = {0, 9, 3};
  double qnts[] = {1.0, 1.0, 0.0};
  EXPECT_EQ(s.Dispense(3, tanks, qnts, 1.0), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ListRefusedByTheMachine) {
  Build();
  SimRules("/D* 4\n");
  slave s(1);
  Quiet(s);
  int tanks[] = {3};
  double qnts[] = {1.0};
  EXPECT_EQ(s.Dispense(1, tanks, qnts, 1.0), 0);
  EXPECT_EQ(s.m_LastError, 4);
}

// --- DispenseByColorant -------------------------------------------------------------

TEST_F(Dispensing, ByColorantSendsCodesAndTraces) {
  Build();
  slave s(1);
  Quiet(s);
  trace_.clear();
  std::string frm = "(10:1.250)(70:0.500)";
  EXPECT_EQ(s.DispenseByColorant(&frm[0], 1.0, 1.0, 0, 0), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(RED:1.250)(OX1:0.500)"}));
  EXPECT_EQ(qtest::CountOf(trace_.messages(),
                           "\nQslave::DispenseByColorant( Frm=[(10:1.250)(70:0.500)], "
                           "FrmByCntCode=[(RED:1.250)(OX1:0.500)], f=1.0000, u=1.0000, w=0)\n"),
            1)
      << trace_.text();
}

TEST_F(Dispensing, ByColorantScalesQuantities) {
  Build();
  slave s(1);
  Quiet(s);
  std::string frm = "(10:1.250)";
  EXPECT_EQ(s.DispenseByColorant(&frm[0], 2.0, 2.0, 0, 0), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(RED:5.000)"}));
}

TEST_F(Dispensing, ByColorantConvertsWeights) {
  Build();
  slave s(1);
  Quiet(s);
  std::string frm = "(10:100.000)";
  EXPECT_EQ(s.DispenseByColorant(&frm[0], 1.0, 1.0, 1, 0), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(RED:80.000)"}));
}

TEST_F(Dispensing, ByColorantOfUnknownIdsSendsNothing) {
  Build();
  slave s(1);
  Quiet(s);
  trace_.clear();
  std::string frm = "(20:1.000)";
  EXPECT_EQ(s.DispenseByColorant(&frm[0], 1.0, 1.0, 0, 0), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
  EXPECT_EQ(qtest::CountOf(trace_.messages(),
                           "\nQslave::DispenseByColorant( Frm=[(20:1.000)], FrmByCntCode=[], "
                           "f=1.0000, u=1.0000, w=0)\n"),
            1)
      << trace_.text();
}

TEST_F(Dispensing, ByColorantLowersNoLevelsRecordsNothingAndTellsNoServer) {
  Build();
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(1);
  s.m_PurgeSrvPort = server.port();
  s.SetLastDosedFormulaRecordMode(1);
  char old[] = "(1:1.000)";
  s.SetLastDosedFormula(old);
  std::string frm = "(10:12.500)";
  EXPECT_EQ(s.DispenseByColorant(&frm[0], 1.0, 1.0, 0, 1), 1);
  EXPECT_EQ(TankLevelsOnDisk(), Full());
  ASSERT_NE(s.LastDosedFormula(), nullptr);
  EXPECT_STREQ(s.LastDosedFormula(), "(1:1.000)");
  EXPECT_TRUE(server.Records().empty());
  s.ClearLastDosedFormula();
}

TEST_F(Dispensing, ByColorantRefusedByTheMachine) {
  Build();
  SimRules("/D* 4\n");
  slave s(1);
  Quiet(s);
  std::string frm = "(10:12.500)";
  EXPECT_EQ(s.DispenseByColorant(&frm[0], 1.0, 1.0, 0, 0), 0);
  EXPECT_EQ(s.m_LastError, 4);
}

// --- DispenseByCircuit -------------------------------------------------------------

TEST_F(Dispensing, ByCircuitSendsGroupsOfPairs) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)(2:2.000)(3:3.000)", 2), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:1.000)(2:2.000)", "/D(3:3.000)"}));
}

TEST_F(Dispensing, ByCircuitOneGroupForEverything) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)(2:2.000)(3:3.000)", 3), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:1.000)(2:2.000)(3:3.000)"}));
}

TEST_F(Dispensing, ByCircuitLowersTheLevelsOfEachGroup) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)(2:2.000)(3:3.000)", 2), 1);
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 899.0}, {2, 898.0}, {3, 897.0}}));
}

TEST_F(Dispensing, ByCircuitGroupBeyondTheLevelIsSentButNotBooked) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:950.000)(2:2.000)", 1), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:950.000)", "/D(2:2.000)"}));
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{2, 898.0}}));
}

// A group whose command would not fit the 512-byte command buffer is
// refused with every other before anything is sent or booked: cut, it
// would dose another colour; sent alone, the dispense would be a part.
TEST_F(Dispensing, ByCircuitGroupTooLongForTheCommandIsRefusedBeforeAnything) {
  Build();
  slave s(1);
  Quiet(s);
  std::string frm;
  for (int i = 0; i < 20; ++i) frm += "(1:1.000)(2:1.000)(3:1.000)";
  trace_.clear();
  EXPECT_EQ(ByCircuit(s, "(4:1.000)" + frm, 1 + 60, 1, 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_EQ(s.LevelsNotBooked(), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
  EXPECT_EQ(TankLevelsOnDisk(), Full());
  EXPECT_EQ(qtest::CountCommandRefusals(trace_.messages(), 551, 511), 1) << trace_.text();
}

TEST_F(Dispensing, ByCircuitNestedBracketsAreRefused) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "((1:1.000))", 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitStrayClosingBracketIsRefused) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000))", 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitLeadingClosingBracketIsRefused) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, ")(1:1.000)", 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitComponentWithoutColonIsRefused) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)(2)", 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitExtraColonIsRefused) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000:2)", 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitWithoutClosingBracketIsRefused) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000", 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitWithoutBracketsIsRefused) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "1:1.000", 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitTrailingOpenBracketIsRefused) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)(", 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitMissingOpeningBracketIsRefused) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)2:2.000)", 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitBracketOpenedInsideAComponentIsRefused) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)((2:2.000)", 2), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitFaultAfterGoodGroupsSendsNothing) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)(2:2.000)(3:3.000))", 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty()) << "the text is checked whole before anything is sent";
  EXPECT_EQ(TankLevelsOnDisk(), Full());
}

TEST_F(Dispensing, ByCircuitOpenLastComponentIsSentAsItStands) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)(2:2.000", 1), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:1.000)", "/D(2:2.000"}));
}

TEST_F(Dispensing, ByCircuitEmptyTextIsRefused) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "", 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitNullTextIsRefused) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(s.DispenseByCircuit(nullptr, 1, 0, 0), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitEmptyFirstFieldIsRefused) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "|(1:1.000)", 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitUsesOnlyTheFirstFieldAndCutsTheText) {
  Build();
  slave s(1);
  Quiet(s);
  char frm[] = "(1:1.000)|(2:2.000)";
  EXPECT_EQ(s.DispenseByCircuit(frm, 1, 0, 0), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:1.000)"}));
  EXPECT_STREQ(frm, "(1:1.000)") << "the text is cut at its first bar in place";
}

TEST_F(Dispensing, ByCircuitZeroPairsPerCommandIsRefused) {
  Build("ZARVO", {kStopper});
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)", 0, 1, 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitNegativePairsPerCommandIsRefused) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)", -2), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitMalformedTextLeavesLevelsAlone) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)((2:2.000))", 1), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
  EXPECT_EQ(TankLevelsOnDisk(), Full());
}

std::string Repeat(const std::string& piece, int n) {
  std::string text;
  for (int i = 0; i < n; ++i) text += piece;
  return text;
}

TEST_F(Dispensing, ByCircuit299GroupsAndARemainderAreSent) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, Repeat("(1:0.001)", 299) + "(2:0.001", 1), 1);
  std::vector<std::string> commands = CommandsOf(s);
  ASSERT_EQ(commands.size(), 300u);
  EXPECT_EQ(commands[0], "/D(1:0.001)");
  EXPECT_EQ(commands[298], "/D(1:0.001)");
  EXPECT_EQ(commands[299], "/D(2:0.001");
}

TEST_F(Dispensing, ByCircuit300thCompleteGroupIsRefused) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, Repeat("(1:0.001)", 300), 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
  EXPECT_EQ(TankLevelsOnDisk(), Full());
}

TEST_F(Dispensing, ByCircuit299PairGroupsAndAShortLastGroupAreSent) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, Repeat("(1:0.001)(2:0.001)", 299) + "(3:0.001)", 2), 1);
  std::vector<std::string> commands = CommandsOf(s);
  ASSERT_EQ(commands.size(), 300u);
  EXPECT_EQ(commands[0], "/D(1:0.001)(2:0.001)");
  EXPECT_EQ(commands[299], "/D(3:0.001)");
}

TEST_F(Dispensing, ByCircuit300CompletePairGroupsAreRefused) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, Repeat("(1:0.001)(2:0.001)", 300), 2), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitOnReadOnlyTankTableStillSends) {
  Build();
  ASSERT_EQ(chmod(tables_.FileOf(QDB_SCHEMA_TANKS).c_str(), 0444), 0);
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)(2:2.000)", 1), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:1.000)", "/D(2:2.000)"}));
  EXPECT_EQ(TankLevelsOnDisk(), Full());
}

TEST_F(Dispensing, ByCircuitStopperCommandsSurroundAllGroups) {
  Build("ZARVO", {kStopper});
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)(2:2.000)", 1, 1, 1), 1);
  EXPECT_EQ(CommandsOf(s),
            (std::vector<std::string>{"/G2", "/D(1:1.000)", "/D(2:2.000)", "/G0"}));
}

TEST_F(Dispensing, ByCircuitStopperFlagTwoSendsNothing) {
  Build("ZARVO", {kStopper});
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)", 1, 2, 2), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:1.000)"}));
}

TEST_F(Dispensing, ByCircuitWithoutStopperOptionSendsNoStopper) {
  Build();
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)", 1, 1, 1), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:1.000)"}));
}

TEST_F(Dispensing, ByCircuitMalformedTextSendsNoStopper) {
  Build("ZARVO", {kStopper});
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "((1:1.000))", 1, 1, 1), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(Dispensing, ByCircuitRefusedGroupDoesNotStopTheOthers) {
  Build();
  SimRules("/D(1:* 4\n");
  slave s(1);
  Quiet(s);
  s.SetLastDosedFormulaRecordMode(2);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)(2:2.000)(3:3.000)", 1), 1) << "the last group's result";
  EXPECT_EQ(CommandsOf(s),
            (std::vector<std::string>{"/D(1:1.000)", "/D(2:2.000)", "/D(3:3.000)"}));
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 899.0}, {2, 898.0}, {3, 897.0}}))
      << "every group is booked, the refused one too";
  ASSERT_NE(s.LastDosedFormula(), nullptr);
  EXPECT_STREQ(s.LastDosedFormula(), "(2:2.000)(3:3.000)");
  s.ClearLastDosedFormula();
}

TEST_F(Dispensing, ByCircuitResultIsTheLastGroups) {
  Build();
  SimRules("/D(3:* 4\n");
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)(2:2.000)(3:3.000)", 1), 0);
  EXPECT_EQ(s.m_LastError, 4);
  EXPECT_EQ(CommandsOf(s).size(), 3u);
}

TEST_F(Dispensing, ByCircuitTellsThePurgeServerEachAcceptedGroup) {
  Build();
  SimRules("/D(3:* 4\n");  // the second group
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(1);
  s.m_PurgeSrvPort = server.port();
  EXPECT_EQ(ByCircuit(s, "(1:1.000)(2:2.000)(3:3.000)(4:4.000)(5:5.000)", 2), 1);
  std::vector<qtest::PurgeCall> calls = server.Calls();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0].params,
            (std::vector<std::string>{"int:1", "str:'(1:1.000)(2:2.000)'", "bool:False"}));
  EXPECT_EQ(calls[1].params, (std::vector<std::string>{"int:1", "str:'(5:5.000)'", "bool:False"}));
}

TEST_F(Dispensing, ByCircuitOnTypeNineDispensesByPosition) {
  Build("T7R");
  slave s(1);
  Quiet(s);
  ASSERT_EQ(s.m_Dsp->GetType(0, 0), 9);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)(2:2.000)(3:3.000)", 2), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(DISPBYPOS)(1:1.000)(2:2.000)",
                                                     "/D(DISPBYPOS)(3:3.000)"}));
  EXPECT_EQ(TankLevelsOnDisk(), Full()) << "the machine keeps its own levels";
}

TEST_F(Dispensing, ByCircuitOnTypeNinePurgesByPosition) {
  Build("T7R");
  slave s(1);
  Quiet(s);
  s.m_PurgeSrvFlag = 1;
  EXPECT_EQ(ByCircuit(s, "(1:1.000)(2:2.000)", 1), 1);
  EXPECT_EQ(CommandsOf(s),
            (std::vector<std::string>{"/D(PURGEBYPOS)(1:1.000)", "/D(PURGEBYPOS)(2:2.000)"}));
}

TEST_F(Dispensing, ByCircuitOnTypeNineTellsTheServerTheGroupWithoutPrefix) {
  Build("T7R");
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(1);
  s.m_PurgeSrvPort = server.port();
  s.m_PurgeSrvFlag = 1;
  s.SetLastDosedFormulaRecordMode(1);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)", 1), 1);
  std::vector<qtest::PurgeCall> calls = server.Calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].params, (std::vector<std::string>{"int:1", "str:'(1:1.000)'", "bool:True"}));
  ASSERT_NE(s.LastDosedFormula(), nullptr);
  EXPECT_STREQ(s.LastDosedFormula(), "(1:1.000)");
  s.ClearLastDosedFormula();
}

TEST_F(Dispensing, ByCircuitOnTypeNineWithStopper) {
  Build("T7R", {kStopper});
  slave s(1);
  Quiet(s);
  EXPECT_EQ(ByCircuit(s, "(1:1.000)", 1, 1, 1), 1);
  EXPECT_EQ(CommandsOf(s),
            (std::vector<std::string>{"/G2", "/D(DISPBYPOS)(1:1.000)", "/G0"}));
}

// --- DispDrv -------------------------------------------------------------------------

TEST_F(Dispensing, DispDrvStyleOneWritesBracketedPairs) {
  Build();
  slave s(1);
  Quiet(s);
  char out[64];
  std::string frm = "(10:12.500)(70:0.800)";
  EXPECT_EQ(s.DispDrv(&frm[0], out, 63, 1.0, 1.0, 0, 0, 1), 1);
  EXPECT_STREQ(out, "(1:12.500)(7:0.800)");
  EXPECT_TRUE(CommandsOf(s).empty()) << "DispDrv sends nothing";
}

TEST_F(Dispensing, DispDrvStyleZeroSingleEntry) {
  Build();
  slave s(1);
  char out[64];
  std::string frm = "(30:12.500)";
  EXPECT_EQ(s.DispDrv(&frm[0], out, 63, 1.0, 1.0, 0, 0, 0), 1);
  EXPECT_STREQ(out, "\"3,12.500\"");
}

TEST_F(Dispensing, DispDrvStyleZeroTwoEntries) {
  Build();
  slave s(1);
  char out[64];
  std::string frm = "(30:12.500)(70:0.800)";
  EXPECT_EQ(s.DispDrv(&frm[0], out, 63, 1.0, 1.0, 0, 0, 0), 1);
  EXPECT_STREQ(out, "\"3,12.500,7,0.800\"");
}

TEST_F(Dispensing, DispDrvAnyOtherStyleIsTheCommaList) {
  Build();
  slave s(1);
  char out[64];
  std::string frm = "(30:12.500)";
  EXPECT_EQ(s.DispDrv(&frm[0], out, 63, 1.0, 1.0, 0, 0, 7), 1);
  EXPECT_STREQ(out, "\"3,12.500\"");
}

TEST_F(Dispensing, DispDrvScalesAndConverts) {
  Build();
  slave s(1);
  char out[64];
  std::string frm = "(10:100.000)";
  EXPECT_EQ(s.DispDrv(&frm[0], out, 63, 2.0, 1.0, 1, 0, 1), 1);
  EXPECT_STREQ(out, "(1:160.000)");
}

TEST_F(Dispensing, DispDrvNullOutputGivesZero) {
  Build();
  slave s(1);
  std::string frm = "(10:12.500)";
  EXPECT_EQ(s.DispDrv(&frm[0], nullptr, 63, 1.0, 1.0, 0, 1, 1), 0);
  EXPECT_EQ(TankLevelsOnDisk(), Full());
}

TEST_F(Dispensing, DispDrvZeroLengthGivesZero) {
  Build();
  slave s(1);
  char out[4] = "abc";
  std::string frm = "(10:12.500)";
  EXPECT_EQ(s.DispDrv(&frm[0], out, 0, 1.0, 1.0, 0, 1, 1), 0);
  EXPECT_STREQ(out, "abc");
  EXPECT_EQ(TankLevelsOnDisk(), Full());
}

TEST_F(Dispensing, DispDrvFailedSplitGivesZero) {
  Build();
  slave s(1);
  char out[64] = "untouched";
  std::string frm = "(10:12.500)(99:1.000)";
  EXPECT_EQ(s.DispDrv(&frm[0], out, 63, 1.0, 1.0, 0, 1, 1), 0);
  EXPECT_STREQ(out, "untouched");
}

TEST_F(Dispensing, DispDrvEmptyFormulaGivesZero) {
  Build();
  slave s(1);
  char out[64] = "untouched";
  std::string frm = "";
  EXPECT_EQ(s.DispDrv(&frm[0], out, 63, 1.0, 1.0, 0, 1, 0), 0);
  EXPECT_STREQ(out, "untouched");
}

TEST_F(Dispensing, DispDrvNothingValidGivesZero) {
  Build();
  slave s(1);
  char out[64] = "untouched";
  std::string frm = "(10:0.000)";
  EXPECT_EQ(s.DispDrv(&frm[0], out, 63, 1.0, 1.0, 0, 1, 0), 0);
  EXPECT_EQ(s.DispDrv(&frm[0], out, 63, 1.0, 1.0, 0, 1, 1), 0);
  EXPECT_STREQ(out, "untouched");
}

TEST_F(Dispensing, DispDrvLowersLevelsWhenAsked) {
  Build();
  slave s(1);
  char out[64];
  std::string frm = "(10:12.500)(70:0.800)";
  EXPECT_EQ(s.DispDrv(&frm[0], out, 63, 1.0, 1.0, 0, 1, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 887.5}, {7, 899.2}}));
}

TEST_F(Dispensing, DispDrvBooksAColourantNamedTwiceTwice) {
  Build();
  slave s(1);
  char out[64];
  std::string frm = "(10:12.500)(70:0.800)(10:0.500)";
  EXPECT_EQ(s.DispDrv(&frm[0], out, 63, 1.0, 1.0, 0, 1, 1), 1);
  EXPECT_STREQ(out, "(1:12.500)(7:0.800)(1:0.500)");
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 887.0}, {7, 899.2}}));
}

TEST_F(Dispensing, DispDrvLeavesLevelsWhenNotAsked) {
  Build();
  slave s(1);
  char out[64];
  std::string frm = "(10:12.500)";
  EXPECT_EQ(s.DispDrv(&frm[0], out, 63, 1.0, 1.0, 0, 0, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), Full());
}

TEST_F(Dispensing, DispDrvTextThatJustFits) {
  Build();
  slave s(1);
  const std::string expected = "(1:12.500)(7:0.800)";
  std::vector<char> out(expected.size() + 2, 'x');
  std::string frm = "(10:12.500)(70:0.800)";
  EXPECT_EQ(s.DispDrv(&frm[0], out.data(), static_cast<int>(expected.size()), 1.0, 1.0, 0, 0, 1),
            1);
  EXPECT_EQ(std::string(out.data()), expected);
  EXPECT_EQ(out[expected.size()], '\0');
  EXPECT_EQ(out[expected.size() + 1], 'x');
}

TEST_F(Dispensing, DispDrvTextLongerThanTheRoomIsRefusedNotCut) {
  Build();
  slave s(1);
  const std::string expected = "(1:12.500)(7:0.800)";
  char out[64] = "untouched";
  std::string frm = "(10:12.500)(70:0.800)";
  trace_.clear();
  EXPECT_EQ(s.DispDrv(&frm[0], out, static_cast<int>(expected.size()) - 1, 1.0, 1.0, 0, 0, 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_STREQ(out, "untouched");
  EXPECT_EQ(qtest::CountPrefix(trace_.messages(), "\nslv_disp("), 1) << trace_.text();
}

// A text that does not fit the caller's buffer is refused before any level
// is booked.
TEST_F(Dispensing, DispDrvTextLongerThanTheRoomBooksNoLevel) {
  Build();
  slave s(1);
  char out[64] = "untouched";
  std::string frm = "(10:12.500)(70:0.800)";  // "(1:12.500)(7:0.800)", 19 characters
  EXPECT_EQ(s.DispDrv(&frm[0], out, 18, 1.0, 1.0, 0, 1, 1), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_STREQ(out, "untouched");
  EXPECT_EQ(TankLevelsOnDisk(), Full());
}

// The caller's buffer holds outLen + 1 bytes: a zero goes after the text
// and one at out[outLen].
TEST_F(Dispensing, DispDrvWritesAZeroAfterTheTextAndAtOutLen) {
  Build();
  slave s(1);
  std::vector<char> out(41, 'x');
  std::string frm = "(10:12.500)(70:0.800)";
  EXPECT_EQ(s.DispDrv(&frm[0], out.data(), 40, 1.0, 1.0, 0, 0, 1), 1);
  EXPECT_EQ(std::string(out.data()), "(1:12.500)(7:0.800)");
  EXPECT_EQ(out[19], '\0');
  EXPECT_EQ(out[40], '\0');
}

}  // namespace
