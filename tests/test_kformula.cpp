// kformula and Zu_Frm: the formula text, resize, add, text and the name.
// to_volume needs colourant tables and is tested in test_zutable.cpp.
#include <math.h>
#include <stdio.h>

#include <algorithm>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host/zutable.h"

namespace {

using Components = std::vector<std::pair<long long, double>>;

Components Read(const kformula& f) {
  Components out;
  int n = f.count();
  if (n <= 0) return out;
  std::vector<long long> ids(n);
  std::vector<double> qnts(n);
  EXPECT_EQ(n, f.parse(ids.data(), qnts.data()));
  for (int i = 0; i < n; ++i) out.emplace_back(ids[i], qnts[i]);
  return out;
}

// A malformed text leaves count() -1, nothing to parse and no text.
void ExpectMalformed(const char* text) {
  kformula f;
  EXPECT_EQ(-1, f.set(text)) << text;
  EXPECT_EQ(-1, f.count()) << text;
  long long id = 77;
  double qnt = 7.5;
  EXPECT_EQ(-1, f.parse(&id, &qnt)) << text;
  EXPECT_EQ(77, id);
  EXPECT_EQ(7.5, qnt);
  EXPECT_STREQ("", f.text());
}

std::string Printf(long long id, double qnt) {
  char buf[512];
  snprintf(buf, sizeof buf, "(%lld:%.3lf)", id, qnt);
  return buf;
}

}  // namespace

// --- The text grammar -----------------------------------------------------

TEST(KformulaGrammar, EmptyTextHasNoComponent) {
  kformula f;
  EXPECT_EQ(0, f.set(""));
  EXPECT_EQ(0, f.count());
  EXPECT_EQ(0, f.parse(nullptr, nullptr));
  EXPECT_STREQ("", f.text());
}

TEST(KformulaGrammar, NullTextHasNoComponent) {
  kformula f;
  EXPECT_EQ(0, f.set(nullptr));
  EXPECT_EQ(0, f.count());
}

TEST(KformulaGrammar, NewFormulaIsEmpty) {
  kformula f;
  EXPECT_EQ(0, f.count());
  EXPECT_STREQ("", f.text());
}

TEST(KformulaGrammar, BlankTextHasNoComponent) {
  kformula f;
  EXPECT_EQ(0, f.set("   "));
  EXPECT_EQ(0, f.set(" \t\r\n "));
}

TEST(KformulaGrammar, TwoComponentsInTextOrder) {
  kformula f;
  EXPECT_EQ(2, f.set("(12:3.500)(7:0.250)"));
  EXPECT_EQ((Components{{12, 3.5}, {7, 0.25}}), Read(f));
}

TEST(KformulaGrammar, BlankBetweenAndFractionWithoutLeadingDigit) {
  kformula f;
  EXPECT_EQ(2, f.set("(12:3.5) (7:.25)"));
  EXPECT_EQ((Components{{12, 3.5}, {7, 0.25}}), Read(f));
}

TEST(KformulaGrammar, TabsAndLineEndsAroundComponents) {
  kformula f;
  EXPECT_EQ(3, f.set("\n\t(1:1)\r\n(2:2)\t \t(3:3)\n"));
  EXPECT_EQ((Components{{1, 1.0}, {2, 2.0}, {3, 3.0}}), Read(f));
}

TEST(KformulaGrammar, BlanksInsideBracketsAroundNumbers) {
  kformula f;
  EXPECT_EQ(1, f.set("( 12 :\t3.5 )"));
  EXPECT_EQ((Components{{12, 3.5}}), Read(f));
}

TEST(KformulaGrammar, SignedKeysAndQuantities) {
  kformula f;
  EXPECT_EQ(3, f.set("(-5:-1.25)(+6:+2)(0:-.5)"));
  EXPECT_EQ((Components{{-5, -1.25}, {6, 2.0}, {0, -0.5}}), Read(f));
}

TEST(KformulaGrammar, WholeQuantityAndTrailingPoint) {
  kformula f;
  EXPECT_EQ(2, f.set("(3:4)(5:6.)"));
  EXPECT_EQ((Components{{3, 4.0}, {5, 6.0}}), Read(f));
}

TEST(KformulaGrammar, LeadingZerosInKey) {
  kformula f;
  EXPECT_EQ(1, f.set("(0000000000000000000000000042:007.50)"));
  EXPECT_EQ((Components{{42, 7.5}}), Read(f));
}

