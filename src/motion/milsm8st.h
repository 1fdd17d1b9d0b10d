// MILsm8St: projective motions held near a prior. The variant that the tracker runs at every pyramid level.
//
// Per image k above 0 eight parameters, the matrix P_k of motion/projective_moments.h, which maps image k to image 0;
// the public motions are the inverses. The cost is half the algebraic cost E of all correspondences times a penalty,
//
//   F(p) = 0.5 E(p) exp(sum over all parameters t of (p_t - c_t)^2 / s_t^2),
//
// with centres c (the initial motion) and widths s (the restraint). F is minimised by Newton steps; with two images
// they are exact, with more the second derivatives of the pairs without image 0 are those of Gauss-Newton. The common
// factor exp(..) drops out of a step and is never evaluated. A perfect fit has E = 0, where the penalty has no say.
//
// Initially parameters and centres are the identity and the widths 1, 1, 1e10, 1, 1, 1e10, 0.001, 0.001: the linear
// part may move by about 1, translation is free, perspective is held. Parameters carry over from solve to solve unless
// an initial motion is set.
//
// Memory: (n-1)^2 blocks of 36 f64 and 24 (n-1) f64 for n images. A solve takes an N x N matrix and four vectors,
// N = 8 (n-1), and gives them back.
//
// Statuses: ZELVAN_ERROR_PARAM for null pointers, fewer than two images, image numbers out of range;
// ZELVAN_ERROR_STATE before init; ZELVAN_ERROR_NOMEM.
#ifndef ZVT4_MOTION_MILSM8ST_H_
#define ZVT4_MOTION_MILSM8ST_H_

#include "motion/milsm_variant.h"
#include "motion/projective_record.h"

struct MILsm8St : ProjectiveLayout {
  int32_t imageCount;
  int32_t failureCode;
  double* moments;     // of image pairs
  double* parameters;  // the current solution
  double* centres;     // where the penalty is zero
  double* widths;      // the penalty's sigma
  Env* env;

  template <typename Visit>
  static void visitArrays(Visit visit) {
    visit(&MILsm8St::parameters, kProjectiveIdentity);
    visit(&MILsm8St::centres, kProjectiveIdentity);
    visit(&MILsm8St::widths, ProjectiveValues{1, 1, 1e10, 1, 1, 1e10, 0.001, 0.001});
  }
};

extern const MILsmVariant kMILsm8St;

extern "C" {
Status MILsm8St_init(MILsm8St* self, int32_t imageCount) ZVT4_NAME(MILsm8St_init);
Status MILsm8St_clear(MILsm8St* self) ZVT4_NAME(MILsm8St_clear);
// Moves everything to arrays of the new size. ZELVAN_ERROR_NOMEM leaves the record as it was.
Status MILsm8St_changeImageNum(MILsm8St* self, int32_t imageCount) ZVT4_NAME(MILsm8St_changeImageNum);

// Integer products wrap at 32 bits before they are converted: only for small coordinates.
Status MILsm8St_add(MILsm8St* self, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by,
                    int32_t weight) ZVT4_NAME(MILsm8St_add);
Status MILsm8St_addF32(MILsm8St* self, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by,
                       int32_t weight) ZVT4_NAME(MILsm8St_addF32);
Status MILsm8St_addReal(MILsm8St* self, int32_t a, double ax, double ay, int32_t b, double bx, double by, double weight)
    ZVT4_NAME(MILsm8St_addReal);

// At most 100 passes, until no parameter changes by 1e-8 or more. Failure codes 1 (the parameters stay as the pass
// found them), 3, 5.
Status MILsm8St_solve(MILsm8St* self) ZVT4_NAME(MILsm8St_solve);

// Identity for image 0 and for parameters without an inverse; else h8 is 1.
Status MILsm8St_outputMvec(MILsm8St* self, Mvec8F32* out, int32_t image) ZVT4_NAME(MILsm8St_outputMvec);
Status MILsm8St_outputMvecReal(MILsm8St* self, Mvec8Real* out, int32_t image) ZVT4_NAME(MILsm8St_outputMvecReal);

// For image 1 .. n-1: parameters and centres from a motion, whose h8 counts as 1. A singular one leaves the parameters;
// the centres take them over in any case.
Status MILsm8St_setInitialMvec(MILsm8St* self, const Mvec8F32* mvec, int32_t image) ZVT4_NAME(MILsm8St_setInitialMvec);
Status MILsm8St_setInitialMvecReal(MILsm8St* self, const Mvec8Real* mvec, int32_t image)
    ZVT4_NAME(MILsm8St_setInitialMvecReal);
// The eight widths of image 1 .. n-1.
Status MILsm8St_setRestraint(MILsm8St* self, const double* widths, int32_t image) ZVT4_NAME(MILsm8St_setRestraint);
Status MILsm8St_clearBlock(MILsm8St* self, int32_t a, int32_t b) ZVT4_NAME(MILsm8St_clearBlock);
}

#endif  // ZVT4_MOTION_MILSM8ST_H_
