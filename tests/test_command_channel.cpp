// The command channel: how sendcommand tells queries from actions, the
// direct and separate-thread paths to the driver, the answer copy, the last
// error, every trace line to the character, the Message and CommTest hooks,
// LastError, the error queue and the free trace function `message`.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "library_env.h"

namespace {

using qtest::CountOf;
using qtest::CountPrefix;
using qtest::DispenserRow;
using qtest::Sim;
using qtest::StandardDispenser;

// The status word of the simulator's idle machine, as a value of our own
// (the class constant has no out-of-line definition to bind a reference to).
const int kIdle = SimulatedDispenser::kIdleStatus;

std::vector<std::string> g_messages;
void CaptureMessage(const char* text) { g_messages.push_back(text); }

// Events of the two hooks in the order they came, with the number of
// commands the driver had received at that moment.
std::vector<std::string> g_events;
const slave* g_observed = nullptr;

size_t CommandsSoFar() {
  if (g_observed == nullptr || Sim(*g_observed) == nullptr) return 0;
  return Sim(*g_observed)->Commands().size();
}

void EventMessage(const char* text) {
  g_events.push_back("message " + std::string(text) + " @" +
                     std::to_string(CommandsSoFar()));
}

void EventCommTest(int phase, long id) {
  g_events.push_back("commtest " + std::to_string(phase) + " " +
                     std::to_string(id) + " @" +
                     std::to_string(CommandsSoFar()));
}

// The prefix every command trace line carries: the process id, labelled as
// a thread id.
std::string Pid() {
  return "[TH_ID=" + std::to_string(static_cast<long>(getpid())) + "] ";
}

// A glob pattern that matches exactly text.
std::string Literal(const std::string& text) {
  std::string pattern;
  for (char c : text) {
    if (c == '*' || c == '?' || c == '[' || c == '\\') pattern += '\\';
    pattern += c;
  }
  return pattern;
}

class CommandChannel : public qtest::LibraryEnv {
 protected:
  void SetUp() override {
    LibraryEnv::SetUp();
    g_messages.clear();
    g_events.clear();
    g_observed = nullptr;
  }
  void TearDown() override {
    g_observed = nullptr;
    LibraryEnv::TearDown();
  }

  // A slave on dispenser 1 with the given options, its driver's history
  // cleared and the Message hook capturing.
  std::unique_ptr<slave> Open(const std::string& options =
                                  "00000000000000000000000000000000") {
    DispenserRow row = StandardDispenser(1);
    row.options = options;
    EXPECT_GT(tables_.AddDispenser(row), 0);
    std::unique_ptr<slave> s(new slave(1));
    EXPECT_NE(Sim(*s), nullptr);
    if (Sim(*s) != nullptr) Sim(*s)->ClearHistory();
    slave::Message = CaptureMessage;
    return s;
  }

  // Sends cmd with the driver scripted to answer result.
  int Send(slave& s, const std::string& cmd, int result,
           const std::string& answer = "") {
    Sim(s)->AddRule(Literal(cmd), result, answer);
    std::vector<char> text(cmd.begin(), cmd.end());
    text.push_back('\0');
    return s.sendcommand(text.data(), nullptr, 0);
  }

  // A command is a query when its raw code comes back and the last error
  // is left alone; an action returns 0 for the same code and keeps it.
  void ExpectQuery(const std::string& cmd) {
    std::unique_ptr<slave> s = Open();
    EXPECT_EQ(Send(*s, cmd, 5), 5) << cmd;
    EXPECT_EQ(s->m_LastError, 0) << cmd;
    EXPECT_EQ(CountOf(Sim(*s)->Calls(), "ResetError(1)"), 0) << cmd;
  }
  void ExpectAction(const std::string& cmd) {
    std::unique_ptr<slave> s = Open();
    EXPECT_EQ(Send(*s, cmd, 5), 0) << cmd;
    EXPECT_EQ(s->m_LastError, 5) << cmd;
    EXPECT_EQ(CountOf(Sim(*s)->Calls(), "ResetError(1)"), 1) << cmd;
  }

