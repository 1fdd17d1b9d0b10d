#include "fine/sharpness.h"

#include <algorithm>

#include "base/integer.h"
#include "base/scoped.h"
#include "fine/noise_curve.h"

namespace fine {
namespace {

constexpr int32_t kStrip = 8;  // sides of windows are multiples
constexpr double kQuantile = 0.1;
// The quantile of windows of noise by their mean is about 1 - kSpread / side.
constexpr double kSpread = 1.85;
constexpr double kUnsure = 0.2;  // of the energy of noise, in what is above

int32_t fixed(double energy) {
  const double v = energy * 256.0;
  return v <= 0.0 ? 0 : v >= 2147483647.0 ? INT32_MAX : truncToInt32(v);
}

// Energy and brightness of a window of side x side, side a multiple of kStrip.
NoiseWindow measure(const Image& image, int32_t left, int32_t top, int32_t side) {
  int64_t energy = 0;
  int64_t brightness = 0;
  for (int32_t y = top; y < top + side; ++y) {
    const uint8_t* row = imageRow(&image, y) + left;
    const uint8_t* next = imageRow(&image, y + 1) + left;
    for (int32_t x = 0; x < side; x += kStrip) {
      int32_t sum = 0, light = 0;
      for (int32_t i = x; i < x + kStrip; ++i) {
        const int32_t dx = row[i + 1] - row[i];
        const int32_t dy = next[i] - row[i];
        sum += dx * dx + dy * dy;
        light += row[i];
      }
      energy += sum;
      brightness += light;
    }
  }
  const int32_t area = side * side;
  NoiseWindow window = {};
  window.luma = static_cast<uint8_t>(brightness / area);
  window.variance[0] = static_cast<float>(static_cast<double>(energy) / area);
  return window;
}

}  // namespace

Status measureSharpness(Sharpness* sharpness, Env* env, const Pyramid& pyramid, const Part& part) {
  *sharpness = {};
  const Image& half = pyramid.level[1];
  const int32_t left = std::max(0, part.left / 2);
  const int32_t top = std::max(0, part.top / 2);
  const int32_t width = std::min(half.width, part.right / 2) - left - 1;
  const int32_t height = std::min(half.height, part.bottom / 2) - top - 1;
  int32_t side = kStrip;
  while ((width / side) * (height / side) > kMostNoiseWindows) side += kStrip;
  const int32_t across = width / side;
  const int32_t down = height / side;
  if (width < side || height < side) return ZELVAN_OK;
  const ScopedBlock<NoiseWindow> items(env, kMostNoiseWindows);
  const ScopedBlock<float> scratch(env, kMostNoiseWindows);
  if (!items || !scratch) return ZELVAN_ERROR_NOMEM;
  NoiseWindows windows = {items.data(), 0};
  for (int32_t j = 0; j < down; ++j) {
    for (int32_t i = 0; i < across; ++i) {
      windows.items[windows.count++] = measure(half, left + i * side, top + j * side, side);
    }
  }
  NoiseCurve noise = {};
  fitCurve(&noise, windows, 0, kQuantile, 1.0 - kSpread / side, scratch.data());
  double sum = 0.0, floor = 0.0;
  for (int32_t i = 0; i < windows.count; ++i) {
    sum += double{windows.items[i].variance[0]};
    floor += double{noise.at(windows.items[i].luma)};
  }
  *sharpness = {fixed((sum - floor) / windows.count), fixed(floor / windows.count)};
  return ZELVAN_OK;
}

double sharpnessRatio(const Sharpness& frame, const Sharpness& base) {
  const double unsure = kUnsure * std::max(frame.noise, base.noise) + 1.0;
  return (frame.score + unsure) / (base.score + unsure);
}

}  // namespace fine
