// A formula given on the command line, in colourant ids:
// "(12:3.500)(7:0.250)". Checked whole before the library sees it, and
// split over the dispenser's tanks the way the library will split it, so
// that a command refuses bad input before anything is sent or booked.
#ifndef QSLAVE_CLI_FORMULA_INPUT_H
#define QSLAVE_CLI_FORMULA_INPUT_H

#include <string>
#include <vector>

#include "slave.h"

struct FormulaComponent {
  long colourant;
  double quantity;
};

// Checks the text: not empty, short enough for the library's 512-byte
// buffers, well formed, colourant ids of at least 1, quantities finite and
// not negative, at least one quantity above 0. On success fills
// *components in text order; otherwise false with *error (one line).
bool ReadFormula(const std::string& text, std::vector<FormulaComponent>* components,
                 std::string* error);

// One row of a split: the tank (circuit) and the quantity drawn from it.
struct SplitRow {
  long colourant;
  int circuit;
  double quantity;
};

// Splits the formula over the dispenser's tanks with SplitFrmToTanks
// (factors f and u, weights when w). False with *error naming the
// colourant that is in no tank or that its tanks cannot serve (both error
// 19), the colourant without specific weight when weights are converted,
// or the library's refusal. *unserved (when given) is the colourant its
// tanks cannot serve, 0 for any other failure.
bool SplitFormula(slave& s, const std::string& text, const std::vector<FormulaComponent>& components,
                  double f, double u, bool w, std::vector<SplitRow>* rows, std::string* error,
                  long* unserved = nullptr);

// Splits one component alone, appending its rows; false when its tanks
// cannot serve it (the library then answers error 19 as for a colourant in
// no tank).
bool SplitComponent(slave& s, const FormulaComponent& component, double f, double u, bool w,
                    std::vector<SplitRow>* rows);

// "colourant 8 cannot be served by its tanks: ... (error 19)".
std::string NotServedMessage(long colourant);

// The circuits of the rows, each once, in order of first appearance.
std::vector<int> CircuitsOf(const std::vector<SplitRow>& rows);

// A writable copy of a text for the library's char* parameters.
std::vector<char> Writable(const std::string& text);

// "colourant 42 is in no tank of dispenser 1 (error 19)".
std::string NoTankMessage(long colourant, long dispenser);

#endif
