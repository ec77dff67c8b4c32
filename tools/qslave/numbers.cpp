#include "numbers.h"

#include <errno.h>
#include <stdlib.h>

#include <cctype>

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
