// A test fixture for tests of the library: a fresh data directory that
// QSLAVE_DATA names, with empty configuration tables in it; every trace
// message captured; debug and simulator variables cleared. After each test
// it checks that no slave object outlived the test, closes the process-wide
// tables whatever state the test left them in, and restores the static
// hooks and the simulation switch.
//
// Header only: it needs the library (slave.h) and GoogleTest, which the
// test programs link and the support library does not.
#ifndef QSLAVE_TEST_LIBRARY_ENV_H
#define QSLAVE_TEST_LIBRARY_ENV_H

#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "dispenser_tables.h"
#include "host/qdsp32.h"
#include "refhost/dispenser/simulated_dispenser.h"
#include "slave.h"
#include "test_support.h"

namespace qtest {

// A dispenser record that selects cleanly: a ZARVO machine on port 1.
inline DispenserRow StandardDispenser(long id) {
  DispenserRow row;
  row.id = id;
  row.slave_addr = static_cast<int>(id);
  row.descr = "Dispenser " + std::to_string(id);
  row.hide_id = "ZARVO";
  row.communic = Communic(1, 9600, 'N', 1, 8, 2.5);
  return row;
}

// The simulator behind a slave's driver (null without one).
inline SimulatedDispenser* Sim(const slave& s) {
  return s.m_Dsp == nullptr ? nullptr : SimulatedDispenser::From(s.m_Dsp);
}

// Number of entries of v equal to text.
inline int CountOf(const std::vector<std::string>& v, const std::string& text) {
  int n = 0;
  for (const std::string& e : v) n += e == text ? 1 : 0;
  return n;
}

// Number of entries of v beginning with prefix.
inline int CountPrefix(const std::vector<std::string>& v,
                       const std::string& prefix) {
  int n = 0;
  for (const std::string& e : v) n += e.compare(0, prefix.size(), prefix) == 0;
  return n;
}

// Number of messages that match the whole regular expression.
inline int CountMatching(const std::vector<std::string>& messages,
                         const std::string& pattern) {
  std::regex re(pattern);
  int n = 0;
  for (const std::string& m : messages) n += std::regex_match(m, re) ? 1 : 0;
  return n;
}

// The regular expression of a library source name as traced: the base name
// with or without its extension and directory.
inline std::string SourceRe(const std::string& base) {
  return "(?:[^\\n]*/)?" + base + "(?:\\.cpp)?";
}

// Whether a trace message is a library line that names its source: "\n",
// the source file (base name, with or without directory and ".cpp"), the
// line number in brackets, then exactly rest.
inline bool IsSourceLine(const std::string& message, const std::string& base,
                         const std::string& rest) {
  if (message.empty() || message[0] != '\n') return false;
  size_t open = message.find('(', 1);
  if (open == std::string::npos) return false;
  std::string name = message.substr(1, open - 1);
  size_t slash = name.rfind('/');
  if (slash != std::string::npos) name = name.substr(slash + 1);
  const std::string ext = ".cpp";
  if (name.size() > ext.size() &&
      name.compare(name.size() - ext.size(), ext.size(), ext) == 0) {
    name.resize(name.size() - ext.size());
  }
  if (name != base) return false;
  size_t pos = open + 1;
  size_t digits = pos;
  while (pos < message.size() && message[pos] >= '0' && message[pos] <= '9') {
    ++pos;
  }
  if (pos == digits || pos >= message.size() || message[pos] != ')') {
    return false;
  }
  return message.substr(pos + 1) == rest;
}

// Number of messages that are the library line IsSourceLine describes.
inline int CountSourceLines(const std::vector<std::string>& messages,
                            const std::string& base, const std::string& rest) {
  int n = 0;
  for (const std::string& m : messages) n += IsSourceLine(m, base, rest);
  return n;
}

// Changes the current directory for the life of the object.
class ScopedCwd {
 public:
  explicit ScopedCwd(const std::string& dir) {
    char buf[PATH_MAX];
    ok_ = getcwd(buf, sizeof buf) != nullptr;
    if (ok_) old_ = buf;
    ok_ = ok_ && chdir(dir.c_str()) == 0;
  }
  ~ScopedCwd() {
    if (!old_.empty() && chdir(old_.c_str()) != 0) {
      ADD_FAILURE() << "cannot return to " << old_;
    }
  }
  ScopedCwd(const ScopedCwd&) = delete;
  ScopedCwd& operator=(const ScopedCwd&) = delete;
  bool ok() const { return ok_; }

 private:
  std::string old_;
  bool ok_ = false;
};

class LibraryEnv : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_message_ = slave::Message;
    slave::CommTest = nullptr;
    slave::debug = 0;
    Dsp_LoadCallsReset();
    trace_.clear();
  }

  void TearDown() override {
    EXPECT_EQ(slave::counter, 0) << "a slave object outlived the test";
    slave::counter = 0;
    CloseLibraryTables();
    slave::Message = saved_message_;
    slave::CommTest = nullptr;
    slave::debug = 0;
  }

  // Closes whichever of the three process-wide tables is open.
  static void CloseLibraryTables() {
    Qdbase* disp = nullptr;
    Qdbase* tank = nullptr;
    Qdbase* cist = nullptr;
    _slv_dbhandles(&disp, &tank, &cist);
    if (disp != nullptr) disp->Close();
    if (tank != nullptr) tank->Close();
    if (cist != nullptr) cist->Close();
  }

  // Whether each of the three tables is open now. Asking about a closed
  // dispenser or tank table leaves the library's "are closed" trace line.
  static bool DispOpen() { return HandleOpen(0); }
  static bool TankOpen() { return HandleOpen(1); }
  static bool CisternOpen() { return HandleOpen(2); }

  // Writes a rules file for the simulator and points QSLAVE_SIM at it, so
  // that drivers created from now on start with these rules and settings.
  void SimRules(const std::string& text) {
    std::string file = dir_.file("sim.rules");
    WriteFile(file, text);
    sim_file_.reset(new ScopedEnv("QSLAVE_SIM", file.c_str()));
  }

  TempDir dir_;
  ScopedEnv data_env_{"QSLAVE_DATA", dir_.path().c_str()};
  ScopedEnv dspdebug_env_{"DSPDEBUG", nullptr};
  ScopedEnv noclear_env_{"DEBUG_NO_CLEAR", nullptr};
  ScopedEnv sim_env_{"QSLAVE_SIM", nullptr};
  ScopedEnv trace_env_{"QSLAVE_TRACE", nullptr};
  DispenserTables tables_{dir_.path()};
  TraceCapture trace_;
  std::unique_ptr<ScopedEnv> sim_file_;

 private:
  static bool HandleOpen(int which) {
    Qdbase* h[3] = {nullptr, nullptr, nullptr};
    _slv_dbhandles(which == 0 ? &h[0] : nullptr, which == 1 ? &h[1] : nullptr,
                   which == 2 ? &h[2] : nullptr);
    return h[which] != nullptr;
  }

  void (*saved_message_)(const char*) = nullptr;
};

}  // namespace qtest

#endif
