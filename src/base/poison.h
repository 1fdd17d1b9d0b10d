// What of an arena may be touched, told to the address sanitizer. In other builds nothing of this is compiled.
//
// A region is poisoned exactly if it ends on a multiple of 8, as headers and blocks do; its start may be anywhere.
// Functions that touch the arena's own words say ZVT4_NOT_SANITIZED.
#ifndef ZVT4_BASE_POISON_H_
#define ZVT4_BASE_POISON_H_

#include <cstddef>

#if defined(__has_feature)
#define ZVT4_HAS_FEATURE(feature) __has_feature(feature)
#else
#define ZVT4_HAS_FEATURE(feature) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || ZVT4_HAS_FEATURE(address_sanitizer)
#include <sanitizer/asan_interface.h>
#define ZVT4_NOT_SANITIZED __attribute__((no_sanitize("address")))
#define ZVT4_POISONS 1
inline void poison(const void* start, size_t bytes) {
  __asan_poison_memory_region(start, bytes);
}
inline void unpoison(const void* start, size_t bytes) {
  __asan_unpoison_memory_region(start, bytes);
}
#else
#define ZVT4_NOT_SANITIZED
#define ZVT4_POISONS 0
inline void poison(const void*, size_t) {}
inline void unpoison(const void*, size_t) {}
#endif

#endif  // ZVT4_BASE_POISON_H_
