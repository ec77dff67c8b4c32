// The command channel to the driver, its trace, the machine's error queue,
// the free trace function `message`, and the firmware generation.
#include <limits.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_fw";

const char* const kResultText[16] = {
    "SUCCESS",
    "ERROR : reading configuration data",
    "ERROR : unknown command",
    "ERROR : in communication protocol",
    "ERROR : command refused",
    "ERROR : process timeout elapsed",
    "ERROR : during mixing",
    "ERROR : in electrovalve feeding",
    "ERROR : can missing or too small",
    "ERROR : can too big",
    "ERROR : door open",
    "ERROR : shelf upper off-limit",
    "ERROR : punch failure",
    "ERROR : cap failure",
    "ERROR : disp. stop",
    "ERROR : generic error",
};

// A query is a command whose raw answer the caller wants.
bool IsQuery(const char* cmd) {
  if (cmd[0] == '\0' || cmd[1] == '\0') return false;
  if (strchr("?!QqWw", cmd[1]) != nullptr) return true;
  return strncasecmp(cmd + 1, "M1", 2) == 0 || strncasecmp(cmd + 1, "KS", 2) == 0;
}

// The process id the trace lines carry, asked of the system once per
// process (a process made by fork asks again).
long ProcessId() {
  static pid_t pid = 0;
  static bool registered = false;
  if (!registered) {
    pthread_atfork(nullptr, nullptr, [] { pid = 0; });
    registered = true;
  }
  if (pid == 0) pid = getpid();
  return static_cast<long>(pid);
}

// One trace line of the command channel, "[TH_ID=<pid>] " and the text,
// formatted once, given to a slave::Message the host set.
void Trace(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void Trace(const char* fmt, ...) {
  if (slave::Message == nullptr) return;
  char local[512];
  const int head = snprintf(local, sizeof local, "[TH_ID=%ld] ", ProcessId());
  va_list args;
  va_start(args, fmt);
  va_list again;
  va_copy(again, args);
  const int body = vsnprintf(local + head, sizeof local - static_cast<size_t>(head), fmt, args);
  va_end(args);
  if (body >= 0 && static_cast<size_t>(head + body) < sizeof local) {
    va_end(again);
    slave::Message(local);
    return;
  }
  std::string text(local, static_cast<size_t>(head));
  text.resize(static_cast<size_t>(head + (body > 0 ? body : 0)) + 1);
  vsnprintf(&text[static_cast<size_t>(head)], text.size() - static_cast<size_t>(head), fmt, again);
  va_end(again);
  slave::Message(text.c_str());
}

// A command-channel line. While slave::Message is the default one, which
// hands its text to the host's trace on a line of its own, the line is
// formatted by the host's trace alone, once, as that text would be; a
// Message the host set gets the formatted text.
#define SLV_CHANNEL_LINE(fmt, ...)                                                   \
  do {                                                                               \
    if (slave::Message == SlvTraceMessage) {                                         \
      TarvoTrace("\n[TH_ID=%ld] " fmt, ProcessId(), __VA_ARGS__);                    \
    } else {                                                                         \
      Trace(fmt, __VA_ARGS__);                                                       \
    }                                                                                \
  } while (0)

// The trace of a command's result: "--> error" for a query without answer,
// the code for a query, the code and its text for an action.
// The line of a command's result: a query's raw code, an action's code
// with its text (none for a code outside the table).
void TraceResult(const char* cmd, int r, bool query) {
  if (query && r == -1) {
    SLV_CHANNEL_LINE("%s --> error", cmd);
  } else if (query) {
    SLV_CHANNEL_LINE("%s --> %d  ", cmd, r);
  } else {
    SLV_CHANNEL_LINE("%s --> %2d %s", cmd, r, r >= 0 && r <= 15 ? kResultText[r] : "");
  }
}

// Prints text as a format of its own with no arguments: "%%" becomes "%",
// and a conversion that would need an argument is printed as it stands
// (there is no argument to give it).
void PrintReinterpreted(const char* text) {
  std::string out;
  for (const char* p = text; *p != '\0'; ++p) {
    if (p[0] == '%' && p[1] == '%') {
      out += '%';
      ++p;
    } else {
      out += *p;
    }
  }
  fputs(out.c_str(), stdout);
}

}  // namespace

