// Reading formulas in colourant ids: SplitFrmToTanks (parse, weight to
// volume conversion, scaling, split of every colourant over its tanks, with
// every trace line), ParseFormula, CntsToQntsWeights and VerifyFormula, and
// the refusal of formula texts that are malformed or name impossible
// quantities.
#include <gtest/gtest.h>
#include <math.h>
#include <stdarg.h>
#include <stdio.h>

#include <limits>
#include <string>
#include <vector>

#include "dispense_fixture.h"

namespace {

using qtest::SecondaryOf;
using qtest::TankOf;

std::string Format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char* fmt, ...) {
  char buf[1024];
  va_list args;
  va_start(args, fmt);
  vsnprintf(buf, sizeof buf, fmt, args);
  va_end(args);
  return buf;
}

// The lines the split of one colourant held in one tank writes for its tank
// table (threshold 0, status bits off), as the colourant-in-dispenser
// report prints them.
std::string OneTankCircuit(long cnt, double volume, int tank, double cur, double max,
                           double res) {
  return Format("\nColorant %ld (volume %.2lf) present in %d circuits", cnt, volume, 1) +
         "\n Tank    Thres     SplitQ   Sim  Susp      cur-res        cur        max        res" +
         Format("\n%5d %8.0lf %10.2lf   %3.3s   %3.3s   %10.2lf %10.2lf %10.2lf %10.2lf", tank, 0.0,
                volume, " No", " No", cur - res, cur, max, res);
}

class FormulaSplit : public qtest::DispenseEnv {
 protected:
  void SetUp() override {
    DispenseEnv::SetUp();
    AddDispenser();
    AddTanks({TankOf(1, 10, 500.0, 10.0, 1000.0), TankOf(2, 20, 400.0, 10.0, 1000.0),
              TankOf(3, 30, 300.0, 10.0, 1000.0), TankOf(4, 40, 800.0, 10.0, 1000.0),
              SecondaryOf(5, 40), TankOf(6, 60, 300.0, 10.0, 1000.0)});
  }
  // Colourants 10, 20, 30, 40 with weights; 60 has no record; 50 is in the
  // table but in no tank.
  void AddColorants() {
    AddColorant(10, "RED", 1250.0);
    AddColorant(20, "OX1", 500.0);
    AddColorant(30, "BLU", 1000.0);
    AddColorant(40, "YEL", 800.0);
    AddColorant(50, "WHT", 1000.0);
  }

  struct Split {
    int result = 0;
    std::vector<long> cnts;
    std::vector<int> tanks;
    std::vector<double> qnts;
  };

  static Split Run(slave& s, const std::string& text, double f = 1.0, double u = 1.0, int w = 0,
                   int trace = 0, int* convFailed = nullptr) {
    Zu_LongArray cnts;
    Zu_IntArray tanks;
    Zu_DoubleArray qnts;
    std::string frm = text;
    Split out;
    out.result = s.SplitFrmToTanks(&frm[0], &cnts, &tanks, &qnts, f, u, w, trace, convFailed);
    for (int i = 0; i < cnts.size(); ++i) out.cnts.push_back(cnts[i]);
    for (int i = 0; i < tanks.size(); ++i) out.tanks.push_back(tanks[i]);
    for (int i = 0; i < qnts.size(); ++i) out.qnts.push_back(qnts[i]);
    return out;
  }

  // Messages of the formula-refusal line.
  int RefusalLines() {
    int n = 0;
    for (const std::string& m : trace_.messages()) {
      if (m.compare(0, 10, "\nslv_disp(") == 0 && m.find("formula refused") != std::string::npos) {
        ++n;
      }
    }
    return n;
  }
};

// --- SplitFrmToTanks: results ---------------------------------------------

TEST_F(FormulaSplit, SingleTankColourantsGiveOneEntryEachInFormulaOrder) {
  slave s(1);
  Split r = Run(s, "(30:3.000)(10:12.500)");
  EXPECT_EQ(r.result, 2);
  EXPECT_EQ(r.cnts, (std::vector<long>{30, 10}));
  EXPECT_EQ(r.tanks, (std::vector<int>{3, 1}));
  EXPECT_EQ(r.qnts, (std::vector<double>{3.0, 12.5}));
}

TEST_F(FormulaSplit, ColourantInTwoTanksGivesConsecutiveEntries) {
  slave s(1);
  Split r = Run(s, "(10:1.000)(40:120.000)(30:2.000)");
  EXPECT_EQ(r.result, 4);
  EXPECT_EQ(r.cnts, (std::vector<long>{10, 40, 40, 30}));
  EXPECT_EQ(r.tanks, (std::vector<int>{1, 4, 5, 3}));
  EXPECT_EQ(r.qnts, (std::vector<double>{1.0, 60.0, 60.0, 2.0}));
}

