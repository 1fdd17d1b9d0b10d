#include "imageproc/guided_filter.h"

#include "imageproc/kernel_rig.h"

namespace {

enum Form { kLines, kSquare, kTwoStep, kTwoStepLite, kStepByStep };
constexpr float kEpsilon2 = 90;

// In an arena of the stated size, and the heads of a few blocks.
class Filter {
 public:
  Filter(int32_t width, int32_t height, int32_t numShrink, Pel* pel = nullptr, int32_t useMap = 1)
      : param_{useMap, numShrink}, arena_(GuidedFilter_getBufferSize(width, height, 0, &param_) + 2048u) {
    EXPECT_EQ(construct_GuidedFilter(get(), arena_.env()), ZELVAN_OK);
    EXPECT_EQ(GuidedFilter_init(get(), width, height, &param_) | GuidedFilter_setPel(get(), pel), ZELVAN_OK);
  }
  ~Filter() { EXPECT_EQ(destruct_GuidedFilter(get()), ZELVAN_OK); }
  GuidedFilter* get() { return filter_.get(); }

  Status run(Image* dst, Image* src, float epsilon, const Image* map, int32_t window, Form form = kLines) {
    if (map != nullptr) return GuidedFilter_execute_with_epsilon_map(get(), dst, src, epsilon, map, window);
    if (form == kLines) return GuidedFilter_execute(get(), dst, src, epsilon, window);
    if (form == kSquare) return GuidedFilter_execute_square(get(), dst, src, epsilon, window);
    if (form == kTwoStep) return GuidedFilter_execute_two_step(get(), dst, src, epsilon, kEpsilon2, window);
    if (form == kTwoStepLite) return GuidedFilter_execute_two_step_lite(get(), dst, src, epsilon, kEpsilon2, window);
    const Status first = GuidedFilter_execute_first_step(get(), dst, src, epsilon, window);
    return first != ZELVAN_OK ? first : GuidedFilter_execute_second_step(get(), dst, src, kEpsilon2, window);
  }

