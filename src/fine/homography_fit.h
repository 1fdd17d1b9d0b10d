// A homography through measured positions, robustly.
//
// Iteratively reweighted least squares (Holland and Welsch, 1977) with the weight of Geman and McClure,
//   w = 1 / (1 + e^T W e / k^2)^2,
// on a correction in eight parameters: shift, turn and zoom, the two shears, and the two of perspective, in coordinates
// about the middle of the frame with its half diagonal as unit. Shears and perspective are held near nothing by a prior
// with heavy tails (Student's, of precision 1 / (sigma^2 + value^2)), since hands turn a camera more than they tilt it
// and few blocks cannot tell; of a perspective, sigma grows with the shift, as a camera that pans gives both.
//
// W is the inverse of a measurement's covariance, which has a floor: no block counts for more than the model is true.
#ifndef ZVT4_FINE_HOMOGRAPHY_FIT_H_
#define ZVT4_FINE_HOMOGRAPHY_FIT_H_

#include "motion/mvec8_real.h"

namespace fine {

struct Match {
  double x, y;           // in the base
  double u, v;           // where it was found in the frame
  double wxx, wxy, wyy;  // W
  double weight;         // out: 0 to 1
};

struct FitQuality {
  double inliers;      // sum of weights by count
  double cornerSigma;  // standard deviation of the worst corner, in pixels: from the covariances given and the spread
                       // of all residuals, or from the residuals where they were, whichever is more
  double error;        // root of the weighted mean of the squared residuals, in pixels
};

// Inverse covariance of a block's shift from its variances along an axis and across it, nothing where one is negative.
void setInformation(Match* match, double cosine, double sine, double along, double across);

// motion: in, the guess; out, the fit. width, height: of the base at the level of the coordinates. scale: k of the last
// round; the first begins at anneal times that.
// Returns false when the matches do not determine the motion; it is then as it was.
bool fitHomography(Mvec8Real* motion, Match* matches, int32_t count, int32_t width, int32_t height, double scale,
                   double anneal, FitQuality* quality);

}  // namespace fine

#endif  // ZVT4_FINE_HOMOGRAPHY_FIT_H_
