#include "imageproc/arithmetic.h"

#include <cstring>

#include "base/integer.h"
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
  Image* dst;
  const Image* src;
  int32_t right;  // 0 to 16, enough to leave nothing of 16 bits
  int32_t left;   // 0 to 16, enough to move a sample beyond any destination
};

template <typename Dst, typename Src, bool kSaturate>
void shiftRows(const ShiftJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    Dst* dst = imageRow<Dst>(job.dst, y);
    const Src* src = imageRow<const Src>(job.src, y);
    for (int32_t x = 0; x < job.dst->width; ++x) {
      const uint32_t value = uint32_t{src[x]} << job.left >> job.right;
      dst[x] = static_cast<Dst>(kSaturate && value > 255 ? 255 : value);
    }
  }
}

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
  if (!same && !luma) return ZELVAN_ERROR_GENERAL;
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
  const bool gone = n >= 32 || n <= -32;
  const ShiftJob job = {dst, src, gone ? 16 : clampInt(n, 0, 16), gone ? 0 : n > 0 ? 0 : std::min(-n, 16)};
  switch (formatPair(dst->format, src->format)) {
    case formatPair(IMAGE_UINT8, IMAGE_UINT8):
      return forkRowSlices<ShiftJob, shiftRows<uint8_t, uint8_t, false>>(proc->executor, job, dst->height);
    case formatPair(IMAGE_UINT8, IMAGE_UINT16):
      return forkRowSlices<ShiftJob, shiftRows<uint8_t, uint16_t, true>>(proc->executor, job, dst->height);
    case formatPair(IMAGE_UINT16, IMAGE_UINT16):
      return forkRowSlices<ShiftJob, shiftRows<uint16_t, uint16_t, false>>(proc->executor, job, dst->height);
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
