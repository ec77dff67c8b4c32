// The dispense command the library builds for a list of circuits and
// quantities, computed with the library's own functions without sending
// anything: to refuse a command that would not fit before anything is
// booked, to cut a long formula into parts that fit, and to show what a
// purge would send.
#ifndef QSLAVE_CLI_COMMAND_TEXT_H
#define QSLAVE_CLI_COMMAND_TEXT_H

#include <string>
#include <vector>

#include "slave.h"

struct CircuitQuantity {
  int circuit;
  double quantity;
};

// "/D..." as the list form of slave::Dispense sends it; "" when the
// library would send nothing (no circuit with a quantity above 0).
std::string DispenseCommandText(slave& s, const std::vector<CircuitQuantity>& entries);

// Whether a command of this text fits the library's command buffer.
bool CommandFits(const std::string& command);

// The longest command the library sends.
size_t LongestCommand();

#endif
