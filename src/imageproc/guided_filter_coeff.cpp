#include "imageproc/guided_filter_coeff.h"

#include <algorithm>
#include <bit>
#include <cstring>

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

// Low byte of truncToInt32(value), without branches so that loops vectorise.
inline uint8_t truncToByte(float value) {
  const uint32_t bits = std::bit_cast<uint32_t>(value);
  const uint32_t magnitude = bits & 0x7FFFFFFFu;
  const bool inRange = magnitude < 0x4F000000u;                       // |value| < 2^31
  const bool saturates = bits >= 0x4F000000u && bits <= 0x7F800000u;  // 2^31 to infinity: low byte of INT32_MAX
  const int32_t whole = static_cast<int32_t>(std::bit_cast<float>(inRange ? bits : 0u));
  return static_cast<uint8_t>(whole | (saturates ? 255 : 0));
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

template <bool kWithMap>
inline void coeffRow(uint8_t* __restrict a, uint8_t* __restrict b, const uint16_t* __restrict guide,
                     const int32_t* __restrict square, const uint8_t* __restrict map, float inverse, float epsilon,
                     int32_t count) {
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
    a[x] = truncToByte(ratio * 128.0f + 0.5f);
    b[x] = truncToByte((1.0f - ratio) * m + 0.5f);
  }
}

void coeffRows(const CoeffJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    uint8_t* a = imageRow(job.a, y);
    uint8_t* b = imageRow(job.b, y);
    const uint16_t* guide = imageRow<const uint16_t>(job.sumGuide, y);
    const int32_t* square = imageRow<const int32_t>(job.sumSquare, y);
    const int32_t width = job.sumGuide->width;
    if (job.map != nullptr) {
      coeffRow<true>(a, b, guide, square, imageRow<const uint8_t>(job.map, y), job.inverse, job.epsilon, width);
    } else {
      coeffRow<false>(a, b, guide, square, nullptr, job.inverse, job.epsilon, width);
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

inline void addSamples(int32_t* __restrict weights, int32_t* __restrict sumA, int32_t* __restrict sumB,
                       const uint8_t* __restrict a, const uint8_t* __restrict b, int32_t count) {
  for (int32_t x = 0; x < count; ++x) {
    const int32_t t = (128 - a[x]) & 255;
    const int32_t weight = t * t + t + 1;
    weights[x] += weight;
    sumA[x] += weight * a[x];
    sumB[x] += weight * b[x];
  }
}

// min((sum + weight / 2) / weight, 255) in whole numbers. sum < 2^28 and weight < 2^20, so the float quotient, below
// 257, is off by less than one and the remainder tells which way.
inline uint8_t roundedQuotient(int32_t sum, int32_t weight) {
  const int32_t dividend = sum + (weight >> 1);
  int32_t quotient = static_cast<int32_t>(static_cast<float>(dividend) / static_cast<float>(weight));
  const int32_t rest = dividend - quotient * weight;
  quotient += static_cast<int32_t>(rest >= weight) - static_cast<int32_t>(rest < 0);
  return static_cast<uint8_t>(std::min(quotient, 255));
}

inline void divideRow(uint8_t* __restrict dst, const int32_t* __restrict sums, const int32_t* __restrict weights,
                      int32_t count) {
  for (int32_t x = 0; x < count; ++x) dst[x] = roundedQuotient(sums[x], weights[x]);
}

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

Status calculate(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide, Image* square, float epsilon,
                 const Image* map, int32_t window) {
  const int32_t width = coeff->rect.right - coeff->rect.left;
  const int32_t height = coeff->rect.bottom - coeff->rect.top;
  if (width < 1 || height < 1 || window < 1 || !fits(a, width, height) || !fits(b, width, height) ||
      !fits(guide, width, height) || !fits(square, width, height) || (map != nullptr && !fits(map, width, height))) {
    return ZELVAN_ERROR_PARAM;
  }
  if (coeff->numShrink < 0 || coeff->numShrink > 2 || a->format != IMAGE_UINT8 || b->format != IMAGE_UINT8 ||
      (map != nullptr && map->format != IMAGE_UINT8)) {
    return ZELVAN_ERROR_UNSUPPORTED;
  }
  const ImageRect& rect = coeff->rect;
  Status status = Image_initSubImage(&coeff->sumGuideRect, &coeff->sumGuide, rect.left, rect.top, width, height);
  if (status != ZELVAN_OK) return status;
  status = Image_initSubImage(&coeff->sumSquareRect, &coeff->sumSquare, rect.left, rect.top, width, height);
  if (status != ZELVAN_OK) return status;

  const int32_t radius = window >> 2;
  const int64_t blocks = (window >> 1) | 1;  // 2 radius + 1
  const float inverse = 1.0f / static_cast<float>(blocks << (2 * coeff->numShrink));
  for (int32_t d = 0; d < kDirections; ++d) {
    status = windowSums(d, &coeff->sumGuideRect, guide, radius);
    if (status == ZELVAN_OK) status = windowSums(d, &coeff->sumSquareRect, square, radius);
    if (status != ZELVAN_OK) return status;
    const CoeffJob job = {&coeff->a[d], &coeff->b[d], &coeff->sumGuideRect, &coeff->sumSquareRect, map,
                          inverse,      epsilon};
    status = executeRows<CoeffJob, coeffRows>(coeff->pel, job, height);
    if (status != ZELVAN_OK) return status;
  }
  return executeRows<MergeJob, mergeRows>(coeff->pel, {a, b, coeff, radius}, height);
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
  return coeff == nullptr ? ZELVAN_ERROR_PARAM : calculate(coeff, a, b, guide, square, epsilon, nullptr, window);
}

Status GuidedFilterCoeff_calcCoeff_with_epsilon_map(GuidedFilterCoeff* coeff, Image* a, Image* b, Image* guide,
                                                    Image* square, float epsilon, const Image* map, int32_t window) {
  if (coeff == nullptr || map == nullptr) return ZELVAN_ERROR_PARAM;
  return calculate(coeff, a, b, guide, square, epsilon, map, window);
}
