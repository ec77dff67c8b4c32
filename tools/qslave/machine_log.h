// The command texts the machine received during one operation of the
// library. With the reference host's simulated dispenser they come from its
// record of every command, exactly as sent; another driver keeps no such
// record, and the caller falls back on what the library remembers.
#ifndef QSLAVE_CLI_MACHINE_LOG_H
#define QSLAVE_CLI_MACHINE_LOG_H

#include <stdio.h>

#include <string>
#include <vector>

#include "slave.h"

class MachineLog {
 public:
  // Marks the start of the operation.
  explicit MachineLog(slave& s);

  // False when the driver keeps no record of its commands.
  bool Known() const { return simulator_known_; }
  // The commands received since the mark (or since the last Take), in
  // order.
  std::vector<std::string> Take();

 private:
  slave& slave_;
  bool simulator_known_ = false;
  size_t seen_ = 0;
};

// Shows the commands: printed as below, or with --json as the document's
// "commands" (an array of texts; null when the driver keeps no record).
void ShowCommands(const char* label, int width, bool known,
                  const std::vector<std::string>& commands);

// Prints "LABEL COMMAND" for each command, or "LABEL none" when there was
// none; label is padded to width.
void PrintCommands(const char* label, int width, const std::vector<std::string>& commands);

#endif
