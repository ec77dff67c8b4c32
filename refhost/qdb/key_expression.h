// Key expressions of Qdbase's in-memory indexes (internal to libqdb).
//
// Grammar (names and function names compare ignoring case; blanks allowed
// between tokens):
//   expr   := term { '+' term }
//   term   := factor { '*' factor }
//   factor := NUMBER | FIELD | VAL '(' expr ')'
//           | STR '(' expr ',' NUMBER [ ',' NUMBER ] ')' | '(' expr ')'
// Types are checked when the expression is compiled against a table's
// fields: N and F fields and Visual FoxPro's I, B and Y fields are
// numbers; C, D and L fields are texts as stored (M fields cannot be used).
// VAL takes a text and gives a number (dBase VAL: leading blanks skipped,
// the longest number at the start, 0 when there is none); VAL of a number
// is that number, so that an id keys alike whether a table stores it as
// digits in a text or as a number. STR(x,n[,d]) takes a number and gives it right-aligned in n
// characters with d decimals (default 0; halves rounded away from zero), or
// n '*' when it does not fit, as dBase's STR. '+' adds two numbers or joins
// two texts; '*' multiplies two numbers; any other mix is a type error.
#ifndef QSLAVE_REFHOST_KEY_EXPRESSION_H
#define QSLAVE_REFHOST_KEY_EXPRESSION_H

#include <memory>
#include <string>
#include <vector>

namespace qdb {

// A field of the record layout the expression reads.
struct KeyField {
  std::string name;
  char type;   // dBase type letter
  int offset;  // byte offset in the raw record (deletion flag at 0)
  int width;
};

// A computed key: a number or a text.
struct KeyValue {
  bool isText = false;
  double number = 0.0;
  std::string text;
};

// Orders two keys of the same kind: numbers numerically; texts by bytes
// (unsigned), the shorter counting as padded with blanks on the right.
// Returns <0, 0 or >0.
int CompareKeys(const KeyValue& a, const KeyValue& b);
int CompareTexts(const std::string& a, const std::string& b);

// dBase VAL(): leading blanks skipped, the longest number at the start of
// the text read, 0 when there is none.
double DbaseVal(const char* text, size_t len);

// dBase STR(value, width, decimals).
std::string DbaseStr(double value, int width, int decimals);

class KeyExpression {
 public:
  KeyExpression();
  ~KeyExpression();
  KeyExpression(KeyExpression&&) noexcept;
  KeyExpression& operator=(KeyExpression&&) noexcept;

  // Parses and type-checks text against fields. On failure returns false
  // and puts the reason in *error.
  bool Compile(const std::string& text, const std::vector<KeyField>& fields,
               std::string* error);
  bool IsCompiled() const;
  // True when the key is a text, false when it is a number.
  bool IsText() const;
  // The key of a raw record (record points at the deletion flag).
  KeyValue Evaluate(const char* record) const;

  struct Node;

 private:
  std::unique_ptr<Node> root_;
};

}  // namespace qdb

#endif
