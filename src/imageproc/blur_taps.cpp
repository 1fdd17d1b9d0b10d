// Gaussian filters of three, five and seven taps.
#include "imageproc/blur.h"
#include "imageproc/gauss_taps.h"
#include "imageproc/pool_rows.h"
#include "imageproc/separable_rows.h"

namespace {

constexpr int32_t kMostSlices = 16;

// Filtered rows of a slice: row r of the slice or above it in slot r % taps, then the rows that it needs from below.
constexpr int32_t rowsPerSlice(int32_t radius) {
  return 3 * radius + 1;
}

template <typename Sample>
struct TapsJob {
  Image* dst;
  const Image* src;
  FilteredSample<Sample>* scratch;
  SymmetricTaps kernel;
};

template <typename Sample, int32_t kChannels, int32_t kRadius>
struct TapsSlice {
  static constexpr int32_t kTaps = 2 * kRadius + 1;

  const TapsJob<Sample>* job;
  int32_t begin;
  int32_t end;
  FilteredSample<Sample>* rows;

  FilteredSample<Sample>* filtered(int32_t y) const {
    return rows + static_cast<size_t>(y < end ? y % kTaps : kTaps + y - end) * job->src->width * kChannels;
  }
  void filter(int32_t y) const {
    filterAcross<512, kChannels>(filtered(y), imageRow<const Sample>(job->src, y), job->kernel, job->src->width);
  }

  // The rows of the neighbours, which those may overwrite later.
  static Status prefill(TapsSlice* slice) {
    const int32_t height = slice->job->src->height;
    for (int32_t y = std::max(slice->begin - kRadius, 0); y < slice->begin; ++y) slice->filter(y);
    for (int32_t y = slice->end; y < std::min(slice->end + kRadius, height); ++y) slice->filter(y);
    return ZELVAN_OK;
  }

  static Status blur(TapsSlice* slice) {
    const TapsJob<Sample>& job = *slice->job;
    const int32_t last = job.src->height - 1;
    for (int32_t y = slice->begin; y < std::min(slice->begin + kRadius, slice->end); ++y) slice->filter(y);
    for (int32_t y = slice->begin; y < slice->end; ++y) {
      if (y + kRadius < slice->end) slice->filter(y + kRadius);
      const FilteredSample<Sample>* rows[kTaps];
      for (int32_t t = 0; t < kTaps; ++t) rows[t] = slice->filtered(clampInt(y + t - kRadius, 0, last));
      filterDown(imageRow<Sample>(job.dst, y), rows, job.kernel, job.dst->width * kChannels);
    }
    return ZELVAN_OK;
  }
};

template <int32_t kFormat, int32_t kRadius, typename Context>
Status gaussTapsFilter(Context* proc, Image* dst, const Image* src, double sigma) {
  using Sample = std::conditional_t<kFormat == IMAGE_UINT16, uint16_t, uint8_t>;
  constexpr int32_t kChannels = kFormat == IMAGE_UINT88 ? 2 : 1;
  using Slice = TapsSlice<Sample, kChannels, kRadius>;
  if (!isUsablePair(proc, dst, src)) return ZELVAN_ERROR_PARAM;
  if (dst->format != kFormat || src->format != kFormat) return refusedFormat(proc);
  const int32_t height = dst->height;
  const int32_t slices = clampInt(bandCount(proc), 1, std::min(kMostSlices, height));
  const size_t perSlice = static_cast<size_t>(rowsPerSlice(kRadius)) * dst->width * kChannels;
  const ScopedBlock<FilteredSample<Sample>> scratch(proc->env, static_cast<size_t>(slices) * perSlice);
  if (!scratch) return ZELVAN_ERROR_NOMEM;
  TapsJob<Sample> job = {dst, src, scratch.data(), {kRadius, {}}};
  gaussTaps(job.kernel.taps, kRadius, sigma);
  const auto slice = [&](int32_t i) {
    return Slice{&job, bandStart(i, slices, height), bandStart(i + 1, slices, height), job.scratch + i * perSlice};
  };
  if (const Status s = runBands<Slice, Slice::prefill>(proc, slices, slice); s != ZELVAN_OK) return s;
  return runBands<Slice, Slice::blur>(proc, slices, slice);
}

}  // namespace

Status ImageProc_filterGaussianBlur7x7_uint8(ImageProc* proc, Image* dst, const Image* src, double sigma) {
  return gaussTapsFilter<IMAGE_UINT8, 3>(proc, dst, src, sigma);
}
Status ImageProc_filterGaussianBlur7x7_uint88(ImageProc* proc, Image* dst, const Image* src, double sigma) {
  return gaussTapsFilter<IMAGE_UINT88, 3>(proc, dst, src, sigma);
}
Status ImageProc_filterGaussianBlur7x7_uint16(ImageProc* proc, Image* dst, const Image* src, double sigma) {
  return gaussTapsFilter<IMAGE_UINT16, 3>(proc, dst, src, sigma);
}
Status ImageProc_filterGaussianBlur5x5_uint16(ImageProc* proc, Image* dst, const Image* src, double sigma) {
  return gaussTapsFilter<IMAGE_UINT16, 2>(proc, dst, src, sigma);
}
Status ImageProc_filterGaussianBlur3x3_uint16(ImageProc* proc, Image* dst, const Image* src, double sigma) {
  return gaussTapsFilter<IMAGE_UINT16, 1>(proc, dst, src, sigma);
}
Status ImageProc2_filterGaussianBlur7x7_uint8(ImageProc2* proc, Image* dst, const Image* src, double sigma) {
  return gaussTapsFilter<IMAGE_UINT8, 3>(proc, dst, src, sigma);
}
Status ImageProc2_filterGaussianBlur7x7_uint88(ImageProc2* proc, Image* dst, const Image* src, double sigma) {
  return gaussTapsFilter<IMAGE_UINT88, 3>(proc, dst, src, sigma);
}
Status ImageProc2_filterGaussianBlur7x7_uint16(ImageProc2* proc, Image* dst, const Image* src, double sigma) {
  return gaussTapsFilter<IMAGE_UINT16, 3>(proc, dst, src, sigma);
}

int32_t ImageProc2_getBufferSizeForConvolution(int32_t width, int32_t /*height*/) {
  return wrapMul(width, kMostSlices * rowsPerSlice(3) * static_cast<int32_t>(sizeof(int32_t)));
}
