#include "pixels/image_func.h"

#include <cmath>
#include <limits>

#include "support/pixel_scene.h"

namespace {

constexpr int32_t kVu = IMAGE_YVU420_SEMIPLANAR;
constexpr int32_t kUv = IMAGE_YUV420_SEMIPLANAR;
constexpr int32_t kSizes[][2] = {{64, 48}, {37, 21}, {130, 66}, {8, 4}, {7, 7}, {2, 2}, {1, 1}, {3, 90}};

class ImageFunc : public testing::Test {
 protected:
  // Images of all formats and sizes after call(executor, image): the same with any executor, and of the recorded bits.
  template <typename Call>
  void keepsItsBits(const std::string& name, std::initializer_list<int32_t> formats, const Call& call) {
    SCOPED_TRACE(name);
    test::Hash hash;
    for (const int32_t format : formats) {
      for (const auto& [width, height] : kSizes) {
        const auto make = [&, w = width, h = height] { return std::make_unique<TestImage>(w, h, format, 5); };
        sameOnAll(pools_.all, make, [&](ParallelExecutor* executor, Image* image) {
          EXPECT_EQ(call(executor, image), ZELVAN_OK);
        })->addTo(&hash);
      }
    }
    test::expectGolden("kernels.txt", "image-func." + name, hash);
  }
  TestArena arena_;
  TestPel pel_{3};
  ExecutorPools pools_;
};

TEST_F(ImageFunc, TableMapsTheFirstPlane) {
  uint8_t table[256];
  for (int32_t i = 0; i < 256; ++i) table[i] = static_cast<uint8_t>(i * 7 + 3);
  for (const auto& size : kSizes) {
    TestImage dst(size[0], size[1], kVu, 1), expected(size[0], size[1], kVu, 1);
    const TestImage src(size[0] + 3, size[1], kVu, 2);
    drawPixels(&expected, [&](int32_t x, int32_t y) { return table[src.row(0, y)[x]]; });
    EXPECT_EQ(Tessal4ImageFunc_table(pel_.get(), &dst, &src, table), ZELVAN_OK);
    EXPECT_TRUE(dst.sameBytes(expected));
  }
}

TEST_F(ImageFunc, Diff) {
  constexpr int32_t kWeights[][3] = {{8192, 8192, 8192}, {3000, 5000, 9000}, {0, 20000, 1}, {16384, 4000, 4100}};
  for (const int32_t format : {kVu, kUv}) {
    for (const auto& weights : kWeights) {
      const std::string name = "diff-" + std::to_string(format) + "-" + std::to_string(weights[0]);
      keepsItsBits(name, {IMAGE_UINT8}, [&](ParallelExecutor* executor, Image* dst) {
        const TestImage a(dst->width, dst->height, format, 3), b(dst->width, dst->height, format, 4);
        return Tessal4ImageFunc_diff(executor, dst, &a, &b, weights);
      });
    }
  }
  const TestImage luma(8, 8, IMAGE_UINT8);
  TestImage dst(8, 8, IMAGE_UINT8);
  EXPECT_EQ(Tessal4ImageFunc_diff(nullptr, &dst, &luma, &luma, kWeights[0]), ZELVAN_ERROR_UNSUPPORTED);
  EXPECT_TRUE(dst.unchanged());
}

TEST_F(ImageFunc, CurvesInPlace) {
  constexpr double kCurves[][3] = {{1, 1, 0}, {1.2, 0.45, -8}, {0.7, 2.2, 40}, {3, 1, 0}, {-1, 1, 255}};
  constexpr double kRecords[12] = {1, 0.8, 0, 0, 1.1, 1, 0.02, -0.05, 0.9, 1.3, 0.1, 0.2};
  for (size_t i = 0; i < std::size(kCurves); ++i) {
    keepsItsBits("gamma-" + std::to_string(i), {kVu, kUv}, [&](ParallelExecutor* executor, Image* image) {
      return Tessal4ImageFunc_gamma(executor, image, image, kCurves[i]);
    });
  }
  TestImage luma(8, 8, IMAGE_UINT8);
  EXPECT_EQ(Tessal4ImageFunc_gamma(nullptr, &luma, &luma, kCurves[0]), ZELVAN_ERROR_UNSUPPORTED);
  keepsItsBits("gamma-rgb", {kVu, kUv}, [&](ParallelExecutor* executor, Image* image) {
    return Tessal4ImageFunc_gammaRGB(executor, image, image, kRecords);
  });
}

// The sources have a column more than the factor asks for, so that odd sizes run out of chroma.
TEST_F(ImageFunc, Shrinks) {
  const auto formats = {kVu, kUv, +IMAGE_UINT8, +IMAGE_YUV420_PLANAR};
  const auto from = [](int32_t factor, Image* dst) {
    return TestImage(dst->width * factor + 1, dst->height * factor, dst->format, 8);
  };
  keepsItsBits("shrink2", formats, [&](ParallelExecutor* executor, Image* dst) {
    const TestImage src = from(2, dst);
    return Tessal4ImageFunc_shrink2(executor, dst, &src);
  });
  keepsItsBits("shrink4", formats, [&](ParallelExecutor* executor, Image* dst) {
    const TestImage src = from(4, dst);
    return Tessal4ImageFunc_shrink4(executor, dst, &src);
  });
  keepsItsBits("shrink2-pel", formats, [&](ParallelExecutor*, Image* dst) {
    const TestImage src = from(2, dst);
    return Tessal4ImageFunc_shrink2_PEL(pel_.get(), dst, &src);
  });
}

// By two, by four and the rest by resizing, as the ratios of both sides ask.
TEST_F(ImageFunc, ShrinkImage) {
  constexpr int32_t kCases[][3] = {{64, 48, kVu},   {96, 72, kUv},    {100, 90, kVu},  {160, 120, kVu},
                                   {258, 200, kVu}, {1100, 800, kUv}, {140, 100, kUv}, {256, 192, IMAGE_UINT8},
                                   {512, 96, kVu},  {32, 24, kVu}};
  for (const auto& [width, height, format] : kCases) {
    const TestImage src(width, height, format, 9);
    const auto make = [&, id = format] {
      auto dst = std::make_unique<TestImage>(32, 24, id, 10);
      dst->env = arena_.env();
      return dst;
    };
    test::Hash hash;
    sameOnAll(pools_.all, make, [&](ParallelExecutor* executor, Image* dst) {
      EXPECT_EQ(Tessal4ImageFunc_shrinkImage(executor, pel_.get(), dst, &src), ZELVAN_OK);
    })->addTo(&hash);
    test::expectGolden("kernels.txt", "image-func.shrink-image-" + std::to_string(width), hash);
  }
}

TEST_F(ImageFunc, BlursInPlace) {
  for (const double sigma : {0.5, 0.98, 2.0, 40.0}) {
    const std::string name = std::to_string(static_cast<int32_t>(sigma * 100));
    keepsItsBits("blur-uint8-" + name, {IMAGE_UINT8}, [&](ParallelExecutor* executor, Image* image) {
      return Tessal4ImageFunc_blur_uint8(executor, arena_.env(), image, image, sigma);
    });
    keepsItsBits("blur-uint88-" + name, {IMAGE_UINT88}, [&](ParallelExecutor* executor, Image* image) {
      return Tessal4ImageFunc_blur_uint88(executor, arena_.env(), image, image, sigma);
    });
  }
}

TEST_F(ImageFunc, ScoreMeasuresDetail) {
  TestArena small(2048);
  const TestImage wide(776, 9, IMAGE_UINT8);
  uint32_t none = 9;
  EXPECT_EQ(Tessal4ImageFunc_evalBlur(nullptr, small.env(), &none, &wide, 0, 0, 1.0, 0.7), ZELVAN_ERROR_NOMEM);
  EXPECT_EQ(none, 0u);
  for (const auto& size : kSizes) {
    const TestImage noise(size[0], size[1], kVu, 13);
    const bool narrow = size[0] < 7;
    const auto scoreOf = [&](ParallelExecutor* executor, const Image& image) {
      uint32_t score = 99;
      EXPECT_EQ(Tessal4ImageFunc_evalBlur(executor, arena_.env(), &score, &image, 0, 0, 0.7 * std::sqrt(2.0), 0.7),
                narrow ? ZELVAN_ERROR_PARAM : ZELVAN_OK);
      return score;
    };
    const uint32_t first = scoreOf(nullptr, noise);
    for (ParallelExecutor* executor : pools_.all) EXPECT_EQ(scoreOf(executor, noise), first);
    EXPECT_EQ(first == 0, narrow);
    test::expectGolden("kernels.txt", "image-func.score-" + std::to_string(size[0]),
                       test::Hash().bytes(&first, sizeof(first)));
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
  // run(n, dst, src, motion, map) for all shapes and motions: each way n to do it gives the same bytes, the recorded.
  template <typename Run>
  void keepsItsBits(const std::string& name, int32_t ways, const Run& run) {
    constexpr int32_t kMapSizes[][2] = {{97, 6}, {1, 1}, {1500, 60}};
    test::Hash hash;
    for (const Shape& shape : kShapes) {
      const TestImage src(shape.srcWidth, shape.srcHeight, GetParam(), 7);
      for (const Mvec8Real& motion : kMotions) {
        const auto index = &motion - kMotions;
        TestImage map(kMapSizes[index % 3][0], kMapSizes[index % 3][1], IMAGE_UINT8);
        fillMap(map, 10, 128);
        TestImage first(shape.width, shape.height, GetParam(), 8);
        EXPECT_EQ(run(0, &first, &src, &motion, &map), ZELVAN_OK);
        for (int32_t way = 1; way < ways; ++way) {
          TestImage dst(shape.width, shape.height, GetParam(), 8);
          EXPECT_EQ(run(way, &dst, &src, &motion, &map), ZELVAN_OK);
          EXPECT_TRUE(dst.sameBytes(first)) << name << " width " << shape.width << " motion " << index << ' ' << way;
        }
        first.addTo(&hash);
      }
    }
    test::expectGolden("kernels.txt", "warp." + name + "-" + std::to_string(GetParam()), hash);
  }
  TestArena arena_;
  TestPel pel_{3};
  TestExecutor executor_{3};
};

TEST_P(ImageFuncWarp, Render) {
  keepsItsBits("render", 3, [&](int32_t way, Image* dst, const Image* src, const Mvec8Real* motion, const Image*) {
    return way == 2
               ? Tessal4ImageFunc_accumWithLuminanceCorrection(executor_.get(), arena_.env(), dst, src, 0, 0, motion)
               : Tessal4ImageFunc_render(way == 0 ? nullptr : pel_.get(), arena_.env(), dst, src, motion);
  });
}

TEST_P(ImageFuncWarp, RenderAccum) {
  keepsItsBits("accum", 2, [&](int32_t way, Image* dst, const Image* src, const Mvec8Real* motion, const Image* map) {
    return way == 0 ? Tessal4ImageFunc_renderAccum2(nullptr, arena_.env(), dst, src, motion, map)
                    : Tessal4ImageFunc_renderAccum(pel_.get(), arena_.env(), dst, src, motion, map);
  });
}

TEST_P(ImageFuncWarp, UpdateImageBlendsByEachMap) {
  test::Hash hash;
  for (const Shape& shape : kShapes) {
    const TestImage frame(shape.width, shape.height, GetParam(), 13);
    const TestImage maps[2] = {TestImage(97, 6, IMAGE_UINT8), TestImage(1500, 60, IMAGE_UINT8)};
    for (const TestImage& map : maps) fillMap(map, 14, 128);
    TestImage inTurn(shape.width, shape.height, GetParam(), 16), both(shape.width, shape.height, GetParam(), 16);
    for (const TestImage& map : maps) {
      EXPECT_EQ(Tessal4ImageFunc_updateImage(nullptr, arena_.env(), &inTurn, &frame, &map, nullptr), ZELVAN_OK);
    }
    EXPECT_EQ(Tessal4ImageFunc_updateImage(executor_.get(), arena_.env(), &both, &frame, &maps[0], &maps[1]),
              ZELVAN_OK);
    EXPECT_TRUE(both.sameBytes(inTurn)) << "width " << shape.width;
    both.addTo(&hash);
  }
  test::expectGolden("kernels.txt", "warp.update-" + std::to_string(GetParam()), hash);
}

TEST_P(ImageFuncWarp, NoMemoryLeavesThePicture) {
  TestArena small(2048), oneBlock(102000);  // of the two that the executor's warp asks for
  const TestImage src(776, 20, GetParam()), map(100, 6, IMAGE_UINT8);
  TestImage dst(776, 20, GetParam());
  const Mvec8Real motion = kMotions[0];
  EXPECT_EQ(Tessal4ImageFunc_renderAccum(nullptr, small.env(), &dst, &src, &motion, &map), ZELVAN_ERROR_NOMEM);
  for (TestArena* arena : {&small, &oneBlock}) {
    EXPECT_EQ(Tessal4ImageFunc_accumWithLuminanceCorrection(executor_.get(), arena->env(), &dst, &src, 0, 0, &motion),
              ZELVAN_ERROR_NOMEM);
  }
  EXPECT_EQ(Tessal4ImageFunc_updateImage(executor_.get(), small.env(), &dst, &src, &map, nullptr), ZELVAN_ERROR_NOMEM);
  EXPECT_TRUE(dst.unchanged());
}

INSTANTIATE_TEST_SUITE_P(Formats, ImageFuncWarp, testing::ValuesIn(kFormats));

}  // namespace
