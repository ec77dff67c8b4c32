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
#include "json_output.h"
#include "levels.h"
#include "machine_log.h"
#include "numbers.h"
#include "purge_plan.h"
#include "report.h"

namespace {

const int kLabel = 9;

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
    if (HoldsColourant(level)) return true;
  }
  return false;
}

// Why a purge that returned 0 failed.
std::string FailureText(const slave& s) {
  if (s.m_LastError == SLV_ERR_NO_TANK) return "no circuit holds colourant: nothing to purge (error 19)";
  return "the purge failed with code " + ResultCodeWithText(s.m_LastError);
}

// The purge worked out and shown, nothing sent or booked.
int ShowDryRun(slave& s, const PurgeRequest& request, const ColourantTable& names,
               const std::vector<CircuitLevel>& before) {
  const PurgePlan plan = PlanPurge(s, request, before);
  Json& doc = Document();
  doc["dry_run"] = true;
  doc["commands"] = plan.commands;
  doc["books"] = plan.books;
  if (!JsonOutput()) {
    printf("%-*s %s\n", kLabel, "dry run:",
           "nothing was sent or booked; the library's own purge would send and book this");
    PrintCommands("command:", kLabel, plan.commands);
  }
  ShowLevelChanges(names, before, plan.after, nullptr);
  if (!JsonOutput()) {
    printf("%-*s %s\n", kLabel, "note:",
           plan.books ? "a driver that purges by itself gets one purge call instead"
                      : "the machine purges by itself and keeps its own levels");
  }
  return kExitOk;
}

}  // namespace

int RunPurge(const Invocation& invocation) {
  int status = kExitOk;
  CommandArgs args;
  if (!args.Parse(invocation,
                  {{"--qty", true}, {"--circuit", true}, {"--colorant", true},
                   {"--dry-run", false}, {"--book-only", false}, {"--one-by-one", false}},
                  0, 0, &status)) {
    return status;
  }
  PurgeRequest request;
  if (!args.Quantity("--qty", 1.0, false, &request.quantity, &status)) return status;
  const bool one_circuit = args.Has("--circuit");
  const bool by_colourant = args.Has("--colorant");
  const bool dry_run = args.Has("--dry-run");
  const bool book_only = args.Has("--book-only");
  if (one_circuit && by_colourant) {
    return args.UsageFailure("give --circuit or --colorant, not both");
  }
  if (dry_run && book_only) {
    return args.UsageFailure("give --dry-run or --book-only, not both");
  }
  if ((one_circuit || by_colourant) && (book_only || args.Has("--one-by-one"))) {
    return args.UsageFailure(std::string(book_only ? "--book-only" : "--one-by-one") +
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
  request.kind = one_circuit ? PurgeKind::kOneCircuit
                             : (by_colourant ? PurgeKind::kColourants : PurgeKind::kAll);
  request.one_by_one = args.Has("--one-by-one");
  request.circuit = static_cast<int>(circuit);
  request.colourants = colourants;

  std::shared_ptr<slave> s = OpenDispenser(invocation.options, &error);
  if (!s) return Fail(error);
  std::vector<int> circuits;
  if (one_circuit) {
    if (!HasCircuit(*s, circuit, &error)) return Fail(error);
    const CircuitLevel level = ReadLevel(*s, static_cast<int>(circuit));
    if (!HoldsColourant(level)) {
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
  Json& doc = Document();
  doc["quantity"] = request.quantity;
  char shown[64];
  snprintf(shown, sizeof shown, "%.3f", request.quantity);
  if (!JsonOutput()) printf("%-*s %s\n", kLabel, "quantity:", shown);
  if (dry_run) return ShowDryRun(*s, request, names, before);

  MachineLog log(*s);
  Zu_Frm record;
  record.set("");
  int result = 0;
  if (one_circuit) {
    result = s->CanisterPurge(static_cast<int>(circuit), request.quantity);
  } else if (by_colourant) {
    colourants.push_back(0);
    result = s->SelectivePurge(colourants.data(), request.quantity);
  } else {
    result = s->Purge(request.quantity, &record, !book_only, request.one_by_one);
  }
  const bool levels_not_booked = s->LevelsNotBooked() != 0;
  const std::vector<std::string> commands = log.Take();
  const std::vector<CircuitLevel> after = ReadLevels(*s, circuits);

  doc["book_only"] = book_only;
  ShowCommands("command:", kLabel, log.Known(), commands);
  if (!one_circuit && !by_colourant) {
    const char* purged = record.text();
    doc["purged"] = purged;
    if (!JsonOutput()) {
      printf("%-*s %s\n", kLabel, "purged:", *purged != '\0' ? purged : "nothing");
    }
  }
  ShowLevelChanges(names, before, after, nullptr);
  doc["result"] = result;
  doc["done"] = result >= 1;
  doc["levels_booked"] = !levels_not_booked;
  if (!JsonOutput()) printf("%-*s %d (%s)\n", kLabel, "result:", result,
                            result >= 1 ? "done" : "failed");
  fflush(stdout);
  if (result >= 1) {
    if (levels_not_booked) {
      return Fail("the purge was done, but its quantities could not be booked on the levels: "
                  "levels not booked");
    }
    return kExitOk;
  }
  std::string booked;
  for (size_t i = 0; i < before.size(); ++i) {
    if (before[i].current != after[i].current) booked = "; the levels were booked all the same";
  }
  if (result == -1) return Fail("nothing was purged: no circuit was left to purge" + booked);
  return FailWithCode(FailureText(*s) + booked, s->m_LastError);
}
