// Colourant and tank queries of the slave: which tanks hold a colourant,
// which tank a quantity comes from, the kind of circuit set, the tank and
// canister fields, a tank's quantities (with the refresh from drivers that
// keep levels of their own and the walk from a secondary tank to its
// master), locating a tank and its cistern, the dispensing resolution, the
// filling position, the per-tank level check and the single-circuit switch.
#include <gtest/gtest.h>
#include <math.h>

#include <map>
#include <string>
#include <vector>

#include "library_env.h"

namespace {

using qtest::CisternRow;
using qtest::CountOf;
using qtest::CountPrefix;
using qtest::DispenserRow;
using qtest::Sim;
using qtest::StandardDispenser;
using qtest::TankRow;

TankRow Tank(int tank, long cnt, double cur = 0.0, double res = 0.0,
             double max = 0.0, double threshold = 0.0) {
  TankRow row;
  row.disp_id = 1;
  row.tank = tank;
  row.cnt_id = cnt;
  row.cur_q = cur;
  row.res_q = res;
  row.max_q = max;
  row.threshold = threshold;
  return row;
}

// A secondary tank of a linked group: no quantities of its own.
TankRow Secondary(int tank, long cnt, double threshold = 0.0) {
  return Tank(tank, cnt, -1.0, -1.0, -1.0, threshold);
}

class TankQueries : public qtest::LibraryEnv {
 protected:
  void AddDispenser(const std::string& hide_id = "ZARVO") {
    DispenserRow row = StandardDispenser(1);
    row.hide_id = hide_id;
    ASSERT_GT(tables_.AddDispenser(row), 0);
  }
  void AddTanks(const std::vector<TankRow>& rows) {
    for (const TankRow& row : rows) ASSERT_GT(tables_.AddTank(row), 0);
  }
  // Tanks 1 to 3 (colourants 4, 5, 6; levels 10, 60 and 5) on a dispenser
  // of the given driver.
  void AddThreeTanks(const char* driver) {
    AddDispenser(driver);
    AddTanks({Tank(1, 4, 10, 1, 20), Tank(2, 5, 60, 10, 100), Tank(3, 6, 5, 1, 9)});
  }
  // The machine's rows for circuits 1 and 2 (level, maximum, reserve).
  static void MachineRowsOfOneAndTwo(slave& s) {
    Sim(s)->SetCircuitLevel(1, 11.0, 21.0, 2.0);
    Sim(s)->SetCircuitLevel(2, 33.5, 200.0, 7.0);
  }

  void AddCistern(long id, int users, double max, double cur, double res) {
    CisternRow row;
    row.id = id;
    row.users = users;
    row.max_q = max;
    row.cur_q = cur;
    row.res_q = res;
    ASSERT_GT(tables_.AddCistern(row), 0);
  }

  // The tank records as an independent dBase reader sees them on disk:
  // TANK -> "CUR_Q|RES_Q|MAX_Q" with three decimals.
  std::map<int, std::string> TankLevelsOnDisk() {
    std::string script =
        "import sys, dbfread\n"
        "t = dbfread.DBF(" + qtest::PyQuote(tables_.FileOf(QDB_SCHEMA_TANKS)) +
        ", load=True)\n"
        "for r in t.records:\n"
        "    sys.stdout.write('%d=%.3f|%.3f|%.3f\\n' % (r['TANK'], r['CUR_Q'], "
        "r['RES_Q'], r['MAX_Q']))\n";
    std::string out;
    std::map<int, std::string> rows;
    if (qtest::RunPython(script, &out) != 0) {
      ADD_FAILURE() << "dbfread failed: " << out;
      return rows;
    }
    size_t pos = 0;
    while (pos < out.size()) {
      size_t end = out.find('\n', pos);
      if (end == std::string::npos) end = out.size();
      std::string line = out.substr(pos, end - pos);
      size_t eq = line.find('=');
      if (eq != std::string::npos) rows[std::stoi(line.substr(0, eq))] = line.substr(eq + 1);
      pos = end + 1;
    }
    return rows;
  }

  std::vector<std::string> CallsOf(const slave& s) {
    return Sim(s) == nullptr ? std::vector<std::string>() : Sim(s)->Calls();
  }
};

// --- NumCnts / CntsList -----------------------------------------------------

TEST_F(TankQueries, NumCntsCountsDifferentColourants) {
  AddDispenser();
  AddTanks({Tank(1, 7), Tank(2, 5), Tank(3, 7), Tank(5, 9)});
  slave s(1);
  ASSERT_EQ(s.m_NumTanks, 5);
  EXPECT_EQ(s.NumCnts(), 3);
}

TEST_F(TankQueries, NumCntsIgnoresEmptyTanks) {
  AddDispenser();
  AddTanks({Tank(1, 0), Tank(2, 4), Tank(3, 0)});
  slave s(1);
  EXPECT_EQ(s.NumCnts(), 1);
}

TEST_F(TankQueries, NumCntsWithoutTanksIsZero) {
  AddDispenser();
  slave s(1);
  ASSERT_EQ(s.m_NumTanks, 0);
  EXPECT_EQ(s.NumCnts(), 0);
}

TEST_F(TankQueries, CntsListInOrderOfFirstAppearance) {
  AddDispenser();
  AddTanks({Tank(1, 7), Tank(2, 5), Tank(3, 7), Tank(5, 9)});
  slave s(1);
  long out[6] = {0, 0, 0, 0, 0, 0};
  s.CntsList(out);
  EXPECT_EQ(out[0], 7);
  EXPECT_EQ(out[1], 5);
  EXPECT_EQ(out[2], 9);
  EXPECT_EQ(out[3], 0);
  EXPECT_EQ(out[4], 0);
  EXPECT_EQ(out[5], 0);
}

TEST_F(TankQueries, CntsListWithoutTanksWritesNothing) {
  AddDispenser();
  slave s(1);
  long out[2] = {0, 0};
  s.CntsList(out);
  EXPECT_EQ(out[0], 0);
  EXPECT_EQ(out[1], 0);
}

// --- CntToNumTanks / CntToTank / CntToTanks ---------------------------------

TEST_F(TankQueries, CntToNumTanksCountsTheTanksOfAColourant) {
  AddDispenser();
  AddTanks({Tank(1, 7), Tank(2, 5), Tank(3, 7), Tank(4, 7)});
  slave s(1);
  EXPECT_EQ(s.CntToNumTanks(7), 3);
  EXPECT_EQ(s.CntToNumTanks(5), 1);
  EXPECT_EQ(s.CntToNumTanks(8), 0);
}

TEST_F(TankQueries, CntToTankIsTheLowestTank) {
  AddDispenser();
  AddTanks({Tank(1, 5), Tank(2, 7), Tank(3, 5), Tank(4, 7)});
  slave s(1);
  EXPECT_EQ(s.CntToTank(7), 2);
  EXPECT_EQ(s.CntToTank(5), 1);
}

TEST_F(TankQueries, CntToTankOfAnAbsentColourantIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 5)});
  slave s(1);
  EXPECT_EQ(s.CntToTank(6), 0);
}

