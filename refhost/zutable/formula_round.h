// Rounding of formula quantities to a number of decimals.
#ifndef QSLAVE_REFHOST_FORMULA_ROUND_H
#define QSLAVE_REFHOST_FORMULA_ROUND_H

// Highest number of decimals a quantity may be rounded to.
constexpr int kFormulaMaxDecimals = 15;

// q rounded to decimals (0..kFormulaMaxDecimals), halves away from zero. A
// result of zero is +0 so that no "-0.000" shows up in a formula text.
double RoundQuantity(double q, int decimals);

#endif
