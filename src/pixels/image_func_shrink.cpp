#include "base/cpu_level.h"
#include "imageproc/resize.h"
#include "parallel/bands.h"
#include "parallel/pel_kernel.h"
#include "pixels/image_func.h"

namespace {

bool hasHalving(const Image* image) {
  return isSemiplanar420(image->format) || image->format == IMAGE_UINT8;
}

// Luma by two: rounded to the nearest in groups of eight columns, cut in the columns behind the last group.
ALWAYS_INLINE void halveLumaRowBody(uint8_t* __restrict dst, const uint8_t* __restrict top,
                                    const uint8_t* __restrict bottom, int32_t width) {
  const int32_t grouped = width & ~7;
  for (int32_t x = 0; x < grouped; ++x) {
    const int32_t s = top[2 * x] + top[2 * x + 1] + bottom[2 * x] + bottom[2 * x + 1];
    dst[x] = static_cast<uint8_t>((s >> 2) + ((s >> 1) & 1));
  }
  for (int32_t x = grouped; x < width; ++x) {
    dst[x] = static_cast<uint8_t>((top[2 * x] + top[2 * x + 1] + bottom[2 * x] + bottom[2 * x + 1]) >> 2);
  }
}
constexpr CpuRow<halveLumaRowBody> halveLumaRow;

// Box of Factor x Factor items of Channels interleaved bytes, rounded. count items of dst.
template <int32_t Factor, int32_t Channels>
ALWAYS_INLINE void boxRowBody(uint8_t* __restrict dst, const uint8_t* const* rows, int32_t count) {
  for (int32_t x = 0; x < count; ++x) {
    for (int32_t c = 0; c < Channels; ++c) {
      int32_t sum = Factor * Factor / 2;
      for (int32_t i = 0; i < Factor; ++i) {
        const int32_t at = (Factor * x + i) * Channels + c;
        for (int32_t r = 0; r < Factor; ++r) sum += rows[r][at];
      }
      dst[Channels * x + c] = static_cast<uint8_t>(sum / (Factor * Factor));
    }
  }
}
template <int32_t Factor, int32_t Channels>
constexpr CpuRow<boxRowBody<Factor, Channels>> boxRow;

// Chroma row of dst. The last pair and row repeat where an odd size leaves the source short.
template <int32_t Factor>
void shrinkChromaRow(Image* dst, const Image* src, int32_t row) {
  const int32_t srcRows = (src->height + 1) / 2;
  const int32_t srcPairs = (src->width + 1) / 2;
  const uint8_t* rows[Factor];
  for (int32_t r = 0; r < Factor; ++r) {
    const int32_t at = Factor * row + r;
    rows[r] = imageChromaRow(src, at < srcRows ? at : srcRows - 1);
  }
  const int32_t pairs = (dst->width + 1) / 2;
  const int32_t whole = srcPairs / Factor < pairs ? srcPairs / Factor : pairs;
  uint8_t* out = imageChromaRow(dst, row);
  boxRow<Factor, 2>(out, rows, whole);
  for (int32_t x = whole; x < pairs; ++x) {
    for (int32_t c = 0; c < 2; ++c) {
      int32_t sum = Factor * Factor / 2;
      for (int32_t i = 0; i < Factor; ++i) {
        const int32_t at = Factor * x + i < srcPairs ? Factor * x + i : srcPairs - 1;
        for (const uint8_t* r : rows) sum += r[2 * at + c];
      }
      out[2 * x + c] = static_cast<uint8_t>(sum / (Factor * Factor));
    }
  }
}

struct ShrinkBand {
  Image* dst;
  const Image* src;
  int32_t begin;  // even
  int32_t end;
};

Status shrink2Band(ShrinkBand* band) {
  const bool chroma = isSemiplanar420(band->dst->format) && isSemiplanar420(band->src->format);
  for (int32_t y = band->begin; y < band->end; ++y) {
    halveLumaRow(imageRow(band->dst, y), imageRow(band->src, 2 * y), imageRow(band->src, 2 * y + 1), band->dst->width);
    if (chroma && (y & 1) == 0) shrinkChromaRow<2>(band->dst, band->src, y / 2);
  }
  return ZELVAN_OK;
}

Status shrink4Band(ShrinkBand* band) {
  for (int32_t y = band->begin; y < band->end; ++y) {
    const uint8_t* rows[4];
    for (int32_t r = 0; r < 4; ++r) rows[r] = imageRow(band->src, 4 * y + r);
    boxRow<4, 1>(imageRow(band->dst, y), rows, band->dst->width);
    if ((y & 1) == 0) shrinkChromaRow<4>(band->dst, band->src, y / 2);
  }
  return ZELVAN_OK;
}

template <Status (*Body)(ShrinkBand*)>
Status forkShrink(ParallelExecutor* executor, Image* dst, const Image* src) {
  const int32_t n = ParallelExecutor_getNumberOfBands(executor);
  const int64_t height = dst->height;
  return forkBands<ShrinkBand, Body>(executor, n, [&](int32_t i) {
    return ShrinkBand{dst, src, static_cast<int32_t>((height * i / n) & ~1),
                      static_cast<int32_t>((height * (i + 1) / n) & ~1)};
  });
}

struct ShrinkJob {
  Image* dst;
  const Image* src;
};

Status shrink2Pair(ShrinkJob* job, int32_t index, const PelContext*) {
  ShrinkBand band = {job->dst, job->src, 2 * index, 2 * index + 2};
  return shrink2Band(&band);
}

constexpr PelKernel kShrink2Pair = pelIndexed<ShrinkJob, shrink2Pair>();

}  // namespace

