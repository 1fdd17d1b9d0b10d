#include "resample.h"

#include <algorithm>
#include <cmath>

namespace tool {
namespace {

struct Plane {
  const std::vector<uint8_t>& samples;
  int32_t width;
  int32_t height;
};

// Weights of the four samples round a position with fraction t.
void cubicWeights(double t, double* weights) {
  weights[0] = ((-0.5 * t + 1.0) * t - 0.5) * t;
  weights[1] = (1.5 * t - 2.5) * t * t + 1.0;
  weights[2] = ((-1.5 * t + 2.0) * t + 0.5) * t;
  weights[3] = (0.5 * t - 0.5) * t * t;
}

uint8_t sampleAt(const Plane& plane, Point p) {
  const double x = std::clamp(p.x, 0.0, plane.width - 1.0);
  const double y = std::clamp(p.y, 0.0, plane.height - 1.0);
  const auto left = static_cast<int32_t>(std::floor(x));
  const auto top = static_cast<int32_t>(std::floor(y));
  double across[4];
  double down[4];
  cubicWeights(x - left, across);
  cubicWeights(y - top, down);
  double sum = 0.5;
  for (int32_t j = 0; j < 4; ++j) {
    const size_t row = static_cast<size_t>(std::clamp(top + j - 1, 0, plane.height - 1)) * plane.width;
    for (int32_t i = 0; i < 4; ++i) {
      sum += down[j] * across[i] * plane.samples[row + std::clamp(left + i - 1, 0, plane.width - 1)];
    }
  }
  return static_cast<uint8_t>(std::clamp(sum, 0.0, 255.0));
}

// scale, offset: luma coordinates of the plane's sample n are n x scale + offset.
void resamplePlane(std::vector<uint8_t>* out, const Plane& in, const Homography& motion, double scale, double offset) {
  size_t at = 0;
  for (int32_t y = 0; y < in.height; ++y) {
    for (int32_t x = 0; x < in.width; ++x) {
      const Point p = mapPoint(motion, {x * scale + offset, y * scale + offset});
      (*out)[at++] = sampleAt(in, {(p.x - offset) / scale, (p.y - offset) / scale});
    }
  }
}

}  // namespace

Picture resample(const Picture& source, const Homography& motion) {
  Picture out(source.width, source.height);
  resamplePlane(&out.y, {source.y, source.width, source.height}, motion, 1.0, 0.0);
  resamplePlane(&out.u, {source.u, source.chromaWidth(), source.chromaHeight()}, motion, 2.0, 0.5);
  resamplePlane(&out.v, {source.v, source.chromaWidth(), source.chromaHeight()}, motion, 2.0, 0.5);
  return out;
}

}  // namespace tool
