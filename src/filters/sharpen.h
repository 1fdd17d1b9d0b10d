// Adaptive sharpening of a luma plane: a band-pass with a gain per pixel and a dead zone round zero.
//
// Both kernels are Gaussians of 2 x Radius + 1 taps in Q15. Rows are filtered into 8-bit values with five fraction
// bits, then, rows clamped to the image, with c = src(x, y), m = map(x, y) (0 to 128, 128 the full gain):
//
//   VA = (sum of kA x TA + 16384) >> 15, VB likewise;  d = VB - VA
//   e  = (((trunc(gain) x m) >> 7) x d + 128) >> 8;     e' = e - clamp(e, -core, core), core = trunc(coring x 32)
//   dst = clamp((((c << 5) | 16) + e') >> 5, 0, 255)
//
// With sigmaB below sigmaA edges are raised, the other way round the image is softened. The forms without map take
// the full gain everywhere. Only plane 0 of dst, src and map is touched; sizes are those of src.
// dst may be src: every pixel is computed from the rows as they were.
// Scratch: per band 2 x (2 x Radius + 1) filtered rows, and 2 x Radius source rows at each cut. At most 16 bands of
// rows, the same bytes for any split.
// ZELVAN_ERROR_PARAM for rows narrower than 7 pixels, ZELVAN_ERROR_NOMEM when the arena refuses; dst is then untouched.
//
// deconv_withmap: the 5x5 form with map, on a Pel. The image goes in bands of 64 rows through a ring of 320 filtered
// rows; a kernel that filters the next band overlaps the one that sharpens the band before.
// It returns when all its kernels have ended, however long the waits of the Pel are.
#ifndef ZVT4_FILTERS_SHARPEN_H_
#define ZVT4_FILTERS_SHARPEN_H_

#include "image/image.h"
#include "parallel/parallel_executor.h"
#include "parallel/pel.h"

extern "C" {
Status Tessal4ImageFunc_adaSharp5x5_uint8_withmap(ParallelExecutor* executor, Env* env, Image* dst, const Image* src,
                                                  const Image* map, double sigmaA, double sigmaB, double gain,
                                                  double coring) ZVT4_NAME(Tessal4ImageFunc_adaSharp5x5_uint8_withmap);
Status Tessal4ImageFunc_adaSharp5x5_uint8(ParallelExecutor* executor, Env* env, Image* dst, const Image* src,
                                          double sigmaA, double sigmaB, double gain, double coring)
    ZVT4_NAME(Tessal4ImageFunc_adaSharp5x5_uint8);
Status Tessal4ImageFunc_adaSharp7x7_uint8_withmap(ParallelExecutor* executor, Env* env, Image* dst, const Image* src,
                                                  const Image* map, double sigmaA, double sigmaB, double gain,
                                                  double coring) ZVT4_NAME(Tessal4ImageFunc_adaSharp7x7_uint8_withmap);
Status Tessal4ImageFunc_adaSharp7x7_uint8(ParallelExecutor* executor, Env* env, Image* dst, const Image* src,
                                          double sigmaA, double sigmaB, double gain, double coring)
    ZVT4_NAME(Tessal4ImageFunc_adaSharp7x7_uint8);
Status Tessal4ImageFunc_deconv_withmap(Pel* pel, Env* env, const Image* src, Image* dst, const Image* map,
                                       double sigmaA, double sigmaB, int32_t strength, double coring)
    ZVT4_NAME(Tessal4ImageFunc_deconv_withmap);
}

#endif  // ZVT4_FILTERS_SHARPEN_H_
