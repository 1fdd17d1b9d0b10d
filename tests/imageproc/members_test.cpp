#include <functional>

#include "imageproc/blur.h"
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

TEST(Box, SumsAndMeansOfTheWindow) {
  KernelRig rig(0);
  for (const int32_t window : {1, 2, 3, 5, 8, 31}) {
    SCOPED_TRACE(window);
    TestImage src(17, 12, 57, 3), sums(17, 12, 58, 4, 8), mean(17, 12, 57, 5), twin(17, 12, 57, 5);
    ASSERT_EQ(ImageProc_boxSum(&rig.proc, &sums, &src, window), ZELVAN_OK);
    ASSERT_EQ(ImageProc_boxBlur(&rig.proc, &mean, &src, window), ZELVAN_OK);
    EXPECT_TRUE(sums.guardsUnchanged() && mean.guardsUnchanged());
    const Plane from = planesOf(src)[0];
    const int32_t reach = window / 2, r = (window - 1) / 2, scale = 32768 / window;
    Plane sum(17, 12), across(17, 12), down(17, 12);
    sum.fill([&](int32_t x, int32_t y, int32_t) {
      int64_t all = 0;
      for (int32_t j = -reach; j <= reach; ++j) all += from.lineSum(x, std::clamp(y + j, 0, 11), 1, 0, reach);
      return all;
    });
    across.fill([&](int32_t x, int32_t y, int32_t) { return (from.lineSum(x, y, 1, 0, r) * scale + 16384) >> 15; });
    down.fill([&](int32_t x, int32_t y, int32_t) { return (across.lineSum(x, y, 0, 1, r) * scale + 16384) >> 15; });
    EXPECT_EQ(planesOf(sums)[0], sum);
    EXPECT_EQ(planesOf(mean)[0], down);
    EXPECT_EQ(ImageProc2_boxBlur(&rig.proc2, &twin, &src, window),
              window % 2 == 0 ? ZELVAN_ERROR_UNSUPPORTED : ZELVAN_OK);
    EXPECT_EQ(twin.sameBytes(mean), window % 2 != 0);
  }
  TestImage chroma(9, 6, IMAGE_UINT88, 3), u(9, 6, IMAGE_UINT8, 3);
  for (int32_t i = 0; i < 9 * 6; ++i) u.row(0, i / 9)[i % 9] = chroma.row(0, i / 9)[i % 9 * 2];
  ASSERT_EQ(ImageProc_boxBlur2(&rig.proc, &chroma, &chroma, 3), ZELVAN_OK);
  ASSERT_EQ(ImageProc_boxBlur2(&rig.proc, &u, &u, 3), ZELVAN_OK);
  EXPECT_EQ(chroma.row(0, 3)[8], u.row(0, 3)[4]) << "channels stay apart";
}

TEST(Filter3x3, EveryMemberByItsRule) {
  KernelRig rig(0);
  using Filter = Status (*)(ImageProc*, Image*, const Image*);
  using Rule = std::function<int32_t(std::vector<int32_t>)>;
  const auto mean = [](const std::vector<int32_t>& v) {
    int32_t sum = 0;
    for (int32_t x : v) sum += x;
    return static_cast<int32_t>((sum + 4.5) / 9);
  };
  const std::pair<Filter, Rule> members[] = {
      {[](ImageProc* p, Image* d, const Image* s) { return ImageProc_filterAveraging3x3(p, d, s, 1.0); }, mean},
      {ImageProc_filterMax3x3, [](auto v) { return *std::max_element(v.begin(), v.end()); }},
      {ImageProc_filterMin3x3, [](auto v) { return *std::min_element(v.begin(), v.end()); }},
      {ImageProc_filterMedian3x3,
       [](auto v) {
         std::sort(v.begin(), v.end());
         return v[4];
       }},
      {ImageProc_filterSharpen, [&](auto v) { return std::clamp(2 * v[4] - mean(v), 0, 255); }},
      {ImageProc_filterLaplacian, [](auto v) { return std::min(std::abs(4 * v[4] - v[1] - v[3] - v[5] - v[7]), 255); }},
  };
  for (const auto& [filter, rule] : members) {
    TestImage dst(13, 9, IMAGE_UINT8, 3);
    const Plane from = planesOf(dst)[0];
    ASSERT_EQ(filter(&rig.proc, &dst, &dst), ZELVAN_OK);  // in place
    for (int32_t k = 0; k < 13 * 9; ++k) {
      std::vector<int32_t> v;
      for (int32_t i = 0; i < 9; ++i)
        v.push_back(static_cast<int32_t>(from.edge(k % 13 + i % 3 - 1, k / 13 + i / 3 - 1)));
      ASSERT_EQ(dst.row(0, k / 13)[k % 13], rule(v)) << k;
    }
  }
  TestImage rgb(4, 4, IMAGE_RGB888);
  EXPECT_EQ(ImageProc2_filterMax3x3(&rig.proc2, &rgb, &rgb), ZELVAN_ERROR_UNSUPPORTED);
}

using Blur = Status (*)(ImageProc*, Image*, const Image*, double);
using Blur2 = Status (*)(ImageProc2*, Image*, const Image*, double);

