#include "door_check.h"

namespace {

const int kDoorOption = 4;

}  // namespace

bool DoorAllowsDispense(slave& s, std::string* error) {
  if (bit_check(s.m_Options, kDoorOption) != 1) return true;
  char query[] = "/!";
  const int word = s.sendcommand(query, nullptr, 0);
  const std::string dispenser = "dispenser " + std::to_string(s.m_DispId);
  if (word == -1) {
    *error = "no answer from " + dispenser + " to the status query /!: the door cannot be checked";
    return false;
  }
  if (!s.IsDoorClosed(word)) {
    *error = "the door of " + dispenser + " is open";
    return false;
  }
  return true;
}
