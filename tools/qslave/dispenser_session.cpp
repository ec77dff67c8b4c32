#include "dispenser_session.h"

#include <stdio.h>

#include "data_dir.h"

namespace {

struct TableFiles {
  std::string dir;
  std::string disps;
  std::string tanks;
};

// The data directory and its two required tables (the cistern table is
// optional for the library).
bool FindTables(TableFiles* files, std::string* error) {
  if (!CurrentDataDir(&files->dir, error)) return false;
  if (!CheckDirectory(files->dir, error)) return false;
  files->disps = ExistingTableFile(files->dir, "disps");
  if (files->disps.empty()) {
    *error = "no dispenser table in " + files->dir + " (disps.dbf is missing)";
    return false;
  }
  files->tanks = ExistingTableFile(files->dir, "tanks");
  if (files->tanks.empty()) {
    *error = "no tank table in " + files->dir + " (tanks.dbf is missing)";
    return false;
  }
  return true;
}

// Opens a table file the way the library does, to tell which one it could
// not open.
bool Opens(const std::string& dir, const char* base, int indexes,
           const char** names, const char** keys) {
  Qdbase table;
  if (!table.SetFiles(dir.c_str(), base, indexes, names, keys)) return false;
  if (!table.Open()) return false;
  table.Close();
  return true;
}

// Why the library could not select a dispenser.
std::string Diagnose(const slave& s, const GlobalOptions& options,
                     const TableFiles& files) {
  Qdbase* disps = nullptr;
  Qdbase* tanks = nullptr;
  if (!_slv_dbhandles(&disps, &tanks, nullptr)) {
    if (!Opens(files.dir, "disps", 0, nullptr, nullptr)) {
      return "cannot open the dispenser table " + files.disps;
    }
    static const char* kNames[] = {"TANKS", "TANKS2"};
    static const char* kKeys[] = {"DISP_ID", "VAL(DISP_ID)*1000+TANK"};
    if (!Opens(files.dir, "tanks", 2, kNames, kKeys)) {
      return "cannot open the tank table " + files.tanks;
    }
    return "cannot open the tables in " + files.dir;
  }
  if (s.m_DispId < 1) {
    if (options.dispenser_id > 0) {
      return "no dispenser " + std::to_string(options.dispenser_id) + " in " +
             files.disps;
    }
    return "no default dispenser in " + files.disps;
  }
  return "no driver for dispenser " + std::to_string(s.m_DispId) +
         " (the host has none for its model)";
}

std::shared_ptr<slave> g_held;

void ApplyPurgeServer(const GlobalOptions& options, slave* s) {
  if (options.purge_timeout_set) s->m_PurgeSrvTimeout = options.purge_timeout;
  if (!options.purge_server) {
    s->m_PurgeSrvOff = 1;
    return;
  }
  // The host was checked to fit when the option was read.
  snprintf(s->m_PurgeSrvHost, sizeof s->m_PurgeSrvHost, "%s",
           options.purge_host.c_str());
  s->m_PurgeSrvPort = options.purge_port;
  s->m_PurgeSrvOff = 0;
}

}  // namespace

std::shared_ptr<slave> OpenDispenser(const GlobalOptions& options,
                                     std::string* error) {
  if (g_held) return g_held;
  TableFiles files;
  if (!FindTables(&files, error)) return nullptr;
  // A table that is no dBase table is named before the library opens the
  // others: the library, finding the tank table unreadable, keeps the
  // cistern table open until the program ends.
  if (!Opens(files.dir, "disps", 0, nullptr, nullptr)) {
    *error = "cannot open the dispenser table " + files.disps;
    return nullptr;
  }
  if (!Opens(files.dir, "tanks", 0, nullptr, nullptr)) {
    *error = "cannot open the tank table " + files.tanks;
    return nullptr;
  }
  std::shared_ptr<slave> s(new slave(options.dispenser_id));
  if (s->m_DispId < 1 || s->m_Dsp == nullptr) {
    *error = Diagnose(*s, options, files);
    return nullptr;
  }
  ApplyPurgeServer(options, s.get());
  return s;
}

void HoldDispenser(std::shared_ptr<slave> s) { g_held = std::move(s); }
