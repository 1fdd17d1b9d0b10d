#include <algorithm>
#include <random>
#include <string>
#include <thread>
#include <utility>

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

// A job of a graph: checks that the jobs it waits for have ended.
struct Node {
  int32_t count = 0;
  std::vector<const Node*> before;
  Status result = ZELVAN_OK;
  const std::atomic<bool>* gate = nullptr;  // holds the job back
  std::atomic<int32_t> runs{0}, faults{0};
  uint32_t event = 0;

  bool isDone() const { return runs == std::max(count, 1) && faults == 0; }
};

Status runIndex(Node* node, int32_t, const PelContext*) {
  for (const Node* other : node->before) node->faults += !other->isDone();
  if (node->gate != nullptr && !spinUntil([&] { return node->gate->load(); })) ++node->faults;
  ++node->runs;
  return node->result;
}
Status runTask(Node* node, const PelContext* context) {
  return runIndex(node, 0, context);
}
constexpr PelKernel kNodes = pelIndexed<Node, runIndex>();
constexpr PelKernel kNode = pelTask<Node, runTask>();

class PelEventTest : public PelFixture {
 protected:
  void enqueue(Node* node) {
    std::vector<uint32_t> list;
    for (const Node* other : node->before) list.push_back(other->event);
    const int32_t n = static_cast<int32_t>(list.size());
    const Status status = node->count == 0
                              ? Pel_enqueueTask(pel, &kNode, node, n, list.data(), &node->event)
                              : Pel_enqueueKernel(pel, &kNodes, node, node->count, n, list.data(), &node->event);
    ASSERT_EQ(status, ZELVAN_OK);
  }
  Status wait(const Node& node) { return Pel_waitForEvents(pel, 1, &node.event); }
  Status info(const Node& node) {
    Status status = 0xABCD;
    const Status result = Pel_getEventInfo(pel, node.event, 0, &status);
    return result != ZELVAN_OK ? result : status;
  }
  template <typename Condition>
  bool spinUntilLocked(const Condition& condition) {
    return spinUntil([&] {
      Lock_lock(&pel->queueLock);
      const bool holds = condition();
      Lock_unlock(&pel->queueLock);
      return holds;
    });
  }
  // Ends with all slots, links and parts back in their tables.
  void finishAndRelease(const std::vector<Node>& nodes) {
    EXPECT_EQ(Pel_finish(pel), ZELVAN_OK);
    for (const Node& node : nodes) EXPECT_EQ(Pel_releaseEvent(pel, node.event), ZELVAN_OK);
    int32_t links = 0, groups = 0;
    for (const PelLink* link = pel->freeLinks; link != nullptr; link = link->next) ++links;
    for (const PelPart* part = pel->freeParts; part != nullptr; ++groups) {
      part = part->begin < 0 ? nullptr : &pel->parts[part->begin];
    }
    EXPECT_EQ(pel->freeEvents, kPelEvents);
    EXPECT_EQ(links, kPelEvents);
    EXPECT_EQ(groups, kPelParts / Pel_getNumberOfWorkers(pel));
  }
};

TEST_F(PelEventTest, RandomGraphsRunInOrder) {
  std::mt19937 random(7);
  for (const int32_t workers : {1, 2, 3, 8, 17}) {
    for (const int32_t mode : {0, 1, 2}) {  // caller works, static or stealing; caller only waits
      ASSERT_EQ(start(mode == 2 ? std::min(workers, 16) : workers, mode != 2, mode == 1), ZELVAN_OK);
      std::vector<Node> nodes(300);
      for (size_t i = 0; i < nodes.size(); ++i) {
        nodes[i].count = random() % 3 == 0 ? 0 : static_cast<int32_t>(random() % 20);
        for (uint32_t k = random() % 6; i > 0 && k > 0; --k) nodes[i].before.push_back(&nodes[random() % i]);
        enqueue(&nodes[i]);
        if (i % 50 != 49) continue;
        const Node& chosen = nodes[random() % i];
        EXPECT_EQ(wait(chosen), ZELVAN_OK);
        EXPECT_TRUE(chosen.isDone());
      }
      EXPECT_EQ(Pel_finish(pel), ZELVAN_OK);
      for (const Node& node : nodes) EXPECT_TRUE(node.isDone() && info(node) == ZELVAN_OK);
      finishAndRelease(nodes);
    }
  }
}

