// Helpers for the durability and fault tests: reading a table whole with an
// independent dBase reader, a small file system of our own that can be
// filled to the last byte, and a raw TCP peer that answers the purge-server
// client with bytes that are not an XML-RPC answer.
//
// Header only; it needs nothing beyond the test support library.
#ifndef QSLAVE_TEST_FAULT_ENV_H
#define QSLAVE_TEST_FAULT_ENV_H

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "test_support.h"

extern char** environ;

namespace qtest {

// Reads every record of a dBase file with python3-dbfread (deleted records
// skipped, as dBase shows them) and puts one line per record in *rows:
// the values of the named fields, separated by blanks, numbers as Python's
// repr prints them. Returns the number of records read, or -1 when dbfread
// cannot read the file (its complaint then goes to *rows as one entry).
inline int DbfReadAll(const std::string& file, const std::vector<std::string>& fields,
                      std::vector<std::string>* rows) {
  std::string list = "[";
  for (const std::string& f : fields) list += PyQuote(f) + ",";
  list += "]";
  std::string script =
      "import sys, dbfread\n"
      "rows = []\n"
      "for r in dbfread.DBF(" + PyQuote(file) + ", load=True).records:\n"
      "    rows.append(' '.join(repr(r[f]) for f in " + list + "))\n"
      "sys.stdout.write('COUNT %d\\n' % len(rows))\n"
      "for row in rows:\n"
      "    sys.stdout.write(row + '\\n')\n";
  std::string out;
  const int status = RunPython(script, &out);
  std::vector<std::string> lines;
  size_t pos = 0;
  while (pos < out.size()) {
    size_t end = out.find('\n', pos);
    if (end == std::string::npos) end = out.size();
    lines.push_back(out.substr(pos, end - pos));
    pos = end + 1;
  }
  if (status != 0 || lines.empty() || lines[0].compare(0, 6, "COUNT ") != 0) {
    if (rows != nullptr) *rows = {out};
    return -1;
  }
  if (rows != nullptr) rows->assign(lines.begin() + 1, lines.end());
  return static_cast<int>(lines.size()) - 1;
}

// A tmpfs of the given size mounted on a fresh directory for the life of
// the object. Mounting needs privilege; when it is refused, ok() is false
// and why() says what the system answered.
class ScopedTmpfs {
 public:
  explicit ScopedTmpfs(const std::string& sizeOption) {
    mountPoint_ = dir_.file("mnt");
    if (mkdir(mountPoint_.c_str(), 0755) != 0) {
      why_ = std::string("mkdir: ") + strerror(errno);
      return;
    }
    const std::string options = "size=" + sizeOption + ",mode=0755";
    if (mount("tmpfs", mountPoint_.c_str(), "tmpfs", 0, options.c_str()) != 0) {
      why_ = std::string("mount -t tmpfs: ") + strerror(errno);
      return;
    }
    mounted_ = true;
  }
  ~ScopedTmpfs() {
    if (mounted_ && umount(mountPoint_.c_str()) != 0) {
      // A file still held open keeps the mount busy; detach it instead.
      umount2(mountPoint_.c_str(), MNT_DETACH);
    }
  }
  ScopedTmpfs(const ScopedTmpfs&) = delete;
  ScopedTmpfs& operator=(const ScopedTmpfs&) = delete;

  bool ok() const { return mounted_; }
  const std::string& why() const { return why_; }
  const std::string& path() const { return mountPoint_; }

 private:
  TempDir dir_;
  std::string mountPoint_;
  std::string why_;
  bool mounted_ = false;
};

// Blocks still free for an unprivileged writer on the file system of path
// (-1 when it cannot be asked).
inline long long FreeBlocks(const std::string& path) {
  struct statvfs st;
  if (statvfs(path.c_str(), &st) != 0) return -1;
  return static_cast<long long>(st.f_bavail);
}

// Writes a filler file in dir until the file system refuses another byte.
// Returns the bytes written, or -1 when the filler could not be made or the
// file system never said it was full.
inline long long FillUp(const std::string& dir) {
  const std::string name = dir + "/filler";
  int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) return -1;
  std::string chunk(4096, 'F');
  long long total = 0;
  bool full = false;
  // Whole pages first, then single bytes into whatever slack is left.
  for (size_t size : {chunk.size(), static_cast<size_t>(1)}) {
    while (true) {
      ssize_t n = write(fd, chunk.data(), size);
      if (n > 0) {
        total += n;
        continue;
      }
      if (n < 0 && errno == ENOSPC) full = true;
      break;
    }
  }
  close(fd);
  return full ? total : -1;
}

// A peer on a free loopback port that is not an XML-RPC server. Modes:
//  "garbage": reads the request, answers bytes that are neither HTTP nor
//             XML, closes;
//  "http-garbage": answers a well-formed HTTP 200 whose body is not XML;
//  "truncated": answers an HTTP header announcing a longer body than it
//             sends, then closes;
//  "reset": accepts and closes at once with a reset, reading nothing;
//  "read-reset": reads the whole request, then closes with a reset,
//             answering nothing.
// Every connection is recorded as a line "CONNECT" in a file, and every
// request read whole as a line "REQUEST".
class RawPeer {
 public:
  explicit RawPeer(const std::string& mode) { Start(mode); }
  ~RawPeer() { Stop(); }
  RawPeer(const RawPeer&) = delete;
  RawPeer& operator=(const RawPeer&) = delete;

