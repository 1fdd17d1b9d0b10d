// The client side of Pel: enqueuing jobs, waiting for them, event handles.
#include "parallel/pel.h"
#include "parallel/pel_impl.h"
#include "parallel/spin.h"
#include "parallel/syscall.h"

using namespace pel_detail;

namespace {

// What an absent Pel does.
Status runDirect(const PelKernel* kernel, void* arguments, int32_t count) {
  if (kernel == nullptr) return ZELVAN_OK;
  const PelContext context = {nullptr, 0, count, 0};
  Status status = ZELVAN_OK;
  switch (kernel->type) {
    case PEL_TASK:
      return kernel->direct.task(arguments, &context);
    case PEL_INDEXED:
      for (int32_t i = 0; i < count; ++i) status |= kernel->direct.indexed(arguments, i, &context);
      return status;
    case PEL_RANGE:
      return count >= 1 ? kernel->direct.range(arguments, 0, count, &context) : ZELVAN_OK;
  }
  return ZELVAN_OK;
}

// With the event lock held, which is given up meanwhile: lets one job make progress so that events and links come
// free. *stopped is set when the Pel is being shut down.
Status awaitResources(Pel* pel, bool* stopped) {
  if (!isInitialised(pel)) {
    *stopped = true;
    return ZELVAN_OK;
  }
  if (const int32_t worker = findWorker(pel); worker >= 0) {
    if (const Status status = Lock_lock(&pel->queueLock); status != ZELVAN_OK) return status;
    const PelEvent* const head = pel->readyHead;
    if (const Status status = Lock_unlock(&pel->queueLock); status != ZELVAN_OK) return status;
    if (head == &pel->stopEvent) {
      *stopped = true;
      return ZELVAN_OK;
    }
    if (head != nullptr) {
      const uint32_t handle = atomicLoad(&head->id);  // stays: a job completes under the event lock only
      Status status = Lock_unlock(&pel->eventLock);
      status |= runWorker(pel, worker, 1, &handle);
      return status | Lock_lock(&pel->eventLock);
    }
  }
  return Condition_awaitMillis(&pel->completion, waitMillis(pel));
}

PelEvent* takeEvent(Pel* pel, const PelKernel* kernel, void* arguments, int32_t count) {
  uint32_t handle = pel->eventCursor;
  while (handle == 0 || ((pel->events[handle & kIndexMask].id ^ handle) & kIndexMask) == 0) ++handle;
  PelEvent* const job = &pel->events[handle & kIndexMask];
  pel->eventCursor = handle + 1;
  --pel->freeEvents;
  atomicStore(&job->link, static_cast<PelEvent*>(nullptr));
  atomicStore(&job->id, handle);
  job->status = ZELVAN_OK;
  job->references = 0;
  job->users = 0;
  job->count = count;
  const bool empty = kernel == nullptr || (count < 1 && kernel->type != PEL_TASK);
  job->function = empty ? nullptr : kernel->loop;
  job->arguments = arguments;
  job->parts = nullptr;
  job->dependents = nullptr;
  job->dependentsTail = nullptr;
  return job;
}

bool waitsFor(const PelEvent* job, const PelEvent* event) {
  return event->dependents != nullptr && event->dependentsTail->waiting == job;
}

// Takes this job's links off the first n events of the list. They are the last ones there, the lock was held since.
void removeDependencies(Pel* pel, const PelEvent* job, int32_t n, const uint32_t* waitList) {
  for (int32_t i = 0; i < n; ++i) {
    PelEvent* const event = findEvent(pel, waitList[i]);
    if (event == nullptr || event->dependents == complete() || !waitsFor(job, event)) continue;
    PelLink* const link = event->dependentsTail;
    PelLink** at = &event->dependents;
    event->dependentsTail = nullptr;
    while (*at != link) {
      event->dependentsTail = *at;
      at = &(*at)->next;
    }
    *at = nullptr;
    link->next = pel->freeLinks;
    pel->freeLinks = link;
  }
}

// Stale and complete events add nothing, a repeated handle counts once. False, with nothing changed, without links.
bool addDependencies(Pel* pel, PelEvent* job, int32_t waitCount, const uint32_t* waitList) {
  for (int32_t i = 0; i < waitCount; ++i) {
    PelEvent* const event = findEvent(pel, waitList[i]);
    if (event == nullptr || event->dependents == complete() || waitsFor(job, event)) continue;
    PelLink* const link = pel->freeLinks;
    if (link == nullptr) {
      removeDependencies(pel, job, i, waitList);
      return false;
    }
    pel->freeLinks = link->next;
    *link = {nullptr, job};
    if (event->dependents == nullptr) {
      event->dependents = link;
    } else {
      event->dependentsTail->next = link;
    }
    event->dependentsTail = link;
    ++job->users;
  }
  return true;
}

Status enqueue(Pel* pel, const PelKernel* kernel, void* arguments, int32_t count, int32_t waitCount,
               const uint32_t* waitList, uint32_t* eventOut) {
  if (const Status status = Lock_lock(&pel->eventLock); status != ZELVAN_OK) return status;
  PelEvent* job = nullptr;
  bool starved = pel->freeEvents < 1;
  do {
    while (starved) {
      bool stopped = false;
      const Status status = awaitResources(pel, &stopped);
      if (stopped || status != ZELVAN_OK) return status | Lock_unlock(&pel->eventLock);
      starved = pel->freeEvents < 1;
    }
    job = takeEvent(pel, kernel, arguments, count);
    starved = !addDependencies(pel, job, waitCount, waitList);
    if (starved) freeEvent(pel, job);
  } while (starved);
  atomicFetchAdd(&pel->enqueuedJobs, 1u);
  if (eventOut != nullptr) {
    *eventOut = job->id;
    ++job->references;
  }
  const bool isReady = job->users == 0;  // later on the last dependency may append it
  if (const Status status = Lock_unlock(&pel->eventLock); status != ZELVAN_OK) return status;
  return isReady ? appendReady(pel, job) : ZELVAN_OK;
}

bool areComplete(Pel* pel, int32_t n, const uint32_t* list) {
  if (n < 0) return atomicLoad(&pel->enqueuedJobs) == atomicLoad(&pel->completedJobs);
  for (int32_t i = 0; i < n; ++i) {
    const PelEvent* const event = findEvent(pel, list[i]);
    if (event != nullptr && event->dependents != complete()) return false;
  }
  return true;
}

// With the event lock held, which is given up meanwhile: looks out for the end of a job. False when none came.
bool lookOut(Pel* pel, Status* status) {
  const uint32_t completed = atomicLoad(&pel->completedJobs);
  *status |= Lock_unlock(&pel->eventLock);
  spinBriefly([=] { return atomicLoad(&pel->completedJobs) != completed; });
  *status |= Lock_lock(&pel->eventLock);
  return atomicLoad(&pel->completedJobs) != completed;
}

// With the event lock held.
Status awaitCompletion(Pel* pel, int32_t n, const uint32_t* list) {
  const int32_t worker = findWorker(pel);
  bool looksOut = pel->spins != 0;
  while (!areComplete(pel, n, list)) {
    if (worker >= 0 && pel->helping == 0) {
      pel->helping = 1;
      Status status = Lock_unlock(&pel->eventLock);
      status |= runWorker(pel, worker, n, list);
      status |= Lock_lock(&pel->eventLock);
      pel->helping = 0;
      // Another client that found somebody at work may have to take over now.
      status |= Condition_signalAll(&pel->completion);
      if (status != ZELVAN_OK || areComplete(pel, n, list)) return status;
    }
    if (!isInitialised(pel)) return ZELVAN_OK;
    Status status = ZELVAN_OK;
    if (looksOut) {
      looksOut = lookOut(pel, &status);
    } else {
      status = Condition_awaitMillis(&pel->completion, waitMillis(pel));
    }
    if (status != ZELVAN_OK) return status;
  }
  return ZELVAN_OK;
}

// n negative: all jobs.
Status waitFor(Pel* pel, int32_t n, const uint32_t* list) {
  Status status = Lock_lock(&pel->eventLock);
  if (status == ZELVAN_OK) {
    status = awaitCompletion(pel, n, list);
    status |= Lock_unlock(&pel->eventLock);
  }
  const PelParams& params = pel->active;
  if (params.callerIsWorker != 0 && (params.pinWorkers != 0 || params.affinityMask != 0)) {
    Syscall_setThreadAffinityMask(pel->env, params.callerAffinityMask != 0 ? params.callerAffinityMask : ~0u);
  }
  return status;
}

bool isValid(const PelKernel* kernel, int32_t count, int32_t waitCount, const uint32_t* waitList) {
  return count >= 0 && waitCount >= 0 && (kernel == nullptr || kernel->loop != nullptr) &&
         (waitCount == 0 || waitList != nullptr);
}

bool isLive(const Pel* pel) {
  return pel != nullptr && isInitialised(pel);
}

// Enqueues a job whose event goes free by itself at the job's end; *event stays 0 when there is nothing to wait for.
Status issue(Pel* pel, const PelKernel* kernel, void* arguments, int32_t count, uint32_t* event) {
  if (pel == nullptr) return runDirect(kernel, arguments, count);
  if (!isInitialised(pel) || count < 1) return ZELVAN_OK;
  const Status status = Pel_enqueueKernel(pel, kernel, arguments, count, 0, nullptr, event);
  return *event == 0 ? status : status | Pel_releaseEvent(pel, *event);
}

}  // namespace

