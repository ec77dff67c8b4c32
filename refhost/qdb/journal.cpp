#include "journal.h"

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <set>
#include <string_view>

#include "host/qdsp32.h"

namespace qdb {

const char Journal::kFileName[] = "qslave.jnl";

namespace {

constexpr long long kHeaderSize = 64;
constexpr char kHeaderMagic[8] = {'Q', 'S', 'L', 'V', 'J', 'N', 'L', '1'};
constexpr char kEntryMagic[4] = {'Q', 'J', 'E', '1'};
constexpr size_t kBootIdSize = 36;
// A checkpoint (a sync of every table written since the last one) when the
// journal has grown past this.
constexpr long long kCheckpointSize = 256 * 1024;

// CRC-32 (the polynomial of zlib and of Ethernet), eight bytes a step.
uint32_t Crc32(const unsigned char* p, size_t len) {
  static uint32_t table[8][256];
  static bool ready = false;
  if (!ready) {
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t c = i;
      for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
      table[0][i] = c;
    }
    for (uint32_t i = 0; i < 256; ++i) {
      for (int t = 1; t < 8; ++t) table[t][i] = (table[t - 1][i] >> 8) ^ table[0][table[t - 1][i] & 0xFF];
    }
    ready = true;
  }
  uint32_t crc = 0xFFFFFFFFu;
  while (len >= 8) {
    const uint32_t a = crc ^ (p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<uint32_t>(p[3]) << 24));
    crc = table[7][a & 0xFF] ^ table[6][(a >> 8) & 0xFF] ^ table[5][(a >> 16) & 0xFF] ^
          table[4][a >> 24] ^ table[3][p[4]] ^ table[2][p[5]] ^ table[1][p[6]] ^ table[0][p[7]];
    p += 8;
    len -= 8;
  }
  while (len-- > 0) crc = table[0][(crc ^ *p++) & 0xFF] ^ (crc >> 8);
  return crc ^ 0xFFFFFFFFu;
}

uint64_t GetLittle(const unsigned char* p, int bytes) {
  uint64_t value = 0;
  for (int i = 0; i < bytes; ++i) value |= static_cast<uint64_t>(p[i]) << (8 * i);
  return value;
}

// The running machine's boot id, or "" when the system does not tell it.
std::string ReadBootId() {
  int fd = open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::string();
  char buf[64] = {};
  const ssize_t n = read(fd, buf, sizeof buf - 1);
  close(fd);
  if (n < static_cast<ssize_t>(kBootIdSize)) return std::string();
  return std::string(buf, kBootIdSize);
}

struct Entry {
  long long start = 0;
  long long end = 0;
  std::vector<JournalPart> parts;
};

// Parses the entries in bytes (which begin at file offset base), stopping
// at the first that is cut short or fails its checksum. The parts are
// views of bytes.
std::vector<Entry> ParseEntries(const std::string& bytes, long long base) {
  std::vector<Entry> entries;
  const unsigned char* data = reinterpret_cast<const unsigned char*>(bytes.data());
  size_t at = 0;
  while (at + 16 <= bytes.size()) {
    const unsigned char* e = data + at;
    if (memcmp(e, kEntryMagic, 4) != 0) break;
    const size_t len = static_cast<size_t>(GetLittle(e + 4, 4));
    if (len < 16 || at + len > bytes.size()) break;
    if (Crc32(e, len - 4) != static_cast<uint32_t>(GetLittle(e + len - 4, 4))) break;
    Entry entry;
    entry.start = base + static_cast<long long>(at);
    entry.end = entry.start + static_cast<long long>(len);
    const size_t count = static_cast<size_t>(GetLittle(e + 8, 4));
    size_t p = 12;
    bool ok = true;
    for (size_t i = 0; i < count && ok; ++i) {
      JournalPart part;
      ok = p + 2 <= len - 4;
      if (!ok) break;
      const size_t nameLen = static_cast<size_t>(GetLittle(e + p, 2));
      p += 2;
      ok = p + nameLen + 20 <= len - 4;
      if (!ok) break;
      part.file = std::string_view(reinterpret_cast<const char*>(e + p), nameLen);
      p += nameLen;
      part.inode = static_cast<ino_t>(GetLittle(e + p, 8));
      part.offset = static_cast<long long>(GetLittle(e + p + 8, 8));
      const size_t size = static_cast<size_t>(GetLittle(e + p + 16, 4));
      p += 20;
      ok = p + size <= len - 4 && part.offset >= 0 && part.file.find('/') == std::string_view::npos;
      if (!ok) break;
      part.bytes = std::string_view(reinterpret_cast<const char*>(e + p), size);
      p += size;
      entry.parts.push_back(std::move(part));
    }
    if (!ok || p != len - 4) break;
    entries.push_back(std::move(entry));
    at += len;
  }
  return entries;
}

