#include "parallel/parallel_executor.h"

#include <algorithm>
#include <cstring>

#include "base/atomic.h"
#include "parallel/parallel_executor_bridge.h"
#include "parallel/spin.h"
#include "parallel/syscall.h"

namespace {

// Its address in the task queue tells a thread to leave.
ParallelExecutorTask stopMarker;

constexpr uint64_t kRecountNanos = 10000000;

int32_t callerShare(const ParallelExecutor* executor) {
  return executor->callerWorks != 0 ? 1 : 0;
}

void* argumentsOf(ParallelExecutorTask* task) {
  return task + 1;
}

// A number without a bit in the mask gives the empty mask, which the system refuses: the thread then stays as it is.
void pinTo(const ParallelExecutor* executor, int32_t processor) {
  Syscall_setThreadAffinityMask(executor->env, processor < 32 ? 1u << processor : 0);
}

int32_t processorOf(const ParallelExecutor* executor, int32_t number) {
  const int32_t length = executor->processorListLength;
  return length > 0 ? executor->processorList[number % length] : number;
}

void runItem(ParallelExecutor* executor, void* item) {
  if (item == executor) {
    const int32_t index = atomicFetchAdd(&executor->executeNextIndex, 1);
    const Status result = executor->executeFunction(executor->executeArgument, index, executor->executeCount);
    atomicFetchOr(&executor->executeStatus, result);
    return;
  }
  auto* task = static_cast<ParallelExecutorTask*>(item);
  task->result = task->function(argumentsOf(task));
}

void cancelItem(ParallelExecutor* executor, void* item) {
  if (item == executor) {
    atomicFetchOr(&executor->executeStatus, ZELVAN_STATUS_CANCELLED);
  } else {
    static_cast<ParallelExecutorTask*>(item)->result = ZELVAN_STATUS_CANCELLED;
  }
}

// The next item of a queue that is about to have one.
void* takeItem(const ParallelExecutor* executor, LinkedBlockingQueue* queue) {
  if (executor->spins != 0) spinBriefly([=] { return LinkedBlockingQueue_size(queue) > 0; });
  return LinkedBlockingQueue_take(queue);
}

Status work(void* argument) {
  auto* executor = static_cast<ParallelExecutor*>(argument);
  const int32_t number = atomicFetchAdd(&executor->alive, 1);
  const int32_t processor = processorOf(executor, number);
  for (;;) {
    // Anew for each item: a task may have moved the thread.
    if (executor->pin != 0) pinTo(executor, processor);
    void* item = takeItem(executor, &executor->taskQueue);
    if (item == &stopMarker) break;
    if (atomicLoad(&executor->shutdown) != 0) {
      cancelItem(executor, item);
    } else {
      runItem(executor, item);
    }
    LinkedBlockingQueue_put(&executor->finishedQueue, item);
  }
  LinkedBlockingQueue_put(&executor->taskQueue, &stopMarker);
  atomicFetchAdd(&executor->alive, -1);
  return ZELVAN_OK;
}

// Starts the threads that are wanted now and not there yet. Each fork calls it; the processors, which cost a file to
// read, are counted between batches, and not for each of many short ones.
Status topUp(ParallelExecutor* executor) {
  const int32_t share = callerShare(executor);
  const int32_t room =
      std::min(executor->maximumThreads, LinkedBlockingQueue_getCapacity(&executor->taskQueue) - share);
  if (executor->startedThreads >= room) return ZELVAN_OK;
  if (executor->threadCount < 0 && atomicLoad(&executor->tasks) == 0) {
    const uint64_t now = Env_getTick(executor->env);
    if (executor->processors == 0 || now - executor->processorsTick >= kRecountNanos) {
      executor->processors = Syscall_getNumberOfProcessors(executor->env);
      executor->processorsTick = now;
    }
  }
  const int32_t wanted = executor->threadCount < 0 ? executor->processors - share : executor->threadCount;
  const int32_t limit = std::min(wanted, room);
  while (executor->startedThreads < limit) {
    const Status status = Thread_start(&executor->threads[executor->startedThreads], work, executor);
    if (status != ZELVAN_OK) return status;
    ++executor->startedThreads;
  }
  return ZELVAN_OK;
}

// Ends and joins the threads, checks that the stop marker comes back alone, and frees the thread array.
Status stopThreads(ParallelExecutor* executor) {
  Status status = ZELVAN_OK;
  if (LinkedBlockingQueue_put(&executor->taskQueue, &stopMarker) == 0) status |= ZELVAN_ERROR_STATE;
  for (int32_t i = 0; i < executor->startedThreads; ++i) status |= Thread_join(&executor->threads[i]);
  executor->startedThreads = 0;
  if (LinkedBlockingQueue_poll(&executor->taskQueue) != &stopMarker) status |= ZELVAN_ERROR_STATE;
  if (LinkedBlockingQueue_poll(&executor->taskQueue) != nullptr) status |= ZELVAN_ERROR_STATE;
  for (int32_t i = 0; i < executor->maximumThreads; ++i) status |= destruct_Thread(&executor->threads[i]);
  status |= Heap2_free(&executor->env->heap, executor->threads);
  executor->threads = nullptr;
  return status;
}

Status destructQueues(ParallelExecutor* executor) {
  const Status status = destruct_LinkedBlockingQueue(&executor->taskQueue);
  return status | destruct_LinkedBlockingQueue(&executor->finishedQueue);
}

Status constructQueues(ParallelExecutor* executor) {
  const Status status = construct_LinkedBlockingQueue(&executor->taskQueue, executor->env);
  return status | construct_LinkedBlockingQueue(&executor->finishedQueue, executor->env);
}

// Moves what waits to the finished queue, cancelled. A task for which there is no room there goes back: the threads,
// which cancel by themselves from now on, get to it while the join makes room.
void cancelWaiting(ParallelExecutor* executor) {
  while (void* item = LinkedBlockingQueue_poll(&executor->taskQueue)) {
    cancelItem(executor, item);
    if (LinkedBlockingQueue_offer(&executor->finishedQueue, item) == 0) {
      LinkedBlockingQueue_offer(&executor->taskQueue, item);
      return;
    }
  }
}

// Drops a task that nobody will join any more.
Status discard(ParallelExecutor* executor, void* task) {
  atomicFetchAdd(&executor->tasks, -1);
  return ZELVAN_ERROR_STATE | Heap2_free(&executor->env->heap, task);
}

// The working caller's part: runs what waits, pinned to the first processor meanwhile. Indices of an execute are only
// counted; tasks go to the finished queue.
Status workInCaller(ParallelExecutor* executor, int32_t* indicesRun) {
  if (executor->pin != 0) pinTo(executor, processorOf(executor, 0));
  Status status = ZELVAN_OK;
  while (void* item = LinkedBlockingQueue_poll(&executor->taskQueue)) {
    runItem(executor, item);
    if (item == executor) {
      ++*indicesRun;
    } else if (LinkedBlockingQueue_offer(&executor->finishedQueue, item) == 0) {
      status |= discard(executor, item);
    }
  }
  if (executor->pin != 0) {
    Syscall_setThreadAffinityMask(executor->env, executor->callerMask != 0 ? executor->callerMask : 0xFFFFFFFFu);
  }
  return status;
}

// Counts the task before it can finish, and takes the count back when the queue refuses it.
template <typename Insert>
int32_t insertCounted(ParallelExecutor* executor, const Insert& insert) {
  if (executor == nullptr) return 0;
  atomicFetchAdd(&executor->tasks, 1);
  if (insert(&executor->taskQueue) != 0) return 1;
  atomicFetchAdd(&executor->tasks, -1);
  return 0;
}

template <typename Remove>
ParallelExecutorTask* removeCounted(ParallelExecutor* executor, const Remove& remove) {
  if (executor == nullptr) return nullptr;
  void* task = remove(&executor->finishedQueue);
  if (task != nullptr) atomicFetchAdd(&executor->tasks, -1);
  return static_cast<ParallelExecutorTask*>(task);
}

Status startThreads(ParallelExecutor* executor, int32_t maximumThreads, int32_t capacity) {
  executor->alive = callerShare(executor);
  for (int32_t bit = 0; bit < 32; ++bit) {
    if ((executor->processorMask >> bit & 1) != 0) {
      executor->processorList[executor->processorListLength++] = static_cast<uint8_t>(bit);
    }
  }
  if (const Status s = LinkedBlockingQueue_init(&executor->taskQueue, capacity); s != ZELVAN_OK) return s;
  if (const Status s = LinkedBlockingQueue_init(&executor->finishedQueue, capacity); s != ZELVAN_OK) return s;

  const uint64_t bytes = uint64_t{static_cast<uint32_t>(maximumThreads)} * sizeof(Thread);
  if (bytes > UINT32_MAX) return ZELVAN_ERROR_NOMEM;
  executor->threads = static_cast<Thread*>(Heap2_malloc(&executor->env->heap, static_cast<uint32_t>(bytes)));
  if (executor->threads == nullptr) return ZELVAN_ERROR_NOMEM;
  executor->maximumThreads = maximumThreads;
  for (int32_t i = 0; i < maximumThreads; ++i) construct_Thread(&executor->threads[i], executor->env);
  executor->spins = canSpin(executor->threadCount < 0 ? Syscall_getNumberOfProcessors(executor->env)
                                                      : executor->threadCount + callerShare(executor));
  const Status status = topUp(executor);
  return status == ZELVAN_OK ? status : status | stopThreads(executor);
}

}  // namespace

