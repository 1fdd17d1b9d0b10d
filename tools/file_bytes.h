// The bytes of a file in memory that nobody fills beforehand.
#ifndef TESSALINE4_TOOLS_FILE_BYTES_H_
#define TESSALINE4_TOOLS_FILE_BYTES_H_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>

namespace tool {

using ByteView = std::span<const uint8_t>;

class FileBytes {
 public:
  FileBytes() = default;
  // Takes over what malloc gave.
  FileBytes(uint8_t* bytes, size_t size) : bytes_(bytes), size_(size), capacity_(size) {}

  const uint8_t* data() const { return bytes_.get(); }
  size_t size() const { return size_; }
  ByteView view() const { return {bytes_.get(), size_}; }

  // Room for so many bytes behind those that are there; null where there is no memory. What is held may move.
  uint8_t* room(size_t count) {
    if (count > capacity_ - size_) {
      // Doubling keeps growing cheap; the system moves large blocks by their pages.
      const size_t wanted = count > capacity_ ? size_ + count : 2 * capacity_;
      void* grown = std::realloc(bytes_.get(), wanted);
      if (grown == nullptr) return nullptr;
      static_cast<void>(bytes_.release());
      bytes_.reset(static_cast<uint8_t*>(grown));
      capacity_ = wanted;
    }
    return bytes_.get() + size_;
  }
  // So many of the room are filled.
  void add(size_t count) { size_ += count; }

 private:
  struct Free {
    void operator()(uint8_t* bytes) const { std::free(bytes); }
  };
  std::unique_ptr<uint8_t[], Free> bytes_;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

}  // namespace tool

#endif  // TESSALINE4_TOOLS_FILE_BYTES_H_
