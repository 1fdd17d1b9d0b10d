// The division of rows that most kernels on a ParallelExecutor use: about eight slices of a multiple of four rows.
#ifndef ZVT4_IMAGEPROC_ROW_SLICES_H_
#define ZVT4_IMAGEPROC_ROW_SLICES_H_

#include <algorithm>

#include "parallel/bands.h"

template <typename Job, void (*Rows)(const Job&, int32_t, int32_t)>
struct RowSlice {
  const Job* job;
  int32_t begin;
  int32_t end;

  static Status run(RowSlice* slice) {
    Rows(*slice->job, slice->begin, slice->end);
    return ZELVAN_OK;
  }
};

// Runs Rows(job, begin, end) for slices of ((height + 7) / 8 + 3) & ~3 rows and waits. A queue with less room than
// there are slices gets longer ones, since a task that finds it full is lost.
template <typename Job, void (*Rows)(const Job&, int32_t, int32_t)>
Status forkRowSlices(ParallelExecutor* executor, const Job& job, int32_t height) {
  if (height < 1) return ZELVAN_OK;
  const int32_t bands = std::max(ParallelExecutor_getNumberOfBands(executor), 1);
  const int32_t rows = std::max(((height + 7) / 8 + 3) & ~3, (height + bands - 1) / bands);
  using Slice = RowSlice<Job, Rows>;
  return forkBands<Slice, Slice::run>(executor, (height + rows - 1) / rows, [&](int32_t i) {
    return Slice{&job, i * rows, std::min((i + 1) * rows, height)};
  });
}

#endif  // ZVT4_IMAGEPROC_ROW_SLICES_H_
