// ColourantInDispenser: the working copy of the tanks that hold one
// colourant. Reading it from the tank and cistern tables, classifying the
// tank set, writing it back (checked on disk with an independent dBase
// reader), zeroing it, the status bits, the level verdict, the circuit
// table it traces, the two orderings and the dispenser threshold.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "library_env.h"

namespace {

using qtest::CisternRow;
using qtest::CountMatching;
using qtest::CountOf;
using qtest::DispenserRow;
using qtest::SourceRe;
using qtest::StandardDispenser;
using qtest::TankRow;

TankRow Tank(int tank, long cnt, double cur, double res, double max,
             double threshold, const std::string& flags = "00000000",
             long cist = 0, const std::string& mpx = "") {
  TankRow row;
  row.disp_id = 1;
  row.tank = tank;
  row.cnt_id = cnt;
  row.cur_q = cur;
  row.res_q = res;
  row.max_q = max;
  row.threshold = threshold;
  row.status_flg = flags;
  row.cist_id = cist;
  row.mpx = mpx;
  return row;
}

TankRow Secondary(int tank, long cnt, double threshold, long cist = 0) {
  return Tank(tank, cnt, -1.0, -1.0, -1.0, threshold, "00000000", cist);
}

// The records of a table as an independent dBase reader sees them, in file
// order: the named fields joined by '|' (numbers with a fraction printed
// with three decimals, whole numbers as they are, texts without their
// trailing blanks), and the number of records marked deleted.
struct DiskTable {
  std::vector<std::string> rows;
  int deleted = -1;
};

DiskTable ReadDisk(const std::string& file, const std::vector<std::string>& fields) {
  std::string list = "[";
  for (const std::string& f : fields) list += qtest::PyQuote(f) + ",";
  list += "]";
  std::string script =
      "import sys, dbfread\n"
      "t = dbfread.DBF(" + qtest::PyQuote(file) + ", load=True)\n"
      "def f(v):\n"
      "    if v is None: return 'None'\n"
      "    if isinstance(v, bool): return 'T' if v else 'F'\n"
      "    if isinstance(v, float): return '%.3f' % v\n"
      "    if isinstance(v, int): return '%d' % v\n"
      "    return str(v)\n"
      "for r in t.records:\n"
      "    sys.stdout.write('|'.join(f(r[n]) for n in " + list + ") + '\\n')\n"
      "sys.stdout.write('#deleted=%d\\n' % len(t.deleted))\n";
  std::string out;
  DiskTable disk;
  if (qtest::RunPython(script, &out) != 0) {
    ADD_FAILURE() << "dbfread failed: " << out;
    return disk;
  }
  size_t pos = 0;
  while (pos < out.size()) {
    size_t end = out.find('\n', pos);
    if (end == std::string::npos) end = out.size();
    std::string line = out.substr(pos, end - pos);
    if (line.compare(0, 9, "#deleted=") == 0) {
      disk.deleted = atoi(line.c_str() + 9);
    } else if (!line.empty()) {
      disk.rows.push_back(line);
    }
    pos = end + 1;
  }
  return disk;
}

const std::vector<std::string> kTankFields = {"TANK", "CUR_Q", "RES_Q", "MAX_Q",
                                              "THRESHOLD", "STATUS_FLG", "CIST_ID"};
const std::vector<std::string> kCisternFields = {"ID", "USERS", "MAX_Q", "CUR_Q",
                                                 "RES_Q"};

class CtInDsp : public qtest::LibraryEnv {
 protected:
  void AddDispenser(double threshold = 0.0) {
    DispenserRow row = StandardDispenser(1);
    row.threshold = threshold;
    ASSERT_GT(tables_.AddDispenser(row), 0);
  }
  void AddTanks(const std::vector<TankRow>& rows) {
    for (const TankRow& row : rows) ASSERT_GT(tables_.AddTank(row), 0);
  }
  void AddCistern(long id, int users, double max, double cur, double res) {
    CisternRow row;
    row.id = id;
    row.users = users;
    row.max_q = max;
    row.cur_q = cur;
    row.res_q = res;
    ASSERT_GT(tables_.AddCistern(row), 0);
  }
  // A tank table whose STATUS_FLG holds a single character.
  void NarrowStatusField() {
    ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_TANKS, {{"STATUS_FLG", 1}}));
  }

  DiskTable Tanks() { return ReadDisk(tables_.FileOf(QDB_SCHEMA_TANKS), kTankFields); }
  DiskTable Cisterns() {
    return ReadDisk(tables_.FileOf(QDB_SCHEMA_CISTERN), kCisternFields);
  }

  // Index of the entry for a tank, -1 when there is none.
  static int EntryOf(const ColourantInDispenser& c, int tank) {
    for (int i = 0; i < c.m_NumTanks; ++i) {
      if (c.m_Tanks[i].tank == tank) return i;
    }
    return -1;
  }

  static bool WriteErrorTraced(const std::vector<std::string>& messages) {
    return CountMatching(messages, "\\nCol\\.\\.InDispenser::Write error " +
                                       SourceRe("slv_ctcr") + " 269") == 1;
  }
};

// --- Construction and dispenser threshold -------------------------------------

