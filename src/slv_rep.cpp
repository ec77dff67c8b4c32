// What an interrupted dispense delivered: the machine's reply groups
// (circuit:requested:dispensed) parsed, summed per colourant, and the
// report of a circuit list asked of the machine.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_rep";

// Over-dispensing within this much counts as exact.
const double kOverDispenseTolerance = 0.001;

enum { kRemaining = 0, kDispensed = 1, kTotalOriginal = 2 };

long ColourantOf(const slave* s, int circuit) {
  if (circuit < 1 || circuit > s->m_NumTanks || s->m_TankCntId == nullptr) return 0;
  return s->m_TankCntId[circuit - 1];
}

}  // namespace

int slave::ParseDispensedRequest(char* reply, int* circuits, double* requested, double* dispensed) try {
  if (m_DispId < 1 || reply == nullptr || reply[0] == '\0') return -1;
  // The reply is read whole, however long: a copy cut at 511 characters
  // would lose the groups past it, or cut one in two.
  std::string text = reply;
  const long open = std::count(text.begin(), text.end(), '(');
  const long close = std::count(text.begin(), text.end(), ')');
  const long colons = std::count(text.begin(), text.end(), ':');
  if (open != close || colons < 2 * close) return 1;
  for (char& c : text) {
    if (c == '(' || c == ')') c = ' ';
  }

  int groups = 0;
  char* save = nullptr;
  for (char* token = strtok_r(&text[0], " :\n", &save); token != nullptr;
       token = strtok_r(nullptr, " :\n", &save)) {
    const int circuit = static_cast<int>(strtol(token, nullptr, 10));
    char* requestedToken = strtok_r(nullptr, " :\n", &save);
    char* dispensedToken = requestedToken ? strtok_r(nullptr, " :\n", &save) : nullptr;
    if (dispensedToken == nullptr) return -1;
    if (circuits != nullptr) circuits[groups] = circuit;
    if (requested != nullptr) requested[groups] = strtod(requestedToken, nullptr);
    if (dispensed != nullptr) dispensed[groups] = strtod(dispensedToken, nullptr);
    ++groups;
  }
  return groups;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, -1);
}

int slave::FormulaRequest(char* reply, char* out, int outSize, int mode) try {
  if (out == nullptr || outSize < 1 || reply == nullptr || reply[0] == '\0') return -1;
  Qdbase* disp = nullptr;
  Qdbase* tanks = nullptr;
  if (!_slv_dbhandles(&disp, &tanks, nullptr)) return -1;
  const int n = ParseDispensedRequest(reply, nullptr, nullptr, nullptr);
  if (n < 1) return -1;

  std::vector<int> circuits(static_cast<size_t>(n), 0);
  std::vector<double> requested(circuits.size(), 0.0), dispensed(circuits.size(), 0.0);
  ParseDispensedRequest(reply, circuits.data(), requested.data(), dispensed.data());

  // The sums of each colourant, in the order the colourants first appear,
  // gathered in one pass over the groups.
  struct Sums {
    long cnt;
    double total, dispensed, remaining;
  };
  std::vector<Sums> sums;
  std::unordered_map<long, size_t> indexOf;
  for (int i = 0; i < n; ++i) {
    const long cnt = ColourantOf(this, circuits[i]);
    const auto found = indexOf.emplace(cnt, sums.size());
    if (found.second) sums.push_back(Sums{cnt, 0.0, 0.0, 0.0});
    Sums& sum = sums[found.first->second];
    const double r = requested[i];
    const double d = dispensed[i];
    if (r >= d) {
      sum.total += r;
      sum.dispensed += d;
      sum.remaining += r - d;
    } else if (d - r < kOverDispenseTolerance) {
      sum.total += r;
      sum.dispensed += r;
    }  // over-dispensed beyond the tolerance: left out of every sum
  }
  size_t used = strlen(out);
  for (const Sums& sum : sums) {
    std::string piece;
    if (mode == kRemaining) piece = SlvFormat("%ld,%lf,", sum.cnt, sum.remaining);
    if (mode == kDispensed) piece = SlvFormat("%ld,%lf,", sum.cnt, sum.dispensed);
    if (mode == kTotalOriginal) piece = SlvFormat("%ld,%lf,", sum.cnt, sum.total);
    // The caller's buffer holds outSize + 1 bytes; a piece that does not
    // fit is dropped whole and later ones are still tried.
    if (static_cast<size_t>(outSize) > used + piece.size()) {
      memcpy(out + used, piece.c_str(), piece.size() + 1);
      used += piece.size();
      out[outSize] = '\0';
    }
  }
  return 1;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, -1);
}

int slave::FormulaRemainingRequest(char* reply, char* out, int outSize) try {
  return FormulaRequest(reply, out, outSize, kRemaining);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, -1);
}

int slave::FormulaDispensedRequest(char* reply, char* out, int outSize) try {
  return FormulaRequest(reply, out, outSize, kDispensed);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, -1);
}

int slave::FormulaTotalOriginalRequest(char* reply, char* out, int outSize) try {
  return FormulaRequest(reply, out, outSize, kTotalOriginal);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, -1);
}

