// delivered: after an interrupted or failed dispense, asks the machine what
// each circuit really delivered (the dispensed-quantity query "/O"), shows
// it against the request, and on confirmation books the difference on the
// levels.
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "colourant_table.h"
#include "command_args.h"
#include "command_kinds.h"
#include "command_text.h"
#include "commands.h"
#include "dispenser_session.h"
#include "formula_input.h"
#include "json_output.h"
#include "levels.h"
#include "machine_log.h"
#include "report.h"

namespace {

const int kLabel = 10;
// Room for the library's report: one group per request entry, each at
// most a circuit and two quantities of any size.
const size_t kRoomPerGroup = 16 + 2 * 330;

struct DeliveredRow {
  int circuit;
  long colourant;
  double requested;
  double delivered;
};

std::string RequestText(const std::vector<SplitRow>& rows) {
  std::string text;
  for (const SplitRow& row : rows) {
    char group[400];
    snprintf(group, sizeof group, "(%d:%.3f)", row.circuit, row.quantity);
    text += group;
  }
  return text;
}

// Reads the library's report "(C:REQUESTED:DELIVERED)..." (its own fixed
// format), one group per request entry.
bool ReadReport(const std::string& report, const std::vector<SplitRow>& rows,
                std::vector<DeliveredRow>* out) {
  const char* at = report.c_str();
  for (const SplitRow& row : rows) {
    if (*at != '(') return false;
    char* end = nullptr;
    const long circuit = strtol(at + 1, &end, 10);
    if (*end != ':' || circuit != row.circuit) return false;
    const double requested = strtod(end + 1, &end);
    if (*end != ':') return false;
    const double delivered = strtod(end + 1, &end);
    if (*end != ')') return false;
    out->push_back(DeliveredRow{row.circuit, row.colourant, requested, delivered});
    at = end + 1;
  }
  return *at == '\0';
}

bool Confirmed() {
  fputs("book these differences on the levels? [y/N] ", stderr);
  fflush(stderr);
  char answer[64] = "";
  if (fgets(answer, sizeof answer, stdin) == nullptr) return false;
  const std::string text = answer;
  return text == "y\n" || text == "yes\n" || text == "Y\n" || text == "y" || text == "yes";
}

// Gives back what the machine kept (or takes away what it delivered beyond
// the request); with not_booked, takes away what it delivered.
bool BookDifferences(slave& s, const std::vector<DeliveredRow>& rows, bool not_booked) {
  std::vector<int> give_circuits, take_circuits;
  std::vector<double> give, take;
  for (const DeliveredRow& row : rows) {
    const double change = not_booked ? -row.delivered : row.requested - row.delivered;
    if (change > 0.0) {
      give_circuits.push_back(row.circuit);
      give.push_back(change);
    } else if (change < 0.0) {
      take_circuits.push_back(row.circuit);
      take.push_back(-change);
    }
  }
  bool ok = true;
  if (!give.empty()) {
    ok = s.UpdateLevels(static_cast<int>(give.size()), give_circuits.data(), give.data(), 1.0,
                        1) == 1 && ok;
  }
  if (!take.empty()) {
    ok = s.UpdateLevels(static_cast<int>(take.size()), take_circuits.data(), take.data(), 1.0,
                        0) == 1 && ok;
  }
  return ok;
}

void ShowDelivered(const ColourantTable& names, const std::vector<DeliveredRow>& rows,
                   bool not_booked) {
  Json list = Json::array();
  for (const DeliveredRow& row : rows) {
    const double change = not_booked ? -row.delivered : row.requested - row.delivered;
    list.push_back(Json{{"circuit", row.circuit},
                        {"colourant", row.colourant},
                        {"code", names.Code(row.colourant)},
                        {"requested", row.requested},
                        {"delivered", row.delivered},
                        {"to_book", change}});
  }
  Document()["delivered"] = list;
  if (JsonOutput()) return;
  printf("%7s  %9s  %-6s  %10s  %10s  %10s\n", "circuit", "colourant", "code", "requested",
         "delivered", "to book");
  for (const DeliveredRow& row : rows) {
    const double change = not_booked ? -row.delivered : row.requested - row.delivered;
    printf("%7d  %9ld  %-6s  %10.3f  %10.3f  %+10.3f\n", row.circuit, row.colourant,
           names.Code(row.colourant).c_str(), row.requested, row.delivered, change);
  }
}

}  // namespace

int RunDelivered(const Invocation& invocation) {
  int status = kExitOk;
  CommandArgs args;
  if (!args.Parse(invocation,
                  {{"--factor", true}, {"--unit", true}, {"--weights", false},
                   {"--not-booked", false}, {"--yes", false}},
                  1, 1, &status)) {
    return status;
  }
  double factor = 1.0;
  double unit = 1.0;
  if (!args.Quantity("--factor", 1.0, false, &factor, &status)) return status;
  if (!args.Quantity("--unit", 1.0, false, &unit, &status)) return status;
  const bool weights = args.Has("--weights");
  const bool not_booked = args.Has("--not-booked");
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
  const std::string request = RequestText(rows);
  std::vector<CircuitQuantity> entries;
  for (const SplitRow& row : rows) entries.push_back(CircuitQuantity{row.circuit, row.quantity});
  if (request.size() > LongestCommand() ||
      !CommandFits(DispenseCommandText(*s, entries))) {
    return Fail("the dispensed-quantity query for this formula would not fit the " +
                std::to_string(LongestCommand()) + " characters of a command");
  }

  MachineLog log(*s);
  std::vector<char> request_copy = Writable(request);
  std::vector<char> out(rows.size() * kRoomPerGroup + SLV_CMD_BUFFER, '\0');
  const int result =
      s->DispensedRequest(request_copy.data(), out.data(), static_cast<int>(out.size()) - 1);
  const std::vector<std::string> commands = log.Take();
  if (!JsonOutput()) printf("%-*s %s\n", kLabel, "formula:", text.c_str());
  ShowCommands("query:", kLabel, log.Known(), commands);
  doc["result"] = result;
  if (result == 0) {
    fflush(stdout);
    return FailWithCode("the machine did not answer the dispensed-quantity query: code " +
                            ResultCodeWithText(s->m_LastError) + "; nothing was booked",
                        s->m_LastError);
  }
  std::vector<DeliveredRow> delivered;
  if (!ReadReport(out.data(), rows, &delivered)) {
    return Fail("the library's report of the machine's answer cannot be read: \"" +
                std::string(out.data()) + "\"; nothing was booked");
  }
  const ColourantTable names(s->m_DataId);
  ShowDelivered(names, delivered, not_booked);

  const bool book = args.Has("--yes") || Confirmed();
  doc["booked"] = book;
  if (!book) {
    if (!JsonOutput()) printf("%-*s no (not confirmed)\n", kLabel, "booked:");
    return kExitOk;
  }
  const std::vector<int> circuits = CircuitsOf(rows);
  const std::vector<CircuitLevel> before = ReadLevels(*s, circuits);
  const bool ok = BookDifferences(*s, delivered, not_booked);
  const std::vector<CircuitLevel> after = ReadLevels(*s, circuits);
  if (!JsonOutput()) printf("%-*s %s\n", kLabel, "booked:", ok ? "yes" : "failed");
  ShowLevelChanges(names, before, after, nullptr);
  fflush(stdout);
  if (!ok) return Fail("the differences could not all be booked on the tank table");
  return kExitOk;
}
