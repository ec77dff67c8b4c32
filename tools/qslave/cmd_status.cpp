// status: the machine's status word and what each bit of it says.
#include <stdio.h>

#include <string>

#include "commands.h"
#include "dispenser_session.h"
#include "json_output.h"
#include "report.h"

namespace {

struct Predicate {
  const char* name;
  int (slave::*test)(int status);
};

const Predicate kPredicates[] = {
    {"IsStopPressed", &slave::IsStopPressed},
    {"IsStartReleased", &slave::IsStartReleased},
    {"IsErrorQueueEmpty", &slave::IsErrorQueueEmpty},
    {"IsErrorQueueOverflow", &slave::IsErrorQueueOverflow},
    {"IsBusy", &slave::IsBusy},
    {"IsBusyForAutomaticProcess", &slave::IsBusyForAutomaticProcess},
    {"IsCanPresent", &slave::IsCanPresent},
    {"IsDoorClosed", &slave::IsDoorClosed},
    {"IsEmergencyPressed", &slave::IsEmergencyPressed},
    {"IsBusyForNozzleWash", &slave::IsBusyForNozzleWash},
};

}  // namespace

int RunStatus(const Invocation& invocation) {
  int status = kExitOk;
  if (!HasArgumentCount(invocation, 0, &status)) return status;
  std::string error;
  std::shared_ptr<slave> s = OpenDispenser(invocation.options, &error);
  if (!s) return Fail(error);

  char query[] = "/!";
  const int word = s->sendcommand(query, nullptr, 0);
  if (word == -1) {
    return Fail("no answer from dispenser " + std::to_string(s->m_DispId) +
                " to the status query /!");
  }
  Json& doc = Document();
  doc["status_word"] = word;
  Json bits = Json::object();
  if (!JsonOutput()) printf("status word: %d (0x%04x)\n", word, static_cast<unsigned>(word));
  for (const Predicate& p : kPredicates) {
    const int on = ((*s).*(p.test))(word);
    bits[p.name] = on != 0;
    if (!JsonOutput()) {
      printf("%-26s %s\n", (std::string(p.name) + ":").c_str(), on ? "yes" : "no");
    }
  }
  doc["bits"] = bits;
  return kExitOk;
}
