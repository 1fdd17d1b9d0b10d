// MILsm8R: rotations of a camera, as the motions between the pictures that it takes.
//
// Pixels become viewing rays, unit vectors in the direction (x - cx, y - cy, f). Image k above 0 has three angles
// a, b, c and the rotation R_k = Ry(a) Rx(b) Rz(c), which turns rays of image k into rays of image 0; R_0 = I. The cost
// over all correspondences, p in image i and q in image j, is
//
//   sum of w |R_i p - R_j q|^2,
//
// so what is minimised are angles between rays and not distances in pixels. Gauss-Newton steps, at most 100, until no
// angle changes by the tolerance relative to max(angle, 1). With two images a step is a closed 3x3 solution. The angles
// carry over from solve to solve unless an initial motion is set. Failure codes 1 (a pivot below 1e-16), 2 (the 3x3
// determinant below 1e-8), 3, 5.
//
// Sums: 15 f64 per image, 10 words per pair of images above 0. A solve takes an N x N matrix, vectors and rotation
// tables from the arena, N = 3 (n - 1) + number of restrained angles, and gives them back. All public motions map image
// 0 to image k, so their angles are negated: R_k^T = Rz(-c) Rx(-b) Ry(-a).
//
// Statuses: ZELVAN_ERROR_PARAM for null pointers, fewer than two images, image numbers out of range;
// ZELVAN_ERROR_STATE before init; ZELVAN_ERROR_NOMEM.
#ifndef ZVT4_MOTION_MILSM8R_H_
#define ZVT4_MOTION_MILSM8R_H_

#include "motion/milsm_variant.h"
#include "motion/rotation_record.h"

using MILsm8RImageSums = RotationImageSums<double>;
using MILsm8RPairSums = RotationPairSums<int64_t, double>;

struct MILsm8R {
  int32_t imageCount;
  int32_t failureCode;
  int32_t width;
  int32_t height;
  double fovDegrees;
  double focalLength;
  double cx, cy;
  double tolerance;
  double* angles;               // three per image 1 .. n-1, and a spare one
  MILsm8RImageSums* imageSums;  // of image 1 .. n-1
  MILsm8RPairSums* pairSums;    // in the order (1, 2), (1, 3) .. (1, n-1), (2, 3) ..
  Mvec8Real baseMotion;
  uint8_t* constraintFlags;  // three per image 0 .. n-1, one per angle: nonzero keeps it at its start value
  int32_t baseRotationSet;   // whether baseRotation applies to image 0. Nothing sets it but its owner.
  double baseRotation[9];
  Env* env;
};

extern const MILsmVariant kMILsm8R;

extern "C" {
Status MILsm8R_init(MILsm8R* self, int32_t imageCount) ZVT4_NAME(MILsm8R_init);
// Forgets sums, angles, base motion and base rotation, but not the flags.
Status MILsm8R_clear(MILsm8R* self) ZVT4_NAME(MILsm8R_clear);
// Moves everything to arrays of the new size. ZELVAN_ERROR_NOMEM leaves the record as it was.
Status MILsm8R_changeImageNum(MILsm8R* self, int32_t imageCount) ZVT4_NAME(MILsm8R_changeImageNum);
// ZELVAN_ERROR_STATE unless both have the same number of images.
Status MILsm8R_copy(MILsm8R* to, const MILsm8R* from) ZVT4_NAME(MILsm8R_copy);
// Before the first add: rays depend on it. Until then f = 250, cx = cy = 160.
Status MILsm8R_setCameraParam(MILsm8R* self, int32_t width, int32_t height, double fovDegrees)
    ZVT4_NAME(MILsm8R_setCameraParam);

Status MILsm8R_add(MILsm8R* self, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by, int32_t weight)
    ZVT4_NAME(MILsm8R_add);
Status MILsm8R_addF32(MILsm8R* self, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by,
                      int32_t weight) ZVT4_NAME(MILsm8R_addF32);
Status MILsm8R_addReal(MILsm8R* self, int32_t a, double ax, double ay, int32_t b, double bx, double by, double weight)
    ZVT4_NAME(MILsm8R_addReal);
// Rays of any length instead of pixels.
Status MILsm8R_addRealOnSphere(MILsm8R* self, int32_t a, double ax, double ay, double az, int32_t b, double bx,
                               double by, double bz, double weight) ZVT4_NAME(MILsm8R_addRealOnSphere);

Status MILsm8R_solve(MILsm8R* self) ZVT4_NAME(MILsm8R_solve);
Status MILsm8R_getFailureCode(MILsm8R* self, int32_t* out) ZVT4_NAME(MILsm8R_getFailureCode);
// Normalised by the diagonal, not by h8; the Q15 form is that times 32768. The angles of the motion stand in its angle
// places.
Status MILsm8R_outputMvec(MILsm8R* self, Mvec8F32* out, int32_t image) ZVT4_NAME(MILsm8R_outputMvec);
Status MILsm8R_outputMvecReal(MILsm8R* self, Mvec8Real* out, int32_t image) ZVT4_NAME(MILsm8R_outputMvecReal);
Status MILsm8R_outputRotationMatrix(MILsm8R* self, double* out, int32_t image) ZVT4_NAME(MILsm8R_outputRotationMatrix);

// Does nothing.
Status MILsm8R_setInitialMvec(MILsm8R* self, const Mvec8F32* mvec, int32_t image) ZVT4_NAME(MILsm8R_setInitialMvec);
// Image 0: the base motion and its rotation. Others: start angles from the motion, relative to the base motion unless
// the base rotation applies. A singular motion counts as the identity and gives ZELVAN_ERROR_GENERAL.
Status MILsm8R_setInitialMvecReal(MILsm8R* self, const Mvec8Real* mvec, int32_t image)
    ZVT4_NAME(MILsm8R_setInitialMvecReal);
// The rotation matrix of a motion under the record's camera, at the motion's scale.
Status MILsm8R_calcRotMat(const MILsm8R* camera, double* matrix, const Mvec8Real* mvec) ZVT4_NAME(MILsm8R_calcRotMat);
// ZELVAN_ERROR_UNSUPPORTED: the sums of a pair can not be told apart.
Status MILsm8R_clearBlock(MILsm8R* self, int32_t a, int32_t b) ZVT4_NAME(MILsm8R_clearBlock);
}

#endif  // ZVT4_MOTION_MILSM8R_H_
