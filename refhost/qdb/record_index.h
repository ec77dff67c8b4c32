// An in-memory index of a table: each record's key and the record numbers
// in key order (internal to libqdb).
#ifndef QSLAVE_REFHOST_RECORD_INDEX_H
#define QSLAVE_REFHOST_RECORD_INDEX_H

#include <stddef.h>

#include <string>
#include <vector>

#include "dbf_header.h"
#include "key_expression.h"

namespace qdb {

struct RecordIndex {
  std::string name;
  std::string expr;
  KeyExpression key;
  std::vector<KeyValue> keys;  // keys[recno - 1]
  std::vector<long> order;     // record numbers in key order
  // reads[fi]: whether the key expression may read field fi. A field whose
  // name does not occur in the expression's text cannot change the key, so
  // writing it leaves the index alone.
  std::vector<char> reads;

  // Compiles the expression against the layout; false with *error set.
  bool Compile(const DbfLayout& layout, std::string* error);
  // Starts over for `records` records; their keys come with SetKey, then
  // Sort puts them in order.
  void Reset(long records);
  void SetKey(long rec, const char* record) { keys[static_cast<size_t>(rec - 1)] = key.Evaluate(record); }
  void Sort();
  // A record whose key may have changed: moved to its place.
  void Rekey(long rec, const char* record);
  // A new last record.
  void Add(long rec, const char* record);

  // Position of rec in order (order.size() when absent).
  size_t PosOf(long rec) const;
  // First position whose key is not below the number / the text.
  size_t LowerBound(double number) const;
  size_t LowerBound(const std::string& text) const;
  const KeyValue& KeyOf(long rec) const { return keys[static_cast<size_t>(rec - 1)]; }

 private:
  bool Less(long a, long b) const;
};

}  // namespace qdb

#endif
