// Purge operations: Purge, SelectivePurge, CanisterPurge and Test, by the
// machine's own purge commands (driver type 9), by the driver's purge of a
// circuit list, and by ordinary dispensing in groups between "/G2" and
// "/G0"; the levels booked for each way, the record of what was purged,
// and refused quantities.
#include <gtest/gtest.h>
#include <math.h>

#include <limits>
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

class Purges : public qtest::CircuitEnv {
 protected:
  // Circuits 1, 3 and 5 hold colourant (12, 12, 20); circuit 2 is loaded
  // with colourant 15 but empty; circuit 4 holds nothing.
  void AddFiveCircuits() {
    AddTanks({Circuit(1, 12, 50.0, 0.0, 100.0), Circuit(2, 15, 0.0, 0.0, 100.0),
              Circuit(3, 12, 30.0, 0.0, 100.0), Circuit(4, 0, 0.0, 0.0, 100.0),
              Circuit(5, 20, 40.0, 0.0, 100.0)});
  }

  // n circuits, circuit c holding colourant 100 + c at level 50.
  void AddCircuits(int n) {
    std::vector<TankRow> rows;
    for (int c = 1; c <= n; ++c) rows.push_back(Circuit(c, 100 + c, 50.0, 0.0, 100.0));
    AddTanks(rows);
  }

  // The purge-quantity refusal: its trace line was written.
  bool QuantityRefusalTraced() {
    for (const std::string& m : trace_.messages()) {
      if (m.compare(0, 11, "\nslv_purge(") == 0 &&
          m.find("purge quantity") != std::string::npos) {
        return true;
      }
    }
    return false;
  }
};

// --- Purge: dispensing in groups ------------------------------------------

TEST_F(Purges, PurgeByDispensingSendsHoldingCircuitsBetweenGroupCommands) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  NoPurgeServer(s);
  EXPECT_EQ(s.Purge(2.0, nullptr, true, false), 1);
  EXPECT_EQ(Commands(s), (Strings{"/G2", "/D(1:2.000)(3:2.000)(5:2.000)", "/G0"}));
  EXPECT_EQ(CallsOf(s, "PurgeCircuits"), (Strings{"PurgeCircuits(3,[1,3,5],2.000)"}));
  EXPECT_DOUBLE_EQ(Level(s, 1), 48.0);
  EXPECT_DOUBLE_EQ(Level(s, 2), 0.0);
  EXPECT_DOUBLE_EQ(Level(s, 3), 28.0);
  EXPECT_DOUBLE_EQ(Level(s, 5), 38.0);
}

TEST_F(Purges, PurgeByDispensingWithoutGroupFlagSendsNoGroupCommands) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  NoPurgeServer(s);
  EXPECT_EQ(s.Purge(2.0, nullptr, true, false), 1);
  EXPECT_EQ(Commands(s), (Strings{"/D(1:2.000)(3:2.000)(5:2.000)"}));
}

TEST_F(Purges, PurgeByDispensingGoesInGroupsOfEight) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddCircuits(10);
  slave s(1);
  NoPurgeServer(s);
  EXPECT_EQ(s.Purge(1.5, nullptr, true, false), 1);
  EXPECT_EQ(Commands(s),
            (Strings{"/G2",
                     "/D(1:1.500)(2:1.500)(3:1.500)(4:1.500)(5:1.500)(6:1.500)(7:1.500)(8:1.500)",
                     "/D(9:1.500)(10:1.500)", "/G0"}));
}

TEST_F(Purges, PurgeOnTypeEightDispensesAllCircuitsInOneGroup) {
  AddDispenser("VEX");
  AddCircuits(10);
  slave s(1);
  NoPurgeServer(s);
  ASSERT_EQ(s.m_Dsp->GetType(0, 0), 8);
  EXPECT_EQ(s.Purge(1.0, nullptr, true, false), 1);
  EXPECT_EQ(Commands(s), (Strings{"/D(1:1.000)(2:1.000)(3:1.000)(4:1.000)(5:1.000)(6:1.000)"
                                  "(7:1.000)(8:1.000)(9:1.000)(10:1.000)"}));
}

