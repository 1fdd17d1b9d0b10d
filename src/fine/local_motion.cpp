#include "fine/local_motion.h"

#include <algorithm>

#include "base/raw_double.h"
#include "fine/field_rows.h"

namespace fine {
namespace {

constexpr double kScale = 3.0;      // k
constexpr double kBreak = 2.0;      // c
constexpr double kSmooth = 0.4;     // s, in pixels
constexpr double kTether = 1e-4;    // mu
constexpr double kWide = 16.0;      // k and c of the first round, by their own
constexpr double kNarrowing = 0.6;  // from round to round
constexpr int32_t kSteps = 12;      // of conjugate gradients a round
constexpr double kNotable = 4.0;    // squared length of a shift by a match's own accuracy
constexpr double kLeastGain = 0.03;
constexpr double kLeastSignificance = 2.5;
constexpr int32_t kBoth = 2;  // colours

double weightOf(double square, double k) {
  const double t = 1.0 / (1.0 + square / (k * k));
  return t * t;
}

double costOf(double square) {
  return square / (1.0 + square / (kScale * kScale));
}

double squareOf(const LocalMatch& m, double x, double y) {
  return x * (m.wxx * x + m.wxy * y) + y * (m.wxy * x + m.wyy * y);
}

void prepareMatches(const ShiftField& field, const Mvec8Real& motion, const Match* matches, int32_t count,
                    LocalScratch* scratch) {
  for (int32_t i = 0; i < count; ++i) {
    const Match& from = matches[i];
    LocalMatch& m = scratch->matches[i];
    m.place = latticePlace(field, from.x, from.y);
    double u, v;
    Mvec8Real_trans2DReal(&motion, &u, &v, from.x, from.y);
    m.x = from.u - u;
    m.y = from.v - v;
    m.wxx = from.wxx;
    m.wxy = from.wxy;
    m.wyy = from.wyy;
    m.colour = (m.place.node % field.across + m.place.node / field.across) & 1;
  }
}

// What the field leaves of a match.
void residual(const ShiftField& field, const LocalMatch& m, double* x, double* y) {
  *x = m.x - shiftAt(field, field.x, m.place);
  *y = m.y - shiftAt(field, field.y, m.place);
}

// Adds B^T (x, y) to a vector of all x, then all y.
void spread(double* out, const ShiftField& field, const LatticePlace& place, double x, double y) {
  const int32_t nodes = field.across * field.down;
  const int32_t at[4] = {place.node, place.node + 1, place.node + field.across, place.node + field.across + 1};
  for (int32_t i = 0; i < 4; ++i) {
    out[at[i]] += place.share[i] * x;
    out[nodes + at[i]] += place.share[i] * y;
  }
}

// The weighted least squares of a round.
struct Round {
  const ShiftField* lattice;
  const LocalScratch* scratch;
  int32_t count;
};

// out = A v.
void apply(double* out, const Round& round, const double* v) {
  const ShiftField& lattice = *round.lattice;
  const int32_t across = lattice.across;
  const int32_t nodes = across * lattice.down;
  const double* const right = round.scratch->right;
  const double* const below = round.scratch->below;
  const double* const none = below + nodes - across;  // no edge leads out of the last row
  for (int32_t j = 0; j < lattice.down; ++j) {
    const int32_t n = j * across;
    const double* const fromAbove = j > 0 ? below + n - across : none;
    for (const double* row : {v + n, v + nodes + n}) {
      kPull(out + (row - v), {row, j > 0 ? row - across : row, j + 1 < lattice.down ? row + across : row, right + n,
                              fromAbove, below + n, kTether, across});
    }
  }
  for (int32_t k = 0; k < round.count; ++k) {
    const LocalMatch& m = round.scratch->matches[k];
    if (m.weight == 0.0) continue;
    const double x = m.weight * shiftAt(lattice, v, m.place);
    const double y = m.weight * shiftAt(lattice, v + nodes, m.place);
    spread(out, lattice, m.place, m.wxx * x + m.wxy * y, m.wxy * x + m.wyy * y);
  }
}

// Conjugate gradients, preconditioned by the diagonal, for the change of the field.
void solve(ShiftField* field, const Round& round, LocalScratch* scratch) {
  const int32_t across = field->across;
  const int32_t nodes = across * field->down;
  const int32_t n = 2 * nodes;
  double* r = scratch->solver[0];
  double* p = scratch->solver[1];
  double* ap = scratch->solver[2];
  double* inverse = scratch->solver[3];
  // The residual at the field as it is: B^T W (e - B u) less the pull of edges and of mu.
  std::copy(field->x, field->x + nodes, p);
  std::copy(field->y, field->y + nodes, p + nodes);
  apply(ap, round, p);
  std::fill_n(r, n, 0.0);
  std::fill_n(inverse, n, kTether);
  for (int32_t k = 0; k < round.count; ++k) {
    const LocalMatch& m = scratch->matches[k];
    if (m.weight == 0.0) continue;
    spread(r, *field, m.place, m.weight * (m.wxx * m.x + m.wxy * m.y), m.weight * (m.wxy * m.x + m.wyy * m.y));
    LatticePlace squared = m.place;
    for (double& share : squared.share) share *= share;
    spread(inverse, *field, squared, m.weight * m.wxx, m.weight * m.wyy);
  }
  for (int32_t i = 0; i < nodes; ++i) {
    double edges = scratch->right[i] + scratch->below[i];
    if (i % across > 0) edges += scratch->right[i - 1];
    if (i >= across) edges += scratch->below[i - across];
    inverse[i] = 1.0 / (inverse[i] + edges);
    inverse[nodes + i] = 1.0 / (inverse[nodes + i] + edges);
  }
  for (int32_t i = 0; i < n; ++i) r[i] -= ap[i];
  for (int32_t i = 0; i < n; ++i) p[i] = inverse[i] * r[i];
  double rz = kDot(r, p, n);
  for (int32_t step = 0; step < kSteps && rz > 1e-9; ++step) {
    apply(ap, round, p);
    const double alpha = rz / kDot(p, ap, n);
    kStep(field->x, p, alpha, nodes);
    kStep(field->y, p + nodes, alpha, nodes);
    const double next = kDescend(r, ap, inverse, alpha, n);
    kTurn(p, r, inverse, next / rz, n);
    rz = next;
  }
}

// Edges by how far they are stretched; none leaves the lattice.
void weighEdges(const ShiftField& field, double c, LocalScratch* scratch) {
  const int32_t nodes = field.across * field.down;
  const double unit = 1.0 / (kSmooth * kSmooth);
  const auto weight = [&](int32_t a, int32_t b) {
    const double x = field.x[a] - field.x[b];
    const double y = field.y[a] - field.y[b];
    return unit * weightOf(unit * (x * x + y * y), c);
  };
  for (int32_t n = 0; n < nodes; ++n) {
    scratch->right[n] = n % field.across + 1 < field.across ? weight(n, n + 1) : 0.0;
    scratch->below[n] = n + field.across < nodes ? weight(n, n + field.across) : 0.0;
  }
}

// From the field as it is, to the matches of a colour.
void minimise(ShiftField* field, int32_t count, int32_t colour, LocalScratch* scratch) {
  const Round round = {field, scratch, count};
  for (double t = kWide;; t = std::max(1.0, t * kNarrowing)) {
    for (int32_t i = 0; i < count; ++i) {
      LocalMatch& m = scratch->matches[i];
      double x, y;
      residual(*field, m, &x, &y);
      m.weight = colour == kBoth || m.colour == colour ? weightOf(squareOf(m, x, y), t * kScale) : 0.0;
    }
    weighEdges(*field, t * kBreak, scratch);
    solve(field, round, scratch);
    if (t <= 1.0) break;
  }
}

void clear(ShiftField* field) {
  std::fill_n(field->x, field->across * field->down, 0.0);
  std::fill_n(field->y, field->across * field->down, 0.0);
}

}  // namespace

ShiftField shiftLattice(int32_t width, int32_t height) {
  ShiftField field = {0, 0, kMeshStep, nullptr, nullptr};
  for (;; field.step *= 2) {
    field.across = std::max(2, (width + field.step - 1) / field.step + 1);
    field.down = std::max(2, (height + field.step - 1) / field.step + 1);
    if (field.across * field.down <= kMostShiftNodes) return field;
  }
}

Evidence localEvidence(const ShiftField& lattice, const Mvec8Real& motion, const Match* matches, int32_t count,
                       LocalScratch* scratch) {
  prepareMatches(lattice, motion, matches, count, scratch);
  ShiftField fields[2] = {lattice, lattice};
  for (int32_t colour = 0; colour < 2; ++colour) {
    ShiftField& field = fields[colour];
    field.x = scratch->shifts[2 * colour];
    field.y = scratch->shifts[2 * colour + 1];
    clear(&field);
    minimise(&field, count, colour, scratch);
  }
  double before = 0.0, gained = 0.0, squares = 0.0;
  for (int32_t i = 0; i < count; ++i) {
    const LocalMatch& m = scratch->matches[i];
    double x, y;
    residual(fields[1 - m.colour], m, &x, &y);
    const double plain = costOf(squareOf(m, m.x, m.y));
    before += plain;
    // Where the field says no more than noise would, the homography stands.
    if (squareOf(m, m.x - x, m.y - y) < kNotable) continue;
    const double gain = plain - costOf(squareOf(m, x, y));
    gained += gain;
    squares += gain * gain;
  }
  if (!(before > 0.0 && squares > 0.0)) return {0.0, 0.0};
  return {gained / before, gained / RawDouble_sqrt(squares)};
}

void fitShifts(ShiftField* field, const Mvec8Real& motion, const Match* matches, int32_t count, LocalScratch* scratch) {
  prepareMatches(*field, motion, matches, count, scratch);
  clear(field);
  minimise(field, count, kBoth, scratch);
}

bool findLocalMotion(ShiftField* field, const AlignBase& base, const Pyramid& frame, const Mvec8Real& motion,
                     Match* matches, int32_t count, LocalScratch* scratch) {
  const Evidence evidence = localEvidence(*field, motion, matches, count, scratch);
  if (!(evidence.gain > kLeastGain && evidence.significance > kLeastSignificance)) return false;
  fitShifts(field, motion, matches, count, scratch);
  int32_t found = 0;
  for (int32_t k = std::min(base.finest + 2, base.pyramid->count - 1); k >= base.finest; --k) {
    found += trackLevel(matches + found, kMostMatches - found, base, frame, k, motion, field, 3, 4.0);
    fitShifts(field, motion, matches, found, scratch);
  }
  const int32_t k = base.finest;
  AlignBase small = base;
  small.blocks[k] = scratch->small;
  small.count[k] = chooseSmallBlocks(scratch->small, base.pyramid->level[k], base.noise);
  found = trackLevel(matches, kMostMatches, base, frame, k, motion, field, 3, 4.0);
  found += trackLevel(matches + found, kMostMatches - found, small, frame, k, motion, field, 3, 4.0);
  fitShifts(field, motion, matches, found, scratch);
  return true;
}

}  // namespace fine
