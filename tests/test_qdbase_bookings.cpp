// Bookings of the table class: writes to several tables that reach the
// files together or not at all, the lock of a directory of tables shared
// with other processes, tables brought up to date after another process
// changed them, and the journal that completes an interrupted booking.
// Faults of the disk during bookings are in test_booking_faults.cpp.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "host/qdbase.h"
#include "test_support.h"

namespace {

using qtest::ReadFile;
using qtest::TempDir;
using qtest::TraceCapture;

const QdbField kFields[] = {{"ID", 'N', 5, 0}, {"QTY", 'N', 10, 3}, {"NAME", 'C', 8, 0}};

class Bookings : public ::testing::Test {
 protected:
  void SetUp() override {
    savedWait_ = Qdbase::LockWait();
    for (const char* base : {"a", "b"}) {
      ASSERT_EQ(1, Qdbase::Create(dir.path().c_str(), base, 3, kFields));
      Qdbase db;
      Bind(db, base);
      for (long id = 1; id <= 3; ++id) {
        ASSERT_EQ(1, db.Append());
        ASSERT_EQ(1, db.WriteLong("ID", id));
        ASSERT_EQ(1, db.WriteDouble("QTY", 100.0 * id));
        ASSERT_EQ(1, db.WriteString("NAME", base));
      }
    }
  }
  void TearDown() override { Qdbase::SetLockWait(savedWait_); }

  void Bind(Qdbase& db, const char* base) {
    const char* names[] = {"ID"};
    const char* keys[] = {"ID"};
    ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), base, 1, names, keys));
    ASSERT_EQ(1, db.Open());
  }

  // QTY of the record with this id, as a fresh object reads the file.
  double QtyOnDisk(const char* base, long id) {
    Qdbase db;
    Bind(db, base);
    double qty = -1.0;
    if (db.Seek(static_cast<double>(id)) != 1 || !db.ReadDouble("QTY", &qty)) return -999.0;
    return qty;
  }

  long CountOnDisk(const char* base) {
    Qdbase db;
    Bind(db, base);
    return db.RecCount();
  }

  std::string FileOf(const char* base) { return dir.file(std::string(base) + ".dbf"); }

  static size_t Byte(const std::string& bytes, size_t at) {
    return static_cast<unsigned char>(bytes[at]);
  }

  // Runs body in a child process; answers its exit status (0 when body
  // returned true).
  template <typename Body>
  int InChild(Body body) {
    const pid_t pid = fork();
    if (pid == 0) _exit(body() ? 0 : 1);
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  TempDir dir;
  int savedWait_ = 0;
};

TEST_F(Bookings, CommitWritesEveryTableTogether) {
  Qdbase a, b;
  Bind(a, "a");
  Bind(b, "b");
  const std::string beforeA = ReadFile(FileOf("a"));
  const std::string beforeB = ReadFile(FileOf("b"));
  {
    QdbBooking booking(&a, &b);
    ASSERT_EQ(1, booking.Ok());
    ASSERT_EQ(1, a.Seek(2.0));
    ASSERT_EQ(1, a.WriteDouble("QTY", 150.5));
    ASSERT_EQ(1, b.Append());
    ASSERT_EQ(1, b.WriteLong("ID", 4));
    ASSERT_EQ(1, b.WriteDouble("QTY", 7.0));
    // Nothing has reached the files yet.
    EXPECT_EQ(beforeA, ReadFile(FileOf("a")));
    EXPECT_EQ(beforeB, ReadFile(FileOf("b")));
    EXPECT_EQ(1, booking.Commit());
  }
  EXPECT_EQ(150.5, QtyOnDisk("a", 2));
  EXPECT_EQ(7.0, QtyOnDisk("b", 4));
  EXPECT_EQ(4, CountOnDisk("b"));
  const std::string afterB = ReadFile(FileOf("b"));
  EXPECT_EQ(4, afterB[4]) << "the header counts the appended record";
  EXPECT_EQ('\x1A', afterB.back()) << "the end-of-file mark follows the new record";
  EXPECT_EQ(beforeB.size() + 24, afterB.size());  // one record of 24 bytes
}

