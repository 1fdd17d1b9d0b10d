// What the variants of MILsm share that keep sums per pair of images and arrays of values per image.
//
// Record is a plain struct with imageCount, failureCode, env, a pointer moments to the sums of all pairs, and pointers
// to arrays. It tells about them:
//   kBlockLength                  items of moments per pair of images
//   kFirstImage                   the lowest image that has values in the arrays
//   kFirstPaired                  the lowest image whose pairs with higher ones have blocks
//   blockCount(imageCount)        how many blocks there are
//   block(imageCount, low, high)  which of them is that of the images low < high
//   visitArrays(visit)            calls visit(&Record::array, initial) for each array, with a std::array of the values
//                                 that every image begins with
//
// Arrays and moments come from the arena, at init and at a change of the number of images. Two images at least, else
// ZELVAN_ERROR_PARAM; so give image numbers out of range and null pointers. A record without arrays gives
// ZELVAN_ERROR_STATE.
#ifndef ZVT4_MOTION_PAIR_RECORD_H_
#define ZVT4_MOTION_PAIR_RECORD_H_

#include <algorithm>
#include <array>
#include <cmath>
#include <type_traits>

#include "motion/milsm.h"
#include "motion/projective_map.h"

inline constexpr int32_t kSolvePasses = 100;
inline constexpr double kSolveTolerance = 1e-8;  // largest change of a parameter that counts as none
// With more, the matrix of a solve would pass the 32-bit sizes of the arena.
inline constexpr int32_t kMaxImages = 2896;

// Place of the images 0 < low < high in (1, 2), (1, 3) .. (1, n-1), (2, 3) ..; n images have (n-1)(n-2)/2 such pairs.
constexpr int32_t pairIndexAboveBase(int32_t imageCount, int32_t low, int32_t high) {
  return (low - 1) * (imageCount - 1) + (high - 1) - low * (low + 1) / 2;
}
constexpr int32_t pairCountAboveBase(int32_t imageCount) {
  return (imageCount - 1) * (imageCount - 2) / 2;
}

template <typename Record>
Status pairwiseConstruct(Record* self, Env* env) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  *self = {};
  self->failureCode = MILSM_NOT_SOLVED;
  self->env = env;
  return ZELVAN_OK;
}

template <typename Record>
Status pairwiseRecycle(Record* self) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  Status status = Heap2_free(&self->env->heap, self->moments);
  self->moments = nullptr;
  Record::visitArrays([&](auto array, const auto&) {
    status |= Heap2_free(&self->env->heap, self->*array);
    self->*array = nullptr;
  });
  self->imageCount = 0;
  return status;
}

template <typename Record>
Status pairwiseDestruct(Record* self) {
  const Status status = pairwiseRecycle(self);
  if (self != nullptr) *self = {};
  return status;
}

template <typename Record>
Status pairwiseCheck(const Record* self) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  return self->moments == nullptr ? ZELVAN_ERROR_STATE : ZELVAN_OK;
}

template <typename Record>
size_t pairwiseMomentLength(const Record& self) {
  return static_cast<size_t>(Record::blockCount(self.imageCount)) * Record::kBlockLength;
}

template <typename Record>
Status pairwiseClear(Record* self) {
  if (const Status status = pairwiseCheck(self); status != ZELVAN_OK) return status;
  std::fill_n(self->moments, pairwiseMomentLength(*self), std::remove_pointer_t<decltype(self->moments)>{});
  Record::visitArrays([self](auto array, const auto& initial) {
    for (int32_t i = 0; i < self->imageCount - Record::kFirstImage; ++i) {
      std::copy(initial.begin(), initial.end(), self->*array + i * initial.size());
    }
  });
  return ZELVAN_OK;
}

