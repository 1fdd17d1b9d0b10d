// How sharp a frame is: energy of the gradient of its half-size luma, above that of its noise.
//
// Square windows each give the mean of dx^2 + dy^2 (differences of neighbours). Among those of one brightness a low
// quantile is what noise gives (fine/noise_curve.h), so that neither noise nor the brightness of what a frame shows
// makes it look sharp. The score is the mean of what is above.
#ifndef ZVT4_FINE_SHARPNESS_H_
#define ZVT4_FINE_SHARPNESS_H_

#include "fine/pyramid.h"

namespace fine {

// Part of a frame, in full-size pixels, right and bottom excluded.
struct Part {
  int32_t left;
  int32_t top;
  int32_t right;
  int32_t bottom;
};

// In 1/256 squared levels, at most 2^31 - 1.
struct Sharpness {
  int32_t score;
  int32_t noise;  // what was taken off
};

// Zeros when the part has no whole window. ZELVAN_ERROR_NOMEM.
Status measureSharpness(Sharpness* sharpness, Env* env, const Pyramid& pyramid, const Part& part);

// Sharpness of a frame by that of the base, both of what they share: near 1 where noise hides a difference.
double sharpnessRatio(const Sharpness& frame, const Sharpness& base);

}  // namespace fine

#endif  // ZVT4_FINE_SHARPNESS_H_
