// The processor calls.
#ifndef ZVT4_PARALLEL_SYSCALL_H_
#define ZVT4_PARALLEL_SYSCALL_H_

#include "base/env.h"

extern "C" {
// Configured processors, at least 1. The value can grow while the process runs. env is not used and may be null.
int32_t Syscall_getNumberOfProcessors(Env* env) ZVT4_NAME(Syscall_getNumberOfProcessors);

// Restricts the calling thread to the processors of the mask; bit n allows processor n, so only the first 32 can be
// named. The all-ones mask lifts every restriction, on larger machines too. env is not used and may be null.
// ZELVAN_ERROR_RESOURCE when the system refuses, for instance for a mask of processors that the process may not use;
// the thread then runs where it ran before, and the pools carry on.
Status Syscall_setThreadAffinityMask(Env* env, uint32_t mask) ZVT4_NAME(Syscall_setThreadAffinityMask);
}

// Processors that the calling thread may run on, at least 1: what its affinity and the container leave it.
int32_t Syscall_countUsableProcessors();
// Whether there are several, as found at the first call.
bool Syscall_haveProcessors();

#endif  // ZVT4_PARALLEL_SYSCALL_H_
