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
  ~QueueTest() override { EXPECT_EQ(destruct_LinkedBlockingQueue(&queue_), ZELVAN_OK); }
  TestArena arena_;
  LinkedBlockingQueue queue_;
};

TEST_F(QueueTest, FollowsAModelForManyTurnsOfTheRing) {
  std::mt19937 random(7);
  for (const int32_t capacity : {1, 2, 3, 8}) {
    ASSERT_EQ(LinkedBlockingQueue_init(&queue_, capacity), ZELVAN_OK);
    std::vector<char> items(300);
    std::deque<void*> model;
    for (char& item : items) {
      if (random() % 2 == 0) {
        const bool fits = model.size() < static_cast<size_t>(capacity);
        ASSERT_EQ(LinkedBlockingQueue_offer(&queue_, &item), fits);
        if (fits) model.push_back(&item);
      } else {
        ASSERT_EQ(LinkedBlockingQueue_poll(&queue_), model.empty() ? nullptr : model.front());
        if (!model.empty()) model.pop_front();
      }
      ASSERT_EQ(LinkedBlockingQueue_size(&queue_), static_cast<int32_t>(model.size()));
    }
    for (void* item : model) ASSERT_EQ(LinkedBlockingQueue_poll(&queue_), item);
  }
}

TEST_F(QueueTest, NullBlankHeldItemsAndTimeLimits) {
  int item = 0;
  EXPECT_EQ(LinkedBlockingQueue_init(&queue_, 0), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(LinkedBlockingQueue_put(&queue_, &item), 0);
  EXPECT_EQ(LinkedBlockingQueue_take(nullptr), nullptr);
  EXPECT_EQ(LinkedBlockingQueue_size(nullptr), -1);
  ASSERT_EQ(LinkedBlockingQueue_init(&queue_, 1), ZELVAN_OK);
  EXPECT_EQ(LinkedBlockingQueue_put(&queue_, nullptr), 0);
  for (const int32_t millis : {-3, 5}) EXPECT_EQ(LinkedBlockingQueue_pollMillis(&queue_, millis), nullptr);
  EXPECT_EQ(LinkedBlockingQueue_offerMillis(&queue_, &item, -3), 1);
  for (const int32_t millis : {-3, 5}) EXPECT_EQ(LinkedBlockingQueue_offerMillis(&queue_, &item, millis), 0);
  EXPECT_EQ(destruct_LinkedBlockingQueue(&queue_), ZELVAN_ERROR_STATE);
  EXPECT_EQ(LinkedBlockingQueue_init(&queue_, 5), ZELVAN_ERROR_STATE);
  EXPECT_EQ(LinkedBlockingQueue_pollMillis(&queue_, -3), &item);
}

// Producers and consumers on a narrow queue: every item arrives once. Odd threads use the timed forms.
TEST_F(QueueTest, CarriesItemsBetweenThreads) {
  constexpr int kThreads = 3, kItems = 400;
  ASSERT_EQ(LinkedBlockingQueue_init(&queue_, 2), ZELVAN_OK);
  std::vector<std::atomic<int>> arrivals(kThreads * kItems);
  std::atomic<int> stop{0};
  std::vector<std::thread> producers, consumers;
  for (int t = 0; t < kThreads; ++t) {
    producers.emplace_back([&, t] {
      for (int i = 0; i < kItems; ++i) {
        void* item = &arrivals[t * kItems + i];
        while ((t % 2 == 0 ? LinkedBlockingQueue_put(&queue_, item)
                           : LinkedBlockingQueue_offerMillis(&queue_, item, 1)) == 0) {
        }
      }
    });
    consumers.emplace_back([&, t] {
      for (void* taken = nullptr; taken != &stop;) {
        taken = t % 2 == 0 ? LinkedBlockingQueue_take(&queue_) : LinkedBlockingQueue_pollMillis(&queue_, 1);
        if (taken != nullptr) ++*static_cast<std::atomic<int>*>(taken);
      }
    });
  }
  for (std::thread& t : producers) t.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(LinkedBlockingQueue_put(&queue_, &stop), 1);
  for (std::thread& t : consumers) t.join();
  for (const auto& arrived : arrivals) ASSERT_EQ(arrived, 1);
}

}  // namespace
