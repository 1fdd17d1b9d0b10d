#include "imageproc/blur.h"

#include <cmath>

#include "imageproc/gauss_taps.h"
#include "imageproc/kernel_rig.h"

namespace {

using Blur = Status (*)(ImageProc*, Image*, const Image*, double);
using Blur2 = Status (*)(ImageProc2*, Image*, const Image*, double);

TEST(GaussTaps, SumToOneAndFollowTheCurve) {
  for (const double sigma : {0.1, 0.5, 1.0, 1.7, 4.0, 60.0}) {
    for (const int32_t radius : {2, 3}) {
      const auto g = [sigma](int32_t i) { return std::exp(-i * i / (2 * sigma * sigma)); };
      int32_t taps[7], rest = 32768;
      gaussTaps(taps, radius, sigma);
      const double sum = 1 + 2 * (g(1) + g(2) + (radius > 2 ? g(3) : 0));
      for (int32_t i = -radius; i <= radius; rest -= taps[i++ + radius]) {
        EXPECT_NEAR(taps[i + radius], g(i) / sum * 32768, i == 0 ? 3.5 : 0.51);
      }
      EXPECT_EQ(rest, 0);
    }
  }
}

// A step of luma becomes the integral of the Gauss curve, in both directions.
TEST(Blur, StepsSoftenByTheCurve) {
  KernelRig rig(0);
  for (const double sigma : {0.8, 1.7, 5.0, 12.0}) {
    for (const bool across : {true, false}) {
      TestImage src(128, 128, IMAGE_UINT8), direct(128, 128, IMAGE_UINT8), byHalves(128, 128, IMAGE_UINT8);
      planesOf(src)[0].fill(
          [&](int32_t x, int32_t y, int32_t) { return imageRow(&src, y)[x] = (across ? x : y) < 60 ? 20 : 220; });
      ASSERT_EQ(ImageProc_gaussBlur2(&rig.proc, &direct, &src, sigma), ZELVAN_OK);
      ASSERT_EQ(ImageProc2_pgaussBlur(&rig.proc2, &byHalves, &src, sigma), ZELVAN_OK);
      for (int32_t i = 0; i < 128; ++i) {
        const double want = 120 + 100 * std::erf((i - 59.5) / (sigma * std::sqrt(2.0)));
        EXPECT_NEAR(imageRow(&direct, across ? 50 : i)[across ? i : 50], want, 4.0) << sigma << ' ' << i;
        EXPECT_NEAR(imageRow(&byHalves, across ? 50 : i)[across ? i : 50], want, 6.0) << sigma << ' ' << i;
      }
    }
  }
}

TEST(Blur, RefusalsLeaveThePicture) {
  KernelRig rig(0, 2048);
  const std::pair<std::array<int32_t, 4>, Status> cases[] = {{{58, 58, 9, 9}, ZELVAN_ERROR_GENERAL},
                                                             {{57, 64, 9, 9}, ZELVAN_ERROR_GENERAL},
                                                             {{57, 57, 10, 9}, ZELVAN_ERROR_PARAM},
                                                             {{57, 57, 200, 200}, ZELVAN_ERROR_NOMEM}};
  const std::pair<Blur, Blur2> members[] = {
      {ImageProc_pgaussBlur, ImageProc2_pgaussBlur},
      {ImageProc_gaussBlur2, ImageProc2_gaussBlur},
      {ImageProc_filterGaussianBlur7x7_uint8, ImageProc2_filterGaussianBlur7x7_uint8},
  };
  for (const auto& [blur, twin] : members) {
    for (const auto& [c, status] : cases) {
      TestImage dst(c[2], 40, c[0], 2, 8), src(c[3], 40, c[1], 1, 8);
      EXPECT_EQ(blur(&rig.proc, &dst, &src, 2.5), status) << c[0] << " from " << c[1];
      const Status onPel = status == ZELVAN_ERROR_GENERAL ? ZELVAN_ERROR_UNSUPPORTED : status;
      EXPECT_EQ(twin(&rig.proc2, &dst, &src, 2.5), onPel) << c[0] << " from " << c[1];
      EXPECT_TRUE(dst.unchanged());
    }
  }
}

// An arena of the stated size, and a block's header for each of the few blocks, is enough.
TEST(Blur, StatedSizesSuffice) {
  for (const auto& [w, h] : {std::pair{40, 60}, {200, 70}}) {
    const auto runs = [w = w, h = h](int32_t bytes, int32_t format, Blur2 blur) {
      KernelRig rig(0, static_cast<uint32_t>(bytes) + 512);
      TestImage image(w, h, format, 3, 8);
      EXPECT_EQ(blur(&rig.proc2, &image, &image, 7.0), ZELVAN_OK) << format;
    };
    runs(ImageProc2_getBufferSizeForGaussBlur(w, h), IMAGE_RGB888, ImageProc2_gaussBlur);
    runs(ImageProc2_getBufferSizeForPgaussBlur(w, h), IMAGE_UINT88, ImageProc2_pgaussBlur);
    runs(ImageProc2_getBufferSizeForConvolution(w, h), IMAGE_UINT16, ImageProc2_filterGaussianBlur7x7_uint16);
  }
}

}  // namespace
