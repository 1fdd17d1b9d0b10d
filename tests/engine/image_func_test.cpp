#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>

#include "base/raw_double.h"
#include "engine/image_func.h"
#include "imageproc/resize.h"
#include "support/test_executor.h"
#include "support/test_image.h"
#include "support/test_pel.h"

namespace {

constexpr int32_t kVu = IMAGE_YVU420_SEMIPLANAR;
constexpr int32_t kUv = IMAGE_YUV420_SEMIPLANAR;
constexpr int32_t kSizes[][2] = {{64, 48}, {37, 21}, {130, 66}, {8, 4}, {7, 7}, {2, 2}, {1, 1}, {3, 90}};

class ImageFunc : public testing::Test {
 protected:
  // The same call without a pool and on pools of several sizes.
  void everyExecutor(const std::function<void(ParallelExecutor*)>& call) {
    call(nullptr);
    for (TestExecutor& executor : executors_) call(executor.get());
  }
  TestArena arena_;
  TestPel pel_{3};
  TestExecutor executors_[3] = {TestExecutor(1), TestExecutor(3), TestExecutor(2, 5)};
};

int32_t byteAt(const TestImage& image, int32_t p, int64_t x, int64_t y) {
  return image.row(p, static_cast<int32_t>(y))[x];
}

TEST_F(ImageFunc, TableMapsTheFirstPlane) {
  uint8_t table[256];
  for (int32_t i = 0; i < 256; ++i) table[i] = static_cast<uint8_t>(i * 7 + 3);
  for (const auto& size : kSizes) {
    TestImage dst(size[0], size[1], kVu, 1), expected(size[0], size[1], kVu, 1);
    const TestImage src(size[0] + 3, size[1], kVu, 2);
    for (int32_t y = 0; y < size[1]; ++y) {
      for (int32_t x = 0; x < size[0]; ++x) expected.row(0, y)[x] = table[src.row(0, y)[x]];
    }
    EXPECT_EQ(Tessal4ImageFunc_table(pel_.get(), &dst, &src, table), ZELVAN_OK);
    EXPECT_TRUE(dst.sameBytes(expected));
  }
}

int64_t distanceVu(int64_t dY, int64_t dU, int64_t dV, const int32_t* w) {
  const int64_t r = (dV * 45940 + 16384) >> 15;
  const int64_t g = ((dU * -11272 + 16384) >> 15) + ((dV * -23396 + 16384) >> 15);
  const int64_t b = (dU * 58064 + 16384) >> 15;
  const int64_t m = std::max((std::abs(dY + r) * w[0]) >> 13, std::abs(dY + g));
  const int64_t n = std::abs(dY + b);
  const int64_t value = ((m * w[1]) >> 13) < ((n * w[2]) >> 13) ? n * w[2] : m * w[1];
  return std::clamp<int64_t>(value >> 13, 0, 255);
}

int64_t distanceUv(int64_t dY, int64_t dU, int64_t dV) {
  const int64_t r = (dV * 45941 + 16384) >> 15;
  const int64_t g = (dV * -23396 + dU * -11272 + 16384) >> 15;
  const int64_t b = (dU * 58065 + 16384) >> 15;
  const int64_t p = dY + (std::abs(dY + r) < std::abs(dY + g) ? g : r);
  const int64_t q = dY + b;
  const int64_t t = ((std::abs(p) * 900) >> 10) < ((std::abs(q) * 900) >> 10) ? q : p;
  return std::min<int64_t>((std::abs(t) * 900) >> 10, 255);
}

TEST_F(ImageFunc, DiffMatchesPixelByPixel) {
  constexpr int32_t kWeights[][3] = {{8192, 8192, 8192}, {3000, 5000, 9000}, {0, 20000, 1}, {16384, 4000, 4100}};
  for (const int32_t format : {kVu, kUv}) {
    for (const auto& size : kSizes) {
      for (const auto& weights : kWeights) {
        const TestImage a(size[0], size[1], format, 3), b(size[0], size[1], format, 4);
        const TestImage expected(size[0], size[1], IMAGE_UINT8, 5);
        for (int32_t y = 0; y < size[1] / 2 * 2; ++y) {
          uint8_t* row = expected.row(0, y);
          for (int32_t x = 0; x < size[0] / 2 * 2; ++x) {
            const int32_t dY = byteAt(a, 0, x, y) - byteAt(b, 0, x, y);
            const int32_t first = byteAt(a, 1, x / 2 * 2, y / 2) - byteAt(b, 1, x / 2 * 2, y / 2);
            const int32_t second = byteAt(a, 1, x / 2 * 2 + 1, y / 2) - byteAt(b, 1, x / 2 * 2 + 1, y / 2);
            row[x] = static_cast<uint8_t>(format == kVu ? distanceVu(dY, second, first, weights)
                                                        : distanceUv(dY, first, second));
          }
          if (size[0] % 2 == 1 && size[0] > 1) row[size[0] - 1] = row[size[0] - 2];
        }
        everyExecutor([&](ParallelExecutor* executor) {
          TestImage dst(size[0], size[1], IMAGE_UINT8, 5);
          EXPECT_EQ(Tessal4ImageFunc_diff(executor, &dst, &a, &b, weights), ZELVAN_OK);
          EXPECT_TRUE(dst.sameBytes(expected)) << format << " width " << size[0];
        });
      }
    }
  }
  const TestImage luma(8, 8, IMAGE_UINT8);
  TestImage dst(8, 8, IMAGE_UINT8);
  EXPECT_EQ(Tessal4ImageFunc_diff(nullptr, &dst, &luma, &luma, kWeights[0]), ZELVAN_ERROR_UNSUPPORTED);
  EXPECT_TRUE(dst.unchanged());
}

// curve(c, channel): the new 8-bit value of the value c of red (0), green (1) or blue (2).
void referenceCurve(const TestImage& image, const std::function<int64_t(int64_t, int32_t)>& curve) {
  const int32_t byteOfU = image.format == kUv ? 0 : 1;
  for (int32_t blockY = 0; blockY < image.height; blockY += 2) {
    for (int32_t blockX = 0; blockX < image.width; blockX += 2) {
      uint8_t* const chroma = image.row(1, blockY / 2) + blockX;
      const int64_t u = (chroma[byteOfU] - 128) * 16, v = (chroma[1 - byteOfU] - 128) * 16;
      const int64_t offsets[3] = {(v * 0x59ba + 0x4000) >> 15, (v * -0x2db2 + u * -0x1604 + 0x4000) >> 15,
                                  (u * 0x7168 + 0x4000) >> 15};
      const auto out = [](int64_t x) { return static_cast<uint8_t>(x < 0x800 ? x >> 3 : 255); };
      for (int32_t y = blockY; y < std::min(blockY + 2, image.height); ++y) {
        for (int32_t x = blockX; x < std::min(blockX + 2, image.width); ++x) {
          uint8_t* const luma = image.row(0, y) + x;
          int64_t rgb[3];
          for (int32_t c = 0; c < 3; ++c) {
            rgb[c] = curve(std::clamp<int64_t>((offsets[c] + 8 * *luma + 4) >> 3, 0, 255), c);
          }
          *luma = out(((rgb[1] * 0x25910 + 0x4000) >> 15) + ((rgb[0] * 0x13220 + 0x4000) >> 15) +
                      ((rgb[2] * 0x74b0 + 0x4000) >> 15) + 4);
          if (y != blockY || x != blockX) continue;
          const auto product = [](int64_t value, int64_t factor) { return (value * factor + 0x4000) >> 15; };
          const int64_t newV = 4 * rgb[0] + 0x400 + product(rgb[1], -0x1ad00) + product(rgb[2], -0x52f0);
          const int64_t newU = 4 * rgb[2] + 0x400 + product(rgb[1], -0x152f0) + product(rgb[0], -0xad00);
          chroma[1 - byteOfU] = out((newV & 0xffff) + 4);
          chroma[byteOfU] = out((newU & 0xffff) + 4);
        }
      }
    }
  }
}

TEST_F(ImageFunc, CurvesMatchPixelByPixelInPlace) {
  constexpr double kCurves[][3] = {{1, 1, 0}, {1.2, 0.45, -8}, {0.7, 2.2, 40}, {3, 1, 0}, {-1, 1, 255}};
  constexpr double kRecords[12] = {1, 0.8, 0, 0, 1.1, 1, 0.02, -0.05, 0.9, 1.3, 0.1, 0.2};
  const auto clamped = [](double t) { return static_cast<int64_t>(std::clamp(t, 0.0, 255.0)); };
  const auto byRecord = [&](int64_t c, int32_t channel) {
    const double* p = kRecords + 4 * channel;
    return clamped(255 * (p[0] * RawDouble_incomplete_pow(static_cast<double>(c) / 255 + p[2], p[1]) + p[3]));
  };
  for (const int32_t format : {kVu, kUv}) {
    for (const auto& size : kSizes) {
      const auto compare = [&](const TestImage& expected, const auto& call) {
        everyExecutor([&](ParallelExecutor* executor) {
          TestImage image(size[0], size[1], format, 6);
          EXPECT_EQ(call(executor, &image), ZELVAN_OK);
          EXPECT_TRUE(image.sameBytes(expected)) << format << " width " << size[0];
        });
      };
      for (const auto& curve : kCurves) {
        int64_t points[33];
        for (int32_t i = 0; i < 33; ++i) {
          points[i] = clamped(curve[2] + 255 * curve[0] * RawDouble_incomplete_pow(i * 8 / 255.0, curve[1]));
        }
        const TestImage expected(size[0], size[1], format, 6);
        referenceCurve(expected, [&](int64_t c, int32_t) {
          return ((8 - (c & 7)) * points[c >> 3] + (c & 7) * points[(c >> 3) + 1] + 4) >> 3;
        });
        compare(expected, [&](ParallelExecutor* executor, Image* image) {
          return Tessal4ImageFunc_gamma(executor, image, image, curve);
        });
      }
      const TestImage expected(size[0], size[1], format, 6);
      referenceCurve(expected, byRecord);
      compare(expected, [&](ParallelExecutor* executor, Image* image) {
        return Tessal4ImageFunc_gammaRGB(executor, image, image, kRecords);
      });
    }
  }
}

// Where a source of odd size has no further chroma, its last pair or row repeats.
void referenceShrink(const TestImage& dst, const TestImage& src, int32_t factor) {
  for (int32_t p = 0; p < imagePlaneCount(dst.format); ++p) {
    const int32_t channels = p + 1;
    for (int32_t y = 0; y < (p == 0 ? dst.height / 2 * 2 : dst.height / 2); ++y) {
      for (int32_t x = 0; x < dst.pixelBytes(p); ++x) {
        int32_t sum = 0;
        for (int32_t j = 0; j < factor * factor; ++j) {
          const int32_t sx = std::min(x / channels * factor + j % factor, src.pixelBytes(p) / channels - 1);
          sum += byteAt(src, p, sx * channels + x % channels, std::min(y * factor + j / factor, src.pixelRows(p) - 1));
        }
        const bool cut = p == 0 && factor == 2 && x >= dst.width / 8 * 8;
        dst.row(p, y)[x] = static_cast<uint8_t>((sum + (cut ? 0 : factor * factor / 2)) / (factor * factor));
      }
    }
  }
}

TEST_F(ImageFunc, ShrinksMatchPixelByPixel) {
  for (const int32_t format : {kVu, kUv, +IMAGE_UINT8, +IMAGE_YUV420_PLANAR}) {
    const bool semiplanar = format == kVu || format == kUv;
    for (const auto& size : kSizes) {
      const TestImage untouched(size[0], size[1], format, 7);
      for (const int32_t factor : {2, 4}) {
        const TestImage src(size[0] * factor + 1, size[1] * factor, format, 8), expected(size[0], size[1], format, 7);
        referenceShrink(expected, src, factor);
        everyExecutor([&](ParallelExecutor* executor) {
          TestImage dst(size[0], size[1], format, 7);
          const auto shrink = factor == 2 ? Tessal4ImageFunc_shrink2 : Tessal4ImageFunc_shrink4;
          EXPECT_EQ(shrink(executor, &dst, &src), ZELVAN_OK);
          EXPECT_TRUE(dst.sameBytes(semiplanar ? expected : untouched)) << format << ' ' << size[0] << ' ' << factor;
        });
        if (factor == 4) continue;
        TestImage dst(size[0], size[1], format, 7);
        EXPECT_EQ(Tessal4ImageFunc_shrink2_PEL(pel_.get(), &dst, &src), ZELVAN_OK);
        EXPECT_TRUE(dst.sameBytes(semiplanar || format == IMAGE_UINT8 ? expected : untouched));
      }
    }
  }
}

// The road of each size: by four, by two, and the rest by resizing, as single calls.
TEST_F(ImageFunc, ShrinkImageGoesThroughTheStepsOfItsRatios) {
  struct Case {
    int32_t width, height, format;
    int32_t between[2][3];  // width, height, factor of the steps in front of the last one; 0 for none
    bool halved;            // the last step halves, else it resizes
  };
  constexpr Case kCases[] = {
      {64, 48, kVu, {}, true},
      {96, 72, kUv, {{48, 36, 2}}, false},
      {100, 90, kVu, {{50, 44, 2}}, false},
      {160, 120, kVu, {{40, 30, 4}}, false},
      {258, 200, kVu, {{64, 50, 4}}, false},
      {1100, 800, kUv, {{274, 200, 4}, {68, 50, 4}}, false},
      {256, 192, IMAGE_UINT8, {{128, 96, 2}, {64, 48, 2}}, true},
      {512, 96, kVu, {{128, 24, 4}}, false},
      {32, 24, kVu, {}, false},
  };
  for (const Case& c : kCases) {
    constexpr int32_t kWidth = 32, kHeight = 24;
    TestImage src(c.width, c.height, c.format, 9), expected(kWidth, kHeight, c.format, 10);
    std::vector<std::unique_ptr<TestImage>> steps;
    TestImage* from = &src;
    for (const auto& b : c.between) {
      if (b[2] == 0) continue;
      steps.push_back(std::make_unique<TestImage>(b[0], b[1], c.format, 11));
      referenceShrink(*steps.back(), *from, b[2]);
      from = steps.back().get();
    }
    if (c.halved) {
      referenceShrink(expected, *from, 2);
    } else {
      ImageProc proc;
      construct_ImageProc(&proc, arena_.env());
      EXPECT_EQ(ImageProc_resizeImage(&proc, &expected, from), ZELVAN_OK);
      destruct_ImageProc(&proc);
    }
    everyExecutor([&](ParallelExecutor* executor) {
      TestImage dst(kWidth, kHeight, c.format, 10);
      dst.env = arena_.env();
      EXPECT_EQ(Tessal4ImageFunc_shrinkImage(executor, pel_.get(), &dst, &src), ZELVAN_OK);
      EXPECT_TRUE(dst.sameBytes(expected)) << c.width << 'x' << c.height;
    });
  }
}

std::vector<int64_t> taps7(double sigma) {
  std::vector<double> g;
  double sum = 0;
  for (int32_t i = -3; i <= 3; ++i) g.push_back(std::exp(-i * i / (2 * sigma * sigma)));
  for (const double v : g) sum += v;
  std::vector<int64_t> k;
  for (const double v : g) k.push_back(static_cast<int64_t>(v * 32768.0 / sum + 0.5));
  k[3] = 32768 - 2 * (k[0] + k[1] + k[2]);
  return k;
}

// One horizontally filtered value; x counts bytes of channels interleaved ones.
int64_t filtered(const Image& src, const std::vector<int64_t>& k, int64_t x, int64_t y, int32_t channels) {
  const uint8_t* row = imageRow(&src, static_cast<int32_t>(std::clamp<int64_t>(y, 0, src.height - 1)));
  int64_t sum = 512;
  for (int32_t i = -3; i <= 3; ++i) {
    sum += k[i + 3] * row[std::clamp<int64_t>(x / channels + i, 0, src.width - 1) * channels + x % channels];
  }
  return sum >> 10;
}

TEST_F(ImageFunc, BlursMatchPixelByPixelInPlace) {
  for (const int32_t channels : {1, 2}) {
    const auto blur = channels == 1 ? Tessal4ImageFunc_blur_uint8 : Tessal4ImageFunc_blur_uint88;
    for (const auto& size : kSizes) {
      for (const double sigma : {0.5, 0.98, 2.0, 40.0}) {
        const int32_t format = channels == 1 ? IMAGE_UINT8 : IMAGE_UINT88;
        const TestImage src(size[0], size[1], format, 12), expected(size[0], size[1], format, 12);
        const std::vector<int64_t> k = taps7(sigma);
        for (int32_t y = 0; y < size[1]; ++y) {
          for (int32_t x = 0; x < size[0] * channels; ++x) {
            int64_t sum = 16;
            for (int32_t i = -3; i <= 3; ++i) sum += (k[i + 3] * filtered(src, k, x, y + i, channels) + 0x4000) >> 15;
            expected.row(0, y)[x] = static_cast<uint8_t>(size[0] < 7 ? 0 : sum >> 5);  // narrow: an empty scratch
          }
        }
        everyExecutor([&](ParallelExecutor* executor) {
          TestImage image(size[0], size[1], format, 12);
          EXPECT_EQ(blur(executor, arena_.env(), &image, &image, sigma), ZELVAN_OK);
          EXPECT_TRUE(image.sameBytes(expected)) << channels << " width " << size[0] << " sigma " << sigma;
        });
      }
    }
  }
}

TEST_F(ImageFunc, ScoreIsTheDistanceOfTwoBlurs) {
  for (const auto& size : kSizes) {
    const TestImage image(size[0], size[1], kVu, 13);
    const std::vector<int64_t> wide = taps7(0.7 * std::sqrt(2.0)), narrow = taps7(0.7);
    const auto down = [&](const std::vector<int64_t>& k, int64_t x, int64_t y) {
      const auto at = [&](int64_t row) { return filtered(image, k, x, row, 1); };
      int64_t sum = (k[3] * at(y) + 16384) >> 15;
      for (int32_t j = 0; j < 3; ++j) sum += (k[j] * (at(y - 3 + j) + at(y + 3 - j)) + 16384) >> 15;
      return sum;
    };
    int64_t expected = 0;
    for (int32_t y = 0; y < size[1]; ++y) {
      for (int32_t x = 0; x < size[0]; ++x) expected += std::abs(down(narrow, x, y) - down(wide, x, y));
    }
    const bool refused = size[0] < 7;
    everyExecutor([&](ParallelExecutor* executor) {
      uint32_t score = 99;
      EXPECT_EQ(Tessal4ImageFunc_evalBlur(executor, arena_.env(), &score, &image, 0, 0, 0.7 * std::sqrt(2.0), 0.7),
                refused ? ZELVAN_ERROR_PARAM : ZELVAN_OK);
      EXPECT_EQ(score, refused ? 0u : static_cast<uint32_t>(expected)) << "width " << size[0];
    });
  }
}

}  // namespace
