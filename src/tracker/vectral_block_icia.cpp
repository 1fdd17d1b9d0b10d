// Inverse compositional image alignment of a 7x7 block in pure translation.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "base/integer.h"
#include "tracker/vectral_block.h"

namespace {

constexpr int32_t kSide = 7;
constexpr int32_t kMargin = 3;
constexpr int32_t kMaxIterations = 20;
constexpr int32_t kMaxEnergyRatioLog2 = 5;
constexpr int32_t kMinEnergy = 32;

// The gradients as the sums want them: one plane each, rows of eight whose last item is 0.
struct Gradients {
  int16_t x[kSide][kSide + 1];
  int16_t y[kSide][kSide + 1];
};

struct CornerSum {
  int32_t x;
  int32_t y;
};

void gatherGradients(const VectralBlockICIA7x7* block, Gradients* out) {
  for (int32_t r = 0; r < kSide; ++r) {
    for (int32_t c = 0; c < kSide; ++c) {
      out->x[r][c] = static_cast<int16_t>(block->grad[r][c][0]);
      out->y[r][c] = static_cast<int16_t>(block->grad[r][c][1]);
    }
    out->x[r][kSide] = 0;
    out->y[r][kSide] = 0;
  }
}

// Sums of gradient x pixel over the window with this top left corner.
CornerSum correlate(const Gradients& gradients, const Image* image, int32_t left, int32_t top) {
  int16_t window[kSide][kSide + 1];
  for (int32_t r = 0; r < kSide; ++r) {
    const uint8_t* const row = imageRow(image, top + r) + left;
    for (int32_t c = 0; c < kSide; ++c) window[r][c] = row[c];
    window[r][kSide] = 0;
  }
  int32_t x = 0;
  int32_t y = 0;
  for (int32_t r = 0; r < kSide; ++r) {
    for (int32_t c = 0; c < kSide + 1; ++c) x += gradients.x[r][c] * window[r][c];
    for (int32_t c = 0; c < kSide + 1; ++c) y += gradients.y[r][c] * window[r][c];
  }
  return {x, y};
}

// The sums at the four whole-pixel corners round a position: sums[a][b] stands for (left + a, top + b).
class CornerSums {
 public:
  CornerSums(const VectralBlockICIA7x7* block, const Image* image, int32_t left, int32_t top) : image_(image) {
    gatherGradients(block, &gradients_);
    for (int32_t a = 0; a < 2; ++a) {
      for (int32_t b = 0; b < 2; ++b) sums_[a][b] = correlate(gradients_, image, left + a, top + b);
    }
  }

  // To a new corner (left, top) that is (dx, dy) away from the old one, each -1 to 1. Sums that both share move over.
  void move(int32_t left, int32_t top, int32_t dx, int32_t dy) {
    CornerSum moved[2][2];
    for (int32_t a = 0; a < 2; ++a) {
      for (int32_t b = 0; b < 2; ++b) {
        const int32_t fromA = a + dx;
        const int32_t fromB = b + dy;
        const bool shared = fromA >= 0 && fromA < 2 && fromB >= 0 && fromB < 2;
        moved[a][b] = shared ? sums_[fromA][fromB] : correlate(gradients_, image_, left + a, top + b);
      }
    }
    std::copy_n(&moved[0][0], 4, &sums_[0][0]);
  }

  // Bilinear value at (fx, fy) / 32, times 32. With true gradients below 2^28.
  CornerSum at(int32_t fx, int32_t fy) const {
    return {blend(sums_[0][0].x, sums_[1][0].x, sums_[0][1].x, sums_[1][1].x, fx, fy),
            blend(sums_[0][0].y, sums_[1][0].y, sums_[0][1].y, sums_[1][1].y, fx, fy)};
  }

 private:
  static int32_t blend(int32_t s00, int32_t s10, int32_t s01, int32_t s11, int32_t fx, int32_t fy) {
    const int32_t upper = wrapAdd(wrapMul(32 - fx, s00), wrapMul(fx, s10)) >> 5;
    const int32_t lower = wrapAdd(wrapMul(32 - fx, s01), wrapMul(fx, s11)) >> 5;
    return wrapAdd(wrapMul(upper, 32 - fy), wrapMul(lower, fy));
  }

