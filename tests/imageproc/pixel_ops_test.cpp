// The arithmetic family by a table of rules, on every set of formats.
#include "imageproc/pixel_ops.h"

#include "imageproc/kernel_rig.h"
#include "imageproc/tone.h"

namespace {

using Rule = int64_t (*)(int64_t old, int64_t a, int64_t b);
using TwoImages = Status (*)(ImageProc*, Image*, const Image*, const Image*);
using WithNumber = Status (*)(ImageProc*, Image*, const Image*, int32_t);

struct Member {
  const char* name;
  TwoImages images;
  WithNumber number;
  bool clamps;
  Rule rule;
};

const Member kMembers[] = {
    {"add", ImageProc_add, ImageProc_n_add, false, [](int64_t, int64_t a, int64_t b) { return a + b; }},
    {"sub", ImageProc_sub, ImageProc_n_sub, true, [](int64_t, int64_t a, int64_t b) { return a - b; }},
    {"subr", nullptr, ImageProc_n_subr, true, [](int64_t, int64_t a, int64_t b) { return b - a; }},
    {"abssub", ImageProc_abssub, nullptr, false, [](int64_t, int64_t a, int64_t b) { return std::abs(a - b); }},
    {"mul", ImageProc_mul, ImageProc_n_mul, false, [](int64_t, int64_t a, int64_t b) { return a * b; }},
    {"max", ImageProc_max, ImageProc_n_max, true, [](int64_t, int64_t a, int64_t b) { return std::max(a, b); }},
    {"min", ImageProc_min, ImageProc_n_min, true, [](int64_t, int64_t a, int64_t b) { return std::min(a, b); }},
    {"mla", ImageProc_mla, nullptr, false, [](int64_t old, int64_t a, int64_t b) { return old + a * b; }},
};

// Values small enough that nothing wraps and floats are whole.
void tame(const Image& image) {
  for (int32_t i = 0; i < image.width * image.height; ++i) {
    const int32_t x = i % image.width, y = i / image.width;
    if (image.format == IMAGE_INT32) imageRow<int32_t>(&image, y)[x] %= 30000;
    if (image.format == IMAGE_FLOAT) imageRow<float>(&image, y)[x] = static_cast<float>((x * 37 + y * 11) % 500 - 250);
  }
}

TEST(PixelOps, EveryMemberOnEverySetOfFormats) {
  KernelRig rig(0);
  const int32_t pairs[][2] = {{IMAGE_UINT8, IMAGE_UINT8}, {IMAGE_UINT16, IMAGE_UINT16}, {IMAGE_UINT16, IMAGE_UINT8},
                              {IMAGE_INT32, IMAGE_INT32}, {IMAGE_INT32, IMAGE_UINT8},   {IMAGE_FLOAT, IMAGE_FLOAT}};
  for (const Member& member : kMembers) {
    for (const auto& [to, from] : pairs) {
      SCOPED_TRACE(std::string(member.name) + " " + std::to_string(to) + " " + std::to_string(from));
      for (const bool number : {false, true}) {
        if (number ? member.number == nullptr : member.images == nullptr) continue;
        TestImage dst(19, 13, to, 1, 8), a(19, 13, from, 2, 4), b(19, 13, from, 3, 12);
        for (const Image& image : {Image(dst), Image(a), Image(b)}) tame(image);
        Plane expected = planesOf(dst)[0];
        const Plane left = planesOf(a)[0], right = planesOf(b)[0];
        const int64_t most = to == IMAGE_UINT8 ? 255 : 65535;
        for (size_t i = 0; i < expected.values.size(); ++i) {
          int64_t& v = expected.values[i];
          v = member.rule(v, left.values[i], number ? -77 : right.values[i]);
          if (to == IMAGE_UINT8 || to == IMAGE_UINT16) v = member.clamps ? std::clamp<int64_t>(v, 0, most) : v & most;
        }
        ASSERT_EQ(number ? member.number(&rig.proc, &dst, &a, -77) : member.images(&rig.proc, &dst, &a, &b), ZELVAN_OK);
        EXPECT_EQ(planesOf(dst)[0], expected);
        EXPECT_TRUE(dst.guardsUnchanged());
      }
    }
  }
  TestImage rgb(4, 4, IMAGE_RGB888), bytes(4, 4, IMAGE_UINT8);
  EXPECT_EQ(ImageProc_add(&rig.proc, &rgb, &bytes, &bytes), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(ImageProc_add(&rig.proc, &bytes, &bytes, nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(ImageProc_div(&rig.proc, &bytes, &bytes, &bytes), ZELVAN_ERROR_PARAM);
}

TEST(PixelOps, SemiplanarImagesWorkOnBothPlanes) {
  KernelRig rig(0);
  TestImage dst(17, 11, 29, 1), a(17, 11, 29, 2), b(17, 11, 29, 3), mask(17, 11, 57, 4);
  for (int32_t i = 0; i < 17 * 11; ++i) mask.row(0, i / 17)[i % 17] %= 129;
  ASSERT_EQ(ImageProc_abssub(&rig.proc, &dst, &a, &b), ZELVAN_OK);
  EXPECT_TRUE(dst.guardsUnchanged());
  for (int32_t i = 0; i < 18; ++i) EXPECT_EQ(dst.row(1, 5)[i], std::abs(a.row(1, 5)[i] - b.row(1, 5)[i]));
  ASSERT_EQ(ImageProc_blend(&rig.proc, &dst, &a, &b, &mask), ZELVAN_OK);
  for (int32_t i = 0; i < 17; ++i) {
    const int32_t m = mask.row(0, 10)[i];
    EXPECT_EQ(dst.row(0, 10)[i], ((128 - m) * a.row(0, 10)[i] + m * b.row(0, 10)[i]) >> 7);
    const int32_t even = mask.row(0, 10)[i & ~1];
    EXPECT_EQ(dst.row(1, 5)[i], ((128 - even) * a.row(1, 5)[i] + even * b.row(1, 5)[i]) >> 7);
  }
  TestImage luma(17, 11, 57), u(9, 6, 57), v(9, 6, 57);
  ASSERT_EQ(ImageProc_split2rgb888_yuv420semiplanar(&rig.proc, &luma, &u, &v, &a), ZELVAN_OK);
  EXPECT_EQ(v.row(0, 3)[4], a.row(1, 3)[8]);
  EXPECT_EQ(u.row(0, 3)[4], a.row(1, 3)[9]);
  const int32_t grey[3] = {50, 60, 70};
  ASSERT_EQ(ImageProc_clear(&rig.proc, &dst, grey), ZELVAN_OK);
  EXPECT_TRUE(dst.row(0, 10)[16] == 50 && dst.row(1, 5)[0] == 70 && dst.row(1, 5)[17] == 60);
}

TEST(PixelOps, RangesMapOntoBytes) {
  KernelRig rig(0);
  TestImage src(9, 1, IMAGE_INT32, 1, 4), dst(9, 1, IMAGE_UINT8);
  for (int32_t x = 0; x < 9; ++x) imageRow<int32_t>(&src, 0)[x] = -1000 + 250 * x;
  ASSERT_EQ(ImageProc_ImageInt32_toUint8(&rig.proc, &dst, &src, 0, 0), ZELVAN_OK);  // its own bounds
  EXPECT_TRUE(dst.row(0, 0)[0] == 0 && dst.row(0, 0)[4] == 128 && dst.row(0, 0)[8] == 255);
  ASSERT_EQ(ImageProc_ImageInt32_toUint8(&rig.proc, &dst, &src, 0, 500), ZELVAN_OK);
  EXPECT_TRUE(dst.row(0, 0)[2] == 0 && dst.row(0, 0)[5] == 128 && dst.row(0, 0)[7] == 255);
}

TEST(Tone, NeutralCopiesAndGainKeepsSaturation) {
  KernelRig rig(0);
  for (const int32_t format : {26, 27, 29, int32_t{IMAGE_YUV422_YUYV}}) {
    SCOPED_TRACE(format);
    TestImage src(18, 10, format, 5), dst(18, 10, format, 6);
    ImageProcTone tone = {{100, 100, 100}, 0, 32768, 32768, 32768, 0, 100};
    ASSERT_EQ(ImageProc_enhanceImage_process(&rig.proc, &dst, &src, &tone), ZELVAN_OK);
    EXPECT_EQ(planesOf(dst), planesOf(src));
    // Half the luma: chroma comes half way to grey.
    tone.percentages[0] = 50;
    tone.gain = 16384;
    src.row(0, 4)[0] |= 65;
    ASSERT_EQ(ImageProc_enhanceImage_process(&rig.proc, &dst, &src, &tone), ZELVAN_OK);
    EXPECT_EQ(dst.row(0, 4)[0], (src.row(0, 4)[0] + 1) / 2);
    const uint8_t* from = format == IMAGE_YUV422_YUYV ? src.row(0, 4) + 1 : src.row(1, 2);
    const uint8_t* to = format == IMAGE_YUV422_YUYV ? dst.row(0, 4) + 1 : dst.row(1, 2);
    EXPECT_NEAR(*to - 128, (*from - 128) / 2.0, 1.5);
  }
  TestImage rgb(8, 8, IMAGE_RGB888);
  const ImageProcTone tone = {};
  EXPECT_EQ(ImageProc_enhanceImage_process(&rig.proc, &rgb, &rgb, &tone), ZELVAN_ERROR_UNSUPPORTED);
}

// With more dark pixels than bright ones cut off the bounds cross, and what lies above the upper one is white.
TEST(Tone, StretchesTheHistogramAlsoBetweenCrossedBounds) {
  KernelRig rig(0);
  for (const auto& [low, high] : {std::pair<uint8_t, uint8_t>{5, 95}, {75, 25}}) {
    TestImage image(64, 64, IMAGE_YUV420_SEMIPLANAR);
    drawPixels(&image, [](int32_t x, int32_t) { return 64 + x * 2; });
    const ImageProcTone tone = {{100, 100, 100}, 100, 32768, 32768, 32768, low, high};
    ASSERT_EQ(ImageProc_enhanceImage_process(&rig.proc, &image, &image, &tone), ZELVAN_OK);
    EXPECT_TRUE(image.row(0, 10)[0] == 0 && image.row(0, 10)[63] == 255);
    EXPECT_NEAR(image.row(0, 10)[32], low < high ? 128 : 255, 4);
    for (int32_t x = 0; low > high && x < 64; ++x) EXPECT_EQ(image.row(0, 10)[x], x < 16 ? 0 : 255) << x;
  }
}

// Above 1440 pixels the means of blocks are counted: 50 and 200 in halves, where every block has one pixel of 100.
TEST(Tone, CountsTheShrunkLumaOfLargePackedPictures) {
  KernelRig rig(0);
  const ImageProcTone tone = {{100, 100, 100}, 100, 32768, 32768, 32768, 25, 75};
  TestImage image(1444, 4, IMAGE_YUV422_UYVY);
  for (int32_t i = 0; i < 1444 * 4; ++i) {
    const int32_t x = i % 1444, y = i / 1444;
    image.row(0, y)[2 * x + 1] = static_cast<uint8_t>((x | y) % 2 == 0 ? 100 : (x < 722 ? 33 : 233) + x * y % 2);
  }
  ASSERT_EQ(ImageProc_enhanceImage_process(&rig.proc, &image, &image, &tone), ZELVAN_OK);
  const int32_t expected[3] = {86, 0, 255};  // of 100: (100 - 49) / (200 - 49) of the way; of 33 and 233
  EXPECT_EQ(image.row(0, 2)[1], expected[0]);
  EXPECT_EQ(image.row(0, 3)[1], expected[1]);
  EXPECT_EQ(image.row(0, 2)[2 * 723 + 1], expected[2]);
}

}  // namespace
