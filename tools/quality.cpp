#include "quality.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace tool {
namespace {

struct Plane {
  const std::vector<uint8_t>* samples;
  int32_t width;
  int32_t height;

  int32_t left() const { return static_cast<int32_t>(width * kUncomparedBorder); }
  int32_t top() const { return static_cast<int32_t>(height * kUncomparedBorder); }
  double at(int32_t x, int32_t y) const {
    return (*samples)[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)];
  }
};

// Over the samples that count: of a - b, and of its square.
struct Difference {
  double mean = 0;
  double square = 0;
};
Difference differenceOf(const Plane& a, const Plane& b, const Mask* counted) {
  double sum = 0;
  double squares = 0;
  int64_t count = 0;
  forEachCounted(a.width, a.height, counted, [&](size_t at) {
    const double d = static_cast<double>((*a.samples)[at]) - (*b.samples)[at];
    sum += d;
    squares += d * d;
    ++count;
  });
  const auto n = static_cast<double>(std::max<int64_t>(count, 1));
  return {sum / n, squares / n};
}

double psnr(double meanSquareError) {
  return meanSquareError <= 0 ? 99.0 : std::min(99.0, 10 * std::log10(255.0 * 255.0 / meanSquareError));
}

constexpr int32_t kRadius = 5;

std::array<double, 2 * kRadius + 1> gaussianWeights() {
  std::array<double, 2 * kRadius + 1> weights;
  double sum = 0;
  for (int32_t i = -kRadius; i <= kRadius; ++i)
    sum += weights[static_cast<size_t>(i + kRadius)] = std::exp(-i * i / 4.5);
  for (double& w : weights) w /= sum;
  return weights;
}

double ssim(const Plane& a, const Plane& b) {
  const auto weights = gaussianWeights();
  constexpr double kC1 = 0.01 * 255 * 0.01 * 255;
  constexpr double kC2 = 0.03 * 255 * 0.03 * 255;
  // Moments filtered along rows: a, b, aa, bb, ab.
  using Moments = std::array<double, 5>;
  const auto filtered = [&](int32_t x, int32_t y) {
    Moments m{};
    for (int32_t i = -kRadius; i <= kRadius; ++i) {
      const double w = weights[static_cast<size_t>(i + kRadius)];
      const double p = a.at(x + i, y);
      const double q = b.at(x + i, y);
      m[0] += w * p;
      m[1] += w * q;
      m[2] += w * p * p;
      m[3] += w * q * q;
      m[4] += w * p * q;
    }
    return m;
  };
  const int32_t left = std::max(a.left(), kRadius);
  const int32_t right = a.width - left;
  const int32_t top = std::max(a.top(), kRadius);
  const int32_t bottom = a.height - top;
  if (right <= left || bottom <= top) return std::numeric_limits<double>::quiet_NaN();
  double sum = 0;
  int64_t count = 0;
  std::vector<std::vector<Moments>> rows(2 * kRadius + 1, std::vector<Moments>(static_cast<size_t>(right - left)));
  const auto fill = [&](int32_t y) {
    std::vector<Moments>& row = rows[static_cast<size_t>(y % (2 * kRadius + 1))];
    for (int32_t x = left; x < right; ++x) row[static_cast<size_t>(x - left)] = filtered(x, y);
  };
  for (int32_t y = top - kRadius; y < top + kRadius; ++y) fill(y);
  for (int32_t y = top; y < bottom; ++y) {
    fill(y + kRadius);
    for (int32_t x = left; x < right; ++x, ++count) {
      Moments m{};
      for (int32_t i = -kRadius; i <= kRadius; ++i) {
        const Moments& r = rows[static_cast<size_t>((y + i) % (2 * kRadius + 1))][static_cast<size_t>(x - left)];
        for (size_t k = 0; k < 5; ++k) m[k] += weights[static_cast<size_t>(i + kRadius)] * r[k];
      }
      const double varianceA = m[2] - m[0] * m[0];
      const double varianceB = m[3] - m[1] * m[1];
      const double covariance = m[4] - m[0] * m[1];
      sum += (2 * m[0] * m[1] + kC1) * (2 * covariance + kC2) /
             ((m[0] * m[0] + m[1] * m[1] + kC1) * (varianceA + varianceB + kC2));
    }
  }
  return sum / static_cast<double>(count);
}

Plane lumaOf(const Picture& p) {
  return {&p.y, p.width, p.height};
}
Plane uOf(const Picture& p) {
  return {&p.u, p.chromaWidth(), p.chromaHeight()};
}
Plane vOf(const Picture& p) {
  return {&p.v, p.chromaWidth(), p.chromaHeight()};
}

Mask ofChroma(const Picture& picture, const Mask* counted) {
  if (counted == nullptr) return {};
  const auto pairs = static_cast<size_t>(picture.chromaWidth());
  Mask chroma(picture.u.size(), 1);
  for (size_t i = 0; i < picture.y.size(); ++i) {
    const size_t x = i % static_cast<size_t>(picture.width);
    const size_t y = i / static_cast<size_t>(picture.width);
    if ((*counted)[i] == 0) chroma[y / 2 * pairs + x / 2] = 0;
  }
  return chroma;
}

}  // namespace

Psnr psnrOf(const Picture& picture, const Picture& truth, const Mask* counted) {
  const Mask pairs = ofChroma(truth, counted);
  const Mask* chroma = counted == nullptr ? nullptr : &pairs;
  return {psnr(differenceOf(lumaOf(picture), lumaOf(truth), counted).square),
          psnr((differenceOf(uOf(picture), uOf(truth), chroma).square +
                differenceOf(vOf(picture), vOf(truth), chroma).square) /
               2)};
}

std::array<double, 3> meanDifference(const Picture& picture, const Picture& truth, const Mask* counted) {
  const Mask pairs = ofChroma(truth, counted);
  const Mask* chroma = counted == nullptr ? nullptr : &pairs;
  return {differenceOf(lumaOf(picture), lumaOf(truth), counted).mean,
          differenceOf(uOf(picture), uOf(truth), chroma).mean, differenceOf(vOf(picture), vOf(truth), chroma).mean};
}

double lumaPsnr(const Picture& picture, const Picture& truth) {
  if (picture.width != truth.width || picture.height != truth.height) throw Error("pictures of different size");
  return psnr(differenceOf(lumaOf(picture), lumaOf(truth), nullptr).square);
}

Quality compareWithTruth(const Picture& picture, const Picture& truth) {
  if (picture.width != truth.width || picture.height != truth.height) throw Error("pictures of different size");
  const Psnr psnr = psnrOf(picture, truth, nullptr);
  return {psnr.luma, psnr.chroma, ssim(lumaOf(picture), lumaOf(truth)),
          (ssim(uOf(picture), uOf(truth)) + ssim(vOf(picture), vOf(truth))) / 2};
}

}  // namespace tool
