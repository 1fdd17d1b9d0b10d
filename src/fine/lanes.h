// 16-bit fixed point as the vector units have it, for the row functions of the fine mode.
#ifndef ZVT4_FINE_LANES_H_
#define ZVT4_FINE_LANES_H_

#include "base/cpu_level.h"

namespace fine {

// (a b + 2^14) >> 15, in the form that vectorisers know as one instruction.
ALWAYS_INLINE int16_t mulRound(int16_t a, int16_t b) {
  return static_cast<int16_t>((((int32_t{a} * b) >> 14) + 1) >> 1);
}
// Both wrap.
ALWAYS_INLINE int16_t add(int16_t a, int16_t b) {
  return static_cast<int16_t>(a + b);
}
ALWAYS_INLINE int16_t sub(int16_t a, int16_t b) {
  return static_cast<int16_t>(a - b);
}

}  // namespace fine

#endif  // ZVT4_FINE_LANES_H_
