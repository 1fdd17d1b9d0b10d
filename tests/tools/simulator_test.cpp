// The simulator's truth must be true: motions against pixels, noise against its model, each fault in its frame alone.
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "burst_simulator.h"

namespace tool {
namespace {

constexpr int32_t kWidth = 400, kHeight = 300;

Simulation small() {
  Simulation s;
  s.width = kWidth;
  s.height = kHeight;
  s.frames = 4;
  s.seed = 11;
  s.shift = 0.02;
  s.rotation = 1.0;
  s.zoom = 0.01;
  return s;
}
SimulatedBurst simulate(const Simulation& s) {
  static const RgbPicture scene = builtInScene(kWidth, kHeight, 5);
  static const RgbPicture foreign = builtInScene(kWidth, kHeight, 6);
  return simulateBurst(scene, foreign, s);
}
const SimulatedBurst& plainBurst() {
  static const SimulatedBurst burst = simulate(small());
  return burst;
}

// Mean square of frame(motion(p)) - base(p) in the middle of the picture.
double mismatch(const Picture& base, const Picture& frame, const Homography& motion) {
  double sum = 0;
  int32_t count = 0;
  for (int32_t y = 40; y < kHeight - 40; ++y) {
    for (int32_t x = 40; x < kWidth - 40; ++x, ++count) {
      const Point p = mapPoint(motion, {static_cast<double>(x), static_cast<double>(y)});
      const auto at = static_cast<size_t>(std::floor(p.y)) * kWidth + static_cast<size_t>(std::floor(p.x));
      const double u = p.x - std::floor(p.x), v = p.y - std::floor(p.y);
      const double there = (1 - v) * ((1 - u) * frame.y[at] + u * frame.y[at + 1]) +
                           v * ((1 - u) * frame.y[at + kWidth] + u * frame.y[at + kWidth + 1]);
      const double d = there - base.y[static_cast<size_t>(y) * kWidth + static_cast<size_t>(x)];
      sum += d * d;
    }
  }
  return sum / count;
}

TEST(Simulator, MotionsAreThoseOfThePixels) {
  const SimulatedBurst& burst = plainBurst();
  for (size_t i = 1; i < burst.frames.size(); ++i) {
    SCOPED_TRACE(i);
    const SimulatedFrame& frame = burst.frames[i];
    const double best = mismatch(burst.frames[0].clean, frame.clean, frame.motion);
    // A quarter of a pixel off, a tenth of a degree about the corner, half a percent: each must fit worse.
    const Homography wrongs[] = {{1, 0, 0.25, 0, 1, 0, 0, 0, 1},       {1, 0, -0.25, 0, 1, 0, 0, 0, 1},
                                 {1, 0, 0, 0, 1, 0.25, 0, 0, 1},       {1, 0, 0, 0, 1, -0.25, 0, 0, 1},
                                 {1, -0.002, 0, 0.002, 1, 0, 0, 0, 1}, {1, 0.002, 0, -0.002, 1, 0, 0, 0, 1},
                                 {1.005, 0, 0, 0, 1.005, 0, 0, 0, 1},  {0.995, 0, 0, 0, 0.995, 0, 0, 0, 1}};
    for (const Homography& wrong : wrongs) {
      EXPECT_GT(mismatch(burst.frames[0].clean, frame.clean, compose(wrong, frame.motion)), 1.1 * best);
    }
  }
}

TEST(Simulator, NoiseFollowsTheModelAndTheSeed) {
  const Simulation s = small();
  const SimulatedFrame& frame = plainBurst().frames[2];
  // By brightness; far enough from 0 and 255 not to be clipped.
  struct Bin {
    double expected = 0, sum = 0, square = 0, count = 0;
  };
  std::array<Bin, 3> bins;
  for (size_t i = 0; i < frame.clean.y.size(); ++i) {
    const double luma = frame.clean.y[i];
    if (luma < 60 || luma >= 210) continue;
    Bin& bin = bins[static_cast<size_t>((luma - 60) / 50)];
    const double d = frame.noisy.y[i] - luma;
    bin.expected += s.noise.shot * luma + s.noise.read * s.noise.read;
    bin.sum += d;
    bin.square += d * d;
    bin.count += 1;
  }
  for (const Bin& bin : bins) {
    ASSERT_GT(bin.count, 2000);
    EXPECT_NEAR(bin.square / bin.expected, 1, 0.08);
    EXPECT_LT(std::abs(bin.sum / bin.count), 0.8);
  }
  Simulation again = s;
  EXPECT_EQ(simulate(again).frames[2].noisy.y, frame.noisy.y);
  again.seed = 12;
  EXPECT_NE(simulate(again).frames[2].noisy.y, frame.noisy.y);
}

TEST(Simulator, FaultsStayInTheirFrameAndPlace) {
  Simulation s = small();
  s.blurredFrame = 1;
  s.foreignFrame = 2;
  s.movingObject = true;
  const SimulatedBurst& plain = plainBurst();
  const SimulatedBurst burst = simulate(s);
  const auto roughness = [](const Picture& p) {
    double sum = 0;
    for (size_t i = 1; i < p.y.size(); ++i) sum += std::abs(p.y[i] - p.y[i - 1]);
    return sum;
  };
  EXPECT_LT(roughness(burst.frames[1].clean), 0.7 * roughness(plain.frames[1].clean));
  EXPECT_GT(mismatch(plain.frames[2].clean, burst.frames[2].clean, {1, 0, 0, 0, 1, 0, 0, 0, 1}), 500);
  for (const size_t i : {size_t{0}, size_t{3}}) {
    const SimulatedFrame& frame = burst.frames[i];
    double reach = 0, inside = 0;
    for (size_t at = 0; at < frame.clean.y.size(); ++at) {
      if (frame.clean.y[at] == plain.frames[i].clean.y[at]) continue;
      const double distance = std::hypot(static_cast<double>(at % kWidth) - frame.object.x,
                                         static_cast<double>(at / kWidth) - frame.object.y);
      reach = std::max(reach, distance);
      inside += 1;
    }
    EXPECT_NEAR(reach, burst.objectRadius, 2);
    EXPECT_GT(inside, 0.8 * 3.14 * burst.objectRadius * burst.objectRadius);
  }
}

}  // namespace
}  // namespace tool
