// The simulated dispenser of the reference host (libcdispenser.so): its
// idle-machine answers, its settings and rules file, and the record of the
// calls it received.
#include <climits>
#include <cwchar>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/cdispenser.h"
#include "simulated_dispenser.h"
#include "test_support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct DispenserDeleter {
  void operator()(CDispenser* dsp) const { CDispenser_Delete(dsp, 0); }
};
using DispenserPtr = std::unique_ptr<CDispenser, DispenserDeleter>;

const int kIdle = SimulatedDispenser::kIdleStatus;

// Every case starts from a machine without a rules file, whatever the
// environment the tests run in.
class SimTest : public ::testing::Test {
 protected:
  DispenserPtr Make(int type, int variant = 0) {
    return DispenserPtr(CDispenser_CreateNew(type, variant));
  }
  SimulatedDispenser* Sim(const DispenserPtr& dsp) {
    SimulatedDispenser* sim = SimulatedDispenser::From(dsp.get());
    EXPECT_NE(sim, nullptr);
    return sim;
  }

  qtest::ScopedEnv no_rules_{"QSLAVE_SIM", nullptr};
};

// --- Creation ----------------------------------------------------------------

TEST_F(SimTest, EveryTypeGetsASimulatorThatKnowsItsType) {
  for (int type : {0, 1, 7, 9, 42, -3, INT_MAX}) {
    DispenserPtr dsp = Make(type, 5);
    ASSERT_NE(dsp, nullptr) << type;
    EXPECT_EQ(dsp->GetType(0, 0), type);
    EXPECT_EQ(dsp->GetType(123, -4), type);
    EXPECT_NE(SimulatedDispenser::From(dsp.get()), nullptr);
  }
}

TEST_F(SimTest, FromNullAndDeleteNullAreHarmless) {
  EXPECT_EQ(SimulatedDispenser::From(nullptr), nullptr);
  CDispenser_Delete(nullptr, 0);
}

// --- The idle machine ----------------------------------------------------------

TEST_F(SimTest, StatusQueryAnswersIdleMachine) {
  DispenserPtr dsp = Make(1);
  EXPECT_EQ(kIdle, 2 + 4 + 64 + 128);
  EXPECT_EQ(dsp->SendCommand(1, "/!"), kIdle);
  EXPECT_STREQ(dsp->GetAnswer(1), "");
}

TEST_F(SimTest, AnswerIsEmptyBeforeAnyCommand) {
  DispenserPtr dsp = Make(1);
  const char* answer = dsp->GetAnswer(1);
  ASSERT_NE(answer, nullptr);
  EXPECT_STREQ(answer, "");
}

TEST_F(SimTest, DispenseCommandsAreAccepted) {
  DispenserPtr dsp = Make(3);
  EXPECT_EQ(dsp->SendCommand(1, "/D(1:10.000)(4:2.500)"), 0);
  EXPECT_STREQ(dsp->GetAnswer(1), "");
  EXPECT_EQ(dsp->GetLastError(1), -1);
}

TEST_F(SimTest, ModelQueryAnswersTypeVariantAndSerial) {
  DispenserPtr dsp = Make(9, 2);
  EXPECT_EQ(dsp->SendCommand(1, "/M1"), 0);
  EXPECT_STREQ(dsp->GetAnswer(1), "SIM9-2 SN000001");
}

TEST_F(SimTest, OtherQueriesAnswerZeroAndNothing) {
  DispenserPtr dsp = Make(1);
  for (const char* cmd : {"/?", "/Q", "/Q12", "/W", "/W3", "/KS(4)", "/Z"}) {
    dsp->SendCommand(1, "/M1");  // leaves a non-empty answer behind
    EXPECT_EQ(dsp->SendCommand(1, cmd), 0) << cmd;
    EXPECT_STREQ(dsp->GetAnswer(1), "") << cmd;
  }
}

TEST_F(SimTest, OperationDefaults) {
  DispenserPtr dsp = Make(9, 1);
  EXPECT_EQ(dsp->Quit(0), 0);
  EXPECT_EQ(dsp->GetFirmwareVersion(1), 2);
  EXPECT_EQ(dsp->GetLastError(1), -1);
  EXPECT_EQ(dsp->ErrorQueueCount(1), 0);
  EXPECT_EQ(dsp->ErrorQueueClear(1), 1);
  EXPECT_EQ(dsp->MoveToFill(1, 3), 0);
  EXPECT_EQ(dsp->PurgeCircuits(0, nullptr, 0.0), -1);
  int circuits[] = {1, 2};
  EXPECT_EQ(dsp->PurgeCircuits(2, circuits, 1.5), -1);
  EXPECT_EQ(dsp->DispenseStep(1, 1, 2, 3, 0), 0);
  EXPECT_EQ(dsp->GetCircuitCount(1), 0);
  EXPECT_EQ(dsp->GetCanisterField(0), 1);
  EXPECT_EQ(dsp->GetCanisterField(11), 12);
  EXPECT_EQ(dsp->GetCanisterFlagA(11), 0);
  EXPECT_EQ(dsp->GetCanisterFlagB(11), 0);
  EXPECT_EQ(dsp->GetCanisterField(-1), 0);
  EXPECT_EQ(dsp->GetCanisterField(INT_MAX), 0);
  EXPECT_EQ(dsp->CheckFormulaLevel("(A1:1.000)"), 2);
  EXPECT_FALSE(dsp->IsGravimetricCnt("(A1:1.000)"));
  char b[8] = "", d[8] = "";
  EXPECT_EQ(dsp->FormulaRemainingRequest(1, b, 8, d, 8), 0);
  long count = 99;
  dsp->GetCircuitLevelsCount(0, 0, 0, &count);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(dsp->GetTankLevels(1, nullptr, nullptr, nullptr, nullptr, 0), 0);
}

TEST_F(SimTest, ErrorQueueStartsEmpty) {
  DispenserPtr dsp = Make(1);
  wchar_t text[16] = L"x";
  char code[8] = "x";
  EXPECT_EQ(dsp->ErrorQueueFirst(1, text, 16, 0, code, 8), 0);
  EXPECT_STREQ(text, L"");
  EXPECT_STREQ(code, "");
  EXPECT_EQ(dsp->ErrorQueueNext(1, text, 16, 0, code, 8), 0);
}

