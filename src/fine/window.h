// What a window of the base leaves of a frame that is laid over it: the sums that alignment takes its steps by.
//
// A window is a square of 16, 24 or 32 pixels, its surrounding pixel inside the picture; its template and gradients are
// kept as flat arrays of 16-bit values, filled once for all rounds. Samples of the frame stand on a lattice, position
// (x0 + i step[0] + j step[1], y0 + i step[2] + j step[3]) in 16.16 pixels, and are bilinear with eight bits of
// fraction, in 1/16 levels, rounded down: the mean of the window does not count.
#ifndef ZVT4_FINE_WINDOW_H_
#define ZVT4_FINE_WINDOW_H_

#include "image/image.h"

namespace fine {

inline constexpr int32_t kMostWindow = 32;

struct Window {
  int32_t size;
  alignas(64) int16_t value[kMostWindow * kMostWindow];  // of the base, in 1/16 levels
  alignas(64) int16_t gx[kMostWindow * kMostWindow];     // twice the gradient
  alignas(64) int16_t gy[kMostWindow * kMostWindow];
};

void fillWindow(Window* window, const Image& base, int32_t left, int32_t top, int32_t size);

// r = frame - base in 1/16 levels; gradients doubled.
struct WindowSums {
  int64_t r, rx, ry, rr;
};

// Every sample and its right and lower neighbour must lie inside the frame, step[0] in 0.5 to 1.5 pixels.
WindowSums residualSums(const Window& window, const Image& frame, int32_t x0, int32_t y0, const int32_t* step);

}  // namespace fine

#endif  // ZVT4_FINE_WINDOW_H_
