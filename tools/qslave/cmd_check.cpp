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
#include "json_output.h"
#include "levels.h"
#include "report.h"

namespace {

// Exit statuses that follow the verdict, beyond the tool's 1 and 2.
const int kExitAtReserve = 3;
const int kExitNotEnough = 4;

int VerdictExitStatus(int verdict) {
  if (verdict >= 2) return kExitOk;
  return verdict == 1 ? kExitAtReserve : kExitNotEnough;
}

// What the colourant's tanks hold above their reserves; a linked group's
// reservoir counted once (its secondary tanks carry no quantities).
double AvailableAboveReserve(slave& s, long colourant) {
  ColourantInDispenser tanks(&s);
  if (!tanks.Read(colourant)) return 0.0;
  double available = 0.0;
  for (int k = 0; k < tanks.m_NumTanks; ++k) {
    const CtInDspTank& tank = tanks.m_Tanks[k];
    if (tank.max_q == -1.0) continue;
    if (tank.cur_q > tank.res_q) available += tank.cur_q - tank.res_q;
  }
  return available;
}

Json CircuitListJson(const ColourantTable& names, Zu_IntArray& circuits,
                     Zu_IntArray& colourants) {
  Json list = Json::array();
  for (int i = 0; i < circuits.size(); ++i) {
    list.push_back(Json{{"circuit", circuits[i]},
                        {"colourant", colourants[i]},
                        {"code", names.Code(colourants[i])}});
  }
  return list;
}

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

// The critical circuits with what their colourant has above its reserve.
void PrintCriticalList(slave& s, const ColourantTable& names, Zu_IntArray& circuits,
                       Zu_IntArray& colourants) {
  if (circuits.size() == 0) {
    printf("%-9s none\n", "critical:");
    return;
  }
  for (int i = 0; i < circuits.size(); ++i) {
    printf("%-9s circuit %d, colourant %d %s, %.3f available above the reserve\n", "critical:",
           circuits[i], colourants[i], names.Code(colourants[i]).c_str(),
           AvailableAboveReserve(s, colourants[i]));
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

  Zu_IntArray low_colourants;
  for (int i = 0; i < low.size(); ++i) {
    low_colourants.append(static_cast<int>(ColourantOfCircuit(*s, low[i])));
  }
  // The split rows' levels, read once for both outputs, in one call.
  std::vector<int> row_circuits;
  for (const SplitRow& row : rows) row_circuits.push_back(row.circuit);
  const std::vector<CircuitLevel> row_levels = ReadLevels(*s, row_circuits);
  Json& doc = Document();
  doc["formula"] = text;
  doc["size"] = size;
  doc["base"] = base;
  doc["verdict"] = verdict;
  doc["verdict_text"] = VerdictText(verdict);
  Json rows_json = Json::array();
  for (size_t i = 0; i < rows.size(); ++i) {
    const SplitRow& row = rows[i];
    const CircuitLevel& level = row_levels[i];
    rows_json.push_back(Json{{"circuit", row.circuit},
                             {"colourant", row.colourant},
                             {"code", names.Code(row.colourant)},
                             {"quantity", row.quantity},
                             {"current", LevelValue(level.known, level.current)},
                             {"reserve", LevelValue(level.known, level.reserve)},
                             {"left", LevelValue(level.known, level.current - row.quantity)},
                             {"twice_reserve", LevelValue(level.known, 2 * level.reserve)}});
  }
  doc["circuits"] = rows_json;
  Json unserved_json = Json::array();
  for (long colourant : unserved) {
    unserved_json.push_back(Json{{"colourant", colourant},
                                 {"code", names.Code(colourant)},
                                 {"available", AvailableAboveReserve(*s, colourant)}});
  }
  doc["unserved"] = unserved_json;
  doc["low"] = CircuitListJson(names, low, low_colourants);
  doc["warning"] = CircuitListJson(names, warning_circuits, warning_colourants);
  Json critical = CircuitListJson(names, critical_circuits, critical_colourants);
  for (Json& row : critical) row["available"] = AvailableAboveReserve(*s, row["colourant"]);
  doc["critical"] = critical;
  if (JsonOutput()) return VerdictExitStatus(verdict);

  printf("formula:  %s\n", text.c_str());
  if (size != 1.0 || base != 1.0) printf("size:     %g of %g\n", size, base);
  printf("verdict:  %d (%s)\n", verdict, VerdictText(verdict));
  printf("%7s  %9s  %-6s  %10s  %10s  %10s  %10s  %10s\n", "circuit", "colourant", "code",
         "quantity", "current", "reserve", "left", "2x reserve");
  for (size_t i = 0; i < rows.size(); ++i) {
    const SplitRow& row = rows[i];
    const CircuitLevel& level = row_levels[i];
    printf("%7d  %9ld  %-6s  %10.3f  %10s  %10s  %10s  %10s\n", row.circuit, row.colourant,
           names.Code(row.colourant).c_str(), row.quantity,
           LevelText(level.known, level.current).c_str(),
           LevelText(level.known, level.reserve).c_str(),
           LevelText(level.known, level.current - row.quantity).c_str(),
           LevelText(level.known, 2 * level.reserve).c_str());
  }
  for (long colourant : unserved) {
    printf("%7s  %9ld  %-6s  cannot be served: %.3f available above the reserve\n", "-",
           colourant, names.Code(colourant).c_str(), AvailableAboveReserve(*s, colourant));
  }
  PrintCircuitList("low:", names, low, low_colourants);
  PrintCircuitList("warning:", names, warning_circuits, warning_colourants);
  PrintCriticalList(*s, names, critical_circuits, critical_colourants);
  return VerdictExitStatus(verdict);
}
