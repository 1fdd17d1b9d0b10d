#include "imageproc/arithmetic.h"

#include "imageproc/kernel_rig.h"

namespace {

// Odd sizes, a single row, more rows than slices.
constexpr int32_t kSizes[][2] = {{1, 1}, {7, 5}, {64, 3}, {33, 70}, {100, 101}};

TEST(ClearY, FillsEachFormatWithGrey) {
  KernelRigs rigs;
  const struct {
    int32_t format;
    int32_t value;
    double luma;
  } cases[] = {{27, 300, 44},
               {29, -1, 255},
               {57, 0, 0},
               {57, 256 + 77, 77},
               {61, 65536 + 40000, 40000},
               {61, 128, 128},
               {63, 9, 9},
               {63, -1234567, -1234567}};
  for (KernelRig& rig : rigs) {
    for (const auto& c : cases) {
      for (const auto& size : kSizes) {
        TestImage image(size[0], size[1], c.format, 3, 8);
        EXPECT_EQ(ImageProc_clearY(&rig.proc, &image, c.value), ZELVAN_OK);
        EXPECT_TRUE(image.guardsUnchanged());
        for (int32_t p = 0; p < imagePlaneCount(c.format); ++p) {
          const Plane plane = planesOf(image)[p];
          EXPECT_EQ(plane.values, std::vector<double>(plane.values.size(), p == 0 ? c.luma : 128));
        }
        if (c.format < 57) {  // the chroma pair that an odd size shares with its padding
          EXPECT_EQ(image.row(1, image.pixelRows(1) - 1)[image.pixelBytes(1) - 1], 128);
        }
      }
    }
    for (const int32_t format : {26, 28, 64}) {
      TestImage image(7, 5, format, 3, 8);
      EXPECT_EQ(ImageProc_clearY(&rig.proc, &image, 9), ZELVAN_ERROR_PARAM);
      EXPECT_TRUE(image.unchanged());
    }
  }
}

TEST(Cvt, CopiesPlanesAndTakesLuma) {
  KernelRigs rigs;
  for (KernelRig& rig : rigs) {
    for (const auto& size : kSizes) {
      const auto convert = [&](int32_t to, int32_t from) {
        // The source is larger: sizes are those of the destination.
        const TestImage src(size[0] + 3, size[1] + 2, from, 5, 8);
        TestImage dst(size[0], size[1], to, 6, 8);
        EXPECT_EQ(ImageProc_cvt(&rig.proc, &dst, &src), ZELVAN_OK) << to << " from " << from;
        for (int32_t p = 0; p < imagePlaneCount(to); ++p) {
          for (int32_t y = 0; y < dst.pixelRows(p); ++y) {
            EXPECT_EQ(memcmp(dst.row(p, y), src.row(p, y), static_cast<size_t>(dst.pixelBytes(p))), 0);
          }
        }
        EXPECT_TRUE(dst.guardsUnchanged());
        EXPECT_TRUE(src.unchanged());
      };
      for (const int32_t format : {26, 27, 29, 57, 58, 61}) convert(format, format);
      for (const int32_t format : {24, 25, 26, 27, 28, 29}) convert(57, format);
    }
  }
  KernelRig& rig = rigs.rigs[0];
  const int32_t refused[][2] = {{27, 29}, {57, 61}, {27, 57}, {57, 30}, {0, 0}, {68, 68}};
  for (const auto& pair : refused) {
    Image src = TestImage(8, 8, 57);
    Image dst = src;
    dst.format = pair[0];
    src.format = pair[1];
    EXPECT_EQ(ImageProc_cvt(&rig.proc, &dst, &src), ZELVAN_ERROR_GENERAL) << pair[0] << " from " << pair[1];
  }
  TestImage empty(0, 4, 57);
  TestImage full(4, 4, 57);
  EXPECT_EQ(ImageProc_cvt(&rig.proc, &full, &empty), ZELVAN_ERROR_GENERAL);
  EXPECT_EQ(ImageProc_cvt(&rig.proc, &empty, &full), ZELVAN_ERROR_GENERAL);
}

TEST(Shift, FollowsTheFormatsOfThePair) {
  KernelRigs rigs;
  const int32_t cases[][3] = {{57, 57, 256}, {61, 61, 65536}, {57, 61, 0}};  // modulus 0: saturates at 255
  for (KernelRig& rig : rigs) {
    for (const auto& [to, from, modulus] : cases) {
      for (const int32_t n : {0, 1, 3, 8, 15, 16, 31, 32, 40, -1, -7, -16, -31, -32, INT32_MAX, INT32_MIN}) {
        TestImage src(33, 70, from, 5, 8);
        if (n == 3) makeExtreme(src);
        TestImage dst(33, 70, to, 6, 8);
        ASSERT_EQ(ImageProc_n_shift(&rig.proc, &dst, &src, n), ZELVAN_OK);
        Plane expected = planesOf(src)[0];
        for (double& v : expected.values) {
          v = n >= 32 || n <= -32 ? 0 : std::floor(std::ldexp(v, -n));
          v = modulus != 0 ? std::fmod(v, modulus) : std::min(v, 255.0);
        }
        EXPECT_EQ(planesOf(dst)[0], expected) << to << " from " << from << " by " << n;
        EXPECT_TRUE(dst.guardsUnchanged());
        if (to == from) {
          ASSERT_EQ(ImageProc_n_shift(&rig.proc, &src, &src, n), ZELVAN_OK);
          EXPECT_EQ(planesOf(src)[0], expected);
        }
      }
    }
  }
  KernelRig& rig = rigs.rigs[0];
  TestImage bytes(4, 4, 57);
  TestImage words(4, 4, 61, 1, 8);
  EXPECT_EQ(ImageProc_n_shift(&rig.proc, &words, &bytes, 1), ZELVAN_ERROR_PARAM);
  EXPECT_TRUE(words.unchanged());
}

TEST(Table, LooksUpWhatTheTableHolds) {
  KernelRigs rigs;
  uint8_t table[300];
  for (int32_t i = 0; i < 300; ++i) table[i] = static_cast<uint8_t>(i * 7 + 3);
  for (KernelRig& rig : rigs) {
    for (const int32_t entries : {0, 32, 33, 100, 255, 256, 300}) {
      const TestImage src(33, 70, 57, 5);
      TestImage dst(33, 70, 57, 6);
      ASSERT_EQ(ImageProc_table(&rig.proc, &dst, &src, table, entries), ZELVAN_OK);
      EXPECT_TRUE(dst.guardsUnchanged());
      EXPECT_EQ(dst.unchanged(), entries < 33);
      if (entries < 33) continue;
      Plane expected = planesOf(src)[0];
      for (double& v : expected.values) v = v < entries ? table[static_cast<int32_t>(v)] : 0;
      EXPECT_EQ(planesOf(dst)[0], expected) << entries;
    }
    TestImage words(4, 4, 61, 1, 8);
    EXPECT_EQ(ImageProc_table(&rig.proc, &words, &words, table, 256), ZELVAN_ERROR_UNSUPPORTED);
    EXPECT_TRUE(words.unchanged());
  }
}

}  // namespace