// --- Dispensed-quantity query ------------------------------------------------

TEST_F(SimTest, DispensedQueryAnswersEverythingDelivered) {
  DispenserPtr dsp = Make(1);
  EXPECT_EQ(dsp->SendCommand(1, "/O(3:10.000)(7:5.000)"), 0);
  EXPECT_STREQ(dsp->GetAnswer(1), "(3:10.000:10.000)(7:5.000:5.000)");
  EXPECT_EQ(dsp->SendCommand(1, "/O(1:2.5)"), 0);
  EXPECT_STREQ(dsp->GetAnswer(1), "(1:2.500:2.500)");
  EXPECT_EQ(dsp->SendCommand(1, "/O(012:0)"), 0);
  EXPECT_STREQ(dsp->GetAnswer(1), "(12:0.000:0.000)");
  EXPECT_EQ(dsp->SendCommand(1, "/O(2:.25)"), 0);
  EXPECT_STREQ(dsp->GetAnswer(1), "(2:0.250:0.250)");
}

TEST_F(SimTest, MalformedDispensedQueryIsAProtocolError) {
  DispenserPtr dsp = Make(1);
  for (const char* cmd :
       {"/O", "/O(3:)", "/O(:1)", "/O(3:1", "/O3:1)", "/O(3:1)x", "/O(a:1)",
        "/O(3:-1)", "/O(-3:1)", "/O(3:1.2.3)", "/O(3:.)", "/O(3;1)",
        "/O(3:1e5)", "/O(99999999999:1)", "/O (3:1)", "/O(3:1)(4:2"}) {
    dsp->SendCommand(1, "/M1");
    EXPECT_EQ(dsp->SendCommand(1, cmd), 3) << cmd;
    EXPECT_STREQ(dsp->GetAnswer(1), "") << cmd;
  }
  // A protocol error to a query is not the machine's last error.
  EXPECT_EQ(dsp->GetLastError(1), -1);
}

// --- Rules added by calls ------------------------------------------------------

TEST_F(SimTest, FirstMatchingRuleWins) {
  DispenserPtr dsp = Make(1);
  SimulatedDispenser* sim = Sim(dsp);
  sim->AddRule("/D*", 7, "first");
  sim->AddRule("/D(1*", 8, "second");
  EXPECT_EQ(dsp->SendCommand(1, "/D(1:1.000)"), 7);
  EXPECT_STREQ(dsp->GetAnswer(1), "first");
}

TEST_F(SimTest, PatternsAreShellGlobsOverTheWholeCommand) {
  DispenserPtr dsp = Make(1);
  SimulatedDispenser* sim = Sim(dsp);
  sim->AddRule("/Q?", 11, "one char");
  sim->AddRule("/W[13]", 12, "class");
  sim->AddRule("/KS(*)", 13, "star");
  EXPECT_EQ(dsp->SendCommand(1, "/Q5"), 11);
  EXPECT_STREQ(dsp->GetAnswer(1), "one char");
  EXPECT_EQ(dsp->SendCommand(1, "/Q55"), 0);  // ? is exactly one character
  EXPECT_EQ(dsp->SendCommand(1, "/W3"), 12);
  EXPECT_EQ(dsp->SendCommand(1, "/W2"), 0);
  EXPECT_EQ(dsp->SendCommand(1, "/KS(17)"), 13);
  EXPECT_EQ(dsp->SendCommand(1, "x/KS(17)"), 0);  // the whole text must match
  EXPECT_EQ(dsp->SendCommand(1, "/KS(17)x"), 0);
}

TEST_F(SimTest, RuleOverridesBuiltInAnswerAndNoAnswerIsMinusOne) {
  DispenserPtr dsp = Make(1);
  SimulatedDispenser* sim = Sim(dsp);
  sim->AddRule("/!", -1);
  sim->AddRule("/M1", 0, "ACME 2000 SN 42");
  EXPECT_EQ(dsp->SendCommand(1, "/!"), -1);
  EXPECT_STREQ(dsp->GetAnswer(1), "");
  EXPECT_EQ(dsp->SendCommand(1, "/M1"), 0);
  EXPECT_STREQ(dsp->GetAnswer(1), "ACME 2000 SN 42");
  EXPECT_EQ(dsp->GetLastError(1), -1);
}

TEST_F(SimTest, ClearRulesRestoresBuiltInBehaviour) {
  DispenserPtr dsp = Make(1);
  SimulatedDispenser* sim = Sim(dsp);
  sim->AddRule("*", -1);
  EXPECT_EQ(dsp->SendCommand(1, "/!"), -1);
  sim->ClearRules();
  EXPECT_EQ(dsp->SendCommand(1, "/!"), kIdle);
}

// --- Rules file ------------------------------------------------------------------

TEST_F(SimTest, RulesFileRulesCommentsAndBlankLines) {
  qtest::TempDir dir;
  std::string path = dir.file("rules");
  qtest::WriteFile(path,
                   "# a comment\n"
                   "\n"
                   "   \n"
                   "  # an indented comment\n"
                   "/D* 5 dispense refused\n"
                   "/D(9* 6 never reached\n"
                   "/! -1\n"
                   "/M1 0 Tinter 3000  two blanks kept\n"
                   "/W? 0  leading blank kept\n"
                   "/Q 4\r\n");
  DispenserPtr dsp = Make(1);
  qtest::TraceCapture trace;
  EXPECT_EQ(Sim(dsp)->LoadRules(path.c_str()), 0);
  EXPECT_EQ(trace.text(), "");

  EXPECT_EQ(dsp->SendCommand(1, "/D(9:1.000)"), 5);
  EXPECT_STREQ(dsp->GetAnswer(1), "dispense refused");
  EXPECT_EQ(dsp->SendCommand(1, "/!"), -1);
  EXPECT_EQ(dsp->SendCommand(1, "/M1"), 0);
  EXPECT_STREQ(dsp->GetAnswer(1), "Tinter 3000  two blanks kept");
  EXPECT_EQ(dsp->SendCommand(1, "/W1"), 0);
  EXPECT_STREQ(dsp->GetAnswer(1), " leading blank kept");
  // The CR of a CR LF line end belongs to the line end, not the rule.
  EXPECT_EQ(dsp->SendCommand(1, "/Q"), 4);
  EXPECT_STREQ(dsp->GetAnswer(1), "");
  // Not scripted: built in.
  EXPECT_EQ(dsp->SendCommand(1, "/KS(1)"), 0);
}

