#include <array>

#include "engine/engine_rig.h"

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

// The finish decides, or the merge of many frames; a frame more when the accumulator is one of the arena.
TEST(Tessal4Context, BufferSizeIsTheLargerPeak) {
  const struct {
    int32_t width, height, frames, autoScaling, keepAccumulator, size;
  } cases[] = {{640, 480, 1, 1, 1, 8819200},    {640, 480, 1, 0, 1, 8358400},     {640, 480, 10, 0, 0, 12966400},
               {1280, 960, 1, 0, 1, 10444800},  {1280, 960, 10, 1, 1, 16435200},  {4000, 3000, 10, 1, 1, 63136400},
               {4000, 3000, 1, 0, 1, 45136400}, {3001, 4003, 10, 0, 1, 43808167}, {3001, 4003, 1, 0, 0, 61838179}};
  for (const auto& c : cases) {
    Tessal4Params params = defaultParams(c.width, c.height);
    params.autoScaling = c.autoScaling;
    params.keepAccumulator = c.keepAccumulator;
    EXPECT_EQ(Tessal4_getBufferSize(c.width, c.height, c.frames, IMAGE_YVU420_SEMIPLANAR, &params), c.size);
    if (c.autoScaling == 1) {
      EXPECT_EQ(Tessal4_getBufferSize(c.width, c.height, c.frames, IMAGE_YVU420_SEMIPLANAR, nullptr), c.size);
    }
  }
}

TEST(Tessal4Context, CropIsCentredWithAMarginAndEven) {
  struct {
    int32_t width, height, outWidth, outHeight;
    double scale;
    std::array<int32_t, 4> crop;  // left, top, right, bottom
  } const cases[] = {
      {640, 480, -1, -1, 1.0, {0, 0, 640, 480}},       {647, 483, -1, -1, 1.0, {0, 0, 646, 482}},
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
    EXPECT_EQ(engine.crop(), c.crop) << c.outWidth << " / " << c.scale;
    EXPECT_EQ(engine->cropWidth, c.crop[2] - c.crop[0]);
    EXPECT_EQ((engine->workWidth | engine->workHeight) & 3, 0);
    EXPECT_EQ(engine->cropHeight, c.crop[3] - c.crop[1]);
  }
}

}  // namespace
}  // namespace test
