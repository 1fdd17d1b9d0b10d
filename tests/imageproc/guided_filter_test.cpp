#include "imageproc/guided_filter.h"

#include <memory>
#include <random>

#include "base/integer.h"
#include "imageproc/resize.h"
#include "support/test_image.h"
#include "support/test_pel.h"

namespace {

// The filter once more, pixel by pixel from its definition.

struct Grid {
  int32_t width, height;
  std::vector<int32_t> items;
  Grid(int32_t w, int32_t h) : width(w), height(h), items(static_cast<size_t>(w * h)) {}
  bool holds(int32_t x, int32_t y) const { return x >= 0 && x < width && y >= 0 && y < height; }
  int32_t& at(int32_t x, int32_t y) { return items[static_cast<size_t>(y * width + x)]; }
  int32_t nearest(int32_t x, int32_t y) { return at(clampInt(x, 0, width - 1), clampInt(y, 0, height - 1)); }
};

constexpr int32_t kDirections[4][2] = {{1, 0}, {0, 1}, {1, 1}, {-1, 1}};

int32_t lineSum(Grid& grid, int32_t x, int32_t y, const int32_t (&d)[2], int32_t radius) {
  int32_t sum = 0;
  for (int32_t k = -radius; k <= radius; ++k) {
    int32_t t = k;
    while (!grid.holds(x + t * d[0], y + t * d[1])) t -= t > 0 ? 1 : -1;
    sum += grid.at(x + t * d[0], y + t * d[1]);
  }
  return sum;
}

int32_t roundedMean(const std::vector<std::pair<int32_t, int32_t>>& weighted) {
  int64_t sum = 0, weights = 0;
  for (const auto& [weight, value] : weighted) weights += weight, sum += int64_t{weight} * value;
  return static_cast<int32_t>(std::min<int64_t>((sum + weights / 2) / weights, 255));
}

int32_t weightOf(int32_t a) {
  const int32_t t = (128 - a) & 255;
  return t * t + t + 1;
}

struct Pair {
  Grid a, b;
  Pair(int32_t w, int32_t h) : a(w, h), b(w, h) {}
};

// One model, from window sums over count blocks.
void model(Pair* out, int32_t x, int32_t y, int32_t sumGuide, int32_t sumSquare, float inv, float epsilon, Grid* map) {
  const float m = inv * static_cast<float>(sumGuide);
  const float v = inv * static_cast<float>(sumSquare) - m * m;
  const float ratio =
      v / (map == nullptr ? epsilon + v : v + (epsilon * 0.03125f) * static_cast<float>(map->at(x, y)) + 1e-12f);
  out->a.at(x, y) = static_cast<uint8_t>(truncToInt32(ratio * 128.0f + 0.5f));
  out->b.at(x, y) = static_cast<uint8_t>(truncToInt32((1.0f - ratio) * m + 0.5f));
}

Pair lineModels(Grid& guide, Grid& square, int32_t area, float epsilon, Grid* map, int32_t window) {
  const int32_t radius = window >> 2, count = (window >> 1) | 1, reach = count >> 1;
  const int32_t w = guide.width, h = guide.height;
  std::vector<Pair> directions(4, Pair(w, h));
  for (int32_t d = 0; d < 4; ++d) {
    for (int32_t i = 0; i < w * h; ++i) {
      model(&directions[d], i % w, i / w, lineSum(guide, i % w, i / w, kDirections[d], radius),
            lineSum(square, i % w, i / w, kDirections[d], radius), 1.0f / static_cast<float>(count * area), epsilon,
            map);
    }
  }
  Pair merged(w, h);
  for (int32_t i = 0; i < w * h; ++i) {
    std::vector<std::pair<int32_t, int32_t>> as, bs;
    for (int32_t d = 0; d < 4; ++d) {
      for (const int32_t sign : {1, -1}) {
        const int32_t x = i % w + sign * reach * kDirections[d][0], y = i / w + sign * reach * kDirections[d][1];
        if (!guide.holds(x, y)) continue;
        const int32_t a = directions[d].a.at(x, y);
        as.push_back({weightOf(a), a});
        bs.push_back({weightOf(a), directions[d].b.at(x, y)});
      }
    }
    merged.a.at(i % w, i / w) = roundedMean(as);
    merged.b.at(i % w, i / w) = roundedMean(bs);
  }
  return merged;
}

int32_t squareSum(Grid& grid, int32_t x, int32_t y, int32_t radius) {
  int32_t sum = 0;
  for (int32_t j = -radius; j <= radius; ++j) {
    for (int32_t i = -radius; i <= radius; ++i) sum += grid.nearest(x + i, y + j);
  }
  return sum;
}

Grid boxMean(Grid grid, int32_t window) {
  for (const int32_t d : {0, 1}) {
    Grid mean(grid.width, grid.height);
    for (int32_t i = 0; i < grid.width * grid.height; ++i) {
      const int32_t x = i % grid.width, y = i / grid.width;
      mean.at(x, y) = (lineSum(grid, x, y, kDirections[d], window / 2) + window / 2) / window;
    }
    grid = mean;
  }
  return grid;
}

Pair squareModels(Grid& guide, Grid& square, int32_t area, float epsilon, int32_t window) {
  Pair models(guide.width, guide.height);
  for (int32_t i = 0; i < guide.width * guide.height; ++i) {
    const int32_t x = i % guide.width, y = i / guide.width;
    model(&models, x, y, squareSum(guide, x, y, window / 2), squareSum(square, x, y, window / 2),
          1.0f / static_cast<float>(window * window * area), epsilon, nullptr);
  }
  models.a = boxMean(models.a, window);
  models.b = boxMean(models.b, window);
  return models;
}

// The sums of a / 128 I + b and of its square, rounded, at most white.
void smoothSums(Grid* guide, Grid* square, Pair& models, int32_t area) {
  for (size_t i = 0; i < guide->items.size(); ++i) {
    const double a = models.a.items[i] / 128.0, b = models.b.items[i], g = guide->items[i], s = square->items[i];
    guide->items[i] = std::min(static_cast<int32_t>(a * g + b * area + 0.5), 255 * area);
    square->items[i] = std::min(static_cast<int32_t>(a * a * s + 2 * a * b * g + b * b * area + 0.5), 65025 * area);
  }
}

constexpr float kEpsilon2 = 90;
enum class Form { kLines, kSquare, kTwoStep, kTwoStepLite, kStepByStep };

// y: the luma inside the rectangle. map: epsilon map on the grid, or null.
Grid filtered(Grid y, int32_t numShrink, Form form, float epsilon, Grid* map, int32_t fullWindow) {
  const int32_t side = 1 << numShrink, area = side * side, window = (fullWindow >> numShrink) | 1;
  const int32_t w = y.width >> numShrink, h = y.height >> numShrink;
  Grid guide(w, h), square(w, h);
  for (int32_t i = 0; i < w * h * area; ++i) {
    const int32_t px = i % (w * side), py = i / (w * side), v = y.at(px, py);
    guide.at(px / side, py / side) += v;
    square.at(px / side, py / side) += v * v;
  }
  Pair models = form == Form::kSquare ? squareModels(guide, square, area, epsilon, window)
                                      : lineModels(guide, square, area, epsilon, map, window);
  if (form == Form::kTwoStepLite) {
    for (int32_t i = 0; i < w * h; ++i) {
      model(&models, i % w, i / w, guide.at(i % w, i / w), square.at(i % w, i / w), 1.0f / static_cast<float>(area),
            epsilon, nullptr);
    }
  }
  if (form != Form::kLines && form != Form::kSquare) {
    smoothSums(&guide, &square, models, area);
    models = lineModels(guide, square, area, kEpsilon2, nullptr, window);
  }
  // Centre of block k at side * k + side / 2 - 1/2; distances in half pixels.
  Grid out(y.width, y.height);
  for (int32_t i = 0; i < y.width * y.height; ++i) {
    const int32_t x = i % y.width, row = i / y.width, full = 2 * side;
    const int32_t fx = 2 * x + 1 - side, fy = 2 * row + 1 - side;
    const int32_t kx = fx < 0 ? -1 : fx / full, ky = fy < 0 ? -1 : fy / full;
    const auto mix = [&](Grid& g) {
      int32_t sum = 0;
      for (int32_t n = 0; n < 4; ++n) {
        const int32_t wx = n & 1 ? fx - kx * full : full - (fx - kx * full);
        const int32_t wy = n & 2 ? fy - ky * full : full - (fy - ky * full);
        sum += wx * wy * g.nearest(kx + (n & 1), ky + (n >> 1));
      }
      return sum;
    };
    const int32_t value = y.at(x, row);
    if (numShrink == 0) {
      out.at(x, row) = std::min(((models.a.at(x, row) * value + 64) >> 7) + models.b.at(x, row), 255);
    } else {
      const int32_t shift = numShrink == 1 ? 11 : 13;
      out.at(x, row) = std::min((value * mix(models.a) + 128 * mix(models.b) + (1 << (shift - 1))) >> shift, 255);
    }
  }
  return out;
}

// Flat areas, ramps, edges and noise, so that windows of all kinds occur.
void paint(Image* image, uint32_t seed) {
  std::mt19937 random(seed);
  for (int32_t y = 0; y < image->height; ++y) {
    for (int32_t x = 0; x < image->width; ++x) {
      const int32_t patch = (x / 23 + y / 19) % 4;
      const auto noise = static_cast<int32_t>(random() >> 28);
      imageRow(image, y)[x] = clampByte(patch == 0         ? 40
                                        : patch == 1       ? 3 * x + y + noise
                                        : patch == 2       ? 255 - noise * noise
                                        : (x + y) % 14 < 7 ? 200 + noise
                                                           : 20);
    }
  }
}

class Filter {
 public:
  Filter(int32_t width, int32_t height, int32_t numShrink, Pel* pel = nullptr) {
    const GuidedFilterParam param = {1, numShrink};
    EXPECT_EQ(construct_GuidedFilter(get(), arena_.env()), ZELVAN_OK);
    EXPECT_EQ(GuidedFilter_init(get(), width, height, &param), ZELVAN_OK);
    EXPECT_EQ(GuidedFilter_setPel(get(), pel), ZELVAN_OK);
  }
  ~Filter() { EXPECT_EQ(destruct_GuidedFilter(get()), ZELVAN_OK); }
  GuidedFilter* get() { return filter_.get(); }
  Env* env() { return arena_.env(); }

