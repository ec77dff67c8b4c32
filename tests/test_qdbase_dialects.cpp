// The table class on the dBase dialects point-of-sale software leaves
// behind, built byte by byte here as those programs write them: dBase III
// (0x03, and 0x83 with a memo file), dBase IV (0x8B), FoxPro 2 (0xF5) and
// Visual FoxPro (0x30, 0x31) with its binary integers, doubles, currency,
// date-times, null flags and 263-byte tail. Each is read, written, appended
// to, deleted from and packed; the bytes nobody wrote stay as they were
// (version byte, code-page mark, memo file, Visual FoxPro's tail), and an
// independent reader (python3-dbfread) reads the result. What the class
// cannot serve is refused with its reason.
#include <gtest/gtest.h>
#include <string.h>

#include <ostream>
#include <string>
#include <vector>

#include "host/qdbase.h"
#include "test_support.h"

namespace {

using qtest::PyQuote;
using qtest::ReadFile;
using qtest::RunPython;
using qtest::TempDir;
using qtest::TraceCapture;
using qtest::WriteFile;

struct Field {
  const char* name;
  char type;
  int width;
  int decimals;
  unsigned char flags;  // Visual FoxPro: 0x01 system, 0x02 nullable
};

void PutLe(std::string* s, size_t at, unsigned long long v, int bytes) {
  for (int i = 0; i < bytes; ++i) (*s)[at + i] = static_cast<char>((v >> (8 * i)) & 0xFF);
}

std::string Le(unsigned long long v, int bytes) {
  std::string s(static_cast<size_t>(bytes), '\0');
  PutLe(&s, 0, v, bytes);
  return s;
}

std::string Double(double d) {
  unsigned long long bits = 0;
  memcpy(&bits, &d, sizeof bits);
  return Le(bits, 8);
}

// A table file: header, descriptors, terminator, Visual FoxPro's tail for
// versions 0x30/0x31, the records (each given without its deletion flag)
// and the end mark. countDelta makes the header's count disagree.
std::string Table(unsigned char version, const std::vector<Field>& fields,
                  const std::vector<std::string>& records, int countDelta = 0) {
  const bool vfp = version == 0x30 || version == 0x31;
  int recordLength = 1;
  for (const Field& f : fields) recordLength += f.width;
  const int headerLength = 32 + 32 * static_cast<int>(fields.size()) + 1 + (vfp ? 263 : 0);
  std::string out(32, '\0');
  out[0] = static_cast<char>(version);
  out[1] = 126;
  out[2] = 11;
  out[3] = 22;
  PutLe(&out, 4, static_cast<unsigned long long>(static_cast<long>(records.size()) + countDelta),
        4);
  PutLe(&out, 8, static_cast<unsigned>(headerLength), 2);
  PutLe(&out, 10, static_cast<unsigned>(recordLength), 2);
  out[29] = vfp ? 0x03 : 0x57;  // a code-page mark, kept as it is
  int offset = 1;
  for (const Field& f : fields) {
    std::string d(32, '\0');
    memcpy(&d[0], f.name, strlen(f.name));
    d[11] = f.type;
    if (vfp) PutLe(&d, 12, static_cast<unsigned>(offset), 4);
    d[16] = static_cast<char>(f.width & 0xFF);
    d[17] = static_cast<char>(f.type == 'C' && !vfp ? (f.width >> 8) : f.decimals);
    d[18] = static_cast<char>(f.flags);
    out += d;
    offset += f.width;
  }
  out += '\x0D';
  if (vfp) {
    std::string tail(263, '\0');  // the database container's name, kept
    memcpy(&tail[0], "shop.dbc", 8);
    out += tail;
  }
  for (const std::string& r : records) {
    EXPECT_EQ(static_cast<int>(r.size()) + 1, recordLength) << "record layout";
    out += ' ' + r;
  }
  out += '\x1A';
  return out;
}

std::string Pad(const std::string& text, size_t width, bool right = false) {
  std::string s = text.substr(0, width);
  return right ? std::string(width - s.size(), ' ') + s : s + std::string(width - s.size(), ' ');
}

class QdbaseDialects : public ::testing::Test {
 protected:
  // Opens base.dbf of the directory (no indexes).
  bool Open(Qdbase* db, const char* base = "t") {
    return db->SetFiles(dir_.path().c_str(), base, 0, nullptr, nullptr) == 1 && db->Open() == 1;
  }
  std::string Path(const char* name = "t.dbf") { return dir_.file(name); }

