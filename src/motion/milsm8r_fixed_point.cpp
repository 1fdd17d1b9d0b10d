#include "motion/milsm8r_fixed_point.h"

#include "base/fixed_math.h"
#include "motion/rotation_record.h"
#include "motion/rotation_solver.h"

namespace {

constexpr int32_t kQ15Bits = 15;
constexpr int32_t kToPositionBits = 10;  // Q15 to 1/32
constexpr int32_t kProductShift = 8;
constexpr double kPositionUnits = 32.0;

struct Ray {
  int32_t d[3];
};

Ray rayOf(const MILsm8RFixedPoint& self, int32_t x, int32_t y) {
  return {{wrapSub(x >> kToPositionBits, self.fixedCx), wrapSub(y >> kToPositionBits, self.fixedCy),
           self.fixedFocalLength}};
}

void addProduct(int32_t* sum, int32_t a, int32_t b, int32_t weight) {
  *sum = wrapAdd(*sum, wrapMul(wrapMul(a, b) >> kProductShift, weight));
}

void addOwn(int32_t* own, const Ray& q, int32_t weight) {
  for (int a = 0; a < 3; ++a) {
    for (int b = a; b < 3; ++b) addProduct(own++, q.d[a], q.d[b], weight);
  }
}

void addCross(int32_t* cross, const Ray& p, const Ray& q, int32_t weight) {
  for (int a = 0; a < 3; ++a) {
    for (int b = 0; b < 3; ++b) addProduct(cross++, p.d[a], q.d[b], weight);
  }
}

struct Model {
  using Record = MILsm8RFixedPoint;
  static const FixedPairSums* pairSums(const Record& self) { return self.moments; }
  static double unit(const Record& self) {
    const double f = self.fixedFocalLength;
    return (1 << kProductShift) / kPositionUnits / (f * f);
  }
  static const uint8_t* constraintFlags(const Record&) { return nullptr; }
  static SineCosine sineCosine(double angle) {
    int32_t sine, cosine;
    mi_lsm_sincos(roundHalfAway(angle * kQ15One), &sine, &cosine);
    return {sine * kQ15Unit, cosine * kQ15Unit};
  }
  static double tableAngle(double angle) { return roundHalfAway(angle * kQ15One) * kQ15Unit; }
};

void roundCamera(MILsm8RFixedPoint* self) {
  self->fixedFocalLength = roundHalfAway(self->focalLength * kPositionUnits);
  self->fixedCx = roundHalfAway(self->cx * kPositionUnits);
  self->fixedCy = roundHalfAway(self->cy * kPositionUnits);
}

Status construct(MILsm8RFixedPoint* self, Env* env) {
  if (const Status status = pairwiseConstruct(self, env); status != ZELVAN_OK) return status;
  self->focalLength = 250.0;
  self->cx = 160.0;
  self->cy = 160.0;
  self->tolerance = 1.0 / 8192.0;
  roundCamera(self);
  return ZELVAN_OK;
}

Status add(MILsm8RFixedPoint* self, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx, int32_t by,
           int32_t weight) {
  const auto q15 = [](int32_t value) { return wrapShl(value, kQ15Bits); };
  return MILsm8RFixedPoint_accumDiagF32(self, a, q15(ax), q15(ay), b, q15(bx), q15(by), q15(weight));
}

Status addReal(MILsm8RFixedPoint* self, int32_t a, double ax, double ay, int32_t b, double bx, double by,
               double weight) {
  const auto q15 = [](double value) { return roundHalfAway(value * kQ15One); };
  return MILsm8RFixedPoint_accumDiagF32(self, a, q15(ax), q15(ay), b, q15(bx), q15(by), q15(weight));
}

Status outputReal(MILsm8RFixedPoint* self, Mvec8Real* out, int32_t image) {
  if (out == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status status = pairwiseCheckImage(self, image); status != ZELVAN_OK) return status;
  if (image == 0) return Mvec8Real_setIdentity(out);
  rotationOutput(*self, out, image);
  return ZELVAN_OK;
}

// Does nothing, as in MILsm8R.
Status setInitialMvec(MILsm8RFixedPoint*, const Mvec8F32*, int32_t) {
  return ZELVAN_OK;
}

Status setInitialMvecReal(MILsm8RFixedPoint* self, const Mvec8Real* mvec, int32_t image) {
  if (mvec == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status status = pairwiseCheckImage(self, image); status != ZELVAN_OK) return status;
  if (image == 0) return ZELVAN_ERROR_PARAM;  // there is no base motion
  return rotationSetInitial(self, *mvec, image);
}

}  // namespace

Status MILsm8RFixedPoint_setCameraParam(MILsm8RFixedPoint* self, int32_t width, int32_t height, double fovDegrees) {
  if (self == nullptr) return ZELVAN_ERROR_PARAM;
  rotationSetCamera(self, width, height, fovDegrees);
  roundCamera(self);
  return ZELVAN_OK;
}

Status MILsm8RFixedPoint_accumDiagF32(MILsm8RFixedPoint* self, int32_t a, int32_t ax, int32_t ay, int32_t b, int32_t bx,
                                      int32_t by, int32_t weight) {
  PointPair<int32_t> pair;
  if (const Status status = pairwiseSort(self, a, ax, ay, b, bx, by, &pair); status != ZELVAN_OK) return status;
  const Ray p = rayOf(*self, pair.lowX, pair.lowY), q = rayOf(*self, pair.highX, pair.highY);
  const int32_t w = weight >> kToPositionBits;
  FixedImageSums* sums = self->imageSums + (pair.high - 1);
  if (pair.low == 0) {
    addCross(sums->cross, p, q, w);
  } else {
    FixedPairSums* block = pairwiseBlock(self, pair.low, pair.high);
    block->count = wrapAdd(block->count, 1);
    addCross(block->cross, p, q, w);
    addOwn(self->imageSums[pair.low - 1].own, p, w);
  }
  addOwn(sums->own, q, w);
  return ZELVAN_OK;
}

Status MILsm8RFixedPoint_solve(MILsm8RFixedPoint* self) {
  if (const Status status = pairwiseCheck(self); status != ZELVAN_OK) return status;
  return RotationSolver<Model>(self).run();
}

const MILsmVariant kMILsm8RFixedPoint = {
    sizeof(MILsm8RFixedPoint),
    {
        kMilsmSlot<&construct>,
        kMilsmSlot<&pairwiseDestruct<MILsm8RFixedPoint>>,
        kMilsmSlot<&pairwiseInit<MILsm8RFixedPoint>>,
        kMilsmSlot<&pairwiseClear<MILsm8RFixedPoint>>,
        kMilsmSlot<&pairwiseChangeImageNum<MILsm8RFixedPoint>>,
        milsmCopySlot<MILsm8RFixedPoint, &pairwiseCopy<MILsm8RFixedPoint>>,
        kMilsmSlot<&add>,
        kMilsmSlot<&MILsm8RFixedPoint_accumDiagF32>,
        kMilsmSlot<&addReal>,
        kMilsmSlot<&MILsm8RFixedPoint_solve>,
        kMilsmSlot<&pairwiseOutput<MILsm8RFixedPoint, outputReal>>,
        kMilsmSlot<&outputReal>,
        kMilsmSlot<&setInitialMvec>,
        kMilsmSlot<&setInitialMvecReal>,
        kMilsmSlot<&MILsm8RFixedPoint_setCameraParam>,
        kMilsmSlot<&pairwiseFailureCode<MILsm8RFixedPoint>>,
        kMilsmSlot<&pairwiseClearNoBlock<MILsm8RFixedPoint>>,
    },
};