TEST_F(CtInDsp, ConstructionStartsEmpty) {
  AddDispenser();
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.m_Slave, &s);
  EXPECT_EQ(c.m_CntId, 0);
  EXPECT_EQ(c.m_NumTanks, 0);
  EXPECT_EQ(c.m_SingleCircuit, 0);
  EXPECT_EQ(c.m_Tanks, nullptr);
}

TEST_F(CtInDsp, DispenserThresholdComesFromTheDispenserRecord) {
  AddDispenser(12.5);
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_DOUBLE_EQ(c.m_DispThres, 12.5);
  c.m_DispThres = 3.0;
  EXPECT_EQ(c.SetDispenserThres(), 1);
  EXPECT_DOUBLE_EQ(c.m_DispThres, 12.5);
}

TEST_F(CtInDsp, DispenserThresholdOfZeroLeavesFifty) {
  AddDispenser(0.0);
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_DOUBLE_EQ(c.m_DispThres, 50.0);
  EXPECT_EQ(c.SetDispenserThres(), 1);
  EXPECT_DOUBLE_EQ(c.m_DispThres, 50.0);
}

TEST_F(CtInDsp, NegativeDispenserThresholdLeavesFifty) {
  AddDispenser(-3.0);
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SetDispenserThres(), 1);
  EXPECT_DOUBLE_EQ(c.m_DispThres, 50.0);
}

TEST_F(CtInDsp, DispenserThresholdWithoutSlaveIsFiftyAndFails) {
  ColourantInDispenser c(nullptr);
  EXPECT_DOUBLE_EQ(c.m_DispThres, 50.0);
  EXPECT_EQ(c.SetDispenserThres(), 0);
  EXPECT_DOUBLE_EQ(c.m_DispThres, 50.0);
}

TEST_F(CtInDsp, DispenserThresholdOfAnUnselectedDispenserFails) {
  AddDispenser(12.5);
  slave s(42);
  ColourantInDispenser c(&s);
  EXPECT_DOUBLE_EQ(c.m_DispThres, 50.0);
  EXPECT_EQ(c.SetDispenserThres(), 0);
  EXPECT_DOUBLE_EQ(c.m_DispThres, 50.0);
}

TEST_F(CtInDsp, ClearEmptiesButKeepsTheDispenserThreshold) {
  AddDispenser(12.5);
  AddTanks({Tank(1, 5, 60, 10, 100, 0), Tank(2, 5, 60, 10, 100, 20)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  c.m_SingleCircuit = 1;
  EXPECT_EQ(c.Clear(), 1);
  EXPECT_EQ(c.m_CntId, 0);
  EXPECT_EQ(c.m_NumTanks, 0);
  EXPECT_EQ(c.m_SingleCircuit, 0);
  EXPECT_EQ(c.m_Tanks, nullptr);
  EXPECT_DOUBLE_EQ(c.m_DispThres, 12.5);
}

// --- Read ------------------------------------------------------------------------

TEST_F(CtInDsp, ReadFillsEveryEntrySortedByThreshold) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 20, "10000000", 0, "1.5;2"),
            Tank(2, 6, 1, 1, 1, 0),
            Tank(3, 5, 30, 3, 50, 0, "01000000", 0, ";3"),
            Tank(4, 5, 45, 4, 90, 5, "11000000", 0, "4;8;1")});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_EQ(c.m_CntId, 5);
  ASSERT_EQ(c.m_NumTanks, 3);
  ASSERT_NE(c.m_Tanks, nullptr);

  const CtInDspTank& a = c.m_Tanks[0];
  EXPECT_EQ(a.tank, 3);
  EXPECT_DOUBLE_EQ(a.max_q, 50.0);
  EXPECT_DOUBLE_EQ(a.cur_q, 30.0);
  EXPECT_DOUBLE_EQ(a.res_q, 3.0);
  EXPECT_DOUBLE_EQ(a.threshold, 0.0);
  EXPECT_EQ(a.split_q, 0.0);
  EXPECT_STREQ(a.status_flg, "01000000");
  EXPECT_STREQ(a.cist_id, "    0");
  EXPECT_EQ(a.mpx, 0.0);

  const CtInDspTank& b = c.m_Tanks[1];
  EXPECT_EQ(b.tank, 4);
  EXPECT_DOUBLE_EQ(b.max_q, 90.0);
  EXPECT_DOUBLE_EQ(b.cur_q, 45.0);
  EXPECT_DOUBLE_EQ(b.res_q, 4.0);
  EXPECT_DOUBLE_EQ(b.threshold, 5.0);
  EXPECT_EQ(b.split_q, 0.0);
  EXPECT_STREQ(b.status_flg, "11000000");
  EXPECT_STREQ(b.cist_id, "    0");
  EXPECT_DOUBLE_EQ(b.mpx, 4.0);

  const CtInDspTank& d = c.m_Tanks[2];
  EXPECT_EQ(d.tank, 1);
  EXPECT_DOUBLE_EQ(d.max_q, 100.0);
  EXPECT_DOUBLE_EQ(d.cur_q, 60.0);
  EXPECT_DOUBLE_EQ(d.res_q, 10.0);
  EXPECT_DOUBLE_EQ(d.threshold, 20.0);
  EXPECT_EQ(d.split_q, 0.0);
  EXPECT_STREQ(d.status_flg, "10000000");
  EXPECT_STREQ(d.cist_id, "    0");
  EXPECT_DOUBLE_EQ(d.mpx, 1.5);
}

