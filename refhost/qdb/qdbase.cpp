// Qdbase on dBase III files: file I/O through shapelib's DBF layer; header
// checks, indexes, key expressions, navigation, packing and flush control
// are ours.
#include "host/qdbase.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <vector>

#include <shapefil.h>

#include "host/qdsp32.h"
#include "key_expression.h"

namespace {

std::atomic<int> g_flushMode{1};
std::atomic<int> g_readOnly{0};

constexpr int kMaxIndexes = 8;

struct FieldDef {
  std::string name;
  char type;     // upper-case dBase type letter
  int width;
  int decimals;
  int offset;    // in the raw record; the deletion flag is byte 0
};

struct Index {
  std::string name;
  std::string expr;
  qdb::KeyExpression key;
  std::vector<qdb::KeyValue> keys;  // keys[recno - 1]
  std::vector<long> order;          // record numbers in key order
  // reads[fi]: whether the key expression may read field fi. A field whose
  // name does not occur in the expression's text cannot change the key, so
  // writing it leaves the index alone.
  std::vector<char> reads;
};

// What CheckHeader found in a file's header.
struct HeaderInfo {
  long records = 0;
  int headerLength = 0;
  int recordLength = 0;
  std::vector<FieldDef> fields;
};

void ShapelibError(const char* message) {
  TarvoTrace("\nQdbase: shapelib: %s", message != nullptr ? message : "");
}

SAHooks Hooks() {
  SAHooks hooks;
  SASetupDefaultHooks(&hooks);
  hooks.Error = ShapelibError;
  return hooks;
}

void StampToday(DBFHandle h) {
  time_t now = time(nullptr);
  struct tm tmv;
  if (localtime_r(&now, &tmv) != nullptr) {
    DBFSetLastModifiedDate(h, tmv.tm_year, tmv.tm_mon + 1, tmv.tm_mday);
  }
}

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

std::string LowerName(const std::string& path, const std::string& base) {
  return Join(path, base + ".dbf");
}

std::string UpperName(const std::string& path, const std::string& base) {
  return Join(path, Upper(base) + ".DBF");
}

// The file the table lives in: base.dbf, else BASE.DBF when only that
// exists.
std::string Resolve(const std::string& path, const std::string& base) {
  std::string lower = LowerName(path, base);
  if (FileExists(lower)) return lower;
  std::string upper = UpperName(path, base);
  if (FileExists(upper)) return upper;
  return lower;
}

unsigned ReadU16(const unsigned char* p) { return p[0] | (p[1] << 8); }
unsigned long ReadU32(const unsigned char* p) {
  return static_cast<unsigned long>(p[0]) | (static_cast<unsigned long>(p[1]) << 8) |
         (static_cast<unsigned long>(p[2]) << 16) | (static_cast<unsigned long>(p[3]) << 24);
}

// Checks a file's header on its own, before shapelib sees it (shapelib
// trusts the header). Refuses empty and truncated files and every header
// that does not describe a dBase III table consistently.
bool CheckHeader(const std::string& file, long long size, HeaderInfo* info, std::string* why) {
  if (size == 0) {
    *why = "the file is empty";
    return false;
  }
  if (size < 32) {
    *why = "truncated: " + std::to_string(size) + " bytes, shorter than a dBase header";
    return false;
  }
  FILE* f = fopen(file.c_str(), "rb");
  if (f == nullptr) {
    *why = std::string("cannot be read: ") + strerror(errno);
    return false;
  }
  unsigned char head[32];
  bool ok = fread(head, 1, sizeof head, f) == sizeof head;
  if (!ok) {
    fclose(f);
    *why = "cannot read the header";
    return false;
  }
  if ((head[0] & 0x07) != 0x03) {
    fclose(f);
    char buf[96];
    snprintf(buf, sizeof buf, "corrupt header: version byte 0x%02X is not dBase III", head[0]);
    *why = buf;
    return false;
  }
  unsigned long records = ReadU32(head + 4);
  int headerLength = static_cast<int>(ReadU16(head + 8));
  int recordLength = static_cast<int>(ReadU16(head + 10));
  if (headerLength < 32 + 32 + 1) {
    fclose(f);
    *why = "corrupt header: header length " + std::to_string(headerLength) +
           " leaves no room for a field";
    return false;
  }
  if (headerLength > size) {
    fclose(f);
    *why = "truncated: header length " + std::to_string(headerLength) + " but the file has " +
           std::to_string(size) + " bytes";
    return false;
  }
  if (recordLength < 2) {
    fclose(f);
    *why = "corrupt header: record length " + std::to_string(recordLength);
    return false;
  }
  std::vector<unsigned char> desc(static_cast<size_t>(headerLength) - 32);
  ok = fread(desc.data(), 1, desc.size(), f) == desc.size();
  fclose(f);
  if (!ok) {
    *why = "cannot read the field descriptors";
    return false;
  }
  std::vector<FieldDef> fields;
  size_t at = 0;
  bool terminated = false;
  int sum = 1;
  while (at < desc.size()) {
    if (desc[at] == 0x0D) {
      terminated = true;
      break;
    }
    if (at + 32 > desc.size()) break;
    const unsigned char* d = desc.data() + at;
    int n = static_cast<int>(fields.size()) + 1;
    FieldDef fd;
    size_t len = 0;
    while (len < 11 && d[len] != 0) ++len;
    if (len == 0 || len > 10) {
      *why = "corrupt header: field descriptor " + std::to_string(n) + " has no valid name";
      return false;
    }
    for (size_t i = 0; i < len; ++i) {
      if (d[i] <= ' ' || d[i] >= 0x7F) {
        *why = "corrupt header: field descriptor " + std::to_string(n) + " has no valid name";
        return false;
      }
    }
    fd.name.assign(reinterpret_cast<const char*>(d), len);
    fd.type = static_cast<char>(toupper(d[11]));
    if (strchr("CNFLDM", fd.type) == nullptr || fd.type == '\0') {
      *why = "corrupt header: field " + fd.name + " has unknown type 0x" +
             std::to_string(static_cast<int>(d[11]));
      return false;
    }
    fd.width = d[16];
    fd.decimals = (fd.type == 'N' || fd.type == 'F') ? d[17] : 0;
    if (fd.width < 1) {
      *why = "corrupt header: field " + fd.name + " has width 0";
      return false;
    }
    if (fd.decimals >= fd.width && fd.decimals > 0) {
      *why = "corrupt header: field " + fd.name + " has " + std::to_string(fd.decimals) +
             " decimals in width " + std::to_string(fd.width);
      return false;
    }
    fd.offset = sum;
    sum += fd.width;
    fields.push_back(fd);
    at += 32;
  }
  if (!terminated) {
    *why = "corrupt header: the field descriptors have no terminator";
    return false;
  }
  if (fields.empty()) {
    *why = "corrupt header: no fields";
    return false;
  }
  // shapelib counts (header length - 32) / 32 descriptors: a header with
  // more room than that is not one it reads correctly.
  if (static_cast<size_t>(headerLength - 32) / 32 != fields.size()) {
    *why = "corrupt header: header length " + std::to_string(headerLength) + " does not match " +
           std::to_string(fields.size()) + " fields";
    return false;
  }
  if (sum != recordLength) {
    *why = "corrupt header: record length " + std::to_string(recordLength) +
           " but the fields add up to " + std::to_string(sum);
    return false;
  }
  long long need = static_cast<long long>(headerLength) +
                   static_cast<long long>(records) * recordLength;
  if (records > 0x7FFFFFFFUL || need > size) {
    *why = "truncated: the header claims " + std::to_string(records) + " records of " +
           std::to_string(recordLength) + " bytes (" + std::to_string(need) +
           " bytes), the file has " + std::to_string(size);
    return false;
  }
  info->records = static_cast<long>(records);
  info->headerLength = headerLength;
  info->recordLength = recordLength;
  info->fields = std::move(fields);
  return true;
}

bool IsBlank(char c) { return c == ' ' || c == '\0'; }

// A number as dBase stores it: blanks around it allowed, optional sign,
// digits with an optional decimal point. An all-blank text reads 0.
// *integral tells whether the text had no decimal point.
bool ParseNumber(const char* s, size_t len, std::string* text, bool* integral) {
  size_t b = 0, e = len;
  while (b < e && (IsBlank(s[b]) || s[b] == '\t')) ++b;
  while (e > b && (IsBlank(s[e - 1]) || s[e - 1] == '\t')) --e;
  *integral = true;
  if (b == e) {
    *text = "0";
    return true;
  }
  size_t i = b;
  if (s[i] == '+' || s[i] == '-') ++i;
  bool digits = false;
  while (i < e && isdigit(static_cast<unsigned char>(s[i]))) {
    ++i;
    digits = true;
  }
  if (i < e && s[i] == '.') {
    *integral = false;
    ++i;
    while (i < e && isdigit(static_cast<unsigned char>(s[i]))) {
      ++i;
      digits = true;
    }
  }
  if (!digits || i != e) return false;
  text->assign(s + b, e - b);
  return true;
}

bool ParseDouble(const char* s, size_t len, double* value) {
  std::string text;
  bool integral;
  if (!ParseNumber(s, len, &text, &integral)) return false;
  double v = strtod(text.c_str(), nullptr);
  if (!isfinite(v)) return false;
  *value = v == 0.0 ? 0.0 : v;
  return true;
}

// A number rounded half away from zero to the given decimals, in plain
// notation; "" when it is not finite.
std::string FormatFixed(double v, int decimals) {
  if (!isfinite(v)) return std::string();
  double p = pow(10.0, decimals);
  if (fabs(v * p) < 4503599627370496.0) v = round(v * p) / p;
  if (v == 0.0) v = 0.0;  // no negative zero
  char buf[400];
  int len = snprintf(buf, sizeof buf, "%.*f", decimals, v);
  if (len < 0 || len >= static_cast<int>(sizeof buf)) return std::string();
  std::string s(buf, static_cast<size_t>(len));
  // "-0.000" after rounding: drop the sign.
  if (s[0] == '-' && s.find_first_not_of("-0.") == std::string::npos) s.erase(0, 1);
  return s;
}

// The shortest plain text that reads back as v (at most 15 decimals).
std::string FormatShortest(double v) {
  if (!isfinite(v)) return std::string();
  for (int d = 0; d <= 15; ++d) {
    std::string s = FormatFixed(v, d);
    if (s.empty()) return s;
    if (strtod(s.c_str(), nullptr) == v) return s;
  }
  return FormatFixed(v, 15);
}

std::string RightAlign(const std::string& s, int width) {
  if (static_cast<int>(s.size()) >= width) return s;
  return std::string(static_cast<size_t>(width) - s.size(), ' ') + s;
}

}  // namespace

