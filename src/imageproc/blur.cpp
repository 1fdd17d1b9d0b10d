#include "imageproc/blur.h"

#include "base/raw_double.h"
#include "imageproc/plane_view.h"
#include "imageproc/pool_rows.h"
#include "imageproc/resize.h"
#include "imageproc/separable_rows.h"

namespace {

constexpr double kFinalSigma = 1.8;
constexpr double kFinalVariance = 3.24;
constexpr int32_t kSmallestHalved = 33;
constexpr float kSmallestTap = 0.00024414063f;

// ---------------------------------------------------------------------------------------------------- direct Gaussian

void normalise(float* weights, int32_t count) {
  float sum = 0.0f;
  for (int32_t i = 0; i < count; ++i) sum += weights[i];
  const float scale = 1.0f / (sum + 1e-9f);
  for (int32_t i = 0; i < count; ++i) weights[i] *= scale;
}

SymmetricTaps gaussTapsForSide(double sigma, int32_t smallerSide) {
  constexpr int32_t kMost = SymmetricTaps::kMostRadius;
  if (!(sigma > 1e-16)) sigma = 1e-16;
  float weights[2 * kMost + 1];
  for (int32_t i = 0; i <= kMost; ++i) {
    const double exponent = -static_cast<double>(i * i) / (2.0 * sigma * sigma);
    weights[kMost - i] = weights[kMost + i] = static_cast<float>(RawDouble_exp(exponent));
  }
  normalise(weights, 2 * kMost + 1);
  const int32_t limit = smallerSide < 2 ? kMost : std::min(smallerSide / 2, kMost);
  SymmetricTaps kernel = {};
  while (kernel.radius < limit && weights[kMost + kernel.radius + 1] > kSmallestTap) ++kernel.radius;
  float* kept = weights + kMost - kernel.radius;
  const int32_t count = 2 * kernel.radius + 1;
  normalise(kept, count);
  for (int32_t i = 0; i < count; ++i) kernel.taps[i] = truncToInt32(kept[i] * 32768.0f + 0.5f);
  return kernel;
}

struct GaussJob {
  Image* dst;
  const Image* src;
  int16_t* scratch;
  SymmetricTaps kernel;
};

template <int32_t kChannels>
void gaussAcross(const GaussJob& job, int32_t begin, int32_t end) {
  const int32_t width = job.src->width;
  for (int32_t y = begin; y < end; ++y) {
    filterAcross<0, kChannels>(job.scratch + static_cast<size_t>(y) * width * kChannels,
                               imageRow<const uint8_t>(job.src, y), job.kernel, width);
  }
}

template <int32_t kChannels>
void gaussDown(const GaussJob& job, int32_t begin, int32_t end) {
  const int32_t count = job.dst->width * kChannels;
  const int32_t last = job.dst->height - 1;
  const int32_t radius = job.kernel.radius;
  const int16_t* rows[2 * SymmetricTaps::kMostRadius + 1];
  for (int32_t y = begin; y < end; ++y) {
    for (int32_t t = 0; t <= 2 * radius; ++t) {
      rows[t] = job.scratch + static_cast<size_t>(clampInt(y + t - radius, 0, last)) * count;
    }
    filterDown(imageRow(job.dst, y), rows, job.kernel, count);
  }
}

template <int32_t kChannels, typename Context>
Status gaussPlane(Context* proc, Image* dst, const Image* src, double sigma) {
  const int32_t width = dst->width;
  const int32_t height = dst->height;
  const ScopedBlock<int16_t> scratch(proc->env, static_cast<size_t>(width) * height * kChannels);
  if (!scratch) return ZELVAN_ERROR_NOMEM;
  const GaussJob job = {dst, src, scratch.data(), gaussTapsForSide(sigma, std::min(width, height))};
  if (const Status s = runRows<GaussJob, gaussAcross<kChannels>>(proc, job, height); s != ZELVAN_OK) return s;
  return runRows<GaussJob, gaussDown<kChannels>>(proc, job, height);
}

// ------------------------------------------------------------------------------------------------------------- planes

bool hasPlanes(int32_t format) {
  return Image_isYuvPlanar(format) != 0 || Image_isYuvSemiplanar(format) != 0 || Image_isYvuSemiplanar(format) != 0;
}

template <typename Context, typename Blur>
Status blurPlanes(Context* proc, Image* dst, const Image* src, double lumaSigma, double chromaSigma, Blur blur) {
  const auto plane = [&](ViewInit init, double sigma) {
    return onPlaneViews(proc->env, dst, src, init, [&](Image* d, const Image* s) { return blur(proc, d, s, sigma); });
  };
  if (const Status s = plane(Image_initSubImageY, lumaSigma); s != ZELVAN_OK) return s;
  if (!Image_isYuvPlanar(src->format)) return plane(Image_initSubImageUV, chromaSigma);
  if (const Status s = plane(Image_initSubImageU, chromaSigma); s != ZELVAN_OK) return s;
  return plane(Image_initSubImageV, chromaSigma);
}

template <typename Context>
Status directBlur(Context* proc, Image* dst, const Image* src, double sigma) {
  if (!isUsablePair(proc, dst, src)) return ZELVAN_ERROR_PARAM;
  if (dst->format != src->format) return refusedFormat(proc);
  if (hasPlanes(src->format)) return blurPlanes(proc, dst, src, sigma, sigma, directBlur<Context>);
  switch (src->format) {
    case IMAGE_UINT8:
      return gaussPlane<1>(proc, dst, src, sigma);
    case IMAGE_UINT88:
      return gaussPlane<2>(proc, dst, src, sigma);
    case IMAGE_RGB888:
      return gaussPlane<3>(proc, dst, src, sigma);
    default:
      return refusedFormat(proc);
  }
}

// ---------------------------------------------------------------------------------------------------- by way of halves

Status resize(ImageProc* proc, Image* dst, const Image* src) {
  return ImageProc_resizeImage(proc, dst, src);
}
Status resize(ImageProc2* proc, Image* dst, const Image* src) {
  return ImageProc2_resizeImage(proc, dst, src);
}

template <typename Context>
Status wideBlur(Context* proc, Image* dst, const Image* src, double sigma);

template <typename Context>
Status blurThroughHalf(Context* proc, Image* dst, const Image* src, double sigma) {
  const double rest = RawDouble_sqrt(sigma * sigma - kFinalVariance);
  {
    ScopedImage halved(proc->env);
    if (const Status s = Image_init(&halved, src->width / 2, src->height / 2, nullptr, src->format); s != ZELVAN_OK) {
      return s;
    }
    if (const Status s = resize(proc, &halved, src); s != ZELVAN_OK) return s;
    if (const Status s = wideBlur(proc, &halved, &halved, rest * 0.5); s != ZELVAN_OK) return s;
    if (const Status s = resize(proc, dst, &halved); s != ZELVAN_OK) return s;
  }
  return directBlur(proc, dst, dst, kFinalSigma);
}

template <typename Context>
Status wideBlur(Context* proc, Image* dst, const Image* src, double sigma) {
  if (!isUsablePair(proc, dst, src)) return ZELVAN_ERROR_PARAM;
  if (dst->format != src->format) return refusedFormat(proc);
  if (hasPlanes(src->format)) {
    const bool fullChroma = Image_isYuv444(src->format) != 0;
    return blurPlanes(proc, dst, src, sigma, fullChroma ? sigma : sigma * 0.5, wideBlur<Context>);
  }
  if (sigma > kFinalSigma && std::min(src->width, src->height) >= kSmallestHalved) {
    return blurThroughHalf(proc, dst, src, sigma);
  }
  return directBlur(proc, dst, src, sigma);
}

}  // namespace

Status ImageProc_pgaussBlur(ImageProc* proc, Image* dst, const Image* src, double sigma) {
  return wideBlur(proc, dst, src, sigma);
}
Status ImageProc_gaussBlur2(ImageProc* proc, Image* dst, const Image* src, double sigma) {
  return directBlur(proc, dst, src, sigma);
}
Status ImageProc2_pgaussBlur(ImageProc2* proc, Image* dst, const Image* src, double sigma) {
  return wideBlur(proc, dst, src, sigma);
}
Status ImageProc2_gaussBlur(ImageProc2* proc, Image* dst, const Image* src, double sigma) {
  return directBlur(proc, dst, src, sigma);
}

int32_t ImageProc2_getBufferSizeForGaussBlur(int32_t width, int32_t height) {
  return wrapMul(wrapMul(width, height), 6);
}

int32_t ImageProc2_getBufferSizeForPgaussBlur(int32_t width, int32_t height) {
  const int32_t halved = wrapMul(wrapMul(width / 2, height / 2), 2);
  const int32_t resized = wrapAdd(halved, ImageProc2_getBufferSizeForResizeImage(width, height));
  return std::max(ImageProc2_getBufferSizeForGaussBlur(width, height), resized);
}
