#include "fine/noise.h"

#include "fine/frame_rig.h"
#include "fine/sharpness.h"

namespace {

using fine::Noise;

Noise estimate(Env* env, const FrameOptions& base, FrameOptions other) {
  const TestFrame a(env, base), b(env, other);
  const TestMeshes meshes(-other.dx);
  const fine::NoisePair pair = {&a, &b, &a.pyramid, &b.pyramid, &meshes.full, &meshes.map};
  Noise noise;
  EXPECT_EQ(fine::estimateNoise(&noise, env, nullptr, &pair, 1), ZELVAN_OK);
  return noise;
}

// Standard deviations within 15 %, the noise of rounding included.
void expectCurve(const fine::NoiseCurve& curve, const FrameOptions& o, double share, const char* what) {
  for (int32_t luma = 56; luma <= 200; luma += 16) {
    const double truth = std::sqrt((o.still + o.byLight * luma) * share + 1.0 / 12);
    EXPECT_NEAR(std::sqrt(curve.at(luma)) / truth, 1.0, 0.15) << what << " at " << luma;
  }
}

TEST(Noise, FollowsBrightnessWhateverTheDriftAndTheMotion) {
  TestArena arena(16u << 20);
  for (const double byLight : {0.03, 0.3, 1.2}) {
    const FrameOptions base = {.still = 1, .byLight = byLight};
    const FrameOptions other = {.dx = 5.3, .gain = 1.04, .offset = -3, .still = 1, .byLight = byLight, .seed = 2};
    const Noise noise = estimate(arena.env(), base, other);
    for (int32_t c = 0; c < 3; ++c) {
      expectCurve(noise.full[c], base, 1.0, "full size");
      expectCurve(noise.map[c], base, c == 0 ? 1.0 / 16 : 1.0 / 4, "level of the maps");
      EXPECT_LT(noise.coherence[c], 2.0f);
    }
    const TestFrame frame(arena.env(), base);
    Noise alone;
    ASSERT_EQ(fine::estimateAlone(&alone, arena.env(), frame, frame.pyramid), ZELVAN_OK);
    for (int32_t c = 0; c < 3; ++c) expectCurve(alone.full[c], base, 1.0, "alone");
  }
}

TEST(Noise, FindsPatches) {
  TestArena arena(16u << 20);
  const Noise noise = estimate(arena.env(), {.still = 16, .patch = 12}, {.still = 16, .patch = 12, .seed = 2});
  EXPECT_GT(noise.coherence[0], 4.0f);
}

// All that is dark moved: nothing is known of the noise there but that it is like the rest's.
TEST(Noise, DoesNotTakeTheOnlyDarkThingForNoise) {
  TestArena arena(16u << 20);
  const auto scene = [](double left, int32_t c, double x, double y) {
    const bool object = x >= left && x < left + 240 && y >= 120 && y < 360;
    const double dark = c == 0 ? 40 + 30 * std::sin(x / 9) * std::sin(y / 11) : 170;
    return object ? dark : c == 0 ? 170 + 60 * y / kHeight + 3 * std::sin(x / 9) : 128;
  };
  FrameOptions base = {.still = 16}, other = {.still = 16, .seed = 2};
  base.scene = [&](int32_t c, double x, double y) { return scene(200, c, x, y); };
  other.scene = [&](int32_t c, double x, double y) { return scene(230, c, x, y); };
  const Noise noise = estimate(arena.env(), base, other);
  for (int32_t c = 0; c < 3; ++c) {
    for (const int32_t luma : {16, 48, 80, 208}) EXPECT_LT(noise.map[c].at(luma), c == 0 ? 6.0f : 24.0f) << c << luma;
  }
}

// A wave of lines; blurred to what a box of 10 pixels leaves of it.
double lines(double contrast, double x) {
  return 120 + 40 * contrast * std::sin(x * 0.4);
}

TEST(Sharpness, SeesBlurAndNotNoise) {
  TestArena arena(16u << 20);
  const auto of = [&](double contrast, double variance) {
    FrameOptions o = {.still = variance};
    o.scene = [=](int32_t c, double x, double) { return c == 0 ? (x < 480 ? 120 : lines(contrast, x)) : 128; };
    const TestFrame frame(arena.env(), o);
    fine::Sharpness sharpness;
    EXPECT_EQ(fine::measureSharpness(&sharpness, arena.env(), frame.pyramid, {0, 0, kWidth, kHeight}), ZELVAN_OK);
    return sharpness;
  };
  const fine::Sharpness clean = of(1, 0), noisy = of(1, 200), blurred = of(0.4, 200);
  EXPECT_NEAR(static_cast<double>(noisy.score) / clean.score, 1.0, 0.1);
  EXPECT_LT(fine::sharpnessRatio(blurred, clean), 0.35);
  EXPECT_GT(fine::sharpnessRatio(noisy, clean), 0.9);
  // Where there is nothing to see, nothing is blurred.
  EXPECT_NEAR(fine::sharpnessRatio(of(0, 200), of(0.05, 200)), 1.0, 0.15);
  fine::Sharpness narrow = {1, 1};
  fine::measureSharpness(&narrow, arena.env(), TestFrame(arena.env(), {}).pyramid, {300, 300, 310, 460});
  EXPECT_EQ(narrow.score, 0);
}

}  // namespace
