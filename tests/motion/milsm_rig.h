// A front with its arena, and a measure between motions.
#ifndef ZVT4_TESTS_MOTION_MILSM_RIG_H_
#define ZVT4_TESTS_MOTION_MILSM_RIG_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "motion/milsm.h"
#include "support/test_arena.h"

inline constexpr Mvec8Real kIdentity = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {}};
inline constexpr int32_t kAllTypes[] = {MILSM_3R, MILSM_4, MILSM_8, MILSM_8ST, MILSM_8R, MILSM_8R_FIXED_POINT};

struct Solver {
  explicit Solver(int32_t type = MILSM_8ST, int32_t imageCount = 2) {
    construct_MILsm(&lsm, arena.env());
    EXPECT_EQ(MILsm_init(&lsm, type, imageCount), ZELVAN_OK);
  }
  ~Solver() { EXPECT_EQ(destruct_MILsm(&lsm), ZELVAN_OK); }
  int32_t failure() {
    int32_t code = -1;
    EXPECT_EQ(MILsm_getFailureCode(&lsm, &code), ZELVAN_OK);
    return code;
  }
  int32_t solve() {
    EXPECT_EQ(MILsm_solve(&lsm), ZELVAN_OK);
    return failure();
  }
  Mvec8Real output(int32_t image = 1) {
    Mvec8Real out;
    EXPECT_EQ(MILsm_outputMvecReal(&lsm, &out, image), ZELVAN_OK);
    return out;
  }
  TestArena arena;
  MILsm lsm;
};

inline double largestDistance(const Mvec8Real& a, const Mvec8Real& b) {
  double largest = 0;
  for (int i = 0; i < 4; ++i) {
    double ax, ay, bx, by;
    Mvec8Real_trans2DReal(&a, &ax, &ay, 160.0 * (i & 1), 120.0 * (i >> 1));
    Mvec8Real_trans2DReal(&b, &bx, &by, 160.0 * (i & 1), 120.0 * (i >> 1));
    largest = std::max(largest, std::hypot(ax - bx, ay - by));
  }
  return largest;
}

#endif  // ZVT4_TESTS_MOTION_MILSM_RIG_H_
