// Splitting one colourant quantity over the tanks that hold it: the single
// destination, the candidate group by threshold, linked tanks sharing one
// reservoir, independent tanks with suspension and the simultaneous split,
// the multiplexed pair, the hand-over to drivers that split by themselves,
// the lists handed to the formula splitter, and the two switches that link
// and unlink a colourant's tanks (checked on disk with an independent
// dBase reader).
#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <limits>
#include <string>
#include <vector>

#include "library_env.h"

namespace {

using qtest::CisternRow;
using qtest::ColorantRow;
using qtest::CountOf;
using qtest::CountPrefix;
using qtest::DispenserRow;
using qtest::Sim;
using qtest::StandardDispenser;
using qtest::TankRow;

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

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

// A zero-threshold tank with plenty, which makes a set of tanks with
// thresholds valid (some tank must take small quantities) while staying
// outside any group with a threshold.
TankRow ZeroTank(int tank) { return Tank(tank, 5, 500, 0, 600, 0); }

TankRow Secondary(int tank, long cnt, double threshold,
                  const std::string& flags = "00000000", long cist = 0,
                  const std::string& mpx = "") {
  return Tank(tank, cnt, -1.0, -1.0, -1.0, threshold, flags, cist, mpx);
}

struct DiskTable {
  std::vector<std::string> rows;
  int deleted = -1;
  long recCount = -1;
};

// The records of a table as an independent dBase reader sees them, in file
// order (see test_colourant_in_dispenser.cpp for the format), with the
// number of records marked deleted and the record count of the header.
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
      "sys.stdout.write('#deleted=%d\\n' % len(t.deleted))\n"
      "sys.stdout.write('#count=%d\\n' % t.header.numrecords)\n";
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
    } else if (line.compare(0, 7, "#count=") == 0) {
      disk.recCount = atol(line.c_str() + 7);
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

class Split : public qtest::LibraryEnv {
 protected:
  void AddDispenser(double threshold = 0.0, const std::string& hide_id = "ZARVO") {
    DispenserRow row = StandardDispenser(1);
    row.threshold = threshold;
    row.hide_id = hide_id;
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
  void NarrowStatusField() {
    ASSERT_TRUE(tables_.RecreateWithWidths(QDB_SCHEMA_TANKS, {{"STATUS_FLG", 1}}));
  }

  DiskTable Tanks() { return ReadDisk(tables_.FileOf(QDB_SCHEMA_TANKS), kTankFields); }
  DiskTable Cisterns() {
    return ReadDisk(tables_.FileOf(QDB_SCHEMA_CISTERN), kCisternFields);
  }

  static int EntryOf(const ColourantInDispenser& c, int tank) {
    for (int i = 0; i < c.m_NumTanks; ++i) {
      if (c.m_Tanks[i].tank == tank) return i;
    }
    return -1;
  }
  // The share of a tank after a split; NaN (failing every comparison) when
  // the tank has no entry.
  static double SplitOf(const ColourantInDispenser& c, int tank) {
    int i = EntryOf(c, tank);
    if (i < 0) {
      ADD_FAILURE() << "no entry for tank " << tank;
      return kNaN;
    }
    return c.m_Tanks[i].split_q;
  }
  static std::string FlagsOf(const ColourantInDispenser& c, int tank) {
    int i = EntryOf(c, tank);
    return i < 0 ? std::string("<none>") : std::string(c.m_Tanks[i].status_flg);
  }
  static double ThresholdOf(const ColourantInDispenser& c, int tank) {
    int i = EntryOf(c, tank);
    return i < 0 ? kNaN : c.m_Tanks[i].threshold;
  }
  static bool NothingAssigned(const ColourantInDispenser& c) {
    for (int i = 0; i < c.m_NumTanks; ++i) {
      if (c.m_Tanks[i].split_q != 0.0) return false;
    }
    return true;
  }
};

// --- Single destination -------------------------------------------------------

TEST_F(Split, OneTankTakesTheWholeQuantity) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 10, 200, 30)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 30.0), 2);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 30.0);
}

TEST_F(Split, OneTankVerdictOneAboveTheReserve) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 10, 200, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 85.0), 1);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 85.0);
}

TEST_F(Split, OneTankVerdictZeroKeepsTheAssignment) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 10, 200, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 95.0), 0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 95.0);
}

TEST_F(Split, OneEmptyTankAnswersZeroButHoldsTheQuantity) {
  AddDispenser();
  AddTanks({Tank(1, 5, 0, 0, 200, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 12.0), 0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 12.0);
}

TEST_F(Split, ZeroQuantityGivesTheFirstEntryZero) {
  AddDispenser();
  AddTanks({Tank(1, 5, 50, 5, 100, 20), Tank(2, 5, 100, 10, 200, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 0.0), 2);
  ASSERT_EQ(c.m_Tanks[0].tank, 2);
  EXPECT_EQ(SplitOf(c, 2), 0.0);
  EXPECT_EQ(SplitOf(c, 1), 0.0);
}

TEST_F(Split, ZeroQuantityJudgesTheFirstEntryHoldingColourant) {
  // The zero-threshold tank comes first but is empty (reserve 5 would make
  // its own verdict 0); the verdict is the next tank's: 15 left over a
  // reserve of 10.
  AddDispenser();
  AddTanks({Tank(1, 5, 0, 5, 100, 0), Tank(2, 5, 15, 10, 200, 20)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 0.0), 1);
}

TEST_F(Split, ZeroQuantityListsEveryTank) {
  AddDispenser();
  AddTanks({Tank(1, 5, 50, 5, 100, 20), Tank(2, 5, 100, 10, 200, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  EXPECT_EQ(c.SplitQntToTanks(5, 0.0, &tanks, &qnts), 2);
  ASSERT_EQ(tanks.size(), 2);
  ASSERT_EQ(qnts.size(), 2);
  EXPECT_EQ(tanks[0], 2);
  EXPECT_EQ(tanks[1], 1);
  EXPECT_EQ(qnts[0], 0.0);
  EXPECT_EQ(qnts[1], 0.0);
}

// --- Candidate group -------------------------------------------------------------

TEST_F(Split, TenGoesToTheZeroThresholdTank) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 10, 200, 0), Tank(2, 5, 100, 10, 200, 20)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 10.0), 2);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 10.0);
  EXPECT_EQ(SplitOf(c, 2), 0.0);
  // The zero threshold raised to the dispenser threshold for the split is
  // back to 0; the other group's threshold is untouched.
  EXPECT_EQ(ThresholdOf(c, 1), 0.0);
  EXPECT_DOUBLE_EQ(ThresholdOf(c, 2), 20.0);
}

TEST_F(Split, TwentyFiveGoesToTheThresholdTwentyTank) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 10, 200, 0), Tank(2, 5, 100, 10, 200, 20)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 25.0), 2);
  EXPECT_EQ(SplitOf(c, 1), 0.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 25.0);
}

