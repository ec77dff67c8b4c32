// Level warnings: the circuits a formula cannot be served from at all
// (GetCircuitsUnderCriticalLevel) and the circuits it would take down to
// their warning level (GetCircuitsUnderWarningLevel), with the formula
// made for a size from a base size and converted from weights on request.
//
// Levels used below: a circuit with current 100 and reserve 20 serves 50
// with margin (50 left, twice the reserve), 70 only just (30 left, at least
// the reserve) and 90 not at all (10 left, under the reserve).
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "circuit_env.h"

namespace {

using qtest::Circuit;

std::vector<int> Items(const Zu_IntArray& a) {
  std::vector<int> v;
  for (int i = 0; i < a.size(); ++i) v.push_back(a[i]);
  return v;
}

using Ints = std::vector<int>;

class LevelWarnings : public qtest::CircuitEnv {
 protected:
  // Colourants 5, 6 and 7 in circuits 1, 2 and 3 (current 100, reserve 20).
  void SetUpThreeColourants() {
    AddDispenser();
    AddTanks({Circuit(1, 5, 100.0, 20.0), Circuit(2, 6, 100.0, 20.0),
              Circuit(3, 7, 100.0, 20.0)});
  }

  void Fill(Zu_IntArray& circuits, Zu_IntArray& colourants) {
    circuits.append(11);
    colourants.append(22);
  }

  Zu_IntArray circuits_;
  Zu_IntArray colourants_;
};

// --- Critical level -------------------------------------------------------

TEST_F(LevelWarnings, CriticalWithEveryColourantAvailableIsZeroWithEmptyLists) {
  SetUpThreeColourants();
  slave s(1);
  Fill(circuits_, colourants_);
  char formula[] = "(5:50.000)(6:70.000)";
  EXPECT_EQ(s.GetCircuitsUnderCriticalLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 0);
  EXPECT_EQ(circuits_.size(), 0);
  EXPECT_EQ(colourants_.size(), 0);
}

TEST_F(LevelWarnings, CriticalListsTheCircuitOfAColourantThatCannotBeServed) {
  SetUpThreeColourants();
  slave s(1);
  char formula[] = "(5:50.000)(6:70.000)(7:90.000)";
  EXPECT_EQ(s.GetCircuitsUnderCriticalLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{3}));
  EXPECT_EQ(Items(colourants_), (Ints{7}));
}

TEST_F(LevelWarnings, CriticalColourantInThreeTanksAddsThreeCircuitsAndThreeIds) {
  AddDispenser();
  AddTanks({Circuit(1, 5, 100.0, 20.0), Circuit(2, 8, 10.0), Circuit(4, 8, 10.0),
            Circuit(7, 8, 10.0)});
  slave s(1);
  char formula[] = "(5:10.000)(8:100.000)";
  EXPECT_EQ(s.GetCircuitsUnderCriticalLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{2, 4, 7}));
  EXPECT_EQ(Items(colourants_), (Ints{8, 8, 8}));
}

TEST_F(LevelWarnings, CriticalListsColourantsInFormulaOrder) {
  SetUpThreeColourants();
  slave s(1);
  char formula[] = "(7:95.000)(5:50.000)(6:99.000)";
  EXPECT_EQ(s.GetCircuitsUnderCriticalLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{3, 2}));
  EXPECT_EQ(Items(colourants_), (Ints{7, 6}));
}

TEST_F(LevelWarnings, CriticalClearsListsHeldBeforehand) {
  SetUpThreeColourants();
  slave s(1);
  Fill(circuits_, colourants_);
  char formula[] = "(6:90.000)";
  EXPECT_EQ(s.GetCircuitsUnderCriticalLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{2}));
  EXPECT_EQ(Items(colourants_), (Ints{6}));
}

TEST_F(LevelWarnings, CriticalOfAnEmptyFormulaIsZero) {
  SetUpThreeColourants();
  slave s(1);
  Fill(circuits_, colourants_);
  char formula[] = "";
  EXPECT_EQ(s.GetCircuitsUnderCriticalLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 0);
  EXPECT_EQ(circuits_.size(), 0);
  EXPECT_EQ(colourants_.size(), 0);
}

TEST_F(LevelWarnings, CriticalScalesBySizeOverBaseSize) {
  SetUpThreeColourants();
  slave s(1);
  // Made three times: 30 becomes 90 and 20 becomes 60.
  char formula[] = "(5:30.000)(6:20.000)";
  EXPECT_EQ(s.GetCircuitsUnderCriticalLevel(formula, 3.0, 1.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{1}));
  EXPECT_EQ(Items(colourants_), (Ints{5}));
}

