// The formula level check CheckLevel(formula, ...): the lowest level
// verdict over the tanks a formula draws from, the list of tanks at or
// under their reserve, and the hand-over to machines that judge their
// levels themselves (driver type 9).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dispense_fixture.h"

namespace {

using qtest::Sim;
using qtest::TankOf;

class FormulaCheck : public qtest::DispenseEnv {
 protected:
  // Tanks 1-3 hold colourants 10-30 alone; colourant 40 is in the
  // independent tanks 4 (well filled) and 5 (under its reserve).
  void Build(const std::string& hide_id = "ZARVO") {
    AddDispenser(hide_id);
    AddTanks({TankOf(1, 10, 100.0, 10.0, 200.0), TankOf(2, 20, 100.0, 10.0, 200.0),
              TankOf(3, 30, 500.0, 10.0, 1000.0), TankOf(4, 40, 100.0, 10.0, 200.0),
              TankOf(5, 40, 5.0, 10.0, 200.0)});
    AddColorant(10, "RED", 1250.0);
    AddColorant(20, "OX1", 500.0);
  }

  static int Check(slave& s, const std::string& text, Zu_IntArray* low, double a = 1.0,
                   double b = 1.0, int c = 0) {
    std::string frm = text;
    return s.CheckLevel(&frm[0], a, b, c, low);
  }

  static std::vector<int> Listed(Zu_IntArray& low) {
    std::vector<int> v;
    for (int i = 0; i < low.size(); ++i) v.push_back(low[i]);
    return v;
  }
};

TEST_F(FormulaCheck, PlentyLeftIsTwo) {
  Build();
  slave s(1);
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(10:10.000)(20:20.000)", &low), 2);
  EXPECT_TRUE(Listed(low).empty());
}

TEST_F(FormulaCheck, LeftExactlyTwiceTheReserveIsTwo) {
  Build();
  slave s(1);
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(10:80.000)", &low), 2);
  EXPECT_TRUE(Listed(low).empty());
}

TEST_F(FormulaCheck, LeftUnderTwiceTheReserveIsOneAndListed) {
  Build();
  slave s(1);
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(10:10.000)(20:85.000)", &low), 1);
  EXPECT_EQ(Listed(low), (std::vector<int>{2}));
}

TEST_F(FormulaCheck, LeftExactlyTheReserveIsOne) {
  Build();
  slave s(1);
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(20:90.000)", &low), 1);
  EXPECT_EQ(Listed(low), (std::vector<int>{2}));
}

TEST_F(FormulaCheck, LeftUnderTheReserveIsZero) {
  Build();
  slave s(1);
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(20:95.000)", &low), 0);
}

TEST_F(FormulaCheck, TankAlreadyUnderItsReserveIsZeroAndListed) {
  Build();
  slave s(1);
  Zu_IntArray low;
  // A zero quantity of colourant 40 lists both its tanks; tank 5 is
  // already under its reserve.
  EXPECT_EQ(Check(s, "(40:0.000)", &low), 0);
  EXPECT_EQ(Listed(low), (std::vector<int>{5}));
}

TEST_F(FormulaCheck, EveryRowIsVisitedAfterAZero) {
  Build();
  slave s(1);
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(40:0.000)(20:85.000)(10:1.000)", &low), 0);
  EXPECT_EQ(Listed(low), (std::vector<int>{5, 2}));
}

TEST_F(FormulaCheck, TankInTwoRowsIsCheckedAndListedPerRow) {
  Build();
  slave s(1);
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(20:85.000)(20:86.000)", &low), 1);
  EXPECT_EQ(Listed(low), (std::vector<int>{2, 2}));
}

TEST_F(FormulaCheck, TankInTwoRowsIsJudgedPerRowNotOnTheSum) {
  Build();
  slave s(1);
  Zu_IntArray low;
  // 45 + 45 would leave 10, but each row alone leaves 55.
  EXPECT_EQ(Check(s, "(20:45.000)(20:45.000)", &low), 2);
  EXPECT_TRUE(Listed(low).empty());
}

TEST_F(FormulaCheck, ListIsAppendedTo) {
  Build();
  slave s(1);
  Zu_IntArray low;
  low.append(99);
  EXPECT_EQ(Check(s, "(20:85.000)", &low), 1);
  EXPECT_EQ(Listed(low), (std::vector<int>{99, 2}));
}

TEST_F(FormulaCheck, NullListIsAllowed) {
  Build();
  slave s(1);
  EXPECT_EQ(Check(s, "(20:85.000)", nullptr), 1);
}

TEST_F(FormulaCheck, EmptyFormulaIsZeroNotTwo) {
  Build();
  slave s(1);
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "", &low), 0);
  EXPECT_TRUE(Listed(low).empty());
}

TEST_F(FormulaCheck, ColourantInNoTankIsZero) {
  Build();
  slave s(1);
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(10:1.000)(99:1.000)", &low), 0);
}

