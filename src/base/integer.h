// Small integer functions that kernels share.
#ifndef ZVT4_BASE_INTEGER_H_
#define ZVT4_BASE_INTEGER_H_

#include <cstdint>
#include <limits>

#include "base/export.h"

extern "C" {
// floor(sqrt(n)) for n >= 0, by integer Newton steps. The result means nothing for n < 0.
int32_t isqrt(int32_t n) ZVT4_NAME(isqrt);
}

constexpr int32_t clampInt(int32_t value, int32_t low, int32_t high) {
  return value < low ? low : value > high ? high : value;
}
constexpr uint8_t clampByte(int32_t value) {
  return static_cast<uint8_t>(clampInt(value, 0, 255));
}

// Wrapping 32-bit arithmetic that is meant.
constexpr int32_t wrapAdd(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
constexpr int32_t wrapSub(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}
constexpr int32_t wrapMul(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
constexpr int32_t wrapShl(int32_t a, int32_t n) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) << n);
}

// Conversion of a double or float to an integer toward zero; values out of range saturate and NaN gives 0, as the
// hardware conversion of the ARM architecture does.
template <typename Real>
constexpr int32_t truncToInt32(Real value) {
  if (!(value > static_cast<Real>(-2147483648.0))) return value == value ? std::numeric_limits<int32_t>::min() : 0;
  if (value >= static_cast<Real>(2147483648.0)) return std::numeric_limits<int32_t>::max();
  return static_cast<int32_t>(value);
}
template <typename Real>
constexpr uint32_t truncToUint32(Real value) {
  if (!(value > static_cast<Real>(0))) return 0;
  if (value >= static_cast<Real>(4294967296.0)) return std::numeric_limits<uint32_t>::max();
  return static_cast<uint32_t>(value);
}

#endif  // ZVT4_BASE_INTEGER_H_
