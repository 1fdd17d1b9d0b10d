// LinkedBlockingQueue: a bounded queue of pointers with a lock at each end.
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
  int32_t nodeCursor;  // atomic
  Lock putLock;
  Lock takeLock;
  Condition notFull;   // on putLock
  Condition notEmpty;  // on takeLock
};

extern "C" {
int32_t LinkedBlockingQueue_getBufferSize(int32_t capacity) ZVT4_NAME(LinkedBlockingQueue_getBufferSize);
Status construct_LinkedBlockingQueue(LinkedBlockingQueue* queue, Env* env) ZVT4_NAME(construct_LinkedBlockingQueue);
Status destruct_LinkedBlockingQueue(LinkedBlockingQueue* queue) ZVT4_NAME(destruct_LinkedBlockingQueue);
Status LinkedBlockingQueue_init(LinkedBlockingQueue* queue, int32_t capacity) ZVT4_NAME(LinkedBlockingQueue_init);
Status LinkedBlockingQueue_recycle(LinkedBlockingQueue* queue) ZVT4_NAME(LinkedBlockingQueue_recycle);
int32_t LinkedBlockingQueue_put(LinkedBlockingQueue* queue, void* item) ZVT4_NAME(LinkedBlockingQueue_put);
int32_t LinkedBlockingQueue_offer(LinkedBlockingQueue* queue, void* item) ZVT4_NAME(LinkedBlockingQueue_offer);
int32_t LinkedBlockingQueue_offerMillis(LinkedBlockingQueue* queue, void* item, int32_t millis)
    ZVT4_NAME(LinkedBlockingQueue_offerMillis);
void* LinkedBlockingQueue_take(LinkedBlockingQueue* queue) ZVT4_NAME(LinkedBlockingQueue_take);
void* LinkedBlockingQueue_poll(LinkedBlockingQueue* queue) ZVT4_NAME(LinkedBlockingQueue_poll);
void* LinkedBlockingQueue_pollMillis(LinkedBlockingQueue* queue, int32_t millis)
    ZVT4_NAME(LinkedBlockingQueue_pollMillis);
int32_t LinkedBlockingQueue_getCapacity(LinkedBlockingQueue* queue) ZVT4_NAME(LinkedBlockingQueue_getCapacity);
int32_t LinkedBlockingQueue_size(LinkedBlockingQueue* queue) ZVT4_NAME(LinkedBlockingQueue_size);
}

#endif  // ZVT4_PARALLEL_LINKED_BLOCKING_QUEUE_H_
