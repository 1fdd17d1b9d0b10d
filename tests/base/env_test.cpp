#include "base/env.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <vector>

namespace {

TEST(Env, ReportsBlocksLeftOverAndSmallBuffers) {
  std::vector<char> memory(1024);
  Env env;
  std::memset(static_cast<void*>(&env), 0xFF, sizeof env);
  ASSERT_EQ(construct_Env(&env, memory.data(), 1024), ZELVAN_OK);
  EXPECT_EQ(env.systemBlock, nullptr);
  EXPECT_EQ(env.spare, 0u);
  Heap2_free(&env.heap, Heap2_malloc(&env.heap, 10));
  EXPECT_EQ(destruct_Env(&env), ZELVAN_OK);

  ASSERT_EQ(construct_Env(&env, memory.data(), 1024), ZELVAN_OK);
  EXPECT_NE(Heap2_malloc(&env.heap, 10), nullptr);
  EXPECT_EQ(destruct_Env(&env), ZELVAN_ERROR_STATE);
  EXPECT_EQ(construct_Env(&env, memory.data(), 16), ZELVAN_ERROR_RESOURCE);
}

// Every pair of free lists: one block, two blocks, none (the head node points at itself).
TEST(Env, SwapLeavesBothArenasWorking) {
  for (int states = 0; states < 9; ++states) {
    std::vector<char> memory[2] = {std::vector<char>(1024), std::vector<char>(2048)};
    Env env[2];
    std::vector<void*> blocks[2];
    uint32_t whole[2], used[2];
    for (int i = 0; i < 2; ++i) {
      const int state = i == 0 ? states % 3 : states / 3;
      ASSERT_EQ(construct_Env(&env[i], memory[i].data(), static_cast<uint32_t>(memory[i].size())), ZELVAN_OK);
      whole[i] = Heap2_getFreeSize(&env[i].heap);
      env[i].spare = 7 + i;
      env[i].systemBlock = &memory[i];
      blocks[i].push_back(Heap2_malloc(&env[i].heap, 100));
      if (state == 1) {
        blocks[i].push_back(Heap2_malloc(&env[i].heap, 100));
        Heap2_free(&env[i].heap, blocks[i][0]);
        blocks[i].erase(blocks[i].begin());
      } else if (state == 2) {
        blocks[i].push_back(Heap2_malloc(&env[i].heap, Heap2_getFreeSize(&env[i].heap)));
      }
      used[i] = Heap2_getUsedSize(&env[i].heap);
    }
    swap_Env(&env[0], &env[1]);
    for (int i = 0; i < 2; ++i) {
      Heap2* const heap = &env[1 - i].heap;  // works on memory[i] now
      EXPECT_EQ(env[1 - i].spare, 7u + i);
      EXPECT_EQ(env[i].systemBlock, &memory[i]);
      EXPECT_EQ(Heap2_getUsedSize(heap), used[i]);
      EXPECT_EQ(Heap2_checks(heap), 1);
      for (void* block : blocks[i]) Heap2_free(heap, block);
      EXPECT_EQ(Heap2_getFreeSize(heap), whole[i]) << states;
      EXPECT_EQ(destruct_Env(&env[1 - i]), ZELVAN_OK);
    }
  }
}

TEST(Env, TickCountsNanosecondsOfTheRawClock) {
  timespec now;
  ASSERT_EQ(clock_gettime(CLOCK_MONOTONIC_RAW, &now), 0);
  const uint64_t before = static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
  const uint64_t tick = Env_getTick(nullptr);
  EXPECT_GE(tick, before);
  EXPECT_LT(tick - before, 10000000000u);
}

}  // namespace
