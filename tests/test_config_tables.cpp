// The configuration tables as the library holds them: opening, closing and
// handing out the three process-wide tables, their indexes, selecting a
// dispenser record, the default dispenser, index rebuilding, and the
// table lifetime tied to the live slave objects.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "library_env.h"

namespace {

using qtest::DispenserRow;
using qtest::StandardDispenser;
using qtest::TankRow;

const char kOpenError[] = ": error opening DISPS.DBF or TANKS.DBF";
const char kClosedError[] = ": error ... DISPS.DBF or TANKS.DBF are closed";

// Number of traced table errors with the given text.
int DbsErrors(const qtest::TraceCapture& trace, const char* text) {
  return qtest::CountSourceLines(trace.messages(), "slv_dbs", text);
}

bool EndsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() &&
         text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

TankRow Tank(long disp, int tank, long cnt) {
  TankRow row;
  row.disp_id = disp;
  row.tank = tank;
  row.cnt_id = cnt;
  return row;
}

class ConfigTables : public qtest::LibraryEnv {
 protected:
  long AddMarked(long id, bool x) {
    DispenserRow row = StandardDispenser(id);
    row.x = x;
    return tables_.AddDispenser(row);
  }
};

// --- Opening ---------------------------------------------------------------

TEST_F(ConfigTables, OpenWithAllThreeTablesReturnsOne) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  EXPECT_EQ(_slv_OpenDatabases(), 1);
  Qdbase* d = nullptr;
  Qdbase* t = nullptr;
  Qdbase* c = nullptr;
  EXPECT_EQ(_slv_dbhandles(&d, &t, &c), 1);
  ASSERT_NE(d, nullptr);
  ASSERT_NE(t, nullptr);
  ASSERT_NE(c, nullptr);
  EXPECT_TRUE(d->IsOpen());
  EXPECT_TRUE(t->IsOpen());
  EXPECT_TRUE(c->IsOpen());
  EXPECT_EQ(DbsErrors(trace_, kOpenError), 0);
}

TEST_F(ConfigTables, TablesAreBoundToTheFilesInTheDataDirectory) {
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  Qdbase* d = nullptr;
  Qdbase* t = nullptr;
  Qdbase* c = nullptr;
  ASSERT_EQ(_slv_dbhandles(&d, &t, &c), 1);
  ASSERT_NE(c, nullptr);
  EXPECT_TRUE(EndsWith(d->FileName(), "/disps.dbf")) << d->FileName();
  EXPECT_TRUE(EndsWith(t->FileName(), "/tanks.dbf")) << t->FileName();
  EXPECT_TRUE(EndsWith(c->FileName(), "/cistern.dbf")) << c->FileName();
  EXPECT_EQ(std::string(d->FileName()).find(dir_.path()), 0u);
}

TEST_F(ConfigTables, MissingCisternTableOpensWithTwo) {
  tables_.Remove(QDB_SCHEMA_CISTERN);
  EXPECT_EQ(_slv_OpenDatabases(), 2);
  Qdbase* d = nullptr;
  Qdbase* t = nullptr;
  Qdbase* c = reinterpret_cast<Qdbase*>(&d);  // must be overwritten
  EXPECT_EQ(_slv_dbhandles(&d, &t, &c), 1);
  EXPECT_NE(d, nullptr);
  EXPECT_NE(t, nullptr);
  EXPECT_EQ(c, nullptr);
  EXPECT_EQ(DbsErrors(trace_, kClosedError), 0);
}

TEST_F(ConfigTables, MissingCisternTableStillSelectsDispenserWithItsTanks) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  long r1 = tables_.AddTank(Tank(1, 1, 11));
  long r2 = tables_.AddTank(Tank(1, 2, 12));
  ASSERT_GT(r1, 0);
  ASSERT_GT(r2, 0);
  tables_.Remove(QDB_SCHEMA_CISTERN);
  {
    slave s(1);
    EXPECT_EQ(s.m_DispId, 1);
    ASSERT_NE(s.m_Dsp, nullptr);
    ASSERT_EQ(s.m_NumTanks, 2);
    EXPECT_EQ(s.m_TankRecNo[0], r1);
    EXPECT_EQ(s.m_TankRecNo[1], r2);
    EXPECT_EQ(s.m_TankCntId[1], 12);
    char cmd[] = "/S1";
    EXPECT_EQ(s.sendcommand(cmd, nullptr, 0), 1);
  }
}

