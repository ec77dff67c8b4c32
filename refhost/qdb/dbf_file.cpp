#include "dbf_file.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qdb {

namespace {

void IdentityOfStat(const struct stat& st, FileIdentity* id) {
  id->device = st.st_dev;
  id->inode = st.st_ino;
  id->size = static_cast<long long>(st.st_size);
  id->changedNs = static_cast<long long>(st.st_ctim.tv_sec) * 1000000000LL + st.st_ctim.tv_nsec;
}

}  // namespace

bool IdentityOfPath(const std::string& path, FileIdentity* id) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return false;
  IdentityOfStat(st, id);
  return true;
}

bool ReadFully(int fd, void* buf, size_t len, long long offset) {
  char* p = static_cast<char*>(buf);
  size_t done = 0;
  while (done < len) {
    ssize_t n = pread(fd, p + done, len - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) {
      errno = EIO;  // the file ends before the bytes asked for
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

bool WriteFully(int fd, const void* buf, size_t len, long long offset) {
  const char* p = static_cast<const char*>(buf);
  size_t done = 0;
  while (done < len) {
    ssize_t n = pwrite(fd, p + done, len - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) {
      errno = ENOSPC;
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

DbfFile::~DbfFile() { Close(); }

bool DbfFile::Open(const std::string& path, bool readOnly) {
  Close();
  path_ = path;
  fd_ = open(path.c_str(), (readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC);
  if (fd_ < 0) return Fail("open");
  return true;
}

bool DbfFile::Reopen(bool readOnly) {
  const int fd = open(path_.c_str(), (readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC);
  if (fd < 0) return Fail("open");
  Close();
  fd_ = fd;
  return true;
}

void DbfFile::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

bool DbfFile::ReadAt(void* buf, size_t len, long long offset) {
  if (fd_ < 0) return Fail("read of a closed file");
  return ReadFully(fd_, buf, len, offset) || Fail("read");
}

bool DbfFile::WriteAt(const void* buf, size_t len, long long offset) {
  if (fd_ < 0) return Fail("write to a closed file");
  return WriteFully(fd_, buf, len, offset) || Fail("write");
}

bool DbfFile::Truncate(long long length) {
  if (fd_ < 0) return Fail("truncate of a closed file");
  while (ftruncate(fd_, static_cast<off_t>(length)) != 0) {
    if (errno != EINTR) return Fail("truncate");
  }
  return true;
}

bool DbfFile::Sync() {
  if (fd_ < 0) return Fail("sync of a closed file");
  return fdatasync(fd_) == 0 || Fail("sync");
}

bool DbfFile::Identity(FileIdentity* id) {
  struct stat st;
  if (fd_ < 0 || fstat(fd_, &st) != 0) return Fail("stat");
  IdentityOfStat(st, id);
  return true;
}

bool DbfFile::Fail(const char* what) {
  const int saved = errno;
  error_ = std::string(what) + ": " + strerror(saved != 0 ? saved : EIO);
  errno = saved;
  return false;
}

}  // namespace qdb
