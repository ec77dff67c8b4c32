// The purge-server update after dispensing, against a real XML-RPC server
// (Python's xmlrpc.server on a loopback port): the method name, the three
// parameters with their XML-RPC types, the answers and their traces, a
// server that is down or slow, the off switch, one connection per call.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "dispense_fixture.h"
#include "purge_server.h"

namespace {

using qtest::PurgeAnswer;
using qtest::PurgeCall;
using qtest::PurgeServer;

const char kFailedLine[] =
    "\nslave::UpdateDspPurgeServerAfterDispensing: DspPurgeClient.execute FAILED!!! \n";

std::string HeaderLine(long id, const std::string& frm) {
  return "\nslave::UpdateDspPurgeServerAfterDispensing [DispID: " + std::to_string(id) +
         " - Formula: " + frm + "]: ";
}

// Captures what is written on standard error while it lives.
class StderrCapture {
 public:
  StderrCapture() {
    fflush(stderr);
    saved_ = dup(2);
    int fd = open(dir_.file("stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(fd, 2);
    close(fd);
  }
  ~StderrCapture() { Restore(); }
  std::string Text() {
    Restore();
    return qtest::ReadFile(dir_.file("stderr"));
  }

 private:
  void Restore() {
    if (saved_ < 0) return;
    fflush(stderr);
    dup2(saved_, 2);
    close(saved_);
    saved_ = -1;
  }
  qtest::TempDir dir_;
  int saved_ = -1;
};

class PurgeServerUpdate : public qtest::DispenseEnv {
 protected:
  void SetUp() override {
    DispenseEnv::SetUp();
    qtest::DispenserRow row = qtest::StandardDispenser(7);
    ASSERT_GT(tables_.AddDispenser(row), 0);
    qtest::TankRow tank = qtest::TankOf(1, 10, 500.0, 10.0, 1000.0);
    tank.disp_id = 7;
    ASSERT_GT(tables_.AddTank(tank), 0);
  }

  // Points the slave at the server.
  static void Aim(slave& s, const PurgeServer& server) {
    snprintf(s.m_PurgeSrvHost, sizeof s.m_PurgeSrvHost, "%s", "127.0.0.1");
    s.m_PurgeSrvPort = server.port();
    s.m_PurgeSrvOff = 0;
  }

  std::vector<std::string> Trace() { return trace_.messages(); }
};

TEST_F(PurgeServerUpdate, CallsUpdateAfterDispensingWithIntStringBool) {
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(7);
  ASSERT_EQ(s.m_DispId, 7);
  Aim(s, server);
  char frm[] = "(3:12.500)(7:0.800)";
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(frm), 1);
  std::vector<PurgeCall> calls = server.Calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].method, "UpdateAfterDispensing");
  ASSERT_EQ(calls[0].params.size(), 3u) << "exactly three parameters";
  EXPECT_EQ(calls[0].params[0], "int:7");
  EXPECT_EQ(calls[0].params[1], "str:'(3:12.500)(7:0.800)'");
  EXPECT_EQ(calls[0].params[2], "bool:False");
}

TEST_F(PurgeServerUpdate, PurgeFlagIsSentAsBooleanTrue) {
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(7);
  Aim(s, server);
  s.m_PurgeSrvFlag = 1;
  char frm[] = "(1:2.000)";
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(frm), 1);
  std::vector<PurgeCall> calls = server.Calls();
  ASSERT_EQ(calls.size(), 1u);
  ASSERT_EQ(calls[0].params.size(), 3u);
  EXPECT_EQ(calls[0].params[0], "int:7");
  EXPECT_EQ(calls[0].params[1], "str:'(1:2.000)'");
  EXPECT_EQ(calls[0].params[2], "bool:True");
}

TEST_F(PurgeServerUpdate, TwoSectionFormulaWithFactorIsPassedAsItStands) {
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(7);
  Aim(s, server);
  char frm[] = "(3:6.250);(3:6.250)(7:0.800)2.000";
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(frm), 1);
  std::vector<PurgeCall> calls = server.Calls();
  ASSERT_EQ(calls.size(), 1u);
  ASSERT_EQ(calls[0].params.size(), 3u);
  EXPECT_EQ(calls[0].params[1], "str:'(3:6.250);(3:6.250)(7:0.800)2.000'");
}

