// Pel: kernels and single tasks on a fixed set of at most 16 threads, with events and wait lists.
//
// A kernel is a descriptor in read-only data over an index range [0, count); a task has no range and runs once. A job
// is enqueued, optionally behind other jobs, the workers divide its range among themselves, and the client waits for
// its event. The client's thread is itself worker 0 while it waits (callerIsWorker), so a Pel of one worker has no
// threads.
//
// Indices of a job are independent and run in any order, each exactly once; a job begins when all jobs of its wait list
// have ended. Independent jobs begin in the order of enqueuing and may overlap. Scratch is indexed by
// PelContext::workerIndex: a worker runs one index at a time, and all client threads together count as one worker.
//   static division   part i of the range is worker i's; whoever is done helps in the parts of others
//   stealWork         worker 0 begins with the whole range; whoever is idle takes half of the longest rest
//
// A null Pel is legal everywhere: the work runs at once in the caller, with PelContext {null, 0, count, 0}. A Pel that
// is not initialised does nothing and gives ZELVAN_OK.
//
// Handles: low 14 bits table index, above them a generation; a handle goes stale for good with its last release after
// the job's end, 0 is never issued. In a wait list stale and complete events count as done. The argument block of a job
// is not copied and must outlive it. A body may enqueue jobs, but does not wait on its own Pel: only one thread at a
// time takes part while it waits, and that may be the very one that runs the body.
//
// Statuses: ZELVAN_ERROR_PARAM for bad arguments, ZELVAN_ERROR_STATE for a stale handle, ZELVAN_ERROR_TIMEOUT when a
// wait saw nothing happen for waitMillis; the work then goes on. A kernel's own status is told by Pel_getEventInfo
// only. A job behind a failed one is not run and has its status | ZELVAN_STATUS_CANCELLED.
//
// No path allocates: the record holds all tables, which makes it large (over 1 MB). Pel_getBufferSize is only what its
// locks take from the arena.
#ifndef ZVT4_PARALLEL_PEL_H_
#define ZVT4_PARALLEL_PEL_H_

#include "parallel/lock.h"
#include "parallel/thread.h"

struct Pel;
struct PelContext;

inline constexpr int32_t kPelEvents = 16384;
inline constexpr int32_t kPelParts = 256;
inline constexpr int32_t kPelThreads = 16;

struct PelParams {
  int32_t numberOfWorkers;      // caller included if callerIsWorker; below 1: number of processors
  uint32_t affinityMask;        // 0: the lowest numberOfWorkers bits
  uint32_t callerAffinityMask;  // given back to the caller after a wait; 0: all ones
  int32_t callerIsWorker;
  int32_t pinWorkers;
  int32_t stealWork;
  uint32_t waitMillis;  // from 2^31 on as 2^31 - 1
  void* hookArgument;
  void (*threadStartHook)(void* hookArgument);
  void (*threadEndHook)(void* hookArgument);
};

enum PelKernelType : uint32_t { PEL_TASK = 0, PEL_INDEXED = 1, PEL_RANGE = 2 };

using PelLoop = Status (*)(const PelContext* context, void* arguments, int32_t* cursor, int32_t end, uint32_t mask,
                           int32_t* pinState);

union PelDirect {
  Status (*task)(void* arguments, const PelContext* context);
  Status (*indexed)(void* arguments, int32_t index, const PelContext* context);
  Status (*range)(void* arguments, int32_t begin, int32_t end, const PelContext* context);
};

// The descriptor of one kernel pass. Make it with pelTask, pelIndexed or pelRange of parallel/pel_kernel.h.
struct PelKernel {
  PelLoop loop;
  PelDirect direct;
  uint32_t type;
};

struct PelContext {
  Pel* pel;             // null in direct runs
  int32_t workerIndex;  // 0 in direct runs; scratch is indexed by it
  int32_t count;        // size of the index range
  uint32_t job;
};

struct PelEvent;
// One entry in the list of those who wait for an event.
struct PelLink {
  PelLink* next;
  PelEvent* waiting;
};
// The share of one worker in a running job. Parts come in groups of numberOfWorkers.
struct PelPart {
  int32_t begin;  // shared cursor, atomic; in the first part of a free group the index of the next one, -1 at the end
  int32_t end;
};

struct PelEvent {
  PelEvent* link;      // next job of the ready queue; 0 outside; 1 once it has left
  uint32_t id;         // the handle; its low 14 bits are the table index exactly while the event is live
  Status status;       // OR of the results of the job and of its dependencies
  int32_t references;  // handles held by clients
  int32_t users;       // open dependencies; once the job is ready: workers inside
  int32_t count;       // 0 for a task
  PelLoop function;    // null: nothing to run
  void* arguments;
  PelPart* parts;       // the division while the job runs
  PelLink* dependents;  // 0 not complete, none; 1 complete; else the first who waits
  PelLink* dependentsTail;
};

