// The square spiral in which block matching and the coarse search visit their candidates. The order is part of the
// result, since a tie keeps the candidate seen first.
#ifndef ZVT4_TRACKER_SQUARE_SPIRAL_H_
#define ZVT4_TRACKER_SQUARE_SPIRAL_H_

#include <cstdint>

// Calls visit(x, y) for all of the square of the given radius round (x, y), from the centre outward.
template <typename Visit>
inline void squareSpiral(int32_t x, int32_t y, int32_t radius, const Visit& visit) {
  for (int32_t step = 1, ring = 0;; step += 2) {
    visit(x, y);
    for (int32_t i = 1; i <= ring; ++i) visit(x + i, y);
    x += ring;
    if ((ring >> 1) >= radius) return;
    x += 1;
    for (int32_t i = 0; i < step; ++i) visit(x, y + i);
    y += step;
    ring = step + 1;
    for (int32_t i = 0; i < ring; ++i) visit(x--, y);
    for (int32_t i = 0; i < ring; ++i) visit(x, y--);
  }
}

#endif  // ZVT4_TRACKER_SQUARE_SPIRAL_H_
