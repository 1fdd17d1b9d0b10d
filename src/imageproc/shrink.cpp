#include "imageproc/shrink.h"

#include <cstring>

#include "imageproc/plane_view.h"
#include "imageproc/row_slices.h"
#include "parallel/pel_rows.h"

namespace {

// The source samples under one destination sample along an axis.
struct Footprint {
  int32_t first;
  int32_t last;
  int32_t firstWeight;  // of 256
  int32_t lastWeight;
  int64_t total;

  Footprint(int32_t i, int32_t from, int32_t to) {
    const int64_t begin = ((int64_t{from} << 15) * i - 1) / to;
    const int64_t end = begin + (int64_t{from} << 15) / to;
    const int64_t inside = std::max<int64_t>(begin, 0);  // a single destination sample begins at -1
    first = static_cast<int32_t>(inside >> 15);
    last = std::min(static_cast<int32_t>(end >> 15), from - 1);
    firstWeight = 256 - static_cast<int32_t>((inside >> 7) & 255);
    lastWeight = static_cast<int32_t>((end >> 7) & 255);
    total = first == last ? firstWeight : firstWeight + 256 * int64_t{last - first - 1} + lastWeight;
  }
  int64_t weight(int32_t at) const { return at == first ? firstWeight : at == last ? lastWeight : 256; }
};

struct ShrinkJob {
  Image* dst;
  const Image* src;
};

template <typename T, int32_t kChannels>
void shrinkRows(const ShrinkJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    const Footprint down(y, job.src->height, job.dst->height);
    T* dst = imageRow<T>(job.dst, y);
    for (int32_t x = 0; x < job.dst->width; ++x) {
      const Footprint across(x, job.src->width, job.dst->width);
      for (int32_t c = 0; c < kChannels; ++c) {
        int64_t sum = 0;
        for (int32_t v = down.first; v <= down.last; ++v) {
          const T* row = imageRow<const T>(job.src, v);
          int64_t line = 0;
          for (int32_t u = across.first; u <= across.last; ++u) line += across.weight(u) * row[u * kChannels + c];
          sum += down.weight(v) * line;
        }
        dst[x * kChannels + c] = static_cast<T>(sum / (down.total * across.total));
      }
    }
  }
}

template <typename T, int32_t kChannels>
Status shrinkPlane(ImageProc* proc, Image* dst, const Image* src) {
  const ShrinkJob job = {dst, src};
  return forkRowSlices<ShrinkJob, shrinkRows<T, kChannels>>(proc->executor, job, dst->height);
}

template <int32_t kChannels>
void halveRows(const ShrinkJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    const uint8_t* top = imageRow<const uint8_t>(job.src, 2 * y);
    const uint8_t* bottom = imageRow<const uint8_t>(job.src, std::min(2 * y + 1, job.src->height - 1));
    uint8_t* dst = imageRow(job.dst, y);
    for (int32_t x = 0; x < job.dst->width; ++x) {
      const int32_t left = 2 * x * kChannels;
      const int32_t right = std::min(2 * x + 1, job.src->width - 1) * kChannels;
      for (int32_t c = 0; c < kChannels; ++c) {
        dst[x * kChannels + c] =
            static_cast<uint8_t>((top[left + c] + top[right + c] + bottom[left + c] + bottom[right + c] + 2) >> 2);
      }
    }
  }
}

struct RotateJob {
  uint8_t* dst;
  const uint8_t* src;
  int32_t dstPitch;
  int32_t srcPitch;
  int32_t width;  // of dst, in pixels
  int32_t srcWidth;
  int32_t srcHeight;
  int32_t bytes;  // per pixel
  int32_t turns;
  bool mirror;
};

void rotateRows(const RotateJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    uint8_t* dst = job.dst + static_cast<ptrdiff_t>(y) * job.dstPitch;
    for (int32_t x = 0; x < job.width; ++x) {
      int32_t sx = x;
      int32_t sy = y;
      if (job.turns == 1) {
        sx = y;
        sy = job.srcHeight - 1 - x;
      } else if (job.turns == 2) {
        sx = job.srcWidth - 1 - x;
        sy = job.srcHeight - 1 - y;
      } else if (job.turns == 3) {
        sx = job.srcWidth - 1 - y;
        sy = x;
      }
      if (job.mirror) sx = job.srcWidth - 1 - sx;
      std::memcpy(dst + x * job.bytes, job.src + static_cast<ptrdiff_t>(sy) * job.srcPitch + sx * job.bytes,
                  static_cast<size_t>(job.bytes));
    }
  }
}

Status setArgs(ImageProcShrinkArgs* args, intptr_t a, intptr_t b, intptr_t c) {
  if (args == nullptr) return ZELVAN_ERROR_PARAM;
  *args = {{a, b, c}};
  return ZELVAN_OK;
}

}  // namespace

