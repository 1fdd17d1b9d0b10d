// Box sums and means, flat and rank filters of 3x3.
//
// ImageProc_boxSum, _boxSum2: sums over (2r + 1) x (2r + 1) pixels, r = window / 2, never rounded. UINT8 into UINT16 or
//   INT32, INT32 into INT32 (wrapping), FLOAT into FLOAT (sliding sums along the line); else ZELVAN_ERROR_GENERAL.
// ImageProc_boxBlur, _boxBlur2: means with r = (window - 1) >> 1, a row pass and a column pass, each
//   (sum x (32768 / window) + 16384) >> 15. UINT8, UINT88, and 27 and 29 plane by plane; else ZELVAN_ERROR_GENERAL.
//   An even window sums one pixel less than it divides by, in each direction, and darkens the picture.
// ImageProc2_boxBlur: the same on a Pel; an even window or another format is ZELVAN_ERROR_UNSUPPORTED.
// The 3x3 filters on UINT8: mean (sum x 3641 + 16384) >> 15, maximum, minimum, median; sharpen clamp(2 c - mean),
//   Laplacian clamp(|4 c - (N + S + E + W)|). Others: ZELVAN_ERROR_GENERAL, on a Pel ZELVAN_ERROR_UNSUPPORTED.
//
// Pixels beyond the edge repeat the edge pixel. Equal sizes, else ZELVAN_ERROR_PARAM. In place is allowed everywhere:
// the row pass, or a copy of the source, goes to scratch of the arena first (ZELVAN_ERROR_NOMEM).
#ifndef ZVT4_IMAGEPROC_BOX_H_
#define ZVT4_IMAGEPROC_BOX_H_

#include "imageproc/image_proc.h"

extern "C" {
Status ImageProc_boxSum(ImageProc* proc, Image* dst, const Image* src, int32_t window) ZVT4_NAME(ImageProc_boxSum);
Status ImageProc_boxSum2(ImageProc* proc, Image* dst, const Image* src, int32_t window) ZVT4_NAME(ImageProc_boxSum2);
Status ImageProc_boxBlur(ImageProc* proc, Image* dst, const Image* src, int32_t window) ZVT4_NAME(ImageProc_boxBlur);
Status ImageProc_boxBlur2(ImageProc* proc, Image* dst, const Image* src, int32_t window) ZVT4_NAME(ImageProc_boxBlur2);
Status ImageProc2_boxBlur(ImageProc2* proc, Image* dst, const Image* src, int32_t window) ZVT4_NAME(ImageProc2_boxBlur);
// Bytes of scratch of the blur, and of a 3x3 filter in place.
int32_t ImageProc2_getBufferSizeForBoxBlur(int32_t width, int32_t height) ZVT4_NAME(ImageProc2_getBufferSizeForBoxBlur);
int32_t ImageProc2_getBufferSizeForFilter3x3(int32_t width, int32_t height)
    ZVT4_NAME(ImageProc2_getBufferSizeForFilter3x3);

// sigma has no part in a flat mean: it makes the call that of the Gaussian filters.
Status ImageProc_filterAveraging3x3(ImageProc* proc, Image* dst, const Image* src, double sigma)
    ZVT4_NAME(ImageProc_filterAveraging3x3);
Status ImageProc_filterMax3x3(ImageProc* proc, Image* dst, const Image* src) ZVT4_NAME(ImageProc_filterMax3x3);
Status ImageProc_filterMin3x3(ImageProc* proc, Image* dst, const Image* src) ZVT4_NAME(ImageProc_filterMin3x3);
Status ImageProc_filterMedian3x3(ImageProc* proc, Image* dst, const Image* src) ZVT4_NAME(ImageProc_filterMedian3x3);
Status ImageProc_filterSharpen(ImageProc* proc, Image* dst, const Image* src) ZVT4_NAME(ImageProc_filterSharpen);
Status ImageProc_filterLaplacian(ImageProc* proc, Image* dst, const Image* src) ZVT4_NAME(ImageProc_filterLaplacian);
Status ImageProc2_filterMax3x3(ImageProc2* proc, Image* dst, const Image* src) ZVT4_NAME(ImageProc2_filterMax3x3);
Status ImageProc2_filterMin3x3(ImageProc2* proc, Image* dst, const Image* src) ZVT4_NAME(ImageProc2_filterMin3x3);
}

#endif  // ZVT4_IMAGEPROC_BOX_H_
