#include "imageproc/pixel_ops.h"

#include <limits>

#include "base/integer.h"
#include "imageproc/arithmetic.h"
#include "imageproc/plane_view.h"
#include "imageproc/row_slices.h"

namespace {

// One plane of an operation. b is null where a number takes its place.
struct OpJob {
  const Image* dst;
  const Image* a;
  const Image* b;
  int32_t n;
};

// Integers work in wrapping 32 bits, which holds every result of bytes and the low bits of all others.
template <typename T>
struct Wide {
  using Type = int32_t;
};
template <>
struct Wide<float> {
  using Type = float;
};

template <typename T>
T plus(T a, T b) {
  if constexpr (std::numeric_limits<T>::is_integer) {
    return wrapAdd(a, b);
  } else {
    return a + b;
  }
}
template <typename T>
T minus(T a, T b) {
  if constexpr (std::numeric_limits<T>::is_integer) {
    return wrapSub(a, b);
  } else {
    return a - b;
  }
}
template <typename T>
T times(T a, T b) {
  if constexpr (std::numeric_limits<T>::is_integer) {
    return wrapMul(a, b);
  } else {
    return a * b;
  }
}
template <typename T>
T magnitude(T a) {
  return a < 0 ? minus(T{0}, a) : a;
}

// kClamp: a small destination clamps the result instead of keeping its low bits.
struct Add {
  static constexpr bool kClamp = false;
  template <typename T>
  static T apply(T, T a, T b) {
    return plus(a, b);
  }
};
struct Sub {
  static constexpr bool kClamp = true;
  template <typename T>
  static T apply(T, T a, T b) {
    return minus(a, b);
  }
};
struct ReverseSub {
  static constexpr bool kClamp = true;
  template <typename T>
  static T apply(T, T a, T b) {
    return minus(b, a);
  }
};
struct AbsSub {
  static constexpr bool kClamp = false;
  template <typename T>
  static T apply(T, T a, T b) {
    return magnitude(minus(a, b));
  }
};
struct Abs {
  static constexpr bool kClamp = false;
  template <typename T>
  static T apply(T, T a, T) {
    return magnitude(a);
  }
};
struct Mul {
  static constexpr bool kClamp = false;
  template <typename T>
  static T apply(T, T a, T b) {
    return times(a, b);
  }
};
struct Max {
  static constexpr bool kClamp = true;
  template <typename T>
  static T apply(T, T a, T b) {
    return a > b ? a : b;
  }
};
struct Min {
  static constexpr bool kClamp = true;
  template <typename T>
  static T apply(T, T a, T b) {
    return a < b ? a : b;
  }
};
struct Mla {
  static constexpr bool kClamp = false;
  template <typename T>
  static T apply(T old, T a, T b) {
    return plus(old, times(a, b));
  }
};

template <typename Op, typename Dst, typename Src>
void opRows(const OpJob& job, int32_t begin, int32_t end) {
  using T = typename Wide<Dst>::Type;
  for (int32_t y = begin; y < end; ++y) {
    Dst* dst = imageRow<Dst>(job.dst, y);
    const Src* a = imageRow<const Src>(job.a, y);
    const Src* b = job.b != nullptr ? imageRow<const Src>(job.b, y) : nullptr;
    for (int32_t x = 0; x < job.dst->width; ++x) {
      T value = Op::apply(static_cast<T>(dst[x]), static_cast<T>(a[x]),
                          b != nullptr ? static_cast<T>(b[x]) : static_cast<T>(job.n));
      if constexpr (Op::kClamp && std::numeric_limits<Dst>::is_integer && sizeof(Dst) < sizeof(T)) {
        value = clampInt(value, 0, std::numeric_limits<Dst>::max());
      }
      dst[x] = static_cast<Dst>(value);
    }
  }
}

template <typename Op, typename Dst, typename Src>
Status runOp(ImageProc* proc, const OpJob& job) {
  return forkRowSlices<OpJob, opRows<Op, Dst, Src>>(proc->executor, job, job.dst->height);
}

template <typename Op>
Status operate(ImageProc* proc, Image* dst, const Image* a, const Image* b, int32_t n) {
  if (proc == nullptr || dst == nullptr || a == nullptr) return ZELVAN_ERROR_PARAM;
  if (b != nullptr && b->format != a->format) return ZELVAN_ERROR_PARAM;
  const OpJob job = {dst, a, b, n};
  switch (dst->format << 8 | a->format) {
    case IMAGE_UINT8 << 8 | IMAGE_UINT8:
      return runOp<Op, uint8_t, uint8_t>(proc, job);
    case IMAGE_UINT16 << 8 | IMAGE_UINT16:
      return runOp<Op, uint16_t, uint16_t>(proc, job);
    case IMAGE_UINT16 << 8 | IMAGE_UINT8:
      return runOp<Op, uint16_t, uint8_t>(proc, job);
    case IMAGE_INT32 << 8 | IMAGE_INT32:
      return runOp<Op, int32_t, int32_t>(proc, job);
    case IMAGE_INT32 << 8 | IMAGE_UINT8:
      return runOp<Op, int32_t, uint8_t>(proc, job);
    case IMAGE_FLOAT << 8 | IMAGE_FLOAT:
      return runOp<Op, float, float>(proc, job);
    case IMAGE_YUV420_SEMIPLANAR << 8 | IMAGE_YUV420_SEMIPLANAR:
    case IMAGE_YVU420_SEMIPLANAR << 8 | IMAGE_YVU420_SEMIPLANAR:
      break;
    default:
      return ZELVAN_ERROR_PARAM;
  }
  const Image dstChroma = bytesOfChroma(*dst);
  const Image aChroma = bytesOfChroma(*a);
  const Image bChroma = b != nullptr ? bytesOfChroma(*b) : Image{};
  const OpJob chroma = {&dstChroma, &aChroma, b != nullptr ? &bChroma : nullptr, n};
  return runOp<Op, uint8_t, uint8_t>(proc, job) | runOp<Op, uint8_t, uint8_t>(proc, chroma);
}

template <typename Op>
Status operateTwo(ImageProc* proc, Image* dst, const Image* a, const Image* b) {
  return b == nullptr ? ZELVAN_ERROR_PARAM : operate<Op>(proc, dst, a, b, 0);
}

void divRows(const OpJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    int32_t* dst = imageRow<int32_t>(job.dst, y);
    const int32_t* a = imageRow<const int32_t>(job.a, y);
    const int32_t* b = imageRow<const int32_t>(job.b, y);
    for (int32_t x = 0; x < job.dst->width; ++x) {
      dst[x] = b[x] == 0 ? 0 : b[x] == -1 ? wrapSub(0, a[x]) : a[x] / b[x];
    }
  }
}

