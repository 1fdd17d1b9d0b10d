#include "imageproc/shrink.h"

#include <cmath>

#include "support/test_arena.h"
#include "support/test_image.h"

namespace {

// The mean of a picture over a real-valued box.
double boxMean(const TestImage& image, double left, double top, double right, double bottom) {
  double sum = 0;
  for (int32_t y = 0; y < image.height; ++y) {
    for (int32_t x = 0; x < image.width; ++x) {
      const double w = std::max(0.0, std::min(right, x + 1.0) - std::max(left, x + 0.0));
      const double h = std::max(0.0, std::min(bottom, y + 1.0) - std::max(top, y + 0.0));
      sum += w * h * image.row(0, y)[x];
    }
  }
  return sum / ((right - left) * (bottom - top));
}

TEST(Shrink, IsTheMeanOfTheArea) {
  TestArena arena;
  ImageProc proc = {arena.env(), nullptr};
  for (const auto& [w, h] : {std::pair{37, 23}, {20, 10}, {12, 7}, {5, 3}, {1, 1}}) {
    TestImage src(40, 24, IMAGE_UINT8, 3), dst(w, h, IMAGE_UINT8);
    ASSERT_EQ(ImageProc_shrinkImage(&proc, &dst, &src), ZELVAN_OK);
    EXPECT_TRUE(dst.guardsUnchanged());
    const double sx = 40.0 / w, sy = 24.0 / h;
    for (int32_t y = 0; y < h; ++y) {
      for (int32_t x = 0; x < w; ++x) {
        // Edges are kept in 1/256 pixel, and the quotient is cut.
        ASSERT_NEAR(dst.row(0, y)[x], boxMean(src, x * sx, y * sy, (x + 1) * sx, (y + 1) * sy), 3.0) << w << ' ' << x;
      }
    }
    for (int32_t y = 0; y < 24; ++y) std::fill_n(src.row(0, y), 40, uint8_t{254});  // nothing from outside comes in
    ASSERT_EQ(ImageProc_shrinkImage(&proc, &dst, &src), ZELVAN_OK);
    EXPECT_EQ(dst.row(0, 0)[0], 254) << w;
  }
  TestImage small(8, 8, IMAGE_UINT8), big(9, 8, IMAGE_UINT8), rgb(4, 4, IMAGE_RGB888);
  EXPECT_EQ(ImageProc_shrinkImage(&proc, &big, &small), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(ImageProc_shrinkImage(&proc, &rgb, &small), ZELVAN_ERROR_GENERAL);
}

TEST(Shrink, HalvesBothPlanes) {
  TestArena arena;
  ImageProc proc = {arena.env(), nullptr};
  TestImage src(20, 12, IMAGE_YVU420_SEMIPLANAR, 3), dst(10, 6, IMAGE_YVU420_SEMIPLANAR, 4);
  ASSERT_EQ(ImageProc_shrink2(&proc, &dst, &src), ZELVAN_OK);
  EXPECT_TRUE(dst.guardsUnchanged());
  const auto mean = [&](int32_t p, int32_t x, int32_t y, int32_t step) {
    return (src.row(p, y)[x] + src.row(p, y)[x + step] + src.row(p, y + 1)[x] + src.row(p, y + 1)[x + step] + 2) >> 2;
  };
  EXPECT_EQ(dst.row(0, 5)[9], mean(0, 18, 10, 1));
  EXPECT_EQ(dst.row(1, 2)[9], mean(1, 17, 4, 2));
  ASSERT_EQ(ImageProc_shrinkImage(&proc, &dst, &src), ZELVAN_OK);
  EXPECT_NEAR(dst.row(1, 1)[4], mean(1, 8, 2, 2), 3);
}

TEST(Rotate, FourTurnsAndTwoMirrorsComeBack) {
  ImageProc2 proc = {nullptr, nullptr};
  for (const int32_t format : {IMAGE_UINT8, IMAGE_UINT16, IMAGE_RGB888, IMAGE_RGBA8888, IMAGE_YUV420_SEMIPLANAR}) {
    SCOPED_TRACE(format);
    TestImage src(14, 10, format, 3, 4), once(10, 14, format, 4, 4), back(14, 10, format, 3, 4);
    const int32_t bytes = imageFormatDescriptor(format).planes[0].bytes;
    ASSERT_EQ(ImageProc2_rotateImageEx(&proc, &once, &src, 1, 0), ZELVAN_OK);
    for (int32_t i = 0; i < bytes; ++i) EXPECT_EQ(once.row(0, 0)[9 * bytes + i], src.row(0, 0)[i]) << "clockwise";
    ASSERT_EQ(ImageProc2_rotateImageEx(&proc, &back, &once, 3, 0), ZELVAN_OK);
    EXPECT_TRUE(back.sameBytes(src));
    TestImage mirrored(14, 10, format, 5, 4);
    ASSERT_EQ(ImageProc2_rotateImageEx(&proc, &mirrored, &src, 2, 1), ZELVAN_OK);
    for (int32_t i = 0; i < bytes; ++i) EXPECT_EQ(mirrored.row(0, 9)[i], src.row(0, 0)[i]) << "upside down";
    ASSERT_EQ(ImageProc2_rotateImageEx(&proc, &back, &mirrored, 2, 1), ZELVAN_OK);
    EXPECT_TRUE(back.sameBytes(src));
    EXPECT_EQ(ImageProc2_rotateImageEx(&proc, &back, &src, 1, 0), ZELVAN_ERROR_UNSUPPORTED);
  }
}

}  // namespace
