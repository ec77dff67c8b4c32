// Level bookkeeping: change_level (absolute and relative, clamping, driver
// notification, the cistern that feeds the circuit, a linked circuit's
// master), both forms of UpdateLevels, UpdateLevelsByFormula and
// SetLevelMax, with every trace line, the table flush mode around a batch,
// and a read-only tank table. Levels are read back from the files with
// python3-dbfread.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <limits>
#include <map>
#include <string>
#include <vector>

#include "dispense_fixture.h"
#include "fault_env.h"

namespace {

using qtest::SecondaryOf;
using qtest::Sim;
using qtest::TankOf;

// A level trace line: "\nslv_lev (<line>) <what>".
std::string LevRe(const std::string& what) {
  return "\\n" + qtest::SourceRe("slv_lev") + " \\(\\d+\\) " + what;
}

class Levels : public qtest::DispenseEnv {
 protected:
  void SetUp() override {
    DispenseEnv::SetUp();
    AddDispenser(hide_id_);
    // Circuit 8 has no record; 1, 2, 7, 9 have no cistern; 3 and 4 each
    // draw from a cistern of their own; 5 is the master of the linked 5-6
    // and draws from cistern 3.
    AddTanks({TankOf(1, 10, 100.0, 10.0, 200.0), TankOf(2, 20, 50.0, 5.0, 80.0),
              TankOf(3, 30, 300.0, 10.0, 1000.0, 1), TankOf(4, 40, 200.0, 10.0, 1000.0, 2),
              TankOf(5, 50, 300.0, 10.0, 600.0, 3), SecondaryOf(6, 50, 3),
              TankOf(7, 70, 5.0, 0.0, -0.5), TankOf(9, 90, 10.0, 1.0, 100.0)});
    AddCistern(1, 1, 900.0, 400.0);
    AddCistern(2, 1, 800.0, 300.0);
    AddCistern(3, 2, 700.0, 250.0);
  }
  void TearDown() override {
    Qdbase::FlushSet(1);
    DispenseEnv::TearDown();
  }

  void MakeReadOnly(QdbSchemaTable table) {
    ASSERT_EQ(chmod(tables_.FileOf(table).c_str(), 0444), 0);
  }

  int Traced(const std::string& what) { return qtest::CountMatching(trace_.messages(), LevRe(what)); }

  std::string hide_id_ = "ZARVO";
  const std::map<int, double> kStart = {{1, 100.0}, {2, 50.0}, {3, 300.0}, {4, 200.0},
                                        {5, 300.0}, {6, -1.0}, {7, 5.0},   {9, 10.0}};
  const std::map<long, double> kCisterns = {{1, 400.0}, {2, 300.0}, {3, 250.0}};
};

// A dispenser whose driver keeps the levels itself (type 7).
class LevelsOwnDriver : public Levels {
 protected:
  void SetUp() override {
    hide_id_ = "LIQON";
    Levels::SetUp();
  }
};

std::map<int, double> With(std::map<int, double> levels, const std::map<int, double>& changes) {
  for (const auto& c : changes) levels[c.first] = c.second;
  return levels;
}

std::map<long, double> WithCisterns(std::map<long, double> levels,
                                    const std::map<long, double>& changes) {
  for (const auto& c : changes) levels[c.first] = c.second;
  return levels;
}

// --- change_level -------------------------------------------------------------

TEST_F(Levels, AbsoluteLevelIsWritten) {
  slave s(1);
  EXPECT_EQ(s.change_level(1, 150.0, 0, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{1, 150.0}}));
}

TEST_F(Levels, RelativeQuantityIsAddedToTheLevel) {
  slave s(1);
  EXPECT_EQ(s.change_level(1, -30.0, 1, 0), 1);
  EXPECT_EQ(s.change_level(2, 12.5, 1, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{1, 70.0}, {2, 62.5}}));
}

TEST_F(Levels, LevelBelowZeroIsClampedToZero) {
  slave s(1);
  EXPECT_EQ(s.change_level(1, -130.0, 1, 0), 1);
  EXPECT_EQ(s.change_level(2, -4.0, 0, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{1, 0.0}, {2, 0.0}}));
}

TEST_F(Levels, LevelAboveMaximumIsClampedToMaximum) {
  slave s(1);
  EXPECT_EQ(s.change_level(1, 150.0, 1, 0), 1);
  EXPECT_EQ(s.change_level(2, 81.0, 0, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{1, 200.0}, {2, 80.0}}));
}

TEST_F(Levels, NegativeMaximumWinsOverZero) {
  slave s(1);
  EXPECT_EQ(s.change_level(7, 3.0, 0, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{7, -0.5}}));
}

