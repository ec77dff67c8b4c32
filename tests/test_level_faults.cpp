// The library's bookings under disk faults: a dispense with levels (single
// tanks and a linked pair fed by a cistern), a batch of 20 circuits
// (UpdateLevels) and a switch of linked tanks to independent ones with the
// write of their records. Every read, write, sync and truncation of the
// tables and the journal fails in turn (EIO, ENOSPC, a half-written write),
// and the process is killed before each in turn. For each: the answer says
// what the tables hold, the trace names the file, and the tables, read by
// the table class and by python3-dbfread, hold each booking entirely or not
// at all.
#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "dispense_fixture.h"
#include "fault_injection.h"

namespace {

namespace faults = qtest::faults;
using qtest::SecondaryOf;
using qtest::TankOf;
using qtest::TempDir;
using qtest::TraceCapture;

const char* const kTables[] = {"disps.dbf", "tanks.dbf", "cistern.dbf"};

// The tables of a directory as the table class reads them: every tank's
// TANK, CUR_Q, MAX_Q and CIST_ID, every cistern's ID, USERS, CUR_Q, MAX_Q.
// Opening them completes a booking a killed process left unfinished.
std::string Snapshot(const std::string& dir) {
  std::string out;
  Qdbase tanks, cist;
  if (!tanks.SetFiles(dir.c_str(), "tanks", 0, nullptr, nullptr) || !tanks.Open() ||
      !cist.SetFiles(dir.c_str(), "cistern", 0, nullptr, nullptr) || !cist.Open()) {
    return "<cannot open>";
  }
  char line[128];
  for (int ok = tanks.Top(); ok; ok = tanks.Next()) {
    long tank = 0, cistId = 0;
    double cur = 0, max = 0;
    if (!tanks.ReadLong("TANK", &tank) || !tanks.ReadDouble("CUR_Q", &cur) ||
        !tanks.ReadDouble("MAX_Q", &max) || !tanks.ReadLong("CIST_ID", &cistId)) {
      return "<cannot read>";
    }
    snprintf(line, sizeof line, "T%ld %.3f %.3f %ld;", tank, cur, max, cistId);
    out += line;
  }
  for (int ok = cist.Top(); ok; ok = cist.Next()) {
    long id = 0, users = 0;
    double cur = 0, max = 0;
    if (!cist.ReadLong("ID", &id) || !cist.ReadLong("USERS", &users) ||
        !cist.ReadDouble("CUR_Q", &cur) || !cist.ReadDouble("MAX_Q", &max)) {
      return "<cannot read>";
    }
    snprintf(line, sizeof line, "C%ld %ld %.3f %.3f;", id, users, cur, max);
    out += line;
  }
  return out;
}

// The same, as python3-dbfread reads each directory (deleted records
// skipped); one line per directory.
std::vector<std::string> SnapshotsByDbfread(const std::vector<std::string>& dirs) {
  std::string list = "[";
  for (const std::string& d : dirs) list += qtest::PyQuote(d) + ",";
  list += "]";
  const std::string script =
      "import dbfread\n"
      "for d in " + list + ":\n"
      "    try:\n"
      "        out = ''\n"
      "        for r in dbfread.DBF(d + '/tanks.dbf'):\n"
      "            out += 'T%d %.3f %.3f %d;' % (r['TANK'], r['CUR_Q'], r['MAX_Q'],\n"
      "                                         int(r['CIST_ID'] or 0))\n"
      "        for r in dbfread.DBF(d + '/cistern.dbf'):\n"
      "            out += 'C%d %d %.3f %.3f;' % (r['ID'], r['USERS'], r['CUR_Q'], r['MAX_Q'])\n"
      "        print(out)\n"
      "    except Exception as e:\n"
      "        print('<dbfread: %s>' % e)\n";
  std::string text;
  qtest::RunPython(script, &text);
  std::vector<std::string> lines;
  size_t pos = 0;
  while (pos < text.size()) {
    const size_t end = text.find('\n', pos);
    lines.push_back(text.substr(pos, end - pos));
    pos = end == std::string::npos ? text.size() : end + 1;
  }
  return lines;
}

// The records that differ between two snapshots, for a short message.
std::string Difference(const std::string& want, const std::string& got) {
  auto split = [](const std::string& text) {
    std::vector<std::string> parts;
    size_t pos = 0;
    while (pos < text.size()) {
      const size_t end = text.find(';', pos);
      parts.push_back(text.substr(pos, end - pos));
      pos = end == std::string::npos ? text.size() : end + 1;
    }
    return parts;
  };
  const std::vector<std::string> a = split(want), b = split(got);
  std::string out;
  for (size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
    const std::string x = i < a.size() ? a[i] : "-", y = i < b.size() ? b[i] : "-";
    if (x != y) out += "[" + x + " | " + y + "] ";
  }
  return out.empty() ? "same" : "wanted | found: " + out;
}

// What one operation did: the states it may leave, named by the answer.
struct Outcome {
  int answer = 0;     // 1: the operation says its bookings were made
  int stage = 0;      // for two bookings in a row: how many were made
};

using Operation = std::function<Outcome(slave&)>;

class LevelFaults : public qtest::DispenseEnv {
 protected:
  void SetUp() override {
    DispenseEnv::SetUp();
    AddDispenser();
    std::vector<qtest::TankRow> rows;
    for (int t = 1; t <= 20; ++t) rows.push_back(TankOf(t, 100 + t, 500.0, 10.0, 1000.0));
    rows.push_back(TankOf(21, 50, 3000.0, 10.0, 4000.0, 1));
    rows.push_back(SecondaryOf(22, 50, 1));
    AddTanks(rows);
    AddCistern(1, 2, 4000.0, 3000.0, 10.0);
  }
  void TearDown() override {
    faults::Disarm();
    DispenseEnv::TearDown();
  }

