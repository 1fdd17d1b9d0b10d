#include "engine/sharpen.h"

#include <array>
#include <memory>

#include "base/raw_double.h"
#include "engine/finish_scene.h"
#include "support/test_executor.h"

namespace {

struct Setting {
  double sigmaA, sigmaB, gain, coring;
  uint32_t mapMost;
};

std::vector<int64_t> tapsOf(int32_t radius, double sigma) {
  std::vector<double> g;
  double sum = 0.0;
  for (int32_t i = -radius; i <= radius; ++i) {
    g.push_back(RawDouble_exp(-(i * i) / (2 * sigma * sigma)));
    sum += g.back();
  }
  std::vector<int64_t> taps;
  int64_t total = 0;
  for (const double v : g) {
    taps.push_back(static_cast<int64_t>(v * 32768.0 / sum + 0.5));
    total += taps.back();
  }
  taps[static_cast<size_t>(radius)] += 32768 - total;
  return taps;
}

int32_t wrapped(int64_t v) {
  return static_cast<int32_t>(static_cast<uint32_t>(v));
}

// Pixel by pixel, each filtered row value anew.
void reference(const TestImage& dst, const TestImage& src, const TestImage* map, int32_t radius, const Setting& set) {
  const std::array<std::vector<int64_t>, 2> taps = {tapsOf(radius, set.sigmaA), tapsOf(radius, set.sigmaB)};
  const auto pixel = [&](int32_t x, int32_t y) {
    return int64_t{src.row(0, std::clamp(y, 0, src.height - 1))[std::clamp(x, 0, src.width - 1)]};
  };
  const auto filtered = [&](const std::vector<int64_t>& k, int32_t x, int32_t y) {
    int64_t sum = 16384;
    for (int32_t j = -radius; j <= radius; ++j) {
      int64_t across = 512;
      for (int32_t i = -radius; i <= radius; ++i) across += k[static_cast<size_t>(radius + i)] * pixel(x + i, y + j);
      sum += k[static_cast<size_t>(radius + j)] * (across >> 10);
    }
    return sum >> 15;
  };
  const int64_t g = static_cast<int64_t>(set.gain);
  const int64_t core = static_cast<int64_t>(set.coring * 32.0);
  for (int32_t y = 0; y < src.height; ++y) {
    for (int32_t x = 0; x < src.width; ++x) {
      const int64_t d = filtered(taps[1], x, y) - filtered(taps[0], x, y);
      const int64_t a = map != nullptr ? wrapped(g * map->row(0, y)[x]) >> 7 : g;
      const int64_t e = wrapped(wrapped(a * d) + int64_t{128}) >> 8;
      const int64_t cored = e - std::clamp(e, -core, core);
      dst.row(0, y)[x] = static_cast<uint8_t>(std::clamp<int64_t>(((pixel(x, y) * 32 | 16) + cored) >> 5, 0, 255));
    }
  }
}

struct Form {
  const char* name;
  int32_t radius;
  bool withMap;
  Status (*run)(ParallelExecutor*, Env*, Image*, const Image*, const Image*, const Setting&);
};
#define WITH_MAP(name)                                                                                         \
  [](ParallelExecutor* executor, Env* env, Image* dst, const Image* src, const Image* map, const Setting& s) { \
    return name(executor, env, dst, src, map, s.sigmaA, s.sigmaB, s.gain, s.coring);                           \
  }
#define WITHOUT_MAP(name)                                                                                  \
  [](ParallelExecutor* executor, Env* env, Image* dst, const Image* src, const Image*, const Setting& s) { \
    return name(executor, env, dst, src, s.sigmaA, s.sigmaB, s.gain, s.coring);                            \
  }
const Form kForms[] = {{"5x5 with map", 2, true, WITH_MAP(Tessal4ImageFunc_adaSharp5x5_uint8_withmap)},
                       {"5x5", 2, false, WITHOUT_MAP(Tessal4ImageFunc_adaSharp5x5_uint8)},
                       {"7x7 with map", 3, true, WITH_MAP(Tessal4ImageFunc_adaSharp7x7_uint8_withmap)},
                       {"7x7", 3, false, WITHOUT_MAP(Tessal4ImageFunc_adaSharp7x7_uint8)}};

TEST(Sharpen, EqualsTheLiteralFormForAnySplitAndInPlace) {
  const std::array<int32_t, 2> sizes[] = {{7, 1}, {8, 40}, {33, 21}, {1061, 5}, {320, 96}};
  const Setting settings[] = {{0.8, 0.2, 900.9, 0.0, 128},
                              {0.2, 0.8, 400, 0.6, 128},
                              {1.4, 0.6, -700, 0.25, 255},
                              {9.0, 0.3, 2500, 3.0, 200},
                              {0.5, 0.05, 8.0e6, 0.1, 255}};
  TestArena arena;
  std::unique_ptr<TestExecutor> pools[std::size(kFinishWorkers)];
  for (size_t i = 0; i < std::size(pools); ++i) {
    if (kFinishWorkers[i] > 0) pools[i] = std::make_unique<TestExecutor>(kFinishWorkers[i]);
  }
  for (const Form& form : kForms) {
    for (const auto& [w, h] : sizes) {
      for (const Setting& set : settings) {
        SCOPED_TRACE(testing::Message() << form.name << ' ' << w << 'x' << h << " gain " << set.gain);
        TestImage src(w, h, IMAGE_UINT8, 7);
        TestImage map(w, h, IMAGE_UINT8, 8);
        if (set.gain < 1000) fillScene(src, 3, 20);
        fillMap(map, 5, set.mapMost);
        TestImage expected(w, h, IMAGE_UINT8, 9);
        reference(expected, src, form.withMap ? &map : nullptr, form.radius, set);
        for (size_t i = 0; i < std::size(pools); ++i) {
          const int32_t workers = kFinishWorkers[i];
          ParallelExecutor* pool = pools[i] != nullptr ? pools[i]->get() : nullptr;
          TestImage dst(w, h, IMAGE_UINT8, 9);
          ASSERT_EQ(form.run(pool, arena.env(), &dst, &src, &map, set), ZELVAN_OK);
          ASSERT_TRUE(dst.sameBytes(expected)) << workers << " workers";
          TestImage own(w, h, IMAGE_UINT8, 9);
          for (int32_t y = 0; y < h; ++y) std::copy_n(src.row(0, y), w, own.row(0, y));
          ASSERT_EQ(form.run(pool, arena.env(), &own, &own, &map, set), ZELVAN_OK);
          ASSERT_TRUE(own.sameBytes(expected)) << workers << " workers in place";
        }
      }
    }
  }
}

TEST(Sharpen, NoSignalLeavesThePictureAsItIs) {
  const Setting settings[] = {
      {0.8, 0.2, 0.9, 0.0, 128}, {0.6, 0.6, 900, 0.0, 128}, {0.8, 0.2, 900, 2000.0, 128}, {0.8, 0.2, 900, 0.0, 0}};
  TestImage src(90, 50, IMAGE_UINT8, 4);
  TestArena arena;
  for (const Form& form : kForms) {
    for (const Setting& set : settings) {
      if (set.mapMost == 0 && !form.withMap) continue;
      TestImage map(90, 50, IMAGE_UINT8, 2);
      fillMap(map, 1, set.mapMost);
      TestImage dst(90, 50, IMAGE_UINT8, 4);
      for (int32_t y = 0; y < 50; ++y) std::fill_n(dst.row(0, y), 90, uint8_t{77});
      ASSERT_EQ(form.run(nullptr, arena.env(), &dst, &src, &map, set), ZELVAN_OK);
      EXPECT_TRUE(dst.sameBytes(src)) << form.name << " gain " << set.gain << " coring " << set.coring;
    }
  }
}

TEST(Sharpen, RefusalsLeaveTheDestination) {
  const Setting set = {0.8, 0.2, 900, 0.0, 128};
  for (const Form& form : kForms) {
    TestArena arena;
    TestImage narrow(6, 9, IMAGE_UINT8);
    TestImage dst(6, 9, IMAGE_UINT8, 2);
    EXPECT_EQ(form.run(nullptr, arena.env(), &dst, &narrow, &narrow, set), ZELVAN_ERROR_PARAM);
    EXPECT_TRUE(dst.unchanged());
    // The scratch is two blocks: neither, then the first alone fits.
    const TestImage wide(500, 20, IMAGE_UINT8, 3);
    for (const uint32_t size : {2048u, 500u * 4 * (2 * static_cast<uint32_t>(form.radius) + 1) + 1600}) {
      TestArena small(size);
      TestImage target(500, 20, IMAGE_UINT8, 2);
      EXPECT_EQ(form.run(nullptr, small.env(), &target, &wide, &wide, set), ZELVAN_ERROR_NOMEM) << size;
      EXPECT_TRUE(target.unchanged());
    }
  }
}

}  // namespace