TEST_F(Levels, NotANumberIsRefused) {
  slave s(1);
  trace_.clear();
  EXPECT_EQ(s.change_level(1, std::numeric_limits<double>::quiet_NaN(), 1, 0), 0);
  EXPECT_EQ(qtest::CountPrefix(trace_.messages(), "\nslv_lev ("), 1) << trace_.text();
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, InfinityIsRefused) {
  slave s(1);
  trace_.clear();
  EXPECT_EQ(s.change_level(1, std::numeric_limits<double>::infinity(), 0, 0), 0);
  EXPECT_EQ(qtest::CountPrefix(trace_.messages(), "\nslv_lev ("), 1) << trace_.text();
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, CircuitWithoutRecordFailsTankQnts) {
  slave s(1);
  ASSERT_EQ(s.m_NumTanks, 9);
  trace_.clear();
  EXPECT_EQ(s.change_level(8, 1.0, 0, 0), 0);
  EXPECT_EQ(Traced("TankQnts\\(\\) failure"), 1) << trace_.text();
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, CircuitOutOfRangeFailsTankQnts) {
  slave s(1);
  trace_.clear();
  EXPECT_EQ(s.change_level(0, 1.0, 0, 0), 0);
  EXPECT_EQ(s.change_level(10, 1.0, 0, 0), 0);
  EXPECT_EQ(Traced("TankQnts\\(\\) failure"), 2) << trace_.text();
}

TEST_F(Levels, ClosedTablesFailDbHandles) {
  slave s(1);
  CloseLibraryTables();
  trace_.clear();
  EXPECT_EQ(s.change_level(1, 1.0, 0, 0), 0);
  EXPECT_EQ(Traced("_slv_dbhandles\\(\\) failure"), 1) << trace_.text();
}

TEST_F(Levels, CisternWriteLandsOnTheFeedingCistern) {
  slave s(1);
  EXPECT_EQ(s.change_level(3, -10.0, 1, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{3, 290.0}}));
  EXPECT_EQ(CisternLevelsOnDisk(), WithCisterns(kCisterns, {{1, 290.0}}));
  EXPECT_EQ(s.change_level(4, -50.0, 1, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{3, 290.0}, {4, 150.0}}));
  EXPECT_EQ(CisternLevelsOnDisk(), WithCisterns(kCisterns, {{1, 290.0}, {2, 150.0}}));
}

TEST_F(Levels, CisternWriteAfterAnotherCisternSelected) {
  slave s(1);
  EXPECT_EQ(s.change_level(4, -50.0, 1, 0), 1);
  EXPECT_EQ(s.change_level(3, -10.0, 1, 0), 1);
  EXPECT_EQ(CisternLevelsOnDisk(), WithCisterns(kCisterns, {{1, 290.0}, {2, 150.0}}));
}

TEST_F(Levels, CircuitWithoutCisternWritesNoCistern) {
  slave s(1);
  EXPECT_EQ(s.change_level(4, -50.0, 1, 0), 1);  // cistern 2 is now current
  EXPECT_EQ(s.change_level(1, -20.0, 1, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{4, 150.0}, {1, 80.0}}));
  EXPECT_EQ(CisternLevelsOnDisk(), WithCisterns(kCisterns, {{2, 150.0}}));
}

TEST_F(Levels, CisternMaximumClampsACircuitThatDrawsFromIt) {
  slave s(1);
  EXPECT_EQ(s.change_level(3, 5000.0, 0, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{3, 900.0}}));
  EXPECT_EQ(CisternLevelsOnDisk(), WithCisterns(kCisterns, {{1, 900.0}}));
}

TEST_F(Levels, SecondaryCircuitWritesItsMasterAndTheMastersCistern) {
  slave s(1);
  EXPECT_EQ(s.change_level(6, -20.0, 1, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{5, 280.0}}));
  EXPECT_EQ(CisternLevelsOnDisk(), WithCisterns(kCisterns, {{3, 280.0}}));
}

TEST_F(Levels, FailedCisternWriteIsTracedAndNotFatal) {
  MakeReadOnly(QDB_SCHEMA_CISTERN);
  slave s(1);
  trace_.clear();
  EXPECT_EQ(s.change_level(3, -10.0, 1, 0), 1);
  EXPECT_EQ(Traced("failure writing in CISTERN database"), 1) << trace_.text();
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{3, 290.0}}));
  EXPECT_EQ(CisternLevelsOnDisk(), kCisterns);
}

TEST_F(Levels, ReadOnlyTankTableFailsAndWritesNothing) {
  MakeReadOnly(QDB_SCHEMA_TANKS);
  const std::string before = qtest::ReadFile(tables_.FileOf(QDB_SCHEMA_TANKS));
  slave s(1);
  trace_.clear();
  EXPECT_EQ(s.change_level(1, 150.0, 0, 0), 0);
  EXPECT_EQ(Traced("failure writing in TANKS database"), 1) << trace_.text();
  EXPECT_EQ(qtest::ReadFile(tables_.FileOf(QDB_SCHEMA_TANKS)), before);
}

TEST_F(Levels, NotifyTellsTheDriverTheNewLevel) {
  slave s(1);
  Sim(s)->ClearHistory();
  EXPECT_EQ(s.change_level(1, -10.0, 1, 1), 1);
  EXPECT_EQ(qtest::CountOf(DriverCallsOf(s), "SetDispenserLevels(1,1,[1],[90.000])"), 1);
  EXPECT_EQ(qtest::CountPrefix(DriverCallsOf(s), "SetLevels("), 0);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{1, 90.0}}));
}

