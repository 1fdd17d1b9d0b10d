#include <limits>

#include "pixels/image_func.h"
#include "support/pixel_scene.h"

namespace {

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