TEST_F(CtInDsp, ReadMpxOfOnePointFiveSemicolonTwo) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "00000000", 0, "1.5;2")});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_DOUBLE_EQ(c.m_Tanks[0].mpx, 1.5);
}

TEST_F(CtInDsp, ReadMpxBeginningWithSemicolonIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "00000000", 0, ";2")});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_EQ(c.m_Tanks[0].mpx, 0.0);
}

TEST_F(CtInDsp, ReadBlankMpxIsZero) {
  // Decided: a blank MPX sets no factor, and the factor starts at 0, so a
  // tank without multiplexing data has the factor 0.
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "00000000", 0, "")});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_EQ(c.m_Tanks[0].mpx, 0.0);
}

TEST_F(CtInDsp, ReadMpxWithoutSemicolonIsTheWholeNumber) {
  // Decided: without a ';' the number runs to the end of the text (within
  // the 16 characters that are converted).
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "00000000", 0, "2.5")});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_DOUBLE_EQ(c.m_Tanks[0].mpx, 2.5);
}

TEST_F(CtInDsp, ReadNonNumericMpxIsZero) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "00000000", 0, "abc;2")});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_EQ(c.m_Tanks[0].mpx, 0.0);
}

TEST_F(CtInDsp, ReadTakesQuantitiesFromTheCistern) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "00000000", 4)});
  AddCistern(2, 1, 1, 1, 1);
  AddCistern(4, 1, 500, 300, 20);
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  ASSERT_EQ(c.m_NumTanks, 1);
  EXPECT_DOUBLE_EQ(c.m_Tanks[0].max_q, 500.0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[0].cur_q, 300.0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[0].res_q, 20.0);
  EXPECT_STREQ(c.m_Tanks[0].cist_id, "    4");
}

// A cistern is sought by its id as "%5ld" prints it, and the entry keeps
// that text: ids of one to five places, and below zero, alike.
TEST_F(CtInDsp, CisternIdsOfEveryWidthAreFoundAndKeptAsTheyPrint) {
  AddDispenser();
  const std::vector<std::pair<long, std::string>> ids = {
      {7, "    7"}, {42, "   42"}, {345, "  345"}, {6789, " 6789"}, {12345, "12345"}, {-3, "   -3"}};
  std::vector<TankRow> rows;
  for (size_t i = 0; i < ids.size(); ++i) {
    rows.push_back(Tank(static_cast<int>(i) + 1, 20 + static_cast<long>(i), 60, 10, 100, 0,
                        "00000000", ids[i].first));
  }
  AddTanks(rows);
  for (size_t i = 0; i < ids.size(); ++i) {
    AddCistern(ids[i].first, 1, 1000.0 + static_cast<double>(i), 500, 20);
  }
  slave s(1);
  for (size_t i = 0; i < ids.size(); ++i) {
    ColourantInDispenser c(&s);
    ASSERT_EQ(c.Read(20 + static_cast<long>(i)), 1) << ids[i].first;
    ASSERT_EQ(c.m_NumTanks, 1);
    EXPECT_DOUBLE_EQ(c.m_Tanks[0].max_q, 1000.0 + static_cast<double>(i)) << ids[i].first;
    EXPECT_STREQ(c.m_Tanks[0].cist_id, ids[i].second.c_str());
    EXPECT_EQ(s.TankLocate(static_cast<int>(i) + 1), 1) << ids[i].first;
  }
}

TEST_F(CtInDsp, ReadSecondaryKeepsItsOwnMarks) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "00000000", 4), Secondary(2, 5, 10, 4)});
  AddCistern(4, 2, 500, 300, 20);
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  int i = EntryOf(c, 2);
  ASSERT_GE(i, 0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[i].max_q, -1.0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[i].cur_q, -1.0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[i].res_q, -1.0);
  EXPECT_STREQ(c.m_Tanks[i].cist_id, "    4");
}

TEST_F(CtInDsp, ReadTankWithoutCisternKeepsItsOwnQuantities) {
  // Decided: a tank with cistern id 0 seeks no cistern record, so its
  // quantities are its own even while the cistern table holds records.
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0)});
  AddCistern(1, 1, 500, 300, 20);
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_DOUBLE_EQ(c.m_Tanks[0].max_q, 100.0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[0].cur_q, 60.0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[0].res_q, 10.0);
}

TEST_F(CtInDsp, ReadUnreadableStatusIsAllOff) {
  ASSERT_TRUE(tables_.RecreateWithout(QDB_SCHEMA_TANKS, {"STATUS_FLG"}));
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_STREQ(c.m_Tanks[0].status_flg, "00000000");
  EXPECT_EQ(c.ChkStatus(0, TNK_SIM), 0);
  EXPECT_EQ(c.ChkStatus(0, TNK_SUSP), 0);
}

