// A thread of one of the pools.
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
int32_t Thread_getBufferSize() ZVT4_NAME(Thread_getBufferSize);
int32_t ThreadImpl_getBufferSize() ZVT4_NAME(ThreadImpl_getBufferSize);
Status construct_Thread(Thread* thread, Env* env) ZVT4_NAME(construct_Thread);
Status destruct_Thread(Thread* thread) ZVT4_NAME(destruct_Thread);
pthread_t Thread_getId() ZVT4_NAME(Thread_getId);
Status Thread_start(Thread* thread, Status (*entry)(void*), void* argument) ZVT4_NAME(Thread_start);
Status ThreadImpl_start(Thread* thread, Status (*entry)(void*), void* argument) ZVT4_NAME(ThreadImpl_start);
Status Thread_join(Thread* thread) ZVT4_NAME(Thread_join);
Status Thread_join2(Thread* thread, Status* statusOut) ZVT4_NAME(Thread_join2);
}

#endif  // ZVT4_PARALLEL_THREAD_H_
