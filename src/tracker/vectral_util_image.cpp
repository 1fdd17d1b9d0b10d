// The image operations of the pyramid: luma shrink, contrast, the next level, local contrast.
#include <algorithm>

#include "base/integer.h"
#include "image/image_conv.h"
#include "parallel/bands.h"
#include "tracker/vectral_util.h"

namespace {

constexpr int32_t kSixteenths = 16;

// A range of rows of one kernel run.
struct Rows {
  Image* dst;
  const Image* src;
  int32_t left;
  int32_t top;
  int32_t begin;
  int32_t end;
};

// Runs the first `count` sixteenths of the rows. With an executor that takes no tasks all of them stay undone, which
// shows in the status.
template <Status (*Body)(Rows*)>
Status forkSixteenths(ParallelExecutor* executor, int32_t count, const Rows& all) {
  if (const Status refusal = ParallelExecutor_getRefusal(executor); refusal != ZELVAN_OK) return refusal;
  const int64_t height = all.dst->height;
  return forkBands<Rows, Body>(executor, count, [&](int32_t k) {
    Rows rows = all;
    rows.begin = static_cast<int32_t>(k * height / kSixteenths);
    rows.end = static_cast<int32_t>((k + 1) * height / kSixteenths);
    return rows;
  });
}

void sampleRow2(uint8_t* __restrict dst, const uint8_t* upper, const uint8_t* lower, int32_t width) {
  for (int32_t x = 0; x < width; ++x) dst[x] = static_cast<uint8_t>((upper[2 * x] + lower[2 * x + 1]) >> 1);
}

template <int32_t Ratio>
void sampleRow4(uint8_t* __restrict dst, const uint8_t* upper, const uint8_t* lower, int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    const int32_t at = Ratio * x;
    dst[x] = static_cast<uint8_t>((upper[at] + upper[at + 2] + lower[at] + lower[at + 2]) >> 2);
  }
}

// Ratio 2 takes the diagonal of the 2x2 block, 3 and 4 the corners of the 3x3 block.
template <int32_t Ratio>
Status sampleRows(Rows* rows) {
  constexpr int32_t kReach = Ratio == 2 ? 1 : 2;
  for (int32_t y = rows->begin; y < rows->end; ++y) {
    const int32_t sourceY = rows->top + Ratio * y;
    const uint8_t* const upper = imageRow(rows->src, sourceY) + rows->left;
    const uint8_t* const lower = imageRow(rows->src, sourceY + kReach) + rows->left;
    if constexpr (Ratio == 2) {
      sampleRow2(imageRow(rows->dst, y), upper, lower, rows->dst->width);
    } else {
      sampleRow4<Ratio>(imageRow(rows->dst, y), upper, lower, rows->dst->width);
    }
  }
  return ZELVAN_OK;
}

void averageBlocks(Image* dst, const Image* src, const ImageRect* rect, int32_t r) {
  const uint32_t area = static_cast<uint32_t>(r) * static_cast<uint32_t>(r);
  const uint32_t reciprocal = 0x400000u / area;  // sum * reciprocal <= 255 * 2^22
  for (int32_t y = 0; y < dst->height; ++y) {
    uint8_t* const out = imageRow(dst, y);
    for (int32_t x = 0; x < dst->width; ++x) {
      uint32_t sum = 0;
      for (int32_t v = 0; v < r; ++v) {
        const uint8_t* const in = imageRow(src, rect->top + r * y + v) + rect->left + r * x;
        for (int32_t u = 0; u < r; ++u) sum += in[u];
      }
      out[x] = static_cast<uint8_t>((sum * reciprocal) >> 22);
    }
  }
}

bool hasLumaPlane(int32_t format) {
  return Image_isYuvPlanar(format) != 0 || Image_isYuvSemiplanar(format) != 0 || Image_isYvuSemiplanar(format) != 0 ||
         format == IMAGE_UINT8;
}

// Whether the samples at origin + reach, for a destination of count pixels at a step in Q15, lie within size.
bool samplesFit(int32_t origin, int32_t count, int64_t ratio, int32_t reach, int32_t size) {
  return count < 1 || (origin >= 0 && origin + ((int64_t{count} - 1) * ratio >> 15) + reach < size);
}
bool windowFits(const Image* dst, const Image* src, const ImageRect* rect, int32_t ratio, int32_t reach) {
  return samplesFit(rect->left, dst->width, ratio, reach, src->width) &&
         samplesFit(rect->top, dst->height, ratio, reach, src->height);
}

