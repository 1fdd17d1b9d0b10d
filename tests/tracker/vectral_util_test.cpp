#include "tracker/vectral_util.h"

#include "base/integer.h"
#include "tracker/vectral_scene.h"

namespace {

constexpr double kFov = 61.0;

TEST(VectralUtil, RatioAndLevelsAreTheLastThatKeepTheArea) {
  struct {
    int32_t w, h, area, ratio, levels;
    Status levelStatus;
  } const cases[] = {{640, 480, 76800, 2, 2, ZELVAN_OK},   {640, 480, 76801, 1, 1, ZELVAN_OK},
                     {4000, 3000, 9000, 36, 6, ZELVAN_OK}, {37, 2111, 77, 27, 5, ZELVAN_OK},
                     {64, 48, 1 << 30, 1, 0, ZELVAN_OK},   {64, 48, 0, 48, -7, ZELVAN_ERROR_PARAM}};
  for (const auto& c : cases) {
    int32_t ratio = 0, levels = -7;
    EXPECT_EQ(VectralUtil_calcShrinkRatio(&ratio, c.area, c.w, c.h), ZELVAN_OK);
    EXPECT_EQ(VectralUtil_calcResoNum(&levels, c.area, c.w, c.h), c.levelStatus);
    EXPECT_EQ(std::pair(ratio, levels), std::pair(c.ratio, c.levels)) << c.w << 'x' << c.h << " to " << c.area;
    EXPECT_EQ(VectralUtil_calcShrinkRatio(&ratio, -1, c.w, c.h), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(ratio, 1);
  }
}

TEST(VectralUtil, MotionsFollowTheScale) {
  const Mvec8Real small = {{1.01, 0.02, 3, -0.01, 0.99, -2, 1e-5, -2e-5, 1}, {}};
  const ImageRect rect = {16, 8, 0, 0};
  Mvec8Real large = small, back;
  ASSERT_EQ(VectralUtil_similarTransform(&large, &large, &rect, 2.5, 0), ZELVAN_OK);
  // A point of the small image stands at 2.5 times its place, plus the origin, before and after the motion.
  const auto want = movedPoint(small, 30, 50), got = movedPoint(large, 30 * 2.5 + 16, 50 * 2.5 + 8);
  EXPECT_NEAR(got[0], want[0] * 2.5 + 16, 1e-9);
  EXPECT_NEAR(got[1], want[1] * 2.5 + 8, 1e-9);
  EXPECT_NEAR(large.h[0] * large.h[0] + large.h[4] * large.h[4] + large.h[8] * large.h[8], 1.0, 1e-12);
  ASSERT_EQ(VectralUtil_similarTransform(&back, &large, &rect, 2.5, 1), ZELVAN_OK);
  EXPECT_LT(motionError(back, small), 1e-9);

  for (const auto& [width1, level1, width2, level2, k] :
       std::vector<std::tuple<int32_t, int32_t, int32_t, int32_t, double>>{{80, 2, 320, 0, 4},
                                                                           {320, 0, 80, 2, .25},
                                                                           {80, 1, 80, 1, 1},
                                                                           {100, -1, 400, -1, .25},
                                                                           {400, 3, 100, -1, 4}}) {
    Mvec8Real dst = {{1.25, 0.5, 6, -0.5, 0.75, -10, 0.5, -0.25, 1}, {}};
    ASSERT_EQ(VectralUtil_scaleMvec(&dst, &dst, width1, 60, level1, width2, 60, level2, kFov, MILSM_8ST), ZELVAN_OK);
    const Mvec8Real scaled = {{1.25, 0.5, 6 * k, -0.5, 0.75, -10 * k, 0.5 / k, -0.25 / k, 1}, {}};
    EXPECT_EQ(std::memcmp(&dst, &scaled, sizeof dst), 0) << k;
  }
}

TEST(VectralUtil, RotationsAreRefittedAndShifted) {
  Mvec8Real turned, want;
  Mvec8Real_setRotationAngle(&turned, 0.03, -0.02, 0.15, 160, 120, kFov, 0);
  turned.angles[1] = 5;
  ASSERT_EQ(VectralUtil_scaleMvec(&turned, &turned, 160, 120, 1, 320, 240, 0, kFov, MILSM_8R), ZELVAN_OK);
  Mvec8Real_setRotationAngle(&want, 0.03, -0.02, 0.15, 320, 240, kFov, 0);
  EXPECT_LT(motionError(turned, want, 320, 240), 1e-6);
  EXPECT_EQ(turned.angles[1], 5);
  const double f = 0.5 * std::hypot(320, 240) / std::tan(kFov * M_PI / 180 * 0.5);
  ASSERT_EQ(VectralUtil_shift8R(&turned, &turned, 4, -6, 320, 240, kFov), ZELVAN_OK);
  Mvec8Real_setRotationAngle(&want, 0.03 + 4 / f, -0.02 + 6 / f, 0.15, 320, 240, kFov, 0);
  EXPECT_LT(motionError(turned, want, 320, 240), 1e-6);
  EXPECT_EQ(turned.angles[1], 0);
}

TEST(VectralUtilShrink, WholeRatiosSampleTheirTaps) {
  TestExecutor pool(3), narrow(1, 4);
  TestArena arena;
  const ImageRect rect = {5, 3, 131, 97};
  for (const int32_t format : {IMAGE_UINT8, IMAGE_YUV420_SEMIPLANAR, IMAGE_YVU420_SEMIPLANAR, IMAGE_YUV444_PLANAR}) {
    const TestImage src(131, 97, format);
    for (int32_t r = 1; r <= 7; ++r) {
      for (ParallelExecutor* executor : {static_cast<ParallelExecutor*>(nullptr), pool.get(), narrow.get()}) {
        ScopedImage dst(arena.env());
        Image_init(&dst, 126 / r, 94 / r, nullptr, IMAGE_UINT8);
        drawPixels(&dst, [](int32_t, int32_t) { return 1; });
        ASSERT_EQ(VectralUtil_shrinkImage(&dst, &src, &rect, r << 15, executor), ZELVAN_OK);
        // Four tasks are four sixteenths of the rows for ratios 2 and 3.
        const int32_t rows = executor == narrow.get() && (r == 2 || r == 3) ? 4 * dst.height / 16 : dst.height;
        expectPixels(dst, [&](int32_t x, int32_t y) -> int32_t {
          const auto at = [&](int32_t u, int32_t v) { return src.row(0, 3 + r * y + v)[5 + r * x + u]; };
          if (y >= rows) return 1;
          if (r == 1 || (r >= 5 && executor == nullptr)) return at(0, 0);
          if (r == 2) return (at(0, 0) + at(1, 1)) / 2;
          if (r < 5) return (at(0, 0) + at(2, 0) + at(0, 2) + at(2, 2)) / 4;
          uint32_t sum = 0;
          for (int32_t i = 0; i < r * r; ++i) sum += at(i % r, i / r);
          return static_cast<int32_t>(sum * (0x400000u / (r * r)) >> 22);
        });
      }
    }
  }
}

TEST(VectralUtilShrink, FractionsTakeTheNearestEarlierPixel) {
  const ImageRect rect = {6, 3, 0, 0};
  for (const int32_t format : {IMAGE_UINT8, IMAGE_YUV420_PLANAR, IMAGE_YUV444_YUV, IMAGE_YUV422_UYVY}) {
    const TestImage src(96, 50, format);
    TestImage dst(35, 18, IMAGE_UINT8, 2);
    ASSERT_EQ(VectralUtil_shrinkImage(&dst, &src, &rect, 5 << 14, nullptr), ZELVAN_OK);
    expectPixels(dst, [&](int32_t x, int32_t y) {
      const uint8_t* const row = src.row(0, 3 + 5 * y / 2);
      if (format == IMAGE_YUV422_UYVY) return row[12 + 4 * (5 * (x & ~1) / 4) + 1 + 2 * (x & 1)];
      return row[(format == IMAGE_YUV444_YUV ? 3 : 1) * (6 + 5 * x / 2)];
    });
    EXPECT_TRUE(dst.guardsUnchanged());
  }
}

TEST(VectralUtilShrink, RefusesWhatItCannotSample) {
  TestArena arena;
  TestExecutor pool(1), closed(1);
  ASSERT_EQ(ParallelExecutor_shutdown(closed.get()), ZELVAN_OK);
  constexpr int32_t kOne = 1 << 15, kColumns = 10;
  struct {
    int32_t format, ratio, width;  // of the source, which is high enough
    ParallelExecutor* executor;
    Status status;
  } const cases[] = {
      {IMAGE_RGB565, 5 * kOne / 2, 99, nullptr, ZELVAN_ERROR_UNSUPPORTED},
      {IMAGE_UINT8, 0, 99, nullptr, ZELVAN_ERROR_PARAM},
      {IMAGE_UINT8, 2 * kOne, 99, closed.get(), ZELVAN_STATUS_CANCELLED},  // the forks count
      {IMAGE_UINT8, 5 * kOne / 2, 23, nullptr, ZELVAN_OK},                 // the last sample stands at 22
      {IMAGE_UINT8, 5 * kOne / 2, 22, nullptr, ZELVAN_ERROR_PARAM},
      {IMAGE_UINT8, 2 * kOne, 20, pool.get(), ZELVAN_OK},
      {IMAGE_UINT8, 2 * kOne, 19, pool.get(), ZELVAN_ERROR_PARAM},
      {IMAGE_UINT8, 5 * kOne, 46, nullptr, ZELVAN_OK},  // the corners of the blocks only
      {IMAGE_UINT8, 5 * kOne, 46, pool.get(), ZELVAN_ERROR_PARAM},
      {IMAGE_RGB888, 5 * kOne, 50, pool.get(), ZELVAN_OK},  // whole blocks
      {IMAGE_RGB888, 5 * kOne, 49, pool.get(), ZELVAN_ERROR_PARAM},
  };
  for (const auto& c : cases) {
    const TestImage src(c.width, 24, c.format);
    ScopedImage dst(arena.env());
    Image_init(&dst, kColumns, 4, nullptr, IMAGE_UINT8);
    const ImageRect rect = {};
    EXPECT_EQ(VectralUtil_shrinkImage(&dst, &src, &rect, c.ratio, c.executor), c.status) << &c - cases;
  }
}

TEST(VectralUtil, ContrastIsStretchedToTwoDeviations) {
  for (const auto& [w, h] : {std::pair{61, 43}, {300, 200}}) {
    TestArena arena;
    const SceneImage src(w, h, kIdentity);
    const auto meanOf = [&, w = w, h = h](int32_t power) {  // large images truncate the mean of each row first
      int64_t total = 0;
      for (int32_t y = 0; y < h; ++y) {
        int64_t sum = 0;
        for (int32_t x = 0; x < w; ++x) sum += power == 1 ? src.row(0, y)[x] : src.row(0, y)[x] * src.row(0, y)[x];
        total += w == 300 ? sum / w : sum;
      }
      return total / (w == 300 ? h : w * h);
    };
    const int64_t mean = meanOf(1);
    const auto deviation = static_cast<int32_t>(std::sqrt(static_cast<double>(meanOf(2) - mean * mean)));
    for (const auto& [given, minimum] : {std::pair{1, 0}, {1, 100}, {-9, 64}}) {  // a mean above 0: measured
      ScopedImage dst(arena.env());
      int32_t gotMean = given, gotDeviation = 0;
      ASSERT_EQ(VectralUtil_normalizeImage(&dst, &src, &gotMean, &gotDeviation, minimum, nullptr), ZELVAN_OK);
      EXPECT_EQ(gotMean, given > 0 ? mean : given);
      EXPECT_EQ(gotDeviation, std::max(given > 0 ? deviation : 0, minimum));
      const int32_t gain = 32768 / (2 * gotDeviation) * 128;
      expectPixels(dst, [&](int32_t x, int32_t y) {
        return std::clamp(128 + std::floor((src.row(0, y)[x] - gotMean) * gain / 32768.0), 0.0, 255.0);
      });
    }
  }
}

}  // namespace
