// Levels the simulator keeps per circuit, the tank rows built from them, and
// the circuit and canister data of type 9 machines.
#include <climits>
#include <cmath>

#include "sim_calls.h"
#include "sim_state.h"
#include "simulated_dispenser.h"

using qsim::CallText;

namespace {

// The machine type whose driver keeps levels of its own.
const int kOwnLevelsType = 7;

bool KeepsOwnLevels(const qsim::Machine& m) {
  return m.type == kOwnLevelsType;
}

}  // namespace

void SimulatedDispenser::SetCircuitLevel(int circuit, double cur, double max,
                                         double res) {
  if (circuit < 1) return;
  state_->levels[circuit] = qsim::Level{cur, max, res};
}

bool SimulatedDispenser::CircuitLevel(int circuit, double* cur, double* max,
                                      double* res) const {
  auto it = state_->levels.find(circuit);
  if (it == state_->levels.end()) return false;
  if (cur != nullptr) *cur = it->second.cur;
  if (max != nullptr) *max = it->second.max;
  if (res != nullptr) *res = it->second.res;
  return true;
}

void SimulatedDispenser::GetCircuitLevelsCount(int r1, int r2, int r3,
                                               long* count) {
  state_->calls.push_back(
      CallText("GetCircuitLevelsCount").Int(r1).Int(r2).Int(r3).Done());
  if (count == nullptr) return;
  // The arrays of GetCircuitLevels are indexed by circuit - 1, so they run
  // up to the highest circuit with a level.
  *count = KeepsOwnLevels(*state_) && !state_->levels.empty()
               ? static_cast<long>(state_->levels.rbegin()->first)
               : 0;
}

void SimulatedDispenser::SetLevels(int count, int* circuits, double* levels) {
  state_->calls.push_back(CallText("SetLevels")
                              .Int(count)
                              .Ints(circuits, count)
                              .Reals(levels, count)
                              .Done());
  if (!KeepsOwnLevels(*state_) || circuits == nullptr || levels == nullptr) {
    return;
  }
  // Only a circuit the machine keeps a level for takes a new current level:
  // a maximum and a reserve are never made up for one it does not know.
  for (int i = 0; i < count; ++i) {
    auto it = state_->levels.find(circuits[i]);
    if (it == state_->levels.end() || !std::isfinite(levels[i])) continue;
    it->second.cur = levels[i];
  }
}

void SimulatedDispenser::GetCircuitLevels(double* cur, double* max,
                                          double* res, int reserved) {
  state_->calls.push_back(CallText("GetCircuitLevels").Int(reserved).Done());
  if (!KeepsOwnLevels(*state_) || state_->levels.empty()) return;
  // Circuit c at index c - 1, every circuit up to the highest with a level;
  // a circuit in between that has no level of its own is empty, with no
  // capacity.
  const std::size_t count =
      static_cast<std::size_t>(state_->levels.rbegin()->first);
  for (std::size_t i = 0; i < count; ++i) {
    auto it = state_->levels.find(static_cast<int>(i) + 1);
    const qsim::Level level =
        it != state_->levels.end() ? it->second : qsim::Level{};
    if (cur != nullptr) cur[i] = level.cur;
    if (max != nullptr) max[i] = level.max;
    if (res != nullptr) res[i] = level.res;
  }
}

void SimulatedDispenser::SetDispenserLevels(long id, int count, int* circuits,
                                            double* levels) {
  state_->calls.push_back(CallText("SetDispenserLevels")
                              .Int(id)
                              .Int(count)
                              .Ints(circuits, count)
                              .Reals(levels, count)
                              .Done());
  if (circuits == nullptr || levels == nullptr) return;
  // The machine reports back what it was told, for the circuits it keeps.
  for (int i = 0; i < count; ++i) {
    auto it = state_->levels.find(circuits[i]);
    if (it == state_->levels.end() || !std::isfinite(levels[i])) continue;
    it->second.cur = levels[i];
  }
}

int SimulatedDispenser::GetTankLevels(long id, long* field, double* cur,
                                      double* max, double* res,
                                      int reserved) {
  state_->calls.push_back(
      CallText("GetTankLevels").Int(id).Int(reserved).Done());
  int row = 0;
  for (const auto& entry : state_->levels) {
    if (field != nullptr) field[row] = entry.first;
    if (cur != nullptr) cur[row] = entry.second.cur;
    if (max != nullptr) max[row] = entry.second.max;
    if (res != nullptr) res[row] = entry.second.res;
    ++row;
  }
  return row;
}

int SimulatedDispenser::GetCircuitCount(long id) {
  state_->calls.push_back(CallText("GetCircuitCount").Int(id).Done());
  return state_->settings.circuits;
}

namespace {

// The canister's data: scripted, or field = canister + 1 and no flags.
qsim::Canister CanisterOf(const qsim::Machine& m, int canister) {
  auto it = m.settings.canisters.find(canister);
  if (it != m.settings.canisters.end()) return it->second;
  qsim::Canister plain;
  // Canisters are counted from 0; there is none below, and none whose
  // field number would not be an int.
  if (canister >= 0 && canister < INT_MAX) plain.field = canister + 1;
  return plain;
}

}  // namespace

int SimulatedDispenser::GetCanisterField(int canister) {
  state_->calls.push_back(CallText("GetCanisterField").Int(canister).Done());
  return CanisterOf(*state_, canister).field;
}

int SimulatedDispenser::GetCanisterFlagA(int canister) {
  state_->calls.push_back(CallText("GetCanisterFlagA").Int(canister).Done());
  return CanisterOf(*state_, canister).flag_a;
}

int SimulatedDispenser::GetCanisterFlagB(int canister) {
  state_->calls.push_back(CallText("GetCanisterFlagB").Int(canister).Done());
  return CanisterOf(*state_, canister).flag_b;
}
