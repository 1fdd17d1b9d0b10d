#include "motion/milsm8r.h"

#include <algorithm>

#include "base/raw_double.h"
#include "motion/camera.h"
#include "motion/rotation_record.h"
#include "motion/rotation_solver.h"

namespace {

constexpr double kIdentity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
constexpr uint32_t kLeastPairBytes = 40;

Status construct(MILsm8R* self, Env* env) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  *self = {};
  self->failureCode = MILSM_NOT_SOLVED;
  self->focalLength = 250.0;
  self->cx = 160.0;
  self->cy = 160.0;
  self->tolerance = 1e-12;
  Mvec8Real_setIdentity(&self->baseMotion);
  std::copy_n(kIdentity, 9, self->baseRotation);
  self->env = env;
  return ZELVAN_OK;
}

Status recycle(MILsm8R* self) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  Heap2* heap = &self->env->heap;
  const Status status = Heap2_free(heap, self->angles) | Heap2_free(heap, self->imageSums) |
                        Heap2_free(heap, self->pairSums) | Heap2_free(heap, self->constraintFlags);
  self->angles = nullptr;
  self->imageSums = nullptr;
  self->pairSums = nullptr;
  self->constraintFlags = nullptr;
  self->imageCount = 0;
  return status;
}

Status destruct(MILsm8R* self) {
  const Status status = recycle(self);
  if (self != nullptr) *self = {};
  return status;
}

Status check(const MILsm8R* self) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  return self->angles == nullptr ? ZELVAN_ERROR_STATE : ZELVAN_OK;
}

Status checkImage(const MILsm8R* self, int32_t image) {
  if (const Status status = check(self); status != ZELVAN_OK) return status;
  return image < 0 || image >= self->imageCount ? ZELVAN_ERROR_PARAM : ZELVAN_OK;
}

size_t angleLength(const MILsm8R& self) {
  return static_cast<size_t>(self.imageCount - 1) * 3 + 1;
}
size_t pairLength(const MILsm8R& self) {
  return static_cast<size_t>(pairCountAboveBase(self.imageCount));
}

// Arrays for imageCount images into a record that has none. On failure it has none afterwards.
Status allocateArrays(MILsm8R* self, int32_t imageCount) {
  if (imageCount < 2) return ZELVAN_ERROR_PARAM;
  if (imageCount > kMaxImages) return ZELVAN_ERROR_NOMEM;
  Heap2* heap = &self->env->heap;
  self->imageCount = imageCount;
  const uint32_t pairBytes = static_cast<uint32_t>(pairLength(*self) * sizeof(MILsm8RPairSums));
  self->angles = static_cast<double*>(Heap2_malloc(heap, static_cast<uint32_t>(angleLength(*self) * sizeof(double))));
  self->imageSums = static_cast<MILsm8RImageSums*>(
      Heap2_malloc(heap, static_cast<uint32_t>(imageCount - 1) * static_cast<uint32_t>(sizeof(MILsm8RImageSums))));
  self->pairSums = static_cast<MILsm8RPairSums*>(Heap2_malloc(heap, std::max(pairBytes, kLeastPairBytes)));
  self->constraintFlags = static_cast<uint8_t*>(Heap2_malloc(heap, static_cast<uint32_t>(imageCount) * 3));
  if (self->angles != nullptr && self->imageSums != nullptr && self->pairSums != nullptr &&
      self->constraintFlags != nullptr) {
    std::fill_n(self->constraintFlags, imageCount * 3, uint8_t{0});
    return MILsm8R_clear(self);
  }
  recycle(self);
  return ZELVAN_ERROR_NOMEM;
}

// Contents of the arrays for the images that both have.
void copyArrays(MILsm8R* to, const MILsm8R& from) {
  const int32_t kept = std::min(to->imageCount, from.imageCount);
  std::copy_n(from.angles, (kept - 1) * 3, to->angles);
  std::copy_n(from.imageSums, kept - 1, to->imageSums);
  std::copy_n(from.constraintFlags, kept * 3, to->constraintFlags);
  for (int32_t i = 1; i < kept; ++i) {
    for (int32_t j = i + 1; j < kept; ++j) {
      to->pairSums[pairIndexAboveBase(to->imageCount, i, j)] = from.pairSums[pairIndexAboveBase(from.imageCount, i, j)];
    }
  }
}

struct Model {
  using Record = MILsm8R;
  static const MILsm8RPairSums* pairSums(const MILsm8R& self) { return self.pairSums; }
  static double unit(const MILsm8R&) { return 1.0; }
  static const uint8_t* constraintFlags(const MILsm8R& self) { return self.constraintFlags; }
  static SineCosine sineCosine(double angle) { return {RawDouble_sin(angle), RawDouble_cos(angle)}; }
  static double tableAngle(double angle) { return angle; }
};

struct Ray {
  double d[3];
};

Ray unitRay(double x, double y, double z) {
  const double length = RawDouble_sqrt(x * x + y * y + z * z);
  return {{x / length, y / length, z / length}};
}

