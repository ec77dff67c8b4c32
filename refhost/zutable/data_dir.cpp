#include "data_dir.h"

#include <sys/stat.h>

#include <new>

#include "host/qdsp32.h"

namespace {

// Room for any path the system accepts (PATH_MAX on Linux).
constexpr int kPathSize = 4096;

bool IsDirectory(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

bool DataDirectory(std::string* dir) {
  char buf[kPathSize];
  if (!Zu_LocalPathEx(buf, sizeof buf)) return false;
  try {
    dir->assign(buf);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

bool DataSetDirectory(long dataId, std::string* dir) {
  if (!DataDirectory(dir)) return false;
  if (dataId <= 0) return true;
  try {
    std::string sub = *dir;
    if (sub.empty() || sub.back() != '/') sub += '/';
    sub += "data" + std::to_string(dataId);
    if (IsDirectory(sub)) dir->swap(sub);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}
