// dBase files of every dialect the table class reads, generated from the
// input so that most of them are well formed: dBase III (0x03, 0x83), dBase
// IV (0x8B), FoxPro 2 (0xF5), Visual FoxPro (0x30, 0x31) and, now and then,
// one it refuses. Fields of every type with fitting (or, on a flag, wrong)
// widths, Visual FoxPro's field flags, null flags and 263-byte tail,
// Clipper's wide texts, records from the input and a header count that
// may disagree with the file.
//
// Input: byte 0 the version choice, byte 1 flags (bit 0: wrong widths
// allowed, bits 1-2: header count -1/0/+1), byte 2 the field count (1..8),
// then per field a type choice, a width, decimals and flags; then the
// record bytes. Every read runs (typed, into small buffers, TextLength,
// FieldWidth, FieldType), with navigation and an index on the first field;
// then on the same file writes, WriteStringAt, Append, Delete, Pack and a
// booking. Traps: the version byte, the code-page mark or Visual FoxPro's
// tail changed by any of it, or a text read past its buffer.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "fuzz_tables.h"
#include "host/qdbase.h"

namespace {

std::string g_dir;
std::string g_file;

const unsigned char kVersions[] = {0x03, 0x83, 0x8B, 0xF5, 0x30, 0x31, 0x04, 0x32};
const char kTypes[] = {'C', 'N', 'F', 'L', 'D', 'M', 'I', 'B', 'Y', 'T', 'G', 'V'};

int FittingWidth(char type, bool vfp, int asked) {
  switch (type) {
    case 'L': return 1;
    case 'D': return 8;
    case 'M': case 'G': return vfp ? 4 : 10;
    case 'I': return 4;
    case 'B': case 'Y': case 'T': return 8;
    case 'C': return asked == 0 ? 1 : asked;
    default: return asked == 0 ? 1 : (asked > 20 ? 20 : asked);
  }
}

struct Cursor {
  const uint8_t* data;
  size_t size;
  size_t at = 0;
  uint8_t Byte() { return at < size ? data[at++] : 0; }
};

std::string Generate(Cursor* in, std::vector<std::string>* names, bool* vfpOut) {
  const unsigned char version = kVersions[in->Byte() % 8];
  const uint8_t flags = in->Byte();
  const bool vfp = version == 0x30 || version == 0x31;
  *vfpOut = vfp;
  const int count = 1 + in->Byte() % 8;
  std::string descriptors;
  int recordLength = 1;
  int nullable = 0;
  for (int i = 0; i < count; ++i) {
    const char type = kTypes[in->Byte() % sizeof kTypes];
    int width = in->Byte();
    const int wideHigh = (type == 'C' && !vfp) ? in->Byte() % 2 : 0;
    if (!(flags & 1)) width = FittingWidth(type, vfp, width);
    const int decimals = (type == 'N' || type == 'F' || type == 'B') ? in->Byte() % 4 : 0;
    const uint8_t fieldFlags = vfp ? (in->Byte() & 0x06) : 0;
    if (fieldFlags & 0x02) ++nullable;
    std::string d(32, '\0');
    char name[11];
    snprintf(name, sizeof name, "F%d", i + 1);
    names->push_back(name);
    memcpy(&d[0], name, strlen(name));
    d[11] = type;
    if (vfp) {
      for (int k = 0; k < 4; ++k) d[12 + k] = static_cast<char>((recordLength >> (8 * k)) & 0xFF);
    }
    d[16] = static_cast<char>(width & 0xFF);
    d[17] = static_cast<char>(wideHigh ? 1 : decimals);
    d[18] = static_cast<char>(fieldFlags);
    descriptors += d;
    recordLength += width + 256 * wideHigh;
  }
  if (vfp && nullable > 0) {
    std::string d(32, '\0');
    memcpy(&d[0], "_NullFlags", 10);
    d[11] = '0';
    for (int k = 0; k < 4; ++k) d[12 + k] = static_cast<char>((recordLength >> (8 * k)) & 0xFF);
    d[16] = static_cast<char>((nullable + 7) / 8);
    d[18] = 0x05;
    descriptors += d;
    recordLength += (nullable + 7) / 8;
  }
  const int headerLength = 32 + static_cast<int>(descriptors.size()) + 1 + (vfp ? 263 : 0);
  std::string records;
  int n = 0;
  while (in->at < in->size && n < 8) {
    std::string r(static_cast<size_t>(recordLength), ' ');
    r[0] = (in->Byte() & 1) ? '*' : ' ';
    for (size_t k = 1; k < r.size(); ++k) r[k] = static_cast<char>(in->Byte());
    records += r;
    ++n;
  }
  const int delta = ((flags >> 1) & 3) == 1 ? -1 : ((flags >> 1) & 3) == 2 ? 1 : 0;
  const long stored = n + delta < 0 ? 0 : n + delta;
  std::string out(32, '\0');
  out[0] = static_cast<char>(version);
  out[1] = 126;
  out[2] = 11;
  out[3] = 22;
  for (int k = 0; k < 4; ++k) out[4 + k] = static_cast<char>((stored >> (8 * k)) & 0xFF);
  out[8] = static_cast<char>(headerLength & 0xFF);
  out[9] = static_cast<char>((headerLength >> 8) & 0xFF);
  out[10] = static_cast<char>(recordLength & 0xFF);
  out[11] = static_cast<char>((recordLength >> 8) & 0xFF);
  out[29] = 0x57;
  out += descriptors;
  out += '\x0D';
  if (vfp) {
    std::string tail(263, '\0');
    memcpy(&tail[0], "shop.dbc", 8);
    out += tail;
  }
  out += records;
  out += '\x1A';
  return out;
}

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

void ReadEverything(Qdbase& t, const std::vector<std::string>& names) {
  t.IsDeleted();
  for (const std::string& n : names) {
    const char* f = n.c_str();
    long l = 0;
    int i = 0;
    double d = 0;
    t.ReadLong(f, &l);
    t.ReadInt(f, &i);
    t.ReadDouble(f, &d);
    t.ReadLogical(f, &i);
    t.TextLength(f);
    t.FieldWidth(f);
    t.FieldType(f);
    for (int size : {1, 3, 9, 300}) {
      std::vector<char> buf(static_cast<size_t>(size));
      t.ReadString(f, buf.data(), size, 1, 1);
      if (strnlen(buf.data(), buf.size()) >= buf.size()) __builtin_trap();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  g_dir = qfuzz::InitDataDir();
  g_file = g_dir + "/fd.dbf";
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 8192) return 0;
  Cursor in{data, size};
  std::vector<std::string> names;
  bool vfp = false;
  const std::string file = Generate(&in, &names, &vfp);
  {
    FILE* f = fopen(g_file.c_str(), "wb");
    if (f == nullptr) __builtin_trap();
    fwrite(file.data(), 1, file.size(), f);
    fclose(f);
  }
  const size_t descriptorsEnd = file.find('\x0D', 32);
  {
    const char* idxNames[1] = {"I1"};
    const char* keys[1] = {names[0].c_str()};
    Qdbase t;
    const bool indexed = t.SetFiles(g_dir.c_str(), "fd", 1, idxNames, keys) == 1 && t.Open() == 1;
    Qdbase plain;
    Qdbase& db = indexed ? t : plain;
    if (indexed || (plain.SetFiles(g_dir.c_str(), "fd", 0, nullptr, nullptr) == 1 &&
                    plain.Open() == 1)) {
      for (int idx = 0; idx <= (indexed ? 1 : 0); ++idx) {
        db.SelectIdx(idx);
        int steps = 0;
        for (int more = db.Top(); more && !db.Eof() && steps < 16; more = db.Next(), ++steps) {
          ReadEverything(db, names);
        }
        db.Seek("1");
        db.Seek(1.0);
      }
      if (db.Go(1) == 1) {
        db.WriteString(names[0].c_str(), "12");
        db.WriteStringAt(names[0].c_str(), 1, "X");
        db.WriteDouble(names.back().c_str(), 3.5);
        db.WriteLong(names[0].c_str(), 7);
      }
      {
        QdbBooking booking(&db);
        if (booking.Ok() && db.Append() == 1) {
          db.WriteLong(names[0].c_str(), 5);
          booking.Commit();
        }
      }
      if (db.Go(1) == 1) db.Delete();
      db.Pack();
      ReadEverything(db, names);
      db.Close();
      const std::string after = ReadAll(g_file);
      // The dialect, the code page, the descriptors and Visual FoxPro's
      // tail are the file's own: no write changes them.
      if (after.size() < 32 || after[0] != file[0] || after[29] != file[29]) __builtin_trap();
      if (descriptorsEnd != std::string::npos) {
        const size_t tailEnd = descriptorsEnd + 1 + (vfp ? 263 : 0);
        if (after.size() < tailEnd || after.compare(32, tailEnd - 32, file, 32, tailEnd - 32) != 0) {
          __builtin_trap();
        }
      }
    }
  }
  unlink(g_file.c_str());
  return 0;
}
