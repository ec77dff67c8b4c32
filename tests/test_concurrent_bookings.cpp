// Two processes on one data directory: a point-of-sale application that
// holds a slave for hours, and the technician's tool beside it. Taking
// turns, each booking reads what the other wrote (levels, fills, a cistern
// appended by a switch); at the same time, no booking is lost. Final
// levels and record counts are exactly the arithmetic.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "dispense_fixture.h"
#include "fault_env.h"

namespace {

using qtest::SecondaryOf;
using qtest::TankOf;

const std::string kTool = std::string(QSLAVE_BINARY_DIR) + "/tools/qslave/qslave";

class ConcurrentBookings : public qtest::DispenseEnv {
 protected:
  // Dispenser 1: colourant 3 in tank 5 (1200 of 5000), colourant 1 in tank
  // 1 (3000 of 5000), colourant 7 in the linked pair 2 (master, cistern 1)
  // and 3 (secondary).
  void SetUp() override {
    DispenseEnv::SetUp();
    AddDispenser();
    AddTanks({TankOf(1, 1, 3000.0, 10.0, 5000.0), TankOf(2, 7, 2000.0, 10.0, 4000.0, 1),
              SecondaryOf(3, 7, 1), TankOf(5, 3, 1200.0, 10.0, 5000.0)});
    AddCistern(1, 2, 4000.0, 2000.0, 10.0);
  }

  // The tool, as a technician runs it; answers its exit status.
  int Tool(const std::vector<std::string>& args) {
    std::string command = "'" + kTool + "' --data '" + dir_.path() + "'";
    for (const std::string& a : args) command += " '" + a + "'";
    std::string out;
    const int status = qtest::RunCommand(command + " 2>&1", &out);
    EXPECT_EQ(status, 0) << command << "\n" << out;
    return status;
  }

  // Runs body in a child process (it constructs its own slave); answers
  // its exit status.
  template <typename Body>
  static pid_t Spawn(Body body) {
    const pid_t pid = fork();
    if (pid == 0) {
      TarvoTraceSetHook([](const char*) {});
      _exit(body() ? 0 : 1);
    }
    return pid;
  }

  static int Wait(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  static double Level(slave& s, int tank) {
    double cur = -1;
    EXPECT_EQ(1, s.TankQnts(tank, &cur, nullptr, nullptr)) << "tank " << tank;
    return cur;
  }

  static bool Dispense(slave& s, const char* text) {
    char frm[64];
    snprintf(frm, sizeof frm, "%s", text);
    return s.Dispense(frm, 1.0, 1.0, 0, 1, 0, 0) == 1 && s.LevelsNotBooked() == 0;
  }

  // Colourant 7's linked pair becomes two independent tanks: a cistern is
  // appended for tank 3.
  static bool SwitchToIndependent() {
    slave s(1);
    s.m_PurgeSrvOff = 1;
    ColourantInDispenser c(&s);
    return c.Read(7) && c.SwitchToMultiTank() && c.Write();
  }
};

// The application holds its slave; the tool dispenses, fills, and another
// process switches a linked pair, appending a cistern; the application's
// next bookings start from what they left.
TEST_F(ConcurrentBookings, ApplicationAndToolTakingTurns) {
  slave app(1);
  ASSERT_EQ(app.m_DispId, 1);
  app.m_PurgeSrvOff = 1;
  ASSERT_TRUE(Dispense(app, "(3:1.000)"));
  EXPECT_EQ(1199.0, Level(app, 5));

  ASSERT_EQ(0, Tool({"dispense", "(3:50.000)"}));
  ASSERT_TRUE(Dispense(app, "(3:1.000)"));
  EXPECT_EQ(1148.0, Level(app, 5)) << "the tool's dispense is read, not a cached copy";

  ASSERT_EQ(0, Tool({"fill", "--circuit", "5", "--qty", "100"}));
  ASSERT_TRUE(Dispense(app, "(3:1.000)"));
  EXPECT_EQ(1247.0, Level(app, 5)) << "the tool's fill is kept";

  ASSERT_EQ(0, Wait(Spawn(SwitchToIndependent)));
  // Tank 3 now has a cistern of its own, appended by the other process.
  ASSERT_TRUE(Dispense(app, "(7:10.000)"));
  ASSERT_TRUE(Dispense(app, "(7:10.000)"));
  app.CloseDatabases();

  std::vector<std::string> rows;
  EXPECT_EQ(2, qtest::DbfReadAll(tables_.FileOf(QDB_SCHEMA_CISTERN), {"ID", "USERS", "CUR_Q"},
                                 &rows));
  const std::map<int, double> levels = TankLevelsOnDisk();
  EXPECT_EQ(1247.0, levels.at(5));
  // Colourant 7 took 20 from its two tanks, each with its own reservoir:
  // the sum of the two went down by 20 and each tank equals its cistern.
  EXPECT_EQ(2000.0 * 2 - 20.0, levels.at(2) + levels.at(3));
  const std::map<long, double> cisterns = CisternLevelsOnDisk();
  ASSERT_EQ(2u, cisterns.size());
  EXPECT_EQ(levels.at(2) + levels.at(3), cisterns.at(1) + cisterns.at(2));
}

// Another tool rewrites the tank and cistern tables with the same records
// and their fields in the reverse order (and replaces the files, as a pack
// does). The application's next bookings read and write each quantity in
// its own field of the new layout, not where the field was before.
TEST_F(ConcurrentBookings, ApplicationFollowsATableRewrittenWithAnotherLayout) {
  slave app(1);
  ASSERT_EQ(app.m_DispId, 1);
  app.m_PurgeSrvOff = 1;
  ASSERT_TRUE(Dispense(app, "(3:1.000)(7:10.000)"));
  EXPECT_EQ(1199.0, Level(app, 5));

  const char kReverse[] = R"PY(
import os, struct, sys
def reverse_fields(path):
    data = open(path, 'rb').read()
    count, header_len, record_len = struct.unpack('<IHH', data[4:12])
    fields, pos = [], 32
    while data[pos] != 0x0D:
        fields.append(data[pos:pos + 32])
        pos += 32
    spans, at = [], 1
    for f in fields:
        spans.append((at, at + f[16]))
        at += f[16]
    order = list(reversed(range(len(fields))))
    head = data[:32] + b''.join(fields[i] for i in order) + data[pos:header_len]
    body = b''
    for r in range(count):
        rec = data[header_len + r * record_len:header_len + (r + 1) * record_len]
        body += rec[:1] + b''.join(rec[spans[i][0]:spans[i][1]] for i in order)
    tmp = path + '.new'
    open(tmp, 'wb').write(head + body + data[header_len + count * record_len:])
    os.replace(tmp, path)
for p in sys.argv[1:]:
    reverse_fields(p)
)PY";
  ASSERT_EQ(0, qtest::RunPython(std::string(kReverse) + "\nreverse_fields(" +
                                    qtest::PyQuote(tables_.FileOf(QDB_SCHEMA_TANKS)) +
                                    ")\nreverse_fields(" +
                                    qtest::PyQuote(tables_.FileOf(QDB_SCHEMA_CISTERN)) + ")\n"));

