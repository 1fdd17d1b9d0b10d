// 3x3 projective maps of pixel coordinates, pixel centres at whole numbers.
#ifndef TESSALINE4_TOOLS_HOMOGRAPHY_H_
#define TESSALINE4_TOOLS_HOMOGRAPHY_H_

#include <array>
#include <cstddef>

namespace tool {

using Homography = std::array<double, 9>;  // row by row

struct Point {
  double x;
  double y;
};

inline Point mapPoint(const Homography& h, Point p) {
  const double w = h[6] * p.x + h[7] * p.y + h[8];
  return {(h[0] * p.x + h[1] * p.y + h[2]) / w, (h[3] * p.x + h[4] * p.y + h[5]) / w};
}

// First b, then a.
inline Homography compose(const Homography& a, const Homography& b) {
  Homography out{};
  for (size_t r = 0; r < 3; ++r) {
    for (size_t c = 0; c < 3; ++c) {
      for (size_t i = 0; i < 3; ++i) out[3 * r + c] += a[3 * r + i] * b[3 * i + c];
    }
  }
  return out;
}

// Up to scale.
inline Homography inverse(const Homography& h) {
  return {h[4] * h[8] - h[5] * h[7], h[2] * h[7] - h[1] * h[8], h[1] * h[5] - h[2] * h[4],
          h[5] * h[6] - h[3] * h[8], h[0] * h[8] - h[2] * h[6], h[2] * h[3] - h[0] * h[5],
          h[3] * h[7] - h[4] * h[6], h[1] * h[6] - h[0] * h[7], h[0] * h[4] - h[1] * h[3]};
}

}  // namespace tool

#endif  // TESSALINE4_TOOLS_HOMOGRAPHY_H_