TEST_F(ConfigTables, MissingDispenserTableFailsWithOpenErrorTrace) {
  tables_.Remove(QDB_SCHEMA_DISPS);
  EXPECT_EQ(_slv_OpenDatabases(), 0);
  EXPECT_EQ(DbsErrors(trace_, kOpenError), 1)
      << trace_.text();
  EXPECT_FALSE(DispOpen());
}

TEST_F(ConfigTables, MissingTankTableOpensWithOneAndLeavesDispenserClosed) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  tables_.Remove(QDB_SCHEMA_TANKS);
  EXPECT_EQ(_slv_OpenDatabases(), 1);
  // No early return and no trace for the tank table: the cistern table was
  // still opened.
  EXPECT_EQ(DbsErrors(trace_, kOpenError), 0);
  EXPECT_TRUE(CisternOpen());
}

TEST_F(ConfigTables, MissingTankAndCisternTablesOpenWithTwo) {
  tables_.Remove(QDB_SCHEMA_TANKS);
  tables_.Remove(QDB_SCHEMA_CISTERN);
  EXPECT_EQ(_slv_OpenDatabases(), 2);
}

TEST_F(ConfigTables, MissingTankTableMakesLaterHandlesFailWithClosedTrace) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  tables_.Remove(QDB_SCHEMA_TANKS);
  _slv_OpenDatabases();
  trace_.clear();
  Qdbase* d = reinterpret_cast<Qdbase*>(&d);
  EXPECT_EQ(_slv_dbhandles(&d, nullptr, nullptr), 0);
  EXPECT_EQ(d, nullptr);
  EXPECT_EQ(DbsErrors(trace_, kClosedError), 1)
      << trace_.text();
}

TEST_F(ConfigTables, MissingTankTableLeavesSlaveWithoutDispenser) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  tables_.Remove(QDB_SCHEMA_TANKS);
  slave s(1);
  EXPECT_LT(s.m_DispId, 1);
  EXPECT_EQ(s.m_Dsp, nullptr);
  EXPECT_EQ(s.Set(1), 0);
  EXPECT_GE(DbsErrors(trace_, kClosedError), 1);
}

TEST_F(ConfigTables, MissingDispenserTableLeavesSlaveWithoutDispenser) {
  tables_.Remove(QDB_SCHEMA_DISPS);
  slave s(1);
  EXPECT_LT(s.m_DispId, 1);
  EXPECT_EQ(s.m_Dsp, nullptr);
  EXPECT_EQ(s.Set(1), 0);
  char query[] = "/!";
  char action[] = "/S1";
  EXPECT_EQ(s.sendcommand(query, nullptr, 0), -1);
  EXPECT_EQ(s.sendcommand(action, nullptr, 0), 0);
}

TEST_F(ConfigTables, AllTablesMissingOpenWithZero) {
  tables_.Remove(QDB_SCHEMA_DISPS);
  tables_.Remove(QDB_SCHEMA_TANKS);
  tables_.Remove(QDB_SCHEMA_CISTERN);
  EXPECT_EQ(_slv_OpenDatabases(), 0);
  EXPECT_EQ(DbsErrors(trace_, kOpenError), 1);
  Qdbase* d = nullptr;
  Qdbase* t = nullptr;
  Qdbase* c = nullptr;
  EXPECT_EQ(_slv_dbhandles(&d, &t, &c), 0);
  EXPECT_EQ(d, nullptr);
  EXPECT_EQ(t, nullptr);
  EXPECT_EQ(c, nullptr);
}

TEST_F(ConfigTables, AllTablesMissingLeaveSlaveWithoutDispenser) {
  tables_.Remove(QDB_SCHEMA_DISPS);
  tables_.Remove(QDB_SCHEMA_TANKS);
  tables_.Remove(QDB_SCHEMA_CISTERN);
  slave s(1);
  EXPECT_LT(s.m_DispId, 1);
  EXPECT_EQ(s.m_Dsp, nullptr);
  EXPECT_EQ(s.m_NumTanks, 0);
  EXPECT_EQ(s.m_TankRecNo, nullptr);
  EXPECT_EQ(s.FindFirst(), 0);
  EXPECT_EQ(s.ForceOption(1, 1), 0);
}

