// Translating a formula written with colourant ids into the same bracketed
// form written with colourant codes, for dispensers that address colourants
// by code: codes from the colourant table, scaling, conversion of weights
// to volumes, missing and repeated colourants, the length-only call and
// translations longer than a command buffer.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "library_env.h"

namespace {

using qtest::ColorantRow;
using qtest::CountMatching;
using qtest::SourceRe;
using qtest::StandardDispenser;

const char kNoTableRe[] = "\\(\\d+\\): error \\.\\.\\. unable to open colorant database";

class Translate : public qtest::LibraryEnv {
 protected:
  void AddDispenser() { ASSERT_GT(tables_.AddDispenser(StandardDispenser(1)), 0); }
  void AddColorant(long id, const std::string& code, double spec_w = 1000.0) {
    ColorantRow row;
    row.id = id;
    row.code = code;
    row.descr = "Colourant " + std::to_string(id);
    row.spec_w = spec_w;
    ASSERT_GT(tables_.AddColorant(row), 0);
  }
  void AddStandardColorants() {
    AddColorant(5, "RED", 1250.0);
    AddColorant(7, "BLUE", 800.0);
    AddColorant(9, "DK RED", 1000.0);
  }

  // Translates with the length-only call first, then into a buffer of
  // that length plus one, as callers do; checks that both calls agree and
  // that the text has the length returned.
  std::string TranslateTwice(slave& s, const char* frm, double f, double u, int w) {
    std::string formula = frm;
    int len = s.TranslateFormulaFromCntIdToCntCode(&formula[0], nullptr, f, u, w);
    if (len < 0) {
      ADD_FAILURE() << "translation failed: " << len;
      return "<failed>";
    }
    std::vector<char> out(static_cast<size_t>(len) + 1, 'X');
    int again = s.TranslateFormulaFromCntIdToCntCode(&formula[0], out.data(), f, u, w);
    EXPECT_EQ(again, len);
    EXPECT_EQ(strlen(out.data()), static_cast<size_t>(len));
    return std::string(out.data());
  }
};

TEST_F(Translate, IdsBecomeCodes) {
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  char frm[] = "(5:10)(7:2.5)";
  char out[128];
  memset(out, 'X', sizeof out);
  EXPECT_EQ(s.TranslateFormulaFromCntIdToCntCode(frm, out, 1.0, 1.0, 0), 24);
  EXPECT_STREQ(out, "(RED:10.000)(BLUE:2.500)");
}

TEST_F(Translate, ComponentsKeepTheFormulaOrder) {
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  EXPECT_EQ(TranslateTwice(s, "(7:1)(5:2)", 1.0, 1.0, 0), "(BLUE:1.000)(RED:2.000)");
}

TEST_F(Translate, FormulaTextMayHoldBlanks) {
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  EXPECT_EQ(TranslateTwice(s, " (5:1.5)  (7:2) ", 1.0, 1.0, 0),
            "(RED:1.500)(BLUE:2.000)");
}

TEST_F(Translate, CodesLoseTheirTrailingBlanks) {
  AddDispenser();
  AddStandardColorants();
  AddColorant(11, "ABCDEFGHIJ");  // fills the whole CODE field
  slave s(1);
  EXPECT_EQ(TranslateTwice(s, "(9:1)(11:2)", 1.0, 1.0, 0),
            "(DK RED:1.000)(ABCDEFGHIJ:2.000)");
}

TEST_F(Translate, QuantitiesHaveThreeDecimals) {
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  EXPECT_EQ(TranslateTwice(s, "(5:1.23456)(7:0.0004)", 1.0, 1.0, 0),
            "(RED:1.235)(BLUE:0.000)");
}

TEST_F(Translate, NullOutputGivesTheSameLength) {
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  char frm[] = "(5:10)(7:2.5)(9:0.125)";
  int len = s.TranslateFormulaFromCntIdToCntCode(frm, nullptr, 1.0, 1.0, 0);
  char out[128];
  int again = s.TranslateFormulaFromCntIdToCntCode(frm, out, 1.0, 1.0, 0);
  EXPECT_EQ(len, again);
  EXPECT_EQ(len, static_cast<int>(strlen("(RED:10.000)(BLUE:2.500)(DK RED:0.125)")));
  EXPECT_STREQ(out, "(RED:10.000)(BLUE:2.500)(DK RED:0.125)");
}

// --- Scaling and weights -----------------------------------------------------------

TEST_F(Translate, ScaledByU) {
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  EXPECT_EQ(TranslateTwice(s, "(5:10)(7:2.5)", 1.0, 2.0, 0), "(RED:20.000)(BLUE:5.000)");
}

TEST_F(Translate, ScaledByF) {
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  EXPECT_EQ(TranslateTwice(s, "(5:10)(7:2.5)", 2.0, 1.0, 0), "(RED:20.000)(BLUE:5.000)");
}

TEST_F(Translate, ScaledByTheProductOfFAndU) {
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  EXPECT_EQ(TranslateTwice(s, "(5:10)(7:2.5)", 2.0, 1.5, 0), "(RED:30.000)(BLUE:7.500)");
}

TEST_F(Translate, WeightsBecomeVolumes) {
  // 10 g of a colourant of 1250 g/l is 8 cm3; 2 g of one of 800 g/l is
  // 2.5 cm3.
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  EXPECT_EQ(TranslateTwice(s, "(5:10)(7:2)", 1.0, 1.0, 1), "(RED:8.000)(BLUE:2.500)");
}

TEST_F(Translate, WeightsBecomeVolumesAndAreScaled) {
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  EXPECT_EQ(TranslateTwice(s, "(5:10)(7:2)", 1.0, 3.0, 1), "(RED:24.000)(BLUE:7.500)");
}

TEST_F(Translate, WithoutTheWeightFlagQuantitiesStayWeights) {
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  EXPECT_EQ(TranslateTwice(s, "(5:10)", 1.0, 1.0, 0), "(RED:10.000)");
}

TEST_F(Translate, ColourantWithoutSpecificWeightConvertsToZero) {
  AddDispenser();
  AddStandardColorants();
  AddColorant(12, "NOWT", 0.0);
  slave s(1);
  EXPECT_EQ(TranslateTwice(s, "(12:10)(5:10)", 1.0, 1.0, 1), "(NOWT:0.000)(RED:8.000)");
}

// --- Missing and repeated colourants ------------------------------------------------

TEST_F(Translate, MissingIdsTranslateToTheEmptyText) {
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  char frm[] = "(6:10)(8:2.5)";
  char out[16];
  memset(out, 'X', sizeof out);
  EXPECT_EQ(s.TranslateFormulaFromCntIdToCntCode(frm, nullptr, 1.0, 1.0, 0), 0);
  EXPECT_EQ(s.TranslateFormulaFromCntIdToCntCode(frm, out, 1.0, 1.0, 0), 0);
  EXPECT_STREQ(out, "");
}

TEST_F(Translate, AMissingIdContributesNothing) {
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  EXPECT_EQ(TranslateTwice(s, "(5:1)(6:2)(7:3)", 1.0, 1.0, 0), "(RED:1.000)(BLUE:3.000)");
}

TEST_F(Translate, AnIdTwiceInTheTableGivesTwoPairs) {
  AddDispenser();
  AddColorant(5, "RED");
  AddColorant(7, "BLUE");
  AddColorant(5, "RED2");
  slave s(1);
  std::string text = TranslateTwice(s, "(5:1.5)(7:2)", 1.0, 1.0, 0);
  // The two records of colourant 5 both contribute, before colourant 7.
  EXPECT_TRUE(text == "(RED:1.500)(RED2:1.500)(BLUE:2.000)" ||
              text == "(RED2:1.500)(RED:1.500)(BLUE:2.000)")
      << text;
}

TEST_F(Translate, AnIdTwiceInTheFormulaGivesTwoPairs) {
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  EXPECT_EQ(TranslateTwice(s, "(5:1)(5:2)", 1.0, 1.0, 0), "(RED:1.000)(RED:2.000)");
}

// --- Longer than a command buffer ----------------------------------------------------

TEST_F(Translate, TranslationLongerThan512BytesIsWhole) {
  AddDispenser();
  std::string frm;
  std::string expected;
  for (int id = 1; id <= 100; ++id) {
    char code[16];
    snprintf(code, sizeof code, "COLOUR%03d", id);
    AddColorant(id, code);
    char piece[64];
    snprintf(piece, sizeof piece, "(%d:%d.125)", id, id);
    frm += piece;
    snprintf(piece, sizeof piece, "(%s:%d.125)", code, id);
    expected += piece;
  }
  ASSERT_GT(expected.size(), 1024u);
  slave s(1);
  std::string text = TranslateTwice(s, frm.c_str(), 1.0, 1.0, 0);
  EXPECT_EQ(text.size(), expected.size());
  EXPECT_EQ(text, expected);
}

TEST_F(Translate, TranslationOfJustOver512Bytes) {
  // 31 pairs of 17 characters: 527 bytes.
  AddDispenser();
  std::string frm;
  std::string expected;
  for (int id = 1; id <= 31; ++id) {
    char code[16];
    snprintf(code, sizeof code, "COLOUR%02d", id);
    AddColorant(id, code);
    char piece[64];
    snprintf(piece, sizeof piece, "(%d:12.345)", id);
    frm += piece;
    snprintf(piece, sizeof piece, "(%s:12.345)", code);
    expected += piece;
  }
  ASSERT_EQ(expected.size(), 527u);
  slave s(1);
  std::string formula = frm;
  EXPECT_EQ(s.TranslateFormulaFromCntIdToCntCode(&formula[0], nullptr, 1.0, 1.0, 0), 527);
  EXPECT_EQ(TranslateTwice(s, frm.c_str(), 1.0, 1.0, 0), expected);
}

// --- Failures ---------------------------------------------------------------------------

TEST_F(Translate, MissingColourantTableIsMinusOneWithTrace) {
  AddDispenser();
  slave s(1);
  trace_.clear();
  char frm[] = "(5:10)";
  char out[32] = "";
  EXPECT_EQ(s.TranslateFormulaFromCntIdToCntCode(frm, out, 1.0, 1.0, 0), -1);
  EXPECT_EQ(CountMatching(trace_.messages(), SourceRe("slv_disp") + kNoTableRe), 1)
      << trace_.text();
}

TEST_F(Translate, MissingColourantTableWithNullOutputIsMinusOne) {
  AddDispenser();
  slave s(1);
  trace_.clear();
  char frm[] = "(5:10)";
  EXPECT_EQ(s.TranslateFormulaFromCntIdToCntCode(frm, nullptr, 1.0, 1.0, 0), -1);
  EXPECT_EQ(CountMatching(trace_.messages(), SourceRe("slv_disp") + kNoTableRe), 1)
      << trace_.text();
}

TEST_F(Translate, EmptyColourantTableIsMinusOneWithTrace) {
  AddDispenser();
  ASSERT_TRUE(tables_.CreateColorants());
  slave s(1);
  trace_.clear();
  char frm[] = "(5:10)";
  EXPECT_EQ(s.TranslateFormulaFromCntIdToCntCode(frm, nullptr, 1.0, 1.0, 0), -1);
  EXPECT_EQ(CountMatching(trace_.messages(), SourceRe("slv_disp") + kNoTableRe), 1)
      << trace_.text();
}

TEST_F(Translate, WithoutDispenserIsZeroAndWritesNothing) {
  AddDispenser();
  AddStandardColorants();
  slave s(42);
  char frm[] = "(5:10)";
  char out[16];
  memset(out, 'X', sizeof out);
  out[15] = '\0';
  EXPECT_EQ(s.TranslateFormulaFromCntIdToCntCode(frm, out, 1.0, 1.0, 0), 0);
  EXPECT_STREQ(out, "XXXXXXXXXXXXXXX");
}

TEST_F(Translate, NullFormulaIsZero) {
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  char out[16];
  memset(out, 'X', sizeof out);
  out[15] = '\0';
  EXPECT_EQ(s.TranslateFormulaFromCntIdToCntCode(nullptr, out, 1.0, 1.0, 0), 0);
  EXPECT_EQ(s.TranslateFormulaFromCntIdToCntCode(nullptr, nullptr, 1.0, 1.0, 0), 0);
  EXPECT_STREQ(out, "XXXXXXXXXXXXXXX");
}

TEST_F(Translate, MalformedFormulaIsZero) {
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  char frm[] = "5,12.500,7";
  EXPECT_EQ(s.TranslateFormulaFromCntIdToCntCode(frm, nullptr, 1.0, 1.0, 0), 0);
  char frm2[] = "(5:10)(7:";
  EXPECT_EQ(s.TranslateFormulaFromCntIdToCntCode(frm2, nullptr, 1.0, 1.0, 0), 0);
}

TEST_F(Translate, EmptyFormulaIsTheEmptyText) {
  AddDispenser();
  AddStandardColorants();
  slave s(1);
  char frm[] = "";
  char out[8];
  memset(out, 'X', sizeof out);
  EXPECT_EQ(s.TranslateFormulaFromCntIdToCntCode(frm, out, 1.0, 1.0, 0), 0);
  EXPECT_EQ(out[0], '\0');
}

}  // namespace