TEST_F(Split, HighestGroupThatCannotTakeItFailsWithoutFallback) {
  // 50 belongs to the threshold-20 tank, which holds only 30; the
  // zero-threshold tank with plenty is not asked.
  AddDispenser();
  AddTanks({Tank(1, 5, 500, 0, 600, 0), Tank(2, 5, 30, 0, 200, 20)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 50.0), 0);
  EXPECT_TRUE(NothingAssigned(c));
}

TEST_F(Split, HighestGroupAllSuspendedFails) {
  AddDispenser();
  AddTanks({Tank(1, 5, 500, 0, 600, 0), Tank(2, 5, 500, 0, 600, 20, "01000000")});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 50.0), 0);
  EXPECT_TRUE(NothingAssigned(c));
}

TEST_F(Split, SingleCircuitModeTakesTheZeroThresholdGroup) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 10, 200, 0), Tank(2, 5, 100, 10, 200, 20)});
  slave s(1);
  s.SetSingleCircuit(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 50.0), 2);
  EXPECT_EQ(c.m_SingleCircuit, 1);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 50.0);
  EXPECT_EQ(SplitOf(c, 2), 0.0);
}

TEST_F(Split, SingleCircuitModeOffLeavesTheObjectOff) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 10, 200, 0), Tank(2, 5, 100, 10, 200, 20)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 50.0), 2);
  EXPECT_EQ(c.m_SingleCircuit, 0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 50.0);
}

TEST_F(Split, SingleCircuitModeWithoutAThresholdOfZeroFails) {
  // Decided: the scan for a threshold not above 0 stops at the first
  // entry; a threshold of 0.005 counts as "no minimum" for the set to be
  // valid, but it is above 0, so no entry qualifies and the split fails.
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 10, 200, 0.005), Tank(2, 5, 100, 10, 200, 20)});
  slave s(1);
  s.SetSingleCircuit(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 50.0), 0);
  EXPECT_TRUE(NothingAssigned(c));
}

// --- Independent tanks: suspension and the one-tank choice ----------------------------

TEST_F(Split, SuspendedTankIsPassedOver) {
  AddDispenser();
  AddTanks({Tank(1, 5, 500, 0, 600, 0, "01000000"), Tank(2, 5, 100, 0, 200, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 30.0), 2);
  EXPECT_EQ(SplitOf(c, 1), 0.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 30.0);
}

TEST_F(Split, TankBelowItsThresholdIsSuspendedAndGetsNothing) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 0, 200, 10), Tank(2, 5, 8, 0, 200, 10, "10000000"),
            ZeroTank(9)});
  {
    slave s(1);
    ColourantInDispenser c(&s);
    EXPECT_EQ(c.SplitQnt(5, 50.0), 2);
    EXPECT_DOUBLE_EQ(SplitOf(c, 1), 50.0);
    EXPECT_EQ(SplitOf(c, 2), 0.0);
    EXPECT_EQ(FlagsOf(c, 2), "01000000");
    EXPECT_EQ(FlagsOf(c, 1), "00000000");
  }
  // The split does not write the flags.
  DiskTable disk = Tanks();
  ASSERT_EQ(disk.rows.size(), 3u);
  EXPECT_EQ(disk.rows[1], "2|8.000|0.000|200.000|10.000|10000000|    0");
}

TEST_F(Split, NoTankHoldsEnoughFails) {
  AddDispenser();
  AddTanks({Tank(1, 5, 40, 0, 200, 10, "10000000"), Tank(2, 5, 30, 0, 200, 10, "10000000"),
            ZeroTank(9)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 80.0), 0);
  EXPECT_TRUE(NothingAssigned(c));
}

TEST_F(Split, OneSimultaneousTankKeepsTheOneTankChoice) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 0, 200, 10, "10000000"), Tank(2, 5, 60, 0, 200, 10),
            ZeroTank(9)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 50.0), 2);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 50.0);
  EXPECT_EQ(SplitOf(c, 2), 0.0);
}

TEST_F(Split, IndependentVerdictIsTheLowestTank) {
  AddDispenser();
  AddTanks({Tank(1, 5, 500, 0, 600, 0), Tank(2, 5, 40, 10, 200, 20)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 25.0), 1);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 25.0);
}

TEST_F(Split, IndependentVerdictZeroKeepsTheAssignment) {
  // Tank 1 holds more colourant but most of it is reserve (usable 10); the
  // simultaneous split checks only the last tank of the group for a full
  // share, so tank 1 is given 20 and falls to 80 under its reserve of 90.
  // The assignment stands with the verdict 0.
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 90, 200, 10, "10000000"),
            Tank(2, 5, 50, 0, 200, 10, "10000000"), ZeroTank(9)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 40.0), 0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 20.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 20.0);
}

// --- Independent tanks: the simultaneous split -------------------------------------------

TEST_F(Split, ThreeSimultaneousTanksOneTooLowGiveFortyFiveEach) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 0, 200, 10, "10000000"),
            Tank(2, 5, 60, 0, 200, 10, "10000000"),
            Tank(3, 5, 5, 0, 200, 10, "10000000"), ZeroTank(9)});
  {
    slave s(1);
    ColourantInDispenser c(&s);
    EXPECT_EQ(c.SplitQnt(5, 90.0), 2);
    EXPECT_DOUBLE_EQ(SplitOf(c, 1), 45.0);
    EXPECT_DOUBLE_EQ(SplitOf(c, 2), 45.0);
    EXPECT_EQ(SplitOf(c, 3), 0.0);
    // The tank with 5 was suspended before the split.
    EXPECT_EQ(FlagsOf(c, 3), "01000000");
    EXPECT_EQ(FlagsOf(c, 1), "10000000");
    EXPECT_EQ(FlagsOf(c, 2), "10000000");
  }
  DiskTable disk = Tanks();
  ASSERT_EQ(disk.rows.size(), 4u);
  EXPECT_EQ(disk.rows[2], "3|5.000|0.000|200.000|10.000|10000000|    0");
}

TEST_F(Split, ThreeSimultaneousTanksTheSmallestGivesAllItHas) {
  // Usable 100, 60 and 20 (reserve 5 each): the tank with 20 cannot give a
  // share of 30, so it gives its 20 and the other two share 70. The tank
  // emptied to its reserve makes the verdict 1.
  AddDispenser();
  AddTanks({Tank(1, 5, 25, 5, 200, 10, "10000000"),
            Tank(2, 5, 105, 5, 200, 10, "10000000"),
            Tank(3, 5, 65, 5, 200, 10, "10000000"), ZeroTank(9)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 90.0), 1);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 35.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 3), 35.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 20.0);
  EXPECT_EQ(SplitOf(c, 9), 0.0);
  // Entries are in dispensing order: lowest threshold first, then more
  // colourant first.
  EXPECT_EQ(c.m_Tanks[0].tank, 9);
  EXPECT_EQ(c.m_Tanks[1].tank, 2);
  EXPECT_EQ(c.m_Tanks[2].tank, 3);
  EXPECT_EQ(c.m_Tanks[3].tank, 1);
}