TEST_F(Bookings, ReadsInsideABookingSeeItsOwnWritesOthersSeeThemAfterCommit) {
  Qdbase a, other;
  Bind(a, "a");
  Bind(other, "a");
  QdbBooking booking(&a);
  ASSERT_EQ(1, booking.Ok());
  ASSERT_EQ(1, a.Seek(1.0));
  ASSERT_EQ(1, a.WriteDouble("QTY", 99.0));
  double qty = 0;
  ASSERT_EQ(1, a.ReadDouble("QTY", &qty));
  EXPECT_EQ(99.0, qty);
  ASSERT_EQ(1, other.Go(1));
  ASSERT_EQ(1, other.ReadDouble("QTY", &qty));
  EXPECT_EQ(100.0, qty);
  ASSERT_EQ(1, booking.Commit());
  ASSERT_EQ(1, other.Go(1));
  ASSERT_EQ(1, other.ReadDouble("QTY", &qty));
  EXPECT_EQ(99.0, qty);
}

// A booking finds its records by number in whatever order they are
// changed, a table's first records and those far beyond (past 65,536 they
// are kept apart) alike, and writes each where it belongs.
TEST_F(Bookings, RecordsChangedInAnyOrderAreEachWrittenInPlace) {
  // The records are put into the file directly (ID 1 to n, QTY blank): the
  // table class is what is tried, not how fast it appends.
  const long n = 65540;
  ASSERT_EQ(1, Qdbase::Create(dir.path().c_str(), "c", 3, kFields));
  std::string file = ReadFile(FileOf("c"));
  const size_t headerLength = Byte(file, 8) | Byte(file, 9) << 8;
  const size_t recordLength = Byte(file, 10) | Byte(file, 11) << 8;
  ASSERT_EQ(24u, recordLength);  // the flag, ID 5, QTY 10, NAME 8
  file.resize(headerLength);
  file.reserve(headerLength + static_cast<size_t>(n) * recordLength + 1);
  for (long id = 1; id <= n; ++id) {
    char record[32];
    snprintf(record, sizeof record, " %5ld%18s", id, "");
    file.append(record, recordLength);
  }
  file += '\x1A';
  for (int i = 0; i < 4; ++i) file[4 + i] = static_cast<char>((n >> (8 * i)) & 0xFF);
  qtest::WriteFile(FileOf("c"), file);

  Qdbase c;
  Bind(c, "c");
  ASSERT_EQ(n, c.RecCount());
  const long order[] = {65539, 2, 65537, 1, 65540, 3, 65536, 65538};
  {
    QdbBooking booking(&c);
    ASSERT_EQ(1, booking.Ok());
    for (long rec : order) {
      ASSERT_EQ(1, c.Go(rec));
      ASSERT_EQ(1, c.WriteDouble("QTY", static_cast<double>(rec) / 8.0));
    }
    // Read again within the booking, in another order.
    for (long rec : {1L, 65540L, 3L, 65537L, 2L}) {
      double qty = 0.0;
      ASSERT_EQ(1, c.Go(rec));
      ASSERT_EQ(1, c.ReadDouble("QTY", &qty));
      EXPECT_EQ(static_cast<double>(rec) / 8.0, qty) << rec;
    }
    ASSERT_EQ(1, booking.Commit());
  }
  // Each QTY where its record is in the file, every other record as it was.
  const std::string after = ReadFile(FileOf("c"));
  ASSERT_EQ(file.size(), after.size());
  std::string expected = file;
  for (long rec : order) {
    char qty[16];
    snprintf(qty, sizeof qty, "%10.3f", static_cast<double>(rec) / 8.0);
    expected.replace(headerLength + static_cast<size_t>(rec - 1) * recordLength + 6, 10, qty);
  }
  EXPECT_TRUE(expected == after) << "the file differs from the records written in place";
}

