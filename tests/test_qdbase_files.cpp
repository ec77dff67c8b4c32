// Qdbase on bad files: missing, empty, truncated, corrupt headers. Each
// open fails cleanly (no crash) with a trace line naming the file.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "host/qdbase.h"
#include "test_support.h"

namespace {

using qtest::ReadFile;
using qtest::TempDir;
using qtest::TraceCapture;
using qtest::WriteFile;

const QdbField kFields[] = {
    {"ID", 'N', 5, 0}, {"NAME", 'C', 10, 0}, {"FLAG", 'L', 1, 0}};
constexpr size_t kHeader = 32 + 3 * 32 + 1;  // 129
constexpr size_t kRecord = 1 + 5 + 10 + 1;   // 17

class QdbaseFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(1, Qdbase::Create(dir.path().c_str(), "t", 3, kFields));
    Qdbase db;
    ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "t", 0, nullptr, nullptr));
    ASSERT_EQ(1, db.Open());
    for (long id = 1; id <= 3; ++id) {
      ASSERT_EQ(1, db.Append());
      ASSERT_EQ(1, db.WriteLong("ID", id));
      ASSERT_EQ(1, db.WriteString("NAME", "name"));
      ASSERT_EQ(1, db.WriteLogical("FLAG", 1));
    }
    ASSERT_EQ(1, db.Close());
    good = ReadFile(File());
    ASSERT_EQ(kHeader + 3 * kRecord + 1, good.size());  // with the 0x1A end mark
  }

  std::string File() const { return dir.file("t.dbf"); }

  // Opens t.dbf; expects failure with a trace naming the file and, when
  // given, containing `what`.
  void ExpectOpenFails(const char* what) {
    TraceCapture trace;
    Qdbase db;
    const char* names[] = {"ID"};
    const char* keys[] = {"ID"};
    ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "t", 1, names, keys));
    EXPECT_EQ(0, db.Open());
    EXPECT_EQ(0, db.IsOpen());
    EXPECT_EQ(0, db.RecCount());
    EXPECT_EQ(0, db.Top());
    long v = 1;
    EXPECT_EQ(0, db.ReadLong("ID", &v));
    std::string text = trace.text();
    EXPECT_NE(std::string::npos, text.find(File())) << text;
    if (what != nullptr) {
      EXPECT_NE(std::string::npos, text.find(what)) << text;
    }
  }

  void Patch(size_t offset, const std::string& bytes) {
    std::string data = good;
    data.replace(offset, bytes.size(), bytes);
    WriteFile(File(), data);
  }

  TempDir dir;
  std::string good;
  // Opens t.dbf, which must open; answers the trace and the ids read in
  // record order.
  std::string OpenAndList(std::vector<long>* ids) {
    TraceCapture trace;
    Qdbase db;
    EXPECT_EQ(1, db.SetFiles(dir.path().c_str(), "t", 0, nullptr, nullptr));
    EXPECT_EQ(1, db.Open());
    for (int ok = db.Top(); ok; ok = db.Next()) {
      long id = 0;
      EXPECT_EQ(1, db.ReadLong("ID", &id));
      ids->push_back(id);
    }
    return trace.text();
  }
};

TEST_F(QdbaseFilesTest, TheGoodFileOpens) {
  Qdbase db;
  ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "t", 0, nullptr, nullptr));
  ASSERT_EQ(1, db.Open());
  EXPECT_EQ(3, db.RecCount());
}

TEST_F(QdbaseFilesTest, MissingFile) {
  ASSERT_EQ(0, unlink(File().c_str()));
  ExpectOpenFails("missing");
}

TEST_F(QdbaseFilesTest, EmptyFile) {
  WriteFile(File(), "");
  ExpectOpenFails("empty");
}


TEST_F(QdbaseFilesTest, FileWithoutEndMarkOpens) {
  WriteFile(File(), good.substr(0, kHeader + 3 * kRecord));
  Qdbase db;
  ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "t", 0, nullptr, nullptr));
  ASSERT_EQ(1, db.Open());
  EXPECT_EQ(3, db.RecCount());
}

TEST_F(QdbaseFilesTest, TruncatedHeaderIsRefused) {
  WriteFile(File(), good.substr(0, 20));
  ExpectOpenFails("truncated");
  WriteFile(File(), good.substr(0, 70));  // descriptors cut
  ExpectOpenFails("truncated");
}

