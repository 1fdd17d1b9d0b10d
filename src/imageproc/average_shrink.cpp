#include <algorithm>

#include "base/integer.h"
#include "imageproc/plane_view.h"
#include "imageproc/resize.h"
#include "parallel/bands.h"
#include "parallel/pel_kernel.h"

namespace {

// Weights of three neighbouring pixels for one target pixel; they add up to 128.
struct Share {
  int32_t first;  // index of the first pixel
  int32_t weights[3];
};

struct Axis {
  int64_t step;   // Q15 ratio current / target
  int32_t share;  // Q7 part of a target pixel that one current pixel makes up
  int64_t start;  // Q15 position of target pixel 0
};

Axis axisOf(int32_t current, int32_t target, bool centred) {
  const int64_t offset = centred ? (int64_t{current} - target) * 32768 / (2 * int64_t{target}) : 0;
  return {int64_t{current} * 32768 / target, static_cast<int32_t>(int64_t{target} * 128 / current), offset};
}

Share shareAt(const Axis& axis, int32_t x) {
  const int64_t p = axis.start + x * axis.step;
  const int64_t f = ((p & 0x7fff) + 128) >> 8;
  const int64_t t = (axis.step >> 8) + f;
  const int32_t w0 = static_cast<int32_t>(((128 - f) * axis.share + 64) >> 7);
  const int32_t w1 = static_cast<int32_t>(((t < 257 ? t - 128 : 128) * axis.share + 64) >> 7);
  return {static_cast<int32_t>(p >> 15), {w0, w1, 128 - w0 - w1}};
}

// Between ratios 1 and 2 the result always fits the sample; only a target that is not reached by halving, in one of
// two directions, makes weights negative.
template <typename Sample>
Sample mix(const Share& share, Sample a, Sample b, Sample c) {
  using Sum = std::conditional_t<sizeof(Sample) == 4, int64_t, int32_t>;
  const Sum sum = (Sum{share.weights[0]} * a + Sum{share.weights[1]} * b + Sum{share.weights[2]} * c + 64) >> 7;
  constexpr Sum kLow = std::numeric_limits<Sample>::min();
  constexpr Sum kHigh = std::numeric_limits<Sample>::max();
  return static_cast<Sample>(sum < kLow ? kLow : sum > kHigh ? kHigh : sum);
}

struct ShrinkJob {
  Image* dst;
  const Image* src;
  Axis axis;
  int32_t bands;
};

template <typename Sample, int32_t kChannels>
Status shrinkAcross(ShrinkJob* job, int32_t index, const PelContext* /*context*/) {
  const int32_t height = job->dst->height;
  const int32_t last = job->src->width - 1;
  const int32_t end = bandStart(index + 1, job->bands, height);
  for (int32_t y = bandStart(index, job->bands, height); y < end; ++y) {
    const Sample* src = imageRow<const Sample>(job->src, y);
    Sample* dst = imageRow<Sample>(job->dst, y);
    for (int32_t x = 0; x < job->dst->width; ++x) {
      const Share share = shareAt(job->axis, x);
      const Sample* a = src + clampInt(share.first, 0, last) * kChannels;
      const Sample* b = src + clampInt(share.first + 1, 0, last) * kChannels;
      const Sample* c = src + clampInt(share.first + 2, 0, last) * kChannels;
      for (int32_t i = 0; i < kChannels; ++i) dst[x * kChannels + i] = mix(share, a[i], b[i], c[i]);
    }
  }
  return ZELVAN_OK;
}

template <typename Sample, int32_t kChannels>
Status shrinkDown(ShrinkJob* job, int32_t index, const PelContext* /*context*/) {
  const int32_t height = job->dst->height;
  const int32_t last = job->src->height - 1;
  const int32_t count = job->dst->width * kChannels;
  const int32_t end = bandStart(index + 1, job->bands, height);
  for (int32_t y = bandStart(index, job->bands, height); y < end; ++y) {
    const Share share = shareAt(job->axis, y);
    const Sample* a = imageRow<const Sample>(job->src, clampInt(share.first, 0, last));
    const Sample* b = imageRow<const Sample>(job->src, clampInt(share.first + 1, 0, last));
    const Sample* c = imageRow<const Sample>(job->src, clampInt(share.first + 2, 0, last));
    Sample* __restrict dst = imageRow<Sample>(job->dst, y);
    for (int32_t x = 0; x < count; ++x) dst[x] = mix(share, a[x], b[x], c[x]);
  }
  return ZELVAN_OK;
}

template <typename Sample, int32_t kChannels>
Status shrinkPlane(const ImageProc2* proc, Image* dst, const Image* src) {
  static constexpr PelKernel kAcross = pelIndexed<ShrinkJob, shrinkAcross<Sample, kChannels>>();
  static constexpr PelKernel kDown = pelIndexed<ShrinkJob, shrinkDown<Sample, kChannels>>();
  ScopedImage across(proc->env);
  if (const Status s = Image_init(&across, dst->width, src->height, nullptr, src->format); s != ZELVAN_OK) return s;
  const int32_t most = 5 * Pel_getNumberOfWorkers(proc->pel);
  ShrinkJob first = {&across, src, axisOf(src->width, dst->width, true), std::min(most, across.height)};
  if (const Status s = executeToEnd(proc->pel, &kAcross, &first, first.bands); s != ZELVAN_OK) return s;
  ShrinkJob second = {dst, &across, axisOf(src->height, dst->height, false), std::min(most, dst->height)};
  return executeToEnd(proc->pel, &kDown, &second, second.bands);
}

Status shrinkRest(const ImageProc2* proc, Image* dst, const Image* src) {
  using PlaneShrink = Status (*)(const ImageProc2*, Image*, const Image*);
  const auto view = [&](ViewInit init, PlaneShrink shrink) {
    return onPlaneViews(proc->env, dst, src, init, [&](Image* d, const Image* s) { return shrink(proc, d, s); });
  };
  switch (src->format) {
    case IMAGE_YUV420_PLANAR: {
      Status status = view(Image_initSubImageY, shrinkPlane<uint8_t, 1>);
      status |= view(Image_initSubImageU, shrinkPlane<uint8_t, 1>);
      return status | view(Image_initSubImageV, shrinkPlane<uint8_t, 1>);
    }
    case IMAGE_YUV420_SEMIPLANAR:
    case IMAGE_YVU420_SEMIPLANAR: {
      const Status status = view(Image_initSubImageY, shrinkPlane<uint8_t, 1>);
      return status | view(Image_initSubImageUV, shrinkPlane<uint8_t, 2>);
    }
    case IMAGE_UINT8:
      return shrinkPlane<uint8_t, 1>(proc, dst, src);
    case IMAGE_INT32:
      return shrinkPlane<int32_t, 1>(proc, dst, src);
    case IMAGE_UINT16:
      return shrinkPlane<uint16_t, 1>(proc, dst, src);
    case IMAGE_UINT88:
      return shrinkPlane<uint8_t, 2>(proc, dst, src);
    default:
      return ZELVAN_ERROR_UNSUPPORTED;
  }
}

constexpr int32_t half(int32_t size) {
  return (size + 1) / 2;
}

// A side of one pixel has no half: it counts as done, whatever the target.
constexpr bool isHalvedEnough(int32_t size, int32_t target) {
  return size == 1 || half(size) < target;
}

}  // namespace

