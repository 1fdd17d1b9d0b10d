#include "fine/unclip.h"

#include <cmath>
#include <random>

#include "fine/frame_rig.h"
#include "support/test_pel.h"

namespace {

constexpr int32_t kFrames = 8;

// A scene that is white at one end and black at the other, its mean over frames whose noise is cut off, and a frame.
struct Clipped {
  TestImage clean{kWidth, kHeight, IMAGE_UINT8, 1, 0};
  TestImage merged{kWidth, kHeight, IMAGE_UINT8, 1, 0};
  TestImage base{kWidth, kHeight, IMAGE_UINT8, 1, 0};
  fine::NoiseCurve noise;

  template <typename Paint>
  Clipped(double sigma, const Paint& paint) {
    for (float& v : noise.variance) v = static_cast<float>(sigma * sigma + 1.0 / 12);
    std::mt19937 random(3);
    std::normal_distribution<double> normal;
    for (int32_t y = 0; y < kHeight; ++y) {
      for (int32_t x = 0; x < kWidth; ++x) {
        const double truth = std::clamp(paint(x, y), 0.0, 255.0);
        double sum = 0;
        for (int32_t i = 0; i < 3 * kFrames; ++i) {
          const double v = std::clamp(std::floor(truth + sigma * normal(random) + 0.5), 0.0, 255.0);
          if (i == 0) base.row(0, y)[x] = static_cast<uint8_t>(v);
          sum += v / (3 * kFrames);
        }
        clean.row(0, y)[x] = static_cast<uint8_t>(truth + 0.5);
        merged.row(0, y)[x] = static_cast<uint8_t>(sum + 0.5);
      }
    }
  }
  // Mean of merged - clean over the columns.
  double shift(int32_t from, int32_t to) const {
    double sum = 0;
    for (int32_t y = 0; y < kHeight; ++y) {
      for (int32_t x = from; x < to; ++x) sum += merged.row(0, y)[x] - clean.row(0, y)[x];
    }
    return sum / (kHeight * (to - from));
  }
};

TEST(Unclip, MeansAreRightAgainUpToTheEnds) {
  const TestMeshes meshes(0);
  for (const double sigma : {4.0, 9.0, 14.0}) {
    Clipped c(sigma, [](int32_t x, int32_t) { return 0.5 * (x - 64); });
    const double before[] = {c.shift(0, 64), c.shift(576, 640)};
    EXPECT_GT(before[0], 0.35 * sigma);
    EXPECT_LT(before[1], -0.35 * sigma);
    const double middle = c.shift(200, 440);
    ASSERT_EQ(fine::unclip(nullptr, &c.merged, c.base, meshes.full, c.noise), ZELVAN_OK);
    EXPECT_LT(std::abs(c.shift(0, 64)), 0.15 * sigma) << sigma;
    EXPECT_LT(std::abs(c.shift(576, 640)), 0.15 * sigma) << sigma;
    EXPECT_LT(std::abs(c.shift(64, 128)), 0.15 * sigma) << sigma;
    EXPECT_LT(std::abs(c.shift(512, 576)), 0.15 * sigma) << sigma;
    EXPECT_EQ(c.shift(200, 440), middle);
  }
}

// Texture that reaches white looks like noise that is cut off, but for its size.
TEST(Unclip, LeavesTextureAndPicturesWithoutNoise) {
  const TestMeshes meshes(0);
  const auto stripes = [](int32_t x, int32_t y) { return 235 + 40 * std::sin(x * 0.9 + y * 0.4); };
  for (const double sigma : {0.0, 1.5}) {
    Clipped c(sigma, stripes);
    std::vector<uint8_t> before;
    for (int32_t y = 0; y < kHeight; ++y) before.insert(before.end(), c.merged.row(0, y), c.merged.row(0, y) + kWidth);
    ASSERT_EQ(fine::unclip(nullptr, &c.merged, c.base, meshes.full, c.noise), ZELVAN_OK);
    int32_t most = 0;
    for (int32_t y = 0; y < kHeight; ++y) {
      for (int32_t x = 0; x < kWidth; ++x) {
        most = std::max(most, std::abs(c.merged.row(0, y)[x] - before[static_cast<size_t>(y * kWidth + x)]));
      }
    }
    EXPECT_LE(most, sigma > 0 ? 1 : 0) << sigma;
  }
}

TEST(Unclip, BytesDependOnNoWorkersAndLevelsKeepTheirOrder) {
  const TestMeshes meshes(2.5);
  Clipped one(9, [](int32_t x, int32_t y) { return 0.5 * (x - 64) + 9 * std::sin(y / 7.0); });
  TestImage many(kWidth, kHeight, IMAGE_UINT8, 1, 0);
  for (int32_t y = 0; y < kHeight; ++y) std::copy_n(one.merged.row(0, y), kWidth, many.row(0, y));
  const TestPel pel(3);
  ASSERT_EQ(fine::unclip(nullptr, &one.merged, one.base, meshes.full, one.noise), ZELVAN_OK);
  ASSERT_EQ(fine::unclip(pel.get(), &many, one.base, meshes.full, one.noise), ZELVAN_OK);
  for (int32_t y = 0; y < kHeight; ++y) {
    ASSERT_TRUE(std::equal(many.row(0, y), many.row(0, y) + kWidth, one.merged.row(0, y))) << y;
  }
  fine::ClipCounts counts;
  fine::countClipped(&counts, one.merged, one.base, meshes.full);
  uint8_t table[256];
  fine::fillClipTable(table, counts, one.noise);
  for (int32_t v = 1; v < 256; ++v) EXPECT_LE(table[v - 1], table[v]) << v;
}

}  // namespace
