#include "fault_injection.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

#include <map>
#include <mutex>
#include <string>

namespace qtest {
namespace faults {
namespace {

std::mutex g_mutex;
Plan g_plan;
bool g_armed = false;
long g_count = 0;
bool g_fired = false;
std::map<int, std::string>* g_paths = nullptr;  // fd -> path, of open()s seen

std::map<int, std::string>& Paths() {
  if (g_paths == nullptr) g_paths = new std::map<int, std::string>;
  return *g_paths;
}

template <typename F>
F Real(const char* name) {
  return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

void Remember(int fd, const char* path) {
  if (fd < 0 || path == nullptr) return;
  std::lock_guard<std::mutex> guard(g_mutex);
  Paths()[fd] = path;
}

void Forget(int fd) {
  std::lock_guard<std::mutex> guard(g_mutex);
  Paths().erase(fd);
}

enum Verdict { kPass, kFail, kHalf };

// Whether this call on fd passes; kills the process when the plan says so.
Verdict Judge(int fd, Op op) {
  std::lock_guard<std::mutex> guard(g_mutex);
  if (!g_armed || (g_plan.ops & op) == 0) return kPass;
  auto it = Paths().find(fd);
  if (it == Paths().end()) return kPass;
  if (!g_plan.match.empty() && it->second.find(g_plan.match) == std::string::npos) return kPass;
  ++g_count;
  if (g_plan.failAt == 0 || g_count != g_plan.failAt) return kPass;
  g_fired = true;
  if (g_plan.kill) kill(getpid(), SIGKILL);
  errno = g_plan.error;
  return (op == kWrite && g_plan.shortWrite) ? kHalf : kFail;
}

}  // namespace

void Arm(const Plan& plan) {
  std::lock_guard<std::mutex> guard(g_mutex);
  g_plan = plan;
  g_count = 0;
  g_fired = false;
  g_armed = true;
}

void Disarm() {
  std::lock_guard<std::mutex> guard(g_mutex);
  g_armed = false;
}

long Count() {
  std::lock_guard<std::mutex> guard(g_mutex);
  return g_count;
}

bool Fired() {
  std::lock_guard<std::mutex> guard(g_mutex);
  return g_fired;
}

}  // namespace faults
}  // namespace qtest

using qtest::faults::Judge;
using qtest::faults::kFail;
using qtest::faults::kHalf;
using qtest::faults::kPass;

// --- The stand-ins of the C library's calls -----------------------------------

extern "C" {

int open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if (flags & (O_CREAT | O_TMPFILE)) {
    va_list args;
    va_start(args, flags);
    mode = static_cast<mode_t>(va_arg(args, int));
    va_end(args);
  }
  static auto real = qtest::faults::Real<int (*)(const char*, int, ...)>("open");
  const int fd = real(path, flags, mode);
  qtest::faults::Remember(fd, path);
  return fd;
}

int open64(const char* path, int flags, ...) {
  mode_t mode = 0;
  if (flags & (O_CREAT | O_TMPFILE)) {
    va_list args;
    va_start(args, flags);
    mode = static_cast<mode_t>(va_arg(args, int));
    va_end(args);
  }
  static auto real = qtest::faults::Real<int (*)(const char*, int, ...)>("open64");
  const int fd = real(path, flags, mode);
  qtest::faults::Remember(fd, path);
  return fd;
}

int close(int fd) {
  static auto real = qtest::faults::Real<int (*)(int)>("close");
  qtest::faults::Forget(fd);
  return real(fd);
}

ssize_t pread(int fd, void* buf, size_t count, off_t offset) {
  static auto real = qtest::faults::Real<ssize_t (*)(int, void*, size_t, off_t)>("pread");
  if (Judge(fd, qtest::faults::kRead) != kPass) return -1;
  return real(fd, buf, count, offset);
}

ssize_t pread64(int fd, void* buf, size_t count, off_t offset) { return pread(fd, buf, count, offset); }

ssize_t pwrite(int fd, const void* buf, size_t count, off_t offset) {
  static auto real = qtest::faults::Real<ssize_t (*)(int, const void*, size_t, off_t)>("pwrite");
  switch (Judge(fd, qtest::faults::kWrite)) {
    case kFail: return -1;
    case kHalf: {
      // Half the bytes reach the file, then the disk gives up.
      const int error = errno;
      if (count / 2 > 0) real(fd, buf, count / 2, offset);
      errno = error;
      return -1;
    }
    default: return real(fd, buf, count, offset);
  }
}

ssize_t pwrite64(int fd, const void* buf, size_t count, off_t offset) {
  return pwrite(fd, buf, count, offset);
}

int fdatasync(int fd) {
  static auto real = qtest::faults::Real<int (*)(int)>("fdatasync");
  if (Judge(fd, qtest::faults::kSync) != kPass) return -1;
  return real(fd);
}

int fsync(int fd) {
  static auto real = qtest::faults::Real<int (*)(int)>("fsync");
  if (Judge(fd, qtest::faults::kSync) != kPass) return -1;
  return real(fd);
}

int ftruncate(int fd, off_t length) {
  static auto real = qtest::faults::Real<int (*)(int, off_t)>("ftruncate");
  if (Judge(fd, qtest::faults::kTruncate) != kPass) return -1;
  return real(fd, length);
}

int ftruncate64(int fd, off_t length) { return ftruncate(fd, length); }

}  // extern "C"
