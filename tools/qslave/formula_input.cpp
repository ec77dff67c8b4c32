#include "formula_input.h"

#include <stdio.h>

#include <cmath>

#include "host/zutable.h"

namespace {

// The library copies formulas and builds commands in 512-byte buffers.
const size_t kLongestFormula = SLV_CMD_BUFFER - 1;

}  // namespace

std::vector<char> Writable(const std::string& text) {
  std::vector<char> copy(text.begin(), text.end());
  copy.push_back('\0');
  return copy;
}

std::string NoTankMessage(long colourant, long dispenser) {
  return "colourant " + std::to_string(colourant) + " is in no tank of dispenser " +
         std::to_string(dispenser) + " (error 19)";
}

bool ReadFormula(const std::string& text, std::vector<FormulaComponent>* components,
                 std::string* error) {
  if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
    *error = "the formula is empty";
    return false;
  }
  if (text.size() > kLongestFormula) {
    *error = "the formula is " + std::to_string(text.size()) + " characters long; at most " +
             std::to_string(kLongestFormula) + " fit";
    return false;
  }
  kformula formula;
  const int n = formula.set(text.c_str());
  if (n < 0) {
    *error = "malformed formula \"" + text + "\": write it as (ID:QUANTITY)(ID:QUANTITY)...";
    return false;
  }
  std::vector<long long> ids(n > 0 ? n : 1);
  std::vector<double> qnts(n > 0 ? n : 1);
  formula.parse(ids.data(), qnts.data());
  bool anything = false;
  components->clear();
  for (int i = 0; i < n; ++i) {
    if (ids[i] < 1 || ids[i] > 2147483647LL) {
      *error = "colourant id " + std::to_string(ids[i]) + " in the formula is not an id (1 or more)";
      return false;
    }
    if (!std::isfinite(qnts[i]) || qnts[i] < 0.0) {
      char quantity[64];
      snprintf(quantity, sizeof quantity, "%g", qnts[i]);
      *error = "colourant " + std::to_string(ids[i]) + " has the quantity " + quantity +
               "; quantities must be 0 or more";
      return false;
    }
    if (qnts[i] > 0.0) anything = true;
    components->push_back(FormulaComponent{static_cast<long>(ids[i]), qnts[i]});
  }
  if (!anything) {
    *error = "the formula holds no quantity above 0";
    return false;
  }
  return true;
}

std::string NotServedMessage(long colourant) {
  return "colourant " + std::to_string(colourant) +
         " cannot be served by its tanks: not enough above the reserve, or its tanks are "
         "suspended (error 19)";
}

bool SplitComponent(slave& s, const FormulaComponent& component, double f, double u, bool w,
                    std::vector<SplitRow>* rows) {
  char text[128];
  snprintf(text, sizeof text, "(%ld:%.10f)", component.colourant, component.quantity);
  Zu_LongArray ids;
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  const int n = s.SplitFrmToTanks(text, &ids, &tanks, &qnts, f, u, w ? 1 : 0, 0, nullptr);
  if (n < 0) return false;
  for (int i = 0; i < n; ++i) rows->push_back(SplitRow{ids[i], tanks[i], qnts[i]});
  return true;
}

bool SplitFormula(slave& s, const std::string& text, const std::vector<FormulaComponent>& components,
                  double f, double u, bool w, std::vector<SplitRow>* rows, std::string* error,
                  long* unserved) {
  if (unserved != nullptr) *unserved = 0;
  // Named before the split: the library stops at the first such colourant.
  for (const FormulaComponent& c : components) {
    if (s.CntToNumTanks(c.colourant) < 1) {
      *error = NoTankMessage(c.colourant, s.m_DispId);
      return false;
    }
  }
  std::vector<char> frm = Writable(text);
  Zu_LongArray ids;
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  int conversion_failed = 0;
  const int n = s.SplitFrmToTanks(frm.data(), &ids, &tanks, &qnts, f, u, w ? 1 : 0, 0,
                                  &conversion_failed);
  if (n < 0) {
    const int code = s.m_LastError;
    if (code == SLV_ERR_NO_TANK) {
      // Every colourant is in a tank: one of them cannot be served.
      for (const FormulaComponent& c : components) {
        std::vector<SplitRow> alone;
        if (!SplitComponent(s, c, f, u, w, &alone)) {
          *error = NotServedMessage(c.colourant);
          if (unserved != nullptr) *unserved = c.colourant;
          return false;
        }
      }
    }
    *error = "the library refused the formula (error " + std::to_string(code) + ")";
    return false;
  }
  if (conversion_failed) {
    // A colourant without a specific weight would be dispensed as 0: the
    // wrong colour.
    CZutable colourants;
    colourants.SetDataId(s.m_DataId);
    colourants.Handle(ZUSPEC_COLORANTS);
    for (const FormulaComponent& c : components) {
      if (!(colourants.SpecificWeight(c.colourant) > 0.0)) {
        *error = "colourant " + std::to_string(c.colourant) +
                 " has no specific weight: its weight cannot be turned into a volume";
        return false;
      }
    }
    *error = "the weights of the formula cannot be turned into volumes";
    return false;
  }
  rows->clear();
  for (int i = 0; i < n; ++i) rows->push_back(SplitRow{ids[i], tanks[i], qnts[i]});
  return true;
}

std::vector<int> CircuitsOf(const std::vector<SplitRow>& rows) {
  std::vector<int> circuits;
  for (const SplitRow& row : rows) {
    bool seen = false;
    for (int c : circuits) seen = seen || c == row.circuit;
    if (!seen) circuits.push_back(row.circuit);
  }
  return circuits;
}
