#include "dispenser_tables.h"

#include "test_support.h"

#include <stdio.h>
#include <unistd.h>

#include <cctype>

namespace qtest {

namespace {

std::string Upper(const std::string& s) {
  std::string u = s;
  for (char& c : u) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  return u;
}

// An open table bound to a file without indexes; records are appended in
// file order.
class AppendTable {
 public:
  AppendTable(const std::string& dir, const char* base) {
    static const char* kNoNames[] = {""};
    static const char* kNoKeys[] = {""};
    ok_ = table_.SetFiles(dir.c_str(), base, 0, kNoNames, kNoKeys) == 1 &&
          table_.Open() == 1 && table_.Append() == 1;
  }
  ~AppendTable() {
    if (table_.IsOpen()) table_.Close();
  }
  bool ok() const { return ok_; }
  bool Has(const char* field) const { return table_.FieldNo(field) > 0; }

  void Long(const char* field, long v) {
    if (Has(field)) ok_ = table_.WriteLong(field, v) == 1 && ok_;
  }
  void Int(const char* field, int v) {
    if (Has(field)) ok_ = table_.WriteInt(field, v) == 1 && ok_;
  }
  void Double(const char* field, double v) {
    if (Has(field)) ok_ = table_.WriteDouble(field, v) == 1 && ok_;
  }
  void Logical(const char* field, bool v) {
    if (Has(field)) ok_ = table_.WriteLogical(field, v ? 1 : 0) == 1 && ok_;
  }
  void String(const char* field, const std::string& v) {
    if (Has(field)) ok_ = table_.WriteString(field, v.c_str()) == 1 && ok_;
  }
  // An id as tables from the field store it in a text field: five
  // characters, right-aligned.
  void TextId(const char* field, long v) {
    // A table written by another program may keep the id in a number field.
    if (Has(field) && table_.FieldType(field) != 'C') {
      Long(field, v);
      return;
    }
    char text[32];
    snprintf(text, sizeof text, "%5ld", v);
    String(field, text);
  }

  long Finish() {
    if (!ok_) return 0;
    long recno = table_.RecNo();
    if (table_.Close() != 1) return 0;
    return recno;
  }

