// Vectral: measures how a frame has moved against a base frame, coarse to fine over a pyramid of luma images.
#ifndef ZVT4_TRACKER_VECTRAL_H_
#define ZVT4_TRACKER_VECTRAL_H_

#include "motion/milsm.h"
#include "tracker/vectral_fp_list.h"

enum VectralFailure : uint32_t {
  VECTRAL_FAIL_FEW_POINTS = 1,
  VECTRAL_FAIL_LOW_STRENGTH = 2,
  VECTRAL_FAIL_SOLVER = 4,
  VECTRAL_FAIL_COARSE = 8,
};

struct Vectral {
  int32_t width;
  int32_t height;
  int32_t shrinkRatio;
  int32_t resoNum;
  int32_t targetArea;
  int32_t minResoArea;
  int32_t maxFeatPnt;
  int32_t lsmType;
  int32_t resetMvecPerFrame;
  int32_t solveMode;
  int32_t coarseMode;
  int32_t blockType;
  int32_t coarseChained;
  ImageRect rect;
  int32_t coarseRange;  // Q15
  int32_t blockRange[2];
  Image* baseImages;
  Image* curImages;
  Image prevCoarseImage;
  MILsm* lsms;
  double fieldOfView;
  int32_t coarseLimit;
  int32_t minStrengthStat;
  int32_t state;
  int32_t failureEnabled;
  uint32_t failureCode;
  int32_t* levelStats;  // three per level
  VectralFPList* fpLists;
  uint32_t randomSeed;
  Mvec8Real mvec;  // at level 0 scale
  int32_t fullResEnabled;
  int32_t fullResLsmType;
  int32_t fullResValid;
  VectralFPList fullResFpList;
  MILsm fullResLsm;
  Mvec8Real fullResMvec;
  int32_t fullResBlockRange[2];
  int32_t normalizeBase;
  int32_t lutMode;
  int32_t lutMean;
  int32_t lutStddev;
  int32_t lut[256];
  int32_t externalPyramid;
  ParallelExecutor* executor;
  Mvec8Real* predictedMvecs;
  Mvec8Real* resultMvecs;
  double coarseShiftX;
  double coarseShiftY;
  double inlierRatioScale;
  int32_t coarseBandpass;
  int32_t inlierLimit;
  void* lensContext;
  VectralLensFunction lensUndistort;
  VectralLensFunction lensDistort;
  Env* env;
};

extern "C" {
Status construct_Vectral(Vectral* self, Env* env) ZVT4_NAME(construct_Vectral);
Status destruct_Vectral(Vectral* self) ZVT4_NAME(destruct_Vectral);
Status Vectral_memClear(Vectral* self) ZVT4_NAME(Vectral_memClear);
Status Vectral_init(Vectral* self, int32_t width, int32_t height) ZVT4_NAME(Vectral_init);
Status Vectral_setBaseImage(Vectral* self, const Image* image) ZVT4_NAME(Vectral_setBaseImage);
Status Vectral_addImage(Vectral* self, const Image* image) ZVT4_NAME(Vectral_addImage);
Status Vectral_buildPyramid(Vectral* self, Image* images, int32_t levels) ZVT4_NAME(Vectral_buildPyramid);
Status Vectral_coarseSearch(Vectral* self, Mvec8Real* motion, const Image* a, const Image* b)
    ZVT4_NAME(Vectral_coarseSearch);
Status Vectral_outputMvec(Vectral* self, int32_t* out) ZVT4_NAME(Vectral_outputMvec);
Status Vectral_outputMvecReal(Vectral* self, Mvec8Real* out) ZVT4_NAME(Vectral_outputMvecReal);
Status Vectral_setState(Vectral* self, const Image* image, const Mvec8Real* mvec) ZVT4_NAME(Vectral_setState);
Status Vectral_getFailureCode(Vectral* self, uint32_t* out) ZVT4_NAME(Vectral_getFailureCode);
Status Vectral_getFeatDataSize(Vectral* self, int32_t* outSize, int32_t withImage) ZVT4_NAME(Vectral_getFeatDataSize);
Status Vectral_dumpFeatData(Vectral* self, void* buffer, int32_t withImage) ZVT4_NAME(Vectral_dumpFeatData);
Status Vectral_loadFeatData(Vectral* self, const void* buffer) ZVT4_NAME(Vectral_loadFeatData);
Status Vectral_recalcMvec(Vectral* self, Mvec8Real* out, int32_t type) ZVT4_NAME(Vectral_recalcMvec);
Status Vectral_calcYDiff(Vectral* self, int32_t* out, const Mvec8Real* motion, int32_t level, int32_t cell,
                         int32_t shift) ZVT4_NAME(Vectral_calcYDiff);

Status Vectral_solvePlain(Vectral* self, Mvec8Real* motion, VectralFPList* list, MILsm* lsm)
    ZVT4_NAME(Vectral_solvePlain);
Status Vectral_solveWeighted(Vectral* self, Mvec8Real* motion, VectralFPList* list, MILsm* lsm)
    ZVT4_NAME(Vectral_solveWeighted);
Status Vectral_solveRandomSample(Vectral* self, Mvec8Real* motion, VectralFPList* list, MILsm* lsm)
    ZVT4_NAME(Vectral_solveRandomSample);
Status Vectral_solveTwoPass(Vectral* self, Mvec8Real* motion, VectralFPList* list, int32_t width, int32_t height,
                            MILsm* lsm) ZVT4_NAME(Vectral_solveTwoPass);
Status Vectral_solveHistoryWeighted(Vectral* self, Mvec8Real* motion, VectralFPList* list, MILsm* lsm)
    ZVT4_NAME(Vectral_solveHistoryWeighted);
Status Vectral_solveAllLevels(Vectral* self, Mvec8Real* motion, VectralFPList* list, MILsm* lsm)
    ZVT4_NAME(Vectral_solveAllLevels);
}

#endif  // ZVT4_TRACKER_VECTRAL_H_
