// The worker loop of Pel: taking jobs from the ready queue, dividing and running them, telling their dependents.
#include "parallel/pel.h"
#include "parallel/pel_impl.h"
#include "parallel/spin.h"
#include "parallel/syscall.h"

using namespace pel_detail;

namespace {

constexpr int32_t kStealTries = 3;  // the first read of the victim's cursor and two more after lost races

struct WorkerMasks {
  uint32_t kernel;
  uint32_t task;
  uint32_t now;  // what the thread is pinned to; 0: unknown
};

// Pins the thread unless it is pinned so already. False when the system refuses.
bool setMask(Pel* pel, uint32_t mask, WorkerMasks* masks) {
  if (mask == 0 || mask == masks->now) return true;
  const bool done = Syscall_setThreadAffinityMask(pel->env, mask) == ZELVAN_OK;
  if (done) masks->now = mask;
  return done;
}

WorkerMasks pinWorker(Pel* pel, int32_t workerIndex) {
  const PelParams& params = pel->active;
  if (params.pinWorkers == 0 && params.affinityMask == 0) return {0, ~0u, 0};
  WorkerMasks masks = {params.affinityMask, params.affinityMask, 0};
  if (params.pinWorkers != 0) {
    const uint32_t processor = pel->processorList[workerIndex];
    masks.kernel = processor < 32 ? 1u << processor : 0;
  }
  // A refused pin is no failure: each job tries again.
  setMask(pel, masks.kernel, &masks);
  return masks;
}

bool haveLeftQueue(Pel* pel, int32_t waitCount, const uint32_t* waitList) {
  if (waitCount < 0) return atomicLoad(&pel->enqueuedJobs) == atomicLoad(&pel->dequeuedJobs);
  for (int32_t i = 0; i < waitCount; ++i) {
    PelEvent* const event = &pel->events[waitList[i] & kIndexMask];
    // link before id: while the id still matches, the link read before belongs to the listed job and to no later one.
    if (atomicLoad(&event->link) != leftQueue() && atomicLoad(&event->id) == waitList[i]) return false;
  }
  return true;
}

// With the queue lock held, which is given up meanwhile: looks out for a change of the ready queue.
Status lookOut(Pel* pel) {
  const uint32_t dequeued = atomicLoad(&pel->dequeuedJobs);
  if (const Status status = Lock_unlock(&pel->queueLock); status != ZELVAN_OK) return status;
  spinBriefly([=] { return atomicLoad(&pel->readyHead) != nullptr || atomicLoad(&pel->dequeuedJobs) != dequeued; });
  return Lock_lock(&pel->queueLock);
}

// With the queue lock held: the job that the worker is to enter. *jobOut stays null when the loop ends.
Status awaitJob(Pel* pel, int32_t waitCount, const uint32_t* waitList, PelEvent** jobOut) {
  bool looksOut = pel->spins != 0;
  for (;;) {
    if (waitCount != 0 && haveLeftQueue(pel, waitCount, waitList)) return ZELVAN_OK;
    PelEvent* const head = pel->readyHead;
    if (head == &pel->stopEvent) return ZELVAN_OK;
    // 17 workers can be in 17 jobs at a time and the table holds 15 groups then: the job waits for a group like for a
    // place in the queue.
    if (head != nullptr && (head->users != 0 || head->count == 0 || pel->freeParts != nullptr)) {
      *jobOut = head;
      return ZELVAN_OK;
    }
    if (waitCount != 0 && !isInitialised(pel)) return ZELVAN_OK;
    Status status;
    if (looksOut && head == nullptr) {
      looksOut = false;
      status = lookOut(pel);
    } else {
      status = waitCount == 0 ? Condition_await(&pel->ready) : Condition_awaitMillis(&pel->ready, waitMillis(pel));
    }
    if (status != ZELVAN_OK) return status;
  }
}

PelPart* takeParts(Pel* pel) {
  PelPart* const parts = pel->freeParts;
  pel->freeParts = parts->begin < 0 ? nullptr : &pel->parts[parts->begin];
  return parts;
}

void returnParts(Pel* pel, PelPart* parts) {
  if (pel->freeParts == nullptr) Condition_signalAll(&pel->ready);
  parts->begin = pel->freeParts == nullptr ? -1 : static_cast<int32_t>(pel->freeParts - pel->parts);
  pel->freeParts = parts;
}

void divide(const PelParams& params, PelPart* parts, int32_t count) {
  const int32_t workers = params.numberOfWorkers;
  if (params.stealWork != 0) {
    for (int32_t i = 0; i < workers; ++i) parts[i] = {0, i == 0 ? count : 0};
    return;
  }
  // The remainder is spread as by a line-drawing step: 10 over 4 is 2, 3, 2, 3.
  const int32_t quotient = count / workers;
  const int32_t remainder = count % workers;
  int32_t accumulator = 0;
  int32_t begin = 0;
  for (int32_t i = 0; i < workers; ++i) {
    accumulator += remainder;
    int32_t end = begin + quotient;
    if (accumulator >= workers) {
      accumulator -= workers;
      ++end;
    }
    parts[i] = {begin, end};
    begin = end;
  }
}

void removeHead(Pel* pel) {
  PelEvent* const job = pel->readyHead;
  atomicStore(&pel->readyHead, job->link);
  atomicStore(&job->link, leftQueue());
  atomicFetchAdd(&pel->dequeuedJobs, 1u);
}

// With the queue lock held. A task occupies one worker, so it leaves the queue at once.
void enterJob(Pel* pel, PelEvent* job) {
  if (++job->users > 1) return;
  if (job->count != 0) {
    job->parts = takeParts(pel);
    divide(pel->active, job->parts, job->count);
  } else {
    removeHead(pel);
  }
}

// With the queue lock held; true for the last worker of the job. A kernel leaves the queue as soon as one worker finds
// nothing more to do in it: the others may still be inside while the next job begins.
bool leaveJob(Pel* pel, PelEvent* job) {
  if (job == pel->readyHead) removeHead(pel);
  if (--job->users != 0) return false;
  if (job->count != 0) {
    returnParts(pel, job->parts);
    job->parts = nullptr;
  }
  return true;
}

// One worker inside one job.
struct Run {
  PelContext context;
  const PelEvent* job;
  uint32_t mask;
  int32_t pinState;

