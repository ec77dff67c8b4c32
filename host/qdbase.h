// Qdbase: one dBase III table with in-memory indexes.
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
  // Closes the table if it is open (flushing pending writes).
  virtual ~Qdbase();

  Qdbase(const Qdbase&) = delete;
  Qdbase& operator=(const Qdbase&) = delete;

  // Binds the object to its file and indexes; does not open anything.
  // path: directory; base: file name without extension. The file is
  // path/base.dbf, or path/BASE.DBF when the lower-case name is absent.
  // nIdx index definitions follow: index i+1 is called names[i] and is
  // ordered by the key expression keys[i]. Key expressions are built from
  // field names, numbers, VAL(x), STR(x,n), '+' and '*', with parentheses;
  // '+' of two texts joins them. Selects index 1 (record order when nIdx is
  // 0). Returns 0 when an argument is null, the table is open, or nIdx is
  // negative or above 8.
  int SetFiles(const char* path, const char* base, int nIdx,
               const char** names, const char** keys);

  // Opens the bound file for reading and writing (read-only when the file
  // cannot be written or its mode has no write bit, even for root; writes
  // then fail), builds every index in memory and goes to the first record of
  // the selected index. Fails, with a trace line naming the file, when the
  // file is missing, empty, truncated (shorter than its header's record
  // count says: refused whole) or has a corrupt header, or when a key
  // expression cannot be evaluated on it.
  // Opening an open table returns 1 and changes nothing. While the
  // process-wide read-only mode is on (SetReadOnly), the file is opened for
  // reading only, whatever its permissions.
  int Open();
  // Writes pending changes and closes. 0 when the table was not open.
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

  // Typed reads of the current record. Numeric reads accept N, F and C
  // fields (a C field holding digits, blanks around them allowed; a blank
  // field reads 0) and fail on other types or on text that is not a
  // number. ReadLong and ReadInt drop a fraction (toward zero) and fail on a
  // value outside their type. ReadLogical reads L fields: 1 for T/t/Y/y, 0
  // otherwise.
  int ReadLong(const char* field, long* value);
  int ReadInt(const char* field, int* value);
  int ReadDouble(const char* field, double* value);
  int ReadLogical(const char* field, int* value);

  // Reads a text field (any type, as stored in the file) into buf, which
  // holds size bytes, terminator included. The text comes back as stored,
  // leading blanks kept: dBase pads a text with blanks on the right, and
  // that padding is returned only as far as it fits. trimTrailing = 1 drops
  // every trailing blank. zeroFill = 1 fills the rest of buf with zeros.
  // A text whose non-blank characters do not fit is refused: result 0 and
  // buf empty, never a cut text.
  int ReadString(const char* field, char* buf, int size, int trimTrailing = 0,
                 int zeroFill = 0);

  // Typed writes to the current record. A number is rounded to the field's
  // decimals (half away from zero); one that then does not fit the field's
  // width, a NaN or infinity, a text longer than the field, or a value of
  // the wrong kind for the field is refused (result 0, nothing written).
  // WriteString to an N field takes a number's text (blank: an empty
  // field), to an L field one of TtFfYyNn? (blank: empty).
  // Numeric writes to a C field store the number's digits right-aligned.
  // Writing a key field keeps every index in order. With flush mode 1 the
  // write has reached the file when the call returns.
  int WriteLong(const char* field, long value);
  int WriteInt(const char* field, int value);
  int WriteDouble(const char* field, double value);
  int WriteLogical(const char* field, int value);
  int WriteString(const char* field, const char* text);

  // Appends a blank record and makes it current (indexes updated).
  int Append();
  // Marks the current record deleted; navigation skips it from now on.
  int Delete();
  // Removes the deleted records from the file (renumbering the rest),
  // rebuilds the indexes and goes to the top. The new file replaces the old
  // one only once it is complete.
  int Pack();
  // Rebuilds every index from the file; the current record is kept.
  int RebuildIndex();
  // Writes pending changes to the file.
  int Flush();

  // Process-wide flush mode of the table library. 0: writes may wait in
  // memory until the record changes, Flush or Close. 1: every write and
  // append has reached the file when it returns, so another process that
  // opens the table sees it and a process killed right after loses nothing.
  // The mode starts at 1.
  static int FlushGet();
  static void FlushSet(int mode);

  // Process-wide read-only mode: 1 makes every table opened from now on
  // read-only (its writes, appends and packs fail and change nothing), for
  // programs that only watch the tables. Tables already open keep their
  // mode. Starts at 0.
  static void SetReadOnly(int on);
  static int ReadOnly();

  // Creates the empty table path/base.dbf with the given fields. Refuses
  // (0, with a trace line) when the file already exists, a field is invalid
  // or two fields share a name; nothing is left behind on failure.
  static int Create(const char* path, const char* base, int nFields,
                    const QdbField* fields);

  // The bound file's full name ("" before SetFiles).
  const char* FileName() const;

 private:
  struct Impl;
  Impl* impl_;
};

#endif
