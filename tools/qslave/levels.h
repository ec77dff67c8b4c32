// Circuit levels as the library reports them (TankQnts), read before and
// after an operation and shown side by side.
#ifndef QSLAVE_CLI_LEVELS_H
#define QSLAVE_CLI_LEVELS_H

#include <map>
#include <string>
#include <vector>

#include "colourant_table.h"
#include "json_output.h"
#include "slave.h"

struct CircuitLevel {
  int circuit;
  long colourant;  // 0: none
  bool known;      // TankQnts answered
  double current, reserve, maximum;
};

CircuitLevel ReadLevel(slave& s, int circuit);
std::vector<CircuitLevel> ReadLevels(slave& s, const std::vector<int>& circuits);

// The colourant in circuit's tank; 0 for none or a circuit beyond the
// dispenser's.
long ColourantOfCircuit(const slave& s, int circuit);

// Whether the dispenser has a tank record for circuit; when not, *error
// says so in the tool's words.
bool HasCircuit(slave& s, long circuit, std::string* error);

// The circuits 1..m_NumTanks that hold a colourant.
std::vector<int> CircuitsWithColourant(const slave& s);

// One line per circuit: circuit, colourant, code, [quantity,] level before
// and after. quantities (circuit -> quantity drawn) may be null: no column.
void PrintLevelChanges(const ColourantTable& names, const std::vector<CircuitLevel>& before,
                       const std::vector<CircuitLevel>& after,
                       const std::map<int, double>* quantities);

// The same rows for --json: circuit, colourant (null for none), code,
// [quantity,] before, after; a level that cannot be read is null.
Json LevelChangesJson(const ColourantTable& names, const std::vector<CircuitLevel>& before,
                      const std::vector<CircuitLevel>& after,
                      const std::map<int, double>* quantities);

// Shows the level changes: the table, or with --json the document's
// "circuits".
void ShowLevelChanges(const ColourantTable& names, const std::vector<CircuitLevel>& before,
                      const std::vector<CircuitLevel>& after,
                      const std::map<int, double>* quantities);

// A level for a report: "%.3f", or "-" when unknown.
std::string LevelText(bool known, double value);

#endif
