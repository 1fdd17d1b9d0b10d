// Members that other tests reach by a twin alone: each must be the member that its name says.
#include "imageproc/box.h"
#include "imageproc/kernel_rig.h"
#include "imageproc/pixel_ops.h"
#include "imageproc/resize.h"
#include "imageproc/shrink.h"

namespace {

TEST(Members, ArithmeticOfOneImageAndSplitting) {
  KernelRig rig(0);
  TestImage signs(9, 4, IMAGE_INT32, 1, 8), absolute(9, 4, IMAGE_INT32, 2, 8);
  ASSERT_EQ(ImageProc_abs(&rig.proc, &absolute, &signs), ZELVAN_OK);
  Plane expected = planesOf(signs)[0];
  for (int64_t& v : expected.values) v = std::abs(v);
  EXPECT_EQ(planesOf(absolute)[0], expected);

  TestImage reals(5, 1, IMAGE_FLOAT, 1, 8), bytes(5, 1, IMAGE_UINT8);
  for (int32_t x = 0; x < 5; ++x) imageRow<float>(&reals, 0)[x] = 10.0f * static_cast<float>(x) - 7.0f;
  ASSERT_EQ(ImageProc_ImageFloat_toUint8(&rig.proc, &bytes, &reals), ZELVAN_OK);
  EXPECT_TRUE(bytes.row(0, 0)[0] == 0 && bytes.row(0, 0)[2] == 128 && bytes.row(0, 0)[4] == 255);

  TestImage rgb(7, 5, IMAGE_RGB888, 3), other(7, 5, IMAGE_RGB888, 4), mask(7, 5, IMAGE_UINT8, 5), mix(7, 5, 2),
      same(7, 5, 2);
  TestImage red(7, 5, IMAGE_UINT8), green(7, 5, IMAGE_UINT8), blue(7, 5, IMAGE_UINT8);
  ASSERT_EQ(ImageProc_split2rgb888(&rig.proc, &red, &green, &blue, &rgb), ZELVAN_OK);
  for (int32_t i = 0; i < 35; ++i) {
    const uint8_t* pixel = rgb.row(0, i / 7) + i % 7 * 3;
    EXPECT_TRUE(red.row(0, i / 7)[i % 7] == pixel[0] && green.row(0, i / 7)[i % 7] == pixel[1]);
    EXPECT_EQ(blue.row(0, i / 7)[i % 7], pixel[2]);
    mask.row(0, i / 7)[i % 7] &= 127;
  }
  ImageProcBlend arguments = {&rig.proc, &mix, &rgb, &other, &mask};
  ASSERT_EQ(ImageProc_blendImageWrapper(&arguments), ZELVAN_OK);
  ASSERT_EQ(ImageProc_blend(&rig.proc, &same, &rgb, &other, &mask), ZELVAN_OK);
  EXPECT_TRUE(mix.sameBytes(same));
  EXPECT_EQ(ImageProc_blendImageWrapper(nullptr), ZELVAN_ERROR_PARAM);
}

TEST(Members, TwinsOfBoxesAndFilters) {
  KernelRig rig(3);
  TestImage src(40, 30, IMAGE_UINT8, 3), sums(40, 30, IMAGE_INT32, 4, 8), again(40, 30, IMAGE_INT32, 4, 8);
  ASSERT_EQ(ImageProc_boxSum(&rig.proc, &sums, &src, 5) | ImageProc_boxSum2(&rig.proc, &again, &src, 5), ZELVAN_OK);
  EXPECT_TRUE(again.sameBytes(sums));
  const std::pair<decltype(&ImageProc_filterMin3x3), decltype(&ImageProc2_filterMin3x3)> filters[] = {
      {ImageProc_filterMin3x3, ImageProc2_filterMin3x3}, {ImageProc_filterMax3x3, ImageProc2_filterMax3x3}};
  for (const auto& [onExecutor, onPel] : filters) {
    TestImage one(40, 30, IMAGE_UINT8, 5), two(40, 30, IMAGE_UINT8, 5);
    ASSERT_EQ(onExecutor(&rig.proc, &one, &src) | onPel(&rig.proc2, &two, &src), ZELVAN_OK);
    EXPECT_TRUE(two.sameBytes(one));
  }
}

// A Pel kernel runs in an arena of the size that its function states, beside the headers of a few blocks.
TEST(Members, StatedSizesSuffice) {
  using Run = Status (*)(ImageProc2*, Image*, const Image*);
  const std::pair<int32_t, Run> kernels[] = {
      {ImageProc2_getBufferSizeForBoxBlur(90, 70),
       [](auto* p, auto* d, auto* s) { return ImageProc2_boxBlur(p, d, s, 7); }},
      {ImageProc2_getBufferSizeForFilter3x3(90, 70),
       [](auto* p, auto*, auto* s) { return ImageProc2_filterMax3x3(p, const_cast<Image*>(s), s); }}};
  for (const auto& [bytes, run] : kernels) {
    KernelRig rig(0, static_cast<uint32_t>(bytes) + 256);
    TestImage src(90, 70, IMAGE_UINT8), dst(90, 70, IMAGE_UINT8);
    EXPECT_EQ(run(&rig.proc2, &dst, &src), ZELVAN_OK) << bytes;
  }
  KernelRig rig(0, static_cast<uint32_t>(ImageProc2_getBufferSizeForAverageShrink(90, 70)) + 512);
  TestImage src(90, 70, IMAGE_INT32, 1, 8), dst(20, 15, IMAGE_INT32, 2, 8);
  EXPECT_EQ(ImageProc2_averageShrink(&rig.proc2, &dst, &src), ZELVAN_OK);
}

TEST(Members, ArgumentRecordsHoldThreeWords) {
  for (const auto set :
       {ImageProc_resizerImageUint8_setArgs, ImageProc_resizerImageFloat_setArgs, ImageProc_resizerImageInt32_setArgs,
        ImageProc_resizerImageUint888_setArgs, ImageProc_resizerImageUint8888_setArgs,
        ImageProc_resizerImageUint16_setArgs, ImageProc_resizerImageUV_setArgs,
        ImageProc_shrinkaverageImageUint8_setArgs, ImageProc_shrinkaverageImageUint16_setArgs,
        ImageProc_shrinkaverageImageInt32_setArgs, ImageProc_shrinkaverageImageUV_setArgs}) {
    ImageProcShrinkArgs args = {};
    EXPECT_EQ(set(&args, 1, 2, 3), ZELVAN_OK);
    EXPECT_TRUE(args.words[0] == 1 && args.words[1] == 2 && args.words[2] == 3);
    EXPECT_EQ(set(nullptr, 1, 2, 3), ZELVAN_ERROR_PARAM);
  }
}

}  // namespace
