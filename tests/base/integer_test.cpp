#include "base/integer.h"

#include <gtest/gtest.h>

namespace {

TEST(Integer, IsqrtIsTheFloorOfTheRoot) {
  const auto check = [](int64_t n) {
    const int64_t root = isqrt(static_cast<int32_t>(n));
    ASSERT_TRUE(root >= 0 && root * root <= n && (root + 1) * (root + 1) > n) << n << " gives " << root;
  };
  for (int64_t root = 1; root <= 46340; ++root) {
    for (int64_t n = root * root - 1; n <= root * root + 1; ++n) check(n);
  }
  check(INT32_MAX);
  for (int32_t n : {-1, -2, -100, INT32_MIN}) EXPECT_LE(isqrt(n), 0);  // ends at least
}

}  // namespace
