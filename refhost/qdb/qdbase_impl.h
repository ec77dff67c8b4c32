// The state behind a Qdbase object, shared by the sources of the table
// class (internal to libqdb).
#ifndef QSLAVE_REFHOST_QDBASE_IMPL_H
#define QSLAVE_REFHOST_QDBASE_IMPL_H

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "dbf_file.h"
#include "dbf_header.h"
#include "field_codec.h"
#include "host/qdbase.h"
#include "journal.h"
#include "record_index.h"

namespace qdb {

// The numbers of a record's fields as read once: a field read again gives
// the same value without reading its text again. Forgotten when the
// record's bytes change. Each entry carries the read of the record it was
// decoded in: forgetting them all starts another read, in one step.
struct DecodedNumbers {
  struct Entry {
    FieldNumber value;
    unsigned long long read = 0;  // 0: never decoded
  };
  std::vector<Entry> fields;
  unsigned long long read = 1;
  bool Known(size_t fi) const { return fields[fi].read == read; }
  // Marks field fi's entry, decoded in place, as what the image holds.
  void Keep(size_t fi) { fields[fi].read = read; }
  void Forget() { ++read; }
  void Forget(int fi) {
    if (static_cast<size_t>(fi) < fields.size()) fields[static_cast<size_t>(fi)].read = 0;
  }
};

// A record changed by the booking in progress: its image as the booking
// left it, the bytes it had when first read, and the span that changed.
struct StagedRecord {
  std::string image;
  std::string before;  // the bytes read, kept at the first change; empty
                       // for a record the booking appended
  int low = 0;         // changed bytes: [low, high)
  int high = 0;
  bool appended = false;
  DecodedNumbers numbers;  // what the image's number fields hold
};

// The bookings API's hold on a table while it takes part in one. A table
// keeps the one of its last booking for the next, with the entries of its
// records (buffers the size of a record) ready to be used again.
struct TableBooking {
  // A record of the booking: its number and its entry, which stays where
  // it is in memory.
  struct Record {
    long rec;
    StagedRecord* staged;
  };
  using Records = std::vector<Record>;
  Records records;               // read or changed, in the order first asked for
  long lastRec = 0;              // the record asked for last, and
  StagedRecord* last = nullptr;  // its entry
  long recordsAtStart = 0;
  long long sizeAtStart = 0;
  bool structural = false;  // appended, deleted or rekeyed
  unsigned long errorsAtStart = 0;

  // Every entry made: the first inUse back this booking's records, the
  // others wait for the next booking. A booking of as many records again
  // allocates nothing; at most kMostSpareRecords are kept between them.
  static constexpr size_t kMostSpareRecords = 1024;
  std::vector<std::unique_ptr<StagedRecord>> entries;
  size_t inUse = 0;

  // The entries by record number: a table's first records (the tables of
  // a dispenser have a few hundred) are found by their number, in any
  // order, in one step; records beyond, in a tree.
  static constexpr long kMostIndexed = 65536;
  std::vector<StagedRecord*> byNumber;  // null: not in the booking
  std::map<long, StagedRecord*> beyond;

  // The entry of rec in this booking, or null.
  StagedRecord* Find(long rec) const {
    if (rec >= 0 && rec < kMostIndexed) {
      return static_cast<size_t>(rec) < byNumber.size() ? byNumber[static_cast<size_t>(rec)]
                                                        : nullptr;
    }
    const auto it = beyond.find(rec);
    return it != beyond.end() ? it->second : nullptr;
  }
  // Puts staged, the entry taken last, into the booking as the entry of
  // rec (which has none). On bad_alloc the entry is given back and the
  // booking is as it was.
  void Add(long rec, StagedRecord* staged) {
    try {
      if (records.size() == records.capacity()) records.reserve(2 * records.size() + 1);
      if (rec >= 0 && rec < kMostIndexed) {
        const size_t at = static_cast<size_t>(rec);
        if (at >= byNumber.size()) {
          const size_t most = static_cast<size_t>(kMostIndexed);
          byNumber.resize(std::min(most, std::max(at + 1, 2 * byNumber.size())), nullptr);
        }
        byNumber[at] = staged;
      } else {
        beyond.emplace(rec, staged);
      }
    } catch (...) {
      ReturnEntry();
      throw;
    }
    records.push_back(Record{rec, staged});  // room was made above: no throw
  }
  // The records in record order, as a commit writes them.
  void SortRecords() {
    const auto byRec = [](const Record& a, const Record& b) { return a.rec < b.rec; };
    if (!std::is_sorted(records.begin(), records.end(), byRec)) {
      std::sort(records.begin(), records.end(), byRec);
    }
  }
  // An entry for a record about to be staged: a waiting one, or a new one
  // (which may throw bad_alloc, leaving everything as it was).
  StagedRecord* TakeEntry() {
    if (inUse == entries.size()) entries.push_back(std::make_unique<StagedRecord>());
    return entries[inUse++].get();
  }
  // Gives back the entry taken last, before it was put in the booking.
  void ReturnEntry() noexcept { --inUse; }
  // Empties the booking for the next one; its entries wait for it.
  void Recycle() noexcept {
    for (const Record& r : records) {
      if (r.rec >= 0 && r.rec < kMostIndexed) byNumber[static_cast<size_t>(r.rec)] = nullptr;
    }
    beyond.clear();
    records.clear();  // its capacity is kept for the next booking
    inUse = 0;
    if (entries.size() > kMostSpareRecords) {
      entries.erase(entries.begin() + static_cast<long>(kMostSpareRecords), entries.end());
    }
    lastRec = 0;
    last = nullptr;
    structural = false;
  }
};

// The bookings of this process: at most one at a time.
struct ActiveBooking;

}  // namespace qdb

