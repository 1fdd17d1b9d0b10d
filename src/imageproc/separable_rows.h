// The two row functions of a separable filter on 8-bit or 16-bit samples. The row pass leaves the samples with five
// fraction bits, in 16-bit words for 8-bit samples and in 32-bit words for 16-bit ones; the column pass takes the mean
// of such rows back to samples.
#ifndef ZVT4_IMAGEPROC_SEPARABLE_ROWS_H_
#define ZVT4_IMAGEPROC_SEPARABLE_ROWS_H_

#include <algorithm>
#include <limits>
#include <type_traits>

#include "base/cpu_level.h"
#include "base/integer.h"

// A symmetric kernel: 2 x radius + 1 taps in Q15, none negative, with a sum near 32768.
struct SymmetricTaps {
  static constexpr int32_t kMostRadius = 101;
  int32_t radius;
  int32_t taps[2 * kMostRadius + 1];
};

// What the row pass leaves of a sample, and what holds the sums over such words.
template <typename Sample>
using FilteredSample = std::conditional_t<sizeof(Sample) == 1, int16_t, int32_t>;
template <typename In>
using TapSum = std::conditional_t<sizeof(In) <= 2, int32_t, int64_t>;

// The seven taps of the fixed filters, whose sums need no memory: several times as fast as a loop over the radius.
inline constexpr int32_t kFixedRadius = 3;

template <int32_t kShift, int32_t kRound, typename Out, typename In>
ALWAYS_INLINE void filterFixedRow(Out* __restrict out, const In* const* rows, const SymmetricTaps& kernel,
                                  int32_t count) {
  using Sum = TapSum<In>;
  constexpr Sum kMost = std::numeric_limits<Out>::max();
  const In* from[2 * kFixedRadius + 1];
  Sum taps[kFixedRadius + 1];
  for (int32_t t = 0; t <= 2 * kFixedRadius; ++t) from[t] = rows[t];
  for (int32_t t = 0; t <= kFixedRadius; ++t) taps[t] = kernel.taps[t];
  for (int32_t x = 0; x < count; ++x) {
    Sum sum = kRound + taps[kFixedRadius] * from[kFixedRadius][x];
    for (int32_t t = 0; t < kFixedRadius; ++t) sum += taps[t] * (from[t][x] + from[2 * kFixedRadius - t][x]);
    sum >>= kShift;
    out[x] = static_cast<Out>(std::is_unsigned_v<Out> ? std::min(sum, kMost) : sum);
  }
}

// out[x] = (kRound + sum of taps[t] x rows[t][x]) >> kShift, kept to the largest sample if Out is one. One row function
// for both directions: along a row, rows[t] are the same row at t pixels further. Two samples with one tap are added
// first.
template <int32_t kShift, int32_t kRound, typename Out, typename In>
ALWAYS_INLINE void filterRowBody(Out* __restrict out, const In* const* rows, const SymmetricTaps& kernel,
                                 int32_t count) {
  using Sum = TapSum<In>;
  constexpr int32_t kBlock = 256;
  const int32_t radius = kernel.radius;
  if (sizeof(In) <= 2 && radius == kFixedRadius) {
    filterFixedRow<kShift, kRound>(out, rows, kernel, count);
    return;
  }
  for (int32_t x = 0; x < count; x += kBlock) {
    const int32_t n = std::min(kBlock, count - x);
    Sum sums[kBlock];
    const In* centre = rows[radius] + x;
    for (int32_t i = 0; i < n; ++i) sums[i] = kRound + Sum{kernel.taps[radius]} * centre[i];
    for (int32_t t = 0; t < radius; ++t) {
      const In* before = rows[t] + x;
      const In* after = rows[2 * radius - t] + x;
      const Sum tap = kernel.taps[t];
      for (int32_t i = 0; i < n; ++i) sums[i] += tap * (before[i] + after[i]);
    }
    for (int32_t i = 0; i < n; ++i) {
      const Sum value = sums[i] >> kShift;
      out[x + i] =
          static_cast<Out>(std::is_unsigned_v<Out> ? std::min<Sum>(value, std::numeric_limits<Out>::max()) : value);
    }
  }
}

template <int32_t kShift, int32_t kRound, typename Out, typename In>
void filterRow(Out* out, const In* const* rows, const SymmetricTaps& kernel, int32_t count) {
  CpuRow<filterRowBody<kShift, kRound, Out, In>>()(out, rows, kernel, count);
}

// The row pass: interleaved channels are filtered apart, pixels beyond the ends repeat the edge pixel.
template <int32_t kRound, int32_t kChannels, typename Sample>
void filterAcross(FilteredSample<Sample>* __restrict out, const Sample* src, const SymmetricTaps& kernel,
                  int32_t width) {
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
        out[x * kChannels + c] = static_cast<FilteredSample<Sample>>(sum >> kShift);
      }
    }
  };
  edges(0, inner);
  if (outer > inner) {
    const Sample* rows[2 * SymmetricTaps::kMostRadius + 1];
    for (int32_t t = 0; t <= 2 * radius; ++t) rows[t] = src + t * kChannels;
    filterRow<kShift, kRound>(out + inner * kChannels, rows, kernel, (outer - inner) * kChannels);
  }
  edges(outer, width);
}

// The column pass: (sum of taps[t] x rows[t][x] + half) >> 20.
template <typename Sample>
void filterDown(Sample* __restrict out, const FilteredSample<Sample>* const* rows, const SymmetricTaps& kernel,
                int32_t count) {
  filterRow<20, 0x80000>(out, rows, kernel, count);
}

#endif  // ZVT4_IMAGEPROC_SEPARABLE_ROWS_H_
