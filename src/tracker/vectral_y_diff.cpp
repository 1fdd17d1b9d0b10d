// How well a level of the frame fits that of the base under a motion.
#include "base/integer.h"
#include "tracker/vectral.h"

namespace {

struct Corner {
  int32_t x;  // Q15, in the frame
  int32_t y;
};

struct CellSums {
  int64_t base;
  int64_t frame;
  int64_t squares;  // of differences
  int32_t samples;

  void add(int32_t a, int32_t b) {
    base += a;
    frame += b;
    squares += int64_t{a - b} * (a - b);
    ++samples;
  }
};

// Whether the 2x2 pixels of a sample lie within the image.
bool isInside(const Image* image, const Corner& at) {
  const int32_t x = at.x >> 15;
  const int32_t y = at.y >> 15;
  return x >= 0 && y >= 0 && x < image->width - 1 && y < image->height - 1;
}

template <int32_t Bits>
int32_t sample(const Image* image, const Corner& at) {
  constexpr int64_t kOne = int64_t{1} << Bits;
  const int64_t fx = (at.x & 0x7FFF) >> (15 - Bits);
  const int64_t fy = (at.y & 0x7FFF) >> (15 - Bits);
  const uint8_t* const upper = imageRow(image, at.y >> 15) + (at.x >> 15);
  const uint8_t* const lower = upper + image->pitch0;
  const int64_t top = upper[0] * (kOne - fx) + upper[1] * fx;
  const int64_t bottom = lower[0] * (kOne - fx) + lower[1] * fx;
  return static_cast<int32_t>((top * (kOne - fy) + bottom * fy) >> (2 * Bits));
}

Corner between(const Corner& a, const Corner& b, int32_t step, int32_t shift) {
  const int64_t rest = (int64_t{1} << shift) - step;
  return {static_cast<int32_t>((a.x * rest + int64_t{b.x} * step) >> shift),
          static_cast<int32_t>((a.y * rest + int64_t{b.y} * step) >> shift)};
}

// Upper left, upper right, lower left, lower right.
template <typename Visit>
void forSamples(const Corner* corners, int32_t shift, const Visit& visit) {
  const int32_t cell = 1 << shift;
  for (int32_t v = 0; v < cell; ++v) {
    const Corner left = between(corners[0], corners[2], v, shift);
    const Corner right = between(corners[1], corners[3], v, shift);
    for (int32_t u = 0; u < cell; ++u) visit(u, v, between(left, right, u, shift));
  }
}

struct Total {
  int64_t variance;
  int64_t samples;
};

// Samples lie between the corners, so a cell whose corners are inside needs no test.
void addCell(Total* total, const Image* base, const Image* frame, const Corner* corners, int32_t x, int32_t y,
             int32_t shift) {
  bool inside = true;
  for (int32_t i = 0; i < 4; ++i) inside = inside && isInside(frame, corners[i]);
  CellSums sums = {};
  forSamples(corners, shift, [&](int32_t u, int32_t v, const Corner& at) {
    const int32_t a = imageRow(base, y + v)[x + u];
    if (inside) {
      sums.add(a, sample<8>(frame, at));
    } else if (isInside(frame, at)) {
      sums.add(a, sample<15>(frame, at));
    }
  });
  if (sums.samples == 0) return;
  const int64_t difference = sums.base - sums.frame;
  const int64_t square = difference * difference;
  total->variance += sums.squares - (inside ? square >> (2 * shift) : square / sums.samples);
  total->samples += sums.samples;
}

bool hasLevel(const Image* image) {
  return image->plane0 != nullptr && image->format == IMAGE_UINT8;
}

}  // namespace

Status Vectral_calcYDiff(Vectral* self, int32_t* out, const Mvec8Real* motion, int32_t level, int32_t cell,
                         int32_t shift) {
  if (self == nullptr || out == nullptr || motion == nullptr) return ZELVAN_ERROR_PARAM;
  if (self->state != VECTRAL_BASED || self->baseImages == nullptr) return ZELVAN_ERROR_STATE;
  if (level < 0 || level >= self->resoNum || shift < 0 || shift > 14 || cell != 1 << shift) return ZELVAN_ERROR_PARAM;
  const Image* const base = &self->baseImages[level];
  const Image* const frame = &self->curImages[level];
  if (!hasLevel(base) || !hasLevel(frame)) return ZELVAN_ERROR_UNSUPPORTED;
  const int32_t columns = base->width >> shift;
  const int32_t rows = base->height >> shift;
  const ScopedBlock<Corner> corners(self->env, static_cast<size_t>(columns) + 2);
  if (!corners) return ZELVAN_ERROR_NOMEM;

  Status status = ZELVAN_OK;
  const auto cornerAt = [&](int32_t column, int32_t row) {
    Corner corner = {};
    status |= Mvec8Real_trans2DF32(motion, &corner.x, &corner.y, wrapShl(column, shift + 15), wrapShl(row, shift + 15));
    return corner;
  };
  for (int32_t i = 0; i <= columns; ++i) corners[i] = cornerAt(i, 0);
  Total total = {};
  for (int32_t row = 0; row < rows; ++row) {
    // The block holds the upper corners; the lower ones take their place from left to right.
    Corner lowerLeft = cornerAt(0, row + 1);
    for (int32_t column = 0; column < columns; ++column) {
      const Corner lowerRight = cornerAt(column + 1, row + 1);
      const Corner square[4] = {corners[column], corners[column + 1], lowerLeft, lowerRight};
      addCell(&total, base, frame, square, column << shift, row << shift, shift);
      corners[column] = lowerLeft;
      lowerLeft = lowerRight;
    }
    corners[columns] = lowerLeft;
  }
  *out = total.samples != 0 ? static_cast<int32_t>(total.variance / total.samples) : 0x40000000;
  return status;
}
