// Writes a driver call the way Calls() records it: NAME(ARG,ARG,...), with
// numbers in decimal, quantities with three decimals and arrays in
// brackets.
#ifndef QSLAVE_REFHOST_SIM_CALLS_H
#define QSLAVE_REFHOST_SIM_CALLS_H

#include <string>

namespace qsim {

class CallText {
 public:
  explicit CallText(const char* name);
  CallText& Int(long value);
  CallText& Real(double value);
  // Text as given (null: empty).
  CallText& Text(const char* text);
  // A character argument; one that does not print is written \xNN.
  CallText& Char(char c);
  // count values in brackets; null or a count below 1 gives "[]".
  CallText& Ints(const int* values, int count);
  CallText& Reals(const double* values, int count);
  // An argument the simulator does not read (a buffer of the caller's).
  CallText& Unread();
  std::string Done() const;

 private:
  void Separate();
  std::string text_;
  bool first_ = true;
};

}  // namespace qsim

#endif
