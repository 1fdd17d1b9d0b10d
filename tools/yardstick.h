// What a merge is worth, measured against what a perfect one could have had.
#ifndef TESSALINE4_TOOLS_YARDSTICK_H_
#define TESSALINE4_TOOLS_YARDSTICK_H_

#include <array>
#include <cstdint>

#include "frame_storage.h"
#include "noise.h"
#include "picture.h"
#include "quality.h"

namespace tool {

// The mean, rounded to nearest, of so many frames that show what the clean picture shows, each with noise of its own
// and stored as the burst is. What an exact alignment without resampling and without denoising would give.
Picture alignedAverage(const Picture& clean, const NoiseModel& noise, const FrameStorage& storage, int32_t frames,
                       uint32_t seed);

struct Yardstick {
  Psnr noisy;    // of the base frame
  Psnr average;  // of the aligned average
  Psnr result;
  // (result - noisy) / (average - noisy) in dB of luma; 0 where the average gains nothing.
  double share;
  std::array<double, 3> meanShift;  // of Y, U and V: result - truth
  // Of luma on strong edges: sum of g_result . g_truth over sum of |g_truth|^2, central differences, where |g_truth| is
  // among its largest 2 %. 1: edges as sharp as the truth's. Noise does not count: it has no direction.
  double gradientGain;
};

// counted: which pixels count, as of comparing; null for all.
Yardstick measure(const Picture& result, const Picture& noisy, const Picture& average, const Picture& truth,
                  const Mask* counted);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_YARDSTICK_H_
