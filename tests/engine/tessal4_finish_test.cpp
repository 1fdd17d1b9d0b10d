
#include "engine/engine_rig.h"
#include "support/test_executor.h"
#include "support/test_image.h"
#include "support/test_pel.h"

namespace test {
namespace {

constexpr int32_t kWidth = 160;
constexpr int32_t kHeight = 120;

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
    for (int32_t k = 1; k <= n && 128 % n == 0; ++k) {  // the steps right at an anchor
      EXPECT_NEAR(engine->epsilonTable[128 / n * k], levels[k] * 255.0 / most, 0.5001) << n << " " << k;
      EXPECT_EQ(engine->uvThresholdTable[128 / n * k], std::clamp(thresholds[k], 0, 255)) << n << " " << k;
    }
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
      engine.setImages(1);
      engine.merge(1);
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
        engine.setImages(1);
        engine.merge(1);
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
    engine.setImages(1);
    engine.merge(1);
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
    for (int32_t y = 0; y < 34; ++y) {
      for (int32_t x = 0; x < 45; ++x) images[i].row(0, y)[x] = static_cast<uint8_t>(sceneLuma(x, y));
    }
    ASSERT_EQ(Tessal4_deconv(engine.get(), &images[i], 0.9, 0.5), ZELVAN_OK);
    EXPECT_EQ(Tessal4_deconv(engine.get(), &engine.frames[0], 0.9, 0.5), ZELVAN_ERROR_PARAM);
  }
  EXPECT_TRUE(images[0].sameBytes(images[1]) && images[0].guardsUnchanged());
  expectGolden("kernels.txt", "deconv", Hash().image(images[0]));
}

}  // namespace
}  // namespace test
