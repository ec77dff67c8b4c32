// Durability of the level bookkeeping: a process killed in the middle of a
// long run of dispenses leaves tables that open cleanly and hold every level
// update it reported done; a read-only tank table and a full file system
// make updates fail cleanly without leaving a half-written file behind.
//
// The killed process is a child of the test (fork); after each dispense it
// reports on a pipe how many it has completed and the levels it then reads.
// The parent kills it with SIGKILL at a moment that has nothing to do with
// the child's writes, then checks the files with the library and with
// python3-dbfread.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "dispense_fixture.h"
#include "fault_env.h"

namespace {

using qtest::SecondaryOf;
using qtest::TankOf;

// Every dispense or batch a child makes is at most this many; the parent
// kills it long before.
const int kMaxRounds = 200000;
// Reports the parent waits for before it picks its moment.
const int kReportsBeforeKill = 20;
const double kTolerance = 0.001;
// The child's pause after each report (not a measurement: it only shapes
// where the kill is likely to land).
const unsigned kIdleMicroseconds = 500;

std::string LevRe(const std::string& what) {
  return "\\n" + qtest::SourceRe("slv_lev") + " \\(\\d+\\) " + what;
}

void Discard(const char*) {}

// One level record a child run moves: a tank's (by TANK) or a cistern's (by
// ID), its level before the run and what each step takes from it.
struct Level {
  char table;  // 'T' tank, 'C' cistern
  long id;
  double start;
  double share;
};

// What a child run left behind: the number N of its last complete report
// and the levels that report gave, one per Level, in order.
struct ChildRun {
  int completed = 0;
  std::vector<double> reportedLevels;
  std::string failure;  // why the run is unusable, if it is
};

// One unit of work of the child: a dispense or a batch of level updates.
// Returns false when the library answered something else than success.
using Step = std::function<bool(slave&)>;

class Durability : public qtest::DispenseEnv {
 protected:
  void TearDown() override {
    Qdbase::FlushSet(1);
    DispenseEnv::TearDown();
  }

  // Forks a child that makes `step` over and over on dispenser 1 and, after
  // each success, writes "<n> <level>..." to a pipe: for each Level, the
  // level start - n*share that the n steps must have left. The child reads
  // nothing back between a step and its report: a read would move the
  // tables to other records and so write out whatever a step had left
  // waiting in memory, hiding a step that returned before its writes
  // reached the file. The parent waits for kReportsBeforeKill reports, lets
  // a random moment pass, kills the child and reads what it had reported.
  // No slave may be alive in the parent.
  ChildRun RunAndKill(const Step& step, const std::vector<Level>& levels, unsigned seed) {
    ChildRun run;
    int fds[2];
    if (pipe(fds) != 0) {
      run.failure = "pipe failed";
      return run;
    }
    fflush(nullptr);
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0) {
      run.failure = "fork failed";
      return run;
    }
    if (pid == 0) {
      close(fds[0]);
      ChildBody(fds[1], parent, step, levels);  // never returns
    }
    close(fds[1]);

    std::mt19937 random(seed);
    std::string received;
    char buf[4096];
    int lines = 0;
    bool killed = false;
    while (true) {
      if (!killed && lines >= kReportsBeforeKill) {
        // A moment of the parent's choosing, unrelated to where the child
        // is in its writes: anything from at once to a few steps on.
        const unsigned pause = std::uniform_int_distribution<unsigned>(0, 4000)(random);
        if (pause > 0) usleep(pause);
        kill(pid, SIGKILL);
        killed = true;
      }
      const ssize_t n = read(fds[0], buf, sizeof buf);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      for (ssize_t i = 0; i < n; ++i) lines += buf[i] == '\n' ? 1 : 0;
      received.append(buf, static_cast<size_t>(n));
    }
    close(fds[0]);
    if (!killed) kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    if (!killed) run.failure = "the child stopped before it was killed";
    if (WIFEXITED(status)) {
      run.failure = "the child exited with status " + std::to_string(WEXITSTATUS(status)) +
                    " instead of being killed";
    } else if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) {
      run.failure = "the child ended otherwise than by SIGKILL";
    }

