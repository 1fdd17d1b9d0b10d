#include "parallel/parallel_executor.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "parallel/bands.h"
#include "parallel/syscall.h"
#include "support/test_arena.h"

namespace {

constexpr int32_t kCapacity = 64;

struct Counter {
  std::atomic<int>* ran;
  Status result;
};

Status count(void* block) {
  auto* counter = static_cast<Counter*>(block);
  ++*counter->ran;
  return counter->result;
}

Status fork(ParallelExecutor* executor, std::atomic<int>* ran, Status result) {
  Counter block{ran, result};
  const Status status = ParallelExecutor_fork(executor, count, &block, sizeof block);
  block.ran = nullptr;  // the task has a copy
  return status;
}

// Holds a thread until it is opened.
struct Gate {
  std::atomic<int> inside{0};
  std::atomic<bool> open{false};
  explicit Gate(ParallelExecutor* executor) {
    Gate* self = this;
    EXPECT_EQ(ParallelExecutor_fork(executor, pass, &self, sizeof self), ZELVAN_OK);
    while (inside == 0) std::this_thread::yield();
  }
  static Status pass(void* block) {
    Gate* gate = *static_cast<Gate**>(block);
    ++gate->inside;
    while (!gate->open) std::this_thread::yield();
    return 0x40;
  }
};

struct Indices {
  std::vector<std::atomic<int>> runs;
  std::atomic<int> count{0};
  explicit Indices(size_t n) : runs(n) {}
  static Status run(void* argument, int32_t index, int32_t count) {
    auto* self = static_cast<Indices*>(argument);
    self->count = count;
    ++self->runs[static_cast<size_t>(index)];
    return 1u << (index % 8);
  }
  int total() const {
    int sum = 0;
    for (const auto& r : runs) {
      EXPECT_LE(r, 1);
      sum += r;
    }
    return sum;
  }
};

struct Form {
  const char* name;
  int32_t threadCount, callerWorks;
  int32_t workers;  // 0: depends on the machine
  bool bridge;
  uint32_t mask;
};

class ExecutorForm : public ::testing::TestWithParam<Form> {
 protected:
  ExecutorForm() {
    const Form& form = GetParam();
    construct_Pel(pel_.get(), arena_.env());
    construct_ParallelExecutor(&executor_, arena_.env());
    executor_.threadCount = form.threadCount;
    executor_.callerWorks = form.callerWorks;
    executor_.processorMask = form.mask;
    executor_.furtherSettings[5] = 77;
    if (form.bridge) {
      pel_->requested.numberOfWorkers = form.workers;
      EXPECT_EQ(Pel_init(pel_.get()), ZELVAN_OK);
      executor_.pel = pel_.get();
    }
    EXPECT_EQ(ParallelExecutor_init(&executor_, kCapacity, kCapacity), ZELVAN_OK);
  }
  ~ExecutorForm() override {
    EXPECT_EQ(destruct_ParallelExecutor(&executor_), ZELVAN_OK);
    EXPECT_EQ(destruct_Pel(pel_.get()), ZELVAN_OK);
  }
  TestArena arena_;
  std::unique_ptr<Pel> pel_ = std::make_unique<Pel>();
  ParallelExecutor executor_;
  std::atomic<int> ran_{0};
};

// "foreign" pins to processors that a small machine does not have: that must not stop the work.
INSTANTIATE_TEST_SUITE_P(ParallelExecutor, ExecutorForm,
                         ::testing::Values(Form{"default", -1, 0, 0, false, 0}, Form{"one", 1, 0, 1, false, 0},
                                           Form{"caller", 0, 1, 1, false, 0}, Form{"callerAndTwo", 2, 1, 3, false, 0},
                                           Form{"foreign", 3, 0, 3, false, 3u << 30}, Form{"bridge", -1, 0, 3, true, 0},
                                           Form{"bridgeAlone", 1, 0, 1, true, 0}),
                         [](const auto& info) { return info.param.name; });

TEST_P(ExecutorForm, JoinGathersTheResultsOfAllTasks) {
  const uint32_t idle = arena_.used();
  const int32_t slots = GetParam().bridge ? 2 * kCapacity : kCapacity;
  for (int round = 0; round < 20; ++round) {
    ran_ = 0;
    for (int i = 0; i < slots; ++i) ASSERT_EQ(fork(&executor_, &ran_, 1u << (i % 32)), ZELVAN_OK);
    EXPECT_EQ(ParallelExecutor_join(&executor_), 0xFFFFFFFFu);
    EXPECT_EQ(ran_, slots);
    EXPECT_EQ(arena_.used(), idle);
    EXPECT_EQ(ParallelExecutor_join(&executor_), ZELVAN_OK) << "with no tasks";
  }
}

struct Rows {
  std::vector<std::atomic<int>>* rows;
  int32_t begin, end;
};

Status touchRows(Rows* band) {
  for (int32_t y = band->begin; y < band->end; ++y) ++(*band->rows)[static_cast<size_t>(y)];
  return ZELVAN_OK;
}

TEST_P(ExecutorForm, BandsCoverEveryRowOnce) {
  const int32_t n = ParallelExecutor_getNumberOfBands(&executor_);
  EXPECT_EQ(n, GetParam().bridge ? 2 * kCapacity : kCapacity);
  for (const int32_t height : {1, 63, 65, 1001}) {
    std::vector<std::atomic<int>> rows(static_cast<size_t>(height));
    const auto band = [&](int32_t i) { return Rows{&rows, bandStart(i, n, height), bandStart(i + 1, n, height)}; };
    EXPECT_EQ((forkBands<Rows, touchRows>(&executor_, n, band)), ZELVAN_OK);
    for (const auto& touched : rows) ASSERT_EQ(touched, 1);
  }
}

TEST_P(ExecutorForm, ExecuteRunsEachIndexOnce) {
  for (const int32_t n : {1, 7, kCapacity, 0}) {
    const int32_t expected = n != 0 ? n : GetParam().workers;
    if (expected == 0) continue;
    Indices indices(kCapacity);
    Status results = 0;
    EXPECT_EQ(ParallelExecutor_execute(&executor_, Indices::run, &indices, n, &results), ZELVAN_OK);
    EXPECT_EQ(results, expected < 8 ? (1u << expected) - 1 : 0xFFu);
    EXPECT_EQ(indices.total(), expected);
    EXPECT_EQ(indices.count, expected);
  }
  // More than the queue takes, and behind tasks that were not joined: the rest is dropped.
  if (GetParam().bridge) return;
  for (int i = 0; i < 5; ++i) fork(&executor_, &ran_, 1);
  Indices indices(1000);
  EXPECT_EQ(ParallelExecutor_execute(&executor_, Indices::run, &indices, 1000, nullptr), ZELVAN_ERROR_STATE);
  EXPECT_LT(indices.total(), 1000);
  ParallelExecutor_join(&executor_);  // what was still running
  EXPECT_EQ(ParallelExecutor_getNumberOfTasks(&executor_), 0);
}

TEST_P(ExecutorForm, StartsAnewAndKeepsItsSettings) {
  for (int round = 0; round < 3; ++round) {
    // Tasks that nobody joined are joined when the old threads end.
    for (int i = 0; i < 10; ++i) EXPECT_EQ(fork(&executor_, &ran_, 2), ZELVAN_OK);
    ASSERT_EQ(ParallelExecutor_init(&executor_, 4, 16), ZELVAN_OK);
    EXPECT_EQ(ParallelExecutor_getNumberOfBands(&executor_), GetParam().bridge ? 32 : 16);
    EXPECT_EQ(executor_.furtherSettings[5], 77u);
    EXPECT_EQ(fork(&executor_, &ran_, 2), ZELVAN_OK);
    EXPECT_EQ(ParallelExecutor_join(&executor_), 2u);
    EXPECT_EQ(ParallelExecutor_shutdown(&executor_), ZELVAN_OK);
    EXPECT_EQ(fork(&executor_, &ran_, 2), ZELVAN_STATUS_CANCELLED);
    ASSERT_EQ(ParallelExecutor_init(&executor_, 4, 16), ZELVAN_OK);
  }
}

class OneThread : public ::testing::Test {
 protected:
  OneThread() {
    construct_ParallelExecutor(&executor_, arena_.env());
    executor_.threadCount = 1;
    EXPECT_EQ(ParallelExecutor_init(&executor_, 1, kCapacity), ZELVAN_OK);
  }
  ~OneThread() override { EXPECT_EQ(destruct_ParallelExecutor(&executor_), ZELVAN_OK); }
  TestArena arena_;
  ParallelExecutor executor_;
  std::atomic<int> ran_{0};
};

TEST_F(OneThread, ATaskTooManyIsDropped) {
  Gate gate(&executor_);
  for (int i = 0; i < kCapacity; ++i) ASSERT_EQ(fork(&executor_, &ran_, 1), ZELVAN_OK);
  ParallelExecutorTask* extra = ParallelExecutor_newTask_v1(&executor_, count, sizeof(Counter));
  EXPECT_EQ(ParallelExecutor_fork_v1(&executor_, extra), ZELVAN_ERROR_STATE);
  EXPECT_EQ(ParallelExecutor_offerMillis(&executor_, extra, 2), 0);
  EXPECT_EQ(ParallelExecutor_getNumberOfTasks(&executor_), kCapacity + 1);
  EXPECT_EQ(ParallelExecutor_getNumberOfWaitingTasks(&executor_), kCapacity);
  gate.open = true;
  EXPECT_EQ(ParallelExecutor_join(&executor_), 0x41u);
  EXPECT_EQ(ran_, kCapacity);
  EXPECT_EQ(ParallelExecutor_deleteTask(&executor_, extra), ZELVAN_OK);
}

TEST_F(OneThread, ShutdownCancelsWhatWaits) {
  Gate gate(&executor_);
  for (int i = 0; i < 10; ++i) fork(&executor_, &ran_, 1);
  EXPECT_EQ(ParallelExecutor_shutdown(&executor_), ZELVAN_OK);
  EXPECT_EQ(ParallelExecutor_getNumberOfFinishedTasks(&executor_), 10);
  gate.open = true;
  EXPECT_EQ(ParallelExecutor_join(&executor_), 0x40u | ZELVAN_STATUS_CANCELLED);
  EXPECT_EQ(ran_, 0);
}

TEST_F(OneThread, TheCallerCanCarryTheTasksItself) {
  const Counter block{&ran_, 5};
  EXPECT_EQ(ParallelExecutor_newTask(&executor_, count, nullptr, 4), nullptr);
  EXPECT_EQ(ParallelExecutor_pollMillis(&executor_, 1), nullptr);
  for (int i = 0; i < 3; ++i) {
    ParallelExecutorTask* task = ParallelExecutor_newTask(&executor_, count, &block, sizeof block);
    EXPECT_EQ(i == 0 ? ParallelExecutor_put(&executor_, task) : ParallelExecutor_offer(&executor_, task), 1);
  }
  for (int i = 3; i-- > 0;) {
    ParallelExecutorTask* done = ParallelExecutor_take(&executor_);
    EXPECT_EQ(done->result, 5u);
    EXPECT_EQ(ParallelExecutor_getNumberOfTasks(&executor_), i);
    EXPECT_EQ(ParallelExecutor_deleteTask(&executor_, done), ZELVAN_OK);
  }
}

// A full finished queue stops the thread, and the working caller finds no room either: the end must free both.
TEST_F(OneThread, EndsWithBothQueuesFull) {
  ASSERT_EQ(ParallelExecutor_recycle(&executor_), ZELVAN_OK);
  executor_.callerWorks = 1;
  ASSERT_EQ(ParallelExecutor_init(&executor_, 1, 2), ZELVAN_OK);
  const Counter block{&ran_, 0};
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(ParallelExecutor_put(&executor_, ParallelExecutor_newTask(&executor_, count, &block, sizeof block)), 1);
  }
  while (ran_ < 3) std::this_thread::yield();
  EXPECT_EQ(ParallelExecutor_recycle(&executor_), ZELVAN_ERROR_STATE);
  EXPECT_EQ(arena_.used(), 0u);
}

