// The sharpening as a chain of bands on a Pel.
#include <initializer_list>

#include "base/scoped.h"
#include "filters/sharpen.h"
#include "filters/sharpen_rows.h"
#include "parallel/pel_kernel.h"

namespace {

constexpr int32_t kRadius = 2;
constexpr int32_t kBandRows = 64;
constexpr int32_t kRingBands = 5;
constexpr int32_t kRingRows = kRingBands * kBandRows;

// The image and its ring of rows, each row of it one of kernel A and one of kernel B.
struct RingJob {
  SharpenJob<kRadius> sharpen;
  int16_t* ring;

  int16_t* rowAt(int32_t kernel, int32_t y) const {
    return ring + (2 * (y % kRingRows) + kernel) * static_cast<ptrdiff_t>(sharpen.src->width);
  }
};

struct RingBand {
  const RingJob* job;
  int32_t begin;  // rows of the image
  int32_t end;
  uint32_t filtered;  // events of the two kernels
  uint32_t sharpened;
};

Status filterRingRow(RingBand* band, int32_t index, const PelContext*) {
  const RingJob& job = *band->job;
  const Image* src = job.sharpen.src;
  const int32_t y = band->begin + index;
  filterRow<kRadius, 1>(job.rowAt(0, y), imageRow(src, y), src->width, job.sharpen.tapsA);
  filterRow<kRadius, 1>(job.rowAt(1, y), imageRow(src, y), src->width, job.sharpen.tapsB);
  return ZELVAN_OK;
}

Status sharpenRingRow(RingBand* band, int32_t index, const PelContext*) {
  const RingJob& job = *band->job;
  sharpenRow<kRadius, true>(job.sharpen, band->begin + index,
                            [&](int32_t kernel, int32_t y) { return job.rowAt(kernel, y); });
  return ZELVAN_OK;
}

constexpr PelKernel kFilterRingRow = pelIndexed<RingBand, filterRingRow>();
constexpr PelKernel kSharpenRingRow = pelIndexed<RingBand, sharpenRingRow>();

// A band's rows in the ring were last read when the band four before it was sharpened; those events form a chain.
Status enqueueFilter(Pel* pel, RingBand* bands, int32_t i) {
  RingBand* band = &bands[i];
  constexpr int32_t kLastReader = kRingBands - 1;
  return Pel_enqueueKernel(pel, &kFilterRingRow, band, band->end - band->begin, i < kLastReader ? 0 : 1,
                           i < kLastReader ? nullptr : &bands[i - kLastReader].sharpened, &band->filtered);
}

// A band reads filtered rows of both neighbours: of the one behind by its event, of itself and of the one before by the
// chain.
Status enqueueSharpen(Pel* pel, RingBand* bands, int32_t i, int32_t count) {
  RingBand* band = &bands[i];
  uint32_t waits[3] = {bands[i].filtered};
  int32_t waitCount = 1;
  if (i > 0) waits[waitCount++] = bands[i - 1].sharpened;
  if (i + 1 < count) waits[waitCount++] = bands[i + 1].filtered;
  return Pel_enqueueKernel(pel, &kSharpenRingRow, band, band->end - band->begin, waitCount, waits, &band->sharpened);
}

}  // namespace

Status Tessal4ImageFunc_deconv_withmap(Pel* pel, Env* env, const Image* src, Image* dst, const Image* map,
                                       double sigmaA, double sigmaB, int32_t strength, double coring) {
  const int32_t width = src->width;
  const int32_t height = src->height;
  if (width < kRowFilterMinWidth || height < 1) return ZELVAN_ERROR_PARAM;
  const int32_t count = (height + kBandRows - 1) / kBandRows;
  const ScopedBlock<int16_t> ring(env, static_cast<size_t>(2 * kRingRows) * static_cast<size_t>(width));
  const ScopedBlock<RingBand> bands(env, static_cast<size_t>(count));
  if (!ring || !bands) return ZELVAN_ERROR_NOMEM;
  const RingJob job = {{dst, src, map, sigmaA, sigmaB, strength, coring}, ring.data()};
  RingBand* const band = bands.data();
  for (int32_t i = 0; i < count; ++i) {
    band[i] = {&job, i * kBandRows, i + 1 < count ? (i + 1) * kBandRows : height, 0, 0};
  }

  Status status = enqueueFilter(pel, band, 0);
  for (int32_t i = 0; i < count && status == ZELVAN_OK; ++i) {
    if (i + 1 < count) status = enqueueFilter(pel, band, i + 1);
    if (status == ZELVAN_OK) status = enqueueSharpen(pel, band, i, count);
  }
  // The last band is sharpened behind all other jobs.
  if (band[count - 1].sharpened != 0) status |= waitToEnd(pel, band[count - 1].sharpened);
  for (int32_t i = 0; i < count; ++i) {
    for (const uint32_t event : {band[i].filtered, band[i].sharpened}) status |= endEvent(pel, event);
  }
  return status;
}
