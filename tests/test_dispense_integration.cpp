// The whole dispense path, end to end: configuration tables on disk, the
// simulated dispenser and a real XML-RPC purge server (Python's
// xmlrpc.server). For each dispense: the command the machine received, the
// levels read back from the files by python3-dbfread, and the three
// parameters the server received with their types. A purge server that is
// down, answers a fault, answers 0 or answers late never changes the
// dispense result.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "dispense_fixture.h"
#include "purge_server.h"

namespace {

using qtest::OptionsWith;
using qtest::PurgeAnswer;
using qtest::PurgeCall;
using qtest::PurgeServer;
using qtest::SplitConfig;
using qtest::TankOf;

const char kFailedLine[] =
    "\nslave::UpdateDspPurgeServerAfterDispensing: DspPurgeClient.execute FAILED!!! \n";

class DispenseIntegration : public qtest::DispenseEnv {
 protected:
  // Dispenser 1: tanks 1..8 with colourants 10..80 at 900 of 1000; tank 7
  // draws from cistern 1 (900 of 5000), tank 8 from cistern 2.
  void Build(const std::string& hide_id = "ZARVO", const std::vector<int>& options = {}) {
    AddDispenser(hide_id, OptionsWith(options), SplitConfig(300, 5));
    std::vector<qtest::TankRow> rows;
    for (int t = 1; t <= 8; ++t) {
      rows.push_back(TankOf(t, 10 * t, 900.0, 10.0, 1000.0, t == 7 ? 1 : t == 8 ? 2 : 0));
    }
    AddTanks(rows);
    AddCistern(1, 1, 5000.0, 900.0);
    AddCistern(2, 1, 5000.0, 900.0);
    AddColorant(10, "RED", 1250.0);
    AddColorant(70, "OX1", 500.0);
  }

  static void Aim(slave& s, const PurgeServer& server) {
    snprintf(s.m_PurgeSrvHost, sizeof s.m_PurgeSrvHost, "%s", "127.0.0.1");
    s.m_PurgeSrvPort = server.port();
    s.m_PurgeSrvOff = 0;
  }

  static int Dispense(slave& s, const std::string& text, double f, double u, int w, int upd,
                      int g2 = 0, int g0 = 0) {
    std::string frm = text;
    return s.Dispense(&frm[0], f, u, w, upd, g2, g0);
  }

  std::map<int, double> FullExcept(const std::map<int, double>& changes) {
    std::map<int, double> levels;
    for (int t = 1; t <= 8; ++t) levels[t] = 900.0;
    for (const auto& c : changes) levels[c.first] = c.second;
    return levels;
  }

  // Runs the standard dispense against a server answering `answer` and
  // checks everything that must not depend on the answer.
  void StandardDispense(PurgeServer& server, bool serverUp) {
    slave s(1);
    Aim(s, server);
    s.SetLastDosedFormulaRecordMode(1);
    trace_.clear();
    EXPECT_EQ(Dispense(s, "(10:12.500)(70:0.800)", 1.0, 1.0, 0, 1), 1);
    EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:12.500)(7:0.800)"}));
    EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 887.5}, {7, 899.2}}));
    EXPECT_EQ(CisternLevelsOnDisk(), (std::map<long, double>{{1, 899.2}, {2, 900.0}}));
    ASSERT_NE(s.LastDosedFormula(), nullptr);
    EXPECT_STREQ(s.LastDosedFormula(), "(1:12.500)(7:0.800)");
    s.ClearLastDosedFormula();
    if (serverUp) {
      std::vector<PurgeCall> calls = server.Calls();
      ASSERT_EQ(calls.size(), 1u);
      EXPECT_EQ(calls[0].method, "UpdateAfterDispensing");
      EXPECT_EQ(calls[0].params,
                (std::vector<std::string>{"int:1", "str:'(1:12.500)(7:0.800)'", "bool:False"}));
    }
  }
};

TEST_F(DispenseIntegration, FormulaReachesMachineTablesAndServer) {
  Build();
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  StandardDispense(server, true);
  EXPECT_EQ(qtest::CountOf(trace_.messages(), "\n--> RETURNED: 1"), 1) << trace_.text();
}

TEST_F(DispenseIntegration, ServerDownLeavesTheResultUnchanged) {
  Build();
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  server.Stop();
  StandardDispense(server, false);
  EXPECT_EQ(qtest::CountOf(trace_.messages(), kFailedLine), 1) << trace_.text();
}

