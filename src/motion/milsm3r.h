// MILsm3R: rigid motions, a rotation in the picture and a translation.
//
// Image k has an angle t and a translation T = (u, v), which map its coordinates to image 0:
//
//   z -> R_k z + T_k,    R_k = [cos t, -sin t; sin t, cos t].
//
// Image 0 has the same three values, which stay 0. The cost over all correspondences, p in image i and q in image j, is
//
//   sum of w |r|^2,    r = R_i p + T_i - R_j q - T_j,
//
// squared distances in pixels of image 0, the same for every direction of a pair since rigid motions keep lengths. It
// is minimised by Gauss-Newton steps on t, u, v of the images above 0. With A = R_i p, B = R_j q and ' for a quarter
// turn, the derivatives of r are A' by t_i, the identity by T_i, -B' by t_j and minus the identity by T_j. All sums of
// their products and of r come down to 13 moments of a pair, those of p and q up to w p q^T without w xy and w XY.
// From a start at angle 0 two images converge for any angle below a half turn.
//
// A step solves the dense system by L D L^T. At most 100, until no value changes by 1e-8 or more. Failure codes 1 (a
// pivot of a magnitude below 1e-16; the values stay as the pass found them), 3, 5. The values carry over from solve to
// solve; there are no initial motions.
//
// Memory: n x n blocks of 13 f64, of which those above the diagonal are used, and 3 n f64 for n images. A solve takes
// an N x N matrix and a vector, N = 3 (n - 1), and two f64 per image, and gives them back.
//
// Statuses: ZELVAN_ERROR_PARAM for null pointers, fewer than two images, image numbers out of range;
// ZELVAN_ERROR_STATE before init; ZELVAN_ERROR_NOMEM.
#ifndef ZVT4_MOTION_MILSM3R_H_
#define ZVT4_MOTION_MILSM3R_H_

#include "motion/milsm_variant.h"
#include "motion/mvec6_f32.h"
#include "motion/pair_record.h"

// Of one pair of images: (x, y) is the point of the lower image, (X, Y) that of the higher.
struct RigidMoments {
  double w;
  double xx, yy, XX, YY;
  double x, y, X, Y;
  double xX, xY, yX, yY;
};

struct MILsm3R {
  int32_t imageCount;
  int32_t failureCode;
  RigidMoments* moments;
  double* parameters;  // t, u, v of image 0 .. n-1
  Env* env;

  static constexpr int32_t kBlockLength = 1;
  static constexpr int32_t kFirstImage = 0;
  static constexpr int32_t kFirstPaired = 0;
  static constexpr int32_t blockCount(int32_t imageCount) { return imageCount * imageCount; }
  static constexpr int32_t block(int32_t imageCount, int32_t low, int32_t high) { return low * imageCount + high; }
  template <typename Visit>
  static void visitArrays(Visit visit) {
    visit(&MILsm3R::parameters, std::array<double, 3>{});
  }
};

extern const MILsmVariant kMILsm3R;

extern "C" {
Status MILsm3R_solve(MILsm3R* self) ZVT4_NAME(MILsm3R_solve);

// The motion from image 0 to the given image, as affine rows in Q15, as a 3x3 matrix in Q15 or as one in doubles. Q15
// values are rounded half away from zero. Identity for image 0. ZELVAN_ERROR_GENERAL, and the identity, when
// cos^2 t + sin^2 t is below 1e-8.
Status MILsm3R_outputMvec(MILsm3R* self, Mvec6F32* out, int32_t image) ZVT4_NAME(MILsm3R_outputMvec);
Status MILsm3R_outputMvec8(MILsm3R* self, Mvec8F32* out, int32_t image) ZVT4_NAME(MILsm3R_outputMvec8);
Status MILsm3R_outputMvec8Real(MILsm3R* self, Mvec8Real* out, int32_t image) ZVT4_NAME(MILsm3R_outputMvec8Real);

// Both do nothing and give 0.
Status MILsm3R_setInitialMvec(MILsm3R* self, const Mvec8F32* mvec, int32_t image) ZVT4_NAME(MILsm3R_setInitialMvec);
Status MILsm3R_setInitialMvecReal(MILsm3R* self, const Mvec8Real* mvec, int32_t image)
    ZVT4_NAME(MILsm3R_setInitialMvecReal);
}

#endif  // ZVT4_MOTION_MILSM3R_H_
