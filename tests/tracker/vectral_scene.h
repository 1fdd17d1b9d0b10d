// Pictures that are known between the pixels, and a tracker over an arena of its own.
#ifndef ZVT4_TESTS_TRACKER_VECTRAL_SCENE_H_
#define ZVT4_TESTS_TRACKER_VECTRAL_SCENE_H_

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <vector>

#include "support/burst.h"
#include "support/test_arena.h"
#include "support/test_executor.h"
#include "support/test_image.h"
#include "tracker/vectral.h"

template <typename Want>
void expectPixels(const Image& image, const Want& want) {
  for (int32_t y = 0; y < image.height; ++y) {
    for (int32_t x = 0; x < image.width; ++x) ASSERT_EQ(imageRow(&image, y)[x], want(x, y)) << x << ' ' << y;
  }
}

// Waves without edges, for tracking by parts of a pixel: what is at p without a shift is at p + shift.
inline void drawTexture(Image* image, double shiftX, double shiftY, double offset = 0.0) {
  drawPixels(image, [&](double x, double y) {
    x -= shiftX, y -= shiftY;
    const double waves = 40 * std::sin(0.61 * x + 0.23 * y) + 35 * std::sin(0.17 * x - 0.52 * y + 1.0);
    return std::lround(128 + offset + waves + 25 * std::sin(0.09 * x * std::cos(0.031 * y) + 0.45 * y));
  });
}

// Value noise of a few sizes, sharpened to blobs with soft edges: strong corners everywhere, and it never repeats.
inline double sceneAt(double x, double y) {
  double value = 0;
  for (const double size : {9.0, 17.0, 37.0}) {
    value += test::valueNoise(x / size, y / size, static_cast<uint32_t>(size)) - 0.5;
  }
  return 128 + 120 * std::tanh(4 * value);
}

inline Mvec8Real sceneMotion(double dx, double dy, double degrees = 0, double zoom = 1) {
  const double c = zoom * std::cos(degrees * M_PI / 180), s = zoom * std::sin(degrees * M_PI / 180);
  return {{c, -s, dx, s, c, dy, 0, 0, 1}, {}};
}
inline const Mvec8Real kIdentity = sceneMotion(0, 0);

inline std::array<double, 2> movedPoint(const Mvec8Real& motion, double x, double y) {
  double u, v;
  Mvec8Real_trans2DReal(&motion, &u, &v, x, y);
  return {u, v};
}

// What the camera sees after the motion, which maps base to frame; step: scene units per pixel.
class SceneImage : public TestImage {
 public:
  SceneImage(int32_t w, int32_t h, const Mvec8Real& motion, double step = 1) : TestImage(w, h, IMAGE_UINT8, 1, 3) {
    Mvec8Real back;
    Mvec8Real_inv(&back, &motion);
    drawPixels(this, [&](double x, double y) {
      const auto [u, v] = movedPoint(back, x * step, y * step);
      return sceneAt(u, v);
    });
  }
};

// Largest distance between two motions over a frame, in pixels.
inline double motionError(const Mvec8Real& a, const Mvec8Real& b, int32_t w = 640, int32_t h = 480) {
  double worst = 0;
  for (int32_t i = 0; i < 25; ++i) {
    const auto p = movedPoint(a, w / 4 * (i % 5), h / 4 * (i / 5)), q = movedPoint(b, w / 4 * (i % 5), h / 4 * (i / 5));
    worst = std::max(worst, std::hypot(p[0] - q[0], p[1] - q[1]));
  }
  return worst;
}

// Set up as the engine does, but for what a test changes before init().
class TestTracker : public Vectral {
 public:
  explicit TestTracker(uint32_t arenaSize = 8u << 20) : arena_(arenaSize) {
    EXPECT_EQ(construct_Vectral(this, arena_.env()), ZELVAN_OK);
    solveMode = VECTRAL_SOLVE_TWO_PASS;
    minResoArea = 2000;
    maxFeatPnt = 96;
    lsmType = MILSM_8ST;
    fullResLsmType = MILSM_8ST;
    normalizeBase = 0;
    coarseRange = 0;
  }
  ~TestTracker() { EXPECT_EQ(destruct_Vectral(this), ZELVAN_OK); }

  void start(const Image& base) {
    ASSERT_EQ(Vectral_init(this, base.width, base.height), ZELVAN_OK);
    ASSERT_EQ(Vectral_setBaseImage(this, &base), ZELVAN_OK);
    ASSERT_EQ(failureCode, 0u);
  }
  Mvec8Real output() {
    Mvec8Real out = {};
    EXPECT_EQ(Vectral_outputMvecReal(this, &out), ZELVAN_OK);
    return out;
  }

 private:
  TestArena arena_;
};

#endif  // ZVT4_TESTS_TRACKER_VECTRAL_SCENE_H_
