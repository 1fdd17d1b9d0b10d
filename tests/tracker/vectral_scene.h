// A textured scene that can be photographed under any motion, and a tracker over an arena of its own.
#ifndef ZVT4_TESTS_TRACKER_VECTRAL_SCENE_H_
#define ZVT4_TESTS_TRACKER_VECTRAL_SCENE_H_

#include <cmath>
#include <cstring>
#include <vector>

#include "support/test_arena.h"
#include "support/test_image.h"
#include "tracker/vectral.h"

// Value noise of a few sizes, sharpened to blobs with soft edges: strong corners everywhere, and it never repeats.
inline double sceneAt(double x, double y) {
  const auto lattice = [](int64_t i, int64_t j, uint32_t salt) {
    uint32_t h = static_cast<uint32_t>(i) * 0x9E3779B1u ^ static_cast<uint32_t>(j) * 0x85EBCA77u ^ salt;
    h = (h ^ h >> 15) * 0x2C1B3C6Du;
    h = (h ^ h >> 12) * 0x297A2D39u;
    return (h >> 8 & 0xFFFF) / 65536.0 - 0.5;
  };
  double value = 0;
  for (const double size : {9.0, 17.0, 37.0}) {
    const double u = x / size, v = y / size;
    const auto i = static_cast<int64_t>(std::floor(u)), j = static_cast<int64_t>(std::floor(v));
    const double fx = u - static_cast<double>(i), fy = v - static_cast<double>(j);
    const auto salt = static_cast<uint32_t>(size);
    const double top = lattice(i, j, salt) * (1 - fx) + lattice(i + 1, j, salt) * fx;
    const double bottom = lattice(i, j + 1, salt) * (1 - fx) + lattice(i + 1, j + 1, salt) * fx;
    value += top * (1 - fy) + bottom * fy;
  }
  return 128 + 120 * std::tanh(4 * value);
}

inline Mvec8Real sceneMotion(double dx, double dy, double degrees = 0, double zoom = 1) {
  const double c = zoom * std::cos(degrees * M_PI / 180), s = zoom * std::sin(degrees * M_PI / 180);
  return {{c, -s, dx, s, c, dy, 0, 0, 1}, {}};
}

// What the camera sees after the motion, which maps base to frame; step: scene units per pixel.
class SceneImage : public TestImage {
 public:
  SceneImage(int32_t w, int32_t h, const Mvec8Real& motion, double step = 1) : TestImage(w, h, IMAGE_UINT8, 1, 3) {
    Mvec8Real back;
    Mvec8Real_inv(&back, &motion);
    for (int32_t y = 0; y < h; ++y) {
      for (int32_t x = 0; x < w; ++x) {
        double u, v;
        Mvec8Real_trans2DReal(&back, &u, &v, x * step, y * step);
        row(0, y)[x] = static_cast<uint8_t>(sceneAt(u, v));
      }
    }
  }
};

inline void fillFlat(const Image& image, uint8_t value) {
  for (int32_t y = 0; y < image.height; ++y) std::memset(imageRow(&image, y), value, static_cast<size_t>(image.width));
}

// Largest distance between two motions over a frame, in pixels.
inline double motionError(const Mvec8Real& a, const Mvec8Real& b, int32_t w, int32_t h) {
  double worst = 0;
  for (int32_t y = 0; y <= h; y += h / 4) {
    for (int32_t x = 0; x <= w; x += w / 4) {
      double ax, ay, bx, by;
      Mvec8Real_trans2DReal(&a, &ax, &ay, x, y);
      Mvec8Real_trans2DReal(&b, &bx, &by, x, y);
      worst = std::fmax(worst, std::hypot(ax - bx, ay - by));
    }
  }
  return worst;
}

// Set up as the engine does, but for what a test changes before init().
class TestTracker : public Vectral {
 public:
  TestTracker() {
    EXPECT_EQ(construct_Vectral(this, arena_.env()), ZELVAN_OK);
    solveMode = VECTRAL_SOLVE_TWO_PASS;
    minResoArea = 2000;
    maxFeatPnt = 96;
    lsmType = MILSM_8ST;
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
  TestArena arena_{8u << 20};
};

#endif  // ZVT4_TESTS_TRACKER_VECTRAL_SCENE_H_
