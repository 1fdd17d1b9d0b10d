#include "parallel/concurrent_linked_queue.h"

#include <cstring>

#include "base/atomic.h"

namespace {

constexpr int32_t kMostItems = 0x40000;
constexpr uint32_t kEnd = 0xFFFFF;
constexpr uint32_t kCounter = 0xFFF;

constexpr uint32_t indexOf(uint32_t link) {
  return link >> 12;
}
// A link to the index that follows the given one in the life of its word.
constexpr uint32_t changed(uint32_t link, uint32_t index) {
  return (index << 12) | ((link + 1) & kCounter);
}

uint32_t takeFree(ConcurrentLinkedQueue* queue) {
  uint32_t top = atomicLoad(&queue->free);
  while (indexOf(top) != kEnd) {
    const uint32_t below = indexOf(atomicLoad(&queue->next[indexOf(top)]));
    if (atomicCompareExchange(&queue->free, &top, changed(top, below))) return indexOf(top);
  }
  return kEnd;
}

void setNext(ConcurrentLinkedQueue* queue, uint32_t node, uint32_t index) {
  atomicStore(&queue->next[node], changed(atomicLoad(&queue->next[node]), index));
}

void giveFree(ConcurrentLinkedQueue* queue, uint32_t node) {
  uint32_t top = atomicLoad(&queue->free);
  do {
    setNext(queue, node, indexOf(top));
  } while (!atomicCompareExchange(&queue->free, &top, changed(top, node)));
}

}  // namespace

uint32_t ConcurrentLinkedQueue_getBufferSize(int32_t n) {
  return n < 1 || n > kMostItems ? 0xFFFFFFFFu : 8 + static_cast<uint32_t>(n) * 8;
}

Status construct_ConcurrentLinkedQueue(ConcurrentLinkedQueue* queue, int32_t capacity, Env* env) {
  if (queue == nullptr || env == nullptr || capacity < 1 || capacity > kMostItems) return ZELVAN_ERROR_PARAM;
  std::memset(static_cast<void*>(queue), 0, sizeof(*queue));
  queue->env = env;
  const uint32_t nodes = static_cast<uint32_t>(capacity) + 1;
  queue->items = static_cast<void**>(Heap2_malloc(&env->heap, nodes * static_cast<uint32_t>(sizeof(void*))));
  queue->next = static_cast<uint32_t*>(Heap2_malloc(&env->heap, nodes * static_cast<uint32_t>(sizeof(uint32_t))));
  if (queue->items == nullptr || queue->next == nullptr) {
    destruct_ConcurrentLinkedQueue(queue);
    return ZELVAN_ERROR_NOMEM;
  }
  queue->capacity = capacity;
  // Node 0 is the first dummy; the others are free.
  for (uint32_t i = 0; i < nodes; ++i) {
    queue->items[i] = nullptr;
    queue->next[i] = (i == 0 || i + 1 == nodes ? kEnd : i + 1) << 12;
  }
  queue->free = uint32_t{1} << 12;
  return ZELVAN_OK;
}

Status destruct_ConcurrentLinkedQueue(ConcurrentLinkedQueue* queue) {
  if (queue == nullptr) return ZELVAN_ERROR_PARAM;
  if (queue->env != nullptr) {
    Heap2_free(&queue->env->heap, queue->items);
    Heap2_free(&queue->env->heap, queue->next);
  }
  std::memset(static_cast<void*>(queue), 0, sizeof(*queue));
  return ZELVAN_OK;
}

int32_t ConcurrentLinkedQueue_offer(ConcurrentLinkedQueue* queue, void* item) {
  if (queue == nullptr || item == nullptr || queue->next == nullptr) return 0;
  const uint32_t node = takeFree(queue);
  if (node == kEnd) return 0;
  // Counted before anybody can take it, as a removal is before its node can be used anew: 0 <= count <= capacity.
  atomicFetchAdd(&queue->count, 1);
  atomicStore(&queue->items[node], item);
  setNext(queue, node, kEnd);
  for (;;) {
    uint32_t tail = atomicLoad(&queue->tail);
    uint32_t next = atomicLoad(&queue->next[indexOf(tail)]);
    if (tail != atomicLoad(&queue->tail)) continue;
    if (indexOf(next) != kEnd) {  // the tail lags: help it on
      atomicCompareExchange(&queue->tail, &tail, changed(tail, indexOf(next)));
    } else if (atomicCompareExchange(&queue->next[indexOf(tail)], &next, changed(next, node))) {
      atomicCompareExchange(&queue->tail, &tail, changed(tail, node));
      return 1;
    }
  }
}

void* ConcurrentLinkedQueue_poll(ConcurrentLinkedQueue* queue) {
  if (queue == nullptr || queue->next == nullptr) return nullptr;
  for (;;) {
    uint32_t head = atomicLoad(&queue->head);
    uint32_t tail = atomicLoad(&queue->tail);
    const uint32_t next = indexOf(atomicLoad(&queue->next[indexOf(head)]));
    if (head != atomicLoad(&queue->head)) continue;
    if (indexOf(head) == indexOf(tail)) {
      if (next == kEnd) return nullptr;
      atomicCompareExchange(&queue->tail, &tail, changed(tail, next));
      continue;
    }
    if (next == kEnd) continue;  // the dummy went free meanwhile
    void* item = atomicLoad(&queue->items[next]);
    if (atomicCompareExchange(&queue->head, &head, changed(head, next))) {
      atomicFetchAdd(&queue->count, -1);
      giveFree(queue, indexOf(head));
      return item;
    }
  }
}

int32_t ConcurrentLinkedQueue_size(const ConcurrentLinkedQueue* queue) {
  return queue == nullptr ? -1 : atomicLoad(&queue->count);
}
