// Writing a file the user named: whole or not at all, and never over an
// existing file unless asked to.
#ifndef QSLAVE_CLI_OUTPUT_FILE_H
#define QSLAVE_CLI_OUTPUT_FILE_H

#include <string>

// Writes text to path through a temporary file in the same directory, so
// that path is either absent/unchanged or holds all of text. Without
// replace an existing path (of any kind) is refused. False with *error
// (one line) when the directory is missing or the file cannot be written.
bool WriteOutputFile(const std::string& path, const std::string& text, bool replace,
                     std::string* error);

#endif
