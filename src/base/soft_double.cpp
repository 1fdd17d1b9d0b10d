#include "base/soft_double.h"

#include <limits>

#include "base/bit_cast.h"
#include "base/integer.h"
#include "base/raw_double.h"

namespace {

constexpr Double kSign = 0x8000000000000000u;
constexpr Double kExponent = 0x7FF0000000000000u;
constexpr Double kNan = kExponent | 1;
constexpr Double kMinusInfinity = kSign | kExponent;

double open(Double bits) {
  return bitCast<double>((bits & kExponent) == 0 ? bits & kSign : bits);
}

Double close(double value) {
  const Double bits = bitCast<Double>(value);
  if ((bits & kExponent) == 0) return bits & kSign;
  return value == value ? bits : kNan;
}

template <typename Int>
Int toInteger(Double bits) {
  const double value = open(bits);
  // The first value beyond the range is a power of two, which a double holds.
  const double beyond = static_cast<double>(std::numeric_limits<Int>::max() / 2 + 1) * 2.0;
  if (value != value) return 0;
  if (value >= beyond) return std::numeric_limits<Int>::max();
  if (value <= static_cast<double>(std::numeric_limits<Int>::min())) return std::numeric_limits<Int>::min();
  return static_cast<Int>(value);
}

}  // namespace

Double Int32ToDouble(int32_t value) {
  return close(value);
}
Double Uint32ToDouble(uint32_t value) {
  return close(value);
}
Double Int64ToDouble(int64_t value) {
  return close(static_cast<double>(value));
}
Double Uint64ToDouble(uint64_t value) {
  return close(static_cast<double>(value));
}
int32_t DoubleToInt32(Double value) {
  return toInteger<int32_t>(value);
}
uint32_t DoubleToUint32(Double value) {
  return toInteger<uint32_t>(value);
}
int64_t DoubleToInt64(Double value) {
  return toInteger<int64_t>(value);
}
uint64_t DoubleToUint64(Double value) {
  return toInteger<uint64_t>(value);
}
Double F32ToDouble(int32_t value) {
  return close(value / 32768.0);
}
int32_t DoubleToF32(Double value) {
  return truncToInt32(open(value) * 32768.0);
}

Double Double_add(Double a, Double b) {
  return close(open(a) + open(b));
}
Double Double_sub(Double a, Double b) {
  return close(open(a) - open(b));
}
Double Double_mul(Double a, Double b) {
  return close(open(a) * open(b));
}
Double Double_div(Double a, Double b) {
  return close(open(a) / open(b));
}
int32_t Double_isLessThan(Double a, Double b) {
  return open(a) < open(b);
}
Double Double_mul2(Double a) {
  return close(open(a) * 2.0);
}

Double Double_sqrt(Double a) {
  const double value = open(a);
  if (value < 0.0) return kMinusInfinity;
  if (value == 0.0 || !(value < std::numeric_limits<double>::infinity())) return close(value);
  const double root = RawDouble_sqrt(value);
  return close(0.5 * (root + value / root));  // the last bits of the root by logarithms
}

Double Double_cos(Double a) {
  return close(RawDouble_cos(open(a)));
}
Double Double_sin(Double a) {
  return close(RawDouble_sin(open(a)));
}
Double Double_exp(Double a) {
  return close(RawDouble_exp(open(a)));
}
Double Double_log(Double a) {
  return close(RawDouble_log(open(a)));
}
Double Double_pow(Double x, Double y) {
  return open(x) == 0.0 ? 0 : close(RawDouble_exp(open(y) * RawDouble_log(open(x))));
}
