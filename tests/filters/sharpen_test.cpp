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

}  // namespace