TEST_F(Levels, WithoutNotifyTheDriverIsNotTold) {
  slave s(1);
  Sim(s)->ClearHistory();
  EXPECT_EQ(s.change_level(1, -10.0, 1, 0), 1);
  EXPECT_EQ(qtest::CountPrefix(DriverCallsOf(s), "SetDispenserLevels("), 0);
  EXPECT_EQ(qtest::CountPrefix(DriverCallsOf(s), "SetLevels("), 0);
}

TEST_F(Levels, WithoutDriverTheLevelIsStillWritten) {
  slave s(1);
  CDispenser_Delete(s.m_Dsp, 0);
  s.m_Dsp = nullptr;
  EXPECT_EQ(s.change_level(1, -10.0, 1, 1), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{1, 90.0}}));
}

TEST_F(LevelsOwnDriver, WithoutNotifyNothingIsWritten) {
  slave s(1);
  Sim(s)->ClearHistory();
  EXPECT_EQ(s.change_level(1, -10.0, 1, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
  EXPECT_EQ(qtest::CountPrefix(DriverCallsOf(s), "SetLevels("), 0);
}

TEST_F(LevelsOwnDriver, WithoutNotifyNoCisternIsWritten) {
  slave s(1);
  EXPECT_EQ(s.change_level(3, -10.0, 1, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
  EXPECT_EQ(CisternLevelsOnDisk(), kCisterns);
}

TEST_F(LevelsOwnDriver, NotifyCallsSetLevelsAndWrites) {
  slave s(1);
  Sim(s)->ClearHistory();
  EXPECT_EQ(s.change_level(1, -10.0, 1, 1), 1);
  EXPECT_EQ(qtest::CountOf(DriverCallsOf(s), "SetLevels(1,[1],[90.000])"), 1);
  EXPECT_EQ(qtest::CountPrefix(DriverCallsOf(s), "SetDispenserLevels("), 0);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{1, 90.0}}));
}

// A type-7 dispenser (LIQON) of twelve circuits; circuit c holds colourant
// 10 c at 100 c of 2000 with reserve c. Levels are booked with the driver
// told (notify 1) in an order that is not the circuits' order.
class OwnDriverCircuits : public qtest::DispenseEnv {
 protected:
  void SetUp() override {
    DispenseEnv::SetUp();
    AddDispenser("LIQON");
    std::vector<qtest::TankRow> rows;
    for (int c = 1; c <= 12; ++c) rows.push_back(TankOf(c, 10 * c, 100.0 * c, c, 2000.0));
    AddTanks(rows);
  }

  static const std::vector<int>& Order() {
    static const std::vector<int> order = {12, 3, 7, 1, 10, 5, 2, 11, 8, 4, 9, 6};
    return order;
  }

  // Every tank record as "TANK CUR_Q MAX_Q RES_Q", numbers as python3-dbfread
  // reads them from the file.
  std::vector<std::string> Records() {
    std::vector<std::string> rows;
    EXPECT_EQ(qtest::DbfReadAll(tables_.FileOf(QDB_SCHEMA_TANKS),
                                {"TANK", "CUR_Q", "MAX_Q", "RES_Q"}, &rows),
              12);
    return rows;
  }

  static std::string Record(int tank, double cur, double max, double res) {
    char text[128];
    snprintf(text, sizeof text, "%d %.1f %.1f %.1f", tank, cur, max, res);
    return text;
  }

  // The machine keeps 50 c of 1000, reserve 2 c, in circuit c.
  static void Refill(slave& s) {
    for (int c = 1; c <= 12; ++c) Sim(s)->SetCircuitLevel(c, 50.0 * c, 1000.0, 2.0 * c);
  }

  // The tank report's rows for the machine's figures of Refill.
  static std::vector<std::string> RefilledReport() {
    std::vector<std::string> rows;
    for (int c = 1; c <= 12; ++c) {
      char row[128];
      snprintf(row, sizeof row, "\n %4d %4d %10.2f %10.2f %10.2f %8.0f", c, 10 * c, 50.0 * c,
               2.0 * c, 1000.0, 0.0);
      rows.push_back(row);
    }
    return rows;
  }

  // The rows of the tank report in the trace.
  std::vector<std::string> ReportRows() const {
    std::vector<std::string> rows;
    for (const std::string& m : trace_.messages()) {
      if (m.size() > 2 && m[0] == '\n' && m[1] == ' ' && m[2] != 'T') rows.push_back(m);
    }
    return rows;
  }
};

// The machine keeps no level yet: the table is the record. Taking 5 c from
// every circuit leaves 100 c - 5 c = 95 c in each, maximum and reserve as
// they were; the machine is told each new level and invents no circuit.
TEST_F(OwnDriverCircuits, BookingOverManyCircuitsKeepsEveryRecord) {
  slave s(1);
  ASSERT_EQ(s.m_Dsp->GetType(0, 0), 7);
  for (int c : Order()) ASSERT_EQ(s.change_level(c, -5.0 * c, 1, 1), 1) << c;
  std::vector<std::string> expected;
  for (int c = 1; c <= 12; ++c) expected.push_back(Record(c, 95.0 * c, 2000.0, c));
  EXPECT_EQ(Records(), expected);
  long count = -1;
  s.m_Dsp->GetCircuitLevelsCount(0, 0, 0, &count);
  EXPECT_EQ(count, 0);
  // Each circuit read again from the machine and the table: the same.
  for (int c = 1; c <= 12; ++c) {
    double cur = 0, res = 0, max = 0;
    ASSERT_EQ(s.TankQnts(c, &cur, &res, &max), 1);
    EXPECT_DOUBLE_EQ(cur, 95.0 * c) << c;
    EXPECT_DOUBLE_EQ(max, 2000.0) << c;
    EXPECT_DOUBLE_EQ(res, c) << c;
  }
}

// The machine keeps a level for every circuit (50 c of 1000, reserve 2 c):
// its figures are the reference. Taking 5 c leaves 45 c in the machine and
// in every record, with the machine's maximum and reserve.
TEST_F(OwnDriverCircuits, BookingOverManyCircuitsFollowsTheMachine) {
  slave s(1);
  Refill(s);
  for (int c : Order()) ASSERT_EQ(s.change_level(c, -5.0 * c, 1, 1), 1) << c;
  std::vector<std::string> expected;
  for (int c = 1; c <= 12; ++c) {
    expected.push_back(Record(c, 45.0 * c, 1000.0, 2.0 * c));
    double cur = 0, max = 0, res = 0;
    ASSERT_TRUE(Sim(s)->CircuitLevel(c, &cur, &max, &res)) << c;
    EXPECT_DOUBLE_EQ(cur, 45.0 * c) << c;
  }
  EXPECT_EQ(Records(), expected);
}

// The tank report of a machine that keeps every circuit's level shows the
// machine's figures, and leaves them in every record when it is done.
TEST_F(OwnDriverCircuits, TankReportShowsTheMachinesFiguresAndKeepsThem) {
  slave s(1);
  Refill(s);
  trace_.clear();
  s.DumpTanks();
  std::vector<std::string> records;
  for (int c = 1; c <= 12; ++c) records.push_back(Record(c, 50.0 * c, 1000.0, 2.0 * c));
  EXPECT_EQ(ReportRows(), RefilledReport()) << trace_.text();
  EXPECT_EQ(Records(), records);
}

// Another process holds the tables' lock (a booking that does not end).
// Copying the machine's figures into the records can wait: the report does
// not wait for the lock (once it found the tables busy, no tank tries
// again) and shows the machine's figures, which are what the machine holds
// whether or not its records could take them; so does a circuit read on
// its own. Once the lock is free, the next read copies them.
TEST_F(OwnDriverCircuits, TablesHeldByAnotherProcessDoNotDelayOrFalsifyTheLevels) {
  slave s(1);
  Refill(s);
  qtest::TablesHeldElsewhere other(dir_.path(), "tanks");
  ASSERT_TRUE(other.held());
  trace_.clear();
  s.DumpTanks();
  const std::string text = trace_.text();
  const std::vector<std::string> report = ReportRows();
  // A circuit read on its own is answered from the machine too.
  trace_.clear();
  double cur = 0, res = 0, max = 0;
  EXPECT_EQ(1, s.TankQnts(2, &cur, &res, &max));
  EXPECT_EQ(cur, 100.0);
  EXPECT_EQ(res, 4.0);
  EXPECT_EQ(max, 1000.0);
  EXPECT_NE(std::string::npos, trace_.text().find("held by another process (waited 0 ms"))
      << trace_.text();
  const std::vector<std::string> whileHeld = Records();
  EXPECT_TRUE(other.Release());

  size_t waits = 0;
  for (size_t at = text.find("held by another process (waited 0 ms"); at != std::string::npos;
       at = text.find("held by another process", at + 1)) {
    ++waits;
  }
  EXPECT_EQ(waits, 1u) << text;
  EXPECT_EQ(report, RefilledReport()) << text;
  std::vector<std::string> before;
  for (int c = 1; c <= 12; ++c) before.push_back(Record(c, 100.0 * c, 2000.0, c));
  EXPECT_EQ(whileHeld, before);

  ASSERT_EQ(1, s.TankQnts(1, &cur, nullptr, nullptr));
  EXPECT_EQ(cur, 50.0);
  EXPECT_EQ(Records()[0], Record(1, 50.0, 1000.0, 2.0));
}

// --- UpdateLevels (list) ----------------------------------------------------------

TEST_F(Levels, ListTakesQuantitiesAway) {
  slave s(1);
  int circuits[] = {1, 2};
  double qnts[] = {10.0, 5.0};
  EXPECT_EQ(s.UpdateLevels(2, circuits, qnts, 1.0, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{1, 90.0}, {2, 45.0}}));
}

