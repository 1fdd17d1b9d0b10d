// RawDouble: the library's own elementary functions on hardware doubles. Everything above goes through these, so that
// results do not depend on the platform's math library.
#ifndef ZVT4_BASE_RAW_DOUBLE_H_
#define ZVT4_BASE_RAW_DOUBLE_H_

#include "base/export.h"

extern "C" {
double RawDouble_ceil(double x) ZVT4_NAME(RawDouble_ceil);
double RawDouble_floor(double x) ZVT4_NAME(RawDouble_floor);
double RawDouble_round(double x) ZVT4_NAME(RawDouble_round);
double RawDouble_exp2(double x) ZVT4_NAME(RawDouble_exp2);
double RawDouble_log2(double x) ZVT4_NAME(RawDouble_log2);
double RawDouble_incomplete_pow(double x, double y) ZVT4_NAME(RawDouble_incomplete_pow);
double RawDouble_exp(double x) ZVT4_NAME(RawDouble_exp);
double RawDouble_log(double x) ZVT4_NAME(RawDouble_log);
double RawDouble_sqrt(double x) ZVT4_NAME(RawDouble_sqrt);
double RawDouble_cbrt(double x) ZVT4_NAME(RawDouble_cbrt);
double RawDouble_hypot(double x, double y) ZVT4_NAME(RawDouble_hypot);
double RawDouble_ulp(double x) ZVT4_NAME(RawDouble_ulp);
double RawDouble_sin(double x) ZVT4_NAME(RawDouble_sin);
double RawDouble_cos(double x) ZVT4_NAME(RawDouble_cos);
double RawDouble_tan(double x) ZVT4_NAME(RawDouble_tan);
double RawDouble_asin(double x) ZVT4_NAME(RawDouble_asin);
double RawDouble_atan2(double y, double x) ZVT4_NAME(RawDouble_atan2);
double RawDouble_acos(double x) ZVT4_NAME(RawDouble_acos);
double RawDouble_atan(double x) ZVT4_NAME(RawDouble_atan);
double RawDouble_sinh(double x) ZVT4_NAME(RawDouble_sinh);
double RawDouble_cosh(double x) ZVT4_NAME(RawDouble_cosh);
double RawDouble_tanh(double x) ZVT4_NAME(RawDouble_tanh);
}

#endif  // ZVT4_BASE_RAW_DOUBLE_H_
