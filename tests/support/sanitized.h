// Whether a sanitizer runs along: tests that would take too long under it do less.
#ifndef ZVT4_TESTS_SUPPORT_SANITIZED_H_
#define ZVT4_TESTS_SUPPORT_SANITIZED_H_

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

#endif  // ZVT4_TESTS_SUPPORT_SANITIZED_H_
