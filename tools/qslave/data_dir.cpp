#include "data_dir.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include <cctype>

#include "host/qdsp32.h"

namespace {

// The library reads the data directory into a buffer of this size.
const int kLibraryPathBuffer = 1024;

// Anything under the name counts, a dangling link included: a table that
// is there in any form is never written over.
bool Exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

std::string Upper(const char* text) {
  std::string upper = text;
  for (char& c : upper) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  return upper;
}

}  // namespace

bool CurrentDataDir(std::string* dir, std::string* error) {
  char buf[kLibraryPathBuffer];
  if (!Zu_LocalPathEx(buf, sizeof buf)) {
    *error = "the data directory cannot be told, or its name is longer than " +
             std::to_string(kLibraryPathBuffer - 1) + " characters";
    return false;
  }
  *dir = buf;
  return true;
}

bool CheckDirectory(const std::string& dir, std::string* error) {
  struct stat st;
  if (stat(dir.c_str(), &st) != 0) {
    *error = "data directory " + dir + " does not exist";
    return false;
  }
  if (!S_ISDIR(st.st_mode)) {
    *error = dir + " is not a directory";
    return false;
  }
  return true;
}

std::string TableFile(const std::string& dir, const char* base) {
  return dir + "/" + base + ".dbf";
}

std::string ExistingTableFile(const std::string& dir, const char* base) {
  const std::string lower = TableFile(dir, base);
  if (Exists(lower)) return lower;
  const std::string upper = dir + "/" + Upper(base) + ".DBF";
  if (Exists(upper)) return upper;
  return "";
}

bool MakeDirectories(const std::string& dir, std::string* error) {
  // Each prefix ending before a '/' is a parent; the whole path comes last.
  for (size_t end = dir.find('/', 1);; end = dir.find('/', end + 1)) {
    const std::string part = dir.substr(0, end);
    if (mkdir(part.c_str(), 0777) != 0 && errno != EEXIST) {
      *error = "cannot create directory " + part + ": " + strerror(errno);
      return false;
    }
    if (end == std::string::npos) break;
  }
  return CheckDirectory(dir, error);
}
