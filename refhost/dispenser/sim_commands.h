// How the simulated machine answers a command text no rule scripts: as a
// healthy idle machine.
#ifndef QSLAVE_REFHOST_SIM_COMMANDS_H
#define QSLAVE_REFHOST_SIM_COMMANDS_H

#include <string>

#include "sim_machine.h"

namespace qsim {

// The machine's code for a command it could not read.
const int kProtocolError = 3;

// Whether the command only asks something: its code is then the machine's
// answer (the status word for "/!"), never a failure.
bool IsQuery(const std::string& cmd);

// The idle machine's code for cmd; *answer receives its answer text.
int BuiltinAnswer(const Machine& machine, const std::string& cmd,
                  std::string* answer);

// The answer to a dispensed-quantity query: groups "(circuit:quantity)"
// become "(circuit:requested:dispensed)", all delivered. False (and
// *answer untouched) when the groups are malformed or there are none.
bool DispensedAnswer(const std::string& groups, std::string* answer);

}  // namespace qsim

#endif
