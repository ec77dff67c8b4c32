// Faults outside the library: a purge server that is down, resets the
// connection, answers bytes that are not XML-RPC, answers a fault or
// answers slowly; a driver that answers no command at all. In every case
// each operation gives its documented result, the trace says what went
// wrong exactly once, nothing reaches standard error and nothing crashes.
#include <gtest/gtest.h>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "dispense_fixture.h"
#include "fault_env.h"
#include "purge_server.h"

namespace {

using qtest::OptionsWith;
using qtest::PurgeAnswer;
using qtest::PurgeServer;
using qtest::RawPeer;
using qtest::TankOf;

const char kFailedLine[] =
    "\nslave::UpdateDspPurgeServerAfterDispensing: DspPurgeClient.execute FAILED!!! \n";
const char kPurgeTracePrefix[] = "\nslave::UpdateDspPurgeServerAfterDispensing";
const char kReturnedPrefix[] = "\n--> RETURNED: ";

std::string HeaderLine(long id, const std::string& frm) {
  return "\nslave::UpdateDspPurgeServerAfterDispensing [DispID: " + std::to_string(id) +
         " - Formula: " + frm + "]: ";
}

// --- Purge server faults ---------------------------------------------------

class PurgeServerFaults : public qtest::DispenseEnv {
 protected:
  void SetUp() override {
    DispenseEnv::SetUp();
    AddDispenser();
    AddTanks({TankOf(1, 10, 500.0, 10.0, 1000.0), TankOf(2, 20, 400.0, 10.0, 1000.0)});
  }

  // One dispense with levels against a purge server on `port`, standard
  // error captured around it. The dispense result, the command and the
  // levels never depend on the server. Returns what reached standard error.
  std::string DispenseAgainst(int port) {
    slave s(1);
    EXPECT_EQ(s.m_DispId, 1);
    snprintf(s.m_PurgeSrvHost, sizeof s.m_PurgeSrvHost, "%s", "127.0.0.1");
    s.m_PurgeSrvPort = port;
    s.m_PurgeSrvOff = 0;
    trace_.clear();
    char frm[] = "(10:12.500)(20:0.800)";
    testing::internal::CaptureStderr();
    const int result = s.Dispense(frm, 1.0, 1.0, 0, 1, 0, 0);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(result, 1);
    EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:12.500)(2:0.800)"}));
    EXPECT_EQ(TankLevelsOnDisk(), (std::map<int, double>{{1, 487.5}, {2, 399.2}}));
    return err;
  }

  int PurgeTraceLines() { return qtest::CountPrefix(trace_.messages(), kPurgeTracePrefix); }
  int ReturnedLines() { return qtest::CountPrefix(trace_.messages(), kReturnedPrefix); }

  // A transport failure: the one failure line, nothing else of the server.
  void ExpectTransportFailure() {
    EXPECT_EQ(PurgeTraceLines(), 1) << trace_.text();
    EXPECT_EQ(qtest::CountOf(trace_.messages(), kFailedLine), 1) << trace_.text();
    EXPECT_EQ(ReturnedLines(), 0) << trace_.text();
  }
};

TEST_F(PurgeServerFaults, ServerDown) {
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  const int port = server.port();
  server.Stop();  // the port is closed now: connecting is refused
  EXPECT_EQ(DispenseAgainst(port), "");
  ExpectTransportFailure();
}

// One dispense is one report: a connection reset is not a reason to send
// the report again, since the server may have taken it before it went.
TEST_F(PurgeServerFaults, ConnectionResetWithoutAnswer) {
  RawPeer peer("reset");
  ASSERT_TRUE(peer.ok());
  EXPECT_EQ(DispenseAgainst(peer.port()), "");
  ExpectTransportFailure();
  EXPECT_EQ(peer.Connections(), 1);
}

TEST_F(PurgeServerFaults, ConnectionResetAfterTheRequestIsNotSentAgain) {
  RawPeer peer("read-reset");
  ASSERT_TRUE(peer.ok());
  EXPECT_EQ(DispenseAgainst(peer.port()), "");
  ExpectTransportFailure();
  EXPECT_EQ(peer.Requests(), 1);
  EXPECT_EQ(peer.Connections(), 1);
}

TEST_F(PurgeServerFaults, GarbageBytesInsteadOfHttp) {
  RawPeer peer("garbage");
  ASSERT_TRUE(peer.ok());
  EXPECT_EQ(DispenseAgainst(peer.port()), "");
  ExpectTransportFailure();
  EXPECT_EQ(peer.Connections(), 1);
}