  // The two trace lines of an action answered with code.
  void ExpectActionTrace(int code, const std::string& result_text) {
    std::unique_ptr<slave> s = Open();
    EXPECT_EQ(Send(*s, "/S5", code), code == 0 ? 1 : 0);
    std::vector<std::string> expected = {Pid() + "/S5",
                                         Pid() + "/S5 --> " + result_text};
    EXPECT_EQ(g_messages, expected);
    EXPECT_EQ(s->m_LastError, code);
  }
};

// --- Queries and actions ---------------------------------------------------

TEST_F(CommandChannel, StatusQueryReturnsTheRawStatusWord) {
  std::unique_ptr<slave> s = Open();
  char cmd[] = "/!";
  EXPECT_EQ(s->sendcommand(cmd, nullptr, 0), kIdle);
  EXPECT_EQ(s->m_LastError, 0);
}

TEST_F(CommandChannel, BangIsAQuery) { ExpectQuery("/!"); }
TEST_F(CommandChannel, QuestionMarkIsAQuery) { ExpectQuery("/?"); }
TEST_F(CommandChannel, UpperCaseQIsAQuery) { ExpectQuery("/Q3"); }
TEST_F(CommandChannel, UpperCaseWIsAQuery) { ExpectQuery("/W"); }
TEST_F(CommandChannel, LowerCaseQIsAQuery) { ExpectQuery("/q3"); }
TEST_F(CommandChannel, LowerCaseWIsAQuery) { ExpectQuery("/w"); }
TEST_F(CommandChannel, M1IsAQuery) { ExpectQuery("/M1"); }
TEST_F(CommandChannel, LowerCaseM1IsAQuery) { ExpectQuery("/m1"); }
TEST_F(CommandChannel, TextBeginningWithM1IsAQuery) { ExpectQuery("/M1X"); }
TEST_F(CommandChannel, KsIsAQuery) { ExpectQuery("/KS(3)"); }
TEST_F(CommandChannel, LowerCaseKsIsAQuery) { ExpectQuery("/ks(3)"); }
TEST_F(CommandChannel, MixedCaseKsIsAQuery) { ExpectQuery("/kS(3)"); }

TEST_F(CommandChannel, ShelfMoveIsAnAction) { ExpectAction("/S5"); }
TEST_F(CommandChannel, M0IsAnAction) { ExpectAction("/M0(ABC)"); }
TEST_F(CommandChannel, M2IsAnAction) { ExpectAction("/M2"); }
TEST_F(CommandChannel, KWithoutSIsAnAction) { ExpectAction("/K(1)"); }
TEST_F(CommandChannel, DispenseIsAnAction) { ExpectAction("/D(1:1.000)"); }
TEST_F(CommandChannel, SlashAloneIsAnAction) { ExpectAction("/"); }

TEST_F(CommandChannel, SuccessfulActionReturnsOneAndKeepsLastError) {
  std::unique_ptr<slave> s = Open();
  s->m_LastError = 7;
  EXPECT_EQ(Send(*s, "/S5", 0), 1);
  EXPECT_EQ(s->m_LastError, 7);
  EXPECT_EQ(CountPrefix(Sim(*s)->Calls(), "ResetError("), 0);
}

TEST_F(CommandChannel, FailedActionKeepsTheCodeAndResetsTheDriver) {
  std::unique_ptr<slave> s = Open();
  EXPECT_EQ(Send(*s, "/S5", 4), 0);
  EXPECT_EQ(s->m_LastError, 4);
  std::vector<std::string> expected = {"SendCommand(1,/S5)", "ResetError(1)"};
  EXPECT_EQ(Sim(*s)->Calls(), expected);
}

TEST_F(CommandChannel, FailedQueryLeavesLastErrorAndDriverAlone) {
  std::unique_ptr<slave> s = Open();
  s->m_LastError = 2;
  EXPECT_EQ(Send(*s, "/!", -1), -1);
  EXPECT_EQ(s->m_LastError, 2);
  std::vector<std::string> expected = {"SendCommand(1,/!)"};
  EXPECT_EQ(Sim(*s)->Calls(), expected);
}

TEST_F(CommandChannel, ActionWithoutAnswerReturnsZeroAndKeepsMinusOne) {
  std::unique_ptr<slave> s = Open();
  EXPECT_EQ(Send(*s, "/S5", -1), 0);
  EXPECT_EQ(s->m_LastError, -1);
  EXPECT_EQ(CountOf(Sim(*s)->Calls(), "ResetError(1)"), 1);
}

TEST_F(CommandChannel, QueryWithoutAnswerReturnsMinusOne) {
  std::unique_ptr<slave> s = Open();
  EXPECT_EQ(Send(*s, "/!", -1), -1);
  std::vector<std::string> expected = {Pid() + "/!", Pid() + "/! --> error"};
  EXPECT_EQ(g_messages, expected);
}

TEST_F(CommandChannel, WithoutDispenserQueryIsMinusOneActionZeroNothingTraced) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(42);
  slave::Message = CaptureMessage;
  slave::CommTest = EventCommTest;
  char query[] = "/!";
  char action[] = "/S5";
  EXPECT_EQ(s.sendcommand(query, nullptr, 0), -1);
  EXPECT_EQ(s.sendcommand(action, nullptr, 0), 0);
  EXPECT_TRUE(g_messages.empty());
  EXPECT_TRUE(g_events.empty());
  EXPECT_EQ(s.m_LastError, 0);
}