TEST_F(SimTest, RulesFileIsTriedAfterRulesAlreadyPresent) {
  qtest::TempDir dir;
  std::string path = dir.file("rules");
  qtest::WriteFile(path, "/D* 9 from file\n");
  DispenserPtr dsp = Make(1);
  Sim(dsp)->AddRule("/D(1*", 4, "added");
  EXPECT_EQ(Sim(dsp)->LoadRules(path.c_str()), 0);
  EXPECT_EQ(dsp->SendCommand(1, "/D(1:1)"), 4);
  EXPECT_EQ(dsp->SendCommand(1, "/D(2:1)"), 9);
  EXPECT_STREQ(dsp->GetAnswer(1), "from file");
}

TEST_F(SimTest, MalformedLinesAreReportedWithLineNumberAndSkipped) {
  qtest::TempDir dir;
  std::string path = dir.file("rules");
  qtest::WriteFile(path,
                   "# line 1\n"
                   "/X\n"                   // 2: missing RESULT
                   "/Y abc\n"               // 3: RESULT not an integer
                   "/Y 99999999999 big\n"   // 4: RESULT beyond int
                   "set colour 3\n"         // 5: unknown setting
                   "set firmware x\n"       // 6: bad value
                   "set\n"                  // 7: no NAME
                   "/D (1) 5\n"             // 8: a blank ends the pattern
                   "/Z 5 fine\n"            // 9: applies
                   "set firmware 1\n"       // 10: applies
                   "/X   \n");              // 11: missing RESULT
  DispenserPtr dsp = Make(1);
  qtest::TraceCapture trace;
  EXPECT_EQ(Sim(dsp)->LoadRules(path.c_str()), 8);
  std::vector<std::string> messages = trace.messages();
  ASSERT_EQ(messages.size(), 8u);
  const std::string at = "\nsimulator: " + path + " line ";
  EXPECT_EQ(messages[0], at + "2: missing RESULT");
  EXPECT_EQ(messages[1], at + "3: RESULT is not an integer");
  EXPECT_EQ(messages[2], at + "4: RESULT is not an integer");
  EXPECT_EQ(messages[3], at + "5: unknown setting \"colour\"");
  EXPECT_EQ(messages[4], at + "6: bad value for firmware: \"x\"");
  EXPECT_EQ(messages[5], at + "7: setting without a NAME");
  EXPECT_EQ(messages[6], at + "8: RESULT is not an integer");
  EXPECT_EQ(messages[7], at + "11: missing RESULT");

  EXPECT_EQ(dsp->SendCommand(1, "/X"), 0);
  EXPECT_EQ(dsp->SendCommand(1, "/Y"), 0);
  EXPECT_EQ(dsp->SendCommand(1, "/D"), 0);
  EXPECT_EQ(dsp->SendCommand(1, "/Z"), 5);
  EXPECT_STREQ(dsp->GetAnswer(1), "fine");
  EXPECT_EQ(dsp->GetFirmwareVersion(1), 1);
}

TEST_F(SimTest, LineWithNulCharacterIsMalformed) {
  qtest::TempDir dir;
  std::string path = dir.file("rules");
  qtest::WriteFile(path, std::string("/A 1 x\0y\n/B 2\n", 14));
  DispenserPtr dsp = Make(1);
  qtest::TraceCapture trace;
  EXPECT_EQ(Sim(dsp)->LoadRules(path.c_str()), 1);
  EXPECT_THAT(trace.text(), HasSubstr(" line 1: line holds a NUL character"));
  EXPECT_EQ(dsp->SendCommand(1, "/A"), 0);
  EXPECT_EQ(dsp->SendCommand(1, "/B"), 2);
}

TEST_F(SimTest, UnreadableRulesFileIsTracedAndChangesNothing) {
  qtest::TempDir dir;
  DispenserPtr dsp = Make(1);
  qtest::TraceCapture trace;
  std::string missing = dir.file("missing");
  EXPECT_EQ(Sim(dsp)->LoadRules(missing.c_str()), -1);
  EXPECT_EQ(Sim(dsp)->LoadRules(dir.path().c_str()), -1);
  EXPECT_EQ(Sim(dsp)->LoadRules(nullptr), -1);
  EXPECT_THAT(trace.messages(),
              ElementsAre("\nsimulator: cannot read rules file " + missing,
                          "\nsimulator: cannot read rules file " + dir.path(),
                          "\nsimulator: cannot read rules file "));
  EXPECT_EQ(dsp->SendCommand(1, "/!"), kIdle);
}

TEST_F(SimTest, EnvironmentNamesRulesFileReadAtCreation) {
  qtest::TempDir dir;
  std::string path = dir.file("rules");
  qtest::WriteFile(path, "/! 0\nset firmware 1\n");
  DispenserPtr dsp;
  {
    qtest::ScopedEnv env("QSLAVE_SIM", path.c_str());
    dsp = Make(1);
  }
  EXPECT_EQ(dsp->SendCommand(1, "/!"), 0);
  EXPECT_EQ(dsp->GetFirmwareVersion(1), 1);
  // Changing the file later does not change a driver already made.
  qtest::WriteFile(path, "/! 5\n");
  EXPECT_EQ(dsp->SendCommand(1, "/!"), 0);
}

TEST_F(SimTest, EnvironmentUnsetOrEmptyMeansBuiltInAndNoTrace) {
  qtest::TraceCapture trace;
  DispenserPtr unset = Make(1);
  EXPECT_EQ(unset->SendCommand(1, "/!"), kIdle);
  qtest::ScopedEnv env("QSLAVE_SIM", "");
  DispenserPtr empty = Make(1);
  EXPECT_EQ(empty->SendCommand(1, "/!"), kIdle);
  EXPECT_EQ(trace.text(), "");
}

