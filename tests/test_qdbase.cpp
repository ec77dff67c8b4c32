// Qdbase (libqdb): creating tables, navigation, indexes, seeks, typed reads
// and writes, deleting and packing, flush control. Files written by other
// dBase implementations and bad files are in test_qdbase_files.cpp and
// test_qdbase_interop.cpp.
#include <gtest/gtest.h>
#include <math.h>
#include <sys/stat.h>
#include <unistd.h>

#include <limits>
#include <string>
#include <vector>

#include "host/qdbase.h"
#include "test_support.h"

namespace {

using qtest::ReadFile;
using qtest::TempDir;
using qtest::TraceCapture;

// ID N(5,0), NAME C(10), QTY N(8,3), FLAG L, CODE C(5).
const QdbField kFields[] = {
    {"ID", 'N', 5, 0},  {"NAME", 'C', 10, 0}, {"QTY", 'N', 8, 3},
    {"FLAG", 'L', 1, 0}, {"CODE", 'C', 5, 0},
};

struct Row {
  long id;
  const char* name;
  double qty;
  int flag;
  const char* code;
};

// Restores the process-wide flush mode after a test.
class FlushModeGuard {
 public:
  FlushModeGuard() : saved_(Qdbase::FlushGet()) {}
  ~FlushModeGuard() { Qdbase::FlushSet(saved_); }

 private:
  int saved_;
};

class QdbaseTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(1, Qdbase::Create(dir.path().c_str(), "t", 5, kFields));
  }

  std::string File() const { return dir.file("t.dbf"); }

  // Binds db to the table with the given indexes and opens it.
  void OpenWith(Qdbase& db, std::vector<const char*> keys) {
    std::vector<const char*> names;
    for (size_t i = 0; i < keys.size(); ++i) names.push_back("IDX");
    ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "t", static_cast<int>(keys.size()),
                             names.data(), keys.data()));
    ASSERT_EQ(1, db.Open());
  }

  void Fill(const std::vector<Row>& rows) {
    Qdbase db;
    OpenWith(db, {});
    for (const Row& r : rows) {
      ASSERT_EQ(1, db.Append());
      ASSERT_EQ(1, db.WriteLong("ID", r.id));
      ASSERT_EQ(1, db.WriteString("NAME", r.name));
      ASSERT_EQ(1, db.WriteDouble("QTY", r.qty));
      ASSERT_EQ(1, db.WriteLogical("FLAG", r.flag));
      ASSERT_EQ(1, db.WriteString("CODE", r.code));
    }
    ASSERT_EQ(1, db.Close());
  }

  // The five standard rows: ids 30, 10, 20, 10, 40.
  void FillStandard() {
    Fill({{30, "thirty", 3.5, 1, "    3"},
          {10, "ten", 1.25, 0, "   12"},
          {20, "twenty", 2.0, 1, "    7"},
          {10, "ten again", 0.5, 0, "   12"},
          {40, "forty", 4.0, 0, "  100"}});
  }

  // The record numbers met walking forward from Top.
  static std::vector<long> Walk(Qdbase& db) {
    std::vector<long> recs;
    for (int ok = db.Top(); ok; ok = db.Next()) recs.push_back(db.RecNo());
    return recs;
  }

  static std::vector<long> WalkBack(Qdbase& db) {
    std::vector<long> recs;
    for (int ok = db.Bottom(); ok; ok = db.Prev()) recs.push_back(db.RecNo());
    return recs;
  }

  static std::string Str(Qdbase& db, const char* field) {
    char buf[300];
    if (!db.ReadString(field, buf, sizeof buf)) return "<fail>";
    return buf;
  }

  static long Long(Qdbase& db, const char* field) {
    long v = -999;
    if (!db.ReadLong(field, &v)) return -999;
    return v;
  }

  TempDir dir;
  FlushModeGuard flushGuard;
};

// ---------------------------------------------------------------- Create

TEST_F(QdbaseTest, CreateMakesAnEmptyTable) {
  Qdbase db;
  OpenWith(db, {});
  EXPECT_EQ(0, db.RecCount());
  EXPECT_EQ(1, db.Eof());
  EXPECT_EQ(1, db.FieldNo("ID"));
  EXPECT_EQ(5, db.FieldNo("CODE"));
  std::string bytes = ReadFile(File());
  ASSERT_GE(bytes.size(), 32u + 5 * 32 + 1);
  EXPECT_EQ(0x03, static_cast<unsigned char>(bytes[0]));
  EXPECT_EQ(0, bytes[4]);  // no records
}

TEST_F(QdbaseTest, CreateStoresFieldNamesUpperCase) {
  const QdbField fields[] = {{"lower", 'C', 3, 0}};
  ASSERT_EQ(1, Qdbase::Create(dir.path().c_str(), "lc", 1, fields));
  std::string bytes = ReadFile(dir.file("lc.dbf"));
  EXPECT_EQ("LOWER", bytes.substr(32, 5));
  Qdbase db;
  ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "lc", 0, nullptr, nullptr));
  ASSERT_EQ(1, db.Open());
  EXPECT_EQ(1, db.FieldNo("lower"));
  EXPECT_EQ(1, db.FieldNo("Lower"));
}

TEST_F(QdbaseTest, CreateRefusesAnExistingFile) {
  TraceCapture trace;
  std::string before = ReadFile(File());
  EXPECT_EQ(0, Qdbase::Create(dir.path().c_str(), "t", 5, kFields));
  EXPECT_EQ(before, ReadFile(File()));
  EXPECT_NE(std::string::npos, trace.text().find("t.dbf"));
}

TEST_F(QdbaseTest, CreateRefusesWhenTheUpperCaseFileExists) {
  qtest::WriteFile(dir.file("UP.DBF"), "x");
  EXPECT_EQ(0, Qdbase::Create(dir.path().c_str(), "up", 5, kFields));
  EXPECT_EQ("x", ReadFile(dir.file("UP.DBF")));
  EXPECT_NE(0, access(dir.file("up.dbf").c_str(), F_OK));
}

TEST_F(QdbaseTest, CreateRefusesInvalidFieldsAndLeavesNothing) {
  const std::vector<std::vector<QdbField>> bad = {
      {{"", 'C', 5, 0}},
      {{nullptr, 'C', 5, 0}},
      {{"ELEVENCHARS", 'C', 5, 0}},
      {{"A B", 'C', 5, 0}},
      {{"1ST", 'C', 5, 0}},
      {{"ID", 'C', 5, 0}, {"id", 'N', 5, 0}},
      {{"X", 'Q', 5, 0}},
      {{"X", 'D', 8, 0}},
      {{"X", 'C', 0, 0}},
      {{"X", 'C', 255, 0}},
      {{"X", 'C', 5, 1}},
      {{"X", 'N', 0, 0}},
      {{"X", 'N', 20, 0}},
      {{"X", 'N', 5, 5}},
      {{"X", 'N', 19, 16}},
      {{"X", 'N', 5, -1}},
      {{"X", 'L', 2, 0}},
  };
  for (size_t i = 0; i < bad.size(); ++i) {
    TraceCapture trace;
    EXPECT_EQ(0, Qdbase::Create(dir.path().c_str(), "bad", static_cast<int>(bad[i].size()),
                                bad[i].data()))
        << "case " << i;
    EXPECT_NE(0, access(dir.file("bad.dbf").c_str(), F_OK)) << "case " << i;
    EXPECT_NE(std::string::npos, trace.text().find("bad.dbf")) << "case " << i;
  }
  EXPECT_EQ(0, Qdbase::Create(dir.path().c_str(), "bad", 0, kFields));
  EXPECT_EQ(0, Qdbase::Create(dir.path().c_str(), "bad", 1, nullptr));
  EXPECT_EQ(0, Qdbase::Create(nullptr, "bad", 5, kFields));
  EXPECT_EQ(0, Qdbase::Create(dir.path().c_str(), nullptr, 5, kFields));
  EXPECT_NE(0, access(dir.file("bad.dbf").c_str(), F_OK));
}

TEST_F(QdbaseTest, CreateAcceptsTheLimits) {
  const QdbField fields[] = {{"TENCHARS_1", 'C', 254, 0},
                             {"N19", 'N', 19, 15},
                             {"L", 'L', 1, 0},
                             {"C1", 'C', 1, 0}};
  EXPECT_EQ(1, Qdbase::Create(dir.path().c_str(), "limits", 4, fields));
}

TEST_F(QdbaseTest, CreateInAMissingDirectoryFails) {
  TraceCapture trace;
  EXPECT_EQ(0, Qdbase::Create(dir.file("nowhere").c_str(), "t", 5, kFields));
  EXPECT_FALSE(trace.text().empty());
}