// --- Direct and separate-thread paths ---------------------------------------

TEST_F(CommandChannel, OptionSixOffSendsDirectly) {
  std::unique_ptr<slave> s = Open();
  EXPECT_EQ(Send(*s, "/S5", 0), 1);
  std::vector<std::string> expected = {"SendCommand(1,/S5)"};
  EXPECT_EQ(Sim(*s)->Calls(), expected);
}

TEST_F(CommandChannel, OptionSixOnSendsThroughTheDriverThread) {
  std::unique_ptr<slave> s = Open("00000010000000000000000000000000");
  EXPECT_EQ(Send(*s, "/S5", 0), 1);
  char query[] = "/!";
  EXPECT_EQ(s->sendcommand(query, nullptr, 0), kIdle);
  std::vector<std::string> expected = {"SendCommandThread(1,/S5)",
                                       "SendCommandThread(1,/!)"};
  EXPECT_EQ(Sim(*s)->Calls(), expected);
}

TEST_F(CommandChannel, DisabledThreadSendsDirectlyDespiteOptionSix) {
  std::unique_ptr<slave> s = Open("00000010000000000000000000000000");
  EXPECT_EQ(s->EnableSeparateThread(0), 1);
  EXPECT_EQ(Send(*s, "/S5", 0), 1);
  EXPECT_EQ(s->EnableSeparateThread(1), 0);
  EXPECT_EQ(Send(*s, "/S6", 0), 1);
  std::vector<std::string> expected = {"SendCommand(1,/S5)",
                                       "SendCommandThread(1,/S6)"};
  EXPECT_EQ(Sim(*s)->Calls(), expected);
}

TEST_F(CommandChannel, FailedActionOnThreadPathAlsoResetsTheDriver) {
  std::unique_ptr<slave> s = Open("00000010000000000000000000000000");
  EXPECT_EQ(Send(*s, "/S5", 9), 0);
  EXPECT_EQ(s->m_LastError, 9);
  std::vector<std::string> expected = {"SendCommandThread(1,/S5)",
                                       "ResetError(1)"};
  EXPECT_EQ(Sim(*s)->Calls(), expected);
}

// --- Answer copy ------------------------------------------------------------

TEST_F(CommandChannel, AnswerOfSuccessfulQueryIsCopied) {
  std::unique_ptr<slave> s = Open();
  Sim(*s)->AddRule("/M1", 0, "MODEL-X 42");
  char cmd[] = "/M1";
  char buf[32];
  memset(buf, 'Z', sizeof buf);
  EXPECT_EQ(s->sendcommand(cmd, buf, 20), 0);
  EXPECT_STREQ(buf, "MODEL-X 42");
  EXPECT_EQ(buf[20], 'Z');
}

TEST_F(CommandChannel, AnswerOfSuccessfulActionIsCopied) {
  std::unique_ptr<slave> s = Open();
  Sim(*s)->AddRule("/S5", 0, "OK");
  char cmd[] = "/S5";
  char buf[16];
  memset(buf, 'Z', sizeof buf);
  EXPECT_EQ(s->sendcommand(cmd, buf, 8), 1);
  EXPECT_STREQ(buf, "OK");
}

