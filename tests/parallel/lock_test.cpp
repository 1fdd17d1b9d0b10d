#include "parallel/lock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "support/test_arena.h"

namespace {

int32_t tryFromElsewhere(Lock* lock) {
  int32_t acquired = -1;
  std::thread([&] {
    EXPECT_EQ(Lock_tryLock(lock, &acquired), ZELVAN_OK);
    if (acquired == 1) Lock_unlock(lock);
  }).join();
  return acquired;
}

TEST(Lock, BothTypesExcludeAndOnlyTheReentrantOneIsTakenTwice) {
  for (const int32_t type : {LOCK_REENTRANT, LOCK_SPIN}) {
    const bool reentrant = type == LOCK_REENTRANT;
    TestArena arena;
    Lock lock;
    construct_Lock(&lock, arena.env());
    EXPECT_EQ(Lock_lock(&lock), ZELVAN_ERROR_STATE);
    EXPECT_EQ(Lock_init(&lock, 2), ZELVAN_ERROR_UNSUPPORTED);
    ASSERT_EQ(Lock_init(&lock, type), ZELVAN_OK);
    ASSERT_EQ(Lock_init(&lock, type), ZELVAN_OK) << "over a live lock";

    int64_t sum = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < 2000; ++i) {
          Lock_lock(&lock);
          ++sum;
          Lock_unlock(&lock);
        }
      });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(sum, 6000);

    int32_t acquired = -1;
    ASSERT_EQ(Lock_lock(&lock), ZELVAN_OK);
    EXPECT_EQ(Lock_tryLock(&lock, &acquired), ZELVAN_OK);
    EXPECT_EQ(acquired, reentrant);
    EXPECT_EQ(tryFromElsewhere(&lock), 0);
    EXPECT_EQ(Lock_unlock(&lock), ZELVAN_OK);
    EXPECT_EQ(tryFromElsewhere(&lock), !reentrant) << "one of two holds is left on the reentrant lock";
    if (reentrant) Lock_unlock(&lock);

    EXPECT_EQ(Lock_recycle(&lock), ZELVAN_OK);
    EXPECT_EQ(arena.used(), 0u);
    EXPECT_EQ(Lock_lock(&lock), reentrant ? ZELVAN_ERROR_STATE : ZELVAN_OK) << "a spin lock stays live";
  }
}

TEST(Condition, BlankTimedAndSignalledWaits) {
  TestArena arena;
  Lock lock;
  Condition condition;
  construct_Lock(&lock, arena.env());
  construct_Condition(&condition, arena.env());
  EXPECT_EQ(Condition_signal(&condition), ZELVAN_ERROR_STATE);
  EXPECT_EQ(Condition_signalAll(&condition), ZELVAN_OK);
  EXPECT_EQ(Condition_awaitMillis(&condition, 1), ZELVAN_ERROR_STATE);
  ASSERT_EQ(Lock_init(&lock, LOCK_REENTRANT), ZELVAN_OK);
  ASSERT_EQ(Condition_init(&condition, &lock), ZELVAN_OK);

  Lock_lock(&lock);
  for (const int32_t millis : {-5, 0, 1, 40}) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Condition_awaitMillis(&condition, millis), ZELVAN_ERROR_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(millis - 1));
  }
  Lock_unlock(&lock);

  int waiting = 0, tokens = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      Lock_lock(&lock);
      ++waiting;
      while (tokens == 0) {
        EXPECT_EQ(t % 2 == 0 ? Condition_await(&condition) : Condition_awaitMillis(&condition, 20000), ZELVAN_OK);
      }
      --tokens;
      --waiting;
      Lock_unlock(&lock);
    });
  }
  // With n threads waiting, hands out tokens; hangs when a signal is lost.
  const auto give = [&](int n, int count, Status (*signal)(Condition*)) {
    for (bool done = false; !done; std::this_thread::yield()) {
      Lock_lock(&lock);
      if ((done = waiting == n)) {
        tokens += count;
        EXPECT_EQ(signal(&condition), ZELVAN_OK);
      }
      Lock_unlock(&lock);
    }
  };
  give(4, 1, Condition_signal);
  give(3, 3, Condition_signalAll);
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(destruct_Condition(&condition), ZELVAN_OK);
  EXPECT_EQ(destruct_Lock(&lock), ZELVAN_OK);
}

}  // namespace