// The file names the whole entries in bytes write to, each once: what a
// checkpoint syncs. Only names are read, nothing is copied.
std::vector<std::string> NamesOf(const char* bytes, size_t size) {
  std::vector<std::string> names;
  const unsigned char* data = reinterpret_cast<const unsigned char*>(bytes);
  size_t at = 0;
  while (at + 16 <= size && memcmp(data + at, kEntryMagic, 4) == 0) {
    const size_t len = static_cast<size_t>(GetLittle(data + at + 4, 4));
    if (len < 16 || at + len > size) break;
    const size_t count = static_cast<size_t>(GetLittle(data + at + 8, 4));
    size_t p = at + 12;
    for (size_t i = 0; i < count && p + 2 <= at + len; ++i) {
      const size_t nameLen = static_cast<size_t>(GetLittle(data + p, 2));
      if (p + 2 + nameLen + 20 > at + len) break;
      const std::string_view name(reinterpret_cast<const char*>(data + p + 2), nameLen);
      if (std::find(names.begin(), names.end(), name) == names.end()) names.emplace_back(name);
      p += 2 + nameLen + 20 + static_cast<size_t>(GetLittle(data + p + 2 + nameLen + 16, 4));
    }
    at += len;
  }
  return names;
}

// Writes value's low `bytes` bytes, least significant first, at p; answers
// the byte after them.
char* PutLittleAt(char* p, uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) *p++ = static_cast<char>((value >> (8 * i)) & 0xFF);
  return p;
}

char* PutBytesAt(char* p, std::string_view bytes) {
  memcpy(p, bytes.data(), bytes.size());
  return p + bytes.size();
}

// The entry is sized first and written in place: one allocation, no
// growth, whatever the number of parts, and no byte cleared before it is
// written (every byte of it is).
std::unique_ptr<char[]> BuildEntry(const std::vector<JournalPart>& parts, size_t* length) {
  size_t size = 4 + 4 + 4 + 4;  // magic, length, part count ... CRC
  for (const JournalPart& part : parts) size += 2 + part.file.size() + 8 + 8 + 4 + part.bytes.size();
  std::unique_ptr<char[]> entry(new char[size]);
  *length = size;
  char* p = entry.get();
  memcpy(p, kEntryMagic, 4);
  p += 4;
  p = PutLittleAt(p, size, 4);
  p = PutLittleAt(p, parts.size(), 4);
  for (const JournalPart& part : parts) {
    p = PutLittleAt(p, part.file.size(), 2);
    p = PutBytesAt(p, part.file);
    p = PutLittleAt(p, static_cast<uint64_t>(part.inode), 8);
    p = PutLittleAt(p, static_cast<uint64_t>(part.offset), 8);
    p = PutLittleAt(p, part.bytes.size(), 4);
    p = PutBytesAt(p, part.bytes);
  }
  const size_t covered = size - 4;
  PutLittleAt(p, Crc32(reinterpret_cast<const unsigned char*>(entry.get()), covered), 4);
  return entry;
}

std::string SystemError(const std::string& what) { return what + ": " + strerror(errno); }

