// The environment of an instance: its arena, and a clock.
//
// Every object of the library receives an Env at construction and takes all its memory from the arena in it. There is
// no other allocator.
#ifndef ZVT4_BASE_ENV_H_
#define ZVT4_BASE_ENV_H_

#include <cstddef>
#include <cstdint>

#include "base/export.h"
#include "base/heap2.h"
#include "base/status.h"

struct Env {
  Heap2 heap;
  uint32_t spare;
  void* systemBlock;  // stays null
};

extern "C" {
// Clears the record and constructs the arena on the buffer, which the caller keeps alive and aligned as it likes.
// Statuses of construct_Heap2.
Status construct_Env(Env* env, void* buffer, uint32_t size) ZVT4_NAME(construct_Env);

// ZELVAN_ERROR_STATE when something was still allocated.
Status destruct_Env(Env* env) ZVT4_NAME(destruct_Env);

// Exchanges all that stands in front of systemBlock. Both arenas work on under the other record; no other thread may
// use them meanwhile, since the locks are exchanged too.
void swap_Env(Env* a, Env* b) ZVT4_NAME(swap_Env);

// Nanoseconds of the monotonic raw clock, 0 when it cannot be read. env is not used.
uint64_t Env_getTick(Env* env) ZVT4_NAME(Env_getTick);
}

#endif  // ZVT4_BASE_ENV_H_
