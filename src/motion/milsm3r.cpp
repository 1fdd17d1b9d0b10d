#include "motion/milsm3r.h"

#include "base/raw_double.h"
#include "base/scoped.h"
#include "motion/symmetric_solve.h"

namespace {

constexpr int32_t kValues = 3;  // of an image
constexpr double kPivotLimit = 1e-16;
constexpr double kScaleLimit = 1e-8;

struct Turn {
  double cosine, sine;
};

Turn turnOf(double angle) {
  return {RawDouble_cos(angle), RawDouble_sin(angle)};
}

Status addReal(MILsm3R* self, int32_t a, double ax, double ay, int32_t b, double bx, double by, double w) {
  PointPair<double> p;
  if (const Status status = pairwiseSort(self, a, ax, ay, b, bx, by, &p); status != ZELVAN_OK) return status;
  RigidMoments* m = pairwiseBlock(self, p.low, p.high);
  m->w += w;
  m->xx += w * p.lowX * p.lowX;
  m->yy += w * p.lowY * p.lowY;
  m->XX += w * p.highX * p.highX;
  m->YY += w * p.highY * p.highY;
  m->x += w * p.lowX;
  m->y += w * p.lowY;
  m->X += w * p.highX;
  m->Y += w * p.highY;
  m->xX += w * p.lowX * p.highX;
  m->xY += w * p.lowX * p.highY;
  m->yX += w * p.lowY * p.highX;
  m->yY += w * p.lowY * p.highY;
  return ZELVAN_OK;
}

// The Gauss-Newton matrix of one pair and minus the gradient, in the order t_i, u_i, v_i, t_j, u_j, v_j.
struct PairSystem {
  double matrix[2 * kValues][2 * kValues];
  double step[2 * kValues];
};

PairSystem pairSystem(const RigidMoments& m, const double* valuesI, Turn turnI, const double* valuesJ, Turn turnJ) {
  const double w = m.w;
  // Sums of w A and of w B.
  const double ax = turnI.cosine * m.x - turnI.sine * m.y, ay = turnI.sine * m.x + turnI.cosine * m.y;
  const double bx = turnJ.cosine * m.X - turnJ.sine * m.Y, by = turnJ.sine * m.X + turnJ.cosine * m.Y;
  // Of w A.B and w A x B, from those of p and q by the turn between the two images.
  const Turn between = {turnI.cosine * turnJ.cosine + turnI.sine * turnJ.sine,
                        turnI.cosine * turnJ.sine - turnI.sine * turnJ.cosine};
  const double dotPq = m.xX + m.yY, crossPq = m.xY - m.yX;
  const double dot = between.cosine * dotPq - between.sine * crossPq;
  const double cross = between.sine * dotPq + between.cosine * crossPq;
  const double dx = valuesI[1] - valuesJ[1], dy = valuesI[2] - valuesJ[2];
  const double rx = ax - bx + w * dx, ry = ay - by + w * dy;
  return {
      {{m.xx + m.yy, -ay, ax, -dot, ay, -ax},
       {-ay, w, 0, by, -w, 0},
       {ax, 0, w, -bx, 0, -w},
       {-dot, by, -bx, m.XX + m.YY, -by, bx},
       {ay, -w, 0, -by, w, 0},
       {-ax, 0, -w, bx, 0, w}},
      {cross + ay * dx - ax * dy, -rx, -ry, -cross - by * dx + bx * dy, rx, ry},
  };
}

// Image 0 has no unknowns: its rows and columns of the pair are left out.
void addPair(const PairSystem& pair, int32_t i, int32_t j, double* matrix, double* step, int32_t n) {
  const auto place = [i, j](int32_t k) { return k < kValues ? kValues * (i - 1) + k : kValues * (j - 2) + k; };
  for (int32_t s = i == 0 ? kValues : 0; s < 2 * kValues; ++s) {
    step[place(s)] += pair.step[s];
    for (int32_t t = i == 0 ? kValues : 0; t < 2 * kValues; ++t) matrix[place(s) * n + place(t)] += pair.matrix[s][t];
  }
}

}  // namespace

