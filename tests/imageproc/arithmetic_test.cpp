#include "imageproc/arithmetic.h"

#include "imageproc/kernel_rig.h"

namespace {

// Odd sizes, a single row, more rows than slices.
constexpr int32_t kSizes[][2] = {{1, 1}, {64, 3}, {33, 101}};

TEST(ClearY, FillsEachFormatWithGrey) {
  KernelRigs rigs;
  const int32_t cases[][3] = {{27, 300, 44},       {29, -1, 255},  {57, 0, 0}, {57, 333, 77},
                              {61, 105536, 40000}, {61, 128, 128}, {63, 9, 9}, {63, -1234567, -1234567}};
  for (KernelRig& rig : rigs) {
    for (const auto& [format, value, luma] : cases) {
      for (const auto& [w, h] : kSizes) {
        TestImage image(w, h, format, 3, 8);
        EXPECT_EQ(ImageProc_clearY(&rig.proc, &image, value), ZELVAN_OK);
        EXPECT_TRUE(image.guardsUnchanged());
        const std::vector<Plane> planes = planesOf(image);
        EXPECT_EQ(planes[0].values, std::vector<int64_t>(planes[0].values.size(), luma));
        for (int32_t y = 0; format < 57 && y < image.pixelRows(1); ++y) {  // the pair of an odd size, too
          for (int32_t x = 0; x < image.pixelBytes(1); ++x) EXPECT_EQ(image.row(1, y)[x], 128);
        }
      }
    }
    for (const int32_t format : {26, 28, 64}) {
      TestImage image(7, 5, format);
      EXPECT_EQ(ImageProc_clearY(&rig.proc, &image, 9), ZELVAN_ERROR_PARAM);
      EXPECT_TRUE(image.unchanged());
    }
  }
}

TEST(Cvt, CopiesPlanesAndTakesLuma) {
  KernelRigs rigs;
  const auto convert = [](KernelRig& rig, int32_t w, int32_t h, int32_t to, int32_t from) {
    const TestImage src(w + 3, h + 2, from, 5, 8);  // larger: sizes are those of the destination
    TestImage dst(w, h, to, 6, 8), expected(w, h, to, 6, 8);
    for (int32_t p = 0; p < imagePlaneCount(to); ++p) {
      for (int32_t y = 0; y < dst.pixelRows(p); ++y) memcpy(expected.row(p, y), src.row(p, y), dst.pixelBytes(p));
    }
    EXPECT_EQ(ImageProc_cvt(&rig.proc, &dst, &src), ZELVAN_OK);
    EXPECT_TRUE(dst.sameBytes(expected)) << to << " from " << from;
  };
  for (KernelRig& rig : rigs) {
    for (const auto& [w, h] : kSizes) {
      for (const int32_t format : {26, 27, 29, 57, 58, 61}) convert(rig, w, h, format, format);
      for (const int32_t format : {24, 25, 26, 27, 28, 29}) convert(rig, w, h, 57, format);
    }
  }
  const int32_t refused[][3] = {{27, 29, 8}, {57, 61, 8}, {27, 57, 8}, {57, 30, 8}, {0, 0, 8}, {57, 57, 0}};
  for (const auto& [to, from, width] : refused) {
    TestImage dst(width, 8, to), src(8, 8, from);
    EXPECT_EQ(ImageProc_cvt(&rigs.rigs[0].proc, &dst, &src), ZELVAN_ERROR_GENERAL) << to << " from " << from;
    EXPECT_TRUE(dst.unchanged());
  }
}

TEST(Shift, FollowsTheFormatsOfThePair) {
  KernelRigs rigs;
  const int32_t cases[][3] = {{57, 57, 256}, {61, 61, 65536}, {57, 61, 0}};  // modulus 0: saturates at 255
  for (KernelRig& rig : rigs) {
    for (const auto& [to, from, modulus] : cases) {
      for (const int32_t n : {0, 1, 3, 8, 15, 16, 31, 32, 40, -1, -7, -16, -31, -32, INT32_MAX, INT32_MIN}) {
        TestImage src(33, 70, from, 5, 8), dst(33, 70, to, 6, 8);
        if (n == 3) makeExtreme(src);
        Plane expected = planesOf(src)[0];
        for (int64_t& v : expected.values) {
          v = n >= 32 || n <= -32 ? 0 : n >= 0 ? v >> n : v << -n;
          v = modulus != 0 ? v % modulus : std::min<int64_t>(v, 255);
        }
        ASSERT_EQ(ImageProc_n_shift(&rig.proc, &dst, &src, n), ZELVAN_OK);
        EXPECT_EQ(planesOf(dst)[0], expected) << to << " from " << from << " by " << n;
        EXPECT_TRUE(dst.guardsUnchanged());
        if (to != from) continue;
        ASSERT_EQ(ImageProc_n_shift(&rig.proc, &src, &src, n), ZELVAN_OK);
        EXPECT_EQ(planesOf(src)[0], expected);
      }
    }
    TestImage bytes(4, 4, 57), words(4, 4, 61, 1, 8);
    EXPECT_EQ(ImageProc_n_shift(&rig.proc, &words, &bytes, 1), ZELVAN_ERROR_PARAM);
  }
}

TEST(Table, LooksUpWhatTheTableHolds) {
  KernelRigs rigs;
  uint8_t table[300];
  for (int32_t i = 0; i < 300; ++i) table[i] = static_cast<uint8_t>(i * 7 + 3);
  for (KernelRig& rig : rigs) {
    for (const int32_t entries : {0, 32, 33, 100, 256, 300}) {
      TestImage image(33, 70, 57), words(4, 4, 61);
      Plane expected = planesOf(image)[0];
      for (int64_t& v : expected.values) v = entries < 33 ? v : v < entries ? table[v] : 0;
      ASSERT_EQ(ImageProc_table(&rig.proc, &image, &image, table, entries), ZELVAN_OK);
      EXPECT_TRUE(planesOf(image)[0] == expected && image.guardsUnchanged()) << entries;
      EXPECT_EQ(ImageProc_table(&rig.proc, &words, &words, table, entries), ZELVAN_ERROR_UNSUPPORTED);
    }
  }
}

}  // namespace