TEST_F(CommandChannel, AnswerCopyIsBoundedWithoutTerminator) {
  std::unique_ptr<slave> s = Open();
  Sim(*s)->AddRule("/M1", 0, "ABCDEFGH");
  char cmd[] = "/M1";
  char buf[16];
  memset(buf, 'Z', sizeof buf);
  EXPECT_EQ(s->sendcommand(cmd, buf, 4), 0);
  EXPECT_EQ(std::string(buf, 5), "ABCDZ");
}

TEST_F(CommandChannel, AnswerFillingTheBufferExactlyGetsNoTerminator) {
  std::unique_ptr<slave> s = Open();
  Sim(*s)->AddRule("/M1", 0, "ABCD");
  char cmd[] = "/M1";
  char buf[16];
  memset(buf, 'Z', sizeof buf);
  EXPECT_EQ(s->sendcommand(cmd, buf, 4), 0);
  EXPECT_EQ(std::string(buf, 5), "ABCDZ");
}

TEST_F(CommandChannel, AnswerIsNotCopiedOnNonZeroCode) {
  std::unique_ptr<slave> s = Open();
  Sim(*s)->AddRule("/M1", 3, "XYZ");
  char cmd[] = "/M1";
  char buf[16];
  memset(buf, 'Z', sizeof buf);
  EXPECT_EQ(s->sendcommand(cmd, buf, 8), 3);
  EXPECT_EQ(std::string(buf, 8), "ZZZZZZZZ");
}

TEST_F(CommandChannel, NullAnswerBufferIsAllowed) {
  std::unique_ptr<slave> s = Open();
  Sim(*s)->AddRule("/M1", 0, "ABC");
  char cmd[] = "/M1";
  EXPECT_EQ(s->sendcommand(cmd, nullptr, 8), 0);
}

// --- Trace lines --------------------------------------------------------------

TEST_F(CommandChannel, QueryTraceShowsTheRawCodeWithTwoBlanks) {
  std::unique_ptr<slave> s = Open();
  EXPECT_EQ(Send(*s, "/!", 214), 214);
  std::vector<std::string> expected = {Pid() + "/!", Pid() + "/! --> 214  "};
  EXPECT_EQ(g_messages, expected);
}

TEST_F(CommandChannel, QueryTraceOfCodeZero) {
  std::unique_ptr<slave> s = Open();
  EXPECT_EQ(Send(*s, "/M1", 0, "SIM"), 0);
  std::vector<std::string> expected = {Pid() + "/M1", Pid() + "/M1 --> 0  "};
  EXPECT_EQ(g_messages, expected);
}

TEST_F(CommandChannel, QueryTraceOfMachineErrorCodeHasNoText) {
  std::unique_ptr<slave> s = Open();
  EXPECT_EQ(Send(*s, "/KS(2)", 4), 4);
  std::vector<std::string> expected = {Pid() + "/KS(2)",
                                       Pid() + "/KS(2) --> 4  "};
  EXPECT_EQ(g_messages, expected);
}

TEST_F(CommandChannel, ActionTraceCode00Success) {
  ExpectActionTrace(0, " 0 SUCCESS");
}
TEST_F(CommandChannel, ActionTraceCode01ReadingConfigurationData) {
  ExpectActionTrace(1, " 1 ERROR : reading configuration data");
}
TEST_F(CommandChannel, ActionTraceCode02UnknownCommand) {
  ExpectActionTrace(2, " 2 ERROR : unknown command");
}
TEST_F(CommandChannel, ActionTraceCode03CommunicationProtocol) {
  ExpectActionTrace(3, " 3 ERROR : in communication protocol");
}
TEST_F(CommandChannel, ActionTraceCode04CommandRefused) {
  ExpectActionTrace(4, " 4 ERROR : command refused");
}
TEST_F(CommandChannel, ActionTraceCode05ProcessTimeout) {
  ExpectActionTrace(5, " 5 ERROR : process timeout elapsed");
}
TEST_F(CommandChannel, ActionTraceCode06DuringMixing) {
  ExpectActionTrace(6, " 6 ERROR : during mixing");
}
TEST_F(CommandChannel, ActionTraceCode07ElectrovalveFeeding) {
  ExpectActionTrace(7, " 7 ERROR : in electrovalve feeding");
}
TEST_F(CommandChannel, ActionTraceCode08CanMissingOrTooSmall) {
  ExpectActionTrace(8, " 8 ERROR : can missing or too small");
}
TEST_F(CommandChannel, ActionTraceCode09CanTooBig) {
  ExpectActionTrace(9, " 9 ERROR : can too big");
}
TEST_F(CommandChannel, ActionTraceCode10DoorOpen) {
  ExpectActionTrace(10, "10 ERROR : door open");
}
TEST_F(CommandChannel, ActionTraceCode11ShelfUpperOffLimit) {
  ExpectActionTrace(11, "11 ERROR : shelf upper off-limit");
}
TEST_F(CommandChannel, ActionTraceCode12PunchFailure) {
  ExpectActionTrace(12, "12 ERROR : punch failure");
}
TEST_F(CommandChannel, ActionTraceCode13CapFailure) {
  ExpectActionTrace(13, "13 ERROR : cap failure");
}
TEST_F(CommandChannel, ActionTraceCode14DispStop) {
  ExpectActionTrace(14, "14 ERROR : disp. stop");
}
TEST_F(CommandChannel, ActionTraceCode15GenericError) {
  ExpectActionTrace(15, "15 ERROR : generic error");
}

