#include "trace_sink.h"

#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "host/qdsp32.h"
#include "json_output.h"

namespace {

bool g_show = false;
bool g_quiet_complaints = false;
std::string g_captured;

// The library begins each message with a line end instead of ending it
// with one. Shown the other way round, every message is a whole line, and
// the tool's own output, which may share the terminal, never lands in the
// middle of one.
std::string AsLine(const char* text) {
  std::string line = text;
  if (!line.empty() && line[0] == '\n') line.erase(0, 1);
  if (line.empty() || line.back() != '\n') line += '\n';
  return line;
}

// The host's trace file, read at every message as the host does.
void AppendToTraceFile(const char* text) {
  const char* path = getenv("QSLAVE_TRACE");
  if (path == nullptr || *path == '\0') return;
  FILE* file = fopen(path, "a");
  if (file == nullptr) return;
  fputs(text, file);
  fclose(file);
}

bool IsSimulatorComplaint(const std::string& line) {
  return line.compare(0, 11, "simulator: ") == 0;
}

void Sink(const char* text) {
  AppendToTraceFile(text);
  const std::string line = AsLine(text);
  const bool complaint = IsSimulatorComplaint(line) && !g_quiet_complaints;
  if (complaint && JsonOutput()) {
    Document()["warnings"].push_back(line.substr(0, line.size() - 1));
  }
  if (g_show || complaint) {
    fputs(line.c_str(), stderr);
    fflush(stderr);
  }
}

void CaptureTrace(const char* text) { g_captured += text; }

}  // namespace

void InstallTraceSink(bool show) {
  g_show = show;
  TarvoTraceSetHook(Sink);
}

QuietSimulatorComplaints::QuietSimulatorComplaints() { g_quiet_complaints = true; }

QuietSimulatorComplaints::~QuietSimulatorComplaints() { g_quiet_complaints = false; }

TraceCapture::TraceCapture() {
  g_captured.clear();
  TarvoTraceSetHook(CaptureTrace);
}

TraceCapture::~TraceCapture() { InstallTraceSink(g_show); }

const std::string& TraceCapture::Text() const { return g_captured; }
