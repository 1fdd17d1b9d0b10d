#include "parallel/thread.h"

namespace {

void* trampoline(void* record) {
  Thread* thread = static_cast<Thread*>(record);
  thread->result = thread->entry(thread->argument);
  return nullptr;
}

Status joinNative(Thread* thread, Status* statusOut) {
  if (thread->native == 0) {
    if (statusOut != nullptr) *statusOut = ZELVAN_OK;
    return ZELVAN_OK;
  }
  if (pthread_join(thread->native, nullptr) != 0) return ZELVAN_ERROR_RESOURCE;
  thread->native = 0;
  if (statusOut != nullptr) *statusOut = thread->result;
  return ZELVAN_OK;
}

}  // namespace

int32_t ThreadImpl_getBufferSize() {
  return 0;
}

int32_t Thread_getBufferSize() {
  return ThreadImpl_getBufferSize();
}

Status construct_Thread(Thread* thread, Env* env) {
  if (thread == nullptr) return ZELVAN_ERROR_PARAM;
  *thread = {};
  thread->env = env;
  return ZELVAN_OK;
}

Status destruct_Thread(Thread* thread) {
  if (const Status status = Thread_join(thread); status != ZELVAN_OK) return status;
  *thread = {};
  return ZELVAN_OK;
}

pthread_t Thread_getId() {
  return pthread_self();
}

Status ThreadImpl_start(Thread* thread, Status (*entry)(void*), void* argument) {
  thread->result = ZELVAN_OK;
  thread->entry = entry;
  thread->argument = argument;
  if (pthread_create(&thread->native, nullptr, trampoline, thread) != 0) return ZELVAN_ERROR_RESOURCE;
  thread->join = joinNative;
  return ZELVAN_OK;
}

Status Thread_start(Thread* thread, Status (*entry)(void*), void* argument) {
  if (thread == nullptr || entry == nullptr) return ZELVAN_ERROR_PARAM;
  if (thread->join != nullptr) return ZELVAN_ERROR_STATE;
  return ThreadImpl_start(thread, entry, argument);
}

Status Thread_join2(Thread* thread, Status* statusOut) {
  if (thread == nullptr) return ZELVAN_ERROR_PARAM;
  if (statusOut != nullptr) *statusOut = ZELVAN_OK;
  if (thread->join == nullptr) return ZELVAN_OK;
  const Status status = thread->join(thread, statusOut);
  if (status == ZELVAN_OK) thread->join = nullptr;
  return status;
}

Status Thread_join(Thread* thread) {
  Status result = ZELVAN_OK;
  const Status status = Thread_join2(thread, &result);
  return status | result;
}
