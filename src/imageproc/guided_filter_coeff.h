// GuidedFilterCoeff: the coefficient stage of the guided filter, on the shrunk grid.
//
// From block sums of a picture (guide) and of its squares (square) it makes the maps a (Q7, 0 to 128) and b (levels)
// of a local linear model a * I + b. In place of one square window it takes line windows of n = 2 r + 1 blocks in four
// directions, r = window >> 2:
//
//   m = sumGuide / (n << 2 numShrink),  v = sumSquare / (n << 2 numShrink) - m m
//   A = v / (v + eps / 32 * map + 1e-12), or v / (eps + v) without a map
//   a_d = trunc(128 A + 0.5),  b_d = trunc((1 - A) m + 0.5)
//
// all in 32-bit floats and this order, and limited to 0 to 128 and 0 to 255: rounding can make v of a flat window
// negative. A pixel then merges the up to eight windows that end at it: the two of each
// direction whose centres lie r away, without those whose centre is outside the picture. With t = (128 - a_d) & 255 a
// window weighs t t + t + 1, so that one across an edge (a_d near 128) gives way to one beside it. a and b are the
// weighted means, rounded to nearest and limited to 255.
//
// guide UINT8 with square UINT16, or guide UINT16 with square INT32; map, a, b UINT8; all of the size of the rectangle
// (setRect; after init the whole picture). a and b must not be guide, square or map. The scratch images are the
// object's own, so one object serves one call at a time. Per-direction maps and the merge are split over rows of the
// Pel, the window sums run in the caller; the result is the same for any number of workers.
//
// ZELVAN_ERROR_PARAM: null or empty images, sizes that differ from the rectangle, window below 1.
// ZELVAN_ERROR_UNSUPPORTED: other formats, numShrink outside 0 to 2.
//
// K. He, J. Sun, X. Tang, "Guided Image Filtering", ECCV 2010, gives the model and the square-window form.
#ifndef ZVT4_IMAGEPROC_GUIDED_FILTER_COEFF_H_
#define ZVT4_IMAGEPROC_GUIDED_FILTER_COEFF_H_

#include "image/image.h"
#include "parallel/pel.h"

struct GuidedFilterCoeff {
  Env* env;
  Pel* pel;
  int32_t width;
  int32_t height;
  Image a[4];  // per direction: horizontal, vertical, diagonal, anti-diagonal
  Image b[4];
  Image sumGuide;     // UINT16 window sums of the guide
  Image sumSquare;    // INT32, of the square
  Image wideScratch;  // INT32; this and the next two serve the square-window form
  Image byteScratch;  // UINT8
  Image rowScratch;   // UINT16, one row
  Image sumGuideRect;
  Image sumSquareRect;
  ImageRect rect;
  int32_t numShrink;
};

extern "C" {
// Arena bytes that init takes. width, height: size of the shrunk grid. The scratch doesn't depend on maxWindow.
int32_t GuidedFilterCoeff_getBufferSize(int32_t width, int32_t height, int32_t maxWindow)
    ZVT4_NAME(GuidedFilterCoeff_getBufferSize);
Status construct_GuidedFilterCoeff(GuidedFilterCoeff* coeff, Env* env) ZVT4_NAME(construct_GuidedFilterCoeff);
Status destruct_GuidedFilterCoeff(GuidedFilterCoeff* coeff) ZVT4_NAME(destruct_GuidedFilterCoeff);
// Allocates and clears the images; on a failure all that was allocated is released.
Status GuidedFilterCoeff_init(GuidedFilterCoeff* coeff, int32_t width, int32_t height, int32_t maxWindow)
    ZVT4_NAME(GuidedFilterCoeff_init);
Status GuidedFilterCoeff_setNumShrink(GuidedFilterCoeff* coeff, int32_t numShrink)
    ZVT4_NAME(GuidedFilterCoeff_setNumShrink);
// The part of the grid in use; calcCoeff takes images of its size. Null empties it.
Status GuidedFilterCoeff_setRect(GuidedFilterCoeff* coeff, const ImageRect* rect) ZVT4_NAME(GuidedFilterCoeff_setRect);
Status GuidedFilterCoeff_calcCoeff(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide, Image* square,
                                   float epsilon, int32_t window) ZVT4_NAME(GuidedFilterCoeff_calcCoeff);
Status GuidedFilterCoeff_calcCoeff_with_epsilon_map(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide,
                                                    Image* square, float epsilon, const Image* map, int32_t window)
    ZVT4_NAME(GuidedFilterCoeff_calcCoeff_with_epsilon_map);

// One square window of window x window blocks (odd; 257 at most, else ZELVAN_ERROR_UNSUPPORTED) instead of the lines:
// a, b without a map, then a box mean of each over the same window. The sums of squares stay below 2^32 for windows of
// up to 257 pixels. Takes nothing from the arena.
Status GuidedFilterCoeff_calcCoeff_square(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide, Image* square,
                                          float epsilon, int32_t window) ZVT4_NAME(GuidedFilterCoeff_calcCoeff_square);

// Two rounds: the first smooths the block sums, the second takes its coefficients from the smooth ones. The first
// turns guide and square, in place, into the sums of q = a / 128 I + b and of q q, the latter about the rounded former,
// so that their variance is that of q; its a, b are those of calcCoeff or, in the lite form, of the block alone, which
// needs no window. guide UINT16, square INT32 only.
Status GuidedFilterCoeff_calcCoeff_first_step(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide, Image* square,
                                              float epsilon, int32_t window)
    ZVT4_NAME(GuidedFilterCoeff_calcCoeff_first_step);
Status GuidedFilterCoeff_calcCoeff_second_step(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide,
                                               Image* square, float epsilon, int32_t window)
    ZVT4_NAME(GuidedFilterCoeff_calcCoeff_second_step);
Status GuidedFilterCoeff_calcCoeff_two_step(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide, Image* square,
                                            float epsilon1, float epsilon2, int32_t window)
    ZVT4_NAME(GuidedFilterCoeff_calcCoeff_two_step);
Status GuidedFilterCoeff_calcCoeff_two_step_lite_first(GuidedFilterCoeff* coeff, Image* guide, Image* square,
                                                       float epsilon)
    ZVT4_NAME(GuidedFilterCoeff_calcCoeff_two_step_lite_first);
Status GuidedFilterCoeff_calcCoeff_two_step_lite_second(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide,
                                                        Image* square, float epsilon, int32_t window)
    ZVT4_NAME(GuidedFilterCoeff_calcCoeff_two_step_lite_second);
Status GuidedFilterCoeff_calcCoeff_two_step_lite(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide,
                                                 Image* square, float epsilon1, float epsilon2, int32_t window)
    ZVT4_NAME(GuidedFilterCoeff_calcCoeff_two_step_lite);
}

// Releases the images; the record can be initialised again.
Status GuidedFilterCoeff_recycle(GuidedFilterCoeff* coeff);

#endif  // ZVT4_IMAGEPROC_GUIDED_FILTER_COEFF_H_
