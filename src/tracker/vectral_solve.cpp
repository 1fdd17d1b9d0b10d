// The solves that turn the block positions of a level into a motion. Sums are in floating point behind MILsm, so the
// order in which points are added, from the last to the first, is part of the result.
#include <algorithm>

#include "base/integer.h"
#include "base/raw_double.h"
#include "tracker/vectral.h"
#include "tracker/vectral_util.h"

namespace {

// A position in pixels to 1/32; the lower bits are dropped.
double toReal(int32_t q15) {
  return (q15 >> 15) + ((q15 & 0x7FFF) >> 10) / 32.0;
}

bool isActive(const VectralFPList* list, int32_t i) {
  return list->curX[i] >= 0;
}

// Solves from `start` into `out`, whatever the verdict; false when the solver failed.
bool runSolver(MILsm* lsm, const Mvec8Real* start, Mvec8Real* out, Status* status) {
  int32_t failure = MILSM_NOT_SOLVED;
  *status |= MILsm_setInitialMvecReal(lsm, start, 1);
  *status |= MILsm_solve(lsm);
  *status |= MILsm_outputMvecReal(lsm, out, 1);
  *status |= MILsm_getFailureCode(lsm, &failure);
  return failure == MILSM_CONVERGED;
}

void solveInto(Vectral* self, MILsm* lsm, const Mvec8Real* start, Mvec8Real* out, Status* status) {
  const Mvec8Real from = *start;
  if (!runSolver(lsm, &from, out, status)) self->failureCode |= VECTRAL_FAIL_SOLVER;
}

// Squared distance of two Q15 positions in units of 1/1024 square pixel.
int32_t squaredDistance(int32_t ax, int32_t ay, int32_t bx, int32_t by) {
  const int32_t dx = wrapSub(ax, bx) >> 10;
  const int32_t dy = wrapSub(ay, by) >> 10;
  return wrapAdd(wrapMul(dx, dx), wrapMul(dy, dy));
}

// Base and current position of one point as the two-pass solve sees them, in Q15.
struct PointPair {
  int32_t x;
  int32_t y;
  int32_t cx;
  int32_t cy;
};

int32_t twoPassWeight(int32_t strength) {
  return clampInt(strength, -127, 127) * 256;
}

Status addPair(MILsm* lsm, const PointPair& p, int32_t strength) {
  return MILsm_addF32(lsm, 0, p.x, p.y, 1, p.cx, p.cy, twoPassWeight(strength));
}

// Gives the pairs of a list, through the lens functions if there are any.
class PairSource {
 public:
  PairSource(const Vectral* self, const VectralFPList* list, int32_t width, int32_t height)
      : self_(self), list_(list), width_(width), height_(height), scale_(1 / (RawDouble_hypot(width, height) * 0.5)) {}

  bool hasLens() const { return self_->lensContext != nullptr && self_->lensUndistort != nullptr; }

  // False for a point that takes no part.
  bool get(PointPair* pair, int32_t i) const {
    if (!isActive(list_, i)) return false;
    if (!hasLens()) {
      *pair = {wrapShl(list_->baseX[i], 15), wrapShl(list_->baseY[i], 15), list_->curX[i], list_->curY[i]};
      return true;
    }
    undistort(&pair->x, &pair->y, list_->baseX[i], list_->baseY[i]);
    undistort(&pair->cx, &pair->cy, list_->curX[i] / 32768, list_->curY[i] / 32768);
    return isInside(pair->x, width_) && isInside(pair->y, height_) && isInside(pair->cx, width_) &&
           isInside(pair->cy, height_);
  }

 private:
  // With a margin of three pixels.
  static bool isInside(int32_t q15, int32_t size) { return q15 >= 0x18000 && q15 < wrapShl(size, 15) - 0x18000; }

  void undistort(int32_t* outX, int32_t* outY, int32_t x, int32_t y) const {
    double u = 0;
    double v = 0;
    self_->lensUndistort(self_->lensContext, &u, &v, x, y, width_, height_, scale_);
    *outX = truncToInt32(u * 32768);
    *outY = truncToInt32(v * 32768);
  }