TEST_F(TankQueries, CntToTanksListsAscending) {
  AddDispenser();
  // Records written out of tank order.
  AddTanks({Tank(6, 7), Tank(1, 7), Tank(2, 5), Tank(3, 7)});
  slave s(1);
  int out[5] = {-9, -9, -9, -9, -9};
  s.CntToTanks(7, 5, out);
  EXPECT_EQ(out[0], 1);
  EXPECT_EQ(out[1], 3);
  EXPECT_EQ(out[2], 6);
  EXPECT_EQ(out[3], -9);
  EXPECT_EQ(out[4], -9);
}

TEST_F(TankQueries, CntToTanksStopsAtMax) {
  AddDispenser();
  AddTanks({Tank(1, 7), Tank(2, 7), Tank(3, 7)});
  slave s(1);
  int out[3] = {-9, -9, -9};
  s.CntToTanks(7, 2, out);
  EXPECT_EQ(out[0], 1);
  EXPECT_EQ(out[1], 2);
  EXPECT_EQ(out[2], -9);
}

TEST_F(TankQueries, NegativeColourantIdIsInNoTank) {
  AddDispenser();
  AddTanks({Tank(1, 5), Tank(2, 7)});
  slave s(1);
  EXPECT_EQ(s.CntToNumTanks(-1), 0);
  EXPECT_EQ(s.CntToTank(-1), 0);
  EXPECT_EQ(s.CntQntToTank(-1, 10.0), 0);
  EXPECT_EQ(s.CntToTypeCircuit(-1), 0);
  EXPECT_EQ(s.CntToTypeCircuitNoTh(-1), 0);
}

TEST_F(TankQueries, ColourantIdZeroIsInNoTankWhenEveryTankHoldsOne) {
  AddDispenser();
  AddTanks({Tank(1, 5), Tank(2, 7)});
  slave s(1);
  EXPECT_EQ(s.CntToNumTanks(0), 0);
  EXPECT_EQ(s.CntToTank(0), 0);
  EXPECT_EQ(s.CntQntToTank(0, 10.0), 0);
  EXPECT_EQ(s.CntToTypeCircuit(0), 0);
}

// Colourant 0 marks an empty tank. The three queries count the tanks whose
// colourant is 0 like any other: tanks 2 and 4 here (tanks 1 and 3 hold 5
// and 7).
TEST_F(TankQueries, ColourantZeroQueriesCountTheEmptyTanks) {
  AddDispenser();
  AddTanks({Tank(1, 5), Tank(2, 0), Tank(3, 7), Tank(4, 0)});
  slave s(1);
  EXPECT_EQ(s.CntToNumTanks(0), 2);
  EXPECT_EQ(s.CntToTank(0), 2);
  int tanks[4] = {0, 0, 0, 0};
  s.CntToTanks(0, 4, tanks);
  EXPECT_EQ(tanks[0], 2);
  EXPECT_EQ(tanks[1], 4);
  EXPECT_EQ(tanks[2], 0);
}

// Nothing is dosed from an empty tank: the tank to take a quantity of
// colourant 0 from is none.
TEST_F(TankQueries, CntQntToTankOfColourantZeroIsNone) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 0, 200), Tank(2, 0, 100, 0, 200), Tank(4, 0, 100, 0, 200, 20)});
  slave s(1);
  ASSERT_EQ(s.CntToNumTanks(0), 3) << "tanks 2, 4 and the gap 3";
  EXPECT_EQ(s.CntQntToTank(0, 10.0), 0);
  EXPECT_EQ(s.CntQntToTank(0, 0.0), 0);
  EXPECT_EQ(s.CntQntToTank(0, 30.0), 0);
}

// Empty tanks form no linked group: a secondary tank of colourant 0 does
// not answer, nor book on, another empty tank's record.
TEST_F(TankQueries, SecondaryOfColourantZeroHasNoMaster) {
  AddDispenser();
  AddTanks({Tank(1, 0, 100, 10, 200), Secondary(2, 0)});
  const std::map<int, std::string> before = TankLevelsOnDisk();
  slave s(1);
  double cur = -5.0;
  EXPECT_EQ(s.TankQnts(2, &cur, nullptr, nullptr), 0);
  EXPECT_EQ(cur, 0.0);
  EXPECT_EQ(s.change_level(2, -10.0, 1, 0), 0);
  EXPECT_EQ(TankLevelsOnDisk(), before);
}

// --- CntQntToTank -------------------------------------------------------------

TEST_F(TankQueries, CntQntToTankOfAnAbsentColourantIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 5)});
  slave s(1);
  EXPECT_EQ(s.CntQntToTank(8, 10.0), 0);
}

TEST_F(TankQueries, CntQntToTankWithOneTankIsThatTank) {
  AddDispenser();
  AddTanks({Tank(1, 4), Tank(2, 5, 100, 0, 200, 30)});
  slave s(1);
  EXPECT_EQ(s.CntQntToTank(5, 10.0), 2);
}

TEST_F(TankQueries, CntQntToTankThresholdTwentyTakesTwentyFive) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 0, 200, 0), Tank(2, 5, 100, 0, 200, 20)});
  slave s(1);
  EXPECT_EQ(s.CntQntToTank(5, 25.0), 2);
}

TEST_F(TankQueries, CntQntToTankThresholdZeroTakesTen) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 0, 200, 0), Tank(2, 5, 100, 0, 200, 20)});
  slave s(1);
  EXPECT_EQ(s.CntQntToTank(5, 10.0), 1);
}

TEST_F(TankQueries, CntQntToTankAsksADriverThatKeepsLevelsOnce) {
  // Choosing among a colourant's tanks reads the level of each: the
  // machine's rows are fetched once for the call, not once per tank.
  AddDispenser("LIQON");
  AddTanks({Tank(1, 5, 100, 0, 200), Tank(2, 5, 100, 0, 200), Tank(3, 5, 100, 0, 200)});
  slave s(1);
  ASSERT_NE(Sim(s), nullptr);
  Sim(s)->SetCircuitLevel(1, 10.0, 200.0, 0.0);
  Sim(s)->SetCircuitLevel(2, 150.0, 200.0, 0.0);
  Sim(s)->SetCircuitLevel(3, 20.0, 200.0, 0.0);
  Sim(s)->ClearHistory();
  // The machine's figures decide: tank 2 holds most.
  EXPECT_EQ(s.CntQntToTank(5, 10.0), 2);
  EXPECT_EQ(CountPrefix(CallsOf(s), "GetCircuitLevels("), 1);
}

TEST_F(TankQueries, CntQntToTankZeroQuantityIsTheLowestTank) {
  AddDispenser();
  AddTanks({Tank(1, 4), Tank(2, 5, 10, 0, 200, 20), Tank(3, 5, 100, 0, 200, 0)});
  slave s(1);
  EXPECT_EQ(s.CntQntToTank(5, 0.0), 2);
}

TEST_F(TankQueries, CntQntToTankEqualZeroThresholdsPickMostColourant) {
  AddDispenser();
  AddTanks({Tank(1, 5, 10, 0, 200, 0), Tank(2, 5, 40, 0, 200, 0),
            Tank(3, 5, 30, 0, 200, 0)});
  slave s(1);
  EXPECT_EQ(s.CntQntToTank(5, 15.0), 2);
}