TEST_F(SimTest, EnvironmentNamingMissingFileIsTracedAndBuiltIn) {
  qtest::TempDir dir;
  std::string missing = dir.file("nothing-here");
  qtest::TraceCapture trace;
  qtest::ScopedEnv env("QSLAVE_SIM", missing.c_str());
  DispenserPtr dsp = Make(1);
  ASSERT_NE(dsp, nullptr);
  EXPECT_EQ(trace.text(), "\nsimulator: cannot read rules file " + missing);
  EXPECT_EQ(dsp->SendCommand(1, "/!"), kIdle);
}

// --- Settings ----------------------------------------------------------------------

TEST_F(SimTest, IntegerSettings) {
  DispenserPtr dsp = Make(9);
  SimulatedDispenser* sim = Sim(dsp);
  EXPECT_TRUE(sim->SetSetting("firmware", "1"));
  EXPECT_TRUE(sim->SetSetting("purge", "0"));
  EXPECT_TRUE(sim->SetSetting("circuits", "16"));
  EXPECT_TRUE(sim->SetSetting("formula_level", "0"));
  EXPECT_TRUE(sim->SetSetting("remaining", "-1"));
  EXPECT_TRUE(sim->SetSetting("movetofill", "-1"));
  EXPECT_TRUE(sim->SetSetting("step", "-1"));
  EXPECT_TRUE(sim->SetSetting("quit", "-1"));
  EXPECT_EQ(dsp->GetFirmwareVersion(1), 1);
  int circuits[] = {1, 2, 5};
  EXPECT_EQ(dsp->PurgeCircuits(3, circuits, 2.0), 0);
  EXPECT_EQ(dsp->GetCircuitCount(1), 16);
  EXPECT_EQ(dsp->CheckFormulaLevel("(A:1)"), 0);
  EXPECT_EQ(dsp->FormulaRemainingRequest(0, nullptr, 0, nullptr, 0), -1);
  EXPECT_EQ(dsp->MoveToFill(1, 2), -1);
  EXPECT_EQ(dsp->DispenseStep(1, 0, 0, 0, 0), -1);
  EXPECT_EQ(dsp->Quit(1), -1);
}

TEST_F(SimTest, SettingValuesMayCarryExtraBlanks) {
  DispenserPtr dsp = Make(1);
  EXPECT_TRUE(Sim(dsp)->SetSetting("firmware", "  1 "));
  EXPECT_EQ(dsp->GetFirmwareVersion(1), 1);
}

TEST_F(SimTest, GravimetricSetting) {
  DispenserPtr dsp = Make(1);
  EXPECT_TRUE(Sim(dsp)->SetSetting("gravimetric", "1"));
  EXPECT_TRUE(dsp->IsGravimetricCnt("(A:1)"));
  EXPECT_TRUE(Sim(dsp)->SetSetting("gravimetric", "0"));
  EXPECT_FALSE(dsp->IsGravimetricCnt("(A:1)"));
}

TEST_F(SimTest, CanisterSetting) {
  DispenserPtr dsp = Make(9);
  EXPECT_TRUE(Sim(dsp)->SetSetting("canister", "3 40 1 2"));
  EXPECT_EQ(dsp->GetCanisterField(3), 40);
  EXPECT_EQ(dsp->GetCanisterFlagA(3), 1);
  EXPECT_EQ(dsp->GetCanisterFlagB(3), 2);
  EXPECT_EQ(dsp->GetCanisterField(4), 5);  // others keep their defaults
}

TEST_F(SimTest, DelaySettingStillAnswers) {
  DispenserPtr dsp = Make(1);
  EXPECT_TRUE(Sim(dsp)->SetSetting("delay", "1"));
  EXPECT_TRUE(Sim(dsp)->SetSetting("delay", "0"));
  EXPECT_TRUE(Sim(dsp)->SetSetting("delay", "2"));
  EXPECT_EQ(dsp->SendCommand(1, "/!"), kIdle);
  EXPECT_EQ(dsp->SendCommandThread(1, "/M1"), 0);
  EXPECT_STREQ(dsp->GetAnswer(1), "SIM1-0 SN000001");
}

TEST_F(SimTest, LastErrorSetting) {
  DispenserPtr dsp = Make(1);
  EXPECT_TRUE(Sim(dsp)->SetSetting("lasterror", "6"));
  EXPECT_EQ(dsp->GetLastError(1), 6);
  dsp->ResetError(1);
  EXPECT_EQ(dsp->GetLastError(1), -1);
}

TEST_F(SimTest, LevelSetting) {
  DispenserPtr dsp = Make(7);
  EXPECT_TRUE(Sim(dsp)->SetSetting("level", "4 1.5 2000 100.25"));
  double cur = 0, max = 0, res = 0;
  ASSERT_TRUE(Sim(dsp)->CircuitLevel(4, &cur, &max, &res));
  EXPECT_DOUBLE_EQ(cur, 1.5);
  EXPECT_DOUBLE_EQ(max, 2000);
  EXPECT_DOUBLE_EQ(res, 100.25);
  EXPECT_FALSE(Sim(dsp)->CircuitLevel(5, &cur, &max, &res));
}

TEST_F(SimTest, QueueSettingAppendsEntries) {
  DispenserPtr dsp = Make(1);
  EXPECT_TRUE(Sim(dsp)->SetSetting("queue", "E12 Door open"));
  EXPECT_TRUE(Sim(dsp)->SetSetting("queue", "W3"));
  EXPECT_EQ(dsp->ErrorQueueCount(1), 2);
}