TEST_F(LevelWarnings, CriticalScalesDownForALargerBaseSize) {
  SetUpThreeColourants();
  slave s(1);
  // Made for a third: 240 becomes 80 (20 left, the reserve), 300 becomes 100.
  char formula[] = "(5:240.000)(6:300.000)";
  EXPECT_EQ(s.GetCircuitsUnderCriticalLevel(formula, 1.0, 3.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{2}));
  EXPECT_EQ(Items(colourants_), (Ints{6}));
}

// With a base size of 0 the formula cannot be made for the size: it is
// judged as written. Circuit 5 at 100 with reserve 20 cannot serve 90.
TEST_F(LevelWarnings, CriticalWithBaseSizeZeroJudgesTheFormulaAsWritten) {
  AddDispenser();
  AddTanks({Circuit(5, 5, 100.0, 20.0)});
  slave s(1);
  Fill(circuits_, colourants_);
  char formula[] = "(5:90.000)";
  EXPECT_EQ(s.GetCircuitsUnderCriticalLevel(formula, 1.0, 0.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{5}));
  EXPECT_EQ(Items(colourants_), (Ints{5}));
}

// 80 g of colourant 5 at 2000 g/l is 40 cc; made twice its base, 80 cc. The
// weights are converted once and the formula scaled once: from 120 with
// reserve 10 that leaves 40, so nothing is critical. (Converting with the
// factor 2 and then scaling by 2 again would judge 160 cc and list circuit
// 1.)
TEST_F(LevelWarnings, CriticalConvertsEightyGramsOnceForTwiceTheBase) {
  AddDispenser();
  AddTanks({Circuit(1, 5, 120.0, 10.0)});
  AddColorant(5, 2000.0);
  slave s(1);
  char formula[] = "(5:80.000)";
  EXPECT_EQ(s.GetCircuitsUnderCriticalLevel(formula, 2.0, 1.0, 1, circuits_, colourants_), 0);
  EXPECT_EQ(circuits_.size(), 0);
  EXPECT_EQ(colourants_.size(), 0);
  // 100 g (50 cc, made twice: 100 cc) would leave 20: still served.
  char more[] = "(5:100.000)";
  EXPECT_EQ(s.GetCircuitsUnderCriticalLevel(more, 2.0, 1.0, 1, circuits_, colourants_), 0);
  // 120 g (60 cc, made twice: 120 cc) leaves nothing over the reserve.
  char most[] = "(5:120.000)";
  EXPECT_EQ(s.GetCircuitsUnderCriticalLevel(most, 2.0, 1.0, 1, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{1}));
}

// Colourant 0 marks an empty tank: a formula that asks for it lists no
// circuit, as for any colourant in no tank (circuit 2 is empty).
TEST_F(LevelWarnings, CriticalListsNoEmptyTankForColourantZero) {
  AddDispenser();
  AddTanks({Circuit(1, 5, 100.0, 20.0), Circuit(2, 0, 100.0, 20.0)});
  slave s(1);
  char formula[] = "(5:10.000)(0:10.000)";
  EXPECT_EQ(s.GetCircuitsUnderCriticalLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(circuits_.size(), 0);
  EXPECT_EQ(colourants_.size(), 0);
}

TEST_F(LevelWarnings, CriticalConvertsWeightsOnceAndScalesOnce) {
  AddDispenser();
  // 100 g at 2000 g/l is 50 cc, made twice: 100 cc. From 120 that leaves
  // 20 (enough over a reserve of 10); from 90 it is not there.
  AddTanks({Circuit(1, 5, 120.0, 10.0), Circuit(2, 6, 90.0, 10.0)});
  AddColorant(5, 2000.0);
  AddColorant(6, 2000.0);
  slave s(1);
  char formula[] = "(5:100.000)(6:100.000)";
  EXPECT_EQ(s.GetCircuitsUnderCriticalLevel(formula, 2.0, 1.0, 1, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{2}));
  EXPECT_EQ(Items(colourants_), (Ints{6}));
}

TEST_F(LevelWarnings, CriticalInModeZeroTakesQuantitiesAsVolumes) {
  AddDispenser();
  AddTanks({Circuit(1, 5, 90.0, 20.0)});
  AddColorant(5, 2000.0);
  slave s(1);
  char formula[] = "(5:100.000)";
  EXPECT_EQ(s.GetCircuitsUnderCriticalLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{1}));
  EXPECT_EQ(Items(colourants_), (Ints{5}));
}