int slave::FormulaRemainingRequestT7R(int a, char* b, int c, char* d, int e) try {
  if (m_Dsp == nullptr || m_Dsp->GetType(0, 0) != 9) return 0;
  return m_Dsp->FormulaRemainingRequest(a, b, c, d, e);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

namespace {

struct RequestGroup {
  int circuit;
  double qnt;
};

// Reads "(circuit:quantity)" groups back to back from the start of the
// text; reading stops at the first text that is not such a group.
std::vector<RequestGroup> ReadRequest(const std::string& text) {
  std::vector<RequestGroup> groups;
  size_t pos = 0;
  while (pos < text.size() && text[pos] == '(') {
    const size_t close = text.find(')', pos);
    if (close == std::string::npos) break;
    const size_t colon = text.find(':', pos);
    if (colon == std::string::npos || colon > close) break;
    RequestGroup group;
    group.circuit = static_cast<int>(strtol(text.substr(pos + 1, colon - pos - 1).c_str(), nullptr, 10));
    group.qnt = strtod(text.substr(colon + 1, close - colon - 1).c_str(), nullptr);
    groups.push_back(group);
    pos = close + 1;
  }
  return groups;
}

// The dispensed quantity the reply gives for a circuit: the number after
// the second ':' of its group; 0 when the circuit is not in the reply.
double DispensedIn(const std::string& reply, int circuit) {
  const std::string head = SlvFormat("%c%d%c", '(', circuit, ':');
  const size_t at = reply.find(head);
  if (at == std::string::npos) return 0.0;
  const size_t close = reply.find(')', at);
  const size_t second = reply.find(':', at + head.size());
  if (second == std::string::npos || (close != std::string::npos && second > close)) return 0.0;
  return strtod(reply.c_str() + second + 1, nullptr);
}

}  // namespace

int slave::DispensedRequest(char* request, char* out, int outSize) try {
  if (m_DispId < 1 || request == nullptr || out == nullptr || outSize < 1) return 0;
  if (strlen(request) > SLV_CMD_BUFFER - 1) return 0;
  const std::string text = request;
  if (text.find_first_not_of('(') == std::string::npos) return 0;  // no token

  const std::vector<RequestGroup> groups = ReadRequest(text);
  const int n = static_cast<int>(groups.size());
  // A request without a readable group asks the machine nothing.
  if (n == 0) return 0;
  std::vector<int> circuits(static_cast<size_t>(n));
  std::vector<double> qnts(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) {
    circuits[i] = groups[i].circuit;
    qnts[i] = groups[i].qnt;
  }
  const size_t room = 2 * static_cast<size_t>(n);
  std::vector<int> tanksA(room, 0), tanksB(room, 0);
  std::vector<double> qntsA(room, 0.0), qntsB(room, 0.0);
  int nA = 0, nB = 0;
  DoSplittArrays(n, circuits.data(), qnts.data(), 1.0, &nA, tanksA.data(), qntsA.data(), &nB,
                 tanksB.data(), qntsB.data());

  const std::string command =
      (nA > 0 && nB < 1)
          ? MakeCommandString(nA, tanksA.data(), qntsA.data(), 1.0, nB, tanksB.data(), qntsB.data())
          : MakeCommandString(nB, tanksB.data(), qntsB.data(), 1.0, nA, tanksA.data(), qntsA.data());
  const size_t cut = command.find(';');
  const std::string firstPart = command.substr(0, cut);
  const std::string secondPart = cut == std::string::npos ? "" : command.substr(cut + 1);
  // Both queries are checked before the first is sent: a request whose
  // query cannot be built whole asks the machine nothing (no bare "/O").
  if (firstPart.empty()) {
    TarvoTrace("\n%s(%d): request builds no query", kSource, __LINE__);
    m_LastError = SLV_ERR_GENERIC;
    return 0;
  }
  for (const std::string* part : {&firstPart, &secondPart}) {
    const size_t length = part->size() + 2;
    if (length < SLV_CMD_BUFFER) continue;
    TarvoTrace("\n%s(%d): query of %zu characters refused: room for %d", kSource, __LINE__, length,
               SLV_CMD_BUFFER - 1);
    m_LastError = SLV_ERR_GENERIC;
    return 0;
  }

  char reply[SLV_CMD_BUFFER] = "";
  char query[SLV_CMD_BUFFER];
  snprintf(query, sizeof query, "/O%s", firstPart.c_str());
  int result = sendcommand(query, reply, sizeof reply - 1);
  bool correct = false;
  if (result == 0) {
    if (secondPart.empty()) return 0;
    snprintf(query, sizeof query, "/O%s", secondPart.c_str());
    result = sendcommand(query, reply, sizeof reply - 1);
    if (result == 0) return 0;
    correct = true;
  }

  std::string report;
  for (const RequestGroup& group : groups) {
    double delivered = DispensedIn(reply, group.circuit);
    // The second pass's quantities were not in the first pass's reply.
    for (int j = 0; correct && j < nB; ++j) {
      if (tanksB[j] == group.circuit) delivered += qntsB[j];
    }
    report += SlvFormat("%c%d%c%.3lf%c%.3lf%c", '(', group.circuit, ':', group.qnt, ':', delivered,
                        ')');
  }
  // The report is refused whole rather than cut when out cannot hold it.
  if (report.size() >= static_cast<size_t>(outSize)) {
    TarvoTrace("\n%s(%d): report of %zu characters refused: room for %d", kSource, __LINE__,
               report.size(), outSize - 1);
    out[0] = '\0';
    return 0;
  }
  memcpy(out, report.c_str(), report.size() + 1);
  return result;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}