TEST_F(SimTest, BadSettingValuesAreRefusedAndChangeNothing) {
  struct Case {
    const char* name;
    const char* value;
  };
  const Case cases[] = {
      {"firmware", ""},        {"firmware", "1 2"},
      {"firmware", "1.5"},     {"firmware", "99999999999"},
      {"purge", "x"},          {"circuits", "-1"},
      {"delay", "-1"},         {"delay", "60001"},
      {"level", "0 1 2 3"},    {"level", "1 a 2 3"},
      {"level", "1 2 3"},      {"level", "1 2 3 4 5"},
      {"level", "1 1e3 2 3"},  {"canister", "-1 1 0 0"},
      {"canister", "1 1 0"},   {"canister", "1 x 0 0"},
      {"formula_level", ""},   {"gravimetric", "2"},
      {"gravimetric", "yes"},  {"lasterror", "x"},
      {"queue", ""},           {"queue", "E1 \xff bad text"},
      {"remaining", "1x"},     {"movetofill", "+"},
      {"step", "0x10"},        {"quit", " "},
      {"nosuch", "1"},         {"", "1"},
  };
  for (const Case& c : cases) {
    DispenserPtr dsp = Make(7);
    SimulatedDispenser* sim = Sim(dsp);
    EXPECT_FALSE(sim->SetSetting(c.name, c.value)) << c.name << " " << c.value;
    EXPECT_EQ(dsp->GetFirmwareVersion(1), 2);
    EXPECT_EQ(dsp->PurgeCircuits(0, nullptr, 0), -1);
    EXPECT_EQ(dsp->GetCircuitCount(1), 0);
    EXPECT_EQ(dsp->GetLastError(1), -1);
    EXPECT_EQ(dsp->ErrorQueueCount(1), 0);
    EXPECT_EQ(dsp->GetTankLevels(1, nullptr, nullptr, nullptr, nullptr, 0), 0);
    EXPECT_EQ(dsp->GetCanisterField(1), 2);
  }
}

TEST_F(SimTest, SettingsFromRulesFile) {
  qtest::TempDir dir;
  std::string path = dir.file("rules");
  qtest::WriteFile(path,
                   "set firmware 1\n"
                   "set purge 0\n"
                   "set circuits 24\n"
                   "set delay 1\n"
                   "set level 2 500 1000 50\n"
                   "set canister 0 7 1 0\n"
                   "set formula_level 1\n"
                   "set gravimetric 1\n"
                   "set lasterror 9\n"
                   "set queue E4 Canister 4 empty\n"
                   "set remaining 2\n"
                   "set movetofill 3\n"
                   "set step 4\n"
                   "set quit 5\n");
  DispenserPtr dsp = Make(9);
  EXPECT_EQ(Sim(dsp)->LoadRules(path.c_str()), 0);
  EXPECT_EQ(dsp->GetFirmwareVersion(1), 1);
  EXPECT_EQ(dsp->PurgeCircuits(0, nullptr, 0), 0);
  EXPECT_EQ(dsp->GetCircuitCount(1), 24);
  EXPECT_EQ(dsp->SendCommand(1, "/!"), kIdle & ~4);  // the queue is not empty
  long field[1] = {0};
  double cur[1] = {0};
  ASSERT_EQ(dsp->GetTankLevels(1, field, cur, nullptr, nullptr, 0), 1);
  EXPECT_EQ(field[0], 2);
  EXPECT_DOUBLE_EQ(cur[0], 500);
  EXPECT_EQ(dsp->GetCanisterField(0), 7);
  EXPECT_EQ(dsp->GetCanisterFlagA(0), 1);
  EXPECT_EQ(dsp->CheckFormulaLevel("(A:1)"), 1);
  EXPECT_TRUE(dsp->IsGravimetricCnt("(A:1)"));
  EXPECT_EQ(dsp->GetLastError(1), 9);
  wchar_t text[32];
  char code[8];
  ASSERT_EQ(dsp->ErrorQueueFirst(1, text, 32, 0, code, 8), 1);
  EXPECT_STREQ(text, L"Canister 4 empty");
  EXPECT_STREQ(code, "E4");
  EXPECT_EQ(dsp->FormulaRemainingRequest(0, nullptr, 0, nullptr, 0), 2);
  EXPECT_EQ(dsp->MoveToFill(1, 1), 3);
  EXPECT_EQ(dsp->DispenseStep(1, 0, 0, 0, 0), 4);
  EXPECT_EQ(dsp->Quit(0), 5);
}

// --- Levels ----------------------------------------------------------------------

TEST_F(SimTest, Type7KeepsLevelsSetLevelsChanges) {
  DispenserPtr dsp = Make(7);
  Sim(dsp)->SetCircuitLevel(3, 10.0, 20.0, 2.0);
  Sim(dsp)->SetCircuitLevel(5, 8.0, 30.0, 1.0);
  int circuits[] = {3, 5};
  double levels[] = {12.5, 4.25};
  dsp->SetLevels(2, circuits, levels);

  long count = 0;
  dsp->GetCircuitLevelsCount(0, 0, 0, &count);
  ASSERT_EQ(count, 5);
  double cur[5], max[5], res[5];
  dsp->GetCircuitLevels(cur, max, res, 0);
  EXPECT_DOUBLE_EQ(cur[2], 12.5);  // circuit 3 at index 2
  EXPECT_DOUBLE_EQ(max[2], 20.0);
  EXPECT_DOUBLE_EQ(res[2], 2.0);
  EXPECT_DOUBLE_EQ(cur[4], 4.25);  // circuit 5 at index 4
  EXPECT_DOUBLE_EQ(max[4], 30.0);
  EXPECT_DOUBLE_EQ(res[4], 1.0);
}

// The arrays are indexed by circuit - 1, as the library reads them: every
// circuit up to the highest one with a level has its place, and a circuit
// the machine keeps no level for is empty, with no capacity.
TEST_F(SimTest, Type7AnswersEveryCircuitAtItsIndex) {
  DispenserPtr dsp = Make(7);
  Sim(dsp)->SetCircuitLevel(4, 40.0, 400.0, 4.0);
  Sim(dsp)->SetCircuitLevel(2, 20.0, 200.0, 2.0);
  long count = 0;
  dsp->GetCircuitLevelsCount(0, 0, 0, &count);
  ASSERT_EQ(count, 4);
  double cur[4] = {9, 9, 9, 9}, max[4] = {9, 9, 9, 9}, res[4] = {9, 9, 9, 9};
  dsp->GetCircuitLevels(cur, max, res, 0);
  EXPECT_EQ(std::vector<double>(cur, cur + 4), (std::vector<double>{0.0, 20.0, 0.0, 40.0}));
  EXPECT_EQ(std::vector<double>(max, max + 4), (std::vector<double>{0.0, 200.0, 0.0, 400.0}));
  EXPECT_EQ(std::vector<double>(res, res + 4), (std::vector<double>{0.0, 2.0, 0.0, 4.0}));
}

