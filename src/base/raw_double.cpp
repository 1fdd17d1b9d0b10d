#include "base/raw_double.h"

#include <cstddef>
#include <cstdint>
#include <limits>

#include "base/bit_cast.h"

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kTwoPi = 6.283185307179586;
constexpr double kHalfPi = 1.5707963267948966;
constexpr double kQuarterPi = 0.7853981633974483;
constexpr double kLog2E = 1.4426950408889634;
constexpr double kTwoLog2E = 2.8853900817779268;
constexpr double kLn2 = 0.6931471805599453;
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kDenormMin = std::numeric_limits<double>::denorm_min();

constexpr uint64_t kSignBit = 0x8000000000000000u;
constexpr uint64_t kExponentMask = 0x7ff0000000000000u;
constexpr uint64_t kMantissaMask = 0x000fffffffffffffu;
constexpr uint64_t kQuietBit = 0x0008000000000000u;
constexpr uint64_t kOneBits = 0x3ff0000000000000u;
constexpr uint64_t kSqrt2Bits = 0x3ff6a09e667f3bcdu;
constexpr uint64_t kQuietNan = 0x7ff8000000000000u;
constexpr int kMantissaWidth = 52;
constexpr int kExponentBias = 1023;

// Coefficients stand highest power first. Fitted by the authors of the library: the digits are part of its results.
constexpr double kExp2Poly[] = {
    1.0006697217452461e-8,  9.433920362359275e-8,  1.3318412101751585e-6, 1.5243996624121435e-5,
    0.00015404004101871477, 0.0013333541706066724, 0.00961812946262613,   0.05550410862015973,
    0.24022650696198009,    0.6931471805598729,    1.0000000000000002,
};
constexpr double kLog2Poly[] = {
    0.2136777781712274,  0.22091114554609512, 0.2623344309522164, 0.3205985333399848,
    0.41219858585711044, 0.5770780163454408,  0.9617966939259899, 2.8853900817779268,
};
constexpr double kCosPoly[] = {
    -1.5119893746599977e-16,
    4.776872981008344e-14,
    -1.1470670199182995e-11,
    2.087675566742367e-9,
    -2.7557319209666754e-7,
    2.4801587301492746e-5,
    -0.001388888888888853,
    0.04166666666666666,
    -0.5,
    1.0,
};
constexpr double kAtanPoly[] = {
    -1.4296106976230644e-5, 0.00016434320345232596, -0.0008972802727697887, 0.0031126159637883295,
    -0.007764818061546401,  0.015008370685651312,   -0.023774517687559032,  0.03243006170557842,
    -0.039914685169369954,  0.04625375758514148,    -0.05221133894328429,   0.05872109106447547,
    -0.0666472335167253,    0.07692027114124143,    -0.09090879156425137,   0.11111108844676319,
    -0.14285714170762942,   0.1999999999642143,     -0.3333333333327423,    0.9999999999999961,
};

template <size_t N>
double horner(const double (&coefficients)[N], double x) {
  double sum = coefficients[0];
  for (size_t i = 1; i < N; ++i) sum = sum * x + coefficients[i];
  return sum;
}

uint64_t bitsOf(double x) {
  return bitCast<uint64_t>(x);
}
double fromBits(uint64_t bits) {
  return bitCast<double>(bits);
}
double magnitude(double x) {
  return fromBits(bitsOf(x) & ~kSignBit);
}
bool hasSign(double x) {
  return (bitsOf(x) & kSignBit) != 0;
}
double withSignOf(double magnitudeSource, double signSource) {
  return fromBits((bitsOf(magnitudeSource) & ~kSignBit) | (bitsOf(signSource) & kSignBit));
}
bool isNan(double x) {
  return x != x;
}

// From 2^52 on every double is an integer.
bool mayHaveFraction(double x) {
  return magnitude(x) < 4503599627370496.0;
}
double truncated(double x) {
  return static_cast<double>(static_cast<int64_t>(x));
}

// 2^n for -1074 <= n <= 1023.
double powerOfTwo(int n) {
  if (n < 1 - kExponentBias) return fromBits(uint64_t{1} << (n + kExponentBias - 1 + kMantissaWidth));
  return fromBits(static_cast<uint64_t>(n + kExponentBias) << kMantissaWidth);
}

double rootByLog2(double x) {
  return RawDouble_exp2(0.5 * RawDouble_log2(x));
}

}  // namespace

double RawDouble_ceil(double x) {
  if (!mayHaveFraction(x)) return x;
  const double whole = truncated(x);
  return withSignOf(whole < x ? whole + 1.0 : whole, x);
}

double RawDouble_floor(double x) {
  if (!mayHaveFraction(x)) return x;
  const double whole = truncated(x);
  return withSignOf(whole > x ? whole - 1.0 : whole, x);
}

double RawDouble_round(double x) {
  if (!mayHaveFraction(x)) return x;
  const double whole = truncated(x);
  return withSignOf(magnitude(x - whole) >= 0.5 ? magnitude(whole) + 1.0 : whole, x);
}

