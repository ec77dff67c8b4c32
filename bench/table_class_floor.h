// The floor's bookings made through the host's table class instead of
// straight on POSIX calls: the same records read, judged and written in
// one QdbBooking, each field by its number, the table opened with the
// library's indexes. Nothing of the library is in it, so set against the
// floor it is the table class's share of a booking's cost, and set against
// the library the library's own.
#ifndef QSLAVE_BENCH_TABLE_CLASS_FLOOR_H
#define QSLAVE_BENCH_TABLE_CLASS_FLOOR_H

#include <string>
#include <vector>

#include "host/qdbase.h"

namespace qbench {

class TableClassFloor {
 public:
  // The tank table tanks.dbf of dir (its journal, qslave.jnl, beside it).
  explicit TableClassFloor(const std::string& dir);

  // As TableFloor::Book: takes qnts[k] off the level of record records[k]
  // (1-based); with checkReserve a level that would fall below its reserve
  // (or a negative threshold) refuses the whole booking, without it the
  // level stops at 0; levels never pass their maximum. Each record's
  // maximum, cistern id, level and reserve are read in the order the
  // library reads them (and its threshold for a dispense). False when
  // refused or when a call fails.
  bool Book(const std::vector<long>& records, const std::vector<double>& qnts, bool checkReserve);

 private:
  Qdbase tanks_;
  int curQ_ = 0, maxQ_ = 0, resQ_ = 0, cistId_ = 0, threshold_ = 0;
};

}  // namespace qbench

#endif