  Status run(Image* dst, Image* src, float epsilon, const Image* map, int32_t window, Form form = Form::kLines) {
    const uint32_t before = arena_.used();
    const Status status = execute(dst, src, epsilon, map, window, form);
    EXPECT_EQ(arena_.used(), before);
    return status;
  }

 private:
  Status execute(Image* dst, Image* src, float epsilon, const Image* map, int32_t window, Form form) {
    if (map != nullptr) return GuidedFilter_execute_with_epsilon_map(get(), dst, src, epsilon, map, window);
    switch (form) {
      case Form::kLines:
        return GuidedFilter_execute(get(), dst, src, epsilon, window);
      case Form::kSquare:
        return GuidedFilter_execute_square(get(), dst, src, epsilon, window);
      case Form::kTwoStep:
        return GuidedFilter_execute_two_step(get(), dst, src, epsilon, kEpsilon2, window);
      case Form::kTwoStepLite:
        return GuidedFilter_execute_two_step_lite(get(), dst, src, epsilon, kEpsilon2, window);
      default:
        if (const Status s = GuidedFilter_execute_first_step(get(), dst, src, epsilon, window); s != ZELVAN_OK)
          return s;
        return GuidedFilter_execute_second_step(get(), dst, src, kEpsilon2, window);
    }
  }

