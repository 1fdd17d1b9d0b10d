#include "base/integer.h"
#include "engine/tessal4.h"
#include "pixels/image_func.h"
#include "pixels/row_split.h"

namespace {

constexpr int32_t kRounds = 9;
constexpr double kLastSigma = 0.1;  // a kernel of the centre alone

struct DeconvRows {
  Image* estimate;
  const Image* image;
  const Image* blurred;
  int32_t begin;
  int32_t end;
};

template <bool First>
Status correctRows(DeconvRows* rows) {
  const int32_t width = rows->image->width;
  for (int32_t y = rows->begin; y < rows->end; ++y) {
    const uint8_t* image = imageRow(rows->image, y);
    const uint8_t* blurred = imageRow(rows->blurred, y);
    uint8_t* estimate = imageRow(rows->estimate, y);
    for (int32_t x = 0; x < width; ++x) {
      estimate[x] = clampByte(image[x] - blurred[x] + (First ? image[x] : estimate[x]));
    }
  }
  return ZELVAN_OK;
}

}  // namespace

Status Tessal4_deconv(Tessal4* engine, Image* image, double sigma1, double sigma2) {
  if (engine == nullptr || image == nullptr || image->plane0 == nullptr || image->format != IMAGE_UINT8) {
    return ZELVAN_ERROR_PARAM;
  }
  Env* env = engine->env;
  ParallelExecutor* executor = engine->executor;
  const int32_t width = image->width;
  const int32_t height = image->height;
  ScopedImage estimate(env);
  ScopedImage blurred(env);
  if (const Status s = Image_init(&estimate, width, height, nullptr, IMAGE_UINT8); s != ZELVAN_OK) return s;
  if (const Status s = Image_init(&blurred, width, height, nullptr, IMAGE_UINT8); s != ZELVAN_OK) return s;
  const auto blur = [&](Image* dst, const Image* src, double sigma) {
    return Tessal4ImageFunc_blur_uint8(executor, env, dst, src, sigma);
  };
  const DeconvRows rows = {&estimate, image, &blurred, 0, 0};

  if (const Status s = blur(&blurred, image, sigma1); s != ZELVAN_OK) return s;
  forkRows<DeconvRows, correctRows<true>>(executor, height, rows);
  for (int32_t round = 0; round < kRounds; ++round) {
    if (const Status s = blur(&blurred, &estimate, sigma1); s != ZELVAN_OK) return s;
    forkRows<DeconvRows, correctRows<false>>(executor, height, rows);
  }
  if (const Status s = blur(&estimate, &estimate, sigma2); s != ZELVAN_OK) return s;
  return blur(image, &estimate, kLastSigma);
}
