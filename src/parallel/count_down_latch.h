// CountDownLatch: threads wait until a count has come down to 0.
#ifndef ZVT4_PARALLEL_COUNT_DOWN_LATCH_H_
#define ZVT4_PARALLEL_COUNT_DOWN_LATCH_H_

#include "parallel/lock.h"

struct CountDownLatch {
  Env* env;
  int32_t count;  // atomic
  Lock lock;
  Condition zero;  // on lock
};

extern "C" {
Status construct_CountDownLatch(CountDownLatch* latch, Env* env) ZVT4_NAME(construct_CountDownLatch);
Status destruct_CountDownLatch(CountDownLatch* latch) ZVT4_NAME(destruct_CountDownLatch);
// ZELVAN_ERROR_PARAM for a null latch or a negative count. A latch that is in use may be readied again.
Status CountDownLatch_init(CountDownLatch* latch, int32_t count) ZVT4_NAME(CountDownLatch_init);
// Returns at once when the count is 0. ZELVAN_ERROR_STATE before init, ZELVAN_ERROR_TIMEOUT when millis ran out.
Status CountDownLatch_await(CountDownLatch* latch) ZVT4_NAME(CountDownLatch_await);
Status CountDownLatch_awaitMillis(CountDownLatch* latch, int32_t millis) ZVT4_NAME(CountDownLatch_awaitMillis);
// One less, down to 0, which wakes all.
Status CountDownLatch_countDown(CountDownLatch* latch) ZVT4_NAME(CountDownLatch_countDown);
int32_t CountDownLatch_getCount(const CountDownLatch* latch) ZVT4_NAME(CountDownLatch_getCount);
}

#endif  // ZVT4_PARALLEL_COUNT_DOWN_LATCH_H_
