// The coarse search: a pure shift between two images of the coarsest level.
#include <algorithm>

#include "base/integer.h"
#include "tracker/square_spiral.h"
#include "tracker/vectral.h"
#include "tracker/vectral_util.h"

namespace {

struct Best {
  int32_t x;
  int32_t y;
  uint32_t sum;
  uint32_t area;
};

// Mean differences, compared without a division. Sums and areas of real levels exceed 32 bits here; the wrapped
// comparison is the one that counts.
bool beats(uint32_t sum, uint32_t area, const Best& best) {
  return sum * best.area < best.sum * area;
}

// The columns (or rows) of a that meet b displaced by d: `count` from aStart in a and bStart in b.
struct Overlap {
  int32_t count;
  int32_t aStart;
  int32_t bStart;
};

Overlap overlapOf(int32_t aSize, int32_t bSize, int32_t d) {
  const int32_t half = aSize >> 1;
  const int32_t before = std::min(d + half, half);
  const int32_t behind = std::min(aSize - half, bSize - (d + half));
  return {before + behind, half - before, d + half - before};
}

template <typename Pixel>
uint32_t rowDifference(const Pixel* a, const Pixel* b, int32_t count) {
  uint32_t sum = 0;
  for (int32_t x = 0; x < count; ++x) {
    const int32_t d = wrapSub(a[x], b[x]);
    sum += d < 0 ? 0u - static_cast<uint32_t>(d) : static_cast<uint32_t>(d);
  }
  return sum;
}

template <typename Pixel>
void visitCandidate(Best* best, const Image* a, const Image* b, int32_t dx, int32_t dy) {
  const Overlap columns = overlapOf(a->width, b->width, dx);
  const Overlap rows = overlapOf(a->height, b->height, dy);
  const uint32_t area = static_cast<uint32_t>(columns.count) * static_cast<uint32_t>(rows.count);
  uint32_t sum = 0;
  bool better = beats(sum, area, *best);
  for (int32_t y = 0; y < rows.count; ++y) {
    if (columns.count > 0) {
      sum += rowDifference(imageRow<Pixel>(a, rows.aStart + y) + columns.aStart,
                           imageRow<Pixel>(b, rows.bStart + y) + columns.bStart, columns.count);
    }
    better = beats(sum, area, *best);
    if (!better) return;
  }
  if (better) *best = {dx, dy, sum, area};
}

// The mean difference of the best candidate, scaled; *best starts at the predicted shift.
template <typename Pixel>
uint32_t search(Best* best, const Image* a, const Image* b, int32_t radius, int32_t startShift, int32_t resultShift) {
  best->area = static_cast<uint32_t>(a->width) * static_cast<uint32_t>(a->height);
  best->sum = best->area << startShift;
  squareSpiral(best->x, best->y, radius, [&](int32_t x, int32_t y) { visitCandidate<Pixel>(best, a, b, x, y); });
  return (best->sum << resultShift) / best->area;
}

}  // namespace

Status Vectral_coarseSearch(Vectral* self, Mvec8Real* motion, const Image* a, const Image* b) {
  if (self == nullptr || motion == nullptr || a == nullptr || b == nullptr) return ZELVAN_ERROR_PARAM;
  const int32_t w = a->width;
  const int32_t h = a->height;
  int32_t cx = 0;
  int32_t cy = 0;
  Status status = Mvec8Real_trans2D(motion, &cx, &cy, w / 2, h / 2);
  if (cx < 0 || cx >= w || cy < 0 || cy >= h) return status;
  if (a->plane0 == nullptr || b->plane0 == nullptr) return status | ZELVAN_ERROR_PARAM;

  const int32_t radius = wrapMul(std::min(w, h), self->coarseRange) >> 15;
  const int32_t x0 = cx - w / 2;
  const int32_t y0 = cy - h / 2;
  Best best = {x0, y0, 0, 1};
  uint32_t result = 0;
  if (a->format == IMAGE_UINT8 && b->format == IMAGE_UINT8) {
    result = search<uint8_t>(&best, a, b, radius, 8, 15);
  } else if (a->format == IMAGE_INT32 && b->format == IMAGE_INT32) {
    result = search<int32_t>(&best, a, b, radius, 16, 8);
  }
  const double sx = best.x - x0;
  const double sy = best.y - y0;
  if (int64_t{result} >= self->coarseLimit) {
    self->failureCode |= VECTRAL_FAIL_COARSE;
  } else if (self->lsmType != MILSM_8R) {
    motion->h[2] += sx;
    motion->h[5] += sy;
  } else {
    status |= VectralUtil_shift8R(motion, motion, sx, sy, b->width, b->height, self->fieldOfView);
  }
  self->coarseShiftX = sx;
  self->coarseShiftY = sy;
  return status;
}
