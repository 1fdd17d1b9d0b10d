#include "imageproc/box.h"

#include <algorithm>
#include <cstdlib>
#include <type_traits>

#include "base/integer.h"
#include "imageproc/plane_view.h"
#include "imageproc/pool_rows.h"

namespace {

// Sliding sums along a line of count items that lie step apart. The first sum stands on the repeated edge; then the
// entering item is added and the leaving one subtracted.
template <typename Sum, typename In, typename Out>
void slide(const In* in, int32_t count, ptrdiff_t step, int32_t radius, const Out& out) {
  const auto at = [&](int32_t i) { return static_cast<Sum>(in[clampInt(i, 0, count - 1) * step]); };
  Sum sum = 0;
  for (int32_t i = -radius; i <= radius; ++i) sum += at(i);
  for (int32_t i = 0; i < count; ++i) {
    out(i, sum);
    sum += at(i + radius + 1);
    sum -= at(i - radius);
  }
}

// One separable pass pair: rows into scratch, columns into dst. Finish turns a sum into what is stored.
template <typename Out>
struct BoxJob {
  const Image* dst;
  const Image* src;
  Out* scratch;
  int32_t radius;
  int32_t scale;  // 32768 / window
};

struct KeepSum {
  template <typename Out, typename Sum>
  static Out finish(Sum sum, int32_t) {
    return static_cast<Out>(sum);
  }
};
struct Mean {
  template <typename Out, typename Sum>
  static Out finish(Sum sum, int32_t scale) {
    return static_cast<Out>(std::min((static_cast<int32_t>(sum) * scale + 16384) >> 15, 255));
  }
};

// Unsigned sums wrap; only floats need a type of their own.
template <typename T>
using SumOf = std::conditional_t<std::is_same_v<T, float>, float, uint32_t>;

template <typename In, typename Out, typename Finish, int32_t kChannels>
void boxAcross(const BoxJob<Out>& job, int32_t begin, int32_t end) {
  const int32_t width = job.src->width;
  for (int32_t y = begin; y < end; ++y) {
    Out* out = job.scratch + static_cast<ptrdiff_t>(y) * width * kChannels;
    for (int32_t c = 0; c < kChannels; ++c) {
      slide<SumOf<Out>>(
          imageRow<const In>(job.src, y) + c, width, kChannels, job.radius,
          [&](int32_t x, SumOf<Out> sum) { out[x * kChannels + c] = Finish::template finish<Out>(sum, job.scale); });
    }
  }
}

template <typename Out, typename Finish, int32_t kChannels>
void boxDown(const BoxJob<Out>& job, int32_t begin, int32_t end) {
  const ptrdiff_t line = static_cast<ptrdiff_t>(job.src->width) * kChannels;
  for (int32_t x = begin; x < end; ++x) {
    slide<SumOf<Out>>(job.scratch + x, job.src->height, line, job.radius, [&](int32_t y, SumOf<Out> sum) {
      imageRow<Out>(job.dst, y)[x] = Finish::template finish<Out>(sum, job.scale);
    });
  }
}

// Runs both passes by way of one of the pools.
template <typename In, typename Out, typename Finish, int32_t kChannels, typename Context>
Status box(Context* proc, Image* dst, const Image* src, int32_t radius, int32_t window) {
  const int32_t line = src->width * kChannels;
  const ScopedBlock<Out> scratch(proc->env, static_cast<size_t>(line) * static_cast<size_t>(src->height));
  if (!scratch) return ZELVAN_ERROR_NOMEM;
  const BoxJob<Out> job = {dst, src, scratch.data(), radius, 32768 / window};
  using Job = BoxJob<Out>;
  if (const Status s = runRows<Job, boxAcross<In, Out, Finish, kChannels>>(proc, job, src->height); s != ZELVAN_OK) {
    return s;
  }
  return runRows<Job, boxDown<Out, Finish, kChannels>>(proc, job, line);
}

template <typename Context>
Status boxMean(Context* proc, Image* dst, const Image* src, int32_t window) {
  if (!isUsablePair(proc, dst, src) || window < 1) return ZELVAN_ERROR_PARAM;
  if (dst->format != src->format) return refusedFormat(proc);
  const int32_t radius = (window - 1) >> 1;
  switch (src->format) {
    case IMAGE_UINT8:
      return box<uint8_t, uint8_t, Mean, 1>(proc, dst, src, radius, window);
    case IMAGE_UINT88:
      return box<uint8_t, uint8_t, Mean, 2>(proc, dst, src, radius, window);
    case IMAGE_YUV420_SEMIPLANAR:
    case IMAGE_YVU420_SEMIPLANAR:
      break;
    default:
      return refusedFormat(proc);
  }
  const auto again = [&](Image* d, const Image* s) { return boxMean(proc, d, s, window); };
  const Status status = onPlaneViews(proc->env, dst, src, Image_initSubImageY, again);
  return status != ZELVAN_OK ? status : onPlaneViews(proc->env, dst, src, Image_initSubImageUV, again);
}

// ------------------------------------------------------------------------------------------------------ 3x3 filters

struct Neighbourhood {
  int32_t v[9];  // row by row, the centre at 4

