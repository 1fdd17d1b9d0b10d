// How noisy the frames of a burst are, by brightness, from what differs between aligned frames.
//
// Where two frames show the same, their difference is noise alone, however rich the texture is: grain and what storage
// as JPEG left of the noise count as they are. Small windows are compared, each without its mean, so that a drift of
// brightness does not count. What is left of the picture in a difference, by motions that are not exact and by aliasing
// of the small copies, grows with the picture's own activity: so only the flattest windows of a brightness count. They
// are found by the sum of both frames, whose noise is independent of the difference's. Of their variances the median
// is taken, which what moved does not reach; for n samples of a Gaussian its ratio to the mean is known.
//
#ifndef ZVT4_FINE_NOISE_H_
#define ZVT4_FINE_NOISE_H_

#include "fine/mesh.h"
#include "fine/noise_curve.h"
#include "fine/pyramid.h"
#include "fine/sampler.h"

namespace fine {

struct Noise {
  NoiseCurve full[3];  // luma and the two chroma bytes, of full-size samples
  NoiseCurve map[3];   // likewise of level kMapLevel
  float level[3];      // typical standard deviation of full
  // How much more of map's variance means of small squares keep than means of independent samples would: 1 and more,
  // where storage or a camera's own denoising left noise in patches.
  float coherence[3];
};

// A pair of frames for the estimate: base and an aligned one.
struct NoisePair {
  const Image* base;  // semi-planar frames
  const Image* frame;
  const Pyramid* basePyramid;
  const Pyramid* framePyramid;
  const Mesh* mesh;     // full size
  const Mesh* mapMesh;  // of level kMapLevel
};

// How much more of a channel's variance level kMapLevel keeps than it would of white noise: 1 and more.
double noiseColour(const Noise& noise, int32_t channel);

inline constexpr int32_t kMostNoisePairs = 3;

// ZELVAN_ERROR_NOMEM. count: 1 to kMostNoisePairs.
Status estimateNoise(Noise* noise, Env* env, Pel* pel, const NoisePair* pairs, int32_t count);
// Of one frame: from the flattest windows of its luma and chroma, after the local mean. Texture everywhere counts as
// noise.
Status estimateAlone(Noise* noise, Env* env, const Image& frame, const Pyramid& pyramid);

}  // namespace fine

#endif  // ZVT4_FINE_NOISE_H_