TEST(KformulaGrammar, UnbalancedBracketIsMalformed) { ExpectMalformed("(12:3.5"); }
TEST(KformulaGrammar, MissingColonIsMalformed) { ExpectMalformed("(12 3.5)"); }
TEST(KformulaGrammar, MissingQuantityIsMalformed) { ExpectMalformed("(12:)"); }
TEST(KformulaGrammar, MissingKeyIsMalformed) { ExpectMalformed("(:1.0)"); }
TEST(KformulaGrammar, EmptyBracketsAreMalformed) { ExpectMalformed("()"); }
TEST(KformulaGrammar, NonNumericKeyIsMalformed) { ExpectMalformed("(AB:1.0)"); }
TEST(KformulaGrammar, FractionalKeyIsMalformed) { ExpectMalformed("(1.5:1.0)"); }
TEST(KformulaGrammar, NestedBracketsAreMalformed) { ExpectMalformed("((1:1))"); }
TEST(KformulaGrammar, ExtraClosingBracketIsMalformed) { ExpectMalformed("(1:1.0))"); }
TEST(KformulaGrammar, TextBeforeComponentIsMalformed) { ExpectMalformed("x(1:1)"); }
TEST(KformulaGrammar, TextAfterComponentIsMalformed) { ExpectMalformed("(1:1)x"); }
TEST(KformulaGrammar, TextBetweenComponentsIsMalformed) { ExpectMalformed("(1:1),(2:2)"); }
TEST(KformulaGrammar, ExponentIsMalformed) { ExpectMalformed("(1:1e3)"); }
TEST(KformulaGrammar, NanIsMalformed) { ExpectMalformed("(1:nan)"); }
TEST(KformulaGrammar, InfinityIsMalformed) { ExpectMalformed("(1:inf)"); }
TEST(KformulaGrammar, LonePointIsMalformed) { ExpectMalformed("(1:.)"); }
TEST(KformulaGrammar, SignWithoutDigitsIsMalformed) { ExpectMalformed("(1:-)"); }
TEST(KformulaGrammar, BlankAfterSignIsMalformed) { ExpectMalformed("(- 1:1)"); }
TEST(KformulaGrammar, TwoSignsAreMalformed) { ExpectMalformed("(1:--1)"); }
TEST(KformulaGrammar, SecondPointIsMalformed) { ExpectMalformed("(1:1.2.3)"); }
TEST(KformulaGrammar, SecondColonIsMalformed) { ExpectMalformed("(1:2:3)"); }
TEST(KformulaGrammar, HexKeyIsMalformed) { ExpectMalformed("(0x1F:1)"); }
TEST(KformulaGrammar, CommaAsDecimalPointIsMalformed) { ExpectMalformed("(1:2,5)"); }
TEST(KformulaGrammar, LoneClosingBracketIsMalformed) { ExpectMalformed(")"); }

TEST(KformulaGrammar, KeyAtSigned64BitLimitsParses) {
  kformula f;
  EXPECT_EQ(2, f.set("(9223372036854775807:1)(-9223372036854775808:2)"));
  Components c = Read(f);
  ASSERT_EQ(2u, c.size());
  EXPECT_EQ(9223372036854775807LL, c[0].first);
  EXPECT_EQ(-9223372036854775807LL - 1, c[1].first);
}

TEST(KformulaGrammar, KeyAboveSigned64BitIsMalformed) {
  ExpectMalformed("(9223372036854775808:1)");
}

TEST(KformulaGrammar, KeyBelowSigned64BitIsMalformed) {
  ExpectMalformed("(-9223372036854775809:1)");
}

TEST(KformulaGrammar, VeryLongKeyIsMalformed) {
  ExpectMalformed(("(" + std::string(5000, '9') + ":1)").c_str());
}

TEST(KformulaGrammar, HugeQuantityWrittenAsDigitsIsFinite) {
  kformula f;
  std::string text = "(1:1" + std::string(30, '0') + ")";
  EXPECT_EQ(1, f.set(text.c_str()));
  Components c = Read(f);
  ASSERT_EQ(1u, c.size());
  EXPECT_TRUE(isfinite(c[0].second));
  EXPECT_DOUBLE_EQ(1e30, c[0].second);
}

TEST(KformulaGrammar, QuantityBeyondDoubleRangeIsMalformed) {
  ExpectMalformed(("(1:" + std::string(400, '9') + ")").c_str());
}

TEST(KformulaGrammar, LongFractionParses) {
  kformula f;
  std::string text = "(1:0." + std::string(5000, '3') + ")";
  EXPECT_EQ(1, f.set(text.c_str()));
  EXPECT_DOUBLE_EQ(1.0 / 3.0, Read(f)[0].second);
}

