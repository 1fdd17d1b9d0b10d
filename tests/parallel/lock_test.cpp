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
    if (acquired == 1) {
      EXPECT_EQ(Lock_unlock(lock), ZELVAN_OK);
    }
  }).join();
  return acquired;
}

class LockOfType : public ::testing::TestWithParam<int32_t> {
 protected:
  LockOfType() {
    construct_Lock(&lock_, arena_.env());
    EXPECT_EQ(Lock_lock(&lock_), ZELVAN_ERROR_STATE);
    EXPECT_EQ(Lock_init(&lock_, GetParam()), ZELVAN_OK);
  }
  ~LockOfType() override { EXPECT_EQ(destruct_Lock(&lock_), ZELVAN_OK); }
  TestArena arena_;
  Lock lock_;
};
INSTANTIATE_TEST_SUITE_P(Lock, LockOfType, ::testing::Values(LOCK_REENTRANT, LOCK_SPIN));

TEST_P(LockOfType, ExcludesOthers) {
  int64_t sum = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        Lock_lock(&lock_);
        ++sum;
        Lock_unlock(&lock_);
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(sum, 6000);
}

TEST_P(LockOfType, OnlyTheReentrantOneIsTakenTwice) {
  const bool reentrant = GetParam() == LOCK_REENTRANT;
  int32_t acquired = -1;
  EXPECT_EQ(Lock_tryLock(&lock_, nullptr), ZELVAN_ERROR_PARAM);
  ASSERT_EQ(Lock_lock(&lock_), ZELVAN_OK);
  EXPECT_EQ(Lock_tryLock(&lock_, &acquired), ZELVAN_OK);
  EXPECT_EQ(acquired, reentrant);
  EXPECT_EQ(tryFromElsewhere(&lock_), 0);
  EXPECT_EQ(Lock_unlock(&lock_), ZELVAN_OK);
  EXPECT_EQ(tryFromElsewhere(&lock_), !reentrant) << "one of two holds is left on the reentrant lock";
  if (reentrant) {
    EXPECT_EQ(Lock_unlock(&lock_), ZELVAN_OK);
    EXPECT_EQ(tryFromElsewhere(&lock_), 1);
  }
}

TEST_P(LockOfType, RecycleBlanksTheReentrantOneOnly) {
  const bool reentrant = GetParam() == LOCK_REENTRANT;
  EXPECT_EQ(Lock_init(&lock_, GetParam()), ZELVAN_OK) << "over a live lock";
  EXPECT_EQ(Lock_recycle(&lock_), ZELVAN_OK);
  EXPECT_EQ(arena_.used(), 0u);
  EXPECT_EQ(Lock_lock(&lock_), reentrant ? ZELVAN_ERROR_STATE : ZELVAN_OK);
}

TEST(Lock, UnknownTypeAndExhaustedArena) {
  EXPECT_EQ(Lock_getBufferSize(2), -1);
  EXPECT_EQ(Lock_getBufferSize(LOCK_SPIN), 0);
  TestArena arena(64);
  Lock lock;
  Condition condition;
  construct_Lock(&lock, arena.env());
  construct_Condition(&condition, arena.env());
  EXPECT_EQ(Lock_init(&lock, 2), ZELVAN_ERROR_UNSUPPORTED);
  void* rest = Heap2_malloc(&arena.env()->heap, Heap2_getFreeSize(&arena.env()->heap));
  EXPECT_EQ(Lock_init(&lock, LOCK_REENTRANT), ZELVAN_ERROR_NOMEM);
  EXPECT_EQ(Condition_init(&condition, &lock), ZELVAN_ERROR_NOMEM);
  Heap2_free(&arena.env()->heap, rest);
}

class ConditionTest : public ::testing::Test {
 protected:
  ConditionTest() {
    construct_Lock(&lock_, arena_.env());
    construct_Condition(&condition_, arena_.env());
  }
  void init() {
    ASSERT_EQ(Lock_init(&lock_, LOCK_REENTRANT), ZELVAN_OK);
    ASSERT_EQ(Condition_init(&condition_, &lock_), ZELVAN_OK);
  }
  ~ConditionTest() override {
    EXPECT_EQ(destruct_Condition(&condition_), ZELVAN_OK);
    EXPECT_EQ(destruct_Lock(&lock_), ZELVAN_OK);
  }
  TestArena arena_;
  Lock lock_;
  Condition condition_;
};

TEST_F(ConditionTest, BlankOperationsDiffer) {
  EXPECT_EQ(Condition_init(&condition_, nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Condition_await(&condition_), ZELVAN_ERROR_STATE);
  EXPECT_EQ(Condition_awaitMillis(&condition_, 1), ZELVAN_ERROR_STATE);
  EXPECT_EQ(Condition_signal(&condition_), ZELVAN_ERROR_STATE);
  EXPECT_EQ(Condition_signalAll(&condition_), ZELVAN_OK);
  EXPECT_EQ(Condition_recycle(&condition_), ZELVAN_OK);
}

TEST_F(ConditionTest, TimedWaitsRunOut) {
  init();
  ASSERT_EQ(Lock_lock(&lock_), ZELVAN_OK);
  for (const int32_t millis : {-5, 0, 1, 40}) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Condition_awaitMillis(&condition_, millis), ZELVAN_ERROR_TIMEOUT);
    const auto passed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(passed, std::chrono::milliseconds(millis - 1));  // the two clocks differ a little
  }
  EXPECT_EQ(Lock_unlock(&lock_), ZELVAN_OK);
}

TEST_F(ConditionTest, SignalsReachTheWaiters) {
  init();
  int waiting = 0;
  int tokens = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      Lock_lock(&lock_);
      ++waiting;
      while (tokens == 0) {
        EXPECT_EQ(t % 2 == 0 ? Condition_await(&condition_) : Condition_awaitMillis(&condition_, 20000), ZELVAN_OK);
      }
      --tokens;
      --waiting;
      Lock_unlock(&lock_);
    });
  }
  const auto waitFor = [&](int n) {
    for (;;) {
      Lock_lock(&lock_);
      const int now = waiting;
      Lock_unlock(&lock_);
      if (now == n) return;
      std::this_thread::yield();
    }
  };
  const auto give = [&](int n, Status (*signal)(Condition*)) {
    Lock_lock(&lock_);
    tokens += n;
    EXPECT_EQ(signal(&condition_), ZELVAN_OK);
    Lock_unlock(&lock_);
  };
  waitFor(4);
  give(1, Condition_signal);
  waitFor(3);
  give(3, Condition_signalAll);
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(waiting, 0);
}

}  // namespace
