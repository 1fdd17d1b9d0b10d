#include "engine_rig.h"
#include "imageproc/resize.h"

namespace test {
namespace {

TEST(Tessal4Params, ShrinkLevelFollowsTheSize) {
  const int32_t cases[][3] = {{1280, 960, 1}, {1279, 960, 1}, {1280, 958, 1}, {1278, 958, 0},    {4000, 3000, 2},
                              {640, 480, 0},  {0, 0, 0},      {480, 4000, 3}, {20480, 15360, 4}, {40960, 30720, 4}};
  for (const auto& [width, height, level] : cases) {
    Tessal4Params params;
    ASSERT_EQ(Tessal4Params_setDefault(&params, width, height), ZELVAN_OK);
    EXPECT_EQ(params.storeShrinkLevel, level) << width << "x" << height;
    EXPECT_EQ(params.trackShrinkLevel, level);
    EXPECT_EQ(params.workDivisor, 1 << level);
  }
  EXPECT_EQ(Tessal4Params_setDefault(nullptr, 640, 480), ZELVAN_ERROR_GENERAL);
}

// The estimate, written out for 4:2:0 frames.
TEST(Tessal4Context, BufferSizeIsTheLargerPeak) {
  const int32_t sizes[][2] = {{640, 480}, {1280, 960}, {4000, 3000}, {3001, 4003}};
  for (const auto& [w, h] : sizes) {
    for (int32_t n : {1, 10}) {
      for (const auto& [autoScaling, keepAccumulator] : {std::pair(1, 1), {0, 1}, {0, 0}}) {
        Tessal4Params params = defaultParams(w, h);
        params.autoScaling = autoScaling;
        params.keepAccumulator = keepAccumulator;
        const int32_t frame = (w + w % 2) * (h + h % 2) * 3 / 2;
        const int32_t area = w * h;
        int32_t a = 0;
        int32_t b = 0;
        ImageProc_getSizeArea(&a, &b, w, h, area / params.workDivisor / params.workDivisor);
        const int32_t c = a / 2 * 2 * (b / 2 * 2);
        const int32_t d = b / 2 * 2 * w;
        const int32_t shift = 2 * params.storeShrinkLevel;
        GuidedFilterParam guided;
        GuidedFilterParam_setDefault(&guided);
        const int32_t finish =
            area + (w > h ? w : h) * 640 + GuidedFilter_getBufferSize(w, h, IMAGE_YVU420_SEMIPLANAR, &guided);
        const int32_t merge = 4 * c + n * (frame >> shift) + (frame >> 2) + d + 2 * ((area >> shift) + d) + 2048;
        const int32_t keep = 4194304 + (autoScaling == 1 || keepAccumulator == 0 ? frame : 0);
        const int32_t expected = std::max(finish, merge) + keep + w * 1280 + 2048;
        EXPECT_EQ(Tessal4_getBufferSize(w, h, n, IMAGE_YVU420_SEMIPLANAR, &params), expected) << w << " " << n;
        if (autoScaling == 1) {
          EXPECT_EQ(Tessal4_getBufferSize(w, h, n, IMAGE_YVU420_SEMIPLANAR, nullptr), expected);
        }
      }
    }
  }
}

TEST(Tessal4Context, CropIsCentredWithAMarginAndEven) {
  struct {
    int32_t width, height, outWidth, outHeight;
    double scale;
    ImageRect crop;
  } const cases[] = {
      {640, 480, -1, -1, 1.0, {0, 0, 640, 480}},       {641, 483, -1, -1, 1.0, {0, 0, 640, 482}},
      {640, 480, 320, 240, 1.0, {152, 112, 488, 368}}, {640, 480, 321, 241, 1.0, {152, 112, 488, 368}},
      {640, 480, 640, 480, 2.0, {152, 112, 488, 368}}, {640, 480, 630, 470, 1.0, {0, 0, 640, 480}},
      {640, 480, 320, 480, 1.3, {190, 48, 450, 432}},  {640, 480, 618, 458, 1.0, {4, 4, 636, 476}},
      {640, 480, 1280, 960, 1.0, {0, 0, 640, 480}},
  };
  for (const auto& c : cases) {
    Tessal4Params params = defaultParams(c.width, c.height);
    params.outputWidth = c.outWidth;
    params.outputHeight = c.outHeight;
    params.outputScale = c.scale;
    EngineRig engine(c.width, c.height, 1, params);
    EXPECT_EQ(engine->outWidth, c.outWidth < 0 ? c.width : c.outWidth);
    EXPECT_EQ(engine->cropLeft, c.crop.left) << c.outWidth << " / " << c.scale;
    EXPECT_EQ(engine->cropTop, c.crop.top) << c.outHeight << " / " << c.scale;
    EXPECT_EQ(engine->cropRight, c.crop.right) << c.outWidth << " / " << c.scale;
    EXPECT_EQ(engine->cropBottom, c.crop.bottom) << c.outHeight << " / " << c.scale;
    EXPECT_EQ(engine->cropWidth, c.crop.right - c.crop.left);
  }
}

}  // namespace
}  // namespace test