    // Only complete lines count: the kill may cut the last one short.
    std::istringstream in(received.substr(0, received.rfind('\n') + 1));
    std::string line;
    while (std::getline(in, line)) {
      std::istringstream fields(line);
      int n = 0;
      fields >> n;
      if (n != run.completed + 1) {
        run.failure = "report out of sequence: " + line;
        break;
      }
      run.completed = n;
      run.reportedLevels.clear();
      double level = 0.0;
      while (fields >> level) run.reportedLevels.push_back(level);
    }
    return run;
  }

  // Checks that the tables open and read cleanly everywhere and that each
  // record holds every update reported done: at most the level of the last
  // report, and at least that level less one share (one more step may have
  // landed before its report went out).
  void CheckAfterKill(const ChildRun& run, const std::vector<Level>& levels, int tankRecords,
                      int cisternRecords) {
    ASSERT_EQ(run.failure, "");
    ASSERT_GE(run.completed, kReportsBeforeKill);
    ASSERT_EQ(run.reportedLevels.size(), levels.size());

    // The library opens the tables first, as the next process of a shop
    // does: a booking the kill left unfinished (its journal entry synced,
    // its table writes not all made) is completed then. Until a library
    // process has opened them, another program can see such a booking in
    // part.
    slave s(1);
    ASSERT_EQ(s.m_DispId, 1);

    // An independent reader reads every record of the three tables.
    std::vector<std::string> rows;
    EXPECT_EQ(qtest::DbfReadAll(tables_.FileOf(QDB_SCHEMA_DISPS), {"ID"}, &rows), 1)
        << (rows.empty() ? "" : rows[0]);
    EXPECT_EQ(qtest::DbfReadAll(tables_.FileOf(QDB_SCHEMA_TANKS), {"TANK", "CUR_Q"}, &rows),
              tankRecords)
        << (rows.empty() ? "" : rows[0]);
    EXPECT_EQ(qtest::DbfReadAll(tables_.FileOf(QDB_SCHEMA_CISTERN), {"ID", "CUR_Q"}, &rows),
              cisternRecords)
        << (rows.empty() ? "" : rows[0]);

    const std::map<int, double> tanks = TankLevelsOnDisk();
    const std::map<long, double> cisterns = CisternLevelsOnDisk();
    for (size_t i = 0; i < levels.size(); ++i) {
      const Level& l = levels[i];
      const std::string what = std::string(l.table == 'T' ? "tank " : "cistern ") +
                               std::to_string(l.id) + " (N=" + std::to_string(run.completed) +
                               ")";
      const bool known = l.table == 'T' ? tanks.count(static_cast<int>(l.id)) > 0
                                        : cisterns.count(l.id) > 0;
      ASSERT_TRUE(known) << what;
      const double onDisk =
          l.table == 'T' ? tanks.at(static_cast<int>(l.id)) : cisterns.at(l.id);
      const double reported = run.reportedLevels[i];
      EXPECT_LE(onDisk, reported + kTolerance) << what << " lost an update reported done";
      EXPECT_GE(onDisk, reported - l.share - kTolerance)
          << what << " holds more than one unreported update";
    }

    // The library reads the same levels.
    for (const Level& l : levels) {
      if (l.table != 'T') continue;
      double cur = 0.0, res = 0.0, max = 0.0;
      EXPECT_EQ(s.TankQnts(static_cast<int>(l.id), &cur, &res, &max), 1) << "tank " << l.id;
      EXPECT_EQ(cur, tanks.at(static_cast<int>(l.id))) << "tank " << l.id;
    }
  }

 private:
  [[noreturn]] static void ChildBody(int fd, pid_t parent, const Step& step,
                                     const std::vector<Level>& levels) {
    // The child must not outlive a test run that stops.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(20);
    // Nothing is collected in the child: the run is long.
    TarvoTraceSetHook(Discard);
    slave::Message = Discard;
    slave s(1);
    if (s.m_DispId != 1) _exit(21);
    s.m_PurgeSrvOff = 1;
    for (int n = 1; n <= kMaxRounds; ++n) {
      if (!step(s)) _exit(22);
      std::string line = std::to_string(n);
      for (const Level& l : levels) {
        char text[64];
        snprintf(text, sizeof text, " %.3f", l.start - n * l.share);
        line += text;
      }
      line += "\n";
      size_t done = 0;
      while (done < line.size()) {
        const ssize_t w = write(fd, line.data() + done, line.size() - done);
        if (w <= 0) _exit(24);
        done += static_cast<size_t>(w);
      }
      // A shop idles between dispenses: much of the time a kill finds the
      // child there, after a report, when whatever the step left unwritten
      // would be lost.
      usleep(kIdleMicroseconds);
    }
    _exit(0);
  }
};

