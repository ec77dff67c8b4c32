#include "field_codec.h"

#include <errno.h>
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace qdb {

namespace {

// Longest number text read; dBase numbers are at most 20 wide, and a text
// field holding more significant characters holds no number we could use.
constexpr size_t kLongestNumber = 63;

bool IsPad(char c) { return c == ' ' || c == '\0' || c == '\t'; }

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

template <typename T>
T LoadLittle(const char* p) {
  T value = 0;
  for (size_t i = 0; i < sizeof(T); ++i) {
    value |= static_cast<T>(static_cast<unsigned char>(p[i])) << (8 * i);
  }
  return value;
}

template <typename T>
std::string StoreLittle(T value) {
  std::string bytes(sizeof(T), '\0');
  for (size_t i = 0; i < sizeof(T); ++i) {
    bytes[i] = static_cast<char>((value >> (8 * i)) & 0xFF);
  }
  return bytes;
}

double LoadDouble(const char* p) {
  const uint64_t bits = LoadLittle<uint64_t>(p);
  double v;
  memcpy(&v, &bits, sizeof v);
  return v;
}

std::string StoreDouble(double v) {
  uint64_t bits;
  memcpy(&bits, &v, sizeof bits);
  return StoreLittle<uint64_t>(bits);
}

double RoundAway(double v) { return v < 0 ? -floor(-v + 0.5) : floor(v + 0.5); }

// The shortest plain text that reads back as v (at most 15 decimals).
std::string FormatShortest(double v) {
  for (int d = 0; d <= 15; ++d) {
    std::string s = FormatFixed(v, d);
    if (s.empty() || strtod(s.c_str(), nullptr) == v) return s;
  }
  return FormatFixed(v, 15);
}

bool RightAligned(const std::string& text, int width, std::string* bytes) {
  if (text.empty() || static_cast<int>(text.size()) > width) return false;
  *bytes = std::string(static_cast<size_t>(width) - text.size(), ' ') + text;
  return true;
}

// Powers of ten a double holds exactly.
constexpr double kExactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                   1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                   1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// Adds the digits from *p on to *mantissa; answers how many there were.
// Past 19 digits the sum wraps (it is unsigned): the caller refuses more
// than 15 anyway.
size_t AddDigits(const char** p, const char* end, uint64_t* mantissa) {
  const char* const first = *p;
  uint64_t m = *mantissa;
  const char* q = first;
  for (; q < end && IsDigit(*q); ++q) m = m * 10 + static_cast<uint64_t>(*q - '0');
  *mantissa = m;
  *p = q;
  return static_cast<size_t>(q - first);
}

// A number in the form dBase writes it: blanks on the left, an optional
// '-', then up to 15 digits with at most one decimal point among or after
// them, up to the end of the text. Read as a whole count of units of its
// last decimal, divided once by an exact power of ten: what strtod gives.
// False, with nothing read, for a text in any other form.
bool ParseRightAlignedNumber(const char* s, size_t len, FieldNumber* out) {
  const char* p = s;
  const char* const end = s + len;
  while (p < end && *p == ' ') ++p;
  const bool negative = p < end && *p == '-';
  if (negative) ++p;
  // The digits before the point, then those after it.
  uint64_t mantissa = 0;
  const size_t whole = AddDigits(&p, end, &mantissa);
  const bool point = p < end && *p == '.';
  size_t decimals = 0;
  if (point) {
    ++p;
    decimals = AddDigits(&p, end, &mantissa);
  }
  if (p != end) return false;
  const size_t digits = whole + decimals;
  if (digits == 0 || digits > 15) return false;
  const double value = static_cast<double>(mantissa) / kExactPowers[decimals];
  // No negative zero: "-0" and "-0.00" read 0.
  out->value = negative && mantissa != 0 ? -value : value;
  out->integral = !point;
  out->whole = negative ? -static_cast<long long>(mantissa) : static_cast<long long>(mantissa);
  out->wholeExact = !point;
  out->blank = false;
  return true;
}

}  // namespace

bool ParseNumberText(const char* s, size_t len, FieldNumber* out) {
  // Most numbers are stored as dBase writes them; any other text (padded on
  // the right, with a '+', NULs or tabs, more digits) is read below.
  if (ParseRightAlignedNumber(s, len, out)) return true;
  size_t b = 0, e = len;
  while (b < e && IsPad(s[b])) ++b;
  while (e > b && IsPad(s[e - 1])) --e;
  *out = FieldNumber();
  if (b == e) {
    out->blank = true;
    return true;
  }
  if (e - b > kLongestNumber) return false;
  // One pass checks the text and gathers its digits: the whole part, then
  // the decimals. Up to 15 significant digits and 22 decimals make an
  // integer a double holds exactly, and one division by an exact power of
  // ten rounds it as strtod does; any other text is read by strtod (the
  // digits gathered then are not used).
  const char* p = s + b;
  const char* end = s + e;
  const bool negative = *p == '-';
  if (*p == '-' || *p == '+') ++p;
  uint64_t mantissa = 0;
  const char* digitsFrom = p;
  while (p < end && *p == '0') ++p;  // leading zeros are not significant
  const char* significantFrom = p;
  for (; p < end && IsDigit(*p); ++p) mantissa = mantissa * 10 + static_cast<uint64_t>(*p - '0');
  long significant = p - significantFrom;
  bool digits = p > digitsFrom;
  const bool point = p < end && *p == '.';
  long decimals = 0;
  if (point) {
    const char* decimalsFrom = ++p;
    if (mantissa == 0) {
      while (p < end && *p == '0') ++p;
    }
    const char* countedFrom = p;
    for (; p < end && IsDigit(*p); ++p) mantissa = mantissa * 10 + static_cast<uint64_t>(*p - '0');
    decimals = p - decimalsFrom;
    significant += p - countedFrom;
    digits = digits || decimals > 0;
  }
  if (p != end || !digits) return false;  // another character, or no digit
  out->integral = !point;
  if (significant <= 15 && decimals <= 22) {
    const double value = static_cast<double>(mantissa) / kExactPowers[decimals];
    out->value = value == 0.0 ? 0.0 : (negative ? -value : value);
    out->whole = negative ? -static_cast<long long>(mantissa) : static_cast<long long>(mantissa);
    out->wholeExact = !point;
    return true;
  }
  char text[kLongestNumber + 1];
  memcpy(text, s + b, e - b);
  text[e - b] = '\0';
  const double v = strtod(text, nullptr);
  if (!isfinite(v)) return false;
  out->value = v == 0.0 ? 0.0 : v;
  if (out->integral) {
    errno = 0;
    out->whole = strtoll(text, nullptr, 10);
    out->wholeExact = errno != ERANGE;
  } else {
    out->wholeExact = false;
  }
  return true;
}

bool IsNull(const DbfLayout& layout, const DbfField& f, const char* record) {
  if (f.nullBit < 0 || layout.nullFlagsField < 0) return false;
  const DbfField& flags = layout.fields[static_cast<size_t>(layout.nullFlagsField)];
  const unsigned char byte = static_cast<unsigned char>(record[flags.offset + f.nullBit / 8]);
  return (byte >> (f.nullBit % 8)) & 1;
}

bool HoldsNumbers(const DbfField& f) {
  switch (f.type) {
    case 'N': case 'F': case 'C': case 'I': case 'B': case 'Y': return true;
    default: return false;
  }
}

bool DecodeNumber(const DbfLayout& layout, const DbfField& f, const char* record,
                  FieldNumber* out) {
  const char* p = record + f.offset;
  const bool null = IsNull(layout, f, record);
  // A number stored as text goes to the text reader, which fills *out
  // itself; the binary kinds start from an empty number.
  if (!null && (f.type == 'N' || f.type == 'F' || f.type == 'C')) {
    return ParseNumberText(p, static_cast<size_t>(f.width), out);
  }
  *out = FieldNumber();
  if (!HoldsNumbers(f)) return false;
  if (null) {
    out->blank = true;
    return true;
  }
  switch (f.type) {
    case 'I': {
      const int32_t v = static_cast<int32_t>(LoadLittle<uint32_t>(p));
      out->whole = v;
      out->value = v;
      return true;
    }
    case 'B': {
      const double v = LoadDouble(p);
      if (!isfinite(v)) return false;
      out->value = v == 0.0 ? 0.0 : v;
      out->integral = v == trunc(v);
      out->wholeExact = out->integral && fabs(v) < 9.2e18;
      if (out->wholeExact) out->whole = static_cast<long long>(v);
      return true;
    }
    case 'Y': {
      const int64_t units = static_cast<int64_t>(LoadLittle<uint64_t>(p));
      out->value = static_cast<double>(units) / 10000.0;
      out->integral = units % 10000 == 0;
      out->whole = units / 10000;
      out->wholeExact = out->integral;
      return true;
    }
    default:
      return false;
  }
}

namespace {

// Writes the digits of a whole number m, with a decimal point before its
// last `decimals` digits ("-1.250" for -1250 and 3), so that they end right
// before end; answers how many characters it wrote (at most 24).
int FixedDigitsBefore(long long m, int decimals, char* end) {
  char* p = end;
  unsigned long long u = m < 0 ? 0ULL - static_cast<unsigned long long>(m)
                               : static_cast<unsigned long long>(m);
  int written = 0;
  do {
    if (written == decimals && decimals > 0) *--p = '.';
    *--p = static_cast<char>('0' + u % 10);
    u /= 10;
    ++written;
  } while (u != 0 || written <= decimals);
  if (m < 0) *--p = '-';
  return static_cast<int>(end - p);
}

// The units of the last decimal of v (v rounded half away from zero to the
// decimals, times 10^decimals) when they are a whole number well within a
// double's exact integers: then their digits are what "%.*f" prints.
bool WholeUnits(double v, int decimals, long long* units) {
  if (decimals < 0 || decimals > 15) return false;
  const double u = RoundAway(v * kExactPowers[decimals]);
  if (!(fabs(u) < 1125899906842624.0)) return false;  // 2^50
  *units = static_cast<long long>(u);
  return true;
}

}  // namespace

std::string FormatFixed(double v, int decimals) {
  if (!isfinite(v)) return std::string();
  const double p = decimals >= 0 && decimals <= 22 ? kExactPowers[decimals] : pow(10.0, decimals);
  // The digits of the whole units: what "%.*f" prints, without its cost.
  long long units = 0;
  if (WholeUnits(v, decimals, &units)) {
    char buf[32];
    const int n = FixedDigitsBefore(units, decimals, buf + sizeof buf);
    return std::string(buf + sizeof buf - n, static_cast<size_t>(n));
  }
  if (fabs(v * p) < 4503599627370496.0) v = RoundAway(v * p) / p;
  if (v == 0.0) v = 0.0;  // no negative zero
  char buf[400];
  const int len = snprintf(buf, sizeof buf, "%.*f", decimals, v);
  if (len < 0 || len >= static_cast<int>(sizeof buf)) return std::string();
  std::string s(buf, static_cast<size_t>(len));
  // "-0.000" after rounding: drop the sign.
  if (s[0] == '-' && s.find_first_not_of("-0.") == std::string::npos) s.erase(0, 1);
  return s;
}

bool EncodeNumber(const DbfField& f, double v, std::string* bytes) {
  if (!isfinite(v)) return false;
  switch (f.type) {
    case 'N': case 'F': {
      long long units = 0;
      if (WholeUnits(v, f.decimals, &units)) {
        // The digits end the field, blanks before them: put together in
        // place and given in one piece. A number field's width is one byte
        // of its header, so the buffer holds any; one wider is refused.
        char buf[256 + 32];
        char* const end = buf + sizeof buf;
        const int n = FixedDigitsBefore(units, f.decimals, end);
        if (n > f.width || f.width > 255) return false;
        memset(end - f.width, ' ', static_cast<size_t>(f.width - n));
        bytes->assign(end - f.width, static_cast<size_t>(f.width));
        return true;
      }
      return RightAligned(FormatFixed(v, f.decimals), f.width, bytes);
    }
    case 'C': return RightAligned(FormatShortest(v), f.width, bytes);
    case 'I': {
      const double r = RoundAway(v);
      if (r < -2147483648.0 || r > 2147483647.0) return false;
      *bytes = StoreLittle<uint32_t>(static_cast<uint32_t>(static_cast<int32_t>(r)));
      return true;
    }
    case 'B':
      *bytes = StoreDouble(v == 0.0 ? 0.0 : v);
      return true;
    case 'Y': {
      const double units = RoundAway(v * 10000.0);
      if (!(units > -9.2e18 && units < 9.2e18)) return false;
      *bytes = StoreLittle<uint64_t>(static_cast<uint64_t>(static_cast<int64_t>(units)));
      return true;
    }
    default:
      return false;
  }
}

bool CertainlyAnotherValue(const DbfField& f, const FieldNumber& before, double v) {
  if ((f.type != 'N' && f.type != 'F') || before.blank || f.decimals < 0 || f.decimals > 22) {
    return false;
  }
  return fabs(before.value - v) * kExactPowers[f.decimals] > 1.0;
}

bool EncodeWhole(const DbfField& f, long long v, std::string* bytes) {
  switch (f.type) {
    case 'N': case 'F': {
      std::string digits = std::to_string(v);
      if (f.decimals > 0) digits += "." + std::string(static_cast<size_t>(f.decimals), '0');
      return RightAligned(digits, f.width, bytes);
    }
    case 'C': return RightAligned(std::to_string(v), f.width, bytes);
    case 'I': {
      if (v < INT32_MIN || v > INT32_MAX) return false;
      *bytes = StoreLittle<uint32_t>(static_cast<uint32_t>(static_cast<int32_t>(v)));
      return true;
    }
    case 'Y': {
      if (v < INT64_MIN / 10000 || v > INT64_MAX / 10000) return false;
      *bytes = StoreLittle<uint64_t>(static_cast<uint64_t>(static_cast<int64_t>(v) * 10000));
      return true;
    }
    case 'B': return EncodeNumber(f, static_cast<double>(v), bytes);
    default: return false;
  }
}

}  // namespace qdb