TEST_F(FormulaSplit, OnlyTheGivenArraysAreFilled) {
  slave s(1);
  Zu_IntArray tanks;
  char frm[] = "(10:1.000)(30:2.000)";
  EXPECT_EQ(s.SplitFrmToTanks(frm, nullptr, &tanks, nullptr, 1.0, 1.0, 0, 0, nullptr), 2);
  ASSERT_EQ(tanks.size(), 2);
  EXPECT_EQ(tanks[0], 1);
  EXPECT_EQ(tanks[1], 3);
}

TEST_F(FormulaSplit, OnlyTheIdArrayGiven) {
  slave s(1);
  Zu_LongArray cnts;
  char frm[] = "(10:1.000)(40:120.000)";
  EXPECT_EQ(s.SplitFrmToTanks(frm, &cnts, nullptr, nullptr, 1.0, 1.0, 0, 0, nullptr), 3);
  ASSERT_EQ(cnts.size(), 3);
  EXPECT_EQ(cnts[0], 10);
  EXPECT_EQ(cnts[1], 40);
  EXPECT_EQ(cnts[2], 40);
}

TEST_F(FormulaSplit, WithoutArraysOnlyCounts) {
  slave s(1);
  char frm[] = "(10:1.000)(40:120.000)(30:2.000)";
  EXPECT_EQ(s.SplitFrmToTanks(frm, nullptr, nullptr, nullptr, 1.0, 1.0, 0, 0, nullptr), 4);
}

TEST_F(FormulaSplit, EntriesAreAppendedToWhatTheArraysHold) {
  slave s(1);
  Zu_LongArray cnts;
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  cnts.append(99);
  tanks.append(99);
  qnts.append(99.0);
  char frm[] = "(10:1.000)";
  EXPECT_EQ(s.SplitFrmToTanks(frm, &cnts, &tanks, &qnts, 1.0, 1.0, 0, 0, nullptr), 1);
  ASSERT_EQ(tanks.size(), 2);
  EXPECT_EQ(cnts[1], 10);
  EXPECT_EQ(tanks[1], 1);
  EXPECT_EQ(qnts[1], 1.0);
}

TEST_F(FormulaSplit, EmptyFormulaSplitsIntoNoEntries) {
  slave s(1);
  Split r = Run(s, "");
  EXPECT_EQ(r.result, 0);
  EXPECT_TRUE(r.tanks.empty());
}

TEST_F(FormulaSplit, BlankFormulaSplitsIntoNoEntries) {
  slave s(1);
  Split r = Run(s, "    ");
  EXPECT_EQ(r.result, 0);
  EXPECT_TRUE(r.tanks.empty());
}

TEST_F(FormulaSplit, FactorsTwoAndHalfLeaveQuantitiesUnchanged) {
  slave s(1);
  Split r = Run(s, "(10:12.500)(30:3.000)", 2.0, 0.5);
  EXPECT_EQ(r.result, 2);
  EXPECT_EQ(r.qnts, (std::vector<double>{12.5, 3.0}));
}

TEST_F(FormulaSplit, BothFactorsMultiplyEveryQuantity) {
  slave s(1);
  Split r = Run(s, "(10:12.500)(30:3.000)", 2.0, 3.0);
  EXPECT_EQ(r.result, 2);
  EXPECT_EQ(r.qnts, (std::vector<double>{75.0, 18.0}));
}

TEST_F(FormulaSplit, WeightsAreConvertedToVolumes) {
  AddColorants();
  slave s(1);
  int failed = 7;
  Split r = Run(s, "(10:100.000)(20:10.000)", 1.0, 1.0, 1, 0, &failed);
  EXPECT_EQ(r.result, 2);
  EXPECT_EQ(failed, 0);
  ASSERT_EQ(r.qnts.size(), 2u);
  EXPECT_DOUBLE_EQ(r.qnts[0], 80.0);  // 100 g at 1250 g/l
  EXPECT_DOUBLE_EQ(r.qnts[1], 20.0);  // 10 g at 500 g/l
}

TEST_F(FormulaSplit, WeightConversionAndScalingTogether) {
  AddColorants();
  slave s(1);
  Split r = Run(s, "(10:100.000)", 2.0, 1.5, 1);
  EXPECT_EQ(r.result, 1);
  ASSERT_EQ(r.qnts.size(), 1u);
  EXPECT_DOUBLE_EQ(r.qnts[0], 240.0);
}

