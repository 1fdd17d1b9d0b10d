#include "tracker/vectral.h"

#include <algorithm>

#include "support/test_executor.h"
#include "tracker/vectral_scene.h"
#include "tracker/vectral_util.h"

namespace {

const Mvec8Real kIdentity = sceneMotion(0, 0);

// The images that most tests share.
const SceneImage& baseImage() {
  static const SceneImage image(640, 480, kIdentity);
  return image;
}
const SceneImage& movedImage() {
  static const SceneImage image(640, 480, sceneMotion(5.5, -3.25));
  return image;
}

TEST(VectralTrack, RecoversKnownMotions) {
  const Mvec8Real tilted = {{1.002, 0.003, -4, -0.002, 0.998, 3, 6e-6, -4e-6, 1}, {}};
  for (const int32_t blockType : {0, 4}) {  // the hybrid type has blocks that match to whole pixels of level 0
    TestTracker tracker;
    tracker.blockType = blockType;
    tracker.resetMvecPerFrame = 1;
    tracker.start(baseImage());
    for (const Mvec8Real& truth :
         {sceneMotion(5.5, -3.25), sceneMotion(-7, 6, 0.6), sceneMotion(2, 1, -0.5, 1.012), tilted, kIdentity}) {
      const SceneImage frame(640, 480, truth);
      ASSERT_EQ(Vectral_addImage(&tracker, &frame), ZELVAN_OK);
      EXPECT_EQ(tracker.failureCode, 0u);
      EXPECT_LT(motionError(tracker.output(), truth, 640, 480), blockType == 0 ? 0.25 : 1.25);
    }
  }
}

TEST(VectralTrack, EverySolveModeHasItsPrecisionAndVerdict) {
  struct Case {
    int32_t mode;
    double limit;
    uint32_t failure;
    Status status;
  };
  // Modes that set no inlier flags always end with too few points.
  for (const Case& c : {Case{0, 2.5, 1, ZELVAN_OK}, Case{VECTRAL_SOLVE_WEIGHTED, 0.25, 0, ZELVAN_OK},
                        Case{VECTRAL_SOLVE_RANDOM_SAMPLE, 0.5, 1, ZELVAN_ERROR_UNSUPPORTED},
                        Case{VECTRAL_SOLVE_TWO_PASS, 0.25, 0, ZELVAN_OK},
                        Case{VECTRAL_SOLVE_HISTORY_WEIGHTED, 0.25, 1, ZELVAN_OK}, Case{9, 2.5, 1, ZELVAN_OK}}) {
    TestTracker tracker;
    tracker.solveMode = c.mode;
    tracker.blockType = 0;
    tracker.start(baseImage());
    const uint32_t seed = tracker.randomSeed;
    EXPECT_EQ(Vectral_addImage(&tracker, &movedImage()), c.status) << c.mode;
    EXPECT_EQ(tracker.failureCode, c.failure) << c.mode;
    EXPECT_LT(motionError(tracker.output(), sceneMotion(5.5, -3.25), 640, 480), c.limit) << c.mode;
    EXPECT_EQ(tracker.randomSeed != seed, c.mode == VECTRAL_SOLVE_RANDOM_SAMPLE);
  }
}

TEST(VectralTrack, SameBitsForAnyNumberOfWorkers) {
  Mvec8Real expected = {};
  for (const int32_t workers : {0, 1, 3}) {
    TestExecutor pool(std::max(workers, 1));
    TestTracker tracker;
    tracker.maxFeatPnt = 256;  // enough for forked updates
    tracker.normalizeBase = 1;
    tracker.executor = workers > 0 ? pool.get() : nullptr;
    tracker.start(baseImage());
    ASSERT_EQ(Vectral_addImage(&tracker, &movedImage()), ZELVAN_OK);
    const Mvec8Real motion = tracker.output();
    if (workers == 0) expected = motion;
    EXPECT_EQ(std::memcmp(&motion, &expected, sizeof motion), 0) << workers;
    EXPECT_LT(motionError(motion, sceneMotion(5.5, -3.25), 640, 480), 1.25);
  }
}

TEST(VectralTrack, CoarseSearchFindsLargeShifts) {
  for (const int32_t chained : {0, 1}) {
    TestTracker tracker;
    tracker.coarseRange = 8192;
    tracker.coarseChained = chained;
    tracker.start(baseImage());
    for (const Mvec8Real& truth : {sceneMotion(64, -40), sceneMotion(20, 10)}) {
      const SceneImage frame(640, 480, truth);
      ASSERT_EQ(Vectral_addImage(&tracker, &frame), ZELVAN_OK);
      EXPECT_EQ(tracker.failureCode, 0u) << chained;
      EXPECT_LT(motionError(tracker.output(), truth, 640, 480), 1.25) << chained;
    }
  }
}

TEST(VectralTrack, FrameOfAnotherSizeIsShrunkToTheSameLevels) {
  TestExecutor pool(1);
  for (const double step : {2.0, 4.0 / 3, 2.0 / 3}) {  // by ratios 1, 1.5, 3
    TestTracker tracker;
    tracker.executor = pool.get();
    tracker.start(baseImage());
    const SceneImage frame(static_cast<int32_t>(640 / step), static_cast<int32_t>(480 / step), kIdentity, step);
    ASSERT_EQ(Vectral_addImage(&tracker, &frame), ZELVAN_OK);
    EXPECT_EQ(tracker.curImages[0].width, 320);
    EXPECT_LT(motionError(tracker.output(), kIdentity, 640, 480), 2.0) << step;  // the taps stand elsewhere
  }
}

TEST(VectralTrack, VerdictsOnPoorImages) {
  TestImage flat(640, 480, IMAGE_UINT8);
  fillFlat(flat, 90);
  TestTracker tracker;
  tracker.start(baseImage());
  ASSERT_EQ(Vectral_addImage(&tracker, &flat), ZELVAN_OK);
  EXPECT_NE(tracker.failureCode & VECTRAL_FAIL_FEW_POINTS, 0u);
  tracker.resetMvecPerFrame = 1;
  tracker.minStrengthStat = 1 << 20;
  tracker.coarseLimit = 0;
  ASSERT_EQ(Vectral_addImage(&tracker, &baseImage()), ZELVAN_OK);
  EXPECT_EQ(tracker.failureCode, uint32_t{VECTRAL_FAIL_LOW_STRENGTH | VECTRAL_FAIL_COARSE});
  uint32_t code = 0;
  EXPECT_EQ(Vectral_getFailureCode(&tracker, &code), ZELVAN_OK);
  EXPECT_EQ(code, tracker.failureCode);
  tracker.failureEnabled = 0;
  Vectral_getFailureCode(&tracker, &code);
  EXPECT_EQ(code, 0u);

  ASSERT_EQ(Vectral_setBaseImage(&tracker, &flat), ZELVAN_OK);
  EXPECT_EQ(tracker.failureCode, uint32_t{VECTRAL_FAIL_FEW_POINTS});
  EXPECT_EQ(tracker.randomSeed, 90u * 0x01010101u);
  tracker.coarseMode = 0;
  ASSERT_EQ(Vectral_addImage(&tracker, &baseImage()), ZELVAN_OK);
  EXPECT_EQ(tracker.failureCode, uint32_t{VECTRAL_FAIL_FEW_POINTS});
  EXPECT_LT(motionError(tracker.output(), kIdentity, 640, 480), 1e-9);
  EXPECT_EQ(tracker.levelStats[0], 0);
}

TEST(VectralTrack, TableModeSeesTheFrameAsIfMapped) {
  TestTracker lazy, mapped;
  for (TestTracker* tracker : {&lazy, &mapped}) {
    tracker->minResoArea = 9000;  // level 0 and the coarsest one, which is not tracked
    tracker->blockType = 3;
    tracker->start(baseImage());
    ASSERT_EQ(tracker->resoNum, 2);
    ASSERT_EQ(Vectral_addImage(tracker, &movedImage()), ZELVAN_OK);  // fills the levels of the frame
  }
  lazy.lutMode = 1;
  for (int32_t i = 0; i < 256; ++i) lazy.lut[i] = std::clamp(i + i / 8 - 20, 0, 255);
  vectralMapImage(&mapped.curImages[0], &mapped.curImages[0], lazy.lut);
  ASSERT_EQ(Vectral_addImage(&lazy, nullptr), ZELVAN_OK);
  ASSERT_EQ(Vectral_addImage(&mapped, nullptr), ZELVAN_OK);
  const VectralFPList &a = lazy.fpLists[0], &b = mapped.fpLists[0];
  int32_t compared = 0;
  for (int32_t i = 0; i < a.count; ++i) {
    const int32_t x = a.baseX[i], y = a.baseY[i];
    if (x < 16 || y < 16 || x >= 304 || y >= 224) continue;  // the patch ends where the image ends
    EXPECT_EQ(a.curX[i], b.curX[i]);
    EXPECT_EQ(a.curY[i], b.curY[i]);
    EXPECT_EQ(a.strength[i], b.strength[i]);
    ++compared;
  }
  EXPECT_GT(compared, 50);
  EXPECT_LT(motionError(lazy.output(), sceneMotion(5.5, -3.25), 640, 480), 2.0);

  ASSERT_EQ(Vectral_addImage(&lazy, &movedImage()), ZELVAN_OK);  // measures level 0
  int32_t mean, deviation;
  vectralImageStatistics(&lazy.curImages[0], &mean, &deviation);
  EXPECT_EQ(lazy.lutMean, mean);
  EXPECT_EQ(lazy.lut[std::clamp(mean, 0, 255)], 128);
}

TEST(VectralTrack, FullResolutionStageTracksTheUnshrunkFrame) {
  TestTracker tracker;
  tracker.fullResEnabled = 1;
  tracker.fullResLsmType = MILSM_8ST;
  tracker.fullResBlockRange[1] = 3;  // the prediction is a quarter of the shift
  tracker.start(baseImage());
  const SceneImage frame(640, 480, sceneMotion(2, 0));
  ASSERT_EQ(Vectral_addImage(&tracker, &frame), ZELVAN_OK);
  EXPECT_EQ(tracker.fullResValid, 1);
  const Mvec8Real motion = tracker.output();
  EXPECT_LT(motionError(motion, sceneMotion(2, 0), 640, 480), 0.1);
  EXPECT_EQ(std::memcmp(&motion, &tracker.fullResMvec, sizeof motion), 0);
  double a, b, c;
  Mvec8Real_estimateRotationAngle(&a, &b, &c, &motion, 640, 480, tracker.fieldOfView);
  EXPECT_EQ(motion.angles[0], a);
  EXPECT_EQ(motion.angles[2], c);

  ASSERT_EQ(Vectral_addImage(&tracker, nullptr), ZELVAN_OK);
  EXPECT_EQ(tracker.fullResValid, 0);
  EXPECT_LT(motionError(tracker.output(), sceneMotion(2, 0), 640, 480), 0.4);
  tracker.solveMode = VECTRAL_SOLVE_ALL_LEVELS;
  EXPECT_EQ(Vectral_addImage(&tracker, &frame), ZELVAN_ERROR_UNSUPPORTED);
  EXPECT_EQ(tracker.fullResValid, 0);
}

// Ideal positions stand three pixels to the right of measured ones.
struct ShiftLens {
  double width, height, scale;
  static void undistort(void* self, double* outX, double* outY, double x, double y, double width, double height,
                        double scale) {
    *static_cast<ShiftLens*>(self) = {width, height, scale};
    *outX = x + 3;
    *outY = y;
  }
  static void distort(void*, double* outX, double* outY, double x, double y, double, double, double) {
    *outX = x - 3;
    *outY = y;
  }
};

TEST(VectralTrack, PositionsPassThroughTheLens) {
  ShiftLens lens = {};
  TestTracker tracker;
  tracker.start(baseImage());
  tracker.lensContext = &lens;
  tracker.lensUndistort = ShiftLens::undistort;
  tracker.lensDistort = ShiftLens::distort;
  ASSERT_EQ(Vectral_addImage(&tracker, &movedImage()), ZELVAN_OK);
  EXPECT_EQ(tracker.failureCode, 0u);
  EXPECT_LT(motionError(tracker.output(), sceneMotion(5.5, -3.25), 640, 480), 2.0);  // whole pixels of level 0
  EXPECT_EQ(lens.width, 320);
  EXPECT_EQ(lens.height, 240);
  EXPECT_NEAR(lens.scale, 1 / 200.0, 1e-12);
}

TEST(VectralState, CallsOutOfOrderAreRefused) {
  TestTracker tracker;
  const SceneImage frame(160, 120, kIdentity);
  Mvec8Real motion = kIdentity;
  int32_t q15[9] = {};
  const auto expectAll = [&](Status early, Status late) {
    EXPECT_EQ(Vectral_outputMvecReal(&tracker, &motion), early);
    EXPECT_EQ(Vectral_setState(&tracker, nullptr, &motion), early);
    EXPECT_EQ(Vectral_addImage(&tracker, &frame), late);
    EXPECT_EQ(Vectral_outputMvec(&tracker, q15), late);
    EXPECT_EQ(Vectral_getFeatDataSize(&tracker, q15, 0), late);
  };
  EXPECT_EQ(Vectral_setBaseImage(&tracker, &frame), ZELVAN_ERROR_STATE);
  EXPECT_EQ(Vectral_loadFeatData(&tracker, q15), ZELVAN_ERROR_STATE);
  expectAll(ZELVAN_ERROR_STATE, ZELVAN_ERROR_STATE);
  EXPECT_EQ(tracker.failureCode, 0x40000000u);
  tracker.rect = {50, 0, 50, 90};
  ASSERT_EQ(Vectral_init(&tracker, 160, 120), ZELVAN_OK);
  EXPECT_EQ(tracker.rect.right, 160);
  expectAll(ZELVAN_OK, ZELVAN_ERROR_STATE);
  ASSERT_EQ(Vectral_setBaseImage(&tracker, &frame), ZELVAN_OK);
  expectAll(ZELVAN_OK, ZELVAN_OK);
  EXPECT_EQ(Vectral_outputMvec(&tracker, nullptr), ZELVAN_ERROR_PARAM);

  // Too small for one level: cleared, and every later call finds nothing to work on.
  tracker.rect = {};
  EXPECT_EQ(Vectral_init(&tracker, 40, 30), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(tracker.state, VECTRAL_BASED);
  EXPECT_EQ(Vectral_addImage(&tracker, &frame), ZELVAN_ERROR_STATE);
  EXPECT_EQ(Vectral_setBaseImage(&tracker, &frame), ZELVAN_ERROR_STATE);
  EXPECT_EQ(Vectral_recalcMvec(&tracker, &motion, MILSM_8ST), ZELVAN_ERROR_STATE);
}

TEST(VectralState, OutputAndSetStateAreInverse) {
  TestTracker tracker;
  tracker.rect = {20, 10, 620, 470};
  tracker.start(baseImage());
  const Mvec8Real wanted = sceneMotion(12.5, -7.25, 1.5, 1.02);
  ASSERT_EQ(Vectral_setState(&tracker, nullptr, &wanted), ZELVAN_OK);
  EXPECT_LT(motionError(tracker.output(), wanted, 640, 480), 1e-9);
  tracker.mvec = {{1, -0.5, 1.25 / 32768, 0.75 / 32768, -0.25 / 32768, -0.75 / 32768, 0.5 / 32768, 0, 1e9}, {}};
  int32_t q15[9];
  ASSERT_EQ(Vectral_outputMvec(&tracker, q15), ZELVAN_OK);
  const int32_t rounded[9] = {32768, -16384, 1, 1, 0, -1, 1, 0, INT32_MAX};
  EXPECT_EQ(std::memcmp(q15, rounded, sizeof rounded), 0);
}

TEST(VectralState, ExhaustedArenaNeitherCrashesNorLeaks) {
  const SceneImage frame(160, 120, sceneMotion(1, 1));
  int32_t refused = 0, trackedWell = 0;
  for (uint32_t size = 600; trackedWell == 0 && size < (4u << 20); size += 1504) {
    TestArena arena(size);
    Vectral tracker;
    construct_Vectral(&tracker, arena.env());
    tracker.minResoArea = 1000;
    tracker.maxFeatPnt = 96;
    tracker.solveMode = VECTRAL_SOLVE_TWO_PASS;
    tracker.lsmType = MILSM_8ST;
    tracker.coarseBandpass = 1;
    tracker.fullResEnabled = 1;
    tracker.fullResLsmType = MILSM_8ST;
    Status status = Vectral_init(&tracker, 160, 120);
    if (status != ZELVAN_OK) {
      EXPECT_EQ(status & ZELVAN_ERROR_NOMEM, ZELVAN_ERROR_NOMEM) << size;
      EXPECT_EQ(tracker.state, VECTRAL_NEW);
      EXPECT_EQ(tracker.resoNum, 0);
      ++refused;
    } else {
      status |= Vectral_setBaseImage(&tracker, &frame);
      status |= Vectral_addImage(&tracker, &frame);
      status |= Vectral_addImage(&tracker, &frame);
      trackedWell = status == ZELVAN_OK;
    }
    EXPECT_EQ(destruct_Vectral(&tracker), ZELVAN_OK);
  }
  EXPECT_GT(refused, 10);
  EXPECT_EQ(trackedWell, 1);
}

}  // namespace
