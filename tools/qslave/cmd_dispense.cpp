// dispense: a formula in colourant ids dispensed through the library, with
// the command the machine received and the levels of the circuits it drew
// from, before and after.
#include <stdio.h>

#include <map>
#include <string>
#include <vector>

#include "colourant_table.h"
#include "command_args.h"
#include "command_kinds.h"
#include "command_text.h"
#include "commands.h"
#include "dispenser_session.h"
#include "door_check.h"
#include "formula_input.h"
#include "json_output.h"
#include "levels.h"
#include "machine_log.h"
#include "report.h"

namespace {

const int kLabel = 10;

std::vector<CircuitQuantity> Entries(const std::vector<SplitRow>& rows) {
  std::vector<CircuitQuantity> entries;
  for (const SplitRow& row : rows) entries.push_back(CircuitQuantity{row.circuit, row.quantity});
  return entries;
}

std::string TooLongMessage() {
  return "the dispense command for this formula would not fit the " +
         std::to_string(LongestCommand()) +
         " characters of a command; dispense it in parts (--split)";
}

// Consecutive runs of the split rows whose commands each fit. A run never
// ends between two circuits of a linked pair: the pair shares one
// reservoir, and the library books and sends its circuits together.
bool CutIntoParts(slave& s, const std::vector<SplitRow>& rows,
                  std::vector<std::vector<SplitRow>>* parts, std::string* error) {
  std::vector<SplitRow> part;
  for (size_t i = 0; i < rows.size(); ++i) {
    std::vector<SplitRow> longer = part;
    longer.push_back(rows[i]);
    if (CommandFits(DispenseCommandText(s, Entries(longer)))) {
      part = longer;
      continue;
    }
    if (part.empty()) {
      *error = "circuit " + std::to_string(rows[i].circuit) +
               " alone would not fit one command";
      return false;
    }
    parts->push_back(part);
    part.assign(1, rows[i]);
  }
  if (!part.empty()) parts->push_back(part);
  return true;
}

struct Outcome {
  int result = 0;  // the library's: non-zero when the machine took it
  std::vector<std::string> commands;
  bool commands_known = true;
  bool levels_not_booked = false;
  size_t parts_sent = 0;
};

// The whole formula through the library's own dispense.
Outcome DispenseWhole(slave& s, const std::string& text, double factor, double unit,
                      bool weights, bool update_levels, bool g2, bool g0) {
  Outcome outcome;
  MachineLog log(s);
  std::vector<char> frm = Writable(text);
  outcome.result = s.Dispense(frm.data(), factor, unit, weights ? 1 : 0, update_levels ? 1 : 0,
                              g2 ? 1 : 0, g0 ? 1 : 0);
  outcome.levels_not_booked = update_levels && s.LevelsNotBooked() != 0;
  outcome.commands = log.Take();
  outcome.commands_known = log.Known();
  if (!log.Known()) {
    const char* dosed = s.LastDosedFormula();
    if (outcome.result != 0 && dosed != nullptr && *dosed != '\0') {
      outcome.commands.push_back(std::string("/D") + dosed);
      outcome.commands_known = true;
    }
  }
  outcome.parts_sent = outcome.result != 0 ? 1 : 0;
  return outcome;
}

// Part after part: each booked (as the library books a dispense: before
// sending) and sent; a part the machine refuses stops the rest.
Outcome DispenseParts(slave& s, const std::vector<std::vector<SplitRow>>& parts,
                      bool update_levels) {
  Outcome outcome;
  MachineLog log(s);
  for (const std::vector<SplitRow>& part : parts) {
    std::vector<int> circuits;
    std::vector<double> quantities;
    for (const SplitRow& row : part) {
      circuits.push_back(row.circuit);
      quantities.push_back(row.quantity);
    }
    const int n = static_cast<int>(part.size());
    if (update_levels) {
      std::vector<double> booked = quantities;
      if (s.UpdateLevels(n, circuits.data(), booked.data(), 1.0, 0) != 1) {
        outcome.levels_not_booked = true;
      }
    }
    outcome.result = s.Dispense(n, circuits.data(), quantities.data(), 1.0);
    if (outcome.result == 0) break;
    ++outcome.parts_sent;
  }
  outcome.commands = log.Take();
  outcome.commands_known = log.Known();
  return outcome;
}

}  // namespace

