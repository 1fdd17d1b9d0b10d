// 3x3 projective maps of pixel coordinates, pixel centres at whole numbers.
#ifndef TESSALINE4_TOOLS_HOMOGRAPHY_H_
#define TESSALINE4_TOOLS_HOMOGRAPHY_H_

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

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

// Whether h can be the motion of a hand-held frame: the frame, with a pixel more on each side, keeps in front of the
// camera, keeps some area and stays within some sides of its place. Such a map is finite and has an inverse.
inline bool isMotion(const Homography& h, int32_t width, int32_t height) {
  const double right = width;
  const double bottom = height;
  const double reach = 16 * (right + bottom);
  const Point corners[] = {{-1, -1}, {right, -1}, {right, bottom}, {-1, bottom}};
  Point mapped[4];
  for (size_t i = 0; i < 4; ++i) {
    const auto depth = [&](Point p) { return h[6] * p.x + h[7] * p.y + h[8]; };
    mapped[i] = mapPoint(h, corners[i]);
    // Written so that a NaN fails.
    if (!(depth(corners[i]) * depth(corners[0]) > 0)) return false;
    if (!(std::abs(mapped[i].x) < reach && std::abs(mapped[i].y) < reach)) return false;
  }
  double area = 0;
  for (size_t i = 0; i < 4; ++i) {
    const Point p = mapped[i];
    const Point q = mapped[(i + 1) % 4];
    area += (p.x * q.y - q.x * p.y) / 2;
  }
  return std::abs(area) > 1e-3 * right * bottom;
}

}  // namespace tool

#endif  // TESSALINE4_TOOLS_HOMOGRAPHY_H_
