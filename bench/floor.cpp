#include "floor.h"

#include <fcntl.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <memory>

namespace qbench {

namespace {

const long long kHeaderSize = 64;
const long long kCheckpointSize = 256 * 1024;

// Powers of ten a double holds exactly (a field has at most 15 decimals).
const double kPowers[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                          1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};

void Die(const std::string& why) {
  fprintf(stderr, "qslave_bench: floor: %s\n", why.c_str());
  exit(1);
}

char* PutAt(char* p, unsigned long long value, int bytes) {
  for (int i = 0; i < bytes; ++i) *p++ = static_cast<char>((value >> (8 * i)) & 0xFF);
  return p;
}

unsigned long long Get(const unsigned char* p, int bytes) {
  unsigned long long v = 0;
  for (int i = 0; i < bytes; ++i) v |= static_cast<unsigned long long>(p[i]) << (8 * i);
  return v;
}

unsigned Crc(const char* bytes, size_t size) {
  return static_cast<unsigned>(
      crc32(0L, reinterpret_cast<const Bytef*>(bytes), static_cast<uInt>(size)));
}

bool WriteAt(int fd, const char* bytes, size_t size, long long at) {
  return pwrite(fd, bytes, size, static_cast<off_t>(at)) == static_cast<ssize_t>(size);
}

bool WriteAt(int fd, const std::string& bytes, long long at) {
  return WriteAt(fd, bytes.data(), bytes.size(), at);
}

}  // namespace

TableFloor::TableFloor(const std::string& dir) : dir_(dir) {
  table_ = open((dir + "/tanks.dbf").c_str(), O_RDWR | O_CLOEXEC);
  journal_ = open((dir + "/qslave.jnl").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (table_ < 0 || journal_ < 0) Die("cannot open the tables of " + dir);
  struct stat st;
  if (fstat(table_, &st) != 0) Die("cannot stat the tank table");
  inode_ = st.st_ino;
  // The table's layout, read once as the table class reads it at open.
  unsigned char head[32];
  if (pread(table_, head, sizeof head, 0) != 32) Die("cannot read the header");
  headerLength_ = static_cast<long long>(Get(head + 8, 2));
  recordLength_ = static_cast<long long>(Get(head + 10, 2));
  std::string descriptors(static_cast<size_t>(headerLength_ - 32), '\0');
  if (pread(table_, &descriptors[0], descriptors.size(), 32) !=
      static_cast<ssize_t>(descriptors.size())) {
    Die("cannot read the field descriptors");
  }
  int offset = 1;
  for (size_t at = 0; at + 32 <= descriptors.size() && descriptors[at] != 0x0D; at += 32) {
    Field f;
    f.offset = offset;
    f.width = static_cast<unsigned char>(descriptors[at + 16]);
    f.decimals = static_cast<unsigned char>(descriptors[at + 17]);
    fields_.emplace_back(std::string(descriptors.c_str() + at), f);
    offset += f.width;
  }
  cur_ = FieldOf("CUR_Q");
  res_ = FieldOf("RES_Q");
  max_ = FieldOf("MAX_Q");
  threshold_ = FieldOf("THRESHOLD");
  cistId_ = FieldOf("CIST_ID");
  FILE* boot = fopen("/proc/sys/kernel/random/boot_id", "r");
  char id[64] = "";
  if (boot != nullptr) {
    if (fgets(id, sizeof id, boot) == nullptr) id[0] = '\0';
    fclose(boot);
  }
  bootId_ = id;
  bootId_.resize(36, '\0');
  if (ftruncate(journal_, kHeaderSize) != 0 || !WriteAt(journal_, Header(), 0)) {
    Die("cannot start the journal");
  }
}

TableFloor::~TableFloor() {
  if (table_ >= 0) close(table_);
  if (journal_ >= 0) close(journal_);
}

TableFloor::Field TableFloor::FieldOf(const char* name) const {
  for (const auto& f : fields_) {
    if (f.first == name && f.second.decimals <= 15) return f.second;
  }
  Die(std::string("the tank table has no field ") + name + " of at most 15 decimals");
  return Field();
}

// The number a fixed-decimal field holds, read as what it is: a whole
// count of units of its last decimal, divided once by an exact power of
// ten (the double strtod would give for up to 15 digits). Blank reads 0;
// a field that is not a number reads NaN, and the booking is refused.
double TableFloor::Number(const char* record, const Field& f) const {
  const char* p = record + f.offset;
  const char* end = p + f.width;
  while (p < end && *p == ' ') ++p;
  const bool negative = p < end && *p == '-';
  if (negative) ++p;
  // The digits before the point, then those after it, counted by where
  // they end (the sum is unsigned: past 19 digits it wraps, and more than
  // 15 are refused).
  unsigned long long units = 0;
  const char* const first = p;
  for (; p < end && *p >= '0' && *p <= '9'; ++p) {
    units = units * 10 + static_cast<unsigned>(*p - '0');
  }
  const long whole = p - first;
  long decimals = 0;
  if (p < end && *p == '.') {
    const char* const after = ++p;
    for (; p < end && *p >= '0' && *p <= '9'; ++p) {
      units = units * 10 + static_cast<unsigned>(*p - '0');
    }
    decimals = p - after;
  }
  if (p != end || whole + decimals > 15) return NAN;
  const double v = static_cast<double>(units) / kPowers[decimals];
  return negative ? -v : v;
}

// The field's text for v: rounded half away from zero to the field's
// decimals and right-aligned, as the table class writes it; false when it
// does not fit.
bool TableFloor::Text(double v, const Field& f, std::string* out) const {
  const double scaled = v * kPowers[f.decimals];
  long long units =
      static_cast<long long>(scaled < 0 ? -floor(-scaled + 0.5) : floor(scaled + 0.5));
  const bool negative = units < 0;
  if (negative) units = -units;
  char digits[32];
  char* p = digits + sizeof digits;
  int written = 0;
  do {
    if (written == f.decimals && f.decimals > 0) *--p = '.';
    *--p = static_cast<char>('0' + units % 10);
    units /= 10;
    ++written;
  } while (units != 0 || written <= f.decimals);
  if (negative) *--p = '-';
  const int n = static_cast<int>(digits + sizeof digits - p);
  if (n > f.width) return false;
  // Blanks, then the digits: put together in place, stored in one piece.
  char field[256];
  memset(field, ' ', static_cast<size_t>(f.width - n));
  memcpy(field + f.width - n, p, static_cast<size_t>(n));
  out->assign(field, static_cast<size_t>(f.width));
  return true;
}

std::string TableFloor::Header() const {
  char h[kHeaderSize];
  memcpy(h, "QSLVJNL1", 8);
  memcpy(h + 8, bootId_.data(), 36);
  char* p = PutAt(h + 44, static_cast<unsigned long long>(end_), 8);  // applied up to the end
  p = PutAt(p, changes_, 8);
  PutAt(p, Crc(h, kHeaderSize - 4), 4);
  return std::string(h, sizeof h);
}

bool TableFloor::Lock() {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  if (fcntl(journal_, F_OFD_SETLKW, &lock) != 0) return false;
  // What another process may have left: the header is read at every lock.
  unsigned char head[kHeaderSize];
  if (pread(journal_, head, sizeof head, 0) != kHeaderSize) return false;
  return memcmp(head, "QSLVJNL1", 8) == 0;
}

void TableFloor::Unlock() {
  struct flock lock = {};
  lock.l_type = F_UNLCK;
  lock.l_whence = SEEK_SET;
  fcntl(journal_, F_OFD_SETLK, &lock);
}

bool TableFloor::Checkpoint() {
  if (end_ <= kCheckpointSize) return true;
  end_ = kHeaderSize;
  return fdatasync(table_) == 0 && ftruncate(journal_, kHeaderSize) == 0 &&
         WriteAt(journal_, Header(), 0) && fdatasync(journal_) == 0;
}

bool TableFloor::Book(const std::vector<long>& records, const std::vector<double>& qnts,
                      bool checkReserve) {
  if (!Lock()) return false;
  // First pass: every record read and judged before anything is written.
  std::vector<std::string> texts(records.size());
  std::vector<char> record(static_cast<size_t>(recordLength_));
  for (size_t k = 0; k < records.size(); ++k) {
    const long long at = headerLength_ + (records[k] - 1) * recordLength_;
    if (pread(table_, record.data(), record.size(), static_cast<off_t>(at)) !=
        static_cast<ssize_t>(record.size())) {
      Unlock();
      return false;
    }
    const double cur = Number(record.data(), cur_);
    const double max = Number(record.data(), max_);
    // The reserve is read by a level batch too: a level is booked only on
    // a record whose quantities all read as numbers, as the library books.
    const double res = Number(record.data(), res_);
    const double threshold = checkReserve ? Number(record.data(), threshold_) : 0.0;
    // The data set has no cisterns: a record that names one is not booked
    // here. A field that is no number refuses the booking.
    if (Number(record.data(), cistId_) != 0.0 || isnan(cur) || isnan(max) || isnan(res) ||
        isnan(threshold)) {
      Unlock();
      return false;
    }
    double level = cur - qnts[k];
    if (checkReserve && (level < res || threshold < 0.0)) {
      Unlock();
      return false;
    }
    if (level < 0.0) level = 0.0;
    if (level > max) level = max;
    if (!Text(level, cur_, &texts[k])) {
      Unlock();
      return false;
    }
  }
  // Second pass: the journal entry, synced; the fields; the applied mark.
  // The entry is sized first and written in place, in one allocation.
  size_t length = 4 + 4 + 4 + 4;  // magic, length, part count ... CRC
  for (const std::string& text : texts) length += 2 + 9 + 8 + 8 + 4 + text.size();
  const std::unique_ptr<char[]> entry(new char[length]);
  char* e = entry.get();
  memcpy(e, "QJE1", 4);
  e = PutAt(e + 4, length, 4);
  e = PutAt(e, records.size(), 4);
  for (size_t k = 0; k < records.size(); ++k) {
    e = PutAt(e, 9, 2);
    memcpy(e, "tanks.dbf", 9);
    e = PutAt(e + 9, static_cast<unsigned long long>(inode_), 8);
    e = PutAt(e,
              static_cast<unsigned long long>(headerLength_ + (records[k] - 1) * recordLength_ +
                                              cur_.offset),
              8);
    e = PutAt(e, texts[k].size(), 4);
    memcpy(e, texts[k].data(), texts[k].size());
    e += texts[k].size();
  }
  PutAt(e, Crc(entry.get(), length - 4), 4);
  bool ok = WriteAt(journal_, entry.get(), length, end_) && fdatasync(journal_) == 0;
  if (ok) {
    end_ += static_cast<long long>(length);
    ++changes_;
    for (size_t k = 0; k < records.size() && ok; ++k) {
      ok = WriteAt(table_, texts[k],
                   headerLength_ + (records[k] - 1) * recordLength_ + cur_.offset);
    }
  }
  ok = ok && WriteAt(journal_, Header(), 0) && Checkpoint();
  Unlock();
  return ok;
}

}  // namespace qbench
