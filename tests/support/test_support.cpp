#include "test_support.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "host/qdbase.h"
#include "host/qdsp32.h"

namespace qtest {

TempDir::TempDir() {
  const char* base = getenv("TMPDIR");
  std::string templ = std::string(base && *base ? base : "/tmp") + "/qslave-test-XXXXXX";
  std::vector<char> buf(templ.begin(), templ.end());
  buf.push_back('\0');
  if (mkdtemp(buf.data()) == nullptr) abort();
  path_ = buf.data();
}

TempDir::~TempDir() {
  // Make read-only files and directories removable again first.
  RunCommand("chmod -R u+w '" + path_ + "' 2>/dev/null; rm -rf '" + path_ + "'");
}

namespace {
std::vector<std::string>* g_messages = nullptr;
void Collect(const char* text) {
  if (g_messages != nullptr) g_messages->push_back(text);
}
}  // namespace

TraceCapture::TraceCapture() : previous_(g_messages) {
  g_messages = &messages_;
  TarvoTraceSetHook(Collect);
}

TraceCapture::~TraceCapture() {
  g_messages = previous_;
  if (previous_ == nullptr) TarvoTraceSetHook(nullptr);
}

std::string TraceCapture::text() const {
  std::string all;
  for (const std::string& m : messages_) all += m;
  return all;
}

std::vector<std::string> TraceCapture::messages() const { return messages_; }

void TraceCapture::clear() { messages_.clear(); }

ScopedEnv::ScopedEnv(const std::string& name, const char* value) : name_(name) {
  const char* old = getenv(name.c_str());
  had_ = old != nullptr;
  if (had_) old_ = old;
  if (value != nullptr) {
    setenv(name.c_str(), value, 1);
  } else {
    unsetenv(name.c_str());
  }
}

ScopedEnv::~ScopedEnv() {
  if (had_) {
    setenv(name_.c_str(), old_.c_str(), 1);
  } else {
    unsetenv(name_.c_str());
  }
}

int RunCommand(const std::string& command, std::string* out) {
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return -1;
  std::string text;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, pipe)) > 0) text.append(buf, n);
  int status = pclose(pipe);
  if (out != nullptr) *out = text;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int RunPython(const std::string& script, std::string* out) {
  TempDir dir;
  std::string file = dir.file("script.py");
  WriteFile(file, script);
  return RunCommand("/usr/bin/python3 '" + file + "'", out);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

std::string PyQuote(const std::string& s) {
  std::string q = "'";
  for (char c : s) {
    if (c == '\\' || c == '\'') q += '\\';
    if (c == '\n') {
      q += "\\n";
      continue;
    }
    q += c;
  }
  return q + "'";
}

TablesHeldElsewhere::TablesHeldElsewhere(const std::string& dir, const std::string& base,
                                         const char* key) {
  int ready[2], release[2];
  if (pipe(ready) != 0) return;
  if (pipe(release) != 0) {
    close(ready[0]);
    close(ready[1]);
    return;
  }
  const pid_t pid = fork();
  if (pid == 0) {
    close(ready[0]);
    close(release[1]);
    Qdbase table;
    const char* names[] = {key};
    const char* keys[] = {key};
    table.SetFiles(dir.c_str(), base.c_str(), key != nullptr ? 1 : 0,
                   key != nullptr ? names : nullptr, key != nullptr ? keys : nullptr);
    table.Open();
    QdbBooking booking(&table);
    char c = booking.Ok() ? 'y' : 'n';
    if (write(ready[1], &c, 1) != 1) _exit(2);
    // Released, or the test process ended: the booking is written.
    if (read(release[0], &c, 1) < 0) _exit(2);
    _exit(booking.Commit() ? 0 : 1);
  }
  close(ready[1]);
  close(release[0]);
  pid_ = pid;
  release_ = release[1];
  char c = 0;
  held_ = pid > 0 && read(ready[0], &c, 1) == 1 && c == 'y';
  close(ready[0]);
}

TablesHeldElsewhere::~TablesHeldElsewhere() { Release(); }

bool TablesHeldElsewhere::Release() {
  if (pid_ <= 0) return false;
  if (write(release_, "x", 1) != 1) {
    // The other process waits for the pipe to close instead.
  }
  close(release_);
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace qtest