TEST_F(TankQueries, CntQntToTankSameThresholdGroupPicksMostColourant) {
  AddDispenser();
  AddTanks({Tank(1, 5, 10, 0, 200, 20), Tank(2, 5, 50, 0, 200, 20),
            Tank(3, 5, 100, 0, 200, 0)});
  slave s(1);
  EXPECT_EQ(s.CntQntToTank(5, 25.0), 2);
}

TEST_F(TankQueries, CntQntToTankHighestThresholdNotAboveTheQuantity) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 0, 200, 0), Tank(2, 5, 100, 0, 200, 10),
            Tank(3, 5, 100, 0, 200, 40)});
  slave s(1);
  EXPECT_EQ(s.CntQntToTank(5, 25.0), 2);
  EXPECT_EQ(s.CntQntToTank(5, 45.0), 3);
  EXPECT_EQ(s.CntQntToTank(5, 5.0), 1);
}

TEST_F(TankQueries, CntQntToTankNoThresholdLowEnoughKeepsTheLowestGroup) {
  AddDispenser();
  // Thresholds 30, 20, 20 and a quantity of 10: no tank may give it, so the
  // lowest-threshold group answers, its tank with most colourant.
  AddTanks({Tank(1, 5, 100, 0, 200, 30), Tank(2, 5, 5, 0, 200, 20),
            Tank(3, 5, 8, 0, 200, 20)});
  slave s(1);
  EXPECT_EQ(s.CntQntToTank(5, 10.0), 3);
}

TEST_F(TankQueries, CntQntToTankSingleCircuitTakesTheLowestThreshold) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 0, 200, 0), Tank(2, 5, 100, 0, 200, 20)});
  slave s(1);
  s.SetSingleCircuit(1);
  EXPECT_EQ(s.CntQntToTank(5, 25.0), 1);
}

// --- CntToTypeCircuit / CntToTypeCircuitNoTh ---------------------------------

TEST_F(TankQueries, TypeCircuitOfAnAbsentColourantIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 5)});
  slave s(1);
  EXPECT_EQ(s.CntToTypeCircuit(6), 0);
  EXPECT_EQ(s.CntToTypeCircuitNoTh(6), 0);
}

TEST_F(TankQueries, TypeCircuitOneTankIsOne) {
  AddDispenser();
  AddTanks({Tank(1, 5, 50, 5, 100, 0)});
  slave s(1);
  EXPECT_EQ(s.CntToTypeCircuit(5), 1);
  EXPECT_EQ(s.CntToTypeCircuitNoTh(5), 1);
}

TEST_F(TankQueries, TypeCircuitLinkedIsThree) {
  AddDispenser();
  AddTanks({Tank(1, 5, 50, 5, 100, 0), Secondary(2, 5, 0)});
  slave s(1);
  EXPECT_EQ(s.CntToTypeCircuit(5), 3);
  EXPECT_EQ(s.CntToTypeCircuitNoTh(5), 3);
}

TEST_F(TankQueries, TypeCircuitIndependentIsTwo) {
  AddDispenser();
  AddTanks({Tank(1, 5, 50, 5, 100, 0), Tank(2, 5, 50, 5, 100, 10)});
  slave s(1);
  EXPECT_EQ(s.CntToTypeCircuit(5), 2);
  EXPECT_EQ(s.CntToTypeCircuitNoTh(5), 2);
}

TEST_F(TankQueries, TypeCircuitIndependentWithEqualThresholdsIsFour) {
  AddDispenser();
  AddTanks({Tank(1, 5, 50, 5, 100, 0), Tank(2, 5, 50, 5, 100, 0)});
  slave s(1);
  EXPECT_EQ(s.CntToTypeCircuit(5), 4);
  EXPECT_EQ(s.CntToTypeCircuitNoTh(5), 2);
}

TEST_F(TankQueries, TypeCircuitEqualThresholdsAnywhereInTheListIsFour) {
  AddDispenser();
  AddTanks({Tank(1, 5, 50, 5, 100, 30), Tank(2, 5, 50, 5, 100, 0),
            Tank(3, 5, 50, 5, 100, 30)});
  slave s(1);
  EXPECT_EQ(s.CntToTypeCircuit(5), 4);
  EXPECT_EQ(s.CntToTypeCircuitNoTh(5), 2);
}

TEST_F(TankQueries, TypeCircuitTwoMastersAndASecondaryIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 5, 50, 5, 100, 0), Tank(2, 5, 50, 5, 100, 10),
            Secondary(3, 5, 20)});
  slave s(1);
  EXPECT_EQ(s.CntToTypeCircuit(5), 0);
  EXPECT_EQ(s.CntToTypeCircuitNoTh(5), 0);
}

// --- TankToTankField / CanisterToCanisterField --------------------------------

TEST_F(TankQueries, TankToTankFieldReadsTheTankNumber) {
  AddDispenser();
  AddTanks({Tank(3, 5), Tank(1, 4), Tank(2, 6)});
  slave s(1);
  EXPECT_EQ(s.TankToTankField(1), 1);
  EXPECT_EQ(s.TankToTankField(2), 2);
  EXPECT_EQ(s.TankToTankField(3), 3);
}

TEST_F(TankQueries, TankToTankFieldOutOfRangeIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 4), Tank(2, 6)});
  slave s(1);
  EXPECT_EQ(s.TankToTankField(0), 0);
  EXPECT_EQ(s.TankToTankField(-1), 0);
  EXPECT_EQ(s.TankToTankField(3), 0);
}

TEST_F(TankQueries, TankToTankFieldOfAGapIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 4), Tank(3, 6)});
  slave s(1);
  EXPECT_EQ(s.TankToTankField(2), 0);
}

TEST_F(TankQueries, TankToTankFieldWithClosedTablesIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 4)});
  slave s(1);
  s.CloseDatabases();
  EXPECT_EQ(s.TankToTankField(1), 0);
}

TEST_F(TankQueries, CanisterFieldOfOrdinaryDriverIsTheNextTank) {
  AddDispenser("ZARVO");
  AddTanks({Tank(1, 4), Tank(2, 6), Tank(3, 7)});
  slave s(1);
  bool a = true;
  bool b = true;
  EXPECT_EQ(s.CanisterToCanisterField(0, &a, &b), 1);
  EXPECT_EQ(s.CanisterToCanisterField(2, &a, &b), 3);
  // Flags are left as they were and the driver is not asked.
  EXPECT_TRUE(a);
  EXPECT_TRUE(b);
  EXPECT_EQ(CountPrefix(CallsOf(s), "GetCanister"), 0);
}

TEST_F(TankQueries, CanisterFieldOfOrdinaryDriverPastTheTanksIsZero) {
  AddDispenser("ZARVO");
  AddTanks({Tank(1, 4), Tank(2, 6)});
  slave s(1);
  EXPECT_EQ(s.CanisterToCanisterField(2, nullptr, nullptr), 0);
  EXPECT_EQ(s.CanisterToCanisterField(-1, nullptr, nullptr), 0);
}

