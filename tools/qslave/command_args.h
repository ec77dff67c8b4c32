// The arguments of one command: its options ("--name", "--name VALUE" or
// "--name=VALUE", anywhere on the line) and its positional arguments.
#ifndef QSLAVE_CLI_COMMAND_ARGS_H
#define QSLAVE_CLI_COMMAND_ARGS_H

#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "commands.h"

struct CommandOption {
  const char* name;  // with its dashes, e.g. "--qty"
  bool takes_value;
};

class CommandArgs {
 public:
  // Reads the invocation's arguments against the command's options and
  // wants positional arguments, positional.size() from min to max. An
  // argument "--" ends the options. On a wrong line writes the usage error
  // and returns false with *exit_status set.
  bool Parse(const Invocation& invocation, std::initializer_list<CommandOption> options,
             size_t min_positional, size_t max_positional, int* exit_status);

  bool Has(const std::string& name) const;
  // The option's value; "" when it was not given.
  std::string Value(const std::string& name) const;
  const std::vector<std::string>& Positional() const { return positional_; }

  // Reads a numeric option. Absent: *value = fallback. Given: a finite
  // number above 0 (or at least 0 with allow_zero). Otherwise a usage
  // error ("--qty takes a quantity above 0, not \"nan\"") and false.
  bool Quantity(const std::string& name, double fallback, bool allow_zero,
                double* value, int* exit_status) const;

  // A usage error of this command: "MESSAGE (see qslave NAME --help)".
  int UsageFailure(const std::string& message) const;

 private:
  const Command* command_ = nullptr;
  std::map<std::string, std::string> values_;
  std::vector<std::string> positional_;
};

#endif
