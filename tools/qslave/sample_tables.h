// The sample tables `qslave init` writes: one dispenser with twelve
// circuits, its colourants and cans, enough to try every command on the
// simulated machine.
//
// Dispenser 1 (the default, HIDE_ID "ZARVO": driver type 2) holds
//  - white (colourant 1) in tanks 1 and 2, linked to cistern 1: tank 1 is
//    the master, tank 2 the secondary (its quantities are -1);
//  - black (colourant 2) in tanks 3 and 4, independent, thresholds 0 and
//    20;
//  - colourants 3 to 10 in one tank each (tanks 5 to 12).
#ifndef QSLAVE_CLI_SAMPLE_TABLES_H
#define QSLAVE_CLI_SAMPLE_TABLES_H

#include <vector>

#include "table_writer.h"

struct SampleTable {
  QdbSchemaTable table;
  std::vector<Record> records;
};

// The five tables, in the order they are written.
std::vector<SampleTable> SampleTables();

#endif
