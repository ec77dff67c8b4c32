// purge: a quantity pushed out of every circuit, one circuit or the
// circuits of chosen colourants, and booked off the levels.
#include <stdio.h>

#include <climits>
#include <string>
#include <vector>

#include "colourant_table.h"
#include "command_args.h"
#include "command_kinds.h"
#include "commands.h"
#include "dispenser_session.h"
#include "formula_input.h"
#include "levels.h"
#include "machine_log.h"
#include "numbers.h"
#include "report.h"

namespace {

const int kLabel = 9;

// A level at or below this holds no colourant, for the library's purges.
const double kEmpty = 1e-5;

bool ReadColourantList(const std::string& text, std::vector<long>* ids, std::string* error) {
  size_t start = 0;
  while (true) {
    const size_t comma = text.find(',', start);
    const std::string item = text.substr(start, comma == std::string::npos ? std::string::npos
                                                                           : comma - start);
    long id = 0;
    if (!ParseLongInRange(item, 1, INT_MAX, &id)) {
      *error = "--colorant takes colourant ids (1 or more) separated by commas, not \"" + text +
               "\"";
      return false;
    }
    for (long seen : *ids) {
      if (seen == id) {
        *error = "colourant " + item + " is given twice";
        return false;
      }
    }
    ids->push_back(id);
    if (comma == std::string::npos) return true;
    start = comma + 1;
  }
}

bool AnyHoldsColourant(const std::vector<CircuitLevel>& levels) {
  for (const CircuitLevel& level : levels) {
    if (level.known && level.current > kEmpty) return true;
  }
  return false;
}

// Why a purge that returned 0 failed.
std::string FailureText(const slave& s) {
  if (s.m_LastError == SLV_ERR_NO_TANK) return "no circuit holds colourant: nothing to purge (error 19)";
  return "the purge failed with code " + ResultCodeWithText(s.m_LastError);
}

}  // namespace

int RunPurge(const Invocation& invocation) {
  int status = kExitOk;
  CommandArgs args;
  if (!args.Parse(invocation,
                  {{"--qty", true}, {"--circuit", true}, {"--colorant", true},
                   {"--dry-run", false}, {"--one-by-one", false}},
                  0, 0, &status)) {
    return status;
  }
  double quantity = 1.0;
  if (!args.Quantity("--qty", 1.0, false, &quantity, &status)) return status;
  const bool one_circuit = args.Has("--circuit");
  const bool by_colourant = args.Has("--colorant");
  if (one_circuit && by_colourant) {
    return args.UsageFailure("give --circuit or --colorant, not both");
  }
  if ((one_circuit || by_colourant) && (args.Has("--dry-run") || args.Has("--one-by-one"))) {
    return args.UsageFailure(std::string(args.Has("--dry-run") ? "--dry-run" : "--one-by-one") +
                             " is for a purge of all circuits only");
  }
  long circuit = 0;
  if (one_circuit && !ParseLongInRange(args.Value("--circuit"), 1, INT_MAX, &circuit)) {
    return args.UsageFailure("--circuit takes a circuit number (1 or more), not \"" +
                             args.Value("--circuit") + "\"");
  }
  std::vector<long> colourants;
  std::string error;
  if (by_colourant && !ReadColourantList(args.Value("--colorant"), &colourants, &error)) {
    return args.UsageFailure(error);
  }

  std::shared_ptr<slave> s = OpenDispenser(invocation.options, &error);
  if (!s) return Fail(error);
  std::vector<int> circuits;
  if (one_circuit) {
    if (!HasCircuit(*s, circuit, &error)) return Fail(error);
    const CircuitLevel level = ReadLevel(*s, static_cast<int>(circuit));
    if (!level.known || !(level.current > kEmpty)) {
      return Fail("circuit " + std::to_string(circuit) + " holds no colourant: nothing to purge");
    }
    circuits.push_back(static_cast<int>(circuit));
  } else if (by_colourant) {
    for (long id : colourants) {
      if (s->CntToNumTanks(id) < 1) return Fail(NoTankMessage(id, s->m_DispId));
      std::vector<int> tanks(s->CntToNumTanks(id));
      s->CntToTanks(id, static_cast<int>(tanks.size()), tanks.data());
      circuits.insert(circuits.end(), tanks.begin(), tanks.end());
    }
  } else {
    circuits = CircuitsWithColourant(*s);
  }

  const ColourantTable names(s->m_DataId);
  const std::vector<CircuitLevel> before = ReadLevels(*s, circuits);
  if (!one_circuit && !AnyHoldsColourant(before)) {
    return Fail(std::string(by_colourant ? "no circuit of these colourants" : "no circuit") +
                " holds colourant: nothing to purge");
  }
  MachineLog log(*s);
  Zu_Frm record;
  record.set("");
  int result = 0;
  if (one_circuit) {
    result = s->CanisterPurge(static_cast<int>(circuit), quantity);
  } else if (by_colourant) {
    colourants.push_back(0);
    result = s->SelectivePurge(colourants.data(), quantity);
  } else {
    result = s->Purge(quantity, &record, !args.Has("--dry-run"), args.Has("--one-by-one"));
  }
  const std::vector<std::string> commands = log.Take();
  const std::vector<CircuitLevel> after = ReadLevels(*s, circuits);

  char shown[64];
  snprintf(shown, sizeof shown, "%.3f", quantity);
  printf("%-*s %s\n", kLabel, "quantity:", shown);
  if (log.Known()) {
    PrintCommands("command:", kLabel, commands);
  } else {
    printf("%-*s (not known: the driver keeps no record of its commands)\n", kLabel, "command:");
  }
  if (!one_circuit && !by_colourant) {
    const char* purged = record.text();
    printf("%-*s %s\n", kLabel, "purged:", *purged != '\0' ? purged : "nothing");
  }
  PrintLevelChanges(names, before, after, nullptr);
  if (result >= 1) {
    printf("%-*s %d (done)\n", kLabel, "result:", result);
    return kExitOk;
  }
  printf("%-*s %d (failed)\n", kLabel, "result:", result);
  fflush(stdout);
  std::string booked;
  for (size_t i = 0; i < before.size(); ++i) {
    if (before[i].current != after[i].current) booked = "; the levels were booked all the same";
  }
  if (result == -1) return Fail("nothing was purged: no circuit was left to purge" + booked);
  return Fail(FailureText(*s) + booked);
}