int32_t ParallelExecutor_getBufferSize(int32_t threads, int32_t capacity, int32_t argumentSize, int32_t taskCount) {
  if (threads < 1 || capacity < 1 || argumentSize < 0 || taskCount < 0) return -1;
  return taskCount * (argumentSize + 8) + threads * 24 + 2 * LinkedBlockingQueue_getBufferSize(capacity);
}

Status construct_ParallelExecutor(ParallelExecutor* executor, Env* env) {
  if (executor == nullptr) return ZELVAN_ERROR_PARAM;
  *executor = {};
  executor->env = env;
  executor->threadCount = -1;
  executor->pin = 1;
  return constructQueues(executor);
}

Status destruct_ParallelExecutor(ParallelExecutor* executor) {
  if (executor == nullptr) return ZELVAN_ERROR_PARAM;
  Status status = ZELVAN_OK;
  if (executor->bridge != nullptr) status |= releaseBridge(executor);
  if (executor->threads != nullptr) {
    status |= ParallelExecutor_shutdown(executor);
    status |= ParallelExecutor_join2(executor, nullptr);
    // A working caller's join gives up when it finds no room for finished tasks; the next one makes it.
    if (atomicLoad(&executor->tasks) > 0) status |= ParallelExecutor_join2(executor, nullptr);
    status |= stopThreads(executor);
    if (atomicFetchAdd(&executor->alive, -callerShare(executor)) != callerShare(executor)) status |= ZELVAN_ERROR_STATE;
    status |= destructQueues(executor);
  }
  *executor = {};
  return status;
}

