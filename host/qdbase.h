// Qdbase: one dBase table with in-memory indexes, and QdbBooking: writes to
// several tables that reach the files together or not at all.
//
// Host library: libqdb.so. The library keeps its configuration in three of
// these (dispensers, tanks, cisterns) and reads the host's colourant and cans
// tables through them (see zutable.h).
//
// Conventions of every operation below:
//  - Results are int: 1 for success, 0 for failure, unless stated otherwise.
//    Nothing throws.
//  - Record numbers are the 1-based physical positions in the file.
//  - A failure leaves the table where it was, and a refused write changes
//    nothing on disk or in memory.
//  - A field the table lacks makes the read or write of that field fail
//    (result 0, outputs zeroed or emptied); it is never a crash.
//  - Every read and write of the file is checked: a read the system could
//    not make fails (it is never taken as a value), and a write it could not
//    make fails; both are traced with the file's name.
//
// Dialects. Tables of dBase III (with and without memo), dBase IV, FoxPro 2
// and Visual FoxPro are read and written in their own dialect; their memo
// files are left untouched. Numbers are read from N, F and C fields (text)
// and from Visual FoxPro's I, B and Y fields (binary); a NULL field reads as
// a blank one. A header whose record count disagrees with the file's length
// is read with the smaller count, and traced. What the class cannot serve
// (dBase 7, varchar fields, ...) is refused at Open with the reason.
//
// Other processes. Several processes may use the same tables at once. Every
// write (alone, or in a booking) takes the lock of the tables' directory for
// as long as it lasts and reads the record it changes from the file; it
// writes only the bytes it changes. Indexes and record counts are brought up
// to date when another process has changed the file (an append, a delete, a
// pack, a key rewritten): at the start of every booking and write, and at
// every Top, Bottom and Seek.
#ifndef QSLAVE_HOST_QDBASE_H
#define QSLAVE_HOST_QDBASE_H

// One field of a table to create (see Qdbase::Create). type is a dBase
// type letter: 'C' text, 'N' number, 'L' logical.
struct QdbField {
  const char* name;  // 1..10 letters, digits or '_', the first a letter;
                     // stored upper-case
  char type;
  int width;         // C: 1..254; N: 1..19; L: 1
  int decimals;      // N only: 0..15 and below width
};

class Qdbase {
 public:
  Qdbase();
  // Closes the table if it is open.
  virtual ~Qdbase();

  Qdbase(const Qdbase&) = delete;
  Qdbase& operator=(const Qdbase&) = delete;

  // Binds the object to its file and indexes; does not open anything.
  // path: directory; base: file name without extension. The file is
  // path/base.dbf, or path/BASE.DBF when the lower-case name is absent.
  // nIdx index definitions follow: index i+1 is called names[i] and is
  // ordered by the key expression keys[i]. Key expressions are built from
  // field names, numbers, VAL(x), STR(x,n), '+' and '*', with parentheses;
  // '+' of two texts joins them; VAL of a number is the number. Selects
  // index 1 (record order when nIdx is 0). Returns 0 when an argument is
  // null, the table is open, or nIdx is negative or above 8.
  int SetFiles(const char* path, const char* base, int nIdx,
               const char** names, const char** keys);

  // Opens the bound file for reading and writing (read-only when the file
  // cannot be written or its mode has no write bit, even for root; writes
  // then fail), builds every index in memory and goes to the first record of
  // the selected index. Fails, with a trace line naming the file and the
  // reason, when the file is missing, empty, not a table of a served
  // dialect, or has a corrupt header, or when a key expression cannot be
  // evaluated on it. Opening an open table returns 1 and changes nothing.
  // While the process-wide read-only mode is on (SetReadOnly), the file is
  // opened for reading only, whatever its permissions.
  int Open();
  // Closes. 0 when the table was not open.
  int Close();
  int IsOpen() const;

  // Selects the order of navigation: 0 = record order, 1..nIdx = an index.
  // Keeps the current record. 0 for a number out of range.
  int SelectIdx(int idx);
  // The selected index number (0 = record order).
  int CurrentIdx() const;

  // Navigation in the selected order. Deleted records are skipped.
  // Top/Bottom: first/last record (0 for an empty table, which is then at
  // its end). Next/Prev: one step; stepping past the last record leaves the
  // table at its end (Eof true, no current record) and returns 0; stepping
  // before the first leaves it on the first record with Bof true and
  // returns 0. Prev from the end goes to the last record.
  int Top();
  int Bottom();
  int Next();
  int Prev();
  int Eof() const;
  int Bof() const;

