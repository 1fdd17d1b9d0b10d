#include "motion/milsm8st.h"

#include "base/scoped.h"
#include "motion/symmetric_solve.h"

Status MILsm8St_init(MILsm8St* self, int32_t imageCount) {
  return pairwiseInit(self, imageCount);
}

Status MILsm8St_clear(MILsm8St* self) {
  return pairwiseClear(self);
}

Status MILsm8St_changeImageNum(MILsm8St* self, int32_t imageCount) {
  return pairwiseChangeImageNum(self, imageCount);
}

Status MILsm8St_add(MILsm8St* self, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by,
                    int32_t weight) {
  return projectiveAdd(self, a, ax, ay, b, bx, by, weight);
}

Status MILsm8St_addF32(MILsm8St* self, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by,
                       int32_t weight) {
  return pairwiseAddF32<MILsm8St, MILsm8St_addReal>(self, a, ax, ay, b, bx, by, weight);
}

Status MILsm8St_addReal(MILsm8St* self, int32_t a, double ax, double ay, int32_t b, double bx, double by,
                        double weight) {
  return projectiveAdd(self, a, ax, ay, b, bx, by, weight);
}

Status MILsm8St_solve(MILsm8St* self) {
  if (const Status status = pairwiseCheck(self); status != ZELVAN_OK) return status;
  const int32_t n = kProjectiveParameters * (self->imageCount - 1);
  const ScopedBlock<double> matrix(self->env, static_cast<size_t>(n) * n);
  const ScopedBlock<double> gradient(self->env, n);
  const ScopedBlock<double> step(self->env, n);
  // First derivatives of the penalty's exponent, and its second derivatives plus their squares.
  const ScopedBlock<double> slope(self->env, n);
  const ScopedBlock<double> curvature(self->env, n);
  if (!matrix || !gradient || !step || !slope || !curvature) {
    self->failureCode = MILSM_FAIL_MEMORY;
    return ZELVAN_ERROR_NOMEM;
  }

  self->failureCode = MILSM_CONVERGED;
  for (int32_t pass = 0; pass < kSolvePasses; ++pass) {
    for (int32_t t = 0; t < n; ++t) {
      const double distance = self->parameters[t] - self->centres[t];
      const double variance = self->widths[t] * self->widths[t];
      slope[t] = 2.0 * distance / variance;
      curvature[t] = 2.0 / variance + slope[t] * slope[t];
    }
    const double halfCost =
        0.5 * buildProjectiveSystem(self->moments, self->parameters, self->imageCount, matrix.data(), gradient.data());
    for (int32_t u = 0; u < n; ++u) {
      step[u] = -(gradient[u] + halfCost * slope[u]);
      for (int32_t t = 0; t < u; ++t) {
        matrix[u * n + t] += gradient[t] * slope[u] + slope[t] * gradient[u] + halfCost * slope[t] * slope[u];
      }
      matrix[u * n + u] += 2.0 * gradient[u] * slope[u] + halfCost * curvature[u];
    }
    if (!factorLdl(matrix.data(), n, kProjectivePivotLimit)) {
      self->failureCode = MILSM_FAIL_PIVOT;
      return ZELVAN_OK;
    }
    substituteForwardUnit(matrix.data(), step.data(), n);
    divideByDiagonal(matrix.data(), step.data(), n);
    substituteBackwardUnit(matrix.data(), step.data(), n);
    if (applyStep(self->parameters, step.data(), n) < kSolveTolerance) return ZELVAN_OK;
  }
  self->failureCode = MILSM_FAIL_PASSES;
  return ZELVAN_OK;
}

Status MILsm8St_outputMvec(MILsm8St* self, Mvec8F32* out, int32_t image) {
  return pairwiseOutput<MILsm8St, MILsm8St_outputMvecReal>(self, out, image);
}

Status MILsm8St_outputMvecReal(MILsm8St* self, Mvec8Real* out, int32_t image) {
  return projectiveOutputReal(self, out, image);
}

Status MILsm8St_setInitialMvec(MILsm8St* self, const Mvec8F32* mvec, int32_t image) {
  if (mvec == nullptr) return ZELVAN_ERROR_PARAM;
  const Mvec8Real real = toReal(*mvec);
  return MILsm8St_setInitialMvecReal(self, &real, image);
}

Status MILsm8St_setInitialMvecReal(MILsm8St* self, const Mvec8Real* mvec, int32_t image) {
  if (const Status status = projectiveSetInitial(self, mvec, image); status != ZELVAN_OK) return status;
  const int32_t position = (image - 1) * kProjectiveParameters;
  std::copy_n(self->parameters + position, kProjectiveParameters, self->centres + position);
  return ZELVAN_OK;
}

Status MILsm8St_setRestraint(MILsm8St* self, const double* widths, int32_t image) {
  double* values;
  if (widths == nullptr) return ZELVAN_ERROR_PARAM;
  const Status status = projectiveValues(self, &MILsm8St::widths, image, &values);
  if (status == ZELVAN_OK) std::copy_n(widths, kProjectiveParameters, values);
  return status;
}

Status MILsm8St_clearBlock(MILsm8St* self, int32_t a, int32_t b) {
  return pairwiseClearBlock(self, a, b);
}

const MILsmVariant kMILsm8St = {
    sizeof(MILsm8St),
    {
        kMilsmSlot<&pairwiseConstruct<MILsm8St>>,
        kMilsmSlot<&pairwiseDestruct<MILsm8St>>,
        kMilsmSlot<&MILsm8St_init>,
        kMilsmSlot<&MILsm8St_clear>,
        kMilsmSlot<&MILsm8St_changeImageNum>,
        milsmCopySlot<MILsm8St, &pairwiseCopy<MILsm8St>>,
        kMilsmSlot<&MILsm8St_add>,
        kMilsmSlot<&MILsm8St_addF32>,
        kMilsmSlot<&MILsm8St_addReal>,
        kMilsmSlot<&MILsm8St_solve>,
        kMilsmSlot<&MILsm8St_outputMvec>,
        kMilsmSlot<&MILsm8St_outputMvecReal>,
        kMilsmSlot<&MILsm8St_setInitialMvec>,
        kMilsmSlot<&MILsm8St_setInitialMvecReal>,
        nullptr,  // no camera model
        kMilsmSlot<&pairwiseFailureCode<MILsm8St>>,
        kMilsmSlot<&MILsm8St_clearBlock>,
    },
};
