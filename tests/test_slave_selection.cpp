// The slave object: construction, copy, clean, selecting a dispenser (the
// driver chosen by model, the serial line, the tank map), iterating the
// dispenser table, the serial port and separate-thread switches, quitting,
// and the small configuration queries read from the dispenser record.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include "library_env.h"

namespace {

using qtest::Communic;
using qtest::CountOf;
using qtest::CountPrefix;
using qtest::DispenserRow;
using qtest::FixedText;
using qtest::Sim;
using qtest::StandardDispenser;
using qtest::TankRow;

const char kAllOn[] = "11111111111111111111111111111111";
const char kAllOff[] = "00000000000000000000000000000000";

TankRow Tank(long disp, int tank, long cnt) {
  TankRow row;
  row.disp_id = disp;
  row.tank = tank;
  row.cnt_id = cnt;
  return row;
}

// text padded with blanks to width characters, as dBase stores a text.
std::string Pad(const std::string& text, size_t width) {
  std::string padded = text;
  if (padded.size() < width) padded.resize(width, ' ');
  return padded;
}

// What the simulated machine says it is: its built-in answer to "/M1"
// names the type and variant the driver was created with.
std::string Identity(slave& s) {
  if (s.m_Dsp == nullptr) return "<no driver>";
  s.m_Dsp->SendCommand(s.m_DispId, "/M1");
  return s.m_Dsp->GetAnswer(s.m_DispId);
}

std::string IdentityOf(int type, int variant) {
  return "SIM" + std::to_string(type) + "-" + std::to_string(variant) +
         " SN000001";
}

class Selection : public qtest::LibraryEnv {
 protected:
  // Adds dispenser 1 with the given model family and model and checks the
  // driver that selecting it creates.
  void ExpectDriver(const std::string& hide_id, const std::string& model,
                    int type, int variant) {
    DispenserRow row = StandardDispenser(1);
    row.hide_id = hide_id;
    row.model = model;
    ASSERT_GT(tables_.AddDispenser(row), 0);
    slave s(1);
    ASSERT_NE(s.m_Dsp, nullptr);
    ASSERT_NE(Sim(s), nullptr);
    EXPECT_EQ(s.m_Dsp->GetType(0, 0), type);
    EXPECT_EQ(Identity(s), IdentityOf(type, variant));
  }

  std::vector<std::string> CallsOf(const slave& s) {
    return Sim(s) == nullptr ? std::vector<std::string>() : Sim(s)->Calls();
  }
};

// --- Construction --------------------------------------------------------

TEST_F(Selection, ConstructionSelectsTheDispenserRecord) {
  DispenserRow row = StandardDispenser(3);
  row.slave_addr = 17;
  row.descr = "Front shop";
  row.options = "01010000000000000000000000000001";
  row.model = "MK2";
  row.serial_n = "SN-0042";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(3);
  EXPECT_EQ(slave::counter, 1);
  EXPECT_EQ(s.m_DispId, 3);
  EXPECT_NE(s.m_Dsp, nullptr);
  EXPECT_EQ(s.m_Address, 17);
  // DESCR, OPTIONS and MODEL come back as stored, with the blanks that pad
  // them to their field widths (24, 32 and 11 in the reference layout);
  // SERIAL_N is read trimmed.
  EXPECT_EQ(std::string(s.m_Descr), Pad("Front shop", 24));
  EXPECT_STREQ(s.m_Options, "01010000000000000000000000000001");
  EXPECT_EQ(std::string(s.m_Model), Pad("MK2", 11));
  EXPECT_STREQ(s.m_SerialNo, "SN-0042");
  EXPECT_EQ(s.m_CommPort, 1);
}

TEST_F(Selection, ConstructionStartsWithCleanState) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  EXPECT_EQ(s.m_Window, nullptr);
  EXPECT_EQ(s.m_SplitThreshold, 0.0);
  EXPECT_EQ(s.m_SplitPerc, 0.0);
  EXPECT_EQ(s.m_SeparateThread, 1);
  EXPECT_EQ(s.m_LastError, 0);
  EXPECT_EQ(s.m_SingleCircuit, 0);
  EXPECT_EQ(s.m_FwVersion, -1);
  EXPECT_EQ(s.m_PurgeSrvFlag, 0);
  EXPECT_EQ(s.m_DataId, 0);
  EXPECT_TRUE(s.m_Text.empty());
  EXPECT_EQ(s.m_LastDosedFrm, nullptr);
  EXPECT_EQ(s.m_PurgeSrvOff, 0);
  EXPECT_STREQ(s.m_PurgeSrvHost, "127.0.0.1");
  EXPECT_EQ(s.m_PurgeSrvPort, 9002);
}

TEST_F(Selection, ConstructionPublishesTheDataDirectoryAsDsp) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  const char* dsp = getenv("DSP");
  ASSERT_NE(dsp, nullptr);
  EXPECT_EQ(std::string(dsp), dir_.path());
}

TEST_F(Selection, UnknownIdCreatesNoDriver) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(42);
  EXPECT_EQ(s.m_Dsp, nullptr);
  EXPECT_LT(s.m_DispId, 1);
  EXPECT_EQ(s.Set(42), 0);
  EXPECT_EQ(s.m_Dsp, nullptr);
  EXPECT_EQ(slave::counter, 1);
}

TEST_F(Selection, SetOfZeroSelectsTheDefaultDispenser) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(5)), 0);
  DispenserRow marked = StandardDispenser(8);
  marked.x = true;
  ASSERT_GT(tables_.AddDispenser(marked), 0);
  slave s(5);
  ASSERT_EQ(s.m_DispId, 5);
  EXPECT_EQ(s.Set(0), 1);
  EXPECT_EQ(s.m_DispId, 8);
  EXPECT_NE(s.m_Dsp, nullptr);
}

TEST_F(Selection, NegativeIdSelectsTheDefaultDispenser) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(4)), 0);
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(-5);
  EXPECT_EQ(s.m_DispId, 1);
  EXPECT_NE(s.m_Dsp, nullptr);
  ASSERT_EQ(s.Set(4), 1);
  EXPECT_EQ(s.Set(-5), 1);
  EXPECT_EQ(s.m_DispId, 1);
}

TEST_F(Selection, SetOfAnotherDispenserReplacesTheDriver) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  DispenserRow two = StandardDispenser(2);
  two.hide_id = "PELKO";
  ASSERT_GT(tables_.AddDispenser(two), 0);
  slave s(1);
  ASSERT_EQ(s.m_Dsp->GetType(0, 0), 2);
  EXPECT_EQ(s.Set(2), 1);
  ASSERT_NE(s.m_Dsp, nullptr);
  EXPECT_EQ(s.m_Dsp->GetType(0, 0), 3);
  EXPECT_EQ(std::string(s.m_Descr), Pad("Dispenser 2", 24));
}

