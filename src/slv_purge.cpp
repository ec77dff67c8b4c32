// Purging: pushing a quantity of colourant out of circuits, by the
// machine's own command (type 9), by the driver, or by ordinary dispensing
// in groups, and booking it on the levels.
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/qdsp32.h"
#include "slv_internal.h"

namespace {

const char kSource[] = "slv_purge";
const int kGroupOption = 3;
const int kDefaultGroup = 8;

// Sends a command from a buffer of its own: "/G0" needs no memory, so it
// goes out after a purge whatever else failed.
int Send(slave* s, const char* command) {
  char cmd[SLV_CMD_BUFFER];
  if (snprintf(cmd, sizeof cmd, "%s", command) >= static_cast<int>(sizeof cmd)) {
    TarvoTrace("\n%s(%d): purge command of %zu characters refused: room for %d", kSource, __LINE__,
               strlen(command), SLV_CMD_BUFFER - 1);
    s->m_LastError = SLV_ERR_GENERIC;
    return 0;
  }
  return s->sendcommand(cmd, nullptr, 0);
}

bool GroupFlag(const slave* s) { return s->m_DispId != 0 && SlvOptionOn(s->m_Options, kGroupOption); }

// Machines of types 6 and 8 purge every circuit in one dispense.
int GroupSize(const slave* s, int type) {
  return (type == 6 || type == 8) ? s->m_NumTanks : kDefaultGroup;
}

bool HoldsColourant(slave* s, int circuit) {
  const unsigned failures = SlvFailureCount();
  double cur = 0.0;
  s->TankQnts(circuit, &cur, nullptr, nullptr);
  // A level that could not be read for want of memory stops the purge
  // before anything is sent: the circuit is not skipped as if it were dry.
  if (SlvFailureCount() != failures) throw SlvFailureNoted();
  return cur > kSlvEpsilon;
}

long ColourantOf(const slave* s, int circuit) {
  if (circuit < 1 || circuit > s->m_NumTanks || s->m_TankCntId == nullptr) return 0;
  return s->m_TankCntId[circuit - 1];
}

// A purge quantity that is not a finite number sends nothing.
bool RefuseQuantity(slave* s, double quantity) {
  if (std::isfinite(quantity)) return false;
  TarvoTrace("\n%s(%d): purge quantity %g refused", kSource, __LINE__, quantity);
  s->m_LastError = SLV_ERR_GENERIC;
  return true;
}

// Purges by dispensing: "/G2", the circuits in groups of g (levels taken
// off first), "/G0". Answers the last dispense, -1 when no group ran.
int PurgeByDispensing(slave* s, const std::vector<int>& circuits, double quantity, int g,
                      Zu_Frm* record) {
  if (g < 1) g = 1;
  // The groups are made before "/G2" goes out: from there to "/G0" nothing
  // needs memory of its own.
  std::vector<std::vector<int>> groups;
  for (size_t start = 0; start < circuits.size(); start += static_cast<size_t>(g)) {
    const size_t end = std::min(circuits.size(), start + static_cast<size_t>(g));
    groups.emplace_back(circuits.begin() + static_cast<long>(start),
                        circuits.begin() + static_cast<long>(end));
  }
  std::vector<double> qnts(static_cast<size_t>(g), quantity);

  if (GroupFlag(s)) Send(s, "/G2");
  int result = -1;
  for (std::vector<int>& group : groups) {
    for (int circuit : group) {
      if (record != nullptr) record->add(ColourantOf(s, circuit), quantity, 0, 0);
    }
    const int n = static_cast<int>(group.size());
    // Each group is booked whole or not at all before it is dispensed.
    // UpdateLevels scales the quantities in place (factor 1): they stay.
    SlvBooking booking;
    if (!SlvBookLevels(s, &booking, n, group.data(), qnts.data())) s->m_LevelsNotBooked = 1;
    result = s->Dispense(n, group.data(), qnts.data(), 1.0);
  }
  if (GroupFlag(s)) Send(s, "/G0");
  return result;
}

// Books a purge the driver made: each circuit's level moves by sign x the
// quantity; the driver's result becomes the last error.
// Books a purge as one booking: every circuit's level moves by sign x the
// quantity, or, when one of them cannot, none does.
void BookPurge(slave* s, const std::vector<int>& circuits, double quantity, double sign,
               Zu_Frm* record) {
  SlvBooking booking;
  bool booked = booking.Ok();
  for (int circuit : circuits) {
    if (booked && !s->change_level(circuit, sign * quantity, 1, 0)) booked = false;
    if (record != nullptr) record->add(ColourantOf(s, circuit), quantity, 0, 0);
  }
  if (!booked || !booking.Commit()) s->m_LevelsNotBooked = 1;
}

int BookDriverPurge(slave* s, const std::vector<int>& circuits, double quantity, double sign,
                    int driverResult, Zu_Frm* record) {
  BookPurge(s, circuits, quantity, sign, record);
  s->m_LastError = driverResult;
  s->m_Dsp->ResetError(s->m_DispId);
  return driverResult == 0 ? 1 : 0;
}

}  // namespace

