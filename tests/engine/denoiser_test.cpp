#include "engine/denoiser.h"

#include <array>
#include <cstdlib>
#include <memory>

#include "engine/finish_scene.h"
#include "support/test_pel.h"

namespace {

using Point = std::array<int32_t, 2>;

// A byte plane of an image, read with its coordinates clamped. Chroma is read at luma positions.
struct Reader {
  const TestImage* image;
  int32_t luma(int32_t x, int32_t y) const {
    return image->row(0, std::clamp(y, 0, image->height - 1))[std::clamp(x, 0, image->width - 1)];
  }
  int32_t chroma(int32_t x, int32_t y, int32_t byte) const {
    x = std::clamp(x, 0, image->width - 1);
    y = std::clamp(y, 0, image->height - 1);
    return image->row(1, y >> 1)[(x & ~1) + byte];
  }
};

uint8_t mean(int32_t sum, int32_t n) {
  const int32_t reciprocal = n == 0 ? 0 : 32768 / n;
  return static_cast<uint8_t>(std::min(((sum + (n >> 1)) * reciprocal) >> 15, 255));
}

std::vector<Point> bothSigns(const std::vector<Point>& points) {
  std::vector<Point> all;
  for (const auto& [dx, dy] : points) {
    for (const int32_t sx : {-1, 1}) {
      for (const int32_t sy : {-1, 1}) {
        if ((dx == 0 && sx < 0) || (dy == 0 && sy < 0)) continue;
        all.push_back({sx * dx, sy * dy});
      }
    }
  }
  return all;
}

uint8_t lumaOut(const Reader& in, int32_t x, int32_t y, int32_t m, int32_t strength, int32_t kind, int32_t k) {
  static const std::vector<Point> ring = bothSigns({{1, 0}, {0, 1}, {1, 1}});
  static const std::vector<Point> knights = {{-3, -2}, {2, -3}, {-3, 2}, {2, 3}};
  static const std::vector<Point> four = bothSigns({{4, 0}, {0, 4}});
  static const std::vector<Point> far = bothSigns({{20, 0}, {0, 20}, {14, 14}, {10, 0}, {0, 10}, {6, 6}});
  const int32_t c = in.luma(x, y);
  int32_t smooth = 8;
  for (int32_t dy = -1; dy <= 1; ++dy) {
    for (int32_t dx = -1; dx <= 1; ++dx) smooth += in.luma(x + dx, y + dy) * (2 - std::abs(dx)) * (2 - std::abs(dy));
  }
  smooth >>= 4;
  int32_t a = 0;
  if (kind < 2) a = m < 32 ? 0 : m <= 160 ? m - 32 : 128;
  if (kind == 2) a = std::min(m, 128);
  if (kind == 3) a = std::min(m + 64, 128);
  if (kind >= 4) a = std::min(m + 96, 128);
  const int32_t r = std::clamp(((128 - a) * c + a * smooth + 64) >> 7, 0, 255);
  int32_t sum = k * c, n = k;
  const auto test = [&](int32_t dx, int32_t dy, int32_t w) {
    const int32_t t = in.luma(x + dx, y + dy);
    if (std::abs(r - t) < (strength * m) >> 3) sum += w * t, n += w;
  };
  if (kind < 2) test(0, 0, 4);
  for (const auto& [dx, dy] : ring) test(dx, dy, kind < 2 && (dx == 0 || dy == 0) ? 2 : 1);
  for (const auto& [dx, dy] : knights) {
    if (kind == 2 || kind == 3) test(dx, dy, 1);
  }
  for (const auto& [dx, dy] : four) {
    if (kind == 3) test(dx, dy, 1);
  }
  for (const auto& [dx, dy] : far) {
    if (kind >= 4) test(dx, dy, 1);
  }
  return mean(sum, n);
}

std::array<uint8_t, 2> chromaOut(const Reader& in, int32_t x, int32_t y, int32_t m, int32_t p, int32_t q,
                                 int32_t pass) {
  static const std::vector<Point> sets[] = {bothSigns({{2, 2}, {6, 0}, {0, 6}, {18, 0}, {0, 18}, {14, 14}}),
                                            bothSigns({{2, 2}, {4, 0}, {0, 4}, {16, 0}, {0, 16}, {10, 10}}),
                                            bothSigns({{2, 2}, {10, 0}, {0, 10}, {6, 0}, {0, 6}, {14, 14}})};
  const int32_t set = pass == 1 || pass == 4 ? 1 : pass == 2 || pass == 5 ? 2 : 0;
  const int32_t limit = m + 10;
  int32_t sums[2] = {0, 0}, n = 0;
  const auto add = [&](int32_t tx, int32_t ty) {
    for (int32_t i = 0; i < 2; ++i) sums[i] += in.chroma(tx, ty, i);
    ++n;
  };
  for (const auto& [dx, dy] : {Point{0, 0}, {2, 0}, {-2, 0}, {0, 2}, {0, -2}}) add(x + dx, y + dy);
  for (const auto& [dx, dy] : sets[set]) {
    const int32_t tx = x + dx, ty = y + dy;
    const auto away = [&](int32_t byte) { return std::abs(in.chroma(x, y, byte) - in.chroma(tx, ty, byte)); };
    if (std::abs(in.luma(x, y) - in.luma(tx, ty)) < limit >> 1 && away(0) < (p * limit + 32) >> 6 &&
        away(1) < (q * limit + 32) >> 6) {
      add(tx, ty);
    }
  }
  return {mean(sums[0], n), mean(sums[1], n)};
}

// {least at distance 2, most, least at distance 3, most, sum of the eight neighbours}
std::array<int32_t, 5> rings(const Reader& in, int32_t x, int32_t y) {
  std::array<int32_t, 5> out = {255, 0, 255, 0, 0};
  for (int32_t d = 2; d <= 3; ++d) {
    for (const auto& [dx, dy] : {Point{d, 0}, {-d, 0}, {0, d}, {0, -d}}) {
      int32_t* range = &out[static_cast<size_t>(2 * d - 4)];
      range[0] = std::min(range[0], in.luma(x + dx, y + dy));
      range[1] = std::max(range[1], in.luma(x + dx, y + dy));
    }
  }
  for (const auto& [dx, dy] : bothSigns({{1, 0}, {0, 1}, {1, 1}})) out[4] += in.luma(x + dx, y + dy);
  return out;
}

uint8_t pulled(int32_t c, int32_t sum, int64_t weight) {
  const int32_t w = static_cast<int32_t>(std::min<int64_t>(weight, 128));
  return static_cast<uint8_t>(std::clamp(c + (((((sum + 4) >> 3) - c) * w + 64) >> 7), 0, 255));
}

uint8_t spikeOut(const Reader& in, int32_t x, int32_t y, int64_t m, int64_t strength) {
  const auto [lo2, hi2, lo3, hi3, sum] = rings(in, x, y);
  const int32_t c = in.luma(x, y);
  const int32_t e = (std::min(hi3, hi2) - std::max(lo3, lo2)) >> 2;
  const int32_t b = std::min(std::max(c - hi2 - e, 0), std::max(c - hi3 - e, 0));
  const int32_t d = std::min(std::max(lo2 - c - e, 0), std::max(lo3 - c - e, 0));
  return pulled(c, sum, std::min<int64_t>(strength * m, 255) * std::max(b, d));
}

uint8_t liftOut(const Reader& in, int32_t x, int32_t y, int64_t m, int64_t first) {
  const auto [lo2, hi2, lo3, hi3, sum] = rings(in, x, y);
  const int32_t c = in.luma(x, y);
  const int64_t dark = std::max({lo2 + 1 - c, lo3 + 1 - c, 0});
  return pulled(c, sum, dark * (std::min<int64_t>(first * m, 65535) >> 3));
}

struct Work {
  const char* name;
  int32_t first;
  std::vector<int32_t> kinds;
  int32_t centreWeight;
  int32_t chromaPasses;
  std::array<double, 3> strengths;
};

int32_t boundary(int32_t i, int32_t side) {
  return i == 20 ? side : std::clamp((((i - 1) * (side - 96)) / 18 + 48) & ~15, 0, side);
}

// The tasks one by one.
void reference(const TestImage& image, const TestImage& map, const Work& run) {
  const Reader in = {&image};
  const auto byte = [](double v) { return static_cast<int32_t>(std::clamp(v, 0.0, 255.0)); };
  const auto forTiles = [&](int32_t step, const auto& visit) {
    for (int32_t tile = 0; tile < 400; ++tile) {
      for (int32_t y = boundary(tile / 20, image.height); y < boundary(tile / 20 + 1, image.height); y += step) {
        for (int32_t x = boundary(tile % 20, image.width); x < boundary(tile % 20 + 1, image.width); x += step) {
          visit(x, y, map.row(0, y)[x]);
        }
      }
    }
  };
  if (run.first != 0) {
    forTiles(1, [&](int32_t x, int32_t y, int32_t m) { image.row(0, y)[x] = liftOut(in, x, y, m, run.first); });
  }
  for (const int32_t kind : run.kinds) {
    forTiles(1, [&](int32_t x, int32_t y, int32_t m) {
      image.row(0, y)[x] = lumaOut(in, x, y, m, byte(run.strengths[0]), kind, run.centreWeight);
    });
  }
  for (int32_t pass = 0; pass < run.chromaPasses; ++pass) {
    forTiles(2, [&](int32_t x, int32_t y, int32_t m) {
      const auto out = chromaOut(in, x, y, m, byte(run.strengths[1]), byte(run.strengths[2]), pass);
      std::copy_n(out.data(), 2, image.row(1, y >> 1) + x);
    });
  }
}

Status denoise(Pel* pel, Env* env, Image* image, const Image* map, const Work& run) {
  return Tessal4Denoiser_denoiseInplace(pel, env, image, map, run.first, run.kinds.data(),
                                        static_cast<int32_t>(run.kinds.size()), run.centreWeight, run.chromaPasses,
                                        run.strengths.data());
}

class Denoiser : public testing::Test {
 protected:
  Denoiser() : arena_(4u << 20) {
    for (const int32_t workers : kFinishWorkers) {
      pools_.push_back(workers > 0 ? std::make_unique<TestPel>(workers) : nullptr);
    }
  }
  // run(pel) for all pools.
  template <typename Body>
  void withPools(const Body& body) {
    for (size_t i = 0; i < pools_.size(); ++i) {
      SCOPED_TRACE(testing::Message() << kFinishWorkers[i] << " workers");
      body(pools_[i] != nullptr ? pools_[i]->get() : nullptr);
    }
  }
  TestArena arena_;
  std::vector<std::unique_ptr<TestPel>> pools_;
};

TEST_F(Denoiser, TilesInPlaceEqualTheTasksOneByOne) {
  const Work chroma = {"chroma", 0, {}, 3, 7, {4.0, 4.0, 2.9}};
  const Work few = {"few", 90, {4}, 3, 2, {4.5, 4.0, 3.0}};
  const Work all = {"all", 90, {0, 2, 4, 3, 1}, 3, 2, {4.5, 300.0, 6.0}};
  const Work many = {"many", 0, std::vector<int32_t>(33, 4), 2, 0, {3.0, 5.0, 5.0}};
  struct {
    int32_t w, h;
    const Work* run;
  } const cases[] = {{640, 480, &few},   {480, 640, &few}, {397, 305, &all},  {402, 300, &chroma}, {181, 99, &all},
                     {131, 97, &chroma}, {96, 96, &few},   {61, 45, &chroma}, {30, 200, &few},     {200, 31, &few},
                     {47, 20, &few},     {3, 1, &few},     {120, 90, &many}};
  for (const auto& [w, h, run] : cases) {
    SCOPED_TRACE(testing::Message() << run->name << ' ' << w << 'x' << h);
    TestImage map(w, h, IMAGE_UINT8, 3);
    fillMap(map, 4, w % 2 == 0 ? 40 : 255);
    TestImage expected(w, h, IMAGE_YVU420_SEMIPLANAR, 6);
    fillScene(expected, 5, 12);
    reference(expected, map, *run);
    withPools([&](Pel* pel) {
      if (run == &many && pel != nullptr && Pel_getNumberOfWorkers(pel) != 3) return;
      TestImage image(w, h, IMAGE_YVU420_SEMIPLANAR, 6);
      fillScene(image, 5, 12);
      ASSERT_EQ(denoise(pel, arena_.env(), &image, &map, *run), ZELVAN_OK);
      EXPECT_TRUE(image.sameBytes(expected));
    });
  }
}

TEST_F(Denoiser, RowFormsEqualTheLiteralForms) {
  for (const auto& [w, h] : {Point{64, 40}, {67, 33}, {7, 9}, {6, 5}, {1, 1}}) {
    TestImage src(w, h, IMAGE_YUV420_SEMIPLANAR, 6);
    fillScene(src, 8, 15);
    TestImage map(w, h, IMAGE_UINT8, 3);
    fillMap(map, 4, 255);
    const Reader in = {&src};
    const auto lumaEquals = [&](const auto& pixel, const auto& run) {
      TestImage expected(w, h, IMAGE_UINT8, 2);
      for (int32_t y = 0; y < h; ++y) {
        for (int32_t x = 0; x < w; ++x) expected.row(0, y)[x] = pixel(x, y, map.row(0, y)[x]);
      }
      withPools([&](Pel* pel) {
        TestImage dst(w, h, IMAGE_UINT8, 2);
        ASSERT_EQ(run(pel, &dst), ZELVAN_OK);
        EXPECT_TRUE(dst.sameBytes(expected)) << w << 'x' << h;
      });
    };
    for (const double strength : {0.9, 1.0, 3.7, 300.0}) {
      SCOPED_TRACE(strength);
      lumaEquals([&](int32_t x, int32_t y, int32_t m) { return spikeOut(in, x, y, m, static_cast<int64_t>(strength)); },
                 [&](Pel* pel, Image* dst) { return Tessal4Denoiser_removeSpikePEL(pel, dst, &src, &map, strength); });
      for (const int32_t kind : {0, 1, 2, 3, 4, 9}) {
        lumaEquals(
            [&](int32_t x, int32_t y, int32_t m) {
              return lumaOut(in, x, y, m, static_cast<int32_t>(std::min(strength, 255.0)), kind, 3);
            },
            [&](Pel* pel, Image* dst) { return Tessal4Denoiser_denoiseYPEL(pel, &src, dst, &map, strength, kind, 3); });
      }
      TestImage expected(w, h, IMAGE_YUV420_SEMIPLANAR, 2);
      const auto byte = [](double v) { return static_cast<int32_t>(std::min(v * 8.0, 255.0)); };
      for (int32_t y = 0; y < h; y += 2) {
        for (int32_t x = 0; x < w; x += 2) {
          const auto out = chromaOut(in, x, y, map.row(0, y)[x], byte(strength), byte(0.7), 0);
          std::copy_n(out.data(), 2, expected.row(1, y >> 1) + x);
        }
      }
      withPools([&](Pel* pel) {
        TestImage dst(w, h, IMAGE_YUV420_SEMIPLANAR, 2);
        ASSERT_EQ(Tessal4Denoiser_denoiseUVPEL(pel, &src, &dst, &src, &map, strength, 0.7), ZELVAN_OK);
        EXPECT_TRUE(dst.sameBytes(expected)) << w << 'x' << h;
      });
    }
  }
}

TEST_F(Denoiser, ChromaViewsOfAnOddSizeStayInside) {
  TestImage guide(33, 21, IMAGE_UINT8, 5);
  TestImage src(16, 10, IMAGE_UINT88, 6);
  TestImage dst(16, 10, IMAGE_UINT88, 7);
  TestImage map(33, 21, IMAGE_UINT8, 8);
  for (int32_t y = 0; y < 10; ++y) std::fill_n(src.row(0, y), 32, uint8_t{90});
  ASSERT_EQ(Tessal4Denoiser_denoiseUVPEL(nullptr, &src, &dst, &guide, &map, 200.0, 200.0), ZELVAN_OK);
  EXPECT_TRUE(dst.guardsUnchanged());
  for (int32_t y = 0; y < 10; ++y) {
    for (int32_t x = 0; x < 32; ++x) ASSERT_NEAR(dst.row(0, y)[x], 90, 1) << x << ',' << y;
  }
}

TEST_F(Denoiser, MapExtremes) {
  TestImage image(660, 500, IMAGE_YUV420_SEMIPLANAR, 6);
  TestImage before(660, 500, IMAGE_YUV420_SEMIPLANAR, 6);
  TestImage map(660, 500, IMAGE_UINT8);
  fillMap(map, 1, 0);
  ASSERT_EQ(denoise(nullptr, arena_.env(), &image, &map, {"", 0, {0, 1, 2, 3, 4}, 4, 0, {255.0, 0.0, 0.0}}), ZELVAN_OK);
  EXPECT_TRUE(image.sameBytes(before)) << "no tap passes, and 4 divides 32768";

  // One speck in a flat picture gives way to its ring.
  for (int32_t y = 0; y < 500; ++y) {
    std::fill_n(image.row(0, y), 660, uint8_t{100});
    std::fill_n(map.row(0, y), 660, uint8_t{255});
  }
  for (const int32_t speck : {101, 99, 255, 0}) {
    image.row(0, 40)[50] = static_cast<uint8_t>(speck);
    ASSERT_EQ(Tessal4Denoiser_removeSpikePEL(nullptr, &before, &image, &map, 255.0), ZELVAN_OK);
    EXPECT_EQ(before.row(0, 40)[50], 100) << speck;
  }
}

TEST_F(Denoiser, ArenaThatRefusesLeavesTheImage) {
  const Work run = {"", 1, {1}, 3, 1, {4.0, 4.0, 4.0}};
  TestImage map(200, 150, IMAGE_UINT8);
  for (const uint32_t size : {2048u, 31000u}) {  // neither block fits, then the tasks alone do
    TestArena small(size);
    TestImage image(200, 150, IMAGE_YVU420_SEMIPLANAR);
    EXPECT_EQ(denoise(pools_[2]->get(), small.env(), &image, &map, run), ZELVAN_ERROR_NOMEM);
    EXPECT_TRUE(image.unchanged());
  }
  TestImage image(200, 150, IMAGE_YVU420_SEMIPLANAR);
  EXPECT_EQ(denoise(pools_[2]->get(), arena_.env(), &image, &map, run), ZELVAN_OK);
  EXPECT_FALSE(image.unchanged());
}

}  // namespace
