#include "report.h"

#include <stdio.h>

namespace {

void WriteLine(const std::string& message) {
  fprintf(stderr, "qslave: %s\n", message.c_str());
  fflush(stderr);
}

}  // namespace

int Fail(const std::string& message) {
  WriteLine(message);
  return kExitFailure;
}

int UsageError(const std::string& message, const std::string& help) {
  WriteLine(message + " (see " + help + ")");
  return kExitUsage;
}
