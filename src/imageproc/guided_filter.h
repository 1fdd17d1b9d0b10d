// GuidedFilter: the directional self-guided smoother of the luma plane.
//
//   1. block sums:    guide and square on a grid shrunk by s = 1 << numShrink
//   2. coefficients:  maps a, b on the grid (guided_filter_coeff.h), with the window (window >> numShrink) | 1
//   3. apply:         dst = a * I + b at full size, a and b interpolated linearly between the block centres
//
// Along an axis the pixels between two block centres weigh them (3,1), (1,3) of 4 for s = 2 and (7,1), (5,3), (3,5),
// (1,7) of 8 for s = 4; beyond the outer centres the grid repeats its edge. All of step 3 is in whole numbers: with
// As, Bs the sums over the four neighbours, dst = min((I As + 128 Bs + half) >> n, 255), n = 11 or 13, and for s = 1
// min(((a I + 64) >> 7) + b, 255).
//
// src, dst: images with a Y plane (or UINT8) that hold the rectangle; only the Y plane is filtered, only inside the
// rectangle, and a null dst, or dst = src, means in place. Other overlaps are not allowed. The rectangle is widened to
// multiples of s inside the frame; the grid below it rounds down, so all blocks are whole.
//
// epsilon is a variance in squared levels: structure above it stays. With a map (UINT8, any size, stretched over the
// frame) epsilon holds at 32 and scales with the map. epsilon within +-1e-12 or window below 2 turn the filter off:
// dst becomes a copy of all of src. window: 101 at most, in full-size pixels.
//
// All images are allocated by init but for the map at grid size, which one call of the map form takes and gives back.
// Every pass is split over rows of the Pel and gives the same bytes for any number of workers; a null Pel runs in the
// caller. One object serves one call at a time.
//
// ZELVAN_ERROR_PARAM: null arguments, window above 101, an empty rectangle (also: one smaller than a block), images
// that do not hold the rectangle. ZELVAN_ERROR_UNSUPPORTED: numShrink outside 0 to 2, formats. ZELVAN_ERROR_NOMEM: the
// arena refused. The first failing step ends the call; dst is written by the last step only.
//
// K. He, J. Sun, "Fast Guided Filter", 2015, describes coefficients on a shrunk grid.
#ifndef ZVT4_IMAGEPROC_GUIDED_FILTER_H_
#define ZVT4_IMAGEPROC_GUIDED_FILTER_H_

#include "imageproc/guided_filter_coeff.h"
#include "imageproc/image_proc.h"

struct GuidedFilterParam {
  int32_t useEpsilonMap;  // default 1; room for the map is counted in the buffer size
  int32_t numShrink;      // default 2; log2 of the grid shrink, 0 to 2
};

struct GuidedFilter {
  Env* env;
  Pel* pel;
  GuidedFilterCoeff coeff;
  int32_t width;
  int32_t height;
  int32_t maxWindow;  // 101
  // Views, set anew by each call.
  Image dstY;
  Image srcY;
  Image dstYRect;
  Image srcYRect;
  Image aRect;
  Image bRect;
  Image guideRect;  // of srcY if numShrink is 0
  Image squareRect;
  Image a;
  Image b;
  Image guide;   // UINT16; empty if numShrink is 0
  Image square;  // INT32, or UINT16 if numShrink is 0
  ImageRect rect;
  ImageRect shrunkRect;
  int32_t useEpsilonMap;
  int32_t numShrink;
  ImageProc2 resize;
  Image epsilonMap;
  Image epsilonMapRect;
};

extern "C" {
Status GuidedFilterParam_setDefault(GuidedFilterParam* param) ZVT4_NAME(GuidedFilterParam_setDefault);
// Arena bytes that init and one call take. A null param means the defaults, here and in init.
int32_t GuidedFilter_getBufferSize(int32_t width, int32_t height, int32_t unused, const GuidedFilterParam* param)
    ZVT4_NAME(GuidedFilter_getBufferSize);
Status construct_GuidedFilter(GuidedFilter* filter, Env* env) ZVT4_NAME(construct_GuidedFilter);
Status destruct_GuidedFilter(GuidedFilter* filter) ZVT4_NAME(destruct_GuidedFilter);
// Allocates for frames of one size; the rectangle is the whole frame. A failure leaves the filter empty.
Status GuidedFilter_init(GuidedFilter* filter, int32_t width, int32_t height, const GuidedFilterParam* param)
    ZVT4_NAME(GuidedFilter_init);
Status GuidedFilter_recycle(GuidedFilter* filter) ZVT4_NAME(GuidedFilter_recycle);
Status GuidedFilter_setPel(GuidedFilter* filter, Pel* pel) ZVT4_NAME(GuidedFilter_setPel);
// Null empties the rectangle, and the filter then refuses to run.
Status GuidedFilter_setRect(GuidedFilter* filter, const ImageRect* rect) ZVT4_NAME(GuidedFilter_setRect);
Status GuidedFilter_execute(GuidedFilter* filter, Image* dst, Image* src, float epsilon, int32_t window)
    ZVT4_NAME(GuidedFilter_execute);
Status GuidedFilter_execute_with_epsilon_map(GuidedFilter* filter, Image* dst, Image* src, float epsilon,
                                             const Image* map, int32_t window)
    ZVT4_NAME(GuidedFilter_execute_with_epsilon_map);

// The classic form with one square window, without a map.
Status GuidedFilter_execute_square(GuidedFilter* filter, Image* dst, Image* src, float epsilon, int32_t window)
    ZVT4_NAME(GuidedFilter_execute_square);

// Two rounds (guided_filter_coeff.h), for numShrink 1 and 2: the first smooths the block sums with epsilon1 and gives
// no picture, the second applies coefficients of the smooth sums to src. They may be run apart, with one window and
// rectangle. The lite form smooths each block by itself. If epsilon1 or epsilon2 turns a round off, dst is a copy.
Status GuidedFilter_execute_first_step(GuidedFilter* filter, Image* dst, Image* src, float epsilon, int32_t window)
    ZVT4_NAME(GuidedFilter_execute_first_step);
Status GuidedFilter_execute_second_step(GuidedFilter* filter, Image* dst, Image* src, float epsilon, int32_t window)
    ZVT4_NAME(GuidedFilter_execute_second_step);
Status GuidedFilter_execute_two_step(GuidedFilter* filter, Image* dst, Image* src, float epsilon1, float epsilon2,
                                     int32_t window) ZVT4_NAME(GuidedFilter_execute_two_step);
Status GuidedFilter_execute_two_step_lite(GuidedFilter* filter, Image* dst, Image* src, float epsilon1, float epsilon2,
                                          int32_t window) ZVT4_NAME(GuidedFilter_execute_two_step_lite);
}

#endif  // ZVT4_IMAGEPROC_GUIDED_FILTER_H_
