// Brightness of a frame beside the base's: a line for each channel, fitted to what both show.
//
// Robustly: Huber's weights, over means of 4x4 pixels at level kMapLevel; noise of the abscissa is taken out (Fuller,
// "Measurement Error Models", 1987). Chroma takes the gain of luma unless it shows another one.
#ifndef ZVT4_FINE_DRIFT_H_
#define ZVT4_FINE_DRIFT_H_

#include "image/image.h"

namespace fine {

// Sample s of a frame, 64 (byte - 128), becomes s + (s gain >> 15) + offset; per channel: luma, chroma bytes 0, 1.
struct Drift {
  int16_t gain[3];
  int16_t offset[3];
};

// A frame laid over the base, on the grid of the base at level kMapLevel: rows of baseLuma's width.
struct LaidFrame {
  const Image* baseLuma;
  const Image* baseColour;
  int16_t* luma;     // samples
  int16_t* pairs;    // of chroma
  uint8_t* covered;  // 255 inside the frame
};

inline constexpr double kFrameKept = 0.8;  // variance of a frame's sample there by that of its pixels
inline constexpr size_t kDriftScratch = 6 * 6016;

// noise: typical variance of a frame, per channel. scratch: kDriftScratch items.
void fitDrift(Drift* drift, const LaidFrame& laid, const float* noise, float* scratch);

}  // namespace fine

#endif  // ZVT4_FINE_DRIFT_H_