unsigned Seed() { return std::random_device()(); }

// A dispense of three colourants in single tanks, levels lowered each time;
// a fourth tank is not in the formula and must not move.
TEST_F(Durability, KilledDuringDispensesKeepsEveryReportedLevelUpdate) {
  AddDispenser();
  AddTanks({TankOf(1, 10, 5000000.0, 10.0, 9000000.0), TankOf(2, 20, 4000000.0, 10.0, 9000000.0),
            TankOf(3, 30, 3000000.0, 10.0, 9000000.0), TankOf(4, 40, 2000000.0, 10.0, 9000000.0)});
  const std::vector<Level> levels = {{'T', 1, 5000000.0, 1.25},
                                     {'T', 2, 4000000.0, 0.5},
                                     {'T', 3, 3000000.0, 2.125},
                                     {'T', 4, 2000000.0, 0.0}};
  const unsigned seed = Seed();
  SCOPED_TRACE("seed " + std::to_string(seed));

  ChildRun run = RunAndKill(
      [](slave& s) {
        char frm[] = "(10:1.250)(20:0.500)(30:2.125)";
        return s.Dispense(frm, 1.0, 1.0, 0, 1, 0, 0) == 1;
      },
      levels, seed);
  CheckAfterKill(run, levels, 4, 0);
}

// Batches of level updates (UpdateLevels with a factor) on single tanks and
// on a linked pair whose master draws from a cistern.
TEST_F(Durability, KilledDuringUpdateLevelsBatchesKeepsEveryReportedUpdate) {
  AddDispenser();
  AddTanks({TankOf(1, 10, 5000000.0, 10.0, 9000000.0), TankOf(2, 20, 4000000.0, 10.0, 9000000.0),
            TankOf(5, 50, 3000000.0, 10.0, 9000000.0, 1), SecondaryOf(6, 50, 1)});
  AddCistern(1, 2, 9000000.0, 3000000.0);
  // Factor 2: tank 1 takes 2 x 0.75, tank 2 2 x 1.5, and the master 5 (with
  // its cistern) takes its own 2 x 0.25 and its secondary's 2 x 0.5.
  const std::vector<Level> levels = {{'T', 1, 5000000.0, 1.5},
                                     {'T', 2, 4000000.0, 3.0},
                                     {'T', 5, 3000000.0, 1.5},
                                     {'C', 1, 3000000.0, 1.5}};
  const unsigned seed = Seed();
  SCOPED_TRACE("seed " + std::to_string(seed));

  ChildRun run = RunAndKill(
      [](slave& s) {
        int circuits[] = {1, 2, 5, 6};
        double qnts[] = {0.75, 1.5, 0.25, 0.5};
        return s.UpdateLevels(4, circuits, qnts, 2.0, 0) == 1;
      },
      levels, seed);
  CheckAfterKill(run, levels, 4, 1);
}

