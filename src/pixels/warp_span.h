// Geometry of the engine's warps: a row pair cut into spans, and the source bytes of the pixels of a span.
//
// A projective motion is followed exactly at the ends of spans of at most kWarpSpan pixels; inside a span the source
// position is a straight line with an integer step, so that a pixel costs no division. (Known from perspective-correct
// texture mapping: Heckbert and Moreton, Interpolation for Polygon Texture Mapping and Shading, 1991.) Positions are
// Q15.
//
// Steps are close to one pixel, so that over long runs neighbouring pixels read neighbouring bytes. collectTaps finds
// these runs and lays the four neighbours of each pixel out as four contiguous arrays, in place where a span is one
// run; what follows is then a plain loop over arrays (warp_rows.h) for interior and border alike.
#ifndef ZVT4_PIXELS_WARP_SPAN_H_
#define ZVT4_PIXELS_WARP_SPAN_H_

#include <cstring>

#include "base/integer.h"
#include "image/image.h"
#include "motion/mvec8_real.h"

inline constexpr int32_t kWarpSpan = 256;

// Item k has the source position (x + k dx, y + k dy), in arithmetic that wraps.
struct WarpLine {
  int32_t x;
  int32_t y;
  int32_t dx;
  int32_t dy;
};

struct WarpSpan {
  int32_t begin;  // even
  int32_t count;
  WarpLine rows[2];
  WarpLine chroma;  // count / 2 pairs, shared by both rows
  bool inside;      // this span and the one before have their ends inside the source: no bounds tests for luma
};

// The spans of the row pair y, y + 1, from left to right.
class WarpSpans {
 public:
  WarpSpans(const Mvec8Real* motion, int32_t y, int32_t width, const Image* src)
      : m_(motion->h), width_(width), right_(src->width - 8), bottom_(src->height - 2) {
    x_ = m_[1] * y + m_[2];
    y_ = m_[4] * y + m_[5];
    w_ = m_[7] * y + m_[8];
    convert();
  }

  bool next(WarpSpan* span) {
    const int32_t n = width_ - done_ < kWarpSpan ? width_ - done_ : kWarpSpan;
    if (n <= 0) return false;
    span->begin = done_;
    span->count = n;
    const End from[2] = {ends_[0], ends_[1]};
    x_ += m_[0] * n;
    y_ += m_[3] * n;
    w_ += m_[6] * n;
    convert();
    for (int32_t r = 0; r < 2; ++r) {
      span->rows[r] = {from[r].x, from[r].y, step(from[r].x, ends_[r].x, n), step(from[r].y, ends_[r].y, n)};
    }
    const WarpLine& a = span->rows[0];
    const WarpLine& b = span->rows[1];
    span->chroma = {quarter(a.x, b.x), quarter(a.y, b.y), 2 * quarter(a.dx, b.dx), 2 * quarter(a.dy, b.dy)};
    const bool test = isInside(from[0]) && isInside(from[1]) && isInside(ends_[0]) && isInside(ends_[1]);
    span->inside = test && passed_;
    passed_ = test;
    done_ += n;
    return true;
  }

 private:
  struct End {
    int32_t x;
    int32_t y;
  };

  void convert() {
    const double w = w_ + m_[7];
    ends_[0] = {truncToInt32(x_ * 32768.0 / w_), truncToInt32(y_ * 32768.0 / w_)};
    ends_[1] = {truncToInt32((x_ + m_[1]) * 32768.0 / w), truncToInt32((y_ + m_[4]) * 32768.0 / w)};
  }
  bool isInside(const End& end) const {
    const int32_t x = end.x >> 15;
    const int32_t y = end.y >> 15;
    return x >= 0 && x <= right_ && y >= 0 && y <= bottom_;
  }
  static int32_t step(int32_t from, int32_t to, int32_t n) { return static_cast<int32_t>((int64_t{to} - from) / n); }
  static int32_t quarter(int32_t a, int32_t b) { return static_cast<int32_t>((int64_t{a} + b + 2) >> 2); }

  const double* m_;
  int32_t width_;
  int32_t right_;
  int32_t bottom_;
  int32_t done_ = 0;
  bool passed_ = false;
  double x_;  // numerators and denominator of the upper row at done_
  double y_;
  double w_;
  End ends_[2];
};

// A plane of the source: luma, or chroma as pairs.
struct WarpPlane {
  const uint8_t* data;
  ptrdiff_t pitch;
  int32_t width;
  int32_t height;

  WarpPlane() = default;
  explicit WarpPlane(const Image* image)
      : data(image->plane0), pitch(image->pitch0), width(image->width), height(image->height) {}
  bool contains(int32_t x, int32_t y) const { return x >= 0 && y >= 0 && x < width && y < height; }
  template <int32_t Channels>
  const uint8_t* at(int32_t x, int32_t y) const {
    return data + y * pitch + static_cast<ptrdiff_t>(x) * Channels;
  }
};

