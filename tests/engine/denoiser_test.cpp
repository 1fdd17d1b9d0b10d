#include "engine/denoiser.h"

#include <array>
#include <cstdlib>
#include <memory>

#include "engine/finish_scene.h"
#include "support/test_pel.h"

namespace {

using Point = std::array<int32_t, 2>;

// Coordinates clamped to the image. Chroma is read at luma positions.
int32_t luma(const TestImage& image, int32_t x, int32_t y) {
  return image.row(0, std::clamp(y, 0, image.height - 1))[std::clamp(x, 0, image.width - 1)];
}
int32_t chroma(const TestImage& image, int32_t x, int32_t y, int32_t byte) {
  return image.row(1, std::clamp(y, 0, image.height - 1) >> 1)[(std::clamp(x, 0, image.width - 1) & ~1) + byte];
}

uint8_t mean(int32_t sum, int32_t n) {
  return static_cast<uint8_t>(std::min(((sum + (n >> 1)) * (n == 0 ? 0 : 32768 / n)) >> 15, 255));
}

std::vector<Point> bothSigns(const std::vector<Point>& points) {
  std::vector<Point> all;
  for (const auto& [dx, dy] : points) {
    for (const auto& [sx, sy] : {Point{1, 1}, {1, -1}, {-1, 1}, {-1, -1}}) {
      if ((dx != 0 || sx > 0) && (dy != 0 || sy > 0)) all.push_back({sx * dx, sy * dy});
    }
  }
  return all;
}
const std::vector<Point> kRing = bothSigns({{1, 0}, {0, 1}, {1, 1}});

uint8_t lumaOut(const TestImage& in, int32_t x, int32_t y, int32_t m, int32_t strength, int32_t kind, int32_t k) {
  static const std::vector<Point> knights = {{-3, -2}, {2, -3}, {-3, 2}, {2, 3}};
  static const std::vector<Point> four = bothSigns({{4, 0}, {0, 4}});
  static const std::vector<Point> far = bothSigns({{20, 0}, {0, 20}, {14, 14}, {10, 0}, {0, 10}, {6, 6}});
  const int32_t c = luma(in, x, y);
  const auto binomial = [](int32_t dx, int32_t dy) { return (2 - std::abs(dx)) * (2 - std::abs(dy)); };
  int32_t smooth = 4 * c + 8;
  for (const auto& [dx, dy] : kRing) smooth += luma(in, x + dx, y + dy) * binomial(dx, dy);
  int32_t a = m < 32 ? 0 : m <= 160 ? m - 32 : 128;
  if (kind >= 2) a = std::min(m + (kind == 2 ? 0 : kind == 3 ? 64 : 96), 128);
  const int32_t r = std::clamp(((128 - a) * c + a * (smooth >> 4) + 64) >> 7, 0, 255);
  int32_t sum = k * c, n = k;
  const auto test = [&](int32_t dx, int32_t dy, int32_t w) {
    const int32_t t = luma(in, x + dx, y + dy);
    if (std::abs(r - t) < (strength * m) >> 3) sum += w * t, n += w;
  };
  if (kind < 2) test(0, 0, 4);
  for (const auto& [dx, dy] : kRing) test(dx, dy, kind < 2 ? binomial(dx, dy) : 1);
  for (const auto& [dx, dy] : kind == 2 || kind == 3 ? knights : std::vector<Point>{}) test(dx, dy, 1);
  for (const auto& [dx, dy] : kind == 3 ? four : kind >= 4 ? far : std::vector<Point>{}) test(dx, dy, 1);
  return mean(sum, n);
}

using Pair = std::array<uint8_t, 2>;
Pair chromaOut(const TestImage& in, int32_t x, int32_t y, int32_t m, int32_t p, int32_t q, int32_t pass) {
  static const std::vector<Point> sets[] = {bothSigns({{2, 2}, {6, 0}, {0, 6}, {18, 0}, {0, 18}, {14, 14}}),
                                            bothSigns({{2, 2}, {4, 0}, {0, 4}, {16, 0}, {0, 16}, {10, 10}}),
                                            bothSigns({{2, 2}, {10, 0}, {0, 10}, {6, 0}, {0, 6}, {14, 14}})};
  int32_t sums[2] = {0, 0}, n = 0;
  const auto add = [&](int32_t tx, int32_t ty) {
    for (int32_t i = 0; i < 2; ++i) sums[i] += chroma(in, tx, ty, i);
    ++n;
  };
  for (const auto& [dx, dy] : {Point{0, 0}, {2, 0}, {-2, 0}, {0, 2}, {0, -2}}) add(x + dx, y + dy);
  for (const auto& [dx, dy] : sets[pass == 1 || pass == 4 ? 1 : pass == 2 || pass == 5 ? 2 : 0]) {
    const int32_t tx = x + dx, ty = y + dy;
    const auto near = [&](int32_t byte, int32_t strength) {
      return std::abs(chroma(in, x, y, byte) - chroma(in, tx, ty, byte)) < (strength * (m + 10) + 32) >> 6;
    };
    if (std::abs(luma(in, x, y) - luma(in, tx, ty)) < (m + 10) >> 1 && near(0, p) && near(1, q)) add(tx, ty);
  }
  return {mean(sums[0], n), mean(sums[1], n)};
}

// The spike test; its one-sided form when it only lifts.
uint8_t spikeOut(const TestImage& in, int32_t x, int32_t y, int64_t m, int64_t strength, bool lift) {
  int32_t low[2] = {255, 255}, high[2] = {0, 0}, sum = 4;
  for (int32_t i = 0; i < 2; ++i) {
    for (const auto& [dx, dy] : bothSigns({{i + 2, 0}, {0, i + 2}})) {
      low[i] = std::min(low[i], luma(in, x + dx, y + dy));
      high[i] = std::max(high[i], luma(in, x + dx, y + dy));
    }
  }
  for (const auto& [dx, dy] : kRing) sum += luma(in, x + dx, y + dy);
  const int32_t c = luma(in, x, y);
  const int32_t e = (std::min(high[0], high[1]) - std::max(low[0], low[1])) >> 2;
  const int32_t bright = std::min(std::max(c - high[0] - e, 0), std::max(c - high[1] - e, 0));
  const int32_t dark = std::min(std::max(low[0] - c - e, 0), std::max(low[1] - c - e, 0));
  const int64_t weight =
      lift ? (std::min<int64_t>(strength * m, 65535) >> 3) * std::max({low[0] + 1 - c, low[1] + 1 - c, 0})
           : std::min<int64_t>(strength * m, 255) * std::max(bright, dark);
  const int64_t w = std::min<int64_t>(weight, 128);
  return static_cast<uint8_t>(std::clamp<int64_t>(c + ((((sum >> 3) - c) * w + 64) >> 7), 0, 255));
}

struct Work {
  int32_t first;
  std::vector<int32_t> kinds;
  int32_t chromaPasses;
  std::array<double, 3> strengths;
};
constexpr int32_t kCentreWeight = 4;  // divides 32768

int32_t byteOf(double v) {
  return static_cast<int32_t>(std::clamp(v, 0.0, 255.0));
}

// The tasks one by one.
void reference(const TestImage& image, const TestImage& map, const Work& work) {
  const auto boundary = [](int32_t i, int32_t side) {
    return i == 20 ? side : std::clamp((((i - 1) * (side - 96)) / 18 + 48) & ~15, 0, side);
  };
  const auto forTiles = [&](int32_t step, const auto& visit) {
    for (int32_t tile = 0; tile < 400; ++tile) {
      for (int32_t y = boundary(tile / 20, image.height); y < boundary(tile / 20 + 1, image.height); y += step) {
        for (int32_t x = boundary(tile % 20, image.width); x < boundary(tile % 20 + 1, image.width); x += step) {
          visit(x, y, map.row(0, y)[x]);
        }
      }
    }
  };
  const auto& [p0, p1, p2] = work.strengths;
  if (work.first != 0) {
    forTiles(1, [&](auto x, auto y, auto m) { image.row(0, y)[x] = spikeOut(image, x, y, m, work.first, true); });
  }
  for (const int32_t kind : work.kinds) {
    forTiles(1, [&, s = byteOf(p0)](int32_t x, int32_t y, int32_t m) {
      image.row(0, y)[x] = lumaOut(image, x, y, m, s, kind, kCentreWeight);
    });
  }
  for (int32_t pass = 0; pass < work.chromaPasses; ++pass) {
    forTiles(2, [&, p = byteOf(p1), q = byteOf(p2)](int32_t x, int32_t y, int32_t m) {
      std::copy_n(chromaOut(image, x, y, m, p, q, pass).data(), 2, image.row(1, y >> 1) + x);
    });
  }
}

class Denoiser : public testing::Test {
 protected:
  // body(pel) for a null Pel and all numbers of workers.
  template <typename Body>
  void withPools(const Body& body) {
    body(nullptr);
    for (size_t i = 1; i < std::size(kFinishWorkers); ++i) {
      SCOPED_TRACE(testing::Message() << kFinishWorkers[i] << " workers");
      if (pools_[i] == nullptr) pools_[i] = std::make_unique<TestPel>(kFinishWorkers[i]);
      body(pools_[i]->get());
    }
  }
  Status denoise(Pel* pel, Env* env, Image* image, const Image* map, const Work& work) {
    return Tessal4Denoiser_denoiseInplace(pel, env, image, map, work.first, work.kinds.data(),
                                          static_cast<int32_t>(work.kinds.size()), kCentreWeight, work.chromaPasses,
                                          work.strengths.data());
  }
  TestArena arena_;
  std::unique_ptr<TestPel> pools_[std::size(kFinishWorkers)];
};

TEST_F(Denoiser, TilesInPlaceEqualTheTasksOneByOne) {
  const Work few = {90, {}, 2, {4.5, 4.0, 3.0}}, chroma = {0, {}, 7, {0.0, 4.0, 2.9}};
  const Work all = {90, {0, 2, 4, 3, 1}, 2, {4.5, 300.0, 6.0}}, many = {0, std::vector<int32_t>(33, 4), 0, {3.0, 0, 0}};
  struct {
    int32_t w, h;
    const Work* work;
  } const cases[] = {{640, 480, &few},   {480, 640, &few}, {397, 305, &all},  {402, 300, &chroma}, {181, 99, &all},
                     {131, 97, &chroma}, {96, 96, &few},   {61, 45, &chroma}, {30, 200, &few},     {200, 31, &few},
                     {47, 20, &all},     {3, 1, &few},     {120, 90, &many}};
  for (const auto& [w, h, work] : cases) {
    TestImage map(w, h, IMAGE_UINT8), expected(w, h, IMAGE_YVU420_SEMIPLANAR);
    fillMap(map, 4, w % 2 == 0 ? 40 : 255);
    fillScene(expected, 5, 12);
    reference(expected, map, *work);
    withPools([&, w = w, h = h, work = work](Pel* pel) {
      if (work == &many && pel != nullptr && Pel_getNumberOfWorkers(pel) != 3) return;
      TestImage image(w, h, IMAGE_YVU420_SEMIPLANAR);
      fillScene(image, 5, 12);
      ASSERT_EQ(denoise(pel, arena_.env(), &image, &map, *work), ZELVAN_OK);
      EXPECT_TRUE(image.sameBytes(expected)) << w << 'x' << h;
    });
  }
}

TEST_F(Denoiser, RowFormsEqualTheLiteralForms) {
  for (const auto& [w, h] : {Point{64, 40}, {67, 33}, {7, 9}, {6, 5}, {1, 1}}) {
    TestImage src(w, h, IMAGE_YUV420_SEMIPLANAR), map(w, h, IMAGE_UINT8, 3);
    fillScene(src, 8, 15);
    for (const double strength : {0.9, 1.0, 3.7, 300.0}) {
      // -1: chroma, 0 to 9: luma of that kind, 10: spikes.
      for (const int32_t form : {-1, 0, 1, 2, 3, 4, 9, 10}) {
        TestImage expected(w, h, IMAGE_YUV420_SEMIPLANAR);
        for (int32_t y = 0; y < h; ++y) {
          for (int32_t x = 0; x < w; ++x) {
            const int32_t m = map.row(0, y)[x];
            if (form >= 0) {
              expected.row(0, y)[x] = form == 10 ? spikeOut(src, x, y, m, static_cast<int64_t>(strength), false)
                                                 : lumaOut(src, x, y, m, byteOf(strength), form, 3);
            } else if (x % 2 == 0 && y % 2 == 0) {
              const Pair pair = chromaOut(src, x, y, m, byteOf(strength * 8.0), byteOf(0.7 * 8.0), 0);
              std::copy_n(pair.data(), 2, expected.row(1, y >> 1) + x);
            }
          }
        }
        withPools([&, w = w, h = h](Pel* pel) {
          TestImage dst(w, h, IMAGE_YUV420_SEMIPLANAR);
          ASSERT_EQ(form < 0    ? Tessal4Denoiser_denoiseUVPEL(pel, &src, &dst, &src, &map, strength, 0.7)
                    : form < 10 ? Tessal4Denoiser_denoiseYPEL(pel, &src, &dst, &map, strength, form, 3)
                                : Tessal4Denoiser_removeSpikePEL(pel, &dst, &src, &map, strength),
                    ZELVAN_OK);
          EXPECT_TRUE(dst.sameBytes(expected)) << w << 'x' << h << " form " << form << " strength " << strength;
        });
      }
    }
  }
}

TEST_F(Denoiser, EdgesOfTheContract) {
  TestImage image(200, 150, IMAGE_YUV420_SEMIPLANAR, 6), dst(200, 150, IMAGE_UINT8), map(200, 150, IMAGE_UINT8);
  fillMap(map, 1, 0);
  ASSERT_EQ(denoise(nullptr, arena_.env(), &image, &map, {0, {0, 1, 2, 3, 4}, 0, {255.0, 0.0, 0.0}}), ZELVAN_OK);
  EXPECT_TRUE(image.unchanged()) << "no tap passes";
  // Neither block of the scratch fits, then the tasks alone do.
  for (const uint32_t size : {2048u, 31000u}) {
    TestArena small(size);
    EXPECT_EQ(denoise(nullptr, small.env(), &image, &map, {1, {1}, 1, {4.0, 4.0, 4.0}}), ZELVAN_ERROR_NOMEM);
  }
  EXPECT_TRUE(image.unchanged());
  // One speck in a flat picture gives way to its ring.
  for (int32_t y = 0; y < 150; ++y) std::fill_n(image.row(0, y), 200, uint8_t{100});
  for (int32_t y = 0; y < 150; ++y) std::fill_n(map.row(0, y), 200, uint8_t{255});
  for (const int32_t speck : {101, 99, 255, 0}) {
    image.row(0, 40)[50] = static_cast<uint8_t>(speck);
    ASSERT_EQ(Tessal4Denoiser_removeSpikePEL(nullptr, &dst, &image, &map, 255.0), ZELVAN_OK);
    EXPECT_EQ(dst.row(0, 40)[50], 100) << speck;
  }
}

}  // namespace
