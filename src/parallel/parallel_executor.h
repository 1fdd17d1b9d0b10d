// ParallelExecutor: the fork/join pool. The caller copies small argument blocks into tasks; worker threads run them;
// ParallelExecutor_join collects their statuses. A null executor is legal everywhere and runs the work in the caller.
#ifndef ZVT4_PARALLEL_PARALLEL_EXECUTOR_H_
#define ZVT4_PARALLEL_PARALLEL_EXECUTOR_H_

#include "parallel/linked_blocking_queue.h"
#include "parallel/pel.h"
#include "parallel/thread.h"

using TaskFunction = Status (*)(void* arguments);
using IndexedFunction = Status (*)(void* argument, int32_t index, int32_t count);

struct ParallelExecutorTask {
  Status result;
  TaskFunction function;
  // the argument block follows
};

struct ParallelExecutorBridgeSlot {
  TaskFunction function;
  void* arguments;
};

struct ParallelExecutorBridge {
  Pel* pel;
  int32_t slots;      // 2 x capacity
  int32_t usedSlots;  // atomic
  ParallelExecutorBridgeSlot* slotArray;
  uint32_t* events;
};

struct ParallelExecutor {
  Env* env;
  int32_t threadCount;     // wanted threads; negative: all processors; default -1
  int32_t callerWorks;     // default 0
  int32_t pin;             // default 1
  uint32_t processorMask;  // 0: a thread takes the processor of its own number
  uint32_t callerMask;     // 0: all ones
  Pel* pel;                // when set, no threads of its own
  uint32_t furtherSettings[6];
  int32_t shutdown;  // atomic
  int32_t maximumThreads;
  int32_t startedThreads;
  int32_t alive;  // atomic
  int32_t tasks;  // atomic
  LinkedBlockingQueue taskQueue;
  LinkedBlockingQueue finishedQueue;
  Thread* threads;
  uint8_t processorList[32];
  int32_t processorListLength;
  Status executeStatus;  // atomic
  IndexedFunction executeFunction;
  void* executeArgument;
  int32_t executeNextIndex;  // atomic
  int32_t executeCount;
  ParallelExecutorBridge* bridge;
};

extern "C" {
int32_t ParallelExecutor_getBufferSize(int32_t threads, int32_t capacity, int32_t argumentSize, int32_t taskCount)
    ZVT4_NAME(ParallelExecutor_getBufferSize);
Status construct_ParallelExecutor(ParallelExecutor* executor, Env* env) ZVT4_NAME(construct_ParallelExecutor);
Status destruct_ParallelExecutor(ParallelExecutor* executor) ZVT4_NAME(destruct_ParallelExecutor);
Status ParallelExecutor_init(ParallelExecutor* executor, int32_t maximumThreads, int32_t capacity)
    ZVT4_NAME(ParallelExecutor_init);
Status ParallelExecutor_recycle(ParallelExecutor* executor) ZVT4_NAME(ParallelExecutor_recycle);
Status ParallelExecutor_fork(ParallelExecutor* executor, TaskFunction function, const void* arguments, int32_t size)
    ZVT4_NAME(ParallelExecutor_fork);
Status ParallelExecutor_fork_v1(ParallelExecutor* executor, ParallelExecutorTask* task)
    ZVT4_NAME(ParallelExecutor_fork_v1);
Status ParallelExecutor_join(ParallelExecutor* executor) ZVT4_NAME(ParallelExecutor_join);
Status ParallelExecutor_join2(ParallelExecutor* executor, Status* statusOut) ZVT4_NAME(ParallelExecutor_join2);
Status ParallelExecutor_execute(ParallelExecutor* executor, IndexedFunction function, void* argument, int32_t count,
                                Status* statusOut) ZVT4_NAME(ParallelExecutor_execute);
Status ParallelExecutor_shutdown(ParallelExecutor* executor) ZVT4_NAME(ParallelExecutor_shutdown);
ParallelExecutorTask* ParallelExecutor_newTask(ParallelExecutor* executor, TaskFunction function, const void* arguments,
                                               int32_t size) ZVT4_NAME(ParallelExecutor_newTask);
ParallelExecutorTask* ParallelExecutor_newTask_v1(ParallelExecutor* executor, TaskFunction function, int32_t size)
    ZVT4_NAME(ParallelExecutor_newTask_v1);
Status ParallelExecutor_deleteTask(ParallelExecutor* executor, ParallelExecutorTask* task)
    ZVT4_NAME(ParallelExecutor_deleteTask);
int32_t ParallelExecutor_put(ParallelExecutor* executor, ParallelExecutorTask* task) ZVT4_NAME(ParallelExecutor_put);
int32_t ParallelExecutor_offer(ParallelExecutor* executor, ParallelExecutorTask* task)
    ZVT4_NAME(ParallelExecutor_offer);
int32_t ParallelExecutor_offerMillis(ParallelExecutor* executor, ParallelExecutorTask* task, int32_t millis)
    ZVT4_NAME(ParallelExecutor_offerMillis);
ParallelExecutorTask* ParallelExecutor_take(ParallelExecutor* executor) ZVT4_NAME(ParallelExecutor_take);
ParallelExecutorTask* ParallelExecutor_poll(ParallelExecutor* executor) ZVT4_NAME(ParallelExecutor_poll);
ParallelExecutorTask* ParallelExecutor_pollMillis(ParallelExecutor* executor, int32_t millis)
    ZVT4_NAME(ParallelExecutor_pollMillis);
int32_t ParallelExecutor_getNumberOfTasks(ParallelExecutor* executor) ZVT4_NAME(ParallelExecutor_getNumberOfTasks);
int32_t ParallelExecutor_getNumberOfWaitingTasks(ParallelExecutor* executor)
    ZVT4_NAME(ParallelExecutor_getNumberOfWaitingTasks);
int32_t ParallelExecutor_getNumberOfFinishedTasks(ParallelExecutor* executor)
    ZVT4_NAME(ParallelExecutor_getNumberOfFinishedTasks);
}

// How many bands a kernel cuts its rows into: 1 for a null executor, the bridge's slot count in the bridge form, else
// the capacity of the task queue. Not the number of threads.
int32_t ParallelExecutor_getNumberOfBands(ParallelExecutor* executor);

#endif  // ZVT4_PARALLEL_PARALLEL_EXECUTOR_H_
