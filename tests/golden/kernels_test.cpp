// Hashes of the kernels below the engine: over formats, odd sizes, noise and extremes, for any number of workers.
#include "imageproc/blur.h"
#include "imageproc/guided_filter.h"
#include "imageproc/kernel_rig.h"
#include "imageproc/render.h"
#include "imageproc/resize.h"
#include "imageproc/window_sums.h"
#include "tracker/feat_pnt_list.h"
#include "tracker/vectral.h"
#include "tracker/vectral_block.h"
#include "tracker/vectral_util.h"

namespace {

using Shape = std::array<int32_t, 4>;  // width and height of the source, then of the destination

class Kernels : public testing::Test {
 protected:
  // run(rig, dst, src, value) for every format, shape and value.
  template <typename Run>
  void keepsItsBits(const std::string& name, const std::vector<int32_t>& formats, const std::vector<Shape>& shapes,
                    const std::vector<double>& values, const Run& run) {
    for (KernelRig& rig : rigs) {
      test::Hash hash;
      for (size_t i = 0; i < formats.size() * shapes.size() * values.size(); ++i) {
        const int32_t format = formats[i % formats.size()];
        const auto& [w, h, dw, dh] = shapes[i / formats.size() % shapes.size()];
        SCOPED_TRACE(testing::Message() << name << ' ' << format << ' ' << w << 'x' << h);
        TestImage src(w, h, format, 11, 8), dst(dw, dh, format, 12, 8);
        if (dw % 2 != 0) makeExtreme(src);
        ASSERT_EQ(run(rig, &dst, &src, values[i / formats.size() / shapes.size()]), ZELVAN_OK);
        EXPECT_TRUE(dst.guardsUnchanged() && src.guardsUnchanged());
        dst.addTo(&hash);
      }
      test::expectGolden("kernels.txt", name, hash);
    }
  }
  KernelRigs rigs;
};

TEST_F(Kernels, Blurs) {
  const std::vector<Shape> shapes = {{1, 1, 1, 1},       {2, 40, 2, 40},   {7, 7, 7, 7},     {33, 20, 33, 20},
                                     {32, 100, 32, 100}, {66, 71, 66, 71}, {61, 90, 61, 90}, {300, 70, 300, 70}};
  const struct {
    const char* name;
    Status (*blur)(ImageProc*, Image*, const Image*, double);
    Status (*twin)(ImageProc2*, Image*, const Image*, double);
    std::vector<int32_t> formats;
  } members[] = {
      {"direct", ImageProc_gaussBlur2, ImageProc2_gaussBlur, {57, 2, 25, 26, 29, 36, 64}},
      {"7x7-uint8", ImageProc_filterGaussianBlur7x7_uint8, ImageProc2_filterGaussianBlur7x7_uint8, {57}},
      {"7x7-uint88", ImageProc_filterGaussianBlur7x7_uint88, ImageProc2_filterGaussianBlur7x7_uint88, {64}},
      {"7x7-uint16", ImageProc_filterGaussianBlur7x7_uint16, ImageProc2_filterGaussianBlur7x7_uint16, {61}},
      {"5x5-uint16", ImageProc_filterGaussianBlur5x5_uint16, nullptr, {61}},
      {"3x3-uint16", ImageProc_filterGaussianBlur3x3_uint16, nullptr, {61}},
      {"halves", ImageProc_pgaussBlur, nullptr, {27, 57}},
      {"halves-pel", nullptr, ImageProc2_pgaussBlur, {27, 57}},
  };
  for (const auto& m : members) {
    keepsItsBits("blur." + std::string(m.name), m.formats, shapes, {0.01, 1.0, 1.8, 1.81, 6.0, 45.0},
                 [&](KernelRig& rig, Image* dst, Image* src, double sigma) {
                   const auto byTwin = [&](Image* to) { return m.twin(&rig.proc2, to, src, sigma); };
                   const auto byBlur = [&](Image* to) { return m.blur(&rig.proc, to, src, sigma); };
                   const Status status = m.blur != nullptr ? byBlur(dst) : byTwin(dst);
                   EXPECT_EQ(m.twin != nullptr ? byTwin(src) : byBlur(src), status);
                   EXPECT_EQ(planesOf(*src), planesOf(*dst)) << "in place";
                   return status;
                 });
  }
}

TEST_F(Kernels, Resizes) {
  const std::vector<int32_t> formats = {26, 27, 29, 57, 58, 61, 64};
  const std::vector<Shape> shapes = {
      {10, 7, 33, 20},  {64, 48, 201, 150}, {33, 17, 33, 40}, {100, 80, 37, 29}, {200, 11, 199, 9}, {1, 1, 9, 5},
      {5, 5, 1, 1},     {65, 2, 512, 7},    {64, 48, 32, 24}, {64, 48, 33, 25},  {65, 49, 33, 25},  {65, 49, 32, 24},
      {64, 48, 34, 24}, {2, 6, 2, 3},       {1, 9, 1, 5},     {131, 66, 66, 65}, {9, 130, 10, 200}, {63, 3, 129, 300}};
  const std::vector<Shape> smaller = {{64, 48, 32, 24},  {65, 49, 33, 25}, {64, 48, 16, 12}, {100, 80, 37, 29},
                                      {101, 77, 30, 23}, {90, 70, 23, 18}, {9, 9, 1, 1},     {130, 40, 40, 12},
                                      {33, 47, 8, 12},   {12, 90, 1, 7},   {20, 16, 19, 3}};
  keepsItsBits("resize", formats, shapes, {0}, [](KernelRig& rig, Image* dst, Image* src, double) {
    return ImageProc_resizeImage(&rig.proc, dst, src);
  });
  keepsItsBits("resize-pel", formats, shapes, {0}, [](KernelRig& rig, Image* dst, Image* src, double) {
    return ImageProc2_resizeImage(&rig.proc2, dst, src);
  });
  keepsItsBits("average-shrink", formats, smaller, {0}, [](KernelRig& rig, Image* dst, Image* src, double) {
    return ImageProc2_averageShrink(&rig.proc2, dst, src);
  });
}

// Shifts by whole and broken pixels, along the border and off the source; the executor's form and that of a Pel.
TEST_F(Kernels, Shifts) {
  const std::vector<Shape> shapes = {
      {150, 170, 150, 170}, {40, 90, 34, 140}, {40, 30, 2, 2}, {1, 1, 9, 33}, {46, 35, 45, 37}};
  const auto motionOf = [](double shift) { return Mvec8Real{{1, 0, shift, 0, 1, 0.7 * shift, 0, 0, 1}, {}}; };
  const std::vector<double> shifts = {0, 3, 0.4, 0.99994, 400};
  keepsItsBits("shift", {27, 29, 57, 4, 15}, shapes, shifts, [&](KernelRig& rig, Image* dst, Image* src, double shift) {
    const Mvec8Real motion = motionOf(shift);
    return ImageProc_render(&rig.proc, dst, src, &motion);
  });
  keepsItsBits("shift-pel", {27, 29, 57, 61}, shapes, shifts,
               [&](KernelRig& rig, Image* dst, Image* src, double shift) {
                 const Mvec8Real motion = motionOf(shift);
                 return ImageProc2_render(&rig.proc2, dst, src, &motion);
               });
}

// The next level of a pyramid, and the local contrast of a level.
TEST_F(Kernels, Pyramids) {
  const std::vector<Shape> shapes = {{4, 4, 1, 1},     {4, 9, 1, 3},     {5, 5, 1, 1},
                                     {37, 23, 17, 10}, {90, 68, 44, 33}, {91, 141, 44, 69}};
  keepsItsBits("pyramid", {57}, shapes, {0}, [](KernelRig& rig, Image* dst, Image* src, double) {
    ScopedImage contrast(rig.arena.env());
    EXPECT_EQ(ImageUint8_calcLocalY(&contrast, src), ZELVAN_OK);
    src->env = rig.arena.env();
    EXPECT_EQ(ImageUint8_calcLocalY(src, src), ZELVAN_OK);
    EXPECT_EQ(planesOf(*src), planesOf(contrast)) << "in place";
    return VectralUtil_shrink2ForMvecDetect(dst, &contrast, rig.proc.executor);
  });
}

// Softened noise with a flat corner; windows from 3 to 101, of the frame and of a rectangle.
TEST_F(Kernels, GuidedFilters) {
  const std::vector<Shape> shapes = {{151, 118, 151, 118}, {1103, 34, 1103, 34}, {138, 93, 138, 93}};
  for (int32_t form = 0; form < 12; ++form) {
    const int32_t numShrink = form % 3;
    const bool inRect = form / 3 % 2 != 0, withMap = form >= 6;
    const std::string name = std::to_string(numShrink) + (inRect ? "-rect" : "") + (withMap ? "-map" : "");
    keepsItsBits("guided." + name, {57, 29}, shapes, {3, 23, 41, 101},
                 [&](KernelRig& rig, Image* dst, Image* src, double window) {
                   EXPECT_EQ(ImageProc_gaussBlur2(&rig.proc, src, src, 1.2), ZELVAN_OK);
                   for (int32_t y = 0; y < 30; ++y) std::fill_n(imageRow(src, y), 40, uint8_t{77});
                   const TestImage map(src->width / 3 + 2, src->height / 2, IMAGE_UINT8, 7);
                   const GuidedFilterParam param = {1, numShrink};
                   const ImageRect rect = {7, 5, src->width - 9, src->height - 3};
                   const float epsilon = window == 23 ? -60.0f : static_cast<float>(9 * window);
                   const auto filter = std::make_unique<GuidedFilter>();
                   EXPECT_EQ(construct_GuidedFilter(filter.get(), rig.arena.env()) |
                                 GuidedFilter_init(filter.get(), src->width, src->height, &param) |
                                 GuidedFilter_setPel(filter.get(), rig.proc2.pel) |
                                 (inRect ? GuidedFilter_setRect(filter.get(), &rect) : ZELVAN_OK),
                             ZELVAN_OK);
                   const auto run = [&](Image* to) {
                     const auto side = static_cast<int32_t>(window);
                     return withMap ? GuidedFilter_execute_with_epsilon_map(filter.get(), to, src, epsilon, &map, side)
                                    : GuidedFilter_execute(filter.get(), to, src, epsilon, side);
                   };
                   const Plane before = planesOf(*src)[0];
                   const Status status = run(dst) | run(nullptr) | destruct_GuidedFilter(filter.get());
                   const Plane beside = planesOf(*dst)[0], inPlace = planesOf(*src)[0];
                   int32_t wrong = 0;
                   for (size_t i = 0; i < before.values.size(); ++i) {
                     wrong +=
                         inPlace.values[i] != beside.values[i] && !(inRect && inPlace.values[i] == before.values[i]);
                   }
                   EXPECT_EQ(wrong, 0);
                   return status;
                 });
  }
}

// Corners of noise as it is, softened and driven to extremes, where the response wraps.
TEST_F(Kernels, Features) {
  constexpr int32_t kSizes[][2] = {{320, 240}, {64, 64}, {63, 41}, {200, 100}, {24, 24}, {150, 60}};
  constexpr int32_t kLimits[][3] = {{96, 7, 16384}, {256, 7, 90000}, {40, 2, 32768}};  // points, block, scale
  for (KernelRig& rig : rigs) {
    test::Hash hash;
    for (int32_t i = 0; i < 72; ++i) {
      const auto& [w, h] = kSizes[i % 6];
      const auto& [maximum, block, scale] = kLimits[i / 6 % 3];
      TestImage image(w, h, IMAGE_UINT8, 4);
      if (i / 18 == 1) makeExtreme(image);
      if (i / 18 > 1) ImageProc_gaussBlur2(&rig.proc, &image, &image, i / 36.0);
      FeatPntList list;
      ASSERT_EQ(construct_FeatPntList(&list, maximum, rig.arena.env()), ZELVAN_OK);
      for (const int32_t subdivide : {0, 1}) {
        EXPECT_EQ(VectralFeatPntList_calc(&list, &image, maximum, block, subdivide, scale, 4, rig.proc.executor),
                  ZELVAN_OK);
        hash.bytes(&list.count, sizeof list.count).bytes(list.pnts, static_cast<size_t>(list.count) * sizeof(FeatPnt));
      }
      EXPECT_EQ(destruct_FeatPntList(&list), ZELVAN_OK);
    }
    test::expectGolden("kernels.txt", "features", hash);
  }
}

// Blocks of softened noise or of two grey levels, sought near their place in the same picture, in another, on a flat,
// where all costs tie, and beyond the border.
TEST_F(Kernels, Alignments) {
  for (const int32_t type : {0, 1, 3}) {
    VectralBlockFuncTbl table;
    ASSERT_EQ(VectralBlock_getFuncTbl(&table, type), ZELVAN_OK);
    test::Hash hash;
    int32_t found = 0, lost = 0;
    for (uint32_t i = 0; i < 2500; ++i) {
      TestImage base(25, 22, IMAGE_UINT8, i), image(25, 22, IMAGE_UINT8, i % 3 == 0 ? i + 9999 : i);
      for (TestImage* each : {&base, &image}) {
        if (i % 5 == 0) makeExtreme(*each);
        if (i % 5 != 0) ImageProc_gaussBlur2(&rigs.rigs[0].proc, each, each, 1.4);
      }
      for (int32_t row = 0; i % 4 == 0 && row < 14; ++row) std::fill_n(image.row(0, row), 25, uint8_t{200});
      for (uint32_t k = 0; k < i % 60; ++k) image.row(0, k * 7 % 22)[k * 11 % 25] ^= 31;
      const int32_t x = type == 0 ? 4 + i % 17 : i % 25, y = type == 0 ? 4 + i % 14 : i % 22, radius = i % 6;
      VectralBlockHybrid block;  // has room for either form
      if (table.init(&block, &base, x, y, 0) != ZELVAN_OK) continue;
      int32_t at[3] = {x * 32768 + static_cast<int32_t>(i * 7919 % 65536) - 32768, y * 32768 - int32_t(i * 31), -9};
      EXPECT_EQ(table.alignment(&block, &image, &at[0], &at[1], &radius, &at[2]), ZELVAN_OK);
      ++(at[0] == VECTRAL_POS_LOST ? lost : found);
      hash.bytes(at, sizeof at);
    }
    EXPECT_TRUE(found > 500 && (type != 0 || lost > 500)) << found << ' ' << lost;
    test::expectGolden("kernels.txt", "alignment." + std::to_string(type), hash);
  }
}

// A shift, some points 5 pixels too far or lost: every way to add and weigh them.
TEST_F(Kernels, Solves) {
  int32_t columns[6][70] = {};
  VectralFPHistory residuals[70] = {};
  VectralFPList list = {};
  list.count = 70, list.updateCount = 3, list.history = residuals;
  list.baseX = columns[0], list.baseY = columns[1], list.curX = columns[2], list.curY = columns[3];
  list.strength = columns[4], list.inlier = columns[5];
  for (int32_t i = 0; i < 70; ++i) {
    const bool lost = i % 11 == 5, outlier = i % 17 == 3;
    const int32_t x = 10 + 37 * i % 301, y = 8 + 53 * i % 223;
    list.baseX[i] = x, list.baseY[i] = y, list.strength[i] = 20 + 13 * i % 150;
    list.curX[i] = lost ? VECTRAL_POS_LOST : x * 32768 + (outlier ? 5 << 15 : 82432 + i % 3 * 819);
    list.curY[i] = lost ? VECTRAL_POS_LOST : y * 32768 - 40960;
    residuals[i] = {outlier ? 4000 : 40, 10};
  }
  KernelRig& rig = rigs.rigs[0];
  const auto tracker = std::make_unique<Vectral>();
  MILsm lsm;
  ASSERT_EQ(construct_Vectral(tracker.get(), rig.arena.env()) | construct_MILsm(&lsm, rig.arena.env()), ZELVAN_OK);
  ASSERT_EQ(MILsm_init(&lsm, MILSM_8ST, 2), ZELVAN_OK);
  test::Hash hash;
  for (int32_t mode = 0; mode < 5; ++mode) {
    Mvec8Real motion = {{1, 0, 1, 0, 1, 0, 0, 0, 1}, {}};
    list.count = mode < 4 ? 70 : 0;  // without points the motion stays
    std::fill_n(list.inlier, 70, 0);
    const Status status = mode == 0   ? Vectral_solvePlain(tracker.get(), &motion, &list, &lsm)
                          : mode == 1 ? Vectral_solveHistoryWeighted(tracker.get(), &motion, &list, &lsm)
                          : mode == 2 ? Vectral_solveWeighted(tracker.get(), &motion, &list, &lsm)
                                      : Vectral_solveTwoPass(tracker.get(), &motion, &list, 320, 240, &lsm);
    EXPECT_EQ(status, ZELVAN_OK);
    EXPECT_EQ(tracker->failureCode, 0x40000000u | (mode == 4 ? uint32_t{VECTRAL_FAIL_SOLVER} : 0u));
    // Flags are set from 2 on; the second pass of 3 leaves out what is too far from the first result.
    for (int32_t i = 0; i < list.count && mode >= 2; ++i) {
      EXPECT_EQ(list.inlier[i], i % 11 != 5 && (mode == 2 || i % 17 != 3)) << mode << ' ' << i;
    }
    EXPECT_NEAR(motion.h[2], mode == 4 ? 1 : 2.5, mode == 1 || mode >= 3 ? 0.1 : 1) << mode;
    hash.bytes(&motion, sizeof motion).bytes(list.inlier, sizeof columns[5]);
  }
  test::expectGolden("kernels.txt", "solves", hash);
  EXPECT_EQ(destruct_MILsm(&lsm) | destruct_Vectral(tracker.get()), ZELVAN_OK);
}

}  // namespace
