// Machine status and options: the status-word predicates (in simulation,
// without an answer, bit by bit), the door query, the firmware generation
// and its cache, forcing an option on disk, the machine parameters of
// CFG_STR, the model and serial number exchange, the circuit status query
// and a single dispensing step.
#include <gtest/gtest.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include "library_env.h"

namespace {

using qtest::CountSourceLines;
using qtest::CountOf;
using qtest::CountPrefix;
using qtest::DispenserRow;
using qtest::FixedText;
using qtest::Sim;
using qtest::StandardDispenser;

const char kDoorSwitch[] = "00001000000000000000000000000000";
const char kAllOff[] = "00000000000000000000000000000000";
const char kAllOn[] = "11111111111111111111111111111111";

typedef int (slave::*Predicate)(int);

class MachineStatus : public qtest::LibraryEnv {
 protected:
  // A slave on dispenser 1 with the given record, its driver's history
  // cleared.
  std::unique_ptr<slave> Open(const DispenserRow& row) {
    EXPECT_GT(tables_.AddDispenser(row), 0);
    std::unique_ptr<slave> s(new slave(row.id));
    if (Sim(*s) != nullptr) Sim(*s)->ClearHistory();
    return s;
  }
  std::unique_ptr<slave> OpenWithOptions(const std::string& options) {
    DispenserRow row = StandardDispenser(1);
    row.options = options;
    return Open(row);
  }
  std::unique_ptr<slave> OpenWithCfg(const std::string& cfg) {
    DispenserRow row = StandardDispenser(1);
    row.cfg_str = cfg;
    return Open(row);
  }

  // In simulation the predicate answers a fixed value whatever the status.
  void ExpectSimulation(Predicate p, int answer) {
    std::unique_ptr<slave> s = OpenWithOptions(kDoorSwitch);
    slave::debug = 1;
    EXPECT_EQ(((*s).*p)(0), answer);
    EXPECT_EQ(((*s).*p)(0x3FF), answer);
    EXPECT_EQ(((*s).*p)(-1), answer);
  }
  void ExpectNoAnswer(Predicate p, int answer) {
    std::unique_ptr<slave> s = OpenWithOptions(kDoorSwitch);
    EXPECT_EQ(((*s).*p)(-1), answer);
  }
  void ExpectBit(Predicate p, int bit) {
    std::unique_ptr<slave> s = OpenWithOptions(kDoorSwitch);
    EXPECT_EQ(((*s).*p)(bit), 1);
    EXPECT_EQ(((*s).*p)(0x3FF & ~bit), 0);
    EXPECT_EQ(((*s).*p)(0), 0);
    EXPECT_EQ(((*s).*p)(0x3FF), 1);
  }
};

// --- The predicates: simulation, no answer, and the bit of each ------------

#define QSLAVE_PREDICATE_TESTS(Name, bit, in_simulation, without_answer) \
  TEST_F(MachineStatus, Name##InSimulation) {                           \
    ExpectSimulation(static_cast<Predicate>(&slave::Name), in_simulation); \
  }                                                                     \
  TEST_F(MachineStatus, Name##WithoutAnswer) {                          \
    ExpectNoAnswer(static_cast<Predicate>(&slave::Name), without_answer); \
  }                                                                     \
  TEST_F(MachineStatus, Name##TestsBit##bit) {                          \
    ExpectBit(static_cast<Predicate>(&slave::Name), bit);               \
  }

QSLAVE_PREDICATE_TESTS(IsStopPressed, 1, 0, 0)
QSLAVE_PREDICATE_TESTS(IsStartReleased, 2, 1, 1)
QSLAVE_PREDICATE_TESTS(IsErrorQueueEmpty, 4, 1, 1)
QSLAVE_PREDICATE_TESTS(IsErrorQueueOverflow, 8, 0, 0)
QSLAVE_PREDICATE_TESTS(IsBusy, 16, 0, 1)
QSLAVE_PREDICATE_TESTS(IsBusyForAutomaticProcess, 32, 0, 0)
QSLAVE_PREDICATE_TESTS(IsCanPresent, 64, 1, 0)
QSLAVE_PREDICATE_TESTS(IsDoorClosed, 128, 1, 0)
QSLAVE_PREDICATE_TESTS(IsEmergencyPressed, 256, 0, 0)
QSLAVE_PREDICATE_TESTS(IsBusyForNozzleWash, 512, 0, 0)

#undef QSLAVE_PREDICATE_TESTS

TEST_F(MachineStatus, MissingAnswerIsBusyButNotBusyForAutomaticProcess) {
  std::unique_ptr<slave> s = OpenWithOptions(kDoorSwitch);
  EXPECT_EQ(s->IsBusy(-1), 1);
  EXPECT_EQ(s->IsBusyForAutomaticProcess(-1), 0);
}

TEST_F(MachineStatus, SimulationReportsCanPresentAndStopNotPressed) {
  std::unique_ptr<slave> s = OpenWithOptions(kDoorSwitch);
  slave::debug = 1;
  EXPECT_EQ(s->IsCanPresent(0), 1);
  EXPECT_EQ(s->IsStopPressed(1), 0);
}

TEST_F(MachineStatus, PredicatesNeedNoDispenser) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(42);
  EXPECT_EQ(s.IsBusy(16), 1);
  EXPECT_EQ(s.IsBusy(0), 0);
  EXPECT_EQ(s.IsCanPresent(64), 1);
  EXPECT_EQ(s.IsEmergencyPressed(256), 1);
}

