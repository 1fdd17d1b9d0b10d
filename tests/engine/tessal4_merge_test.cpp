#include "engine/engine_rig.h"
#include "support/pixel_scene.h"

namespace test {
namespace {

constexpr int32_t kWidth = 160;
constexpr int32_t kHeight = 120;

TEST(Tessal4MergeRows, KeepTheirBits) {
  TestImage diff(37, 11, IMAGE_UINT8, 1), mask(37, 11, IMAGE_UINT8, 3), weights(37, 11, IMAGE_UINT16, 2, 6);
  TestImage luma(37, 11, IMAGE_UINT8, 4), mean(37, 11, IMAGE_UINT8, 5), baseMean(37, 11, IMAGE_UINT8, 6);
  TestImage correction(37, 11, IMAGE_UINT8, 7);
  uint8_t table[256];
  for (int32_t v = 0; v < 256; ++v) table[v] = static_cast<uint8_t>(v < 100 ? 128 - v : 0);
  drawPixels<uint16_t>(&weights,
                       [&](int32_t x, int32_t y) { return imageRow<uint16_t>(&weights, y)[x] % (1 + x % 3 * 2000); });
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
    engine.setAndMerge(3);
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
    engine.setAndMerge(2);
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
    engine.setAndMerge(2);
    EXPECT_EQ(imageRow(&engine->compareImages[1], 20)[80], mode == 0 ? 140 : 128);
    EXPECT_EQ(imageRow(&engine->diffMap, 20)[80] == 0, mode != 0);
    EXPECT_EQ(engine->lumaCorrection.width, mode == 2 ? engine->workWidth : 0);
    EXPECT_TRUE(mode < 2 || imageRow(&engine->lumaCorrection, 20)[80] == 128 - 12);
    // The edge tells the width of the means.
    expectGolden("kernels.txt", "merge.luma-correction-" + std::to_string(mode), Hash().image(engine->diffMap));
  }
}

TEST(Tessal4Tables, JoinTheirAnchors) {
  EngineRig engine(kWidth, kHeight, 1, defaultParams(kWidth, kHeight));
  std::mt19937 random(7);
  Hash hash;
  for (int32_t n : {1, 2, 3, 5, 10, 32}) {
    float levels[33] = {1e9f}, most = 0;  // the first item has no meaning and must not matter
    int32_t thresholds[33] = {1000000};
    for (int32_t k = 1; k <= 32; ++k) {
      levels[k] = static_cast<float>(random() % 1000) / 8.0f;
      thresholds[k] = static_cast<int32_t>(random() % 400) - 60;
      if (k <= n) most = std::max(most, levels[k]);
    }
    ASSERT_EQ(Tessal4_setEpsilonValues(engine.get(), levels, n), ZELVAN_OK);
    ASSERT_EQ(Tessal4_setUvnrThresholdValues(engine.get(), thresholds, n), ZELVAN_OK);
    EXPECT_EQ(engine->epsilonScale, static_cast<float>(most * 32.0 / 255.0));
    hash.bytes(engine->epsilonTable, 129).bytes(engine->uvThresholdTable, 129);
  }
  expectGolden("kernels.txt", "finish.tables", hash);
  const float levels[40] = {0, 100, 30};
  const int32_t thresholds[40] = {0, 64, 32};
  EXPECT_EQ(Tessal4_setEpsilonValues(engine.get(), nullptr, 3), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Tessal4_setEpsilonValues(engine.get(), levels, 33), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Tessal4_setUvnrThresholdValues(engine.get(), nullptr, 3), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(zelvan_Tessaline4Internal_weakUvNr(nullptr, nullptr, nullptr, nullptr, nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Tessal4_setUvnrThresholdValues(engine.get(), thresholds, 33), ZELVAN_ERROR_PARAM);
  for (int32_t n : {0, -1}) {
    EXPECT_EQ(Tessal4_setEpsilonValues(engine.get(), levels, n), ZELVAN_OK);
    EXPECT_EQ(engine->epsilonScale, 0.0f);
    EXPECT_EQ(engine->epsilonTable[128], 0);
  }
}

TEST(Tessal4Finish, MapsFollowTheShareOfTheFrames) {
  TestExecutor executor(3);
  for (int32_t merged : {-1, 0, 1, 2, 3, 7, 10}) {
    EngineRig engine(kWidth, kHeight, 1, defaultParams(kWidth, kHeight), merged % 2 == 0 ? executor.get() : nullptr);
    uint16_t* weights = imageRow<uint16_t>(&engine->accWeight, 0);
    for (int32_t i = 0; i < kWidth * kHeight; ++i) weights[i] = static_cast<uint16_t>(i % 1400);
    for (int32_t i = 0; i <= 128; ++i) {
      engine->epsilonTable[i] = static_cast<uint8_t>(i + 3);
      engine->uvThresholdTable[i] = static_cast<uint8_t>(200 - i);
    }
    engine->mergeCount = merged;
    ASSERT_EQ(Tessal4_makeNrMaps(engine.get()), ZELVAN_OK);
    const int32_t n = std::max(merged, 1);
    for (int32_t i = 0; i < kWidth * kHeight; ++i) {
      const int32_t product = weights[i] * ((128 + (n - 1) / 2) / n);
      const int32_t c = product >= 16512 ? 128 : product / 128;
      ASSERT_EQ(imageRow(&engine->epsilonMap, 0)[i], c + 3) << merged;
      ASSERT_EQ(imageRow(&engine->uvThresholdMap, 0)[i], 200 - c) << merged;
    }
  }
}

// Luma and chroma go to the output, chroma through coring and gain, whether the accumulator is the base or the output,
// and for any workers. Spikes are judged by the picture as it was, also where the output holds it.
TEST(Tessal4Finish, ChromaIsCoredAndGainedAndSpikesGo) {
  constexpr int32_t kSaturations[] = {0, 700, 1024, 1500, 4096, 1024};
  const int32_t thresholds[] = {0, 255};
  TestPel pel(3);
  Hash hash;
  for (int32_t i = 0; i < 11; ++i) {
    std::vector<uint8_t> results[4];
    for (const int32_t way : {0, 1, 2, 3}) {
      Tessal4Params params = defaultParams(kWidth, kHeight);
      params.autoScaling = params.bindOutput = way & 1;
      params.saturation = kSaturations[i / 2];
      params.chromaCoring = i % 2;
      params.removeSpikeLevel = i == 10 ? 255 : 0;
      params.sharpnessLevel = 0;
      EngineRig engine(kWidth, kHeight, 1, params, nullptr, way > 1 ? pel.get() : nullptr);
      std::mt19937 random(3);
      for (uint8_t& b : engine.bytes(0)) b = static_cast<uint8_t>(random() >> 8);
      if (i == 10) Tessal4_setUvnrThresholdValues(engine.get(), thresholds, 1);
      engine.setAndMerge(1);
      const std::vector<uint8_t> merged = picture(engine.frames[0]);
      ASSERT_EQ(Tessal4_noiseReduction(engine.get()), ZELVAN_OK);
      results[way] = picture(engine.output);
      EXPECT_TRUE(results[way] == results[0]) << i << " " << way;
      EXPECT_TRUE(i < 10 || results[way] != merged);
    }
    if (i < 10) hash.bytes(results[0].data(), results[0].size());
  }
  expectGolden("kernels.txt", "finish.chroma", hash);
}

// Which settings open which stage. What stays closed leaves the picture of the merge.
TEST(Tessal4Finish, StagesOpenByTheirSettings) {
  const struct {
    const char* name;
    int32_t lumaPercent, spike, lumaTimes, chromaTimes, sharpness;
  } cases[] = {{"none", 0, 0, 0, 0, 0},
               {"sharpening", 0, 0, 0, 0, 900},
               {"guided", 40, 0, 0, 0, 0},
               {"luma-passes", 0, 0, 2, 0, 0},
               {"chroma-passes", 0, 0, 0, 2, 0},
               {"spikes", 0, 3, 0, 0, 0},
               {"spikes-sharpened", 0, 3, 0, 0, 900},
               {"all", 100, 9, 1, 3, 10000}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Tessal4Params params = defaultParams(kWidth, kHeight);
    params.lumaNrLevelPercent = c.lumaPercent;
    params.removeSpikeLevel = c.spike;
    params.lumaNrTimes = c.lumaTimes;
    params.chromaNrTimes = c.chromaTimes;
    params.chromaNrStrength = 100.0;
    params.sharpnessLevel = c.sharpness;
    params.denoiserCentreWeight = 1000;  // is kept within its range
    EngineRig engine(kWidth, kHeight, 3, params);
    std::mt19937 random(9);
    for (int32_t i = 0; i < 3; ++i) {
      engine.paint(i, 0, 0);
      for (uint8_t& b : engine.bytes(i)) {
        b = static_cast<uint8_t>(std::clamp(b + static_cast<int32_t>(random() % 25) - 12, 0, 255));
      }
    }
    engine.setImages(3);
    const float levels[] = {0, 100, 30, 10};
    const int32_t thresholds[] = {0, 128, 64, 32};
    Tessal4_setEpsilonValues(engine.get(), levels, 3);
    Tessal4_setUvnrThresholdValues(engine.get(), thresholds, 3);
    engine.merge(3);
    const std::vector<uint8_t> merged = picture(engine.frames[0]);
    ASSERT_EQ(Tessal4_noiseReduction(engine.get()), ZELVAN_OK);
    // The luma pass count is always 0.
    EXPECT_EQ(picture(engine.output) == merged, c.lumaPercent + c.spike + c.chromaTimes + c.sharpness == 0);
    expectGolden("kernels.txt", std::string("finish.") + c.name, Hash().image(engine.output));
    EXPECT_EQ(engine->params.denoiserCentreWeight, 64);
    for (const Image& shrunk : engine->shrunk) EXPECT_EQ(shrunk.plane0, nullptr);
    EXPECT_EQ(engine->warped.plane0, nullptr);
  }
}

// The chroma planes of an odd size end in the repeated last pair and row, whatever the output held, on either road.
TEST(Tessal4Finish, OddChromaIsWhole) {
  for (const auto& [width, height] : {std::pair(161, 121), {161, 120}, {160, 121}}) {
    for (const bool second : {false, true}) {
      for (const uint8_t fill : {0, 255}) {
        EngineRig engine(width, height, 1, defaultParams(width, height));
        engine.paint(0, 0, 0);
        std::fill(engine.outputBytes().begin(), engine.outputBytes().end(), fill);
        engine.setAndMerge(1);
        ASSERT_EQ(second ? Tessal4_noiseReduction2(engine.get(), nullptr) : Tessal4_noiseReduction(engine.get()),
                  ZELVAN_OK);
        const int32_t pairs = width / 2, rows = height / 2;
        for (int32_t y = 0; y < (height + 1) / 2; ++y) {
          for (int32_t x = 0; x < (width + 1) / 2; ++x) {
            const uint8_t* source = imageChromaRow(&engine.output, std::min(y, rows - 1)) + 2 * std::min(x, pairs - 1);
            ASSERT_EQ(std::memcmp(imageChromaRow(&engine.output, y) + 2 * x, source, 2), 0) << x << ", " << y;
            ASSERT_NE(source[0], fill);
          }
        }
      }
    }
  }
}

TEST(Tessal4Finish, SharpeningMapFollowsTheWeights) {
  const struct {
    int32_t frames, used, shift;
    double floor;
  } cases[] = {{1, 1, 2, 1.0}, {3, 3, 2, 0.4}, {4, 2, 2, 0.4}, {5, 5, 3, 0.0}, {8, 6, 3, 0.4}, {9, 9, 4, 0.7}};
  for (const auto& c : cases) {
    Tessal4Params params = defaultParams(kWidth, kHeight);
    params.sharpnessMapFloor = c.floor;
    EngineRig engine(kWidth, kHeight, c.frames, params);
    engine.paint(0, 0, 0);
    engine.setAndMerge(1);
    std::mt19937 random(11);
    const auto most = static_cast<uint32_t>(128 * c.used);
    uint16_t* weights = imageRow<uint16_t>(&engine->accWeight, 0);
    for (int32_t i = 0; i < kWidth * kHeight; ++i) weights[i] = static_cast<uint16_t>(random() % (most + 1));
    engine->usedCount = c.used;
    ASSERT_EQ(Tessal4_noiseReduction(engine.get()), ZELVAN_OK);
    const int32_t one = 128 >> c.shift;
    const int32_t top = (128 * c.used - 128) >> c.shift;
    for (int32_t i = 0; i < kWidth * kHeight; ++i) {
      const int32_t v = std::max((weights[i] >> c.shift) - one, 0);
      const double expected = c.floor * 128.0 + (128.0 - c.floor * 128.0) * (v / (top + 1e-9));
      ASSERT_EQ(engine->uvThresholdMap.plane0[i], static_cast<int32_t>(expected)) << c.frames << ": " << weights[i];
    }
  }
}

TEST(Tessal4Deconv, SharpensInPlaceAndTakesLumaAlone) {
  TestExecutor executor(3);
  TestImage images[2] = {TestImage(45, 34, IMAGE_UINT8), TestImage(45, 34, IMAGE_UINT8)};
  for (int32_t i = 0; i < 2; ++i) {
    EngineRig engine(kWidth, kHeight, 1, defaultParams(kWidth, kHeight), i == 0 ? nullptr : executor.get());
    drawPixels(&images[i], sceneLuma);
    ASSERT_EQ(Tessal4_deconv(engine.get(), &images[i], 0.9, 0.5), ZELVAN_OK);
    EXPECT_EQ(Tessal4_deconv(engine.get(), &engine.frames[0], 0.9, 0.5), ZELVAN_ERROR_PARAM);
  }
  EXPECT_TRUE(images[0].sameBytes(images[1]) && images[0].guardsUnchanged());
  expectGolden("kernels.txt", "deconv", Hash().image(images[0]));
}

}  // namespace
}  // namespace test
