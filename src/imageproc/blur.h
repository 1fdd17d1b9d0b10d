// Gaussian smoothing on a ParallelExecutor.
//
// ImageProc_gaussBlur2: direct separable Gaussian of up to 203 taps. The taps come from 32-bit float weights
//   g[i] = exp(-(i i) / (2 sigma sigma)), i = -101 to 101, sigma at least 1e-16,
// multiplied by 1 / (sum + 1e-9), cut after the last tap above 1/4096 that is no further out than half of the smaller
// side (no such limit for a side below 2), normalised again, and converted as trunc(g x 32768 + 0.5). Sums run from the
// first tap to the last in 32-bit float. Nothing makes the taps sum to 32768, so a flat picture keeps its value only up
// to rounding. Rows: sum >> 10, truncated, into 16 bits; columns: (sum + 0x80000) >> 20. Edges repeat the edge pixel.
// Formats UINT8, UINT88 (channels apart), 24, 26, 27 and 29 (planes apart), the same on both sides, else
// ZELVAN_ERROR_GENERAL. Scratch: two bytes a sample.
//
// ImageProc_pgaussBlur: any sigma at a bounded cost. Variances add, so with a sigma above 1.8 and sides of at least 33
// the blur beyond 1.8, sqrt(sigma sigma - 3.24), is done by the same function at half the size and half the sigma, and
// the enlarged result is finished with sigma 1.8. Chroma of multi-plane formats takes half the sigma. Below that it is
// ImageProc_gaussBlur2. Returns the status of the failing step.
//
// ImageProc_filterGaussianBlur7x7_uint8: seven taps that sum to 32768 exactly (gauss_taps.h). Rows:
// (sum + 512) >> 10; columns: (sum + 0x80000) >> 20. UINT8 only, else ZELVAN_ERROR_GENERAL. Scratch: ten filtered rows
// for each of at most 16 slices; the rows that a slice shares with its neighbours are filtered before any row is
// written.
//
// All may run in place. Null arguments and unequal sizes give ZELVAN_ERROR_PARAM, refused scratch ZELVAN_ERROR_NOMEM.
// Any number of threads gives the same bits.
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
}

#endif  // ZVT4_IMAGEPROC_BLUR_H_
