// QdbBooking: the writes of one operation on one or more tables of one
// directory, journalled so that they reach the files together or not at
// all (see host/qdbase.h and journal.h).
#include <string.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <vector>

#include "field_codec.h"
#include "host/qdsp32.h"
#include "qdbase_impl.h"

namespace qdb {

struct ActiveBooking {
  std::vector<Qdbase::Impl*> tables;
  Journal* journal = nullptr;  // locked while the booking lives
  int joined = 0;              // bookings that joined this one
  bool failed = false;         // a booking that joined could not start
};

namespace {

ActiveBooking* g_active = nullptr;

// Bytes of a write: a view of a staged record (which lives until the
// booking ends), or bytes of the write's own (a mark, a count, bytes read
// from the file).
class Bytes {
 public:
  void View(std::string_view bytes) {
    view_ = bytes;
    owned_ = false;
  }
  std::string* Own() {
    owned_ = true;
    return &own_;
  }
  std::string_view Get() const { return owned_ ? std::string_view(own_) : view_; }

 private:
  std::string_view view_;
  std::string own_;
  bool owned_ = false;
};

// One write of the commit, and how to take it back.
struct Write {
  Qdbase::Impl* table = nullptr;
  long long offset = 0;
  Bytes bytes;
  Bytes before;  // the bytes it replaces (for a write within the file)
};

// A new write of table t at offset, at the end of writes.
Write& AddWrite(std::vector<Write>* writes, Qdbase::Impl* t, long long offset) {
  writes->emplace_back();
  Write& w = writes->back();
  w.table = t;
  w.offset = offset;
  return w;
}

void Trace(const std::string& text) { TarvoTrace("\nQdbase: booking not made: %s", text.c_str()); }

bool Contains(const std::vector<Qdbase::Impl*>& tables, const Qdbase::Impl* t) {
  return std::find(tables.begin(), tables.end(), t) != tables.end();
}

// Joins table to the active booking (the lock is held): it is brought up to
// date with its file first.
bool Enlist(ActiveBooking* active, Qdbase::Impl* table, std::string* why) {
  if (!table->Refresh()) {
    *why = "cannot read " + table->openFile + " again";
    return false;
  }
  FileIdentity id;
  if (!table->file.Identity(&id)) {
    *why = table->openFile + ": " + table->file.Error();
    return false;
  }
  std::unique_ptr<TableBooking> state = std::move(table->idleBooking);
  if (!state) state = std::make_unique<TableBooking>();
  state->recordsAtStart = table->records;
  state->sizeAtStart = id.size;
  state->errorsAtStart = table->ioErrors;
  table->booking = state.release();
  active->tables.push_back(table);
  return true;
}

// Ends the table's part in the booking; an abandoned part is read again
// from the file when it changed the table's structure in memory.
void Dismiss(Qdbase::Impl* table, bool committed) noexcept {
  TableBooking* state = table->booking;
  table->booking = nullptr;
  table->imageRec = 0;
  if (state == nullptr) return;
  if (!committed && (state->structural || table->records != state->recordsAtStart)) {
    // Read again now, or, without the memory to, before the next use.
    table->stale = true;
    try {
      std::string why;
      if (!table->Load(&why)) TraceTable(table->openFile, "cannot read it again: " + why);
    } catch (...) {
    }
  }
  if (committed) table->RememberFile();
  state->Recycle();
  if (table->idleBooking == nullptr) {
    table->idleBooking.reset(state);
  } else {
    delete state;
  }
}

void Finish(bool committed) noexcept {
  ActiveBooking* active = g_active;
  g_active = nullptr;
  if (active == nullptr) return;
  for (Qdbase::Impl* table : active->tables) Dismiss(table, committed);
  if (active->journal != nullptr) active->journal->Unlock();
  delete active;
}

// The bytes the file holds now at [offset, offset + len), clipped to its
// length at the start of the booking.
bool Before(Qdbase::Impl* t, long long offset, size_t len, std::string* out, std::string* why) {
  const long long end = std::min<long long>(offset + static_cast<long long>(len),
                                            t->booking->sizeAtStart);
  out->clear();
  if (end <= offset) return true;
  out->resize(static_cast<size_t>(end - offset));
  if (t->file.ReadAt(&(*out)[0], out->size(), offset)) return true;
  *why = t->openFile + ": " + t->file.Error();
  return false;
}

// Every write the booking makes, in table and record order: changed spans
// of existing records, appended records with the end-of-file mark after
// them, and the header's date and count; each with the bytes it replaces.
bool CollectWrites(const ActiveBooking& active, std::vector<Write>* writes, std::string* why) {
  size_t most = 0;
  for (const Qdbase::Impl* t : active.tables) most += t->booking->records.size() + 2;
  writes->reserve(most);
  for (Qdbase::Impl* t : active.tables) {
    TableBooking& state = *t->booking;
    state.SortRecords();
    for (const TableBooking::Record& entry : state.records) {
      const StagedRecord& staged = *entry.staged;
      if (staged.low >= staged.high) continue;
      const size_t low = static_cast<size_t>(staged.low);
      const size_t len = static_cast<size_t>(staged.high - staged.low);
      Write& w = AddWrite(writes, t, RecordOffset(t->layout, entry.rec) + staged.low);
      w.bytes.View(std::string_view(staged.image).substr(low, len));
      if (!staged.appended) {
        w.before.View(std::string_view(staged.before).substr(low, len));
      } else if (!Before(t, w.offset, len, w.before.Own(), why)) {
        return false;
      }
    }
    if (t->records > state.recordsAtStart) {
      Write& mark = AddWrite(writes, t, RecordOffset(t->layout, t->records + 1));
      mark.bytes.Own()->assign(1, '\x1A');
      if (!Before(t, mark.offset, 1, mark.before.Own(), why)) return false;
      unsigned char head[7];
      TodayBytes(head);
      CountBytes(t->records, head + 3);
      Write& count = AddWrite(writes, t, 1);
      count.bytes.Own()->assign(reinterpret_cast<char*>(head), sizeof head);
      if (!Before(t, 1, sizeof head, count.before.Own(), why)) return false;
    }
  }
  return true;
}

// Takes back the first n writes: every table that grew gets its old length
// back, then every write its old bytes.
bool Undo(const ActiveBooking& active, const std::vector<Write>& writes, size_t n) {
  bool ok = true;
  for (Qdbase::Impl* t : active.tables) {
    if (t->records > t->booking->recordsAtStart) ok = t->file.Truncate(t->booking->sizeAtStart) && ok;
  }
  for (size_t i = n; i-- > 0;) {
    const Write& w = writes[i];
    const std::string_view before = w.before.Get();
    if (!before.empty()) ok = w.table->file.WriteAt(before.data(), before.size(), w.offset) && ok;
  }
  return ok;
}

// Prepares the booking's writes and journals them: nothing is written to
// the tables yet, and a failure (an exception too) leaves them as they are.
bool Prepare(ActiveBooking* active, std::vector<Write>* writes) {
  std::string why;
  try {
    if (active->failed) {
      Trace("a part of it could not start");
      return false;
    }
    for (Qdbase::Impl* t : active->tables) {
      if (t->ioErrors != t->booking->errorsAtStart) {
        Trace("a read or write of " + t->openFile + " failed during the booking");
        return false;
      }
    }
    if (!CollectWrites(*active, writes, &why)) {
      Trace(why);
      return false;
    }
    if (writes->empty()) return true;
    std::vector<JournalPart> parts;
    parts.reserve(writes->size());
    for (const Write& w : *writes) {
      parts.push_back(JournalPart{w.table->fileBase, w.table->seen.inode, w.offset, w.bytes.Get()});
    }
    if (!active->journal->Append(parts, &why)) {
      Trace(why);
      return false;
    }
    return true;
  } catch (...) {
    TarvoTrace("\nQdbase: booking not made: out of memory");
    return false;
  }
}

// Writes the journalled writes into the tables. A write the system refuses
// takes back those made before it and removes the entry; when even that
// fails, the entry is written again whole. False: none of the booking is
// in the tables.
bool Apply(ActiveBooking* active, const std::vector<Write>& writes) {
  size_t failed = writes.size();
  for (size_t i = 0; i < writes.size() && failed == writes.size(); ++i) {
    const std::string_view bytes = writes[i].bytes.Get();
    if (!writes[i].table->file.WriteAt(bytes.data(), bytes.size(), writes[i].offset)) failed = i;
  }
  if (failed == writes.size()) return true;
  const Write& w = writes[failed];
  TarvoTrace("\nQdbase: booking not made: %s: %s", w.table->openFile.c_str(),
             w.table->file.Error().c_str());
  std::string why;
  if (Undo(*active, writes, failed + 1) && active->journal->CancelLast(&why)) return false;
  // Neither undone nor removed from the journal: made whole instead.
  bool replayed = false;
  try {
    replayed = active->journal->ReplayLast(&why);
  } catch (...) {
  }
  TarvoTrace(replayed ? "\nQdbase: %s: the booking was made whole from the journal after all"
                      : "\nQdbase: %s: the journal holds the booking; the next process that "
                        "takes the lock of the tables completes it",
             w.table->openFile.c_str());
  return replayed;
}

bool Commit(ActiveBooking* active) {
  std::vector<Write> writes;
  if (!Prepare(active, &writes)) return false;
  if (writes.empty()) return true;
  if (!Apply(active, writes)) return false;
  Journal* journal = active->journal;
  if (journal->TablesNeedSync()) {
    for (Qdbase::Impl* t : active->tables) {
      if (!t->file.Sync()) {
        TarvoTrace("\nQdbase: %s: cannot sync it (%s)", t->openFile.c_str(), t->file.Error().c_str());
      }
    }
  }
  journal->MarkApplied();
  bool structural = false;
  for (Qdbase::Impl* t : active->tables) structural = structural || t->booking->structural;
  if (structural) journal->CountChange();
  try {
    std::string why;
    if (journal->WantsCheckpoint() && !journal->Checkpoint(&why)) {
      TraceTable(journal->Path(), "checkpoint postponed: " + why);
    }
  } catch (...) {
    // The checkpoint waits for the next booking.
  }
  return true;
}

}  // namespace

void LeaveBooking(Qdbase::Impl* table) noexcept {
  TarvoTrace("\nQdbase: %s: closed during a booking: its writes are dropped",
             table->openFile.c_str());
  if (g_active != nullptr) {
    auto& tables = g_active->tables;
    tables.erase(std::remove(tables.begin(), tables.end(), table), tables.end());
  }
  delete table->booking;
  table->booking = nullptr;
}

}  // namespace qdb

