// LinkedBlockingQueue: a bounded first-in first-out queue of non-null pointers with a lock at each end.
//
//   head -> [dummy] -> [oldest item] -> ... -> [newest item] <- tail
//
// Inserting touches tail under putLock, removing touches head under takeLock; count is the only word that both ends
// use. The two locks are never held together. A removal turns the node of its item into the new dummy. Nodes come from
// a ring of capacity + 2 in the order of their use: at most capacity items and one dummy are live, so a node handed out
// is always free, and no operation allocates.
//
// Any number of threads may insert and remove. Init, recycle and destruct belong to the owner, with nobody else inside.
//
// Inserts give 1 when the item went in, else 0; removals give the item or null. Both fail at once on a null or blank
// queue, and inserts on a null item.
#ifndef ZVT4_PARALLEL_LINKED_BLOCKING_QUEUE_H_
#define ZVT4_PARALLEL_LINKED_BLOCKING_QUEUE_H_

#include "parallel/lock.h"

struct LinkedBlockingQueueNode {
  void* item;
  LinkedBlockingQueueNode* next;
};

struct LinkedBlockingQueue {
  Env* env;
  int32_t capacity;
  LinkedBlockingQueueNode* nodes;  // ring of capacity + 2
  LinkedBlockingQueueNode* head;   // the dummy; the first item is in its successor
  LinkedBlockingQueueNode* tail;
  int32_t count;       // atomic
  int32_t nodeCursor;  // atomic; ring index of the next node to hand out
  Lock putLock;
  Lock takeLock;
  Condition notFull;   // on putLock
  Condition notEmpty;  // on takeLock
};

extern "C" {
// The share of a queue in its owner's arena sum: capacity x 8 + 16, and the native locks and conditions. A node counts
// as 8 bytes in it, as on 32-bit platforms.
int32_t LinkedBlockingQueue_getBufferSize(int32_t capacity) ZVT4_NAME(LinkedBlockingQueue_getBufferSize);

Status construct_LinkedBlockingQueue(LinkedBlockingQueue* queue, Env* env) ZVT4_NAME(construct_LinkedBlockingQueue);
// ZELVAN_ERROR_STATE, with nothing destroyed, while the queue holds items.
Status destruct_LinkedBlockingQueue(LinkedBlockingQueue* queue) ZVT4_NAME(destruct_LinkedBlockingQueue);
// Recycles first. ZELVAN_ERROR_PARAM for a capacity below 1, ZELVAN_ERROR_NOMEM when the arena refuses; the queue is
// then blank.
Status LinkedBlockingQueue_init(LinkedBlockingQueue* queue, int32_t capacity) ZVT4_NAME(LinkedBlockingQueue_init);
Status LinkedBlockingQueue_recycle(LinkedBlockingQueue* queue) ZVT4_NAME(LinkedBlockingQueue_recycle);

// put and take wait without limit, offer and poll never. The others wait up to millis, a negative value counting as 0;
// the full time starts anew whenever another thread was faster, so that the whole wait can be longer.
int32_t LinkedBlockingQueue_put(LinkedBlockingQueue* queue, void* item) ZVT4_NAME(LinkedBlockingQueue_put);
int32_t LinkedBlockingQueue_offer(LinkedBlockingQueue* queue, void* item) ZVT4_NAME(LinkedBlockingQueue_offer);
int32_t LinkedBlockingQueue_offerMillis(LinkedBlockingQueue* queue, void* item, int32_t millis)
    ZVT4_NAME(LinkedBlockingQueue_offerMillis);
void* LinkedBlockingQueue_take(LinkedBlockingQueue* queue) ZVT4_NAME(LinkedBlockingQueue_take);
void* LinkedBlockingQueue_poll(LinkedBlockingQueue* queue) ZVT4_NAME(LinkedBlockingQueue_poll);
void* LinkedBlockingQueue_pollMillis(LinkedBlockingQueue* queue, int32_t millis)
    ZVT4_NAME(LinkedBlockingQueue_pollMillis);

// -1 for a null queue.
int32_t LinkedBlockingQueue_getCapacity(LinkedBlockingQueue* queue) ZVT4_NAME(LinkedBlockingQueue_getCapacity);
int32_t LinkedBlockingQueue_size(LinkedBlockingQueue* queue) ZVT4_NAME(LinkedBlockingQueue_size);
}

#endif  // ZVT4_PARALLEL_LINKED_BLOCKING_QUEUE_H_