// A name the journal may write to: a dBase table of the directory itself.
bool IsTableName(const std::string& name) {
  if (name.size() < 5 || name[0] == '.' || name.find('/') != std::string::npos ||
      name.find('\0') != std::string::npos) {
    return false;
  }
  const std::string ext = name.substr(name.size() - 4);
  return strcasecmp(ext.c_str(), ".dbf") == 0;
}

// Puts a reason in *why without ever failing its caller: a reason that
// cannot be had for want of memory is a shorter one.
void SayError(std::string* why, const char* what, const std::string& path) noexcept {
  const int saved = errno;
  try {
    *why = std::string(what) + " " + path + ": " + strerror(saved);
  } catch (...) {
    try {
      *why = "out of memory";
    } catch (...) {
    }
  }
}

// The journals of this process. Never destroyed: tables that are static
// objects of a program (the library's own three) close, and so release
// their journal, after the program's other statics are gone.
std::mutex& RegistryMutex() {
  static std::mutex* mutex = new std::mutex;
  return *mutex;
}

std::map<std::string, Journal*>& Registry() {
  static std::map<std::string, Journal*>* registry = new std::map<std::string, Journal*>;
  return *registry;
}

}  // namespace

Journal::Journal(const std::string& dir) : dir_(dir), bootId_(ReadBootId()) {
  bootKnown_ = !bootId_.empty();
}

Journal::~Journal() {
  if (fd_ >= 0) close(fd_);
}

Journal* Journal::Acquire(const std::string& dir) {
  std::lock_guard<std::mutex> guard(RegistryMutex());
  Journal*& journal = Registry()[dir];
  if (journal == nullptr) journal = new Journal(dir);
  ++journal->refs_;
  return journal;
}

void Journal::Release(Journal* journal) {
  if (journal == nullptr) return;
  std::lock_guard<std::mutex> guard(RegistryMutex());
  if (--journal->refs_ > 0) return;
  Registry().erase(journal->dir_);
  delete journal;
}

std::string Journal::Path() const {
  if (dir_.empty()) return kFileName;
  return dir_ + (dir_.back() == '/' ? "" : "/") + kFileName;
}

bool Journal::OpenFile(bool create, std::string* why) {
  // A process made by fork shares its parent's open file description, and
  // with it the parent's lock: it opens the journal anew.
  if (fd_ >= 0 && pid_ != getpid()) {
    close(fd_);
    fd_ = -1;
    writable_ = false;
  }
  pid_ = getpid();
  if (fd_ >= 0 && (writable_ || !create)) return true;
  int fd = open(Path().c_str(), O_RDWR | O_CLOEXEC | (create ? O_CREAT : 0), 0666);
  if (fd >= 0) {
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
    writable_ = true;
    return true;
  }
  if (create) {
    if (why != nullptr) *why = SystemError("cannot open the journal " + Path());
    return false;
  }
  if (fd_ >= 0) return true;
  fd_ = open(Path().c_str(), O_RDONLY | O_CLOEXEC);
  return fd_ >= 0;
}

bool Journal::TakeFileLock(int waitMs, std::string* why) {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMs);
  long pauseUs = 500;
  for (;;) {
    if (fcntl(fd_, F_OFD_SETLK, &lock) == 0) return true;
    if (errno != EAGAIN && errno != EACCES && errno != EINTR) {
      *why = SystemError("cannot lock " + Path());
      return false;
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      *why = "the tables of " + dir_ + " are held by another process (waited " +
             std::to_string(waitMs) + " ms for " + Path() + ")";
      return false;
    }
    struct timespec pause = {0, pauseUs * 1000};
    nanosleep(&pause, nullptr);
    pauseUs = std::min(pauseUs * 2, 20000L);
  }
}

void Journal::ReleaseFileLock() {
  struct flock lock = {};
  lock.l_type = F_UNLCK;
  lock.l_whence = SEEK_SET;
  fcntl(fd_, F_OFD_SETLK, &lock);
}

