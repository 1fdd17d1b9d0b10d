// Row functions of the merge (fine/fusion.h). Samples are 64 (s - 128) in 16 bits while frames are summed, 8 (s - 128)
// in the transform; shares are Q15. half: what is added before a shift by three.
#ifndef ZVT4_FINE_FUSION_ROWS_H_
#define ZVT4_FINE_FUSION_ROWS_H_

#include "base/integer.h"
#include "fine/fusion.h"
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

// A row of the maps of all frames but the base.
struct ShareRows {
  const uint8_t* weights[kMostFrames];
  uint16_t* shares[kMostFrames];
  uint8_t* left;
  const int32_t* strengths;
  int32_t count;
};

// share = (32768 w + sum / 2) / sum, the base's weight being 255 x 256, and what the shares leave of a variance.
ALWAYS_INLINE void normalise(const ShareRows& rows, int32_t width) {
  constexpr uint64_t kKept = 191;  // what the taps of the warp leave of the variance of a frame, 1/256
  constexpr int32_t kPiece = 64;
  for (int32_t begin = 0; begin < width; begin += kPiece) {
    const int32_t count = width - begin < kPiece ? width - begin : kPiece;
    alignas(64) int32_t sum[kPiece], rest[kPiece];
    alignas(64) double inverse[kPiece];
    alignas(64) uint64_t squares[kPiece];
    for (int32_t x = 0; x < kPiece; ++x) {
      sum[x] = 255 * 256;
      rest[x] = 32768;
      squares[x] = 0;
    }
    for (int32_t i = 0; i < rows.count; ++i) {
      const uint8_t* __restrict w = rows.weights[i] + begin;
      for (int32_t x = 0; x < count; ++x) sum[x] += w[x] * rows.strengths[i];
    }
    for (int32_t x = 0; x < kPiece; ++x) inverse[x] = 1.0 / sum[x];
    for (int32_t i = 0; i < rows.count; ++i) {
      const uint8_t* __restrict w = rows.weights[i] + begin;
      uint16_t* __restrict out = rows.shares[i] + begin;
      const int32_t strength = rows.strengths[i];
      for (int32_t x = 0; x < count; ++x) {
        // Quotients are 1 / sum apart, above 2^-20: a whole one must not fall short, nor another be lifted.
        const double dividend = 32768.0 * (w[x] * strength) + (sum[x] >> 1);
        const auto share = static_cast<int32_t>(dividend * inverse[x] + 0x1p-24);
        out[x] = static_cast<uint16_t>(share);
        rest[x] -= share;
        squares[x] += static_cast<uint32_t>(share * share);
      }
    }
    for (int32_t x = 0; x < count; ++x) {
      const uint64_t own = static_cast<uint32_t>(rest[x] * rest[x]);
      const uint64_t part = (((own + ((squares[x] * kKept) >> 8)) * 255 + (1 << 29)) >> 30);
      rows.left[begin + x] = static_cast<uint8_t>(part < 255 ? part : 255);
    }
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

using fusion_rows::ShareRows;

inline constexpr CpuRow<fusion_rows::between> kBetween;
inline constexpr CpuRow<fusion_rows::stretchBy4> kStretchBy4;
inline constexpr CpuRow<fusion_rows::stretchBy2> kStretchBy2;
inline constexpr CpuRow<fusion_rows::addFrame> kAddFrame;
inline constexpr CpuRow<fusion_rows::undrift> kUndrift;
inline constexpr CpuRow<fusion_rows::normalise> kNormalise;
inline constexpr CpuRow<fusion_rows::centre> kCentre;
inline constexpr CpuRow<fusion_rows::narrow> kNarrow;
inline constexpr CpuRow<fusion_rows::narrowPairs> kNarrowPairs;
inline constexpr CpuRow<fusion_rows::storeFrom64> kStoreFrom64;
inline constexpr CpuRow<fusion_rows::storeFrom8> kStoreFrom8;
inline constexpr CpuRow<fusion_rows::storePairsFrom8> kStorePairsFrom8;

}  // namespace fine

#endif  // ZVT4_FINE_FUSION_ROWS_H_
