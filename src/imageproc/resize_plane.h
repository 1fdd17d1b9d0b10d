// One plane of a linear resize: the part that both resizes share. The formulas stand in resize.h.
#ifndef ZVT4_IMAGEPROC_RESIZE_PLANE_H_
#define ZVT4_IMAGEPROC_RESIZE_PLANE_H_

#include <cstring>
#include <type_traits>
#include <utility>

#include "base/cpu_level.h"
#include "base/integer.h"
#include "image/image.h"
#include "imageproc/stretch_whole.h"

// A kind of pixel: samples of one type, interleaved channels, and the weighted mean of two samples at a weight of
// 0 to 32767 in Q15.
struct ResizeY8 {
  using Sample = uint8_t;
  static constexpr int32_t kChannels = 1;
  static Sample mix(Sample a, Sample b, int32_t f) {
    return static_cast<Sample>(((0x8000 - f) * a + f * b + 0x4000) >> 15);
  }
};
struct ResizePair8 : ResizeY8 {
  static constexpr int32_t kChannels = 2;
};
struct ResizeRgb8 : ResizeY8 {
  static constexpr int32_t kChannels = 3;
};
struct ResizeRgba8 : ResizeY8 {
  static constexpr int32_t kChannels = 4;
};
struct ResizeU16 {
  using Sample = uint16_t;
  static constexpr int32_t kChannels = 1;
  static Sample mix(Sample a, Sample b, int32_t f) {  // at most 65535 x 32768 + 16384, below 2^31
    return static_cast<Sample>(((0x8000 - f) * int32_t{a} + f * int32_t{b} + 0x4000) >> 15);
  }
};
struct ResizeI32 {
  using Sample = int32_t;
  static constexpr int32_t kChannels = 1;
  static Sample mix(Sample a, Sample b, int32_t f) {
    return static_cast<Sample>(((0x8000 - f) * int64_t{a} + f * int64_t{b} + 0x4000) >> 15);
  }
};
struct ResizeF32 {
  using Sample = float;
  static constexpr int32_t kChannels = 1;
  static Sample mix(Sample a, Sample b, int32_t f) {
    return (static_cast<float>(0x8000 - f) * a + static_cast<float>(f) * b) * (1.0f / 32768.0f);
  }
};

struct ResizeJob {
  Image* dst;
  const Image* src;
  int64_t start;  // Q15 position of destination column 0
  int64_t step;
  bool groups;  // 7-bit weights where they apply
  void* scratch;
  int32_t bands;
};

inline ResizeJob resizeJob(Image* dst, const Image* src, bool groups) {
  const int64_t sw = src->width;
  const int64_t dw = dst->width;
  // Multiplied, not shifted: the difference is negative in an enlargement.
  return {dst, src, (sw - dw) * 32768 / (2 * dw), sw * 32768 / dw, groups && sw <= dw, nullptr, 1};
}

// Samples of scratch that one worker needs: two stretched rows.
template <typename Pixel>
size_t resizeScratchSamples(const Image* dst) {
  return size_t{2} * Pixel::kChannels * static_cast<size_t>(dst->width);
}

// Groups of eight, from column x at position *p >= 0. Returns the column after the last group. A group that starts
// below the limit reads at most src[sw - 1]: it covers up to eight source pixels and stands eight before the end.
inline int32_t stretchGroups(uint8_t* __restrict out, const uint8_t* __restrict src, const ResizeJob& job, int32_t x,
                             int64_t* p) {
  if (job.step == 0) return x;
  const int32_t step = static_cast<int32_t>(job.step);
  const int32_t limit = job.dst->width - 0x40000 / step;
  for (; x < limit; x += 8, *p += 8 * job.step) {
    const uint8_t* from = src + (*p >> 15);
    const int32_t f = static_cast<int32_t>(*p & 0x7fff) >> 8;
    for (int32_t k = 0; k < 8; ++k) {
      const int32_t q = f + ((k * step + 128) >> 8);
      const int32_t i = q >> 7;
      const int32_t w = q & 127;
      out[x + k] = static_cast<uint8_t>(((128 - w) * from[i] + w * from[i + 1] + 64) >> 7);
    }
  }
  return x;
}

