#include "fine/noise_curve.h"

#include <algorithm>
#include <cstdlib>

#include "base/integer.h"
#include "base/scoped.h"

namespace fine {
namespace {

constexpr int32_t kLeastWindows = 24;  // in a range
constexpr int32_t kWindow = 8;
// Quantile 0.3 of the variance of 64 second differences of white noise, which share pixels, over its mean.
constexpr double kQuantile = 0.3;
constexpr double kRatio = 0.86;

}  // namespace

float NoiseCurve::at(int32_t luma) const {
  const int32_t p = clampInt(luma - 8, 0, 16 * (kNoiseBins - 1) - 1);
  const float t = static_cast<float>(p & 15) * 0.0625f;
  return variance[p >> 4] + (variance[(p >> 4) + 1] - variance[p >> 4]) * t;
}

void keepFlattest(NoiseWindows* windows, double share, float* scratch) {
  float limits[kNoiseBins];
  for (int32_t bin = 0; bin < kNoiseBins; ++bin) {
    int32_t n = 0;
    for (int32_t i = 0; i < windows->count; ++i) {
      if (windows->items[i].luma / 16 == bin) scratch[n++] = windows->items[i].activity;
    }
    if (n == 0) continue;
    float* at = scratch + clampInt(truncToInt32(share * n), std::min(n - 1, kLeastWindows), n - 1);
    std::nth_element(scratch, at, scratch + n);
    limits[bin] = *at;
  }
  int32_t kept = 0;
  for (int32_t i = 0; i < windows->count; ++i) {
    const NoiseWindow& window = windows->items[i];
    if (window.activity <= limits[window.luma / 16]) windows->items[kept++] = window;
  }
  windows->count = kept;
}

void fitCurve(NoiseCurve* curve, const NoiseWindows& windows, int32_t channel, double quantile, double ratio,
              float* scratch) {
  bool known[kNoiseBins] = {};
  for (int32_t bin = 0; bin < kNoiseBins; ++bin) {
    int32_t n = 0;
    for (int32_t i = 0; i < windows.count; ++i) {
      if (windows.items[i].luma / 16 == bin) scratch[n++] = windows.items[i].variance[channel];
    }
    if (n < kLeastWindows) continue;
    float* at = scratch + truncToInt32(quantile * n);
    std::nth_element(scratch, at, scratch + n);
    curve->variance[bin] = static_cast<float>(*at / ratio);
    known[bin] = true;
  }
  int32_t last = -1;
  for (int32_t bin = 0; bin < kNoiseBins; ++bin) {
    if (!known[bin]) continue;
    for (int32_t i = last + 1; i < bin; ++i) {
      const float t = last < 0 ? 1.0f : static_cast<float>(i - last) / static_cast<float>(bin - last);
      const float from = last < 0 ? curve->variance[bin] : curve->variance[last];
      curve->variance[i] = from + (curve->variance[bin] - from) * t;
    }
    last = bin;
  }
  for (int32_t i = last + 1; i < kNoiseBins; ++i) curve->variance[i] = last < 0 ? 0.0f : curve->variance[last];
  // Light smoothing: a range's quantile is noisy itself.
  NoiseCurve smooth;
  for (int32_t i = 0; i < kNoiseBins; ++i) {
    const float a = curve->variance[std::max(0, i - 1)];
    const float b = curve->variance[std::min(kNoiseBins - 1, i + 1)];
    smooth.variance[i] = 0.25f * a + 0.5f * curve->variance[i] + 0.25f * b;
  }
  *curve = smooth;
}

float coherence(const NoiseWindows& windows, const NoiseCurve& curve, int32_t channel, int32_t samples,
                float* scratch) {
  // Of the square of a Gaussian, the median by the mean.
  constexpr float kMedian = 0.455f;
  constexpr int32_t kMostStep = 24;
  constexpr float kMostChange = 8.0f;
  const auto near = [&](int32_t i) { return std::abs(windows.items[i].luma - windows.items[i + 1].luma) <= kMostStep; };
  const auto change = [&](int32_t i) { return windows.items[i].mean[channel] - windows.items[i + 1].mean[channel]; };
  const auto step = [&](int32_t i) { return static_cast<float>(windows.items[i].luma - windows.items[i + 1].luma); };
  // What a drift of brightness makes of the steps from window to window.
  double common = 0.0, squares = 1.0;
  for (int32_t i = 0; i + 1 < windows.count; ++i) {
    if (!near(i)) continue;
    common += double{std::clamp(change(i), -kMostChange, kMostChange)} * double{step(i)};
    squares += double{step(i)} * double{step(i)};
  }
  const auto gain = static_cast<float>(common / squares);
  int32_t n = 0;
  for (int32_t i = 0; i + 1 < windows.count; ++i) {
    const float rest = change(i) - gain * step(i);
    const float expected = curve.at(windows.items[i].luma) + curve.at(windows.items[i + 1].luma);
    if (near(i) && expected > 0.0f) scratch[n++] = rest * rest * static_cast<float>(samples) / expected;
  }
  if (n < kLeastWindows) return 1.0f;
  std::nth_element(scratch, scratch + n / 2, scratch + n);
  return scratch[n / 2] / kMedian;
}

Status estimateCurve(NoiseCurve* curve, Env* env, const Image& image) {
  *curve = {};
  const ScopedBlock<NoiseWindow> items(env, kMostNoiseWindows);
  const ScopedBlock<float> scratch(env, kMostNoiseWindows);
  if (!items || !scratch) return ZELVAN_ERROR_NOMEM;
  NoiseWindows windows = {items.data(), 0};
  int32_t step = kWindow;
  while ((image.width / step) * (image.height / step) > kMostNoiseWindows) step += kWindow;
  for (int32_t y = 0; y + kWindow < image.height; y += step) {
    for (int32_t x = 0; x + kWindow < image.width && windows.count < kMostNoiseWindows; x += step) {
      int32_t brightness = 0, sum = 0, squares = 0;  // 64 squares of 1020
      for (int32_t j = 0; j < kWindow; ++j) {
        const uint8_t* row = imageRow(&image, y + j) + x;
        const uint8_t* next = imageRow(&image, y + j + 1) + x;
        for (int32_t i = 0; i < kWindow; ++i) {
          const int32_t d = row[i] - row[i + 1] - next[i] + next[i + 1];
          brightness += row[i];
          sum += d;
          squares += d * d;
        }
      }
      NoiseWindow& window = windows.items[windows.count++];
      const double mean = sum / 64.0;
      window.luma = static_cast<uint8_t>(brightness / (kWindow * kWindow));
      window.variance[0] = static_cast<float>((squares / 64.0 - mean * mean) * 0.25);
    }
  }
  fitCurve(curve, windows, 0, kQuantile, kRatio, scratch.data());
  return ZELVAN_OK;
}

}  // namespace fine
