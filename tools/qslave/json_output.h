// --json: every command writes one JSON document on standard output instead
// of its text, so that scripts and monitoring systems can read it. The
// command fills the document while it runs; the tool prints it once, at the
// end, with "ok" and "exit_status" added, also when the command failed.
#ifndef QSLAVE_CLI_JSON_OUTPUT_H
#define QSLAVE_CLI_JSON_OUTPUT_H

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

// Fields keep the order in which a command writes them.
using Json = nlohmann::ordered_json;

void SetJsonOutput(bool on);
bool JsonOutput();

// Starts a new document for the command called name.
void StartDocument(const std::string& name);
// The running command's document.
Json& Document();
// Prints the document (ok, exit_status and the error added) and forgets it.
void PrintDocument(int exit_status);
// Whether the running command printed its document itself (serve does, as
// soon as it listens); the tool then prints none at its end.
bool DocumentPrinted();

// Records the failure for the document: the message, whether it was a
// wrong command line, and, when the library kept one, its last error code
// and that code's text.
void RecordError(const std::string& message, bool usage);
void RecordLibraryError(int code);

// A level for the document: the value, or null when it is not known.
Json LevelValue(bool known, double value);

// The document as text: indented, invalid UTF-8 (a Latin-1 table text)
// replaced rather than refused.
std::string JsonText(const Json& document);

#endif