TEST_F(CtInDsp, ReadColourantInNoTankFails) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.Read(6), 0);
  EXPECT_EQ(c.m_NumTanks, 0);
  EXPECT_EQ(c.m_Tanks, nullptr);
  CntStatus st = CNT_BAD_LINK;
  EXPECT_EQ(c.IsCntOK(&st), 1);
  EXPECT_EQ(st, CNT_ABSENT);
}

TEST_F(CtInDsp, ReadColourantZeroFails) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.Read(0), 0);
  EXPECT_EQ(c.m_CntId, 0);
  EXPECT_EQ(c.m_Tanks, nullptr);
}

TEST_F(CtInDsp, ReadNegativeColourantFails) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.Read(-5), 0);
  EXPECT_EQ(c.m_CntId, 0);
  EXPECT_EQ(c.m_Tanks, nullptr);
}

TEST_F(CtInDsp, ReadWithoutSlaveFails) {
  ColourantInDispenser c(nullptr);
  EXPECT_EQ(c.Read(5), 0);
  EXPECT_EQ(c.m_Tanks, nullptr);
}

TEST_F(CtInDsp, ReadOnAnUnselectedDispenserFails) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0)});
  slave s(42);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.Read(5), 0);
  EXPECT_EQ(c.m_Tanks, nullptr);
}

TEST_F(CtInDsp, ReadAgainReplacesTheEntries) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0), Tank(2, 5, 60, 10, 100, 20),
            Tank(3, 6, 7, 1, 9, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  ASSERT_EQ(c.m_NumTanks, 2);
  ASSERT_EQ(c.Read(6), 1);
  EXPECT_EQ(c.m_CntId, 6);
  ASSERT_EQ(c.m_NumTanks, 1);
  EXPECT_EQ(c.m_Tanks[0].tank, 3);
  EXPECT_DOUBLE_EQ(c.m_Tanks[0].cur_q, 7.0);
  // A failed read empties the object.
  EXPECT_EQ(c.Read(8), 0);
  EXPECT_EQ(c.m_CntId, 0);
  EXPECT_EQ(c.m_Tanks, nullptr);
}

// --- IsCntOK -----------------------------------------------------------------------

TEST_F(CtInDsp, IsCntOkEmptyIsAbsent) {
  ColourantInDispenser c(nullptr);
  CntStatus st = CNT_BAD_LINK;
  EXPECT_EQ(c.IsCntOK(&st), 1);
  EXPECT_EQ(st, CNT_ABSENT);
  EXPECT_EQ(c.IsCntOK(nullptr), 1);
}

TEST_F(CtInDsp, IsCntOkOneTankIsSingle) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 30)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  CntStatus st = CNT_ABSENT;
  EXPECT_EQ(c.IsCntOK(&st), 1);
  EXPECT_EQ(st, CNT_SINGLE);
}

TEST_F(CtInDsp, IsCntOkMasterAndSecondaryIsLinked) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0), Secondary(2, 5, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  CntStatus st = CNT_ABSENT;
  EXPECT_EQ(c.IsCntOK(&st), 1);
  EXPECT_EQ(st, CNT_LINKED);
}

TEST_F(CtInDsp, IsCntOkLinkedThroughACistern) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "00000000", 3), Secondary(2, 5, 5, 3),
            Secondary(3, 5, 10, 3)});
  AddCistern(3, 3, 500, 300, 20);
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  CntStatus st = CNT_ABSENT;
  EXPECT_EQ(c.IsCntOK(&st), 1);
  EXPECT_EQ(st, CNT_LINKED);
}

TEST_F(CtInDsp, IsCntOkIndependentTanksIsMulti) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0), Tank(2, 5, 60, 10, 100, 20)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  CntStatus st = CNT_ABSENT;
  EXPECT_EQ(c.IsCntOK(&st), 1);
  EXPECT_EQ(st, CNT_MULTI);
}

TEST_F(CtInDsp, IsCntOkNegativeThresholdIsBadTank) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, -5), Tank(2, 5, 60, 10, 100, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  CntStatus st = CNT_ABSENT;
  EXPECT_EQ(c.IsCntOK(&st), 0);
  EXPECT_EQ(st, CNT_BAD_TANK);
}

TEST_F(CtInDsp, IsCntOkTankNumberBelowOneIsBadTank) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0), Tank(2, 5, 60, 10, 100, 20)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  c.m_Tanks[1].tank = 0;
  CntStatus st = CNT_ABSENT;
  EXPECT_EQ(c.IsCntOK(&st), 0);
  EXPECT_EQ(st, CNT_BAD_TANK);
}

TEST_F(CtInDsp, IsCntOkBadEntryAfterACountedSecondaryIsLinked) {
  // The walk stops at the bad entry, but the secondary counted up to there
  // makes the set linked.
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0), Secondary(2, 5, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  if (c.m_Tanks[0].max_q >= 0) std::swap(c.m_Tanks[0], c.m_Tanks[1]);
  ASSERT_LT(c.m_Tanks[0].max_q, 0.0);
  c.m_Tanks[0].tank = 0;
  CntStatus st = CNT_ABSENT;
  EXPECT_EQ(c.IsCntOK(&st), 1);
  EXPECT_EQ(st, CNT_LINKED);
}

