#include "imageproc/blur.h"

#include <functional>
#include <numeric>

#include "base/raw_double.h"
#include "imageproc/gauss_taps.h"
#include "imageproc/kernel_rig.h"
#include "imageproc/resize.h"

namespace {

constexpr int32_t kSizes[][2] = {{1, 1}, {2, 40}, {7, 7}, {33, 20}, {61, 90}, {300, 70}};

using Blur = Status (*)(ImageProc*, Image*, const Image*, double);
using Blur2 = Status (*)(ImageProc2*, Image*, const Image*, double);

// Few taps by format; a twin on a Pel where there is one.
struct TapsMember {
  Blur blur;
  Blur2 twin;
  int32_t format, radius;
};
constexpr TapsMember kTapsMembers[] = {
    {ImageProc_filterGaussianBlur7x7_uint8, ImageProc2_filterGaussianBlur7x7_uint8, IMAGE_UINT8, 3},
    {ImageProc_filterGaussianBlur7x7_uint88, ImageProc2_filterGaussianBlur7x7_uint88, IMAGE_UINT88, 3},
    {ImageProc_filterGaussianBlur7x7_uint16, ImageProc2_filterGaussianBlur7x7_uint16, IMAGE_UINT16, 3},
    {ImageProc_filterGaussianBlur5x5_uint16, nullptr, IMAGE_UINT16, 2},
    {ImageProc_filterGaussianBlur3x3_uint16, nullptr, IMAGE_UINT16, 1},
};

// Separable filtering pixel by pixel; taps from -radius to radius.
Plane filtered(const Plane& src, const std::vector<int32_t>& taps, int32_t rowRound) {
  const auto pass = [&](const Plane& in, int32_t dx, int32_t dy, int64_t round, int32_t shift) {
    Plane out(in.width, in.height, in.channels);
    out.fill([&](int32_t x, int32_t y, int32_t c) {
      int64_t sum = round;
      for (int32_t t = 0; t < static_cast<int32_t>(taps.size()); ++t) {
        const int32_t k = t - static_cast<int32_t>(taps.size() / 2);
        sum += taps[t] * in.edge(x + k * dx, y + k * dy, c);
      }
      return sum >> shift;
    });
    return out;
  };
  return pass(pass(src, 1, 0, rowRound, 10), 0, 1, 0x80000, 20);
}

// The taps of the direct blur, in 32-bit float.
std::vector<int32_t> directTaps(double sigma, int32_t side) {
  std::vector<float> g;
  const double s = std::max(sigma, 1e-16);
  for (int32_t i = -101; i <= 101; ++i) g.push_back(static_cast<float>(RawDouble_exp(-double(i) * i / (2 * s * s))));
  const auto normalise = [&] {
    const float scale = 1.0f / (std::accumulate(g.begin(), g.end(), 0.0f) + 1e-9f);
    for (float& v : g) v *= scale;
  };
  normalise();
  const auto reach = [&] { return static_cast<int32_t>(g.size() / 2); };
  while (reach() > 0 && (!(g[0] > 0.00024414063f) || (side >= 2 && reach() > side / 2))) {
    g = std::vector<float>(g.begin() + 1, g.end() - 1);
  }
  normalise();
  for (float& v : g) v = v * 32768.0f + 0.5f;
  return std::vector<int32_t>(g.begin(), g.end());
}

// Into another picture and, by the twin if there is one, in place; over noise and extremes, for each number of workers.
void compare(KernelRigs& rigs, Blur blur, Blur2 twin, int32_t format, int32_t w, int32_t h, double sigma,
             const std::function<Plane(const Plane&)>& reference) {
  for (KernelRig& rig : rigs) {
    SCOPED_TRACE(testing::Message() << format << ' ' << w << 'x' << h << " sigma " << sigma);
    TestImage src(w, h, format, 11, 8), dst(w, h, format, 12, 8);
    if (&rig != rigs.begin()) makeExtreme(src);
    std::vector<Plane> expected;
    for (const Plane& plane : planesOf(src)) expected.push_back(plane.values.empty() ? plane : reference(plane));
    ASSERT_EQ(blur(&rig.proc, &dst, &src, sigma), ZELVAN_OK);
    EXPECT_EQ(planesOf(dst), expected);
    ASSERT_EQ(twin ? twin(&rig.proc2, &src, &src, sigma) : blur(&rig.proc, &src, &src, sigma), ZELVAN_OK);
    EXPECT_EQ(planesOf(src), expected) << "in place";
    EXPECT_TRUE(dst.guardsUnchanged() && src.guardsUnchanged());
  }
}

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

TEST(Blur, DirectFormsMatchTheFormula) {
  KernelRigs rigs;
  for (const auto& [w, h] : kSizes) {
    for (const double sigma : {0.0, 0.3, 1.0, 1.8, 6.0, 45.0}) {
      for (const int32_t format : {57, 2, 24, 25, 26, 27, 28, 29, 36, 64}) {
        compare(rigs, ImageProc_gaussBlur2, ImageProc2_gaussBlur, format, w, h, sigma, [&](const Plane& plane) {
          return filtered(plane, directTaps(sigma, std::min(plane.width, plane.height)), 0);
        });
        if (sigma != 1.8) break;  // one sigma for the other formats
      }
      for (const TapsMember& member : kTapsMembers) {
        std::vector<int32_t> taps(static_cast<size_t>(2 * member.radius + 1));
        gaussTaps(taps.data(), member.radius, sigma + 0.1);
        compare(rigs, member.blur, member.twin, member.format, w, h, sigma + 0.1,
                [&](const Plane& plane) { return filtered(plane, taps, 512); });
      }
    }
  }
}

// Half size, the rest of the variance there, back, and a last blur of 1.8, by the public functions alone.
template <auto resize, typename Proc>
void blurByHalves(ImageProc* proc, Proc* resizer, Image* dst, const Image* src, double sigma) {
  if (!(sigma > 1.8) || src->width < 33 || src->height < 33) {
    ASSERT_EQ(ImageProc_gaussBlur2(proc, dst, src, sigma), ZELVAN_OK);
    return;
  }
  TestImage small(src->width / 2, src->height / 2, src->format), blurred(small.width, small.height, src->format);
  ASSERT_EQ(resize(resizer, &small, src), ZELVAN_OK);
  blurByHalves<resize>(proc, resizer, &blurred, &small, RawDouble_sqrt(sigma * sigma - 3.24) * 0.5);
  ASSERT_EQ(resize(resizer, dst, &blurred), ZELVAN_OK);
  ASSERT_EQ(ImageProc_gaussBlur2(proc, dst, dst, 1.8), ZELVAN_OK);
}

TEST(Blur, WideSigmasGoThroughHalfSizes) {
  KernelRigs rigs;
  for (const auto& [w, h] : {std::pair{32, 100}, {33, 33}, {66, 71}, {200, 150}}) {
    for (const double sigma : {1.0, 1.8, 1.81, 5.0, 30.0}) {
      TestImage src(w, h, 27, 21), expected(w, h, 27, 22), expected2(w, h, 27, 22);
      for (const auto init : {Image_initSubImageY, Image_initSubImageUV}) {
        ScopedImage from(nullptr), to(nullptr), to2(nullptr);
        ASSERT_EQ(init(&from, &src, 0, 0, w, h) | init(&to, &expected, 0, 0, w, h), ZELVAN_OK);
        ASSERT_EQ(init(&to2, &expected2, 0, 0, w, h), ZELVAN_OK);
        const double s = init == Image_initSubImageUV ? sigma * 0.5 : sigma;
        blurByHalves<ImageProc_resizeImage>(&rigs.rigs[0].proc, &rigs.rigs[0].proc, &to, &from, s);
        blurByHalves<ImageProc2_resizeImage>(&rigs.rigs[0].proc, &rigs.rigs[0].proc2, &to2, &from, s);
      }
      for (KernelRig& rig : rigs) {
        TestImage dst(w, h, 27, 22), dst2(w, h, 27, 22);
        ASSERT_EQ(ImageProc_pgaussBlur(&rig.proc, &dst, &src, sigma), ZELVAN_OK);
        ASSERT_EQ(ImageProc2_pgaussBlur(&rig.proc2, &dst2, &src, sigma), ZELVAN_OK);
        EXPECT_TRUE(dst.guardsUnchanged() && planesOf(dst) == planesOf(expected)) << w << 'x' << h << ' ' << sigma;
        EXPECT_TRUE(dst2.guardsUnchanged() && planesOf(dst2) == planesOf(expected2)) << w << 'x' << h << ' ' << sigma;
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
    const auto runs = [&](int32_t bytes, int32_t format, Blur2 blur) {
      KernelRig rig(0, static_cast<uint32_t>(bytes) + 512);
      TestImage image(w, h, format, 3);
      EXPECT_EQ(blur(&rig.proc2, &image, &image, 7.0), ZELVAN_OK) << format;
    };
    runs(ImageProc2_getBufferSizeForGaussBlur(w, h), IMAGE_RGB888, ImageProc2_gaussBlur);
    runs(ImageProc2_getBufferSizeForPgaussBlur(w, h), IMAGE_UINT88, ImageProc2_pgaussBlur);
    runs(ImageProc2_getBufferSizeForConvolution(w, h), IMAGE_UINT16, ImageProc2_filterGaussianBlur7x7_uint16);
  }
}

}  // namespace