TEST_F(LevelWarnings, CriticalChangesNoLevel) {
  SetUpThreeColourants();
  {
    slave s(1);
    char formula[] = "(5:50.000)(7:90.000)";
    EXPECT_EQ(s.GetCircuitsUnderCriticalLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 1);
  }
  const std::map<int, double> levels = LevelsOnDisk();
  EXPECT_DOUBLE_EQ(levels.at(1), 100.0);
  EXPECT_DOUBLE_EQ(levels.at(2), 100.0);
  EXPECT_DOUBLE_EQ(levels.at(3), 100.0);
}

// --- Warning level: the formula splits ---------------------------------------

TEST_F(LevelWarnings, WarningListsCircuitsTakenToTheirWarningLevel) {
  SetUpThreeColourants();
  slave s(1);
  char formula[] = "(5:50.000)(6:70.000)";
  EXPECT_EQ(s.GetCircuitsUnderWarningLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{2}));
  EXPECT_EQ(Items(colourants_), (Ints{6}));
}

TEST_F(LevelWarnings, WarningThatSplitsAppendsToListsHeldBeforehand) {
  SetUpThreeColourants();
  slave s(1);
  Fill(circuits_, colourants_);
  char formula[] = "(6:70.000)(5:50.000)(7:75.000)";
  EXPECT_EQ(s.GetCircuitsUnderWarningLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{11, 2, 3}));
  EXPECT_EQ(Items(colourants_), (Ints{22, 6, 7}));
}

TEST_F(LevelWarnings, WarningThatSplitsWithNothingShortIsOneAndKeepsTheLists) {
  SetUpThreeColourants();
  slave s(1);
  Fill(circuits_, colourants_);
  char formula[] = "(5:50.000)(6:10.000)";
  EXPECT_EQ(s.GetCircuitsUnderWarningLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{11}));
  EXPECT_EQ(Items(colourants_), (Ints{22}));
}

TEST_F(LevelWarnings, WarningScalesBySizeOverBaseSize) {
  SetUpThreeColourants();
  slave s(1);
  // Made twice: 25 becomes 50, 35 becomes 70.
  char formula[] = "(5:25.000)(6:35.000)";
  EXPECT_EQ(s.GetCircuitsUnderWarningLevel(formula, 2.0, 1.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{2}));
  EXPECT_EQ(Items(colourants_), (Ints{6}));
}

TEST_F(LevelWarnings, WarningWithBaseSizeZeroSplitsWithFactorOne) {
  SetUpThreeColourants();
  slave s(1);
  char formula[] = "(5:50.000)(6:70.000)";
  EXPECT_EQ(s.GetCircuitsUnderWarningLevel(formula, 2.0, 0.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{2}));
  EXPECT_EQ(Items(colourants_), (Ints{6}));
}

TEST_F(LevelWarnings, WarningChecksEachCircuitOfASplitColourant) {
  AddDispenser();
  // 120 of colourant 8 split over the two simultaneous circuits of
  // threshold 10, 60 each: circuit 3 keeps 140 over a reserve of 20,
  // circuit 4 keeps 40 over 30. Circuit 6 (threshold 0) is not drawn from.
  AddTanks({Circuit(3, 8, 200.0, 20.0, 1000.0, 10.0, "10000000"),
            Circuit(4, 8, 100.0, 30.0, 1000.0, 10.0, "10000000"),
            Circuit(6, 8, 500.0, 0.0, 1000.0, 0.0)});
  slave s(1);
  char formula[] = "(8:120.000)";
  EXPECT_EQ(s.GetCircuitsUnderWarningLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{4}));
  EXPECT_EQ(Items(colourants_), (Ints{8}));
}

TEST_F(LevelWarnings, WarningConvertsWeightsWhenAsked) {
  AddDispenser();
  AddTanks({Circuit(1, 5, 100.0, 20.0), Circuit(2, 6, 100.0, 20.0)});
  AddColorant(5, 2000.0);
  AddColorant(6, 2000.0);
  slave s(1);
  Fill(circuits_, colourants_);
  // 100 g is 50 cc (margin kept); 140 g is 70 cc (only just).
  char formula[] = "(5:100.000)(6:140.000)";
  EXPECT_EQ(s.GetCircuitsUnderWarningLevel(formula, 1.0, 1.0, 1, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{11, 2}));
  EXPECT_EQ(Items(colourants_), (Ints{22, 6}));
}