TEST_F(PelEventTest, AFailedJobCancelsThoseBehindIt) {
  for (const int32_t workers : {1, 4}) {
    ASSERT_EQ(start(workers), ZELVAN_OK);
    std::atomic<bool> gate{false};  // an event that is complete already would add no dependency
    std::vector<Node> nodes(5);
    nodes[0].gate = nodes[1].gate = &gate;
    nodes[0].result = 0x80000010u;
    nodes[1].result = 0x4u;
    nodes[2].before = {&nodes[0], &nodes[1]};
    nodes[3].before = {&nodes[2]};
    nodes[1].count = nodes[3].count = 5;
    for (Node& node : nodes) enqueue(&node);
    gate = true;
    EXPECT_EQ(Pel_finish(pel), ZELVAN_OK);
    const std::pair<Status, int32_t> expected[] = {
        {0x80000010u, 1}, {4, 5}, {0x80020014u, 0}, {0x80020014u, 0}, {0, 1}};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(std::pair(info(nodes[i]), nodes[i].runs.load()), expected[i]) << i;
    finishAndRelease(nodes);
  }
}

TEST_F(PelEventTest, HandlesGoStale) {
  ASSERT_EQ(start(2), ZELVAN_OK);
  std::atomic<bool> gate{false};
  std::vector<Node> others(2);
  Node held, &behind = others[0], &after = others[1];
  held.gate = &gate;
  enqueue(&held);
  behind.before = {&held, &held, &held};
  enqueue(&behind);
  EXPECT_EQ(pel->events[behind.event % kPelEvents].users, 1);  // a repeated handle counts once
  EXPECT_EQ(info(held), ZELVAN_STATUS_RUNNING);
  EXPECT_EQ(Pel_retainEvent(pel, held.event) | Pel_releaseEvent(pel, held.event), ZELVAN_OK);
  gate = true;
  EXPECT_EQ(wait(behind), ZELVAN_OK);
  EXPECT_EQ(info(held), ZELVAN_OK);
  EXPECT_EQ(Pel_releaseEvent(pel, held.event), ZELVAN_OK);
  EXPECT_EQ(info(held) & Pel_retainEvent(pel, held.event) & Pel_releaseEvent(pel, held.event), ZELVAN_ERROR_STATE);
  after.before = {&held, &behind};  // stale, and complete but live
  enqueue(&after);
  EXPECT_EQ(wait(after) | wait(held), ZELVAN_OK);
  EXPECT_EQ(after.runs, 1);
  finishAndRelease(others);
}

