#include "base/mem_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <thread>
#include <vector>

namespace {

class MemPoolTest : public testing::Test {
 protected:
  MemPoolTest() : memory_(1 << 20) {
    EXPECT_EQ(construct_Env(&env_, memory_.data(), static_cast<uint32_t>(memory_.size())), ZELVAN_OK);
    EXPECT_EQ(construct_MemPool(&pool_, &env_), ZELVAN_OK);
  }
  ~MemPoolTest() override {
    EXPECT_EQ(destruct_MemPool(&pool_), ZELVAN_OK);
    EXPECT_EQ(destruct_Env(&env_), ZELVAN_OK);
  }
  std::vector<char> memory_;
  Env env_;
  MemPool pool_;
};

TEST_F(MemPoolTest, PopsInOrderAndTakesEveryItemBack) {
  const int32_t shapes[][2] = {{1, 1}, {2, 100}, {4, 3000}, {5, 1001}, {7, 999}, {12, 4096}, {1000, 70}, {65537, 15}};
  for (const auto& [itemSize, count] : shapes) {
    ASSERT_EQ(MemPool_init(&pool_, itemSize, count), ZELVAN_OK);
    const int32_t stride = std::max(itemSize, 4);
    EXPECT_EQ(MemPool_getBufferSize(itemSize, count), stride * count);
    std::vector<char*> items;
    for (int32_t i = 0; i < count; ++i) {
      items.push_back(static_cast<char*>(MemPool_pop(&pool_)));
      ASSERT_EQ(items.back(), static_cast<char*>(pool_.buffer) + i * stride);
    }
    EXPECT_EQ(MemPool_pop(&pool_), nullptr);
    std::shuffle(items.begin(), items.end(), std::mt19937(itemSize));
    for (char* item : items) ASSERT_EQ(MemPool_push(&pool_, item), ZELVAN_OK);
    for (; !items.empty(); items.pop_back()) ASSERT_EQ(MemPool_pop(&pool_), items.back());
    EXPECT_EQ(MemPool_pop(&pool_), nullptr);
  }
}

TEST_F(MemPoolTest, RefusesBadShapesAndAFullArena) {
  for (const auto& [itemSize, count] : {std::pair(0, 1), {-4, 1}, {4, 0}, {4, -1}, {4, 262145}}) {
    EXPECT_EQ(MemPool_init(&pool_, itemSize, count), ZELVAN_ERROR_PARAM);
    EXPECT_EQ(MemPool_getBufferSize(itemSize, count), -1);
  }
  EXPECT_EQ(MemPool_getBufferSize(3, 262144), 1048576);
  EXPECT_EQ(MemPool_init(nullptr, 4, 4), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(MemPool_init(&pool_, 4, 262144), ZELVAN_ERROR_NOMEM);
  EXPECT_EQ(MemPool_init(&pool_, INT32_MAX, 262144), ZELVAN_ERROR_NOMEM);
  EXPECT_EQ(MemPool_pop(&pool_), nullptr);
  ASSERT_EQ(MemPool_init(&pool_, 4, 4), ZELVAN_OK);
  EXPECT_EQ(MemPool_push(&pool_, nullptr), ZELVAN_ERROR_PARAM);
}

// An item belongs to one thread at a time, and none is lost.
TEST_F(MemPoolTest, SharesItemsBetweenThreads) {
  constexpr int kCount = 6;
  ASSERT_EQ(MemPool_init(&pool_, 16, kCount), ZELVAN_OK);
  std::atomic<int> owners[kCount] = {};
  std::vector<std::thread> threads;
  for (int id = 0; id < 4; ++id) {
    threads.emplace_back([&] {
      for (int step = 0; step < 20000; ++step) {
        char* const item = static_cast<char*>(MemPool_pop(&pool_));
        if (item == nullptr) continue;
        const auto index = (item - static_cast<char*>(pool_.buffer)) / 16;
        ASSERT_EQ(owners[index].fetch_add(1), 0);
        ASSERT_EQ(owners[index].fetch_sub(1), 1);
        MemPool_push(&pool_, item);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int i = 0; i < kCount; ++i) EXPECT_NE(MemPool_pop(&pool_), nullptr);
  EXPECT_EQ(MemPool_pop(&pool_), nullptr);
}

}  // namespace
