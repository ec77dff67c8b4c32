// check: whether the tanks hold enough for a formula, and which circuits it
// would take to their warning level or cannot serve at all.
#include <stdio.h>

#include <string>
#include <vector>

#include "colourant_table.h"
#include "command_args.h"
#include "commands.h"
#include "dispenser_session.h"
#include "formula_input.h"
#include "levels.h"
#include "report.h"

namespace {

const char* VerdictText(int verdict) {
  switch (verdict) {
    case 2: return "enough";
    case 1: return "at reserve";
    default: return "not enough";
  }
}

// "label: none", or one line per circuit with its colourant.
void PrintCircuitList(const char* label, const ColourantTable& names, Zu_IntArray& circuits,
                      Zu_IntArray& colourants) {
  if (circuits.size() == 0) {
    printf("%-9s none\n", label);
    return;
  }
  for (int i = 0; i < circuits.size(); ++i) {
    printf("%-9s circuit %d, colourant %d %s\n", label, circuits[i], colourants[i],
           names.Code(colourants[i]).c_str());
  }
}

}  // namespace

int RunCheck(const Invocation& invocation) {
  int status = kExitOk;
  CommandArgs args;
  if (!args.Parse(invocation, {{"--size", true}, {"--base", true}, {"--weights", false}}, 1, 1,
                  &status)) {
    return status;
  }
  if (args.Has("--size") != args.Has("--base")) {
    return args.UsageFailure("--size and --base go together");
  }
  double size = 1.0;
  double base = 1.0;
  if (!args.Quantity("--size", 1.0, false, &size, &status)) return status;
  if (!args.Quantity("--base", 1.0, false, &base, &status)) return status;
  const bool weights = args.Has("--weights");
  const std::string& text = args.Positional()[0];

  std::string error;
  std::vector<FormulaComponent> components;
  if (!ReadFormula(text, &components, &error)) return args.UsageFailure(error);
  std::shared_ptr<slave> s = OpenDispenser(invocation.options, &error);
  if (!s) return Fail(error);
  // The verdict and the warning list are asked for the same size.
  const double factor = size / base;
  std::vector<SplitRow> rows;
  std::vector<long> unserved;
  long first_unserved = 0;
  if (!SplitFormula(*s, text, components, factor, 1.0, weights, &rows, &error,
                    &first_unserved)) {
    if (first_unserved == 0) return Fail(error);
    // Not enough is a verdict, not an error: show what each colourant
    // alone would draw.
    rows.clear();
    for (const FormulaComponent& c : components) {
      if (!SplitComponent(*s, c, factor, 1.0, weights, &rows)) unserved.push_back(c.colourant);
    }
  }
  const ColourantTable names(s->m_DataId);

  std::vector<char> frm = Writable(text);
  Zu_IntArray low;
  const int verdict = s->CheckLevel(frm.data(), factor, 1.0, weights ? 1 : 0, &low);
  Zu_IntArray warning_circuits, warning_colourants;
  s->GetCircuitsUnderWarningLevel(frm.data(), size, base, weights ? 1 : 0, warning_circuits,
                                  warning_colourants);
  Zu_IntArray critical_circuits, critical_colourants;
  s->GetCircuitsUnderCriticalLevel(frm.data(), size, base, weights ? 1 : 0, critical_circuits,
                                   critical_colourants);

  printf("formula:  %s\n", text.c_str());
  if (size != 1.0 || base != 1.0) printf("size:     %g of %g\n", size, base);
  printf("verdict:  %d (%s)\n", verdict, VerdictText(verdict));
  printf("%7s  %9s  %-6s  %10s  %10s  %10s  %10s\n", "circuit", "colourant", "code", "quantity",
         "current", "reserve", "left");
  for (const SplitRow& row : rows) {
    const CircuitLevel level = ReadLevel(*s, row.circuit);
    printf("%7d  %9ld  %-6s  %10.3f  %10s  %10s  %10s\n", row.circuit, row.colourant,
           names.Code(row.colourant).c_str(), row.quantity,
           LevelText(level.known, level.current).c_str(),
           LevelText(level.known, level.reserve).c_str(),
           LevelText(level.known, level.current - row.quantity).c_str());
  }
  for (long colourant : unserved) {
    printf("%7s  %9ld  %-6s  cannot be served by its tanks\n", "-", colourant,
           names.Code(colourant).c_str());
  }
  Zu_IntArray low_colourants;
  for (int i = 0; i < low.size(); ++i) {
    const int circuit = low[i];
    low_colourants.append(circuit >= 1 && circuit <= s->m_NumTanks
                              ? static_cast<int>(s->m_TankCntId[circuit - 1])
                              : 0);
  }
  PrintCircuitList("low:", names, low, low_colourants);
  PrintCircuitList("warning:", names, warning_circuits, warning_colourants);
  PrintCircuitList("critical:", names, critical_circuits, critical_colourants);
  return kExitOk;
}
