// Every circuit of a dispenser with its colourant, levels, threshold and
// flags, as `qslave tanks` and `qslave serve` show them.
#ifndef QSLAVE_CLI_TANK_ROWS_H
#define QSLAVE_CLI_TANK_ROWS_H

#include <string>
#include <vector>

#include "colourant_table.h"
#include "json_output.h"
#include "levels.h"
#include "slave.h"
#include "svg_chart.h"

struct TankRow {
  CircuitLevel level;
  bool has_record;
  double threshold;
  int sim, susp;
  int master;  // non-zero for a secondary tank: the circuit with the reservoir
};

// One row per tank number 1..m_NumTanks.
std::vector<TankRow> ReadTanks(slave& s);

// The rows for --json: circuit, record, colourant, code, current, reserve,
// maximum, threshold, sim, susp, shares_reservoir_of.
Json TankRowsJson(const std::vector<TankRow>& rows, const ColourantTable& names);

// The bars of the level chart.
std::vector<ChartBar> Bars(const std::vector<TankRow>& rows, const ColourantTable& names);

#endif
