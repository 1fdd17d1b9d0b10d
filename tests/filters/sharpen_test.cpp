#include "filters/sharpen.h"

#include <array>

#include "support/pixel_scene.h"

namespace {

struct Setting {
  double sigmaA, sigmaB, gain, coring;
  uint32_t mapMost;
};

struct Form {
  const char* name;
  int32_t radius;
  decltype(&Tessal4ImageFunc_adaSharp5x5_uint8_withmap) withMap;
  decltype(&Tessal4ImageFunc_adaSharp5x5_uint8) withoutMap;
  Status run(ParallelExecutor* executor, Env* env, Image* dst, const Image* src, const Image* map,
             const Setting& s) const {
    return withMap != nullptr ? withMap(executor, env, dst, src, map, s.sigmaA, s.sigmaB, s.gain, s.coring)
                              : withoutMap(executor, env, dst, src, s.sigmaA, s.sigmaB, s.gain, s.coring);
  }
};
const Form kForms[] = {{"sharpen.5x5-map", 2, Tessal4ImageFunc_adaSharp5x5_uint8_withmap, nullptr},
                       {"sharpen.5x5", 2, nullptr, Tessal4ImageFunc_adaSharp5x5_uint8},
                       {"sharpen.7x7-map", 3, Tessal4ImageFunc_adaSharp7x7_uint8_withmap, nullptr},
                       {"sharpen.7x7", 3, nullptr, Tessal4ImageFunc_adaSharp7x7_uint8}};

TEST(Sharpen, KeepsItsBitsForAnySplitAndInPlace) {
  const Setting settings[] = {{0.8, 0.2, 900.9, 0.0, 128},
                              {0.2, 0.8, 400, 0.6, 128},
                              {1.4, 0.6, -700, 0.25, 255},
                              {9.0, 0.3, 2500, 3.0, 200},
                              {0.5, 0.05, 8e6, 0.1, 255}};
  TestArena arena;
  const ExecutorPools pools;
  for (const Form& form : kForms) {
    test::Hash hash;
    for (const auto& [w, h] : {std::array{7, 1}, {8, 40}, {33, 21}, {1061, 5}, {320, 96}}) {
      for (const Setting& set : settings) {
        SCOPED_TRACE(testing::Message() << form.name << ' ' << w << 'x' << h << " gain " << set.gain);
        const auto scene = [&set, w = w, h = h] {
          auto image = std::make_unique<TestImage>(w, h, IMAGE_UINT8, 7);
          if (set.gain < 1000) fillScene(*image, 3, 20);
          return image;
        };
        TestImage map(w, h, IMAGE_UINT8, 8);
        fillMap(map, 5, set.mapMost);
        const auto src = scene();
        const auto result = sameOnAll(pools.all, scene, [&](ParallelExecutor* executor, Image* dst) {
          EXPECT_EQ(form.run(executor, arena.env(), dst, src.get(), &map, set), ZELVAN_OK);
        });
        const auto inPlace = sameOnAll(pools.all, scene, [&](ParallelExecutor* executor, Image* image) {
          EXPECT_EQ(form.run(executor, arena.env(), image, image, &map, set), ZELVAN_OK);
        });
        EXPECT_TRUE(inPlace->sameBytes(*result));
        result->addTo(&hash);
      }
    }
    test::expectGolden("kernels.txt", form.name, hash);
  }
}

TEST(Sharpen, NoSignalLeavesThePictureAndRefusalsTheDestination) {
  const Setting silent[] = {
      {0.8, 0.2, 0.9, 0, 128}, {0.6, 0.6, 900, 0, 128}, {0.8, 0.2, 900, 2000, 128}, {0.8, 0.2, 900, 0, 0}};
  const TestImage src(500, 20, IMAGE_UINT8, 4), narrow(6, 9, IMAGE_UINT8);
  for (const Form& form : kForms) {
    TestArena arena;
    TestImage map(500, 20, IMAGE_UINT8), dst(500, 20, IMAGE_UINT8, 4);
    for (const Setting& set : silent) {
      if (set.mapMost == 0 && form.withMap == nullptr) continue;
      fillMap(map, 1, set.mapMost);
      fillMap(dst, 1, 77);
      ASSERT_EQ(form.run(nullptr, arena.env(), &dst, &src, &map, set), ZELVAN_OK);
      EXPECT_TRUE(dst.sameBytes(src)) << "gain " << set.gain << " coring " << set.coring << " map " << set.mapMost;
    }
    TestImage untouched(500, 20, IMAGE_UINT8, 2);
    EXPECT_EQ(form.run(nullptr, arena.env(), &untouched, &narrow, &map, silent[0]), ZELVAN_ERROR_PARAM);
    // The scratch is two blocks: neither fits, then the first alone.
    for (const uint32_t size : {2048u, 500u * 4 * (2 * static_cast<uint32_t>(form.radius) + 1) + 1600}) {
      TestArena small(size);
      EXPECT_EQ(form.run(nullptr, small.env(), &untouched, &src, &map, silent[0]), ZELVAN_ERROR_NOMEM) << size;
    }
    EXPECT_TRUE(untouched.unchanged());
  }
}

// An executor between construction and its start has no band to give: the caller does the work.
TEST(Sharpen, RunsInTheCallerBeforeTheExecutorStarts) {
  TestArena arena;
  ParallelExecutor unready;
  ASSERT_EQ(construct_ParallelExecutor(&unready, arena.env()), ZELVAN_OK);
  const TestImage src(40, 20, IMAGE_UINT8, 7);
  TestImage dst(40, 20, IMAGE_UINT8, 8), expected(40, 20, IMAGE_UINT8, 8);
  EXPECT_EQ(Tessal4ImageFunc_adaSharp5x5_uint8(nullptr, arena.env(), &expected, &src, 0.8, 0.2, 400, 0.1), ZELVAN_OK);
  EXPECT_EQ(Tessal4ImageFunc_adaSharp5x5_uint8(&unready, arena.env(), &dst, &src, 0.8, 0.2, 400, 0.1), ZELVAN_OK);
  EXPECT_TRUE(dst.sameBytes(expected));
  destruct_ParallelExecutor(&unready);
}

// Heights round the band of 64 rows and the ring of five bands; each pixel is that of the form on an executor.
TEST(SharpenPel, BandsThroughTheRingEqualTheWholePicture) {
  TestArena arena;
  TestPel one(1), three(3);
  for (const int32_t height : {1, 63, 64, 66, 320, 385, 700}) {
    TestImage src(90, height, IMAGE_UINT8, 3), map(90, height, IMAGE_UINT8), expected(90, height, IMAGE_UINT8, 5);
    fillScene(src, 3, 20);
    fillMap(map, 5, 128);
    ASSERT_EQ(
        Tessal4ImageFunc_adaSharp5x5_uint8_withmap(nullptr, arena.env(), &expected, &src, &map, 0.8, 0.2, 900, 0.25),
        ZELVAN_OK);
    for (Pel* pel : {static_cast<Pel*>(nullptr), one.get(), three.get()}) {
      TestImage dst(90, height, IMAGE_UINT8, 5);
      ASSERT_EQ(Tessal4ImageFunc_deconv_withmap(pel, arena.env(), &src, &dst, &map, 0.8, 0.2, 900, 0.25), ZELVAN_OK);
      EXPECT_TRUE(dst.sameBytes(expected)) << height;
    }
  }
  TestImage narrow(6, 9, IMAGE_UINT8, 1), wide(90, 70, IMAGE_UINT8, 1), map(90, 70, IMAGE_UINT8);
  EXPECT_EQ(Tessal4ImageFunc_deconv_withmap(three.get(), arena.env(), &narrow, &narrow, &map, 0.8, 0.2, 900, 0),
            ZELVAN_ERROR_PARAM);
  EXPECT_TRUE(narrow.unchanged());
  Status status = ZELVAN_ERROR_NOMEM;  // for want of the ring, then of the bands
  for (uint32_t size = 320 * 2 * 2 * 90 - 16; status != ZELVAN_OK && size < 120000; size += 8) {
    EXPECT_TRUE(status == ZELVAN_ERROR_NOMEM && wide.unchanged()) << size;
    TestArena small(size);
    status = Tessal4ImageFunc_deconv_withmap(three.get(), small.env(), &wide, &wide, &map, 0.8, 0.2, 900, 0);
  }
  EXPECT_EQ(status, ZELVAN_OK);
}

}  // namespace
