#include "fine/pyramid.h"

#include <algorithm>

#include "parallel/pel_kernel.h"

namespace fine {
namespace {

constexpr int32_t kBand = 64;  // full-size rows of one band; a multiple of 2 to the power of the levels in most frames

void boxRow(uint8_t* __restrict dst, const uint8_t* __restrict a, const uint8_t* __restrict b, int32_t count) {
  for (int32_t x = 0; x < count; ++x) {
    dst[x] = static_cast<uint8_t>((a[2 * x] + a[2 * x + 1] + b[2 * x] + b[2 * x + 1] + 2) >> 2);
  }
}

void boxPairRow(uint8_t* __restrict dst, const uint8_t* __restrict a, const uint8_t* __restrict b, int32_t count) {
  for (int32_t x = 0; x < count; ++x) {
    for (int32_t c = 0; c < 2; ++c) {
      const int32_t at = 4 * x + c;
      dst[2 * x + c] = static_cast<uint8_t>((a[at] + a[at + 2] + b[at] + b[at + 2] + 2) >> 2);
    }
  }
}

struct BuildJob {
  Pyramid* pyramid;
  const Image* frame;
  int32_t bandLevels;  // levels whose rows lie whole within a band
};

void shrinkRows(const Image& dst, const Image& src, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < std::min(end, dst.height); ++y) {
    boxRow(imageRow(&dst, y), imageRow(&src, 2 * y), imageRow(&src, 2 * y + 1), dst.width);
  }
}

Status buildBand(BuildJob* job, int32_t index, const PelContext*) {
  Pyramid* p = job->pyramid;
  for (int32_t k = 1; k <= job->bandLevels; ++k) {
    shrinkRows(p->level[k], p->level[k - 1], index * (kBand >> k), (index + 1) * (kBand >> k));
  }
  const int32_t rows = kBand >> kMapLevel;
  for (int32_t y = index * rows; y < std::min((index + 1) * rows, p->colour.height); ++y) {
    boxPairRow(imageRow(&p->colour, y), imageChromaRow(job->frame, 2 * y), imageChromaRow(job->frame, 2 * y + 1),
               p->colour.width);
  }
  return ZELVAN_OK;
}

}  // namespace

int32_t levelCount(int32_t width, int32_t height) {
  int32_t count = 1;
  while (count < kMostLevels && std::max(width, height) >> (count - 1) >= kCoarsestSide) ++count;
  return std::max(count, kMapLevel + 1);
}

void construct(Pyramid* pyramid, Env* env) {
  pyramid->count = 0;
  for (Image& image : pyramid->level) construct_Image(&image, env);
  construct_Image(&pyramid->colour, env);
}

void release(Pyramid* pyramid) {
  Env* env = pyramid->colour.env;
  for (Image& image : pyramid->level) destruct_Image(&image);
  destruct_Image(&pyramid->colour);
  construct(pyramid, env);
}

Status build(Pyramid* pyramid, Pel* pel, const Image* frame) {
  release(pyramid);
  const int32_t count = levelCount(frame->width, frame->height);
  Status status = Image_initSubImageY(&pyramid->level[0], frame, 0, 0, frame->width, frame->height);
  for (int32_t k = 1; k < count && status == ZELVAN_OK; ++k) {
    status = Image_init(&pyramid->level[k], frame->width >> k, frame->height >> k, nullptr, IMAGE_UINT8);
  }
  if (status == ZELVAN_OK) {
    status = Image_init(&pyramid->colour, frame->width >> kMapLevel, frame->height >> kMapLevel, nullptr, IMAGE_UINT88);
  }
  if (status != ZELVAN_OK) {
    release(pyramid);
    return status;
  }
  pyramid->count = count;
  static constexpr PelKernel kKernel = pelIndexed<BuildJob, buildBand>();
  BuildJob job = {pyramid, frame, std::min(count - 1, 6)};
  status = executeToEnd(pel, &kKernel, &job, (frame->height + kBand - 1) / kBand);
  for (int32_t k = job.bandLevels + 1; k < count; ++k) {
    shrinkRows(pyramid->level[k], pyramid->level[k - 1], 0, pyramid->level[k].height);
  }
  return status;
}

Mvec8Real levelMotion(const Mvec8Real& full, int32_t level) {
  const double s = static_cast<double>(1 << level);
  const double c = 0.5 * (s - 1.0);
  const Mvec8Real up = {{s, 0, c, 0, s, c, 0, 0, 1}, {}};
  const Mvec8Real down = {{1 / s, 0, -c / s, 0, 1 / s, -c / s, 0, 0, 1}, {}};
  Mvec8Real out;
  Mvec8Real_mult(&out, &full, &up);
  Mvec8Real_mult(&out, &down, &out);
  for (int32_t i = 0; i < 9; ++i) out.h[i] /= out.h[8] != 0.0 ? out.h[8] : 1.0;
  return out;
}

}  // namespace fine