TEST_F(Split, EightyOverTwoZeroThresholdTanksGoesToOne) {
  AddDispenser();
  AddTanks({Tank(1, 5, 150, 0, 300, 0, "10000000"), Tank(2, 5, 200, 0, 300, 0, "10000000")});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 80.0), 2);
  // The tank with more colourant takes it all; the other is dropped.
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 80.0);
  EXPECT_EQ(SplitOf(c, 1), 0.0);
  EXPECT_EQ(FlagsOf(c, 1), "01000000");
  // Thresholds raised to the dispenser threshold are restored.
  EXPECT_EQ(ThresholdOf(c, 1), 0.0);
  EXPECT_EQ(ThresholdOf(c, 2), 0.0);
}

TEST_F(Split, HundredTwentyOverTwoZeroThresholdTanksGivesSixtyEach) {
  AddDispenser();
  AddTanks({Tank(1, 5, 150, 10, 300, 0, "10000000"), Tank(2, 5, 200, 10, 300, 0, "10000000")});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 120.0), 2);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 60.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 60.0);
  EXPECT_EQ(ThresholdOf(c, 1), 0.0);
  EXPECT_EQ(ThresholdOf(c, 2), 0.0);
}

TEST_F(Split, ZeroThresholdTanksShareDownToTheDispenserThreshold) {
  AddDispenser(30.0);
  AddTanks({Tank(1, 5, 150, 0, 300, 0, "10000000"), Tank(2, 5, 200, 0, 300, 0, "10000000")});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 80.0), 2);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 40.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 40.0);
}

TEST_F(Split, RestoredThresholdsAreOnlyThoseOfTheGroup) {
  // The threshold-60 tank is above the quantity and outside the group: its
  // threshold stays 60 even though it is not the dispenser threshold.
  AddDispenser();
  AddTanks({Tank(1, 5, 150, 0, 300, 0, "10000000"), Tank(2, 5, 200, 0, 300, 0, "10000000"),
            Tank(3, 5, 200, 0, 300, 60, "10000000")});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 40.0), 2);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 40.0);
  EXPECT_EQ(ThresholdOf(c, 1), 0.0);
  EXPECT_EQ(ThresholdOf(c, 2), 0.0);
  EXPECT_DOUBLE_EQ(ThresholdOf(c, 3), 60.0);
}

// --- Linked tanks -----------------------------------------------------------------------

TEST_F(Split, LinkedSmallQuantityGoesToTheMaster) {
  AddDispenser();
  AddTanks({Tank(1, 5, 80, 10, 100, 0), Secondary(2, 5, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 30.0), 2);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 30.0);
  EXPECT_EQ(SplitOf(c, 2), 0.0);
}

TEST_F(Split, LinkedLargeQuantityIsShared) {
  AddDispenser();
  AddTanks({Tank(1, 5, 200, 10, 300, 0), Secondary(2, 5, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 120.0), 2);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 60.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 60.0);
}

TEST_F(Split, LinkedShareFollowsTheDispenserThreshold) {
  AddDispenser(10.0);
  AddTanks({Tank(1, 5, 80, 10, 100, 0), Secondary(2, 5, 0), Secondary(3, 5, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 30.0), 2);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 10.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 10.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 3), 10.0);
}

TEST_F(Split, LinkedVerdictOneIsTheReservoirs) {
  AddDispenser();
  AddTanks({Tank(1, 5, 45, 10, 100, 0), Secondary(2, 5, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 30.0), 1);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 30.0);
}

TEST_F(Split, LinkedVerdictZeroClearsTheSplit) {
  AddDispenser();
  AddTanks({Tank(1, 5, 35, 10, 100, 0), Secondary(2, 5, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 30.0), 0);
  EXPECT_TRUE(NothingAssigned(c));
}

TEST_F(Split, LinkedSuspendedMasterLeavesItToTheSecondary) {
  AddDispenser();
  AddTanks({Tank(1, 5, 80, 10, 100, 0, "01000000"), Secondary(2, 5, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 30.0), 2);
  EXPECT_EQ(SplitOf(c, 1), 0.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 30.0);
}

// --- Multiplexed pair -----------------------------------------------------------------------

class MpxSplit : public Split {
 protected:
  // Two zero-threshold circuits that may dispense together, with the given
  // MPX texts and quantities.
  void AddPair(const std::string& mpx1, double cur1, double res1,
               const std::string& mpx2, double cur2, double res2) {
    AddTanks({Tank(1, 5, cur1, res1, 400, 0, "10000000", 0, mpx1),
              Tank(2, 5, cur2, res2, 400, 0, "10000000", 0, mpx2)});
  }
  // The two circuit lines for the circuits as the split saw them.
  static std::vector<std::string> CircuitLines(const ColourantInDispenser& c,
                                               const char* forMpx1,
                                               const char* forMpx3) {
    bool firstIsOne = c.m_Tanks[0].mpx < 2.0;
    std::string one = std::string(firstIsOne ? "\nSplitByMpx  Mpx_Circ1: " : "\nSplitByMpx  Mpx_Circ2: ");
    std::string three = std::string(firstIsOne ? "\nSplitByMpx  Mpx_Circ2: " : "\nSplitByMpx  Mpx_Circ1: ");
    one += forMpx1;
    three += forMpx3;
    if (!firstIsOne) {
      one.replace(one.find("Vol_Circ1"), 9, "Vol_Circ2");
      three.replace(three.find("Vol_Circ2"), 9, "Vol_Circ1");
    }
    return {one, three};
  }
};

TEST_F(MpxSplit, FactorsOneAndThreeGiveThirtyAndTen) {
  AddDispenser(5.0);
  AddPair("1;0", 200, 10, "3;0", 200, 10);
  slave s(1);
  ColourantInDispenser c(&s);
  trace_.clear();
  EXPECT_EQ(c.SplitQnt(5, 40.0), 2);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 30.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 10.0);
  std::vector<std::string> m = trace_.messages();
  EXPECT_EQ(CountOf(m, "\nSplitByMpx  Qnt:  40.000"), 1);
  std::vector<std::string> lines =
      CircuitLines(c, "  1.000, Vol_Circ1:  30.000", "  3.000, Vol_Circ2:  10.000");
  EXPECT_EQ(CountOf(m, lines[0]), 1) << lines[0];
  EXPECT_EQ(CountOf(m, lines[1]), 1) << lines[1];
  EXPECT_EQ(CountPrefix(m, "\nSplitByMpx  failed"), 0);
  EXPECT_EQ(s.m_LastError, 0);
}

TEST_F(MpxSplit, VerdictOneWhenACircuitNearsItsReserve) {
  AddDispenser(5.0);
  AddPair("1;0", 45, 10, "3;0", 200, 10);
  slave s(1);
  ColourantInDispenser c(&s);
  // 45 - 30 leaves 15: above the reserve of 10, under twice it.
  EXPECT_EQ(c.SplitQnt(5, 40.0), 1);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 30.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 10.0);
}

