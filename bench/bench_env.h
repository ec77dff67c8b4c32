// The world the benchmarks run in: configuration and colourant tables on
// disk in a temporary directory, the library pointed at it, a purge server
// on a loopback port, and a copy of the tank table for the floors.
#ifndef QSLAVE_BENCH_ENV_H
#define QSLAVE_BENCH_ENV_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace qbench {

// Dispenser ids of the data set. The growth dispensers have as many
// circuits as their id; tank t of each holds colourant t, alone.
enum : long {
  kDispenseId = 1,  // 64 circuits, one colourant per circuit
  kSplitId = 2,     // single, independent and linked colourants
};
constexpr int kDispenseCircuits = 64;
constexpr long kGrowthIds[] = {16, 128, 999};
// Dispensers whose driver keeps the levels, tank t holding colourant t:
// 1000 + N (type 7, LIQON) has N circuits, the driver's rows by circuit;
// 2000 + N (type 2, ZARVO) has N circuits, the driver's rows by tank field.
constexpr long kDriverLevelIds[] = {1016, 1128, 1999, 2016, 2128, 2999};
constexpr int CircuitsOf(long id) { return static_cast<int>(id % 1000); }
constexpr const char* DriverOf(long id) { return id >= 2000 ? "ZARVO" : "LIQON"; }
// Colourant ids of the split dispenser: single tanks from 101, pairs of
// independent tanks from 201, linked pairs (a master and a secondary fed by
// one cistern) from 301; 40 of each.
constexpr long kSingleBase = 100;
constexpr long kIndependentBase = 200;
constexpr long kLinkedBase = 300;
constexpr int kSplitColourants = 40;
// Colourants 1..kColourants are in the colourant table.
constexpr int kColourants = 999;
// Every level starts (and is put back) at this; dispenses take a few cc.
constexpr double kFullLevel = 90000000.0;

// A formula text "(id:qty)..." of n colourants: ids first, first+step, ...
// with quantities 0.5, 0.75, 1.0, ...
std::string Formula(long first, long step, int n);

class Env {
 public:
  // Builds the data set; aborts the program with a message on failure.
  Env();
  ~Env();
  Env(const Env&) = delete;
  Env& operator=(const Env&) = delete;

  const std::string& dir() const { return dir_; }

  // The purge server (Python's xmlrpc.server answering 1), started on first
  // use. 0 when it could not be started.
  int PurgeServerPort();

  // A directory holding a copy of the tank table, for the floors; record
  // numbers are those of the library's table.
  const std::string& floor_dir() const { return floorDir_; }
  // A third copy of the tank table, for the floors' bookings made through
  // the table class (table_class_floor.h).
  const std::string& table_class_dir() const { return tableClassDir_; }

  // Record numbers (1-based) of the tank records of a dispenser, by tank.
  std::vector<long> TankRecords(long dispId) const;

 private:
  void BuildTables();
  std::string dir_;
  std::string floorDir_;
  std::string tableClassDir_;
  pid_t serverPid_ = -1;
  int serverPort_ = 0;
  std::vector<std::pair<long, int>> tankKeys_;  // (disp, tank) per record
};

Env& TheEnv();

}  // namespace qbench

#endif
