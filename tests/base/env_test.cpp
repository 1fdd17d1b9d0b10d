#include "base/env.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

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

}  // namespace