// --- Closing ---------------------------------------------------------------

TEST_F(ConfigTables, CloseWithAllOpenReturnsOneAndClosesAll) {
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  EXPECT_EQ(_slv_CloseDatabases(), 1);
  EXPECT_FALSE(CisternOpen());
  EXPECT_FALSE(TankOpen());
  EXPECT_FALSE(DispOpen());
}

TEST_F(ConfigTables, CloseOfClosedTablesReturnsZero) {
  EXPECT_EQ(_slv_CloseDatabases(), 0);
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  ASSERT_EQ(_slv_CloseDatabases(), 1);
  EXPECT_EQ(_slv_CloseDatabases(), 0);
}

TEST_F(ConfigTables, CloseWithoutCisternClosesTheOthersAndReturnsZero) {
  tables_.Remove(QDB_SCHEMA_CISTERN);
  ASSERT_EQ(_slv_OpenDatabases(), 2);
  EXPECT_EQ(_slv_CloseDatabases(), 0);
  EXPECT_FALSE(TankOpen());
  EXPECT_FALSE(DispOpen());
}

TEST_F(ConfigTables, CloseStopsAtTheFirstTableThatFailsToClose) {
  // The missing tank table leaves only the cistern table open; closing the
  // dispenser table fails first, so the cistern table stays open.
  tables_.Remove(QDB_SCHEMA_TANKS);
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  ASSERT_TRUE(CisternOpen());
  EXPECT_EQ(_slv_CloseDatabases(), 0);
  EXPECT_TRUE(CisternOpen());
}

TEST_F(ConfigTables, SlaveCloseDatabasesClosesTheTables) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  slave s(1);
  ASSERT_TRUE(DispOpen());
  EXPECT_EQ(s.CloseDatabases(), 1);
  EXPECT_FALSE(DispOpen());
  EXPECT_FALSE(TankOpen());
  EXPECT_FALSE(CisternOpen());
}

// --- Handing out the tables ------------------------------------------------

