// The luma pyramid of a base or a frame, and the band-pass form of its coarsest level.
#include <algorithm>

#include "base/integer.h"
#include "base/raw_double.h"
#include "tracker/vectral.h"
#include "tracker/vectral_util.h"

namespace {

// 2 Radius + 1 taps. The centre takes up what the division leaves, so that the taps add up to 1 exactly.
template <int32_t Radius>
struct GaussTaps {
  // exp(-numerator k^2 / denominator), normalised
  GaussTaps(double numerator, double denominator) {
    double sum = 0;
    for (int32_t k = -Radius; k <= Radius; ++k) {
      weights[k + Radius] = RawDouble_exp(-numerator * (k * k) / denominator);
      sum += weights[k + Radius];
    }
    double others = 0;
    for (int32_t k = -Radius; k <= Radius; ++k) {
      weights[k + Radius] /= sum;
      if (k != 0) others += weights[k + Radius];
    }
    weights[Radius] = 1.0 - others;
  }
  double at(int32_t k) const { return weights[k + Radius]; }

  double weights[2 * Radius + 1];
};

// 81 times the Gaussian of the finer level round (x, y), coordinates clamped to it.
int32_t smoothAt(const Image* finer, const GaussTaps<4>& taps, int32_t x, int32_t y) {
  double sum = 0;
  for (int32_t v = -4; v <= 4; ++v) {
    const uint8_t* const row = imageRow(finer, clampInt(y + v, 0, finer->height - 1));
    double rowSum = 0;
    for (int32_t u = -4; u <= 4; ++u) rowSum += taps.at(u) * row[clampInt(x + u, 0, finer->width - 1)];
    sum += taps.at(v) * rowSum;
  }
  return truncToInt32(sum * 81 + 0.5);
}

// Gaussian mean of the part of the 7x7 window that lies inside the image.
int32_t localMeanAt(const Image* image, const GaussTaps<3>& taps, int32_t x, int32_t y) {
  double sum = 0;
  double total = 0;
  for (int32_t v = std::max(-3, -y); v <= std::min(3, image->height - 1 - y); ++v) {
    const int32_t* const row = imageRow<int32_t>(image, y + v);
    for (int32_t u = std::max(-3, -x); u <= std::min(3, image->width - 1 - x); ++u) {
      const double weight = taps.at(v) * taps.at(u);
      sum += weight * row[x + u];
      total += weight;
    }
  }
  return truncToInt32(sum / total);
}

Status bandpass(Image* coarsest, const Image* finer, Env* env) {
  const int32_t width = coarsest->width;
  const int32_t height = coarsest->height;
  if (width < 1 || height < 1 || finer->plane0 == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status s = Image_init(coarsest, width, height, nullptr, IMAGE_INT32); s != ZELVAN_OK) return s;
  const int32_t ratio = finer->width / width;
  const GaussTaps<4> wide(1, 8);
  for (int32_t y = 0; y < height; ++y) {
    int32_t* const out = imageRow<int32_t>(coarsest, y);
    for (int32_t x = 0; x < width; ++x) out[x] = smoothAt(finer, wide, x * ratio, y * ratio);
  }
  ScopedImage copy(env);
  if (const Status s = Image_copy(&copy, coarsest); s != ZELVAN_OK) return s;
  const GaussTaps<3> narrow(2, 9);
  for (int32_t y = 0; y < height; ++y) {
    int32_t* const out = imageRow<int32_t>(coarsest, y);
    for (int32_t x = 0; x < width; ++x) out[x] -= localMeanAt(&copy, narrow, x, y);
  }
  return ZELVAN_OK;
}

}  // namespace

Status Vectral_buildPyramid(Vectral* self, Image* images, int32_t levels) {
  if (self == nullptr || images == nullptr || levels < 1) return ZELVAN_ERROR_PARAM;
  Image* const coarsest = &images[levels - 1];
  Status status = ZELVAN_OK;
  if (self->lutMode == 0 && self->normalizeBase != 0) {
    status |= VectralUtil_normalizeImage(&images[0], &images[0], nullptr, nullptr, 16, self->executor);
  }
  if (self->lutMode != 0) {
    if (images[0].plane0 == nullptr || images[0].format != IMAGE_UINT8) return ZELVAN_ERROR_PARAM;
    vectralImageStatistics(&images[0], &self->lutMean, &self->lutStddev);
    vectralContrastTable(self->lut, self->lutMean, self->lutStddev);
  }
  for (int32_t level = 0; level + 1 < levels; ++level) {
    status |= VectralUtil_shrink2ForMvecDetect(&images[level + 1], &images[level], self->executor);
  }
  if (self->lutMode != 0 && coarsest->plane0 != nullptr) vectralMapImage(coarsest, coarsest, self->lut);
  if (self->coarseBandpass == 0) {
    return self->coarseMode != 0 ? status | ImageUint8_calcLocalY(coarsest, coarsest) : status;
  }
  if (levels < 2) return status | ZELVAN_ERROR_UNSUPPORTED;
  return status | bandpass(coarsest, &images[levels - 2], self->env);
}
