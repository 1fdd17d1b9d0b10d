// A fork/join pool over an arena of its own, unpinned, so that tests on a busy machine keep their pace.
#ifndef ZVT4_TESTS_SUPPORT_TEST_EXECUTOR_H_
#define ZVT4_TESTS_SUPPORT_TEST_EXECUTOR_H_

#include "parallel/parallel_executor.h"
#include "support/test_arena.h"

class TestExecutor {
 public:
  explicit TestExecutor(int32_t threads, int32_t capacity = 64) {
    construct_ParallelExecutor(&executor_, arena_.env());
    executor_.threadCount = threads;
    executor_.pin = 0;
    EXPECT_EQ(ParallelExecutor_init(&executor_, threads, capacity), ZELVAN_OK);
  }
  ~TestExecutor() { EXPECT_EQ(destruct_ParallelExecutor(&executor_), ZELVAN_OK); }
  TestExecutor(const TestExecutor&) = delete;
  TestExecutor& operator=(const TestExecutor&) = delete;

  ParallelExecutor* get() { return &executor_; }

 private:
  TestArena arena_;
  ParallelExecutor executor_ = {};
};

#endif  // ZVT4_TESTS_SUPPORT_TEST_EXECUTOR_H_