// A header whose count disagrees with the file's length: the smaller of
// the two is read, and the disagreement is traced, never passed over.
TEST_F(QdbaseFilesTest, TruncatedRecordsAreReadUpToTheLastWholeOne) {
  WriteFile(File(), good.substr(0, kHeader + 2 * kRecord + 5));
  std::vector<long> ids;
  const std::string text = OpenAndList(&ids);
  EXPECT_EQ((std::vector<long>{1, 2}), ids);
  EXPECT_NE(std::string::npos,
            text.find(File() + ": the header counts 3 records, the file holds 2: the first 2 "
                               "are read"))
      << text;
}

TEST_F(QdbaseFilesTest, RecordCountBeyondTheFileReadsWhatTheFileHolds) {
  Patch(4, std::string("\xff\xff\xff\x7f", 4));
  std::vector<long> ids;
  const std::string text = OpenAndList(&ids);
  EXPECT_EQ((std::vector<long>{1, 2, 3}), ids);
  EXPECT_NE(std::string::npos, text.find("the header counts 2147483647 records, the file holds 3"))
      << text;
}

TEST_F(QdbaseFilesTest, HeaderCountingOneRecordLessIsTraced) {
  Patch(4, std::string("\x02\x00\x00\x00", 4));
  std::vector<long> ids;
  const std::string text = OpenAndList(&ids);
  EXPECT_EQ((std::vector<long>{1, 2}), ids);
  EXPECT_NE(std::string::npos,
            text.find(File() + ": the header counts 2 records, the file holds 3: the first 2 "
                               "are read"))
      << text;
}

TEST_F(QdbaseFilesTest, BadVersionByte) {
  Patch(0, "\x30");
  ExpectOpenFails("corrupt header");
}

TEST_F(QdbaseFilesTest, HeaderLengthTooSmall) {
  Patch(8, std::string("\x10\x00", 2));
  ExpectOpenFails("corrupt header");
}

TEST_F(QdbaseFilesTest, HeaderLengthNotMatchingTheFields) {
  // Room for two more descriptors than there are.
  Patch(8, std::string("\xC1\x00", 2));
  ExpectOpenFails(nullptr);
}

TEST_F(QdbaseFilesTest, RecordLengthNotMatchingTheFields) {
  Patch(10, std::string("\x12\x00", 2));
  ExpectOpenFails("record length");
}

TEST_F(QdbaseFilesTest, MissingDescriptorTerminator) {
  Patch(kHeader - 1, " ");
  ExpectOpenFails("corrupt header");
}

TEST_F(QdbaseFilesTest, UnknownFieldType) {
  Patch(32 + 32 + 11, "X");
  ExpectOpenFails("corrupt header");
}

TEST_F(QdbaseFilesTest, FieldWithoutName) {
  Patch(32 + 32, std::string(1, '\0'));
  ExpectOpenFails("corrupt header");
}

TEST_F(QdbaseFilesTest, FieldWidthZero) {
  Patch(32 + 16, std::string(1, '\0'));
  ExpectOpenFails("corrupt header");
}

TEST_F(QdbaseFilesTest, GarbageFile) {
  std::string junk(300, '\0');
  for (size_t i = 0; i < junk.size(); ++i) junk[i] = static_cast<char>((i * 37 + 11) & 0xff);
  WriteFile(File(), junk);
  ExpectOpenFails(nullptr);
}

TEST_F(QdbaseFilesTest, DirectoryInsteadOfAFile) {
  ASSERT_EQ(0, unlink(File().c_str()));
  ASSERT_EQ(0, mkdir(File().c_str(), 0755));
  ExpectOpenFails(nullptr);
}

// Every single-byte change of the header either opens or fails cleanly.
TEST_F(QdbaseFilesTest, NoCrashOnAnyHeaderByte) {
  TraceCapture quiet;
  for (size_t at = 0; at < kHeader; ++at) {
    for (unsigned char value : {0x00, 0x01, 0x0D, 0x20, 0x7F, 0xFF}) {
      std::string data = good;
      data[at] = static_cast<char>(value);
      WriteFile(File(), data);
      Qdbase db;
      const char* names[] = {"ID"};
      const char* keys[] = {"ID"};
      ASSERT_EQ(1, db.SetFiles(dir.path().c_str(), "t", 1, names, keys));
      if (db.Open()) {
        for (int ok = db.Top(); ok; ok = db.Next()) {
          char buf[64];
          db.ReadString("NAME", buf, sizeof buf);
        }
      }
    }
  }
}

}  // namespace
