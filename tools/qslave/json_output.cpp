#include "json_output.h"

#include <stdio.h>

#include "command_kinds.h"

namespace {

bool g_json = false;
bool g_printed = false;
Json g_document = Json::object();

}  // namespace

void SetJsonOutput(bool on) { g_json = on; }
bool JsonOutput() { return g_json; }

void StartDocument(const std::string& name) {
  g_printed = false;
  g_document = Json::object();
  g_document["command"] = name;
}

Json& Document() { return g_document; }

void RecordError(const std::string& message, bool usage) {
  Json& error = g_document["error"];
  // The first failure is the one that stopped the command.
  if (error.is_object() && error.contains("message")) return;
  error["message"] = message;
  error["usage"] = usage;
}

void RecordLibraryError(int code) {
  Json& error = g_document["error"];
  error["last_error"] = code;
  error["last_error_text"] = LibraryCodeText(code);
}

Json LevelValue(bool known, double value) {
  if (!known) return nullptr;
  return value;
}

std::string JsonText(const Json& document) {
  return document.dump(2, ' ', false, Json::error_handler_t::replace);
}

void PrintDocument(int exit_status) {
  Json printed = Json::object();
  printed["command"] = g_document.value("command", "");
  printed["ok"] = exit_status == 0;
  printed["exit_status"] = exit_status;
  for (auto it = g_document.begin(); it != g_document.end(); ++it) {
    if (it.key() != "command") printed[it.key()] = it.value();
  }
  fputs((JsonText(printed) + "\n").c_str(), stdout);
  fflush(stdout);
  g_document = Json::object();
  g_printed = true;
}

bool DocumentPrinted() { return g_printed; }