TEST_F(ConfigTables, HandlesWithNothingWantedReturnOneWithoutTrace) {
  EXPECT_EQ(_slv_dbhandles(nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(DbsErrors(trace_, kClosedError), 0);
}

TEST_F(ConfigTables, HandlesWantingOnlyClosedCisternReturnOne) {
  Qdbase* c = reinterpret_cast<Qdbase*>(&c);
  EXPECT_EQ(_slv_dbhandles(nullptr, nullptr, &c), 1);
  EXPECT_EQ(c, nullptr);
  EXPECT_EQ(DbsErrors(trace_, kClosedError), 0);
}

TEST_F(ConfigTables, HandlesOfClosedTablesAreNullWithClosedTrace) {
  Qdbase* d = reinterpret_cast<Qdbase*>(&d);
  Qdbase* t = reinterpret_cast<Qdbase*>(&t);
  Qdbase* c = reinterpret_cast<Qdbase*>(&c);
  EXPECT_EQ(_slv_dbhandles(&d, &t, &c), 0);
  EXPECT_EQ(d, nullptr);
  EXPECT_EQ(t, nullptr);
  EXPECT_EQ(c, nullptr);
  EXPECT_EQ(DbsErrors(trace_, kClosedError), 1)
      << trace_.text();
}

TEST_F(ConfigTables, HandlesWantingClosedTankTableFail) {
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  Qdbase* t = nullptr;
  ASSERT_EQ(_slv_dbhandles(nullptr, &t, nullptr), 1);
  ASSERT_NE(t, nullptr);
  ASSERT_EQ(t->Close(), 1);
  trace_.clear();
  Qdbase* again = reinterpret_cast<Qdbase*>(&again);
  EXPECT_EQ(_slv_dbhandles(nullptr, &again, nullptr), 0);
  EXPECT_EQ(again, nullptr);
  EXPECT_EQ(DbsErrors(trace_, kClosedError), 1);
  // The dispenser table alone is still handed out.
  Qdbase* d = nullptr;
  EXPECT_EQ(_slv_dbhandles(&d, nullptr, nullptr), 1);
  EXPECT_NE(d, nullptr);
}

// --- Indexes ---------------------------------------------------------------

TEST_F(ConfigTables, DispenserTableHasNoIndex) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  Qdbase* d = nullptr;
  ASSERT_EQ(_slv_dbhandles(&d, nullptr, nullptr), 1);
  EXPECT_EQ(d->SelectIdx(1), 0);
  EXPECT_EQ(d->SelectIdx(0), 1);
}

TEST_F(ConfigTables, TankIndexOneIsOrderedByDispenserId) {
  long r3 = tables_.AddTank(Tank(3, 1, 31));
  long r1 = tables_.AddTank(Tank(1, 2, 12));
  long r2 = tables_.AddTank(Tank(2, 1, 21));
  ASSERT_GT(r3 * r1 * r2, 0);
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  Qdbase* t = nullptr;
  ASSERT_EQ(_slv_dbhandles(nullptr, &t, nullptr), 1);
  ASSERT_EQ(t->SelectIdx(1), 1);
  ASSERT_EQ(t->Top(), 1);
  EXPECT_EQ(t->RecNo(), r1);
  ASSERT_EQ(t->Next(), 1);
  EXPECT_EQ(t->RecNo(), r2);
  ASSERT_EQ(t->Next(), 1);
  EXPECT_EQ(t->RecNo(), r3);
  EXPECT_EQ(t->Seek("    2"), 1);
  EXPECT_EQ(t->RecNo(), r2);
}

TEST_F(ConfigTables, TankIndexTwoIsOrderedByDispenserAndTank) {
  long a = tables_.AddTank(Tank(2, 1, 21));
  long b = tables_.AddTank(Tank(1, 3, 13));
  long c = tables_.AddTank(Tank(1, 1, 11));
  long d = tables_.AddTank(Tank(2, 12, 22));
  long e = tables_.AddTank(Tank(1, 2, 12));
  ASSERT_GT(a * b * c * d * e, 0);
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  Qdbase* t = nullptr;
  ASSERT_EQ(_slv_dbhandles(nullptr, &t, nullptr), 1);
  ASSERT_EQ(t->SelectIdx(2), 1);
  EXPECT_EQ(t->SelectIdx(3), 0);
  ASSERT_EQ(t->SelectIdx(2), 1);
  long expected[] = {c, e, b, a, d};
  ASSERT_EQ(t->Top(), 1);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(t->RecNo(), expected[i]) << "position " << i;
    t->Next();
  }
  EXPECT_EQ(t->Seek(2012.0), 1);
  EXPECT_EQ(t->RecNo(), d);
  EXPECT_EQ(t->Seek(1003.0), 1);
  EXPECT_EQ(t->RecNo(), b);
}

TEST_F(ConfigTables, CisternTableIsIndexedById) {
  ASSERT_GT(tables_.AddCistern({7, 1, 100, 50, 10}), 0);
  long r5 = tables_.AddCistern({5, 2, 200, 80, 20});
  ASSERT_GT(r5, 0);
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  Qdbase* c = nullptr;
  ASSERT_EQ(_slv_dbhandles(nullptr, nullptr, &c), 1);
  ASSERT_NE(c, nullptr);
  ASSERT_EQ(c->SelectIdx(1), 1);
  EXPECT_EQ(c->SelectIdx(2), 0);
  ASSERT_EQ(c->SelectIdx(1), 1);
  ASSERT_EQ(c->Top(), 1);
  EXPECT_EQ(c->RecNo(), r5);
  EXPECT_EQ(c->Seek(5.0), 1);
  EXPECT_EQ(c->RecNo(), r5);
}

// --- Selecting a dispenser record ------------------------------------------

TEST_F(ConfigTables, SelectDispenserWithNullTableFails) {
  EXPECT_EQ(_slv_SelectDispenser(nullptr, 1), 0);
}

TEST_F(ConfigTables, SelectDispenserWithIdBelowOneFails) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  Qdbase* d = nullptr;
  ASSERT_EQ(_slv_dbhandles(&d, nullptr, nullptr), 1);
  EXPECT_EQ(_slv_SelectDispenser(d, 0), 0);
  EXPECT_EQ(_slv_SelectDispenser(d, -1), 0);
}

