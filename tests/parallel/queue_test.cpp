#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <deque>
#include <random>
#include <thread>

#include "parallel/concurrent_linked_queue.h"
#include "parallel/count_down_latch.h"
#include "parallel/linked_blocking_queue.h"
#include "support/test_arena.h"

namespace {

enum Wait { kNot, kShortly, kUntilDone };  // the queue without locks never waits

struct LinkedQueue {
  void init(int32_t capacity) { ASSERT_EQ(construct_ConcurrentLinkedQueue(&queue, capacity, arena.env()), ZELVAN_OK); }
  ~LinkedQueue() { EXPECT_EQ(destruct_ConcurrentLinkedQueue(&queue), ZELVAN_OK); }
  int32_t offer(void* item, Wait) { return ConcurrentLinkedQueue_offer(&queue, item); }
  void* poll(Wait) { return ConcurrentLinkedQueue_poll(&queue); }
  int32_t size() { return ConcurrentLinkedQueue_size(&queue); }
  TestArena arena;
  ConcurrentLinkedQueue queue = {};
};

struct BlockingQueue {
  BlockingQueue() { construct_LinkedBlockingQueue(&queue, arena.env()); }
  void init(int32_t capacity) { ASSERT_EQ(LinkedBlockingQueue_init(&queue, capacity), ZELVAN_OK); }
  ~BlockingQueue() { EXPECT_EQ(destruct_LinkedBlockingQueue(&queue), ZELVAN_OK); }
  int32_t offer(void* item, Wait wait) {
    if (wait == kUntilDone) return LinkedBlockingQueue_put(&queue, item);
    return wait == kNot ? LinkedBlockingQueue_offer(&queue, item) : LinkedBlockingQueue_offerMillis(&queue, item, 1);
  }
  void* poll(Wait wait) {
    if (wait == kUntilDone) return LinkedBlockingQueue_take(&queue);
    return wait == kNot ? LinkedBlockingQueue_poll(&queue) : LinkedBlockingQueue_pollMillis(&queue, 1);
  }
  int32_t size() { return LinkedBlockingQueue_size(&queue); }
  TestArena arena;
  LinkedBlockingQueue queue;
};

template <typename Queue>
class AnyQueue : public testing::Test {};
using Queues = testing::Types<LinkedQueue, BlockingQueue>;
TYPED_TEST_SUITE(AnyQueue, Queues);

TYPED_TEST(AnyQueue, FollowsAModelForManyTurnsOfTheRing) {
  std::mt19937 random(7);
  for (const int32_t capacity : {1, 2, 3, 8}) {
    TypeParam queue;
    queue.init(capacity);
    EXPECT_EQ(queue.offer(nullptr, kNot), 0);
    std::vector<char> items(9000);  // far beyond the change counter
    std::deque<void*> model;
    for (char& item : items) {
      if (random() % 2 == 0) {
        const bool fits = model.size() < static_cast<size_t>(capacity);
        ASSERT_EQ(queue.offer(&item, kNot), fits);
        if (fits) model.push_back(&item);
      } else {
        ASSERT_EQ(queue.poll(kNot), model.empty() ? nullptr : model.front());
        if (!model.empty()) model.pop_front();
      }
      ASSERT_EQ(queue.size(), static_cast<int32_t>(model.size()));
    }
    for (void* item : model) ASSERT_EQ(queue.poll(kNot), item);
  }
}

// Every item arrives once, those of one thread in their order. Odd threads use the timed forms.
TYPED_TEST(AnyQueue, CarriesItemsBetweenThreads) {
  constexpr int kThreads = 3, kItems = 4000;
  TypeParam queue;
  queue.init(6);
  std::vector<std::atomic<int>> arrivals(kThreads * kItems);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kItems; ++i) {
        while (queue.offer(&arrivals[t * kItems + i], t % 2 != 0 ? kShortly : kUntilDone) == 0)
          std::this_thread::yield();
      }
    });
    threads.emplace_back([&, t] {
      void* last[kThreads] = {};
      for (int i = 0; i < kItems; ++i) {
        void* item;
        while ((item = queue.poll(t % 2 != 0 ? kShortly : kUntilDone)) == nullptr) std::this_thread::yield();
        auto* const arrival = static_cast<std::atomic<int>*>(item);
        void*& before = last[(arrival - arrivals.data()) / kItems];
        EXPECT_LT(before, item);
        before = item;
        ++*arrival;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const auto& arrived : arrivals) ASSERT_EQ(arrived, 1);
  EXPECT_EQ(queue.size(), 0);
}

ConcurrentLinkedQueue* interrupted = nullptr;
std::atomic<int> interruptions, lowestSize, highestSize;

void lookAtSize() {
  const int size = ConcurrentLinkedQueue_size(interrupted);
  if (size < lowestSize) lowestSize = size;
  if (size > highestSize) highestSize = size;
}

// What another thread may do between any two steps of this one.
void emptyAndFill(int) {
  while (ConcurrentLinkedQueue_poll(interrupted) != nullptr) lookAtSize();
  while (ConcurrentLinkedQueue_offer(interrupted, interrupted) != 0) lookAtSize();
  while (ConcurrentLinkedQueue_poll(interrupted) != nullptr) lookAtSize();
  ++interruptions;
}

TEST(ConcurrentLinkedQueue, TheSizeStaysInItsRangeBetweenTheSteps) {
  constexpr int kCapacity = 2;
  LinkedQueue queue;
  queue.init(kCapacity);
  interrupted = &queue.queue;
  struct sigaction action = {}, before;
  action.sa_handler = emptyAndFill;
  ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);
  const itimerval often = {{0, 40}, {0, 40}}, never = {};
  setitimer(ITIMER_REAL, &often, nullptr);
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
  while (interruptions < 2000 && std::chrono::steady_clock::now() < end) {
    for (int i = 0; i < 100; ++i) {
      queue.offer(&queue, kNot);
      queue.poll(kNot);
    }
  }
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &before, nullptr);
  EXPECT_EQ(lowestSize, 0);
  EXPECT_LE(highestSize, kCapacity);
}

