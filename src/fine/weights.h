// What a frame may add to each pixel of the base: maps at level kMapLevel.
//
// A frame is laid over the base there, and its brightness brought to the base's (fine/drift.h). Two tests over 5x5
// pixels judge the differences d of luma and chroma, e being the variance that noise and the steepness of the picture
// let expect:
//   mean of d^2 / e, of all channels: about 1 where both show the same; from kNear to kFar the weight falls to nothing;
//   (sum of d / e)^2 / (coherence x sum of 1 / e), the worst channel: about 1 likewise, and large for what is fainter
//   than the noise of a pixel but leans to one side; from kLeaning to kLeaningFar.
// The least of 3x3 neighbours and a box of 3x3 follow, so that the edge of what moved keeps out, and weights are soft.
// Positions outside the frame weigh nothing and are no evidence.
//
// The expectation grows with the steepness of the base, since a motion is never known exactly: (kSlip G)^2, G the
// largest step to the neighbours.
//
// normalise turns the maps of all frames into shares of 32768, the base's being what is left.
#ifndef ZVT4_FINE_WEIGHTS_H_
#define ZVT4_FINE_WEIGHTS_H_

#include "fine/drift.h"
#include "fine/noise.h"

namespace fine {

// What is the same for all frames: the result's grid at level kMapLevel as the base shows it, and 1 / expected variance
// of a difference in luma and the two chroma bytes there.
struct WeightBase {
  const Image* luma;
  const Image* colour;
  const float* certainty[3];  // rows of luma.width
  const float* leaning[3];    // 1 / expectation of the square of a sum of difference x certainty over 5x5
  float coherence[3];         // of Noise
  float noise[3];             // typical variance of a frame there
};

// planes: room for 6 x the pixels of the map.
Status prepareWeights(WeightBase* base, float* planes, Pel* pel, const Image& luma, const Image& colour,
                      const Noise& noise);

struct WeightInput {
  const WeightBase* base;
  const Pyramid* frame;
  const Mesh* mapMesh;
  double strictness;  // 1: as described; larger: what differs less is kept out
};

// map: "UINT8" of the size of level kMapLevel, 255 = the whole weight. drift may not be null. share: mean of the map
// over what the frame covers, 0 to 1. Scratch: about 8 bytes a pixel of the map's.
Status makeWeights(Image* map, Drift* drift, float* share, Env* env, const WeightInput& input);

}  // namespace fine

#endif  // ZVT4_FINE_WEIGHTS_H_
