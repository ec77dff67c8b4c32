// The rules file of the simulator: one rule or setting a line (format in
// README.md), and the glob matching of command texts against rules.
#ifndef QSLAVE_REFHOST_SIM_RULES_H
#define QSLAVE_REFHOST_SIM_RULES_H

#include <string>
#include <vector>

#include "sim_machine.h"

namespace qsim {

// One line of a rules file, read but not yet applied.
struct RulesLine {
  enum Kind { kNothing, kRule, kSetting, kMalformed };
  Kind kind = kNothing;
  Rule rule;           // kRule
  std::string name;    // kSetting
  std::string value;   // kSetting: everything after the blank after NAME
  std::string error;   // kMalformed: why
};

// Reads one line (without its line end). Blank lines and comments give
// kNothing.
RulesLine ParseRulesLine(const std::string& line);

// The first rule whose pattern matches the whole command text, or null.
const Rule* FindRule(const std::vector<Rule>& rules, const std::string& cmd);

// Reads a rules file into the machine: rules are appended after those
// present, settings applied in file order. Each malformed line is traced
// with the file name and its line number and skipped. Returns the number of
// malformed lines, or -1 (traced) when the file cannot be read.
int LoadRulesFile(Machine& machine, const char* path);

}  // namespace qsim

#endif
