// Blocks: windows of the base whose shift in another frame is measured below the pixel.
//
// Method: inverse compositional alignment of a translation (Baker and Matthews, "Lucas-Kanade 20 years on", 2004), on
// top of a motion that is known already: the window is sampled along the motion's derivative at its centre, so that
// turn and zoom are no error. With g the gradient of the template T, its mean over the window taken off so that a
// change of brightness does not count, and r the frame less the template, a round is
//   d = A^-1 sum g r,  A = sum g g^T,  shift -= J d
// A is taken along its two axes. Noise of the template adds to both of its eigenvalues, (n / 2) sigma^2 over n pixels,
// and would make flat windows confirm whatever motion they are given: it is taken off, and an axis on which less than a
// share of it is left counts for nothing and is not moved along.
//
// Sums are whole numbers (window.h), the solve is in doubles.
#ifndef ZVT4_FINE_BLOCK_H_
#define ZVT4_FINE_BLOCK_H_

#include "fine/noise_curve.h"
#include "fine/window.h"
#include "image/image.h"
#include "motion/mvec8_real.h"

namespace fine {

inline constexpr int32_t kMostBlocks = 576;
inline constexpr int32_t kMostSmallBlocks = 1024;

struct Block {
  int32_t left;
  int32_t top;
  int32_t size;          // window of size x size pixels, its surrounding pixel inside the picture
  double cosine, sine;   // the axis of the larger eigenvalue of A
  double along, across;  // eigenvalues less the noise, 0 where that is all; gradients in levels a pixel
  double gradientX;      // sums of g before their mean is taken off
  double gradientY;
  double variance;  // of the template
  double noise;     // variance of a pixel's noise in it
  double centre() const { return 0.5 * (size - 1); }
};

struct BlockShift {
  double x;  // to add to the motion's image of the block's centre
  double y;
  double residual;  // variance of r after the last round, the mean taken off
  bool good;        // inside the frame and within reach all along
};

// Blocks of a level of the base, one to each cell of a grid over it: the place with the largest smaller eigenvalue out
// of nine, or the largest eigenvalue where no place has two. Cells without any structure give none. noise: of the
// level. Returns how many, at most kMostBlocks.
int32_t chooseBlocks(Block* blocks, const Image& level, const NoiseCurve& noise);
// The same with windows of half the size on a denser grid, at most kMostSmallBlocks.
int32_t chooseSmallBlocks(Block* blocks, const Image& level, const NoiseCurve& noise);

// motion: base to frame in pixels of the level. reach: how far the shift may go from there, in pixels.
BlockShift trackBlock(const Block& block, const Image& base, const Image& frame, const Mvec8Real& motion,
                      int32_t rounds, double reach);

// Variances of a shift that was found, along the block's axis and across it, in squared pixels; negative where the
// block does not tell. sum g r meets the gradient of the template with its noise n, so that of an eigenvalue a it is
// residual (a + n) / a^2. What the residual says of the noise counts where the curve promised less: grain has little of
// it in the differences that the curve is measured by.
void shiftVariances(double* along, double* across, const Block& block, const BlockShift& shift);

}  // namespace fine

#endif  // ZVT4_FINE_BLOCK_H_
