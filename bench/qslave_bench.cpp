// What the library costs its host, against the floor: the least the same
// work can cost. The floors book the records the operation cannot avoid
// changing straight on POSIX calls, with the library's lock, journal and
// sync (floor.h), read the formula and write the trace lines a dispense
// writes through the host's own calls, hand the same command text to the
// same simulated driver, and make the one XML-RPC call of the purge-server
// update straight through XmlRpc++.
//
// Run with --count=WORK under valgrind --tool=callgrind --collect-atstart=no
// to count the instructions of one workload instead (see scripts/bench.sh).
#include <benchmark/benchmark.h>
#include <flxmlrpc/XmlRpc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench_env.h"
#include "floor.h"
#include "host/qdsp32.h"
#include "host/zutable.h"
#include "refhost/dispenser/simulated_dispenser.h"
#include "slave.h"
#include "table_class_floor.h"

namespace {

using qbench::Env;
using qbench::TheEnv;

void NoTrace(const char*) {}

// The slave objects the benchmarks share; the first one opens the tables
// and keeps them open, as a host does.
struct Slaves {
  std::unique_ptr<slave> dispense;
  std::unique_ptr<slave> split;
  std::map<long, std::unique_ptr<slave>> growth;
  std::map<long, std::unique_ptr<slave>> driverLevels;
};

Slaves* g_slaves = nullptr;

Slaves& TheSlaves() {
  if (g_slaves == nullptr) {
    TheEnv();
    g_slaves = new Slaves;
    g_slaves->dispense.reset(new slave(qbench::kDispenseId));
    g_slaves->split.reset(new slave(qbench::kSplitId));
    for (long id : qbench::kGrowthIds) g_slaves->growth[id].reset(new slave(id));
    for (long id : qbench::kDriverLevelIds) {
      slave* s = new slave(id);
      g_slaves->driverLevels[id].reset(s);
      s->m_PurgeSrvOff = 1;
      // The driver keeps a level for every circuit (as full as the table
      // says): every level query answers with all its rows, which the
      // library copies into the tank records before it reads them.
      SimulatedDispenser* sim = SimulatedDispenser::From(s->m_Dsp);
      for (int c = 1; c <= qbench::CircuitsOf(id); ++c) {
        sim->SetCircuitLevel(c, qbench::kFullLevel, qbench::kFullLevel, 100.0);
      }
    }
    if (g_slaves->dispense->m_NumTanks != qbench::kDispenseCircuits) {
      fprintf(stderr, "qslave_bench: the dispense dispenser has %d circuits\n",
              g_slaves->dispense->m_NumTanks);
      exit(2);
    }
  }
  return *g_slaves;
}

void DropSlaves() {
  delete g_slaves;
  g_slaves = nullptr;
}

std::vector<char> Text(const std::string& s) {
  std::vector<char> v(s.begin(), s.end());
  v.push_back('\0');
  return v;
}

// The simulated driver keeps every call and command it receives; the
// history is dropped now and then, outside the timed region.
void DropHistory(CDispenser* dsp) {
  if (dsp != nullptr) SimulatedDispenser::From(dsp)->ClearHistory();
}

template <typename State>
void Tidy(State& state, CDispenser* dsp, long iteration) {
  if ((iteration & 63) != 0) return;
  state.PauseTiming();
  DropHistory(dsp);
  state.ResumeTiming();
}

// --- The dispense ----------------------------------------------------------

// The 12-colourant formula: colourants 1, 6, ..., 56 of the 64 circuits.
const std::string& DispenseFormula() {
  static const std::string f = qbench::Formula(1, 5, 12);
  return f;
}

void AimAtPurgeServer(slave& s, bool on) {
  s.m_PurgeSrvOff = on ? 0 : 1;
  if (!on) return;
  snprintf(s.m_PurgeSrvHost, sizeof s.m_PurgeSrvHost, "%s", "127.0.0.1");
  s.m_PurgeSrvPort = TheEnv().PurgeServerPort();
}

void BM_Dispense(benchmark::State& state) {
  const bool purge = state.range(0) != 0;
  slave& s = *TheSlaves().dispense;
  if (purge && TheEnv().PurgeServerPort() <= 0) {
    state.SkipWithError("no purge server");
    return;
  }
  AimAtPurgeServer(s, purge);
  s.SetLevelMax();
  std::vector<char> frm = Text(DispenseFormula());
  long i = 0;
  for (auto _ : state) {
    if (s.Dispense(frm.data(), 1.0, 1.0, 0, 1, 0, 0) != 1) {
      state.SkipWithError("dispense failed");
      break;
    }
    Tidy(state, s.m_Dsp, ++i);
  }
  AimAtPurgeServer(s, false);
}
BENCHMARK(BM_Dispense)->ArgName("purge")->Arg(0)->Arg(1);

// A floor's booking: straight on POSIX calls (floor.h) or, for the counts
// that split a ratio, through the host's table class (table_class_floor.h).
struct FloorBooking {
  qbench::TableFloor posix{TheEnv().floor_dir()};
  std::unique_ptr<qbench::TableClassFloor> tableClass;

