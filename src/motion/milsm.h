// MILsm: one motion per image from point correspondences between images, by least squares.
//
// A front with a table of functions, behind which stands one of six variants, chosen at init. A solve has the same
// shape for all: MILsm_clear, any number of MILsm_add, MILsm_addF32 or MILsm_addReal, MILsm_setInitialMvecReal if
// wanted, MILsm_solve, MILsm_outputMvecReal, MILsm_getFailureCode. Image 0 is the base; the motion of image k maps
// coordinates of image 0 to those of image k. Variants keep sums per image pair and never the points, so that memory
// and the time of a solve do not depend on the number of points. No variant weighs outliers down: a caller adds again
// without them.
//
// A solve that fails on its data gives 0 all the same; only the failure code tells.
//
// Statuses: ZELVAN_ERROR_PARAM on a null front; ZELVAN_ERROR_STATE without an implementation or with an empty slot. But
// an empty setInitialMvec, setInitialMvecReal or setCameraParam slot gives 0, an empty addReal slot
// ZELVAN_ERROR_UNSUPPORTED. All else comes from the variant.
#ifndef ZVT4_MOTION_MILSM_H_
#define ZVT4_MOTION_MILSM_H_

#include "base/env.h"
#include "motion/mvec8_f32.h"
#include "motion/mvec8_real.h"

enum MILsmType : int32_t {
  MILSM_3R = 0,              // rigid: angle and translation
  MILSM_4 = 1,               // similarity
  MILSM_8 = 2,               // projective
  MILSM_8ST = 3,             // projective, restrained
  MILSM_8R = 4,              // camera rotation
  MILSM_8R_FIXED_POINT = 5,  // camera rotation with integer sums
};

enum MILsmFailure : int32_t {
  MILSM_CONVERGED = 0,
  MILSM_FAIL_PIVOT = 1,     // a pivot of the factorisation was too small
  MILSM_FAIL_DIAGONAL = 2,  // the diagonal solve or the closed form's determinant was too small
  MILSM_FAIL_PASSES = 3,    // all passes used up without convergence; NaN never converges
  MILSM_NOT_SOLVED = 4,
  MILSM_FAIL_MEMORY = 5,  // no memory for the solve
};

// Functions of a variant. The first argument is always the variant's record.
struct MILsmSlots {
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
};

struct MILsm {
  void* self;  // equal to impl
  void* impl;  // arena block of the variant's record; null before init
  MILsmSlots slots;
  int32_t type;
  int32_t imageCount;
  Env* env;
};

extern "C" {
Status construct_MILsm(MILsm* lsm, Env* env) ZVT4_NAME(construct_MILsm);
Status destruct_MILsm(MILsm* lsm) ZVT4_NAME(destruct_MILsm);
// Replaces any implementation by a fresh one. ZELVAN_ERROR_PARAM for a type above 5, ZELVAN_ERROR_NOMEM without memory
// for the record, else the variant's construct and init, ORed.
Status MILsm_init(MILsm* lsm, int32_t type, int32_t imageCount) ZVT4_NAME(MILsm_init);
// Frees the implementation; the front can be initialised again.
Status MILsm_memClear(MILsm* lsm) ZVT4_NAME(MILsm_memClear);
// Forgets all sums and puts the parameters back to their initial values.
Status MILsm_clear(MILsm* lsm) ZVT4_NAME(MILsm_clear);
// Changes the number of images and keeps what fits.
Status MILsm_changeImageNum(MILsm* lsm, int32_t imageCount) ZVT4_NAME(MILsm_changeImageNum);
// Initialises to with the type and the image count of from, and copies the contents.
Status MILsm_copy(MILsm* to, const MILsm* from) ZVT4_NAME(MILsm_copy);

// One correspondence: (ax, ay) in image a is (bx, by) in image b. Coordinates and weight are integers, Q15 or doubles.
Status MILsm_add(MILsm* lsm, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by, int32_t weight)
    ZVT4_NAME(MILsm_add);
Status MILsm_addF32(MILsm* lsm, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by, int32_t weight)
    ZVT4_NAME(MILsm_addF32);
Status MILsm_addReal(MILsm* lsm, int32_t a, double ax, double ay, int32_t b, double bx, double by, double weight)
    ZVT4_NAME(MILsm_addReal);

// 0, or ZELVAN_ERROR_NOMEM when the arena has no room for the work memory.
Status MILsm_solve(MILsm* lsm) ZVT4_NAME(MILsm_solve);
Status MILsm_outputMvec(MILsm* lsm, Mvec8F32* out, int32_t image) ZVT4_NAME(MILsm_outputMvec);
Status MILsm_outputMvecReal(MILsm* lsm, Mvec8Real* out, int32_t image) ZVT4_NAME(MILsm_outputMvecReal);
Status MILsm_setInitialMvec(MILsm* lsm, const Mvec8F32* mvec, int32_t image) ZVT4_NAME(MILsm_setInitialMvec);
Status MILsm_setInitialMvecReal(MILsm* lsm, const Mvec8Real* mvec, int32_t image) ZVT4_NAME(MILsm_setInitialMvecReal);
// Size of the pictures and diagonal angle of view, for the variants that have a camera model.
Status MILsm_setCameraParam(MILsm* lsm, int32_t width, int32_t height, double fovDegrees)
    ZVT4_NAME(MILsm_setCameraParam);
// A MILsmFailure: of the last solve, or MILSM_NOT_SOLVED.
Status MILsm_getFailureCode(MILsm* lsm, int32_t* out) ZVT4_NAME(MILsm_getFailureCode);
// Forgets the sums of one pair of images.
Status MILsm_clearBlock(MILsm* lsm, int32_t a, int32_t b) ZVT4_NAME(MILsm_clearBlock);
}

#endif  // ZVT4_MOTION_MILSM_H_