// A circuit the machine keeps no level for is not made up by SetLevels: it
// keeps none (no maximum and reserve 0 invented).
TEST_F(SimTest, Type7SetLevelsOnAnUnknownCircuitInventsNothing) {
  DispenserPtr dsp = Make(7);
  Sim(dsp)->SetCircuitLevel(1, 100.0, 200.0, 20.0);
  int circuits[] = {2};
  double levels[] = {50.0};
  dsp->SetLevels(1, circuits, levels);
  EXPECT_FALSE(Sim(dsp)->CircuitLevel(2, nullptr, nullptr, nullptr));
  long count = 0;
  dsp->GetCircuitLevelsCount(0, 0, 0, &count);
  ASSERT_EQ(count, 1);
  double cur[1], max[1], res[1];
  dsp->GetCircuitLevels(cur, max, res, 0);
  EXPECT_DOUBLE_EQ(cur[0], 100.0);
  EXPECT_DOUBLE_EQ(max[0], 200.0);
  EXPECT_DOUBLE_EQ(res[0], 20.0);
}

TEST_F(SimTest, GetCircuitLevelsSkipsNullArrays) {
  DispenserPtr dsp = Make(7);
  Sim(dsp)->SetCircuitLevel(1, 1.0, 2.0, 3.0);
  double max[1] = {0};
  dsp->GetCircuitLevels(nullptr, max, nullptr, 0);
  EXPECT_DOUBLE_EQ(max[0], 2.0);
  dsp->GetCircuitLevels(nullptr, nullptr, nullptr, 0);
}

TEST_F(SimTest, SetLevelsIgnoresBadCircuitsAndNullArrays) {
  DispenserPtr dsp = Make(7);
  int circuits[] = {0, -2};
  double levels[] = {1.0, 2.0};
  dsp->SetLevels(2, circuits, levels);
  dsp->SetLevels(2, nullptr, levels);
  dsp->SetLevels(2, circuits, nullptr);
  dsp->SetLevels(-1, circuits, levels);
  long count = 9;
  dsp->GetCircuitLevelsCount(0, 0, 0, &count);
  EXPECT_EQ(count, 0);
  dsp->GetCircuitLevelsCount(0, 0, 0, nullptr);
}

TEST_F(SimTest, OtherTypesKeepNoLevelsOfTheirOwn) {
  DispenserPtr dsp = Make(1);
  int circuits[] = {3};
  double levels[] = {12.5};
  dsp->SetLevels(1, circuits, levels);
  EXPECT_FALSE(Sim(dsp)->CircuitLevel(3, nullptr, nullptr, nullptr));
  Sim(dsp)->SetCircuitLevel(3, 1.0, 2.0, 0.5);
  long count = 9;
  dsp->GetCircuitLevelsCount(0, 0, 0, &count);
  EXPECT_EQ(count, 0);
}

TEST_F(SimTest, TankLevelsCountWithNullArraysThenFillRows) {
  DispenserPtr dsp = Make(1);
  EXPECT_EQ(dsp->GetTankLevels(1, nullptr, nullptr, nullptr, nullptr, 0), 0);
  Sim(dsp)->SetCircuitLevel(4, 40.0, 400.0, 4.0);
  Sim(dsp)->SetCircuitLevel(2, 20.0, 200.0, 2.0);
  ASSERT_EQ(dsp->GetTankLevels(1, nullptr, nullptr, nullptr, nullptr, 0), 2);
  long field[2] = {0, 0};
  double cur[2] = {0, 0}, max[2] = {0, 0}, res[2] = {0, 0};
  EXPECT_EQ(dsp->GetTankLevels(1, field, cur, max, res, 0), 2);
  EXPECT_EQ(field[0], 2);
  EXPECT_EQ(field[1], 4);
  EXPECT_DOUBLE_EQ(cur[0], 20.0);
  EXPECT_DOUBLE_EQ(max[1], 400.0);
  EXPECT_DOUBLE_EQ(res[1], 4.0);
  // A missing array is skipped, the others still filled.
  long only_field[2] = {0, 0};
  EXPECT_EQ(dsp->GetTankLevels(1, only_field, nullptr, nullptr, nullptr, 0), 2);
  EXPECT_EQ(only_field[1], 4);
}

TEST_F(SimTest, SetDispenserLevelsUpdatesCircuitsTheMachineKeeps) {
  DispenserPtr dsp = Make(1);
  Sim(dsp)->SetCircuitLevel(2, 20.0, 200.0, 2.0);
  int circuits[] = {2, 6};
  double levels[] = {150.0, 7.0};
  dsp->SetDispenserLevels(1, 2, circuits, levels);
  double cur = 0, max = 0;
  ASSERT_TRUE(Sim(dsp)->CircuitLevel(2, &cur, &max, nullptr));
  EXPECT_DOUBLE_EQ(cur, 150.0);
  EXPECT_DOUBLE_EQ(max, 200.0);
  EXPECT_FALSE(Sim(dsp)->CircuitLevel(6, &cur, nullptr, nullptr));
  dsp->SetDispenserLevels(1, 2, nullptr, nullptr);
}

// --- Error queue -------------------------------------------------------------------

class SimQueueTest : public SimTest {
 protected:
  void SetUp() override {
    dsp_ = Make(1);
    ASSERT_TRUE(Sim(dsp_)->SetSetting("queue", "E12 Door open"));
    ASSERT_TRUE(Sim(dsp_)->SetSetting("queue", "W3 T\xc3\xbcr zu"));
  }
  DispenserPtr dsp_;
};