TEST_F(FormulaCheck, MalformedFormulaIsZero) {
  Build();
  slave s(1);
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(10:1.000", &low), 0);
}

TEST_F(FormulaCheck, FormulaFactorScalesTheDraw) {
  Build();
  slave s(1);
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(20:42.500)", &low, 2.0), 1);  // 85
  EXPECT_EQ(Listed(low), (std::vector<int>{2}));
}

TEST_F(FormulaCheck, UnitFactorScalesTheDraw) {
  Build();
  slave s(1);
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(20:42.500)", &low, 1.0, 2.0), 1);
  EXPECT_EQ(Check(s, "(20:42.500)", &low, 2.0, 0.5), 2);
}

TEST_F(FormulaCheck, WeightFlagConvertsWeights) {
  Build();
  slave s(1);
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(10:106.250)", &low, 1.0, 1.0, 1), 1);  // 85 cc
  EXPECT_EQ(Check(s, "(10:106.250)", &low, 1.0, 1.0, 0), 0);  // 106.25 cc
}

TEST_F(FormulaCheck, NoDispenserIsZero) {
  Build();
  slave s(5);
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(10:1.000)", &low), 0);
}

// --- Machines that judge their own levels ------------------------------------------

TEST_F(FormulaCheck, TypeNineAsksTheMachineWithColourantCodes) {
  Build("T7R");
  slave s(1);
  ASSERT_EQ(s.m_Dsp->GetType(0, 0), 9);
  Sim(s)->SetSetting("formula_level", "1");
  Sim(s)->ClearHistory();
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(10:5.000)(20:1.500)", &low), 1);
  EXPECT_EQ(qtest::CountOf(DriverCallsOf(s), "CheckFormulaLevel((RED:5.000)(OX1:1.500))"), 1);
  EXPECT_TRUE(Listed(low).empty()) << "the list is not filled on this path";
}

TEST_F(FormulaCheck, TypeNineVerdictIsPassedOnUnchanged) {
  Build("T7R");
  slave s(1);
  Sim(s)->SetSetting("formula_level", "0");
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(10:5.000)", &low), 0);
  Sim(s)->SetSetting("formula_level", "2");
  EXPECT_EQ(Check(s, "(10:5.000)", &low), 2);
}

TEST_F(FormulaCheck, TypeNineScalesAndConvertsBeforeAsking) {
  Build("T7R");
  slave s(1);
  Sim(s)->ClearHistory();
  Zu_IntArray low;
  Check(s, "(10:100.000)", &low, 2.0, 1.0, 1);
  EXPECT_EQ(qtest::CountOf(DriverCallsOf(s), "CheckFormulaLevel((RED:160.000))"), 1)
      << testing::PrintToString(DriverCallsOf(s));
}

TEST_F(FormulaCheck, TypeNineFormulaTranslatingToNothingIsTwoWithoutAsking) {
  Build("T7R");
  slave s(1);
  Sim(s)->SetSetting("formula_level", "0");
  Sim(s)->ClearHistory();
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(30:5.000)", &low), 2);  // colourant 30 has no code
  EXPECT_EQ(qtest::CountPrefix(DriverCallsOf(s), "CheckFormulaLevel("), 0);
}

TEST_F(FormulaCheck, TypeNineEmptyFormulaIsTwo) {
  Build("T7R");
  slave s(1);
  Sim(s)->ClearHistory();
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "", &low), 2);
  EXPECT_EQ(qtest::CountPrefix(DriverCallsOf(s), "CheckFormulaLevel("), 0);
}

// Without a colourant table the formula cannot be put in codes: the level
// cannot be judged, and a level that cannot be judged is not "enough".
TEST_F(FormulaCheck, TypeNineWithoutColourantTableIsZeroWithoutAsking) {
  AddDispenser("T7R");
  AddTanks({TankOf(1, 10, 100.0, 10.0, 200.0)});
  slave s(1);
  Sim(s)->SetSetting("formula_level", "2");
  Sim(s)->ClearHistory();
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(10:5.000)", &low), 0);
  EXPECT_EQ(qtest::CountPrefix(DriverCallsOf(s), "CheckFormulaLevel("), 0);
}

// Colourant 4 in the linked tanks 4 (secondary) and 5 (its master), whose
// cistern 9 is not in the cistern table: the master's quantities cannot be
// had (TankQnts of tank 5 answers 0, of tank 4 -1). A zero draw from tank 4
// is judged on nothing left over no reserve (2); tank 5 answers 0. Only 5
// is low.
TEST_F(FormulaCheck, UnreadableMasterListsOnlyTheMasterForAZeroDraw) {
  AddDispenser();
  AddTanks({qtest::SecondaryOf(4, 4), TankOf(5, 4, 100.0, 0.0, 200.0, 9)});
  slave s(1);
  Zu_IntArray low;
  EXPECT_EQ(Check(s, "(4:0.000)", &low), 0);
  EXPECT_EQ(Listed(low), (std::vector<int>{5}));
}

}  // namespace
