#include "tracker/vectral.h"

#include <functional>

#include "tracker/vectral_scene.h"

namespace {

// The images that most tests share.
const SceneImage& baseImage() {
  static const SceneImage image(640, 480, kIdentity);
  return image;
}
const Mvec8Real kMoved = sceneMotion(5.5, -3.25);

const SceneImage& movedImage() {
  static const SceneImage image(640, 480, kMoved);
  return image;
}
Status addScene(Vectral* tracker, const Mvec8Real& motion) {
  const SceneImage frame(640, 480, motion);
  return Vectral_addImage(tracker, &frame);
}

TEST(VectralTrack, EverySolverRecoversMotionsOfItsModel) {
  const Mvec8Real tilted = {{1.002, 0.003, -4, -0.002, 0.998, 3, 6e-6, -4e-6, 1}, {}};
  const Mvec8Real rigid = sceneMotion(-7, 6, 0.6), zoomed = sceneMotion(2, 1, -0.5, 1.012);
  Mvec8Real turned = {{}, {0.009, -0.006, 0.012}};
  Mvec8Real_setRotationAngle(&turned, 0.009, -0.006, 0.012, 640, 480, 61.0, 0);
  struct {
    int32_t type, blockType;  // hybrid blocks match to whole pixels of level 0
    std::vector<Mvec8Real> truths;
  } const cases[] = {
      {MILSM_3R, 0, {kMoved, rigid}},   {MILSM_4, 0, {kMoved, zoomed}},
      {MILSM_8, 0, {zoomed, tilted}},   {MILSM_8ST, 0, {kMoved, rigid, zoomed, turned, tilted}},
      {MILSM_8R, 0, {turned}},          {MILSM_8R_FIXED_POINT, 0, {turned}},
      {MILSM_8ST, 4, {kMoved, tilted}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    TestTracker tracker;
    tracker.blockType = c.blockType;
    tracker.lsmType = c.type;
    tracker.resetMvecPerFrame = 1;
    tracker.start(baseImage());
    for (const Mvec8Real& truth : c.truths) {
      ASSERT_EQ(addScene(&tracker, truth), ZELVAN_OK);
      EXPECT_EQ(tracker.failureCode, 0u);
      EXPECT_LT(motionError(tracker.output(), truth), c.blockType == 0 ? 0.25 : 1.25);
      for (int i = 0; i < 3; ++i) {
        const bool hasAngles = c.type == MILSM_8R || c.type == MILSM_8R_FIXED_POINT;
        EXPECT_NEAR(tracker.output().angles[i], hasAngles ? turned.angles[i] : 0.0, 3e-4);
      }
    }
  }
}

// A barrel lens: an ideal radius is (1 + k r^2) times the measured radius r, in half diagonals from the centre.
void undistortBarrel(void* k, double* outX, double* outY, double x, double y, double w, double h, double scale) {
  EXPECT_NEAR(scale, 2 / std::hypot(w, h), 1e-12);
  const double dx = x - w / 2, dy = y - h / 2;
  const double factor = 1 + *static_cast<double*>(k) * (dx * dx + dy * dy) * scale * scale;
  *outX = w / 2 + dx * factor;
  *outY = h / 2 + dy * factor;
}
void distortBarrel(void* k, double* outX, double* outY, double x, double y, double w, double h, double scale) {
  double u = x, v = y;
  for (int i = 0; i < 40; ++i) {
    double backX, backY;
    undistortBarrel(k, &backX, &backY, u, v, w, h, scale);
    u += x - backX;
    v += y - backY;
  }
  *outX = u, *outY = v;
}

TEST(VectralTrack, LensFunctionsTakeTheCurvatureOutOfTheMotion) {
  double k = 0.2;
  const Mvec8Real truth = sceneMotion(14, -10);
  const auto draw = [&](Image* image, const Mvec8Real& motion) {
    Mvec8Real back;
    Mvec8Real_inv(&back, &motion);
    drawPixels(image, [&](double x, double y) {
      double u, v;
      undistortBarrel(&k, &u, &v, x, y, 640, 480, 1 / 400.0);
      const auto p = movedPoint(back, u, v);
      return sceneAt(p[0], p[1]);
    });
  };
  TestImage base(640, 480, IMAGE_UINT8), frame(640, 480, IMAGE_UINT8);
  draw(&base, kIdentity);
  draw(&frame, truth);
  double errors[2];
  for (const int corrected : {0, 1}) {
    TestTracker tracker;
    tracker.blockType = 0;
    if (corrected != 0) {
      tracker.lensContext = &k;
      tracker.lensUndistort = undistortBarrel;
      tracker.lensDistort = distortBarrel;
    }
    tracker.start(base);
    ASSERT_EQ(Vectral_addImage(&tracker, &frame), ZELVAN_OK);
    EXPECT_EQ(tracker.failureCode, 0u) << corrected;
    errors[corrected] = motionError(tracker.output(), truth);
  }
  EXPECT_LT(errors[1], 2.5) << "current positions come in whole pixels of level 0";
  EXPECT_GT(errors[0], 2 * errors[1]);
}

TEST(VectralTrack, SettingsKeepTheirPrecisionAndVerdict) {
  TestExecutor one(1), three(3);
  struct Case {
    std::function<void(Vectral*)> set;
    double limit;  // of the error, in pixels of the frame; whole pixels of level 0 are 2
    uint32_t failure = 0;
    Status status = ZELVAN_OK;
  };
  const auto mode = [](int32_t value) { return [=](Vectral* v) { v->solveMode = value, v->blockType = 0; }; };
  const Case cases[] = {
      // Modes that set no inlier flags always end with too few points.
      {mode(0), 2.5, VECTRAL_FAIL_FEW_POINTS},
      {mode(VECTRAL_SOLVE_WEIGHTED), 0.25},
      {mode(VECTRAL_SOLVE_RANDOM_SAMPLE), 0.5, VECTRAL_FAIL_FEW_POINTS, ZELVAN_ERROR_UNSUPPORTED},
      {mode(VECTRAL_SOLVE_TWO_PASS), 0.25},
      {mode(VECTRAL_SOLVE_HISTORY_WEIGHTED), 0.25, VECTRAL_FAIL_FEW_POINTS},
      {[](Vectral* v) { v->coarseMode = -1; }, 1.25},
      {[](Vectral* v) { v->coarseMode = 0; }, 1.25},
      {[](Vectral* v) { v->coarseChained = 0, v->coarseRange = 8192; }, 1.25},
      {[](Vectral* v) { v->coarseRange = 8192; }, 1.25},
      {[](Vectral* v) { v->coarseBandpass = 1; }, 1.25},
      {[](Vectral* v) { v->lutMode = 1; }, 2.0},  // the base's blocks are not mapped
      {[](Vectral* v) { v->minStrengthStat = 1 << 20; }, 1.25, VECTRAL_FAIL_LOW_STRENGTH},
      {[](Vectral* v) { v->coarseLimit = 0; }, 1.25, VECTRAL_FAIL_COARSE},
      {[](Vectral* v) { v->maxFeatPnt = 256, v->normalizeBase = 1; }, 1.25},  // enough points for forked updates
      {[&](Vectral* v) { v->maxFeatPnt = 256, v->normalizeBase = 1, v->executor = one.get(); }, 1.25},
      {[&](Vectral* v) { v->maxFeatPnt = 256, v->normalizeBase = 1, v->executor = three.get(); }, 1.25},
  };
  std::vector<Mvec8Real> motions;
  for (const Case& c : cases) {
    TestTracker tracker;
    c.set(&tracker);
    tracker.start(baseImage());
    const uint32_t seed = tracker.randomSeed;
    EXPECT_EQ(Vectral_addImage(&tracker, &movedImage()), c.status) << &c - cases;
    EXPECT_EQ(tracker.failureCode, c.failure) << &c - cases;
    EXPECT_EQ(tracker.randomSeed != seed, tracker.solveMode == VECTRAL_SOLVE_RANDOM_SAMPLE);
    motions.push_back(tracker.output());
    EXPECT_LT(motionError(motions.back(), kMoved), c.limit) << &c - cases;
    uint32_t code = 9;
    tracker.failureEnabled = 0;
    EXPECT_EQ(Vectral_getFailureCode(&tracker, &code), ZELVAN_OK);
    EXPECT_EQ(code, 0u);
  }
  for (size_t n = motions.size(), i = n - 2; i < n; ++i) {
    EXPECT_EQ(std::memcmp(&motions[i], &motions[n - 3], sizeof(Mvec8Real)), 0) << "any number of workers";
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
    EXPECT_LT(motionError(tracker.output(), kIdentity), 2.0) << step;  // the taps stand elsewhere
  }
}

TEST(VectralTrack, FlatImagesGiveTooFewPoints) {
  TestImage flat(640, 480, IMAGE_UINT8);
  drawPixels(&flat, [](int32_t, int32_t) { return 90; });
  TestTracker tracker;
  tracker.start(baseImage());
  EXPECT_EQ(Vectral_addImage(&tracker, &flat), ZELVAN_OK);
  EXPECT_NE(tracker.failureCode & VECTRAL_FAIL_FEW_POINTS, 0u);
  EXPECT_EQ(Vectral_setBaseImage(&tracker, &flat), ZELVAN_OK);
  EXPECT_EQ(tracker.failureCode, uint32_t{VECTRAL_FAIL_FEW_POINTS});
  EXPECT_EQ(tracker.randomSeed, 90u * 0x01010101u);
  EXPECT_EQ(Vectral_addImage(&tracker, &baseImage()), ZELVAN_OK);
  EXPECT_EQ(tracker.failureCode, uint32_t{VECTRAL_FAIL_FEW_POINTS});
  EXPECT_LT(motionError(tracker.output(), kIdentity), 1e-9);
}

TEST(VectralState, AnotherTrackerGoesOnFromTheStream) {
  const Mvec8Real truth = sceneMotion(2, 0);
  for (const int32_t fullResolution : {0, 1}) {
    TestTracker writer, reader;
    for (TestTracker* tracker : {&writer, &reader}) {
      tracker->coarseChained = 0;
      tracker->fullResEnabled = fullResolution;
      tracker->fullResBlockRange[1] = 3;  // the prediction is a quarter of the shift
      ASSERT_EQ(Vectral_init(tracker, 640, 480), ZELVAN_OK);
    }
    ASSERT_EQ(Vectral_setBaseImage(&writer, &baseImage()), ZELVAN_OK);
    reader.fullResEnabled = 0;  // comes with the stream
    int32_t size = 0, expected = 4 + 4 * writer.resoNum + (fullResolution != 0 ? 8 : 4) + 4;
    ASSERT_EQ(Vectral_getFeatDataSize(&writer, &size, 1), ZELVAN_OK);
    for (int32_t i = 0; i < writer.resoNum; ++i) expected += 140 * writer.fpLists[i].count;
    expected += fullResolution * 140 * writer.fullResFpList.count;
    const Image& coarsest = writer.baseImages[writer.resoNum - 1];
    const int32_t pixels = coarsest.width * coarsest.height;
    EXPECT_EQ(size, expected + (pixels + 3) / 4 * 4);
    std::vector<uint8_t> stream(size + 1, 0x77);
    ASSERT_EQ(Vectral_dumpFeatData(&writer, stream.data() + 1, 1), ZELVAN_OK);  // at an odd address
    EXPECT_EQ(std::memcmp(&stream[1 + expected], coarsest.plane0, pixels), 0);
    ASSERT_EQ(Vectral_loadFeatData(&reader, stream.data() + 1), ZELVAN_OK);
    ASSERT_EQ(addScene(&writer, truth) | addScene(&reader, truth), ZELVAN_OK);
    const Mvec8Real a = writer.output(), b = reader.output();
    EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
    EXPECT_LT(motionError(a, truth), fullResolution != 0 ? 0.1 : 0.4);
    EXPECT_EQ(reader.fullResValid, fullResolution);
    reader.solveMode = VECTRAL_SOLVE_ALL_LEVELS;
    EXPECT_EQ(addScene(&reader, truth), fullResolution != 0 ? ZELVAN_ERROR_UNSUPPORTED : ZELVAN_OK);
    stream[1] = 99;  // levels
    EXPECT_EQ(Vectral_loadFeatData(&reader, stream.data() + 1), ZELVAN_ERROR_PARAM);
  }
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
  expectAll(ZELVAN_ERROR_STATE, ZELVAN_ERROR_STATE);
  EXPECT_EQ(tracker.failureCode, 0x40000000u);
  tracker.rect = {50, 0, 50, 90};
  ASSERT_EQ(Vectral_init(&tracker, 160, 120), ZELVAN_OK);
  EXPECT_EQ(tracker.rect.right, 160);
  expectAll(ZELVAN_OK, ZELVAN_ERROR_STATE);
  ASSERT_EQ(Vectral_setBaseImage(&tracker, &frame), ZELVAN_OK);
  expectAll(ZELVAN_OK, ZELVAN_OK);
  // Too small for one level: cleared, and later calls find nothing to work on.
  tracker.rect = {};
  EXPECT_EQ(Vectral_init(&tracker, 40, 30), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(tracker.state, VECTRAL_BASED);
  EXPECT_EQ(Vectral_addImage(&tracker, &frame) & Vectral_setBaseImage(&tracker, &frame), ZELVAN_ERROR_STATE);
}

TEST(VectralState, MotionsComeOutAndGoBack) {
  TestTracker tracker;
  tracker.rect = {20, 10, 620, 470};
  tracker.start(baseImage());
  ASSERT_EQ(Vectral_addImage(&tracker, &movedImage()), ZELVAN_OK);
  Mvec8Real again;
  ASSERT_EQ(Vectral_recalcMvec(&tracker, &again, MILSM_8), ZELVAN_OK);
  EXPECT_LT(motionError(again, kMoved), 1.25);
  std::fill_n(tracker.fpLists[0].inlier, tracker.fpLists[0].count, 0);
  EXPECT_EQ(Vectral_recalcMvec(&tracker, &again, MILSM_8ST), ZELVAN_OK);
  EXPECT_EQ(tracker.failureCode, uint32_t{VECTRAL_FAIL_SOLVER});
  EXPECT_LT(motionError(again, kMoved), 1.25) << "left alone";

  const Mvec8Real wanted = sceneMotion(12.5, -7.25, 1.5, 1.02);
  ASSERT_EQ(Vectral_setState(&tracker, nullptr, &wanted), ZELVAN_OK);
  EXPECT_LT(motionError(tracker.output(), wanted), 1e-9);
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
    TestTracker tracker(size);
    tracker.minResoArea = 1000;
    tracker.coarseBandpass = 1;
    tracker.fullResEnabled = 1;
    Status status = Vectral_init(&tracker, 160, 120);
    if (status != ZELVAN_OK) {
      EXPECT_EQ(status & ZELVAN_ERROR_NOMEM, ZELVAN_ERROR_NOMEM) << size;
      EXPECT_EQ(tracker.state, VECTRAL_NEW);
      EXPECT_EQ(tracker.resoNum, 0);
      ++refused;
      continue;
    }
    status |= Vectral_setBaseImage(&tracker, &frame);
    status |= Vectral_addImage(&tracker, &frame);
    status |= Vectral_addImage(&tracker, &frame);
    trackedWell = status == ZELVAN_OK;
  }
  EXPECT_GT(refused, 10);
  EXPECT_EQ(trackedWell, 1);
}

TEST(VectralParts, CoarseSearchFindsTheLeastMeanDifference) {
  TestTracker tracker;
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

TEST(VectralParts, BandPassKeepsSpots) {
  TestTracker tracker;
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

TEST(VectralParts, ResidualIsTheVarianceOfTheDifference) {
  TestTracker tracker;
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
