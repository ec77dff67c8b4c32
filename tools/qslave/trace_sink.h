// Where the library's trace goes while the tool runs. With --trace every
// trace message (TarvoTrace, and through it slave::Message's command
// lines) is written to standard error as it comes; without it the messages
// are dropped, so that the tool's own output stays readable.
#ifndef QSLAVE_CLI_TRACE_SINK_H
#define QSLAVE_CLI_TRACE_SINK_H

void InstallTraceSink(bool show);

// The library's messages begin with a line end rather than end with one.
// Ends the open trace line on standard error, if there is one, so that
// whatever the tool writes next starts on a line of its own.
void EndTraceLine();

#endif
