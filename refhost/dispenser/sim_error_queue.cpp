// The simulated machine's error queue, filled with "set queue CODE TEXT".
#include <cstring>

#include "sim_calls.h"
#include "sim_state.h"
#include "simulated_dispenser.h"

using qsim::CallText;

namespace {

// Empties the caller's buffers where they have room for a terminator.
void ClearBuffers(wchar_t* text, int textLen, char* code, int codeLen) {
  if (text != nullptr && textLen >= 1) text[0] = L'\0';
  if (code != nullptr && codeLen >= 1) code[0] = '\0';
}

// Whether a value of length len plus its terminator fits a buffer of size
// room; a missing buffer takes nothing and so fits anything.
bool Fits(const void* buffer, std::size_t len, int room) {
  return buffer == nullptr || (room > 0 && len < static_cast<std::size_t>(room));
}

// Copies entry queue_next into the caller's buffers and moves on to the
// next entry. An entry that does not fit is refused whole rather than cut:
// the buffers are left empty, 0 is answered, and the entry stays next so
// that a caller with larger buffers still gets it.
int Deliver(qsim::Machine& m, wchar_t* text, int textLen, char* code,
            int codeLen) {
  ClearBuffers(text, textLen, code, codeLen);
  if (m.queue_next >= m.queue.size()) return 0;
  const qsim::QueueEntry& entry = m.queue[m.queue_next];
  if (!Fits(text, entry.text.size(), textLen) ||
      !Fits(code, entry.code.size(), codeLen)) {
    return 0;
  }
  if (text != nullptr) {
    std::wmemcpy(text, entry.text.c_str(), entry.text.size() + 1);
  }
  if (code != nullptr) {
    std::memcpy(code, entry.code.c_str(), entry.code.size() + 1);
  }
  ++m.queue_next;
  return 1;
}

std::string QueueCall(const char* name, long id, int textLen, int reserved,
                      int codeLen) {
  return CallText(name).Int(id).Int(textLen).Int(reserved).Int(codeLen).Done();
}

}  // namespace

int SimulatedDispenser::ErrorQueueFirst(long id, wchar_t* text, int textLen,
                                        int reserved, char* code,
                                        int codeLen) {
  state_->calls.push_back(
      QueueCall("ErrorQueueFirst", id, textLen, reserved, codeLen));
  state_->queue_next = 0;
  return Deliver(*state_, text, textLen, code, codeLen);
}

int SimulatedDispenser::ErrorQueueNext(long id, wchar_t* text, int textLen,
                                       int reserved, char* code,
                                       int codeLen) {
  state_->calls.push_back(
      QueueCall("ErrorQueueNext", id, textLen, reserved, codeLen));
  return Deliver(*state_, text, textLen, code, codeLen);
}

int SimulatedDispenser::ErrorQueueClear(long id) {
  state_->calls.push_back(CallText("ErrorQueueClear").Int(id).Done());
  state_->queue.clear();
  state_->queue_next = 0;
  return 1;
}

int SimulatedDispenser::ErrorQueueCount(long id) {
  state_->calls.push_back(CallText("ErrorQueueCount").Int(id).Done());
  return static_cast<int>(state_->queue.size());
}