  explicit FloorBooking(bool throughTableClass) {
    if (throughTableClass) tableClass.reset(new qbench::TableClassFloor(TheEnv().table_class_dir()));
  }
  bool Book(const std::vector<long>& records, const std::vector<double>& qnts, bool checkReserve) {
    return tableClass != nullptr ? tableClass->Book(records, qnts, checkReserve)
                                 : posix.Book(records, qnts, checkReserve);
  }
};

// The floor of a dispense: the formula text read with the host's formula
// reader, each colourant's tank found in a map made beforehand (as the
// library's tank map is made when the dispenser is selected), the booking
// of the 12 tanks' levels (see floor.h), the command sent to a driver of
// the same type, the purge server told, and the dispense's three trace
// lines (the call, the command, its result) handed to the host's trace
// with one call each. throughTableClass: the booking is made through the
// host's table class instead, the rest as it is.
struct DispenseFloor {
  FloorBooking booking;
  // By colourant id: its tank and that tank's record (colourant t is alone
  // in tank t).
  std::vector<int> tankOf;
  std::vector<long> recordOf;
  std::vector<char> frm = Text(DispenseFormula());
  CDispenser* dsp = CDispenser_CreateNew(2, 0);
  long pid = static_cast<long>(getpid());
  int port = 0;

  explicit DispenseFloor(bool purge, bool throughTableClass = false) : booking(throughTableClass) {
    const std::vector<long> all = TheEnv().TankRecords(qbench::kDispenseId);
    tankOf.assign(all.size() + 1, 0);
    recordOf.assign(all.size() + 1, 0);
    for (size_t t = 0; t < all.size(); ++t) {
      tankOf[t + 1] = static_cast<int>(t) + 1;
      recordOf[t + 1] = all[t];
    }
    if (purge) port = TheEnv().PurgeServerPort();
  }
  ~DispenseFloor() { CDispenser_Delete(dsp, 0); }

