// The data directory and small text helpers.
#include <ctype.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "host/qdsp32.h"

extern "C" int Zu_LocalPathEx(char* buf, int size) {
  if (buf == nullptr || size < 1) return 0;
  buf[0] = '\0';
  const char* dir = getenv("QSLAVE_DATA");
  char cwd[4096];
  if (dir == nullptr || *dir == '\0') {
    if (getcwd(cwd, sizeof cwd) == nullptr) return 0;
    dir = cwd;
  }
  size_t len = strlen(dir);
  if (len + 1 > static_cast<size_t>(size)) return 0;
  memcpy(buf, dir, len + 1);
  return 1;
}

extern "C" int Zu_StringEmpty(const char* text) {
  if (text == nullptr) return 1;
  for (; *text != '\0'; ++text) {
    if (!isspace(static_cast<unsigned char>(*text))) return 0;
  }
  return 1;
}
