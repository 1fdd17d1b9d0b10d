#include "tracker/vectral_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "base/integer.h"
#include "motion/milsm.h"
#include "support/test_arena.h"
#include "support/test_executor.h"
#include "support/test_image.h"
#include "tracker/vectral_scene.h"

namespace {

constexpr double kFov = 61.0;

Mvec8Real motionOf(std::initializer_list<double> h) {
  Mvec8Real m = {};
  std::copy(h.begin(), h.end(), m.h);
  return m;
}

template <typename Want>
void expectPixels(const Image& image, const Want& want) {
  for (int32_t y = 0; y < image.height; ++y) {
    for (int32_t x = 0; x < image.width; ++x) ASSERT_EQ(imageRow(&image, y)[x], want(x, y)) << x << ' ' << y;
  }
}

TEST(VectralUtilSize, RatioAndLevelsAreTheLastThatKeepTheArea) {
  int32_t ratio = 0, levels = -7;
  for (const auto& [w, h] : {std::pair{640, 480}, {4000, 3000}, {1, 1}, {37, 2111}}) {
    for (const int32_t area : {1, 77, 9000, 76800, 100000000}) {
      EXPECT_EQ(VectralUtil_calcShrinkRatio(&ratio, area, w, h), ZELVAN_OK);
      int32_t expected = 1;
      while ((w / (expected + 1)) * (h / (expected + 1)) >= area) ++expected;
      EXPECT_EQ(ratio, expected) << w << 'x' << h << " to " << area;
      EXPECT_EQ(VectralUtil_calcResoNum(&levels, area, w, h), ZELVAN_OK);
      expected = 0;
      while ((w >> expected) * (h >> expected) >= area) ++expected;
      EXPECT_EQ(levels, expected) << w << 'x' << h << " to " << area;
    }
  }
  EXPECT_EQ(VectralUtil_calcShrinkRatio(&ratio, 0, 64, 48), ZELVAN_OK);
  EXPECT_EQ(ratio, 48);
  EXPECT_EQ(VectralUtil_calcShrinkRatio(&ratio, -1, 64, 48), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(ratio, 1);
  EXPECT_EQ(VectralUtil_calcResoNum(&levels, 0, 320, 240), ZELVAN_ERROR_PARAM);
}

TEST(VectralUtilMotion, SimilarTransformMovesBetweenFrames) {
  const Mvec8Real small = motionOf({1.01, 0.02, 3, -0.01, 0.99, -2, 1e-5, -2e-5, 1});
  const ImageRect rect = {16, 8, 0, 0};
  Mvec8Real large, back;
  ASSERT_EQ(VectralUtil_similarTransform(&large, &small, &rect, 2.5, 0), ZELVAN_OK);
  // A point of the small image stands at 2.5 times its place, plus the origin, before and after the motion.
  double x, y, wantX, wantY;
  Mvec8Real_trans2DReal(&small, &wantX, &wantY, 30, 50);
  Mvec8Real_trans2DReal(&large, &x, &y, 30 * 2.5 + 16, 50 * 2.5 + 8);
  EXPECT_NEAR(x, wantX * 2.5 + 16, 1e-9);
  EXPECT_NEAR(y, wantY * 2.5 + 8, 1e-9);
  EXPECT_NEAR(large.h[0] * large.h[0] + large.h[4] * large.h[4] + large.h[8] * large.h[8], 1.0, 1e-12);

  ASSERT_EQ(VectralUtil_similarTransform(&back, &large, &rect, 2.5, 1), ZELVAN_OK);
  EXPECT_LT(motionError(back, small, 320, 240), 1e-9);
  Mvec8Real inPlace = small;
  ASSERT_EQ(VectralUtil_similarTransform(&inPlace, &inPlace, &rect, 2.5, 0), ZELVAN_OK);
  EXPECT_EQ(std::memcmp(inPlace.h, large.h, sizeof large.h), 0);
}

TEST(VectralUtilMotion, ShiftTurnsTheCamera) {
  Mvec8Real start, shifted, wanted;
  const double f = 0.5 * std::hypot(320, 240) / std::tan(kFov * M_PI / 180 * 0.5);
  Mvec8Real_setRotationAngle(&start, 0.02, -0.03, 0.1, 320, 240, kFov, 0);
  ASSERT_EQ(VectralUtil_shift8R(&shifted, &start, 4, -6, 320, 240, kFov), ZELVAN_OK);
  Mvec8Real_setRotationAngle(&wanted, 0.02 + 4 / f, -0.03 + 6 / f, 0.1, 320, 240, kFov, 0);
  EXPECT_LT(motionError(shifted, wanted, 320, 240), 1e-6);
  for (const double angle : shifted.angles) EXPECT_EQ(angle, 0.0);
  Mvec8Real inPlace = start;
  VectralUtil_shift8R(&inPlace, &inPlace, 4, -6, 320, 240, kFov);
  EXPECT_EQ(std::memcmp(&inPlace, &shifted, sizeof shifted), 0);
}

TEST(VectralUtilMotion, ScaleFollowsLevelsOrWidths) {
  struct Case {
    int32_t width1, level1, width2, level2;
    double k;
  };
  const Mvec8Real src = motionOf({1.25, 0.5, 6, -0.5, 0.75, -10, 0.5, -0.25, 1});
  for (const Case& c : {Case{80, 2, 320, 0, 4},
                        {320, 0, 80, 2, 0.25},
                        {80, 1, 80, 1, 1},
                        {100, -1, 400, -1, 0.25},
                        {400, 3, 100, -1, 4}}) {
    Mvec8Real dst;
    ASSERT_EQ(VectralUtil_scaleMvec(&dst, &src, c.width1, 60, c.level1, c.width2, 60, c.level2, kFov, MILSM_8ST),
              ZELVAN_OK);
    const Mvec8Real want = motionOf({1.25, 0.5, 6 * c.k, -0.5, 0.75, -10 * c.k, 0.5 / c.k, -0.25 / c.k, 1});
    EXPECT_EQ(std::memcmp(&dst, &want, sizeof want), 0) << c.k;
  }
}

TEST(VectralUtilMotion, ScaleRefitsARotation) {
  Mvec8Real src, want;
  Mvec8Real_setRotationAngle(&src, 0.03, -0.02, 0.15, 160, 120, kFov, 0);
  src.angles[1] = 5;
  ASSERT_EQ(VectralUtil_scaleMvec(&src, &src, 160, 120, 1, 320, 240, 0, kFov, MILSM_8R), ZELVAN_OK);
  Mvec8Real_setRotationAngle(&want, 0.03, -0.02, 0.15, 320, 240, kFov, 0);
  EXPECT_LT(motionError(src, want, 320, 240), 1e-6);
  EXPECT_EQ(src.angles[1], 5);
}

// One destination pixel of a shrink by a whole ratio.
int32_t slowShrink(const TestImage& src, int32_t left, int32_t top, int32_t x, int32_t y, int32_t r, bool average) {
  const auto at = [&](int32_t u, int32_t v) -> int32_t { return src.row(0, top + r * y + v)[left + r * x + u]; };
  if (r == 1 || (r >= 5 && !average)) return at(0, 0);
  if (r == 2) return (at(0, 0) + at(1, 1)) / 2;
  if (r < 5) return (at(0, 0) + at(2, 0) + at(0, 2) + at(2, 2)) / 4;
  uint32_t sum = 0;
  for (int32_t v = 0; v < r; ++v) {
    for (int32_t u = 0; u < r; ++u) sum += at(u, v);
  }
  return static_cast<int32_t>(sum * (0x400000u / (r * r)) >> 22);
}

TEST(VectralUtilShrink, WholeRatiosSampleTheirTaps) {
  TestExecutor pool(3), shortPool(1, 4);
  const ImageRect rect = {5, 3, 131, 97};
  for (const int32_t format : {IMAGE_UINT8, IMAGE_YUV420_SEMIPLANAR, IMAGE_YVU420_SEMIPLANAR, IMAGE_YUV444_PLANAR}) {
    const TestImage src(131, 97, format);
    for (int32_t r = 1; r <= 7; ++r) {
      for (ParallelExecutor* executor : {static_cast<ParallelExecutor*>(nullptr), pool.get(), shortPool.get()}) {
        TestArena arena;
        ScopedImage dst(arena.env());
        Image_init(&dst, 126 / r, 94 / r, nullptr, IMAGE_UINT8);
        fillFlat(dst, 1);
        ASSERT_EQ(VectralUtil_shrinkImage(&dst, &src, &rect, r << 15, executor), ZELVAN_OK);
        // Four tasks are four sixteenths of the rows for ratios 2 and 3.
        const bool cut = executor == shortPool.get() && (r == 2 || r == 3);
        const int32_t rows = cut ? 4 * dst.height / 16 : dst.height;
        expectPixels(dst, [&](int32_t x, int32_t y) {
          return y < rows ? slowShrink(src, 5, 3, x, y, r, executor != nullptr) : 1;
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
  const TestImage src(64, 48, IMAGE_UINT8), rgb(64, 48, IMAGE_RGB565);
  TestImage dst(25, 19, IMAGE_UINT8);
  const ImageRect rect = {0, 0, 64, 48}, shifted = {2, 0, 66, 48};
  TestExecutor pool(1);
  EXPECT_EQ(VectralUtil_shrinkImage(&dst, &rgb, &rect, 5 << 14, nullptr), ZELVAN_ERROR_UNSUPPORTED);
  EXPECT_EQ(VectralUtil_shrinkImage(&dst, &src, &rect, 0, nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(VectralUtil_shrinkImage(&dst, &src, nullptr, 1 << 15, nullptr), ZELVAN_ERROR_PARAM);
  // 25 columns from 2.5 to 2.6 apart: the last one lies inside only for the first origin.
  EXPECT_EQ(VectralUtil_shrinkImage(&dst, &src, &rect, 5 << 14, nullptr), ZELVAN_OK);
  EXPECT_EQ(VectralUtil_shrinkImage(&dst, &src, &shifted, 85196, nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(VectralUtil_shrinkImage(&dst, &src, &rect, 3 << 15, pool.get()), ZELVAN_ERROR_PARAM);
  EXPECT_TRUE(src.unchanged());
}

TEST(VectralUtilContrast, StretchesTwoDeviationsToTheFullRange) {
  for (const auto& [w, h] : {std::pair{61, 43}, {300, 200}}) {
    TestArena arena;
    const SceneImage src(w, h, sceneMotion(0, 0));
    const int32_t perRow = w * h >= 32768 ? w : 1;  // means are taken by rows in large images
    int64_t mean = 0, squares = 0;
    for (int32_t y = 0; y < h; ++y) {
      int64_t sum = 0, sumSquares = 0;
      for (int32_t x = 0; x < w; ++x) sum += src.row(0, y)[x], sumSquares += src.row(0, y)[x] * src.row(0, y)[x];
      mean += sum / perRow;
      squares += sumSquares / perRow;
    }
    mean /= w * h / perRow;
    squares /= w * h / perRow;
    const auto deviation = static_cast<int32_t>(std::sqrt(static_cast<double>(squares - mean * mean)));
    ScopedImage dst(arena.env());
    for (const int32_t minimum : {0, 100}) {
      int32_t gotMean = 1, gotDeviation = 0;  // a mean above 0: measured
      ASSERT_EQ(VectralUtil_normalizeImage(&dst, &src, &gotMean, &gotDeviation, minimum, nullptr), ZELVAN_OK);
      EXPECT_EQ(gotMean, mean);
      EXPECT_EQ(gotDeviation, std::max(deviation, minimum));
      const int32_t gain = 32768 / (2 * gotDeviation) * 128;
      expectPixels(dst, [&](int32_t x, int32_t y) {
        return std::clamp(128 + std::floor((src.row(0, y)[x] - gotMean) * gain / 32768.0), 0.0, 255.0);
      });
    }
  }
}

TEST(VectralUtilContrast, UsesGivenStatisticsAndFlatImagesStayNearTheMiddle) {
  TestArena arena;
  TestImage image(20, 10, IMAGE_UINT8);
  image.env = arena.env();
  fillFlat(image, 40);
  ScopedImage dst(arena.env());
  int32_t mean = 0, deviation = 0;
  ASSERT_EQ(VectralUtil_normalizeImage(&dst, &image, &mean, &deviation, 64, nullptr), ZELVAN_OK);
  EXPECT_EQ(mean, 0);
  EXPECT_EQ(imageRow(&dst, 3)[3], 168);
  deviation = 0;
  ASSERT_EQ(VectralUtil_normalizeImage(&dst, &image, &mean, &deviation, 0, nullptr), ZELVAN_OK);  // no deviation at all
  EXPECT_EQ(imageRow(&dst, 3)[3], 128);
  ASSERT_EQ(VectralUtil_normalizeImage(&image, &image, nullptr, &deviation, 0, nullptr), ZELVAN_OK);
  EXPECT_EQ(deviation, 1);
  EXPECT_EQ(image.row(0, 9)[19], 128);
  EXPECT_TRUE(image.guardsUnchanged());
  const TestImage wide(8, 8, IMAGE_UINT16);
  EXPECT_EQ(VectralUtil_normalizeImage(&dst, &wide, nullptr, nullptr, 0, nullptr), ZELVAN_ERROR_PARAM);
}

TEST(VectralUtilPyramid, NextLevelFollowsTheTapPattern) {
  TestExecutor pool(3);
  // Weights of the taps at (row, column) for even columns; odd columns mirror them left to right.
  static constexpr int32_t kEven[4][4] = {{0, 0, 1, 0}, {0, 2, 0, 1}, {1, 0, 2, 0}, {0, 1, 0, 0}};
  for (const auto& [w, h] : {std::pair{4, 4}, {37, 23}, {90, 68}, {91, 141}}) {
    const TestImage src(w, h, IMAGE_UINT8, 3);
    TestArena arena;
    ScopedImage plain(arena.env()), dst(arena.env());
    Image_init(&dst, (w - 2) / 2, (h - 2) / 2, nullptr, IMAGE_INT32);  // as a band-passed level is left behind
    ASSERT_EQ(ImageUint8_shrink2ForMvecDetect(&plain, &src), ZELVAN_OK);
    ASSERT_EQ(VectralUtil_shrink2ForMvecDetect(&dst, &src, pool.get()), ZELVAN_OK);
    ASSERT_EQ(dst.width, (w - 2) / 2);
    ASSERT_EQ(dst.height, (h - 2) / 2);
    const auto want = [&](int32_t x, int32_t y) {
      int32_t sum = 0;
      for (int32_t v = 0; v < 4; ++v) {
        for (int32_t u = 0; u < 4; ++u) sum += kEven[v][x % 2 == 0 ? u : 3 - u] * src.row(0, 2 * y + v)[2 * x + u];
      }
      return sum >> 3;
    };
    expectPixels(plain, want);
    expectPixels(dst, want);
  }
  TestImage tiny(1, 9, IMAGE_UINT8), dst(3, 3, IMAGE_UINT8);
  EXPECT_EQ(VectralUtil_shrink2ForMvecDetect(&dst, &tiny, nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(VectralUtil_shrink2ForMvecDetect(nullptr, &tiny, nullptr), ZELVAN_ERROR_PARAM);
}

TEST(VectralUtilPyramid, LocalContrastSubtractsTheWindowMean) {
  for (const auto& [w, h] : {std::pair{1, 1}, {4, 9}, {9, 4}, {5, 5}, {33, 21}}) {
    TestArena arena;
    const TestImage src(w, h, IMAGE_UINT8, 4);
    TestImage inPlace(w, h, IMAGE_UINT8, 4);
    inPlace.env = arena.env();
    ScopedImage dst(arena.env());
    ASSERT_EQ(ImageUint8_calcLocalY(&dst, &src), ZELVAN_OK);
    ASSERT_EQ(ImageUint8_calcLocalY(&inPlace, &inPlace), ZELVAN_OK);
    const auto want = [&](int32_t x, int32_t y) {
      int32_t sum = 0, count = 0;
      for (int32_t v = std::max(y - 2, 0); v <= std::min(y + 2, src.height - 1); ++v) {
        for (int32_t u = std::max(x - 2, 0); u <= std::min(x + 2, src.width - 1); ++u, ++count) sum += src.row(0, v)[u];
      }
      return clampByte(src.row(0, y)[x] - (count == 25 ? (2621 * sum) >> 16 : sum / count) + 128);
    };
    expectPixels(dst, want);
    expectPixels(inPlace, want);
  }
}

}  // namespace