int RunDispense(const Invocation& invocation) {
  int status = kExitOk;
  CommandArgs args;
  if (!args.Parse(invocation,
                  {{"--factor", true}, {"--unit", true}, {"--weights", false},
                   {"--no-levels", false}, {"--g2", false}, {"--g0", false},
                   {"--split", false}, {"--force", false}},
                  1, 1, &status)) {
    return status;
  }
  double factor = 1.0;
  double unit = 1.0;
  if (!args.Quantity("--factor", 1.0, false, &factor, &status)) return status;
  if (!args.Quantity("--unit", 1.0, false, &unit, &status)) return status;
  const bool weights = args.Has("--weights");
  const bool update_levels = !args.Has("--no-levels");
  const bool split = args.Has("--split");
  if (split && (args.Has("--g2") || args.Has("--g0"))) {
    return args.UsageFailure("--split sends plain parts; it does not go with --g2 or --g0");
  }
  const std::string& text = args.Positional()[0];
  Json& doc = Document();
  doc["formula"] = text;

  std::string error;
  std::vector<FormulaComponent> components;
  if (!ReadFormula(text, &components, &error)) return args.UsageFailure(error);
  std::shared_ptr<slave> s = OpenDispenser(invocation.options, &error);
  if (!s) return Fail(error);

  std::vector<SplitRow> rows;
  if (!SplitFormula(*s, text, components, factor, unit, weights, &rows, &error)) {
    return Fail(error);
  }
  const std::string whole = DispenseCommandText(*s, Entries(rows));
  if (whole.empty()) {
    return Fail("nothing to dispense: the split gives no circuit a quantity above 0");
  }
  std::vector<std::vector<SplitRow>> parts;
  if (!CommandFits(whole)) {
    if (!split) return Fail(TooLongMessage());
    if (!CutIntoParts(*s, rows, &parts, &error)) return Fail(error);
  }
  if (!DoorAllowsDispense(*s, &error)) {
    if (!args.Has("--force")) {
      return Fail(error + "; close it and dispense again, or give --force");
    }
    fprintf(stderr, "qslave: warning: %s; dispensing all the same (--force)\n", error.c_str());
    doc["warnings"].push_back(error + "; dispensed all the same (--force)");
  }

  const ColourantTable names(s->m_DataId);
  const std::vector<int> circuits = CircuitsOf(rows);
  std::map<int, double> drawn;
  for (const SplitRow& row : rows) drawn[row.circuit] += row.quantity;
  const std::vector<CircuitLevel> before = ReadLevels(*s, circuits);
  const Outcome outcome = parts.empty()
                              ? DispenseWhole(*s, text, factor, unit, weights, update_levels,
                                              args.Has("--g2"), args.Has("--g0"))
                              : DispenseParts(*s, parts, update_levels);
  const std::vector<CircuitLevel> after = ReadLevels(*s, circuits);

  if (!parts.empty()) {
    doc["parts"] = parts.size();
    doc["parts_sent"] = outcome.parts_sent;
  }
  if (!JsonOutput()) printf("%-*s %s\n", kLabel, "formula:", text.c_str());
  ShowCommands("command:", kLabel, outcome.commands_known, outcome.commands);
  ShowLevelChanges(names, before, after, &drawn);
  doc["result"] = outcome.result;
  doc["done"] = outcome.result != 0;
  doc["levels_booked"] = update_levels && !outcome.levels_not_booked;
  const char* verdict = outcome.result != 0 ? "done" : "failed";
  if (!JsonOutput() && !parts.empty()) {
    printf("%-*s %zu of %zu sent\n", kLabel, "parts:", outcome.parts_sent, parts.size());
  }
  if (!JsonOutput()) printf("%-*s %d (%s)\n", kLabel, "result:", outcome.result, verdict);
  fflush(stdout);
  if (outcome.result != 0) {
    if (outcome.levels_not_booked) {
      return Fail("the machine took the dispense, but its quantities could not be booked on "
                  "the levels: levels not booked");
    }
    return kExitOk;
  }
  std::string message = "the dispense failed with code " + ResultCodeWithText(s->m_LastError);
  if (!parts.empty()) {
    message = "part " + std::to_string(outcome.parts_sent + 1) + " of " +
              std::to_string(parts.size()) + " failed with code " +
              ResultCodeWithText(s->m_LastError) + "; the parts after it were not sent";
  }
  if (update_levels) {
    message += parts.empty() ? "; the levels were lowered all the same"
                             : "; its levels were lowered all the same";
  }
  return FailWithCode(message, s->m_LastError);
}
