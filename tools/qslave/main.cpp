// qslave: the command-line tool of service technicians and integrators.
// Reads the global options, sets up the data directory and the trace, and
// hands over to the command named on the command line.
#include <stdio.h>

#include <string>

#include "dispatch.h"
#include "options.h"

int main(int argc, char** argv) {
  // Output and trace lines stay in order when both go to one pipe or file.
  setvbuf(stdout, nullptr, _IOLBF, 0);
  ParsedCommandLine line;
  std::string error;
  if (!ParseCommandLine(argc, argv, &line, &error)) {
    return RefuseLine(error, WantsJson(argc, argv));
  }
  return RunParsedLine(line);
}