TEST_F(Purges, PurgeOneByOneDispensesEachCircuitAlone) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  NoPurgeServer(s);
  EXPECT_EQ(s.Purge(2.0, nullptr, true, true), 1);
  EXPECT_EQ(Commands(s), (Strings{"/G2", "/D(1:2.000)", "/D(3:2.000)", "/D(5:2.000)", "/G0"}));
}

TEST_F(Purges, PurgeByDispensingRecordsEachCircuitsColourant) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  NoPurgeServer(s);
  Zu_Frm record;
  EXPECT_EQ(s.Purge(2.0, &record, true, false), 1);
  EXPECT_STREQ(record.text(), "(12:2.000)(12:2.000)(20:2.000)");
}

TEST_F(Purges, PurgeByDispensingAnswersTheLastGroupRefused) {
  AddDispenser("ZARVO");
  AddCircuits(10);
  slave s(1);
  NoPurgeServer(s);
  Sim(s)->AddRule("/D(9:*", 4);
  EXPECT_EQ(s.Purge(1.0, nullptr, true, false), 0);
  EXPECT_EQ(Commands(s).size(), 2u);
}

TEST_F(Purges, PurgeByDispensingAnswersTheLastGroupAccepted) {
  AddDispenser("ZARVO");
  AddCircuits(10);
  slave s(1);
  NoPurgeServer(s);
  Sim(s)->AddRule("/D(1:*", 4);
  EXPECT_EQ(s.Purge(1.0, nullptr, true, false), 1);
  EXPECT_EQ(Commands(s).size(), 2u);
}

TEST_F(Purges, PurgeByDispensingLowersLevelsOfRefusedGroups) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  NoPurgeServer(s);
  Sim(s)->AddRule("/D*", 4);
  EXPECT_EQ(s.Purge(2.0, nullptr, true, false), 0);
  EXPECT_DOUBLE_EQ(Level(s, 1), 48.0);
  EXPECT_DOUBLE_EQ(Level(s, 3), 28.0);
  EXPECT_DOUBLE_EQ(Level(s, 5), 38.0);
}

TEST_F(Purges, PurgeByDispensingLeavesLastErrorAndDriverErrorAlone) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  NoPurgeServer(s);
  s.m_LastError = 7;
  EXPECT_EQ(s.Purge(2.0, nullptr, true, false), 1);
  EXPECT_EQ(s.m_LastError, 7);
  EXPECT_TRUE(CallsOf(s, "ResetError").empty());
}

// --- Purge: nothing to purge, no dispenser ----------------------------------

TEST_F(Purges, PurgeWithEveryCircuitEmptySetsError19) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddTanks({Circuit(1, 12, 0.0), Circuit(2, 15, 0.0)});
  slave s(1);
  NoPurgeServer(s);
  EXPECT_EQ(s.Purge(2.0, nullptr, true, false), 0);
  EXPECT_EQ(s.m_LastError, 19);
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_TRUE(CallsOf(s, "PurgeCircuits").empty());
}

TEST_F(Purges, PurgeWithoutTanksIsZeroWithoutError19) {
  AddDispenser("ZARVO");
  slave s(1);
  ASSERT_EQ(s.m_NumTanks, 0);
  EXPECT_EQ(s.Purge(2.0, nullptr, true, false), 0);
  EXPECT_EQ(s.m_LastError, 0);
  EXPECT_TRUE(Commands(s).empty());
}

TEST_F(Purges, PurgeWithoutDispenserIsZero) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(99);
  ASSERT_EQ(s.m_Dsp, nullptr);
  Zu_Frm record;
  EXPECT_EQ(s.Purge(2.0, &record, true, false), 0);
  EXPECT_EQ(s.Purge(2.0, &record, false, false), 0);
  EXPECT_STREQ(record.text(), "");
}

