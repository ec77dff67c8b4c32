// Qdbase: opening, reading and navigating a table, and its writes. The
// header and dialects are in dbf_header, numbers in field_codec, indexes in
// record_index, packing and creating in table_pack, bookings in booking and
// the journal with the lock in journal.
#include "host/qdbase.h"

#include <errno.h>
#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "field_codec.h"
#include "host/qdsp32.h"
#include "qdbase_impl.h"

using qdb::DbfField;
using qdb::FieldNumber;

namespace {

std::atomic<int> g_flushMode{1};
std::atomic<int> g_readOnly{0};
std::atomic<int> g_lockWaitMs{5000};

constexpr int kMaxIndexes = 8;
// Records read at a time when a table is loaded.
constexpr long kLoadChunkBytes = 64 * 1024;

bool FileExists(const std::string& name) {
  struct stat st;
  return lstat(name.c_str(), &st) == 0;
}

std::string Join(const std::string& path, const std::string& name) {
  if (path.empty()) return name;
  if (path.back() == '/') return path + name;
  return path + "/" + name;
}

std::string Upper(std::string s) {
  for (char& c : s) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  return s;
}

// The file the table lives in: base.dbf, else BASE.DBF when only that
// exists.
std::string Resolve(const std::string& path, const std::string& base) {
  std::string lower = Join(path, base + ".dbf");
  if (FileExists(lower)) return lower;
  std::string upper = Join(path, Upper(base) + ".DBF");
  if (FileExists(upper)) return upper;
  return lower;
}

// The directory of a file, as one name for every way of writing it: the
// tables of one directory share one journal and one lock in a process.
std::string DirectoryOf(const std::string& file) {
  const size_t slash = file.rfind('/');
  std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
  char resolved[PATH_MAX];
  if (realpath(dir.c_str(), resolved) != nullptr) dir = resolved;
  return dir;
}

std::string NameOf(const std::string& file) {
  const size_t slash = file.rfind('/');
  return slash == std::string::npos ? file : file.substr(slash + 1);
}

bool IsBlank(char c) { return c == ' ' || c == '\0'; }

// The text a field holds, as ReadString gives it: stored bytes for texts,
// dates, logicals and numbers written as text; the number's text for binary
// numbers (written into number, which must hold 32 bytes); nothing for a
// NULL field. False for memo, general, picture, datetime and null-flags
// fields.
bool FieldText(const qdb::DbfLayout& layout, const DbfField& f, const char* raw,
               const char** text, size_t* length, char* number) {
  *text = raw + f.offset;
  *length = 0;
  if (qdb::IsNull(layout, f, raw)) return true;
  switch (f.type) {
    case 'C': case 'D': case 'L': case 'N': case 'F':
      *length = static_cast<size_t>(f.width);
      return true;
    case 'I': case 'B': case 'Y': {
      FieldNumber value;
      if (!qdb::DecodeNumber(layout, f, raw, &value)) return false;
      const int n = value.integral && value.wholeExact
                        ? snprintf(number, 32, "%lld", value.whole)
                        : snprintf(number, 32, "%.15g", value.value);
      *text = number;
      *length = n > 0 ? static_cast<size_t>(n) : 0;
      return true;
    }
    default:
      return false;
  }
}

}  // namespace

namespace qdb {

int LockWaitMs() { return g_lockWaitMs.load(); }

void TraceTable(const std::string& file, const std::string& text) {
  TarvoTrace("\nQdbase: %s: %s", file.c_str(), text.c_str());
}

}  // namespace qdb

// --- Impl: fields and records ----------------------------------------------

int Qdbase::Impl::FindField(const char* name) const {
  if (!IsOpen() || name == nullptr) return -1;
  // The caller's names are mostly the same texts at the same addresses: the
  // address finds the hit, the text proves it.
  for (const FieldHit& hit : hits) {
    if (hit.name == name && strncmp(hit.text, name, sizeof hit.text) == 0) return hit.index;
  }
  const size_t len = strnlen(name, sizeof hits[0].text);
  const bool cacheable = len < sizeof hits[0].text;
  int found = -1;
  // Names equal ignoring case have first bytes equal once bit 0x20 is
  // cleared; most fields are passed over on that byte alone.
  const unsigned char first = static_cast<unsigned char>(name[0]) & 0xDF;
  for (size_t i = 0; i < layout.fields.size(); ++i) {
    const std::string& candidate = layout.fields[i].name;
    if ((static_cast<unsigned char>(candidate[0]) & 0xDF) != first) continue;
    if (strcasecmp(candidate.c_str(), name) == 0) {
      found = static_cast<int>(i);
      break;
    }
  }
  if (cacheable) {
    FieldHit& hit = hits[nextHit];
    nextHit = (nextHit + 1) % static_cast<int>(sizeof hits / sizeof hits[0]);
    hit.name = name;
    memcpy(hit.text, name, len + 1);
    hit.index = found;
  }
  return found;
}