TEST_F(ConfigTables, SelectDispenserLeavesTableOnTheRecord) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(4)), 0);
  long r9 = tables_.AddDispenser(StandardDispenser(9));
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(2)), 0);
  ASSERT_GT(r9, 0);
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  Qdbase* d = nullptr;
  ASSERT_EQ(_slv_dbhandles(&d, nullptr, nullptr), 1);
  EXPECT_EQ(_slv_SelectDispenser(d, 9), 1);
  EXPECT_EQ(d->RecNo(), r9);
  long id = 0;
  EXPECT_EQ(d->ReadLong("ID", &id), 1);
  EXPECT_EQ(id, 9);
}

TEST_F(ConfigTables, SelectUnknownDispenserFails) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(4)), 0);
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(2)), 0);
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  Qdbase* d = nullptr;
  ASSERT_EQ(_slv_dbhandles(&d, nullptr, nullptr), 1);
  EXPECT_EQ(_slv_SelectDispenser(d, 3), 0);
}

// --- Default dispenser -----------------------------------------------------

TEST_F(ConfigTables, DefaultDispenserOfNullTableIsZero) {
  EXPECT_EQ(_slv_DefaultDispenser(nullptr), 0);
}

TEST_F(ConfigTables, DefaultDispenserIsTheFirstMarkedInFileOrder) {
  ASSERT_GT(AddMarked(4, false), 0);
  ASSERT_GT(AddMarked(7, true), 0);
  ASSERT_GT(AddMarked(1, false), 0);
  ASSERT_GT(AddMarked(3, true), 0);
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  Qdbase* d = nullptr;
  ASSERT_EQ(_slv_dbhandles(&d, nullptr, nullptr), 1);
  EXPECT_EQ(_slv_DefaultDispenser(d), 7);
}

TEST_F(ConfigTables, MarkedDispenserWinsOverDispenserOne) {
  ASSERT_GT(AddMarked(1, false), 0);
  ASSERT_GT(AddMarked(5, true), 0);
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  Qdbase* d = nullptr;
  ASSERT_EQ(_slv_dbhandles(&d, nullptr, nullptr), 1);
  EXPECT_EQ(_slv_DefaultDispenser(d), 5);
}

TEST_F(ConfigTables, WithoutMarkDispenserOneIsTheDefault) {
  ASSERT_GT(AddMarked(3, false), 0);
  ASSERT_GT(AddMarked(1, false), 0);
  ASSERT_GT(AddMarked(2, false), 0);
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  Qdbase* d = nullptr;
  ASSERT_EQ(_slv_dbhandles(&d, nullptr, nullptr), 1);
  EXPECT_EQ(_slv_DefaultDispenser(d), 1);
}

TEST_F(ConfigTables, WithoutMarkAndDispenserOneTheFirstRecordIsTheDefault) {
  ASSERT_GT(AddMarked(6, false), 0);
  ASSERT_GT(AddMarked(3, false), 0);
  ASSERT_GT(AddMarked(8, false), 0);
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  Qdbase* d = nullptr;
  ASSERT_EQ(_slv_dbhandles(&d, nullptr, nullptr), 1);
  EXPECT_EQ(_slv_DefaultDispenser(d), 6);
}

TEST_F(ConfigTables, DefaultDispenserOfEmptyTableIsZero) {
  ASSERT_EQ(_slv_OpenDatabases(), 1);
  Qdbase* d = nullptr;
  ASSERT_EQ(_slv_dbhandles(&d, nullptr, nullptr), 1);
  EXPECT_EQ(_slv_DefaultDispenser(d), 0);
}

TEST_F(ConfigTables, EmptyDispenserTableMakesSetFail) {
  slave s(0);
  EXPECT_EQ(s.m_Dsp, nullptr);
  EXPECT_LT(s.m_DispId, 1);
  EXPECT_EQ(s.Set(0), 0);
  EXPECT_EQ(s.Set(1), 0);
  EXPECT_EQ(s.m_Dsp, nullptr);
}