struct BlendJob {
  Image* dst;
  const Image* a;
  const Image* b;
  const Image* mask;
};

uint8_t mixed(int32_t a, int32_t b, int32_t m) {
  return static_cast<uint8_t>(((128 - m) * a + m * b) >> 7);
}

void blendRows(const BlendJob& job, int32_t begin, int32_t end) {
  const int32_t width = job.dst->width;
  const bool rgb = job.dst->format == IMAGE_RGB888;
  const int32_t channels = rgb ? 3 : 1;
  for (int32_t y = begin; y < end; ++y) {
    const uint8_t* mask = imageRow(job.mask, y);
    uint8_t* dst = imageRow(job.dst, y);
    const uint8_t* a = imageRow(job.a, y);
    const uint8_t* b = imageRow(job.b, y);
    for (int32_t x = 0; x < width * channels; ++x) dst[x] = mixed(a[x], b[x], mask[x / channels]);
    if (rgb || (y & 1) != 0) continue;
    uint8_t* dstPairs = imageChromaRow(job.dst, y / 2);
    const uint8_t* aPairs = imageChromaRow(job.a, y / 2);
    const uint8_t* bPairs = imageChromaRow(job.b, y / 2);
    for (int32_t x = 0; x < (width + 1) / 2 * 2; ++x) dstPairs[x] = mixed(aPairs[x], bPairs[x], mask[x & ~1]);
  }
}

struct RangeJob {
  Image* dst;
  const Image* src;
  double low;
  double scale;
};

template <typename T>
void rangeRows(const RangeJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    uint8_t* dst = imageRow(job.dst, y);
    const T* src = imageRow<const T>(job.src, y);
    for (int32_t x = 0; x < job.dst->width; ++x) {
      dst[x] = clampByte(truncToInt32((static_cast<double>(src[x]) - job.low) * job.scale + 0.5));
    }
  }
}