Status Pel_execute(Pel* pel, const PelKernel* kernel, void* arguments, int32_t count) {
  uint32_t event = 0;
  const Status status = issue(pel, kernel, arguments, count, &event);
  return status != ZELVAN_OK || event == 0 ? status : waitFor(pel, 1, &event);
}

Status executeToEnd(Pel* pel, const PelKernel* kernel, void* arguments, int32_t count) {
  uint32_t event = 0;
  const Status status = issue(pel, kernel, arguments, count, &event);
  return event == 0 ? status : status | waitToEnd(pel, event);
}

Status waitToEnd(Pel* pel, uint32_t event) {
  Status status;
  do {
    status = Pel_waitForEvents(pel, 1, &event);
  } while (status == ZELVAN_ERROR_TIMEOUT);
  return status;
}

Status endEvent(Pel* pel, uint32_t event) {
  if (event == 0) return ZELVAN_OK;
  Status info = ZELVAN_OK;
  Status status = Pel_getEventInfo(pel, event, 0, &info);
  if (info == ZELVAN_STATUS_RUNNING) status |= waitToEnd(pel, event);
  return status | Pel_releaseEvent(pel, event);
}

Status Pel_enqueueKernel(Pel* pel, const PelKernel* kernel, void* arguments, int32_t count, int32_t waitCount,
                         const uint32_t* waitList, uint32_t* eventOut) {
  if (!isValid(kernel, count, waitCount, waitList)) return ZELVAN_ERROR_PARAM;
  if (eventOut != nullptr) *eventOut = 0;
  if (pel == nullptr) return runDirect(kernel, arguments, count);
  return isInitialised(pel) ? enqueue(pel, kernel, arguments, count, waitCount, waitList, eventOut) : ZELVAN_OK;
}