TEST_F(Levels, ListAddsQuantities) {
  slave s(1);
  int circuits[] = {1, 2};
  double qnts[] = {10.0, 50.0};
  EXPECT_EQ(s.UpdateLevels(2, circuits, qnts, 1.0, 1), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{1, 110.0}, {2, 80.0}}));
}

TEST_F(Levels, ListScalesAppliedEntriesInPlace) {
  slave s(1);
  int circuits[] = {1, 0, 2, 10, 9, -1};
  double qnts[] = {10.0, 5.0, -3.0, 4.0, 0.0, 2.0};
  EXPECT_EQ(s.UpdateLevels(6, circuits, qnts, 2.0, 0), 1);
  EXPECT_EQ(std::vector<double>(qnts, qnts + 6),
            (std::vector<double>{20.0, 5.0, -3.0, 4.0, 0.0, 2.0}));
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{1, 80.0}}));
}

TEST_F(Levels, ListSkipsInvalidCircuitsSilently) {
  slave s(1);
  int circuits[] = {0, -3, 10, 2};
  double qnts[] = {1.0, 1.0, 1.0, 1.0};
  trace_.clear();
  EXPECT_EQ(s.UpdateLevels(4, circuits, qnts, 1.0, 0), 1);
  EXPECT_EQ(qtest::CountPrefix(trace_.messages(), "\nslv_lev"), 0) << trace_.text();
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{2, 49.0}}));
}