template <typename Pixel>
void stretchRow(typename Pixel::Sample* __restrict out, const typename Pixel::Sample* __restrict src,
                const ResizeJob& job) {
  constexpr int32_t kChannels = Pixel::kChannels;
  const int32_t width = job.dst->width;
  const int64_t lastPosition = int64_t{job.src->width - 1} * 32768;
  if (job.src->width == width && std::is_integral_v<typename Pixel::Sample>) {
    std::memcpy(out, src, sizeof *out * static_cast<size_t>(width * kChannels));
    return;
  }
  if constexpr (std::is_same_v<Pixel, ResizeY8>) {
    if (stretchWhole(out, src, job.src->width, width)) return;
  }
  int64_t p = job.start;
  int32_t x = 0;
  for (; x < width && p < 0; ++x, p += job.step) {
    for (int32_t c = 0; c < kChannels; ++c) out[x * kChannels + c] = src[c];
  }
  if constexpr (std::is_same_v<Pixel, ResizeY8>) {
    if (job.groups) x = stretchGroups(out, src, job, x, &p);
  }
  for (; x < width && p < lastPosition; ++x, p += job.step) {
    const auto* at = src + (p >> 15) * kChannels;
    const int32_t f = static_cast<int32_t>(p & 0x7fff);
    for (int32_t c = 0; c < kChannels; ++c) out[x * kChannels + c] = Pixel::mix(at[c], at[kChannels + c], f);
  }
  const auto* last = src + ptrdiff_t{job.src->width - 1} * kChannels;
  for (; x < width; ++x) {
    for (int32_t c = 0; c < kChannels; ++c) out[x * kChannels + c] = last[c];
  }
}

template <typename Pixel>
ALWAYS_INLINE void mixRowsBody(typename Pixel::Sample* __restrict out, const typename Pixel::Sample* __restrict a,
                               const typename Pixel::Sample* __restrict b, int32_t weight, int32_t count) {
  for (int32_t x = 0; x < count; ++x) out[x] = Pixel::mix(a[x], b[x], weight);
}
template <typename Pixel>
inline constexpr CpuRow<mixRowsBody<Pixel>> mixRows;

// Destination rows begin to end, with the scratch of one worker. A source row is stretched once while consecutive
// destination rows need it.
template <typename Pixel>
void resizeRows(const ResizeJob& job, int32_t begin, int32_t end, typename Pixel::Sample* scratch) {
  using Sample = typename Pixel::Sample;
  const int32_t count = job.dst->width * Pixel::kChannels;
  const int64_t sh = job.src->height;
  const int64_t dh = job.dst->height;
  const int32_t lastRow = job.src->height - 1;
  Sample* rows[2] = {scratch, scratch + count};
  int32_t held[2] = {-1, -1};
  for (int32_t y = begin; y < end; ++y) {
    const int64_t v = (2 * y * sh + sh - dh) * 32768 / (2 * dh);
    const int32_t r0 = clampInt(static_cast<int32_t>(v >> 15), 0, lastRow);
    const int32_t r1 = clampInt(r0 + 1, 0, lastRow);
    if (held[1] == r0) {
      std::swap(rows[0], rows[1]);
      std::swap(held[0], held[1]);
    }
    const int32_t wanted[2] = {r0, r1};
    for (int32_t i = 0; i < 2; ++i) {
      if (held[i] == wanted[i]) continue;
      stretchRow<Pixel>(rows[i], imageRow<const Sample>(job.src, wanted[i]), job);
      held[i] = wanted[i];
    }
    mixRows<Pixel>(imageRow<Sample>(job.dst, y), rows[0], rows[1], v < 0 ? 0 : static_cast<int32_t>(v & 0x7fff), count);
  }
}

#endif  // ZVT4_IMAGEPROC_RESIZE_PLANE_H_