double RawDouble_exp2(double x) {
  if (isNan(x)) return x;
  if (x >= 1024.0) return kInfinity;
  if (x <= -1075.0) return 0.0;
  if (x <= -1074.0) return kDenormMin;
  const double whole = RawDouble_floor(x);
  const double fraction = x - whole;
  const double power = powerOfTwo(static_cast<int>(whole));
  if (fraction == 0.0) return power;
  return power * horner(kExp2Poly, fraction);
}

double RawDouble_log2(double x) {
  uint64_t bits = bitsOf(x);
  if ((bits & kExponentMask) == kExponentMask) return fromBits(hasSign(x) ? bits | kQuietBit : bits);
  if (x == 0.0) return -kInfinity;
  if (x < 0.0) return fromBits(kQuietNan);

  int exponent = -kExponentBias;
  if ((bits & kExponentMask) == 0) {
    bits = bitsOf(x * 4503599627370496.0);
    exponent -= kMantissaWidth;
  }
  exponent += static_cast<int>(bits >> kMantissaWidth);
  bits = (bits & kMantissaMask) | kOneBits;
  if (bits >= kSqrt2Bits) {
    bits -= uint64_t{1} << kMantissaWidth;
    exponent += 1;
  }
  const double m = fromBits(bits);
  const double t = (m - 1.0) / (m + 1.0);
  return static_cast<double>(exponent) + t * horner(kLog2Poly, t * t);
}

double RawDouble_incomplete_pow(double x, double y) {
  return RawDouble_exp2(RawDouble_log2(x) * y);
}

double RawDouble_exp(double x) {
  return RawDouble_exp2(x * kLog2E);
}

double RawDouble_log(double x) {
  return RawDouble_log2(x) * kLn2;
}

double RawDouble_sqrt(double x) {
  return rootByLog2(x);
}

double RawDouble_cbrt(double x) {
  return withSignOf(RawDouble_exp2(RawDouble_log2(magnitude(x)) / 3.0), x);
}

double RawDouble_hypot(double x, double y) {
  const double a = magnitude(x);
  const double b = magnitude(y);
  if (a == kInfinity || b == kInfinity) return kInfinity;
  if (a == 0.0 && b == 0.0) return 0.0;
  const double larger = a < b ? b : a;
  const double smaller = a < b ? a : b;
  const double q = smaller / larger;
  return larger * rootByLog2(q * q + 1.0);
}

double RawDouble_ulp(double x) {
  const uint64_t bits = bitsOf(magnitude(x));
  if (bits >= kExponentMask) return fromBits(bits);
  const int exponent = static_cast<int>(bits >> kMantissaWidth);
  if (exponent == 0) return kDenormMin;
  return powerOfTwo(exponent - kExponentBias - kMantissaWidth);
}

double RawDouble_sin(double x) {
  return RawDouble_cos(x - kHalfPi);
}

double RawDouble_cos(double x) {
  double t = magnitude(x);
  if (bitsOf(t) >= kExponentMask) return fromBits(kQuietNan);
  // Ends: k 2pi is positive and below 2t, so every pass shortens t; one of 1e300 by about 50 bits.
  while (t > kPi) {
    const double k = RawDouble_ceil((t - kPi) / kTwoPi);
    t = magnitude(t - k * kTwoPi);
  }
  const bool folded = t > kHalfPi;
  if (folded) t = kPi - t;
  const double cosine = horner(kCosPoly, t * t);
  return folded ? -cosine : cosine;
}

double RawDouble_tan(double x) {
  return RawDouble_cos(x - kHalfPi) / RawDouble_cos(x);
}

double RawDouble_asin(double x) {
  return 2.0 * RawDouble_atan2(x, 1.0 + rootByLog2(1.0 - x * x));
}

double RawDouble_atan2(double y, double x) {
  const double a = magnitude(x);
  const double b = magnitude(y);
  double t;
  if (a == 0.0 && b == 0.0) {
    t = hasSign(x) ? kPi : 0.0;
    return hasSign(y) ? -t : t;
  }
  if (a == b) {
    t = kQuarterPi;
  } else if (a < b) {
    t = kHalfPi - RawDouble_atan(a / b);
  } else {
    t = RawDouble_atan(b / a);
  }
  if (x < 0.0) t = kPi - t;
  return hasSign(y) ? -t : t;
}

double RawDouble_acos(double x) {
  return kHalfPi - 2.0 * RawDouble_atan2(x, 1.0 + rootByLog2(1.0 - x * x));
}

double RawDouble_atan(double x) {
  const bool inverted = magnitude(x) > 1.0;
  const double t = inverted ? -1.0 / x : x;
  const double angle = t * horner(kAtanPoly, t * t);
  return inverted ? angle + withSignOf(kHalfPi, x) : angle;
}

double RawDouble_sinh(double x) {
  const double v = x * kLog2E;
  return RawDouble_exp2(v - 1.0) - RawDouble_exp2(-1.0 - v);
}

double RawDouble_cosh(double x) {
  const double v = x * kLog2E;
  return RawDouble_exp2(v - 1.0) + RawDouble_exp2(-1.0 - v);
}

double RawDouble_tanh(double x) {
  const double e = RawDouble_exp2(x * kTwoLog2E);
  return (e - 1.0) / (e + 1.0);
}