  int32_t mean() const {
    int32_t sum = 0;
    for (int32_t x : v) sum += x;
    return (sum * 3641 + 16384) >> 15;
  }
};

struct Average3x3 {
  static int32_t apply(Neighbourhood& n) { return n.mean(); }
};
struct Max3x3 {
  static int32_t apply(Neighbourhood& n) { return *std::max_element(n.v, n.v + 9); }
};
struct Min3x3 {
  static int32_t apply(Neighbourhood& n) { return *std::min_element(n.v, n.v + 9); }
};
struct Median3x3 {
  static int32_t apply(Neighbourhood& n) {
    std::nth_element(n.v, n.v + 4, n.v + 9);
    return n.v[4];
  }
};
struct Sharpen3x3 {
  static int32_t apply(Neighbourhood& n) { return 2 * n.v[4] - n.mean(); }
};
struct Laplacian3x3 {
  static int32_t apply(Neighbourhood& n) { return std::abs(4 * n.v[4] - n.v[1] - n.v[3] - n.v[5] - n.v[7]); }
};

struct FilterJob {
  const Image* dst;
  const Image* src;
};

template <typename Filter>
void filterRows(const FilterJob& job, int32_t begin, int32_t end) {
  const int32_t width = job.src->width;
  const int32_t last = job.src->height - 1;
  for (int32_t y = begin; y < end; ++y) {
    const uint8_t* rows[3];
    for (int32_t i = 0; i < 3; ++i) rows[i] = imageRow<const uint8_t>(job.src, clampInt(y + i - 1, 0, last));
    uint8_t* dst = imageRow(job.dst, y);
    for (int32_t x = 0; x < width; ++x) {
      const int32_t columns[3] = {x > 0 ? x - 1 : 0, x, x + 1 < width ? x + 1 : x};
      Neighbourhood n;
      for (int32_t i = 0; i < 9; ++i) n.v[i] = rows[i / 3][columns[i % 3]];
      dst[x] = clampByte(Filter::apply(n));
    }
  }
}

template <typename Filter, typename Context>
Status filter3x3(Context* proc, Image* dst, const Image* src) {
  if (!isUsablePair(proc, dst, src)) return ZELVAN_ERROR_PARAM;
  if (dst->format != IMAGE_UINT8 || src->format != IMAGE_UINT8) return refusedFormat(proc);
  ScopedImage copy(proc->env);
  if (dst->plane0 == src->plane0) {
    if (const Status s = Image_copy(&copy, src); s != ZELVAN_OK) return s;
    src = &copy;
  }
  const FilterJob job = {dst, src};
  return runRows<FilterJob, filterRows<Filter>>(proc, job, src->height);
}

}  // namespace

Status ImageProc_boxSum(ImageProc* proc, Image* dst, const Image* src, int32_t window) {
  if (!isUsablePair(proc, dst, src) || window < 1) return ZELVAN_ERROR_PARAM;
  const int32_t radius = window / 2;
  switch (dst->format << 8 | src->format) {
    case IMAGE_UINT16 << 8 | IMAGE_UINT8:
      return box<uint8_t, uint16_t, KeepSum, 1>(proc, dst, src, radius, window);
    case IMAGE_INT32 << 8 | IMAGE_UINT8:
      return box<uint8_t, int32_t, KeepSum, 1>(proc, dst, src, radius, window);
    case IMAGE_INT32 << 8 | IMAGE_INT32:
      return box<int32_t, int32_t, KeepSum, 1>(proc, dst, src, radius, window);
    case IMAGE_FLOAT << 8 | IMAGE_FLOAT:
      return box<float, float, KeepSum, 1>(proc, dst, src, radius, window);
    default:
      return ZELVAN_ERROR_GENERAL;
  }
}

Status ImageProc_boxSum2(ImageProc* proc, Image* dst, const Image* src, int32_t window) {
  return ImageProc_boxSum(proc, dst, src, window);
}

Status ImageProc_boxBlur(ImageProc* proc, Image* dst, const Image* src, int32_t window) {
  return boxMean(proc, dst, src, window);
}

Status ImageProc_boxBlur2(ImageProc* proc, Image* dst, const Image* src, int32_t window) {
  return boxMean(proc, dst, src, window);
}

Status ImageProc2_boxBlur(ImageProc2* proc, Image* dst, const Image* src, int32_t window) {
  if (window > 0 && window % 2 == 0) return ZELVAN_ERROR_UNSUPPORTED;
  return boxMean(proc, dst, src, window);
}

int32_t ImageProc2_getBufferSizeForBoxBlur(int32_t width, int32_t height) {
  return wrapMul(wrapMul(width, height), 2);
}

int32_t ImageProc2_getBufferSizeForFilter3x3(int32_t width, int32_t height) {
  return Image_getSize(width, height, IMAGE_UINT8, 0);
}

Status ImageProc_filterAveraging3x3(ImageProc* proc, Image* dst, const Image* src, double /*sigma*/) {
  return filter3x3<Average3x3>(proc, dst, src);
}
Status ImageProc_filterMax3x3(ImageProc* proc, Image* dst, const Image* src) {
  return filter3x3<Max3x3>(proc, dst, src);
}
Status ImageProc_filterMin3x3(ImageProc* proc, Image* dst, const Image* src) {
  return filter3x3<Min3x3>(proc, dst, src);
}
Status ImageProc_filterMedian3x3(ImageProc* proc, Image* dst, const Image* src) {
  return filter3x3<Median3x3>(proc, dst, src);
}
Status ImageProc_filterSharpen(ImageProc* proc, Image* dst, const Image* src) {
  return filter3x3<Sharpen3x3>(proc, dst, src);
}
Status ImageProc_filterLaplacian(ImageProc* proc, Image* dst, const Image* src) {
  return filter3x3<Laplacian3x3>(proc, dst, src);
}
Status ImageProc2_filterMax3x3(ImageProc2* proc, Image* dst, const Image* src) {
  return filter3x3<Max3x3>(proc, dst, src);
}
Status ImageProc2_filterMin3x3(ImageProc2* proc, Image* dst, const Image* src) {
  return filter3x3<Min3x3>(proc, dst, src);
}
