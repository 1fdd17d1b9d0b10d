

#include "image/image_conv.h"
#include "support/test_arena.h"
#include "support/test_image.h"

namespace {

// The luma, U and V bytes of pixel (x, y) in the three layouts that the conversions join.
std::array<uint8_t*, 3> samplesAt(const TestImage& image, int32_t x, int32_t y) {
  uint8_t* const row = image.row(0, y);
  if (image.format == IMAGE_YUV422_YUYV) return {row + 2 * x, row + x / 2 * 4 + 1, row + x / 2 * 4 + 3};
  uint8_t* const chroma = image.row(1, y / 2);
  if (image.format == IMAGE_YUV420_PLANAR) return {row + x, chroma + x / 2, image.row(2, y / 2) + x / 2};
  return {row + x, chroma + x / 2 * 2, chroma + x / 2 * 2 + 1};
}

using Convert = Status (*)(Image*, const Image*);

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
