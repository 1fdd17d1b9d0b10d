#include "motion/milsm8.h"

#include "base/scoped.h"
#include "motion/symmetric_solve.h"

namespace {

constexpr double kDiagonalLimit = 1e-16;

Status solveTwoImages(MILsm8* self) {
  const ScopedBlock<double> matrix(self->env, kProjectiveParameters * kProjectiveParameters);
  if (!matrix) {
    self->failureCode = MILSM_FAIL_MEMORY;
    return ZELVAN_ERROR_NOMEM;
  }
  self->failureCode = MILSM_CONVERGED;
  std::fill_n(matrix.data(), kProjectiveParameters * kProjectiveParameters, 0.0);
  addBaseMatrix(self->moments, matrix.data(), kProjectiveParameters);
  if (!factorCholesky(matrix.data(), kProjectiveParameters, kProjectivePivotLimit)) {
    self->failureCode = MILSM_FAIL_PIVOT;
  }
  double rightHandSide[kProjectiveParameters];
  baseRightHandSide(self->moments, rightHandSide);
  if (!solveCholesky(matrix.data(), rightHandSide, self->parameters, kProjectiveParameters, kDiagonalLimit)) {
    self->failureCode = MILSM_FAIL_DIAGONAL;
  } else if (self->failureCode == MILSM_CONVERGED && !allFinite(self->parameters, kProjectiveParameters)) {
    self->failureCode = MILSM_FAIL_PASSES;
  }
  return ZELVAN_OK;
}

Status solveManyImages(MILsm8* self) {
  const int32_t n = kProjectiveParameters * (self->imageCount - 1);
  const ScopedBlock<double> matrix(self->env, static_cast<size_t>(n) * n);
  const ScopedBlock<double> step(self->env, n);
  if (!matrix || !step) {
    self->failureCode = MILSM_FAIL_MEMORY;
    return ZELVAN_ERROR_NOMEM;
  }
  self->failureCode = MILSM_CONVERGED;
  for (int32_t pass = 0; pass < kSolvePasses; ++pass) {
    buildProjectiveSystem(self->moments, self->parameters, self->imageCount, matrix.data(), step.data());
    for (int32_t t = 0; t < n; ++t) step[t] = -step[t];
    if (!factorCholesky(matrix.data(), n, kProjectivePivotLimit)) {
      self->failureCode = MILSM_FAIL_PIVOT;
      return ZELVAN_OK;
    }
    if (!solveCholesky(matrix.data(), step.data(), step.data(), n, kDiagonalLimit)) {
      self->failureCode = MILSM_FAIL_DIAGONAL;
      return ZELVAN_OK;
    }
    if (applyStep(self->parameters, step.data(), n) < kSolveTolerance) return ZELVAN_OK;
  }
  self->failureCode = MILSM_FAIL_PASSES;
  return ZELVAN_OK;
}

constexpr auto addReal = &projectiveAdd<MILsm8, double>;

Status solve(MILsm8* self) {
  if (const Status status = pairwiseCheck(self); status != ZELVAN_OK) return status;
  return self->imageCount == 2 ? solveTwoImages(self) : solveManyImages(self);
}

Status setInitialMvec(MILsm8* self, const Mvec8F32* mvec, int32_t image) {
  if (mvec == nullptr) return ZELVAN_ERROR_PARAM;
  const Mvec8Real real = toReal(*mvec);
  return projectiveSetInitial(self, &real, image);
}

}  // namespace

const MILsmVariant kMILsm8 = {
    sizeof(MILsm8),
    {
        kMilsmSlot<&pairwiseConstruct<MILsm8>>,
        kMilsmSlot<&pairwiseDestruct<MILsm8>>,
        kMilsmSlot<&pairwiseInit<MILsm8>>,
        kMilsmSlot<&pairwiseClear<MILsm8>>,
        kMilsmSlot<&pairwiseChangeImageNum<MILsm8>>,
        milsmCopySlot<MILsm8, &pairwiseCopy<MILsm8>>,
        kMilsmSlot<&projectiveAdd<MILsm8, int32_t>>,
        kMilsmSlot<&pairwiseAddF32<MILsm8, addReal>>,
        kMilsmSlot<addReal>,
        kMilsmSlot<&solve>,
        kMilsmSlot<&pairwiseOutput<MILsm8, projectiveOutputReal<MILsm8>>>,
        kMilsmSlot<&projectiveOutputReal<MILsm8>>,
        kMilsmSlot<&setInitialMvec>,
        kMilsmSlot<&projectiveSetInitial<MILsm8>>,
        nullptr,  // no camera model
        kMilsmSlot<&pairwiseFailureCode<MILsm8>>,
        kMilsmSlot<&pairwiseClearBlock<MILsm8>>,
    },
};
