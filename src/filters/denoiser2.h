// Tessal4Denoiser2: the pattern-driven second denoiser, a thresholded mean whose taps are generated for each pass.
//
// Luma pass: with c the pixel, s its binomial 3x3 mean, m the map, a = clamp(mix + m - 32, 0, 128),
//   r = clamp(((128 - a) c + a s + 64) >> 7, 0, 255), threshold (strength x m) >> 3,
// the 3x3 cross and then the taps of the pass (denoiser2_pattern.h) count where |r - t| < threshold, the pixel itself
// counts centreWeight times, and out = min(((sum + (n >> 1)) x (32768 / n)) >> 15, 255).
// Chroma pass, on pairs guided by luma of half the size: with M = m + 10 the pair and its four neighbours always count,
// a tap where luma is nearer than M >> 1 and each byte nearer than (strength x M + 32) >> 6. Taps lie on three rings.
// Strengths are truncated and kept within 0 to 255, tap counts within 0 to 64 (16 a ring of chroma), centre weights
// within 1 to 255. Coordinates are clamped to the picture. The map is read at an eighth of the resolution:
// map(x >> 3, y >> 3) for luma, and likewise under the chroma.
//
// reduceNoise: semi-planar 4:2:0, the size of dst, src at least as large and possibly dst itself; the map at least
// (width >> 3) + 1 by (height >> 3) + 1, "UINT8". Spikes and the luma passes; the chroma passes, guided by that luma,
// and their blend with the input: in + (((result - in) x blend + 512) >> 10); the sharpening of luma comes last. Each
// pass is a run of rows on the Pel, the sharpening runs on the executor. Scratch: one more plane for each of luma and
// chroma, two for chroma that is blended in place. ZELVAN_ERROR_PARAM for unfit images, ZELVAN_ERROR_NOMEM; else the
// status of the step that failed.
#ifndef ZVT4_FILTERS_DENOISER2_H_
#define ZVT4_FILTERS_DENOISER2_H_

#include "image/image.h"
#include "parallel/parallel_executor.h"
#include "parallel/pel.h"

struct Tessal4Denoiser2 {
  Env* env;
  ParallelExecutor* executor;
  Pel* pel;
};

inline constexpr int32_t kDenoiser2Passes = 32;

struct Tessal4Denoiser2Params {
  int32_t spike;  // strength of the spike removal in front of the passes; 0: none
  int32_t lumaPasses;
  int32_t chromaPasses;
  // By luma pass.
  int32_t lumaKind[kDenoiser2Passes];  // 0 to 4, how far the taps reach
  int32_t lumaTaps[kDenoiser2Passes];
  int32_t lumaCentreWeight[kDenoiser2Passes];
  int32_t lumaMix[kDenoiser2Passes];  // 0 to 128
  double lumaStrength[kDenoiser2Passes];
  // By chroma pass: taps on the outer, the middle and the inner ring.
  int32_t chromaOuterTaps[kDenoiser2Passes];
  int32_t chromaMiddleTaps[kDenoiser2Passes];
  int32_t chromaInnerTaps[kDenoiser2Passes];
  double chromaStrength[kDenoiser2Passes];
  int32_t sharpen;  // gain; 0: no sharpening
  double sharpenSigma1;
  double sharpenSigma2;
  double sharpenCoring;
  int32_t blend;  // Q10
};

extern "C" {
Status construct_Tessal4Denoiser2(Tessal4Denoiser2* denoiser, Env* env) ZVT4_NAME(construct_Tessal4Denoiser2);
Status Tessal4Denoiser2_setPel(Tessal4Denoiser2* denoiser, ParallelExecutor* executor, Pel* pel)
    ZVT4_NAME(Tessal4Denoiser2_setPel);
Status Tessal4Denoiser2_reduceNoise(Tessal4Denoiser2* denoiser, Image* dst, const Image* src, const Image* map,
                                    const Tessal4Denoiser2Params* params) ZVT4_NAME(Tessal4Denoiser2_reduceNoise);
}

#endif  // ZVT4_FILTERS_DENOISER2_H_