TEST_F(PurgeServerUpdate, AnswerOneGivesOneAfterTwoTraceLines) {
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(7);
  Aim(s, server);
  trace_.clear();
  char frm[] = "(3:12.500)";
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(frm), 1);
  EXPECT_EQ(Trace(), (std::vector<std::string>{HeaderLine(7, "(3:12.500)"), "\n--> RETURNED: 1"}));
}

TEST_F(PurgeServerUpdate, AnswerZeroGivesZeroAfterTwoTraceLines) {
  PurgeServer server(PurgeAnswer::kZero);
  ASSERT_TRUE(server.ok());
  slave s(7);
  Aim(s, server);
  trace_.clear();
  char frm[] = "(3:12.500)";
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(frm), 0);
  EXPECT_EQ(Trace(), (std::vector<std::string>{HeaderLine(7, "(3:12.500)"), "\n--> RETURNED: 0"}));
  EXPECT_EQ(server.Calls().size(), 1u);
}

TEST_F(PurgeServerUpdate, IntAnswerOtherThanOneGivesZero) {
  PurgeServer server(PurgeAnswer::kTwo);
  ASSERT_TRUE(server.ok());
  slave s(7);
  Aim(s, server);
  trace_.clear();
  char frm[] = "(3:12.500)";
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(frm), 0);
  EXPECT_EQ(Trace(), (std::vector<std::string>{HeaderLine(7, "(3:12.500)"), "\n--> RETURNED: 2"}));
}

// The XML traced after "--> RETURNED: ", read back by Python's own XML-RPC
// parser and printed as a Python value.
std::string XmlValueAsPython(const std::string& xml) {
  std::string script =
      "import sys, xmlrpc.client\n"
      "doc = '<?xml version=\"1.0\"?><methodResponse><params><param>' + " +
      qtest::PyQuote(xml) +
      " + '</param></params></methodResponse>'\n"
      "value = xmlrpc.client.loads(doc)[0][0]\n"
      "sys.stdout.write(repr(sorted(value.items())))\n";
  std::string out;
  if (qtest::RunPython(script, &out) != 0) return "<unreadable: " + out + ">";
  return out;
}

TEST_F(PurgeServerUpdate, StructAnswerIsTracedAsXmlAndGivesZero) {
  PurgeServer server(PurgeAnswer::kStruct);
  ASSERT_TRUE(server.ok());
  slave s(7);
  Aim(s, server);
  trace_.clear();
  char frm[] = "(3:12.500)";
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(frm), 0);
  std::vector<std::string> lines = Trace();
  ASSERT_EQ(lines.size(), 2u) << trace_.text();
  EXPECT_EQ(lines[0], HeaderLine(7, "(3:12.500)"));
  const std::string prefix = "\n--> RETURNED: ";
  ASSERT_EQ(lines[1].compare(0, prefix.size(), prefix), 0) << lines[1];
  EXPECT_EQ(XmlValueAsPython(lines[1].substr(prefix.size())),
            "[('code', 7), ('text', 'busy')]");
}

TEST_F(PurgeServerUpdate, FaultAnswerIsTracedAsXmlAndGivesZero) {
  PurgeServer server(PurgeAnswer::kFault);
  ASSERT_TRUE(server.ok());
  slave s(7);
  Aim(s, server);
  trace_.clear();
  char frm[] = "(3:12.500)";
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(frm), 0);
  std::vector<std::string> lines = Trace();
  ASSERT_EQ(lines.size(), 2u) << trace_.text();
  EXPECT_EQ(lines[0], HeaderLine(7, "(3:12.500)"));
  const std::string prefix = "\n--> RETURNED: ";
  ASSERT_EQ(lines[1].compare(0, prefix.size(), prefix), 0) << lines[1];
  EXPECT_EQ(XmlValueAsPython(lines[1].substr(prefix.size())),
            "[('faultCode', 4), ('faultString', 'purge refused')]");
}

TEST_F(PurgeServerUpdate, AnswerOfAnotherTypeGivesZeroWithoutReturnedLine) {
  PurgeServer server(PurgeAnswer::kString);
  ASSERT_TRUE(server.ok());
  slave s(7);
  Aim(s, server);
  trace_.clear();
  char frm[] = "(3:12.500)";
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(frm), 0);
  EXPECT_EQ(Trace(), (std::vector<std::string>{HeaderLine(7, "(3:12.500)")}));
}

