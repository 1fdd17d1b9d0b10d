// What MILsm8 and MILsm8St share: a record that keeps moments per pair of images and arrays of eight values per image.
//
// Record has imageCount, failureCode, moments, parameters, env, and a table of its arrays with their initial values:
//   static constexpr ProjectiveArray<Record> kArrays[];
// Image numbers out of range give ZELVAN_ERROR_PARAM, a record without arrays ZELVAN_ERROR_STATE.
#ifndef ZVT4_MOTION_PROJECTIVE_RECORD_H_
#define ZVT4_MOTION_PROJECTIVE_RECORD_H_

#include <algorithm>
#include <utility>

#include "motion/milsm.h"
#include "motion/projective_map.h"
#include "motion/projective_moments.h"

template <typename Record>
struct ProjectiveArray {
  double* Record::*array;  // eight f64 per image 1 .. imageCount-1
  double initial[kProjectiveParameters];
};

inline constexpr int32_t kProjectivePasses = 100;
inline constexpr double kProjectivePivotLimit = 1e-8;
inline constexpr double kProjectiveTolerance = 1e-8;  // largest change of a parameter that counts as none
// With more, the matrix of a solve would pass the 32-bit sizes of the arena.
inline constexpr int32_t kProjectiveMaxImages = 2896;

template <typename Record>
Status projectiveConstruct(Record* self, Env* env) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  *self = {};
  self->failureCode = MILSM_NOT_SOLVED;
  self->env = env;
  return ZELVAN_OK;
}

template <typename Record>
Status projectiveRecycle(Record* self) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  Status status = Heap2_free(&self->env->heap, self->moments);
  self->moments = nullptr;
  for (const auto& entry : Record::kArrays) {
    status |= Heap2_free(&self->env->heap, self->*entry.array);
    self->*entry.array = nullptr;
  }
  self->imageCount = 0;
  return status;
}

template <typename Record>
Status projectiveDestruct(Record* self) {
  const Status status = projectiveRecycle(self);
  if (self != nullptr) *self = {};
  return status;
}

template <typename Record>
Status projectiveCheck(const Record* self) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  return self->moments == nullptr ? ZELVAN_ERROR_STATE : ZELVAN_OK;
}

template <typename Record>
size_t projectiveMomentLength(const Record& self) {
  return static_cast<size_t>(self.imageCount - 1) * (self.imageCount - 1) * kMomentCount;
}

template <typename Record>
Status projectiveClear(Record* self) {
  if (const Status status = projectiveCheck(self); status != ZELVAN_OK) return status;
  std::fill_n(self->moments, projectiveMomentLength(*self), 0.0);
  for (const auto& entry : Record::kArrays) {
    for (int32_t i = 0; i < self->imageCount - 1; ++i) {
      std::copy_n(entry.initial, kProjectiveParameters, self->*entry.array + i * kProjectiveParameters);
    }
  }
  return ZELVAN_OK;
}

template <typename Record>
Status projectiveInit(Record* self, int32_t imageCount) {
  if (self == nullptr || imageCount < 2) return ZELVAN_ERROR_PARAM;
  if (imageCount > kProjectiveMaxImages) return ZELVAN_ERROR_NOMEM;
  projectiveRecycle(self);
  self->imageCount = imageCount;
  const auto allocate = [self](size_t count) {
    return static_cast<double*>(Heap2_malloc(&self->env->heap, static_cast<uint32_t>(count * sizeof(double))));
  };
  self->moments = allocate(projectiveMomentLength(*self));
  bool complete = self->moments != nullptr;
  for (const auto& entry : Record::kArrays) {
    self->*entry.array = allocate(static_cast<size_t>(imageCount - 1) * kProjectiveParameters);
    complete = complete && self->*entry.array != nullptr;
  }
  if (complete) return projectiveClear(self);
  projectiveRecycle(self);
  return ZELVAN_ERROR_NOMEM;
}

template <typename Record>
Status projectiveChangeImageNum(Record* self, int32_t imageCount) {
  if (const Status status = projectiveCheck(self); status != ZELVAN_OK) return status;
  Record changed;
  projectiveConstruct(&changed, self->env);
  changed.failureCode = self->failureCode;
  if (const Status status = projectiveInit(&changed, imageCount); status != ZELVAN_OK) return status;
  const int32_t kept = std::min(imageCount, self->imageCount);
  for (int32_t high = 1; high < kept; ++high) {
    for (int32_t low = 0; low < high; ++low) {
      std::copy_n(self->moments + kMomentCount * momentBlock(self->imageCount, low, high), kMomentCount,
                  changed.moments + kMomentCount * momentBlock(imageCount, low, high));
    }
  }
  for (const auto& entry : Record::kArrays) {
    std::copy_n(self->*entry.array, (kept - 1) * kProjectiveParameters, changed.*entry.array);
  }
  const Status status = projectiveRecycle(self);
  *self = changed;
  return status;
}

