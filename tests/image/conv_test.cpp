#include <array>

#include "image/image_clear.h"
#include "image/image_conv.h"
#include "support/test_arena.h"
#include "support/test_image.h"

namespace {

using Convert = Status (*)(Image*, const Image*);
using ConvertRect = Status (*)(Image*, const Image*, const ImageRect*);

void fill(const TestImage& rgb, int32_t r, int32_t g, int32_t b) {
  for (int32_t i = 0; i < rgb.width * rgb.height * 3; ++i) {
    rgb.row(0, i / 3 / rgb.width)[i % (3 * rgb.width)] = static_cast<uint8_t>(std::array{r, g, b}[i % 3]);
  }
}

struct Target {
  int32_t first, last;
  Convert convert;
  ConvertRect withRect;
  int32_t tolerance;  // of a colour's way there and back
};

#define TARGET(name) Image_conv_to##name, Image_conv_to##name##_withRect
const Target kTargets[] = {
    {1, 1, TARGET(Rgb565), 7},
    {4, 15, TARGET(Uint8888), 0},
    {16, 23, TARGET(Yuv422Interleaved), 3},
    {24, 24, TARGET(Yuv422Planar), 3},
    {25, 25, TARGET(Yuv422Semiplanar), 3},
    {26, 26, TARGET(Yuv420Planar), 3},
    {27, 27, TARGET(Yuv420Semiplanar), 3},
    {28, 28, TARGET(Yvu422Semiplanar), 3},
    {29, 29, TARGET(Yvu420Semiplanar), 3},
    {37, 40, TARGET(Bayer8), 0},
    {41, 44, TARGET(Bayer16), 0},
    {49, 56, TARGET(Bayer16), 0},
};

TEST(ConvRgb, ColoursComeBackFromEveryTarget) {
  const int32_t colours[][3] = {{0, 0, 0},     {255, 255, 255}, {128, 128, 128},
                                {250, 20, 40}, {10, 200, 30},   {30, 60, 220}};
  for (const Target& target : kTargets) {
    for (int32_t format = target.first; format <= target.last; ++format) {
      SCOPED_TRACE(Image_getImageFormatStr(format));
      for (const auto& c : colours) {
        TestImage rgb(13, 7, IMAGE_RGB888, 1), back(13, 7, IMAGE_RGB888, 2), other(13, 7, format, 3, 6);
        fill(rgb, c[0], c[1], c[2]);
        ASSERT_EQ(target.convert(&other, &rgb), ZELVAN_OK);
        EXPECT_TRUE(other.guardsUnchanged());
        ASSERT_EQ(Image_conv_toRgb888(&back, &other), ZELVAN_OK);
        EXPECT_TRUE(back.guardsUnchanged());
        for (int32_t i = 0; i < 3 * 13; ++i) ASSERT_LE(std::abs(back.row(0, 6)[i] - c[i % 3]), target.tolerance);
        // The same through the orders of 32 bits.
        if (format > 23) continue;
        TestImage wide(13, 7, IMAGE_ARGB8888, 4);
        ASSERT_EQ(Image_conv_toUint8888(&wide, &rgb), ZELVAN_OK);
        EXPECT_EQ(wide.row(0, 3)[0], 255) << "alpha";
        EXPECT_EQ(wide.row(0, 3)[1], c[0]);
      }
    }
  }
}

TEST(ConvRgb, FormulasOfKnownColours) {
  TestImage rgb(2, 2, IMAGE_RGB888), yuv(2, 2, IMAGE_YUV420_SEMIPLANAR);
  fill(rgb, 255, 0, 0);
  rgb.row(0, 0)[3] = 0;  // the second pixel of the pair is black
  ASSERT_EQ(Image_conv_toYuv420Semiplanar(&yuv, &rgb), ZELVAN_OK);
  EXPECT_TRUE(yuv.row(0, 0)[0] == (9798 * 255) >> 15 && yuv.row(0, 0)[1] == 0);
  EXPECT_EQ(yuv.row(1, 0)[0], ((-5538 * 255) >> 16) + 128);
  EXPECT_EQ(yuv.row(1, 0)[1], ((16384 * 255) >> 16) + 128);
}

// The bytes that a pixel has for itself and those that it shares.
void copyPixel(const TestImage& to, const TestImage& from, int32_t x, int32_t y) {
  int32_t y0, y1, u, v;
  if (ImageYuv422Interleaved_getYuvIndex(&y0, &y1, &u, &v, to.format) == ZELVAN_OK) {
    for (const int32_t at : {x % 2 != 0 ? y1 : y0, u, v}) to.row(0, y)[x / 2 * 4 + at] = from.row(0, y)[x / 2 * 4 + at];
    return;
  }
  for (int32_t p = 0; p < imagePlaneCount(to.format); ++p) {
    const ImagePlaneDescriptor& d = imageFormatDescriptor(to.format).planes[p];
    const int32_t at = (x >> d.shiftX) * d.bytes;
    std::copy_n(from.row(p, y >> d.shiftY) + at, d.bytes, to.row(p, y >> d.shiftY) + at);
  }
}

TEST(Conversion, RectanglesAreThePlainFormOnWhatTheyTouch) {
  struct Route {
    int32_t from, to;
    Convert convert;
    ConvertRect withRect;
  };
  std::vector<Route> routes = {
      {16, 27, TARGET(Yuv420Semiplanar)},
      {26, 27, TARGET(Yuv420Semiplanar)},
      {27, 26, TARGET(Yuv420Planar)},
      {27, 16, TARGET(Yuv422Interleaved)},
      {27, 2, Image_conv_toRgb888, Image_conv_toRgb888_withRect},
      {18, 9, TARGET(Uint8888)},
      {IMAGE_BAYER8_GRBG, 2, TARGET(Rgb888)},
      {2, 62, Image_conv_toRgb161616, Image_conv_toRgb161616_withRect},
      {61, 57, Image_conv_toUint8, Image_conv_toUint8_withRect},
      {57, 61, TARGET(Uint16)},
  };
  for (const Target& t : kTargets) {
    for (const int32_t to : {t.first, t.last}) routes.push_back({IMAGE_RGB888, to, t.convert, t.withRect});
  }
  for (const Route& route : routes) {
    for (const auto& [w, h] : {std::pair{6, 3}, {5, 4}, {5, 1}}) {
      const TestImage src(w, h, route.from, 7, 6);
      TestImage whole(w, h, route.to, 5, 6);
      ASSERT_EQ(route.convert(&whole, &src), ZELVAN_OK);
      EXPECT_EQ(route.withRect(&whole, &src, nullptr), ZELVAN_ERROR_PARAM);
      for (int32_t i = 0; i < w * w * h * h; ++i) {
        const ImageRect r = {i % w, i / w % h, i / w / h % w + 1, i / w / h / w + 1};
        TestImage part(w, h, route.to, 5, 6), expected(w, h, route.to, 5, 6);
        for (int32_t y = r.top; y < r.bottom; ++y) {
          for (int32_t x = r.left; x < r.right; ++x) copyPixel(expected, whole, x, y);
        }
        ASSERT_EQ(route.withRect(&part, &src, &r), ZELVAN_OK);
        ASSERT_TRUE(part.sameBytes(expected)) << route.from << " to " << route.to << ", " << r.left << ' ' << r.top
                                              << ' ' << r.right << ' ' << r.bottom << " of " << w << 'x' << h;
      }
    }
  }
}

TEST(ConvRgb, StatusesAndDepths) {
  TestImage rgb(8, 8, IMAGE_RGB888), gray(8, 8, IMAGE_UINT8), deep(8, 8, IMAGE_UINT16, 1, 6);
  EXPECT_EQ(Image_conv_toRgb888(&rgb, &gray), ZELVAN_ERROR_UNSUPPORTED);
  EXPECT_EQ(Image_conv_toRgb565(&rgb, &rgb), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Image_conv_toRgb888(&rgb, &rgb), ZELVAN_OK);
  EXPECT_TRUE(rgb.unchanged());
  TestImage packed(8, 8, IMAGE_BAYER10_M8L2PACKED_GRBG);
  const ImageRect outside = {2, 2, 9, 4};
  EXPECT_EQ(Image_conv_toBayer16(&packed, &rgb), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Image_conv_toUint16_withRect(&deep, &gray, &outside), ZELVAN_ERROR_PARAM);
  EXPECT_TRUE(packed.unchanged() && deep.unchanged());
  ASSERT_EQ(Image_conv_toUint16(&deep, &gray), ZELVAN_OK);
  EXPECT_EQ(imageRow<uint16_t>(&deep, 7)[7], gray.row(0, 7)[7]);
  imageRow<uint16_t>(&deep, 0)[0] = 900;
  ASSERT_EQ(Image_conv_toUint8(&gray, &deep), ZELVAN_OK);
  EXPECT_EQ(gray.row(0, 0)[0], 255);
}

TEST(ConvRgb, DeepColourAndMosaics) {
  const TestImage rgb(16, 8, IMAGE_RGB888, 7);
  TestImage deep(16, 8, IMAGE_RGB161616, 1, 6), mosaic(16, 8, IMAGE_BAYER8_GRBG), back(16, 8, 2, 3), same(16, 8, 2, 3);
  ASSERT_EQ(Image_conv_toRgb161616(&deep, &rgb) | Image_conv_toBayer8(&mosaic, &rgb), ZELVAN_OK);
  ASSERT_EQ(Image_conv_toRgb888(&back, &mosaic) | ImageBayer8_toRgb888(&same, &mosaic), ZELVAN_OK);
  EXPECT_TRUE(same.sameBytes(back));
  EXPECT_EQ(ImageBayer8_toRgb888(&back, &rgb), ZELVAN_ERROR_PARAM);
  const int32_t scale = imageRow<uint16_t>(&deep, 0)[0] / rgb.row(0, 0)[0];
  for (int32_t i = 0; i < 8 * 48; ++i)
    EXPECT_EQ(imageRow<uint16_t>(&deep, i / 48)[i % 48], rgb.row(0, i / 48)[i % 48] * scale);
}

TEST(ConvRgb, ShrunkLumaIsTheMeanOfItsBlock) {
  TestArena arena;
  const ImageRect rect = {2, 2, 14, 8};
  for (const int32_t format : {1, 2, 3, 4, 11, 16, 22, 30, 35, 37, 42, 46, 51, 56}) {
    SCOPED_TRACE(Image_getImageFormatStr(format));
    TestImage src(16, 8, format, 9, 6);
    ScopedImage one(arena.env()), three(arena.env());
    ASSERT_EQ(Image_toYUint8Shrink(&one, &src, &rect, 1) | Image_toYUint8Shrink(&three, &src, &rect, 3), ZELVAN_OK);
    ASSERT_TRUE(three.width == 4 && three.height == 2);
    int32_t sum = 0;
    for (int32_t i = 0; i < 9; ++i) sum += imageRow(&one, 3 + i / 3)[6 + i % 3];
    EXPECT_EQ(imageRow(&three, 1)[2], sum / 9);
  }
}

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

// The luma, U and V bytes of pixel (x, y) in the three layouts that the conversions join.
std::array<uint8_t*, 3> samplesAt(const TestImage& image, int32_t x, int32_t y) {
  uint8_t* const row = image.row(0, y);
  if (image.format == IMAGE_YUV422_YUYV) return {row + 2 * x, row + x / 2 * 4 + 1, row + x / 2 * 4 + 3};
  uint8_t* const chroma = image.row(1, y / 2);
  if (image.format == IMAGE_YUV420_PLANAR) return {row + x, chroma + x / 2, image.row(2, y / 2) + x / 2};
  return {row + x, chroma + x / 2 * 2, chroma + x / 2 * 2 + 1};
}

TEST(Conversion, MovesSamplesAndNothingElse) {
  const struct {
    int32_t from, to;
    Convert dispatcher, worker;
  } routes[] = {{26, 27, Image_conv_toYuv420Semiplanar, ImageYuv420Planar_toYuv420Semiplanar},
                {27, 26, Image_conv_toYuv420Planar, ImageYuv420Semiplanar_toYuv420Planar},
                {16, 27, Image_conv_toYuv420Semiplanar, ImageYuv422yuyv_toYuv420Semiplanar},
                {27, 16, Image_conv_toYuv422Interleaved, ImageYuv420Semiplanar_toYuv422yuyv}};
  for (const auto& route : routes) {
    for (const auto& [w, h] : {std::pair{1, 2}, {5, 1}, {3, 3}, {15, 4}, {16, 7}, {50, 9}, {129, 3}}) {
      for (const Convert convert : {route.dispatcher, route.worker}) {
        const TestImage src(w, h, route.from, 7, w % 3);
        TestImage dst(w, h, route.to, 8, h % 3), expected(w, h, route.to, 8, h % 3);
        const bool untouched = route.to == IMAGE_YUV422_YUYV && h == 1;  // packing works from two rows on
        for (int32_t i = 0; i < w * h && !untouched; ++i) {
          const int32_t x = i % w, y = i / w;
          // One row of chroma serves two rows of luma; of two rows of packed chroma the even one stays.
          const auto to = samplesAt(expected, x, y), luma = samplesAt(src, x, y), chroma = samplesAt(src, x, y & ~1);
          *to[0] = *luma[0];
          *to[1] = *chroma[1];
          *to[2] = *chroma[2];
        }
        EXPECT_EQ(convert(&dst, &src), ZELVAN_OK);
        EXPECT_TRUE(dst.sameBytes(expected)) << route.from << " to " << route.to << ' ' << w << 'x' << h;
      }
    }
  }
}

TEST(Conversion, Dispatch) {
  const int32_t cases[][3] = {{27, 29, 26}, {27, 26, 26}, {27, 27, 27}, {27, 27, 29},
                              {26, 27, 27}, {26, 26, 29}, {16, 17, 23}, {16, 16, 29}};
  for (const auto& [target, to, from] : cases) {
    const Convert convert = target == 27   ? Image_conv_toYuv420Semiplanar
                            : target == 26 ? Image_conv_toYuv420Planar
                                           : Image_conv_toYuv422Interleaved;
    TestImage dst(6, 4, to, 2), src(6, 4, from, 1);
    EXPECT_EQ(convert(&dst, &src), to != target ? ZELVAN_ERROR_PARAM
                                   : to != from ? ZELVAN_ERROR_UNSUPPORTED
                                                : ZELVAN_OK)
        << from << " to " << to;
    EXPECT_TRUE(dst.unchanged());
    EXPECT_EQ(convert(nullptr, &src) & convert(&dst, nullptr), ZELVAN_ERROR_PARAM);
  }
}

TEST(Conversion, PackedPositionsAreTheLettersOfTheName) {
  for (int32_t id = 15; id <= 24; ++id) {
    const std::string name = Image_getImageFormatStr(id), order = name.substr(name.size() - 4);
    const size_t expected[4] = {order.find('Y'), order.rfind('Y'), order.find('U'), order.find('V')};
    int32_t at[4] = {-1, -1, -1, -1};
    const bool packed = id >= 16 && id <= 23;
    EXPECT_EQ(ImageYuv422Interleaved_getYuvIndex(&at[0], &at[1], &at[2], &at[3], id),
              packed ? ZELVAN_OK : ZELVAN_ERROR_UNSUPPORTED);
    for (int32_t i = 0; i < 4; ++i) EXPECT_EQ(at[i], packed ? static_cast<int32_t>(expected[i]) : -1) << name;
  }
}

TEST(LumaShrink, SamplesByRatioOrRefuses) {
  TestArena arena(8192);
  ScopedImage dst(arena.env());
  for (const int32_t id : {24, 25, 26, 27, 28, 29, 36, 57}) {
    const TestImage src(61, 47, id, 3);
    for (const ImageRect& rect : {ImageRect{0, 0, 61, 47}, {3, 5, 60, 47}, {7, 1, 24, 20}, {2, 2, 3, 3}}) {
      for (int32_t r = 1; r <= 9; ++r) {
        SCOPED_TRACE(testing::Message() << Image_getImageFormatStr(id) << " ratio " << r << " left " << rect.left);
        ASSERT_EQ(Image_toYUint8Shrink(&dst, &src, &rect, r), ZELVAN_OK);
        ASSERT_TRUE(dst.format == IMAGE_UINT8 && dst.external == 0);
        ASSERT_TRUE(dst.width == (rect.right - rect.left) / r && dst.height == (rect.bottom - rect.top) / r);
        for (int32_t i = 0; i < dst.width * dst.height; ++i) {
          const int32_t x = i % dst.width, y = i / dst.width;
          const auto tap = [&](int32_t d, int32_t e) {
            return src.row(0, rect.top + r * y + e)[rect.left + r * x + d];
          };
          const int32_t expected = r == 2             ? (tap(0, 0) + tap(1, 1)) / 2
                                   : r == 3 || r == 4 ? (tap(0, 0) + tap(2, 0) + tap(0, 2) + tap(2, 2)) / 4
                                                      : tap(0, 0);
          ASSERT_EQ(imageRow(&dst, y)[x], expected) << x << ' ' << y;
        }
      }
    }
  }
  const TestImage src(128, 128, IMAGE_UINT8), yuv9(64, 64, IMAGE_YUV9_44_UV);
  const ImageRect all = {0, 0, 128, 128}, inverted = {8, 0, 0, 8};
  for (const auto shrink : {Image_toYUint8Shrink, ImageUint8_toYUint8Shrink, ImageYuvPlanarSemiplanar_toYUint8Shrink}) {
    EXPECT_EQ(shrink(&dst, &src, &all, 0) & shrink(&dst, &src, &inverted, 2), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(shrink(&dst, &src, &all, 1), ZELVAN_ERROR_NOMEM);
  }
  EXPECT_EQ(Image_toYUint8Shrink(&dst, &yuv9, &all, 2), ZELVAN_ERROR_UNSUPPORTED);
  // Nothing to sample, with rows but without planes.
  const ScopedImage none(nullptr);
  const ImageRect column = {0, 0, 0, 8};
  EXPECT_EQ(Image_toYUint8Shrink(&dst, &src, &column, 1), ZELVAN_OK);
  EXPECT_TRUE(dst.width == 0 && dst.height == 8 && dst.plane0 == nullptr);
  EXPECT_EQ(ImageUint8_toYUint8Shrink(&dst, &none, &all, 8), ZELVAN_ERROR_PARAM);
}

}  // namespace
