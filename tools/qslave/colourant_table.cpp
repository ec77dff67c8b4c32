#include "colourant_table.h"

#include "host/qdbase.h"
#include "host/zutable.h"

namespace {

// Wide enough for every text field of the table: ReadString refuses a text
// that does not fit rather than cutting it.
const int kFieldBuffer = 256;

std::string ReadText(Qdbase* table, const char* field) {
  char buf[kFieldBuffer] = {};
  if (!table->ReadString(field, buf, sizeof buf, 1)) return "";
  return buf;
}

}  // namespace

ColourantTable::ColourantTable(long data_id) {
  CZutable colourants;
  colourants.SetDataId(data_id);
  colourants.Handle(ZUSPEC_COLORANTS);
  if (!colourants.Open()) return;
  Qdbase* table = colourants.Table();
  if (table == nullptr) return;
  table->SelectIdx(0);
  for (int more = table->Top(); more && !table->Eof(); more = table->Next()) {
    long id = 0;
    if (!table->ReadLong("ID", &id)) continue;
    ColourantNames names{ReadText(table, "CODE"), ReadText(table, "DESCR")};
    names_.emplace(id, names);
  }
  colourants.Close();
}

std::string ColourantTable::Code(long id) const {
  const auto found = names_.find(id);
  if (found == names_.end() || found->second.code.empty()) return "-";
  return found->second.code;
}

std::string ColourantTable::Description(long id) const {
  const auto found = names_.find(id);
  return found == names_.end() ? "" : found->second.description;
}
