#include "imageproc/arithmetic.h"

#include <cstring>
#include <limits>
#include <type_traits>

#include "base/integer.h"
#include "imageproc/plane_view.h"
#include "imageproc/row_slices.h"

namespace {

constexpr int32_t kSmallestTable = 33;

// Pairs of formats as one number, destination first.
constexpr int32_t formatPair(int32_t dst, int32_t src) {
  return dst << 8 | src;
}

// ------------------------------------------------------------------------------------------------------------- fill

template <typename Sample>
struct FillJob {
  uint8_t* plane;
  int32_t pitch;
  int32_t samples;  // per row
  Sample value;
};

template <typename Sample>
void fillRows(const FillJob<Sample>& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    std::fill_n(reinterpret_cast<Sample*>(job.plane + static_cast<ptrdiff_t>(y) * job.pitch), job.samples, job.value);
  }
}

template <typename Sample>
Status fillPlane(ParallelExecutor* executor, uint8_t* plane, int32_t pitch, int32_t samples, int32_t rows,
                 Sample value) {
  const FillJob<Sample> job = {plane, pitch, samples, value};
  return forkRowSlices<FillJob<Sample>, fillRows<Sample>>(executor, job, rows);
}

// ------------------------------------------------------------------------------------------------------------- copy

struct CopyJob {
  uint8_t* dst;
  const uint8_t* src;
  int32_t dstPitch;
  int32_t srcPitch;
  int32_t bytes;  // per row
};

void copyRows(const CopyJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    memcpy(job.dst + static_cast<ptrdiff_t>(y) * job.dstPitch, job.src + static_cast<ptrdiff_t>(y) * job.srcPitch,
           static_cast<size_t>(job.bytes));
  }
}

Status copyPlane(ParallelExecutor* executor, const CopyJob& job, int32_t rows) {
  if (job.dst == job.src) return ZELVAN_OK;
  return forkRowSlices<CopyJob, copyRows>(executor, job, rows);
}

// Row bytes and rows of a plane without the padding that allocation adds.
int32_t rowBytes(const ImagePlaneDescriptor& plane, int32_t width) {
  return ((width + (1 << plane.shiftX) - 1) >> plane.shiftX) * plane.bytes;
}
int32_t rowCount(const ImagePlaneDescriptor& plane, int32_t height) {
  return ((height + (1 << plane.shiftY) - 1) >> plane.shiftY) * plane.rows;
}

// ------------------------------------------------------------------------------------------------- shift and lookup

struct ShiftJob {
  const Image* dst;
  const Image* src;
  int32_t right;  // 0 to 31
  int32_t left;   // 0 to 31
  int32_t mask;   // 0 when nothing is left
};

template <typename Dst, typename Src, bool kSaturate = false>
void shiftRows(const ShiftJob& job, int32_t begin, int32_t end) {
  using Word = std::conditional_t<std::is_signed_v<Src>, int32_t, uint32_t>;
  const int32_t left = std::min(job.left, sizeof(Src) < 4 ? 16 : 31);  // 16 moves a short sample beyond any destination
  for (int32_t y = begin; y < end; ++y) {
    Dst* dst = imageRow<Dst>(job.dst, y);
    const Src* src = imageRow<const Src>(job.src, y);
    for (int32_t x = 0; x < job.dst->width; ++x) {
      const Word value = static_cast<Word>(static_cast<uint32_t>(src[x] & job.mask) << left) >> job.right;
      dst[x] = static_cast<Dst>(kSaturate && value > 255 ? 255 : value);
    }
  }
}

template <typename Dst, typename Src, bool kSaturate = false>
Status shift(ParallelExecutor* executor, const Image& dst, const Image& src, int32_t n) {
  const int32_t bits = clampInt(n, -31, 31);
  const ShiftJob job = {&dst, &src, std::max(bits, 0), std::max(-bits, 0), n > -32 ? -1 : 0};
  return forkRowSlices<ShiftJob, shiftRows<Dst, Src, kSaturate>>(executor, job, dst.height);
}

// ------------------------------------------------------------------------------------------------- between pixel types

struct ConvertJob {
  const Image* dst;
  const Image* src;
};