TEST_F(PurgeServerFaults, HttpAnswerWhoseBodyIsNotXml) {
  RawPeer peer("http-garbage");
  ASSERT_TRUE(peer.ok());
  EXPECT_EQ(DispenseAgainst(peer.port()), "");
  ExpectTransportFailure();
  EXPECT_EQ(peer.Connections(), 1);
}

TEST_F(PurgeServerFaults, AnswerCutShortByTheServer) {
  RawPeer peer("truncated");
  ASSERT_TRUE(peer.ok());
  EXPECT_EQ(DispenseAgainst(peer.port()), "");
  ExpectTransportFailure();
  EXPECT_EQ(peer.Connections(), 1);
}

// A fault is an answer: the header line and the fault traced as XML, no
// failure line.
TEST_F(PurgeServerFaults, FaultAnswer) {
  PurgeServer server(PurgeAnswer::kFault);
  ASSERT_TRUE(server.ok());
  EXPECT_EQ(DispenseAgainst(server.port()), "");
  EXPECT_EQ(qtest::CountOf(trace_.messages(), HeaderLine(1, "(1:12.500)(2:0.800)")), 1)
      << trace_.text();
  EXPECT_EQ(PurgeTraceLines(), 1) << trace_.text();
  EXPECT_EQ(qtest::CountOf(trace_.messages(), kFailedLine), 0) << trace_.text();
  ASSERT_EQ(ReturnedLines(), 1) << trace_.text();
  for (const std::string& m : trace_.messages()) {
    if (m.compare(0, strlen(kReturnedPrefix), kReturnedPrefix) != 0) continue;
    EXPECT_NE(m.find("faultCode"), std::string::npos) << m;
    EXPECT_NE(m.find("purge refused"), std::string::npos) << m;
  }
  EXPECT_EQ(server.Calls().size(), 1u);
}

// A server that takes its time still gets its answer read; the dispense
// result is the same.
TEST_F(PurgeServerFaults, SlowAnswer) {
  PurgeServer server(PurgeAnswer::kDelayed);
  ASSERT_TRUE(server.ok());
  EXPECT_EQ(DispenseAgainst(server.port()), "");
  EXPECT_EQ(qtest::CountOf(trace_.messages(), HeaderLine(1, "(1:12.500)(2:0.800)")), 1)
      << trace_.text();
  EXPECT_EQ(qtest::CountOf(trace_.messages(), "\n--> RETURNED: 1"), 1) << trace_.text();
  EXPECT_EQ(qtest::CountOf(trace_.messages(), kFailedLine), 0) << trace_.text();
}

