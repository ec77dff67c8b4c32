// Dispense command strings: the two-pass split of a tank list
// (DoSplittArrays), the tank list text in the shared 512-byte buffer
// (MakeCommandString) and the "/D" command sent over the command channel
// (SendCommandString), with the refusal of texts that do not fit.
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "dispense_fixture.h"
#include "purge_server.h"

namespace {

using qtest::OptionsWith;
using qtest::PurgeAnswer;
using qtest::PurgeServer;
using qtest::SplitConfig;
using qtest::TankOf;

// A tank list of n entries.
struct TankList {
  std::vector<int> tanks;
  std::vector<double> qnts;
  int n() const { return static_cast<int>(tanks.size()); }
  int* t() { return tanks.data(); }
  double* q() { return qnts.data(); }
};

TankList List(const std::vector<int>& tanks, const std::vector<double>& qnts) {
  TankList l;
  l.tanks = tanks;
  l.qnts = qnts;
  return l;
}

// A list whose text "(1:1.000)"... is exactly `length` characters long
// (length at least 9 * 1): entries of tank 1 with 1.0 (9 characters) and
// 10.0 (10 characters).
TankList ListOfTextLength(size_t length, std::string* text) {
  size_t entries = length / 9;
  size_t longer = length - entries * 9;  // entries written with 10.000
  TankList l;
  text->clear();
  for (size_t i = 0; i < entries; ++i) {
    const bool ten = i < longer;
    l.tanks.push_back(1);
    l.qnts.push_back(ten ? 10.0 : 1.0);
    *text += ten ? "(1:10.000)" : "(1:1.000)";
  }
  return l;
}

class CommandStrings : public qtest::DispenseEnv {
 protected:
  // Dispenser 1 with tanks 1..8; the two-pass split switched on when asked,
  // with percentage 30 and threshold 5 unless given.
  void Build(bool split = false, int percentTimesTen = 300, int threshold = 5) {
    AddDispenser("ZARVO", split ? OptionsWith({7}) : OptionsWith({}),
                 SplitConfig(percentTimesTen, threshold));
    std::vector<qtest::TankRow> rows;
    for (int t = 1; t <= 8; ++t) rows.push_back(TankOf(t, 10 * t, 900.0, 10.0, 1000.0));
    AddTanks(rows);
  }

  struct Lists {
    int count1 = -1, count2 = -1;
    std::vector<int> tanks1, tanks2;
    std::vector<double> qnts1, qnts2;
  };

  // Runs DoSplittArrays with outputs of 2n entries (room for the copy and
  // a split after it).
  static Lists SplitArrays(slave& s, TankList l, double f) {
    const size_t room = 2 * l.tanks.size() + 2;
    std::vector<int> t1(room, 0), t2(room, 0);
    std::vector<double> q1(room, 0.0), q2(room, 0.0);
    Lists out;
    EXPECT_EQ(s.DoSplittArrays(l.n(), l.t(), l.q(), f, &out.count1, t1.data(), q1.data(),
                               &out.count2, t2.data(), q2.data()),
              1);
    for (int i = 0; i < out.count1; ++i) {
      out.tanks1.push_back(t1[i]);
      out.qnts1.push_back(q1[i]);
    }
    for (int i = 0; i < out.count2; ++i) {
      out.tanks2.push_back(t2[i]);
      out.qnts2.push_back(q2[i]);
    }
    return out;
  }

  static std::string Make(slave& s, TankList l, double f, TankList* second = nullptr) {
    return s.MakeCommandString(l.n(), l.t(), l.q(), f, second ? second->n() : 0,
                               second ? second->t() : nullptr, second ? second->q() : nullptr);
  }

  static int Send(slave& s, TankList l, double f, TankList* second = nullptr) {
    return s.SendCommandString(l.n(), l.t(), l.q(), f, second ? second->n() : 0,
                               second ? second->t() : nullptr, second ? second->q() : nullptr);
  }