// -------------------------------------------------------------- SetFiles

TEST_F(QdbaseTest, SetFilesRefusesBadArguments) {
  Qdbase db;
  const char* names[] = {"A"};
  const char* keys[] = {"ID"};
  EXPECT_STREQ("", db.FileName());
  EXPECT_EQ(0, db.SetFiles(nullptr, "t", 0, nullptr, nullptr));
  EXPECT_EQ(0, db.SetFiles(dir.path().c_str(), nullptr, 0, nullptr, nullptr));
  EXPECT_EQ(0, db.SetFiles(dir.path().c_str(), "t", -1, names, keys));
  EXPECT_EQ(0, db.SetFiles(dir.path().c_str(), "t", 9, names, keys));
  EXPECT_EQ(0, db.SetFiles(dir.path().c_str(), "t", 1, nullptr, keys));
  EXPECT_EQ(0, db.SetFiles(dir.path().c_str(), "t", 1, names, nullptr));
  const char* nullKey[] = {nullptr};
  EXPECT_EQ(0, db.SetFiles(dir.path().c_str(), "t", 1, names, nullKey));
  EXPECT_STREQ("", db.FileName());
  EXPECT_EQ(1, db.SetFiles(dir.path().c_str(), "t", 1, names, keys));
  EXPECT_EQ(File(), db.FileName());
}

TEST_F(QdbaseTest, SetFilesAcceptsEightIndexes) {
  Qdbase db;
  const char* names[8] = {"1", "2", "3", "4", "5", "6", "7", "8"};
  const char* keys[8] = {"ID", "NAME", "CODE", "QTY", "ID*2", "VAL(CODE)", "STR(ID,5)", "FLAG"};
  ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "t", 8, names, keys));
  ASSERT_EQ(1, db.Open());
  EXPECT_EQ(1, db.SelectIdx(8));
  EXPECT_EQ(0, db.SelectIdx(9));
}

TEST_F(QdbaseTest, SetFilesRefusedWhileOpen) {
  Qdbase db;
  OpenWith(db, {});
  EXPECT_EQ(0, db.SetFiles(dir.path().c_str(), "other", 0, nullptr, nullptr));
  EXPECT_EQ(File(), db.FileName());
}

TEST_F(QdbaseTest, SetFilesSelectsTheFirstIndex) {
  Qdbase a, b;
  const char* names[] = {"A"};
  const char* keys[] = {"ID"};
  ASSERT_EQ(1, a.SetFiles(dir.path().c_str(), "t", 1, names, keys));
  EXPECT_EQ(1, a.CurrentIdx());
  ASSERT_EQ(1, b.SetFiles(dir.path().c_str(), "t", 0, nullptr, nullptr));
  EXPECT_EQ(0, b.CurrentIdx());
}

// ----------------------------------------------------------- Open, Close

TEST_F(QdbaseTest, OpenFindsTheUpperCaseFile) {
  ASSERT_EQ(0, rename(File().c_str(), dir.file("T.DBF").c_str()));
  Qdbase db;
  ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "t", 0, nullptr, nullptr));
  EXPECT_EQ(dir.file("T.DBF"), db.FileName());
  ASSERT_EQ(1, db.Open());
  EXPECT_EQ(1, db.Append());
  EXPECT_EQ(1, db.WriteLong("ID", 5));
  EXPECT_EQ(1, db.Close());
  EXPECT_NE(0, access(File().c_str(), F_OK));  // no lower-case file appeared
}

TEST_F(QdbaseTest, OpenTwiceKeepsThePosition) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Go(3));
  EXPECT_EQ(1, db.Open());
  EXPECT_EQ(3, db.RecNo());
}

TEST_F(QdbaseTest, OpenWithoutSetFilesFails) {
  TraceCapture trace;
  Qdbase db;
  EXPECT_EQ(0, db.Open());
  EXPECT_EQ(0, db.IsOpen());
}

TEST_F(QdbaseTest, OpenGoesToTheFirstRecordOfTheSelectedIndex) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"ID"});
  EXPECT_EQ(2, db.RecNo());
  EXPECT_EQ(0, db.Eof());
  EXPECT_EQ(0, db.Bof());
}

TEST_F(QdbaseTest, CloseAndIsOpen) {
  Qdbase db;
  EXPECT_EQ(0, db.Close());
  OpenWith(db, {});
  EXPECT_EQ(1, db.IsOpen());
  EXPECT_EQ(1, db.Close());
  EXPECT_EQ(0, db.IsOpen());
  EXPECT_EQ(0, db.Close());
  EXPECT_EQ(0, db.RecCount());
  EXPECT_EQ(0, db.Top());
  EXPECT_EQ(0, db.Append());
  EXPECT_EQ(1, db.Open());  // the binding survives Close
}

TEST_F(QdbaseTest, DestructorWritesPendingChanges) {
  Qdbase::FlushSet(0);
  {
    Qdbase db;
    OpenWith(db, {});
    ASSERT_EQ(1, db.Append());
    ASSERT_EQ(1, db.WriteString("NAME", "kept"));
  }
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.RecCount());
  EXPECT_EQ("kept      ", Str(db, "NAME"));
}

// ------------------------------------------------------------ Navigation

TEST_F(QdbaseTest, EmptyTableNavigation) {
  Qdbase db;
  OpenWith(db, {"ID"});
  EXPECT_EQ(0, db.Top());
  EXPECT_EQ(1, db.Eof());
  EXPECT_EQ(0, db.RecNo());
  EXPECT_EQ(0, db.Bottom());
  EXPECT_EQ(1, db.Eof());
  EXPECT_EQ(0, db.Next());
  EXPECT_EQ(0, db.Prev());
  EXPECT_EQ(1, db.Eof());
  EXPECT_EQ(0, db.Seek(1.0));
  EXPECT_EQ(1, db.Eof());
  EXPECT_EQ(0, db.Go(1));
  long v = 5;
  EXPECT_EQ(0, db.ReadLong("ID", &v));
  EXPECT_EQ(0, v);
  EXPECT_EQ(0, db.WriteLong("ID", 1));
  EXPECT_EQ(0, db.Delete());
  EXPECT_EQ(0, db.IsDeleted());
}

TEST_F(QdbaseTest, RecordOrderWalk) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {});
  EXPECT_EQ(5, db.RecCount());
  EXPECT_EQ((std::vector<long>{1, 2, 3, 4, 5}), Walk(db));
  EXPECT_EQ((std::vector<long>{5, 4, 3, 2, 1}), WalkBack(db));
}

TEST_F(QdbaseTest, NextPastTheLastRecordIsEof) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Bottom());
  EXPECT_EQ(5, db.RecNo());
  EXPECT_EQ(0, db.Eof());
  EXPECT_EQ(0, db.Next());
  EXPECT_EQ(1, db.Eof());
  EXPECT_EQ(0, db.RecNo());
  EXPECT_EQ(0, db.Next());  // stays at the end
  EXPECT_EQ(1, db.Eof());
  EXPECT_EQ("<fail>", Str(db, "NAME"));
}

TEST_F(QdbaseTest, PrevFromTheEndGoesToTheLastRecord) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"ID"});
  ASSERT_EQ(1, db.Bottom());
  ASSERT_EQ(0, db.Next());
  ASSERT_EQ(1, db.Eof());
  EXPECT_EQ(1, db.Prev());
  EXPECT_EQ(5, db.RecNo());  // id 40, last in ID order
  EXPECT_EQ(0, db.Eof());
  EXPECT_EQ(0, db.Bof());
}

TEST_F(QdbaseTest, PrevBeforeTheFirstRecordSetsBof) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"ID"});
  ASSERT_EQ(1, db.Top());
  EXPECT_EQ(0, db.Bof());
  EXPECT_EQ(0, db.Prev());
  EXPECT_EQ(1, db.Bof());
  EXPECT_EQ(0, db.Eof());
  EXPECT_EQ(2, db.RecNo());  // still on the first record
  EXPECT_EQ(1, db.Next());
  EXPECT_EQ(0, db.Bof());
  EXPECT_EQ(4, db.RecNo());
}

TEST_F(QdbaseTest, IndexOrderWithTiesInRecordOrder) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"ID", "NAME"});
  EXPECT_EQ((std::vector<long>{2, 4, 3, 1, 5}), Walk(db));
  EXPECT_EQ((std::vector<long>{5, 1, 3, 4, 2}), WalkBack(db));
  ASSERT_EQ(1, db.SelectIdx(2));
  // forty, ten, ten again, thirty, twenty
  EXPECT_EQ((std::vector<long>{5, 2, 4, 1, 3}), Walk(db));
}