// --- Purge: without sending ------------------------------------------------

TEST_F(Purges, PurgeWithoutSendingBooksLevelsAndRecordWithoutAnyCommand) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  NoPurgeServer(s);
  Zu_Frm record;
  EXPECT_EQ(s.Purge(2.0, &record, false, false), 1);
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_TRUE(CallsOf(s, "PurgeCircuits").empty());
  EXPECT_STREQ(record.text(), "(12:2.000)(12:2.000)(20:2.000)");
  EXPECT_DOUBLE_EQ(Level(s, 1), 48.0);
  EXPECT_DOUBLE_EQ(Level(s, 2), 0.0);
  EXPECT_DOUBLE_EQ(Level(s, 3), 28.0);
  EXPECT_DOUBLE_EQ(Level(s, 5), 38.0);
}

TEST_F(Purges, PurgeWithoutSendingOnTypeNineChangesNothing) {
  AddDispenser("T7R");
  AddFiveCircuits();
  slave s(1);
  ASSERT_EQ(s.m_Dsp->GetType(0, 0), 9);
  Zu_Frm record;
  EXPECT_EQ(s.Purge(2.0, &record, false, false), 1);
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_STREQ(record.text(), "");
  EXPECT_DOUBLE_EQ(Level(s, 1), 50.0);
  EXPECT_DOUBLE_EQ(Level(s, 3), 30.0);
  EXPECT_DOUBLE_EQ(Level(s, 5), 40.0);
}

// --- Purge: the machine's own purge (type 9) --------------------------------

TEST_F(Purges, PurgeOnTypeNineSendsTheMachinesPurgeCommand) {
  AddDispenser("T7R", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  Zu_Frm record;
  EXPECT_EQ(s.Purge(2.5, &record, true, false), 1);
  EXPECT_EQ(Commands(s), (Strings{"/D(PURGE)(2.500000)"}));
  EXPECT_TRUE(CallsOf(s, "PurgeCircuits").empty());
  EXPECT_STREQ(record.text(), "");
  EXPECT_DOUBLE_EQ(Level(s, 1), 50.0);
}

TEST_F(Purges, PurgeOnTypeNineAnswersTheCommandsResult) {
  AddDispenser("T7R");
  AddFiveCircuits();
  slave s(1);
  Sim(s)->AddRule("/D(PURGE)*", 5);
  EXPECT_EQ(s.Purge(2.0, nullptr, true, false), 0);
  EXPECT_EQ(s.m_LastError, 5);
}

TEST_F(Purges, PurgeOnTypeNineWithoutHoldingCircuitsStillSendsTheCommand) {
  AddDispenser("T7R");
  AddTanks({Circuit(1, 12, 0.0)});
  slave s(1);
  EXPECT_EQ(s.Purge(1.0, nullptr, true, false), 1);
  EXPECT_EQ(Commands(s), (Strings{"/D(PURGE)(1.000000)"}));
  EXPECT_EQ(s.m_LastError, 0);
}

// --- Purge: the driver purges -----------------------------------------------

TEST_F(Purges, PurgeByDriverLowersLevelsAndClearsLastError) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("purge", "0"));
  s.m_LastError = 7;
  EXPECT_EQ(s.Purge(2.0, nullptr, true, false), 1);
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_EQ(CallsOf(s, "PurgeCircuits"), (Strings{"PurgeCircuits(3,[1,3,5],2.000)"}));
  EXPECT_EQ(CallsOf(s, "ResetError"), (Strings{"ResetError(1)"}));
  EXPECT_EQ(s.m_LastError, 0);
  EXPECT_DOUBLE_EQ(Level(s, 1), 48.0);
  EXPECT_DOUBLE_EQ(Level(s, 3), 28.0);
  EXPECT_DOUBLE_EQ(Level(s, 5), 38.0);
}

