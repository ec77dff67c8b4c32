// A shell line split into words as a POSIX shell splits a simple command:
// blanks separate words, '...' keeps everything, "..." keeps everything
// but \" and \\, and a backslash outside quotes keeps the next character.
// Formulas and command texts such as "(3:10)" or "/D(5:1.000)" need no
// quotes.
#ifndef QSLAVE_CLI_SHELL_WORDS_H
#define QSLAVE_CLI_SHELL_WORDS_H

#include <string>
#include <vector>

// False with *error for an unterminated quote or a backslash at the end.
bool SplitWords(const std::string& line, std::vector<std::string>* words, std::string* error);

#endif