  TestArena arena_;
  std::unique_ptr<GuidedFilter> filter_ = std::make_unique<GuidedFilter>();
};

bool samePixels(const Image& a, const Image& b) {
  for (int32_t y = 0; y < a.height; ++y) {
    if (!std::equal(imageRow(&a, y), imageRow(&a, y) + a.width, imageRow(&b, y))) return false;
  }
  return true;
}

struct Case {
  int32_t width, height, numShrink, window;
  float epsilon;
  int32_t mapWidth, mapHeight;  // 0: no map
  int32_t format;
  ImageRect rect = {};  // empty: the default
  Form form = Form::kLines;
};
const Case kCases[] = {
    {64, 48, 0, 41, 300, 0, 0, IMAGE_UINT8},
    {61, 47, 0, 9, 40, 61, 47, IMAGE_UINT8, {3, 5, 44, 36}},
    {150, 131, 0, 101, 900, 30, 20, IMAGE_YUV420_SEMIPLANAR},
    {1100, 14, 0, 6, 900, 0, 0, IMAGE_UINT8},
    {75, 63, 1, 41, 200, 19, 16, IMAGE_UINT8},
    {76, 64, 1, 23, 2000, 0, 0, IMAGE_YVU420_SEMIPLANAR, {7, 9, 67, 58}},
    {1031, 20, 1, 11, 60, 0, 0, IMAGE_UINT8},
    {136, 92, 2, 41, 400, 68, 46, IMAGE_YVU420_SEMIPLANAR},
    {139, 90, 2, 41, 90, 139, 90, IMAGE_UINT8},
    {138, 93, 2, 3, 90, 0, 0, IMAGE_UINT8},
    {128, 120, 2, 101, 700, 32, 30, IMAGE_YUV420_PLANAR, {17, 3, 111, 119}},
    {2203, 34, 2, 29, 500, 551, 9, IMAGE_UINT8, {5, 1, 2201, 33}},
    {90, 90, 2, 41, -60, 0, 0, IMAGE_UINT8},  // quotients out of all range
    {90, 90, 1, 41, -60, 40, 40, IMAGE_UINT8},
    {90, 70, 0, 9, 300, 0, 0, IMAGE_UINT8, {3, 4, 80, 69}, Form::kSquare},
    {90, 70, 1, 41, 300, 0, 0, IMAGE_UINT8, {}, Form::kSquare},
    {120, 70, 2, 101, 300, 0, 0, IMAGE_UINT8, {8, 0, 120, 64}, Form::kSquare},
    {90, 70, 1, 21, 300, 0, 0, IMAGE_UINT8, {}, Form::kTwoStep},
    {120, 120, 2, 41, 300, 0, 0, IMAGE_UINT8, {4, 8, 116, 120}, Form::kTwoStep},
    {120, 120, 2, 41, 300, 0, 0, IMAGE_UINT8, {4, 8, 116, 120}, Form::kStepByStep},
    {90, 70, 1, 21, 300, 0, 0, IMAGE_UINT8, {}, Form::kTwoStepLite},
    {120, 120, 2, 41, 300, 0, 0, IMAGE_UINT8, {4, 8, 116, 120}, Form::kTwoStepLite},
};

TEST(GuidedFilter, EqualsTheDefinitionForAnyWorkersInPlaceAndBeside) {
  const TestPel one(1), three(3);
  for (const Case& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.width << 'x' << c.height << " numShrink " << c.numShrink << " window "
                                    << c.window << " epsilon " << c.epsilon);
    const bool whole = c.rect.right == 0;
    const int32_t s = 1 << c.numShrink;
    const auto up = [s](int32_t v, int32_t limit) { return std::min((v + s - 1) / s * s, limit); };
    const ImageRect in = whole ? ImageRect{0, 0, c.width, c.height}
                               : ImageRect{c.rect.left / s * s, c.rect.top / s * s, up(c.rect.right, c.width),
                                           up(c.rect.bottom, c.height)};
    TestImage src(c.width, c.height, c.format, 1, 3);
    paint(&src, 5);
    Grid y(in.right - in.left, in.bottom - in.top);
    for (int32_t i = 0; i < y.width * y.height; ++i) {
      y.items[static_cast<size_t>(i)] = imageRow(&src, in.top + i / y.width)[in.left + i % y.width];
    }
    std::unique_ptr<TestImage> map;
    Grid gridMap(y.width >> c.numShrink, y.height >> c.numShrink);
    if (c.mapWidth != 0) map = std::make_unique<TestImage>(c.mapWidth, c.mapHeight, IMAGE_UINT8, 77);

    for (Pel* pel : {static_cast<Pel*>(nullptr), one.get(), three.get()}) {
      Filter filter(c.width, c.height, c.numShrink, pel);
      if (!whole) {
        ASSERT_EQ(GuidedFilter_setRect(filter.get(), &c.rect), ZELVAN_OK);
      }
      if (map != nullptr) {
        ScopedImage resized(filter.env());
        ImageProc2 proc = {filter.env(), nullptr};
        ASSERT_EQ(Image_init(&resized, ((c.width >> c.numShrink) + 1) & ~1, ((c.height >> c.numShrink) + 1) & ~1,
                             nullptr, IMAGE_UINT8),
                  ZELVAN_OK);
        ASSERT_EQ(ImageProc2_resizeImage(&proc, &resized, map.get()), ZELVAN_OK);
        for (int32_t i = 0; i < gridMap.width * gridMap.height; ++i) {
          gridMap.items[static_cast<size_t>(i)] =
              imageRow(&resized, in.top / s + i / gridMap.width)[in.left / s + i % gridMap.width];
        }
      }
      Grid expected = filtered(y, c.numShrink, c.form, c.epsilon, map != nullptr ? &gridMap : nullptr, c.window);
      TestImage dst(c.width, c.height, c.format, 2, 8), place(c.width, c.height, c.format, 1, 3);
      paint(&place, 5);
      const TestImage untouched(c.width, c.height, c.format, 2, 8);
      ASSERT_EQ(filter.run(&dst, &src, c.epsilon, map.get(), c.window, c.form), ZELVAN_OK);
      ASSERT_EQ(filter.run(nullptr, &place, c.epsilon, map.get(), c.window, c.form), ZELVAN_OK);
      for (int32_t row = 0; row < c.height; ++row) {
        for (int32_t x = 0; x < c.width; ++x) {
          const bool inside = x >= in.left && x < in.right && row >= in.top && row < in.bottom;
          const int32_t want = inside ? expected.at(x - in.left, row - in.top) : -1;
          ASSERT_EQ(imageRow(&dst, row)[x], inside ? want : imageRow(&untouched, row)[x]) << x << ',' << row;
          ASSERT_EQ(imageRow(&place, row)[x], inside ? want : imageRow(&src, row)[x]) << x << ',' << row;
        }
      }
      EXPECT_TRUE(dst.guardsUnchanged() && place.guardsUnchanged());
    }
  }
}