TEST_F(Bookings, AbandonedBookingChangesNoFileAndNoIndex) {
  Qdbase a;
  Bind(a, "a");
  const std::string before = ReadFile(FileOf("a"));
  {
    QdbBooking booking(&a);
    ASSERT_EQ(1, booking.Ok());
    ASSERT_EQ(1, a.Seek(3.0));
    ASSERT_EQ(1, a.WriteLong("ID", 30));  // a key
    ASSERT_EQ(1, a.Append());
    ASSERT_EQ(1, a.WriteLong("ID", 0));
    ASSERT_EQ(1, a.Seek(1.0));
    ASSERT_EQ(1, a.Delete());
    EXPECT_EQ(4, a.RecCount());
  }
  EXPECT_EQ(before, ReadFile(FileOf("a")));
  EXPECT_EQ(3, a.RecCount());
  EXPECT_EQ(1, a.Seek(3.0));
  EXPECT_EQ(3, a.RecNo());
  EXPECT_EQ(0, a.Seek(30.0));
  ASSERT_EQ(1, a.Go(1));
  EXPECT_EQ(0, a.IsDeleted());
}

TEST_F(Bookings, NestedBookingJoinsTheOuterOne) {
  Qdbase a, b;
  Bind(a, "a");
  Bind(b, "b");
  const std::string before = ReadFile(FileOf("a"));
  {
    QdbBooking outer(&a);
    ASSERT_EQ(1, outer.Ok());
    {
      QdbBooking inner(&a, &b);
      ASSERT_EQ(1, inner.Ok());
      ASSERT_EQ(1, a.Seek(1.0));
      ASSERT_EQ(1, a.WriteDouble("QTY", 1.5));
      ASSERT_EQ(1, b.Seek(1.0));
      ASSERT_EQ(1, b.WriteDouble("QTY", 2.5));
      EXPECT_EQ(1, inner.Commit());
    }
    EXPECT_EQ(before, ReadFile(FileOf("a"))) << "the inner commit writes nothing";
    EXPECT_EQ(1, outer.Commit());
  }
  EXPECT_EQ(1.5, QtyOnDisk("a", 1));
  EXPECT_EQ(2.5, QtyOnDisk("b", 1)) << "a table the inner booking brought in is written too";
}

TEST_F(Bookings, WritingTheValueAFieldHoldsChangesNoByte) {
  Qdbase a;
  Bind(a, "a");
  const std::string before = ReadFile(FileOf("a"));
  QdbBooking booking(&a);
  ASSERT_EQ(1, a.Seek(2.0));
  ASSERT_EQ(1, a.WriteDouble("QTY", 200.0));
  ASSERT_EQ(1, a.WriteString("NAME", "a"));
  ASSERT_EQ(1, booking.Commit());
  EXPECT_EQ(before, ReadFile(FileOf("a")));
}

// A booking is in progress from its start to its end; one that joins it
// needs no lock, also when told not to wait.
TEST_F(Bookings, InProgressFromStartToEnd) {
  Qdbase a;
  Bind(a, "a");
  EXPECT_EQ(0, QdbBooking::InProgress());
  {
    QdbBooking booking(&a);
    ASSERT_EQ(1, booking.Ok());
    EXPECT_EQ(1, QdbBooking::InProgress());
    {
      QdbBooking joined(0, &a);
      EXPECT_EQ(1, joined.Ok());
      ASSERT_EQ(1, a.Go(1));
      ASSERT_EQ(1, a.WriteDouble("QTY", 7.0));
      EXPECT_EQ(1, joined.Commit());
    }
    EXPECT_EQ(1, booking.Commit());
    EXPECT_EQ(0, QdbBooking::InProgress());
  }
  EXPECT_EQ(7.0, QtyOnDisk("a", 1));
  {
    QdbBooking abandoned(0, &a);
    ASSERT_EQ(1, abandoned.Ok());
    EXPECT_EQ(1, QdbBooking::InProgress());
  }
  EXPECT_EQ(0, QdbBooking::InProgress());
}

