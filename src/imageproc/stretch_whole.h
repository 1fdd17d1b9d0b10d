// Stretching a row of bytes by 2, 4 or 8 with centres aligned, where every output column has one of a few fixed
// weights:
//
//   out[F i + F / 2 + k] = ((2 F - w) src[i] + w src[i + 1] + F) / 2 F,  w = 2 k + 1,  k < F;
//   the F / 2 columns at either end repeat the first and the last sample.
//
// The same bits as interpolation with a 15-bit or a 7-bit fraction, whose weights are multiples of these.
#ifndef ZVT4_IMAGEPROC_STRETCH_WHOLE_H_
#define ZVT4_IMAGEPROC_STRETCH_WHOLE_H_

#include "base/cpu_level.h"

template <int32_t Factor>
ALWAYS_INLINE void stretchWholeBody(uint8_t* __restrict out, const uint8_t* __restrict src, int32_t count) {
  constexpr int32_t kHalf = Factor / 2;
  for (int32_t k = 0; k < kHalf; ++k) {
    out[k] = src[0];
    out[Factor * count - 1 - k] = src[count - 1];
  }
  uint8_t* __restrict inner = out + kHalf;
  for (int32_t i = 0; i < count - 1; ++i) {
    for (int32_t k = 0; k < Factor; ++k) {
      const auto w = static_cast<uint16_t>(2 * k + 1);
      const auto sum = static_cast<uint16_t>((2 * Factor - w) * src[i] + w * src[i + 1] + Factor);
      inner[Factor * i + k] = static_cast<uint8_t>(sum / (2 * Factor));
    }
  }
}
template <int32_t Factor>
inline constexpr CpuRow<stretchWholeBody<Factor>> kStretchWhole;

// False, with nothing written, where width is not 2, 4 or 8 times srcWidth.
inline bool stretchWhole(uint8_t* out, const uint8_t* src, int32_t srcWidth, int32_t width) {
  if (srcWidth < 1 || width % srcWidth != 0) return false;
  switch (width / srcWidth) {
    case 2:
      kStretchWhole<2>(out, src, srcWidth);
      return true;
    case 4:
      kStretchWhole<4>(out, src, srcWidth);
      return true;
    case 8:
      kStretchWhole<8>(out, src, srcWidth);
      return true;
    default:
      return false;
  }
}

#endif  // ZVT4_IMAGEPROC_STRETCH_WHOLE_H_
