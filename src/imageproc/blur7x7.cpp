#include "imageproc/blur.h"
#include "imageproc/gauss_taps.h"
#include "imageproc/separable_rows.h"
#include "parallel/bands.h"

namespace {

constexpr int32_t kRadius = 3;
constexpr int32_t kTaps = 2 * kRadius + 1;
constexpr int32_t kMostSlices = 16;
// Filtered rows of a slice: row r of the slice or above it in slot r % 7, then the three rows below the slice.
constexpr int32_t kRowsPerSlice = kTaps + kRadius;

struct Blur7x7Job {
  Image* dst;
  const Image* src;
  int16_t* scratch;
  int32_t slices;
  SymmetricTaps kernel;
};

struct Blur7x7Slice {
  const Blur7x7Job* job;
  int32_t begin;
  int32_t end;
  int16_t* rows;

  int16_t* filtered(int32_t y) const {
    return rows + static_cast<size_t>(y < end ? y % kTaps : kTaps + y - end) * job->src->width;
  }
  void filter(int32_t y) const {
    filterAcross<512, 1>(filtered(y), imageRow<const uint8_t>(job->src, y), job->kernel, job->src->width);
  }
};

// The rows of the neighbours, which those may overwrite later.
Status prefillSlice(Blur7x7Slice* slice) {
  const int32_t height = slice->job->src->height;
  for (int32_t y = std::max(slice->begin - kRadius, 0); y < slice->begin; ++y) slice->filter(y);
  for (int32_t y = slice->end; y < std::min(slice->end + kRadius, height); ++y) slice->filter(y);
  return ZELVAN_OK;
}

Status blurSlice(Blur7x7Slice* slice) {
  const Blur7x7Job& job = *slice->job;
  const int32_t last = job.src->height - 1;
  for (int32_t y = slice->begin; y < std::min(slice->begin + kRadius, slice->end); ++y) slice->filter(y);
  for (int32_t y = slice->begin; y < slice->end; ++y) {
    if (y + kRadius < slice->end) slice->filter(y + kRadius);
    const int16_t* rows[kTaps];
    for (int32_t t = 0; t < kTaps; ++t) rows[t] = slice->filtered(clampInt(y + t - kRadius, 0, last));
    filterDown(imageRow(job.dst, y), rows, job.kernel, job.dst->width);
  }
  return ZELVAN_OK;
}

}  // namespace

Status ImageProc_filterGaussianBlur7x7_uint8(ImageProc* proc, Image* dst, const Image* src, double sigma) {
  if (proc == nullptr || dst == nullptr || src == nullptr) return ZELVAN_ERROR_PARAM;
  if (dst->width < 1 || dst->height < 1 || dst->width != src->width || dst->height != src->height) {
    return ZELVAN_ERROR_PARAM;
  }
  if (dst->format != IMAGE_UINT8 || src->format != IMAGE_UINT8) return ZELVAN_ERROR_GENERAL;
  const int32_t height = dst->height;
  const int32_t slices = clampInt(ParallelExecutor_getNumberOfBands(proc->executor), 1, std::min(kMostSlices, height));
  const size_t perSlice = static_cast<size_t>(kRowsPerSlice) * dst->width;
  const ScopedBlock<int16_t> scratch(proc->env, static_cast<size_t>(slices) * perSlice);
  if (!scratch) return ZELVAN_ERROR_NOMEM;
  Blur7x7Job job = {dst, src, scratch.data(), slices, {kRadius, {}}};
  gaussTaps(job.kernel.taps, kRadius, sigma);
  const auto slice = [&](int32_t i) {
    return Blur7x7Slice{&job, bandStart(i, slices, height), bandStart(i + 1, slices, height),
                        job.scratch + i * perSlice};
  };
  if (const Status s = forkBands<Blur7x7Slice, prefillSlice>(proc->executor, slices, slice); s != ZELVAN_OK) return s;
  return forkBands<Blur7x7Slice, blurSlice>(proc->executor, slices, slice);
}
