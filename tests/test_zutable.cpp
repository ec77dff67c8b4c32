// CZutable on colourant and cans tables built in a fresh directory, the
// formula volume conversion that reads them, and Zu_DataIdFromSlaveId.
#include <math.h>
#include <stdio.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "config_schema.h"
#include "host/qdbase.h"
#include "host/zutable.h"
#include "test_support.h"

namespace {

struct Colorant {
  long id;
  const char* code;
  double weight;
};

const char* kNoIndex[] = {nullptr};

// Opens dir/base.dbf in record order (the table must exist).
void OpenPlain(Qdbase* table, const std::string& dir, const char* base) {
  ASSERT_EQ(1, table->SetFiles(dir.c_str(), base, 0, kNoIndex, kNoIndex));
  ASSERT_EQ(1, table->Open());
}

void WriteColorants(const std::string& dir, const std::vector<Colorant>& rows) {
  ASSERT_EQ(1, QdbSchemaCreate(QDB_SCHEMA_COLORANTS, dir.c_str()));
  Qdbase table;
  OpenPlain(&table, dir, "colorants");
  for (const Colorant& row : rows) {
    ASSERT_EQ(1, table.Append());
    ASSERT_EQ(1, table.WriteLong("ID", row.id));
    ASSERT_EQ(1, table.WriteString("CODE", row.code));
    ASSERT_EQ(1, table.WriteDouble("SPEC_W", row.weight));
  }
  ASSERT_EQ(1, table.Close());
}

std::string MakeDir(const std::string& path) {
  EXPECT_EQ(0, mkdir(path.c_str(), 0755));
  return path;
}

// Components of a formula as (id, quantity) pairs.
std::vector<std::pair<long long, double>> Read(const kformula& f) {
  std::vector<std::pair<long long, double>> out;
  int n = f.count();
  if (n <= 0) return out;
  std::vector<long long> ids(n);
  std::vector<double> qnts(n);
  f.parse(ids.data(), qnts.data());
  for (int i = 0; i < n; ++i) out.emplace_back(ids[i], qnts[i]);
  return out;
}

class ZutableTest : public ::testing::Test {
 protected:
  qtest::TempDir dir_;
  qtest::ScopedEnv data_{"QSLAVE_DATA", dir_.path().c_str()};
};

}  // namespace

// --- Choosing and opening a table --------------------------------------------

TEST_F(ZutableTest, NewObjectChoosesNothing) {
  CZutable t;
  EXPECT_EQ(0, t.DataId());
  EXPECT_EQ(ZUSPEC_NONE, t.Handle());
  EXPECT_EQ(0, t.IsOpen());
  EXPECT_EQ(nullptr, t.Table());
  EXPECT_STREQ("", t.FileName());
}

TEST_F(ZutableTest, OpenWithoutChosenTableFails) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  CZutable t;
  EXPECT_EQ(0, t.Open());
  EXPECT_EQ(0, t.IsOpen());
}

TEST_F(ZutableTest, HandleAnswersThePreviousChoice) {
  CZutable t;
  EXPECT_EQ(ZUSPEC_NONE, t.Handle(ZUSPEC_COLORANTS));
  EXPECT_EQ(ZUSPEC_COLORANTS, t.Handle(ZUSPEC_CANS));
  EXPECT_EQ(ZUSPEC_CANS, t.Handle());
}

TEST_F(ZutableTest, UnknownHandleCannotBeOpened) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  CZutable t;
  t.Handle(5);
  EXPECT_EQ(0, t.Open());
  EXPECT_STREQ("", t.FileName());
}

