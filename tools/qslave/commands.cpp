#include "commands.h"

#include "report.h"

namespace {

const Command kCommands[] = {
    {"init", "DIR", "write sample tables into DIR (created if needed)",
     "Creates DIR when it does not exist and writes a set of sample tables\n"
     "into it: disps.dbf (one dispenser), tanks.dbf (its circuits),\n"
     "cistern.dbf, colorants.dbf and cans.dbf. Refuses when any of these\n"
     "files is already there: existing tables are never overwritten.\n",
     RunInit},
    {"info", "", "show the dispenser's record, driver and tanks",
     "Prints the selected dispenser's id, address, description, options,\n"
     "model, serial number, driver type and serial port, the number of\n"
     "tanks and circuits, and the colourant id of each tank.\n",
     RunInfo},
    {"status", "", "ask the machine for its status word and decode it",
     "Sends the status query \"/!\" and prints the status word and what\n"
     "each status bit says (yes/no). Fails when the machine does not\n"
     "answer.\n",
     RunStatus},
    {"send", "CMD", "send one command text to the machine",
     "Sends CMD (e.g. \"/!\" or \"/M1\") through the library's command\n"
     "channel and prints the result and the machine's answer. A query\n"
     "(\"/!\", \"/?\", \"/Q\", \"/W\", \"/M1\", \"/KS\"...) gives the machine's raw\n"
     "code; an action gives 1 (done) or 0 (failed, with the error code and\n"
     "its text). Exits with 0 when the command succeeded: an action that\n"
     "was done, or a query that was answered.\n",
     RunSend},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

const Command* CommandTable() { return kCommands; }

const Command* FindCommand(const std::string& name) {
  for (const Command* c = kCommands; c->name != nullptr; ++c) {
    if (name == c->name) return c;
  }
  return nullptr;
}

bool HasArgumentCount(const Invocation& invocation, size_t count,
                      int* exit_status) {
  const Command& command = invocation.command;
  const size_t given = invocation.args.size();
  if (given == count) return true;
  const std::string help = std::string("qslave ") + command.name + " --help";
  if (given < count) {
    *exit_status = UsageError(std::string(command.name) + " needs " + command.arguments, help);
  } else {
    *exit_status = UsageError(
        "unexpected argument \"" + invocation.args[count] + "\" for " + command.name, help);
  }
  return false;
}
