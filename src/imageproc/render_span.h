// A row of a warp: samples of a plane along a straight line, and the corners that such lines hang between. The rules
// stand in render.h.
#ifndef ZVT4_IMAGEPROC_RENDER_SPAN_H_
#define ZVT4_IMAGEPROC_RENDER_SPAN_H_

#include <algorithm>
#include <type_traits>

#include "base/integer.h"
#include "imageproc/render.h"

inline constexpr int32_t kRenderOne = 0x8000;  // a pixel in Q15

struct RenderPoint {
  int32_t x;
  int32_t y;
};

// Where the motion takes a destination pixel, in Q15. False when that is behind the plane or too far off.
inline bool renderMap(const Mvec8Real* motion, int32_t x, int32_t y, RenderPoint* point) {
  const double* m = motion->h;
  const double w = m[6] * x + m[7] * y + m[8];
  if (!(w > 1e-16)) return false;
  const double px = (m[0] * x + m[1] * y + m[2]) * 32768.0 / w;
  const double py = (m[3] * x + m[4] * y + m[5]) * 32768.0 / w;
  constexpr double kFar = 1073741824.0;
  if (!(px >= -kFar && px <= kFar && py >= -kFar && py <= kFar)) return false;  // NaN too
  *point = {truncToInt32(px + 0.5), truncToInt32(py + 0.5)};
  return true;
}

// Whether lines between points that are all of this kind need no tests: they stay in the hull of their ends, since
// steps are cut toward zero.
inline bool isWellInside(const RenderPoint& point, const Image* src) {
  const auto within = [](int32_t p, int32_t size) { return p >= kRenderOne && p <= (int64_t{size} - 3) * kRenderOne; };
  return within(point.x, src->width) && within(point.y, src->height);
}

// A kind of pixel: samples of one type, interleaved channels, and what stands for black.
template <typename T, int32_t Channels, T Black>
struct RenderPixel {
  using Sample = T;
  using Sum = std::conditional_t<sizeof(T) == 4, int64_t, int32_t>;
  static constexpr int32_t kChannels = Channels;
  static constexpr T kBlack = Black;
};
using RenderY8 = RenderPixel<uint8_t, 1, 0>;
using RenderPair8 = RenderPixel<uint8_t, 2, 128>;
using RenderRgba8 = RenderPixel<uint8_t, 4, 0>;
using RenderU16 = RenderPixel<uint16_t, 1, 0>;
using RenderI32 = RenderPixel<int32_t, 1, 0>;

struct RenderOneRounding {
  static int32_t fraction(int32_t p) { return (p >> 8) & 127; }
  template <typename Sum>  // at most 65535 x 2^14 + 8192 for 16-bit samples, below 2^31
  static Sum mix(Sum a, Sum b, Sum c, Sum d, Sum fx, Sum fy) {
    return (((128 - fx) * a + fx * b) * (128 - fy) + ((128 - fx) * c + fx * d) * fy + 8192) >> 14;
  }
};
struct RenderTwoRoundings {
  static int32_t fraction(int32_t p) { return ((p & 0x7fff) + 128) >> 8; }
  template <typename Sum>
  static Sum mix(Sum a, Sum b, Sum c, Sum d, Sum fx, Sum fy) {
    const Sum top = ((128 - fx) * a + fx * b + 64) >> 7;
    const Sum bottom = ((128 - fx) * c + fx * d + 64) >> 7;
    return (fy * bottom + (128 - fy) * top + 64) >> 7;
  }
};

// Item k has the source position (x + k dx, y + k dy) in Q15.
struct RenderLine {
  int32_t x;
  int32_t y;
  int32_t dx;
  int32_t dy;
};

struct RenderRun {
  int32_t begin;
  int32_t end;
};

// The items k of a row with low <= p + k step < high.
inline RenderRun renderRunWithin(int64_t p, int64_t step, int64_t low, int64_t high, int32_t count) {
  const auto itemsBelow = [count](int64_t n, int64_t size) {  // k >= 0 with k size < n
    return static_cast<int32_t>(n <= 0 ? 0 : std::min<int64_t>((n - 1) / size + 1, count));
  };
  if (low >= high) return {0, 0};
  if (step > 0) return {itemsBelow(low - p, step), itemsBelow(high - p, step)};
  if (step < 0) return {itemsBelow(p - high + 1, -step), itemsBelow(p - low + 1, -step)};
  return {0, p >= low && p < high ? count : 0};
}

// The items that stand this far, in Q15, from all sides of the source.
inline RenderRun renderRunInside(const Image* src, const RenderLine& line, int32_t count, int32_t marginX,
                                 int32_t marginY) {
  const RenderRun x = renderRunWithin(line.x, line.dx, marginX, int64_t{src->width} * kRenderOne - marginX, count);
  const RenderRun y = renderRunWithin(line.y, line.dy, marginY, int64_t{src->height} * kRenderOne - marginY, count);
  const int32_t begin = std::max(x.begin, y.begin);
  return {begin, std::max(begin, std::min(x.end, y.end))};
}

// count items to dst. wellInside: see isWellInside.
template <typename Pixel, typename Rounding>
void renderRow(typename Pixel::Sample* __restrict dst, const Image* src, const RenderLine& line, int32_t count,
               bool wellInside, const ImageProcRenderParam& param) {
  using Sample = typename Pixel::Sample;
  using Sum = typename Pixel::Sum;
  constexpr int32_t kChannels = Pixel::kChannels;
  RenderRun touched = {0, count};
  RenderRun smooth = touched;
  if (!wellInside) {
    touched = renderRunInside(src, line, count, param.clipColumns != 0 ? kRenderOne : 0,
                              param.clipRows != 0 ? kRenderOne : 0);
    smooth = renderRunInside(src, line, count, kRenderOne, kRenderOne);
    if (smooth.begin == smooth.end) smooth = {touched.begin, touched.begin};
  }
  const auto fill = [&](int32_t begin, int32_t end) {
    if (param.fillOutside != 0) std::fill(dst + begin * kChannels, dst + end * kChannels, Pixel::kBlack);
  };
  const auto sourceAt = [&](int32_t px, int32_t py) {
    return imageRow<const Sample>(src, py >> 15) + ptrdiff_t{px >> 15} * kChannels;
  };
  const auto outermost = [&](int32_t begin, int32_t end) {
    for (int32_t k = begin; k < end; ++k) {
      std::copy_n(sourceAt(wrapAdd(line.x, wrapMul(k, line.dx)), wrapAdd(line.y, wrapMul(k, line.dy))), kChannels,
                  dst + k * kChannels);
    }
  };
  fill(0, touched.begin);
  outermost(touched.begin, smooth.begin);
  for (int32_t k = smooth.begin; k < smooth.end; ++k) {
    const int32_t px = wrapAdd(line.x, wrapMul(k, line.dx));
    const int32_t py = wrapAdd(line.y, wrapMul(k, line.dy));
    const Sample* upper = sourceAt(px, py);
    const Sample* lower = sourceAt(px, wrapAdd(py, kRenderOne));
    const int32_t fx = Rounding::fraction(px);
    const int32_t fy = Rounding::fraction(py);
    for (int32_t c = 0; c < kChannels; ++c) {
      dst[k * kChannels + c] = static_cast<Sample>(
          Rounding::template mix<Sum>(upper[c], upper[c + kChannels], lower[c], lower[c + kChannels], fx, fy));
    }
  }
  outermost(smooth.end, touched.end);
  fill(touched.end, count);
}

#endif  // ZVT4_IMAGEPROC_RENDER_SPAN_H_