TEST(GuidedFilter, FlatPicturesStayAndStrongStructureStays) {
  for (int32_t numShrink = 0; numShrink <= 2; ++numShrink) {
    for (const auto& [w, h] : {std::pair{120, 110}, {9, 70}, {8, 8}, {4, 30}}) {  // some far smaller than a window
      Filter filter(w, h, numShrink);
      TestImage image(w, h, IMAGE_UINT8);
      for (const int32_t level : {0, 1, 77, 128, 254, 255}) {
        for (int32_t y = 0; y < h; ++y) std::fill_n(imageRow(&image, y), w, static_cast<uint8_t>(level));
        ASSERT_EQ(filter.run(nullptr, &image, 400, nullptr, 101), ZELVAN_OK);
        for (int32_t i = 0; i < w * h; ++i) ASSERT_EQ(imageRow(&image, i / w)[i % w], level) << w << 'x' << h;
      }
    }
    TestImage noise(160, 120, IMAGE_UINT8), dst(160, 120, IMAGE_UINT8, 9), zeros(20, 20, IMAGE_UINT8);
    for (int32_t y = 0; y < 20; ++y) std::fill_n(imageRow(&zeros, y), 20, uint8_t{0});
    Filter filter(160, 120, numShrink);
    ASSERT_EQ(filter.run(&dst, &noise, 1e-3f, nullptr, 41), ZELVAN_OK);
    EXPECT_TRUE(samePixels(dst, noise));
    ASSERT_EQ(filter.run(&dst, &noise, 1e6f, &zeros, 41), ZELVAN_OK);
    EXPECT_TRUE(samePixels(dst, noise));
    Filter narrow(20, 20, numShrink);  // windows of one block, so that the variance is exactly 0
    TestImage flat(20, 20, IMAGE_UINT8);
    for (int32_t y = 0; y < 20; ++y) std::fill_n(imageRow(&flat, y), 20, uint8_t{130});
    ASSERT_EQ(narrow.run(nullptr, &flat, 1e6f, &zeros, 3), ZELVAN_OK);
    EXPECT_EQ(imageRow(&flat, 9)[9], 130);
  }
}