TEST_F(CtInDsp, IsCntOkNoZeroThresholdIndependent) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0.5), Tank(2, 5, 60, 10, 100, 50)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  CntStatus st = CNT_ABSENT;
  EXPECT_EQ(c.IsCntOK(&st), 0);
  EXPECT_EQ(st, CNT_NO_ZERO_THRES);
}

TEST_F(CtInDsp, IsCntOkNoZeroThresholdLinked) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 10), Secondary(2, 5, 10)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  CntStatus st = CNT_ABSENT;
  EXPECT_EQ(c.IsCntOK(&st), 0);
  EXPECT_EQ(st, CNT_NO_ZERO_THRES);
}

TEST_F(CtInDsp, IsCntOkThresholdUnderOneHundredthCountsAsZero) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0.005), Tank(2, 5, 60, 10, 100, 50)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  CntStatus st = CNT_ABSENT;
  EXPECT_EQ(c.IsCntOK(&st), 1);
  EXPECT_EQ(st, CNT_MULTI);
}

TEST_F(CtInDsp, IsCntOkThreeTanksOneSecondaryIsBadLink) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0), Tank(2, 5, 60, 10, 100, 10),
            Secondary(3, 5, 20)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  CntStatus st = CNT_ABSENT;
  EXPECT_EQ(c.IsCntOK(&st), 0);
  EXPECT_EQ(st, CNT_BAD_LINK);
}

TEST_F(CtInDsp, IsCntOkSecondaryOfAnotherCisternIsNotCounted) {
  // Tank 3 is a secondary of cistern 8, not of the group's cistern 2, so
  // the group has one secondary for three tanks: a bad link.
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "00000000", 2), Secondary(2, 5, 1, 2),
            Secondary(3, 5, 2, 8)});
  AddCistern(2, 2, 500, 300, 20);
  AddCistern(8, 1, 500, 300, 20);
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  ASSERT_EQ(c.m_Tanks[0].tank, 1);
  CntStatus st = CNT_ABSENT;
  EXPECT_EQ(c.IsCntOK(&st), 0);
  EXPECT_EQ(st, CNT_BAD_LINK);
}

TEST_F(CtInDsp, IsCntOkNegativeCountIsNoZeroThreshold) {
  ColourantInDispenser c(nullptr);
  c.m_NumTanks = -1;
  CntStatus st = CNT_ABSENT;
  EXPECT_EQ(c.IsCntOK(&st), 0);
  EXPECT_EQ(st, CNT_NO_ZERO_THRES);
  c.m_NumTanks = 0;
}

TEST_F(CtInDsp, IsCntOkWithNullStatus) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0.5), Tank(2, 5, 60, 10, 100, 50)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_EQ(c.IsCntOK(nullptr), 0);
}

// --- Write ---------------------------------------------------------------------------

TEST_F(CtInDsp, WriteStoresTheEntries) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "10000000"), Tank(2, 6, 1, 1, 1, 0),
            Tank(3, 5, 40, 4, 80, 10, "00000000")});
  {
    slave s(1);
    ColourantInDispenser c(&s);
    ASSERT_EQ(c.Read(5), 1);
    ASSERT_EQ(c.m_Tanks[0].tank, 1);
    ASSERT_EQ(c.m_Tanks[1].tank, 3);
    c.m_Tanks[0].cur_q = 55.5;
    c.m_Tanks[0].res_q = 9.0;
    c.m_Tanks[0].max_q = 120.0;
    c.m_Tanks[1].threshold = 15.0;
    ASSERT_EQ(c.ModifyStatus(1, TNK_SUSP), 1);
    trace_.clear();
    EXPECT_EQ(c.Write(), 1);
    std::vector<std::string> m = trace_.messages();
    EXPECT_EQ(CountOf(m, "\nTank:     1, max_q: 120.000"), 1);
    EXPECT_EQ(CountOf(m, "\nTank:     3, max_q:  80.000"), 1);
    // The slave's tank map is still in place after the reload.
    EXPECT_EQ(s.m_DispId, 1);
    EXPECT_EQ(s.m_NumTanks, 3);
  }
  DiskTable disk = Tanks();
  ASSERT_EQ(disk.rows.size(), 3u);
  EXPECT_EQ(disk.rows[0], "1|55.500|9.000|120.000|0.000|10000000|    0");
  EXPECT_EQ(disk.rows[1], "2|1.000|1.000|1.000|0.000|00000000|    0");
  EXPECT_EQ(disk.rows[2], "3|40.000|4.000|80.000|15.000|01000000|    0");
}

