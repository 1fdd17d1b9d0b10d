// Lock (reentrant or spin) and Condition: plain records with their operations in function slots.
//
// A record is blank after construction, live after init, blank again after recycle and zero after destruct. Operations
// on a blank record give ZELVAN_ERROR_STATE, on a null one ZELVAN_ERROR_PARAM, a failing system call
// ZELVAN_ERROR_RESOURCE. A spin lock has nothing to destroy and stays live over a recycle.
#ifndef ZVT4_PARALLEL_LOCK_H_
#define ZVT4_PARALLEL_LOCK_H_

#include <pthread.h>

#include "base/env.h"

enum LockType : int32_t { LOCK_REENTRANT = 0, LOCK_SPIN = 1 };

struct Lock {
  Env* env;
  union {
    pthread_mutex_t* mutex;  // reentrant: an arena block
    uint32_t spin;           // spin: 0 free, 1 held; atomic
  } native;
  Status (*tryLock)(Lock* lock, int32_t* acquiredOut);
  Status (*lock)(Lock* lock);
  Status (*unlock)(Lock* lock);
  Status (*destroy)(Lock* lock);  // null for a spin lock
};

struct Condition {
  Env* env;
  pthread_cond_t* native;  // an arena block
  Lock* lock;              // fixed at init; reentrant
  Status (*await)(Condition* condition);
  Status (*awaitMillis)(Condition* condition, int32_t millis);
  Status (*signal)(Condition* condition);
  Status (*signalAll)(Condition* condition);
  Status (*destroy)(Condition* condition);
};

extern "C" {
// What a live lock holds of the arena: the native mutex, nothing for a spin lock; -1 for an unknown type.
int32_t Lock_getBufferSize(int32_t type) ZVT4_NAME(Lock_getBufferSize);
int32_t ReentrantLockImpl_getBufferSize() ZVT4_NAME(ReentrantLockImpl_getBufferSize);
int32_t SpinLockImpl_getBufferSize() ZVT4_NAME(SpinLockImpl_getBufferSize);

Status construct_Lock(Lock* lock, Env* env) ZVT4_NAME(construct_Lock);
// Recycles and zeroes. A lock that the system refuses to destroy, since somebody holds it, stays as it is.
Status destruct_Lock(Lock* lock) ZVT4_NAME(destruct_Lock);

// Makes the lock live, after destroying what it was before. A reentrant lock may be taken again by its holder; a spin
// lock may not, and waits without yielding. ZELVAN_ERROR_UNSUPPORTED for an unknown type, ZELVAN_ERROR_NOMEM when the
// arena refuses.
Status Lock_init(Lock* lock, int32_t type) ZVT4_NAME(Lock_init);
Status ReentrantLockImpl_init(Lock* lock) ZVT4_NAME(ReentrantLockImpl_init);
Status SpinLockImpl_init(Lock* lock) ZVT4_NAME(SpinLockImpl_init);
Status Lock_recycle(Lock* lock) ZVT4_NAME(Lock_recycle);

// Stores 1 when the lock was free or is already the caller's, 0 when another thread holds it; both are ZELVAN_OK. On a
// spin lock one attempt is made, and a lost race counts as held.
Status Lock_tryLock(Lock* lock, int32_t* acquiredOut) ZVT4_NAME(Lock_tryLock);
Status Lock_lock(Lock* lock) ZVT4_NAME(Lock_lock);
Status Lock_unlock(Lock* lock) ZVT4_NAME(Lock_unlock);

int32_t Condition_getBufferSize() ZVT4_NAME(Condition_getBufferSize);
int32_t ConditionImpl_getBufferSize() ZVT4_NAME(ConditionImpl_getBufferSize);
Status construct_Condition(Condition* condition, Env* env) ZVT4_NAME(construct_Condition);
Status destruct_Condition(Condition* condition) ZVT4_NAME(destruct_Condition);

// Ties the condition to a live reentrant lock, after destroying what it was before. ZELVAN_ERROR_PARAM for a null lock,
// ZELVAN_ERROR_NOMEM when the arena refuses.
Status Condition_init(Condition* condition, Lock* lock) ZVT4_NAME(Condition_init);
Status ConditionImpl_init(Condition* condition, Lock* lock) ZVT4_NAME(ConditionImpl_init);
Status Condition_recycle(Condition* condition) ZVT4_NAME(Condition_recycle);

// Waits to be signalled; the caller holds the lock exactly once, and holds it again afterwards. Wake-ups without a
// signal happen, so callers test their condition in a loop.
Status Condition_await(Condition* condition) ZVT4_NAME(Condition_await);
// The same for millis at most, a negative value counting as 0; ZELVAN_ERROR_TIMEOUT when the time has run out. The
// deadline stands on the realtime clock: setting the wall clock moves it.
Status Condition_awaitMillis(Condition* condition, int32_t millis) ZVT4_NAME(Condition_awaitMillis);
Status Condition_signal(Condition* condition) ZVT4_NAME(Condition_signal);
// Unlike its neighbours ZELVAN_OK for a blank condition, on which nobody can wait.
Status Condition_signalAll(Condition* condition) ZVT4_NAME(Condition_signalAll);
}

#endif  // ZVT4_PARALLEL_LOCK_H_