TEST_F(MpxSplit, RefusedUnderTheDefaultThresholdAndTheOrdinarySplitRuns) {
  AddDispenser();  // THRESHOLD 0: the dispenser threshold is 50
  AddPair("1;0", 200, 10, "3;0", 300, 10);
  slave s(1);
  ColourantInDispenser c(&s);
  trace_.clear();
  EXPECT_EQ(c.SplitQnt(5, 40.0), 2);
  std::vector<std::string> m = trace_.messages();
  EXPECT_EQ(CountOf(m, "\nSplitByMpx  Qnt:  40.000"), 1);
  EXPECT_EQ(CountOf(m, "\nSplitByMpx  failed: Split volume under Threshold 50.000"), 1);
  // Ordinary split: shares of 20 are under 50, so the tank with more
  // colourant gives all 40.
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 40.0);
  EXPECT_EQ(SplitOf(c, 1), 0.0);
  EXPECT_EQ(s.m_LastError, 0);
}

TEST_F(MpxSplit, NotEnoughColourantSetsErrorNineteen) {
  AddDispenser(5.0);
  AddPair("1;0", 35, 10, "3;0", 200, 10);
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  trace_.clear();
  EXPECT_EQ(c.SplitByMpx(5, 40.0), 0);
  EXPECT_EQ(s.m_LastError, SLV_ERR_NO_TANK);
  EXPECT_EQ(CountOf(trace_.messages(), "\nSplitByMpx  failed: not enough colorant"), 1);
  EXPECT_TRUE(NothingAssigned(c));
}

TEST_F(MpxSplit, AfterNotEnoughColourantTheOrdinarySplitRuns) {
  AddDispenser(5.0);
  AddPair("1;0", 35, 10, "3;0", 200, 10);
  slave s(1);
  ColourantInDispenser c(&s);
  // The pair refuses 30 from the first circuit (5 would be left over a
  // reserve of 10); the ordinary split shares 20 and 20 (25 usable in the
  // first), leaving 15 over its reserve of 10: verdict 1.
  EXPECT_EQ(c.SplitQnt(5, 40.0), 1);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 20.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 20.0);
  EXPECT_EQ(s.m_LastError, SLV_ERR_NO_TANK);
}

TEST_F(MpxSplit, LinkedPairIsJudgedOnTheReservoir) {
  // A master and its secondary: both draws come out of the master's
  // reservoir, 80 - 40 = 40 over a reserve of 30.
  AddDispenser(5.0);
  AddTanks({Tank(1, 5, 80, 30, 400, 0, "10000000", 0, "1;0"),
            Secondary(2, 5, 0, "10000000", 0, "3;0")});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 40.0), 1);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 30.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 10.0);
  EXPECT_EQ(s.m_LastError, 0);
}

TEST_F(MpxSplit, NotApplicableWithAThreshold) {
  AddDispenser(5.0);
  AddTanks({Tank(1, 5, 200, 10, 400, 0, "10000000", 0, "1;0"),
            Tank(2, 5, 200, 10, 400, 10, "10000000", 0, "3;0")});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  trace_.clear();
  EXPECT_EQ(c.SplitByMpx(5, 40.0), 0);
  EXPECT_EQ(CountPrefix(trace_.messages(), "\nSplitByMpx"), 0);
  EXPECT_EQ(c.SplitQnt(5, 40.0), 2);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 40.0);
  EXPECT_EQ(CountPrefix(trace_.messages(), "\nSplitByMpx"), 0);
}

TEST_F(MpxSplit, NotApplicableWhenACircuitMayNotDispenseTogether) {
  AddDispenser(5.0);
  AddTanks({Tank(1, 5, 200, 10, 400, 0, "10000000", 0, "1;0"),
            Tank(2, 5, 300, 10, 400, 0, "00000000", 0, "3;0")});
  slave s(1);
  ColourantInDispenser c(&s);
  trace_.clear();
  EXPECT_EQ(c.SplitQnt(5, 40.0), 2);
  EXPECT_EQ(CountPrefix(trace_.messages(), "\nSplitByMpx"), 0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 40.0);
}

TEST_F(MpxSplit, NotApplicableToThreeCircuits) {
  AddDispenser(5.0);
  AddTanks({Tank(1, 5, 200, 10, 400, 0, "10000000", 0, "1;0"),
            Tank(2, 5, 200, 10, 400, 0, "10000000", 0, "3;0"),
            Tank(3, 5, 200, 10, 400, 0, "10000000", 0, "3;0")});
  slave s(1);
  ColourantInDispenser c(&s);
  trace_.clear();
  EXPECT_EQ(c.SplitQnt(5, 90.0), 2);
  EXPECT_EQ(CountPrefix(trace_.messages(), "\nSplitByMpx"), 0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1) + SplitOf(c, 2) + SplitOf(c, 3), 90.0);
}

TEST_F(MpxSplit, ZeroFactorIsRefusedAndTheOrdinarySplitRuns) {
  // A zero factor makes no multiplexed pair: whether it is refused by the
  // threshold test (an infinite ratio leaves one circuit 0) or before it,
  // no circuit gets a multiplexed share, no colourant alarm is raised, and
  // the ordinary split runs.
  AddDispenser(5.0);
  AddPair("0;1", 200, 10, "3;1", 300, 10);
  slave s(1);
  ColourantInDispenser c(&s);
  trace_.clear();
  EXPECT_EQ(c.SplitQnt(5, 40.0), 2);
  EXPECT_EQ(CountOf(trace_.messages(), "\nSplitByMpx  failed: not enough colorant"), 0);
  EXPECT_NE(s.m_LastError, SLV_ERR_NO_TANK);
  // Ordinary split: two shares of 20, each above the threshold 5.
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 20.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 20.0);
}

TEST_F(MpxSplit, BlankFactorsLeaveTheOrdinarySplit) {
  AddDispenser(5.0);
  AddPair("", 200, 10, "", 300, 10);
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 40.0), 2);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 20.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 20.0);
}

TEST_F(MpxSplit, NonNumericFactorsLeaveTheOrdinarySplit) {
  AddDispenser(5.0);
  AddPair("abc;1", 200, 10, "x;2", 300, 10);
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 40.0), 2);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 20.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 20.0);
}

TEST_F(MpxSplit, ZeroFactorsLeaveTheOrdinarySplit) {
  AddDispenser(5.0);
  AddPair("0;1", 200, 10, "0;2", 300, 10);
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 40.0), 2);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 20.0);
  EXPECT_DOUBLE_EQ(SplitOf(c, 2), 20.0);
}

TEST_F(MpxSplit, PairWithoutFactorsRaisesNoColourantAlarm) {
  // Decided: two ordinary circuits without multiplexing data (blank MPX, so
  // both factors 0) are not a multiplexed pair. Their split must not report
  // "not enough colorant" nor leave error 19 behind: both tanks are full,
  // and a 0/0 ratio is no factor at all.
  AddDispenser(5.0);
  AddPair("", 200, 10, "", 300, 10);
  slave s(1);
  ColourantInDispenser c(&s);
  trace_.clear();
  EXPECT_EQ(c.SplitQnt(5, 40.0), 2);
  EXPECT_NE(s.m_LastError, SLV_ERR_NO_TANK);
  EXPECT_EQ(CountOf(trace_.messages(), "\nSplitByMpx  failed: not enough colorant"), 0);
}

