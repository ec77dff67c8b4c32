// shelf: a can's record and the three shelf moves of a dispense for it.
#include <stdio.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "command_kinds.h"
#include "commands.h"
#include "dispenser_session.h"
#include "host/qdbase.h"
#include "json_output.h"
#include "host/zutable.h"
#include "machine_log.h"
#include "numbers.h"
#include "report.h"

namespace {

const int kLabel = 13;

// Can ids are looked up as five characters.
const long kLargestCan = 99999;

struct Move {
  const char* name;
  int (slave::*run)(long can);
};

const Move kMoves[] = {
    {"prepos:", &slave::ShelfPrepos},
    {"pos:", &slave::ShelfPos},
    {"postpos:", &slave::ShelfPostpos},
};

const char* YesNo(int flag) { return flag ? "yes" : "no"; }

// The cans table of the dispenser's colourant data must be readable: the
// library takes a can it cannot read as one that needs no move.
bool CheckCansTable(long data_id, std::string* error) {
  CZutable cans;
  cans.SetDataId(data_id);
  cans.Handle(ZUSPEC_CANS);
  const std::string file = cans.FileName() != nullptr ? cans.FileName() : "cans.dbf";
  struct stat st;
  if (stat(file.c_str(), &st) != 0) {
    *error = "no cans table: " + file + " is missing";
    return false;
  }
  if (!cans.Open()) {
    *error = "cannot open the cans table " + file;
    return false;
  }
  Qdbase* table = cans.Table();
  const bool empty = table == nullptr || table->RecCount() < 1;
  cans.Close();
  if (empty) {
    *error = "the cans table " + file + " holds no can";
    return false;
  }
  return true;
}

}  // namespace

int RunShelf(const Invocation& invocation) {
  int status = kExitOk;
  if (!HasArgumentCount(invocation, 1, &status)) return status;
  long can = 0;
  if (!ParseLongInRange(invocation.args[0], 1, kLargestCan, &can)) {
    return UsageError("CAN is a can id from 1 to " + std::to_string(kLargestCan) + ", not \"" +
                          invocation.args[0] + "\"",
                      "qslave shelf --help");
  }
  std::string error;
  std::shared_ptr<slave> s = OpenDispenser(invocation.options, &error);
  if (!s) return Fail(error);
  if (!CheckCansTable(s->m_DataId, &error)) return Fail(error);

  int lowest = 0, height = 0, zero_flag = 0, no_punch = 0, preferred = 0;
  if (!SlaveReadCan(static_cast<unsigned long>(s->m_DataId), can, &lowest, &height, &zero_flag,
                    &no_punch, &preferred)) {
    return Fail("can " + std::to_string(can) +
                " is not in the cans table; the shelf moves would succeed without moving the "
                "shelf");
  }
  Document()["can"] = Json{{"id", can},           {"lowest", lowest},
                            {"height", height},    {"zero_flag", zero_flag != 0},
                            {"no_punch", no_punch != 0}, {"preferred", preferred != 0}};
  if (!JsonOutput()) {
    printf("%-*s %ld\n", kLabel, "can:", can);
    printf("%-*s %d\n", kLabel, "lowest:", lowest);
    printf("%-*s %d\n", kLabel, "height:", height);
    printf("%-*s %s\n", kLabel, "zero flag:", YesNo(zero_flag));
    printf("%-*s %s\n", kLabel, "no punch:", YesNo(no_punch));
    printf("%-*s %s\n", kLabel, "preferred:", YesNo(preferred));
  }
  Json moves = Json::array();
  int failed_code = 0;

  std::string failure;
  for (const Move& move : kMoves) {
    MachineLog log(*s);
    const int result = ((*s).*(move.run))(can);
    std::string sent;
    const std::vector<std::string> commands = log.Take();
    if (!log.Known()) {
      sent = "(not known)";
    } else {
      for (const std::string& command : commands) sent += (sent.empty() ? "" : " ") + command;
      if (sent.empty()) sent = "no command";
    }
    std::string name = move.name;
    name.pop_back();
    moves.push_back(Json{{"move", name},
                         {"commands", log.Known() ? Json(commands) : Json(nullptr)},
                         {"result", result},
                         {"done", result == 1}});
    if (!JsonOutput() && result == 1) {
      printf("%-*s %s -> 1 (done)\n", kLabel, move.name, sent.c_str());
    } else if (!JsonOutput()) {
      const std::string code = ResultCodeWithText(s->m_LastError);
      printf("%-*s %s -> %d (failed: %s)\n", kLabel, move.name, sent.c_str(), result,
             code.c_str());
    }
    if (result != 1 && failure.empty()) {
      failure = "the shelf move " + name + " failed with code " +
                ResultCodeWithText(s->m_LastError);
      failed_code = s->m_LastError;
    }
  }
  Document()["moves"] = moves;
  fflush(stdout);
  if (!failure.empty()) return FailWithCode(failure, failed_code);
  return kExitOk;
}