TEST_F(TankQueries, CanisterFieldOfTypeNineComesFromTheDriver) {
  AddDispenser("T7R");
  AddTanks({Tank(1, 4), Tank(2, 6), Tank(3, 7)});
  slave s(1);
  ASSERT_NE(Sim(s), nullptr);
  ASSERT_EQ(s.m_Dsp->GetType(0, 0), 9);
  ASSERT_TRUE(Sim(s)->SetSetting("canister", "2 17 1 0"));
  Sim(s)->ClearHistory();
  bool a = false;
  bool b = true;
  EXPECT_EQ(s.CanisterToCanisterField(2, &a, &b), 17);
  EXPECT_TRUE(a);
  EXPECT_FALSE(b);
  std::vector<std::string> calls = CallsOf(s);
  EXPECT_EQ(CountOf(calls, "GetCanisterField(2)"), 1);
  EXPECT_EQ(CountOf(calls, "GetCanisterFlagA(2)"), 1);
  EXPECT_EQ(CountOf(calls, "GetCanisterFlagB(2)"), 1);
}

TEST_F(TankQueries, CanisterFieldOfTypeNineNeedsNoTankRecord) {
  // The machine's canister 40 exists for the driver even though the table
  // has three tanks: the answer is the driver's.
  AddDispenser("T7R");
  AddTanks({Tank(1, 4), Tank(2, 6), Tank(3, 7)});
  slave s(1);
  ASSERT_NE(Sim(s), nullptr);
  ASSERT_TRUE(Sim(s)->SetSetting("canister", "40 99 0 1"));
  bool a = true;
  bool b = false;
  EXPECT_EQ(s.CanisterToCanisterField(40, &a, &b), 99);
  EXPECT_FALSE(a);
  EXPECT_TRUE(b);
}

TEST_F(TankQueries, CanisterFieldOfTypeNineWithNullFlags) {
  AddDispenser("T7R");
  AddTanks({Tank(1, 4)});
  slave s(1);
  ASSERT_NE(Sim(s), nullptr);
  ASSERT_TRUE(Sim(s)->SetSetting("canister", "0 12 1 1"));
  EXPECT_EQ(s.CanisterToCanisterField(0, nullptr, nullptr), 12);
}

// --- TankAvail ----------------------------------------------------------------

TEST_F(TankQueries, TankAvailOfATankWithARecordIsOne) {
  AddDispenser();
  AddTanks({Tank(1, 4), Tank(2, 6), Tank(4, 7)});
  slave s(1);
  EXPECT_EQ(s.TankAvail(1), 1);
  EXPECT_EQ(s.TankAvail(4), 1);
}

TEST_F(TankQueries, TankAvailOfAGapIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 4), Tank(2, 6), Tank(4, 7)});
  slave s(1);
  EXPECT_EQ(s.TankAvail(3), 0);
}

TEST_F(TankQueries, TankAvailZeroCountsTheTanksWithARecord) {
  AddDispenser();
  AddTanks({Tank(1, 4), Tank(2, 6), Tank(4, 7)});
  slave s(1);
  ASSERT_EQ(s.m_NumTanks, 4);
  EXPECT_EQ(s.TankAvail(0), 3);
}

TEST_F(TankQueries, TankAvailOutOfRangeIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 4), Tank(2, 6)});
  slave s(1);
  EXPECT_EQ(s.TankAvail(-1), 0);
  EXPECT_EQ(s.TankAvail(3), 0);
}

TEST_F(TankQueries, TankAvailWithoutTanksIsZero) {
  AddDispenser();
  slave s(1);
  EXPECT_EQ(s.TankAvail(0), 0);
  EXPECT_EQ(s.TankAvail(1), 0);
}

// --- TankQnts -------------------------------------------------------------------

TEST_F(TankQueries, TankQntsReadsTheTankRecord) {
  AddDispenser();
  AddTanks({Tank(1, 4, 10, 1, 20), Tank(2, 5, 60, 10, 100)});
  slave s(1);
  double cur = -7, res = -7, max = -7;
  EXPECT_EQ(s.TankQnts(2, &cur, &res, &max), 1);
  EXPECT_DOUBLE_EQ(cur, 60.0);
  EXPECT_DOUBLE_EQ(res, 10.0);
  EXPECT_DOUBLE_EQ(max, 100.0);
}

TEST_F(TankQueries, TankQntsAcceptsNullOutputs) {
  AddDispenser();
  AddTanks({Tank(1, 4, 10, 1, 20)});
  slave s(1);
  double cur = -7;
  EXPECT_EQ(s.TankQnts(1, &cur, nullptr, nullptr), 1);
  EXPECT_DOUBLE_EQ(cur, 10.0);
  EXPECT_EQ(s.TankQnts(1, nullptr, nullptr, nullptr), 1);
}

TEST_F(TankQueries, TankQntsLeavesTheTankRecordCurrent) {
  AddDispenser();
  AddTanks({Tank(1, 4, 10, 1, 20), Tank(2, 5, 60, 10, 100), Tank(3, 6, 1, 1, 1)});
  slave s(1);
  ASSERT_EQ(s.TankQnts(2, nullptr, nullptr, nullptr), 1);
  Qdbase* tanks = nullptr;
  ASSERT_EQ(_slv_dbhandles(nullptr, &tanks, nullptr), 1);
  EXPECT_EQ(tanks->RecNo(), s.m_TankRecNo[1]);
}

TEST_F(TankQueries, TankQntsOutOfRangeFailsWithZeroOutputs) {
  AddDispenser();
  AddTanks({Tank(1, 4, 10, 1, 20), Tank(2, 5, 60, 10, 100)});
  slave s(1);
  double cur = -7, res = -7, max = -7;
  EXPECT_EQ(s.TankQnts(3, &cur, &res, &max), 0);
  EXPECT_EQ(cur, 0.0);
  EXPECT_EQ(res, 0.0);
  EXPECT_EQ(max, 0.0);
  cur = res = max = -7;
  EXPECT_EQ(s.TankQnts(0, &cur, &res, &max), 0);
  EXPECT_EQ(cur, 0.0);
  EXPECT_EQ(s.TankQnts(-2, &cur, &res, &max), 0);
}

TEST_F(TankQueries, TankQntsOfAGapFails) {
  AddDispenser();
  AddTanks({Tank(1, 4, 10, 1, 20), Tank(3, 5, 60, 10, 100)});
  slave s(1);
  double cur = -7;
  EXPECT_EQ(s.TankQnts(2, &cur, nullptr, nullptr), 0);
  EXPECT_EQ(cur, 0.0);
}

TEST_F(TankQueries, TankQntsWithoutDispenserFails) {
  AddDispenser();
  AddTanks({Tank(1, 4, 10, 1, 20)});
  slave s(42);  // no such dispenser
  double cur = -7;
  EXPECT_EQ(s.TankQnts(1, &cur, nullptr, nullptr), 0);
  EXPECT_EQ(cur, 0.0);
}

