#include <random>

#include "engine/image_func.h"
#include "engine/sharpen.h"
#include "engine_rig.h"
#include "imageproc/resize.h"
#include "support/test_executor.h"
#include "support/test_image.h"
#include "support/test_pel.h"

namespace test {
namespace {

constexpr int32_t kWidth = 160;
constexpr int32_t kHeight = 120;
const int32_t kOrder[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};

// A value of the polyline through anchors at 1 to n, flat before 1 and behind n, for step i of 128.
double polyline(const std::vector<double>& anchors, int32_t n, int32_t i) {
  const double t = i * n / 128.0;
  const auto at = [&](int32_t k) { return anchors[static_cast<size_t>(std::clamp(k, 1, n))]; };
  const auto k = static_cast<int32_t>(t);
  return (1 - (t - k)) * at(k) + (t - k) * at(k + 1);
}

TEST(Tessal4Tables, FollowThePolyline) {
  EngineRig engine(kWidth, kHeight, 1, defaultParams(kWidth, kHeight));
  std::mt19937 random(7);
  for (int32_t n : {1, 2, 3, 5, 10, 32}) {
    for (int32_t round = 0; round < 4; ++round) {
      std::vector<float> levels(33);
      std::vector<int32_t> thresholds(33);
      std::vector<double> scaled(33);
      std::vector<double> raw(33);
      // The first item has no meaning and must not matter.
      for (size_t k = 0; k <= 32; ++k) {
        levels[k] = k == 0 ? 1e9f : static_cast<float>(random() % 1000) / 8.0f;
        thresholds[k] = k == 0 ? 1000000 : static_cast<int32_t>(random() % 400) - 60;
        raw[k] = thresholds[k];
      }
      const float most = *std::max_element(levels.begin() + 1, levels.begin() + n + 1);
      for (size_t k = 1; k <= 32; ++k) scaled[k] = levels[k] * 255.0 / most;
      ASSERT_EQ(Tessal4_setEpsilonValues(engine.get(), levels.data(), n), ZELVAN_OK);
      ASSERT_EQ(Tessal4_setUvnrThresholdValues(engine.get(), thresholds.data(), n), ZELVAN_OK);
      EXPECT_EQ(engine->epsilonScale, static_cast<float>(most * 32.0 / 255.0));
      for (int32_t i = 0; i <= 128; ++i) {
        // The steps round in 32-bit floats: a value right at a half may fall either way.
        const double epsilon = polyline(scaled, n, i) + 0.5;
        EXPECT_NEAR(engine->epsilonTable[i] + 0.5, epsilon, 0.5001) << n << " " << i;
        const double threshold = std::clamp(polyline(raw, n, i) + 0.5, 0.0, 255.0);
        EXPECT_NEAR(engine->uvThresholdTable[i] + 0.5, threshold, 0.5001) << n << " " << i;
      }
    }
  }
  const float levels[40] = {0, 100, 30};
  const int32_t thresholds[40] = {0, 64, 32};
  EXPECT_EQ(Tessal4_setEpsilonValues(engine.get(), nullptr, 3), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Tessal4_setUvnrThresholdValues(engine.get(), nullptr, 3), ZELVAN_ERROR_PARAM);
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

// Luma and chroma go to the output, chroma through coring and gain, whether the accumulator is the base or the output.
TEST(Tessal4Finish, ChromaIsCoredAndGained) {
  for (bool sameMemory : {false, true}) {
    for (int32_t saturation : {0, 700, 1024, 1500, 4096}) {
      for (int32_t coring : {0, 1}) {
        Tessal4Params params = defaultParams(kWidth, kHeight);
        params.autoScaling = params.bindOutput = sameMemory;
        params.saturation = saturation;
        params.chromaCoring = coring;
        params.sharpnessLevel = 0;
        EngineRig engine(kWidth, kHeight, 1, params);
        std::mt19937 random(3);
        for (uint8_t& b : engine.bytes(0)) b = static_cast<uint8_t>(random() >> 8);
        engine.setImages(1);
        ASSERT_EQ(Tessal4_merge(engine.get(), engine.frames, kOrder, 1), ZELVAN_OK);
        std::vector<uint8_t> expected = picture(*engine->accumulatorPtr);
        for (size_t i = kWidth * kHeight; i < expected.size(); ++i) {
          int64_t c = expected[i];
          if (coring != 0) {
            const int64_t x = std::abs(c - 128) * saturation;
            const int64_t y = std::min(x * x / 8192, x);
            const int64_t cored = 131584 + (c < 128 ? -y : y);
            c = std::clamp<int64_t>(cored < 0 ? -1 : cored / 1024, 0, 255);
          }
          const int64_t gained = 131584 + (c - 128) * saturation;
          if (saturation != 1024) c = std::clamp<int64_t>(gained < 0 ? -1 : gained / 1024, 0, 255);
          expected[i] = static_cast<uint8_t>(c);
        }
        ASSERT_EQ(Tessal4_noiseReduction(engine.get()), ZELVAN_OK);
        EXPECT_TRUE(picture(engine.output) == expected) << sameMemory << " " << saturation << " " << coring;
      }
    }
  }
}

// Which settings open which stage, and the stages in their order, replayed on a copy.
TEST(Tessal4Finish, StagesOpenByTheirSettings) {
  const struct {
    int32_t lumaPercent, spike, lumaTimes, chromaTimes, sharpness;
  } cases[] = {{0, 0, 0, 0, 0}, {0, 0, 0, 0, 900}, {40, 0, 0, 0, 0},  {0, 0, 2, 0, 0},
               {0, 0, 0, 2, 0}, {0, 3, 0, 0, 0},   {0, 3, 0, 0, 900}, {100, 9, 1, 3, 10000}};
  for (const auto& c : cases) {
    Tessal4Params params = defaultParams(kWidth, kHeight);
    params.lumaNrLevelPercent = c.lumaPercent;
    params.removeSpikeLevel = c.spike;
    params.lumaNrTimes = c.lumaTimes;
    params.chromaNrTimes = c.chromaTimes;
    params.chromaNrStrength = 100.0;
    params.sharpnessLevel = c.sharpness;
    params.denoiserCentreWeight = 1000;  // is kept within its range
    EngineRig engine(kWidth, kHeight, 3, params);
    for (int32_t i = 0; i < 3; ++i) engine.paint(i, 0, 0, 6.0);
    engine.setImages(3);
    const float levels[] = {0, 100, 30, 10};
    const int32_t thresholds[] = {0, 128, 64, 32};
    Tessal4_setEpsilonValues(engine.get(), levels, 3);
    Tessal4_setUvnrThresholdValues(engine.get(), thresholds, 3);
    ASSERT_EQ(Tessal4_merge(engine.get(), engine.frames, kOrder, 3), ZELVAN_OK);

    Env* env = engine.env();
    ScopedImage merged(env);
    ScopedImage result(env);
    ASSERT_EQ(Image_copy(&merged, &engine.frames[0]), ZELVAN_OK);
    ASSERT_EQ(Image_init(&result, kWidth, kHeight, nullptr, merged.format), ZELVAN_OK);
    ASSERT_EQ(Tessal4_makeNrMaps(engine.get()), ZELVAN_OK);
    if (c.lumaPercent != 0) {
      ASSERT_EQ(GuidedFilter_execute_with_epsilon_map(&engine->guidedFilter, &merged, &merged, engine->epsilonScale,
                                                      &engine->epsilonMap, 41),
                ZELVAN_OK);
    }
    const double strengths[] = {4.0, 100.0, 100.0};
    const int32_t kinds[] = {0, 1, 1};
    if (c.spike + c.lumaTimes + c.chromaTimes != 0) {
      ASSERT_EQ(Tessal4Denoiser_denoiseInplace(nullptr, env, &merged, &engine->uvThresholdMap, 0, kinds, 0, 64,
                                               c.chromaTimes, strengths),
                ZELVAN_OK);
    }
    ASSERT_EQ(Image_copy(&result, &merged), ZELVAN_OK);
    if (c.spike != 0) Tessal4Denoiser_removeSpikePEL(nullptr, &result, &merged, &engine->uvThresholdMap, c.spike);
    ASSERT_EQ(Tessal4_noiseReduction(engine.get()), ZELVAN_OK);
    if (c.sharpness != 0) {  // by the map that the engine made, which has a test of its own
      ASSERT_EQ(Tessal4ImageFunc_adaSharp5x5_uint8_withmap(nullptr, env, &result, &result, &engine->uvThresholdMap, 0.8,
                                                           0.2, c.sharpness, 0.0),
                ZELVAN_OK);
    }
    EXPECT_TRUE(picture(engine.output) == picture(result)) << &c - cases;
    EXPECT_EQ(engine->params.denoiserCentreWeight, 64);
    for (const Image& shrunk : engine->shrunk) EXPECT_EQ(shrunk.plane0, nullptr);
    EXPECT_EQ(engine->warped.plane0, nullptr);
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
    ASSERT_EQ(Tessal4_merge(engine.get(), engine.frames, kOrder, 1), ZELVAN_OK);
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

TEST(Tessal4Deconv, IsVanCittertsIteration) {
  TestExecutor executor(3);
  EngineRig engine(kWidth, kHeight, 1, defaultParams(kWidth, kHeight), executor.get());
  TestImage image(45, 34, IMAGE_UINT8);
  for (int32_t i = 0; i < 45 * 34; ++i) image.row(0, i / 45)[i % 45] = static_cast<uint8_t>(sceneLuma(i % 45, i / 45));
  const std::vector<uint8_t> src = pixels(image);
  std::vector<uint8_t> estimate = src;
  const auto blur = [&](std::vector<uint8_t> bytes, double sigma) {
    Image view = {};
    EXPECT_EQ(Image_init(&view, 45, 34, bytes.data(), IMAGE_UINT8), ZELVAN_OK);
    EXPECT_EQ(Tessal4ImageFunc_blur_uint8(nullptr, engine.env(), &view, &view, sigma), ZELVAN_OK);
    return bytes;
  };
  for (int32_t round = 0; round < 10; ++round) {  // the first from the image itself
    const std::vector<uint8_t> blurred = blur(estimate, 0.9);
    for (size_t i = 0; i < src.size(); ++i) {
      estimate[i] = static_cast<uint8_t>(std::clamp(src[i] - blurred[i] + estimate[i], 0, 255));
    }
  }
  ASSERT_EQ(Tessal4_deconv(engine.get(), &image, 0.9, 0.5), ZELVAN_OK);
  EXPECT_EQ(pixels(image), blur(blur(estimate, 0.5), 0.1));
  EXPECT_TRUE(image.guardsUnchanged());
}

}  // namespace
}  // namespace test
