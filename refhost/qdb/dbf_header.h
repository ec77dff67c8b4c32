// The header of a dBase table and the dialects the table class serves
// (internal to libqdb).
//
// Served: dBase III without and with memo (version byte 0x03, 0x83), dBase
// IV with memo (0x8B), FoxPro 2 with memo (0xF5) and Visual FoxPro (0x30,
// 0x31). Field types: C, N, F, L, D in every dialect, M (memo: present and
// left untouched), G and P in FoxPro and Visual FoxPro, and in Visual
// FoxPro also I (4-byte integer), B (8-byte double), Y (currency: 8-byte
// integer of ten-thousandths), T (datetime, opaque) and the system field
// of null flags. Anything else is refused with its exact reason, never read
// as something it is not.
#ifndef QSLAVE_REFHOST_DBF_HEADER_H
#define QSLAVE_REFHOST_DBF_HEADER_H

#include <string>
#include <vector>

#include "dbf_file.h"

namespace qdb {

struct DbfField {
  std::string name;   // as stored, upper case in practice
  char type = 'C';    // upper-case type letter
  int width = 0;
  int decimals = 0;
  int offset = 0;     // in the record; the deletion flag is byte 0
  int nullBit = -1;   // Visual FoxPro: its bit in the null flags, or -1
};

struct DbfLayout {
  unsigned char version = 0;
  bool visualFoxPro = false;
  int headerLength = 0;
  int recordLength = 0;
  long headerRecords = 0;  // the record count the header states
  std::vector<DbfField> fields;
  int nullFlagsField = -1;  // index of the null flags field, or -1
};

// The dialect's name for traces, e.g. "dBase III with memo".
const char* DialectName(unsigned char version);

// Reads and checks the header of a file of fileSize bytes. On failure
// *why says what is wrong ("corrupt header: ...", "version byte 0x04
// (dBase 7) is not served", ...).
bool ReadLayout(DbfFile& file, long long fileSize, DbfLayout* layout, std::string* why);

// The whole records the file holds after its header.
long RecordsInFile(const DbfLayout& layout, long long fileSize);

// A blank record: not deleted, texts blank, binary fields zero.
std::string BlankRecord(const DbfLayout& layout);

// Header bytes 1..3 (last update: year - 1900, month, day) for today, and
// bytes 4..7 (the record count, little-endian).
void TodayBytes(unsigned char out[3]);
void CountBytes(long count, unsigned char out[4]);

// Byte offset of record recno (1-based) in the file.
inline long long RecordOffset(const DbfLayout& layout, long recno) {
  return static_cast<long long>(layout.headerLength) +
         static_cast<long long>(recno - 1) * layout.recordLength;
}

// The header of a new, empty dBase III table with these fields (type C, N
// or L), and its record length. The fields are already checked.
struct NewField {
  std::string name;
  char type;
  int width;
  int decimals;
};
std::string NewTableHeader(const std::vector<NewField>& fields);

}  // namespace qdb

#endif