Status ImageProc_shrinkImage(ImageProc* proc, Image* dst, const Image* src) {
  if (proc == nullptr || dst == nullptr || src == nullptr) return ZELVAN_ERROR_PARAM;
  if (dst->width < 1 || dst->height < 1 || dst->width > src->width || dst->height > src->height) {
    return ZELVAN_ERROR_PARAM;
  }
  const bool planes = isSemiplanar420(src->format);
  if (dst->format == IMAGE_UINT8 && (src->format == IMAGE_UINT8 || planes))
    return shrinkPlane<uint8_t, 1>(proc, dst, src);
  if (dst->format != src->format) return ZELVAN_ERROR_GENERAL;
  if (src->format == IMAGE_UINT16) return shrinkPlane<uint16_t, 1>(proc, dst, src);
  if (src->format == IMAGE_INT32) return shrinkPlane<int32_t, 1>(proc, dst, src);
  if (!planes) return ZELVAN_ERROR_GENERAL;
  return shrinkPlane<uint8_t, 1>(proc, dst, src) |
         onPlaneViews(proc->env, dst, src, Image_initSubImageUV,
                      [&](Image* d, const Image* s) { return shrinkPlane<uint8_t, 2>(proc, d, s); });
}

Status ImageProc_shrink2(ImageProc* proc, Image* dst, const Image* src) {
  if (proc == nullptr || dst == nullptr || src == nullptr) return ZELVAN_ERROR_PARAM;
  if (!isSemiplanar420(src->format)) return ZELVAN_OK;
  const ShrinkJob luma = {dst, src};
  return forkRowSlices<ShrinkJob, halveRows<1>>(proc->executor, luma, dst->height) |
         onPlaneViews(proc->env, dst, src, Image_initSubImageUV, [&](Image* d, const Image* s) {
           const ShrinkJob chroma = {d, s};
           return forkRowSlices<ShrinkJob, halveRows<2>>(proc->executor, chroma, d->height);
         });
}

Status ImageProc2_rotateImageEx(ImageProc2* proc, Image* dst, const Image* src, int32_t quarterTurns, int32_t mirror) {
  if (proc == nullptr || dst == nullptr || src == nullptr) return ZELVAN_ERROR_PARAM;
  const ImageFormatDescriptor& d = imageFormatDescriptor(src->format);
  const bool planes = isSemiplanar420(src->format);
  const bool plain = d.planes[1].bytes == 0 && d.alignX == 0 && d.planes[0].bytes >= 1 && d.planes[0].bytes <= 4;
  if (quarterTurns < 0 || quarterTurns > 3 || dst->format != src->format || (!planes && !plain)) {
    return ZELVAN_ERROR_UNSUPPORTED;
  }
  const bool across = (quarterTurns & 1) != 0;
  if (dst->width != (across ? src->height : src->width) || dst->height != (across ? src->width : src->height)) {
    return ZELVAN_ERROR_UNSUPPORTED;
  }
  const RotateJob job = {dst->plane0, src->plane0, dst->pitch0,       src->pitch0,  dst->width,
                         src->width,  src->height, d.planes[0].bytes, quarterTurns, mirror != 0};
  const Status status = executeRows<RotateJob, rotateRows>(proc->pel, job, dst->height);
  if (!planes || status != ZELVAN_OK) return status;
  const RotateJob pairs = {dst->plane1,          src->plane1,           dst->pitch1, src->pitch1,  (dst->width + 1) / 2,
                           (src->width + 1) / 2, (src->height + 1) / 2, 2,           quarterTurns, mirror != 0};
  return executeRows<RotateJob, rotateRows>(proc->pel, pairs, (dst->height + 1) / 2);
}

#define DEFINE_SET_ARGS(name)                                                                        \
  Status ImageProc_##name##_setArgs(ImageProcShrinkArgs* args, intptr_t a, intptr_t b, intptr_t c) { \
    return setArgs(args, a, b, c);                                                                   \
  }
DEFINE_SET_ARGS(resizerImageUint8)
DEFINE_SET_ARGS(resizerImageFloat)
DEFINE_SET_ARGS(resizerImageInt32)
DEFINE_SET_ARGS(resizerImageUint888)
DEFINE_SET_ARGS(resizerImageUint8888)
DEFINE_SET_ARGS(resizerImageUint16)
DEFINE_SET_ARGS(resizerImageUV)
DEFINE_SET_ARGS(shrinkaverageImageUint8)
DEFINE_SET_ARGS(shrinkaverageImageUint16)
DEFINE_SET_ARGS(shrinkaverageImageInt32)
DEFINE_SET_ARGS(shrinkaverageImageUV)
#undef DEFINE_SET_ARGS
