#include "fine/sharpness.h"

#include <algorithm>

#include "base/scoped.h"

namespace fine {
namespace {

constexpr int32_t kWindow = 16;

int32_t windowEnergy(const Image& image, int32_t left, int32_t top) {
  int32_t sum = 0;  // 512 squares
  for (int32_t y = top; y < top + kWindow; ++y) {
    const uint8_t* row = imageRow(&image, y) + left;
    const uint8_t* next = imageRow(&image, y + 1) + left;
    for (int32_t x = 0; x < kWindow; ++x) {
      const int32_t dx = row[x + 1] - row[x];
      const int32_t dy = next[x] - row[x];
      sum += dx * dx + dy * dy;
    }
  }
  return sum;
}

}  // namespace

int32_t sharpness(Env* env, const Pyramid& pyramid) {
  const Image& half = pyramid.level[1];
  const int32_t across = (half.width - 1) / kWindow;
  const int32_t down = (half.height - 1) / kWindow;
  const int32_t count = across * down;
  if (count < 1) return 0;
  const ScopedBlock<int32_t> energy(env, static_cast<size_t>(count) * 2);
  if (!energy) return 0;
  for (int32_t i = 0; i < count; ++i) {
    energy[static_cast<size_t>(i)] = windowEnergy(half, i % across * kWindow, i / across * kWindow);
  }
  int32_t* sorted = energy.data() + count;
  std::copy(energy.data(), energy.data() + count, sorted);
  std::nth_element(sorted, sorted + count / 10, sorted + count);
  const int32_t floor = sorted[count / 10];
  int64_t sum = 0;
  for (int32_t i = 0; i < count; ++i) sum += std::max(0, energy[static_cast<size_t>(i)] - floor);
  return static_cast<int32_t>(std::min<int64_t>(sum * 256 / (int64_t{count} * kWindow * kWindow), INT32_MAX));
}

}  // namespace fine