  // A fresh copy of the pristine tables.
  TempDir* Fresh() {
    dirs_.push_back(std::make_unique<TempDir>());
    for (const char* name : kTables) {
      qtest::WriteFile(dirs_.back()->file(name), qtest::ReadFile(dir_.file(name)));
    }
    return dirs_.back().get();
  }

  // Runs op on the tables of dir with plan armed (after the slave is
  // constructed); answers what op said.
  Outcome Run(const std::string& dir, const Operation& op, const faults::Plan* plan) {
    qtest::ScopedEnv data("QSLAVE_DATA", dir.c_str());
    Outcome outcome;
    {
      slave s(1);
      EXPECT_EQ(s.m_DispId, 1);
      s.m_PurgeSrvOff = 1;
      if (plan != nullptr) faults::Arm(*plan);
      outcome = op(s);
      faults::Disarm();
    }
    return outcome;
  }

  // The states op may leave: the tables before it, and after it ran
  // without a fault.
  std::vector<std::string> States(const Operation& op) {
    std::vector<std::string> states = {Snapshot(Fresh()->path())};
    TempDir* clean = Fresh();
    const Outcome done = Run(clean->path(), op, nullptr);
    EXPECT_EQ(done.answer, 1) << "the operation works without faults";
    states.push_back(Snapshot(clean->path()));
    return states;
  }