TEST_F(ZutableTest, OpensColorantsInTheDataDirectory) {
  WriteColorants(dir_.path(), {{3, "RED", 1200.0}, {1, "WHITE", 1450.5}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  ASSERT_EQ(1, t.Open());
  EXPECT_EQ(1, t.IsOpen());
  Qdbase* table = t.Table();
  ASSERT_NE(nullptr, table);
  EXPECT_EQ(2, table->RecCount());
  EXPECT_EQ(dir_.file("colorants.dbf"), t.FileName());
  // Index 1 orders by ID.
  ASSERT_EQ(1, table->SelectIdx(1));
  ASSERT_EQ(1, table->Top());
  long id = 0;
  ASSERT_EQ(1, table->ReadLong("ID", &id));
  EXPECT_EQ(1, id);
  char code[16];
  ASSERT_EQ(1, table->ReadString("CODE", code, sizeof code, 1));
  EXPECT_STREQ("WHITE", code);
}

TEST_F(ZutableTest, FileNameIsKnownBeforeOpen) {
  CZutable t;
  t.Handle(ZUSPEC_CANS);
  EXPECT_EQ(dir_.file("cans.dbf"), t.FileName());
}

TEST_F(ZutableTest, OpenTwiceKeepsTheSameTable) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  ASSERT_EQ(1, t.Open());
  Qdbase* first = t.Table();
  EXPECT_EQ(1, t.Open());
  EXPECT_EQ(first, t.Table());
}

TEST_F(ZutableTest, MissingColorantsTableIsNotOpened) {
  qtest::TraceCapture trace;
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_EQ(0, t.Open());
  EXPECT_EQ(0, t.IsOpen());
  EXPECT_EQ(nullptr, t.Table());
  EXPECT_NE(std::string::npos, trace.text().find("colorants"));
}

TEST_F(ZutableTest, UpperCaseFileNameIsUsedWhenLowerCaseIsAbsent) {
  WriteColorants(dir_.path(), {{4, "BLK", 1800.0}});
  ASSERT_EQ(0, rename(dir_.file("colorants.dbf").c_str(),
                      dir_.file("COLORANTS.DBF").c_str()));
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  ASSERT_EQ(1, t.Open());
  EXPECT_EQ(dir_.file("COLORANTS.DBF"), t.FileName());
  EXPECT_DOUBLE_EQ(1800.0, t.SpecificWeight(4));
}

TEST_F(ZutableTest, EmptyTableOpens) {
  ASSERT_EQ(1, QdbSchemaCreate(QDB_SCHEMA_COLORANTS, dir_.path().c_str()));
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  ASSERT_EQ(1, t.Open());
  EXPECT_EQ(0, t.Table()->RecCount());
  EXPECT_EQ(0, t.Table()->Top());
  EXPECT_EQ(0.0, t.SpecificWeight(1));
}

TEST_F(ZutableTest, CloseAnswersWhetherItClosed) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_EQ(0, t.Close());
  ASSERT_EQ(1, t.Open());
  EXPECT_EQ(1, t.Close());
  EXPECT_EQ(0, t.IsOpen());
  EXPECT_EQ(nullptr, t.Table());
  EXPECT_EQ(0, t.Close());
}

TEST_F(ZutableTest, ChangingTheHandleClosesTheTable) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  ASSERT_EQ(1, t.Open());
  t.Handle(ZUSPEC_COLORANTS);  // the same choice keeps it open
  EXPECT_EQ(1, t.IsOpen());
  t.Handle(ZUSPEC_CANS);
  EXPECT_EQ(0, t.IsOpen());
}

TEST_F(ZutableTest, ChangingTheDataIdClosesTheTable) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  ASSERT_EQ(1, t.Open());
  t.SetDataId(0);
  EXPECT_EQ(1, t.IsOpen());
  t.SetDataId(2);
  EXPECT_EQ(0, t.IsOpen());
  EXPECT_EQ(2, t.DataId());
}

TEST_F(ZutableTest, DestructorWritesPendingChanges) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  {
    CZutable t;
    t.Handle(ZUSPEC_COLORANTS);
    ASSERT_EQ(1, t.Open());
    ASSERT_EQ(1, t.Table()->Top());
    ASSERT_EQ(1, t.Table()->WriteDouble("SPEC_W", 1234.5));
  }
  Qdbase check;
  OpenPlain(&check, dir_.path(), "colorants");
  double weight = 0.0;
  ASSERT_EQ(1, check.ReadDouble("SPEC_W", &weight));
  EXPECT_DOUBLE_EQ(1234.5, weight);
}

TEST_F(ZutableTest, DataDirectoryThatCannotBeToldFails) {
  std::string tooLong = "/" + std::string(5000, 'd');
  qtest::ScopedEnv data("QSLAVE_DATA", tooLong.c_str());
  qtest::TraceCapture trace;
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_EQ(0, t.Open());
  EXPECT_NE(std::string::npos, trace.text().find("colorants"));
  EXPECT_EQ(0.0, t.SpecificWeight(1));
  EXPECT_STREQ("", t.FileName());
}

// --- Data sets ---------------------------------------------------------------

