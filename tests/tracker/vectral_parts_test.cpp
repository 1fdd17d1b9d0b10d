// The pieces of the tracker one by one: solves on made-up lists, coarse search, band-pass, dump, residual.
#include <algorithm>

#include "tracker/vectral.h"
#include "tracker/vectral_scene.h"
#include "tracker/vectral_util.h"

namespace {

const Mvec8Real kIdentity = sceneMotion(0, 0);

// A list over vectors, moved by a translation; one in `outlierStep` by 5 pixels more, one in eleven lost.
struct PointList {
  PointList(int32_t n, double dx, double dy, int32_t outlierStep)
      : x(n), y(n), cx(n), cy(n), strength(n), inlier(n), history(n) {
    for (int32_t i = 0; i < n; ++i) {
      x[i] = 10 + 37 * i % 301;
      y[i] = 8 + 53 * i % 223;
      const bool outlier = i % outlierStep == 3;
      cx[i] = i % 11 == 5 ? VECTRAL_POS_LOST : static_cast<int32_t>((x[i] + dx + (outlier ? 5 : 0)) * 32768);
      cy[i] = i % 11 == 5 ? VECTRAL_POS_LOST : static_cast<int32_t>((y[i] + dy) * 32768);
      strength[i] = 20 + 13 * i % 150;
      history[i] = {outlier ? 4000 : 40, 10};
    }
    list = {};
    list.count = n;
    list.baseX = x.data();
    list.baseY = y.data();
    list.curX = cx.data();
    list.curY = cy.data();
    list.strength = strength.data();
    list.inlier = inlier.data();
    list.history = history.data();
    list.updateCount = 3;
  }
  std::vector<int32_t> x, y, cx, cy, strength, inlier;
  std::vector<VectralFPHistory> history;
  VectralFPList list;
};

class VectralSolve : public testing::Test {
 protected:
  VectralSolve() {
    construct_MILsm(&lsm_, arena_.env());
    construct_Vectral(&tracker_, arena_.env());
    EXPECT_EQ(MILsm_init(&lsm_, MILSM_8ST, 2), ZELVAN_OK);
  }
  ~VectralSolve() override {
    destruct_MILsm(&lsm_);
    destruct_Vectral(&tracker_);
  }
  // What the solver makes of the sums that are in it.
  Mvec8Real finish(const Mvec8Real& start) {
    Mvec8Real out;
    MILsm_setInitialMvecReal(&lsm_, &start, 1);
    MILsm_solve(&lsm_);
    MILsm_outputMvecReal(&lsm_, &out, 1);
    return out;
  }
  TestArena arena_;
  MILsm lsm_;
  Vectral tracker_;
};

TEST_F(VectralSolve, SingleSolvesAddEachPointWithItsWeight) {
  PointList points(60, 2.5 + 1.0 / 64, -1.25, 7);
  const VectralFPList& l = points.list;
  const Mvec8Real start = sceneMotion(1, 0);
  const auto real = [](int32_t q15) { return std::floor(q15 / 1024.0) / 32; };
  for (int32_t mode = 0; mode < 3; ++mode) {
    Mvec8Real motion = start;
    const auto solve = mode == 0   ? Vectral_solvePlain
                       : mode == 1 ? Vectral_solveWeighted
                                   : Vectral_solveHistoryWeighted;
    EXPECT_EQ(solve(&tracker_, &motion, &points.list, &lsm_), ZELVAN_OK);
    MILsm_clear(&lsm_);
    for (int32_t i = 59; i >= 0; --i) {
      if (i % 11 == 5) continue;
      if (mode == 0) MILsm_add(&lsm_, 0, l.baseX[i], l.baseY[i], 1, l.curX[i] / 32768, l.curY[i] / 32768, 1);
      if (mode == 1) {
        MILsm_addF32(&lsm_, 0, l.baseX[i] * 32768, l.baseY[i] * 32768, 1, l.curX[i], l.curY[i],
                     std::min(l.strength[i], 127) * 256);
        EXPECT_EQ(l.inlier[i], 1);
      }
      if (mode == 2) {
        MILsm_addReal(&lsm_, 0, l.baseX[i], l.baseY[i], 1, real(l.curX[i]), real(l.curY[i]), i % 7 == 3 ? 1 : 252);
      }
    }
    const Mvec8Real expected = finish(start);
    EXPECT_EQ(std::memcmp(&motion, &expected, sizeof motion), 0) << mode;
  }
  EXPECT_EQ(tracker_.failureCode, 0x40000000u);
  points.list.count = 0;
  Mvec8Real motion = start;
  EXPECT_EQ(Vectral_solveWeighted(&tracker_, &motion, &points.list, &lsm_), ZELVAN_OK);
  EXPECT_EQ(tracker_.failureCode, 0x40000000u | VECTRAL_FAIL_SOLVER);
}

TEST_F(VectralSolve, OutliersAreLeftOut) {
  PointList points(70, 2.5, -1.25, 17);
  Mvec8Real motion = kIdentity;
  ASSERT_EQ(Vectral_solveTwoPass(&tracker_, &motion, &points.list, 320, 240, &lsm_), ZELVAN_OK);
  for (int32_t i = 0; i < 70; ++i) EXPECT_EQ(points.inlier[i], i % 17 != 3 && i % 11 != 5) << i;
  EXPECT_LT(motionError(motion, sceneMotion(2.5, -1.25), 320, 240), 1e-6);

  // Some of the trials of 16 points hold no outlier.
  motion = kIdentity;
  tracker_.randomSeed = 12345678;
  ASSERT_EQ(Vectral_solveRandomSample(&tracker_, &motion, &points.list, &lsm_), ZELVAN_ERROR_UNSUPPORTED);
  EXPECT_LT(motionError(motion, sceneMotion(2.5, -1.25), 320, 240), 1e-6);
  points.list.count = 0;
  tracker_.failureCode = 0;
  EXPECT_EQ(Vectral_solveTwoPass(&tracker_, &motion, &points.list, 320, 240, &lsm_), ZELVAN_OK);
  EXPECT_EQ(tracker_.failureCode, uint32_t{VECTRAL_FAIL_SOLVER});
}

TEST_F(VectralSolve, AllLevelsTakesTheListsUpToTheLastButOne) {
  PointList level0(40, 2, 1, 99), level1(40, 1, 0.5, 99), level2(40, 100, 100, 99);
  VectralFPList lists[3] = {level0.list, level1.list, level2.list};
  tracker_.fpLists = lists;
  tracker_.resoNum = 3;
  Mvec8Real motion = kIdentity;
  ASSERT_EQ(Vectral_solveAllLevels(&tracker_, &motion, lists, &lsm_), ZELVAN_OK);
  // The points of level 2 would spoil it; those of level 1 agree after the doubling, but fail the unscaled test.
  EXPECT_LT(motionError(motion, sceneMotion(2, 1), 320, 240), 1e-6);
  EXPECT_EQ(std::count(level0.inlier.begin(), level0.inlier.end(), 1), 35);
  EXPECT_EQ(std::count(level2.inlier.begin(), level2.inlier.end(), 1), 0);
  EXPECT_EQ(Vectral_solveAllLevels(&tracker_, &motion, &level0.list, &lsm_), ZELVAN_ERROR_UNSUPPORTED);
  tracker_.fpLists = nullptr;
  tracker_.resoNum = 0;
}

TEST(VectralCoarse, FindsTheLeastMeanDifference) {
  // So small that no product of a sum and an area wraps.
  TestArena arena;
  Vectral tracker;
  construct_Vectral(&tracker, arena.env());
  for (const int32_t format : {IMAGE_UINT8, IMAGE_INT32}) {
    for (uint32_t seed = 1; seed < 12; ++seed) {
      const TestImage a(15, 14, format, seed, 4), b(13 + seed % 5, 14, format, seed + 50, 8);
      const auto at = [&](const TestImage& image, int32_t x, int32_t y) -> int32_t {
        return format == IMAGE_UINT8 ? image.row(0, y)[x] : imageRow<int32_t>(&image, y)[x];
      };
      for (const TestImage* image : {&a, &b}) {
        for (int32_t y = 0; format == IMAGE_INT32 && y < 14; ++y) {
          for (int32_t x = 0; x < image->width; ++x) imageRow<int32_t>(image, y)[x] %= 4096;
        }
      }
      // The mean differences themselves, over the square of radius 3 round the predicted shift (2, -1).
      double least = 1e9;
      int32_t bestX = 0, bestY = 0;
      for (int32_t dy = -4; dy <= 2; ++dy) {
        for (int32_t dx = -1; dx <= 5; ++dx) {
          double sum = 0;
          int32_t count = 0;
          for (int32_t y = std::max(0, -dy); y < std::min(14, 14 - dy); ++y) {
            for (int32_t x = std::max(0, -dx); x < std::min(15, b.width - dx); ++x, ++count) {
              sum += std::abs(at(a, x, y) - at(b, x + dx, y + dy));
            }
          }
          if (sum / count < least) least = sum / count, bestX = dx, bestY = dy;
        }
      }
      Mvec8Real motion = sceneMotion(2, -1);
      tracker.coarseRange = 8192;  // of 14 rows: 3
      ASSERT_EQ(Vectral_coarseSearch(&tracker, &motion, &a, &b), ZELVAN_OK);
      EXPECT_EQ(motion.h[2], bestX);
      EXPECT_EQ(motion.h[5], bestY);
      EXPECT_EQ(tracker.coarseShiftX, bestX - 2);

      tracker.failureCode = 0;  // the mean difference, scaled, is the verdict
      tracker.coarseLimit = static_cast<int32_t>(std::floor(least * (format == IMAGE_UINT8 ? 32768 : 256) + 1e-6));
      motion = sceneMotion(2, -1);
      EXPECT_EQ(Vectral_coarseSearch(&tracker, &motion, &a, &b), ZELVAN_OK);
      EXPECT_EQ(tracker.failureCode, uint32_t{VECTRAL_FAIL_COARSE});
      EXPECT_EQ(motion.h[2], 2);
      ++tracker.coarseLimit;
      EXPECT_EQ(Vectral_coarseSearch(&tracker, &motion, &a, &b), ZELVAN_OK);
      EXPECT_EQ(motion.h[2], bestX);
      tracker.coarseLimit = 0x40000000;
      motion = sceneMotion(30, 0);  // the centre leaves the image
      EXPECT_EQ(Vectral_coarseSearch(&tracker, &motion, &a, &b), ZELVAN_OK);
      EXPECT_EQ(motion.h[2], 30);
    }
  }
  destruct_Vectral(&tracker);
}

// exp(-rate r^2) mean of value(u, v) round (x, y).
template <typename Value>
double gaussMean(int32_t x, int32_t y, int32_t radius, double rate, const Value& value) {
  double sum = 0, total = 0;
  for (int32_t v = -radius; v <= radius; ++v) {
    for (int32_t u = -radius; u <= radius; ++u) {
      const double weight = std::exp(-rate * (u * u + v * v)), sample = value(x + u, y + v);
      if (std::isnan(sample)) continue;  // outside
      sum += weight * sample;
      total += weight;
    }
  }
  return sum / total;
}

TEST(VectralPyramid, BandPassIsADifferenceOfGaussians) {
  TestTracker tracker;
  tracker.coarseBandpass = 1;
  tracker.start(SceneImage(160, 120, kIdentity));
  const Image& finer = tracker.baseImages[tracker.resoNum - 2];
  const Image& level = tracker.baseImages[tracker.resoNum - 1];
  ASSERT_EQ(level.format, IMAGE_INT32);
  const auto smooth = [&](int32_t x, int32_t y) {
    if (x < 0 || y < 0 || x >= level.width || y >= level.height) return std::nan("");
    const double mean = gaussMean(2 * x, 2 * y, 4, 1 / 8.0, [&](int32_t u, int32_t v) {
      return imageRow(&finer, std::clamp(v, 0, finer.height - 1))[std::clamp(u, 0, finer.width - 1)];
    });
    return std::floor(mean * 81 + 0.5);
  };
  for (int32_t y = 0; y < level.height; y += 3) {
    for (int32_t x = y % 2; x < level.width; x += 2) {
      const double want = smooth(x, y) - std::floor(gaussMean(x, y, 3, 2 / 9.0, smooth));
      ASSERT_NEAR(imageRow<int32_t>(&level, y)[x], want, 1) << x << ' ' << y;
    }
  }
  EXPECT_EQ(Vectral_buildPyramid(&tracker, tracker.curImages, 1), ZELVAN_ERROR_UNSUPPORTED);
}

TEST(VectralDump, AnotherTrackerGoesOnFromTheStream) {
  const SceneImage base(640, 480, kIdentity), frame(640, 480, sceneMotion(4, -6));
  for (const int32_t fullResolution : {0, 1}) {
    TestTracker writer, reader;
    for (TestTracker* tracker : {&writer, &reader}) {
      tracker->coarseChained = 0;
      tracker->fullResLsmType = MILSM_8ST;
      tracker->fullResEnabled = fullResolution;
      ASSERT_EQ(Vectral_init(tracker, 640, 480), ZELVAN_OK);
    }
    ASSERT_EQ(Vectral_setBaseImage(&writer, &base), ZELVAN_OK);
    reader.fullResEnabled = 0;  // comes with the stream
    int32_t size = 0;
    ASSERT_EQ(Vectral_getFeatDataSize(&writer, &size, 1), ZELVAN_OK);
    int32_t expected = 4 + 4 * writer.resoNum + (fullResolution != 0 ? 8 : 4) + 4;
    for (int32_t i = 0; i < writer.resoNum; ++i) expected += 140 * writer.fpLists[i].count;
    expected += fullResolution * 140 * writer.fullResFpList.count;
    const Image& coarsest = writer.baseImages[writer.resoNum - 1];
    const int32_t pixels = coarsest.width * coarsest.height;
    EXPECT_EQ(size, expected + (pixels + 3) / 4 * 4);
    std::vector<uint8_t> stream(size + 1, 0x77);
    ASSERT_EQ(Vectral_dumpFeatData(&writer, stream.data() + 1, 1), ZELVAN_OK);  // at an odd address
    EXPECT_EQ(std::memcmp(&stream[1 + expected], coarsest.plane0, pixels), 0);

    ASSERT_EQ(Vectral_loadFeatData(&reader, stream.data() + 1), ZELVAN_OK);
    EXPECT_EQ(reader.fullResEnabled, fullResolution);
    ASSERT_EQ(Vectral_addImage(&writer, &frame), ZELVAN_OK);
    ASSERT_EQ(Vectral_addImage(&reader, &frame), ZELVAN_OK);
    const Mvec8Real a = writer.output(), b = reader.output();
    EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
    EXPECT_EQ(reader.failureCode, writer.failureCode);

    const int32_t tooMany = reader.resoNum + 1;
    std::memcpy(stream.data() + 1, &tooMany, 4);
    EXPECT_EQ(Vectral_loadFeatData(&reader, stream.data() + 1), ZELVAN_ERROR_PARAM);
  }
}

TEST(VectralRecalc, SolvesTheInliersAgain) {
  TestTracker tracker;
  tracker.start(SceneImage(640, 480, kIdentity));
  const SceneImage frame(640, 480, sceneMotion(4, 2));
  ASSERT_EQ(Vectral_addImage(&tracker, &frame), ZELVAN_OK);
  Mvec8Real out = {};
  ASSERT_EQ(Vectral_recalcMvec(&tracker, &out, MILSM_8), ZELVAN_OK);
  EXPECT_LT(motionError(out, sceneMotion(4, 2), 640, 480), 0.4);
  const Mvec8Real before = out;
  std::fill_n(tracker.fpLists[0].inlier, tracker.fpLists[0].count, 0);
  EXPECT_EQ(Vectral_recalcMvec(&tracker, &out, MILSM_8ST), ZELVAN_OK);
  EXPECT_EQ(tracker.failureCode, uint32_t{VECTRAL_FAIL_SOLVER});
  EXPECT_NE(Vectral_recalcMvec(&tracker, &out, 6), ZELVAN_OK);
  EXPECT_EQ(std::memcmp(&out, &before, sizeof out), 0);
}

TEST(VectralYDiff, IsTheVarianceOfTheDifference) {
  TestTracker tracker;
  tracker.start(SceneImage(160, 120, kIdentity));
  const SceneImage frame(160, 120, sceneMotion(3, 2));
  ASSERT_EQ(Vectral_addImage(&tracker, &frame), ZELVAN_OK);
  const Image &base = tracker.baseImages[0], &cur = tracker.curImages[0];
  for (const auto& [dx, dy] : {std::pair{0, 0}, {-20, 7}}) {
    int64_t variance = 0, samples = 0;
    for (int32_t cell = 0; cell < 7 * 10; ++cell) {
      int64_t sum = 0, squares = 0, count = 0;
      for (int32_t i = 0; i < 256; ++i) {
        const int32_t x = cell % 10 * 16 + i % 16, y = cell / 10 * 16 + i / 16;
        if (x + dx < 0 || y + dy < 0 || x + dx >= 159 || y + dy >= 119) continue;
        const int32_t d = imageRow(&base, y)[x] - imageRow(&cur, y + dy)[x + dx];
        sum += d, squares += d * d, ++count;
      }
      if (count != 0) variance += squares - sum * sum / count;
      samples += count;
    }
    int32_t out = 0;
    const Mvec8Real motion = sceneMotion(dx, dy);
    ASSERT_EQ(Vectral_calcYDiff(&tracker, &out, &motion, 0, 16, 4), ZELVAN_OK);
    EXPECT_EQ(out, variance / samples) << dx;
  }
  int32_t out = 0;
  const Mvec8Real away = sceneMotion(500, 0);
  ASSERT_EQ(Vectral_calcYDiff(&tracker, &out, &away, 0, 16, 4), ZELVAN_OK);
  EXPECT_EQ(out, 0x40000000);
  EXPECT_EQ(Vectral_calcYDiff(&tracker, &out, &away, 0, 8, 4), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Vectral_calcYDiff(&tracker, &out, &away, tracker.resoNum, 8, 3), ZELVAN_ERROR_PARAM);
}

}  // namespace
