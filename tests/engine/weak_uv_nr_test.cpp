#include "engine/weak_uv_nr.h"

#include <array>
#include <cmath>
#include <memory>

#include "engine/finish_scene.h"
#include "engine/tessal4.h"
#include "imageproc/resize.h"
#include "support/test_pel.h"

namespace {

// Items of cells in a grid, n to a cell.
template <typename T>
struct Grid {
  int32_t width, height, n;
  std::vector<T> values = std::vector<T>(static_cast<size_t>(width * height * n));
  T& operator()(int32_t x, int32_t y, int32_t item) { return values[static_cast<size_t>((y * width + x) * n + item)]; }
};

// The line get(0) to get(count - 1) replaced by its window sums times scale.
template <typename T, typename Get>
void slide(int32_t count, int32_t radius, T scale, const Get& get) {
  std::vector<T> line;
  for (int32_t i = 0; i < count; ++i) line.push_back(get(i));
  const auto edge = [&](int32_t i) { return line[static_cast<size_t>(std::clamp(i, 0, count - 1))]; };
  T sum = static_cast<T>(radius + 1) * line[0];
  for (int32_t k = 1; k <= radius; ++k) sum += edge(k);
  get(0) = sum * scale;
  for (int32_t i = 1; i < count; ++i) {
    sum += edge(i + radius);
    sum -= edge(i - radius - 1);
    get(i) = sum * scale;
  }
}

template <typename T>
void box(Grid<T>& grid, int32_t radius, T scale) {
  for (int32_t item = 0; item < grid.n; ++item) {
    for (int32_t y = 0; y < grid.height; ++y) {
      slide<T>(grid.width, radius, scale, [&](int32_t x) -> T& { return grid(x, y, item); });
    }
    for (int32_t x = 0; x < grid.width; ++x) {
      slide<T>(grid.height, radius, scale, [&](int32_t y) -> T& { return grid(x, y, item); });
    }
  }
}

std::array<float, 8> solve(const std::array<float, 9>& s, float n, const std::array<float, 3>& p, float m) {
  const auto covariance = [&](int32_t product, int32_t i, int32_t j) {
    return s[static_cast<size_t>(product)] - s[static_cast<size_t>(i)] * s[static_cast<size_t>(j)] / n;
  };
  // c[i][j] of Y, U, V; a is c with a regularised diagonal.
  const float yu = covariance(6, 0, 1), yv = covariance(7, 0, 2), uv = covariance(8, 1, 2);
  const float c[3][3] = {{covariance(3, 0, 0), yu, yv}, {yu, covariance(4, 1, 1), uv}, {yv, uv, covariance(5, 2, 2)}};
  float a[3][3];
  for (size_t i = 0; i < 3; ++i) {
    std::copy_n(c[i], 3, a[i]);
    a[i][i] += p[i] * p[i] * n * 0.0009765625f * m * m;
  }
  // The cofactor of (i, j) as the rows and columns behind them, taken in a ring.
  float cofactor[3][3];
  for (size_t i = 0; i < 3; ++i) {
    for (size_t j = i; j < 3; ++j) {
      const size_t i1 = (i + 1) % 3, i2 = (i + 2) % 3, j1 = (j + 1) % 3, j2 = (j + 2) % 3;
      cofactor[i][j] = cofactor[j][i] = a[i1][j1] * a[i2][j2] - a[i1][j2] * a[i2][j1];
    }
  }
  const float reciprocal = 1.0f / (a[0][0] * cofactor[0][0] + a[0][1] * cofactor[0][1] + a[0][2] * cofactor[0][2]);
  std::array<float, 8> out;
  for (size_t k = 0; k < 2; ++k) {
    float* row = &out[4 * k];
    for (size_t i = 0; i < 3; ++i) {
      row[i] = cofactor[i][0] * reciprocal * c[0][k + 1] + cofactor[i][1] * reciprocal * c[1][k + 1] +
               cofactor[i][2] * reciprocal * c[2][k + 1];
    }
    row[3] = (s[k + 1] - (row[0] * s[0] + row[1] * s[1] + row[2] * s[2])) / n;
  }
  return out;
}

void reference(Env* env, const TestImage& dst, const TestImage& src, const TestImage* map, const WeakUvNrParams& p) {
  ImageProc2 proc = {env, nullptr};
  const auto shrink = [&](Image* out, const Image* in, int32_t w, int32_t h, int32_t format) {
    ASSERT_EQ(Image_init(out, w, h, nullptr, format), ZELVAN_OK);
    if (in->width == w && in->height == h) {
      ASSERT_EQ(Image_copy(out, in), ZELVAN_OK);
    } else {
      ASSERT_EQ(ImageProc2_averageShrink(&proc, out, in), ZELVAN_OK);
    }
  };
  ScopedImage lumaView(env), chromaView(env), luma(env), chroma(env), smallMap(env), halfLuma(env);
  ASSERT_EQ(Image_initSubImageY(&lumaView, &src, 0, 0, src.width, src.height), ZELVAN_OK);
  ASSERT_EQ(Image_initSubImageUV(&chromaView, &src, 0, 0, src.width, src.height), ZELVAN_OK);
  const auto w = static_cast<int32_t>(static_cast<float>(src.width) / static_cast<float>(p.shrink) + 0.5f);
  const auto h = static_cast<int32_t>(static_cast<float>(src.height) / static_cast<float>(p.shrink) + 0.5f);
  shrink(&luma, &lumaView, w, h, IMAGE_UINT8);
  shrink(&chroma, &chromaView, w, h, IMAGE_UINT88);
  shrink(&halfLuma, &lumaView, chromaView.width, chromaView.height, IMAGE_UINT8);
  if (map != nullptr) shrink(&smallMap, map, w, h, IMAGE_UINT8);

  const int32_t cw = w / 2, ch = h / 2, radius = p.window >> 1;
  Grid<int32_t> sums{cw, ch, 9};
  for (int32_t y = 0; y < 2 * ch; ++y) {
    for (int32_t x = 0; x < 2 * cw; ++x) {
      const int32_t v[3] = {imageRow(&luma, y)[x], imageRow(&chroma, y)[2 * x], imageRow(&chroma, y)[2 * x + 1]};
      const int32_t items[9] = {v[0],        v[1],        v[2],        v[0] * v[0], v[1] * v[1],
                                v[2] * v[2], v[0] * v[1], v[0] * v[2], v[1] * v[2]};
      for (int32_t i = 0; i < 9; ++i) sums(x / 2, y / 2, i) += items[i];
    }
  }
  box<int32_t>(sums, radius, 1);
  Grid<float> model{cw, ch, 8};
  for (int32_t y = 0; y < ch; ++y) {
    for (int32_t x = 0; x < cw; ++x) {
      std::array<float, 9> s;
      for (int32_t i = 0; i < 9; ++i) s[static_cast<size_t>(i)] = static_cast<float>(sums(x, y, i));
      const float m = map != nullptr ? imageRow(&smallMap, y)[x] : 32.0f;
      const auto cell = solve(s, static_cast<float>(4 * p.window * p.window),
                              {p.regularisationY, p.regularisationU, p.regularisationV}, m);
      for (int32_t i = 0; i < 8; ++i) model(x, y, i) = cell[static_cast<size_t>(i)];
    }
  }
  box<float>(model, radius, 1.0f / static_cast<float>(2 * radius + 1));

  const int32_t width = chromaView.width, height = chromaView.height;
  for (int32_t y = 0; y < height; ++y) {
    const int64_t v = ((2 * int64_t{y} * ch) + ch - height) * 32768 / (2 * int64_t{height});
    const auto rowA = static_cast<int32_t>(std::clamp<int64_t>(v >> 15, 0, ch - 1));
    const auto rowB = static_cast<int32_t>(std::clamp<int64_t>((v >> 15) + 1, 0, ch - 1));
    const float f = static_cast<float>(v & 0x7fff) * 3.0517578e-05f;
    for (int32_t x = 0; x < width; ++x) {
      const int64_t px = (int64_t{cw} - width) * 32768 / (2 * int64_t{width}) + x * (int64_t{cw} * 32768 / width);
      const auto stretched = [&](int32_t row, int32_t item) {
        if (px < 0) return model(0, row, item);
        if (px >= (int64_t{cw} - 1) * 32768) return model(cw - 1, row, item);
        const float g = static_cast<float>(px & 0x7fff) * 3.0517578e-05f;
        const auto i = static_cast<int32_t>(px >> 15);
        return (1 - g) * model(i, row, item) + g * model(i + 1, row, item);
      };
      const float y0 = imageRow(&halfLuma, y)[x];
      const float c0 = imageRow(&chromaView, y)[2 * x], c1 = imageRow(&chromaView, y)[2 * x + 1];
      for (int32_t k = 0; k < 2; ++k) {
        const auto q = [&](int32_t row) {
          return stretched(row, 4 * k) * y0 + stretched(row, 4 * k + 1) * c0 + stretched(row, 4 * k + 2) * c1 +
                 stretched(row, 4 * k + 3);
        };
        const float value = p.gain * ((1 - f) * q(rowA) + f * q(rowB) - 128) + 128;
        dst.row(1, y)[2 * x + k] =
            std::isnan(value) ? uint8_t{0} : static_cast<uint8_t>(std::min(std::max(value, 0.0f), 255.0f));
      }
    }
  }
}

constexpr WeakUvNrParams kDefaults = {1, 4, 25, 2.0f, 2.0f, 1.0f, 1.0f};

class WeakUvNr : public testing::Test {
 protected:
  WeakUvNr() : arena_(8u << 20), engine_(new Tessal4()) { engine_->env = arena_.env(); }
  Status run(TestImage& dst, const TestImage& src, const TestImage* map, const WeakUvNrParams& params,
             Pel* pel = nullptr) {
    engine_->pel = pel;
    return zelvan_Tessaline4Internal_weakUvNr(engine_.get(), &dst, &src, map, &params);
  }
  TestArena arena_;
  std::unique_ptr<Tessal4> engine_;
};

TEST_F(WeakUvNr, EqualsTheLiteralFormForAnySplitAndInPlace) {
  struct {
    int32_t w, h;
    WeakUvNrParams params;
    bool withMap;
  } const cases[] = {{640, 480, kDefaults, false},
                     {480, 640, {1, 4, 7, 2.0f, 2.0f, 1.0f, 1.25f}, true},
                     {301, 207, {1, 4, 24, 1.0f, 4.0f, 0.5f, 1.0f}, true},
                     {96, 64, {1, 2, 5, 2.0f, 2.0f, 1.0f, -3.0f}, true},
                     {123, 90, {1, 3, 1, 0.5f, 0.5f, 0.5f, 1.0f}, false},
                     {66, 54, {1, 7, 25, 2.0f, 2.0f, 1.0f, 1.0f}, true},
                     {16, 16, {1, 8, 3, 2.0f, 2.0f, 1.0f, 1.0f}, false},
                     {64, 64, {1, 4, 0, 2.0f, 2.0f, 1.0f, 1.0f}, false},
                     {64, 64, {1, 4, 3, 0.0f, 0.0f, 0.0f, 1.0f}, true}};
  std::unique_ptr<TestPel> pools[std::size(kFinishWorkers)];
  for (size_t i = 1; i < std::size(pools); ++i) pools[i] = std::make_unique<TestPel>(kFinishWorkers[i]);
  for (const auto& [w, h, params, withMap] : cases) {
    SCOPED_TRACE(testing::Message() << w << 'x' << h << " shrink " << params.shrink << " window " << params.window);
    for (const int32_t noise : {12, 127}) {
      const auto scene = [w = w, h = h, noise] {
        auto image = std::make_unique<TestImage>(w, h, IMAGE_YVU420_SEMIPLANAR, 3);
        fillScene(*image, 4, noise);
        return image;
      };
      const auto src = scene();
      TestImage map(w, h, IMAGE_UINT8, 6);
      fillMap(map, 2, noise == 12 ? 64 : 255);
      const TestImage* with = withMap ? &map : nullptr;
      const auto expected = scene();  // luma and what lies outside the chroma view stay
      reference(arena_.env(), *expected, *src, with, params);
      for (const auto& pool : pools) {
        Pel* pel = pool != nullptr ? pool->get() : nullptr;
        const auto own = scene();
        ASSERT_EQ(run(*own, *own, with, params, pel), ZELVAN_OK);
        ASSERT_TRUE(own->sameBytes(*expected)) << Pel_getNumberOfWorkers(pel) << " workers";
        const auto dst = scene();
        for (int32_t y = 0; y < h / 2; ++y) std::fill_n(dst->row(1, y), w / 2 * 2, uint8_t{1});
        ASSERT_EQ(run(*dst, *src, with, params, pel), ZELVAN_OK);
        ASSERT_TRUE(dst->sameBytes(*expected)) << Pel_getNumberOfWorkers(pel) << " workers, other image";
        ASSERT_TRUE(src->sameBytes(*scene()));
      }
    }
  }
}

TEST_F(WeakUvNr, FlatAndNoisyPictures) {
  TestImage image(240, 160, IMAGE_YUV420_SEMIPLANAR);
  std::mt19937 random(5);
  // value(), everywhere in chroma.
  const auto fill = [&](const auto& value) {
    for (int32_t i = 0; i < 240 * 80; ++i) image.row(1, i / 240)[i % 240] = static_cast<uint8_t>(value());
  };
  // Sum of the distances of a byte of all pairs from a level, in halves.
  const auto spread = [&](int32_t byte, int32_t level) {
    int64_t sum = 0;
    for (int32_t i = byte; i < 240 * 80; i += 2) sum += std::abs(2 * image.row(1, i / 240)[i % 240] - level);
    return sum;
  };
  for (int32_t y = 0; y < 160; ++y) std::fill_n(image.row(0, y), 240, uint8_t{50});
  fill([] { return 90; });
  ASSERT_EQ(run(image, image, nullptr, kDefaults), ZELVAN_OK);
  EXPECT_EQ(spread(0, 179) + spread(1, 179), 240 * 80) << "90, or 89 by the truncation of the last step";

  // Fine noise of variance v in the small copy is kept by a share of about v / (v + R): v is 2.5 here, R is 4 for byte
  // 0 and 1 for byte 1.
  fill([&] { return 120 + random() % 11 - 5; });
  const int64_t before[2] = {spread(0, 239), spread(1, 239)};
  ASSERT_EQ(run(image, image, nullptr, kDefaults), ZELVAN_OK);
  EXPECT_NEAR(static_cast<double>(spread(0, 239)) / static_cast<double>(before[0]), 0.38, 0.12);
  EXPECT_NEAR(static_cast<double>(spread(1, 239)) / static_cast<double>(before[1]), 0.71, 0.12);

  WeakUvNrParams noGain = kDefaults;
  noGain.gain = 0.0f;
  ASSERT_EQ(run(image, image, nullptr, noGain), ZELVAN_OK);
  EXPECT_EQ(spread(0, 256) + spread(1, 256), 0);
}

TEST_F(WeakUvNr, Refusals) {
  TestImage image(160, 120, IMAGE_YUV420_SEMIPLANAR), small(158, 120, IMAGE_YUV420_SEMIPLANAR);
  TestImage planar(160, 120, IMAGE_YUV420_PLANAR), map(160, 120, IMAGE_UINT8);
  constexpr auto kCall = zelvan_Tessaline4Internal_weakUvNr;
  EXPECT_EQ(kCall(nullptr, &image, &image, nullptr, &kDefaults), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(kCall(engine_.get(), nullptr, &image, nullptr, &kDefaults), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(kCall(engine_.get(), &image, nullptr, nullptr, &kDefaults), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(kCall(engine_.get(), &image, &image, nullptr, nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(run(small, image, nullptr, kDefaults), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(run(planar, planar, nullptr, kDefaults), ZELVAN_ERROR_UNSUPPORTED);
  for (const auto& [shrink, window] : {std::array{1, 25}, {0, 25}, {-4, 25}, {100, 25}, {4, -1}}) {
    const WeakUvNrParams params = {1, shrink, window, 2.0f, 2.0f, 1.0f, 1.0f};
    EXPECT_EQ(run(image, image, nullptr, params), ZELVAN_ERROR_PARAM) << shrink << ' ' << window;
  }
  EXPECT_TRUE(image.unchanged());

  // Arenas in which one request more succeeds from time to time.
  Status status = ZELVAN_ERROR_NOMEM;
  uint32_t size = 2048;
  for (; status != ZELVAN_OK && size < (1u << 20); size += 512) {
    ASSERT_TRUE(image.unchanged());
    TestArena arena(size);
    engine_->env = arena.env();
    status = run(image, image, &map, kDefaults);
    ASSERT_TRUE(status == ZELVAN_OK || status == ZELVAN_ERROR_NOMEM) << size;
  }
  EXPECT_EQ(status, ZELVAN_OK);
  EXPECT_GT(size, 20000u);
}

}  // namespace
