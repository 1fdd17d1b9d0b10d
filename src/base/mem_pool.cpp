#include "base/mem_pool.h"

#include <cstring>

#include "base/atomic.h"

namespace {

constexpr int32_t kMaxCount = 262144;
constexpr int32_t kMinItemSize = 4;
constexpr int kTagBits = 12;
constexpr uint32_t kTagMask = (1u << kTagBits) - 1;
constexpr int32_t kNoItem = -1;
constexpr int32_t kEmptyHead = -(1 << kTagBits);

bool isLegal(int32_t itemSize, int32_t count) {
  return itemSize >= 1 && count >= 1 && count <= kMaxCount;
}

int32_t indexOf(int32_t head) {
  return head >> kTagBits;
}

// The successor of a head: another top item, the next tag.
int32_t headAfter(int32_t head, int32_t index) {
  const uint32_t tag = (static_cast<uint32_t>(head) + 1) & kTagMask;
  return static_cast<int32_t>((static_cast<uint32_t>(index) << kTagBits) | tag);
}

// A slow pop may read the link of an item that is somebody else's by now; the tag then makes it discard the value.
// Bytes are atomic on their own, which is enough for that and asks for no alignment.
void storeLink(void* item, int32_t index) {
  unsigned char bytes[sizeof index];
  std::memcpy(bytes, &index, sizeof index);
  for (size_t i = 0; i < sizeof index; ++i) {
    __atomic_store_n(static_cast<unsigned char*>(item) + i, bytes[i], __ATOMIC_RELAXED);
  }
}
int32_t loadLink(const void* item) {
  unsigned char bytes[sizeof(int32_t)];
  for (size_t i = 0; i < sizeof bytes; ++i) {
    bytes[i] = __atomic_load_n(static_cast<const unsigned char*>(item) + i, __ATOMIC_RELAXED);
  }
  int32_t index;
  std::memcpy(&index, bytes, sizeof index);
  return index;
}

}  // namespace

int32_t MemPool_getBufferSize(int32_t itemSize, int32_t count) {
  if (!isLegal(itemSize, count)) return -1;
  const int64_t bytes = int64_t{itemSize < kMinItemSize ? kMinItemSize : itemSize} * count;
  return bytes > INT32_MAX ? -1 : static_cast<int32_t>(bytes);
}

Status construct_MemPool(MemPool* pool, Env* env) {
  if (pool == nullptr) return ZELVAN_ERROR_PARAM;
  *pool = MemPool{};
  pool->env = env;
  return ZELVAN_OK;
}

Status MemPool_init(MemPool* pool, int32_t itemSize, int32_t count) {
  if (pool == nullptr || !isLegal(itemSize, count)) return ZELVAN_ERROR_PARAM;
  MemPool_recycle(pool);
  const int32_t bytes = MemPool_getBufferSize(itemSize, count);
  void* buffer = bytes < 0 ? nullptr : Heap2_malloc(&pool->env->heap, static_cast<uint32_t>(bytes));
  if (buffer == nullptr) return ZELVAN_ERROR_NOMEM;

  pool->buffer = buffer;
  pool->itemSize = bytes / count;
  pool->reciprocal = UINT32_MAX / static_cast<uint32_t>(pool->itemSize);
  atomicStore(&pool->head, kEmptyHead);
  for (int32_t i = count; i-- > 0;) {
    MemPool_push(pool, static_cast<unsigned char*>(buffer) + static_cast<size_t>(i) * pool->itemSize);
  }
  return ZELVAN_OK;
}

Status MemPool_push(MemPool* pool, void* item) {
  if (pool == nullptr || item == nullptr || pool->buffer == nullptr) return ZELVAN_ERROR_PARAM;
  const uint64_t offset =
      static_cast<uint64_t>(static_cast<unsigned char*>(item) - static_cast<unsigned char*>(pool->buffer));
  // Exact for every item i: the product is i 2^32 - i (1 + r) with r = 0xFFFFFFFF mod itemSize, and i (1 + r) < 2^31.
  const int32_t index = static_cast<int32_t>((offset * pool->reciprocal + UINT32_MAX) >> 32);
  int32_t head = atomicLoad(&pool->head);
  do {
    storeLink(item, indexOf(head));
  } while (!atomicCompareExchange(&pool->head, &head, headAfter(head, index)));
  return ZELVAN_OK;
}

void* MemPool_pop(MemPool* pool) {
  if (pool == nullptr || pool->buffer == nullptr) return nullptr;
  int32_t head = atomicLoad(&pool->head);
  void* item;
  do {
    if (indexOf(head) == kNoItem) return nullptr;
    item = static_cast<unsigned char*>(pool->buffer) + static_cast<size_t>(indexOf(head)) * pool->itemSize;
  } while (!atomicCompareExchange(&pool->head, &head, headAfter(head, loadLink(item))));
  return item;
}

Status MemPool_recycle(MemPool* pool) {
  if (pool == nullptr) return ZELVAN_ERROR_PARAM;
  if (pool->buffer != nullptr) Heap2_free(&pool->env->heap, pool->buffer);
  pool->buffer = nullptr;
  return ZELVAN_OK;
}

Status destruct_MemPool(MemPool* pool) {
  const Status status = MemPool_recycle(pool);
  if (pool != nullptr) *pool = MemPool{};
  return status;
}