struct Qdbase::Impl {
  // Bound by SetFiles.
  bool bound = false;
  std::string path, base, fileName;
  std::vector<std::string> idxNames, idxExprs;
  int selected = 0;

  // Open state.
  DBFHandle h = nullptr;
  std::string openFile;
  bool readOnly = false;
  bool dirty = false;
  std::vector<FieldDef> fields;
  int recordLength = 0;
  long records = 0;
  std::vector<char> deleted;  // deleted[recno - 1]
  std::vector<Index> indexes;
  long cur = 0;  // 0: at the end / no current record
  bool eof = true;
  bool bof = true;

  // --- fields -----------------------------------------------------------
  int FindField(const char* name) const {
    if (h == nullptr || name == nullptr) return -1;
    // Names equal ignoring case have first bytes equal once bit 0x20 is
    // cleared; most fields are passed over on that byte alone.
    const unsigned char first = static_cast<unsigned char>(name[0]) & 0xDF;
    for (size_t i = 0; i < fields.size(); ++i) {
      if ((static_cast<unsigned char>(fields[i].name[0]) & 0xDF) != first) continue;
      if (strcasecmp(fields[i].name.c_str(), name) == 0) return static_cast<int>(i);
    }
    return -1;
  }

  const char* Raw() {
    if (h == nullptr || cur < 1 || cur > records) return nullptr;
    return DBFReadTuple(h, static_cast<int>(cur - 1));
  }

