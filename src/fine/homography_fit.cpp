#include "fine/homography_fit.h"

#include <algorithm>

#include "base/cpu_level.h"
#include "base/raw_double.h"

namespace fine {
namespace {

constexpr int32_t kUnknowns = 8;
constexpr int32_t kRounds = 10;
constexpr double kStill = 1e-6;  // a correction of less ends the rounds
// Standard deviations of shears and perspective without data, in the unit of the fit, and of perspective by shift.
constexpr double kShear = 0.0005;
constexpr double kPerspective = 0.0005;
constexpr double kPan = 0.02;

struct Normal {
  double a[kUnknowns][kUnknowns];
  double b[kUnknowns];
};

// Cholesky's decomposition, in place of the lower triangle. False when not positive definite.
bool decompose(double a[kUnknowns][kUnknowns]) {
  for (int32_t j = 0; j < kUnknowns; ++j) {
    double d = a[j][j];
    for (int32_t k = 0; k < j; ++k) d -= a[j][k] * a[j][k];
    if (!(d > 1e-12)) return false;
    const double root = RawDouble_sqrt(d);
    a[j][j] = root;
    for (int32_t i = j + 1; i < kUnknowns; ++i) {
      double s = a[i][j];
      for (int32_t k = 0; k < j; ++k) s -= a[i][k] * a[j][k];
      a[i][j] = s / root;
    }
  }
  return true;
}

void solveLower(const double l[kUnknowns][kUnknowns], double* x) {
  for (int32_t i = 0; i < kUnknowns; ++i) {
    for (int32_t k = 0; k < i; ++k) x[i] -= l[i][k] * x[k];
    x[i] /= l[i][i];
  }
}

void solveUpper(const double l[kUnknowns][kUnknowns], double* x) {
  for (int32_t i = kUnknowns - 1; i >= 0; --i) {
    for (int32_t k = i + 1; k < kUnknowns; ++k) x[i] -= l[k][i] * x[k];
    x[i] /= l[i][i];
  }
}

// What a match adds: its derivatives b, and p, which are weighed and in pixels. Both triangles of the sums are made,
// since whole rows become vectors; the lower ones count.
struct Addend {
  alignas(64) double bx[kUnknowns], by[kUnknowns];
  alignas(64) double px[kUnknowns], py[kUnknowns];
  alignas(64) double gradient[kUnknowns];
};

ALWAYS_INLINE void addBody(Normal* __restrict normal, const Addend& m, double unit) {
  for (int32_t j = 0; j < kUnknowns; ++j) normal->b[j] += m.gradient[j];
  for (int32_t i = 0; i < kUnknowns; ++i) {
    for (int32_t j = 0; j < kUnknowns; ++j) normal->a[i][j] += unit * (m.px[i] * m.bx[j] + m.py[i] * m.by[j]);
  }
}
ALWAYS_INLINE void scatterBody(Normal* __restrict scatter, const Addend& m) {
  for (int32_t i = 0; i < kUnknowns; ++i) {
    for (int32_t j = 0; j < kUnknowns; ++j) scatter->a[i][j] += m.gradient[i] * m.gradient[j];
  }
}
constexpr CpuRow<addBody> kAdd;
constexpr CpuRow<scatterBody> kScatter;

// Derivatives of the displacement at (x, y), in units of the half diagonal, by the eight parameters.
void basisAt(double x, double y, double* bx, double* by) {
  const double ax[kUnknowns] = {1, 0, x, -y, x, y, x * x, x * y};
  const double ay[kUnknowns] = {0, 1, y, x, -y, x, x * y, y * y};
  std::copy(ax, ax + kUnknowns, bx);
  std::copy(ay, ay + kUnknowns, by);
}

// What shears and perspective are without data. Shift, turn and zoom are free.
void addPrior(Normal* normal, const Mvec8Real& motion, double mx, double my, double unit) {
  const Mvec8Real up = {{unit, 0, mx, 0, unit, my, 0, 0, 1}, {}};
  const Mvec8Real down = {{1 / unit, 0, -mx / unit, 0, 1 / unit, -my / unit, 0, 0, 1}, {}};
  Mvec8Real m;
  Mvec8Real_mult(&m, &motion, &up);
  Mvec8Real_mult(&m, &down, &m);
  const double* h = m.h;
  const double scale = 1.0 / h[8];
  const double values[4] = {0.5 * (h[0] - h[4]) * scale, 0.5 * (h[1] + h[3]) * scale, -h[6] * scale, -h[7] * scale};
  const double pan = (h[2] * h[2] + h[5] * h[5]) * scale * scale;
  const double variances[4] = {kShear * kShear, kShear * kShear, kPerspective * kPerspective + kPan * kPan * pan,
                               kPerspective * kPerspective + kPan * kPan * pan};
  for (int32_t i = 0; i < 4; ++i) {
    normal->a[i][i] = 1e-6;
    const double precision = 1.0 / (variances[i] + values[i] * values[i]);
    normal->a[i + 4][i + 4] = precision;
    normal->b[i + 4] = -precision * values[i];
  }
}

}  // namespace

void setInformation(Match* match, double cosine, double sine, double along, double across) {
  const double w1 = along > 0.0 ? 1.0 / along : 0.0;
  const double w2 = across > 0.0 ? 1.0 / across : 0.0;
  match->wxx = w1 * cosine * cosine + w2 * sine * sine;
  match->wxy = (w1 - w2) * cosine * sine;
  match->wyy = w1 * sine * sine + w2 * cosine * cosine;
}

bool fitHomography(Mvec8Real* motion, Match* matches, int32_t count, int32_t width, int32_t height, double scale,
                   double anneal, FitQuality* quality) {
  *quality = {0.0, 1e9, 1e9};
  const double mx = 0.5 * (width - 1);
  const double my = 0.5 * (height - 1);
  const double unit = RawDouble_sqrt(mx * mx + my * my);
  Mvec8Real h = *motion;
  Normal normal, scatter;
  Addend addend;
  double k = scale * anneal;
  double weights = 0.0, squares = 0.0, errors = 0.0;
  for (int32_t round = 0; round < kRounds; ++round) {
    normal = {};
    scatter = {};
    addPrior(&normal, h, mx, my, unit);
    weights = squares = errors = 0.0;
    const bool last = k <= scale || round + 1 == kRounds;  // or may be: the scatter of that round counts
    for (int32_t m = 0; m < count; ++m) {
      Match& match = matches[m];
      double u, v;
      Mvec8Real_trans2DReal(&h, &u, &v, match.x, match.y);
      const double ex = match.u - u;
      const double ey = match.v - v;
      const double wex = match.wxx * ex + match.wxy * ey;
      const double wey = match.wxy * ex + match.wyy * ey;
      const double square = ex * wex + ey * wey;
      const double t = 1.0 / (1.0 + square / (k * k));
      match.weight = t * t;
      weights += match.weight;
      squares += match.weight * square;
      errors += match.weight * (ex * ex + ey * ey);
      basisAt((u - mx) / unit, (v - my) / unit, addend.bx, addend.by);
      for (int32_t i = 0; i < kUnknowns; ++i) {
        addend.px[i] = match.weight * unit * (addend.bx[i] * match.wxx + addend.by[i] * match.wxy);
        addend.py[i] = match.weight * unit * (addend.bx[i] * match.wxy + addend.by[i] * match.wyy);
        addend.gradient[i] = addend.px[i] * ex + addend.py[i] * ey;
      }
      kAdd(&normal, addend, unit);
      if (last) kScatter(&scatter, addend);
    }
    if (!decompose(normal.a)) return false;
    double p[kUnknowns];
    std::copy(normal.b, normal.b + kUnknowns, p);
    solveLower(normal.a, p);
    solveUpper(normal.a, p);
    // The correction as a map of normalised coordinates, behind the motion.
    const Mvec8Real correction = {
        {1 + p[2] + p[4], -p[3] + p[5], p[0], p[3] + p[5], 1 + p[2] - p[4], p[1], -p[6], -p[7], 1}, {}};
    const Mvec8Real in = {{1 / unit, 0, -mx / unit, 0, 1 / unit, -my / unit, 0, 0, 1}, {}};
    const Mvec8Real out = {{unit, 0, mx, 0, unit, my, 0, 0, 1}, {}};
    Mvec8Real step;
    Mvec8Real_mult(&step, &correction, &in);
    Mvec8Real_mult(&step, &out, &step);
    Mvec8Real_mult(&h, &step, &h);
    const double h8 = h.h[8];
    for (double& value : h.h) value /= h8;
    double most = 0.0;
    for (const double value : p) most = std::max(most, value * value);
    if (k <= scale && most < kStill * kStill) break;
    k = std::max(scale, 0.7 * k);
  }
  if (!(weights > 0.0)) return false;
  // Spread of the normalised residuals: above 1 the floor or the model was too good.
  const double spread = std::max(1.0, squares / std::max(1.0, 2.0 * weights - kUnknowns));
  double worst = 0.0;
  for (int32_t corner = 0; corner < 4; ++corner) {
    double axis[2][kUnknowns];
    basisAt(corner % 2 == 0 ? -mx / unit : mx / unit, corner / 2 == 0 ? -my / unit : my / unit, axis[0], axis[1]);
    double given = 0.0, seen = 0.0;
    for (double* x : axis) {
      solveLower(normal.a, x);
      for (int32_t i = 0; i < kUnknowns; ++i) given += x[i] * x[i];
      solveUpper(normal.a, x);
      for (int32_t i = 0; i < kUnknowns; ++i) {
        for (int32_t j = 0; j < i; ++j) seen += 2.0 * x[i] * x[j] * scatter.a[i][j];
        seen += x[i] * x[i] * scatter.a[i][i];
      }
    }
    worst = std::max(worst, std::max(given * spread, seen));
  }
  quality->inliers = weights / count;
  quality->cornerSigma = unit * RawDouble_sqrt(std::max(1e-12, worst));
  quality->error = RawDouble_sqrt(std::max(1e-12, errors / weights));
  *motion = h;
  return true;
}

}  // namespace fine
