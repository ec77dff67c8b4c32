// The options that come before the command: where the tables are, which
// dispenser, whether to show the library's trace, and the purge server.
#ifndef QSLAVE_CLI_OPTIONS_H
#define QSLAVE_CLI_OPTIONS_H

#include <string>
#include <vector>

struct GlobalOptions {
  std::string data_dir;       // empty: $QSLAVE_DATA or the current directory
  long dispenser_id = 0;      // 0: the default dispenser of the table
  bool trace = false;
  bool purge_server = false;  // false: the purge-server update is off
  std::string purge_host;
  int purge_port = 0;
  double purge_timeout = 0.0;  // seconds; used when purge_timeout_set
  bool purge_timeout_set = false;
  bool json = false;          // one JSON document on standard output
  bool help = false;          // --help before any command
  bool version = false;       // --version before any command
};

// What is left of the command line once the global options are read.
struct ParsedCommandLine {
  GlobalOptions options;
  std::string command;             // empty when none was given
  std::vector<std::string> args;   // the command's own arguments
};

// Reads argv. Returns false with *error set (one line, no program name)
// for an unknown option, a missing or malformed value. The options above
// may also follow the command's name, anywhere before a "--": no command
// has an option of the same name, so they cannot be mistaken. One given
// both before and after the command is refused.
bool ParseCommandLine(int argc, char** argv, ParsedCommandLine* parsed,
                      std::string* error);

// Splits HOST:PORT (the last colon separates them). Refuses an empty host,
// a host longer than the slave keeps (50 characters) and a port outside
// 1..65535.
bool ParsePurgeServer(const std::string& text, std::string* host, int* port,
                      std::string* error);

// The same for a command line already split into words (the program
// name not among them), as the shell reads one.
bool ParseArguments(const std::vector<std::string>& args, ParsedCommandLine* parsed,
                    std::string* error);

// True when argv holds "--json" before a "--": a wrong command line is
// then reported in a JSON document as well.
bool WantsJson(int argc, char** argv);

#endif
