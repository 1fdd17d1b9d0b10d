// ConcurrentLinkedQueue: a bounded queue of pointers without locks, for any number of threads at both ends.
//
// The linked queue with a dummy node of Michael and Scott ("Simple, fast, and practical non-blocking and blocking
// concurrent queue algorithms", 1996). Nodes are indices into two arrays; a link is one 32-bit word with the index in
// its upper 20 bits and a change counter in the lower 12, so that a compare-and-exchange sees a node that was used
// anew. An index of all ones is the end.
#ifndef ZVT4_PARALLEL_CONCURRENT_LINKED_QUEUE_H_
#define ZVT4_PARALLEL_CONCURRENT_LINKED_QUEUE_H_

#include "base/env.h"

struct ConcurrentLinkedQueue {
  Env* env;
  int32_t capacity;
  int32_t count;   // atomic
  void** items;    // capacity + 1, the dummy included
  uint32_t* next;  // link of each node; atomic
  uint32_t head;   // links; atomic
  uint32_t tail;
  uint32_t free;
};

extern "C" {
// Bytes for n items where a pointer has 4; all ones for n outside 1 to 0x40000.
uint32_t ConcurrentLinkedQueue_getBufferSize(int32_t n) ZVT4_NAME(ConcurrentLinkedQueue_getBufferSize);
// Takes the arrays from the arena. ZELVAN_ERROR_PARAM for a null queue or a bad capacity.
Status construct_ConcurrentLinkedQueue(ConcurrentLinkedQueue* queue, int32_t capacity, Env* env)
    ZVT4_NAME(construct_ConcurrentLinkedQueue);
Status destruct_ConcurrentLinkedQueue(ConcurrentLinkedQueue* queue) ZVT4_NAME(destruct_ConcurrentLinkedQueue);
// 1, or 0 when the queue is full or an argument is null. Never waits.
int32_t ConcurrentLinkedQueue_offer(ConcurrentLinkedQueue* queue, void* item) ZVT4_NAME(ConcurrentLinkedQueue_offer);
// The oldest item, or null.
void* ConcurrentLinkedQueue_poll(ConcurrentLinkedQueue* queue) ZVT4_NAME(ConcurrentLinkedQueue_poll);
// Items in the queue, with those that are going in or out at this moment; -1 for null, else 0 to the capacity.
int32_t ConcurrentLinkedQueue_size(const ConcurrentLinkedQueue* queue) ZVT4_NAME(ConcurrentLinkedQueue_size);
}

#endif  // ZVT4_PARALLEL_CONCURRENT_LINKED_QUEUE_H_
