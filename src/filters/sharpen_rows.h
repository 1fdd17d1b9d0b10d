// The rows of the adaptive sharpening, shared by its forms; sharpen.h has the formula.
#ifndef ZVT4_FILTERS_SHARPEN_ROWS_H_
#define ZVT4_FILTERS_SHARPEN_ROWS_H_

#include <cstring>

#include "image/image.h"
#include "pixels/row_filter.h"

template <int32_t Radius>
struct SharpenJob {
  static constexpr int32_t kTaps = 2 * Radius + 1;

  SharpenJob(Image* dstImage, const Image* srcImage, const Image* mapImage, double sigmaA, double sigmaB,
             int32_t fullGain, double coring)
      : dst(dstImage), src(srcImage), map(mapImage), gain(fullGain), core(truncToInt32(coring * 32.0)) {
    gaussTaps(tapsA, Radius, sigmaA);
    gaussTaps(tapsB, Radius, sigmaB);
  }

  Image* dst;
  const Image* src;
  const Image* map;
  int32_t tapsA[kTaps];
  int32_t tapsB[kTaps];
  int32_t gain;
  int32_t core;
};

// out[x] = (sum of the taps over the rows + 16384) >> 15, rows from top to bottom. The taps are symmetric, so that two
// rows go through one product. Taps are 0 to 32768 and filtered pixels 0 to 8160: unsigned 16-bit factors do.
template <int32_t Radius>
ALWAYS_INLINE void filterDownBody(int16_t* __restrict out, const int16_t* const* rows, const int32_t* taps,
                                  int32_t count) {
  uint16_t k[Radius + 1];
  for (int32_t i = 0; i <= Radius; ++i) k[i] = static_cast<uint16_t>(taps[i]);
  for (int32_t x = 0; x < count; ++x) {
    uint32_t sum = 16384 + uint32_t{k[Radius]} * static_cast<uint16_t>(rows[Radius][x]);
    for (int32_t i = 0; i < Radius; ++i) {
      sum += uint32_t{k[i]} * static_cast<uint16_t>(rows[i][x] + rows[2 * Radius - i][x]);
    }
    out[x] = static_cast<int16_t>(sum >> 15);
  }
}

template <int32_t Radius>
inline constexpr CpuRow<filterDownBody<Radius>> filterDown;

template <bool WithMap>
ALWAYS_INLINE void sharpenPixelsBody(uint8_t* __restrict dst, const uint8_t* __restrict src,
                                     const uint8_t* __restrict map, const int16_t* __restrict a,
                                     const int16_t* __restrict b, int32_t fullGain, int32_t core, int32_t count) {
  const int32_t low = wrapSub(0, core);
  for (int32_t x = 0; x < count; ++x) {
    const int32_t gain = WithMap ? wrapMul(fullGain, map[x]) >> 7 : fullGain;
    const int32_t e = wrapAdd(wrapMul(gain, b[x] - a[x]), 128) >> 8;
    const int32_t cored = wrapSub(e, clampInt(e, low, core));
    dst[x] = clampByte(wrapAdd(src[x] * 32 | 16, cored) >> 5);
  }
}
template <bool WithMap>
inline constexpr CpuRow<sharpenPixelsBody<WithMap>> sharpenPixels;

// Row y of dst. rowAt(kernel, y): the filtered row y of kernel 0 (A) or 1 (B), for the rows of the image.
template <int32_t Radius, bool WithMap, typename RowAt>
inline void sharpenRow(const SharpenJob<Radius>& job, int32_t y, const RowAt& rowAt) {
  constexpr int32_t kChunk = 1024;  // pixels in work at a time
  constexpr int32_t kRows = SharpenJob<Radius>::kTaps;
  const int32_t width = job.src->width;
  for (int32_t x = 0; x < width; x += kChunk) {
    const int16_t* a[kRows];
    const int16_t* b[kRows];
    for (int32_t i = 0; i < kRows; ++i) {
      const int32_t row = clampInt(y + i - Radius, 0, job.src->height - 1);
      a[i] = rowAt(0, row) + x;
      b[i] = rowAt(1, row) + x;
    }
    const int32_t count = width - x < kChunk ? width - x : kChunk;
    int16_t filteredA[kChunk];
    int16_t filteredB[kChunk];
    uint8_t sharpened[kChunk];  // dst may be src
    filterDown<Radius>(filteredA, a, job.tapsA, count);
    filterDown<Radius>(filteredB, b, job.tapsB, count);
    sharpenPixels<WithMap>(sharpened, imageRow(job.src, y) + x, WithMap ? imageRow(job.map, y) + x : nullptr, filteredA,
                           filteredB, job.gain, job.core, count);
    std::memcpy(imageRow(job.dst, y) + x, sharpened, static_cast<size_t>(count));
  }
}

#endif  // ZVT4_FILTERS_SHARPEN_ROWS_H_
