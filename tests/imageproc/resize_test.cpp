#include "imageproc/resize.h"

#include "imageproc/kernel_rig.h"

namespace {

struct Size {
  int32_t w, h;
};
struct Pair {
  Size src, dst;
};

// Two samples, the second at index + 1, and its weight in units of 2^-bits.
struct Tap {
  int64_t index, weight;
  int32_t bits = 15;
};

Tap tapAt(int64_t p, int64_t size) {
  if (p < 0) return {0, 0};
  return p >= (size - 1) << 15 ? Tap{size - 1, 0} : Tap{p >> 15, p & 0x7fff};
}

// Position by position, with the groups of eight found anew for each pixel.
Tap acrossTap(int64_t x, int64_t sw, int64_t dw, bool groups) {
  const int64_t s = (sw << 15) / dw, p0 = (sw - dw) * 32768 / (2 * dw);
  if (groups && sw <= dw) {
    int64_t first = 0;
    while (p0 + first * s < 0) ++first;
    const int64_t head = first + (x - first) / 8 * 8;
    if (x >= first && head < dw - 0x40000 / s) {
      const int64_t p = p0 + head * s, q = ((p & 0x7fff) >> 8) + (((x - head) * s + 128) >> 8);
      return {(p >> 15) + q / 128, q % 128, 7};
    }
  }
  return tapAt(p0 + x * s, sw);
}

int64_t mixed(const Tap& tap, int64_t a, int64_t b) {
  const int64_t one = int64_t{1} << tap.bits;
  return ((one - tap.weight) * a + tap.weight * b + one / 2) >> tap.bits;
}

Plane resized(const Plane& src, int32_t dw, int32_t dh, bool groups) {
  Plane dst(dw, dh, src.channels);
  dst.fill([&](int32_t x, int32_t y, int32_t c) {
    const Tap down = tapAt((2 * int64_t{y} * src.height + src.height - dh) * 32768 / (2 * dh), src.height);
    const Tap across = acrossTap(x, src.width, dw, groups);
    const auto row = [&](int64_t at) {
      return mixed(across, src.edge(across.index, at, c), src.edge(across.index + 1, at, c));
    };
    return mixed(down, row(down.index), row(down.index + 1));
  });
  return dst;
}

Plane resizedByPel(const Plane& src, int32_t dw, int32_t dh) {
  if (std::abs(dw - src.width / 2) >= 2 || std::abs(dh - src.height / 2) >= 2) return resized(src, dw, dh, false);
  Plane dst(dw, dh, src.channels);
  dst.fill([&](int32_t x, int32_t y, int32_t c) {
    int64_t sum = 2;
    for (const int32_t k : {0, 1, 2, 3}) sum += src.edge(2 * x + k % 2, 2 * y + k / 2, c);
    return sum >> 2;
  });
  return dst;
}

const Pair kPairs[] = {{{10, 7}, {33, 20}},   {{64, 48}, {201, 150}}, {{33, 17}, {33, 40}}, {{100, 80}, {37, 29}},
                       {{200, 11}, {199, 9}}, {{1, 1}, {9, 5}},       {{5, 5}, {1, 1}},     {{65, 2}, {512, 7}},
                       {{64, 48}, {32, 24}},  {{64, 48}, {33, 25}},   {{65, 49}, {33, 25}}, {{65, 49}, {32, 24}},
                       {{64, 48}, {34, 24}},  {{2, 6}, {2, 3}},       {{1, 9}, {1, 5}},     {{131, 66}, {66, 65}},
                       {{9, 130}, {10, 200}}, {{63, 3}, {129, 300}}};

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

// From a view into a larger picture, over noise or extremes, on each number of workers.
template <typename Reference>
void compare(KernelRigs& rigs, const Pair& sizes, int32_t format, Resize resize, const Reference& reference) {
  SCOPED_TRACE(testing::Message() << "format " << format << ' ' << sizes.src.w << 'x' << sizes.src.h << " to "
                                  << sizes.dst.w << 'x' << sizes.dst.h);
  const TestImage whole(sizes.src.w + 5, sizes.src.h + 3, format, 11, 8);
  if (sizes.dst.w & 1) makeExtreme(whole);
  ScopedImage src(nullptr);
  ASSERT_EQ(Image_initSubImage(&src, &whole, 2, 2, sizes.src.w, sizes.src.h), ZELVAN_OK);
  std::vector<Plane> expected = planesOf(TestImage(sizes.dst.w, sizes.dst.h, format, 7, 8));
  const std::vector<Plane> from = planesOf(src);
  for (size_t p = 0; p < from.size(); ++p) {
    if (expected[p].values.empty() || from[p].values.empty()) continue;
    expected[p] = reference(from[p], expected[p].width, expected[p].height);
  }
  for (KernelRig& rig : rigs) {
    TestImage dst(sizes.dst.w, sizes.dst.h, format, 7, 8);
    ASSERT_EQ(resize(rig, &dst, &src), ZELVAN_OK);
    EXPECT_EQ(planesOf(dst), expected);
    EXPECT_TRUE(dst.guardsUnchanged());
  }
}

TEST(Resize, MatchesTheFormula) {
  KernelRigs rigs;
  for (const Pair& pair : kPairs) {
    for (const int32_t format : {24, 26, 27, 29, 57, 58, 61, 64}) {
      compare(rigs, pair, format, byExecutor, [&](const Plane& from, int32_t w, int32_t h) {
        return resized(from, w, h, from.channels == 1 && format < 58);
      });
      if (format != 24) compare(rigs, pair, format, byPel, resizedByPel);
    }
  }
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
                              {0, 61, 57, 20, 16, 2}, {0, 65, 65, 9, 9, 1},   {0, 57, 57, 0, 9, 3},
                              {1, 26, 26, 20, 16, 0}, {1, 57, 27, 9, 9, 1},   {1, 29, 27, 20, 16, 1},
                              {1, 63, 63, 9, 9, 1},   {1, 57, 57, 9, 0, 3},   {2, 57, 57, 20, 8, 3},
                              {2, 57, 57, 10, 16, 3}, {2, 57, 57, 0, 8, 3},   {2, 64, 57, 7, 5, 3}};
  for (const auto& [form, to, from, w, h, status] : cases) {
    TestImage src(20, 16, from, 1, 8), dst(w, h, to, 2, 8);
    const Plane expected = status == 0 ? resized(planesOf(src)[0], w, h, true) : planesOf(dst)[0];
    EXPECT_EQ(kForms[form](rig, &dst, &src), kStatuses[status]) << to << " from " << from;
    EXPECT_EQ(planesOf(dst)[0], expected) << to << " from " << from;
    EXPECT_EQ(kForms[form](rig, &dst, nullptr), ZELVAN_ERROR_PARAM);
  }
  // Two rows of 4000 pixels do not fit: the executor form leaves the picture alone and says nothing.
  KernelRig small(0, 4096);
  TestImage src(20, 16, 57), dst(4000, 3, 57);
  EXPECT_EQ(byExecutor(small, &dst, &src), ZELVAN_OK);
  EXPECT_EQ(byPel(small, &dst, &src), ZELVAN_ERROR_NOMEM);
  EXPECT_TRUE(dst.unchanged());
}

