// RawDouble: the library's own elementary functions on hardware doubles. Everything above goes through these, so that
// results do not depend on the platform's math library and are the same bits on every machine.
//
// exp2, log2, cos and atan are polynomials by Horner's rule after an exact or repeated range reduction; all others are
// built from these four. Sums and products stand in a fixed order, and fused multiply-add must stay off.
//
// Errors are about 1e-16 relative for exp2, 1e-15 for log2, and absolute for cos and atan. Roots and powers go by way
// of logarithms: sqrt(x) = exp2(0.5 log2(x)) has the error of log2 times its magnitude and is seldom exact.
//
// Nothing reports a domain error: a NaN goes through, and sqrt, log, asin and acos of a number outside their domain
// are NaNs. tanh is a NaN from about x = 355 on, where its numerator and denominator are both infinite.
#ifndef ZVT4_BASE_RAW_DOUBLE_H_
#define ZVT4_BASE_RAW_DOUBLE_H_

#include "base/export.h"

extern "C" {
double RawDouble_ceil(double x) ZVT4_NAME(RawDouble_ceil);
double RawDouble_floor(double x) ZVT4_NAME(RawDouble_floor);
// Halves go away from zero. All three keep the sign of a result that is zero.
double RawDouble_round(double x) ZVT4_NAME(RawDouble_round);

// Infinity from 1024 on, 0 up to -1075, the smallest subnormal from there up to -1074. Exact for integers.
double RawDouble_exp2(double x) ZVT4_NAME(RawDouble_exp2);
// -infinity for zeros. Infinity and NaN come back; minus infinity and negative NaNs with the quiet bit set, a NaN.
double RawDouble_log2(double x) ZVT4_NAME(RawDouble_log2);
// x^y for x > 0.
double RawDouble_incomplete_pow(double x, double y) ZVT4_NAME(RawDouble_incomplete_pow);
double RawDouble_exp(double x) ZVT4_NAME(RawDouble_exp);
double RawDouble_log(double x) ZVT4_NAME(RawDouble_log);
double RawDouble_sqrt(double x) ZVT4_NAME(RawDouble_sqrt);
double RawDouble_cbrt(double x) ZVT4_NAME(RawDouble_cbrt);
// Infinity if one argument is infinite, be the other a NaN.
double RawDouble_hypot(double x, double y) ZVT4_NAME(RawDouble_hypot);
// Distance from |x| to the next double of larger magnitude: the value of the last mantissa bit. The smallest subnormal
// for zeros and subnormals, infinity for infinities, NaN for NaN.
double RawDouble_ulp(double x) ZVT4_NAME(RawDouble_ulp);

// Radians. Arguments are brought below pi by multiples of the double nearest to 2 pi, so that the error grows with
// |x|; results stay in range for any finite x. Infinity gives NaN.
double RawDouble_sin(double x) ZVT4_NAME(RawDouble_sin);
double RawDouble_cos(double x) ZVT4_NAME(RawDouble_cos);
double RawDouble_tan(double x) ZVT4_NAME(RawDouble_tan);
double RawDouble_asin(double x) ZVT4_NAME(RawDouble_asin);
// Of two zeros: 0 or, if x is -0.0, pi; with the sign of y. Of two infinities: as for two equal magnitudes.
double RawDouble_atan2(double y, double x) ZVT4_NAME(RawDouble_atan2);
double RawDouble_acos(double x) ZVT4_NAME(RawDouble_acos);
double RawDouble_atan(double x) ZVT4_NAME(RawDouble_atan);
double RawDouble_sinh(double x) ZVT4_NAME(RawDouble_sinh);
double RawDouble_cosh(double x) ZVT4_NAME(RawDouble_cosh);
double RawDouble_tanh(double x) ZVT4_NAME(RawDouble_tanh);
}

#endif  // ZVT4_BASE_RAW_DOUBLE_H_
