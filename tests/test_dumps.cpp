// Diagnostic dumps written to the trace, one message per line: the
// dispenser record (Dump), one row per tank (DumpTanks) and one block per
// colourant with the tanks that hold it (DumpCntsInTanks).
#include <gtest/gtest.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "circuit_env.h"

namespace {

using qtest::Circuit;
using qtest::CountMatching;
using qtest::DispenserRow;
using qtest::Sim;
using qtest::SourceRe;
using qtest::StandardDispenser;

using Strings = std::vector<std::string>;

// A description that fills the DESCR field (24 characters) exactly.
const char kDescr[] = "Dispenser of the shop 01";

class Dumps : public qtest::CircuitEnv {
 protected:
  void AddNamedDispenser(const std::string& options) {
    DispenserRow row = StandardDispenser(1);
    row.slave_addr = 4;
    row.descr = kDescr;
    row.options = options;
    ASSERT_GT(tables_.AddDispenser(row), 0);
  }

  // The dump's "hw. options" line.
  std::string OptionsLine() {
    for (const std::string& m : trace_.messages()) {
      if (m.compare(0, 21, "\nhw. options........:") == 0) return m;
    }
    return "<none>";
  }
};

// --- Nothing selected ---------------------------------------------------------

TEST_F(Dumps, NoDispenserSelectedWritesNothing) {
  AddNamedDispenser(qtest::OptionsWith({}));
  AddTanks({Circuit(1, 12, 10.0)});
  AddColorant(12, 1000.0, "RED", "Red");
  slave s(99);
  ASSERT_LT(s.m_DispId, 1);
  trace_.clear();
  s.Dump();
  s.DumpTanks();
  s.DumpCntsInTanks();
  EXPECT_TRUE(trace_.messages().empty());
}

// --- Dump -----------------------------------------------------------------------

TEST_F(Dumps, DumpWritesTheRecordLineByLine) {
  AddNamedDispenser(qtest::OptionsWith({}));
  AddTanks({Circuit(1, 12, 10.0), Circuit(3, 15, 10.0)});
  slave s(1);
  trace_.clear();
  s.Dump();
  EXPECT_EQ(trace_.messages(),
            (Strings{"\nSLAVE INFO", "\nid.................: 1", "\naddress............: 4",
                     "\nname...............: \"Dispenser of the shop 01\"",
                     "\nlast error.........: 0", "\nn. tanks...........: 3",
                     "\nhw. options........:     ", "\ndataid............: \"0l\"\n"}));
}

TEST_F(Dumps, DumpWithEveryOptionOffPrintsFiveEmptyWords) {
  AddNamedDispenser(qtest::OptionsWith({}));
  slave s(1);
  trace_.clear();
  s.Dump();
  EXPECT_EQ(OptionsLine(), "\nhw. options........:     ");
}

TEST_F(Dumps, DumpWithEveryOptionOnPrintsEveryWord) {
  AddNamedDispenser(qtest::OptionsWith({0, 1, 2, 3, 4}));
  slave s(1);
  trace_.clear();
  s.Dump();
  EXPECT_EQ(OptionsLine(), "\nhw. options........: SHELF  PUNCHER  CAP  STOPPER  DOOR ");
}

TEST_F(Dumps, DumpPrintsTheWordsOfTheOptionsOnOnly) {
  AddNamedDispenser(qtest::OptionsWith({0, 3, 5, 6}));
  slave s(1);
  trace_.clear();
  s.Dump();
  EXPECT_EQ(OptionsLine(), "\nhw. options........: SHELF    STOPPER  ");
}

TEST_F(Dumps, DumpPrintsPunchCapAndDoorAlone) {
  AddNamedDispenser(qtest::OptionsWith({1, 2, 4}));
  slave s(1);
  trace_.clear();
  s.Dump();
  EXPECT_EQ(OptionsLine(), "\nhw. options........:  PUNCHER  CAP   DOOR ");
}

TEST_F(Dumps, DumpPrintsTheDataIdFollowedByTheLetterL) {
  AddNamedDispenser(qtest::OptionsWith({}));
  slave s(1);
  s.m_DataId = 42;
  trace_.clear();
  s.Dump();
  ASSERT_FALSE(trace_.messages().empty());
  EXPECT_EQ(trace_.messages().back(), "\ndataid............: \"42l\"\n");
}

TEST_F(Dumps, DumpAsksTheDriverForTheLastError) {
  AddNamedDispenser(qtest::OptionsWith({}));
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("lasterror", "4"));
  trace_.clear();
  s.Dump();
  EXPECT_EQ(qtest::CountOf(trace_.messages(), "\nlast error.........: 4"), 1);
}

