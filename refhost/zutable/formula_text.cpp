// The formula text scanner: one pass, no recursion, so neither the length of
// a text nor its nesting can exhaust the stack.
#include "formula_text.h"

#include <charconv>
#include <cmath>
#include <new>
#include <string>
#include <system_error>

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

const char* SkipBlanks(const char* p) {
  while (IsBlank(*p)) ++p;
  return p;
}

// Reads [+-]digits at *p into *id; advances *p past it. The magnitude is
// accumulated unsigned so that the most negative 64-bit value is accepted
// and anything beyond is refused before it can overflow.
bool ScanKey(const char** p, long long* id) {
  const char* s = *p;
  bool negative = false;
  if (*s == '+' || *s == '-') negative = *s++ == '-';
  if (!IsDigit(*s)) return false;
  const unsigned long long limit =
      negative ? 9223372036854775808ULL : 9223372036854775807ULL;
  unsigned long long magnitude = 0;
  for (; IsDigit(*s); ++s) {
    unsigned digit = static_cast<unsigned>(*s - '0');
    if (magnitude > (limit - digit) / 10) return false;
    magnitude = magnitude * 10 + digit;
  }
  if (negative) {
    *id = magnitude == 9223372036854775808ULL
              ? (-9223372036854775807LL - 1)
              : -static_cast<long long>(magnitude);
  } else {
    *id = static_cast<long long>(magnitude);
  }
  *p = s;
  return true;
}

// Reads [+-]digits[.digits] or [+-].digits at *p into *qnt. The syntax is
// checked here; from_chars does the conversion because it ignores the
// process locale (a host running with a decimal comma still reads '.').
bool ScanQuantity(const char** p, double* qnt) {
  const char* s = *p;
  bool negative = false;
  if (*s == '+' || *s == '-') negative = *s++ == '-';
  const char* number = s;
  bool digits = false;
  while (IsDigit(*s)) { ++s; digits = true; }
  if (*s == '.') {
    ++s;
    while (IsDigit(*s)) { ++s; digits = true; }
  }
  if (!digits) return false;

  double value = 0.0;
  std::from_chars_result r =
      std::from_chars(number, s, value, std::chars_format::fixed);
  if (r.ec != std::errc() || r.ptr != s || !std::isfinite(value)) return false;
  *qnt = negative ? -value : value;
  *p = s;
  return true;
}

// Reads one "(key:quantity)" starting at the '(' at *p.
bool ScanComponent(const char** p, FormulaComponent* c) {
  const char* s = *p + 1;
  s = SkipBlanks(s);
  if (!ScanKey(&s, &c->id)) return false;
  s = SkipBlanks(s);
  if (*s++ != ':') return false;
  s = SkipBlanks(s);
  if (!ScanQuantity(&s, &c->qnt)) return false;
  s = SkipBlanks(s);
  if (*s++ != ')') return false;
  *p = s;
  return true;
}

// Reads "key,quantity[,key,quantity]...[,]", the comma list in which
// drivers and host programs also write formulas.
bool ScanCommaList(const char* p, std::vector<FormulaComponent>* out) {
  for (;;) {
    FormulaComponent c;
    p = SkipBlanks(p);
    if (!ScanKey(&p, &c.id)) return false;
    p = SkipBlanks(p);
    if (*p++ != ',') return false;
    p = SkipBlanks(p);
    if (!ScanQuantity(&p, &c.qnt)) return false;
    out->push_back(c);
    p = SkipBlanks(p);
    if (*p == '\0') return true;
    if (*p++ != ',') return false;
    p = SkipBlanks(p);
    if (*p == '\0') return true;  // a trailing comma ends the list
  }
}

}  // namespace

bool ParseFormulaText(const char* text, std::vector<FormulaComponent>* out) {
  out->clear();
  if (text == nullptr) return true;
  try {
    const char* start = SkipBlanks(text);
    if (*start != '\0' && *start != '(') {
      if (ScanCommaList(start, out)) return true;
      out->clear();
      return false;
    }
    for (const char* p = start; *p != '\0'; p = SkipBlanks(p)) {
      FormulaComponent c;
      if (*p != '(' || !ScanComponent(&p, &c)) {
        out->clear();
        return false;
      }
      out->push_back(c);
    }
  } catch (const std::bad_alloc&) {
    out->clear();
    return false;
  }
  return true;
}

bool AppendFormulaComponent(const FormulaComponent& c, std::string* out) {
  if (!std::isfinite(c.qnt)) return false;
  // The largest finite double takes 309 digits before the point.
  char buf[400];
  char* end = buf + sizeof buf;
  char* p = buf;
  *p++ = '(';
  std::to_chars_result r = std::to_chars(p, end, c.id);
  if (r.ec != std::errc()) return false;
  p = r.ptr;
  *p++ = ':';
  r = std::to_chars(p, end - 1, c.qnt, std::chars_format::fixed, 3);
  if (r.ec != std::errc()) return false;
  p = r.ptr;
  *p++ = ')';
  try {
    out->append(buf, static_cast<size_t>(p - buf));
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}