TEST_F(PelEventTest, ArgumentsAreChecked) {
  ASSERT_EQ(start(2), ZELVAN_OK);
  const PelKernel empty = {};
  const uint32_t event = 1;
  Status status;
  Node node;
  EXPECT_EQ(Pel_enqueueKernel(pel, &kNodes, &node, -1, 0, nullptr, nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Pel_enqueueKernel(pel, &kNodes, &node, 1, -1, &event, nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Pel_enqueueTask(pel, &kNode, &node, 1, nullptr, nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Pel_enqueueTask(pel, &empty, &node, 0, nullptr, nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Pel_waitForEvents(pel, 0, &event) & Pel_getEventInfo(pel, event, 1, &status), ZELVAN_ERROR_PARAM);
  // An indexed kernel without a range is a job all the same, and runs nothing.
  EXPECT_EQ(Pel_enqueueTask(pel, &kNodes, &node, 0, nullptr, nullptr), ZELVAN_OK);
  EXPECT_EQ(Pel_finish(pel), ZELVAN_OK);
  EXPECT_EQ(node.runs, 0);
}

TEST_F(PelEventTest, FullTablesMakeTheEnqueueWait) {
  constexpr int32_t kJobs = 40000;
  for (const int32_t callerIsWorker : {1, 0}) {
    ASSERT_EQ(start(callerIsWorker != 0 ? 1 : 2, callerIsWorker), ZELVAN_OK);
    std::vector<Node> kept(1);
    Node all;
    kept[0].result = 5;
    enqueue(&kept[0]);
    for (int32_t i = 0; i < kJobs; ++i) {
      ASSERT_EQ(Pel_enqueueTask(pel, &kNode, &all, 0, nullptr, nullptr), ZELVAN_OK);
    }
    EXPECT_EQ(Pel_finish(pel), ZELVAN_OK);
    EXPECT_EQ(all.runs, kJobs);
    EXPECT_EQ(info(kept[0]), 5u);  // the cursor went round twice and left the held slot alone
    finishAndRelease(kept);

    // 100 jobs behind one and 400 behind these 100: the links end within the wait list of job 162 of the latter.
    std::atomic<bool> gate{callerIsWorker != 0};
    std::vector<Node> nodes(501);
    nodes[0].gate = &gate;
    for (size_t i = 0; i < 501; ++i) {
      if (i >= 1 && i <= 100) nodes[i].before = {&nodes[0]};
      for (size_t k = 1; i > 100 && k <= 100; ++k) nodes[i].before.push_back(&nodes[k]);
      if (i == 101 + 162) gate = true;
      enqueue(&nodes[i]);
    }
    EXPECT_EQ(Pel_finish(pel), ZELVAN_OK);
    for (const Node& node : nodes) EXPECT_TRUE(node.isDone());
    finishAndRelease(nodes);
  }
}

TEST_F(PelEventTest, MoreRunningKernelsThanGroupsOfParts) {
  ASSERT_EQ(start(17), ZELVAN_OK);
  std::atomic<bool> gate{false};
  std::vector<Node> nodes(40);
  for (Node& node : nodes) {
    node.count = 1;
    node.gate = &gate;
    enqueue(&node);
  }
  EXPECT_TRUE(spinUntilLocked([&] { return pel->freeParts == nullptr; }));  // 16 threads, 15 groups
  gate = true;
  EXPECT_EQ(Pel_finish(pel), ZELVAN_OK);
  for (const Node& node : nodes) EXPECT_TRUE(node.isDone());
  finishAndRelease(nodes);
}

TEST_F(PelEventTest, WaitsTimeOutWhileTheWorkGoesOnAndRecycleDropsWhatIsQueued) {
  for (const int32_t callerIsWorker : {0, 1}) {
    pel->requested.waitMillis = 30;
    ASSERT_EQ(start(1 + callerIsWorker, callerIsWorker), ZELVAN_OK);
    std::atomic<bool> gate{false};
    std::vector<Node> held(1);
    held[0].gate = &gate;
    enqueue(&held[0]);
    ASSERT_TRUE(spinUntilLocked([&] { return pel->dequeuedJobs == 1; }));  // by the thread, not by a waiting caller
    EXPECT_EQ(wait(held[0]) & Pel_finish(pel), ZELVAN_ERROR_TIMEOUT);
    EXPECT_EQ(info(held[0]), ZELVAN_STATUS_RUNNING);
    gate = true;
    EXPECT_TRUE(spinUntil([&] { return info(held[0]) == ZELVAN_OK; }));
    finishAndRelease(held);
  }
  ASSERT_EQ(start(1), ZELVAN_OK);
  Node dropped;
  enqueue(&dropped);
  ASSERT_EQ(start(2), ZELVAN_OK);
  finishAndRelease({});
  EXPECT_EQ(dropped.runs, 0);
}

Status sleepAWhile(std::atomic<bool>* done, int32_t, const PelContext*) {
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  *done = true;
  return ZELVAN_OK;
}
constexpr PelKernel kSleep = pelIndexed<std::atomic<bool>, sleepAWhile>();

// Limits above the signed range are long ones. executeToEnd has no limit.
TEST_F(PelEventTest, WaitsThatLastAsLongAsTheWork) {
  for (const uint32_t millis : {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    pel->requested.waitMillis = millis;
    ASSERT_EQ(start(1, 0), ZELVAN_OK);
    std::atomic<bool> done{false};
    EXPECT_EQ(executeToEnd(pel, &kSleep, &done, 1), ZELVAN_OK);
    EXPECT_TRUE(done.exchange(false)) << millis;
    EXPECT_EQ(Pel_execute(pel, &kSleep, &done, 1), millis < 2 ? ZELVAN_ERROR_TIMEOUT : ZELVAN_OK) << millis;
    EXPECT_TRUE(spinUntil([&] { return done.load(); }));
    while (Pel_finish(pel) != ZELVAN_OK) {
    }
    finishAndRelease({});
  }
}

}  // namespace
