// send: one command text through the library's command channel, with the
// result and the machine's answer.
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "command_kinds.h"
#include "commands.h"
#include "dispenser_session.h"
#include "json_output.h"
#include "report.h"

namespace {

// A code with the text the machine table gives it, e.g. "4 (ERROR : command
// refused)"; just the number when the table has none.
std::string CodeWithText(int code) {
  const std::string text = ResultCodeText(code);
  if (text.empty()) return std::to_string(code);
  return std::to_string(code) + " (" + text + ")";
}

bool CheckCommandText(const std::string& cmd, std::string* error) {
  if (cmd.empty()) {
    *error = "the command text is empty";
    return false;
  }
  const size_t longest = SLV_CMD_BUFFER - 1;
  if (cmd.size() > longest) {
    *error = "the command text is " + std::to_string(cmd.size()) +
             " characters long; at most " + std::to_string(longest) + " fit";
    return false;
  }
  return true;
}

// Each prints the result and returns why the command failed ("" when it
// succeeded).
std::string ReportQuery(const std::string& cmd, long dispenser, int result) {
  Json& doc = Document();
  doc["kind"] = "query";
  doc["result"] = result;
  if (!JsonOutput()) printf("kind:    query\n");
  if (result == -1) {
    if (!JsonOutput()) printf("result:  -1 (no answer)\n");
    return "no answer from dispenser " + std::to_string(dispenser) + " to " + cmd;
  }
  if (!JsonOutput()) printf("result:  %d\n", result);
  return "";
}

std::string ReportAction(const std::string& cmd, const slave& s, int result) {
  Json& doc = Document();
  doc["kind"] = "action";
  doc["result"] = result;
  doc["done"] = result == 1;
  if (!JsonOutput()) printf("kind:    action\n");
  if (result == 1) {
    if (!JsonOutput()) printf("result:  1 (done)\n");
    return "";
  }
  const std::string code = CodeWithText(s.m_LastError);
  if (!JsonOutput()) printf("result:  %d (failed)\nerror:   %s\n", result, code.c_str());
  return cmd + " failed with code " + code;
}

// The library copies at most the room it is given. When the copy fills it,
// the driver's own text tells whether the answer was longer: such an answer
// is refused rather than shown cut.
bool AnswerFits(slave& s, const char* answer, size_t room, std::string* error) {
  if (strlen(answer) < room) return true;
  const char* full = s.m_Dsp->GetAnswer(s.m_DispId);
  const size_t length = full != nullptr ? strlen(full) : 0;
  if (length <= room) return true;
  *error = "the machine's answer is " + std::to_string(length) +
           " characters long; at most " + std::to_string(room) + " fit";
  return false;
}

}  // namespace

int RunSend(const Invocation& invocation) {
  int status = kExitOk;
  if (!HasArgumentCount(invocation, 1, &status)) return status;
  const std::string& cmd = invocation.args[0];
  std::string error;
  if (!CheckCommandText(cmd, &error)) return UsageError(error, "qslave send --help");
  std::shared_ptr<slave> s = OpenDispenser(invocation.options, &error);
  if (!s) return Fail(error);

  std::vector<char> text(cmd.begin(), cmd.end());
  text.push_back('\0');
  // One byte of the answer buffer is never written: the answer always ends
  // with its terminator, even when it fills the rest.
  char answer[SLV_CMD_BUFFER] = {};
  const int room = SLV_CMD_BUFFER - 1;
  const int result = s->sendcommand(text.data(), answer, room);

  Document()["sent"] = cmd;
  if (!JsonOutput()) printf("command: %s\n", cmd.c_str());
  const bool query = IsQueryCommand(cmd);
  std::string failure = query ? ReportQuery(cmd, s->m_DispId, result)
                              : ReportAction(cmd, *s, result);
  if (AnswerFits(*s, answer, room, &error)) {
    Document()["answer"] = answer;
    if (!JsonOutput()) printf("answer:  \"%s\"\n", answer);
  } else {
    Document()["answer"] = nullptr;
    if (failure.empty()) failure = error;
  }
  fflush(stdout);
  if (failure.empty()) return kExitOk;
  if (!query && result != 1) return FailWithCode(failure, s->m_LastError);
  return Fail(failure);
}
