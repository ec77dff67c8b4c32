// Where the library's trace goes while the tool runs.
//  - With --trace every trace message (TarvoTrace, and through it
//    slave::Message's command lines) is written to standard error, one
//    message per line.
//  - When QSLAVE_TRACE names a file, every message is appended to it, as
//    the reference host does for any program.
//  - The simulated dispenser's complaints about its rules file (a file
//    that cannot be read, a malformed line) reach standard error always:
//    without them a mistyped rules file silently gives a healthy machine.
//    With --json they are listed in the document's "warnings" as well.
// Other messages are dropped, so that the tool's own output stays
// readable.
#ifndef QSLAVE_CLI_TRACE_SINK_H
#define QSLAVE_CLI_TRACE_SINK_H

#include <string>

void InstallTraceSink(bool show);

// While one lives, the simulator's complaints are not shown again (for a
// program that creates drivers over and over, as serve does); everything
// else goes where it always goes.
class QuietSimulatorComplaints {
 public:
  QuietSimulatorComplaints();
  ~QuietSimulatorComplaints();
  QuietSimulatorComplaints(const QuietSimulatorComplaints&) = delete;
  QuietSimulatorComplaints& operator=(const QuietSimulatorComplaints&) = delete;
};

// While one lives, every trace message is collected instead (the library's
// reports, slave::Dump and its kin, are written to the trace). Text() is
// the messages joined, as the library wrote them. On destruction the sink
// of InstallTraceSink is back.
class TraceCapture {
 public:
  TraceCapture();
  ~TraceCapture();
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  const std::string& Text() const;
};

#endif