TEST_F(QdbaseTest, SelectIdxKeepsTheCurrentRecord) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"ID"});
  ASSERT_EQ(1, db.Go(3));  // id 20
  EXPECT_EQ(1, db.SelectIdx(0));
  EXPECT_EQ(0, db.CurrentIdx());
  EXPECT_EQ(3, db.RecNo());
  EXPECT_EQ(1, db.Next());
  EXPECT_EQ(4, db.RecNo());  // record order
  EXPECT_EQ(1, db.SelectIdx(1));
  EXPECT_EQ(4, db.RecNo());
  EXPECT_EQ(1, db.Next());
  EXPECT_EQ(3, db.RecNo());  // ID order: 10(2), 10(4), 20(3)
  EXPECT_EQ(0, db.SelectIdx(2));
  EXPECT_EQ(0, db.SelectIdx(-1));
  EXPECT_EQ(1, db.CurrentIdx());
  EXPECT_EQ(3, db.RecNo());
}

TEST_F(QdbaseTest, GoReachesAnyRecordAndRefusesOutOfRange) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"ID"});
  ASSERT_EQ(1, db.Go(4));
  EXPECT_EQ(4, db.RecNo());
  EXPECT_EQ(0, db.Go(0));
  EXPECT_EQ(0, db.Go(-1));
  EXPECT_EQ(0, db.Go(db.RecCount() + 1));
  EXPECT_EQ(4, db.RecNo());  // no move
  EXPECT_EQ(1, db.Go(db.RecCount()));
  EXPECT_EQ(5, db.RecNo());
}

TEST_F(QdbaseTest, GoClearsEof) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Bottom());
  ASSERT_EQ(0, db.Next());
  ASSERT_EQ(1, db.Go(2));
  EXPECT_EQ(0, db.Eof());
  EXPECT_EQ(0, db.Bof());
}

// ------------------------------------------------------------------ Seek

TEST_F(QdbaseTest, SeekNumberHitGivesTheFirstRecordWithTheKey) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"ID"});
  EXPECT_EQ(1, db.Seek(10.0));
  EXPECT_EQ(2, db.RecNo());
  EXPECT_EQ(1, db.Next());
  EXPECT_EQ(4, db.RecNo());
  EXPECT_EQ(1, db.Seek(40.0));
  EXPECT_EQ(5, db.RecNo());
}

TEST_F(QdbaseTest, SeekNumberMissIsSoft) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"ID"});
  EXPECT_EQ(0, db.Seek(15.0));
  EXPECT_EQ(3, db.RecNo());  // id 20
  EXPECT_EQ(0, db.Eof());
  EXPECT_EQ(0, db.Seek(5.0));
  EXPECT_EQ(2, db.RecNo());  // first record
}

TEST_F(QdbaseTest, SeekNumberAboveEveryKeyIsEof) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"ID"});
  EXPECT_EQ(0, db.Seek(41.0));
  EXPECT_EQ(1, db.Eof());
  EXPECT_EQ(0, db.RecNo());
  EXPECT_EQ(1, db.Prev());
  EXPECT_EQ(5, db.RecNo());
}

TEST_F(QdbaseTest, SeekFailsInRecordOrderWithoutMoving) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"ID"});
  ASSERT_EQ(1, db.SelectIdx(0));
  ASSERT_EQ(1, db.Go(3));
  EXPECT_EQ(0, db.Seek(10.0));
  EXPECT_EQ(0, db.Seek("10"));
  EXPECT_EQ(3, db.RecNo());
  EXPECT_EQ(0, db.Eof());
}

TEST_F(QdbaseTest, SeekTextOnATextKeyComparesBlanksIncluded) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"CODE"});
  // Keys: "    3"(1) "    7"(3) "   12"(2) "   12"(4) "  100"(5)
  EXPECT_EQ((std::vector<long>{1, 3, 2, 4, 5}), Walk(db));
  EXPECT_EQ(1, db.Seek("   12"));
  EXPECT_EQ(2, db.RecNo());
  EXPECT_EQ(1, db.Seek("    3"));
  EXPECT_EQ(1, db.RecNo());
  EXPECT_EQ(0, db.Seek("3"));  // "3" sorts after every key starting with a blank
  EXPECT_EQ(1, db.Eof());
  EXPECT_EQ(0, db.Seek("    5"));
  EXPECT_EQ(3, db.RecNo());  // soft: "    7"
}

TEST_F(QdbaseTest, SeekTextPadsTheShorterWithBlanks) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"NAME"});
  EXPECT_EQ(1, db.Seek("ten"));  // "ten       "
  EXPECT_EQ(2, db.RecNo());
  EXPECT_EQ(1, db.Seek("ten   "));
  EXPECT_EQ(2, db.RecNo());
  EXPECT_EQ(0, db.Seek("ten a"));
  EXPECT_EQ(4, db.RecNo());  // "ten again" is the next key above
  EXPECT_EQ(0, db.Seek("t"));
  EXPECT_EQ(2, db.RecNo());
}

TEST_F(QdbaseTest, SeekTextOnANumericKeyReadsItAsANumber) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"ID"});
  EXPECT_EQ(1, db.Seek("   20"));
  EXPECT_EQ(3, db.RecNo());
  EXPECT_EQ(1, db.Seek("30"));
  EXPECT_EQ(1, db.RecNo());
  EXPECT_EQ(0, db.Seek("   25"));
  EXPECT_EQ(1, db.RecNo());  // soft: 30
  EXPECT_EQ(0, db.Seek("abc"));  // not a number: no move
  EXPECT_EQ(1, db.RecNo());
  EXPECT_EQ(0, db.Eof());
}

TEST_F(QdbaseTest, SeekNumberOnATextKeyReadsTheKeyAsANumber) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"CODE", "STR(ID,5)"});
  EXPECT_EQ(1, db.Seek(12.0));
  EXPECT_EQ(2, db.RecNo());
  EXPECT_EQ(1, db.Seek(100.0));
  EXPECT_EQ(5, db.RecNo());
  EXPECT_EQ(0, db.Seek(8.0));
  EXPECT_EQ(2, db.RecNo());  // soft: "   12"
  EXPECT_EQ(0, db.Seek(101.0));
  EXPECT_EQ(1, db.Eof());
  ASSERT_EQ(1, db.SelectIdx(2));
  EXPECT_EQ(1, db.Seek(20.0));
  EXPECT_EQ(3, db.RecNo());
  EXPECT_EQ(1, db.Seek("   20"));  // and text against text
  EXPECT_EQ(3, db.RecNo());
  char line[16];
  snprintf(line, sizeof line, "%5ld", 40L);
  EXPECT_EQ(1, db.Seek(line));
  EXPECT_EQ(5, db.RecNo());
}

TEST_F(QdbaseTest, SeekSkipsDeletedRecords) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"ID"});
  ASSERT_EQ(1, db.Go(2));  // first id 10
  ASSERT_EQ(1, db.Delete());
  EXPECT_EQ(1, db.Seek(10.0));
  EXPECT_EQ(4, db.RecNo());
  ASSERT_EQ(1, db.Delete());
  EXPECT_EQ(0, db.Seek(10.0));
  EXPECT_EQ(3, db.RecNo());  // soft: 20
}

// --------------------------------------------------------- Key expressions

TEST_F(QdbaseTest, KeyExpressionsCombineFields) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"VAL(CODE)*1000+ID", "CODE+NAME", "(ID+1)*2", "STR(QTY,6,2)", "val(code)"});
  // VAL(CODE)*1000+ID: 3030(1) 7020(3) 12010(2) 12010(4) 100040(5)
  EXPECT_EQ((std::vector<long>{1, 3, 2, 4, 5}), Walk(db));
  EXPECT_EQ(1, db.Seek(12010.0));
  EXPECT_EQ(2, db.RecNo());
  ASSERT_EQ(1, db.SelectIdx(2));
  EXPECT_EQ(1, db.Seek("   12ten again"));
  EXPECT_EQ(4, db.RecNo());
  ASSERT_EQ(1, db.SelectIdx(3));
  EXPECT_EQ(1, db.Seek(42.0));
  EXPECT_EQ(3, db.RecNo());
  ASSERT_EQ(1, db.SelectIdx(4));
  EXPECT_EQ(1, db.Seek("  1.25"));
  EXPECT_EQ(2, db.RecNo());
  ASSERT_EQ(1, db.SelectIdx(5));
  EXPECT_EQ((std::vector<long>{1, 3, 2, 4, 5}), Walk(db));
}

