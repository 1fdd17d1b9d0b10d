#include "imageproc/tone.h"

#include "base/integer.h"
#include "base/raw_double.h"
#include "image/image_conv.h"
#include "parallel/bands.h"

namespace {

constexpr int32_t kCountedSide = 1440;

struct ToneTables {
  uint8_t luma[256];
  uint8_t u[256];
  uint8_t v[256];
  int32_t reciprocal[256];  // Q28
};

// Where the bytes of a block of two pixels across lie: luma at 0 and lumaStep, chroma in its own rows.
struct ToneLayout {
  int32_t groupBytes;  // of luma per two pixels
  int32_t lumaStep;
  int32_t y0;
  int32_t rows;  // of luma per chroma row
};

struct ToneBand {
  Image* dst;
  const Image* src;
  const ToneTables* tables;
  ToneLayout layout;
  int32_t byteOfU;  // semi-planar and interleaved
  int32_t byteOfV;
  int32_t begin;
  int32_t end;
};

uint8_t scaledChroma(uint8_t value, int64_t ratio) {
  const int64_t scaled = ((value - 128) * ratio + 0x8000000) >> 28;
  return static_cast<uint8_t>(clampInt(static_cast<int32_t>(scaled < -128  ? -128
                                                            : scaled > 127 ? 127
                                                                           : scaled),
                                       -128, 127) +
                              128);
}

// The chroma samples of the block at column x of rows that begin at y.
struct ChromaAt {
  uint8_t* u;
  uint8_t* v;
};

ChromaAt chromaAt(const ToneBand& band, const Image* image, int32_t x, int32_t y) {
  if (image->plane1 == nullptr) {
    uint8_t* group = imageRow(image, y) + x * 2;
    return {group + band.byteOfU, group + band.byteOfV};
  }
  uint8_t* first = imageChromaRow(image, y / 2);
  if (image->plane2 == nullptr) return {first + x + band.byteOfU, first + x + band.byteOfV};
  return {first + x / 2, image->plane2 + static_cast<ptrdiff_t>(y / 2) * image->pitch2 + x / 2};
}

Status toneBand(ToneBand* band) {
  const ToneTables& tables = *band->tables;
  const ToneLayout& layout = band->layout;
  const int32_t width = band->src->width;
  const int32_t height = band->src->height;
  for (int32_t y = band->begin; y < band->end; y += layout.rows) {
    for (int32_t x = 0; x < width; x += 2) {
      const int32_t at = x / 2 * layout.groupBytes + layout.y0;
      const int32_t y0 = imageRow(band->src, y)[at];
      const int64_t ratio = int64_t{tables.luma[y0]} * tables.reciprocal[y0];
      const ChromaAt from = chromaAt(*band, band->src, x, y);
      const ChromaAt to = chromaAt(*band, band->dst, x, y);
      const uint8_t u = *from.u;
      const uint8_t v = *from.v;
      for (int32_t r = 0; r < layout.rows && y + r < height; ++r) {
        for (int32_t i = 0; i < 2 && x + i < width; ++i) {
          const int32_t pixel = at + i * layout.lumaStep;
          imageRow(band->dst, y + r)[pixel] = tables.luma[imageRow(band->src, y + r)[pixel]];
        }
      }
      *to.u = scaledChroma(tables.u[u], ratio);
      *to.v = scaledChroma(tables.v[v], ratio);
    }
  }
  return ZELVAN_OK;
}

// Luma bounds that leave low and high per cent of the pixels outside.
Status findBounds(const ImageProc* proc, const Image* src, const ImageProcTone& tone, int32_t* lo, int32_t* hi) {
  *lo = 0;
  *hi = 255;
  if (tone.low == 0 && tone.high == 100) return ZELVAN_OK;
  const int32_t side = src->width > src->height ? src->width : src->height;
  const int32_t d = (side + kCountedSide - 1) / kCountedSide;
  ScopedImage counted(proc->env);
  const ImageRect whole = {0, 0, src->width, src->height};
  if (const Status s = Image_toYUint8Shrink(&counted, src, &whole, d); s != ZELVAN_OK) return s;
  int32_t bins[256] = {};
  for (int32_t y = 0; y < counted.height; ++y) {
    for (int32_t x = 0; x < counted.width; ++x) ++bins[imageRow(&counted, y)[x]];
  }
  const int32_t count = counted.width * counted.height;
  const int32_t hiCount = truncToInt32(count * static_cast<double>(tone.high) / 100 + 0.5);
  const int32_t loCount = truncToInt32(count * static_cast<double>(tone.low) / 100 + 0.5);
  int32_t sum = 0;
  bool found = false;
  for (int32_t i = 0; i < 256; ++i) {
    sum += bins[i];
    if (tone.low != 0 && sum < loCount) *lo = i;
    if (!found && tone.high != 100 && sum >= hiCount) {
      *hi = i;
      found = true;
    }
  }
  return ZELVAN_OK;
}

void fillLuma(uint8_t* table, const ImageProcTone& tone, int32_t lo, int32_t hi) {
  if (tone.gamma <= 0) {
    for (int32_t i = 0; i < 256; ++i) {
      const int64_t value = (int64_t{i} * tone.gain + 16384) >> 15;
      table[i] = static_cast<uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value);
    }
    return;
  }
  for (int32_t i = 0; i < 256; ++i) table[i] = i > hi ? 255 : 0;
  const double exponent = 100.0 / tone.gamma;
  for (int32_t i = 1; i <= hi - lo; ++i) {
    const double share = static_cast<double>(i) / (hi - lo);
    table[lo + i] = clampByte(truncToInt32(RawDouble_incomplete_pow(share, exponent) * 255 + 0.5));
  }
}

