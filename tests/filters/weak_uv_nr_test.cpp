#include "filters/weak_uv_nr.h"

#include <array>

#include "support/pixel_scene.h"

namespace {

constexpr WeakUvNrParams kDefaults = {1, 4, 25, 2.0f, 2.0f, 1.0f, 1.0f};

class WeakUvNr : public testing::Test {
 protected:
  WeakUvNr() : arena_(8u << 20) {}
  Status run(Image* dst, const Image* src, const Image* map, const WeakUvNrParams& params, Pel* pel = nullptr) {
    return weakUvNr(arena_.env(), pel, dst, src, map, &params);
  }
  TestArena arena_;
};

TEST_F(WeakUvNr, KeepsItsBitsForAnySplitAndInPlace) {
  const PelPools pools;
  struct {
    int32_t w, h;
    WeakUvNrParams params;
    bool withMap;
  } const cases[] = {{640, 480, kDefaults, false},
                     {301, 207, {1, 4, 24, 1.0f, 4.0f, 0.5f, 1.25f}, true},
                     {96, 64, {1, 2, 5, 2.0f, 2.0f, 1.0f, -3.0f}, true},
                     {123, 90, {1, 3, 1, 0.5f, 0.5f, 0.5f, 1.0f}, false},
                     {66, 54, {1, 7, 25, 2.0f, 2.0f, 1.0f, 1.0f}, true},
                     {16, 16, {1, 8, 3, 2.0f, 2.0f, 1.0f, 1.0f}, false},
                     {60, 64, {1, 4, 0, 2.0f, 2.0f, 1.0f, 1.0f}, false},
                     {64, 64, {1, 4, 3, 0.0f, 0.0f, 0.0f, 1.0f}, true}};
  for (const auto& [w, h, params, withMap] : cases) {
    const std::string name = std::to_string(w) + "x" + std::to_string(h);
    SCOPED_TRACE(name);
    test::Hash hash;
    for (const int32_t noise : {12, 127}) {
      const auto scene = [w = w, h = h, noise] {
        auto image = std::make_unique<TestImage>(w, h, IMAGE_YVU420_SEMIPLANAR, 3);
        fillScene(*image, 4, noise);
        return image;
      };
      const auto src = scene();
      TestImage map(w, h, IMAGE_UINT8, 6);
      fillMap(map, 2, noise == 12 ? 64 : 255);
      const TestImage* with = withMap ? &map : nullptr;
      const auto inPlace = sameOnAll(pools.all, scene, [&, params = params](Pel* pel, Image* image) {
        EXPECT_EQ(run(image, image, with, params, pel), ZELVAN_OK);
      });
      const auto other = scene();  // luma and what lies outside the chroma view stay
      for (int32_t y = 0; y < h / 2; ++y) std::fill_n(other->row(1, y), w / 2 * 2, uint8_t{1});
      EXPECT_EQ(run(other.get(), src.get(), with, params), ZELVAN_OK);
      EXPECT_TRUE(other->sameBytes(*inPlace));
      inPlace->addTo(&hash);
    }
    test::expectGolden("kernels.txt", "weak-uv-nr." + name, hash);
  }
}

TEST_F(WeakUvNr, Refusals) {
  TestImage image(160, 120, IMAGE_YUV420_SEMIPLANAR), small(158, 120, IMAGE_YUV420_SEMIPLANAR);
  TestImage planar(160, 120, IMAGE_YUV420_PLANAR), map(160, 120, IMAGE_UINT8);
  EXPECT_EQ(run(nullptr, &image, nullptr, kDefaults) & run(&image, nullptr, nullptr, kDefaults), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(weakUvNr(arena_.env(), nullptr, &image, &image, nullptr, nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(run(&small, &image, nullptr, kDefaults), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(run(&planar, &planar, nullptr, kDefaults), ZELVAN_ERROR_UNSUPPORTED);
  for (const auto& [shrink, window] : {std::array{1, 25}, {0, 25}, {-4, 25}, {100, 25}, {4, -1}}) {
    const WeakUvNrParams params = {1, shrink, window, 2.0f, 2.0f, 1.0f, 1.0f};
    EXPECT_EQ(run(&image, &image, nullptr, params), ZELVAN_ERROR_PARAM) << shrink << ' ' << window;
  }
  EXPECT_TRUE(image.unchanged());

  // Arenas in which one request more succeeds from time to time.
  Status status = ZELVAN_ERROR_NOMEM;
  uint32_t size = 2048;
  for (; status != ZELVAN_OK && size < (1u << 20); size += 128) {
    ASSERT_TRUE(image.unchanged());
    TestArena arena(size);
    status = weakUvNr(arena.env(), nullptr, &image, &image, &map, &kDefaults);
    ASSERT_TRUE(status == ZELVAN_OK || status == ZELVAN_ERROR_NOMEM) << size;
  }
  TestImage whole(160, 120, IMAGE_YUV420_SEMIPLANAR);
  EXPECT_EQ(run(&whole, &whole, &map, kDefaults), ZELVAN_OK);
  EXPECT_TRUE(image.sameBytes(whole)) << "a refusal was passed over at " << size;
}

}  // namespace
