#include "levels.h"

#include <stdio.h>

CircuitLevel ReadLevel(slave& s, int circuit) { return ReadLevels(s, {circuit}).front(); }

std::vector<CircuitLevel> ReadLevels(slave& s, const std::vector<int>& circuits) {
  // One call of the library for all of them: a driver that keeps the
  // levels is asked for its rows once, not once per circuit.
  const size_t n = circuits.size();
  std::vector<double> current(n), reserve(n), maximum(n);
  std::vector<int> known(n);
  s.TanksQnts(static_cast<int>(n), circuits.data(), current.data(), reserve.data(),
              maximum.data(), known.data());
  std::vector<CircuitLevel> levels;
  for (size_t i = 0; i < n; ++i) {
    const int circuit = circuits[i];
    levels.push_back({circuit, ColourantOfCircuit(s, circuit), known[i] == 1, current[i],
                      reserve[i], maximum[i]});
  }
  return levels;
}

long ColourantOfCircuit(const slave& s, int circuit) {
  return circuit >= 1 && circuit <= s.m_NumTanks ? s.m_TankCntId[circuit - 1] : 0;
}

std::vector<int> CircuitsWithColourant(const slave& s) {
  std::vector<int> circuits;
  for (int tank = 1; tank <= s.m_NumTanks; ++tank) {
    if (s.m_TankRecNo[tank - 1] != 0 && s.m_TankCntId[tank - 1] != 0) circuits.push_back(tank);
  }
  return circuits;
}

std::string LevelText(bool known, double value) {
  if (!known) return "-";
  char text[64];
  snprintf(text, sizeof text, "%.3f", value);
  return text;
}

void PrintLevelChanges(const ColourantTable& names, const std::vector<CircuitLevel>& before,
                       const std::vector<CircuitLevel>& after,
                       const std::map<int, double>* quantities) {
  printf("%7s  %9s  %-6s", "circuit", "colourant", "code");
  if (quantities != nullptr) printf("  %10s", "quantity");
  printf("  %10s  %10s\n", "before", "after");
  for (size_t i = 0; i < before.size() && i < after.size(); ++i) {
    const CircuitLevel& b = before[i];
    printf("%7d  %9ld  %-6s", b.circuit, b.colourant, names.Code(b.colourant).c_str());
    if (quantities != nullptr) {
      const auto found = quantities->find(b.circuit);
      const bool known = found != quantities->end();
      printf("  %10s", LevelText(known, known ? found->second : 0.0).c_str());
    }
    printf("  %10s  %10s\n", LevelText(b.known, b.current).c_str(),
           LevelText(after[i].known, after[i].current).c_str());
  }
}

bool HasCircuit(slave& s, long circuit, std::string* error) {
  if (circuit >= 1 && circuit <= s.m_NumTanks && s.TankAvail(static_cast<int>(circuit))) {
    return true;
  }
  *error = "dispenser " + std::to_string(s.m_DispId) + " has no circuit " + std::to_string(circuit);
  return false;
}

Json LevelChangesJson(const ColourantTable& names, const std::vector<CircuitLevel>& before,
                      const std::vector<CircuitLevel>& after,
                      const std::map<int, double>* quantities) {
  Json rows = Json::array();
  for (size_t i = 0; i < before.size() && i < after.size(); ++i) {
    const CircuitLevel& b = before[i];
    Json row = Json::object();
    row["circuit"] = b.circuit;
    row["colourant"] = b.colourant != 0 ? Json(b.colourant) : Json(nullptr);
    row["code"] = names.Code(b.colourant);
    if (quantities != nullptr) {
      const auto found = quantities->find(b.circuit);
      row["quantity"] = found != quantities->end() ? Json(found->second) : Json(nullptr);
    }
    row["before"] = LevelValue(b.known, b.current);
    row["after"] = LevelValue(after[i].known, after[i].current);
    rows.push_back(row);
  }
  return rows;
}

void ShowLevelChanges(const ColourantTable& names, const std::vector<CircuitLevel>& before,
                      const std::vector<CircuitLevel>& after,
                      const std::map<int, double>* quantities) {
  if (JsonOutput()) {
    Document()["circuits"] = LevelChangesJson(names, before, after, quantities);
  } else {
    PrintLevelChanges(names, before, after, quantities);
  }
}
