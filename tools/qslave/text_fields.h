// Showing the texts the slave keeps in fixed character arrays.
#ifndef QSLAVE_CLI_TEXT_FIELDS_H
#define QSLAVE_CLI_TEXT_FIELDS_H

#include <stddef.h>

#include <string>

// The text of a fixed array (up to its terminator or its end), without the
// blanks dBase pads it with on the right.
std::string FieldText(const char* field, size_t size);

template <size_t N>
std::string FieldText(const char (&field)[N]) {
  return FieldText(field, N);
}

#endif
