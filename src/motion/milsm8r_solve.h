// The iteration of MILsm8R.
#ifndef ZVT4_MOTION_MILSM8R_SOLVE_H_
#define ZVT4_MOTION_MILSM8R_SOLVE_H_

#include "motion/milsm8r.h"

// Place of the images 0 < i < j in the pair sums.
constexpr int32_t milsm8rPairIndex(int32_t imageCount, int32_t i, int32_t j) {
  return (i - 1) * (imageCount - 1) + (j - 1) - i * (i + 1) / 2;
}

// MILsm8R_solve on a record that has its arrays.
Status milsm8rSolve(MILsm8R* self);

#endif  // ZVT4_MOTION_MILSM8R_SOLVE_H_
