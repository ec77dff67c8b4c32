#include "sim_rules.h"

#include <fnmatch.h>
#include <sys/stat.h>

#include <fstream>

#include "host/qdsp32.h"
#include "sim_text.h"

namespace qsim {

namespace {

// The word starting at *pos (after any blanks); *pos ends up just past it.
std::string NextWord(const std::string& line, std::size_t* pos) {
  std::size_t i = *pos;
  while (i < line.size() && IsBlank(line[i])) ++i;
  std::size_t start = i;
  while (i < line.size() && !IsBlank(line[i])) ++i;
  *pos = i;
  return line.substr(start, i - start);
}

// What follows the single blank after *pos ("" when the line ends there).
std::string RestAfterBlank(const std::string& line, std::size_t pos) {
  return pos < line.size() ? line.substr(pos + 1) : std::string();
}

RulesLine Malformed(const std::string& why) {
  RulesLine parsed;
  parsed.kind = RulesLine::kMalformed;
  parsed.error = why;
  return parsed;
}

RulesLine ParseSetting(const std::string& line, std::size_t pos) {
  RulesLine parsed;
  parsed.name = NextWord(line, &pos);
  if (parsed.name.empty()) return Malformed("setting without a NAME");
  parsed.kind = RulesLine::kSetting;
  parsed.value = RestAfterBlank(line, pos);
  return parsed;
}

RulesLine ParseRule(const std::string& line, std::size_t pos,
                    const std::string& pattern) {
  std::string result = NextWord(line, &pos);
  if (result.empty()) return Malformed("missing RESULT");
  RulesLine parsed;
  if (!ParseInt(result, &parsed.rule.result)) {
    return Malformed("RESULT is not an integer");
  }
  parsed.kind = RulesLine::kRule;
  parsed.rule.pattern = pattern;
  parsed.rule.answer = RestAfterBlank(line, pos);
  return parsed;
}

}  // namespace

RulesLine ParseRulesLine(const std::string& line) {
  // A NUL would silently end the pattern or the answer where C code reads
  // them.
  if (line.find('\0') != std::string::npos) {
    return Malformed("line holds a NUL character");
  }
  std::size_t pos = 0;
  std::string first = NextWord(line, &pos);
  if (first.empty() || first[0] == '#') return RulesLine();
  if (first == "set") return ParseSetting(line, pos);
  return ParseRule(line, pos, first);
}

const Rule* FindRule(const std::vector<Rule>& rules, const std::string& cmd) {
  for (const Rule& rule : rules) {
    if (fnmatch(rule.pattern.c_str(), cmd.c_str(), 0) == 0) return &rule;
  }
  return nullptr;
}

int LoadRulesFile(Machine& machine, const char* path) {
  if (path == nullptr) path = "";
  // A directory opens like a file but reads as nothing at all.
  struct stat info;
  bool regular = stat(path, &info) == 0 && !S_ISDIR(info.st_mode);
  std::ifstream in(path, std::ios::binary);
  if (!regular || !in) {
    TarvoTrace("\nsimulator: cannot read rules file %s", path);
    return -1;
  }
  int malformed = 0;
  int number = 0;
  std::string line;
  while (std::getline(in, line)) {
    ++number;
    // Files written on Windows end their lines with CR LF.
    if (!line.empty() && line.back() == '\r') line.pop_back();
    RulesLine parsed = ParseRulesLine(line);
    std::string error = parsed.error;
    if (parsed.kind == RulesLine::kRule) {
      machine.rules.push_back(parsed.rule);
    } else if (parsed.kind == RulesLine::kSetting) {
      error = ApplySetting(machine, parsed.name, parsed.value);
    }
    if (!error.empty()) {
      TarvoTrace("\nsimulator: %s line %d: %s", path, number, error.c_str());
      ++malformed;
    }
  }
  return malformed;
}

}  // namespace qsim
