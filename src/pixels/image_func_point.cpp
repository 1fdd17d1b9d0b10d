#include <cstdlib>

#include "base/cpu_level.h"
#include "base/integer.h"
#include "base/raw_double.h"
#include "parallel/bands.h"
#include "parallel/pel_kernel.h"
#include "pixels/image_func.h"

namespace {

struct TableJob {
  Image* dst;
  const Image* src;
  const uint8_t* table;
};

Status tableRow(TableJob* job, int32_t y, const PelContext*) {
  uint8_t* dst = imageRow(job->dst, y);
  const uint8_t* src = imageRow(job->src, y);
  for (int32_t x = 0; x < job->dst->width; ++x) dst[x] = job->table[src[x]];
  return ZELVAN_OK;
}

constexpr PelKernel kTableRow = pelIndexed<TableJob, tableRow>();

// What a chroma difference adds to a luma difference in each colour: at most 450 either way.
struct ColourShift {
  int32_t red;
  int32_t green;
  int32_t blue;
};

// Colour distance, V-first and U-first chroma. The two forms differ by one in their coefficients and by a term in their
// rounding.
struct VuDistance {
  static constexpr int32_t kU = 1;
  static constexpr int32_t kV = 0;

  ALWAYS_INLINE static ColourShift shift(int32_t dU, int32_t dV) {
    return {(dV * 45940 + 16384) >> 15, ((dU * -11272 + 16384) >> 15) + ((dV * -23396 + 16384) >> 15),
            (dU * 58064 + 16384) >> 15};
  }
  ALWAYS_INLINE static uint8_t of(int32_t dY, int32_t red, int32_t green, int32_t blue, const int32_t* weights) {
    const int32_t weightedRed = wrapMul(std::abs(dY + red), weights[0]) >> 13;
    const int32_t absGreen = std::abs(dY + green);
    const int32_t m = weightedRed > absGreen ? weightedRed : absGreen;
    const int32_t n = std::abs(dY + blue);
    const int32_t greenOrRed = wrapMul(m, weights[1]) >> 13;
    const int32_t weightedBlue = wrapMul(n, weights[2]) >> 13;
    return clampByte(greenOrRed < weightedBlue ? weightedBlue : greenOrRed);
  }
};

struct UvDistance {
  static constexpr int32_t kU = 0;
  static constexpr int32_t kV = 1;

  ALWAYS_INLINE static ColourShift shift(int32_t dU, int32_t dV) {
    return {(dV * 45941 + 16384) >> 15, (dV * -23396 + dU * -11272 + 16384) >> 15, (dU * 58065 + 16384) >> 15};
  }
  ALWAYS_INLINE static uint8_t of(int32_t dY, int32_t red, int32_t green, int32_t blue, const int32_t*) {
    const int32_t p = dY + (std::abs(dY + red) < std::abs(dY + green) ? green : red);
    const int32_t q = dY + blue;
    const int32_t scaledP = (std::abs(p) * 900) >> 10;
    const int32_t scaledQ = (std::abs(q) * 900) >> 10;
    const int32_t out = scaledP < scaledQ ? scaledQ : scaledP;
    return static_cast<uint8_t>(out < 255 ? out : 255);
  }
};

// A row pair of an image, and the chroma that both rows share.
struct RowPair {
  const uint8_t* luma[2];
  const uint8_t* chroma;
};

// Two rows of 2 x pairs pixels, a tile at a time: its chroma first, then plain rows of luma.
template <typename Distance>
ALWAYS_INLINE void diffRowsBody(uint8_t* const* dst, const RowPair& a, const RowPair& b, const int32_t* weights,
                                int32_t pairs) {
  constexpr int32_t kTile = 128;
  for (int32_t begin = 0; begin < pairs; begin += kTile) {
    const int32_t count = pairs - begin < kTile ? pairs - begin : kTile;
    const uint8_t* __restrict aChroma = a.chroma + 2 * begin;
    const uint8_t* __restrict bChroma = b.chroma + 2 * begin;
    int16_t red[2 * kTile];
    int16_t green[2 * kTile];
    int16_t blue[2 * kTile];
    for (int32_t i = 0; i < count; ++i) {
      const ColourShift shift = Distance::shift(aChroma[2 * i + Distance::kU] - bChroma[2 * i + Distance::kU],
                                                aChroma[2 * i + Distance::kV] - bChroma[2 * i + Distance::kV]);
      red[2 * i] = red[2 * i + 1] = static_cast<int16_t>(shift.red);
      green[2 * i] = green[2 * i + 1] = static_cast<int16_t>(shift.green);
      blue[2 * i] = blue[2 * i + 1] = static_cast<int16_t>(shift.blue);
    }
    for (int32_t r = 0; r < 2; ++r) {
      uint8_t* __restrict out = dst[r] + 2 * begin;
      const uint8_t* __restrict aLuma = a.luma[r] + 2 * begin;
      const uint8_t* __restrict bLuma = b.luma[r] + 2 * begin;
      for (int32_t x = 0; x < 2 * count; ++x) {
        out[x] = Distance::of(aLuma[x] - bLuma[x], red[x], green[x], blue[x], weights);
      }
    }
  }
}
template <typename Distance>
constexpr CpuRow<diffRowsBody<Distance>> diffRows;

struct DiffBand {
  Image* dst;
  const Image* a;
  const Image* b;
  const int32_t* weights;
  int32_t begin;
  int32_t end;
};

template <typename Distance>
Status diffBand(DiffBand* band) {
  const int32_t width = band->dst->width;
  const int32_t last = band->dst->height - 1;
  for (int32_t y = band->begin; y < band->end; y += 2) {
    const int32_t lower = y + 1 < last ? y + 1 : last;
    uint8_t* rows[2] = {imageRow(band->dst, y), imageRow(band->dst, lower)};
    const auto rowPair = [&](const Image* image) {
      return RowPair{{imageRow(image, y), imageRow(image, lower)}, imageChromaRow(image, y >> 1)};
    };
    diffRows<Distance>(rows, rowPair(band->a), rowPair(band->b), band->weights, width / 2);
    if ((width & 1) != 0 && width > 1) {
      for (uint8_t* row : rows) row[width - 1] = row[width - 2];
    }
  }
  return ZELVAN_OK;
}

}  // namespace

Status Tessal4ImageFunc_table(Pel* pel, Image* dst, const Image* src, const uint8_t* table) {
  TableJob job = {dst, src, table};
  return executeToEnd(pel, &kTableRow, &job, dst->height);
}

Status Tessal4ImageFunc_diff(ParallelExecutor* executor, Image* dst, const Image* a, const Image* b,
                             const int32_t* weights) {
  const bool vu = a->format == IMAGE_YVU420_SEMIPLANAR;
  if (!vu && a->format != IMAGE_YUV420_SEMIPLANAR) return ZELVAN_ERROR_UNSUPPORTED;
  constexpr int32_t kSlices = 4;
  const int32_t height = dst->height;
  const int32_t rows = ((height + 3) / 4 + 3) & ~3;
  const auto make = [&](int32_t i) {
    const int32_t begin = rows * i;
    const int32_t end = i == kSlices - 1 ? height - 1 : rows * (i + 1);
    return DiffBand{dst, a, b, weights, begin, end < height - 1 ? end : height - 1};
  };
  return vu ? forkBands<DiffBand, diffBand<VuDistance>>(executor, kSlices, make)
            : forkBands<DiffBand, diffBand<UvDistance>>(executor, kSlices, make);
}
