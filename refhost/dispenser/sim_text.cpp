#include "sim_text.h"

#include <charconv>
#include <cmath>
#include <cstdint>

namespace qsim {

bool ParseInt(const std::string& text, int* value) {
  const char* first = text.data();
  const char* last = first + text.size();
  int parsed = 0;
  std::from_chars_result r = std::from_chars(first, last, parsed);
  if (r.ec != std::errc() || r.ptr != last) return false;
  *value = parsed;
  return true;
}

bool ParseDouble(const std::string& text, double* value) {
  const char* first = text.data();
  const char* last = first + text.size();
  double parsed = 0.0;
  std::from_chars_result r =
      std::from_chars(first, last, parsed, std::chars_format::fixed);
  if (r.ec != std::errc() || r.ptr != last || !std::isfinite(parsed)) {
    return false;
  }
  *value = parsed;
  return true;
}

std::vector<std::string> SplitBlanks(const std::string& text) {
  std::vector<std::string> words;
  std::size_t i = 0;
  while (i < text.size()) {
    while (i < text.size() && IsBlank(text[i])) ++i;
    std::size_t start = i;
    while (i < text.size() && !IsBlank(text[i])) ++i;
    if (i > start) words.push_back(text.substr(start, i - start));
  }
  return words;
}

std::string Fixed3(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  // The largest double written with three decimals takes 313 characters.
  char buf[400];
  std::to_chars_result r = std::to_chars(buf, buf + sizeof buf, value,
                                         std::chars_format::fixed, 3);
  if (r.ec != std::errc()) return "?";
  return std::string(buf, r.ptr);
}

namespace {

// Length of the sequence a lead byte starts (0: not a lead byte) and the
// smallest code point that length may encode, so over-long forms are
// refused.
int SequenceLength(unsigned char lead, std::uint32_t* min) {
  if (lead < 0x80) { *min = 0; return 1; }
  if ((lead & 0xE0) == 0xC0) { *min = 0x80; return 2; }
  if ((lead & 0xF0) == 0xE0) { *min = 0x800; return 3; }
  if ((lead & 0xF8) == 0xF0) { *min = 0x10000; return 4; }
  return 0;
}

}  // namespace

bool DecodeUtf8(const std::string& text, std::wstring* out) {
  std::wstring decoded;
  std::size_t i = 0;
  while (i < text.size()) {
    unsigned char lead = static_cast<unsigned char>(text[i]);
    std::uint32_t min = 0;
    int len = SequenceLength(lead, &min);
    if (len == 0 || i + len > text.size()) return false;
    std::uint32_t cp = len == 1 ? lead : (lead & (0x7F >> len));
    for (int k = 1; k < len; ++k) {
      unsigned char next = static_cast<unsigned char>(text[i + k]);
      if ((next & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (next & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
      return false;
    }
    decoded.push_back(static_cast<wchar_t>(cp));
    i += len;
  }
  *out = decoded;
  return true;
}

}  // namespace qsim