Status ParallelExecutor_init(ParallelExecutor* executor, int32_t maximumThreads, int32_t capacity) {
  if (executor == nullptr || maximumThreads < 1 || capacity < 1) return ZELVAN_ERROR_PARAM;
  if (executor->threadCount == 0 && executor->callerWorks == 0) return ZELVAN_ERROR_PARAM;
  if (const Status status = ParallelExecutor_recycle(executor); status != ZELVAN_OK) return status;
  if (executor->pel != nullptr) return initBridge(executor, capacity);
  const Status status = startThreads(executor, maximumThreads, capacity);
  return status == ZELVAN_OK ? status : status | destructQueues(executor) | ParallelExecutor_recycle(executor);
}

Status ParallelExecutor_recycle(ParallelExecutor* executor) {
  if (executor == nullptr) return ZELVAN_ERROR_PARAM;
  unsigned char kept[offsetof(ParallelExecutor, shutdown)];  // env and settings
  std::memcpy(kept, executor, sizeof kept);
  const Status status = destruct_ParallelExecutor(executor);
  std::memcpy(static_cast<void*>(executor), kept, sizeof kept);
  return status | constructQueues(executor);
}

Status ParallelExecutor_fork(ParallelExecutor* executor, TaskFunction function, const void* arguments, int32_t size) {
  if (function == nullptr || (arguments == nullptr && size != 0)) return ZELVAN_ERROR_PARAM;
  if (executor == nullptr) return function(const_cast<void*>(arguments));
  if (atomicLoad(&executor->shutdown) != 0) return ZELVAN_STATUS_CANCELLED;
  if (executor->bridge != nullptr) return forkOverBridge(executor, function, arguments, size);
  ParallelExecutorTask* task = ParallelExecutor_newTask(executor, function, arguments, size);
  return task == nullptr ? ZELVAN_ERROR_NOMEM : ParallelExecutor_fork_v1(executor, task);
}

Status ParallelExecutor_fork_v1(ParallelExecutor* executor, ParallelExecutorTask* task) {
  if (executor == nullptr || task == nullptr) return ZELVAN_ERROR_PARAM;
  if (executor->bridge != nullptr) return ZELVAN_ERROR_UNSUPPORTED;
  if (atomicLoad(&executor->shutdown) != 0) return ZELVAN_STATUS_CANCELLED;
  topUp(executor);  // where no further thread can be had, those that there are do the work
  return ParallelExecutor_offer(executor, task) != 0 ? ZELVAN_OK : ZELVAN_ERROR_STATE;
}

