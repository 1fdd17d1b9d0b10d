// Memory straight from the system.
#ifndef TESSALINE4_TOOLS_REGION_H_
#define TESSALINE4_TOOLS_REGION_H_

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

namespace tool {

// Nobody fills it: what is never touched costs nothing. It begins at a multiple of 2 MB and is made of pages of that
// size where the system has them, since the faults of small ones take longer than a merge.
class Region {
 public:
  static constexpr size_t kAlignment = size_t{2} << 20;

  Region() = default;
  // Throws std::bad_alloc.
  explicit Region(size_t bytes) : size_(pages(bytes)) {
    const size_t mapped = size_ + kAlignment;
    void* memory = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    auto* begin = static_cast<uint8_t*>(memory);
    const size_t before = (kAlignment - reinterpret_cast<uintptr_t>(begin) % kAlignment) % kAlignment;
    data_ = begin + before;
    if (before != 0) munmap(begin, before);
    munmap(data_ + size_, mapped - before - size_);
    madvise(data_, size_, MADV_HUGEPAGE);  // a wish: not every system has them
  }
  Region(Region&& other) noexcept : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}
  Region& operator=(Region&& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    return *this;
  }
  ~Region() { shrink(0); }

  uint8_t* data() const { return data_; }
  // Gives back what lies behind the first bytes.
  void shrink(size_t bytes) {
    const size_t kept = pages(bytes);
    if (kept < size_) munmap(data_ + kept, size_ - kept);
    if (kept < size_) size_ = kept;
  }

 private:
  static constexpr size_t kPage = 4096;
  static constexpr size_t pages(size_t bytes) { return (bytes + kPage - 1) / kPage * kPage; }

  uint8_t* data_ = nullptr;
  size_t size_ = 0;
};

}  // namespace tool

#endif  // TESSALINE4_TOOLS_REGION_H_