TEST_F(Levels, ListSkipsZeroAndNegativeQuantities) {
  slave s(1);
  int circuits[] = {1, 2};
  double qnts[] = {0.0, -5.0};
  EXPECT_EQ(s.UpdateLevels(2, circuits, qnts, 3.0, 1), 1);
  EXPECT_EQ(qnts[0], 0.0);
  EXPECT_EQ(qnts[1], -5.0);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, ListOfNoEntriesSucceeds) {
  slave s(1);
  EXPECT_EQ(s.UpdateLevels(0, nullptr, nullptr, 1.0, 0), 1);
}

TEST_F(Levels, ListWithoutDispenserTracesTheId) {
  slave s(99);
  ASSERT_EQ(s.m_DispId, 0);
  trace_.clear();
  int circuits[] = {1};
  double qnts[] = {1.0};
  EXPECT_EQ(s.UpdateLevels(1, circuits, qnts, 1.0, 0), 0);
  EXPECT_EQ(Traced("id == 0"), 1) << trace_.text();
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, ListWithNegativeIdTracesTheId) {
  slave s(1);
  s.m_DispId = -3;
  trace_.clear();
  int circuits[] = {1};
  double qnts[] = {1.0};
  EXPECT_EQ(s.UpdateLevels(1, circuits, qnts, 1.0, 0), 0);
  EXPECT_EQ(Traced("id == -3"), 1) << trace_.text();
  s.m_DispId = 1;
}

TEST_F(Levels, ListWithClosedTablesTraces) {
  slave s(1);
  CloseLibraryTables();
  trace_.clear();
  int circuits[] = {1};
  double qnts[] = {1.0};
  EXPECT_EQ(s.UpdateLevels(1, circuits, qnts, 1.0, 0), 0);
  EXPECT_EQ(Traced("_slv_dbhandles\\(\\) failure"), 1) << trace_.text();
}

TEST_F(Levels, ListFailureDoesNotStopTheOthers) {
  slave s(1);
  trace_.clear();
  int circuits[] = {8, 1};  // circuit 8 has no record
  double qnts[] = {1.0, 10.0};
  EXPECT_EQ(s.UpdateLevels(2, circuits, qnts, 1.0, 0), 0);
  EXPECT_EQ(Traced("TankQnts\\(\\) failure"), 1) << trace_.text();
  EXPECT_EQ(Traced("ModifyLevel\\(\\) failure"), 1) << trace_.text();
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{1, 90.0}}));
}

TEST_F(Levels, ListRefusesALevelScaledBeyondNumbers) {
  slave s(1);
  trace_.clear();
  // Scaled by the factor, the first quantity is no longer a number: its
  // circuit keeps its level, the other is booked.
  int circuits[] = {1, 2};
  double qnts[] = {1e300, 1e-9};
  EXPECT_EQ(s.UpdateLevels(2, circuits, qnts, 1e10, 0), 0);
  EXPECT_EQ(Traced("level -inf refused for circuit 1"), 1) << trace_.text();
  EXPECT_EQ(Traced("ModifyLevel\\(\\) failure"), 1) << trace_.text();
  EXPECT_EQ(qtest::CountPrefix(trace_.messages(), "\nslv_lev ("), 2) << trace_.text();
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{2, 40.0}}));
}

TEST_F(Levels, ListOnReadOnlyTableFailsAndWritesNothing) {
  MakeReadOnly(QDB_SCHEMA_TANKS);
  const std::string before = qtest::ReadFile(tables_.FileOf(QDB_SCHEMA_TANKS));
  slave s(1);
  trace_.clear();
  int circuits[] = {1, 2};
  double qnts[] = {10.0, 5.0};
  EXPECT_EQ(s.UpdateLevels(2, circuits, qnts, 1.0, 0), 0);
  EXPECT_EQ(Traced("failure writing in TANKS database"), 2) << trace_.text();
  EXPECT_EQ(Traced("ModifyLevel\\(\\) failure"), 2) << trace_.text();
  EXPECT_EQ(qtest::ReadFile(tables_.FileOf(QDB_SCHEMA_TANKS)), before);
}

