// The simulator's truth must be true: motions against pixels, noise against its model, each fault in its frame alone.
#include <array>
#include <cmath>

#include "burst_simulator.h"
#include "tool_run.h"

namespace tool {
namespace {

constexpr int32_t kWidth = 400, kHeight = 300;

Simulation small() {
  Simulation s = simulationOf(kWidth, kHeight, 4, 11);
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

// A quarter of a pixel off, a tenth of a degree about the corner, half a percent: each must fit worse.
void expectBestFit(const Picture& base, const SimulatedFrame& frame, double factor = 1.1) {
  const double best = mismatch(base, frame.clean, frame.motion);
  const Homography wrongs[] = {{1, 0, 0.25, 0, 1, 0, 0, 0, 1},       {1, 0, -0.25, 0, 1, 0, 0, 0, 1},
                               {1, 0, 0, 0, 1, 0.25, 0, 0, 1},       {1, 0, 0, 0, 1, -0.25, 0, 0, 1},
                               {1, -0.002, 0, 0.002, 1, 0, 0, 0, 1}, {1, 0.002, 0, -0.002, 1, 0, 0, 0, 1},
                               {1.005, 0, 0, 0, 1.005, 0, 0, 0, 1},  {0.995, 0, 0, 0, 0.995, 0, 0, 0, 1}};
  for (const Homography& wrong : wrongs) {
    EXPECT_GT(mismatch(base, frame.clean, compose(wrong, frame.motion)), factor * best);
  }
}

TEST(Simulator, MotionsAreThoseOfThePixels) {
  for (size_t i = 1; i < 4; ++i) {
    SCOPED_TRACE(i);
    expectBestFit(plainBurst().frames[0].clean, plainBurst().frames[i]);
  }
}

// The noise of pixels whose clean luma, and that of the pixel before, lies in a range.
struct NoiseFound {
  double count = 0, mean = 0;
  double ratio = 0;        // of the mean square to that of the model
  double correlation = 0;  // with the pixel before
};
NoiseFound noiseOf(const SimulatedFrame& frame, const NoiseModel& model, double low, double high) {
  NoiseFound found;
  double square = 0, product = 0, expected = 0;
  for (size_t at = 1; at < frame.clean.y.size(); ++at) {
    const double luma = frame.clean.y[at], before = frame.clean.y[at - 1];
    if (std::min(luma, before) < low || std::max(luma, before) >= high) continue;
    const double d = frame.noisy.y[at] - luma;
    expected += model.shot * luma + model.read * model.read;
    found.mean += d;
    square += d * d;
    product += d * (frame.noisy.y[at - 1] - before);
    found.count += 1;
  }
  return {found.count, found.mean / found.count, square / expected, product / square};
}

TEST(Simulator, NoiseFollowsTheModelAndTheSeed) {
  Simulation again = small();
  const SimulatedFrame& frame = plainBurst().frames[2];
  for (const double low : {60, 110, 160}) {  // far enough from 0 and 255 not to be clipped
    const NoiseFound noise = noiseOf(frame, again.noise, low, low + 50);
    ASSERT_GT(noise.count, 2000);
    EXPECT_NEAR(noise.ratio, 1, 0.08);
    EXPECT_LT(std::abs(noise.mean), 0.8);
  }
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

TEST(Simulator, LayersHideWhatTheMaskLeavesOut) {
  Simulation s = small();
  s.layers = 3;
  s.parallax = 0.02;
  const SimulatedBurst& plain = plainBurst();
  const SimulatedBurst burst = simulate(s);
  for (size_t b = 0; b < burst.frames.size(); ++b) {
    SCOPED_TRACE(b);
    const SimulatedFrame& base = burst.frames[b];
    const auto isPlane = [&](size_t i, size_t at) {
      return burst.frames[i].clean.y[at] == plain.frames[i].clean.y[at];
    };
    // The plane seen by frame b, and by its mask in all frames, against what they show.
    std::array<double, 2> count{}, wrong{};
    for (size_t at = 0; at < base.clean.y.size(); ++at) {
      if (!isPlane(b, at)) continue;
      bool everywhere = true;
      for (size_t i = 0; i < burst.frames.size(); ++i) {
        const Homography motion = compose(burst.frames[i].motion, inverse(base.motion));
        const Point p = mapPoint(motion, {static_cast<double>(at % kWidth), static_cast<double>(at / kWidth)});
        const auto x = std::lround(p.x), y = std::lround(p.y);
        if (x < 0 || y < 0 || x >= kWidth || y >= kHeight) continue;
        everywhere = everywhere && isPlane(i, static_cast<size_t>(y) * kWidth + static_cast<size_t>(x));
      }
      const bool told = base.seenByAll[at] != 0;
      count[told] += 1;
      wrong[told] += told != everywhere;
    }
    ASSERT_GT(count[0], 300);
    EXPECT_LT(wrong[1], 0.005 * count[1]);
    EXPECT_LT(wrong[0], 0.35 * count[0]);  // hidden layers may have the colour of the plane, soft edges count as hidden
  }
}

TEST(Simulator, ShakeAndRollingShutterAreInTheMotions) {
  const Simulation s = small();
  const Picture& still = plainBurst().frames[0].clean;
  Simulation scattered = s;
  scattered.scatter = 0.06;
  scattered.frames = 6;
  const SimulatedBurst far = simulate(scattered);
  double least = 0, most = 0;
  for (size_t i = 0; i < far.frames.size(); ++i) {
    SCOPED_TRACE(i);
    const Point middle = mapPoint(far.frames[i].motion, {kWidth / 2.0, kHeight / 2.0});
    least = std::min(least, middle.x - kWidth / 2.0);
    most = std::max(most, middle.x - kWidth / 2.0);
    expectBestFit(far.frames[0].clean, far.frames[i], i == 0 ? 1 : 1.1);
  }
  EXPECT_GT(most - least, 0.03 * kWidth);
  EXPECT_LT(most - least, 0.065 * kWidth);

  Simulation rolling = s;
  rolling.rollingShutter = 6;
  const SimulatedBurst bent = simulate(rolling);
  for (size_t i = 0; i < bent.frames.size(); ++i) {
    SCOPED_TRACE(i);
    const SimulatedFrame& plain = plainBurst().frames[i];
    const double told = mismatch(still, bent.frames[i].clean, bent.frames[i].motion);
    EXPECT_LT(told, mismatch(still, bent.frames[i].clean, plain.motion));
    EXPECT_GT(told, 1.1 * mismatch(still, plain.clean, plain.motion));  // no homography unbends it
  }
}

TEST(Simulator, GrainDriftAndTheBlurOfTheSharpest) {
  Simulation s = small();
  s.noise = {0, 6, 0.8};
  s.drift = 10;
  s.blurSharpest = true;
  const SimulatedBurst burst = simulate(s);
  const auto mean = [](const Picture& p) {
    double sum = 0;
    for (const uint8_t y : p.y) sum += y;
    return sum / static_cast<double>(p.y.size());
  };
  int32_t blurred = 0;
  double widest = 0;
  for (size_t i = 0; i < burst.frames.size(); ++i) {
    SCOPED_TRACE(i);
    const SimulatedFrame& frame = burst.frames[i];
    blurred += !frame.sharp.y.empty();
    const double gain = mean(frame.clean) / mean(plainBurst().frames[i].clean);
    widest = std::max(widest, std::abs(gain - 1));
    const NoiseFound noise = noiseOf(frame, s.noise, 38, 219);
    EXPECT_NEAR(noise.ratio, 1, 0.055);
    EXPECT_NEAR(noise.correlation, std::exp(-1 / (4 * 0.8 * 0.8)), 0.04);
  }
  EXPECT_EQ(blurred, 1);
  EXPECT_GT(widest, 0.02);
  EXPECT_LT(widest, 0.101);
}

}  // namespace
}  // namespace tool
