#include "command_kinds.h"

#include <strings.h>

namespace {

const char* const kResultTexts[] = {
    "SUCCESS",
    "ERROR : reading configuration data",
    "ERROR : unknown command",
    "ERROR : in communication protocol",
    "ERROR : command refused",
    "ERROR : process timeout elapsed",
    "ERROR : during mixing",
    "ERROR : in electrovalve feeding",
    "ERROR : can missing or too small",
    "ERROR : can too big",
    "ERROR : door open",
    "ERROR : shelf upper off-limit",
    "ERROR : punch failure",
    "ERROR : cap failure",
    "ERROR : disp. stop",
    "ERROR : generic error",
};
const int kResultTextCount = sizeof kResultTexts / sizeof kResultTexts[0];

}  // namespace

bool IsQueryCommand(const std::string& cmd) {
  if (cmd.size() < 2) return false;
  const std::string kinds = "?!QqWw";
  if (kinds.find(cmd[1]) != std::string::npos) return true;
  return strncasecmp(cmd.c_str() + 1, "M1", 2) == 0 ||
         strncasecmp(cmd.c_str() + 1, "KS", 2) == 0;
}

std::string ResultCodeText(int code) {
  if (code == -1) return "no answer";
  if (code < 0 || code >= kResultTextCount) return "";
  return kResultTexts[code];
}

std::string LibraryCodeText(int code) {
  // The library keeps these two codes itself; the machine table's 15 is
  // "generic error" as well.
  if (code == 19) return "colourant in no tank, or nothing to purge";
  return ResultCodeText(code);
}

std::string ResultCodeWithText(int code) {
  const std::string text = LibraryCodeText(code);
  if (text.empty()) return std::to_string(code);
  return std::to_string(code) + " (" + text + ")";
}
