// The host's trace sink: standard error, or the file named by QSLAVE_TRACE.
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <string>

#include "host/qdsp32.h"

namespace {

void (*g_hook)(const char*) = nullptr;

std::string Format(const char* fmt, va_list args) {
  va_list copy;
  va_copy(copy, args);
  int len = vsnprintf(nullptr, 0, fmt, copy);
  va_end(copy);
  if (len < 0) return std::string();
  std::string text(static_cast<size_t>(len) + 1, '\0');
  vsnprintf(&text[0], text.size(), fmt, args);
  text.resize(static_cast<size_t>(len));
  return text;
}

void WriteAll(FILE* out, const char* text, size_t length) {
  fwrite(text, 1, length, out);
  fflush(out);
}

}  // namespace

// A trace never fails its caller. A text that cannot be had whole for want
// of memory is written as its leading part from a fixed buffer, and a hook
// that throws loses that one message.
extern "C" void TarvoTrace(const char* fmt, ...) {
  if (fmt == nullptr) return;
  va_list args;
  va_start(args, fmt);
  va_list spare;
  va_copy(spare, args);
  // Most lines fit a buffer of the stack: formatted once, there.
  std::string text;
  char local[512] = "";
  const char* message = local;
  const int n = vsnprintf(local, sizeof local, fmt, args);
  size_t length = n < 0 ? 0 : static_cast<size_t>(n);
  if (length >= sizeof local) {
    try {
      text = Format(fmt, spare);
      message = text.c_str();
      length = text.size();
    } catch (...) {
      length = sizeof local - 1;  // the leading part that fitted
    }
  }
  va_end(spare);
  va_end(args);

  if (g_hook != nullptr) {
    try {
      g_hook(message);
    } catch (...) {
    }
    return;
  }
  const char* file = getenv("QSLAVE_TRACE");
  if (file != nullptr && *file != '\0') {
    FILE* out = fopen(file, "a");
    if (out != nullptr) {
      WriteAll(out, message, length);
      fclose(out);
      return;
    }
  }
  WriteAll(stderr, message, length);
}

extern "C" void TarvoTraceSetHook(void (*hook)(const char*)) { g_hook = hook; }
