// A fixture for the tests of formula dispensing and level bookkeeping: the
// library fixture with helpers that write a dispenser, its tanks, cisterns
// and colourants, and that read the levels back from the files with an
// independent dBase reader (python3-dbfread).
//
// Header only, like library_env.h.
#ifndef QSLAVE_TEST_DISPENSE_FIXTURE_H
#define QSLAVE_TEST_DISPENSE_FIXTURE_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <map>
#include <string>
#include <vector>

#include "library_env.h"

namespace qtest {

// A tank record of dispenser 1.
inline TankRow TankOf(int tank, long cnt, double cur, double res, double max,
                      long cist = 0, double threshold = 0.0) {
  TankRow row;
  row.disp_id = 1;
  row.tank = tank;
  row.cnt_id = cnt;
  row.cur_q = cur;
  row.res_q = res;
  row.max_q = max;
  row.cist_id = cist;
  row.threshold = threshold;
  return row;
}

// A secondary tank of a linked group: no quantities of its own.
inline TankRow SecondaryOf(int tank, long cnt, long cist = 0) {
  return TankOf(tank, cnt, -1.0, -1.0, -1.0, cist);
}

// An option text with the given positions (from 0) switched on.
inline std::string OptionsWith(const std::vector<int>& on) {
  std::string options(32, '0');
  for (int pos : on) options[static_cast<size_t>(pos)] = '1';
  return options;
}

// A CFG_STR with the two-pass split settings: percentage (stored times 10
// at positions 37-40) and threshold (positions 41-44).
inline std::string SplitConfig(int percentTimesTen, int threshold) {
  char perc[8];
  char thr[8];
  snprintf(perc, sizeof perc, "%4d", percentTimesTen);
  snprintf(thr, sizeof thr, "%4d", threshold);
  return FixedText(127, {{37, perc}, {41, thr}});
}

// The line of a dispense command refused because it would not fit the
// command buffer.
inline int CountCommandRefusals(const std::vector<std::string>& messages, size_t length,
                                size_t room) {
  return CountSourceLines(messages, "slv_disp",
                          ": dispense command of " + std::to_string(length) +
                              " characters refused: room for " + std::to_string(room));
}

class DispenseEnv : public LibraryEnv {
 protected:
  // Dispenser 1 with the given machine kind (HIDE_ID) and options.
  void AddDispenser(const std::string& hide_id = "ZARVO",
                    const std::string& options = std::string(32, '0'),
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
  void AddCistern(long id, int users, double max, double cur, double res = 0.0) {
    CisternRow row;
    row.id = id;
    row.users = users;
    row.max_q = max;
    row.cur_q = cur;
    row.res_q = res;
    ASSERT_GT(tables_.AddCistern(row), 0);
  }
  void AddColorant(long id, const std::string& code, double spec_w) {
    ColorantRow row;
    row.id = id;
    row.code = code;
    row.descr = "Colorant " + code;
    row.spec_w = spec_w;
    ASSERT_GT(tables_.AddColorant(row), 0);
  }

  // CUR_Q of every tank record of dispenser 1 as python3-dbfread reads the
  // file now, by TANK.
  std::map<int, double> TankLevelsOnDisk() {
    std::map<int, double> levels;
    for (const auto& row : ReadColumn(tables_.FileOf(QDB_SCHEMA_TANKS),
                                      "if int(r['DISP_ID']) == 1:\n"
                                      "        out.append('%d %r' % (r['TANK'], r['CUR_Q']))\n")) {
      levels[static_cast<int>(row.first)] = row.second;
    }
    return levels;
  }

  // CUR_Q of every cistern record as python3-dbfread reads the file now, by
  // ID.
  std::map<long, double> CisternLevelsOnDisk() {
    return ReadColumn(tables_.FileOf(QDB_SCHEMA_CISTERN),
                      "out.append('%d %r' % (r['ID'], r['CUR_Q']))\n");
  }

  // The command texts the machine received.
  static std::vector<std::string> CommandsOf(const slave& s) {
    return Sim(s) == nullptr ? std::vector<std::string>() : Sim(s)->Commands();
  }
  static std::vector<std::string> DriverCallsOf(const slave& s) {
    return Sim(s) == nullptr ? std::vector<std::string>() : Sim(s)->Calls();
  }

  // The dispense commands ("/D...") among them.
  static std::vector<std::string> DispenseCommandsOf(const slave& s) {
    std::vector<std::string> out;
    for (const std::string& c : CommandsOf(s)) {
      if (c.compare(0, 2, "/D") == 0) out.push_back(c);
    }
    return out;
  }

  // Runs body once per record r of the file (indented as a statement of a
  // for loop), collecting "<key> <float repr>" lines in out.
  std::map<long, double> ReadColumn(const std::string& file, const std::string& body) {
    std::string script =
        "import sys, dbfread\n"
        "out = []\n"
        "for r in dbfread.DBF(" + PyQuote(file) + ", load=True).records:\n"
        "    " + body +
        "sys.stdout.write('\\n'.join(out) + '\\n')\n";
    std::string text;
    std::map<long, double> values;
    if (RunPython(script, &text) != 0) {
      ADD_FAILURE() << "dbfread could not read " << file << ": " << text;
      return values;
    }
    size_t pos = 0;
    while (pos < text.size()) {
      size_t end = text.find('\n', pos);
      if (end == std::string::npos) end = text.size();
      std::string line = text.substr(pos, end - pos);
      size_t blank = line.find(' ');
      if (blank != std::string::npos) {
        values[strtol(line.c_str(), nullptr, 10)] = strtod(line.c_str() + blank + 1, nullptr);
      }
      pos = end + 1;
    }
    return values;
  }
};

}  // namespace qtest

#endif
