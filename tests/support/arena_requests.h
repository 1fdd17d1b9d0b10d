// The library's requests to its arenas, listed and refused at will.
//
// For programs linked with -Wl,--wrap=zvt4_Heap2_malloc, which sends the library's requests here. One file of the
// program includes this. Requests come from any thread.
#ifndef ZVT4_TESTS_SUPPORT_ARENA_REQUESTS_H_
#define ZVT4_TESTS_SUPPORT_ARENA_REQUESTS_H_

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <vector>

#include "base/heap2.h"

namespace test {

struct ArenaRequest {
  const void* place;  // of the call
  uint32_t size;
  auto operator<=>(const ArenaRequest&) const = default;
};

class ArenaRequests {
 public:
  enum Refusal { kNone, kOnce, kForEver };

  // Starts to count at 0; request n is refused, or n and all that follow.
  static void watch(Refusal refusal = kNone, int64_t n = 0) {
    list_.resize(1 << 16);
    first_ = refusal == kNone ? INT64_MAX : n;
    last_ = refusal == kOnce ? n : INT64_MAX;
    count_ = 0;
  }
  // Serves everything again. The requests since watch, in order.
  static std::vector<ArenaRequest> stop() {
    first_ = INT64_MAX;
    return {list_.begin(), list_.begin() + static_cast<ptrdiff_t>(std::min(count(), int64_t{1} << 16))};
  }
  static int64_t count() { return count_; }
  static bool refuses(const ArenaRequest& request) {
    const int64_t n = count_++;
    if (n < static_cast<int64_t>(list_.size())) list_[static_cast<size_t>(n)] = request;
    return n >= first_ && n <= last_;
  }

 private:
  inline static std::vector<ArenaRequest> list_;
  inline static std::atomic<int64_t> count_, first_ = INT64_MAX, last_;
};

}  // namespace test

extern "C" void* __real_zvt4_Heap2_malloc(Heap2* heap, uint32_t size);
extern "C" void* __wrap_zvt4_Heap2_malloc(Heap2* heap, uint32_t size) {
  if (test::ArenaRequests::refuses({__builtin_return_address(0), size})) return nullptr;
  return __real_zvt4_Heap2_malloc(heap, size);
}

#endif  // ZVT4_TESTS_SUPPORT_ARENA_REQUESTS_H_
