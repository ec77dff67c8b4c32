// Small helpers shared by the library's sources.
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <cmath>
#include <new>

#include "host/qdsp32.h"
#include "slv_internal.h"

int SlvIdText(long id, char* out) {
  char digits[kSlvIdTextSize];
  char* p = digits + sizeof digits;
  unsigned long u = id < 0 ? 0UL - static_cast<unsigned long>(id) : static_cast<unsigned long>(id);
  do {
    *--p = static_cast<char>('0' + u % 10);
    u /= 10;
  } while (u != 0);
  if (id < 0) *--p = '-';
  const int n = static_cast<int>(digits + sizeof digits - p);
  const int pad = n < 5 ? 5 - n : 0;
  memset(out, ' ', static_cast<size_t>(pad));
  memcpy(out + pad, p, static_cast<size_t>(n));
  out[pad + n] = '\0';
  return pad + n;
}

std::string SlvFormat(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  va_list copy;
  va_copy(copy, args);
  // Most texts are short: one pass into a local buffer, a second only for
  // a text that does not fit it.
  char local[256];
  int len = vsnprintf(local, sizeof local, fmt, copy);
  va_end(copy);
  std::string text;
  if (len > 0 && static_cast<size_t>(len) < sizeof local) {
    text.assign(local, static_cast<size_t>(len));
  } else if (len > 0) {
    text.resize(static_cast<size_t>(len) + 1);
    vsnprintf(&text[0], text.size(), fmt, args);
    text.resize(static_cast<size_t>(len));
  }
  va_end(args);
  return text;
}

bool SlvOptionOn(const char* options, int pos) {
  if (options == nullptr || pos < 0 || pos > 31) return false;
  if (static_cast<size_t>(pos) >= strnlen(options, 33)) return false;
  return options[pos] == '1';
}

namespace {

// The piece as its own zero-terminated text ("" when missing).
std::string Piece(const char* text, int from, int to) {
  if (text == nullptr || from < 0 || to < from) return std::string();
  size_t len = strlen(text);
  if (static_cast<size_t>(from) >= len) return std::string();
  size_t end = static_cast<size_t>(to) + 1;
  if (end > len) end = len;
  return std::string(text + from, end - static_cast<size_t>(from));
}

}  // namespace

long SlvPieceLong(const char* text, int from, int to) {
  std::string piece = Piece(text, from, to);
  char* end = nullptr;
  long value = strtol(piece.c_str(), &end, 10);
  return end == piece.c_str() ? 0 : value;
}

double SlvPieceDouble(const char* text, int from, int to) {
  std::string piece = Piece(text, from, to);
  char* end = nullptr;
  double value = strtod(piece.c_str(), &end);
  if (end == piece.c_str() || !std::isfinite(value)) return 0.0;
  return value;
}

Qdbase* SlvDispenserRecord(const slave* s) {
  if (s == nullptr || s->m_DispId < 1) return nullptr;
  Qdbase* disp = nullptr;
  if (!_slv_dbhandles(&disp, nullptr, nullptr)) return nullptr;
  // The record found at selection, while it is still the dispenser's and
  // the table has not been read again; else the search from the top.
  SlvState* state = s->m_State;
  long id = 0;
  if (state != nullptr && state->dispRecNo > 0 && disp->Generation() == state->dispGeneration &&
      disp->Go(state->dispRecNo) && !disp->IsDeleted() && disp->ReadLong("ID", &id) &&
      id == s->m_DispId) {
    return disp;
  }
  if (!_slv_SelectDispenser(disp, s->m_DispId)) return nullptr;
  if (state != nullptr) {
    state->dispRecNo = disp->RecNo();
    state->dispGeneration = disp->Generation();
  }
  return disp;
}

Qdbase* SlvOpenColorants(const slave* s, CZutable* colorants, const char* source, int line) {
  colorants->SetDataId(s->m_DataId);
  colorants->Handle(ZUSPEC_COLORANTS);
  Qdbase* table = colorants->Open() ? colorants->Table() : nullptr;
  if (table == nullptr || table->RecCount() < 1) {
    TarvoTrace("\n%s(%d): error ... unable to open colorant database", source, line);
    return nullptr;
  }
  return table;
}

namespace {

unsigned g_failures = 0;

template <typename Array, typename Value>
void Append(Array* array, Value value) {
  if (array->append(value) < 0) throw std::bad_alloc();
}

}  // namespace

void SlvAppend(Zu_IntArray* array, int value) { Append(array, value); }
void SlvAppend(Zu_LongArray* array, long value) { Append(array, value); }
void SlvAppend(Zu_DoubleArray* array, double value) { Append(array, value); }

unsigned SlvFailureCount() noexcept { return g_failures; }

void SlvNoteFailure(slave* s, const char* source, int line, const char* function) noexcept {
  const char* what = "unexpected failure";
  try {
    throw;
  } catch (const SlvFailureNoted&) {
    if (s != nullptr) s->m_LastError = SLV_ERR_GENERIC;
    return;
  } catch (const std::bad_alloc&) {
    what = "out of memory";
  } catch (...) {
  }
  ++g_failures;
  if (s != nullptr) s->m_LastError = SLV_ERR_GENERIC;
  try {
    TarvoTrace("\n%s(%d): %s: %s", source, line, function, what);
  } catch (...) {
    // A host trace that fails as well loses this line, nothing more.
  }
}

void SlvNoteFailure(ColourantInDispenser* c, const char* source, int line,
                    const char* function) noexcept {
  SlvNoteFailure(c != nullptr ? c->m_Slave : nullptr, source, line, function);
}

bool SlvReadNumber(Qdbase* table, const char* field, double* value) {
  return table->ReadDouble(field, value) != 0 || table->FieldNo(field) == 0;
}

bool SlvReadNumber(Qdbase* table, const char* field, long* value) {
  return table->ReadLong(field, value) != 0 || table->FieldNo(field) == 0;
}

bool SlvReadNumber(Qdbase* table, int field, double* value) {
  *value = 0.0;
  return field == 0 || table->ReadFieldDouble(field, value) != 0;
}

bool SlvReadNumber(Qdbase* table, int field, long* value) {
  *value = 0;
  return field == 0 || table->ReadFieldLong(field, value) != 0;
}

SlvLevelFields SlvLevelFieldsOf(Qdbase* table) {
  // One entry for each table the library keeps open (dispensers, tanks,
  // cisterns) and a spare. A table read again has a new generation, and
  // perhaps another layout: its numbers are looked up again. A table closed
  // since keeps its generation but has no fields (count 0): it answers
  // none, as its reads by name do.
  struct Entry {
    const Qdbase* table = nullptr;
    long generation = 0;
    int count = 0;
    SlvLevelFields fields;
  };
  static Entry entries[4];
  static size_t next = 0;
  const long generation = table->Generation();
  const int count = table->FieldCount();
  for (const Entry& entry : entries) {
    if (entry.table == table && entry.generation == generation && entry.count == count) {
      return entry.fields;
    }
  }
  Entry& entry = entries[next];
  next = (next + 1) % (sizeof entries / sizeof entries[0]);
  entry.table = table;
  entry.generation = generation;
  entry.count = count;
  entry.fields.cistId = table->FieldNo("CIST_ID");
  entry.fields.maxQ = table->FieldNo("MAX_Q");
  entry.fields.curQ = table->FieldNo("CUR_Q");
  entry.fields.resQ = table->FieldNo("RES_Q");
  entry.fields.threshold = table->FieldNo("THRESHOLD");
  return entry.fields;
}