TEST_F(CommandChannel, ActionFailingWithCode20IsTracedWithoutText) {
  ExpectActionTrace(20, "20 ");
}

TEST_F(CommandChannel, ActionFailingWithCode16IsTracedWithoutText) {
  ExpectActionTrace(16, "16 ");
}

TEST_F(CommandChannel, ActionWithoutAnswerIsTracedWithTheNumberOnly) {
  ExpectActionTrace(-1, "-1 ");
}

TEST_F(CommandChannel, ActionWithOtherNegativeCodeIsTracedWithoutText) {
  ExpectActionTrace(-3, "-3 ");
}

TEST_F(CommandChannel, DefaultMessageHookTracesEachLineOnItsOwn) {
  DispenserRow row = StandardDispenser(1);
  ASSERT_GT(tables_.AddDispenser(row), 0);
  slave s(1);
  trace_.clear();
  char cmd[] = "/S5";
  EXPECT_EQ(s.sendcommand(cmd, nullptr, 0), 1);
  std::vector<std::string> expected = {"\n" + Pid() + "/S5",
                                       "\n" + Pid() + "/S5 -->  0 SUCCESS"};
  EXPECT_EQ(trace_.messages(), expected);
}

// The default hook's lines are the host's trace of "\n" and the very text
// a hook set by the host is given, for actions and queries alike, whatever
// the code: the library hands the trace its format, which the trace fills
// once.
TEST_F(CommandChannel, DefaultMessageHookTracesWhatASetHookIsGiven) {
  void (*const defaultHook)(const char*) = slave::Message;
  const std::vector<std::pair<std::string, int>> sent = {
      {"/S5", 0}, {"/X", 4}, {"/Y", -3}, {"/Z", 99}, {"/?A", 5}, {"/?B", -1}, {"/M1", 198}};
  std::unique_ptr<slave> s = Open();
  for (const auto& c : sent) Send(*s, c.first, c.second);
  const std::vector<std::string> given = g_messages;
  ASSERT_EQ(given.size(), 2 * sent.size());

  slave::Message = defaultHook;
  trace_.clear();
  for (const auto& c : sent) Send(*s, c.first, c.second);
  std::vector<std::string> expected;
  for (const std::string& text : given) expected.push_back("\n" + text);
  EXPECT_EQ(trace_.messages(), expected);
}

TEST_F(CommandChannel, MessageHookIsNeverNullAtStart) {
  EXPECT_NE(slave::Message, nullptr);
  EXPECT_EQ(slave::CommTest, nullptr);
}

// --- Hooks ----------------------------------------------------------------------

TEST_F(CommandChannel, HooksSurroundTheCommandInOrder) {
  std::unique_ptr<slave> s = Open();
  g_observed = s.get();
  slave::Message = EventMessage;
  slave::CommTest = EventCommTest;
  char cmd[] = "/S5";
  EXPECT_EQ(s->sendcommand(cmd, nullptr, 0), 1);
  std::vector<std::string> expected = {
      "message " + Pid() + "/S5 @0", "commtest 0 1 @0", "commtest 1 1 @1",
      "message " + Pid() + "/S5 -->  0 SUCCESS @1"};
  EXPECT_EQ(g_events, expected);
}

