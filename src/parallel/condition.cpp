#include <cerrno>
#include <ctime>

#include "parallel/lock.h"

namespace {

Status fromNative(int error) {
  return error == 0 ? ZELVAN_OK : ZELVAN_ERROR_RESOURCE;
}

Status await(Condition* condition) {
  return fromNative(pthread_cond_wait(condition->native, condition->lock->native.mutex));
}

Status awaitMillis(Condition* condition, int32_t millis) {
  timespec deadline;
  if (clock_gettime(CLOCK_REALTIME, &deadline) != 0) return ZELVAN_ERROR_RESOURCE;
  const uint32_t wait = static_cast<uint32_t>(millis);
  const uint32_t nanos = static_cast<uint32_t>(deadline.tv_nsec) + wait % 1000u * 1000000u;  // below 2e9
  deadline.tv_sec += nanos / 1000000000u + wait / 1000u;
  deadline.tv_nsec = nanos % 1000000000u;
  const int error = pthread_cond_timedwait(condition->native, condition->lock->native.mutex, &deadline);
  return error == ETIMEDOUT ? ZELVAN_ERROR_TIMEOUT : fromNative(error);
}

Status signal(Condition* condition) {
  return fromNative(pthread_cond_signal(condition->native));
}

Status signalAll(Condition* condition) {
  return fromNative(pthread_cond_broadcast(condition->native));
}

Status destroy(Condition* condition) {
  if (pthread_cond_destroy(condition->native) != 0) return ZELVAN_ERROR_RESOURCE;
  const Status status = Heap2_free(&condition->env->heap, condition->native);
  if (!isFailure(status)) condition->native = nullptr;
  return status;
}

}  // namespace

int32_t ConditionImpl_getBufferSize() {
  return sizeof(pthread_cond_t);
}

int32_t Condition_getBufferSize() {
  return ConditionImpl_getBufferSize();
}

Status construct_Condition(Condition* condition, Env* env) {
  if (condition == nullptr) return ZELVAN_ERROR_PARAM;
  *condition = {};
  condition->env = env;
  return ZELVAN_OK;
}

Status destruct_Condition(Condition* condition) {
  const Status status = Condition_recycle(condition);
  if (condition != nullptr && !isFailure(status)) *condition = {};
  return status;
}

Status ConditionImpl_init(Condition* condition, Lock* lock) {
  Heap2* heap = &condition->env->heap;
  auto* native = static_cast<pthread_cond_t*>(Heap2_malloc(heap, sizeof(pthread_cond_t)));
  if (native == nullptr) return ZELVAN_ERROR_NOMEM;
  if (pthread_cond_init(native, nullptr) != 0) return Heap2_free(heap, native) | ZELVAN_ERROR_RESOURCE;
  *condition = {condition->env, native, lock, await, awaitMillis, signal, signalAll, destroy};
  return ZELVAN_OK;
}

Status Condition_init(Condition* condition, Lock* lock) {
  if (condition == nullptr || lock == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status status = Condition_recycle(condition); isFailure(status)) return status;
  return ConditionImpl_init(condition, lock);
}

Status Condition_recycle(Condition* condition) {
  if (condition == nullptr) return ZELVAN_ERROR_PARAM;
  if (condition->destroy == nullptr) return ZELVAN_OK;
  const Status status = condition->destroy(condition);
  if (!isFailure(status)) construct_Condition(condition, condition->env);
  return status;
}

Status Condition_await(Condition* condition) {
  if (condition == nullptr) return ZELVAN_ERROR_PARAM;
  return condition->await != nullptr ? condition->await(condition) : ZELVAN_ERROR_STATE;
}

Status Condition_awaitMillis(Condition* condition, int32_t millis) {
  if (condition == nullptr) return ZELVAN_ERROR_PARAM;
  if (condition->awaitMillis == nullptr) return ZELVAN_ERROR_STATE;
  return condition->awaitMillis(condition, millis < 0 ? 0 : millis);
}

Status Condition_signal(Condition* condition) {
  if (condition == nullptr) return ZELVAN_ERROR_PARAM;
  return condition->signal != nullptr ? condition->signal(condition) : ZELVAN_ERROR_STATE;
}

Status Condition_signalAll(Condition* condition) {
  if (condition == nullptr) return ZELVAN_ERROR_PARAM;
  return condition->signalAll != nullptr ? condition->signalAll(condition) : ZELVAN_OK;
}