TEST_F(SimQueueTest, FirstAndNextWalkTheQueue) {
  wchar_t text[32];
  char code[8];
  EXPECT_EQ(dsp_->ErrorQueueCount(1), 2);
  ASSERT_EQ(dsp_->ErrorQueueFirst(1, text, 32, 0, code, 8), 1);
  EXPECT_STREQ(text, L"Door open");
  EXPECT_STREQ(code, "E12");
  ASSERT_EQ(dsp_->ErrorQueueNext(1, text, 32, 0, code, 8), 1);
  EXPECT_STREQ(text, L"T\u00fcr zu");
  EXPECT_STREQ(code, "W3");
  EXPECT_EQ(dsp_->ErrorQueueNext(1, text, 32, 0, code, 8), 0);
  EXPECT_STREQ(text, L"");
  EXPECT_STREQ(code, "");
  // First starts over.
  ASSERT_EQ(dsp_->ErrorQueueFirst(1, text, 32, 0, code, 8), 1);
  EXPECT_STREQ(code, "E12");
  EXPECT_EQ(dsp_->ErrorQueueCount(1), 2);  // reading does not remove
}

TEST_F(SimQueueTest, ExactFitIsCopied) {
  wchar_t text[10];  // "Door open" and its terminator
  char code[4];      // "E12" and its terminator
  ASSERT_EQ(dsp_->ErrorQueueFirst(1, text, 10, 0, code, 4), 1);
  EXPECT_STREQ(text, L"Door open");
  EXPECT_STREQ(code, "E12");
}

TEST_F(SimQueueTest, EntryThatDoesNotFitIsRefusedNotCut) {
  wchar_t text[32];
  char code[8];
  wmemset(text, L'#', 32);
  EXPECT_EQ(dsp_->ErrorQueueFirst(1, text, 9, 0, code, 8), 0);
  EXPECT_STREQ(text, L"");
  EXPECT_EQ(text[1], L'#');  // nothing written past the terminator
  EXPECT_STREQ(code, "");
  EXPECT_EQ(dsp_->ErrorQueueFirst(1, text, 32, 0, code, 3), 0);
  EXPECT_EQ(dsp_->ErrorQueueFirst(1, text, 0, 0, code, 8), 0);
  EXPECT_EQ(dsp_->ErrorQueueFirst(1, text, -5, 0, code, 8), 0);
  // The refused entry is not lost: larger buffers get it.
  ASSERT_EQ(dsp_->ErrorQueueNext(1, text, 32, 0, code, 8), 1);
  EXPECT_STREQ(text, L"Door open");
  EXPECT_EQ(dsp_->ErrorQueueNext(1, text, 3, 0, code, 8), 0);
  ASSERT_EQ(dsp_->ErrorQueueNext(1, text, 32, 0, code, 8), 1);
  EXPECT_STREQ(code, "W3");
}

TEST_F(SimQueueTest, NullBuffersAreSkipped) {
  char code[8];
  EXPECT_EQ(dsp_->ErrorQueueFirst(1, nullptr, 0, 0, code, 8), 1);
  EXPECT_STREQ(code, "E12");
  wchar_t text[32];
  EXPECT_EQ(dsp_->ErrorQueueNext(1, text, 32, 0, nullptr, 0), 1);
  EXPECT_STREQ(text, L"T\u00fcr zu");
  EXPECT_EQ(dsp_->ErrorQueueNext(1, nullptr, 0, 0, nullptr, 0), 0);
}

TEST_F(SimQueueTest, ClearEmptiesTheQueueAndTheStatusSaysSo) {
  EXPECT_EQ(dsp_->SendCommand(1, "/!"), kIdle & ~4);
  EXPECT_EQ(dsp_->ErrorQueueClear(1), 1);
  EXPECT_EQ(dsp_->ErrorQueueCount(1), 0);
  wchar_t text[32];
  char code[8];
  EXPECT_EQ(dsp_->ErrorQueueFirst(1, text, 32, 0, code, 8), 0);
  EXPECT_EQ(dsp_->SendCommand(1, "/!"), kIdle);
}

// --- Last error ----------------------------------------------------------------------

TEST_F(SimTest, FailedActionBecomesLastErrorUntilReset) {
  DispenserPtr dsp = Make(1);
  Sim(dsp)->AddRule("/D(9*", 5);
  EXPECT_EQ(dsp->SendCommand(1, "/D(9:1)"), 5);
  EXPECT_EQ(dsp->GetLastError(1), 5);
  EXPECT_EQ(dsp->SendCommand(1, "/D(1:1)"), 0);  // success keeps it
  EXPECT_EQ(dsp->GetLastError(1), 5);
  dsp->ResetError(1);
  EXPECT_EQ(dsp->GetLastError(1), -1);
}

TEST_F(SimTest, NoAnswerAndQueriesDoNotSetLastError) {
  DispenserPtr dsp = Make(1);
  Sim(dsp)->AddRule("/D*", -1);
  Sim(dsp)->AddRule("/Q*", 9);
  EXPECT_EQ(dsp->SendCommand(1, "/D(1:1)"), -1);
  EXPECT_EQ(dsp->SendCommand(1, "/Q1"), 9);
  EXPECT_EQ(dsp->SendCommand(1, "/!"), kIdle);
  EXPECT_EQ(dsp->GetLastError(1), -1);
}

TEST_F(SimTest, FailedDriverActionsBecomeLastError) {
  DispenserPtr dsp = Make(1);
  SimulatedDispenser* sim = Sim(dsp);
  ASSERT_TRUE(sim->SetSetting("movetofill", "7"));
  EXPECT_EQ(dsp->MoveToFill(1, 2), 7);
  EXPECT_EQ(dsp->GetLastError(1), 7);
  ASSERT_TRUE(sim->SetSetting("step", "8"));
  EXPECT_EQ(dsp->DispenseStep(1, 0, 0, 0, 0), 8);
  EXPECT_EQ(dsp->GetLastError(1), 8);
  ASSERT_TRUE(sim->SetSetting("purge", "10"));
  EXPECT_EQ(dsp->PurgeCircuits(0, nullptr, 0), 10);
  EXPECT_EQ(dsp->GetLastError(1), 10);
  ASSERT_TRUE(sim->SetSetting("quit", "11"));
  EXPECT_EQ(dsp->Quit(0), 11);
  EXPECT_EQ(dsp->GetLastError(1), 11);
}

