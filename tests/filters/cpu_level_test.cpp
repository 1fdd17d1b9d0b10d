// Every build of the row functions against the plain one, through the kernels that call them.
#include "base/cpu_level.h"

#include <functional>

#include "engine/tessal4.h"
#include "filters/denoiser.h"
#include "filters/sharpen.h"
#include "imageproc/blur.h"
#include "imageproc/guided_filter.h"
#include "imageproc/kernel_rig.h"
#include "imageproc/resize.h"
#include "imageproc/window_sums.h"
#include "pixels/image_func.h"
#include "support/pixel_scene.h"

namespace {

constexpr int32_t kVu = IMAGE_YVU420_SEMIPLANAR, kUv = IMAGE_YUV420_SEMIPLANAR, kY = IMAGE_UINT8;

// What a kernel gets: a scene, noise or extremes of one size, its twin, a map, and a place for the result.
struct Pictures {
  Pictures(int32_t w, int32_t h, int32_t format, int32_t content)
      : src(w, h, format, 1, 8),
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
  uint64_t hash(uint32_t number) const {
    test::Hash all;
    for (const TestImage* image : {&src, &other, &map, &wide, &dst}) image->addTo(&all);
    all.bytes(&number, sizeof number);
    return all.value();
  }
  TestImage src, other, map, wide, dst;
};

struct Kernel {
  const char* name;
  int32_t format;
  std::function<void(KernelRig&, Pictures&, uint32_t*)> run;
};

Mvec8Real warp(double turn, double zoom) {
  Mvec8Real m = {};
  const double h[9] = {zoom, -turn, 1.3, turn, zoom, -0.7, 1e-5, -2e-5, 1.0};
  std::copy_n(h, 9, m.h);
  return m;
}

void denoise(KernelRig& rig, Pictures& p, int32_t passes, double strength) {
  const int32_t kinds[] = {0};
  const double strengths[] = {1.0, strength, strength / 2};
  Tessal4Denoiser_denoiseInplace(nullptr, rig.arena.env(), &p.src, &p.map, 0, kinds, 0, 4, passes, strengths);
}

void guided(KernelRig& rig, Pictures& p, int32_t shrink, bool withMap) {
  GuidedFilter filter;
  GuidedFilterParam param;
  GuidedFilterParam_setDefault(&param);
  param.numShrink = shrink;
  construct_GuidedFilter(&filter, rig.arena.env());
  if (GuidedFilter_init(&filter, p.src.width, p.src.height, &param) == ZELVAN_OK) {
    TestImage grid((p.src.width + (1 << shrink) - 1) >> shrink, (p.src.height + (1 << shrink) - 1) >> shrink, kY, 9);
    withMap ? GuidedFilter_execute_with_epsilon_map(&filter, &p.dst, &p.src, 40.0f, &grid, 9)
            : GuidedFilter_execute(&filter, &p.dst, &p.src, 90.0f, 17);
  }
  GuidedFilter_recycle(&filter);
  destruct_GuidedFilter(&filter);
}

const int32_t kWeights[] = {9000, 7000, 8192};

const Kernel kKernels[] = {
    {"chroma denoiser", kVu, [](auto& rig, auto& p, auto) { denoise(rig, p, 3, 20.0); }},
    {"chroma denoiser, strong", kVu, [](auto& rig, auto& p, auto) { denoise(rig, p, 2, 255.0); }},
    {"spike", kY, [](auto&, auto& p, auto) { Tessal4Denoiser_removeSpikePEL(nullptr, &p.dst, &p.src, &p.map, 3.0); }},
    {"sharpen 5x5", kY,
     [](auto& rig, auto& p, auto) {
       Tessal4ImageFunc_adaSharp5x5_uint8_withmap(nullptr, rig.arena.env(), &p.dst, &p.src, &p.map, 0.8, 0.3, 900.0,
                                                  0.5);
     }},
    {"sharpen 7x7", kY,
     [](auto& rig, auto& p, auto) {
       Tessal4ImageFunc_adaSharp7x7_uint8(nullptr, rig.arena.env(), &p.src, &p.src, 1.8, 0.5, -2e9, 3.0);
     }},
    {"score", kY,
     [](auto& rig, auto& p, auto sum) {
       Tessal4ImageFunc_evalBlur(nullptr, rig.arena.env(), sum, &p.src, 0, 0, 1.5, 0.5);
     }},
    {"blur", kY,
     [](auto& rig, auto& p, auto) { Tessal4ImageFunc_blur_uint8(nullptr, rig.arena.env(), &p.dst, &p.src, 1.1); }},
    {"blur of pairs", IMAGE_UINT88,
     [](auto& rig, auto& p, auto) { Tessal4ImageFunc_blur_uint88(nullptr, rig.arena.env(), &p.dst, &p.src, 2.2); }},
    {"difference, V first", kVu,
     [](auto&, auto& p, auto) { Tessal4ImageFunc_diff(nullptr, &p.dst, &p.src, &p.other, kWeights); }},
    {"difference, U first", kUv,
     [](auto&, auto& p, auto) { Tessal4ImageFunc_diff(nullptr, &p.dst, &p.src, &p.other, kWeights); }},
    {"shrink by 2", kVu,
     [](auto&, auto& p, auto) {
       TestImage half(p.src.width / 2, p.src.height / 2, kVu);
       Tessal4ImageFunc_shrink2(nullptr, &half, &p.src);
       std::copy_n(half.plane0, half.width, p.dst.plane0);
       std::copy_n(half.plane1, half.width / 2 * 2, p.dst.plane1);
     }},
    {"shrink by 4", kVu,
     [](auto&, auto& p, auto) {
       TestImage quarter(p.src.width / 4, p.src.height / 4, kVu);
       Tessal4ImageFunc_shrink4(nullptr, &quarter, &p.src);
       std::copy_n(quarter.plane0, quarter.width, p.dst.plane0);
       std::copy_n(quarter.plane1, quarter.width / 2 * 2, p.dst.plane1);
     }},
    {"warp", kVu,
     [](auto& rig, auto& p, auto) {
       const Mvec8Real m = warp(0.02, 1.01);
       Tessal4ImageFunc_render(nullptr, rig.arena.env(), &p.dst, &p.src, &m);
     }},
    {"warp and blend", kVu,
     [](auto& rig, auto& p, auto) {
       const Mvec8Real m = warp(0.0, 1.0), turned = warp(0.03, 0.98);
       Tessal4ImageFunc_renderAccum(nullptr, rig.arena.env(), &p.dst, &p.src, &m, &p.map);
       Tessal4ImageFunc_renderAccum(nullptr, rig.arena.env(), &p.dst, &p.other, &turned, &p.map);
     }},
    {"blend in place", kVu,
     [](auto& rig, auto& p, auto) {
       Tessal4ImageFunc_updateImage(nullptr, rig.arena.env(), &p.dst, &p.src, &p.map, &p.map);
     }},
    {"blend map", kY,
     [](auto&, auto& p, auto ghosts) {
       uint8_t table[256];
       for (int32_t i = 0; i < 256; ++i) table[i] = static_cast<uint8_t>(i < 128 ? 128 - i : 0);
       Tessal4BlendMapRows blend = {table, &p.src, &p.wide, &p.dst, 0, p.src.height};
       Tessal4_blendMapRows(&blend);
       int32_t count = 0;
       Tessal4CountDiffRows rows = {&p.src, &count, 0, p.src.height};
       Tessal4_countDiffRows(&rows);
       *ghosts = static_cast<uint32_t>(count);
     }},
    {"guided filter", kY, [](auto& rig, auto& p, auto) { guided(rig, p, 2, true); }},
    {"guided filter, half size", kY, [](auto& rig, auto& p, auto) { guided(rig, p, 1, false); }},
    {"guided filter, whole size", kY, [](auto& rig, auto& p, auto) { guided(rig, p, 0, true); }},
    {"Gaussian blur", kY, [](auto& rig, auto& p, auto) { ImageProc_gaussBlur2(&rig.proc, &p.dst, &p.src, 2.0); }},
    {"Gaussian blur of 16 bits", IMAGE_UINT16,
     [](auto& rig, auto& p, auto) { ImageProc_filterGaussianBlur7x7_uint16(&rig.proc, &p.dst, &p.src, 2.0); }},
    {"column sums", kY, [](auto&, auto& p, auto) { sum_vert(&p.wide, &p.src, 5, nullptr); }},
};

TEST(CpuLevels, GiveTheSameBytes) {
  const CpuLevel highest = cpuLevel();
  KernelRig rig(0);
  for (const Kernel& kernel : kKernels) {
    for (int32_t width = 1; width <= 200; ++width) {
      const int32_t height = width % 16 == 0 ? 41 : 4 + width % 7;
      for (int32_t content = 0; content < 3; ++content) {
        const auto hashAt = [&](int32_t level) {
          EXPECT_TRUE(setCpuLevel(static_cast<CpuLevel>(level)));
          Pictures pictures(width, height, kernel.format, content);
          uint32_t number = 0;
          kernel.run(rig, pictures, &number);
          return pictures.hash(number);
        };
        const uint64_t plain = hashAt(CPU_PLAIN);
        for (int32_t level = CPU_PLAIN + 1; level <= highest; ++level) {
          ASSERT_EQ(hashAt(level), plain) << kernel.name << ' ' << cpuLevelName(static_cast<CpuLevel>(level)) << ' '
                                          << width << 'x' << height << ' ' << content;
        }
      }
    }
  }
  EXPECT_TRUE(setCpuLevel(highest));
  EXPECT_EQ(highest + 1 < CPU_LEVELS && setCpuLevel(static_cast<CpuLevel>(highest + 1)), false);
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
