// Shared set-up of the fuzz targets: a private data directory (QSLAVE_DATA)
// with configuration and colourant-data tables written through Qdbase, a
// pristine copy of every table to restore before each run, a silenced
// trace, and small helpers to cut a fuzzer input into pieces.
#ifndef QSLAVE_FUZZ_FUZZ_TABLES_H
#define QSLAVE_FUZZ_FUZZ_TABLES_H

#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "host/qdbase.h"

class slave;

namespace qfuzz {

// Creates the data directory (on /dev/shm when it can, else $TMPDIR or
// /tmp), points QSLAVE_DATA at it, clears the variables that would change
// the library's behaviour (QSLAVE_SIM, QSLAVE_TRACE, DSPDEBUG,
// DEBUG_NO_CLEAR), silences the trace and removes the directory at exit.
// Returns the directory. Aborts when it cannot be made.
const std::string& InitDataDir();
const std::string& DataDir();

// Writes the standard tables into the data directory (see fuzz_tables.cpp
// for their contents):
//   dispenser 1: ZARVO, splitting and stopper options on, CFG_STR with a
//                splitting percentage and threshold, 8 tanks holding
//                colourants 10 (one tank), 20 (two independent tanks with
//                thresholds), 30 (a linked pair on cistern 1), 40 (a
//                multiplexed pair), 50 (an empty tank);
//   dispenser 2: ZARVO, no options, tanks 1-2 (colourants 10 and 20);
//   dispenser 9: T7R (type 9), tanks 1-3;
//   cisterns 1 and 2; colourants 10..60 with codes and specific weights;
//   a few cans.
// Then snapshots every .dbf file so that Restore() can put them back.
void WriteStandardTables();

// Snapshots / restores every .dbf file of the data directory. The library's
// tables must be closed (no live slave object) when Restore() runs.
void Snapshot();
void Restore();

// Opens table base of the data directory (no index), appends one record
// and lets the caller fill it; the record reaches the file, whole, when
// Finish() returns (a Row destroyed unfinished leaves no record).
class Row {
 public:
  explicit Row(const char* base);
  ~Row();
  Row(const Row&) = delete;
  Row& operator=(const Row&) = delete;
  Row& Long(const char* field, long v);
  Row& Double(const char* field, double v);
  Row& Logical(const char* field, bool v);
  Row& String(const char* field, const std::string& v);
  // An id as field tables store it in a text: "%5ld".
  Row& TextId(const char* field, long v);
  bool Finish();

 private:
  Qdbase table_;
  std::unique_ptr<QdbBooking> booking_;
  bool ok_;
};

// Creates an empty table in the data directory, replacing an existing one.
// widths overrides the width of the named fields of the reference layout.
bool CreateTable(int schemaTable,
                 const std::vector<std::pair<std::string, int>>& widths = {});

// A slave on dispenser id with the purge server switched off, so that no
// run waits for a network peer. The caller deletes it (or uses the guard).
class SlaveGuard {
 public:
  explicit SlaveGuard(long id);
  ~SlaveGuard();
  SlaveGuard(const SlaveGuard&) = delete;
  SlaveGuard& operator=(const SlaveGuard&) = delete;
  slave* operator->() { return s_; }
  slave& operator*() { return *s_; }
  slave* get() { return s_; }

 private:
  slave* s_;
};

// Cuts data at '\n' into at most max pieces; the last piece keeps the rest
// (newlines included).
std::vector<std::string> SplitLines(const uint8_t* data, size_t size, size_t max);

// A zero-terminated heap copy of the bytes: the library takes char*, and a
// heap block lets the address sanitizer see any read past its end.
std::vector<char> CText(const uint8_t* data, size_t size);

}  // namespace qfuzz

#endif
