// Heap2: the arena allocator. Boundary tags, first fit, immediate coalescing, one spin lock.
#ifndef ZVT4_BASE_HEAP2_H_
#define ZVT4_BASE_HEAP2_H_

#include <cstddef>
#include <cstdint>

#include "base/export.h"
#include "base/status.h"

struct Heap2 {
  uint32_t lock;   // 0 free, 1 held; atomic
  void* first;     // header of the first block
  void* last;      // header of the end sentinel
  void* freeNext;  // free-list head node
  void* freePrev;
  uint32_t used;     // bytes in blocks in use, headers included
  uint32_t maxUsed;  // high-water mark of used
};

extern "C" {
Status construct_Heap2(Heap2* heap, void* buffer, uint32_t size) ZVT4_NAME(construct_Heap2);
Status destruct_Heap2(Heap2* heap) ZVT4_NAME(destruct_Heap2);
void* Heap2_malloc(Heap2* heap, uint32_t size) ZVT4_NAME(Heap2_malloc);
Status Heap2_free(Heap2* heap, void* pointer) ZVT4_NAME(Heap2_free);
uint32_t Heap2_getUsedSize(const Heap2* heap) ZVT4_NAME(Heap2_getUsedSize);
uint32_t Heap2_getMaxUsedSize(const Heap2* heap) ZVT4_NAME(Heap2_getMaxUsedSize);
uint32_t Heap2_getFreeSize(Heap2* heap) ZVT4_NAME(Heap2_getFreeSize);
int32_t Heap2_checks(Heap2* heap) ZVT4_NAME(Heap2_checks);
int32_t Heap2_dump(Heap2* heap) ZVT4_NAME(Heap2_dump);
}

#endif  // ZVT4_BASE_HEAP2_H_
