// Writing whole tables in the reference host's layouts, record by record,
// each value with the typed write that suits it.
#ifndef QSLAVE_CLI_TABLE_WRITER_H
#define QSLAVE_CLI_TABLE_WRITER_H

#include <string>
#include <vector>

#include "refhost/qdb/config_schema.h"

// One field value of a record to write.
struct FieldValue {
  enum Kind { kLong, kDouble, kLogical, kText };
  const char* field;
  Kind kind;
  long number;
  double decimal;
  std::string text;
};

FieldValue Long(const char* field, long value);
FieldValue Double(const char* field, double value);
FieldValue Logical(const char* field, bool value);
FieldValue Text(const char* field, const std::string& value);

using Record = std::vector<FieldValue>;

// Creates the table in dir (refused when its file exists) and appends the
// records. On failure returns false with *error naming the file and, for a
// refused value, the record and field; a table created by this call is
// removed again, so a failure leaves nothing behind.
bool WriteTable(const std::string& dir, QdbSchemaTable table,
                const std::vector<Record>& records, std::string* error);

#endif
