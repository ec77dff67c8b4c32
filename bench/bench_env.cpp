#include "bench_env.h"

#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "host/qdbase.h"
#include "host/qdsp32.h"
#include "refhost/qdb/config_schema.h"

extern char** environ;

namespace qbench {

namespace {

[[noreturn]] void Die(const std::string& why) {
  fprintf(stderr, "qslave_bench: %s\n", why.c_str());
  exit(2);
}

// One table opened for appending, in record order.
class Writer {
 public:
  Writer(const std::string& dir, QdbSchemaTable table) {
    if (!QdbSchemaCreate(table, dir.c_str())) Die("cannot create a table in " + dir);
    static const char* kNone[] = {""};
    if (!table_.SetFiles(dir.c_str(), QdbSchemaBaseName(table), 0, kNone, kNone) ||
        !table_.Open()) {
      Die("cannot open a new table in " + dir);
    }
  }
  ~Writer() { table_.Close(); }
  void Append() { Check(table_.Append(), "append"); }
  void Long(const char* f, long v) { Check(table_.WriteLong(f, v), f); }
  void Double(const char* f, double v) { Check(table_.WriteDouble(f, v), f); }
  void Text(const char* f, const std::string& v) { Check(table_.WriteString(f, v.c_str()), f); }
  // Ids as tables from the field store them in text fields.
  void TextId(const char* f, long v) {
    char text[24];
    snprintf(text, sizeof text, "%5ld", v);
    Text(f, text);
  }