TEST_F(FormulaSplit, ConvFailedIsResetAtEntry) {
  slave s(1);
  int failed = 5;
  Split r = Run(s, "(10:1.000)", 1.0, 1.0, 0, 0, &failed);
  EXPECT_EQ(r.result, 1);
  EXPECT_EQ(failed, 0);
}

TEST_F(FormulaSplit, ConvFailedIsResetEvenWithoutDispenser) {
  slave s(5);
  ASSERT_EQ(s.m_DispId, 0);
  int failed = 5;
  Split r = Run(s, "(10:1.000)", 1.0, 1.0, 0, 0, &failed);
  EXPECT_EQ(r.result, -1);
  EXPECT_EQ(failed, 0);
}

TEST_F(FormulaSplit, ColourantWithoutWeightFlagsConvFailedAndGetsZero) {
  AddColorants();
  slave s(1);
  int failed = 0;
  Split r = Run(s, "(60:10.000)(10:100.000)", 1.0, 1.0, 1, 0, &failed);
  EXPECT_EQ(failed, 1);
  EXPECT_EQ(r.result, 2) << "a failed conversion does not stop the split";
  EXPECT_EQ(r.tanks, (std::vector<int>{6, 1}));
  ASSERT_EQ(r.qnts.size(), 2u);
  EXPECT_EQ(r.qnts[0], 0.0);
  EXPECT_DOUBLE_EQ(r.qnts[1], 80.0);
}

TEST_F(FormulaSplit, MissingColourantTableFlagsConvFailed) {
  slave s(1);
  int failed = 0;
  trace_.clear();
  Split r = Run(s, "(10:100.000)", 1.0, 1.0, 1, 0, &failed);
  EXPECT_EQ(failed, 1);
  EXPECT_EQ(r.result, 1) << "a failed conversion does not stop the split";
  // A weight that cannot be converted is never dosed as a volume.
  ASSERT_EQ(r.qnts.size(), 1u);
  EXPECT_EQ(r.qnts[0], 0.0);
  EXPECT_EQ(qtest::CountMatching(trace_.messages(),
                                 "\\n" + qtest::SourceRe("slv_disp") +
                                     "\\(\\d+\\): error \\.\\.\\. unable to open colorant database"),
            1)
      << trace_.text();
}

TEST_F(FormulaSplit, ColourantInNoTankFailsWithError19) {
  slave s(1);
  s.m_LastError = 0;
  Split r = Run(s, "(10:1.000)(99:2.000)");
  EXPECT_EQ(r.result, -1);
  EXPECT_EQ(s.m_LastError, 19);
}

TEST_F(FormulaSplit, EntriesOfEarlierColourantsStayAfterANoTankFailure) {
  slave s(1);
  Split r = Run(s, "(10:1.000)(30:2.000)(99:2.000)");
  EXPECT_EQ(r.result, -1);
  EXPECT_EQ(r.tanks, (std::vector<int>{1, 3}));
  EXPECT_EQ(r.qnts, (std::vector<double>{1.0, 2.0}));
}

TEST_F(FormulaSplit, NoDispenserGivesMinusOne) {
  slave s(5);
  ASSERT_EQ(s.m_DispId, 0);
  Split r = Run(s, "(10:1.000)");
  EXPECT_EQ(r.result, -1);
  EXPECT_TRUE(r.tanks.empty());
}

TEST_F(FormulaSplit, NullFormulaGivesMinusOne) {
  slave s(1);
  Zu_IntArray tanks;
  EXPECT_EQ(s.SplitFrmToTanks(nullptr, nullptr, &tanks, nullptr, 1.0, 1.0, 0, 0, nullptr), -1);
  EXPECT_EQ(tanks.size(), 0);
}

TEST_F(FormulaSplit, ClosedTablesGiveMinusOne) {
  slave s(1);
  CloseLibraryTables();
  Split r = Run(s, "(10:1.000)");
  EXPECT_EQ(r.result, -1);
}

// --- SplitFrmToTanks: trace lines ------------------------------------------

TEST_F(FormulaSplit, TraceOfConversionAndSplitLineByLine) {
  AddColorants();
  slave s(1);
  trace_.clear();
  Split r = Run(s, "(10:100.000)(20:10.000)", 2.0, 1.0, 1, 1);
  ASSERT_EQ(r.result, 2);
  std::string expected = "\n __ WEIGHT TO VOLUME CONVERSION: ";
  expected += "\nbefore : " + Format("   %5ld %10.2lf,", 10L, 100.0) +
              Format("   %5ld %10.2lf,", 20L, 10.0);
  expected += "\nafter  : " + Format("   %5ld %10.2lf,", 10L, 80.0) +
              Format("   %5ld %10.2lf,", 20L, 20.0);
  expected += "\n";
  // The factors scale the converted volumes: 2 x 80 and 2 x 20.
  expected += OneTankCircuit(10, 160.0, 1, 500.0, 1000.0, 10.0);
  expected += "\nColorant 10 (volume 160.00) split into 1 tanks";
  expected += OneTankCircuit(20, 40.0, 2, 400.0, 1000.0, 10.0);
  expected += "\nColorant 20 (volume 40.00) split into 1 tanks";
  EXPECT_EQ(trace_.text(), expected);
}