// Arrays for imageCount images into a record that has none. On failure it has none afterwards.
template <typename Record>
Status pairwiseAllocate(Record* self, int32_t imageCount) {
  if (imageCount < 2) return ZELVAN_ERROR_PARAM;
  if (imageCount > kMaxImages) return ZELVAN_ERROR_NOMEM;
  bool complete = true;
  const auto allocate = [&](auto* Record::*array, size_t count) {
    using Item = std::remove_reference_t<decltype(*(self->*array))>;
    self->*array = static_cast<Item*>(Heap2_malloc(&self->env->heap, static_cast<uint32_t>(count * sizeof(Item))));
    complete = complete && self->*array != nullptr;
  };
  self->imageCount = imageCount;
  // Never empty, since it tells a record with arrays from one without.
  allocate(&Record::moments, std::max<size_t>(pairwiseMomentLength(*self), Record::kBlockLength));
  Record::visitArrays([&](auto array, const auto& initial) {
    allocate(array, static_cast<size_t>(imageCount - Record::kFirstImage) * initial.size());
  });
  if (complete) return pairwiseClear(self);
  pairwiseRecycle(self);
  return ZELVAN_ERROR_NOMEM;
}

template <typename Record>
Status pairwiseInit(Record* self, int32_t imageCount) {
  if (self == nullptr || imageCount < 2) return ZELVAN_ERROR_PARAM;
  if (imageCount > kMaxImages) return ZELVAN_ERROR_NOMEM;
  pairwiseRecycle(self);
  return pairwiseAllocate(self, imageCount);
}

// Contents of the arrays for the images that both have.
template <typename Record>
void pairwiseCopyArrays(Record* to, const Record& from) {
  const int32_t kept = std::min(to->imageCount, from.imageCount);
  for (int32_t low = Record::kFirstPaired; low < kept; ++low) {
    for (int32_t high = low + 1; high < kept; ++high) {
      std::copy_n(from.moments + Record::kBlockLength * Record::block(from.imageCount, low, high), Record::kBlockLength,
                  to->moments + Record::kBlockLength * Record::block(to->imageCount, low, high));
    }
  }
  Record::visitArrays([&](auto array, const auto& initial) {
    for (int32_t i = 0; i < kept - Record::kFirstImage; ++i) {
      std::copy_n(from.*array + i * initial.size(), initial.size(), to->*array + i * initial.size());
    }
  });
}

// On failure the record stays as it was.
template <typename Record>
Status pairwiseChangeImageNum(Record* self, int32_t imageCount) {
  if (const Status status = pairwiseCheck(self); status != ZELVAN_OK) return status;
  Record changed = *self;
  changed.moments = nullptr;
  Record::visitArrays([&](auto array, const auto&) { changed.*array = nullptr; });
  if (const Status status = pairwiseAllocate(&changed, imageCount); status != ZELVAN_OK) return status;
  pairwiseCopyArrays(&changed, *self);
  const Status status = pairwiseRecycle(self);
  *self = changed;
  return status;
}

template <typename Record>
Status pairwiseCopy(Record* to, const Record* from) {
  if (const Status status = pairwiseCheck(to) | pairwiseCheck(from); status != ZELVAN_OK) return status;
  if (to->imageCount != from->imageCount) return ZELVAN_ERROR_STATE;
  if (to == from) return ZELVAN_OK;
  pairwiseCopyArrays(to, *from);
  // The rest of the record is plain values, except for what belongs to each.
  Record merged = *from;
  merged.moments = to->moments;
  Record::visitArrays([&](auto array, const auto&) { merged.*array = to->*array; });
  merged.env = to->env;
  *to = merged;
  return ZELVAN_OK;
}

// A correspondence with its images in order.
template <typename Number>
struct PointPair {
  int32_t low, high;
  Number lowX, lowY, highX, highY;
};

template <typename Record, typename Number>
Status pairwiseSort(const Record* self, int32_t a, Number ax, Number ay, int32_t b, Number bx, Number by,
                    PointPair<Number>* pair) {
  if (const Status status = pairwiseCheck(self); status != ZELVAN_OK) return status;
  *pair = a < b ? PointPair<Number>{a, b, ax, ay, bx, by} : PointPair<Number>{b, a, bx, by, ax, ay};
  return pair->low < 0 || pair->high >= self->imageCount || a == b ? ZELVAN_ERROR_PARAM : ZELVAN_OK;
}

// The moments of the images low < high.
template <typename Record>
auto* pairwiseBlock(Record* self, int32_t low, int32_t high) {
  return self->moments + Record::kBlockLength * Record::block(self->imageCount, low, high);
}

