// How sharp a frame is: energy of the gradient of its half-size luma, above that of its noise.
//
// Windows of 16x16 pixels each give the mean of dx^2 + dy^2 (differences of neighbours). A low quantile of them is what
// noise gives; the score is the mean of what is above it, so that noise makes no frame look sharp.
#ifndef ZVT4_FINE_SHARPNESS_H_
#define ZVT4_FINE_SHARPNESS_H_

#include "fine/pyramid.h"

namespace fine {

// In 1/256 squared levels, at most 2^31 - 1. 0 when the arena refuses scratch.
int32_t sharpness(Env* env, const Pyramid& pyramid);

}  // namespace fine

#endif  // ZVT4_FINE_SHARPNESS_H_
