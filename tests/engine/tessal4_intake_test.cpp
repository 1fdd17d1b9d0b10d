#include <limits>

#include "engine/engine_rig.h"
#include "support/golden.h"
#include "support/test_executor.h"
#include "support/test_pel.h"

namespace test {
namespace {

Mvec8Real shiftBy(double x, double y) {
  return {{1, 0, x, 0, 1, y, 0, 0, 1}, {}};
}

TEST(Tessal4Intake, StoresAShrunkCopyWithItsScore) {
  for (int32_t width : {168, 170}) {  // four times the stored width, and not
    Tessal4Params params = defaultParams(width, 128);
    params.storeShrinkLevel = 2;
    EngineRig engine(width, 128, 2, params);
    engine.paint(0, 0, 0);
    ASSERT_EQ(Tessal4_setImage(engine.get(), &engine.frames[0], 1), ZELVAN_OK);
    expectGolden("kernels.txt", "intake." + std::to_string(width),
                 Hash().image(engine->shrunk[1]).bytes(engine->blurScore, sizeof(engine->blurScore)));
    EXPECT_EQ(engine->addedCount, 1);
  }
}

// Inscribed rectangle of the frame as it lies over the reference, 640 x 480.
TEST(Tessal4Intake, OverlapIsTheInscribedRectangle) {
  constexpr int32_t kMost = std::numeric_limits<int32_t>::max();
  constexpr int32_t kLeast = std::numeric_limits<int32_t>::min();
  using Rect = std::array<int32_t, 4>;  // left, top, right, bottom
  const struct {
    Mvec8Real motion;
    Rect rect;
    int32_t usable;
  } cases[] = {
      {shiftBy(0, 0), {0, 0, 640, 480}, 1},
      {shiftBy(32, 0), {0, 0, 608, 480}, 1},  // exactly 95 %
      {shiftBy(33, 0), {0, 0, 607, 480}, 0},
      {shiftBy(-10.75, 7.25), {10, 0, 640, 472}, 1},
      {shiftBy(0, -24.5), {0, 24, 640, 480}, 1},
      {shiftBy(0, -25), {0, 25, 640, 480}, 0},
      {shiftBy(700, 0), {0, 0, -60, 480}, 0},
      {{{2, 0, 0, 0, 2, 0, 0, 0, 2}, {}}, {0, 0, 640, 480}, 1},               // scale has no meaning
      {{{0.5, 0, 0, 0, 0.5, 0, 0, 0, 1}, {}}, {0, 0, 640, 480}, 1},           // the frame reaches beyond
      {{{-1, 0, 640, 0, 1, 0, 0, 0, 1}, {}}, {640, 0, 0, 480}, 0},            // mirrored
      {{{1, 0.0625, 0, 0, 1, 0, 0, 0, 1}, {}}, {0, 0, 610, 480}, 1},          // sheared: the lower corners move by -30
      {{{-1e-8, 0, 300, 0, 1, 0, 0, 0, 1}, {}}, {kMost, 0, kLeast, 480}, 0},  // far beyond the range of integers
  };
  EngineRig engine(640, 480, 1, defaultParams(640, 480));
  for (const auto& c : cases) {
    ImageRect rect = {};
    EXPECT_EQ(Tessal4_isMotionUsable(engine.get(), &rect, &c.motion), c.usable) << &c - cases;
    EXPECT_EQ((Rect{rect.left, rect.top, rect.right, rect.bottom}), c.rect) << &c - cases;
  }
}

TEST(Tessal4Intake, OrderIsByScoreThenByCapture) {
  struct {
    std::vector<int32_t> scores, failed, lost, order, sorted;
    int32_t best;
  } const cases[] = {
      {{5, 9, 9, 2}, {}, {}, {1, 2, 0, 3}, {9, 9, 5, 2}, 1},
      {{0, 0, 0, 0}, {}, {}, {0, 1, 2, 3}, {0, 0, 0, 0}, 0},
      {{5, 9, 8, 2}, {1}, {}, {2, 0, 3, 1}, {8, 5, 2, 0}, 2},
      {{5, 9, 8, 2}, {1}, {2}, {0, 3, 1, 2}, {5, 2, 0, 0}, 0},
      {{9, 7, 8, 2}, {0}, {}, {2, 1, 3, 0}, {8, 7, 2, 0}, 0},  // the single answer never tests frame 0
      {{1, 1000000000, 2000000000, 2147483647}, {}, {}, {3, 2, 1, 0}, {2147483647, 2000000000, 1000000000, 1}, 3},
  };
  for (const auto& c : cases) {
    EngineRig engine(160, 120, 4, defaultParams(160, 120));
    std::copy(c.scores.begin(), c.scores.end(), engine->blurScore);
    for (int32_t id : c.failed) engine->trackFailure[id] = 4;
    for (int32_t id : c.lost) engine->motions[id] = shiftBy(0, 90);
    std::vector<int32_t> order(4), scores(4);
    EXPECT_EQ(Tessal4_getRecommendedOrder(engine.get(), order.data(), scores.data()), ZELVAN_OK);
    EXPECT_EQ(order, c.order);
    EXPECT_EQ(scores, c.sorted);
    EXPECT_EQ(Tessal4_getRecommendedOrder(engine.get(), nullptr, nullptr), ZELVAN_OK);
    int32_t best = -1;
    EXPECT_EQ(Tessal4_getRecommendedID(engine.get(), &best), ZELVAN_OK);
    EXPECT_EQ(best, c.best);

    std::vector<void*> blocks;  // no room for the keys
    while (void* block = Heap2_malloc(&engine.env()->heap, 64)) blocks.push_back(block);
    order.assign(4, 77);
    EXPECT_EQ(Tessal4_getRecommendedOrder(engine.get(), order.data(), nullptr), ZELVAN_ERROR_NOMEM);
    EXPECT_EQ(order, std::vector<int32_t>(4, 77));
    for (void* block : blocks) Heap2_free(&engine.env()->heap, block);
  }
}

// Both roads measure the known shifts against frame 1, whatever the stored size; a frame without content is refused.
TEST(Tessal4Intake, SolveFindsTheShiftsOnBothRoads) {
  TestExecutor executor(2);
  TestPel pel(2);
  const double shifts[][2] = {{0, 0}, {4, -2}, {-2, 6}};  // whole also at half size, since the scene has hard edges
  for (bool atIntake : {false, true}) {
    for (int32_t level : {0, 1}) {
      Tessal4Params params = defaultParams(640, 480);
      params.storeShrinkLevel = level;
      EngineRig engine(640, 480, 4, params, executor.get(), pel.get());
      for (int32_t i = 0; i < 4; ++i) {
        if (i < 3) engine.paint(i, shifts[i][0], shifts[i][1], 2.0);
        ASSERT_EQ(atIntake ? Tessal4_addImage(engine.get(), &engine.frames[i])
                           : Tessal4_setImage(engine.get(), &engine.frames[i], i),
                  ZELVAN_OK);
      }
      EXPECT_EQ(engine->trackedAtIntake, atIntake);
      EXPECT_EQ(Tessal4_addImage(engine.get(), &engine.frames[0]), ZELVAN_ERROR_STATE);
      ASSERT_EQ(Tessal4_solve(engine.get(), 1), ZELVAN_OK);
      for (int32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(engine->trackFailure[i] != 0, i == 3);
        EXPECT_EQ(engine->motionInvalid[i], i == 3);
        double x = 0, y = 0;
        Mvec8Real_trans2DReal(&engine->motions[i], &x, &y, 320, 240);
        EXPECT_NEAR(x, 320 + (i < 3 ? shifts[1][0] - shifts[i][0] : atIntake ? 4 : 0), 0.1) << i << level << atIntake;
        EXPECT_NEAR(y, 240 + (i < 3 ? shifts[1][1] - shifts[i][1] : atIntake ? -2 : 0), 0.1) << i << level << atIntake;
      }
    }
  }
}

TEST(Tessal4Intake, SolveChangesTheReferenceOfMotionsFromTheIntake) {
  EngineRig engine(640, 480, 3, defaultParams(640, 480));
  engine->trackedAtIntake = 1;
  engine->motions[1] = {{1.01, 0, 0, 0, 1.01, 0, 0, 0, 1}, {}};
  engine->motions[2] = shiftBy(5, 0);
  ASSERT_EQ(Tessal4_solve(engine.get(), 1), ZELVAN_OK);
  for (const auto& [id, expected] : {std::pair(0, 101 / 1.01), {1, 101.0}, {2, 101 / 1.01 + 5}}) {
    double x = 0, y = 0;
    Mvec8Real_trans2DReal(&engine->motions[id], &x, &y, 101, 0);
    EXPECT_NEAR(x, expected, 1e-9) << id;
  }
}

TEST(Tessal4Intake, AutoScalingCropsToWhatAllFramesShow) {
  for (int32_t uncropped : {0, 1}) {
    Tessal4Params params = defaultParams(640, 480);
    params.autoScaling = 1;
    params.keepMotionUncropped = uncropped;
    EngineRig engine(640, 480, 5, params);
    engine->trackedAtIntake = 1;
    engine->motions[1] = shiftBy(-10.75, 0);  // left becomes 10
    engine->motions[2] = shiftBy(0, 11.25);   // bottom becomes 468
    engine->motions[3] = shiftBy(-50, 0);     // too little overlap
    engine->motions[4] = shiftBy(0, -20);
    engine->trackFailure[4] = 1;
    ASSERT_EQ(Tessal4_solve(engine.get(), 0), ZELVAN_OK);
    EXPECT_EQ(engine->motionInvalid[1] + engine->motionInvalid[2], 0);
    EXPECT_EQ(engine->motionInvalid[3] + engine->motionInvalid[4], 2);
    // 630 x 468 of 640 x 480: the height decides, 624 x 468 about the centre (325, 234), on even pixels.
    const double ratio = 468.0 / 480.0;
    EXPECT_EQ(engine.crop(), (std::array{14, 0, 636, 468}));
    const double expected[9] = {ratio, 0, 14, 0, ratio, 0, 0, 0, 1};
    for (int32_t k = 0; k < 9; ++k) EXPECT_NEAR(engine->cropMotion.h[k], expected[k], 1e-12);
    double x = 0, y = 0;
    Mvec8Real_trans2DReal(&engine->motions[1], &x, &y, 100, 60);
    EXPECT_NEAR(x, uncropped != 0 ? 100 - 10.75 : ratio * 100 + 14 - 10.75, 1e-9);
    EXPECT_NEAR(y, uncropped != 0 ? 60 : ratio * 60, 1e-9);
  }
}

TEST(Tessal4Intake, ReportTellsTheRun) {
  EngineRig engine(160, 120, 3, defaultParams(160, 120));
  const int32_t scores[] = {3, 1, 2};
  std::copy(scores, scores + 3, engine->blurScore);
  engine->motions[1] = {{0.5, 0, 1.5, 0, 0.5, -1, 0, 0, 0.5}, {}};
  engine->trackFailure[2] = 4;
  engine->ghostScore[1] = 6;
  engine->validCount = 2;
  char text[512];
  EXPECT_EQ(Tessal4_getDebugInfo(engine.get(), text), ZELVAN_OK);
  EXPECT_STREQ(text, "ZELVAN TESSAL4 DEBUGINFO NUM:3  MERGE_NUM:0  VALID_NUM:2  ORDER: ");
  engine->mergeCount = 3;
  EXPECT_EQ(Tessal4_getDebugInfo(engine.get(), text), ZELVAN_OK);
  EXPECT_STREQ(text,
               "ZELVAN TESSAL4 DEBUGINFO NUM:3  MERGE_NUM:3  VALID_NUM:2  ORDER:  0  1  2  | 0:  FCODE:0  DX:0  DY:0 "
               " | 1:  FCODE:0  DX:98304  DY:-65536  GHOST:6  | 2:  FCODE:4  DX:0  DY:0  GHOST:0 ");
}

TEST(Tessal4Params, ShrinkLevelFollowsTheSize) {
  const int32_t cases[][3] = {{1280, 960, 1}, {1279, 960, 1}, {1280, 958, 1}, {1278, 958, 0},    {4000, 3000, 2},
                              {640, 480, 0},  {0, 0, 0},      {480, 4000, 3}, {20480, 15360, 4}, {40960, 30720, 4}};
  for (const auto& [width, height, level] : cases) {
    Tessal4Params params;
    ASSERT_EQ(Tessal4Params_setDefault(&params, width, height), ZELVAN_OK);
    EXPECT_EQ(params.storeShrinkLevel, level) << width << "x" << height;
    EXPECT_EQ(params.trackShrinkLevel, level);
    EXPECT_EQ(params.workDivisor, 1 << level);
  }
  EXPECT_EQ(Tessal4Params_setDefault(nullptr, 640, 480), ZELVAN_ERROR_GENERAL);
}

// The finish decides, or the merge of many frames; a frame more when the accumulator is one of the arena.
TEST(Tessal4Context, BufferSizeIsTheLargerPeak) {
  const struct {
    int32_t width, height, frames, autoScaling, keepAccumulator, size;
  } cases[] = {{640, 480, 1, 1, 1, 8819200},    {640, 480, 1, 0, 1, 8358400},     {640, 480, 10, 0, 0, 12966400},
               {1280, 960, 1, 0, 1, 10444800},  {1280, 960, 10, 1, 1, 16435200},  {4000, 3000, 10, 1, 1, 63136400},
               {4000, 3000, 1, 0, 1, 45136400}, {3001, 4003, 10, 0, 1, 43808167}, {3001, 4003, 1, 0, 0, 61838179}};
  for (const auto& c : cases) {
    Tessal4Params params = defaultParams(c.width, c.height);
    params.autoScaling = c.autoScaling;
    params.keepAccumulator = c.keepAccumulator;
    EXPECT_EQ(Tessal4_getBufferSize(c.width, c.height, c.frames, IMAGE_YVU420_SEMIPLANAR, &params), c.size);
    if (c.autoScaling == 1) {
      EXPECT_EQ(Tessal4_getBufferSize(c.width, c.height, c.frames, IMAGE_YVU420_SEMIPLANAR, nullptr), c.size);
    }
  }
}

TEST(Tessal4Context, CropIsCentredWithAMarginAndEven) {
  struct {
    int32_t width, height, outWidth, outHeight;
    double scale;
    std::array<int32_t, 4> crop;  // left, top, right, bottom
  } const cases[] = {
      {640, 480, -1, -1, 1.0, {0, 0, 640, 480}},       {647, 483, -1, -1, 1.0, {0, 0, 646, 482}},
      {640, 480, 320, 240, 1.0, {152, 112, 488, 368}}, {640, 480, 321, 241, 1.0, {152, 112, 488, 368}},
      {640, 480, 640, 480, 2.0, {152, 112, 488, 368}}, {640, 480, 630, 470, 1.0, {0, 0, 640, 480}},
      {640, 480, 320, 480, 1.3, {190, 48, 450, 432}},  {640, 480, 618, 458, 1.0, {4, 4, 636, 476}},
      {640, 480, 1280, 960, 1.0, {0, 0, 640, 480}},
  };
  for (const auto& c : cases) {
    Tessal4Params params = defaultParams(c.width, c.height);
    params.outputWidth = c.outWidth;
    params.outputHeight = c.outHeight;
    params.outputScale = c.scale;
    EngineRig engine(c.width, c.height, 1, params);
    EXPECT_EQ(engine->outWidth, c.outWidth < 0 ? c.width : c.outWidth);
    EXPECT_EQ(engine.crop(), c.crop) << c.outWidth << " / " << c.scale;
    EXPECT_EQ(engine->cropWidth, c.crop[2] - c.crop[0]);
    EXPECT_EQ((engine->workWidth | engine->workHeight) & 3, 0);
    EXPECT_EQ(engine->cropHeight, c.crop[3] - c.crop[1]);
  }
}

}  // namespace
}  // namespace test
