#include "quality.h"

#include <cmath>

#include "burst_simulator.h"
#include "tool_run.h"
#include "yardstick.h"

namespace tool {
namespace {

// Mean over all whole windows, weights as products, moments about the means.
double literalSsim(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b, int32_t width, int32_t height) {
  double sum = 0;
  int32_t count = 0;
  for (int32_t y = 5; y < height - 5; ++y) {
    for (int32_t x = 5; x < width - 5; ++x, ++count) {
      double weight = 0, ma = 0, mb = 0, va = 0, vb = 0, cov = 0;
      for (int32_t i = 0; i < 242; ++i) {  // the means first
        if (i == 121) ma /= weight, mb /= weight;
        const int32_t dx = i % 11 - 5, dy = i / 11 % 11 - 5;
        const double w = std::exp(-(dx * dx + dy * dy) / (2 * 1.5 * 1.5));
        const auto at = static_cast<size_t>((y + dy) * width + x + dx);
        if (i < 121) {
          weight += w, ma += w * a[at], mb += w * b[at];
        } else {
          va += w / weight * (a[at] - ma) * (a[at] - ma);
          vb += w / weight * (b[at] - mb) * (b[at] - mb);
          cov += w / weight * (a[at] - ma) * (b[at] - mb);
        }
      }
      const double c1 = 6.5025, c2 = 58.5225;  // (0.01 x 255)^2, (0.03 x 255)^2
      sum += (2 * ma * mb + c1) * (2 * cov + c2) / ((ma * ma + mb * mb + c1) * (va + vb + c2));
    }
  }
  return sum / count;
}

TEST(Quality, PsnrOfKnownDifferences) {
  const Picture truth = randomPicture(203, 151, 1, 30, 219);
  Picture off = truth;
  for (uint8_t& y : off.y) y = static_cast<uint8_t>(y + 4);
  for (uint8_t& v : off.v) v = static_cast<uint8_t>(v - 6);  // half of the chroma samples
  // Within the border of 2 % nothing counts, just inside everything does.
  off.y[2 * 203 + 100] = 0;
  off.y[75 * 203 + 3] = 0;
  const Quality q = compareWithTruth(off, truth);
  EXPECT_NEAR(q.lumaPsnr, 20 * std::log10(255.0 / 4), 1e-9);
  EXPECT_NEAR(q.chromaPsnr, 10 * std::log10(255.0 * 255.0 / 18), 1e-9);
  off.y[3 * 203 + 4] = static_cast<uint8_t>(off.y[3 * 203 + 4] + 9);
  EXPECT_LT(lumaPsnr(off, truth), q.lumaPsnr);

  const Quality same = compareWithTruth(truth, truth);
  EXPECT_EQ(same.lumaPsnr, 99);
  EXPECT_NEAR(same.lumaSsim, 1, 1e-12);
  EXPECT_NEAR(same.chromaSsim, 1, 1e-12);
  EXPECT_THROW(compareWithTruth(truth, Picture(202, 151)), Error);
  EXPECT_THROW(lumaPsnr(truth, Picture(203, 150)), Error);
}

// No whole window, no SSIM; the samples count all the same.
TEST(Quality, SmallPicturesHaveNoSsim) {
  for (const auto& [width, height] : {std::pair{40, 10}, {10, 40}, {1, 1}, {21, 20}}) {
    const Picture truth = randomPicture(width, height, 4, 30, 219);
    Picture off = truth;
    for (uint8_t& y : off.y) y = static_cast<uint8_t>(y + 4);
    const Quality q = compareWithTruth(off, truth);
    EXPECT_NEAR(q.lumaPsnr, 20 * std::log10(255.0 / 4), 1e-9);
    EXPECT_EQ(q.chromaPsnr, 99);
    EXPECT_EQ(std::isnan(q.lumaSsim), width < 11 || height < 11);
    EXPECT_TRUE(std::isnan(q.chromaSsim));
  }
}

TEST(Quality, SsimIsTheWindowSum) {
  const Picture truth = randomPicture(63, 49, 2, 30, 219);
  Picture noisy = truth;
  std::mt19937 random(3);
  for (std::vector<uint8_t>* plane : {&noisy.y, &noisy.u, &noisy.v}) {
    for (uint8_t& sample : *plane) sample = static_cast<uint8_t>(sample - 20 + static_cast<int32_t>(random() % 41));
  }
  const Quality q = compareWithTruth(noisy, truth);
  EXPECT_NEAR(q.lumaSsim, literalSsim(noisy.y, truth.y, 63, 49), 1e-9);
  EXPECT_NEAR(q.chromaSsim, (literalSsim(noisy.u, truth.u, 32, 25) + literalSsim(noisy.v, truth.v, 32, 25)) / 2, 1e-9);
  EXPECT_LT(q.lumaSsim, 0.99);
}

constexpr int32_t kWidth = 321, kHeight = 241;

const Picture& truth() {
  static const Picture picture =
      simulateBurst(builtInScene(kWidth, kHeight, 3), {}, simulationOf(kWidth, kHeight, 1)).frames[0].clean;
  return picture;
}
Picture noisy(uint32_t seed) {
  Random random(seed);
  return withNoise(truth(), NoiseModel(), &random);
}

// Each frame is stored by itself, so that the losses of its file average out, too.
TEST(Yardstick, TheAverageGainsWhatItsFramesAllow) {
  for (const char* format : {"nv21", "png", "jpg"}) {
    SCOPED_TRACE(format);
    const FrameStorage storage = {format, 90};
    const Picture one = alignedAverage(truth(), NoiseModel(), storage, 1, 5);
    const Picture eight = alignedAverage(truth(), NoiseModel(), storage, 8, 5);
    EXPECT_NE(one.y, noisy(5 * 1000003u + 1).y);
    const Psnr before = psnrOf(one, truth(), nullptr), after = psnrOf(eight, truth(), nullptr);
    EXPECT_NEAR(after.luma - before.luma, 10 * std::log10(8), 0.5);
    EXPECT_NEAR(after.chroma - before.chroma, 10 * std::log10(8), 0.7);
  }
  const Picture exact = alignedAverage(truth(), {0, 0, 0}, {"nv21", 95}, 3, 1);
  EXPECT_EQ(exact.y, truth().y);
  EXPECT_EQ(exact.u, truth().u);
  EXPECT_EQ(exact.v, truth().v);
}

TEST(Yardstick, ShareShiftAndEdges) {
  const Picture base = noisy(1);
  const Picture average = alignedAverage(truth(), NoiseModel(), {"nv21", 95}, 8, 1);
  const auto of = [&](const Picture& result, const Mask* counted = nullptr) {
    return measure(result, base, average, truth(), counted);
  };
  EXPECT_EQ(of(base).share, 0);
  EXPECT_EQ(of(average).share, 1);
  EXPECT_GT(of(truth()).share, 2);
  EXPECT_EQ(measure(truth(), base, base, truth(), nullptr).share, 0);
  EXPECT_NEAR(of(base).gradientGain, 1, 0.02) << "noise has no direction";

  Picture flat = truth();
  for (size_t i = 0; i < flat.y.size(); ++i) flat.y[i] = static_cast<uint8_t>(60 + flat.y[i] / 2);
  EXPECT_NEAR(of(flat).gradientGain, 0.5, 0.01);
  Picture tinted = truth();
  for (uint8_t& u : tinted.u) ++u;
  for (uint8_t& v : tinted.v) v = static_cast<uint8_t>(v - 2);
  EXPECT_EQ(of(tinted).meanShift, (std::array<double, 3>{0, 1, -2}));

  // Left of the middle the result is spoilt, and does not count.
  Picture spoilt = truth();
  Mask right(spoilt.y.size(), 1);
  for (size_t at = 0; at < right.size(); ++at) {
    if (at % kWidth >= kWidth / 2) continue;
    right[at] = 0;
    spoilt.y[at] = 0;
    spoilt.u[at / kWidth / 2 * ((kWidth + 1) / 2) + at % kWidth / 2] = 0;
  }
  const Yardstick half = of(spoilt, &right);
  EXPECT_EQ(half.result.luma, 99);
  EXPECT_EQ(half.result.chroma, 99);
  EXPECT_EQ(half.meanShift, (std::array<double, 3>{0, 0, 0}));
  EXPECT_LT(of(spoilt).result.luma, 20);
  // At the seam the differences look across it.
  EXPECT_NEAR(half.gradientGain, 1, 0.1);
}

}  // namespace
}  // namespace tool
