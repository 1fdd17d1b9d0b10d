// MemPool: a pool of equal items that needs no lock.
//
// The free items form a stack (Treiber, "Systems Programming: Coping with Parallelism", 1986). `head` holds the index
// of the top item and a tag that every push and pop increases, so that a compare-and-exchange does not succeed on a
// head that went away and came back in between. A free item holds the index below it in its first four bytes, -1 at
// the bottom; items stand side by side without padding and need not be aligned.
//
// The first item is popped first after MemPool_init. Push and pop may be called from any thread, the others by one
// thread alone.
#ifndef ZVT4_BASE_MEM_POOL_H_
#define ZVT4_BASE_MEM_POOL_H_

#include <cstdint>

#include "base/env.h"
#include "base/export.h"
#include "base/status.h"

struct MemPool {
  Env* env;
  void* buffer;
  int32_t itemSize;     // bytes from item to item, at least 4
  uint32_t reciprocal;  // 0xFFFFFFFF / itemSize
  int32_t head;         // (index << 12) | 12-bit tag, index -1 when empty; atomic
};

extern "C" {
// Bytes that MemPool_init takes; -1 unless itemSize >= 1 and 1 <= count <= 262144, or when they exceed 31 bits.
int32_t MemPool_getBufferSize(int32_t itemSize, int32_t count) ZVT4_NAME(MemPool_getBufferSize);

Status construct_MemPool(MemPool* pool, Env* env) ZVT4_NAME(construct_MemPool);

// ZELVAN_ERROR_PARAM for an itemSize or a count outside these ranges, ZELVAN_ERROR_NOMEM when the arena has not as
// much; the pool is then empty. A pool that was in use loses its items.
Status MemPool_init(MemPool* pool, int32_t itemSize, int32_t count) ZVT4_NAME(MemPool_init);

// Returns an item of this pool to it.
Status MemPool_push(MemPool* pool, void* item) ZVT4_NAME(MemPool_push);

// Null when the pool is empty.
void* MemPool_pop(MemPool* pool) ZVT4_NAME(MemPool_pop);

Status MemPool_recycle(MemPool* pool) ZVT4_NAME(MemPool_recycle);
Status destruct_MemPool(MemPool* pool) ZVT4_NAME(destruct_MemPool);
}

#endif  // ZVT4_BASE_MEM_POOL_H_
