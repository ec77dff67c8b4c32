// The "set NAME VALUE" settings of the simulator.
#include <string>
#include <vector>

#include "sim_machine.h"
#include "sim_text.h"

namespace qsim {

namespace {

// Longest scripted delay: a longer one would only hang the caller.
const int kMaxDelayMs = 60000;

std::string BadValue(const std::string& name, const std::string& value) {
  return "bad value for " + name + ": \"" + value + "\"";
}

// A value of exactly one integer word within [min, max].
bool OneInt(const std::string& value, int min, int max, int* out) {
  std::vector<std::string> words = SplitBlanks(value);
  int parsed = 0;
  if (words.size() != 1 || !ParseInt(words[0], &parsed)) return false;
  if (parsed < min || parsed > max) return false;
  *out = parsed;
  return true;
}

// "C CUR MAX RES": circuits are numbered from 1.
bool ParseLevel(const std::string& value, int* circuit, Level* level) {
  std::vector<std::string> w = SplitBlanks(value);
  return w.size() == 4 && ParseInt(w[0], circuit) && *circuit >= 1 &&
         ParseDouble(w[1], &level->cur) && ParseDouble(w[2], &level->max) &&
         ParseDouble(w[3], &level->res);
}

// "N FIELD FLAGA FLAGB": canisters are counted from 0.
bool ParseCanister(const std::string& value, int* index, Canister* can) {
  std::vector<std::string> w = SplitBlanks(value);
  return w.size() == 4 && ParseInt(w[0], index) && *index >= 0 &&
         ParseInt(w[1], &can->field) && ParseInt(w[2], &can->flag_a) &&
         ParseInt(w[3], &can->flag_b);
}

// "CODE TEXT": the code is one word, the text everything after the blank
// that follows it (it may hold blanks and be empty).
bool ParseQueueEntry(const std::string& value, QueueEntry* entry) {
  std::size_t start = 0;
  while (start < value.size() && IsBlank(value[start])) ++start;
  std::size_t end = start;
  while (end < value.size() && !IsBlank(value[end])) ++end;
  if (end == start) return false;
  entry->code = value.substr(start, end - start);
  std::string text = end < value.size() ? value.substr(end + 1) : "";
  return DecodeUtf8(text, &entry->text);
}

// The settings that are one integer, with the range each accepts.
struct IntSetting {
  const char* name;
  int Settings::*field;
  int min;
  int max;
};

const int kIntMin = -2147483647 - 1;
const int kIntMax = 2147483647;

const IntSetting kIntSettings[] = {
    {"firmware", &Settings::firmware, kIntMin, kIntMax},
    {"purge", &Settings::purge, kIntMin, kIntMax},
    {"circuits", &Settings::circuits, 0, kIntMax},
    {"delay", &Settings::delay_ms, 0, kMaxDelayMs},
    {"formula_level", &Settings::formula_level, kIntMin, kIntMax},
    {"remaining", &Settings::remaining, kIntMin, kIntMax},
    {"movetofill", &Settings::movetofill, kIntMin, kIntMax},
    {"step", &Settings::step, kIntMin, kIntMax},
    {"quit", &Settings::quit, kIntMin, kIntMax},
};

// The settings that are not a single integer of Settings.
std::string ApplyOther(Machine& m, const std::string& name,
                       const std::string& value) {
  if (name == "gravimetric") {
    int flag = 0;
    if (!OneInt(value, 0, 1, &flag)) return BadValue(name, value);
    m.settings.gravimetric = flag == 1;
  } else if (name == "lasterror") {
    if (!OneInt(value, kIntMin, kIntMax, &m.last_error)) {
      return BadValue(name, value);
    }
  } else if (name == "level") {
    int circuit = 0;
    Level level;
    if (!ParseLevel(value, &circuit, &level)) return BadValue(name, value);
    m.levels[circuit] = level;
  } else if (name == "canister") {
    int index = 0;
    Canister can;
    if (!ParseCanister(value, &index, &can)) return BadValue(name, value);
    m.settings.canisters[index] = can;
  } else if (name == "queue") {
    QueueEntry entry;
    if (!ParseQueueEntry(value, &entry)) return BadValue(name, value);
    m.queue.push_back(entry);
  } else {
    return "unknown setting \"" + name + "\"";
  }
  return "";
}

}  // namespace

std::string ApplySetting(Machine& machine, const std::string& name,
                         const std::string& value) {
  for (const IntSetting& s : kIntSettings) {
    if (name != s.name) continue;
    if (!OneInt(value, s.min, s.max, &(machine.settings.*s.field))) {
      return BadValue(name, value);
    }
    return "";
  }
  return ApplyOther(machine, name, value);
}

}  // namespace qsim