// --- Drivers that split by themselves ---------------------------------------------------------

class TypeNineSplit : public Split {
 protected:
  void SetUpTypeNine() {
    AddDispenser(0.0, "T7R");
    AddTanks({Tank(1, 5, 100, 10, 200, 0), Tank(2, 5, 100, 10, 200, 20)});
    AddCode(5, "RED");
  }
  // Appends a colourant record with its code.
  void AddCode(long id, const std::string& code) {
    ColorantRow row;
    row.id = id;
    row.code = code;
    ASSERT_GT(tables_.AddColorant(row), 0);
  }
};

TEST_F(TypeNineSplit, NeverSplitsAndAnswersTheMachinesVerdict) {
  // The one-component text "id,quantity" is the formula reader's comma
  // list: it is translated to colourant codes and the machine judges it.
  // The entries are never read.
  SetUpTypeNine();
  slave s(1);
  ASSERT_NE(Sim(s), nullptr);
  ASSERT_EQ(s.m_Dsp->GetType(0, 0), 9);
  ASSERT_TRUE(Sim(s)->SetSetting("formula_level", "0"));
  Sim(s)->ClearHistory();
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 12.5), 0);
  EXPECT_EQ(c.m_NumTanks, 0);
  EXPECT_EQ(c.m_Tanks, nullptr);
  EXPECT_EQ(CountOf(Sim(s)->Calls(), "CheckFormulaLevel((RED:12.500))"), 1);

  ASSERT_TRUE(Sim(s)->SetSetting("formula_level", "1"));
  EXPECT_EQ(c.SplitQnt(5, 12.5), 1);
}

TEST_F(TypeNineSplit, WarningListAsksInTheCodesTheTableHoldsAtEachCall) {
  // A check of a formula asks the machine colourant by colourant, each in
  // codes. The colourant table is read once for the call and again by the
  // next one: a record added between two calls is in the second's codes.
  SetUpTypeNine();
  AddCode(7, "BLUE");
  slave s(1);
  ASSERT_NE(Sim(s), nullptr);
  ASSERT_TRUE(Sim(s)->SetSetting("formula_level", "2"));
  Sim(s)->ClearHistory();
  Zu_IntArray circuits, colourants;
  char frm[] = "(5:10)(7:2.5)";
  s.GetCircuitsUnderWarningLevel(frm, 1.0, 1.0, 0, circuits, colourants);
  EXPECT_GE(CountOf(Sim(s)->Calls(), "CheckFormulaLevel((RED:10.000))"), 1);
  EXPECT_GE(CountOf(Sim(s)->Calls(), "CheckFormulaLevel((BLUE:2.500))"), 1);

  AddCode(5, "RED2");
  Sim(s)->ClearHistory();
  char again[] = "(5:10)(7:2.5)";
  s.GetCircuitsUnderWarningLevel(again, 1.0, 1.0, 0, circuits, colourants);
  EXPECT_GE(CountOf(Sim(s)->Calls(), "CheckFormulaLevel((RED:10.000)(RED2:10.000))"), 1);
  EXPECT_EQ(CountOf(Sim(s)->Calls(), "CheckFormulaLevel((RED:10.000))"), 0);
  EXPECT_GE(CountOf(Sim(s)->Calls(), "CheckFormulaLevel((BLUE:2.500))"), 1);
}

TEST_F(TypeNineSplit, ColourantWithoutCodeIsEnoughWithoutAskingTheMachine) {
  // A colourant the colourant table does not know translates to nothing:
  // the answer is 2 and the machine is not asked.
  SetUpTypeNine();
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("formula_level", "0"));
  Sim(s)->ClearHistory();
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(77, 12.5), 2);
  EXPECT_EQ(CountPrefix(Sim(s)->Calls(), "CheckFormulaLevel("), 0);
}

// The machine judges every colourant itself, colourant 0 included: the
// text "0,10.000" is translated (colourant 0 has no code, so to nothing)
// and the answer is 2, enough.
TEST_F(TypeNineSplit, ColourantZeroIsJudgedAsTheMachineJudgesIt) {
  SetUpTypeNine();
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(0, 10.0), 2);
  EXPECT_EQ(c.SplitQnt(-3, 10.0), 2);
  EXPECT_EQ(c.m_Tanks, nullptr) << "the entries are never read";
}

// A colourant 0 that the colourant table knows (code "ZERO") is asked of
// the machine, whose verdict is the answer.
TEST_F(TypeNineSplit, ColourantZeroWithACodeAsksTheMachine) {
  SetUpTypeNine();
  AddCode(0, "ZERO");
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("formula_level", "1"));
  Sim(s)->ClearHistory();
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(0, 10.0), 1);
  EXPECT_EQ(CountOf(Sim(s)->Calls(), "CheckFormulaLevel((ZERO:10.000))"), 1)
      << ::testing::PrintToString(Sim(s)->Calls());
}

TEST_F(TypeNineSplit, ListsNoTanks) {
  SetUpTypeNine();
  slave s(1);
  ColourantInDispenser c(&s);
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  EXPECT_EQ(c.SplitQntToTanks(5, 12.5, &tanks, &qnts), 0);
  EXPECT_EQ(tanks.size(), 0);
  EXPECT_EQ(qnts.size(), 0);
}

TEST_F(TypeNineSplit, CntQntToTanksListsNoTanks) {
  SetUpTypeNine();
  slave s(1);
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  EXPECT_EQ(s.CntQntToTanks(5, 12.5, &tanks, &qnts, 0), 0);
  EXPECT_EQ(tanks.size(), 0);
  EXPECT_EQ(qnts.size(), 0);
}

// --- SplitQntToTanks ---------------------------------------------------------------------------

class ListSplit : public Split {
 protected:
  // Usable 20, 100 and 60 at threshold 10 and a zero-threshold tank 9
  // outside the group: 90 splits 35/35/20, tanks 2, 3, 1 in entry order.
  void AddThreeSimultaneous() {
    AddDispenser();
    AddTanks({Tank(1, 5, 25, 5, 200, 10, "10000000"),
              Tank(2, 5, 105, 5, 200, 10, "10000000"),
              Tank(3, 5, 65, 5, 200, 10, "10000000"), Tank(4, 6, 10, 0, 20, 0),
              ZeroTank(9)});
  }
};

TEST_F(ListSplit, ListsTheTanksWithAShareInEntryOrder) {
  AddThreeSimultaneous();
  slave s(1);
  ColourantInDispenser c(&s);
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  EXPECT_EQ(c.SplitQntToTanks(5, 90.0, &tanks, &qnts), 3);
  ASSERT_EQ(tanks.size(), 3);
  ASSERT_EQ(qnts.size(), 3);
  EXPECT_EQ(tanks[0], 2);
  EXPECT_EQ(tanks[1], 3);
  EXPECT_EQ(tanks[2], 1);
  EXPECT_DOUBLE_EQ(qnts[0], 35.0);
  EXPECT_DOUBLE_EQ(qnts[1], 35.0);
  EXPECT_DOUBLE_EQ(qnts[2], 20.0);
}

