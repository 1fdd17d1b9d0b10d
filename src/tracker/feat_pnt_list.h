// FeatPntList: the corners of one pyramid level, found on a coarse grid, best one per cell, sorted by strength.
#ifndef ZVT4_TRACKER_FEAT_PNT_LIST_H_
#define ZVT4_TRACKER_FEAT_PNT_LIST_H_

#include "image/image.h"
#include "parallel/parallel_executor.h"

struct FeatPnt {
  int32_t left;  // the cell it was found in
  int32_t top;
  int32_t right;
  int32_t bottom;
  int32_t x;
  int32_t y;
  int32_t strength;  // 0 to 255; -1 on the full-resolution copy
};

struct FeatPntList {
  FeatPnt* pnts;
  int32_t count;
  int32_t capacity;
  Env* env;
};

extern "C" {
Status construct_FeatPntList(FeatPntList* list, int32_t capacity, Env* env) ZVT4_NAME(construct_FeatPntList);
Status destruct_FeatPntList(FeatPntList* list) ZVT4_NAME(destruct_FeatPntList);
Status FeatPntList_init(FeatPntList* list) ZVT4_NAME(FeatPntList_init);
Status FeatPntList_add(FeatPntList* list, const FeatPnt* pnt) ZVT4_NAME(FeatPntList_add);
Status FeatPntList_addFeatPnt(FeatPntList* list, const ImageRect* rect, const Image* feat, int32_t step,
                              int32_t floorFlag, int32_t scale) ZVT4_NAME(FeatPntList_addFeatPnt);
Status FeatPntList_strip(FeatPntList* list, int32_t maximum) ZVT4_NAME(FeatPntList_strip);
Status FeatPntList_div(FeatPntList* list, int32_t index, const Image* feat, int32_t step, int32_t scale)
    ZVT4_NAME(FeatPntList_div);
Status calcFeatImage(Image* out, const Image* in, int32_t step, int32_t block, int32_t type) ZVT4_NAME(calcFeatImage);
Status calcFeatPntList(FeatPntList* list, const Image* image, int32_t maximum, int32_t block, int32_t subdivide,
                       int32_t scale, int32_t type) ZVT4_NAME(calcFeatPntList);
Status VectralFeatPntList_calc(FeatPntList* list, const Image* image, int32_t maximum, int32_t block, int32_t subdivide,
                               int32_t scale, int32_t type, ParallelExecutor* executor)
    ZVT4_NAME(VectralFeatPntList_calc);
}

#endif  // ZVT4_TRACKER_FEAT_PNT_LIST_H_
