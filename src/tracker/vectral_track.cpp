// The base frame and the tracking of a frame against it.
#include <algorithm>

#include "base/integer.h"
#include "tracker/vectral.h"
#include "tracker/vectral_util.h"

namespace {

constexpr int32_t kFewPoints = 50;      // of a level of the base
constexpr int32_t kFewTracked = 16;     // fewer are not worth a solve
constexpr double kLeastStrength = 3.0;  // mean of the tracked points
constexpr double kLeastInliers = 0.2;   // share of the valid points

// Strength factor 0.5 and corner measure 4 of the detector, without subdivision of cells.
constexpr int32_t kFeatBlock = 7;
constexpr int32_t kFeatScale = 16384;
constexpr int32_t kFeatType = 4;

Status setLevelList(Vectral* self, int32_t level, const Image* fullImage) {
  const Image* const image = &self->baseImages[level];
  FeatPntList list = {};
  Status status = construct_FeatPntList(&list, self->maxFeatPnt, self->env);
  if (status == ZELVAN_OK && image->plane0 != nullptr) {
    status |=
        VectralFeatPntList_calc(&list, image, self->maxFeatPnt, kFeatBlock, 0, kFeatScale, kFeatType, self->executor);
  }
  if (list.count < kFewPoints && level + 1 != self->resoNum) self->failureCode |= VECTRAL_FAIL_FEW_POINTS;
  status |= VectralFPList_set(&self->fpLists[level], &list, image, self->blockType);
  if (level == 0 && self->fullResEnabled != 0) {
    const int32_t ratio = self->shrinkRatio;
    for (int32_t i = 0; i < list.count; ++i) {
      FeatPnt* const pnt = &list.pnts[i];
      pnt->x = ratio / 2 + pnt->x * ratio;
      pnt->y = ratio / 2 + pnt->y * ratio;
      pnt->strength = -1;
    }
    status |= VectralFPList_set(&self->fullResFpList, &list, fullImage, self->blockType);
  }
  return status | destruct_FeatPntList(&list);
}

// A number out of four pixels, so that a burst gives the same random samples each time.
uint32_t seedFrom(const Image* image) {
  const int32_t x = image->width / 2;
  const int32_t y = image->height / 2;
  const uint32_t p1 = imageRow(image, 0)[0];
  const uint32_t p2 = imageRow(image, 0)[x];
  const uint32_t p3 = imageRow(image, y)[0];
  const uint32_t p4 = imageRow(image, y)[x];
  return p4 | (p3 + ((p2 | p1 << 8) << 8)) << 8;
}

Status buildFrame(Vectral* self, const Image* image) {
  int32_t ratio = wrapShl(self->shrinkRatio, 15);
  if (image->width != self->width || image->height != self->height) {
    const int32_t levelWidth = self->width / self->shrinkRatio;
    if (levelWidth < 1) return ZELVAN_ERROR_PARAM;
    ratio = wrapShl(image->width, 15) / levelWidth;
  }
  const Status status = VectralUtil_shrinkImage(&self->curImages[0], image, &self->rect, ratio, self->executor);
  return status | Vectral_buildPyramid(self, self->curImages, self->resoNum);
}

Status searchCoarsest(Vectral* self, Mvec8Real* working) {
  const int32_t last = self->resoNum - 1;
  const Image* const cur = &self->curImages[last];
  if (self->coarseChained == 0) return Vectral_coarseSearch(self, working, &self->baseImages[last], cur);
  Mvec8Real shift;
  Mvec8Real_setIdentity(&shift);
  Status status = Vectral_coarseSearch(self, &shift, &self->prevCoarseImage, cur);
  status |= Image_copy(&self->prevCoarseImage, cur);
  return status | Mvec8Real_mult(working, working, &shift);
}

// The motion from one level to the next coarser or finer one.
Status scaleBetween(const Vectral* self, Mvec8Real* motion, int32_t from, int32_t to) {
  const Image* const a = &self->curImages[from];
  const Image* const b = &self->curImages[to];
  return VectralUtil_scaleMvec(motion, motion, a->width, a->height, from, b->width, b->height, to, self->fieldOfView,
                               self->lsmType);
}

Status updateList(Vectral* self, VectralFPList* list, const Image* image, const Mvec8Real* motion,
                  const int32_t* ranges) {
  if (self->lutMode != 0) {
    return VectralFPList_updatePos2(list, image, motion, ranges, self->lutMean, self->lutStddev, self->lut);
  }
  return VectralFPList_updatePos(list, image, motion, ranges, self->executor);
}

struct Counts {
  int32_t tracked;
  int32_t valid;  // not outside
  int32_t strength;
};

Counts countPoints(const VectralFPList* list) {
  Counts counts = {};
  for (int32_t i = 0; i < list->count; ++i) {
    counts.valid += list->curX[i] != VECTRAL_POS_OUTSIDE;
    if (list->curX[i] < 0) continue;
    ++counts.tracked;
    counts.strength = wrapAdd(counts.strength, list->strength[i]);
  }
  return counts;
}

int32_t countInliers(const VectralFPList* list) {
  int32_t inliers = 0;
  for (int32_t i = 0; i < list->count; ++i) inliers += list->inlier[i] != 0;
  return inliers;
}

Status trackLevel(Vectral* self, int32_t level, Mvec8Real* working) {
  const Image* const image = &self->curImages[level];
  VectralFPList* const list = &self->fpLists[level];
  int32_t* const stats = &self->levelStats[3 * level];
  self->predictedMvecs[level] = *working;
  self->resultMvecs[level] = *working;
  Status status = ZELVAN_OK;
  Counts counts = {};
  if (image->plane0 != nullptr) {
    if (self->lutMode == 0) {
      list->lensContext = self->lensContext;
      list->lensUndistort = self->lensUndistort;
      list->lensDistort = self->lensDistort;
    }
    status |= updateList(self, list, image, working, self->blockRange);
    counts = countPoints(list);
  } else if (list->count > 0) {
    status |= ZELVAN_ERROR_STATE;  // the arena refused the pixels of the level
  }
  stats[0] = wrapShl(counts.tracked, 15) / std::max(list->count, 1);
  stats[1] = wrapShl(counts.tracked, 15) / std::max(counts.valid, 1);
  stats[2] = wrapShl(std::min(counts.strength, 0x400000), 7) / std::max(counts.tracked, 1);
  if (counts.tracked < kFewTracked) {
    self->failureCode |= VECTRAL_FAIL_FEW_POINTS;
    return status;
  }
  if (static_cast<double>(counts.strength) / counts.tracked < kLeastStrength) {
    self->failureCode |= VECTRAL_FAIL_FEW_POINTS;
  }
  status |= vectralSolve(self, working, list, image->width, image->height, &self->lsms[level]);
  const int32_t inliers = countInliers(list);
  stats[1] = wrapShl(inliers, 15) / std::max(counts.valid, 1);
  if (static_cast<double>(inliers) / counts.valid < self->inlierRatioScale * kLeastInliers) {
    self->failureCode |= VECTRAL_FAIL_FEW_POINTS;
  }
  if (stats[2] < self->minStrengthStat) self->failureCode |= VECTRAL_FAIL_LOW_STRENGTH;
  self->resultMvecs[level] = *working;
  return status;
}

Status trackFullResolution(Vectral* self, const Image* image) {
  // That solve walks on from its list through the levels, to which this list does not belong.
  if (self->solveMode == VECTRAL_SOLVE_ALL_LEVELS) return ZELVAN_ERROR_UNSUPPORTED;
  if (image->plane0 == nullptr) return ZELVAN_ERROR_PARAM;
  const Image* const level = &self->curImages[0];
  Mvec8Real motion;
  Status status = VectralUtil_scaleMvec(&motion, &self->mvec, level->width, level->height, -1, image->width,
                                        image->height, -1, self->fieldOfView, self->fullResLsmType);
  status |= updateList(self, &self->fullResFpList, image, &motion, self->fullResBlockRange);
  status |= vectralSolve(self, &motion, &self->fullResFpList, image->width, image->height, &self->fullResLsm);
  self->fullResValid = 1;
  status |= Mvec8Real_estimateRotationAngle(&motion.angles[0], &motion.angles[1], &motion.angles[2], &motion,
                                            image->width, image->height, self->fieldOfView);
  self->fullResMvec = motion;
  return status;
}

}  // namespace

