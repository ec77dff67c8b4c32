// Where the library's trace goes while the tool runs. With --trace every
// trace message (TarvoTrace, and through it slave::Message's command
// lines) is written to standard error, one message per line; without it the
// messages are dropped, so that the tool's own output stays readable.
#ifndef QSLAVE_CLI_TRACE_SINK_H
#define QSLAVE_CLI_TRACE_SINK_H

void InstallTraceSink(bool show);

#endif
