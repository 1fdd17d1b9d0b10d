#include "filters/sharpen.h"
#include "support/pixel_scene.h"
#include "support/test_pel.h"

namespace {

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