TEST_F(Selection, DispenserTableWithoutModelAndSerialFields) {
  ASSERT_TRUE(tables_.RecreateWithout(QDB_SCHEMA_DISPS, {"MODEL", "SERIAL_N"}));
  DispenserRow row = StandardDispenser(1);
  row.hide_id = "VEX";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  ASSERT_NE(s.m_Dsp, nullptr);
  EXPECT_STREQ(s.m_Model, "");
  EXPECT_STREQ(s.m_SerialNo, "");
  EXPECT_EQ(s.m_Dsp->GetType(0, 0), 8);
  EXPECT_EQ(Identity(s), IdentityOf(8, 0));
}

// --- Driver choice by model: one test per row ------------------------------

TEST_F(Selection, DriverZarvo) { ExpectDriver("ZARVO", "", 2, 0); }
TEST_F(Selection, DriverPelko) { ExpectDriver("PELKO", "", 3, 0); }
TEST_F(Selection, DriverSalvimat) { ExpectDriver("SALVIMAT", "", 4, 0); }
TEST_F(Selection, DriverVoren) { ExpectDriver("VOREN", "", 5, 0); }
TEST_F(Selection, DriverLiqon) { ExpectDriver("LIQON", "", 7, 0); }
TEST_F(Selection, DriverK240) { ExpectDriver("K240", "", 6, 0); }
TEST_F(Selection, DriverVexTorn500) { ExpectDriver("VEX", "TORN500", 8, 1); }
TEST_F(Selection, DriverVexM9000) { ExpectDriver("VEX", "M9000", 8, 2); }
TEST_F(Selection, DriverVexOtherModel) { ExpectDriver("VEX", "MX", 8, 0); }
TEST_F(Selection, DriverT7R) { ExpectDriver("T7R", "", 9, 0); }
TEST_F(Selection, DriverOtherFamilyTorn500) {
  ExpectDriver("ACME", "TORN500", 1, 1);
}
TEST_F(Selection, DriverOtherFamilyM9000) {
  ExpectDriver("ACME", "M9000", 1, 2);
}
TEST_F(Selection, DriverOtherFamilyOtherModel) {
  ExpectDriver("ACME", "X100", 1, 0);
}

// --- Driver choice: prefixes, case, order -----------------------------------

TEST_F(Selection, DriverVexWithLowerCaseModelPrefix) {
  ExpectDriver("VEX", "torn500xyz", 8, 1);
}
TEST_F(Selection, DriverFamilyComparedIgnoringCase) {
  ExpectDriver("vex", "m9000", 8, 2);
}
TEST_F(Selection, DriverFamilyMatchesAsPrefix) {
  ExpectDriver("Pelko-2", "", 3, 0);
}
TEST_F(Selection, DriverFamilyK240Prefix) { ExpectDriver("K2400", "", 6, 0); }
TEST_F(Selection, DriverModelMatchesAsPrefixForOtherFamily) {
  ExpectDriver("ACME", "M9000-B", 1, 2);
}
TEST_F(Selection, DriverFamilyShorterThanWordDoesNotMatch) {
  ExpectDriver("ZARV", "", 1, 0);
}
TEST_F(Selection, DriverFamilyWithLeadingBlankDoesNotMatch) {
  ExpectDriver(" ZARVO", "", 1, 0);
}
TEST_F(Selection, DriverFamilyTestedBeforeModel) {
  ExpectDriver("ZARVO", "TORN500", 2, 0);
}
TEST_F(Selection, DriverT7RIgnoresModel) { ExpectDriver("T7R", "M9000", 9, 0); }

// --- Option 7 ----------------------------------------------------------------

TEST_F(Selection, SalvimatForcesOptionSevenOffInMemoryOnly) {
  DispenserRow row = StandardDispenser(1);
  row.hide_id = "SALVIMAT";
  row.options = kAllOn;
  ASSERT_GT(tables_.AddDispenser(row), 0);
  {
    slave s(1);
    EXPECT_STREQ(s.m_Options, "11111110111111111111111111111111");
  }
  EXPECT_EQ(tables_.ReadDispenserField(1, "OPTIONS"), kAllOn);
}

TEST_F(Selection, VorenForcesOptionSevenOff) {
  DispenserRow row = StandardDispenser(1);
  row.hide_id = "voren";
  row.options = kAllOn;
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  EXPECT_EQ(s.m_Dsp->GetType(0, 0), 5);
  EXPECT_STREQ(s.m_Options, "11111110111111111111111111111111");
}

TEST_F(Selection, OtherModelsKeepOptionSeven) {
  DispenserRow row = StandardDispenser(1);
  row.hide_id = "PELKO";
  row.options = kAllOn;
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  EXPECT_STREQ(s.m_Options, kAllOn);
}

// --- Serial line ---------------------------------------------------------------

TEST_F(Selection, CommunicFieldsReachTheDriverInItsOrder) {
  DispenserRow row = StandardDispenser(1);
  row.communic = Communic(3, 19200, 'E', 7, 2, 1.25);
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  EXPECT_EQ(s.m_CommPort, 3);
  EXPECT_EQ(s.GetCommPort(), 3);
  std::vector<std::string> calls = CallsOf(s);
  EXPECT_EQ(CountPrefix(calls, "SetCommunication("), 1);
  EXPECT_EQ(CountOf(calls, "SetCommunication(3,19200,E,2,7,1.250)"), 1);
}

TEST_F(Selection, StandardCommunicLine) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  EXPECT_EQ(CountOf(CallsOf(s), "SetCommunication(1,9600,N,8,1,2.500)"), 1);
}

TEST_F(Selection, BlankCommunicSetsNoLine) {
  DispenserRow row = StandardDispenser(1);
  row.communic = "";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  ASSERT_NE(s.m_Dsp, nullptr);
  EXPECT_EQ(CountPrefix(CallsOf(s), "SetCommunication("), 0);
  EXPECT_EQ(s.m_CommPort, 0);
}

TEST_F(Selection, ShortCommunicReadsMissingPiecesAsZero) {
  DispenserRow row = StandardDispenser(1);
  row.communic = " 2  4800E";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  ASSERT_NE(s.m_Dsp, nullptr);
  EXPECT_EQ(s.m_CommPort, 2);
  EXPECT_EQ(CountOf(CallsOf(s), "SetCommunication(2,4800,E,0,0,0.000)"), 1)
      << ::testing::PrintToString(CallsOf(s));
}

TEST_F(Selection, NonNumericCommunicPiecesReadAsZero) {
  DispenserRow row = StandardDispenser(1);
  // port "ab", baud 9600, parity N, line parameters "xy" and "08", time-out
  // "abc".
  row.communic = FixedText(50, {{0, "ab"}, {2, "  9600"}, {8, "N"},
                                {10, "xy"}, {12, "08"}, {41, "      abc"}});
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  ASSERT_NE(s.m_Dsp, nullptr);
  EXPECT_EQ(s.m_CommPort, 0);
  EXPECT_EQ(CountOf(CallsOf(s), "SetCommunication(0,9600,N,8,0,0.000)"), 1)
      << ::testing::PrintToString(CallsOf(s));
}