Status ParallelExecutor_join(ParallelExecutor* executor) {
  Status combined = ZELVAN_OK;
  const Status status = ParallelExecutor_join2(executor, &combined);
  return status | combined;
}

Status ParallelExecutor_joinWorking(ParallelExecutor* executor) {
  int32_t indicesRun = 0;
  const Status status = workInCaller(executor, &indicesRun);
  return status | ParallelExecutor_join(executor);
}

Status ParallelExecutor_join2(ParallelExecutor* executor, Status* statusOut) {
  Status ignored;
  Status* combined = statusOut != nullptr ? statusOut : &ignored;
  *combined = ZELVAN_OK;
  if (executor == nullptr) return ZELVAN_OK;
  if (executor->bridge != nullptr) return joinOverBridge(executor, combined);
  if (executor->callerWorks != 0) {
    int32_t indicesRun = 0;
    if (const Status status = workInCaller(executor, &indicesRun); status != ZELVAN_OK) return status;
  }
  while (atomicLoad(&executor->tasks) > 0) {
    auto* task = static_cast<ParallelExecutorTask*>(takeItem(executor, &executor->finishedQueue));
    if (task == nullptr) return ZELVAN_ERROR_STATE;
    *combined |= task->result;
    if (const Status status = Heap2_free(&executor->env->heap, task); status != ZELVAN_OK) return status;
    atomicFetchAdd(&executor->tasks, -1);
  }
  return ZELVAN_OK;
}

Status ParallelExecutor_execute(ParallelExecutor* executor, IndexedFunction function, void* argument, int32_t count,
                                Status* statusOut) {
  if (function == nullptr) return ZELVAN_ERROR_PARAM;
  Status ignored;
  Status* combined = statusOut != nullptr ? statusOut : &ignored;
  *combined = ZELVAN_OK;
  if (executor == nullptr) {
    const int32_t indices = std::max(count, 1);
    for (int32_t i = 0; i < indices; ++i) *combined |= function(argument, i, indices);
    return ZELVAN_OK;
  }
  if (executor->bridge != nullptr) return executeOverBridge(executor, function, argument, count, combined);

  topUp(executor);
  executor->executeStatus = ZELVAN_OK;
  executor->executeFunction = function;
  executor->executeArgument = argument;
  executor->executeNextIndex = 0;
  executor->executeCount = count < 1 ? executor->startedThreads + callerShare(executor) : count;

  Status status = ZELVAN_OK;
  int32_t open = 0;
  while (open < executor->executeCount && status == ZELVAN_OK) {
    if (LinkedBlockingQueue_offer(&executor->taskQueue, executor) != 0) {
      ++open;
    } else {
      status = ZELVAN_ERROR_STATE;
    }
  }
  if (executor->callerWorks != 0) {
    int32_t indicesRun = 0;
    status |= workInCaller(executor, &indicesRun);
    open -= indicesRun;
  }
  // Every index that was queued comes back before the return, even when tasks of others stand between them: threads
  // would otherwise run on with an argument that is gone.
  while (open > 0) {
    void* item = takeItem(executor, &executor->finishedQueue);
    if (item == nullptr) return status | ZELVAN_ERROR_STATE;
    if (item == executor) {
      --open;
    } else {
      status |= discard(executor, item);
    }
  }
  while (void* item = LinkedBlockingQueue_poll(&executor->taskQueue)) status |= discard(executor, item);
  while (void* item = LinkedBlockingQueue_poll(&executor->finishedQueue)) status |= discard(executor, item);
  *combined = atomicLoad(&executor->executeStatus);
  return status;
}

bool ParallelExecutor_isShutDown(const ParallelExecutor* executor) {
  return executor != nullptr && atomicLoad(&executor->shutdown) != 0;
}

Status ParallelExecutor_getRefusal(const ParallelExecutor* executor) {
  if (executor == nullptr) return ZELVAN_OK;
  if (ParallelExecutor_isShutDown(executor)) return ZELVAN_STATUS_CANCELLED;
  return executor->bridge == nullptr && executor->threads == nullptr ? ZELVAN_ERROR_STATE : ZELVAN_OK;
}

bool ParallelExecutor_runsAnywhere(const ParallelExecutor* executor) {
  return executor != nullptr && executor->bridge == nullptr && executor->pin == 0;
}