class BadKeyTest : public QdbaseTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(BadKeyTest, OpenFailsWithATraceNamingFileAndExpression) {
  TraceCapture trace;
  Qdbase db;
  const char* names[] = {"GOOD", "BAD"};
  const char* keys[] = {"ID", GetParam()};
  ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "t", 2, names, keys));
  EXPECT_EQ(0, db.Open());
  EXPECT_EQ(0, db.IsOpen());
  std::string text = trace.text();
  EXPECT_NE(std::string::npos, text.find(File())) << text;
  EXPECT_NE(std::string::npos, text.find(std::string("\"") + GetParam() + "\"")) << text;
}

INSTANTIATE_TEST_SUITE_P(Expressions, BadKeyTest,
                         ::testing::Values("NOSUCH", "NAME*2", "ID+NAME", "VAL(ID", "STR(NAME,5)",
                                           "STR(ID)", "STR(ID,0)", "ID+", "(ID", "ID)", "",
                                           "FOO(ID)", "ID ID", "VAL(NAME", "ID-1"));

// ---------------------------------------------------------------- Reads

TEST_F(QdbaseTest, ReadNumbersFromNumericFields) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Go(2));
  long l = 0;
  int i = 0;
  double d = 0;
  EXPECT_EQ(1, db.ReadLong("ID", &l));
  EXPECT_EQ(10, l);
  EXPECT_EQ(1, db.ReadInt("id", &i));
  EXPECT_EQ(10, i);
  EXPECT_EQ(1, db.ReadDouble("QTY", &d));
  EXPECT_DOUBLE_EQ(1.25, d);
  EXPECT_EQ(1, db.ReadDouble("ID", &d));
  EXPECT_DOUBLE_EQ(10.0, d);
}

TEST_F(QdbaseTest, ReadNumbersFromTextFieldsHoldingDigits) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Go(5));
  long l = 0;
  double d = 0;
  EXPECT_EQ(1, db.ReadLong("CODE", &l));  // "  100"
  EXPECT_EQ(100, l);
  EXPECT_EQ(1, db.ReadDouble("CODE", &d));
  EXPECT_DOUBLE_EQ(100.0, d);
  ASSERT_EQ(1, db.WriteString("CODE", " 42  "));
  EXPECT_EQ(1, db.ReadLong("CODE", &l));
  EXPECT_EQ(42, l);
}

TEST_F(QdbaseTest, BlankFieldsReadZero) {
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Append());
  long l = 7;
  double d = 7;
  int b = 7;
  EXPECT_EQ(1, db.ReadLong("ID", &l));
  EXPECT_EQ(0, l);
  EXPECT_EQ(1, db.ReadDouble("QTY", &d));
  EXPECT_EQ(0.0, d);
  EXPECT_EQ(1, db.ReadLong("CODE", &l));
  EXPECT_EQ(0, l);
  EXPECT_EQ(1, db.ReadLogical("FLAG", &b));
  EXPECT_EQ(0, b);
}

TEST_F(QdbaseTest, NumericReadOfTextThatIsNotANumberFails) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Go(1));
  long l = 5;
  double d = 5;
  int i = 5;
  EXPECT_EQ(0, db.ReadLong("NAME", &l));
  EXPECT_EQ(0, l);
  EXPECT_EQ(0, db.ReadDouble("NAME", &d));
  EXPECT_EQ(0.0, d);
  EXPECT_EQ(0, db.ReadInt("NAME", &i));
  EXPECT_EQ(0, i);
  ASSERT_EQ(1, db.WriteString("CODE", "1 2"));
  EXPECT_EQ(0, db.ReadLong("CODE", &l));
  ASSERT_EQ(1, db.WriteString("CODE", "1e3"));
  EXPECT_EQ(0, db.ReadDouble("CODE", &d));
}

TEST_F(QdbaseTest, NumericReadOfALogicalFieldFails) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {});
  long l = 5;
  double d = 5;
  EXPECT_EQ(0, db.ReadLong("FLAG", &l));
  EXPECT_EQ(0, l);
  EXPECT_EQ(0, db.ReadDouble("FLAG", &d));
  EXPECT_EQ(0.0, d);
}

TEST_F(QdbaseTest, ReadOfAFieldTheTableLacksFails) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {});
  long l = 5;
  int i = 5;
  double d = 5;
  char buf[16] = "junk";
  EXPECT_EQ(0, db.FieldNo("NOSUCH"));
  EXPECT_EQ(0, db.FieldNo(nullptr));
  EXPECT_EQ(0, db.ReadLong("NOSUCH", &l));
  EXPECT_EQ(0, l);
  EXPECT_EQ(0, db.ReadInt("NOSUCH", &i));
  EXPECT_EQ(0, i);
  EXPECT_EQ(0, db.ReadDouble("NOSUCH", &d));
  EXPECT_EQ(0.0, d);
  EXPECT_EQ(0, db.ReadLogical("NOSUCH", &i));
  EXPECT_EQ(0, db.ReadString("NOSUCH", buf, sizeof buf));
  EXPECT_STREQ("", buf);
  EXPECT_EQ(0, db.ReadLong(nullptr, &l));
  EXPECT_EQ(0, db.ReadLong("ID", nullptr));
}

TEST_F(QdbaseTest, FieldsByNumberReadAndWriteAsByName) {
  FillStandard();
  Qdbase db;
  EXPECT_EQ(0, db.FieldCount());  // closed
  OpenWith(db, {});
  ASSERT_EQ(5, db.FieldCount());
  const int id = db.FieldNo("ID");
  const int qty = db.FieldNo("QTY");
  const int name = db.FieldNo("NAME");
  for (int ok = db.Top(); ok; ok = db.Next()) {
    long byName = 0, byNumber = 0;
    double qtyByName = 0, qtyByNumber = 0;
    ASSERT_EQ(1, db.ReadLong("ID", &byName));
    ASSERT_EQ(1, db.ReadFieldLong(id, &byNumber));
    EXPECT_EQ(byName, byNumber);
    ASSERT_EQ(1, db.ReadDouble("QTY", &qtyByName));
    ASSERT_EQ(1, db.ReadFieldDouble(qty, &qtyByNumber));
    EXPECT_EQ(qtyByName, qtyByNumber);
  }
  // A text that is not a number fails by number as by name.
  ASSERT_EQ(1, db.Go(1));
  long l = 5;
  double d = 5;
  EXPECT_EQ(db.ReadLong("NAME", &l), db.ReadFieldLong(name, &l));
  EXPECT_EQ(0, l);
  // Writes: the same refusals (a value too wide for N(8,3)) and the same bytes.
  EXPECT_EQ(0, db.WriteFieldDouble(qty, 123456.0));
  ASSERT_EQ(1, db.WriteFieldDouble(qty, 7.125));
  ASSERT_EQ(1, db.ReadDouble("QTY", &d));
  EXPECT_EQ(7.125, d);
  ASSERT_EQ(1, db.Close());
  EXPECT_NE(std::string::npos, ReadFile(File()).find("   7.125"));
}

TEST_F(QdbaseTest, WriteRefusedWhenItsFieldChangedUnderneath) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Go(1));
  // Another tool rewrites the table between this handle's last look and
  // its write: QTY is narrower now, and FLAG and CODE follow it.
  const QdbField narrower[] = {
      {"ID", 'N', 5, 0},  {"NAME", 'C', 10, 0}, {"QTY", 'N', 6, 3},
      {"FLAG", 'L', 1, 0}, {"CODE", 'C', 7, 0},
  };
  ASSERT_EQ(1, Qdbase::Create(dir.path().c_str(), "u", 5, narrower));
  {
    Qdbase other;
    ASSERT_EQ(1, other.SetFiles(dir.path().c_str(), "u", 0, nullptr, nullptr));
    ASSERT_EQ(1, other.Open());
    ASSERT_EQ(1, other.Append());
    ASSERT_EQ(1, other.WriteString("CODE", "KEEPME"));
    ASSERT_EQ(1, other.WriteLogical("FLAG", 1));
    ASSERT_EQ(1, other.Close());
  }
  ASSERT_EQ(0, rename(dir.file("u.dbf").c_str(), File().c_str()));
  const std::string before = ReadFile(File());
  TraceCapture trace;
  // The write was made for QTY as it was (8 wide): it is refused rather
  // than spread over the fields that now follow QTY.
  EXPECT_EQ(0, db.WriteDouble("QTY", 7.125));
  EXPECT_EQ(before, ReadFile(File()));
  EXPECT_NE(std::string::npos, trace.text().find("QTY")) << trace.text();
  EXPECT_NE(std::string::npos,
            trace.text().find(": write refused: field QTY is not what it was when the write "
                              "was made"))
      << trace.text();
  // NAME is as it was: written, and the fields after QTY keep their bytes.
  EXPECT_EQ(1, db.WriteString("NAME", "eleven"));
  ASSERT_EQ(1, db.Close());
  const std::string after = ReadFile(File());
  EXPECT_NE(std::string::npos, after.find("eleven    ")) << after;
  EXPECT_NE(std::string::npos, after.find("TKEEPME ")) << after;
}

