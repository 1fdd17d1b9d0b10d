// MILsm4: similarities, a rotation in the picture with a zoom and a translation.
//
// Image k has the values a, b, u, v, which map its coordinates to image 0:
//
//   (x, y) -> (a x - b y + u, b x + a y + v).
//
// Image 0 is held at the identity. The cost over all correspondences, p in image i and q in image j, is
//
//   sum of w |r|^2,    r = M_i p - M_j q.
//
// r is linear in the values, so a solve is one linear system, the normal equations, and needs no start. With
// J_p = [x -y 1 0; y x 0 1] they have sums of w J_q^T J_q for each image over all its pairs, -w J_p^T J_q for each pair
// above image 0 and w J_q^T p on the right-hand side for the pairs with image 0. The 4x4 products need four sums of an
// image (w, wx, wy, w (xx + yy)), seven of a pair and four of a pair with image 0.
//
// The system is factored as L D L^T. Failure codes 1 (a pivot of a magnitude below 1e-16), 3 (the solution is not
// finite), 5; the values then stay. There are no initial motions.
//
// Memory: 12 f64 per image above 0, 7 per pair of them. A solve takes an N x N matrix and a vector from the arena,
// N = 4 (n - 1), and gives them back.
//
// The public motions map image 0 to image k and are the inverses. With a^2 + b^2 below 1e-8 the output is the identity,
// with ZELVAN_ERROR_GENERAL. Other statuses: ZELVAN_ERROR_PARAM for null pointers, fewer than two images, image numbers
// out of range; ZELVAN_ERROR_STATE before init; ZELVAN_ERROR_NOMEM; ZELVAN_ERROR_UNSUPPORTED from clearBlock, since the
// sums of a pair can not be told apart.
#ifndef ZVT4_MOTION_MILSM4_H_
#define ZVT4_MOTION_MILSM4_H_

#include "motion/milsm_variant.h"
#include "motion/pair_record.h"

// Of image k above 0, whose points are q = (x, y).
struct SimilarityImageSums {
  double w, x, y, square;  // w (xx + yy). From pairs with any image.
  double base[4];          // w J_q^T p, p the points of image 0
};

// Of the images 0 < i < j: (x, y) is the point of i, (X, Y) that of j.
struct SimilarityPairSums {
  double w, x, y, X, Y;
  double dot;    // w (xX + yY)
  double cross;  // w (xY - yX)
};

struct MILsm4 {
  int32_t imageCount;
  int32_t failureCode;
  SimilarityPairSums* moments;
  SimilarityImageSums* imageSums;  // of image 1 .. n-1
  double* parameters;              // a, b, u, v of image 1 .. n-1
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
    visit(&MILsm4::imageSums, std::array<SimilarityImageSums, 1>{});
    visit(&MILsm4::parameters, std::array<double, 4>{1, 0, 0, 0});
  }
};

extern const MILsmVariant kMILsm4;

#endif  // ZVT4_MOTION_MILSM4_H_