TEST_F(TankQueries, TankQntsWithClosedTablesFails) {
  AddDispenser();
  AddTanks({Tank(1, 4, 10, 1, 20)});
  slave s(1);
  s.CloseDatabases();
  double cur = -7;
  EXPECT_EQ(s.TankQnts(1, &cur, nullptr, nullptr), 0);
  EXPECT_EQ(cur, 0.0);
}

TEST_F(TankQueries, TankQntsOfASecondaryAnswersTheMaster) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100), Secondary(2, 5), Tank(3, 6, 1, 1, 1)});
  slave s(1);
  double cur = -7, res = -7, max = -7;
  EXPECT_EQ(s.TankQnts(2, &cur, &res, &max), 1);
  EXPECT_DOUBLE_EQ(cur, 60.0);
  EXPECT_DOUBLE_EQ(res, 10.0);
  EXPECT_DOUBLE_EQ(max, 100.0);
}

TEST_F(TankQueries, TankQntsOfASecondaryFindsAMasterAboveIt) {
  AddDispenser();
  AddTanks({Secondary(1, 5), Secondary(2, 5), Tank(3, 5, 75, 5, 150)});
  slave s(1);
  double cur = -7, res = -7, max = -7;
  EXPECT_EQ(s.TankQnts(1, &cur, &res, &max), 1);
  EXPECT_DOUBLE_EQ(cur, 75.0);
  EXPECT_DOUBLE_EQ(res, 5.0);
  EXPECT_DOUBLE_EQ(max, 150.0);
}

TEST_F(TankQueries, TankQntsOfASecondaryWithoutMasterFails) {
  AddDispenser();
  AddTanks({Secondary(1, 5), Secondary(2, 5)});
  slave s(1);
  double cur = -7;
  EXPECT_EQ(s.TankQnts(2, &cur, nullptr, nullptr), 0);
}

TEST_F(TankQueries, TankQntsMaximumComesFromTheCistern) {
  AddDispenser();
  TankRow t = Tank(1, 5, 60, 10, 100);
  t.cist_id = 4;
  AddTanks({t});
  AddCistern(4, 1, 500, 300, 20);
  slave s(1);
  double cur = -7, res = -7, max = -7;
  EXPECT_EQ(s.TankQnts(1, &cur, &res, &max), 1);
  // Current and reserve are the tank's own; the maximum is the reservoir's.
  EXPECT_DOUBLE_EQ(cur, 60.0);
  EXPECT_DOUBLE_EQ(res, 10.0);
  EXPECT_DOUBLE_EQ(max, 500.0);
}

TEST_F(TankQueries, TankQntsWithAnUnknownCisternFails) {
  AddDispenser();
  TankRow t = Tank(1, 5, 60, 10, 100);
  t.cist_id = 8;  // no cistern record 8
  AddTanks({t});
  AddCistern(4, 1, 500, 300, 20);
  slave s(1);
  double cur = -7, res = -7, max = -7;
  EXPECT_EQ(s.TankQnts(1, &cur, &res, &max), 0);
  EXPECT_EQ(cur, 0.0);
  EXPECT_EQ(res, 0.0);
  EXPECT_EQ(max, 0.0);
}

TEST_F(TankQueries, TankQntsWithACisternIdButNoCisternTableFails) {
  AddDispenser();
  TankRow t = Tank(1, 5, 60, 10, 100);
  t.cist_id = 4;
  AddTanks({t});
  tables_.Remove(QDB_SCHEMA_CISTERN);
  slave s(1);
  double cur = -7;
  EXPECT_EQ(s.TankQnts(1, &cur, nullptr, nullptr), 0);
  EXPECT_EQ(cur, 0.0);
}

TEST_F(TankQueries, TankQntsOnACopyReadsTheTables) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100)});
  slave s(1);
  slave copy(s);
  ASSERT_EQ(copy.m_Dsp, nullptr);
  double cur = -7, res = -7, max = -7;
  EXPECT_EQ(copy.TankQnts(1, &cur, &res, &max), 1);
  EXPECT_DOUBLE_EQ(cur, 60.0);
  EXPECT_DOUBLE_EQ(res, 10.0);
  EXPECT_DOUBLE_EQ(max, 100.0);
}

TEST_F(TankQueries, TankQntsTypeSevenRefreshesFromTheDriver) {
  AddThreeTanks("LIQON");
  {
    slave s(1);
    ASSERT_NE(Sim(s), nullptr);
    ASSERT_EQ(s.m_Dsp->GetType(0, 0), 7);
    MachineRowsOfOneAndTwo(s);
    Sim(s)->SetCircuitLevel(3, 4.0, 8.0, 0.5);
    Sim(s)->ClearHistory();
    double cur = -7, res = -7, max = -7;
    EXPECT_EQ(s.TankQnts(2, &cur, &res, &max), 1);
    EXPECT_DOUBLE_EQ(cur, 33.5);
    EXPECT_DOUBLE_EQ(res, 7.0);
    EXPECT_DOUBLE_EQ(max, 200.0);
    std::vector<std::string> calls = CallsOf(s);
    EXPECT_EQ(CountPrefix(calls, "GetCircuitLevelsCount("), 1);
    EXPECT_EQ(CountPrefix(calls, "GetCircuitLevels("), 1);
    EXPECT_EQ(CountPrefix(calls, "GetTankLevels("), 0);
  }
  // Only the asked tank's record is written.
  std::map<int, std::string> disk = TankLevelsOnDisk();
  EXPECT_EQ(disk[1], "10.000|1.000|20.000");
  EXPECT_EQ(disk[2], "33.500|7.000|200.000");
  EXPECT_EQ(disk[3], "5.000|1.000|9.000");
}

TEST_F(TankQueries, TankQntsTypeSevenBeyondTheDriverCountKeepsTheTable) {
  AddThreeTanks("LIQON");
  {
    slave s(1);
    ASSERT_NE(Sim(s), nullptr);
    MachineRowsOfOneAndTwo(s);
    double cur = -7, res = -7, max = -7;
    EXPECT_EQ(s.TankQnts(3, &cur, &res, &max), 1);
    EXPECT_DOUBLE_EQ(cur, 5.0);
    EXPECT_DOUBLE_EQ(res, 1.0);
    EXPECT_DOUBLE_EQ(max, 9.0);
  }
  std::map<int, std::string> disk = TankLevelsOnDisk();
  EXPECT_EQ(disk[3], "5.000|1.000|9.000");
}

// --- slave::TanksQnts ------------------------------------------------------------

