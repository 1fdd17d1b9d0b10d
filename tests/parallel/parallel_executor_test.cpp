#include "parallel/parallel_executor.h"

#include <algorithm>
#include <thread>

#include "parallel/bands.h"
#include "parallel/syscall.h"
#include "support/pel_fixture.h"

namespace {

constexpr int32_t kCapacity = 64;

struct Form {
  int32_t threadCount, callerWorks;
  uint32_t processorMask;
  int32_t bridgeWorkers;  // 0: the thread form
  int32_t pin = 1;
};

// The last mask names processors that a small machine does not have: that must not stop the work.
constexpr Form kForms[] = {{-1, 0, 0, 0}, {1, 0, 0, 0}, {0, 1, 0, 0},    {2, 1, 0, 0},    {3, 0, 3u << 30, 0},
                           {-1, 0, 0, 3}, {1, 0, 0, 1}, {1, 0, 0, 0, 0}, {3, 0, 0, 0, 0}, {2, 1, 0, 0, 0}};

struct Pool {
  explicit Pool(const Form& form) {
    construct_Pel(pel.get(), arena.env());
    construct_ParallelExecutor(&executor, arena.env());
    executor.threadCount = form.threadCount;
    executor.callerWorks = form.callerWorks;
    executor.processorMask = form.processorMask;
    executor.pin = form.pin;
    if (form.bridgeWorkers != 0) {
      pel->requested.numberOfWorkers = form.bridgeWorkers;
      EXPECT_EQ(Pel_init(pel.get()), ZELVAN_OK);
      executor.pel = pel.get();
    }
    EXPECT_EQ(ParallelExecutor_init(&executor, kCapacity, kCapacity), ZELVAN_OK);
  }
  ~Pool() {
    EXPECT_EQ(destruct_ParallelExecutor(&executor), ZELVAN_OK);
    EXPECT_EQ(destruct_Pel(pel.get()), ZELVAN_OK);
  }
  TestArena arena;
  std::unique_ptr<Pel> pel = std::make_unique<Pel>();
  ParallelExecutor executor;
};

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

using Rows = std::vector<std::atomic<int>>;
struct Band {
  Rows* rows;
  int32_t begin, end;
};

Status touchRow(void* rows, int32_t index, int32_t) {
  ++static_cast<Rows*>(rows)->at(static_cast<size_t>(index));
  return ZELVAN_OK;
}
Status touchRows(Band* band) {
  for (int32_t y = band->begin; y < band->end; ++y) touchRow(band->rows, y, 0);
  return ZELVAN_OK;
}

TEST(ParallelExecutor, EveryTaskBandAndIndexRunsOnce) {
  for (const Form& form : kForms) {
    SCOPED_TRACE(&form - kForms);
    Pool pool(form);
    ParallelExecutor* const executor = &pool.executor;
    const uint32_t idle = pool.arena.used();
    const int32_t n = ParallelExecutor_getNumberOfBands(executor);
    ASSERT_EQ(n, form.bridgeWorkers != 0 ? 2 * kCapacity : kCapacity);
    std::atomic<int> ran{0};
    for (int round = 0; round < 20; ++round) {
      for (int i = 0; i < n; ++i) ASSERT_EQ(fork(executor, &ran, 1u << (i % 32)), ZELVAN_OK);
      EXPECT_EQ(ParallelExecutor_join(executor), 0xFFFFFFFFu);
      EXPECT_EQ(ran.exchange(0), n);
      EXPECT_EQ(pool.arena.used(), idle);
      EXPECT_EQ(ParallelExecutor_join(executor), ZELVAN_OK) << "with no tasks";
    }
    EXPECT_EQ(bandStart(1, 64, 65), 2);
    for (const int32_t height : {1, 63, 65, 1001}) {
      Rows rows(static_cast<size_t>(height));
      const auto band = [&](int32_t i) { return Band{&rows, bandStart(i, n, height), bandStart(i + 1, n, height)}; };
      EXPECT_EQ((forkBands<Band, touchRows>(executor, n, band)), ZELVAN_OK);
      const int32_t indices = std::min(height, kCapacity);
      EXPECT_EQ(ParallelExecutor_execute(executor, touchRow, &rows, indices, nullptr), ZELVAN_OK);
      for (int32_t y = 0; y < height; ++y) ASSERT_EQ(rows[static_cast<size_t>(y)], y < indices ? 2 : 1);
    }
    for (int round = 0; round < 3; ++round) {
      // Tasks that nobody joined are joined when the old threads end.
      for (int i = 0; i < 10; ++i) EXPECT_EQ(fork(executor, &ran, 2), ZELVAN_OK);
      ASSERT_EQ(ParallelExecutor_init(executor, 4, 16), ZELVAN_OK);
      EXPECT_EQ(fork(executor, &ran, 2), ZELVAN_OK);
      EXPECT_EQ(ParallelExecutor_join(executor), 2u);
      EXPECT_EQ(ParallelExecutor_shutdown(executor), ZELVAN_OK);
      EXPECT_EQ(fork(executor, &ran, 2), ZELVAN_STATUS_CANCELLED);
      ASSERT_EQ(ParallelExecutor_init(executor, 4, 16), ZELVAN_OK);
    }
  }
}

struct Gate {
  std::atomic<bool> inside{false}, open{false};
};

Status passGate(void* block) {
  Gate* const gate = *static_cast<Gate**>(block);
  gate->inside = true;
  while (!gate->open) std::this_thread::yield();
  return 0x40;
}

TEST(ParallelExecutor, ATaskTooManyIsDroppedAndShutdownCancelsWhatWaits) {
  Pool pool({1, 0, 0, 0});
  ParallelExecutor* const executor = &pool.executor;
  Gate gate, *block = &gate;
  std::atomic<int> ran{0};
  EXPECT_EQ(ParallelExecutor_fork(executor, passGate, &block, sizeof block), ZELVAN_OK);
  while (!gate.inside) std::this_thread::yield();
  for (int i = 0; i < kCapacity; ++i) ASSERT_EQ(fork(executor, &ran, 1), ZELVAN_OK);
  ParallelExecutorTask* extra = ParallelExecutor_newTask_v1(executor, count, sizeof(Counter));
  EXPECT_EQ(ParallelExecutor_fork_v1(executor, extra), ZELVAN_ERROR_STATE);
  EXPECT_EQ(ParallelExecutor_getNumberOfTasks(executor), kCapacity + 1);
  EXPECT_EQ(ParallelExecutor_deleteTask(executor, extra), ZELVAN_OK);
  EXPECT_EQ(ParallelExecutor_shutdown(executor), ZELVAN_OK);
  EXPECT_EQ(ParallelExecutor_getNumberOfFinishedTasks(executor), kCapacity);
  gate.open = true;
  EXPECT_EQ(ParallelExecutor_join(executor), 0x40u | ZELVAN_STATUS_CANCELLED);
  EXPECT_EQ(ran, 0);
}

// A fork sees that one thread more is wanted, with tasks of the batch still open.
TEST(ParallelExecutor, EachForkStartsTheThreadsThatAreMissing) {
  Pool pool({1, 0, 0, 0});
  Gate gate, *block = &gate;
  std::atomic<int> ran{0};
  EXPECT_EQ(ParallelExecutor_fork(&pool.executor, passGate, &block, sizeof block), ZELVAN_OK);
  while (!gate.inside) std::this_thread::yield();
  pool.executor.threadCount = 2;
  EXPECT_EQ(fork(&pool.executor, &ran, 2), ZELVAN_OK);
  EXPECT_TRUE(spinUntil([&] { return ran == 1; }));
  EXPECT_EQ(pool.executor.startedThreads, 2);
  gate.open = true;
  EXPECT_EQ(ParallelExecutor_join(&pool.executor), 0x42u);
}

// Bands that no task can be had for: without memory, beyond the slots of the bridge, before a start and after the end.
TEST(ParallelExecutor, BandsThatAreRefusedRunInTheCaller) {
  constexpr int32_t kBands = 3 * kCapacity, kHeight = 2 * kBands;
  const auto check = [&](ParallelExecutor* executor, int32_t bands) {
    Rows rows(kHeight);
    const auto band = [&](int32_t i) {
      return Band{&rows, bandStart(i, bands, kHeight), bandStart(i + 1, bands, kHeight)};
    };
    EXPECT_EQ((forkBands<Band, touchRows>(executor, bands, band)), ZELVAN_OK);
    for (const auto& row : rows) ASSERT_EQ(row, 1);
  };
  for (const Form& form : kForms) {
    SCOPED_TRACE(&form - kForms);
    Pool pool(form);
    if (form.bridgeWorkers != 0) check(&pool.executor, kBands);
    for (const uint32_t left : {0u, 500u}) {  // for no task, and for some
      TestArena* const arena = &pool.arena;
      std::vector<void*> taken;
      while (Heap2_getFreeSize(&arena->env()->heap) > left) {
        const uint32_t room = Heap2_getFreeSize(&arena->env()->heap);
        taken.push_back(Heap2_malloc(&arena->env()->heap, room > left + 24 ? room - left - 24 : room));
      }
      check(&pool.executor, ParallelExecutor_getNumberOfBands(&pool.executor));
      for (void* block : taken) Heap2_free(&arena->env()->heap, block);
    }
    ParallelExecutor_shutdown(&pool.executor);
    check(&pool.executor, ParallelExecutor_getNumberOfBands(&pool.executor));
  }
  TestArena arena;
  ParallelExecutor blank;
  construct_ParallelExecutor(&blank, arena.env());
  check(&blank, ParallelExecutor_getNumberOfBands(&blank));
}

struct Crew {
  ParallelExecutor* executor;
  std::atomic<int> ran{0}, mostTasks{0}, strangers{0};  // bands in other threads than the caller
  pthread_t caller = pthread_self();
};

Status countTasks(Crew** block) {
  Crew* const crew = *block;
  const int tasks = ParallelExecutor_getNumberOfTasks(crew->executor);
  for (int most = crew->mostTasks; tasks > most && !crew->mostTasks.compare_exchange_weak(most, tasks);) {
  }
  if (pthread_equal(crew->caller, pthread_self()) == 0) ++crew->strangers;
  ++crew->ran;
  return ZELVAN_OK;
}

// The first band shuts the executor down while the others that were begun wait for it.
Status shutDown(Crew** block) {
  Crew* const crew = *block;
  if (crew->ran++ == 0) ParallelExecutor_shutdown(crew->executor);
  while (!ParallelExecutor_isShutDown(crew->executor)) std::this_thread::yield();
  return ZELVAN_OK;
}

TEST(ParallelExecutor, BandsAreHandedOverInATaskAWorkerAndEndAtAShutdown) {
  struct {
    Form form;
    int tasks;
    bool inCaller;
  } const cases[] = {{{1, 0, 0, 0, 0}, 0, true},
                     {{3, 0, 0, 0, 0}, 2, false},
                     {{2, 1, 0, 0, 0}, 2, false},
                     {{1, 0, 0, 0}, 1, false},
                     {{3, 0, 0, 0}, 3, false}};
  for (const auto& [form, tasks, inCaller] : cases) {
    SCOPED_TRACE(&form - &cases[0].form);
    Pool pool(form);
    Crew crew{&pool.executor};
    const auto band = [&](int32_t) { return &crew; };
    for (int round = 0; round < 20; ++round) {
      EXPECT_EQ((forkBands<Crew*, countTasks>(&pool.executor, kCapacity, band)), ZELVAN_OK);
      EXPECT_EQ(crew.ran.exchange(0), kCapacity);
    }
    EXPECT_LE(crew.mostTasks, tasks);
    // A pool of one thread leaves the work to the caller, unless the thread is pinned.
    if (form.pin != 0 || inCaller) {
      EXPECT_EQ(crew.strangers, inCaller ? 0 : 20 * kCapacity);
    }
    if (inCaller) continue;
    EXPECT_EQ((forkBands<Crew*, shutDown>(&pool.executor, kCapacity, band)), ZELVAN_STATUS_CANCELLED);
    EXPECT_LE(crew.ran, tasks + 1);
  }
}

// Threads that look out for work go to sleep when none comes.
TEST(ParallelExecutor, IdlePoolsUseNoProcessor) {
  const auto used = [] {
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
  };
  for (const Form& form : {Form{2, 0, 0, 0, 0}, Form{-1, 0, 0, 2}}) {
    Pool pool(form);
    std::atomic<int> ran{0};
    EXPECT_EQ(fork(&pool.executor, &ran, 1), ZELVAN_OK);
    EXPECT_EQ(ParallelExecutor_join(&pool.executor), 1u);
    const double before = used();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_LT(used() - before, 0.05);
  }
}

// The tasks over a bridge outlast the limit of its waits.
TEST(ParallelExecutor, AJoinOverABridgeWaitsForAllTasks) {
  Pool pool({-1, 0, 0, 0});
  pool.pel->requested.numberOfWorkers = 1;
  pool.pel->requested.callerIsWorker = 0;
  pool.pel->requested.waitMillis = 1;
  ASSERT_EQ(Pel_init(pool.pel.get()), ZELVAN_OK);
  pool.executor.pel = pool.pel.get();
  ASSERT_EQ(ParallelExecutor_init(&pool.executor, kCapacity, kCapacity), ZELVAN_OK);
  std::atomic<int> ran{0}, *block = &ran;
  const auto slow = [](void* at) -> Status {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return static_cast<Status>(++**static_cast<std::atomic<int>**>(at));
  };
  for (int i = 0; i < 2; ++i) EXPECT_EQ(ParallelExecutor_fork(&pool.executor, slow, &block, sizeof block), ZELVAN_OK);
  EXPECT_EQ(ParallelExecutor_join(&pool.executor), 3u);
  EXPECT_EQ(ran, 2);
}

Status tellProcessorAndMove(void* block) {
  **static_cast<int**>(block) = sched_getcpu();
  return Syscall_setThreadAffinityMask(nullptr, 0xFFFFFFFFu);
}

TEST(ParallelExecutor, AThreadStaysOnItsProcessor) {
  cpu_set_t allowed;
  ASSERT_EQ(sched_getaffinity(0, sizeof allowed, &allowed), 0);
  for (int processor = 0; processor < 32; ++processor) {
    if (!CPU_ISSET(processor, &allowed)) continue;
    Pool pool({1, 0, 1u << processor, 0});
    for (int i = 0; i < 3; ++i) {
      int seen = -1, *at = &seen;
      ParallelExecutor_fork(&pool.executor, tellProcessorAndMove, &at, sizeof at);
      EXPECT_EQ(ParallelExecutor_join(&pool.executor), ZELVAN_OK);
      EXPECT_EQ(seen, processor);
    }
  }
}

// Every way in which init can fail leaves an executor that holds nothing. A null one runs the work in the caller.
TEST(ParallelExecutor, NullAndFailedInits) {
  std::atomic<int> ran{0};
  EXPECT_EQ(ParallelExecutor_fork(nullptr, count, nullptr, 4), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(fork(nullptr, &ran, 9), 9u);
  EXPECT_EQ(ParallelExecutor_join(nullptr), ZELVAN_OK);
  Status status = ZELVAN_ERROR_NOMEM;
  for (uint32_t size = 64; status != ZELVAN_OK; size += 32) {
    TestArena arena(size);
    ParallelExecutor executor;
    construct_ParallelExecutor(&executor, arena.env());
    executor.threadCount = 0;
    EXPECT_EQ(ParallelExecutor_init(&executor, 3, 3), ZELVAN_ERROR_PARAM) << "nobody would work";
    executor.threadCount = 2;
    status = ParallelExecutor_init(&executor, 3, 3);
    ASSERT_EQ(status, arena.used() != 0 ? ZELVAN_OK : ZELVAN_ERROR_NOMEM) << size;
    EXPECT_EQ(destruct_ParallelExecutor(&executor), ZELVAN_OK);
  }
}

}  // namespace
