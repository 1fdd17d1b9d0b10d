// Row functions of the merge (fine/fusion.h). Samples are 64 (s - 128) in 16 bits while frames are summed, 8 (s - 128)
// in the transform; shares are Q15. half: what is added before a shift by three.
#ifndef ZVT4_FINE_FUSION_ROWS_H_
#define ZVT4_FINE_FUSION_ROWS_H_

#include "base/integer.h"
#include "fine/lanes.h"

namespace fine {

namespace fusion_rows {

// Between rows a and b of a map, in eighths; the bits of all results together.
ALWAYS_INLINE uint32_t between(uint16_t* __restrict line, const uint16_t* __restrict a, const uint16_t* __restrict b,
                               int32_t eighths, int32_t count) {
  uint16_t any = 0;
  for (int32_t x = 0; x < count; ++x) {
    line[x] = static_cast<uint16_t>((a[x] * (8 - eighths) + b[x] * eighths) >> 3);
    any |= line[x];
  }
  return any;
}

// Four samples for each of a line; line[-1] and line[count] are read.
ALWAYS_INLINE void stretchBy4(int16_t* __restrict out, const uint16_t* __restrict line, int32_t count) {
  for (int32_t x = 0; x < count; ++x) {
    out[4 * x] = static_cast<int16_t>((3 * line[x - 1] + 5 * line[x]) >> 3);
    out[4 * x + 1] = static_cast<int16_t>((line[x - 1] + 7 * line[x]) >> 3);
    out[4 * x + 2] = static_cast<int16_t>((7 * line[x] + line[x + 1]) >> 3);
    out[4 * x + 3] = static_cast<int16_t>((5 * line[x] + 3 * line[x + 1]) >> 3);
  }
}

// Two pairs of equal samples for each.
ALWAYS_INLINE void stretchBy2(int16_t* __restrict out, const uint16_t* __restrict line, int32_t count) {
  for (int32_t x = 0; x < count; ++x) {
    const auto left = static_cast<int16_t>((line[x - 1] + 3 * line[x]) >> 2);
    const auto right = static_cast<int16_t>((3 * line[x] + line[x + 1]) >> 2);
    out[4 * x] = left;
    out[4 * x + 1] = left;
    out[4 * x + 2] = right;
    out[4 * x + 3] = right;
  }
}

ALWAYS_INLINE void addFrame(int16_t* __restrict sum, const int16_t* __restrict base, const int16_t* __restrict sample,
                            const int16_t* __restrict shares, int32_t count) {
  for (int32_t x = 0; x < count; ++x) {
    sum[x] = static_cast<int16_t>(sum[x] + mulRound(static_cast<int16_t>(sample[x] - base[x]), shares[x]));
  }
}

// s += gain s + offset, by the parity of the column.
ALWAYS_INLINE void undrift(int16_t* __restrict s, const int16_t* gain, const int16_t* offset, int32_t count) {
  const int16_t g0 = gain[0], g1 = gain[1], o0 = offset[0], o1 = offset[1];
  for (int32_t x = 0; x < count; x += 2) {
    s[x] = static_cast<int16_t>(s[x] + mulRound(s[x], g0) + o0);
    s[x + 1] = static_cast<int16_t>(s[x + 1] + mulRound(s[x + 1], g1) + o1);
  }
}

ALWAYS_INLINE void centre(int16_t* __restrict out, const uint8_t* __restrict row, int32_t count) {
  for (int32_t x = 0; x < count; ++x) out[x] = static_cast<int16_t>((row[x] - 128) * 64);
}

ALWAYS_INLINE void narrow(int16_t* __restrict to, const int16_t* __restrict from, int32_t count, int32_t half) {
  for (int32_t x = 0; x < count; ++x) to[x] = static_cast<int16_t>((from[x] + half) >> 3);
}
ALWAYS_INLINE void narrowPairs(int16_t* __restrict a, int16_t* __restrict b, const int16_t* __restrict from,
                               int32_t count, int32_t half) {
  for (int32_t x = 0; x < count; ++x) {
    a[x] = static_cast<int16_t>((from[2 * x] + half) >> 3);
    b[x] = static_cast<int16_t>((from[2 * x + 1] + half) >> 3);
  }
}

ALWAYS_INLINE void storeFrom64(uint8_t* __restrict to, const int16_t* __restrict from, int32_t count) {
  for (int32_t x = 0; x < count; ++x) to[x] = clampByte((from[x] + 8192 + 32) >> 6);
}
ALWAYS_INLINE void storeFrom8(uint8_t* __restrict to, const int16_t* __restrict from, int32_t count, int32_t half) {
  for (int32_t x = 0; x < count; ++x) to[x] = clampByte((from[x] + 1024 + half) >> 3);
}
ALWAYS_INLINE void storePairsFrom8(uint8_t* __restrict to, const int16_t* __restrict a, const int16_t* __restrict b,
                                   int32_t count, int32_t half) {
  for (int32_t x = 0; x < count; ++x) {
    to[2 * x] = clampByte((a[x] + 1024 + half) >> 3);
    to[2 * x + 1] = clampByte((b[x] + 1024 + half) >> 3);
  }
}

}  // namespace fusion_rows

inline constexpr CpuRow<fusion_rows::between> kBetween;
inline constexpr CpuRow<fusion_rows::stretchBy4> kStretchBy4;
inline constexpr CpuRow<fusion_rows::stretchBy2> kStretchBy2;
inline constexpr CpuRow<fusion_rows::addFrame> kAddFrame;
inline constexpr CpuRow<fusion_rows::undrift> kUndrift;
inline constexpr CpuRow<fusion_rows::centre> kCentre;
inline constexpr CpuRow<fusion_rows::narrow> kNarrow;
inline constexpr CpuRow<fusion_rows::narrowPairs> kNarrowPairs;
inline constexpr CpuRow<fusion_rows::storeFrom64> kStoreFrom64;
inline constexpr CpuRow<fusion_rows::storeFrom8> kStoreFrom8;
inline constexpr CpuRow<fusion_rows::storePairsFrom8> kStorePairsFrom8;

}  // namespace fine

#endif  // ZVT4_FINE_FUSION_ROWS_H_
