// The executor's queues as a caller of its own tasks uses them, and the shares in an owner's arena sum.
#include <gtest/gtest.h>

#include <memory>

#include "parallel/lock.h"
#include "parallel/parallel_executor.h"
#include "parallel/pel.h"
#include "support/test_arena.h"
#include "support/test_executor.h"

namespace {

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
