#include "imageproc/resize.h"

#include <algorithm>
#include <type_traits>

#include "imageproc/arithmetic.h"
#include "imageproc/plane_view.h"
#include "imageproc/resize_plane.h"
#include "parallel/bands.h"
#include "parallel/pel_kernel.h"

namespace {

bool isUsable(const void* proc, const Image* dst, const Image* src) {
  return proc != nullptr && dst != nullptr && src != nullptr && dst->width > 0 && dst->height > 0 && src->width > 0 &&
         src->height > 0;
}

using PlaneResize = Status (*)(void* proc, Image* dst, const Image* src);

// ---------------------------------------------------------------------------------------------------- executor form

struct ResizeBand {
  const ResizeJob* job;
  int32_t index;
};

template <typename Pixel>
Status resizeBand(ResizeBand* band) {
  const ResizeJob& job = *band->job;
  const int32_t height = job.dst->height;
  resizeRows<Pixel>(
      job, bandStart(band->index, job.bands, height), bandStart(band->index + 1, job.bands, height),
      static_cast<typename Pixel::Sample*>(job.scratch) + band->index * resizeScratchSamples<Pixel>(job.dst));
  return ZELVAN_OK;
}

template <typename Pixel>
Status resizeForked(void* context, Image* dst, const Image* src) {
  const ImageProc* proc = static_cast<const ImageProc*>(context);
  ResizeJob job = resizeJob(dst, src, true);
  job.bands = clampInt(ParallelExecutor_getNumberOfBands(proc->executor), 1, dst->height);
  const ScopedBlock<typename Pixel::Sample> scratch(proc->env,
                                                    static_cast<size_t>(job.bands) * resizeScratchSamples<Pixel>(dst));
  if (!scratch) return ZELVAN_OK;  // the plane stays as it is
  job.scratch = scratch.data();
  return forkBands<ResizeBand, resizeBand<Pixel>>(proc->executor, job.bands, [&](int32_t i) {
    return ResizeBand{&job, i};
  });
}

// --------------------------------------------------------------------------------------------------------- Pel form

template <typename Pixel>
Status resizeRowsOnPel(ResizeJob* job, int32_t index, const PelContext* context) {
  const int32_t height = job->dst->height;
  resizeRows<Pixel>(*job, bandStart(index, job->bands, height), bandStart(index + 1, job->bands, height),
                    static_cast<typename Pixel::Sample*>(job->scratch) +
                        context->workerIndex * resizeScratchSamples<Pixel>(job->dst));
  return ZELVAN_OK;
}

// (a + b + c + d + 2) >> 2 of 2x2 blocks. The columns whose block ends beyond the row clamp to its last pixel.
template <typename Pixel>
void halveRow(typename Pixel::Sample* __restrict out, const typename Pixel::Sample* upper,
              const typename Pixel::Sample* lower, int32_t srcWidth, int32_t dstWidth) {
  constexpr int32_t kChannels = Pixel::kChannels;
  // Wide enough for four samples: the sum of INT32 needs more than 32 bits.
  using Sum = std::conditional_t<sizeof(typename Pixel::Sample) == 4, int64_t, int32_t>;
  const int32_t inside = std::min(dstWidth, srcWidth / 2);
  for (int32_t x = 0; x < inside; ++x) {
    for (int32_t c = 0; c < kChannels; ++c) {
      const int32_t at = 2 * x * kChannels + c;
      out[x * kChannels + c] = static_cast<typename Pixel::Sample>(
          (Sum{upper[at]} + upper[at + kChannels] + lower[at] + lower[at + kChannels] + 2) >> 2);
    }
  }
  for (int32_t x = inside; x < dstWidth; ++x) {
    const int32_t left = std::min(2 * x, srcWidth - 1) * kChannels;
    const int32_t right = std::min(2 * x + 1, srcWidth - 1) * kChannels;
    for (int32_t c = 0; c < kChannels; ++c) {
      out[x * kChannels + c] = static_cast<typename Pixel::Sample>(
          (Sum{upper[left + c]} + upper[right + c] + lower[left + c] + lower[right + c] + 2) >> 2);
    }
  }
}

template <typename Pixel>
Status halveRowsOnPel(ResizeJob* job, int32_t index, const PelContext* /*context*/) {
  using Sample = typename Pixel::Sample;
  const int32_t height = job->dst->height;
  const int32_t end = bandStart(index + 1, job->bands, height);
  const int32_t lastRow = job->src->height - 1;
  for (int32_t y = bandStart(index, job->bands, height); y < end; ++y) {
    halveRow<Pixel>(imageRow<Sample>(job->dst, y), imageRow<const Sample>(job->src, std::min(2 * y, lastRow)),
                    imageRow<const Sample>(job->src, std::min(2 * y + 1, lastRow)), job->src->width, job->dst->width);
  }
  return ZELVAN_OK;
}

constexpr bool isNearHalf(int32_t dst, int32_t src) {
  const int32_t difference = dst - src / 2;
  return difference > -2 && difference < 2;
}

template <typename Pixel>
Status resizeOnPel(void* context, Image* dst, const Image* src) {
  static constexpr PelKernel kHalve = pelIndexed<ResizeJob, halveRowsOnPel<Pixel>>();
  static constexpr PelKernel kResize = pelIndexed<ResizeJob, resizeRowsOnPel<Pixel>>();
  const ImageProc2* proc = static_cast<const ImageProc2*>(context);
  const int32_t workers = Pel_getNumberOfWorkers(proc->pel);
  ResizeJob job = resizeJob(dst, src, false);
  job.bands = std::min(5 * workers, dst->height);
  if (isNearHalf(dst->width, src->width) && isNearHalf(dst->height, src->height)) {
    return executeToEnd(proc->pel, &kHalve, &job, job.bands);
  }
  const ScopedBlock<typename Pixel::Sample> scratch(proc->env,
                                                    static_cast<size_t>(workers) * resizeScratchSamples<Pixel>(dst));
  if (!scratch) return ZELVAN_ERROR_NOMEM;
  job.scratch = scratch.data();
  return executeToEnd(proc->pel, &kResize, &job, job.bands);
}

}  // namespace

