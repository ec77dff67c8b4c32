#include "key_expression.h"

#include "field_codec.h"

#include <ctype.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

namespace qdb {

struct KeyExpression::Node {
  enum Kind { kNumber, kField, kVal, kStr, kAdd, kMul } kind = kNumber;
  bool isText = false;
  double number = 0.0;   // kNumber
  int offset = 0;        // kField
  char type = 'C';       // kField: the field's type letter
  int width = 0;         // kField; kStr: result width
  int decimals = 0;      // kStr
  std::unique_ptr<Node> left, right;  // operands (kVal/kStr: left only)
};

namespace {

using Node = KeyExpression::Node;

class Parser {
 public:
  Parser(const std::string& text, const std::vector<KeyField>& fields)
      : text_(text), fields_(fields) {}

  std::unique_ptr<Node> Parse(std::string* error) {
    std::unique_ptr<Node> node = Expr();
    if (node && Peek() != '\0') Fail("unexpected '" + std::string(1, Peek()) + "'");
    if (!error_.empty()) {
      *error = error_;
      return nullptr;
    }
    return node;
  }

 private:
  void Fail(const std::string& why) {
    if (error_.empty()) {
      error_ = why + " at position " + std::to_string(pos_ + 1);
    }
  }

  void SkipBlanks() {
    while (pos_ < text_.size() && isspace(static_cast<unsigned char>(text_[pos_]))) ++pos_;
  }

  char Peek() {
    SkipBlanks();
    return pos_ < text_.size() ? text_[pos_] : '\0';
  }

  bool Accept(char c) {
    if (Peek() != c) return false;
    ++pos_;
    return true;
  }

  bool Expect(char c) {
    if (Accept(c)) return true;
    char got = Peek();
    Fail(std::string("expected '") + c + "'" +
         (got == '\0' ? std::string(" at the end") : std::string(", found '") + got + "'"));
    return false;
  }

  std::unique_ptr<Node> Expr() {
    std::unique_ptr<Node> left = Term();
    while (left && Accept('+')) {
      std::unique_ptr<Node> right = Term();
      if (!right) return nullptr;
      if (left->isText != right->isText) {
        Fail("'+' of a text and a number");
        return nullptr;
      }
      auto node = std::make_unique<Node>();
      node->kind = Node::kAdd;
      node->isText = left->isText;
      node->left = std::move(left);
      node->right = std::move(right);
      left = std::move(node);
    }
    return left;
  }

  std::unique_ptr<Node> Term() {
    std::unique_ptr<Node> left = Factor();
    while (left && Accept('*')) {
      std::unique_ptr<Node> right = Factor();
      if (!right) return nullptr;
      if (left->isText || right->isText) {
        Fail("'*' of a text");
        return nullptr;
      }
      auto node = std::make_unique<Node>();
      node->kind = Node::kMul;
      node->left = std::move(left);
      node->right = std::move(right);
      left = std::move(node);
    }
    return left;
  }

  bool NumberLiteral(double* value) {
    SkipBlanks();
    size_t start = pos_;
    while (pos_ < text_.size() && isdigit(static_cast<unsigned char>(text_[pos_]))) ++pos_;
    if (pos_ < text_.size() && text_[pos_] == '.') {
      ++pos_;
      while (pos_ < text_.size() && isdigit(static_cast<unsigned char>(text_[pos_]))) ++pos_;
    }
    std::string lit = text_.substr(start, pos_ - start);
    if (lit.empty() || lit == ".") {
      pos_ = start;
      return false;
    }
    *value = strtod(lit.c_str(), nullptr);
    return true;
  }

  bool IntegerArgument(int lo, int hi, int* value, const char* what) {
    double v = 0;
    size_t at = pos_;
    if (!NumberLiteral(&v) || v != floor(v) || v < lo || v > hi) {
      pos_ = at;
      Fail(std::string("STR needs a whole ") + what + " from " + std::to_string(lo) +
           " to " + std::to_string(hi));
      return false;
    }
    *value = static_cast<int>(v);
    return true;
  }