  // --- ordering ---------------------------------------------------------
  size_t Count() const { return static_cast<size_t>(records); }

  long At(size_t pos) const {
    if (selected == 0) return static_cast<long>(pos) + 1;
    return indexes[static_cast<size_t>(selected - 1)].order[pos];
  }

  static bool Less(const Index& ix, long a, long b) {
    int c = qdb::CompareKeys(ix.keys[static_cast<size_t>(a - 1)],
                             ix.keys[static_cast<size_t>(b - 1)]);
    return c < 0 || (c == 0 && a < b);
  }

  static size_t PosIn(const Index& ix, long rec) {
    auto it = std::lower_bound(ix.order.begin(), ix.order.end(), rec,
                               [&ix](long a, long b) { return Less(ix, a, b); });
    if (it != ix.order.end() && *it == rec) return static_cast<size_t>(it - ix.order.begin());
    auto found = std::find(ix.order.begin(), ix.order.end(), rec);
    return static_cast<size_t>(found - ix.order.begin());
  }

  size_t PosOf(long rec) const {
    if (selected == 0) return static_cast<size_t>(rec - 1);
    return PosIn(indexes[static_cast<size_t>(selected - 1)], rec);
  }

  bool Live(size_t pos) const { return !deleted[static_cast<size_t>(At(pos) - 1)]; }

  // First live position at or after pos, Count() when none.
  size_t Forward(size_t pos) const {
    while (pos < Count() && !Live(pos)) ++pos;
    return pos;
  }

  // Last live position at or before pos; false when none.
  bool Backward(size_t pos, size_t* out) const {
    for (size_t p = pos + 1; p-- > 0;) {
      if (p < Count() && Live(p)) {
        *out = p;
        return true;
      }
    }
    return false;
  }

  void SetEnd() {
    cur = 0;
    eof = true;
  }

  void SetCurrent(long rec) {
    cur = rec;
    eof = false;
    bof = false;
  }

  // --- indexes ----------------------------------------------------------
  bool LoadAll(std::string* why) {
    deleted.assign(Count(), 0);
    for (Index& ix : indexes) {
      ix.keys.assign(Count(), qdb::KeyValue());
      ix.order.clear();
    }
    for (long r = 1; r <= records; ++r) {
      const char* raw = DBFReadTuple(h, static_cast<int>(r - 1));
      if (raw == nullptr) {
        *why = "cannot read record " + std::to_string(r);
        return false;
      }
      deleted[static_cast<size_t>(r - 1)] = raw[0] == '*';
      for (Index& ix : indexes) ix.keys[static_cast<size_t>(r - 1)] = ix.key.Evaluate(raw);
    }
    for (Index& ix : indexes) {
      ix.order.resize(Count());
      for (long r = 1; r <= records; ++r) ix.order[static_cast<size_t>(r - 1)] = r;
      std::sort(ix.order.begin(), ix.order.end(),
                [&ix](long a, long b) { return Less(ix, a, b); });
    }
    return true;
  }

  // Recomputes the keys of record rec (raw is its record) and moves it in
  // every index whose key changed.
  void Rekey(long rec, const char* raw, int fi) {
    for (Index& ix : indexes) {
      if (!ix.reads[static_cast<size_t>(fi)]) continue;
      qdb::KeyValue key = ix.key.Evaluate(raw);
      qdb::KeyValue& old = ix.keys[static_cast<size_t>(rec - 1)];
      if (qdb::CompareKeys(key, old) == 0 && key.text == old.text) continue;
      size_t pos = PosIn(ix, rec);
      if (pos < ix.order.size()) ix.order.erase(ix.order.begin() + static_cast<long>(pos));
      old = key;
      auto it = std::lower_bound(ix.order.begin(), ix.order.end(), rec,
                                 [&ix](long a, long b) { return Less(ix, a, b); });
      ix.order.insert(it, rec);
    }
  }

  // --- writing ----------------------------------------------------------
  bool Writable() const { return h != nullptr && !readOnly && cur >= 1 && cur <= records; }

