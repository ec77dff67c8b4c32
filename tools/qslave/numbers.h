// Strict reading of numbers given on the command line.
#ifndef QSLAVE_CLI_NUMBERS_H
#define QSLAVE_CLI_NUMBERS_H

#include <string>

// Reads a whole decimal integer (optional sign, digits, nothing else) that
// lies in [min, max]. False for anything else: blanks, a fraction, trailing
// text, an empty text or a value out of range.
bool ParseLongInRange(const std::string& text, long min, long max, long* value);

#endif
