// The floor: the least that correct work with the library's durability
// costs, written straight on POSIX calls (no table class). A booking takes
// the open-file-description lock of the directory's journal and reads the
// journal's header, reads each record it changes with one pread and the
// quantities the library reads of it (CUR_Q, MAX_Q, RES_Q, CIST_ID, and
// THRESHOLD for a dispense) as whole units of their last decimal, refuses
// the whole booking if any record is short or any of them is no number
// (first pass), then formats the new levels, appends one journal entry in
// the library's format (same header, parts and CRC-32) and syncs it, writes
// each changed field in place, writes the applied mark, checkpoints on the
// same rule as the library, and unlocks (second pass).
#ifndef QSLAVE_BENCH_FLOOR_H
#define QSLAVE_BENCH_FLOOR_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace qbench {

class TableFloor {
 public:
  // The tank table tanks.dbf of dir and the journal qslave.jnl beside it.
  explicit TableFloor(const std::string& dir);
  ~TableFloor();
  TableFloor(const TableFloor&) = delete;
  TableFloor& operator=(const TableFloor&) = delete;

  // Takes qnts[k] off the level of record records[k] (1-based). With
  // checkReserve, a level that would fall below its reserve (or a negative
  // threshold) refuses the whole booking, as a dispense does; without it
  // the level stops at 0, as a level batch does. Levels never pass their
  // maximum. False when refused or when a call fails.
  bool Book(const std::vector<long>& records, const std::vector<double>& qnts, bool checkReserve);

 private:
  struct Field {
    int offset = 0;
    int width = 0;
    int decimals = 0;
  };
  Field FieldOf(const char* name) const;
  double Number(const char* record, const Field& f) const;
  bool Text(double v, const Field& f, std::string* out) const;
  bool Lock();
  void Unlock();
  std::string Header() const;
  bool Checkpoint();

  std::string dir_;
  int table_ = -1;
  int journal_ = -1;
  ino_t inode_ = 0;
  long long headerLength_ = 0;
  long long recordLength_ = 0;
  std::vector<std::pair<std::string, Field>> fields_;
  Field cur_, res_, max_, threshold_, cistId_;
  std::string bootId_;
  long long end_ = 64;
  unsigned long long changes_ = 0;
};

}  // namespace qbench

#endif