  // Claims room on disk for one more record and the end-of-file mark after
  // it. shapelib's buffered writes do not report a disk without room, and a
  // header that counts a record the file lacks makes the table unreadable,
  // so the bytes are written blank here, where a failure is seen, before
  // shapelib writes the record and the header counts it. A failure puts
  // back the bytes it overwrote and the old length.
  bool ReserveRecord() const {
    const off_t at = static_cast<off_t>(h->nHeaderLength) +
                     static_cast<off_t>(records) * static_cast<off_t>(recordLength);
    int fd = open(openFile.c_str(), O_WRONLY);
    if (fd < 0) return false;
    struct stat st;
    if (fstat(fd, &st) != 0) {
      close(fd);
      return false;
    }
    std::string blank(static_cast<size_t>(recordLength), ' ');
    blank.push_back('\x1A');
    // What the blank record overwrites inside the old length (the mark).
    std::string old;
    if (st.st_size > at) {
      old.resize(static_cast<size_t>(std::min<off_t>(st.st_size - at, blank.size())));
      int rfd = open(openFile.c_str(), O_RDONLY);
      bool read = rfd >= 0 && pread(rfd, &old[0], old.size(), at) == static_cast<ssize_t>(old.size());
      if (rfd >= 0) close(rfd);
      if (!read) {
        close(fd);
        return false;
      }
    }
    size_t done = 0;
    errno = 0;
    while (done < blank.size()) {
      ssize_t n = pwrite(fd, blank.data() + done, blank.size() - done, at + static_cast<off_t>(done));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
    const bool ok = done == blank.size();
    const int err = ok ? 0 : (errno != 0 ? errno : ENOSPC);
    if (!ok) {
      if (!old.empty() && pwrite(fd, old.data(), old.size(), at) != static_cast<ssize_t>(old.size())) {
        TarvoTrace("\nQdbase: %s: cannot restore its end after a refused append", openFile.c_str());
      }
      if (ftruncate(fd, st.st_size) != 0) {
        TarvoTrace("\nQdbase: %s: cannot restore its length after a refused append",
                   openFile.c_str());
      }
    }
    close(fd);
    if (!ok) errno = err;
    return ok;
  }

  void AfterChange() {
    dirty = true;
    if (g_flushMode.load() != 0) {
      DBFUpdateHeader(h);  // writes the record and the header, then fflush
      dirty = false;
    }
  }

  // Stores text (at most the field's width; padded with blanks) in field
  // fi of the current record.
  int Store(int fi, const std::string& text) {
    const FieldDef& f = fields[static_cast<size_t>(fi)];
    if (!Writable() || static_cast<int>(text.size()) > f.width) return 0;
    std::string value = text;
    value.resize(static_cast<size_t>(f.width), ' ');
    if (!DBFWriteAttributeDirectly(h, static_cast<int>(cur - 1), fi, &value[0])) return 0;
    const char* raw = DBFReadTuple(h, static_cast<int>(cur - 1));
    if (raw != nullptr) Rekey(cur, raw, fi);
    AfterChange();
    return 1;
  }

  // The text a number takes in field fi, or "" when it does not fit or the
  // field does not hold numbers. digits: the number's plain text.
  bool NumberText(const FieldDef& f, const std::string& digits, std::string* out) const {
    if (digits.empty()) return false;
    if (static_cast<int>(digits.size()) > f.width) return false;
    *out = RightAlign(digits, f.width);
    return true;
  }

  int WriteNumber(const char* field, double v) {
    int fi = FindField(field);
    if (fi < 0 || !Writable() || !isfinite(v)) return 0;
    const FieldDef& f = fields[static_cast<size_t>(fi)];
    std::string text;
    if (f.type == 'N' || f.type == 'F') {
      if (!NumberText(f, FormatFixed(v, f.decimals), &text)) return 0;
    } else if (f.type == 'C') {
      if (!NumberText(f, FormatShortest(v), &text)) return 0;
    } else {
      return 0;
    }
    return Store(fi, text);
  }

  int WriteInteger(const char* field, long v) {
    int fi = FindField(field);
    if (fi < 0 || !Writable()) return 0;
    const FieldDef& f = fields[static_cast<size_t>(fi)];
    std::string digits = std::to_string(v);
    std::string text;
    if (f.type == 'N' || f.type == 'F') {
      if (f.decimals > 0) digits += "." + std::string(static_cast<size_t>(f.decimals), '0');
    } else if (f.type != 'C') {
      return 0;
    }
    if (!NumberText(f, digits, &text)) return 0;
    return Store(fi, text);
  }

  // --- reading ----------------------------------------------------------
  // The number in field `field` of the current record, as text.
  bool NumberField(const char* field, std::string* text, bool* integral) {
    int fi = FindField(field);
    if (fi < 0) return false;
    const FieldDef& f = fields[static_cast<size_t>(fi)];
    if (f.type != 'N' && f.type != 'F' && f.type != 'C') return false;
    const char* raw = Raw();
    if (raw == nullptr) return false;
    return ParseNumber(raw + f.offset, static_cast<size_t>(f.width), text, integral);
  }

  void CloseHandle() {
    if (h != nullptr) DBFClose(h);
    h = nullptr;
    fields.clear();
    indexes.clear();
    deleted.clear();
    records = 0;
    recordLength = 0;
    cur = 0;
    eof = true;
    bof = true;
    dirty = false;
    readOnly = false;
    openFile.clear();
  }

  bool Flush() {
    if (h == nullptr) return false;
    if (dirty && !readOnly) DBFUpdateHeader(h);
    dirty = false;
    return true;
  }
};

Qdbase::Qdbase() : impl_(new Impl) {}

Qdbase::~Qdbase() {
  if (impl_ != nullptr && impl_->h != nullptr) Close();
  delete impl_;
}

int Qdbase::SetFiles(const char* path, const char* base, int nIdx, const char** names,
                     const char** keys) {
  if (path == nullptr || base == nullptr || *base == '\0') return 0;
  if (impl_->h != nullptr) return 0;
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
}

int Qdbase::Open() {
  Impl& m = *impl_;
  if (m.h != nullptr) return 1;
  if (!m.bound) {
    TarvoTrace("\nQdbase: Open without SetFiles");
    return 0;
  }
  m.fileName = Resolve(m.path, m.base);
  const std::string& file = m.fileName;
  struct stat st;
  if (stat(file.c_str(), &st) != 0) {
    TarvoTrace("\nQdbase: cannot open %s: file missing (%s)", file.c_str(), strerror(errno));
    return 0;
  }
  if (!S_ISREG(st.st_mode)) {
    TarvoTrace("\nQdbase: cannot open %s: not a regular file", file.c_str());
    return 0;
  }
  HeaderInfo info;
  std::string why;
  if (!CheckHeader(file, static_cast<long long>(st.st_size), &info, &why)) {
    TarvoTrace("\nQdbase: cannot open %s: %s", file.c_str(), why.c_str());
    return 0;
  }

  bool readOnly = g_readOnly.load() != 0 || access(file.c_str(), W_OK) != 0 ||
                  (st.st_mode & 0222) == 0;
  SAHooks hooks = Hooks();
  DBFHandle h = DBFOpenLL(file.c_str(), readOnly ? "rb" : "rb+", &hooks);
  if (h == nullptr && !readOnly) {
    readOnly = true;
    h = DBFOpenLL(file.c_str(), "rb", &hooks);
  }
  if (h == nullptr) {
    TarvoTrace("\nQdbase: cannot open %s: shapelib refuses it", file.c_str());
    return 0;
  }
  // shapelib must see the table as we checked it.
  bool agree = DBFGetFieldCount(h) == static_cast<int>(info.fields.size()) &&
               DBFGetRecordCount(h) == info.records && h->nRecordLength == info.recordLength &&
               h->nHeaderLength == info.headerLength;
  for (size_t i = 0; agree && i < info.fields.size(); ++i) {
    int width = 0, decimals = 0;
    DBFGetFieldInfo(h, static_cast<int>(i), nullptr, &width, &decimals);
    agree = width == info.fields[i].width && h->panFieldOffset[i] == info.fields[i].offset &&
            toupper(static_cast<unsigned char>(DBFGetNativeFieldType(h, static_cast<int>(i)))) ==
                info.fields[i].type;
  }
  if (!agree) {
    DBFClose(h);
    TarvoTrace("\nQdbase: cannot open %s: corrupt header (shapelib reads another layout)",
               file.c_str());
    return 0;
  }
  StampToday(h);

  m.h = h;
  m.openFile = file;
  m.readOnly = readOnly;
  m.dirty = false;
  m.fields = info.fields;
  m.recordLength = info.recordLength;
  m.records = info.records;

  std::vector<qdb::KeyField> keyFields;
  for (const FieldDef& f : m.fields) keyFields.push_back({f.name, f.type, f.offset, f.width});
  m.indexes.clear();
  m.indexes.resize(m.idxExprs.size());
  for (size_t i = 0; i < m.idxExprs.size(); ++i) {
    Index& ix = m.indexes[i];
    ix.name = m.idxNames[i];
    ix.expr = m.idxExprs[i];
    std::string error;
    if (!ix.key.Compile(ix.expr, keyFields, &error)) {
      TarvoTrace("\nQdbase: cannot open %s: index %d (%s) key expression \"%s\" cannot be "
                 "evaluated: %s",
                 file.c_str(), static_cast<int>(i) + 1, ix.name.c_str(), ix.expr.c_str(),
                 error.c_str());
      m.CloseHandle();
      return 0;
    }
    const std::string expr = Upper(ix.expr);
    ix.reads.assign(m.fields.size(), 0);
    for (size_t f = 0; f < m.fields.size(); ++f) {
      ix.reads[f] = expr.find(Upper(m.fields[f].name)) != std::string::npos;
    }
  }
  if (!m.LoadAll(&why)) {
    TarvoTrace("\nQdbase: cannot open %s: %s", file.c_str(), why.c_str());
    m.CloseHandle();
    return 0;
  }
  Top();
  return 1;
}

int Qdbase::Close() {
  if (impl_->h == nullptr) return 0;
  impl_->CloseHandle();  // DBFClose writes the pending record and header
  return 1;
}

int Qdbase::IsOpen() const { return impl_->h != nullptr ? 1 : 0; }

int Qdbase::SelectIdx(int idx) {
  if (idx < 0 || idx > static_cast<int>(impl_->idxExprs.size())) return 0;
  impl_->selected = idx;
  return 1;
}

int Qdbase::CurrentIdx() const { return impl_->selected; }

int Qdbase::Top() {
  Impl& m = *impl_;
  if (m.h == nullptr) return 0;
  size_t p = m.Forward(0);
  if (p >= m.Count()) {
    m.SetEnd();
    m.bof = true;
    return 0;
  }
  m.SetCurrent(m.At(p));
  return 1;
}

int Qdbase::Bottom() {
  Impl& m = *impl_;
  if (m.h == nullptr) return 0;
  size_t p = 0;
  if (m.Count() == 0 || !m.Backward(m.Count() - 1, &p)) {
    m.SetEnd();
    m.bof = true;
    return 0;
  }
  m.SetCurrent(m.At(p));
  return 1;
}

int Qdbase::Next() {
  Impl& m = *impl_;
  if (m.h == nullptr || m.cur == 0) return 0;
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
  if (m.h == nullptr) return 0;
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

int Qdbase::Seek(double key) {
  Impl& m = *impl_;
  if (m.h == nullptr || m.selected == 0 || !isfinite(key)) return 0;
  const Index& ix = m.indexes[static_cast<size_t>(m.selected - 1)];
  size_t n = ix.order.size();
  if (!ix.key.IsText()) {
    auto it = std::lower_bound(ix.order.begin(), ix.order.end(), key, [&ix](long r, double v) {
      return ix.keys[static_cast<size_t>(r - 1)].number < v;
    });
    size_t p = m.Forward(static_cast<size_t>(it - ix.order.begin()));
    if (p >= n) {
      m.SetEnd();
      m.bof = false;
      return 0;
    }
    m.SetCurrent(ix.order[p]);
    return ix.keys[static_cast<size_t>(ix.order[p] - 1)].number == key ? 1 : 0;
  }
  // A text key compared as a number: the first record (in key order) whose
  // key reads as the value, else the first that reads above it.
  size_t above = n;
  for (size_t p = 0; p < n; ++p) {
    if (!m.Live(p)) continue;
    const std::string& t = ix.keys[static_cast<size_t>(ix.order[p] - 1)].text;
    double v = qdb::DbaseVal(t.data(), t.size());
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
}

int Qdbase::Seek(const char* key) {
  Impl& m = *impl_;
  if (m.h == nullptr || m.selected == 0 || key == nullptr) return 0;
  const Index& ix = m.indexes[static_cast<size_t>(m.selected - 1)];
  if (!ix.key.IsText()) {
    double v = 0;
    if (!ParseDouble(key, strlen(key), &v)) return 0;  // not a number: no move
    return Seek(v);
  }
  std::string text(key);
  auto it = std::lower_bound(ix.order.begin(), ix.order.end(), text,
                             [&ix](long r, const std::string& t) {
                               return qdb::CompareTexts(ix.keys[static_cast<size_t>(r - 1)].text,
                                                        t) < 0;
                             });
  size_t p = m.Forward(static_cast<size_t>(it - ix.order.begin()));
  if (p >= ix.order.size()) {
    m.SetEnd();
    m.bof = false;
    return 0;
  }
  m.SetCurrent(ix.order[p]);
  return qdb::CompareTexts(ix.keys[static_cast<size_t>(ix.order[p] - 1)].text, text) == 0 ? 1
                                                                                           : 0;
}

int Qdbase::Go(long recno) {
  Impl& m = *impl_;
  if (m.h == nullptr || recno < 1 || recno > m.records) return 0;
  m.SetCurrent(recno);
  return 1;
}

long Qdbase::RecNo() const { return impl_->h != nullptr ? impl_->cur : 0; }

long Qdbase::RecCount() const { return impl_->h != nullptr ? impl_->records : 0; }

int Qdbase::IsDeleted() const {
  const Impl& m = *impl_;
  if (m.h == nullptr || m.cur < 1 || m.cur > m.records) return 0;
  return m.deleted[static_cast<size_t>(m.cur - 1)] ? 1 : 0;
}

int Qdbase::FieldNo(const char* field) const { return impl_->FindField(field) + 1; }

int Qdbase::ReadLong(const char* field, long* value) {
  if (value != nullptr) *value = 0;
  std::string text;
  bool integral = false;
  if (value == nullptr || !impl_->NumberField(field, &text, &integral)) return 0;
  if (integral) {
    errno = 0;
    long long v = strtoll(text.c_str(), nullptr, 10);
    if (errno == ERANGE || v < LONG_MIN || v > LONG_MAX) return 0;
    *value = static_cast<long>(v);
    return 1;
  }
  double d = strtod(text.c_str(), nullptr);
  d = trunc(d);
  if (!isfinite(d) || d < -9223372036854775808.0 || d >= 9223372036854775808.0) return 0;
  *value = static_cast<long>(d);
  return 1;
}

int Qdbase::ReadInt(const char* field, int* value) {
  if (value != nullptr) *value = 0;
  long v = 0;
  if (value == nullptr || !ReadLong(field, &v)) return 0;
  if (v < INT_MIN || v > INT_MAX) return 0;
  *value = static_cast<int>(v);
  return 1;
}

int Qdbase::ReadDouble(const char* field, double* value) {
  if (value != nullptr) *value = 0.0;
  std::string text;
  bool integral = false;
  if (value == nullptr || !impl_->NumberField(field, &text, &integral)) return 0;
  double d = strtod(text.c_str(), nullptr);
  if (!isfinite(d)) return 0;
  *value = d == 0.0 ? 0.0 : d;
  return 1;
}

int Qdbase::ReadLogical(const char* field, int* value) {
  if (value != nullptr) *value = 0;
  int fi = impl_->FindField(field);
  if (value == nullptr || fi < 0) return 0;
  const FieldDef& f = impl_->fields[static_cast<size_t>(fi)];
  if (f.type != 'L') return 0;
  const char* raw = impl_->Raw();
  if (raw == nullptr) return 0;
  char c = raw[f.offset];
  *value = (c == 'T' || c == 't' || c == 'Y' || c == 'y') ? 1 : 0;
  return 1;
}

int Qdbase::ReadString(const char* field, char* buf, int size, int trimTrailing, int zeroFill) {
  if (buf == nullptr || size < 1) return 0;
  buf[0] = '\0';
  int fi = impl_->FindField(field);
  if (fi < 0) return 0;
  const FieldDef& f = impl_->fields[static_cast<size_t>(fi)];
  const char* raw = impl_->Raw();
  if (raw == nullptr) return 0;
  const char* s = raw + f.offset;
  size_t len = static_cast<size_t>(f.width);
  size_t used = len;  // the characters before the trailing padding
  while (used > 0 && IsBlank(s[used - 1])) --used;
  size_t room = static_cast<size_t>(size) - 1;
  if (used > room) return 0;  // never a cut text
  size_t n = trimTrailing ? used : std::min(len, room);
  memcpy(buf, s, n);
  buf[n] = '\0';
  if (zeroFill) memset(buf + n, 0, static_cast<size_t>(size) - n);
  return 1;
}

int Qdbase::WriteLong(const char* field, long value) {
  return impl_->WriteInteger(field, value);
}

int Qdbase::WriteInt(const char* field, int value) { return impl_->WriteInteger(field, value); }

int Qdbase::WriteDouble(const char* field, double value) {
  return impl_->WriteNumber(field, value);
}

int Qdbase::WriteLogical(const char* field, int value) {
  Impl& m = *impl_;
  int fi = m.FindField(field);
  if (fi < 0 || !m.Writable() || m.fields[static_cast<size_t>(fi)].type != 'L') return 0;
  return m.Store(fi, value ? "T" : "F");
}

int Qdbase::WriteString(const char* field, const char* text) {
  Impl& m = *impl_;
  int fi = m.FindField(field);
  if (fi < 0 || text == nullptr || !m.Writable()) return 0;
  const FieldDef& f = m.fields[static_cast<size_t>(fi)];
  size_t len = strlen(text);
  switch (f.type) {
    case 'C':
      if (len > static_cast<size_t>(f.width)) return 0;
      return m.Store(fi, text);
    case 'N':
    case 'F': {
      std::string digits;
      bool integral;
      if (!ParseNumber(text, len, &digits, &integral)) return 0;
      bool blank = strspn(text, " \t") == len;
      if (blank) return m.Store(fi, std::string());
      double v = strtod(digits.c_str(), nullptr);
      return m.WriteNumber(field, v);
    }
    case 'L': {
      size_t b = strspn(text, " ");
      if (b == len) return m.Store(fi, std::string());
      if (len - b != 1 || strchr("TtFfYyNn?", text[b]) == nullptr) return 0;
      return m.Store(fi, std::string(1, text[b]));
    }
    case 'D': {
      if (strspn(text, " ") == len) return m.Store(fi, std::string());
      if (len != 8 || strspn(text, "0123456789") != 8) return 0;
      return m.Store(fi, text);
    }
    default:
      return 0;
  }
}

int Qdbase::Append() {
  Impl& m = *impl_;
  if (m.h == nullptr || m.readOnly) return 0;
  if (m.records >= 0x7FFFFFFE) return 0;
  if (!m.ReserveRecord()) {
    TarvoTrace("\nQdbase: cannot append to %s: no room for the record (%s)", m.openFile.c_str(),
               strerror(errno));
    return 0;
  }
  std::string blank(static_cast<size_t>(m.recordLength), ' ');
  if (!DBFWriteTuple(m.h, static_cast<int>(m.records), &blank[0])) return 0;
  ++m.records;
  long rec = m.records;
  m.deleted.push_back(0);
  for (Index& ix : m.indexes) {
    ix.keys.push_back(ix.key.Evaluate(blank.data()));
    auto it = std::lower_bound(ix.order.begin(), ix.order.end(), rec,
                               [&ix](long a, long b) { return Impl::Less(ix, a, b); });
    ix.order.insert(it, rec);
  }
  m.SetCurrent(rec);
  m.AfterChange();
  return 1;
}

int Qdbase::Delete() {
  Impl& m = *impl_;
  if (!m.Writable()) return 0;
  if (!DBFMarkRecordDeleted(m.h, static_cast<int>(m.cur - 1), 1)) return 0;
  m.deleted[static_cast<size_t>(m.cur - 1)] = 1;
  m.AfterChange();
  return 1;
}

int Qdbase::Pack() {
  Impl& m = *impl_;
  if (m.h == nullptr || m.readOnly) return 0;
  const std::string file = m.openFile;
  m.Flush();

  // The new file, next to the old one; shapelib wants a ".dbf" name.
  std::string dir = file;
  size_t slash = dir.rfind('/');
  dir = slash == std::string::npos ? std::string() : dir.substr(0, slash + 1);
  std::string tmpl = dir + m.base + "-pack-XXXXXX.dbf";
  std::vector<char> name(tmpl.begin(), tmpl.end());
  name.push_back('\0');
  int fd = mkstemps(name.data(), 4);
  if (fd < 0) {
    TarvoTrace("\nQdbase: cannot pack %s: no temporary file (%s)", file.c_str(), strerror(errno));
    return 0;
  }
  close(fd);
  std::string tmp(name.data());
  std::string tmpCpg = tmp.substr(0, tmp.size() - 4) + ".cpg";
  bool tmpCpgExisted = FileExists(tmpCpg);
  auto discard = [&]() {
    unlink(tmp.c_str());
    if (!tmpCpgExisted) unlink(tmpCpg.c_str());
  };

  // The new table is made field by field rather than with shapelib's
  // clone: the clone reopens the file it has just written and dereferences
  // a failed reopen, which a disk without room (or slack after the old
  // field descriptors) brings about. Made this way the header has its plain
  // length, so any slack is dropped, and a short file is caught below.
  SAHooks hooks = Hooks();
  DBFHandle out = DBFCreateLL(tmp.c_str(), m.h->pszCodePage, &hooks);
  for (int i = 0; out != nullptr && i < DBFGetFieldCount(m.h); ++i) {
    char fieldName[XBASE_FLDNAME_LEN_READ + 1] = "";
    int width = 0, decimals = 0;
    DBFGetFieldInfo(m.h, i, fieldName, &width, &decimals);
    if (DBFAddNativeFieldType(out, fieldName, DBFGetNativeFieldType(m.h, i), width, decimals) < 0) {
      DBFClose(out);
      out = nullptr;
    }
  }
  if (out != nullptr) out->iLanguageDriver = m.h->iLanguageDriver;
  if (out == nullptr) {
    discard();
    TarvoTrace("\nQdbase: cannot pack %s: cannot create %s", file.c_str(), tmp.c_str());
    return 0;
  }
  StampToday(out);
  int kept = 0;
  bool ok = true;
  std::string record;
  for (long r = 1; r <= m.records && ok; ++r) {
    const char* raw = DBFReadTuple(m.h, static_cast<int>(r - 1));
    if (raw == nullptr) {
      ok = false;
      break;
    }
    if (raw[0] == '*') continue;
    record.assign(raw, static_cast<size_t>(m.recordLength));
    record[0] = ' ';
    ok = DBFWriteTuple(out, kept, &record[0]) != 0;
    ++kept;
  }
  if (!ok) {
    // The copy is thrown away: closing it writes nothing more to a disk
    // that has already refused a write.
    out->bUpdated = 0;
    out->bCurrentRecordModified = 0;
  }
  DBFClose(out);
  if (ok) {
    // The new file must be on disk, with the old one's permissions, before
    // it replaces the old one.
    struct stat st;
    int tfd = open(tmp.c_str(), O_RDWR);
    ok = tfd >= 0;
    if (ok && stat(file.c_str(), &st) == 0) {
      if (fchown(tfd, st.st_uid, st.st_gid) != 0) {
        // Keeping the owner needs privileges; the mode is what matters.
      }
      ok = fchmod(tfd, st.st_mode & 07777) == 0;
    }
    if (ok) ok = fsync(tfd) == 0;
    if (tfd >= 0) close(tfd);
  }
  if (ok) {
    // shapelib does not report a write that found no room: the new file
    // must hold every record its header counts before it replaces the old.
    struct stat st;
    HeaderInfo written;
    std::string why;
    ok = stat(tmp.c_str(), &st) == 0 &&
         CheckHeader(tmp, static_cast<long long>(st.st_size), &written, &why) &&
         written.records == kept;
  }
  if (!ok) {
    discard();
    TarvoTrace("\nQdbase: cannot pack %s: writing %s failed", file.c_str(), tmp.c_str());
    return 0;
  }

  int selected = m.selected;
  m.CloseHandle();
  bool renamed = rename(tmp.c_str(), file.c_str()) == 0;
  if (!renamed) {
    TarvoTrace("\nQdbase: cannot pack %s: rename failed (%s)", file.c_str(), strerror(errno));
    discard();
  } else {
    if (!tmpCpgExisted) unlink(tmpCpg.c_str());
    int dfd = open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY);
    if (dfd >= 0) {
      fsync(dfd);
      close(dfd);
    }
  }
  m.selected = selected;
  if (!Open()) return 0;
  return renamed ? 1 : 0;
}

int Qdbase::RebuildIndex() {
  Impl& m = *impl_;
  if (m.h == nullptr) return 0;
  std::string why;
  if (!m.LoadAll(&why)) {
    TarvoTrace("\nQdbase: cannot rebuild the indexes of %s: %s", m.openFile.c_str(),
               why.c_str());
    return 0;
  }
  return 1;
}

int Qdbase::Flush() { return impl_->Flush() ? 1 : 0; }

int Qdbase::FlushGet() { return g_flushMode.load(); }

void Qdbase::FlushSet(int mode) { g_flushMode.store(mode != 0 ? 1 : 0); }

void Qdbase::SetReadOnly(int on) { g_readOnly.store(on != 0 ? 1 : 0); }

int Qdbase::ReadOnly() { return g_readOnly.load(); }

int Qdbase::Create(const char* path, const char* base, int nFields, const QdbField* fields) {
  if (path == nullptr || base == nullptr || *base == '\0') {
    TarvoTrace("\nQdbase::Create: no path or table name");
    return 0;
  }
  std::string file = LowerName(path, base);
  if (nFields < 1 || fields == nullptr) {
    TarvoTrace("\nQdbase::Create %s: no fields", file.c_str());
    return 0;
  }
  if (nFields > (65535 - 33) / 32) {
    TarvoTrace("\nQdbase::Create %s: %d fields are too many", file.c_str(), nFields);
    return 0;
  }
  long total = 1;
  for (int i = 0; i < nFields; ++i) {
    const QdbField& f = fields[i];
    const char* name = f.name != nullptr ? f.name : "";
    size_t len = strlen(name);
    bool nameOk = len >= 1 && len <= 10 && isalpha(static_cast<unsigned char>(name[0]));
    for (size_t k = 0; nameOk && k < len; ++k) {
      nameOk = isalnum(static_cast<unsigned char>(name[k])) || name[k] == '_';
    }
    if (!nameOk) {
      TarvoTrace("\nQdbase::Create %s: field %d has an invalid name \"%s\"", file.c_str(), i + 1,
                 name);
      return 0;
    }
    for (int j = 0; j < i; ++j) {
      if (fields[j].name != nullptr && strcasecmp(fields[j].name, name) == 0) {
        TarvoTrace("\nQdbase::Create %s: field name %s used twice", file.c_str(), name);
        return 0;
      }
    }
    bool ok = false;
    switch (f.type) {
      case 'C': ok = f.width >= 1 && f.width <= 254 && f.decimals == 0; break;
      case 'N':
        ok = f.width >= 1 && f.width <= 19 && f.decimals >= 0 && f.decimals <= 15 &&
             f.decimals < f.width;
        break;
      case 'L': ok = f.width == 1 && f.decimals == 0; break;
      default: ok = false;
    }
    if (!ok) {
      TarvoTrace("\nQdbase::Create %s: field %s: invalid type '%c', width %d or decimals %d",
                 file.c_str(), name, f.type != '\0' ? f.type : '?', f.width, f.decimals);
      return 0;
    }
    total += f.width;
  }
  if (total > 65535) {
    TarvoTrace("\nQdbase::Create %s: records of %ld bytes are too long", file.c_str(), total);
    return 0;
  }
  if (FileExists(file) || FileExists(UpperName(path, base))) {
    TarvoTrace("\nQdbase::Create %s: the table already exists", file.c_str());
    return 0;
  }
  // Claims the name (refusing a file that appeared meanwhile), then lets
  // shapelib write the table into it.
  int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0666);
  if (fd < 0) {
    TarvoTrace("\nQdbase::Create %s: cannot create the file (%s)", file.c_str(), strerror(errno));
    return 0;
  }
  close(fd);
  SAHooks hooks = Hooks();
  DBFHandle h = DBFCreateLL(file.c_str(), "LDID/87", &hooks);
  bool ok = h != nullptr;
  if (ok) StampToday(h);
  for (int i = 0; ok && i < nFields; ++i) {
    std::string name = Upper(fields[i].name);
    ok = DBFAddNativeFieldType(h, name.c_str(), fields[i].type, fields[i].width,
                               fields[i].type == 'N' ? fields[i].decimals : 0) >= 0;
  }
  if (h != nullptr) DBFClose(h);
  if (ok) {
    // The header must be complete on disk.
    struct stat st;
    ok = stat(file.c_str(), &st) == 0 && st.st_size >= 32 + 32 * nFields + 1;
  }
  if (!ok) {
    unlink(file.c_str());
    TarvoTrace("\nQdbase::Create %s: writing the table failed", file.c_str());
    return 0;
  }
  return 1;
}

const char* Qdbase::FileName() const { return impl_->fileName.c_str(); }
