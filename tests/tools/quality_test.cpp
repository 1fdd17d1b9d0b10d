// The measures of quality against closed forms and a literal window sum.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "quality.h"

namespace tool {
namespace {

Picture randomPicture(int32_t width, int32_t height, uint32_t seed) {
  std::mt19937 random(seed);
  Picture picture(width, height);
  for (std::vector<uint8_t>* plane : {&picture.y, &picture.u, &picture.v}) {
    for (uint8_t& sample : *plane) sample = static_cast<uint8_t>(30 + random() % 190);
  }
  return picture;
}

// Mean over all whole windows, weights as products, moments about the means.
double literalSsim(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b, int32_t width, int32_t height) {
  double sum = 0;
  int32_t count = 0;
  for (int32_t y = 5; y < height - 5; ++y) {
    for (int32_t x = 5; x < width - 5; ++x, ++count) {
      double weight = 0, ma = 0, mb = 0, va = 0, vb = 0, cov = 0;
      for (int32_t i = 0; i < 242; ++i) {  // the means first
        if (i == 121) ma /= weight, mb /= weight;
        const int32_t dx = i % 11 - 5, dy = i / 11 % 11 - 5;
        const double w = std::exp(-(dx * dx + dy * dy) / (2 * 1.5 * 1.5));
        const auto at = static_cast<size_t>((y + dy) * width + x + dx);
        if (i < 121) {
          weight += w, ma += w * a[at], mb += w * b[at];
        } else {
          va += w / weight * (a[at] - ma) * (a[at] - ma);
          vb += w / weight * (b[at] - mb) * (b[at] - mb);
          cov += w / weight * (a[at] - ma) * (b[at] - mb);
        }
      }
      const double c1 = 6.5025, c2 = 58.5225;  // (0.01 x 255)^2, (0.03 x 255)^2
      sum += (2 * ma * mb + c1) * (2 * cov + c2) / ((ma * ma + mb * mb + c1) * (va + vb + c2));
    }
  }
  return sum / count;
}

TEST(Quality, PsnrOfKnownDifferences) {
  const Picture truth = randomPicture(203, 151, 1);
  Picture off = truth;
  for (uint8_t& y : off.y) y = static_cast<uint8_t>(y + 4);
  for (uint8_t& v : off.v) v = static_cast<uint8_t>(v - 6);  // half of the chroma samples
  // Within the border of 2 % nothing counts, just inside everything does.
  off.y[2 * 203 + 100] = 0;
  off.y[75 * 203 + 3] = 0;
  const Quality q = compareWithTruth(off, truth);
  EXPECT_NEAR(q.lumaPsnr, 20 * std::log10(255.0 / 4), 1e-9);
  EXPECT_NEAR(q.chromaPsnr, 10 * std::log10(255.0 * 255.0 / 18), 1e-9);
  off.y[3 * 203 + 4] = static_cast<uint8_t>(off.y[3 * 203 + 4] + 9);
  EXPECT_LT(lumaPsnr(off, truth), q.lumaPsnr);

  const Quality same = compareWithTruth(truth, truth);
  EXPECT_EQ(same.lumaPsnr, 99);
  EXPECT_NEAR(same.lumaSsim, 1, 1e-12);
  EXPECT_NEAR(same.chromaSsim, 1, 1e-12);
  EXPECT_THROW(compareWithTruth(truth, Picture(202, 151)), Error);
  EXPECT_THROW(lumaPsnr(truth, Picture(203, 150)), Error);
}

// No whole window, no SSIM; the samples count all the same.
TEST(Quality, SmallPicturesHaveNoSsim) {
  for (const auto& [width, height] : {std::pair{40, 10}, {10, 40}, {1, 1}, {21, 20}}) {
    const Picture truth = randomPicture(width, height, 4);
    Picture off = truth;
    for (uint8_t& y : off.y) y = static_cast<uint8_t>(y + 4);
    const Quality q = compareWithTruth(off, truth);
    EXPECT_NEAR(q.lumaPsnr, 20 * std::log10(255.0 / 4), 1e-9);
    EXPECT_EQ(q.chromaPsnr, 99);
    EXPECT_EQ(std::isnan(q.lumaSsim), width < 11 || height < 11);
    EXPECT_TRUE(std::isnan(q.chromaSsim));
  }
}

TEST(Quality, SsimIsTheWindowSum) {
  const Picture truth = randomPicture(63, 49, 2);
  Picture noisy = truth;
  std::mt19937 random(3);
  for (std::vector<uint8_t>* plane : {&noisy.y, &noisy.u, &noisy.v}) {
    for (uint8_t& sample : *plane) sample = static_cast<uint8_t>(sample - 20 + static_cast<int32_t>(random() % 41));
  }
  const Quality q = compareWithTruth(noisy, truth);
  EXPECT_NEAR(q.lumaSsim, literalSsim(noisy.y, truth.y, 63, 49), 1e-9);
  EXPECT_NEAR(q.chromaSsim, (literalSsim(noisy.u, truth.u, 32, 25) + literalSsim(noisy.v, truth.v, 32, 25)) / 2, 1e-9);
  EXPECT_LT(q.lumaSsim, 0.99);
}

}  // namespace
}  // namespace tool
