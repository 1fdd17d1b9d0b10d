#include "image/format.h"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>

#include "image/image_if.h"
#include "layout_model.h"

namespace {

constexpr int32_t kLowest = std::numeric_limits<int32_t>::min();

TEST(Format, NamesAndIdsAgree) {
  for (int32_t id = 0; id < 68; ++id) EXPECT_EQ(Image_getImageFormat(Image_getImageFormatStr(id)), id);
  std::istringstream anchors(
      "0 NONE 3 BGR888 5 BRGA8888 8 RBGA8888 14 ARBG8888 17 YUV422_YVYU 22 YUV422_VUYY 28 YVU422_SEMIPLANAR "
      "33 YUV444_VYU 38 BAYER8_GRBG 47 BAYER10_M8L2PACKED_GBRG 56 BAYER16_BGGR 59 HSV 63 FLOAT 67 YUV9_44_VU");
  std::string name;
  for (int32_t id = 0; anchors >> id >> name;) EXPECT_EQ(Image_getImageFormatStr(id), name);
  for (const int32_t id : {-1, 68, kLowest}) EXPECT_STREQ(Image_getImageFormatStr(id), "(unknown)");
  for (const char* unknown : {"yuv420_planar", "YUV420_PLANAR ", ""}) EXPECT_EQ(Image_getImageFormat(unknown), 0);
  EXPECT_EQ(Image_getImageFormat(nullptr), 0);
}

TEST(Format, SizesFollowFromTheNames) {
  const std::string planes = "-0000111222111", measures = "-rbrwbrwbrwbrw";  // per kind: rows, bytes, row width
  const int32_t sizes[][2] = {{0, 7}, {1, 1}, {5, 3}, {6, 4}, {7, 9}, {641, 482}, {4000, 3001}};
  for (int32_t id = 0; id < 68; ++id) {
    const LayoutModel model = layoutOf(Image_getImageFormatStr(id));
    EXPECT_EQ(imagePlaneCount(id), model.planes);
    for (const auto& [w, h] : sizes) {
      int64_t all = 0;
      for (int32_t p = 0; p < 3; ++p) all += model.rows(p, h) * model.rowBytes(p, w);
      EXPECT_EQ(Image_getSize(w, h, id, 0), all) << id;
      for (size_t kind = 1; kind < 14; ++kind) {
        const int64_t rows = model.rows(planes[kind] - '0', h), width = model.rowBytes(planes[kind] - '0', w);
        const int64_t size = measures[kind] == 'r' ? rows : measures[kind] == 'w' ? width : rows * width;
        EXPECT_EQ(Image_getSize(w, h, id, static_cast<int32_t>(kind)), size) << id << ' ' << w << ' ' << kind;
      }
    }
  }
  const int32_t refused[][4] = {{-1, 4, 57, 0}, {4, -1, 57, 0}, {4, 4, 68, 0},      {4, 4, -1, 0},
                                {4, 4, 57, 14}, {4, 4, 57, -1}, {kLowest, 4, 57, 4}};
  for (const auto& [w, h, format, kind] : refused) EXPECT_EQ(Image_getSize(w, h, format, kind), 0);
  EXPECT_EQ(Image_getSize(65537, 65536, 57, 0), 65536);  // the low 32 bits
}

TEST(Format, FamiliesFollowFromTheNames) {
  const std::pair<int32_t (*)(int32_t), const char*> families[] = {{Image_isRgb, "RGB565|RGB888|BGR888"},
                                                                   {Image_isUint8888, ".*8888"},
                                                                   {Image_isYuv, "Y(UV|VU)4.*"},
                                                                   {Image_isYuv422Interleaved, "YUV422_[YUV]{4}"},
                                                                   {Image_isYuv422, "YUV422.*"},
                                                                   {Image_isYvu422, "YVU422.*"},
                                                                   {Image_isYuv420, "YUV420.*"},
                                                                   {Image_isYvu420, "YVU420.*"},
                                                                   {Image_isYuv444Interleaved, "YUV444_[YUV]{3}"},
                                                                   {Image_isYuv444, "YUV444.*"},
                                                                   {Image_isYuvPlanar, ".*_PLANAR"},
                                                                   {Image_isYuvSemiplanar, "YUV.*_SEMIPLANAR"},
                                                                   {Image_isYvuSemiplanar, "YVU.*_SEMIPLANAR"},
                                                                   {Image_isBayer8, "BAYER8.*"},
                                                                   {Image_isBayer10M8L2Packed, "BAYER10_M8L2.*"},
                                                                   {Image_isBayer10Unpacked, "BAYER10_UNPACKED.*"},
                                                                   {Image_isBayer12Unpacked, "BAYER12.*"},
                                                                   {Image_isBayer16, "BAYER16.*"},
                                                                   {Image_isBayerUnpacked, "BAYER(16|1._UNPACKED).*"}};
  for (const auto& [predicate, names] : families) {
    for (int32_t id = -1; id < 70; ++id) {
      const std::string name = Image_getImageFormatStr(id);
      EXPECT_EQ(predicate(id) != 0, testing::Matcher<std::string>(testing::MatchesRegex(names)).Matches(name)) << name;
    }
  }
}

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