TEST(KformulaGrammar, TenThousandComponentsParse) {
  std::string text;
  for (int i = 1; i <= 10000; ++i) {
    text += "(" + std::to_string(i) + ":" + std::to_string(i) + ".5)";
  }
  kformula f;
  EXPECT_EQ(10000, f.set(text.c_str()));
  Components c = Read(f);
  ASSERT_EQ(10000u, c.size());
  EXPECT_EQ(std::make_pair(1LL, 1.5), c.front());
  EXPECT_EQ(std::make_pair(5000LL, 5000.5), c[4999]);
  EXPECT_EQ(std::make_pair(10000LL, 10000.5), c.back());
}

TEST(KformulaGrammar, DeepOpeningBracketsAreMalformedWithoutCrash) {
  ExpectMalformed(std::string(200000, '(').c_str());
}

TEST(KformulaGrammar, MalformedTextEmptiesAnEarlierFormula) {
  kformula f;
  ASSERT_EQ(2, f.set("(1:1)(2:2)"));
  EXPECT_EQ(-1, f.set("(1:1)(2:"));
  EXPECT_EQ(-1, f.parse(nullptr, nullptr));
  EXPECT_STREQ("", f.text());
}

TEST(KformulaGrammar, ValidTextAfterMalformedOneIsRead) {
  kformula f;
  ASSERT_EQ(-1, f.set("junk"));
  EXPECT_EQ(1, f.set("(4:2.25)"));
  EXPECT_EQ((Components{{4, 2.25}}), Read(f));
}

// Every short text over the formula alphabet is accepted exactly when it
// matches the grammar written as a regular expression, and then has one
// component per opening bracket.
TEST(KformulaGrammar, AgreesWithRegularExpressionOnGeneratedTexts) {
  const std::regex grammar(
      R"(^[ \t\r\n]*(\([ \t\r\n]*[+-]?[0-9]+[ \t\r\n]*:[ \t\r\n]*)"
      R"([+-]?([0-9]+\.?[0-9]*|\.[0-9]+)[ \t\r\n]*\)[ \t\r\n]*)*$)");
  const char alphabet[] = "()():::0159.-+ \tx";
  const size_t letters = sizeof alphabet - 1;
  unsigned long long seed = 12345;
  int accepted = 0;
  for (int round = 0; round < 30000; ++round) {
    seed = seed * 6364136223846793005ULL + 1442695040888963407ULL;
    size_t length = 1 + (seed >> 60) % 14;
    std::string text;
    // Half of the texts start from a valid component to reach deeper.
    if (round % 2 == 0) text = "(12:3.5)";
    for (size_t i = 0; i < length; ++i) {
      seed = seed * 6364136223846793005ULL + 1442695040888963407ULL;
      text += alphabet[(seed >> 33) % letters];
    }
    kformula f;
    int n = f.set(text.c_str());
    bool matches = std::regex_match(text, grammar);
    ASSERT_EQ(matches, n >= 0) << "text: [" << text << "]";
    if (matches) {
      ++accepted;
      long opens = std::count(text.begin(), text.end(), '(');
      ASSERT_EQ(opens, n) << "text: [" << text << "]";
    }
  }
  EXPECT_GT(accepted, 100);
}

// --- parse ------------------------------------------------------------------

TEST(KformulaParse, CopiesIdsOnlyOrQuantitiesOnly) {
  kformula f;
  ASSERT_EQ(2, f.set("(3:1.5)(4:2.5)"));
  long long ids[2] = {0, 0};
  double qnts[2] = {0, 0};
  EXPECT_EQ(2, f.parse(ids, nullptr));
  EXPECT_EQ(3, ids[0]);
  EXPECT_EQ(4, ids[1]);
  EXPECT_EQ(2, f.parse(nullptr, qnts));
  EXPECT_EQ(1.5, qnts[0]);
  EXPECT_EQ(2.5, qnts[1]);
}

// --- resize -----------------------------------------------------------------

TEST(KformulaResize, ScalesEveryQuantity) {
  kformula f;
  ASSERT_EQ(2, f.set("(1:10)(2:3)"));
  EXPECT_EQ(2, f.resize(100.0, 250.0, 3, 0));
  EXPECT_EQ((Components{{1, 25.0}, {2, 7.5}}), Read(f));
}

TEST(KformulaResize, RoundsToDecimals) {
  kformula f;
  ASSERT_EQ(2, f.set("(1:1)(2:2)"));
  EXPECT_EQ(2, f.resize(3.0, 1.0, 2, 0));
  Components c = Read(f);
  EXPECT_DOUBLE_EQ(0.33, c[0].second);
  EXPECT_DOUBLE_EQ(0.67, c[1].second);
}