TEST_F(QdbaseTest, FieldNumbersOutsideTheTableFail) {
  FillStandard();
  Qdbase db;
  long l = 5;
  double d = 5;
  EXPECT_EQ(0, db.ReadFieldLong(1, &l));  // closed
  EXPECT_EQ(0, l);
  OpenWith(db, {});
  const std::string before = ReadFile(File());
  for (int field : {0, -1, 6, 1000}) {
    l = 5;
    d = 5;
    EXPECT_EQ(0, db.ReadFieldLong(field, &l)) << field;
    EXPECT_EQ(0, l);
    EXPECT_EQ(0, db.ReadFieldDouble(field, &d)) << field;
    EXPECT_EQ(0.0, d);
    EXPECT_EQ(0, db.WriteFieldDouble(field, 1.0)) << field;
  }
  EXPECT_EQ(0, db.ReadFieldLong(1, nullptr));
  EXPECT_EQ(0, db.ReadFieldDouble(1, nullptr));
  EXPECT_EQ(before, ReadFile(File()));
}

TEST_F(QdbaseTest, GenerationChangesWhenTheTableIsOpenedAgain) {
  Qdbase db;
  OpenWith(db, {});
  const long first = db.Generation();
  ASSERT_EQ(1, db.Close());
  ASSERT_EQ(1, db.Open());
  EXPECT_NE(first, db.Generation());
}

TEST_F(QdbaseTest, ReadLongDropsAFractionAndReadIntChecksItsRange) {
  const QdbField fields[] = {{"BIG", 'N', 19, 0}, {"FRAC", 'N', 8, 3}};
  ASSERT_EQ(1, Qdbase::Create(dir.path().c_str(), "big", 2, fields));
  Qdbase db;
  ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "big", 0, nullptr, nullptr));
  ASSERT_EQ(1, db.Open());
  ASSERT_EQ(1, db.Append());
  ASSERT_EQ(1, db.WriteLong("BIG", 9000000000000000001L));
  ASSERT_EQ(1, db.WriteDouble("FRAC", -2.75));
  long l = 0;
  int i = 0;
  EXPECT_EQ(1, db.ReadLong("BIG", &l));
  EXPECT_EQ(9000000000000000001L, l);  // exact, not through a double
  EXPECT_EQ(0, db.ReadInt("BIG", &i));
  EXPECT_EQ(0, i);
  EXPECT_EQ(1, db.ReadLong("FRAC", &l));
  EXPECT_EQ(-2, l);
  EXPECT_EQ(1, db.ReadInt("FRAC", &i));
  EXPECT_EQ(-2, i);
}

TEST_F(QdbaseTest, ReadLogical) {
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Append());
  int v = -1;
  for (const char* t : {"T", "t", "Y", "y"}) {
    ASSERT_EQ(1, db.WriteString("FLAG", t));
    EXPECT_EQ(1, db.ReadLogical("FLAG", &v));
    EXPECT_EQ(1, v) << t;
  }
  for (const char* t : {"F", "f", "N", "n", "?", ""}) {
    ASSERT_EQ(1, db.WriteString("FLAG", t));
    v = -1;
    EXPECT_EQ(1, db.ReadLogical("FLAG", &v));
    EXPECT_EQ(0, v) << t;
  }
}

TEST_F(QdbaseTest, ReadLogicalOfAnotherTypeFails) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {});
  int v = 9;
  EXPECT_EQ(0, db.ReadLogical("ID", &v));
  EXPECT_EQ(0, v);
  v = 9;
  EXPECT_EQ(0, db.ReadLogical("NAME", &v));
  EXPECT_EQ(0, v);
}

TEST_F(QdbaseTest, ReadStringKeepsLeadingBlanksAndPaddingThatFits) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Go(1));
  char buf[32];
  ASSERT_EQ(1, db.ReadString("CODE", buf, sizeof buf));
  EXPECT_STREQ("    3", buf);
  ASSERT_EQ(1, db.ReadString("NAME", buf, sizeof buf));
  EXPECT_STREQ("thirty    ", buf);
  ASSERT_EQ(1, db.ReadString("NAME", buf, 9));  // padding dropped as far as needed
  EXPECT_STREQ("thirty  ", buf);
  ASSERT_EQ(1, db.ReadString("NAME", buf, 7));
  EXPECT_STREQ("thirty", buf);
  ASSERT_EQ(1, db.ReadString("NAME", buf, sizeof buf, 1));
  EXPECT_STREQ("thirty", buf);
}

// A text wider than the caller's buffer gives its leading characters, as a
// configuration field is read; TextLength tells a caller for whom a cut
// text would change meaning.
TEST_F(QdbaseTest, ReadStringGivesTheLeadingCharactersThatFit) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Go(1));
  char buf[32];
  memset(buf, 'x', sizeof buf);
  EXPECT_EQ(1, db.ReadString("NAME", buf, 6));  // "thirty" needs 7 bytes
  EXPECT_STREQ("thirt", buf);
  EXPECT_EQ('x', buf[6]) << "nothing is written past the buffer";
  EXPECT_EQ(1, db.ReadString("CODE", buf, 5));  // "    3" needs 6
  EXPECT_STREQ("    ", buf) << "the leading part as stored";
  EXPECT_EQ(1, db.ReadString("CODE", buf, 5, 1));
  EXPECT_STREQ("", buf) << "the leading part, trimmed";
  EXPECT_EQ(1, db.ReadString("NAME", buf, 1));
  EXPECT_STREQ("", buf);
  EXPECT_EQ(6, db.TextLength("NAME"));
  EXPECT_EQ(5, db.TextLength("CODE"));
  EXPECT_EQ(-1, db.TextLength("NOPE"));
  EXPECT_EQ(10, db.FieldWidth("NAME"));
  EXPECT_EQ(0, db.FieldWidth("NOPE"));
  EXPECT_EQ('C', db.FieldType("name"));
  EXPECT_EQ('N', db.FieldType("QTY"));
  EXPECT_EQ('\0', db.FieldType("NOPE"));
  EXPECT_EQ(0, db.ReadString("NAME", nullptr, 10));
  EXPECT_EQ(0, db.ReadString("NAME", buf, 0));
}

// Trimming applies to what fits: a cut that ends in blanks gives no
// trailing blank either.
TEST_F(QdbaseTest, ReadStringTrimsTheCutText) {
  Fill({{1, "AB  CDEFG", 1.0, 0, "x"}});
  Qdbase db;
  OpenWith(db, {});
  char buf[8];
  EXPECT_EQ(1, db.ReadString("NAME", buf, 5, 1));
  EXPECT_STREQ("AB", buf);
  EXPECT_EQ(1, db.ReadString("NAME", buf, 5, 0));
  EXPECT_STREQ("AB  ", buf);
  EXPECT_EQ(9, db.TextLength("NAME"));
}

// WriteStringAt rewrites the characters it is given and nothing else of
// the field, whatever lies beyond what a reader's buffer takes.
TEST_F(QdbaseTest, WriteStringAtKeepsTheRestOfTheField) {
  Fill({{1, "0000110011", 1.0, 0, "x"}});
  Qdbase db;
  OpenWith(db, {});
  EXPECT_EQ(1, db.WriteStringAt("NAME", 6, "1"));
  EXPECT_EQ("0000111011", Str(db, "NAME"));
  EXPECT_EQ(1, db.WriteStringAt("NAME", 0, "99"));
  EXPECT_EQ("9900111011", Str(db, "NAME"));
  EXPECT_EQ(0, db.WriteStringAt("NAME", 9, "12")) << "past the field's end";
  EXPECT_EQ(0, db.WriteStringAt("NAME", -1, "1"));
  EXPECT_EQ(0, db.WriteStringAt("QTY", 0, "1")) << "only text fields";
  EXPECT_EQ("9900111011", Str(db, "NAME"));
  db.Close();
  OpenWith(db, {});
  EXPECT_EQ("9900111011", Str(db, "NAME"));
}