template <typename T>
Status mapRange(ImageProc* proc, Image* dst, const Image* src, double low, double high) {
  if (!(high > low)) {
    low = std::numeric_limits<double>::infinity();
    high = -low;
    for (int32_t y = 0; y < src->height; ++y) {
      const T* row = imageRow<const T>(src, y);
      for (int32_t x = 0; x < src->width; ++x) {
        low = row[x] < low ? row[x] : low;
        high = row[x] > high ? row[x] : high;
      }
    }
  }
  const RangeJob job = {dst, src, low, high > low ? 255.0 / (high - low) : 0.0};
  return forkRowSlices<RangeJob, rangeRows<T>>(proc->executor, job, dst->height);
}

struct SplitJob {
  Image* planes[3];
  const Image* src;
};

void splitRgbRows(const SplitJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    const uint8_t* src = imageRow(job.src, y);
    for (int32_t c = 0; c < 3; ++c) {
      uint8_t* dst = imageRow(job.planes[c], y);
      for (int32_t x = 0; x < job.src->width; ++x) dst[x] = src[3 * x + c];
    }
  }
}

void splitChromaRows(const SplitJob& job, int32_t begin, int32_t end) {
  const int32_t byteOfU = job.src->format == IMAGE_YUV420_SEMIPLANAR ? 0 : 1;
  for (int32_t y = begin; y < end; ++y) {
    const uint8_t* pairs = imageChromaRow(job.src, y);
    for (int32_t c = 0; c < 2; ++c) {
      uint8_t* dst = imageRow(job.planes[1 + c], y);
      for (int32_t x = 0; x < job.planes[1 + c]->width; ++x) dst[x] = pairs[2 * x + (c ^ byteOfU)];
    }
  }
}

bool allUint8(const Image* const* planes) {
  for (int32_t i = 0; i < 3; ++i) {
    if (planes[i] == nullptr || planes[i]->format != IMAGE_UINT8) return false;
  }
  return true;
}

}  // namespace

Status ImageProc_add(ImageProc* proc, Image* dst, const Image* a, const Image* b) {
  return operateTwo<Add>(proc, dst, a, b);
}
Status ImageProc_sub(ImageProc* proc, Image* dst, const Image* a, const Image* b) {
  return operateTwo<Sub>(proc, dst, a, b);
}
Status ImageProc_abssub(ImageProc* proc, Image* dst, const Image* a, const Image* b) {
  return operateTwo<AbsSub>(proc, dst, a, b);
}
Status ImageProc_abs(ImageProc* proc, Image* dst, const Image* a) {
  return operate<Abs>(proc, dst, a, nullptr, 0);
}
Status ImageProc_mul(ImageProc* proc, Image* dst, const Image* a, const Image* b) {
  return operateTwo<Mul>(proc, dst, a, b);
}
Status ImageProc_max(ImageProc* proc, Image* dst, const Image* a, const Image* b) {
  return operateTwo<Max>(proc, dst, a, b);
}
Status ImageProc_min(ImageProc* proc, Image* dst, const Image* a, const Image* b) {
  return operateTwo<Min>(proc, dst, a, b);
}
Status ImageProc_mla(ImageProc* proc, Image* dst, const Image* a, const Image* b) {
  return operateTwo<Mla>(proc, dst, a, b);
}
Status ImageProc_n_add(ImageProc* proc, Image* dst, const Image* a, int32_t n) {
  return operate<Add>(proc, dst, a, nullptr, n);
}
Status ImageProc_n_sub(ImageProc* proc, Image* dst, const Image* a, int32_t n) {
  return operate<Sub>(proc, dst, a, nullptr, n);
}
Status ImageProc_n_subr(ImageProc* proc, Image* dst, const Image* a, int32_t n) {
  return operate<ReverseSub>(proc, dst, a, nullptr, n);
}
Status ImageProc_n_mul(ImageProc* proc, Image* dst, const Image* a, int32_t n) {
  return operate<Mul>(proc, dst, a, nullptr, n);
}
Status ImageProc_n_max(ImageProc* proc, Image* dst, const Image* a, int32_t n) {
  return operate<Max>(proc, dst, a, nullptr, n);
}
Status ImageProc_n_min(ImageProc* proc, Image* dst, const Image* a, int32_t n) {
  return operate<Min>(proc, dst, a, nullptr, n);
}

