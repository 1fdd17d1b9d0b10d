// Per-pixel arithmetic of the denoiser, shared by its tiled and its row forms.
#ifndef ZVT4_FILTERS_DENOISER_KERNELS_H_
#define ZVT4_FILTERS_DENOISER_KERNELS_H_

#include <array>
#include <cstdlib>

#include "base/cpu_level.h"
#include "base/integer.h"
#include "image/image.h"

namespace denoiser {

struct Tap {
  int8_t dx;
  int8_t dy;
  uint8_t weight;
};

// 32768 / n, truncated; 0 for n = 0.
inline constexpr std::array<uint16_t, 512> kReciprocal = [] {
  std::array<uint16_t, 512> table = {};
  for (int32_t n = 1; n < 512; ++n) table[static_cast<size_t>(n)] = static_cast<uint16_t>(32768 / n);
  return table;
}();

inline int32_t byteStrength(double strength) {
  return clampInt(truncToInt32(strength), 0, 255);
}

inline uint8_t meanOf(int32_t sum, int32_t n) {
  const int32_t mean = ((sum + (n >> 1)) * kReciprocal[static_cast<size_t>(n)]) >> 15;
  return static_cast<uint8_t>(mean < 255 ? mean : 255);
}

// One byte plane, read with its coordinates as they are (Clamp false) or clamped to the plane.
template <bool Clamp>
struct Plane {
  const uint8_t* bytes;
  int32_t pitch;
  int32_t width;
  int32_t height;

  explicit Plane(const Image* image)
      : bytes(image->plane0), pitch(image->pitch0), width(image->width), height(image->height) {}

  uint8_t operator()(int32_t x, int32_t y) const {
    if constexpr (Clamp) {
      x = clampInt(x, 0, width - 1);
      y = clampInt(y, 0, height - 1);
    }
    return bytes[static_cast<ptrdiff_t>(y) * pitch + x];
  }
};

// How a kind mixes the smoothed centre into its reference, and which taps it tests.
struct LumaKind {
  int32_t mixOffset;  // the mixing weight is m + mixOffset within 0 to 128
  const Tap* taps;
  int32_t count;
};
const LumaKind& lumaKind(int32_t kind);
inline constexpr int32_t kMaxCentreWeight = 255 - 24;  // with all taps of any kind n stays within a byte

// The thresholded mean of luma at (x, y): taps nearer to the reference than the threshold, and the centre k times.
template <bool Clamp>
inline uint8_t lumaMean(const Plane<Clamp>& luma, int32_t x, int32_t y, int32_t m, int32_t strength,
                        const LumaKind& kind, int32_t k) {
  const int32_t c = luma(x, y);
  const int32_t axis = luma(x, y - 1) + luma(x, y + 1) + luma(x + 1, y) + luma(x - 1, y);
  const int32_t diagonal = luma(x - 1, y - 1) + luma(x + 1, y - 1) + luma(x - 1, y + 1) + luma(x + 1, y + 1);
  const int32_t smooth = (4 * c + 2 * axis + diagonal + 8) >> 4;
  const int32_t a = clampInt(m + kind.mixOffset, 0, 128);
  const int32_t reference = clampInt(((128 - a) * c + a * smooth + 64) >> 7, 0, 255);
  const int32_t threshold = (strength * m) >> 3;
  int32_t sum = k * c;
  int32_t n = k;
  for (int32_t i = 0; i < kind.count; ++i) {
    const Tap& tap = kind.taps[i];
    const int32_t t = luma(x + tap.dx, y + tap.dy);
    if (std::abs(reference - t) < threshold) {
      sum += tap.weight * t;
      n += tap.weight;
    }
  }
  return meanOf(sum, n);
}

// Chroma pairs over a luma grid: the pair of luma position (x, y) is at row y >> 1, byte x & ~1.
template <bool Clamp>
struct PairPlane {
  const uint8_t* bytes;
  int32_t pitch;
  int32_t width;  // of the luma grid
  int32_t height;

