// tanks: every circuit with its colourant and levels, the tanks of every
// colourant, and on request the levels as an SVG bar chart.
#include <stdio.h>

#include <string>
#include <vector>

#include "colourant_table.h"
#include "command_args.h"
#include "commands.h"
#include "dispenser_session.h"
#include "json_output.h"
#include "levels.h"
#include "output_file.h"
#include "report.h"
#include "svg_chart.h"
#include "tank_rows.h"
#include "text_fields.h"

namespace {

void PrintTankReport(const std::vector<TankRow>& rows, const ColourantTable& names) {
  printf("%7s  %9s  %-6s  %10s  %10s  %10s  %10s  %-4s %-4s note\n", "circuit", "colourant",
         "code", "current", "reserve", "maximum", "threshold", "sim", "susp");
  for (const TankRow& row : rows) {
    const CircuitLevel& l = row.level;
    if (!row.has_record) {
      printf("%7d  no tank record\n", l.circuit);
      continue;
    }
    if (l.colourant == 0) {
      printf("%7d  no colourant\n", l.circuit);
      continue;
    }
    char line[512];
    snprintf(line, sizeof line, "%7d  %9ld  %-6s  %10s  %10s  %10s  %10.3f  %-4s %-4s",
             l.circuit, l.colourant, names.Code(l.colourant).c_str(),
             LevelText(l.known, l.current).c_str(), LevelText(l.known, l.reserve).c_str(),
             LevelText(l.known, l.maximum).c_str(), row.threshold, row.sim ? "yes" : "no",
             row.susp ? "yes" : "no");
    std::string text = line;
    if (row.master != 0) {
      text += " shares the reservoir of circuit " + std::to_string(row.master);
    } else if (!l.known) {
      text += " levels unknown";
    }
    text.erase(text.find_last_not_of(' ') + 1);
    printf("%s\n", text.c_str());
  }
}

const char* KindName(int kind) {
  switch (kind) {
    case 1: return "single";
    case 2: return "independent";
    case 3: return "linked";
    default: return "inconsistent";
  }
}

Json DistributionJson(slave& s, const ColourantTable& names) {
  Json out = Json::array();
  const int count = s.NumCnts();
  std::vector<long> colourants(count + 1, 0);
  if (count > 0) s.CntsList(colourants.data());
  for (int i = 0; i < count; ++i) {
    const long id = colourants[i];
    const int n = s.CntToNumTanks(id);
    std::vector<int> tanks(n > 0 ? n : 1);
    if (n > 0) s.CntToTanks(id, n, tanks.data());
    tanks.resize(n > 0 ? n : 0);
    out.push_back(Json{{"colourant", id},
                       {"code", names.Code(id)},
                       {"description", names.Description(id)},
                       {"tanks", tanks},
                       {"kind", KindName(s.CntToTypeCircuitNoTh(id))}});
  }
  return out;
}

const char* KindText(int kind) {
  switch (kind) {
    case 1: return "";
    case 2: return " (independent)";
    case 3: return " (linked)";
    default: return " (inconsistent tank set)";
  }
}

void PrintDistribution(slave& s, const ColourantTable& names) {
  printf("%9s  %-6s  %-24s  tanks\n", "colourant", "code", "description");
  const int count = s.NumCnts();
  std::vector<long> colourants(count + 1, 0);
  if (count > 0) s.CntsList(colourants.data());
  for (int i = 0; i < count; ++i) {
    const long id = colourants[i];
    const int n = s.CntToNumTanks(id);
    std::vector<int> tanks(n > 0 ? n : 1);
    if (n > 0) s.CntToTanks(id, n, tanks.data());
    std::string list;
    for (int k = 0; k < n; ++k) list += (k ? " " : "") + std::to_string(tanks[k]);
    printf("%9ld  %-6s  %-24s  %s%s\n", id, names.Code(id).c_str(),
           names.Description(id).c_str(), list.c_str(), KindText(s.CntToTypeCircuitNoTh(id)));
  }
}

}  // namespace

int RunTanks(const Invocation& invocation) {
  int status = kExitOk;
  CommandArgs args;
  if (!args.Parse(invocation, {{"--svg", true}, {"--force", false}}, 0, 0, &status)) {
    return status;
  }
  if (args.Has("--force") && !args.Has("--svg")) return args.UsageFailure("--force goes with --svg");
  std::string error;
  std::shared_ptr<slave> s = OpenDispenser(invocation.options, &error);
  if (!s) return Fail(error);
  const ColourantTable names(s->m_DataId);
  const std::vector<TankRow> rows = ReadTanks(*s);

  std::string written;
  if (args.Has("--svg")) {
    // The chart is written before anything is printed: a failure leaves
    // nothing half done.
    const std::string title = "Tank levels of dispenser " + std::to_string(s->m_DispId) + " (" +
                              FieldText(s->m_Descr) + ")";
    const std::string path = args.Value("--svg");
    if (!WriteOutputFile(path, LevelChart(title, Bars(rows, names)), args.Has("--force"),
                         &error)) {
      return Fail(error);
    }
    written = path;
  }
  if (JsonOutput()) {
    Json& doc = Document();
    doc["circuits"] = TankRowsJson(rows, names);
    doc["colourants"] = DistributionJson(*s, names);
    doc["chart"] = written.empty() ? Json(nullptr) : Json(written);
    return kExitOk;
  }
  PrintTankReport(rows, names);
  printf("\n");
  PrintDistribution(*s, names);
  if (!written.empty()) {
    printf("\nchart:    %s (%zu circuit%s)\n", written.c_str(), rows.size(),
           rows.size() == 1 ? "" : "s");
  }
  return kExitOk;
}
