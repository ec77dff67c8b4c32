// Qdbase against an independent dBase implementation (Debian's python3-dbf
// writes, python3-dbfread reads, both under /usr/bin/python3), and against
// other processes: a reader that opens the file while a writer in flush
// mode 1 keeps it open, and a writer killed with SIGKILL.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "host/qdbase.h"
#include "test_support.h"

namespace {

using qtest::PyQuote;
using qtest::RunPython;
using qtest::TempDir;

class FlushModeGuard {
 public:
  FlushModeGuard() : saved_(Qdbase::FlushGet()) {}
  ~FlushModeGuard() { Qdbase::FlushSet(saved_); }

 private:
  int saved_;
};

// python3-dbf strips the blanks around every text it writes; dBase itself
// keeps leading blanks, and right-aligned ids need them. This prologue
// makes a python-dbf table store texts as given (padded on the right).
const char kPyKeepBlanks[] =
    "def keep_blanks(table):\n"
    "    for spec in table._meta.fieldtypes.values():\n"
    "        if spec['Type'] == 'Character':\n"
    "            spec['Update'] = lambda s, fielddef, memo, decoder, encoder: encoder(s)[0]\n";

// Prints every record dbfread finds in file: deleted ones are left out.
std::string DbfreadDump(const std::string& file) {
  std::string out;
  int rc = RunPython(
      "from dbfread import DBF\n"
      "t = DBF(" + PyQuote(file) + ")\n"
      "print([f.name + ' ' + f.type + str(f.length) + '.' + str(f.decimal_count)"
      " for f in t.fields])\n"
      "for r in t:\n"
      "    print('|'.join(repr(v) for v in r.values()))\n"
      "print('deleted', len(t.deleted))\n",
      &out);
  EXPECT_EQ(0, rc) << out;
  return out;
}

std::string Str(Qdbase& db, const char* field) {
  char buf[300];
  if (!db.ReadString(field, buf, sizeof buf)) return "<fail>";
  return buf;
}

long Long(Qdbase& db, const char* field) {
  long v = -999;
  if (!db.ReadLong(field, &v)) return -999;
  return v;
}

TEST(QdbaseInterop, ReadsATableWrittenByPythonDbf) {
  TempDir dir;
  std::string out;
  ASSERT_EQ(0, RunPython(std::string(kPyKeepBlanks) +
                             "import dbf\n"
                             "t = dbf.Table(" + PyQuote(dir.file("cistern.dbf")) +
                             ", 'ID N(5,0); NAME C(12); MAX_Q N(12,3); ACTIVE L; CIST_ID C(5)',"
                             " dbf_type='db3')\n"
                             "t.open(dbf.READ_WRITE)\n"
                             "keep_blanks(t)\n"
                             "t.append((3, '  left pad', 1500.25, True, '    3'))\n"
                             "t.append((12, 'plain', -0.5, False, '   12'))\n"
                             "t.append((7, 'x', 0, None, ' 7'))\n"
                             "t.close()\n",
                         &out))
      << out;
  Qdbase db;
  const char* names[] = {"BYID"};
  const char* keys[] = {"ID"};
  ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "cistern", 1, names, keys));
  ASSERT_EQ(1, db.Open());
  EXPECT_EQ(3, db.RecCount());
  EXPECT_EQ(5, db.FieldNo("cist_id"));

  ASSERT_EQ(1, db.Top());
  EXPECT_EQ(1, db.RecNo());
  EXPECT_EQ(3, Long(db, "ID"));
  EXPECT_EQ("  left pad  ", Str(db, "NAME"));
  EXPECT_EQ("    3", Str(db, "CIST_ID"));
  double q = 0;
  EXPECT_EQ(1, db.ReadDouble("MAX_Q", &q));
  EXPECT_DOUBLE_EQ(1500.25, q);
  int b = -1;
  EXPECT_EQ(1, db.ReadLogical("ACTIVE", &b));
  EXPECT_EQ(1, b);
  long cist = 0;
  EXPECT_EQ(1, db.ReadLong("CIST_ID", &cist));
  EXPECT_EQ(3, cist);

  ASSERT_EQ(1, db.Next());
  EXPECT_EQ(3, db.RecNo());
  EXPECT_EQ(7, Long(db, "ID"));
  EXPECT_EQ(" 7   ", Str(db, "CIST_ID"));
  EXPECT_EQ(1, db.ReadLogical("ACTIVE", &b));
  EXPECT_EQ(0, b);  // unset logical

  ASSERT_EQ(1, db.Next());
  EXPECT_EQ(2, db.RecNo());
  EXPECT_EQ(1, db.ReadDouble("MAX_Q", &q));
  EXPECT_DOUBLE_EQ(-0.5, q);
  EXPECT_EQ(1, db.ReadLogical("ACTIVE", &b));
  EXPECT_EQ(0, b);
  EXPECT_EQ(0, db.Next());
  EXPECT_EQ(1, db.Eof());

  char line[8];
  snprintf(line, sizeof line, "%5ld", 12L);
  EXPECT_EQ(1, db.Seek(line));
  EXPECT_EQ(2, db.RecNo());
}

