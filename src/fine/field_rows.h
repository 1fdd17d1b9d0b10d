// Rows of the solver of local motion: a field's edges, and vectors of it. In doubles; sums go by groups of kSumGroup,
// so that their order is the same for every level of the processor.
#ifndef ZVT4_FINE_FIELD_ROWS_H_
#define ZVT4_FINE_FIELD_ROWS_H_

#include "base/cpu_level.h"

namespace fine {

inline constexpr int32_t kSumGroup = 16;

// A row of nodes: values v of it and of the rows above and below, and weights of its edges: to the right, and from the
// row above and to the row below. Without a row above or below: any values with weights of 0.
struct PullRow {
  const double* v;
  const double* above;
  const double* below;
  const double* right;
  const double* fromAbove;
  const double* toBelow;
  double tether;
  int32_t across;
};

namespace field_rows {

// out = tether v + what the edges pull at each node.
ALWAYS_INLINE void pull(double* __restrict out, const PullRow& row) {
  const double* __restrict v = row.v;
  const double* __restrict above = row.above;
  const double* __restrict below = row.below;
  const double* __restrict right = row.right;
  const double* __restrict fromAbove = row.fromAbove;
  const double* __restrict toBelow = row.toBelow;
  const double tether = row.tether;
  const int32_t last = row.across - 1;
  out[0] = tether * v[0] - fromAbove[0] * (above[0] - v[0]) + right[0] * (v[0] - v[1]) + toBelow[0] * (v[0] - below[0]);
  for (int32_t i = 1; i < last; ++i) {
    out[i] = tether * v[i] - fromAbove[i] * (above[i] - v[i]) - right[i - 1] * (v[i - 1] - v[i]) +
             right[i] * (v[i] - v[i + 1]) + toBelow[i] * (v[i] - below[i]);
  }
  out[last] = tether * v[last] - fromAbove[last] * (above[last] - v[last]) - right[last - 1] * (v[last - 1] - v[last]) +
              toBelow[last] * (v[last] - below[last]);
}

ALWAYS_INLINE double sumOfGroup(const double* v) {
  double total = 0.0;
  for (int32_t k = 0; k < kSumGroup; ++k) total += v[k];
  return total;
}

ALWAYS_INLINE double dot(const double* __restrict a, const double* __restrict b, int32_t n) {
  double sums[kSumGroup] = {};
  int32_t i = 0;
  for (; i + kSumGroup <= n; i += kSumGroup) {
    for (int32_t k = 0; k < kSumGroup; ++k) sums[k] += a[i + k] * b[i + k];
  }
  for (int32_t k = 0; i + k < n; ++k) sums[k] += a[i + k] * b[i + k];
  return sumOfGroup(sums);
}

// r -= alpha ap. Returns the sum of r^2 inverse.
ALWAYS_INLINE double descend(double* __restrict r, const double* __restrict ap, const double* __restrict inverse,
                             double alpha, int32_t n) {
  double sums[kSumGroup] = {};
  int32_t i = 0;
  for (; i + kSumGroup <= n; i += kSumGroup) {
    for (int32_t k = 0; k < kSumGroup; ++k) {
      const double left = r[i + k] - alpha * ap[i + k];
      r[i + k] = left;
      sums[k] += left * left * inverse[i + k];
    }
  }
  for (int32_t k = 0; i + k < n; ++k) {
    r[i + k] -= alpha * ap[i + k];
    sums[k] += r[i + k] * r[i + k] * inverse[i + k];
  }
  return sumOfGroup(sums);
}

// p = inverse r + beta p.
ALWAYS_INLINE void turn(double* __restrict p, const double* __restrict r, const double* __restrict inverse, double beta,
                        int32_t n) {
  for (int32_t i = 0; i < n; ++i) p[i] = inverse[i] * r[i] + beta * p[i];
}

// x += alpha p.
ALWAYS_INLINE void step(double* __restrict x, const double* __restrict p, double alpha, int32_t n) {
  for (int32_t i = 0; i < n; ++i) x[i] += alpha * p[i];
}

}  // namespace field_rows

inline constexpr CpuRow<field_rows::pull> kPull;
inline constexpr CpuRow<field_rows::dot> kDot;
inline constexpr CpuRow<field_rows::descend> kDescend;
inline constexpr CpuRow<field_rows::turn> kTurn;
inline constexpr CpuRow<field_rows::step> kStep;

}  // namespace fine

#endif  // ZVT4_FINE_FIELD_ROWS_H_
