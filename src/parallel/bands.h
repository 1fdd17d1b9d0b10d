// Running the bands of a kernel on a ParallelExecutor.
//
//   struct Band { const Job* job; int32_t begin; int32_t end; };
//   Status blurBand(Band* band);
//   ...
//   const int32_t n = ParallelExecutor_getNumberOfBands(executor);
//   return forkBands<Band, blurBand>(executor, n, [&](int32_t i) { return Band{&job, bandStart(i, n, h), ...}; });
//
// The blocks are copied by the fork. A band that the executor does not take (for want of memory, with a full queue, or
// after a shutdown) runs in the caller, as all do with one band or none to give: what the bands make is the same. The
// result is the OR of the bodies' results, with ZELVAN_STATUS_CANCELLED when a shutdown overtook a band.
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
  const TaskFunction body = [](void* block) { return Body(static_cast<Band*>(block)); };
  const bool forks = executor != nullptr && n > 1;
  Status status = ZELVAN_OK;
  for (int32_t i = 0; i < n; ++i) {
    Band band = make(i);
    const bool taken = forks && ParallelExecutor_fork(executor, body, &band, sizeof(Band)) == ZELVAN_OK;
    if (!taken) status |= Body(&band);
  }
  return forks ? status | ParallelExecutor_join(executor) : status;
}

#endif  // ZVT4_PARALLEL_BANDS_H_
