#include "machine_log.h"

#include "json_output.h"
#include "refhost/dispenser/simulated_dispenser.h"

MachineLog::MachineLog(slave& s) : slave_(s) {
  SimulatedDispenser* sim = SimulatedDispenser::From(s.m_Dsp);
  simulator_known_ = sim != nullptr;
  if (sim != nullptr) seen_ = sim->Commands().size();
}

std::vector<std::string> MachineLog::Take() {
  std::vector<std::string> taken;
  SimulatedDispenser* sim = SimulatedDispenser::From(slave_.m_Dsp);
  if (sim == nullptr) return taken;
  const std::vector<std::string>& all = sim->Commands();
  for (size_t i = seen_; i < all.size(); ++i) taken.push_back(all[i]);
  seen_ = all.size();
  return taken;
}

void PrintCommands(const char* label, int width, const std::vector<std::string>& commands) {
  if (commands.empty()) {
    printf("%-*s none\n", width, label);
    return;
  }
  for (const std::string& command : commands) {
    printf("%-*s %s\n", width, label, command.c_str());
  }
}

void ShowCommands(const char* label, int width, bool known,
                  const std::vector<std::string>& commands) {
  if (JsonOutput()) {
    Document()["commands"] = known ? Json(commands) : Json(nullptr);
  } else if (known) {
    PrintCommands(label, width, commands);
  } else {
    printf("%-*s (not known: the driver keeps no record of its commands)\n", width, label);
  }
}
