// Double: a binary64 bit pattern carried as a 64-bit integer, for callers that must not touch floating-point registers.
//
// A thin layer over the hardware's double: sums, products and quotients are the IEEE results, which is more than the
// 32 bits that callers may count on. Subnormal operands and results count as zero, and every NaN comes out with a
// mantissa of 1. Roots, powers and the rest go through RawDouble. None of it has a caller in the pipeline.
#ifndef ZVT4_BASE_SOFT_DOUBLE_H_
#define ZVT4_BASE_SOFT_DOUBLE_H_

#include <cstdint>

#include "base/export.h"

using Double = uint64_t;

extern "C" {
Double Int32ToDouble(int32_t value) ZVT4_NAME(Int32ToDouble);
Double Uint32ToDouble(uint32_t value) ZVT4_NAME(Uint32ToDouble);
// 64-bit values beyond 53 bits lose their low bits.
Double Int64ToDouble(int64_t value) ZVT4_NAME(Int64ToDouble);
Double Uint64ToDouble(uint64_t value) ZVT4_NAME(Uint64ToDouble);
// Toward zero; values out of range saturate, NaN gives 0.
int32_t DoubleToInt32(Double value) ZVT4_NAME(DoubleToInt32);
uint32_t DoubleToUint32(Double value) ZVT4_NAME(DoubleToUint32);
int64_t DoubleToInt64(Double value) ZVT4_NAME(DoubleToInt64);
uint64_t DoubleToUint64(Double value) ZVT4_NAME(DoubleToUint64);
// Q15 fixed point from and to a Double.
Double F32ToDouble(int32_t value) ZVT4_NAME(F32ToDouble);
int32_t DoubleToF32(Double value) ZVT4_NAME(DoubleToF32);

Double Double_add(Double a, Double b) ZVT4_NAME(Double_add);
Double Double_sub(Double a, Double b) ZVT4_NAME(Double_sub);
Double Double_mul(Double a, Double b) ZVT4_NAME(Double_mul);
Double Double_div(Double a, Double b) ZVT4_NAME(Double_div);
int32_t Double_isLessThan(Double a, Double b) ZVT4_NAME(Double_isLessThan);
Double Double_mul2(Double a) ZVT4_NAME(Double_mul2);
// The bit pattern of minus infinity for a negative value.
Double Double_sqrt(Double a) ZVT4_NAME(Double_sqrt);
Double Double_cos(Double a) ZVT4_NAME(Double_cos);
Double Double_sin(Double a) ZVT4_NAME(Double_sin);
Double Double_exp(Double a) ZVT4_NAME(Double_exp);
Double Double_log(Double a) ZVT4_NAME(Double_log);
// exp(y log(x)); 0 for x = 0.
Double Double_pow(Double x, Double y) ZVT4_NAME(Double_pow);
}

#endif  // ZVT4_BASE_SOFT_DOUBLE_H_
