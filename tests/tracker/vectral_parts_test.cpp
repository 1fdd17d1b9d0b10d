// The pieces of the tracker one by one: coarse search, band-pass, residual.
#include "tracker/vectral_scene.h"

namespace {

class VectralParts : public testing::Test {
 protected:
  TestTracker tracker;
};

TEST_F(VectralParts, CoarseSearchFindsTheLeastMeanDifference) {
  // So small that no product of a sum and an area wraps.
  for (uint32_t seed = 1; seed < 24; ++seed) {
    const TestImage a(15, 14, IMAGE_UINT8, seed, 4), b(13 + seed % 5, 14, IMAGE_UINT8, seed + 50, 8);
    // The mean differences themselves, over the square of radius 3 round the predicted shift (2, -1).
    double least = 1e9;
    int32_t bestX = 0, bestY = 0;
    for (int32_t dy = -4; dy <= 2; ++dy) {
      for (int32_t dx = -1; dx <= 5; ++dx) {
        double sum = 0;
        int32_t count = 0;
        for (int32_t y = std::max(0, -dy); y < std::min(14, 14 - dy); ++y) {
          for (int32_t x = std::max(0, -dx); x < std::min(15, b.width - dx); ++x, ++count) {
            sum += std::abs(a.row(0, y)[x] - b.row(0, y + dy)[x + dx]);
          }
        }
        if (sum / count < least) least = sum / count, bestX = dx, bestY = dy;
      }
    }
    tracker.coarseRange = 8192;  // of 14 rows: 3
    for (const bool alike : {false, true}) {
      Mvec8Real motion = sceneMotion(2, -1);
      tracker.failureCode = 0;
      tracker.coarseLimit = static_cast<int32_t>(least * 32768 + 1e-6) + alike;  // the mean difference is the verdict
      ASSERT_EQ(Vectral_coarseSearch(&tracker, &motion, &a, &b), ZELVAN_OK);
      EXPECT_EQ(tracker.coarseShiftX, bestX - 2);
      EXPECT_EQ(motion.h[2], alike ? bestX : 2);
      EXPECT_EQ(motion.h[5], alike ? bestY : -1);
      EXPECT_EQ(tracker.failureCode, alike ? 0u : VECTRAL_FAIL_COARSE);
    }
  }
}

TEST_F(VectralParts, BandPassKeepsSpots) {
  Image levels[2];
  for (Image& level : levels) construct_Image(&level, tracker.env);
  Image_init(&levels[0], 66, 50, nullptr, IMAGE_UINT8);
  drawPixels(&levels[0], [](int32_t x, int32_t y) { return x == 32 && y == 24 ? 255 : 100; });
  tracker.coarseBandpass = 1;
  EXPECT_EQ(Vectral_buildPyramid(&tracker, levels, 2), ZELVAN_OK);
  double wide = 0, narrow = 0, both = 0;
  for (int32_t k = -4; k <= 4; ++k) wide += std::exp(-k * k / 8.0);
  for (int32_t k = -3; k <= 3; ++k) narrow += std::exp(-2 * k * k / 9.0);
  for (int32_t k = -2; k <= 2; ++k) both += std::exp(-2 * k * k / 9.0 - k * k / 2.0) / narrow;
  EXPECT_NEAR(imageRow<int32_t>(&levels[1], 12)[16], 81 * 155 / (wide * wide) * (1 - both * both), 2);
  EXPECT_EQ(imageRow<int32_t>(&levels[1], 3)[3], 0);
  for (Image& level : levels) destruct_Image(&level);
}

TEST_F(VectralParts, ResidualIsTheVarianceOfTheDifference) {
  tracker.start(SceneImage(160, 120, kIdentity));
  int32_t out = 0;
  drawPixels(&tracker.baseImages[0], [](int32_t x, int32_t y) { return 60 + x * y % 100; });
  drawPixels(&tracker.curImages[0], [](int32_t x, int32_t y) { return 67 + (x - 2) * y % 100 + (x + y) % 2 * 8; });
  const Mvec8Real shift = sceneMotion(2, 0), away = sceneMotion(500, 0);
  EXPECT_EQ(Vectral_calcYDiff(&tracker, &out, &shift, 0, 16, 4), ZELVAN_OK);
  EXPECT_NEAR(out, 16, 1);
  EXPECT_EQ(Vectral_calcYDiff(&tracker, &out, &away, 0, 16, 4), ZELVAN_OK);
  EXPECT_EQ(out, 0x40000000);
  EXPECT_EQ(Vectral_calcYDiff(&tracker, &out, &away, 0, 8, 4), ZELVAN_ERROR_PARAM);
}

}  // namespace
