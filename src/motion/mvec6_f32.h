// Mvec6F32: an affine motion in Q15, rows (a, b, c) and (d, e, f). (x, y) maps to (a x + b y + c, d x + e y + f); c and
// f are translations in Q15 pixels.
#ifndef ZVT4_MOTION_MVEC6_F32_H_
#define ZVT4_MOTION_MVEC6_F32_H_

#include <cstdint>

struct Mvec6F32 {
  int32_t m[6];  // row by row
};

#endif  // ZVT4_MOTION_MVEC6_F32_H_