namespace {

enum State { kFailed = 0, kOwner = 1, kJoined = 2, kDone = 3 };

// Whether every given open table takes part in the active booking already
// (the common case of a booking within a booking: nothing to add).
bool AllIn(const qdb::ActiveBooking* active, Qdbase::Impl* const* tables) {
  for (int i = 0; i < 3; ++i) {
    if (tables[i] != nullptr && tables[i]->IsOpen() && !qdb::Contains(active->tables, tables[i])) {
      return false;
    }
  }
  return true;
}

}  // namespace

QdbBooking::QdbBooking(Qdbase* a, Qdbase* b, Qdbase* c)
    : QdbBooking(qdb::LockWaitMs(), a, b, c) {}

QdbBooking::QdbBooking(int waitMs, Qdbase* a, Qdbase* b, Qdbase* c) : state_(kFailed) {
  Qdbase::Impl* const given[3] = {a != nullptr ? a->impl_ : nullptr,
                                  b != nullptr ? b->impl_ : nullptr,
                                  c != nullptr ? c->impl_ : nullptr};
  if (qdb::g_active != nullptr && AllIn(qdb::g_active, given)) {
    ++qdb::g_active->joined;
    state_ = kJoined;
    return;
  }
  qdb::ActiveBooking* owned = nullptr;
  try {
    std::vector<Qdbase::Impl*> tables;
    for (Qdbase* q : {a, b, c}) {
      if (q != nullptr && q->impl_->IsOpen() && !qdb::Contains(tables, q->impl_)) {
        tables.push_back(q->impl_);
      }
    }
    std::string why;
    qdb::ActiveBooking* active = qdb::g_active;
    const bool joining = active != nullptr;
    if (!joining) {
      if (tables.empty()) {
        state_ = kDone;  // nothing to book
        return;
      }
      owned = active = new qdb::ActiveBooking;
      active->journal = tables.front()->journal;
      if (!active->journal->Lock(waitMs < 0 ? 0 : waitMs, &why)) {
        delete owned;
        owned = nullptr;
        qdb::Trace(why);
        return;
      }
      qdb::g_active = active;
    }
    for (Qdbase::Impl* t : tables) {
      if (qdb::Contains(active->tables, t)) continue;
      if (t->journal != active->journal) {
        why = t->openFile + " is not in the directory of the booking's other tables";
      } else if (qdb::Enlist(active, t, &why)) {
        continue;
      }
      qdb::Trace(why);
      if (joining) active->failed = true;
      if (!joining) qdb::Finish(false);
      return;
    }
    if (joining) ++active->joined;
    state_ = joining ? kJoined : kOwner;
  } catch (...) {
    TarvoTrace("\nQdbase: booking not made: out of memory");
    // A part that cannot start fails the booking it was to join.
    if (qdb::g_active != nullptr && qdb::g_active != owned) qdb::g_active->failed = true;
    if (owned != nullptr && qdb::g_active == owned) {
      qdb::Finish(false);
    } else if (owned != nullptr) {
      delete owned;
    }
    state_ = kFailed;
  }
}

QdbBooking::~QdbBooking() {
  if (state_ == kOwner) qdb::Finish(false);
  if (state_ == kJoined && qdb::g_active != nullptr) --qdb::g_active->joined;
}

int QdbBooking::InProgress() { return qdb::g_active != nullptr ? 1 : 0; }

int QdbBooking::Ok() const { return state_ != kFailed ? 1 : 0; }

int QdbBooking::Commit() {
  switch (state_) {
    case kDone: return 1;
    case kFailed: return 0;
    case kJoined: {
      // The outer booking writes; this one can only tell whether it still
      // may.
      if (qdb::g_active == nullptr || qdb::g_active->failed) return 0;
      for (Qdbase::Impl* t : qdb::g_active->tables) {
        if (t->ioErrors != t->booking->errorsAtStart) return 0;
      }
      return 1;
    }
    default: break;
  }
  const bool committed = qdb::Commit(qdb::g_active);
  qdb::Finish(committed);
  state_ = committed ? kDone : kFailed;
  return committed ? 1 : 0;
}
