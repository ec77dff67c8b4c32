#include "level_states.h"

namespace {

const double kLowShareOfMaximum = 0.25;

}  // namespace

const char* LevelState(const TankRow& row) {
  const CircuitLevel& l = row.level;
  if (!row.has_record || l.colourant == 0 || !l.known || !(l.maximum > 0.0)) return "unknown";
  if (l.current < l.reserve) return "critical";
  if (l.current < l.reserve + l.reserve) return "warning";
  if (l.current < kLowShareOfMaximum * l.maximum) return "low";
  return "ok";
}
