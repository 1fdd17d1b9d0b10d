// Running the bands of a kernel on a ParallelExecutor.
//
//   struct Band { const Job* job; int32_t begin; int32_t end; };
//   Status blurBand(Band* band);
//   ...
//   const int32_t n = ParallelExecutor_getNumberOfBands(executor);
//   return forkBands<Band, blurBand>(executor, n, [&](int32_t i) { return Band{&job, bandStart(i, n, h), ...}; });
//
// The bands lie on one pile, from which everybody takes the next one: a task for each worker, and no task for a band.
// The caller is one of the workers where threads are not pinned, so that a pool of one thread hands nothing over, and
// takes back the tasks that no thread has begun when the pile is empty. make is called by whoever takes the band, so it
// only reads. Bands run in any order, each of them once.
//
// When the executor takes no task (for want of memory, after a shutdown) the caller runs what is there to run, as it
// runs all with one band or no executor: what the bands make is the same. The result is the OR of the bodies' results,
// with ZELVAN_STATUS_CANCELLED when a shutdown overtook a band.
#ifndef ZVT4_PARALLEL_BANDS_H_
#define ZVT4_PARALLEL_BANDS_H_

#include <algorithm>

#include "base/atomic.h"
#include "base/integer.h"
#include "parallel/parallel_executor.h"

// First row of band i of n: ceil(i x height / n), kept within 0 to height.
constexpr int32_t bandStart(int32_t i, int32_t n, int32_t height) {
  const int64_t start = (int64_t{n} - 1 + int64_t{height} * i) / n;
  return static_cast<int32_t>(start < 0 ? 0 : start > height ? height : start);
}

namespace bands_detail {

template <typename Band, Status (*Body)(Band*), typename Make>
struct Pile {
  const Make* make;
  const ParallelExecutor* executor;  // at whose shutdown everybody stops; null: nobody does
  int32_t n;
  int32_t next;  // atomic

  Status run() {
    Status status = ZELVAN_OK;
    for (;;) {
      if (ParallelExecutor_isShutDown(executor)) {
        return atomicLoad(&next) < n ? status | ZELVAN_STATUS_CANCELLED : status;
      }
      const int32_t i = atomicFetchAdd(&next, 1);
      if (i >= n) return status;
      Band band = (*make)(i);
      status |= Body(&band);
    }
  }

  static Status task(void* block) { return (*static_cast<Pile**>(block))->run(); }
};

}  // namespace bands_detail

template <typename Band, Status (*Body)(Band*), typename Make>
Status forkBands(ParallelExecutor* executor, int32_t n, const Make& make) {
  using Pile = bands_detail::Pile<Band, Body, Make>;
  Pile pile = {&make, executor, n, 0};
  Pile* const block = &pile;
  const int32_t workers = n > 1 ? std::min(ParallelExecutor_getNumberOfWorkers(executor), n) : 0;
  const bool callerTakesPart = workers < 1 || executor == nullptr || ParallelExecutor_runsAnywhere(executor);
  const int32_t wanted = workers - (callerTakesPart ? 1 : 0);
  int32_t tasks = 0;
  for (int32_t i = 0; i < wanted; ++i) {
    if (ParallelExecutor_fork(executor, Pile::task, &block, sizeof(block)) == ZELVAN_OK) ++tasks;
  }
  if (tasks == 0) {
    pile.executor = nullptr;
    return pile.run();
  }
  const Status status = callerTakesPart || tasks < wanted ? pile.run() : ZELVAN_OK;
  return status | (callerTakesPart ? ParallelExecutor_joinWorking(executor) : ParallelExecutor_join(executor));
}

#endif  // ZVT4_PARALLEL_BANDS_H_
