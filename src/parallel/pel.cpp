#include "parallel/pel.h"

#include <sched.h>

#include <cstring>
#include <initializer_list>

#include "parallel/pel_impl.h"
#include "parallel/spin.h"
#include "parallel/syscall.h"

using namespace pel_detail;

namespace {

constexpr PelParams kDefaults = {.numberOfWorkers = 0,
                                 .affinityMask = 0,
                                 .callerAffinityMask = 0,
                                 .callerIsWorker = 1,
                                 .pinWorkers = 0,
                                 .stealWork = 0,
                                 .waitMillis = 3000,
                                 .hookArgument = nullptr,
                                 .threadStartHook = nullptr,
                                 .threadEndHook = nullptr};

Status threadMain(void* argument) {
  Pel* const pel = static_cast<Pel*>(argument);
  const PelParams& params = pel->active;
  const int32_t index = atomicFetchAdd(&pel->nextWorkerIndex, 1);
  pel->workers[params.callerIsWorker != 0 ? index - 1 : index] = {Thread_getId(), index};
  atomicFetchAdd(&pel->startedWorkers, 1);
  if (params.threadStartHook != nullptr) params.threadStartHook(params.hookArgument);
  const Status status = runWorker(pel, index, 0, nullptr);
  if (params.threadEndHook != nullptr) params.threadEndHook(params.hookArgument);
  return status;
}

// The highest processors of the mask come first, so that the caller, worker 0, gets the highest one.
void fillProcessorList(Pel* pel) {
  const int32_t workers = pel->active.numberOfWorkers;
  uint32_t mask = pel->active.affinityMask;
  if (mask == 0) mask = workers >= 32 ? ~0u : (1u << workers) - 1;
  int32_t n = 0;
  for (int32_t bit = 31; bit >= 0; --bit) {
    if ((mask >> bit & 1) != 0) pel->processorList[n++] = static_cast<uint8_t>(bit);
  }
  for (int32_t i = n; i < 32; ++i) pel->processorList[i] = pel->processorList[i - n];
}

void resetTables(Pel* pel) {
  pel->eventCursor = 0;
  pel->freeEvents = kPelEvents;
  for (uint32_t k = 0; k < kPelEvents; ++k) pel->events[k].id = k + 1;
  pel->freeLinks = &pel->links[0];
  for (int32_t k = 0; k < kPelEvents; ++k) {
    pel->links[k] = {k + 1 < kPelEvents ? &pel->links[k + 1] : nullptr, nullptr};
  }
  const int32_t workers = pel->active.numberOfWorkers;
  const int32_t groups = kPelParts / workers;
  pel->freeParts = &pel->parts[0];
  for (int32_t g = 0; g < groups; ++g) pel->parts[g * workers].begin = g + 1 < groups ? (g + 1) * workers : -1;
  atomicStore(&pel->readyHead, static_cast<PelEvent*>(nullptr));
  pel->readyTail = nullptr;
  pel->enqueuedJobs = 0;
  pel->dequeuedJobs = 0;
  pel->completedJobs = 0;
  pel->helping = 0;
}

Status initLocks(Pel* pel) {
  for (Lock* lock : {&pel->eventLock, &pel->queueLock, &pel->stealLock}) {
    if (const Status status = Lock_init(lock, LOCK_REENTRANT); status != ZELVAN_OK) return status;
  }
  if (const Status status = Condition_init(&pel->ready, &pel->queueLock); status != ZELVAN_OK) return status;
  return Condition_init(&pel->completion, &pel->eventLock);
}

// Sends all workers home: the queue is replaced by the stop event.
Status postStop(Pel* pel) {
  Status status = Lock_lock(&pel->queueLock);
  if (status != ZELVAN_OK) return status;
  if (pel->readyHead == nullptr) status = Condition_signalAll(&pel->ready);
  atomicStore(&pel->readyHead, &pel->stopEvent);
  return status | Lock_unlock(&pel->queueLock);
}

Status startThreads(Pel* pel) {
  pel->startedWorkers = 0;
  pel->nextWorkerIndex = pel->active.callerIsWorker != 0 ? 1 : 0;
  for (int32_t i = 0; i < pel->threadCount; ++i) {
    Status status = Thread_start(&pel->threads[i], threadMain, pel);
    if (status == ZELVAN_OK) continue;
    status |= postStop(pel);
    for (int32_t k = 0; k < i; ++k) status |= Thread_join(&pel->threads[k]);
    return status;
  }
  while (atomicLoad(&pel->startedWorkers) != pel->threadCount) sched_yield();
  return ZELVAN_OK;
}

void sortWorkers(Pel* pel) {
  for (int32_t i = 1; i < pel->threadCount; ++i) {
    const PelWorker worker = pel->workers[i];
    int32_t k = i;
    for (; k > 0 && pel->workers[k - 1].thread > worker.thread; --k) pel->workers[k] = pel->workers[k - 1];
    pel->workers[k] = worker;
  }
}

}  // namespace