void Qdbase::Impl::NoteFailure() noexcept {
  TarvoTrace("\nQdbase: %s: out of memory", openFile.c_str());
  ++ioErrors;
  if (booking != nullptr) {
    booking->structural = true;  // read again when abandoned
  } else {
    stale = true;
  }
}

void Qdbase::Impl::IoFailure(const char* what, long rec) {
  ++ioErrors;
  qdb::TraceTable(openFile, std::string("cannot ") + what + " record " + std::to_string(rec) +
                                " (" + file.Error() + ")");
}

bool Qdbase::Impl::ReadRecord(long rec, std::string* out) {
  out->resize(static_cast<size_t>(layout.recordLength));
  if (file.ReadAt(&(*out)[0], out->size(), qdb::RecordOffset(layout, rec))) return true;
  IoFailure("read", rec);
  return false;
}

qdb::StagedRecord* Qdbase::Impl::StageAnother(long rec) {
  qdb::StagedRecord* staged = booking->Find(rec);
  if (staged == nullptr) {
    // An entry of an earlier booking when there is one, its buffers
    // reused. Nothing enters the booking before its record is read whole,
    // so a failed read (or an allocation that fails) leaves no entry behind.
    staged = booking->TakeEntry();
    if (!ReadRecord(rec, &staged->image)) {
      booking->ReturnEntry();
      return nullptr;
    }
    staged->before.clear();
    staged->low = layout.recordLength;
    staged->high = 0;
    staged->appended = false;
    staged->numbers.Forget();
    booking->Add(rec, staged);
  }
  booking->lastRec = rec;
  booking->last = staged;
  return staged;
}

const char* Qdbase::Impl::Raw() {
  if (!IsOpen() || cur < 1 || cur > records) return nullptr;
  if (booking != nullptr) {
    qdb::StagedRecord* staged = Stage(cur);
    return staged != nullptr ? staged->image.data() : nullptr;
  }
  if (imageRec == cur) return image.data();
  imageNumbers.Forget();
  if (!ReadRecord(cur, &image)) {
    imageRec = 0;
    return nullptr;
  }
  imageRec = cur;
  return image.data();
}

const FieldNumber* Qdbase::Impl::Number(int fi) {
  const char* raw = nullptr;
  qdb::DecodedNumbers* numbers = nullptr;
  if (booking != nullptr) {
    qdb::StagedRecord* staged = Stage(cur);
    if (staged == nullptr) return nullptr;
    raw = staged->image.data();
    numbers = &staged->numbers;
  } else {
    raw = Raw();
    if (raw == nullptr) return nullptr;
    numbers = &imageNumbers;
  }
  const size_t i = static_cast<size_t>(fi);
  if (numbers->fields.size() != layout.fields.size()) {
    numbers->fields.assign(layout.fields.size(), qdb::DecodedNumbers::Entry());
  }
  FieldNumber* kept = &numbers->fields[i].value;
  if (!numbers->Known(i)) {
    // Decoded straight into its entry, which counts as known only once
    // the decode succeeds.
    if (!qdb::DecodeNumber(layout, Field(fi), raw, kept)) return nullptr;
    numbers->Keep(i);
  }
  return kept;
}

// --- Impl: opening and reading again --------------------------------------

bool Qdbase::Impl::Load(std::string* why) {
  qdb::FileIdentity id;
  if (!file.Identity(&id)) {
    *why = file.Error();
    return false;
  }
  qdb::DbfLayout fresh;
  if (!qdb::ReadLayout(file, id.size, &fresh, why)) return false;
  const long inFile = qdb::RecordsInFile(fresh, id.size);
  const long count = std::min(fresh.headerRecords, inFile);
  if (fresh.headerRecords != inFile) {
    qdb::TraceTable(openFile, "the header counts " + std::to_string(fresh.headerRecords) +
                                  " records, the file holds " + std::to_string(inFile) +
                                  ": the first " + std::to_string(count) + " are read");
  }

  std::vector<qdb::RecordIndex> fresher(idxExprs.size());
  for (size_t i = 0; i < idxExprs.size(); ++i) {
    qdb::RecordIndex& ix = fresher[i];
    ix.name = idxNames[i];
    ix.expr = idxExprs[i];
    std::string error;
    if (!ix.Compile(fresh, &error)) {
      *why = "index " + std::to_string(i + 1) + " (" + ix.name + ") key expression \"" +
             ix.expr + "\" cannot be evaluated: " + error;
      return false;
    }
    ix.Reset(count);
  }
  std::vector<char> gone(static_cast<size_t>(count), 0);
  const long perChunk = std::max<long>(1, kLoadChunkBytes / fresh.recordLength);
  std::string chunk;
  for (long first = 1; first <= count; first += perChunk) {
    const long n = std::min(perChunk, count - first + 1);
    chunk.resize(static_cast<size_t>(n) * static_cast<size_t>(fresh.recordLength));
    if (!file.ReadAt(&chunk[0], chunk.size(), qdb::RecordOffset(fresh, first))) {
      *why = "cannot read record " + std::to_string(first) + " (" + file.Error() + ")";
      ++ioErrors;
      return false;
    }
    for (long k = 0; k < n; ++k) {
      const char* raw = chunk.data() + static_cast<size_t>(k) * fresh.recordLength;
      gone[static_cast<size_t>(first + k - 1)] = raw[0] == '*';
      for (qdb::RecordIndex& ix : fresher) ix.SetKey(first + k, raw);
    }
  }
  for (qdb::RecordIndex& ix : fresher) ix.Sort();

  layout = std::move(fresh);
  stale = false;
  records = count;
  deleted = std::move(gone);
  indexes = std::move(fresher);
  for (FieldHit& hit : hits) hit = FieldHit();
  seen = id;
  imageRec = 0;
  ++generation;
  if (cur > records) SetEnd();
  return true;
}