TEST_F(MachineStatus, NozzleWashIsTracedOutsideSimulation) {
  std::unique_ptr<slave> s = OpenWithOptions(kDoorSwitch);
  trace_.clear();
  EXPECT_EQ(s->IsBusyForNozzleWash(512), 1);
  EXPECT_EQ(s->IsBusyForNozzleWash(-1), 0);
  const std::string head = ":IsBusyForNozzleWash() called ... ";
  EXPECT_EQ(CountSourceLines(trace_.messages(), "slv_stat",
                             head + "code=1 status=512"),
            1)
      << trace_.text();
  EXPECT_EQ(CountSourceLines(trace_.messages(), "slv_stat",
                             head + "code=0 status=-1"),
            1)
      << trace_.text();
}

TEST_F(MachineStatus, NozzleWashIsNotTracedInSimulation) {
  std::unique_ptr<slave> s = OpenWithOptions(kDoorSwitch);
  slave::debug = 1;
  trace_.clear();
  EXPECT_EQ(s->IsBusyForNozzleWash(512), 0);
  EXPECT_TRUE(trace_.messages().empty()) << trace_.text();
}

// --- The door -----------------------------------------------------------------

TEST_F(MachineStatus, WithoutDoorSwitchTheDoorCountsAsClosed) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  EXPECT_EQ(s->IsDoorClosed(0), 1);
  EXPECT_EQ(s->IsDoorClosed(-1), 1);
  EXPECT_EQ(s->IsDoorClosed(), 1);
  EXPECT_TRUE(Sim(*s)->Commands().empty());
}

TEST_F(MachineStatus, ShortOptionsTextReadsDoorSwitchAsAbsent) {
  ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_DISPS, {{"OPTIONS", 3}}));
  std::unique_ptr<slave> s = OpenWithOptions("111");
  ASSERT_STREQ(s->m_Options, "111");
  EXPECT_EQ(s->IsDoorClosed(0), 1);
  EXPECT_EQ(s->IsDoorClosed(), 1);
  EXPECT_TRUE(Sim(*s)->Commands().empty());
}

TEST_F(MachineStatus, WithoutDispenserTheDoorCountsAsClosed) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(42);
  EXPECT_EQ(s.IsDoorClosed(0), 1);
  EXPECT_EQ(s.IsDoorClosed(), 1);
}

