// Running one command line once it is read: the help, the command itself
// and, with --json, its document. The tool's main and the shell share it.
#ifndef QSLAVE_CLI_DISPATCH_H
#define QSLAVE_CLI_DISPATCH_H

#include <string>

#include "options.h"

// Returns the exit status of the command.
int RunParsedLine(const ParsedCommandLine& line);

// Reports a command line that could not be read (with --json as a
// document too) and returns the usage exit status.
int RefuseLine(const std::string& error, bool json);

#endif