// A thousand kills at random moments of a dispensing loop, from its start
// (the slave still opening its tables) to any point of its bookings. After
// each kill the tables open cleanly, every dispense the child reported
// done is on disk, at most one more that it had no time to report, and
// tank, cistern and the formula's second tank moved together.
TEST_F(Durability, AThousandKillsLoseNoReportedDispense) {
  AddDispenser();
  AddTanks({TankOf(1, 10, 5000000.0, 10.0, 9000000.0, 1), TankOf(2, 20, 4000000.0, 10.0,
                                                                  9000000.0)});
  AddCistern(1, 1, 9000000.0, 5000000.0);
  const unsigned seed = Seed();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const int kKills = 1000;
  const double share1 = 1.25, share2 = 0.5;
  double reported1 = 5000000.0, reported2 = 4000000.0;
  long reports = 0, unreportedLanded = 0;
  // The child: opens the tables and dispenses, reporting each dispense done.
  const auto start = [](int fds[2]) {
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid != 0) {
      close(fds[1]);
      return pid;
    }
    close(fds[0]);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    TarvoTraceSetHook(Discard);
    slave::Message = Discard;
    slave s(1);
    if (s.m_DispId != 1) _exit(21);
    s.m_PurgeSrvOff = 1;
    for (int n = 0; n < kMaxRounds; ++n) {
      char frm[] = "(10:1.250)(20:0.500)";
      if (s.Dispense(frm, 1.0, 1.0, 0, 1, 0, 0) != 1 || s.LevelsNotBooked()) _exit(22);
      if (write(fds[1], "+", 1) != 1) _exit(24);
    }
    _exit(0);
  };
  // The kills fall within the time a child takes to start and report a few
  // dispenses on this machine and build (a sanitizer build on a busy
  // machine is many times slower), so that they land both before the first
  // report and among the bookings.
  unsigned window = 15000;
  {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    const auto t0 = std::chrono::steady_clock::now();
    const pid_t pid = start(fds);
    ASSERT_GE(pid, 0);
    char got[4];
    size_t have = 0;
    while (have < sizeof got) {
      const ssize_t r = read(fds[0], got + have, sizeof got - have);
      if (r < 0 && errno == EINTR) continue;
      if (r <= 0) break;
      have += static_cast<size_t>(r);
    }
    const auto took = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - t0);
    kill(pid, SIGKILL);
    close(fds[0]);
    waitpid(pid, nullptr, 0);
    ASSERT_EQ(have, sizeof got) << "the calibrating child reported no dispenses";
    window = std::max(window, static_cast<unsigned>(took.count()));
    // The calibration's dispenses are on disk: they count as reported.
    reported1 -= share1 * static_cast<double>(have);
    reported2 -= share2 * static_cast<double>(have);
    slave v(1);
    double cur1 = 0;
    ASSERT_EQ(1, v.TankQnts(1, &cur1, nullptr, nullptr));
    if (std::fabs(cur1 - (reported1 - share1)) < kTolerance) {
      reported1 -= share1;
      reported2 -= share2;
    }
  }
  for (int k = 0; k < kKills; ++k) {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    const pid_t pid = start(fds);
    ASSERT_GE(pid, 0);
    usleep(std::uniform_int_distribution<unsigned>(0, window)(random));
    kill(pid, SIGKILL);
    char buf[4096];
    long n = 0;
    for (ssize_t got; (got = read(fds[0], buf, sizeof buf)) != 0;) {
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) break;
      n += got;
    }
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "kill " << k << ": the child ended on its own";
    reports += n;
    reported1 -= share1 * static_cast<double>(n);
    reported2 -= share2 * static_cast<double>(n);

    // The next process opens the tables: an unfinished booking is
    // completed, and the levels are those reported, or one more dispense.
    slave v(1);
    ASSERT_EQ(v.m_DispId, 1) << "kill " << k;
    double cur1 = 0, cur2 = 0;
    ASSERT_EQ(1, v.TankQnts(1, &cur1, nullptr, nullptr)) << "kill " << k;
    ASSERT_EQ(1, v.TankQnts(2, &cur2, nullptr, nullptr)) << "kill " << k;
    Qdbase* cist = nullptr;
    _slv_dbhandles(nullptr, nullptr, &cist);
    double cistern = 0;
    ASSERT_TRUE(cist != nullptr && cist->SelectIdx(1) && cist->Seek("    1") == 1 &&
                cist->ReadDouble("CUR_Q", &cistern));
    const bool asReported = std::fabs(cur1 - reported1) < kTolerance &&
                            std::fabs(cur2 - reported2) < kTolerance;
    const bool oneMore = std::fabs(cur1 - (reported1 - share1)) < kTolerance &&
                         std::fabs(cur2 - (reported2 - share2)) < kTolerance;
    ASSERT_TRUE(asReported || oneMore)
        << "kill " << k << ": tank 1 " << cur1 << " (reported " << reported1 << "), tank 2 "
        << cur2 << " (reported " << reported2 << ")";
    ASSERT_NEAR(cur1, cistern, kTolerance) << "kill " << k << ": tank and cistern apart";
    if (oneMore) {
      ++unreportedLanded;
      reported1 = cur1;
      reported2 = cur2;
    }
  }
  // An independent reader sees the same.
  const std::map<int, double> tanks = TankLevelsOnDisk();
  EXPECT_NEAR(reported1, tanks.at(1), kTolerance);
  EXPECT_NEAR(reported2, tanks.at(2), kTolerance);
  EXPECT_NEAR(reported1, CisternLevelsOnDisk().at(1), kTolerance);
  // The kills fell both between reported dispenses and inside bookings.
  EXPECT_GT(reports, 0);
  EXPECT_GT(unreportedLanded, 0);
  printf("%d kills, %ld dispenses reported, %ld more landed unreported\n", kKills, reports,
         unreportedLanded);
}