// --- Tank map ------------------------------------------------------------------

TEST_F(Selection, TankMapHoldsRecordNumbersAndColourants) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(2)), 0);
  long r23 = tables_.AddTank(Tank(2, 3, 203));
  long r13 = tables_.AddTank(Tank(1, 3, 103));
  long r21 = tables_.AddTank(Tank(2, 1, 201));
  long r11 = tables_.AddTank(Tank(1, 1, 101));
  long r12 = tables_.AddTank(Tank(1, 2, 102));
  long r22 = tables_.AddTank(Tank(2, 2, 202));
  ASSERT_GT(r23 * r13 * r21 * r11 * r12 * r22, 0);
  slave s(2);
  ASSERT_EQ(s.m_NumTanks, 3);
  EXPECT_EQ(s.m_NumCircuits, 3);
  EXPECT_EQ(s.m_TankRecNo[0], r21);
  EXPECT_EQ(s.m_TankRecNo[1], r22);
  EXPECT_EQ(s.m_TankRecNo[2], r23);
  EXPECT_EQ(s.m_TankCntId[0], 201);
  EXPECT_EQ(s.m_TankCntId[1], 202);
  EXPECT_EQ(s.m_TankCntId[2], 203);
  ASSERT_EQ(s.Set(1), 1);
  ASSERT_EQ(s.m_NumTanks, 3);
  EXPECT_EQ(s.m_TankRecNo[0], r11);
  EXPECT_EQ(s.m_TankRecNo[1], r12);
  EXPECT_EQ(s.m_TankRecNo[2], r13);
  EXPECT_EQ(s.m_TankCntId[2], 103);
}

TEST_F(Selection, TankMapLeavesGapsAtZero) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  long r5 = tables_.AddTank(Tank(1, 5, 15));
  long r1 = tables_.AddTank(Tank(1, 1, 11));
  long r2 = tables_.AddTank(Tank(1, 2, 12));
  ASSERT_GT(r5 * r1 * r2, 0);
  slave s(1);
  ASSERT_EQ(s.m_NumTanks, 5);
  EXPECT_EQ(s.m_NumCircuits, 5);
  long rec[] = {r1, r2, 0, 0, r5};
  long cnt[] = {11, 12, 0, 0, 15};
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(s.m_TankRecNo[i], rec[i]) << "tank " << i + 1;
    EXPECT_EQ(s.m_TankCntId[i], cnt[i]) << "tank " << i + 1;
  }
}

TEST_F(Selection, TankMapSkipsTankZeroAndNegativeTanks) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  long r0 = tables_.AddTank(Tank(1, 0, 10));
  long rneg = tables_.AddTank(Tank(1, -1, 9));
  long r3 = tables_.AddTank(Tank(1, 3, 13));
  long r1 = tables_.AddTank(Tank(1, 1, 11));
  ASSERT_GT(r0 * rneg * r3 * r1, 0);
  slave s(1);
  ASSERT_EQ(s.m_NumTanks, 3);
  EXPECT_EQ(s.m_TankRecNo[0], r1);
  EXPECT_EQ(s.m_TankRecNo[1], 0);
  EXPECT_EQ(s.m_TankRecNo[2], r3);
  EXPECT_EQ(s.m_TankCntId[0], 11);
  EXPECT_EQ(s.m_TankCntId[1], 0);
  EXPECT_EQ(s.m_TankCntId[2], 13);
}

TEST_F(Selection, DispenserWithoutTanksBetweenOthersHasNoTanks) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(2)), 0);
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(3)), 0);
  ASSERT_GT(tables_.AddTank(Tank(1, 1, 11)), 0);
  ASSERT_GT(tables_.AddTank(Tank(1, 2, 12)), 0);
  ASSERT_GT(tables_.AddTank(Tank(3, 1, 31)), 0);
  slave s(2);
  EXPECT_EQ(s.m_DispId, 2);
  EXPECT_NE(s.m_Dsp, nullptr);
  EXPECT_EQ(s.m_NumTanks, 0);
  EXPECT_EQ(s.m_NumCircuits, 0);
  EXPECT_EQ(s.m_TankRecNo, nullptr);
  EXPECT_EQ(s.m_TankCntId, nullptr);
  EXPECT_EQ(s.Set(2), 1);
  EXPECT_EQ(s.m_NumTanks, 0);
}

TEST_F(Selection, DispenserWithoutTanksBeforeAllOthersHasNoTanks) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(2)), 0);
  ASSERT_GT(tables_.AddTank(Tank(2, 1, 21)), 0);
  ASSERT_GT(tables_.AddTank(Tank(2, 2, 22)), 0);
  slave s(1);
  EXPECT_EQ(s.Set(1), 1);
  EXPECT_EQ(s.m_NumTanks, 0);
  EXPECT_EQ(s.m_TankRecNo, nullptr);
  EXPECT_EQ(s.m_TankCntId, nullptr);
}

TEST_F(Selection, EmptyTankTableGivesNoTanks) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  EXPECT_EQ(s.Set(1), 1);
  EXPECT_NE(s.m_Dsp, nullptr);
  EXPECT_EQ(s.m_NumTanks, 0);
  EXPECT_EQ(s.m_TankRecNo, nullptr);
}

TEST_F(Selection, SelectionRestoresTheTankTableIndex) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  ASSERT_GT(tables_.AddTank(Tank(1, 1, 11)), 0);
  ASSERT_GT(tables_.AddTank(Tank(1, 2, 12)), 0);
  slave s(1);
  Qdbase* t = nullptr;
  ASSERT_EQ(_slv_dbhandles(nullptr, &t, nullptr), 1);
  ASSERT_EQ(t->SelectIdx(1), 1);
  ASSERT_EQ(s.Set(1), 1);
  EXPECT_EQ(t->CurrentIdx(), 1);
  ASSERT_EQ(t->SelectIdx(0), 1);
  ASSERT_EQ(s.Set(1), 1);
  EXPECT_EQ(t->CurrentIdx(), 0);
}

TEST_F(Selection, CircuitCountOfT7RComesFromTheDriver) {
  SimRules("set circuits 12\n");
  DispenserRow row = StandardDispenser(1);
  row.hide_id = "T7R";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  ASSERT_GT(tables_.AddTank(Tank(1, 1, 11)), 0);
  ASSERT_GT(tables_.AddTank(Tank(1, 2, 12)), 0);
  slave s(1);
  EXPECT_EQ(s.m_NumTanks, 2);
  EXPECT_EQ(s.m_NumCircuits, 12);
  EXPECT_EQ(CountOf(CallsOf(s), "GetCircuitCount(1)"), 1);
}

