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
     "tanks and circuits, and the colourant id of each tank, followed by\n"
     "the library's report of the dispenser.\n",
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
    {"dispense",
     "FORMULA [--factor F] [--unit U] [--weights] [--no-levels] [--g2] [--g0] [--split] "
     "[--force]",
     "dispense a formula given in colourant ids",
     "Dispenses FORMULA, written in colourant ids as (ID:QUANTITY)...,\n"
     "e.g. \"(3:10.000)(5:2.500)\". Every quantity is multiplied by the\n"
     "factor F and the unit factor U (both 1 by default).\n"
     "\n"
     "  --weights    the quantities are weights: they are turned into\n"
     "               volumes with the colourants' specific weights\n"
     "  --no-levels  leave the tank levels as they are\n"
     "  --g2, --g0   send /G2 before and /G0 after the dispense (only a\n"
     "               dispenser with a stopper sends them)\n"
     "  --split      a formula too long for one command is sent in parts\n"
     "               that each fit, each booked as it is sent; a part the\n"
     "               machine refuses stops the parts after it\n"
     "  --force      dispense even though the door is open\n"
     "\n"
     "A dispenser with the door option is asked for its status first: with\n"
     "the door open (or no answer) the dispense stops, unless --force.\n"
     "\n"
     "Prints the commands the machine received, the level of every\n"
     "circuit the formula draws from, before and after, and the result.\n"
     "A formula that is malformed, names a colourant in no tank, has a\n"
     "negative quantity or would not fit one command (without --split) is\n"
     "refused before anything is sent or booked. A dispense the machine\n"
     "took whose levels could not be booked ends with \"levels not\n"
     "booked\" and exit status 1.\n",
     RunDispense},
    {"check", "FORMULA [--size S --base B] [--weights]",
     "tell whether the tanks hold enough for a formula",
     "Checks the levels for FORMULA (colourant ids, as for dispense),\n"
     "made for the size S from a formula written for the size B (both 1\n"
     "by default; give both or neither). Prints the verdict (2 enough,\n"
     "1 at reserve, 0 not enough), the circuits the formula draws from\n"
     "with what each would keep (left) and the level at which the verdict\n"
     "changes (2x reserve: what is left must reach it for \"enough\", and\n"
     "the reserve for \"at reserve\"), the colourants that cannot be served\n"
     "with what their tanks hold above the reserve, then the circuits the\n"
     "formula takes to their warning level and the colourants that cannot\n"
     "be served at all (critical), with their circuits. Changes nothing.\n"
     "--weights: the quantities are weights.\n"
     "\n"
     "The exit status follows the verdict: 0 enough, 3 at reserve, 4 not\n"
     "enough (1 and 2 as below).\n",
     RunCheck},
    {"purge",
     "[--qty Q] [--circuit N | --colorant ID[,ID...]] [--dry-run | --book-only] [--one-by-one]",
     "purge circuits and book the purged quantities",
     "Purges Q (default 1.0) from every circuit that holds colourant, or\n"
     "from the one circuit N, or from the circuits of the colourants ID\n"
     "(a comma list). Prints the commands sent, what was purged and the\n"
     "levels before and after.\n"
     "\n"
     "  --dry-run     change nothing: show the commands the purge would send\n"
     "                and the levels it would leave\n"
     "  --book-only   send no command, but book the purge on the levels\n"
     "                (a purge done by hand); all circuits only\n"
     "  --one-by-one  one circuit per command; all circuits only\n",
     RunPurge},
    {"delivered", "FORMULA [--factor F] [--unit U] [--weights] [--not-booked] [--yes]",
     "ask what a dispense delivered and book the difference",
     "After an interrupted or failed dispense of FORMULA (colourant ids,\n"
     "with the same --factor, --unit and --weights as the dispense), asks\n"
     "the machine what each circuit delivered (the dispensed-quantity\n"
     "query /O), shows it against the request, and asks whether to book\n"
     "the difference on the levels (--yes: book without asking).\n"
     "\n"
     "The library lowers the levels by the whole request before it sends\n"
     "a dispense, so by default what was not delivered is given back (and\n"
     "what was delivered beyond the request taken away).\n"
     "  --not-booked  the dispense was not booked (dispense --no-levels):\n"
     "                take away what was delivered instead\n",
     RunDelivered},
    {"errors", "[--clear]", "read the machine's error queue",
     "Prints how many entries the machine's error queue holds and each\n"
     "entry's code and text, oldest first. Reading changes nothing; with\n"
     "--clear the queue is emptied once it has been shown.\n",
     RunErrors},
    {"fill", "[--circuit N] [--qty Q]",
     "book a refill: circuits to their maximum, or Q added",
     "Without options sets every circuit to its maximum level. With\n"
     "--circuit N sets that circuit to its maximum; with --circuit N\n"
     "--qty Q adds Q to its level (refused when Q does not fit). Prints\n"
     "the levels before and after.\n",
     RunFill},
    {"report", "REPLY",
     "read the machine's dispensed-quantity reply",
     "Reads a reply to a dispensed-quantity query, groups of\n"
     "(CIRCUIT:REQUESTED:DISPENSED), e.g. \"(3:10.000:10.000)(7:5.000:2.125)\",\n"
     "and prints per circuit what was requested, dispensed, what remains\n"
     "(never below 0) and what was given beyond the request (over), then\n"
     "per colourant the library's sums: requested, dispensed, remaining.\n"
     "A circuit given 0.001 or more beyond its request is left out of its\n"
     "colourant's sums, and a note says so; one given less than 0.001\n"
     "more counts as given what was asked.\n",
     RunReport},
    {"shelf", "CAN",
     "show a can's record and run the shelf moves for it",
     "Reads can CAN from the cans table (heights and flags), then runs\n"
     "the three shelf moves for it (pre-position, position, post-\n"
     "position) and prints the commands each sent and its result. An\n"
     "unknown can is refused: for it the moves would succeed without\n"
     "moving the shelf.\n",
     RunShelf},
    {"tanks", "[--svg FILE [--force]]",
     "show the tanks, their levels and the colourant distribution",
     "Prints one line per circuit (colourant, code, current, reserve and\n"
     "maximum level, threshold, the Sim and Susp flags) and, per\n"
     "colourant, the tanks that hold it. With --svg FILE also draws the\n"
     "levels as an SVG bar chart: one bar per circuit, filled to its\n"
     "current level, with marks at the reserve and the threshold. An\n"
     "existing FILE is only replaced with --force.\n",
     RunTanks},
    {"shell", "", "run commands on the dispenser one after another",
     "Selects the dispenser once and reads commands, one per line, as on\n"
     "the command line without \"qslave\" and the options that choose the\n"
     "tables and the dispenser (--data, --id, --purge-server and\n"
     "--purge-timeout are given to the shell itself). A line may add\n"
     "--json or --trace. 'help' lists the commands, 'help COMMAND'\n"
     "explains one, 'quit' or the end of the input ends the shell.\n"
     "Words are split as a shell splits them; quotes are needed only\n"
     "for blanks.\n"
     "\n"
     "On a terminal the shell prompts with \"qslave> \" and keeps a history\n"
     "(arrow keys; saved in ~/.qslave_history). Otherwise it reads a\n"
     "script from standard input, without prompts, and exits with the\n"
     "status of the last command it ran.\n",
     RunShell},
    {"serve", "[--listen HOST:PORT]", "keep the levels in view on a web page",
     "Serves a page that shows the dispenser's tanks as the level chart and\n"
     "a table, with the critical (below the reserve), warning (below twice\n"
     "the reserve) and low (below a quarter of the maximum) circuits\n"
     "marked. The page follows the tables: a level changed by a dispense,\n"
     "a purge or a fill appears within about a second, without reloading.\n"
     "\n"
     "  /             the page\n"
     "  /levels.json  the same data as JSON\n"
     "  /levels.svg   the level chart\n"
     "\n"
     "Listens on 127.0.0.1:8080 unless --listen says otherwise (port 0:\n"
     "any free port; the address is printed). Read-only: the tables are\n"
     "opened for reading only and no command is sent to the machine. Runs\n"
     "until interrupted (Ctrl-C, SIGTERM).\n",
     RunServe},
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