TEST_F(FormulaSplit, TraceOfFailedConversionWarns) {
  AddColorants();
  slave s(1);
  trace_.clear();
  Split r = Run(s, "(60:10.000)", 1.0, 1.0, 1, 1);
  ASSERT_EQ(r.result, 1);
  std::string expected = "\n __ WEIGHT TO VOLUME CONVERSION: ";
  expected += "\nbefore : " + Format("   %5ld %10.2lf,", 60L, 10.0);
  expected += "\nafter  : " + Format("   %5ld %10.2lf,", 60L, 0.0);
  expected += "\nWARNING : weight to volume conversion failed !!";
  expected += "\n";
  expected += OneTankCircuit(60, 0.0, 6, 300.0, 1000.0, 10.0);
  expected += "\nColorant 60 (volume 0.00) split into 1 tanks";
  EXPECT_EQ(trace_.text(), expected);
}

TEST_F(FormulaSplit, TraceWithoutConversionHasOnlyTheSplitLines) {
  slave s(1);
  trace_.clear();
  Split r = Run(s, "(30:3.250)", 1.0, 1.0, 0, 1);
  ASSERT_EQ(r.result, 1);
  EXPECT_EQ(trace_.text(), OneTankCircuit(30, 3.25, 3, 300.0, 1000.0, 10.0) +
                               "\nColorant 30 (volume 3.25) split into 1 tanks");
}

TEST_F(FormulaSplit, TraceOfEmptyFormulaWithConversion) {
  AddColorants();
  slave s(1);
  trace_.clear();
  Split r = Run(s, "", 1.0, 1.0, 1, 1);
  EXPECT_EQ(r.result, 0);
  EXPECT_EQ(trace_.text(), "\n __ WEIGHT TO VOLUME CONVERSION: \nbefore : \nafter  : \n");
}

TEST_F(FormulaSplit, EmptyFormulaWithWeightsIsNotAFailedConversion) {
  AddColorants();
  slave s(1);
  int failed = 7;
  Split r = Run(s, "", 1.0, 1.0, 1, 0, &failed);
  EXPECT_EQ(r.result, 0);
  EXPECT_EQ(failed, 0) << "a formula of no colourant has nothing that failed to convert";
}

TEST_F(FormulaSplit, TraceOfColourantInNoTankEndsWithWarning) {
  slave s(1);
  trace_.clear();
  Split r = Run(s, "(10:1.000)(99:5.000)", 1.0, 1.0, 0, 1);
  ASSERT_EQ(r.result, -1);
  std::vector<std::string> lines = trace_.messages();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[lines.size() - 2], "\nColorant 99 (volume 5.00) split into 0 tanks");
  EXPECT_EQ(lines.back(), "\nWARNING : no tanks for colorant   99");
  EXPECT_EQ(qtest::CountOf(lines, "\nColorant 10 (volume 1.00) split into 1 tanks"), 1);
}

TEST_F(FormulaSplit, NoTraceWhenTraceIsOff) {
  AddColorants();
  slave s(1);
  trace_.clear();
  Split r = Run(s, "(10:100.000)(60:1.000)(99:1.000)", 1.0, 1.0, 1, 0);
  ASSERT_EQ(r.result, -1);
  EXPECT_EQ(trace_.text(), "");
}

// --- SplitFrmToTanks: refused formulas ------------------------------------

TEST_F(FormulaSplit, NegativeQuantityIsRefused) {
  slave s(1);
  s.m_LastError = 0;
  Split r = Run(s, "(10:-1.000)");
  EXPECT_EQ(r.result, -1);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_EQ(RefusalLines(), 1) << trace_.text();
  EXPECT_TRUE(r.tanks.empty());
}

TEST_F(FormulaSplit, RefusedFormulaSplitsNothingAtAll) {
  slave s(1);
  Split r = Run(s, "(10:1.000)(30:2.000)(20:-0.500)");
  EXPECT_EQ(r.result, -1);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_TRUE(r.tanks.empty()) << "the whole formula is refused";
}