TEST(GuidedFilter, RefusesOrPassesThrough) {
  TestImage src(60, 40, IMAGE_YUV420_SEMIPLANAR, 1), dst(60, 40, IMAGE_YUV420_SEMIPLANAR, 2), map(15, 10, IMAGE_UINT8);
  Filter filter(60, 40, 2);
  for (const auto& [epsilon, window] : {std::pair{0.0f, 41}, {1e-12f, 41}, {-1e-12f, 41}, {100.0f, 1}, {100.0f, -5}}) {
    TestImage copy(60, 40, IMAGE_YUV420_SEMIPLANAR, 3);
    EXPECT_EQ(filter.run(&copy, &src, epsilon, &map, window), ZELVAN_OK);
    EXPECT_TRUE(samePixels(copy, src));
    EXPECT_EQ(imageChromaRow(&copy, 19)[58], imageChromaRow(&src, 19)[58]);
    EXPECT_EQ(filter.run(nullptr, &src, epsilon, nullptr, window), ZELVAN_OK);
    EXPECT_TRUE(src.unchanged());
  }
  EXPECT_EQ(filter.run(nullptr, &src, 1.1e-12f, nullptr, 101), ZELVAN_OK);
  EXPECT_EQ(filter.run(&dst, &src, 100, &map, 102), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(filter.run(&dst, nullptr, 100, &map, 41), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(GuidedFilter_execute_with_epsilon_map(filter.get(), &dst, &src, 100, nullptr, 41), ZELVAN_ERROR_PARAM);
  TestImage small(59, 40, IMAGE_UINT8), rgb(60, 40, IMAGE_RGB888), pairs(15, 10, IMAGE_UINT88);
  EXPECT_EQ(filter.run(&dst, &small, 100, &map, 41), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(filter.run(&small, &src, 100, &map, 41), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(filter.run(&dst, &rgb, 100, &map, 41), ZELVAN_ERROR_UNSUPPORTED);
  EXPECT_EQ(filter.run(&dst, &src, 100, &pairs, 41), ZELVAN_ERROR_UNSUPPORTED);
  for (const ImageRect& rect : {ImageRect{8, 8, 8, 20}, {0, 20, 30, 10}, {-8, 0, 20, 20}, {64, 0, 70, 20}}) {
    EXPECT_EQ(GuidedFilter_setRect(filter.get(), &rect), ZELVAN_OK);
    EXPECT_EQ(filter.run(&dst, &src, 100, &map, 41), ZELVAN_ERROR_PARAM);
  }
  EXPECT_EQ(GuidedFilter_setRect(filter.get(), nullptr), ZELVAN_OK);
  EXPECT_EQ(filter.run(&dst, &src, 100, &map, 41), ZELVAN_ERROR_PARAM);
  for (const Form form : {Form::kTwoStep, Form::kTwoStepLite, Form::kStepByStep}) {
    EXPECT_EQ(Filter(60, 40, 0).run(&dst, &src, 100, nullptr, 9, form), ZELVAN_ERROR_UNSUPPORTED);
  }
  EXPECT_EQ(GuidedFilter_execute_second_step(Filter(60, 40, 0).get(), &dst, &src, 100, 9), ZELVAN_ERROR_UNSUPPORTED);
  EXPECT_TRUE(dst.unchanged());
  EXPECT_EQ(GuidedFilter_execute_two_step(Filter(60, 40, 2).get(), &dst, &src, 100, 0, 9), ZELVAN_OK);
  EXPECT_TRUE(samePixels(dst, src));
  EXPECT_EQ(Filter(60, 40, 3).run(&dst, &src, 100, &map, 41), ZELVAN_ERROR_UNSUPPORTED);
  EXPECT_EQ(Filter(60, 40, 40).run(&dst, &src, 100, &map, 41), ZELVAN_ERROR_PARAM);
}

TEST(GuidedFilter, TakesNoMoreThanItSaysAndGivesItBackWhenTheArenaEnds) {
  for (const int32_t numShrink : {0, 2}) {
    const GuidedFilterParam param = {1, numShrink};
    TestImage src(44, 36, IMAGE_UINT8), map(9, 9, IMAGE_UINT8);
    int32_t refusedInit = 0, refusedRun = 0;
    bool done = false;
    for (uint32_t size = 64; !done; size += 16) {
      TestArena arena(size);
      GuidedFilter filter;
      ASSERT_EQ(construct_GuidedFilter(&filter, arena.env()), ZELVAN_OK);
      Status status = GuidedFilter_init(&filter, 44, 36, &param);
      if (status != ZELVAN_OK) {
        ++refusedInit;
        EXPECT_EQ(arena.used(), 0u);
      } else {
        const uint32_t before = arena.used();
        status = GuidedFilter_execute_with_epsilon_map(&filter, nullptr, &src, 100, &map, 21);
        if (status != ZELVAN_OK) ++refusedRun;
        EXPECT_EQ(arena.used(), before);
        // Each block costs up to 23 bytes more than its size.
        EXPECT_LE(Heap2_getMaxUsedSize(&arena.env()->heap),
                  static_cast<uint32_t>(GuidedFilter_getBufferSize(44, 36, 0, &param)) + 20 * 23);
        EXPECT_EQ(GuidedFilter_recycle(&filter), ZELVAN_OK);
        EXPECT_EQ(arena.used(), 0u);
        EXPECT_EQ(GuidedFilter_execute(&filter, nullptr, &src, 100, 21), ZELVAN_ERROR_PARAM);
      }
      done = status == ZELVAN_OK;
      if (!done) {
        ASSERT_EQ(status, ZELVAN_ERROR_NOMEM);
      }
      EXPECT_EQ(destruct_GuidedFilter(&filter), ZELVAN_OK);
    }
    EXPECT_GT(refusedInit, 100);
    EXPECT_GT(refusedRun, 0);
  }
}

// Quotients that leave the range of integers saturate there, and what is no number counts as 0; the low byte is kept.
TEST(GuidedFilterCoeff, StoresTheLowByteOfSaturatedQuotients) {
  struct Quotient {
    uint8_t guide;
    uint16_t square;
    float epsilon;
    uint8_t a, b;
  };
  TestArena arena;
  for (const Quotient& q : {Quotient{0, 1, -1, 255, 0}, {0, 0, 0, 0, 0}, {2, 0, 4, 0, 255}, {3, 25, 16, 64, 2}}) {
    GuidedFilterCoeff coeff;
    ASSERT_EQ(construct_GuidedFilterCoeff(&coeff, arena.env()), ZELVAN_OK);
    ASSERT_EQ(GuidedFilterCoeff_init(&coeff, 40, 1, 101), ZELVAN_OK);
    TestImage a(40, 1, IMAGE_UINT8), b(40, 1, IMAGE_UINT8), guide(40, 1, IMAGE_UINT8), square(40, 1, IMAGE_UINT16);
    std::fill_n(imageRow(&guide, 0), 40, q.guide);
    std::fill_n(imageRow<uint16_t>(&square, 0), 40, q.square);
    EXPECT_EQ(GuidedFilterCoeff_calcCoeff(&coeff, &a, &b, &guide, &square, q.epsilon, 1), ZELVAN_OK);
    for (int32_t x = 0; x < 40; ++x) {
      EXPECT_EQ(a.plane0[x], q.a) << x;
      EXPECT_EQ(b.plane0[x], q.b) << x;
    }
    EXPECT_EQ(destruct_GuidedFilterCoeff(&coeff), ZELVAN_OK);
  }
}

TEST(GuidedFilterCoeff, RefusesImagesThatDoNotFit) {
  TestArena arena;
  GuidedFilterCoeff coeff;
  ASSERT_EQ(construct_GuidedFilterCoeff(&coeff, arena.env()), ZELVAN_OK);
  ASSERT_EQ(GuidedFilterCoeff_init(&coeff, 20, 12, 25), ZELVAN_OK);
  EXPECT_EQ(GuidedFilterCoeff_getBufferSize(20, 12, 25), 20 * 12 * (8 + 2 + 4 + 4 + 1) + 20 * 2);
  TestImage a(20, 12, IMAGE_UINT8), b(20, 12, IMAGE_UINT8), guide(20, 12, IMAGE_UINT16, 1, 4);
  TestImage square(20, 12, IMAGE_INT32, 1, 4), narrow(18, 12, IMAGE_UINT8), map(20, 12, IMAGE_UINT8);
  TestImage wide(20, 12, IMAGE_UINT16, 1, 4);
  const auto refuses = [&](Status expected, Image* a, Image* guide, Image* square, const Image* map) {
    EXPECT_EQ(GuidedFilterCoeff_calcCoeff_with_epsilon_map(&coeff, a, &b, guide, square, 9.0f, map, 11), expected);
  };
  refuses(ZELVAN_ERROR_PARAM, &narrow, &guide, &square, &map);
  refuses(ZELVAN_ERROR_PARAM, &a, &guide, &square, &narrow);
  refuses(ZELVAN_ERROR_PARAM, &a, &guide, &square, nullptr);
  refuses(ZELVAN_ERROR_UNSUPPORTED, &wide, &guide, &square, &map);
  refuses(ZELVAN_ERROR_UNSUPPORTED, &a, &square, &square, &map);
  refuses(ZELVAN_ERROR_UNSUPPORTED, &a, &guide, &a, &map);
  GuidedFilterCoeff_setNumShrink(&coeff, 3);
  refuses(ZELVAN_ERROR_UNSUPPORTED, &a, &guide, &square, &map);
  const ImageRect beyond = {2, 0, 22, 12};
  GuidedFilterCoeff_setNumShrink(&coeff, 2);
  GuidedFilterCoeff_setRect(&coeff, &beyond);
  refuses(ZELVAN_ERROR_PARAM, &a, &guide, &square, &map);
  EXPECT_TRUE(a.unchanged() && b.unchanged());
  EXPECT_EQ(destruct_GuidedFilterCoeff(&coeff), ZELVAN_OK);
}

}  // namespace