TEST_F(MachineStatus, DoorQueryAsksForTheStatus) {
  std::unique_ptr<slave> s = OpenWithOptions(kDoorSwitch);
  Sim(*s)->AddRule("/!", 128 | 2);
  EXPECT_EQ(s->IsDoorClosed(), 1);
  std::vector<std::string> expected = {"/!"};
  EXPECT_EQ(Sim(*s)->Commands(), expected);
}

TEST_F(MachineStatus, DoorQueryWithBitSevenClearIsOpen) {
  std::unique_ptr<slave> s = OpenWithOptions(kDoorSwitch);
  Sim(*s)->AddRule("/!", 0x3FF & ~128);
  EXPECT_EQ(s->IsDoorClosed(), 0);
}

TEST_F(MachineStatus, DoorQueryWithoutAnswerIsOpen) {
  std::unique_ptr<slave> s = OpenWithOptions(kDoorSwitch);
  Sim(*s)->AddRule("/!", -1);
  EXPECT_EQ(s->IsDoorClosed(), 0);
}

TEST_F(MachineStatus, DoorQueryOfIdleMachineIsClosed) {
  std::unique_ptr<slave> s = OpenWithOptions(kDoorSwitch);
  EXPECT_EQ(s->IsDoorClosed(), 1);
}

TEST_F(MachineStatus, DoorQueryInSimulationSendsNothing) {
  std::unique_ptr<slave> s = OpenWithOptions(kDoorSwitch);
  Sim(*s)->AddRule("/!", 0);
  slave::debug = 1;
  EXPECT_EQ(s->IsDoorClosed(), 1);
  EXPECT_TRUE(Sim(*s)->Commands().empty());
}

// --- Firmware generation ----------------------------------------------------------

const char kAskingFw[] = ": Asking for firmware version: -> ";

bool IsAskingFw(const std::string& message) {
  return qtest::IsSourceLine(message, "slv_fw", kAskingFw);
}

TEST_F(MachineStatus, NewerFirmwareIsTwo) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  trace_.clear();
  EXPECT_EQ(s->SlaveFw(), 2);
  EXPECT_EQ(s->m_FwVersion, 2);
  std::vector<std::string> messages = trace_.messages();
  ASSERT_EQ(messages.size(), 2u) << trace_.text();
  EXPECT_TRUE(IsAskingFw(messages[0])) << messages[0];
  EXPECT_EQ(messages[1], ": [2]->Forvel, Stanza, Lumet KXQP.");
}

TEST_F(MachineStatus, OldFirmwareIsOne) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  ASSERT_TRUE(Sim(*s)->SetSetting("firmware", "1"));
  trace_.clear();
  EXPECT_EQ(s->SlaveFw(), 1);
  std::vector<std::string> messages = trace_.messages();
  ASSERT_EQ(messages.size(), 2u) << trace_.text();
  EXPECT_TRUE(IsAskingFw(messages[0])) << messages[0];
  EXPECT_EQ(messages[1], ": [1]->Old firmware.");
}

TEST_F(MachineStatus, FirmwareIsAskedOnceAndCached) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  EXPECT_EQ(s->SlaveFw(), 2);
  trace_.clear();
  ASSERT_TRUE(Sim(*s)->SetSetting("firmware", "1"));
  EXPECT_EQ(s->SlaveFw(), 2);
  EXPECT_EQ(CountOf(Sim(*s)->Calls(), "GetFirmwareVersion(1)"), 1);
  EXPECT_TRUE(trace_.messages().empty());
}

TEST_F(MachineStatus, FirmwareAnswerThreeIsMinusTwoAndCachedUntilNextSet) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  ASSERT_TRUE(Sim(*s)->SetSetting("firmware", "3"));
  trace_.clear();
  EXPECT_EQ(s->SlaveFw(), -2);
  std::vector<std::string> messages = trace_.messages();
  ASSERT_EQ(messages.size(), 2u) << trace_.text();
  EXPECT_EQ(messages[1], ": Error.");
  EXPECT_EQ(s->SlaveFw(), -2);
  EXPECT_EQ(s->SlaveFw(), -2);
  EXPECT_EQ(CountOf(Sim(*s)->Calls(), "GetFirmwareVersion(1)"), 1);
  // The next selection asks again (the new driver answers 2).
  ASSERT_EQ(s->Set(1), 1);
  EXPECT_EQ(s->m_FwVersion, -1);
  EXPECT_EQ(s->SlaveFw(), 2);
}