  // Fails each call of the given kinds in turn and checks every outcome.
  void Sweep(const Operation& op, const std::vector<std::string>& states, int ops, int error,
             bool shortWrite, int* failures) {
    TempDir* counting = Fresh();
    faults::Plan plan;
    plan.match = counting->path() + "/";
    plan.ops = ops;
    Run(counting->path(), op, &plan);
    const long calls = faults::Count();
    ASSERT_GT(calls, 0);
    std::vector<std::string> dirs;
    std::vector<std::string> expected;
    for (long n = 1; n <= calls; ++n) {
      TempDir* dir = Fresh();
      plan.match = dir->path() + "/";
      plan.failAt = n;
      plan.error = error;
      plan.shortWrite = shortWrite;
      TraceCapture trace;
      const Outcome outcome = Run(dir->path(), op, &plan);
      const std::string& want = states[static_cast<size_t>(outcome.stage)];
      const std::string found = Snapshot(dir->path());
      EXPECT_TRUE(want == found) << "call " << n << " of " << calls << " failing (errno "
                                 << error << "), answer " << outcome.answer << ", stage "
                                 << outcome.stage << ": " << Difference(want, found) << "\n"
                                 << trace.text();
      if (outcome.answer != 1) {
        ++*failures;
        EXPECT_NE(std::string::npos, trace.text().find(dir->path() + "/"))
            << "the failure names the file\n" << trace.text();
      }
      dirs.push_back(dir->path());
      expected.push_back(want);
    }
    const std::vector<std::string> read = SnapshotsByDbfread(dirs);
    ASSERT_EQ(expected.size(), read.size());
    for (size_t i = 0; i < read.size(); ++i) {
      EXPECT_TRUE(expected[i] == read[i]) << "dbfread, call " << i + 1 << ": "
                                          << Difference(expected[i], read[i]);
    }
  }

  // Every kind of fault, and a kill before every call.
  void SweepAll(const Operation& op, const std::vector<std::string>& states) {
    int failures = 0;
    Sweep(op, states, faults::kWrite | faults::kSync | faults::kTruncate, EIO, false, &failures);
    Sweep(op, states, faults::kWrite, ENOSPC, false, &failures);
    Sweep(op, states, faults::kWrite, ENOSPC, true, &failures);
    Sweep(op, states, faults::kRead, EIO, false, &failures);
    EXPECT_GT(failures, 10) << "the faults reached the bookings";
    Kills(op, states);
  }

  // Killed before each call in turn: once the tables are opened again they
  // hold one of the states, the last one whenever the child reported done.
  void Kills(const Operation& op, const std::vector<std::string>& states) {
    TempDir* counting = Fresh();
    faults::Plan plan;
    plan.match = counting->path() + "/";
    Run(counting->path(), op, &plan);
    const long calls = faults::Count();
    std::vector<std::string> dirs;
    std::vector<std::string> seen;
    for (long n = 1; n <= calls; ++n) {
      TempDir* dir = Fresh();
      const pid_t pid = fork();
      if (pid == 0) {
        faults::Plan kill;
        kill.match = dir->path() + "/";
        kill.failAt = n;
        kill.kill = true;
        const Outcome outcome = Run(dir->path(), op, &kill);
        _exit(outcome.answer == 1 ? 0 : 1);
      }
      int status = 0;
      waitpid(pid, &status, 0);
      const std::string state = Snapshot(dir->path());
      const bool known = std::find(states.begin(), states.end(), state) != states.end();
      EXPECT_TRUE(known) << "killed before call " << n << " of " << calls << ": "
                         << Difference(states.front(), state);
      if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        EXPECT_TRUE(states.back() == state) << "reported done, killed before call " << n << ": "
                                            << Difference(states.back(), state);
      }
      dirs.push_back(dir->path());
      seen.push_back(state);
    }
    const std::vector<std::string> read = SnapshotsByDbfread(dirs);
    ASSERT_EQ(seen.size(), read.size());
    for (size_t i = 0; i < read.size(); ++i) {
      EXPECT_TRUE(seen[i] == read[i]) << "dbfread after kill " << i + 1 << ": "
                                      << Difference(seen[i], read[i]);
    }
  }

  std::vector<std::unique_ptr<TempDir>> dirs_;
};

TEST_F(LevelFaults, DispenseWithLevels) {
  const Operation op = [](slave& s) {
    char frm[] = "(101:1.000)(102:2.000)(50:5.000)";
    const int result = s.Dispense(frm, 1.0, 1.0, 0, 1, 0, 0);
    Outcome outcome;
    outcome.answer = result == 1 && s.LevelsNotBooked() == 0 ? 1 : 0;
    outcome.stage = outcome.answer;
    return outcome;
  };
  SweepAll(op, States(op));
}

