#include "base/heap2.h"

#include <cstring>

#include "base/poison.h"

namespace {

constexpr uint32_t kInUse = 1;
constexpr uint32_t kHeaderSize = 8;
constexpr uint32_t kAlignment = 16;
constexpr uint32_t kMinBlock = 16;
constexpr uint32_t kHead = 0;  // as a link: the head node

// What a request for nothing receives.
alignas(kAlignment) constexpr uint32_t kZeroSize = 0;

void* zeroSizeMarker() {
  return const_cast<uint32_t*>(&kZeroSize);
}

[[noreturn]] void endProcess() {
  __builtin_trap();
}

void require(bool sound) {
  if (!sound) [[unlikely]]
    endProcess();
}

constexpr uint32_t sizeOf(uint32_t sizeWord) {
  return sizeWord & ~kInUse;
}

// The blocks of a heap, held under its lock. Blocks are named by the offset of their header from the first header,
// list nodes by the offset of their user area.
class Arena {
 public:
  explicit Arena(Heap2* heap) : heap_(heap) {
    while (__atomic_exchange_n(&heap_->lock, 1u, __ATOMIC_ACQUIRE) != 0) {
      while (__atomic_load_n(&heap_->lock, __ATOMIC_RELAXED) != 0) {
      }
    }
  }
  ~Arena() { __atomic_store_n(&heap_->lock, 0u, __ATOMIC_SEQ_CST); }
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;

  // The offset of the sentinel; 0 for an arena without memory.
  uint32_t end() const {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(heap_->last) - reinterpret_cast<uintptr_t>(heap_->first));
  }
  void* userPointer(uint32_t block) const { return at(block + kHeaderSize); }

  uint32_t frontWord(uint32_t block) const { return load(block); }
  uint32_t sizeWord(uint32_t block) const { return load(block + 4); }
  void setSizeWord(uint32_t block, uint32_t word) {
    store(block + 4, word);
    store(block + sizeOf(word), word);
  }
  // The whole arena as one free block between its two ends.
  void setWhole() {
    store(0, kInUse);
    setSizeWord(0, end());
    store(end() + 4, kInUse);
    pushFront(kHeaderSize);
    poison(heap_->first, size_t{end()} + kHeaderSize);
  }

  // Under the address sanitizer the requested bytes of a block in use may be touched and nothing else: not what is
  // free, nor the header and the padding between blocks.
  void lend(uint32_t block, uint32_t bytes) const { unpoison(userPointer(block), bytes); }
  void takeBack(uint32_t block) const { poison(userPointer(block), sizeOf(sizeWord(block)) - kHeaderSize); }

  // Returns the size word.
  uint32_t verifyBlock(uint32_t block) const {
    require(block % kAlignment == 0 && block < end());
    const uint32_t word = sizeWord(block);
    const uint32_t size = sizeOf(word);
    require(size % kAlignment == 0 && size >= kMinBlock && size <= end() - block);
    require(load(block + size) == word);
    return word;
  }

  // Returns the size of the block.
  uint32_t verifyNode(uint32_t link) const {
    require(isNode(link));
    const uint32_t word = verifyBlock(link - kHeaderSize);
    require((word & kInUse) == 0);
    const uint32_t after = next(link);
    const uint32_t before = prev(link);
    require((after == kHead || isNode(after)) && (before == kHead || isNode(before)));
    require(prev(after) == link && next(before) == link);
    return word;
  }

  // The block that a user pointer belongs to, verified to be in use.
  uint32_t verifyUser(const void* pointer) const {
    const uint32_t link = linkOf(pointer);
    require(link != kHead);
    const uint32_t block = link - kHeaderSize;
    require((verifyBlock(block) & kInUse) != 0);
    return block;
  }

  uint32_t next(uint32_t link) const { return link == kHead ? linkOf(heap_->freeNext) : load(link); }
  uint32_t prev(uint32_t link) const { return link == kHead ? linkOf(heap_->freePrev) : load(link + 4); }

