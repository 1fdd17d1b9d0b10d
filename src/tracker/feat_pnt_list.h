// FeatPntList: the corners of one pyramid level, found on a coarse grid, best one per cell, sorted by strength.
//
// Detection cuts the level into about as many square cells as points are wanted, takes a corner response on every
// step-th pixel of every step-th row, and keeps one point per cell at the most. A level without corners simply gives a
// short list. Response (C. Harris, M. Stephens, "A combined corner and edge detector", 1988, k = 1/16), with the sums
// of dx x dx, dy x dy, dx x dy over the 4x4 window from (-1, -1) to (2, 2), each divided by 4, as a, c, e:
//
//   a x c - e x e - (a + c)^2 / 16
//
// in wrapping 32-bit arithmetic, the shift of the last term unsigned; what is not positive then counts as 0. Strong
// corners do wrap, from a + c = 65536 on: gradients of 64 grey levels per pixel all over the window.
#ifndef ZVT4_TRACKER_FEAT_PNT_LIST_H_
#define ZVT4_TRACKER_FEAT_PNT_LIST_H_

#include "image/image.h"
#include "parallel/parallel_executor.h"

struct FeatPnt {
  int32_t left;  // the cell it was found in, in level pixels; right and bottom exclusive
  int32_t top;
  int32_t right;
  int32_t bottom;
  int32_t x;  // a multiple of the detection step
  int32_t y;
  int32_t strength;  // 0 to 255; -1 on the full-resolution copy
};

struct FeatPntList {
  FeatPnt* pnts;
  int32_t count;
  int32_t capacity;
  Env* env;
};

// Rows begin to end of a feature image, as one task.
struct FeatImageSlice {
  Image* out;
  const Image* in;
  int32_t step;
  int32_t block;
  int32_t begin;
  int32_t end;
};

extern "C" {
// Takes the records from the arena, cleared. ZELVAN_ERROR_PARAM for a negative capacity; ZELVAN_ERROR_NOMEM.
Status construct_FeatPntList(FeatPntList* list, int32_t capacity, Env* env) ZVT4_NAME(construct_FeatPntList);
Status destruct_FeatPntList(FeatPntList* list) ZVT4_NAME(destruct_FeatPntList);

// Empties the list and keeps its memory.
Status FeatPntList_init(FeatPntList* list) ZVT4_NAME(FeatPntList_init);

// Both append one point and return the new count, or a failure: ZELVAN_ERROR_STATE when the list is full.
// addFeatPnt: the point of the largest response in the cell rect of a feature image, the last one in reading order
// among equals. Its strength is the fourth root of the response times scale / 32768, 255 at the most.
// ZELVAN_ERROR_STATE also when no response is positive or, with floorFlag, when the strength is below 6.
// ZELVAN_ERROR_PARAM: null, a step below 1, a feat that is not INT32, a cell without samples or not inside feat.
Status FeatPntList_add(FeatPntList* list, const FeatPnt* pnt) ZVT4_NAME(FeatPntList_add);
Status FeatPntList_addFeatPnt(FeatPntList* list, const ImageRect* rect, const Image* feat, int32_t step,
                              int32_t floorFlag, int32_t scale) ZVT4_NAME(FeatPntList_addFeatPnt);

// Sorts by falling strength, equals in their old order, and keeps the first maximum points. Scratch: a copy of the list
// and a histogram. ZELVAN_ERROR_NOMEM with the list untouched; ZELVAN_ERROR_PARAM for a maximum below 1.
Status FeatPntList_strip(FeatPntList* list, int32_t maximum) ZVT4_NAME(FeatPntList_strip);

// Replaces a point by those of the four quarters of its cell: they are appended, then the last record of the list moves
// to index. Without a new point that is the record that was last before; the point at index is lost either way.
// ZELVAN_ERROR_STATE for a cell narrower or lower than two steps, which stays.
Status FeatPntList_div(FeatPntList* list, int32_t index, const Image* feat, int32_t step, int32_t scale)
    ZVT4_NAME(FeatPntList_div);

// The responses of a UINT8 image as an INT32 image of (W-1)/step + 1 by (H-1)/step + 1: item (fx, fy) stands for pixel
// (fx x step, fy x step). Samples nearer to the border than half the block size, and those whose window leaves the
// image, are 0. type is 4, the only detector. out takes its size here.
// ZELVAN_ERROR_PARAM: null, another type or format, block below 2, step below 1; statuses of Image_init.
Status calcFeatImage(Image* out, const Image* in, int32_t step, int32_t block, int32_t type) ZVT4_NAME(calcFeatImage);

// Detection. The list is emptied first; a maximum of 0, or an image narrower or lower than 24, leaves it so. With
// subdivide, cells are split again and again until maximum points are found or nothing changes, and weak points are
// refused. VectralFeatPntList_calc cuts the rows of the feature image into up to 16 slices for the executor; any split
// gives the same points. When the arena refuses the feature image of the sliced form the list stays empty, without an
// error. calcFeatPntList is the form for one thread. Statuses of calcFeatImage and FeatPntList_strip.
Status calcFeatPntList(FeatPntList* list, const Image* image, int32_t maximum, int32_t block, int32_t subdivide,
                       int32_t scale, int32_t type) ZVT4_NAME(calcFeatPntList);
Status VectralFeatPntList_calc(FeatPntList* list, const Image* image, int32_t maximum, int32_t block, int32_t subdivide,
                               int32_t scale, int32_t type, ParallelExecutor* executor)
    ZVT4_NAME(VectralFeatPntList_calc);
Status VectralFeatPntList_calcSlice(FeatImageSlice* slice) ZVT4_NAME(VectralFeatPntList_calcSlice);
}

#endif  // ZVT4_TRACKER_FEAT_PNT_LIST_H_
