#include "command_args.h"

#include "numbers.h"
#include "report.h"

bool CommandArgs::Parse(const Invocation& invocation,
                        std::initializer_list<CommandOption> options,
                        size_t min_positional, size_t max_positional,
                        int* exit_status) {
  command_ = &invocation.command;
  const std::vector<std::string>& args = invocation.args;
  bool options_end = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (options_end || arg.size() < 2 || arg.compare(0, 2, "--") != 0) {
      positional_.push_back(arg);
      continue;
    }
    if (arg == "--") {
      options_end = true;
      continue;
    }
    const size_t equals = arg.find('=');
    const std::string name = arg.substr(0, equals);
    const CommandOption* known = nullptr;
    for (const CommandOption& option : options) {
      if (name == option.name) known = &option;
    }
    if (known == nullptr) {
      *exit_status = UsageFailure("unknown option " + name + " for " + command_->name);
      return false;
    }
    if (values_.count(name) != 0) {
      *exit_status = UsageFailure(name + " is given twice");
      return false;
    }
    std::string value;
    if (known->takes_value) {
      if (equals != std::string::npos) {
        value = arg.substr(equals + 1);
      } else if (i + 1 < args.size()) {
        value = args[++i];
      }
      if (value.empty()) {
        *exit_status = UsageFailure(name + " needs a value");
        return false;
      }
    } else if (equals != std::string::npos) {
      *exit_status = UsageFailure(name + " takes no value");
      return false;
    }
    values_[name] = value;
  }
  if (positional_.size() < min_positional) {
    // The positional arguments are named before the options in the synopsis.
    std::string wanted = command_->arguments;
    wanted = wanted.substr(0, wanted.find(" ["));
    *exit_status = UsageFailure(std::string(command_->name) + " needs " + wanted);
    return false;
  }
  if (positional_.size() > max_positional) {
    *exit_status = UsageFailure("unexpected argument \"" + positional_[max_positional] +
                                "\" for " + command_->name);
    return false;
  }
  return true;
}

bool CommandArgs::Has(const std::string& name) const { return values_.count(name) != 0; }

std::string CommandArgs::Value(const std::string& name) const {
  const auto found = values_.find(name);
  return found == values_.end() ? "" : found->second;
}

bool CommandArgs::Quantity(const std::string& name, double fallback, bool allow_zero,
                           double* value, int* exit_status) const {
  if (!Has(name)) {
    *value = fallback;
    return true;
  }
  const std::string text = Value(name);
  double parsed = 0.0;
  if (!ParseFiniteDouble(text, &parsed) || parsed < 0.0 || (!allow_zero && parsed == 0.0)) {
    *exit_status = UsageFailure(name + " takes a quantity " +
                                (allow_zero ? "of at least 0" : "above 0") + ", not \"" +
                                text + "\"");
    return false;
  }
  *value = parsed;
  return true;
}

int CommandArgs::UsageFailure(const std::string& message) const {
  return UsageError(message, std::string("qslave ") + command_->name + " --help");
}
