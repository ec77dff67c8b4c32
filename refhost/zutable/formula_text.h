// Reading and writing the text form of a colour formula (see kformula in
// host/zutable.h).
#ifndef QSLAVE_REFHOST_FORMULA_TEXT_H
#define QSLAVE_REFHOST_FORMULA_TEXT_H

#include <string>
#include <vector>

struct FormulaComponent {
  long long id;
  double qnt;
};

// Reads text (null = empty) into *out, replacing its contents. Returns false,
// with *out empty, when the text is malformed or memory runs out.
//
// Accepted: components "(key:quantity)" with any blanks, tabs and line ends
// between and around them; blanks are also accepted inside the brackets
// around the key and the quantity, but never between a sign and its digits.
// A key is [+-]digits and must fit a signed 64-bit integer. A quantity is
// [+-]digits[.digits] or [+-].digits (a trailing '.' after digits is taken
// as an empty fraction) and must be a finite double; exponents, "nan" and
// "inf" are refused.
bool ParseFormulaText(const char* text, std::vector<FormulaComponent>* out);

// Appends "(id:qnt)" with three decimals to *out, as printf's "%lld:%.3lf"
// in the C locale writes it, whatever the process locale. false when qnt is
// not finite or memory runs out (*out then unchanged).
bool AppendFormulaComponent(const FormulaComponent& c, std::string* out);

#endif
