#include "parallel/linked_blocking_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <random>
#include <thread>
#include <vector>

#include "support/test_arena.h"

namespace {

class QueueTest : public ::testing::Test {
 protected:
  QueueTest() { construct_LinkedBlockingQueue(&queue_, arena_.env()); }
  ~QueueTest() override {
    while (LinkedBlockingQueue_poll(&queue_) != nullptr) {
    }
    EXPECT_EQ(destruct_LinkedBlockingQueue(&queue_), ZELVAN_OK);
  }
  TestArena arena_;
  LinkedBlockingQueue queue_;
};

TEST_F(QueueTest, FollowsAModelForManyTurnsOfTheRing) {
  std::mt19937 random(7);
  for (const int32_t capacity : {1, 2, 3, 8}) {
    ASSERT_EQ(LinkedBlockingQueue_init(&queue_, capacity), ZELVAN_OK);
    EXPECT_EQ(LinkedBlockingQueue_getCapacity(&queue_), capacity);
    std::vector<char> items(300);
    std::deque<void*> model;
    for (char& item : items) {
      const bool fits = model.size() < static_cast<size_t>(capacity);
      if (random() % 2 == 0) {
        ASSERT_EQ(LinkedBlockingQueue_offer(&queue_, &item), fits);
        if (fits) model.push_back(&item);
      } else {
        void* expected = model.empty() ? nullptr : model.front();
        ASSERT_EQ(LinkedBlockingQueue_poll(&queue_), expected);
        if (!model.empty()) model.pop_front();
      }
      ASSERT_EQ(LinkedBlockingQueue_size(&queue_), static_cast<int32_t>(model.size()));
    }
    for (void* item : model) ASSERT_EQ(LinkedBlockingQueue_poll(&queue_), item);
  }
}

TEST_F(QueueTest, NullBlankAndTimeLimits) {
  int item = 0;
  EXPECT_EQ(LinkedBlockingQueue_init(&queue_, 0), ZELVAN_ERROR_PARAM);
  for (LinkedBlockingQueue* queue : {static_cast<LinkedBlockingQueue*>(nullptr), &queue_}) {
    EXPECT_EQ(LinkedBlockingQueue_put(queue, &item), 0);
    EXPECT_EQ(LinkedBlockingQueue_offerMillis(queue, &item, 1), 0);
    EXPECT_EQ(LinkedBlockingQueue_take(queue), nullptr);
    EXPECT_EQ(LinkedBlockingQueue_pollMillis(queue, 1), nullptr);
    EXPECT_EQ(LinkedBlockingQueue_size(queue), queue == nullptr ? -1 : 0);
  }
  ASSERT_EQ(LinkedBlockingQueue_init(&queue_, 1), ZELVAN_OK);
  EXPECT_EQ(LinkedBlockingQueue_put(&queue_, nullptr), 0);
  for (const int32_t millis : {-3, 5}) EXPECT_EQ(LinkedBlockingQueue_pollMillis(&queue_, millis), nullptr);
  EXPECT_EQ(LinkedBlockingQueue_offerMillis(&queue_, &item, -3), 1);
  for (const int32_t millis : {-3, 5}) EXPECT_EQ(LinkedBlockingQueue_offerMillis(&queue_, &item, millis), 0);
  EXPECT_EQ(LinkedBlockingQueue_pollMillis(&queue_, -3), &item);
}

TEST_F(QueueTest, StaysWhileItHoldsItems) {
  int item = 0;
  ASSERT_EQ(LinkedBlockingQueue_init(&queue_, 2), ZELVAN_OK);
  ASSERT_EQ(LinkedBlockingQueue_put(&queue_, &item), 1);
  EXPECT_EQ(destruct_LinkedBlockingQueue(&queue_), ZELVAN_ERROR_STATE);
  EXPECT_EQ(LinkedBlockingQueue_recycle(&queue_), ZELVAN_ERROR_STATE);
  EXPECT_EQ(LinkedBlockingQueue_init(&queue_, 5), ZELVAN_ERROR_STATE);
  EXPECT_EQ(LinkedBlockingQueue_take(&queue_), &item);
  EXPECT_EQ(LinkedBlockingQueue_recycle(&queue_), ZELVAN_OK);
  EXPECT_EQ(queue_.env, arena_.env());
  EXPECT_EQ(arena_.used(), 0u);
}

// Producers and consumers on a narrow queue: every item arrives once, and each consumer sees the items of one producer
// in the order of their insertion. Odd threads use the timed forms.
TEST_F(QueueTest, CarriesItemsBetweenThreads) {
  constexpr int kProducers = 3, kConsumers = 3, kItems = 400;
  struct Item {
    int producer, number;
    std::atomic<int> arrivals;
  };
  ASSERT_EQ(LinkedBlockingQueue_init(&queue_, 2), ZELVAN_OK);
  std::vector<Item> items(kProducers * kItems);
  Item stop{-1, 0, {0}};
  std::vector<std::thread> producers, consumers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&, p] {
      for (int i = 0; i < kItems; ++i) {
        Item* item = &items[p * kItems + i];
        item->producer = p;
        item->number = i;
        if (p % 2 == 0) {
          EXPECT_EQ(LinkedBlockingQueue_put(&queue_, item), 1);
        } else {
          while (LinkedBlockingQueue_offerMillis(&queue_, item, 1) == 0) {
          }
        }
      }
    });
  }
  for (int c = 0; c < kConsumers; ++c) {
    consumers.emplace_back([&, c] {
      int last[kProducers] = {-1, -1, -1};
      for (;;) {
        void* taken = c % 2 == 0 ? LinkedBlockingQueue_take(&queue_) : LinkedBlockingQueue_pollMillis(&queue_, 1);
        if (taken == nullptr) continue;
        if (taken == &stop) return;
        Item* item = static_cast<Item*>(taken);
        EXPECT_GT(item->number, last[item->producer]);
        last[item->producer] = item->number;
        ++item->arrivals;
      }
    });
  }
  for (std::thread& t : producers) t.join();
  for (int c = 0; c < kConsumers; ++c) EXPECT_EQ(LinkedBlockingQueue_put(&queue_, &stop), 1);
  for (std::thread& t : consumers) t.join();
  for (const Item& item : items) ASSERT_EQ(item.arrivals, 1);
  EXPECT_EQ(LinkedBlockingQueue_size(&queue_), 0);
}

}  // namespace