int32_t wholePart(int32_t value) {
  return value;
}
int32_t wholePart(float value) {
  return truncToInt32(value);
}

// The value as it is; what a destination can not hold is limited.
template <typename Dst, typename Src>
void convertRows(const ConvertJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    Dst* dst = imageRow<Dst>(job.dst, y);
    const Src* src = imageRow<const Src>(job.src, y);
    for (int32_t x = 0; x < job.dst->width; ++x) {
      if constexpr (sizeof(Dst) == 4) {
        dst[x] = static_cast<Dst>(src[x]);
      } else {
        dst[x] = static_cast<Dst>(clampInt(wholePart(src[x]), 0, std::numeric_limits<Dst>::max()));
      }
    }
  }
}

template <typename Dst, typename Src>
Status convert(ParallelExecutor* executor, const ConvertJob& job) {
  return forkRowSlices<ConvertJob, convertRows<Dst, Src>>(executor, job, job.dst->height);
}

// A route of ImageProc_cvt that changes the type of the pixels.
struct ConvertRoute {
  int32_t pair;
  Status (*run)(ParallelExecutor* executor, const ConvertJob& job);
};
constexpr ConvertRoute kConvertRoutes[] = {
    {formatPair(IMAGE_UINT8, IMAGE_UINT16), convert<uint8_t, uint16_t>},
    {formatPair(IMAGE_UINT8, IMAGE_INT32), convert<uint8_t, int32_t>},
    {formatPair(IMAGE_UINT8, IMAGE_FLOAT), convert<uint8_t, float>},
    {formatPair(IMAGE_UINT16, IMAGE_UINT8), convert<uint16_t, uint8_t>},
    {formatPair(IMAGE_INT32, IMAGE_UINT8), convert<int32_t, uint8_t>},
    {formatPair(IMAGE_INT32, IMAGE_UINT16), convert<int32_t, uint16_t>},
    {formatPair(IMAGE_INT32, IMAGE_INT16), convert<int32_t, int16_t>},
    {formatPair(IMAGE_FLOAT, IMAGE_UINT8), convert<float, uint8_t>},
    {formatPair(IMAGE_FLOAT, IMAGE_UINT16), convert<float, uint16_t>},
    {formatPair(IMAGE_FLOAT, IMAGE_INT16), convert<float, int16_t>},
};

struct TableJob {
  Image* dst;
  const Image* src;
  uint8_t table[256];
};

void lookUpRows(const TableJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    uint8_t* dst = imageRow(job.dst, y);
    const uint8_t* src = imageRow<const uint8_t>(job.src, y);
    for (int32_t x = 0; x < job.dst->width; ++x) dst[x] = job.table[src[x]];
  }
}

}  // namespace

Status ImageProc_clearY(ImageProc* proc, Image* image, int32_t value) {
  if (proc == nullptr || image == nullptr) return ZELVAN_ERROR_PARAM;
  const auto low = static_cast<uint8_t>(value);
  switch (image->format) {
    case IMAGE_YUV420_SEMIPLANAR:
    case IMAGE_YVU420_SEMIPLANAR: {
      const ImagePlaneDescriptor& chroma = imageFormatDescriptor(image->format).planes[1];
      return fillPlane(proc->executor, image->plane0, image->pitch0, image->width, image->height, low) |
             fillPlane(proc->executor, image->plane1, image->pitch1, rowBytes(chroma, image->width),
                       rowCount(chroma, image->height), uint8_t{128});
    }
    case IMAGE_UINT8:
      return fillPlane(proc->executor, image->plane0, image->pitch0, image->width, image->height, low);
    case IMAGE_UINT16:
      return fillPlane(proc->executor, image->plane0, image->pitch0, image->width, image->height,
                       static_cast<uint16_t>(value));
    case IMAGE_FLOAT:
      return ImageProc_ImageFloat_clearY(proc, image, value);
    default:
      return ZELVAN_ERROR_PARAM;
  }
}

Status ImageProc_ImageFloat_clearY(ImageProc* proc, Image* image, int32_t value) {
  if (proc == nullptr || image == nullptr || image->format != IMAGE_FLOAT) return ZELVAN_ERROR_PARAM;
  return fillPlane(proc->executor, image->plane0, image->pitch0, image->width, image->height,
                   static_cast<float>(value));
}

