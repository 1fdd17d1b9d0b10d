// What the fuzz targets share: reading decisions out of an input, checks, memory with guards.
#ifndef TESSALINE4_FUZZ_SUPPORT_H_
#define TESSALINE4_FUZZ_SUPPORT_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define TESSALINE4_FUZZ_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TESSALINE4_FUZZ_ASAN 1
#endif
#endif
#ifdef TESSALINE4_FUZZ_ASAN
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#endif

// Ends the process as a finding when the condition does not hold.
#define REQUIRE(condition) ((condition) ? (void)0 : fuzz::broken(__FILE__, __LINE__, #condition))

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

[[noreturn]] inline void broken(const char* file, int line, const char* condition) {
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
  std::abort();
}

// The bytes of an input, taken from the front; zeros behind the end.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : at_(data), left_(size) {}

  bool empty() const { return left_ == 0; }
  uint8_t byte() {
    if (left_ == 0) return 0;
    --left_;
    return *at_++;
  }
  uint32_t word() {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8 | byte();
    return value;
  }
  // least to most, both included.
  int32_t between(int32_t least, int32_t most) {
    const uint32_t span = static_cast<uint32_t>(most - least) + 1;
    const uint32_t value = span <= 256 ? byte() : static_cast<uint32_t>(byte()) << 8 | byte();
    return least + static_cast<int32_t>(value % span);
  }
  bool oneIn(int32_t n) { return between(0, n - 1) == n - 1; }
  template <typename T, size_t N>
  T pick(const T (&items)[N]) {
    return items[byte() % N];
  }
  std::vector<uint8_t> take(size_t count) {
    count = std::min(count, left_);
    std::vector<uint8_t> bytes(at_, at_ + count);
    at_ += count;
    left_ -= count;
    return bytes;
  }
  std::vector<uint8_t> rest() { return take(left_); }

 private:
  const uint8_t* at_;
  size_t left_;
};

// Reproducible noise for pixels.
class Noise {
 public:
  explicit Noise(uint32_t seed) : state_(seed * 2654435761u + 1u) {}
  uint8_t operator()() {
    state_ = state_ * 1664525u + 1013904223u;
    return static_cast<uint8_t>(state_ >> 24);
  }

 private:
  uint32_t state_;
};

// A block with guard bytes on both sides, which the address sanitizer watches and check() compares.
class Guarded {
 public:
  explicit Guarded(size_t most) : memory_(most + 2 * kGuard), size_(most) { arm(most); }
  ~Guarded() { disarm(); }
  Guarded(const Guarded&) = delete;
  Guarded& operator=(const Guarded&) = delete;

  // The same block cut to size bytes, at most those it was made with.
  uint8_t* arm(size_t size) {
    disarm();
    size_ = size;
    for (uint8_t* guard : {memory_.data(), end()}) {
      std::memset(guard, kFill, kGuard);
      ASAN_POISON_MEMORY_REGION(guard, kGuard);
    }
    return data();
  }
  void check() {
    disarm();
    for (const uint8_t* guard : {static_cast<const uint8_t*>(memory_.data()), static_cast<const uint8_t*>(end())}) {
      REQUIRE(std::all_of(guard, guard + kGuard, [](uint8_t b) { return b == kFill; }));
    }
    arm(size_);
  }
  uint8_t* data() { return memory_.data() + kGuard; }
  size_t size() const { return size_; }

 private:
  static constexpr size_t kGuard = 64;
  static constexpr uint8_t kFill = 0xC7;

  uint8_t* end() { return data() + size_; }
  void disarm() { ASAN_UNPOISON_MEMORY_REGION(memory_.data(), memory_.size()); }

  std::vector<uint8_t> memory_;
  size_t size_;
};

}  // namespace fuzz

#endif  // TESSALINE4_FUZZ_SUPPORT_H_