TEST_F(QdbaseTest, ReadStringZeroFill) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Go(2));
  char buf[16];
  memset(buf, 'x', sizeof buf);
  ASSERT_EQ(1, db.ReadString("NAME", buf, sizeof buf, 1, 1));
  EXPECT_STREQ("ten", buf);
  for (size_t i = 3; i < sizeof buf; ++i) EXPECT_EQ('\0', buf[i]) << i;
  memset(buf, 'x', sizeof buf);
  ASSERT_EQ(1, db.ReadString("NAME", buf, sizeof buf, 1, 0));
  EXPECT_EQ('\0', buf[3]);
  EXPECT_EQ('x', buf[4]);  // the rest untouched without zeroFill
}

TEST_F(QdbaseTest, ReadStringOfAnyType) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Go(2));
  EXPECT_EQ("   10", Str(db, "ID"));
  EXPECT_EQ("   1.250", Str(db, "QTY"));
  EXPECT_EQ("F", Str(db, "FLAG"));
}

// --------------------------------------------------------------- Writes

TEST_F(QdbaseTest, WriteNumbersToNumericFields) {
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Append());
  EXPECT_EQ(1, db.WriteLong("ID", -1234));
  EXPECT_EQ("-1234", Str(db, "ID"));
  EXPECT_EQ(1, db.WriteInt("ID", 7));
  EXPECT_EQ("    7", Str(db, "ID"));
  EXPECT_EQ(1, db.WriteInt("QTY", 7));
  EXPECT_EQ("   7.000", Str(db, "QTY"));
  EXPECT_EQ(1, db.WriteDouble("QTY", 1234.5678));
  EXPECT_EQ("1234.568", Str(db, "QTY"));
  EXPECT_EQ(1, db.WriteDouble("QTY", -0.0001));
  EXPECT_EQ("   0.000", Str(db, "QTY"));  // no "-0.000"
  EXPECT_EQ(1, db.WriteDouble("QTY", 0.1 + 0.2));
  EXPECT_EQ("   0.300", Str(db, "QTY"));
  EXPECT_EQ(1, db.WriteDouble("ID", 2.5));
  EXPECT_EQ("    3", Str(db, "ID"));  // half away from zero
  EXPECT_EQ(1, db.WriteDouble("ID", -2.5));
  EXPECT_EQ("   -3", Str(db, "ID"));
}

TEST_F(QdbaseTest, WriteNumbersToATextFieldRightAligned) {
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Append());
  EXPECT_EQ(1, db.WriteLong("CODE", 3));
  EXPECT_EQ("    3", Str(db, "CODE"));
  EXPECT_EQ(1, db.WriteInt("CODE", -12));
  EXPECT_EQ("  -12", Str(db, "CODE"));
  EXPECT_EQ(1, db.WriteDouble("CODE", 1.5));
  EXPECT_EQ("  1.5", Str(db, "CODE"));
  EXPECT_EQ(1, db.WriteDouble("CODE", 42.0));
  EXPECT_EQ("   42", Str(db, "CODE"));
  EXPECT_EQ(0, db.WriteLong("CODE", 123456));
  EXPECT_EQ("   42", Str(db, "CODE"));
}

TEST_F(QdbaseTest, NumberTooWideIsRefusedAndNothingWritten) {
  Fill({{1, "one", 1.0, 1, "    1"}});
  std::string before = ReadFile(File());
  Qdbase db;
  OpenWith(db, {});
  EXPECT_EQ(0, db.WriteLong("ID", 100000));
  EXPECT_EQ(0, db.WriteLong("ID", -10000));
  EXPECT_EQ(0, db.WriteInt("ID", 123456));
  EXPECT_EQ(0, db.WriteDouble("ID", 99999.5));  // rounds to 100000
  EXPECT_EQ(0, db.WriteDouble("QTY", 10000.0));  // "10000.000" is 9 wide
  EXPECT_EQ(0, db.WriteDouble("QTY", -1000.0));
  EXPECT_EQ(1, db.WriteDouble("QTY", -999.999));
  ASSERT_EQ(1, db.WriteDouble("QTY", 1.0));  // back to what was there
  EXPECT_EQ(1, db.Close());
  std::string after = ReadFile(File());
  // Only the header's date may differ.
  EXPECT_EQ(before.substr(4), after.substr(4));
  Qdbase check;
  OpenWith(check, {});
  EXPECT_EQ(1, Long(check, "ID"));
}

TEST_F(QdbaseTest, NanAndInfinityAreRefused) {
  Fill({{1, "one", 1.0, 1, "    1"}});
  Qdbase db;
  OpenWith(db, {});
  EXPECT_EQ(0, db.WriteDouble("QTY", std::numeric_limits<double>::quiet_NaN()));
  EXPECT_EQ(0, db.WriteDouble("QTY", std::numeric_limits<double>::infinity()));
  EXPECT_EQ(0, db.WriteDouble("CODE", -std::numeric_limits<double>::infinity()));
  EXPECT_EQ("   1.000", Str(db, "QTY"));
  EXPECT_EQ("    1", Str(db, "CODE"));
}

TEST_F(QdbaseTest, WriteStringPadsWithBlanks) {
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Append());
  EXPECT_EQ(1, db.WriteString("NAME", "  ab"));
  EXPECT_EQ("  ab      ", Str(db, "NAME"));
  EXPECT_EQ(1, db.WriteString("NAME", "0123456789"));
  EXPECT_EQ("0123456789", Str(db, "NAME"));
  EXPECT_EQ(1, db.WriteString("NAME", ""));
  EXPECT_EQ("          ", Str(db, "NAME"));
  EXPECT_EQ(0, db.WriteString("NAME", nullptr));
}

TEST_F(QdbaseTest, TextTooLongIsRefusedAndNothingWritten) {
  Fill({{1, "one", 1.0, 1, "    1"}});
  std::string before = ReadFile(File());
  {
    Qdbase db;
    OpenWith(db, {});
    EXPECT_EQ(0, db.WriteString("NAME", "01234567890"));
    EXPECT_EQ(0, db.WriteString("CODE", "123456"));
    EXPECT_EQ("one       ", Str(db, "NAME"));
    EXPECT_EQ("    1", Str(db, "CODE"));
  }
  EXPECT_EQ(before, ReadFile(File()));
}

TEST_F(QdbaseTest, WriteStringToOtherTypes) {
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Append());
  EXPECT_EQ(1, db.WriteString("ID", "   42"));
  EXPECT_EQ(42, Long(db, "ID"));
  EXPECT_EQ(1, db.WriteString("QTY", "1.5"));
  EXPECT_EQ("   1.500", Str(db, "QTY"));
  EXPECT_EQ(0, db.WriteString("ID", "abc"));
  EXPECT_EQ(0, db.WriteString("ID", "123456"));
  EXPECT_EQ(42, Long(db, "ID"));
  EXPECT_EQ(1, db.WriteString("ID", ""));
  EXPECT_EQ("     ", Str(db, "ID"));
  EXPECT_EQ(1, db.WriteString("FLAG", "T"));
  EXPECT_EQ(0, db.WriteString("FLAG", "X"));
  EXPECT_EQ(0, db.WriteString("FLAG", "TT"));
  EXPECT_EQ("T", Str(db, "FLAG"));
}

TEST_F(QdbaseTest, WriteLogical) {
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Append());
  EXPECT_EQ(1, db.WriteLogical("FLAG", 1));
  EXPECT_EQ("T", Str(db, "FLAG"));
  EXPECT_EQ(1, db.WriteLogical("FLAG", 0));
  EXPECT_EQ("F", Str(db, "FLAG"));
  EXPECT_EQ(1, db.WriteLogical("FLAG", 5));
  EXPECT_EQ("T", Str(db, "FLAG"));
}

TEST_F(QdbaseTest, WritesOfTheWrongKindAreRefused) {
  Fill({{1, "one", 1.0, 1, "    1"}});
  std::string before = ReadFile(File());
  {
    Qdbase db;
    OpenWith(db, {});
    EXPECT_EQ(0, db.WriteLogical("ID", 1));
    EXPECT_EQ(0, db.WriteLogical("NAME", 1));
    EXPECT_EQ(0, db.WriteLong("FLAG", 1));
    EXPECT_EQ(0, db.WriteInt("FLAG", 1));
    EXPECT_EQ(0, db.WriteDouble("FLAG", 1.0));
  }
  EXPECT_EQ(before, ReadFile(File()));
}