Status ImageProc2_averageShrink(ImageProc2* proc, Image* dst, const Image* src) {
  if (proc == nullptr || dst == nullptr || src == nullptr) return ZELVAN_ERROR_PARAM;
  if (dst->width < 1 || dst->height < 1 || dst->width >= src->width || dst->height >= src->height ||
      dst->format != src->format) {
    return ZELVAN_ERROR_PARAM;
  }
  if (dst->width == half(src->width) && dst->height == half(src->height)) {
    return ImageProc2_resizeImage(proc, dst, src);
  }
  // The source itself is always halved once: either the chain asks for it, or one of its halves is not above the
  // target, and then the chain begins at the half.
  ScopedImage even(proc->env);
  ScopedImage odd(proc->env);
  Image* next = &even;
  Image* spare = &odd;
  const Image* current = src;
  do {
    if (const Status s = Image_init(next, half(current->width), half(current->height), nullptr, src->format);
        s != ZELVAN_OK) {
      return s;
    }
    if (const Status s = ImageProc2_resizeImage(proc, next, current); s != ZELVAN_OK) return s;
    current = next;
    std::swap(next, spare);
  } while (!isHalvedEnough(current->width, dst->width) || !isHalvedEnough(current->height, dst->height));
  return shrinkRest(proc, dst, current);
}

int32_t ImageProc2_getBufferSizeForAverageShrink(int32_t width, int32_t height) {
  const int32_t w = half(width);
  const int32_t h = half(height);
  const int32_t images =
      wrapAdd(wrapAdd(Image_getSize(w, h, IMAGE_INT32, 0), Image_getSize(half(w), half(h), IMAGE_INT32, 0)),
              Image_getSize(width, h, IMAGE_INT32, 0));
  return wrapAdd(images, ImageProc2_getBufferSizeForResizeImage(width, height));
}
