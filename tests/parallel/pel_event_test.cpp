#include <algorithm>
#include <random>
#include <thread>
#include <utility>

#include "support/pel_fixture.h"

namespace {

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
constexpr PelKernel kIndexed = pelIndexed<Node, runIndex>();
constexpr PelKernel kTask = pelTask<Node, runTask>();

class PelEventTest : public PelFixture {
 protected:
  void enqueue(Node* node) {
    std::vector<uint32_t> list;
    for (const Node* other : node->before) list.push_back(other->event);
    const int32_t n = static_cast<int32_t>(list.size());
    const Status status = node->count == 0
                              ? Pel_enqueueTask(pel, &kTask, node, n, list.data(), &node->event)
                              : Pel_enqueueKernel(pel, &kIndexed, node, node->count, n, list.data(), &node->event);
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
  EXPECT_EQ(info(held), ZELVAN_ERROR_STATE);
  EXPECT_EQ(Pel_retainEvent(pel, held.event), ZELVAN_ERROR_STATE);
  EXPECT_EQ(Pel_releaseEvent(pel, held.event), ZELVAN_ERROR_STATE);
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
  EXPECT_EQ(Pel_enqueueKernel(pel, &kIndexed, &node, -1, 0, nullptr, nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Pel_enqueueKernel(pel, &kIndexed, &node, 1, -1, &event, nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Pel_enqueueTask(pel, &kTask, &node, 1, nullptr, nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Pel_enqueueTask(pel, &empty, &node, 0, nullptr, nullptr), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Pel_waitForEvents(pel, 0, &event), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Pel_getEventInfo(pel, event, 1, &status), ZELVAN_ERROR_PARAM);
  // An indexed kernel without a range is a job all the same, and runs nothing.
  EXPECT_EQ(Pel_enqueueTask(pel, &kIndexed, &node, 0, nullptr, nullptr), ZELVAN_OK);
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
      ASSERT_EQ(Pel_enqueueTask(pel, &kTask, &all, 0, nullptr, nullptr), ZELVAN_OK);
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
    EXPECT_EQ(wait(held[0]), ZELVAN_ERROR_TIMEOUT);
    EXPECT_EQ(Pel_finish(pel), ZELVAN_ERROR_TIMEOUT);
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