void SlvTraceMessage(const char* text) { TarvoTrace("\n%s", text); }

int slave::sendcommand(char* cmd, char* answer, int answerLen) try {
  if (cmd == nullptr || cmd[0] == '\0') {
    TarvoTrace("\n%s(%d): sendcommand refused an empty command", kSource, __LINE__);
    return 0;
  }
  const bool query = IsQuery(cmd);
  if (m_DispId < 1 || m_Dsp == nullptr) return query ? -1 : 0;

  // A command goes out even when its line cannot be written for want of
  // memory: "/G0" after a dispense must not wait for a trace.
  try {
    SLV_CHANNEL_LINE("%s", cmd);
  } catch (...) {
  }
  if (CommTest != nullptr) CommTest(0, m_DispId);

  const bool threaded = m_DispId != 0 && SlvOptionOn(m_Options, 6) && m_SeparateThread;
  const int r = threaded ? m_Dsp->SendCommandThread(m_DispId, cmd)
                         : m_Dsp->SendCommand(m_DispId, cmd);

  if (!query && r != 0) m_LastError = r;
  // The command has gone out: its result stands. What follows (the answer,
  // the hook, the driver's reset, the trace) cannot turn it into a failure;
  // a step that fails for want of memory is dropped.
  try {
    if (r == 0 && answer != nullptr && answerLen > 0) {
      const char* text = m_Dsp->GetAnswer(m_DispId);
      // Bounded copy: a text that fills the buffer carries no terminator.
      strncpy(answer, text != nullptr ? text : "", static_cast<size_t>(answerLen));
    }
    if (CommTest != nullptr) CommTest(1, m_DispId);
    if (!query && r != 0) m_Dsp->ResetError(m_DispId);
    TraceResult(cmd, r, query);
  } catch (...) {
  }
  if (query) return r;
  return r == 0 ? 1 : 0;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, cmd != nullptr && IsQuery(cmd) ? -1 : 0);
}

int slave::LastError() try {
  if (m_Dsp == nullptr) return m_LastError;
  const int code = m_Dsp->GetLastError(m_DispId);
  if (code >= 0) m_LastError = code;
  return m_LastError;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, SLV_ERR_GENERIC);
}