Status Tessal4ImageFunc_shrink2(ParallelExecutor* executor, Image* dst, const Image* src) {
  if (!isSemiplanar420(src->format)) return ZELVAN_OK;
  return forkShrink<shrink2Band>(executor, dst, src);
}

Status Tessal4ImageFunc_shrink2_PEL(Pel* pel, Image* dst, const Image* src) {
  if (!hasHalving(src)) return ZELVAN_OK;
  ShrinkJob job = {dst, src};
  return executeToEnd(pel, &kShrink2Pair, &job, dst->height / 2);
}

Status Tessal4ImageFunc_shrink4(ParallelExecutor* executor, Image* dst, const Image* src) {
  if (!isSemiplanar420(src->format)) return ZELVAN_OK;
  return forkShrink<shrink4Band>(executor, dst, src);
}

Status Tessal4ImageFunc_shrinkImage(ParallelExecutor* executor, Pel* pel, Image* dst, const Image* src) {
  if (dst->width < 1 || dst->height < 1) return ZELVAN_ERROR_PARAM;
  const int32_t ratioX = src->width / dst->width;
  const int32_t ratioY = src->height / dst->height;
  ScopedImage smaller(dst->env);
  Status status;
  if (ratioX >= 4 && ratioY >= 4 && isSemiplanar420(src->format)) {
    status = Image_init(&smaller, (src->width / 4) & ~1, (src->height / 4) & ~1, nullptr, src->format);
    if (status == ZELVAN_OK) status = Tessal4ImageFunc_shrink4(executor, &smaller, src);
  } else if (ratioX >= 3 && ratioY >= 3 && hasHalving(src)) {
    status = Image_init(&smaller, (src->width / 2) & ~1, (src->height / 2) & ~1, nullptr, src->format);
    if (status == ZELVAN_OK) status = Tessal4ImageFunc_shrink2_PEL(pel, &smaller, src);
  } else if (src->width == 2 * dst->width && src->height == 2 * dst->height) {
    return Tessal4ImageFunc_shrink2_PEL(pel, dst, src);
  } else {
    ImageProc proc;
    construct_ImageProc(&proc, dst->env);
    ImageProc_setParallelExecutor(&proc, executor);
    status = ImageProc_resizeImage(&proc, dst, src);
    destruct_ImageProc(&proc);
    return status;
  }
  return status != ZELVAN_OK ? status : Tessal4ImageFunc_shrinkImage(executor, pel, dst, &smaller);
}
