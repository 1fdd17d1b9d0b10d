// Lock (reentrant or spin) and Condition.
#ifndef ZVT4_PARALLEL_LOCK_H_
#define ZVT4_PARALLEL_LOCK_H_

#include "base/env.h"

enum LockType : int32_t { LOCK_REENTRANT = 0, LOCK_SPIN = 1 };

struct Lock {
  Env* env;
  void* native;  // reentrant: the mutex, an arena block; spin: the spin word itself
  Status (*tryLock)(Lock* lock, int32_t* acquiredOut);
  Status (*lock)(Lock* lock);
  Status (*unlock)(Lock* lock);
  Status (*destroy)(Lock* lock);
};

struct Condition {
  Env* env;
  void* native;  // the condition variable, an arena block
  Lock* lock;    // fixed at init; reentrant
  Status (*await)(Condition* condition);
  Status (*awaitMillis)(Condition* condition, int32_t millis);
  Status (*signal)(Condition* condition);
  Status (*signalAll)(Condition* condition);
  Status (*destroy)(Condition* condition);
};

extern "C" {
int32_t Lock_getBufferSize(int32_t type) ZVT4_NAME(Lock_getBufferSize);
int32_t ReentrantLockImpl_getBufferSize() ZVT4_NAME(ReentrantLockImpl_getBufferSize);
int32_t SpinLockImpl_getBufferSize() ZVT4_NAME(SpinLockImpl_getBufferSize);
Status construct_Lock(Lock* lock, Env* env) ZVT4_NAME(construct_Lock);
Status destruct_Lock(Lock* lock) ZVT4_NAME(destruct_Lock);
Status Lock_init(Lock* lock, int32_t type) ZVT4_NAME(Lock_init);
Status ReentrantLockImpl_init(Lock* lock) ZVT4_NAME(ReentrantLockImpl_init);
Status SpinLockImpl_init(Lock* lock) ZVT4_NAME(SpinLockImpl_init);
Status Lock_recycle(Lock* lock) ZVT4_NAME(Lock_recycle);
Status Lock_tryLock(Lock* lock, int32_t* acquiredOut) ZVT4_NAME(Lock_tryLock);
Status Lock_lock(Lock* lock) ZVT4_NAME(Lock_lock);
Status Lock_unlock(Lock* lock) ZVT4_NAME(Lock_unlock);

int32_t Condition_getBufferSize() ZVT4_NAME(Condition_getBufferSize);
int32_t ConditionImpl_getBufferSize() ZVT4_NAME(ConditionImpl_getBufferSize);
Status construct_Condition(Condition* condition, Env* env) ZVT4_NAME(construct_Condition);
Status destruct_Condition(Condition* condition) ZVT4_NAME(destruct_Condition);
Status Condition_init(Condition* condition, Lock* lock) ZVT4_NAME(Condition_init);
Status ConditionImpl_init(Condition* condition, Lock* lock) ZVT4_NAME(ConditionImpl_init);
Status Condition_recycle(Condition* condition) ZVT4_NAME(Condition_recycle);
Status Condition_await(Condition* condition) ZVT4_NAME(Condition_await);
Status Condition_awaitMillis(Condition* condition, int32_t millis) ZVT4_NAME(Condition_awaitMillis);
Status Condition_signal(Condition* condition) ZVT4_NAME(Condition_signal);
Status Condition_signalAll(Condition* condition) ZVT4_NAME(Condition_signalAll);
}

#endif  // ZVT4_PARALLEL_LOCK_H_
