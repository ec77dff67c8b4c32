#include "command_text.h"

std::string DispenseCommandText(slave& s, const std::vector<CircuitQuantity>& entries) {
  const int n = static_cast<int>(entries.size());
  std::vector<int> tanks;
  std::vector<double> qnts;
  bool any = false;
  for (const CircuitQuantity& e : entries) {
    tanks.push_back(e.circuit);
    qnts.push_back(e.quantity);
    any = any || (e.circuit >= 1 && e.circuit <= s.m_NumTanks && e.quantity > 0.0);
  }
  if (!any) return "";
  // The two-pass split may append after a full copy: room for both. The
  // order of the two sets is the one the list dispense uses.
  const size_t room = 2 * entries.size() + 1;
  std::vector<int> tanks1(room), tanks2(room);
  std::vector<double> qnts1(room), qnts2(room);
  int count1 = 0;
  int count2 = 0;
  s.DoSplittArrays(n, tanks.data(), qnts.data(), 1.0, &count1, tanks1.data(), qnts1.data(),
                   &count2, tanks2.data(), qnts2.data());
  std::string text;
  if (count1 >= 1 && count2 < 1) {
    text = s.MakeCommandString(count1, tanks1.data(), qnts1.data(), 1.0, 0, nullptr, nullptr);
  } else if (count1 >= 1) {
    text = s.MakeCommandString(count2, tanks2.data(), qnts2.data(), 1.0, count1, tanks1.data(),
                               qnts1.data());
  } else {
    text = s.MakeCommandString(n, tanks.data(), qnts.data(), 1.0, 0, nullptr, nullptr);
  }
  // The library's buffer is empty when the text does not fit: measured on
  // the entries alone, such a command is "too long" to the caller too.
  if (text.empty()) return std::string(LongestCommand() + 1, '?');
  return "/D" + text;
}

size_t LongestCommand() { return SLV_CMD_BUFFER - 1; }

bool CommandFits(const std::string& command) {
  return !command.empty() && command.size() <= LongestCommand();
}
