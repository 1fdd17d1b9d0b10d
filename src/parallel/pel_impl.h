// Shared by the source files of Pel: the two marker pointers, the ready queue and the worker loop.
//
// What guards what. The event lock: events that are blocked or complete, references, links, free events. The queue
// lock: the ready queue, the parts, and users and status of a job from the moment that it is ready. The event lock may
// be held while the queue lock is taken, never the other way round. id, link and enqueuedJobs are written under the one
// and read under the other, flags, readyHead, dequeuedJobs and completedJobs are read without any: these are accessed
// atomically.
#ifndef ZVT4_PARALLEL_PEL_IMPL_H_
#define ZVT4_PARALLEL_PEL_IMPL_H_

#include "base/atomic.h"
#include "parallel/pel.h"

namespace pel_detail {

inline constexpr uint32_t kInitialised = 1;
inline constexpr uint32_t kIndexMask = kPelEvents - 1;  // the table index within a handle

// PelEvent::link of a job that has left the ready queue.
inline PelEvent* leftQueue() {
  return reinterpret_cast<PelEvent*>(uintptr_t{1});
}
// PelEvent::dependents of a complete job.
inline PelLink* complete() {
  return reinterpret_cast<PelLink*>(uintptr_t{1});
}

inline bool isInitialised(const Pel* pel) {
  return (atomicLoad(&pel->flags) & kInitialised) != 0;
}

inline int32_t waitMillis(const Pel* pel) {
  constexpr uint32_t kLongest = 0x7FFFFFFF;
  return static_cast<int32_t>(pel->active.waitMillis < kLongest ? pel->active.waitMillis : kLongest);
}

// The live event of a handle, null for a stale handle. Needs the event lock for more than a glance.
inline PelEvent* findEvent(Pel* pel, uint32_t handle) {
  PelEvent* const event = &pel->events[handle & kIndexMask];
  return atomicLoad(&event->id) == handle ? event : nullptr;
}

// Puts a slot back. Needs the event lock.
inline void freeEvent(Pel* pel, PelEvent* event) {
  atomicFetchAdd(&event->id, 1u);
  ++pel->freeEvents;
}

// Worker index of the calling thread; -1 if it has none.
int32_t findWorker(const Pel* pel);

// Puts a job without open dependencies at the end of the ready queue. Takes the queue lock.
Status appendReady(Pel* pel, PelEvent* job);

// Runs jobs of the ready queue. waitCount 0: until the stop event comes. Positive: until the listed jobs have left the
// queue. Negative: until all enqueued jobs have left it. Called without locks.
Status runWorker(Pel* pel, int32_t workerIndex, int32_t waitCount, const uint32_t* waitList);

}  // namespace pel_detail

#endif  // ZVT4_PARALLEL_PEL_IMPL_H_