  // Seeks a key in the selected index (fails in record order).
  // Returns 1 when a record with precisely that key exists (the first of
  // them becomes current). Otherwise returns 0 and leaves the table on the
  // first record whose key is above the value, or at its end (Eof) when
  // there is none. The number form compares numerically; on a text key the
  // number is compared with the key read as a number. The text form on a
  // numeric key compares the text read as a number (so "%5ld" finds an id
  // stored as N or as right-aligned digits; a text that is not a number
  // fails without moving); on a text key it compares text with text, blanks
  // included, the shorter counting as padded with blanks on the right.
  int Seek(double key);
  int Seek(const char* key);

  // Makes record recno current whatever the selected index (a deleted
  // record too). 0 and no move when recno is outside 1..RecCount().
  int Go(long recno);
  // The current record number; 0 at the end or with no current record.
  long RecNo() const;
  // Records in the file, deleted ones included (as dBase's RECCOUNT()).
  long RecCount() const;
  // 1 when the current record is marked deleted.
  int IsDeleted() const;

  // The 1-based number of a field, 0 when the table has no such field
  // (names compare ignoring case).
  int FieldNo(const char* field) const;
  // The width of a field in the file (0: no such field) and its type letter
  // (upper case; '\0': no such field).
  int FieldWidth(const char* field) const;
  char FieldType(const char* field) const;

  // Typed reads of the current record. Numeric reads accept N, F and C
  // fields (a C field holding digits, blanks around them allowed; a blank
  // field reads 0) and Visual FoxPro's I, B and Y fields, and fail on other
  // types or on text that is not a number. ReadLong and ReadInt drop a
  // fraction (toward zero) and fail on a value outside their type; an
  // integer is read exactly however wide. ReadLogical reads L fields: 1 for
  // T/t/Y/y, 0 otherwise.
  int ReadLong(const char* field, long* value);
  int ReadInt(const char* field, int* value);
  int ReadDouble(const char* field, double* value);
  int ReadLogical(const char* field, int* value);

  // Field access by number, for callers that read or write the same fields
  // of many records: field is the number FieldNo gives. Each behaves as its
  // form by name (same results, same refusals); a number outside
  // 1..FieldCount() is a field the table lacks. A field keeps its number
  // while Generation() stays the same: a caller that keeps numbers looks
  // them up again when it changes (the table was read again, perhaps with
  // another layout, or reopened).
  int FieldCount() const;  // 0 for a closed table
  int ReadFieldLong(int field, long* value);
  int ReadFieldDouble(int field, double* value);
  int WriteFieldDouble(int field, double value);

  // Reads a text field into buf, which holds size bytes, terminator
  // included: the leading characters that fit, as stored, leading blanks
  // kept, and a terminator; result 1 also when the text was longer than
  // buf. dBase pads a text with blanks on the right; that padding is
  // returned only as far as it fits. trimTrailing = 1 drops every trailing
  // blank. zeroFill = 1 fills the rest of buf with zeros. N, F, D and L
  // fields read as their stored text, I, B and Y fields as their number's
  // text; memo, general, picture and datetime fields cannot be read as a
  // text (result 0, buf empty).
  //
  // A caller for whom a cut text changes its meaning (a code sent to a
  // machine, a text rewritten whole) compares TextLength with its room
  // first, and refuses the text rather than use part of it.
  int ReadString(const char* field, char* buf, int size, int trimTrailing = 0,
                 int zeroFill = 0);
  // The length of the text ReadString would give with room enough, trailing
  // blanks not counted; -1 when the field is missing, cannot be read as a
  // text, or the record cannot be read.
  int TextLength(const char* field);

  // Typed writes to the current record. A number is rounded to the field's
  // decimals (half away from zero); one that then does not fit the field's
  // width, a NaN or infinity, a text longer than the field, or a value of
  // the wrong kind for the field is refused (result 0, nothing written).
  // WriteString to an N field takes a number's text (blank: an empty
  // field), to an L field one of TtFfYyNn? (blank: empty).
  // Numeric writes to a C field store the number's digits right-aligned.
  // Writing the value a field already holds writes nothing (the bytes on
  // disk stay as they are, whatever tool wrote them). Writing a key field
  // keeps every index in order. Outside a booking the write has reached the
  // file when the call returns (a process killed right after loses
  // nothing); only a booking survives a power cut.
  int WriteLong(const char* field, long value);
  int WriteInt(const char* field, int value);
  int WriteDouble(const char* field, double value);
  int WriteLogical(const char* field, int value);
  int WriteString(const char* field, const char* text);
  // Writes text over the characters of a C field that begin at pos
  // (0-based), keeping every other character of the field as it is on disk.
  // Refused when the text would not fit the field from pos.
  int WriteStringAt(const char* field, int pos, const char* text);

