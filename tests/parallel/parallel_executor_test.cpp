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
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(Counter), 0u);
  ++*counter->ran;
  return counter->result;
}

// Holds the threads that run it until it is opened.
struct Gate {
  std::atomic<int> inside{0};
  std::atomic<bool> open{false};
  static Status pass(void* block) {
    Gate* gate = *static_cast<Gate**>(block);
    ++gate->inside;
    while (!gate->open) std::this_thread::yield();
    return 0x40;
  }
};

void forkGate(ParallelExecutor* executor, Gate* gate) {
  ASSERT_EQ(ParallelExecutor_fork(executor, Gate::pass, &gate, sizeof gate), ZELVAN_OK);
  while (gate->inside == 0) std::this_thread::yield();
}

struct Indices {
  std::vector<std::atomic<int>> runs;
  std::atomic<int> counts{0};
  explicit Indices(size_t n) : runs(n) {}
  static Status run(void* argument, int32_t index, int32_t count) {
    auto* self = static_cast<Indices*>(argument);
    self->counts = count;
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
  int32_t threadCount;
  int32_t callerWorks;
  int32_t workers;  // 0: depends on the machine
  bool bridge = false;
  int32_t pin = 1;
  uint32_t mask = 0;
};

std::unique_ptr<Pel> makePel(Env* env, int32_t workers) {
  auto pel = std::make_unique<Pel>();
  construct_Pel(pel.get(), env);
  pel->requested.numberOfWorkers = workers;
  EXPECT_EQ(Pel_init(pel.get()), ZELVAN_OK);
  return pel;
}

class ExecutorForm : public ::testing::TestWithParam<Form> {
 protected:
  ExecutorForm() {
    const Form& form = GetParam();
    construct_ParallelExecutor(&executor_, arena_.env());
    executor_.threadCount = form.threadCount;
    executor_.callerWorks = form.callerWorks;
    executor_.pin = form.pin;
    executor_.processorMask = form.mask;
    if (form.bridge) {
      pel_ = makePel(arena_.env(), form.workers);
      executor_.pel = pel_.get();
    }
    EXPECT_EQ(ParallelExecutor_init(&executor_, kCapacity, kCapacity), ZELVAN_OK);
  }
  ~ExecutorForm() override {
    EXPECT_EQ(destruct_ParallelExecutor(&executor_), ZELVAN_OK);
    if (pel_ != nullptr) {
      EXPECT_EQ(destruct_Pel(pel_.get()), ZELVAN_OK);
    }
  }
  TestArena arena_;
  std::unique_ptr<Pel> pel_;
  ParallelExecutor executor_;
};

// "foreign" pins to processors that a small machine does not have: that must not stop the work.
INSTANTIATE_TEST_SUITE_P(ParallelExecutor, ExecutorForm,
                         ::testing::Values(Form{"default", -1, 0, 0}, Form{"one", 1, 0, 1}, Form{"three", 3, 0, 3},
                                           Form{"unpinned", 2, 0, 2, false, 0}, Form{"caller", 0, 1, 1},
                                           Form{"callerAndTwo", 2, 1, 3}, Form{"foreign", 3, 1, 4, false, 1, 3u << 30},
                                           Form{"bridge", -1, 0, 3, true}, Form{"bridgeAlone", 1, 0, 1, true}),
                         [](const auto& info) { return info.param.name; });

TEST_P(ExecutorForm, JoinGathersTheResultsOfAllTasks) {
  std::atomic<int> ran{0};
  const uint32_t idle = arena_.used();
  for (int round = 0; round < 20; ++round) {
    ran = 0;
    for (int i = 0; i < kCapacity; ++i) {
      Counter block{&ran, 1u << (i % 32)};
      ASSERT_EQ(ParallelExecutor_fork(&executor_, count, &block, sizeof block), ZELVAN_OK);
      block.ran = nullptr;  // the task has a copy
    }
    if (round % 2 == 0) {
      EXPECT_EQ(ParallelExecutor_join(&executor_), 0xFFFFFFFFu);
    } else {
      Status results = 0;
      EXPECT_EQ(ParallelExecutor_join2(&executor_, &results), ZELVAN_OK);
      EXPECT_EQ(results, 0xFFFFFFFFu);
    }
    EXPECT_EQ(ran, kCapacity);
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
  for (const int32_t height : {1, 63, 64, 65, 480, 1001}) {
    std::vector<std::atomic<int>> rows(static_cast<size_t>(height));
    const Status status = forkBands<Rows, touchRows>(&executor_, n, [&](int32_t i) {
      return Rows{&rows, bandStart(i, n, height), bandStart(i + 1, n, height)};
    });
    EXPECT_EQ(status, ZELVAN_OK);
    for (const auto& touched : rows) ASSERT_EQ(touched, 1);
  }
}

TEST_P(ExecutorForm, ExecuteRunsEachIndexOnce) {
  for (const int32_t n : {1, 7, kCapacity}) {
    Indices indices(static_cast<size_t>(n));
    Status results = 0;
    EXPECT_EQ(ParallelExecutor_execute(&executor_, Indices::run, &indices, n, &results), ZELVAN_OK);
    EXPECT_EQ(results, n == 1 ? 1u : n == 7 ? 0x7Fu : 0xFFu);
    EXPECT_EQ(indices.total(), n);
    EXPECT_EQ(indices.counts, n);
  }
  if (GetParam().workers == 0) return;
  Indices indices(8);
  EXPECT_EQ(ParallelExecutor_execute(&executor_, Indices::run, &indices, 0, nullptr), ZELVAN_OK);
  EXPECT_EQ(indices.total(), GetParam().workers);
  EXPECT_EQ(indices.counts, GetParam().workers);
}

TEST_P(ExecutorForm, ExecuteBeyondTheQueueSaysSo) {
  Indices indices(1000);
  const Status status = ParallelExecutor_execute(&executor_, Indices::run, &indices, 1000, nullptr);
  if (GetParam().bridge) {
    EXPECT_EQ(status, ZELVAN_OK);
    EXPECT_EQ(indices.total(), 1000);
  } else {
    EXPECT_EQ(status, ZELVAN_ERROR_STATE);
    EXPECT_GE(indices.total(), kCapacity);
    EXPECT_LT(indices.total(), 1000);
  }
  Indices again(30);
  EXPECT_EQ(ParallelExecutor_execute(&executor_, Indices::run, &again, 30, nullptr), ZELVAN_OK);
  EXPECT_EQ(again.total(), 30);
}

TEST_P(ExecutorForm, StartsAnewAndKeepsItsSettings) {
  std::atomic<int> ran{0};
  Counter block{&ran, 2};
  executor_.callerMask = 0;
  executor_.furtherSettings[5] = 77;
  for (int round = 0; round < 3; ++round) {
    // Tasks that nobody joined are joined by the end of the old threads.
    for (int i = 0; i < 10; ++i) EXPECT_EQ(ParallelExecutor_fork(&executor_, count, &block, sizeof block), ZELVAN_OK);
    ASSERT_EQ(ParallelExecutor_init(&executor_, 4, 16), ZELVAN_OK);
    EXPECT_EQ(ParallelExecutor_getNumberOfBands(&executor_), GetParam().bridge ? 32 : 16);
    EXPECT_EQ(executor_.furtherSettings[5], 77u);
    EXPECT_EQ(executor_.threadCount, GetParam().threadCount);
    EXPECT_LE(executor_.startedThreads, 4);
    EXPECT_EQ(ParallelExecutor_fork(&executor_, count, &block, sizeof block), ZELVAN_OK);
    EXPECT_EQ(ParallelExecutor_join(&executor_), 2u);
  }
  EXPECT_EQ(ParallelExecutor_recycle(&executor_), ZELVAN_OK);
  EXPECT_EQ(ParallelExecutor_getNumberOfBands(&executor_), 0);
  EXPECT_EQ(executor_.env, arena_.env());
}

TEST_P(ExecutorForm, ShutdownRefusesNewTasks) {
  std::atomic<int> ran{0};
  Counter block{&ran, 0};
  EXPECT_EQ(ParallelExecutor_shutdown(&executor_), ZELVAN_OK);
  EXPECT_EQ(ParallelExecutor_fork(&executor_, count, &block, sizeof block), ZELVAN_STATUS_CANCELLED);
  EXPECT_EQ(ParallelExecutor_join(&executor_), ZELVAN_OK);
  ASSERT_EQ(ParallelExecutor_init(&executor_, 4, 16), ZELVAN_OK);
  EXPECT_EQ(ParallelExecutor_fork(&executor_, count, &block, sizeof block), ZELVAN_OK);
  EXPECT_EQ(ParallelExecutor_join(&executor_), ZELVAN_OK);
  EXPECT_EQ(ran, 1);
}

// An executor with one thread, which a gate can hold.
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
  Gate gate;
  forkGate(&executor_, &gate);
  Counter block{&ran_, 1};
  for (int i = 0; i < kCapacity; ++i) {
    ASSERT_EQ(ParallelExecutor_fork(&executor_, count, &block, sizeof block), ZELVAN_OK);
  }
  EXPECT_EQ(ParallelExecutor_getNumberOfWaitingTasks(&executor_), kCapacity);
  ParallelExecutorTask* extra = ParallelExecutor_newTask(&executor_, count, &block, sizeof block);
  EXPECT_EQ(ParallelExecutor_fork_v1(&executor_, extra), ZELVAN_ERROR_STATE);
  EXPECT_EQ(ParallelExecutor_offerMillis(&executor_, extra, 2), 0);
  EXPECT_EQ(ParallelExecutor_getNumberOfTasks(&executor_), kCapacity + 1);

  gate.open = true;
  EXPECT_EQ(ParallelExecutor_join(&executor_), 0x41u);
  EXPECT_EQ(ran_, kCapacity);
  EXPECT_EQ(ParallelExecutor_deleteTask(&executor_, extra), ZELVAN_OK);
}

TEST(ParallelExecutor, TheMemoryOfADroppedTaskStaysInTheArena) {
  std::vector<uint8_t> buffer(1 << 16);
  Env env;
  ASSERT_EQ(construct_Env(&env, buffer.data(), 1 << 16), ZELVAN_OK);
  ParallelExecutor executor;
  construct_ParallelExecutor(&executor, &env);
  executor.threadCount = 1;
  ASSERT_EQ(ParallelExecutor_init(&executor, 1, 1), ZELVAN_OK);
  Gate gate;
  forkGate(&executor, &gate);
  std::atomic<int> ran{0};
  Counter block{&ran, 0};
  EXPECT_EQ(ParallelExecutor_fork(&executor, count, &block, sizeof block), ZELVAN_OK);
  EXPECT_EQ(ParallelExecutor_fork(&executor, count, &block, sizeof block), ZELVAN_ERROR_STATE);
  gate.open = true;
  EXPECT_EQ(ParallelExecutor_join(&executor), 0x40u);
  EXPECT_EQ(ran, 1);
  EXPECT_EQ(destruct_ParallelExecutor(&executor), ZELVAN_OK);
  EXPECT_GE(Heap2_getUsedSize(&env.heap), sizeof(ParallelExecutorTask) + sizeof block);
  EXPECT_EQ(destruct_Env(&env), ZELVAN_ERROR_STATE);
}

TEST_F(OneThread, ShutdownCancelsWhatWaits) {
  Gate gate;
  forkGate(&executor_, &gate);
  Counter block{&ran_, 1};
  for (int i = 0; i < 10; ++i) ParallelExecutor_fork(&executor_, count, &block, sizeof block);
  EXPECT_EQ(ParallelExecutor_shutdown(&executor_), ZELVAN_OK);
  EXPECT_EQ(ParallelExecutor_getNumberOfWaitingTasks(&executor_), 0);
  EXPECT_EQ(ParallelExecutor_getNumberOfFinishedTasks(&executor_), 10);
  gate.open = true;
  EXPECT_EQ(ParallelExecutor_join(&executor_), 0x40u | ZELVAN_STATUS_CANCELLED);
  EXPECT_EQ(ran_, 0);
}

TEST_F(OneThread, TheCallerCanCarryTheTasksItself) {
  Counter block{&ran_, 5};
  EXPECT_EQ(ParallelExecutor_newTask(&executor_, nullptr, &block, sizeof block), nullptr);
  EXPECT_EQ(ParallelExecutor_newTask(&executor_, count, nullptr, 4), nullptr);
  ParallelExecutorTask* tasks[3];
  for (auto& task : tasks) {
    task = ParallelExecutor_newTask_v1(&executor_, count, sizeof block);
    *reinterpret_cast<Counter*>(task + 1) = block;
  }
  EXPECT_EQ(ParallelExecutor_pollMillis(&executor_, 1), nullptr);
  EXPECT_EQ(ParallelExecutor_put(&executor_, tasks[0]), 1);
  EXPECT_EQ(ParallelExecutor_offer(&executor_, tasks[1]), 1);
  EXPECT_EQ(ParallelExecutor_offerMillis(&executor_, tasks[2], 9), 1);
  EXPECT_EQ(ParallelExecutor_put(&executor_, nullptr), 0);
  EXPECT_EQ(ParallelExecutor_getNumberOfTasks(&executor_), 3);
  for (int i = 0; i < 3; ++i) {
    ParallelExecutorTask* done = ParallelExecutor_take(&executor_);
    EXPECT_EQ(done, tasks[i]);
    EXPECT_EQ(done->result, 5u);
    EXPECT_EQ(ParallelExecutor_getNumberOfTasks(&executor_), 2 - i);
    EXPECT_EQ(ParallelExecutor_deleteTask(&executor_, done), ZELVAN_OK);
  }
  EXPECT_EQ(ParallelExecutor_poll(&executor_), nullptr);
}

TEST_F(OneThread, ExecuteDropsTasksThatWereNotJoined) {
  Counter block{&ran_, 1};
  for (int i = 0; i < 5; ++i) ParallelExecutor_fork(&executor_, count, &block, sizeof block);
  Indices indices(20);
  Status results = 0;
  EXPECT_EQ(ParallelExecutor_execute(&executor_, Indices::run, &indices, 20, &results), ZELVAN_ERROR_STATE);
  EXPECT_EQ(indices.total(), 20);
  EXPECT_EQ(results, 0xFFu);
  EXPECT_EQ(ParallelExecutor_getNumberOfTasks(&executor_), 0);
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
  Counter block{&ran, 9};
  EXPECT_EQ(ParallelExecutor_fork(nullptr, nullptr, &block, sizeof block), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(ParallelExecutor_fork(nullptr, count, nullptr, 4), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(ParallelExecutor_fork(nullptr, count, &block, sizeof block), 9u);
  EXPECT_EQ(ran, 1);
  EXPECT_EQ(ParallelExecutor_join(nullptr), ZELVAN_OK);
  EXPECT_EQ(ParallelExecutor_getNumberOfBands(nullptr), 1);
  EXPECT_EQ(ParallelExecutor_getNumberOfTasks(nullptr), -1);
  for (const int32_t n : {-1, 5}) {
    Indices indices(5);
    Status results = 0;
    EXPECT_EQ(ParallelExecutor_execute(nullptr, Indices::run, &indices, n, &results), ZELVAN_OK);
    EXPECT_EQ(indices.total(), n < 1 ? 1 : n);
    EXPECT_EQ(results, n < 1 ? 1u : 0x1Fu);
  }
}

TEST(ParallelExecutor, RefusesSettingsByWhichNobodyWorks) {
  TestArena arena;
  ParallelExecutor executor;
  construct_ParallelExecutor(&executor, arena.env());
  EXPECT_EQ(ParallelExecutor_init(&executor, 0, 4), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(ParallelExecutor_init(&executor, 4, 0), ZELVAN_ERROR_PARAM);
  executor.threadCount = 0;
  EXPECT_EQ(ParallelExecutor_init(&executor, 4, 4), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(ParallelExecutor_getNumberOfBands(&executor), 0);
  EXPECT_EQ(ParallelExecutor_join(&executor), ZELVAN_OK);
  EXPECT_EQ(destruct_ParallelExecutor(&executor), ZELVAN_OK);
  EXPECT_EQ(ParallelExecutor_getBufferSize(0, 1, 0, 0), -1);
  EXPECT_EQ(ParallelExecutor_getBufferSize(1, 1, -1, 0), -1);
  EXPECT_EQ(ParallelExecutor_getBufferSize(2, 64, 24, 10) - ParallelExecutor_getBufferSize(1, 64, 24, 9), 24 + 32);
}

TEST(ParallelExecutor, BridgeHasNoTasksOfItsOwn) {
  TestArena arena;
  auto pel = makePel(arena.env(), 2);
  ParallelExecutor executor;
  construct_ParallelExecutor(&executor, arena.env());
  executor.pel = pel.get();
  ASSERT_EQ(ParallelExecutor_init(&executor, 4, 3), ZELVAN_OK);
  std::atomic<int> ran{0};
  Counter block{&ran, 1};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(ParallelExecutor_fork(&executor, count, &block, sizeof block), ZELVAN_OK);
  EXPECT_EQ(ParallelExecutor_fork(&executor, count, &block, sizeof block), ZELVAN_ERROR_STATE);
  EXPECT_EQ(ParallelExecutor_join(&executor), 1u);
  EXPECT_EQ(ran, 6);
  ParallelExecutorTask task = {};
  EXPECT_EQ(ParallelExecutor_newTask(&executor, count, &block, sizeof block), nullptr);
  EXPECT_EQ(ParallelExecutor_fork_v1(&executor, &task), ZELVAN_ERROR_UNSUPPORTED);
  EXPECT_EQ(ParallelExecutor_deleteTask(&executor, &task), ZELVAN_ERROR_UNSUPPORTED);
  EXPECT_EQ(ParallelExecutor_put(&executor, &task), 0);
  EXPECT_EQ(ParallelExecutor_take(&executor), nullptr);
  EXPECT_EQ(ParallelExecutor_getNumberOfTasks(&executor), -1);
  EXPECT_EQ(destruct_ParallelExecutor(&executor), ZELVAN_OK);
  EXPECT_EQ(destruct_Pel(pel.get()), ZELVAN_OK);
}

TEST(ParallelExecutor, InitGivesEverythingBackWhenTheArenaRunsOut) {
  for (const bool bridge : {false, true}) {
    TestArena arena;
    auto pel = makePel(arena.env(), 2);
    int failures = 0;
    for (uint32_t size = 64;; size += 32, ++failures) {
      TestArena small(size);
      ParallelExecutor executor;
      construct_ParallelExecutor(&executor, small.env());
      executor.pel = bridge ? pel.get() : nullptr;
      const Status status = ParallelExecutor_init(&executor, 3, 3);
      if (status == ZELVAN_OK) {
        EXPECT_EQ(destruct_ParallelExecutor(&executor), ZELVAN_OK);
        break;
      }
      ASSERT_EQ(status, ZELVAN_ERROR_NOMEM);
      EXPECT_EQ(small.used(), 0u) << size;
      EXPECT_EQ(executor.threadCount, -1);
    }
    EXPECT_GT(failures, 2);
    EXPECT_EQ(destruct_Pel(pel.get()), ZELVAN_OK);
  }
}

}  // namespace