// For variants whose blocks hold all that a pair has added.
template <typename Record>
Status pairwiseClearBlock(Record* self, int32_t a, int32_t b) {
  PointPair<int32_t> pair;
  if (const Status status = pairwiseSort(self, a, 0, 0, b, 0, 0, &pair); status != ZELVAN_OK) return status;
  auto* block = pairwiseBlock(self, pair.low, pair.high);
  std::fill_n(block, Record::kBlockLength, std::remove_pointer_t<decltype(block)>{});
  return ZELVAN_OK;
}

// For variants that can not tell the sums of a pair apart.
template <typename Record>
Status pairwiseClearNoBlock(Record*, int32_t, int32_t) {
  return ZELVAN_ERROR_UNSUPPORTED;
}

// The ways to add that come down to doubles.
template <typename Record, Status (*AddReal)(Record*, int32_t, double, double, int32_t, double, double, double)>
Status pairwiseAdd(Record* self, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by, int32_t weight) {
  return AddReal(self, a, ax, ay, b, bx, by, weight);
}
template <typename Record, Status (*AddReal)(Record*, int32_t, double, double, int32_t, double, double, double)>
Status pairwiseAddF32(Record* self, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by,
                      int32_t weight) {
  return AddReal(self, a, ax * kQ15Unit, ay * kQ15Unit, b, bx * kQ15Unit, by * kQ15Unit, weight * kQ15Unit);
}

template <typename Record>
Status pairwiseCheckImage(const Record* self, int32_t image) {
  if (const Status status = pairwiseCheck(self); status != ZELVAN_OK) return status;
  return image < 0 || image >= self->imageCount ? ZELVAN_ERROR_PARAM : ZELVAN_OK;
}

template <typename Record>
Status pairwiseFailureCode(Record* self, int32_t* out) {
  if (self == nullptr || out == nullptr) return ZELVAN_ERROR_PARAM;
  *out = self->failureCode;
  return ZELVAN_OK;
}

// Q15 of a motion, each value rounded half away from zero.
inline void toQ15(const Mvec8Real& real, Mvec8F32* out) {
  for (int i = 0; i < 9; ++i) out->h[i] = roundHalfAway(real.h[i] * kQ15One);
}

// The Q15 form of an output: that of what OutputReal gives, also where it only left the identity.
template <typename Record, Status (*OutputReal)(Record*, Mvec8Real*, int32_t)>
Status pairwiseOutput(Record* self, Mvec8F32* out, int32_t image) {
  if (out == nullptr) return ZELVAN_ERROR_PARAM;
  Mvec8Real real;
  Mvec8Real_setIdentity(&real);
  const Status status = OutputReal(self, &real, image);
  toQ15(real, out);
  return status;
}

// The inverse of (x, y) -> (a x - b y + u, b x + a y + v) as a 3x3 matrix, into out, which holds the identity. With
// a^2 + b^2 below the limit that stays, with ZELVAN_ERROR_GENERAL.
inline Status invertSimilarity(double a, double b, double u, double v, double limit, Mvec8Real* out) {
  const double d = a * a + b * b;
  if (d < limit) return ZELVAN_ERROR_GENERAL;
  out->h[0] = out->h[4] = a / d;
  out->h[1] = b / d;
  out->h[2] = -(a * u + b * v) / d;
  out->h[3] = -b / d;
  out->h[5] = (b * u - a * v) / d;
  return ZELVAN_OK;
}

// The larger of two stop measures, NaN if either is: a measure below a limit then has no NaN behind it.
inline double largerMeasure(double a, double b) {
  return b <= a || a != a ? a : b;
}

// parameters += step. Returns the largest absolute change of a parameter, NaN if there is one among them.
inline double applyStep(double* parameters, const double* step, int32_t n) {
  double largest = 0.0;
  for (int32_t t = 0; t < n; ++t) {
    const double before = parameters[t];
    parameters[t] += step[t];
    largest = largerMeasure(largest, parameters[t] > before ? parameters[t] - before : before - parameters[t]);
  }
  return largest;
}

// For the variants without passes: what has no finite solution has not converged.
inline bool allFinite(const double* values, int32_t n) {
  return std::all_of(values, values + n, [](double value) { return std::isfinite(value); });
}

#endif  // ZVT4_MOTION_PAIR_RECORD_H_