TEST(Blur, RefusalsLeaveThePicture) {
  KernelRig rig(0, 2048);
  const std::pair<std::array<int32_t, 4>, Status> cases[] = {{{58, 58, 9, 9}, ZELVAN_ERROR_GENERAL},
                                                             {{57, 64, 9, 9}, ZELVAN_ERROR_GENERAL},
                                                             {{57, 57, 10, 9}, ZELVAN_ERROR_PARAM},
                                                             {{57, 57, 200, 200}, ZELVAN_ERROR_NOMEM}};
  const std::pair<Blur, Blur2> members[] = {
      {ImageProc_pgaussBlur, ImageProc2_pgaussBlur},
      {ImageProc_gaussBlur2, ImageProc2_gaussBlur},
      {ImageProc_filterGaussianBlur7x7_uint8, ImageProc2_filterGaussianBlur7x7_uint8},
  };
  for (const auto& [blur, twin] : members) {
    for (const auto& [c, status] : cases) {
      TestImage dst(c[2], 40, c[0], 2, 8), src(c[3], 40, c[1], 1, 8);
      EXPECT_EQ(blur(&rig.proc, &dst, &src, 2.5), status) << c[0] << " from " << c[1];
      const Status onPel = status == ZELVAN_ERROR_GENERAL ? ZELVAN_ERROR_UNSUPPORTED : status;
      EXPECT_EQ(twin(&rig.proc2, &dst, &src, 2.5), onPel) << c[0] << " from " << c[1];
      EXPECT_TRUE(dst.unchanged());
    }
  }
}

// A Pel kernel runs in an arena of the size that its function states, beside the headers of a few blocks.
TEST(Members, StatedSizesSuffice) {
  using Run = Status (*)(ImageProc2*, Image*, const Image*);
  const struct {
    int32_t (*size)(int32_t, int32_t);
    int32_t format;
    bool shrinks;
    Run run;
  } kernels[] = {{ImageProc2_getBufferSizeForGaussBlur, IMAGE_RGB888, false,
                  [](auto* p, auto* d, auto* s) { return ImageProc2_gaussBlur(p, d, s, 7.0); }},
                 {ImageProc2_getBufferSizeForPgaussBlur, IMAGE_UINT88, false,
                  [](auto* p, auto* d, auto* s) { return ImageProc2_pgaussBlur(p, d, s, 7.0); }},
                 {ImageProc2_getBufferSizeForConvolution, IMAGE_UINT16, false,
                  [](auto* p, auto* d, auto* s) { return ImageProc2_filterGaussianBlur7x7_uint16(p, d, s, 7.0); }},
                 {ImageProc2_getBufferSizeForBoxBlur, IMAGE_UINT8, false,
                  [](auto* p, auto* d, auto* s) { return ImageProc2_boxBlur(p, d, s, 7); }},
                 {ImageProc2_getBufferSizeForFilter3x3, IMAGE_UINT8, false, ImageProc2_filterMax3x3},
                 {ImageProc2_getBufferSizeForAverageShrink, IMAGE_INT32, true, ImageProc2_averageShrink}};
  for (const auto& kernel : kernels) {
    for (const auto& [w, h] : {std::pair{40, 60}, {200, 70}}) {
      const uint32_t heads = kernel.format == IMAGE_UINT8 ? 256 : 512;
      KernelRig rig(0, static_cast<uint32_t>(kernel.size(w, h)) + heads);
      TestImage image(w, h, kernel.format, 3, 8), small(w / 4, h / 4, kernel.format, 2, 8);
      EXPECT_EQ(kernel.run(&rig.proc2, kernel.shrinks ? &small : &image, &image), ZELVAN_OK) << &kernel - kernels << w;
    }
  }
}

// Channels never mix: pixels of three and four bytes are resized and blurred as pairs of the same bytes are.
TEST(Interleaved, ChannelsGoTheWayOfPairs) {
  KernelRig rig(0);
  const int32_t cases[][3] = {{IMAGE_RGB888, 23, 60}, {IMAGE_RGB888, 90, 31},   {IMAGE_BGR888, 23, 60},
                              {IMAGE_BGR888, 90, 31}, {IMAGE_RGBA8888, 23, 60}, {IMAGE_RGBA8888, 90, 31},
                              {IMAGE_RGB888, 70, 40}};  // the last: blurred
  for (const auto& [format, w, h] : cases) {
    TestImage src(70, 40, format, 1, 8), dst(w, h, format, 2, 8), pairs(70, 40, IMAGE_UINT88, 3, 8);
    const auto run = [&, w = w](Image* out, const Image* in) {
      return w != 70 ? ImageProc_resizeImage(&rig.proc, out, in) : ImageProc_pgaussBlur(&rig.proc, out, in, 5.0);
    };
    ASSERT_EQ(run(&dst, &src), ZELVAN_OK) << format;
    Plane from = planesOf(src)[0], to = planesOf(dst)[0];
    for (int32_t c = 0; c < from.channels; ++c) {
      TestImage expected(w, h, IMAGE_UINT88, 4, 8);
      planesOf(pairs)[0].fill([&](int32_t x, int32_t y, int32_t i) {
        return imageRow(&pairs, y)[2 * x + i] = static_cast<uint8_t>(from.at(x, y, c));
      });
      ASSERT_EQ(run(&expected, &pairs), ZELVAN_OK);
      planesOf(expected)[0].fill([&, format = format](int32_t x, int32_t y, int32_t i) {
        EXPECT_EQ(to.at(x, y, c), imageRow(&expected, y)[2 * x + i]) << format << ' ' << x << ' ' << y;
        return 0;
      });
    }
  }
  TestImage rgb(70, 40, IMAGE_RGB888);
  EXPECT_EQ(ImageProc2_pgaussBlur(&rig.proc2, &rgb, &rgb, 5.0), ZELVAN_ERROR_UNSUPPORTED);
}

}  // namespace
