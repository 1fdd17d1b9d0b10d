#include "parallel/thread.h"

#include <gtest/gtest.h>
#include <sched.h>

#include "parallel/syscall.h"

namespace {

Status addOne(void* argument) {
  return ++*static_cast<Status*>(argument);
}

TEST(Thread, StartsOnceAndAgainAfterAJoin) {
  Thread thread;
  construct_Thread(&thread, nullptr);
  EXPECT_EQ(Thread_join(&thread), ZELVAN_OK);
  Status value = 6;
  EXPECT_EQ(Thread_start(&thread, nullptr, &value), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(Thread_start(nullptr, addOne, &value), ZELVAN_ERROR_PARAM);
  ASSERT_EQ(Thread_start(&thread, addOne, &value), ZELVAN_OK);
  EXPECT_EQ(Thread_start(&thread, addOne, &value), ZELVAN_ERROR_STATE);
  EXPECT_EQ(Thread_join(&thread), 7u);
  EXPECT_EQ(Thread_join(&thread), ZELVAN_OK) << "the result belongs to the first join";

  ASSERT_EQ(Thread_start(&thread, addOne, &value), ZELVAN_OK);
  Status result = 0;
  EXPECT_EQ(Thread_join2(&thread, &result), ZELVAN_OK);
  EXPECT_EQ(result, 8u);
  EXPECT_EQ(destruct_Thread(&thread), ZELVAN_OK);
}

TEST(Thread, DestructKeepsTheRecordOfAFailedThread) {
  Thread thread;
  construct_Thread(&thread, nullptr);
  Status value = 0;
  ASSERT_EQ(Thread_start(&thread, addOne, &value), ZELVAN_OK);
  EXPECT_EQ(destruct_Thread(&thread), 1u);
  EXPECT_EQ(thread.argument, &value);
  EXPECT_EQ(destruct_Thread(&thread), ZELVAN_OK);
  EXPECT_EQ(thread.argument, nullptr);
}

// Runs on a thread of its own, so that the other tests keep their processors.
Status affinityOfThisThread(void*) {
  cpu_set_t before;
  EXPECT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
  int32_t allowed = 0;
  while (allowed < 32 && !CPU_ISSET(allowed, &before)) ++allowed;
  if (allowed == 32) return ZELVAN_OK;  // nothing that a mask can name

  cpu_set_t now;
  EXPECT_EQ(Syscall_setThreadAffinityMask(nullptr, 1u << allowed), ZELVAN_OK);
  EXPECT_EQ(sched_getaffinity(0, sizeof now, &now), 0);
  EXPECT_EQ(CPU_COUNT(&now), 1);
  EXPECT_EQ(sched_getcpu(), allowed);
  EXPECT_EQ(Syscall_setThreadAffinityMask(nullptr, 0), ZELVAN_ERROR_RESOURCE);
  EXPECT_EQ(CPU_COUNT(&now), 1);

  EXPECT_EQ(Syscall_setThreadAffinityMask(nullptr, 0xFFFFFFFFu), ZELVAN_OK);
  EXPECT_EQ(sched_getaffinity(0, sizeof now, &now), 0);
  for (int32_t i = 0; i < CPU_SETSIZE; ++i) EXPECT_GE(CPU_ISSET(i, &now) != 0, CPU_ISSET(i, &before) != 0) << i;
  return 0x55;
}

TEST(Syscall, MaskRestrictsAndAllOnesLifts) {
  Thread thread;
  construct_Thread(&thread, nullptr);
  ASSERT_EQ(Thread_start(&thread, affinityOfThisThread, nullptr), ZELVAN_OK);
  EXPECT_EQ(Thread_join(&thread), 0x55u);
  EXPECT_GE(Syscall_getNumberOfProcessors(nullptr), 1);
}

}  // namespace
