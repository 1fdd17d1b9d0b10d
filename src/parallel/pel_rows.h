// Row kernels on a Pel: the rows of a picture cut into min(5 x workers, height) bands.
//
//   struct TableJob { Image* dst; const Image* src; };
//   void tableRows(const TableJob& job, int32_t begin, int32_t end);
//   ...
//   return executeRows<TableJob, tableRows>(pel, {dst, src}, dst->height);
//
// A body writes only its own rows, so that any cut gives the same bytes. With a null Pel one call takes all rows. The
// job may be a temporary: the call returns when the work has ended, not when a wait runs out.
#ifndef ZVT4_PARALLEL_PEL_ROWS_H_
#define ZVT4_PARALLEL_PEL_ROWS_H_

#include <algorithm>

#include "parallel/pel_kernel.h"

namespace pel_detail {

template <typename Job>
struct RowsBlock {
  const Job* job;
  int32_t height;
};

template <typename Job, void (*Body)(const Job&, int32_t, int32_t)>
Status rowsBand(RowsBlock<Job>* block, int32_t begin, int32_t end, const PelContext* context) {
  const auto rowOf = [&](int32_t index) {
    return static_cast<int32_t>(int64_t{block->height} * index / context->count);
  };
  Body(*block->job, rowOf(begin), rowOf(end));
  return ZELVAN_OK;
}

}  // namespace pel_detail

template <typename Job, void (*Body)(const Job&, int32_t, int32_t)>
Status executeRows(Pel* pel, const Job& job, int32_t height) {
  static constexpr PelKernel kKernel = pelRange<pel_detail::RowsBlock<Job>, pel_detail::rowsBand<Job, Body>>();
  pel_detail::RowsBlock<Job> block = {&job, height};
  return executeToEnd(pel, &kKernel, &block, std::min(5 * Pel_getNumberOfWorkers(pel), height));
}

#endif  // ZVT4_PARALLEL_PEL_ROWS_H_
