// std::bit_cast, which not every C++20 library has: a value of another type with the same bits.
#ifndef ZVT4_BASE_BIT_CAST_H_
#define ZVT4_BASE_BIT_CAST_H_

template <typename To, typename From>
constexpr To bitCast(const From& value) {
  static_assert(sizeof(To) == sizeof(From));
  return __builtin_bit_cast(To, value);
}

#endif  // ZVT4_BASE_BIT_CAST_H_
