// Bookings of the table class under disk faults: every read, write, sync
// and truncation of a booking failing in turn (EIO, ENOSPC, a write that
// stores half its bytes), the process killed before each of them, a power
// cut that loses what was not synced, and a file size limit (a full disk
// without needing root). For each: the answer says what the files hold, and
// the files (read by the table class and by python3-dbfread) hold the
// booking entirely or not at all.
#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fault_injection.h"
#include "host/qdbase.h"
#include "test_support.h"

namespace {

namespace faults = qtest::faults;
using qtest::ReadFile;
using qtest::TempDir;
using qtest::TraceCapture;
using qtest::WriteFile;

const QdbField kFields[] = {{"ID", 'N', 5, 0}, {"QTY", 'N', 10, 3}, {"NAME", 'C', 8, 0}};

// What the files hold: the booking entirely, not at all, or anything else.
enum State { kUntouched = 0, kBooked = 1, kBroken = -1 };

bool Bind(Qdbase& db, const std::string& dir, const char* base) {
  const char* names[] = {"ID"};
  const char* keys[] = {"ID"};
  return db.SetFiles(dir.c_str(), base, 1, names, keys) == 1 && db.Open() == 1;
}

// The booking under test: 10 off the QTY of ids 1..3 of table a, a record
// (id 4, QTY 40) appended to table b.
int Book(const std::string& dir) {
  Qdbase a, b;
  if (!Bind(a, dir, "a") || !Bind(b, dir, "b")) return 0;
  QdbBooking booking(&a, &b);
  if (!booking.Ok()) return 0;
  for (long id = 1; id <= 3; ++id) {
    double qty = 0;
    if (a.Seek(static_cast<double>(id)) != 1 || !a.ReadDouble("QTY", &qty)) return 0;
    if (!a.WriteDouble("QTY", qty - 10.0)) return 0;
  }
  if (!b.Append() || !b.WriteLong("ID", 4) || !b.WriteDouble("QTY", 40.0)) return 0;
  return booking.Commit();
}

// The state of the tables as the table class reads them (opening them
// completes an unfinished booking first).
State StateOf(const std::string& dir) {
  Qdbase a, b;
  if (!Bind(a, dir, "a") || !Bind(b, dir, "b")) return kBroken;
  std::vector<double> qty;
  for (long id = 1; id <= 3; ++id) {
    double q = 0;
    if (a.Seek(static_cast<double>(id)) != 1 || !a.ReadDouble("QTY", &q)) return kBroken;
    qty.push_back(q);
  }
  const bool untouched = qty == std::vector<double>{100.0, 200.0, 300.0} && b.RecCount() == 3;
  double added = 0;
  const bool booked = qty == std::vector<double>{90.0, 190.0, 290.0} && b.RecCount() == 4 &&
                      b.Seek(4.0) == 1 && b.ReadDouble("QTY", &added) && added == 40.0;
  return untouched ? kUntouched : booked ? kBooked : kBroken;
}

// The same, as python3-dbfread reads every directory: one line per
// directory, "0", "1" or "-1".
std::vector<int> StatesByDbfread(const std::vector<std::string>& dirs) {
  std::string list = "[";
  for (const std::string& d : dirs) list += qtest::PyQuote(d) + ",";
  list += "]";
  const std::string script =
      "import dbfread\n"
      "for d in " + list + ":\n"
      "    try:\n"
      "        a = [r['QTY'] for r in dbfread.DBF(d + '/a.dbf')]\n"
      "        b = [(r['ID'], r['QTY']) for r in dbfread.DBF(d + '/b.dbf')]\n"
      "        if a == [100, 200, 300] and len(b) == 3: print(0)\n"
      "        elif a == [90, 190, 290] and len(b) == 4 and b[3] == (4, 40): print(1)\n"
      "        else: print(-1)\n"
      "    except Exception:\n"
      "        print(-1)\n";
  std::string out;
  qtest::RunPython(script, &out);
  std::vector<int> states;
  size_t pos = 0;
  while (pos < out.size()) {
    const size_t end = out.find('\n', pos);
    states.push_back(std::stoi(out.substr(pos, end - pos)));
    pos = end == std::string::npos ? out.size() : end + 1;
  }
  return states;
}

class BookingFaults : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* base : {"a", "b"}) {
      ASSERT_EQ(1, Qdbase::Create(pristine_.path().c_str(), base, 3, kFields));
      Qdbase db;
      ASSERT_TRUE(Bind(db, pristine_.path(), base));
      for (long id = 1; id <= 3; ++id) {
        ASSERT_EQ(1, db.Append());
        ASSERT_EQ(1, db.WriteLong("ID", id));
        ASSERT_EQ(1, db.WriteDouble("QTY", 100.0 * id));
        ASSERT_EQ(1, db.WriteString("NAME", base));
      }
    }
  }
  void TearDown() override { faults::Disarm(); }

  // A fresh directory holding the pristine tables (and no journal).
  TempDir* Fresh() {
    dirs_.push_back(std::make_unique<TempDir>());
    for (const char* name : {"a.dbf", "b.dbf"}) {
      WriteFile(dirs_.back()->file(name), ReadFile(pristine_.file(name)));
    }
    return dirs_.back().get();
  }

  // How many calls of the given kinds the booking makes on its directory.
  long CallsOfABooking(int ops) {
    TempDir* dir = Fresh();
    faults::Plan plan;
    plan.match = dir->path() + "/";
    plan.ops = ops;
    faults::Arm(plan);
    EXPECT_EQ(1, Book(dir->path()));
    const long count = faults::Count();
    faults::Disarm();
    return count;
  }

  // Fails each call of the given kinds in turn; every answer must match
  // what the files hold, and a failure must be traced with a file's name.
  void Sweep(int ops, int error, bool shortWrite, int* failures) {
    const long calls = CallsOfABooking(ops);
    ASSERT_GT(calls, 0);
    std::vector<std::string> paths;
    std::vector<int> answers;
    for (long n = 1; n <= calls; ++n) {
      TempDir* dir = Fresh();
      faults::Plan plan;
      plan.match = dir->path() + "/";
      plan.ops = ops;
      plan.failAt = n;
      plan.error = error;
      plan.shortWrite = shortWrite;
      TraceCapture trace;
      faults::Arm(plan);
      const int answer = Book(dir->path());
      faults::Disarm();
      const State state = StateOf(dir->path());
      EXPECT_EQ(answer == 1 ? kBooked : kUntouched, state)
          << "call " << n << " of " << calls << " failing (errno " << error << "), answer "
          << answer << "\n" << trace.text();
      if (answer == 0) {
        ++*failures;
        EXPECT_NE(std::string::npos, trace.text().find(dir->path() + "/"))
            << "the failure names the file\n" << trace.text();
      }
      paths.push_back(dir->path());
      answers.push_back(answer);
    }
    const std::vector<int> read = StatesByDbfread(paths);
    ASSERT_EQ(read.size(), answers.size());
    for (size_t i = 0; i < read.size(); ++i) {
      EXPECT_EQ(answers[i] == 1 ? 1 : 0, read[i]) << "dbfread, call " << i + 1;
    }
  }

  TempDir pristine_;
  std::vector<std::unique_ptr<TempDir>> dirs_;
};

