#include "record_index.h"

#include <ctype.h>

#include <algorithm>

namespace qdb {

namespace {

std::string Upper(std::string s) {
  for (char& c : s) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  return s;
}

}  // namespace

bool RecordIndex::Compile(const DbfLayout& layout, std::string* error) {
  std::vector<KeyField> fields;
  for (const DbfField& f : layout.fields) fields.push_back({f.name, f.type, f.offset, f.width});
  if (!key.Compile(expr, fields, error)) return false;
  const std::string text = Upper(expr);
  reads.assign(layout.fields.size(), 0);
  for (size_t f = 0; f < layout.fields.size(); ++f) {
    reads[f] = text.find(Upper(layout.fields[f].name)) != std::string::npos;
  }
  return true;
}

void RecordIndex::Reset(long records) {
  keys.assign(static_cast<size_t>(records), KeyValue());
  order.clear();
}

bool RecordIndex::Less(long a, long b) const {
  const int c = CompareKeys(KeyOf(a), KeyOf(b));
  return c < 0 || (c == 0 && a < b);
}

void RecordIndex::Sort() {
  order.resize(keys.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = static_cast<long>(i) + 1;
  std::sort(order.begin(), order.end(), [this](long a, long b) { return Less(a, b); });
}

size_t RecordIndex::PosOf(long rec) const {
  auto it = std::lower_bound(order.begin(), order.end(), rec,
                             [this](long a, long b) { return Less(a, b); });
  if (it != order.end() && *it == rec) return static_cast<size_t>(it - order.begin());
  return static_cast<size_t>(std::find(order.begin(), order.end(), rec) - order.begin());
}

void RecordIndex::Rekey(long rec, const char* record) {
  KeyValue fresh = key.Evaluate(record);
  KeyValue& old = keys[static_cast<size_t>(rec - 1)];
  if (CompareKeys(fresh, old) == 0 && fresh.text == old.text) return;
  const size_t pos = PosOf(rec);
  if (pos < order.size()) order.erase(order.begin() + static_cast<long>(pos));
  old = std::move(fresh);
  order.insert(std::lower_bound(order.begin(), order.end(), rec,
                                [this](long a, long b) { return Less(a, b); }),
               rec);
}

void RecordIndex::Add(long rec, const char* record) {
  keys.push_back(key.Evaluate(record));
  order.insert(std::lower_bound(order.begin(), order.end(), rec,
                                [this](long a, long b) { return Less(a, b); }),
               rec);
}

size_t RecordIndex::LowerBound(double number) const {
  auto it = std::lower_bound(order.begin(), order.end(), number, [this](long r, double v) {
    return KeyOf(r).number < v;
  });
  return static_cast<size_t>(it - order.begin());
}

size_t RecordIndex::LowerBound(const std::string& text) const {
  auto it = std::lower_bound(order.begin(), order.end(), text,
                             [this](long r, const std::string& t) {
                               return CompareTexts(KeyOf(r).text, t) < 0;
                             });
  return static_cast<size_t>(it - order.begin());
}

}  // namespace qdb
