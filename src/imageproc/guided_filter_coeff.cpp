#include "imageproc/guided_filter_coeff.h"

#include <algorithm>
#include <cstring>

#include "base/cpu_level.h"
#include "base/integer.h"
#include "imageproc/window_sums.h"
#include "parallel/pel_rows.h"

namespace {

constexpr int32_t kDirections = 4;
constexpr int32_t kTile = 512;  // columns of a row in work at a time, for accumulators on the stack

// The scratch images in the order in which they are allocated.
struct ScratchImage {
  Image* image;
  int32_t height;
  int32_t format;
};
constexpr int32_t kScratchImages = 2 * kDirections + 5;

struct ScratchList {
  ScratchImage items[kScratchImages];

  ScratchList(GuidedFilterCoeff* coeff, int32_t height) {
    ScratchImage* next = items;
    for (Image& image : coeff->a) *next++ = {&image, height, IMAGE_UINT8};
    for (Image& image : coeff->b) *next++ = {&image, height, IMAGE_UINT8};
    *next++ = {&coeff->sumGuide, height, IMAGE_UINT16};
    *next++ = {&coeff->sumSquare, height, IMAGE_INT32};
    *next++ = {&coeff->wideScratch, height, IMAGE_INT32};
    *next++ = {&coeff->byteScratch, height, IMAGE_UINT8};
    *next++ = {&coeff->rowScratch, 1, IMAGE_UINT16};
  }
};

// value without its fraction, from 0 to most; NaN gives 0. Rounding can make the variance of a flat window negative,
// which puts a below 0 and b above the level.
ALWAYS_INLINE uint8_t truncClamped(float value, float most) {
  const float positive = value > 0.0f ? value : 0.0f;
  return static_cast<uint8_t>(static_cast<int32_t>(positive < most ? positive : most));
}

struct CoeffJob {
  Image* a;
  Image* b;
  const Image* sumGuide;
  const Image* sumSquare;
  const Image* map;
  float inverse;  // 1 / pixels of a window
  float epsilon;
};

template <bool kWithMap, typename Guide, typename Square>
ALWAYS_INLINE void coeffRowBody(uint8_t* __restrict a, uint8_t* __restrict b, const Guide* __restrict guide,
                                const Square* __restrict square, const uint8_t* __restrict map, float inverse,
                                float epsilon, int32_t count) {
  const float mapStep = epsilon * 0.03125f;
  for (int32_t x = 0; x < count; ++x) {
    const float m = inverse * static_cast<float>(guide[x]);
    const float v = inverse * static_cast<float>(square[x]) - m * m;
    float ratio;
    if constexpr (kWithMap) {
      ratio = v / (v + mapStep * static_cast<float>(map[x]) + 1e-12f);
    } else {
      ratio = v / (epsilon + v);
    }
    a[x] = truncClamped(ratio * 128.0f + 0.5f, 128.0f);
    b[x] = truncClamped((1.0f - ratio) * m + 0.5f, 255.0f);
  }
}

template <bool kWithMap, typename Guide, typename Square>
constexpr CpuRow<coeffRowBody<kWithMap, Guide, Square>> coeffRow;

template <typename Guide, typename Square>
void coeffRows(const CoeffJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    uint8_t* a = imageRow(job.a, y);
    uint8_t* b = imageRow(job.b, y);
    const Guide* guide = imageRow<const Guide>(job.sumGuide, y);
    const Square* square = imageRow<const Square>(job.sumSquare, y);
    const int32_t width = job.sumGuide->width;
    if (job.map != nullptr) {
      coeffRow<true, Guide, Square>(a, b, guide, square, imageRow<const uint8_t>(job.map, y), job.inverse, job.epsilon,
                                    width);
    } else {
      coeffRow<false, Guide, Square>(a, b, guide, square, nullptr, job.inverse, job.epsilon, width);
    }
  }
}

struct MergeJob {
  Image* a;
  Image* b;
  const GuidedFilterCoeff* coeff;
  int32_t half;
};