TEST_F(MachineStatus, FirmwareAnswerZeroIsMinusTwo) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  ASSERT_TRUE(Sim(*s)->SetSetting("firmware", "0"));
  EXPECT_EQ(s->SlaveFw(), -2);
}

TEST_F(MachineStatus, FirmwareWithoutDriverIsMinusTwoAndNotCached) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(42);
  trace_.clear();
  EXPECT_EQ(s.SlaveFw(), -2);
  EXPECT_EQ(s.m_FwVersion, -1);
  EXPECT_EQ(CountSourceLines(trace_.messages(), "slv_fw", kAskingFw), 0);
}

// --- Forcing an option ---------------------------------------------------------------

TEST_F(MachineStatus, ForceOptionSetsTheOptionInMemoryAndOnDisk) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(2)), 0);
  {
    std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
    EXPECT_EQ(s->ForceOption(3, 1), 1);
    EXPECT_STREQ(s->m_Options, "00010000000000000000000000000000");
  }
  EXPECT_EQ(tables_.ReadDispenserField(1, "OPTIONS"),
            "00010000000000000000000000000000");
  EXPECT_EQ(tables_.ReadDispenserField(2, "OPTIONS"), kAllOff);
}

TEST_F(MachineStatus, ForceOptionClearsAnOption) {
  {
    std::unique_ptr<slave> s = OpenWithOptions(kAllOn);
    EXPECT_EQ(s->ForceOption(0, 0), 1);
    EXPECT_STREQ(s->m_Options, "01111111111111111111111111111111");
  }
  EXPECT_EQ(tables_.ReadDispenserField(1, "OPTIONS"),
            "01111111111111111111111111111111");
}

TEST_F(MachineStatus, ForceOptionTreatsAnyNonZeroAsOn) {
  {
    std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
    EXPECT_EQ(s->ForceOption(31, 7), 1);
    EXPECT_STREQ(s->m_Options, "00000000000000000000000000000001");
  }
  EXPECT_EQ(tables_.ReadDispenserField(1, "OPTIONS"),
            "00000000000000000000000000000001");
}

TEST_F(MachineStatus, ForcedDoorSwitchTakesEffectAtOnce) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  ASSERT_EQ(s->IsDoorClosed(0), 1);
  ASSERT_EQ(s->ForceOption(4, 1), 1);
  EXPECT_EQ(s->IsDoorClosed(0), 0);
}

TEST_F(MachineStatus, ForceOptionRefusesNegativePosition) {
  {
    std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
    EXPECT_EQ(s->ForceOption(-1, 1), 0);
    EXPECT_STREQ(s->m_Options, kAllOff);
  }
  EXPECT_EQ(tables_.ReadDispenserField(1, "OPTIONS"), kAllOff);
}

TEST_F(MachineStatus, ForceOptionRefusesPosition32) {
  {
    std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
    EXPECT_EQ(s->ForceOption(32, 1), 0);
    EXPECT_STREQ(s->m_Options, kAllOff);
  }
  EXPECT_EQ(tables_.ReadDispenserField(1, "OPTIONS"), kAllOff);
}

TEST_F(MachineStatus, ForceOptionRefusesFarPosition) {
  {
    std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
    EXPECT_EQ(s->ForceOption(1000, 1), 0);
    EXPECT_STREQ(s->m_Options, kAllOff);
  }
  EXPECT_EQ(tables_.ReadDispenserField(1, "OPTIONS"), kAllOff);
}