TEST_F(Selection, CircuitCountOfOtherTypesIsTheTankCount) {
  SimRules("set circuits 12\n");
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  ASSERT_GT(tables_.AddTank(Tank(1, 4, 14)), 0);
  slave s(1);
  EXPECT_EQ(s.m_NumCircuits, 4);
  EXPECT_EQ(CountPrefix(CallsOf(s), "GetCircuitCount("), 0);
}

// --- Copy ----------------------------------------------------------------------

TEST_F(Selection, CopyTakesTheConfigurationButNoDriver) {
  DispenserRow row = StandardDispenser(1);
  row.slave_addr = 9;
  row.descr = "Copied";
  row.options = "10100000000000000000000000000000";
  row.model = "M9000";
  row.serial_n = "SN-7";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  long r1 = tables_.AddTank(Tank(1, 1, 11));
  long r3 = tables_.AddTank(Tank(1, 3, 13));
  ASSERT_GT(r1 * r3, 0);
  slave s(1);
  s.m_LastError = 6;
  s.m_SingleCircuit = 1;
  s.m_Text = "text";
  int window = 0;
  s.SetWindowSlave(&window);
  s.m_SplitThreshold = 2.5;
  s.m_SplitPerc = 12.5;
  s.m_SeparateThread = 0;
  s.m_DataId = 4;
  s.m_PurgeSrvFlag = 1;
  s.m_PurgeSrvOff = 1;
  s.m_PurgeSrvPort = 1234;
  ASSERT_EQ(s.SlaveFw(), 2);
  {
    slave c(s);
    EXPECT_EQ(slave::counter, 2);
    EXPECT_EQ(c.m_Dsp, nullptr);
    EXPECT_EQ(c.m_DispId, 1);
    EXPECT_EQ(c.m_Address, 9);
    EXPECT_STREQ(c.m_Descr, s.m_Descr);
    EXPECT_EQ(std::string(c.m_Descr).substr(0, 6), "Copied");
    EXPECT_STREQ(c.m_Options, "10100000000000000000000000000000");
    EXPECT_STREQ(c.m_Model, s.m_Model);
    EXPECT_EQ(std::string(c.m_Model).substr(0, 5), "M9000");
    ASSERT_EQ(c.m_NumTanks, 3);
    ASSERT_NE(c.m_TankRecNo, nullptr);
    ASSERT_NE(c.m_TankCntId, nullptr);
    EXPECT_NE(c.m_TankRecNo, s.m_TankRecNo);
    EXPECT_NE(c.m_TankCntId, s.m_TankCntId);
    EXPECT_EQ(c.m_TankRecNo[0], r1);
    EXPECT_EQ(c.m_TankRecNo[1], 0);
    EXPECT_EQ(c.m_TankRecNo[2], r3);
    EXPECT_EQ(c.m_TankCntId[2], 13);
    EXPECT_EQ(c.m_LastError, 6);
    EXPECT_EQ(c.m_SingleCircuit, 1);
    EXPECT_EQ(c.m_Text, "text");
    EXPECT_EQ(c.GetWindowSlave(), &window);
    EXPECT_EQ(c.m_SplitThreshold, 2.5);
    EXPECT_EQ(c.m_SplitPerc, 12.5);
    EXPECT_EQ(c.m_SeparateThread, 0);
    // Not taken from the source.
    EXPECT_EQ(c.m_NumCircuits, 0);
    EXPECT_EQ(c.m_FwVersion, -1);
    EXPECT_EQ(c.m_PurgeSrvFlag, 0);
    EXPECT_EQ(c.m_DataId, 0);
    EXPECT_EQ(c.m_CommPort, 0);
    EXPECT_STREQ(c.m_SerialNo, "");
    EXPECT_EQ(c.m_LastDosedFrm, nullptr);
    EXPECT_EQ(c.m_LastDosedMode, 0);
    EXPECT_EQ(c.m_PurgeSrvOff, 0);
    EXPECT_STREQ(c.m_PurgeSrvHost, "127.0.0.1");
    EXPECT_EQ(c.m_PurgeSrvPort, 9002);
  }
  // Destroying the copy neither deleted the source's driver nor closed the
  // tables.
  EXPECT_EQ(slave::counter, 1);
  EXPECT_TRUE(DispOpen());
  char cmd[] = "/S1";
  EXPECT_EQ(s.sendcommand(cmd, nullptr, 0), 1);
  EXPECT_EQ(CountOf(Sim(s)->Commands(), "/S1"), 1);
}

TEST_F(Selection, CopyOfObjectWithoutDispenser) {
  slave s(7);
  ASSERT_EQ(s.m_Dsp, nullptr);
  slave c(s);
  EXPECT_EQ(slave::counter, 2);
  EXPECT_EQ(c.m_Dsp, nullptr);
  EXPECT_LT(c.m_DispId, 1);
  EXPECT_EQ(c.m_NumTanks, 0);
}

// --- clean ---------------------------------------------------------------------

TEST_F(Selection, CleanReturnsToTheStateWithoutDispenser) {
  DispenserRow row = StandardDispenser(1);
  row.serial_n = "SN-1";
  row.model = "MK";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  ASSERT_GT(tables_.AddTank(Tank(1, 2, 12)), 0);
  slave s(1);
  ASSERT_EQ(s.SlaveFw(), 2);
  s.m_LastError = 4;
  s.m_SingleCircuit = 1;
  s.m_DataId = 3;
  int window = 0;
  s.m_Window = &window;
  s.m_SplitThreshold = 1.0;
  s.m_SplitPerc = 2.0;
  s.m_SeparateThread = 0;
  s.m_Text = "kept";
  s.m_PurgeSrvOff = 1;
  s.m_PurgeSrvPort = 77;
  strcpy(s.m_PurgeSrvHost, "::1");
  char* dosed = strdup("(1:1.000)");
  s.m_LastDosedFrm = dosed;
  s.m_LastDosedMode = 2;

  EXPECT_EQ(s.clean(), 1);
  EXPECT_EQ(s.m_DispId, 0);
  EXPECT_EQ(s.m_Address, 0);
  EXPECT_STREQ(s.m_Descr, "");
  EXPECT_STREQ(s.m_Options, "");
  EXPECT_STREQ(s.m_Model, "");
  EXPECT_EQ(s.m_NumTanks, 0);
  EXPECT_EQ(s.m_TankRecNo, nullptr);
  EXPECT_EQ(s.m_TankCntId, nullptr);
  EXPECT_EQ(s.m_LastError, 0);
  EXPECT_EQ(s.m_SingleCircuit, 0);
  EXPECT_EQ(s.m_DataId, 0);
  EXPECT_EQ(s.m_FwVersion, -1);
  EXPECT_EQ(s.m_Window, nullptr);
  EXPECT_EQ(s.m_SplitThreshold, 0.0);
  EXPECT_EQ(s.m_SplitPerc, 0.0);
  EXPECT_EQ(s.m_SeparateThread, 1);
  EXPECT_EQ(s.m_Dsp, nullptr);
  EXPECT_STREQ(s.m_SerialNo, "");
  EXPECT_EQ(s.m_LastDosedFrm, nullptr);
  EXPECT_EQ(s.m_LastDosedMode, 0);
  // Untouched by clean.
  EXPECT_EQ(s.m_CommPort, 1);
  EXPECT_EQ(s.m_Text, "kept");
  EXPECT_EQ(s.m_PurgeSrvOff, 1);
  EXPECT_EQ(s.m_PurgeSrvPort, 77);
  EXPECT_STREQ(s.m_PurgeSrvHost, "::1");
  // The dosed text was dropped, not freed: it is still ours to free.
  EXPECT_STREQ(dosed, "(1:1.000)");
  free(dosed);
}

