// The levels `qslave serve` shows: read from the tables when they change,
// kept otherwise. Every library call happens here, under one lock, on
// whichever server thread asks: the library is called from one thread at a
// time.
#ifndef QSLAVE_CLI_LEVELS_SNAPSHOT_H
#define QSLAVE_CLI_LEVELS_SNAPSHOT_H

#include <mutex>
#include <string>

#include "options.h"

struct LevelsView {
  std::string json;  // the JSON document of /levels.json
  std::string svg;   // the level chart
};

class LevelsSnapshot {
 public:
  explicit LevelsSnapshot(const GlobalOptions& options) : options_(options) {}

  // Reads the tables for the first time; false with *error when the
  // dispenser cannot be selected.
  bool Load(std::string* error);
  // The current view, read again first when a table file changed.
  LevelsView Current();

 private:
  bool Read(std::string* error);
  std::string TableStamps() const;

  GlobalOptions options_;
  std::mutex lock_;
  std::string stamps_;
  long generation_ = 0;
  LevelsView view_;
  std::string data_dir_;
};

#endif