// A dispense that draws on a single tank fed by a cistern and on a linked
// pair whose master has a cistern of its own: tank and cistern records
// both hold every reported update.
TEST_F(Durability, KilledDuringDispensesFromCisternsKeepsTankAndCisternUpdates) {
  AddDispenser();
  AddTanks({TankOf(1, 10, 5000000.0, 10.0, 9000000.0, 1),
            TankOf(3, 30, 4000000.0, 10.0, 9000000.0, 2), SecondaryOf(4, 30, 2),
            TankOf(7, 70, 3000000.0, 10.0, 9000000.0)});
  AddCistern(1, 1, 9000000.0, 5000000.0);
  AddCistern(2, 2, 9000000.0, 4000000.0);
  const std::vector<Level> levels = {{'T', 1, 5000000.0, 1.25}, {'T', 3, 4000000.0, 2.0},
                                     {'T', 7, 3000000.0, 0.5},  {'C', 1, 5000000.0, 1.25},
                                     {'C', 2, 4000000.0, 2.0}};
  const unsigned seed = Seed();
  SCOPED_TRACE("seed " + std::to_string(seed));

  ChildRun run = RunAndKill(
      [](slave& s) {
        char frm[] = "(10:1.250)(30:2.000)(70:0.500)";
        return s.Dispense(frm, 1.0, 1.0, 0, 1, 0, 0) == 1;
      },
      levels, seed);
  CheckAfterKill(run, levels, 4, 2);
}

// With the tank table read-only, every level update fails cleanly and the
// dispense still goes out (its levels are booked before the command, and
// its result is the command's); no table file changes by a byte.
TEST_F(Durability, ReadOnlyTankTableFailsLevelUpdatesAndChangesNoFile) {
  AddDispenser();
  AddTanks({TankOf(1, 10, 500.0, 10.0, 1000.0), TankOf(2, 20, 400.0, 10.0, 1000.0, 1)});
  AddCistern(1, 1, 5000.0, 400.0);
  ASSERT_EQ(chmod(tables_.FileOf(QDB_SCHEMA_TANKS).c_str(), 0444), 0);
  const std::vector<QdbSchemaTable> files = {QDB_SCHEMA_DISPS, QDB_SCHEMA_TANKS,
                                             QDB_SCHEMA_CISTERN};
  std::vector<std::string> before;
  for (QdbSchemaTable t : files) before.push_back(qtest::ReadFile(tables_.FileOf(t)));

  {
    slave s(1);
    ASSERT_EQ(s.m_DispId, 1);
    s.m_PurgeSrvOff = 1;
    const std::string failure = LevRe("failure writing in TANKS database");

    trace_.clear();
    EXPECT_EQ(s.change_level(1, -10.0, 1, 0), 0);
    EXPECT_EQ(qtest::CountMatching(trace_.messages(), failure), 1) << trace_.text();

    trace_.clear();
    EXPECT_EQ(s.change_level(2, 350.0, 0, 0), 0);
    EXPECT_EQ(qtest::CountMatching(trace_.messages(), failure), 1) << trace_.text();

    trace_.clear();
    int circuits[] = {1, 2};
    double qnts[] = {1.0, 2.0};
    EXPECT_EQ(s.UpdateLevels(2, circuits, qnts, 1.0, 0), 0);
    EXPECT_EQ(qtest::CountMatching(trace_.messages(), failure), 2) << trace_.text();
    EXPECT_EQ(qtest::CountMatching(trace_.messages(), LevRe("ModifyLevel\\(\\) failure")), 2)
        << trace_.text();

    trace_.clear();
    char frm[] = "(10:1.250)(20:0.500)";
    EXPECT_EQ(s.Dispense(frm, 1.0, 1.0, 0, 1, 0, 0), 1);
    EXPECT_EQ(DispenseCommandsOf(s), (std::vector<std::string>{"/D(1:1.250)(2:0.500)"}));
    EXPECT_EQ(qtest::CountMatching(trace_.messages(), failure), 2) << trace_.text();
    // The dispense went out; the host can tell that its levels did not.
    EXPECT_EQ(s.LevelsNotBooked(), 1);
    char none[] = "";
    EXPECT_EQ(s.Dispense(none, 1.0, 1.0, 0, 1, 0, 0), 0);
    EXPECT_EQ(s.LevelsNotBooked(), 0);

    // Memory follows the file: the library still reads the old levels.
    double cur = 0.0;
    EXPECT_EQ(s.TankQnts(1, &cur, nullptr, nullptr), 1);
    EXPECT_EQ(cur, 500.0);
    EXPECT_EQ(s.TankQnts(2, &cur, nullptr, nullptr), 1);
    EXPECT_EQ(cur, 400.0);
  }
  CloseLibraryTables();
  for (size_t i = 0; i < files.size(); ++i) {
    EXPECT_TRUE(qtest::ReadFile(tables_.FileOf(files[i])) == before[i])
        << tables_.FileOf(files[i]) << " changed";
  }
  EXPECT_EQ(TankLevelsOnDisk(), (std::map<int, double>{{1, 500.0}, {2, 400.0}}));
  EXPECT_EQ(CisternLevelsOnDisk(), (std::map<long, double>{{1, 400.0}}));
}

