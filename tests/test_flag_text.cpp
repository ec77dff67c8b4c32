// The flag text primitives (bit_turnup, bit_turndn, bit_check) that read and
// change the '0'/'1' characters of option and status texts, and the level
// verdict slave_test_level shared by every level check.
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <limits>

#include "slave.h"

namespace {

// A flag text inside a larger buffer whose bytes after the terminator are
// known, so that a write past the end of the text shows.
struct Guarded {
  char buf[16];
  explicit Guarded(const char* text) {
    memset(buf, 'Z', sizeof buf);
    strcpy(buf, text);
  }
  // The bytes from the start of the buffer up to and including the first
  // byte after the terminator.
  std::string Bytes() const {
    return std::string(buf, strlen(buf) + 2);
  }
};

// --- bit_check -------------------------------------------------------------

TEST(BitCheck, CharacterZeroIsOff) {
  char text[] = "0101";
  EXPECT_EQ(bit_check(text, 0), 0);
  EXPECT_EQ(bit_check(text, 2), 0);
}

TEST(BitCheck, CharacterOneIsOn) {
  char text[] = "0101";
  EXPECT_EQ(bit_check(text, 1), 1);
  EXPECT_EQ(bit_check(text, 3), 1);
}

TEST(BitCheck, AnyCharacterOtherThanZeroIsOn) {
  // Only '0' means off: a blank, a letter or a '2' all read as on.
  char text[] = "2 x0";
  EXPECT_EQ(bit_check(text, 0), 1);
  EXPECT_EQ(bit_check(text, 1), 1);
  EXPECT_EQ(bit_check(text, 2), 1);
  EXPECT_EQ(bit_check(text, 3), 0);
}

TEST(BitCheck, PositionTwoOfATwoCharacterTextIsUnknown) {
  char text[] = "01";
  EXPECT_EQ(bit_check(text, 2), -1);
}

TEST(BitCheck, PositionsPastTheEndAreUnknown) {
  char text[] = "01";
  EXPECT_EQ(bit_check(text, 3), -1);
  EXPECT_EQ(bit_check(text, 100), -1);
}

TEST(BitCheck, NegativePositionIsUnknown) {
  char text[] = "11";
  EXPECT_EQ(bit_check(text, -1), -1);
}

TEST(BitCheck, NullTextIsUnknown) {
  EXPECT_EQ(bit_check(nullptr, 0), -1);
}

TEST(BitCheck, EmptyTextIsUnknownEverywhere) {
  char text[] = "";
  EXPECT_EQ(bit_check(text, 0), -1);
}

TEST(BitCheck, ShortStatusTextReportsBitOneUnknown) {
  // A STATUS_FLG holding only "1": the simultaneous bit is on, the
  // suspended bit cannot be told.
  char text[] = "1";
  EXPECT_EQ(bit_check(text, TNK_SIM), 1);
  EXPECT_EQ(bit_check(text, TNK_SUSP), -1);
}

// --- bit_turnup / bit_turndn ----------------------------------------------

TEST(BitTurnUp, SetsTheCharacter) {
  Guarded g("0000");
  bit_turnup(g.buf, 2);
  EXPECT_STREQ(g.buf, "0010");
  bit_turnup(g.buf, 0);
  EXPECT_STREQ(g.buf, "1010");
}

TEST(BitTurnUp, AlreadyOnStaysOn) {
  Guarded g("0100");
  bit_turnup(g.buf, 1);
  EXPECT_STREQ(g.buf, "0100");
}

TEST(BitTurnUp, ReplacesAnyCharacterByOne) {
  Guarded g("0 00");
  bit_turnup(g.buf, 1);
  EXPECT_STREQ(g.buf, "0100");
}

TEST(BitTurnUp, PositionAtTheEndChangesNothing) {
  Guarded g("01");
  std::string before = g.Bytes();
  bit_turnup(g.buf, 2);
  EXPECT_EQ(g.Bytes(), before);
}

TEST(BitTurnUp, PositionPastTheEndChangesNothing) {
  Guarded g("01");
  std::string before = g.Bytes();
  bit_turnup(g.buf, 3);
  EXPECT_EQ(g.Bytes(), before);
}

TEST(BitTurnUp, NegativePositionChangesNothing) {
  Guarded g("00");
  std::string before = g.Bytes();
  bit_turnup(g.buf, -1);
  EXPECT_EQ(g.Bytes(), before);
}

TEST(BitTurnUp, NullTextIsIgnored) {
  bit_turnup(nullptr, 0);
  SUCCEED();
}

TEST(BitTurnDown, ClearsTheCharacter) {
  Guarded g("1111");
  bit_turndn(g.buf, 1);
  EXPECT_STREQ(g.buf, "1011");
  bit_turndn(g.buf, 3);
  EXPECT_STREQ(g.buf, "1010");
}

TEST(BitTurnDown, AlreadyOffStaysOff) {
  Guarded g("1011");
  bit_turndn(g.buf, 1);
  EXPECT_STREQ(g.buf, "1011");
}

TEST(BitTurnDown, PositionAtTheEndChangesNothing) {
  Guarded g("11");
  std::string before = g.Bytes();
  bit_turndn(g.buf, 2);
  EXPECT_EQ(g.Bytes(), before);
}

TEST(BitTurnDown, PositionPastTheEndChangesNothing) {
  Guarded g("11");
  std::string before = g.Bytes();
  bit_turndn(g.buf, 7);
  EXPECT_EQ(g.Bytes(), before);
}

TEST(BitTurnDown, NegativePositionChangesNothing) {
  Guarded g("11");
  std::string before = g.Bytes();
  bit_turndn(g.buf, -2);
  EXPECT_EQ(g.Bytes(), before);
}

TEST(BitTurnDown, NullTextIsIgnored) {
  bit_turndn(nullptr, 0);
  SUCCEED();
}

TEST(BitPrimitives, UpThenDownRestoresTheText) {
  Guarded g("10000000");
  bit_turnup(g.buf, TNK_SUSP);
  EXPECT_EQ(bit_check(g.buf, TNK_SUSP), 1);
  EXPECT_STREQ(g.buf, "11000000");
  bit_turndn(g.buf, TNK_SUSP);
  EXPECT_EQ(bit_check(g.buf, TNK_SUSP), 0);
  EXPECT_STREQ(g.buf, "10000000");
}

// --- slave_test_level -------------------------------------------------------

TEST(TestLevel, TwiceTheReserveLeftIsTwo) {
  EXPECT_EQ(slave_test_level(10, 5), 2);
}

TEST(TestLevel, JustUnderTwiceTheReserveIsOne) {
  EXPECT_EQ(slave_test_level(9.9, 5), 1);
}

TEST(TestLevel, UnderTheReserveIsZero) {
  EXPECT_EQ(slave_test_level(4, 5), 0);
}

TEST(TestLevel, PreciselyTheReserveIsOne) {
  EXPECT_EQ(slave_test_level(5, 5), 1);
}

TEST(TestLevel, MoreThanTwiceTheReserveIsTwo) {
  EXPECT_EQ(slave_test_level(250, 5), 2);
}

TEST(TestLevel, WithNoReserveAnyNonNegativeLeftIsTwo) {
  EXPECT_EQ(slave_test_level(0, 0), 2);
  EXPECT_EQ(slave_test_level(3.5, 0), 2);
  EXPECT_EQ(slave_test_level(1e-9, 0), 2);
}

TEST(TestLevel, WithNoReserveANegativeLeftIsZero) {
  // Taking more than the tank holds leaves a negative quantity, which is
  // less than a reserve of 0.
  EXPECT_EQ(slave_test_level(-0.5, 0), 0);
}

TEST(TestLevel, NegativeLeftUnderAPositiveReserveIsZero) {
  EXPECT_EQ(slave_test_level(-20, 10), 0);
}

TEST(TestLevel, NotANumberLeftIsZero) {
  // Every comparison with NaN is false, so the verdict is the lowest: an
  // unknown level is never reported as sufficient.
  EXPECT_EQ(slave_test_level(std::numeric_limits<double>::quiet_NaN(), 5), 0);
}

}  // namespace
