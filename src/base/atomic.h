// Atomic access to plain 32-bit and pointer fields of records whose layout is fixed. All operations are sequentially
// consistent unless their name says otherwise.
#ifndef ZVT4_BASE_ATOMIC_H_
#define ZVT4_BASE_ATOMIC_H_

template <typename T>
inline T atomicLoad(const T* at) {
  return __atomic_load_n(at, __ATOMIC_SEQ_CST);
}
template <typename T>
inline void atomicStore(T* at, T value) {
  __atomic_store_n(at, value, __ATOMIC_SEQ_CST);
}
// Returns the value before the addition.
template <typename T>
inline T atomicFetchAdd(T* at, T value) {
  return __atomic_fetch_add(at, value, __ATOMIC_SEQ_CST);
}
template <typename T>
inline T atomicFetchOr(T* at, T value) {
  return __atomic_fetch_or(at, value, __ATOMIC_SEQ_CST);
}
// On failure *expected receives the value found.
template <typename T>
inline bool atomicCompareExchange(T* at, T* expected, T desired) {
  return __atomic_compare_exchange_n(at, expected, desired, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
}

#endif  // ZVT4_BASE_ATOMIC_H_