// --- Warning level: the formula does not split ---------------------------------

TEST_F(LevelWarnings, WarningThatCannotSplitClearsListsFirst) {
  SetUpThreeColourants();
  slave s(1);
  Fill(circuits_, colourants_);
  // Colourant 77 is in no tank: the formula does not split.
  char formula[] = "(6:70.000)(77:1.000)";
  EXPECT_EQ(s.GetCircuitsUnderWarningLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{2}));
  EXPECT_EQ(Items(colourants_), (Ints{6}));
}

// With a base size of 0 the fallback judges the formula as written: 70
// from circuit 5 (100, reserve 20) leaves 30, only just served.
TEST_F(LevelWarnings, WarningFallbackWithBaseSizeZeroJudgesTheFormulaAsWritten) {
  AddDispenser();
  AddTanks({Circuit(5, 5, 100.0, 20.0)});
  slave s(1);
  char formula[] = "(5:70.000)(99:1.000)";
  EXPECT_EQ(s.GetCircuitsUnderWarningLevel(formula, 5.0, 0.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{5}));
  EXPECT_EQ(Items(colourants_), (Ints{5}));
}

TEST_F(LevelWarnings, WarningFallbackListsOnlyColourantsOnlyJustServed) {
  SetUpThreeColourants();
  slave s(1);
  // Colourant 7 cannot be served, so the split fails; 5 keeps a margin.
  char formula[] = "(5:50.000)(6:70.000)(7:90.000)";
  EXPECT_EQ(s.GetCircuitsUnderWarningLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{2}));
  EXPECT_EQ(Items(colourants_), (Ints{6}));
}

TEST_F(LevelWarnings, WarningFallbackListsEveryTankOfTheColourant) {
  AddDispenser();
  // Colourant 8 in two linked circuits (2 the master, 5 secondary).
  AddTanks({Circuit(1, 7, 100.0, 20.0), Circuit(2, 8, 100.0, 20.0),
            Circuit(5, 8, -1.0, -1.0, -1.0)});
  slave s(1);
  char formula[] = "(8:70.000)(7:90.000)";
  EXPECT_EQ(s.GetCircuitsUnderWarningLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{2, 5}));
  EXPECT_EQ(Items(colourants_), (Ints{8, 8}));
}

TEST_F(LevelWarnings, WarningFallbackWithNothingOnlyJustServedIsZero) {
  SetUpThreeColourants();
  slave s(1);
  Fill(circuits_, colourants_);
  char formula[] = "(5:50.000)(7:90.000)";
  EXPECT_EQ(s.GetCircuitsUnderWarningLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 0);
  EXPECT_EQ(circuits_.size(), 0);
  EXPECT_EQ(colourants_.size(), 0);
}

TEST_F(LevelWarnings, WarningFallbackScalesBySizeOverBaseSize) {
  SetUpThreeColourants();
  slave s(1);
  // Made twice: 35 becomes 70 (only just), 45 becomes 90 (not at all).
  char formula[] = "(6:35.000)(7:45.000)";
  EXPECT_EQ(s.GetCircuitsUnderWarningLevel(formula, 2.0, 1.0, 0, circuits_, colourants_), 1);
  EXPECT_EQ(Items(circuits_), (Ints{2}));
  EXPECT_EQ(Items(colourants_), (Ints{6}));
}

TEST_F(LevelWarnings, WarningOfAnEmptyFormulaClearsListsAndIsZero) {
  SetUpThreeColourants();
  slave s(1);
  Fill(circuits_, colourants_);
  char formula[] = "";
  EXPECT_EQ(s.GetCircuitsUnderWarningLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 0);
  EXPECT_EQ(circuits_.size(), 0);
  EXPECT_EQ(colourants_.size(), 0);
}

TEST_F(LevelWarnings, WarningChangesNoLevel) {
  SetUpThreeColourants();
  {
    slave s(1);
    char formula[] = "(5:50.000)(6:70.000)";
    EXPECT_EQ(s.GetCircuitsUnderWarningLevel(formula, 1.0, 1.0, 0, circuits_, colourants_), 1);
  }
  const std::map<int, double> levels = LevelsOnDisk();
  EXPECT_DOUBLE_EQ(levels.at(1), 100.0);
  EXPECT_DOUBLE_EQ(levels.at(2), 100.0);
}

}  // namespace
