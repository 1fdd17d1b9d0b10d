// The yardsticks on pictures whose worth is known.
#include <gtest/gtest.h>

#include <cmath>

#include "burst_simulator.h"
#include "yardstick.h"

namespace tool {
namespace {

constexpr int32_t kWidth = 321, kHeight = 241;

const Picture& truth() {
  static const Picture picture = [] {
    Simulation s;
    s.width = kWidth;
    s.height = kHeight;
    s.frames = 1;
    return simulateBurst(builtInScene(kWidth, kHeight, 3), {}, s).frames[0].clean;
  }();
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
