// Strict reading of numbers given on the command line.
#ifndef QSLAVE_CLI_NUMBERS_H
#define QSLAVE_CLI_NUMBERS_H

#include <string>

// Reads a whole decimal integer (optional sign, digits, nothing else) that
// lies in [min, max]. False for anything else: blanks, a fraction, trailing
// text, an empty text or a value out of range.
bool ParseLongInRange(const std::string& text, long min, long max, long* value);

// Reads a whole decimal number ("12", "-0.5", "2.5e3"): an optional sign,
// digits with an optional fraction and exponent, nothing else. False for
// blanks, trailing text, hexadecimal, "nan", "inf" and anything that does
// not give a finite value.
bool ParseFiniteDouble(const std::string& text, double* value);

#endif
