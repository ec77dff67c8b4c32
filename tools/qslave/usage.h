// The --help texts.
#ifndef QSLAVE_CLI_USAGE_H
#define QSLAVE_CLI_USAGE_H

#include "commands.h"

// The tool's usage, options and list of commands, on standard output.
void PrintUsage();
// One command's usage line and description, on standard output.
void PrintCommandUsage(const Command& command);

#endif
