// Helpers shared by the test programs: temporary directories, trace
// capture, environment changes that undo themselves, and an independent
// dBase implementation (Debian's python3-dbf and python3-dbfread) to write
// and read tables with.
#ifndef QSLAVE_TEST_SUPPORT_H
#define QSLAVE_TEST_SUPPORT_H

#include <string>
#include <vector>

namespace qtest {

// A fresh directory under $TMPDIR (or /tmp), removed with its contents when
// the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Collects every TarvoTrace message while it lives (one at a time).
class TraceCapture {
 public:
  TraceCapture();
  ~TraceCapture();
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;
  // Everything traced so far, messages joined as they came.
  std::string text() const;
  // The messages one by one.
  std::vector<std::string> messages() const;
  void clear();

 private:
  // While a capture lives, messages go to it alone; a nested capture takes
  // them over and hands them back to this one when it ends.
  std::vector<std::string> messages_;
  std::vector<std::string>* previous_;
};

// Sets (or, with a null value, unsets) an environment variable and restores
// the previous state on destruction.
class ScopedEnv {
 public:
  ScopedEnv(const std::string& name, const char* value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  bool had_;
  std::string old_;
};

// Runs a script with Debian's Python (/usr/bin/python3); returns its exit
// status and puts its standard output in *out when given.
int RunPython(const std::string& script, std::string* out = nullptr);

// Runs a shell command; returns its exit status and its standard output
// (and standard error, joined) in *out when given.
int RunCommand(const std::string& command, std::string* out = nullptr);

// Whole file as text ("" when it cannot be read).
std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& text);

// A Python string literal holding s.
std::string PyQuote(const std::string& s);

// Another process in the middle of a booking on the tables of dir: it opens
// table base (with one index on field key when given, as such a table is
// bound) and holds the booking, with the tables' lock, until Release.
class TablesHeldElsewhere {
 public:
  TablesHeldElsewhere(const std::string& dir, const std::string& base, const char* key = nullptr);
  ~TablesHeldElsewhere();  // releases when not released
  TablesHeldElsewhere(const TablesHeldElsewhere&) = delete;
  TablesHeldElsewhere& operator=(const TablesHeldElsewhere&) = delete;
  // Whether the other process's booking started.
  bool held() const { return held_; }
  // Lets the other process commit its booking and end; answers whether
  // the commit succeeded.
  bool Release();

 private:
  int pid_ = -1;
  int release_ = -1;  // the write end of the pipe the other process waits on
  bool held_ = false;
};

}  // namespace qtest

#endif
