// The last dosed formula: the copy of the last command text the slave
// dosed, kept according to the host's record mode (0 clear, 1 replace,
// 2 append, anything else: leave it alone).
#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "dispense_fixture.h"

namespace {

class LastDosed : public qtest::DispenseEnv {
 protected:
  void SetUp() override {
    DispenseEnv::SetUp();
    AddDispenser();
    AddTanks({qtest::TankOf(1, 10, 500.0, 10.0, 1000.0)});
  }

  // The stored text as a string ("<null>" when there is none).
  static std::string Stored(slave& s) {
    char* text = s.LastDosedFormula();
    return text == nullptr ? "<null>" : std::string(text);
  }
};

TEST_F(LastDosed, NewSlaveHasNoText) {
  slave s(1);
  EXPECT_EQ(s.LastDosedFormula(), nullptr);
}

TEST_F(LastDosed, ReplaceModeStoresACopy) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(1);
  char text[] = "(1:12.500)";
  s.SetLastDosedFormula(text);
  ASSERT_NE(s.LastDosedFormula(), nullptr);
  EXPECT_NE(s.LastDosedFormula(), text) << "the slave keeps its own copy";
  text[1] = '9';
  EXPECT_EQ(Stored(s), "(1:12.500)");
  s.ClearLastDosedFormula();
}

TEST_F(LastDosed, ReplaceModeReplacesTheOldText) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(1);
  char a[] = "(1:12.500)";
  char b[] = "(2:0.800)";
  s.SetLastDosedFormula(a);
  s.SetLastDosedFormula(b);
  EXPECT_EQ(Stored(s), "(2:0.800)");
  s.ClearLastDosedFormula();
}

TEST_F(LastDosed, ReplaceModeWithNullTextLeavesItCleared) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(1);
  char a[] = "(1:12.500)";
  s.SetLastDosedFormula(a);
  s.SetLastDosedFormula(nullptr);
  EXPECT_EQ(s.LastDosedFormula(), nullptr);
}

TEST_F(LastDosed, AppendModeJoinsTextsWithoutSeparator) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(2);
  char a[] = "(1:1.000)";
  char b[] = "(2:2.000)";
  s.SetLastDosedFormula(a);
  s.SetLastDosedFormula(b);
  EXPECT_EQ(Stored(s), "(1:1.000)(2:2.000)");
  s.ClearLastDosedFormula();
}

TEST_F(LastDosed, AppendModeWithNothingStoredStoresACopy) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(2);
  char a[] = "(1:1.000)";
  s.SetLastDosedFormula(a);
  EXPECT_NE(s.LastDosedFormula(), a);
  EXPECT_EQ(Stored(s), "(1:1.000)");
  s.ClearLastDosedFormula();
}

TEST_F(LastDosed, AppendModeWithNullTextChangesNothing) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(2);
  char a[] = "(1:1.000)";
  s.SetLastDosedFormula(a);
  s.SetLastDosedFormula(nullptr);
  EXPECT_EQ(Stored(s), "(1:1.000)");
  s.ClearLastDosedFormula();
}

TEST_F(LastDosed, AppendModeWithNullTextAndNothingStoredStaysEmpty) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(2);
  s.SetLastDosedFormula(nullptr);
  EXPECT_EQ(s.LastDosedFormula(), nullptr);
}

TEST_F(LastDosed, ClearModeWithTextClearsWhatWasStored) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(1);
  char a[] = "(1:1.000)";
  s.SetLastDosedFormula(a);
  s.SetLastDosedFormulaRecordMode(0);
  char b[] = "(2:2.000)";
  s.SetLastDosedFormula(b);
  EXPECT_EQ(s.LastDosedFormula(), nullptr);
}

