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
    for (const int32_t x : {0, 64, 512, 576}) EXPECT_LT(std::abs(c.shift(x, x + 64)), 0.15 * sigma) << sigma << x;
    EXPECT_EQ(c.shift(200, 440), middle);
  }
}

// Texture that reaches white looks like noise that is cut off, but for its size.
TEST(Unclip, LeavesTextureAndPicturesWithoutNoise) {
  const TestMeshes meshes(0);
  const auto stripes = [](int32_t x, int32_t y) { return 235 + 40 * std::sin(x * 0.9 + y * 0.4); };
  for (const double sigma : {0.0, 1.5}) {
    Clipped c(sigma, stripes);
    const Clipped before(sigma, stripes);
    ASSERT_EQ(fine::unclip(nullptr, &c.merged, c.base, meshes.full, c.noise), ZELVAN_OK);
    EXPECT_LE(worstDifference(c.merged, before.merged), sigma > 0 ? 1 : 0) << sigma;
  }
}

TEST(Unclip, BytesDependOnNoWorkersAndLevelsKeepTheirOrder) {
  const TestMeshes meshes(2.5);
  const auto paint = [](int32_t x, int32_t y) { return 0.5 * (x - 64) + 9 * std::sin(y / 7.0); };
  Clipped one(9, paint), many(9, paint);
  const TestPel pel(3);
  ASSERT_EQ(fine::unclip(nullptr, &one.merged, one.base, meshes.full, one.noise), ZELVAN_OK);
  ASSERT_EQ(fine::unclip(pel.get(), &many.merged, one.base, meshes.full, one.noise), ZELVAN_OK);
  ASSERT_TRUE(many.merged.sameBytes(one.merged));
  fine::ClipCounts counts;
  fine::countClipped(&counts, one.merged, one.base, meshes.full);
  uint8_t table[256];
  fine::fillClipTable(table, counts, one.noise);
  for (int32_t v = 1; v < 256; ++v) EXPECT_LE(table[v - 1], table[v]) << v;
}

}  // namespace
