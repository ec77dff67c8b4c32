// The tool's commands. Each lives in its own cmd_<name>.cpp file and has one
// row in the table of commands.cpp; nothing else needs to change to add one.
#ifndef QSLAVE_CLI_COMMANDS_H
#define QSLAVE_CLI_COMMANDS_H

#include <string>
#include <vector>

#include "options.h"

struct Command;

struct Invocation {
  const Command& command;
  const GlobalOptions& options;
  const std::vector<std::string>& args;  // after the command's name
};

struct Command {
  const char* name;
  const char* arguments;  // e.g. "CMD"; "" when the command takes none
  const char* summary;    // one line for the list of commands
  const char* details;    // the rest of the command's --help text
  int (*run)(const Invocation& invocation);
};

// Every command, in the order the help lists them; ends at a null name.
const Command* CommandTable();
// The command called name, or null.
const Command* FindCommand(const std::string& name);

// The commands' entry points. Each returns the tool's exit status.
int RunInit(const Invocation& invocation);
int RunInfo(const Invocation& invocation);
int RunStatus(const Invocation& invocation);
int RunSend(const Invocation& invocation);
int RunDispense(const Invocation& invocation);
int RunCheck(const Invocation& invocation);
int RunPurge(const Invocation& invocation);
int RunFill(const Invocation& invocation);
int RunReport(const Invocation& invocation);
int RunShelf(const Invocation& invocation);
int RunTanks(const Invocation& invocation);
int RunErrors(const Invocation& invocation);
int RunDelivered(const Invocation& invocation);
int RunShell(const Invocation& invocation);
int RunServe(const Invocation& invocation);

// Refuses (with a usage error) a call whose argument count is not count;
// returns true when it is.
bool HasArgumentCount(const Invocation& invocation, size_t count,
                      int* exit_status);

#endif