TEST_F(Dumps, DumpPrintsTheLastErrorKeptWhenTheDriverHasNone) {
  AddNamedDispenser(qtest::OptionsWith({}));
  slave s(1);
  s.m_LastError = 14;
  trace_.clear();
  s.Dump();
  EXPECT_EQ(qtest::CountOf(trace_.messages(), "\nlast error.........: 14"), 1);
}

TEST_F(Dumps, DumpSendsNoCommand) {
  AddNamedDispenser(qtest::OptionsWith({0, 1, 2, 3, 4}));
  slave s(1);
  s.Dump();
  s.DumpTanks();
  EXPECT_TRUE(Commands(s).empty());
}

// --- DumpTanks --------------------------------------------------------------------

TEST_F(Dumps, DumpTanksWritesARowPerTankHoldingAColourant) {
  AddNamedDispenser(qtest::OptionsWith({}));
  AddTanks({Circuit(1, 12, 12.5, 2.0, 100.0, 5.0), Circuit(2, 0, 3.0, 0.0, 50.0),
            Circuit(4, 1234, 1234.567, 10.25, 2000.0, 40.4)});
  slave s(1);
  trace_.clear();
  s.DumpTanks();
  EXPECT_EQ(trace_.messages(),
            (Strings{"\n\nTANKS INFO", "\n Tank  Cnt        Cur        Res        Max    Thres",
                     "\n    1   12      12.50       2.00     100.00        5",
                     "\n    4 1234    1234.57      10.25    2000.00       40", "\n"}));
}

TEST_F(Dumps, DumpTanksWithoutTanksWritesTheHeaderAndALineEnd) {
  AddNamedDispenser(qtest::OptionsWith({}));
  slave s(1);
  ASSERT_EQ(s.m_NumTanks, 0);
  trace_.clear();
  s.DumpTanks();
  EXPECT_EQ(trace_.messages(),
            (Strings{"\n\nTANKS INFO", "\n Tank  Cnt        Cur        Res        Max    Thres",
                     "\n"}));
}

TEST_F(Dumps, DumpTanksChangesNoLevel) {
  AddNamedDispenser(qtest::OptionsWith({}));
  AddTanks({Circuit(1, 12, 12.5, 2.0, 100.0, 5.0)});
  {
    slave s(1);
    s.DumpTanks();
    s.DumpCntsInTanks();
  }
  EXPECT_DOUBLE_EQ(LevelsOnDisk().at(1), 12.5);
}

// --- DumpCntsInTanks --------------------------------------------------------------

const char kCntsHeader[] =
    "\n Cnt                               SpecW    Tank     Thres   Sim  Susp        Cur";

