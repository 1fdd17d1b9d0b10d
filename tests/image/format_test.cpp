#include "image/format.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "layout_model.h"

namespace {

constexpr int32_t kLowest = std::numeric_limits<int32_t>::min();

TEST(Format, NamesAndIdsAgree) {
  for (int32_t id = 0; id < 68; ++id) EXPECT_EQ(Image_getImageFormat(Image_getImageFormatStr(id)), id);
  const std::pair<int32_t, const char*> anchors[] = {{0, "NONE"},
                                                     {3, "BGR888"},
                                                     {5, "BRGA8888"},
                                                     {8, "RBGA8888"},
                                                     {14, "ARBG8888"},
                                                     {17, "YUV422_YVYU"},
                                                     {22, "YUV422_VUYY"},
                                                     {28, "YVU422_SEMIPLANAR"},
                                                     {33, "YUV444_VYU"},
                                                     {38, "BAYER8_GRBG"},
                                                     {47, "BAYER10_M8L2PACKED_GBRG"},
                                                     {56, "BAYER16_BGGR"},
                                                     {59, "HSV"},
                                                     {63, "FLOAT"},
                                                     {67, "YUV9_44_VU"}};
  for (const auto& [id, name] : anchors) EXPECT_STREQ(Image_getImageFormatStr(id), name);
  for (const int32_t id : {-1, 68, kLowest}) EXPECT_STREQ(Image_getImageFormatStr(id), "(unknown)");
  for (const char* name :
       {"yuv420_planar", "YUV420_PLANAR ", "YUV420", "", "(unknown)", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(Image_getImageFormat(name), 0);
  }
}

TEST(Format, SizesFollowFromTheNames) {
  const int32_t sizes[][2] = {{0, 0}, {0, 7}, {1, 1}, {2, 3}, {5, 3}, {6, 4}, {7, 9}, {641, 482}, {4000, 3001}};
  for (int32_t id = 0; id < 68; ++id) {
    const LayoutModel model = layoutOf(Image_getImageFormatStr(id));
    EXPECT_EQ(imagePlaneCount(id), model.planes);
    for (const auto& [w, h] : sizes) {
      int64_t r[3], b[3], all[3];
      for (int32_t p = 0; p < 3; ++p) all[p] = (r[p] = model.rows(p, h)) * (b[p] = model.rowBytes(p, w));
      const int64_t expected[14] = {all[0] + all[1] + all[2],
                                    r[0],
                                    all[0],
                                    r[0],
                                    b[0],
                                    all[1],
                                    r[1],
                                    b[1],
                                    all[2],
                                    r[2],
                                    b[2],
                                    all[1],
                                    r[1],
                                    b[1]};
      for (int32_t kind = 0; kind < 14; ++kind) {
        EXPECT_EQ(Image_getSize(w, h, id, kind), expected[kind]) << id << ' ' << w << 'x' << h << ' ' << kind;
      }
    }
  }
}

TEST(Format, SizeRefusesAndWraps) {
  const int32_t cases[][5] = {{-1, 4, 57, 0, 0},
                              {4, -1, 57, 0, 0},
                              {4, 4, 68, 0, 0},
                              {4, 4, -1, 0, 0},
                              {4, 4, 57, 14, 0},
                              {4, 4, 57, -1, 0},
                              {kLowest, 4, 57, 4, 0},
                              {65537, 65536, 57, 0, 65536},
                              {65536, 32768, 57, 0, kLowest}};
  for (const auto& [w, h, format, kind, size] : cases) EXPECT_EQ(Image_getSize(w, h, format, kind), size);
}

TEST(Format, FamiliesFollowFromTheNames) {
  const struct {
    int32_t (*predicate)(int32_t);
    const char* names;
  } families[] = {
      {Image_isRgb, "RGB565|RGB888|BGR888"},
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
      {Image_isBayerUnpacked, "BAYER(16|1._UNPACKED).*"},
  };
  for (const auto& family : families) {
    const testing::Matcher<const std::string&> names = testing::MatchesRegex(family.names);
    for (int32_t id = -1; id < 70; ++id) {
      const std::string name = Image_getImageFormatStr(id);
      EXPECT_EQ(family.predicate(id) != 0, names.Matches(name)) << family.names << ": " << name;
    }
  }
}

}  // namespace
