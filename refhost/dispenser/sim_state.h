// The state behind a SimulatedDispenser, shared by the source files that
// implement its operations.
#ifndef QSLAVE_REFHOST_SIM_STATE_H
#define QSLAVE_REFHOST_SIM_STATE_H

#include "sim_machine.h"
#include "simulated_dispenser.h"

struct SimulatedDispenser::State : qsim::Machine {};

#endif
