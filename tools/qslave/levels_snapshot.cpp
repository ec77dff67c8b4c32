#include "levels_snapshot.h"

#include <sys/stat.h>
#include <time.h>

#include "colourant_table.h"
#include "data_dir.h"
#include "dispenser_session.h"
#include "json_output.h"
#include "level_states.h"
#include "svg_chart.h"
#include "tank_rows.h"
#include "text_fields.h"
#include "trace_sink.h"

namespace {

std::string Now() {
  char text[32];
  const time_t now = time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return text;
}

}  // namespace

std::string LevelsSnapshot::TableStamps() const {
  std::string stamps;
  for (const char* base : {"disps", "tanks", "cistern"}) {
    const std::string file = ExistingTableFile(data_dir_, base);
    struct stat st;
    if (file.empty() || stat(file.c_str(), &st) != 0) {
      stamps += "-;";
      continue;
    }
    stamps += std::to_string(st.st_ino) + ":" + std::to_string(st.st_size) + ":" +
              std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec) + ";";
  }
  return stamps;
}

// A slave of its own for each reading: its tables are opened afresh, so
// what another program wrote is seen, and closed again when it goes.
bool LevelsSnapshot::Read(std::string* error) {
  std::shared_ptr<slave> s = OpenDispenser(options_, error);
  if (!s) return false;
  const ColourantTable names(s->m_DataId);
  const std::vector<TankRow> rows = ReadTanks(*s);
  Json circuits = TankRowsJson(rows, names);
  Json counts = {{"critical", 0}, {"warning", 0}, {"low", 0}, {"ok", 0}, {"unknown", 0}};
  for (size_t i = 0; i < rows.size(); ++i) {
    const char* state = LevelState(rows[i]);
    circuits[i]["state"] = state;
    counts[state] = counts[state].get<int>() + 1;
  }
  const std::string description = FieldText(s->m_Descr);
  Json document = Json::object();
  document["dispenser"] = {{"id", s->m_DispId}, {"description", description}};
  document["generation"] = ++generation_;
  document["read_at"] = Now();
  document["counts"] = counts;
  document["circuits"] = circuits;
  view_.json = JsonText(document);
  view_.svg = LevelChart("Tank levels of dispenser " + std::to_string(s->m_DispId) + " (" +
                             description + ")",
                         Bars(rows, names));
  return true;
}

bool LevelsSnapshot::Load(std::string* error) {
  std::lock_guard<std::mutex> hold(lock_);
  if (!CurrentDataDir(&data_dir_, error)) return false;
  stamps_ = TableStamps();
  return Read(error);
}

LevelsView LevelsSnapshot::Current() {
  std::lock_guard<std::mutex> hold(lock_);
  const std::string stamps = TableStamps();
  if (stamps != stamps_) {
    // The simulator's complaints about its rules were shown at the start.
    QuietSimulatorComplaints quiet;
    std::string error;
    // A table caught halfway through a write is read again next time.
    if (Read(&error)) stamps_ = stamps;
  }
  return view_;
}