  int RefusalLines(size_t length, size_t room) {
    return qtest::CountCommandRefusals(trace_.messages(), length, room);
  }
};

// --- DoSplittArrays -----------------------------------------------------------

TEST_F(CommandStrings, SplitOffCopiesEverythingIntoTheSecondList) {
  Build(false);
  slave s(1);
  Lists r = SplitArrays(s, List({3, 5, 8}, {40.0, 5.0, 5.0}), 1.0);
  EXPECT_EQ(r.count1, 0);
  EXPECT_EQ(r.count2, 3);
  EXPECT_EQ(r.tanks2, (std::vector<int>{3, 5, 8}));
  EXPECT_EQ(r.qnts2, (std::vector<double>{40.0, 5.0, 5.0}));
}

TEST_F(CommandStrings, SplitOffWithoutDispenserCopiesEverything) {
  Build(true);
  slave s(1);
  s.m_DispId = 0;
  Lists r = SplitArrays(s, List({3, 5}, {40.0, 5.0}), 1.0);
  EXPECT_EQ(r.count1, 0);
  EXPECT_EQ(r.count2, 2);
  EXPECT_EQ(r.tanks2, (std::vector<int>{3, 5}));
  s.m_DispId = 1;
}

TEST_F(CommandStrings, SplitHalvesTheLargeEntryIntoBothPasses) {
  Build(true, 300, 5);
  slave s(1);
  Lists r = SplitArrays(s, List({3, 5, 8}, {40.0, 5.0, 5.0}), 1.0);
  EXPECT_EQ(s.m_SplitPerc, 30.0) << "refreshed from the dispenser record";
  EXPECT_EQ(s.m_SplitThreshold, 5.0);
  EXPECT_EQ(r.tanks2, (std::vector<int>{3}));
  EXPECT_EQ(r.qnts2, (std::vector<double>{20.0}));
  EXPECT_EQ(r.tanks1, (std::vector<int>{3, 5, 8}));
  EXPECT_EQ(r.qnts1, (std::vector<double>{20.0, 5.0, 5.0}));
}

TEST_F(CommandStrings, SplitOfOneColourantHalvesNothing) {
  Build(true, 300, 5);
  slave s(1);
  Lists r = SplitArrays(s, List({3}, {40.0}), 1.0);
  EXPECT_EQ(r.count1, 0);
  EXPECT_EQ(r.tanks2, (std::vector<int>{3}));
  EXPECT_EQ(r.qnts2, (std::vector<double>{40.0}));
}

TEST_F(CommandStrings, SplitWithEveryEntryAboveThePercentageHalvesNothing) {
  Build(true, 300, 5);
  slave s(1);
  Lists r = SplitArrays(s, List({3, 5}, {50.0, 50.0}), 1.0);
  EXPECT_EQ(r.count1, 0);
  EXPECT_EQ(r.tanks2, (std::vector<int>{3, 5}));
  EXPECT_EQ(r.qnts2, (std::vector<double>{50.0, 50.0}));
}

TEST_F(CommandStrings, SplitEntryRightAtThePercentageCountsAsSmall) {
  Build(true, 500, 5);
  slave s(1);
  Lists r = SplitArrays(s, List({3, 5}, {50.0, 50.0}), 1.0);
  EXPECT_EQ(r.count2, 0);
  EXPECT_EQ(r.tanks1, (std::vector<int>{3, 5}));
  EXPECT_EQ(r.qnts1, (std::vector<double>{50.0, 50.0}));
}

TEST_F(CommandStrings, SplitHalfEqualToThresholdIsNotHalved) {
  Build(true, 300, 20);
  slave s(1);
  Lists r = SplitArrays(s, List({3, 5, 8}, {40.0, 5.0, 5.0}), 1.0);
  EXPECT_EQ(r.tanks2, (std::vector<int>{3}));
  EXPECT_EQ(r.qnts2, (std::vector<double>{40.0}));
  EXPECT_EQ(r.tanks1, (std::vector<int>{5, 8}));
  EXPECT_EQ(r.qnts1, (std::vector<double>{5.0, 5.0}));
}

TEST_F(CommandStrings, SplitNegativeThresholdHalvesNothing) {
  Build(true, 300, 5);
  slave s(1);
  // CFG_STR "  -1" in the threshold positions.
  Qdbase* disp = nullptr;
  ASSERT_TRUE(_slv_dbhandles(&disp, nullptr, nullptr));
  ASSERT_TRUE(_slv_SelectDispenser(disp, 1));
  ASSERT_TRUE(disp->WriteString("CFG_STR", SplitConfig(300, -1).c_str()));
  Lists r = SplitArrays(s, List({3, 5, 8}, {40.0, 5.0, 5.0}), 1.0);
  EXPECT_EQ(s.m_SplitThreshold, -1.0);
  EXPECT_EQ(r.tanks2, (std::vector<int>{3}));
  EXPECT_EQ(r.qnts2, (std::vector<double>{40.0}));
  EXPECT_EQ(r.tanks1, (std::vector<int>{5, 8}));
}

TEST_F(CommandStrings, SplitFactorEntersTheThresholdTestButNotTheQuantities) {
  Build(true, 300, 30);
  slave s(1);
  Lists once = SplitArrays(s, List({3, 5, 8}, {40.0, 5.0, 5.0}), 1.0);
  EXPECT_EQ(once.qnts2, (std::vector<double>{40.0})) << "20 is not above 30";
  Lists twice = SplitArrays(s, List({3, 5, 8}, {40.0, 5.0, 5.0}), 2.0);
  EXPECT_EQ(twice.tanks2, (std::vector<int>{3}));
  EXPECT_EQ(twice.qnts2, (std::vector<double>{20.0})) << "40 x 2 x 0.5 = 40 is above 30";
  EXPECT_EQ(twice.tanks1, (std::vector<int>{3, 5, 8}));
  EXPECT_EQ(twice.qnts1, (std::vector<double>{20.0, 5.0, 5.0}));
}

TEST_F(CommandStrings, SplitStoredPercentageAppendsAfterTheCopy) {
  Build(false);
  slave s(1);
  s.m_SplitPerc = 30.0;
  s.m_SplitThreshold = 5.0;
  Lists r = SplitArrays(s, List({3, 5, 8}, {40.0, 5.0, 5.0}), 1.0);
  EXPECT_EQ(r.count2, 4);
  EXPECT_EQ(r.tanks2, (std::vector<int>{3, 5, 8, 3}));
  EXPECT_EQ(r.qnts2, (std::vector<double>{40.0, 5.0, 5.0, 20.0}));
  EXPECT_EQ(r.tanks1, (std::vector<int>{3, 5, 8}));
  EXPECT_EQ(r.qnts1, (std::vector<double>{20.0, 5.0, 5.0}));
}

TEST_F(CommandStrings, SplitOfNoEntries) {
  Build(true);
  slave s(1);
  Lists r = SplitArrays(s, List({}, {}), 1.0);
  EXPECT_EQ(r.count1, 0);
  EXPECT_EQ(r.count2, 0);
}

TEST_F(CommandStrings, SplitOnWithZeroPercentageLeavesBothListsEmpty) {
  Build(true, 0, 5);
  slave s(1);
  Lists r = SplitArrays(s, List({3, 5}, {40.0, 5.0}), 1.0);
  EXPECT_EQ(r.count1, 0);
  EXPECT_EQ(r.count2, 0);
}

// --- MakeCommandString -------------------------------------------------------

TEST_F(CommandStrings, MakeWritesEveryValidEntry) {
  Build();
  slave s(1);
  EXPECT_EQ(Make(s, List({3, 7}, {12.5, 0.8}), 1.0), "(3:12.500)(7:0.800)");
}

TEST_F(CommandStrings, MakeRoundsToThreeDecimals) {
  Build();
  slave s(1);
  EXPECT_EQ(Make(s, List({3}, {12.3456}), 1.0), "(3:12.346)");
}

// Quantities are printed exactly as "%.3lf" prints them: exact binary ties
// go to the even digit, values just below or above a tie follow their
// binary value, and a quantity of many digits is printed whole.
TEST_F(CommandStrings, MakePrintsEveryQuantityAsPrintfDoes) {
  Build();
  slave s(1);
  const std::vector<double> quantities = {0.0625, 0.1875, 2.0005, 1.0005, 0.0005, 4.9995,
                                          123456.7895, 1e-9, 0.9999999, 1e15 + 0.5, 1e22,
                                          1.7976931348623157e300};
  for (double q : quantities) {
    char expected[512];
    snprintf(expected, sizeof expected, "(3:%.3lf)", q);
    EXPECT_EQ(Make(s, List({3}, {q}), 1.0), expected) << q;
  }
}

TEST_F(CommandStrings, MakeDropsZeroQuantity) {
  Build();
  slave s(1);
  EXPECT_EQ(Make(s, List({3, 7}, {0.0, 0.8}), 1.0), "(7:0.800)");
}

TEST_F(CommandStrings, MakeDropsNegativeQuantity) {
  Build();
  slave s(1);
  EXPECT_EQ(Make(s, List({3, 7}, {-1.0, 0.8}), 1.0), "(7:0.800)");
}

TEST_F(CommandStrings, MakeDropsTankZero) {
  Build();
  slave s(1);
  EXPECT_EQ(Make(s, List({0, 7}, {1.0, 0.8}), 1.0), "(7:0.800)");
}

TEST_F(CommandStrings, MakeDropsTankAboveTheLast) {
  Build();
  slave s(1);
  ASSERT_EQ(s.m_NumTanks, 8);
  EXPECT_EQ(Make(s, List({9, 8}, {1.0, 0.8}), 1.0), "(8:0.800)");
}

TEST_F(CommandStrings, MakeOfOnlyInvalidEntriesIsEmpty) {
  Build();
  slave s(1);
  EXPECT_EQ(Make(s, List({0, 9, 3, 4}, {1.0, 1.0, 0.0, -2.0}), 2.0), "");
}

TEST_F(CommandStrings, MakeFactorOneAddsNothing) {
  Build();
  slave s(1);
  EXPECT_EQ(Make(s, List({3}, {12.5}), 1.0), "(3:12.500)");
}

TEST_F(CommandStrings, MakeFactorHalfFollowsTheLastBracket) {
  Build();
  slave s(1);
  EXPECT_EQ(Make(s, List({3, 7}, {12.5, 0.8}), 0.5), "(3:12.500)(7:0.800)0.500");
}

TEST_F(CommandStrings, MakeSecondListAfterSemicolon) {
  Build();
  slave s(1);
  TankList second = List({3, 7}, {6.25, 0.8});
  EXPECT_EQ(Make(s, List({3}, {6.25}), 1.0, &second), "(3:6.250);(3:6.250)(7:0.800)");
}

TEST_F(CommandStrings, MakeSecondListAndFactor) {
  Build();
  slave s(1);
  TankList second = List({7}, {0.8});
  EXPECT_EQ(Make(s, List({3}, {6.25}), 2.0, &second), "(3:6.250);(7:0.800)2.000");
}

TEST_F(CommandStrings, MakeSemicolonEvenWithoutValidSecondEntry) {
  Build();
  slave s(1);
  TankList second = List({0, 7}, {1.0, 0.0});
  EXPECT_EQ(Make(s, List({3}, {6.25}), 1.0, &second), "(3:6.250);");
  EXPECT_EQ(Make(s, List({3}, {6.25}), 0.5, &second), "(3:6.250);0.500");
}

TEST_F(CommandStrings, MakeWithEmptyFirstSectionWritesNeitherSemicolonNorFactor) {
  Build();
  slave s(1);
  TankList second = List({7}, {0.8});
  EXPECT_EQ(Make(s, List({0}, {1.0}), 2.0, &second), "");
}

TEST_F(CommandStrings, MakeOfNoEntries) {
  Build();
  slave s(1);
  EXPECT_EQ(Make(s, List({}, {}), 2.0), "");
}

TEST_F(CommandStrings, MakeWithoutDispenserIsEmpty) {
  Build();
  slave s(1);
  s.m_DispId = 0;
  EXPECT_EQ(Make(s, List({3}, {1.0}), 1.0), "");
  s.m_DispId = 1;
}

TEST_F(CommandStrings, MakeUsesOneBufferSharedByAllSlaves) {
  Build();
  slave a(1);
  slave b(1);
  TankList l = List({3}, {1.0});
  char* first = a.MakeCommandString(l.n(), l.t(), l.q(), 1.0, 0, nullptr, nullptr);
  char* second = b.MakeCommandString(l.n(), l.t(), l.q(), 2.0, 0, nullptr, nullptr);
  EXPECT_EQ(first, second);
  EXPECT_STREQ(first, "(3:1.000)2.000") << "the later call overwrote the text";
}

TEST_F(CommandStrings, MakeClearsTheWholeBufferEveryCall) {
  Build();
  slave s(1);
  std::string text;
  TankList longList = ListOfTextLength(400, &text);
  char* buffer = s.MakeCommandString(longList.n(), longList.t(), longList.q(), 1.0, 0, nullptr,
                                     nullptr);
  ASSERT_EQ(std::string(buffer), text);
  TankList shortList = List({3}, {1.0});
  buffer = s.MakeCommandString(shortList.n(), shortList.t(), shortList.q(), 1.0, 0, nullptr,
                               nullptr);
  EXPECT_STREQ(buffer, "(3:1.000)");
  int nonZero = 0;
  for (int i = 9; i < SLV_CMD_BUFFER; ++i) nonZero += buffer[i] != '\0' ? 1 : 0;
  EXPECT_EQ(nonZero, 0);
}

TEST_F(CommandStrings, MakeText511CharactersFits) {
  Build();
  slave s(1);
  std::string text;
  TankList l = ListOfTextLength(511, &text);
  ASSERT_EQ(text.size(), 511u);
  s.m_LastError = 0;
  EXPECT_EQ(Make(s, l, 1.0), text);
  EXPECT_EQ(s.m_LastError, 0);
}

TEST_F(CommandStrings, MakeText512CharactersIsRefusedWhole) {
  Build();
  slave s(1);
  std::string text;
  TankList l = ListOfTextLength(512, &text);
  ASSERT_EQ(text.size(), 512u);
  trace_.clear();
  EXPECT_EQ(Make(s, l, 1.0), "");
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_EQ(RefusalLines(512, 511), 1) << trace_.text();
}

TEST_F(CommandStrings, MakeFactorThatPushesTheTextPast511IsRefused) {
  Build();
  slave s(1);
  std::string text;
  TankList l = ListOfTextLength(507, &text);
  trace_.clear();
  EXPECT_EQ(Make(s, l, 0.5), "");  // 507 + "0.500" = 512
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_EQ(RefusalLines(512, 511), 1) << trace_.text();
  TankList fits = ListOfTextLength(506, &text);
  EXPECT_EQ(Make(s, fits, 0.5), text + "0.500");
}

TEST_F(CommandStrings, MakeSecondListThatPushesTheTextPast511IsRefused) {
  Build();
  slave s(1);
  std::string text;
  TankList first = ListOfTextLength(450, &text);
  std::string secondText;
  TankList second = ListOfTextLength(63, &secondText);  // 450 + ";" + 63 = 514
  trace_.clear();
  EXPECT_EQ(Make(s, first, 1.0, &second), "");
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_EQ(RefusalLines(514, 511), 1) << trace_.text();
}

TEST_F(CommandStrings, MakeThousandsOfEntriesIsRefused) {
  Build();
  slave s(1);
  std::vector<int> tanks(5000, 1);
  std::vector<double> qnts(5000, 1.0);
  trace_.clear();
  char* text = s.MakeCommandString(5000, tanks.data(), qnts.data(), 1.0, 0, nullptr, nullptr);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_EQ(RefusalLines(45000, 511), 1) << trace_.text();
}

// --- SendCommandString -------------------------------------------------------

class SendCommand : public CommandStrings {
 protected:
  void SetUp() override {
    CommandStrings::SetUp();
    Build();
  }
  // A slave whose purge-server update is switched off, so that no test
  // depends on what listens on the default port.
  static void Quiet(slave& s) { s.m_PurgeSrvOff = 1; }
};

TEST_F(SendCommand, SendsTheDispenseCommand) {
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Send(s, List({3, 7}, {12.5, 0.8}), 1.0), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(3:12.500)(7:0.800)"}));
}

TEST_F(SendCommand, SendsBothSectionsAndTheFactor) {
  slave s(1);
  Quiet(s);
  TankList second = List({3, 7}, {6.25, 0.8});
  EXPECT_EQ(Send(s, List({3}, {6.25}), 2.0, &second), 1);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(3:6.250);(3:6.250)(7:0.800)2.000"}));
}

TEST_F(SendCommand, NothingValidSendsNothing) {
  slave s(1);
  Quiet(s);
  EXPECT_EQ(Send(s, List({0, 9, 3}, {1.0, 1.0, 0.0}), 1.0), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(SendCommand, WithoutDispenserSendsNothing) {
  slave s(1);
  Quiet(s);
  s.m_DispId = 0;
  EXPECT_EQ(Send(s, List({3}, {1.0}), 1.0), 0);
  s.m_DispId = 1;
  EXPECT_TRUE(CommandsOf(s).empty());
}

TEST_F(SendCommand, AcceptedCommandIsRecordedAsLastDosed) {
  slave s(1);
  Quiet(s);
  s.SetLastDosedFormulaRecordMode(1);
  EXPECT_EQ(Send(s, List({3, 7}, {12.5, 0.8}), 1.0), 1);
  ASSERT_NE(s.LastDosedFormula(), nullptr);
  EXPECT_STREQ(s.LastDosedFormula(), "(3:12.500)(7:0.800)");
  s.ClearLastDosedFormula();
}

TEST_F(SendCommand, AcceptedCommandsAppendInAppendMode) {
  slave s(1);
  Quiet(s);
  s.SetLastDosedFormulaRecordMode(2);
  char old[] = "(1:1.000)";
  s.SetLastDosedFormula(old);
  EXPECT_EQ(Send(s, List({3}, {12.5}), 1.0), 1);
  ASSERT_NE(s.LastDosedFormula(), nullptr);
  // The clearing before the send is a null text, which append mode ignores.
  EXPECT_STREQ(s.LastDosedFormula(), "(1:1.000)(3:12.500)");
  EXPECT_EQ(Send(s, List({7}, {0.8}), 1.0), 1);
  EXPECT_STREQ(s.LastDosedFormula(), "(1:1.000)(3:12.500)(7:0.800)");
  s.ClearLastDosedFormula();
}

TEST_F(SendCommand, RefusedCommandLeavesLastDosedEmpty) {
  SimRules("/D* 4\n");
  slave s(1);
  Quiet(s);
  s.SetLastDosedFormulaRecordMode(1);
  char old[] = "(1:1.000)";
  s.SetLastDosedFormula(old);
  EXPECT_EQ(Send(s, List({3}, {12.5}), 1.0), 0);
  EXPECT_EQ(s.m_LastError, 4);
  EXPECT_EQ(s.LastDosedFormula(), nullptr);
  EXPECT_EQ(CommandsOf(s), (std::vector<std::string>{"/D(3:12.500)"}));
}

TEST_F(SendCommand, NothingToSendStillClearsLastDosed) {
  slave s(1);
  Quiet(s);
  s.SetLastDosedFormulaRecordMode(1);
  char old[] = "(1:1.000)";
  s.SetLastDosedFormula(old);
  EXPECT_EQ(Send(s, List({0}, {1.0}), 1.0), 0);
  EXPECT_EQ(s.LastDosedFormula(), nullptr);
}

TEST_F(SendCommand, AcceptedCommandIsReportedToThePurgeServer) {
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(1);
  s.m_PurgeSrvPort = server.port();
  TankList second = List({7}, {0.8});
  EXPECT_EQ(Send(s, List({3}, {6.25}), 0.5, &second), 1);
  std::vector<qtest::PurgeCall> calls = server.Calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].method, "UpdateAfterDispensing");
  EXPECT_EQ(calls[0].params,
            (std::vector<std::string>{"int:1", "str:'(3:6.250);(7:0.800)0.500'", "bool:False"}));
}

TEST_F(SendCommand, RefusedCommandIsNotReportedToThePurgeServer) {
  SimRules("/D* 4\n");
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(1);
  s.m_PurgeSrvPort = server.port();
  EXPECT_EQ(Send(s, List({3}, {12.5}), 1.0), 0);
  EXPECT_TRUE(server.Records().empty());
}

TEST_F(SendCommand, PurgeServerDownDoesNotChangeTheResult) {
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  server.Stop();
  slave s(1);
  s.m_PurgeSrvPort = server.port();
  s.SetLastDosedFormulaRecordMode(1);
  EXPECT_EQ(Send(s, List({3}, {12.5}), 1.0), 1);
  ASSERT_NE(s.LastDosedFormula(), nullptr);
  EXPECT_STREQ(s.LastDosedFormula(), "(3:12.500)");
  s.ClearLastDosedFormula();
}

TEST_F(SendCommand, PurgeServerAnsweringZeroDoesNotChangeTheResult) {
  PurgeServer server(PurgeAnswer::kZero);
  ASSERT_TRUE(server.ok());
  slave s(1);
  s.m_PurgeSrvPort = server.port();
  EXPECT_EQ(Send(s, List({3}, {12.5}), 1.0), 1);
  EXPECT_EQ(server.Calls().size(), 1u);
}

TEST_F(SendCommand, CommandOf511CharactersIsSent) {
  slave s(1);
  Quiet(s);
  std::string text;
  TankList l = ListOfTextLength(509, &text);
  s.m_LastError = 0;
  EXPECT_EQ(Send(s, l, 1.0), 1);
  ASSERT_EQ(CommandsOf(s).size(), 1u);
  EXPECT_EQ(CommandsOf(s)[0], "/D" + text);
  EXPECT_EQ(CommandsOf(s)[0].size(), 511u);
}

TEST_F(SendCommand, CommandOf512CharactersIsRefusedWhole) {
  slave s(1);
  Quiet(s);
  std::string text;
  TankList l = ListOfTextLength(510, &text);
  trace_.clear();
  EXPECT_EQ(Send(s, l, 1.0), 0);
  EXPECT_TRUE(CommandsOf(s).empty()) << "nothing is sent";
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_EQ(RefusalLines(512, 511), 1) << trace_.text();
}

TEST_F(SendCommand, TextOf511CharactersMakesACommandTooLong) {
  slave s(1);
  Quiet(s);
  std::string text;
  TankList l = ListOfTextLength(511, &text);
  trace_.clear();
  EXPECT_EQ(Send(s, l, 1.0), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_EQ(RefusalLines(513, 511), 1) << trace_.text();
}

TEST_F(SendCommand, TextTooLongForTheBufferSendsNothing) {
  slave s(1);
  Quiet(s);
  std::string text;
  TankList l = ListOfTextLength(600, &text);
  trace_.clear();
  EXPECT_EQ(Send(s, l, 1.0), 0);
  EXPECT_TRUE(CommandsOf(s).empty());
  EXPECT_EQ(s.m_LastError, 15);
}

TEST_F(SendCommand, RefusedLongCommandIsNotReportedNorRecorded) {
  PurgeServer server(PurgeAnswer::kOne);
  ASSERT_TRUE(server.ok());
  slave s(1);
  s.m_PurgeSrvPort = server.port();
  s.SetLastDosedFormulaRecordMode(1);
  char old[] = "(1:1.000)";
  s.SetLastDosedFormula(old);
  std::string text;
  EXPECT_EQ(Send(s, ListOfTextLength(510, &text), 1.0), 0);
  EXPECT_TRUE(server.Records().empty());
  EXPECT_EQ(s.LastDosedFormula(), nullptr);
}

}  // namespace