  void unlink(uint32_t link) {
    const uint32_t after = next(link);
    const uint32_t before = prev(link);
    setNext(before, after);
    setPrev(after, before);
  }
  void pushFront(uint32_t link) {
    const uint32_t after = next(kHead);
    setNext(link, after);
    setPrev(link, kHead);
    setPrev(after, link);
    setNext(kHead, link);
  }

  // Verifies everything there is. Returns whether a block is in use.
  bool walk() const {
    bool anyInUse = false;
    if (heap_->first == nullptr) return anyInUse;
    require(frontWord(0) == kInUse);
    for (uint32_t block = 0; block < end();) {
      const uint32_t word = verifyBlock(block);
      if ((word & kInUse) != 0) {
        anyInUse = true;
      } else {
        requireOnList(block + kHeaderSize);
      }
      block += sizeOf(word);
    }
    require(sizeWord(end()) == kInUse);
    return anyInUse;
  }

  // Empties the record; what stands in the buffer is left alone.
  void clear(void* head) {
    heap_->first = nullptr;
    heap_->last = nullptr;
    heap_->freeNext = head;
    heap_->freePrev = head;
    setUsed(0);
    __atomic_store_n(&heap_->maxUsed, 0u, __ATOMIC_RELAXED);
  }

  // The size readers take no lock, hence the atomic stores.
  void setUsed(uint32_t used) {
    __atomic_store_n(&heap_->used, used, __ATOMIC_RELAXED);
    if (used > heap_->maxUsed) __atomic_store_n(&heap_->maxUsed, used, __ATOMIC_RELAXED);
  }

 private:
  unsigned char* at(uint32_t offset) const { return static_cast<unsigned char*>(heap_->first) + offset; }
  ZVT4_NOT_SANITIZED uint32_t load(uint32_t offset) const {
    uint32_t word;
    std::memcpy(&word, at(offset), sizeof word);
    return word;
  }
  ZVT4_NOT_SANITIZED void store(uint32_t offset, uint32_t word) { std::memcpy(at(offset), &word, sizeof word); }

  bool isNode(uint32_t link) const { return link % kAlignment == kHeaderSize && link - kHeaderSize < end(); }

  uint32_t linkOf(const void* node) const {
    if (node == &heap_->freeNext) return kHead;
    const uintptr_t offset = reinterpret_cast<uintptr_t>(node) - reinterpret_cast<uintptr_t>(heap_->first);
    require(heap_->first != nullptr && offset <= end() && isNode(static_cast<uint32_t>(offset)));
    return static_cast<uint32_t>(offset);
  }
  void* nodeOf(uint32_t link) const { return link == kHead ? static_cast<void*>(&heap_->freeNext) : at(link); }
  void setNext(uint32_t link, uint32_t to) {
    if (link == kHead) {
      heap_->freeNext = nodeOf(to);
    } else {
      store(link, to);
    }
  }
  void setPrev(uint32_t link, uint32_t to) {
    if (link == kHead) {
      heap_->freePrev = nodeOf(to);
    } else {
      store(link + 4, to);
    }
  }

  void requireOnList(uint32_t wanted) const {
    for (uint32_t link = next(kHead); link != wanted; link = next(link)) {
      require(link != kHead);
      verifyNode(link);
    }
    verifyNode(wanted);
  }

  Heap2* heap_;
};

}  // namespace

Status construct_Heap2(Heap2* heap, void* buffer, uint32_t size) {
  Arena arena(heap);
  require(buffer != nullptr || size == 0);
  arena.clear(&heap->freeNext);
  if (buffer == nullptr) return ZELVAN_OK;

  constexpr uintptr_t kMask = ~static_cast<uintptr_t>(kAlignment - 1);
  const uintptr_t start = reinterpret_cast<uintptr_t>(buffer);
  const uintptr_t first = ((start + kHeaderSize + kAlignment - 1) & kMask) - kHeaderSize;
  const uintptr_t last = ((start + size - kHeaderSize) & kMask) - kHeaderSize;
  if (first >= last) return ZELVAN_ERROR_RESOURCE;

  heap->first = static_cast<unsigned char*>(buffer) + (first - start);
  heap->last = static_cast<unsigned char*>(buffer) + (last - start);
  arena.setWhole();
  return ZELVAN_OK;
}