TEST_F(Dumps, DumpCntsWritesOneBlockPerColourantInIdOrder) {
  AddNamedDispenser(qtest::OptionsWith({}));
  AddTanks({Circuit(1, 15, 20.0, 0.0, 100.0, 0.0, "10000000"),
            Circuit(2, 12, 7.25, 0.0, 100.0, 30.0, "01000000")});
  AddColorant(15, 1100.0, "WHT", "White");
  AddColorant(12, 1250.5, "RED", "Red oxide");
  AddColorant(30, 980.0, "YEL", "Yellow");
  slave s(1);
  trace_.clear();
  s.DumpCntsInTanks();
  const std::string red = "\n   12 Red oxide                   1250.50";
  const std::string white = "\n   15 White                       1100.00";
  EXPECT_EQ(trace_.messages(),
            (Strings{"\nCOLORANT DISTRIBUTION INFO", kCntsHeader,
                     "\n" + red + "       2        30    No   Yes       7.25",
                     "\n" + white + "       1         0   Yes    No      20.00",
                     "\n   30 Yellow                       980.00"}));
}

TEST_F(Dumps, DumpCntsPrintsAColourantInTwoTanksOnce) {
  AddNamedDispenser(qtest::OptionsWith({}));
  AddTanks({Circuit(2, 12, 40.0, 0.0, 100.0, 0.0), Circuit(5, 12, 60.5, 0.0, 100.0, 0.0, "11")});
  AddColorant(12, 1250.5, "RED", "Red oxide");
  slave s(1);
  trace_.clear();
  s.DumpCntsInTanks();
  const std::string first = "\n   12 Red oxide                   1250.50";
  ASSERT_EQ(first.size(), 42u);
  EXPECT_EQ(trace_.messages(),
            (Strings{"\nCOLORANT DISTRIBUTION INFO", kCntsHeader,
                     "\n" + first + "       2         0    No    No      40.00",
                     "\n" + std::string(42, ' ') + "       5         0   Yes   Yes      60.50"}));
}

TEST_F(Dumps, DumpCntsCutsTheDescriptionAtTwentyFourCharacters) {
  AddNamedDispenser(qtest::OptionsWith({}));
  AddTanks({Circuit(1, 0, 0.0)});
  AddColorant(7, 1000.0, "BLK", "Black iron oxide 1234567");
  slave s(1);
  trace_.clear();
  s.DumpCntsInTanks();
  EXPECT_EQ(trace_.messages(),
            (Strings{"\nCOLORANT DISTRIBUTION INFO", kCntsHeader,
                     "\n    7 Black iron oxide 1234567    1000.00"}));
}

TEST_F(Dumps, DumpCntsWithoutColourantTableIsTraced) {
  AddNamedDispenser(qtest::OptionsWith({}));
  AddTanks({Circuit(1, 12, 10.0)});
  slave s(1);
  trace_.clear();
  s.DumpCntsInTanks();
  EXPECT_EQ(qtest::CountOf(trace_.messages(), "\nCOLORANT DISTRIBUTION INFO"), 0);
  EXPECT_EQ(CountMatching(trace_.messages(), "\\n" + SourceRe("slv_dump") +
                                                 "\\(\\d+\\): error \\.\\.\\. unable to open "
                                                 "colorant database"),
            1);
}

TEST_F(Dumps, DumpCntsWithAnEmptyColourantTableIsTraced) {
  AddNamedDispenser(qtest::OptionsWith({}));
  AddTanks({Circuit(1, 12, 10.0)});
  ASSERT_TRUE(tables_.CreateColorants());
  slave s(1);
  trace_.clear();
  s.DumpCntsInTanks();
  EXPECT_EQ(qtest::CountOf(trace_.messages(), "\nCOLORANT DISTRIBUTION INFO"), 0);
  EXPECT_EQ(CountMatching(trace_.messages(), "\\n" + SourceRe("slv_dump") +
                                                 "\\(\\d+\\): error \\.\\.\\. unable to open "
                                                 "colorant database"),
            1);
}

TEST_F(Dumps, DumpCntsWithoutTanksWritesNothing) {
  AddNamedDispenser(qtest::OptionsWith({}));
  AddColorant(12, 1000.0, "RED", "Red");
  slave s(1);
  ASSERT_EQ(s.m_NumTanks, 0);
  trace_.clear();
  s.DumpCntsInTanks();
  EXPECT_TRUE(trace_.messages().empty());
}

}  // namespace
