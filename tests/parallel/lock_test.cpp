#include "parallel/lock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "support/test_arena.h"

namespace {

TEST(Lock, BothTypesExcludeAndOnlyTheReentrantOneIsTakenTwice) {
  for (const int32_t type : {LOCK_REENTRANT, LOCK_SPIN}) {
    const bool reentrant = type == LOCK_REENTRANT;
    TestArena arena;
    Lock lock;
    construct_Lock(&lock, arena.env());
    EXPECT_EQ(Lock_lock(&lock), ZELVAN_ERROR_STATE);
    EXPECT_EQ(Lock_init(&lock, 2), ZELVAN_ERROR_UNSUPPORTED);
    for (int i = 0; i < 2; ++i) ASSERT_EQ(Lock_init(&lock, type), ZELVAN_OK);  // over a live lock too

    int32_t sum = 0, here = -1, there = -1;
    const auto addMany = [&] {
      for (int i = 0; i < 3000; ++i) {
        Lock_lock(&lock);
        ++sum;
        Lock_unlock(&lock);
      }
    };
    std::thread other(addMany);
    addMany();
    other.join();
    EXPECT_EQ(sum, 6000);

    Lock_lock(&lock);
    EXPECT_EQ(Lock_tryLock(&lock, &here), ZELVAN_OK);
    EXPECT_EQ(here, reentrant);
    if (reentrant) Lock_unlock(&lock);  // one of two holds is left
    std::thread([&] { EXPECT_EQ(Lock_tryLock(&lock, &there), ZELVAN_OK); }).join();
    EXPECT_EQ(there, 0);
    EXPECT_EQ(Lock_unlock(&lock) | Lock_recycle(&lock), ZELVAN_OK);
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
  const auto start = std::chrono::steady_clock::now();
  for (const int32_t millis : {-5, 40}) EXPECT_EQ(Condition_awaitMillis(&condition, millis), ZELVAN_ERROR_TIMEOUT);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(39));
  for (const auto signal : {Condition_signal, Condition_signalAll}) {
    bool signalled = false;
    std::thread other([&] {
      Lock_lock(&lock);
      signalled = true;
      EXPECT_EQ(signal(&condition), ZELVAN_OK);
      Lock_unlock(&lock);
    });
    while (!signalled) EXPECT_EQ(Condition_awaitMillis(&condition, 20000), ZELVAN_OK);
    other.join();
  }
  Lock_unlock(&lock);
  EXPECT_EQ(destruct_Condition(&condition) | destruct_Lock(&lock), ZELVAN_OK);
}

}  // namespace