TEST_F(LevelFaults, UpdateLevelsOfTwentyCircuits) {
  const Operation op = [](slave& s) {
    int circuits[20];
    double qnts[20];
    for (int i = 0; i < 20; ++i) {
      circuits[i] = i + 1;
      qnts[i] = 1.0 + i;
    }
    Outcome outcome;
    outcome.answer = s.UpdateLevels(20, circuits, qnts, 1.0, 0);
    outcome.stage = outcome.answer;
    return outcome;
  };
  SweepAll(op, States(op));
}

// Switching a linked pair to independent tanks books the cistern table
// (a new cistern appended, the old one's users counted down), then Write
// books the tanks: two bookings, each whole or absent.
TEST_F(LevelFaults, SwitchOfLinkedTanksAndItsWrite) {
  const Operation switchOnly = [](slave& s) {
    ColourantInDispenser c(&s);
    Outcome outcome;
    outcome.answer = c.Read(50) && c.SwitchToMultiTank() ? 1 : 0;
    outcome.stage = outcome.answer;
    return outcome;
  };
  const Operation both = [](slave& s) {
    ColourantInDispenser c(&s);
    Outcome outcome;
    if (!c.Read(50) || !c.SwitchToMultiTank()) return outcome;
    outcome.stage = 1;
    if (!c.Write()) return outcome;
    outcome.stage = 2;
    outcome.answer = 1;
    return outcome;
  };
  std::vector<std::string> states = States(switchOnly);
  TempDir* clean = Fresh();
  ASSERT_EQ(1, Run(clean->path(), both, nullptr).answer);
  states.push_back(Snapshot(clean->path()));
  ASSERT_NE(states[0], states[1]);
  ASSERT_NE(states[1], states[2]);
  SweepAll(both, states);
}

// A machine that keeps the levels of its circuits: reading a circuit's
// levels copies the machine's three figures (here 250 of 800, reserve 5,
// where the record says 500 of 1000, reserve 10) into its tank record.
class DriverLevelFaults : public LevelFaults {
 protected:
  void SetUp() override {
    DispenseEnv::SetUp();
    AddDispenser("LIQON");
    AddTanks({TankOf(1, 101, 500.0, 10.0, 1000.0), TankOf(2, 102, 500.0, 10.0, 1000.0)});
  }

  static Outcome ReadCircuitOne(slave& s) {
    Outcome outcome;
    qtest::Sim(s)->SetCircuitLevel(1, 250.0, 800.0, 5.0);
    double cur = 0, res = 0, max = 0;
    outcome.answer = s.TankQnts(1, &cur, &res, &max) == 1 && cur == 250.0 && max == 800.0;
    return outcome;
  }

  // Reads circuit one with each call of the given kinds failing in turn
  // (also writing only half); check(outcome, dir, what) after each.
  void EachFailure(int ops, const std::function<void(const Outcome&, const std::string&,
                                                     const std::string&)>& check) {
    for (const bool shortWrite : {false, true}) {
      TempDir* counting = Fresh();
      faults::Plan plan;
      plan.match = counting->path() + "/";
      plan.ops = ops;
      Run(counting->path(), ReadCircuitOne, &plan);
      const long calls = faults::Count();
      ASSERT_GT(calls, 0);
      for (long n = 1; n <= calls; ++n) {
        TempDir* dir = Fresh();
        plan.match = dir->path() + "/";
        plan.failAt = n;
        plan.shortWrite = shortWrite;
        TraceCapture trace;
        const Outcome outcome = Run(dir->path(), ReadCircuitOne, &plan);
        check(outcome, dir->path(),
              "call " + std::to_string(n) + " of " + std::to_string(calls) + " failing" +
                  (shortWrite ? " half" : "") + "\n" + trace.text());
      }
    }
  }
};