bool Qdbase::Impl::OpenFile(std::string* why) {
  fileName = Resolve(path, base);
  struct stat st;
  if (stat(fileName.c_str(), &st) != 0) {
    *why = std::string("file missing (") + strerror(errno) + ")";
    return false;
  }
  if (!S_ISREG(st.st_mode)) {
    *why = "not a regular file";
    return false;
  }
  readOnly = g_readOnly.load() != 0 || access(fileName.c_str(), W_OK) != 0 ||
             (st.st_mode & 0222) == 0;
  if (!file.Open(fileName, readOnly)) {
    if (readOnly || !file.Open(fileName, true)) {
      *why = file.Error();
      return false;
    }
    readOnly = true;
  }
  openFile = fileName;
  fileBase = NameOf(fileName);
  journal = qdb::Journal::Acquire(DirectoryOf(fileName));
  // A booking that a killed process or a power cut left unfinished is
  // completed before the table is read.
  std::string unfinished;
  if (!readOnly && !journal->CompleteUnfinished(&unfinished)) {
    qdb::TraceTable(fileName, unfinished);
  }
  seenChanges = journal->ChangeCount();
  if (!Load(why)) {
    CloseFile();
    return false;
  }
  return true;
}

void Qdbase::Impl::CloseFile() {
  if (booking != nullptr) qdb::LeaveBooking(this);
  idleBooking.reset();
  file.Close();
  qdb::Journal::Release(journal);
  journal = nullptr;
  layout = qdb::DbfLayout();
  indexes.clear();
  deleted.clear();
  records = 0;
  cur = 0;
  eof = true;
  bof = true;
  readOnly = false;
  imageRec = 0;
  openFile.clear();
  fileBase.clear();
  for (FieldHit& hit : hits) hit = FieldHit();
}

bool Qdbase::Impl::Refresh() {
  if (!IsOpen() || booking != nullptr) return true;
  qdb::FileIdentity now;
  if (!qdb::IdentityOfPath(openFile, &now)) return true;  // gone: keep what is open
  const unsigned long long changes = journal->ChangeCount();
  if (now == seen && changes == seenChanges && !stale) return true;
  // Replaced (packed by another process): read the new file.
  if (!now.SameFile(seen) && !file.Reopen(readOnly)) {
    qdb::TraceTable(openFile, "cannot open it again (" + file.Error() + ")");
    return false;
  }
  std::string why;
  if (!Load(&why)) {
    qdb::TraceTable(openFile, "cannot read it again: " + why);
    return false;
  }
  seenChanges = changes;
  return true;
}

void Qdbase::Impl::RememberFile() {
  file.Identity(&seen);
  seenChanges = journal->ChangeCount();
}

bool Qdbase::Impl::LockForWrite() {
  std::string why;
  if (!journal->Lock(qdb::LockWaitMs(), &why)) {
    qdb::TraceTable(openFile, "write refused: " + why);
    return false;
  }
  if (!Refresh()) {
    journal->Unlock();
    return false;
  }
  return true;
}

void Qdbase::Impl::UnlockForWrite() {
  RememberFile();
  journal->Unlock();
}

// --- Impl: writing ----------------------------------------------------------

