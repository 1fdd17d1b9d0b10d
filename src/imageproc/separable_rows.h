// The two row functions of a separable filter on 8-bit samples. The row pass leaves 8-bit values with five fraction
// bits in 16-bit words; the column pass takes the mean of such rows back to 8 bits.
#ifndef ZVT4_IMAGEPROC_SEPARABLE_ROWS_H_
#define ZVT4_IMAGEPROC_SEPARABLE_ROWS_H_

#include <algorithm>

#include "base/integer.h"

// A symmetric kernel: 2 x radius + 1 taps in Q15, none negative, with a sum near 32768.
struct SymmetricTaps {
  static constexpr int32_t kMostRadius = 101;
  int32_t radius;
  int32_t taps[2 * kMostRadius + 1];
};

// out[x] = (kRound + sum of taps[t] x rows[t][x]) >> kShift, an 8-bit result kept to 255. Sums fit 32 bits: samples
// below 2^13 by taps that sum to about 2^15. One row function for both directions: along a row, rows[t] are the same
// row at t pixels further. Two samples with one tap are added first.
template <int32_t kShift, int32_t kRound, typename Out, typename In>
void filterRow(Out* __restrict out, const In* const* rows, const SymmetricTaps& kernel, int32_t count) {
  constexpr int32_t kBlock = 256;
  const int32_t radius = kernel.radius;
  for (int32_t x = 0; x < count; x += kBlock) {
    const int32_t n = std::min(kBlock, count - x);
    int32_t sums[kBlock];
    const In* centre = rows[radius] + x;
    for (int32_t i = 0; i < n; ++i) sums[i] = kRound + kernel.taps[radius] * centre[i];
    for (int32_t t = 0; t < radius; ++t) {
      const In* before = rows[t] + x;
      const In* after = rows[2 * radius - t] + x;
      const int32_t tap = kernel.taps[t];
      for (int32_t i = 0; i < n; ++i) sums[i] += tap * (before[i] + after[i]);
    }
    for (int32_t i = 0; i < n; ++i) {
      const int32_t value = sums[i] >> kShift;
      out[x + i] = static_cast<Out>(sizeof(Out) == 1 ? std::min(value, 255) : value);
    }
  }
}

// The row pass: interleaved channels are filtered apart, pixels beyond the ends repeat the edge pixel.
template <int32_t kRound, int32_t kChannels>
void filterAcross(int16_t* __restrict out, const uint8_t* src, const SymmetricTaps& kernel, int32_t width) {
  constexpr int32_t kShift = 10;  // 15 bits of the taps but for five fraction bits
  const int32_t radius = kernel.radius;
  const int32_t inner = std::min(radius, width);          // first pixel with all neighbours
  const int32_t outer = std::max(width - radius, inner);  // the one after the last
  const auto edges = [&](int32_t begin, int32_t end) {
    for (int32_t x = begin; x < end; ++x) {
      for (int32_t c = 0; c < kChannels; ++c) {
        int32_t sum = kRound;
        for (int32_t t = -radius; t <= radius; ++t) {
          sum += kernel.taps[radius + t] * src[clampInt(x + t, 0, width - 1) * kChannels + c];
        }
        out[x * kChannels + c] = static_cast<int16_t>(sum >> kShift);
      }
    }
  };
  edges(0, inner);
  if (outer > inner) {
    const uint8_t* rows[2 * SymmetricTaps::kMostRadius + 1];
    for (int32_t t = 0; t <= 2 * radius; ++t) rows[t] = src + t * kChannels;
    filterRow<kShift, kRound>(out + inner * kChannels, rows, kernel, (outer - inner) * kChannels);
  }
  edges(outer, width);
}

// The column pass: (sum of taps[t] x rows[t][x] + half) >> 20.
inline void filterDown(uint8_t* __restrict out, const int16_t* const* rows, const SymmetricTaps& kernel,
                       int32_t count) {
  filterRow<20, 0x80000>(out, rows, kernel, count);
}

#endif  // ZVT4_IMAGEPROC_SEPARABLE_ROWS_H_
