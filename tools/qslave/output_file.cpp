#include "output_file.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

namespace {

std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

bool WriteAll(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = write(fd, text.data() + done, text.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

bool WriteOutputFile(const std::string& path, const std::string& text, bool replace,
                     std::string* error) {
  if (path.empty() || path.back() == '/') {
    *error = "\"" + path + "\" is not a file name";
    return false;
  }
  const std::string dir = DirectoryOf(path);
  struct stat st;
  if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    *error = "cannot write " + path + ": directory " + dir + " does not exist";
    return false;
  }
  if (!replace && lstat(path.c_str(), &st) == 0) {
    *error = path + " already exists; give --force to replace it";
    return false;
  }
  std::string temp_name = path + ".XXXXXX";
  std::vector<char> temp(temp_name.begin(), temp_name.end());
  temp.push_back('\0');
  const int fd = mkstemp(temp.data());
  if (fd < 0) {
    *error = "cannot write " + path + ": " + strerror(errno);
    return false;
  }
  // mkstemp makes the file private; an ordinary new file is wanted.
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(fd, 0666 & ~mask);
  bool ok = WriteAll(fd, text);
  int saved = errno;
  if (close(fd) != 0 && ok) {
    ok = false;
    saved = errno;
  }
  if (ok) {
    if (replace) {
      ok = rename(temp.data(), path.c_str()) == 0;
    } else {
      // A link fails when path appeared meanwhile: still nothing replaced.
      ok = link(temp.data(), path.c_str()) == 0;
    }
    saved = errno;
  }
  if (!ok || !replace) unlink(temp.data());
  if (!ok) {
    *error = saved == EEXIST && !replace
                 ? path + " already exists; give --force to replace it"
                 : "cannot write " + path + ": " + strerror(saved);
    return false;
  }
  return true;
}
