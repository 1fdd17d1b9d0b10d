// An environment over a buffer of its own. At the end it must be empty: everything taken has gone back.
#ifndef ZVT4_TESTS_SUPPORT_TEST_ARENA_H_
#define ZVT4_TESTS_SUPPORT_TEST_ARENA_H_

#include <gtest/gtest.h>

#include <vector>

#include "base/env.h"

class TestArena {
 public:
  // fill: what the memory holds beforehand.
  explicit TestArena(uint32_t size = 1u << 20, uint8_t fill = 0xA5) : buffer_(size, fill) {
    EXPECT_EQ(construct_Env(&env_, buffer_.data(), size), ZELVAN_OK);
  }
  ~TestArena() { EXPECT_EQ(destruct_Env(&env_), ZELVAN_OK) << "a block is still in use"; }
  TestArena(const TestArena&) = delete;
  TestArena& operator=(const TestArena&) = delete;

  Env* env() { return &env_; }
  uint32_t used() const { return Heap2_getUsedSize(&env_.heap); }

 private:
  std::vector<uint8_t> buffer_;
  Env env_;
};

#endif  // ZVT4_TESTS_SUPPORT_TEST_ARENA_H_
