#include "options.h"

#include <climits>
#include <cstring>
#include <set>

#include "numbers.h"

namespace {

// The slave keeps the purge-server host in a 51-byte buffer.
const size_t kMaxPurgeHost = 50;

// The longest purge-server call that may be asked for: an hour.
const double kLongestPurgeTimeout = 3600.0;

// An option that takes a value, given as "--name VALUE" or "--name=VALUE".
// Returns false when arg is not this option; *value is then untouched.
bool TakeValue(const char* name, const std::vector<std::string>& args, size_t* i,
               bool* missing, std::string* value) {
  const std::string& arg = args[*i];
  const size_t len = strlen(name);
  if (arg.compare(0, len, name) != 0) return false;
  if (arg.size() > len && arg[len] == '=') {
    *value = arg.substr(len + 1);
    *missing = value->empty();
    return true;
  }
  if (arg.size() != len) return false;
  if (*i + 1 >= args.size()) {
    *missing = true;
    return true;
  }
  *value = args[++*i];
  *missing = value->empty();
  return true;
}

bool SetDataDir(const std::string& value, GlobalOptions* options,
                std::string* /*error*/) {
  options->data_dir = value;
  return true;
}

bool SetDispenserId(const std::string& value, GlobalOptions* options,
                    std::string* error) {
  long id = 0;
  if (!ParseLongInRange(value, 1, INT_MAX, &id)) {
    *error = "--id takes a dispenser id from 1 to " + std::to_string(INT_MAX) +
             ", not \"" + value + "\"";
    return false;
  }
  options->dispenser_id = id;
  return true;
}

bool SetPurgeServer(const std::string& value, GlobalOptions* options,
                    std::string* error) {
  if (!ParsePurgeServer(value, &options->purge_host, &options->purge_port,
                        error)) {
    return false;
  }
  options->purge_server = true;
  return true;
}

bool SetPurgeTimeout(const std::string& value, GlobalOptions* options,
                     std::string* error) {
  double seconds = 0.0;
  if (!ParseFiniteDouble(value, &seconds) || seconds <= 0.0 ||
      seconds > kLongestPurgeTimeout) {
    *error = "--purge-timeout takes seconds above 0 and at most 3600, not \"" + value + "\"";
    return false;
  }
  options->purge_timeout = seconds;
  options->purge_timeout_set = true;
  return true;
}

struct ValueOption {
  const char* name;
  const char* what;  // how the missing value is named in the error
  bool (*apply)(const std::string&, GlobalOptions*, std::string*);
};

const ValueOption kValueOptions[] = {
    {"--data", "a directory", SetDataDir},
    {"--id", "a dispenser id", SetDispenserId},
    {"--purge-server", "HOST:PORT", SetPurgeServer},
    {"--purge-timeout", "SECONDS", SetPurgeTimeout},
};

struct FlagOption {
  const char* name;
  bool GlobalOptions::*flag;
};

const FlagOption kFlagOptions[] = {
    {"--trace", &GlobalOptions::trace},
    {"--json", &GlobalOptions::json},
};

enum class Read { kNotGlobal, kRead, kFailed };

// Reads the global option at args[*i] into options; *name is its name.
Read ReadGlobal(const std::vector<std::string>& args, size_t* i, GlobalOptions* options,
                std::string* name, std::string* error) {
  const std::string& arg = args[*i];
  for (const FlagOption& option : kFlagOptions) {
    if (arg != option.name) continue;
    options->*(option.flag) = true;
    *name = option.name;
    return Read::kRead;
  }
  for (const ValueOption& option : kValueOptions) {
    bool missing = false;
    std::string value;
    if (!TakeValue(option.name, args, i, &missing, &value)) continue;
    *name = option.name;
    if (missing) {
      *error = std::string(option.name) + " needs " + option.what;
      return Read::kFailed;
    }
    return option.apply(value, options, error) ? Read::kRead : Read::kFailed;
  }
  return Read::kNotGlobal;
}

// The options before the command; stops at the command's name.
bool ReadLeadingOptions(const std::vector<std::string>& args, size_t* i,
                        ParsedCommandLine* parsed, std::set<std::string>* seen,
                        std::string* error) {
  for (; *i < args.size(); ++*i) {
    const std::string& arg = args[*i];
    if (arg.size() < 2 || arg[0] != '-') return true;  // the command
    if (arg == "--") {
      ++*i;
      return true;
    }
    if (arg == "--help" || arg == "-h") {
      parsed->options.help = true;
      return true;
    }
    if (arg == "--version") {
      parsed->options.version = true;
      return true;
    }
    std::string name;
    switch (ReadGlobal(args, i, &parsed->options, &name, error)) {
      case Read::kRead: seen->insert(name); break;
      case Read::kFailed: return false;
      case Read::kNotGlobal:
        *error = "unknown option " + arg;
        return false;
    }
  }
  return true;
}

// The command's arguments, with the global options that follow the
// command's name taken out of them.
bool ReadCommandArguments(const std::vector<std::string>& args, size_t i,
                          ParsedCommandLine* parsed, const std::set<std::string>& seen,
                          std::string* error) {
  bool options_end = false;
  for (; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--") options_end = true;
    if (options_end || arg.compare(0, 2, "--") != 0) {
      parsed->args.push_back(arg);
      continue;
    }
    std::string name;
    switch (ReadGlobal(args, &i, &parsed->options, &name, error)) {
      case Read::kRead:
        if (seen.count(name) != 0) {
          *error = name + " is given twice";
          return false;
        }
        break;
      case Read::kFailed: return false;
      case Read::kNotGlobal: parsed->args.push_back(arg); break;
    }
  }
  return true;
}

}  // namespace

bool ParsePurgeServer(const std::string& text, std::string* host, int* port,
                      std::string* error) {
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0) {
    *error = "--purge-server takes HOST:PORT, not \"" + text + "\"";
    return false;
  }
  const std::string name = text.substr(0, colon);
  if (name.size() > kMaxPurgeHost) {
    *error = "purge-server host is " + std::to_string(name.size()) +
             " characters long; at most " + std::to_string(kMaxPurgeHost) +
             " fit";
    return false;
  }
  long number = 0;
  if (!ParseLongInRange(text.substr(colon + 1), 1, 65535, &number)) {
    *error = "purge-server port must be a number from 1 to 65535, not \"" +
             text.substr(colon + 1) + "\"";
    return false;
  }
  *host = name;
  *port = static_cast<int>(number);
  return true;
}

bool ParseCommandLine(int argc, char** argv, ParsedCommandLine* parsed,
                      std::string* error) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  return ParseArguments(args, parsed, error);
}

bool ParseArguments(const std::vector<std::string>& args, ParsedCommandLine* parsed,
                    std::string* error) {
  size_t i = 0;
  std::set<std::string> seen;
  if (!ReadLeadingOptions(args, &i, parsed, &seen, error)) return false;
  if (parsed->options.help || parsed->options.version) return true;
  if (i < args.size()) parsed->command = args[i++];
  return ReadCommandArguments(args, i, parsed, seen, error);
}

bool WantsJson(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--") == 0) return false;
    if (strcmp(argv[i], "--json") == 0) return true;
  }
  return false;
}