  const Vectral* self_;
  const VectralFPList* list_;
  int32_t width_;
  int32_t height_;
  double scale_;
};

Status addLevelPoint(MILsm* lsm, const VectralFPList* list, int32_t i, int32_t level) {
  const double factor = wrapShl(1, level);
  return MILsm_addReal(lsm, 0, wrapShl(list->baseX[i], level), wrapShl(list->baseY[i], level), 1,
                       toReal(list->curX[i]) * factor, toReal(list->curY[i]) * factor, list->strength[i]);
}

// One of the random samples; false when the solver made nothing of it.
bool solveSample(const VectralFPList* list, int32_t samples, uint32_t* seed, MILsm* lsm, const Mvec8Real* start,
                 Mvec8Real* trial, Status* status) {
  *status |= MILsm_clear(lsm);
  for (int32_t k = 0; k < samples; ++k) {
    const auto i = static_cast<int32_t>(*seed % static_cast<uint32_t>(list->count));
    *seed = *seed * *seed + *seed + 1;
    if (!isActive(list, i)) continue;
    *status |=
        MILsm_addReal(lsm, 0, list->baseX[i], list->baseY[i], 1, toReal(list->curX[i]), toReal(list->curY[i]), 1.0);
  }
  return runSolver(lsm, start, trial, status);
}

int32_t countAgreeing(const VectralFPList* list, const Mvec8Real* motion) {
  int32_t count = 0;
  for (int32_t i = list->count - 1; i >= 0; --i) {
    if (!isActive(list, i)) continue;
    int32_t px = 0;
    int32_t py = 0;
    Mvec8Real_trans2D(motion, &px, &py, list->baseX[i], list->baseY[i]);
    const int32_t distance = squaredDistance(list->curX[i], list->curY[i], wrapShl(px, 15), wrapShl(py, 15));
    count += (distance & 0x7FFFFC00) == 0;
  }
  return count;
}

}  // namespace

Status Vectral_solvePlain(Vectral* self, Mvec8Real* motion, VectralFPList* list, MILsm* lsm) {
  Status status = MILsm_clear(lsm);
  for (int32_t i = list->count - 1; i >= 0; --i) {
    if (!isActive(list, i)) continue;
    status |= MILsm_add(lsm, 0, list->baseX[i], list->baseY[i], 1, list->curX[i] >> 15, list->curY[i] >> 15, 1);
  }
  Status dropped = ZELVAN_OK;
  solveInto(self, lsm, motion, motion, &dropped);
  return status;
}

Status Vectral_solveWeighted(Vectral* self, Mvec8Real* motion, VectralFPList* list, MILsm* lsm) {
  Status status = MILsm_clear(lsm);
  for (int32_t i = list->count - 1; i >= 0; --i) {
    if (!isActive(list, i)) continue;
    status |= MILsm_addF32(lsm, 0, wrapShl(list->baseX[i], 15), wrapShl(list->baseY[i], 15), 1, list->curX[i],
                           list->curY[i], clampInt(list->strength[i], 0, 127) << 8);
    list->inlier[i] = 1;
  }
  solveInto(self, lsm, motion, motion, &status);
  return status;
}

// After Fischler and Bolles, "Random sample consensus", 1981, with a fixed number of trials.
Status Vectral_solveRandomSample(Vectral* self, Mvec8Real* motion, VectralFPList* list, MILsm* lsm) {
  constexpr int32_t kTrials = 256;
  // Callers that look at statuses stop at a frame in this mode.
  Status status = ZELVAN_ERROR_UNSUPPORTED;
  Mvec8Real best;
  Mvec8Real_setIdentity(&best);
  int32_t bestCount = 0;
  uint32_t seed = self->randomSeed;
  const int32_t samples = std::min(list->count, 16);
  for (int32_t iteration = 0; iteration < kTrials; ++iteration) {
    Mvec8Real trial = *motion;
    if (!solveSample(list, samples, &seed, lsm, motion, &trial, &status)) continue;
    const int32_t count = countAgreeing(list, &trial);
    if (count <= bestCount) continue;
    best = trial;
    bestCount = count;
  }
  if (bestCount == 0) self->failureCode |= VECTRAL_FAIL_SOLVER;
  *motion = best;
  self->randomSeed = seed;
  return status;
}

Status Vectral_solveTwoPass(Vectral* self, Mvec8Real* motion, VectralFPList* list, int32_t width, int32_t height,
                            MILsm* lsm) {
  const PairSource pairs(self, list, width, height);
  PointPair pair;
  Status status = MILsm_clear(lsm);
  for (int32_t i = list->count - 1; i >= 0; --i) {
    if (pairs.get(&pair, i)) status |= addPair(lsm, pair, list->strength[i]);
  }
  Mvec8Real first = *motion;
  if (!runSolver(lsm, motion, &first, &status)) {
    self->failureCode |= VECTRAL_FAIL_SOLVER;
    return status;
  }
  // Lens-corrected pairs, whose positions are whole pixels before the correction, get twice the tolerance and a fixed
  // limit.
  const int32_t shift = pairs.hasLens() ? 11 : 10;
  const int32_t limit = pairs.hasLens() ? 3 : self->inlierLimit;
  status |= MILsm_clear(lsm);
  for (int32_t i = list->count - 1; i >= 0; --i) {
    if (!pairs.get(&pair, i)) continue;
    int32_t px = 0;
    int32_t py = 0;
    status |= Mvec8Real_trans2DF32(&first, &px, &py, pair.x, pair.y);
    const bool inlier = (squaredDistance(pair.cx, pair.cy, px, py) >> shift) < limit;
    list->inlier[i] = inlier;
    if (inlier) status |= addPair(lsm, pair, list->strength[i]);
  }
  solveInto(self, lsm, &first, motion, &status);
  return status;
}

