// A purge server for tests: Python's standard xmlrpc.server, run with
// Debian's /usr/bin/python3 on a free loopback port, so the library's
// XML-RPC client talks to a peer that nobody here wrote.
//
// The server records every connection it accepts and every call it
// receives, with the Python type and value of each parameter, in a file
// that the test reads back. Every record is on disk before the answer
// leaves, so a test may read it as soon as the library's call returns.
//
// Header only; it needs nothing beyond the test support library.
#ifndef QSLAVE_TEST_PURGE_SERVER_H
#define QSLAVE_TEST_PURGE_SERVER_H

#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "test_support.h"

extern char** environ;

namespace qtest {

// How the server answers "UpdateAfterDispensing".
enum class PurgeAnswer {
  kOne,      // the int 1: accepted
  kZero,     // the int 0
  kTwo,      // the int 2
  kStruct,   // the struct {'code': 7, 'text': 'busy'}
  kFault,    // an XML-RPC fault: code 4, text 'purge refused'
  kString,   // the string 'done' (neither int nor struct)
  kDelayed,  // the int 1 after sleeping 1.5 seconds
};

// One call as the server received it.
struct PurgeCall {
  std::string method;
  // Each parameter as "<python type>:<python repr>", e.g. "int:7",
  // "str:'(3:12.500)'", "bool:False".
  std::vector<std::string> params;
};

class PurgeServer {
 public:
  explicit PurgeServer(PurgeAnswer answer) { Start(answer); }
  ~PurgeServer() { Stop(); }
  PurgeServer(const PurgeServer&) = delete;
  PurgeServer& operator=(const PurgeServer&) = delete;

  // Whether the server is listening (the port is known).
  bool ok() const { return port_ > 0; }
  int port() const { return port_; }

  // Stops the server; its port is then closed (a server that is down).
  void Stop() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      int status = 0;
      waitpid(pid_, &status, 0);
      pid_ = -1;
    }
  }

  // Every record line in order: "CONNECT" or "CALL\t<method>\t<param>...".
  std::vector<std::string> Records() const {
    std::vector<std::string> lines;
    std::string text = ReadFile(dir_.file("record"));
    size_t pos = 0;
    while (pos < text.size()) {
      size_t end = text.find('\n', pos);
      if (end == std::string::npos) end = text.size();
      lines.push_back(text.substr(pos, end - pos));
      pos = end + 1;
    }
    return lines;
  }

  int Connections() const {
    int n = 0;
    for (const std::string& line : Records()) n += line == "CONNECT" ? 1 : 0;
    return n;
  }

  std::vector<PurgeCall> Calls() const {
    std::vector<PurgeCall> calls;
    for (const std::string& line : Records()) {
      if (line.compare(0, 5, "CALL\t") != 0) continue;
      std::vector<std::string> fields;
      size_t pos = 5;
      while (true) {
        size_t tab = line.find('\t', pos);
        fields.push_back(line.substr(pos, tab == std::string::npos ? std::string::npos : tab - pos));
        if (tab == std::string::npos) break;
        pos = tab + 1;
      }
      PurgeCall call;
      call.method = fields[0];
      call.params.assign(fields.begin() + 1, fields.end());
      calls.push_back(call);
    }
    return calls;
  }

 private:
  static const char* AnswerName(PurgeAnswer answer) {
    switch (answer) {
      case PurgeAnswer::kOne: return "one";
      case PurgeAnswer::kZero: return "zero";
      case PurgeAnswer::kTwo: return "two";
      case PurgeAnswer::kStruct: return "struct";
      case PurgeAnswer::kFault: return "fault";
      case PurgeAnswer::kString: return "string";
      case PurgeAnswer::kDelayed: return "delayed";
    }
    return "one";
  }

  void Start(PurgeAnswer answer) {
    WriteFile(dir_.file("server.py"), kScript);
    WriteFile(dir_.file("record"), "");
    std::string script = dir_.file("server.py");
    std::string record = dir_.file("record");
    std::string portFile = dir_.file("port");
    std::string mode = AnswerName(answer);
    const char* argv[] = {"/usr/bin/python3", script.c_str(), record.c_str(),
                          portFile.c_str(), mode.c_str(), nullptr};
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, const_cast<char**>(argv), environ) != 0) {
      return;
    }
    pid_ = pid;
    // The server writes its port once it listens. Waiting for it is not a
    // measurement: the bound only keeps a broken interpreter from hanging
    // the test run.
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
      "import os, sys, threading, time, xmlrpc.client\n"
      "from socketserver import ThreadingMixIn\n"
      "from xmlrpc.server import SimpleXMLRPCServer, SimpleXMLRPCRequestHandler\n"
      "record_path, port_path, mode = sys.argv[1], sys.argv[2], sys.argv[3]\n"
      "lock = threading.Lock()\n"
      "def record(line):\n"
      "    with lock:\n"
      "        with open(record_path, 'a') as f:\n"
      "            f.write(line + '\\n')\n"
      "            f.flush()\n"
      "            os.fsync(f.fileno())\n"
      "class Handler(SimpleXMLRPCRequestHandler):\n"
      "    # Keep-alive on our side: a client that kept its connection between\n"
      "    # calls would show as one connection for several calls.\n"
      "    protocol_version = 'HTTP/1.1'\n"
      "    def log_message(self, *args):\n"
      "        pass\n"
      "class Server(ThreadingMixIn, SimpleXMLRPCServer):\n"
      "    daemon_threads = True\n"
      "    allow_reuse_address = True\n"
      "    def get_request(self):\n"
      "        conn = SimpleXMLRPCServer.get_request(self)\n"
      "        record('CONNECT')\n"
      "        return conn\n"
      "class Peer:\n"
      "    def _dispatch(self, method, params):\n"
      "        record('\\t'.join(['CALL', method] +\n"
      "                          ['%s:%r' % (type(p).__name__, p) for p in params]))\n"
      "        if method != 'UpdateAfterDispensing':\n"
      "            raise xmlrpc.client.Fault(1, 'unknown method ' + method)\n"
      "        if mode == 'zero':\n"
      "            return 0\n"
      "        if mode == 'two':\n"
      "            return 2\n"
      "        if mode == 'struct':\n"
      "            return {'code': 7, 'text': 'busy'}\n"
      "        if mode == 'fault':\n"
      "            raise xmlrpc.client.Fault(4, 'purge refused')\n"
      "        if mode == 'string':\n"
      "            return 'done'\n"
      "        if mode == 'delayed':\n"
      "            time.sleep(1.5)\n"
      "        return 1\n"
      "server = Server(('127.0.0.1', 0), requestHandler=Handler, logRequests=False,\n"
      "                allow_none=True)\n"
      "server.register_instance(Peer())\n"
      "with open(port_path + '.tmp', 'w') as f:\n"
      "    f.write('%d\\n' % server.server_address[1])\n"
      "os.rename(port_path + '.tmp', port_path)\n"
      "server.serve_forever()\n";

  TempDir dir_;
  pid_t pid_ = -1;
  int port_ = 0;
};

}  // namespace qtest

#endif
