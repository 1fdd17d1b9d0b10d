// What the tests of the engine's kernels share: pictures that take every branch of a threshold, and the check that a
// result does not depend on the workers.
#ifndef ZVT4_TESTS_SUPPORT_PIXEL_SCENE_H_
#define ZVT4_TESTS_SUPPORT_PIXEL_SCENE_H_

#include <algorithm>
#include <list>
#include <memory>

#include "support/test_executor.h"
#include "support/test_image.h"
#include "support/test_pel.h"

// Flat parts, edges, specks and noise.
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

// Values of 0 to most in plane 0.
inline void fillMap(const TestImage& map, uint32_t seed, uint32_t most) {
  std::mt19937 random(seed);
  drawPixels(&map, [&](int32_t, int32_t) { return random() % (most + 1); });
}

// Pools of several sizes. body(pool, image) must make of what make() gives the same bytes, those around the picture
// included, without a pool and on all of them. Returns that image.
template <typename Pool, typename Make, typename Body>
std::unique_ptr<TestImage> sameOnAll(const std::list<Pool*>& pools, const Make& make, const Body& body) {
  std::unique_ptr<TestImage> first = make();
  body(static_cast<Pool*>(nullptr), first.get());
  for (Pool* pool : pools) {
    const std::unique_ptr<TestImage> image = make();
    body(pool, image.get());
    EXPECT_TRUE(image->sameBytes(*first)) << "a pool changes the result";
  }
  return first;
}

class PelPools {
 public:
  PelPools() {
    for (const int32_t workers : {1, 2, 3, 8, 17}) all.push_back(owned_.emplace_back(workers).get());
  }
  std::list<Pel*> all;

 private:
  std::list<TestPel> owned_;
};

class ExecutorPools {
 public:
  ExecutorPools() {
    for (const auto& [threads, bands] : {std::pair(1, 64), {3, 64}, {17, 64}, {2, 5}}) {
      all.push_back(owned_.emplace_back(threads, bands).get());
    }
  }
  std::list<ParallelExecutor*> all;

 private:
  std::list<TestExecutor> owned_;
};

#endif  // ZVT4_TESTS_SUPPORT_PIXEL_SCENE_H_
