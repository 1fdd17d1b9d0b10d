#include "fine/sharpness.h"

#include <algorithm>

#include "base/cpu_level.h"
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

// Sums down the columns of a row of windows, so that vectors need no sum across. A side is below 100: pictures have at
// most 2^27 pixels.
struct Columns {
  static constexpr int32_t kMost = 256;
  int32_t count;
  alignas(64) int32_t energy[kMost];
  alignas(64) int32_t light[kMost];
};

ALWAYS_INLINE void addRows(Columns* __restrict columns, const uint8_t* from, ptrdiff_t pitch, int32_t rows) {
  for (int32_t x = 0; x < Columns::kMost; ++x) columns->energy[x] = columns->light[x] = 0;
  for (int32_t y = 0; y < rows; ++y, from += pitch) {
    const uint8_t* __restrict row = from;
    const uint8_t* __restrict next = from + pitch;
    for (int32_t x = 0; x < columns->count; ++x) {
      const auto dx = static_cast<int16_t>(row[x + 1] - row[x]);
      const auto dy = static_cast<int16_t>(next[x] - row[x]);
      columns->energy[x] += dx * dx + dy * dy;
      columns->light[x] += row[x];
    }
  }
}
constexpr CpuRow<addRows> kAddRows;

// Energy and brightness of windows of side x side beside each other.
void measureRow(NoiseWindow* out, const Image& image, int32_t left, int32_t top, int32_t side, int32_t count) {
  const int32_t together = Columns::kMost / side;
  for (int32_t first = 0; first < count; first += together) {
    const int32_t here = std::min(together, count - first);
    Columns columns;
    columns.count = here * side;
    kAddRows(&columns, imageRow(&image, top) + left + first * side, image.pitch0, side);
    for (int32_t i = 0; i < here; ++i) {
      int64_t energy = 0, light = 0;
      for (int32_t x = i * side; x < (i + 1) * side; ++x) {
        energy += columns.energy[x];
        light += columns.light[x];
      }
      NoiseWindow window = {};
      window.luma = static_cast<uint8_t>(light / (side * side));
      window.variance[0] = static_cast<float>(static_cast<double>(energy) / (side * side));
      out[first + i] = window;
    }
  }
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
    measureRow(windows.items + windows.count, half, left, top + j * side, side, across);
    windows.count += across;
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
