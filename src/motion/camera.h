// The pinhole camera that links a rotation with a motion: H = K R K^-1 up to scale, K = [f 0 cx; 0 f cy; 0 0 1].
#ifndef ZVT4_MOTION_CAMERA_H_
#define ZVT4_MOTION_CAMERA_H_

#include "base/integer.h"
#include "base/raw_double.h"

inline constexpr double kPi = 3.141592653589793;
inline constexpr double kHalfPi = 1.5707963267948966;

struct Camera {
  double f;   // focal length in pixels
  double cx;  // principal point
  double cy;
};

// fovDegrees is the angle of view along the diagonal of the width x height picture. The squared diagonal is a 32-bit
// integer and wraps as one.
inline Camera makeCamera(int32_t width, int32_t height, double fovDegrees) {
  const int32_t squaredDiagonal = wrapAdd(wrapMul(width, width), wrapMul(height, height));
  const double diagonal = RawDouble_sqrt(static_cast<double>(squaredDiagonal));
  return {0.5 * diagonal / RawDouble_tan(fovDegrees * kPi / 180.0 * 0.5), width * 0.5, height * 0.5};
}

// h = f K r K^-1, nine entries each.
inline void motionFromRotation(const Camera& camera, const double* r, double* h) {
  const auto [f, cx, cy] = camera;
  const double t = f * r[8] - cx * r[6] - cy * r[7];
  h[0] = f * r[0] + cx * r[6];
  h[1] = f * r[1] + cx * r[7];
  h[2] = f * (f * r[2] - cx * r[0] - cy * r[1]) + cx * t;
  h[3] = f * r[3] + cy * r[6];
  h[4] = f * r[4] + cy * r[7];
  h[5] = f * (f * r[5] - cx * r[3] - cy * r[4]) + cy * t;
  h[6] = r[6];
  h[7] = r[7];
  h[8] = t;
}

// The way back: r = K^-1 h K / f, at whatever scale h has. No overlap of h and r.
inline void rotationFromMotion(const Camera& camera, const double* h, double* r) {
  const auto [f, cx, cy] = camera;
  r[6] = h[6];
  r[7] = h[7];
  r[8] = (cy * h[7] + (h[8] + cx * h[6])) / f;
  r[0] = (h[0] - cx * h[6]) / f;
  r[1] = (h[1] - cx * h[7]) / f;
  r[3] = (h[3] - cy * h[6]) / f;
  r[4] = (h[4] - cy * h[7]) / f;
  const double t = f * r[8] - cx * h[6] - cy * h[7];
  r[2] = (cy * r[1] + (cx * r[0] + (h[2] - cx * t) / f)) / f;
  r[5] = (cy * r[4] + (cx * r[3] + (h[5] - cy * t) / f)) / f;
}

#endif  // ZVT4_MOTION_CAMERA_H_
