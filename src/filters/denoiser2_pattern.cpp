#include "filters/denoiser2_pattern.h"

#include <cstdlib>
#include <cstring>

#include "base/integer.h"
#include "base/raw_double.h"

namespace denoiser2 {

namespace {

constexpr double kTwoPi = 6.283185307179586;
constexpr int32_t kSearch = 4;
constexpr int32_t kDirectionWeight = 4;  // aims of a turned pass fall between two directions

}  // namespace

void Scoreboard::clear() {
  std::memset(cells_, 0, sizeof(cells_));
  std::memset(rows_, 0, sizeof(rows_));
  std::memset(columns_, 0, sizeof(columns_));
  std::memset(directions_, 0, sizeof(directions_));
}

int32_t Scoreboard::directionOf(int32_t dx, int32_t dy) {
  if (dy < 0) {
    dx = -dx;
    dy = -dy;
  }
  const double q = dx < 0 ? 1.5707964 : 0.0;
  const double t = std::abs(dx < 0 ? dx : dy) / (std::abs(dx) + std::abs(dy) + 1e-9);
  const double angle = q + 0.8197536 * t + 2.2531283 * t * t - 1.5020854 * t * t * t;
  return truncToInt32(angle * 8 * 0.31830987 + 8.5) % 8;
}

// A sample at the same place weighs most; one in the same row or column takes the place of a new one in that respect.
int32_t Scoreboard::costOf(int32_t dx, int32_t dy) const {
  const int32_t x = kReach + dx;
  const int32_t y = kReach + dy;
  int32_t near = 4 * cells_[y][x];
  for (int32_t v = y > 0 ? y - 1 : y; v <= y + 1 && v < kSide; ++v) {
    for (int32_t u = x > 0 ? x - 1 : x; u <= x + 1 && u < kSide; ++u) near += cells_[v][u];
  }
  return near + rows_[y] + columns_[x] + kDirectionWeight * directions_[directionOf(dx, dy)];
}

void Scoreboard::add(Offset offset) {
  ++cells_[kReach + offset.dy][kReach + offset.dx];
  ++rows_[kReach + offset.dy];
  ++columns_[kReach + offset.dx];
  ++directions_[directionOf(offset.dx, offset.dy)];
}

void Scoreboard::choose(Offset* out, int32_t count, double radius, int32_t pass, int32_t passes) {
  for (int32_t k = 0; k < count; ++k) {
    const double turn = (count * (k & 3) * 0.25 + (k >> 2)) / count + pass * 0.125 / passes;
    const int32_t aimX = truncToInt32(RawDouble_floor(radius * RawDouble_cos(turn * kTwoPi) + 0.5));
    const int32_t aimY = truncToInt32(RawDouble_floor(radius * RawDouble_sin(turn * kTwoPi) + 0.5));
    double least = 1e30;
    Offset best = {0, 0};
    for (int32_t v = -kSearch; v <= kSearch; ++v) {
      const int32_t side = kSearch - std::abs(v);
      for (int32_t u = -side; u <= side; ++u) {
        const int32_t dx = aimX + u;
        const int32_t dy = aimY + v;
        if (std::abs(dx) > kReach || std::abs(dy) > kReach) continue;
        if (std::abs(dx) + std::abs(dy) < 2) continue;  // the pixel and its cross count anyway
        const double cost = costOf(dx, dy) + 0.001 * (std::abs(u) + std::abs(v));
        if (cost < least) {
          least = cost;
          best = {static_cast<int8_t>(dx), static_cast<int8_t>(dy)};
        }
      }
    }
    add(best);
    out[k] = best;
  }
}

}  // namespace denoiser2