  bool Run() {
    // Dispense(frm, f, u, w = 0, ...) with the library's benchmark's factors.
    const double f = 1.0, u = 1.0;
    TarvoTrace("\nQslave::Dispense( Frm=[%s], f=%.4lf, u=%.4lf, w=%d)\n", frm.data(), f, u, 0);
    kformula formula;
    formula.set(frm.data());
    const int n = formula.count();
    if (n < 1 || n > 64) return false;
    long long ids[64];
    double parsed[64];
    formula.parse(ids, parsed);
    std::vector<int> tanks(static_cast<size_t>(n));
    std::vector<long> records(static_cast<size_t>(n));
    std::vector<double> qnts(static_cast<size_t>(n));
    for (int k = 0; k < n; ++k) {
      if (ids[k] < 1 || ids[k] >= static_cast<long long>(recordOf.size())) return false;
      tanks[static_cast<size_t>(k)] = tankOf[static_cast<size_t>(ids[k])];
      records[static_cast<size_t>(k)] = recordOf[static_cast<size_t>(ids[k])];
      qnts[static_cast<size_t>(k)] = f * parsed[k] * u;
    }
    // The "(t:q)" entries, each quantity as "%.3lf" prints it, by the
    // cheapest exact means (std::to_chars), as the library writes them.
    char command[SLV_CMD_BUFFER] = "/D";
    char* p = command + 2;
    char* const end = command + sizeof command - 1;
    for (int k = 0; k < n; ++k) {
      if (end - p < 64) return false;  // room for an entry of any int and a quantity
      *p++ = '(';
      p = std::to_chars(p, end, tanks[static_cast<size_t>(k)]).ptr;
      *p++ = ':';
      p = std::to_chars(p, end, qnts[static_cast<size_t>(k)], std::chars_format::fixed, 3).ptr;
      *p++ = ')';
    }
    *p = '\0';
    if (!booking.Book(records, qnts, true)) return false;
    TarvoTrace("\n[TH_ID=%ld] %s", pid, command);
    const int r = dsp->SendCommand(1, command);
    TarvoTrace("\n[TH_ID=%ld] %s --> %2d %s", pid, command, r, "SUCCESS");
    if (r != 0) return false;
    if (port > 0) {
      XmlRpc::XmlRpcClient client("127.0.0.1", port);
      XmlRpc::XmlRpcValue params, result;
      params.setSize(3);
      params[0] = 1;
      params[1] = std::string(command + 2);
      params[2] = false;
      const bool ok = client.execute("UpdateAfterDispensing", params, result, -1.0);
      client.close();
      if (!ok || static_cast<int>(result) != 1) return false;
    }
    return true;
  }
};

void BM_DispenseFloor(benchmark::State& state) {
  const bool purge = state.range(0) != 0;
  DispenseFloor floor(purge);
  if (purge && floor.port <= 0) {
    state.SkipWithError("no purge server");
    return;
  }
  long i = 0;
  for (auto _ : state) {
    if (!floor.Run()) {
      state.SkipWithError("floor dispense failed");
      break;
    }
    Tidy(state, floor.dsp, ++i);
  }
}
BENCHMARK(BM_DispenseFloor)->ArgName("purge")->Arg(0)->Arg(1);

// One XML-RPC call on its own: what the purge-server update cannot avoid.
void BM_PurgeCallFloor(benchmark::State& state) {
  const int port = TheEnv().PurgeServerPort();
  if (port <= 0) {
    state.SkipWithError("no purge server");
    return;
  }
  for (auto _ : state) {
    XmlRpc::XmlRpcClient client("127.0.0.1", port);
    XmlRpc::XmlRpcValue params, result;
    params.setSize(3);
    params[0] = 1;
    params[1] = std::string("(1:0.500)");
    params[2] = false;
    if (!client.execute("UpdateAfterDispensing", params, result, -1.0)) {
      state.SkipWithError("call failed");
      break;
    }
    client.close();
  }
}
BENCHMARK(BM_PurgeCallFloor);

// --- The level batch --------------------------------------------------------

// A level batch of every circuit 1..n, each lowered by 0.001.
struct EveryCircuit {
  std::vector<int> circuits;
  std::vector<double> qnts;

  explicit EveryCircuit(int n) : circuits(static_cast<size_t>(n)), qnts(circuits.size(), 0.001) {
    for (int i = 0; i < n; ++i) circuits[static_cast<size_t>(i)] = i + 1;
  }
  // UpdateLevels of the batch on s; true when it answers 1.
  bool Update(slave& s) {
    return s.UpdateLevels(static_cast<int>(circuits.size()), circuits.data(), qnts.data(), 1.0,
                          0) == 1;
  }
};

void BM_LevelBatch(benchmark::State& state) {
  slave& s = *TheSlaves().dispense;
  s.SetLevelMax();
  EveryCircuit batch(qbench::kDispenseCircuits);
  long i = 0;
  for (auto _ : state) {
    if (!batch.Update(s)) {
      state.SkipWithError("level update failed");
      break;
    }
    Tidy(state, s.m_Dsp, ++i);
  }
}
BENCHMARK(BM_LevelBatch);

// The floor of the batch: one booking of every circuit's level (see
// floor.h), without the split and the send. throughTableClass: the booking
// is made through the host's table class instead.
struct LevelFloor {
  FloorBooking booking;
  std::vector<long> records = TheEnv().TankRecords(qbench::kDispenseId);
  std::vector<double> qnts = std::vector<double>(records.size(), 0.001);

