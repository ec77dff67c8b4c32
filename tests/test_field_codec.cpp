// Numbers as the table class reads and writes them: the quick ways of
// reading a number text and of writing a fixed number of decimals give,
// byte for byte and bit for bit, what the C library's strtod and "%.*f"
// give, over many values of every size.
#include <gtest/gtest.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>

#include "field_codec.h"

namespace {

// What the table class wrote before it had a quicker way: rounded half away
// from zero to the decimals, printed with "%.*f", no negative zero.
std::string Reference(double v, int decimals) {
  const double p = pow(10.0, decimals);
  if (fabs(v * p) < 4503599627370496.0) {
    const double units = v * p < 0 ? -floor(-v * p + 0.5) : floor(v * p + 0.5);
    v = units / p;
  }
  if (v == 0.0) v = 0.0;
  char buf[400];
  snprintf(buf, sizeof buf, "%.*f", decimals, v);
  std::string s(buf);
  if (s[0] == '-' && s.find_first_not_of("-0.") == std::string::npos) s.erase(0, 1);
  return s;
}

TEST(FieldCodec, FixedDecimalsAreWhatPrintfWrites) {
  std::mt19937_64 random(12345);
  std::uniform_real_distribution<double> scale(-12.0, 12.0);
  for (int i = 0; i < 200000; ++i) {
    const double magnitude = pow(10.0, scale(random));
    const double v = (random() & 1 ? -1 : 1) * magnitude * std::uniform_real_distribution<double>(0, 1)(random);
    const int decimals = static_cast<int>(random() % 8);
    ASSERT_EQ(Reference(v, decimals), qdb::FormatFixed(v, decimals)) << v << " " << decimals;
  }
  for (double v : {0.0, -0.0, 0.0005, -0.0005, 1.0005, 2.5, -2.5, 123456789.125, 1e15, 1e20}) {
    for (int d = 0; d <= 6; ++d) EXPECT_EQ(Reference(v, d), qdb::FormatFixed(v, d)) << v;
  }
}

TEST(FieldCodec, NumberTextsReadAsStrtodReadsThem) {
  std::mt19937_64 random(54321);
  for (int i = 0; i < 200000; ++i) {
    const int digits = 1 + static_cast<int>(random() % 19);
    std::string text;
    if (random() % 3 == 0) text += random() % 2 ? "-" : "+";
    const int point = static_cast<int>(random() % (digits + 1));
    for (int k = 0; k < digits; ++k) {
      if (k == point && random() % 2) text += ".";
      text += static_cast<char>('0' + random() % 10);
    }
    qdb::FieldNumber n;
    ASSERT_TRUE(qdb::ParseNumberText(text.data(), text.size(), &n)) << text;
    const double expected = strtod(text.c_str(), nullptr);
    ASSERT_EQ(expected == 0.0 ? 0.0 : expected, n.value) << text;
    if (n.integral && n.wholeExact) {
      ASSERT_EQ(strtoll(text.c_str(), nullptr, 10), n.whole) << text;
    }
  }
  qdb::FieldNumber n;
  ASSERT_TRUE(qdb::ParseNumberText("  -0.000 ", 9, &n));
  EXPECT_EQ(0.0, n.value);
  EXPECT_FALSE(std::signbit(n.value));
  ASSERT_TRUE(qdb::ParseNumberText("    ", 4, &n));
  EXPECT_TRUE(n.blank);
  EXPECT_FALSE(qdb::ParseNumberText("1.2.3", 5, &n));
  EXPECT_FALSE(qdb::ParseNumberText("12a", 3, &n));
}

// A number right-aligned as dBase writes it reads exactly as the same text
// padded on the right, which is read the general way: every part of the
// reading is the same (value and its sign, whole number, flags).
TEST(FieldCodec, RightAlignedNumbersReadAsAnyOtherText) {
  std::mt19937_64 random(2468);
  int compared = 0;
  for (int i = 0; i < 200000; ++i) {
    std::string text(random() % 6, ' ');
    if (random() % 3 == 0) text += "-";
    // Up to 24 digits: past 15 the text is read by the general reader only.
    const int digits = 1 + static_cast<int>(random() % 24);
    const int point = static_cast<int>(random() % (digits + 2));
    for (int k = 0; k < digits; ++k) {
      if (k == point) text += ".";
      // Leading zeros now and then, which count as digits of the text.
      text += static_cast<char>('0' + (random() % 4 == 0 ? 0 : random() % 10));
    }
    if (point == digits) text += ".";
    qdb::FieldNumber plain;
    qdb::FieldNumber padded;
    const std::string withPad = text + (random() % 2 ? " " : std::string(1, '\0'));
    ASSERT_TRUE(qdb::ParseNumberText(text.data(), text.size(), &plain)) << text;
    ASSERT_TRUE(qdb::ParseNumberText(withPad.data(), withPad.size(), &padded)) << text;
    ASSERT_EQ(strtod(text.c_str(), nullptr) == 0.0 ? 0.0 : strtod(text.c_str(), nullptr), plain.value)
        << text;
    ASSERT_EQ(padded.value, plain.value) << text;
    ASSERT_EQ(std::signbit(padded.value), std::signbit(plain.value)) << text;
    ASSERT_EQ(padded.integral, plain.integral) << text;
    ASSERT_EQ(text.find('.') == std::string::npos, plain.integral) << text;
    ASSERT_EQ(padded.wholeExact, plain.wholeExact) << text;
    if (plain.wholeExact) {
      ASSERT_EQ(padded.whole, plain.whole) << text;
      ASSERT_EQ(strtoll(text.c_str(), nullptr, 10), plain.whole) << text;
    }
    ASSERT_FALSE(plain.blank) << text;
    ++compared;
  }
  EXPECT_EQ(200000, compared);
  // Not numbers in either form.
  qdb::FieldNumber n;
  for (const char* bad : {"  -", "   .", " -.", "1-", " 1 2", "--1", "1..", " 12e3", "0x10"}) {
    EXPECT_FALSE(qdb::ParseNumberText(bad, strlen(bad), &n)) << bad;
  }
}

// The shortcut a write takes to know a value changes: whenever it says
// "another value", the bytes the write stores read as another value.
TEST(FieldCodec, CertainlyAnotherValueOnlyWhenTheStoredValueDiffers) {
  qdb::DbfField f;
  f.type = 'N';
  f.width = 14;
  qdb::FieldNumber before;
  before.value = 1.0;
  f.decimals = 3;
  EXPECT_FALSE(qdb::CertainlyAnotherValue(f, before, 1.0004));
  EXPECT_FALSE(qdb::CertainlyAnotherValue(f, before, 1.001));   // one unit: read to tell
  EXPECT_TRUE(qdb::CertainlyAnotherValue(f, before, 1.0011));
  EXPECT_TRUE(qdb::CertainlyAnotherValue(f, before, 0.998));
  before.blank = true;
  EXPECT_FALSE(qdb::CertainlyAnotherValue(f, before, 500.0));  // blank: read to tell
  before.blank = false;
  f.type = 'C';
  EXPECT_FALSE(qdb::CertainlyAnotherValue(f, before, 500.0));  // text: read to tell

  f.type = 'N';
  std::mt19937_64 random(777);
  std::uniform_real_distribution<double> unit(-3.0, 3.0);
  int said = 0;
  for (int i = 0; i < 200000; ++i) {
    f.decimals = static_cast<int>(random() % 6);
    const double step = pow(10.0, -f.decimals);
    before.value = std::round(unit(random) * 1000.0) * step;
    const double v = before.value + unit(random) * step;
    if (!qdb::CertainlyAnotherValue(f, before, v)) continue;
    ++said;
    std::string bytes;
    ASSERT_TRUE(qdb::EncodeNumber(f, v, &bytes));
    qdb::FieldNumber stored;
    ASSERT_TRUE(qdb::ParseNumberText(bytes.data(), bytes.size(), &stored));
    ASSERT_NE(stored.value, before.value) << before.value << " -> " << v << " " << f.decimals;
  }
  EXPECT_GT(said, 50000);
}

}  // namespace