Status ImageProc_resizeImage(ImageProc* proc, Image* dst, const Image* src) {
  if (!isUsable(proc, dst, src)) return ZELVAN_ERROR_PARAM;
  if (dst->width == src->width && dst->height == src->height) {
    return dst->format == src->format ? Image_copy(dst, src) : ImageProc_cvt(proc, dst, src);
  }
  const auto view = [&](ViewInit init, PlaneResize resize) {
    return onPlaneViews(proc->env, dst, src, init, [&](Image* d, const Image* s) { return resize(proc, d, s); });
  };
  const bool same = dst->format == src->format;
  switch (src->format) {
    case IMAGE_YUV422_PLANAR:
    case IMAGE_YUV420_PLANAR: {
      const bool planar = dst->format == IMAGE_YUV422_PLANAR || dst->format == IMAGE_YUV420_PLANAR;
      if (!planar && dst->format != IMAGE_UINT8) return ZELVAN_ERROR_UNSUPPORTED;
      Status status = view(Image_initSubImageY, resizeForked<ResizeY8>);
      if (planar) {
        status |= view(Image_initSubImageU, resizeForked<ResizeY8>);
        status |= view(Image_initSubImageV, resizeForked<ResizeY8>);
      }
      return status;
    }
    case IMAGE_YUV420_SEMIPLANAR:
    case IMAGE_YVU420_SEMIPLANAR: {
      Status status = view(Image_initSubImageY, resizeForked<ResizeY8>);
      if (isSemiplanar420(dst->format)) {
        status |= view(Image_initSubImageUV, resizeForked<ResizePair8>);
      }
      return status;
    }
    case IMAGE_UINT8:
      return view(Image_initSubImageY, resizeForked<ResizeY8>);
    case IMAGE_INT32:
      return same ? resizeForked<ResizeI32>(proc, dst, src) : ZELVAN_ERROR_UNSUPPORTED;
    case IMAGE_UINT16:
      return same ? resizeForked<ResizeU16>(proc, dst, src) : ZELVAN_ERROR_UNSUPPORTED;
    case IMAGE_FLOAT:
      return same ? resizeForked<ResizeF32>(proc, dst, src) : ZELVAN_ERROR_UNSUPPORTED;
    case IMAGE_UINT88:
      return same ? resizeForked<ResizePair8>(proc, dst, src) : ZELVAN_ERROR_UNSUPPORTED;
    case IMAGE_RGB888:
    case IMAGE_BGR888:
      return same ? resizeForked<ResizeRgb8>(proc, dst, src) : ZELVAN_ERROR_UNSUPPORTED;
    case IMAGE_RGBA8888:
      return same ? resizeForked<ResizeRgba8>(proc, dst, src) : ZELVAN_ERROR_UNSUPPORTED;
    default:
      return ZELVAN_ERROR_UNSUPPORTED;
  }
}

Status ImageProc2_resizeImage(ImageProc2* proc, Image* dst, const Image* src) {
  if (!isUsable(proc, dst, src)) return ZELVAN_ERROR_PARAM;
  if (dst->format != src->format) return ZELVAN_ERROR_UNSUPPORTED;
  if (dst->width == src->width && dst->height == src->height) return Image_copy(dst, src);
  const auto view = [&](ViewInit init, PlaneResize resize) {
    return onPlaneViews(proc->env, dst, src, init, [&](Image* d, const Image* s) { return resize(proc, d, s); });
  };
  switch (src->format) {
    case IMAGE_YUV420_PLANAR: {
      Status status = view(Image_initSubImageY, resizeOnPel<ResizeY8>);
      status |= view(Image_initSubImageU, resizeOnPel<ResizeY8>);
      return status | view(Image_initSubImageV, resizeOnPel<ResizeY8>);
    }
    case IMAGE_YUV420_SEMIPLANAR:
    case IMAGE_YVU420_SEMIPLANAR: {
      const Status status = view(Image_initSubImageY, resizeOnPel<ResizeY8>);
      return status | view(Image_initSubImageUV, resizeOnPel<ResizePair8>);
    }
    case IMAGE_UINT8:
      return resizeOnPel<ResizeY8>(proc, dst, src);
    case IMAGE_INT32:
      return resizeOnPel<ResizeI32>(proc, dst, src);
    case IMAGE_UINT16:
      return resizeOnPel<ResizeU16>(proc, dst, src);
    case IMAGE_UINT88:
      return resizeOnPel<ResizePair8>(proc, dst, src);
    default:
      return ZELVAN_ERROR_UNSUPPORTED;
  }
}

int32_t ImageProc2_getBufferSizeForResizeImage(int32_t width, int32_t /*height*/) {
  const int32_t perProcessor = std::max(wrapMul(width, 4), wrapMul(width, 32));
  return wrapAdd(wrapMul(perProcessor, Syscall_getNumberOfProcessors(nullptr)), 2048);
}
