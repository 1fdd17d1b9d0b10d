#include <cstdlib>

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

// Colour distance of a block whose four pixels share one chroma difference, V-first and U-first chroma. The two forms
// differ by one in their coefficients and by a term in their rounding.
struct VuDistance {
  static constexpr int32_t kU = 1;
  static constexpr int32_t kV = 0;
  int32_t red;
  int32_t green;
  int32_t blue;
  const int32_t* weights;

  VuDistance(int32_t dU, int32_t dV, const int32_t* w)
      : red((dV * 45940 + 16384) >> 15),
        green(((dU * -11272 + 16384) >> 15) + ((dV * -23396 + 16384) >> 15)),
        blue((dU * 58064 + 16384) >> 15),
        weights(w) {}

  uint8_t operator()(int32_t dY) const {
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
  int32_t red;
  int32_t green;
  int32_t blue;

  UvDistance(int32_t dU, int32_t dV, const int32_t*)
      : red((dV * 45941 + 16384) >> 15),
        green((dV * -23396 + dU * -11272 + 16384) >> 15),
        blue((dU * 58065 + 16384) >> 15) {}

  uint8_t operator()(int32_t dY) const {
    const int32_t p = dY + (std::abs(dY + red) < std::abs(dY + green) ? green : red);
    const int32_t q = dY + blue;
    const int32_t scaledP = (std::abs(p) * 900) >> 10;
    const int32_t scaledQ = (std::abs(q) * 900) >> 10;
    const int32_t out = scaledP < scaledQ ? scaledQ : scaledP;
    return static_cast<uint8_t>(out < 255 ? out : 255);
  }
};

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
    const uint8_t* aRows[2] = {imageRow(band->a, y), imageRow(band->a, lower)};
    const uint8_t* bRows[2] = {imageRow(band->b, y), imageRow(band->b, lower)};
    uint8_t* rows[2] = {imageRow(band->dst, y), imageRow(band->dst, lower)};
    const uint8_t* aChroma = imageChromaRow(band->a, y >> 1);
    const uint8_t* bChroma = imageChromaRow(band->b, y >> 1);
    for (int32_t x = 0; x + 1 < width; x += 2) {
      const Distance distance(aChroma[x + Distance::kU] - bChroma[x + Distance::kU],
                              aChroma[x + Distance::kV] - bChroma[x + Distance::kV], band->weights);
      for (int32_t r = 0; r < 2; ++r) {
        rows[r][x] = distance(aRows[r][x] - bRows[r][x]);
        rows[r][x + 1] = distance(aRows[r][x + 1] - bRows[r][x + 1]);
      }
    }
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