TEST_F(Bookings, LockHeldByAnotherProcessRefusesWithinTheBound) {
  qtest::TablesHeldElsewhere other(dir.path(), "a", "ID");
  ASSERT_TRUE(other.held());
  Qdbase::SetLockWait(200);
  Qdbase a;
  Bind(a, "a");
  {
    TraceCapture trace;
    QdbBooking booking(&a);
    EXPECT_EQ(0, booking.Ok());
    EXPECT_EQ(0, booking.Commit());
    EXPECT_NE(std::string::npos, trace.text().find("are held by another process (waited 200 ms"))
        << trace.text();
  }
  {
    TraceCapture trace;
    ASSERT_EQ(1, a.Go(1));
    EXPECT_EQ(0, a.WriteDouble("QTY", 5.0));
    EXPECT_NE(std::string::npos, trace.text().find("write refused")) << trace.text();
  }
  {
    // A booking told not to wait gives up at once.
    TraceCapture trace;
    QdbBooking booking(0, &a);
    EXPECT_EQ(0, booking.Ok());
    EXPECT_EQ(0, QdbBooking::InProgress());
    EXPECT_NE(std::string::npos, trace.text().find("are held by another process (waited 0 ms"))
        << trace.text();
  }
  EXPECT_TRUE(other.Release());
  EXPECT_EQ(1, a.WriteDouble("QTY", 5.0));
  EXPECT_EQ(5.0, QtyOnDisk("a", 1));
}

// A long-lived process and another one taking turns: each booking reads
// the records it changes from the file, and a record appended by the other
// process is seen before anything is appended after it.
TEST_F(Bookings, AnotherProcessesWritesAreSeenByTheNextBooking) {
  Qdbase a;
  Bind(a, "a");
  ASSERT_EQ(1, a.Seek(1.0));
  {
    QdbBooking booking(&a);
    ASSERT_EQ(1, a.Seek(1.0));
    double qty = 0;
    ASSERT_EQ(1, a.ReadDouble("QTY", &qty));
    ASSERT_EQ(1, a.WriteDouble("QTY", qty - 1.0));
    ASSERT_EQ(1, booking.Commit());
  }
  EXPECT_EQ(0, InChild([&] {
    Qdbase other;
    const char* names[] = {"ID"};
    const char* keys[] = {"ID"};
    other.SetFiles(dir.path().c_str(), "a", 1, names, keys);
    if (!other.Open() || other.Seek(1.0) != 1) return false;
    QdbBooking booking(&other);
    double qty = 0;
    other.ReadDouble("QTY", &qty);
    other.WriteDouble("QTY", qty - 50.0);
    other.Append();
    other.WriteLong("ID", 4);
    return booking.Commit() == 1;
  }));
  {
    QdbBooking booking(&a);
    ASSERT_EQ(1, booking.Ok());
    EXPECT_EQ(4, a.RecCount()) << "the other process's record is seen";
    ASSERT_EQ(1, a.Seek(1.0));
    double qty = 0;
    ASSERT_EQ(1, a.ReadDouble("QTY", &qty));
    EXPECT_EQ(49.0, qty) << "the other process's booking is read, not a stale copy";
    ASSERT_EQ(1, a.WriteDouble("QTY", qty - 1.0));
    ASSERT_EQ(1, a.Append());
    ASSERT_EQ(1, a.WriteLong("ID", 5));
    ASSERT_EQ(1, booking.Commit());
  }
  EXPECT_EQ(48.0, QtyOnDisk("a", 1));
  EXPECT_EQ(5, CountOnDisk("a"));
  EXPECT_NE(-999.0, QtyOnDisk("a", 4)) << "record 4 survived the second append";
  EXPECT_NE(-999.0, QtyOnDisk("a", 5));
}

