// A map of blend weights of any size, brought to the size of an accumulator with centres aligned.
//
// stretchMapRow: one row to the width of the accumulator, in 15 bits:
//   s = (mapW << 15) / accW, p(x) = ((mapW - accW) << 15) / (2 accW) + x s, i = p >> 15, f = p & 0x7fff,
//   out[x] = ((0x8000 - f) map[i] + f map[i + 1] + 0x4000) >> 15; the ends repeat the first and the last value.
// MapRows: the two rows round the rows 2j, 2j + 1 of the accumulator, at the centre of the odd one, and the weight of
// the second in 7 bits, 0 to 128.
// mapWeights: w = (weight b + (128 - weight) a + 64) >> 7.
#ifndef ZVT4_PIXELS_BLEND_MAP_H_
#define ZVT4_PIXELS_BLEND_MAP_H_

#include <cstring>

#include "base/cpu_level.h"
#include "base/integer.h"
#include "imageproc/stretch_whole.h"

inline void stretchMapRow(uint8_t* out, const uint8_t* map, int32_t mapWidth, int32_t width) {
  if (mapWidth == width) {  // each position is a whole one
    std::memcpy(out, map, static_cast<size_t>(width));
    return;
  }
  if (stretchWhole(out, map, mapWidth, width)) return;
  const int64_t step = int64_t{mapWidth} * 32768 / width;
  const int64_t end = int64_t{mapWidth - 1} * 32768;
  int64_t p = (int64_t{mapWidth} - width) * 32768 / (2 * int64_t{width});
  int32_t x = 0;
  for (; x < width && p < 0; ++x, p += step) out[x] = map[0];
  for (; x < width && p < end; ++x, p += step) {
    const auto i = static_cast<int32_t>(p >> 15);
    const auto f = static_cast<int32_t>(p & 0x7fff);
    out[x] = static_cast<uint8_t>(((0x8000 - f) * map[i] + f * map[i + 1] + 0x4000) >> 15);
  }
  for (; x < width; ++x) out[x] = map[mapWidth - 1];
}

struct MapRows {
  int32_t a;
  int32_t b;
  int32_t weight;

  MapRows(int32_t pair, int32_t mapHeight, int32_t height) {
    const int64_t v =
        (int64_t{mapHeight} - height + 2 * (2 * int64_t{pair} + 1) * mapHeight) * 32768 / (2 * int64_t{height});
    const auto row = static_cast<int32_t>(v >> 15);
    a = clampInt(row, 0, mapHeight - 1);
    b = clampInt(row + 1, 0, mapHeight - 1);
    weight = (static_cast<int32_t>(v & 0x7fff) + 128) >> 8;
  }
};

ALWAYS_INLINE void mapWeightsBody(uint8_t* __restrict out, const uint8_t* __restrict a, const uint8_t* __restrict b,
                                  int32_t weight, int32_t count) {
  const auto factor = static_cast<int16_t>(weight);
  for (int32_t x = 0; x < count; ++x) {
    out[x] = static_cast<uint8_t>(static_cast<uint16_t>(128 * a[x] + factor * (b[x] - a[x]) + 64) >> 7);
  }
}
inline constexpr CpuRow<mapWeightsBody> mapWeights;

// Both bytes of a chroma pair take the weight of its even pixel. count: even.
ALWAYS_INLINE void pairWeightsBody(uint8_t* __restrict out, const uint8_t* __restrict weights, int32_t count) {
  for (int32_t x = 0; x < count; x += 2) {
    out[x] = weights[x];
    out[x + 1] = weights[x];
  }
}
inline constexpr CpuRow<pairWeightsBody> pairWeights;

#endif  // ZVT4_PIXELS_BLEND_MAP_H_