int32_t pel_detail::findWorker(const Pel* pel) {
  const pthread_t self = Thread_getId();
  int32_t low = 0;
  int32_t high = pel->threadCount;
  while (low < high) {
    const int32_t middle = (low + high) / 2;
    const PelWorker& worker = pel->workers[middle];
    if (worker.thread == self) return worker.index;
    if (worker.thread < self) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return pel->active.callerIsWorker != 0 ? 0 : -1;
}

int32_t Pel_getBufferSize() {
  return Lock_getBufferSize(LOCK_REENTRANT) * 4 + Condition_getBufferSize() * 2 + Thread_getBufferSize() * kPelThreads;
}

Status construct_Pel(Pel* pel, Env* env) {
  if (pel == nullptr) return ZELVAN_ERROR_PARAM;
  std::memset(pel, 0, sizeof(*pel));
  pel->env = env;
  Status status = ZELVAN_OK;
  for (Lock* lock : {&pel->eventLock, &pel->queueLock, &pel->stealLock}) status |= construct_Lock(lock, env);
  status |= construct_Condition(&pel->ready, env);
  status |= construct_Condition(&pel->completion, env);
  for (Thread& thread : pel->threads) status |= construct_Thread(&thread, env);
  return status | Pel_resetParams(pel);
}

Status destruct_Pel(Pel* pel) {
  if (pel == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status status = Pel_recycle(pel); status != ZELVAN_OK) return status;
  Status status = ZELVAN_OK;
  for (int32_t i = kPelThreads - 1; i >= 0; --i) status |= destruct_Thread(&pel->threads[i]);
  if (status != ZELVAN_OK) return status;  // a thread may still use the record
  status |= destruct_Condition(&pel->completion);
  status |= destruct_Condition(&pel->ready);
  for (Lock* lock : {&pel->stealLock, &pel->queueLock, &pel->eventLock}) status |= destruct_Lock(lock);
  std::memset(pel, 0, sizeof(*pel));
  return status;
}

Status Pel_resetParams(Pel* pel) {
  if (pel == nullptr) return ZELVAN_ERROR_PARAM;
  pel->requested = kDefaults;
  return ZELVAN_OK;
}

Status Pel_getParams(const Pel* pel, PelParams* out) {
  if (out == nullptr) return ZELVAN_ERROR_PARAM;
  if (pel != nullptr && isInitialised(pel)) {
    *out = pel->active;
  } else {
    *out = kDefaults;
    out->numberOfWorkers = 1;  // what an absent Pel amounts to
  }
  return ZELVAN_OK;
}

Status Pel_init(Pel* pel) {
  if (pel == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status status = Pel_recycle(pel); status != ZELVAN_OK) return status;
  PelParams& params = pel->active;
  params = pel->requested;
  if (params.numberOfWorkers < 1) {
    const int32_t processors = Syscall_getNumberOfProcessors(pel->env);
    params.numberOfWorkers = processors > 1 ? processors : 1;
  }
  pel->threadCount = params.numberOfWorkers - (params.callerIsWorker != 0 ? 1 : 0);
  if (pel->threadCount > kPelThreads) return ZELVAN_ERROR_PARAM;
  fillProcessorList(pel);
  resetTables(pel);
  if (const Status status = initLocks(pel); status != ZELVAN_OK) return status;
  pel->spins = canSpin(params.numberOfWorkers);
  if (const Status status = startThreads(pel); status != ZELVAN_OK) return status;
  sortWorkers(pel);
  atomicStore(&pel->flags, kInitialised);
  return ZELVAN_OK;
}

Status Pel_recycle(Pel* pel) {
  if (pel == nullptr) return ZELVAN_ERROR_PARAM;
  if (!isInitialised(pel)) return ZELVAN_OK;
  atomicStore(&pel->flags, 0u);
  if (const Status status = postStop(pel); status != ZELVAN_OK) return status;
  for (int32_t i = 0; i < pel->threadCount; ++i) {
    if (const Status status = Thread_join(&pel->threads[i]); status != ZELVAN_OK) return status;
  }
  Status status = Condition_recycle(&pel->completion) | Condition_recycle(&pel->ready);
  for (Lock* lock : {&pel->stealLock, &pel->queueLock, &pel->eventLock}) status |= Lock_recycle(lock);
  return status;
}

int32_t Pel_getNumberOfWorkers(const Pel* pel) {
  return pel != nullptr && isInitialised(pel) ? pel->active.numberOfWorkers : 1;
}
