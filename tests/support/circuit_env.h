// A fixture for tests that work on a dispenser's circuits: the dispenser
// record chosen by its HIDE_ID (which picks the driver type), tank records
// built in one line each, the levels read back from the tank table on disk
// by an independent dBase reader (python3-dbfread), and the commands and
// driver calls the simulator received.
//
// Header only, like library_env.h: it needs the library and GoogleTest.
#ifndef QSLAVE_TEST_CIRCUIT_ENV_H
#define QSLAVE_TEST_CIRCUIT_ENV_H

#include <gtest/gtest.h>

#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "library_env.h"

namespace qtest {

// An OPTIONS text of 32 '0' with the given positions set to '1'.
inline std::string OptionsWith(std::initializer_list<int> on) {
  std::string options(32, '0');
  for (int pos : on) options[static_cast<size_t>(pos)] = '1';
  return options;
}

// A tank record of dispenser 1.
inline TankRow Circuit(int tank, long cnt, double cur, double res = 0.0,
                       double max = 1000.0, double threshold = 0.0,
                       const std::string& status = "00000000") {
  TankRow row;
  row.disp_id = 1;
  row.tank = tank;
  row.cnt_id = cnt;
  row.cur_q = cur;
  row.res_q = res;
  row.max_q = max;
  row.threshold = threshold;
  row.status_flg = status;
  return row;
}

class CircuitEnv : public LibraryEnv {
 protected:
  // Dispenser 1 with the given HIDE_ID, options and CFG_STR.
  void AddDispenser(const std::string& hide_id = "ZARVO",
                    const std::string& options = OptionsWith({}),
                    const std::string& cfg_str = "") {
    DispenserRow row = StandardDispenser(1);
    row.hide_id = hide_id;
    row.options = options;
    row.cfg_str = cfg_str;
    ASSERT_GT(tables_.AddDispenser(row), 0);
  }

  void AddTanks(const std::vector<TankRow>& rows) {
    for (const TankRow& row : rows) ASSERT_GT(tables_.AddTank(row), 0);
  }

  void AddColorant(long id, double spec_w, const std::string& code = "",
                   const std::string& descr = "") {
    ColorantRow row;
    row.id = id;
    row.spec_w = spec_w;
    row.code = code;
    row.descr = descr;
    ASSERT_GT(tables_.AddColorant(row), 0);
  }

  // The current level (CUR_Q) of every tank record of dispenser 1 as
  // python3-dbfread reads the tank table: TANK -> level. Call it while no
  // slave holds the tables open.
  std::map<int, double> LevelsOnDisk() {
    std::string script =
        "import sys, dbfread\n"
        "t = dbfread.DBF(" + PyQuote(tables_.FileOf(QDB_SCHEMA_TANKS)) +
        ", load=True)\n"
        "for r in t.records:\n"
        "    if int(str(r['DISP_ID']).strip()) == 1:\n"
        "        sys.stdout.write('%d %.6f\\n' % (r['TANK'], r['CUR_Q']))\n";
    std::string out;
    std::map<int, double> levels;
    if (RunPython(script, &out) != 0) {
      ADD_FAILURE() << "dbfread failed: " << out;
      return levels;
    }
    size_t pos = 0;
    while (pos < out.size()) {
      size_t end = out.find('\n', pos);
      if (end == std::string::npos) end = out.size();
      const std::string line = out.substr(pos, end - pos);
      const size_t blank = line.find(' ');
      if (blank != std::string::npos) {
        levels[std::stoi(line.substr(0, blank))] = std::stod(line.substr(blank + 1));
      }
      pos = end + 1;
    }
    return levels;
  }

  // A circuit's current level as the library reads it.
  static double Level(slave& s, int tank) {
    double cur = -12345.0;
    EXPECT_EQ(s.TankQnts(tank, &cur, nullptr, nullptr), 1) << "tank " << tank;
    return cur;
  }

  static std::vector<std::string> Commands(const slave& s) {
    return Sim(s) == nullptr ? std::vector<std::string>() : Sim(s)->Commands();
  }

  static std::vector<std::string> Calls(const slave& s) {
    return Sim(s) == nullptr ? std::vector<std::string>() : Sim(s)->Calls();
  }

  // Driver calls whose text begins with prefix.
  static std::vector<std::string> CallsOf(const slave& s, const std::string& prefix) {
    std::vector<std::string> found;
    for (const std::string& call : Calls(s)) {
      if (call.compare(0, prefix.size(), prefix) == 0) found.push_back(call);
    }
    return found;
  }

  // Dispensing tells the purge server; these tests are not about it.
  static void NoPurgeServer(slave& s) { s.m_PurgeSrvOff = 1; }
};

}  // namespace qtest

#endif
