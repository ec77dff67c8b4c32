// Flag texts ('0'/'1' per bit) and the level verdict shared by every level
// check.
#include <string.h>

#include "slave.h"

void bit_turnup(char* s, int n) {
  if (s != nullptr && n >= 0 && static_cast<size_t>(n) < strlen(s)) s[n] = '1';
}

void bit_turndn(char* s, int n) {
  if (s != nullptr && n >= 0 && static_cast<size_t>(n) < strlen(s)) s[n] = '0';
}

int bit_check(char* s, int n) {
  if (s == nullptr || n < 0 || static_cast<size_t>(n) >= strlen(s)) return -1;
  return s[n] != '0' ? 1 : 0;
}

// 2: at least twice the reserve is left; 1: at least the reserve; 0: less.
int slave_test_level(double left, double reserve) {
  if (left >= reserve + reserve) return 2;
  if (left >= reserve) return 1;
  return 0;
}
