#include "base/integer.h"

int32_t isqrt(int32_t n) {
  if (n == 0) return 0;
  int32_t root = 1;
  for (int32_t rest = n; root < rest; rest >>= 1) root <<= 1;
  // From above, Newton's steps fall until the floor is reached.
  for (int32_t step = (n / root + root) / 2; step < root; step = (n / root + root) / 2) {
    root = step;
    if (root == 0) break;  // only a negative n gets here
  }
  return root;
}