TEST_F(Levels, ListWritesThroughCisterns) {
  slave s(1);
  int circuits[] = {3, 4, 6};
  double qnts[] = {10.0, 20.0, 30.0};
  EXPECT_EQ(s.UpdateLevels(3, circuits, qnts, 1.0, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{3, 290.0}, {4, 180.0}, {5, 270.0}}));
  EXPECT_EQ(CisternLevelsOnDisk(), WithCisterns(kCisterns, {{1, 290.0}, {2, 180.0}, {3, 270.0}}));
}

// --- Flush mode around a batch -----------------------------------------------------

TEST_F(Levels, BatchWritesReachTheFileAndTheModeIsRestored) {
  slave s(1);
  Qdbase::FlushSet(0);
  int circuits[] = {1};
  double qnts[] = {10.0};
  EXPECT_EQ(s.UpdateLevels(1, circuits, qnts, 1.0, 0), 1);
  EXPECT_EQ(Qdbase::FlushGet(), 0) << "the caller's mode is restored";
  // Written with flush mode 1: on disk although the caller's mode is 0 and
  // the record has not changed since.
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{1, 90.0}}));
}

TEST_F(Levels, FlushModeOneIsLeftAtOne) {
  slave s(1);
  Qdbase::FlushSet(1);
  int circuits[] = {1};
  double qnts[] = {10.0};
  EXPECT_EQ(s.UpdateLevels(1, circuits, qnts, 1.0, 0), 1);
  EXPECT_EQ(Qdbase::FlushGet(), 1);
}

TEST_F(Levels, FlushModeRestoredAfterAFailedEntry) {
  slave s(1);
  Qdbase::FlushSet(0);
  int circuits[] = {8};
  double qnts[] = {1.0};
  EXPECT_EQ(s.UpdateLevels(1, circuits, qnts, 1.0, 0), 0);
  EXPECT_EQ(Qdbase::FlushGet(), 0);
}

TEST_F(Levels, FlushModeRestoredAfterReadOnlyFailure) {
  MakeReadOnly(QDB_SCHEMA_TANKS);
  slave s(1);
  Qdbase::FlushSet(0);
  int circuits[] = {1};
  double qnts[] = {1.0};
  EXPECT_EQ(s.UpdateLevels(1, circuits, qnts, 1.0, 0), 0);
  EXPECT_EQ(Qdbase::FlushGet(), 0);
}

TEST_F(Levels, FlushModeRestoredForAnEmptyBatch) {
  slave s(1);
  Qdbase::FlushSet(0);
  EXPECT_EQ(s.UpdateLevels(0, nullptr, nullptr, 1.0, 0), 1);
  EXPECT_EQ(Qdbase::FlushGet(), 0);
}

TEST_F(Levels, FlushModeUntouchedWithoutDispenser) {
  slave s(99);
  Qdbase::FlushSet(0);
  int circuits[] = {1};
  double qnts[] = {1.0};
  EXPECT_EQ(s.UpdateLevels(1, circuits, qnts, 1.0, 0), 0);
  EXPECT_EQ(Qdbase::FlushGet(), 0);
}

TEST_F(Levels, FlushModeUntouchedWithClosedTables) {
  slave s(1);
  CloseLibraryTables();
  Qdbase::FlushSet(0);
  int circuits[] = {1};
  double qnts[] = {1.0};
  EXPECT_EQ(s.UpdateLevels(1, circuits, qnts, 1.0, 0), 0);
  EXPECT_EQ(Qdbase::FlushGet(), 0);
}

TEST_F(LevelsOwnDriver, FlushModeRestoredWhenTheDriverKeepsTheLevels) {
  slave s(1);
  Qdbase::FlushSet(0);
  int circuits[] = {1, 2};
  double qnts[] = {10.0, 5.0};
  EXPECT_EQ(s.UpdateLevels(2, circuits, qnts, 1.0, 0), 1);
  EXPECT_EQ(Qdbase::FlushGet(), 0);
  EXPECT_EQ(TankLevelsOnDisk(), kStart) << "the driver keeps the levels";
}

TEST_F(Levels, FlushModeRestoredBySetLevelMax) {
  slave s(1);
  Qdbase::FlushSet(0);
  EXPECT_EQ(s.SetLevelMax(), 1);
  EXPECT_EQ(Qdbase::FlushGet(), 0);
}

// --- UpdateLevels (formula) --------------------------------------------------------

TEST_F(Levels, FormulaTakesColourantsAwayFromTheirTanks) {
  slave s(1);
  char frm[] = "(10:10.000)(20:5.000)";
  EXPECT_EQ(s.UpdateLevels(frm, 1.0, 1.0, 0, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{1, 90.0}, {2, 45.0}}));
}

