#include "shell_words.h"

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

}  // namespace

bool SplitWords(const std::string& line, std::vector<std::string>* words, std::string* error) {
  words->clear();
  std::string word;
  bool in_word = false;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (IsBlank(c)) {
      if (in_word) words->push_back(word);
      word.clear();
      in_word = false;
      continue;
    }
    in_word = true;
    if (c == '\\') {
      if (i + 1 >= line.size()) {
        *error = "a backslash ends the line";
        return false;
      }
      word += line[++i];
    } else if (c == '\'') {
      const size_t close = line.find('\'', i + 1);
      if (close == std::string::npos) {
        *error = "unterminated quote '";
        return false;
      }
      word += line.substr(i + 1, close - i - 1);
      i = close;
    } else if (c == '"') {
      size_t j = i + 1;
      for (; j < line.size() && line[j] != '"'; ++j) {
        if (line[j] == '\\' && j + 1 < line.size() && (line[j + 1] == '"' || line[j + 1] == '\\')) {
          ++j;
        }
        word += line[j];
      }
      if (j >= line.size()) {
        *error = "unterminated quote \"";
        return false;
      }
      i = j;
    } else {
      word += c;
    }
  }
  if (in_word) words->push_back(word);
  return true;
}