TEST_F(DispenseIntegration, ServerFaultLeavesTheResultUnchanged) {
  Build();
  PurgeServer server(PurgeAnswer::kFault);
  ASSERT_TRUE(server.ok());
  StandardDispense(server, true);
}

TEST_F(DispenseIntegration, ServerAnsweringZeroLeavesTheResultUnchanged) {
  Build();
  PurgeServer server(PurgeAnswer::kZero);
  ASSERT_TRUE(server.ok());
  StandardDispense(server, true);
  EXPECT_EQ(qtest::CountOf(trace_.messages(), "\n--> RETURNED: 0"), 1) << trace_.text();
}

TEST_F(DispenseIntegration, SlowServerLeavesTheResultUnchanged) {
  Build();
  PurgeServer server(PurgeAnswer::kDelayed);
  ASSERT_TRUE(server.ok());
  StandardDispense(server, true);
}

TEST_F(DispenseIntegration, SwitchedOffServerIsNotContacted) {
  Build();
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(1);
  Aim(s, server);
  s.m_PurgeSrvOff = 1;
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 1), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:12.500)"}));
  EXPECT_TRUE(server.Records().empty());
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 887.5}}));
}

TEST_F(DispenseIntegration, WeightsAndFactorsEndToEnd) {
  Build();
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(1);
  Aim(s, server);
  EXPECT_EQ(Dispense(s, "(10:100.000)(70:10.000)", 2.0, 0.75, 1, 1), 1);
  // 100 g / 1.25 = 80 cc and 10 g / 0.5 = 20 cc, times 1.5.
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:120.000)(7:30.000)"}));
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 780.0}, {7, 870.0}}));
  EXPECT_EQ(CisternLevelsOnDisk(), (std::map<long, double>{{1, 870.0}, {2, 900.0}}));
  std::vector<PurgeCall> calls = server.Calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].params,
            (std::vector<std::string>{"int:1", "str:'(1:120.000)(7:30.000)'", "bool:False"}));
}

TEST_F(DispenseIntegration, TwoPassDispenseReportsBothSections) {
  Build("ZARVO", {7});
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(1);
  Aim(s, server);
  EXPECT_EQ(Dispense(s, "(30:40.000)(50:5.000)(80:5.000)", 1.0, 1.0, 0, 1), 1);
  EXPECT_EQ(CommandsOf(s),
            (std::vector<std::string>{"/D(3:20.000);(3:20.000)(5:5.000)(8:5.000)"}));
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{3, 860.0}, {5, 895.0}, {8, 895.0}}));
  EXPECT_EQ(CisternLevelsOnDisk(), (std::map<long, double>{{1, 900.0}, {2, 895.0}}));
  std::vector<PurgeCall> calls = server.Calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].params,
            (std::vector<std::string>{"int:1", "str:'(3:20.000);(3:20.000)(5:5.000)(8:5.000)'",
                                      "bool:False"}));
}

TEST_F(DispenseIntegration, StopperCommandsAreNotReported) {
  Build("ZARVO", {3});
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(1);
  Aim(s, server);
  EXPECT_EQ(Dispense(s, "(10:12.500)", 1.0, 1.0, 0, 1, 1, 1), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/G2", "/D(1:12.500)", "/G0"}));
  EXPECT_EQ(server.Calls().size(), 1u);
  EXPECT_EQ(server.Connections(), 1);
}

TEST_F(DispenseIntegration, RefusedDispenseLowersLevelsAndReportsNothing) {
  Build();
  SimRules("/D* 4\n");
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(1);
  Aim(s, server);
  s.SetLastDosedFormulaRecordMode(1);
  EXPECT_EQ(Dispense(s, "(10:12.500)(70:0.800)", 1.0, 1.0, 0, 1), 0);
  EXPECT_EQ(s.m_LastError, 4);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:12.500)(7:0.800)"}));
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 887.5}, {7, 899.2}}));
  EXPECT_EQ(CisternLevelsOnDisk(), (std::map<long, double>{{1, 899.2}, {2, 900.0}}));
  EXPECT_TRUE(server.Records().empty());
  EXPECT_EQ(s.LastDosedFormula(), nullptr);
}

