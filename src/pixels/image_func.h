// Tessal4ImageFunc: the image operations that only the engine uses. Plain functions with no state of their own.
//
// Images are 8-bit. "4:2:0" means YUV420_SEMIPLANAR (chroma pairs U, V) or YVU420_SEMIPLANAR (pairs V, U). A null
// ParallelExecutor or Pel runs the work in the caller. Rows are written by one job each and read only from images that
// are not written: every result is the same for any number of workers. Scratch comes from env and is back before the
// return; all calls block until their jobs are done.
#ifndef ZVT4_PIXELS_IMAGE_FUNC_H_
#define ZVT4_PIXELS_IMAGE_FUNC_H_

#include "image/image.h"
#include "motion/mvec8_real.h"
#include "parallel/parallel_executor.h"
#include "parallel/pel.h"

// Point operations. Sizes are those of dst.
//
// table: dst = table[src] on plane 0; table has 256 bytes. dst may be src. One job per row.
//
// gamma: a curve on the three channels of a 4:2:0 image; dst may be src. curve: gain, exponent, offset. The curve has
// 33 points, cut(offset + 255 gain (8i / 255)^exponent) kept within 0 to 255, and is linear between them. Each 2x2
// block goes to R, G, B with its one chroma pair, through the curve and back; its new chroma comes from the upper left
// pixel alone, and what falls below 0 there becomes 255. Jobs of a multiple of four rows.
// gammaRGB: the same with a full curve for each channel, cut(255 (p0 (i / 255 + p2)^p1 + p3)). curves: p0 to p3 for
// red, then green, then blue.
// ZELVAN_ERROR_UNSUPPORTED for other formats.
//
// diff: the distance of the colours of a and b, 4:2:0 of one format, as a UINT8 image at the size of the luma. The four
// pixels of a block share the differences of their chroma, so that with the difference of luma each pixel has three
// channel differences, R, G and B.
//   V first: m = max(|R| w0 >> 13, |G|), n = |B|; the larger of m w1 >> 13 and n w2 >> 13, at most 255. weights: Q13.
//   U first: the larger of the differences by magnitude, though red yields to a larger green; 900/1024 of it, at most
//   255. weights are not looked at.
// The last column of an odd width repeats its neighbour; the last row of an odd height is not written. Four jobs.
// ZELVAN_ERROR_UNSUPPORTED for other formats; dst is then untouched.
extern "C" {
Status Tessal4ImageFunc_table(Pel* pel, Image* dst, const Image* src, const uint8_t* table)
    ZVT4_NAME(Tessal4ImageFunc_table);
Status Tessal4ImageFunc_gamma(ParallelExecutor* executor, Image* dst, const Image* src, const double* curve)
    ZVT4_NAME(Tessal4ImageFunc_gamma);
Status Tessal4ImageFunc_gammaRGB(ParallelExecutor* executor, Image* dst, const Image* src, const double* curves)
    ZVT4_NAME(Tessal4ImageFunc_gammaRGB);
Status Tessal4ImageFunc_diff(ParallelExecutor* executor, Image* dst, const Image* a, const Image* b,
                             const int32_t* weights) ZVT4_NAME(Tessal4ImageFunc_diff);
}

// Shrinking. src has at least factor times the luma size of dst and does not overlap it.
//
// shrink2, shrink2_PEL: the mean of 2x2. Luma is rounded to nearest in whole groups of eight columns of dst and cut in
// the rest of a row; chroma is rounded. shrink4: the mean of 4x4, rounded, luma and chroma. Chroma pairs of dst count
// the last odd column; where src has no more pairs or rows, its last ones repeat. The last luma row of an odd height is
// not written, since rows go in twos. Formats other than 4:2:0, and for shrink2_PEL also UINT8, are left alone with
// ZELVAN_OK.
//
// shrinkImage: by any factor. While src is at least four times dst in both directions (4:2:0), it is shrunk by four
// into a temporary of dst's env; else from three times on (4:2:0 and UINT8), by two, sizes rounding down to even. Then
// exactly two is halved, and anything else resized as ImageProc_resizeImage does, with its formats and statuses.
// ZELVAN_ERROR_PARAM for an empty dst, ZELVAN_ERROR_NOMEM for want of a temporary.
extern "C" {
Status Tessal4ImageFunc_shrink2(ParallelExecutor* executor, Image* dst, const Image* src)
    ZVT4_NAME(Tessal4ImageFunc_shrink2);
Status Tessal4ImageFunc_shrink2_PEL(Pel* pel, Image* dst, const Image* src) ZVT4_NAME(Tessal4ImageFunc_shrink2_PEL);
Status Tessal4ImageFunc_shrink4(ParallelExecutor* executor, Image* dst, const Image* src)
    ZVT4_NAME(Tessal4ImageFunc_shrink4);
Status Tessal4ImageFunc_shrinkImage(ParallelExecutor* executor, Pel* pel, Image* dst, const Image* src)
    ZVT4_NAME(Tessal4ImageFunc_shrinkImage);
}

