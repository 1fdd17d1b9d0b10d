// What MILsm8 and MILsm8St share beyond motion/pair_record.h: the moments of motion/projective_moments.h per pair of
// images, and eight values per image 1 .. imageCount-1 in each array, of which `parameters` are the solution.
#ifndef ZVT4_MOTION_PROJECTIVE_RECORD_H_
#define ZVT4_MOTION_PROJECTIVE_RECORD_H_

#include "motion/pair_record.h"
#include "motion/projective_moments.h"

inline constexpr double kProjectivePivotLimit = 1e-8;

using ProjectiveValues = std::array<double, kProjectiveParameters>;
inline constexpr ProjectiveValues kProjectiveIdentity = {1, 0, 0, 0, 1, 0, 0, 0};

// Base of the records.
struct ProjectiveLayout {
  static constexpr int32_t kBlockLength = kMomentCount;
  static constexpr int32_t kFirstImage = 1;
  static constexpr int32_t kFirstPaired = 0;
  static constexpr int32_t blockCount(int32_t imageCount) { return (imageCount - 1) * (imageCount - 1); }
  static constexpr int32_t block(int32_t imageCount, int32_t low, int32_t high) {
    return momentBlock(imageCount, low, high);
  }
};

template <typename Record, typename Number>
Status projectiveAdd(Record* self, int32_t a, Number ax, Number ay, int32_t b, Number bx, Number by, Number weight) {
  PointPair<Number> p;
  if (const Status status = pairwiseSort(self, a, ax, ay, b, bx, by, &p); status != ZELVAN_OK) return status;
  double* block = pairwiseBlock(self, p.low, p.high);
  // (x, y) is the point of image 0, but of the higher image in a pair without image 0.
  if (p.low == 0) {
    addMoments(block, p.lowX, p.lowY, p.highX, p.highY, weight);
  } else {
    addMoments(block, p.highX, p.highY, p.lowX, p.lowY, weight);
  }
  return ZELVAN_OK;
}

// The eight values of image 1 .. imageCount-1 in one of the arrays.
template <typename Record>
Status projectiveValues(Record* self, double* Record::*array, int32_t image, double** values) {
  if (const Status status = pairwiseCheckImage(self, image); status != ZELVAN_OK) return status;
  if (image == 0) return ZELVAN_ERROR_PARAM;
  *values = self->*array + (image - 1) * kProjectiveParameters;
  return ZELVAN_OK;
}

template <typename Record>
Status projectiveSetInitial(Record* self, const Mvec8Real* mvec, int32_t image) {
  double* parameters;
  if (mvec == nullptr) return ZELVAN_ERROR_PARAM;
  const Status status = projectiveValues(self, &Record::parameters, image, &parameters);
  // A singular motion leaves the parameters as they are.
  if (status == ZELVAN_OK) invertProjective(mvec->h, parameters);
  return status;
}

inline Mvec8Real toReal(const Mvec8F32& mvec) {
  Mvec8Real real = {};
  for (int i = 0; i < 9; ++i) real.h[i] = mvec.h[i] * kQ15Unit;
  return real;
}

template <typename Record>
Status projectiveOutputReal(Record* self, Mvec8Real* out, int32_t image) {
  if (out == nullptr) return ZELVAN_ERROR_PARAM;
  Mvec8Real_setIdentity(out);
  if (image == 0) return pairwiseCheck(self);
  double* parameters;
  const Status status = projectiveValues(self, &Record::parameters, image, &parameters);
  // Parameters that have no inverse leave the identity.
  if (status == ZELVAN_OK) invertProjective(parameters, out->h);
  return status;
}

#endif  // ZVT4_MOTION_PROJECTIVE_RECORD_H_