TEST_F(Purges, PurgeByDriverOfCircuitThreeLowersItByTheQuantity) {
  AddDispenser("ZARVO");
  AddTanks({Circuit(1, 12, 0.0), Circuit(2, 15, 0.0), Circuit(3, 12, 30.0, 0.0, 100.0)});
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("purge", "0"));
  EXPECT_EQ(s.Purge(2.0, nullptr, true, false), 1);
  EXPECT_EQ(CallsOf(s, "PurgeCircuits"), (Strings{"PurgeCircuits(1,[3],2.000)"}));
  EXPECT_DOUBLE_EQ(Level(s, 3), 28.0);
}

TEST_F(Purges, PurgeByDriverFailingKeepsItsCodeAndStillBooksLevels) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("purge", "6"));
  EXPECT_EQ(s.Purge(2.0, nullptr, true, false), 0);
  EXPECT_EQ(s.m_LastError, 6);
  EXPECT_EQ(CallsOf(s, "ResetError"), (Strings{"ResetError(1)"}));
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_DOUBLE_EQ(Level(s, 1), 48.0);
}

TEST_F(Purges, PurgeByDriverFillsTheRecord) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("purge", "0"));
  Zu_Frm record;
  EXPECT_EQ(s.Purge(0.75, &record, true, false), 1);
  EXPECT_STREQ(record.text(), "(12:0.750)(12:0.750)(20:0.750)");
}

TEST_F(Purges, PurgeTakesALevelNoLowerThanZero) {
  AddDispenser("ZARVO");
  AddTanks({Circuit(1, 12, 1.0, 0.0, 100.0)});
  slave s(1);
  NoPurgeServer(s);
  EXPECT_EQ(s.Purge(2.0, nullptr, false, false), 1);
  EXPECT_DOUBLE_EQ(Level(s, 1), 0.0);
}

// --- Refused quantities -----------------------------------------------------

TEST_F(Purges, PurgeRefusesANaNQuantity) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  NoPurgeServer(s);
  Zu_Frm record;
  EXPECT_EQ(s.Purge(std::nan(""), &record, true, false), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(QuantityRefusalTraced());
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_TRUE(CallsOf(s, "PurgeCircuits").empty());
  EXPECT_STREQ(record.text(), "");
  EXPECT_DOUBLE_EQ(Level(s, 1), 50.0);
}

TEST_F(Purges, PurgeRefusesAnInfiniteQuantity) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  NoPurgeServer(s);
  EXPECT_EQ(s.Purge(std::numeric_limits<double>::infinity(), nullptr, true, false), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(QuantityRefusalTraced());
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_TRUE(CallsOf(s, "PurgeCircuits").empty());
}

TEST_F(Purges, PurgeWithoutSendingRefusesMinusInfinityAndBooksNothing) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  EXPECT_EQ(s.Purge(-std::numeric_limits<double>::infinity(), nullptr, false, false), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(QuantityRefusalTraced());
  EXPECT_DOUBLE_EQ(Level(s, 1), 50.0);
}