  Status part(PelPart* part) {
    const int32_t end = atomicLoad(&part->end);
    if (atomicLoad(&part->begin) >= end) return ZELVAN_OK;
    return job->function(&context, job->arguments, &part->begin, end, mask, &pinState);
  }
};

Status runStatic(Run* run, int32_t workers) {
  Status status = ZELVAN_OK;
  for (int32_t i = 0; i < workers; ++i) {
    status |= run->part(&run->job->parts[(run->context.workerIndex + i) % workers]);
  }
  return status;
}

// The other part with most left, or null.
PelPart* findVictim(const Run* run, int32_t workers) {
  PelPart* victim = nullptr;
  int32_t most = 0;
  for (int32_t i = 1; i < workers; ++i) {
    PelPart* const part = &run->job->parts[(run->context.workerIndex + i) % workers];
    const int32_t left = atomicLoad(&part->end) - atomicLoad(&part->begin);
    if (left > most) {
      most = left;
      victim = part;
    }
  }
  return victim;
}

// With the steal lock held, so no end changes meanwhile: the lower half of what the victim has left becomes our own.
void steal(PelPart* own, PelPart* victim) {
  const int32_t end = atomicLoad(&victim->end);
  int32_t begin = atomicLoad(&victim->begin);
  for (int32_t i = 0; i < kStealTries && begin < end; ++i) {
    const int32_t middle = begin + ((end - begin + 1) >> 1);
    if (atomicCompareExchange(&victim->begin, &begin, middle)) {
      atomicStore(&own->end, middle);
      atomicStore(&own->begin, begin);  // in this order: our begin was parked behind any end
      return;
    }
  }
}

Status runStealing(Run* run, Pel* pel) {
  const int32_t workers = pel->active.numberOfWorkers;
  PelPart* const own = &run->job->parts[run->context.workerIndex];
  Status status = ZELVAN_OK;
  for (;;) {
    status |= run->part(own);
    atomicStore(&own->begin, run->job->count);
    PelPart* const victim = findVictim(run, workers);
    if (victim == nullptr) return status;
    if (const Status locked = Lock_lock(&pel->stealLock); locked != ZELVAN_OK) return status | locked;
    steal(own, victim);
    if (const Status unlocked = Lock_unlock(&pel->stealLock); unlocked != ZELVAN_OK) return status | unlocked;
  }
}

Status runJob(Pel* pel, int32_t workerIndex, const PelEvent* job, WorkerMasks* masks) {
  const uint32_t mask = job->count != 0 ? masks->kernel : masks->task;
  const bool pinned = setMask(pel, mask, masks);
  Run run = {{pel, workerIndex, job->count, atomicLoad(&job->id)}, job, mask, pinned ? 1 : 0};
  if (job->count == 0) {
    int32_t cursor = 0;
    return job->function(&run.context, job->arguments, &cursor, 1, mask, &run.pinState);
  }
  return pel->active.stealWork != 0 ? runStealing(&run, pel) : runStatic(&run, pel->active.numberOfWorkers);
}

// By the last worker of a job: hands its status to the jobs that wait for it and makes them ready.
Status completeJob(Pel* pel, PelEvent* job) {
  Status status = Lock_lock(&pel->eventLock);
  if (status != ZELVAN_OK) return status;
  for (PelLink* link = job->dependents; link != nullptr;) {
    PelLink* const next = link->next;
    PelEvent* const waiting = link->waiting;
    waiting->status |= job->status;
    if (--waiting->users == 0) status |= appendReady(pel, waiting);
    link->next = pel->freeLinks;
    pel->freeLinks = link;
    link = next;
  }
  job->dependents = complete();
  atomicFetchAdd(&pel->completedJobs, 1u);
  status |= Condition_signalAll(&pel->completion);
  if (job->references == 0) freeEvent(pel, job);
  return status | Lock_unlock(&pel->eventLock);
}

}  // namespace