bool Journal::Lock(int waitMs, std::string* why) {
  if (!mutex_.try_lock_for(std::chrono::milliseconds(waitMs))) {
    SayError(why, "held by another thread:", dir_);
    return false;
  }
  if (depth_ > 0) {
    ++depth_;
    return true;
  }
  bool ok = false;
  try {
    ok = OpenFile(true, why) && TakeFileLock(waitMs, why);
    if (ok) {
      depth_ = 1;
      ok = Recover(why);
    }
  } catch (...) {
    ok = false;
    SayError(why, "out of memory completing a booking in", dir_);
  }
  if (!ok) {
    if (depth_ == 1) ReleaseFileLock();
    depth_ = 0;
    mutex_.unlock();
  }
  return ok;
}

bool Journal::CompleteUnfinished(std::string* why) {
  struct stat st;
  if (stat(Path().c_str(), &st) != 0) return true;  // no journal: nothing unfinished
  if (!mutex_.try_lock()) return true;
  bool ok = true;
  try {
    if (depth_ == 0 && OpenFile(true, why)) {
      struct flock lock = {};
      lock.l_type = F_WRLCK;
      lock.l_whence = SEEK_SET;
      if (fcntl(fd_, F_OFD_SETLK, &lock) == 0) {
        depth_ = 1;
        ok = Recover(why);
      }
    } else if (depth_ == 0) {
      ok = false;
    }
  } catch (...) {
    ok = false;
    SayError(why, "out of memory completing a booking in", dir_);
  }
  if (depth_ == 1) {
    ReleaseFileLock();
    depth_ = 0;
  }
  mutex_.unlock();
  return ok;
}

void Journal::Unlock() {
  if (depth_ == 0) return;
  if (--depth_ == 0) ReleaseFileLock();
  mutex_.unlock();
}

unsigned long long Journal::ChangeCount() {
  if (depth_ > 0) return changes_;
  if (!OpenFile(false, nullptr)) return 0;
  unsigned char head[kHeaderSize];
  if (!ReadFully(fd_, head, sizeof head, 0) || memcmp(head, kHeaderMagic, 8) != 0) return 0;
  return GetLittle(head + 52, 8);
}

void Journal::CountChange() {
  ++changes_;
  WriteHeader();
}

bool Journal::WriteHeader() {
  unsigned char head[kHeaderSize] = {};
  memcpy(head, kHeaderMagic, 8);
  memcpy(head + 8, bootId_.data(), std::min(bootId_.size(), kBootIdSize));
  for (int i = 0; i < 8; ++i) {
    head[44 + i] = static_cast<unsigned char>((static_cast<uint64_t>(applied_) >> (8 * i)) & 0xFF);
    head[52 + i] = static_cast<unsigned char>((changes_ >> (8 * i)) & 0xFF);
  }
  const uint32_t crc = Crc32(head, kHeaderSize - 4);
  for (int i = 0; i < 4; ++i) head[60 + i] = static_cast<unsigned char>((crc >> (8 * i)) & 0xFF);
  return WriteFully(fd_, head, sizeof head, 0);
}

bool Journal::ScanEntries(long long from, long long size, long long* end) {
  *end = from;
  if (size <= from) return true;
  std::string bytes(static_cast<size_t>(size - from), '\0');
  if (!ReadFully(fd_, &bytes[0], bytes.size(), from)) return false;
  const std::vector<Entry> entries = ParseEntries(bytes, from);
  if (!entries.empty()) *end = entries.back().end;
  return true;
}