TEST_F(Purges, PurgeOnTypeNineRefusesANaNQuantity) {
  AddDispenser("T7R");
  AddFiveCircuits();
  slave s(1);
  EXPECT_EQ(s.Purge(std::nan(""), nullptr, true, false), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(QuantityRefusalTraced());
  EXPECT_TRUE(Commands(s).empty());
}

TEST_F(Purges, SelectivePurgeRefusesANaNQuantity) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  long ids[] = {12, 0};
  EXPECT_EQ(s.SelectivePurge(ids, std::nan("")), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(QuantityRefusalTraced());
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_TRUE(CallsOf(s, "PurgeCircuits").empty());
  EXPECT_DOUBLE_EQ(Level(s, 1), 50.0);
}

TEST_F(Purges, SelectivePurgeRefusesAnInfiniteQuantity) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  long ids[] = {12, 0};
  EXPECT_EQ(s.SelectivePurge(ids, std::numeric_limits<double>::infinity()), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(QuantityRefusalTraced());
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_TRUE(CallsOf(s, "PurgeCircuits").empty());
}

TEST_F(Purges, CanisterPurgeRefusesANaNQuantity) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  EXPECT_EQ(s.CanisterPurge(3, std::nan("")), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(QuantityRefusalTraced());
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_TRUE(CallsOf(s, "PurgeCircuits").empty());
  EXPECT_DOUBLE_EQ(Level(s, 3), 30.0);
}

TEST_F(Purges, CanisterPurgeOnTypeNineRefusesAnInfiniteQuantity) {
  AddDispenser("T7R");
  AddFiveCircuits();
  slave s(1);
  EXPECT_EQ(s.CanisterPurge(3, std::numeric_limits<double>::infinity()), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(QuantityRefusalTraced());
  EXPECT_TRUE(Commands(s).empty());
}

TEST_F(Purges, TestRefusesANaNQuantity) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  EXPECT_EQ(s.Test(true, std::nan("")), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(QuantityRefusalTraced());
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_TRUE(CallsOf(s, "PurgeCircuits").empty());
}

TEST_F(Purges, TestOnTypeNineRefusesAnInfiniteQuantity) {
  AddDispenser("T7R");
  AddFiveCircuits();
  slave s(1);
  EXPECT_EQ(s.Test(false, std::numeric_limits<double>::infinity()), 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(QuantityRefusalTraced());
  EXPECT_TRUE(Commands(s).empty());
}

// --- SelectivePurge ---------------------------------------------------------

TEST_F(Purges, SelectivePurgeDispensesTheCircuitsOfTheChosenColourants) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  NoPurgeServer(s);
  long ids[] = {12, 0};
  EXPECT_EQ(s.SelectivePurge(ids, 2.0), 1);
  EXPECT_EQ(Commands(s), (Strings{"/D(1:2.000)(3:2.000)"}));
  EXPECT_DOUBLE_EQ(Level(s, 1), 48.0);
  EXPECT_DOUBLE_EQ(Level(s, 3), 28.0);
  EXPECT_DOUBLE_EQ(Level(s, 5), 40.0);
}

TEST_F(Purges, SelectivePurgeSendsGroupCommandsWithTheGroupFlag) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  NoPurgeServer(s);
  long ids[] = {20, 12, 0};
  EXPECT_EQ(s.SelectivePurge(ids, 2.0), 1);
  EXPECT_EQ(Commands(s), (Strings{"/G2", "/D(1:2.000)(3:2.000)(5:2.000)", "/G0"}));
}

TEST_F(Purges, SelectivePurgeByDispensingGoesInGroupsOfEight) {
  AddDispenser("ZARVO");
  std::vector<TankRow> rows;
  for (int c = 1; c <= 10; ++c) rows.push_back(Circuit(c, 12, 50.0, 0.0, 100.0));
  AddTanks(rows);
  slave s(1);
  NoPurgeServer(s);
  long ids[] = {12, 0};
  EXPECT_EQ(s.SelectivePurge(ids, 1.0), 1);
  EXPECT_EQ(Commands(s),
            (Strings{"/D(1:1.000)(2:1.000)(3:1.000)(4:1.000)(5:1.000)(6:1.000)(7:1.000)(8:1.000)",
                     "/D(9:1.000)(10:1.000)"}));
}

TEST_F(Purges, SelectivePurgeOnTypeSixDispensesInOneGroup) {
  AddDispenser("K240");
  std::vector<TankRow> rows;
  for (int c = 1; c <= 10; ++c) rows.push_back(Circuit(c, 12, 50.0, 0.0, 100.0));
  AddTanks(rows);
  slave s(1);
  NoPurgeServer(s);
  ASSERT_EQ(s.m_Dsp->GetType(0, 0), 6);
  long ids[] = {12, 0};
  EXPECT_EQ(s.SelectivePurge(ids, 1.0), 1);
  EXPECT_EQ(Commands(s), (Strings{"/D(1:1.000)(2:1.000)(3:1.000)(4:1.000)(5:1.000)(6:1.000)"
                                  "(7:1.000)(8:1.000)(9:1.000)(10:1.000)"}));
}

TEST_F(Purges, SelectivePurgeColourantGivenTwiceSelectsItsCircuitsTwice) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("purge", "0"));
  long ids[] = {12, 12, 0};
  EXPECT_EQ(s.SelectivePurge(ids, 2.0), 1);
  EXPECT_EQ(CallsOf(s, "PurgeCircuits"), (Strings{"PurgeCircuits(4,[1,1,3,3],2.000)"}));
  EXPECT_DOUBLE_EQ(Level(s, 1), 54.0);
  EXPECT_DOUBLE_EQ(Level(s, 3), 34.0);
}

