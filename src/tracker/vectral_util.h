// VectralUtil: how far to shrink, how a motion changes with the image size, and the operations that build a pyramid.
//
// Free functions without state. A motion is the 3x3 matrix of Mvec8Real, row by row, which maps points of the base
// frame to points of another frame; ratios are Q15, where 32768 is 1.0.
#ifndef ZVT4_TRACKER_VECTRAL_UTIL_H_
#define ZVT4_TRACKER_VECTRAL_UTIL_H_

#include "image/image.h"
#include "motion/mvec8_real.h"
#include "parallel/parallel_executor.h"

extern "C" {
// One less than the first r from 2 upward for which (width / r) * (height / r) lies below the target; 1 at least.
// A target of 0 counts as 1, since no area lies below 0: the answer is then the last ratio that leaves a pixel.
// ZELVAN_ERROR_PARAM: a null pointer, or a negative target, which gives 1.
Status VectralUtil_calcShrinkRatio(int32_t* ratio, int32_t targetArea, int32_t width, int32_t height)
    ZVT4_NAME(VectralUtil_calcShrinkRatio);
// The first i from 0 upward for which (width >> i) * (height >> i) lies below the minimum. The levels of a real pyramid
// are a little smaller, since each loses two pixels before it is halved.
// ZELVAN_ERROR_PARAM, with the output as it was: a null pointer, or no i up to 98 (a minimum below 1).
Status VectralUtil_calcResoNum(int32_t* levels, int32_t minimumArea, int32_t width, int32_t height)
    ZVT4_NAME(VectralUtil_calcResoNum);

// Motions in other coordinates. dst may be src in all of them; ZELVAN_ERROR_PARAM for a null pointer, else the ORed
// statuses of the operations on motions. fieldOfView is the diagonal angle of view in degrees, from which
//   f = sqrt(width^2 + height^2) / 2 / tan(fieldOfView / 2)
// is the focal length in pixels. Trigonometry and roots are RawDouble_*, so the bits are the same on every machine.
//
// similarTransform: between two frames related by a scale s and an offset (left, top); null rect: (0, 0).
//   S = [s 0 left; 0 s top; 0 0 1]   inverse == 0: dst = S src S^-1   else dst = S^-1 src S   then normalised
// inverse == 0 takes a motion of a shrunk image to the frame that it was shrunk from.
Status VectralUtil_similarTransform(Mvec8Real* dst, const Mvec8Real* src, const ImageRect* rect, double scale,
                                    int32_t inverse) ZVT4_NAME(VectralUtil_similarTransform);
// Nine values, row by row: Rz(c) Rx(b) Ry(a) with the signs of
//   [ca cc - sa sb sc, -cb sc, sa cc + ca sb sc; ca sc + sa sb cc, cb cc, sa sc - ca sb cc; -sa cb, sb, ca cb]
Status VectralUtil_rotationMatrix(double* matrix, double a, double b, double c) ZVT4_NAME(VectralUtil_rotationMatrix);
// Adds a shift in pixels to a motion that is a camera rotation: the angles of src, plus dx / f about the vertical axis
// and minus dy / f about the horizontal one. The angle places of dst become 0.
Status VectralUtil_shift8R(Mvec8Real* dst, const Mvec8Real* src, double dx, double dy, int32_t width, int32_t height,
                           double fieldOfView) ZVT4_NAME(VectralUtil_shift8R);
// Takes a motion from an image of size 1 at pyramid level1 to one of size 2 at level2. type is the MILsm variant that
// made it: for MILSM_8R the rotation is fitted anew to the other size, the angle places stay. For the others the
// translation is multiplied by k and the perspective terms by 1 / k: k = 2^(level1 - level2), or with a negative level
// k = width1 / width2. The latter is not the inverse that one would expect: from a small to a large image it shrinks
// the translation. The full-resolution stage depends on it.
Status VectralUtil_scaleMvec(Mvec8Real* dst, const Mvec8Real* src, int32_t width1, int32_t height1, int32_t level1,
                             int32_t width2, int32_t height2, int32_t level2, double fieldOfView, int32_t type)
    ZVT4_NAME(VectralUtil_scaleMvec);

// Fills dst, which has its final size and is UINT8, from plane 0 of src, the window starting at (left, top) of rect.
// A whole ratio samples two or four pixels of each block, or averages all of it from 5 on (with an executor; without
// one, or for formats without a luma plane, Image_toYUint8Shrink does it all). A ratio with a fraction takes the
// nearest earlier pixel, from planar and semi-planar formats, UINT8, YUV444_YUV and interleaved 4:2:2.
// Ratios 2, 3 and 4 are split into sixteenths of the rows. For 2 and 3 an executor whose queue holds fewer than 16
// tasks does only as many of the sixteenths, and the other rows stay unwritten.
// ZELVAN_ERROR_PARAM: a null pointer or plane, a ratio of 0 or less, or a sample that would lie outside src.
// ZELVAN_ERROR_UNSUPPORTED: a format that the ratio does not serve. Else the ORed statuses of the forks and the join.
Status VectralUtil_shrinkImage(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio,
                               ParallelExecutor* executor) ZVT4_NAME(VectralUtil_shrinkImage);

// Stretches the contrast of an UINT8 image: two deviations on either side of the mean span the full range.
//   d = max(deviation, minDeviation)   g = (32768 / 2d) << 7   dst = clamp(128 + ((src * g - mean * g) >> 15), 0, 255)
// dst may be src; another record is given the size of src. When both pointers are given, *mean is 0 or less and
// *deviation below 1, those two are used in place of the measured ones. Pointers given receive mean and d.
// Scratch: a table of 1024 bytes. The executor is not used.
// ZELVAN_ERROR_PARAM: a null record or plane, another format. ZELVAN_ERROR_NOMEM: no table or no dst.
Status VectralUtil_normalizeImage(Image* dst, const Image* src, int32_t* mean, int32_t* deviation, int32_t minDeviation,
                                  ParallelExecutor* executor) ZVT4_NAME(VectralUtil_normalizeImage);

// The next pyramid level: (W-2) >> 1 by (H-2) >> 1 pixels, each from six taps with weights of sum 8 over the source
// rows 2y to 2y+3, with two patterns in turn along the row; no rounding term. A dst of another shape or format is
// initialised. dst and src must not overlap. From 31 rows on the work is split into sixteenths of the rows.
// ZELVAN_ERROR_PARAM: a null record or plane, a src that is not UINT8 or too small.
Status VectralUtil_shrink2ForMvecDetect(Image* dst, const Image* src, ParallelExecutor* executor)
    ZVT4_NAME(VectralUtil_shrink2ForMvecDetect);
Status ImageUint8_shrink2ForMvecDetect(Image* dst, const Image* src) ZVT4_NAME(ImageUint8_shrink2ForMvecDetect);

// Local contrast: dst = clamp(src - m + 128, 0, 255) with m the mean of the 5x5 window, cut to the image; a full window
// takes m = (2621 * sum) >> 16, a cut one sum / count. The former lies a little below 1 / 25, so that a flat image
// gives 128 along its border and, unless it is black, 129 inside.
// dst may be src, of which a copy is then taken from its arena.
// ZELVAN_ERROR_PARAM: a null record or plane, a src that is not UINT8. ZELVAN_ERROR_NOMEM: no copy or no dst.
Status ImageUint8_calcLocalY(Image* dst, const Image* src) ZVT4_NAME(ImageUint8_calcLocalY);
}

// Mean and standard deviation of an UINT8 image by the rule of VectralUtil_normalizeImage; the deviation is at least 1.
// From 32768 pixels on the means of the rows are truncated before they are summed, so that sums stay within 32 bits.
void vectralImageStatistics(const Image* image, int32_t* mean, int32_t* deviation);
// Fills the 256-entry contrast table for a mean and a deviation. A deviation of 0 gives 128 throughout.
void vectralContrastTable(int32_t* table, int32_t mean, int32_t deviation);
// Maps all pixels of an UINT8 image through a table of bytes; dst may be src.
void vectralMapImage(Image* dst, const Image* src, const int32_t* table);

#endif  // ZVT4_TRACKER_VECTRAL_UTIL_H_