TEST(KformulaResize, HalvesRoundAwayFromZero) {
  kformula f;
  ASSERT_EQ(2, f.set("(1:2.5)(2:-2.5)"));
  EXPECT_EQ(2, f.resize(1.0, 1.0, 0, 0));
  EXPECT_EQ((Components{{1, 3.0}, {2, -3.0}}), Read(f));
}

TEST(KformulaResize, FifteenDecimalsKeepTheValue) {
  kformula f;
  ASSERT_EQ(1, f.set("(1:0.123456789012345)"));
  EXPECT_EQ(1, f.resize(1.0, 1.0, 15, 0));
  EXPECT_DOUBLE_EQ(0.123456789012345, Read(f)[0].second);
}

TEST(KformulaResize, NegativeResultRoundedToZeroIsPlainZero) {
  kformula f;
  ASSERT_EQ(1, f.set("(1:-0.001)"));
  EXPECT_EQ(1, f.resize(1.0, 1.0, 2, 0));
  EXPECT_STREQ("(1:0.000)", f.text());
}

TEST(KformulaResize, EmptyFormulaAnswersZero) {
  kformula f;
  EXPECT_EQ(0, f.resize(1.0, 2.0, 3, 0));
}

TEST(KformulaResize, RefusesZeroFrom) {
  kformula f;
  ASSERT_EQ(1, f.set("(1:2.5)"));
  EXPECT_EQ(-1, f.resize(0.0, 2.0, 3, 0));
  EXPECT_EQ((Components{{1, 2.5}}), Read(f));
}

TEST(KformulaResize, RefusesNonFiniteFromOrTo) {
  kformula f;
  ASSERT_EQ(1, f.set("(1:2.5)"));
  EXPECT_EQ(-1, f.resize(NAN, 2.0, 3, 0));
  EXPECT_EQ(-1, f.resize(INFINITY, 2.0, 3, 0));
  EXPECT_EQ(-1, f.resize(1.0, NAN, 3, 0));
  EXPECT_EQ(-1, f.resize(1.0, -INFINITY, 3, 0));
  EXPECT_EQ((Components{{1, 2.5}}), Read(f));
}

TEST(KformulaResize, RefusesDecimalsOutOfRange) {
  kformula f;
  ASSERT_EQ(1, f.set("(1:2.5)"));
  EXPECT_EQ(-1, f.resize(1.0, 2.0, -1, 0));
  EXPECT_EQ(-1, f.resize(1.0, 2.0, 16, 0));
  EXPECT_EQ((Components{{1, 2.5}}), Read(f));
}

TEST(KformulaResize, RefusesAResultBeyondDoubleRange) {
  kformula f;
  std::string text = "(1:1)(2:1" + std::string(300, '0') + ")";
  ASSERT_EQ(2, f.set(text.c_str()));
  EXPECT_EQ(-1, f.resize(1e-200, 1e200, 3, 0));
  Components c = Read(f);
  EXPECT_EQ(1.0, c[0].second);
  EXPECT_DOUBLE_EQ(1e300, c[1].second);
}

TEST(KformulaResize, MalformedFormulaIsRefused) {
  kformula f;
  ASSERT_EQ(-1, f.set("(1:"));
  EXPECT_EQ(-1, f.resize(1.0, 2.0, 3, 0));
}

// --- add --------------------------------------------------------------------

TEST(KformulaAdd, AppendsInOrder) {
  kformula f;
  EXPECT_EQ(1, f.add(5, 1.5, 0, 0));
  EXPECT_EQ(2, f.add(-3, 2.0, 0, 0));
  EXPECT_EQ((Components{{5, 1.5}, {-3, 2.0}}), Read(f));
}

TEST(KformulaAdd, AppendsAfterParsedComponents) {
  kformula f;
  ASSERT_EQ(1, f.set("(1:1)"));
  EXPECT_EQ(2, f.add(2, 0.5, 0, 0));
  EXPECT_EQ((Components{{1, 1.0}, {2, 0.5}}), Read(f));
}

TEST(KformulaAdd, RefusesNonFiniteQuantity) {
  kformula f;
  ASSERT_EQ(1, f.add(1, 1.0, 0, 0));
  EXPECT_EQ(-1, f.add(2, NAN, 0, 0));
  EXPECT_EQ(-1, f.add(2, INFINITY, 0, 0));
  EXPECT_EQ(1, f.count());
}