bool Journal::Recover(std::string* why) {
  struct stat st;
  if (fstat(fd_, &st) != 0) {
    *why = SystemError("cannot read the journal " + Path());
    return false;
  }
  const long long size = static_cast<long long>(st.st_size);
  // A header or entries that cannot be read leave the journal as it is:
  // taken for a damaged or empty one, a waiting booking would be dropped.
  unsigned char head[kHeaderSize] = {};
  if (size >= kHeaderSize && !ReadFully(fd_, head, sizeof head, 0)) {
    *why = SystemError("cannot read the journal " + Path());
    return false;
  }
  bool valid = size >= kHeaderSize && memcmp(head, kHeaderMagic, 8) == 0 &&
               Crc32(head, kHeaderSize - 4) == static_cast<uint32_t>(GetLittle(head + 60, 4));
  changes_ = valid ? GetLittle(head + 52, 8) : 0;
  const bool sameBoot =
      valid && bootKnown_ && memcmp(head + 8, bootId_.data(), kBootIdSize) == 0;
  // In the same boot the entries before the applied mark are in the tables:
  // only what follows it is looked at (usually nothing). After a power cut
  // every entry since the last checkpoint is written again.
  long long from = kHeaderSize;
  if (sameBoot) {
    from = std::min<long long>(
        std::max<long long>(static_cast<long long>(GetLittle(head + 44, 8)), kHeaderSize), size);
  }
  lastStart_ = -1;
  if (sameBoot && from == size) {
    applied_ = end_ = size;
    return true;
  }
  if (!ScanEntries(from, size, &end_)) {
    *why = SystemError("cannot read the journal " + Path());
    return false;
  }
  // What follows the last whole entry never became durable.
  if (end_ < size && ftruncate(fd_, static_cast<off_t>(end_)) != 0) {
    *why = SystemError("cannot drop an unfinished entry of " + Path());
    return false;
  }
  std::vector<std::string> written;
  if (from < end_) {
    if (!Replay(from, end_, &written, why) || !SyncFiles(written, why)) return false;
    // Bookings are serialised and every lock completes what it finds first,
    // so in the same boot only the last booking can have been interrupted.
    TarvoTrace("\nQdbase: %s: completed %s", Path().c_str(),
               sameBoot ? "an interrupted booking" : "the bookings since the last checkpoint");
    ++changes_;
  }
  applied_ = end_;
  if (sameBoot) {
    if (!written.empty() && !WriteHeader()) {
      *why = SystemError("cannot write " + Path());
      return false;
    }
    return true;
  }
  // A new journal, or the first lock since the machine started: the tables
  // are now on disk whole, so the journal starts empty for this boot.
  applied_ = end_ = kHeaderSize;
  if (ftruncate(fd_, static_cast<off_t>(kHeaderSize)) != 0 || !WriteHeader() ||
      fdatasync(fd_) != 0) {
    *why = SystemError("cannot start the journal " + Path());
    return false;
  }
  return true;
}

bool Journal::Replay(long long from, long long to, std::vector<std::string>* written,
                     std::string* why) {
  std::string bytes(static_cast<size_t>(to - from), '\0');
  if (!ReadFully(fd_, &bytes[0], bytes.size(), from)) {
    *why = SystemError("cannot read the journal " + Path());
    return false;
  }
  std::map<std::string, int> files;
  std::set<std::string> gone;
  bool ok = true;
  for (const Entry& entry : ParseEntries(bytes, from)) {
    for (const JournalPart& part : entry.parts) {
      const std::string file(part.file);
      const std::string path = dir_ + "/" + file;
      // Only the tables of this directory are ever written: a part naming
      // anything else (the journal itself, a directory, another file) was
      // not written by a booking and is left out.
      if (!IsTableName(file)) {
        TarvoTrace("\nQdbase: %s: a journalled write to \"%s\" was not made: not a table",
                   Path().c_str(), file.c_str());
        continue;
      }
      auto it = files.find(file);
      if (it == files.end()) {
        const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        if (fd < 0 && errno == ENOENT) gone.insert(file);
        it = files.emplace(file, fd).first;
      }
      if (gone.count(file) != 0) {
        // A table removed since has nothing left to complete.
        TarvoTrace("\nQdbase: %s: a journalled write was not made: the file is gone",
                   path.c_str());
        continue;
      }
      struct stat st;
      if (it->second < 0 || fstat(it->second, &st) != 0) {
        *why = SystemError("cannot complete a booking in " + path);
        ok = false;
        break;
      }
      if (st.st_ino != part.inode) {
        // The file was replaced since (packed by another program): the
        // entry's offsets mean nothing in the new file.
        TarvoTrace("\nQdbase: %s: a journalled write was not made: the file was replaced",
                   path.c_str());
        continue;
      }
      // A booking writes in place or appends at the end; the parts of an
      // entry are written in order, so each starts within the file as the
      // parts before it left it. One beyond would leave a hole (or a huge
      // sparse file) and is no booking's.
      if (part.offset > static_cast<long long>(st.st_size)) {
        TarvoTrace("\nQdbase: %s: a journalled write past the end of the file was not made",
                   path.c_str());
        continue;
      }
      if (!WriteFully(it->second, part.bytes.data(), part.bytes.size(), part.offset)) {
        *why = SystemError("cannot complete a booking in " + path);
        ok = false;
        break;
      }
      if (std::find(written->begin(), written->end(), file) == written->end()) {
        written->push_back(file);
      }
    }
    if (!ok) break;
  }
  for (const auto& file : files) {
    if (file.second >= 0) close(file.second);
  }
  return ok;
}

