// Linear resize, area shrink, and the arithmetic of target sizes.
//
// Linear resize: centre-aligned two-tap interpolation, first along the row, then between two stretched rows, with one
// rounding to the sample type after each. With sw x sh the source and dw x dh the destination, all in Q15:
//   step = (sw << 15) / dw            p(x) = ((sw - dw) << 15) / (2 dw) + x step
//   row(x) = ((32768 - f) src[i] + f src[i + 1] + 16384) >> 15   with i = p >> 15, f = p & 32767
//   v(y) = ((2 y sh + sh - dh) << 15) / (2 dh), rows clamp(v >> 15) and the one below, weight max(v, 0) & 32767
// Divisions truncate toward zero. Positions before the first and from the last sample on repeat the edge sample. There
// is no low-pass: a reduction samples two neighbours only.
//
// ImageProc_resizeImage on 8-bit planes, when the width does not shrink, weighs groups of eight pixels with 7 bits:
// with position p of the first pixel of a group, pixel k takes q = ((p & 32767) >> 8) + ((k step + 128) >> 8), index
// (p >> 15) + (q >> 7), weight w = q & 127, ((128 - w) a + w b + 64) >> 7. The first group starts at the first position
// at or above 0; groups follow while their first x is below dw - 0x40000 / step. ImageProc2_resizeImage and
// interleaved channels always take 15 bits, so the two may differ by a count.
//
// ImageProc_resizeImage: 57 into plane 0 of the destination; 24 and 26 (into 24, 26, or 57 for luma only); 27 and 29
// (chroma only if the destination is 27 or 29); 2, 3, 9, 58, 61, 63 and 64 into their own format. Equal sizes copy,
// with a change of format through ImageProc_cvt. ZELVAN_ERROR_UNSUPPORTED for a format with no route. Scratch (two rows
// per band) that the arena refuses leaves the plane as it is and is not reported.
//
// ImageProc2_resizeImage: 26, 27, 29, 57, 58, 61, 64 into the same format, else ZELVAN_ERROR_UNSUPPORTED. Near a half,
// |dw - sw / 2| < 2 and |dh - sh / 2| < 2, a plane takes (a + b + c + d + 2) >> 2 of the 2x2 block at (2x, 2y), with
// coordinates clamped to the plane. ZELVAN_ERROR_NOMEM when the arena refuses the scratch.
//
// ImageProc2_averageShrink: both sides must get smaller and the formats be equal, else ZELVAN_ERROR_PARAM. Halves the
// picture until half of it would be below the target in both directions, then weighs three neighbours per direction
// by their share of the target pixel, in 7 bits. The horizontal pass is centre-aligned, the vertical one is not.
//
// All: dst and src do not overlap. Chroma of an odd size is handled on floor(size / 2) samples. Rows are independent:
// any split over threads gives the same bits. Null arguments and empty images give ZELVAN_ERROR_PARAM.
#ifndef ZVT4_IMAGEPROC_RESIZE_H_
#define ZVT4_IMAGEPROC_RESIZE_H_

#include "imageproc/image_proc.h"

extern "C" {
Status ImageProc_resizeImage(ImageProc* proc, Image* dst, const Image* src) ZVT4_NAME(ImageProc_resizeImage);
Status ImageProc2_resizeImage(ImageProc2* proc, Image* dst, const Image* src) ZVT4_NAME(ImageProc2_resizeImage);
// Arena bytes that a resize to this width may need: the widest pixel for every processor.
int32_t ImageProc2_getBufferSizeForResizeImage(int32_t width, int32_t height)
    ZVT4_NAME(ImageProc2_getBufferSizeForResizeImage);
Status ImageProc2_averageShrink(ImageProc2* proc, Image* dst, const Image* src) ZVT4_NAME(ImageProc2_averageShrink);
// Arena bytes for shrinking an image of this size to any target, at four bytes a pixel.
int32_t ImageProc2_getBufferSizeForAverageShrink(int32_t width, int32_t height)
    ZVT4_NAME(ImageProc2_getBufferSizeForAverageShrink);

// The largest size of the source's shape inside the box; sides are truncated. ZELVAN_ERROR_GENERAL for any zero.
Status ImageProc_getSizeFit(int32_t* outWidth, int32_t* outHeight, int32_t width, int32_t height, int32_t boxWidth,
                            int32_t boxHeight) ZVT4_NAME(ImageProc_getSizeFit);
// The smallest size of the source's shape that covers the box.
Status ImageProc_getSizeMax(int32_t* outWidth, int32_t* outHeight, int32_t width, int32_t height, int32_t boxWidth,
                            int32_t boxHeight) ZVT4_NAME(ImageProc_getSizeMax);
// A size of the source's shape with the area nearest above the target, by binary search of a Q15 scale up to 32. The
// outcome is that of the last round, also when no scale reaches the area.
Status ImageProc_getSizeArea(int32_t* outWidth, int32_t* outHeight, int32_t width, int32_t height, int32_t area)
    ZVT4_NAME(ImageProc_getSizeArea);
}

#endif  // ZVT4_IMAGEPROC_RESIZE_H_