 private:
  Qdbase table_;
  bool ok_ = false;
};

}  // namespace

std::string Communic(int port, int baud, char parity, int param10_11,
                     int param12_13, double timeout) {
  char head[64];
  snprintf(head, sizeof head, "%2d%6d%c %02d%02d", port, baud, parity,
           param10_11, param12_13);
  std::string text = head;  // 14 characters: positions 0-13
  text.resize(41, ' ');
  char tail[32];
  snprintf(tail, sizeof tail, "%9.3f", timeout);
  return text + tail;  // positions 41-49
}

std::string FixedText(int length, const std::map<int, std::string>& pieces) {
  std::string text(static_cast<size_t>(length), ' ');
  for (const auto& piece : pieces) {
    size_t end = static_cast<size_t>(piece.first) + piece.second.size();
    if (end > text.size()) text.resize(end, ' ');
    text.replace(static_cast<size_t>(piece.first), piece.second.size(),
                 piece.second);
  }
  return text;
}

DispenserTables::DispenserTables(const std::string& dir) : dir_(dir) {
  QdbSchemaCreate(QDB_SCHEMA_DISPS, dir_.c_str());
  QdbSchemaCreate(QDB_SCHEMA_TANKS, dir_.c_str());
  QdbSchemaCreate(QDB_SCHEMA_CISTERN, dir_.c_str());
}

std::string DispenserTables::FileOf(QdbSchemaTable table) const {
  return dir_ + "/" + QdbSchemaBaseName(table) + ".dbf";
}

void DispenserTables::Remove(QdbSchemaTable table) {
  unlink(FileOf(table).c_str());
}

bool DispenserTables::RecreateWithout(QdbSchemaTable table,
                                      const std::vector<std::string>& dropped) {
  int count = 0;
  const QdbField* fields = QdbSchemaFields(table, &count);
  std::vector<QdbField> kept;
  for (int i = 0; i < count; ++i) {
    bool drop = false;
    for (const std::string& name : dropped) {
      if (Upper(name) == Upper(fields[i].name)) drop = true;
    }
    if (!drop) kept.push_back(fields[i]);
  }
  Remove(table);
  return Qdbase::Create(dir_.c_str(), QdbSchemaBaseName(table),
                        static_cast<int>(kept.size()), kept.data()) == 1;
}

bool DispenserTables::RecreateWithWidths(
    QdbSchemaTable table, const std::map<std::string, int>& widths) {
  int count = 0;
  const QdbField* fields = QdbSchemaFields(table, &count);
  std::vector<QdbField> changed(fields, fields + count);
  for (QdbField& field : changed) {
    for (const auto& w : widths) {
      if (Upper(w.first) == Upper(field.name)) field.width = w.second;
    }
  }
  Remove(table);
  return Qdbase::Create(dir_.c_str(), QdbSchemaBaseName(table),
                        static_cast<int>(changed.size()), changed.data()) == 1;
}

bool DispenserTables::RecreateWithFields(QdbSchemaTable table,
                                         const std::vector<QdbField>& replaced) {
  int count = 0;
  const QdbField* fields = QdbSchemaFields(table, &count);
  std::vector<QdbField> changed(fields, fields + count);
  for (QdbField& field : changed) {
    for (const QdbField& r : replaced) {
      if (Upper(r.name) == Upper(field.name)) field = r;
    }
  }
  Remove(table);
  return Qdbase::Create(dir_.c_str(), QdbSchemaBaseName(table),
                        static_cast<int>(changed.size()), changed.data()) == 1;
}

bool DispenserTables::EnsureTable(QdbSchemaTable table) {
  if (access(FileOf(table).c_str(), F_OK) == 0) return true;
  return QdbSchemaCreate(table, dir_.c_str()) == 1;
}

bool DispenserTables::CreateColorants() {
  return EnsureTable(QDB_SCHEMA_COLORANTS);
}

long DispenserTables::AddDispenser(const DispenserRow& row) {
  if (!EnsureTable(QDB_SCHEMA_DISPS)) return 0;
  AppendTable t(dir_, QdbSchemaBaseName(QDB_SCHEMA_DISPS));
  if (!t.ok()) return 0;
  t.Long("ID", row.id);
  t.Logical("X", row.x);
  t.Int("SLAVE", row.slave_addr);
  t.String("DESCR", row.descr);
  t.String("OPTIONS", row.options);
  t.String("MODEL", row.model);
  t.String("SERIAL_N", row.serial_n);
  t.String("HIDE_ID", row.hide_id);
  t.String("COMMUNIC", row.communic);
  t.String("CFG_STR", row.cfg_str);
  t.String("VALUES", row.values);
  t.Double("THRESHOLD", row.threshold);
  t.Long("DATA_ID", row.data_id);
  return t.Finish();
}

long DispenserTables::AddTank(const TankRow& row) {
  if (!EnsureTable(QDB_SCHEMA_TANKS)) return 0;
  AppendTable t(dir_, QdbSchemaBaseName(QDB_SCHEMA_TANKS));
  if (!t.ok()) return 0;
  t.TextId("DISP_ID", row.disp_id);
  t.Int("TANK", row.tank);
  t.Long("CNT_ID", row.cnt_id);
  t.Double("CUR_Q", row.cur_q);
  t.Double("RES_Q", row.res_q);
  t.Double("MAX_Q", row.max_q);
  t.Double("THRESHOLD", row.threshold);
  t.String("STATUS_FLG", row.status_flg);
  t.TextId("CIST_ID", row.cist_id);
  t.String("MPX", row.mpx);
  t.Double("RESOLUT", row.resolut);
  return t.Finish();
}

long DispenserTables::AddCistern(const CisternRow& row) {
  if (!EnsureTable(QDB_SCHEMA_CISTERN)) return 0;
  AppendTable t(dir_, QdbSchemaBaseName(QDB_SCHEMA_CISTERN));
  if (!t.ok()) return 0;
  t.Long("ID", row.id);
  t.Int("USERS", row.users);
  t.Double("MAX_Q", row.max_q);
  t.Double("CUR_Q", row.cur_q);
  t.Double("RES_Q", row.res_q);
  return t.Finish();
}

long DispenserTables::AddColorant(const ColorantRow& row) {
  if (!EnsureTable(QDB_SCHEMA_COLORANTS)) return 0;
  AppendTable t(dir_, QdbSchemaBaseName(QDB_SCHEMA_COLORANTS));
  if (!t.ok()) return 0;
  t.Long("ID", row.id);
  t.String("CODE", row.code);
  t.String("DESCR", row.descr);
  t.Double("SPEC_W", row.spec_w);
  return t.Finish();
}

long DispenserTables::AddCan(const CanRow& row) {
  if (!EnsureTable(QDB_SCHEMA_CANS)) return 0;
  AppendTable t(dir_, QdbSchemaBaseName(QDB_SCHEMA_CANS));
  if (!t.ok()) return 0;
  t.Long("ID", row.id);
  t.Int("H_MIN", row.h_min);
  t.Int("H_MAX", row.h_max);
  t.Logical("ZERO_FLAG", row.zero_flag);
  t.Logical("NO_PUNCH", row.no_punch);
  t.String("FLAGS", row.flags);
  return t.Finish();
}

std::string DispenserTables::ReadDispenserField(long id,
                                                const std::string& field) const {
  std::string script =
      "import sys, dbfread\n"
      "try:\n"
      "    table = dbfread.DBF(" + PyQuote(FileOf(QDB_SCHEMA_DISPS)) +
      ", load=True)\n"
      "except Exception:\n"
      "    sys.stdout.write('<error>')\n"
      "    sys.exit(0)\n"
      "for record in table:\n"
      "    if record['ID'] is not None and int(record['ID']) == " +
      std::to_string(id) + ":\n"
      "        sys.stdout.write(str(record[" + PyQuote(field) + "]))\n"
      "        sys.exit(0)\n"
      "sys.stdout.write('<none>')\n";
  std::string out;
  if (RunPython(script, &out) != 0) return "<error>";
  return out;
}

}  // namespace qtest