int slave::Purge(double quantity, Zu_Frm* record, bool send, bool oneByOne) try {
  SlvCallScope call(this);
  m_LevelsNotBooked = 0;
  if (m_Dsp == nullptr || RefuseQuantity(this, quantity)) return 0;
  const int type = m_Dsp->GetType(0, 0);
  if (type == 9) {
    if (!send) return 1;
    return Send(this, SlvFormat("/D(PURGE)(%f)", quantity).c_str());
  }
  const int g = oneByOne ? 1 : GroupSize(this, type);
  if (m_DispId < 1 || m_NumTanks < 1) return 0;

  std::vector<int> circuits;
  SlvDriverCopies copies(this);
  for (int c = 1; c <= m_NumTanks; ++c) {
    if (HoldsColourant(this, c)) circuits.push_back(c);
  }
  copies.Write();
  if (circuits.empty()) {
    m_LastError = SLV_ERR_NO_TANK;
    return 0;
  }
  if (!send) {
    // Booked as if the driver had purged, without a command.
    BookPurge(this, circuits, quantity, -1.0, record);
    return 1;
  }
  const int r = m_Dsp->PurgeCircuits(static_cast<int>(circuits.size()), circuits.data(), quantity);
  if (r == -1) return PurgeByDispensing(this, circuits, quantity, g, record);
  return BookDriverPurge(this, circuits, quantity, -1.0, r, record);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::SelectivePurge(long* colourants, double quantity) try {
  SlvCallScope call(this);
  m_LevelsNotBooked = 0;
  if (m_DispId < 1 || m_Dsp == nullptr || colourants == nullptr) return 0;
  if (RefuseQuantity(this, quantity)) return 0;
  const int g = GroupSize(this, m_Dsp->GetType(0, 0));

  // A colourant named twice selects its circuits twice. The list is counted
  // once, so each circuit is matched against it in one lookup.
  std::unordered_map<long, int> named;
  for (long* id = colourants; *id != 0; ++id) ++named[*id];
  std::vector<int> selection;
  SlvDriverCopies copies(this);
  for (int c = 1; c <= m_NumTanks; ++c) {
    const auto found = named.find(ColourantOf(this, c));
    if (found == named.end()) continue;
    for (int k = 0; k < found->second; ++k) {
      if (HoldsColourant(this, c)) selection.push_back(c);
    }
  }
  copies.Write();
  if (selection.empty()) return 0;

  const int r = m_Dsp->PurgeCircuits(static_cast<int>(selection.size()), selection.data(), quantity);
  if (r == -1) return PurgeByDispensing(this, selection, quantity, g, nullptr);
  // The driver's purge is added to the levels here, unlike Purge.
  return BookDriverPurge(this, selection, quantity, 1.0, r, nullptr);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::CanisterPurge(int circuit, double quantity) try {
  SlvCallScope call(this);
  m_LevelsNotBooked = 0;
  if (m_DispId < 1 || m_Dsp == nullptr || RefuseQuantity(this, quantity)) return 0;
  if (m_Dsp->GetType(0, 0) == 9) {
    return Send(this, SlvFormat("/D(PURGEBYCAN)(%d:%f)", circuit, quantity).c_str());
  }
  if (m_NumTanks < 1 || !HoldsColourant(this, circuit)) return 0;
  std::vector<int> one(1, circuit);
  const int r = m_Dsp->PurgeCircuits(1, one.data(), quantity);
  if (r == -1) return PurgeByDispensing(this, one, quantity, 1, nullptr);
  return BookDriverPurge(this, one, quantity, 1.0, r, nullptr);
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}

int slave::Test(bool grouped, double quantity) try {
  m_LevelsNotBooked = 0;
  if (m_DispId < 1 || m_Dsp == nullptr || RefuseQuantity(this, quantity)) return 0;
  if (m_Dsp->GetType(0, 0) == 9) {
    return Send(this, SlvFormat("/D(PURGE_SEQ)(%f)", quantity).c_str());
  }
  if (m_Dsp->PurgeCircuits(0, nullptr, 0.0) != -1) return Purge(quantity, nullptr, true, false);
  if (!grouped) return Send(this, "/T");
  if (GroupFlag(this)) Send(this, "/G2");
  const int result = Send(this, "/T");
  if (GroupFlag(this)) Send(this, "/G0");
  return result;
} catch (...) {
  return SlvFailed(this, kSource, __LINE__, __func__, 0);
}
