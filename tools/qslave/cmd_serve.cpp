// serve: a small read-only web server that keeps the dispenser's levels in
// view: a page with the level chart and a table that follows the tables as
// they change, and the same data as JSON. It serves its own page and data
// and nothing else (no file is ever looked up from a request), listens on
// 127.0.0.1 unless told otherwise, and opens the tables for reading only.
#include <signal.h>
#include <stdio.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <string>
#include <thread>

#include <httplib.h>

#include "command_args.h"
#include "commands.h"
#include "host/qdbase.h"
#include "json_output.h"
#include "levels_snapshot.h"
#include "numbers.h"
#include "report.h"
#include "serve_page.h"

namespace {

const char kDefaultListen[] = "127.0.0.1:8080";

struct ListenAddress {
  std::string host;
  int port;
};

// HOST:PORT, or [V6HOST]:PORT; port 0 takes any free port.
bool ParseListen(const std::string& text, ListenAddress* address, std::string* error) {
  const size_t colon = text.rfind(':');
  std::string host = colon == std::string::npos ? "" : text.substr(0, colon);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  }
  long port = -1;
  if (host.empty() || host.find_first_of("[]/ ") != std::string::npos ||
      !ParseLongInRange(text.substr(colon + 1), 0, 65535, &port)) {
    *error = "--listen takes HOST:PORT (port 0 to 65535), not \"" + text + "\"";
    return false;
  }
  address->host = host;
  address->port = static_cast<int>(port);
  return true;
}

void Answer(httplib::Response& response, const std::string& body, const char* type) {
  response.set_header("Cache-Control", "no-store");
  response.set_header("X-Content-Type-Options", "nosniff");
  response.set_header("Content-Security-Policy",
                      "default-src 'self'; img-src 'self' data:; style-src 'self'");
  response.set_content(body, type);
}

void Route(httplib::Server& server, LevelsSnapshot& levels) {
  server.Get("/", [](const httplib::Request&, httplib::Response& response) {
    Answer(response, kServePage, "text/html; charset=utf-8");
  });
  server.Get("/app.js", [](const httplib::Request&, httplib::Response& response) {
    Answer(response, kServeScript, "text/javascript; charset=utf-8");
  });
  server.Get("/app.css", [](const httplib::Request&, httplib::Response& response) {
    Answer(response, kServeStyle, "text/css; charset=utf-8");
  });
  server.Get("/levels.json", [&levels](const httplib::Request&, httplib::Response& response) {
    Answer(response, levels.Current().json + "\n", "application/json");
  });
  server.Get("/levels.svg", [&levels](const httplib::Request&, httplib::Response& response) {
    Answer(response, levels.Current().svg, "image/svg+xml");
  });
  server.set_error_handler([](const httplib::Request&, httplib::Response& response) {
    Answer(response, std::to_string(response.status) + "\n", "text/plain; charset=utf-8");
  });
}

// SIGINT and SIGTERM stop the server from a thread of their own, where
// stopping it is safe (a signal handler may not). A stop asked for before
// the server runs would be lost: the server would then start and run on,
// so the thread waits until it runs (or has ended).
std::thread StopOnSignal(httplib::Server& server, sigset_t signals,
                         const std::atomic<bool>& ended) {
  return std::thread([&server, signals, &ended]() {
    int received = 0;
    sigwait(&signals, &received);
    while (!ended && !server.is_running()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    server.stop();
  });
}

}  // namespace

int RunServe(const Invocation& invocation) {
  int status = kExitOk;
  CommandArgs args;
  if (!args.Parse(invocation, {{"--listen", true}}, 0, 0, &status)) return status;
  ListenAddress address;
  std::string error;
  const std::string listen = args.Has("--listen") ? args.Value("--listen") : kDefaultListen;
  if (!ParseListen(listen, &address, &error)) return args.UsageFailure(error);

  // Every table this process opens from now on is opened for reading.
  Qdbase::SetReadOnly(1);
  LevelsSnapshot levels(invocation.options);
  if (!levels.Load(&error)) return Fail(error);

  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  // Blocked before the server starts its threads, which inherit the mask.
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  httplib::Server server;
  // Without the port sharing the library turns on by default: a second
  // server on a port in use is refused instead of taking half its visitors.
  server.set_socket_options([](socket_t sock) {
    int yes = 1;
    setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  Route(server, levels);
  const int port = address.port == 0 ? server.bind_to_any_port(address.host)
                                     : (server.bind_to_port(address.host, address.port)
                                            ? address.port
                                            : -1);
  if (port < 0) {
    return Fail("cannot listen on " + listen + " (in use, or not an address of this machine)");
  }
  const bool v6 = address.host.find(':') != std::string::npos;
  const std::string url = "http://" + std::string(v6 ? "[" : "") + address.host +
                          (v6 ? "]" : "") + ":" + std::to_string(port) + "/";
  if (JsonOutput()) {
    // The document comes as soon as the server listens: a script learns
    // the address (port 0 picks one) without waiting for the end.
    Document()["url"] = url;
    PrintDocument(kExitOk);
  } else {
    printf("serving the levels on %s (Ctrl-C stops)\n", url.c_str());
  }
  fflush(stdout);
  std::atomic<bool> ended(false);
  std::thread stopper = StopOnSignal(server, signals, ended);
  const bool served = server.listen_after_bind();
  ended = true;
  // Wakes the signal thread if no signal came: the server ended by itself.
  pthread_kill(stopper.native_handle(), SIGTERM);
  stopper.join();
  if (served) return kExitOk;
  // With --json the document went out already; the error line says it.
  return Fail("the server stopped with an error");
}
