// A bookings journal (qslave.jnl) of arbitrary content beside two valid
// tables, as a process finds it after a crash, a power cut or a foreign
// program: the tables are opened (which completes what the journal says is
// unfinished), a booking is made and committed, and the tables are opened
// again.
//
// Input: byte 0 flags (bit 0: the header names this boot, so only what
// follows its applied mark is replayed; bit 1: the header's checksum is
// left wrong; bit 2: the rest is the journal's raw bytes after a valid
// header; bit 3: entries keep the checksums as given), byte 1 the applied
// mark (0: just after the header, 255: at the end, else that many bytes
// in), then entries: a part count (0..3) and per part a file choice, an
// offset, a length and the bytes, the inode of the named table filled in
// unless the file choice asks for the input's.
//
// Invariants (trapped): the directory holds afterwards what it held before
// (the tables, the journal, the harness's own files), neither table grew by more than the bytes the
// input holds, both tables open again with their record count, and the
// journal is left at least a header long.
#include <dirent.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fuzz_tables.h"
#include "host/qdbase.h"

namespace {

const QdbField kFields[] = {{"ID", 'N', 5, 0}, {"QTY", 'N', 10, 3}, {"NAME", 'C', 8, 0}};
std::string g_dir;
std::string g_pristineA, g_pristineB;
std::string g_bootId;

std::string ReadAll(const std::string& path) {
  std::string out;
  FILE* f = fopen(path.c_str(), "rb");
  if (f == nullptr) return out;
  char buf[4096];
  size_t n = 0;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
  fclose(f);
  return out;
}

// Rewrites a file in place (its inode stays, as the journal's parts name it).
void Overwrite(const std::string& path, const std::string& bytes) {
  FILE* f = fopen(path.c_str(), "wb");
  if (f == nullptr) __builtin_trap();
  if (!bytes.empty()) fwrite(bytes.data(), 1, bytes.size(), f);
  fclose(f);
}

void Put(std::string* s, uint64_t v, int bytes) {
  for (int i = 0; i < bytes; ++i) s->push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
}

uint32_t Crc(const std::string& s) {
  return static_cast<uint32_t>(
      crc32(0L, reinterpret_cast<const Bytef*>(s.data()), static_cast<uInt>(s.size())));
}

bool Bind(Qdbase* db, const char* base) {
  const char* names[] = {"ID"};
  const char* keys[] = {"ID"};
  return db->SetFiles(g_dir.c_str(), base, 1, names, keys) == 1 && db->Open() == 1;
}

// Reads input bytes one at a time, 0 once they are used up.
struct Cursor {
  const uint8_t* data;
  size_t size;
  size_t at = 0;
  uint8_t Byte() { return at < size ? data[at++] : 0; }
  uint64_t Number(int bytes) {
    uint64_t v = 0;
    for (int i = 0; i < bytes; ++i) v |= static_cast<uint64_t>(Byte()) << (8 * i);
    return v;
  }
  bool More() const { return at < size; }
};

std::string Entries(Cursor* in, bool keepChecksums, ino_t inodeA, ino_t inodeB) {
  std::string out;
  const char* names[] = {"a.dbf", "b.dbf", "c.dbf", "qslave.jnl", "..", "", "A.DBF", "x/a.dbf"};
  while (in->More() && out.size() < 8192) {
    std::string e = "QJE1";
    Put(&e, 0, 4);
    const int parts = in->Byte() % 4;
    Put(&e, static_cast<uint64_t>(parts), 4);
    for (int i = 0; i < parts; ++i) {
      const uint8_t choice = in->Byte();
      const std::string name = names[choice % 8];
      Put(&e, name.size(), 2);
      e += name;
      const ino_t inode = (choice & 0x10) ? static_cast<ino_t>(in->Number(2))
                          : name == "b.dbf"  ? inodeB
                                             : inodeA;
      Put(&e, static_cast<uint64_t>(inode), 8);
      const uint64_t offset = (choice & 0x20) ? in->Number(8) : in->Number(2);
      Put(&e, offset, 8);
      const size_t length = in->Byte() % 64;
      Put(&e, length, 4);
      for (size_t k = 0; k < length; ++k) e.push_back(static_cast<char>(in->Byte()));
    }
    const uint64_t len = e.size() + 4;
    for (int i = 0; i < 4; ++i) e[4 + i] = static_cast<char>((len >> (8 * i)) & 0xFF);
    Put(&e, keepChecksums ? in->Number(4) : Crc(e), 4);
    out += e;
  }
  return out;
}

std::string Header(bool sameBoot, uint64_t applied, bool badChecksum) {
  std::string h = "QSLVJNL1";
  std::string boot = sameBoot ? g_bootId : "00000000-0000-0000-0000-000000000000";
  boot.resize(36, '\0');
  h += boot;
  Put(&h, applied, 8);
  Put(&h, 1, 8);
  Put(&h, Crc(h) ^ (badChecksum ? 1u : 0u), 4);
  return h;
}

std::vector<std::string> Listing() {
  std::vector<std::string> names;
  DIR* d = opendir(g_dir.c_str());
  if (d == nullptr) __builtin_trap();
  while (dirent* e = readdir(d)) names.push_back(e->d_name);
  closedir(d);
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> g_listing;  // the directory with the tables and journal

void CheckDirectory() {
  if (Listing() != g_listing) __builtin_trap();  // a replay wrote something else
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  g_dir = qfuzz::InitDataDir();
  for (const char* base : {"a", "b"}) {
    if (Qdbase::Create(g_dir.c_str(), base, 3, kFields) != 1) __builtin_trap();
    Qdbase db;
    if (!Bind(&db, base)) __builtin_trap();
    for (long id = 1; id <= 3; ++id) {
      if (db.Append() != 1 || db.WriteLong("ID", id) != 1 ||
          db.WriteDouble("QTY", 100.0 * id) != 1) {
        __builtin_trap();
      }
    }
    db.Close();
  }
  g_pristineA = ReadAll(g_dir + "/a.dbf");
  g_pristineB = ReadAll(g_dir + "/b.dbf");
  Overwrite(g_dir + "/qslave.jnl", "");
  g_listing = Listing();
  g_bootId = ReadAll("/proc/sys/kernel/random/boot_id");
  while (!g_bootId.empty() && (g_bootId.back() == '\n' || g_bootId.back() == '\0')) {
    g_bootId.pop_back();
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 16384) return 0;
  Overwrite(g_dir + "/a.dbf", g_pristineA);
  Overwrite(g_dir + "/b.dbf", g_pristineB);
  struct stat a, b;
  if (stat((g_dir + "/a.dbf").c_str(), &a) != 0 || stat((g_dir + "/b.dbf").c_str(), &b) != 0) {
    __builtin_trap();
  }
  Cursor in{data, size};
  const uint8_t flags = in.Byte();
  const uint8_t mark = in.Byte();
  std::string body;
  if (flags & 4) {
    body.assign(reinterpret_cast<const char*>(data) + in.at, size - in.at);
  } else {
    body = Entries(&in, (flags & 8) != 0, a.st_ino, b.st_ino);
  }
  const uint64_t applied = mark == 0 ? 64 : mark == 255 ? 64 + body.size() : 64 + mark;
  Overwrite(g_dir + "/qslave.jnl", Header(flags & 1, applied, flags & 2) + body);

  long counts[2] = {0, 0};
  {
    Qdbase ta, tb;
    const bool open = Bind(&ta, "a") && Bind(&tb, "b");
    if (open) {
      counts[0] = ta.RecCount();
      counts[1] = tb.RecCount();
      QdbBooking booking(&ta, &tb);
      if (booking.Ok() && ta.Go(1) == 1) {
        double q = 0;
        if (ta.ReadDouble("QTY", &q) == 1) ta.WriteDouble("QTY", q - 1.0);
        if (tb.Append() == 1) tb.WriteLong("ID", 9);
        booking.Commit();
      }
    }
  }
  CheckDirectory();
  const size_t grown = size + 4096;
  if (ReadAll(g_dir + "/a.dbf").size() > g_pristineA.size() + grown ||
      ReadAll(g_dir + "/b.dbf").size() > g_pristineB.size() + grown) {
    __builtin_trap();  // a replay extended a table by more than it carried
  }
  {
    Qdbase ta, tb;
    if (counts[0] > 0 && (!Bind(&ta, "a") || !Bind(&tb, "b") || ta.RecCount() < 1)) {
      __builtin_trap();  // tables that opened before the booking no longer do
    }
  }
  if (ReadAll(g_dir + "/qslave.jnl").size() < 64) __builtin_trap();
  return 0;
}
