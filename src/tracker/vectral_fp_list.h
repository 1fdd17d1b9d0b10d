// VectralFPList: the points of one pyramid level while frames are tracked, as parallel arrays.
#ifndef ZVT4_TRACKER_VECTRAL_FP_LIST_H_
#define ZVT4_TRACKER_VECTRAL_FP_LIST_H_

#include "motion/mvec8_real.h"
#include "tracker/feat_pnt_list.h"
#include "tracker/vectral_block.h"

// Lens correction of one position; scale = 1 / (hypot(width, height) x 0.5).
using VectralLensFunction = void (*)(void* context, double* outX, double* outY, double x, double y, double width,
                                     double height, double scale);

struct VectralFPHistory {
  int32_t sum;    // of squared residuals
  int32_t count;  // of samples
};

struct VectralFPList {
  int32_t count;
  int32_t blockType;
  int32_t* baseX;  // integer pixels
  int32_t* baseY;
  int32_t* curX;  // Q15, or VECTRAL_POS_LOST, VECTRAL_POS_OUTSIDE
  int32_t* curY;
  int32_t* strength;
  int32_t* inlier;
  int32_t updateCount;
  VectralFPHistory* history;
  VectralBlockFuncTbl table;
  VectralBlockHybrid* blocks;
  Env* env;
  void* lensContext;
  VectralLensFunction lensUndistort;
  VectralLensFunction lensDistort;
};

extern "C" {
Status construct_VectralFPList(VectralFPList* list, Env* env) ZVT4_NAME(construct_VectralFPList);
Status destruct_VectralFPList(VectralFPList* list) ZVT4_NAME(destruct_VectralFPList);
Status VectralFPList_clear(VectralFPList* list) ZVT4_NAME(VectralFPList_clear);
Status VectralFPList_set(VectralFPList* list, const FeatPntList* feats, const Image* image, int32_t blockType)
    ZVT4_NAME(VectralFPList_set);
Status VectralFPList_updatePos(VectralFPList* list, const Image* image, const Mvec8Real* motion, const int32_t* ranges,
                               ParallelExecutor* executor) ZVT4_NAME(VectralFPList_updatePos);
Status VectralFPList_updatePos2(VectralFPList* list, const Image* image, const Mvec8Real* motion, const int32_t* ranges,
                                int32_t mean, int32_t deviation, const int32_t* table)
    ZVT4_NAME(VectralFPList_updatePos2);
Status VectralFPList_updateSt(VectralFPList* list, const Mvec8Real* motion) ZVT4_NAME(VectralFPList_updateSt);
Status VectralFPList_copy(VectralFPList* dst, const VectralFPList* src) ZVT4_NAME(VectralFPList_copy);
Status VectralFPList_getDumpSize(const VectralFPList* list, int32_t* out) ZVT4_NAME(VectralFPList_getDumpSize);
Status VectralFPList_dumpPacked(const VectralFPList* list, void* out) ZVT4_NAME(VectralFPList_dumpPacked);
Status VectralFPList_loadPacked(VectralFPList* list, int32_t count, const void* data, int32_t blockType)
    ZVT4_NAME(VectralFPList_loadPacked);
}

#endif  // ZVT4_TRACKER_VECTRAL_FP_LIST_H_