TEST_F(Selection, WindowHandleIsStoredAndReturned) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  EXPECT_EQ(s.GetWindowSlave(), nullptr);
  int window = 0;
  s.SetWindowSlave(&window);
  EXPECT_EQ(s.GetWindowSlave(), &window);
  EXPECT_EQ(s.m_Window, &window);
}

// --- Iterating the dispenser table ----------------------------------------------

TEST_F(Selection, FindFirstAndFindNextWalkTheDispensers) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(3)), 0);
  DispenserRow five = StandardDispenser(5);
  five.hide_id = "PELKO";
  ASSERT_GT(tables_.AddDispenser(five), 0);
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(2)), 0);
  slave s(2);
  ASSERT_EQ(s.m_DispId, 2);
  EXPECT_EQ(s.FindFirst(), 1);
  EXPECT_EQ(s.m_DispId, 3);
  EXPECT_EQ(s.FindNext(), 1);
  EXPECT_EQ(s.m_DispId, 5);
  ASSERT_NE(s.m_Dsp, nullptr);
  EXPECT_EQ(s.m_Dsp->GetType(0, 0), 3);
  EXPECT_EQ(s.FindNext(), 1);
  EXPECT_EQ(s.m_DispId, 2);
  EXPECT_EQ(s.FindNext(), 0);
}

TEST_F(Selection, IdZeroEndsIteration) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(3)), 0);
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(0)), 0);
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(5)), 0);
  slave s(3);
  EXPECT_EQ(s.FindFirst(), 1);
  EXPECT_EQ(s.m_DispId, 3);
  EXPECT_EQ(s.FindNext(), 0);
}

TEST_F(Selection, FindFirstOnEmptyTableFails) {
  slave s(1);
  EXPECT_EQ(s.FindFirst(), 0);
  EXPECT_EQ(s.FindNext(), 0);
}

TEST_F(Selection, FindFirstWithClosedTablesFails) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(3)), 0);
  slave s(3);
  ASSERT_EQ(s.CloseDatabases(), 1);
  EXPECT_EQ(s.FindFirst(), 0);
}

// --- Serial port -----------------------------------------------------------------

TEST_F(Selection, SetCommPortToTheCurrentPortDoesNothing) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  ASSERT_EQ(s.m_CommPort, 1);
  SimulatedDispenser* before = Sim(s);
  Sim(s)->ClearHistory();
  Dsp_LoadCallsReset();
  EXPECT_EQ(s.SetCommPort(1), 1);
  EXPECT_STREQ(Dsp_LoadCalls(), "");
  EXPECT_EQ(Sim(s), before);
  EXPECT_TRUE(Sim(s)->Calls().empty());
}

TEST_F(Selection, SetCommPortRewritesCommunicAndReselects) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  ASSERT_GT(tables_.AddTank(Tank(1, 2, 12)), 0);
  {
    slave s(1);
    Dsp_LoadCallsReset();
    EXPECT_EQ(s.SetCommPort(7), 1);
    EXPECT_STREQ(Dsp_LoadCalls(), "QI");
    EXPECT_EQ(s.m_CommPort, 7);
    EXPECT_EQ(s.GetCommPort(), 7);
    EXPECT_EQ(s.m_DispId, 1);
    EXPECT_EQ(s.m_NumTanks, 2);
    EXPECT_EQ(CountOf(CallsOf(s), "SetCommunication(7,9600,N,8,1,2.500)"), 1)
        << ::testing::PrintToString(CallsOf(s));
  }
  EXPECT_EQ(tables_.ReadDispenserField(1, "COMMUNIC"),
            Communic(7, 9600, 'N', 1, 8, 2.5));
}

TEST_F(Selection, SetCommPortWritesTwoDigitPorts) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  {
    slave s(1);
    EXPECT_EQ(s.SetCommPort(12), 1);
    EXPECT_EQ(s.m_CommPort, 12);
  }
  EXPECT_EQ(tables_.ReadDispenserField(1, "COMMUNIC"),
            Communic(12, 9600, 'N', 1, 8, 2.5));
}

TEST_F(Selection, SetCommPortWithoutDispenserOnlyUnloads) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(42);
  Dsp_LoadCallsReset();
  EXPECT_EQ(s.SetCommPort(3), 0);
  EXPECT_STREQ(Dsp_LoadCalls(), "Q");
}

TEST_F(Selection, SetCommPortWithClosedTablesOnlyUnloads) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  ASSERT_EQ(s.CloseDatabases(), 1);
  Dsp_LoadCallsReset();
  EXPECT_EQ(s.SetCommPort(5), 0);
  EXPECT_STREQ(Dsp_LoadCalls(), "Q");
}

// --- Separate thread --------------------------------------------------------------

TEST_F(Selection, EnableSeparateThreadReturnsThePreviousValue) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  EXPECT_EQ(s.EnableSeparateThread(0), 1);
  EXPECT_EQ(s.m_SeparateThread, 0);
  EXPECT_EQ(s.EnableSeparateThread(1), 0);
  EXPECT_EQ(s.m_SeparateThread, 1);
  EXPECT_EQ(s.EnableSeparateThread(2), 1);
  EXPECT_EQ(s.m_SeparateThread, 0);
  EXPECT_EQ(s.EnableSeparateThread(-1), 0);
  EXPECT_EQ(s.m_SeparateThread, 0);
}

TEST_F(Selection, SetSeparateThreadToCurrentStateKeepsTheDriver) {
  DispenserRow row = StandardDispenser(1);
  row.options = "00000010000000000000000000000000";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  Sim(s)->ClearHistory();
  char cmd[] = "/S1";
  ASSERT_EQ(s.sendcommand(cmd, nullptr, 0), 1);
  EXPECT_EQ(s.SetSeparateThread(1), 1);
  ASSERT_NE(Sim(s), nullptr);
  EXPECT_EQ(Sim(s)->Commands().size(), 1u);
}