TEST_F(QdbaseTest, WriteToAFieldTheTableLacksFails) {
  Fill({{1, "one", 1.0, 1, "    1"}});
  std::string before = ReadFile(File());
  {
    Qdbase db;
    OpenWith(db, {});
    EXPECT_EQ(0, db.WriteLong("NOSUCH", 1));
    EXPECT_EQ(0, db.WriteInt("NOSUCH", 1));
    EXPECT_EQ(0, db.WriteDouble("NOSUCH", 1.0));
    EXPECT_EQ(0, db.WriteLogical("NOSUCH", 1));
    EXPECT_EQ(0, db.WriteString("NOSUCH", "x"));
    EXPECT_EQ(0, db.WriteString(nullptr, "x"));
  }
  EXPECT_EQ(before, ReadFile(File()));
}

TEST_F(QdbaseTest, WritesAtTheEndFail) {
  Fill({{1, "one", 1.0, 1, "    1"}});
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(0, db.Next());
  ASSERT_EQ(1, db.Eof());
  EXPECT_EQ(0, db.WriteLong("ID", 2));
  EXPECT_EQ(0, db.WriteString("NAME", "x"));
  EXPECT_EQ(0, db.Delete());
  ASSERT_EQ(1, db.Top());
  EXPECT_EQ(1, Long(db, "ID"));
}

TEST_F(QdbaseTest, WritingAKeyFieldKeepsTheIndexInOrder) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"ID", "CODE"});
  ASSERT_EQ(1, db.Go(5));  // id 40
  ASSERT_EQ(1, db.WriteLong("ID", 5));
  EXPECT_EQ(5, db.RecNo());  // the record stays current
  EXPECT_EQ((std::vector<long>{5, 2, 4, 3, 1}), Walk(db));
  EXPECT_EQ(1, db.Seek(5.0));
  EXPECT_EQ(5, db.RecNo());
  EXPECT_EQ(0, db.Seek(40.0));
  EXPECT_EQ(1, db.Eof());
  // Moving a record among equal keys keeps record order.
  ASSERT_EQ(1, db.Go(1));
  ASSERT_EQ(1, db.WriteLong("ID", 10));
  EXPECT_EQ((std::vector<long>{5, 1, 2, 4, 3}), Walk(db));
  ASSERT_EQ(1, db.SelectIdx(2));
  ASSERT_EQ(1, db.Go(5));
  ASSERT_EQ(1, db.WriteString("CODE", "    1"));
  EXPECT_EQ((std::vector<long>{5, 1, 3, 2, 4}), Walk(db));
  // The next walk from a moved record follows the new order.
  ASSERT_EQ(1, db.Go(1));
  ASSERT_EQ(1, db.Next());
  EXPECT_EQ(3, db.RecNo());
}

TEST_F(QdbaseTest, AppendKeepsTheIndexInOrder) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"ID"});
  ASSERT_EQ(1, db.Append());
  EXPECT_EQ(6, db.RecNo());
  EXPECT_EQ(6, db.RecCount());
  EXPECT_EQ(0, db.Eof());
  // A blank key reads 0: first.
  EXPECT_EQ((std::vector<long>{6, 2, 4, 3, 1, 5}), Walk(db));
  ASSERT_EQ(1, db.Go(6));
  ASSERT_EQ(1, db.WriteLong("ID", 25));
  EXPECT_EQ((std::vector<long>{2, 4, 3, 6, 1, 5}), Walk(db));
  EXPECT_EQ(1, db.Seek(25.0));
  EXPECT_EQ(6, db.RecNo());
}

TEST_F(QdbaseTest, AppendedRecordIsBlank) {
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Append());
  EXPECT_EQ("     ", Str(db, "ID"));
  EXPECT_EQ("          ", Str(db, "NAME"));
  EXPECT_EQ(" ", Str(db, "FLAG"));
  EXPECT_EQ(0, db.IsDeleted());
}

// ------------------------------------------------------ Delete and Pack

TEST_F(QdbaseTest, DeletedRecordsAreSkippedByNavigation) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"ID"});
  ASSERT_EQ(1, db.Go(2));
  ASSERT_EQ(1, db.Delete());
  EXPECT_EQ(1, db.IsDeleted());
  EXPECT_EQ(2, db.RecNo());  // stays on the deleted record
  ASSERT_EQ(1, db.Go(5));
  ASSERT_EQ(1, db.Delete());
  EXPECT_EQ(5, db.RecCount());
  EXPECT_EQ((std::vector<long>{4, 3, 1}), Walk(db));
  EXPECT_EQ((std::vector<long>{1, 3, 4}), WalkBack(db));
  ASSERT_EQ(1, db.SelectIdx(0));
  EXPECT_EQ((std::vector<long>{1, 3, 4}), Walk(db));
  EXPECT_EQ((std::vector<long>{4, 3, 1}), WalkBack(db));
  // Go reaches a deleted record; Next from it goes on in order.
  ASSERT_EQ(1, db.Go(2));
  EXPECT_EQ(1, db.IsDeleted());
  EXPECT_EQ(1, db.Next());
  EXPECT_EQ(3, db.RecNo());
  EXPECT_EQ(0, db.IsDeleted());
}

TEST_F(QdbaseTest, DeletedFirstRecordAndBof) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Go(1));
  ASSERT_EQ(1, db.Delete());
  EXPECT_EQ(1, db.Top());
  EXPECT_EQ(2, db.RecNo());
  EXPECT_EQ(0, db.Prev());
  EXPECT_EQ(1, db.Bof());
  EXPECT_EQ(2, db.RecNo());
  // Prev from the deleted record before every live one: the first live one.
  ASSERT_EQ(1, db.Go(1));
  EXPECT_EQ(0, db.Prev());
  EXPECT_EQ(1, db.Bof());
  EXPECT_EQ(2, db.RecNo());
}

TEST_F(QdbaseTest, DeletionsAreInTheFile) {
  FillStandard();
  {
    Qdbase db;
    OpenWith(db, {});
    ASSERT_EQ(1, db.Go(3));
    ASSERT_EQ(1, db.Delete());
  }
  Qdbase db;
  OpenWith(db, {});
  EXPECT_EQ((std::vector<long>{1, 2, 4, 5}), Walk(db));
  ASSERT_EQ(1, db.Go(3));
  EXPECT_EQ(1, db.IsDeleted());
}

TEST_F(QdbaseTest, AllRecordsDeleted) {
  Fill({{1, "one", 1.0, 1, "    1"}, {2, "two", 2.0, 0, "    2"}});
  Qdbase db;
  OpenWith(db, {"ID"});
  ASSERT_EQ(1, db.Go(1));
  ASSERT_EQ(1, db.Delete());
  ASSERT_EQ(1, db.Go(2));
  ASSERT_EQ(1, db.Delete());
  EXPECT_EQ(0, db.Top());
  EXPECT_EQ(1, db.Eof());
  EXPECT_EQ(0, db.Bottom());
  EXPECT_EQ(0, db.Seek(1.0));
  EXPECT_EQ(1, db.Eof());
  EXPECT_EQ(2, db.RecCount());
}

TEST_F(QdbaseTest, PackRemovesDeletedRecordsAndRenumbers) {
  FillStandard();
  ASSERT_EQ(0, chmod(File().c_str(), 0640));
  Qdbase db;
  OpenWith(db, {"ID"});
  ASSERT_EQ(1, db.Go(2));
  ASSERT_EQ(1, db.Delete());
  ASSERT_EQ(1, db.Go(3));
  ASSERT_EQ(1, db.Delete());
  ASSERT_EQ(1, db.Pack());
  EXPECT_EQ(3, db.RecCount());
  EXPECT_EQ(1, db.IsOpen());
  // At the top of the index: id 10 (was record 4, now 2).
  EXPECT_EQ(2, db.RecNo());
  EXPECT_EQ(10, Long(db, "ID"));
  EXPECT_EQ((std::vector<long>{2, 1, 3}), Walk(db));
  ASSERT_EQ(1, db.SelectIdx(0));
  std::vector<long> ids;
  for (int ok = db.Top(); ok; ok = db.Next()) ids.push_back(Long(db, "ID"));
  EXPECT_EQ((std::vector<long>{30, 10, 40}), ids);
  EXPECT_EQ(1, db.SelectIdx(1));
  EXPECT_EQ(1, db.Seek(40.0));
  EXPECT_EQ(3, db.RecNo());
  EXPECT_EQ("  100", Str(db, "CODE"));
  // The file keeps its permissions; no temporary file is left.
  struct stat st;
  ASSERT_EQ(0, stat(File().c_str(), &st));
  EXPECT_EQ(0640u, st.st_mode & 07777);
  std::string listing;
  qtest::RunCommand("ls -A '" + dir.path() + "'", &listing);
  EXPECT_EQ("qslave.jnl\nt.dbf\n", listing);
  // And the file holds just the three records.
  EXPECT_EQ(1, db.Close());
  std::string bytes = ReadFile(File());
  EXPECT_EQ(3, bytes[4]);
  size_t recLen = 1 + 5 + 10 + 8 + 1 + 5;
  size_t header = 32 + 5 * 32 + 1;
  EXPECT_GE(bytes.size(), header + 3 * recLen);
  EXPECT_LE(bytes.size(), header + 3 * recLen + 1);
}

