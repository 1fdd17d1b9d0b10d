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
  const int32_t refused[][3] = {{27, 29, 8}, {58, 63, 8}, {27, 57, 8}, {57, 30, 8}, {0, 0, 8}, {57, 57, 0}};
  for (const auto& [to, from, width] : refused) {
    TestImage dst(width, 8, to), src(8, 8, from);
    EXPECT_EQ(ImageProc_cvt(&rigs.rigs[0].proc, &dst, &src), ZELVAN_ERROR_GENERAL) << to << " from " << from;
    EXPECT_TRUE(dst.unchanged());
  }
}

TEST(Cvt, KeepsValuesBetweenPixelTypes) {
  KernelRigs rigs;
  const int32_t pairs[][2] = {{57, 58}, {57, 63}, {57, 61}, {61, 57}, {58, 57}, {63, 57}, {58, 61}, {63, 61}, {58, 65}};
  for (KernelRig& rig : rigs) {
    for (const auto& [to, from] : pairs) {
      TestImage src(33, 41, from, 5, 8), dst(33, 41, to, 6, 8);
      for (int32_t i = 0; i < 33 * 41; ++i) {
        const int32_t x = i % 33, y = i / 33;
        if (from == IMAGE_FLOAT) imageRow<float>(&src, y)[x] = static_cast<float>(i - 600);
        if (from == IMAGE_INT32 && i % 3 != 0) imageRow<int32_t>(&src, y)[x] = i - 600;
      }
      Plane expected = planesOf(src)[0];
      for (int64_t& v : expected.values) v = to == 57 ? std::clamp<int64_t>(v, 0, 255) : v;
      ASSERT_EQ(ImageProc_cvt(&rig.proc, &dst, &src), ZELVAN_OK) << to << " from " << from;
      EXPECT_EQ(planesOf(dst)[0], expected) << to << " from " << from;
      EXPECT_TRUE(dst.guardsUnchanged());
    }
  }
  TestImage real(4, 1, IMAGE_FLOAT), bytes(4, 1, IMAGE_UINT8);
  const float values[4] = {254.99f, -0.99f, 3e38f, std::numeric_limits<float>::quiet_NaN()};
  memcpy(real.row(0, 0), values, sizeof values);
  ASSERT_EQ(ImageProc_cvt(&rigs.rigs[0].proc, &bytes, &real), ZELVAN_OK);
  EXPECT_TRUE(bytes.row(0, 0)[0] == 254 && bytes.row(0, 0)[1] == 0 && bytes.row(0, 0)[2] == 255);
  EXPECT_EQ(bytes.row(0, 0)[3], 0);
}

TEST(Shift, FollowsTheFormatsOfThePair) {
  KernelRigs rigs;
  const int32_t cases[][3] = {{57, 57, 8}, {61, 61, 16}, {58, 58, 32}, {65, 65, 16},
                              {27, 27, 8}, {29, 29, 8},  {57, 61, 0}};  // bits that stay; 0: saturates at 255
  const auto kept = [](int64_t v, int32_t bits, bool isSigned) {
    if (bits == 0) return std::min<int64_t>(v, 255);
    const int64_t low = v & ((int64_t{1} << bits) - 1);
    return isSigned && low >> (bits - 1) != 0 ? low - (int64_t{1} << bits) : low;
  };
  for (KernelRig& rig : rigs) {
    for (const auto& [to, from, bits] : cases) {
      const bool isSigned = to == IMAGE_INT32 || to == IMAGE_INT16;
      for (const int32_t n : {0, 1, 3, 8, 15, 16, 31, 32, 40, -1, -7, -16, -31, -32, INT32_MAX, INT32_MIN}) {
        TestImage src(34, 70, from, 5, 8), dst(34, 70, to, 6, 8);
        if (n == 3) makeExtreme(src);
        std::vector<Plane> expected = planesOf(src);
        for (Plane& plane : expected) {
          for (int64_t& v : plane.values) {
            v = kept(n >= 32 ? -int64_t{v < 0} : n <= -32 ? 0 : n >= 0 ? v >> n : v << -n, bits, isSigned);
          }
        }
        ASSERT_EQ(ImageProc_n_shift(&rig.proc, &dst, &src, n), ZELVAN_OK);
        EXPECT_EQ(planesOf(dst), expected) << to << " from " << from << " by " << n;
        EXPECT_TRUE(dst.guardsUnchanged());
        if (to != from) continue;
        ASSERT_EQ(ImageProc_n_shift(&rig.proc, &src, &src, n), ZELVAN_OK);
        EXPECT_EQ(planesOf(src), expected);
      }
    }
    TestImage bytes(4, 4, 57), words(4, 4, 61, 1, 8), odd(3, 3, 27);
    EXPECT_EQ(ImageProc_n_shift(&rig.proc, &words, &bytes, 1), ZELVAN_ERROR_PARAM);
    const uint8_t last = odd.row(1, 1)[3];  // the pair of an odd size, too
    EXPECT_EQ(ImageProc_n_shift(&rig.proc, &odd, &odd, 1), ZELVAN_OK);
    EXPECT_EQ(odd.row(1, 1)[3], last >> 1);
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