struct Sample {
  int32_t direction;
  int32_t dx;  // in half widths
  int32_t dy;
};
constexpr Sample kSamples[] = {{0, 1, 0}, {0, -1, 0},  {1, 0, 1},  {1, 0, -1},
                               {2, 1, 1}, {2, -1, -1}, {3, 1, -1}, {3, -1, 1}};

struct MergeSums {
  int32_t weight[kTile];
  int32_t a[kTile];
  int32_t b[kTile];
};

ALWAYS_INLINE void addSamplesBody(int32_t* __restrict weights, int32_t* __restrict sumA, int32_t* __restrict sumB,
                                  const uint8_t* __restrict a, const uint8_t* __restrict b, int32_t count) {
  for (int32_t x = 0; x < count; ++x) {
    const int32_t t = (128 - a[x]) & 255;
    const int32_t weight = t * t + t + 1;
    weights[x] += weight;
    sumA[x] += weight * a[x];
    sumB[x] += weight * b[x];
  }
}
constexpr CpuRow<addSamplesBody> addSamples;

// (sum + weight / 2) / weight in whole numbers; a mean of bytes, so at most 255. sum < 2^28 and weight < 2^20, so the
// float quotient is off by less than one and the remainder tells which way.
ALWAYS_INLINE uint8_t roundedQuotient(int32_t sum, int32_t weight) {
  const int32_t dividend = sum + (weight >> 1);
  int32_t quotient = static_cast<int32_t>(static_cast<float>(dividend) / static_cast<float>(weight));
  const int32_t rest = dividend - quotient * weight;
  quotient += static_cast<int32_t>(rest >= weight) - static_cast<int32_t>(rest < 0);
  return static_cast<uint8_t>(quotient);
}

ALWAYS_INLINE void divideRowBody(uint8_t* __restrict dst, const int32_t* __restrict sums,
                                 const int32_t* __restrict weights, int32_t count) {
  for (int32_t x = 0; x < count; ++x) dst[x] = roundedQuotient(sums[x], weights[x]);
}
constexpr CpuRow<divideRowBody> divideRow;

void mergeTile(const MergeJob& job, int32_t y, int32_t left, int32_t right) {
  const int32_t width = job.a->width;
  const int32_t height = job.a->height;
  const int32_t half = job.half;
  MergeSums sums;
  std::memset(&sums, 0, sizeof sums);
  const auto add = [&](const Sample& sample, int32_t begin, int32_t end) {
    const ptrdiff_t shift = ptrdiff_t{sample.dx} * half;
    const int32_t row = y + sample.dy * half;
    const int32_t at = begin - left;
    addSamples(sums.weight + at, sums.a + at, sums.b + at,
               imageRow<const uint8_t>(&job.coeff->a[sample.direction], row) + begin + shift,
               imageRow<const uint8_t>(&job.coeff->b[sample.direction], row) + begin + shift, end - begin);
  };
  for (const Sample& sample : kSamples) {
    const int32_t row = y + sample.dy * half;
    if (row < 0 || row >= height) continue;
    const int32_t begin = std::max(left, sample.dx < 0 ? half : 0);
    const int32_t end = std::min(right, sample.dx > 0 ? width - half : width);
    if (begin < end) add(sample, begin, end);
  }
  // In a picture narrower and lower than a window no window ends at the middle pixels: they take those round them.
  if (y < half && y >= height - half) {
    const int32_t begin = std::max(left, width - half);
    const int32_t end = std::min(right, half);
    for (int32_t d = 0; d < kDirections && begin < end; ++d) add({d, 0, 0}, begin, end);
  }
  divideRow(imageRow(job.a, y) + left, sums.a, sums.weight, right - left);
  divideRow(imageRow(job.b, y) + left, sums.b, sums.weight, right - left);
}

void mergeRows(const MergeJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    for (int32_t x = 0; x < job.a->width; x += kTile) mergeTile(job, y, x, std::min(x + kTile, job.a->width));
  }
}

// The calling thread makes the sums: a null Pel runs the jobs directly.
Status windowSums(int32_t direction, Image* dst, const Image* src, int32_t radius) {
  switch (direction) {
    case 0:
      return sum_hori(dst, src, radius, nullptr);
    case 1:
      return sum_vert(dst, src, radius, nullptr);
    case 2:
      return sum_diag(dst, src, radius);
    default:
      return sum_anti(dst, src, radius);
  }
}

