// Looking out for work a moment before going to sleep. Inside a burst the next job is mostly some microseconds away,
// which is less than what a sleep and a wake-up take.
//
// A pool spins where its workers have a processor each (canSpin, asked once when it starts), and for kSpinNanos at most
// each time that it runs dry: between bursts it sleeps.
#ifndef ZVT4_PARALLEL_SPIN_H_
#define ZVT4_PARALLEL_SPIN_H_

#include <ctime>

#include "parallel/syscall.h"

inline constexpr int64_t kSpinNanos = 40000;

namespace spin_detail {

inline int64_t nanosNow() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

inline void pause() {
#if defined(__x86_64__)
  __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__ARM_ARCH_7A__)
  __asm__ volatile("yield");
#endif
}

}  // namespace spin_detail

// Whether this many threads, the caller among them, can be at work at a time.
inline bool canSpin(int32_t workers) {
  return workers > 1 && workers <= Syscall_countUsableProcessors();
}

// Looks until ready() holds or the time is over. ready reads nothing but atomics.
template <typename Ready>
void spinBriefly(const Ready& ready) {
  constexpr int32_t kLooksPerClock = 16;
  constexpr int32_t kMostTurns = 2000;  // where the clock stands still
  const int64_t end = spin_detail::nanosNow() + kSpinNanos;
  for (int32_t turn = 0; turn < kMostTurns; ++turn) {
    for (int32_t i = 0; i < kLooksPerClock; ++i) {
      if (ready()) return;
      spin_detail::pause();
    }
    if (spin_detail::nanosNow() >= end) return;
  }
}

#endif  // ZVT4_PARALLEL_SPIN_H_
