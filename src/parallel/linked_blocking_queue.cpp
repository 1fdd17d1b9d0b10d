#include "parallel/linked_blocking_queue.h"

#include "base/atomic.h"

namespace {

constexpr int32_t kForever = -1;

// One turn of waiting on a condition whose lock is held.
Status waitOnce(Condition* condition, int32_t millis) {
  if (millis == 0) return ZELVAN_ERROR_TIMEOUT;
  return millis < 0 ? Condition_await(condition) : Condition_awaitMillis(condition, millis);
}

// Wakes one waiter of the other end; the caller holds no lock.
Status signalUnderLock(Condition* condition, Lock* lock) {
  if (const Status status = Lock_lock(lock); status != ZELVAN_OK) return status;
  const Status status = Condition_signal(condition);
  return status | Lock_unlock(lock);
}

LinkedBlockingQueueNode* nextNode(LinkedBlockingQueue* queue) {
  int32_t at = atomicLoad(&queue->nodeCursor);
  while (!atomicCompareExchange(&queue->nodeCursor, &at, at > queue->capacity ? 0 : at + 1)) {
  }
  return &queue->nodes[at];
}

int32_t insertLast(LinkedBlockingQueue* queue, void* item, int32_t millis) {
  if (queue == nullptr || item == nullptr) return 0;
  if (Lock_lock(&queue->putLock) != ZELVAN_OK) return 0;
  Status status = ZELVAN_OK;
  while (status == ZELVAN_OK && atomicLoad(&queue->count) >= queue->capacity) {
    status = waitOnce(&queue->notFull, millis);
  }
  if (status != ZELVAN_OK) {
    Lock_unlock(&queue->putLock);
    return 0;
  }
  LinkedBlockingQueueNode* node = nextNode(queue);
  *node = {item, nullptr};
  queue->tail->next = node;
  queue->tail = node;
  const int32_t before = atomicFetchAdd(&queue->count, 1);
  if (before + 1 < queue->capacity) status |= Condition_signal(&queue->notFull);
  status |= Lock_unlock(&queue->putLock);
  if (before == 0) status |= signalUnderLock(&queue->notEmpty, &queue->takeLock);
  return status == ZELVAN_OK;
}

void* removeFirst(LinkedBlockingQueue* queue, int32_t millis) {
  if (queue == nullptr) return nullptr;
  if (Lock_lock(&queue->takeLock) != ZELVAN_OK) return nullptr;
  Status status = ZELVAN_OK;
  while (status == ZELVAN_OK && atomicLoad(&queue->count) < 1) status = waitOnce(&queue->notEmpty, millis);
  if (status != ZELVAN_OK) {
    Lock_unlock(&queue->takeLock);
    return nullptr;
  }
  queue->head = queue->head->next;
  void* item = queue->head->item;
  queue->head->item = nullptr;
  const int32_t before = atomicFetchAdd(&queue->count, -1);
  // An item that is out is handed over whatever becomes of the signals: nobody else could free it.
  if (before >= 2) Condition_signal(&queue->notEmpty);
  Lock_unlock(&queue->takeLock);
  if (before == queue->capacity) signalUnderLock(&queue->notFull, &queue->putLock);
  return item;
}

// Frees whatever a complete or an interrupted init took.
Status release(LinkedBlockingQueue* queue) {
  Status status = destruct_Condition(&queue->notEmpty);
  status |= destruct_Condition(&queue->notFull);
  status |= destruct_Lock(&queue->takeLock);
  status |= destruct_Lock(&queue->putLock);
  if (queue->nodes != nullptr) status |= Heap2_free(&queue->env->heap, queue->nodes);
  return status;
}

}  // namespace

int32_t LinkedBlockingQueue_getBufferSize(int32_t capacity) {
  return capacity * 8 + (Lock_getBufferSize(LOCK_REENTRANT) + Condition_getBufferSize()) * 2 + 16;
}

