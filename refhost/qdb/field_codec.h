// Numbers and logicals as dBase fields hold them (internal to libqdb):
// texts in N, F and C fields, little-endian binaries in Visual FoxPro's I
// (4-byte integer), B (8-byte double) and Y (currency, an 8-byte integer of
// ten-thousandths) fields, and Visual FoxPro's null flags.
#ifndef QSLAVE_REFHOST_FIELD_CODEC_H
#define QSLAVE_REFHOST_FIELD_CODEC_H

#include <stddef.h>

#include <string>

#include "dbf_header.h"

namespace qdb {

struct FieldNumber {
  double value = 0.0;
  bool integral = true;    // no fraction was stored
  long long whole = 0;     // the value, when integral and within long long
  bool wholeExact = true;  // whole holds the value exactly
  bool blank = false;      // nothing stored (a blank text, a NULL)
};

// A number as dBase stores it in text: blanks (and NULs, tabs) around it,
// an optional sign, digits with an optional decimal point. An all-blank
// text reads 0.
bool ParseNumberText(const char* s, size_t len, FieldNumber* out);

// Whether field f of record is NULL (a Visual FoxPro nullable field whose
// null bit is set).
bool IsNull(const DbfLayout& layout, const DbfField& f, const char* record);

// Whether field f holds numbers (N, F, I, B, Y, or a C field of digits).
bool HoldsNumbers(const DbfField& f);

// The number in field f of record. A NULL field reads 0, as a blank one
// does. False when the field holds no numbers or its text is not a number.
bool DecodeNumber(const DbfLayout& layout, const DbfField& f, const char* record,
                  FieldNumber* out);

// The bytes (f.width of them) that store v in field f: rounded half away
// from zero to the field's decimals. False when v is not finite, does not
// fit, or the field holds no numbers.
bool EncodeNumber(const DbfField& f, double v, std::string* bytes);
// The same for a whole number, exact however large the field allows.
bool EncodeWhole(const DbfField& f, long long v, std::string* bytes);

// Whether storing v in the N or F field f certainly gives another value
// than before, told without encoding v: v is stored within half a unit of
// the field's last decimal, so more than a unit away is another value.
// False when it cannot be told so (another type, a blank field).
bool CertainlyAnotherValue(const DbfField& f, const FieldNumber& before, double v);

// dBase logical: T, t, Y, y are true.
inline bool LogicalTrue(char c) { return c == 'T' || c == 't' || c == 'Y' || c == 'y'; }

// A number rounded half away from zero to the given decimals, in plain
// notation; "" when it is not finite.
std::string FormatFixed(double v, int decimals);

}  // namespace qdb

#endif
