#include "imageproc/blur.h"

#include <functional>

#include "base/raw_double.h"
#include "imageproc/gauss_taps.h"
#include "imageproc/kernel_rig.h"
#include "imageproc/resize.h"

namespace {

constexpr int32_t kSizes[][2] = {{1, 1}, {2, 40}, {5, 3}, {7, 7}, {33, 20}, {61, 90}, {300, 70}};

using Blur = Status (*)(ImageProc*, Image*, const Image*, double);

// Separable filtering pixel by pixel; taps from -radius to radius.
Plane filtered(const Plane& src, const std::vector<int32_t>& taps, int32_t rowRound) {
  const int32_t radius = static_cast<int32_t>(taps.size() / 2);
  Plane across(src.width, src.height, src.channels);
  Plane dst(src.width, src.height, src.channels);
  const auto pass = [&](Plane& out, const std::function<int64_t(int32_t, int32_t, int32_t, int32_t)>& read,
                        int64_t round, int32_t shift) {
    for (int32_t y = 0; y < src.height; ++y) {
      for (int32_t x = 0; x < src.width; ++x) {
        for (int32_t c = 0; c < src.channels; ++c) {
          int64_t sum = round;
          for (int32_t t = -radius; t <= radius; ++t) sum += int64_t{taps[t + radius]} * read(x, y, c, t);
          out.at(x, y, c) = static_cast<double>(sum >> shift);
        }
      }
    }
  };
  pass(
      across, [&](int32_t x, int32_t y, int32_t c, int32_t t) { return src.edge(x + t, y, c); }, rowRound, 10);
  pass(
      dst, [&](int32_t x, int32_t y, int32_t c, int32_t t) { return across.edge(x, y + t, c); }, 0x80000, 20);
  return dst;
}

// The taps of the direct blur, in 32-bit float.
std::vector<int32_t> directTaps(double sigma, int32_t side) {
  std::vector<float> g;
  for (int32_t i = -101; i <= 101; ++i) {
    g.push_back(
        static_cast<float>(RawDouble_exp(-double(i) * i / (2 * std::max(sigma, 1e-16) * std::max(sigma, 1e-16)))));
  }
  const auto normalise = [&] {
    float sum = 0;
    for (const float v : g) sum += v;
    for (float& v : g) v = v * (1.0f / (sum + 1e-9f));
  };
  normalise();
  while (g.size() > 1 &&
         (!(g.front() > 0.00024414063f) || (side >= 2 && static_cast<int32_t>(g.size() / 2) > side / 2))) {
    g.erase(g.begin());
    g.pop_back();
  }
  normalise();
  std::vector<int32_t> taps;
  for (const float v : g) taps.push_back(static_cast<int32_t>(v * 32768.0f + 0.5f));
  return taps;
}

// Into another picture and in place, over noise and extremes, for each number of workers.
void compare(KernelRigs& rigs, Blur blur, int32_t format, int32_t w, int32_t h, double sigma,
             const std::function<Plane(const Plane&)>& reference) {
  for (KernelRig& rig : rigs) {
    for (const bool extreme : {false, true}) {
      TestImage src(w, h, format, 11, 8);
      if (extreme) makeExtreme(src);
      TestImage dst(w, h, format, 12, 8);
      std::vector<Plane> expected;
      for (const Plane& plane : planesOf(src)) expected.push_back(plane.values.empty() ? plane : reference(plane));
      ASSERT_EQ(blur(&rig.proc, &dst, &src, sigma), ZELVAN_OK);
      EXPECT_EQ(planesOf(dst), expected) << format << ' ' << w << 'x' << h << " sigma " << sigma << " rig "
                                         << &rig - rigs.rigs;
      EXPECT_TRUE(dst.guardsUnchanged());
      ASSERT_EQ(blur(&rig.proc, &src, &src, sigma), ZELVAN_OK);
      EXPECT_EQ(planesOf(src), expected) << "in place " << format << ' ' << w << 'x' << h << " rig "
                                         << &rig - rigs.rigs;
      EXPECT_TRUE(src.guardsUnchanged());
    }
  }
}

TEST(GaussTaps, SumToOneAndFollowTheCurve) {
  for (const double sigma : {0.1, 0.5, 1.0, 1.7, 4.0, 60.0}) {
    for (const int32_t radius : {2, 3}) {
      int32_t taps[7];
      gaussTaps(taps, radius, sigma);
      double sum = 0;
      int32_t total = 0;
      for (int32_t i = -radius; i <= radius; ++i) sum += std::exp(-i * i / (2 * sigma * sigma));
      for (int32_t i = -radius; i <= radius; ++i) {
        EXPECT_NEAR(taps[i + radius], std::exp(-i * i / (2 * sigma * sigma)) / sum * 32768, i == 0 ? 3.5 : 0.51);
        total += taps[i + radius];
      }
      EXPECT_EQ(total, 32768);
    }
  }
}

TEST(GaussBlur2, MatchesTheFormula) {
  KernelRigs rigs;
  for (const auto& size : kSizes) {
    for (const double sigma : {0.0, 0.3, 1.0, 1.8, 6.0, 45.0}) {
      for (const int32_t format : {24, 26, 27, 29, 57, 64}) {
        if (format != 57 && sigma != 1.8) continue;
        compare(rigs, ImageProc_gaussBlur2, format, size[0], size[1], sigma, [&](const Plane& plane) {
          return filtered(plane, directTaps(sigma, std::min(plane.width, plane.height)), 0);
        });
      }
    }
  }
}

TEST(Blur7x7, MatchesTheFormula) {
  KernelRigs rigs;
  for (const auto& size : kSizes) {
    for (const double sigma : {0.2, 1.0, 4.0}) {
      std::vector<int32_t> taps(7);
      gaussTaps(taps.data(), 3, sigma);
      compare(rigs, ImageProc_filterGaussianBlur7x7_uint8, 57, size[0], size[1], sigma,
              [&](const Plane& plane) { return filtered(plane, taps, 512); });
    }
  }
}

// Half size, the rest of the variance there, back, and a last blur of 1.8, by the public functions alone.
void blurByHalves(ImageProc* proc, Image* dst, const Image* src, double sigma) {
  if (!(sigma > 1.8) || src->width < 33 || src->height < 33) {
    ASSERT_EQ(ImageProc_gaussBlur2(proc, dst, src, sigma), ZELVAN_OK);
    return;
  }
  TestImage small(src->width / 2, src->height / 2, src->format);
  TestImage blurred(src->width / 2, src->height / 2, src->format);
  ASSERT_EQ(ImageProc_resizeImage(proc, &small, src), ZELVAN_OK);
  blurByHalves(proc, &blurred, &small, RawDouble_sqrt(sigma * sigma - 3.24) * 0.5);
  ASSERT_EQ(ImageProc_resizeImage(proc, dst, &blurred), ZELVAN_OK);
  ASSERT_EQ(ImageProc_gaussBlur2(proc, dst, dst, 1.8), ZELVAN_OK);
}

TEST(PgaussBlur, GoesThroughHalfSizes) {
  KernelRigs rigs;
  for (const auto& [w, h] : {std::pair{32, 100}, {33, 33}, {66, 71}, {200, 150}}) {
    for (const double sigma : {1.0, 1.8, 1.81, 5.0, 30.0}) {
      TestImage src(w, h, 27, 21);
      TestImage expected(w, h, 27, 22);
      for (const bool chroma : {false, true}) {
        const auto init = chroma ? Image_initSubImageUV : Image_initSubImageY;
        Image views[2];
        for (Image& view : views) construct_Image(&view, nullptr);
        ASSERT_EQ(init(&views[0], &src, 0, 0, w, h) | init(&views[1], &expected, 0, 0, w, h), ZELVAN_OK);
        blurByHalves(&rigs.rigs[0].proc, &views[1], &views[0], chroma ? sigma * 0.5 : sigma);
      }
      for (KernelRig& rig : rigs) {
        TestImage dst(w, h, 27, 22);
        ASSERT_EQ(ImageProc_pgaussBlur(&rig.proc, &dst, &src, sigma), ZELVAN_OK);
        EXPECT_EQ(planesOf(dst), planesOf(expected)) << w << 'x' << h << " sigma " << sigma;
        EXPECT_TRUE(dst.guardsUnchanged());
      }
    }
  }
}

// What all this is for: the true Gaussian of a smooth picture, and flat pictures that stay flat.
TEST(Blur, IsAGaussian) {
  KernelRig rig(3);
  TestImage src(160, 120, 57);
  TestImage dst(160, 120, 57);
  constexpr double kWave = 0.11;
  for (int32_t y = 0; y < 120; ++y) {
    for (int32_t x = 0; x < 160; ++x) src.row(0, y)[x] = static_cast<uint8_t>(128.5 + 100 * std::cos(kWave * (x - 80)));
  }
  for (const double sigma : {0.8, 1.7, 2.5, 6.0, 10.0}) {
    ASSERT_EQ(ImageProc_pgaussBlur(&rig.proc, &dst, &src, sigma), ZELVAN_OK);
    // The way through smaller sizes adds variance of its own, up to a fifth.
    const auto damping = [&](double variance) { return std::exp(-variance * kWave * kWave / 2); };
    const double wanted = damping(sigma * sigma);
    const double slack = 1.5 + 100 * (wanted - damping(1.2 * sigma * sigma));
    for (int32_t x = 40; x < 120; ++x) {
      EXPECT_NEAR(dst.row(0, 60)[x], 128 + 100 * wanted * std::cos(kWave * (x - 80)), slack) << sigma << " at " << x;
    }
    for (const uint8_t value : {0, 1, 128, 254, 255}) {
      TestImage flat(90, 70, 57);
      fillPixels(flat, value);
      const Blur blurs[] = {ImageProc_pgaussBlur, ImageProc_gaussBlur2, ImageProc_filterGaussianBlur7x7_uint8};
      for (const Blur blur : blurs) {
        TestImage out(90, 70, 57);
        ASSERT_EQ(blur(&rig.proc, &out, &flat, sigma), ZELVAN_OK);
        EXPECT_EQ(planesOf(out)[0], planesOf(flat)[0]) << sigma << ' ' << int{value};
      }
    }
  }
}

TEST(Blur, RefusalsLeaveThePicture) {
  KernelRig rig(0, 2048);
  for (const Blur blur : {ImageProc_pgaussBlur, ImageProc_gaussBlur2, ImageProc_filterGaussianBlur7x7_uint8}) {
    const struct {
      int32_t dst;
      int32_t src;
      int32_t width;
      Status status;
    } cases[] = {{58, 58, 9, ZELVAN_ERROR_GENERAL},
                 {57, 64, 9, ZELVAN_ERROR_GENERAL},
                 {57, 57, 10, ZELVAN_ERROR_PARAM},
                 {57, 57, 200, ZELVAN_ERROR_NOMEM}};
    for (const auto& c : cases) {
      const TestImage src(c.width == 200 ? 200 : 9, 40, c.src, 1, 8);
      TestImage dst(c.width, 40, c.dst, 2, 8);
      EXPECT_EQ(blur(&rig.proc, &dst, &src, 2.5), c.status) << c.dst << " from " << c.src;
      EXPECT_TRUE(dst.unchanged());
    }
  }
}

}  // namespace