// A disk without room, for any user: a limit on the size of every file the
// process writes (RLIMIT_FSIZE). Bookings go on while the journal has room;
// the first that does not fit is refused whole, the dispense still goes
// out and says its levels were not booked, and a switch that would append
// a cistern changes nothing. The tables open cleanly and hold exactly the
// bookings that were made.
TEST_F(Durability, FileSizeLimitRefusesBookingsWholeWithoutRoot) {
  AddDispenser();
  AddTanks({TankOf(1, 10, 500.0, 10.0, 1000.0, 1), TankOf(2, 20, 400.0, 10.0, 1000.0),
            TankOf(3, 30, 300.0, 10.0, 1000.0, 2), SecondaryOf(4, 30, 2)});
  AddCistern(1, 1, 1000.0, 500.0);
  AddCistern(2, 2, 1000.0, 300.0);
  // The journal starts before the limit is set; each booking adds an entry.
  {
    slave s(1);
    ASSERT_EQ(1, s.change_level(2, 400.0, 0, 0));
  }
  CloseLibraryTables();
  const long journal = static_cast<long>(qtest::ReadFile(dir_.file("qslave.jnl")).size());
  long largest = journal;
  for (QdbSchemaTable t : {QDB_SCHEMA_DISPS, QDB_SCHEMA_TANKS, QDB_SCHEMA_CISTERN}) {
    largest = std::max(largest, static_cast<long>(qtest::ReadFile(tables_.FileOf(t)).size()));
  }
  int fds[2];
  ASSERT_EQ(0, pipe(fds));
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    TarvoTraceSetHook(Discard);
    signal(SIGXFSZ, SIG_IGN);
    const rlim_t limit = static_cast<rlim_t>(largest + 600);
    struct rlimit r = {limit, limit};
    setrlimit(RLIMIT_FSIZE, &r);
    slave s(1);
    s.m_PurgeSrvOff = 1;
    int booked = 0;
    for (int i = 0; i < 100; ++i) {
      char frm[] = "(10:1.000)(20:2.000)";
      if (s.Dispense(frm, 1.0, 1.0, 0, 1, 0, 0) != 1) _exit(30);
      if (s.LevelsNotBooked()) break;
      ++booked;
    }
    ColourantInDispenser c(&s);
    const int switched = c.Read(30) && c.SwitchToMultiTank() ? 1 : 0;
    dprintf(fds[1], "%d %d\n", booked, switched);
    _exit(0);
  }
  close(fds[1]);
  char buf[64] = "";
  const ssize_t got = read(fds[0], buf, sizeof buf - 1);
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  ASSERT_GT(got, 0);
  int booked = -1, switched = -1;
  ASSERT_EQ(2, sscanf(buf, "%d %d", &booked, &switched));
  EXPECT_GT(booked, 0) << "bookings went on while there was room";
  EXPECT_LT(booked, 100) << "the limit was reached";
  EXPECT_EQ(0, switched);

  const std::map<int, double> tanks = TankLevelsOnDisk();
  EXPECT_EQ(500.0 - booked * 1.0, tanks.at(1));
  EXPECT_EQ(400.0 - booked * 2.0, tanks.at(2));
  const std::map<long, double> cisterns = CisternLevelsOnDisk();
  EXPECT_EQ(2u, cisterns.size()) << "no cistern was appended";
  EXPECT_EQ(500.0 - booked * 1.0, cisterns.at(1));
  slave s(1);
  double cur = 0;
  ASSERT_EQ(1, s.TankQnts(1, &cur, nullptr, nullptr));
  EXPECT_EQ(500.0 - booked * 1.0, cur);
}