Status construct_LinkedBlockingQueue(LinkedBlockingQueue* queue, Env* env) {
  if (queue == nullptr) return ZELVAN_ERROR_PARAM;
  *queue = {};
  queue->env = env;
  Status status = construct_Lock(&queue->putLock, env);
  status |= construct_Lock(&queue->takeLock, env);
  status |= construct_Condition(&queue->notFull, env);
  return status | construct_Condition(&queue->notEmpty, env);
}

Status destruct_LinkedBlockingQueue(LinkedBlockingQueue* queue) {
  if (queue == nullptr) return ZELVAN_ERROR_PARAM;
  if (queue->head != queue->tail) return ZELVAN_ERROR_STATE;
  const Status status = release(queue);
  *queue = {};
  return status;
}

Status LinkedBlockingQueue_init(LinkedBlockingQueue* queue, int32_t capacity) {
  if (queue == nullptr || capacity < 1) return ZELVAN_ERROR_PARAM;
  if (const Status status = LinkedBlockingQueue_recycle(queue); status != ZELVAN_OK) return status;
  const uint64_t bytes = (uint64_t{static_cast<uint32_t>(capacity)} + 2) * sizeof(LinkedBlockingQueueNode);
  if (bytes > UINT32_MAX) return ZELVAN_ERROR_NOMEM;
  queue->nodes = static_cast<LinkedBlockingQueueNode*>(Heap2_malloc(&queue->env->heap, static_cast<uint32_t>(bytes)));
  if (queue->nodes == nullptr) return ZELVAN_ERROR_NOMEM;
  Status status = Lock_init(&queue->putLock, LOCK_REENTRANT);
  if (status == ZELVAN_OK) status = Lock_init(&queue->takeLock, LOCK_REENTRANT);
  if (status == ZELVAN_OK) status = Condition_init(&queue->notFull, &queue->putLock);
  if (status == ZELVAN_OK) status = Condition_init(&queue->notEmpty, &queue->takeLock);
  if (status != ZELVAN_OK) return status | LinkedBlockingQueue_recycle(queue);
  queue->capacity = capacity;
  queue->nodes[0] = {};
  queue->head = queue->tail = queue->nodes;
  queue->nodeCursor = 1;
  return ZELVAN_OK;
}

Status LinkedBlockingQueue_recycle(LinkedBlockingQueue* queue) {
  if (queue == nullptr) return ZELVAN_ERROR_PARAM;
  Env* env = queue->env;
  const Status status = destruct_LinkedBlockingQueue(queue);
  if (status == ZELVAN_ERROR_STATE) return status;
  return status | construct_LinkedBlockingQueue(queue, env);
}

int32_t LinkedBlockingQueue_put(LinkedBlockingQueue* queue, void* item) {
  return insertLast(queue, item, kForever);
}

int32_t LinkedBlockingQueue_offer(LinkedBlockingQueue* queue, void* item) {
  return insertLast(queue, item, 0);
}

int32_t LinkedBlockingQueue_offerMillis(LinkedBlockingQueue* queue, void* item, int32_t millis) {
  return insertLast(queue, item, millis < 0 ? 0 : millis);
}

void* LinkedBlockingQueue_take(LinkedBlockingQueue* queue) {
  return removeFirst(queue, kForever);
}

void* LinkedBlockingQueue_poll(LinkedBlockingQueue* queue) {
  return removeFirst(queue, 0);
}

void* LinkedBlockingQueue_pollMillis(LinkedBlockingQueue* queue, int32_t millis) {
  return removeFirst(queue, millis < 0 ? 0 : millis);
}

int32_t LinkedBlockingQueue_getCapacity(LinkedBlockingQueue* queue) {
  return queue != nullptr ? queue->capacity : -1;
}

int32_t LinkedBlockingQueue_size(LinkedBlockingQueue* queue) {
  return queue != nullptr ? atomicLoad(&queue->count) : -1;
}
