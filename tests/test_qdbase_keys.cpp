// The key expressions of Qdbase's indexes (refhost/qdb/key_expression.h),
// evaluated on raw records without a file.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "key_expression.h"

namespace {

using qdb::KeyExpression;
using qdb::KeyField;
using qdb::KeyValue;

// A record: deletion flag, DISP_ID C(5), TANK N(3,0), QTY N(8,3), ON L(1).
const std::vector<KeyField> kFields = {
    {"DISP_ID", 'C', 1, 5}, {"TANK", 'N', 6, 3}, {"QTY", 'N', 9, 8}, {"ON", 'L', 17, 1}};
const char kRecord[] = "    12  7   1.500T";

KeyValue Eval(const std::string& text) {
  KeyExpression e;
  std::string error;
  EXPECT_TRUE(e.Compile(text, kFields, &error)) << text << ": " << error;
  return e.Evaluate(kRecord);
}

std::string Error(const std::string& text) {
  KeyExpression e;
  std::string error;
  EXPECT_FALSE(e.Compile(text, kFields, &error)) << text;
  EXPECT_FALSE(e.IsCompiled());
  return error;
}

TEST(QdbaseKeys, FieldsGiveTextsAndNumbers) {
  KeyValue v = Eval("DISP_ID");
  EXPECT_TRUE(v.isText);
  EXPECT_EQ("   12", v.text);
  v = Eval("tank");
  EXPECT_FALSE(v.isText);
  EXPECT_EQ(7.0, v.number);
  v = Eval("ON");
  EXPECT_TRUE(v.isText);
  EXPECT_EQ("T", v.text);
}

TEST(QdbaseKeys, ArithmeticAndPrecedence) {
  EXPECT_EQ(12007.0, Eval("VAL(DISP_ID)*1000+TANK").number);
  EXPECT_EQ(12007.0, Eval(" val ( disp_id ) * 1000 + tank ").number);
  EXPECT_EQ(7 + 2 * 3, Eval("TANK+2*3").number);
  EXPECT_EQ((7 + 2) * 3, Eval("(TANK+2)*3").number);
  EXPECT_DOUBLE_EQ(1.5 * 2, Eval("QTY*2").number);
  EXPECT_DOUBLE_EQ(0.5, Eval(".5").number);
}

TEST(QdbaseKeys, StrLikeDbase) {
  EXPECT_EQ("    7", Eval("STR(TANK,5)").text);
  EXPECT_EQ("  1.50", Eval("STR(QTY,6,2)").text);
  EXPECT_EQ("    2", Eval("STR(QTY,5)").text);  // rounded half away from zero
  EXPECT_EQ("    3", qdb::DbaseStr(2.5, 5, 0));
  EXPECT_EQ("**", Eval("STR(TANK*100,2)").text);  // does not fit
  EXPECT_EQ("   12    7", Eval("DISP_ID+STR(TANK,5)").text);
  EXPECT_EQ("    0", qdb::DbaseStr(-0.2, 5, 0));
  EXPECT_EQ("   -1", qdb::DbaseStr(-0.5, 5, 0));
}

TEST(QdbaseKeys, ValLikeDbase) {
  EXPECT_EQ(12.0, qdb::DbaseVal("   12", 5));
  EXPECT_EQ(-3.5, qdb::DbaseVal(" -3.5abc", 8));
  EXPECT_EQ(0.0, qdb::DbaseVal("abc", 3));
  EXPECT_EQ(0.0, qdb::DbaseVal("     ", 5));
  EXPECT_EQ(0.0, qdb::DbaseVal("", 0));
}

TEST(QdbaseKeys, TextComparisonPadsWithBlanks) {
  EXPECT_EQ(0, qdb::CompareTexts("ab", "ab   "));
  EXPECT_LT(qdb::CompareTexts("    3", "   12"), 0);
  EXPECT_LT(qdb::CompareTexts("a", "b"), 0);
  EXPECT_GT(qdb::CompareTexts("\xe9", "z"), 0);  // bytes compare unsigned
  EXPECT_GT(qdb::CompareTexts("ab", "ab\x01"), 0);  // the padding is a blank
}

// VAL of a number is the number: a dispenser id keys alike whether a table
// stores it as digits in a text (C) or as a number (N).
TEST(QdbaseKeys, ValOfANumberIsTheNumber) {
  KeyValue v = Eval("VAL(TANK)");
  EXPECT_FALSE(v.isText);
  EXPECT_EQ(Eval("TANK").number, v.number);
  EXPECT_EQ(Eval("TANK").number * 1001, Eval("VAL(TANK)*1000+TANK").number);
}

TEST(QdbaseKeys, ErrorsNameTheProblem) {
  EXPECT_NE(std::string::npos, Error("NOSUCH").find("unknown field NOSUCH"));
  EXPECT_NE(std::string::npos, Error("DISP_ID*2").find("'*'"));
  EXPECT_NE(std::string::npos, Error("TANK+DISP_ID").find("'+'"));
  EXPECT_NE(std::string::npos, Error("VAL(TANK,2)").find("')'"));
  EXPECT_NE(std::string::npos, Error("STR(DISP_ID,5)").find("STR"));
  EXPECT_NE(std::string::npos, Error("STR(TANK,256)").find("STR"));
  EXPECT_NE(std::string::npos, Error("STR(TANK,5,6)").find("STR"));
  EXPECT_NE(std::string::npos, Error("LEFT(DISP_ID,2)").find("unknown function"));
  EXPECT_FALSE(Error("").empty());
  EXPECT_FALSE(Error("TANK TANK").empty());
  EXPECT_FALSE(Error("(TANK").empty());
  EXPECT_FALSE(Error("TANK)").empty());
  EXPECT_FALSE(Error("TANK-1").empty());
  EXPECT_FALSE(Error("TANK+").empty());
}

TEST(QdbaseKeys, MemoFieldsCannotBeKeys) {
  std::vector<KeyField> fields = {{"NOTES", 'M', 1, 10}};
  KeyExpression e;
  std::string error;
  EXPECT_FALSE(e.Compile("NOTES", fields, &error));
  EXPECT_NE(std::string::npos, error.find("NOTES"));
}

}  // namespace
