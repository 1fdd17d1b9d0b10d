// Lifecycle of the tracker and the ways to read and set its motion.
#include "tracker/vectral.h"

#include <cstring>

#include "base/integer.h"
#include "tracker/vectral_util.h"

namespace {

template <typename T>
T* newArray(Env* env, int32_t count) {
  T* const array = static_cast<T*>(Heap2_malloc(&env->heap, static_cast<uint32_t>(count * sizeof(T))));
  if (array != nullptr) std::memset(static_cast<void*>(array), 0, count * sizeof(T));
  return array;
}

template <typename T>
Status freeArray(Env* env, T** array) {
  if (*array == nullptr) return ZELVAN_OK;
  const Status status = Heap2_free(&env->heap, *array);
  *array = nullptr;
  return status;
}

template <typename T, Status (*Destruct)(T*)>
Status destructArray(Env* env, T** array, int32_t count) {
  if (*array == nullptr) return ZELVAN_OK;
  Status status = ZELVAN_OK;
  for (int32_t i = 0; i < count; ++i) status |= Destruct(&(*array)[i]);
  return status | freeArray(env, array);
}

// One record of each kind per level; false when one of the arrays is missing.
bool allocateLevels(Vectral* self) {
  const int32_t levels = self->resoNum;
  self->baseImages = newArray<Image>(self->env, levels);
  self->curImages = newArray<Image>(self->env, levels);
  self->fpLists = newArray<VectralFPList>(self->env, levels);
  self->lsms = newArray<MILsm>(self->env, levels);
  return self->baseImages != nullptr && self->curImages != nullptr && self->fpLists != nullptr && self->lsms != nullptr;
}

Status initLevels(Vectral* self, int32_t width, int32_t height) {
  Status status = ZELVAN_OK;
  for (int32_t level = 0; level < self->resoNum; ++level) {
    Image* const base = &self->baseImages[level];
    Image* const cur = &self->curImages[level];
    status |= construct_Image(base, self->env) | construct_Image(cur, self->env);
    status |= Image_init(base, width, height, nullptr, IMAGE_UINT8);
    status |= Image_init(cur, width, height, nullptr, IMAGE_UINT8);
    status |= construct_VectralFPList(&self->fpLists[level], self->env);
    MILsm* const lsm = &self->lsms[level];
    status |= construct_MILsm(lsm, self->env);
    status |= MILsm_init(lsm, self->lsmType, 2);
    status |= MILsm_setCameraParam(lsm, width, height, self->fieldOfView);
    if (level + 1 == self->resoNum) status |= Image_init(&self->prevCoarseImage, width, height, nullptr, IMAGE_UINT8);
    width = (width - 2) >> 1;
    height = (height - 2) >> 1;
  }
  return status;
}

bool allocateResults(Vectral* self) {
  const int32_t levels = self->resoNum;
  self->resultMvecs = newArray<Mvec8Real>(self->env, levels);
  self->predictedMvecs = newArray<Mvec8Real>(self->env, levels);
  self->levelStats = newArray<int32_t>(self->env, 3 * levels);
  if (self->resultMvecs == nullptr || self->predictedMvecs == nullptr || self->levelStats == nullptr) return false;
  for (int32_t i = 0; i < levels; ++i) {
    Mvec8Real_setIdentity(&self->resultMvecs[i]);
    Mvec8Real_setIdentity(&self->predictedMvecs[i]);
  }
  return true;
}

// Of a status that several steps went into.
bool hasExhaustion(Status status) {
  return (status & ZELVAN_ERROR_NOMEM & 0x7FFFFFFF) != 0;
}

}  // namespace

Status construct_Vectral(Vectral* self, Env* env) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  *self = {};
  self->env = env;
  self->targetArea = 76800;
  self->minResoArea = 600;
  self->maxFeatPnt = 256;
  self->coarseMode = 1;
  self->blockType = 4;
  self->coarseChained = 1;
  self->coarseRange = 8192;
  self->blockRange[0] = 3;
  self->blockRange[1] = 3;
  self->fieldOfView = 61.0;
  self->coarseLimit = 0x40000000;
  self->failureEnabled = 1;
  self->failureCode = 0x40000000;
  self->fullResLsmType = MILSM_8R;
  self->fullResBlockRange[0] = 3;
  self->fullResBlockRange[1] = 1;
  self->normalizeBase = 1;
  self->inlierRatioScale = 1.0;
  self->inlierLimit = 3;
  Status status = Mvec8Real_setIdentity(&self->mvec);
  status |= construct_Image(&self->prevCoarseImage, env);
  status |= construct_VectralFPList(&self->fullResFpList, env);
  return status | construct_MILsm(&self->fullResLsm, env);
}