TEST_F(ListSplit, LeavesOutTanksWithoutAShare) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 0, 200, 10, "10000000"),
            Tank(2, 5, 60, 0, 200, 10, "10000000"),
            Tank(3, 5, 5, 0, 200, 10, "10000000"), ZeroTank(9)});
  slave s(1);
  ColourantInDispenser c(&s);
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  EXPECT_EQ(c.SplitQntToTanks(5, 90.0, &tanks, &qnts), 2);
  ASSERT_EQ(tanks.size(), 2);
  EXPECT_EQ(tanks[0], 1);
  EXPECT_EQ(tanks[1], 2);
  EXPECT_DOUBLE_EQ(qnts[0], 45.0);
  EXPECT_DOUBLE_EQ(qnts[1], 45.0);
}

TEST_F(ListSplit, AppendsAfterWhatTheArraysHold) {
  AddThreeSimultaneous();
  slave s(1);
  ColourantInDispenser c(&s);
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  tanks.append(9);
  qnts.append(1.5);
  EXPECT_EQ(c.SplitQntToTanks(5, 90.0, &tanks, &qnts), 3);
  ASSERT_EQ(tanks.size(), 4);
  ASSERT_EQ(qnts.size(), 4);
  EXPECT_EQ(tanks[0], 9);
  EXPECT_DOUBLE_EQ(qnts[0], 1.5);
  EXPECT_EQ(tanks[1], 2);
  EXPECT_DOUBLE_EQ(qnts[3], 20.0);
}

TEST_F(ListSplit, NullArraysOnlyCount) {
  AddThreeSimultaneous();
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQntToTanks(5, 90.0, nullptr, nullptr), 3);
}

TEST_F(ListSplit, OneNullArray) {
  AddThreeSimultaneous();
  slave s(1);
  ColourantInDispenser c(&s);
  Zu_IntArray tanks;
  EXPECT_EQ(c.SplitQntToTanks(5, 90.0, &tanks, nullptr), 3);
  ASSERT_EQ(tanks.size(), 3);
  EXPECT_EQ(tanks[2], 1);
  Zu_DoubleArray qnts;
  EXPECT_EQ(c.SplitQntToTanks(5, 90.0, nullptr, &qnts), 3);
  ASSERT_EQ(qnts.size(), 3);
  EXPECT_DOUBLE_EQ(qnts[2], 20.0);
}

TEST_F(ListSplit, FailedSplitListsNothing) {
  AddDispenser();
  AddTanks({Tank(1, 5, 500, 0, 600, 0), Tank(2, 5, 30, 0, 200, 20)});
  slave s(1);
  ColourantInDispenser c(&s);
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  EXPECT_EQ(c.SplitQntToTanks(5, 50.0, &tanks, &qnts), 0);
  EXPECT_EQ(tanks.size(), 0);
  EXPECT_EQ(qnts.size(), 0);
}

TEST_F(ListSplit, VerdictZeroListsNothing) {
  // The split of IndependentVerdictZeroKeepsTheAssignment: shares are
  // assigned, but the verdict 0 makes the list empty.
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 90, 200, 10, "10000000"),
            Tank(2, 5, 50, 0, 200, 10, "10000000"), ZeroTank(9)});
  slave s(1);
  ColourantInDispenser c(&s);
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  EXPECT_EQ(c.SplitQntToTanks(5, 40.0, &tanks, &qnts), 0);
  EXPECT_EQ(tanks.size(), 0);
  EXPECT_EQ(qnts.size(), 0);
}

TEST_F(ListSplit, AbsentColourantListsNothing) {
  AddThreeSimultaneous();
  slave s(1);
  ColourantInDispenser c(&s);
  Zu_IntArray tanks;
  EXPECT_EQ(c.SplitQntToTanks(8, 10.0, &tanks, nullptr), 0);
  EXPECT_EQ(tanks.size(), 0);
}

// --- slave::CntQntToTanks -----------------------------------------------------------------------

TEST_F(ListSplit, CntQntToTanksReturnsTheSplit) {
  AddThreeSimultaneous();
  slave s(1);
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  trace_.clear();
  EXPECT_EQ(s.CntQntToTanks(5, 90.0, &tanks, &qnts, 0), 3);
  ASSERT_EQ(tanks.size(), 3);
  EXPECT_EQ(tanks[0], 2);
  EXPECT_EQ(tanks[1], 3);
  EXPECT_EQ(tanks[2], 1);
  EXPECT_DOUBLE_EQ(qnts[0], 35.0);
  EXPECT_DOUBLE_EQ(qnts[1], 35.0);
  EXPECT_DOUBLE_EQ(qnts[2], 20.0);
  EXPECT_EQ(CountPrefix(trace_.messages(), "\nColorant "), 0);
}

TEST_F(ListSplit, CntQntToTanksWithTraceShowsTheCircuits) {
  AddThreeSimultaneous();
  slave s(1);
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  trace_.clear();
  EXPECT_EQ(s.CntQntToTanks(5, 90.0, &tanks, &qnts, 1), 3);
  EXPECT_NE(trace_.text().find(
                "\nColorant 5 (volume 90.00) present in 4 circuits"
                "\n Tank    Thres     SplitQ   Sim  Susp      cur-res        cur        max        res"
                "\n    9        0       0.00    No    No       500.00     500.00     600.00       0.00"
                "\n    2       10      35.00   Yes    No       100.00     105.00     200.00       5.00"
                "\n    3       10      35.00   Yes    No        60.00      65.00     200.00       5.00"
                "\n    1       10      20.00   Yes    No        20.00      25.00     200.00       5.00"),
            std::string::npos)
      << trace_.text();
}

TEST_F(ListSplit, CntQntToTanksOfAnAbsentColourantIsZero) {
  AddThreeSimultaneous();
  slave s(1);
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  EXPECT_EQ(s.CntQntToTanks(8, 10.0, &tanks, &qnts, 0), 0);
  EXPECT_EQ(tanks.size(), 0);
  EXPECT_EQ(qnts.size(), 0);
}

// --- Bad input ----------------------------------------------------------------------------------

TEST_F(ListSplit, ColourantZeroIsRefused) {
  AddThreeSimultaneous();
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(0, 10.0), 0);
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  EXPECT_EQ(c.SplitQntToTanks(0, 10.0, &tanks, &qnts), 0);
  EXPECT_EQ(s.CntQntToTanks(0, 10.0, &tanks, &qnts, 0), 0);
  EXPECT_EQ(tanks.size(), 0);
  EXPECT_EQ(qnts.size(), 0);
}

TEST_F(ListSplit, NegativeColourantIsRefused) {
  AddThreeSimultaneous();
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(-5, 10.0), 0);
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  EXPECT_EQ(c.SplitQntToTanks(-5, 10.0, &tanks, &qnts), 0);
  EXPECT_EQ(s.CntQntToTanks(-5, 10.0, &tanks, &qnts, 1), 0);
  EXPECT_EQ(tanks.size(), 0);
  EXPECT_EQ(qnts.size(), 0);
}