TEST_F(ZutableTest, DataIdUsesItsSubdirectoryWhenPresent) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  std::string sub = MakeDir(dir_.file("data3"));
  WriteColorants(sub, {{1, "W", 1333.0}});
  CZutable t;
  t.SetDataId(3);
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_DOUBLE_EQ(1333.0, t.SpecificWeight(1));
  ASSERT_EQ(1, t.Open());
  EXPECT_EQ(sub + "/colorants.dbf", t.FileName());
}

TEST_F(ZutableTest, DataIdWithoutSubdirectoryUsesTheDataDirectory) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  MakeDir(dir_.file("data3"));
  CZutable t;
  t.SetDataId(4);
  t.Handle(ZUSPEC_COLORANTS);
  ASSERT_EQ(1, t.Open());
  EXPECT_EQ(dir_.file("colorants.dbf"), t.FileName());
  EXPECT_DOUBLE_EQ(1000.0, t.SpecificWeight(1));
}

TEST_F(ZutableTest, SubdirectoryWithoutTheTableIsNotReplacedByTheParent) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  MakeDir(dir_.file("data2"));
  CZutable t;
  t.SetDataId(2);
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_EQ(0, t.Open());
  EXPECT_EQ(0.0, t.SpecificWeight(1));
}

TEST_F(ZutableTest, DataIdZeroIsTheDataDirectoryEvenWithData0) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  WriteColorants(MakeDir(dir_.file("data0")), {{1, "W", 1500.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_DOUBLE_EQ(1000.0, t.SpecificWeight(1));
}

TEST_F(ZutableTest, NegativeDataIdIsTheDataDirectory) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  CZutable t;
  t.SetDataId(-1);
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_DOUBLE_EQ(1000.0, t.SpecificWeight(1));
}

TEST_F(ZutableTest, DataDirectoryWithTrailingSlash) {
  std::string withSlash = dir_.path() + "/";
  qtest::ScopedEnv data("QSLAVE_DATA", withSlash.c_str());
  WriteColorants(MakeDir(dir_.file("data7")), {{1, "W", 1777.0}});
  CZutable t;
  t.SetDataId(7);
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_DOUBLE_EQ(1777.0, t.SpecificWeight(1));
}

// --- Cans --------------------------------------------------------------------

TEST_F(ZutableTest, CansIndexIsTheIdAsFiveCharacters) {
  ASSERT_EQ(1, QdbSchemaCreate(QDB_SCHEMA_CANS, dir_.path().c_str()));
  {
    Qdbase w;
    OpenPlain(&w, dir_.path(), "cans");
    const long ids[] = {120, 7, 45};
    for (long id : ids) {
      ASSERT_EQ(1, w.Append());
      ASSERT_EQ(1, w.WriteLong("ID", id));
      ASSERT_EQ(1, w.WriteLong("H_MIN", id + 1));
      ASSERT_EQ(1, w.WriteLong("H_MAX", id + 100));
    }
  }
  CZutable t;
  t.Handle(ZUSPEC_CANS);
  ASSERT_EQ(1, t.Open());
  Qdbase* cans = t.Table();
  ASSERT_EQ(1, cans->SelectIdx(1));
  ASSERT_EQ(1, cans->Seek("   45"));
  long hmax = 0;
  ASSERT_EQ(1, cans->ReadLong("H_MAX", &hmax));
  EXPECT_EQ(145, hmax);
  // Right-aligned five characters order as numbers do.
  ASSERT_EQ(1, cans->Top());
  long first = 0;
  ASSERT_EQ(1, cans->ReadLong("ID", &first));
  EXPECT_EQ(7, first);
  ASSERT_EQ(1, cans->Bottom());
  long last = 0;
  ASSERT_EQ(1, cans->ReadLong("ID", &last));
  EXPECT_EQ(120, last);
}

TEST_F(ZutableTest, MissingCansTableIsNotOpened) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  CZutable t;
  t.Handle(ZUSPEC_CANS);
  EXPECT_EQ(0, t.Open());
}

// --- TmpOpen and TmpClose ------------------------------------------------------

TEST_F(ZutableTest, TmpCloseKeepsATableOpenedByOpen) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  ASSERT_EQ(1, t.Open());
  Qdbase* table = t.Table();
  EXPECT_EQ(1, t.TmpOpen());
  EXPECT_EQ(table, t.Table());
  EXPECT_EQ(1, t.TmpClose());
  EXPECT_EQ(1, t.IsOpen());
  EXPECT_EQ(table, t.Table());
}