Ray rotated(const double* r, const Ray& ray) {
  Ray out;
  for (int i = 0; i < 3; ++i) out.d[i] = r[3 * i] * ray.d[0] + r[3 * i + 1] * ray.d[1] + r[3 * i + 2] * ray.d[2];
  return out;
}

void addOwn(double* own, const Ray& q, double w) {
  int i = 0;
  for (int a = 0; a < 3; ++a) {
    for (int b = a; b < 3; ++b) own[i++] += w * q.d[a] * q.d[b];
  }
}

void addCross(double* cross, const Ray& p, const Ray& q, double w) {
  for (int a = 0; a < 3; ++a) {
    for (int b = 0; b < 3; ++b) cross[3 * a + b] += w * p.d[a] * q.d[b];
  }
}

Status addRays(MILsm8R* self, int32_t i, Ray p, int32_t j, Ray q, double weight) {
  if (const Status status = checkImage(self, i) | checkImage(self, j); status != ZELVAN_OK) return status;
  if (i == j) return ZELVAN_ERROR_PARAM;
  if (i > j) {
    std::swap(i, j);
    std::swap(p, q);
  }
  MILsm8RImageSums* sums = self->imageSums + (j - 1);
  if (i == 0) {
    if (self->baseRotationSet != 0) p = rotated(self->baseRotation, p);
    addCross(sums->cross, p, q, weight);
  } else {
    MILsm8RPairSums* pair = self->pairSums + pairIndexAboveBase(self->imageCount, i, j);
    ++pair->count;
    addCross(pair->cross, p, q, weight);
    addOwn(self->imageSums[i - 1].own, p, weight);
  }
  addOwn(sums->own, q, weight);
  return ZELVAN_OK;
}

}  // namespace

Status MILsm8R_init(MILsm8R* self, int32_t imageCount) {
  if (self == nullptr || imageCount < 2) return ZELVAN_ERROR_PARAM;
  recycle(self);
  self->baseRotationSet = 0;
  return allocateArrays(self, imageCount);
}

Status MILsm8R_clear(MILsm8R* self) {
  if (const Status status = check(self); status != ZELVAN_OK) return status;
  std::fill_n(self->angles, angleLength(*self), 0.0);
  std::fill_n(self->imageSums, self->imageCount - 1, MILsm8RImageSums{});
  std::fill_n(self->pairSums, pairLength(*self), MILsm8RPairSums{});
  Mvec8Real_setIdentity(&self->baseMotion);
  std::copy_n(kIdentity, 9, self->baseRotation);
  return ZELVAN_OK;
}

Status MILsm8R_changeImageNum(MILsm8R* self, int32_t imageCount) {
  if (const Status status = check(self); status != ZELVAN_OK) return status;
  MILsm8R fresh;
  construct(&fresh, self->env);
  if (const Status status = allocateArrays(&fresh, imageCount); status != ZELVAN_OK) return status;
  copyArrays(&fresh, *self);
  const Status status = recycle(self);
  self->imageCount = fresh.imageCount;
  self->angles = fresh.angles;
  self->imageSums = fresh.imageSums;
  self->pairSums = fresh.pairSums;
  self->constraintFlags = fresh.constraintFlags;
  return status;
}

Status MILsm8R_copy(MILsm8R* to, const MILsm8R* from) {
  if (const Status status = check(to) | check(from); status != ZELVAN_OK) return status;
  if (to->imageCount != from->imageCount) return ZELVAN_ERROR_STATE;
  if (to == from) return ZELVAN_OK;
  copyArrays(to, *from);
  // The rest of the record is plain values, except for what belongs to each.
  MILsm8R merged = *from;
  merged.angles = to->angles;
  merged.imageSums = to->imageSums;
  merged.pairSums = to->pairSums;
  merged.constraintFlags = to->constraintFlags;
  merged.env = to->env;
  *to = merged;
  return ZELVAN_OK;
}

Status MILsm8R_setCameraParam(MILsm8R* self, int32_t width, int32_t height, double fovDegrees) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  rotationSetCamera(self, width, height, fovDegrees);
  return ZELVAN_OK;
}

Status MILsm8R_add(MILsm8R* self, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by,
                   int32_t weight) {
  return MILsm8R_addReal(self, a, ax, ay, b, bx, by, weight);
}

Status MILsm8R_addF32(MILsm8R* self, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by,
                      int32_t weight) {
  return MILsm8R_addReal(self, a, ax * kQ15Unit, ay * kQ15Unit, b, bx * kQ15Unit, by * kQ15Unit, weight * kQ15Unit);
}

Status MILsm8R_addReal(MILsm8R* self, int32_t a, double ax, double ay, int32_t b, double bx, double by, double weight) {
  if (const Status status = check(self); status != ZELVAN_OK) return status;
  return addRays(self, a, unitRay(ax - self->cx, ay - self->cy, self->focalLength), b,
                 unitRay(bx - self->cx, by - self->cy, self->focalLength), weight);
}

