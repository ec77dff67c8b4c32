// The growable arrays Zu_IntArray, Zu_LongArray and Zu_DoubleArray: one set
// of typed tests runs on all three.
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "host/zutable.h"

namespace {

template <typename Array>
struct ElementOf;
template <>
struct ElementOf<Zu_IntArray> { using type = int; };
template <>
struct ElementOf<Zu_LongArray> { using type = long; };
template <>
struct ElementOf<Zu_DoubleArray> { using type = double; };

template <typename Array>
class ZuArray : public ::testing::Test {
 protected:
  using T = typename ElementOf<Array>::type;
  // A value per position that differs from its neighbours and from 0.
  static T ValueAt(int i) { return static_cast<T>(3 * i + 7); }
};

using ArrayTypes = ::testing::Types<Zu_IntArray, Zu_LongArray, Zu_DoubleArray>;
TYPED_TEST_SUITE(ZuArray, ArrayTypes);

}  // namespace

TYPED_TEST(ZuArray, StartsEmpty) {
  TypeParam a;
  EXPECT_EQ(0, a.size());
  EXPECT_EQ(nullptr, a.data());
}

TYPED_TEST(ZuArray, AppendAnswersTheNewSize) {
  TypeParam a;
  EXPECT_EQ(1, a.append(this->ValueAt(0)));
  EXPECT_EQ(2, a.append(this->ValueAt(1)));
  EXPECT_EQ(3, a.append(this->ValueAt(2)));
  EXPECT_EQ(3, a.size());
  EXPECT_EQ(this->ValueAt(0), a[0]);
  EXPECT_EQ(this->ValueAt(1), a[1]);
  EXPECT_EQ(this->ValueAt(2), a[2]);
}

TYPED_TEST(ZuArray, KeepsEveryElementWhileGrowing) {
  TypeParam a;
  const int n = 100000;
  for (int i = 0; i < n; ++i) ASSERT_EQ(i + 1, a.append(this->ValueAt(i)));
  ASSERT_EQ(n, a.size());
  for (int i = 0; i < n; ++i) ASSERT_EQ(this->ValueAt(i), a[i]) << i;
}

TYPED_TEST(ZuArray, DataPointsAtTheElements) {
  TypeParam a;
  a.append(this->ValueAt(0));
  a.append(this->ValueAt(1));
  ASSERT_NE(nullptr, a.data());
  EXPECT_EQ(this->ValueAt(0), a.data()[0]);
  EXPECT_EQ(this->ValueAt(1), a.data()[1]);
  EXPECT_EQ(&a[1], a.data() + 1);
}

TYPED_TEST(ZuArray, IndexWritesAnElement) {
  TypeParam a;
  a.append(this->ValueAt(0));
  a.append(this->ValueAt(1));
  a[1] = this->ValueAt(9);
  EXPECT_EQ(this->ValueAt(0), a[0]);
  EXPECT_EQ(this->ValueAt(9), a[1]);
}

TYPED_TEST(ZuArray, ClearEmptiesAndAllowsReuse) {
  TypeParam a;
  for (int i = 0; i < 20; ++i) a.append(this->ValueAt(i));
  a.clear();
  EXPECT_EQ(0, a.size());
  EXPECT_EQ(nullptr, a.data());
  EXPECT_EQ(0, a[0]);
  EXPECT_EQ(1, a.append(this->ValueAt(5)));
  EXPECT_EQ(this->ValueAt(5), a[0]);
}

TYPED_TEST(ZuArray, ClearOnEmptyArrayIsHarmless) {
  TypeParam a;
  a.clear();
  a.clear();
  EXPECT_EQ(0, a.size());
  EXPECT_EQ(1, a.append(this->ValueAt(0)));
}

TYPED_TEST(ZuArray, OutOfRangeIndexReadsZero) {
  TypeParam a;
  EXPECT_EQ(0, a[0]);
  a.append(this->ValueAt(0));
  a.append(this->ValueAt(1));
  EXPECT_EQ(0, a[-1]);
  EXPECT_EQ(0, a[2]);
  EXPECT_EQ(0, a[INT_MIN]);
  EXPECT_EQ(0, a[INT_MAX]);
}

TYPED_TEST(ZuArray, StrayWriteIsNeverReadBack) {
  TypeParam a;
  a.append(this->ValueAt(0));
  a[5] = this->ValueAt(8);
  EXPECT_EQ(0, a[5]);
  a[-3] = this->ValueAt(8);
  EXPECT_EQ(0, a[7]);
  EXPECT_EQ(1, a.size());
  EXPECT_EQ(this->ValueAt(0), a[0]);
}

TYPED_TEST(ZuArray, StrayWriteLeavesAnotherArrayAlone) {
  TypeParam a;
  TypeParam b;
  a[3] = this->ValueAt(4);
  EXPECT_EQ(0, b[3]);
}

TYPED_TEST(ZuArray, ConstIndexInAndOutOfRange) {
  TypeParam a;
  a.append(this->ValueAt(0));
  a[9] = this->ValueAt(3);  // a stray write first
  const TypeParam& c = a;
  EXPECT_EQ(this->ValueAt(0), c[0]);
  EXPECT_EQ(0, c[1]);
  EXPECT_EQ(0, c[-1]);
}

#ifndef __SANITIZE_ADDRESS__
// With the address space capped a little above what the process uses, the
// array must answer -1 once memory runs out, keep what it holds and stay
// usable. Runs in a child process so the cap stays there.
TYPED_TEST(ZuArray, AppendAnswersMinusOneWhenMemoryRunsOut) {
  auto run = [this]() {
    long pages = 0;
    FILE* statm = fopen("/proc/self/statm", "r");
    if (statm == nullptr || fscanf(statm, "%ld", &pages) != 1) _exit(2);
    fclose(statm);
    struct rlimit limit;
    limit.rlim_cur = limit.rlim_max =
        static_cast<rlim_t>(pages) * sysconf(_SC_PAGESIZE) + (64L << 20);
    if (setrlimit(RLIMIT_AS, &limit) != 0) _exit(3);

    TypeParam a;
    int last = 0;
    for (int i = 0; i < INT_MAX; ++i) {
      int n = a.append(this->ValueAt(i % 1000));
      if (n == -1) break;
      if (n != i + 1) _exit(4);
      last = n;
    }
    if (last == 0 || a.size() != last) _exit(5);
    if (a.append(this->ValueAt(0)) != -1) _exit(6);
    if (a[last - 1] != this->ValueAt((last - 1) % 1000)) _exit(7);
    if (a[last] != 0) _exit(8);
    a.clear();
    if (a.append(this->ValueAt(1)) != 1 || a[0] != this->ValueAt(1)) _exit(9);
    _exit(0);
  };
  EXPECT_EXIT(run(), ::testing::ExitedWithCode(0), "");
}
#endif
