// shell: one dispenser selected once, then command after command on it, as
// on the command line without the program name. Interactive on a terminal
// (line editing and history with readline, kept in ~/.qslave_history),
// or reading a script from standard input.
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <readline/history.h>
#include <readline/readline.h>

#include <string>
#include <vector>

#include "command_args.h"
#include "commands.h"
#include "dispatch.h"
#include "dispenser_session.h"
#include "report.h"
#include "shell_words.h"
#include "text_fields.h"
#include "usage.h"

namespace {

const char kPrompt[] = "qslave> ";

// Where readline keeps the history between sessions; "" for none.
std::string HistoryFile() {
  const char* home = getenv("HOME");
  if (home == nullptr || *home == '\0') return "";
  return std::string(home) + "/.qslave_history";
}

// The next line; false at the end of the input.
bool NextLine(bool interactive, std::string* line) {
  if (interactive) {
    char* text = readline(kPrompt);
    if (text == nullptr) return false;
    *line = text;
    if (line->find_first_not_of(" \t") != std::string::npos) add_history(text);
    free(text);
    return true;
  }
  line->clear();
  int c;
  while ((c = getchar()) != EOF && c != '\n') *line += static_cast<char>(c);
  return c != EOF || !line->empty();
}

void PrintShellHelp() {
  printf("Commands, as on the command line without \"qslave\" and the options\n"
         "that choose the tables and the dispenser:\n");
  for (const Command* c = CommandTable(); c->name != nullptr; ++c) {
    const std::string name = c->name;
    if (name == "shell" || name == "serve") continue;
    printf("  %-10s %s\n", c->name, c->summary);
  }
  printf("  %-10s %s\n", "help", "this list; 'help COMMAND' explains one command");
  printf("  %-10s %s\n", "quit", "end the shell (also 'exit', or end of input)");
  printf("A line may add --json or --trace for itself.\n");
}

// The options a line may not change: the dispenser is chosen for the shell.
std::string RefusedOption(const GlobalOptions& o) {
  if (!o.data_dir.empty()) return "--data";
  if (o.dispenser_id != 0) return "--id";
  if (o.purge_server) return "--purge-server";
  if (o.purge_timeout_set) return "--purge-timeout";
  return "";
}

// Runs one line; returns its exit status, or -1 to end the shell.
int RunLine(const std::string& text, const GlobalOptions& shell_options, long dispenser) {
  std::vector<std::string> words;
  std::string error;
  if (!SplitWords(text, &words, &error)) return UsageError(error, "help");
  if (words.empty() || words[0][0] == '#') return kExitOk;
  if (words[0] == "quit" || words[0] == "exit") return -1;
  if (words[0] == "help") {
    const Command* command = words.size() > 1 ? FindCommand(words[1]) : nullptr;
    if (command != nullptr) {
      PrintCommandUsage(*command);
    } else {
      PrintShellHelp();
    }
    return kExitOk;
  }
  ParsedCommandLine line;
  if (!ParseArguments(words, &line, &error)) return RefuseLine(error, false);
  const std::string refused = RefusedOption(line.options);
  if (!refused.empty()) {
    return UsageError(refused + " is chosen when the shell starts; this shell works on "
                      "dispenser " + std::to_string(dispenser), "help");
  }
  if (line.command == "shell" || line.command == "serve") {
    return UsageError(line.command + " does not run inside the shell", "help");
  }
  line.options.data_dir = shell_options.data_dir;
  line.options.trace = line.options.trace || shell_options.trace;
  line.options.json = line.options.json || shell_options.json;
  return RunParsedLine(line);
}

}  // namespace

int RunShell(const Invocation& invocation) {
  int status = kExitOk;
  CommandArgs args;
  if (!args.Parse(invocation, {}, 0, 0, &status)) return status;
  std::string error;
  std::shared_ptr<slave> s = OpenDispenser(invocation.options, &error);
  if (!s) return Fail(error);
  HoldDispenser(s);

  const bool interactive = isatty(STDIN_FILENO) && isatty(STDOUT_FILENO);
  const std::string history = HistoryFile();
  if (interactive) {
    if (!history.empty()) read_history(history.c_str());
    printf("qslave shell on dispenser %ld (%s); 'help' lists the commands, 'quit' ends.\n",
           s->m_DispId, FieldText(s->m_Descr).c_str());
  }
  int last = kExitOk;
  std::string line;
  while (NextLine(interactive, &line)) {
    const int result = RunLine(line, invocation.options, s->m_DispId);
    if (result < 0) break;
    last = result;
    fflush(stdout);
  }
  if (interactive && !history.empty()) write_history(history.c_str());
  HoldDispenser(nullptr);
  return last;
}