Status ParallelExecutor_shutdown(ParallelExecutor* executor) {
  if (executor == nullptr) return ZELVAN_ERROR_PARAM;
  atomicStore(&executor->shutdown, 1);
  cancelWaiting(executor);
  return ZELVAN_OK;
}

ParallelExecutorTask* ParallelExecutor_newTask(ParallelExecutor* executor, TaskFunction function, const void* arguments,
                                               int32_t size) {
  if (arguments == nullptr && size != 0) return nullptr;
  ParallelExecutorTask* task = ParallelExecutor_newTask_v1(executor, function, size);
  if (task != nullptr && size > 0) std::memcpy(argumentsOf(task), arguments, static_cast<uint32_t>(size));
  return task;
}

ParallelExecutorTask* ParallelExecutor_newTask_v1(ParallelExecutor* executor, TaskFunction function, int32_t size) {
  if (executor == nullptr || function == nullptr || executor->bridge != nullptr) return nullptr;
  const uint32_t bytes = static_cast<uint32_t>(sizeof(ParallelExecutorTask)) + static_cast<uint32_t>(std::max(size, 0));
  auto* task = static_cast<ParallelExecutorTask*>(Heap2_malloc(&executor->env->heap, bytes));
  if (task == nullptr) return nullptr;
  std::memset(static_cast<void*>(task), 0, bytes);
  task->function = function;
  return task;
}

Status ParallelExecutor_deleteTask(ParallelExecutor* executor, ParallelExecutorTask* task) {
  if (executor == nullptr || task == nullptr) return ZELVAN_ERROR_PARAM;
  if (executor->bridge != nullptr) return ZELVAN_ERROR_UNSUPPORTED;
  return Heap2_free(&executor->env->heap, task);
}

int32_t ParallelExecutor_put(ParallelExecutor* executor, ParallelExecutorTask* task) {
  return insertCounted(executor, [=](LinkedBlockingQueue* queue) { return LinkedBlockingQueue_put(queue, task); });
}

int32_t ParallelExecutor_offer(ParallelExecutor* executor, ParallelExecutorTask* task) {
  return insertCounted(executor, [=](LinkedBlockingQueue* queue) { return LinkedBlockingQueue_offer(queue, task); });
}

int32_t ParallelExecutor_offerMillis(ParallelExecutor* executor, ParallelExecutorTask* task, int32_t millis) {
  return insertCounted(
      executor, [=](LinkedBlockingQueue* queue) { return LinkedBlockingQueue_offerMillis(queue, task, millis); });
}

ParallelExecutorTask* ParallelExecutor_take(ParallelExecutor* executor) {
  return removeCounted(executor, LinkedBlockingQueue_take);
}

ParallelExecutorTask* ParallelExecutor_poll(ParallelExecutor* executor) {
  return removeCounted(executor, LinkedBlockingQueue_poll);
}

ParallelExecutorTask* ParallelExecutor_pollMillis(ParallelExecutor* executor, int32_t millis) {
  return removeCounted(executor,
                       [=](LinkedBlockingQueue* queue) { return LinkedBlockingQueue_pollMillis(queue, millis); });
}

int32_t ParallelExecutor_getNumberOfTasks(ParallelExecutor* executor) {
  return executor == nullptr || executor->bridge != nullptr ? -1 : atomicLoad(&executor->tasks);
}

int32_t ParallelExecutor_getNumberOfWaitingTasks(ParallelExecutor* executor) {
  return executor == nullptr || executor->bridge != nullptr ? -1 : LinkedBlockingQueue_size(&executor->taskQueue);
}

int32_t ParallelExecutor_getNumberOfFinishedTasks(ParallelExecutor* executor) {
  return executor == nullptr || executor->bridge != nullptr ? -1 : LinkedBlockingQueue_size(&executor->finishedQueue);
}

int32_t ParallelExecutor_getNumberOfBands(ParallelExecutor* executor) {
  if (executor == nullptr) return 1;
  if (executor->bridge != nullptr) return executor->bridge->slots;
  return std::max(LinkedBlockingQueue_getCapacity(&executor->taskQueue), 1);
}

int32_t ParallelExecutor_getNumberOfWorkers(ParallelExecutor* executor) {
  if (executor == nullptr) return 1;
  if (executor->bridge != nullptr) return Pel_getNumberOfWorkers(executor->bridge->pel);
  if (executor->threads == nullptr) return 1;
  if (atomicLoad(&executor->shutdown) == 0) topUp(executor);
  return std::max(executor->startedThreads + callerShare(executor), 1);
}