TEST_F(LastDosed, SwitchingFromAppendToReplaceKeepsTextUntilNextSet) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(2);
  char a[] = "(1:1.000)";
  char b[] = "(2:2.000)";
  s.SetLastDosedFormula(a);
  s.SetLastDosedFormula(b);
  s.SetLastDosedFormulaRecordMode(1);
  EXPECT_EQ(Stored(s), "(1:1.000)(2:2.000)") << "a mode change does not touch the text";
  char c[] = "(3:3.000)";
  s.SetLastDosedFormula(c);
  EXPECT_EQ(Stored(s), "(3:3.000)");
  s.ClearLastDosedFormula();
}

TEST_F(LastDosed, ModeChangeToClearDoesNotTouchText) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(1);
  char a[] = "(1:1.000)";
  s.SetLastDosedFormula(a);
  s.SetLastDosedFormulaRecordMode(0);
  EXPECT_EQ(Stored(s), "(1:1.000)");
  EXPECT_EQ(s.m_LastDosedMode, 0);
  s.ClearLastDosedFormula();
}

TEST_F(LastDosed, UnknownModeDoesNothing) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(1);
  char a[] = "(1:1.000)";
  s.SetLastDosedFormula(a);
  s.SetLastDosedFormulaRecordMode(3);
  char b[] = "(2:2.000)";
  s.SetLastDosedFormula(b);
  EXPECT_EQ(Stored(s), "(1:1.000)");
  s.SetLastDosedFormula(nullptr);
  EXPECT_EQ(Stored(s), "(1:1.000)");
  s.ClearLastDosedFormula();
}

TEST_F(LastDosed, NegativeModeDoesNothing) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(-1);
  char a[] = "(1:1.000)";
  s.SetLastDosedFormula(a);
  EXPECT_EQ(s.LastDosedFormula(), nullptr);
}

TEST_F(LastDosed, ClearFreesAndNulls) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(1);
  char a[] = "(1:1.000)";
  s.SetLastDosedFormula(a);
  s.ClearLastDosedFormula();
  EXPECT_EQ(s.LastDosedFormula(), nullptr);
  EXPECT_EQ(s.m_LastDosedFrm, nullptr);
  s.ClearLastDosedFormula();  // clearing nothing is harmless
  EXPECT_EQ(s.LastDosedFormula(), nullptr);
}

TEST_F(LastDosed, LastDosedFormulaReturnsTheStoredTextItself) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(1);
  char a[] = "(1:1.000)";
  s.SetLastDosedFormula(a);
  EXPECT_EQ(s.LastDosedFormula(), s.m_LastDosedFrm);
  EXPECT_EQ(s.LastDosedFormula(), s.LastDosedFormula());
  s.ClearLastDosedFormula();
}

TEST_F(LastDosed, AppendModeHandlesLongTexts) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(2);
  std::string piece(300, 'x');
  std::string expected;
  for (int i = 0; i < 5; ++i) {
    s.SetLastDosedFormula(&piece[0]);
    expected += piece;
  }
  EXPECT_EQ(Stored(s), expected);
  s.ClearLastDosedFormula();
}

// A host that repeats what was sent hands back the pointer LastDosedFormula
// gave it: the text is copied before the old one goes.
TEST_F(LastDosed, ReplaceModeWithTheStoredPointerKeepsTheText) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(1);
  char a[] = "(1:1.000)(2:12.500)";
  s.SetLastDosedFormula(a);
  s.SetLastDosedFormula(s.LastDosedFormula());
  EXPECT_EQ(Stored(s), "(1:1.000)(2:12.500)");
  s.ClearLastDosedFormula();
}

TEST_F(LastDosed, ReplaceModeWithTheStoredPointerOfAShortText) {
  slave s(1);
  s.SetLastDosedFormulaRecordMode(1);
  char a[] = "ABCD";
  s.SetLastDosedFormula(a);
  s.SetLastDosedFormula(s.LastDosedFormula());
  EXPECT_EQ(Stored(s), "ABCD");
  s.ClearLastDosedFormula();
}

}  // namespace
