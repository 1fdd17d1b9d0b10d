// Gaussian smoothing, on a ParallelExecutor (ImageProc_...) or a Pel (ImageProc2_...), with the same bits.
//
// ImageProc_gaussBlur2, ImageProc2_gaussBlur: direct separable Gaussian of up to 203 taps. The taps come from 32-bit
// float weights
//   g[i] = exp(-(i i) / (2 sigma sigma)), i = -101 to 101, sigma at least 1e-16,
// multiplied by 1 / (sum + 1e-9), cut after the last tap above 1/4096 that is no further out than half of the smaller
// side (no such limit for a side below 2), normalised again, and converted as trunc(g x 32768 + 0.5). Sums run from the
// first tap to the last in 32-bit float. Nothing makes the taps sum to 32768, so a flat picture keeps its value only up
// to rounding. Rows: sum >> 10, truncated, into 16 bits; columns: (sum + 0x80000) >> 20. Edges repeat the edge pixel.
// Formats UINT8, UINT88 and RGB888 (channels apart), planar and semi-planar YUV (planes apart). Scratch: two bytes a
// sample.
//
// ImageProc_pgaussBlur, ImageProc2_pgaussBlur: any sigma at a bounded cost. Variances add, so with a sigma above 1.8
// and sides of at least 33 the blur beyond 1.8, sqrt(sigma sigma - 3.24), is done by the same function at half the size
// and half the sigma, and the enlarged result is finished with sigma 1.8. Subsampled chroma of multi-plane formats
// takes half the sigma. Otherwise it is the direct blur. The pools' resizes differ (resize.h), so their wide blurs may
// differ by a count, and a Pel has none of RGB888 through the half. Returns the status of the failing step.
//
// ..._filterGaussianBlur7x7_uint8, _uint88, _uint16, 5x5 and 3x3: taps that sum to 32768 exactly (gauss_taps.h). Rows:
// (sum + 512) >> 10, into 16 bits, 32 for 16-bit samples; columns: (sum + 0x80000) >> 20. The format is that of the
// name. Scratch: up to ten filtered rows for each of at most 16 slices; the rows that a slice shares with its
// neighbours are filtered before any row is written.
//
// All may run in place. Null arguments and unequal sizes give ZELVAN_ERROR_PARAM, other or unequal formats
// ZELVAN_ERROR_GENERAL on an executor and ZELVAN_ERROR_UNSUPPORTED on a Pel, refused scratch ZELVAN_ERROR_NOMEM. Any
// number of threads gives the same bits.
#ifndef ZVT4_IMAGEPROC_BLUR_H_
#define ZVT4_IMAGEPROC_BLUR_H_

#include "imageproc/image_proc.h"

extern "C" {
Status ImageProc_pgaussBlur(ImageProc* proc, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(ImageProc_pgaussBlur);
Status ImageProc_gaussBlur2(ImageProc* proc, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(ImageProc_gaussBlur2);
Status ImageProc_filterGaussianBlur7x7_uint8(ImageProc* proc, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(ImageProc_filterGaussianBlur7x7_uint8);
Status ImageProc_filterGaussianBlur7x7_uint88(ImageProc* proc, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(ImageProc_filterGaussianBlur7x7_uint88);
Status ImageProc_filterGaussianBlur7x7_uint16(ImageProc* proc, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(ImageProc_filterGaussianBlur7x7_uint16);
Status ImageProc_filterGaussianBlur5x5_uint16(ImageProc* proc, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(ImageProc_filterGaussianBlur5x5_uint16);
Status ImageProc_filterGaussianBlur3x3_uint16(ImageProc* proc, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(ImageProc_filterGaussianBlur3x3_uint16);

Status ImageProc2_pgaussBlur(ImageProc2* proc, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(ImageProc2_pgaussBlur);
Status ImageProc2_gaussBlur(ImageProc2* proc, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(ImageProc2_gaussBlur);
Status ImageProc2_filterGaussianBlur7x7_uint8(ImageProc2* proc, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(ImageProc2_filterGaussianBlur7x7_uint8);
Status ImageProc2_filterGaussianBlur7x7_uint88(ImageProc2* proc, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(ImageProc2_filterGaussianBlur7x7_uint88);
Status ImageProc2_filterGaussianBlur7x7_uint16(ImageProc2* proc, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(ImageProc2_filterGaussianBlur7x7_uint16);

// Arena bytes that a blur of this size may hold at once, in the format that takes most; ForConvolution is that of the
// filters of few taps.
int32_t ImageProc2_getBufferSizeForGaussBlur(int32_t width, int32_t height)
    ZVT4_NAME(ImageProc2_getBufferSizeForGaussBlur);
int32_t ImageProc2_getBufferSizeForPgaussBlur(int32_t width, int32_t height)
    ZVT4_NAME(ImageProc2_getBufferSizeForPgaussBlur);
int32_t ImageProc2_getBufferSizeForConvolution(int32_t width, int32_t height)
    ZVT4_NAME(ImageProc2_getBufferSizeForConvolution);
}

#endif  // ZVT4_IMAGEPROC_BLUR_H_