Status shrinkWhole(Image* dst, const Image* src, const ImageRect* rect, int32_t r, ParallelExecutor* executor) {
  const bool planar = hasLumaPlane(src->format);
  const bool direct = executor != nullptr && r > 1 && planar;
  // How far a block is read: two or four taps of a luma plane, its corner only, or all of it.
  const bool corner = planar && !direct && r >= 5;
  const int32_t reach = corner ? 0 : planar && r < 5 ? std::min(r - 1, 2) : r - 1;
  if (!windowFits(dst, src, rect, r << 15, reach)) return ZELVAN_ERROR_PARAM;
  if (!direct) {
    // The window that dst covers: Image_toYUint8Shrink would give dst the size of another one.
    const ImageRect covered = {rect->left, rect->top, rect->left + r * dst->width, rect->top + r * dst->height};
    return Image_toYUint8Shrink(dst, src, &covered, r);
  }
  const Rows all = {dst, src, rect->left, rect->top, 0, 0};
  const int32_t capacity = std::min(kSixteenths, ParallelExecutor_getNumberOfBands(executor));
  switch (r) {
    case 2:
      return forkSixteenths<sampleRows<2>>(executor, capacity, all);
    case 3:
      return forkSixteenths<sampleRows<3>>(executor, capacity, all);
    case 4:
      return forkSixteenths<sampleRows<4>>(executor, kSixteenths, all);
    default:
      averageBlocks(dst, src, rect, r);
      return ZELVAN_OK;
  }
}

int32_t steps(int32_t count, int32_t ratio, int32_t shift) {
  return static_cast<int32_t>(int64_t{count} * ratio >> shift);
}

// Both pixels of a pair take the luma samples of one group of four bytes.
Status sampleInterleaved422(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  int32_t y0 = 0, y1 = 0, u = 0, v = 0;
  if (const Status s = ImageYuv422Interleaved_getYuvIndex(&y0, &y1, &u, &v, src->format); s != ZELVAN_OK) return s;
  const int32_t start = (2 * rect->left) & ~3;
  const int32_t pairs = dst->width / 2;
  for (int32_t y = 0; y < dst->height; ++y) {
    uint8_t* const out = imageRow(dst, y);
    const uint8_t* const in = imageRow(src, rect->top + steps(y, ratio, 15)) + start;
    for (int32_t i = 0; i < pairs; ++i) {
      const uint8_t* const group = in + ptrdiff_t{4} * steps(2 * i, ratio, 16);
      out[2 * i] = group[y0];
      out[2 * i + 1] = group[y1];
    }
    if (dst->width % 2 != 0) {
      const int32_t last = dst->width - 1;
      out[last] = in[ptrdiff_t{4} * steps(last, ratio, 16) + y0];
    }
  }
  return ZELVAN_OK;
}

Status sampleNearest(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio) {
  const bool interleaved422 = Image_isYuv422Interleaved(src->format) != 0;
  const int32_t pixelBytes = src->format == IMAGE_YUV444_YUV ? 3 : 1;
  if (!hasLumaPlane(src->format) && pixelBytes == 1 && !interleaved422) return ZELVAN_ERROR_UNSUPPORTED;
  if (!windowFits(dst, src, rect, ratio, 0)) return ZELVAN_ERROR_PARAM;
  if (interleaved422) return sampleInterleaved422(dst, src, rect, ratio);
  for (int32_t y = 0; y < dst->height; ++y) {
    uint8_t* const out = imageRow(dst, y);
    const uint8_t* const in = imageRow(src, rect->top + steps(y, ratio, 15));
    for (int32_t x = 0; x < dst->width; ++x) out[x] = in[ptrdiff_t{pixelBytes} * (rect->left + steps(x, ratio, 15))];
  }
  return ZELVAN_OK;
}