 private:
  void Check(int ok, const char* what) {
    if (!ok) Die(std::string("cannot write ") + what);
  }
  Qdbase table_;
};

std::string Communic() {
  // Port 1, 9600 baud, no parity, line parameters 01 and 08, 2.5 s.
  std::string text = " 1  9600N 0108";
  text.resize(41, ' ');
  return text + "    2.500";
}

void AddDispenser(Writer& w, long id, const char* descr, const char* hideId = "ZARVO") {
  w.Append();
  w.Long("ID", id);
  w.Long("SLAVE", id % 100);
  w.Text("DESCR", descr);
  w.Text("OPTIONS", std::string(32, '0'));
  w.Text("HIDE_ID", hideId);
  w.Text("COMMUNIC", Communic());
  w.Double("THRESHOLD", 0.5);
}

struct Tank {
  long disp;
  int tank;
  long cnt;
  double cur, res, max, threshold;
  long cist;
};

void AddTank(Writer& w, const Tank& t) {
  w.Append();
  w.TextId("DISP_ID", t.disp);
  w.Long("TANK", t.tank);
  w.Long("CNT_ID", t.cnt);
  w.Double("CUR_Q", t.cur);
  w.Double("RES_Q", t.res);
  w.Double("MAX_Q", t.max);
  w.Double("THRESHOLD", t.threshold);
  w.Text("STATUS_FLG", "00000000");
  w.TextId("CIST_ID", t.cist);
}

Tank Plain(long disp, int tank, long cnt) {
  return Tank{disp, tank, cnt, kFullLevel, 100.0, kFullLevel, 0.0, 0};
}

}  // namespace

std::string Formula(long first, long step, int n) {
  std::string text;
  for (int i = 0; i < n; ++i) {
    char part[64];
    snprintf(part, sizeof part, "(%ld:%.3f)", first + step * i, 0.5 + 0.25 * i);
    text += part;
  }
  return text;
}

void Env::BuildTables() {
  const int savedFlush = Qdbase::FlushGet();
  Qdbase::FlushSet(0);
  {
    // The dispense dispenser is the fifth record, as a shop's is not always
    // the first: a search from the top passes four others.
    Writer disps(dir_, QDB_SCHEMA_DISPS);
    AddDispenser(disps, kSplitId, "Split kinds");
    for (long id : kGrowthIds) AddDispenser(disps, id, "Growth");
    AddDispenser(disps, kDispenseId, "Dispense, 64 circuits");
    for (long id : kDriverLevelIds) AddDispenser(disps, id, "Driver-kept levels", DriverOf(id));
  }
  {
    Writer tanks(dir_, QDB_SCHEMA_TANKS);
    auto add = [&](const Tank& t) {
      AddTank(tanks, t);
      tankKeys_.push_back({t.disp, t.tank});
    };
    for (int t = 1; t <= kDispenseCircuits; ++t) add(Plain(kDispenseId, t, t));
    int tank = 0;
    for (int i = 1; i <= kSplitColourants; ++i) add(Plain(kSplitId, ++tank, kSingleBase + i));
    for (int i = 1; i <= kSplitColourants; ++i) {
      // A small-nozzle tank for any quantity and a large one from 10 cc.
      add(Plain(kSplitId, ++tank, kIndependentBase + i));
      Tank large = Plain(kSplitId, ++tank, kIndependentBase + i);
      large.threshold = 10.0;
      add(large);
    }
    for (int i = 1; i <= kSplitColourants; ++i) {
      Tank master = Plain(kSplitId, ++tank, kLinkedBase + i);
      master.cist = i;
      add(master);
      Tank secondary = Tank{kSplitId, ++tank, kLinkedBase + i, -1.0, -1.0, -1.0, 0.0, i};
      add(secondary);
    }
    for (long id : kGrowthIds) {
      for (int t = 1; t <= id; ++t) add(Plain(id, t, t));
    }
    for (long id : kDriverLevelIds) {
      for (int t = 1; t <= CircuitsOf(id); ++t) add(Plain(id, t, t));
    }
  }
  {
    Writer cist(dir_, QDB_SCHEMA_CISTERN);
    for (int i = 1; i <= kSplitColourants; ++i) {
      cist.Append();
      cist.Long("ID", i);
      cist.Long("USERS", 2);
      cist.Double("MAX_Q", kFullLevel);
      cist.Double("CUR_Q", kFullLevel);
      cist.Double("RES_Q", 100.0);
    }
  }
  {
    Writer colorants(dir_, QDB_SCHEMA_COLORANTS);
    for (int i = 1; i <= kColourants; ++i) {
      colorants.Append();
      colorants.Long("ID", i);
      char code[16];
      snprintf(code, sizeof code, "C%03d", i);
      colorants.Text("CODE", code);
      colorants.Text("DESCR", std::string("Colourant ") + code);
      colorants.Double("SPEC_W", 1000.0 + i);
    }
  }
  Qdbase::FlushSet(savedFlush);
}

Env::Env() {
  const char* tmp = getenv("TMPDIR");
  std::string base = (tmp != nullptr && *tmp != '\0') ? tmp : "/tmp";
  std::string tmpl = base + "/qslave-bench-XXXXXX";
  std::vector<char> name(tmpl.begin(), tmpl.end());
  name.push_back('\0');
  if (mkdtemp(name.data()) == nullptr) Die("cannot create a directory under " + base);
  dir_ = name.data();
  floorDir_ = dir_ + "/floor";
  std::filesystem::create_directory(floorDir_);
  tableClassDir_ = dir_ + "/table-class";
  std::filesystem::create_directory(tableClassDir_);

  setenv("QSLAVE_DATA", dir_.c_str(), 1);
  unsetenv("QSLAVE_SIM");
  unsetenv("QSLAVE_TRACE");
  unsetenv("DSPDEBUG");
  BuildTables();

  std::filesystem::copy_file(dir_ + "/tanks.dbf", floorDir_ + "/tanks.dbf");
  std::filesystem::copy_file(dir_ + "/tanks.dbf", tableClassDir_ + "/tanks.dbf");
  // The tables just written reach the disk before anything is timed: their
  // write-back would otherwise slow the syncs of whichever benchmark runs
  // first.
  sync();
}

Env::~Env() {
  if (serverPid_ > 0) {
    kill(serverPid_, SIGTERM);
    int status = 0;
    waitpid(serverPid_, &status, 0);
  }
  std::error_code ignored;
  std::filesystem::remove_all(dir_, ignored);
}

std::vector<long> Env::TankRecords(long dispId) const {
  std::vector<long> records;
  for (size_t i = 0; i < tankKeys_.size(); ++i) {
    if (tankKeys_[i].first == dispId) records.push_back(static_cast<long>(i) + 1);
  }
  return records;
}

int Env::PurgeServerPort() {
  if (serverPid_ > 0) return serverPort_;
  const std::string script = dir_ + "/purge_server.py";
  FILE* f = fopen(script.c_str(), "w");
  if (f == nullptr) return 0;
  fputs(
      "import sys\n"
      "from xmlrpc.server import SimpleXMLRPCServer\n"
      "server = SimpleXMLRPCServer(('127.0.0.1', 0), logRequests=False)\n"
      "server.register_function(lambda *args: 1, 'UpdateAfterDispensing')\n"
      "sys.stdout.write('%d\\n' % server.server_address[1])\n"
      "sys.stdout.flush()\n"
      "server.serve_forever()\n",
      f);
  fclose(f);

  int fds[2];
  if (pipe(fds) != 0) return 0;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
  posix_spawn_file_actions_addclose(&actions, fds[0]);
  char python[] = "/usr/bin/python3";
  std::vector<char> arg(script.begin(), script.end());
  arg.push_back('\0');
  char* argv[] = {python, arg.data(), nullptr};
  pid_t pid = -1;
  const int spawned = posix_spawn(&pid, python, &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);
  if (spawned != 0) {
    close(fds[0]);
    return 0;
  }
  serverPid_ = pid;
  std::string line;
  char c = 0;
  while (read(fds[0], &c, 1) == 1 && c != '\n') line += c;
  close(fds[0]);
  serverPort_ = atoi(line.c_str());
  return serverPort_;
}

Env& TheEnv() {
  static Env env;
  return env;
}

}  // namespace qbench
