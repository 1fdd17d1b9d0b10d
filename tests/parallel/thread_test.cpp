#include "parallel/thread.h"

#include <gtest/gtest.h>
#include <sched.h>

#include "parallel/syscall.h"

namespace {

TEST(Thread, StartsOnceAndAgainAfterAJoin) {
  const auto addOne = [](void* argument) -> Status { return ++*static_cast<Status*>(argument); };
  Thread thread;
  construct_Thread(&thread, nullptr);
  EXPECT_EQ(Thread_join(&thread), ZELVAN_OK);
  Status value = 6, result = 0;
  EXPECT_EQ(Thread_start(&thread, nullptr, &value), ZELVAN_ERROR_PARAM);
  ASSERT_EQ(Thread_start(&thread, addOne, &value), ZELVAN_OK);
  EXPECT_EQ(Thread_start(&thread, addOne, &value), ZELVAN_ERROR_STATE);
  EXPECT_EQ(destruct_Thread(&thread), 7u);
  EXPECT_EQ(thread.argument, &value) << "the record stays after a nonzero result";
  EXPECT_EQ(Thread_join(&thread), ZELVAN_OK) << "the result belongs to the first join";

  ASSERT_EQ(Thread_start(&thread, addOne, &value), ZELVAN_OK);
  EXPECT_EQ(Thread_join2(&thread, &result), ZELVAN_OK);
  EXPECT_EQ(result, 8u);
  EXPECT_EQ(destruct_Thread(&thread), ZELVAN_OK);
  EXPECT_EQ(thread.argument, nullptr);
}

// Runs on a thread of its own, so that the other tests keep their processors.
Status affinityOfThisThread(void*) {
  cpu_set_t before, now;
  EXPECT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
  for (int32_t i = 0; i < 32; ++i) {
    if (!CPU_ISSET(i, &before)) continue;
    EXPECT_EQ(Syscall_setThreadAffinityMask(nullptr, 1u << i), ZELVAN_OK);
    EXPECT_EQ(Syscall_setThreadAffinityMask(nullptr, 0), ZELVAN_ERROR_RESOURCE);
    EXPECT_EQ(sched_getcpu(), i);
  }
  EXPECT_EQ(Syscall_setThreadAffinityMask(nullptr, 0xFFFFFFFFu), ZELVAN_OK);
  EXPECT_EQ(sched_getaffinity(0, sizeof now, &now), 0);
  CPU_AND(&now, &now, &before);
  return CPU_EQUAL(&now, &before) ? 0x55 : 0;
}

TEST(Syscall, MaskRestrictsAndAllOnesLifts) {
  Thread thread;
  construct_Thread(&thread, nullptr);
  ASSERT_EQ(Thread_start(&thread, affinityOfThisThread, nullptr), ZELVAN_OK);
  EXPECT_EQ(Thread_join(&thread), 0x55u);
}

}  // namespace
