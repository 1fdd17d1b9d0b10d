#include "image/format.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <set>
#include <string>

#include "layout_model.h"

namespace {

TEST(Format, NamesAndIdsAgree) {
  std::set<std::string> names;
  for (int32_t id = 0; id < 68; ++id) {
    EXPECT_EQ(Image_getImageFormat(Image_getImageFormatStr(id)), id);
    names.insert(Image_getImageFormatStr(id));
  }
  EXPECT_EQ(names.size(), 68u);
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
                                                     {64, "UINT88"},
                                                     {67, "YUV9_44_VU"}};
  for (const auto& [id, name] : anchors) EXPECT_STREQ(Image_getImageFormatStr(id), name);
  for (const int32_t id : {-1, 68, std::numeric_limits<int32_t>::min()}) {
    EXPECT_STREQ(Image_getImageFormatStr(id), "(unknown)");
  }
  for (const char* name : {"yuv420_planar", "YUV420_PLANAR ", "YUV420", "", "(unknown)"}) {
    EXPECT_EQ(Image_getImageFormat(name), 0) << name;
  }
  EXPECT_EQ(Image_getImageFormat(nullptr), 0);
}

TEST(Format, SizesFollowFromTheNames) {
  const int32_t sizes[][2] = {{0, 0}, {0, 7}, {1, 1}, {2, 3}, {5, 3}, {6, 4}, {7, 9}, {641, 482}, {4000, 3001}};
  for (int32_t id = 0; id < 68; ++id) {
    const LayoutModel model = layoutOf(Image_getImageFormatStr(id));
    for (const auto& [w, h] : sizes) {
      SCOPED_TRACE(testing::Message() << Image_getImageFormatStr(id) << ' ' << w << 'x' << h);
      int64_t rows[3], rowBytes[3], bytes[3];
      for (int32_t p = 0; p < 3; ++p) {
        rows[p] = model.rows(p, h);
        rowBytes[p] = model.rowBytes(p, w);
        bytes[p] = rows[p] * rowBytes[p];
      }
      const int64_t expected[14] = {bytes[0] + bytes[1] + bytes[2],
                                    rows[0],
                                    bytes[0],
                                    rows[0],
                                    rowBytes[0],
                                    bytes[1],
                                    rows[1],
                                    rowBytes[1],
                                    bytes[2],
                                    rows[2],
                                    rowBytes[2],
                                    bytes[1],
                                    rows[1],
                                    rowBytes[1]};
      for (int32_t kind = 0; kind < 14; ++kind) EXPECT_EQ(Image_getSize(w, h, id, kind), expected[kind]) << kind;
      EXPECT_EQ(imagePlaneCount(id), model.planes);
    }
  }
}

TEST(Format, SizeRefusesAndWraps) {
  const int32_t lowest = std::numeric_limits<int32_t>::min();
  const int32_t refused[][4] = {{-1, 4, 57, 0}, {4, -1, 57, 0}, {4, 4, 68, 0},     {4, 4, -1, 0},
                                {4, 4, 57, 14}, {4, 4, 57, -1}, {4, 4, lowest, 2}, {lowest, 4, 57, 4}};
  for (const auto& [w, h, format, kind] : refused) EXPECT_EQ(Image_getSize(w, h, format, kind), 0);
  EXPECT_EQ(Image_getSize(65537, 65536, IMAGE_UINT8, 0), 65536);
  EXPECT_EQ(Image_getSize(65536, 32768, IMAGE_UINT8, 0), lowest);
  EXPECT_EQ(Image_getSize(0x7fffffff, 1, IMAGE_YUV420_PLANAR, 4), lowest);
}

TEST(Format, FamiliesFollowFromTheNames) {
  using Rule = std::function<bool(const std::string&)>;
  const auto starts = [](std::string part) { return Rule([=](const std::string& n) { return n.starts_with(part); }); };
  const auto ends = [](std::string part) { return Rule([=](const std::string& n) { return n.ends_with(part); }); };
  const auto both = [](Rule a, Rule b) { return Rule([=](const std::string& n) { return a(n) && b(n); }); };
  const auto either = [](Rule a, Rule b) { return Rule([=](const std::string& n) { return a(n) || b(n); }); };
  const auto no = [](Rule a) { return Rule([=](const std::string& n) { return !a(n); }); };
  const struct {
    const char* name;
    int32_t (*predicate)(int32_t);
    Rule rule;
  } families[] = {
      {"Rgb", Image_isRgb, either(starts("RGB565"), both(no(ends("8888")), ends("888")))},
      {"Yuv", Image_isYuv, either(starts("YUV4"), starts("YVU4"))},
      {"Yuv422Interleaved", Image_isYuv422Interleaved, both(starts("YUV422"), no(ends("PLANAR")))},
      {"Yuv422", Image_isYuv422, starts("YUV422")},
      {"Yvu422", Image_isYvu422, starts("YVU422")},
      {"Yuv420", Image_isYuv420, starts("YUV420")},
      {"Yvu420", Image_isYvu420, starts("YVU420")},
      {"Yuv444Interleaved", Image_isYuv444Interleaved, both(starts("YUV444"), no(ends("PLANAR")))},
      {"Yuv444", Image_isYuv444, starts("YUV444")},
      {"YuvPlanar", Image_isYuvPlanar, ends("_PLANAR")},
      {"YuvSemiplanar", Image_isYuvSemiplanar, both(starts("YUV"), ends("SEMIPLANAR"))},
      {"YvuSemiplanar", Image_isYvuSemiplanar, both(starts("YVU"), ends("SEMIPLANAR"))},
      {"Bayer8", Image_isBayer8, starts("BAYER8")},
      {"Bayer10M8L2Packed", Image_isBayer10M8L2Packed, starts("BAYER10_M8L2")},
      {"Bayer10Unpacked", Image_isBayer10Unpacked, starts("BAYER10_UNPACKED")},
      {"Bayer12Unpacked", Image_isBayer12Unpacked, starts("BAYER12")},
      {"Bayer16", Image_isBayer16, starts("BAYER16")},
      {"BayerUnpacked", Image_isBayerUnpacked,
       both(starts("BAYER"), no(either(starts("BAYER8"), starts("BAYER10_M8L2"))))},
  };
  for (const auto& family : families) {
    for (int32_t id = -1; id < 70; ++id) {
      const std::string name = Image_getImageFormatStr(id);
      EXPECT_EQ(family.predicate(id) != 0, family.rule(name)) << family.name << " of " << name;
    }
  }
}

}  // namespace