Status destruct_Vectral(Vectral* self) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  Status status = Vectral_memClear(self);
  status |= destruct_Image(&self->prevCoarseImage);
  status |= destruct_VectralFPList(&self->fullResFpList);
  status |= destruct_MILsm(&self->fullResLsm);
  *self = {};
  return status;
}

Status Vectral_memClear(Vectral* self) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  Env* const env = self->env;
  const int32_t levels = self->resoNum;
  Status status = destructArray<Image, destruct_Image>(env, &self->baseImages, levels);
  status |= destructArray<Image, destruct_Image>(env, &self->curImages, levels);
  status |= destructArray<VectralFPList, destruct_VectralFPList>(env, &self->fpLists, levels);
  status |= destructArray<MILsm, destruct_MILsm>(env, &self->lsms, levels);
  status |= freeArray(env, &self->resultMvecs);
  status |= freeArray(env, &self->predictedMvecs);
  status |= freeArray(env, &self->levelStats);
  status |= destruct_Image(&self->prevCoarseImage);
  status |= construct_Image(&self->prevCoarseImage, env);
  self->resoNum = 0;
  return status | VectralFPList_clear(&self->fullResFpList);
}

Status Vectral_init(Vectral* self, int32_t width, int32_t height) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  Status status = Vectral_memClear(self);
  self->width = width;
  self->height = height;
  ImageRect* const rect = &self->rect;
  if (rect->left >= rect->right || rect->top >= rect->bottom) *rect = {0, 0, width, height};
  const int32_t usedWidth = rect->right - rect->left;
  const int32_t usedHeight = rect->bottom - rect->top;
  if (self->shrinkRatio <= 0) {
    status |= VectralUtil_calcShrinkRatio(&self->shrinkRatio, self->targetArea, usedWidth, usedHeight);
  }
  const int32_t levelWidth = usedWidth / self->shrinkRatio;
  const int32_t levelHeight = usedHeight / self->shrinkRatio;
  status |= VectralUtil_calcResoNum(&self->resoNum, self->minResoArea, levelWidth, levelHeight);
  if (self->resoNum < 1) return status | ZELVAN_ERROR_PARAM;

  if (!allocateLevels(self)) {
    self->resoNum = 0;  // no element is constructed yet
    return status | Vectral_memClear(self) | ZELVAN_ERROR_NOMEM;
  }
  status |= initLevels(self, levelWidth, levelHeight);
  if (!allocateResults(self)) return status | Vectral_memClear(self) | ZELVAN_ERROR_NOMEM;
  self->randomSeed = 12345678;
  if (self->fullResEnabled != 0) {
    status |= MILsm_init(&self->fullResLsm, self->fullResLsmType, 2);
    status |= MILsm_setCameraParam(&self->fullResLsm, width, height, self->fieldOfView);
  }
  if (hasExhaustion(status)) return status | Vectral_memClear(self);
  self->failureCode = 0;
  self->state = VECTRAL_READY;
  return status;
}

Status Vectral_outputMvec(Vectral* self, int32_t* out) {
  if (self == nullptr || out == nullptr) return ZELVAN_ERROR_PARAM;
  if (self->state != VECTRAL_BASED) return ZELVAN_ERROR_STATE;
  for (int32_t i = 0; i < 9; ++i) {
    const double value = self->mvec.h[i] * 32768;
    out[i] = truncToInt32(value >= 0 ? value + 0.5 : value - 0.5);
  }
  return ZELVAN_OK;
}

Status Vectral_outputMvecReal(Vectral* self, Mvec8Real* out) {
  if (self == nullptr || out == nullptr) return ZELVAN_ERROR_PARAM;
  if (self->state == VECTRAL_NEW) return ZELVAN_ERROR_STATE;
  if (self->fullResValid != 0) {
    *out = self->fullResMvec;
    return ZELVAN_OK;
  }
  const Status status = VectralUtil_similarTransform(out, &self->mvec, &self->rect, self->shrinkRatio, 0);
  if (self->lsmType == MILSM_8R || self->lsmType == MILSM_8R_FIXED_POINT) {
    std::memcpy(out->angles, self->mvec.angles, sizeof out->angles);
  }
  return status;
}

Status Vectral_setState(Vectral* self, const Image* image, const Mvec8Real* mvec) {
  if (self == nullptr || mvec == nullptr) return ZELVAN_ERROR_PARAM;
  if (self->state == VECTRAL_NEW) return ZELVAN_ERROR_STATE;
  const Status status = image != nullptr ? Image_copy(&self->prevCoarseImage, image) : ZELVAN_OK;
  return status | VectralUtil_similarTransform(&self->mvec, mvec, &self->rect, self->shrinkRatio, 1);
}

Status Vectral_getFailureCode(Vectral* self, uint32_t* out) {
  if (self == nullptr || out == nullptr) return ZELVAN_ERROR_PARAM;
  *out = self->failureEnabled != 0 ? self->failureCode : 0;
  return ZELVAN_OK;
}
