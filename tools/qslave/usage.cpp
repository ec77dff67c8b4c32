#include "usage.h"

#include <stdio.h>
#include <string.h>

namespace {

const char kGlobalSynopsis[] =
    "qslave [--data DIR] [--id N] [--trace] [--json] [--purge-server HOST:PORT] "
    "[--purge-timeout SECONDS]";

const char kOptions[] =
    "Options (before the command, or after its name):\n"
    "  --data DIR                the directory of the tables (default:\n"
    "                            $QSLAVE_DATA, else the current directory)\n"
    "  --id N                    the dispenser id (default: the default\n"
    "                            dispenser of disps.dbf)\n"
    "  --trace                   show the library's trace on standard error\n"
    "  --purge-server HOST:PORT  tell this purge server what was dispensed\n"
    "                            (without it the purge-server update is off)\n"
    "  --purge-timeout SECONDS   the longest the purge-server call may take\n"
    "                            (default 5)\n"
    "  --json                    print one JSON document on standard output\n"
    "                            instead of text, also when the command fails\n"
    "  --version                 show the version\n"
    "  --help                    show this help\n";

const char kExitStatus[] =
    "Exit status: 0 on success, 1 when the command failed, 2 for a wrong\n"
    "command line; a failure is explained in one line on standard error.\n";

}  // namespace

void PrintUsage() {
  printf("usage: %s COMMAND [ARGS]\n\n", kGlobalSynopsis);
  printf("Inspects and drives a colourant dispenser through libqslave.\n\n");
  printf("%s\nCommands:\n", kOptions);
  for (const Command* c = CommandTable(); c->name != nullptr; ++c) {
    std::string name = c->name;
    if (*c->arguments != '\0') name += std::string(" ") + c->arguments;
    // A long synopsis gets its summary on a line of its own.
    if (name.size() > 12) {
      printf("  %s\n  %-12s %s\n", name.c_str(), "", c->summary);
    } else {
      printf("  %-12s %s\n", name.c_str(), c->summary);
    }
  }
  printf("\nRun 'qslave COMMAND --help' for a command's help.\n\n%s", kExitStatus);
}

void PrintCommandUsage(const Command& command) {
  printf("usage: %s %s", kGlobalSynopsis, command.name);
  if (*command.arguments != '\0') printf(" %s", command.arguments);
  printf("\n\n%s\n%s", command.details, kExitStatus);
}