TEST_F(PurgeServerUpdate, ServerDownGivesZeroAndOneFailedLine) {
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  server.Stop();
  slave s(7);
  Aim(s, server);
  trace_.clear();
  char frm[] = "(3:12.500)";
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(frm), 0);
  EXPECT_EQ(Trace(), (std::vector<std::string>{kFailedLine}));
}

TEST_F(PurgeServerUpdate, ServerDownWritesNothingOnStandardError) {
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  server.Stop();
  slave s(7);
  Aim(s, server);
  char frm[] = "(3:12.500)";
  std::string errors;
  int result = -1;
  {
    StderrCapture capture;
    result = s.UpdateDspPurgeServerAfterDispensing(frm);
    errors = capture.Text();
  }
  EXPECT_EQ(result, 0);
  EXPECT_EQ(errors, "") << "the failure is reported by the one trace line only";
}

TEST_F(PurgeServerUpdate, SlowServerIsAwaited) {
  PurgeServer server(PurgeAnswer::kDelayed);
  ASSERT_TRUE(server.ok());
  slave s(7);
  Aim(s, server);
  trace_.clear();
  char frm[] = "(3:12.500)";
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(frm), 1);
  EXPECT_EQ(Trace(), (std::vector<std::string>{HeaderLine(7, "(3:12.500)"), "\n--> RETURNED: 1"}));
  EXPECT_EQ(server.Calls().size(), 1u);
}

TEST_F(PurgeServerUpdate, SwitchedOffGivesOneWithoutConnecting) {
  PurgeServer server(PurgeAnswer::kZero);
  ASSERT_TRUE(server.ok());
  slave s(7);
  Aim(s, server);
  s.m_PurgeSrvOff = 1;
  trace_.clear();
  char frm[] = "(3:12.500)";
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(frm), 1);
  EXPECT_TRUE(server.Records().empty()) << "the server saw a connection or a call";
  EXPECT_EQ(qtest::CountPrefix(Trace(), "\nslave::UpdateDspPurgeServerAfterDispensing"), 0);
}

TEST_F(PurgeServerUpdate, SwitchedOffWithServerDownStillGivesOne) {
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  server.Stop();
  slave s(7);
  Aim(s, server);
  s.m_PurgeSrvOff = 1;
  trace_.clear();
  char frm[] = "(3:12.500)";
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(frm), 1);
  EXPECT_EQ(qtest::CountOf(Trace(), kFailedLine), 0);
}

TEST_F(PurgeServerUpdate, EachCallMakesItsOwnConnection) {
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(7);
  Aim(s, server);
  char a[] = "(1:1.000)";
  char b[] = "(2:2.000)";
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(a), 1);
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(b), 1);
  EXPECT_EQ(server.Connections(), 2);
  std::vector<PurgeCall> calls = server.Calls();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0].params[1], "str:'(1:1.000)'");
  EXPECT_EQ(calls[1].params[1], "str:'(2:2.000)'");
}

TEST_F(PurgeServerUpdate, CallAfterAFailedOneConnectsAgain) {
  PurgeServer down(PurgeAnswer::kOne);
  ASSERT_TRUE(down.ok());
  down.Stop();
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(7);
  Aim(s, down);
  char frm[] = "(1:1.000)";
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(frm), 0);
  Aim(s, server);
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(frm), 1);
  EXPECT_EQ(server.Connections(), 1);
}

TEST_F(PurgeServerUpdate, EmptyFormulaIsSentAsEmptyString) {
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(7);
  Aim(s, server);
  char frm[] = "";
  EXPECT_EQ(s.UpdateDspPurgeServerAfterDispensing(frm), 1);
  std::vector<PurgeCall> calls = server.Calls();
  ASSERT_EQ(calls.size(), 1u);
  ASSERT_EQ(calls[0].params.size(), 3u);
  EXPECT_EQ(calls[0].params[1], "str:''");
}

TEST_F(PurgeServerUpdate, ConstructionAimsAtLocalPort9002) {
  slave s(7);
  EXPECT_STREQ(s.m_PurgeSrvHost, "127.0.0.1");
  EXPECT_EQ(s.m_PurgeSrvPort, 9002);
  EXPECT_EQ(s.m_PurgeSrvOff, 0);
  EXPECT_EQ(s.m_PurgeSrvFlag, 0);
}

}  // namespace
