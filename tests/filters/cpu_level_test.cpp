// Every build of the row functions against the plain one, through the kernels that call them.
#include "engine/tessal4.h"
#include "filters/denoiser.h"
#include "filters/sharpen.h"
#include "imageproc/blur.h"
#include "imageproc/guided_filter.h"
#include "imageproc/kernel_rig.h"
#include "imageproc/resize.h"
#include "imageproc/window_sums.h"
#include "pixels/image_func.h"
#include "support/cpu_levels.h"
#include "support/pixel_scene.h"

namespace {

constexpr int32_t kVu = IMAGE_YVU420_SEMIPLANAR, kUv = IMAGE_YUV420_SEMIPLANAR, kY = IMAGE_UINT8;

// What a kernel gets: a scene, noise or extremes of one size, its twin, a map, and a place for the result.
struct Pictures {
  Pictures(KernelRig* rig, int32_t w, int32_t h, int32_t format, int32_t content)
      : proc(&rig->proc),
        env(rig->arena.env()),
        src(w, h, format, 1, 8),
        other(w, h, format, 2, 8),
        map(w, h, kY, 3),
        wide(w, h, IMAGE_UINT16, 4, 8),
        dst(w, h, format, 5, 8) {
    if (content == 0) {
      fillScene(src, 6, 12);
      fillScene(other, 7, 12);
      fillMap(map, 8, 128);
    } else if (content == 1) {
      makeExtreme(src);
      makeExtreme(wide);
    }
  }
  uint64_t hash() const {
    test::Hash all;
    for (const TestImage* image : {&src, &other, &map, &wide, &dst}) image->addTo(&all);
    all.bytes(&number, sizeof number);
    return all.value();
  }
  ImageProc* proc;
  Env* env;
  TestImage src, other, map, wide, dst;
  uint32_t number = 0;
};

struct Kernel {
  const char* name;
  int32_t format;
  void (*run)(Pictures& p);
};

Mvec8Real warp(double turn, double zoom) {
  Mvec8Real m = {};
  const double h[9] = {zoom, -turn, 1.3, turn, zoom, -0.7, 1e-5, -2e-5, 1.0};
  std::copy_n(h, 9, m.h);
  return m;
}

void render(Pictures& p, double turn, double zoom) {
  const Mvec8Real m = warp(turn, zoom);
  Tessal4ImageFunc_render(nullptr, p.env, &p.dst, &p.src, &m);
}

void denoise(Pictures& p, int32_t passes, double strength) {
  const int32_t kinds[] = {0};
  const double strengths[] = {1.0, strength, strength / 2};
  Tessal4Denoiser_denoiseInplace(nullptr, p.env, &p.src, &p.map, 0, kinds, 0, 4, passes, strengths);
}

void guided(Pictures& p, int32_t shrink, bool withMap) {
  GuidedFilter filter;
  GuidedFilterParam param;
  GuidedFilterParam_setDefault(&param);
  param.numShrink = shrink;
  construct_GuidedFilter(&filter, p.env);
  if (GuidedFilter_init(&filter, p.src.width, p.src.height, &param) == ZELVAN_OK) {
    TestImage grid((p.src.width + (1 << shrink) - 1) >> shrink, (p.src.height + (1 << shrink) - 1) >> shrink, kY, 9);
    withMap ? GuidedFilter_execute_with_epsilon_map(&filter, &p.dst, &p.src, 40.0f, &grid, 9)
            : GuidedFilter_execute(&filter, &p.dst, &p.src, 90.0f, 17);
  }
  GuidedFilter_recycle(&filter);
  destruct_GuidedFilter(&filter);
}

void shrink(Pictures& p, int32_t factor, decltype(&Tessal4ImageFunc_shrink2) run) {
  TestImage small(p.src.width / factor, p.src.height / factor, kVu);
  run(nullptr, &small, &p.src);
  std::copy_n(small.plane0, small.width, p.dst.plane0);
  std::copy_n(small.plane1, small.width / 2 * 2, p.dst.plane1);
}
const int32_t kWeights[] = {9000, 7000, 8192};

const Kernel kKernels[] = {
    {"chroma denoiser", kVu, [](Pictures& p) { denoise(p, 3, 20.0); }},
    {"chroma denoiser, strong", kVu, [](Pictures& p) { denoise(p, 2, 255.0); }},
    {"spike", kY, [](Pictures& p) { Tessal4Denoiser_removeSpikePEL(nullptr, &p.dst, &p.src, &p.map, 3.0); }},
    {"sharpen 5x5", kY,
     [](Pictures& p) {
       Tessal4ImageFunc_adaSharp5x5_uint8_withmap(nullptr, p.env, &p.dst, &p.src, &p.map, 0.8, 0.3, 900.0, 0.5);
     }},
    {"sharpen 7x7", kY,
     [](Pictures& p) { Tessal4ImageFunc_adaSharp7x7_uint8(nullptr, p.env, &p.src, &p.src, 1.8, 0.5, -2e9, 3.0); }},
    {"score", kY, [](Pictures& p) { Tessal4ImageFunc_evalBlur(nullptr, p.env, &p.number, &p.src, 0, 0, 1.5, 0.5); }},
    {"blur", kY, [](Pictures& p) { Tessal4ImageFunc_blur_uint8(nullptr, p.env, &p.dst, &p.src, 1.1); }},
    {"blur of pairs", IMAGE_UINT88,
     [](Pictures& p) { Tessal4ImageFunc_blur_uint88(nullptr, p.env, &p.dst, &p.src, 2.2); }},
    {"difference, V first", kVu,
     [](Pictures& p) { Tessal4ImageFunc_diff(nullptr, &p.dst, &p.src, &p.other, kWeights); }},
    {"difference, U first", kUv,
     [](Pictures& p) { Tessal4ImageFunc_diff(nullptr, &p.dst, &p.src, &p.other, kWeights); }},
    {"shrink by 2", kVu, [](Pictures& p) { shrink(p, 2, Tessal4ImageFunc_shrink2); }},
    {"shrink by 4", kVu, [](Pictures& p) { shrink(p, 4, Tessal4ImageFunc_shrink4); }},
    {"warp", kVu, [](Pictures& p) { render(p, 0.02, 1.01); }},
    {"warp within the source", kVu,
     [](Pictures& p) {  // from the second span on, behind 256 pixels
       TestImage src(p.src.width + 320, 8, kVu, 6), dst(p.src.width + 300, 6, kVu, 7);
       if (p.src.width % 2 != 0) makeExtreme(src);
       const Mvec8Real m = warp(0.0, 1.0);
       Tessal4ImageFunc_render(nullptr, p.env, &dst, &src, &m);
       p.number = static_cast<uint32_t>(test::Hash().image(dst).value());
     }},
    {"warp and blend", kVu,
     [](Pictures& p) {
       const Mvec8Real m = warp(0.0, 1.0), turned = warp(0.03, 0.98);
       Tessal4ImageFunc_renderAccum(nullptr, p.env, &p.dst, &p.src, &m, &p.map);
       Tessal4ImageFunc_renderAccum(nullptr, p.env, &p.dst, &p.other, &turned, &p.map);
     }},
    {"blend in place", kVu,
     [](Pictures& p) { Tessal4ImageFunc_updateImage(nullptr, p.env, &p.dst, &p.src, &p.map, &p.map); }},
    {"blend map", kY,
     [](Pictures& p) {
       uint8_t table[256];
       for (int32_t i = 0; i < 256; ++i) table[i] = static_cast<uint8_t>(i < 128 ? 128 - i : 0);
       Tessal4BlendMapRows blend = {table, &p.src, &p.wide, &p.dst, 0, p.src.height};
       Tessal4_blendMapRows(&blend);
       int32_t count = 0;
       Tessal4CountDiffRows rows = {&p.src, &count, 0, p.src.height};
       Tessal4_countDiffRows(&rows);
       p.number = static_cast<uint32_t>(count);
     }},
    {"guided filter", kY, [](Pictures& p) { guided(p, 2, true); }},
    {"guided filter, half size", kY, [](Pictures& p) { guided(p, 1, false); }},
    {"guided filter, whole size", kY, [](Pictures& p) { guided(p, 0, true); }},
    {"Gaussian blur", kY, [](Pictures& p) { ImageProc_gaussBlur2(p.proc, &p.dst, &p.src, 2.0); }},
    {"Gaussian blur of 16 bits", IMAGE_UINT16,
     [](Pictures& p) { ImageProc_filterGaussianBlur7x7_uint16(p.proc, &p.dst, &p.src, 2.0); }},
    {"column sums", kY, [](Pictures& p) { sum_vert(&p.wide, &p.src, 5, nullptr); }},
};

TEST(CpuLevels, GiveTheSameBytes) {
  KernelRig rig(0);
  for (const Kernel& kernel : kKernels) {
    for (int32_t width = 1; width <= 200; ++width) {
      const int32_t height = width % 16 == 0 ? 41 : 4 + width % 7;
      for (int32_t content = 0; content < 3; ++content) {
        uint64_t plain = 0;
        test::atEveryLevel([&](CpuLevel level) {
          Pictures pictures(&rig, width, height, kernel.format, content);
          kernel.run(pictures);
          if (level == CPU_PLAIN) plain = pictures.hash();
          ASSERT_EQ(pictures.hash(), plain)
              << kernel.name << ' ' << cpuLevelName(level) << ' ' << width << 'x' << height << ' ' << content;
        });
      }
    }
  }
  const int32_t tooHigh = cpuLevel() + 1;
  EXPECT_FALSE(tooHigh < CPU_LEVELS && setCpuLevel(static_cast<CpuLevel>(tooHigh)));
}

// The fast stretch of rows by whole factors against the formula of both fractions.
TEST(CpuLevels, WholeFactorsStretchLikeAllOthers) {
  KernelRig rig(0);
  for (const int32_t factor : {1, 2, 4, 8}) {
    for (int32_t w = 1; w <= 40; ++w) {
      TestImage src(w, 3, kY, 4), dst(factor * w, 3, kY, 5);
      ASSERT_EQ(ImageProc_resizeImage(&rig.proc, &dst, &src), ZELVAN_OK);
      for (int32_t x = 0; x < dst.width; ++x) {
        // In units of 1 / 2 factor of a source pixel, from the centre of the first.
        const int32_t at = std::clamp(2 * x + 1 - factor, 0, (w - 1) * 2 * factor);
        const int32_t i = at / (2 * factor), f = at % (2 * factor);
        const int32_t next = std::min(i + 1, w - 1);
        const int32_t sum = (2 * factor - f) * src.plane0[i] + f * src.plane0[next];
        ASSERT_EQ(dst.plane0[x], (sum + factor) / (2 * factor)) << factor << ' ' << w << ' ' << x;
      }
    }
  }
}

}  // namespace