TEST_F(DispenseIntegration, SuccessiveDispensesAccumulate) {
  Build();
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(1);
  Aim(s, server);
  EXPECT_EQ(Dispense(s, "(70:100.000)", 1.0, 1.0, 0, 1), 1);
  EXPECT_EQ(Dispense(s, "(70:50.000)(10:1.000)", 1.0, 1.0, 0, 1), 1);
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 899.0}, {7, 750.0}}));
  EXPECT_EQ(CisternLevelsOnDisk(), (std::map<long, double>{{1, 750.0}, {2, 900.0}}));
  EXPECT_EQ(server.Connections(), 2);
  std::vector<PurgeCall> calls = server.Calls();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0].params[1], "str:'(7:100.000)'");
  EXPECT_EQ(calls[1].params[1], "str:'(7:50.000)(1:1.000)'");
}

TEST_F(DispenseIntegration, CircuitGroupsEndToEnd) {
  Build();
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(1);
  Aim(s, server);
  s.m_PurgeSrvFlag = 1;
  s.SetLastDosedFormulaRecordMode(2);
  char frm[] = "(1:1.000)(7:2.000)(8:3.000)|(2:9.000)";
  EXPECT_EQ(s.DispenseByCircuit(frm, 2, 0, 0), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(1:1.000)(7:2.000)", "/D(8:3.000)"}));
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 899.0}, {7, 898.0}, {8, 897.0}}));
  EXPECT_EQ(CisternLevelsOnDisk(), (std::map<long, double>{{1, 898.0}, {2, 897.0}}));
  std::vector<PurgeCall> calls = server.Calls();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0].params,
            (std::vector<std::string>{"int:1", "str:'(1:1.000)(7:2.000)'", "bool:True"}));
  EXPECT_EQ(calls[1].params, (std::vector<std::string>{"int:1", "str:'(8:3.000)'", "bool:True"}));
  ASSERT_NE(s.LastDosedFormula(), nullptr);
  EXPECT_STREQ(s.LastDosedFormula(), "(1:1.000)(7:2.000)(8:3.000)");
  s.ClearLastDosedFormula();
}

TEST_F(DispenseIntegration, CircuitGroupsWithServerDown) {
  Build();
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  server.Stop();
  slave s(1);
  Aim(s, server);
  trace_.clear();
  EXPECT_EQ(s.DispenseByCircuit(&std::string("(1:1.000)(2:2.000)")[0], 1, 0, 0), 1);
  EXPECT_EQ(CommandsOf(s).size(), 2u);
  EXPECT_EQ(qtest::CountOf(trace_.messages(), kFailedLine), 2) << trace_.text();
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({{1, 899.0}, {2, 898.0}}));
}

TEST_F(DispenseIntegration, CircuitGroupsWithSlowServer) {
  Build();
  PurgeServer server(PurgeAnswer::kDelayed);
  ASSERT_TRUE(server.ok());
  slave s(1);
  Aim(s, server);
  EXPECT_EQ(s.DispenseByCircuit(&std::string("(1:1.000)")[0], 1, 0, 0), 1);
  EXPECT_EQ(server.Calls().size(), 1u);
}

TEST_F(DispenseIntegration, PositionDispenseOnTypeNineEndToEnd) {
  Build("T7R");
  PurgeServer server(PurgeAnswer::kFault);
  ASSERT_TRUE(server.ok());
  slave s(1);
  Aim(s, server);
  EXPECT_EQ(s.DispenseByCircuit(&std::string("(1:1.000)(2:2.000)")[0], 5, 0, 0), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(DISPBYPOS)(1:1.000)(2:2.000)"}));
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({}));
  std::vector<PurgeCall> calls = server.Calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].params,
            (std::vector<std::string>{"int:1", "str:'(1:1.000)(2:2.000)'", "bool:False"}));
}

TEST_F(DispenseIntegration, ColourantCodeDispenseOnTypeNineTellsNoServer) {
  Build("T7R");
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(1);
  Aim(s, server);
  EXPECT_EQ(Dispense(s, "(10:12.500)(70:0.800)", 1.0, 1.0, 0, 1), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(RED:12.500)(OX1:0.800)"}));
  EXPECT_EQ(TankLevelsOnDisk(), FullExcept({}));
  EXPECT_TRUE(server.Records().empty());
}

}  // namespace
