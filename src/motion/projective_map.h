// Projective mapping of points, shared by the motion records in double precision and in Q15.
#ifndef ZVT4_MOTION_PROJECTIVE_MAP_H_
#define ZVT4_MOTION_PROJECTIVE_MAP_H_

#include "base/integer.h"

inline constexpr double kQ15One = 32768.0;
inline constexpr double kQ15Unit = 1.0 / 32768.0;
// A determinant or denominator of a smaller magnitude counts as zero.
inline constexpr double kSingularLimit = 1e-16;

// Nearest integer, halves away from zero, saturating.
inline int32_t roundHalfAway(double value) {
  return truncToInt32(value >= 0.0 ? value + 0.5 : value - 0.5);
}

// (x, y) through the row-major 3x3 matrix h. The order of the sums is part of the results: the constant term is added
// to the sum of the other two. A zero denominator is not guarded.
template <typename Element>
inline void mapPoint(const Element* h, double x, double y, double* outX, double* outY) {
  const double numeratorX = h[2] + (h[0] * x + h[1] * y);
  const double numeratorY = h[5] + (h[3] * x + h[4] * y);
  const double denominator = h[8] + (h[6] * x + h[7] * y);
  *outX = numeratorX / denominator;
  *outY = numeratorY / denominator;
}

// The same for a point in Q15. Numerators and denominator are all 32768 times the real ones, hence the factor in front
// of the division.
template <typename Element>
inline void mapPointQ15(const Element* h, int32_t x, int32_t y, int32_t* outX, int32_t* outY) {
  const double numeratorX = h[0] * static_cast<double>(x) + h[1] * static_cast<double>(y) + h[2] * kQ15One;
  const double numeratorY = h[3] * static_cast<double>(x) + h[4] * static_cast<double>(y) + h[5] * kQ15One;
  const double denominator = h[6] * static_cast<double>(x) + h[7] * static_cast<double>(y) + h[8] * kQ15One;
  *outX = roundHalfAway(numeratorX * kQ15One / denominator);
  *outY = roundHalfAway(numeratorY * kQ15One / denominator);
}

// The adjugate of the 3x3 matrix h: its inverse times its determinant.
template <typename Element>
inline void adjugate(const Element* h, double* out) {
  const double m[9] = {static_cast<double>(h[0]), static_cast<double>(h[1]), static_cast<double>(h[2]),
                       static_cast<double>(h[3]), static_cast<double>(h[4]), static_cast<double>(h[5]),
                       static_cast<double>(h[6]), static_cast<double>(h[7]), static_cast<double>(h[8])};
  out[0] = m[4] * m[8] - m[5] * m[7];
  out[1] = m[2] * m[7] - m[1] * m[8];
  out[2] = m[1] * m[5] - m[2] * m[4];
  out[3] = m[5] * m[6] - m[3] * m[8];
  out[4] = m[0] * m[8] - m[2] * m[6];
  out[5] = m[2] * m[3] - m[0] * m[5];
  out[6] = m[3] * m[7] - m[4] * m[6];
  out[7] = m[1] * m[6] - m[0] * m[7];
  out[8] = m[0] * m[4] - m[1] * m[3];
}

#endif  // ZVT4_MOTION_PROJECTIVE_MAP_H_
