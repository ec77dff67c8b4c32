// Purges and dispensed-quantity reports end to end: tables on disk, the
// simulated dispenser scripted from code or from a rules file, the commands
// it received checked to the character, and the levels read back from the
// tank table by an independent dBase reader once the library has closed it.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "circuit_env.h"

namespace {

using qtest::Circuit;
using qtest::OptionsWith;
using qtest::Sim;
using qtest::TankRow;

using Strings = std::vector<std::string>;

const int kGroupFlag = 3;

// "/D" followed by (c:q) for circuits first..last.
std::string DispenseOf(int first, int last, const std::string& qnt) {
  std::string cmd = "/D";
  for (int c = first; c <= last; ++c) cmd += "(" + std::to_string(c) + ":" + qnt + ")";
  return cmd;
}

class PurgeIntegration : public qtest::CircuitEnv {
 protected:
  // 20 circuits, circuit c holding colourant 100 + c at level 50 of 100.
  void AddTwentyCircuits() {
    std::vector<TankRow> rows;
    for (int c = 1; c <= 20; ++c) rows.push_back(Circuit(c, 100 + c, 50.0, 5.0, 100.0));
    AddTanks(rows);
  }

  void ExpectEveryLevel(double level) {
    const std::map<int, double> levels = LevelsOnDisk();
    ASSERT_EQ(levels.size(), 20u);
    for (const auto& entry : levels) EXPECT_DOUBLE_EQ(entry.second, level) << "tank " << entry.first;
  }
};

TEST_F(PurgeIntegration, TwentyCircuitsPurgeInGroupsOfEightEightAndFour) {
  AddDispenser("VOREN", OptionsWith({kGroupFlag}));
  AddTwentyCircuits();
  {
    slave s(1);
    NoPurgeServer(s);
    ASSERT_EQ(s.m_Dsp->GetType(0, 0), 5);
    EXPECT_EQ(s.Purge(2.0, nullptr, true, false), 1);
    EXPECT_EQ(Commands(s), (Strings{"/G2", DispenseOf(1, 8, "2.000"), DispenseOf(9, 16, "2.000"),
                                    DispenseOf(17, 20, "2.000"), "/G0"}));
    EXPECT_EQ(Commands(s)[1],
              "/D(1:2.000)(2:2.000)(3:2.000)(4:2.000)(5:2.000)(6:2.000)(7:2.000)(8:2.000)");
    EXPECT_EQ(CallsOf(s, "PurgeCircuits"),
              (Strings{"PurgeCircuits(20,[1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20],"
                       "2.000)"}));
  }
  ExpectEveryLevel(48.0);
}

TEST_F(PurgeIntegration, TwentyCircuitsPurgeOneByOne) {
  AddDispenser("VOREN", OptionsWith({kGroupFlag}));
  AddTwentyCircuits();
  {
    slave s(1);
    NoPurgeServer(s);
    EXPECT_EQ(s.Purge(2.0, nullptr, true, true), 1);
    Strings expected{"/G2"};
    for (int c = 1; c <= 20; ++c) expected.push_back(DispenseOf(c, c, "2.000"));
    expected.push_back("/G0");
    EXPECT_EQ(Commands(s), expected);
  }
  ExpectEveryLevel(48.0);
}

TEST_F(PurgeIntegration, TwentyCircuitsPurgeAsOneGroupOnTypeSix) {
  AddDispenser("K240", OptionsWith({kGroupFlag}));
  AddTwentyCircuits();
  {
    slave s(1);
    NoPurgeServer(s);
    ASSERT_EQ(s.m_Dsp->GetType(0, 0), 6);
    EXPECT_EQ(s.Purge(2.0, nullptr, true, false), 1);
    EXPECT_EQ(Commands(s), (Strings{"/G2", DispenseOf(1, 20, "2.000"), "/G0"}));
  }
  ExpectEveryLevel(48.0);
}

TEST_F(PurgeIntegration, TwentyCircuitsPurgeWithoutGroupFlagSendsOnlyDispenses) {
  AddDispenser("VOREN");
  AddTwentyCircuits();
  {
    slave s(1);
    NoPurgeServer(s);
    EXPECT_EQ(s.Purge(0.5, nullptr, true, false), 1);
    EXPECT_EQ(Commands(s), (Strings{DispenseOf(1, 8, "0.500"), DispenseOf(9, 16, "0.500"),
                                    DispenseOf(17, 20, "0.500")}));
  }
  ExpectEveryLevel(49.5);
}

TEST_F(PurgeIntegration, PurgeScriptedFromARulesFileAnswersTheLastGroup) {
  SimRules("# the last group of the purge is stopped\n/D(17:* 14\n");
  AddDispenser("VOREN", OptionsWith({kGroupFlag}));
  AddTwentyCircuits();
  {
    slave s(1);
    NoPurgeServer(s);
    EXPECT_EQ(s.Purge(2.0, nullptr, true, false), 0);
    EXPECT_EQ(s.m_LastError, 14);
    EXPECT_EQ(Commands(s), (Strings{"/G2", DispenseOf(1, 8, "2.000"), DispenseOf(9, 16, "2.000"),
                                    DispenseOf(17, 20, "2.000"), "/G0"}));
  }
  // Levels are taken off before each group is sent.
  ExpectEveryLevel(48.0);
}

TEST_F(PurgeIntegration, PurgeRecordListsEveryPurgedColourant) {
  AddDispenser("VOREN");
  AddTwentyCircuits();
  slave s(1);
  NoPurgeServer(s);
  Zu_Frm record;
  EXPECT_EQ(s.Purge(1.0, &record, true, false), 1);
  std::string expected;
  for (int c = 1; c <= 20; ++c) expected += "(" + std::to_string(100 + c) + ":1.000)";
  EXPECT_STREQ(record.text(), expected.c_str());
}

TEST_F(PurgeIntegration, PurgeByTheDriverIsBookedOnDisk) {
  SimRules("set purge 0\n");
  AddDispenser("VOREN", OptionsWith({kGroupFlag}));
  AddTwentyCircuits();
  {
    slave s(1);
    EXPECT_EQ(s.Purge(3.0, nullptr, true, false), 1);
    EXPECT_TRUE(Commands(s).empty());
  }
  ExpectEveryLevel(47.0);
}

TEST_F(PurgeIntegration, PurgeWithoutSendingIsBookedOnDisk) {
  AddDispenser("VOREN", OptionsWith({kGroupFlag}));
  AddTwentyCircuits();
  {
    slave s(1);
    EXPECT_EQ(s.Purge(4.0, nullptr, false, false), 1);
    EXPECT_TRUE(Commands(s).empty());
  }
  ExpectEveryLevel(46.0);
}

TEST_F(PurgeIntegration, SelectiveAndCanisterPurgesByTheDriverRaiseLevelsOnDisk) {
  SimRules("set purge 0\n");
  AddDispenser("VOREN");
  AddTanks({Circuit(1, 12, 50.0, 0.0, 100.0), Circuit(2, 15, 50.0, 0.0, 100.0),
            Circuit(3, 12, 99.0, 0.0, 100.0), Circuit(4, 20, 50.0, 0.0, 100.0)});
  {
    slave s(1);
    long ids[] = {12, 0};
    EXPECT_EQ(s.SelectivePurge(ids, 2.0), 1);
    EXPECT_EQ(s.CanisterPurge(4, 2.5), 1);
    EXPECT_EQ(CallsOf(s, "PurgeCircuits"),
              (Strings{"PurgeCircuits(2,[1,3],2.000)", "PurgeCircuits(1,[4],2.500)"}));
  }
  const std::map<int, double> levels = LevelsOnDisk();
  EXPECT_DOUBLE_EQ(levels.at(1), 52.0);
  EXPECT_DOUBLE_EQ(levels.at(2), 50.0);
  EXPECT_DOUBLE_EQ(levels.at(3), 100.0);
  EXPECT_DOUBLE_EQ(levels.at(4), 52.5);
}

TEST_F(PurgeIntegration, SelectiveAndCanisterPurgesByDispensingLowerLevelsOnDisk) {
  AddDispenser("VOREN", OptionsWith({kGroupFlag}));
  AddTanks({Circuit(1, 12, 50.0, 0.0, 100.0), Circuit(2, 15, 50.0, 0.0, 100.0),
            Circuit(3, 12, 1.0, 0.0, 100.0), Circuit(4, 20, 50.0, 0.0, 100.0)});
  {
    slave s(1);
    NoPurgeServer(s);
    long ids[] = {12, 0};
    EXPECT_EQ(s.SelectivePurge(ids, 2.0), 1);
    EXPECT_EQ(s.CanisterPurge(4, 2.5), 1);
    EXPECT_EQ(Commands(s),
              (Strings{"/G2", "/D(1:2.000)(3:2.000)", "/G0", "/G2", "/D(4:2.500)", "/G0"}));
  }
  const std::map<int, double> levels = LevelsOnDisk();
  EXPECT_DOUBLE_EQ(levels.at(1), 48.0);
  EXPECT_DOUBLE_EQ(levels.at(2), 50.0);
  EXPECT_DOUBLE_EQ(levels.at(3), 0.0);
  EXPECT_DOUBLE_EQ(levels.at(4), 47.5);
}

// --- An interrupted dispense, reported ------------------------------------------

class InterruptedDispense : public qtest::CircuitEnv {
 protected:
  // Circuit 3 holds colourant 12, circuit 7 colourant 15.
  void SetUpDispenser() {
    AddDispenser("VOREN");
    AddTanks({Circuit(1, 9, 100.0, 0.0, 500.0), Circuit(3, 12, 100.0, 0.0, 500.0),
              Circuit(7, 15, 100.0, 0.0, 500.0)});
  }
};

TEST_F(InterruptedDispense, ReportAndSummariesOfAPartDelivery) {
  SetUpDispenser();
  slave s(1);
  Sim(s)->AddRule("/O*", 0, "(3:10.000:10.000)(7:5.000:2.125)");
  char request[] = "(3:10.000)(7:5.000)";
  char report[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, report, sizeof report), 1);
  EXPECT_EQ(Commands(s), (Strings{"/O(3:10.000)(7:5.000)"}));
  EXPECT_STREQ(report, "(3:10.000:10.000)(7:5.000:2.125)");

