#include "filters/sharpen.h"

#include <cstring>

#include "filters/sharpen_rows.h"
#include "parallel/bands.h"

namespace {

constexpr int32_t kMaxBands = 16;
template <int32_t Radius>
struct SharpenBand {
  const SharpenJob<Radius>* job;
  const uint8_t* above;  // Radius source rows in front of the band, as they were
  const uint8_t* below;  // Radius source rows behind it
  int16_t* window;       // filtered rows of both kernels
  int32_t begin;
  int32_t end;
};

template <int32_t Radius, bool WithMap>
Status sharpenBand(SharpenBand<Radius>* band) {
  constexpr int32_t kRows = SharpenJob<Radius>::kTaps;
  const SharpenJob<Radius>& job = *band->job;
  const int32_t width = job.src->width;
  const int32_t last = job.src->height - 1;
  const auto source = [&](int32_t y) {
    if (y < band->begin) return band->above + static_cast<ptrdiff_t>(y - (band->begin - Radius)) * width;
    if (y >= band->end) return band->below + static_cast<ptrdiff_t>(y - band->end) * width;
    return static_cast<const uint8_t*>(imageRow(job.src, y));
  };
  const auto rowAt = [&](int32_t kernel, int32_t y) {
    return band->window + (kernel * kRows + y % kRows) * static_cast<ptrdiff_t>(width);
  };

  // Rows are filtered before any row that they share a window with is written, so dst may be src.
  int32_t filled = band->begin > Radius ? band->begin - Radius : 0;
  for (int32_t y = band->begin; y < band->end; ++y) {
    for (; filled <= y + Radius && filled <= last; ++filled) {
      filterRow<Radius, 1>(rowAt(0, filled), source(filled), width, job.tapsA);
      filterRow<Radius, 1>(rowAt(1, filled), source(filled), width, job.tapsB);
    }
    sharpenRow<Radius, WithMap>(job, y, rowAt);
  }
  return ZELVAN_OK;
}

template <int32_t Radius, bool WithMap>
Status sharpen(ParallelExecutor* executor, Env* env, Image* dst, const Image* src, const Image* map, double sigmaA,
               double sigmaB, double gain, double coring) {
  constexpr int32_t kRows = SharpenJob<Radius>::kTaps;
  const int32_t width = src->width;
  const int32_t height = src->height;
  if (width < kRowFilterMinWidth) return ZELVAN_ERROR_PARAM;
  const SharpenJob<Radius> job(dst, src, map, sigmaA, sigmaB, truncToInt32(gain), coring);
  const int32_t n = clampInt(ParallelExecutor_getNumberOfBands(executor), 1, kMaxBands);
  const size_t windowSize = size_t{2} * kRows * static_cast<size_t>(width);
  const size_t borderSize = size_t{Radius} * static_cast<size_t>(width);
  const ScopedBlock<int16_t> windows(env, windowSize * static_cast<size_t>(n));
  const ScopedBlock<uint8_t> borders(env, 2 * borderSize * static_cast<size_t>(n + 1));
  if (!windows || !borders) return ZELVAN_ERROR_NOMEM;
  // The rows on both sides of each cut are kept, since a neighbour may write them when dst is src.
  for (int32_t cut = 0; cut <= n; ++cut) {
    const int32_t row = bandStart(cut, n, height);
    for (int32_t i = 0; i < 2 * Radius; ++i) {
      const int32_t y = row - Radius + i;
      if (y < 0 || y >= height) continue;
      std::memcpy(borders.data() + 2 * borderSize * static_cast<size_t>(cut) +
                      static_cast<size_t>(i) * static_cast<size_t>(width),
                  imageRow(src, y), static_cast<size_t>(width));
    }
  }
  return forkBands<SharpenBand<Radius>, sharpenBand<Radius, WithMap>>(executor, n, [&](int32_t i) {
    const size_t cut = static_cast<size_t>(i);
    return SharpenBand<Radius>{&job,
                               borders.data() + 2 * borderSize * cut,
                               borders.data() + 2 * borderSize * (cut + 1) + borderSize,
                               windows.data() + windowSize * cut,
                               bandStart(i, n, height),
                               bandStart(i + 1, n, height)};
  });
}

}  // namespace

Status Tessal4ImageFunc_adaSharp5x5_uint8_withmap(ParallelExecutor* executor, Env* env, Image* dst, const Image* src,
                                                  const Image* map, double sigmaA, double sigmaB, double gain,
                                                  double coring) {
  return sharpen<2, true>(executor, env, dst, src, map, sigmaA, sigmaB, gain, coring);
}

Status Tessal4ImageFunc_adaSharp5x5_uint8(ParallelExecutor* executor, Env* env, Image* dst, const Image* src,
                                          double sigmaA, double sigmaB, double gain, double coring) {
  return sharpen<2, false>(executor, env, dst, src, nullptr, sigmaA, sigmaB, gain, coring);
}

Status Tessal4ImageFunc_adaSharp7x7_uint8_withmap(ParallelExecutor* executor, Env* env, Image* dst, const Image* src,
                                                  const Image* map, double sigmaA, double sigmaB, double gain,
                                                  double coring) {
  return sharpen<3, true>(executor, env, dst, src, map, sigmaA, sigmaB, gain, coring);
}

Status Tessal4ImageFunc_adaSharp7x7_uint8(ParallelExecutor* executor, Env* env, Image* dst, const Image* src,
                                          double sigmaA, double sigmaB, double gain, double coring) {
  return sharpen<3, false>(executor, env, dst, src, nullptr, sigmaA, sigmaB, gain, coring);
}
