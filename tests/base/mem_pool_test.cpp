#include "base/mem_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "support/test_arena.h"

namespace {

class MemPoolTest : public testing::Test {
 protected:
  MemPoolTest() { EXPECT_EQ(construct_MemPool(&pool_, arena_.env()), ZELVAN_OK); }
  ~MemPoolTest() override { EXPECT_EQ(destruct_MemPool(&pool_), ZELVAN_OK); }
  char* pop() { return static_cast<char*>(MemPool_pop(&pool_)); }
  char* item(int32_t i) { return static_cast<char*>(pool_.buffer) + i * pool_.itemSize; }

  TestArena arena_;
  MemPool pool_;
};

TEST_F(MemPoolTest, PopsInOrderAndTakesEveryItemBack) {
  for (const auto& [itemSize, count] : {std::pair(0, 1), {4, 0}, {4, 262145}}) {
    EXPECT_EQ(MemPool_init(&pool_, itemSize, count), ZELVAN_ERROR_PARAM);
  }
  for (const auto& [itemSize, count] : {std::pair(1, 1), {2, 100}, {5, 1001}, {1000, 70}, {65537, 15}}) {
    ASSERT_EQ(MemPool_init(&pool_, itemSize, count), ZELVAN_OK);
    EXPECT_EQ(pool_.itemSize, std::max(itemSize, 4));
    EXPECT_EQ(pool_.head, count & 0xFFF);  // item 0, and a tag that counts
    for (int32_t i = 0; i < count; ++i) ASSERT_EQ(pop(), item(i));
    EXPECT_EQ(pop(), nullptr);
    for (int32_t i = 0; i < count; ++i) ASSERT_EQ(MemPool_push(&pool_, item(i * 7 % count)), ZELVAN_OK);
    for (int32_t i = count; i-- > 0;) ASSERT_EQ(pop(), item(i * 7 % count));
  }
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
        char* const taken = pop();
        if (taken == nullptr) continue;
        const auto index = (taken - item(0)) / 16;
        ASSERT_EQ(owners[index].fetch_add(1), 0);
        ASSERT_EQ(owners[index].fetch_sub(1), 1);
        MemPool_push(&pool_, taken);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int i = 0; i < kCount; ++i) EXPECT_NE(pop(), nullptr);
  EXPECT_EQ(pop(), nullptr);
}

}  // namespace
