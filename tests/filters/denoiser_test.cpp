#include "filters/denoiser.h"

#include <array>

#include "support/pixel_scene.h"

namespace {

struct Work {
  int32_t first;
  std::vector<int32_t> kinds;
  int32_t chromaPasses;
  std::array<double, 3> strengths;
};

class Denoiser : public testing::Test {
 protected:
  Status denoise(Pel* pel, Env* env, Image* image, const Image* map, const Work& work, int32_t centreWeight = 4) {
    return Tessal4Denoiser_denoiseInplace(pel, env, image, map, work.first, work.kinds.data(),
                                          static_cast<int32_t>(work.kinds.size()), centreWeight, work.chromaPasses,
                                          work.strengths.data());
  }
  TestArena arena_;
  PelPools pools_;
};

// The tiles of all sizes of the grid, from those that lie inside the reach of the taps to those that are empty.
TEST_F(Denoiser, TilesInPlaceAreThoseOfTheTasksOneByOne) {
  const Work few = {90, {}, 2, {4.5, 4.0, 3.0}}, chroma = {0, {}, 7, {0.0, 4.0, 2.9}};
  const Work all = {90, {0, 2, 4, 3, 1}, 2, {4.5, 300.0, 6.0}}, many = {0, std::vector<int32_t>(33, 4), 0, {3.0, 0, 0}};
  struct {
    int32_t w, h;
    const Work* work;
  } const cases[] = {{480, 640, &few},  {397, 305, &all}, {402, 300, &chroma}, {181, 99, &all}, {131, 97, &chroma},
                     {61, 45, &chroma}, {200, 31, &few},  {47, 20, &all},      {3, 1, &few},    {120, 90, &many}};
  for (const auto& [w, h, work] : cases) {
    SCOPED_TRACE(testing::Message() << w << 'x' << h);
    TestImage map(w, h, IMAGE_UINT8);
    fillMap(map, 4, w % 2 == 0 ? 40 : 255);
    const auto scene = [w = w, h = h] {
      auto image = std::make_unique<TestImage>(w, h, IMAGE_YVU420_SEMIPLANAR);
      fillScene(*image, 5, 12);
      return image;
    };
    const auto result = sameOnAll(pools_.all, scene, [&, work = work](Pel* pel, Image* image) {
      EXPECT_EQ(denoise(pel, arena_.env(), image, &map, *work), ZELVAN_OK);
    });
    test::Hash hash;
    result->addTo(&hash);
    test::expectGolden("kernels.txt", "denoiser-tiles." + std::to_string(w) + "x" + std::to_string(h), hash);
  }
}

TEST_F(Denoiser, RowForms) {
  constexpr int32_t kChroma = -1, kSpikes = 10;  // others: luma of that kind
  for (const int32_t form : {kChroma, 0, 1, 2, 3, 4, 9, kSpikes}) {
    test::Hash hash;
    for (const auto& [w, h] : {std::array{64, 40}, {67, 33}, {7, 9}, {6, 5}, {1, 1}}) {
      TestImage src(w, h, IMAGE_YUV420_SEMIPLANAR), map(w, h, IMAGE_UINT8, 3);
      fillScene(src, 8, 15);
      for (const double strength : {0.9, 1.0, 3.7, 300.0}) {
        const auto make = [w = w, h = h] { return std::make_unique<TestImage>(w, h, IMAGE_YUV420_SEMIPLANAR); };
        const auto result = sameOnAll(pools_.all, make, [&](Pel* pel, Image* dst) {
          ASSERT_EQ(form == kChroma   ? Tessal4Denoiser_denoiseUVPEL(pel, &src, dst, &src, &map, strength, 0.7)
                    : form == kSpikes ? Tessal4Denoiser_removeSpikePEL(pel, dst, &src, &map, strength)
                                      : Tessal4Denoiser_denoiseYPEL(pel, &src, dst, &map, strength, form, 3),
                    ZELVAN_OK);
        });
        result->addTo(&hash);
      }
    }
    test::expectGolden("kernels.txt", "denoiser-rows." + std::to_string(form), hash);
  }
}

TEST_F(Denoiser, EdgesOfTheContract) {
  TestImage image(200, 150, IMAGE_YUV420_SEMIPLANAR, 6), dst(200, 150, IMAGE_UINT8), map(200, 150, IMAGE_UINT8);
  fillMap(map, 1, 0);
  ASSERT_EQ(denoise(nullptr, arena_.env(), &image, &map, {0, {0, 1, 2, 3, 4}, 0, {255.0, 0.0, 0.0}}), ZELVAN_OK);
  EXPECT_TRUE(image.unchanged()) << "no tap passes";
  // An arena either has room for the records of all passes, 28 bytes a tile and 24 of a dark speck, and gives the same
  // picture whatever it then refuses, or nothing is done. The count of passes does not matter for how soon that ends.
  const Work three = {1, {1}, 1, {4.0, 4.0, 4.0}};
  for (int32_t y = 0; y < 150; ++y) std::fill_n(map.row(0, y), 200, uint8_t{90});
  TestImage expected(200, 150, IMAGE_YUV420_SEMIPLANAR, 6);
  ASSERT_EQ(denoise(nullptr, arena_.env(), &expected, &map, three), ZELVAN_OK);
  for (uint32_t size = 30000; size < 60000; size += 256) {
    TestImage copy(200, 150, IMAGE_YUV420_SEMIPLANAR, 6);
    TestArena small(size);
    const bool fits = Heap2_getFreeSize(&small.env()->heap) >= 400 * (24 + 28 + 28) + 168;
    ASSERT_EQ(denoise(nullptr, small.env(), &copy, &map, three), fits ? ZELVAN_OK : ZELVAN_ERROR_NOMEM) << size;
    ASSERT_TRUE(fits ? copy.sameBytes(expected) : copy.unchanged()) << size;
  }
  for (const int32_t passes : {94, INT32_MAX}) {
    EXPECT_EQ(denoise(nullptr, arena_.env(), &image, &map, {0, {}, passes, {4.0, 4.0, 4.0}}), ZELVAN_ERROR_NOMEM);
    EXPECT_TRUE(image.unchanged()) << passes;
  }
  // One speck in a flat picture gives way to its ring.
  for (int32_t y = 0; y < 150; ++y) std::fill_n(image.row(0, y), 200, uint8_t{100});
  for (int32_t y = 0; y < 150; ++y) std::fill_n(map.row(0, y), 200, uint8_t{255});
  for (const int32_t speck : {101, 99, 255, 0}) {
    image.row(0, 40)[50] = static_cast<uint8_t>(speck);
    ASSERT_EQ(Tessal4Denoiser_removeSpikePEL(nullptr, &dst, &image, &map, 255.0), ZELVAN_OK);
    EXPECT_EQ(dst.row(0, 40)[50], 100) << speck;
  }
}

}  // namespace
