#include "table_class_floor.h"

namespace qbench {

namespace {

// The library's indexes of the tank table: keeping them in order is part of
// every write's cost.
const char* kIndexNames[] = {"TANKS", "TANKS2"};
const char* kIndexKeys[] = {"DISP_ID", "VAL(DISP_ID)*1000+TANK"};

}  // namespace

TableClassFloor::TableClassFloor(const std::string& dir) {
  tanks_.SetFiles(dir.c_str(), "tanks", 2, kIndexNames, kIndexKeys);
  tanks_.Open();
  curQ_ = tanks_.FieldNo("CUR_Q");
  maxQ_ = tanks_.FieldNo("MAX_Q");
  resQ_ = tanks_.FieldNo("RES_Q");
  cistId_ = tanks_.FieldNo("CIST_ID");
  threshold_ = tanks_.FieldNo("THRESHOLD");
}

bool TableClassFloor::Book(const std::vector<long>& records, const std::vector<double>& qnts,
                           bool checkReserve) {
  // One pass suffices: within the booking nothing reaches the file before
  // the commit, and a refused record abandons the booking (its destructor),
  // leaving every record as it was.
  QdbBooking booking(&tanks_);
  if (!booking.Ok()) return false;
  for (size_t k = 0; k < records.size(); ++k) {
    double cur = 0.0, max = 0.0, res = 0.0, threshold = 0.0;
    long cist = 0;
    if (!tanks_.Go(records[k]) || !tanks_.ReadFieldDouble(maxQ_, &max) ||
        !tanks_.ReadFieldLong(cistId_, &cist) || !tanks_.ReadFieldDouble(curQ_, &cur) ||
        !tanks_.ReadFieldDouble(resQ_, &res) ||
        (checkReserve && !tanks_.ReadFieldDouble(threshold_, &threshold))) {
      return false;
    }
    // The data set has no cisterns, as in the floor.
    if (cist != 0) return false;
    double level = cur - qnts[k];
    if (checkReserve && (level < res || threshold < 0.0)) return false;
    if (level < 0.0) level = 0.0;
    if (level > max) level = max;
    if (!tanks_.WriteFieldDouble(curQ_, level)) return false;
  }
  return booking.Commit() == 1;
}

}  // namespace qbench
