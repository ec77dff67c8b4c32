#include "options.h"

#include <climits>
#include <cstring>

#include "numbers.h"

namespace {

// The slave keeps the purge-server host in a 51-byte buffer.
const size_t kMaxPurgeHost = 50;

// An option that takes a value, given as "--name VALUE" or "--name=VALUE".
// Returns false when arg is not this option; *value is then untouched.
bool TakeValue(const char* name, int argc, char** argv, int* i,
               bool* missing, std::string* value) {
  const char* arg = argv[*i];
  const size_t len = strlen(name);
  if (strncmp(arg, name, len) != 0) return false;
  if (arg[len] == '=') {
    *value = arg + len + 1;
    *missing = value->empty();
    return true;
  }
  if (arg[len] != '\0') return false;
  if (*i + 1 >= argc) {
    *missing = true;
    return true;
  }
  *value = argv[++*i];
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

struct ValueOption {
  const char* name;
  const char* what;  // how the missing value is named in the error
  bool (*apply)(const std::string&, GlobalOptions*, std::string*);
};

const ValueOption kValueOptions[] = {
    {"--data", "a directory", SetDataDir},
    {"--id", "a dispenser id", SetDispenserId},
    {"--purge-server", "HOST:PORT", SetPurgeServer},
};

// Reads one option at argv[*i]; false with *error on a bad one.
bool ReadOption(int argc, char** argv, int* i, GlobalOptions* options,
                std::string* error) {
  const std::string arg = argv[*i];
  if (arg == "--help" || arg == "-h") {
    options->help = true;
    return true;
  }
  if (arg == "--trace") {
    options->trace = true;
    return true;
  }
  for (const ValueOption& option : kValueOptions) {
    bool missing = false;
    std::string value;
    if (!TakeValue(option.name, argc, argv, i, &missing, &value)) continue;
    if (missing) {
      *error = std::string(option.name) + " needs " + option.what;
      return false;
    }
    return option.apply(value, options, error);
  }
  *error = "unknown option " + arg;
  return false;
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
  int i = 1;
  for (; i < argc; ++i) {
    const char* arg = argv[i];
    if (arg[0] != '-' || arg[1] == '\0') break;  // the command
    if (strcmp(arg, "--") == 0) {
      ++i;
      break;
    }
    if (!ReadOption(argc, argv, &i, &parsed->options, error)) return false;
    if (parsed->options.help) return true;
  }
  if (i < argc) parsed->command = argv[i++];
  for (; i < argc; ++i) parsed->args.push_back(argv[i]);
  return true;
}
