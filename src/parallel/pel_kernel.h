// Descriptors of Pel kernels, made from plain functions at compile time:
//
//   struct TableJob { Image* dst; const Image* src; };
//   Status tableRow(TableJob* job, int32_t index, const PelContext* context);
//   constexpr PelKernel kTableRow = pelIndexed<TableJob, tableRow>();
//   ...
//   TableJob job = {dst, src};
//   return Pel_execute(pel, &kTableRow, &job, dst->height);
//
// The argument block is not copied and must outlive the call. Pel_execute with a null Pel runs all indices in order.
#ifndef ZVT4_PARALLEL_PEL_KERNEL_H_
#define ZVT4_PARALLEL_PEL_KERNEL_H_

#include "base/atomic.h"
#include "parallel/pel.h"
#include "parallel/syscall.h"

namespace pel_detail {

// What a worker calls: takes indices of one part until none is left. The first item of a job pins the thread when a
// mask is asked for; a pin that fails is tried again on each item that follows.
template <typename Run>
inline Status loop(const PelContext* context, int32_t* cursor, int32_t end, uint32_t mask, int32_t* pinState,
                   const Run& run) {
  Status status = ZELVAN_OK;
  int32_t pinned = *pinState;
  while (pinned == 0) {
    int32_t index = atomicLoad(cursor);
    while (index < end && !atomicCompareExchange(cursor, &index, index + 1)) {
    }
    if (index >= end) {
      *pinState = 0;
      return status;
    }
    if (mask == 0 || Syscall_setThreadAffinityMask(context->pel != nullptr ? context->pel->env : nullptr, mask) == 0) {
      pinned = 1;
    }
    status |= run(index);
  }
  for (int32_t index = atomicFetchAdd(cursor, 1); index < end; index = atomicFetchAdd(cursor, 1)) status |= run(index);
  *pinState = pinned;
  return status;
}

template <typename Job, Status (*Body)(Job*, const PelContext*)>
struct Task {
  static Status direct(void* job, const PelContext* context) { return Body(static_cast<Job*>(job), context); }
  static Status loop(const PelContext* context, void* job, int32_t* cursor, int32_t end, uint32_t mask,
                     int32_t* pinState) {
    return pel_detail::loop(context, cursor, end, mask, pinState,
                            [=](int32_t) { return Body(static_cast<Job*>(job), context); });
  }
};

template <typename Job, Status (*Body)(Job*, int32_t, const PelContext*)>
struct Indexed {
  static Status direct(void* job, int32_t index, const PelContext* context) {
    return Body(static_cast<Job*>(job), index, context);
  }
  static Status loop(const PelContext* context, void* job, int32_t* cursor, int32_t end, uint32_t mask,
                     int32_t* pinState) {
    return pel_detail::loop(context, cursor, end, mask, pinState,
                            [=](int32_t index) { return Body(static_cast<Job*>(job), index, context); });
  }
};

template <typename Job, Status (*Body)(Job*, int32_t, int32_t, const PelContext*)>
struct Range {
  static Status direct(void* job, int32_t begin, int32_t end, const PelContext* context) {
    return Body(static_cast<Job*>(job), begin, end, context);
  }
  static Status loop(const PelContext* context, void* job, int32_t* cursor, int32_t end, uint32_t mask,
                     int32_t* pinState) {
    return pel_detail::loop(context, cursor, end, mask, pinState,
                            [=](int32_t index) { return Body(static_cast<Job*>(job), index, index + 1, context); });
  }
};

}  // namespace pel_detail

// One task: body(job, context).
template <typename Job, Status (*Body)(Job*, const PelContext*)>
constexpr PelKernel pelTask() {
  return {pel_detail::Task<Job, Body>::loop, {.task = pel_detail::Task<Job, Body>::direct}, PEL_TASK};
}
// body(job, index, context) for each index.
template <typename Job, Status (*Body)(Job*, int32_t, const PelContext*)>
constexpr PelKernel pelIndexed() {
  return {pel_detail::Indexed<Job, Body>::loop, {.indexed = pel_detail::Indexed<Job, Body>::direct}, PEL_INDEXED};
}
// body(job, begin, end, context); workers call it with single indices, a direct run with the whole range.
template <typename Job, Status (*Body)(Job*, int32_t, int32_t, const PelContext*)>
constexpr PelKernel pelRange() {
  return {pel_detail::Range<Job, Body>::loop, {.range = pel_detail::Range<Job, Body>::direct}, PEL_RANGE};
}

#endif  // ZVT4_PARALLEL_PEL_KERNEL_H_