  Gradients gradients_;
  CornerSum sums_[2][2];
  const Image* image_;
};

// A coordinate that has left 0 to 31 carries over into the whole pixels. Returns the carry.
int32_t carry(int32_t* fraction) {
  const int32_t whole = *fraction >= 32 ? 1 : *fraction < 0 ? -1 : 0;
  *fraction -= 32 * whole;
  return whole;
}

// Gauss-Newton from the Q15 prediction. False: lost. Else *x, *y are the position of the window's corner in 1/32 pixel.
bool findCorner(const VectralBlockICIA7x7* block, const Image* image, int32_t radius, int32_t* x, int32_t* y) {
  int32_t left = (*x >> 15) - kMargin;
  int32_t top = (*y >> 15) - kMargin;
  int32_t fx = (*x & 0x7FFF) >> 10;
  int32_t fy = (*y & 0x7FFF) >> 10;
  // The sums read eight columns and rows from the corner on.
  const int32_t minLeft = std::max(wrapSub(left, radius), 0);
  const int32_t minTop = std::max(wrapSub(top, radius), 0);
  const int32_t maxLeft = std::min(wrapAdd(left, radius), image->width - (kSide + 1));
  const int32_t maxTop = std::min(wrapAdd(top, radius), image->height - (kSide + 1));
  const auto inRange = [&] { return left >= minLeft && left <= maxLeft && top >= minTop && top <= maxTop; };
  if (!inRange()) return false;
  if (block->hessX <= 0 || block->hessY <= 0) return false;  // from a damaged dump: no such block is ever made

  CornerSums sums(block, image, left, top);
  int32_t prevX = -0x40000000, prevY = -0x40000000;
  int32_t prev2X = -0x40000000, prev2Y = -0x40000000;
  for (int32_t i = 0; i < kMaxIterations; ++i) {
    const CornerSum sum = sums.at(fx, fy);
    fx += clampInt(wrapSub(sum.x, block->selfX) / block->hessX, -32, 32);
    fy += clampInt(wrapSub(sum.y, block->selfY) / block->hessY, -32, 32);
    *x = fx + 32 * left;
    *y = fy + 32 * top;
    if (*x == prevX && *y == prevY) return true;
    if (*x == prev2X && *y == prev2Y) return false;
    const int32_t dx = carry(&fx);
    const int32_t dy = carry(&fy);
    left += dx;
    top += dy;
    if (!inRange()) return false;
    if (dx != 0 || dy != 0) sums.move(left, top, dx, dy);
    prev2X = prevX;
    prev2Y = prevY;
    prevX = *x;
    prevY = *y;
  }
  return false;
}

}  // namespace

Status VectralBlockICIA7x7_init(void* block, const Image* image, int32_t x, int32_t y, int32_t /*strength*/) {
  auto* const self = static_cast<VectralBlockICIA7x7*>(block);
  int32_t energyX = 0;
  int32_t energyY = 0;
  int32_t selfX = 0;  // sum of gradient x pixel: inside the block the products cancel in pairs
  int32_t selfY = 0;
  const int32_t left = x - kMargin;
  for (int32_t r = 0; r < kSide; ++r) {
    const int32_t v = y - kMargin + r;
    const uint8_t* const above = imageRow(image, v - 1) + left;
    const uint8_t* const row = imageRow(image, v) + left;
    const uint8_t* const below = imageRow(image, v + 1) + left;
    for (int32_t c = 0; c < kSide; ++c) {
      const int32_t gx = row[c - 1] - row[c + 1];
      const int32_t gy = above[c] - below[c];
      self->grad[r][c][0] = gx;
      self->grad[r][c][1] = gy;
      energyX += gx * gx;
      energyY += gy * gy;
    }
    selfX += row[0] * row[-1] - row[kSide - 1] * row[kSide];
  }
  const uint8_t* const outerTop = imageRow(image, y - kMargin - 1) + left;
  const uint8_t* const top = imageRow(image, y - kMargin) + left;
  const uint8_t* const bottom = imageRow(image, y + kMargin) + left;
  const uint8_t* const outerBottom = imageRow(image, y + kMargin + 1) + left;
  for (int32_t c = 0; c < kSide; ++c) selfY += outerTop[c] * top[c] - outerBottom[c] * bottom[c];

  if (energyX < (energyY >> kMaxEnergyRatioLog2) || energyY < (energyX >> kMaxEnergyRatioLog2)) {
    return ZELVAN_ERROR_GENERAL;
  }
  if (energyX < kMinEnergy || energyY < kMinEnergy) return ZELVAN_ERROR_GENERAL;
  self->selfX = selfX * 32;
  self->selfY = selfY * 32;
  self->hessX = energyX >> 1;
  self->hessY = energyY >> 1;
  return ZELVAN_OK;
}

