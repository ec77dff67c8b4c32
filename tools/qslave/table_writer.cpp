#include "table_writer.h"

#include <unistd.h>

#include "data_dir.h"

namespace {

bool WriteValue(Qdbase* table, const FieldValue& value) {
  switch (value.kind) {
    case FieldValue::kLong: return table->WriteLong(value.field, value.number) == 1;
    case FieldValue::kDouble: return table->WriteDouble(value.field, value.decimal) == 1;
    case FieldValue::kLogical: return table->WriteLogical(value.field, value.number) == 1;
    case FieldValue::kText: return table->WriteString(value.field, value.text.c_str()) == 1;
  }
  return false;
}

bool AppendRecords(Qdbase* table, const std::string& file,
                   const std::vector<Record>& records, std::string* error) {
  for (size_t i = 0; i < records.size(); ++i) {
    if (table->Append() != 1) {
      *error = "cannot append record " + std::to_string(i + 1) + " to " + file;
      return false;
    }
    for (const FieldValue& value : records[i]) {
      if (!WriteValue(table, value)) {
        *error = "cannot write " + std::string(value.field) + " of record " +
                 std::to_string(i + 1) + " to " + file;
        return false;
      }
    }
  }
  return true;
}

}  // namespace

FieldValue Long(const char* field, long value) {
  return FieldValue{field, FieldValue::kLong, value, 0.0, ""};
}

FieldValue Double(const char* field, double value) {
  return FieldValue{field, FieldValue::kDouble, 0, value, ""};
}

FieldValue Logical(const char* field, bool value) {
  return FieldValue{field, FieldValue::kLogical, value ? 1 : 0, 0.0, ""};
}

FieldValue Text(const char* field, const std::string& value) {
  return FieldValue{field, FieldValue::kText, 0, 0.0, value};
}

bool WriteTable(const std::string& dir, QdbSchemaTable table,
                const std::vector<Record>& records, std::string* error) {
  const char* base = QdbSchemaBaseName(table);
  const std::string file = TableFile(dir, base);
  if (QdbSchemaCreate(table, dir.c_str()) != 1) {
    *error = "cannot create " + file;
    return false;
  }
  bool ok = false;
  {
    Qdbase writer;
    ok = writer.SetFiles(dir.c_str(), base, 0, nullptr, nullptr) == 1 &&
         writer.Open() == 1;
    if (!ok) *error = "cannot open " + file + " after creating it";
    if (ok) ok = AppendRecords(&writer, file, records, error);
    if (writer.IsOpen() && writer.Close() != 1 && ok) {
      *error = "cannot close " + file;
      ok = false;
    }
  }
  if (!ok) unlink(file.c_str());
  return ok;
}
