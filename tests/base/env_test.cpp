#include "base/env.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <ctime>
#include <thread>

#include "base/mem_pool.h"
#include "support/test_arena.h"

namespace {

TEST(Env, ReportsBlocksLeftOverAndSmallBuffers) {
  char memory[1024];
  Env env;
  std::memset(static_cast<void*>(&env), 0xFF, sizeof env);
  for (const Status atEnd : {ZELVAN_OK, ZELVAN_ERROR_STATE}) {
    ASSERT_EQ(construct_Env(&env, memory, sizeof memory), ZELVAN_OK);
    void* block = Heap2_malloc(&env.heap, 10);
    if (atEnd == ZELVAN_OK) Heap2_free(&env.heap, block);
    EXPECT_EQ(destruct_Env(&env), atEnd);
  }
  EXPECT_EQ(construct_Env(&env, memory, 16), ZELVAN_ERROR_RESOURCE);
}

// The head node of an arena without free blocks points at itself.
TEST(Env, SwapLeavesBothArenasWorking) {
  for (int full = 0; full < 4; ++full) {
    char memory[2][1024];
    Env env[2];
    void* block[2];
    uint32_t whole[2];
    for (int i = 0; i < 2; ++i) {
      ASSERT_EQ(construct_Env(&env[i], memory[i], sizeof memory[i]), ZELVAN_OK);
      whole[i] = Heap2_getFreeSize(&env[i].heap);
      block[i] = Heap2_malloc(&env[i].heap, (full >> i & 1) != 0 ? whole[i] : 100);
    }
    swap_Env(&env[0], &env[1]);
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(Heap2_checks(&env[i].heap), 1);
      Heap2_free(&env[i].heap, block[1 - i]);
      EXPECT_EQ(Heap2_getFreeSize(&env[i].heap), whole[1 - i]) << full;
      EXPECT_EQ(destruct_Env(&env[i]), ZELVAN_OK);
    }
  }
}

TEST(Env, TickCountsNanosecondsOfTheRawClock) {
  timespec now;
  ASSERT_EQ(clock_gettime(CLOCK_MONOTONIC_RAW, &now), 0);
  const uint64_t before = static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
  EXPECT_LT(Env_getTick(nullptr) - before, 10000000000u);
}

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