TEST_F(QdbaseTest, PackOfAnAllDeletedTableLeavesItEmpty) {
  Fill({{1, "one", 1.0, 1, "    1"}});
  Qdbase db;
  OpenWith(db, {"ID"});
  ASSERT_EQ(1, db.Delete());
  ASSERT_EQ(1, db.Pack());
  EXPECT_EQ(0, db.RecCount());
  EXPECT_EQ(1, db.Eof());
  ASSERT_EQ(1, db.Append());
  ASSERT_EQ(1, db.WriteLong("ID", 3));
  EXPECT_EQ(1, db.RecCount());
}

TEST_F(QdbaseTest, PackWritesPendingChangesFirst) {
  FillStandard();
  Qdbase::FlushSet(0);
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Go(1));
  ASSERT_EQ(1, db.WriteString("NAME", "changed"));
  ASSERT_EQ(1, db.Append());
  ASSERT_EQ(1, db.WriteLong("ID", 99));
  ASSERT_EQ(1, db.Go(2));
  ASSERT_EQ(1, db.Delete());
  ASSERT_EQ(1, db.Pack());
  EXPECT_EQ(5, db.RecCount());
  ASSERT_EQ(1, db.Go(1));
  EXPECT_EQ("changed   ", Str(db, "NAME"));
  ASSERT_EQ(1, db.Go(5));
  EXPECT_EQ(99, Long(db, "ID"));
}

// Pack writes a complete new file before it replaces the old one: when the
// new file cannot be made (here its name, longer than the table's, exceeds
// the file system's limit), the old file and the open table stay as they
// were.
TEST_F(QdbaseTest, FailedPackLeavesTheOldFile) {
  std::string base(245, 'p');
  ASSERT_EQ(1, Qdbase::Create(dir.path().c_str(), base.c_str(), 5, kFields));
  Qdbase db;
  ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), base.c_str(), 0, nullptr, nullptr));
  ASSERT_EQ(1, db.Open());
  for (long id = 1; id <= 3; ++id) {
    ASSERT_EQ(1, db.Append());
    ASSERT_EQ(1, db.WriteLong("ID", id));
  }
  ASSERT_EQ(1, db.Go(2));
  ASSERT_EQ(1, db.Delete());
  std::string before = ReadFile(dir.file(base + ".dbf"));
  TraceCapture trace;
  EXPECT_EQ(0, db.Pack());
  EXPECT_NE(std::string::npos, trace.text().find("cannot pack")) << trace.text();
  EXPECT_EQ(before, ReadFile(dir.file(base + ".dbf")));
  EXPECT_EQ(1, db.IsOpen());
  EXPECT_EQ(3, db.RecCount());
  EXPECT_EQ(2, db.RecNo());
  EXPECT_EQ(1, db.IsDeleted());
  std::string listing;
  qtest::RunCommand("ls -A '" + dir.path() + "' | grep -v qslave.jnl | wc -l", &listing);
  EXPECT_EQ("2\n", listing);  // t.dbf and the long one, nothing half-written
}

TEST_F(QdbaseTest, PackOfAClosedTableFails) {
  Qdbase db;
  EXPECT_EQ(0, db.Pack());
  EXPECT_EQ(0, db.RebuildIndex());
  EXPECT_EQ(0, db.Flush());
}

// ---------------------------------------------------- RebuildIndex, Flush

TEST_F(QdbaseTest, RebuildIndexKeepsTheCurrentRecord) {
  FillStandard();
  Qdbase db;
  OpenWith(db, {"ID"});
  ASSERT_EQ(1, db.Go(3));
  EXPECT_EQ(1, db.RebuildIndex());
  EXPECT_EQ(3, db.RecNo());
  EXPECT_EQ((std::vector<long>{2, 4, 3, 1, 5}), Walk(db));
}

TEST_F(QdbaseTest, FlushModeIsProcessWide) {
  Qdbase::FlushSet(0);
  EXPECT_EQ(0, Qdbase::FlushGet());
  Qdbase::FlushSet(1);
  EXPECT_EQ(1, Qdbase::FlushGet());
  Qdbase::FlushSet(7);
  EXPECT_EQ(1, Qdbase::FlushGet());
}

TEST_F(QdbaseTest, FlushModeOneWritesThroughAtOnce) {
  FillStandard();
  Qdbase::FlushSet(1);
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Go(1));
  ASSERT_EQ(1, db.WriteString("NAME", "through"));
  EXPECT_NE(std::string::npos, ReadFile(File()).find("through"));
  ASSERT_EQ(1, db.Append());
  ASSERT_EQ(1, db.WriteString("NAME", "appended"));
  std::string bytes = ReadFile(File());
  EXPECT_NE(std::string::npos, bytes.find("appended"));
  EXPECT_EQ(6, bytes[4]);  // the header counts the new record
  ASSERT_EQ(1, db.Go(2));
  ASSERT_EQ(1, db.Delete());
  size_t header = 32 + 5 * 32 + 1;
  size_t recLen = 30;
  EXPECT_EQ('*', ReadFile(File())[header + recLen]);
}

TEST_F(QdbaseTest, FlushModeZeroWritesOnFlush) {
  FillStandard();
  Qdbase::FlushSet(0);
  Qdbase db;
  OpenWith(db, {});
  ASSERT_EQ(1, db.Append());
  ASSERT_EQ(1, db.WriteString("NAME", "buffered"));
  EXPECT_EQ(1, db.Flush());
  std::string bytes = ReadFile(File());
  EXPECT_NE(std::string::npos, bytes.find("buffered"));
  EXPECT_EQ(6, bytes[4]);
}

// ----------------------------------------------------------- Read-only

TEST_F(QdbaseTest, ReadOnlyFileOpensButRefusesWrites) {
  FillStandard();
  ASSERT_EQ(0, chmod(File().c_str(), 0444));
  std::string before = ReadFile(File());
  {
    Qdbase db;
    OpenWith(db, {"ID"});
    EXPECT_EQ(5, db.RecCount());
    EXPECT_EQ(10, Long(db, "ID"));
    EXPECT_EQ(0, db.WriteLong("ID", 11));
    EXPECT_EQ(0, db.WriteDouble("QTY", 1.0));
    EXPECT_EQ(0, db.WriteInt("ID", 11));
    EXPECT_EQ(0, db.WriteLogical("FLAG", 1));
    EXPECT_EQ(0, db.WriteString("NAME", "x"));
    EXPECT_EQ(0, db.Append());
    EXPECT_EQ(0, db.Delete());
    EXPECT_EQ(0, db.Pack());
    EXPECT_EQ(10, Long(db, "ID"));
    EXPECT_EQ(5, db.RecCount());
    EXPECT_EQ(0, db.IsDeleted());
    EXPECT_EQ(1, db.Flush());
    EXPECT_EQ(1, db.Close());
  }
  EXPECT_EQ(before, ReadFile(File()));
}

// A watcher process opens even writable tables for reading only.
TEST_F(QdbaseTest, ReadOnlyModeOpensWritableFilesForReadingOnly) {
  FillStandard();
  std::string before = ReadFile(File());
  Qdbase::SetReadOnly(1);
  {
    Qdbase db;
    OpenWith(db, {"ID"});
    EXPECT_EQ(1, Qdbase::ReadOnly());
    EXPECT_EQ(10, Long(db, "ID"));
    EXPECT_EQ(0, db.WriteLong("ID", 11));
    EXPECT_EQ(0, db.WriteString("NAME", "x"));
    EXPECT_EQ(0, db.Append());
    EXPECT_EQ(0, db.Delete());
    EXPECT_EQ(0, db.Pack());
    EXPECT_EQ(1, db.Close());
  }
  Qdbase::SetReadOnly(0);
  EXPECT_EQ(0, Qdbase::ReadOnly());
  EXPECT_EQ(before, ReadFile(File()));
  Qdbase db;
  OpenWith(db, {"ID"});
  EXPECT_EQ(1, db.WriteLong("ID", 11));
}

}  // namespace