Status Pel_enqueueTask(Pel* pel, const PelKernel* kernel, void* arguments, int32_t waitCount, const uint32_t* waitList,
                       uint32_t* eventOut) {
  // With count 0 the direct run of the other types does nothing either.
  return Pel_enqueueKernel(pel, kernel, arguments, 0, waitCount, waitList, eventOut);
}

Status Pel_waitForEvents(Pel* pel, int32_t eventCount, const uint32_t* events) {
  if (eventCount < 1 || events == nullptr) return ZELVAN_ERROR_PARAM;
  return isLive(pel) ? waitFor(pel, eventCount, events) : ZELVAN_OK;
}

Status Pel_retainEvent(Pel* pel, uint32_t event) {
  if (!isLive(pel)) return ZELVAN_OK;
  if (const Status status = Lock_lock(&pel->eventLock); status != ZELVAN_OK) return status;
  PelEvent* const found = findEvent(pel, event);
  const bool isHeld = found != nullptr && found->references > 0;
  if (isHeld) ++found->references;
  return (isHeld ? ZELVAN_OK : ZELVAN_ERROR_STATE) | Lock_unlock(&pel->eventLock);
}

Status Pel_releaseEvent(Pel* pel, uint32_t event) {
  if (event == 0 || !isLive(pel)) return ZELVAN_OK;
  Status status = Lock_lock(&pel->eventLock);
  if (status != ZELVAN_OK) return status;
  PelEvent* const found = findEvent(pel, event);
  if (found == nullptr || found->references < 1) {
    status = ZELVAN_ERROR_STATE;
  } else if (--found->references == 0 && found->dependents == complete()) {
    status = Condition_signalAll(&pel->completion);  // an enqueue may wait for a free event
    freeEvent(pel, found);
  }
  return status | Lock_unlock(&pel->eventLock);
}

Status Pel_getEventInfo(Pel* pel, uint32_t event, uint32_t what, Status* out) {
  if (what != 0 || out == nullptr) return ZELVAN_ERROR_PARAM;
  if (!isLive(pel)) {
    *out = ZELVAN_OK;
    return ZELVAN_OK;
  }
  Status status = Lock_lock(&pel->eventLock);
  if (status != ZELVAN_OK) return status;
  if (const PelEvent* const found = findEvent(pel, event); found == nullptr) {
    status = ZELVAN_ERROR_STATE;
  } else {
    *out = found->dependents == complete() ? found->status : ZELVAN_STATUS_RUNNING;
  }
  return status | Lock_unlock(&pel->eventLock);
}

Status Pel_getEventProfilingInfo(Pel*, uint32_t, uint32_t what, uint64_t* out) {
  if (what > 3 || out == nullptr) return ZELVAN_ERROR_PARAM;
  *out = 0;
  return ZELVAN_OK;
}

Status Pel_finish(Pel* pel) {
  return isLive(pel) ? waitFor(pel, -1, nullptr) : ZELVAN_OK;
}