TEST_F(Bookings, AnotherProcessesPackIsSeen) {
  Qdbase a;
  Bind(a, "a");
  const long generation = a.Generation();
  EXPECT_EQ(0, InChild([&] {
    Qdbase other;
    const char* names[] = {"ID"};
    const char* keys[] = {"ID"};
    other.SetFiles(dir.path().c_str(), "a", 1, names, keys);
    if (!other.Open() || other.Seek(1.0) != 1 || !other.Delete()) return false;
    return other.Pack() == 1;
  }));
  EXPECT_EQ(1, a.Top());
  EXPECT_EQ(2, a.RecCount());
  EXPECT_NE(generation, a.Generation());
  long id = 0;
  ASSERT_EQ(1, a.ReadLong("ID", &id));
  EXPECT_EQ(2, id);
  {
    QdbBooking booking(&a);
    ASSERT_EQ(1, a.Seek(3.0));
    ASSERT_EQ(1, a.WriteDouble("QTY", 3.5));
    ASSERT_EQ(1, booking.Commit());
  }
  EXPECT_EQ(3.5, QtyOnDisk("a", 3));
  EXPECT_EQ(2, CountOnDisk("a"));
}

TEST_F(Bookings, ManyBookingsKeepTheJournalSmall) {
  Qdbase a;
  Bind(a, "a");
  for (int i = 0; i < 600; ++i) {
    QdbBooking booking(&a);
    ASSERT_EQ(1, a.Seek(1.0));
    ASSERT_EQ(1, a.WriteDouble("QTY", i));
    ASSERT_EQ(1, a.WriteString("NAME", std::to_string(i).c_str()));
    ASSERT_EQ(1, a.Append());
    ASSERT_EQ(1, a.WriteLong("ID", 1000 + i));
    ASSERT_EQ(1, booking.Commit());
  }
  struct stat st;
  ASSERT_EQ(0, stat(dir.file("qslave.jnl").c_str(), &st));
  EXPECT_LT(st.st_size, 300 * 1024) << "checkpoints empty the journal as it grows";
  EXPECT_EQ(599.0, QtyOnDisk("a", 1));
  EXPECT_EQ(603, CountOnDisk("a"));
}

TEST_F(Bookings, TornJournalEntryIsDroppedAndChangesNothing) {
  Qdbase a;
  Bind(a, "a");
  {
    QdbBooking booking(&a);
    ASSERT_EQ(1, a.Seek(1.0));
    ASSERT_EQ(1, a.WriteDouble("QTY", 1.0));
    ASSERT_EQ(1, booking.Commit());
  }
  const std::string before = ReadFile(FileOf("a"));
  const std::string journal = dir.file("qslave.jnl");
  const std::string good = ReadFile(journal);
  // An entry cut short by a power cut before its sync completed.
  qtest::WriteFile(journal, good + "QJE1\x40\x00\x00\x00garbage");
  EXPECT_EQ(0, InChild([&] {
    Qdbase other;
    const char* names[] = {"ID"};
    const char* keys[] = {"ID"};
    other.SetFiles(dir.path().c_str(), "a", 1, names, keys);
    if (!other.Open()) return false;
    QdbBooking booking(&other);
    return booking.Ok() && booking.Commit();
  }));
  EXPECT_EQ(before, ReadFile(FileOf("a")));
  EXPECT_EQ(good, ReadFile(journal));
}

TEST_F(Bookings, TablesOfAnotherDirectoryCannotJoin) {
  TempDir other;
  ASSERT_EQ(1, Qdbase::Create(other.path().c_str(), "c", 3, kFields));
  Qdbase a, c;
  Bind(a, "a");
  ASSERT_EQ(1, c.SetFiles(other.path().c_str(), "c", 0, nullptr, nullptr));
  ASSERT_EQ(1, c.Open());
  TraceCapture trace;
  QdbBooking booking(&a, &c);
  EXPECT_EQ(0, booking.Ok());
  EXPECT_NE(std::string::npos, trace.text().find("is not in the directory of the booking"))
      << trace.text();
}

TEST_F(Bookings, PackIsRefusedInsideABooking) {
  Qdbase a;
  Bind(a, "a");
  QdbBooking booking(&a);
  TraceCapture trace;
  EXPECT_EQ(0, a.Pack());
  EXPECT_NE(std::string::npos, trace.text().find("cannot pack inside a booking")) << trace.text();
}

}  // namespace