  // Appends a blank record and makes it current (indexes updated). The
  // record and the header's count reach the file together.
  int Append();
  // Marks the current record deleted; navigation skips it from now on.
  int Delete();
  // Removes the deleted records from the file (renumbering the rest),
  // rebuilds the indexes and goes to the top. The new file replaces the old
  // one only once it is complete and on disk. Not inside a booking.
  int Pack();
  // Rebuilds every index from the file; the current record is kept.
  int RebuildIndex();
  // Every write has reached the file when it returns: 1 for an open table.
  int Flush();

  // Process-wide flush mode, kept for hosts that set it: writes reach the
  // file when they return in both modes. Starts at 1.
  static int FlushGet();
  static void FlushSet(int mode);

  // Process-wide read-only mode: 1 makes every table opened from now on
  // read-only (its writes, appends and packs fail and change nothing), for
  // programs that only watch the tables. Tables already open keep their
  // mode. Starts at 0.
  static void SetReadOnly(int on);
  static int ReadOnly();

  // How long a booking or a write waits for another process's booking on
  // the same tables before it fails (traced), in milliseconds. Starts at
  // 5000; values below 0 count as 0.
  static void SetLockWait(int ms);
  static int LockWait();

  // Creates the empty dBase III table path/base.dbf with the given fields.
  // Refuses (0, with a trace line) when the file already exists, a field is
  // invalid or two fields share a name; nothing is left behind on failure.
  static int Create(const char* path, const char* base, int nFields,
                    const QdbField* fields);

  // The bound file's full name ("" before SetFiles).
  const char* FileName() const;

  // A number that changes whenever the table is opened and whenever it was
  // read again because the file changed under it (another process
  // appended, deleted, packed or rewrote a key). A caller that keeps record
  // or field numbers compares it.
  long Generation() const;

  // How many calls on this table have failed for want of the file (a read
  // or write the disk refused) or of memory. A caller that must tell "no
  // such record" from "the record could not be read" compares it before
  // and after.
  unsigned long FailedCalls() const;

  struct Impl;

 private:
  friend class QdbBooking;
  Impl* impl_;
};

// A booking: the writes of one operation on one or more tables, made so
// that they all reach the files or none does, also when a write fails, the
// process is killed or the power goes.
//
// Starting one takes the lock of the tables' directory (waiting at most
// Qdbase::LockWait() ms for another process's booking), completes a
// booking another process left unfinished, and brings the tables up to
// date with the files. From then until Commit, every record the tables
// read comes from the file once and is kept; writes change only those
// copies. Commit writes every changed byte range to a journal beside the
// tables (qslave.jnl) and syncs it, then writes the tables, and releases
// the lock. See refhost/qdb/journal.h for how an interrupted booking is
// completed.
//
// A booking started while the same tables are in one already joins it: its
// Commit only reports whether the outer booking can still succeed, and the
// outer Commit writes everything. Destroying a booking that was not
// committed abandons its writes (the tables read again from the files).
class QdbBooking {
 public:
  // Null and closed tables are skipped.
  explicit QdbBooking(Qdbase* a, Qdbase* b = nullptr, Qdbase* c = nullptr);
  // The same, waiting at most waitMs (0: not at all; below 0 counts as 0)
  // instead of Qdbase::LockWait() for another process's booking: for
  // writes that may as well be made later, when the tables are free.
  QdbBooking(int waitMs, Qdbase* a, Qdbase* b = nullptr, Qdbase* c = nullptr);
  ~QdbBooking();
  QdbBooking(const QdbBooking&) = delete;
  QdbBooking& operator=(const QdbBooking&) = delete;

  // 1 while a booking is in progress in this process (one started now
  // joins it, and needs no lock of its own).
  static int InProgress();

  // 1 when the booking started (or joined one); 0 when the lock could not
  // be had, an unfinished booking could not be completed, or the tables
  // could not be read (traced).
  int Ok() const;
  // 1 when every write of the booking is in the tables, where a power cut
  // cannot take it; 0 when none is (traced: a read or write that failed
  // during the booking, a journal or table the system would not write).
  int Commit();

 private:
  int state_;
};

#endif