  std::unique_ptr<Node> Factor() {
    char c = Peek();
    if (c == '\0') {
      Fail("expression ends too early");
      return nullptr;
    }
    if (c == '(') {
      ++pos_;
      std::unique_ptr<Node> inner = Expr();
      if (!inner || !Expect(')')) return nullptr;
      return inner;
    }
    if (isdigit(static_cast<unsigned char>(c)) || c == '.') {
      auto node = std::make_unique<Node>();
      node->kind = Node::kNumber;
      if (!NumberLiteral(&node->number)) {
        Fail("bad number");
        return nullptr;
      }
      return node;
    }
    if (isalpha(static_cast<unsigned char>(c)) || c == '_') {
      size_t start = pos_;
      while (pos_ < text_.size() &&
             (isalnum(static_cast<unsigned char>(text_[pos_])) || text_[pos_] == '_')) {
        ++pos_;
      }
      std::string name = text_.substr(start, pos_ - start);
      if (Peek() == '(') {
        ++pos_;
        if (strcasecmp(name.c_str(), "VAL") == 0) {
          std::unique_ptr<Node> arg = Expr();
          if (!arg) return nullptr;
          if (!Expect(')')) return nullptr;
          // A number is its own value: an id stored as a number or as
          // digits keys alike.
          if (!arg->isText) return arg;
          auto node = std::make_unique<Node>();
          node->kind = Node::kVal;
          node->left = std::move(arg);
          return node;
        }
        if (strcasecmp(name.c_str(), "STR") == 0) {
          std::unique_ptr<Node> arg = Expr();
          if (!arg) return nullptr;
          if (arg->isText) {
            Fail("STR of a text");
            return nullptr;
          }
          auto node = std::make_unique<Node>();
          node->kind = Node::kStr;
          node->isText = true;
          node->left = std::move(arg);
          node->width = 10;
          if (!Expect(',')) return nullptr;
          if (!IntegerArgument(1, 255, &node->width, "width")) return nullptr;
          if (Accept(',')) {
            if (!IntegerArgument(0, node->width, &node->decimals, "number of decimals")) {
              return nullptr;
            }
          }
          if (!Expect(')')) return nullptr;
          return node;
        }
        pos_ = start;
        Fail("unknown function " + name);
        return nullptr;
      }
      for (const KeyField& f : fields_) {
        if (strcasecmp(f.name.c_str(), name.c_str()) != 0) continue;
        char type = static_cast<char>(toupper(static_cast<unsigned char>(f.type)));
        if (strchr("NFCDLIBY", type) == nullptr) {
          pos_ = start;
          Fail("field " + name + " has type " + std::string(1, f.type) +
               ", which a key cannot use");
          return nullptr;
        }
        auto node = std::make_unique<Node>();
        node->kind = Node::kField;
        node->isText = strchr("NFIBY", type) == nullptr;
        node->type = type;
        node->offset = f.offset;
        node->width = f.width;
        return node;
      }
      pos_ = start;
      Fail("unknown field " + name);
      return nullptr;
    }
    Fail("unexpected '" + std::string(1, c) + "'");
    return nullptr;
  }

