#include "fuzz_tables.h"

#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "host/qdsp32.h"
#include "refhost/qdb/config_schema.h"
#include "slave.h"

namespace qfuzz {

namespace {

std::string g_dir;
std::string g_pristine;

void NoTrace(const char*) {}
void NoMessage(const char*) {}

void RemoveTree(const std::string& dir) {
  DIR* d = opendir(dir.c_str());
  if (d == nullptr) return;
  while (dirent* e = readdir(d)) {
    std::string name = e->d_name;
    if (name == "." || name == "..") continue;
    std::string path = dir + "/" + name;
    struct stat st;
    if (lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
      RemoveTree(path);
    } else {
      unlink(path.c_str());
    }
  }
  closedir(d);
  rmdir(dir.c_str());
}

void RemoveAtExit() {
  if (!g_dir.empty()) RemoveTree(g_dir);
}

bool EndsWith(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

// Every .dbf file of a directory.
std::vector<std::string> DbfFiles(const std::string& dir) {
  std::vector<std::string> names;
  DIR* d = opendir(dir.c_str());
  if (d == nullptr) return names;
  while (dirent* e = readdir(d)) {
    std::string name = e->d_name;
    if (EndsWith(name, ".dbf")) names.push_back(name);
  }
  closedir(d);
  return names;
}

void CopyFile(const std::string& from, const std::string& to) {
  std::ifstream in(from, std::ios::binary);
  std::ofstream out(to, std::ios::binary | std::ios::trunc);
  out << in.rdbuf();
}

void Die(const char* what) {
  fprintf(stderr, "fuzz set-up failed: %s\n", what);
  abort();
}

}  // namespace

const std::string& InitDataDir() {
  if (!g_dir.empty()) return g_dir;
  std::string base = "/dev/shm";
  if (access(base.c_str(), W_OK) != 0) {
    const char* tmp = getenv("TMPDIR");
    base = tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
  }
  std::string tmpl = base + "/qslave-fuzz-XXXXXX";
  std::vector<char> name(tmpl.begin(), tmpl.end());
  name.push_back('\0');
  if (mkdtemp(name.data()) == nullptr) Die("mkdtemp");
  g_dir = name.data();
  g_pristine = g_dir + "/pristine";
  if (mkdir(g_pristine.c_str(), 0700) != 0) Die("mkdir pristine");
  atexit(RemoveAtExit);

  setenv("QSLAVE_DATA", g_dir.c_str(), 1);
  unsetenv("QSLAVE_SIM");
  unsetenv("QSLAVE_TRACE");
  unsetenv("DSPDEBUG");
  unsetenv("DEBUG_NO_CLEAR");
  TarvoTraceSetHook(NoTrace);
  slave::Message = NoMessage;
  // The current directory stays: libFuzzer reads its corpus paths
  // relative to it after this set-up.
  return g_dir;
}

const std::string& DataDir() { return g_dir; }

Row::Row(const char* base) : ok_(false) {
  if (table_.SetFiles(g_dir.c_str(), base, 0, nullptr, nullptr) != 1 || table_.Open() != 1) return;
  // The record's writes are one booking: one lock and one write of the
  // file for the whole record, not one for each field.
  booking_.reset(new QdbBooking(&table_));
  ok_ = booking_->Ok() == 1 && table_.Append() == 1;
}

Row::~Row() {
  booking_.reset();  // a record not finished is abandoned
  if (table_.IsOpen()) table_.Close();
}

Row& Row::Long(const char* field, long v) {
  if (table_.FieldNo(field) > 0) ok_ = table_.WriteLong(field, v) == 1 && ok_;
  return *this;
}

Row& Row::Double(const char* field, double v) {
  if (table_.FieldNo(field) > 0) ok_ = table_.WriteDouble(field, v) == 1 && ok_;
  return *this;
}

Row& Row::Logical(const char* field, bool v) {
  if (table_.FieldNo(field) > 0) ok_ = table_.WriteLogical(field, v ? 1 : 0) == 1 && ok_;
  return *this;
}

Row& Row::String(const char* field, const std::string& v) {
  // A fuzzed text the field refuses (too long) leaves the field blank; that
  // is a record the library must read as well.
  if (table_.FieldNo(field) > 0) table_.WriteString(field, v.c_str());
  return *this;
}

Row& Row::TextId(const char* field, long v) {
  char text[32];
  snprintf(text, sizeof text, "%5ld", v);
  return String(field, text);
}

bool Row::Finish() {
  bool ok = ok_ && booking_ != nullptr && booking_->Commit() == 1;
  booking_.reset();
  ok = table_.Close() == 1 && ok;
  return ok;
}

bool CreateTable(int schemaTable, const std::vector<std::pair<std::string, int>>& widths) {
  const QdbSchemaTable table = static_cast<QdbSchemaTable>(schemaTable);
  int count = 0;
  const QdbField* fields = QdbSchemaFields(table, &count);
  std::vector<QdbField> changed(fields, fields + count);
  for (QdbField& f : changed) {
    for (const auto& w : widths) {
      if (strcasecmp(w.first.c_str(), f.name) == 0) f.width = w.second;
    }
  }
  std::string file = g_dir + "/" + QdbSchemaBaseName(table) + ".dbf";
  unlink(file.c_str());
  return Qdbase::Create(g_dir.c_str(), QdbSchemaBaseName(table), static_cast<int>(changed.size()),
                        changed.data()) == 1;
}

namespace {

std::string Communic(int port, int baud, char parity, int p1, int p2, double timeout) {
  char head[64];
  snprintf(head, sizeof head, "%2d%6d%c %02d%02d", port, baud, parity, p1, p2);
  std::string text = head;
  text.resize(41, ' ');
  char tail[32];
  snprintf(tail, sizeof tail, "%9.3f", timeout);
  return text + tail;
}

// CFG_STR with the photocell factors at 1-3 and 4-7, the pre-position at
// 33-36, the splitting percentage (tenths) at 37-40, the splitting
// threshold at 41-44 and the manual puncher digit at 45.
std::string CfgStr() {
  std::string text(60, ' ');
  auto put = [&text](size_t at, const char* piece) { text.replace(at, strlen(piece), piece); };
  put(1, "050");
  put(4, "0200");
  put(33, "0100");
  put(37, "0100");
  put(41, "0020");
  put(45, "1");
  return text;
}

void Dispenser(long id, const char* hide, const char* model, const char* options, bool withCfg) {
  Row r("disps");
  r.Long("ID", id)
      .Logical("X", false)
      .Long("SLAVE", id)
      .String("DESCR", "Dispenser " + std::to_string(id))
      .String("OPTIONS", options)
      .String("MODEL", model)
      .String("SERIAL_N", "SN" + std::to_string(id))
      .String("HIDE_ID", hide)
      .String("COMMUNIC", Communic(1, 9600, 'N', 1, 8, 2.5))
      .String("CFG_STR", withCfg ? CfgStr() : "")
      .String("VALUES", "10;20;30")
      .Double("THRESHOLD", 0.5)
      .Long("DATA_ID", 0);
  if (!r.Finish()) Die("dispenser row");
}

void Tank(long disp, int tank, long cnt, double cur, double res, double max, double th,
          const char* flags, long cist, const char* mpx) {
  Row r("tanks");
  r.TextId("DISP_ID", disp)
      .Long("TANK", tank)
      .Long("CNT_ID", cnt)
      .Double("CUR_Q", cur)
      .Double("RES_Q", res)
      .Double("MAX_Q", max)
      .Double("THRESHOLD", th)
      .String("STATUS_FLG", flags)
      .TextId("CIST_ID", cist)
      .String("MPX", mpx)
      .Double("RESOLUT", 0.05);
  if (!r.Finish()) Die("tank row");
}

void Cistern(long id, int users, double max, double cur, double res) {
  Row r("cistern");
  r.Long("ID", id).Long("USERS", users).Double("MAX_Q", max).Double("CUR_Q", cur).Double("RES_Q",
                                                                                        res);
  if (!r.Finish()) Die("cistern row");
}

void Colorant(long id, const char* code, double specW) {
  Row r("colorants");
  r.Long("ID", id).String("CODE", code).String("DESCR", std::string("Colourant ") + code).Double(
      "SPEC_W", specW);
  if (!r.Finish()) Die("colorant row");
}

void Can(long id, int hMin, int hMax) {
  Row r("cans");
  r.Long("ID", id).Long("H_MIN", hMin).Long("H_MAX", hMax).Logical("ZERO_FLAG", false).Logical(
      "NO_PUNCH", id == 2).String("FLAGS", "0101");
  if (!r.Finish()) Die("can row");
}

}  // namespace

void WriteStandardTables() {
  for (int t : {QDB_SCHEMA_DISPS, QDB_SCHEMA_TANKS, QDB_SCHEMA_CISTERN, QDB_SCHEMA_COLORANTS,
                QDB_SCHEMA_CANS}) {
    if (!CreateTable(t)) Die("create table");
  }
  Dispenser(1, "ZARVO", "", "00010001000000000000000000000000", true);
  Dispenser(2, "ZARVO", "", "00000000000000000000000000000000", false);
  Dispenser(9, "T7R", "", "00000000000000000000000000000000", false);

  // Dispenser 1.
  Tank(1, 1, 10, 1000, 100, 2000, 0, "00000000", 0, "");
  Tank(1, 2, 20, 800, 50, 1000, 0, "10000000", 0, "");
  Tank(1, 3, 20, 600, 50, 1000, 5, "10000000", 0, "");
  Tank(1, 4, 30, 0, 0, 3000, 0, "00000000", 1, "");
  Tank(1, 5, 30, -1, -1, -1, 0, "00000000", 1, "");
  Tank(1, 6, 40, 900, 100, 1000, 0, "10000000", 0, "1.5;x");
  Tank(1, 7, 40, 900, 100, 1000, 0, "10000000", 0, "2.0;");
  Tank(1, 8, 50, 0, 0, 1000, 0, "00000000", 0, "");
  // Dispenser 2.
  Tank(2, 1, 10, 500, 20, 1000, 0, "00000000", 0, "");
  Tank(2, 2, 20, 500, 20, 1000, 0, "00000000", 2, "");
  // Dispenser 9.
  Tank(9, 1, 10, 500, 20, 1000, 0, "00000000", 0, "");
  Tank(9, 2, 20, 500, 20, 1000, 0, "00000000", 0, "");
  Tank(9, 3, 60, 500, 20, 1000, 0, "00000000", 0, "");

  Cistern(1, 2, 5000, 3000, 200);
  Cistern(2, 1, 4000, 100, 100);

  Colorant(10, "WHITE", 1400);
  Colorant(20, "BLACK", 1200);
  Colorant(30, "RED", 1100);
  Colorant(40, "YELLOW", 0);
  Colorant(50, "BLUE", 1000);
  Colorant(60, "GREEN", 1300.5);

  Can(1, 100, 200);
  Can(2, 150, 300);
  Snapshot();
}

void Snapshot() {
  for (const std::string& name : DbfFiles(g_pristine)) unlink((g_pristine + "/" + name).c_str());
  for (const std::string& name : DbfFiles(g_dir)) {
    CopyFile(g_dir + "/" + name, g_pristine + "/" + name);
  }
}

void Restore() {
  // A table a run created (a pack's leftovers, say) goes too.
  for (const std::string& name : DbfFiles(g_dir)) unlink((g_dir + "/" + name).c_str());
  for (const std::string& name : DbfFiles(g_pristine)) {
    CopyFile(g_pristine + "/" + name, g_dir + "/" + name);
  }
}

SlaveGuard::SlaveGuard(long id) : s_(new slave(id)) {
  s_->m_PurgeSrvOff = 1;
}

SlaveGuard::~SlaveGuard() {
  // The last dosed text is the host's to free.
  s_->ClearLastDosedFormula();
  delete s_;
}

std::vector<std::string> SplitLines(const uint8_t* data, size_t size, size_t max) {
  std::vector<std::string> pieces;
  const char* p = reinterpret_cast<const char*>(data);
  const char* end = p + size;
  while (p < end && pieces.size() + 1 < max) {
    const char* nl = static_cast<const char*>(memchr(p, '\n', static_cast<size_t>(end - p)));
    if (nl == nullptr) break;
    pieces.emplace_back(p, nl);
    p = nl + 1;
  }
  if (p < end || pieces.size() < max) pieces.emplace_back(p, end);
  return pieces;
}

std::vector<char> CText(const uint8_t* data, size_t size) {
  std::vector<char> text(size + 1, '\0');
  if (size > 0) memcpy(text.data(), data, size);
  return text;
}

}  // namespace qfuzz