  // The byte positions where two files differ, as "at:before>after".
  static std::vector<size_t> Changed(const std::string& a, const std::string& b) {
    std::vector<size_t> at;
    for (size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
      if (i >= a.size() || i >= b.size() || a[i] != b[i]) at.push_back(i);
    }
    return at;
  }

  // What python3-dbfread reads: one line per record, fields by '|'.
  std::string Dbfread(const char* name = "t.dbf") {
    std::string out;
    RunPython("import dbfread\n"
              "for r in dbfread.DBF(" + PyQuote(Path(name)) +
                  ", ignore_missing_memofile=True):\n"
                  "    print('|'.join(str(v).rstrip() for v in r.values()))\n",
              &out);
    return out;
  }

  TempDir dir_;
  TraceCapture trace_;
};

// --- dBase III, IV and FoxPro 2 ---------------------------------------------------

struct TextDialect {
  unsigned char version;
  const char* memoFile;  // beside the table, or ""
  char memoType;         // 'M', or 0 for none
};

// How a case is named in failure messages (and never as raw bytes, whose
// padding is uninitialised).
void PrintTo(const TextDialect& d, std::ostream* os) {
  *os << "version " << static_cast<int>(d.version) << " memo \"" << d.memoFile << "\"";
}

class TextDialects : public QdbaseDialects, public ::testing::WithParamInterface<TextDialect> {};

TEST_P(TextDialects, ReadWriteAppendDeleteAndPackKeepEverythingElse) {
  const TextDialect& p = GetParam();
  std::vector<Field> fields = {{"ID", 'N', 5, 0, 0}, {"NAME", 'C', 300, 0, 0},
                               {"QTY", 'N', 12, 3, 0}, {"RATE", 'F', 10, 2, 0},
                               {"ON", 'L', 1, 0, 0}, {"DAY", 'D', 8, 0, 0}};
  if (p.version == 0x03 || p.version == 0x83) fields[3].type = 'N';  // no F in dBase III
  if (p.memoType != 0) fields.push_back({"NOTE", p.memoType, 10, 0, 0});
  auto record = [&](long id, const std::string& name, const std::string& qty) {
    std::string r = Pad(std::to_string(id), 5, true) + Pad(name, 300) + Pad(qty, 12, true) +
                    Pad("1.50", 10, true) + "T" + "20261122";
    if (p.memoType != 0) r += Pad("1", 10, true);
    return r;
  };
  const std::string wide = std::string(280, 'W') + "END";
  WriteFile(Path(), Table(p.version, fields,
                          {record(1, wide, "100.000"), record(2, "two", "200.000"),
                           record(3, "three", "300.000")}));
  const std::string memo = std::string(512, '\0') + "a memo nobody here writes\x1A\x1A";
  if (*p.memoFile != 0) WriteFile(Path(p.memoFile), memo);
  const std::string before = ReadFile(Path());

  Qdbase db;
  ASSERT_TRUE(Open(&db)) << trace_.text();
  EXPECT_EQ(db.RecCount(), 3);
  EXPECT_EQ(db.FieldWidth("NAME"), 300);
  ASSERT_EQ(db.Go(1), 1);
  char text[16];
  EXPECT_EQ(db.ReadString("NAME", text, sizeof text, 1, 1), 1);
  EXPECT_STREQ(text, "WWWWWWWWWWWWWWW");  // the leading part of 283 characters
  EXPECT_EQ(db.TextLength("NAME"), 283);
  double qty = 0, rate = 0;
  EXPECT_EQ(db.ReadDouble("QTY", &qty), 1);
  EXPECT_EQ(db.ReadDouble("RATE", &rate), 1);
  EXPECT_DOUBLE_EQ(qty, 100.0);
  EXPECT_DOUBLE_EQ(rate, 1.5);
  int on = 0;
  EXPECT_EQ(db.ReadLogical("ON", &on), 1);
  EXPECT_EQ(on, 1);

  // A number written changes the bytes of its field alone.
  ASSERT_EQ(db.Go(2), 1);
  EXPECT_EQ(db.WriteDouble("QTY", 190.5), 1);
  std::string written = ReadFile(Path());
  const size_t rec2 = before.find(record(2, "two", "200.000"));
  ASSERT_NE(rec2, std::string::npos);
  for (size_t at : Changed(before, written)) {
    EXPECT_TRUE(at >= rec2 + 305 && at < rec2 + 317) << "byte " << at;
  }
  EXPECT_EQ(written.substr(rec2 + 305, 12), "     190.500");

  // Append, delete and pack: the dialect, code page and memo file stay.
  ASSERT_EQ(db.Append(), 1);
  EXPECT_EQ(db.WriteLong("ID", 4), 1);
  EXPECT_EQ(db.WriteString("NAME", "four"), 1);
  EXPECT_EQ(db.WriteDouble("QTY", 40.0), 1);
  ASSERT_EQ(db.Go(1), 1);
  EXPECT_EQ(db.Delete(), 1);
  EXPECT_EQ(db.Pack(), 1);
  EXPECT_EQ(db.RecCount(), 3);
  ASSERT_EQ(db.Close(), 1);
  const std::string after = ReadFile(Path());
  EXPECT_EQ(after[0], before[0]);
  EXPECT_EQ(after[29], before[29]);
  EXPECT_EQ(after.substr(8, 4), before.substr(8, 4)) << "header and record lengths";
  const size_t descriptors = 32 + 32 * fields.size() + 1;
  EXPECT_EQ(after.substr(32, descriptors - 32), before.substr(32, descriptors - 32));
  if (*p.memoFile != 0) {
    EXPECT_EQ(ReadFile(Path(p.memoFile)), memo);
  }

  const std::string read = Dbfread();
  EXPECT_NE(read.find("2|two|190.5|"), std::string::npos) << read;
  EXPECT_NE(read.find("4|four|40.0|"), std::string::npos) << read;
  EXPECT_EQ(read.find(wide), std::string::npos) << "the deleted record is gone\n" << read;
}

INSTANTIATE_TEST_SUITE_P(Dialects, TextDialects,
                         ::testing::Values(TextDialect{0x03, "", 0},
                                           TextDialect{0x83, "t.dbt", 'M'},
                                           TextDialect{0x8B, "t.dbt", 'M'},
                                           TextDialect{0xF5, "t.fpt", 'M'}),
                         [](const ::testing::TestParamInfo<TextDialect>& info) {
                           char name[16];
                           snprintf(name, sizeof name, "Version%02X", info.param.version);
                           return std::string(name);
                         });

// --- Visual FoxPro ------------------------------------------------------------------

class VisualFoxPro : public QdbaseDialects, public ::testing::WithParamInterface<unsigned char> {
 protected:
  const std::vector<Field> kFields = {
      {"ID", 'I', 4, 0, 0},      {"NAME", 'C', 12, 0, 0x02}, {"QTY", 'B', 8, 3, 0},
      {"PRICE", 'Y', 8, 4, 0},   {"WHEN", 'T', 8, 0, 0},     {"LEVEL", 'N', 10, 3, 0},
      {"_NullFlags", '0', 1, 0, 0x05}};
  std::string Record(long id, const std::string& name, double qty, long long priceTenThousandths,
                     bool nameNull) {
    return Le(static_cast<unsigned long long>(id), 4) + Pad(name, 12) + Double(qty) +
           Le(static_cast<unsigned long long>(priceTenThousandths), 8) + std::string(8, '\0') +
           Pad("12.500", 10, true) + std::string(1, nameNull ? '\x01' : '\0');
  }
};

TEST_P(VisualFoxPro, BinaryNumbersNullsAndTheTailSurviveEveryWrite) {
  WriteFile(Path(), Table(GetParam(), kFields,
                          {Record(7, "seven", 2.25, 123456, false),
                           Record(8, "hidden", 1.0, 0, true), Record(9, "nine", -3.5, -10000,
                                                                     false)}));
  const std::string before = ReadFile(Path());
  Qdbase db;
  ASSERT_TRUE(Open(&db)) << trace_.text();
  ASSERT_EQ(db.RecCount(), 3);
  ASSERT_EQ(db.Go(1), 1);
  long id = 0;
  double qty = 0, price = 0;
  EXPECT_EQ(db.ReadLong("ID", &id), 1);
  EXPECT_EQ(db.ReadDouble("QTY", &qty), 1);
  EXPECT_EQ(db.ReadDouble("PRICE", &price), 1);
  EXPECT_EQ(id, 7);
  EXPECT_DOUBLE_EQ(qty, 2.25);
  EXPECT_DOUBLE_EQ(price, 12.3456);
  char name[16];
  ASSERT_EQ(db.Go(2), 1);
  EXPECT_EQ(db.ReadString("NAME", name, sizeof name, 1, 1), 1);
  EXPECT_STREQ(name, "") << "a NULL field reads as a blank one";
  ASSERT_EQ(db.Go(3), 1);
  EXPECT_EQ(db.ReadDouble("PRICE", &price), 1);
  EXPECT_DOUBLE_EQ(price, -1.0);

  // Binary writes change their own bytes only.
  EXPECT_EQ(db.WriteLong("ID", 90), 1);
  EXPECT_EQ(db.WriteDouble("QTY", 4.75), 1);
  EXPECT_EQ(db.WriteDouble("PRICE", 2.5), 1);
  const std::string written = ReadFile(Path());
  const size_t header = 32 + 32 * kFields.size() + 1 + 263;
  const size_t rec3 = header + 2 * 52;
  for (size_t at : Changed(before, written)) {
    EXPECT_TRUE(at >= rec3 + 1 && at < rec3 + 33 && !(at >= rec3 + 5 && at < rec3 + 17))
        << "byte " << at;
  }
  EXPECT_EQ(written.substr(rec3 + 1, 4), Le(90, 4));
  EXPECT_EQ(written.substr(rec3 + 17, 8), Double(4.75));
  EXPECT_EQ(written.substr(rec3 + 25, 8), Le(25000, 8));

  ASSERT_EQ(db.Append(), 1);
  EXPECT_EQ(db.WriteLong("ID", 10), 1);
  ASSERT_EQ(db.Go(1), 1);
  EXPECT_EQ(db.Delete(), 1);
  EXPECT_EQ(db.Pack(), 1);
  ASSERT_EQ(db.Close(), 1);
  const std::string after = ReadFile(Path());
  EXPECT_EQ(after[0], before[0]);
  EXPECT_EQ(after[29], before[29]);
  EXPECT_EQ(after.substr(8, header - 8), before.substr(8, header - 8))
      << "descriptors and the 263-byte tail";
  const std::string read = Dbfread();
  EXPECT_NE(read.find("90|nine|"), std::string::npos) << read;
  EXPECT_NE(read.find("10|"), std::string::npos) << read;
  EXPECT_EQ(read.find("7|seven"), std::string::npos) << read;
}

INSTANTIATE_TEST_SUITE_P(Versions, VisualFoxPro, ::testing::Values(0x30, 0x31),
                         [](const ::testing::TestParamInfo<unsigned char>& info) {
                           return info.param == 0x30 ? std::string("Version30")
                                                     : std::string("Version31");
                         });

// --- Refusals and record counts --------------------------------------------------------

TEST_F(QdbaseDialects, WhatCannotBeServedIsRefusedWithItsReason) {
  struct Refusal {
    unsigned char version;
    Field field;
    const char* reason;
  };
  const Refusal refusals[] = {
      {0x04, {"ID", 'N', 5, 0, 0}, "version byte 0x04 (dBase 7) is not served"},
      {0x32, {"ID", 'N', 5, 0, 0},
       "version byte 0x32 (Visual FoxPro with varchar fields) is not served"},
      {0x30, {"NAME", 'V', 10, 0, 0},
       "field NAME has type V (varchar), which this table class does not serve"},
      {0x03, {"ID", 'Z', 5, 0, 0},
       "corrupt header: field ID has type Z, which dBase III tables do not have"},
      {0x03, {"ID", 'I', 4, 0, 0},
       "corrupt header: field ID has type I, which dBase III tables do not have"},
      {0x30, {"ID", 'I', 2, 0, 0}, "corrupt header: field ID of type I has width 2, not 4"},
      {0x03, {"DAY", 'D', 6, 0, 0}, "corrupt header: field DAY of type D has width 6, not 8"},
  };
  for (const Refusal& r : refusals) {
    WriteFile(Path(), Table(r.version, {r.field}, {}));
    const std::string before = ReadFile(Path());
    trace_.clear();
    Qdbase db;
    EXPECT_FALSE(Open(&db)) << r.reason;
    EXPECT_EQ(trace_.text(), "\nQdbase: cannot open " + Path() + ": " + r.reason);
    EXPECT_EQ(ReadFile(Path()), before) << "a refused table is left as it is";
  }
}

TEST_F(QdbaseDialects, HeaderCountOneMoreOrOneLessThanTheFileReadsTheSmaller) {
  const std::vector<Field> fields = {{"ID", 'N', 5, 0, 0}};
  const std::vector<std::string> records = {"    1", "    2", "    3"};
  for (int delta : {1, -1}) {
    WriteFile(Path(), Table(0x03, fields, records, delta));
    trace_.clear();
    Qdbase db;
    ASSERT_TRUE(Open(&db)) << trace_.text();
    EXPECT_EQ(db.RecCount(), delta > 0 ? 3 : 2) << "delta " << delta;
    EXPECT_NE(trace_.text().find(Path()), std::string::npos) << "traced: " << trace_.text();
    db.Close();
  }
}

}  // namespace
