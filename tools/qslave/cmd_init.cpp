// init: sample tables in a new (or empty) directory. Existing tables are
// never touched: when any of the five is there, nothing is written.
#include <stdio.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "commands.h"
#include "data_dir.h"
#include "json_output.h"
#include "report.h"
#include "sample_tables.h"

namespace {

// The first of the tables init writes that already exists in dir, or "".
std::string FirstExistingTable(const std::string& dir,
                               const std::vector<SampleTable>& tables) {
  for (const SampleTable& t : tables) {
    const std::string file = ExistingTableFile(dir, QdbSchemaBaseName(t.table));
    if (!file.empty()) return file;
  }
  return "";
}

// Writes every table; on a failure removes the ones written before, so that
// the directory is as it was.
bool WriteAll(const std::string& dir, const std::vector<SampleTable>& tables,
              std::string* error) {
  std::vector<std::string> written;
  for (const SampleTable& t : tables) {
    if (!WriteTable(dir, t.table, t.records, error)) {
      for (const std::string& file : written) unlink(file.c_str());
      return false;
    }
    written.push_back(TableFile(dir, QdbSchemaBaseName(t.table)));
  }
  return true;
}

}  // namespace

int RunInit(const Invocation& invocation) {
  int status = kExitOk;
  if (!HasArgumentCount(invocation, 1, &status)) return status;
  const std::string& dir = invocation.args[0];
  if (dir.empty()) return UsageError("init needs a directory name", "qslave init --help");

  const std::vector<SampleTable> tables = SampleTables();
  std::string error;
  if (!MakeDirectories(dir, &error)) return Fail(error);
  const std::string existing = FirstExistingTable(dir, tables);
  if (!existing.empty()) {
    return Fail(existing + " already exists; init never overwrites tables");
  }
  if (!WriteAll(dir, tables, &error)) return Fail(error);

  Json written = Json::array();
  for (const SampleTable& t : tables) {
    const size_t count = t.records.size();
    const std::string file = TableFile(dir, QdbSchemaBaseName(t.table));
    written.push_back(Json{{"file", file}, {"records", count}});
    if (!JsonOutput()) {
      printf("wrote %s (%zu record%s)\n", file.c_str(), count, count == 1 ? "" : "s");
    }
  }
  Document()["tables"] = written;
  return kExitOk;
}
