// Platform services of the host application: the trace sink, the data
// directory, small text helpers and the loader of the driver layer.
//
// Host library: libqdsp32.so. Every other host library and the qslave
// library itself link against it.
#ifndef QSLAVE_HOST_QDSP32_H
#define QSLAVE_HOST_QDSP32_H

#ifdef __cplusplus
extern "C" {
#endif

// Writes one printf-style message to the host's trace. Messages are written
// unchanged: callers put their own leading "\n". The reference host writes
// to standard error, or appends to the file named by QSLAVE_TRACE when that
// variable is set (read at every call). When a hook is installed with
// TarvoTraceSetHook, the formatted text goes to the hook instead.
void TarvoTrace(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

// Installs a receiver for every formatted trace message (null restores the
// default sink). Used by tests and by embedding programs that keep their own
// log. Not part of the interface the library calls.
void TarvoTraceSetHook(void (*hook)(const char* text));

// Writes the host's local data directory into buf (size bytes, terminator
// included) and returns 1. The reference host answers the directory named by
// QSLAVE_DATA, or the current directory when it is unset. Returns 0 and
// leaves buf empty (when size >= 1) if the path does not fit: a cut path
// would name another directory.
int Zu_LocalPathEx(char* buf, int size);

// 1 when text is null, empty, or holds only blanks, tabs and line ends.
int Zu_StringEmpty(const char* text);

// Unloads (Dsp_QuitLoad) and reloads (Dsp_InitLoad) the host's driver layer
// around a change of serial port. Both return 1. The reference host has no
// layer to reload; it counts the calls so that a host or a test can see the
// order they came in.
int Dsp_InitLoad(void);
int Dsp_QuitLoad(void);

// Reference-host only: the calls made so far, in order, as a text of 'I'
// (Dsp_InitLoad) and 'Q' (Dsp_QuitLoad) characters; the last 255 calls are
// kept. Dsp_LoadCallsReset empties the record.
const char* Dsp_LoadCalls(void);
void Dsp_LoadCallsReset(void);

#ifdef __cplusplus
}
#endif

#endif
