// The door of a dispenser that has the door option (option 4 of its
// record): a dispense with the door open is stopped unless forced.
#ifndef QSLAVE_CLI_DOOR_CHECK_H
#define QSLAVE_CLI_DOOR_CHECK_H

#include <string>

#include "slave.h"

// True when the machine may dispense: no door option, or the door closed.
// Otherwise false with *error saying why: the door is open, or the machine
// did not answer the status query.
bool DoorAllowsDispense(slave& s, std::string* error);

#endif
