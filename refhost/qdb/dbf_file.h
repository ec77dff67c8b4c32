// A table file as the table class reads and writes it: whole reads and
// writes at an offset, each one checked, and the few facts about the file
// that tell whether another process has changed it (internal to libqdb).
//
// Every call reports failure when the system did not do all that was asked:
// a read that returns fewer bytes than asked is a failed read, never a short
// value; a write that stores fewer is a failed write. The reason is kept for
// the caller's trace (Error()).
#ifndef QSLAVE_REFHOST_DBF_FILE_H
#define QSLAVE_REFHOST_DBF_FILE_H

#include <stddef.h>
#include <sys/types.h>

#include <string>

namespace qdb {

// What identifies the state of a file on disk: which file it is (device and
// inode) and how it looked when last seen (length and time of change).
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  long long size = -1;
  long long changedNs = 0;  // ctime in nanoseconds

  bool SameFile(const FileIdentity& o) const { return device == o.device && inode == o.inode; }
  bool operator==(const FileIdentity& o) const {
    return SameFile(o) && size == o.size && changedNs == o.changedNs;
  }
  bool operator!=(const FileIdentity& o) const { return !(*this == o); }
};

// The identity of the file a path names now; false when it cannot be had.
bool IdentityOfPath(const std::string& path, FileIdentity* id);

class DbfFile {
 public:
  DbfFile() = default;
  ~DbfFile();
  DbfFile(const DbfFile&) = delete;
  DbfFile& operator=(const DbfFile&) = delete;

  // Opens path for reading and writing, or for reading only.
  bool Open(const std::string& path, bool readOnly);
  void Close();
  // Opens the path again, for a file that was replaced under it; the old
  // descriptor stays in use when the new one cannot be had.
  bool Reopen(bool readOnly);
  bool IsOpen() const { return fd_ >= 0; }
  const std::string& Path() const { return path_; }

  // Reads exactly len bytes at offset.
  bool ReadAt(void* buf, size_t len, long long offset);
  // Writes exactly len bytes at offset.
  bool WriteAt(const void* buf, size_t len, long long offset);
  bool Truncate(long long length);
  // The written data on the disk itself (fdatasync).
  bool Sync();
  bool Identity(FileIdentity* id);

  // The reason of the last failure, as "what: system's words".
  const std::string& Error() const { return error_; }

 private:
  bool Fail(const char* what);

  int fd_ = -1;
  std::string path_;
  std::string error_;
};

// Whole reads and writes on a raw descriptor, retried after interruptions;
// false with errno set when the system did less than asked.
bool ReadFully(int fd, void* buf, size_t len, long long offset);
bool WriteFully(int fd, const void* buf, size_t len, long long offset);

}  // namespace qdb

#endif
