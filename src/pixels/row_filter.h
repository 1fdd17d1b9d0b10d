// The horizontal pass of the engine's separable filters.
#ifndef ZVT4_PIXELS_ROW_FILTER_H_
#define ZVT4_PIXELS_ROW_FILTER_H_

#include "base/cpu_level.h"
#include "base/integer.h"
#include "imageproc/gauss_taps.h"

inline constexpr int32_t kRowFilterMinWidth = 7;  // narrower rows are refused by its callers

// out[x] = (sum over i = -Radius to Radius of taps[Radius + i] x src[clamp(x + i)] + 512) >> 10, per channel of
// Channels interleaved ones: an 8-bit value with five fraction bits. taps are Q15 with a sum of 32768, so that the
// result is at most 8160.
template <int32_t Radius, int32_t Channels>
ALWAYS_INLINE void filterRowBody(int16_t* __restrict out, const uint8_t* __restrict src, int32_t width,
                                 const int32_t* taps) {
  const auto edge = [&](int32_t x) {
    for (int32_t c = 0; c < Channels; ++c) {
      int32_t sum = 512;
      for (int32_t i = -Radius; i <= Radius; ++i) {
        sum += taps[Radius + i] * src[clampInt(x + i, 0, width - 1) * Channels + c];
      }
      out[x * Channels + c] = static_cast<int16_t>(sum >> 10);
    }
  };
  for (int32_t x = 0; x < Radius; ++x) edge(x);
  int32_t k[2 * Radius + 1];
  for (int32_t i = 0; i <= 2 * Radius; ++i) k[i] = taps[i];
  const uint8_t* from[2 * Radius + 1];
  for (int32_t i = 0; i <= 2 * Radius; ++i) from[i] = src + i * Channels;
  int16_t* __restrict inner = out + Radius * Channels;
  for (int32_t x = 0; x < (width - 2 * Radius) * Channels; ++x) {
    int32_t sum = 512;
    for (int32_t i = 0; i <= 2 * Radius; ++i) sum += k[i] * from[i][x];
    inner[x] = static_cast<int16_t>(sum >> 10);
  }
  for (int32_t x = width - Radius; x < width; ++x) edge(x);
}
template <int32_t Radius, int32_t Channels>
inline constexpr CpuRow<filterRowBody<Radius, Channels>> filterRow;

#endif  // ZVT4_PIXELS_ROW_FILTER_H_