// Both patterns of one pair of output columns; c is the column of the first.
void shrink2Row(uint8_t* __restrict dst, const uint8_t* r0, const uint8_t* r1, const uint8_t* r2, const uint8_t* r3,
                int32_t width) {
  const auto even = [&](int32_t c) {
    return static_cast<uint8_t>((r0[c + 2] + r1[c + 3] + 2 * r1[c + 1] + 2 * r2[c + 2] + r2[c] + r3[c + 1]) >> 3);
  };
  const auto odd = [&](int32_t c) {
    return static_cast<uint8_t>((r1[c] + r0[c + 1] + 2 * r1[c + 2] + 2 * r2[c + 1] + r2[c + 3] + r3[c + 2]) >> 3);
  };
  const int32_t pairs = width / 2;
  for (int32_t i = 0; i < pairs; ++i) {
    dst[2 * i] = even(4 * i);
    dst[2 * i + 1] = odd(4 * i + 2);
  }
  if (width % 2 != 0) dst[width - 1] = even(2 * (width - 1));
}

Status shrink2Rows(Rows* rows) {
  for (int32_t y = rows->begin; y < rows->end; ++y) {
    shrink2Row(imageRow(rows->dst, y), imageRow(rows->src, 2 * y), imageRow(rows->src, 2 * y + 1),
               imageRow(rows->src, 2 * y + 2), imageRow(rows->src, 2 * y + 3), rows->dst->width);
  }
  return ZELVAN_OK;
}

bool isReadableUint8(const Image* image) {
  return image != nullptr && image->format == IMAGE_UINT8 && image->plane0 != nullptr;
}

// Keeps a record that has the shape already, a foreign plane included.
Status shapeUint8(Image* image, int32_t width, int32_t height) {
  if (image->width == width && image->height == height && image->format == IMAGE_UINT8 && image->plane0 != nullptr) {
    return ZELVAN_OK;
  }
  return Image_init(image, width, height, nullptr, IMAGE_UINT8);
}

// Five rows from two above, all within the image: the bulk of a row has full windows.
void localYRow(uint8_t* __restrict dst, const uint8_t* const* rows, int32_t width) {
  for (int32_t x = 2; x < width - 2; ++x) {
    int32_t sum = 0;
    for (int32_t v = 0; v < 5; ++v) {
      const uint8_t* const in = rows[v] + x;
      sum += in[-2] + in[-1] + in[0] + in[1] + in[2];
    }
    dst[x] = clampByte(rows[2][x] - ((2621 * sum) >> 16) + 128);
  }
}

uint8_t localYCut(const Image* src, int32_t x, int32_t y) {
  const int32_t x0 = std::max(x - 2, 0), x1 = std::min(x + 2, src->width - 1);
  const int32_t y0 = std::max(y - 2, 0), y1 = std::min(y + 2, src->height - 1);
  int32_t sum = 0;
  for (int32_t v = y0; v <= y1; ++v) {
    for (int32_t u = x0; u <= x1; ++u) sum += imageRow(src, v)[u];
  }
  return clampByte(imageRow(src, y)[x] - sum / ((x1 - x0 + 1) * (y1 - y0 + 1)) + 128);
}

void localY(Image* dst, const Image* src) {
  const int32_t width = src->width;
  for (int32_t y = 0; y < src->height; ++y) {
    uint8_t* const out = imageRow(dst, y);
    const bool fullRows = y >= 2 && y < src->height - 2;
    if (fullRows && width > 4) {
      const uint8_t* const rows[5] = {imageRow(src, y - 2), imageRow(src, y - 1), imageRow(src, y),
                                      imageRow(src, y + 1), imageRow(src, y + 2)};
      localYRow(out, rows, width);
      for (const int32_t x : {0, 1, width - 2, width - 1}) out[x] = localYCut(src, x, y);
    } else {
      for (int32_t x = 0; x < width; ++x) out[x] = localYCut(src, x, y);
    }
  }
}

}  // namespace

Status VectralUtil_shrinkImage(Image* dst, const Image* src, const ImageRect* rect, int32_t ratio,
                               ParallelExecutor* executor) {
  if (dst == nullptr || src == nullptr || rect == nullptr || ratio < 1 || dst->plane0 == nullptr ||
      src->plane0 == nullptr) {
    return ZELVAN_ERROR_PARAM;
  }
  if ((ratio & 0x7FFF) == 0) return shrinkWhole(dst, src, rect, ratio >> 15, executor);
  return sampleNearest(dst, src, rect, ratio);
}