TEST_F(Purges, SelectivePurgeByDispensingColourantGivenTwiceDispensesTwice) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  NoPurgeServer(s);
  long ids[] = {12, 12, 0};
  EXPECT_EQ(s.SelectivePurge(ids, 2.0), 1);
  EXPECT_EQ(Commands(s), (Strings{"/D(1:2.000)(1:2.000)(3:2.000)(3:2.000)"}));
  EXPECT_DOUBLE_EQ(Level(s, 1), 46.0);
  EXPECT_DOUBLE_EQ(Level(s, 3), 26.0);
}

TEST_F(Purges, SelectivePurgeByDriverAddsTheQuantityToLevels) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("purge", "0"));
  s.m_LastError = 7;
  long ids[] = {20, 0};
  EXPECT_EQ(s.SelectivePurge(ids, 2.0), 1);
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_EQ(CallsOf(s, "PurgeCircuits"), (Strings{"PurgeCircuits(1,[5],2.000)"}));
  EXPECT_EQ(CallsOf(s, "ResetError"), (Strings{"ResetError(1)"}));
  EXPECT_EQ(s.m_LastError, 0);
  EXPECT_DOUBLE_EQ(Level(s, 5), 42.0);
  EXPECT_DOUBLE_EQ(Level(s, 1), 50.0);
}

TEST_F(Purges, SelectivePurgeByDriverClampsLevelsAtTheirMaximum) {
  AddDispenser("ZARVO");
  AddTanks({Circuit(1, 12, 99.0, 0.0, 100.0)});
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("purge", "0"));
  long ids[] = {12, 0};
  EXPECT_EQ(s.SelectivePurge(ids, 2.0), 1);
  EXPECT_DOUBLE_EQ(Level(s, 1), 100.0);
}

TEST_F(Purges, SelectivePurgeByDriverFailingKeepsItsCode) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("purge", "4"));
  long ids[] = {20, 0};
  EXPECT_EQ(s.SelectivePurge(ids, 2.0), 0);
  EXPECT_EQ(s.m_LastError, 4);
  EXPECT_EQ(CallsOf(s, "ResetError"), (Strings{"ResetError(1)"}));
  EXPECT_DOUBLE_EQ(Level(s, 5), 42.0);
}

TEST_F(Purges, SelectivePurgeWithAnEmptyListIsZero) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  s.m_LastError = 7;
  long ids[] = {0};
  EXPECT_EQ(s.SelectivePurge(ids, 2.0), 0);
  EXPECT_EQ(s.m_LastError, 7);
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_TRUE(CallsOf(s, "PurgeCircuits").empty());
}

TEST_F(Purges, SelectivePurgeOfColourantsInEmptyOrNoCircuitsIsZero) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  long ids[] = {15, 99, 0};
  EXPECT_EQ(s.SelectivePurge(ids, 2.0), 0);
  EXPECT_EQ(s.m_LastError, 0);
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_TRUE(CallsOf(s, "PurgeCircuits").empty());
}

TEST_F(Purges, SelectivePurgeWithoutDispenserIsZero) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(99);
  long ids[] = {12, 0};
  EXPECT_EQ(s.SelectivePurge(ids, 2.0), 0);
}

// --- CanisterPurge ----------------------------------------------------------

