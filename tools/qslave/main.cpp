// qslave: the command-line tool of service technicians and integrators.
// Reads the global options, sets up the data directory and the trace, and
// hands over to the command named on the command line.
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "commands.h"
#include "options.h"
#include "report.h"
#include "trace_sink.h"
#include "usage.h"

namespace {

bool AsksForHelp(const std::vector<std::string>& args) {
  for (const std::string& arg : args) {
    if (arg == "--help" || arg == "-h") return true;
  }
  return false;
}

// The reference host finds its tables through QSLAVE_DATA.
bool ExportDataDir(const GlobalOptions& options) {
  if (options.data_dir.empty()) return true;
  return setenv("QSLAVE_DATA", options.data_dir.c_str(), 1) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  // Output and trace lines stay in order when both go to one pipe or file.
  setvbuf(stdout, nullptr, _IOLBF, 0);
  ParsedCommandLine line;
  std::string error;
  if (!ParseCommandLine(argc, argv, &line, &error)) return UsageError(error);
  if (line.options.help) {
    PrintUsage();
    return kExitOk;
  }
  if (line.command.empty()) return UsageError("no command given");

  const Command* command = FindCommand(line.command);
  if (command == nullptr) return UsageError("unknown command \"" + line.command + "\"");
  if (AsksForHelp(line.args)) {
    PrintCommandUsage(*command);
    return kExitOk;
  }

  InstallTraceSink(line.options.trace);
  if (!ExportDataDir(line.options)) return Fail("cannot set QSLAVE_DATA");
  return command->run(Invocation{*command, line.options, line.args});
}
