// Selecting the dispenser a command works on: the tables are looked for in
// the data directory, the slave is constructed for --id (or the default
// dispenser), and the purge-server settings of the command line are applied.
#ifndef QSLAVE_CLI_DISPENSER_SESSION_H
#define QSLAVE_CLI_DISPENSER_SESSION_H

#include <memory>
#include <string>

#include "options.h"
#include "slave.h"

// The selected dispenser with its driver, or null with *error naming what is
// missing (a directory, a table, the dispenser, its driver).
std::unique_ptr<slave> OpenDispenser(const GlobalOptions& options,
                                     std::string* error);

#endif
