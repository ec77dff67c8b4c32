// Disk faults on demand, for the tests of bookings: the test programs that
// link this (those whose name ends in "_faults") carry their own pread,
// pwrite, fdatasync, fsync and ftruncate, which stand in for the C
// library's in the whole process, the table class included. Disarmed they
// pass every call through. Armed, they count the calls on files whose path
// contains a given text and make the N-th of them fail the way a disk
// makes it fail (EIO, ENOSPC, a write that stores only part), or kill the
// process right before it (SIGKILL: a power cut's moment, seen from the
// process).
#ifndef QSLAVE_TEST_FAULT_INJECTION_H
#define QSLAVE_TEST_FAULT_INJECTION_H

#include <string>

namespace qtest {
namespace faults {

enum Op {
  kRead = 1,
  kWrite = 2,
  kSync = 4,
  kTruncate = 8,
  kAll = 15,
};

struct Plan {
  std::string match;  // part of the path of the files concerned ("" = any)
  int ops = kAll;     // which calls count
  long failAt = 0;    // the N-th counted call fails; 0: none does
  int error = 5;      // errno of the failure (EIO)
  bool shortWrite = false;  // a failing write first stores half its bytes
  bool kill = false;  // the N-th call kills the process instead
};

// Arms the plan (counting starts at 0) / passes everything through again.
void Arm(const Plan& plan);
void Disarm();
// Calls counted since Arm.
long Count();
// Whether the armed failure has happened.
bool Fired();

}  // namespace faults
}  // namespace qtest

#endif
