#include "pixels/warp_rows.h"

namespace {

// Halves of a product, which vector units have for 16-bit lanes.
ALWAYS_INLINE uint16_t mulLow(uint16_t a, uint16_t b) {
  return static_cast<uint16_t>(uint32_t{a} * b);
}
ALWAYS_INLINE uint16_t mulHigh(uint16_t a, uint16_t b) {
  return static_cast<uint16_t>((uint32_t{a} * b) >> 16);
}

// A signed difference goes through an unsigned product moved up by 0x8000; what this adds to the upper half is a whole
// number, b / 2, and is taken off again: (difference x b) >> 16 for an even b.
ALWAYS_INLINE uint16_t mulHighDifference(int32_t difference, uint16_t b) {
  return static_cast<uint16_t>(mulHigh(static_cast<uint16_t>(difference + 0x8000), b) - (b >> 1));
}

struct Coarse {
  // Bits 8 to 14 of a position, so that 16 bits of it are enough.
  ALWAYS_INLINE static uint16_t fraction(uint16_t position) { return (position >> 8) & 127; }

  // With top and bottom at most 128 x 255 and p = (bottom - top) fy, the result is (128 top + p + 8192) >> 14, that is
  // (top + (p >> 7) + 64) >> 7.
  ALWAYS_INLINE static uint8_t mix(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint16_t fx, uint16_t fy) {
    const auto top = static_cast<uint16_t>(128 * a + mulLow(static_cast<uint16_t>(b - a), fx));
    const auto bottom = static_cast<uint16_t>(128 * c + mulLow(static_cast<uint16_t>(d - c), fx));
    const uint16_t down = mulHighDifference(bottom - top, static_cast<uint16_t>(fy << 9));
    return static_cast<uint8_t>(static_cast<uint16_t>(top + down + 64) >> 7);
  }
};

struct Fine {
  ALWAYS_INLINE static uint16_t fraction(uint16_t position) { return position & 0x7fff; }

  // top = 32 a + ((b - a) fx >> 10), at most 8160; the result is (top + ((bottom - top) fy >> 15)) >> 5.
  ALWAYS_INLINE static uint8_t mix(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint16_t fx, uint16_t fy) {
    const auto fx2 = static_cast<uint16_t>(fx << 1);
    const auto top = static_cast<uint16_t>(32 * a + mulHighDifference(32 * (b - a), fx2));
    const auto bottom = static_cast<uint16_t>(32 * c + mulHighDifference(32 * (d - c), fx2));
    const uint16_t down = mulHighDifference(bottom - top, static_cast<uint16_t>(fy << 1));
    return static_cast<uint8_t>(static_cast<uint16_t>(top + down) >> 5);
  }
};

struct Store {
  ALWAYS_INLINE static uint8_t put(uint8_t, uint8_t sample, const uint8_t*, int32_t) { return sample; }
};

struct Blend {
  // Bits 7 to 14 of the sum are the result.
  ALWAYS_INLINE static uint8_t put(uint8_t acc, uint8_t sample, const uint8_t* weights, int32_t j) {
    return static_cast<uint8_t>(
        static_cast<uint16_t>(128 * sample + mulLow(static_cast<uint16_t>(acc - sample), weights[j]) + 64) >> 7);
  }
};

template <typename Weights, int32_t Channels, typename Put>
ALWAYS_INLINE void warpRow(uint8_t* __restrict dst, const WarpTaps& taps, const WarpLine& line,
                           const uint8_t* __restrict weights, int32_t count) {
  const uint8_t* __restrict a = taps.corner[0];
  const uint8_t* __restrict b = taps.corner[1];
  const uint8_t* __restrict c = taps.corner[2];
  const uint8_t* __restrict d = taps.corner[3];
  const auto x = static_cast<uint16_t>(line.x);
  const auto y = static_cast<uint16_t>(line.y);
  const auto dx = static_cast<uint16_t>(line.dx);
  const auto dy = static_cast<uint16_t>(line.dy);
  for (int32_t j = 0; j < count; ++j) {
    const auto k = static_cast<uint16_t>(j / Channels);
    const uint16_t fx = Weights::fraction(static_cast<uint16_t>(x + mulLow(k, dx)));
    const uint16_t fy = Weights::fraction(static_cast<uint16_t>(y + mulLow(k, dy)));
    dst[j] = Put::put(dst[j], Weights::mix(a[j], b[j], c[j], d[j], fx, fy), weights, j);
  }
}

#define WARP_VARIANT(suffix, target)                                                                                 \
  target void coarseLuma_##suffix(uint8_t* dst, const WarpTaps& taps, const WarpLine& line, int32_t count) {         \
    warpRow<Coarse, 1, Store>(dst, taps, line, nullptr, count);                                                      \
  }                                                                                                                  \
  target void coarseChroma_##suffix(uint8_t* dst, const WarpTaps& taps, const WarpLine& line, int32_t count) {       \
    warpRow<Coarse, 2, Store>(dst, taps, line, nullptr, count);                                                      \
  }                                                                                                                  \
  target void fineLuma_##suffix(uint8_t* dst, const WarpTaps& taps, const WarpLine& line, int32_t count) {           \
    warpRow<Fine, 1, Store>(dst, taps, line, nullptr, count);                                                        \
  }                                                                                                                  \
  target void fineChroma_##suffix(uint8_t* dst, const WarpTaps& taps, const WarpLine& line, int32_t count) {         \
    warpRow<Fine, 2, Store>(dst, taps, line, nullptr, count);                                                        \
  }                                                                                                                  \
  target void blendLuma_##suffix(uint8_t* acc, const WarpTaps& taps, const WarpLine& line, const uint8_t* weights,   \
                                 int32_t count) {                                                                    \
    warpRow<Coarse, 1, Blend>(acc, taps, line, weights, count);                                                      \
  }                                                                                                                  \
  target void blendChroma_##suffix(uint8_t* acc, const WarpTaps& taps, const WarpLine& line, const uint8_t* weights, \
                                   int32_t count) {                                                                  \
    warpRow<Fine, 2, Blend>(acc, taps, line, weights, count);                                                        \
  }                                                                                                                  \
  constexpr WarpRows kWarpRows_##suffix = {#suffix,                                                                  \
                                           coarseLuma_##suffix,                                                      \
                                           coarseChroma_##suffix,                                                    \
                                           fineLuma_##suffix,                                                        \
                                           fineChroma_##suffix,                                                      \
                                           blendLuma_##suffix,                                                       \
                                           blendChroma_##suffix};

WARP_VARIANT(plain, )
#if defined(__x86_64__)
WARP_VARIANT(avx2, [[gnu::target("avx2")]])
WARP_VARIANT(avx512, [[gnu::target("avx512f,avx512bw,avx512dq,avx512vl")]])
#endif

}  // namespace

const WarpRows* warpRowsOf(CpuLevel level) {
#if defined(__x86_64__)
  constexpr const WarpRows* kTables[CPU_LEVELS] = {&kWarpRows_plain, &kWarpRows_avx2, &kWarpRows_avx512};
#else
  constexpr const WarpRows* kTables[CPU_LEVELS] = {&kWarpRows_plain, &kWarpRows_plain, &kWarpRows_plain};
#endif
  return kTables[level];
}
