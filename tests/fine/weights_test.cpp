#include "fine/weights.h"

#include "fine/frame_rig.h"
#include "support/test_pel.h"

namespace {

constexpr int32_t kMapWidth = kWidth >> fine::kMapLevel;
constexpr int32_t kMapHeight = kHeight >> fine::kMapLevel;
constexpr double kVariance = 36.0;

struct Weighed {
  std::vector<uint8_t> map;
  fine::Drift drift;
  float share;
  uint8_t at(int32_t x, int32_t y) const { return map[static_cast<size_t>(y) * kMapWidth + static_cast<size_t>(x)]; }
};

Weighed weigh(const FrameOptions& base, const FrameOptions& other, Pel* pel = nullptr) {
  TestArena arena(16u << 20);
  Env* env = arena.env();
  const TestFrame a(env, base), b(env, other);
  fine::Noise noise = {};
  for (int32_t c = 0; c < 3; ++c) {
    for (float& v : noise.map[c].variance) v = static_cast<float>((base.still + 0.1) / (c == 0 ? 16 : 4));
    noise.coherence[c] = 1.0f;
  }
  std::vector<float> planes(6u * kMapWidth * kMapHeight);
  fine::WeightBase prepared;
  EXPECT_EQ(
      fine::prepareWeights(&prepared, planes.data(), pel, a.pyramid.level[fine::kMapLevel], a.pyramid.colour, noise),
      ZELVAN_OK);
  const TestMeshes meshes(-other.dx);
  TestImage map(kMapWidth, kMapHeight, IMAGE_UINT8, 1, 0);
  Weighed out;
  EXPECT_EQ(fine::makeWeights(&map, &out.drift, &out.share, env, {&prepared, &b.pyramid, &meshes.map, 1.0}), ZELVAN_OK);
  for (int32_t y = 0; y < kMapHeight; ++y) out.map.insert(out.map.end(), map.row(0, y), map.row(0, y) + kMapWidth);
  return out;
}

FrameOptions noisy(uint32_t seed) {
  return {.still = kVariance, .seed = seed};
}

TEST(Weights, TakeOutDriftThoughColourIsFaintAndNoisy) {
  for (const double gain : {0.93, 1.0, 1.06}) {
    const Weighed w = weigh(noisy(1), {.gain = gain, .offset = 5, .still = kVariance, .seed = 2});
    // Back to the base: y = (s + 128 - offset) / gain - 128.
    for (int32_t c = 0; c < 3; ++c) EXPECT_NEAR(w.drift.gain[c] / 32768.0, 1 / gain - 1, c == 0 ? 0.004 : 0.03) << c;
    EXPECT_NEAR(w.drift.offset[0] / 64.0, (128 - 5) / gain - 128, 0.4);
    for (int32_t c = 1; c < 3; ++c) EXPECT_NEAR(w.drift.offset[c] / 64.0, 0.0, 0.4);
    EXPECT_GT(w.share, 0.97f);
  }
}

// A dark red thing before a bright sky, the only one of its brightness and colour, is elsewhere in each frame.
double loneObject(double left, int32_t c, double x, double y) {
  const bool object = x >= left && x < left + 110 && y >= 160 && y < 270;
  if (!object) return c == 0 ? 170 + 60 * y / kHeight + 3 * std::sin(x / 9) : 128 + 2 * std::sin(y / 90);
  return c == 0 ? 40 + 30 * std::sin(x / 5) * std::sin(y / 7) : 128 + (c == 1 ? 60 : -30);
}

TEST(Weights, ALoneObjectThatMovedDoesNotPassForDrift) {
  FrameOptions base = noisy(1), other = noisy(2);
  base.scene = [](int32_t c, double x, double y) { return loneObject(200, c, x, y); };
  for (const double moved : {30.0, 90.0, 240.0}) {
    other.scene = [=](int32_t c, double x, double y) { return loneObject(200 + moved, c, x, y); };
    const Weighed w = weigh(base, other);
    for (int32_t c = 0; c < 3; ++c) EXPECT_NEAR(w.drift.gain[c] / 32768.0, 0, c == 0 ? 0.005 : 0.08) << moved << c;
    // Twice the object is 8 % of the picture, with borders 12 %.
    EXPECT_GT(w.share, 0.84f) << moved;
  }
}

TEST(Weights, KeepOutWhatMovedHoweverFaint) {
  for (const double contrast : {80.0, -30.0, 4.0}) {
    FrameOptions other = noisy(2);
    other.scene = [=](int32_t c, double x, double y) {
      const bool object = x >= 240 && x < 320 && y >= 160 && y < 240;
      return usualScene(c, x, y) + (c == 0 && object ? contrast : 0.0);
    };
    const Weighed w = weigh(noisy(1), other);
    double within = 0, around = 0;
    int32_t n = 0, m = 0;
    for (int32_t y = 4; y < kMapHeight - 4; ++y) {
      for (int32_t x = 4; x < kMapWidth - 4; ++x) {
        if (x >= 60 && x < 80 && y >= 40 && y < 60) {
          within += w.at(x, y);
          ++n;
          // Away from the edge nothing may be left; of what stands out, up to the edge.
          const bool inner = x >= 62 && x < 78 && y >= 42 && y < 58;
          if (inner || contrast > 20) {
            EXPECT_LE(w.at(x, y), contrast == 4.0 ? 150 : 0) << contrast << ' ' << x << ' ' << y;
          }
        } else if (x < 54 || x >= 86 || y < 34 || y >= 66) {
          around += w.at(x, y);
          ++m;
        }
      }
    }
    EXPECT_LT(within / n, contrast == 4.0 ? 25 : 1) << contrast;
    EXPECT_GT(around / m, 248) << contrast;
  }
}

TEST(Weights, EndWithTheFrame) {
  // Columns of the base left of 41.5 are not in it.
  const Weighed w = weigh(noisy(1), {.dx = 41.5, .still = kVariance, .seed = 2});
  double sum = 0;
  for (int32_t y = 8; y < kMapHeight - 8; ++y) {
    for (int32_t x = 0; x < 11; ++x) ASSERT_EQ(w.at(x, y), 0) << x << ' ' << y;
    for (int32_t x = 14; x < 24; ++x) sum += w.at(x, y) / 255.0;
  }
  EXPECT_GT(sum / (10 * (kMapHeight - 16)), 0.96);
}

TEST(Weights, AreTheSameForAnyWorkers) {
  const Weighed alone = weigh(noisy(1), noisy(2));
  for (const int32_t workers : {1, 2, 3, 8}) {
    const TestPel pel(workers);
    EXPECT_EQ(weigh(noisy(1), noisy(2), pel.get()).map, alone.map) << workers;
  }
}

}  // namespace