TEST_F(Purges, CanisterPurgeByDriverRaisesTheLevelByTheQuantity) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("purge", "0"));
  s.m_LastError = 7;
  EXPECT_EQ(s.CanisterPurge(3, 2.0), 1);
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_EQ(CallsOf(s, "PurgeCircuits"), (Strings{"PurgeCircuits(1,[3],2.000)"}));
  EXPECT_EQ(CallsOf(s, "ResetError"), (Strings{"ResetError(1)"}));
  EXPECT_EQ(s.m_LastError, 0);
  EXPECT_DOUBLE_EQ(Level(s, 3), 32.0);
}

TEST_F(Purges, CanisterPurgeByDriverClampsAtTheMaximum) {
  AddDispenser("ZARVO");
  AddTanks({Circuit(1, 12, 0.0), Circuit(2, 15, 0.0), Circuit(3, 12, 99.0, 0.0, 100.0)});
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("purge", "0"));
  EXPECT_EQ(s.CanisterPurge(3, 2.0), 1);
  EXPECT_DOUBLE_EQ(Level(s, 3), 100.0);
}

TEST_F(Purges, CanisterPurgeByDriverFailingKeepsItsCode) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("purge", "5"));
  EXPECT_EQ(s.CanisterPurge(3, 2.0), 0);
  EXPECT_EQ(s.m_LastError, 5);
  EXPECT_EQ(CallsOf(s, "ResetError"), (Strings{"ResetError(1)"}));
  EXPECT_DOUBLE_EQ(Level(s, 3), 32.0);
}

TEST_F(Purges, CanisterPurgeByDispensingLowersTheLevelBetweenGroupCommands) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  NoPurgeServer(s);
  EXPECT_EQ(s.CanisterPurge(3, 2.0), 1);
  EXPECT_EQ(Commands(s), (Strings{"/G2", "/D(3:2.000)", "/G0"}));
  EXPECT_DOUBLE_EQ(Level(s, 3), 28.0);
  EXPECT_DOUBLE_EQ(Level(s, 1), 50.0);
}

TEST_F(Purges, CanisterPurgeByDispensingWithoutGroupFlag) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  NoPurgeServer(s);
  EXPECT_EQ(s.CanisterPurge(5, 1.25), 1);
  EXPECT_EQ(Commands(s), (Strings{"/D(5:1.250)"}));
  EXPECT_DOUBLE_EQ(Level(s, 5), 38.75);
}

TEST_F(Purges, CanisterPurgeByDispensingAnswersTheDispenseResult) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  NoPurgeServer(s);
  Sim(s)->AddRule("/D(3:*", 4);
  EXPECT_EQ(s.CanisterPurge(3, 2.0), 0);
  EXPECT_EQ(Commands(s), (Strings{"/G2", "/D(3:2.000)", "/G0"}));
  EXPECT_DOUBLE_EQ(Level(s, 3), 28.0);
}

TEST_F(Purges, CanisterPurgeOfAnEmptyCircuitIsZero) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  EXPECT_EQ(s.CanisterPurge(2, 2.0), 0);
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_TRUE(CallsOf(s, "PurgeCircuits").empty());
  EXPECT_DOUBLE_EQ(Level(s, 2), 0.0);
}

TEST_F(Purges, CanisterPurgeOfACircuitOutsideTheDispenserIsZero) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  EXPECT_EQ(s.CanisterPurge(9, 2.0), 0);
  EXPECT_EQ(s.CanisterPurge(0, 2.0), 0);
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_TRUE(CallsOf(s, "PurgeCircuits").empty());
}

