#include "report.h"

#include <stdio.h>

#include "json_output.h"

namespace {

void WriteLine(const std::string& message) {
  fprintf(stderr, "qslave: %s\n", message.c_str());
  fflush(stderr);
}

}  // namespace

int Fail(const std::string& message) {
  RecordError(message, false);
  WriteLine(message);
  return kExitFailure;
}

int FailWithCode(const std::string& message, int code) {
  RecordError(message, false);
  RecordLibraryError(code);
  WriteLine(message);
  return kExitFailure;
}

int UsageError(const std::string& message, const std::string& help) {
  RecordError(message, true);
  WriteLine(message + " (see " + help + ")");
  return kExitUsage;
}
