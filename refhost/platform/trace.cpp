// The host's trace sink: standard error, or the file named by QSLAVE_TRACE.
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

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

void WriteAll(FILE* out, const std::string& text) {
  fwrite(text.data(), 1, text.size(), out);
  fflush(out);
}

}  // namespace

extern "C" void TarvoTrace(const char* fmt, ...) {
  if (fmt == nullptr) return;
  va_list args;
  va_start(args, fmt);
  std::string text = Format(fmt, args);
  va_end(args);

  if (g_hook != nullptr) {
    g_hook(text.c_str());
    return;
  }
  const char* file = getenv("QSLAVE_TRACE");
  if (file != nullptr && *file != '\0') {
    FILE* out = fopen(file, "a");
    if (out != nullptr) {
      WriteAll(out, text);
      fclose(out);
      return;
    }
  }
  WriteAll(stderr, text);
}

extern "C" void TarvoTraceSetHook(void (*hook)(const char*)) { g_hook = hook; }
