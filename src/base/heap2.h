// Heap2: the arena allocator. Boundary tags, first fit, immediate coalescing, one spin lock. The method is Knuth's
// (The Art of Computer Programming, volume 1, section 2.5).
//
// A heap carves everything from the one buffer it was constructed on. Each block, free or not, looks like this:
//
//   offset 0   4 bytes   copy of the size word of the block in front
//   offset 4   4 bytes   size word: bytes of the whole block, a multiple of 16, with bit 0 set while in use
//   offset 8   rest      user data, aligned to 16
//
// so the size word of a block and the first word of the block behind it are always equal, and freeing finds both
// neighbours without a search. The first block's first word is 1 and a sentinel of size 0, in use, ends the arena:
// coalescing stops at both ends without a bounds test. Two free blocks are never adjacent.
//
// A free block keeps its two list links at the start of its user area, next first. They are 32-bit offsets from
// `first` to the user area of the neighbour, and 0 is the head node inside Heap2: a block of 16 bytes holds them on
// 64-bit machines too, and sizes are the same everywhere. The list is in order of freeing, newest first; the rest of
// a split goes to its head.
//
// Nothing is repaired or reported when a tag or link is found wrong, a block is freed twice or a foreign pointer is
// freed: the process ends by a trap. An exhausted arena is an ordinary null.
//
// In builds with the address sanitizer whatever is free is poisoned, and so are the header and the padding between two
// blocks: touching a byte that was not asked for ends the process. Sizes and addresses are those of every build.
//
// All functions but the readers of `used` and `maxUsed` take the lock, and may be called from any thread.
#ifndef ZVT4_BASE_HEAP2_H_
#define ZVT4_BASE_HEAP2_H_

#include <cstddef>
#include <cstdint>

#include "base/export.h"
#include "base/status.h"

struct Heap2 {
  uint32_t lock;     // 0 free, 1 held; atomic
  void* first;       // header of the first block
  void* last;        // header of the end sentinel
  void* freeNext;    // free-list head node: user area of the newest free block, or the address of this field
  void* freePrev;    // the same for the oldest
  uint32_t used;     // bytes in blocks in use, headers included
  uint32_t maxUsed;  // high-water mark of used
};

extern "C" {
// The lock word must be 0 before the first construction. A null buffer of size 0 gives a heap that is always
// exhausted. ZELVAN_ERROR_RESOURCE when the buffer is too small for a single block; the heap is then exhausted too.
Status construct_Heap2(Heap2* heap, void* buffer, uint32_t size) ZVT4_NAME(construct_Heap2);

// Checks all blocks and clears the record. ZELVAN_ERROR_STATE when a block was still in use. Later allocations from
// the record end the process.
Status destruct_Heap2(Heap2* heap) ZVT4_NAME(destruct_Heap2);

// A block of at least size bytes, or null when no free block fits. Size 0 gives a constant that is no block and that
// Heap2_free ignores.
void* Heap2_malloc(Heap2* heap, uint32_t size) ZVT4_NAME(Heap2_malloc);

// Always ZELVAN_OK. Null is ignored.
Status Heap2_free(Heap2* heap, void* pointer) ZVT4_NAME(Heap2_free);

uint32_t Heap2_getUsedSize(const Heap2* heap) ZVT4_NAME(Heap2_getUsedSize);
uint32_t Heap2_getMaxUsedSize(const Heap2* heap) ZVT4_NAME(Heap2_getMaxUsedSize);

// The largest size that Heap2_malloc can serve now with a whole block, 0 if there is none.
uint32_t Heap2_getFreeSize(Heap2* heap) ZVT4_NAME(Heap2_getFreeSize);

// Both verify every block and that every free block is on the list, in time quadratic in the number of free blocks.
// Heap2_checks returns 1, Heap2_dump 0.
int32_t Heap2_checks(Heap2* heap) ZVT4_NAME(Heap2_checks);
int32_t Heap2_dump(Heap2* heap) ZVT4_NAME(Heap2_dump);
}

#endif  // ZVT4_BASE_HEAP2_H_