Status pel_detail::appendReady(Pel* pel, PelEvent* job) {
  Status status = Lock_lock(&pel->queueLock);
  if (status != ZELVAN_OK) return status;
  if (pel->readyHead == nullptr) {
    status = Condition_signalAll(&pel->ready);
    atomicStore(&pel->readyHead, job);
    pel->readyTail = job;
  } else if (pel->readyHead != &pel->stopEvent) {  // behind the stop event jobs are dropped
    atomicStore(&pel->readyTail->link, job);
    pel->readyTail = job;
  }
  return status | Lock_unlock(&pel->queueLock);
}

Status pel_detail::runWorker(Pel* pel, int32_t workerIndex, int32_t waitCount, const uint32_t* waitList) {
  WorkerMasks masks = pinWorker(pel, workerIndex);
  for (;;) {
    if (const Status locked = Lock_lock(&pel->queueLock); locked != ZELVAN_OK) return locked;
    PelEvent* job = nullptr;
    const Status waited = awaitJob(pel, waitCount, waitList, &job);
    if (job == nullptr) return waited | Lock_unlock(&pel->queueLock);
    enterJob(pel, job);
    if (job->function != nullptr) {
      if (job->status != ZELVAN_OK) {  // a dependency failed
        job->status |= ZELVAN_STATUS_CANCELLED;
      } else {
        if (const Status unlocked = Lock_unlock(&pel->queueLock); unlocked != ZELVAN_OK) return unlocked;
        const Status result = runJob(pel, workerIndex, job, &masks);
        if (const Status locked = Lock_lock(&pel->queueLock); locked != ZELVAN_OK) return locked;
        job->status |= result;
      }
    }
    const bool last = leaveJob(pel, job);
    if (const Status unlocked = Lock_unlock(&pel->queueLock); unlocked != ZELVAN_OK) return unlocked;
    if (!last) continue;
    if (const Status status = completeJob(pel, job); status != ZELVAN_OK) return status;
  }
}
