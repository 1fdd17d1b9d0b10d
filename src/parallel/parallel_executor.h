// ParallelExecutor: the fork/join pool. The caller copies small argument blocks into tasks; worker threads run them;
// ParallelExecutor_join collects their statuses.
//
//   fork -> task queue -> worker threads -> finished queue -> join
//
// A null executor is legal everywhere and runs the work at once in the caller. One thread forks and joins; it never
// forks more tasks than the capacity between two joins, since a task that finds the queue full is dropped. Kernels fork
// through parallel/bands.h, which runs in the caller what a fork refuses.
//
// Two forms. In the thread form the executor has threads of its own, which exist from init to destruct and block in the
// task queue between jobs, after looking out for the next one a moment. In the bridge form, chosen by the pel setting,
// it forwards its tasks to that Pel.
//
// Tasks live in the arena: a header and the copied argument block straight behind it. The executor's own address in the
// queues stands for one index of a ParallelExecutor_execute, and a private stop marker ends the threads.
#ifndef ZVT4_PARALLEL_PARALLEL_EXECUTOR_H_
#define ZVT4_PARALLEL_PARALLEL_EXECUTOR_H_

#include "parallel/linked_blocking_queue.h"
#include "parallel/pel.h"
#include "parallel/thread.h"

using TaskFunction = Status (*)(void* arguments);
using IndexedFunction = Status (*)(void* argument, int32_t index, int32_t count);

struct ParallelExecutorTask {
  Status result;  // what function returned, or ZELVAN_STATUS_CANCELLED
  TaskFunction function;
  // the argument block follows
};

struct ParallelExecutorBridgeSlot {
  TaskFunction function;
  void* arguments;  // arena copy
};

// One arena block, with both arrays behind the record.
struct ParallelExecutorBridge {
  Pel* pel;
  int32_t slots;      // 2 x capacity
  int32_t usedSlots;  // atomic
  ParallelExecutorBridgeSlot* slotArray;
  uint32_t* events;  // 0 where the task was refused
};

struct ParallelExecutor {
  Env* env;
  // Settings, read by init and kept by init and recycle.
  int32_t threadCount;     // wanted threads; negative: all processors; default -1
  int32_t callerWorks;     // nonzero: the joining thread runs tasks too; default 0; not changed while threads run
  int32_t pin;             // nonzero: threads are pinned to processors; default 1
  uint32_t processorMask;  // 0: a thread takes the processor of its own number
  uint32_t callerMask;     // given back to a working caller after a join; 0: all ones
  Pel* pel;                // when set, no threads of its own
  uint32_t furtherSettings[6];

  int32_t shutdown;  // atomic
  int32_t maximumThreads;
  int32_t startedThreads;
  int32_t alive;  // atomic; threads in their loop, and a working caller; the source of thread numbers
  int32_t tasks;  // atomic; forked and not yet joined
  LinkedBlockingQueue taskQueue;
  LinkedBlockingQueue finishedQueue;
  Thread* threads;            // maximumThreads; null in the bridge form
  uint8_t processorList[32];  // processors of the mask, ascending
  int32_t processorListLength;
  // The running ParallelExecutor_execute.
  Status executeStatus;  // atomic
  IndexedFunction executeFunction;
  void* executeArgument;
  int32_t executeNextIndex;  // atomic
  int32_t executeCount;
  ParallelExecutorBridge* bridge;  // null in the thread form
  int32_t processors;              // as last counted; 0: not yet
  uint64_t processorsTick;         // when
  int32_t spins;                   // whether threads look out for work before they sleep
};

