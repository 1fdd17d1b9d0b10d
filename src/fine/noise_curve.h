// Variance of noise by brightness, in squared levels, for kNoiseBins ranges of luma, and the means to fit it to windows
// of a picture: of the windows of a range, or of the flattest of them, a quantile counts; ranges that few windows fall
// into take the line between their neighbours.
#ifndef ZVT4_FINE_NOISE_CURVE_H_
#define ZVT4_FINE_NOISE_CURVE_H_

#include "image/image.h"

namespace fine {

inline constexpr int32_t kNoiseBins = 16;
inline constexpr int32_t kNoiseChannels = 3;
inline constexpr int32_t kMostNoiseWindows = 4096;

struct NoiseCurve {
  float variance[kNoiseBins];  // at luma 16 i + 8
  float at(int32_t luma) const;
};

struct NoiseWindow {
  uint8_t luma;
  float activity;  // how much the picture itself does there, of any unit
  float variance[kNoiseChannels];
  float mean[kNoiseChannels];
};

struct NoiseWindows {
  NoiseWindow* items;
  int32_t count;
};

// Drops of each range's windows all but the share with the least activity, but never below what a fit needs.
void keepFlattest(NoiseWindows* windows, double share, float* scratch);

// ratio: of that quantile to the mean of a window's variance. scratch: windows.count items.
void fitCurve(NoiseCurve* curve, const NoiseWindows& windows, int32_t channel, double quantile, double ratio,
              float* scratch);

// Variance of windows' means by what noise without memory would leave of it, variance / samples: of neighbours in the
// list, what goes with brightness taken out, so that no drift counts; the median. 1 when there are too few.
float coherence(const NoiseWindows& windows, const NoiseCurve& curve, int32_t channel, int32_t samples, float* scratch);

// Of one "UINT8" picture: from second differences along both axes, a - b - c + d of 2x2 pixels, which have four times
// the variance of white noise and see little of the picture. Texture everywhere counts as noise.
Status estimateCurve(NoiseCurve* curve, Env* env, const Image& image);

}  // namespace fine

#endif  // ZVT4_FINE_NOISE_CURVE_H_