namespace {

void Widen(qdb::StagedRecord* staged, int low, int high) {
  staged->low = std::min(staged->low, low);
  staged->high = std::max(staged->high, high);
}

// Whether storing bytes at `at` in record would leave field f as it is: the
// same bytes, or for a number the same value (a number another tool wrote
// in another layout, say left-aligned, is left alone when it is equal).
// written: the number the bytes were made from, when known.
bool Unchanged(const qdb::DbfLayout& layout, const DbfField& f, const std::string& record, int at,
               const std::string& bytes, const FieldNumber* before, const double* written) {
  if (qdb::IsNull(layout, f, record.data())) return false;
  if (memcmp(record.data() + at, bytes.data(), bytes.size()) == 0) return true;
  if (before == nullptr || at != f.offset || static_cast<int>(bytes.size()) != f.width) {
    return false;
  }
  // Far from the old value: another value, without reading the new text.
  if (written != nullptr && qdb::CertainlyAnotherValue(f, *before, *written)) return false;
  // The new bytes read as the field on their own (a number is its field).
  DbfField alone = f;
  alone.offset = 0;
  alone.nullBit = -1;
  FieldNumber after;
  return qdb::DecodeNumber(layout, alone, bytes.data(), &after) && !before->blank &&
         before->value == after.value && before->integral == after.integral;
}

// Clears field f's null bit in record; answers the byte it changed, or -1.
int ClearNull(const qdb::DbfLayout& layout, const DbfField& f, char* record) {
  if (!qdb::IsNull(layout, f, record)) return -1;
  const int at = layout.fields[static_cast<size_t>(layout.nullFlagsField)].offset + f.nullBit / 8;
  record[at] = static_cast<char>(record[at] & ~(1 << (f.nullBit % 8)));
  return at;
}

}  // namespace

int Qdbase::Impl::Store(int fi, const std::string& bytes, bool numeric, const double* written) {
  if (static_cast<int>(bytes.size()) != Field(fi).width) return 0;
  return StoreAt(fi, 0, bytes, numeric, written);
}

int Qdbase::Impl::StoreAt(int fi, int pos, const std::string& bytes, bool numeric,
                          const double* written) {
  if (!Writable() || pos < 0 || pos + static_cast<int>(bytes.size()) > Field(fi).width) return 0;

  if (booking != nullptr) {
    const DbfField& f = Field(fi);
    const int at = f.offset + pos;
    const int end = at + static_cast<int>(bytes.size());
    qdb::StagedRecord* staged = Stage(cur);
    if (staged == nullptr) return 0;
    std::string& rec = staged->image;
    const FieldNumber* before = numeric ? Number(fi) : nullptr;
    if (Unchanged(layout, f, rec, at, bytes, before, written)) return 1;
    if (!staged->appended && staged->low >= staged->high) staged->before = rec;
    staged->numbers.Forget(fi);
    if (layout.nullFlagsField >= 0) staged->numbers.Forget(layout.nullFlagsField);
    // Within the field, so within the record: its bytes are overwritten.
    memcpy(&rec[static_cast<size_t>(at)], bytes.data(), bytes.size());
    Widen(staged, at, end);
    const int nullByte = ClearNull(layout, f, &rec[0]);
    if (nullByte >= 0) Widen(staged, nullByte, nullByte + 1);
    bool rekeyed = false;
    for (qdb::RecordIndex& ix : indexes) {
      if (ix.reads[static_cast<size_t>(fi)]) {
        ix.Rekey(cur, rec.data());
        rekeyed = true;
      }
    }
    if (rekeyed) booking->structural = true;
    return 1;
  }

  // The bytes were made for the field as it is now.
  const qdb::DbfField made = Field(fi);
  qdb::WriteLock lock(*this);
  if (!lock.held()) return 0;
  // The table may have been read again under the lock, with another layout
  // written by another tool: the bytes go only into the same field, of the
  // same type and size (elsewhere they would land on other fields' bytes).
  if (fi >= static_cast<int>(layout.fields.size()) || Field(fi).name != made.name ||
      Field(fi).type != made.type || Field(fi).width != made.width ||
      Field(fi).decimals != made.decimals) {
    qdb::TraceTable(openFile, "write refused: field " + made.name +
                                  " is not what it was when the write was made");
    return 0;
  }
  const DbfField& f = Field(fi);
  const int at = f.offset + pos;
  int result = 0;
  std::string rec;
  if (Writable() && ReadRecord(cur, &rec)) {
    FieldNumber before;
    const bool known = numeric && qdb::DecodeNumber(layout, f, rec.data(), &before);
    if (Unchanged(layout, f, rec, at, bytes, known ? &before : nullptr, written)) {
      result = 1;
    } else {
      rec.replace(static_cast<size_t>(at), bytes.size(), bytes);
      const int nullByte = ClearNull(layout, f, &rec[0]);
      const long long base = qdb::RecordOffset(layout, cur);
      bool ok = file.WriteAt(bytes.data(), bytes.size(), base + at);
      if (ok && nullByte >= 0) ok = file.WriteAt(rec.data() + nullByte, 1, base + nullByte);
      if (!ok) {
        IoFailure("write", cur);
        imageRec = 0;
      } else {
        image = rec;
        imageRec = cur;
        imageNumbers.Forget();
        bool rekeyed = false;
        for (qdb::RecordIndex& ix : indexes) {
          if (ix.reads[static_cast<size_t>(fi)]) {
            ix.Rekey(cur, rec.data());
            rekeyed = true;
          }
        }
        if (rekeyed) journal->CountChange();
        result = 1;
      }
    }
  }
  return result;
}

// --- Impl: navigation --------------------------------------------------------

long Qdbase::Impl::At(size_t pos) const {
  if (selected == 0) return static_cast<long>(pos) + 1;
  return indexes[static_cast<size_t>(selected - 1)].order[pos];
}

