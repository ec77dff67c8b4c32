// Raw bytes as a dBase file, opened and walked through Qdbase: every
// navigation, typed reads of every field (by name and by number, which
// must agree) into buffers of several sizes, indexes on its fields with
// seeks, and on a copy of the file writes (by name and by number), an
// append, a delete, Pack and RebuildIndex.
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

// Longest walk over the records: enough to reach every kind of record a
// small input can hold, small enough to keep each run short.
const int kMaxSteps = 200;

std::string g_file;
std::string g_copy;

void Spill(const std::string& path, const uint8_t* data, size_t size) {
  FILE* f = fopen(path.c_str(), "wb");
  if (f == nullptr) return;
  if (size > 0) fwrite(data, 1, size, f);
  fclose(f);
}

// The field names the header declares, as the table knows them.
std::vector<std::string> FieldNames(const Qdbase& t, const uint8_t* data, size_t size) {
  std::vector<std::string> names;
  for (size_t off = 32; off + 32 <= size && data[off] != 0x0D && names.size() < 64; off += 32) {
    char name[12];
    memcpy(name, data + off, 11);
    name[11] = '\0';
    if (name[0] != '\0' && t.FieldNo(name) > 0) names.push_back(name);
  }
  return names;
}

void ReadEverything(Qdbase& t, const std::vector<std::string>& names) {
  t.IsDeleted();
  t.RecNo();
  for (const std::string& n : names) {
    const char* f = n.c_str();
    long l = 0;
    int i = 0;
    double d = 0;
    const int longRead = t.ReadLong(f, &l);
    t.ReadInt(f, &i);
    const int doubleRead = t.ReadDouble(f, &d);
    t.ReadLogical(f, &i);
    // By number, the same answers as by name.
    const int no = t.FieldNo(f);
    long byNumber = 0;
    double dByNumber = 0;
    if (t.ReadFieldLong(no, &byNumber) != longRead || byNumber != l) __builtin_trap();
    if (t.ReadFieldDouble(no, &dByNumber) != doubleRead ||
        memcmp(&dByNumber, &d, sizeof d) != 0) {
      __builtin_trap();
    }
    for (int size : {1, 2, 6, 12, 300}) {
      // Exactly size bytes on the heap: a write past them is caught.
      std::vector<char> buf(static_cast<size_t>(size));
      t.ReadString(f, buf.data(), size, 0, 0);
      if (strnlen(buf.data(), buf.size()) >= buf.size()) __builtin_trap();
      t.ReadString(f, buf.data(), size, 1, 1);
      if (strnlen(buf.data(), buf.size()) >= buf.size()) __builtin_trap();
    }
  }
  long l = 0;
  t.ReadLong("NO_SUCH", &l);
  if (t.ReadFieldLong(t.FieldCount() + 1, &l) != 0 || t.ReadFieldLong(0, &l) != 0) {
    __builtin_trap();
  }
}

void Walk(Qdbase& t, const std::vector<std::string>& names) {
  int steps = 0;
  for (int more = t.Top(); more && !t.Eof() && steps < kMaxSteps; more = t.Next(), ++steps) {
    ReadEverything(t, names);
  }
  t.Next();
  t.Eof();
  t.Prev();
  steps = 0;
  for (int more = t.Bottom(); more && !t.Bof() && steps < kMaxSteps; more = t.Prev(), ++steps) {
    ReadEverything(t, names);
  }
  t.Prev();
  t.Bof();
  t.Next();
  const long count = t.RecCount();
  for (long r : {-1L, 0L, 1L, count / 2, count, count + 1}) {
    if (t.Go(r)) ReadEverything(t, names);
  }
}

// Seeks with keys taken from the first record and a few fixed ones.
void Seeks(Qdbase& t, const std::vector<std::string>& names) {
  std::vector<std::string> keys = {"", " ", "    1", "1", "-1", "1e300", "abc", "ZARVO"};
  if (t.Top() && !names.empty()) {
    char buf[300];
    if (t.ReadString(names[0].c_str(), buf, sizeof buf, 0, 0)) keys.push_back(buf);
    if (t.ReadString(names[0].c_str(), buf, sizeof buf, 1, 0)) keys.push_back(buf);
  }
  for (const std::string& k : keys) {
    t.Seek(k.c_str());
    if (!t.Eof()) t.RecNo();
  }
  for (double k : {0.0, 1.0, -1.0, 1e18, 12345.5}) t.Seek(k);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const std::string& dir = qfuzz::InitDataDir();
  g_file = dir + "/fz.dbf";
  g_copy = dir + "/fzcopy.dbf";
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 65536) return 0;
  const std::string& dir = qfuzz::DataDir();
  Spill(g_file, data, size);

  std::vector<std::string> names;
  {
    Qdbase t;
    if (t.SetFiles(dir.c_str(), "fz", 0, nullptr, nullptr) != 1 || t.Open() != 1) {
      unlink(g_file.c_str());
      return 0;
    }
    names = FieldNames(t, data, size);
    Walk(t, names);
    t.Seek("x");  // record order: refused
    t.Close();
  }

  if (!names.empty()) {
    const std::string a = names[0];
    const std::string b = names.size() > 1 ? names[1] : names[0];
    const std::string k2 = "VAL(" + a + ")*1000+" + b;
    const std::string k3 = "STR(" + a + ",5)+" + b;
    const char* idxNames[3] = {"I1", "I2", "I3"};
    const char* keys[3] = {a.c_str(), k2.c_str(), k3.c_str()};
    Qdbase t;
    if (t.SetFiles(dir.c_str(), "fz", 3, idxNames, keys) == 1 && t.Open() == 1) {
      for (int idx = 0; idx <= 3; ++idx) {
        t.SelectIdx(idx);
        Walk(t, names);
        Seeks(t, names);
      }
      t.Close();
    }
  }

  // Changes on a copy, with an index on the first field when it can have one.
  Spill(g_copy, data, size);
  {
    const char* idxNames[1] = {"I1"};
    const char* keys[1] = {names.empty() ? "" : names[0].c_str()};
    Qdbase t;
    bool open = !names.empty() && t.SetFiles(dir.c_str(), "fzcopy", 1, idxNames, keys) == 1 &&
                t.Open() == 1;
    if (!open) {
      Qdbase plain;
      if (plain.SetFiles(dir.c_str(), "fzcopy", 0, nullptr, nullptr) == 1 && plain.Open() == 1) {
        plain.Append();
        plain.Delete();
        plain.Pack();
        plain.Close();
      }
    } else {
      if (t.Top()) {
        bool byNumber = false;
        for (const std::string& n : names) {
          char buf[300];
          if (t.ReadString(n.c_str(), buf, sizeof buf, 0, 0)) t.WriteString(n.c_str(), buf);
          double d = 0;
          // Every other number is written by field number.
          if (t.ReadDouble(n.c_str(), &d)) {
            if (byNumber) {
              t.WriteFieldDouble(t.FieldNo(n.c_str()), d + 1);
            } else {
              t.WriteDouble(n.c_str(), d + 1);
            }
          }
          byNumber = !byNumber;
        }
      }
      if (t.Append()) {
        for (const std::string& n : names) {
          t.WriteString(n.c_str(), "1");
          t.WriteLong(n.c_str(), 42);
          t.WriteLogical(n.c_str(), 1);
        }
      }
      if (t.Go(1)) t.Delete();
      t.Pack();
      Walk(t, names);
      t.RebuildIndex();
      t.Close();
    }
  }
  unlink(g_file.c_str());
  unlink(g_copy.c_str());
  // Pack's leftovers, if any, would accumulate.
  qfuzz::Restore();
  return 0;
}