struct Qdbase::Impl {
  // --- Bound by SetFiles ---------------------------------------------------
  bool bound = false;
  std::string path, base, fileName;
  std::vector<std::string> idxNames, idxExprs;
  int selected = 0;

  // --- Open state ----------------------------------------------------------
  qdb::DbfFile file;
  std::string openFile;
  std::string fileBase;  // the file's name within its directory
  bool readOnly = false;
  qdb::DbfLayout layout;
  long records = 0;
  std::vector<char> deleted;  // deleted[recno - 1]
  std::vector<qdb::RecordIndex> indexes;
  long cur = 0;  // 0: at the end / no current record
  bool eof = true;
  bool bof = true;
  long generation = 0;
  qdb::Journal* journal = nullptr;
  qdb::FileIdentity seen;             // the file as this object last saw it
  unsigned long long seenChanges = 0;  // the journal's change count then
  unsigned long ioErrors = 0;

  // The current record as last read (outside bookings).
  long imageRec = 0;
  std::string image;
  qdb::DecodedNumbers imageNumbers;

  // Set while the table takes part in a booking.
  qdb::TableBooking* booking = nullptr;
  // The last booking's, kept for the next.
  std::unique_ptr<qdb::TableBooking> idleBooking;

  // Field lookups by the caller's name text, remembered.
  struct FieldHit {
    const char* name = nullptr;
    char text[12] = {};
    int index = -1;
  };
  mutable FieldHit hits[8];
  mutable int nextHit = 0;

  bool IsOpen() const { return file.IsOpen(); }
  int FindField(const char* name) const;
  // The index of the field numbered field (1-based), -1 when there is none.
  int FieldIndex(int field) const {
    return IsOpen() && field >= 1 && static_cast<size_t>(field) <= layout.fields.size() ? field - 1
                                                                                          : -1;
  }
  const qdb::DbfField& Field(int fi) const { return layout.fields[static_cast<size_t>(fi)]; }

  // The current record's bytes, read from the file when needed; null (with
  // a trace) when there is no current record or the read failed.
  const char* Raw();
  // Reads record rec from the file into *out.
  bool ReadRecord(long rec, std::string* out);
  // The staged image of record rec (read first if needed). Every read of a
  // number in a booking asks for it, mostly for the record asked for last.
  qdb::StagedRecord* Stage(long rec) {
    if (booking->last != nullptr && booking->lastRec == rec) return booking->last;
    return StageAnother(rec);
  }
  // Stage for a record other than the one asked for last.
  qdb::StagedRecord* StageAnother(long rec);
  // The number in field fi of the current record, decoded once per read
  // of the record; null when the record cannot be read or the field holds
  // no number. It stays valid until the record or the table changes.
  const qdb::FieldNumber* Number(int fi);

  // Opens the bound file; on failure *why says why.
  bool OpenFile(std::string* why);
  void CloseFile();
  // Reads the header and every record's deletion flag and keys again.
  bool Load(std::string* why);
  // Brings the indexes up to date when the file changed under this object.
  // mustCheck: ask the file even inside a booking.
  bool Refresh();
  void RememberFile();

  // Writes outside a booking take the directory's lock for the write.
  bool LockForWrite();
  void UnlockForWrite();

  // Stores bytes (exactly the field's width) in field fi of the current
  // record. Unchanged bytes write nothing; with numeric, neither does an
  // unchanged value. written: the number the bytes were encoded from, when
  // there is one (spares reading the new text to compare values).
  int Store(int fi, const std::string& bytes, bool numeric = false,
            const double* written = nullptr);
  // Stores bytes at character pos of field fi, keeping the rest.
  int StoreAt(int fi, int pos, const std::string& bytes, bool numeric = false,
              const double* written = nullptr);

  void IoFailure(const char* what, long rec);
  // A request the memory could not serve (an exception inside an
  // operation): traced; since the table's copy in memory may be half
  // changed, it is read again from the file before its next use, and a
  // booking it takes part in cannot be committed. Answers value.
  template <typename T>
  T Failed(T value) noexcept {
    NoteFailure();
    return value;
  }
  void NoteFailure() noexcept;
  bool stale = false;  // read the file again before the next use

  // Navigation helpers.
  size_t Count() const { return static_cast<size_t>(records); }
  long At(size_t pos) const;
  size_t PosOf(long rec) const;
  bool Live(size_t pos) const { return !deleted[static_cast<size_t>(At(pos) - 1)]; }
  size_t Forward(size_t pos) const;
  bool Backward(size_t pos, size_t* out) const;
  void SetEnd() {
    cur = 0;
    eof = true;
  }
  void SetCurrent(long rec) {
    cur = rec;
    eof = false;
    bof = false;
  }
  bool Writable() const { return IsOpen() && !readOnly && cur >= 1 && cur <= records; }
};

namespace qdb {

// The directory's lock for one write outside a booking, released on every
// way out.
class WriteLock {
 public:
  explicit WriteLock(Qdbase::Impl& table) : table_(table), held_(table.LockForWrite()) {}
  ~WriteLock() {
    if (held_) table_.UnlockForWrite();
  }
  WriteLock(const WriteLock&) = delete;
  WriteLock& operator=(const WriteLock&) = delete;
  bool held() const { return held_; }

 private:
  Qdbase::Impl& table_;
  bool held_;
};

// The process-wide lock wait of bookings and writes, in milliseconds.
int LockWaitMs();

// Trace of the table class: "\nQdbase: <file>: <text>".
void TraceTable(const std::string& file, const std::string& text);

// A table closed while it takes part in a booking leaves it; its writes
// are dropped (traced).
void LeaveBooking(Qdbase::Impl* table) noexcept;

}  // namespace qdb

#endif