// The neighbours of the items of a span: upper left, upper right, lower left, lower right.
struct WarpTaps {
  const uint8_t* corner[4];
};

inline constexpr int32_t kWarpChunk = 16;  // bytes that are copied at once

struct WarpTapBuffer {
  uint8_t corner[4][kWarpSpan + kWarpChunk];
};

// How many items from this one on, itself included, have the same offset between item and source byte.
inline int32_t runLength(int32_t px, int32_t py, const WarpLine& line) {
  constexpr int32_t kLimit = 0x8000 / 8;  // with more drift runs are too short to be worth their search
  const auto inCell = [](int32_t position, int32_t drift) {
    const int32_t fraction = position & 0x7fff;
    if (drift == 0) return kWarpSpan;
    return drift > 0 ? (0x7fff - fraction) / drift + 1 : fraction / -drift + 1;
  };
  const int64_t drift = int64_t{line.dx} - 0x8000;
  if (drift < -kLimit || drift > kLimit || line.dy < -kLimit || line.dy > kLimit) return 1;
  const int32_t across = inCell(px, static_cast<int32_t>(drift));
  const int32_t down = inCell(py, line.dy);
  return across < down ? across : down;
}

// Copies the neighbours of a run of bytes that begins at upper and lower. With room for them, up to kWarpChunk - 1 more
// bytes than asked for are copied: whatever stands behind the run in the buffer is written later.
template <int32_t Channels>
inline void copyRun(WarpTapBuffer* buffer, int32_t at, const uint8_t* upper, const uint8_t* lower, int32_t bytes,
                    bool room) {
  const uint8_t* const from[4] = {upper, upper + Channels, lower, lower + Channels};
  if (bytes == Channels) {
    for (int32_t i = 0; i < 4; ++i) std::memcpy(buffer->corner[i] + at, from[i], Channels);
  } else if (room) {
    for (int32_t j = 0; j < bytes; j += kWarpChunk) {
      for (int32_t i = 0; i < 4; ++i) std::memcpy(buffer->corner[i] + at + j, from[i] + j, kWarpChunk);
    }
  } else {
    for (int32_t i = 0; i < 4; ++i) std::memcpy(buffer->corner[i] + at, from[i], static_cast<size_t>(bytes));
  }
}

// count items of Channels bytes each, at most kWarpSpan bytes. Items without four neighbours inside the plane are left
// to edge(k, ix, iy, corners), where corners are the four places for the bytes of the item.
template <int32_t Channels, typename Edge>
inline WarpTaps collectTaps(WarpTapBuffer* buffer, const WarpPlane& plane, const WarpLine& line, int32_t count,
                            const Edge& edge) {
  constexpr int32_t kRowsOfPair = Channels == 1 ? 2 : 1;  // luma, chroma
  constexpr int32_t kCacheLine = 64;
  for (int32_t k = 0; k < count;) {
    const int32_t px = wrapAdd(line.x, wrapMul(k, line.dx));
    const int32_t py = wrapAdd(line.y, wrapMul(k, line.dy));
    const int32_t ix = px >> 15;
    const int32_t iy = py >> 15;
    const int32_t at = k * Channels;
    if (ix < 0 || iy < 0 || ix > plane.width - 2 || iy > plane.height - 2) {
      uint8_t* const corners[4] = {buffer->corner[0] + at, buffer->corner[1] + at, buffer->corner[2] + at,
                                   buffer->corner[3] + at};
      edge(k, ix, iy, corners);
      ++k;
      continue;
    }
    int32_t run = runLength(px, py, line);
    if (run > plane.width - 1 - ix) run = plane.width - 1 - ix;
    if (run > count - k) run = count - k;
    const uint8_t* upper = plane.at<Channels>(ix, iy);
    const uint8_t* lower = upper + plane.pitch;
    if (run == count) return {{upper, upper + Channels, lower, lower + Channels}};
    const int32_t bytes = run * Channels;
    copyRun<Channels>(buffer, at, upper, lower, bytes,
                      (ix + 1) * Channels + bytes + kWarpChunk <= plane.width * Channels);
    // What the next row pair reads here. Each source row of a sloping line is read a short piece at a time, too short
    // for the processor to see a stream.
    if (run > 1 && iy + 1 + kRowsOfPair < plane.height) {
      const uint8_t* next = lower + kRowsOfPair * plane.pitch;
      for (int32_t j = 0; j < bytes + kCacheLine; j += kCacheLine) __builtin_prefetch(next + j);
    }
    k += run;
  }
  return {{buffer->corner[0], buffer->corner[1], buffer->corner[2], buffer->corner[3]}};
}

// Makes all four neighbours the same, which every interpolation then returns.
template <int32_t Channels>
inline void setCorners(uint8_t* const* corners, const uint8_t* bytes) {
  for (int32_t i = 0; i < 4; ++i) {
    for (int32_t c = 0; c < Channels; ++c) corners[i][c] = bytes[c];
  }
}

#endif  // ZVT4_PIXELS_WARP_SPAN_H_
