#include "formula_round.h"

#include <cmath>

double RoundQuantity(double q, int decimals) {
  double scale = std::pow(10.0, decimals);
  double scaled = q * scale;
  // From 2^52 on a double holds no fraction any more: q is already as
  // precise as the decimals ask, and scaling back could only add error.
  if (!std::isfinite(scaled) || std::fabs(scaled) >= 4503599627370496.0) {
    return q;
  }
  double rounded = std::round(scaled) / scale;
  return rounded == 0.0 ? 0.0 : rounded;
}