 private:
  GuidedFilterParam param_;
  TestArena arena_;  // fails on blocks in use
  std::unique_ptr<GuidedFilter> filter_ = std::make_unique<GuidedFilter>();
};

bool samePixels(const Image& a, const Image& b) {
  return planesOf(a)[0] == planesOf(b)[0];
}

TEST(GuidedFilter, EveryFormSmoothsNoiseBesideAnEdgeAndLeavesTheRest) {
  const TestPel pel(3);
  for (const Form form : {kLines, kSquare, kTwoStep, kTwoStepLite, kStepByStep}) {
    for (int32_t numShrink = form < kTwoStep ? 0 : 1; numShrink <= 2; ++numShrink) {
      SCOPED_TRACE(testing::Message() << "form " << form << " numShrink " << numShrink);
      for (const auto& [w, h] : {std::pair{120, 110}, {9, 70}, {8, 8}, {4, 30}}) {  // some far smaller than a window
        Filter filter(w, h, numShrink);
        TestImage flat(w, h, IMAGE_UINT8), before(w, h, IMAGE_UINT8);
        for (const uint8_t level : {0, 1, 77, 128, 254, 255}) {
          fillLuma(flat, level);
          fillLuma(before, level);
          ASSERT_EQ(filter.run(nullptr, &flat, 400, nullptr, 101, form), ZELVAN_OK);
          EXPECT_TRUE(samePixels(flat, before)) << w << 'x' << h << ' ' << int{level};
        }
      }
      // Rounding puts the variance of some flat windows below 0. That must not tip white over to black.
      TestImage white(24, 20, IMAGE_UINT8), even(6, 5, IMAGE_UINT8);
      Filter small(24, 20, numShrink);
      fillLuma(even, 32);
      for (int32_t i = 0; form < kTwoStep && i < 300; ++i) {
        const float epsilon = i % 3 == 0 ? 1e-3f : i % 3 == 1 ? 0.01f : 0.5f;
        fillLuma(white, 255);
        ASSERT_EQ(small.run(nullptr, &white, epsilon, form == kLines ? &even : nullptr, 2 + i / 3, form), ZELVAN_OK);
        for (int32_t k = 0; k < 24 * 20; ++k) ASSERT_GE(white.row(0, k / 24)[k % 24], 253) << i;
      }
      TestImage noise(160, 120, IMAGE_UINT8), dst(160, 120, IMAGE_UINT8), twice(160, 120, IMAGE_UINT8);
      Filter filter(160, 120, numShrink, nullptr, 0), parallel(160, 120, numShrink, pel.get());
      if (form < kTwoStep) {
        ASSERT_EQ(filter.run(&dst, &noise, 1e-3f, nullptr, 41, form), ZELVAN_OK);
        EXPECT_TRUE(samePixels(dst, noise));
      }
      for (int32_t i = 0; i < 160 * 120; ++i) {
        uint8_t& pixel = imageRow(&noise, i / 160)[i % 160];
        pixel = static_cast<uint8_t>((i % 160 < 80 ? 40 : 200) + pixel % 9);
      }
      ASSERT_EQ(filter.run(&dst, &noise, 90, nullptr, 41, form), ZELVAN_OK);
      ASSERT_EQ(parallel.run(&twice, &noise, 90, nullptr, 41, form == kStepByStep ? kTwoStep : form), ZELVAN_OK);
      EXPECT_TRUE(samePixels(dst, twice));
      if (form == kLines) {
        TestImage map(20, 30, IMAGE_UINT8);
        fillLuma(map, 32);
        ASSERT_EQ(parallel.run(&twice, &noise, 90, &map, 41), ZELVAN_OK);
        EXPECT_TRUE(samePixels(dst, twice)) << "32 stands for epsilon itself";
      }
      int32_t worst = 0, faults = 0;
      for (int32_t i = 0; i < 160 * 120; ++i) {
        const int32_t x = i % 160, fault = std::abs(imageRow(&dst, i / 160)[x] - (x < 80 ? 44 : 204));
        if (x < 76 || x >= 84) worst = std::max(worst, fault);  // blocks beside the edge blend across it
        faults += x < 50 || x >= 110 ? fault * fault : 0;       // beyond the reach of windows across the edge
      }
      EXPECT_LE(worst, 6);
      EXPECT_LT(faults, 100 * 120);  // the noise came with a variance of 6.7
    }
  }
}

TEST(GuidedFilter, SquareSumsOfTheWidestWindow) {
  TestArena arena;
  auto coeff = std::make_unique<GuidedFilterCoeff>();
  ASSERT_EQ(construct_GuidedFilterCoeff(coeff.get(), arena.env()) | GuidedFilterCoeff_init(coeff.get(), 9, 7, 257), 0u);
  TestImage guide(9, 7, IMAGE_UINT8), square(9, 7, IMAGE_UINT16, 1, 6), a(9, 7, IMAGE_UINT8), b(9, 7, IMAGE_UINT8);
  fillLuma(guide, 255);
  for (int32_t i = 0; i < 63; ++i) imageRow<uint16_t>(&square, i / 9)[i % 9] = 255 * 255;
  for (const int32_t window : {1, 3, 9, 183, 257}) {
    ASSERT_EQ(GuidedFilterCoeff_calcCoeff_square(coeff.get(), &a, &b, &guide, &square, 400, window), ZELVAN_OK);
    EXPECT_TRUE(a.row(0, 3)[4] == 0 && b.row(0, 3)[4] == 255 && b.row(0, 6)[8] == 255) << window;
  }
  EXPECT_EQ(GuidedFilterCoeff_calcCoeff_square(coeff.get(), &a, &b, &guide, &square, 400, 259),
            ZELVAN_ERROR_UNSUPPORTED);
  EXPECT_EQ(destruct_GuidedFilterCoeff(coeff.get()), ZELVAN_OK);
}

TEST(GuidedFilter, RefusesOrPassesThrough) {
  TestImage src(60, 40, IMAGE_YUV420_SEMIPLANAR, 1), dst(60, 40, IMAGE_YUV420_SEMIPLANAR, 2), map(15, 10, IMAGE_UINT8);
  Filter filter(60, 40, 2);
  for (const auto& [epsilon, window] : {std::pair{0.0f, 41}, {1e-12f, 41}, {-1e-12f, 41}, {100.0f, 1}, {100.0f, -5}}) {
    TestImage copy(60, 40, IMAGE_YUV420_SEMIPLANAR, 3);
    EXPECT_EQ(filter.run(&copy, &src, epsilon, &map, window), ZELVAN_OK);
    EXPECT_EQ(planesOf(copy), planesOf(src));
    EXPECT_EQ(filter.run(nullptr, &src, epsilon, nullptr, window), ZELVAN_OK);
    EXPECT_TRUE(src.unchanged());
  }
  EXPECT_EQ(filter.run(nullptr, &src, 1.1e-12f, nullptr, 101), ZELVAN_OK);
  EXPECT_EQ(filter.run(&dst, &src, 100, &map, 102) & filter.run(&dst, nullptr, 100, &map, 41), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(GuidedFilter_execute_with_epsilon_map(filter.get(), &dst, &src, 100, nullptr, 41), ZELVAN_ERROR_PARAM);
  TestImage small(59, 40, IMAGE_UINT8), rgb(60, 40, IMAGE_RGB888), pairs(15, 10, IMAGE_UINT88);
  EXPECT_EQ(filter.run(&dst, &small, 100, &map, 41) & filter.run(&small, &src, 100, &map, 41), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(filter.run(&dst, &rgb, 100, &map, 41) & filter.run(&dst, &src, 100, &pairs, 41), ZELVAN_ERROR_UNSUPPORTED);
  const ImageRect rects[] = {{8, 8, 8, 20}, {0, 20, 30, 10}, {-8, 0, 20, 20}, {64, 0, 70, 20}};
  for (const ImageRect* rect : {&rects[0], &rects[1], &rects[2], &rects[3], static_cast<const ImageRect*>(nullptr)}) {
    EXPECT_EQ(GuidedFilter_setRect(filter.get(), rect), ZELVAN_OK);
    EXPECT_EQ(filter.run(&dst, &src, 100, &map, 41), ZELVAN_ERROR_PARAM);
  }
  for (const Form form : {kTwoStep, kTwoStepLite, kStepByStep}) {
    EXPECT_EQ(Filter(60, 40, 0).run(&dst, &src, 100, nullptr, 9, form), ZELVAN_ERROR_UNSUPPORTED);
  }
  EXPECT_EQ(Filter(60, 40, 3).run(&dst, &src, 100, &map, 41), ZELVAN_ERROR_UNSUPPORTED);
  EXPECT_EQ(Filter(60, 40, 40).run(&dst, &src, 100, &map, 41), ZELVAN_ERROR_PARAM);
  EXPECT_TRUE(dst.unchanged());
}

}  // namespace
