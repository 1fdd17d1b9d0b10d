// MILsm8: projective motions without a restraint. As MILsm8St in its sums, parameters and statuses.
//
// With two images one linear solve of the normal equations by a Cholesky factorisation: no start value is needed, but
// the initial motion stays when nothing is solved. Failure 1: a pivot below 1e-8. The substitution goes on all the
// same along the upper triangle: the rows above the pivot hold factors, that of the pivot and those below it the
// matrix. Failure 2, a diagonal below 1e-16 in it, abandons it with parameters partly overwritten. Failure 3: the
// solution is not finite.
//
// With more images Gauss-Newton steps on the cost of all pairs, at most 100, until no parameter changes by 1e-8 or
// more; a failure 1 or 2 ends them with the parameters as they are, failure 3 tells that 100 were not enough.
#ifndef ZVT4_MOTION_MILSM8_H_
#define ZVT4_MOTION_MILSM8_H_

#include "motion/milsm_variant.h"
#include "motion/projective_record.h"

struct MILsm8 : ProjectiveLayout {
  int32_t imageCount;
  int32_t failureCode;
  double* moments;
  double* parameters;
  Env* env;

  template <typename Visit>
  static void visitArrays(Visit visit) {
    visit(&MILsm8::parameters, kProjectiveIdentity);
  }
};

extern const MILsmVariant kMILsm8;

#endif  // ZVT4_MOTION_MILSM8_H_
