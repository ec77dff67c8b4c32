// The driver-layer loader. The reference host has no layer to reload; it
// keeps the order of the calls so that a host or a test can check it.
#include <string.h>

#include "host/qdsp32.h"

namespace {

char g_calls[256];

void Record(char call) {
  size_t len = strlen(g_calls);
  if (len + 1 >= sizeof g_calls) {
    memmove(g_calls, g_calls + 1, len);  // keep the most recent calls
    len -= 1;
  }
  g_calls[len] = call;
  g_calls[len + 1] = '\0';
}

}  // namespace

extern "C" int Dsp_InitLoad(void) {
  Record('I');
  return 1;
}

extern "C" int Dsp_QuitLoad(void) {
  Record('Q');
  return 1;
}

extern "C" const char* Dsp_LoadCalls(void) { return g_calls; }

extern "C" void Dsp_LoadCallsReset(void) { g_calls[0] = '\0'; }