TEST_F(BookingFaults, EveryFailedWriteOrSyncLeavesTheBookingWholeOrAbsent) {
  int failures = 0;
  Sweep(faults::kWrite | faults::kSync | faults::kTruncate, EIO, false, &failures);
  Sweep(faults::kWrite, ENOSPC, false, &failures);
  Sweep(faults::kWrite, ENOSPC, true, &failures);
  EXPECT_GT(failures, 10) << "the faults reached the booking";
}

TEST_F(BookingFaults, EveryFailedReadLeavesTheBookingWholeOrAbsent) {
  int failures = 0;
  Sweep(faults::kRead, EIO, false, &failures);
  EXPECT_GT(failures, 3);
}

// Killed before each call of the booking in turn: once the tables are
// opened again (which completes an unfinished booking), they hold it
// entirely or not at all, and entirely whenever the booking was reported.
TEST_F(BookingFaults, KilledAtEveryCallTheBookingIsWholeOrAbsent) {
  const long calls = CallsOfABooking(faults::kAll);
  std::vector<std::string> paths;
  std::vector<int> expected;
  int wholeAfterKill = 0;
  for (long n = 1; n <= calls + 1; ++n) {
    TempDir* dir = Fresh();
    const pid_t pid = fork();
    if (pid == 0) {
      faults::Plan plan;
      plan.match = dir->path() + "/";
      plan.failAt = n;
      plan.kill = true;
      faults::Arm(plan);
      _exit(Book(dir->path()) == 1 ? 0 : 1);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    const bool killed = WIFSIGNALED(status);
    const bool reported = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    EXPECT_EQ(n <= calls, killed) << "call " << n;
    const State state = StateOf(dir->path());
    EXPECT_NE(kBroken, state) << "killed before call " << n << " of " << calls;
    if (reported) {
      EXPECT_EQ(kBooked, state);
    }
    if (killed && state == kBooked) ++wholeAfterKill;
    paths.push_back(dir->path());
    expected.push_back(state == kBooked ? 1 : 0);
  }
  EXPECT_GT(wholeAfterKill, 0) << "some kills came after the journal was synced";
  EXPECT_EQ(expected, StatesByDbfread(paths));
}

// A power cut after a booking: the tables' writes never reached the disk,
// only the synced journal did. The machine starts again (another boot id)
// and the first process that opens the tables writes the booking again.
TEST_F(BookingFaults, PowerCutAfterABookingIsRepairedFromTheJournal) {
  TempDir* dir = Fresh();
  ASSERT_EQ(1, Book(dir->path()));
  // What the disk held: the tables as they were, the journal as written.
  for (const char* name : {"a.dbf", "b.dbf"}) {
    WriteFile(dir->file(name), ReadFile(pristine_.file(name)));
  }
  // The journal's header names the boot that wrote it; make it another
  // one, with the header's checksum made anew.
  const std::string journal = dir->file("qslave.jnl");
  ASSERT_EQ(0, qtest::RunPython(
                   "import zlib, struct\n"
                   "p = " + qtest::PyQuote(journal) + "\n"
                   "h = bytearray(open(p, 'rb').read())\n"
                   "h[8:44] = b'00000000-0000-0000-0000-000000000000'\n"
                   "h[60:64] = struct.pack('<I', zlib.crc32(bytes(h[:60])) & 0xffffffff)\n"
                   "open(p, 'wb').write(h)\n"));
  TraceCapture trace;
  EXPECT_EQ(kBooked, StateOf(dir->path()));
  EXPECT_NE(std::string::npos, trace.text().find("completed")) << trace.text();
  EXPECT_EQ(std::vector<int>{1}, StatesByDbfread({dir->path()}));
  // The journal starts empty for the new boot.
  EXPECT_EQ(64u, ReadFile(journal).size());
}

// A journal that cannot be read while a booking waits in it to be
// completed: the open fails, and the booking stays in the journal for the
// next process, which completes it. A failed read is never taken for an
// empty or damaged journal (that would drop the booking).
TEST_F(BookingFaults, FailedReadOfAWaitingJournalKeepsTheBooking) {
  // A booking made, then the tables as they were before it and the
  // journal's applied mark moved back before its entry: a process killed
  // in the middle of writing the tables, in this boot.
  const auto waiting = [&]() {
    TempDir* dir = Fresh();
    EXPECT_EQ(1, Book(dir->path()));
    for (const char* name : {"a.dbf", "b.dbf"}) {
      WriteFile(dir->file(name), ReadFile(pristine_.file(name)));
    }
    EXPECT_EQ(0, qtest::RunPython(
                     "import zlib, struct\n"
                     "p = " + qtest::PyQuote(dir->file("qslave.jnl")) + "\n"
                     "h = bytearray(open(p, 'rb').read())\n"
                     "assert len(h) > 64\n"
                     "h[44:52] = struct.pack('<Q', 64)\n"
                     "h[60:64] = struct.pack('<I', zlib.crc32(bytes(h[:60])) & 0xffffffff)\n"
                     "open(p, 'wb').write(h)\n"));
    return dir;
  };
  faults::Plan plan;
  plan.ops = faults::kRead;
  TempDir* counting = waiting();
  plan.match = counting->file("qslave.jnl");
  faults::Arm(plan);
  EXPECT_EQ(kBooked, StateOf(counting->path()));
  const long calls = faults::Count();
  faults::Disarm();
  ASSERT_GT(calls, 1) << "the header and the entries are read";
  for (long n = 1; n <= calls; ++n) {
    TempDir* dir = waiting();
    plan.match = dir->file("qslave.jnl");
    plan.failAt = n;
    TraceCapture trace;
    faults::Arm(plan);
    const State faulted = StateOf(dir->path());
    faults::Disarm();
    EXPECT_NE(kUntouched, faulted) << "read " << n << " of the journal failing\n"
                                   << trace.text();
    EXPECT_EQ(kBooked, StateOf(dir->path())) << "read " << n << " of the journal failing\n"
                                             << trace.text();
  }
}

// Entries that no booking writes (a part naming the journal itself, a
// directory, a file that is not there, or starting past the end of its
// table) are left out when the journal is replayed: the tables open and
// hold the bookings, and nothing else in the directory is written.
TEST_F(BookingFaults, ReplayWritesOnlyIntoTheTablesOfTheDirectory) {
  TempDir* dir = Fresh();
  ASSERT_EQ(1, Book(dir->path()));
  const std::string tableBefore = ReadFile(dir->file("a.dbf"));
  ASSERT_EQ(0, qtest::RunPython(
                   "import os, struct, zlib\n"
                   "d = " + qtest::PyQuote(dir->path()) + "\n"
                   "def entry(parts):\n"
                   "    body = struct.pack('<I', len(parts))\n"
                   "    for name, inode, offset, data in parts:\n"
                   "        body += struct.pack('<H', len(name)) + name\n"
                   "        body += struct.pack('<QQI', inode, offset, len(data)) + data\n"
                   "    head = b'QJE1' + struct.pack('<I', 8 + len(body) + 4)\n"
                   "    e = head + body\n"
                   "    return e + struct.pack('<I', zlib.crc32(e) & 0xffffffff)\n"
                   "a = os.stat(d + '/a.dbf')\n"
                   "j = os.stat(d + '/qslave.jnl')\n"
                   "extra = entry([(b'qslave.jnl', j.st_ino, 0, b'XXXXXXXX'),\n"
                   "               (b'..', 0, 0, b'X'), (b'gone.dbf', 1, 0, b'X'),\n"
                   "               (b'a.dbf', a.st_ino, a.st_size + 1000, b'Z' * 10)])\n"
                   "p = d + '/qslave.jnl'\n"
                   "h = bytearray(open(p, 'rb').read())\n"
                   "end = len(h)\n"
                   "h += extra\n"
                   "h[44:52] = struct.pack('<Q', end)\n"
                   "h[60:64] = struct.pack('<I', zlib.crc32(bytes(h[:60])) & 0xffffffff)\n"
                   "open(p, 'wb').write(h)\n"));
  TraceCapture trace;
  EXPECT_EQ(kBooked, StateOf(dir->path())) << trace.text();
  EXPECT_EQ(ReadFile(dir->file("a.dbf")), tableBefore);
  EXPECT_NE(access(dir->file("gone.dbf").c_str(), F_OK), 0);
  const std::string text = trace.text();
  EXPECT_NE(text.find("a journalled write to \"qslave.jnl\" was not made: not a table"),
            std::string::npos) << text;
  EXPECT_NE(text.find("a journalled write to \"..\" was not made: not a table"),
            std::string::npos) << text;
  EXPECT_NE(text.find("gone.dbf: a journalled write was not made: the file is gone"),
            std::string::npos) << text;
  EXPECT_NE(text.find("a.dbf: a journalled write past the end of the file was not made"),
            std::string::npos) << text;
  EXPECT_EQ(std::vector<int>{1}, StatesByDbfread({dir->path()}));
}

// A file size limit stands in for a full disk (no root needed): the
// booking's append, or its journal entry, does not fit.
TEST_F(BookingFaults, FileSizeLimitFailsTheBookingCleanly) {
  for (long room : {10L, 100L, 400L}) {
    TempDir* dir = Fresh();
    const long tableSize = static_cast<long>(ReadFile(dir->file("b.dbf")).size());
    const pid_t pid = fork();
    if (pid == 0) {
      signal(SIGXFSZ, SIG_IGN);
      struct rlimit limit = {static_cast<rlim_t>(tableSize + room),
                             static_cast<rlim_t>(tableSize + room)};
      setrlimit(RLIMIT_FSIZE, &limit);
      _exit(Book(dir->path()) == 1 ? 0 : 1);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    const State state = StateOf(dir->path());
    EXPECT_EQ(WEXITSTATUS(status) == 0 ? kBooked : kUntouched, state) << "room " << room;
    if (room == 10) {
      EXPECT_EQ(1, WEXITSTATUS(status)) << "the append cannot fit";
    }
    EXPECT_EQ(std::vector<int>{state}, StatesByDbfread({dir->path()}));
  }
}

}  // namespace