Status MILsm3R_solve(MILsm3R* self) {
  if (const Status status = pairwiseCheck(self); status != ZELVAN_OK) return status;
  const int32_t images = self->imageCount;
  const int32_t n = kValues * (images - 1);
  const ScopedBlock<double> matrix(self->env, static_cast<size_t>(n) * n);
  const ScopedBlock<double> step(self->env, n);
  const ScopedBlock<Turn> turns(self->env, images);
  if (!matrix || !step || !turns) {
    self->failureCode = MILSM_FAIL_MEMORY;
    return ZELVAN_ERROR_NOMEM;
  }
  self->failureCode = MILSM_CONVERGED;
  for (int32_t pass = 0; pass < kSolvePasses; ++pass) {
    std::fill_n(matrix.data(), n * n, 0.0);
    std::fill_n(step.data(), n, 0.0);
    for (int32_t k = 0; k < images; ++k) turns[k] = turnOf(self->parameters[kValues * k]);
    for (int32_t i = 0; i < images; ++i) {
      for (int32_t j = i + 1; j < images; ++j) {
        const PairSystem pair = pairSystem(*pairwiseBlock(self, i, j), self->parameters + kValues * i, turns[i],
                                           self->parameters + kValues * j, turns[j]);
        addPair(pair, i, j, matrix.data(), step.data(), n);
      }
    }
    if (!factorLdl(matrix.data(), n, kPivotLimit)) {
      self->failureCode = MILSM_FAIL_PIVOT;
      return ZELVAN_OK;
    }
    substituteForwardUnit(matrix.data(), step.data(), n);
    divideByDiagonal(matrix.data(), step.data(), n);
    substituteBackwardUnit(matrix.data(), step.data(), n);
    if (applyStep(self->parameters + kValues, step.data(), n) < kSolveTolerance) return ZELVAN_OK;
  }
  self->failureCode = MILSM_FAIL_PASSES;
  return ZELVAN_OK;
}

Status MILsm3R_outputMvec(MILsm3R* self, Mvec6F32* out, int32_t image) {
  if (out == nullptr) return ZELVAN_ERROR_PARAM;
  Mvec8F32 matrix;
  const Status status = MILsm3R_outputMvec8(self, &matrix, image);
  std::copy_n(matrix.h, 6, out->m);
  return status;
}

Status MILsm3R_outputMvec8(MILsm3R* self, Mvec8F32* out, int32_t image) {
  return pairwiseOutput<MILsm3R, MILsm3R_outputMvec8Real>(self, out, image);
}

Status MILsm3R_outputMvec8Real(MILsm3R* self, Mvec8Real* out, int32_t image) {
  if (out == nullptr) return ZELVAN_ERROR_PARAM;
  Mvec8Real_setIdentity(out);
  if (const Status status = pairwiseCheckImage(self, image); status != ZELVAN_OK) return status;
  if (image == 0) return ZELVAN_OK;
  const double* values = self->parameters + kValues * image;
  const auto [c, s] = turnOf(values[0]);
  return invertSimilarity(c, s, values[1], values[2], kScaleLimit, out);
}

Status MILsm3R_setInitialMvec(MILsm3R*, const Mvec8F32*, int32_t) {
  return ZELVAN_OK;
}

Status MILsm3R_setInitialMvecReal(MILsm3R*, const Mvec8Real*, int32_t) {
  return ZELVAN_OK;
}

const MILsmVariant kMILsm3R = {
    sizeof(MILsm3R),
    {
        kMilsmSlot<&pairwiseConstruct<MILsm3R>>,
        kMilsmSlot<&pairwiseDestruct<MILsm3R>>,
        kMilsmSlot<&pairwiseInit<MILsm3R>>,
        kMilsmSlot<&pairwiseClear<MILsm3R>>,
        kMilsmSlot<&pairwiseChangeImageNum<MILsm3R>>,
        milsmCopySlot<MILsm3R, &pairwiseCopy<MILsm3R>>,
        kMilsmSlot<&pairwiseAdd<MILsm3R, addReal>>,
        kMilsmSlot<&pairwiseAddF32<MILsm3R, addReal>>,
        kMilsmSlot<&addReal>,
        kMilsmSlot<&MILsm3R_solve>,
        kMilsmSlot<&MILsm3R_outputMvec8>,
        kMilsmSlot<&MILsm3R_outputMvec8Real>,
        kMilsmSlot<&MILsm3R_setInitialMvec>,
        kMilsmSlot<&MILsm3R_setInitialMvecReal>,
        nullptr,  // no camera model
        kMilsmSlot<&pairwiseFailureCode<MILsm3R>>,
        kMilsmSlot<&pairwiseClearBlock<MILsm3R>>,
    },
};
