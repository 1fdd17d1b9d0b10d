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
Status construct_Env(Env* env, void* buffer, uint32_t size) ZVT4_NAME(construct_Env);
Status destruct_Env(Env* env) ZVT4_NAME(destruct_Env);
void swap_Env(Env* a, Env* b) ZVT4_NAME(swap_Env);
uint64_t Env_getTick(Env* env) ZVT4_NAME(Env_getTick);
}

#endif  // ZVT4_BASE_ENV_H_