TEST_F(CommandChannel, CommTestGetsTheDispenserId) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(4)), 0);
  slave s(4);
  ASSERT_NE(s.m_Dsp, nullptr);
  slave::CommTest = EventCommTest;
  char cmd[] = "/!";
  EXPECT_EQ(s.sendcommand(cmd, nullptr, 0), kIdle);
  std::vector<std::string> expected = {"commtest 0 4 @0", "commtest 1 4 @0"};
  EXPECT_EQ(g_events, expected);
}

TEST_F(CommandChannel, CommTestSurroundsQueriesToo) {
  std::unique_ptr<slave> s = Open();
  g_observed = s.get();
  slave::Message = EventMessage;
  slave::CommTest = EventCommTest;
  EXPECT_EQ(Send(*s, "/!", -1), -1);
  std::vector<std::string> expected = {
      "message " + Pid() + "/! @0", "commtest 0 1 @0", "commtest 1 1 @1",
      "message " + Pid() + "/! --> error @1"};
  EXPECT_EQ(g_events, expected);
}

// --- LastError --------------------------------------------------------------------

TEST_F(CommandChannel, LastErrorWithoutDriverErrorKeepsTheMember) {
  std::unique_ptr<slave> s = Open();
  s->m_LastError = 9;
  EXPECT_EQ(s->LastError(), 9);
  EXPECT_EQ(s->m_LastError, 9);
  EXPECT_EQ(CountOf(Sim(*s)->Calls(), "GetLastError(1)"), 1);
}

TEST_F(CommandChannel, LastErrorTakesTheDriverError) {
  std::unique_ptr<slave> s = Open();
  ASSERT_TRUE(Sim(*s)->SetSetting("lasterror", "12"));
  EXPECT_EQ(s->LastError(), 12);
  EXPECT_EQ(s->m_LastError, 12);
}

TEST_F(CommandChannel, LastErrorTakesAZeroDriverError) {
  std::unique_ptr<slave> s = Open();
  s->m_LastError = 5;
  ASSERT_TRUE(Sim(*s)->SetSetting("lasterror", "0"));
  EXPECT_EQ(s->LastError(), 0);
  EXPECT_EQ(s->m_LastError, 0);
}

// --- Error queue --------------------------------------------------------------------

TEST_F(CommandChannel, ErrorQueueWithoutDriverIsZero) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(42);
  wchar_t text[32];
  char code[16];
  EXPECT_EQ(s.ErrorQueueFirst(text, 32, code, 16), 0);
  EXPECT_EQ(s.ErrorQueueNext(text, 32, code, 16), 0);
  EXPECT_EQ(s.ErrorQueueClear(), 0);
  EXPECT_EQ(s.ErrorQueueCount(), 0);
}

TEST_F(CommandChannel, ErrorQueueIsTheDriversQueue) {
  std::unique_ptr<slave> s = Open();
  ASSERT_TRUE(Sim(*s)->SetSetting("queue", "E12 Door open"));
  ASSERT_TRUE(Sim(*s)->SetSetting("queue", "E3 Low level"));
  EXPECT_EQ(s->ErrorQueueCount(), 2);
  wchar_t text[32];
  char code[16];
  EXPECT_EQ(s->ErrorQueueFirst(text, 32, code, 16), 1);
  EXPECT_STREQ(code, "E12");
  EXPECT_EQ(std::wstring(text), L"Door open");
  EXPECT_EQ(s->ErrorQueueNext(text, 32, code, 16), 1);
  EXPECT_STREQ(code, "E3");
  EXPECT_EQ(std::wstring(text), L"Low level");
  EXPECT_EQ(s->ErrorQueueNext(text, 32, code, 16), 0);
  EXPECT_EQ(s->ErrorQueueClear(), 1);
  EXPECT_EQ(s->ErrorQueueCount(), 0);
  std::vector<std::string> expected = {
      "ErrorQueueCount(1)",         "ErrorQueueFirst(1,32,0,16)",
      "ErrorQueueNext(1,32,0,16)",  "ErrorQueueNext(1,32,0,16)",
      "ErrorQueueClear(1)",         "ErrorQueueCount(1)"};
  EXPECT_EQ(Sim(*s)->Calls(), expected);
}

