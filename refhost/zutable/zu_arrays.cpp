// The growable arrays. The three classes share one implementation; the
// element types are plain values, so realloc may move them.
#include <limits.h>
#include <stdlib.h>

#include "host/zutable.h"

namespace {

constexpr int kFirstCapacity = 8;

// Doubles the capacity (bounded by INT_MAX, the largest size an int can
// report) so that n appends cost O(n) copies in all.
template <typename T>
bool Grow(T** items, int* capacity) {
  if (*capacity == INT_MAX) return false;
  int wanted = *capacity == 0 ? kFirstCapacity
               : *capacity > INT_MAX / 2 ? INT_MAX
                                         : *capacity * 2;
  size_t bytes = static_cast<size_t>(wanted) * sizeof(T);
  if (bytes / sizeof(T) != static_cast<size_t>(wanted)) return false;
  void* grown = realloc(*items, bytes);
  if (grown == nullptr) return false;
  *items = static_cast<T*>(grown);
  *capacity = wanted;
  return true;
}

template <typename T>
int Append(T** items, int* size, int* capacity, T v) {
  if (*size == *capacity && !Grow(items, capacity)) return -1;
  (*items)[(*size)++] = v;
  return *size;
}

template <typename T>
void Clear(T** items, int* size, int* capacity) {
  free(*items);
  *items = nullptr;
  *size = 0;
  *capacity = 0;
}

// An index outside the array lands on the object's scratch element, zeroed
// on every such access so that a stray write is never read back.
template <typename T>
T& At(T* items, int size, T* scratch, int i) {
  if (i < 0 || i >= size) {
    *scratch = T();
    return *scratch;
  }
  return items[i];
}

// The const form cannot touch the scratch element; it answers a shared zero.
template <typename T>
const T& AtConst(const T* items, int size, int i) {
  static const T zero = T();
  if (i < 0 || i >= size) return zero;
  return items[i];
}

}  // namespace

Zu_IntArray::Zu_IntArray() : items_(nullptr), size_(0), capacity_(0), scratch_(0) {}
Zu_IntArray::~Zu_IntArray() { free(items_); }
int Zu_IntArray::append(int v) { return Append(&items_, &size_, &capacity_, v); }
void Zu_IntArray::clear() { Clear(&items_, &size_, &capacity_); }
int Zu_IntArray::size() const { return size_; }
int& Zu_IntArray::operator[](int i) { return At(items_, size_, &scratch_, i); }
const int& Zu_IntArray::operator[](int i) const { return AtConst(items_, size_, i); }
int* Zu_IntArray::data() { return size_ > 0 ? items_ : nullptr; }

Zu_LongArray::Zu_LongArray() : items_(nullptr), size_(0), capacity_(0), scratch_(0) {}
Zu_LongArray::~Zu_LongArray() { free(items_); }
int Zu_LongArray::append(long v) { return Append(&items_, &size_, &capacity_, v); }
void Zu_LongArray::clear() { Clear(&items_, &size_, &capacity_); }
int Zu_LongArray::size() const { return size_; }
long& Zu_LongArray::operator[](int i) { return At(items_, size_, &scratch_, i); }
const long& Zu_LongArray::operator[](int i) const { return AtConst(items_, size_, i); }
long* Zu_LongArray::data() { return size_ > 0 ? items_ : nullptr; }

Zu_DoubleArray::Zu_DoubleArray()
    : items_(nullptr), size_(0), capacity_(0), scratch_(0.0) {}
Zu_DoubleArray::~Zu_DoubleArray() { free(items_); }
int Zu_DoubleArray::append(double v) { return Append(&items_, &size_, &capacity_, v); }
void Zu_DoubleArray::clear() { Clear(&items_, &size_, &capacity_); }
int Zu_DoubleArray::size() const { return size_; }
double& Zu_DoubleArray::operator[](int i) { return At(items_, size_, &scratch_, i); }
const double& Zu_DoubleArray::operator[](int i) const {
  return AtConst(items_, size_, i);
}
double* Zu_DoubleArray::data() { return size_ > 0 ? items_ : nullptr; }