TEST_F(TankQueries, TanksQntsAnswersWhatTankQntsAnswersForEachTank) {
  // A linked pair (3 a secondary of 2), a tank without a record (4), a
  // circuit beyond the dispenser (9) and one below 1.
  AddDispenser();
  AddTanks({Tank(1, 4, 10, 1, 20), Tank(2, 5, 60, 10, 100), Secondary(3, 5)});
  slave s(1);
  const int tanks[] = {1, 3, 2, 4, 9, 0, 1};
  const int n = static_cast<int>(sizeof tanks / sizeof tanks[0]);
  double cur[n], res[n], max[n];
  int known[n];
  EXPECT_EQ(s.TanksQnts(n, tanks, cur, res, max, known), 4);
  for (int i = 0; i < n; ++i) {
    double c = -7, r = -7, m = -7;
    const int one = s.TankQnts(tanks[i], &c, &r, &m);
    EXPECT_EQ(known[i], one) << "tank " << tanks[i];
    EXPECT_DOUBLE_EQ(cur[i], c) << "tank " << tanks[i];
    EXPECT_DOUBLE_EQ(res[i], r) << "tank " << tanks[i];
    EXPECT_DOUBLE_EQ(max[i], m) << "tank " << tanks[i];
  }
  EXPECT_DOUBLE_EQ(cur[1], 60.0);  // the secondary answers its master's
}

TEST_F(TankQueries, TanksQntsTakesNullQuantityArrays) {
  AddDispenser();
  AddTanks({Tank(1, 4, 10, 1, 20), Tank(2, 5, 60, 10, 100)});
  slave s(1);
  const int tanks[] = {2, 1};
  double cur[2] = {-7, -7};
  int known[2] = {-7, -7};
  EXPECT_EQ(s.TanksQnts(2, tanks, cur, nullptr, nullptr, known), 2);
  EXPECT_DOUBLE_EQ(cur[0], 60.0);
  EXPECT_DOUBLE_EQ(cur[1], 10.0);
  EXPECT_EQ(known[0], 1);
  EXPECT_EQ(known[1], 1);
}

TEST_F(TankQueries, TanksQntsRefusesWhatNamesNoList) {
  AddDispenser();
  AddTanks({Tank(1, 4, 10, 1, 20)});
  slave s(1);
  const int tanks[] = {1};
  double cur[1] = {-7};
  int known[1] = {-7};
  EXPECT_EQ(s.TanksQnts(-1, tanks, cur, nullptr, nullptr, known), 0);
  EXPECT_EQ(s.TanksQnts(1, nullptr, cur, nullptr, nullptr, known), 0);
  EXPECT_EQ(s.TanksQnts(1, tanks, cur, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(known[0], -7);  // nothing written
  EXPECT_DOUBLE_EQ(cur[0], -7.0);
  EXPECT_EQ(s.TanksQnts(0, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
}

TEST_F(TankQueries, TanksQntsAsksADriverThatKeepsLevelsOnceAndCopiesItsFigures) {
  // Every tank of a driver-kept dispenser in one call: the machine's rows
  // are fetched once (not once per tank) and its figures copied into the
  // records, as TankQnts copies them.
  AddThreeTanks("LIQON");
  {
    slave s(1);
    ASSERT_NE(Sim(s), nullptr);
    MachineRowsOfOneAndTwo(s);
    Sim(s)->SetCircuitLevel(3, 4.0, 8.0, 0.5);
    Sim(s)->ClearHistory();
    const int tanks[] = {1, 2, 3};
    double cur[3], res[3], max[3];
    int known[3];
    EXPECT_EQ(s.TanksQnts(3, tanks, cur, res, max, known), 3);
    EXPECT_DOUBLE_EQ(cur[1], 33.5);
    EXPECT_DOUBLE_EQ(res[1], 7.0);
    EXPECT_DOUBLE_EQ(max[1], 200.0);
    EXPECT_EQ(CountPrefix(CallsOf(s), "GetCircuitLevels("), 1);
  }
  std::map<int, std::string> disk = TankLevelsOnDisk();
  EXPECT_EQ(disk[1], "11.000|2.000|21.000");
  EXPECT_EQ(disk[2], "33.500|7.000|200.000");
  EXPECT_EQ(disk[3], "4.000|0.500|8.000");
}

TEST_F(TankQueries, TankQntsTypeSevenWithoutDriverLevelsReadsTheTable) {
  AddDispenser("LIQON");
  AddTanks({Tank(1, 4, 10, 1, 20)});
  slave s(1);
  double cur = -7, res = -7, max = -7;
  EXPECT_EQ(s.TankQnts(1, &cur, &res, &max), 1);
  EXPECT_DOUBLE_EQ(cur, 10.0);
  EXPECT_DOUBLE_EQ(res, 1.0);
  EXPECT_DOUBLE_EQ(max, 20.0);
}

TEST_F(TankQueries, TankQntsOtherTypesRefreshFromTankLevels) {
  AddThreeTanks("ZARVO");
  {
    slave s(1);
    ASSERT_NE(Sim(s), nullptr);
    ASSERT_EQ(s.m_Dsp->GetType(0, 0), 2);
    Sim(s)->SetCircuitLevel(1, 11.0, 21.0, 2.0);
    Sim(s)->SetCircuitLevel(3, 44.0, 150.0, 6.0);
    Sim(s)->ClearHistory();
    double cur = -7, res = -7, max = -7;
    EXPECT_EQ(s.TankQnts(3, &cur, &res, &max), 1);
    EXPECT_DOUBLE_EQ(cur, 44.0);
    EXPECT_DOUBLE_EQ(res, 6.0);
    EXPECT_DOUBLE_EQ(max, 150.0);
    // One call counts the rows, a second fetches them.
    EXPECT_EQ(CountOf(CallsOf(s), "GetTankLevels(1,0)"), 2);
    EXPECT_EQ(CountPrefix(CallsOf(s), "GetCircuitLevels"), 0);
  }
  std::map<int, std::string> disk = TankLevelsOnDisk();
  EXPECT_EQ(disk[1], "10.000|1.000|20.000");
  EXPECT_EQ(disk[2], "60.000|10.000|100.000");
  EXPECT_EQ(disk[3], "44.000|6.000|150.000");
}

TEST_F(TankQueries, TankQntsOtherTypesWithoutRowsAskOnce) {
  AddDispenser("ZARVO");
  AddTanks({Tank(1, 4, 10, 1, 20)});
  slave s(1);
  ASSERT_NE(Sim(s), nullptr);
  Sim(s)->ClearHistory();
  double cur = -7;
  EXPECT_EQ(s.TankQnts(1, &cur, nullptr, nullptr), 1);
  EXPECT_DOUBLE_EQ(cur, 10.0);
  EXPECT_EQ(CountOf(CallsOf(s), "GetTankLevels(1,0)"), 1);
}

TEST_F(TankQueries, TankQntsOtherTypesWithoutAMatchingRowKeepTheTable) {
  AddDispenser("ZARVO");
  AddTanks({Tank(1, 4, 10, 1, 20), Tank(2, 5, 60, 10, 100)});
  {
    slave s(1);
    ASSERT_NE(Sim(s), nullptr);
    Sim(s)->SetCircuitLevel(5, 44.0, 150.0, 6.0);
    double cur = -7, res = -7, max = -7;
    EXPECT_EQ(s.TankQnts(2, &cur, &res, &max), 1);
    EXPECT_DOUBLE_EQ(cur, 60.0);
    EXPECT_DOUBLE_EQ(res, 10.0);
    EXPECT_DOUBLE_EQ(max, 100.0);
  }
  std::map<int, std::string> disk = TankLevelsOnDisk();
  EXPECT_EQ(disk[2], "60.000|10.000|100.000");
}

// --- TankLocate -------------------------------------------------------------------

TEST_F(TankQueries, TankLocateWithoutCisternIsOneOnTheRecord) {
  AddDispenser();
  AddTanks({Tank(1, 4), Tank(2, 5), Tank(3, 6)});
  slave s(1);
  EXPECT_EQ(s.TankLocate(2), 1);
  Qdbase* tanks = nullptr;
  ASSERT_EQ(_slv_dbhandles(nullptr, &tanks, nullptr), 1);
  EXPECT_EQ(tanks->RecNo(), s.m_TankRecNo[1]);
  int field = 0;
  ASSERT_EQ(tanks->ReadInt("TANK", &field), 1);
  EXPECT_EQ(field, 2);
}

TEST_F(TankQueries, TankLocateWithAKnownCisternIsOneOnBothRecords) {
  AddDispenser();
  TankRow t = Tank(2, 5);
  t.cist_id = 6;
  AddTanks({Tank(1, 4), t});
  AddCistern(3, 1, 1, 1, 1);
  AddCistern(6, 1, 2, 2, 2);
  AddCistern(9, 1, 3, 3, 3);
  slave s(1);
  EXPECT_EQ(s.TankLocate(2), 1);
  Qdbase* tanks = nullptr;
  Qdbase* cist = nullptr;
  ASSERT_EQ(_slv_dbhandles(nullptr, &tanks, &cist), 1);
  ASSERT_NE(cist, nullptr);
  EXPECT_EQ(tanks->RecNo(), s.m_TankRecNo[1]);
  long id = 0;
  ASSERT_EQ(cist->ReadLong("ID", &id), 1);
  EXPECT_EQ(id, 6);
}

TEST_F(TankQueries, TankLocateWithAnUnknownCisternIsTwo) {
  AddDispenser();
  TankRow t = Tank(1, 5);
  t.cist_id = 7;
  AddTanks({t});
  AddCistern(3, 1, 1, 1, 1);
  slave s(1);
  EXPECT_EQ(s.TankLocate(1), 2);
}

TEST_F(TankQueries, TankLocateWithoutCisternTableIsOne) {
  AddDispenser();
  TankRow t = Tank(1, 5);
  t.cist_id = 7;
  AddTanks({t});
  tables_.Remove(QDB_SCHEMA_CISTERN);
  slave s(1);
  EXPECT_EQ(s.TankLocate(1), 1);
}

TEST_F(TankQueries, TankLocateOutOfRangeOrGapIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 4), Tank(3, 6)});
  slave s(1);
  EXPECT_EQ(s.TankLocate(0), 0);
  EXPECT_EQ(s.TankLocate(-1), 0);
  EXPECT_EQ(s.TankLocate(4), 0);
  EXPECT_EQ(s.TankLocate(2), 0);
}

TEST_F(TankQueries, TankLocateWithoutDispenserIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 4)});
  slave s(42);
  EXPECT_EQ(s.TankLocate(1), 0);
}