bool fits(const Image* image, int32_t width, int32_t height) {
  return image != nullptr && image->plane0 != nullptr && image->width == width && image->height == height;
}

int32_t rectWidth(const GuidedFilterCoeff* coeff) {
  return wrapSub(coeff->rect.right, coeff->rect.left);
}
int32_t rectHeight(const GuidedFilterCoeff* coeff) {
  return wrapSub(coeff->rect.bottom, coeff->rect.top);
}

Status check(const GuidedFilterCoeff* coeff, const Image* a, const Image* b, const Image* guide, const Image* square,
             int32_t window) {
  if (coeff == nullptr || window < 1) return ZELVAN_ERROR_PARAM;
  const int32_t width = rectWidth(coeff);
  const int32_t height = rectHeight(coeff);
  if (width < 1 || height < 1) return ZELVAN_ERROR_PARAM;
  for (const Image* image : {a, b, guide, square}) {
    if (!fits(image, width, height)) return ZELVAN_ERROR_PARAM;
  }
  const bool known = coeff->numShrink >= 0 && coeff->numShrink <= 2;
  return known && a->format == IMAGE_UINT8 && b->format == IMAGE_UINT8 ? ZELVAN_OK : ZELVAN_ERROR_UNSUPPORTED;
}

Status cutScratch(const GuidedFilterCoeff* coeff, Image* view, const Image* scratch) {
  return Image_initSubImage(view, scratch, coeff->rect.left, coeff->rect.top, rectWidth(coeff), rectHeight(coeff));
}

float inverseArea(const GuidedFilterCoeff* coeff, int64_t blocks) {
  return 1.0f / static_cast<float>(blocks << (2 * coeff->numShrink));
}

// Arguments are checked.
Status calculate(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide, Image* square, float epsilon,
                 const Image* map, int32_t window) {
  Status status = cutScratch(coeff, &coeff->sumGuideRect, &coeff->sumGuide);
  if (status == ZELVAN_OK) status = cutScratch(coeff, &coeff->sumSquareRect, &coeff->sumSquare);
  if (status != ZELVAN_OK) return status;
  const int32_t radius = window >> 2;
  const float inverse = inverseArea(coeff, (window >> 1) | 1);  // 2 radius + 1 blocks
  for (int32_t d = 0; d < kDirections; ++d) {
    status = windowSums(d, &coeff->sumGuideRect, guide, radius);
    if (status == ZELVAN_OK) status = windowSums(d, &coeff->sumSquareRect, square, radius);
    if (status != ZELVAN_OK) return status;
    const CoeffJob job = {&coeff->a[d], &coeff->b[d], &coeff->sumGuideRect, &coeff->sumSquareRect, map,
                          inverse,      epsilon};
    status = executeRows<CoeffJob, coeffRows<uint16_t, int32_t>>(coeff->pel, job, a->height);
    if (status != ZELVAN_OK) return status;
  }
  return executeRows<MergeJob, mergeRows>(coeff->pel, {a, b, coeff, radius}, a->height);
}

// Square windows.

constexpr int32_t kWidestRadius = 128;  // of a box mean of bytes

struct SlideJob {
  Image* sums;
  int32_t radius;
};

// Each value of a row to the sum over the window around it, with the edges repeated. What the window leaves behind is
// kept aside, since it is overwritten by then.
void slideRows(const SlideJob& job, int32_t begin, int32_t end) {
  constexpr int32_t kKept = 2 * kWidestRadius;
  uint32_t kept[kKept];
  const int32_t last = job.sums->width - 1;
  for (int32_t y = begin; y < end; ++y) {
    uint32_t* const row = imageRow<uint32_t>(job.sums, y);
    const uint32_t left = row[0];
    uint32_t sum = left * static_cast<uint32_t>(job.radius);
    for (int32_t x = 0; x <= job.radius; ++x) sum += row[std::min(x, last)];
    for (int32_t x = 0; x <= last; ++x) {
      const uint32_t entering = row[std::min(x + job.radius + 1, last)];
      kept[x % kKept] = row[x];
      row[x] = sum;
      sum += entering - (x < job.radius ? left : kept[(x - job.radius) % kKept]);
    }
  }
}

