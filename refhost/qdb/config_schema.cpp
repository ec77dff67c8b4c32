#include "config_schema.h"

namespace {

// Widths: each text is one character narrower than the buffer the library
// reads it into, so a full field still fits with its terminator.
const QdbField kDisps[] = {
    {"ID", 'N', 5, 0},        {"X", 'L', 1, 0},
    {"SLAVE", 'N', 3, 0},     {"DESCR", 'C', 24, 0},
    {"OPTIONS", 'C', 32, 0},  {"MODEL", 'C', 11, 0},
    {"SERIAL_N", 'C', 24, 0}, {"HIDE_ID", 'C', 12, 0},
    {"COMMUNIC", 'C', 154, 0}, {"CFG_STR", 'C', 127, 0},
    {"VALUES", 'C', 127, 0},  {"THRESHOLD", 'N', 10, 3},
    {"DATA_ID", 'N', 5, 0},
};

const QdbField kTanks[] = {
    {"DISP_ID", 'C', 5, 0},    {"TANK", 'N', 3, 0},
    {"CNT_ID", 'N', 6, 0},     {"CUR_Q", 'N', 12, 3},
    {"RES_Q", 'N', 12, 3},     {"MAX_Q", 'N', 12, 3},
    {"THRESHOLD", 'N', 10, 3}, {"STATUS_FLG", 'C', 8, 0},
    {"CIST_ID", 'C', 5, 0},    {"MPX", 'C', 84, 0},
    {"RESOLUT", 'N', 10, 4},
};

const QdbField kCistern[] = {
    {"ID", 'N', 5, 0},      {"USERS", 'N', 3, 0},
    {"MAX_Q", 'N', 12, 3},  {"CUR_Q", 'N', 12, 3},
    {"RES_Q", 'N', 12, 3},
};

const QdbField kColorants[] = {
    {"ID", 'N', 6, 0},
    {"CODE", 'C', 10, 0},
    {"DESCR", 'C', 24, 0},
    {"SPEC_W", 'N', 10, 3},
};

const QdbField kCans[] = {
    {"ID", 'N', 6, 0},        {"H_MIN", 'N', 5, 0},
    {"H_MAX", 'N', 5, 0},     {"ZERO_FLAG", 'L', 1, 0},
    {"NO_PUNCH", 'L', 1, 0},  {"FLAGS", 'C', 15, 0},
};

template <int N>
const QdbField* Fields(const QdbField (&fields)[N], int* count) {
  if (count != nullptr) *count = N;
  return fields;
}

}  // namespace

const QdbField* QdbSchemaFields(QdbSchemaTable table, int* count) {
  switch (table) {
    case QDB_SCHEMA_DISPS: return Fields(kDisps, count);
    case QDB_SCHEMA_TANKS: return Fields(kTanks, count);
    case QDB_SCHEMA_CISTERN: return Fields(kCistern, count);
    case QDB_SCHEMA_COLORANTS: return Fields(kColorants, count);
    case QDB_SCHEMA_CANS: return Fields(kCans, count);
  }
  if (count != nullptr) *count = 0;
  return nullptr;
}

const char* QdbSchemaBaseName(QdbSchemaTable table) {
  switch (table) {
    case QDB_SCHEMA_DISPS: return "disps";
    case QDB_SCHEMA_TANKS: return "tanks";
    case QDB_SCHEMA_CISTERN: return "cistern";
    case QDB_SCHEMA_COLORANTS: return "colorants";
    case QDB_SCHEMA_CANS: return "cans";
  }
  return "";
}

int QdbSchemaCreate(QdbSchemaTable table, const char* dir) {
  int count = 0;
  const QdbField* fields = QdbSchemaFields(table, &count);
  if (fields == nullptr) return 0;
  return Qdbase::Create(dir, QdbSchemaBaseName(table), count, fields);
}