TEST_F(Levels, FormulaAddsWhenAsked) {
  slave s(1);
  char frm[] = "(10:10.000)";
  EXPECT_EQ(s.UpdateLevels(frm, 1.0, 1.0, 0, 1), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{1, 110.0}}));
}

TEST_F(Levels, FormulaFactorsScaleTheQuantities) {
  slave s(1);
  char frm[] = "(10:10.000)";
  EXPECT_EQ(s.UpdateLevels(frm, 2.0, 1.5, 0, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{1, 70.0}}));
}

TEST_F(Levels, FormulaWeightsAreConverted) {
  AddColorant(10, "RED", 1250.0);
  slave s(1);
  char frm[] = "(10:25.000)";  // 20 cc
  EXPECT_EQ(s.UpdateLevels(frm, 1.0, 1.0, 1, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{1, 80.0}}));
}

TEST_F(Levels, FormulaOfLinkedColourantLowersTheMaster) {
  slave s(1);
  char frm[] = "(50:20.000)";
  EXPECT_EQ(s.UpdateLevels(frm, 1.0, 1.0, 0, 0), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{5, 280.0}}));
  EXPECT_EQ(CisternLevelsOnDisk(), WithCisterns(kCisterns, {{3, 280.0}}));
}

TEST_F(Levels, EmptyFormulaGivesZero) {
  slave s(1);
  char frm[] = "";
  EXPECT_EQ(s.UpdateLevels(frm, 1.0, 1.0, 0, 0), 0);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, FormulaWithColourantInNoTankGivesZero) {
  slave s(1);
  char frm[] = "(10:10.000)(99:1.000)";
  EXPECT_EQ(s.UpdateLevels(frm, 1.0, 1.0, 0, 0), 0);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, MalformedFormulaGivesZero) {
  slave s(1);
  char frm[] = "(10:10.000";
  EXPECT_EQ(s.UpdateLevels(frm, 1.0, 1.0, 0, 0), 0);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, FormulaOnReadOnlyTableGivesZero) {
  MakeReadOnly(QDB_SCHEMA_TANKS);
  slave s(1);
  char frm[] = "(10:10.000)";
  trace_.clear();
  EXPECT_EQ(s.UpdateLevels(frm, 1.0, 1.0, 0, 0), 0);
  EXPECT_EQ(Traced("failure writing in TANKS database"), 1) << trace_.text();
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

// --- UpdateLevelsByFormula ------------------------------------------------------------

TEST_F(Levels, ByFormulaBracketedPairs) {
  slave s(1);
  char text[] = "(3:1.5)(4:2)";
  EXPECT_EQ(s.UpdateLevelsByFormula(text), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{3, 298.5}, {4, 198.0}}));
  EXPECT_EQ(CisternLevelsOnDisk(), WithCisterns(kCisterns, {{1, 298.5}, {2, 198.0}}));
}

TEST_F(Levels, ByFormulaBlankSeparatedPairs) {
  slave s(1);
  char text[] = "3:1.5 4:2";
  EXPECT_EQ(s.UpdateLevelsByFormula(text), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{3, 298.5}, {4, 198.0}}));
}

TEST_F(Levels, ByFormulaNewlineSeparatedPairs) {
  slave s(1);
  char text[] = "3:1.5\n4:2\n";
  EXPECT_EQ(s.UpdateLevelsByFormula(text), 1);
  EXPECT_EQ(TankLevelsOnDisk(), With(kStart, {{3, 298.5}, {4, 198.0}}));
}

TEST_F(Levels, ByFormulaLeavesTheCallersTextAlone) {
  slave s(1);
  char text[] = "(3:1.5)(4:2)";
  EXPECT_EQ(s.UpdateLevelsByFormula(text), 1);
  EXPECT_STREQ(text, "(3:1.5)(4:2)");
}

TEST_F(Levels, ByFormulaQuantityEqualToTheLevelChangesNothing) {
  slave s(1);
  char text[] = "9:10";
  EXPECT_EQ(s.UpdateLevelsByFormula(text), -1);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, ByFormulaChecksEveryPairBeforeChangingAny) {
  slave s(1);
  char text[] = "(1:5)(2:2)(9:11)";
  EXPECT_EQ(s.UpdateLevelsByFormula(text), -1);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, ByFormulaWithoutColonGivesZero) {
  slave s(1);
  char text[] = "(3 1.5)";
  EXPECT_EQ(s.UpdateLevelsByFormula(text), 0);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, ByFormulaNullGivesZero) {
  slave s(1);
  EXPECT_EQ(s.UpdateLevelsByFormula(nullptr), 0);
}

TEST_F(Levels, ByFormulaEmptyGivesZero) {
  slave s(1);
  char text[] = "";
  EXPECT_EQ(s.UpdateLevelsByFormula(text), 0);
}

