// Block matching: zero-mean sum of absolute differences over a square spiral of candidates.
#include <cstddef>
#include <cstring>
#include <utility>

#include "base/integer.h"
#include "tracker/square_spiral.h"
#include "tracker/vectral_block.h"

namespace {

constexpr int32_t kSide = 7;
constexpr int32_t kMargin = 3;
constexpr int32_t kNoCost = 49 << 24;  // a mean difference of 256 grey levels, which no candidate taken may reach

struct Candidate {
  int32_t x;
  int32_t y;
  int32_t cost;
};

// 1337 + 15381 / 32768 is 65536 / 49. sum <= 49 x 255: nothing overflows.
int32_t meanOfSum(int32_t sum) {
  return sum * 1337 + ((sum * 15381) >> 15);
}

bool windowFits(const Image* image, int32_t x, int32_t y) {
  return x >= kMargin && y >= kMargin && x < image->width - kMargin && y < image->height - kMargin;
}

const uint8_t* windowCorner(const Image* image, int32_t x, int32_t y) {
  return imageRow(image, y - kMargin) + (x - kMargin);
}

// The mean of a block read from a dump may be anything; with a true one all costs stay below 2^31.
void evaluate(const VectralBlockBM7x7* block, const Image* image, int32_t x, int32_t y, Candidate* best) {
  if (!windowFits(image, x, y)) return;
  const uint8_t* const window = windowCorner(image, x, y);
  int32_t sum = 0;
  for (int32_t v = 0; v < kSide; ++v) {
    const uint8_t* const row = window + static_cast<ptrdiff_t>(v) * image->pitch0;
    for (int32_t u = 0; u < kSide; ++u) sum += row[u];
  }
  const int32_t shift = wrapSub(meanOfSum(sum), block->meanStat);
  int32_t cost = 0;
  for (int32_t v = 0; v < kSide; ++v) {
    const uint8_t* const row = window + static_cast<ptrdiff_t>(v) * image->pitch0;
    const uint8_t* const own = block->pixels + v * kSide;
    uint32_t rowCost = 0;
    for (int32_t u = 0; u < kSide; ++u) {
      const int32_t difference = wrapAdd((own[u] - row[u]) * 65536, shift);
      rowCost += difference < 0 ? 0u - static_cast<uint32_t>(difference) : static_cast<uint32_t>(difference);
    }
    cost = wrapAdd(cost, static_cast<int32_t>(rowCost));
    if (cost >= best->cost) return;
  }
  *best = {x, y, cost};
}

// Whether a search of this radius round the pixel (x, y) stays in the image.
bool searchFits(const Image* image, int32_t x, int32_t y, int32_t radius) {
  return x - kMargin >= radius && y - kMargin >= radius && x + radius + kMargin < image->width &&
         y + radius + kMargin < image->height;
}

}  // namespace

Status VectralBlockBM7x7_init(void* block, const Image* image, int32_t x, int32_t y, int32_t /*strength*/) {
  if (!windowFits(image, x, y)) return ZELVAN_ERROR_GENERAL;
  auto* const self = static_cast<VectralBlockBM7x7*>(block);
  const uint8_t* const window = windowCorner(image, x, y);
  int32_t sum = 0;
  for (int32_t v = 0; v < kSide; ++v) {
    const uint8_t* const row = window + static_cast<ptrdiff_t>(v) * image->pitch0;
    for (int32_t u = 0; u < kSide; ++u) {
      self->pixels[v * kSide + u] = row[u];
      sum += row[u];
    }
  }
  self->meanStat = meanOfSum(sum);
  return ZELVAN_OK;
}

Status VectralBlockBM7x7_evalCandidate(const void* block, const Image* image, int32_t cx, int32_t cy, int32_t* bestX,
                                       int32_t* bestY, int32_t* bestCost) {
  Candidate best = {*bestX, *bestY, *bestCost};
  evaluate(static_cast<const VectralBlockBM7x7*>(block), image, cx, cy, &best);
  *bestX = best.x;
  *bestY = best.y;
  *bestCost = best.cost;
  return ZELVAN_OK;
}

Status VectralBlockBM7x7_alignment(const void* block, const Image* image, int32_t* x, int32_t* y, const int32_t* range,
                                   int32_t* /*rel*/) {
  const auto* const self = static_cast<const VectralBlockBM7x7*>(block);
  const int32_t px = *x >> 15;
  const int32_t py = *y >> 15;
  const int32_t radius = *range;
  if (!searchFits(image, px, py, radius)) return ZELVAN_OK;
  Candidate best = {px, py, kNoCost};
  squareSpiral(px, py, radius, [&](int32_t cx, int32_t cy) { evaluate(self, image, cx, cy, &best); });
  *x = wrapShl(best.x, 15);
  *y = wrapShl(best.y, 15);
  return ZELVAN_OK;
}

Status VectralBlockBM7x7_alignmentWithRel(const void* block, const Image* image, int32_t* x, int32_t* y,
                                          const int32_t* range, int32_t* rel) {
  const auto* const self = static_cast<const VectralBlockBM7x7*>(block);
  const int32_t px = *x >> 15;
  const int32_t py = *y >> 15;
  const int32_t radius = *range;
  if (!searchFits(image, px, py, radius)) return ZELVAN_OK;
  Candidate best = {px, py, kNoCost};
  Candidate second = best;
  squareSpiral(px, py, radius, [&](int32_t cx, int32_t cy) {
    evaluate(self, image, cx, cy, &second);
    if (second.cost < best.cost) std::swap(best, second);
  });
  *x = wrapShl(best.x, 15);
  *y = wrapShl(best.y, 15);
  if (rel != nullptr) *rel = clampInt(wrapSub(wrapAdd(second.cost, 0xFFFF), best.cost) >> 16, 0, 255);
  return ZELVAN_OK;
}

// Packed: 49 pixels, 3 bytes of padding, x, y, strength, mean: the record as it lies in memory.
static_assert(sizeof(VectralBlockBM7x7) == 68 && offsetof(VectralBlockBM7x7, x) == 52);

int32_t VectralBlockBM7x7_getPackedSize(const void* /*block*/) {
  return sizeof(VectralBlockBM7x7);
}

Status VectralBlockBM7x7_pack(void* block, void* out, int32_t x, int32_t y, int32_t strength) {
  auto* const self = static_cast<VectralBlockBM7x7*>(block);
  self->x = x;
  self->y = y;
  self->strength = strength;
  std::memcpy(out, self, sizeof(*self));
  std::memset(static_cast<uint8_t*>(out) + sizeof(self->pixels), 0, 3);  // equal blocks pack to equal bytes
  return ZELVAN_OK;
}

Status VectralBlockBM7x7_unpack(void* block, int32_t* x, int32_t* y, int32_t* strength, const void* in) {
  auto* const self = static_cast<VectralBlockBM7x7*>(block);
  std::memcpy(self, in, sizeof(*self));
  *x = self->x;
  *y = self->y;
  *strength = self->strength;
  return ZELVAN_OK;
}
