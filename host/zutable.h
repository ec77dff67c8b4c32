// The host's colourant data and formula reading: the colourant and cans
// tables (CZutable), formula texts (kformula, Zu_Frm) and the growable arrays
// that carry lists between the host and the library.
//
// Host library: libzutable-small.so (links libqdb.so and libqdsp32.so).
#ifndef QSLAVE_HOST_ZUTABLE_H
#define QSLAVE_HOST_ZUTABLE_H

#include <stddef.h>

class Qdbase;

// Selects the table of a colourant-data set that CZutable opens.
enum ZUSPEC {
  ZUSPEC_NONE = 0,
  ZUSPEC_COLORANTS = 2,  // colorants.dbf: ID (N), CODE (C), DESCR (C),
                         // SPEC_W (N, grams per litre); index 1 on ID
  ZUSPEC_CANS = 8,       // cans.dbf: ID (N), H_MIN, H_MAX (N), ZERO_FLAG,
                         // NO_PUNCH (L), FLAGS (C); index 1 on STR(ID,5)
};

// One table of one colourant-data set.
//
// Data id 0 is the data directory itself (Zu_LocalPathEx); data id N > 0 is
// its subdirectory dataN when that exists, else the data directory.
class CZutable {
 public:
  CZutable();
  // Closes the table if this object opened it.
  ~CZutable();

  CZutable(const CZutable&) = delete;
  CZutable& operator=(const CZutable&) = delete;

  void SetDataId(long dataId);
  long DataId() const;

  // Chooses the table (a ZUSPEC value) for the next Open. Changing it closes
  // an open table. Returns the previous value.
  int Handle(int zuspec);
  int Handle() const;

  // Opens the chosen table. 1 on success (also when already open); 0 when no
  // table is chosen, the file is missing or cannot be read.
  int Open();
  // Opens the table unless it is already open, remembering whether it did;
  // TmpClose then closes it only in that case. For short lookups inside a
  // caller that may hold the table open itself.
  int TmpOpen();
  int TmpClose();
  int Close();
  int IsOpen() const;

  // The open table, to navigate and read with Qdbase's operations; null
  // while closed. Owned by this object.
  Qdbase* Table();

  // Specific weight of colourant id in grams per litre, from the colourant
  // table's SPEC_W. 0.0 when the colourant is unknown, the table cannot be
  // opened, or the weight is not a positive finite number. Opens the
  // colourant table temporarily when it is not open; keeps the current
  // record of an open table.
  double SpecificWeight(long id);

  // Full name of the file the chosen table lives in (for messages).
  const char* FileName() const;

 private:
  struct Impl;
  Impl* impl_;
};

// A colour formula: components (key, quantity) in text order.
//
// Text form: components written back to back as "(key:quantity)", blanks
// (and tabs, line ends) allowed between and around components. A key is a
// whole number (a colourant id or a tank number), optionally signed; a
// quantity is a decimal number, optionally signed, with an optional
// fraction. Any other text (empty brackets, a missing colon or quantity, a
// non-numeric key, an unclosed bracket, characters outside brackets) is
// malformed: count() is then negative and the formula holds no component.
// An empty or blank text is a formula of no component. A text that does not
// begin with a bracket is read as the comma list "key,quantity,key,quantity"
// (blanks around the items and one trailing comma allowed), the form in
// which drivers and host programs also write formulas.
class kformula {
 public:
  kformula();
  virtual ~kformula();

  kformula(const kformula&) = delete;
  kformula& operator=(const kformula&) = delete;

  // Replaces the formula by the components of text (null = empty). Returns
  // count().
  int set(const char* text);
  // Number of components; -1 when the last set() text was malformed.
  int count() const;
  // Copies the components into ids and qnts (either may be null), each with
  // room for count() entries. Returns the number copied, -1 when malformed.
  int parse(long long* ids, double* qnts) const;
  // Scales every quantity by to / from and rounds it to the given number of
  // decimals (0..15). Returns count(), or -1 (nothing changed) when from or
  // to is not a finite number or from is 0. flags is reserved (pass 0).
  int resize(double from, double to, int decimals, int flags);
  // Converts weights (grams) to volumes (cubic centimetres) with the
  // specific weights of the colourant table behind table (its data id is
  // used; the table need not be open): quantity = quantity * factor /
  // (weight / 1000), rounded to decimals. A component whose colourant has no
  // usable weight gets quantity 0. Returns the number of components
  // converted, -1 when table is null or the formula is malformed. flags is
  // reserved (pass 0).
  int to_volume(CZutable* table, double factor, int decimals, int flags);
  // Appends a component. Returns the new count, -1 when the formula is
  // malformed or the quantity is not finite. The two ints are reserved.
  int add(long long id, double qnt, int reserved1, int reserved2);
  // The formula as text, "(%lld:%.3lf)" per component; "" when empty or
  // malformed. The pointer stays valid until the formula changes.
  const char* text();

 protected:
  struct Impl;
  Impl* impl_;
};

// A kformula with one string of the host's beside it (the host keeps a
// description there; the library never reads it).
class Zu_Frm : public kformula {
 public:
  Zu_Frm();
  ~Zu_Frm() override;
  void SetName(const char* name);
  const char* Name() const;

 private:
  char* name_;
};

// Growable arrays. operator[] with an index outside 0..size()-1 answers a
// scratch element that reads 0 (writes to it are lost): an index error
// never reaches outside the array.
class Zu_IntArray {
 public:
  Zu_IntArray();
  ~Zu_IntArray();
  Zu_IntArray(const Zu_IntArray&) = delete;
  Zu_IntArray& operator=(const Zu_IntArray&) = delete;
  // Appends v; returns the new size, -1 when memory ran out.
  int append(int v);
  void clear();
  int size() const;
  int& operator[](int i);
  const int& operator[](int i) const;
  // The elements, null when empty.
  int* data();

 private:
  int* items_;
  int size_;
  int capacity_;
  int scratch_;
};

class Zu_LongArray {
 public:
  Zu_LongArray();
  ~Zu_LongArray();
  Zu_LongArray(const Zu_LongArray&) = delete;
  Zu_LongArray& operator=(const Zu_LongArray&) = delete;
  int append(long v);
  void clear();
  int size() const;
  long& operator[](int i);
  const long& operator[](int i) const;
  long* data();

 private:
  long* items_;
  int size_;
  int capacity_;
  long scratch_;
};

class Zu_DoubleArray {
 public:
  Zu_DoubleArray();
  ~Zu_DoubleArray();
  Zu_DoubleArray(const Zu_DoubleArray&) = delete;
  Zu_DoubleArray& operator=(const Zu_DoubleArray&) = delete;
  int append(double v);
  void clear();
  int size() const;
  double& operator[](int i);
  const double& operator[](int i) const;
  double* data();

 private:
  double* items_;
  int size_;
  int capacity_;
  double scratch_;
};

// The colourant-data id that serves dispenser dispId: the DATA_ID field of
// its record in the dispenser table (disps.dbf in the data directory) when
// the table has that field, else 0. 0 as well when the table or the record
// cannot be read.
long Zu_DataIdFromSlaveId(long dispId);

#endif
