// VectralFPList: the points of one pyramid level while frames are tracked, as parallel arrays with one block per point.
//
//   set, loadPacked    base positions, strengths and blocks, from the detected points or from a dump
//   updatePos          per frame: prediction by the motion so far, then alignment of each block
//   curX, curY         the outcome, Q15; VECTRAL_POS_LOST or VECTRAL_POS_OUTSIDE, both negative, where there is none
//
// All memory is from the arena of the Env given at construction. Lists are not safe for concurrent use; updatePos forks
// ranges of points, which write disjoint items: any split gives the same bits. Functions that take a null where a
// record is needed return ZELVAN_ERROR_PARAM, unless said otherwise.
#ifndef ZVT4_TRACKER_VECTRAL_FP_LIST_H_
#define ZVT4_TRACKER_VECTRAL_FP_LIST_H_

#include "motion/mvec8_real.h"
#include "tracker/feat_pnt_list.h"
#include "tracker/vectral_block.h"

// Lens correction of one position in pixels; scale = 1 / (hypot(width, height) x 0.5).
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
  int32_t* strength;  // of the feature, or the reliability once the block form has measured one
  int32_t* inlier;    // set by the solver's side, cleared at each update
  int32_t updateCount;
  VectralFPHistory* history;
  VectralBlockFuncTbl table;
  VectralBlockHybrid* blocks;  // slots that fit every form
  Env* env;
  void* lensContext;                  // null: no lens
  VectralLensFunction lensUndistort;  // measured to ideal position
  VectralLensFunction lensDistort;    // and back
};

extern "C" {
Status construct_VectralFPList(VectralFPList* list, Env* env) ZVT4_NAME(construct_VectralFPList);
Status destruct_VectralFPList(VectralFPList* list) ZVT4_NAME(destruct_VectralFPList);
// Frees arrays and blocks; the settings stay.
Status VectralFPList_clear(VectralFPList* list) ZVT4_NAME(VectralFPList_clear);

// One point per feature that is at least 4 pixels from the border and for which a block can be made, in the order of
// feats. ZELVAN_ERROR_PARAM also for an unknown blockType; ZELVAN_ERROR_NOMEM. The list is then empty.
Status VectralFPList_set(VectralFPList* list, const FeatPntList* feats, const Image* image, int32_t blockType)
    ZVT4_NAME(VectralFPList_set);

// Tracks all points from the base into image, which has the size of the level. motion maps base to image positions. A
// prediction with less than 3 pixels to a border is VECTRAL_POS_OUTSIDE. ranges: the radii of the hybrid form. The
// result is the OR of the alignments' statuses.
Status VectralFPList_updatePos(VectralFPList* list, const Image* image, const Mvec8Real* motion, const int32_t* ranges,
                               ParallelExecutor* executor) ZVT4_NAME(VectralFPList_updatePos);
// The same for an image whose pixels have yet to go through a table of 256 values: only the patch that a block can see,
// its radius round the prediction, is mapped. A patch that leaves the image makes the point VECTRAL_POS_OUTSIDE; a lost
// point is negative, but not VECTRAL_POS_LOST. No lens. mean and deviation are not used. Scratch: one patch.
Status VectralFPList_updatePos2(VectralFPList* list, const Image* image, const Mvec8Real* motion, const int32_t* ranges,
                                int32_t mean, int32_t deviation, const int32_t* table)
    ZVT4_NAME(VectralFPList_updatePos2);

// Adds the squared distance of each tracked point from motion to its history, in units of 1/32 square pixel.
Status VectralFPList_updateSt(VectralFPList* list, const Mvec8Real* motion) ZVT4_NAME(VectralFPList_updateSt);

// A deep copy in the arena of dst. ZELVAN_ERROR_NOMEM: dst is then empty.
Status VectralFPList_copy(VectralFPList* dst, const VectralFPList* src) ZVT4_NAME(VectralFPList_copy);

// The dump: the packed forms of all blocks, one behind the other, which hold base positions and strengths.
// loadPacked reads count of them; current positions are VECTRAL_POS_LOST then. It does nothing, and says ZELVAN_OK, for
// a null list or null data. Blocks that can't be read stay without function, and their statuses are ORed.
Status VectralFPList_getDumpSize(const VectralFPList* list, int32_t* out) ZVT4_NAME(VectralFPList_getDumpSize);
Status VectralFPList_dumpPacked(const VectralFPList* list, void* out) ZVT4_NAME(VectralFPList_dumpPacked);
Status VectralFPList_loadPacked(VectralFPList* list, int32_t count, const void* data, int32_t blockType)
    ZVT4_NAME(VectralFPList_loadPacked);
}

#endif  // ZVT4_TRACKER_VECTRAL_FP_LIST_H_