// --- Record of commands and calls --------------------------------------------------

TEST_F(SimTest, BothSendOperationsAreRecordedAsCommands) {
  DispenserPtr dsp = Make(1);
  Sim(dsp)->AddRule("/T*", 6, "threaded");
  EXPECT_EQ(dsp->SendCommandThread(2, "/T1"), 6);
  EXPECT_STREQ(dsp->GetAnswer(2), "threaded");
  EXPECT_EQ(dsp->SendCommandThread(2, "/!"), kIdle);
  EXPECT_EQ(dsp->SendCommand(2, "/M1"), 0);
  EXPECT_THAT(Sim(dsp)->Commands(), ElementsAre("/T1", "/!", "/M1"));
}

TEST_F(SimTest, CallsAreRecordedInTheirDocumentedForms) {
  DispenserPtr dsp = Make(7, 1);
  int one[] = {3};
  double level[] = {12.5};
  int three[] = {1, 2, 5};
  wchar_t text[8];
  char code[8];
  char b[4] = "", d[4] = "";
  long count = 0;
  dsp->GetType(0, 0);
  dsp->Quit(1);
  dsp->SendCommand(7, "/!");
  dsp->GetAnswer(7);
  dsp->GetFirmwareVersion(7);
  dsp->SendCommandThread(7, "/D(1:2.000)");
  dsp->GetLastError(7);
  dsp->ResetError(7);
  dsp->ErrorQueueFirst(7, text, 8, 0, code, 8);
  dsp->ErrorQueueNext(7, text, 8, 0, code, 8);
  dsp->ErrorQueueClear(7);
  dsp->ErrorQueueCount(7);
  dsp->SetCommunication(1, 9600, 'N', 8, 1, 2.5f);
  dsp->MoveToFill(7, 3);
  dsp->PurgeCircuits(3, three, 2.0);
  dsp->DispenseStep(7, 1, 3, 2, 0);
  dsp->GetCircuitLevelsCount(0, 0, 0, &count);
  dsp->SetLevels(1, one, level);
  dsp->GetCircuitLevels(nullptr, nullptr, nullptr, 0);
  dsp->SetDispenserLevels(7, 1, one, level);
  dsp->GetTankLevels(7, nullptr, nullptr, nullptr, nullptr, 0);
  dsp->GetCircuitCount(7);
  dsp->GetCanisterField(2);
  dsp->GetCanisterFlagA(2);
  dsp->GetCanisterFlagB(2);
  dsp->CheckFormulaLevel("(RED:1.500)");
  dsp->FormulaRemainingRequest(1, b, 4, d, 0);
  dsp->IsGravimetricCnt("(RED:1.500)");
  EXPECT_THAT(
      Sim(dsp)->Calls(),
      ElementsAre("Quit(1)", "SendCommand(7,/!)", "GetFirmwareVersion(7)",
                  "SendCommandThread(7,/D(1:2.000))", "GetLastError(7)",
                  "ResetError(7)", "ErrorQueueFirst(7,8,0,8)",
                  "ErrorQueueNext(7,8,0,8)", "ErrorQueueClear(7)",
                  "ErrorQueueCount(7)", "SetCommunication(1,9600,N,8,1,2.500)",
                  "MoveToFill(7,3)", "PurgeCircuits(3,[1,2,5],2.000)",
                  "DispenseStep(7,1,3,2,0)", "GetCircuitLevelsCount(0,0,0)",
                  "SetLevels(1,[3],[12.500])", "GetCircuitLevels(0)",
                  "SetDispenserLevels(7,1,[3],[12.500])",
                  "GetTankLevels(7,0)", "GetCircuitCount(7)",
                  "GetCanisterField(2)", "GetCanisterFlagA(2)",
                  "GetCanisterFlagB(2)", "CheckFormulaLevel((RED:1.500))",
                  "FormulaRemainingRequest(1,-,4,-,0)",
                  "IsGravimetricCnt((RED:1.500))"));
}

TEST_F(SimTest, CallsWithNullArgumentsAreRecordedEmpty) {
  DispenserPtr dsp = Make(1);
  EXPECT_EQ(dsp->SendCommand(4, nullptr), 0);
  EXPECT_STREQ(dsp->GetAnswer(4), "");
  EXPECT_EQ(dsp->PurgeCircuits(0, nullptr, 0.0), -1);
  EXPECT_EQ(dsp->PurgeCircuits(2, nullptr, 1.0), -1);
  dsp->SetLevels(2, nullptr, nullptr);
  dsp->SetCommunication(2, 19200, '\0', 7, 2, 0.25f);
  EXPECT_EQ(dsp->CheckFormulaLevel(nullptr), 2);
  EXPECT_FALSE(dsp->IsGravimetricCnt(nullptr));
  EXPECT_THAT(Sim(dsp)->Commands(), ElementsAre(""));
  EXPECT_THAT(Sim(dsp)->Calls(),
              ElementsAre("SendCommand(4,)", "PurgeCircuits(0,[],0.000)",
                          "PurgeCircuits(2,[],1.000)", "SetLevels(2,[],[])",
                          "SetCommunication(2,19200,\\x00,7,2,0.250)",
                          "CheckFormulaLevel()", "IsGravimetricCnt()"));
}

TEST_F(SimTest, ClearHistoryForgetsCommandsAndCalls) {
  DispenserPtr dsp = Make(1);
  dsp->SendCommand(1, "/!");
  Sim(dsp)->ClearHistory();
  EXPECT_TRUE(Sim(dsp)->Commands().empty());
  EXPECT_TRUE(Sim(dsp)->Calls().empty());
  dsp->Quit(0);
  EXPECT_THAT(Sim(dsp)->Calls(), ElementsAre("Quit(0)"));
}

}  // namespace
