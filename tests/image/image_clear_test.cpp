#include "image/image_clear.h"

#include <gtest/gtest.h>

#include "image/image_conv.h"
#include "support/test_image.h"

namespace {

using Clear = Status (*)(Image*, const int32_t*);

struct Family {
  Clear clear;
  int32_t first, last;
  enum { kRgb, kYuv, kRaw } kind;
};
constexpr Family kFamilies[] = {
    {ImageRgb565_clear, 1, 1, Family::kRgb},
    {ImageRgb888_clear, 2, 2, Family::kRgb},
    {ImageUint8888_clear, 4, 15, Family::kRgb},
    {ImageYuv422Interleaved_clear, 16, 23, Family::kYuv},
    {ImageYuvPlanarSemiplanar_clear, 24, 29, Family::kYuv},
    {ImageYuv444Interleaved_clear, 30, 35, Family::kYuv},
    {ImageYuvPlanarSemiplanar_clear, 36, 36, Family::kYuv},
    {ImageBayer8_clear, 37, 40, Family::kRaw},
    {ImageBayer16_clear, 41, 44, Family::kRaw},
    {ImageBayer16_clear, 49, 56, Family::kRaw},
    {ImageUint8_clear, 57, 57, Family::kRaw},
    {ImageInt32_clear, 58, 58, Family::kRaw},
    {ImageUint16_clear, 61, 61, Family::kRaw},
    {ImageFloat_clear, 63, 63, Family::kRaw},
};

// Read back by the conversion to RGB, which knows the places of all channels by itself, or as raw samples.
TEST(ImageClear, EveryFamilyByItsChannels) {
  for (const Family& family : kFamilies) {
    for (int32_t format = family.first; format <= family.last; ++format) {
      SCOPED_TRACE(Image_getImageFormatStr(format));
      TestImage image(13, 7, format, 3, 8), rgb(13, 7, IMAGE_RGB888, 4);
      const int32_t colour[4] = {200, 100, 48, 255}, yuv[3] = {120, 90, 160}, raw = 61;
      const int32_t u = yuv[1] - 128, v = yuv[2] - 128;
      const int32_t shown[3] = {yuv[0] + ((45941 * v) >> 15), yuv[0] - ((11272 * u + 23396 * v) >> 15),
                                yuv[0] + ((58065 * u) >> 15)};
      const bool isRgb = family.kind == Family::kRgb;
      ASSERT_EQ(family.clear(&image, isRgb ? colour : family.kind == Family::kYuv ? yuv : &raw), ZELVAN_OK);
      EXPECT_TRUE(image.guardsUnchanged());
      if (family.kind == Family::kRaw) {
        for (int32_t x = 0; x < 13; ++x) {
          const uint8_t* row = image.row(0, 6);
          const int32_t bytes = image.pixelBytes(0) / 13;
          const int32_t sample = bytes == 1     ? row[x]
                                 : bytes == 2   ? imageRow<uint16_t>(&image, 6)[x]
                                 : format == 63 ? static_cast<int32_t>(imageRow<float>(&image, 6)[x])
                                                : imageRow<int32_t>(&image, 6)[x];
          ASSERT_EQ(sample, raw);
        }
      } else {
        if (format == IMAGE_RGB888) Image_copy(&rgb, &image);
        ASSERT_EQ(Image_conv_toRgb888(&rgb, &image), ZELVAN_OK);
        const int32_t *const want = isRgb ? colour : shown, low = format == IMAGE_RGB565 ? ~7 : ~0;
        for (int32_t i = 0; i < 39 * 7; ++i) {
          ASSERT_EQ(rgb.row(0, i / 39)[i % 39] & low, want[i % 3] & low) << i;
        }
      }
    }
  }
}

TEST(ImageClear, ChannelsOfOneReadingAndRefusals) {
  const int32_t values[3] = {10, 20, 300};
  TestImage bgr(5, 3, IMAGE_BGR888), deep(5, 3, IMAGE_RGB161616, 1, 6), pair(5, 3, IMAGE_UINT88), same(5, 3, 57);
  ASSERT_EQ(ImageRgb888_clear(&bgr, values) | ImageRgb161616_clear(&deep, values) | ImageUint88_clear(&pair, values),
            ZELVAN_OK);
  EXPECT_TRUE(bgr.row(0, 2)[12] == (300 & 255) && bgr.row(0, 2)[14] == 10);
  EXPECT_TRUE(imageRow<uint16_t>(&deep, 2)[14] == 300 && pair.row(0, 2)[9] == 20);
  for (const Family& family : kFamilies) {
    TestImage& other = family.first == 57 ? pair : same;
    EXPECT_EQ(family.clear(&other, values) & family.clear(nullptr, values) & family.clear(&other, nullptr),
              ZELVAN_ERROR_PARAM);
  }
  EXPECT_TRUE(same.unchanged());
}

}  // namespace