int slave::ErrorQueueFirst(wchar_t* text, int textLen, char* code, int codeLen) try {
  if (m_Dsp == nullptr) return 0;
  return m_Dsp->ErrorQueueFirst(m_DispId, text, textLen, 0, code, codeLen);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::ErrorQueueNext(wchar_t* text, int textLen, char* code, int codeLen) try {
  if (m_Dsp == nullptr) return 0;
  return m_Dsp->ErrorQueueNext(m_DispId, text, textLen, 0, code, codeLen);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::ErrorQueueClear() try {
  // Service engineers keep the queue for inspection with DEBUG_NO_CLEAR.
  if (getenv("DEBUG_NO_CLEAR") != nullptr) return 1;
  if (m_Dsp == nullptr) return 0;
  return m_Dsp->ErrorQueueClear(m_DispId);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::ErrorQueueCount() try {
  if (m_Dsp == nullptr) return 0;
  return m_Dsp->ErrorQueueCount(m_DispId);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::SlaveFw() try {
  if (m_FwVersion != -1) return m_FwVersion;
  if (m_Dsp == nullptr) return -2;
  TarvoTrace("\n%s(%d): Asking for firmware version: -> ", kSource, __LINE__);
  const int version = m_Dsp->GetFirmwareVersion(m_DispId);
  const char* text = "Error.";
  int result = -2;
  if (version == 1) {
    result = 1;
    text = "[1]->Old firmware.";
  } else if (version == 2) {
    result = 2;
    text = "[2]->Forvel, Stanza, Lumet KXQP.";
  }
  TarvoTrace(": %s", text);
  m_FwVersion = result;
  return result;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, -2);
}

void message(int, char* fmt, ...) try {
  if (fmt == nullptr) return;
  char* buffer = static_cast<char*>(malloc(701));
  if (buffer == nullptr) return;
  va_list args;
  va_start(args, fmt);
  const int len = vsnprintf(buffer, 701, fmt, args);
  va_end(args);
  if (len < 0 || len > 700) {
    fputs("ERROR in message() : string is too long; possible buffer overflow !!", stdout);
  } else {
    PrintReinterpreted(buffer);
  }
  fflush(stdout);
  free(buffer);
} catch (...) {
  SlvNoteFailure(static_cast<slave*>(nullptr), kSource, __LINE__, __func__);
}

// --- Options and machine parameters of the dispenser record ---------------

int slave::ForceOption(int pos, int on) try {
  // Options occupy positions 0..31 of a 32-character text; any other
  // position names no option and is refused.
  if (pos < 0 || pos > 31) {
    TarvoTrace("\n%s(%d): option position %d out of range", kSource, __LINE__, pos);
    return 0;
  }
  Qdbase* disp = SlvDispenserRecord(this);
  if (disp == nullptr) return 0;

  // The option text as the library holds it, a shorter one filled with '0'
  // (off) up to the position. It is written over the start of OPTIONS:
  // whatever the field holds past it (a wider field's characters beyond
  // the 32 the library reads) stays as it is on disk.
  char options[sizeof m_Options] = {};
  snprintf(options, sizeof options, "%s", m_Options);
  for (size_t i = strlen(options); i < static_cast<size_t>(pos); ++i) options[i] = '0';
  options[pos] = on ? '1' : '0';
  SlvBooking booking;
  if (!booking.Ok() || !disp->WriteStringAt("OPTIONS", 0, options) || !booking.Commit()) {
    TarvoTrace("\n%s(%d): option %d could not be written", kSource, __LINE__, pos);
    return 0;
  }
  // Memory follows the record only once the record holds the change.
  memcpy(m_Options, options, sizeof m_Options);
  return 1;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

namespace {

// CFG_STR of the selected dispenser, or false.
bool ReadCfgStr(const slave* s, char* cfg, int size) {
  Qdbase* disp = SlvDispenserRecord(s);
  return disp != nullptr && disp->ReadString("CFG_STR", cfg, size, 0, 0) != 0;
}

// A height worked out from CFG_STR. The pieces may hold exponents
// ("1e99"), so the product can be far outside int: such a figure is no
// height, and answers 0 as an unreadable CFG_STR does.
int Height(double value) {
  if (!(value > static_cast<double>(INT_MIN) - 1.0 && value < static_cast<double>(INT_MAX) + 1.0)) {
    return 0;
  }
  return static_cast<int>(value);
}

}  // namespace

int slave::Hfoto() try {
  char cfg[128];
  if (!ReadCfgStr(this, cfg, sizeof cfg)) return 0;
  return Height(SlvPieceDouble(cfg, 1, 3) / 100.0 * SlvPieceDouble(cfg, 4, 7));
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::HPrefPos() try {
  char cfg[128];
  if (!ReadCfgStr(this, cfg, sizeof cfg)) return 0;
  return Height(SlvPieceDouble(cfg, 1, 3) / 100.0 * SlvPieceDouble(cfg, 33, 36));
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::ManualPuncher() try {
  char cfg[128];
  if (!ReadCfgStr(this, cfg, sizeof cfg)) return 0;
  const char c = strlen(cfg) > 45 ? cfg[45] : ' ';
  return (c >= '0' && c <= '9') ? c - '0' : 0;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}