Status ImageProc_cvt(ImageProc* proc, Image* dst, const Image* src) {
  if (proc == nullptr || dst == nullptr || src == nullptr) return ZELVAN_ERROR_PARAM;
  if (dst->width < 1 || dst->height < 1 || src->width < 1 || src->height < 1) return ZELVAN_ERROR_GENERAL;
  const bool same = dst->format == src->format && src->format > IMAGE_NONE && src->format < IMAGE_FORMAT_COUNT;
  const bool luma =
      dst->format == IMAGE_UINT8 && src->format >= IMAGE_YUV422_PLANAR && src->format <= IMAGE_YVU420_SEMIPLANAR;
  if (!same && !luma) {
    for (const ConvertRoute& route : kConvertRoutes) {
      if (route.pair == formatPair(dst->format, src->format)) return route.run(proc->executor, {dst, src});
    }
    return ZELVAN_ERROR_GENERAL;
  }
  // With luma the destination's only plane and the source's first have one layout.
  const ImageFormatDescriptor& format = imageFormatDescriptor(dst->format);
  const CopyJob planes[3] = {
      {dst->plane0, src->plane0, dst->pitch0, src->pitch0, rowBytes(format.planes[0], dst->width)},
      {dst->plane1, src->plane1, dst->pitch1, src->pitch1, rowBytes(format.planes[1], dst->width)},
      {dst->plane2, src->plane2, dst->pitch2, src->pitch2, rowBytes(format.planes[2], dst->width)},
  };
  Status status = ZELVAN_OK;
  for (int32_t i = 0; i < 3; ++i) {
    if (format.planes[i].bytes == 0) continue;
    status |= copyPlane(proc->executor, planes[i], rowCount(format.planes[i], dst->height));
  }
  return status;
}

Status ImageProc_n_shift(ImageProc* proc, Image* dst, const Image* src, int32_t n) {
  if (proc == nullptr || dst == nullptr || src == nullptr) return ZELVAN_ERROR_PARAM;
  ParallelExecutor* const executor = proc->executor;
  switch (formatPair(dst->format, src->format)) {
    case formatPair(IMAGE_UINT8, IMAGE_UINT8):
      return shift<uint8_t, uint8_t>(executor, *dst, *src, n);
    case formatPair(IMAGE_UINT8, IMAGE_UINT16):
      return shift<uint8_t, uint16_t, true>(executor, *dst, *src, n);
    case formatPair(IMAGE_UINT16, IMAGE_UINT16):
      return shift<uint16_t, uint16_t>(executor, *dst, *src, n);
    case formatPair(IMAGE_INT16, IMAGE_INT16):
      return shift<int16_t, int16_t>(executor, *dst, *src, n);
    case formatPair(IMAGE_INT32, IMAGE_INT32):
      return shift<int32_t, int32_t>(executor, *dst, *src, n);
    case formatPair(IMAGE_YUV420_SEMIPLANAR, IMAGE_YUV420_SEMIPLANAR):
    case formatPair(IMAGE_YVU420_SEMIPLANAR, IMAGE_YVU420_SEMIPLANAR):
      return shift<uint8_t, uint8_t>(executor, *dst, *src, n) |
             shift<uint8_t, uint8_t>(executor, bytesOfChroma(*dst), bytesOfChroma(*src), n);
    default:
      return ZELVAN_ERROR_PARAM;
  }
}

Status ImageProc_table(ImageProc* proc, Image* dst, const Image* src, const uint8_t* table, int32_t tableSize) {
  if (proc == nullptr || dst == nullptr || src == nullptr || table == nullptr) return ZELVAN_ERROR_PARAM;
  if (dst->format != IMAGE_UINT8 || src->format != IMAGE_UINT8) return ZELVAN_ERROR_UNSUPPORTED;
  if (tableSize < kSmallestTable) return ZELVAN_OK;
  TableJob job = {dst, src, {}};
  memcpy(job.table, table, static_cast<size_t>(std::min(tableSize, 256)));
  return forkRowSlices<TableJob, lookUpRows>(proc->executor, job, dst->height);
}
