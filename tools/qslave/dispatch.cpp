#include "dispatch.h"

#include <stdio.h>
#include <stdlib.h>

#include "commands.h"
#include "json_output.h"
#include "report.h"
#include "trace_sink.h"
#include "usage.h"
#include "version.h"

namespace {

bool AsksForHelp(const std::vector<std::string>& args) {
  for (const std::string& arg : args) {
    if (arg == "--") return false;
    if (arg == "--help" || arg == "-h") return true;
  }
  return false;
}

// The reference host finds its tables through QSLAVE_DATA.
bool ExportDataDir(const GlobalOptions& options) {
  if (options.data_dir.empty()) return true;
  return setenv("QSLAVE_DATA", options.data_dir.c_str(), 1) == 0;
}

int PrintVersion() {
  if (JsonOutput()) {
    Document()["version"] = kQslaveVersion;
  } else {
    printf("qslave %s\n", kQslaveVersion);
  }
  return kExitOk;
}

int RunCommand(const ParsedCommandLine& line) {
  if (line.options.version) return PrintVersion();
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

// The name the document gives the command line.
std::string DocumentName(const ParsedCommandLine& line) {
  if (line.options.version) return "version";
  if (line.options.help) return "help";
  return line.command;
}

// The shell prints a document for each of its lines, not one of its own.
bool PrintsItsOwnDocuments(const ParsedCommandLine& line) {
  return line.command == "shell";
}

}  // namespace

int RunParsedLine(const ParsedCommandLine& line) {
  // Help stays text: it is read by people, never by scripts.
  const bool json = line.options.json && !line.options.help && !PrintsItsOwnDocuments(line);
  SetJsonOutput(json);
  StartDocument(DocumentName(line));
  const int status = RunCommand(line);
  if (json && !DocumentPrinted()) PrintDocument(status);
  SetJsonOutput(false);
  return status;
}

int RefuseLine(const std::string& error, bool json) {
  SetJsonOutput(json);
  StartDocument("");
  const int status = UsageError(error);
  if (json) PrintDocument(status);
  SetJsonOutput(false);
  return status;
}