TEST_F(MachineStatus, ForceOptionWithoutDispenserFails) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(42);
  EXPECT_EQ(s.ForceOption(3, 1), 0);
}

TEST_F(MachineStatus, ForceOptionWithClosedTablesFails) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  ASSERT_EQ(s->CloseDatabases(), 1);
  EXPECT_EQ(s->ForceOption(3, 1), 0);
  EXPECT_STREQ(s->m_Options, kAllOff);
}

// --- Machine parameters from CFG_STR -------------------------------------------------

TEST_F(MachineStatus, HfotoIsPercentageOfHeight) {
  std::unique_ptr<slave> s = OpenWithCfg(FixedText(50, {{1, "050"}, {4, "0300"}}));
  EXPECT_EQ(s->Hfoto(), 150);
}

TEST_F(MachineStatus, HfotoIsTruncated) {
  std::unique_ptr<slave> s = OpenWithCfg(FixedText(50, {{1, "033"}, {4, "0100"}}));
  EXPECT_EQ(s->Hfoto(), 33);
}

TEST_F(MachineStatus, HfotoDropsTheFraction) {
  std::unique_ptr<slave> s = OpenWithCfg(FixedText(50, {{1, "033"}, {4, "0050"}}));
  EXPECT_EQ(s->Hfoto(), 16);
}

TEST_F(MachineStatus, HPrefPosIsPercentageOfTheSecondHeight) {
  std::unique_ptr<slave> s = OpenWithCfg(
      FixedText(50, {{1, "050"}, {4, "0300"}, {33, "0240"}}));
  EXPECT_EQ(s->HPrefPos(), 120);
  EXPECT_EQ(s->Hfoto(), 150);
}

TEST_F(MachineStatus, HPrefPosIsTruncated) {
  std::unique_ptr<slave> s = OpenWithCfg(
      FixedText(50, {{1, "033"}, {4, "0000"}, {33, "0100"}}));
  EXPECT_EQ(s->HPrefPos(), 33);
}

TEST_F(MachineStatus, ManualPuncherIsTheDigitAtPosition45) {
  std::unique_ptr<slave> s = OpenWithCfg(FixedText(50, {{45, "7"}, {46, "9"}}));
  EXPECT_EQ(s->ManualPuncher(), 7);
}

TEST_F(MachineStatus, ManualPuncherBlankIsZero) {
  std::unique_ptr<slave> s = OpenWithCfg(FixedText(50, {{1, "050"}}));
  EXPECT_EQ(s->ManualPuncher(), 0);
}

TEST_F(MachineStatus, ManualPuncherNonDigitIsZero) {
  std::unique_ptr<slave> s = OpenWithCfg(FixedText(50, {{45, "x"}}));
  EXPECT_EQ(s->ManualPuncher(), 0);
}

TEST_F(MachineStatus, NonNumericHeightPiecesGiveZero) {
  std::unique_ptr<slave> s = OpenWithCfg(
      FixedText(50, {{1, "abc"}, {4, "0300"}, {33, "0100"}}));
  EXPECT_EQ(s->Hfoto(), 0);
  EXPECT_EQ(s->HPrefPos(), 0);
}

TEST_F(MachineStatus, ShortCfgStrGivesZeroHeights) {
  std::unique_ptr<slave> s = OpenWithCfg(" 050");
  EXPECT_EQ(s->Hfoto(), 0);
  EXPECT_EQ(s->HPrefPos(), 0);
  EXPECT_EQ(s->ManualPuncher(), 0);
}

TEST_F(MachineStatus, MachineParametersWithoutDispenserAreZero) {
  DispenserRow row = StandardDispenser(1);
  row.cfg_str = FixedText(50, {{1, "050"}, {4, "0300"}, {33, "0240"}, {45, "7"}});
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(42);
  EXPECT_EQ(s.Hfoto(), 0);
  EXPECT_EQ(s.HPrefPos(), 0);
  EXPECT_EQ(s.ManualPuncher(), 0);
}

