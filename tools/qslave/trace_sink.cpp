#include "trace_sink.h"

#include <stdio.h>
#include <string.h>

#include "host/qdsp32.h"

namespace {

bool g_line_open = false;

void DropTrace(const char*) {}

void ShowTrace(const char* text) {
  const size_t len = strlen(text);
  if (len == 0) return;
  fwrite(text, 1, len, stderr);
  fflush(stderr);
  g_line_open = text[len - 1] != '\n';
}

}  // namespace

void InstallTraceSink(bool show) {
  TarvoTraceSetHook(show ? ShowTrace : DropTrace);
}

void EndTraceLine() {
  if (!g_line_open) return;
  fputc('\n', stderr);
  fflush(stderr);
  g_line_open = false;
}