// Separable 7-tap Gaussians (gaussTaps) and the sharpness score. Edges repeat.
//
// Across: (sum of taps x pixels + 512) >> 10, an 8-bit value with five fraction bits, in 16 bits.
// blur_uint8, blur_uint88: down, (sum of ((tap x row + 0x4000) >> 15) + 16) >> 5, each tap rounded by itself. UINT8,
// and UINT88 with each channel by itself. dst may be src. Scratch: two bytes for each byte of the image. Rows narrower
// than seven pixels are not filtered and come out as 0.
//
// evalBlur: *score = sum over plane 0 of |N - W|, N and W being the picture under the narrow and the wide kernel, kept
// with five fraction bits; down, rows at the same distance share a rounding. The sum wraps at 32 bits and is not
// normalised by the area; larger is sharper. Scratch: 28 bytes a column for each of at most 16 jobs.
// ZELVAN_ERROR_PARAM when the image is narrower than seven pixels; *score is then 0.
//
// ZELVAN_ERROR_NOMEM for want of scratch.
extern "C" {
Status Tessal4ImageFunc_blur_uint8(ParallelExecutor* executor, Env* env, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(Tessal4ImageFunc_blur_uint8);
Status Tessal4ImageFunc_blur_uint88(ParallelExecutor* executor, Env* env, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(Tessal4ImageFunc_blur_uint88);
Status Tessal4ImageFunc_evalBlur(ParallelExecutor* executor, Env* env, uint32_t* score, const Image* image,
                                 uint32_t unused0, uint32_t unused1, double sigmaWide, double sigmaNarrow)
    ZVT4_NAME(Tessal4ImageFunc_evalBlur);
}

// Warps. motion maps a pixel of dst to its source position. dst and src are 4:2:0, or UINT8 for luma alone; they may
// differ in size and do not overlap. Rows go in pairs: the last row of an odd height is not written, nor is the chroma
// of the last column of an odd width. A row is cut into spans of 256 pixels with exact ends and a straight line in
// between (warp_span.h); the chroma of a row pair is taken between its two rows.
//
// render: interpolates. Positions outside the source give 0 in luma and 0x80 in chroma; in the last row and column the
// nearest sample is taken. Spans near the edge take the fine weights of warp_rows.h, spans well inside the coarse ones,
// so that neighbouring spans may differ by a count.
// accumWithLuminanceCorrection: the same picture by way of an executor, in jobs of a multiple of 256 rows. In spite of
// its name it accumulates and corrects nothing. It asks for row scratch that it does not use: ZELVAN_ERROR_NOMEM.
extern "C" {
Status Tessal4ImageFunc_render(Pel* pel, Env* env, Image* dst, const Image* src, const Mvec8Real* motion)
    ZVT4_NAME(Tessal4ImageFunc_render);
Status Tessal4ImageFunc_accumWithLuminanceCorrection(ParallelExecutor* executor, Env* env, Image* dst, const Image* src,
                                                     uint32_t unused0, uint32_t unused1, const Mvec8Real* motion)
    ZVT4_NAME(Tessal4ImageFunc_accumWithLuminanceCorrection);
}

// The recursive blend: acc = (w acc + (128 - w) s + 64) >> 7. w comes from map, a UINT8 image of any size with values
// of 0 to 128 that is brought to the size of acc with centres aligned (blend_map.h): 128 keeps acc, 0 takes the new
// frame. The rows of a pair share the position in the map, and both bytes of a chroma pair take the weight of its even
// pixel.
//
// renderAccum: s is the frame warped by motion, luma with coarse weights and chroma with fine ones everywhere. Where
// the frame does not reach, acc stays. Scratch: the map at the width of acc, or two rows for each worker if that is
// more. renderAccum2: the same bytes without tuning. One job per 16 row pairs.
// accumFrames: renderAccum with one frame after the other, at most kAccumFrames, in one pass over acc. Frames do not
// overlap acc; they may be the same.
// updateImage: s is the frame as it is; a second map, if not null, blends the frame in once more by its own weights.
// Scratch: two rows for each map and job. Jobs of an even number of rows.
//
// ZELVAN_ERROR_NOMEM for want of scratch, ZELVAN_ERROR_UNSUPPORTED for a frame without interleaved chroma; acc is then
// untouched.
inline constexpr int32_t kAccumFrames = 32;

struct AccumFrame {
  const Image* image;
  const Mvec8Real* motion;
  const Image* map;
};

Status accumFrames(Pel* pel, Env* env, Image* acc, const AccumFrame* frames, int32_t count);

extern "C" {
Status Tessal4ImageFunc_renderAccum(Pel* pel, Env* env, Image* acc, const Image* src, const Mvec8Real* motion,
                                    const Image* map) ZVT4_NAME(Tessal4ImageFunc_renderAccum);
Status Tessal4ImageFunc_renderAccum2(Pel* pel, Env* env, Image* acc, const Image* src, const Mvec8Real* motion,
                                     const Image* map) ZVT4_NAME(Tessal4ImageFunc_renderAccum2);
Status Tessal4ImageFunc_updateImage(ParallelExecutor* executor, Env* env, Image* dst, const Image* frame,
                                    const Image* map, const Image* secondMap) ZVT4_NAME(Tessal4ImageFunc_updateImage);
}

#endif  // ZVT4_PIXELS_IMAGE_FUNC_H_
