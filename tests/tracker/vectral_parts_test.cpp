// The pieces of the tracker one by one: solves on a made-up list, coarse search, band-pass, residual.
#include "tracker/vectral_scene.h"

namespace {

// 70 points moved by a translation, some of them 5 pixels too far or lost.
struct PointList : VectralFPList {
  PointList(double dx, double dy) : VectralFPList{} {
    for (int32_t i = 0; i < 70; ++i) {
      const bool lost = i % 11 == 5, outlier = i % 17 == 3;
      const int32_t x = 10 + 37 * i % 301, y = 8 + 53 * i % 223;
      columns[0][i] = x;
      columns[1][i] = y;
      columns[2][i] = lost ? VECTRAL_POS_LOST : static_cast<int32_t>((x + dx + (outlier ? 5 : i % 3 / 40.0)) * 32768);
      columns[3][i] = lost ? VECTRAL_POS_LOST : static_cast<int32_t>((y + dy) * 32768);
      columns[4][i] = 20 + 13 * i % 150;
      residuals[i] = {outlier ? 4000 : 40, 10};
    }
    count = 70;
    baseX = columns[0], baseY = columns[1], curX = columns[2], curY = columns[3];
    strength = columns[4], inlier = columns[5];
    history = residuals;
    updateCount = 3;
  }
  int32_t columns[6][70] = {};
  VectralFPHistory residuals[70];
};

class VectralParts : public testing::Test {
 protected:
  VectralParts() {
    construct_MILsm(&lsm, tracker.env);
    EXPECT_EQ(MILsm_init(&lsm, MILSM_8ST, 2), ZELVAN_OK);
  }
  ~VectralParts() override { destruct_MILsm(&lsm); }
  // What the solver makes of the points that add(i) adds from the last to the first.
  template <typename Add>
  Mvec8Real solve(const Mvec8Real& start, const Add& add) {
    Mvec8Real out;
    MILsm_clear(&lsm);
    for (int32_t i = 69; i >= 0; --i) {
      if (i % 11 != 5) add(i);
    }
    MILsm_setInitialMvecReal(&lsm, &start, 1);
    MILsm_solve(&lsm);
    MILsm_outputMvecReal(&lsm, &out, 1);
    return out;
  }
  TestTracker tracker;
  MILsm lsm;
};

TEST_F(VectralParts, SolvesAddTheirPointsInOrderWithTheirWeights) {
  const Mvec8Real start = sceneMotion(1, 0);
  const auto real = [](int32_t q15) { return std::floor(q15 / 1024.0) / 32; };
  for (int32_t mode = 0; mode < 4; ++mode) {
    PointList l(2.5 + 1.0 / 64, -1.25);
    const auto addQ15 = [&](int32_t i) {
      MILsm_addF32(&lsm, 0, l.baseX[i] << 15, l.baseY[i] << 15, 1, l.curX[i], l.curY[i],
                   std::min(l.strength[i], 127) * 256);
    };
    const Mvec8Real first = solve(start, [&](int32_t i) {
      if (mode == 0) MILsm_add(&lsm, 0, l.baseX[i], l.baseY[i], 1, l.curX[i] / 32768, l.curY[i] / 32768, 1);
      if (mode == 1) {
        const double weight = i % 17 == 3 ? 1 : 252;
        MILsm_addReal(&lsm, 0, l.baseX[i], l.baseY[i], 1, real(l.curX[i]), real(l.curY[i]), weight);
      }
      if (mode >= 2) addQ15(i);
    });
    // The second pass leaves out what is 3 square pixels or more away from the first result.
    const Mvec8Real second = solve(first, [&](int32_t i) {
      const auto p = movedPoint(first, l.baseX[i], l.baseY[i]);
      if (std::pow(l.curX[i] / 32768.0 - p[0], 2) + std::pow(l.curY[i] / 32768.0 - p[1], 2) < 3) addQ15(i);
    });
    Mvec8Real motion = start;
    const Status status = mode == 0   ? Vectral_solvePlain(&tracker, &motion, &l, &lsm)
                          : mode == 1 ? Vectral_solveHistoryWeighted(&tracker, &motion, &l, &lsm)
                          : mode == 2 ? Vectral_solveWeighted(&tracker, &motion, &l, &lsm)
                                      : Vectral_solveTwoPass(&tracker, &motion, &l, 320, 240, &lsm);
    EXPECT_EQ(status, ZELVAN_OK);
    EXPECT_EQ(std::memcmp(&motion, mode == 3 ? &second : &first, sizeof motion), 0) << mode;
    for (int32_t i = 0; i < 70; ++i) {
      EXPECT_EQ(l.inlier[i], mode >= 2 && i % 11 != 5 && (mode == 2 || i % 17 != 3)) << mode << ' ' << i;
    }
    EXPECT_EQ(tracker.failureCode, 0x40000000u);
  }
  PointList none(0, 0);
  none.count = 0;
  Mvec8Real motion = start;
  EXPECT_EQ(Vectral_solveTwoPass(&tracker, &motion, &none, 320, 240, &lsm), ZELVAN_OK);
  EXPECT_EQ(tracker.failureCode, 0x40000000u | VECTRAL_FAIL_SOLVER);
  EXPECT_EQ(std::memcmp(&motion, &start, sizeof motion), 0);
}

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