// Whichever read, write, sync or truncation of the tables fails, or
// writes only half, the record holds all of the machine's figures or
// none of them: never a new level beside an old maximum.
TEST_F(DriverLevelFaults, MachineFiguresReachTheRecordTogetherOrNotAtAll) {
  const std::vector<std::string> states = States(ReadCircuitOne);
  ASSERT_NE(states[0], states[1]);
  EachFailure(faults::kAll, [&states](const Outcome&, const std::string& dir,
                                      const std::string& what) {
    const std::string found = Snapshot(dir);
    EXPECT_TRUE(found == states[0] || found == states[1])
        << Difference(states[1], found) << ": " << what;
  });
}

// Whichever write, sync or truncation fails (or writes only half), the
// level read answers the machine's figures: a record that could not take
// them does not make the library report what the machine no longer holds.
TEST_F(DriverLevelFaults, AFailedCopyStillAnswersTheMachinesFigures) {
  EachFailure(faults::kWrite | faults::kSync | faults::kTruncate,
              [](const Outcome& outcome, const std::string&, const std::string& what) {
                EXPECT_EQ(1, outcome.answer) << what;
              });
}

// A machine whose driver reports the levels of its twelve tanks, every one
// of them other than its record says (the machine was refilled): 50 c of
// 1000, reserve 2 c, where record c says 100 c of 2000, reserve c. Whatever
// reads the levels of many circuits in one call copies the machine's
// figures into all their records in one booking: one journal sync for the
// copies, not one per circuit.
class MachineRefilled : public LevelFaults {
 protected:
  void SetUp() override {
    DispenseEnv::SetUp();
    AddDispenser();
    std::vector<qtest::TankRow> rows;
    for (int c = 1; c <= 12; ++c) rows.push_back(TankOf(c, 10 * c, 100.0 * c, c, 2000.0));
    AddTanks(rows);
  }

  static void Refill(slave& s) {
    for (int c = 1; c <= 12; ++c) qtest::Sim(s)->SetCircuitLevel(c, 50.0 * c, 1000.0, 2.0 * c);
  }

  // The syncs op makes on the tables and the journal, the machine refilled
  // just before it; *records: the tank table as the table class reads it
  // afterwards.
  long SyncsOf(const Operation& op, std::string* records = nullptr) {
    TempDir* dir = Fresh();
    faults::Plan plan;
    plan.match = dir->path() + "/";
    plan.ops = faults::kSync;
    const Outcome outcome = Run(dir->path(), [&op](slave& s) {
      Refill(s);
      return op(s);
    }, &plan);
    EXPECT_EQ(outcome.answer, 1) << "the operation works";
    const long syncs = faults::Count();
    if (records != nullptr) *records = Snapshot(dir->path());
    return syncs;
  }

  // The syncs of reading circuits 1..n one by one, each its own call.
  long SyncsOfReading(int n) {
    return SyncsOf([n](slave& s) {
      Outcome outcome;
      outcome.answer = 1;
      for (int c = 1; c <= n; ++c) {
        double cur = 0;
        if (s.TankQnts(c, &cur, nullptr, nullptr) != 1) outcome.answer = 0;
      }
      return outcome;
    });
  }

  // Every record with the machine's figures, less taken[c - 1] for circuit c.
  static std::string Refilled(const std::vector<double>& taken = {}) {
    std::string out;
    char line[128];
    for (int c = 1; c <= 12; ++c) {
      const double less = static_cast<size_t>(c) <= taken.size() ? taken[c - 1] : 0.0;
      snprintf(line, sizeof line, "T%d %.3f %.3f 0;", c, 50.0 * c - less, 1000.0);
      out += line;
    }
    return out;
  }
};