TEST_F(TankQueries, TankLocateWithClosedTablesIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 4)});
  slave s(1);
  s.CloseDatabases();
  EXPECT_EQ(s.TankLocate(1), 0);
}

// --- TankResolution -----------------------------------------------------------------

TEST_F(TankQueries, TankResolutionFound) {
  AddDispenser();
  TankRow t = Tank(2, 5);
  t.resolut = 0.05;
  AddTanks({Tank(1, 4), t});
  slave s(1);
  trace_.clear();
  double res = -1;
  EXPECT_EQ(s.TankResolution(2, &res), 1);
  EXPECT_DOUBLE_EQ(res, 0.05);
  std::vector<std::string> m = trace_.messages();
  ASSERT_EQ(m.size(), 2u);
  EXPECT_EQ(m[0], "\nslave:TankResolution called with param=2");
  EXPECT_EQ(m[1], "\n02)slave:TankResolution - minimal resolution found = 0.0500");
}

TEST_F(TankQueries, TankResolutionNotFound) {
  AddDispenser();
  AddTanks({Tank(1, 4)});  // RESOLUT 0
  slave s(1);
  trace_.clear();
  double res = -1;
  EXPECT_EQ(s.TankResolution(1, &res), 0);
  EXPECT_EQ(res, 0.0);
  std::vector<std::string> m = trace_.messages();
  ASSERT_EQ(m.size(), 2u);
  EXPECT_EQ(m[0], "\nslave:TankResolution called with param=1");
  EXPECT_EQ(m[1], "\n02)slave:TankResolution - minimal resolution NOT found");
}

TEST_F(TankQueries, TankResolutionSmallestStoredValueIsFound) {
  // RESOLUT holds four decimals; 0.0001 is above the 1e-6 floor, so it is
  // found, while a stored 0 is not (previous test).
  AddDispenser();
  TankRow t = Tank(1, 4);
  t.resolut = 0.0001;
  AddTanks({t});
  slave s(1);
  trace_.clear();
  double res = -1;
  EXPECT_EQ(s.TankResolution(1, &res), 1);
  EXPECT_DOUBLE_EQ(res, 0.0001);
  EXPECT_EQ(CountOf(trace_.messages(),
                    "\n02)slave:TankResolution - minimal resolution found = 0.0001"),
            1);
}

TEST_F(TankQueries, TankResolutionNullOutput) {
  AddDispenser();
  AddTanks({Tank(1, 4)});
  slave s(1);
  trace_.clear();
  EXPECT_EQ(s.TankResolution(1, nullptr), 0);
  std::vector<std::string> m = trace_.messages();
  ASSERT_EQ(m.size(), 2u);
  EXPECT_EQ(m[0], "\nslave:TankResolution called with param=1");
  EXPECT_EQ(m[1], "\nslave:TankResolution - invalid parameter");
}

TEST_F(TankQueries, TankResolutionClosedTables) {
  AddDispenser();
  TankRow t = Tank(1, 4);
  t.resolut = 0.05;
  AddTanks({t});
  slave s(1);
  s.CloseDatabases();
  trace_.clear();
  double res = -1;
  EXPECT_EQ(s.TankResolution(1, &res), 0);
  EXPECT_EQ(res, 0.0);
  std::vector<std::string> m = trace_.messages();
  ASSERT_FALSE(m.empty());
  EXPECT_EQ(m.front(), "\nslave:TankResolution called with param=1");
  EXPECT_EQ(m.back(), "\nslave:TankResolution - unable to open tanks.dbf");
}

TEST_F(TankQueries, TankResolutionGapHasAnInvalidRecordNumber) {
  AddDispenser();
  AddTanks({Tank(1, 4), Tank(3, 6)});
  slave s(1);
  trace_.clear();
  double res = -1;
  EXPECT_EQ(s.TankResolution(2, &res), 0);
  EXPECT_EQ(res, 0.0);
  std::vector<std::string> m = trace_.messages();
  ASSERT_EQ(m.size(), 2u);
  EXPECT_EQ(m[0], "\nslave:TankResolution called with param=2");
  EXPECT_EQ(m[1], "\nslave:TankResolution - invalid recno 0 for tank 2");
}

