#include "filters/denoiser2.h"

#include "engine/engine_rig.h"
#include "support/pixel_scene.h"

namespace test {
namespace {

Tessal4Denoiser2Params passes(int32_t luma, int32_t chroma) {
  Tessal4Denoiser2Params params = {};
  params.lumaPasses = luma;
  params.chromaPasses = chroma;
  params.blend = 1024;
  for (int32_t i = 0; i < 4; ++i) {
    params.lumaKind[i] = 4 - i;
    params.lumaTaps[i] = params.chromaOuterTaps[i] = 16;
    params.chromaMiddleTaps[i] = 8;
    params.chromaInnerTaps[i] = 4;
    params.lumaCentreWeight[i] = 3;
    params.lumaMix[i] = 20 * i;
    params.lumaStrength[i] = 6.9;
    params.chromaStrength[i] = 9.5;
  }
  return params;
}

struct Scene {
  Scene() : src(151, 62, IMAGE_YUV420_SEMIPLANAR, 2), map(19, 8, IMAGE_UINT8) {
    fillScene(src, 4, 25);
    fillMap(map, 6, 255);
  }
  TestArena arena;
  TestImage src, map;
};

TEST(Denoiser2, ChainsKeepTheirBits) {
  Scene scene;
  TestPel pel(3);
  TestExecutor executor(3);
  Tessal4Denoiser2 serial = {scene.arena.env(), nullptr, nullptr}, parallel = {};
  construct_Tessal4Denoiser2(&parallel, scene.arena.env());
  Tessal4Denoiser2_setPel(&parallel, executor.get(), pel.get());
  const auto run = [&](Tessal4Denoiser2* denoiser, Image* dst, const Image* src, const Tessal4Denoiser2Params& params) {
    ASSERT_EQ(Tessal4Denoiser2_reduceNoise(denoiser, dst, src, &scene.map, &params), ZELVAN_OK);
  };
  Hash hash;
  for (int32_t stages = 0; stages < 16; ++stages) {
    Tessal4Denoiser2Params params = passes(stages % 4, stages % 4);
    params.spike = stages & 4 ? 3 : 0;
    params.sharpen = stages & 8 ? 500 : 0;
    params.sharpenSigma1 = 0.2;
    params.sharpenSigma2 = 0.8;
    params.blend = stages % 3 == 0 ? 1024 : 700;
    TestImage expected(151, 62, IMAGE_YUV420_SEMIPLANAR, 2), dst(151, 62, IMAGE_YUV420_SEMIPLANAR, 2);
    run(&serial, &expected, &scene.src, params);
    hash.image(expected);
    run(&parallel, &dst, &scene.src, params);
    EXPECT_TRUE(dst.sameBytes(expected)) << stages;
    Image_copy(&dst, &scene.src);
    run(&parallel, &dst, &dst, params);
    EXPECT_TRUE(picture(dst) == picture(expected)) << "in place, " << stages;
  }
  expectGolden("kernels.txt", "denoiser2", hash);
  const Tessal4Denoiser2Params params = passes(2, 2);
  const TestImage small(18, 8, IMAGE_UINT8), luma(151, 62, IMAGE_UINT8);
  TestImage dst(151, 62, IMAGE_YUV420_SEMIPLANAR, 3);
  EXPECT_EQ(Tessal4Denoiser2_reduceNoise(&serial, &dst, &scene.src, &small, &params), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Tessal4Denoiser2_reduceNoise(&serial, &dst, &luma, &scene.map, &params), ZELVAN_ERROR_PARAM);
  TestArena tiny(2048);
  serial.env = tiny.env();
  EXPECT_EQ(Tessal4Denoiser2_reduceNoise(&serial, &dst, &scene.src, &scene.map, &params), ZELVAN_ERROR_NOMEM);
  EXPECT_TRUE(dst.unchanged());
}

// The second finishing road on a burst: less noise than the merge left, in luma and in chroma.
TEST(Tessal4Finish, SecondRoadLeavesLessNoiseThanTheMerge) {
  constexpr int32_t kWidth = 320, kHeight = 240;
  const int32_t order[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
  Tessal4Params params = defaultParams(kWidth, kHeight);
  params.lumaNrTimes = params.chromaNrTimes = 2;
  params.lumaNrStrength = 1.0;
  params.sharpnessLevel = 0;
  TestPel pel(2);
  TestExecutor executor(2);
  EngineRig engine(kWidth, kHeight, 3, params, executor.get(), pel.get());
  engine.paint(0, 0, 0);
  const std::vector<uint8_t> clean = engine.bytes(0);
  for (int32_t i = 0; i < 3; ++i) engine.paint(i, 0, 0, 12.0);
  engine.setImages(3);
  EXPECT_EQ(Tessal4_noiseReduction2(engine.get(), nullptr), ZELVAN_OK);  // nothing merged yet: no picture
  const float levels[] = {0, 100, 30, 10};
  Tessal4_setEpsilonValues(engine.get(), levels, 3);
  ASSERT_EQ(Tessal4_merge(engine.get(), engine.frames, order, 3), ZELVAN_OK);
  const auto noise = [&](const std::vector<uint8_t>& bytes, size_t begin, size_t end) {
    double sum = 0;
    for (size_t i = begin; i < end; ++i) sum += (bytes[i] - clean[i]) * (bytes[i] - clean[i]);
    return std::sqrt(sum / static_cast<double>(end - begin));
  };
  const std::vector<uint8_t> merged = picture(*engine->accumulatorPtr);
  ASSERT_EQ(Tessal4_noiseReduction2(engine.get(), nullptr), ZELVAN_OK);
  const std::vector<uint8_t> finished = picture(engine.output);
  constexpr size_t kLuma = kWidth * kHeight;
  EXPECT_LT(noise(finished, 0, kLuma), 0.8 * noise(merged, 0, kLuma)) << noise(merged, 0, kLuma);
  EXPECT_LT(noise(finished, kLuma, kLuma * 3 / 2), 0.5 * noise(merged, kLuma, kLuma * 3 / 2));
}

}  // namespace
}  // namespace test