TEST_F(FormulaSplit, NegativeFactorIsRefused) {
  slave s(1);
  Split r = Run(s, "(10:1.000)", -1.0, 1.0);
  EXPECT_EQ(r.result, -1);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_EQ(RefusalLines(), 1) << trace_.text();
}

TEST_F(FormulaSplit, NotANumberFactorIsRefused) {
  slave s(1);
  Split r = Run(s, "(10:1.000)", std::numeric_limits<double>::quiet_NaN(), 1.0);
  EXPECT_EQ(r.result, -1);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_EQ(RefusalLines(), 1) << trace_.text();
}

TEST_F(FormulaSplit, InfiniteFactorIsRefused) {
  slave s(1);
  Split r = Run(s, "(10:1.000)", 1.0, std::numeric_limits<double>::infinity());
  EXPECT_EQ(r.result, -1);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_EQ(RefusalLines(), 1) << trace_.text();
}

// A colourant id below 1 names a colourant in no tank: the split fails with
// error 19, and the warning is written only when tracing.
TEST_F(FormulaSplit, NegativeColourantIdIsInNoTank) {
  slave s(1);
  Split r = Run(s, "(-10:1.000)");
  EXPECT_EQ(r.result, -1);
  EXPECT_EQ(s.m_LastError, 19);
  EXPECT_TRUE(trace_.messages().empty()) << trace_.text();
}

TEST_F(FormulaSplit, ColourantIdZeroIsInNoTankWithoutTrace) {
  slave s(1);
  Split r = Run(s, "(10:1.000)(0:1.000)");
  EXPECT_EQ(r.result, -1);
  EXPECT_EQ(s.m_LastError, 19);
  EXPECT_TRUE(trace_.messages().empty()) << trace_.text();
}

TEST_F(FormulaSplit, ColourantIdZeroIsInNoTankWithTrace) {
  slave s(1);
  Split r = Run(s, "(0:1.000)", 1.0, 1.0, 0, 1);
  EXPECT_EQ(r.result, -1);
  EXPECT_EQ(s.m_LastError, 19);
  EXPECT_EQ(trace_.messages(),
            (std::vector<std::string>{
                "\nColorant 0 (volume 0.00) present in 0 circuits",
                "\nColorant 0 (volume 1.00) split into 0 tanks",
                "\nWARNING : no tanks for colorant    0"}));
}

// A quantity within 0.00001 of zero is zero by the tolerance rule: the
// colourant splits as a zero quantity.
TEST_F(FormulaSplit, QuantityJustBelowZeroIsZero) {
  slave s(1);
  Split r = Run(s, "(10:-0.000001)");
  EXPECT_EQ(r.result, 1);
  EXPECT_EQ(r.tanks, (std::vector<int>{1}));
  EXPECT_EQ(RefusalLines(), 0) << trace_.text();
  EXPECT_EQ(s.m_LastError, 0);
}

TEST_F(FormulaSplit, HugeFiniteQuantityFailsCleanly) {
  slave s(1);
  std::string digits = "1" + std::string(300, '0');  // 1e300
  Split r = Run(s, "(10:" + digits + ".000)");
  EXPECT_EQ(r.result, -1) << "no tank holds 1e300";
  EXPECT_TRUE(s.m_LastError == 15 || s.m_LastError == 19) << s.m_LastError;
}

TEST_F(FormulaSplit, QuantityBeyondDoubleRangeFailsCleanly) {
  slave s(1);
  std::string digits = "9" + std::string(400, '9');  // overflows to infinity
  Split r = Run(s, "(10:" + digits + ".000)");
  EXPECT_EQ(r.result, -1);
  EXPECT_TRUE(r.tanks.empty());
}

TEST_F(FormulaSplit, ScaledQuantityOverflowingToInfinityIsRefused) {
  slave s(1);
  std::string digits = "1" + std::string(300, '0');  // 1e300, times 1e10
  Split r = Run(s, "(10:" + digits + ".000)", 1e10, 1.0);
  EXPECT_EQ(r.result, -1);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_EQ(RefusalLines(), 1) << trace_.text();
  EXPECT_TRUE(r.tanks.empty());
}

// --- SplitFrmToTanks: malformed texts --------------------------------------

TEST_F(FormulaSplit, UnclosedBracketIsMalformed) {
  slave s(1);
  EXPECT_EQ(Run(s, "(10:1.000").result, -1);
}

TEST_F(FormulaSplit, StrayClosingBracketIsMalformed) {
  slave s(1);
  EXPECT_EQ(Run(s, "(10:1.000))").result, -1);
}