Status Vectral_setBaseImage(Vectral* self, const Image* image) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  if (self->state == VECTRAL_NEW) return ZELVAN_ERROR_STATE;
  self->failureCode = 0;
  Mvec8Real_setIdentity(&self->mvec);
  if (self->baseImages == nullptr) return ZELVAN_ERROR_STATE;  // cleared by a later init that failed
  Status status = ZELVAN_OK;
  if (image != nullptr) {
    status |= VectralUtil_shrinkImage(&self->baseImages[0], image, &self->rect, wrapShl(self->shrinkRatio, 15),
                                      self->executor);
  }
  if (image != nullptr || self->externalPyramid != 0) {
    status |= Vectral_buildPyramid(self, self->baseImages, self->resoNum);
  }
  const bool skipLast = self->coarseMode != 0 && self->coarseBandpass != 0;
  for (int32_t level = 0; level < self->resoNum - (skipLast ? 1 : 0); ++level) {
    status |= setLevelList(self, level, image);
  }
  const Image* const coarsest = &self->baseImages[self->resoNum - 1];
  status |= Image_copy(&self->prevCoarseImage, coarsest);
  if (self->baseImages[0].plane0 == nullptr) return status | ZELVAN_ERROR_STATE;
  self->state = VECTRAL_BASED;
  self->randomSeed = seedFrom(&self->baseImages[0]);
  return status;
}

Status Vectral_addImage(Vectral* self, const Image* image) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  if (self->state != VECTRAL_BASED || self->curImages == nullptr) return ZELVAN_ERROR_STATE;
  Mvec8Real working = self->mvec;
  if (self->resetMvecPerFrame != 0) Mvec8Real_setIdentity(&working);
  self->failureCode = 0;
  Status status = image != nullptr ? buildFrame(self, image) : ZELVAN_OK;

  const int32_t last = self->resoNum - 1;
  status |= scaleBetween(self, &working, 0, last);
  self->predictedMvecs[last] = working;
  if (self->coarseMode > 0) status |= searchCoarsest(self, &working);
  self->resultMvecs[last] = working;
  for (int32_t level = self->coarseMode < 0 ? last : last - 1; level >= 0; --level) {
    if (level != last) status |= scaleBetween(self, &working, level + 1, level);
    status |= trackLevel(self, level, &working);
  }
  self->mvec = working;
  self->fullResValid = 0;
  if (self->fullResEnabled != 0 && image != nullptr) status |= trackFullResolution(self, image);
  return status;
}
