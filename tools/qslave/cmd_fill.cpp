// fill: a refill booked on the levels: every circuit or one to its
// maximum, or a quantity added to one circuit.
#include <stdio.h>

#include <climits>
#include <string>
#include <vector>

#include "colourant_table.h"
#include "command_args.h"
#include "commands.h"
#include "dispenser_session.h"
#include "levels.h"
#include "numbers.h"
#include "report.h"

namespace {

std::string Number(double value) {
  char text[64];
  snprintf(text, sizeof text, "%.3f", value);
  return text;
}

}  // namespace

int RunFill(const Invocation& invocation) {
  int status = kExitOk;
  CommandArgs args;
  if (!args.Parse(invocation, {{"--circuit", true}, {"--qty", true}}, 0, 0, &status)) {
    return status;
  }
  const bool one_circuit = args.Has("--circuit");
  if (args.Has("--qty") && !one_circuit) return args.UsageFailure("--qty needs --circuit");
  double quantity = 0.0;
  if (!args.Quantity("--qty", 0.0, false, &quantity, &status)) return status;
  long circuit = 0;
  if (one_circuit && !ParseLongInRange(args.Value("--circuit"), 1, INT_MAX, &circuit)) {
    return args.UsageFailure("--circuit takes a circuit number (1 or more), not \"" +
                             args.Value("--circuit") + "\"");
  }

  std::string error;
  std::shared_ptr<slave> s = OpenDispenser(invocation.options, &error);
  if (!s) return Fail(error);
  std::vector<int> circuits;
  if (one_circuit) {
    if (!HasCircuit(*s, circuit, &error)) return Fail(error);
    circuits.push_back(static_cast<int>(circuit));
  } else {
    circuits = CircuitsWithColourant(*s);
  }
  const std::vector<CircuitLevel> before = ReadLevels(*s, circuits);
  int result = 0;
  if (one_circuit) {
    const CircuitLevel& level = before[0];
    if (!level.known) {
      return Fail("the levels of circuit " + std::to_string(circuit) + " cannot be read");
    }
    if (args.Has("--qty")) {
      // The library would stop at the maximum: what does not fit is refused,
      // so that the books never show less than was poured in.
      if (level.current + quantity > level.maximum + 1e-9) {
        return Fail("circuit " + std::to_string(circuit) + " holds " + Number(level.current) +
                    " of at most " + Number(level.maximum) + ": " + Number(quantity) +
                    " more do not fit");
      }
      result = s->change_level(static_cast<int>(circuit), quantity, 1, 0);
    } else {
      result = s->change_level(static_cast<int>(circuit), level.maximum, 0, 0);
    }
  } else {
    result = s->SetLevelMax();
  }
  const std::vector<CircuitLevel> after = ReadLevels(*s, circuits);
  const ColourantTable names(s->m_DataId);
  ShowLevelChanges(names, before, after, nullptr);
  Document()["result"] = result;
  if (result == 1) {
    if (!JsonOutput()) printf("result:   1 (done)\n");
    return kExitOk;
  }
  if (!JsonOutput()) printf("result:   %d (failed)\n", result);
  fflush(stdout);
  return Fail("the levels could not be written to the tank table");
}
