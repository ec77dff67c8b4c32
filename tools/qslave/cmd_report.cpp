// report: the machine's reply to a dispensed-quantity query, per circuit
// and summed per colourant by the library.
#include <stdio.h>

#include <stdlib.h>

#include <algorithm>
#include <map>
#include <climits>
#include <string>
#include <vector>

#include "colourant_table.h"
#include "commands.h"
#include "dispenser_session.h"
#include "formula_input.h"
#include "json_output.h"
#include "numbers.h"
#include "report.h"

namespace {

const int kLabel = 11;

struct ReplyGroup {
  long circuit;
  double requested;
  double dispensed;
};

// Reads "(CIRCUIT:REQUESTED:DISPENSED)" groups, blanks allowed between
// them. The library's own reading cannot tell a malformed reply from one
// of a single group, so the reply is read strictly here first.
bool ReadReply(const std::string& reply, std::vector<ReplyGroup>* groups, std::string* error) {
  const std::string shape = "malformed reply \"" + reply + "\": ";
  size_t at = 0;
  while (true) {
    at = reply.find_first_not_of(" \t\r\n", at);
    if (at == std::string::npos) break;
    const std::string number = std::to_string(groups->size() + 1);
    if (reply[at] != '(') {
      *error = shape + "group " + number + " does not begin with \"(\"";
      return false;
    }
    const size_t close = reply.find(')', at);
    if (close == std::string::npos) {
      *error = shape + "group " + number + " is not closed";
      return false;
    }
    const std::string inside = reply.substr(at + 1, close - at - 1);
    std::vector<std::string> fields;
    size_t start = 0;
    for (size_t colon; (colon = inside.find(':', start)) != std::string::npos; start = colon + 1) {
      fields.push_back(inside.substr(start, colon - start));
    }
    fields.push_back(inside.substr(start));
    ReplyGroup group{0, 0.0, 0.0};
    if (fields.size() != 3 || !ParseLongInRange(fields[0], 0, INT_MAX, &group.circuit) ||
        !ParseFiniteDouble(fields[1], &group.requested) ||
        !ParseFiniteDouble(fields[2], &group.dispensed) || group.requested < 0.0 ||
        group.dispensed < 0.0) {
      *error = shape + "group " + number + " is not (CIRCUIT:REQUESTED:DISPENSED)";
      return false;
    }
    groups->push_back(group);
    at = close + 1;
  }
  if (groups->empty()) {
    *error = "the reply holds no group (CIRCUIT:REQUESTED:DISPENSED)";
    return false;
  }
  return true;
}

// One of the library's colourant summaries ("ID,VALUE,ID,VALUE,"), in a
// buffer large enough for every piece: a piece that does not fit would be
// dropped without a word.
bool Summary(slave& s, const std::string& reply, int mode, size_t colourants, std::string* text,
             std::string* error) {
  const size_t piece = 24 + 1 + 330 + 1;  // %ld, %lf of any finite double
  std::vector<char> out((colourants + 1) * piece + 1, '\0');
  std::vector<char> copy = Writable(reply);
  const int size = static_cast<int>(out.size()) - 1;
  int result = -1;
  switch (mode) {
    case 0: result = s.FormulaRemainingRequest(copy.data(), out.data(), size); break;
    case 1: result = s.FormulaDispensedRequest(copy.data(), out.data(), size); break;
    default: result = s.FormulaTotalOriginalRequest(copy.data(), out.data(), size); break;
  }
  if (result != 1) {
    *error = "the library could not sum the reply by colourant";
    return false;
  }
  *text = out.data();
  if (static_cast<size_t>(std::count(text->begin(), text->end(), ',')) != 2 * colourants) {
    *error = "the library's summary of the reply is incomplete";
    return false;
  }
  return true;
}

// The library's summary text "ID,VALUE,ID,VALUE," as values by colourant.
std::map<long, double> SummaryValues(const std::string& text) {
  std::map<long, double> values;
  size_t at = 0;
  while (at < text.size()) {
    const size_t comma = text.find(',', at);
    const size_t next = comma == std::string::npos ? std::string::npos : text.find(',', comma + 1);
    if (next == std::string::npos) break;
    values[strtol(text.c_str() + at, nullptr, 10)] = strtod(text.c_str() + comma + 1, nullptr);
    at = next + 1;
  }
  return values;
}

// The library counts a group as delivered as asked when it got at most
// this much more; a group that got more is left out of its colourant's
// sums.
const double kOverTolerance = 0.001;

}  // namespace