extern "C" {
// The executor's share in its owner's arena sum, for tasks with argument blocks of argumentSize; -1 for counts below 1
// or negative sizes. Tasks and threads count as on 32-bit platforms, 8 bytes a header and 24 a thread.
int32_t ParallelExecutor_getBufferSize(int32_t threads, int32_t capacity, int32_t argumentSize, int32_t taskCount)
    ZVT4_NAME(ParallelExecutor_getBufferSize);

Status construct_ParallelExecutor(ParallelExecutor* executor, Env* env) ZVT4_NAME(construct_ParallelExecutor);

// Ends the executor: cancels what waits, joins it, ends and joins the threads, gives everything back to the arena and
// zeroes the record. ZELVAN_ERROR_STATE is added when a thread or a task is out of count.
Status destruct_ParallelExecutor(ParallelExecutor* executor) ZVT4_NAME(destruct_ParallelExecutor);

// Starts the executor by its settings, after ending what ran before. It starts as many threads as wanted, but no more
// than maximumThreads and the capacity (less the caller if it works). ZELVAN_ERROR_PARAM, with nothing changed, for
// arguments below 1 or settings by which nobody would run anything. After any other failure the executor holds nothing
// and can be started again.
Status ParallelExecutor_init(ParallelExecutor* executor, int32_t maximumThreads, int32_t capacity)
    ZVT4_NAME(ParallelExecutor_init);
Status ParallelExecutor_recycle(ParallelExecutor* executor) ZVT4_NAME(ParallelExecutor_recycle);

// Queues function(copy of the block) and does not wait. ZELVAN_ERROR_PARAM for a null function or a null block with a
// nonzero size; ZELVAN_STATUS_CANCELLED after a shutdown; ZELVAN_ERROR_NOMEM; ZELVAN_ERROR_STATE when the queue is
// full: the task is then never run, and its memory stays in the arena until the arena is recycled. With a null executor
// it calls function(arguments) and returns the result.
Status ParallelExecutor_fork(ParallelExecutor* executor, TaskFunction function, const void* arguments, int32_t size)
    ZVT4_NAME(ParallelExecutor_fork);
// Queues a task of ParallelExecutor_newTask. When it fails, the caller still owns the task. Not in the bridge form.
Status ParallelExecutor_fork_v1(ParallelExecutor* executor, ParallelExecutorTask* task)
    ZVT4_NAME(ParallelExecutor_fork_v1);

// Waits for all forked tasks and frees them. The OR of their results goes into the returned status or, in the second
// form, through statusOut, which may be null. A working caller first runs what waits in the queue.
Status ParallelExecutor_join(ParallelExecutor* executor) ZVT4_NAME(ParallelExecutor_join);
Status ParallelExecutor_join2(ParallelExecutor* executor, Status* statusOut) ZVT4_NAME(ParallelExecutor_join2);

// Runs function(argument, index, count) for each index from 0 to count - 1, waits, and gives the OR of the results
// through statusOut, which may be null. A count below 1 means one index per worker. Indices that the queue does not
// take are not run: ZELVAN_ERROR_STATE. The same word for tasks that were forked and not joined before; those that have
// ended by then are dropped.
Status ParallelExecutor_execute(ParallelExecutor* executor, IndexedFunction function, void* argument, int32_t count,
                                Status* statusOut) ZVT4_NAME(ParallelExecutor_execute);

// From here to the next init no task starts; those that wait come back from the join as ZELVAN_STATUS_CANCELLED.
Status ParallelExecutor_shutdown(ParallelExecutor* executor) ZVT4_NAME(ParallelExecutor_shutdown);

// A task that the caller owns until it is forked, with the block copied, or zeroed for the caller to fill. Null for a
// null executor or function, a null block with a nonzero size, in the bridge form, and when the arena refuses.
ParallelExecutorTask* ParallelExecutor_newTask(ParallelExecutor* executor, TaskFunction function, const void* arguments,
                                               int32_t size) ZVT4_NAME(ParallelExecutor_newTask);
ParallelExecutorTask* ParallelExecutor_newTask_v1(ParallelExecutor* executor, TaskFunction function, int32_t size)
    ZVT4_NAME(ParallelExecutor_newTask_v1);
Status ParallelExecutor_deleteTask(ParallelExecutor* executor, ParallelExecutorTask* task)
    ZVT4_NAME(ParallelExecutor_deleteTask);

// The queues' own operations with the task counted: 1 when the task went in, else 0.
int32_t ParallelExecutor_put(ParallelExecutor* executor, ParallelExecutorTask* task) ZVT4_NAME(ParallelExecutor_put);
int32_t ParallelExecutor_offer(ParallelExecutor* executor, ParallelExecutorTask* task)
    ZVT4_NAME(ParallelExecutor_offer);
int32_t ParallelExecutor_offerMillis(ParallelExecutor* executor, ParallelExecutorTask* task, int32_t millis)
    ZVT4_NAME(ParallelExecutor_offerMillis);
// A finished task, which the caller then owns, or null.
ParallelExecutorTask* ParallelExecutor_take(ParallelExecutor* executor) ZVT4_NAME(ParallelExecutor_take);
ParallelExecutorTask* ParallelExecutor_poll(ParallelExecutor* executor) ZVT4_NAME(ParallelExecutor_poll);
ParallelExecutorTask* ParallelExecutor_pollMillis(ParallelExecutor* executor, int32_t millis)
    ZVT4_NAME(ParallelExecutor_pollMillis);

// Tasks not yet joined, tasks that wait for a thread, tasks that wait for the join; -1 for null and in the bridge form.
int32_t ParallelExecutor_getNumberOfTasks(ParallelExecutor* executor) ZVT4_NAME(ParallelExecutor_getNumberOfTasks);
int32_t ParallelExecutor_getNumberOfWaitingTasks(ParallelExecutor* executor)
    ZVT4_NAME(ParallelExecutor_getNumberOfWaitingTasks);
int32_t ParallelExecutor_getNumberOfFinishedTasks(ParallelExecutor* executor)
    ZVT4_NAME(ParallelExecutor_getNumberOfFinishedTasks);
}

// How many bands a kernel cuts its rows into: 1 for a null executor and before a successful init, the bridge's slot
// count in the bridge form, else the capacity of the task queue. Not the number of threads.
int32_t ParallelExecutor_getNumberOfBands(ParallelExecutor* executor);

// How many can be at work between a fork and its join: the threads, after starting those that are wanted by now, and
// the caller if it works; in the bridge form the workers of the Pel. 1 for a null executor and before an init.
int32_t ParallelExecutor_getNumberOfWorkers(ParallelExecutor* executor);

// Whether its threads run on any processor, so that the caller can stand in for one of them.
bool ParallelExecutor_runsAnywhere(const ParallelExecutor* executor);
bool ParallelExecutor_isShutDown(const ParallelExecutor* executor);

// The status with which a fork is refused before a successful init and after a shutdown, else ZELVAN_OK.
Status ParallelExecutor_getRefusal(const ParallelExecutor* executor);

// A join whose caller first runs what no thread has begun, in the thread form.
Status ParallelExecutor_joinWorking(ParallelExecutor* executor);

#endif  // ZVT4_PARALLEL_PARALLEL_EXECUTOR_H_
