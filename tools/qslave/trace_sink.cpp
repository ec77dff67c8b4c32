#include "trace_sink.h"

#include <stdio.h>

#include <string>

#include "host/qdsp32.h"

namespace {

bool g_show = false;
std::string g_captured;

void DropTrace(const char*) {}

// The library begins each message with a line end instead of ending it
// with one. Shown the other way round, every message is a whole line, and
// the tool's own output, which may share the terminal, never lands in the
// middle of one.
void ShowTrace(const char* text) {
  std::string line = text;
  if (!line.empty() && line[0] == '\n') line.erase(0, 1);
  if (line.empty() || line.back() != '\n') line += '\n';
  fputs(line.c_str(), stderr);
  fflush(stderr);
}

void CaptureTrace(const char* text) { g_captured += text; }

}  // namespace

void InstallTraceSink(bool show) {
  g_show = show;
  TarvoTraceSetHook(show ? ShowTrace : DropTrace);
}

TraceCapture::TraceCapture() {
  g_captured.clear();
  TarvoTraceSetHook(CaptureTrace);
}

TraceCapture::~TraceCapture() { InstallTraceSink(g_show); }

const std::string& TraceCapture::Text() const { return g_captured; }