Status processorOfTask(void* block) {
  **static_cast<int**>(block) = sched_getcpu();
  return Syscall_setThreadAffinityMask(nullptr, 0xFFFFFFFFu);  // a task that moves its thread
}

TEST_F(OneThread, StaysOnItsProcessor) {
  cpu_set_t allowed;
  ASSERT_EQ(sched_getaffinity(0, sizeof allowed, &allowed), 0);
  for (int32_t processor = 0; processor < 32; ++processor) {
    if (!CPU_ISSET(processor, &allowed)) continue;
    executor_.processorMask = 1u << processor;
    ASSERT_EQ(ParallelExecutor_init(&executor_, 1, 4), ZELVAN_OK);
    for (int i = 0; i < 3; ++i) {
      int seen = -1;
      int* at = &seen;
      ParallelExecutor_fork(&executor_, processorOfTask, &at, sizeof at);
      EXPECT_EQ(ParallelExecutor_join(&executor_), ZELVAN_OK);
      EXPECT_EQ(seen, processor);
    }
  }
}

TEST(ParallelExecutor, NullRunsInTheCaller) {
  std::atomic<int> ran{0};
  EXPECT_EQ(ParallelExecutor_fork(nullptr, count, nullptr, 4), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(fork(nullptr, &ran, 9), 9u);
  EXPECT_EQ(ran, 1);
  EXPECT_EQ(ParallelExecutor_join(nullptr), ZELVAN_OK);
  for (const int32_t n : {-1, 5}) {
    Indices indices(5);
    Status results = 0;
    EXPECT_EQ(ParallelExecutor_execute(nullptr, Indices::run, &indices, n, &results), ZELVAN_OK);
    EXPECT_EQ(results, n < 1 ? 1u : 0x1Fu);
  }
}

// Every way in which init can fail leaves an executor that holds nothing.
TEST(ParallelExecutor, AFailedInitGivesEverythingBack) {
  int failures = 0;
  for (uint32_t size = 64;; size += 32, ++failures) {
    TestArena arena(size);
    ParallelExecutor executor;
    construct_ParallelExecutor(&executor, arena.env());
    executor.threadCount = 0;
    EXPECT_EQ(ParallelExecutor_init(&executor, 3, 3), ZELVAN_ERROR_PARAM) << "nobody would work";
    executor.threadCount = 2;
    const Status status = ParallelExecutor_init(&executor, 3, 3);
    EXPECT_EQ(executor.threadCount, 2);
    if (status != ZELVAN_OK) {
      ASSERT_EQ(status, ZELVAN_ERROR_NOMEM);
      EXPECT_EQ(arena.used(), 0u) << size;
    }
    EXPECT_EQ(destruct_ParallelExecutor(&executor), ZELVAN_OK);
    if (status == ZELVAN_OK) break;
  }
  EXPECT_GT(failures, 10);
}

}  // namespace
