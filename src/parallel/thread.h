// A thread of one of the pools: a plain record inside its owner, started and joined by one thread at a time.
//
// States, told by the join slot: null before the first start and after a join, so that the record can be started anew;
// the join operation between the two.
#ifndef ZVT4_PARALLEL_THREAD_H_
#define ZVT4_PARALLEL_THREAD_H_

#include <pthread.h>

#include "base/env.h"

struct Thread {
  Env* env;
  Status (*join)(Thread* thread, Status* statusOut);  // null while there is nothing to join
  pthread_t native;                                   // 0 once joined
  Status result;                                      // what entry returned
  Status (*entry)(void* argument);
  void* argument;
};

extern "C" {
// Threads take nothing from the arena.
int32_t Thread_getBufferSize() ZVT4_NAME(Thread_getBufferSize);
int32_t ThreadImpl_getBufferSize() ZVT4_NAME(ThreadImpl_getBufferSize);

Status construct_Thread(Thread* thread, Env* env) ZVT4_NAME(construct_Thread);
// Joins as Thread_join does. When that gives a nonzero word, be it the thread's own result, the word is returned and
// the record stays; otherwise it is zeroed.
Status destruct_Thread(Thread* thread) ZVT4_NAME(destruct_Thread);

// The caller's own id.
pthread_t Thread_getId() ZVT4_NAME(Thread_getId);

// Runs entry(argument) on a new thread. ZELVAN_ERROR_PARAM for a null thread or entry, ZELVAN_ERROR_STATE for a thread
// that was started and not joined, ZELVAN_ERROR_RESOURCE when the system gives no thread.
Status Thread_start(Thread* thread, Status (*entry)(void*), void* argument) ZVT4_NAME(Thread_start);
// The same without the checks.
Status ThreadImpl_start(Thread* thread, Status (*entry)(void*), void* argument) ZVT4_NAME(ThreadImpl_start);

// Waits for the end of the thread; nothing to do for one that is not started. Thread_join returns the thread's result
// ORed with its own failure; Thread_join2 hands the result through statusOut, which may be null.
Status Thread_join(Thread* thread) ZVT4_NAME(Thread_join);
Status Thread_join2(Thread* thread, Status* statusOut) ZVT4_NAME(Thread_join2);
}

#endif  // ZVT4_PARALLEL_THREAD_H_
