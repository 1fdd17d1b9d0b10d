// MILsm: one motion per image from point correspondences, by least squares. A front with a table of functions, behind
// which stands one of six variants.
#ifndef ZVT4_MOTION_MILSM_H_
#define ZVT4_MOTION_MILSM_H_

#include "base/env.h"
#include "motion/mvec8_f32.h"
#include "motion/mvec8_real.h"

enum MILsmType : int32_t {
  MILSM_3R = 0,
  MILSM_4 = 1,
  MILSM_8 = 2,
  MILSM_8ST = 3,
  MILSM_8R = 4,
  MILSM_8R_FIXED_POINT = 5,
};

enum MILsmFailure : int32_t {
  MILSM_CONVERGED = 0,
  MILSM_FAIL_PIVOT = 1,
  MILSM_FAIL_DIAGONAL = 2,
  MILSM_FAIL_PASSES = 3,
  MILSM_NOT_SOLVED = 4,
  MILSM_FAIL_MEMORY = 5,
};

struct MILsm {
  MILsm* self;
  void* impl;  // arena block of the variant's record
  Status (*construct)(void* impl, Env* env);
  Status (*destruct)(void* impl);
  Status (*init)(void* impl, int32_t imageCount);
  Status (*clear)(void* impl);
  Status (*changeImageNum)(void* impl, int32_t imageCount);
  Status (*copy)(void* to, const void* from);
  Status (*add)(void* impl, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by, int32_t weight);
  Status (*addF32)(void* impl, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by, int32_t weight);
  Status (*addReal)(void* impl, int32_t a, double ax, double ay, int32_t b, double bx, double by, double weight);
  Status (*solve)(void* impl);
  Status (*outputMvec)(void* impl, Mvec8F32* out, int32_t image);
  Status (*outputMvecReal)(void* impl, Mvec8Real* out, int32_t image);
  Status (*setInitialMvec)(void* impl, const Mvec8F32* mvec, int32_t image);
  Status (*setInitialMvecReal)(void* impl, const Mvec8Real* mvec, int32_t image);
  Status (*setCameraParam)(void* impl, int32_t width, int32_t height, double fovDegrees);
  Status (*getFailureCode)(void* impl, int32_t* out);
  Status (*clearBlock)(void* impl, int32_t a, int32_t b);
  int32_t type;
  int32_t imageCount;
  Env* env;
};

extern "C" {
Status construct_MILsm(MILsm* lsm, Env* env) ZVT4_NAME(construct_MILsm);
Status destruct_MILsm(MILsm* lsm) ZVT4_NAME(destruct_MILsm);
Status MILsm_init(MILsm* lsm, int32_t type, int32_t imageCount) ZVT4_NAME(MILsm_init);
Status MILsm_memClear(MILsm* lsm) ZVT4_NAME(MILsm_memClear);
Status MILsm_clear(MILsm* lsm) ZVT4_NAME(MILsm_clear);
Status MILsm_changeImageNum(MILsm* lsm, int32_t imageCount) ZVT4_NAME(MILsm_changeImageNum);
Status MILsm_copy(MILsm* to, const MILsm* from) ZVT4_NAME(MILsm_copy);
Status MILsm_add(MILsm* lsm, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by, int32_t weight)
    ZVT4_NAME(MILsm_add);
Status MILsm_addF32(MILsm* lsm, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by, int32_t weight)
    ZVT4_NAME(MILsm_addF32);
Status MILsm_addReal(MILsm* lsm, int32_t a, double ax, double ay, int32_t b, double bx, double by, double weight)
    ZVT4_NAME(MILsm_addReal);
Status MILsm_solve(MILsm* lsm) ZVT4_NAME(MILsm_solve);
Status MILsm_outputMvec(MILsm* lsm, Mvec8F32* out, int32_t image) ZVT4_NAME(MILsm_outputMvec);
Status MILsm_outputMvecReal(MILsm* lsm, Mvec8Real* out, int32_t image) ZVT4_NAME(MILsm_outputMvecReal);
Status MILsm_setInitialMvec(MILsm* lsm, const Mvec8F32* mvec, int32_t image) ZVT4_NAME(MILsm_setInitialMvec);
Status MILsm_setInitialMvecReal(MILsm* lsm, const Mvec8Real* mvec, int32_t image) ZVT4_NAME(MILsm_setInitialMvecReal);
Status MILsm_setCameraParam(MILsm* lsm, int32_t width, int32_t height, double fovDegrees)
    ZVT4_NAME(MILsm_setCameraParam);
Status MILsm_getFailureCode(MILsm* lsm, int32_t* out) ZVT4_NAME(MILsm_getFailureCode);
Status MILsm_clearBlock(MILsm* lsm, int32_t a, int32_t b) ZVT4_NAME(MILsm_clearBlock);
}

#endif  // ZVT4_MOTION_MILSM_H_