  const std::string& text_;
  const std::vector<KeyField>& fields_;
  size_t pos_ = 0;
  std::string error_;
};

// A number field's value: a text read as VAL reads it, or a Visual
// FoxPro binary number.
double FieldValue(const Node& n, const char* record) {
  if (n.type == 'N' || n.type == 'F') {
    return DbaseVal(record + n.offset, static_cast<size_t>(n.width));
  }
  DbfField f;
  f.type = n.type;
  f.offset = n.offset;
  f.width = n.width;
  FieldNumber number;
  return DecodeNumber(DbfLayout(), f, record, &number) ? number.value : 0.0;
}

KeyValue Eval(const Node& n, const char* record) {
  KeyValue v;
  switch (n.kind) {
    case Node::kNumber:
      v.number = n.number;
      break;
    case Node::kField:
      if (n.isText) {
        v.isText = true;
        v.text.assign(record + n.offset, static_cast<size_t>(n.width));
      } else {
        v.number = FieldValue(n, record);
      }
      break;
    case Node::kVal: {
      KeyValue arg = Eval(*n.left, record);
      v.number = DbaseVal(arg.text.data(), arg.text.size());
      break;
    }
    case Node::kStr:
      v.isText = true;
      v.text = DbaseStr(Eval(*n.left, record).number, n.width, n.decimals);
      break;
    case Node::kAdd: {
      KeyValue a = Eval(*n.left, record);
      KeyValue b = Eval(*n.right, record);
      if (n.isText) {
        v.isText = true;
        v.text = a.text + b.text;
      } else {
        v.number = a.number + b.number;
      }
      break;
    }
    case Node::kMul:
      v.number = Eval(*n.left, record).number * Eval(*n.right, record).number;
      break;
  }
  return v;
}

}  // namespace

int CompareTexts(const std::string& a, const std::string& b) {
  size_t n = a.size() > b.size() ? a.size() : b.size();
  for (size_t i = 0; i < n; ++i) {
    unsigned char ca = i < a.size() ? static_cast<unsigned char>(a[i]) : ' ';
    unsigned char cb = i < b.size() ? static_cast<unsigned char>(b[i]) : ' ';
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  return 0;
}

int CompareKeys(const KeyValue& a, const KeyValue& b) {
  if (a.isText && b.isText) return CompareTexts(a.text, b.text);
  if (a.number < b.number) return -1;
  if (a.number > b.number) return 1;
  return 0;
}

double DbaseVal(const char* text, size_t len) {
  size_t i = 0;
  while (i < len && (text[i] == ' ' || text[i] == '\t')) ++i;
  std::string num;
  if (i < len && (text[i] == '+' || text[i] == '-')) num += text[i++];
  bool digits = false;
  while (i < len && isdigit(static_cast<unsigned char>(text[i]))) {
    num += text[i++];
    digits = true;
  }
  if (i < len && text[i] == '.') {
    num += text[i++];
    while (i < len && isdigit(static_cast<unsigned char>(text[i]))) {
      num += text[i++];
      digits = true;
    }
  }
  if (!digits) return 0.0;
  double v = strtod(num.c_str(), nullptr);
  return v == 0.0 ? 0.0 : v;  // no negative zero
}

std::string DbaseStr(double value, int width, int decimals) {
  if (width < 1) return std::string();
  if (!isfinite(value)) return std::string(static_cast<size_t>(width), '*');
  // Half away from zero, as dBase rounds.
  double p = pow(10.0, decimals);
  if (fabs(value * p) < 4503599627370496.0) value = round(value * p) / p;
  char buf[400];
  int len = snprintf(buf, sizeof buf, "%*.*f", width, decimals, value);
  if (len < 0 || len > width) return std::string(static_cast<size_t>(width), '*');
  std::string s(buf, static_cast<size_t>(len));
  // A negative value that rounds to zero is written without its sign.
  size_t minus = s.find('-');
  if (minus != std::string::npos && DbaseVal(s.data(), s.size()) == 0.0) s[minus] = ' ';
  return s;
}

KeyExpression::KeyExpression() = default;
KeyExpression::~KeyExpression() = default;
KeyExpression::KeyExpression(KeyExpression&&) noexcept = default;
KeyExpression& KeyExpression::operator=(KeyExpression&&) noexcept = default;

bool KeyExpression::Compile(const std::string& text, const std::vector<KeyField>& fields,
                            std::string* error) {
  root_.reset();
  std::string why;
  Parser parser(text, fields);
  std::unique_ptr<Node> root = parser.Parse(&why);
  if (!root) {
    if (error != nullptr) *error = why.empty() ? "empty expression" : why;
    return false;
  }
  root_ = std::move(root);
  return true;
}

bool KeyExpression::IsCompiled() const { return root_ != nullptr; }

bool KeyExpression::IsText() const { return root_ && root_->isText; }

KeyValue KeyExpression::Evaluate(const char* record) const {
  if (!root_ || record == nullptr) return KeyValue();
  return Eval(*root_, record);
}

}  // namespace qdb
