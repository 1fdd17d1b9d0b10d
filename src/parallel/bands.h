// Running the bands of a kernel on a ParallelExecutor.
//
//   struct Band { const Job* job; int32_t begin; int32_t end; };
//   Status blurBand(Band* band);
//   ...
//   const int32_t n = ParallelExecutor_getNumberOfBands(executor);
//   return forkBands<Band, blurBand>(executor, n, [&](int32_t i) { return Band{&job, bandStart(i, n, h), ...}; });
//
// With one band the body runs in the caller on a local block. The blocks are copied by the fork. The result is the OR
// of the bodies' results; a band that the executor does not take (after a shutdown, or for want of memory) is left out.
#ifndef ZVT4_PARALLEL_BANDS_H_
#define ZVT4_PARALLEL_BANDS_H_

#include "base/integer.h"
#include "parallel/parallel_executor.h"

// First row of band i of n: ceil(i x height / n), kept within 0 to height.
constexpr int32_t bandStart(int32_t i, int32_t n, int32_t height) {
  const int64_t start = (int64_t{n} - 1 + int64_t{height} * i) / n;
  return static_cast<int32_t>(start < 0 ? 0 : start > height ? height : start);
}

template <typename Band, Status (*Body)(Band*), typename Make>
Status forkBands(ParallelExecutor* executor, int32_t n, const Make& make) {
  if (executor == nullptr || n == 1) {
    Status status = ZELVAN_OK;
    for (int32_t i = 0; i < n; ++i) {
      Band band = make(i);
      status |= Body(&band);
    }
    return status;
  }
  for (int32_t i = 0; i < n; ++i) {
    const Band band = make(i);
    ParallelExecutor_fork(
        executor, [](void* block) { return Body(static_cast<Band*>(block)); }, &band, sizeof(Band));
  }
  return ParallelExecutor_join(executor);
}

#endif  // ZVT4_PARALLEL_BANDS_H_