TEST(QdbaseInterop, WalksAPythonDbfTankTableByItsSecondIndex) {
  TempDir dir;
  std::string out;
  // Records deliberately out of order; one record deleted by python-dbf.
  ASSERT_EQ(0, RunPython(std::string(kPyKeepBlanks) +
                             "import dbf\n"
                             "t = dbf.Table(" + PyQuote(dir.file("tanks.dbf")) +
                             ", 'DISP_ID C(5); TANK N(3,0); CNT_ID N(6,0); CUR_Q N(12,3);"
                             " CIST_ID C(5)', dbf_type='db3')\n"
                             "t.open(dbf.READ_WRITE)\n"
                             "keep_blanks(t)\n"
                             "rows = [('    2', 3, 103, 1.5, '    1'),\n"
                             "        ('   10', 1, 201, 2.0, '     '),\n"
                             "        ('    2', 1, 101, 3.25, '    1'),\n"
                             "        ('    1', 2, 12, 0.0, '     '),\n"
                             "        ('    2', 2, 102, 4.0, '    3'),\n"
                             "        ('    1', 1, 11, 10.125, '     '),\n"
                             "        ('    2', 9, 999, 0, '     ')]\n"
                             "for r in rows: t.append(r)\n"
                             "dbf.delete(t[6])\n"
                             "t.close()\n",
                         &out))
      << out;
  Qdbase db;
  const char* names[] = {"TANKS", "TANKS2"};
  const char* keys[] = {"DISP_ID", "VAL(DISP_ID)*1000+TANK"};
  ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "tanks", 2, names, keys));
  ASSERT_EQ(1, db.Open());
  ASSERT_EQ(7, db.RecCount());
  ASSERT_EQ(1, db.SelectIdx(2));
  std::vector<std::pair<std::string, long>> walk;
  for (int ok = db.Top(); ok; ok = db.Next()) walk.emplace_back(Str(db, "DISP_ID"), Long(db, "TANK"));
  std::vector<std::pair<std::string, long>> expected = {
      {"    1", 1}, {"    1", 2}, {"    2", 1}, {"    2", 2}, {"    2", 3}, {"   10", 1}};
  EXPECT_EQ(expected, walk);

  // The highest tank of dispenser 2: seek (2+1)*1000, one step back.
  EXPECT_EQ(0, db.Seek(3000.0));
  EXPECT_EQ(1, db.Prev());
  EXPECT_EQ(3, Long(db, "TANK"));
  EXPECT_EQ(103, Long(db, "CNT_ID"));
  // Of dispenser 10, the last: the seek runs off the end.
  EXPECT_EQ(0, db.Seek(11000.0));
  EXPECT_EQ(1, db.Eof());
  EXPECT_EQ(1, db.Prev());
  EXPECT_EQ(201, Long(db, "CNT_ID"));
  EXPECT_EQ(1, db.Seek(2002.0));
  EXPECT_EQ(102, Long(db, "CNT_ID"));
  EXPECT_EQ("    3", Str(db, "CIST_ID"));
  double q = 0;
  EXPECT_EQ(1, db.ReadDouble("CUR_Q", &q));
  EXPECT_DOUBLE_EQ(4.0, q);

  // Index 1 (text): ties in record order.
  ASSERT_EQ(1, db.SelectIdx(1));
  std::vector<long> recs;
  for (int ok = db.Top(); ok; ok = db.Next()) recs.push_back(db.RecNo());
  EXPECT_EQ((std::vector<long>{4, 6, 1, 3, 5, 2}), recs);
  EXPECT_EQ(1, db.Seek("    2"));
  EXPECT_EQ(1, db.RecNo());
  EXPECT_EQ(1, db.Seek(10.0));
  EXPECT_EQ(2, db.RecNo());
  ASSERT_EQ(1, db.Go(7));
  EXPECT_EQ(1, db.IsDeleted());
}