bool Journal::SyncFiles(const std::vector<std::string>& names, std::string* why) {
  for (const std::string& name : names) {
    const std::string path = dir_ + "/" + name;
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool ok = fd >= 0 && fdatasync(fd) == 0;
    if (fd >= 0) close(fd);
    if (!ok) {
      *why = SystemError("cannot sync " + path);
      return false;
    }
  }
  return true;
}

bool Journal::Append(const std::vector<JournalPart>& parts, std::string* why) {
  size_t size = 0;
  const std::unique_ptr<char[]> entry = BuildEntry(parts, &size);
  const long long start = end_;
  if (!WriteFully(fd_, entry.get(), size, start) || fdatasync(fd_) != 0) {
    const int saved = errno;
    // Nothing of the entry may stay behind to be replayed later.
    if (ftruncate(fd_, static_cast<off_t>(start)) != 0 || fdatasync(fd_) != 0) {
      TarvoTrace("\nQdbase: %s/%s: a refused entry could not be removed", dir_.c_str(), kFileName);
    }
    errno = saved;
    SayError(why, "cannot write the journal", Path());
    return false;
  }
  lastStart_ = start;
  end_ = start + static_cast<long long>(size);
  return true;
}

void Journal::MarkApplied() {
  applied_ = end_;
  // A failed mark costs a second, identical write of the entry by the next
  // taker of the lock, nothing more.
  WriteHeader();
}

bool Journal::CancelLast(std::string* why) {
  if (lastStart_ < 0) return true;
  if (ftruncate(fd_, static_cast<off_t>(lastStart_)) != 0 || fdatasync(fd_) != 0) {
    SayError(why, "cannot remove an undone entry from", Path());
    return false;
  }
  end_ = lastStart_;
  lastStart_ = -1;
  return true;
}

bool Journal::ReplayLast(std::string* why) {
  if (lastStart_ < 0) return true;
  std::vector<std::string> written;
  return Replay(lastStart_, end_, &written, why) && SyncFiles(written, why);
}

bool Journal::WantsCheckpoint() const { return end_ > kCheckpointSize; }

bool Journal::Checkpoint(std::string* why) {
  if (end_ <= kHeaderSize) return true;
  // Read whole before it is looked at: no need to clear it first.
  const size_t size = static_cast<size_t>(end_ - kHeaderSize);
  const std::unique_ptr<char[]> bytes(new char[size]);
  if (!ReadFully(fd_, bytes.get(), size, kHeaderSize)) {
    *why = SystemError("cannot read the journal " + Path());
    return false;
  }
  if (!SyncFiles(NamesOf(bytes.get(), size), why)) return false;
  applied_ = end_ = kHeaderSize;
  lastStart_ = -1;
  if (ftruncate(fd_, static_cast<off_t>(kHeaderSize)) != 0 || !WriteHeader() ||
      fdatasync(fd_) != 0) {
    *why = SystemError("cannot empty the journal " + Path());
    return false;
  }
  return true;
}

}  // namespace qdb
