// Pictures for the finishing stages, with flat parts, edges, specks and noise, so that every branch of a threshold is
// taken.
#ifndef ZVT4_TESTS_ENGINE_FINISH_SCENE_H_
#define ZVT4_TESTS_ENGINE_FINISH_SCENE_H_

#include <algorithm>

#include "support/test_image.h"

constexpr int32_t kFinishWorkers[] = {0, 1, 2, 3, 8, 17};  // 0: a null pool

inline void fillScene(const TestImage& image, uint32_t seed, int32_t noise) {
  std::mt19937 random(seed);
  for (int32_t p = 0; p < imagePlaneCount(image.format); ++p) {
    for (int32_t y = 0; y < image.pixelRows(p); ++y) {
      for (int32_t x = 0; x < image.pixelBytes(p); ++x) {
        int32_t v = ((x / 23 + y / 17) % 3) * 60 + (p == 0 ? x / 3 : 40 + (x % 2) * 30);
        v += static_cast<int32_t>(random() % static_cast<uint32_t>(2 * noise + 1)) - noise;
        const uint32_t speck = random() % 97;
        image.row(p, y)[x] = static_cast<uint8_t>(speck == 0 ? 255 : speck == 1 ? 0 : std::clamp(v, 0, 255));
      }
    }
  }
}

// Values of 0 to most.
inline void fillMap(const TestImage& map, uint32_t seed, uint32_t most) {
  std::mt19937 random(seed);
  for (int32_t y = 0; y < map.height; ++y) {
    for (int32_t x = 0; x < map.width; ++x) map.row(0, y)[x] = static_cast<uint8_t>(random() % (most + 1));
  }
}

#endif  // ZVT4_TESTS_ENGINE_FINISH_SCENE_H_
