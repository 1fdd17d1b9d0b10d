#include "fine/drift.h"

#include <algorithm>

#include "base/cpu_level.h"
#include "base/raw_double.h"

namespace fine {
namespace {

constexpr int32_t kSide = 4;  // of a square, pixels of the map
constexpr int32_t kMostSquares = 6000;
constexpr double kLeastSquares = 12;

// What base and frame show in squares of kSide pixels of the map, in levels about 128: per channel the frame's
// mean and what the base's is more, both exact. Filled up to whole groups by squares that lie far off every line.
struct DriftSquares {
  int32_t count;
  float* x[3];
  float* change[3];
};
constexpr int32_t kGroup = 32;
constexpr float kFarOff = 1e9f;

constexpr int32_t wholeGroups(int32_t count) {
  return (count + kGroup - 1) / kGroup * kGroup;
}

// Squares that lie within the frame, on a grid of at most kMostSquares.
void collectSquares(DriftSquares* squares, const LaidFrame& laid) {
  constexpr float kUnit = 1.0f / (64 * kSide * kSide);
  const int32_t width = laid.baseLuma->width;
  const int32_t height = laid.baseLuma->height;
  int32_t step = kSide;
  while ((width / step) * (height / step) > kMostSquares) ++step;
  int32_t count = 0;
  for (int32_t y = 0; y + kSide <= height; y += step) {
    for (int32_t x = 0; x + kSide <= width && count < kMostSquares; x += step) {
      const int32_t first = y * width + x;
      const int32_t last = first + (kSide - 1) * width;
      if ((laid.covered[first] & laid.covered[first + kSide - 1] & laid.covered[last] &
           laid.covered[last + kSide - 1]) == 0) {
        continue;
      }
      int32_t base[3] = {}, frame[3] = {};
      for (int32_t j = 0; j < kSide; ++j) {
        const uint8_t* luma = imageRow(laid.baseLuma, y + j) + x;
        const uint8_t* colour = imageRow(laid.baseColour, y + j) + 2 * x;
        const int16_t* s = laid.luma + first + j * width;
        const int16_t* pairs = laid.pairs + 2 * (first + j * width);
        for (int32_t i = 0; i < kSide; ++i) {
          base[0] += (luma[i] - 128) * 64;
          base[1] += (colour[2 * i] - 128) * 64;
          base[2] += (colour[2 * i + 1] - 128) * 64;
          frame[0] += s[i];
          frame[1] += pairs[2 * i];
          frame[2] += pairs[2 * i + 1];
        }
      }
      for (int32_t channel = 0; channel < 3; ++channel) {
        squares->x[channel][count] = static_cast<float>(frame[channel]) * kUnit;
        squares->change[channel][count] = static_cast<float>(base[channel] - frame[channel]) * kUnit;
      }
      ++count;
    }
  }
  squares->count = count;
  for (int32_t channel = 0; channel < 3; ++channel) {
    std::fill(squares->x[channel] + count, squares->x[channel] + wholeGroups(count), 0.0f);
    std::fill(squares->change[channel] + count, squares->change[channel] + wholeGroups(count), kFarOff);
  }
}

// A line change = gain x + offset of a channel, in levels.
struct DriftLine {
  double gain;
  double offset;
  bool known;
};

struct LineStep {
  double limit;  // squares count fully up to this error, and not beyond three of it
  bool bends;    // false: the gain stays
};

// Moments under the weights of a line's errors, and squares within `near` of it.
struct LineSums {
  double n, x, y, xx, xy;
  double agreeing;
};

// Groups of kGroup sums each, so that the order of the sums is the same for every width of the vectors; in stages,
// since vectors are made of simple loops, and of no branches.
ALWAYS_INLINE void lineBody(LineSums* out, const float* __restrict xs, const float* __restrict changes, int32_t count,
                            const DriftLine& line, double limit, double near) {
  const double gain = line.gain;
  const double offset = line.offset;
  double n[kGroup] = {}, sx[kGroup] = {}, sy[kGroup] = {}, sxx[kGroup] = {}, sxy[kGroup] = {}, agreeing[kGroup] = {};
  for (int32_t begin = 0; begin < count; begin += kGroup) {
    double x[kGroup], change[kGroup], size[kGroup], w[kGroup];
    for (int32_t k = 0; k < kGroup; ++k) x[k] = static_cast<double>(xs[begin + k]);
    for (int32_t k = 0; k < kGroup; ++k) change[k] = static_cast<double>(changes[begin + k]);
    for (int32_t k = 0; k < kGroup; ++k) {
      const double e = change[k] - gain * x[k] - offset;
      size[k] = e < 0 ? -e : e;
    }
    for (int32_t k = 0; k < kGroup; ++k) {
      const double fading = limit / size[k];
      w[k] = fading < 1.0 ? fading : 1.0;
    }
    for (int32_t k = 0; k < kGroup; ++k) w[k] = size[k] > 3 * limit ? 0.0 : w[k];
    for (int32_t k = 0; k < kGroup; ++k) agreeing[k] += size[k] < near ? 1.0 : 0.0;
    for (int32_t k = 0; k < kGroup; ++k) {
      n[k] += w[k];
      sx[k] += w[k] * x[k];
      sy[k] += w[k] * change[k];
      sxx[k] += w[k] * x[k] * x[k];
      sxy[k] += w[k] * x[k] * change[k];
    }
  }
  const auto sum = [](const double* v) {
    double total = 0.0;
    for (int32_t k = 0; k < kGroup; ++k) total += v[k];
    return total;
  };
  *out = {sum(n), sum(sx), sum(sy), sum(sxx), sum(sxy), sum(agreeing)};
}
constexpr CpuRow<lineBody> kLineSums;

// Fits anew by weights of the errors so far. Noise of x, which would flatten the line, is taken out of the moments.
// usual: the gain where the squares have no range.
void refit(DriftLine* line, const DriftSquares& squares, int32_t channel, double usual, double variance,
           const LineStep& step) {
  // In squared levels; where colours spread no further than their noise, that tells no gain.
  const double prior = 4.0 + 2.0 * variance;
  // Cutting into the noise would bend its moments.
  const double limit = std::max(step.limit, 2.5 * (variance > 0.0 ? RawDouble_sqrt(2.0 * variance) : 0.0));
  LineSums s;
  kLineSums(&s, squares.x[channel], squares.change[channel], squares.count, *line, limit, 0.0);
  line->known = line->known && s.n >= kLeastSquares;
  if (!line->known) return;
  if (step.bends) {
    const double spread = s.xx - s.x * s.x / s.n - s.n * variance;
    const double common = s.xy - s.x * s.y / s.n + s.n * variance;
    line->gain = (common + s.n * prior * usual) / ((spread > 0.0 ? spread : 0.0) + s.n * prior);
  }
  line->offset = (s.y - line->gain * s.x) / s.n;
}

// The line that most squares agree to. What moved may be far from the rest in brightness or colour and bend a fit that
// begins with wide limits; a fit that keeps the usual gain until the limits are narrow leaves it out, but does not find
// a strong drift: so both are made, and the second has to be clearly better.
DriftLine fitLine(const DriftSquares& squares, int32_t channel, double usual, double variance) {
  constexpr int32_t kSteps = 5;
  constexpr LineStep kFits[2][kSteps] = {{{40.0, false}, {8.0, false}, {2.0, false}, {2.0, true}, {1.5, true}},
                                         {{40.0, true}, {12.0, true}, {5.0, true}, {3.0, true}, {3.0, true}}};
  const double near = 0.3 + 3.0 * (variance > 0.0 ? RawDouble_sqrt(variance) : 0.0);
  DriftLine best = {usual, 0.0, false};
  double most = -1.0;
  for (const auto& fit : kFits) {
    DriftLine line = {usual, 0.0, true};
    for (const LineStep& step : fit) refit(&line, squares, channel, usual, variance, step);
    if (!line.known) continue;
    LineSums s;
    kLineSums(&s, squares.x[channel], squares.change[channel], squares.count, line, 1.0, near);
    if (s.agreeing > most + (most >= 0.0 ? squares.count / 20 : 0)) {
      most = s.agreeing;
      best = line;
    }
  }
  return best;
}

}  // namespace

void fitDrift(Drift* drift, const LaidFrame& laid, const float* noise, float* scratch) {
  constexpr int32_t kRoom = wholeGroups(kMostSquares);
  static_assert(6 * kRoom == kDriftScratch);
  DriftSquares squares = {0,
                          {scratch, scratch + kRoom, scratch + 2 * kRoom},
                          {scratch + 3 * kRoom, scratch + 4 * kRoom, scratch + 5 * kRoom}};
  collectSquares(&squares, laid);
  double usual = 0.0;
  for (int32_t channel = 0; channel < 3; ++channel) {
    const DriftLine line = fitLine(squares, channel, usual, noise[channel] * kFrameKept / (kSide * kSide));
    const double gain = std::clamp(line.gain, -0.3, 0.3);
    const double offset = std::clamp(line.offset, -40.0, 40.0);
    drift->gain[channel] = static_cast<int16_t>(RawDouble_floor(gain * 32768.0 + 0.5));
    drift->offset[channel] = static_cast<int16_t>(RawDouble_floor(offset * 64.0 + 0.5));
    if (channel == 0) usual = gain;
  }
}

}  // namespace fine