TEST(QdbaseInterop, DbfreadReadsWhatQdbaseWrote) {
  FlushModeGuard guard;
  Qdbase::FlushSet(0);
  TempDir dir;
  const QdbField fields[] = {{"DISP_ID", 'C', 5, 0},
                             {"TANK", 'N', 3, 0},
                             {"CUR_Q", 'N', 12, 3},
                             {"OK", 'L', 1, 0},
                             {"DESCR", 'C', 12, 0}};
  ASSERT_EQ(1, Qdbase::Create(dir.path().c_str(), "tanks", 5, fields));
  {
    Qdbase db;
    const char* names[] = {"TANKS2"};
    const char* keys[] = {"VAL(DISP_ID)*1000+TANK"};
    ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "tanks", 1, names, keys));
    ASSERT_EQ(1, db.Open());
    struct {
      long disp, tank;
      double q;
      int ok;
      const char* descr;
    } rows[] = {{3, 1, 12.5, 1, "  indented"},
                {3, 2, -0.125, 0, "deleted"},
                {1, 7, 1234567.891, 1, "it's \"q\""},
                {12, 1, 0, 0, ""}};
    for (const auto& r : rows) {
      ASSERT_EQ(1, db.Append());
      ASSERT_EQ(1, db.WriteLong("DISP_ID", r.disp));
      ASSERT_EQ(1, db.WriteLong("TANK", r.tank));
      ASSERT_EQ(1, db.WriteDouble("CUR_Q", r.q));
      ASSERT_EQ(1, db.WriteLogical("OK", r.ok));
      ASSERT_EQ(1, db.WriteString("DESCR", r.descr));
    }
    ASSERT_EQ(1, db.Append());  // left blank
    ASSERT_EQ(1, db.Go(2));
    ASSERT_EQ(1, db.Delete());
    ASSERT_EQ(1, db.Close());
  }
  EXPECT_EQ(
      "['DISP_ID C5.0', 'TANK N3.0', 'CUR_Q N12.3', 'OK L1.0', 'DESCR C12.0']\n"
      "'    3'|1|12.5|True|'  indented'\n"
      "'    1'|7|1234567.891|True|'it\\'s \"q\"'\n"
      "'   12'|1|0.0|False|''\n"
      "''|None|None|None|''\n"
      "deleted 1\n",
      DbfreadDump(dir.file("tanks.dbf")));

  {
    Qdbase db;
    ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "tanks", 0, nullptr, nullptr));
    ASSERT_EQ(1, db.Open());
    ASSERT_EQ(1, db.Go(5));
    ASSERT_EQ(1, db.Delete());
    ASSERT_EQ(1, db.Go(4));
    ASSERT_EQ(1, db.WriteDouble("CUR_Q", 99.5));
    ASSERT_EQ(1, db.Pack());
    EXPECT_EQ(3, db.RecCount());
  }
  EXPECT_EQ(
      "['DISP_ID C5.0', 'TANK N3.0', 'CUR_Q N12.3', 'OK L1.0', 'DESCR C12.0']\n"
      "'    3'|1|12.5|True|'  indented'\n"
      "'    1'|7|1234567.891|True|'it\\'s \"q\"'\n"
      "'   12'|1|99.5|False|''\n"
      "deleted 0\n",
      DbfreadDump(dir.file("tanks.dbf")));
}

TEST(QdbaseInterop, PythonDbfReadsWhatQdbaseWrote) {
  TempDir dir;
  const QdbField fields[] = {{"ID", 'N', 5, 0}, {"NAME", 'C', 8, 0}, {"ON", 'L', 1, 0}};
  ASSERT_EQ(1, Qdbase::Create(dir.path().c_str(), "t", 3, fields));
  {
    Qdbase db;
    ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "t", 0, nullptr, nullptr));
    ASSERT_EQ(1, db.Open());
    ASSERT_EQ(1, db.Append());
    ASSERT_EQ(1, db.WriteLong("ID", 42));
    ASSERT_EQ(1, db.WriteString("NAME", "abc"));
    ASSERT_EQ(1, db.WriteLogical("ON", 1));
  }
  std::string out;
  ASSERT_EQ(0, RunPython("import dbf\n"
                         "t = dbf.Table(" + PyQuote(dir.file("t.dbf")) + ")\n"
                         "t.open()\n"
                         "for r in t: print(r.id, repr(r.name), r.on)\n"
                         "t.close()\n",
                         &out))
      << out;
  // python-dbf hands texts back with their padding.
  EXPECT_EQ("42 'abc     ' True\n", out);
}

