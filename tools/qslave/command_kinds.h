// How the library's command channel treats a command text, and the texts of
// the machine's result codes, so that the tool can print what a result
// means.
#ifndef QSLAVE_CLI_COMMAND_KINDS_H
#define QSLAVE_CLI_COMMAND_KINDS_H

#include <string>

// A query's result is the machine's raw code (the status word for "/!");
// an action's result is 1 (done) or 0 (failed). A command is a query when
// the character after the leading '/' is one of "?!QqWw", or when the text
// after it begins with "M1" or "KS" in any case. sendcommand decides the
// same way.
bool IsQueryCommand(const std::string& cmd);

// The text of a result code: "SUCCESS", "ERROR : command refused", ...;
// "no answer" for -1; "" for a code the machine table does not list.
std::string ResultCodeText(int code);

// The text of a code in m_LastError: the machine's texts, and the
// library's own 19; "" for a code neither lists.
std::string LibraryCodeText(int code);

// A code with its text, e.g. "4 (ERROR : command refused)"; the library's
// own codes 15 and 19 are named too; just the number otherwise.
std::string ResultCodeWithText(int code);

#endif