TEST_F(Purges, CanisterPurgeOnTypeNineSendsPurgeByCan) {
  AddDispenser("T7R", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  EXPECT_EQ(s.CanisterPurge(3, 2.0), 1);
  EXPECT_EQ(Commands(s), (Strings{"/D(PURGEBYCAN)(3:2.000000)"}));
  EXPECT_TRUE(CallsOf(s, "PurgeCircuits").empty());
  EXPECT_DOUBLE_EQ(Level(s, 3), 30.0);
}

TEST_F(Purges, CanisterPurgeOnTypeNineAnswersTheCommandsResult) {
  AddDispenser("T7R");
  AddFiveCircuits();
  slave s(1);
  Sim(s)->AddRule("/D(PURGEBYCAN)*", 7);
  EXPECT_EQ(s.CanisterPurge(2, 0.5), 0);
  EXPECT_EQ(Commands(s), (Strings{"/D(PURGEBYCAN)(2:0.500000)"}));
  EXPECT_EQ(s.m_LastError, 7);
}

TEST_F(Purges, CanisterPurgeWithoutTanksIsZero) {
  AddDispenser("ZARVO");
  slave s(1);
  EXPECT_EQ(s.CanisterPurge(1, 2.0), 0);
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_TRUE(CallsOf(s, "PurgeCircuits").empty());
}

TEST_F(Purges, CanisterPurgeWithoutDispenserIsZero) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(99);
  EXPECT_EQ(s.CanisterPurge(3, 2.0), 0);
}

// --- Test -------------------------------------------------------------------

TEST_F(Purges, TestOnTypeNineSendsThePurgeSequence) {
  AddDispenser("T7R", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  EXPECT_EQ(s.Test(true, 1.5), 1);
  EXPECT_EQ(Commands(s), (Strings{"/D(PURGE_SEQ)(1.500000)"}));
  EXPECT_TRUE(CallsOf(s, "PurgeCircuits").empty());
}

TEST_F(Purges, TestWithoutDriverPurgeSendsTheTestCommandAlone) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  EXPECT_EQ(s.Test(false, 1.5), 1);
  EXPECT_EQ(Commands(s), (Strings{"/T"}));
  EXPECT_EQ(CallsOf(s, "PurgeCircuits"), (Strings{"PurgeCircuits(0,[],0.000)"}));
  EXPECT_DOUBLE_EQ(Level(s, 1), 50.0);
}

TEST_F(Purges, TestGroupedSendsTheTestCommandBetweenGroupCommands) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  EXPECT_EQ(s.Test(true, 1.5), 1);
  EXPECT_EQ(Commands(s), (Strings{"/G2", "/T", "/G0"}));
}

TEST_F(Purges, TestGroupedWithoutGroupFlagSendsTheTestCommandAlone) {
  AddDispenser("ZARVO");
  AddFiveCircuits();
  slave s(1);
  EXPECT_EQ(s.Test(true, 1.5), 1);
  EXPECT_EQ(Commands(s), (Strings{"/T"}));
}

TEST_F(Purges, TestAnswersTheTestCommandsResult) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  Sim(s)->AddRule("/T", 14);
  EXPECT_EQ(s.Test(true, 1.5), 0);
  EXPECT_EQ(Commands(s), (Strings{"/G2", "/T", "/G0"}));
  EXPECT_EQ(s.m_LastError, 14);
}

TEST_F(Purges, TestWithDriverPurgePurgesEveryHoldingCircuit) {
  AddDispenser("ZARVO", OptionsWith({kGroupFlag}));
  AddFiveCircuits();
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("purge", "0"));
  EXPECT_EQ(s.Test(true, 1.5), 1);
  EXPECT_TRUE(Commands(s).empty());
  EXPECT_EQ(CallsOf(s, "PurgeCircuits"),
            (Strings{"PurgeCircuits(0,[],0.000)", "PurgeCircuits(3,[1,3,5],1.500)"}));
  EXPECT_DOUBLE_EQ(Level(s, 1), 48.5);
  EXPECT_DOUBLE_EQ(Level(s, 3), 28.5);
  EXPECT_DOUBLE_EQ(Level(s, 5), 38.5);
}

TEST_F(Purges, TestWithoutDispenserIsZero) {
  AddDispenser("ZARVO");
  slave s(99);
  EXPECT_EQ(s.Test(false, 1.0), 0);
  EXPECT_EQ(s.Test(true, 1.0), 0);
}

}  // namespace