// The tables on a small file system of their own, filled to the last byte
// by another file: level updates either land whole or fail cleanly, appends
// and packing that need room fail cleanly, and afterwards every table opens
// in the library and in dbfread with each record holding its old or its new
// values. Once room is made again, packing works.
TEST_F(Durability, FullFileSystemFailsCleanlyAndKeepsTablesReadable) {
  qtest::ScopedTmpfs fs("64k");
  if (!fs.ok()) {
    GTEST_SKIP() << "cannot mount a file system of our own here (" << fs.why()
                 << "); this needs root or CAP_SYS_ADMIN outside a restricted container";
  }
  const std::string dir = fs.path();
  qtest::ScopedEnv data("QSLAVE_DATA", dir.c_str());
  qtest::DispenserTables tables(dir);
  {
    qtest::DispenserRow row = qtest::StandardDispenser(1);
    ASSERT_GT(tables.AddDispenser(row), 0);
    for (const qtest::TankRow& t :
         {TankOf(1, 10, 500.0, 10.0, 1000.0), TankOf(2, 20, 400.0, 10.0, 1000.0, 1),
          TankOf(3, 30, 300.0, 10.0, 1000.0), TankOf(4, 40, 200.0, 10.0, 1000.0)}) {
      ASSERT_GT(tables.AddTank(t), 0);
    }
    qtest::CisternRow cistern;
    cistern.id = 1;
    cistern.users = 1;
    cistern.max_q = 5000.0;
    cistern.cur_q = 400.0;
    ASSERT_GT(tables.AddCistern(cistern), 0);
  }
  const std::string tankFile = tables.FileOf(QDB_SCHEMA_TANKS);
  const std::string cisternFile = tables.FileOf(QDB_SCHEMA_CISTERN);
  ASSERT_GT(qtest::FillUp(dir), 0) << "the file system never said it was full";
  ASSERT_EQ(qtest::FreeBlocks(dir), 0);

  auto levelsOnDisk = [](const std::string& file, const char* key) {
    std::vector<std::string> rows;
    std::map<long, double> levels;
    if (qtest::DbfReadAll(file, {key, "CUR_Q"}, &rows) < 0) {
      ADD_FAILURE() << "dbfread cannot read " << file << ": " << (rows.empty() ? "" : rows[0]);
      return levels;
    }
    for (const std::string& row : rows) {
      // Appended blank records have no key: they hold no level.
      std::istringstream in(row);
      double k = 0.0, v = 0.0;
      if (!(in >> k >> v)) continue;
      levels[static_cast<long>(k)] = v;
    }
    return levels;
  };

  // Level updates rewrite bytes the files already own. Each lands whole or
  // fails and leaves the old value: the file says what the call answered.
  std::map<long, double> tanks = {{1, 500.0}, {2, 400.0}, {3, 300.0}, {4, 200.0}};
  double cistern = 400.0;
  {
    slave s(1);
    ASSERT_EQ(s.m_DispId, 1);
    s.m_PurgeSrvOff = 1;
    if (s.change_level(1, -10.0, 1, 0) == 1) tanks[1] = 490.0;
    int circuits[] = {2, 3};
    double qnts[] = {5.0, 7.5};
    if (s.UpdateLevels(2, circuits, qnts, 1.0, 0) == 1) {
      tanks[2] = 395.0;
      tanks[3] = 292.5;
      cistern = 395.0;
    }
    char frm[] = "(40:1.250)";
    EXPECT_EQ(s.Dispense(frm, 1.0, 1.0, 0, 1, 0, 0), 1);
    double cur = 0.0;
    ASSERT_EQ(s.TankQnts(4, &cur, nullptr, nullptr), 1);
    EXPECT_TRUE(cur == 200.0 || cur == 198.75) << cur;
    tanks[4] = cur;
  }
  CloseLibraryTables();
  EXPECT_EQ(levelsOnDisk(tankFile, "TANK"), tanks);
  EXPECT_EQ(levelsOnDisk(cisternFile, "ID"), (std::map<long, double>{{1, cistern}}));

  // Appends need room: they must stop being accepted, and every record the
  // table accepted must be in the file.
  int appended = 0;
  bool refused = false;
  {
    Qdbase table;
    ASSERT_EQ(table.SetFiles(dir.c_str(), "tanks", 0, nullptr, nullptr), 1);
    ASSERT_EQ(table.Open(), 1);
    for (int i = 0; i < 400 && !refused; ++i) {
      if (table.Append() == 1) {
        ++appended;
      } else {
        refused = true;
      }
    }
    table.Close();
  }
  EXPECT_TRUE(refused) << appended << " appends accepted on a full file system";
  std::vector<std::string> rows;
  EXPECT_EQ(qtest::DbfReadAll(tankFile, {"TANK", "CUR_Q"}, &rows), 4 + appended)
      << (rows.empty() ? "" : rows[0]);

  // Packing writes a new file: it must fail and leave the old one whole,
  // with no temporary file left behind.
  // An appended blank record is deleted first, so that packing has
  // something to drop.
  const long recordsBeforePack = 4 + appended;
  const long recordsAfterPack = recordsBeforePack - (appended > 0 ? 1 : 0);
  std::string packedBefore;
  {
    Qdbase table;
    ASSERT_EQ(table.SetFiles(dir.c_str(), "tanks", 0, nullptr, nullptr), 1);
    ASSERT_EQ(table.Open(), 1);
    ASSERT_EQ(table.RecCount(), recordsBeforePack);
    if (appended > 0) {
      ASSERT_EQ(table.Go(recordsBeforePack), 1);
      ASSERT_EQ(table.Delete(), 1);
    }
    table.Close();
    packedBefore = qtest::ReadFile(tankFile);
    ASSERT_EQ(table.Open(), 1);
    EXPECT_EQ(table.Pack(), 0);
    table.Close();
  }
  EXPECT_TRUE(qtest::ReadFile(tankFile) == packedBefore) << "a failed pack changed the table";
  {
    std::string listing;
    qtest::RunCommand("ls -a '" + dir + "'", &listing);
    EXPECT_EQ(listing.find("-pack-"), std::string::npos) << listing;
  }
  EXPECT_EQ(levelsOnDisk(tankFile, "TANK"), tanks);

  // The library opens the tables and reads the levels the files hold.
  {
    slave s(1);
    ASSERT_EQ(s.m_DispId, 1);
    for (const auto& t : tanks) {
      double cur = -1.0;
      EXPECT_EQ(s.TankQnts(static_cast<int>(t.first), &cur, nullptr, nullptr), 1) << t.first;
      EXPECT_EQ(cur, t.second) << "tank " << t.first;
    }
  }
  CloseLibraryTables();

  // With room again, the same pack goes through.
  ASSERT_EQ(unlink((dir + "/filler").c_str()), 0);
  {
    Qdbase table;
    ASSERT_EQ(table.SetFiles(dir.c_str(), "tanks", 0, nullptr, nullptr), 1);
    ASSERT_EQ(table.Open(), 1);
    EXPECT_EQ(table.Pack(), 1);
    EXPECT_EQ(table.RecCount(), recordsAfterPack);
    table.Close();
  }
  EXPECT_EQ(qtest::DbfReadAll(tankFile, {"TANK"}, &rows), recordsAfterPack);
  EXPECT_EQ(levelsOnDisk(tankFile, "TANK"), tanks);
}

}  // namespace
