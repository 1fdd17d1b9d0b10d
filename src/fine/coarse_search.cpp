#include "fine/coarse_search.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/cpu_level.h"
#include "base/integer.h"
#include "base/raw_double.h"

namespace fine {
namespace {

constexpr int32_t kMeanRadius = 8;
constexpr double kDegree = 0.017453292519943295;
constexpr double kTurns[] = {0.0, -1.5, 1.5, -3.0, 3.0};
constexpr double kZooms[] = {1.0, 0.975, 1.025};

// Rows of a frame have room for the largest shift on both sides.
constexpr int32_t kMostReach = (kCoarsestSide + 7) / 8;
constexpr int32_t kMargin = 16;
constexpr int32_t kPitch = kCoarsestSide + 2 * kMargin;
static_assert(kMostReach <= kMargin);

struct Small {
  alignas(64) uint8_t rows[kCoarsestSide * kPitch];
  uint8_t* row(int32_t y) { return rows + y * kPitch + kMargin; }
  const uint8_t* row(int32_t y) const { return rows + y * kPitch + kMargin; }
};

// 128 + the pixel less its local mean, halved where it would not fit: clamped.
void flatten(Small* out, const Image& image) {
  const int32_t w = image.width;
  const int32_t h = image.height;
  int32_t sums[kCoarsestSide + 1];
  std::fill_n(out->rows, sizeof(out->rows), uint8_t{0});
  for (int32_t y = 0; y < h; ++y) {
    const int32_t top = std::max(0, y - kMeanRadius);
    const int32_t bottom = std::min(h, y + kMeanRadius + 1);
    sums[0] = 0;
    for (int32_t x = 0; x < w; ++x) {
      int32_t column = 0;
      for (int32_t j = top; j < bottom; ++j) column += imageRow(&image, j)[x];
      sums[x + 1] = sums[x] + column;
    }
    for (int32_t x = 0; x < w; ++x) {
      const int32_t left = std::max(0, x - kMeanRadius);
      const int32_t right = std::min(w, x + kMeanRadius + 1);
      const int32_t mean = (sums[right] - sums[left]) / ((right - left) * (bottom - top));
      out->row(y)[x] = clampByte(128 + imageRow(&image, y)[x] - mean);
    }
  }
}

// The motion of a form about the middle: pixels of the form to pixels of the base's level.
Mvec8Real formMotion(int32_t form, int32_t width, int32_t height) {
  const double angle = kTurns[form / 3] * kDegree;
  const double zoom = kZooms[form % 3];
  const double c = zoom * RawDouble_cos(angle);
  const double s = zoom * RawDouble_sin(angle);
  const double mx = 0.5 * (width - 1);
  const double my = 0.5 * (height - 1);
  return {{c, -s, mx - c * mx + s * my, s, c, my - s * mx - c * my, 0, 0, 1}, {}};
}

void drawForm(uint8_t* out, const Small& base, int32_t width, int32_t height, const Mvec8Real& motion) {
  std::fill_n(out, kCoarsestSide * kCoarsestSide, uint8_t{0});
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      double u, v;
      Mvec8Real_trans2DReal(&motion, &u, &v, x, y);
      const int32_t px = clampInt(truncToInt32(u * 256.0), 0, (width - 1) * 256);
      const int32_t py = clampInt(truncToInt32(v * 256.0), 0, (height - 1) * 256);
      const int32_t ix = std::min(px >> 8, width - 2);
      const int32_t iy = std::min(py >> 8, height - 2);
      const int32_t fx = px - ix * 256;
      const int32_t fy = py - iy * 256;
      const uint8_t* a = base.row(iy) + ix;
      const int32_t upper = a[0] * 256 + (a[1] - a[0]) * fx;
      const int32_t lower = a[kPitch] * 256 + (a[kPitch + 1] - a[kPitch]) * fx;
      out[y * kCoarsestSide + x] = static_cast<uint8_t>((upper * 256 + (lower - upper) * fy + 32768) >> 16);
    }
  }
}

// A form on the frame: of rows of kCoarsestSide bytes the mask, 255 or 0, takes what both show.
struct Overlap {
  const uint8_t* form;
  const uint8_t* frame;
  const uint8_t* mask;
  int32_t rows;
  uint32_t most;  // a sum above that need not be known
};

