// The last dosed formula: the text of the last command the machine
// accepted, kept as the host's record mode says.
#include <stdlib.h>
#include <string.h>

#include "slv_internal.h"

namespace {

const char kSource[] = "slv_last";

enum { kModeClear = 0, kModeReplace = 1, kModeAppend = 2 };

char* Duplicate(const char* text) {
  const size_t len = strlen(text);
  char* copy = static_cast<char*>(malloc(len + 1));
  if (copy != nullptr) memcpy(copy, text, len + 1);
  return copy;
}

}  // namespace

char* slave::LastDosedFormula() { return m_LastDosedFrm; }

void slave::SetLastDosedFormulaRecordMode(int mode) { m_LastDosedMode = mode; }

void slave::ClearLastDosedFormula() {
  free(m_LastDosedFrm);
  m_LastDosedFrm = nullptr;
}

void slave::SetLastDosedFormula(char* text) try {
  switch (m_LastDosedMode) {
    case kModeClear:
      ClearLastDosedFormula();
      return;
    case kModeReplace: {
      // Copied before the old text goes: a host that repeats what was sent
      // hands back the pointer LastDosedFormula gave it.
      char* copy = text != nullptr ? Duplicate(text) : nullptr;
      ClearLastDosedFormula();
      m_LastDosedFrm = copy;
      return;
    }
    case kModeAppend: {
      if (text == nullptr) return;
      if (m_LastDosedFrm == nullptr) {
        m_LastDosedFrm = Duplicate(text);
        return;
      }
      const size_t oldLen = strlen(m_LastDosedFrm);
      const size_t addLen = strlen(text);
      char* joined = static_cast<char*>(malloc(oldLen + addLen + 1));
      if (joined == nullptr) return;  // nothing changes
      memcpy(joined, m_LastDosedFrm, oldLen);
      memcpy(joined + oldLen, text, addLen + 1);
      ClearLastDosedFormula();
      m_LastDosedFrm = joined;
      return;
    }
    default:
      return;
  }
} catch (...) {
  SlvNoteFailure(this, kSource, __LINE__, __func__);
}
