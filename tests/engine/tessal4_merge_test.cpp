#include "engine/engine_rig.h"
#include "support/pixel_scene.h"

namespace test {
namespace {

constexpr int32_t kWidth = 160;
constexpr int32_t kHeight = 120;

// The rows from 2 on below 9, and no others.
TEST(Tessal4MergeRows, KeepTheirBits) {
  TestImage diff(37, 11, IMAGE_UINT8, 1), mask(37, 11, IMAGE_UINT8, 3), weights(37, 11, IMAGE_UINT16, 2, 6);
  TestImage luma(37, 11, IMAGE_UINT8, 4), mean(37, 11, IMAGE_UINT8, 5), baseMean(37, 11, IMAGE_UINT8, 6);
  TestImage correction(37, 11, IMAGE_UINT8, 7);
  uint8_t table[256];
  for (int32_t v = 0; v < 256; ++v) table[v] = static_cast<uint8_t>(v < 100 ? 128 - v : 0);
  for (int32_t y = 0; y < 11; ++y) {
    for (int32_t x = 0; x < 37; ++x) imageRow<uint16_t>(&weights, y)[x] %= static_cast<uint16_t>(1 + x % 3 * 2000);
  }
  imageRow(&diff, 5)[7] = 65;  // the least that counts
  fillMap(mean, 8, 60);
  fillMap(baseMean, 9, 60);
  int32_t count = 5, expectedCount = 5;
  Tessal4BlendMapRows blend = {table, &diff, &weights, &mask, 2, 9};
  Tessal4LumaCorrectRows correct = {&luma, &mean, &baseMean, &correction, 2, 9};
  Tessal4CountDiffRows counting = {&diff, &count, 2, 9};
  EXPECT_EQ(Tessal4_blendMapRows(&blend) | Tessal4_lumaCorrectRows(&correct), ZELVAN_OK);
  EXPECT_EQ(Tessal4_countDiffRows(&counting), ZELVAN_OK);
  for (int32_t y = 2; y < 9; ++y) {
    for (int32_t x = 0; x < 37; ++x) expectedCount += imageRow(&diff, y)[x] >= 65;
  }
  EXPECT_EQ(count, expectedCount);
  Hash hash;
  for (const TestImage* image : {&weights, &mask, &luma, &correction}) image->addTo(&hash);
  expectGolden("kernels.txt", "merge-rows", hash);
}

// Frames like the base leave it as it is and weigh 128 each; where something moved the base stays alone.
TEST(Tessal4Merge, AveragesWhatAgreesAndKeepsWhatMoved) {
  TestExecutor executor(3);
  TestPel pel(3);
  for (bool pools : {false, true}) {
    EngineRig engine(kWidth, kHeight, 3, defaultParams(kWidth, kHeight), pools ? executor.get() : nullptr,
                     pools ? pel.get() : nullptr);
    for (int32_t i = 0; i < 3; ++i) engine.paint(i, 0, 0);
    for (int32_t y = 50; y < 70; ++y) {  // an object that only frame 1 shows
      for (int32_t x = 60; x < 80; ++x) imageRow(&engine.frames[1], y)[x] ^= 0x80;
    }
    const std::vector<uint8_t> base = picture(engine.frames[0]);
    engine.setImages(3);
    engine.merge(3);
    EXPECT_EQ(engine->validCount, 3);
    EXPECT_EQ(engine->accumulatorPtr, &engine.frames[0]);
    EXPECT_EQ(picture(engine.frames[0]), base);
    EXPECT_EQ(imageRow<uint16_t>(&engine->accWeight, 60)[70], 2 * 128);
    EXPECT_EQ(imageRow<uint16_t>(&engine->accWeight, 10)[10], 3 * 128);
  }
}

TEST(Tessal4Merge, WeightFallsWithTheColourDistance) {
  for (double correction : {0.0, 0.4, 1.2, 5.0}) {
    Tessal4Params params = defaultParams(kWidth, kHeight);
    params.objBlurCorrection = correction;
    params.maxGhostPercent = 0;
    EngineRig engine(kWidth, kHeight, 2, params);
    for (int32_t i = 0; i < kWidth * kHeight; ++i) {
      engine.bytes(1)[static_cast<size_t>(i)] = static_cast<uint8_t>(i % kWidth / 2);  // over a black base
    }
    engine.setImages(2);
    engine.merge(2);
    for (int32_t x = 0; x < kWidth; ++x) {
      const int32_t v = imageRow(&engine->diffMap, 60)[x];
      const double t = std::clamp(correction * (v * -15.9375) + 255.0, 0.0, 128.0);
      ASSERT_EQ(imageRow<uint16_t>(&engine->accWeight, 60)[x], 128 + static_cast<int32_t>(t)) << v;
    }
  }
}

TEST(Tessal4Merge, EveryVerdict) {
  EngineRig engine(kWidth, kHeight, 7, defaultParams(kWidth, kHeight));
  for (int32_t i = 0; i < 7; ++i) engine.paint(i, 0, 0);
  for (int32_t i = 0; i < kWidth * kHeight; ++i) engine.bytes(4)[static_cast<size_t>(i)] ^= 0xFF;
  engine.setImages(7);
  const int32_t scores[] = {100, 85, 84, 90, 90, 84, 100};
  std::copy(scores, scores + 7, engine->blurScore);
  engine->motionInvalid[3] = engine->motionInvalid[5] = 1;
  engine->ghostScore[4] = 99;
  engine.merge(6);
  const int32_t verdicts[] = {TESSAL4_MERGED, TESSAL4_MERGED,  TESSAL4_BLURRED, TESSAL4_BAD_MOTION,
                              TESSAL4_GHOST,  TESSAL4_BLURRED, TESSAL4_NOT_USED};
  for (int32_t i = 0; i < 7; ++i) EXPECT_EQ(engine->mergeStatus[i], verdicts[i]) << i;
  EXPECT_EQ(engine->usedCount, 4);
  EXPECT_EQ(engine->validCount, 2);
  EXPECT_EQ(engine->mergeCount, 6);
  EXPECT_EQ(engine->ghostScore[4], 0);
  for (int32_t x = 0; x < kWidth; ++x) ASSERT_EQ(imageRow<uint16_t>(&engine->accWeight, kHeight / 2)[x], 256);
  EXPECT_EQ(Tessal4_clean(engine.get()), ZELVAN_OK);
  EXPECT_EQ(engine->usedCount + engine->validCount + engine->addedCount + engine->mergeStatus[4], 0);
}

TEST(Tessal4Merge, SoftWeightScalesWithTheSharpness) {
  Tessal4Params params = defaultParams(kWidth, kHeight);
  params.softBlurWeight = 1;
  EngineRig engine(kWidth, kHeight, 4, params);
  for (int32_t i = 0; i < 4; ++i) engine.paint(i, 0, 0);
  engine.setImages(4);
  const int32_t scores[] = {95, 100, 85, 80};
  std::copy(scores, scores + 4, engine->blurScore);
  engine.merge(4);
  // 2/3, all, next to nothing, and none of the weight.
  EXPECT_EQ(imageRow<uint16_t>(&engine->accWeight, 60)[80], 85 + 128 + 0);
  EXPECT_EQ(engine->usedCount, 3);
  for (int32_t i = 0; i < 4; ++i) EXPECT_EQ(engine->mergeStatus[i], TESSAL4_MERGED);
}

// Where the result accumulates, and that a cropped base fills it scaled.
TEST(Tessal4Merge, AccumulatorIsTheBaseTheArenaOrTheOutput) {
  for (int32_t mode = 0; mode < 3; ++mode) {  // base, arena, output
    Tessal4Params params = defaultParams(kWidth, kHeight);
    params.autoScaling = mode > 0;
    params.bindOutput = mode == 2;
    EngineRig engine(kWidth, kHeight, 2, params);
    engine.paint(0, 0, 0);
    engine.paint(1, 0, 0);
    engine.setImages(2);
    engine->trackedAtIntake = 1;
    engine->motions[0].h[2] = -3.5;
    engine->motions[1].h[2] = -3.5;
    ASSERT_EQ(Tessal4_solve(engine.get(), 0), ZELVAN_OK);
    EXPECT_EQ(engine->accumulatorPtr, mode == 2 ? &engine->accumulator : nullptr);
    engine.merge(1);
    EXPECT_EQ(engine->accumulatorPtr, mode == 0 ? &engine.frames[0] : &engine->accumulator);
    EXPECT_EQ(engine->accumulatorPtr->plane0 == engine.output.plane0, mode == 2);
    EXPECT_EQ(engine->resultView.plane0, engine->accumulatorPtr->plane0);
    if (mode == 0) continue;
    EXPECT_LT(engine->cropRight - engine->cropLeft, kWidth);
    expectGolden("kernels.txt", "merge.scaled-crop", Hash().image(*engine->accumulatorPtr));
    EXPECT_EQ(Tessal4_clean(engine.get()), ZELVAN_OK);
    EXPECT_EQ(engine->accumulator.plane0, nullptr);
  }
}

TEST(Tessal4Merge, LuminanceCorrectionHidesAChangeOfBrightness) {
  for (int32_t mode = 0; mode < 3; ++mode) {
    Tessal4Params params = defaultParams(kWidth, kHeight);
    params.lumaCorrectionMode = mode;
    EngineRig engine(kWidth, kHeight, 2, params);
    for (int32_t i = 0; i < 2; ++i) std::fill(engine.bytes(i).begin(), engine.bytes(i).end(), uint8_t{128});
    std::fill_n(engine.bytes(1).begin(), kWidth * 90, uint8_t{140});
    engine.setImages(2);
    engine.merge(2);
    EXPECT_EQ(imageRow(&engine->compareImages[1], 20)[80], mode == 0 ? 140 : 128);
    EXPECT_EQ(imageRow(&engine->diffMap, 20)[80] == 0, mode != 0);
    EXPECT_EQ(engine->lumaCorrection.width, mode == 2 ? engine->workWidth : 0);
    EXPECT_TRUE(mode < 2 || imageRow(&engine->lumaCorrection, 20)[80] == 128 - 12);
    // The edge tells the width of the means.
    expectGolden("kernels.txt", "merge.luma-correction-" + std::to_string(mode), Hash().image(engine->diffMap));
  }
}

}  // namespace
}  // namespace test
