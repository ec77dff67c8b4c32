// errors: the machine's error queue, read entry by entry and, on request,
// cleared once it has been shown.
#include <stdio.h>

#include <string>
#include <vector>

#include "command_args.h"
#include "commands.h"
#include "dispenser_session.h"
#include "json_output.h"
#include "report.h"

namespace {

const int kLabel = 9;

// Buffers start at these sizes and double while an entry does not fit (the
// driver refuses an entry whole rather than cut it), up to the largest.
const int kFirstTextRoom = 256;
const int kFirstCodeRoom = 64;
const int kLargestRoom = 65536;

struct QueueEntry {
  std::string code;
  std::string text;
};

// A wide text as UTF-8.
std::string Utf8(const wchar_t* text) {
  std::string out;
  for (; *text != L'\0'; ++text) {
    unsigned long c = static_cast<unsigned long>(*text);
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

// Reads the entry the queue is at (first or next), growing the buffers
// while the driver says the entry does not fit. False at the end.
bool ReadEntry(slave& s, bool first, int remaining, QueueEntry* entry) {
  for (int text_room = kFirstTextRoom, code_room = kFirstCodeRoom; text_room <= kLargestRoom;
       text_room *= 2, code_room *= 2) {
    std::vector<wchar_t> text(text_room, L'\0');
    std::vector<char> code(code_room, '\0');
    const int found = first ? s.ErrorQueueFirst(text.data(), text_room, code.data(), code_room)
                            : s.ErrorQueueNext(text.data(), text_room, code.data(), code_room);
    if (found) {
      text.back() = L'\0';
      code.back() = '\0';
      entry->code = code.data();
      entry->text = Utf8(text.data());
      return true;
    }
    // Nothing read while entries remain: the buffers were too small.
    if (remaining < 1) return false;
  }
  return false;
}

}  // namespace

int RunErrors(const Invocation& invocation) {
  int status = kExitOk;
  CommandArgs args;
  if (!args.Parse(invocation, {{"--clear", false}}, 0, 0, &status)) return status;
  std::string error;
  std::shared_ptr<slave> s = OpenDispenser(invocation.options, &error);
  if (!s) return Fail(error);

  const int count = s->ErrorQueueCount();
  std::vector<QueueEntry> entries;
  for (int i = 0; i < count; ++i) {
    QueueEntry entry;
    if (!ReadEntry(*s, i == 0, count - i, &entry)) break;
    entries.push_back(entry);
  }
  Json& doc = Document();
  doc["count"] = count;
  Json list = Json::array();
  for (const QueueEntry& e : entries) list.push_back(Json{{"code", e.code}, {"text", e.text}});
  doc["entries"] = list;
  if (!JsonOutput()) {
    printf("%-*s %d\n", kLabel, "entries:", count);
    for (const QueueEntry& e : entries) {
      printf("%-*s %s %s\n", kLabel, "error:", e.code.c_str(), e.text.c_str());
    }
  }
  if (static_cast<int>(entries.size()) != count) {
    fflush(stdout);
    return Fail("the driver counts " + std::to_string(count) + " entries but gave " +
                std::to_string(entries.size()) + "; the queue was not cleared");
  }
  if (!args.Has("--clear")) return kExitOk;
  const int cleared = s->ErrorQueueClear();
  doc["cleared"] = cleared == 1;
  if (!JsonOutput()) printf("%-*s %s\n", kLabel, "cleared:", cleared == 1 ? "yes" : "no");
  fflush(stdout);
  if (cleared != 1) return Fail("the machine did not clear its error queue");
  return kExitOk;
}