int RunReport(const Invocation& invocation) {
  int status = kExitOk;
  if (!HasArgumentCount(invocation, 1, &status)) return status;
  const std::string& reply = invocation.args[0];
  const std::string help = "qslave report --help";
  if (reply.find_first_not_of(" \t\r\n") == std::string::npos) {
    return UsageError("the reply is empty", help);
  }
  // The library reads at most this much of a reply.
  const size_t longest = SLV_CMD_BUFFER - 1;
  if (reply.size() > longest) {
    return UsageError("the reply is " + std::to_string(reply.size()) +
                          " characters long; at most " + std::to_string(longest) + " fit",
                      help);
  }
  std::string error;
  std::vector<ReplyGroup> groups;
  if (!ReadReply(reply, &groups, &error)) return UsageError(error, help);

  std::shared_ptr<slave> s = OpenDispenser(invocation.options, &error);
  if (!s) return Fail(error);
  for (const ReplyGroup& g : groups) {
    if (g.circuit < 1 || g.circuit > s->m_NumTanks || !s->TankAvail(static_cast<int>(g.circuit))) {
      return Fail("circuit " + std::to_string(g.circuit) + " of the reply is not a circuit of dispenser " +
                  std::to_string(s->m_DispId));
    }
  }
  const int n = static_cast<int>(groups.size());
  std::vector<int> circuits(n);
  std::vector<double> requested(n), dispensed(n);
  std::vector<char> copy = Writable(reply);
  const int parsed = s->ParseDispensedRequest(copy.data(), circuits.data(), requested.data(),
                                              dispensed.data());
  if (parsed != n) {
    return Fail("the library read " + std::to_string(parsed) + " group" +
                (parsed == 1 ? "" : "s") + " in a reply of " + std::to_string(n));
  }

  const ColourantTable names(s->m_DataId);
  std::vector<long> distinct;
  for (int c : circuits) {
    const long colourant = s->m_TankCntId[c - 1];
    if (std::find(distinct.begin(), distinct.end(), colourant) == distinct.end()) {
      distinct.push_back(colourant);
    }
  }
  std::string summaries[3];
  for (int mode = 0; mode < 3; ++mode) {
    if (!Summary(*s, reply, mode, distinct.size(), &summaries[mode], &error)) return Fail(error);
  }

  std::map<long, double> sums[3];
  for (int mode = 0; mode < 3; ++mode) sums[mode] = SummaryValues(summaries[mode]);

  // Per circuit: what remains is never below 0; what was given beyond the
  // request is shown as "over", and whether the sums count it.
  Json circuits_json = Json::array();
  std::vector<std::string> notes;
  for (int i = 0; i < n; ++i) {
    const long colourant = s->m_TankCntId[circuits[i] - 1];
    const double over = dispensed[i] - requested[i];
    const bool left_out = over >= kOverTolerance;
    circuits_json.push_back(Json{{"circuit", circuits[i]},
                                 {"colourant", colourant},
                                 {"code", names.Code(colourant)},
                                 {"requested", requested[i]},
                                 {"dispensed", dispensed[i]},
                                 {"remaining", over >= 0.0 ? 0.0 : -over},
                                 {"over", over > 0.0 ? over : 0.0},
                                 {"counted", !left_out}});
    if (left_out) {
      char note[160];
      snprintf(note, sizeof note,
               "circuit %d got %.3f more than requested: left out of the sums of colourant %ld",
               circuits[i], over, colourant);
      notes.push_back(note);
    }
  }
  Json colourants_json = Json::array();
  for (long colourant : distinct) {
    colourants_json.push_back(Json{{"colourant", colourant},
                                   {"code", names.Code(colourant)},
                                   {"requested", sums[2][colourant]},
                                   {"dispensed", sums[1][colourant]},
                                   {"remaining", sums[0][colourant]}});
  }
  Json& doc = Document();
  doc["reply"] = reply;
  doc["circuits"] = circuits_json;
  doc["colourants"] = colourants_json;
  doc["notes"] = notes;
  if (JsonOutput()) return kExitOk;

  printf("%-*s %s\n", kLabel, "reply:", reply.c_str());
  printf("%7s  %9s  %-6s  %10s  %10s  %10s  %10s\n", "circuit", "colourant", "code", "requested",
         "dispensed", "remaining", "over");
  for (const Json& row : circuits_json) {
    const long colourant = row["colourant"];
    printf("%7d  %9ld  %-6s  %10.3f  %10.3f  %10.3f  %10.3f\n", row["circuit"].get<int>(),
           colourant, names.Code(colourant).c_str(), row["requested"].get<double>(),
           row["dispensed"].get<double>(), row["remaining"].get<double>(),
           row["over"].get<double>());
  }
  printf("\n%9s  %-6s  %10s  %10s  %10s\n", "colourant", "code", "requested", "dispensed",
         "remaining");
  for (long colourant : distinct) {
    printf("%9ld  %-6s  %10.3f  %10.3f  %10.3f\n", colourant, names.Code(colourant).c_str(),
           sums[2][colourant], sums[1][colourant], sums[0][colourant]);
  }
  for (const std::string& note : notes) printf("%-*s %s\n", kLabel, "note:", note.c_str());
  return kExitOk;
}
