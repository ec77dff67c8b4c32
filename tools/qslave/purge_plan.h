// What a purge would send and book, worked out without sending or booking
// anything, for `purge --dry-run`. It follows the library's purge: the
// circuits that hold colourant, in groups (8, all circuits for driver
// types 6 and 8, one with --one-by-one), each group dispensed with the
// list dispense between /G2 and /G0 when the dispenser has the stopper
// flag, the quantity taken off the level once per purged circuit (twice
// off a reservoir that two linked circuits share). That is the library's
// own purge; a driver that purges by itself gets one purge call instead,
// and a type 9 machine one firmware command and no booking.
#ifndef QSLAVE_CLI_PURGE_PLAN_H
#define QSLAVE_CLI_PURGE_PLAN_H

#include <string>
#include <vector>

#include "levels.h"
#include "slave.h"

enum class PurgeKind { kAll, kOneCircuit, kColourants };

struct PurgeRequest {
  PurgeKind kind = PurgeKind::kAll;
  double quantity = 1.0;
  bool one_by_one = false;
  int circuit = 0;                // kOneCircuit
  std::vector<long> colourants;   // kColourants
};

struct PurgePlan {
  std::vector<std::string> commands;
  // The levels of `circuits` (in the order given) after the purge.
  std::vector<CircuitLevel> after;
  bool books = true;  // false on a type 9 machine, which keeps its own
};

PurgePlan PlanPurge(slave& s, const PurgeRequest& request,
                    const std::vector<CircuitLevel>& before);

// Whether a circuit holds colourant for the library's purges: its level is
// known and above 1e-5.
bool HoldsColourant(const CircuitLevel& level);

#endif