// The switch compares its argument itself with the state: 2 is not the
// state 1, so option 6 is written (as '1') and the dispenser selected again.
TEST_F(Selection, SetSeparateThreadTwoWhenOnWritesAndReloads) {
  DispenserRow row = StandardDispenser(1);
  row.options = "00000010000000000000000000000000";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  {
    slave s(1);
    Sim(s)->ClearHistory();
    char cmd[] = "/S1";
    ASSERT_EQ(s.sendcommand(cmd, nullptr, 0), 1);
    EXPECT_EQ(s.SetSeparateThread(2), 1);
    ASSERT_NE(Sim(s), nullptr);
    // Reloaded: a new driver that has seen nothing yet.
    EXPECT_TRUE(Sim(s)->Commands().empty());
    EXPECT_EQ(s.m_Options[6], '1');
  }
  EXPECT_EQ(tables_.ReadDispenserField(1, "OPTIONS"),
            "00000010000000000000000000000000");
}

TEST_F(Selection, SetSeparateThreadOffWhenOffKeepsTheDriver) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  Sim(s)->ClearHistory();
  char cmd[] = "/S1";
  ASSERT_EQ(s.sendcommand(cmd, nullptr, 0), 1);
  EXPECT_EQ(s.SetSeparateThread(0), 1);
  EXPECT_EQ(Sim(s)->Commands().size(), 1u);
}

TEST_F(Selection, SetSeparateThreadOnWritesOptionSixAndReloads) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  {
    slave s(1);
    Sim(s)->ClearHistory();
    char first[] = "/S1";
    ASSERT_EQ(s.sendcommand(first, nullptr, 0), 1);
    EXPECT_EQ(s.SetSeparateThread(1), 1);
    EXPECT_EQ(s.m_Options[6], '1');
    ASSERT_NE(Sim(s), nullptr);
    // Reloaded: a new driver that has seen nothing yet.
    EXPECT_TRUE(Sim(s)->Commands().empty());
    char cmd[] = "/S2";
    EXPECT_EQ(s.sendcommand(cmd, nullptr, 0), 1);
    EXPECT_EQ(CountOf(Sim(s)->Calls(), "SendCommandThread(1,/S2)"), 1)
        << ::testing::PrintToString(Sim(s)->Calls());
  }
  EXPECT_EQ(tables_.ReadDispenserField(1, "OPTIONS"),
            "00000010000000000000000000000000");
}

TEST_F(Selection, SetSeparateThreadOffWritesOptionSix) {
  DispenserRow row = StandardDispenser(1);
  row.options = kAllOn;
  ASSERT_GT(tables_.AddDispenser(row), 0);
  {
    slave s(1);
    EXPECT_EQ(s.SetSeparateThread(0), 1);
    EXPECT_EQ(s.m_Options[6], '0');
    char cmd[] = "/S2";
    EXPECT_EQ(s.sendcommand(cmd, nullptr, 0), 1);
    EXPECT_EQ(CountOf(Sim(s)->Calls(), "SendCommand(1,/S2)"), 1);
  }
  EXPECT_EQ(tables_.ReadDispenserField(1, "OPTIONS"),
            "11111101111111111111111111111111");
}

TEST_F(Selection, ShortOptionsTextReadsOptionSixAsOff) {
  ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_DISPS, {{"OPTIONS", 4}}));
  DispenserRow row = StandardDispenser(1);
  row.options = "1111";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  ASSERT_STREQ(s.m_Options, "1111");
  Sim(s)->ClearHistory();
  char cmd[] = "/S1";
  ASSERT_EQ(s.sendcommand(cmd, nullptr, 0), 1);
  EXPECT_EQ(CountOf(Sim(s)->Calls(), "SendCommand(1,/S1)"), 1);
  // Already off: nothing to write, same driver.
  EXPECT_EQ(s.SetSeparateThread(0), 1);
  EXPECT_EQ(Sim(s)->Commands().size(), 1u);
}

// --- Quitting ---------------------------------------------------------------------

TEST_F(Selection, DispenserQuitCallsQuitAndClosesTables) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  Sim(s)->ClearHistory();
  EXPECT_EQ(s.DispenserQuit(), 0);
  EXPECT_EQ(CountOf(Sim(s)->Calls(), "Quit(1)"), 1);
  EXPECT_FALSE(DispOpen());
  EXPECT_FALSE(TankOpen());
  EXPECT_FALSE(CisternOpen());
}

TEST_F(Selection, DispenserQuitReturnsTheDriverResultAndStillCloses) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("quit", "3"));
  EXPECT_EQ(s.DispenserQuit(), 3);
  EXPECT_FALSE(DispOpen());
}

TEST_F(Selection, DispenserQuitWithoutDriverReturnsZeroAndKeepsTables) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(42);
  EXPECT_EQ(s.DispenserQuit(), 0);
  EXPECT_TRUE(DispOpen());
}

// --- Splitting percentage and threshold ----------------------------------------------

TEST_F(Selection, SplittingPercentageAndThresholdFromCfgStr) {
  DispenserRow row = StandardDispenser(1);
  row.cfg_str = FixedText(60, {{37, "0125"}, {41, "0300"}});
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  EXPECT_DOUBLE_EQ(s.GetSplittingPerc(), 12.5);
  EXPECT_DOUBLE_EQ(s.m_SplitPerc, 12.5);
  EXPECT_DOUBLE_EQ(s.GetSplittingThreshold(), 300.0);
  EXPECT_DOUBLE_EQ(s.m_SplitThreshold, 300.0);
}

TEST_F(Selection, SplittingValuesAreDecimalFractions) {
  DispenserRow row = StandardDispenser(1);
  row.cfg_str = FixedText(60, {{37, "87.5"}, {41, "2.25"}});
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  EXPECT_DOUBLE_EQ(s.GetSplittingPerc(), 8.75);
  EXPECT_DOUBLE_EQ(s.GetSplittingThreshold(), 2.25);
}

TEST_F(Selection, NonNumericSplittingPiecesReadAsZero) {
  DispenserRow row = StandardDispenser(1);
  row.cfg_str = FixedText(60, {{37, "abcd"}, {41, "wxyz"}});
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  EXPECT_EQ(s.GetSplittingPerc(), 0.0);
  EXPECT_EQ(s.GetSplittingThreshold(), 0.0);
}

TEST_F(Selection, ShortCfgStrGivesZeroSplitting) {
  DispenserRow row = StandardDispenser(1);
  row.cfg_str = " 050";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  EXPECT_EQ(s.GetSplittingPerc(), 0.0);
  EXPECT_EQ(s.GetSplittingThreshold(), 0.0);
}