TEST_F(MachineStatus, MachineParametersWithClosedTablesAreZero) {
  std::unique_ptr<slave> s = OpenWithCfg(
      FixedText(50, {{1, "050"}, {4, "0300"}, {33, "0240"}, {45, "7"}}));
  ASSERT_EQ(s->CloseDatabases(), 1);
  EXPECT_EQ(s->Hfoto(), 0);
  EXPECT_EQ(s->HPrefPos(), 0);
  EXPECT_EQ(s->ManualPuncher(), 0);
}

TEST_F(MachineStatus, MachineParametersWithoutCfgStrFieldAreZero) {
  ASSERT_TRUE(tables_.RecreateWithout(QDB_SCHEMA_DISPS, {"CFG_STR"}));
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  ASSERT_NE(s->m_Dsp, nullptr);
  EXPECT_EQ(s->Hfoto(), 0);
  EXPECT_EQ(s->HPrefPos(), 0);
  EXPECT_EQ(s->ManualPuncher(), 0);
}

// --- Model and serial number -------------------------------------------------------

TEST_F(MachineStatus, SetMachineModelAndSerialNoSendsM0) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  char text[] = "ABC 123";
  EXPECT_EQ(s->SetMachineModelAndSerialNo(text), 1);
  std::vector<std::string> expected = {"/M0(ABC 123)"};
  EXPECT_EQ(Sim(*s)->Commands(), expected);
}

TEST_F(MachineStatus, RefusedMachineModelAndSerialNoKeepsTheError) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  Sim(*s)->AddRule("/M0(*)", 4);
  char text[] = "ABC";
  EXPECT_EQ(s->SetMachineModelAndSerialNo(text), 0);
  EXPECT_EQ(s->m_LastError, 4);
}

TEST_F(MachineStatus, GetMachineModelAndSerialNoReturnsTheAnswer) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  Sim(*s)->AddRule("/M1", 0, "MODELX 12345");
  EXPECT_STREQ(s->GetMachineModelAndSerialNo(), "MODELX 12345");
  std::vector<std::string> expected = {"/M1"};
  EXPECT_EQ(Sim(*s)->Commands(), expected);
}

TEST_F(MachineStatus, GetMachineModelAndSerialNoOfTheSimulator) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  EXPECT_STREQ(s->GetMachineModelAndSerialNo(), "SIM2-0 SN000001");
}

TEST_F(MachineStatus, GetMachineModelAndSerialNoWithErrorCodeIsEmpty) {
  DispenserRow row = StandardDispenser(1);
  row.serial_n = "SN-0042";
  std::unique_ptr<slave> s = Open(row);
  EXPECT_STREQ(s->GetMachineModelAndSerialNo(), "SIM2-0 SN000001");
  Sim(*s)->AddRule("/M1", 3, "X");
  EXPECT_STREQ(s->GetMachineModelAndSerialNo(), "");
}

TEST_F(MachineStatus, GetMachineModelAndSerialNoWithoutAnswerIsTheRecordSerial) {
  DispenserRow row = StandardDispenser(1);
  row.serial_n = "SN-0042";
  std::unique_ptr<slave> s = Open(row);
  Sim(*s)->AddRule("/M1", -1);
  EXPECT_STREQ(s->GetMachineModelAndSerialNo(), "SN-0042");
}

TEST_F(MachineStatus, GetMachineModelAndSerialNoWithoutAnswerOrSerialField) {
  ASSERT_TRUE(tables_.RecreateWithout(QDB_SCHEMA_DISPS, {"SERIAL_N"}));
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  Sim(*s)->AddRule("/M1", -1);
  EXPECT_STREQ(s->GetMachineModelAndSerialNo(), "");
}

TEST_F(MachineStatus, GetMachineModelAndSerialNoWithoutDriver) {
  DispenserRow row = StandardDispenser(1);
  row.serial_n = "SN-0042";
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(42);
  EXPECT_STREQ(s.GetMachineModelAndSerialNo(), "");
}

