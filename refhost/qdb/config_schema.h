// The layouts in which the reference host creates the configuration tables
// (disps, tanks, cistern) and the colourant-data tables (colorants, cans).
// Tables written by other dBase tools with other widths work as well, as
// long as their texts are at least as wide as the values they hold.
#ifndef QSLAVE_REFHOST_CONFIG_SCHEMA_H
#define QSLAVE_REFHOST_CONFIG_SCHEMA_H

#include "host/qdbase.h"

enum QdbSchemaTable {
  QDB_SCHEMA_DISPS,
  QDB_SCHEMA_TANKS,
  QDB_SCHEMA_CISTERN,
  QDB_SCHEMA_COLORANTS,
  QDB_SCHEMA_CANS,
};

// The fields of a table; *count receives their number.
const QdbField* QdbSchemaFields(QdbSchemaTable table, int* count);
// The file base name: "disps", "tanks", "cistern", "colorants", "cans".
const char* QdbSchemaBaseName(QdbSchemaTable table);
// Creates the empty table in dir (Qdbase::Create: refuses an existing file).
int QdbSchemaCreate(QdbSchemaTable table, const char* dir);

#endif
