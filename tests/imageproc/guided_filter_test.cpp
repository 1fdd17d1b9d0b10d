#include "imageproc/guided_filter.h"

#include "base/integer.h"
#include "imageproc/kernel_rig.h"
#include "imageproc/resize.h"

namespace {

// The filter once more, pixel by pixel from its definition. luma: that of the rectangle; map: on the grid, or null.
Plane filtered(const Plane& luma, int32_t numShrink, float epsilon, Plane* map, int32_t fullWindow) {
  constexpr int32_t kDirections[4][2] = {{1, 0}, {0, 1}, {1, 1}, {-1, 1}};
  const int32_t side = 1 << numShrink, radius = ((fullWindow >> numShrink) | 1) >> 2;
  const int32_t w = luma.width >> numShrink, h = luma.height >> numShrink;
  Plane guide(w, h), square(w, h), a(w, h), b(w, h);
  for (int32_t i = 0; i < w * h * side * side; ++i) {
    const int32_t x = i % (w * side), y = i / (w * side);
    guide.at(x / side, y / side) += luma.edge(x, y);
    square.at(x / side, y / side) += luma.edge(x, y) * luma.edge(x, y);
  }
  const float inv = 1.0f / static_cast<float>((2 * radius + 1) * side * side);
  std::vector<Plane> as(4, a), bs(4, b);
  for (int32_t i = 0; i < 4 * w * h; ++i) {
    const int32_t d = i % 4, x = i / 4 % w, y = i / 4 / w, dx = kDirections[d][0], dy = kDirections[d][1];
    const float m = inv * static_cast<float>(guide.lineSum(x, y, dx, dy, radius));
    const float v = inv * static_cast<float>(square.lineSum(x, y, dx, dy, radius)) - m * m;
    const float ratio =
        v / (map == nullptr ? epsilon + v : v + (epsilon * 0.03125f) * static_cast<float>(map->at(x, y)) + 1e-12f);
    as[d].at(x, y) = static_cast<uint8_t>(truncToInt32(ratio * 128.0f + 0.5f));
    bs[d].at(x, y) = static_cast<uint8_t>(truncToInt32((1.0f - ratio) * m + 0.5f));
  }
  for (int32_t i = 0; i < w * h; ++i) {
    int64_t weights = 0, sumA = 0, sumB = 0;
    for (int32_t k = 0; k < 8; ++k) {
      const int32_t d = k / 2, reach = k % 2 ? radius : -radius;
      const int32_t x = i % w + reach * kDirections[d][0], y = i / w + reach * kDirections[d][1];
      if (!a.holds(x, y)) continue;
      const int64_t t = (128 - as[d].at(x, y)) & 255, weight = t * t + t + 1;
      weights += weight, sumA += weight * as[d].at(x, y), sumB += weight * bs[d].at(x, y);
    }
    a.values[i] = (sumA + weights / 2) / weights;
    b.values[i] = (sumB + weights / 2) / weights;
  }
  // Centre of block k at side * k + side / 2 - 1/2; distances in half pixels.
  Plane out = luma;
  for (int32_t i = 0; i < luma.width * luma.height; ++i) {
    const int32_t full = 2 * side, fx = 2 * (i % luma.width) + 1 - side, fy = 2 * (i / luma.width) + 1 - side;
    const int32_t kx = fx < 0 ? -1 : fx / full, ky = fy < 0 ? -1 : fy / full;
    int64_t sumA = 0, sumB = 0;
    for (int32_t n = 0; n < 4; ++n) {
      const int32_t wx = n & 1 ? fx - kx * full : full - (fx - kx * full);
      const int32_t wy = n & 2 ? fy - ky * full : full - (fy - ky * full);
      sumA += wx * wy * a.edge(kx + (n & 1), ky + (n >> 1));
      sumB += wx * wy * b.edge(kx + (n & 1), ky + (n >> 1));
    }
    const int32_t shift = 9 + 2 * numShrink;  // numShrink 0: weights of 4 in all, and rounding before b comes in
    out.values[i] = std::min<int64_t>((luma.values[i] * sumA + 128 * sumB + (1 << (shift - 1))) >> shift, 255);
  }
  return out;
}

// Flat areas, ramps, edges and noise, so that windows of all kinds occur.
void paint(const Image& image, uint32_t seed) {
  std::mt19937 random(seed);
  for (int32_t i = 0; i < image.width * image.height; ++i) {
    const int32_t x = i % image.width, y = i / image.width, patch = (x / 23 + y / 19) % 4;
    const auto noise = static_cast<int32_t>(random() >> 28);
    imageRow(&image, y)[x] = clampByte(patch == 0         ? 40
                                       : patch == 1       ? 3 * x + y + noise
                                       : patch == 2       ? 255 - noise * noise
                                       : (x + y) % 14 < 7 ? 200 + noise
                                                          : 20);
  }
}

enum Form { kLines, kSquare, kTwoStep, kTwoStepLite, kStepByStep };
constexpr float kEpsilon2 = 90;

class Filter {
 public:
  Filter(int32_t width, int32_t height, int32_t numShrink, Pel* pel = nullptr) {
    const GuidedFilterParam param = {1, numShrink};
    EXPECT_EQ(construct_GuidedFilter(get(), arena_.env()), ZELVAN_OK);
    EXPECT_EQ(GuidedFilter_init(get(), width, height, &param) | GuidedFilter_setPel(get(), pel), ZELVAN_OK);
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
  TestArena arena_;  // fails on blocks in use
  std::unique_ptr<GuidedFilter> filter_ = std::make_unique<GuidedFilter>();
};

bool samePixels(const Image& a, const Image& b) {
  return planesOf(a)[0] == planesOf(b)[0];
}

struct Case {
  int32_t width, height, numShrink, window;
  float epsilon;
  int32_t mapWidth, mapHeight;  // 0: no map
  int32_t format;
  ImageRect rect = {};  // empty: the default
};
const Case kCases[] = {
    {64, 48, 0, 41, 300, 0, 0, IMAGE_UINT8},
    {61, 47, 0, 9, 40, 61, 47, IMAGE_UINT8, {3, 5, 44, 36}},
    {150, 131, 0, 101, 900, 30, 20, IMAGE_YUV420_SEMIPLANAR},
    {1100, 14, 0, 6, 900, 0, 0, IMAGE_UINT8},
    {75, 63, 1, 41, 200, 19, 16, IMAGE_UINT8},
    {76, 64, 1, 23, 2000, 0, 0, IMAGE_YVU420_SEMIPLANAR, {7, 9, 67, 58}},
    {1031, 20, 1, 11, 60, 0, 0, IMAGE_UINT8},
    {136, 92, 2, 41, 400, 68, 46, IMAGE_YVU420_SEMIPLANAR},
    {151, 118, 2, 41, 90, 150, 118, IMAGE_UINT8},  // an odd grid: the map comes at its even size and is cut
    {138, 93, 2, 3, 90, 0, 0, IMAGE_UINT8},
    {128, 120, 2, 101, 700, 32, 30, IMAGE_YUV420_PLANAR, {17, 3, 111, 119}},
    {2203, 34, 2, 29, 500, 551, 9, IMAGE_UINT8, {5, 1, 2201, 33}},
    {90, 90, 2, 41, -60, 0, 0, IMAGE_UINT8},  // quotients out of all range
    {90, 90, 1, 41, -60, 40, 40, IMAGE_UINT8}};

TEST(GuidedFilter, EqualsTheDefinitionForAnyWorkersInPlaceAndBeside) {
  KernelRigs rigs;
  for (const Case& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.width << 'x' << c.height << " by " << c.numShrink << " window " << c.window);
    const bool whole = c.rect.right == 0;
    const int32_t s = 1 << c.numShrink;
    const auto up = [s](int32_t v, int32_t limit) { return std::min((v + s - 1) / s * s, limit); };
    const ImageRect in = {c.rect.left / s * s, c.rect.top / s * s, whole ? c.width : up(c.rect.right, c.width),
                          whole ? c.height : up(c.rect.bottom, c.height)};
    const TestImage map(c.mapWidth, c.mapHeight, IMAGE_UINT8, 77);
    for (int32_t y = 0; y < c.mapHeight / 3; ++y) std::fill_n(imageRow(&map, y), c.mapWidth, uint8_t{0});
    for (KernelRig& rig : rigs) {
      TestImage src(c.width, c.height, c.format, 1, 3), dst(c.width, c.height, c.format, 2, 8);
      paint(src, 5);
      Plane wanted[2] = {planesOf(dst)[0], planesOf(src)[0]}, luma(in.right - in.left, in.bottom - in.top);
      luma.fill([&](int32_t x, int32_t y, int32_t) { return wanted[1].at(in.left + x, in.top + y); });
      Plane gridMap(luma.width / s, luma.height / s);
      if (c.mapWidth != 0) {
        TestImage resized(((c.width >> c.numShrink) + 1) & ~1, ((c.height >> c.numShrink) + 1) & ~1, IMAGE_UINT8);
        ASSERT_EQ(ImageProc2_resizeImage(&rig.proc2, &resized, &map), ZELVAN_OK);
        gridMap.fill(
            [&](int32_t x, int32_t y, int32_t) { return imageRow(&resized, in.top / s + y)[in.left / s + x]; });
      }
      const Plane inside = filtered(luma, c.numShrink, c.epsilon, c.mapWidth != 0 ? &gridMap : nullptr, c.window);
      for (int32_t i = 0; i < luma.width * luma.height; ++i) {
        for (Plane& p : wanted) p.at(in.left + i % luma.width, in.top + i / luma.width) = inside.values[i];
      }
      Filter filter(c.width, c.height, c.numShrink, rig.proc2.pel);
      EXPECT_EQ(whole ? ZELVAN_OK : GuidedFilter_setRect(filter.get(), &c.rect), ZELVAN_OK);
      const Image* with = c.mapWidth != 0 ? &map : nullptr;
      ASSERT_EQ(filter.run(&dst, &src, c.epsilon, with, c.window), ZELVAN_OK);
      ASSERT_EQ(filter.run(nullptr, &src, c.epsilon, with, c.window), ZELVAN_OK);
      EXPECT_TRUE(planesOf(dst)[0] == wanted[0] && planesOf(src)[0] == wanted[1]);
      EXPECT_TRUE(dst.guardsUnchanged() && src.guardsUnchanged());
    }
  }
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
      TestImage noise(160, 120, IMAGE_UINT8), dst(160, 120, IMAGE_UINT8), twice(160, 120, IMAGE_UINT8);
      Filter filter(160, 120, numShrink), parallel(160, 120, numShrink, pel.get());
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
  EXPECT_EQ(filter.run(&dst, &rgb, 100, &map, 41), ZELVAN_ERROR_UNSUPPORTED);
  EXPECT_EQ(filter.run(&dst, &src, 100, &pairs, 41), ZELVAN_ERROR_UNSUPPORTED);
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