TEST_F(FormulaSplit, NestedBracketsAreMalformed) {
  slave s(1);
  EXPECT_EQ(Run(s, "((10:1.000))").result, -1);
}

TEST_F(FormulaSplit, MissingColonIsMalformed) {
  slave s(1);
  EXPECT_EQ(Run(s, "(10 1.000)").result, -1);
}

TEST_F(FormulaSplit, MissingQuantityIsMalformed) {
  slave s(1);
  EXPECT_EQ(Run(s, "(10:)").result, -1);
}

TEST_F(FormulaSplit, NonNumericIdIsMalformed) {
  slave s(1);
  EXPECT_EQ(Run(s, "(abc:1.000)").result, -1);
}

TEST_F(FormulaSplit, EmptyBracketsAreMalformed) {
  slave s(1);
  EXPECT_EQ(Run(s, "()").result, -1);
}

TEST_F(FormulaSplit, TextOutsideBracketsIsMalformed) {
  slave s(1);
  Split r = Run(s, "(10:1.000)x(30:2.000)");
  EXPECT_EQ(r.result, -1);
  EXPECT_TRUE(r.tanks.empty());
}

TEST_F(FormulaSplit, ThousandsOfComponentsSplitWithoutCrash) {
  slave s(1);
  std::string frm;
  for (int i = 0; i < 5000; ++i) frm += (i % 2 == 0) ? "(10:0.010)" : "(30:0.020)";
  Split r = Run(s, frm);
  ASSERT_EQ(r.result, 5000);
  ASSERT_EQ(r.tanks.size(), 5000u);
  EXPECT_EQ(r.tanks[0], 1);
  EXPECT_EQ(r.tanks[4999], 3);
  EXPECT_DOUBLE_EQ(r.qnts[4999], 0.02);
}

// --- ParseFormula -----------------------------------------------------------

TEST_F(FormulaSplit, ParseFormulaCopiesEveryEntry) {
  slave s(1);
  long cnts[4] = {0, 0, 0, 0};
  int tanks[4] = {0, 0, 0, 0};
  double qnts[4] = {0, 0, 0, 0};
  char frm[] = "(10:1.000)(40:120.000)(30:2.000)";
  EXPECT_EQ(s.ParseFormula(frm, cnts, tanks, qnts), 4);
  EXPECT_EQ(std::vector<long>(cnts, cnts + 4), (std::vector<long>{10, 40, 40, 30}));
  EXPECT_EQ(std::vector<int>(tanks, tanks + 4), (std::vector<int>{1, 4, 5, 3}));
  EXPECT_EQ(std::vector<double>(qnts, qnts + 4), (std::vector<double>{1.0, 60.0, 60.0, 2.0}));
}

TEST_F(FormulaSplit, ParseFormulaSkipsNullArrays) {
  slave s(1);
  int tanks[2] = {0, 0};
  char frm[] = "(10:1.000)(30:2.000)";
  EXPECT_EQ(s.ParseFormula(frm, nullptr, tanks, nullptr), 2);
  EXPECT_EQ(tanks[0], 1);
  EXPECT_EQ(tanks[1], 3);
}

TEST_F(FormulaSplit, ParseFormulaNeverConvertsWeights) {
  AddColorants();
  slave s(1);
  double qnts[1] = {0.0};
  char frm[] = "(10:100.000)";
  EXPECT_EQ(s.ParseFormula(frm, nullptr, nullptr, qnts), 1);
  EXPECT_EQ(qnts[0], 100.0);
}

TEST_F(FormulaSplit, ParseFormulaOfEmptyFormulaCopiesNothing) {
  slave s(1);
  long cnts[1] = {-7};
  int tanks[1] = {-7};
  double qnts[1] = {-7.0};
  char frm[] = "";
  EXPECT_EQ(s.ParseFormula(frm, cnts, tanks, qnts), 0);
  EXPECT_EQ(cnts[0], -7);
  EXPECT_EQ(tanks[0], -7);
  EXPECT_EQ(qnts[0], -7.0);
}

TEST_F(FormulaSplit, ParseFormulaFailureCopiesNothing) {
  slave s(1);
  long cnts[2] = {-7, -7};
  int tanks[2] = {-7, -7};
  double qnts[2] = {-7.0, -7.0};
  char frm[] = "(10:1.000)(99:1.000)";
  EXPECT_EQ(s.ParseFormula(frm, cnts, tanks, qnts), -1);
  EXPECT_EQ(cnts[0], -7);
  EXPECT_EQ(tanks[0], -7);
  EXPECT_EQ(qnts[0], -7.0);
}