TEST_F(CtInDsp, WriteStoresTheCisternQuantities) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "00000000", 4),
            Tank(2, 5, 60, 10, 100, 10, "00000000", 7)});
  AddCistern(4, 1, 500, 300, 20);
  AddCistern(7, 1, 400, 200, 10);
  AddCistern(9, 1, 1, 1, 1);
  {
    slave s(1);
    ColourantInDispenser c(&s);
    ASSERT_EQ(c.Read(5), 1);
    ASSERT_EQ(c.m_Tanks[0].tank, 1);
    c.m_Tanks[0].max_q = 480.0;
    c.m_Tanks[0].cur_q = 250.0;
    c.m_Tanks[0].res_q = 25.0;
    EXPECT_EQ(c.Write(), 1);
  }
  DiskTable cist = Cisterns();
  ASSERT_EQ(cist.rows.size(), 3u);
  EXPECT_EQ(cist.rows[0], "4|1|480.000|250.000|25.000");
  EXPECT_EQ(cist.rows[1], "7|1|400.000|200.000|10.000");
  EXPECT_EQ(cist.rows[2], "9|1|1.000|1.000|1.000");
  DiskTable disk = Tanks();
  ASSERT_EQ(disk.rows.size(), 2u);
  EXPECT_EQ(disk.rows[0], "1|250.000|25.000|480.000|0.000|00000000|    4");
  EXPECT_EQ(disk.rows[1], "2|200.000|10.000|400.000|10.000|00000000|    7");
}

TEST_F(CtInDsp, WriteChangedCisternIdReachesTheTankRecord) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "00000000", 4),
            Tank(2, 5, 60, 10, 100, 10, "00000000", 7)});
  AddCistern(4, 1, 500, 300, 20);
  AddCistern(7, 1, 400, 200, 10);
  {
    slave s(1);
    ColourantInDispenser c(&s);
    ASSERT_EQ(c.Read(5), 1);
    strcpy(c.m_Tanks[1].cist_id, "    4");
    EXPECT_EQ(c.Write(), 1);
  }
  DiskTable disk = Tanks();
  ASSERT_EQ(disk.rows.size(), 2u);
  EXPECT_EQ(disk.rows[1].substr(disk.rows[1].rfind('|') + 1), "    4");
}

TEST_F(CtInDsp, WriteOfATankWithoutCisternLeavesTheCisternsAlone) {
  // Decided: a tank whose cistern id is 0 has no reservoir record, so its
  // quantities go to its own record only; the reservoir that happens to be
  // current in the cistern table keeps its quantities.
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0), Tank(2, 5, 40, 4, 80, 10)});
  AddCistern(1, 2, 500, 300, 20);
  {
    slave s(1);
    ColourantInDispenser c(&s);
    ASSERT_EQ(c.Read(5), 1);
    c.m_Tanks[0].cur_q = 33.0;
    EXPECT_EQ(c.Write(), 1);
  }
  DiskTable cist = Cisterns();
  ASSERT_EQ(cist.rows.size(), 1u);
  EXPECT_EQ(cist.rows[0], "1|2|500.000|300.000|20.000");
  DiskTable disk = Tanks();
  ASSERT_EQ(disk.rows.size(), 2u);
  EXPECT_EQ(disk.rows[0], "1|33.000|10.000|100.000|0.000|00000000|    0");
}

TEST_F(CtInDsp, WriteWithAnUnknownCisternWritesOnlyTheTank) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "00000000", 8)});  // no cistern 8
  AddCistern(4, 1, 500, 300, 20);
  {
    slave s(1);
    ASSERT_EQ(s.TankLocate(1), 2);
    ColourantInDispenser c(&s);
    ASSERT_EQ(c.Read(5), 1);
    c.m_Tanks[0].max_q = 90.0;
    c.m_Tanks[0].cur_q = 45.0;
    c.m_Tanks[0].res_q = 5.0;
    EXPECT_EQ(c.Write(), 1);
  }
  DiskTable cist = Cisterns();
  ASSERT_EQ(cist.rows.size(), 1u);
  EXPECT_EQ(cist.rows[0], "4|1|500.000|300.000|20.000");
  DiskTable disk = Tanks();
  ASSERT_EQ(disk.rows.size(), 1u);
  EXPECT_EQ(disk.rows[0], "1|45.000|5.000|90.000|0.000|00000000|    8");
}

TEST_F(CtInDsp, WriteOfAnEmptyObjectFails) {
  AddDispenser();
  slave s(1);
  ColourantInDispenser c(&s);
  trace_.clear();
  EXPECT_EQ(c.Write(), 0);
  EXPECT_TRUE(WriteErrorTraced(trace_.messages()));
}

TEST_F(CtInDsp, WriteWithoutSlaveFails) {
  ColourantInDispenser c(nullptr);
  trace_.clear();
  EXPECT_EQ(c.Write(), 0);
  EXPECT_TRUE(WriteErrorTraced(trace_.messages()));
}

TEST_F(CtInDsp, WriteOfARefusedSetFailsAndWritesNothing) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0.5), Tank(2, 5, 60, 10, 100, 50)});
  {
    slave s(1);
    ColourantInDispenser c(&s);
    ASSERT_EQ(c.Read(5), 1);
    c.m_Tanks[0].cur_q = 1.0;
    c.m_Tanks[1].cur_q = 2.0;
    trace_.clear();
    EXPECT_EQ(c.Write(), 0);
    EXPECT_TRUE(WriteErrorTraced(trace_.messages()));
  }
  DiskTable disk = Tanks();
  ASSERT_EQ(disk.rows.size(), 2u);
  EXPECT_EQ(disk.rows[0], "1|60.000|10.000|100.000|0.500|00000000|    0");
  EXPECT_EQ(disk.rows[1], "2|60.000|10.000|100.000|50.000|00000000|    0");
}

