// Helpers shared by the library's sources; not part of the interface.
#ifndef QSLAVE_SLV_INTERNAL_H
#define QSLAVE_SLV_INTERNAL_H

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "slave.h"

// Quantities closer than this are equal; a quantity below it is zero.
constexpr double kSlvEpsilon = 1e-5;

// printf into a string of whatever length the text needs.
std::string SlvFormat(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

// An id as "%5ld" prints it (right-aligned in five places, wider when it
// needs more), put together without printf, which costs eight times as
// much; answers its length. out holds kSlvIdTextSize bytes (any long
// fits).
constexpr size_t kSlvIdTextSize = 24;
int SlvIdText(long id, char* out);

// Whether option pos of an option text is on ('1'). Positions outside the
// text (or outside 0..31) count as off: a record whose OPTIONS is shorter
// than the position asked for has not switched that option on.
bool SlvOptionOn(const char* options, int pos);

// Characters from..to (0-based, inclusive) of a fixed-position text such as
// COMMUNIC or CFG_STR, converted as a decimal number. Characters past the
// end of the text are missing; a piece that is missing or holds no number
// reads as 0.
long SlvPieceLong(const char* text, int from, int to);
double SlvPieceDouble(const char* text, int from, int to);

// Positions the dispenser table on the record of s->m_DispId. Returns the
// table, or null when no dispenser is selected, the tables are closed or
// the record is gone.
Qdbase* SlvDispenserRecord(const slave* s);

// Opens the colourant table of s's colourant data in colorants. Returns the
// table, or null after tracing "\n<source>(<line>): error ... unable to
// open colorant database" when it cannot be opened or holds no record.
Qdbase* SlvOpenColorants(const slave* s, CZutable* colorants, const char* source, int line);

// Appends to a host array; a host array that cannot grow is a failed
// allocation (std::bad_alloc), never an entry silently missing.
void SlvAppend(Zu_IntArray* array, int value);
void SlvAppend(Zu_LongArray* array, long value);
void SlvAppend(Zu_DoubleArray* array, double value);

// slave::Message's default: the text on a line of its own in the host's
// trace ("\n" and the text).
void SlvTraceMessage(const char* text);

// --- The interface boundary ----------------------------------------------
//
// No exception leaves the library: every exported function ends in a
// function-try-block whose handler calls SlvFailed. It writes one trace
// line, "\n<source>(<line>): <function>: out of memory" for a failed
// allocation or "...: unexpected failure" for anything else, sets error 15
// on the object when there is one, and answers the function's documented
// failure value. It needs no memory and never throws.
void SlvNoteFailure(slave* s, const char* source, int line, const char* function) noexcept;
void SlvNoteFailure(ColourantInDispenser* c, const char* source, int line,
                    const char* function) noexcept;

// Thrown by a caller that learns (from SlvFailureCount) that an inner
// operation failed for want of memory and cannot go on without what it
// asked: its boundary sets error 15 again and adds no second trace line.
struct SlvFailureNoted {};

// How many failures have reached a boundary so far. A caller that turns an
// inner operation's failure value into an error code of its own checks it
// first: a failure for want of memory keeps its error 15.
unsigned SlvFailureCount() noexcept;

template <typename Object, typename Value>
Value SlvFailed(Object* object, const char* source, int line, const char* function,
                Value value) noexcept {
  SlvNoteFailure(object, source, line, function);
  return value;
}

// The level rows a driver that keeps levels answers: for type 7 one row
// per circuit at index circuit - 1 (field empty), for the others rows with
// the tank field of each.
struct SlvDriverRows {
  bool known = false;
  std::vector<long> field;
  std::vector<double> cur, max, res;
  // For rows with tank fields: each field's last row, the one a tank of
  // that field reads (built once per fetch, so finding a tank's row does
  // not scan every row).
  std::unordered_map<long, size_t> lastRowOf;
  // Another process held the tables when a copy of these rows into the
  // tank records was tried: no later tank tries again while they are kept.
  bool copiesRefused = false;
};

// One colourant record's code as a translation to codes reads it: read
// whole, or refused (too long for the room a command has for it, or not
// readable).
struct SlvColourantCode {
  int length = 0;  // TextLength of CODE: -1 when it cannot be read
  bool read = false;
  char code[11] = {};
};
// The codes of a colourant table by colourant id, each id's records in the
// order of the table's index 1.
using SlvColourantCodes = std::unordered_map<long long, std::vector<SlvColourantCode>>;

// What a slave derives from the tables besides its documented members.
struct SlvState {
  // The tank table's Generation() when the tank map was read: a table read
  // again since (another process added, removed or packed tanks) makes the
  // map stale.
  long tankGeneration = -1;
  // Each colourant's tanks in ascending order (colourant 0: the empty
  // ones), made from m_TankCntId when the tank map is read, and made again
  // whenever the array is no longer the one it was made from.
  std::unordered_map<long, std::vector<int>> tanksOf;
  const long* tanksOfArray = nullptr;
  int tanksOfCount = -1;
  // The dispenser's record in the dispenser table, found at selection, and
  // that table's Generation() then.
  long dispRecNo = 0;
  long dispGeneration = -1;

  // What one call of the library reads once (see SlvCallScope).
  int callDepth = 0;
  bool thresholdKnown = false;
  double threshold = 0.0;   // the dispenser's THRESHOLD as SetDispenserThres took it
  int thresholdResult = 0;  // and its answer
  SlvDriverRows driverRows;
  // The colourant table's codes, read whole by the call's first
  // translation to codes (a formula's check on a dispenser addressed by
  // code translates it colourant by colourant).
  bool codesKnown = false;
  SlvColourantCodes codes;

  // What a dispense's split read of the tanks it books (see
  // SlvSplitLevelsScope), by the tank record's number: the level update
  // that follows in the same booking takes a tank's quantities from here
  // instead of reading the same fields of the same record again.
  // A dispense books a few tanks: they are looked for one by one, and the
  // list keeps its room from one dispense to the next.
  struct SplitLevels {
    long recNo = 0;        // 0: forgotten
    long generation = -1;  // the tank table's Generation() when read
    double cur = 0.0, res = 0.0, max = 0.0;
  };
  bool keepSplitLevels = false;
  std::vector<SplitLevels> splitLevels;
};

// One call of the library: the dispenser's threshold, the driver's level
// rows and the colourant codes are read once for all of it, and forgotten
// when the outermost call ends. None is taken to change within a call:
// the library tells the driver no level during one (change_level with
// notify forgets the rows).
class SlvCallScope {
 public:
  explicit SlvCallScope(slave* s) : state_(s->m_State) {
    if (state_ != nullptr) ++state_->callDepth;
  }
  ~SlvCallScope() {
    if (state_ == nullptr || state_->callDepth <= 0 || --state_->callDepth > 0) return;
    state_->thresholdKnown = false;
    state_->driverRows.known = false;
    state_->codesKnown = false;
    state_->codes.clear();
  }
  SlvCallScope(const SlvCallScope&) = delete;
  SlvCallScope& operator=(const SlvCallScope&) = delete;

 private:
  SlvState* state_;
};

// A dispense that splits its formula and books the levels of the tanks it
// chose, both in one booking: while it lives, the split keeps the
// quantities it reads of each tank that holds its own level and names no
// cistern, and SlvTankLevels answers such a tank from them while its record
// is the one they were read from and holds what they say. A level written
// forgets its record's entry. Forgotten when the scope ends.
class SlvSplitLevelsScope {
 public:
  explicit SlvSplitLevelsScope(slave* s) : state_(s->m_State) {
    if (state_ == nullptr || state_->keepSplitLevels) {
      state_ = nullptr;  // an outer scope keeps them
      return;
    }
    state_->splitLevels.clear();
    state_->keepSplitLevels = true;
  }
  ~SlvSplitLevelsScope() {
    if (state_ == nullptr) return;
    state_->keepSplitLevels = false;
    state_->splitLevels.clear();
  }
  SlvSplitLevelsScope(const SlvSplitLevelsScope&) = delete;
  SlvSplitLevelsScope& operator=(const SlvSplitLevelsScope&) = delete;

 private:
  SlvState* state_;
};

// The tanks of colourant cnt, ascending. Without a state of its own (no
// memory for it) the answer is made in *scratch.
const std::vector<int>& SlvTanksOf(slave* s, long cnt, std::vector<int>* scratch);

// The tank table on tank's record, read as it is now; null when there is no
// dispenser, the tank is out of the map or has no record, or the tables are
// closed. With cist, *cist is the cistern table (or null).
Qdbase* SlvTankRecord(slave* s, int tank, Qdbase** cist);
// Forgets what the split kept of the record the tank table is on: called
// before that record's quantities are written.
void SlvForgetSplitLevels(slave* s, Qdbase* tanks);
// Positions the cistern table on cistern id (index 1): 1 found, 0 not.
int SlvSeekCistern(Qdbase* cist, long id);

// TankQnts, and *cistId (when given) the cistern id named by the record
// that holds the level (the master's, for a secondary of a linked group),
// which is left current in the tank table (with the cistern's record
// current in the cistern table when it names one).
int SlvTankLevels(slave* s, int tank, double* cur, double* res, double* max, long* cistId);

// The process-wide tables, when open (null otherwise); no trace.
Qdbase* SlvDispTable();
Qdbase* SlvTankTable();
Qdbase* SlvCisternTable();

// A booking of the library's tables: the writes made while it lives reach
// the dispenser, tank and cistern tables together at Commit, or none does;
// it joins a booking already in progress.
// A booking during which memory ran out (a failure noted at a boundary of
// the library) is not made: it may lack a level its operation meant.
class SlvBooking {
 public:
  SlvBooking()
      : booking_(SlvDispTable(), SlvTankTable(), SlvCisternTable()),
        failuresAtStart_(SlvFailureCount()) {}
  // One that starts only if the tables are free now: it does not wait for
  // another process's booking. For writes that can as well be made later.
  struct NoWait {};
  explicit SlvBooking(NoWait)
      : booking_(0, SlvDispTable(), SlvTankTable(), SlvCisternTable()),
        failuresAtStart_(SlvFailureCount()) {}
  bool Ok() const { return booking_.Ok() != 0; }
  bool Commit() { return SlvFailureCount() == failuresAtStart_ && booking_.Commit() != 0; }

 private:
  QdbBooking booking_;
  unsigned failuresAtStart_;
};

// A number of the current record: true with its value, or with 0 when the
// table has no such field (as a record without it reads); false when the
// field is there and cannot be read (a failed read is never a value).
bool SlvReadNumber(Qdbase* table, const char* field, double* value);
bool SlvReadNumber(Qdbase* table, const char* field, long* value);
// The same by field number (0: the table has no such field).
bool SlvReadNumber(Qdbase* table, int field, double* value);
bool SlvReadNumber(Qdbase* table, int field, long* value);

// A call that reads the levels of many tanks, on a dispenser whose driver
// keeps them (it answers the level query with rows; within one call of the
// library they are fetched once), copies the driver's figures into every
// tank record it reads.
// While this lives, those copies join one booking, written by Write: one
// lock and at most one sync for the call instead of one for each tank, and
// nothing written for figures the records hold already. Write it before
// the call goes on to book levels of its own or to send anything; when it
// is not written (the call failed) the copies are left for the next read.
// Like every copy, it does not wait for another process's booking: when
// the tables are busy, no tank of the call is copied (each is answered
// with the machine's figures all the same). Without such a driver each
// tank's copy is a booking of its own, as outside such a call.
class SlvDriverCopies {
 public:
  explicit SlvDriverCopies(slave* s);
  void Write() {
    if (booking_ && booking_->Ok()) booking_->Commit();
    booking_.reset();
  }

 private:
  std::optional<SlvBooking> booking_;
};

// The numbers of the quantity fields of the tank or cistern table (0: the
// table has no such field), looked up by name once for each layout the
// table is read with. Every tank visit reads these fields, so they are not
// looked up by name on every read.
struct SlvLevelFields {
  int cistId = 0;
  int maxQ = 0;
  int curQ = 0;
  int resQ = 0;
  int threshold = 0;
};
// Answered by value: the numbers a caller holds stay its own while other
// tables are looked up (a table read again takes a new entry of the cache).
SlvLevelFields SlvLevelFieldsOf(Qdbase* table);

// Takes quantities off the levels within booking, which the caller began
// before it read the levels it split by: all of them are booked, or none
// (the booking could not start, one level could not be booked, the tables
// refused the writes).
bool SlvBookLevels(slave* s, SlvBooking* booking, int n, int* tanks, double* qnts);

// Reads the tank map (m_NumTanks, m_TankRecNo, m_TankCntId) of s's
// dispenser from the tank table. kNoMemory after an allocation failure
// (traced by the caller); kUnreadable when a tank record could not be read
// (traced by the table): a map with a circuit missing is never used.
enum class SlvTankMapLoad { kLoaded, kNoMemory, kUnreadable };
SlvTankMapLoad SlvLoadTankMap(slave* s, Qdbase* tanks);
// Reads the tank map again when the tank table was read again since. False
// when it could not be read: the map is then empty, and read again at the
// next call.
bool SlvKeepTankMapCurrent(slave* s);

#endif
