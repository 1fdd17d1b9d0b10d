#include "parallel/lock.h"

#include <cerrno>

#include "base/atomic.h"
#include "parallel/spin.h"

namespace {

Status fromNative(int error) {
  return error == 0 ? ZELVAN_OK : ZELVAN_ERROR_RESOURCE;
}

Status tryLockMutex(Lock* lock, int32_t* acquiredOut) {
  const int error = pthread_mutex_trylock(lock->native.mutex);
  if (error != 0 && error != EBUSY) return ZELVAN_ERROR_RESOURCE;
  *acquiredOut = error == 0;
  return ZELVAN_OK;
}

// The pools hold their locks for a few instructions: a holder on another processor is out before a sleep has begun.
Status lockMutex(Lock* lock) {
  constexpr int32_t kTries = 50;
  for (int32_t i = 0; i < kTries; ++i) {
    const int error = pthread_mutex_trylock(lock->native.mutex);
    if (error == 0) return ZELVAN_OK;
    if (error != EBUSY || !Syscall_haveProcessors()) break;
    spin_detail::pause();
  }
  return fromNative(pthread_mutex_lock(lock->native.mutex));
}

Status unlockMutex(Lock* lock) {
  return fromNative(pthread_mutex_unlock(lock->native.mutex));
}

Status destroyMutex(Lock* lock) {
  if (pthread_mutex_destroy(lock->native.mutex) != 0) return ZELVAN_ERROR_RESOURCE;
  const Status status = Heap2_free(&lock->env->heap, lock->native.mutex);
  if (!isFailure(status)) lock->native.mutex = nullptr;
  return status;
}

Status initRecursive(pthread_mutex_t* mutex) {
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0) return ZELVAN_ERROR_RESOURCE;
  int error = pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  if (error == 0) error = pthread_mutex_init(mutex, &attributes);
  const int destroyError = pthread_mutexattr_destroy(&attributes);
  return fromNative(error | destroyError);
}

// Sequentially consistent operations are the full barriers behind the acquisition and in front of the release.
bool acquireSpin(Lock* lock) {
  uint32_t expected = 0;
  return atomicLoad(&lock->native.spin) == 0 && atomicCompareExchange(&lock->native.spin, &expected, 1u);
}

Status tryLockSpin(Lock* lock, int32_t* acquiredOut) {
  *acquiredOut = acquireSpin(lock);
  return ZELVAN_OK;
}

Status lockSpin(Lock* lock) {
  while (!acquireSpin(lock)) {
  }
  return ZELVAN_OK;
}

Status unlockSpin(Lock* lock) {
  atomicStore(&lock->native.spin, 0u);
  return ZELVAN_OK;
}

}  // namespace

int32_t ReentrantLockImpl_getBufferSize() {
  return sizeof(pthread_mutex_t);
}

int32_t SpinLockImpl_getBufferSize() {
  return 0;
}

int32_t Lock_getBufferSize(int32_t type) {
  switch (type) {
    case LOCK_REENTRANT:
      return ReentrantLockImpl_getBufferSize();
    case LOCK_SPIN:
      return SpinLockImpl_getBufferSize();
    default:
      return -1;
  }
}

Status construct_Lock(Lock* lock, Env* env) {
  if (lock == nullptr) return ZELVAN_ERROR_PARAM;
  *lock = {};
  lock->env = env;
  return ZELVAN_OK;
}

Status destruct_Lock(Lock* lock) {
  const Status status = Lock_recycle(lock);
  if (lock != nullptr && !isFailure(status)) *lock = {};
  return status;
}

Status ReentrantLockImpl_init(Lock* lock) {
  Heap2* heap = &lock->env->heap;
  auto* mutex = static_cast<pthread_mutex_t*>(Heap2_malloc(heap, sizeof(pthread_mutex_t)));
  if (mutex == nullptr) return ZELVAN_ERROR_NOMEM;
  if (const Status status = initRecursive(mutex); status != ZELVAN_OK) return Heap2_free(heap, mutex) | status;
  lock->native.mutex = mutex;
  lock->tryLock = tryLockMutex;
  lock->lock = lockMutex;
  lock->unlock = unlockMutex;
  lock->destroy = destroyMutex;
  return ZELVAN_OK;
}

Status SpinLockImpl_init(Lock* lock) {
  lock->native.spin = 0;
  lock->tryLock = tryLockSpin;
  lock->lock = lockSpin;
  lock->unlock = unlockSpin;
  return ZELVAN_OK;
}

Status Lock_init(Lock* lock, int32_t type) {
  if (const Status status = Lock_recycle(lock); isFailure(status)) return status;
  switch (type) {
    case LOCK_REENTRANT:
      return ReentrantLockImpl_init(lock);
    case LOCK_SPIN:
      return SpinLockImpl_init(lock);
    default:
      return ZELVAN_ERROR_UNSUPPORTED;
  }
}

Status Lock_recycle(Lock* lock) {
  if (lock == nullptr) return ZELVAN_ERROR_PARAM;
  if (lock->destroy == nullptr) return ZELVAN_OK;
  const Status status = lock->destroy(lock);
  if (!isFailure(status)) construct_Lock(lock, lock->env);
  return status;
}

Status Lock_tryLock(Lock* lock, int32_t* acquiredOut) {
  if (lock == nullptr || acquiredOut == nullptr) return ZELVAN_ERROR_PARAM;
  return lock->tryLock != nullptr ? lock->tryLock(lock, acquiredOut) : ZELVAN_ERROR_STATE;
}

Status Lock_lock(Lock* lock) {
  if (lock == nullptr) return ZELVAN_ERROR_PARAM;
  return lock->lock != nullptr ? lock->lock(lock) : ZELVAN_ERROR_STATE;
}

Status Lock_unlock(Lock* lock) {
  if (lock == nullptr) return ZELVAN_ERROR_PARAM;
  return lock->unlock != nullptr ? lock->unlock(lock) : ZELVAN_ERROR_STATE;
}