// Rewriting the sums, as if the picture had been a * I + b already.

struct RewriteJob {
  Image* guide;
  Image* square;
  const Image* a;
  const Image* b;
  int32_t area;  // pixels of a block
  float epsilon;
};

// Sums over a block of q = a / 128 I + b and of q q, rounded, and limited to those of white, since merged a and b may
// overshoot. The squares are put together from the sum as it was rounded and the deviations inside the block: with the
// exact sum, half a unit of rounding would pass for a variance of dozens. a, b < 256 and the deviations, times area,
// < 2^24: the product stays below 2^40.
inline void rewriteBlock(uint16_t* guide, int32_t* square, int32_t a, int32_t b, int32_t area) {
  const int64_t sum = *guide;
  const int64_t deviations = *square * int64_t{area} - sum * sum;
  const int64_t newSum = std::min<int64_t>((a * sum + int64_t{128 * b} * area + 64) >> 7, 255 * area);
  const int64_t newSquare = (newSum * newSum + ((a * a * deviations + 8192) >> 14) + area / 2) / area;
  *guide = static_cast<uint16_t>(newSum);
  *square = static_cast<int32_t>(std::min<int64_t>(newSquare, 255 * 255 * area));
}

void rewriteRows(const RewriteJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    uint16_t* guide = imageRow<uint16_t>(job.guide, y);
    int32_t* square = imageRow<int32_t>(job.square, y);
    const uint8_t* a = imageRow<const uint8_t>(job.a, y);
    const uint8_t* b = imageRow<const uint8_t>(job.b, y);
    for (int32_t x = 0; x < job.guide->width; ++x) rewriteBlock(guide + x, square + x, a[x], b[x], job.area);
  }
}

constexpr int32_t kLiteJobs = 4;

// The same with a, b of each block's own mean and variance.
Status rewriteLite(RewriteJob* job, int32_t index, const PelContext* context) {
  const int32_t end = static_cast<int32_t>(int64_t{job->guide->height} * (index + 1) / context->count);
  for (int32_t y = static_cast<int32_t>(int64_t{job->guide->height} * index / context->count); y < end; ++y) {
    uint16_t* guide = imageRow<uint16_t>(job->guide, y);
    int32_t* square = imageRow<int32_t>(job->square, y);
    for (int32_t x = 0; x < job->guide->width; ++x) {
      uint8_t a;
      uint8_t b;
      coeffRowBody<false>(&a, &b, guide + x, square + x, nullptr, 1.0f / static_cast<float>(job->area), job->epsilon,
                          1);
      rewriteBlock(guide + x, square + x, a, b, job->area);
    }
  }
  return ZELVAN_OK;
}

bool areBlockSums(const Image* guide, const Image* square) {
  return guide->format == IMAGE_UINT16 && square->format == IMAGE_INT32;
}

}  // namespace

int32_t GuidedFilterCoeff_getBufferSize(int32_t width, int32_t height, int32_t /*maxWindow*/) {
  GuidedFilterCoeff none = {};
  uint32_t total = 0;
  for (const ScratchImage& item : ScratchList(&none, height).items) {
    total += static_cast<uint32_t>(Image_getSize(width, item.height, item.format, 0));
  }
  return static_cast<int32_t>(total);
}

Status construct_GuidedFilterCoeff(GuidedFilterCoeff* coeff, Env* env) {
  if (coeff == nullptr) return ZELVAN_ERROR_PARAM;
  *coeff = {};
  coeff->env = env;
  for (const ScratchImage& item : ScratchList(coeff, 0).items) construct_Image(item.image, env);
  construct_Image(&coeff->sumGuideRect, env);
  construct_Image(&coeff->sumSquareRect, env);
  return ZELVAN_OK;
}

Status destruct_GuidedFilterCoeff(GuidedFilterCoeff* coeff) {
  if (coeff == nullptr) return ZELVAN_ERROR_PARAM;
  const Status status = GuidedFilterCoeff_recycle(coeff);
  *coeff = {};
  return status;
}

