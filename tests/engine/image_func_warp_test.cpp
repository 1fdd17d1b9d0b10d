#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>

#include "engine/image_func.h"
#include "engine/warp_rows.h"
#include "support/test_executor.h"
#include "support/test_image.h"
#include "support/test_pel.h"

namespace {

// Slow references: pixel by pixel, in 64 bits, with every rule spelled out. They write into an image of the same
// initial bytes as the one under test, so that all bytes can be compared, those that must stay included.

int64_t q15(double value) {
  if (std::isnan(value)) return 0;
  return static_cast<int64_t>(std::trunc(std::clamp(value, -2147483648.0, 2147483647.0)));
}

int64_t wrap32(int64_t value) {
  return static_cast<int32_t>(static_cast<uint32_t>(value));
}

struct Line {
  int64_t x, y, dx, dy;
  std::array<int64_t, 2> at(int64_t k) const { return {wrap32(x + k * dx), wrap32(y + k * dy)}; }
};

struct Source {
  const uint8_t* base;
  int32_t pitch, width, height, channels;
  int64_t at(int64_t x, int64_t y, int32_t c) const { return base[y * pitch + x * channels + c]; }
  int64_t clamped(int64_t x, int64_t y, int32_t c) const {
    return at(std::clamp<int64_t>(x, 0, width - 1), std::clamp<int64_t>(y, 0, height - 1), c);
  }
  bool outside(int64_t x, int64_t y) const { return x < 0 || y < 0 || x >= width || y >= height; }
};

enum class Weights { kCoarse, kFine };

int64_t bilinear(const Source& s, Weights weights, int64_t px, int64_t py, int32_t c) {
  const int64_t x = px >> 15, y = py >> 15;
  const int64_t p = s.clamped(x, y, c), q = s.clamped(x + 1, y, c);
  const int64_t r = s.clamped(x, y + 1, c), t = s.clamped(x + 1, y + 1, c);
  if (weights == Weights::kCoarse) {
    const int64_t fx = (px >> 8) & 127, fy = (py >> 8) & 127;
    return (((128 - fx) * p + fx * q) * (128 - fy) + ((128 - fx) * r + fx * t) * fy + 8192) >> 14;
  }
  const int64_t fx = px & 0x7fff, fy = py & 0x7fff;
  const int64_t top = (p * (0x8000 - fx) + q * fx) >> 10;
  const int64_t bottom = (r * (0x8000 - fx) + t * fx) >> 10;
  return (top * (0x8000 - fy) + bottom * fy) >> 20;
}

// The last row and column by the nearest sample; -1 outside.
int64_t checkedSample(const Source& s, Weights weights, int64_t px, int64_t py, int32_t c) {
  const int64_t x = px >> 15, y = py >> 15;
  if (s.outside(x, y)) return -1;
  return x > s.width - 2 || y > s.height - 2 ? s.at(x, y, c) : bilinear(s, weights, px, py, c);
}

// visit(x, n, upper line, lower line, chroma line, unchecked form) for each span of the rows y, y + 1.
template <typename Visit>
void forSpans(const Mvec8Real& motion, const Image& src, int32_t y, int32_t width, const Visit& visit) {
  const double* m = motion.h;
  double X = m[1] * y + m[2], Y = m[4] * y + m[5], W = m[7] * y + m[8];
  const auto ends = [&] {
    return std::array<int64_t, 4>{q15(X * 32768.0 / W), q15(Y * 32768.0 / W), q15((X + m[1]) * 32768.0 / (W + m[7])),
                                  q15((Y + m[4]) * 32768.0 / (W + m[7]))};
  };
  const auto good = [&](const std::array<int64_t, 4>& e) {
    return (e[0] >> 15) >= 0 && (e[0] >> 15) <= src.width - 8 && (e[1] >> 15) >= 0 && (e[1] >> 15) <= src.height - 2 &&
           (e[2] >> 15) >= 0 && (e[2] >> 15) <= src.width - 8 && (e[3] >> 15) >= 0 && (e[3] >> 15) <= src.height - 2;
  };
  std::array<int64_t, 4> from = ends();
  bool before = false;
  for (int32_t x = 0; x < width; x += 256) {
    const int32_t n = std::min(256, width - x);
    X += m[0] * n;
    Y += m[3] * n;
    W += m[6] * n;
    const std::array<int64_t, 4> to = ends();
    Line lines[2];
    for (int r = 0; r < 2; ++r) {
      lines[r] = {from[2 * r], from[2 * r + 1], wrap32((to[2 * r] - from[2 * r]) / n),
                  wrap32((to[2 * r + 1] - from[2 * r + 1]) / n)};
    }
    const Line chroma = {(lines[0].x + lines[1].x + 2) >> 2, (lines[0].y + lines[1].y + 2) >> 2,
                         ((lines[0].dx + lines[1].dx + 2) >> 2) * 2, ((lines[0].dy + lines[1].dy + 2) >> 2) * 2};
    const bool passed = good(from) && good(to);
    visit(x, n, lines[0], lines[1], chroma, passed && before);
    before = passed;
    from = to;
  }
}

Source lumaOf(const Image& i) {
  return {i.plane0, i.pitch0, i.width, i.height, 1};
}
Source chromaOf(const Image& i) {
  return {i.plane1, i.pitch1, i.width / 2, i.height / 2, 2};
}

void referenceRender(const TestImage& dst, const Image& src, const Mvec8Real& motion) {
  for (int32_t y = 0; y + 1 < dst.height; y += 2) {
    forSpans(motion, src, y, dst.width, [&](int32_t x, int32_t n, Line a, Line b, Line chroma, bool unchecked) {
      const auto fill = [&](uint8_t* out, const Source& s, const Line& line, int32_t count, int64_t beyond) {
        for (int32_t k = 0; k < count; ++k) {
          for (int32_t c = 0; c < s.channels; ++c) {
            const auto [px, py] = line.at(k);
            const int64_t v =
                unchecked ? bilinear(s, Weights::kCoarse, px, py, c) : checkedSample(s, Weights::kFine, px, py, c);
            out[k * s.channels + c] = static_cast<uint8_t>(v < 0 ? beyond : v);
          }
        }
      };
      fill(dst.row(0, y) + x, lumaOf(src), a, n, 0);
      fill(dst.row(0, y + 1) + x, lumaOf(src), b, n, 0);
      if (dst.format != IMAGE_UINT8) fill(dst.row(1, y / 2) + x, chromaOf(src), chroma, n / 2, 0x80);
    });
  }
}

int64_t floorDiv(int64_t a, int64_t b) {
  return a / b - (a % b < 0 ? 1 : 0);
}

// Weight of pixel x in row pair j.
int64_t mapWeight(const Image& map, int32_t accW, int32_t accH, int64_t x, int64_t j) {
  const auto stretched = [&](int64_t row) -> int64_t {
    const uint8_t* values = imageRow(&map, static_cast<int32_t>(row));
    const int64_t s = int64_t{map.width} * 32768 / accW;
    const int64_t p = (int64_t{map.width} - accW) * 32768 / (2 * accW) + x * s;
    if (p < 0) return values[0];
    if (p >= int64_t{map.width - 1} * 32768) return values[map.width - 1];
    const int64_t i = p / 32768, f = p % 32768;
    return ((0x8000 - f) * values[i] + f * values[i + 1] + 0x4000) >> 15;
  };
  const int64_t v = (map.height - accH + 2 * (2 * j + 1) * map.height) * 32768 / (2 * accH);
  const int64_t row = floorDiv(v, 32768);
  const int64_t wv = (v - row * 32768 + 128) / 256;
  return (wv * stretched(std::clamp<int64_t>(row + 1, 0, map.height - 1)) +
          (128 - wv) * stretched(std::clamp<int64_t>(row, 0, map.height - 1)) + 64) >>
         7;
}

void blendByte(uint8_t* acc, int64_t w, int64_t sample) {
  *acc = static_cast<uint8_t>((w * *acc + (128 - w) * sample + 64) >> 7);
}

void referenceAccum(const TestImage& acc, const Image& src, const Mvec8Real& motion, const Image& map) {
  for (int32_t y = 0; y + 1 < acc.height; y += 2) {
    forSpans(motion, src, y, acc.width, [&](int32_t x, int32_t n, Line a, Line b, Line chroma, bool) {
      const auto blend = [&](uint8_t* out, const Source& s, const Line& line, int32_t count, Weights weights) {
        for (int32_t k = 0; k < count; ++k) {
          for (int32_t c = 0; c < s.channels; ++c) {
            const auto [px, py] = line.at(k);
            const int64_t v = checkedSample(s, weights, px, py, c);
            const int64_t w = mapWeight(map, acc.width, acc.height, x + k * s.channels, y / 2);
            if (v >= 0) blendByte(out + k * s.channels + c, w, v);
          }
        }
      };
      blend(acc.row(0, y) + x, lumaOf(src), a, n, Weights::kCoarse);
      blend(acc.row(0, y + 1) + x, lumaOf(src), b, n, Weights::kCoarse);
      if (acc.format != IMAGE_UINT8) blend(acc.row(1, y / 2) + x, chromaOf(src), chroma, n / 2, Weights::kFine);
    });
  }
}

void weightMap(TestImage* map) {
  for (int32_t y = 0; y < map->height; ++y) {
    for (int32_t x = 0; x < map->width; ++x) map->row(0, y)[x] = static_cast<uint8_t>(map->row(0, y)[x] * 129 / 256);
  }
}

constexpr Mvec8Real affine(double a, double b, double c, double d, double e, double f) {
  return {{a, b, c, d, e, f, 0, 0, 1}, {}};
}
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
const Mvec8Real kMotions[] = {
    affine(1, 0, 0, 0, 1, 0),
    affine(1, 0, 2, 0, 1, -0.5),  // chroma of unchecked spans on its last row
    affine(1, 0, 3.7, 0, 1, 1.3),
    affine(1, 0, 0.2, 0, 1, 3),                   // rows that leave at the bottom
    affine(0.9995, -0.013, 4, 0.013, 0.9995, 2),  // a small rotation
    affine(1.004, 0.002, -1.25, -0.002, 1.004, -0.7),
    affine(0.4, 0.1, 9, 0.05, 0.45, 3),
    affine(-1, 0, 500, 0, -1, 40),  // steps far from one pixel
    affine(0, 1, 0, 1, 0, 0),
    affine(2.5, 0, -7, 0, 2.5, -7),
    {{1.01, 0.01, -3, -0.008, 0.99, 4, 2e-5, -3e-5, 1.002}, {}},
    {{0.5, 0, 8, 0, 0.5, 3, 0, 0, 0.5}, {}},
    {{1, 0, 0, 0, 1, 0, 0.01, 0, -1}, {}},  // W crosses 0
    affine(1, 0, 1e5, 0, 1, 1e7),           // saturated positions
    affine(1, 0, -1e7, 0, 1, -1e5),
    affine(3e5, 0, -6e7, 0, -3e5, 6e6),  // positions that wrap
    affine(1, 0, kNan, 0, 1, 2),
};

struct Shape {
  int32_t width, height, srcWidth, srcHeight;
};
constexpr Shape kShapes[] = {{776, 42, 776, 42}, {521, 23, 530, 27}, {1030, 16, 640, 48}, {256, 6, 300, 9},
                             {257, 8, 257, 8},   {7, 5, 9, 4},       {2, 2, 2, 2},        {1, 3, 1, 3}};
constexpr int32_t kFormats[] = {IMAGE_YVU420_SEMIPLANAR, IMAGE_YUV420_SEMIPLANAR, IMAGE_UINT8};

class ImageFuncWarp : public testing::TestWithParam<int32_t> {
 protected:
  TestArena arena_;
  TestPel pel_{3};
  TestExecutor executor_{3};
};

TEST_P(ImageFuncWarp, RenderMatchesPixelByPixel) {
  for (const Shape& shape : kShapes) {
    const TestImage src(shape.srcWidth, shape.srcHeight, GetParam(), 7);
    for (const Mvec8Real& motion : kMotions) {
      const TestImage expected(shape.width, shape.height, GetParam(), 8);
      referenceRender(expected, src, motion);
      TestImage onPel(shape.width, shape.height, GetParam(), 8);
      TestImage direct(shape.width, shape.height, GetParam(), 8);
      TestImage onExecutor(shape.width, shape.height, GetParam(), 8);
      EXPECT_EQ(Tessal4ImageFunc_render(pel_.get(), arena_.env(), &onPel, &src, &motion), ZELVAN_OK);
      EXPECT_EQ(Tessal4ImageFunc_render(nullptr, arena_.env(), &direct, &src, &motion), ZELVAN_OK);
      EXPECT_EQ(Tessal4ImageFunc_accumWithLuminanceCorrection(executor_.get(), arena_.env(), &onExecutor, &src, 0, 0,
                                                              &motion),
                ZELVAN_OK);
      const auto where = testing::Message() << "width " << shape.width << " motion " << &motion - kMotions;
      EXPECT_TRUE(onPel.sameBytes(expected)) << where;
      EXPECT_TRUE(direct.sameBytes(expected)) << where;
      EXPECT_TRUE(onExecutor.sameBytes(expected)) << where;
    }
  }
}

TEST_P(ImageFuncWarp, RenderAccumMatchesPixelByPixel) {
  constexpr int32_t kMapSizes[][2] = {{97, 6}, {1, 1}, {1500, 60}};
  for (const Shape& shape : kShapes) {
    const TestImage src(shape.srcWidth, shape.srcHeight, GetParam(), 9);
    for (const Mvec8Real& motion : kMotions) {
      const auto index = &motion - kMotions;
      const int32_t* size = kMapSizes[index % 3];
      TestImage map(size[0], size[1], IMAGE_UINT8, 10);
      weightMap(&map);
      const TestImage expected(shape.width, shape.height, GetParam(), 11);
      referenceAccum(expected, src, motion, map);
      TestImage tuned(shape.width, shape.height, GetParam(), 11);
      TestImage plain(shape.width, shape.height, GetParam(), 11);
      EXPECT_EQ(Tessal4ImageFunc_renderAccum(pel_.get(), arena_.env(), &tuned, &src, &motion, &map), ZELVAN_OK);
      EXPECT_EQ(Tessal4ImageFunc_renderAccum2(nullptr, arena_.env(), &plain, &src, &motion, &map), ZELVAN_OK);
      EXPECT_TRUE(tuned.sameBytes(expected)) << "width " << shape.width << " motion " << index;
      EXPECT_TRUE(plain.sameBytes(expected)) << "width " << shape.width << " motion " << index;
    }
  }
}

TEST_P(ImageFuncWarp, UpdateImageBlendsByEachMap) {
  for (const Shape& shape : kShapes) {
    const TestImage frame(shape.width, shape.height, GetParam(), 13);
    TestImage maps[2] = {TestImage(97, 6, IMAGE_UINT8, 14), TestImage(1500, 60, IMAGE_UINT8, 15)};
    for (TestImage& map : maps) weightMap(&map);
    for (const int32_t count : {1, 2}) {
      const TestImage expected(shape.width, shape.height, GetParam(), 16);
      for (int32_t m = 0; m < count; ++m) {
        for (int32_t p = 0; p < (GetParam() == IMAGE_UINT8 ? 1 : 2); ++p) {
          for (int32_t y = 0; y < shape.height / 2 * (2 - p); ++y) {
            for (int32_t x = 0; x < (p == 0 ? shape.width : shape.width / 2 * 2); ++x) {
              const int32_t column = p == 0 ? x : x / 2 * 2;
              const int64_t w = mapWeight(maps[m], shape.width, shape.height, column, p == 0 ? y / 2 : y);
              blendByte(expected.row(p, y) + x, w, frame.row(p, y)[x]);
            }
          }
        }
      }
      for (ParallelExecutor* executor : {static_cast<ParallelExecutor*>(nullptr), executor_.get()}) {
        TestImage dst(shape.width, shape.height, GetParam(), 16);
        EXPECT_EQ(Tessal4ImageFunc_updateImage(executor, arena_.env(), &dst, &frame, &maps[0],
                                               count == 2 ? &maps[1] : nullptr),
                  ZELVAN_OK);
        EXPECT_TRUE(dst.sameBytes(expected)) << "width " << shape.width << " maps " << count;
      }
    }
  }
}

TEST_P(ImageFuncWarp, IdentityAndOutsideKeepTheirPromises) {
  constexpr int32_t kWidth = 530, kHeight = 24;
  const TestImage src(kWidth, kHeight, GetParam(), 17);
  const Mvec8Real identity = kMotions[0];
  for (const uint8_t weight : {0, 128}) {
    const TestImage map(9, 4, IMAGE_UINT8, 18, 0);
    std::fill_n(map.plane0, 9 * 4, weight);
    TestImage acc(kWidth, kHeight, GetParam(), 19), away(kWidth, kHeight, GetParam(), 19);
    EXPECT_EQ(Tessal4ImageFunc_renderAccum(pel_.get(), arena_.env(), &acc, &src, &identity, &map), ZELVAN_OK);
    // The chroma of a row pair is taken between its rows, a quarter of a chroma row down.
    for (int32_t p = 0; p < (weight == 0 ? 1 : imagePlaneCount(GetParam())); ++p) {
      for (int32_t y = 0; y < acc.pixelRows(p); ++y) {
        const uint8_t* expected = (weight == 0 ? src : away).row(p, y);
        EXPECT_TRUE(std::equal(expected, expected + acc.pixelBytes(p), acc.row(p, y))) << p << ' ' << y;
      }
    }
    for (const double shift : {-600.0, 600.0, 1e5, -1e9, 1e9}) {
      const Mvec8Real motion = affine(1, 0, shift, 0, 1, shift);
      EXPECT_EQ(Tessal4ImageFunc_renderAccum(pel_.get(), arena_.env(), &away, &src, &motion, &map), ZELVAN_OK);
      EXPECT_TRUE(away.unchanged()) << shift;
      TestImage dst(kWidth, kHeight, GetParam(), 20);
      EXPECT_EQ(Tessal4ImageFunc_render(pel_.get(), arena_.env(), &dst, &src, &motion), ZELVAN_OK);
      for (int32_t p = 0; p < imagePlaneCount(GetParam()); ++p) {
        const auto isFill = [&](uint8_t byte) { return byte == (p == 0 ? 0 : 0x80); };
        for (int32_t y = 0; y < dst.pixelRows(p); ++y) {
          EXPECT_TRUE(std::all_of(dst.row(p, y), dst.row(p, y) + dst.pixelBytes(p), isFill)) << shift;
        }
      }
    }
  }
}

TEST_P(ImageFuncWarp, NoMemoryLeavesThePicture) {
  TestArena small(2048);
  const TestImage src(776, 20, GetParam()), map(100, 6, IMAGE_UINT8);
  TestImage dst(776, 20, GetParam());
  const Mvec8Real motion = kMotions[0];
  EXPECT_EQ(Tessal4ImageFunc_renderAccum(nullptr, small.env(), &dst, &src, &motion, &map), ZELVAN_ERROR_NOMEM);
  EXPECT_EQ(Tessal4ImageFunc_accumWithLuminanceCorrection(executor_.get(), small.env(), &dst, &src, 0, 0, &motion),
            ZELVAN_ERROR_NOMEM);
  EXPECT_EQ(Tessal4ImageFunc_updateImage(executor_.get(), small.env(), &dst, &src, &map, nullptr), ZELVAN_ERROR_NOMEM);
  EXPECT_TRUE(dst.unchanged());
}

INSTANTIATE_TEST_SUITE_P(Formats, ImageFuncWarp, testing::ValuesIn(kFormats));

// Every build of the row kernels against the formulas, on bytes that favour the extremes.
TEST(ImageFuncWarpRows, AllTablesFollowTheFormulas) {
  constexpr int32_t kMost = 256;
  std::mt19937 random(12);
  const auto byte = [&] { return static_cast<uint8_t>(random() % 3 == 0 ? random() : random() % 2 * 255); };
  for (int32_t round = 0; round < 400; ++round) {
    uint8_t corners[4][kMost + 3], before[kMost + 8], weights[kMost];
    for (auto& row : corners) std::generate(std::begin(row), std::end(row), byte);
    std::generate(std::begin(before), std::end(before), byte);
    for (uint8_t& w : weights) w = static_cast<uint8_t>(random() % 3 != 0 ? random() % 129 : random() % 2 * 128);
    const int32_t offset = static_cast<int32_t>(random() % 4);
    const int32_t count = static_cast<int32_t>(random() % (kMost / 2) + 1) * 2;
    const WarpTaps taps = {{corners[0] + offset, corners[1] + 1, corners[2] + 2, corners[3] + offset}};
    const WarpLine line = {static_cast<int32_t>(random()), static_cast<int32_t>(random()),
                           static_cast<int32_t>(random() % 90000), static_cast<int32_t>(random() % 90000) - 45000};
    const auto expected = [&](Weights kind, int32_t channels, bool blend, uint8_t* out) {
      std::copy_n(before, kMost + 8, out);
      for (int32_t j = 0; j < count; ++j) {
        // The four neighbours as a plane of 2 x 2.
        const uint8_t square[4] = {taps.corner[0][j], taps.corner[1][j], taps.corner[2][j], taps.corner[3][j]};
        const auto [px, py] = Line{line.x, line.y, line.dx, line.dy}.at(j / channels);
        const int64_t v = bilinear({square, 2, 2, 2, 1}, kind, px & 0x7fff, py & 0x7fff, 0);
        if (blend) {
          blendByte(out + 4 + j, weights[j], v);
        } else {
          out[4 + j] = static_cast<uint8_t>(v);
        }
      }
    };
    for (int32_t i = 0; const WarpRows* rows = warpRowsAt(i); ++i) {
      const auto check = [&](const char* kernel, Weights kind, int32_t channels, bool blend, const auto& run) {
        uint8_t out[kMost + 8], want[kMost + 8];
        std::copy_n(before, kMost + 8, out);
        run(out + 4);
        expected(kind, channels, blend, want);
        ASSERT_TRUE(std::equal(std::begin(out), std::end(out), want)) << rows->name << ' ' << kernel << ' ' << count;
      };
      const auto store = [&](WarpRow row) { return [=, &taps](uint8_t* out) { row(out, taps, line, count); }; };
      const auto blend = [&](WarpBlendRow row) {
        return [=, &taps, &weights](uint8_t* out) { row(out, taps, line, weights, count); };
      };
      check("coarseLuma", Weights::kCoarse, 1, false, store(rows->coarseLuma));
      check("coarseChroma", Weights::kCoarse, 2, false, store(rows->coarseChroma));
      check("fineLuma", Weights::kFine, 1, false, store(rows->fineLuma));
      check("fineChroma", Weights::kFine, 2, false, store(rows->fineChroma));
      check("blendLuma", Weights::kCoarse, 1, true, blend(rows->blendLuma));
      check("blendChroma", Weights::kFine, 2, true, blend(rows->blendChroma));
    }
  }
}

}  // namespace
