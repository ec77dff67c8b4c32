#include "dbf_header.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

#include <algorithm>

namespace qdb {

namespace {

enum Dialect { kDbase3, kDbase4, kFoxPro2, kVisualFoxPro, kNotServed };

struct Version {
  unsigned char byte;
  Dialect dialect;
  const char* name;
};

const Version kVersions[] = {
    {0x03, kDbase3, "dBase III"},
    {0x83, kDbase3, "dBase III with memo"},
    {0x8B, kDbase4, "dBase IV with memo"},
    {0xF5, kFoxPro2, "FoxPro 2 with memo"},
    {0x30, kVisualFoxPro, "Visual FoxPro"},
    {0x31, kVisualFoxPro, "Visual FoxPro with autoincrement"},
    // Known, and refused by name.
    {0x02, kNotServed, "FoxBASE"},
    {0xFB, kNotServed, "FoxBASE with memo"},
    {0x04, kNotServed, "dBase 7"},
    {0x8C, kNotServed, "dBase 7 with memo"},
    {0x32, kNotServed, "Visual FoxPro with varchar fields"},
    {0x43, kNotServed, "dBase IV SQL table"},
    {0x63, kNotServed, "dBase IV SQL system table"},
    {0xCB, kNotServed, "dBase IV SQL table with memo"},
    {0xE5, kNotServed, "Clipper SIx with memo"},
};

const Version* FindVersion(unsigned char byte) {
  for (const Version& v : kVersions) {
    if (v.byte == byte) return &v;
  }
  return nullptr;
}

unsigned ReadU16(const unsigned char* p) { return p[0] | (p[1] << 8); }

unsigned long ReadU32(const unsigned char* p) {
  return static_cast<unsigned long>(p[0]) | (static_cast<unsigned long>(p[1]) << 8) |
         (static_cast<unsigned long>(p[2]) << 16) | (static_cast<unsigned long>(p[3]) << 24);
}

std::string Hex(unsigned value) {
  char buf[8];
  snprintf(buf, sizeof buf, "0x%02X", value);
  return buf;
}

// The width a field of this type must have in this dialect, 0 when any
// width is allowed, -1 when the dialect has no such type.
int FixedWidth(char type, Dialect dialect) {
  const bool fox = dialect == kFoxPro2 || dialect == kVisualFoxPro;
  const bool vfp = dialect == kVisualFoxPro;
  switch (type) {
    case 'C': case 'N': case 'F': return 0;
    case 'L': return 1;
    case 'D': return 8;
    case 'M': return vfp ? 4 : 10;
    case 'G': case 'P': return fox ? (vfp ? 4 : 10) : -1;
    case 'I': return vfp ? 4 : -1;
    case 'B': case 'Y': case 'T': return vfp ? 8 : -1;
    case '0': return vfp ? 0 : -1;
    default: return -1;
  }
}

const char* TypeName(char type) {
  switch (type) {
    case 'V': return "varchar";
    case 'Q': return "varbinary";
    case 'W': return "blob";
    case '@': return "timestamp";
    case 'O': return "double";
    case '+': return "autoincrement";
    default: return nullptr;
  }
}

bool ValidName(const unsigned char* d, size_t* len) {
  size_t n = 0;
  while (n < 11 && d[n] != 0) ++n;
  if (n == 0 || n > 10) return false;
  for (size_t i = 0; i < n; ++i) {
    if (d[i] <= ' ' || d[i] >= 0x7F) return false;
  }
  *len = n;
  return true;
}

// Reads one field descriptor d (32 bytes). offset: the field's offset in
// the record as the fields before it give it.
bool ReadField(const unsigned char* d, int number, Dialect dialect, const char* dialectName,
               int offset, DbfField* f, std::string* why) {
  size_t len = 0;
  if (!ValidName(d, &len)) {
    *why = "corrupt header: field descriptor " + std::to_string(number) + " has no valid name";
    return false;
  }
  f->name.assign(reinterpret_cast<const char*>(d), len);
  const char letter = static_cast<char>(d[11]);
  f->type = (letter >= 'a' && letter <= 'z') ? static_cast<char>(letter - 'a' + 'A') : letter;
  const int fixed = FixedWidth(f->type, dialect);
  if (fixed < 0) {
    const char* known = TypeName(f->type);
    if (known != nullptr) {
      *why = "field " + f->name + " has type " + std::string(1, f->type) + " (" + known +
             "), which this table class does not serve";
    } else if (f->type >= '!' && f->type <= '~') {
      *why = "corrupt header: field " + f->name + " has type " + std::string(1, f->type) +
             ", which " + dialectName + " tables do not have";
    } else {
      *why = "corrupt header: field " + f->name + " has unknown type " +
             Hex(static_cast<unsigned char>(d[11]));
    }
    return false;
  }
  f->width = d[16];
  f->decimals = d[17];
  // Clipper and FoxPro (before Visual FoxPro) keep texts wider than 255 by
  // using the decimals byte as the high byte of the width.
  if (f->type == 'C' && dialect != kVisualFoxPro) {
    f->width = d[16] + 256 * d[17];
    f->decimals = 0;
  }
  if (f->type != 'N' && f->type != 'F' && f->type != 'B') f->decimals = 0;
  if (f->width < 1) {
    *why = "corrupt header: field " + f->name + " has width 0";
    return false;
  }
  if (fixed > 0 && f->width != fixed) {
    *why = "corrupt header: field " + f->name + " of type " + std::string(1, f->type) +
           " has width " + std::to_string(f->width) + ", not " + std::to_string(fixed);
    return false;
  }
  if ((f->type == 'N' || f->type == 'F') && f->decimals > 0 && f->decimals >= f->width) {
    *why = "corrupt header: field " + f->name + " has " + std::to_string(f->decimals) +
           " decimals in width " + std::to_string(f->width);
    return false;
  }
  f->offset = offset;
  if (dialect == kVisualFoxPro) {
    const unsigned long stored = ReadU32(d + 12);
    if (stored != 0 && stored != static_cast<unsigned long>(offset)) {
      *why = "corrupt header: field " + f->name + " is stored at byte " +
             std::to_string(stored) + " of the record, its place is byte " +
             std::to_string(offset);
      return false;
    }
  }
  return true;
}

// Visual FoxPro: each nullable field (flag 0x02) owns the next bit of the
// null flags, in field order.
bool AssignNullBits(const std::vector<const unsigned char*>& descriptors, DbfLayout* layout,
                    std::string* why) {
  int bits = 0;
  for (size_t i = 0; i < layout->fields.size(); ++i) {
    DbfField& f = layout->fields[i];
    if (f.type == '0') {
      if (layout->nullFlagsField >= 0) {
        *why = "corrupt header: two null flags fields";
        return false;
      }
      layout->nullFlagsField = static_cast<int>(i);
      continue;
    }
    if ((descriptors[i][18] & 0x02) != 0) f.nullBit = bits++;
  }
  if (bits == 0) return true;
  if (layout->nullFlagsField < 0) {
    *why = "corrupt header: nullable fields but no null flags field";
    return false;
  }
  if (layout->fields[static_cast<size_t>(layout->nullFlagsField)].width * 8 < bits) {
    *why = "corrupt header: the null flags field is too narrow for " + std::to_string(bits) +
           " nullable fields";
    return false;
  }
  return true;
}

}  // namespace

const char* DialectName(unsigned char version) {
  const Version* v = FindVersion(version);
  return v != nullptr ? v->name : "unknown dialect";
}

bool ReadLayout(DbfFile& file, long long fileSize, DbfLayout* layout, std::string* why) {
  if (fileSize == 0) {
    *why = "the file is empty";
    return false;
  }
  if (fileSize < 32) {
    *why = "truncated: " + std::to_string(fileSize) + " bytes, shorter than a dBase header";
    return false;
  }
  unsigned char head[32];
  if (!file.ReadAt(head, sizeof head, 0)) {
    *why = "cannot read the header (" + file.Error() + ")";
    return false;
  }
  const Version* version = FindVersion(head[0]);
  if (version == nullptr) {
    *why = "corrupt header: version byte " + Hex(head[0]) + " is not a dBase table";
    return false;
  }
  if (version->dialect == kNotServed) {
    *why = "version byte " + Hex(head[0]) + " (" + version->name + ") is not served";
    return false;
  }
  DbfLayout out;
  out.version = head[0];
  out.visualFoxPro = version->dialect == kVisualFoxPro;
  out.headerRecords = static_cast<long>(std::min<unsigned long>(ReadU32(head + 4), 0x7FFFFFFFUL));
  out.headerLength = static_cast<int>(ReadU16(head + 8));
  out.recordLength = static_cast<int>(ReadU16(head + 10));
  if (out.headerLength < 32 + 32 + 1) {
    *why = "corrupt header: header length " + std::to_string(out.headerLength) +
           " leaves no room for a field";
    return false;
  }
  if (out.headerLength > fileSize) {
    *why = "truncated: header length " + std::to_string(out.headerLength) +
           " but the file has " + std::to_string(fileSize) + " bytes";
    return false;
  }
  if (out.recordLength < 2) {
    *why = "corrupt header: record length " + std::to_string(out.recordLength);
    return false;
  }
  std::vector<unsigned char> desc(static_cast<size_t>(out.headerLength) - 32);
  if (!file.ReadAt(desc.data(), desc.size(), 32)) {
    *why = "cannot read the field descriptors (" + file.Error() + ")";
    return false;
  }

  std::vector<const unsigned char*> descriptors;
  size_t at = 0;
  bool terminated = false;
  int offset = 1;
  while (at < desc.size()) {
    if (desc[at] == 0x0D) {
      terminated = true;
      break;
    }
    if (at + 32 > desc.size()) break;
    DbfField f;
    if (!ReadField(desc.data() + at, static_cast<int>(out.fields.size()) + 1, version->dialect,
                   version->name, offset, &f, why)) {
      return false;
    }
    offset += f.width;
    out.fields.push_back(f);
    descriptors.push_back(desc.data() + at);
    at += 32;
  }
  if (!terminated) {
    *why = "corrupt header: the field descriptors have no terminator";
    return false;
  }
  if (out.fields.empty()) {
    *why = "corrupt header: no fields";
    return false;
  }
  // Visual FoxPro keeps 263 bytes (the database container's name) after
  // the terminator.
  const size_t least = 32 + at + 1 + (out.visualFoxPro ? 263 : 0);
  if (static_cast<size_t>(out.headerLength) < least) {
    *why = "corrupt header: header length " + std::to_string(out.headerLength) + " but " +
           std::to_string(out.fields.size()) + " fields need " + std::to_string(least);
    return false;
  }
  if (offset != out.recordLength) {
    *why = "corrupt header: record length " + std::to_string(out.recordLength) +
           " but the fields add up to " + std::to_string(offset);
    return false;
  }
  if (out.visualFoxPro && !AssignNullBits(descriptors, &out, why)) return false;
  *layout = std::move(out);
  return true;
}

long RecordsInFile(const DbfLayout& layout, long long fileSize) {
  if (fileSize <= layout.headerLength || layout.recordLength < 1) return 0;
  const long long n = (fileSize - layout.headerLength) / layout.recordLength;
  return static_cast<long>(std::min<long long>(n, 0x7FFFFFFFLL));
}

std::string BlankRecord(const DbfLayout& layout) {
  std::string record(static_cast<size_t>(layout.recordLength), ' ');
  for (const DbfField& f : layout.fields) {
    switch (f.type) {
      case 'I': case 'B': case 'Y': case 'T': case '0':
        record.replace(static_cast<size_t>(f.offset), static_cast<size_t>(f.width),
                       static_cast<size_t>(f.width), '\0');
        break;
      case 'M': case 'G': case 'P':
        if (layout.visualFoxPro) {
          record.replace(static_cast<size_t>(f.offset), static_cast<size_t>(f.width),
                         static_cast<size_t>(f.width), '\0');
        }
        break;
      default:
        break;
    }
  }
  return record;
}

void TodayBytes(unsigned char out[3]) {
  time_t now = time(nullptr);
  struct tm tmv;
  if (localtime_r(&now, &tmv) == nullptr) memset(&tmv, 0, sizeof tmv);
  out[0] = static_cast<unsigned char>(tmv.tm_year & 0xFF);
  out[1] = static_cast<unsigned char>(tmv.tm_mon + 1);
  out[2] = static_cast<unsigned char>(tmv.tm_mday);
}

void CountBytes(long count, unsigned char out[4]) {
  const unsigned long n = static_cast<unsigned long>(count);
  out[0] = static_cast<unsigned char>(n & 0xFF);
  out[1] = static_cast<unsigned char>((n >> 8) & 0xFF);
  out[2] = static_cast<unsigned char>((n >> 16) & 0xFF);
  out[3] = static_cast<unsigned char>((n >> 24) & 0xFF);
}

std::string NewTableHeader(const std::vector<NewField>& fields) {
  const size_t headerLength = 32 + 32 * fields.size() + 1;
  int recordLength = 1;
  for (const NewField& f : fields) recordLength += f.width;
  std::string header(headerLength, '\0');
  unsigned char* h = reinterpret_cast<unsigned char*>(&header[0]);
  h[0] = 0x03;
  TodayBytes(h + 1);
  CountBytes(0, h + 4);
  h[8] = static_cast<unsigned char>(headerLength & 0xFF);
  h[9] = static_cast<unsigned char>(headerLength >> 8);
  h[10] = static_cast<unsigned char>(recordLength & 0xFF);
  h[11] = static_cast<unsigned char>(recordLength >> 8);
  h[29] = 0x57;  // code page mark: Windows ANSI (1252)
  for (size_t i = 0; i < fields.size(); ++i) {
    unsigned char* d = h + 32 + 32 * i;
    memcpy(d, fields[i].name.data(), std::min<size_t>(fields[i].name.size(), 10));
    d[11] = static_cast<unsigned char>(fields[i].type);
    d[16] = static_cast<unsigned char>(fields[i].width);
    d[17] = static_cast<unsigned char>(fields[i].decimals);
  }
  h[headerLength - 1] = 0x0D;
  return header;
}

}  // namespace qdb
