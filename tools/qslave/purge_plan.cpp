#include "purge_plan.h"

#include <stdio.h>

#include <algorithm>
#include <map>

#include "command_text.h"

namespace {

const int kFirmwarePurgeType = 9;
const int kGroupFlag = 3;

// The circuit whose record carries each circuit's level: a secondary tank
// of a linked group books on the group's master.
std::map<int, int> LevelOwners(slave& s) {
  std::map<int, int> owner;
  for (int tank = 1; tank <= s.m_NumTanks; ++tank) owner[tank] = tank;
  const int count = s.NumCnts();
  std::vector<long> colourants(count + 1, 0);
  if (count > 0) s.CntsList(colourants.data());
  for (int i = 0; i < count; ++i) {
    ColourantInDispenser tanks(&s);
    if (!tanks.Read(colourants[i])) continue;
    int master = 0;
    for (int k = 0; k < tanks.m_NumTanks && master == 0; ++k) {
      if (tanks.m_Tanks[k].max_q != -1.0) master = tanks.m_Tanks[k].tank;
    }
    for (int k = 0; k < tanks.m_NumTanks; ++k) {
      if (tanks.m_Tanks[k].max_q == -1.0 && master != 0) owner[tanks.m_Tanks[k].tank] = master;
    }
  }
  return owner;
}

// The circuits the purge takes, in the library's order, a circuit once for
// every time it is selected (a colourant named twice selects its circuits
// twice): those it looks at (the one circuit, all of them, or those of the
// named colourants) that hold colourant, their levels read in one call of
// the library.
std::vector<int> Selected(slave& s, const PurgeRequest& request) {
  std::vector<int> candidates;
  if (request.kind == PurgeKind::kOneCircuit) {
    candidates.push_back(request.circuit);
  } else {
    std::map<long, int> named;  // colourant -> times it is named
    for (long id : request.colourants) ++named[id];
    for (int c = 1; c <= s.m_NumTanks; ++c) {
      const auto found = named.find(s.m_TankCntId[c - 1]);
      const int times = request.kind == PurgeKind::kAll ? 1
                        : found != named.end()          ? found->second
                                                        : 0;
      candidates.insert(candidates.end(), static_cast<size_t>(times), c);
    }
  }
  std::vector<int> circuits;
  for (const CircuitLevel& level : ReadLevels(s, candidates)) {
    if (HoldsColourant(level)) circuits.push_back(level.circuit);
  }
  return circuits;
}

size_t GroupSize(int type, const PurgeRequest& request, int circuits) {
  if (request.kind == PurgeKind::kOneCircuit || request.one_by_one) return 1;
  if (type == 6 || type == 8) return circuits > 0 ? static_cast<size_t>(circuits) : 1;
  return 8;
}

std::string FirmwareCommand(const PurgeRequest& request) {
  char text[128];
  if (request.kind == PurgeKind::kOneCircuit) {
    snprintf(text, sizeof text, "/D(PURGEBYCAN)(%d:%f)", request.circuit, request.quantity);
  } else {
    snprintf(text, sizeof text, "/D(PURGE)(%f)", request.quantity);
  }
  return text;
}

}  // namespace

bool HoldsColourant(const CircuitLevel& level) {
  // A level at or below this holds no colourant, for the library's purges.
  const double kEmpty = 1e-5;
  return level.known && level.current > kEmpty;
}

PurgePlan PlanPurge(slave& s, const PurgeRequest& request,
                    const std::vector<CircuitLevel>& before) {
  PurgePlan plan;
  plan.after = before;
  const int type = s.m_Dsp->GetType(0, 0);
  if (type == kFirmwarePurgeType && request.kind != PurgeKind::kColourants) {
    plan.commands.push_back(FirmwareCommand(request));
    plan.books = false;
    return plan;
  }
  const std::vector<int> circuits = Selected(s, request);
  if (circuits.empty()) return plan;
  const bool group_flag = bit_check(s.m_Options, kGroupFlag) == 1 && s.m_DispId != 0;
  if (group_flag) plan.commands.push_back("/G2");
  const size_t size = GroupSize(type, request, s.m_NumTanks);
  for (size_t start = 0; start < circuits.size(); start += size) {
    std::vector<CircuitQuantity> group;
    for (size_t i = start; i < circuits.size() && i < start + size; ++i) {
      group.push_back(CircuitQuantity{circuits[i], request.quantity});
    }
    plan.commands.push_back(DispenseCommandText(s, group));
  }
  if (group_flag) plan.commands.push_back("/G0");

  // Each purged circuit takes the quantity off the level its record
  // owner carries; a level stops at 0.
  const std::map<int, int> owner = LevelOwners(s);
  std::map<int, int> purges;
  for (int c : circuits) ++purges[owner.at(c)];
  for (CircuitLevel& level : plan.after) {
    if (!level.known) continue;
    const auto found = owner.find(level.circuit);
    if (found == owner.end()) continue;
    const auto taken = purges.find(found->second);
    if (taken == purges.end()) continue;
    level.current = std::max(0.0, level.current - taken->second * request.quantity);
  }
  return plan;
}