  const uint8_t* at(int32_t x, int32_t y) const {
    if constexpr (Clamp) {
      x = clampInt(x, 0, width - 1);
      y = clampInt(y, 0, height - 1);
    }
    return bytes + static_cast<ptrdiff_t>(y >> 1) * pitch + (x & ~1);
  }
};

inline constexpr int32_t kFarTaps = 12;
inline constexpr int32_t kChromaTaps = 4 + kFarTaps;
inline constexpr int32_t kChromaLeftTaps = 2;  // of them straight left of the pair
// The diagonal of the ring, then the far taps of the pass.
const Tap* chromaTaps(int32_t pass);

// The mean of the pair at (x, y) under the guidance of luma; x and y are even. The pair and its four neighbours always
// count; a tap counts where luma and both chroma bytes are near. Writes the two bytes to out.
template <bool Clamp>
inline void chromaMean(uint8_t* out, const PairPlane<Clamp>& chroma, const Plane<Clamp>& luma, int32_t x, int32_t y,
                       int32_t m, int32_t strength0, int32_t strength1, const Tap* taps) {
  const int32_t limit = m + 10;
  const int32_t lumaLimit = limit >> 1;
  const int32_t limit0 = (strength0 * limit + 32) >> 6;
  const int32_t limit1 = (strength1 * limit + 32) >> 6;
  const uint8_t* centre = chroma.at(x, y);
  const int32_t c0 = centre[0];
  const int32_t c1 = centre[1];
  const int32_t y0 = luma(x, y);
  int32_t sum0 = c0;
  int32_t sum1 = c1;
  int32_t n = 5;
  for (const uint8_t* pair : {chroma.at(x - 2, y), chroma.at(x + 2, y), chroma.at(x, y - 2), chroma.at(x, y + 2)}) {
    sum0 += pair[0];
    sum1 += pair[1];
  }
  for (int32_t i = 0; i < kChromaTaps; ++i) {
    const int32_t tx = x + taps[i].dx;
    const int32_t ty = y + taps[i].dy;
    const uint8_t* pair = chroma.at(tx, ty);
    const int32_t near = (std::abs(y0 - luma(tx, ty)) < lumaLimit) & (std::abs(c0 - pair[0]) < limit0) &
                         (std::abs(c1 - pair[1]) < limit1);
    sum0 += pair[0] & -near;
    sum1 += pair[1] & -near;
    n += near;
  }
  out[0] = meanOf(sum0, n);
  out[1] = meanOf(sum1, n);
}

struct ChromaPass {
  const Tap* taps;
  int32_t strength0;  // of the two bytes, 0 to 255
  int32_t strength1;
};

// Filters the pairs at left, left + 2, .. below right of the even rows from top to below bottom in place, row by row
// and from left to right, as chromaMean does. left, top: even.
void chromaTileInplace(Image* image, const Image* map, const ChromaPass& pass, int32_t left, int32_t right, int32_t top,
                       int32_t bottom);

// Least and most of the four pixels at a distance on the axes.
struct Ring {
  int32_t low;
  int32_t high;

  Ring(int32_t a, int32_t b, int32_t c, int32_t d) : low(a), high(a) {
    for (const int32_t v : {b, c, d}) {
      low = v < low ? v : low;
      high = v > high ? v : high;
    }
  }
  template <bool Clamp>
  Ring(const Plane<Clamp>& luma, int32_t x, int32_t y, int32_t d)
      : Ring(luma(x - d, y), luma(x + d, y), luma(x, y - d), luma(x, y + d)) {}
};

// Of the eight adjacent pixels.
template <bool Clamp>
inline int32_t neighbourSum(const Plane<Clamp>& luma, int32_t x, int32_t y) {
  return luma(x - 1, y - 1) + luma(x, y - 1) + luma(x + 1, y - 1) + luma(x - 1, y) + luma(x + 1, y) +
         luma(x - 1, y + 1) + luma(x, y + 1) + luma(x + 1, y + 1);
}

// Pulls c to the mean of its eight neighbours by a weight of 0 to 128.
ALWAYS_INLINE uint8_t pullToMean(int32_t c, int32_t sum, int32_t weight) {
  const int32_t mean = (sum + 4) >> 3;
  return clampByte(c + (((mean - c) * weight + 64) >> 7));
}

constexpr int32_t excess(int32_t v) {
  return v > 0 ? v : 0;
}

// A speck must stand out of both rings by more than the rings' own spread.
ALWAYS_INLINE uint8_t withoutSpike(int32_t c, const Ring& close, const Ring& far, int32_t sum, uint32_t strength,
                                   uint32_t m) {
  const int32_t spread =
      ((far.high < close.high ? far.high : close.high) - (far.low > close.low ? far.low : close.low)) >> 2;
  const int32_t bright2 = excess(c - close.high - spread);
  const int32_t bright3 = excess(c - far.high - spread);
  const int32_t dark2 = excess(close.low - c - spread);
  const int32_t dark3 = excess(far.low - c - spread);
  const int32_t bright = bright2 < bright3 ? bright2 : bright3;
  const int32_t dark = dark2 < dark3 ? dark2 : dark3;
  const uint32_t product = strength * m;
  const int32_t gain = static_cast<int32_t>(product < 255 ? product : 255);
  const int32_t weight = gain * (bright > dark ? bright : dark);
  return pullToMean(c, sum, weight < 128 ? weight : 128);
}

// The one-sided form: only dark specks are lifted.
template <bool Clamp>
inline uint8_t withoutDarkSpike(const Plane<Clamp>& luma, int32_t x, int32_t y, uint32_t first, uint32_t m) {
  const int32_t c = luma(x, y);
  const int32_t dark2 = excess(Ring(luma, x, y, 2).low + 1 - c);
  const int32_t dark3 = excess(Ring(luma, x, y, 3).low + 1 - c);
  const uint32_t product = first * m;
  const int32_t threshold = static_cast<int32_t>((product < 65535 ? product : 65535) >> 3);
  const int32_t weight = (dark2 > dark3 ? dark2 : dark3) * threshold;
  return pullToMean(c, neighbourSum(luma, x, y), weight < 128 ? weight : 128);
}

}  // namespace denoiser

#endif  // ZVT4_FILTERS_DENOISER_KERNELS_H_