Plane sharedPass(const Plane& src, int32_t target, bool across) {
  const int64_t current = across ? src.width : src.height;
  Plane dst(across ? target : src.width, across ? src.height : target, src.channels);
  const int64_t s = (current << 15) / target, r = (int64_t{target} << 7) / current;
  const int64_t p0 = across ? (current - target) * 32768 / (2 * target) : 0;
  dst.fill([&](int32_t x, int32_t y, int32_t c) {
    const int64_t p = p0 + (across ? x : y) * s, f = ((p & 0x7fff) + 128) >> 8, t = (s >> 8) + f;
    const int64_t w0 = ((128 - f) * r + 64) >> 7, w1 = ((t < 257 ? t - 128 : 128) * r + 64) >> 7;
    const int64_t w[3] = {w0, w1, 128 - w0 - w1};
    int64_t sum = 64;
    for (int64_t k = 0; k < 3; ++k) {
      const int64_t i = std::max<int64_t>((p >> 15) + k, 0);
      sum += w[k] * (across ? src.edge(i, y, c) : src.edge(x, i, c));
    }
    return sum >> 7;
  });
  return dst;
}

Plane averageShrunk(Plane plane, Size image, Size target, int32_t dw, int32_t dh) {
  const int32_t shift = plane.width == image.w ? 0 : 1;
  do {
    image = {(image.w + 1) / 2, (image.h + 1) / 2};
    plane = resizedByPel(plane, image.w >> shift, image.h >> shift);
  } while (!((image.w + 1) / 2 < target.w || image.w == 1) || !((image.h + 1) / 2 < target.h || image.h == 1));
  return sharedPass(sharedPass(plane, dw, true), dh, false);
}

TEST(AverageShrink, HalvesAndThenSharesPixels) {
  KernelRigs rigs;
  const Pair pairs[] = {{{64, 48}, {32, 24}},  {{65, 49}, {33, 25}}, {{64, 48}, {16, 12}}, {{100, 80}, {37, 29}},
                        {{101, 77}, {30, 23}}, {{90, 70}, {23, 18}}, {{9, 9}, {1, 1}},     {{130, 40}, {40, 12}},
                        {{33, 47}, {8, 12}},   {{12, 90}, {1, 7}}};
  for (const Pair& pair : pairs) {
    for (const int32_t format : {26, 27, 29, 57, 58, 61, 64}) {
      compare(rigs, pair, format, byShares,
              [&](const Plane& from, int32_t w, int32_t h) { return averageShrunk(from, pair.src, pair.dst, w, h); });
    }
  }
  // Above half the size in one direction only: whatever the weights are, memory outside the picture stays out of it.
  const TestImage src(20, 16, 57);
  TestImage odd(19, 3, 57);
  EXPECT_EQ(byShares(rigs.rigs[2], &odd, &src), ZELVAN_OK);
  EXPECT_TRUE(odd.guardsUnchanged());
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

}  // namespace