TEST(ConcurrentLinkedQueue, Sizes) {
  EXPECT_EQ(ConcurrentLinkedQueue_getBufferSize(10), 88u);
  for (int32_t bad : {0, -1, 0x40001}) EXPECT_EQ(ConcurrentLinkedQueue_getBufferSize(bad), 0xFFFFFFFFu);
  TestArena arena;
  ConcurrentLinkedQueue queue;
  EXPECT_EQ(construct_ConcurrentLinkedQueue(&queue, 0, arena.env()), ZELVAN_ERROR_PARAM);
}

TEST(LinkedBlockingQueue, NullBlankHeldItemsAndTimeLimits) {
  TestArena arena;
  LinkedBlockingQueue queue;
  construct_LinkedBlockingQueue(&queue, arena.env());
  int item = 0;
  EXPECT_EQ(LinkedBlockingQueue_init(&queue, 0), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(LinkedBlockingQueue_put(&queue, &item), 0);
  EXPECT_EQ(LinkedBlockingQueue_take(nullptr), nullptr);
  EXPECT_EQ(LinkedBlockingQueue_size(nullptr), -1);
  for (const int32_t capacity : {3, 1}) ASSERT_EQ(LinkedBlockingQueue_init(&queue, capacity), ZELVAN_OK);
  for (const int32_t millis : {-3, 5}) EXPECT_EQ(LinkedBlockingQueue_pollMillis(&queue, millis), nullptr);
  EXPECT_EQ(LinkedBlockingQueue_offerMillis(&queue, &item, -3), 1);
  for (const int32_t millis : {-3, 5}) EXPECT_EQ(LinkedBlockingQueue_offerMillis(&queue, &item, millis), 0);
  EXPECT_EQ(destruct_LinkedBlockingQueue(&queue) & LinkedBlockingQueue_init(&queue, 5), ZELVAN_ERROR_STATE);
  EXPECT_EQ(LinkedBlockingQueue_pollMillis(&queue, -3), &item);
  EXPECT_EQ(destruct_LinkedBlockingQueue(&queue), ZELVAN_OK);
}

TEST(CountDownLatch, OpensAtZero) {
  TestArena arena;
  CountDownLatch latch;
  construct_CountDownLatch(&latch, arena.env());
  EXPECT_EQ(CountDownLatch_init(&latch, -1), ZELVAN_ERROR_PARAM);
  ASSERT_EQ(CountDownLatch_init(&latch, 2), ZELVAN_OK);
  EXPECT_EQ(CountDownLatch_awaitMillis(&latch, 1), ZELVAN_ERROR_TIMEOUT);
  std::thread other([&] {
    for (int i = 0; i < 2; ++i) CountDownLatch_countDown(&latch);
  });
  EXPECT_EQ(CountDownLatch_await(&latch), ZELVAN_OK);
  EXPECT_EQ(CountDownLatch_getCount(&latch), 0);
  other.join();
  EXPECT_EQ(destruct_CountDownLatch(&latch), ZELVAN_OK);
}

}  // namespace