TEST_F(CommandChannel, DebugNoClearKeepsTheQueue) {
  std::unique_ptr<slave> s = Open();
  ASSERT_TRUE(Sim(*s)->SetSetting("queue", "E12 Door open"));
  qtest::ScopedEnv no_clear("DEBUG_NO_CLEAR", "1");
  EXPECT_EQ(s->ErrorQueueClear(), 1);
  EXPECT_EQ(s->ErrorQueueCount(), 1);
  EXPECT_EQ(CountPrefix(Sim(*s)->Calls(), "ErrorQueueClear("), 0);
}

TEST_F(CommandChannel, DebugNoClearAnswersOneWithoutDriver) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(42);
  qtest::ScopedEnv no_clear("DEBUG_NO_CLEAR", "1");
  EXPECT_EQ(s.ErrorQueueClear(), 1);
}

TEST_F(CommandChannel, DebugNoClearWithEmptyValueCounts) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(42);
  qtest::ScopedEnv no_clear("DEBUG_NO_CLEAR", "");
  EXPECT_EQ(s.ErrorQueueClear(), 1);
}

// --- message ------------------------------------------------------------------------

TEST_F(CommandChannel, MessagePrintsTheFormattedText) {
  char fmt[] = "abc %d-%s";
  char arg[] = "x";
  testing::internal::CaptureStdout();
  message(99, fmt, 5, arg);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "abc 5-x");
}

TEST_F(CommandChannel, MessageUsesTheExpansionAsFormatAgain) {
  char fmt[] = "%s";
  char arg[] = "100%%";
  testing::internal::CaptureStdout();
  message(0, fmt, arg);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "100%");
}

TEST_F(CommandChannel, MessageOf700CharactersIsPrinted) {
  std::string text(700, 'a');
  char fmt[] = "%s";
  testing::internal::CaptureStdout();
  message(0, fmt, text.c_str());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), text);
}

TEST_F(CommandChannel, MessageOf701CharactersPrintsOnlyTheOverflowText) {
  std::string text(701, 'a');
  char fmt[] = "%s";
  testing::internal::CaptureStdout();
  message(0, fmt, text.c_str());
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "ERROR in message() : string is too long; possible buffer "
            "overflow !!");
}

TEST_F(CommandChannel, MessageWithNullFormatPrintsNothing) {
  testing::internal::CaptureStdout();
  message(0, nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

// --- Bad input ----------------------------------------------------------------------

TEST_F(CommandChannel, NullCommandIsRefusedAndNothingIsSent) {
  std::unique_ptr<slave> s = Open();
  char buf[8];
  EXPECT_EQ(s->sendcommand(nullptr, buf, 8), 0);
  EXPECT_TRUE(Sim(*s)->Commands().empty());
  EXPECT_TRUE(Sim(*s)->Calls().empty());
}

TEST_F(CommandChannel, EmptyCommandIsRefusedAndNothingIsSent) {
  std::unique_ptr<slave> s = Open();
  char cmd[] = "";
  EXPECT_EQ(s->sendcommand(cmd, nullptr, 0), 0);
  EXPECT_TRUE(Sim(*s)->Commands().empty());
  EXPECT_TRUE(Sim(*s)->Calls().empty());
}

TEST_F(CommandChannel, DriverAnsweringMinusOneToEverything) {
  std::unique_ptr<slave> s = Open();
  Sim(*s)->AddRule("*", -1);
  char query[] = "/!";
  char action[] = "/S5";
  char answer[16];
  memset(answer, 'Z', sizeof answer);
  EXPECT_EQ(s->sendcommand(query, answer, 8), -1);
  EXPECT_EQ(answer[0], 'Z');
  EXPECT_EQ(s->sendcommand(action, answer, 8), 0);
  EXPECT_EQ(s->m_LastError, -1);
  std::vector<std::string> expected = {Pid() + "/!", Pid() + "/! --> error",
                                       Pid() + "/S5", Pid() + "/S5 --> -1 "};
  EXPECT_EQ(g_messages, expected);
}

}  // namespace