// Several dispenses against a server that is down: each costs exactly one
// failure line and the run goes on.
TEST_F(PurgeServerFaults, RepeatedDispensesAgainstAServerThatIsDown) {
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  const int port = server.port();
  server.Stop();
  slave s(1);
  ASSERT_EQ(s.m_DispId, 1);
  snprintf(s.m_PurgeSrvHost, sizeof s.m_PurgeSrvHost, "%s", "127.0.0.1");
  s.m_PurgeSrvPort = port;
  s.m_PurgeSrvOff = 0;
  trace_.clear();
  testing::internal::CaptureStderr();
  int done = 0;
  for (int i = 0; i < 5; ++i) {
    char frm[] = "(10:1.000)";
    done += s.Dispense(frm, 1.0, 1.0, 0, 1, 0, 0);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(done, 5);
  EXPECT_EQ(qtest::CountOf(trace_.messages(), kFailedLine), 5) << trace_.text();
  EXPECT_EQ(TankLevelsOnDisk(), (std::map<int, double>{{1, 495.0}, {2, 400.0}}));
}

// A listening socket on a free loopback port that never answers: the kernel
// completes the handshake for connections it queues, and nobody reads what
// they send. With fill set, its queue is filled first by connections of its
// own, so that a further connection is never completed at all.
class SilentListener {
 public:
  explicit SilentListener(bool fill) {
    fd_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    if (fd_ < 0 || bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        listen(fd_, 0) != 0 || getsockname(fd_, reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
      return;
    }
    port_ = ntohs(addr.sin_port);
    // A backlog of 0 queues one connection; a few more make sure the queue
    // is full whatever the kernel rounds it to.
    for (int i = 0; fill && i < 4; ++i) {
      int c = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
      connect(c, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
      fillers_.push_back(c);
    }
  }
  ~SilentListener() {
    for (int c : fillers_) close(c);
    if (fd_ >= 0) close(fd_);
  }
  int port() const { return port_; }

 private:
  int fd_ = -1;
  int port_ = 0;
  std::vector<int> fillers_;
};

// A purge server that accepts and never answers, or whose handshake never
// completes, costs the dispense its bound and one failure line: the
// dispense itself, its command and its levels stand.
class SilentPurgeServer : public PurgeServerFaults {
 protected:
  void ExpectBoundedWait(int port) {
  slave s(1);
  ASSERT_EQ(s.m_DispId, 1);
  snprintf(s.m_PurgeSrvHost, sizeof s.m_PurgeSrvHost, "%s", "127.0.0.1");
  s.m_PurgeSrvPort = port;
  s.m_PurgeSrvOff = 0;
  s.m_PurgeSrvTimeout = 1.0;
  char frm[] = "(10:12.500)";
  const time_t start = time(nullptr);
  EXPECT_EQ(s.Dispense(frm, 1.0, 1.0, 0, 1, 0, 0), 1);
  // A bound, not a measurement: without one the call never returns.
  EXPECT_LE(time(nullptr) - start, 30);
  EXPECT_EQ(TankLevelsOnDisk(), (std::map<int, double>{{1, 487.5}, {2, 400.0}}));
  }
};

TEST_F(SilentPurgeServer, ServerThatNeverAnswersCostsTheBoundOnly) {
  SilentListener listener(false);
  ASSERT_GT(listener.port(), 0);
  trace_.clear();
  ExpectBoundedWait(listener.port());
  ExpectTransportFailure();
}

TEST_F(SilentPurgeServer, HandshakeThatNeverCompletesCostsTheBoundOnly) {
  SilentListener listener(true);
  ASSERT_GT(listener.port(), 0);
  trace_.clear();
  ExpectBoundedWait(listener.port());
  ExpectTransportFailure();
}

TEST_F(PurgeServerFaults, ConstructionBoundsTheCallToFiveSeconds) {
  slave s(1);
  EXPECT_EQ(s.m_PurgeSrvTimeout, 5.0);
  slave copy(s);
  EXPECT_EQ(copy.m_PurgeSrvTimeout, 5.0);
}

// --- A driver that answers no command --------------------------------------

// Dispenser 1 with the stopper/group option (3) and the door switch (4),
// serial number SN-4711; tanks 1 and 2 with colourants RED and BLU; can 5
// (heights 100-200) and can 6 (goes home).
class SilentDriver : public qtest::DispenseEnv {
 protected:
  void SetUp() override {
    DispenseEnv::SetUp();
    qtest::DispenserRow row = qtest::StandardDispenser(1);
    row.options = OptionsWith({3, 4});
    row.serial_n = "SN-4711";
    ASSERT_GT(tables_.AddDispenser(row), 0);
    AddTanks({TankOf(1, 10, 500.0, 10.0, 1000.0), TankOf(2, 20, 400.0, 10.0, 1000.0)});
    AddColorant(10, "RED", 1000.0);
    AddColorant(20, "BLU", 1000.0);
    qtest::CanRow can;
    can.id = 5;
    can.h_min = 100;
    can.h_max = 200;
    ASSERT_GT(tables_.AddCan(can), 0);
    can.id = 6;
    can.zero_flag = true;
    ASSERT_GT(tables_.AddCan(can), 0);
    // No command is answered; the driver's own settings still apply.
    SimRules("* -1\nset firmware 1\n");
  }

  // The commands sent since the last call, emptying the record.
  static std::vector<std::string> Sent(slave& s) {
    std::vector<std::string> commands = CommandsOf(s);
    if (qtest::Sim(s) != nullptr) qtest::Sim(s)->ClearHistory();
    return commands;
  }

  // A failed action leaves -1 (no answer) as the last error, and the
  // driver, asked again, does not change it.
  static void ExpectNoAnswerError(slave& s) {
    EXPECT_EQ(s.m_LastError, -1);
    EXPECT_EQ(s.LastError(), -1);
    s.m_LastError = 0;
  }

  using Commands = std::vector<std::string>;
};

TEST_F(SilentDriver, DispensingFailsAfterBookingTheLevels) {
  slave s(1);
  ASSERT_EQ(s.m_DispId, 1);
  ASSERT_NE(qtest::Sim(s), nullptr);
  s.m_PurgeSrvOff = 0;  // a server is never asked about a failed dispense
  s.m_PurgeSrvPort = 1;
  s.SetLastDosedFormulaRecordMode(1);
  trace_.clear();

  char frm[] = "(10:12.500)(20:0.800)";
  EXPECT_EQ(s.Dispense(frm, 1.0, 1.0, 0, 1, 1, 1), 0);
  EXPECT_EQ(Sent(s), (Commands{"/G2", "/D(1:12.500)(2:0.800)", "/G0"}));
  ExpectNoAnswerError(s);
  // Levels are booked before the command is sent and stay booked.
  EXPECT_EQ(TankLevelsOnDisk(), (std::map<int, double>{{1, 487.5}, {2, 399.2}}));
  EXPECT_EQ(s.LastDosedFormula(), nullptr);

  char byCircuit[] = "(1:1.000)(2:2.000)";
  EXPECT_EQ(s.DispenseByCircuit(byCircuit, 1, 0, 0), 0);
  EXPECT_EQ(Sent(s), (Commands{"/D(1:1.000)", "/D(2:2.000)"}));
  ExpectNoAnswerError(s);
  EXPECT_EQ(TankLevelsOnDisk(), (std::map<int, double>{{1, 486.5}, {2, 397.2}}));

  char byColorant[] = "(10:1.500)";
  EXPECT_EQ(s.DispenseByColorant(byColorant, 1.0, 1.0, 0, 1), 0);
  const Commands sent = Sent(s);
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].compare(0, 6, "/D(RED"), 0) << sent[0];
  ExpectNoAnswerError(s);
  // This path books no levels.
  EXPECT_EQ(TankLevelsOnDisk(), (std::map<int, double>{{1, 486.5}, {2, 397.2}}));

  EXPECT_EQ(qtest::CountPrefix(trace_.messages(), kPurgeTracePrefix), 0) << trace_.text();
  EXPECT_EQ(s.LastDosedFormula(), nullptr);
}

TEST_F(SilentDriver, PurgesFailAfterBookingTheLevels) {
  slave s(1);
  ASSERT_EQ(s.m_DispId, 1);
  s.m_PurgeSrvOff = 1;

  EXPECT_EQ(s.Purge(2.0, nullptr, true, false), 0);
  EXPECT_EQ(Sent(s), (Commands{"/G2", "/D(1:2.000)(2:2.000)", "/G0"}));
  ExpectNoAnswerError(s);
  EXPECT_EQ(TankLevelsOnDisk(), (std::map<int, double>{{1, 498.0}, {2, 398.0}}));

  long colourants[] = {20, 0};
  EXPECT_EQ(s.SelectivePurge(colourants, 1.0), 0);
  EXPECT_EQ(Sent(s), (Commands{"/G2", "/D(2:1.000)", "/G0"}));
  ExpectNoAnswerError(s);
  EXPECT_EQ(TankLevelsOnDisk(), (std::map<int, double>{{1, 498.0}, {2, 397.0}}));

  EXPECT_EQ(s.CanisterPurge(1, 1.5), 0);
  EXPECT_EQ(Sent(s), (Commands{"/G2", "/D(1:1.500)", "/G0"}));
  ExpectNoAnswerError(s);
  EXPECT_EQ(TankLevelsOnDisk(), (std::map<int, double>{{1, 496.5}, {2, 397.0}}));

  // The driver cannot purge by itself, so Test sends the machine's test.
  EXPECT_EQ(s.Test(false, 1.0), 0);
  EXPECT_EQ(Sent(s), (Commands{"/T"}));
  ExpectNoAnswerError(s);
  EXPECT_EQ(s.Test(true, 1.0), 0);
  EXPECT_EQ(Sent(s), (Commands{"/G2", "/T", "/G0"}));
  ExpectNoAnswerError(s);
  EXPECT_EQ(TankLevelsOnDisk(), (std::map<int, double>{{1, 496.5}, {2, 397.0}}));
}

TEST_F(SilentDriver, ShelfAndSingleCircuitCommandsFail) {
  slave s(1);
  ASSERT_EQ(s.m_DispId, 1);

  EXPECT_EQ(s.ShelfMove(150), 0);
  EXPECT_EQ(Sent(s), (Commands{"/S150"}));
  ExpectNoAnswerError(s);

  EXPECT_EQ(s.ShelfPrepos(0), 0);
  EXPECT_EQ(Sent(s), (Commands{"/A"}));
  ExpectNoAnswerError(s);
  EXPECT_EQ(s.ShelfPrepos(5), 0);
  EXPECT_EQ(Sent(s), (Commands{"/S210"}));
  ExpectNoAnswerError(s);
  EXPECT_EQ(s.ShelfPrepos(6), 0);
  EXPECT_EQ(Sent(s), (Commands{"/A"}));
  ExpectNoAnswerError(s);

  // Without a can only a refusal with code 9 counts; no answer is failure.
  EXPECT_EQ(s.ShelfPos(0), 0);
  EXPECT_EQ(Sent(s), (Commands{"/S0"}));
  ExpectNoAnswerError(s);
  // No answer is neither "too small" (8) nor "too big" (9): no fall-back.
  EXPECT_EQ(s.ShelfPos(5), 0);
  EXPECT_EQ(Sent(s), (Commands{"/S200"}));
  ExpectNoAnswerError(s);

  EXPECT_EQ(s.ShelfPostpos(0), 0);
  EXPECT_EQ(Sent(s), (Commands{"/A"}));
  ExpectNoAnswerError(s);
  EXPECT_EQ(s.ShelfPostpos(6), 0);
  EXPECT_EQ(Sent(s), (Commands{"/A"}));
  ExpectNoAnswerError(s);
  // A can that stays where it is needs no command, so nothing fails.
  EXPECT_EQ(s.ShelfPostpos(5), 1);
  EXPECT_EQ(Sent(s), Commands{});

  EXPECT_EQ(s.SingleRecirculate(1, 2, 5), 0);
  EXPECT_EQ(Sent(s), (Commands{"/F(1:2:10)"}));
  ExpectNoAnswerError(s);
  EXPECT_EQ(s.SingleMix(3, 4), 0);
  EXPECT_EQ(Sent(s), (Commands{"/H(3:8)"}));
  ExpectNoAnswerError(s);

  char model[] = "T3000 SN42";
  EXPECT_EQ(s.SetMachineModelAndSerialNo(model), 0);
  EXPECT_EQ(Sent(s), (Commands{"/M0(T3000 SN42)"}));
  ExpectNoAnswerError(s);
}

TEST_F(SilentDriver, StatusQueriesAndReportsFailCleanly) {
  slave s(1);
  ASSERT_EQ(s.m_DispId, 1);

  char status[] = "/!";
  char answer[64] = "untouched";
  EXPECT_EQ(s.sendcommand(status, answer, sizeof answer), -1);
  EXPECT_STREQ(answer, "untouched");
  // A query's missing answer is its result, never the last error.
  EXPECT_EQ(s.m_LastError, 0);
  Sent(s);

  // The door switch is fitted: without an answer the door counts as open.
  EXPECT_EQ(s.IsDoorClosed(), 0);
  EXPECT_EQ(Sent(s), (Commands{"/!"}));

  // Without an answer the record's serial number stands in.
  const char* serial = s.GetMachineModelAndSerialNo();
  ASSERT_NE(serial, nullptr);
  EXPECT_STREQ(serial, "SN-4711");
  EXPECT_EQ(Sent(s), (Commands{"/M1"}));

  const char* circuits = s.GetK240CircuitsStatus(3);
  ASSERT_NE(circuits, nullptr);
  EXPECT_STREQ(circuits, "");
  EXPECT_EQ(Sent(s), (Commands{"/KS(3)"}));

  // The dispensed-quantity request goes out as an action: without an
  // answer it fails (0), writes no report and leaves -1 as the last error.
  char request[] = "(1:10.000)";
  char out[SLV_CMD_BUFFER] = "";
  EXPECT_EQ(s.DispensedRequest(request, out, sizeof out), 0);
  EXPECT_EQ(std::string(out).find("(1:"), std::string::npos) << out;
  EXPECT_EQ(Sent(s), (Commands{"/O(1:10.000)"}));
  ExpectNoAnswerError(s);

  // The firmware generation is no command: the driver's setting answers.
  EXPECT_EQ(s.SlaveFw(), 1);
  EXPECT_EQ(Sent(s), Commands{});
}

// The same silence scripted from code on a driver that exists.
TEST_F(SilentDriver, RuleAddedAtRunTimeFailsTheDispenseToo) {
  SimRules("");
  slave s(1);
  ASSERT_EQ(s.m_DispId, 1);
  ASSERT_NE(qtest::Sim(s), nullptr);
  s.m_PurgeSrvOff = 1;
  char first[] = "(10:1.000)";
  EXPECT_EQ(s.Dispense(first, 1.0, 1.0, 0, 1, 0, 0), 1);
  EXPECT_EQ(s.m_LastError, 0);
  qtest::Sim(s)->AddRule("*", -1, "");
  Sent(s);
  char second[] = "(10:1.000)";
  EXPECT_EQ(s.Dispense(second, 1.0, 1.0, 0, 1, 0, 0), 0);
  EXPECT_EQ(Sent(s), (Commands{"/D(1:1.000)"}));
  ExpectNoAnswerError(s);
  EXPECT_EQ(TankLevelsOnDisk(), (std::map<int, double>{{1, 498.0}, {2, 400.0}}));
}

}  // namespace
