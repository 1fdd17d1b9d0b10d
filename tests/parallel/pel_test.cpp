#include <string>

#include "support/pel_fixture.h"

namespace {

using PelTest = PelFixture;

// Counts the runs of each index and sees to it that no worker is in two of them at a time.
struct Visits {
  explicit Visits(int32_t n) : runs(n) {
    for (auto& index : first) index = -1;
  }
  bool isRight() const {
    for (const auto& n : runs) {
      if (n != 1) return false;
    }
    return faults == 0;
  }

  std::vector<std::atomic<int32_t>> runs;
  std::atomic<int32_t> first[17];  // first index of each worker
  std::atomic<int32_t> busy[17] = {};
  std::atomic<int32_t> entered{0}, calls{0}, faults{0};
  int32_t meet = 0;            // so many workers wait for each other in their first index
  bool holdsFirst = false;     // index 0 waits for all others
  std::vector<int32_t> order;  // of direct runs
};

Status visit(Visits* visits, int32_t begin, int32_t end, const PelContext* context) {
  if (context->pel == nullptr) visits->order.push_back(begin);
  ++visits->calls;
  const int32_t worker = context->workerIndex;
  if (worker < 0 || worker >= Pel_getNumberOfWorkers(context->pel)) return ZELVAN_ERROR_GENERAL;
  if (visits->busy[worker]++ != 0 || context->count != static_cast<int32_t>(visits->runs.size())) ++visits->faults;
  if (int32_t none = -1; visits->first[worker].compare_exchange_strong(none, begin)) ++visits->entered;
  if (!spinUntil([&] { return visits->entered >= visits->meet; })) ++visits->faults;
  const bool waits = visits->holdsFirst && begin == 0;
  if (waits && !spinUntil([&] { return visits->calls == context->count; })) ++visits->faults;
  for (int32_t i = begin; i < end; ++i) ++visits->runs[i];
  --visits->busy[worker];
  return 1u << (begin & 7);
}
Status visitIndex(Visits* visits, int32_t index, const PelContext* context) {
  return visit(visits, index, index + 1, context);
}
Status visitTask(Visits* visits, const PelContext* context) {
  return visit(visits, -1, -1, context);
}
constexpr PelKernel kIndexed = pelIndexed<Visits, visitIndex>();
constexpr PelKernel kRange = pelRange<Visits, visit>();
constexpr PelKernel kTask = pelTask<Visits, visitTask>();

TEST_F(PelTest, EveryIndexRunsOnce) {
  struct Setting {
    int32_t workers, callerIsWorker, pinWorkers;
    uint32_t affinityMask;
  };
  // The masks name processors that the machine may not have, which must not matter.
  constexpr Setting kSettings[] = {{1, 1, 0, 0}, {2, 1, 1, 0}, {3, 1, 1, 0x80000001u}, {3, 0, 0, 0x80000000u},
                                   {8, 1, 0, 3}, {8, 0, 1, 0}, {17, 1, 1, 0},          {16, 0, 0, 0}};
  for (const Setting& setting : kSettings) {
    for (const int32_t stealWork : {0, 1}) {
      SCOPED_TRACE(std::to_string(setting.workers) + " workers, steal " + std::to_string(stealWork));
      pel->requested.pinWorkers = setting.pinWorkers;
      pel->requested.affinityMask = setting.affinityMask;
      ASSERT_EQ(start(setting.workers, setting.callerIsWorker, stealWork), ZELVAN_OK);  // over the pool before
      for (const int32_t count : {0, 1, 7, 1000}) {
        for (const PelKernel* kernel : {&kIndexed, &kRange}) {
          Visits visits(count);
          EXPECT_EQ(Pel_execute(pel, kernel, &visits, count), ZELVAN_OK);
          EXPECT_TRUE(visits.isRight()) << count;
        }
      }
      if (setting.workers < 2 || setting.callerIsWorker == 0) continue;
      Visits held(64);  // others take the work of a held-up worker
      held.holdsFirst = true;
      EXPECT_EQ(Pel_execute(pel, &kIndexed, &held, 64), ZELVAN_OK);
      EXPECT_TRUE(held.isRight());
    }
  }
}

TEST_F(PelTest, StaticPartsSpreadTheRemainder) {
  ASSERT_EQ(start(4), ZELVAN_OK);
  constexpr int32_t kFirst[][5] = {{10, 0, 2, 5, 7}, {7, 0, 1, 3, 5}, {11, 0, 2, 5, 8}, {9, 0, 2, 4, 6}};
  for (const auto& row : kFirst) {
    Visits visits(row[0]);
    visits.meet = 4;
    EXPECT_EQ(Pel_execute(pel, &kIndexed, &visits, row[0]), ZELVAN_OK);
    EXPECT_TRUE(visits.isRight());
    for (int32_t i = 0; i < 4; ++i) EXPECT_EQ(visits.first[i], row[1 + i]) << row[0] << " " << i;
  }
}

TEST_F(PelTest, NullPelRunsInTheCallerAndABlankOneNothing) {
  const struct {
    const PelKernel* kernel;
    int32_t count;
    std::vector<int32_t> order;
    Status status;
  } cases[] = {{&kIndexed, 3, {0, 1, 2}, 7u}, {&kRange, 3, {0}, 1u},    {&kIndexed, 0, {}, 0u},
               {&kRange, 0, {}, 0u},          {&kTask, 0, {-1}, 0x80u}, {nullptr, 3, {}, 0u}};
  for (const auto& c : cases) {
    Visits visits(c.count), alone(0);
    EXPECT_EQ(Pel_execute(pel, c.kernel, &visits, c.count), ZELVAN_OK);  // not initialised
    EXPECT_EQ(visits.calls, 0);
    EXPECT_EQ(Pel_execute(nullptr, c.kernel, &visits, c.count), c.status);
    EXPECT_EQ(visits.order, c.order);
    Pel_enqueueTask(nullptr, c.kernel, &alone, 0, nullptr, nullptr);
    EXPECT_EQ(alone.calls, c.kernel == &kTask ? 1 : 0);
  }
}

TEST_F(PelTest, ParamsAndThreadLimit) {
  PelParams params = {};
  EXPECT_EQ(Pel_getParams(nullptr, &params), ZELVAN_OK);
  EXPECT_EQ(params.numberOfWorkers, 1);
  EXPECT_EQ(params.waitMillis, 3000u);
  EXPECT_EQ(pel->requested.numberOfWorkers, 0);
  EXPECT_EQ(start(17, 0), ZELVAN_ERROR_PARAM);

  pel->requested.affinityMask = 0xF0;
  EXPECT_EQ(start(17), ZELVAN_OK);
  for (int32_t i = 0; i < 32; ++i) EXPECT_EQ(pel->processorList[i], 7 - i % 4);
  EXPECT_EQ(Pel_resetParams(pel), ZELVAN_OK);
  EXPECT_EQ(Pel_getParams(pel, &params), ZELVAN_OK);
  EXPECT_EQ(params.numberOfWorkers, 17);
  EXPECT_EQ(Pel_recycle(pel) | Pel_recycle(pel), ZELVAN_OK);
}

Status checkPinned(std::atomic<int32_t>* faults, int32_t, const PelContext* context) {
  cpu_set_t own;
  sched_getaffinity(0, sizeof own, &own);
  if (CPU_COUNT(&own) != 1 || !CPU_ISSET(context->workerIndex == 0 ? 1 : 0, &own)) ++*faults;
  return ZELVAN_OK;
}
constexpr PelKernel kCheckPinned = pelIndexed<std::atomic<int32_t>, checkPinned>();

TEST_F(PelTest, WorkersArePinnedWhileKernelsRun) {
  cpu_set_t before, after;
  ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
  if (!CPU_ISSET(0, &before) || !CPU_ISSET(1, &before)) GTEST_SKIP() << "needs processors 0 and 1";
  pel->requested.pinWorkers = 1;
  for (const uint32_t callerMask : {1u, 0u}) {
    pel->requested.callerAffinityMask = callerMask;
    ASSERT_EQ(start(2), ZELVAN_OK);
    std::atomic<int32_t> faults{0};
    EXPECT_EQ(Pel_execute(pel, &kCheckPinned, &faults, 100), ZELVAN_OK);
    EXPECT_EQ(faults, 0);
    ASSERT_EQ(sched_getaffinity(0, sizeof after, &after), 0);
    EXPECT_TRUE(CPU_ISSET(0, &after));
    EXPECT_EQ(CPU_COUNT(&after) == 1, callerMask == 1);
  }
  sched_setaffinity(0, sizeof before, &before);
}

}  // namespace