TEST_F(Selection, SplittingWithoutDispenserIsZero) {
  DispenserRow row = StandardDispenser(1);
  row.cfg_str = FixedText(60, {{37, "0125"}, {41, "0300"}});
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(42);
  EXPECT_EQ(s.GetSplittingPerc(), 0.0);
  EXPECT_EQ(s.GetSplittingThreshold(), 0.0);
}

TEST_F(Selection, SplittingWithClosedTablesIsZero) {
  DispenserRow row = StandardDispenser(1);
  row.cfg_str = FixedText(60, {{37, "0125"}, {41, "0300"}});
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  ASSERT_EQ(s.CloseDatabases(), 1);
  EXPECT_EQ(s.GetSplittingPerc(), 0.0);
  EXPECT_EQ(s.GetSplittingThreshold(), 0.0);
}

TEST_F(Selection, UnreadableCfgStrReturnsThePreviousValues) {
  ASSERT_TRUE(tables_.RecreateWithout(QDB_SCHEMA_DISPS, {"CFG_STR"}));
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  ASSERT_NE(s.m_Dsp, nullptr);
  s.m_SplitPerc = 7.5;
  s.m_SplitThreshold = 40.0;
  EXPECT_EQ(s.GetSplittingPerc(), 7.5);
  EXPECT_EQ(s.GetSplittingThreshold(), 40.0);
}

// --- Speeds ----------------------------------------------------------------------------

TEST_F(Selection, NumSpeedsCountsWithNullPointer) {
  DispenserRow row = StandardDispenser(1);
  row.values = "10;20, 30";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  EXPECT_EQ(s.NumSpeeds(nullptr), 3);
}

TEST_F(Selection, NumSpeedsStoresEachSpeed) {
  DispenserRow row = StandardDispenser(1);
  row.values = "10;20, 30";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  int speeds[8] = {-1, -1, -1, -1, -1, -1, -1, -1};
  EXPECT_EQ(s.NumSpeeds(speeds), 3);
  EXPECT_EQ(speeds[0], 10);
  EXPECT_EQ(speeds[1], 20);
  EXPECT_EQ(speeds[2], 30);
  EXPECT_EQ(speeds[3], -1);
}

TEST_F(Selection, NumSpeedsSplitsOnEveryDelimiter) {
  DispenserRow row = StandardDispenser(1);
  row.values = "5\t6 7,8;9";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  int speeds[8] = {0};
  EXPECT_EQ(s.NumSpeeds(speeds), 5);
  EXPECT_EQ(speeds[0], 5);
  EXPECT_EQ(speeds[4], 9);
}

TEST_F(Selection, NumSpeedsOfEmptyValuesIsZero) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  int speeds[2] = {-1, -1};
  EXPECT_EQ(s.NumSpeeds(speeds), 0);
  EXPECT_EQ(speeds[0], -1);
}

TEST_F(Selection, NumSpeedsReadsNonNumericTokensAsZero) {
  DispenserRow row = StandardDispenser(1);
  row.values = "10;abc;30";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  int speeds[4] = {-1, -1, -1, -1};
  EXPECT_EQ(s.NumSpeeds(speeds), 3);
  EXPECT_EQ(speeds[0], 10);
  EXPECT_EQ(speeds[1], 0);
  EXPECT_EQ(speeds[2], 30);
}

TEST_F(Selection, NumSpeedsWithoutDispenserIsZero) {
  DispenserRow row = StandardDispenser(1);
  row.values = "10;20";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(42);
  EXPECT_EQ(s.NumSpeeds(nullptr), 0);
}

// --- Gravimetric colourants ----------------------------------------------------------

const char kNoColorants[] = ": error ... unable to open colorant database";

TEST_F(Selection, IsGravimetricWithoutDriverIsZero) {
  ASSERT_TRUE(tables_.AddColorant({1, "AAA", "White", 1200.0}) > 0);
  slave s(42);
  EXPECT_EQ(s.IsGravimetric(), 0);
}

TEST_F(Selection, IsGravimetricWithoutColorantTableTracesAndIsZero) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("gravimetric", "1"));
  EXPECT_EQ(s.IsGravimetric(), 0);
  EXPECT_EQ(qtest::CountSourceLines(trace_.messages(), "slv_slav", kNoColorants), 1)
      << trace_.text();
  EXPECT_EQ(CountPrefix(Sim(s)->Calls(), "IsGravimetricCnt("), 0);
}

TEST_F(Selection, IsGravimetricWithEmptyColorantTableTracesAndIsZero) {
  ASSERT_TRUE(tables_.CreateColorants());
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("gravimetric", "1"));
  EXPECT_EQ(s.IsGravimetric(), 0);
  EXPECT_EQ(qtest::CountSourceLines(trace_.messages(), "slv_slav", kNoColorants), 1)
      << trace_.text();
}

TEST_F(Selection, IsGravimetricAsksAboutEveryColourantInIdOrder) {
  ASSERT_GT(tables_.AddColorant({2, "BBB", "Black", 1100.0}), 0);
  ASSERT_GT(tables_.AddColorant({1, "AAA", "White", 1200.0}), 0);
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  Sim(s)->ClearHistory();
  EXPECT_EQ(s.IsGravimetric(), 0);
  std::vector<std::string> expected = {"IsGravimetricCnt((AAA:1.0))",
                                       "IsGravimetricCnt((BBB:1.0))"};
  EXPECT_EQ(Sim(s)->Calls(), expected);
  EXPECT_EQ(qtest::CountSourceLines(trace_.messages(), "slv_slav", kNoColorants), 0);
}

TEST_F(Selection, IsGravimetricStopsAtTheFirstGravimetricColourant) {
  ASSERT_GT(tables_.AddColorant({2, "BBB", "Black", 1100.0}), 0);
  ASSERT_GT(tables_.AddColorant({1, "AAA", "White", 1200.0}), 0);
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("gravimetric", "1"));
  Sim(s)->ClearHistory();
  EXPECT_EQ(s.IsGravimetric(), 1);
  std::vector<std::string> expected = {"IsGravimetricCnt((AAA:1.0))"};
  EXPECT_EQ(Sim(s)->Calls(), expected);
}

// --- Tank threshold and status ----------------------------------------------------------

class TankThreshold : public Selection {
 protected:
  void SetUp() override {
    Selection::SetUp();
    ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
    TankRow a = Tank(1, 1, 11);
    a.threshold = 2.5;
    a.status_flg = "10000000";
    TankRow b = Tank(1, 2, 12);
    b.threshold = 0.75;
    b.status_flg = "01000000";
    TankRow c = Tank(1, 4, 14);
    c.threshold = 9.0;
    c.status_flg = "11000000";
    ASSERT_GT(tables_.AddTank(a), 0);
    ASSERT_GT(tables_.AddTank(b), 0);
    ASSERT_GT(tables_.AddTank(c), 0);
  }
};