TEST_F(ListSplit, NotANumberQuantityIsRefused) {
  AddThreeSimultaneous();
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, kNaN), 0);
  EXPECT_TRUE(NothingAssigned(c));
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  EXPECT_EQ(c.SplitQntToTanks(5, kNaN, &tanks, &qnts), 0);
  EXPECT_EQ(s.CntQntToTanks(5, kNaN, &tanks, &qnts, 0), 0);
  EXPECT_EQ(tanks.size(), 0);
  EXPECT_EQ(qnts.size(), 0);
}

TEST_F(ListSplit, InfiniteQuantityIsRefused) {
  AddThreeSimultaneous();
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, kInf), 0);
  EXPECT_TRUE(NothingAssigned(c));
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  EXPECT_EQ(c.SplitQntToTanks(5, kInf, &tanks, &qnts), 0);
  EXPECT_EQ(s.CntQntToTanks(5, kInf, &tanks, &qnts, 0), 0);
  EXPECT_EQ(tanks.size(), 0);
  EXPECT_EQ(qnts.size(), 0);
}

TEST_F(ListSplit, NegativeInfiniteQuantityIsRefused) {
  AddThreeSimultaneous();
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, -kInf), 0);
  EXPECT_TRUE(NothingAssigned(c));
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  EXPECT_EQ(c.SplitQntToTanks(5, -kInf, &tanks, &qnts), 0);
  EXPECT_EQ(s.CntQntToTanks(5, -kInf, &tanks, &qnts, 0), 0);
  EXPECT_EQ(tanks.size(), 0);
  EXPECT_EQ(qnts.size(), 0);
}

TEST_F(Split, NotANumberQuantityForOneTankIsRefused) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 10, 200, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, kNaN), 0);
  EXPECT_TRUE(NothingAssigned(c));
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  EXPECT_EQ(s.CntQntToTanks(5, kNaN, &tanks, &qnts, 0), 0);
  EXPECT_EQ(tanks.size(), 0);
  EXPECT_EQ(qnts.size(), 0);
}

TEST_F(Split, ShortStatusCountsAsSuspendedForTheCandidates) {
  // STATUS_FLG holds one character: the suspended bit is unknown, which the
  // candidate count takes as suspended, so no tank of the group may give.
  NarrowStatusField();
  AddDispenser();
  AddTanks({Tank(1, 5, 200, 10, 400, 0, "1"), Tank(2, 5, 300, 10, 400, 0, "1")});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 40.0), 0);
  EXPECT_TRUE(NothingAssigned(c));
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  EXPECT_EQ(s.CntQntToTanks(5, 40.0, &tanks, &qnts, 0), 0);
  EXPECT_EQ(tanks.size(), 0);
}

TEST_F(Split, ShortStatusOfASingleTankStillTakesTheQuantity) {
  // One tank is a single destination: its flags are not consulted.
  NarrowStatusField();
  AddDispenser();
  AddTanks({Tank(1, 5, 200, 10, 400, 0, "1")});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 40.0), 2);
  EXPECT_DOUBLE_EQ(SplitOf(c, 1), 40.0);
}

TEST_F(Split, RefusedTankSetIsNotSplit) {
  AddDispenser();
  AddTanks({Tank(1, 5, 100, 10, 200, 0.5), Tank(2, 5, 100, 10, 200, 50)});
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SplitQnt(5, 60.0), 0);
  EXPECT_TRUE(NothingAssigned(c));
}

TEST_F(Split, WithoutSlaveNothingIsSplit) {
  ColourantInDispenser c(nullptr);
  EXPECT_EQ(c.SplitQnt(5, 10.0), 0);
  EXPECT_EQ(c.SplitQntToTanks(5, 10.0, nullptr, nullptr), 0);
}

// --- SwitchToSingleTank ----------------------------------------------------------------------------

TEST_F(Split, SwitchToSingleTankLinksToTheFirstReservoir) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 6, 70, 0, "00000000", 1),
            Tank(2, 5, 60, 6, 70, 10, "00000000", 2),
            Tank(3, 5, 60, 6, 70, 20, "00000000", 3),
            Tank(4, 6, 60, 6, 70, 0, "00000000", 3)});
  AddCistern(1, 1, 100, 50, 5);
  AddCistern(2, 1, 200, 80, 8);
  AddCistern(3, 2, 150, 120, 4);
  {
    slave s(1);
    ColourantInDispenser c(&s);
    ASSERT_EQ(c.Read(5), 1);
    ASSERT_EQ(c.m_Tanks[0].tank, 1);
    ASSERT_EQ(c.m_Tanks[1].tank, 2);
    ASSERT_EQ(c.m_Tanks[2].tank, 3);
    EXPECT_EQ(c.SwitchToSingleTank(0, 0, 0), 1);
    // The largest of each quantity goes to the master.
    EXPECT_DOUBLE_EQ(c.m_Tanks[0].max_q, 200.0);
    EXPECT_DOUBLE_EQ(c.m_Tanks[0].res_q, 8.0);
    EXPECT_DOUBLE_EQ(c.m_Tanks[0].cur_q, 120.0);
    EXPECT_STREQ(c.m_Tanks[0].cist_id, "    1");
    for (int i = 1; i < 3; ++i) {
      EXPECT_DOUBLE_EQ(c.m_Tanks[i].max_q, -1.0);
      EXPECT_DOUBLE_EQ(c.m_Tanks[i].cur_q, -1.0);
      EXPECT_DOUBLE_EQ(c.m_Tanks[i].res_q, -1.0);
      EXPECT_STREQ(c.m_Tanks[i].cist_id, "    1");
    }
    CntStatus st = CNT_ABSENT;
    EXPECT_EQ(c.IsCntOK(&st), 1);
    EXPECT_EQ(st, CNT_LINKED);

    // The cistern table changes at once: reservoir 2 lost its last user and
    // is gone, reservoir 3 keeps the other colourant's tank.
    DiskTable cist = Cisterns();
    ASSERT_EQ(cist.rows.size(), 2u);
    EXPECT_EQ(cist.rows[0], "1|3|100.000|50.000|5.000");
    EXPECT_EQ(cist.rows[1], "3|1|150.000|120.000|4.000");
    EXPECT_EQ(cist.deleted, 0);
    EXPECT_EQ(cist.recCount, 2);

    EXPECT_EQ(c.Write(), 1);
  }
  DiskTable tanks = Tanks();
  ASSERT_EQ(tanks.rows.size(), 4u);
  EXPECT_EQ(tanks.rows[0], "1|120.000|8.000|200.000|0.000|00000000|    1");
  EXPECT_EQ(tanks.rows[1], "2|-1.000|-1.000|-1.000|10.000|00000000|    1");
  EXPECT_EQ(tanks.rows[2], "3|-1.000|-1.000|-1.000|20.000|00000000|    1");
  EXPECT_EQ(tanks.rows[3], "4|60.000|6.000|70.000|0.000|00000000|    3");
  DiskTable cist = Cisterns();
  ASSERT_EQ(cist.rows.size(), 2u);
  EXPECT_EQ(cist.rows[0], "1|3|200.000|120.000|8.000");
  EXPECT_EQ(cist.rows[1], "3|1|150.000|120.000|4.000");
}

