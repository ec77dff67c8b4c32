#include "sim_calls.h"

#include <cstdio>

#include "sim_text.h"

namespace qsim {

CallText::CallText(const char* name) : text_(name) { text_ += '('; }

void CallText::Separate() {
  if (!first_) text_ += ',';
  first_ = false;
}

CallText& CallText::Int(long value) {
  Separate();
  text_ += std::to_string(value);
  return *this;
}

CallText& CallText::Real(double value) {
  Separate();
  text_ += Fixed3(value);
  return *this;
}

CallText& CallText::Text(const char* text) {
  Separate();
  if (text != nullptr) text_ += text;
  return *this;
}

CallText& CallText::Char(char c) {
  Separate();
  unsigned char u = static_cast<unsigned char>(c);
  if (u >= 0x20 && u < 0x7F) {
    text_ += c;
  } else {
    char hex[8];
    std::snprintf(hex, sizeof hex, "\\x%02X", u);
    text_ += hex;
  }
  return *this;
}

CallText& CallText::Ints(const int* values, int count) {
  Separate();
  text_ += '[';
  for (int i = 0; values != nullptr && i < count; ++i) {
    if (i > 0) text_ += ',';
    text_ += std::to_string(values[i]);
  }
  text_ += ']';
  return *this;
}

CallText& CallText::Reals(const double* values, int count) {
  Separate();
  text_ += '[';
  for (int i = 0; values != nullptr && i < count; ++i) {
    if (i > 0) text_ += ',';
    text_ += Fixed3(values[i]);
  }
  text_ += ']';
  return *this;
}

CallText& CallText::Unread() {
  Separate();
  text_ += '-';
  return *this;
}

std::string CallText::Done() const { return text_ + ')'; }

}  // namespace qsim
