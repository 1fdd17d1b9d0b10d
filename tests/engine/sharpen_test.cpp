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
  const auto g = [&](int32_t i) { return RawDouble_exp(-(i * i) / (2 * sigma * sigma)); };
  double sum = 0.0;
  for (int32_t i = -radius; i <= radius; ++i) sum += g(i);
  std::vector<int64_t> taps;
  int64_t rest = 32768;
  for (int32_t i = -radius; i <= radius; ++i)
    rest -= taps.emplace_back(static_cast<int64_t>(g(i) * 32768.0 / sum + 0.5));
  taps[static_cast<size_t>(radius)] += rest;
  return taps;
}

int64_t wrapped(int64_t v) {
  return static_cast<int32_t>(static_cast<uint32_t>(v));
}

// Pixel by pixel, each filtered row value anew.
void reference(const TestImage& dst, const TestImage& src, const TestImage* map, int32_t radius, const Setting& set) {
  const auto filtered = [&](const std::vector<int64_t>& k, int32_t x, int32_t y) {
    int64_t sum = 16384;
    for (int32_t j = -radius; j <= radius; ++j) {
      const uint8_t* row = src.row(0, std::clamp(y + j, 0, src.height - 1));
      int64_t across = 512;
      for (int32_t i = 0; i <= 2 * radius; ++i) across += k[i] * row[std::clamp(x + i - radius, 0, src.width - 1)];
      sum += k[radius + j] * (across >> 10);
    }
    return sum >> 15;
  };
  const std::vector<int64_t> tapsA = tapsOf(radius, set.sigmaA), tapsB = tapsOf(radius, set.sigmaB);
  const auto g = static_cast<int64_t>(set.gain), core = static_cast<int64_t>(set.coring * 32.0);
  for (int32_t y = 0; y < src.height; ++y) {
    for (int32_t x = 0; x < src.width; ++x) {
      const int64_t d = filtered(tapsB, x, y) - filtered(tapsA, x, y);
      const int64_t a = map != nullptr ? wrapped(g * map->row(0, y)[x]) >> 7 : g;
      const int64_t e = wrapped(wrapped(a * d) + 128) >> 8;
      const int64_t out = ((src.row(0, y)[x] * 32 | 16) + e - std::clamp(e, -core, core)) >> 5;
      dst.row(0, y)[x] = static_cast<uint8_t>(std::clamp<int64_t>(out, 0, 255));
    }
  }
}

struct Form {
  int32_t radius;
  decltype(&Tessal4ImageFunc_adaSharp5x5_uint8_withmap) withMap;
  decltype(&Tessal4ImageFunc_adaSharp5x5_uint8) withoutMap;
  Status run(ParallelExecutor* executor, Env* env, Image* dst, const Image* src, const Image* map,
             const Setting& s) const {
    return withMap != nullptr ? withMap(executor, env, dst, src, map, s.sigmaA, s.sigmaB, s.gain, s.coring)
                              : withoutMap(executor, env, dst, src, s.sigmaA, s.sigmaB, s.gain, s.coring);
  }
};
const Form kForms[] = {{2, Tessal4ImageFunc_adaSharp5x5_uint8_withmap, nullptr},
                       {2, nullptr, Tessal4ImageFunc_adaSharp5x5_uint8},
                       {3, Tessal4ImageFunc_adaSharp7x7_uint8_withmap, nullptr},
                       {3, nullptr, Tessal4ImageFunc_adaSharp7x7_uint8}};

TEST(Sharpen, EqualsTheLiteralFormForAnySplitAndInPlace) {
  const Setting settings[] = {{0.8, 0.2, 900.9, 0.0, 128},
                              {0.2, 0.8, 400, 0.6, 128},
                              {1.4, 0.6, -700, 0.25, 255},
                              {9.0, 0.3, 2500, 3.0, 200},
                              {0.5, 0.05, 8e6, 0.1, 255}};
  TestArena arena;
  std::unique_ptr<TestExecutor> pools[std::size(kFinishWorkers)];
  for (size_t i = 1; i < std::size(pools); ++i) pools[i] = std::make_unique<TestExecutor>(kFinishWorkers[i]);
  for (const Form& form : kForms) {
    for (const auto& [w, h] : {std::array{7, 1}, {8, 40}, {33, 21}, {1061, 5}, {320, 96}}) {
      for (const Setting& set : settings) {
        TestImage src(w, h, IMAGE_UINT8, 7), map(w, h, IMAGE_UINT8, 8), expected(w, h, IMAGE_UINT8, 7);
        if (set.gain < 1000) fillScene(src, 3, 20);
        fillMap(map, 5, set.mapMost);
        reference(expected, src, form.withMap != nullptr ? &map : nullptr, form.radius, set);
        for (const auto& executor : pools) {
          SCOPED_TRACE(testing::Message() << form.radius << ' ' << w << 'x' << h << " gain " << set.gain << ", pool "
                                          << &executor - pools);
          ParallelExecutor* pool = executor != nullptr ? executor->get() : nullptr;
          TestImage dst(w, h, IMAGE_UINT8, 7);
          ASSERT_EQ(form.run(pool, arena.env(), &dst, &src, &map, set), ZELVAN_OK);
          ASSERT_TRUE(dst.sameBytes(expected));
          for (int32_t y = 0; y < h; ++y) std::copy_n(src.row(0, y), w, dst.row(0, y));
          ASSERT_EQ(form.run(pool, arena.env(), &dst, &dst, &map, set), ZELVAN_OK);
          ASSERT_TRUE(dst.sameBytes(expected)) << "in place";
        }
      }
    }
  }
}

TEST(Sharpen, NoSignalLeavesThePictureAndRefusalsTheDestination) {
  const Setting silent[] = {
      {0.8, 0.2, 0.9, 0, 128}, {0.6, 0.6, 900, 0, 128}, {0.8, 0.2, 900, 2000, 128}, {0.8, 0.2, 900, 0, 0}};
  const TestImage src(500, 20, IMAGE_UINT8, 4), narrow(6, 9, IMAGE_UINT8);
  for (const Form& form : kForms) {
    TestArena arena;
    TestImage map(500, 20, IMAGE_UINT8);
    TestImage dst(500, 20, IMAGE_UINT8, 4);
    for (const Setting& set : silent) {
      if (set.mapMost == 0 && form.withMap == nullptr) continue;
      fillMap(map, 1, set.mapMost);
      for (int32_t y = 0; y < 20; ++y) std::fill_n(dst.row(0, y), 500, uint8_t{77});
      ASSERT_EQ(form.run(nullptr, arena.env(), &dst, &src, &map, set), ZELVAN_OK);
      EXPECT_TRUE(dst.sameBytes(src)) << "gain " << set.gain << " coring " << set.coring << " map " << set.mapMost;
    }
    TestImage untouched(500, 20, IMAGE_UINT8, 2);
    EXPECT_EQ(form.run(nullptr, arena.env(), &untouched, &narrow, &map, silent[0]), ZELVAN_ERROR_PARAM);
    // The scratch is two blocks: neither fits, then the first alone.
    for (const uint32_t size : {2048u, 500u * 4 * (2 * static_cast<uint32_t>(form.radius) + 1) + 1600}) {
      TestArena small(size);
      EXPECT_EQ(form.run(nullptr, small.env(), &untouched, &src, &map, silent[0]), ZELVAN_ERROR_NOMEM) << size;
    }
    EXPECT_TRUE(untouched.unchanged());
  }
}

}  // namespace