  char remaining[128] = "";
  char dispensed[128] = "";
  char total[128] = "";
  EXPECT_EQ(s.FormulaRemainingRequest(report, remaining, 100), 1);
  EXPECT_EQ(s.FormulaDispensedRequest(report, dispensed, 100), 1);
  EXPECT_EQ(s.FormulaTotalOriginalRequest(report, total, 100), 1);
  EXPECT_STREQ(remaining, "12,0.000000,15,2.875000,");
  EXPECT_STREQ(dispensed, "12,10.000000,15,2.125000,");
  EXPECT_STREQ(total, "12,10.000000,15,5.000000,");
}

TEST_F(InterruptedDispense, StoppedDispenseThenReportFromARulesFile) {
  SimRules(
      "# the dispense is stopped half way; the machine reports what it gave\n"
      "/D* 14\n"
      "/O(3:10.000)(7:5.000) 0 (3:10.000:6.500) (7:5.000:0.000)\n");
  SetUpDispenser();
  {
    slave s(1);
    NoPurgeServer(s);
    char formula[] = "(12:10.000)(15:5.000)";
    EXPECT_EQ(s.Dispense(formula, 1.0, 1.0, 0, 1, 0, 0), 0);
    EXPECT_EQ(s.m_LastError, 14);

    char request[] = "(3:10.000)(7:5.000)";
    char report[128] = "";
    EXPECT_EQ(s.DispensedRequest(request, report, sizeof report), 1);
    EXPECT_EQ(Commands(s), (Strings{"/D(3:10.000)(7:5.000)", "/O(3:10.000)(7:5.000)"}));
    EXPECT_STREQ(report, "(3:10.000:6.500)(7:5.000:0.000)");

    char remaining[128] = "";
    EXPECT_EQ(s.FormulaRequest(report, remaining, 100, 0), 1);
    EXPECT_STREQ(remaining, "12,3.500000,15,5.000000,");
    char dispensed[128] = "";
    EXPECT_EQ(s.FormulaRequest(report, dispensed, 100, 1), 1);
    EXPECT_STREQ(dispensed, "12,6.500000,15,0.000000,");
  }
  // The levels were lowered by the whole formula before it was sent.
  const std::map<int, double> levels = LevelsOnDisk();
  EXPECT_DOUBLE_EQ(levels.at(1), 100.0);
  EXPECT_DOUBLE_EQ(levels.at(3), 90.0);
  EXPECT_DOUBLE_EQ(levels.at(7), 95.0);
}

TEST_F(InterruptedDispense, ReportOfACompleteDispenseFromTheIdleMachine) {
  SetUpDispenser();
  slave s(1);
  char request[] = "(1:0.250)(3:10)(7:5.5)";
  char report[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, report, sizeof report), 1);
  EXPECT_EQ(Commands(s), (Strings{"/O(1:0.250)(3:10.000)(7:5.500)"}));
  EXPECT_STREQ(report, "(1:0.250:0.250)(3:10.000:10.000)(7:5.500:5.500)");
  char remaining[128] = "";
  EXPECT_EQ(s.FormulaRemainingRequest(report, remaining, 100), 1);
  EXPECT_STREQ(remaining, "9,0.000000,12,0.000000,15,0.000000,");
}

TEST_F(InterruptedDispense, RequestThatDoesNotBeginWithABracketAsksNothing) {
  SetUpDispenser();
  slave s(1);
  char request[] = "3:10.000";
  char report[128] = "";
  EXPECT_EQ(s.DispensedRequest(request, report, sizeof report), 0);
  EXPECT_TRUE(Commands(s).empty());
}

}  // namespace
