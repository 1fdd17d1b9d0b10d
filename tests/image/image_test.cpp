#include "image/image.h"

#include <cstring>
#include <limits>
#include <sstream>

#include "image/format.h"
#include "image/image_if.h"
#include "layout_model.h"
#include "support/test_arena.h"
#include "support/test_image.h"

namespace {

constexpr int32_t kHighest = std::numeric_limits<int32_t>::max();

std::array<uint8_t*, 3> planesOf(const Image& i) {
  return {i.plane0, i.plane1, i.plane2};
}
std::array<int32_t, 3> pitchesOf(const Image& i) {
  return {i.pitch0, i.pitch1, i.pitch2};
}

// Where the unit that holds pixel (x, y) starts; null for a plane that the format has not.
uint8_t* unitAt(const TestImage& image, int32_t p, int32_t x, int32_t y) {
  const LayoutModel model = layoutOf(Image_getImageFormatStr(image.format));
  const LayoutModel::Plane& plane = model.plane[p];
  if (p >= model.planes) return nullptr;
  return image.row(p, y / plane.unitHeight) +
         (plane.unitBytes == 5 ? x + x / 4 : x / plane.unitWidth * plane.unitBytes);
}

TEST(ImageInit, PlanesAndPitches) {
  TestArena arena;
  uint8_t memory[3] = {};
  for (int32_t id = 1; id < 68; ++id) {
    SCOPED_TRACE(Image_getImageFormatStr(id));
    const LayoutModel model = layoutOf(Image_getImageFormatStr(id));
    void* planes[3] = {memory, memory + 1, memory + 2};
    intptr_t words[6] = {};
    for (int32_t p = 0; p < model.planes; ++p) {
      words[p] = reinterpret_cast<intptr_t>(planes[p]);
      words[model.planes + p] = 100 + p;
    }
    ScopedImage own(arena.env()), dense(nullptr), pitched(nullptr);
    ASSERT_EQ(Image_init(&own, 37, 21, nullptr, id), ZELVAN_OK);
    ASSERT_EQ(Image_init(&dense, 37, 21, model.planes == 1 ? planes[0] : planes, id), ZELVAN_OK);
    ASSERT_EQ(Image_initWithPitch(&pitched, 37, 21, words, id), ZELVAN_OK);
    EXPECT_TRUE(own.external == 0 && dense.external == 1 && pitched.external == 1);
    int64_t offset = 0;
    for (int32_t p = 0; p < 3; ++p) {
      const bool present = p < model.planes;
      EXPECT_EQ(planesOf(own)[p], present ? own.plane0 + offset : nullptr);
      EXPECT_TRUE(planesOf(dense)[p] == (present ? planes[p] : nullptr) && planesOf(pitched) == planesOf(dense));
      EXPECT_TRUE(pitchesOf(own)[p] == model.rowBytes(p, 37) && pitchesOf(dense) == pitchesOf(own));
      EXPECT_EQ(pitchesOf(pitched)[p], present ? 100 + p : 0);
      offset += model.rowBytes(p, 37) * model.rows(p, 21);
    }
    EXPECT_GE(arena.used(), offset);
  }
  EXPECT_EQ(arena.used(), 0u);
}

TEST(ImageInit, ABlockOfTheSameSizeIsKept) {
  TestArena arena;
  ScopedImage image(arena.env()), barrier(arena.env());
  ASSERT_EQ(Image_init(&image, 32, 24, nullptr, IMAGE_YUV420_PLANAR), ZELVAN_OK);
  ASSERT_EQ(Image_init(&barrier, 64, 1, nullptr, IMAGE_UINT8), ZELVAN_OK);
  uint8_t* const block = image.plane0;
  const int32_t sizes[][3] = {{32, 24, 27}, {48, 24, 57}, {16, 18, 63}, {49, 24, 57}};
  for (const auto& [w, h, format] : sizes) {
    ASSERT_EQ(Image_init(&image, w, h, nullptr, format), ZELVAN_OK);
    EXPECT_TRUE(image.format == format && (image.plane0 == block) == (w != 49));
  }
  // To foreign memory of the same size and back: the block goes, and the foreign plane is never taken for it.
  uint8_t foreign[49 * 24];
  for (const auto& [w, h] : {std::pair{49, 24}, {0, 9}}) {
    ASSERT_EQ(Image_init(&image, 49, 24, foreign, IMAGE_UINT8), ZELVAN_OK);
    EXPECT_EQ(image.plane0, foreign);
    EXPECT_EQ(arena.used(), 80u) << "more than the barrier";
    ASSERT_EQ(Image_init(&image, w, h, nullptr, IMAGE_UINT8), ZELVAN_OK);
    EXPECT_TRUE(image.plane0 != foreign && (image.plane0 == nullptr) == (w == 0));
  }
}

TEST(ImageInit, RefusesAndRecovers) {
  EXPECT_EQ(construct_Image(nullptr, nullptr) & destruct_Image(nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Image_init(nullptr, 1, 1, nullptr, IMAGE_UINT8), ZELVAN_ERROR_PARAM);
  TestArena arena(4096);
  ScopedImage image(arena.env());
  const auto refuse = [&](int32_t w, int32_t h, int32_t format, Status status) {
    ASSERT_EQ(Image_init(&image, 20, 10, nullptr, IMAGE_UINT16), ZELVAN_OK);
    EXPECT_EQ(Image_init(&image, w, h, nullptr, format), status) << w << 'x' << h << ' ' << format;
    EXPECT_EQ(Image_initWithPitch(&image, w, h, nullptr, format), status);
    EXPECT_EQ(image.plane0 == nullptr, status == ZELVAN_ERROR_NOMEM);
  };
  for (const auto& [w, h] : {std::pair{-1, 4}, {4, -1}}) refuse(w, h, IMAGE_UINT8, ZELVAN_ERROR_PARAM);
  for (const int32_t format : {-1, 68}) refuse(4, 4, format, ZELVAN_ERROR_PARAM);
  for (const int32_t side : {64, 65536, kHighest}) refuse(side, side, IMAGE_UINT8, ZELVAN_ERROR_NOMEM);
  refuse(kHighest, kHighest, IMAGE_LAB, ZELVAN_ERROR_NOMEM);
  uint8_t pixel = 0;
  EXPECT_EQ(Image_init(&image, 0x20000000, 1, &pixel, IMAGE_INT32), ZELVAN_ERROR_PARAM);  // no pitch is that long
}

TEST(SubImage, StartsAtTheUnitOfItsOrigin) {
  const struct {
    Status (*init)(Image*, const Image*, int32_t, int32_t, int32_t, int32_t);
    int32_t plane, format;
    std::vector<int32_t> served;
  } planeViews[] = {{Image_initSubImageY, 0, 57, {24, 25, 26, 27, 28, 29, 36, 57}},
                    {Image_initSubImageU, 1, 57, {24, 26, 36}},
                    {Image_initSubImageV, 2, 57, {24, 26, 36}},
                    {Image_initSubImageUV, 1, 64, {25, 27, 28, 29}}};
  for (int32_t id = 1; id < IMAGE_YUV9_44_UV; ++id) {
    TestImage src(41, 30, id);
    ScopedImage view(nullptr), inner(nullptr);
    for (const auto& [x, y] : {std::pair{0, 0}, {1, 1}, {2, 3}, {7, 6}, {20, 15}}) {
      SCOPED_TRACE(testing::Message() << Image_getImageFormatStr(id) << " at " << x << ',' << y);
      const int32_t w = 41 - x, h = 30 - y;
      ASSERT_EQ(Image_initSubImage(&view, &src, x, y, w, h), ZELVAN_OK);
      EXPECT_TRUE(view.external == 1 && view.format == id && view.width == w && view.height == h);
      EXPECT_EQ(pitchesOf(view), pitchesOf(src));
      ASSERT_EQ(Image_initSubImage(&inner, &src, 4, 8, 37, 22), ZELVAN_OK);
      ASSERT_EQ(Image_initSubImage(&inner, &inner, x, y, 3, 2), ZELVAN_OK);  // a view of a view, into its own record
      for (int32_t p = 0; p < 3; ++p) {
        EXPECT_EQ(planesOf(view)[p], unitAt(src, p, x, y));
        EXPECT_EQ(planesOf(inner)[p], unitAt(src, p, 4 + x, 8 + y));
      }
      for (const auto& v : planeViews) {
        const bool served = std::find(v.served.begin(), v.served.end(), id) != v.served.end();
        ASSERT_EQ(v.init(&view, &src, x, y, w, h), served ? ZELVAN_OK : ZELVAN_ERROR_UNSUPPORTED);
        if (!served) continue;
        const LayoutModel::Plane unit = layoutOf(Image_getImageFormatStr(id)).plane[v.plane];
        EXPECT_TRUE(view.plane0 == unitAt(src, v.plane, x, y) && view.pitch0 == src.pitch(v.plane));
        EXPECT_TRUE(view.external == 1 && view.format == v.format);
        EXPECT_TRUE(view.width == w / unit.unitWidth && view.height == h / unit.unitHeight);
        EXPECT_EQ(v.init(&view, &src, x, y, w + 1, h) & v.init(nullptr, &src, x, y, w, h), ZELVAN_ERROR_PARAM);
      }
    }
  }
}

TEST(SubImage, Bounds) {
  TestImage src(20, 10, IMAGE_YUV420_PLANAR), yuv9(20, 12, IMAGE_YUV9_44_VU);
  ScopedImage view(nullptr);
  for (const auto& [x, y, w, h] : {std::array{0, 0, 20, 10}, {20, 10, 0, 0}, {3, 3, 0, 4}}) {
    EXPECT_EQ(Image_initSubImage(&view, &src, x, y, w, h), ZELVAN_OK);
    EXPECT_EQ(view.plane2 == nullptr, w == 0);
  }
  const int32_t outside[][4] = {{-1, 0, 4, 4}, {0, -1, 4, 4}, {0, 0, -1, 4}, {0, 0, 4, -1},
                                {17, 0, 4, 4}, {0, 7, 4, 4},  {21, 0, 0, 0}, {1, 0, kHighest, 4}};
  for (const auto& [x, y, w, h] : outside) {
    EXPECT_EQ(Image_initSubImage(&view, &src, x, y, w, h), ZELVAN_ERROR_PARAM) << x << ' ' << y << ' ' << w;
  }
  EXPECT_EQ(Image_initSubImage(&view, nullptr, 0, 0, 4, 4), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Image_initSubImage(&view, &yuv9, 0, 0, 4, 4), ZELVAN_ERROR_UNSUPPORTED);
  for (const int32_t p : {0, 1, 2}) {
    Image headless = src, flat = src;
    (p == 0 ? headless.plane0 : p == 1 ? headless.plane1 : headless.plane2) = nullptr;
    (p == 0 ? flat.pitch0 : p == 1 ? flat.pitch1 : flat.pitch2) = 0;
    EXPECT_EQ(Image_initSubImage(&view, &headless, 0, 0, 4, 4), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(Image_initSubImage(&view, &flat, 0, 0, 4, 4), ZELVAN_ERROR_PARAM);
  }
}

TEST(ImageCopy, PixelsOnlyForEveryFormat) {
  TestArena arena;
  for (int32_t id = 1; id < 68; ++id) {
    for (const auto& [w, h] : {std::pair{1, 1}, {7, 5}, {10, 3}, {16, 8}}) {
      SCOPED_TRACE(testing::Message() << Image_getImageFormatStr(id) << ' ' << w << 'x' << h);
      const TestImage src(w, h, id, 1, 3);
      TestImage dst(w, h, id, 2, 8), again(w, h, id, 2, 8), expected(w, h, id, 2, 8);
      for (int32_t p = 0; p < imagePlaneCount(id); ++p) {
        for (int32_t y = 0; y < src.pixelRows(p); ++y) memcpy(expected.row(p, y), src.row(p, y), src.pixelBytes(p));
      }
      ScopedImage own(arena.env());
      EXPECT_EQ(Image_copy(&dst, &src) | Image_copy(&own, &src) | Image_copy(&again, &own), ZELVAN_OK);
      EXPECT_TRUE(own.external == 0 && dst.sameBytes(expected) && again.sameBytes(expected));
    }
  }
}

TEST(ImageCopy, RefusesOtherShapes) {
  TestImage dst(8, 6, IMAGE_YUV420_SEMIPLANAR, 2);
  const TestImage narrow(7, 6, 27), low(8, 5, 27), other(8, 6, 29), none(8, 6, 0), empty(0, 6, 57);
  Image headless = dst, unknown = other, twin = narrow;
  headless.plane0 = other.plane0;
  headless.plane1 = nullptr;
  unknown.format = 68;
  for (const Image& src : {Image(narrow), Image(low), Image(other), Image(none), Image(empty), headless, unknown}) {
    EXPECT_EQ(Image_copy(&dst, &src), ZELVAN_ERROR_PARAM) << src.width << 'x' << src.height << ' ' << src.format;
  }
  EXPECT_EQ(Image_copy(&dst, nullptr) & Image_copy(nullptr, &dst), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Image_copy(&headless, &dst), ZELVAN_ERROR_PARAM);  // as a target
  twin.plane0 = dst.plane0;  // the same plane counts as the same picture, whatever the rest says
  EXPECT_EQ(Image_copy(&dst, &twin), ZELVAN_OK);
  EXPECT_TRUE(dst.unchanged());
}

TEST(PartialCopy, MovesOneRectangle) {
  for (const int32_t id : {2, 12, 16, 24, 25, 26, 27, 36, 45, 57, 60, 62, 64}) {
    const LayoutModel model = layoutOf(Image_getImageFormatStr(id));
    const int32_t left = 3 * model.alignX, top = 2 * model.alignY, dstX = model.alignX, dstY = 5 * model.alignY;
    const ImageRect rect = {left, top, left + 7, top + 5};
    const TestImage src(24, 16, id, 1), shape(7, 5, id);
    TestImage dst(28, 20, id, 2), expected(28, 20, id, 2);
    for (int32_t p = 0; p < model.planes; ++p) {
      for (int32_t y = 0; y < shape.pixelRows(p); ++y) {
        const int32_t down = y * model.plane[p].unitHeight;
        memcpy(unitAt(expected, p, dstX, dstY + down), unitAt(src, p, left, top + down), shape.pixelBytes(p));
      }
    }
    EXPECT_EQ(Image_partialCopy(&dst, &src, dstX, dstY, &rect), ZELVAN_OK);
    EXPECT_TRUE(dst.sameBytes(expected)) << Image_getImageFormatStr(id);
  }
}

TEST(PartialCopy, Refuses) {
  const TestImage src(16, 16, 27, 1), other(16, 16, 57, 1);
  TestImage dst(16, 16, 27, 2);
  const auto copy = [&](const Image* from, int32_t x, int32_t y, const ImageRect& rect) {
    return Image_partialCopy(&dst, from, x, y, &rect);
  };
  const ImageRect rect = {0, 0, 4, 4}, refused[] = {{1, 0, 4, 4}, {0, 3, 4, 4}, {-2, 0, 4, 4}, {0, 0, 18, 4}};
  for (const ImageRect& bad : refused) EXPECT_EQ(copy(&src, 0, 0, bad), ZELVAN_ERROR_PARAM) << bad.left << bad.right;
  for (const int32_t x : {1, -2, 14}) EXPECT_EQ(copy(&src, x, 0, rect), ZELVAN_ERROR_PARAM) << x;
  EXPECT_EQ(copy(&src, 0, 1, rect) & copy(&other, 0, 0, rect), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(copy(&src, 1, 1, {5, 5, 5, 9}) | copy(&src, 1, 1, {5, 9, 9, 8}) | copy(&dst, 4, 4, rect), ZELVAN_OK);
  EXPECT_TRUE(dst.unchanged());
}

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
  EXPECT_EQ(IF_initImage(&image, nullptr, IMAGE_UINT8) & IF_initImageEx(&image, &record, 68), ZELVAN_ERROR_PARAM);
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
