#include "parallel/count_down_latch.h"

#include <cstring>

#include "base/atomic.h"

namespace {

// The count is looked at under the lock too, so that the last count-down cannot slip between look and wait.
template <typename Wait>
Status awaitZero(CountDownLatch* latch, const Wait& wait) {
  if (latch == nullptr) return ZELVAN_ERROR_PARAM;
  while (atomicLoad(&latch->count) > 0) {
    if (const Status s = Lock_lock(&latch->lock); s != ZELVAN_OK) return s;
    const Status waited = atomicLoad(&latch->count) > 0 ? wait() : ZELVAN_OK;
    if (const Status s = Lock_unlock(&latch->lock); (s | waited) != ZELVAN_OK) return s | waited;
  }
  return ZELVAN_OK;
}

}  // namespace

Status construct_CountDownLatch(CountDownLatch* latch, Env* env) {
  if (latch == nullptr) return ZELVAN_ERROR_PARAM;
  std::memset(static_cast<void*>(latch), 0, sizeof(*latch));
  latch->env = env;
  return construct_Lock(&latch->lock, env) | construct_Condition(&latch->zero, env);
}

Status destruct_CountDownLatch(CountDownLatch* latch) {
  if (latch == nullptr) return ZELVAN_ERROR_PARAM;
  const Status status = destruct_Condition(&latch->zero) | destruct_Lock(&latch->lock);
  if (status == ZELVAN_OK) std::memset(static_cast<void*>(latch), 0, sizeof(*latch));
  return status;
}

Status CountDownLatch_init(CountDownLatch* latch, int32_t count) {
  if (latch == nullptr || count < 0) return ZELVAN_ERROR_PARAM;
  if (const Status s = Condition_recycle(&latch->zero) | Lock_recycle(&latch->lock); s != ZELVAN_OK) return s;
  if (const Status s = Lock_init(&latch->lock, LOCK_REENTRANT); s != ZELVAN_OK) return s;
  if (const Status s = Condition_init(&latch->zero, &latch->lock); s != ZELVAN_OK) return s;
  atomicStore(&latch->count, count);
  return ZELVAN_OK;
}

Status CountDownLatch_await(CountDownLatch* latch) {
  return awaitZero(latch, [=] { return Condition_await(&latch->zero); });
}

Status CountDownLatch_awaitMillis(CountDownLatch* latch, int32_t millis) {
  return awaitZero(latch, [=] { return Condition_awaitMillis(&latch->zero, millis); });
}

Status CountDownLatch_countDown(CountDownLatch* latch) {
  if (latch == nullptr) return ZELVAN_ERROR_PARAM;
  int32_t count = atomicLoad(&latch->count);
  do {
    if (count < 1) return ZELVAN_OK;
  } while (!atomicCompareExchange(&latch->count, &count, count - 1));
  if (count > 1) return ZELVAN_OK;
  if (const Status s = Lock_lock(&latch->lock); s != ZELVAN_OK) return s;
  const Status status = Condition_signalAll(&latch->zero);
  return status | Lock_unlock(&latch->lock);
}

int32_t CountDownLatch_getCount(const CountDownLatch* latch) {
  return latch == nullptr ? -1 : atomicLoad(&latch->count);
}