TEST_F(ConfigTables, SetOfZeroSelectsTheMarkedDispenser) {
  ASSERT_GT(AddMarked(1, false), 0);
  ASSERT_GT(AddMarked(6, true), 0);
  slave s(0);
  EXPECT_EQ(s.m_DispId, 6);
  EXPECT_NE(s.m_Dsp, nullptr);
}

// --- Index rebuild -----------------------------------------------------------

int g_progress_calls = 0;
int CountProgress(char*) {
  ++g_progress_calls;
  return 0;
}

TEST_F(ConfigTables, RebuildIndexOnOpenTablesKeepsEachTableOnItsRecord) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(2)), 0);
  ASSERT_GT(tables_.AddTank(Tank(1, 1, 11)), 0);
  ASSERT_GT(tables_.AddTank(Tank(1, 2, 12)), 0);
  ASSERT_GT(tables_.AddTank(Tank(2, 1, 21)), 0);
  ASSERT_GT(tables_.AddCistern({3, 1, 10, 5, 1}), 0);
  ASSERT_GT(tables_.AddCistern({4, 1, 10, 5, 1}), 0);
  slave s(1);
  Qdbase* d = nullptr;
  Qdbase* t = nullptr;
  Qdbase* c = nullptr;
  ASSERT_EQ(_slv_dbhandles(&d, &t, &c), 1);
  ASSERT_NE(c, nullptr);
  ASSERT_EQ(d->Go(2), 1);
  ASSERT_EQ(t->Go(2), 1);
  ASSERT_EQ(c->Go(2), 1);
  g_progress_calls = 0;
  EXPECT_EQ(s.RebuildIndex(CountProgress), 0);
  EXPECT_EQ(g_progress_calls, 0);
  EXPECT_EQ(d->RecNo(), 2);
  EXPECT_EQ(t->RecNo(), 2);
  EXPECT_EQ(c->RecNo(), 2);
  EXPECT_TRUE(d->IsOpen());
  EXPECT_TRUE(t->IsOpen());
  EXPECT_TRUE(c->IsOpen());
}

TEST_F(ConfigTables, RebuildIndexOnClosedTablesLeavesThemClosed) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  ASSERT_GT(tables_.AddTank(Tank(1, 1, 11)), 0);
  slave s(1);
  ASSERT_EQ(s.CloseDatabases(), 1);
  EXPECT_EQ(s.RebuildIndex(nullptr), 0);
  EXPECT_FALSE(CisternOpen());
  EXPECT_FALSE(TankOpen());
  EXPECT_FALSE(DispOpen());
}

TEST_F(ConfigTables, RebuildIndexWithMissingTablesReturnsMinusOne) {
  tables_.Remove(QDB_SCHEMA_DISPS);
  slave s(1);
  EXPECT_EQ(s.RebuildIndex(nullptr), -1);
  EXPECT_FALSE(DispOpen());
}

// --- Table lifetime follows the live objects --------------------------------

TEST_F(ConfigTables, FirstSlaveOpensTablesAndLastOneClosesThem) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(2)), 0);
  EXPECT_FALSE(CisternOpen());
  std::unique_ptr<slave> first(new slave(1));
  EXPECT_EQ(slave::counter, 1);
  EXPECT_TRUE(DispOpen());
  EXPECT_TRUE(TankOpen());
  EXPECT_TRUE(CisternOpen());
  std::unique_ptr<slave> second(new slave(2));
  EXPECT_EQ(slave::counter, 2);
  first.reset();
  EXPECT_EQ(slave::counter, 1);
  EXPECT_TRUE(DispOpen());
  EXPECT_TRUE(CisternOpen());
  // The remaining object still works on the shared tables.
  EXPECT_EQ(second->Set(1), 1);
  EXPECT_EQ(second->m_DispId, 1);
  second.reset();
  EXPECT_EQ(slave::counter, 0);
  EXPECT_FALSE(CisternOpen());
  EXPECT_FALSE(TankOpen());
  EXPECT_FALSE(DispOpen());
}

TEST_F(ConfigTables, SlaveWithUnknownIdStillOpensAndClosesTables) {
  ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0);
  {
    slave s(42);
    EXPECT_EQ(slave::counter, 1);
    EXPECT_TRUE(DispOpen());
  }
  EXPECT_EQ(slave::counter, 0);
  EXPECT_FALSE(CisternOpen());
}

}  // namespace