TEST_F(ZutableTest, TmpCloseClosesWhatTmpOpenOpened) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_EQ(1, t.TmpOpen());
  EXPECT_EQ(1, t.IsOpen());
  EXPECT_EQ(1, t.TmpClose());
  EXPECT_EQ(0, t.IsOpen());
}

TEST_F(ZutableTest, NestedTmpOpenClosesOnlyAtTheOuterTmpClose) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  ASSERT_EQ(1, t.TmpOpen());
  ASSERT_EQ(1, t.TmpOpen());
  EXPECT_EQ(1, t.TmpClose());
  EXPECT_EQ(1, t.IsOpen());
  EXPECT_EQ(1, t.TmpClose());
  EXPECT_EQ(0, t.IsOpen());
}

TEST_F(ZutableTest, OpenAfterTmpOpenKeepsTheTableOpen) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  ASSERT_EQ(1, t.TmpOpen());
  ASSERT_EQ(1, t.Open());
  EXPECT_EQ(1, t.TmpClose());
  EXPECT_EQ(1, t.IsOpen());
}

TEST_F(ZutableTest, UnmatchedTmpCloseFails) {
  WriteColorants(dir_.path(), {{1, "W", 1000.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_EQ(0, t.TmpClose());
  ASSERT_EQ(1, t.Open());
  EXPECT_EQ(0, t.TmpClose());
  EXPECT_EQ(1, t.IsOpen());
}

TEST_F(ZutableTest, TmpOpenOfMissingTableFails) {
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_EQ(0, t.TmpOpen());
  EXPECT_EQ(0, t.IsOpen());
  EXPECT_EQ(0, t.TmpClose());
}

// --- SpecificWeight ----------------------------------------------------------

TEST_F(ZutableTest, SpecificWeightOfKnownColorants) {
  WriteColorants(dir_.path(), {{10, "A", 1100.0}, {2, "B", 987.654}, {33, "C", 1.5}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_DOUBLE_EQ(1100.0, t.SpecificWeight(10));
  EXPECT_DOUBLE_EQ(987.654, t.SpecificWeight(2));
  EXPECT_DOUBLE_EQ(1.5, t.SpecificWeight(33));
  EXPECT_EQ(0, t.IsOpen());
}

TEST_F(ZutableTest, SpecificWeightOfUnknownColorantIsZero) {
  WriteColorants(dir_.path(), {{10, "A", 1100.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_EQ(0.0, t.SpecificWeight(11));
  EXPECT_EQ(0.0, t.SpecificWeight(9));
  EXPECT_EQ(0.0, t.SpecificWeight(-10));
}

TEST_F(ZutableTest, ZeroOrNegativeWeightIsZero) {
  WriteColorants(dir_.path(), {{1, "Z", 0.0}, {2, "N", -850.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_EQ(0.0, t.SpecificWeight(1));
  EXPECT_EQ(0.0, t.SpecificWeight(2));
}

TEST_F(ZutableTest, BlankWeightIsZero) {
  ASSERT_EQ(1, QdbSchemaCreate(QDB_SCHEMA_COLORANTS, dir_.path().c_str()));
  {
    Qdbase w;
    OpenPlain(&w, dir_.path(), "colorants");
    ASSERT_EQ(1, w.Append());
    ASSERT_EQ(1, w.WriteLong("ID", 5));
  }
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_EQ(0.0, t.SpecificWeight(5));
}

TEST_F(ZutableTest, DeletedColorantHasNoWeight) {
  WriteColorants(dir_.path(), {{1, "A", 1000.0}, {2, "B", 1200.0}});
  {
    Qdbase w;
    OpenPlain(&w, dir_.path(), "colorants");
    ASSERT_EQ(1, w.Go(2));
    ASSERT_EQ(1, w.Delete());
  }
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_EQ(0.0, t.SpecificWeight(2));
  EXPECT_DOUBLE_EQ(1000.0, t.SpecificWeight(1));
}

TEST_F(ZutableTest, SpecificWeightOfMissingTableIsZero) {
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  EXPECT_EQ(0.0, t.SpecificWeight(1));
}

TEST_F(ZutableTest, SpecificWeightKeepsRecordAndIndexOfAnOpenTable) {
  WriteColorants(dir_.path(),
                 {{5, "A", 1000.0}, {1, "B", 1100.0}, {3, "C", 1200.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  ASSERT_EQ(1, t.Open());
  Qdbase* table = t.Table();
  ASSERT_EQ(1, table->SelectIdx(0));
  ASSERT_EQ(1, table->Go(3));
  EXPECT_DOUBLE_EQ(1000.0, t.SpecificWeight(5));
  ASSERT_EQ(1, t.IsOpen());
  ASSERT_EQ(table, t.Table());
  EXPECT_EQ(0, table->CurrentIdx());
  EXPECT_EQ(3, table->RecNo());
  // Record order from there: record 3 is the last.
  EXPECT_EQ(0, table->Next());
}

TEST_F(ZutableTest, SpecificWeightKeepsAnOpenTableAtItsEnd) {
  WriteColorants(dir_.path(), {{5, "A", 1000.0}, {1, "B", 1100.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  ASSERT_EQ(1, t.Open());
  Qdbase* table = t.Table();
  ASSERT_EQ(1, table->SelectIdx(1));
  ASSERT_EQ(1, table->Bottom());
  ASSERT_EQ(0, table->Next());
  ASSERT_EQ(1, table->Eof());
  EXPECT_DOUBLE_EQ(1100.0, t.SpecificWeight(1));
  ASSERT_EQ(table, t.Table());
  EXPECT_EQ(1, table->CurrentIdx());
  EXPECT_EQ(1, table->Eof());
  EXPECT_EQ(0, table->RecNo());
}

TEST_F(ZutableTest, SpecificWeightThroughACansObject) {
  WriteColorants(dir_.path(), {{8, "Y", 1300.0}});
  ASSERT_EQ(1, QdbSchemaCreate(QDB_SCHEMA_CANS, dir_.path().c_str()));
  CZutable t;
  t.Handle(ZUSPEC_CANS);
  ASSERT_EQ(1, t.Open());
  Qdbase* cans = t.Table();
  EXPECT_DOUBLE_EQ(1300.0, t.SpecificWeight(8));
  EXPECT_EQ(ZUSPEC_CANS, t.Handle());
  EXPECT_EQ(cans, t.Table());
  EXPECT_EQ(1, t.IsOpen());
}

// A colourant table written by another dBase implementation, with widths
// of its own.
TEST_F(ZutableTest, ReadsAColorantsTableWrittenByPythonDbf) {
  std::string script =
      "import dbf\n"
      "t = dbf.Table(" + qtest::PyQuote(dir_.file("colorants.dbf")) +
      ", 'ID N(4,0); CODE C(8); DESCR C(30); SPEC_W N(12,4)',"
      " dbf_type='db3')\n"
      "t.open(dbf.READ_WRITE)\n"
      "t.append((7, 'OXR', 'Oxide red', 1876.25))\n"
      "t.append((2, 'TIW', 'Titanium white', 1420.5))\n"
      "t.append((9, 'NUL', 'No weight', 0))\n"
      "t.close()\n";
  ASSERT_EQ(0, qtest::RunPython(script));
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  ASSERT_EQ(1, t.Open());
  EXPECT_EQ(3, t.Table()->RecCount());
  EXPECT_DOUBLE_EQ(1876.25, t.SpecificWeight(7));
  EXPECT_DOUBLE_EQ(1420.5, t.SpecificWeight(2));
  EXPECT_EQ(0.0, t.SpecificWeight(9));
  EXPECT_EQ(0.0, t.SpecificWeight(3));
  char descr[32];
  ASSERT_EQ(1, t.Table()->SelectIdx(1));
  ASSERT_EQ(1, t.Table()->Top());
  ASSERT_EQ(1, t.Table()->ReadString("DESCR", descr, sizeof descr, 1));
  EXPECT_STREQ("Titanium white", descr);
}

// --- kformula::to_volume -----------------------------------------------------

TEST_F(ZutableTest, ToVolumeDividesByTheWeightInKilogramsPerLitre) {
  WriteColorants(dir_.path(), {{1, "A", 1000.0}, {2, "B", 1250.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  kformula f;
  ASSERT_EQ(3, f.set("(1:100)(2:50)(9:10)"));
  EXPECT_EQ(2, f.to_volume(&t, 1.0, 3, 0));
  EXPECT_EQ((std::vector<std::pair<long long, double>>{{1, 100.0}, {2, 40.0}, {9, 0.0}}),
            Read(f));
  EXPECT_EQ(0, t.IsOpen());
}

TEST_F(ZutableTest, ToVolumeAppliesFactorAndRounds) {
  WriteColorants(dir_.path(), {{1, "A", 1300.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  kformula f;
  ASSERT_EQ(1, f.set("(1:10)"));
  EXPECT_EQ(1, f.to_volume(&t, 2.0, 2, 0));
  EXPECT_DOUBLE_EQ(15.38, Read(f)[0].second);  // 10 * 2 / 1.3 = 15.3846...
}

TEST_F(ZutableTest, ToVolumeUsesTheDataSetOfTheTable) {
  WriteColorants(dir_.path(), {{1, "A", 1000.0}});
  WriteColorants(MakeDir(dir_.file("data2")), {{1, "A", 2000.0}});
  CZutable t;
  t.SetDataId(2);
  t.Handle(ZUSPEC_CANS);  // any table of the set will do
  kformula f;
  ASSERT_EQ(1, f.set("(1:10)"));
  EXPECT_EQ(1, f.to_volume(&t, 1.0, 3, 0));
  EXPECT_DOUBLE_EQ(5.0, Read(f)[0].second);
}

TEST_F(ZutableTest, ToVolumeKeepsAnOpenColorantsTableWhereItWas) {
  WriteColorants(dir_.path(), {{1, "A", 1000.0}, {2, "B", 500.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  ASSERT_EQ(1, t.Open());
  ASSERT_EQ(1, t.Table()->SelectIdx(0));
  ASSERT_EQ(1, t.Table()->Go(2));
  kformula f;
  ASSERT_EQ(2, f.set("(1:1)(2:1)"));
  EXPECT_EQ(2, f.to_volume(&t, 1.0, 3, 0));
  EXPECT_EQ((std::vector<std::pair<long long, double>>{{1, 1.0}, {2, 2.0}}), Read(f));
  ASSERT_EQ(1, t.IsOpen());
  EXPECT_EQ(2, t.Table()->RecNo());
  EXPECT_EQ(0, t.Table()->CurrentIdx());
}

TEST_F(ZutableTest, ToVolumeWithoutColorantsTableZeroesEveryQuantity) {
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  kformula f;
  ASSERT_EQ(2, f.set("(1:1)(2:1)"));
  EXPECT_EQ(0, f.to_volume(&t, 1.0, 3, 0));
  EXPECT_EQ((std::vector<std::pair<long long, double>>{{1, 0.0}, {2, 0.0}}), Read(f));
}

TEST_F(ZutableTest, ToVolumeRefusesNullTableAndMalformedFormula) {
  WriteColorants(dir_.path(), {{1, "A", 1000.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  kformula f;
  ASSERT_EQ(1, f.set("(1:7)"));
  EXPECT_EQ(-1, f.to_volume(nullptr, 1.0, 3, 0));
  EXPECT_EQ(7.0, Read(f)[0].second);
  kformula bad;
  ASSERT_EQ(-1, bad.set("(1:7"));
  EXPECT_EQ(-1, bad.to_volume(&t, 1.0, 3, 0));
}

TEST_F(ZutableTest, ToVolumeRefusesNonFiniteFactorAndBadDecimals) {
  WriteColorants(dir_.path(), {{1, "A", 1000.0}});
  CZutable t;
  t.Handle(ZUSPEC_COLORANTS);
  kformula f;
  ASSERT_EQ(1, f.set("(1:7)"));
  EXPECT_EQ(-1, f.to_volume(&t, NAN, 3, 0));
  EXPECT_EQ(-1, f.to_volume(&t, INFINITY, 3, 0));
  EXPECT_EQ(-1, f.to_volume(&t, 1.0, 16, 0));
  EXPECT_EQ(-1, f.to_volume(&t, 1.0, -1, 0));
  EXPECT_EQ(7.0, Read(f)[0].second);
}

// --- Zu_DataIdFromSlaveId ----------------------------------------------------

namespace {

struct Disp {
  long id;
  long dataId;
};

void WriteDisps(const std::string& dir, const std::vector<Disp>& rows) {
  ASSERT_EQ(1, QdbSchemaCreate(QDB_SCHEMA_DISPS, dir.c_str()));
  Qdbase table;
  OpenPlain(&table, dir, "disps");
  for (const Disp& row : rows) {
    ASSERT_EQ(1, table.Append());
    ASSERT_EQ(1, table.WriteLong("ID", row.id));
    ASSERT_EQ(1, table.WriteLong("DATA_ID", row.dataId));
  }
  ASSERT_EQ(1, table.Close());
}

}  // namespace

TEST_F(ZutableTest, DataIdOfADispenser) {
  WriteDisps(dir_.path(), {{1, 0}, {2, 3}, {5, 12}});
  EXPECT_EQ(0, Zu_DataIdFromSlaveId(1));
  EXPECT_EQ(3, Zu_DataIdFromSlaveId(2));
  EXPECT_EQ(12, Zu_DataIdFromSlaveId(5));
}

TEST_F(ZutableTest, DataIdOfAnUnknownDispenserIsZero) {
  WriteDisps(dir_.path(), {{1, 4}});
  EXPECT_EQ(0, Zu_DataIdFromSlaveId(2));
  EXPECT_EQ(0, Zu_DataIdFromSlaveId(-1));
}

TEST_F(ZutableTest, DataIdWithoutDispenserTableIsZero) {
  qtest::TraceCapture trace;
  EXPECT_EQ(0, Zu_DataIdFromSlaveId(1));
  EXPECT_NE(std::string::npos, trace.text().find("disps"));
}

TEST_F(ZutableTest, DataIdWithoutDataIdFieldIsZero) {
  const QdbField fields[] = {{"ID", 'N', 5, 0}, {"DESCR", 'C', 24, 0}};
  ASSERT_EQ(1, Qdbase::Create(dir_.path().c_str(), "disps", 2, fields));
  {
    Qdbase w;
    OpenPlain(&w, dir_.path(), "disps");
    ASSERT_EQ(1, w.Append());
    ASSERT_EQ(1, w.WriteLong("ID", 1));
  }
  EXPECT_EQ(0, Zu_DataIdFromSlaveId(1));
}

TEST_F(ZutableTest, NegativeDataIdOfADispenserIsZero) {
  WriteDisps(dir_.path(), {{1, -4}});
  EXPECT_EQ(0, Zu_DataIdFromSlaveId(1));
}

TEST_F(ZutableTest, DeletedDispenserRecordIsSkipped) {
  WriteDisps(dir_.path(), {{1, 6}, {1, 8}});
  {
    Qdbase w;
    OpenPlain(&w, dir_.path(), "disps");
    ASSERT_EQ(1, w.Go(1));
    ASSERT_EQ(1, w.Delete());
  }
  EXPECT_EQ(8, Zu_DataIdFromSlaveId(1));
}

TEST_F(ZutableTest, DataIdLookupLeavesOpenTablesAlone) {
  WriteDisps(dir_.path(), {{1, 2}, {2, 3}, {3, 4}});
  WriteColorants(dir_.path(), {{1, "A", 1000.0}, {2, "B", 1100.0}});
  Qdbase disps;
  const char* names[] = {"ID"};
  const char* keys[] = {"ID"};
  ASSERT_EQ(1, disps.SetFiles(dir_.path().c_str(), "disps", 1, names, keys));
  ASSERT_EQ(1, disps.Open());
  ASSERT_EQ(1, disps.SelectIdx(1));
  ASSERT_EQ(1, disps.Go(2));
  CZutable colorants;
  colorants.Handle(ZUSPEC_COLORANTS);
  ASSERT_EQ(1, colorants.Open());
  ASSERT_EQ(1, colorants.Table()->Go(2));

  EXPECT_EQ(4, Zu_DataIdFromSlaveId(3));

  EXPECT_EQ(1, disps.IsOpen());
  EXPECT_EQ(1, disps.CurrentIdx());
  EXPECT_EQ(2, disps.RecNo());
  EXPECT_EQ(1, colorants.IsOpen());
  EXPECT_EQ(2, colorants.Table()->RecNo());
}

TEST_F(ZutableTest, DataIdWithDataDirectoryThatCannotBeToldIsZero) {
  WriteDisps(dir_.path(), {{1, 2}});
  std::string tooLong = "/" + std::string(5000, 'd');
  qtest::ScopedEnv data("QSLAVE_DATA", tooLong.c_str());
  EXPECT_EQ(0, Zu_DataIdFromSlaveId(1));
}
