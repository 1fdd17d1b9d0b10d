// Simulated bursts with limits on noise, motion, ghosts and refusals.

#include <algorithm>
#include <cmath>

#include "burst.h"
#include "quality.h"
#include "support/sanitized.h"
#include "tool_run.h"

namespace tool {
namespace {

constexpr int32_t kWidth = kSanitized ? 640 : 1280, kHeight = kSanitized ? 480 : 960;

const RgbPicture& scene() {
  static const RgbPicture picture = builtInScene(kWidth, kHeight, 3);
  return picture;
}

Simulation medium(uint32_t seed) {
  return simulationOf(kWidth, kHeight, kSanitized ? 4 : 8, seed);
}

// The library's defaults without sharpening.
BurstResult mergePlain(const SimulatedBurst& burst) {
  std::vector<Picture> frames;
  for (const SimulatedFrame& frame : burst.frames) frames.push_back(frame.noisy);
  Settings settings;
  settings.sharpness = 0;
  const auto hand = [&](FrameTaker* taker) {
    taker->begin(kWidth, kHeight, frames.size());
    for (size_t i = 0; i < frames.size(); ++i) {
      copyPlanes(frames[i].planes(), taker->room(i));
      taker->take(i, {});
    }
  };
  return runBurst("simulated", hand, settings);
}

double cornerError(const SimulatedBurst& burst, const BurstResult& result, size_t i) {
  const Homography truth = compose(burst.frames[i].motion, inverse(burst.frames[result.base].motion));
  double worst = 0;
  for (const Point corner :
       {Point{0, 0}, Point{kWidth - 1, 0}, Point{0, kHeight - 1}, Point{kWidth - 1, kHeight - 1}}) {
    const Point a = mapPoint(result.frames[i].motion, corner), b = mapPoint(truth, corner);
    worst = std::max(worst, std::hypot(a.x - b.x, a.y - b.y));
  }
  return worst;
}

TEST(BurstQuality, NoiseFallsAndMotionsAreFound) {
  std::vector<double> errors;
  for (const uint32_t seed : {4u, 5u}) {
    const SimulatedBurst burst = simulateBurst(scene(), {}, medium(seed));
    const BurstResult result = mergePlain(burst);
    const Picture& truth = burst.frames[result.base].clean;
    const Quality before = compareWithTruth(burst.frames[result.base].noisy, truth);
    const Quality after = compareWithTruth(result.picture.copy(), truth);
    EXPECT_GE(after.lumaPsnr - before.lumaPsnr, kSanitized ? 3.0 : 6.0);
    EXPECT_GE(after.chromaPsnr - before.chromaPsnr, kSanitized ? 5.0 : 8.0);
    EXPECT_GT(after.lumaSsim, before.lumaSsim);
    for (size_t i = 0; i < result.frames.size(); ++i) {
      if (i != result.base && result.frames[i].status == ZELVAN_TESSALINE4_MERGED) {
        errors.push_back(cornerError(burst, result, i));
      }
    }
    if (kSanitized) break;
  }
  ASSERT_GE(errors.size(), kSanitized ? 2u : 10u) << "too few frames were accepted";
  std::sort(errors.begin(), errors.end());
  EXPECT_LT(errors.back(), 2.5);
  EXPECT_LT(errors[errors.size() / 2], 1.5);
}

// How much of frame i's moving object shines through in a picture merged on base: the factor by which the object's
// difference from what is behind it, seen from the base, explains the picture's error. 0 is none, 1 a whole object.
// still: the same burst without the object. Noise averages out.
double ghostOpacity(const SimulatedBurst& burst, const SimulatedBurst& still, size_t base, size_t i,
                    const Picture& picture) {
  const Homography motion = compose(burst.frames[i].motion, inverse(burst.frames[base].motion));
  const Picture& truth = burst.frames[base].clean;
  double product = 0, square = 0;
  for (size_t at = 0; at < truth.y.size(); ++at) {
    if (truth.y[at] != still.frames[base].clean.y[at]) continue;  // the base's own object
    const Point p = mapPoint(motion, {static_cast<double>(at % kWidth), static_cast<double>(at / kWidth)});
    const auto x = static_cast<int32_t>(std::lround(p.x));
    const auto y = static_cast<int32_t>(std::lround(p.y));
    if (x < 0 || y < 0 || x >= kWidth || y >= kHeight) continue;
    const size_t there = static_cast<size_t>(y) * kWidth + static_cast<size_t>(x);
    const double object = static_cast<double>(burst.frames[i].clean.y[there]) - still.frames[i].clean.y[there];
    product += object * (static_cast<double>(picture.y[at]) - truth.y[at]);
    square += object * object;
  }
  return square > 0 ? product / square : 0;
}

TEST(BurstQuality, WhatMovedOrDoesNotFitStaysOut) {
  Simulation s = medium(6);
  s.movingObject = true;
  s.blurredFrame = 1;
  s.foreignFrame = 3;
  const SimulatedBurst burst = simulateBurst(scene(), builtInScene(kWidth, kHeight, 99), s);
  const BurstResult result = mergePlain(burst);
  EXPECT_EQ(result.frames[1].status, ZELVAN_TESSALINE4_BLURRED);
  EXPECT_TRUE(result.frames[3].status == ZELVAN_TESSALINE4_BAD_MOTION ||
              result.frames[3].status == ZELVAN_TESSALINE4_GHOST)
      << result.frames[3].status;
  const auto merged = std::count_if(result.frames.begin(), result.frames.end(),
                                    [](const FrameReport& f) { return f.status == ZELVAN_TESSALINE4_MERGED; });
  EXPECT_GE(merged, kSanitized ? 2 : 4);
  s.movingObject = false;
  s.blurredFrame.reset();
  s.foreignFrame.reset();
  const SimulatedBurst still = simulateBurst(scene(), {}, s);
  for (size_t i = 0; i < result.frames.size(); ++i) {
    if (i == result.base || result.frames[i].status != ZELVAN_TESSALINE4_MERGED) continue;
    // A plain mean of the merged frames would leave one part in their number.
    EXPECT_LT(std::abs(ghostOpacity(burst, still, result.base, i, result.picture.copy())), 0.04) << "frame " << i;
  }
}

}  // namespace
}  // namespace tool
