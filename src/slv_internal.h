// Helpers shared by the library's sources; not part of the interface.
#ifndef QSLAVE_SLV_INTERNAL_H
#define QSLAVE_SLV_INTERNAL_H

#include <string>

#include "slave.h"

// Quantities closer than this are equal; a quantity below it is zero.
constexpr double kSlvEpsilon = 1e-5;

// printf into a string of whatever length the text needs.
std::string SlvFormat(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

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

// What a slave derives from the tables besides its documented members.
struct SlvState {
  // The tank table's Generation() when the tank map was read: a table read
  // again since (another process added, removed or packed tanks) makes the
  // map stale.
  long tankGeneration = -1;
};

// The process-wide tables, when open (null otherwise); no trace.
Qdbase* SlvDispTable();
Qdbase* SlvTankTable();
Qdbase* SlvCisternTable();

// A booking of the library's tables: the writes made while it lives reach
// the dispenser, tank and cistern tables together at Commit, or none does;
// it joins a booking already in progress.
class SlvBooking {
 public:
  SlvBooking() : booking_(SlvDispTable(), SlvTankTable(), SlvCisternTable()) {}
  bool Ok() const { return booking_.Ok() != 0; }
  bool Commit() { return booking_.Commit() != 0; }

 private:
  QdbBooking booking_;
};

// Reads the tank map (m_NumTanks, m_TankRecNo, m_TankCntId) of s's
// dispenser from the tank table. False after an allocation failure (traced
// by the caller).
bool SlvLoadTankMap(slave* s, Qdbase* tanks);
// Reads the tank map again when the tank table was read again since.
void SlvKeepTankMapCurrent(slave* s);

#endif