Status ImageProc_div(ImageProc* proc, Image* dst, const Image* a, const Image* b) {
  if (proc == nullptr || dst == nullptr || a == nullptr || b == nullptr) return ZELVAN_ERROR_PARAM;
  for (const Image* image : {static_cast<const Image*>(dst), a, b}) {
    if (image->format != IMAGE_INT32) return ZELVAN_ERROR_PARAM;
  }
  divRows({dst, a, b, 0}, 0, dst->height);
  return ZELVAN_OK;
}

Status ImageProc_blend(ImageProc* proc, Image* dst, const Image* a, const Image* b, const Image* mask) {
  if (proc == nullptr || dst == nullptr || a == nullptr || b == nullptr || mask == nullptr) return ZELVAN_ERROR_PARAM;
  const int32_t format = dst->format;
  if (format != IMAGE_RGB888 && !isSemiplanar420(format)) {
    return ZELVAN_ERROR_PARAM;
  }
  if (a->format != format || b->format != format || mask->format != IMAGE_UINT8) return ZELVAN_ERROR_PARAM;
  const BlendJob job = {dst, a, b, mask};
  return forkRowSlices<BlendJob, blendRows>(proc->executor, job, dst->height);
}

Status ImageProc_blendImageWrapper(ImageProcBlend* arguments) {
  if (arguments == nullptr) return ZELVAN_ERROR_PARAM;
  return ImageProc_blend(arguments->proc, arguments->dst, arguments->a, arguments->b, arguments->mask);
}

Status ImageProc_ImageInt32_toUint8(ImageProc* proc, Image* dst, const Image* src, int32_t low, int32_t high) {
  if (proc == nullptr || dst == nullptr || src == nullptr) return ZELVAN_ERROR_PARAM;
  if (dst->format != IMAGE_UINT8 || src->format != IMAGE_INT32) return ZELVAN_ERROR_PARAM;
  return mapRange<int32_t>(proc, dst, src, low, high);
}

Status ImageProc_ImageFloat_toUint8(ImageProc* proc, Image* dst, const Image* src) {
  if (proc == nullptr || dst == nullptr || src == nullptr) return ZELVAN_ERROR_PARAM;
  if (dst->format != IMAGE_UINT8 || src->format != IMAGE_FLOAT) return ZELVAN_ERROR_PARAM;
  return mapRange<float>(proc, dst, src, 0.0, 0.0);
}

Status ImageProc_clear(ImageProc* proc, Image* image, const int32_t* values) {
  if (proc == nullptr || image == nullptr || values == nullptr) return ZELVAN_ERROR_PARAM;
  if (image->format == IMAGE_RGB888) {
    for (int32_t y = 0; y < image->height; ++y) {
      uint8_t* row = imageRow(image, y);
      for (int32_t x = 0; x < image->width * 3; ++x) row[x] = static_cast<uint8_t>(values[x % 3]);
    }
    return ZELVAN_OK;
  }
  if (const Status s = ImageProc_clearY(proc, image, values[0]); s != ZELVAN_OK) return s;
  if (image->plane1 == nullptr) return ZELVAN_OK;
  const int32_t byteOfU = image->format == IMAGE_YUV420_SEMIPLANAR ? 0 : 1;
  for (int32_t y = 0; y < (image->height + 1) / 2; ++y) {
    uint8_t* pairs = imageChromaRow(image, y);
    for (int32_t x = 0; x < (image->width + 1) / 2 * 2; ++x) {
      pairs[x] = static_cast<uint8_t>(values[(x & 1) == byteOfU ? 1 : 2]);
    }
  }
  return ZELVAN_OK;
}

Status ImageProc_split2rgb888(ImageProc* proc, Image* red, Image* green, Image* blue, const Image* src) {
  const SplitJob job = {{red, green, blue}, src};
  if (proc == nullptr || src == nullptr || !allUint8(job.planes) || src->format != IMAGE_RGB888) {
    return ZELVAN_ERROR_PARAM;
  }
  return forkRowSlices<SplitJob, splitRgbRows>(proc->executor, job, src->height);
}

Status ImageProc_split2rgb888_yuv420semiplanar(ImageProc* proc, Image* luma, Image* u, Image* v, const Image* src) {
  const SplitJob job = {{luma, u, v}, src};
  if (proc == nullptr || src == nullptr || !allUint8(job.planes)) return ZELVAN_ERROR_PARAM;
  if (!isSemiplanar420(src->format)) return ZELVAN_ERROR_PARAM;
  return ImageProc_cvt(proc, luma, src) |
         forkRowSlices<SplitJob, splitChromaRows>(proc->executor, job, (src->height + 1) / 2);
}