  bool ok() const { return port_ > 0; }
  int port() const { return port_; }

  int Connections() const { return Count("CONNECT\n"); }
  int Requests() const { return Count("REQUEST\n"); }

  void Stop() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      int status = 0;
      waitpid(pid_, &status, 0);
      pid_ = -1;
    }
  }

 private:
  int Count(const std::string& line) const {
    std::string text = ReadFile(dir_.file("record"));
    int n = 0;
    for (size_t pos = text.find(line); pos != std::string::npos; pos = text.find(line, pos + 1)) {
      ++n;
    }
    return n;
  }

  void Start(const std::string& mode) {
    WriteFile(dir_.file("peer.py"), kScript);
    WriteFile(dir_.file("record"), "");
    std::string script = dir_.file("peer.py");
    std::string record = dir_.file("record");
    std::string portFile = dir_.file("port");
    const char* argv[] = {"/usr/bin/python3", script.c_str(), record.c_str(),
                          portFile.c_str(), mode.c_str(), nullptr};
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, const_cast<char**>(argv), environ) != 0) {
      return;
    }
    pid_ = pid;
    // The bound only keeps a broken interpreter from hanging the run.
    for (int i = 0; i < 3000; ++i) {
      std::string text = ReadFile(portFile);
      if (!text.empty() && text.back() == '\n') {
        port_ = std::stoi(text);
        return;
      }
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return;
      }
      usleep(10000);
    }
  }

  static constexpr const char* kScript =
      "import os, socket, struct, sys\n"
      "record_path, port_path, mode = sys.argv[1], sys.argv[2], sys.argv[3]\n"
      "srv = socket.socket(socket.AF_INET, socket.SOCK_STREAM)\n"
      "srv.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)\n"
      "srv.bind(('127.0.0.1', 0))\n"
      "srv.listen(8)\n"
      "with open(port_path + '.tmp', 'w') as f:\n"
      "    f.write('%d\\n' % srv.getsockname()[1])\n"
      "os.rename(port_path + '.tmp', port_path)\n"
      "def read_request(conn):\n"
      "    data = b''\n"
      "    while b'\\r\\n\\r\\n' not in data:\n"
      "        chunk = conn.recv(4096)\n"
      "        if not chunk:\n"
      "            return data\n"
      "        data += chunk\n"
      "    head, _, body = data.partition(b'\\r\\n\\r\\n')\n"
      "    length = 0\n"
      "    for line in head.split(b'\\r\\n'):\n"
      "        if line.lower().startswith(b'content-length:'):\n"
      "            length = int(line.split(b':', 1)[1])\n"
      "    while len(body) < length:\n"
      "        chunk = conn.recv(4096)\n"
      "        if not chunk:\n"
      "            break\n"
      "        body += chunk\n"
      "    with open(record_path, 'a') as f:\n"
      "        f.write('REQUEST\\n')\n"
      "    return data\n"
      "def reset(conn):\n"
      "    conn.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack('ii', 1, 0))\n"
      "    conn.close()\n"
      "while True:\n"
      "    conn, _ = srv.accept()\n"
      "    with open(record_path, 'a') as f:\n"
      "        f.write('CONNECT\\n')\n"
      "    try:\n"
      "        if mode == 'reset':\n"
      "            reset(conn)\n"
      "            continue\n"
      "        read_request(conn)\n"
      "        if mode == 'read-reset':\n"
      "            reset(conn)\n"
      "            continue\n"
      "        if mode == 'garbage':\n"
      "            conn.sendall(b'\\x00\\xff\\xfe garbage \\x1b[0m not xml at all\\r\\n\\x7f')\n"
      "        elif mode == 'http-garbage':\n"
      "            body = b'%%%% this is not <xml at all ]]> \\x00\\x01\\x02'\n"
      "            conn.sendall(b'HTTP/1.1 200 OK\\r\\nContent-Type: text/xml\\r\\n'\n"
      "                         b'Content-Length: %d\\r\\n\\r\\n' % len(body) + body)\n"
      "        elif mode == 'truncated':\n"
      "            conn.sendall(b'HTTP/1.1 200 OK\\r\\nContent-Type: text/xml\\r\\n'\n"
      "                         b'Content-Length: 4000\\r\\n\\r\\n<?xml version=\"1.0\"?>\\r\\n'\n"
      "                         b'<methodResponse><params><param><value><int>1')\n"
      "        conn.shutdown(socket.SHUT_RDWR)\n"
      "    except OSError:\n"
      "        pass\n"
      "    conn.close()\n";

  TempDir dir_;
  pid_t pid_ = -1;
  int port_ = 0;
};

}  // namespace qtest

#endif