Status MILsm8R_addRealOnSphere(MILsm8R* self, int32_t a, double ax, double ay, double az, int32_t b, double bx,
                               double by, double bz, double weight) {
  return addRays(self, a, unitRay(ax, ay, az), b, unitRay(bx, by, bz), weight);
}

Status MILsm8R_solve(MILsm8R* self) {
  if (const Status status = check(self); status != ZELVAN_OK) return status;
  return RotationSolver<Model>(self).run();
}

Status MILsm8R_getFailureCode(MILsm8R* self, int32_t* out) {
  if (self == nullptr || out == nullptr) return ZELVAN_ERROR_PARAM;
  *out = self->failureCode;
  return ZELVAN_OK;
}

Status MILsm8R_outputMvec(MILsm8R* self, Mvec8F32* out, int32_t image) {
  if (out == nullptr) return ZELVAN_ERROR_PARAM;
  Mvec8Real real;
  if (const Status status = MILsm8R_outputMvecReal(self, &real, image); status != ZELVAN_OK) return status;
  toQ15(real, out);
  return ZELVAN_OK;
}

Status MILsm8R_outputMvecReal(MILsm8R* self, Mvec8Real* out, int32_t image) {
  if (out == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status status = checkImage(self, image); status != ZELVAN_OK) return status;
  if (image == 0) return Mvec8Real_setIdentity(out);
  rotationOutput(*self, out, image);
  if (self->baseRotationSet == 0) return ZELVAN_OK;
  Mvec8Real inverse;
  const Status status = Mvec8Real_inv(&inverse, &self->baseMotion);
  return status | Mvec8Real_mult(out, out, &inverse);
}

Status MILsm8R_outputRotationMatrix(MILsm8R* self, double* out, int32_t image) {
  if (out == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status status = checkImage(self, image); status != ZELVAN_OK) return status;
  if (image == 0) {
    std::copy_n(kIdentity, 9, out);
    return ZELVAN_OK;
  }
  const double* angles = self->angles + (image - 1) * 3;
  return Mvec8Real_rotationFromAngles(out, 0, -angles[0], -angles[1], -angles[2]);
}

Status MILsm8R_setInitialMvec(MILsm8R*, const Mvec8F32*, int32_t) {
  return ZELVAN_OK;
}

Status MILsm8R_setInitialMvecReal(MILsm8R* self, const Mvec8Real* mvec, int32_t image) {
  if (mvec == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status status = checkImage(self, image); status != ZELVAN_OK) return status;
  if (image == 0) {
    self->baseMotion = *mvec;
    Mvec8Real inverse;
    const Status status = Mvec8Real_inv(&inverse, mvec);
    return status |
           Mvec8Real_estimateRotationMatrix(self->baseRotation, &inverse, self->width, self->height, self->fovDegrees);
  }
  Mvec8Real motion = *mvec;
  Status status = ZELVAN_OK;
  if (self->baseRotationSet == 0) {
    Mvec8Real inverse;
    status |= Mvec8Real_inv(&inverse, &self->baseMotion);
    status |= Mvec8Real_mult(&motion, &motion, &inverse);
  }
  return status | rotationSetInitial(self, motion, image);
}

Status MILsm8R_calcRotMat(const MILsm8R* camera, double* matrix, const Mvec8Real* mvec) {
  if (camera == nullptr || matrix == nullptr || mvec == nullptr) return ZELVAN_ERROR_PARAM;
  rotationFromMotion({camera->focalLength, camera->cx, camera->cy}, mvec->h, matrix);
  return ZELVAN_OK;
}

Status MILsm8R_clearBlock(MILsm8R*, int32_t, int32_t) {
  return ZELVAN_ERROR_UNSUPPORTED;
}

const MILsmVariant kMILsm8R = {
    sizeof(MILsm8R),
    {
        kMilsmSlot<&construct>,
        kMilsmSlot<&destruct>,
        kMilsmSlot<&MILsm8R_init>,
        kMilsmSlot<&MILsm8R_clear>,
        kMilsmSlot<&MILsm8R_changeImageNum>,
        milsmCopySlot<MILsm8R, &MILsm8R_copy>,
        kMilsmSlot<&MILsm8R_add>,
        kMilsmSlot<&MILsm8R_addF32>,
        kMilsmSlot<&MILsm8R_addReal>,
        kMilsmSlot<&MILsm8R_solve>,
        kMilsmSlot<&MILsm8R_outputMvec>,
        kMilsmSlot<&MILsm8R_outputMvecReal>,
        kMilsmSlot<&MILsm8R_setInitialMvec>,
        kMilsmSlot<&MILsm8R_setInitialMvecReal>,
        kMilsmSlot<&MILsm8R_setCameraParam>,
        kMilsmSlot<&MILsm8R_getFailureCode>,
        kMilsmSlot<&MILsm8R_clearBlock>,
    },
};
