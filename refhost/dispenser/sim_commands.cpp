#include "sim_commands.h"

#include <climits>

#include "sim_text.h"
#include "simulated_dispenser.h"

namespace qsim {

namespace {

// "Error queue empty" in the status word.
const int kQueueEmptyBit = 4;

bool StartsWith(const std::string& text, const char* prefix) {
  return text.compare(0, std::string(prefix).size(), prefix) == 0;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// A circuit number: digits only, within int.
bool ReadCircuit(const std::string& text, std::size_t* pos, int* circuit) {
  std::size_t start = *pos;
  long long value = 0;
  while (*pos < text.size() && IsDigit(text[*pos])) {
    value = value * 10 + (text[*pos] - '0');
    if (value > INT_MAX) return false;
    ++*pos;
  }
  *circuit = static_cast<int>(value);
  return *pos > start;
}

// A quantity: digits with an optional decimal part, no sign.
bool ReadQuantity(const std::string& text, std::size_t* pos, double* qty) {
  std::size_t start = *pos;
  while (*pos < text.size() && (IsDigit(text[*pos]) || text[*pos] == '.')) {
    ++*pos;
  }
  return *pos > start && ParseDouble(text.substr(start, *pos - start), qty);
}

bool Expect(const std::string& text, std::size_t* pos, char c) {
  if (*pos >= text.size() || text[*pos] != c) return false;
  ++*pos;
  return true;
}

std::string ModelText(const Machine& m) {
  return "SIM" + std::to_string(m.type) + "-" + std::to_string(m.variant) +
         " SN000001";
}

}  // namespace

bool IsQuery(const std::string& cmd) {
  return StartsWith(cmd, "/!") || StartsWith(cmd, "/?") || cmd == "/M1" ||
         StartsWith(cmd, "/O") || StartsWith(cmd, "/Q") ||
         StartsWith(cmd, "/W") || StartsWith(cmd, "/KS");
}

bool DispensedAnswer(const std::string& groups, std::string* answer) {
  std::string built;
  std::size_t pos = 0;
  while (pos < groups.size()) {
    int circuit = 0;
    double qty = 0.0;
    if (!Expect(groups, &pos, '(') || !ReadCircuit(groups, &pos, &circuit) ||
        !Expect(groups, &pos, ':') || !ReadQuantity(groups, &pos, &qty) ||
        !Expect(groups, &pos, ')')) {
      return false;
    }
    std::string q = Fixed3(qty);
    built += "(" + std::to_string(circuit) + ":" + q + ":" + q + ")";
  }
  if (built.empty()) return false;
  *answer = built;
  return true;
}

int BuiltinAnswer(const Machine& m, const std::string& cmd,
                  std::string* answer) {
  answer->clear();
  if (StartsWith(cmd, "/!")) {
    // A machine with entries in its error queue says so in the status word.
    int status = SimulatedDispenser::kIdleStatus;
    if (!m.queue.empty()) status &= ~kQueueEmptyBit;
    return status;
  }
  if (cmd == "/M1") {
    *answer = ModelText(m);
    return 0;
  }
  if (StartsWith(cmd, "/O")) {
    return DispensedAnswer(cmd.substr(2), answer) ? 0 : kProtocolError;
  }
  return 0;
}

}  // namespace qsim