TEST_F(Levels, ByFormulaMissingQuantityGivesZero) {
  slave s(1);
  char text[] = "(1:5)(3:";
  EXPECT_EQ(s.UpdateLevelsByFormula(text), 0);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, ByFormulaPairsNotMatchingColonsGiveZero) {
  slave s(1);
  char text[] = "3 1.5 4:2";  // one colon, two pairs
  EXPECT_EQ(s.UpdateLevelsByFormula(text), 0);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, ByFormulaExtraColonGivesZero) {
  slave s(1);
  char text[] = "3:1.5:2";  // two colons: the second pair has no quantity
  EXPECT_EQ(s.UpdateLevelsByFormula(text), 0);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, ByFormulaInfiniteQuantityIsRefused) {
  slave s(1);
  char text[] = "(1:inf)";
  EXPECT_EQ(s.UpdateLevelsByFormula(text), 0);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, ByFormulaNotANumberQuantityIsRefused) {
  slave s(1);
  char text[] = "(1:nan)";
  EXPECT_EQ(s.UpdateLevelsByFormula(text), 0);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, ByFormulaOnReadOnlyTableGivesZero) {
  MakeReadOnly(QDB_SCHEMA_TANKS);
  slave s(1);
  char text[] = "(1:5)";
  EXPECT_EQ(s.UpdateLevelsByFormula(text), 0);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, ByFormulaOfManyPairs) {
  slave s(1);
  std::string text;
  for (int i = 0; i < 500; ++i) text += "(1:0.1)";
  EXPECT_EQ(s.UpdateLevelsByFormula(&text[0]), 1);
  std::map<int, double> levels = TankLevelsOnDisk();
  EXPECT_NEAR(levels[1], 50.0, 1e-3);
}

// --- SetLevelMax ------------------------------------------------------------------------

TEST_F(Levels, SetLevelMaxFillsEveryCircuit) {
  slave s(1);
  EXPECT_EQ(s.SetLevelMax(), 1);
  EXPECT_EQ(TankLevelsOnDisk(),
            With(kStart, {{1, 200.0}, {2, 80.0}, {3, 900.0}, {4, 800.0}, {5, 700.0}, {7, -0.5},
                          {9, 100.0}}));
  EXPECT_EQ(CisternLevelsOnDisk(), WithCisterns(kCisterns, {{1, 900.0}, {2, 800.0}, {3, 700.0}}));
}

TEST_F(Levels, SetLevelMaxWithoutDispenser) {
  slave s(99);
  EXPECT_EQ(s.SetLevelMax(), 0);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
}

TEST_F(Levels, SetLevelMaxWithClosedTablesTracesNothing) {
  slave s(1);
  CloseLibraryTables();
  trace_.clear();
  EXPECT_EQ(s.SetLevelMax(), 0);
  EXPECT_EQ(qtest::CountPrefix(trace_.messages(), "\nslv_lev"), 0) << trace_.text();
}

// A refill the tables refuse is not reported done.
TEST_F(Levels, SetLevelMaxRefusedByTheTablesFailsAndBooksNothing) {
  MakeReadOnly(QDB_SCHEMA_TANKS);
  slave s(1);
  trace_.clear();
  EXPECT_EQ(s.SetLevelMax(), 0);
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
  EXPECT_EQ(CisternLevelsOnDisk(), kCisterns);
  EXPECT_GE(qtest::CountPrefix(trace_.messages(), "\nslv_lev"), 1) << trace_.text();
}

// A circuit whose maximum cannot be read (its tank names a cistern that is
// not there, written by another program while the dispenser is selected)
// is never filled to 0 nor skipped: the refill fails whole.
TEST_F(Levels, SetLevelMaxWithAnUnreadableMaximumBooksNothing) {
  slave s(1);
  ASSERT_EQ(0, qtest::RunPython("import dbf\n"
                                "t = dbf.Table(" + qtest::PyQuote(tables_.FileOf(QDB_SCHEMA_TANKS)) +
                                ")\n"
                                "t.open(dbf.READ_WRITE)\n"
                                "for r in t:\n"
                                "    if r.tank == 4:\n"
                                "        with r:\n"
                                "            r.cist_id = '   99'\n"
                                "t.close()\n"));
  trace_.clear();
  EXPECT_EQ(s.SetLevelMax(), 0);
  EXPECT_EQ(Traced("TankQnts\\(\\) failure"), 1) << trace_.text();
  EXPECT_EQ(TankLevelsOnDisk(), kStart);
  EXPECT_EQ(CisternLevelsOnDisk(), kCisterns);
}

TEST(LevelsWithoutTanks, SetLevelMaxOfNoCircuitIsOne) {
  qtest::TempDir dir;
  qtest::ScopedEnv data("QSLAVE_DATA", dir.path().c_str());
  qtest::ScopedEnv sim("QSLAVE_SIM", nullptr);
  qtest::DispenserTables tables(dir.path());
  ASSERT_GT(tables.AddDispenser(qtest::StandardDispenser(1)), 0);
  qtest::TraceCapture trace;
  {
    slave s(1);
    ASSERT_EQ(s.m_DispId, 1);
    ASSERT_EQ(s.m_NumTanks, 0);
    EXPECT_EQ(s.SetLevelMax(), 1);
  }
}

}  // namespace