Status GuidedFilterCoeff_recycle(GuidedFilterCoeff* coeff) {
  if (coeff == nullptr) return ZELVAN_ERROR_PARAM;
  Status status = ZELVAN_OK;
  for (const ScratchImage& item : ScratchList(coeff, 0).items) {
    status |= destruct_Image(item.image) | construct_Image(item.image, coeff->env);
  }
  status |= destruct_Image(&coeff->sumGuideRect) | construct_Image(&coeff->sumGuideRect, coeff->env);
  status |= destruct_Image(&coeff->sumSquareRect) | construct_Image(&coeff->sumSquareRect, coeff->env);
  coeff->width = 0;
  coeff->height = 0;
  coeff->rect = {};
  return status;
}

Status GuidedFilterCoeff_init(GuidedFilterCoeff* coeff, int32_t width, int32_t height, int32_t /*maxWindow*/) {
  if (coeff == nullptr || width < 0 || height < 0) return ZELVAN_ERROR_PARAM;
  GuidedFilterCoeff_recycle(coeff);
  for (const ScratchImage& item : ScratchList(coeff, height).items) {
    if (const Status s = Image_init(item.image, width, item.height, nullptr, item.format); s != ZELVAN_OK) {
      GuidedFilterCoeff_recycle(coeff);
      return s;
    }
    if (item.image->plane0 != nullptr) {
      std::memset(item.image->plane0, 0, static_cast<size_t>(item.image->pitch0) * static_cast<size_t>(item.height));
    }
  }
  coeff->width = width;
  coeff->height = height;
  coeff->rect = {0, 0, width, height};
  return ZELVAN_OK;
}

Status GuidedFilterCoeff_setNumShrink(GuidedFilterCoeff* coeff, int32_t numShrink) {
  if (coeff == nullptr) return ZELVAN_ERROR_PARAM;
  coeff->numShrink = numShrink;
  return ZELVAN_OK;
}

Status GuidedFilterCoeff_setRect(GuidedFilterCoeff* coeff, const ImageRect* rect) {
  if (coeff == nullptr) return ZELVAN_ERROR_PARAM;
  coeff->rect = rect != nullptr ? *rect : ImageRect{};
  return ZELVAN_OK;
}

Status GuidedFilterCoeff_calcCoeff(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide, Image* square,
                                   float epsilon, int32_t window) {
  const Status status = check(coeff, a, b, guide, square, window);
  return status != ZELVAN_OK ? status : calculate(coeff, a, b, guide, square, epsilon, nullptr, window);
}

Status GuidedFilterCoeff_calcCoeff_with_epsilon_map(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide,
                                                    Image* square, float epsilon, const Image* map, int32_t window) {
  const Status status = check(coeff, a, b, guide, square, window);
  if (status != ZELVAN_OK) return status;
  if (!fits(map, a->width, a->height)) return ZELVAN_ERROR_PARAM;
  if (map->format != IMAGE_UINT8) return ZELVAN_ERROR_UNSUPPORTED;
  return calculate(coeff, a, b, guide, square, epsilon, map, window);
}

Status GuidedFilterCoeff_calcCoeff_square(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide, Image* square,
                                          float epsilon, int32_t window) {
  Status status = check(coeff, a, b, guide, square, window);
  if (status != ZELVAN_OK) return status;
  if (window >> 1 > kWidestRadius) return ZELVAN_ERROR_UNSUPPORTED;
  ScopedImage sumGuide(coeff->env);
  ScopedImage bytes(coeff->env);
  status = cutScratch(coeff, &sumGuide, &coeff->wideScratch);
  if (status == ZELVAN_OK) status = cutScratch(coeff, &bytes, &coeff->byteScratch);
  if (status == ZELVAN_OK) status = cutScratch(coeff, &coeff->sumSquareRect, &coeff->sumSquare);
  if (status != ZELVAN_OK) return status;
  // The sums of the guide are made by way of the image for those of the square, and these in place.
  const SlideJob slide = {&coeff->sumSquareRect, window >> 1};
  status = sum_sqre(&sumGuide, guide, slide.sums, slide.radius, nullptr);
  if (status == ZELVAN_OK) status = sum_vert(slide.sums, square, slide.radius, nullptr);
  if (status == ZELVAN_OK) status = executeRows<SlideJob, slideRows>(coeff->pel, slide, a->height);
  if (status != ZELVAN_OK) return status;
  const CoeffJob job = {
      a, b, &sumGuide, &coeff->sumSquareRect, nullptr, inverseArea(coeff, int64_t{window} * window), epsilon};
  status = executeRows<CoeffJob, coeffRows<int32_t, uint32_t>>(coeff->pel, job, a->height);
  for (Image* image : {a, b}) {
    if (status != ZELVAN_OK) return status;
    status = box_blur_u8(image, image, &bytes, &coeff->rowScratch, window, window, coeff->pel);
  }
  return status;
}

