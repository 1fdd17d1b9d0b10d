// The two processor calls.
#ifndef ZVT4_PARALLEL_SYSCALL_H_
#define ZVT4_PARALLEL_SYSCALL_H_

#include "base/env.h"

extern "C" {
// Configured processors, at least 1.
int32_t Syscall_getNumberOfProcessors(Env* env) ZVT4_NAME(Syscall_getNumberOfProcessors);
// Restricts the calling thread to the processors of the mask; bit n allows processor n, all ones lifts every limit.
Status Syscall_setThreadAffinityMask(Env* env, uint32_t mask) ZVT4_NAME(Syscall_setThreadAffinityMask);
}

#endif  // ZVT4_PARALLEL_SYSCALL_H_
