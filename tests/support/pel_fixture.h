// A Pel on an arena of its own; at the end of a test nothing of it may be left there.
#ifndef ZVT4_TESTS_SUPPORT_PEL_FIXTURE_H_
#define ZVT4_TESTS_SUPPORT_PEL_FIXTURE_H_

#include <gtest/gtest.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include "parallel/pel_kernel.h"
#include "support/test_arena.h"

// Yields until the condition holds; false after 20 seconds.
template <typename Condition>
bool spinUntil(const Condition& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    sched_yield();
  }
  return true;
}

class PelFixture : public testing::Test {
 protected:
  PelFixture() { EXPECT_EQ(construct_Pel(pel, arena_.env()), ZELVAN_OK); }
  ~PelFixture() override { EXPECT_EQ(destruct_Pel(pel), ZELVAN_OK); }

  Status start(int32_t workers, int32_t callerIsWorker = 1, int32_t stealWork = 0) {
    pel->requested.numberOfWorkers = workers;
    pel->requested.callerIsWorker = callerIsWorker;
    pel->requested.stealWork = stealWork;
    return Pel_init(pel);
  }

 private:
  TestArena arena_{1 << 16};
  std::unique_ptr<Pel> owned_{new Pel};

 protected:
  Pel* const pel = owned_.get();
};

#endif  // ZVT4_TESTS_SUPPORT_PEL_FIXTURE_H_
