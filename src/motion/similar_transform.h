// A motion seen from another coordinate frame.
//
// Two frames are related by a scale s and an offset: S = [s 0 left; 0 s top; 0 0 1] takes a point of the inner frame to
// the outer one. similarTransform gives S (src S^-1), a motion of the inner frame in outer coordinates, or with inverse
// S^-1 (src S), the way back; either is then normalised. dst may be src. The angle places of dst have no meaning
// afterwards. A scale of 0 is not guarded.
#ifndef ZVT4_MOTION_SIMILAR_TRANSFORM_H_
#define ZVT4_MOTION_SIMILAR_TRANSFORM_H_

#include "motion/mvec8_real.h"

inline Status similarTransform(Mvec8Real* dst, const Mvec8Real* src, double left, double top, double scale,
                               bool inverse) {
  const Mvec8Real outward = {{scale, 0, left, 0, scale, top, 0, 0, 1}, {}};
  const Mvec8Real inward = {{1 / scale, 0, -left / scale, 0, 1 / scale, -top / scale, 0, 0, 1}, {}};
  const Mvec8Real& first = inverse ? outward : inward;
  const Mvec8Real& last = inverse ? inward : outward;
  Mvec8Real product = {};
  Status status = Mvec8Real_mult(&product, src, &first);
  status |= Mvec8Real_mult(dst, &last, &product);
  return status | Mvec8Real_normalize(dst, dst);
}

#endif  // ZVT4_MOTION_SIMILAR_TRANSFORM_H_
