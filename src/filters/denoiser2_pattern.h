// Sample offsets of a denoiser pass, spread evenly in angle, position and direction.
//
// Sample k of count on a ring of radius R aims at angle
//   ((count (k & 3) x 0.25 + (k >> 2)) / count + pass x 0.125 / passes) x 2 pi,
// four quadrants in turn, turned a little from pass to pass. Of the offsets within |dx| + |dy| <= 4 of the aim the one
// of least cost is taken, the first in row order: cost is what the scoreboard holds near it plus 0.001 times the
// distance. The scoreboard counts the samples chosen so far, by position, row, column and direction. The pixel itself
// and its four neighbours, which a pass counts anyway, are not chosen.
#ifndef ZVT4_FILTERS_DENOISER2_PATTERN_H_
#define ZVT4_FILTERS_DENOISER2_PATTERN_H_

#include <cstdint>

namespace denoiser2 {

inline constexpr int32_t kReach = 50;  // offsets are -50 to 50

struct Offset {
  int8_t dx;
  int8_t dy;
};

// The samples of one plane's passes.
class Scoreboard {
 public:
  void clear();
  // count offsets of a ring; passes is at least 1, radius at most kReach.
  void choose(Offset* out, int32_t count, double radius, int32_t pass, int32_t passes);
  // Which of eight directions, 22.5 degrees apart, the line through the pixel and its sample has: 0 along a row. A line
  // has no sign.
  static int32_t directionOf(int32_t dx, int32_t dy);

 private:
  static constexpr int32_t kSide = 2 * kReach + 1;
  int32_t costOf(int32_t dx, int32_t dy) const;
  void add(Offset offset);

  int32_t cells_[kSide][kSide];
  int32_t rows_[kSide];
  int32_t columns_[kSide];
  int32_t directions_[8];
};

}  // namespace denoiser2

#endif  // ZVT4_FILTERS_DENOISER2_PATTERN_H_