TEST_F(TankThreshold, ReadsThresholdAndFirstTwoFlags) {
  slave s(1);
  double th = -1;
  int f0 = -1;
  int f1 = -1;
  EXPECT_EQ(s.TankSoglia(1, &th, &f0, &f1), 1);
  EXPECT_DOUBLE_EQ(th, 2.5);
  EXPECT_EQ(f0, 1);
  EXPECT_EQ(f1, 0);
  EXPECT_EQ(s.TankSoglia(2, &th, &f0, &f1), 1);
  EXPECT_DOUBLE_EQ(th, 0.75);
  EXPECT_EQ(f0, 0);
  EXPECT_EQ(f1, 1);
  EXPECT_EQ(s.TankSoglia(4, &th, &f0, &f1), 1);
  EXPECT_DOUBLE_EQ(th, 9.0);
  EXPECT_EQ(f0, 1);
  EXPECT_EQ(f1, 1);
}

TEST_F(TankThreshold, AcceptsNullOutputs) {
  slave s(1);
  EXPECT_EQ(s.TankSoglia(1, nullptr, nullptr, nullptr), 1);
  double th = 0;
  EXPECT_EQ(s.TankSoglia(2, &th, nullptr, nullptr), 1);
  EXPECT_DOUBLE_EQ(th, 0.75);
}

TEST_F(TankThreshold, TankOutsideTheMapFailsWithZeroThreshold) {
  slave s(1);
  ASSERT_EQ(s.m_NumTanks, 4);
  double th = 5.0;
  int f0 = 0;
  int f1 = 0;
  EXPECT_EQ(s.TankSoglia(0, &th, &f0, &f1), 0);
  EXPECT_EQ(th, 0.0);
  th = 5.0;
  EXPECT_EQ(s.TankSoglia(5, &th, &f0, &f1), 0);
  EXPECT_EQ(th, 0.0);
  th = 5.0;
  EXPECT_EQ(s.TankSoglia(-1, &th, &f0, &f1), 0);
  EXPECT_EQ(th, 0.0);
}

TEST_F(TankThreshold, TankWithoutRecordFails) {
  slave s(1);
  double th = 5.0;
  EXPECT_EQ(s.TankSoglia(3, &th, nullptr, nullptr), 0);
  EXPECT_EQ(th, 0.0);
}

TEST_F(TankThreshold, WithoutDispenserFails) {
  slave s(42);
  double th = 5.0;
  EXPECT_EQ(s.TankSoglia(1, &th, nullptr, nullptr), 0);
  EXPECT_EQ(th, 0.0);
}

TEST_F(TankThreshold, WithClosedTablesFails) {
  slave s(1);
  ASSERT_EQ(s.CloseDatabases(), 1);
  double th = 5.0;
  EXPECT_EQ(s.TankSoglia(1, &th, nullptr, nullptr), 0);
  EXPECT_EQ(th, 0.0);
}

TEST_F(Selection, TankThresholdWithoutStatusFieldGivesZeroFlags) {
  ASSERT_TRUE(tables_.RecreateWithout(QDB_SCHEMA_TANKS, {"STATUS_FLG"}));
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  TankRow a = Tank(1, 1, 11);
  a.threshold = 1.5;
  ASSERT_GT(tables_.AddTank(a), 0);
  slave s(1);
  double th = 0;
  int f0 = -1;
  int f1 = -1;
  EXPECT_EQ(s.TankSoglia(1, &th, &f0, &f1), 1);
  EXPECT_DOUBLE_EQ(th, 1.5);
  EXPECT_EQ(f0, 0);
  EXPECT_EQ(f1, 0);
}

// --- Simulation switch --------------------------------------------------------------------

TEST_F(Selection, DspDebug256TurnsSimulationOn) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  qtest::ScopedEnv env("DSPDEBUG", "256");
  slave s(1);
  EXPECT_EQ(slave::debug, 1);
}

TEST_F(Selection, DspDebugOneDoesNotTurnSimulationOn) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  qtest::ScopedEnv env("DSPDEBUG", "1");
  slave s(1);
  EXPECT_EQ(slave::debug, 0);
}

TEST_F(Selection, DspDebugNonNumericDoesNotTurnSimulationOn) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  qtest::ScopedEnv env("DSPDEBUG", "on");
  slave s(1);
  EXPECT_EQ(slave::debug, 0);
}

TEST_F(Selection, WithoutDspDebugSimulationStaysOff) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  EXPECT_EQ(slave::debug, 0);
}

TEST_F(Selection, DspDebugIsReadOnlyByTheFirstLiveObject) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave first(1);
  ASSERT_EQ(slave::debug, 0);
  qtest::ScopedEnv env("DSPDEBUG", "256");
  slave second(1);
  EXPECT_EQ(slave::debug, 0);
}

class DebugFile : public Selection {
 protected:
  // Creates, in a fresh current directory, the file whose name is the
  // Windows path the library looks for: on Linux it is one relative file
  // name with backslashes in it.
  void WriteDebugFile(const std::string& content) {
    qtest::WriteFile(cwd_.file("C:\\quser\\dspdebug.dbg"), content);
  }
  qtest::TempDir cwd_;
};

TEST_F(DebugFile, Holding256TurnsSimulationOn) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  WriteDebugFile("256\n");
  qtest::ScopedCwd in(cwd_.path());
  ASSERT_TRUE(in.ok());
  slave s(1);
  EXPECT_EQ(slave::debug, 1);
  EXPECT_EQ(s.m_DispId, 1);
}

TEST_F(DebugFile, HoldingThreePassesThrough) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  WriteDebugFile("3\n");
  qtest::ScopedCwd in(cwd_.path());
  ASSERT_TRUE(in.ok());
  slave s(1);
  EXPECT_EQ(slave::debug, 3);
}

TEST_F(DebugFile, WinsOverDspDebug) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  WriteDebugFile("3");
  qtest::ScopedEnv env("DSPDEBUG", "256");
  qtest::ScopedCwd in(cwd_.path());
  ASSERT_TRUE(in.ok());
  slave s(1);
  EXPECT_EQ(slave::debug, 3);
}

TEST_F(DebugFile, HoldingZeroLeavesTheChoiceToDspDebug) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  WriteDebugFile("0\n");
  qtest::ScopedEnv env("DSPDEBUG", "256");
  qtest::ScopedCwd in(cwd_.path());
  ASSERT_TRUE(in.ok());
  slave s(1);
  EXPECT_EQ(slave::debug, 1);
}

TEST_F(DebugFile, IsLookedUpInTheCurrentDirectoryOnly) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  WriteDebugFile("256\n");
  // The current directory is not the one holding the file.
  slave s(1);
  EXPECT_EQ(slave::debug, 0);
}

}  // namespace