TEST_F(FormulaSplit, ParseFormulaOfMalformedText) {
  slave s(1);
  int tanks[1] = {-7};
  char frm[] = "(10:1.000";
  EXPECT_EQ(s.ParseFormula(frm, nullptr, tanks, nullptr), -1);
  EXPECT_EQ(tanks[0], -7);
}

// --- CntsToQntsWeights ------------------------------------------------------

TEST_F(FormulaSplit, CntsToQntsWeightsDividesBySpecificWeight) {
  AddColorants();
  slave s(1);
  long cnts[2] = {10, 20};
  double qnts[2] = {100.0, 10.0};
  EXPECT_EQ(s.CntsToQntsWeights(2, cnts, qnts), 1);
  EXPECT_DOUBLE_EQ(qnts[0], 80.0);
  EXPECT_DOUBLE_EQ(qnts[1], 20.0);
}

TEST_F(FormulaSplit, CntsToQntsWeightsZeroesUnknownColourantAndGoesOn) {
  AddColorants();
  slave s(1);
  long cnts[3] = {10, 77, 20};
  double qnts[3] = {100.0, 5.0, 10.0};
  EXPECT_EQ(s.CntsToQntsWeights(3, cnts, qnts), 0);
  EXPECT_DOUBLE_EQ(qnts[0], 80.0);
  EXPECT_EQ(qnts[1], 0.0);
  EXPECT_DOUBLE_EQ(qnts[2], 20.0);
}

TEST_F(FormulaSplit, CntsToQntsWeightsTinyWeightCountsAsNone) {
  AddColorant(10, "RED", 0.005);  // 0.000005 kg/l: not above 1e-5
  slave s(1);
  long cnts[1] = {10};
  double qnts[1] = {1.0};
  EXPECT_EQ(s.CntsToQntsWeights(1, cnts, qnts), 0);
  EXPECT_EQ(qnts[0], 0.0);
}

TEST_F(FormulaSplit, CntsToQntsWeightsSmallWeightAboveToleranceConverts) {
  AddColorant(10, "RED", 0.02);  // 0.00002 kg/l
  slave s(1);
  long cnts[1] = {10};
  double qnts[1] = {1.0};
  EXPECT_EQ(s.CntsToQntsWeights(1, cnts, qnts), 1);
  EXPECT_NEAR(qnts[0], 50000.0, 1e-6);
}

TEST_F(FormulaSplit, CntsToQntsWeightsNullPointers) {
  AddColorants();
  slave s(1);
  long cnts[1] = {10};
  double qnts[1] = {1.0};
  EXPECT_EQ(s.CntsToQntsWeights(1, nullptr, qnts), 0);
  EXPECT_EQ(s.CntsToQntsWeights(1, cnts, nullptr), 0);
  EXPECT_EQ(qnts[0], 1.0);
}

TEST_F(FormulaSplit, CntsToQntsWeightsOfNoColourantIsOne) {
  AddColorants();
  slave s(1);
  long cnts[1] = {10};
  double qnts[1] = {1.0};
  EXPECT_EQ(s.CntsToQntsWeights(0, cnts, qnts), 1);
  EXPECT_EQ(qnts[0], 1.0);
}

TEST_F(FormulaSplit, CntsToQntsWeightsWithoutColourantTableTraces) {
  slave s(1);
  trace_.clear();
  long cnts[1] = {10};
  double qnts[1] = {1.0};
  EXPECT_EQ(s.CntsToQntsWeights(1, cnts, qnts), 0);
  EXPECT_EQ(qnts[0], 0.0) << "an unconverted weight is not left in place";
  EXPECT_EQ(qtest::CountMatching(trace_.messages(),
                                 "\\n" + qtest::SourceRe("slv_disp") +
                                     "\\(\\d+\\): error \\.\\.\\. unable to open colorant database"),
            1)
      << trace_.text();
}

TEST_F(FormulaSplit, CntsToQntsWeightsWithEmptyColourantTableTraces) {
  ASSERT_TRUE(tables_.CreateColorants());
  slave s(1);
  trace_.clear();
  long cnts[1] = {10};
  double qnts[1] = {1.0};
  EXPECT_EQ(s.CntsToQntsWeights(1, cnts, qnts), 0);
  EXPECT_EQ(qnts[0], 0.0) << "an unconverted weight is not left in place";
  EXPECT_EQ(qtest::CountMatching(trace_.messages(),
                                 "\\n" + qtest::SourceRe("slv_disp") +
                                     "\\(\\d+\\): error \\.\\.\\. unable to open colorant database"),
            1)
      << trace_.text();
}

// --- VerifyFormula ------------------------------------------------------------