TEST(KformulaAdd, RefusedOnMalformedFormula) {
  kformula f;
  ASSERT_EQ(-1, f.set("(1"));
  EXPECT_EQ(-1, f.add(1, 1.0, 0, 0));
  EXPECT_EQ(-1, f.count());
}

// --- text -------------------------------------------------------------------

TEST(KformulaText, WritesThreeDecimalsPerComponent) {
  kformula f;
  ASSERT_EQ(2, f.set("(12:3.5) (7:.25)"));
  EXPECT_STREQ("(12:3.500)(7:0.250)", f.text());
}

TEST(KformulaText, MatchesPrintfForAwkwardValues) {
  const double values[] = {0.0005, -2.0005, 123456.789, 1e30, 0.1, -0.0,
                           1.0 / 3.0, 9007199254740993.0};
  kformula f;
  std::string expected;
  long long id = -4;
  for (double v : values) {
    ASSERT_GT(f.add(id, v, 0, 0), 0);
    expected += Printf(id, v);
    id += 1000000000000LL;
  }
  EXPECT_EQ(expected, f.text());
}

TEST(KformulaText, ReadsBackToTheSameComponents) {
  kformula f;
  ASSERT_EQ(3, f.set("(-9223372036854775807:1.25)(0:0)(42:-17.125)"));
  std::string text = f.text();
  kformula g;
  EXPECT_EQ(3, g.set(text.c_str()));
  EXPECT_EQ(Read(f), Read(g));
}

TEST(KformulaText, PointerStaysValidWhileUnchanged) {
  kformula f;
  ASSERT_EQ(1, f.set("(1:2)"));
  const char* first = f.text();
  EXPECT_EQ(first, f.text());
  EXPECT_STREQ("(1:2.000)", first);
}

TEST(KformulaText, FollowsChanges) {
  kformula f;
  ASSERT_EQ(1, f.set("(1:2)"));
  EXPECT_STREQ("(1:2.000)", f.text());
  f.add(3, 4.5, 0, 0);
  EXPECT_STREQ("(1:2.000)(3:4.500)", f.text());
  f.resize(1.0, 2.0, 3, 0);
  EXPECT_STREQ("(1:4.000)(3:9.000)", f.text());
  f.set("");
  EXPECT_STREQ("", f.text());
}

// --- Zu_Frm -----------------------------------------------------------------

TEST(ZuFrm, NameIsEmptyUntilSet) {
  Zu_Frm f;
  EXPECT_STREQ("", f.Name());
}

TEST(ZuFrm, KeepsItsOwnCopyOfTheName) {
  Zu_Frm f;
  char source[] = "Ocean blue";
  f.SetName(source);
  source[0] = 'X';
  EXPECT_STREQ("Ocean blue", f.Name());
}

TEST(ZuFrm, ReplacesAndClearsTheName) {
  Zu_Frm f;
  f.SetName("first");
  f.SetName("second, a longer name");
  EXPECT_STREQ("second, a longer name", f.Name());
  f.SetName(nullptr);
  EXPECT_STREQ("", f.Name());
}

TEST(ZuFrm, NameSetFromItselfSurvives) {
  Zu_Frm f;
  f.SetName("same");
  f.SetName(f.Name());
  EXPECT_STREQ("same", f.Name());
}

TEST(ZuFrm, IsAFormula) {
  Zu_Frm f;
  f.SetName("name");
  EXPECT_EQ(2, f.set("(1:1)(2:2)"));
  EXPECT_STREQ("(1:1.000)(2:2.000)", f.text());
  EXPECT_STREQ("name", f.Name());
}

// --- The comma list ---------------------------------------------------------

TEST(KformulaCommaList, OneComponent) {
  kformula f;
  EXPECT_EQ(1, f.set("5,12.500"));
  EXPECT_EQ((Components{{5, 12.5}}), Read(f));
}

TEST(KformulaCommaList, SeveralComponentsWithTrailingCommaAndBlanks) {
  kformula f;
  EXPECT_EQ(2, f.set(" 3, 12.500 ,7,0.800, "));
  EXPECT_EQ((Components{{3, 12.5}, {7, 0.8}}), Read(f));
}

TEST(KformulaCommaList, KeyWithoutQuantityIsMalformed) { ExpectMalformed("3,12.5,7"); }

TEST(KformulaCommaList, OtherSeparatorIsMalformed) { ExpectMalformed("3;12.5"); }

TEST(KformulaCommaList, TwoTrailingCommasAreMalformed) { ExpectMalformed("3,12.5,,"); }

TEST(KformulaCommaList, MixedWithBracketsIsMalformed) { ExpectMalformed("3,12.5(4:1.0)"); }
