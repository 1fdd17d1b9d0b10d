// MILsm8RFixedPoint: the rotations of MILsm8R from 32-bit integer sums.
//
// Positions are in 1/32 pixel, and so are the focal length f and the principal point. The ray of a point is
// (x - cx, y - cy, f), not brought to length 1: a term of the cost w |R_i p - R_j q|^2 then weighs as |p| |q|, and the
// exact rotation is where each term is least all the same. Of a Q15 correspondence coordinates and weight are shifted
// right by 10; each product of two ray coordinates is shifted right by 8, multiplied by the weight in 1/32 and added,
// all in 32 bits, where products and sums wrap. None does while no ray coordinate exceeds 1448 pixels and the sums of
// w times the square of each stay below 2^24 for each image, with all its pairs: 145 correspondences of weight 1 at the
// focal length of a 320 x 240 picture with 61 degrees.
//
// The iteration is that of motion/rotation_solver.h in doubles, with the sums times 8 / (f f) (f in 1/32 pixel), which
// makes them those of rays near length 1. The rotation tables are built of sines and cosines from mi_lsm_sincos, in
// Q15, of angles rounded to Q15; a step goes on from the rounded angle, so the results are finer than these. Steps
// smaller than the tables can tell count as none: tolerance is 2^-13. The angles are good to about that, a twentieth of
// a pixel in that picture. Failure codes as in MILsm8R.
//
// Memory: 15 words per image above 0 and three f64, ten words per pair of them. A solve takes what that of MILsm8R
// takes.
//
// Statuses: ZELVAN_ERROR_PARAM for null pointers, fewer than two images, image numbers out of range;
// ZELVAN_ERROR_STATE before init; ZELVAN_ERROR_NOMEM; ZELVAN_ERROR_UNSUPPORTED from clearBlock, since the sums of a
// pair can not be told apart.
#ifndef ZVT4_MOTION_MILSM8R_FIXED_POINT_H_
#define ZVT4_MOTION_MILSM8R_FIXED_POINT_H_

#include "motion/milsm_variant.h"
#include "motion/pair_record.h"
#include "motion/rotation_record.h"

using FixedImageSums = RotationImageSums<int32_t>;
using FixedPairSums = RotationPairSums<int32_t, int32_t>;

struct MILsm8RFixedPoint {
  int32_t imageCount;
  int32_t failureCode;
  int32_t width;
  int32_t height;
  double fovDegrees;
  double focalLength;
  double cx, cy;
  double tolerance;
  int32_t fixedFocalLength;  // 1/32 pixel
  int32_t fixedCx, fixedCy;
  FixedPairSums* moments;
  double* angles;             // three per image 1 .. n-1
  FixedImageSums* imageSums;  // of image 1 .. n-1
  Env* env;

  static constexpr int32_t kBlockLength = 1;
  static constexpr int32_t kFirstImage = 1;
  static constexpr int32_t kFirstPaired = 1;
  static constexpr int32_t blockCount(int32_t imageCount) { return pairCountAboveBase(imageCount); }
  static constexpr int32_t block(int32_t imageCount, int32_t low, int32_t high) {
    return pairIndexAboveBase(imageCount, low, high);
  }
  template <typename Visit>
  static void visitArrays(Visit visit) {
    visit(&MILsm8RFixedPoint::angles, std::array<double, 3>{});
    visit(&MILsm8RFixedPoint::imageSums, std::array<FixedImageSums, 1>{});
  }
};

extern const MILsmVariant kMILsm8RFixedPoint;

extern "C" {
// As MILsm8R_setCameraParam; focal length and principal point are also rounded to 1/32 pixel, halves away from zero.
Status MILsm8RFixedPoint_setCameraParam(MILsm8RFixedPoint* self, int32_t width, int32_t height, double fovDegrees)
    ZVT4_NAME(MILsm8RFixedPoint_setCameraParam);
// One correspondence with Q15 coordinates and a Q15 weight. The other ways to add come down to this one: integers are
// shifted left, doubles rounded to Q15.
Status MILsm8RFixedPoint_accumDiagF32(MILsm8RFixedPoint* self, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx,
                                      int32_t by, int32_t weight) ZVT4_NAME(MILsm8RFixedPoint_accumDiagF32);
Status MILsm8RFixedPoint_solve(MILsm8RFixedPoint* self) ZVT4_NAME(MILsm8RFixedPoint_solve);
}

#endif  // ZVT4_MOTION_MILSM8R_FIXED_POINT_H_
