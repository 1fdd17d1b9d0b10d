// A running Pel with its own arena.
#ifndef ZVT4_TESTS_SUPPORT_TEST_PEL_H_
#define ZVT4_TESTS_SUPPORT_TEST_PEL_H_

#include <memory>

#include "parallel/pel.h"
#include "support/test_arena.h"

class TestPel {
 public:
  explicit TestPel(int32_t workers, int32_t callerIsWorker = 1, uint32_t waitMillis = 3000)
      : arena_(1 << 16), pel_(new Pel) {
    EXPECT_EQ(construct_Pel(get(), arena_.env()), ZELVAN_OK);
    pel_->requested.numberOfWorkers = workers;
    pel_->requested.callerIsWorker = callerIsWorker;
    pel_->requested.waitMillis = waitMillis;
    EXPECT_EQ(Pel_init(get()), ZELVAN_OK);
  }
  ~TestPel() { EXPECT_EQ(destruct_Pel(get()), ZELVAN_OK); }
  TestPel(const TestPel&) = delete;
  TestPel& operator=(const TestPel&) = delete;

  Pel* get() const { return pel_.get(); }

 private:
  TestArena arena_;
  std::unique_ptr<Pel> pel_;
};

#endif  // ZVT4_TESTS_SUPPORT_TEST_PEL_H_