TEST_F(MachineStatus, GetMachineModelAndSerialNoUsesOneStaticBuffer) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  Sim(*s)->AddRule("/M1", 0, "FIRST");
  char* first = s->GetMachineModelAndSerialNo();
  Sim(*s)->ClearRules();
  Sim(*s)->AddRule("/M1", 0, "SECOND");
  char* second = s->GetMachineModelAndSerialNo();
  EXPECT_EQ(first, second);
  EXPECT_STREQ(first, "SECOND");
}

// --- Circuit status ---------------------------------------------------------------

TEST_F(MachineStatus, K240CircuitsStatusReturnsTheAnswer) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  Sim(*s)->AddRule("/KS(3)", 0, "110011");
  EXPECT_STREQ(s->GetK240CircuitsStatus(3), "110011");
  std::vector<std::string> expected = {"/KS(3)"};
  EXPECT_EQ(Sim(*s)->Commands(), expected);
}

TEST_F(MachineStatus, K240CircuitsStatusWithErrorCodeIsEmpty) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  Sim(*s)->AddRule("/KS(3)", 0, "110011");
  ASSERT_STREQ(s->GetK240CircuitsStatus(3), "110011");
  Sim(*s)->AddRule("/KS(12)", 2, "999");
  EXPECT_STREQ(s->GetK240CircuitsStatus(12), "");
  EXPECT_EQ(s->m_LastError, 0);
}

TEST_F(MachineStatus, K240CircuitsStatusWithoutAnswerIsEmpty) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  Sim(*s)->AddRule("/KS(1)", 0, "1");
  ASSERT_STREQ(s->GetK240CircuitsStatus(1), "1");
  Sim(*s)->AddRule("/KS(2)", -1);
  EXPECT_STREQ(s->GetK240CircuitsStatus(2), "");
}

TEST_F(MachineStatus, K240CircuitsStatusWithoutDriverIsEmpty) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(42);
  EXPECT_STREQ(s.GetK240CircuitsStatus(3), "");
}

// --- Dispensing step ----------------------------------------------------------------

TEST_F(MachineStatus, DispenseStepSwapsItsLastTwoArguments) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  EXPECT_EQ(s->DispenseStep(1, 2, 3), 0);
  std::vector<std::string> expected = {"DispenseStep(1,1,3,2,0)"};
  EXPECT_EQ(Sim(*s)->Calls(), expected);
}

TEST_F(MachineStatus, DispenseStepReturnsTheDriverResult) {
  std::unique_ptr<slave> s = OpenWithOptions(kAllOff);
  ASSERT_TRUE(Sim(*s)->SetSetting("step", "6"));
  EXPECT_EQ(s->DispenseStep(-4, 70000, 0), 6);
  std::vector<std::string> expected = {"DispenseStep(1,-4,0,70000,0)"};
  EXPECT_EQ(Sim(*s)->Calls(), expected);
}

TEST_F(MachineStatus, DispenseStepWithoutDriverIsZero) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(42);
  EXPECT_EQ(s.DispenseStep(1, 2, 3), 0);
}

// --- A machine that never answers ---------------------------------------------------

TEST_F(MachineStatus, DriverAnsweringMinusOneToEverything) {
  DispenserRow row = StandardDispenser(1);
  row.options = kDoorSwitch;
  row.serial_n = "SN-9";
  std::unique_ptr<slave> s = Open(row);
  Sim(*s)->AddRule("*", -1);
  EXPECT_EQ(s->IsDoorClosed(), 0);
  EXPECT_STREQ(s->GetMachineModelAndSerialNo(), "SN-9");
  EXPECT_STREQ(s->GetK240CircuitsStatus(1), "");
  char text[] = "X";
  EXPECT_EQ(s->SetMachineModelAndSerialNo(text), 0);
  EXPECT_EQ(s->m_LastError, -1);
  EXPECT_EQ(CountPrefix(Sim(*s)->Commands(), "/"), 4);
}

}  // namespace
