// Frames of a drawn scene with noise of a known variance, and their pyramids.
#ifndef ZVT4_TESTS_FINE_FRAME_RIG_H_
#define ZVT4_TESTS_FINE_FRAME_RIG_H_

#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "fine/pyramid.h"
#include "fine/sampler.h"
#include "support/test_arena.h"
#include "support/test_image.h"

inline constexpr int32_t kWidth = 640;
inline constexpr int32_t kHeight = 480;

// Luma, then chroma bytes 0 and 1, at a place of the base.
using Scene = std::function<double(int32_t channel, double x, double y)>;

// Bright to the right, with waves of some pixels; hardly any colour.
inline double usualScene(int32_t channel, double x, double y) {
  if (channel != 0) return 128 + 4 * std::sin(x / 90 + channel) * std::cos(y / 70);
  return 40 + 170 * x / kWidth + 12 * std::sin(x / 9 + y / 14) * std::sin(y / 11);
}

struct FrameOptions {
  Scene scene = usualScene;
  double dx = 0;  // pixel x of the frame shows x + dx of the scene
  double gain = 1;
  double offset = 0;              // of luma
  double still = 0, byLight = 0;  // variance of the noise: still + byLight x luma
  int32_t patch = 1;              // noise is alike over squares of so many pixels
  uint32_t seed = 1;
};

class TestFrame : public TestImage {
 public:
  TestFrame(Env* env, const FrameOptions& o) : TestImage(kWidth, kHeight, IMAGE_YVU420_SEMIPLANAR, 1, 0) {
    std::mt19937 random(o.seed);
    std::normal_distribution<double> normal;
    for (int32_t c = 0; c < 3; ++c) {
      const int32_t by = c == 0 ? 1 : 2;
      const int32_t across = kWidth / by / o.patch + 1;
      std::vector<double> noise(static_cast<size_t>(across) * (kHeight / by / o.patch + 1));
      for (double& v : noise) v = normal(random);
      for (int32_t y = 0; y < kHeight / by; ++y) {
        for (int32_t x = 0; x < kWidth / by; ++x) {
          const double at = by * x + 0.5 * (by - 1) + o.dx;
          const double down = by * y + 0.5 * (by - 1);
          const double grey = c == 0 ? 0 : 128;
          const double clean = grey + o.gain * (o.scene(c, at, down) - grey) + (c == 0 ? o.offset : 0);
          const double sigma = std::sqrt(o.still + o.byLight * (c == 0 ? clean : o.scene(0, at, down)));
          const double v = clean + sigma * noise[y / o.patch * across + x / o.patch];
          row(c == 0 ? 0 : 1, y)[c == 0 ? x : 2 * x + c - 1] =
              static_cast<uint8_t>(std::min(255.0, std::max(0.0, std::floor(v + 0.5))));
        }
      }
    }
    fine::construct(&pyramid, env);
    EXPECT_EQ(fine::build(&pyramid, nullptr, this), ZELVAN_OK);
  }
  ~TestFrame() { fine::release(&pyramid); }

  fine::Pyramid pyramid;
};

// Meshes of a shift at full size and at the level of the maps.
struct TestMeshes {
  explicit TestMeshes(double dx) : nodes(2 * 256) {
    const Mvec8Real motion = {{1, 0, dx, 0, 1, 0, 0, 0, 1}, {}};
    full.nodes = nodes.data();
    map.nodes = nodes.data() + 256;
    fine::fillMesh(&full, motion, nullptr, 0, kWidth, kHeight);
    fine::fillMesh(&map, motion, nullptr, fine::kMapLevel, kWidth >> fine::kMapLevel, kHeight >> fine::kMapLevel);
  }
  std::vector<fine::MeshNode> nodes;
  fine::Mesh full, map;
};

#endif  // ZVT4_TESTS_FINE_FRAME_RIG_H_
