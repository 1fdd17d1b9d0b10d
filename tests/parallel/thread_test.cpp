#include "parallel/thread.h"

#include <sched.h>

#include <chrono>
#include <thread>

#include "parallel/lock.h"
#include "parallel/pel.h"
#include "parallel/syscall.h"
#include "support/test_executor.h"

namespace {

TEST(Thread, StartsOnceAndAgainAfterAJoin) {
  const auto addOne = [](void* argument) -> Status { return ++*static_cast<Status*>(argument); };
  Thread thread;
  construct_Thread(&thread, nullptr);
  EXPECT_EQ(Thread_join(&thread), ZELVAN_OK);
  Status value = 6, result = 0;
  EXPECT_EQ(Thread_start(&thread, nullptr, &value), ZELVAN_ERROR_PARAM);
  ASSERT_EQ(Thread_start(&thread, addOne, &value), ZELVAN_OK);
  EXPECT_EQ(Thread_start(&thread, addOne, &value), ZELVAN_ERROR_STATE);
  EXPECT_EQ(destruct_Thread(&thread), 7u);
  EXPECT_EQ(thread.argument, &value) << "the record stays after a nonzero result";
  EXPECT_EQ(Thread_join(&thread), ZELVAN_OK) << "the result belongs to the first join";

  ASSERT_EQ(Thread_start(&thread, addOne, &value), ZELVAN_OK);
  EXPECT_EQ(Thread_join2(&thread, &result), ZELVAN_OK);
  EXPECT_EQ(result, 8u);
  EXPECT_EQ(destruct_Thread(&thread), ZELVAN_OK);
  EXPECT_EQ(thread.argument, nullptr);
}

// Runs on a thread of its own, so that the other tests keep their processors.
Status affinityOfThisThread(void*) {
  cpu_set_t before, now;
  EXPECT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
  for (int32_t i = 0; i < 32; ++i) {
    if (!CPU_ISSET(i, &before)) continue;
    EXPECT_EQ(Syscall_setThreadAffinityMask(nullptr, 1u << i), ZELVAN_OK);
    EXPECT_EQ(Syscall_setThreadAffinityMask(nullptr, 0), ZELVAN_ERROR_RESOURCE);
    EXPECT_EQ(sched_getcpu(), i);
  }
  EXPECT_EQ(Syscall_setThreadAffinityMask(nullptr, 0xFFFFFFFFu), ZELVAN_OK);
  EXPECT_EQ(sched_getaffinity(0, sizeof now, &now), 0);
  CPU_AND(&now, &now, &before);
  return CPU_EQUAL(&now, &before) ? 0x55 : 0;
}

TEST(Syscall, MaskRestrictsAndAllOnesLifts) {
  Thread thread;
  construct_Thread(&thread, nullptr);
  ASSERT_EQ(Thread_start(&thread, affinityOfThisThread, nullptr), ZELVAN_OK);
  EXPECT_EQ(Thread_join(&thread), 0x55u);
}

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

TEST(Members, TasksGoInAndComeBackByEveryQueueForm) {
  TestExecutor pool(1);
  ParallelExecutor* executor = pool.get();
  const TaskFunction twice = [](void* block) {
    *static_cast<int32_t*>(block) *= 2;
    return Status{ZELVAN_OK};
  };
  const auto newTask = [&](int32_t value) { return ParallelExecutor_newTask(executor, twice, &value, sizeof value); };
  ParallelExecutorTask* tasks[] = {newTask(1), newTask(20), newTask(300)};
  EXPECT_EQ(ParallelExecutor_put(executor, tasks[0]), 1);
  EXPECT_EQ(ParallelExecutor_offerMillis(executor, tasks[1], 1000), 1);
  EXPECT_EQ(ParallelExecutor_offer(executor, tasks[2]), 1);
  ParallelExecutorTask* back[3] = {ParallelExecutor_take(executor), ParallelExecutor_pollMillis(executor, 5000),
                                   nullptr};
  for (int32_t i = 0; back[2] == nullptr && i < 5000; ++i) {
    back[2] = ParallelExecutor_poll(executor);
    if (back[2] == nullptr) back[2] = ParallelExecutor_pollMillis(executor, 1);
  }
  int32_t seen = 0;
  for (ParallelExecutorTask* task : back) {
    ASSERT_NE(task, nullptr);
    seen += task == tasks[0] ? 1 : task == tasks[1] ? 10 : 100;
    EXPECT_EQ(ParallelExecutor_deleteTask(executor, task), ZELVAN_OK);
  }
  EXPECT_EQ(seen, 111) << "each came back once";
  EXPECT_EQ(ParallelExecutor_getNumberOfWaitingTasks(executor), 0);
  EXPECT_EQ(ParallelExecutor_getNumberOfTasks(executor), 0);
  EXPECT_EQ(ParallelExecutor_poll(executor), nullptr);
  EXPECT_EQ(ParallelExecutor_put(nullptr, tasks[0]) | ParallelExecutor_offerMillis(nullptr, tasks[0], 1), 0);
  EXPECT_EQ(ParallelExecutor_take(nullptr), nullptr);
}

TEST(Members, SharesInAnArenaAddUp) {
  const int32_t lock = Lock_getBufferSize(0), condition = Condition_getBufferSize();
  EXPECT_EQ(lock, ReentrantLockImpl_getBufferSize());
  EXPECT_EQ(condition, ConditionImpl_getBufferSize());
  EXPECT_EQ(Lock_getBufferSize(1), SpinLockImpl_getBufferSize());
  EXPECT_EQ(Lock_getBufferSize(2), -1);
  EXPECT_EQ(Thread_getBufferSize() | ThreadImpl_getBufferSize() | SpinLockImpl_getBufferSize(), 0);
  EXPECT_EQ(LinkedBlockingQueue_getBufferSize(10), 10 * 8 + (lock + condition) * 2 + 16);
  EXPECT_EQ(ParallelExecutor_getBufferSize(3, 10, 12, 5), 5 * 20 + 3 * 24 + 2 * LinkedBlockingQueue_getBufferSize(10));
  EXPECT_EQ(ParallelExecutor_getBufferSize(0, 10, 12, 5) & ParallelExecutor_getBufferSize(3, 10, -1, 5), -1);
  EXPECT_EQ(Pel_getBufferSize(), lock * 4 + condition * 2);
  uint64_t nothing = 9;
  EXPECT_EQ(Pel_getEventProfilingInfo(nullptr, 1, 3, &nothing), ZELVAN_OK);
  EXPECT_EQ(nothing, 0u);
  EXPECT_EQ(Pel_getEventProfilingInfo(nullptr, 1, 4, &nothing), ZELVAN_ERROR_PARAM);
}

}  // namespace