Status Vectral_solveHistoryWeighted(Vectral* self, Mvec8Real* motion, VectralFPList* list, MILsm* lsm) {
  Status status = MILsm_clear(lsm);
  for (int32_t i = list->count - 1; i >= 0; --i) {
    if (!isActive(list, i)) continue;
    double weight = 1.0;
    if (list->updateCount > 2) {
      const VectralFPHistory& history = list->history[i];
      weight = std::max(wrapSub(256, history.sum / std::max(history.count, 1)), 1);
    }
    status |=
        MILsm_addReal(lsm, 0, list->baseX[i], list->baseY[i], 1, toReal(list->curX[i]), toReal(list->curY[i]), weight);
  }
  solveInto(self, lsm, motion, motion, &status);
  return status;
}

Status Vectral_solveAllLevels(Vectral* self, Mvec8Real* motion, VectralFPList* list, MILsm* lsm) {
  if (self->fpLists == nullptr || list < self->fpLists || list >= self->fpLists + self->resoNum) {
    return ZELVAN_ERROR_UNSUPPORTED;
  }
  const auto levels = static_cast<int32_t>(self->fpLists + self->resoNum - 1 - list);
  Status status = MILsm_clear(lsm);
  for (int32_t level = 0; level < levels; ++level) {
    for (int32_t i = list[level].count - 1; i >= 0; --i) {
      if (isActive(&list[level], i)) status |= addLevelPoint(lsm, &list[level], i, level);
    }
  }
  Mvec8Real first = *motion;
  if (!runSolver(lsm, motion, &first, &status)) {
    self->failureCode |= VECTRAL_FAIL_SOLVER;
    return status;
  }
  status |= MILsm_clear(lsm);
  for (int32_t level = 0; level < levels; ++level) {
    VectralFPList* const points = &list[level];
    for (int32_t i = points->count - 1; i >= 0; --i) {
      if (!isActive(points, i)) continue;
      int32_t px = 0;
      int32_t py = 0;
      status |= Mvec8Real_trans2DF32(&first, &px, &py, wrapShl(points->baseX[i], level + 15),
                                     wrapShl(points->baseY[i], level + 15));
      // The current position stays at its own scale, so that of the coarser levels only points near the origin agree.
      if (squaredDistance(points->curX[i], points->curY[i], px, py) >> 11 != 0) continue;
      status |= addLevelPoint(lsm, points, i, level);
      points->inlier[i] = 1;
    }
  }
  solveInto(self, lsm, motion, motion, &status);
  return status;
}

Status Vectral_recalcMvec(Vectral* self, Mvec8Real* out, int32_t type) {
  if (self == nullptr || out == nullptr) return ZELVAN_ERROR_PARAM;
  if (self->state == VECTRAL_NEW || self->fpLists == nullptr) return ZELVAN_ERROR_STATE;
  const VectralFPList* const list = &self->fpLists[0];
  const Image* const image = &self->curImages[0];
  MILsm lsm;
  Status status = construct_MILsm(&lsm, self->env);
  const Scoped<MILsm, destruct_MILsm> guard(&lsm);
  status |= MILsm_init(&lsm, type, 2);
  status |= MILsm_setCameraParam(&lsm, image->width, image->height, self->fieldOfView);
  for (int32_t i = list->count - 1; i >= 0; --i) {
    if (!isActive(list, i) || list->inlier[i] == 0) continue;
    const PointPair pair = {wrapShl(list->baseX[i], 15), wrapShl(list->baseY[i], 15), list->curX[i], list->curY[i]};
    status |= addPair(&lsm, pair, list->strength[i]);
  }
  Mvec8Real result = self->mvec;
  if (!runSolver(&lsm, &self->mvec, &result, &status)) {
    self->failureCode |= VECTRAL_FAIL_SOLVER;
    return status;
  }
  return status | VectralUtil_similarTransform(out, &result, &self->rect, self->shrinkRatio, 0);
}

Status vectralSolve(Vectral* self, Mvec8Real* motion, VectralFPList* list, int32_t width, int32_t height, MILsm* lsm) {
  switch (self->solveMode) {
    case VECTRAL_SOLVE_WEIGHTED:
      return Vectral_solveWeighted(self, motion, list, lsm);
    case VECTRAL_SOLVE_RANDOM_SAMPLE:
      return Vectral_solveRandomSample(self, motion, list, lsm);
    case VECTRAL_SOLVE_TWO_PASS:
      return Vectral_solveTwoPass(self, motion, list, width, height, lsm);
    case VECTRAL_SOLVE_HISTORY_WEIGHTED:
      return Vectral_solveHistoryWeighted(self, motion, list, lsm);
    case VECTRAL_SOLVE_ALL_LEVELS:
      return Vectral_solveAllLevels(self, motion, list, lsm);
    default:
      return Vectral_solvePlain(self, motion, list, lsm);
  }
}
