#include "base/env.h"

#include <time.h>

#include <cstring>
#include <utility>

Status construct_Env(Env* env, void* buffer, uint32_t size) {
  std::memset(static_cast<void*>(env), 0, sizeof *env);
  return construct_Heap2(&env->heap, buffer, size);
}

Status destruct_Env(Env* env) {
  return destruct_Heap2(&env->heap);
}

void swap_Env(Env* a, Env* b) {
  if (a == b) return;
  std::swap(a->heap, b->heap);
  std::swap(a->spare, b->spare);

  // The head node of an arena without free blocks points at itself, and has moved.
  const auto moveHead = [](Heap2* to, const Heap2* from) {
    if (to->freeNext == &from->freeNext) to->freeNext = &to->freeNext;
    if (to->freePrev == &from->freeNext) to->freePrev = &to->freeNext;
  };
  moveHead(&a->heap, &b->heap);
  moveHead(&b->heap, &a->heap);
}

uint64_t Env_getTick(Env*) {
  timespec now;
  if (clock_gettime(CLOCK_MONOTONIC_RAW, &now) != 0) return 0;
  return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}