// Which worker a thread is.
struct PelWorker {
  pthread_t thread;
  int32_t index;
};

struct Pel {
  PelParams requested;  // set by the owner before Pel_init
  Env* env;
  uint32_t flags;    // bit 0: initialised; atomic
  PelParams active;  // copied by Pel_init, numberOfWorkers filled in
  PelEvent events[kPelEvents];
  PelEvent stopEvent;   // at the head of the ready queue it sends the workers home
  PelEvent* readyHead;  // written under the queue lock, atomic
  PelEvent* readyTail;
  PelLink* freeLinks;
  PelLink links[kPelEvents];
  PelPart* freeParts;
  PelPart parts[kPelParts];
  int32_t threadCount;
  int32_t nextWorkerIndex;  // atomic
  int32_t freeEvents;
  uint32_t eventCursor;   // handle to try next
  uint32_t enqueuedJobs;  // running totals, atomic
  uint32_t dequeuedJobs;
  uint32_t completedJobs;
  int32_t helping;            // a waiter is inside the worker loop
  uint8_t processorList[32];  // processor of each worker
  Lock eventLock;             // events, links
  Lock queueLock;             // ready queue, parts
  Lock stealLock;             // one steal at a time
  Condition ready;            // on queueLock
  Condition completion;       // on eventLock
  Thread threads[kPelThreads];
  PelWorker workers[kPelThreads];  // by thread id
  int32_t startedWorkers;          // atomic
  int32_t spins;                   // whether workers look out for work before they sleep
};

extern "C" {
int32_t Pel_getBufferSize() ZVT4_NAME(Pel_getBufferSize);
Status construct_Pel(Pel* pel, Env* env) ZVT4_NAME(construct_Pel);
Status destruct_Pel(Pel* pel) ZVT4_NAME(destruct_Pel);
Status Pel_resetParams(Pel* pel) ZVT4_NAME(Pel_resetParams);
Status Pel_getParams(const Pel* pel, PelParams* out) ZVT4_NAME(Pel_getParams);
Status Pel_init(Pel* pel) ZVT4_NAME(Pel_init);
Status Pel_recycle(Pel* pel) ZVT4_NAME(Pel_recycle);
int32_t Pel_getNumberOfWorkers(const Pel* pel) ZVT4_NAME(Pel_getNumberOfWorkers);
Status Pel_execute(Pel* pel, const PelKernel* kernel, void* arguments, int32_t count) ZVT4_NAME(Pel_execute);
Status Pel_enqueueKernel(Pel* pel, const PelKernel* kernel, void* arguments, int32_t count, int32_t waitCount,
                         const uint32_t* waitList, uint32_t* eventOut) ZVT4_NAME(Pel_enqueueKernel);
Status Pel_enqueueTask(Pel* pel, const PelKernel* kernel, void* arguments, int32_t waitCount, const uint32_t* waitList,
                       uint32_t* eventOut) ZVT4_NAME(Pel_enqueueTask);
Status Pel_waitForEvents(Pel* pel, int32_t eventCount, const uint32_t* events) ZVT4_NAME(Pel_waitForEvents);
Status Pel_retainEvent(Pel* pel, uint32_t event) ZVT4_NAME(Pel_retainEvent);
Status Pel_releaseEvent(Pel* pel, uint32_t event) ZVT4_NAME(Pel_releaseEvent);
Status Pel_getEventInfo(Pel* pel, uint32_t event, uint32_t what, Status* out) ZVT4_NAME(Pel_getEventInfo);
Status Pel_getEventProfilingInfo(Pel* pel, uint32_t event, uint32_t what, uint64_t* out)
    ZVT4_NAME(Pel_getEventProfilingInfo);
Status Pel_finish(Pel* pel) ZVT4_NAME(Pel_finish);
}

// For jobs whose block lives no longer than the call that waits: a timed wait that runs out is begun anew, so that no
// return leaves the job open. Otherwise Pel_execute, and Pel_waitForEvents of one event.
Status executeToEnd(Pel* pel, const PelKernel* kernel, void* arguments, int32_t count);
Status waitToEnd(Pel* pel, uint32_t event);
// The same for a job that has mostly ended, and the release of its event.
Status endEvent(Pel* pel, uint32_t event);

#endif  // ZVT4_PARALLEL_PEL_H_
