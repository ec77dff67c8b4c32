// Selecting the dispenser a command works on: the tables are looked for in
// the data directory, the slave is constructed for --id (or the default
// dispenser), and the purge-server settings of the command line are applied.
// The shell selects once and holds the dispenser for all its commands.
#ifndef QSLAVE_CLI_DISPENSER_SESSION_H
#define QSLAVE_CLI_DISPENSER_SESSION_H

#include <memory>
#include <string>

#include "options.h"
#include "slave.h"

// The selected dispenser with its driver, or null with *error naming what is
// missing (a directory, a table, the dispenser, its driver). While a
// dispenser is held, that one.
std::shared_ptr<slave> OpenDispenser(const GlobalOptions& options,
                                     std::string* error);

// Makes OpenDispenser answer s from now on; null lets it select anew.
void HoldDispenser(std::shared_ptr<slave> s);

#endif
