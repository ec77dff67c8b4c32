// No exception crosses the library's interface. This program replaces the
// allocator (malloc, calloc, realloc and every form of operator new) with
// one that can fail the N-th allocation, and sweeps N over every allocation
// of a dispense, a level batch, a purge and the reports: each call ends
// without a crash and without an exception, answers its success value or
// its documented failure value, and a failure that reached the interface
// leaves error 15 and one trace line. Every booking of levels is either
// made whole or not at all: a dispense of several colourants, a batch of
// several circuits, a circuit fed by a cistern. The reference host's table
// class is swept too: its allocations fail like the library's.
//
// The replaced allocator is the program's own, so it is not built with the
// sanitizers, and it skips itself under valgrind, whose allocator cannot
// see through it.
#include <gtest/gtest.h>
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>

#include <functional>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "dispense_fixture.h"

// --- The allocator --------------------------------------------------------

extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" void* __libc_realloc(void* block, size_t size);
extern "C" void* __libc_memalign(size_t alignment, size_t size);
extern "C" void __libc_free(void* block);

namespace {

// 0: no failure armed. Otherwise the allocation that brings it to 0 fails.
long g_countdown = 0;
bool g_failed = false;
// Requests larger than this fail while it is non-zero.
size_t g_largest = 0;

bool FailThisOne(size_t size) {
  if (g_largest != 0 && size > g_largest) return true;
  if (g_countdown <= 0) return false;
  if (--g_countdown != 0) return false;
  g_failed = true;
  return true;
}

void* NewBlock(size_t size) {
  void* block = malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* AlignedBlock(size_t size, std::align_val_t alignment) {
  if (FailThisOne(size)) return nullptr;
  return __libc_memalign(static_cast<size_t>(alignment), size == 0 ? 1 : size);
}

}  // namespace

extern "C" void* malloc(size_t size) {
  if (FailThisOne(size)) return nullptr;
  return __libc_malloc(size);
}

extern "C" void* calloc(size_t count, size_t size) {
  if (FailThisOne(count * size)) return nullptr;
  return __libc_calloc(count, size);
}

extern "C" void* realloc(void* block, size_t size) {
  if (size != 0 && FailThisOne(size)) return nullptr;
  return __libc_realloc(block, size);
}

void* operator new(size_t size) { return NewBlock(size); }
void* operator new[](size_t size) { return NewBlock(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return malloc(size == 0 ? 1 : size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return malloc(size == 0 ? 1 : size);
}
void* operator new(size_t size, std::align_val_t alignment) {
  void* block = AlignedBlock(size, alignment);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new[](size_t size, std::align_val_t alignment) {
  return operator new(size, alignment);
}
void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return AlignedBlock(size, alignment);
}
void* operator new[](size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return AlignedBlock(size, alignment);
}
void operator delete(void* block) noexcept { free(block); }
void operator delete[](void* block) noexcept { free(block); }
void operator delete(void* block, size_t) noexcept { free(block); }
void operator delete[](void* block, size_t) noexcept { free(block); }
void operator delete(void* block, std::align_val_t) noexcept { free(block); }
void operator delete[](void* block, std::align_val_t) noexcept { free(block); }
void operator delete(void* block, size_t, std::align_val_t) noexcept { free(block); }
void operator delete[](void* block, size_t, std::align_val_t) noexcept { free(block); }

namespace {

using qtest::OptionsWith;
using qtest::Sim;
using qtest::TankOf;

// --- The trace, kept without memory of its own -----------------------------

int g_failureLines = 0;
char g_lastFailure[256] = "";

// Only the library's boundary lines count: the table class traces a
// failed allocation of its own as "\nQdbase: <file>: out of memory" and
// answers failure to the library, which goes on from there.
void CountFailures(const char* text) {
  if (strstr(text, ": out of memory") == nullptr || strncmp(text, "\nQdbase", 7) == 0) return;
  ++g_failureLines;
  snprintf(g_lastFailure, sizeof g_lastFailure, "%s", text);
}

bool UnderValgrind() {
  FILE* maps = fopen("/proc/self/maps", "r");
  if (maps == nullptr) return false;
  char line[512];
  bool found = false;
  while (!found && fgets(line, sizeof line, maps) != nullptr) {
    found = strstr(line, "vgpreload") != nullptr;
  }
  fclose(maps);
  return found;
}

// What one call under an armed allocator did.
struct ArmedCall {
  long result = 0;
  bool threw = false;
  bool failed = false;  // the armed allocation was reached
  int failureLines = 0;
};

// The most allocations one operation is allowed before the sweep gives up:
// far above what any of them makes.
const long kMostAllocations = 20000;

class AllocFailure : public qtest::DispenseEnv {
 protected:
  void SetUp() override {
    DispenseEnv::SetUp();
    if (UnderValgrind()) GTEST_SKIP() << "the allocator is replaced; valgrind's cannot watch it";
    TarvoTraceSetHook(CountFailures);
    // Colourants 10..40 alone in tanks 1..4 (900 of 1000, reserve 10); tank
    // 5 holds colourant 50 and draws from cistern 1; colourant 60 is in the
    // independent tanks 6 and 7.
    AddDispenser("ZARVO", OptionsWith({3}));
    AddTanks({TankOf(1, 10, 900.0, 10.0, 1000.0), TankOf(2, 20, 900.0, 10.0, 1000.0),
              TankOf(3, 30, 900.0, 10.0, 1000.0), TankOf(4, 40, 900.0, 10.0, 1000.0),
              TankOf(5, 50, 900.0, 10.0, 1000.0, 1), TankOf(6, 60, 900.0, 10.0, 1000.0),
              TankOf(7, 60, 900.0, 10.0, 1000.0)});
    AddCistern(1, 1, 1000.0, 900.0, 10.0);
    AddColorant(10, "RED", 1250.0);
    AddColorant(20, "OX1", 500.0);
  }

  // Calls op with the n-th allocation failing.
  static ArmedCall Armed(long n, const std::function<long()>& op) {
    ArmedCall run;
    g_failureLines = 0;
    g_lastFailure[0] = '\0';
    g_failed = false;
    g_countdown = n;
    try {
      run.result = op();
    } catch (...) {
      run.threw = true;
    }
    g_countdown = 0;
    run.failed = g_failed;
    run.failureLines = g_failureLines;
    return run;
  }

  // Sweeps the failing allocation over every allocation op makes: from the
  // first until a call makes fewer allocations than the armed one. Before
  // each call setup runs unarmed; after it check judges the call. Answers
  // how many allocations the whole call made.
  long Sweep(const char* name, slave& s, const std::function<void()>& setup,
             const std::function<long()>& op, const std::set<long>& answers,
             const std::function<void(const ArmedCall&)>& check = nullptr,
             bool checkError = true) {
    for (long n = 1; n <= kMostAllocations; ++n) {
      setup();
      s.m_LastError = 0;
      const ArmedCall run = Armed(n, op);
      EXPECT_FALSE(run.threw) << name << ": an exception left the library at allocation " << n;
      EXPECT_TRUE(answers.count(run.result) == 1)
          << name << " answered " << run.result << " at allocation " << n << ": "
          << g_lastFailure;
      EXPECT_LE(run.failureLines, 1) << name << " at allocation " << n << ": " << g_lastFailure;
      // A failure that reached the interface leaves error 15, unless the
      // operation went on and stored a machine's code after it, having
      // told the host that its levels were not booked.
      if (run.failureLines == 1 && s.LevelsNotBooked() == 0 && checkError) {
        EXPECT_EQ(s.m_LastError, 15) << name << " at allocation " << n << ": " << g_lastFailure;
      }
      if (check) check(run);
      if (::testing::Test::HasFailure()) return n;
      if (!run.failed) {
        printf("%s: %ld allocations, each failed in turn\n", name, n - 1);
        return n - 1;
      }
    }
    ADD_FAILURE() << name << " made more than " << kMostAllocations << " allocations";
    return kMostAllocations;
  }

  // A circuit's current level as the tank table holds it now.
  static double Level(slave& s, int tank) {
    double cur = -1.0;
    s.TankQnts(tank, &cur, nullptr, nullptr);
    return cur;
  }

  // The levels of circuits 1..7 and of cistern 1, as the tables hold them.
  static std::vector<double> Levels(slave& s) {
    std::vector<double> levels;
    for (int t = 1; t <= 7; ++t) levels.push_back(Level(s, t));
    Qdbase* cist = nullptr;
    _slv_dbhandles(nullptr, nullptr, &cist);
    double cur = -1.0;
    if (cist != nullptr && cist->SelectIdx(1) && cist->Seek("    1") == 1) {
      cist->ReadDouble("CUR_Q", &cur);
    }
    levels.push_back(cur);
    return levels;
  }

  // Levels before a booking less the quantities it takes.
  static std::vector<double> Less(std::vector<double> levels, const std::vector<double>& taken) {
    for (size_t i = 0; i < levels.size(); ++i) levels[i] -= taken[i];
    return levels;
  }

  // A check that the levels are as they were or as the whole booking
  // leaves them: never a booking in part.
  std::function<void(const ArmedCall&)> WholeOrNothing(slave& s, const std::vector<double>* before,
                                                       std::vector<double> taken) {
    return [&s, before, taken](const ArmedCall& run) {
      const std::vector<double> after = Levels(s);
      std::string levels;
      for (size_t i = 0; i < after.size(); ++i) {
        levels += std::to_string((*before)[i]) + "->" + std::to_string(after[i]) + " ";
      }
      EXPECT_TRUE(after == *before || after == Less(*before, taken))
          << "a booking made in part (answer " << run.result << "): " << levels << g_lastFailure;
    };
  }

  // Puts every circuit back to 900 without an armed allocator.
  // One booking for all seven: a sweep refills thousands of times.
  static void Refill(slave& s) {
    Qdbase* disp = nullptr;
    Qdbase* tanks = nullptr;
    Qdbase* cist = nullptr;
    _slv_dbhandles(&disp, &tanks, &cist);
    QdbBooking booking(disp, tanks, cist);
    for (int t = 1; t <= 7; ++t) s.change_level(t, 900.0, 0, 0);
    ASSERT_EQ(booking.Commit(), 1);
  }

  // The formula is copied into a buffer of the caller's: the test's own
  // code makes no allocation while one is armed.
  static long Dispense(slave& s, const char* text, int updLevels) {
    char frm[256];
    snprintf(frm, sizeof frm, "%s", text);
    return s.Dispense(frm, 1.0, 1.0, 0, updLevels, 1, 1);
  }
};

// One colourant from one tank without cistern, levels booked: the level is
// booked whole or not at all, and "/G0" follows every "/G2".
TEST_F(AllocFailure, DispenseOfOneCircuit) {
  slave s(1);
  s.m_PurgeSrvOff = 1;
  double before = 0.0;
  const long made = Sweep(
      "Dispense", s, [&] { Refill(s); Sim(s)->ClearHistory(); before = Level(s, 1); },
      [&] { return Dispense(s, "(10:12.500)", 1); }, {0, 1},
      [&](const ArmedCall& run) {
        const double after = Level(s, 1);
        EXPECT_TRUE(after == before || after == before - 12.5) << after;
        // "/G0" releases the stopper: it may go out when "/G2" could not,
        // and a "/G2" is left without it only when the driver itself could
        // not take the "/G0" (the failure is then sendcommand's).
        const std::vector<std::string> sent = Sim(s)->Commands();
        if (qtest::CountOf(sent, "/G2") > qtest::CountOf(sent, "/G0")) {
          EXPECT_NE(strstr(g_lastFailure, ": sendcommand: out of memory"), nullptr)
              << run.failureLines << " " << g_lastFailure;
        }
      });
  EXPECT_GT(made, 10);
}

// Several colourants, levels booked in one batch, purge server off.
TEST_F(AllocFailure, DispenseOfSeveralCircuits) {
  slave s(1);
  s.m_PurgeSrvOff = 1;
  std::vector<double> before;
  Sweep("Dispense", s, [&] { Refill(s); before = Levels(s); },
        [&] { return Dispense(s, "(10:12.500)(20:2.000)(60:120.000)(50:1.000)", 1); }, {0, 1},
        WholeOrNothing(s, &before, {12.5, 2.0, 0.0, 0.0, 1.0, 120.0, 0.0, 1.0}));
}

// The purge server is told after the dispense; here nothing listens on its
// port, so the call fails at once: the dispense stands.
TEST_F(AllocFailure, DispenseTellingThePurgeServer) {
  slave s(1);
  snprintf(s.m_PurgeSrvHost, sizeof s.m_PurgeSrvHost, "%s", "127.0.0.1");
  s.m_PurgeSrvPort = 1;
  s.m_PurgeSrvTimeout = 2.0;
  Sweep("Dispense", s, [&] {}, [&] { return Dispense(s, "(10:1.000)", 0); }, {0, 1});
}

TEST_F(AllocFailure, DispenseOperations) {
  slave s(1);
  s.m_PurgeSrvOff = 1;
  s.SetLastDosedFormulaRecordMode(2);
  int tanks[] = {1, 2, 6};
  double qnts[] = {1.0, 2.0, 3.0};
  const auto none = [] {};
  Sweep("Dispense(list)", s, none, [&] { return s.Dispense(3, tanks, qnts, 1.0); }, {0, 1});
  Sweep("SendCommandString", s, none,
        [&] { return s.SendCommandString(3, tanks, qnts, 2.0, 1, tanks, qnts); }, {0, 1});
  Sweep("MakeCommandString", s, none, [&] {
    return static_cast<long>(strlen(s.MakeCommandString(3, tanks, qnts, 1.0, 0, nullptr, nullptr)));
  }, {0, 27});
  Sweep("SplitFrmToTanks", s, none, [&] {
    Zu_LongArray ids;
    Zu_IntArray t;
    Zu_DoubleArray q;
    char frm[] = "(10:1.000)(60:120.000)";
    return s.SplitFrmToTanks(frm, &ids, &t, &q, 1.0, 1.0, 1, 1, nullptr);
  }, {-1, 3});
  Sweep("CntQntToTanks", s, none, [&] {
    Zu_IntArray t;
    Zu_DoubleArray q;
    return s.CntQntToTanks(60, 120.0, &t, &q, 1);
  }, {0, 1});
  Sweep("DispDrv", s, [&] { Refill(s); }, [&] {
    char out[128];
    char frm[] = "(10:1.000)(20:2.000)";
    return s.DispDrv(frm, out, 100, 1.0, 1.0, 0, 1, 0);
  }, {0, 1});
  Sweep("DispenseByCircuit", s, [&] { Refill(s); }, [&] {
    char frm[] = "(1:1.000)(2:2.000)(3:3.000)|(4:4.000)";
    return s.DispenseByCircuit(frm, 2, 1, 1);
  }, {0, 1});
  Sweep("SetLastDosedFormula", s, [&] { s.ClearLastDosedFormula(); }, [&] {
    char a[] = "(1:1.000)";
    s.SetLastDosedFormula(a);
    s.SetLastDosedFormula(a);
    return 0L;
  }, {0});
  Sweep("CheckLevel", s, none, [&] {
    Zu_IntArray low;
    char frm[] = "(10:1.000)(60:120.000)";
    return s.CheckLevel(frm, 1.0, 1.0, 0, &low);
  }, {0, 2});
  Sweep("VerifyFormula", s, none, [&] {
    char frm[] = "(10:1.000)(20:1.000)";
    return s.VerifyFormula(frm, 1);
  }, {0, 1});
  s.ClearLastDosedFormula();
}

// A level batch of one circuit is booked whole or not at all.
TEST_F(AllocFailure, LevelBatchOfOneCircuit) {
  slave s(1);
  double before = 0.0;
  Sweep("UpdateLevels", s, [&] { Refill(s); before = Level(s, 2); }, [&] {
    int circuits[] = {2};
    double qnts[] = {5.0};
    return s.UpdateLevels(1, circuits, qnts, 1.0, 0);
  }, {0, 1}, [&](const ArmedCall&) {
    const double after = Level(s, 2);
    EXPECT_TRUE(after == before || after == before - 5.0) << after;
  });
}

// A level batch of several circuits, and the other level operations: each
// booking is made whole or not at all.
TEST_F(AllocFailure, LevelOperations) {
  slave s(1);
  const auto refill = [&] { Refill(s); };
  std::vector<double> before;
  const auto refillAndRead = [&] {
    Refill(s);
    before = Levels(s);
  };
  Sweep("UpdateLevels", s, refillAndRead, [&] {
    int circuits[] = {1, 5, 6, 7};
    double qnts[] = {5.0, 6.0, 7.0, 8.0};
    return s.UpdateLevels(4, circuits, qnts, 1.0, 0);
  }, {0, 1}, WholeOrNothing(s, &before, {5.0, 0.0, 0.0, 0.0, 6.0, 7.0, 8.0, 6.0}));
  Sweep("UpdateLevels(formula)", s, refill, [&] {
    char frm[] = "(10:1.000)(60:120.000)";
    return s.UpdateLevels(frm, 1.0, 1.0, 0, 0);
  }, {0, 1});
  Sweep("UpdateLevelsByFormula", s, refill, [&] {
    char text[] = "(1:1.5)(2:2)";
    return s.UpdateLevelsByFormula(text);
  }, {-1, 0, 1});
  Sweep("change_level", s, refillAndRead, [&] { return s.change_level(5, -3.0, 1, 1); }, {0, 1},
        WholeOrNothing(s, &before, {0.0, 0.0, 0.0, 0.0, 3.0, 0.0, 0.0, 3.0}));
  Sweep("SetLevelMax", s, refillAndRead, [&] { return s.SetLevelMax(); }, {0, 1},
        WholeOrNothing(s, &before, {-100.0, -100.0, -100.0, -100.0, -100.0, -100.0, -100.0, -100.0}));
  Sweep("GetCircuitsUnderCriticalLevel", s, refill, [&] {
    Zu_IntArray c, k;
    char frm[] = "(10:1.000)(60:2000.000)";
    return s.GetCircuitsUnderCriticalLevel(frm, 2.0, 1.0, 0, c, k);
  }, {0, 1});
  Sweep("GetCircuitsUnderWarningLevel", s, refill, [&] {
    Zu_IntArray c, k;
    char frm[] = "(10:880.000)(99:1.000)";
    return s.GetCircuitsUnderWarningLevel(frm, 1.0, 1.0, 0, c, k);
  }, {0, 1});
}

TEST_F(AllocFailure, PurgeOperations) {
  slave s(1);
  s.m_PurgeSrvOff = 1;
  const auto refill = [&] { Refill(s); };
  Sweep("Purge", s, refill, [&] {
    Zu_Frm record;
    return s.Purge(2.0, &record, true, false);
  }, {-1, 0, 1});
  Sweep("Purge(not sent)", s, refill, [&] { return s.Purge(2.0, nullptr, false, true); }, {0, 1});
  Sweep("SelectivePurge", s, refill, [&] {
    long colourants[] = {20, 60, 0};
    return s.SelectivePurge(colourants, 2.0);
  }, {-1, 0, 1});
  double before = 0.0;
  Sweep("CanisterPurge", s, [&] { Refill(s); before = Level(s, 3); },
        [&] { return s.CanisterPurge(3, 2.0); }, {0, 1}, [&](const ArmedCall&) {
          const double after = Level(s, 3);
          EXPECT_TRUE(after == before || after == before - 2.0) << after;
        });
  Sweep("Test", s, refill, [&] { return s.Test(true, 2.0); }, {0, 1});
}

// The purge by the driver books every circuit it names.
TEST_F(AllocFailure, PurgeByTheDriver) {
  slave s(1);
  ASSERT_TRUE(Sim(s)->SetSetting("purge", "0"));
  Sweep("Purge", s, [&] { Refill(s); }, [&] { return s.Purge(2.0, nullptr, true, false); },
        {0, 1});
}

TEST_F(AllocFailure, Reports) {
  slave s(1);
  const auto none = [] {};
  Sweep("ParseDispensedRequest", s, none, [&] {
    char reply[] = "(1:10.000:10.000) (6:5.000:2.125)\n(7:1:1)";
    int c[3];
    double r[3], d[3];
    return s.ParseDispensedRequest(reply, c, r, d);
  }, {-1, 3});
  for (int mode = 0; mode < 3; ++mode) {
    Sweep("FormulaRequest", s, none, [&] {
      char reply[] = "(1:10.000:10.000)(6:5.000:2.125)(7:1:1)";
      char out[256] = "";
      return s.FormulaRequest(reply, out, 200, mode);
    }, {-1, 1});
  }
  Sweep("DispensedRequest", s, none, [&] {
    char request[] = "(1:10.000)(6:5.000)";
    char out[256] = "";
    return s.DispensedRequest(request, out, sizeof out);
  }, {0, 1});
  Sweep("Dump", s, none, [&] {
    s.Dump();
    s.DumpTanks();
    s.DumpCntsInTanks();
    return 0L;
  }, {0});
}

// Selecting and copying a dispenser: a construction that fails leaves an
// object without dispenser, and every object is counted down.
TEST_F(AllocFailure, Construction) {
  const auto none = [] {};
  slave keeper(1);  // keeps the tables open between the calls
  // -99: selected in part; -15: a failure traced without error 15.
  Sweep("slave", keeper, none, [&] {
    slave s(1);
    if (g_failureLines == 1 && s.m_LastError != 15) return -15L;
    const bool whole = s.m_DispId == 1 && s.m_Dsp != nullptr && s.m_NumTanks == 7;
    const bool without = s.m_DispId < 1 || s.m_Dsp == nullptr;
    return whole ? 1L : without ? 0L : -99L;
  }, {0, 1}, nullptr, false);
  Sweep("slave(copy)", keeper, none, [&] {
    slave s(keeper);
    if (g_failureLines == 1 && s.m_LastError != 15) return -15L;
    return s.m_NumTanks == 7 ? 1L : s.m_NumTanks == 0 ? 0L : -99L;
  }, {0, 1}, nullptr, false);
  Sweep("Set", keeper, none, [&] { return keeper.Set(1); }, {0, 1});
  EXPECT_EQ(slave::counter, 1);
}

// A tank list of thirty million entries asks for more memory than there is
// (the two-pass lists take twice the list): the dispense answers 0 with
// error 15 and one trace line, and nothing is sent.
TEST_F(AllocFailure, HugeListAnswersZeroWithError15) {
  slave s(1);
  s.m_PurgeSrvOff = 1;
  const int n = 30000000;
  int* tanks = static_cast<int*>(__libc_calloc(static_cast<size_t>(n), sizeof(int)));
  double* qnts = static_cast<double*>(__libc_calloc(static_cast<size_t>(n), sizeof(double)));
  ASSERT_NE(tanks, nullptr);
  ASSERT_NE(qnts, nullptr);
  for (int i = 0; i < n; ++i) {
    tanks[i] = 1 + i % 7;
    qnts[i] = 0.001;
  }
  Sim(s)->ClearHistory();
  g_failureLines = 0;
  g_largest = 64u << 20;  // no single block above 64 MiB
  int result = -1;
  bool threw = false;
  try {
    result = s.Dispense(n, tanks, qnts, 1.0);
  } catch (...) {
    threw = true;
  }
  g_largest = 0;
  __libc_free(tanks);
  __libc_free(qnts);
  EXPECT_FALSE(threw);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(s.m_LastError, 15);
  EXPECT_EQ(g_failureLines, 1);
  EXPECT_TRUE(qtest::IsSourceLine(g_lastFailure, "slv_disp", ": Dispense: out of memory"))
      << g_lastFailure;
  EXPECT_TRUE(Sim(s)->Commands().empty());
}

}  // namespace
