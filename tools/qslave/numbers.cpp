#include "numbers.h"

#include <errno.h>
#include <stdlib.h>

#include <cctype>
#include <cmath>

bool ParseLongInRange(const std::string& text, long min, long max, long* value) {
  if (text.empty()) return false;
  const unsigned char first = static_cast<unsigned char>(text[0]);
  // strtol skips leading blanks; a number given here has none.
  if (!isdigit(first) && first != '-' && first != '+') return false;
  errno = 0;
  char* end = nullptr;
  const long parsed = strtol(text.c_str(), &end, 10);
  if (errno != 0 || end == text.c_str() || *end != '\0') return false;
  if (parsed < min || parsed > max) return false;
  *value = parsed;
  return true;
}

bool ParseFiniteDouble(const std::string& text, double* value) {
  if (text.empty()) return false;
  // strtod also reads blanks, hexadecimal, "nan" and "inf": none of them is
  // a quantity a technician types.
  for (char c : text) {
    if (!isdigit(static_cast<unsigned char>(c)) && c != '+' && c != '-' &&
        c != '.' && c != 'e' && c != 'E') {
      return false;
    }
  }
  errno = 0;
  char* end = nullptr;
  const double parsed = strtod(text.c_str(), &end);
  if (errno != 0 || end == text.c_str() || *end != '\0') return false;
  if (!std::isfinite(parsed)) return false;
  *value = parsed;
  return true;
}
