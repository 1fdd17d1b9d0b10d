#include "image/image_if.h"

#include <gtest/gtest.h>

namespace {

TEST(ImageIf, SizesByName) {
  EXPECT_TRUE(IF_getImageSize(5, 3, "YUV420_SEMIPLANAR") == 36 && IF_getImageSizeY(5, 3, "YUV420_PLANAR") == 24);
  EXPECT_TRUE(IF_getImageSizeU(5, 3, "YUV422_PLANAR") == 9 && IF_getImageSizeV(5, 3, "YUV420_PLANAR") == 6);
  EXPECT_TRUE(IF_getImageSizeUV(5, 3, "YVU422_SEMIPLANAR") == 18 && IF_getImageSizeUV(5, 3, "UINT8") == 0);
}

TEST(ImageIf, RecordsThereAndBack) {
  uint8_t memory[4] = {};
  const zelvan_ImageDataEx record = {7, 5, memory, memory + 1, memory + 2, 31, 32, 33};
  const zelvan_ImageData dense = {7, 5, memory, memory + 1, memory + 2};
  const int32_t cases[][5] = {{2, 1, 21, 0, 0}, {16, 1, 16, 0, 0}, {24, 3, 8, 4, 4}, {25, 2, 8, 8, 0},
                              {26, 3, 8, 4, 4}, {27, 2, 8, 8, 0},  {28, 2, 8, 8, 0}, {29, 2, 8, 8, 0},
                              {36, 3, 7, 7, 7}, {57, 1, 7, 0, 0}};
  for (const auto& [format, planes, pitch0, pitch1, pitch2] : cases) {
    SCOPED_TRACE(format);
    ScopedImage image(nullptr), pitched(nullptr);
    ASSERT_EQ(IF_initImage(&image, &dense, format), ZELVAN_OK);
    ASSERT_EQ(IF_initImageEx(&pitched, &record, format), ZELVAN_OK);
    EXPECT_TRUE(image.pitch0 == pitch0 && image.pitch1 == pitch1 && image.pitch2 == pitch2);
    EXPECT_TRUE(pitched.pitch0 == 31 && pitched.pitch1 == (planes > 1 ? 32 : 0));
    EXPECT_EQ(pitched.pitch2, planes > 2 ? 33 : 0);
    for (const Image* i : {static_cast<Image*>(&image), static_cast<Image*>(&pitched)}) {
      zelvan_ImageData back = {0, 0, nullptr, memory + 3, memory + 3};
      EXPECT_EQ(IF_initImageData(&back, i), ZELVAN_OK);
      EXPECT_TRUE(back.width == 7 && back.height == 5 && back.plane0 == memory && i->external == 1);
      EXPECT_EQ(back.plane1, memory + (planes > 1 ? 1 : 3));
      EXPECT_EQ(back.plane2, memory + (planes > 2 ? 2 : 3));
    }
  }
  ScopedImage image(nullptr);
  EXPECT_EQ(IF_initImage(&image, nullptr, IMAGE_UINT8), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(IF_initImageEx(&image, &record, 68), ZELVAN_ERROR_PARAM);
}

TEST(ImageIf, AvailabilityOfOddWidths) {
  const int32_t cases[][6] = {// format, width, three pitches, available
                              {26, 5, 6, 3, 3, 1}, {26, 5, 5, 3, 3, 0}, {26, 5, 6, 2, 3, 0}, {26, 5, 6, 3, 2, 0},
                              {24, 5, 6, 3, 2, 0}, {27, 5, 6, 6, 0, 1}, {27, 5, 6, 5, 0, 0}, {29, 5, 5, 6, 0, 0},
                              {25, 5, 6, 5, 0, 0}, {28, 5, 6, 5, 0, 0}, {26, 4, 1, 1, 1, 1}, {36, 5, 1, 1, 1, 1},
                              {16, 5, 1, 1, 1, 1}, {57, 5, 1, 1, 1, 1}};
  for (const auto& [format, width, pitch0, pitch1, pitch2, available] : cases) {
    const zelvan_ImageDataEx record = {width, 3, nullptr, nullptr, nullptr, pitch0, pitch1, pitch2};
    EXPECT_EQ(IF_isAvailableImageEx(&record, format), available) << format << ' ' << pitch0;
    EXPECT_EQ(IF_isAvailableImage(), 1);
  }
}

TEST(ImageIf, DisplayModes) {
  const int32_t sizes[][3] = {{7680, 4320, 0}, {8192, 4320, 24}, {127, 96, 23}, {65536, 65536, 23}, {65536, 32768, 23}};
  for (const auto& [w, h, mode] : sizes) EXPECT_EQ(IF_getDisplayMode(w, h), mode) << w << 'x' << h;
  for (int32_t mode = 1; mode <= 22; ++mode) {
    EXPECT_EQ(IF_getDisplayMode(IF_getPixelSize(mode), 1), mode);
    EXPECT_EQ(IF_getDisplayMode(IF_getPixelSize(mode) - 1, 1), mode + 1);
  }
  EXPECT_TRUE(IF_getPixelSize(-1) == 0 && IF_getPixelSize(18) == 640 * 480 && IF_getPixelSize(23) == 0);
}

}  // namespace