TEST_F(FormulaSplit, VerifyFormulaAcceptsColourantsOfTheDispenser) {
  slave s(1);
  char frm[] = "(10:1.000)(40:2.000)";
  EXPECT_EQ(s.VerifyFormula(frm, 0), 1);
}

TEST_F(FormulaSplit, VerifyFormulaAcceptsAbsentColourantWithZeroQuantity) {
  slave s(1);
  char frm[] = "(10:1.000)(99:0.000)";
  EXPECT_EQ(s.VerifyFormula(frm, 0), 1);
}

// Colourant 0 marks an empty tank (tank 8 here, and the gap at 7): no tank
// holds it, so a formula that asks for some cannot be made here.
TEST_F(FormulaSplit, VerifyFormulaRefusesColourantZeroWithAQuantity) {
  AddTanks({TankOf(8, 0, 500.0, 10.0, 1000.0)});
  slave s(1);
  ASSERT_EQ(s.CntToTank(0), 7);
  char asked[] = "(10:1.000)(0:5.000)";
  EXPECT_EQ(s.VerifyFormula(asked, 0), 0);
  char zero[] = "(10:1.000)(0:0.000)";
  EXPECT_EQ(s.VerifyFormula(zero, 0), 1);
}

TEST_F(FormulaSplit, VerifyFormulaRefusesAbsentColourantWithTinyQuantity) {
  slave s(1);
  char frm[] = "(10:1.000)(99:0.00002)";
  EXPECT_EQ(s.VerifyFormula(frm, 0), 0);
}

TEST_F(FormulaSplit, VerifyFormulaAcceptsAbsentColourantAtTheTolerance) {
  slave s(1);
  char frm[] = "(99:0.00001)";
  EXPECT_EQ(s.VerifyFormula(frm, 0), 1) << "1e-5 is not greater than the tolerance";
}

TEST_F(FormulaSplit, VerifyFormulaWithoutWeightCheckNeedsNoColourantTable) {
  slave s(1);
  char frm[] = "(10:1.000)";
  EXPECT_EQ(s.VerifyFormula(frm, 0), 1);
}

TEST_F(FormulaSplit, VerifyFormulaWithWeightsPresent) {
  AddColorants();
  slave s(1);
  char frm[] = "(10:1.000)(20:1.000)";
  EXPECT_EQ(s.VerifyFormula(frm, 1), 1);
}

TEST_F(FormulaSplit, VerifyFormulaWithAWeightMissing) {
  AddColorants();
  slave s(1);
  char frm[] = "(10:1.000)(60:1.000)";
  EXPECT_EQ(s.VerifyFormula(frm, 1), 0);
}

TEST_F(FormulaSplit, VerifyFormulaChecksWeightsOfAbsentZeroColourantsToo) {
  AddColorants();
  slave s(1);
  char frm[] = "(10:1.000)(99:0.000)";
  EXPECT_EQ(s.VerifyFormula(frm, 1), 0);
}

TEST_F(FormulaSplit, VerifyFormulaWithoutColourantTable) {
  slave s(1);
  char frm[] = "(10:1.000)";
  EXPECT_EQ(s.VerifyFormula(frm, 1), 0);
}

TEST_F(FormulaSplit, VerifyFormulaWithEmptyColourantTableTraces) {
  ASSERT_TRUE(tables_.CreateColorants());
  slave s(1);
  trace_.clear();
  char frm[] = "(10:1.000)";
  EXPECT_EQ(s.VerifyFormula(frm, 1), 0);
  EXPECT_EQ(qtest::CountMatching(trace_.messages(),
                                 "\\n" + qtest::SourceRe("slv_ver") +
                                     "\\(\\d+\\): error \\.\\.\\. unable to open colorant database"),
            1)
      << trace_.text();
}

TEST_F(FormulaSplit, VerifyFormulaWithoutDispenser) {
  slave s(5);
  char frm[] = "(10:1.000)";
  EXPECT_EQ(s.VerifyFormula(frm, 0), 0);
}

TEST_F(FormulaSplit, VerifyFormulaOfNullText) {
  slave s(1);
  EXPECT_EQ(s.VerifyFormula(nullptr, 0), 0);
}

TEST_F(FormulaSplit, VerifyFormulaOfMalformedText) {
  slave s(1);
  char frm[] = "(10:1.000";
  EXPECT_EQ(s.VerifyFormula(frm, 0), 0);
}

TEST_F(FormulaSplit, VerifyFormulaOfEmptyText) {
  slave s(1);
  char frm[] = "";
  EXPECT_EQ(s.VerifyFormula(frm, 0), 1) << "a formula of no component asks nothing impossible";
}

}  // namespace