size_t Qdbase::Impl::PosOf(long rec) const {
  if (selected == 0) return static_cast<size_t>(rec - 1);
  return indexes[static_cast<size_t>(selected - 1)].PosOf(rec);
}

size_t Qdbase::Impl::Forward(size_t pos) const {
  while (pos < Count() && !Live(pos)) ++pos;
  return pos;
}

bool Qdbase::Impl::Backward(size_t pos, size_t* out) const {
  for (size_t p = pos + 1; p-- > 0;) {
    if (p < Count() && Live(p)) {
      *out = p;
      return true;
    }
  }
  return false;
}

// --- Qdbase ---------------------------------------------------------------

Qdbase::Qdbase() : impl_(new Impl) {}

Qdbase::~Qdbase() {
  if (impl_ != nullptr && impl_->IsOpen()) Close();
  delete impl_;
}

int Qdbase::SetFiles(const char* path, const char* base, int nIdx, const char** names,
                     const char** keys) try {
  if (path == nullptr || base == nullptr || *base == '\0') return 0;
  if (impl_->IsOpen()) return 0;
  if (nIdx < 0 || nIdx > kMaxIndexes) return 0;
  if (nIdx > 0 && (names == nullptr || keys == nullptr)) return 0;
  for (int i = 0; i < nIdx; ++i) {
    if (names[i] == nullptr || keys[i] == nullptr) return 0;
  }
  impl_->path = path;
  impl_->base = base;
  impl_->fileName = Resolve(impl_->path, impl_->base);
  impl_->idxNames.clear();
  impl_->idxExprs.clear();
  for (int i = 0; i < nIdx; ++i) {
    impl_->idxNames.push_back(names[i]);
    impl_->idxExprs.push_back(keys[i]);
  }
  impl_->selected = nIdx > 0 ? 1 : 0;
  impl_->bound = true;
  return 1;
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::Open() try {
  Impl& m = *impl_;
  if (m.IsOpen()) return 1;
  if (!m.bound) {
    TarvoTrace("\nQdbase: Open without SetFiles");
    return 0;
  }
  std::string why;
  if (!m.OpenFile(&why)) {
    TarvoTrace("\nQdbase: cannot open %s: %s", m.fileName.c_str(), why.c_str());
    return 0;
  }
  Top();
  return 1;
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::Close() {
  if (!impl_->IsOpen()) return 0;
  impl_->CloseFile();
  return 1;
}

int Qdbase::IsOpen() const { return impl_->IsOpen() ? 1 : 0; }

int Qdbase::SelectIdx(int idx) {
  if (idx < 0 || idx > static_cast<int>(impl_->idxExprs.size())) return 0;
  impl_->selected = idx;
  return 1;
}

int Qdbase::CurrentIdx() const { return impl_->selected; }

int Qdbase::Top() try {
  Impl& m = *impl_;
  if (!m.IsOpen()) return 0;
  m.Refresh();
  size_t p = m.Forward(0);
  if (p >= m.Count()) {
    m.SetEnd();
    m.bof = true;
    return 0;
  }
  m.SetCurrent(m.At(p));
  return 1;
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::Bottom() try {
  Impl& m = *impl_;
  if (!m.IsOpen()) return 0;
  m.Refresh();
  size_t p = 0;
  if (m.Count() == 0 || !m.Backward(m.Count() - 1, &p)) {
    m.SetEnd();
    m.bof = true;
    return 0;
  }
  m.SetCurrent(m.At(p));
  return 1;
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::Next() {
  Impl& m = *impl_;
  if (!m.IsOpen() || m.cur == 0) return 0;
  size_t p = m.Forward(m.PosOf(m.cur) + 1);
  m.bof = false;
  if (p >= m.Count()) {
    m.SetEnd();
    return 0;
  }
  m.SetCurrent(m.At(p));
  return 1;
}

int Qdbase::Prev() {
  Impl& m = *impl_;
  if (!m.IsOpen()) return 0;
  if (m.cur == 0) return Bottom();
  size_t pos = m.PosOf(m.cur);
  size_t p = 0;
  if (pos > 0 && m.Backward(pos - 1, &p)) {
    m.SetCurrent(m.At(p));
    return 1;
  }
  size_t first = m.Forward(0);
  if (first < m.Count()) m.SetCurrent(m.At(first));
  m.bof = true;
  return 0;
}

int Qdbase::Eof() const { return impl_->eof ? 1 : 0; }

int Qdbase::Bof() const { return impl_->bof ? 1 : 0; }

int Qdbase::Seek(double key) try {
  Impl& m = *impl_;
  if (!m.IsOpen() || m.selected == 0 || !isfinite(key)) return 0;
  m.Refresh();
  const qdb::RecordIndex& ix = m.indexes[static_cast<size_t>(m.selected - 1)];
  const size_t n = ix.order.size();
  if (!ix.key.IsText()) {
    const size_t p = m.Forward(ix.LowerBound(key));
    if (p >= n) {
      m.SetEnd();
      m.bof = false;
      return 0;
    }
    m.SetCurrent(ix.order[p]);
    return ix.KeyOf(ix.order[p]).number == key ? 1 : 0;
  }
  // A text key compared as a number: the first record (in key order) whose
  // key reads as the value, else the first that reads above it.
  size_t above = n;
  for (size_t p = 0; p < n; ++p) {
    if (!m.Live(p)) continue;
    const std::string& t = ix.KeyOf(ix.order[p]).text;
    const double v = qdb::DbaseVal(t.data(), t.size());
    if (v == key) {
      m.SetCurrent(ix.order[p]);
      return 1;
    }
    if (v > key && above == n) above = p;
  }
  if (above >= n) {
    m.SetEnd();
    m.bof = false;
    return 0;
  }
  m.SetCurrent(ix.order[above]);
  return 0;
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::Seek(const char* key) try {
  Impl& m = *impl_;
  if (!m.IsOpen() || m.selected == 0 || key == nullptr) return 0;
  const qdb::RecordIndex& ix = m.indexes[static_cast<size_t>(m.selected - 1)];
  if (!ix.key.IsText()) {
    FieldNumber number;
    const size_t len = strlen(key);
    if (!qdb::ParseNumberText(key, len, &number)) return 0;  // not a number: no move
    return Seek(number.value);
  }
  m.Refresh();
  const qdb::RecordIndex& fresh = m.indexes[static_cast<size_t>(m.selected - 1)];
  const std::string text(key);
  const size_t p = m.Forward(fresh.LowerBound(text));
  if (p >= fresh.order.size()) {
    m.SetEnd();
    m.bof = false;
    return 0;
  }
  m.SetCurrent(fresh.order[p]);
  return qdb::CompareTexts(fresh.KeyOf(fresh.order[p]).text, text) == 0 ? 1 : 0;
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::Go(long recno) try {
  Impl& m = *impl_;
  if (!m.IsOpen() || recno < 1) return 0;
  if (recno > m.records) m.Refresh();  // perhaps appended by another process
  if (recno > m.records) return 0;
  m.SetCurrent(recno);
  m.imageRec = 0;  // read again: a visit reads the record as it is now
  return 1;
} catch (...) {
  return impl_->Failed(0);
}

long Qdbase::RecNo() const { return impl_->IsOpen() ? impl_->cur : 0; }

long Qdbase::RecCount() const { return impl_->IsOpen() ? impl_->records : 0; }

int Qdbase::IsDeleted() const {
  const Impl& m = *impl_;
  if (!m.IsOpen() || m.cur < 1 || m.cur > m.records) return 0;
  return m.deleted[static_cast<size_t>(m.cur - 1)] ? 1 : 0;
}

int Qdbase::FieldNo(const char* field) const { return impl_->FindField(field) + 1; }

int Qdbase::FieldCount() const {
  return impl_->IsOpen() ? static_cast<int>(impl_->layout.fields.size()) : 0;
}

int Qdbase::FieldWidth(const char* field) const {
  const int fi = impl_->FindField(field);
  return fi < 0 ? 0 : impl_->Field(fi).width;
}

char Qdbase::FieldType(const char* field) const {
  const int fi = impl_->FindField(field);
  return fi < 0 ? '\0' : impl_->Field(fi).type;
}

long Qdbase::Generation() const { return impl_->generation; }

unsigned long Qdbase::FailedCalls() const { return impl_->ioErrors; }

// --- Reads --------------------------------------------------------------------

int Qdbase::ReadLong(const char* field, long* value) {
  return ReadFieldLong(impl_->FindField(field) + 1, value);
}

int Qdbase::ReadFieldLong(int field, long* value) try {
  if (value == nullptr) return 0;
  *value = 0;
  const int fi = impl_->FieldIndex(field);
  const FieldNumber* number = fi < 0 ? nullptr : impl_->Number(fi);
  if (number == nullptr) return 0;
  if (number->integral && number->wholeExact) {
    *value = static_cast<long>(number->whole);
    return 1;
  }
  if (number->integral) return 0;  // an integer beyond long
  const double d = trunc(number->value);
  if (d < -9223372036854775808.0 || d >= 9223372036854775808.0) return 0;
  *value = static_cast<long>(d);
  return 1;
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::ReadInt(const char* field, int* value) {
  if (value == nullptr) return 0;
  *value = 0;
  long v = 0;
  if (!ReadLong(field, &v) || v < INT_MIN || v > INT_MAX) return 0;
  *value = static_cast<int>(v);
  return 1;
}

int Qdbase::ReadDouble(const char* field, double* value) {
  return ReadFieldDouble(impl_->FindField(field) + 1, value);
}

int Qdbase::ReadFieldDouble(int field, double* value) try {
  if (value == nullptr) return 0;
  *value = 0.0;
  const int fi = impl_->FieldIndex(field);
  const FieldNumber* number = fi < 0 ? nullptr : impl_->Number(fi);
  if (number == nullptr) return 0;
  *value = number->value;
  return 1;
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::ReadLogical(const char* field, int* value) try {
  if (value == nullptr) return 0;
  *value = 0;
  const int fi = impl_->FindField(field);
  if (fi < 0 || impl_->Field(fi).type != 'L') return 0;
  const char* raw = impl_->Raw();
  if (raw == nullptr) return 0;
  *value = qdb::LogicalTrue(raw[impl_->Field(fi).offset]) ? 1 : 0;
  return 1;
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::ReadString(const char* field, char* buf, int size, int trimTrailing, int zeroFill) try {
  if (buf == nullptr || size < 1) return 0;
  buf[0] = '\0';
  const int fi = impl_->FindField(field);
  if (fi < 0) return 0;
  const char* raw = impl_->Raw();
  const char* text = nullptr;
  size_t length = 0;
  char number[32];
  if (raw == nullptr || !FieldText(impl_->layout, impl_->Field(fi), raw, &text, &length, number)) {
    return 0;
  }
  size_t n = std::min(length, static_cast<size_t>(size) - 1);
  if (trimTrailing) {
    while (n > 0 && IsBlank(text[n - 1])) --n;
  }
  memcpy(buf, text, n);
  buf[n] = '\0';
  if (zeroFill) memset(buf + n, 0, static_cast<size_t>(size) - n);
  return 1;
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::TextLength(const char* field) try {
  const int fi = impl_->FindField(field);
  if (fi < 0) return -1;
  const char* raw = impl_->Raw();
  const char* text = nullptr;
  size_t n = 0;
  char number[32];
  if (raw == nullptr || !FieldText(impl_->layout, impl_->Field(fi), raw, &text, &n, number)) {
    return -1;
  }
  while (n > 0 && IsBlank(text[n - 1])) --n;
  return static_cast<int>(n);
} catch (...) {
  return impl_->Failed(-1);
}

// --- Writes -------------------------------------------------------------------

int Qdbase::WriteLong(const char* field, long value) try {
  const int fi = impl_->FindField(field);
  std::string bytes;
  if (fi < 0 || !impl_->Writable() || !qdb::EncodeWhole(impl_->Field(fi), value, &bytes)) {
    return 0;
  }
  return impl_->Store(fi, bytes, true);
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::WriteInt(const char* field, int value) { return WriteLong(field, value); }

int Qdbase::WriteDouble(const char* field, double value) {
  return WriteFieldDouble(impl_->FindField(field) + 1, value);
}

int Qdbase::WriteFieldDouble(int field, double value) try {
  const int fi = impl_->FieldIndex(field);
  std::string bytes;
  if (fi < 0 || !impl_->Writable() || !qdb::EncodeNumber(impl_->Field(fi), value, &bytes)) {
    return 0;
  }
  return impl_->Store(fi, bytes, true, &value);
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::WriteLogical(const char* field, int value) try {
  const int fi = impl_->FindField(field);
  if (fi < 0 || !impl_->Writable() || impl_->Field(fi).type != 'L') return 0;
  return impl_->Store(fi, value ? "T" : "F");
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::WriteString(const char* field, const char* text) try {
  Impl& m = *impl_;
  const int fi = m.FindField(field);
  if (fi < 0 || text == nullptr || !m.Writable()) return 0;
  const DbfField& f = m.Field(fi);
  const size_t len = strlen(text);
  const bool blank = strspn(text, " \t") == len;
  std::string bytes;
  switch (f.type) {
    case 'C':
      if (len > static_cast<size_t>(f.width)) return 0;
      bytes.assign(text, len);
      bytes.resize(static_cast<size_t>(f.width), ' ');
      return m.Store(fi, bytes);
    case 'N': case 'F': case 'I': case 'B': case 'Y': {
      FieldNumber number;
      if (!qdb::ParseNumberText(text, len, &number)) return 0;
      if (blank && (f.type == 'N' || f.type == 'F')) {
        return m.Store(fi, std::string(static_cast<size_t>(f.width), ' '));
      }
      const bool encoded = number.integral && number.wholeExact
                               ? qdb::EncodeWhole(f, number.whole, &bytes)
                               : qdb::EncodeNumber(f, number.value, &bytes);
      return encoded ? m.Store(fi, bytes, true) : 0;
    }
    case 'L': {
      const size_t b = strspn(text, " ");
      if (b == len) return m.Store(fi, " ");
      if (len - b != 1 || strchr("TtFfYyNn?", text[b]) == nullptr) return 0;
      return m.Store(fi, std::string(1, text[b]));
    }
    case 'D':
      if (blank) return m.Store(fi, std::string(8, ' '));
      if (len != 8 || strspn(text, "0123456789") != 8) return 0;
      return m.Store(fi, text);
    default:
      return 0;
  }
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::WriteStringAt(const char* field, int pos, const char* text) try {
  Impl& m = *impl_;
  const int fi = m.FindField(field);
  if (fi < 0 || text == nullptr || !m.Writable() || m.Field(fi).type != 'C') return 0;
  return m.StoreAt(fi, pos, text);
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::Append() try {
  Impl& m = *impl_;
  if (!m.IsOpen() || m.readOnly || m.records >= 0x7FFFFFFE) return 0;
  const std::string blank = qdb::BlankRecord(m.layout);
  if (m.booking != nullptr) {
    const long rec = m.records + 1;
    qdb::StagedRecord* entry = m.booking->Find(rec);
    if (entry == nullptr) {
      entry = m.booking->TakeEntry();
      m.booking->Add(rec, entry);
    }
    qdb::StagedRecord& staged = *entry;
    staged.image = blank;
    staged.before.clear();
    staged.appended = true;
    staged.low = 0;
    staged.high = m.layout.recordLength;
    staged.numbers.Forget();
    m.booking->structural = true;
    ++m.records;
    m.deleted.push_back(0);
    for (qdb::RecordIndex& ix : m.indexes) ix.Add(rec, blank.data());
    m.SetCurrent(rec);
    return 1;
  }
  qdb::WriteLock lock(m);
  if (!lock.held()) return 0;
  const long rec = m.records + 1;
  const long long at = qdb::RecordOffset(m.layout, rec);
  qdb::FileIdentity before;
  bool ok = m.file.Identity(&before);
  // The byte the new record overwrites (the old end-of-file mark), to put
  // back if the append fails.
  char oldMark = 0;
  const bool hadMark = ok && before.size > at && m.file.ReadAt(&oldMark, 1, at);
  const std::string tail = blank + '\x1A';
  unsigned char head[7];
  qdb::TodayBytes(head);
  qdb::CountBytes(rec, head + 3);
  // The record first, then the count that makes it part of the table.
  ok = ok && m.file.WriteAt(tail.data(), tail.size(), at) && m.file.WriteAt(head, sizeof head, 1);
  if (!ok) {
    qdb::TraceTable(m.openFile, "cannot append a record (" + m.file.Error() + ")");
    ++m.ioErrors;
    if (before.size >= 0) m.file.Truncate(before.size);
    if (hadMark) m.file.WriteAt(&oldMark, 1, at);
    return 0;
  }
  m.records = rec;
  m.layout.headerRecords = rec;
  m.deleted.push_back(0);
  for (qdb::RecordIndex& ix : m.indexes) ix.Add(rec, blank.data());
  m.journal->CountChange();
  m.SetCurrent(rec);
  m.image = blank;
  m.imageRec = rec;
  m.imageNumbers.Forget();
  return 1;
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::Delete() try {
  Impl& m = *impl_;
  if (!m.Writable()) return 0;
  if (m.booking != nullptr) {
    qdb::StagedRecord* staged = m.Stage(m.cur);
    if (staged == nullptr) return 0;
    if (!staged->appended && staged->low >= staged->high) staged->before = staged->image;
    staged->image[0] = '*';
    Widen(staged, 0, 1);
    m.deleted[static_cast<size_t>(m.cur - 1)] = 1;
    m.booking->structural = true;
    return 1;
  }
  qdb::WriteLock lock(m);
  if (!lock.held()) return 0;
  int result = 0;
  if (m.Writable()) {
    if (m.file.WriteAt("*", 1, qdb::RecordOffset(m.layout, m.cur))) {
      m.deleted[static_cast<size_t>(m.cur - 1)] = 1;
      m.journal->CountChange();
      result = 1;
    } else {
      m.IoFailure("write", m.cur);
    }
    m.imageRec = 0;
  }
  return result;
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::RebuildIndex() try {
  Impl& m = *impl_;
  if (!m.IsOpen()) return 0;
  if (m.booking != nullptr) return 1;  // the booking's copy is the table's
  std::string why;
  if (!m.Load(&why)) {
    TarvoTrace("\nQdbase: cannot rebuild the indexes of %s: %s", m.openFile.c_str(), why.c_str());
    return 0;
  }
  m.seenChanges = m.journal->ChangeCount();
  return 1;
} catch (...) {
  return impl_->Failed(0);
}

int Qdbase::Flush() { return impl_->IsOpen() ? 1 : 0; }

int Qdbase::FlushGet() { return g_flushMode.load(); }

void Qdbase::FlushSet(int mode) { g_flushMode.store(mode != 0 ? 1 : 0); }

void Qdbase::SetReadOnly(int on) { g_readOnly.store(on != 0 ? 1 : 0); }

int Qdbase::ReadOnly() { return g_readOnly.load(); }

void Qdbase::SetLockWait(int ms) { g_lockWaitMs.store(ms < 0 ? 0 : ms); }

int Qdbase::LockWait() { return g_lockWaitMs.load(); }

const char* Qdbase::FileName() const { return impl_->fileName.c_str(); }