  explicit LevelFloor(bool throughTableClass = false) : booking(throughTableClass) {}
  bool Run() { return booking.Book(records, qnts, false); }
};

void BM_LevelBatchFloor(benchmark::State& state) {
  LevelFloor floor;
  for (auto _ : state) {
    if (!floor.Run()) {
      state.SkipWithError("floor level update failed");
      break;
    }
  }
}
BENCHMARK(BM_LevelBatchFloor);

// --- Driver-kept levels (types 7 and 2) -----------------------------------------
// The driver keeps the levels: every level query asks it for its rows.
// Dispenser 1000 + N (type 7) has its rows by circuit, 2000 + N (type 2)
// by tank field; both have N circuits.

slave& DriverLevels(long id) { return *TheSlaves().driverLevels[id]; }

void BM_DriverLevelsUpdate(benchmark::State& state) {
  slave& s = DriverLevels(state.range(0));
  EveryCircuit batch(qbench::CircuitsOf(state.range(0)));
  long i = 0;
  for (auto _ : state) {
    if (!batch.Update(s)) {
      state.SkipWithError("level update failed");
      break;
    }
    Tidy(state, s.m_Dsp, ++i);
  }
}
BENCHMARK(BM_DriverLevelsUpdate)
    ->ArgName("dispenser")
    ->Arg(1016)->Arg(1128)->Arg(1999)->Arg(2016)->Arg(2128)->Arg(2999);

void BM_DriverLevelsDispense(benchmark::State& state) {
  slave& s = DriverLevels(state.range(0));
  std::vector<char> frm = Text(qbench::Formula(1, 1, 12));
  long i = 0;
  for (auto _ : state) {
    if (s.Dispense(frm.data(), 1.0, 1.0, 0, 1, 0, 0) != 1) {
      state.SkipWithError("dispense failed");
      break;
    }
    Tidy(state, s.m_Dsp, ++i);
  }
}
BENCHMARK(BM_DriverLevelsDispense)->ArgName("dispenser")->Arg(1016)->Arg(1128)->Arg(1999);

void BM_DriverLevelsDumpTanks(benchmark::State& state) {
  slave& s = DriverLevels(state.range(0));
  long i = 0;
  for (auto _ : state) {
    s.DumpTanks();
    Tidy(state, s.m_Dsp, ++i);
  }
}
BENCHMARK(BM_DriverLevelsDumpTanks)
    ->ArgName("dispenser")
    ->Arg(1016)->Arg(1128)->Arg(1999)->Arg(2016)->Arg(2128)->Arg(2999);

void BM_DriverLevelsPurge(benchmark::State& state) {
  slave& s = DriverLevels(state.range(0));
  SimulatedDispenser* sim = SimulatedDispenser::From(s.m_Dsp);
  const int n = qbench::CircuitsOf(state.range(0));
  long i = 0;
  for (auto _ : state) {
    state.PauseTiming();
    // The machine was refilled: every circuit's figures differ from the record.
    const double level = qbench::kFullLevel - (i % 2 == 0 ? 1.0 : 2.0);
    for (int c = 1; c <= n; ++c) sim->SetCircuitLevel(c, level, qbench::kFullLevel, 100.0);
    state.ResumeTiming();
    if (s.Purge(0.001, nullptr, false, false) != 1) {
      state.SkipWithError("purge failed");
      break;
    }
    Tidy(state, s.m_Dsp, ++i);
  }
}
BENCHMARK(BM_DriverLevelsPurge)
    ->ArgName("dispenser")
    ->Arg(1016)->Arg(1128)->Arg(1999)->Arg(2016)->Arg(2128)->Arg(2999);

// --- The split ----------------------------------------------------------------

// The split dispenser's colourants of one kind: 0 single tanks, 1
// independent pairs, 2 linked pairs fed by cisterns.
const long kSplitBases[] = {qbench::kSingleBase, qbench::kIndependentBase, qbench::kLinkedBase};

// The split of a formula of n colourants; false when it failed.
bool SplitOnce(slave& s, std::vector<char>& frm, int n) {
  Zu_LongArray cnts;
  Zu_IntArray tanks;
  Zu_DoubleArray qnts;
  return s.SplitFrmToTanks(frm.data(), &cnts, &tanks, &qnts, 1.0, 1.0, 0, 0, nullptr) >= n;
}

// range(0): colourants; range(1): their kind (see kSplitBases).
void BM_Split(benchmark::State& state) {
  slave& s = *TheSlaves().split;
  const int n = static_cast<int>(state.range(0));
  std::vector<char> frm = Text(qbench::Formula(kSplitBases[state.range(1)] + 1, 1, n));
  for (auto _ : state) {
    if (!SplitOnce(s, frm, n)) {
      state.SkipWithError("split failed");
      break;
    }
  }
}
BENCHMARK(BM_Split)
    ->ArgNames({"colourants", "kind"})
    ->ArgsProduct({{1, 12, 40}, {0, 1, 2}});

// The 12-colourant split on dispensers of 16, 128 and 999 circuits.
void BM_SplitCircuits(benchmark::State& state) {
  const long id = state.range(0);
  slave& s = *TheSlaves().growth[id];
  std::vector<char> frm = Text(qbench::Formula(1, id / 12, 12));
  for (auto _ : state) {
    Zu_IntArray tanks;
    Zu_DoubleArray qnts;
    if (s.SplitFrmToTanks(frm.data(), nullptr, &tanks, &qnts, 1.0, 1.0, 0, 0, nullptr) != 12) {
      state.SkipWithError("split failed");
      break;
    }
  }
  state.SetComplexityN(id);
}
BENCHMARK(BM_SplitCircuits)->ArgName("circuits")->Arg(16)->Arg(128)->Arg(999);

// --- Construction ---------------------------------------------------------------

void BM_Construct(benchmark::State& state) {
  const long id = state.range(0);
  TheSlaves();  // the tables are open, as they are for a host's second object
  for (auto _ : state) {
    slave s(id);
    if (s.m_NumTanks != id) {
      state.SkipWithError("construction failed");
      break;
    }
  }
  state.SetComplexityN(id);
}
BENCHMARK(BM_Construct)->ArgName("circuits")->Arg(16)->Arg(128)->Arg(999);

// --- Level checks ------------------------------------------------------------------

void BM_CheckLevel(benchmark::State& state) {
  slave& s = *TheSlaves().dispense;
  s.SetLevelMax();
  std::vector<char> frm = Text(DispenseFormula());
  long i = 0;
  for (auto _ : state) {
    Zu_IntArray low;
    if (s.CheckLevel(frm.data(), 1.0, 1.0, 0, &low) != 2) {
      state.SkipWithError("level check failed");
      break;
    }
    Tidy(state, s.m_Dsp, ++i);
  }
}
BENCHMARK(BM_CheckLevel);

void BM_WarningLevel(benchmark::State& state) {
  slave& s = *TheSlaves().dispense;
  s.SetLevelMax();
  std::vector<char> frm = Text(DispenseFormula());
  long i = 0;
  for (auto _ : state) {
    Zu_IntArray circuits, colourants;
    if (s.GetCircuitsUnderWarningLevel(frm.data(), 1.0, 1.0, 0, circuits, colourants) != 1 ||
        circuits.size() != 0) {
      state.SkipWithError("warning-level query failed");
      break;
    }
    Tidy(state, s.m_Dsp, ++i);
  }
}
BENCHMARK(BM_WarningLevel);

// --- Reports ----------------------------------------------------------------------

void BM_DumpTanks(benchmark::State& state) {
  const long id = state.range(0);
  slave& s = *TheSlaves().growth[id];
  for (auto _ : state) {
    s.DumpTanks();
    state.PauseTiming();
    DropHistory(s.m_Dsp);
    state.ResumeTiming();
  }
  state.SetComplexityN(id);
}
BENCHMARK(BM_DumpTanks)->ArgName("circuits")->Arg(16)->Arg(128)->Arg(999);

void BM_DumpCntsInTanks(benchmark::State& state) {
  const long id = state.range(0);
  slave& s = *TheSlaves().growth[id];
  for (auto _ : state) {
    s.DumpCntsInTanks();
    state.PauseTiming();
    DropHistory(s.m_Dsp);
    state.ResumeTiming();
  }
  state.SetComplexityN(id);
}
BENCHMARK(BM_DumpCntsInTanks)->ArgName("circuits")->Arg(16)->Arg(128)->Arg(999);

// --- Instruction counts --------------------------------------------------------

// A State stand-in for Tidy outside Google Benchmark.
struct NoState {
  void PauseTiming() {}
  void ResumeTiming() {}
};

// Runs one workload `iterations` times with callgrind collecting (when run
// under callgrind; elsewhere the toggles do nothing). One untimed run first
// warms caches and opens what is opened lazily.
int Count(const std::string& work, long iterations) {
  slave& s = *TheSlaves().dispense;
  s.m_PurgeSrvOff = 1;
  s.SetLevelMax();
  std::vector<char> frm = Text(DispenseFormula());
  EveryCircuit batch(qbench::kDispenseCircuits);
  // "dispense_purge" and "dispense_purge_floor": the dispense and its
  // floor with the purge server told (the server is another process:
  // only the call's client side is counted).
  const bool purge = work == "dispense_purge" || work == "dispense_purge_floor";
  if (purge && TheEnv().PurgeServerPort() <= 0) {
    fprintf(stderr, "qslave_bench: no purge server for %s\n", work.c_str());
    return 2;
  }
  AimAtPurgeServer(s, work == "dispense_purge");
  // "dispense_table_class" and "levels_table_class": the floors with their
  // booking made through the host's table class (table_class_floor.h).
  DispenseFloor dispenseFloor(purge, work == "dispense_table_class");
  LevelFloor levelFloor(work == "levels_table_class");
  NoState none;
  // "split_single", "split_independent", "split_linked": the split (no
  // booking) of a formula of 12 colourants of one kind.
  const char* const splitKinds[] = {"split_single", "split_independent", "split_linked"};
  const auto splitKind = std::find(std::begin(splitKinds), std::end(splitKinds), work);
  std::vector<char> splitFrm;
  if (splitKind != std::end(splitKinds)) {
    splitFrm = Text(qbench::Formula(kSplitBases[splitKind - std::begin(splitKinds)] + 1, 1, 12));
  }
  // "tank_report:N", "driver_tank_report:N" and "field_tank_report:N": the
  // tank report of the N-circuit dispenser whose levels are in its tables,
  // or of the one whose driver keeps them, its rows by circuit (type 7) or
  // by tank field (type 2) (N 16, 128 or 999).
  slave* reportSlave = nullptr;
  if (work.compare(0, 12, "tank_report:") == 0) {
    const long id = atol(work.c_str() + 12);
    if (TheSlaves().growth.count(id) != 0) reportSlave = TheSlaves().growth[id].get();
  } else if (work.compare(0, 19, "driver_tank_report:") == 0) {
    const long id = 1000 + atol(work.c_str() + 19);
    if (TheSlaves().driverLevels.count(id) != 0) reportSlave = &DriverLevels(id);
  } else if (work.compare(0, 18, "field_tank_report:") == 0) {
    const long id = 2000 + atol(work.c_str() + 18);
    if (TheSlaves().driverLevels.count(id) != 0) reportSlave = &DriverLevels(id);
  }
  // "driver_levels:N" and "field_levels:N": UpdateLevels of every circuit
  // of the N-circuit dispenser whose driver keeps the levels, its rows by
  // circuit (type 7) or by tank field (type 2) (N 16, 128 or 999).
  // "levels:N" and "levels_falling:N": UpdateLevels of every circuit of
  // the N-circuit dispenser whose levels are in its tables, the circuits
  // in rising or in falling order.
  slave* batchSlave = nullptr;
  std::unique_ptr<EveryCircuit> nBatch;
  if (work.compare(0, 14, "driver_levels:") == 0 || work.compare(0, 13, "field_levels:") == 0) {
    const long id = (work[0] == 'd' ? 1000 : 2000) + atol(work.c_str() + work.find(':') + 1);
    if (TheSlaves().driverLevels.count(id) == 0) {
      fprintf(stderr, "qslave_bench: no driver-kept dispenser for %s\n", work.c_str());
      return 2;
    }
    batchSlave = &DriverLevels(id);
    nBatch.reset(new EveryCircuit(qbench::CircuitsOf(id)));
  } else if (work.compare(0, 7, "levels:") == 0 || work.compare(0, 15, "levels_falling:") == 0) {
    const bool falling = work.compare(0, 15, "levels_falling:") == 0;
    const long id = atol(work.c_str() + work.find(':') + 1);
    if (TheSlaves().growth.count(id) == 0) {
      fprintf(stderr, "qslave_bench: no dispenser of %s circuits\n", work.c_str());
      return 2;
    }
    batchSlave = TheSlaves().growth[id].get();
    batchSlave->SetLevelMax();
    nBatch.reset(new EveryCircuit(qbench::CircuitsOf(id)));
    if (falling) std::reverse(nBatch->circuits.begin(), nBatch->circuits.end());
  }

  bool ok = true;
  auto once = [&](long i) {
    if (work == "dispense" || work == "dispense_purge") {
      ok = s.Dispense(frm.data(), 1.0, 1.0, 0, 1, 0, 0) == 1 && ok;
      Tidy(none, s.m_Dsp, i);
    } else if (work == "dispense_floor" || work == "dispense_purge_floor" ||
               work == "dispense_table_class") {
      ok = dispenseFloor.Run() && ok;
      Tidy(none, dispenseFloor.dsp, i);
    } else if (work == "levels") {
      ok = batch.Update(s) && ok;
      Tidy(none, s.m_Dsp, i);
    } else if (work == "levels_floor" || work == "levels_table_class") {
      ok = levelFloor.Run() && ok;
    } else if (!splitFrm.empty()) {
      ok = SplitOnce(*TheSlaves().split, splitFrm, 12) && ok;
    } else if (reportSlave != nullptr) {
      reportSlave->DumpTanks();
      Tidy(none, reportSlave->m_Dsp, i);
    } else if (batchSlave != nullptr) {
      ok = nBatch->Update(*batchSlave) && ok;
      Tidy(none, batchSlave->m_Dsp, i);
    } else {
      ok = false;
    }
  };
  once(1);
  if (!ok) {
    fprintf(stderr, "qslave_bench: unknown or failing workload %s\n", work.c_str());
    return 2;
  }
  CALLGRIND_TOGGLE_COLLECT;
  for (long i = 1; i <= iterations; ++i) once(i);
  CALLGRIND_TOGGLE_COLLECT;
  if (!ok) {
    fprintf(stderr, "qslave_bench: workload %s failed\n", work.c_str());
    return 2;
  }
  printf("%s %ld\n", work.c_str(), iterations);
  return 0;
}

std::string CpuModel() {
  std::ifstream in("/proc/cpuinfo");
  std::string line;
  while (std::getline(in, line)) {
    if (line.compare(0, 10, "model name") == 0) {
      const size_t colon = line.find(':');
      if (colon != std::string::npos) return line.substr(colon + 2);
    }
  }
  return "unknown";
}

}  // namespace

int main(int argc, char** argv) {
  TarvoTraceSetHook(NoTrace);
  std::string count;
  long iterations = 200;
  std::vector<char*> rest;
  for (int i = 0; i < argc; ++i) {
    if (strncmp(argv[i], "--count=", 8) == 0) {
      count = argv[i] + 8;
    } else if (strncmp(argv[i], "--count_iterations=", 19) == 0) {
      iterations = atol(argv[i] + 19);
    } else {
      rest.push_back(argv[i]);
    }
  }
  int result = 0;
  if (!count.empty()) {
    result = Count(count, iterations > 0 ? iterations : 1);
  } else {
    int n = static_cast<int>(rest.size());
    benchmark::Initialize(&n, rest.data());
    if (benchmark::ReportUnrecognizedArguments(n, rest.data())) return 1;
    benchmark::AddCustomContext("cpu_model", CpuModel());
    benchmark::AddCustomContext("data_dir", TheEnv().dir());
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
  }
  DropSlaves();
  return result;
}
