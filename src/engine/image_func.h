// Tessal4ImageFunc: the image operations that only the engine uses. Plain functions with no state.
#ifndef ZVT4_ENGINE_IMAGE_FUNC_H_
#define ZVT4_ENGINE_IMAGE_FUNC_H_

#include "image/image.h"
#include "motion/mvec8_real.h"
#include "parallel/parallel_executor.h"
#include "parallel/pel.h"

// Point operations.
extern "C" {
Status Tessal4ImageFunc_table(Pel* pel, Image* dst, const Image* src, const uint8_t* table)
    ZVT4_NAME(Tessal4ImageFunc_table);
// curve: gain, exponent, offset.
Status Tessal4ImageFunc_gamma(ParallelExecutor* executor, Image* dst, const Image* src, const double* curve)
    ZVT4_NAME(Tessal4ImageFunc_gamma);
Status Tessal4ImageFunc_diff(ParallelExecutor* executor, Image* dst, const Image* a, const Image* b,
                             const int32_t* weights) ZVT4_NAME(Tessal4ImageFunc_diff);
}

// Shrinking.
extern "C" {
Status Tessal4ImageFunc_shrink2(ParallelExecutor* executor, Image* dst, const Image* src)
    ZVT4_NAME(Tessal4ImageFunc_shrink2);
Status Tessal4ImageFunc_shrink2_PEL(Pel* pel, Image* dst, const Image* src) ZVT4_NAME(Tessal4ImageFunc_shrink2_PEL);
Status Tessal4ImageFunc_shrink4(ParallelExecutor* executor, Image* dst, const Image* src)
    ZVT4_NAME(Tessal4ImageFunc_shrink4);
Status Tessal4ImageFunc_shrinkImage(ParallelExecutor* executor, Pel* pel, Image* dst, const Image* src)
    ZVT4_NAME(Tessal4ImageFunc_shrinkImage);
}

// Separable blurs and the sharpness score.
extern "C" {
Status Tessal4ImageFunc_blur_uint8(ParallelExecutor* executor, Env* env, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(Tessal4ImageFunc_blur_uint8);
Status Tessal4ImageFunc_blur_uint88(ParallelExecutor* executor, Env* env, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(Tessal4ImageFunc_blur_uint88);
Status Tessal4ImageFunc_evalBlur(ParallelExecutor* executor, Env* env, uint32_t* score, const Image* image,
                                 uint32_t unused0, uint32_t unused1, double sigmaWide, double sigmaNarrow)
    ZVT4_NAME(Tessal4ImageFunc_evalBlur);
}

// Warps. The motion maps a destination pixel to its source position.
extern "C" {
Status Tessal4ImageFunc_render(Pel* pel, Env* env, Image* dst, const Image* src, const Mvec8Real* motion)
    ZVT4_NAME(Tessal4ImageFunc_render);
Status Tessal4ImageFunc_accumWithLuminanceCorrection(ParallelExecutor* executor, Env* env, Image* dst, const Image* src,
                                                     uint32_t unused0, uint32_t unused1, const Mvec8Real* motion)
    ZVT4_NAME(Tessal4ImageFunc_accumWithLuminanceCorrection);
Status Tessal4ImageFunc_renderAccum(Pel* pel, Env* env, Image* acc, const Image* src, const Mvec8Real* motion,
                                    const Image* map) ZVT4_NAME(Tessal4ImageFunc_renderAccum);
Status Tessal4ImageFunc_renderAccum2(Pel* pel, Env* env, Image* acc, const Image* src, const Mvec8Real* motion,
                                     const Image* map) ZVT4_NAME(Tessal4ImageFunc_renderAccum2);
Status Tessal4ImageFunc_updateImage(ParallelExecutor* executor, Env* env, Image* dst, const Image* frame,
                                    const Image* map, const Image* secondMap) ZVT4_NAME(Tessal4ImageFunc_updateImage);
}

// curves: three records of four doubles, for red, green and blue.
extern "C" {
Status Tessal4ImageFunc_gammaRGB(ParallelExecutor* executor, Image* dst, const Image* src, const double* curves)
    ZVT4_NAME(Tessal4ImageFunc_gammaRGB);
}

#endif  // ZVT4_ENGINE_IMAGE_FUNC_H_
