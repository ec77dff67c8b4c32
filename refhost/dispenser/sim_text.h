// Text helpers of the simulator. Numbers are read and written the same way
// whatever locale the host application has set, since rules files and
// machine answers always use a decimal point.
#ifndef QSLAVE_REFHOST_SIM_TEXT_H
#define QSLAVE_REFHOST_SIM_TEXT_H

#include <string>
#include <vector>

namespace qsim {

inline bool IsBlank(char c) { return c == ' ' || c == '\t'; }

// The whole text as a decimal int (optional leading '-'); false for
// anything else, including a value out of range.
bool ParseInt(const std::string& text, int* value);
// The whole text as a finite decimal number; false otherwise.
bool ParseDouble(const std::string& text, double* value);
// The blank-separated words of text.
std::vector<std::string> SplitBlanks(const std::string& text);
// value with three decimals, "%.3f" style with a decimal point.
std::string Fixed3(double value);
// UTF-8 text as wide characters; false on an invalid sequence.
bool DecodeUtf8(const std::string& text, std::wstring* out);

}  // namespace qsim

#endif