// --- Adjust ----------------------------------------------------------------------------

TEST_F(CtInDsp, AdjustZeroesAndWrites) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "10000000"), Tank(2, 5, 40, 4, 80, 10)});
  {
    slave s(1);
    ColourantInDispenser c(&s);
    ASSERT_EQ(c.Read(5), 1);
    EXPECT_EQ(c.Adjust(), 1);
    for (int i = 0; i < c.m_NumTanks; ++i) {
      EXPECT_EQ(c.m_Tanks[i].max_q, 0.0);
      EXPECT_EQ(c.m_Tanks[i].cur_q, 0.0);
      EXPECT_EQ(c.m_Tanks[i].res_q, 0.0);
      EXPECT_EQ(c.m_Tanks[i].threshold, 0.0);
    }
  }
  DiskTable disk = Tanks();
  ASSERT_EQ(disk.rows.size(), 2u);
  EXPECT_EQ(disk.rows[0], "1|0.000|0.000|0.000|0.000|10000000|    0");
  EXPECT_EQ(disk.rows[1], "2|0.000|0.000|0.000|0.000|00000000|    0");
}

TEST_F(CtInDsp, AdjustZeroesTheCistern) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "00000000", 3)});
  AddCistern(3, 1, 500, 300, 20);
  {
    slave s(1);
    ColourantInDispenser c(&s);
    ASSERT_EQ(c.Read(5), 1);
    EXPECT_EQ(c.Adjust(), 1);
  }
  DiskTable cist = Cisterns();
  ASSERT_EQ(cist.rows.size(), 1u);
  EXPECT_EQ(cist.rows[0], "3|1|0.000|0.000|0.000");
}

TEST_F(CtInDsp, AdjustOfAnEmptyObjectFails) {
  AddDispenser();
  slave s(1);
  ColourantInDispenser c(&s);
  trace_.clear();
  EXPECT_EQ(c.Adjust(), 0);
  EXPECT_TRUE(WriteErrorTraced(trace_.messages()));
}

// --- ChkStatus / ModifyStatus -------------------------------------------------------------

TEST_F(CtInDsp, ChkStatusReadsTheBits) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "10000000"), Tank(2, 5, 60, 10, 100, 20, "01000000")});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  ASSERT_EQ(c.m_Tanks[0].tank, 1);
  EXPECT_EQ(c.ChkStatus(0, TNK_SIM), 1);
  EXPECT_EQ(c.ChkStatus(0, TNK_SUSP), 0);
  EXPECT_EQ(c.ChkStatus(1, TNK_SIM), 0);
  EXPECT_EQ(c.ChkStatus(1, TNK_SUSP), 1);
}

TEST_F(CtInDsp, ModifyStatusTogglesAndTwiceRestores) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "10000000")});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_EQ(c.ModifyStatus(0, TNK_SUSP), 1);
  EXPECT_STREQ(c.m_Tanks[0].status_flg, "11000000");
  EXPECT_EQ(c.ChkStatus(0, TNK_SUSP), 1);
  EXPECT_EQ(c.ModifyStatus(0, TNK_SUSP), 1);
  EXPECT_STREQ(c.m_Tanks[0].status_flg, "10000000");
  EXPECT_EQ(c.ModifyStatus(0, TNK_SIM), 1);
  EXPECT_STREQ(c.m_Tanks[0].status_flg, "00000000");
  EXPECT_EQ(c.ModifyStatus(0, TNK_SIM), 1);
  EXPECT_STREQ(c.m_Tanks[0].status_flg, "10000000");
}

TEST_F(CtInDsp, ChkStatusOfAnUnknownBitIsOne) {
  NarrowStatusField();
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "0")});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  ASSERT_STREQ(c.m_Tanks[0].status_flg, "0");
  EXPECT_EQ(c.ChkStatus(0, TNK_SIM), 0);
  EXPECT_EQ(c.ChkStatus(0, TNK_SUSP), 1);
}

TEST_F(CtInDsp, ModifyStatusOfAnUnknownBitChangesNothing) {
  NarrowStatusField();
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 10, 100, 0, "1")});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_EQ(c.ModifyStatus(0, TNK_SUSP), 1);
  EXPECT_STREQ(c.m_Tanks[0].status_flg, "1");
  EXPECT_EQ(c.ChkStatus(0, TNK_SUSP), 1);
}

// --- VerifyLevel ---------------------------------------------------------------------------

TEST_F(CtInDsp, VerifyLevelIsTheSharedLevelScale) {
  ColourantInDispenser c(nullptr);
  EXPECT_EQ(c.VerifyLevel(10, 5), 2);
  EXPECT_EQ(c.VerifyLevel(9.9, 5), 1);
  EXPECT_EQ(c.VerifyLevel(5, 5), 1);
  EXPECT_EQ(c.VerifyLevel(4, 5), 0);
  EXPECT_EQ(c.VerifyLevel(0, 0), 2);
  EXPECT_EQ(c.VerifyLevel(-1, 0), 0);
}

// --- ShowCircuit -----------------------------------------------------------------------------