  ASSERT_TRUE(Dispense(app, "(3:1.000)(7:10.000)"));
  EXPECT_EQ(1198.0, Level(app, 5));
  app.CloseDatabases();
  const std::map<int, double> levels = TankLevelsOnDisk();
  EXPECT_EQ(1198.0, levels.at(5));
  EXPECT_EQ(3000.0, levels.at(1));
  EXPECT_EQ(2000.0 - 20.0, levels.at(2));
  EXPECT_EQ(2000.0 - 20.0, CisternLevelsOnDisk().at(1));
  // Reserves and maxima are where they were: nothing was written into them.
  std::vector<std::string> rows;
  ASSERT_EQ(4, qtest::DbfReadAll(tables_.FileOf(QDB_SCHEMA_TANKS), {"TANK", "RES_Q", "MAX_Q"},
                                 &rows));
  EXPECT_EQ((std::vector<std::string>{"1 10.0 5000.0", "2 10.0 4000.0", "3 -1.0 -1.0",
                                      "5 10.0 5000.0"}),
            rows);
  ASSERT_EQ(1, qtest::DbfReadAll(tables_.FileOf(QDB_SCHEMA_CISTERN), {"ID", "RES_Q", "MAX_Q"},
                                 &rows));
  EXPECT_EQ(std::vector<std::string>{"1 10.0 4000.0"}, rows);
}

// Two processes book at the same time, 500 dispenses each, while a third
// fills tank 5 in steps and switches the linked pair (appending a
// cistern): nothing is lost, nothing counted twice.
TEST_F(ConcurrentBookings, TwoProcessesFiveHundredBookingsEach) {
  const int kEach = 500;
  auto dispenser = [kEach] {
    slave s(1);
    if (s.m_DispId != 1) return false;
    s.m_PurgeSrvOff = 1;
    for (int i = 0; i < kEach; ++i) {
      if (!Dispense(s, "(3:1.000)(1:2.000)")) return false;
    }
    return true;
  };
  const pid_t a = Spawn(dispenser);
  const pid_t b = Spawn(dispenser);
  const pid_t c = Spawn([] {
    slave s(1);
    if (s.m_DispId != 1) return false;
    s.m_PurgeSrvOff = 1;
    for (int i = 0; i < 20; ++i) {
      if (!s.change_level(5, 50.0, 1, 0)) return false;
      usleep(2000);
    }
    return true;
  });
  const pid_t d = Spawn([] {
    usleep(20000);
    return SwitchToIndependent();
  });
  EXPECT_EQ(0, Wait(a));
  EXPECT_EQ(0, Wait(b));
  EXPECT_EQ(0, Wait(c));
  EXPECT_EQ(0, Wait(d));

  const std::map<int, double> levels = TankLevelsOnDisk();
  EXPECT_EQ(1200.0 - 2 * kEach * 1.0 + 20 * 50.0, levels.at(5));
  EXPECT_EQ(3000.0 - 2 * kEach * 2.0, levels.at(1));
  std::vector<std::string> rows;
  EXPECT_EQ(4, qtest::DbfReadAll(tables_.FileOf(QDB_SCHEMA_TANKS), {"TANK"}, &rows));
  EXPECT_EQ(2, qtest::DbfReadAll(tables_.FileOf(QDB_SCHEMA_CISTERN), {"ID"}, &rows));
  slave s(1);
  EXPECT_EQ(1200.0 - 2 * kEach * 1.0 + 20 * 50.0, Level(s, 5));
}

}  // namespace
