// A homography through measured positions, robustly.
//
// Iteratively reweighted least squares (Holland and Welsch, 1977) with the weight of Geman and McClure,
//   w = 1 / (1 + e^T W e / k^2)^2,
// on a correction in eight parameters: shift, turn and zoom, the two shears, and the two of perspective, in coordinates
// about the middle of the frame with its half diagonal as unit. Shears and perspective are held near what they were by
// a Gaussian prior, since hands turn a camera more than they tilt it and few blocks cannot tell.
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
  double cornerSigma;  // standard deviation of the worst corner, in pixels, from the spread of the weighted residuals
  double error;        // root of the weighted mean of the squared residuals, in pixels
};

// Inverse covariance of a block's shift: along an axis and across it 1 / (residual / information + floor^2), nothing
// where there is no information.
void setInformation(Match* match, double cosine, double sine, double along, double across, double residual,
                    double floor);

// motion: in, the guess; out, the fit. width, height: of the base at the level of the coordinates. scale: k of the last
// round; the first begins at anneal times that. priorSigma: of shears and perspective in that unit.
// Returns false when the matches do not determine the motion; it is then as it was.
bool fitHomography(Mvec8Real* motion, Match* matches, int32_t count, int32_t width, int32_t height, double scale,
                   double anneal, double priorSigma, FitQuality* quality);

}  // namespace fine

#endif  // ZVT4_FINE_HOMOGRAPHY_FIT_H_