TEST_F(CtInDsp, ShowCircuitTracesTheTable) {
  AddDispenser();
  AddTanks({Tank(2, 7, 60, 10, 100, 20, "10000000"),
            Tank(5, 7, 35.5, 5, 80, 0, "01000000")});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(7), 1);
  ASSERT_EQ(c.m_Tanks[0].tank, 5);
  c.m_Tanks[0].split_q = 12.5;
  c.m_Tanks[1].split_q = 20.0;
  trace_.clear();
  c.ShowCircuit();
  EXPECT_EQ(trace_.text(),
            "\nColorant 7 (volume 32.50) present in 2 circuits"
            "\n Tank    Thres     SplitQ   Sim  Susp      cur-res        cur        max        res"
            "\n    5        0      12.50    No   Yes        30.50      35.50      80.00       5.00"
            "\n    2       20      20.00   Yes    No        50.00      60.00     100.00      10.00");
}

TEST_F(CtInDsp, ShowCircuitOfAnEmptyObjectPrintsOnlyTheHeadline) {
  ColourantInDispenser c(nullptr);
  trace_.clear();
  c.ShowCircuit();
  EXPECT_EQ(trace_.text(), "\nColorant 0 (volume 0.00) present in 0 circuits");
}

TEST_F(CtInDsp, ShowCircuitPrintsAnUnknownBitAsYes) {
  NarrowStatusField();
  AddDispenser();
  AddTanks({Tank(3, 7, 20, 2, 40, 0, "0")});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(7), 1);
  trace_.clear();
  c.ShowCircuit();
  EXPECT_EQ(trace_.text(),
            "\nColorant 7 (volume 0.00) present in 1 circuits"
            "\n Tank    Thres     SplitQ   Sim  Susp      cur-res        cur        max        res"
            "\n    3        0       0.00    No   Yes        18.00      20.00      40.00       2.00");
}

// --- Orderings -----------------------------------------------------------------------------

CtInDspTank Entry(int tank, double threshold, double cur) {
  CtInDspTank t;
  memset(&t, 0, sizeof t);
  t.tank = tank;
  t.threshold = threshold;
  t.cur_q = cur;
  strcpy(t.status_flg, "00000000");
  strcpy(t.cist_id, "    0");
  return t;
}

TEST(CtInDspOrder, CompareByThreshold) {
  CtInDspTank a = Entry(1, 5, 10);
  CtInDspTank b = Entry(2, 10, 99);
  EXPECT_LT(CtInDspCompare_s(&a, &b), 0);
  EXPECT_GT(CtInDspCompare_s(&b, &a), 0);
}

TEST(CtInDspOrder, CompareByThresholdIgnoresQuantities) {
  CtInDspTank a = Entry(1, 5, 10);
  CtInDspTank b = Entry(2, 5, 99);
  EXPECT_EQ(CtInDspCompare_s(&a, &b), 0);
  EXPECT_EQ(CtInDspCompare_s(&b, &a), 0);
}

TEST(CtInDspOrder, DispenseOrderIsByThresholdFirst) {
  CtInDspTank a = Entry(1, 5, 10);
  CtInDspTank b = Entry(2, 10, 99);
  EXPECT_LT(CtInDspCompare_dsp(&a, &b), 0);
  EXPECT_GT(CtInDspCompare_dsp(&b, &a), 0);
}

TEST(CtInDspOrder, DispenseOrderPutsMoreColourantFirst) {
  CtInDspTank a = Entry(1, 5, 80);
  CtInDspTank b = Entry(2, 5, 30);
  EXPECT_LT(CtInDspCompare_dsp(&a, &b), 0);
  EXPECT_GT(CtInDspCompare_dsp(&b, &a), 0);
}

TEST(CtInDspOrder, DispenseOrderEqualEntriesCompareEqual) {
  CtInDspTank a = Entry(1, 5, 30);
  CtInDspTank b = Entry(2, 5, 30);
  EXPECT_EQ(CtInDspCompare_dsp(&a, &b), 0);
}

TEST(CtInDspOrder, SortingWithTheDispenseOrder) {
  CtInDspTank v[5] = {Entry(1, 20, 5), Entry(2, 0, 10), Entry(3, 20, 50),
                      Entry(4, 0, 70), Entry(5, 10, 1)};
  qsort(v, 5, sizeof v[0], CtInDspCompare_dsp);
  EXPECT_EQ(v[0].tank, 4);
  EXPECT_EQ(v[1].tank, 2);
  EXPECT_EQ(v[2].tank, 5);
  EXPECT_EQ(v[3].tank, 3);
  EXPECT_EQ(v[4].tank, 1);
}

TEST(CtInDspOrder, SortingByThreshold) {
  CtInDspTank v[4] = {Entry(1, 20, 5), Entry(2, 0, 10), Entry(3, 35, 50),
                      Entry(4, 10, 70)};
  qsort(v, 4, sizeof v[0], CtInDspCompare_s);
  EXPECT_EQ(v[0].tank, 2);
  EXPECT_EQ(v[1].tank, 4);
  EXPECT_EQ(v[2].tank, 1);
  EXPECT_EQ(v[3].tank, 3);
}

}  // namespace
