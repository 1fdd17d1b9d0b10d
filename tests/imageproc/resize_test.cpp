#include "imageproc/resize.h"

#include "imageproc/kernel_rig.h"
#include "imageproc/shrink.h"

namespace {

struct Size {
  int32_t w, h;
};
using Resize = Status (*)(KernelRig& rig, Image* dst, const Image* src);
Status byExecutor(KernelRig& rig, Image* dst, const Image* src) {
  return ImageProc_resizeImage(&rig.proc, dst, src);
}
Status byPel(KernelRig& rig, Image* dst, const Image* src) {
  return ImageProc2_resizeImage(&rig.proc2, dst, src);
}
Status byShares(KernelRig& rig, Image* dst, const Image* src) {
  return ImageProc2_averageShrink(&rig.proc2, dst, src);
}

TEST(Resize, FloatHoldsMoreThanBytes) {
  KernelRig rig(0);
  TestImage src(2, 1, IMAGE_FLOAT, 1, 8), dst(4, 1, IMAGE_FLOAT, 1, 8);
  for (const int32_t x : {0, 1}) imageRow<float>(&src, 0)[x] = 1e6f + 8 * x;
  ASSERT_EQ(ImageProc_resizeImage(&rig.proc, &dst, &src), ZELVAN_OK);
  EXPECT_EQ(planesOf(dst)[0].values, (std::vector<int64_t>{1000000, 1000002, 1000006, 1000008}));
}

TEST(Resize, RoutesAndRefusals) {
  KernelRig rig(0);
  constexpr Resize kForms[] = {byExecutor, byPel, byShares};
  constexpr Status kStatuses[] = {ZELVAN_OK, ZELVAN_ERROR_UNSUPPORTED, ZELVAN_ERROR_GENERAL, ZELVAN_ERROR_PARAM};
  const int32_t cases[][6] = {// form, formats, size, status; the source is 20x16
                              {0, 57, 27, 9, 9, 0},   {0, 57, 26, 9, 9, 0},   {0, 29, 27, 10, 8, 0},
                              {0, 57, 29, 20, 16, 0}, {0, 27, 27, 20, 16, 0}, {0, 58, 57, 9, 9, 1},
                              {0, 27, 57, 20, 16, 2}, {0, 65, 65, 9, 9, 1},   {0, 57, 57, 0, 9, 3},
                              {1, 26, 26, 20, 16, 0}, {1, 57, 27, 9, 9, 1},   {1, 29, 27, 20, 16, 1},
                              {1, 63, 63, 9, 9, 1},   {1, 57, 57, 9, 0, 3},   {2, 57, 57, 20, 8, 3},
                              {2, 57, 57, 10, 16, 3}, {2, 57, 57, 0, 8, 3},   {2, 64, 57, 7, 5, 3}};
  for (const auto& [form, to, from, w, h, status] : cases) {
    TestImage src(20, 16, from, 1, 8), dst(w, h, to, 2, 8), expected(w, h, IMAGE_UINT8, 2, 8);
    ScopedImage luma(nullptr);
    EXPECT_EQ(kForms[form](rig, &dst, &src), kStatuses[status]) << to << " from " << from;
    EXPECT_EQ(dst.unchanged(), status != 0);
    if (status == 0) {
      Image_initSubImageY(&luma, &src, 0, 0, 20, 16);
      EXPECT_EQ(kForms[form](rig, &expected, &luma), ZELVAN_OK);
      EXPECT_EQ(planesOf(dst)[0], planesOf(expected)[0]) << to << " from " << from;
    }
    EXPECT_EQ(kForms[form](rig, &dst, nullptr), ZELVAN_ERROR_PARAM);
  }
  // Two rows of 4000 pixels do not fit: the executor form leaves the picture alone and says nothing.
  KernelRig small(0, 4096);
  TestImage src(20, 16, 57), dst(4000, 3, 57);
  EXPECT_EQ(byExecutor(small, &dst, &src), ZELVAN_OK);
  EXPECT_EQ(byPel(small, &dst, &src), ZELVAN_ERROR_NOMEM);
  EXPECT_TRUE(dst.unchanged());
}

TEST(TargetSize, FitIsInsideAndMaxCovers) {
  const int32_t cases[][8] = {{4000, 3000, 640, 480, 640, 480, 640, 480},
                              {4000, 3000, 641, 100, 133, 100, 641, 480},
                              {7, 9, 100, 60000, 100, 128, 46666, 60000},
                              {50000, 60000, 50000, 50000, 41666, 50000, 50000, 60000}};
  for (const auto& [w, h, boxW, boxH, fitW, fitH, maxW, maxH] : cases) {
    Size fit, max;
    EXPECT_EQ(ImageProc_getSizeFit(&fit.w, &fit.h, w, h, boxW, boxH), ZELVAN_OK);
    EXPECT_EQ(ImageProc_getSizeMax(&max.w, &max.h, w, h, boxW, boxH), ZELVAN_OK);
    EXPECT_TRUE(fit.w == fitW && fit.h == fitH && max.w == maxW && max.h == maxH) << boxW << 'x' << boxH;
    EXPECT_EQ(ImageProc_getSizeFit(&fit.w, &fit.h, w, h, boxW, 0), ZELVAN_ERROR_GENERAL);
    EXPECT_EQ(ImageProc_getSizeMax(&max.w, &max.h, 0, h, boxW, boxH), ZELVAN_ERROR_GENERAL);
  }
}

TEST(TargetSize, AreaIsThatOfTheSmallestScaleThatReachesIt) {
  const int32_t cases[][3] = {
      {4000, 3000, 120000}, {640, 480, 8640}, {3000, 4000, 12000000},    {641, 481, 76800}, {5, 3, 15 * 1024},
      {5, 3, 20000},        {7, 9, 1},        {60000, 60000, 2000000000}};
  for (const auto& [width, height, area] : cases) {
    int64_t w = 0, h = 0;
    for (int64_t scale = 1; scale <= 0x100000 && w * h < area; ++scale) {
      w = (scale * width + 32767) >> 15;
      h = (scale * height + 32767) >> 15;
    }
    Size got;
    ASSERT_EQ(ImageProc_getSizeArea(&got.w, &got.h, width, height, area), ZELVAN_OK);
    EXPECT_TRUE(got.w == w && got.h == h) << got.w << 'x' << got.h << " for " << area;
  }
}

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
  KernelRig rig(0);
  for (const auto& [w, h] : {std::pair{37, 23}, {20, 10}, {12, 7}, {5, 3}, {1, 1}}) {
    TestImage src(40, 24, IMAGE_UINT8, 3), dst(w, h, IMAGE_UINT8);
    ASSERT_EQ(ImageProc_shrinkImage(&rig.proc, &dst, &src), ZELVAN_OK);
    EXPECT_TRUE(dst.guardsUnchanged());
    const double sx = 40.0 / w, sy = 24.0 / h;
    for (int32_t y = 0; y < h; ++y) {
      for (int32_t x = 0; x < w; ++x) {
        // Edges are kept in 1/256 pixel, and the quotient is cut.
        ASSERT_NEAR(dst.row(0, y)[x], boxMean(src, x * sx, y * sy, (x + 1) * sx, (y + 1) * sy), 3.0) << w << ' ' << x;
      }
    }
    for (int32_t y = 0; y < 24; ++y) std::fill_n(src.row(0, y), 40, uint8_t{254});  // nothing from outside comes in
    ASSERT_EQ(ImageProc_shrinkImage(&rig.proc, &dst, &src), ZELVAN_OK);
    EXPECT_EQ(dst.row(0, 0)[0], 254) << w;
  }
  TestImage small(8, 8, IMAGE_UINT8), big(9, 8, IMAGE_UINT8), rgb(4, 4, IMAGE_RGB888);
  EXPECT_EQ(ImageProc_shrinkImage(&rig.proc, &big, &small), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(ImageProc_shrinkImage(&rig.proc, &rgb, &small), ZELVAN_ERROR_GENERAL);
}

TEST(Shrink, HalvesBothPlanes) {
  KernelRig rig(0);
  TestImage src(20, 12, IMAGE_YVU420_SEMIPLANAR, 3), dst(10, 6, IMAGE_YVU420_SEMIPLANAR, 4);
  ASSERT_EQ(ImageProc_shrink2(&rig.proc, &dst, &src), ZELVAN_OK);
  EXPECT_TRUE(dst.guardsUnchanged());
  const auto mean = [&](int32_t p, int32_t x, int32_t y, int32_t step) {
    return (src.row(p, y)[x] + src.row(p, y)[x + step] + src.row(p, y + 1)[x] + src.row(p, y + 1)[x + step] + 2) >> 2;
  };
  EXPECT_EQ(dst.row(0, 5)[9], mean(0, 18, 10, 1));
  EXPECT_EQ(dst.row(1, 2)[9], mean(1, 17, 4, 2));
  ASSERT_EQ(ImageProc_shrinkImage(&rig.proc, &dst, &src), ZELVAN_OK);
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
