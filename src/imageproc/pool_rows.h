// Rows of a picture on either pool: kernels that exist for a ParallelExecutor and for a Pel are one template over their
// context, which calls these.
#ifndef ZVT4_IMAGEPROC_POOL_ROWS_H_
#define ZVT4_IMAGEPROC_POOL_ROWS_H_

#include "imageproc/image_proc.h"
#include "imageproc/row_slices.h"
#include "parallel/pel_rows.h"

// The status of a format that a kernel does not take.
inline Status refusedFormat(const ImageProc*) {
  return ZELVAN_ERROR_GENERAL;
}
inline Status refusedFormat(const ImageProc2*) {
  return ZELVAN_ERROR_UNSUPPORTED;
}

// Whether a kernel from src to a dst of the same size has work to do.
inline bool isUsablePair(const void* proc, const Image* dst, const Image* src) {
  return proc != nullptr && dst != nullptr && src != nullptr && dst->width > 0 && dst->height > 0 &&
         dst->width == src->width && dst->height == src->height;
}

// Rows(job, begin, end) over 0 to height, any cut.
template <typename Job, void (*Rows)(const Job&, int32_t, int32_t)>
Status runRows(const ImageProc* proc, const Job& job, int32_t height) {
  return forkRowSlices<Job, Rows>(proc->executor, job, height);
}
template <typename Job, void (*Rows)(const Job&, int32_t, int32_t)>
Status runRows(const ImageProc2* proc, const Job& job, int32_t height) {
  return executeRows<Job, Rows>(proc->pel, job, height);
}

// As many bands as the pool runs at once.
inline int32_t bandCount(const ImageProc* proc) {
  return ParallelExecutor_getNumberOfBands(proc->executor);
}
inline int32_t bandCount(const ImageProc2* proc) {
  return Pel_getNumberOfWorkers(proc->pel);
}

namespace pool_detail {

template <typename Make>
struct PelBands {
  const Make* make;
};

template <typename Band, Status (*Body)(Band*), typename Make>
Status pelBand(PelBands<Make>* bands, int32_t i, const PelContext*) {
  Band band = (*bands->make)(i);
  return Body(&band);
}

}  // namespace pool_detail

// Body(make(i)) for n bands.
template <typename Band, Status (*Body)(Band*), typename Make>
Status runBands(const ImageProc* proc, int32_t n, const Make& make) {
  return forkBands<Band, Body>(proc->executor, n, make);
}
template <typename Band, Status (*Body)(Band*), typename Make>
Status runBands(const ImageProc2* proc, int32_t n, const Make& make) {
  using Bands = pool_detail::PelBands<Make>;
  static constexpr PelKernel kKernel = pelIndexed<Bands, pool_detail::pelBand<Band, Body, Make>>();
  Bands bands = {&make};
  return executeToEnd(proc->pel, &kKernel, &bands, n);
}

#endif  // ZVT4_IMAGEPROC_POOL_ROWS_H_