Status VectralUtil_normalizeImage(Image* dst, const Image* src, int32_t* mean, int32_t* deviation, int32_t minDeviation,
                                  ParallelExecutor*) {
  if (dst == nullptr || !isReadableUint8(src)) return ZELVAN_ERROR_PARAM;
  if (dst != src) {
    if (const Status s = shapeUint8(dst, src->width, src->height); s != ZELVAN_OK) return s;
  }
  int32_t usedMean = 0;
  int32_t usedDeviation = 0;
  if (mean != nullptr && deviation != nullptr && *mean <= 0 && *deviation < 1) {
    usedMean = *mean;
    usedDeviation = *deviation;
  } else {
    vectralImageStatistics(src, &usedMean, &usedDeviation);
  }
  usedDeviation = std::max(usedDeviation, minDeviation);
  Env* const env = dst->env != nullptr ? dst->env : src->env;
  if (env == nullptr) return ZELVAN_ERROR_NOMEM;
  const ScopedBlock<int32_t> table(env, 256);
  if (!table) return ZELVAN_ERROR_NOMEM;
  vectralContrastTable(table.data(), usedMean, usedDeviation);
  vectralMapImage(dst, src, table.data());
  if (mean != nullptr) *mean = usedMean;
  if (deviation != nullptr) *deviation = usedDeviation;
  return ZELVAN_OK;
}

Status VectralUtil_shrink2ForMvecDetect(Image* dst, const Image* src, ParallelExecutor* executor) {
  if (dst == nullptr || !isReadableUint8(src)) return ZELVAN_ERROR_PARAM;
  if (const Status s = shapeUint8(dst, (src->width - 2) >> 1, (src->height - 2) >> 1); s != ZELVAN_OK) return s;
  Rows all = {dst, src, 0, 0, 0, dst->height};
  if (executor == nullptr || dst->height < 31) return shrink2Rows(&all);
  return forkSixteenths<shrink2Rows>(executor, kSixteenths, all);
}

Status ImageUint8_shrink2ForMvecDetect(Image* dst, const Image* src) {
  return VectralUtil_shrink2ForMvecDetect(dst, src, nullptr);
}

Status ImageUint8_calcLocalY(Image* dst, const Image* src) {
  if (dst == nullptr || !isReadableUint8(src)) return ZELVAN_ERROR_PARAM;
  if (dst->plane0 != src->plane0) {
    if (const Status s = shapeUint8(dst, src->width, src->height); s != ZELVAN_OK) return s;
    localY(dst, src);
    return ZELVAN_OK;
  }
  ScopedImage copy(src->env);
  if (const Status s = Image_copy(&copy, src); s != ZELVAN_OK) return s;
  localY(dst, &copy);
  return ZELVAN_OK;
}

void vectralImageStatistics(const Image* image, int32_t* mean, int32_t* deviation) {
  *mean = 0;
  *deviation = 1;
  const int32_t width = image->width;
  const int32_t height = image->height;
  if (width < 1 || height < 1) return;
  const bool large = wrapMul(width, height) >= 32768;
  uint32_t total = 0;
  uint32_t totalSquares = 0;
  for (int32_t y = 0; y < height; ++y) {
    const uint8_t* const row = imageRow(image, y);
    uint32_t sum = 0;
    uint32_t squares = 0;
    for (int32_t x = 0; x < width; ++x) {
      sum += row[x];
      squares += static_cast<uint32_t>(row[x]) * row[x];
    }
    total += large ? sum / width : sum;
    totalSquares += large ? squares / width : squares;
  }
  const uint32_t count = static_cast<uint32_t>(large ? height : width * height);
  *mean = static_cast<int32_t>(total / count);
  const int32_t spread = isqrt(static_cast<int32_t>(totalSquares / count) - *mean * *mean);
  *deviation = spread < 2 ? 1 : spread;
}

void vectralContrastTable(int32_t* table, int32_t mean, int32_t deviation) {
  const int32_t doubled = wrapMul(2, deviation);
  const int32_t gain = doubled == 0 ? 0 : wrapShl(32768 / doubled, 7);
  for (int32_t i = 0; i < 256; ++i) {
    table[i] = clampInt(128 + (wrapSub(wrapMul(i, gain), wrapMul(mean, gain)) >> 15), 0, 255);
  }
}

void vectralMapImage(Image* dst, const Image* src, const int32_t* table) {
  for (int32_t y = 0; y < src->height; ++y) {
    uint8_t* const out = imageRow(dst, y);
    const uint8_t* const in = imageRow(src, y);
    for (int32_t x = 0; x < src->width; ++x) out[x] = static_cast<uint8_t>(table[in[x]]);
  }
}
