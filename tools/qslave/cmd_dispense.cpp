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
#include "commands.h"
#include "dispenser_session.h"
#include "formula_input.h"
#include "levels.h"
#include "machine_log.h"
#include "report.h"

namespace {

const int kLabel = 10;

// What the library will make of the split rows, built with its own
// functions in the order its list dispense uses. A command that would not
// fit the command buffer is refused here, before the levels are lowered:
// the library lowers them first and would then send nothing.
bool CheckCommand(slave& s, const std::vector<SplitRow>& rows, std::string* error) {
  const int n = static_cast<int>(rows.size());
  std::vector<int> tanks;
  std::vector<double> qnts;
  bool valid = false;
  for (const SplitRow& row : rows) {
    tanks.push_back(row.circuit);
    qnts.push_back(row.quantity);
    valid = valid || (row.circuit >= 1 && row.circuit <= s.m_NumTanks && row.quantity > 0.0);
  }
  if (!valid) {
    *error = "nothing to dispense: the split gives no circuit a quantity above 0";
    return false;
  }
  // The two-pass split may append after a full copy: room for both.
  const size_t room = 2 * rows.size() + 1;
  std::vector<int> tanks1(room), tanks2(room);
  std::vector<double> qnts1(room), qnts2(room);
  int count1 = 0;
  int count2 = 0;
  s.DoSplittArrays(n, tanks.data(), qnts.data(), 1.0, &count1, tanks1.data(), qnts1.data(),
                   &count2, tanks2.data(), qnts2.data());
  std::string text;
  if (count1 >= 1 && count2 < 1) {
    text = s.MakeCommandString(count1, tanks1.data(), qnts1.data(), 1.0, 0, nullptr, nullptr);
  } else if (count1 >= 1) {
    text = s.MakeCommandString(count2, tanks2.data(), qnts2.data(), 1.0, count1, tanks1.data(),
                               qnts1.data());
  } else {
    text = s.MakeCommandString(n, tanks.data(), qnts.data(), 1.0, 0, nullptr, nullptr);
  }
  const size_t longest = SLV_CMD_BUFFER - 1;
  if (text.empty() || text.size() + 2 > longest) {
    *error = "the dispense command for this formula would not fit the " +
             std::to_string(longest) + " characters of a command; dispense it in parts";
    return false;
  }
  return true;
}

}  // namespace

int RunDispense(const Invocation& invocation) {
  int status = kExitOk;
  CommandArgs args;
  if (!args.Parse(invocation,
                  {{"--factor", true}, {"--unit", true}, {"--weights", false},
                   {"--no-levels", false}, {"--g2", false}, {"--g0", false}},
                  1, 1, &status)) {
    return status;
  }
  double factor = 1.0;
  double unit = 1.0;
  if (!args.Quantity("--factor", 1.0, false, &factor, &status)) return status;
  if (!args.Quantity("--unit", 1.0, false, &unit, &status)) return status;
  const bool weights = args.Has("--weights");
  const bool update_levels = !args.Has("--no-levels");
  const std::string& text = args.Positional()[0];

  std::string error;
  std::vector<FormulaComponent> components;
  if (!ReadFormula(text, &components, &error)) return args.UsageFailure(error);
  std::unique_ptr<slave> s = OpenDispenser(invocation.options, &error);
  if (!s) return Fail(error);

  std::vector<SplitRow> rows;
  if (!SplitFormula(*s, text, components, factor, unit, weights, &rows, &error)) {
    return Fail(error);
  }
  if (!CheckCommand(*s, rows, &error)) return Fail(error);

  const ColourantTable names(s->m_DataId);
  const std::vector<int> circuits = CircuitsOf(rows);
  std::map<int, double> drawn;
  for (const SplitRow& row : rows) drawn[row.circuit] += row.quantity;
  const std::vector<CircuitLevel> before = ReadLevels(*s, circuits);

  MachineLog log(*s);
  std::vector<char> frm = Writable(text);
  const int result = s->Dispense(frm.data(), factor, unit, weights ? 1 : 0,
                                 update_levels ? 1 : 0, args.Has("--g2") ? 1 : 0,
                                 args.Has("--g0") ? 1 : 0);
  std::vector<std::string> commands = log.Take();
  if (!log.Known()) {
    const char* dosed = s->LastDosedFormula();
    if (result != 0 && dosed != nullptr && *dosed != '\0') {
      commands.push_back(std::string("/D") + dosed);
    } else {
      commands.push_back("(not known: the driver keeps no record of its commands)");
    }
  }
  const std::vector<CircuitLevel> after = ReadLevels(*s, circuits);

  printf("%-*s %s\n", kLabel, "formula:", text.c_str());
  PrintCommands("command:", kLabel, commands);
  PrintLevelChanges(names, before, after, &drawn);
  if (result != 0) {
    printf("%-*s %d (done)\n", kLabel, "result:", result);
    return kExitOk;
  }
  const std::string code = ResultCodeWithText(s->m_LastError);
  printf("%-*s 0 (failed)\n", kLabel, "result:");
  fflush(stdout);
  return Fail("the dispense failed with code " + code +
              (update_levels ? "; the levels were lowered all the same" : ""));
}