TEST_F(Split, SwitchToSingleTankKeepsTheGivenQuantities) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 6, 70, 0), Tank(2, 5, 80, 9, 100, 10)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_EQ(c.SwitchToSingleTank(300, 7, 90), 1);
  EXPECT_DOUBLE_EQ(c.m_Tanks[0].max_q, 300.0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[0].res_q, 7.0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[0].cur_q, 90.0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[1].max_q, -1.0);
}

TEST_F(Split, SwitchToSingleTankReplacesOnlyTheMissingQuantities) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 6, 70, 0), Tank(2, 5, 80, 9, 100, 10)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_EQ(c.SwitchToSingleTank(0, 7, -1), 1);
  EXPECT_DOUBLE_EQ(c.m_Tanks[0].max_q, 100.0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[0].res_q, 7.0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[0].cur_q, 80.0);
}

TEST_F(Split, SwitchToSingleTankRefusesASingleTank) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 6, 70, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_EQ(c.SwitchToSingleTank(0, 0, 0), 0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[0].max_q, 70.0);
}

TEST_F(Split, SwitchToSingleTankRefusesLinkedTanks) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 6, 70, 0), Secondary(2, 5, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_EQ(c.SwitchToSingleTank(0, 0, 0), 0);
}

TEST_F(Split, SwitchToSingleTankRefusesAnEmptyObject) {
  AddDispenser();
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SwitchToSingleTank(0, 0, 0), 0);
  ColourantInDispenser none(nullptr);
  EXPECT_EQ(none.SwitchToSingleTank(0, 0, 0), 0);
}

// --- SwitchToMultiTank -------------------------------------------------------------------------------

TEST_F(Split, SwitchToMultiTankGivesEachTankItsOwnReservoir) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 6, 70, 0, "00000000", 4), Secondary(2, 5, 5, "00000000", 4),
            Secondary(3, 5, 10, "00000000", 4)});
  AddCistern(4, 3, 300, 150, 15);
  AddCistern(9, 1, 50, 40, 2);
  {
    slave s(1);
    ColourantInDispenser c(&s);
    ASSERT_EQ(c.Read(5), 1);
    ASSERT_EQ(c.m_Tanks[0].tank, 1);
    ASSERT_EQ(c.m_Tanks[1].tank, 2);
    ASSERT_EQ(c.m_Tanks[2].tank, 3);
    EXPECT_EQ(c.SwitchToMultiTank(), 1);
    // Each tank gets a copy of the master's quantities, not a part of them.
    for (int i = 0; i < 3; ++i) {
      EXPECT_DOUBLE_EQ(c.m_Tanks[i].max_q, 300.0) << i;
      EXPECT_DOUBLE_EQ(c.m_Tanks[i].cur_q, 150.0) << i;
      EXPECT_DOUBLE_EQ(c.m_Tanks[i].res_q, 15.0) << i;
    }
    EXPECT_STREQ(c.m_Tanks[0].cist_id, "    4");
    EXPECT_STREQ(c.m_Tanks[1].cist_id, "   10");
    EXPECT_STREQ(c.m_Tanks[2].cist_id, "   11");
    CntStatus st = CNT_ABSENT;
    EXPECT_EQ(c.IsCntOK(&st), 1);
    EXPECT_EQ(st, CNT_MULTI);

    DiskTable cist = Cisterns();
    ASSERT_EQ(cist.rows.size(), 4u);
    EXPECT_EQ(cist.rows[0], "4|1|300.000|150.000|15.000");
    EXPECT_EQ(cist.rows[1], "9|1|50.000|40.000|2.000");
    EXPECT_EQ(cist.rows[2], "10|1|300.000|150.000|15.000");
    EXPECT_EQ(cist.rows[3], "11|1|300.000|150.000|15.000");

    EXPECT_EQ(c.Write(), 1);
  }
  DiskTable tanks = Tanks();
  ASSERT_EQ(tanks.rows.size(), 3u);
  EXPECT_EQ(tanks.rows[0], "1|150.000|15.000|300.000|0.000|00000000|    4");
  EXPECT_EQ(tanks.rows[1], "2|150.000|15.000|300.000|5.000|00000000|   10");
  EXPECT_EQ(tanks.rows[2], "3|150.000|15.000|300.000|10.000|00000000|   11");
}

TEST_F(Split, SwitchToMultiTankWithAMasterWithoutReservoir) {
  // The master has no cistern record: the new reservoir starts empty, the
  // tanks still get copies of the master's own quantities.
  AddDispenser();
  AddTanks({Tank(1, 5, 80, 10, 100, 0), Secondary(2, 5, 5)});
  AddCistern(5, 1, 50, 40, 2);
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  ASSERT_EQ(c.m_Tanks[1].tank, 2);
  EXPECT_EQ(c.SwitchToMultiTank(), 1);
  EXPECT_DOUBLE_EQ(c.m_Tanks[1].max_q, 100.0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[1].cur_q, 80.0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[1].res_q, 10.0);
  EXPECT_STREQ(c.m_Tanks[1].cist_id, "    6");
  DiskTable cist = Cisterns();
  ASSERT_EQ(cist.rows.size(), 2u);
  EXPECT_EQ(cist.rows[0], "5|1|50.000|40.000|2.000");
  EXPECT_EQ(cist.rows[1], "6|1|0.000|0.000|0.000");
}

TEST_F(Split, SwitchToMultiTankWithoutCisternTable) {
  tables_.Remove(QDB_SCHEMA_CISTERN);
  AddDispenser();
  AddTanks({Tank(1, 5, 80, 10, 100, 0), Secondary(2, 5, 5)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_EQ(c.SwitchToMultiTank(), 1);
  EXPECT_DOUBLE_EQ(c.m_Tanks[1].max_q, 100.0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[1].cur_q, 80.0);
  EXPECT_DOUBLE_EQ(c.m_Tanks[1].res_q, 10.0);
  EXPECT_STREQ(c.m_Tanks[1].cist_id, "    0");
}

TEST_F(Split, SwitchToMultiTankRefusesIndependentTanks) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 6, 70, 0), Tank(2, 5, 80, 9, 100, 10)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_EQ(c.SwitchToMultiTank(), 0);
}

TEST_F(Split, SwitchToMultiTankRefusesASingleTank) {
  AddDispenser();
  AddTanks({Tank(1, 5, 60, 6, 70, 0)});
  slave s(1);
  ColourantInDispenser c(&s);
  ASSERT_EQ(c.Read(5), 1);
  EXPECT_EQ(c.SwitchToMultiTank(), 0);
}

TEST_F(Split, SwitchToMultiTankRefusesAnEmptyObject) {
  AddDispenser();
  slave s(1);
  ColourantInDispenser c(&s);
  EXPECT_EQ(c.SwitchToMultiTank(), 0);
  ColourantInDispenser none(nullptr);
  EXPECT_EQ(none.SwitchToMultiTank(), 0);
}

}  // namespace