template <typename Record>
Status projectiveCopy(Record* to, const Record* from) {
  if (const Status status = projectiveCheck(to) | projectiveCheck(from); status != ZELVAN_OK) return status;
  if (to->imageCount != from->imageCount) return ZELVAN_ERROR_STATE;
  to->failureCode = from->failureCode;
  std::copy_n(from->moments, projectiveMomentLength(*from), to->moments);
  for (const auto& entry : Record::kArrays) {
    std::copy_n(from->*entry.array, (from->imageCount - 1) * kProjectiveParameters, to->*entry.array);
  }
  return ZELVAN_OK;
}

// Brings the images of a pair into order, with the lower number first. *block receives the moments of the pair.
template <typename Record>
Status projectiveBlock(Record* self, int32_t a, int32_t b, double** block) {
  if (const Status status = projectiveCheck(self); status != ZELVAN_OK) return status;
  const auto [low, high] = std::minmax(a, b);
  if (low < 0 || high >= self->imageCount || low == high) return ZELVAN_ERROR_PARAM;
  *block = self->moments + kMomentCount * momentBlock(self->imageCount, low, high);
  return ZELVAN_OK;
}

template <typename Record, typename Number>
Status projectiveAdd(Record* self, int32_t a, Number ax, Number ay, int32_t b, Number bx, Number by, Number weight) {
  double* block;
  if (const Status status = projectiveBlock(self, a, b, &block); status != ZELVAN_OK) return status;
  if (a > b) {
    std::swap(a, b);
    std::swap(ax, bx);
    std::swap(ay, by);
  }
  // (x, y) is the point of image 0, but of the higher image in a pair without image 0.
  if (a == 0) {
    addMoments(block, ax, ay, bx, by, weight);
  } else {
    addMoments(block, bx, by, ax, ay, weight);
  }
  return ZELVAN_OK;
}

template <typename Record>
Status projectiveAddF32(Record* self, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by,
                        int32_t weight) {
  return projectiveAdd<Record, double>(self, a, ax * kQ15Unit, ay * kQ15Unit, b, bx * kQ15Unit, by * kQ15Unit,
                                       weight * kQ15Unit);
}

template <typename Record>
Status projectiveClearBlock(Record* self, int32_t a, int32_t b) {
  double* block;
  if (const Status status = projectiveBlock(self, a, b, &block); status != ZELVAN_OK) return status;
  std::fill_n(block, kMomentCount, 0.0);
  return ZELVAN_OK;
}

// The eight values of image 1 .. imageCount-1 in one of the arrays.
template <typename Record>
Status projectiveValues(Record* self, double* Record::*array, int32_t image, double** values) {
  if (const Status status = projectiveCheck(self); status != ZELVAN_OK) return status;
  if (image < 1 || image >= self->imageCount) return ZELVAN_ERROR_PARAM;
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
  if (image == 0) return projectiveCheck(self);
  double* parameters;
  const Status status = projectiveValues(self, &Record::parameters, image, &parameters);
  // Parameters that have no inverse leave the identity.
  if (status == ZELVAN_OK) invertProjective(parameters, out->h);
  return status;
}

template <typename Record>
Status projectiveOutput(Record* self, Mvec8F32* out, int32_t image) {
  if (out == nullptr) return ZELVAN_ERROR_PARAM;
  Mvec8Real real;
  const Status status = projectiveOutputReal(self, &real, image);
  for (int i = 0; i < 9; ++i) out->h[i] = roundHalfAway(real.h[i] * kQ15One);
  return status;
}

template <typename Record>
Status projectiveFailureCode(Record* self, int32_t* out) {
  if (self == nullptr || out == nullptr) return ZELVAN_ERROR_PARAM;
  *out = self->failureCode;
  return ZELVAN_OK;
}

// parameters += step. Returns the largest absolute change of a parameter.
inline double applyStep(double* parameters, const double* step, int32_t n) {
  double largest = 0.0;
  for (int32_t t = 0; t < n; ++t) {
    const double before = parameters[t];
    parameters[t] += step[t];
    largest = std::max(largest, parameters[t] > before ? parameters[t] - before : before - parameters[t]);
  }
  return largest;
}

#endif  // ZVT4_MOTION_PROJECTIVE_RECORD_H_
