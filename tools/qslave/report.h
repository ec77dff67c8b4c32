// Exit statuses of the tool and the one line it writes when it fails.
#ifndef QSLAVE_CLI_REPORT_H
#define QSLAVE_CLI_REPORT_H

#include <string>

enum ExitStatus {
  kExitOk = 0,
  kExitFailure = 1,  // the command could not be carried out
  kExitUsage = 2,    // the command line itself is wrong
};

// Writes "qslave: <message>" as one line on standard error and returns
// kExitFailure. With --json the message goes into the document too.
int Fail(const std::string& message);

// Fail for a failure the library explains with its last error code: with
// --json the document carries the code and its text as well.
int FailWithCode(const std::string& message, int code);

// The same for a wrong command line, with a pointer to the help that
// explains it; returns kExitUsage.
int UsageError(const std::string& message,
               const std::string& help = "qslave --help");

#endif