ALWAYS_INLINE uint32_t differenceOfRow(const uint8_t* __restrict a, const uint8_t* __restrict b,
                                       const uint8_t* __restrict mask) {
  int32_t sum = 0;
  for (int32_t x = 0; x < kCoarsestSide; ++x) {
    const auto p = static_cast<uint8_t>(a[x] & mask[x]);
    const auto q = static_cast<uint8_t>(b[x] & mask[x]);
    sum += std::abs(p - q);
  }
  return static_cast<uint32_t>(sum);
}

// Sum of the absolute differences, or of so many rows that it exceeds `most`.
ALWAYS_INLINE uint32_t differenceBody(const Overlap& overlap) {
  uint32_t sum = 0;
  for (int32_t y = 0; y < overlap.rows && sum <= overlap.most; ++y) {
    sum += differenceOfRow(overlap.form + y * kCoarsestSide, overlap.frame + y * kPitch, overlap.mask);
  }
  return sum;
}

constexpr CpuRow<differenceBody> kDifference;

struct Found {
  uint32_t score;  // mean absolute difference in 1/256
  int32_t form;
  int32_t dx;
  int32_t dy;
};

void keep(Found* found, int32_t* count, const Found& f) {
  for (int32_t i = 0; i < *count; ++i) {
    Found& other = found[i];
    if (other.form == f.form && std::abs(other.dx - f.dx) <= 2 && std::abs(other.dy - f.dy) <= 2) {
      if (f.score >= other.score) return;
      std::copy(found + i + 1, found + *count, found + i);
      --*count;
      break;
    }
  }
  int32_t at = *count;
  while (at > 0 && found[at - 1].score > f.score) --at;
  if (at >= kCandidates) return;
  if (*count < kCandidates) ++*count;
  std::copy_backward(found + at, found + *count - 1, found + *count);
  found[at] = f;
}

// What a shift may score and still matter: as good as the last that is kept, and not much worse than the best.
uint32_t mostScore(const Found* found, int32_t count) {
  if (count < 1) return 65280;
  const uint32_t most = found[0].score + found[0].score / 2 + 64;
  return count < kCandidates ? most : std::min(most, found[count - 1].score);
}

}  // namespace

void prepareCoarseBase(CoarseBase* base, const Image& coarsest) {
  Small flat;
  flatten(&flat, coarsest);
  base->width = coarsest.width;
  base->height = coarsest.height;
  for (int32_t form = 0; form < kForms; ++form) {
    drawForm(base->form[form], flat, base->width, base->height, formMotion(form, base->width, base->height));
  }
}

int32_t searchCoarse(Mvec8Real* candidates, const CoarseBase& base, const Image& coarsest) {
  Small frame;
  flatten(&frame, coarsest);
  const int32_t w = base.width;
  const int32_t h = base.height;
  const int32_t reach = (std::max(w, h) + 7) / 8;
  Found found[kCandidates];
  int32_t count = 0;
  alignas(64) uint8_t masks[2 * kMostReach + 1][kCoarsestSide] = {};
  for (int32_t dx = -reach; dx <= reach; ++dx) {
    std::fill(masks[dx + reach] + std::max(0, -dx), masks[dx + reach] + std::min(w, w - dx), uint8_t{255});
  }
  for (int32_t form = 0; form < kForms; ++form) {
    for (int32_t dy = -reach; dy <= reach; ++dy) {
      for (int32_t dx = -reach; dx <= reach; ++dx) {
        const int32_t top = std::max(0, -dy);
        const int32_t rows = std::min(h, h - dy) - top;
        const uint32_t area = static_cast<uint32_t>((w - std::abs(dx)) * rows);
        const uint32_t most = mostScore(found, count);
        const uint32_t sum = kDifference({base.form[form] + top * kCoarsestSide, frame.row(top + dy) + dx,
                                          masks[dx + reach], rows, most * area / 256});
        const uint32_t score = sum * 256 / area;
        if (score <= most) keep(found, &count, {score, form, dx, dy});
      }
    }
  }
  for (int32_t i = 0; i < count; ++i) {
    // Base to form, then the shift to the frame.
    Mvec8Real inverse;
    const Mvec8Real motion = formMotion(found[i].form, w, h);
    Mvec8Real_inv(&inverse, &motion);
    inverse.h[2] += found[i].dx;
    inverse.h[5] += found[i].dy;
    candidates[i] = inverse;
  }
  return count;
}

}  // namespace fine