Status GuidedFilterCoeff_calcCoeff_first_step(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide, Image* square,
                                              float epsilon, int32_t window) {
  Status status = check(coeff, a, b, guide, square, window);
  if (status != ZELVAN_OK) return status;
  if (!areBlockSums(guide, square)) return ZELVAN_ERROR_UNSUPPORTED;
  status = calculate(coeff, a, b, guide, square, epsilon, nullptr, window);
  if (status != ZELVAN_OK) return status;
  const RewriteJob job = {guide, square, a, b, 1 << (2 * coeff->numShrink), 0.0f};
  return executeRows<RewriteJob, rewriteRows>(coeff->pel, job, guide->height);
}

Status GuidedFilterCoeff_calcCoeff_second_step(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide,
                                               Image* square, float epsilon, int32_t window) {
  const Status status = check(coeff, a, b, guide, square, window);
  if (status != ZELVAN_OK) return status;
  if (!areBlockSums(guide, square)) return ZELVAN_ERROR_UNSUPPORTED;
  return calculate(coeff, a, b, guide, square, epsilon, nullptr, window);
}

Status GuidedFilterCoeff_calcCoeff_two_step(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide, Image* square,
                                            float epsilon1, float epsilon2, int32_t window) {
  const Status status = GuidedFilterCoeff_calcCoeff_first_step(coeff, a, b, guide, square, epsilon1, window);
  if (status != ZELVAN_OK) return status;
  return GuidedFilterCoeff_calcCoeff_second_step(coeff, a, b, guide, square, epsilon2, window);
}

Status GuidedFilterCoeff_calcCoeff_two_step_lite_first(GuidedFilterCoeff* coeff, Image* guide, Image* square,
                                                       float epsilon) {
  if (coeff == nullptr || guide == nullptr || guide->width < 1 || guide->height < 1 || guide->plane0 == nullptr ||
      !fits(square, guide->width, guide->height)) {
    return ZELVAN_ERROR_PARAM;
  }
  if (coeff->numShrink < 1 || coeff->numShrink > 2 || !areBlockSums(guide, square)) return ZELVAN_ERROR_UNSUPPORTED;
  static constexpr PelKernel kRewrite = pelIndexed<RewriteJob, rewriteLite>();
  RewriteJob job = {guide, square, nullptr, nullptr, 1 << (2 * coeff->numShrink), epsilon};
  return executeToEnd(coeff->pel, &kRewrite, &job, kLiteJobs);
}

Status GuidedFilterCoeff_calcCoeff_two_step_lite_second(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide,
                                                        Image* square, float epsilon, int32_t window) {
  return GuidedFilterCoeff_calcCoeff_second_step(coeff, a, b, guide, square, epsilon, window);
}

Status GuidedFilterCoeff_calcCoeff_two_step_lite(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide,
                                                 Image* square, float epsilon1, float epsilon2, int32_t window) {
  const Status status = GuidedFilterCoeff_calcCoeff_two_step_lite_first(coeff, guide, square, epsilon1);
  if (status != ZELVAN_OK) return status;
  return GuidedFilterCoeff_calcCoeff_two_step_lite_second(coeff, a, b, guide, square, epsilon2, window);
}
