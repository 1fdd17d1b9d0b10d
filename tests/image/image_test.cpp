#include "image/image.h"

#include <cstring>
#include <limits>

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

}  // namespace