TEST_F(MachineRefilled, ReadingEveryCircuitCopiesTheFiguresInOneBooking) {
  // The first booking in the directory also makes the journal; each
  // further one syncs it the same number of times.
  const long first = SyncsOfReading(1);
  const long each = SyncsOfReading(2) - first;
  ASSERT_GT(each, 0);
  char formula[] = "(10:1.000)(20:1.000)(30:1.000)(40:1.000)(50:1.000)(60:1.000)"
                   "(70:1.000)(80:1.000)(90:1.000)(100:1.000)(110:1.000)(120:1.000)";
  struct Case {
    const char* name;
    Operation op;
    long bookings;  // the operation's own, besides the copies
    std::string records;
  };
  const std::vector<double> purged(12, 0.5);
  const std::vector<Case> cases = {
      {"purge", [](slave& s) {
         Outcome o;
         o.answer = s.Purge(0.5, nullptr, false, false);
         return o;
       }, 1, Refilled(purged)},
      {"selective purge", [](slave& s) {
         long colourants[] = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 120, 0};
         Outcome o;
         o.answer = s.SelectivePurge(colourants, 0.5);
         return o;
       }, 2, Refilled(purged)},  // dispensed in groups of 8
      {"levels by formula", [](slave& s) {
         char text[] = "(1:0.5)(2:0.5)(3:0.5)(4:0.5)(5:0.5)(6:0.5)(7:0.5)(8:0.5)(9:0.5)"
                       "(10:0.5)(11:0.5)(12:0.5)";
         Outcome o;
         o.answer = s.UpdateLevelsByFormula(text);
         return o;
       }, 1, Refilled(purged)},
      {"level check", [&formula](slave& s) {
         Outcome o;
         o.answer = s.CheckLevel(formula, 1.0, 1.0, 0, nullptr) == 2 ? 1 : 0;
         return o;
       }, 0, Refilled()},
      {"warning level", [&formula](slave& s) {
         Zu_IntArray circuits, colourants;
         Outcome o;
         o.answer = s.GetCircuitsUnderWarningLevel(formula, 1.0, 1.0, 0, circuits, colourants);
         return o;
       }, 0, Refilled()},
      {"tank report", [](slave& s) {
         s.DumpTanks();
         Outcome o;
         o.answer = 1;
         return o;
       }, 0, Refilled()},
  };
  for (const Case& c : cases) {
    std::string records;
    const long syncs = SyncsOf(c.op, &records);
    EXPECT_EQ(syncs, first + c.bookings * each) << c.name << ": a booking syncs " << each;
    EXPECT_EQ(records, c.records) << c.name;
  }
}

}  // namespace

namespace {

// A dispenser is selected with every tank of its map, or not at all: a
// tank record the disk would not give back never leaves a circuit looking
// as if it had no tank (a refill would pass it over and say done).
TEST_F(LevelFaults, SelectionUnderReadFaultsKeepsNoPartialTankMap) {
  TempDir* counting = Fresh();
  qtest::ScopedEnv data("QSLAVE_DATA", counting->path().c_str());
  faults::Plan plan;
  plan.match = counting->path() + "/";
  plan.ops = faults::kRead;
  faults::Arm(plan);
  {
    slave s(1);
    ASSERT_EQ(22, s.m_NumTanks);
  }
  const long calls = faults::Count();
  faults::Disarm();
  ASSERT_GT(calls, 3);
  int refused = 0;
  for (long n = 1; n <= calls; ++n) {
    TempDir* dir = Fresh();
    qtest::ScopedEnv here("QSLAVE_DATA", dir->path().c_str());
    plan.match = dir->path() + "/";
    plan.failAt = n;
    TraceCapture trace;
    faults::Arm(plan);
    slave s(1);
    faults::Disarm();
    if (s.m_DispId != 1) {
      ++refused;
      EXPECT_NE(std::string::npos, trace.text().find(dir->path() + "/")) << trace.text();
      continue;
    }
    ASSERT_EQ(22, s.m_NumTanks) << "read " << n << " of " << calls << " failing\n"
                                << trace.text();
    for (int t = 0; t < 22; ++t) {
      EXPECT_GE(s.m_TankRecNo[t], 1) << "tank " << t + 1 << ", read " << n << " failing\n"
                                     << trace.text();
    }
  }
  EXPECT_GT(refused, 0) << "the faults reached the selection";
}

}  // namespace
