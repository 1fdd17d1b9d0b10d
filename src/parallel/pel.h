// Pel: kernels and single tasks on a fixed set of workers, with events and wait lists. The thread that waits is
// worker 0 and takes part.
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
  uint32_t waitMillis;
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
struct PelLink {
  PelLink* next;
  PelEvent* waiting;
};
struct PelPart {
  int32_t begin;  // shared cursor, atomic; in a free group the index of the next free group, -1 at the end
  int32_t end;
};

struct PelEvent {
  PelEvent* link;  // next job of the ready queue; 0 outside; 1 once it has left
  uint32_t id;
  Status status;
  int32_t references;
  int32_t users;
  int32_t count;
  PelLoop function;
  void* arguments;
  PelPart* parts;
  PelLink* dependents;  // 0 not complete, none; 1 complete; else the first who waits
  PelLink* dependentsTail;
};

struct PelWorker {
  pthread_t thread;
  int32_t index;
};

struct Pel {
  PelParams requested;
  Env* env;
  uint32_t flags;  // bit 0: initialised
  PelParams active;
  PelEvent events[kPelEvents];
  PelEvent stopEvent;
  PelEvent* readyHead;
  PelEvent* readyTail;
  PelLink* freeLinks;
  PelLink links[kPelEvents];
  PelPart* freeParts;
  PelPart parts[kPelParts];
  int32_t threadCount;
  int32_t nextWorkerIndex;  // atomic
  int32_t freeEvents;
  uint32_t eventCursor;
  uint32_t enqueuedJobs;
  uint32_t dequeuedJobs;
  uint32_t completedJobs;
  int32_t helping;
  uint8_t processorList[32];
  Lock eventLock;
  Lock queueLock;
  Lock stealLock;
  Condition ready;
  Condition completion;
  Thread threads[kPelThreads];
  PelWorker workers[kPelThreads];
  int32_t startedWorkers;  // atomic
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

#endif  // ZVT4_PARALLEL_PEL_H_