Status VectralBlockICIA7x7_alignment(const void* block, const Image* image, int32_t* x, int32_t* y,
                                     const int32_t* range, int32_t* /*rel*/) {
  int32_t cornerX = *x;
  int32_t cornerY = *y;
  if (findCorner(static_cast<const VectralBlockICIA7x7*>(block), image, *range, &cornerX, &cornerY)) {
    *x = wrapAdd(wrapShl(cornerX, 10), kMargin << 15);
    *y = wrapAdd(wrapShl(cornerY, 10), kMargin << 15);
  } else {
    *x = VECTRAL_POS_LOST;
    *y = VECTRAL_POS_LOST;
  }
  return ZELVAN_OK;
}

namespace {

// The packed form. Gradients have nine bits: the upper eight as a signed byte each, the lowest bits seven to a byte.
struct Packed {
  int16_t x;
  int16_t y;
  int16_t strength;
  int16_t padding;
  int32_t selfX;
  int32_t selfY;
  int32_t hessX;
  int32_t hessY;
  int8_t upper[98];
  uint8_t lowest[14];
};
static_assert(sizeof(Packed) == 136 && offsetof(Packed, upper) == 24 && offsetof(Packed, lowest) == 122);

}  // namespace

int32_t VectralBlockICIA7x7_getPackedSize(const void* /*block*/) {
  return sizeof(Packed);
}

Status VectralBlockICIA7x7_pack(void* block, void* out, int32_t x, int32_t y, int32_t strength) {
  const auto* const self = static_cast<const VectralBlockICIA7x7*>(block);
  Packed packed = {static_cast<int16_t>(x),
                   static_cast<int16_t>(y),
                   static_cast<int16_t>(strength),
                   0,
                   self->selfX,
                   self->selfY,
                   self->hessX,
                   self->hessY,
                   {},
                   {}};
  const int32_t* const gradients = &self->grad[0][0][0];
  for (int32_t i = 0; i < 98; ++i) {
    packed.upper[i] = static_cast<int8_t>(gradients[i] >> 1);
    packed.lowest[i / 7] |= static_cast<uint8_t>((gradients[i] & 1) << (6 - i % 7));
  }
  std::memcpy(out, &packed, sizeof(packed));
  return ZELVAN_OK;
}

Status VectralBlockICIA7x7_unpack(void* block, int32_t* x, int32_t* y, int32_t* strength, const void* in) {
  auto* const self = static_cast<VectralBlockICIA7x7*>(block);
  Packed packed;
  std::memcpy(&packed, in, sizeof(packed));
  *x = packed.x;
  *y = packed.y;
  *strength = packed.strength;
  self->selfX = packed.selfX;
  self->selfY = packed.selfY;
  self->hessX = packed.hessX;
  self->hessY = packed.hessY;
  int32_t* const gradients = &self->grad[0][0][0];
  for (int32_t i = 0; i < 98; ++i) gradients[i] = packed.upper[i] * 2 + ((packed.lowest[i / 7] >> (6 - i % 7)) & 1);
  return ZELVAN_OK;
}
