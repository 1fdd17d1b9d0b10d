#include "parallel/concurrent_linked_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "parallel/count_down_latch.h"
#include "support/test_arena.h"

namespace {

void* itemOf(intptr_t value) {
  return reinterpret_cast<void*>(value);
}

TEST(ConcurrentLinkedQueue, HoldsItsCapacityInOrder) {
  EXPECT_EQ(ConcurrentLinkedQueue_getBufferSize(10), 88u);
  for (int32_t bad : {0, -1, 0x40001}) EXPECT_EQ(ConcurrentLinkedQueue_getBufferSize(bad), 0xFFFFFFFFu);
  TestArena arena;
  ConcurrentLinkedQueue queue;
  EXPECT_EQ(construct_ConcurrentLinkedQueue(&queue, 0, arena.env()), ZELVAN_ERROR_PARAM);
  ASSERT_EQ(construct_ConcurrentLinkedQueue(&queue, 3, arena.env()), ZELVAN_OK);
  EXPECT_EQ(ConcurrentLinkedQueue_poll(&queue), nullptr);
  EXPECT_EQ(ConcurrentLinkedQueue_offer(&queue, nullptr), 0);
  for (intptr_t round = 0; round < 5000; ++round) {  // far beyond the change counter
    for (intptr_t i = 1; i <= 3; ++i) ASSERT_EQ(ConcurrentLinkedQueue_offer(&queue, itemOf(i)), 1);
    ASSERT_EQ(ConcurrentLinkedQueue_offer(&queue, itemOf(4)), 0);
    ASSERT_EQ(ConcurrentLinkedQueue_size(&queue), 3);
    for (intptr_t i = 1; i <= 3; ++i) ASSERT_EQ(ConcurrentLinkedQueue_poll(&queue), itemOf(i));
  }
  EXPECT_EQ(destruct_ConcurrentLinkedQueue(&queue), ZELVAN_OK);
}

TEST(ConcurrentLinkedQueue, ManyThreadsLoseNothing) {
  constexpr intptr_t kPerThread = 20000;
  TestArena arena;
  ConcurrentLinkedQueue queue;
  CountDownLatch latch;
  ASSERT_EQ(construct_ConcurrentLinkedQueue(&queue, 64, arena.env()), ZELVAN_OK);
  construct_CountDownLatch(&latch, arena.env());
  EXPECT_EQ(CountDownLatch_init(&latch, -1), ZELVAN_ERROR_PARAM);
  ASSERT_EQ(CountDownLatch_init(&latch, 2), ZELVAN_OK);
  EXPECT_EQ(CountDownLatch_awaitMillis(&latch, 1), ZELVAN_ERROR_TIMEOUT);
  std::atomic<int64_t> sum = 0;
  std::vector<std::thread> threads;
  for (intptr_t t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      for (intptr_t i = 0; i < kPerThread; ++i) {
        while (ConcurrentLinkedQueue_offer(&queue, itemOf(2 * i + t + 1)) == 0) std::this_thread::yield();
      }
      CountDownLatch_countDown(&latch);
    });
    threads.emplace_back([&] {
      intptr_t last[2] = {0, 0};  // items of one thread come out in their order
      for (intptr_t i = 0; i < kPerThread; ++i) {
        void* item;
        while ((item = ConcurrentLinkedQueue_poll(&queue)) == nullptr) std::this_thread::yield();
        const intptr_t value = reinterpret_cast<intptr_t>(item);
        EXPECT_GT(value, last[value & 1]);
        last[value & 1] = value;
        sum += value;
      }
    });
  }
  EXPECT_EQ(CountDownLatch_await(&latch), ZELVAN_OK);
  EXPECT_EQ(CountDownLatch_getCount(&latch), 0);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(sum, kPerThread * (2 * kPerThread + 1));
  EXPECT_EQ(ConcurrentLinkedQueue_size(&queue), 0);
  EXPECT_EQ(destruct_CountDownLatch(&latch), ZELVAN_OK);
  EXPECT_EQ(destruct_ConcurrentLinkedQueue(&queue), ZELVAN_OK);
}

}  // namespace
