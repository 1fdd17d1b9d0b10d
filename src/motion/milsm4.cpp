#include "motion/milsm4.h"

#include "base/scoped.h"
#include "motion/symmetric_solve.h"

namespace {

constexpr int32_t kValues = 4;  // of an image
constexpr double kPivotLimit = 1e-16;
constexpr double kScaleLimit = 1e-8;

void addOwn(SimilarityImageSums* sums, double x, double y, double w) {
  sums->w += w;
  sums->x += w * x;
  sums->y += w * y;
  sums->square += w * (x * x + y * y);
}

Status addReal(MILsm4* self, int32_t a, double ax, double ay, int32_t b, double bx, double by, double w) {
  PointPair<double> p;
  if (const Status status = pairwiseSort(self, a, ax, ay, b, bx, by, &p); status != ZELVAN_OK) return status;
  const double x = p.lowX, y = p.lowY, X = p.highX, Y = p.highY;
  const double dot = w * (x * X + y * Y), cross = w * (x * Y - y * X);
  SimilarityImageSums* high = self->imageSums + (p.high - 1);
  addOwn(high, X, Y, w);
  if (p.low == 0) {
    high->base[0] += dot;
    high->base[1] -= cross;
    high->base[2] += w * x;
    high->base[3] += w * y;
    return ZELVAN_OK;
  }
  addOwn(self->imageSums + (p.low - 1), x, y, w);
  SimilarityPairSums* pair = pairwiseBlock(self, p.low, p.high);
  pair->w += w;
  pair->x += w * x;
  pair->y += w * y;
  pair->X += w * X;
  pair->Y += w * Y;
  pair->dot += dot;
  pair->cross += cross;
  return ZELVAN_OK;
}

// The factorisation reads the lower triangle alone, where the higher image of a pair has the rows.
void buildMatrix(const MILsm4& self, double* matrix, int32_t n) {
  const auto set = [=](int32_t row, int32_t column, const double(&block)[kValues][kValues]) {
    for (int32_t s = 0; s < kValues; ++s) {
      std::copy_n(block[s], kValues, matrix + (kValues * (row - 1) + s) * n + kValues * (column - 1));
    }
  };
  for (int32_t j = 1; j < self.imageCount; ++j) {
    const SimilarityImageSums& m = self.imageSums[j - 1];
    set(j, j, {{m.square, 0, m.x, m.y}, {0, m.square, -m.y, m.x}, {m.x, -m.y, m.w, 0}, {m.y, m.x, 0, m.w}});
    for (int32_t i = 1; i < j; ++i) {
      const SimilarityPairSums& p = *pairwiseBlock(&self, i, j);
      set(j, i,
          {{-p.dot, -p.cross, -p.X, -p.Y}, {p.cross, -p.dot, p.Y, -p.X}, {-p.x, p.y, -p.w, 0}, {-p.y, -p.x, 0, -p.w}});
    }
  }
}

Status solve(MILsm4* self) {
  if (const Status status = pairwiseCheck(self); status != ZELVAN_OK) return status;
  const int32_t n = kValues * (self->imageCount - 1);
  const ScopedBlock<double> matrix(self->env, static_cast<size_t>(n) * n);
  const ScopedBlock<double> solution(self->env, n);
  if (!matrix || !solution) {
    self->failureCode = MILSM_FAIL_MEMORY;
    return ZELVAN_ERROR_NOMEM;
  }
  buildMatrix(*self, matrix.data(), n);
  if (!factorLdl(matrix.data(), n, kPivotLimit)) {
    self->failureCode = MILSM_FAIL_PIVOT;
    return ZELVAN_OK;
  }
  for (int32_t k = 0; k < self->imageCount - 1; ++k) {
    std::copy_n(self->imageSums[k].base, kValues, solution.data() + kValues * k);
  }
  substituteForwardUnit(matrix.data(), solution.data(), n);
  divideByDiagonal(matrix.data(), solution.data(), n);
  substituteBackwardUnit(matrix.data(), solution.data(), n);
  if (!allFinite(solution.data(), n)) {
    self->failureCode = MILSM_FAIL_PASSES;
    return ZELVAN_OK;
  }
  std::copy_n(solution.data(), n, self->parameters);
  self->failureCode = MILSM_CONVERGED;
  return ZELVAN_OK;
}

Status outputReal(MILsm4* self, Mvec8Real* out, int32_t image) {
  if (out == nullptr) return ZELVAN_ERROR_PARAM;
  Mvec8Real_setIdentity(out);
  if (const Status status = pairwiseCheckImage(self, image); status != ZELVAN_OK) return status;
  if (image == 0) return ZELVAN_OK;
  const double* p = self->parameters + kValues * (image - 1);
  return invertSimilarity(p[0], p[1], p[2], p[3], kScaleLimit, out);
}

}  // namespace

const MILsmVariant kMILsm4 = {
    sizeof(MILsm4),
    {
        kMilsmSlot<&pairwiseConstruct<MILsm4>>,
        kMilsmSlot<&pairwiseDestruct<MILsm4>>,
        kMilsmSlot<&pairwiseInit<MILsm4>>,
        kMilsmSlot<&pairwiseClear<MILsm4>>,
        kMilsmSlot<&pairwiseChangeImageNum<MILsm4>>,
        milsmCopySlot<MILsm4, &pairwiseCopy<MILsm4>>,
        kMilsmSlot<&pairwiseAdd<MILsm4, addReal>>,
        kMilsmSlot<&pairwiseAddF32<MILsm4, addReal>>,
        kMilsmSlot<&addReal>,
        kMilsmSlot<&solve>,
        kMilsmSlot<&pairwiseOutput<MILsm4, outputReal>>,
        kMilsmSlot<&outputReal>,
        nullptr,  // no initial motion
        nullptr,
        nullptr,  // no camera model
        kMilsmSlot<&pairwiseFailureCode<MILsm4>>,
        kMilsmSlot<&pairwiseClearNoBlock<MILsm4>>,
    },
};
