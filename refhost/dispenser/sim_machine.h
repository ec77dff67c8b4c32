// What the simulated dispenser knows about itself: its scripted rules and
// settings, the levels and error queue it keeps, and the record of what it
// was asked. The operations of SimulatedDispenser work on one of these; the
// rules parser and the settings fill it.
#ifndef QSLAVE_REFHOST_SIM_MACHINE_H
#define QSLAVE_REFHOST_SIM_MACHINE_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace qsim {

// A scripted answer: a command whose whole text matches the glob pattern
// gets this result code and answer text.
struct Rule {
  std::string pattern;
  int result = 0;
  std::string answer;
};

struct Level {
  double cur = 0.0;
  double max = 0.0;
  double res = 0.0;
};

struct Canister {
  int field = 0;
  int flag_a = 0;
  int flag_b = 0;
};

struct QueueEntry {
  std::string code;
  std::wstring text;
};

// Values scripted with "set NAME VALUE"; the initial values are those of a
// healthy idle machine.
struct Settings {
  int firmware = 2;
  int purge = -1;  // the driver cannot purge by itself
  int circuits = 0;
  int delay_ms = 0;
  int formula_level = 2;
  bool gravimetric = false;
  int remaining = 0;
  int movetofill = 0;
  int step = 0;
  int quit = 0;
  std::map<int, Canister> canisters;  // only the scripted ones
};

struct Machine {
  int type = 0;
  int variant = 0;
  std::vector<Rule> rules;
  Settings settings;
  std::map<int, Level> levels;  // by circuit number, ascending
  std::vector<QueueEntry> queue;
  std::size_t queue_next = 0;  // the entry ErrorQueueNext hands out
  int last_error = -1;
  std::string answer;
  std::vector<std::string> commands;
  std::vector<std::string> calls;
};

// Applies one setting. Returns "" when applied, otherwise why it was
// refused (the machine is then unchanged).
std::string ApplySetting(Machine& machine, const std::string& name,
                         const std::string& value);

}  // namespace qsim

#endif