TEST(QdbaseInterop, FlushModeOneIsSeenByAnotherProcessBeforeClose) {
  FlushModeGuard guard;
  Qdbase::FlushSet(1);
  TempDir dir;
  const QdbField fields[] = {{"ID", 'N', 5, 0}, {"NAME", 'C', 8, 0}};
  ASSERT_EQ(1, Qdbase::Create(dir.path().c_str(), "t", 2, fields));
  Qdbase db;
  ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "t", 0, nullptr, nullptr));
  ASSERT_EQ(1, db.Open());
  ASSERT_EQ(1, db.Append());
  ASSERT_EQ(1, db.WriteLong("ID", 1));
  ASSERT_EQ(1, db.WriteString("NAME", "first"));
  ASSERT_EQ(1, db.Append());
  ASSERT_EQ(1, db.WriteLong("ID", 2));
  EXPECT_EQ(
      "['ID N5.0', 'NAME C8.0']\n"
      "1|'first'\n"
      "2|''\n"
      "deleted 0\n",
      DbfreadDump(dir.file("t.dbf")));
  ASSERT_EQ(1, db.Go(1));
  ASSERT_EQ(1, db.WriteString("NAME", " changed"));
  ASSERT_EQ(1, db.Go(2));
  ASSERT_EQ(1, db.Delete());
  EXPECT_EQ(
      "['ID N5.0', 'NAME C8.0']\n"
      "1|' changed'\n"
      "deleted 1\n",
      DbfreadDump(dir.file("t.dbf")));
  EXPECT_EQ(1, db.IsOpen());
}

// A child writes in flush mode 1 and reports each completed write through a
// pipe; the parent kills it with SIGKILL in the middle. Every reported
// write is in the file, and the file opens cleanly.
TEST(QdbaseInterop, WritesSurviveSigkillInFlushModeOne) {
  TempDir dir;
  const QdbField fields[] = {{"ID", 'N', 6, 0}, {"NAME", 'C', 8, 0}};
  ASSERT_EQ(1, Qdbase::Create(dir.path().c_str(), "t", 2, fields));
  int fds[2];
  ASSERT_EQ(0, pipe(fds));
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    close(fds[0]);
    Qdbase::FlushSet(1);
    Qdbase db;
    if (!db.SetFiles(dir.path().c_str(), "t", 0, nullptr, nullptr) || !db.Open()) _exit(2);
    for (long i = 1; i <= 100000; ++i) {
      if (!db.Append() || !db.WriteLong("ID", i) || !db.WriteString("NAME", "rec")) _exit(3);
      if (i > 1 && i % 3 == 0) {  // rewrite an earlier record too
        if (!db.Go(i - 1) || !db.WriteString("NAME", "again") || !db.Go(i)) _exit(4);
      }
      char c = 'w';
      if (write(fds[1], &c, 1) != 1) _exit(5);
    }
    _exit(0);
  }
  close(fds[1]);
  long reported = 0;
  char c;
  while (reported < 300 && read(fds[0], &c, 1) == 1) ++reported;
  kill(pid, SIGKILL);
  int status = 0;
  waitpid(pid, &status, 0);
  close(fds[0]);
  ASSERT_EQ(300, reported);
  ASSERT_TRUE(WIFSIGNALED(status));

  Qdbase db;
  ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "t", 0, nullptr, nullptr));
  ASSERT_EQ(1, db.Open());
  ASSERT_GE(db.RecCount(), reported);
  for (long i = 1; i <= reported; ++i) {
    ASSERT_EQ(1, db.Go(i));
    ASSERT_EQ(i, Long(db, "ID")) << i;
    std::string name = Str(db, "NAME");
    if (i % 3 == 2 && i + 1 <= reported) {
      EXPECT_EQ("again   ", name) << i;
    } else if (i % 3 != 2) {
      EXPECT_EQ("rec     ", name) << i;
    }
  }
}

}  // namespace