void fillSaturation(uint8_t* table, int32_t saturation) {
  for (int32_t i = 0; i < 256; ++i) {
    const int64_t value = ((int64_t{i - 128} * saturation + 0x4000) >> 15) + 128;
    table[i] = static_cast<uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value);
  }
}

}  // namespace

Status ImageProc_enhanceImage_process(ImageProc* proc, Image* dst, const Image* src, const ImageProcTone* tone) {
  if (proc == nullptr || dst == nullptr || src == nullptr || tone == nullptr) return ZELVAN_ERROR_PARAM;
  const int32_t format = src->format;
  if (dst->format != format) return ZELVAN_ERROR_UNSUPPORTED;
  ToneLayout layout = {2, 1, 0, 2};
  int32_t byteOfU = 0;
  int32_t byteOfV = 1;
  if (Image_isYuv422Interleaved(format) != 0) {
    int32_t y1;
    ImageYuv422Interleaved_getYuvIndex(&layout.y0, &y1, &byteOfU, &byteOfV, format);
    layout.groupBytes = 4;
    layout.lumaStep = y1 - layout.y0;
    layout.rows = 1;
  } else if (format == IMAGE_YVU420_SEMIPLANAR) {
    byteOfU = 1;
    byteOfV = 0;
  } else if (format != IMAGE_YUV420_PLANAR && format != IMAGE_YUV420_SEMIPLANAR) {
    return ZELVAN_ERROR_UNSUPPORTED;
  }
  const int32_t* p = tone->percentages;
  if (p[0] == 100 && p[1] == 100 && p[2] == 100 && tone->gamma == 0) return Image_copy(dst, src);

  ToneTables tables;
  tables.reciprocal[0] = 0;
  for (int32_t k = 1; k < 256; ++k) tables.reciprocal[k] = (0x10000000 + k / 2) / k;
  fillSaturation(tables.u, tone->satU);
  fillSaturation(tables.v, tone->satV);
  int32_t lo = 0;
  int32_t hi = 255;
  if (tone->gamma > 0) {
    if (const Status s = findBounds(proc, src, *tone, &lo, &hi); s != ZELVAN_OK) return s;
  }
  fillLuma(tables.luma, *tone, lo, hi);
  const int32_t half = src->height / 2 & ~1;
  return forkBands<ToneBand, toneBand>(proc->executor, 2, [&](int32_t i) {
    return ToneBand{dst, src, &tables, layout, byteOfU, byteOfV, i == 0 ? 0 : half, i == 0 ? half : src->height};
  });
}