TEST_F(TankQueries, TankResolutionOfAllTanksIsNeverFound) {
  // Tank 0 asks for the smallest resolution over all tanks. The search
  // starts from 0 and only takes smaller values, so it never finds one,
  // even though every tank has a resolution.
  AddDispenser();
  TankRow a = Tank(1, 4);
  a.resolut = 0.05;
  TankRow b = Tank(2, 5);
  b.resolut = 0.02;
  AddTanks({a, b});
  slave s(1);
  trace_.clear();
  double res = -1;
  EXPECT_EQ(s.TankResolution(0, &res), 0);
  EXPECT_EQ(res, 0.0);
  std::vector<std::string> m = trace_.messages();
  ASSERT_EQ(m.size(), 2u);
  EXPECT_EQ(m[0], "\nslave:TankResolution called with param=0");
  EXPECT_EQ(m[1], "\n01)slave:TankResolution - minimal resolution NOT found");
}

TEST_F(TankQueries, TankResolutionOutOfRangeAsksForAllTanks) {
  AddDispenser();
  TankRow a = Tank(1, 4);
  a.resolut = 0.05;
  AddTanks({a});
  slave s(1);
  trace_.clear();
  double res = -1;
  EXPECT_EQ(s.TankResolution(9, &res), 0);
  EXPECT_EQ(res, 0.0);
  EXPECT_EQ(CountOf(trace_.messages(), "\nslave:TankResolution called with param=9"), 1);
  EXPECT_EQ(CountOf(trace_.messages(),
                    "\n01)slave:TankResolution - minimal resolution NOT found"),
            1);
  trace_.clear();
  EXPECT_EQ(s.TankResolution(-3, &res), 0);
  EXPECT_EQ(CountOf(trace_.messages(), "\nslave:TankResolution called with param=-3"), 1);
  EXPECT_EQ(CountOf(trace_.messages(),
                    "\n01)slave:TankResolution - minimal resolution NOT found"),
            1);
}

TEST_F(TankQueries, TankResolutionWithoutTanksIsNotFound) {
  AddDispenser();
  slave s(1);
  trace_.clear();
  double res = -1;
  EXPECT_EQ(s.TankResolution(1, &res), 0);
  EXPECT_EQ(res, 0.0);
  std::vector<std::string> m = trace_.messages();
  ASSERT_EQ(m.size(), 2u);
  EXPECT_EQ(m[0], "\nslave:TankResolution called with param=1");
  EXPECT_EQ(m[1], "\n01)slave:TankResolution - minimal resolution NOT found");
}

// --- MoveToFill ----------------------------------------------------------------------

TEST_F(TankQueries, MoveToFillAsksTheDriver) {
  AddDispenser();
  AddTanks({Tank(1, 4), Tank(2, 5), Tank(3, 6)});
  slave s(1);
  ASSERT_NE(Sim(s), nullptr);
  Sim(s)->ClearHistory();
  EXPECT_EQ(s.MoveToFill(3), 1);
  EXPECT_EQ(CountOf(CallsOf(s), "MoveToFill(1,3)"), 1);
}

TEST_F(TankQueries, MoveToFillRefusedByTheDriverIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 4)});
  slave s(1);
  ASSERT_NE(Sim(s), nullptr);
  ASSERT_TRUE(Sim(s)->SetSetting("movetofill", "3"));
  EXPECT_EQ(s.MoveToFill(1), 0);
}

TEST_F(TankQueries, MoveToFillWithoutDriverIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 4)});
  slave s(42);
  ASSERT_EQ(s.m_Dsp, nullptr);
  EXPECT_EQ(s.MoveToFill(1), 0);
}

// --- CheckLevel ----------------------------------------------------------------------

TEST_F(TankQueries, CheckLevelTwiceTheReserveLeftIsTwo) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100)});
  slave s(1);
  EXPECT_EQ(s.CheckLevel(1, 40.0), 2);
}

TEST_F(TankQueries, CheckLevelAboveTheReserveIsOne) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100)});
  slave s(1);
  EXPECT_EQ(s.CheckLevel(1, 45.0), 1);
  EXPECT_EQ(s.CheckLevel(1, 50.0), 1);
}

TEST_F(TankQueries, CheckLevelUnderTheReserveIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100)});
  slave s(1);
  EXPECT_EQ(s.CheckLevel(1, 55.0), 0);
}

TEST_F(TankQueries, CheckLevelOfASecondaryUsesTheMaster) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100), Secondary(2, 5)});
  slave s(1);
  EXPECT_EQ(s.CheckLevel(2, 40.0), 2);
  EXPECT_EQ(s.CheckLevel(2, 45.0), 1);
  EXPECT_EQ(s.CheckLevel(2, 55.0), 0);
}

TEST_F(TankQueries, CheckLevelOfAnUnknownTankIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100)});
  slave s(1);
  EXPECT_EQ(s.CheckLevel(2, 1.0), 0);
  EXPECT_EQ(s.CheckLevel(0, 1.0), 0);
}

TEST_F(TankQueries, CheckLevelWithClosedTablesIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100)});
  slave s(1);
  s.CloseDatabases();
  EXPECT_EQ(s.CheckLevel(1, 1.0), 0);
}

// Tank 4 is a secondary of colourant 4 whose master, tank 5, names cistern
// 9, which the cistern table lacks: TankQnts(4) answers -1 and leaves the
// quantities 0, so the verdict is that of 0 - qnt over a reserve of 0.
TEST_F(TankQueries, CheckLevelOfASecondaryWithAnUnreadableMasterJudgesZeros) {
  AddDispenser();
  TankRow master = Tank(5, 4, 100, 0, 200);
  master.cist_id = 9;
  AddTanks({Secondary(4, 4), master});
  slave s(1);
  double cur = 1.0;
  ASSERT_EQ(s.TankQnts(4, &cur, nullptr, nullptr), -1);
  ASSERT_EQ(s.TankQnts(5, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(s.CheckLevel(4, 0.0), 2);
  EXPECT_EQ(s.CheckLevel(4, 1.0), 0);
  EXPECT_EQ(s.CheckLevel(5, 0.0), 0);
}

// --- SetSingleCircuit ------------------------------------------------------------------

TEST_F(TankQueries, SetSingleCircuitTakesZeroAndOne) {
  AddDispenser();
  slave s(1);
  ASSERT_EQ(s.m_SingleCircuit, 0);
  s.SetSingleCircuit(1);
  EXPECT_EQ(s.m_SingleCircuit, 1);
  s.SetSingleCircuit(0);
  EXPECT_EQ(s.m_SingleCircuit, 0);
}

TEST_F(TankQueries, SetSingleCircuitIgnoresOtherValues) {
  AddDispenser();
  slave s(1);
  s.SetSingleCircuit(1);
  s.SetSingleCircuit(2);
  EXPECT_EQ(s.m_SingleCircuit, 1);
  s.SetSingleCircuit(-1);
  EXPECT_EQ(s.m_SingleCircuit, 1);
  s.SetSingleCircuit(0);
  s.SetSingleCircuit(7);
  EXPECT_EQ(s.m_SingleCircuit, 0);
}

}  // namespace