Status destruct_Heap2(Heap2* heap) {
  Arena arena(heap);
  const bool anyInUse = arena.walk();
  if (heap->first != nullptr) unpoison(heap->first, size_t{arena.end()} + kHeaderSize);
  // The marker is neither the head node nor in the arena, so that any later use of the record is fatal.
  arena.clear(nullptr);
  heap->freeNext = zeroSizeMarker();
  return anyInUse ? ZELVAN_ERROR_STATE : ZELVAN_OK;
}

void* Heap2_malloc(Heap2* heap, uint32_t size) {
  if (size == 0) return zeroSizeMarker();
  if (size > UINT32_MAX - (kHeaderSize + kAlignment - 1)) return nullptr;
  const uint32_t need = (size + kHeaderSize + kAlignment - 1) & ~(kAlignment - 1);

  Arena arena(heap);
  for (uint32_t link = arena.next(kHead); link != kHead; link = arena.next(link)) {
    uint32_t taken = arena.verifyNode(link);
    if (taken < need) continue;
    const uint32_t block = link - kHeaderSize;
    arena.unlink(link);
    if (taken - need >= kMinBlock) {
      const uint32_t rest = block + need;
      arena.setSizeWord(rest, taken - need);
      arena.pushFront(rest + kHeaderSize);
      taken = need;
    }
    arena.setSizeWord(block, taken | kInUse);
    arena.setUsed(heap->used + taken);
    arena.lend(block, size);
    return arena.userPointer(block);
  }
  return nullptr;
}

Status Heap2_free(Heap2* heap, void* pointer) {
  if (pointer == nullptr || pointer == zeroSizeMarker()) return ZELVAN_OK;

  Arena arena(heap);
  uint32_t block = arena.verifyUser(pointer);
  uint32_t size = sizeOf(arena.sizeWord(block));
  arena.setUsed(heap->used - size);
  arena.takeBack(block);

  const uint32_t frontSize = arena.frontWord(block);
  if ((frontSize & kInUse) == 0) {
    require(frontSize <= block);
    const uint32_t front = block - frontSize;
    require(arena.verifyNode(front + kHeaderSize) == frontSize);
    arena.unlink(front + kHeaderSize);
    block = front;
    size += frontSize;
  }
  const uint32_t behind = block + size;
  if ((arena.sizeWord(behind) & kInUse) == 0) {
    size += arena.verifyNode(behind + kHeaderSize);
    arena.unlink(behind + kHeaderSize);
  }
  arena.setSizeWord(block, size);
  arena.pushFront(block + kHeaderSize);
  return ZELVAN_OK;
}

uint32_t Heap2_getUsedSize(const Heap2* heap) {
  return __atomic_load_n(&heap->used, __ATOMIC_RELAXED);
}

uint32_t Heap2_getMaxUsedSize(const Heap2* heap) {
  return __atomic_load_n(&heap->maxUsed, __ATOMIC_RELAXED);
}

uint32_t Heap2_getFreeSize(Heap2* heap) {
  Arena arena(heap);
  uint32_t largest = kHeaderSize;
  for (uint32_t link = arena.next(kHead); link != kHead; link = arena.next(link)) {
    const uint32_t size = arena.verifyNode(link);
    if (size > largest) largest = size;
  }
  return largest - kHeaderSize;
}

int32_t Heap2_checks(Heap2* heap) {
  Arena(heap).walk();
  return 1;
}

int32_t Heap2_dump(Heap2* heap) {
  Arena(heap).walk();
  return 0;
}
