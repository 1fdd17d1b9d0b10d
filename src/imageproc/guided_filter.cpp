#include "imageproc/guided_filter.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>

#include "base/cpu_level.h"
#include "base/integer.h"
#include "imageproc/resize.h"
#include "parallel/pel_rows.h"

namespace {

constexpr int32_t kMaxWindow = 101;
constexpr int32_t kTile = 1024;  // pixels of a row in work at a time

constexpr GuidedFilterParam kDefaults = {.useEpsilonMap = 1, .numShrink = 2};

// Shifts of any count, as a barrel shifter of 64 bits would do them.
int32_t shrinkLength(int32_t length, int32_t numShrink) {
  return static_cast<uint32_t>(numShrink) < 32 ? length >> numShrink : 0;
}
int32_t gridLength(int32_t length, int32_t numShrink) {
  return (shrinkLength(length, numShrink) + 1) & ~1;
}
int32_t blockMask(int32_t numShrink) {
  return static_cast<uint32_t>(numShrink) < 32 ? wrapSub(0, wrapShl(1, numShrink)) : 0;
}
int32_t blockCeil(int32_t position, int32_t numShrink, int32_t limit) {
  const int32_t mask = blockMask(numShrink);
  return std::min(wrapAdd(position, ~mask) & mask, limit);
}

bool isEmpty(const ImageRect& rect) {
  return rect.right <= rect.left || rect.bottom <= rect.top;
}

Status emptyImage(Image* image) {
  Env* const env = image->env;
  return destruct_Image(image) | construct_Image(image, env);
}

Status cut(Image* view, const Image* image, const ImageRect& rect) {
  return Image_initSubImage(view, image, rect.left, rect.top, wrapSub(rect.right, rect.left),
                            wrapSub(rect.bottom, rect.top));
}

void setRects(GuidedFilter* filter, const ImageRect& rect) {
  const int32_t n = filter->numShrink;
  filter->rect = rect;
  filter->shrunkRect = {shrinkLength(rect.left, n), shrinkLength(rect.top, n), shrinkLength(rect.right, n),
                        shrinkLength(rect.bottom, n)};
  GuidedFilterCoeff_setRect(&filter->coeff, &filter->shrunkRect);
}

// Block sums.

struct BlockJob {
  Image* guide;
  Image* square;
  const Image* src;
};

void squareRows(const BlockJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    uint16_t* __restrict square = imageRow<uint16_t>(job.square, y);
    const uint8_t* __restrict src = imageRow<const uint8_t>(job.src, y);
    for (int32_t x = 0; x < job.square->width; ++x) square[x] = static_cast<uint16_t>(src[x] * src[x]);
  }
}

// Adds up the columns of the blocks first, in contiguous runs, then the block's few columns.
template <int kSide>
ALWAYS_INLINE void blockRowBody(uint16_t* __restrict guide, int32_t* __restrict square, const uint8_t* src,
                                ptrdiff_t pitch, int32_t blocks) {
  uint16_t columns[kTile];
  int32_t squares[kTile];
  for (int32_t x = 0; x < blocks * kSide; ++x) {
    int32_t sum = 0;
    int32_t sumSquare = 0;
    for (int32_t i = 0; i < kSide; ++i) {
      const int32_t pixel = src[i * pitch + x];
      sum += pixel;
      sumSquare += pixel * pixel;
    }
    columns[x] = static_cast<uint16_t>(sum);
    squares[x] = sumSquare;
  }
  for (int32_t k = 0; k < blocks; ++k) {
    int32_t sum = 0;
    int32_t sumSquare = 0;
    for (int32_t i = 0; i < kSide; ++i) {
      sum += columns[k * kSide + i];
      sumSquare += squares[k * kSide + i];
    }
    guide[k] = static_cast<uint16_t>(sum);
    square[k] = sumSquare;
  }
}
template <int kSide>
constexpr CpuRow<blockRowBody<kSide>> blockRow;

template <int kSide>
void blockRows(const BlockJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    for (int32_t k = 0; k < job.guide->width; k += kTile / kSide) {
      blockRow<kSide>(imageRow<uint16_t>(job.guide, y) + k, imageRow<int32_t>(job.square, y) + k,
                      imageRow<const uint8_t>(job.src, y * kSide) + k * kSide, job.src->pitch0,
                      std::min(kTile / kSide, job.guide->width - k));
    }
  }
}

Status sumBlocks(GuidedFilter* filter) {
  const BlockJob job = {&filter->guideRect, &filter->squareRect, &filter->srcYRect};
  switch (filter->numShrink) {
    case 0:
      return executeRows<BlockJob, squareRows>(filter->pel, job, job.square->height);
    case 1:
      return executeRows<BlockJob, blockRows<2>>(filter->pel, job, job.guide->height);
    case 2:
      return executeRows<BlockJob, blockRows<4>>(filter->pel, job, job.guide->height);
    default:
      return ZELVAN_ERROR_UNSUPPORTED;
  }
}

// Apply.

struct ApplyJob {
  Image* dst;
  const Image* src;
  const Image* a;
  const Image* b;
};

ALWAYS_INLINE void applyRowBody(uint8_t* __restrict dst, const uint8_t* __restrict src, const uint8_t* __restrict a,
                                const uint8_t* __restrict b, int32_t count) {
  for (int32_t x = 0; x < count; ++x) {
    dst[x] = static_cast<uint8_t>(std::min(((a[x] * src[x] + 64) >> 7) + b[x], 255));
  }
}
constexpr CpuRow<applyRowBody> applyRow;

void applyRows(const ApplyJob& job, int32_t begin, int32_t end) {
  uint8_t pixels[kTile];  // a copy, so that dst may be src
  for (int32_t y = begin; y < end; ++y) {
    for (int32_t x = 0; x < job.src->width; x += kTile) {
      const int32_t count = std::min(kTile, job.src->width - x);
      std::memcpy(pixels, imageRow<const uint8_t>(job.src, y) + x, static_cast<size_t>(count));
      applyRow(imageRow(job.dst, y) + x, pixels, imageRow<const uint8_t>(job.a, y) + x,
               imageRow<const uint8_t>(job.b, y) + x, count);
    }
  }
}

// One grid row stretched to pixels: a and b with the weights of the horizontal axis, at most 8 x 255.
template <int kSide>
struct StretchedRow {
  int32_t row;
  uint16_t a[kTile + kSide];
  uint16_t b[kTile + kSide];
};

// Interval k between the centres of blocks k and k + 1 gives kSide pixels; dst starts with that of interval `first`.
template <int kSide>
ALWAYS_INLINE void stretchBody(uint16_t* __restrict dst, const uint8_t* grid, int32_t gridWidth, int32_t first,
                               int32_t intervals) {
  uint8_t padded[kTile / kSide + 2];
  for (int32_t i = 0; i <= intervals; ++i) padded[i] = grid[clampInt(first + i, 0, gridWidth - 1)];
  for (int32_t i = 0; i < intervals; ++i) {
    for (int32_t j = 0; j < kSide; ++j) {
      dst[i * kSide + j] = static_cast<uint16_t>((2 * kSide - 1 - 2 * j) * padded[i] + (2 * j + 1) * padded[i + 1]);
    }
  }
}
template <int kSide>
constexpr CpuRow<stretchBody<kSide>> stretch;

template <int kSide>
ALWAYS_INLINE void blendRowBody(uint8_t* __restrict dst, const uint8_t* __restrict src,
                                const StretchedRow<kSide>& upper, const StretchedRow<kSide>& lower, int32_t phase,
                                int32_t count) {
  constexpr int32_t kShift = kSide == 2 ? 11 : 13;
  const int32_t upperWeight = 2 * kSide - 1 - 2 * phase;
  const int32_t lowerWeight = 2 * phase + 1;
  constexpr int32_t kLead = kSide / 2;  // pixels of the first interval that lie left of the run
  for (int32_t x = 0; x < count; ++x) {
    // Below 64 x 256, so the products fit in 16 x 16 to 32 bits.
    const auto a = static_cast<uint16_t>(upperWeight * upper.a[x + kLead] + lowerWeight * lower.a[x + kLead]);
    const auto b = static_cast<uint16_t>(upperWeight * upper.b[x + kLead] + lowerWeight * lower.b[x + kLead]);
    dst[x] = static_cast<uint8_t>(std::min((src[x] * a + 128 * b + (1 << (kShift - 1))) >> kShift, 255));
  }
}
template <int kSide>
constexpr CpuRow<blendRowBody<kSide>> blendRow;

template <int kSide>
void blendRows(const ApplyJob& job, int32_t begin, int32_t end) {
  constexpr int32_t kLog = kSide == 2 ? 1 : 2;
  const int32_t lastGridRow = job.a->height - 1;
  StretchedRow<kSide> rows[2];
  uint8_t pixels[kTile];  // a copy, so that dst may be src
  for (int32_t left = 0; left < job.src->width; left += kTile) {
    const int32_t count = std::min(kTile, job.src->width - left);
    const int32_t first = left / kSide - 1;
    const int32_t intervals = ((left + count - 1 - kSide / 2) >> kLog) - first + 1;
    StretchedRow<kSide>* upper = &rows[0];
    StretchedRow<kSide>* lower = &rows[1];
    upper->row = lower->row = -1;
    const auto need = [&](StretchedRow<kSide>* stretched, int32_t row) {
      if (stretched->row == row) return;
      stretched->row = row;
      stretch<kSide>(stretched->a, imageRow<const uint8_t>(job.a, row), job.a->width, first, intervals);
      stretch<kSide>(stretched->b, imageRow<const uint8_t>(job.b, row), job.b->width, first, intervals);
    };
    for (int32_t y = begin; y < end; ++y) {
      const int32_t interval = (y - kSide / 2) >> kLog;
      const int32_t phase = (y - kSide / 2) & (kSide - 1);
      const int32_t upperRow = clampInt(interval, 0, lastGridRow);
      if (lower->row == upperRow) std::swap(upper, lower);
      need(upper, upperRow);
      need(lower, clampInt(interval + 1, 0, lastGridRow));
      std::memcpy(pixels, imageRow<const uint8_t>(job.src, y) + left, static_cast<size_t>(count));
      blendRow<kSide>(imageRow(job.dst, y) + left, pixels, *upper, *lower, phase, count);
    }
  }
}

Status apply(GuidedFilter* filter) {
  const ApplyJob job = {&filter->dstYRect, &filter->srcYRect, &filter->aRect, &filter->bRect};
  switch (filter->numShrink) {
    case 0:
      return executeRows<ApplyJob, applyRows>(filter->pel, job, job.src->height);
    case 1:
      return executeRows<ApplyJob, blendRows<2>>(filter->pel, job, job.src->height);
    case 2:
      return executeRows<ApplyJob, blendRows<4>>(filter->pel, job, job.src->height);
    default:
      return ZELVAN_ERROR_UNSUPPORTED;
  }
}

// Steps of the execute forms.

Status openViews(GuidedFilter* filter, Image* dst, Image* src, int32_t window) {
  if (filter == nullptr || src == nullptr || window > filter->maxWindow || isEmpty(filter->rect)) {
    return ZELVAN_ERROR_PARAM;
  }
  const Image* target = dst != nullptr ? dst : src;
  Status status = Image_initSubImageY(&filter->srcY, src, 0, 0, src->width, src->height);
  if (status == ZELVAN_OK) {
    status = Image_initSubImageY(&filter->dstY, target, 0, 0, target->width, target->height);
  }
  if (status == ZELVAN_OK) status = cut(&filter->srcYRect, &filter->srcY, filter->rect);
  if (status == ZELVAN_OK) status = cut(&filter->dstYRect, &filter->dstY, filter->rect);
  if (status == ZELVAN_OK) status = cut(&filter->aRect, &filter->a, filter->shrunkRect);
  if (status == ZELVAN_OK) status = cut(&filter->bRect, &filter->b, filter->shrunkRect);
  if (status == ZELVAN_OK) status = cut(&filter->squareRect, &filter->square, filter->shrunkRect);
  if (status == ZELVAN_OK) {
    status = cut(&filter->guideRect, filter->numShrink == 0 ? &filter->srcY : &filter->guide, filter->shrunkRect);
  }
  return status;
}

bool isOff(float epsilon, int32_t window) {
  return (epsilon >= -1e-12f && epsilon <= 1e-12f) || window < 2;
}

// What all forms share: views, the way round a filter that is off, then steps(window on the grid).
template <typename Steps>
Status run(GuidedFilter* filter, Image* dst, Image* src, std::initializer_list<float> epsilons, int32_t window,
           const Steps& steps) {
  if (const Status s = openViews(filter, dst, src, window); s != ZELVAN_OK) return s;
  for (const float epsilon : epsilons) {
    if (isOff(epsilon, window)) return dst != nullptr ? Image_copy(dst, src) : ZELVAN_OK;
  }
  return steps(shrinkLength(window, filter->numShrink) | 1);
}

// Block sums, coefficients by calc, apply.
template <typename Calc, typename... Epsilon>
Status smooth(GuidedFilter* filter, Image* dst, Image* src, int32_t window, Calc calc, Epsilon... epsilon) {
  return run(filter, dst, src, {epsilon...}, window, [&](int32_t w) {
    Status status = sumBlocks(filter);
    if (status != ZELVAN_OK) return status;
    status =
        calc(&filter->coeff, &filter->aRect, &filter->bRect, &filter->guideRect, &filter->squareRect, epsilon..., w);
    return status != ZELVAN_OK ? status : apply(filter);
  });
}

}  // namespace

Status GuidedFilterParam_setDefault(GuidedFilterParam* param) {
  if (param == nullptr) return ZELVAN_ERROR_PARAM;
  *param = kDefaults;
  return ZELVAN_OK;
}

int32_t GuidedFilter_getBufferSize(int32_t width, int32_t height, int32_t /*unused*/, const GuidedFilterParam* param) {
  const GuidedFilterParam p = param != nullptr ? *param : kDefaults;
  const int32_t w = gridLength(width, p.numShrink);
  const int32_t h = gridLength(height, p.numShrink);
  const auto sizeOf = [=](int32_t format) { return static_cast<uint32_t>(Image_getSize(w, h, format, 0)); };
  auto total = static_cast<uint32_t>(GuidedFilterCoeff_getBufferSize(w, h, shrinkLength(kMaxWindow, p.numShrink) | 1));
  if (p.numShrink != 0) total += sizeOf(IMAGE_UINT16);
  total += sizeOf(p.numShrink != 0 ? IMAGE_INT32 : IMAGE_UINT16) + 2 * sizeOf(IMAGE_UINT8);
  if (p.useEpsilonMap != 0) {
    total += sizeOf(IMAGE_UINT8) + static_cast<uint32_t>(ImageProc2_getBufferSize(width, height, IMAGE_UINT88));
  }
  return static_cast<int32_t>(total);
}

Status construct_GuidedFilter(GuidedFilter* filter, Env* env) {
  if (filter == nullptr) return ZELVAN_ERROR_PARAM;
  *filter = {};
  filter->env = env;
  Status status = construct_GuidedFilterCoeff(&filter->coeff, env) | construct_ImageProc2(&filter->resize, env);
  for (Image* image : {&filter->dstY, &filter->srcY, &filter->dstYRect, &filter->srcYRect, &filter->aRect,
                       &filter->bRect, &filter->guideRect, &filter->squareRect, &filter->a, &filter->b, &filter->guide,
                       &filter->square, &filter->epsilonMap, &filter->epsilonMapRect}) {
    status |= construct_Image(image, env);
  }
  filter->maxWindow = kMaxWindow;
  return status;
}

Status destruct_GuidedFilter(GuidedFilter* filter) {
  if (filter == nullptr) return ZELVAN_ERROR_PARAM;
  const Status status =
      GuidedFilter_recycle(filter) | destruct_ImageProc2(&filter->resize) | destruct_GuidedFilterCoeff(&filter->coeff);
  *filter = {};
  return status;
}

Status GuidedFilter_recycle(GuidedFilter* filter) {
  if (filter == nullptr) return ZELVAN_ERROR_PARAM;
  Status status = ZELVAN_OK;
  for (Image* image : {&filter->epsilonMapRect, &filter->epsilonMap, &filter->squareRect, &filter->guideRect,
                       &filter->bRect, &filter->aRect, &filter->srcYRect, &filter->dstYRect, &filter->srcY,
                       &filter->dstY, &filter->b, &filter->a, &filter->square, &filter->guide}) {
    status |= emptyImage(image);
  }
  filter->rect = {};
  filter->shrunkRect = {};
  return status | GuidedFilterCoeff_recycle(&filter->coeff);
}

Status GuidedFilter_init(GuidedFilter* filter, int32_t width, int32_t height, const GuidedFilterParam* param) {
  if (filter == nullptr || width < 0 || height < 0) return ZELVAN_ERROR_PARAM;
  Status status = GuidedFilter_recycle(filter);
  if (status != ZELVAN_OK) return status;
  const GuidedFilterParam p = param != nullptr ? *param : kDefaults;
  const int32_t w = gridLength(width, p.numShrink);
  const int32_t h = gridLength(height, p.numShrink);
  filter->width = width;
  filter->height = height;
  filter->useEpsilonMap = p.useEpsilonMap;
  filter->numShrink = p.numShrink;
  status = GuidedFilterCoeff_init(&filter->coeff, w, h, shrinkLength(kMaxWindow, p.numShrink) | 1);
  if (status == ZELVAN_OK && p.numShrink != 0) status = Image_init(&filter->guide, w, h, nullptr, IMAGE_UINT16);
  if (status == ZELVAN_OK) {
    status = Image_init(&filter->square, w, h, nullptr, p.numShrink != 0 ? IMAGE_INT32 : IMAGE_UINT16);
  }
  if (status == ZELVAN_OK) status = Image_init(&filter->a, w, h, nullptr, IMAGE_UINT8);
  if (status == ZELVAN_OK) status = Image_init(&filter->b, w, h, nullptr, IMAGE_UINT8);
  if (status == ZELVAN_OK) status = GuidedFilterCoeff_setNumShrink(&filter->coeff, p.numShrink);
  if (status != ZELVAN_OK) {
    GuidedFilter_recycle(filter);
    return status;
  }
  setRects(filter, {0, 0, blockCeil(width, p.numShrink, width), blockCeil(height, p.numShrink, height)});
  return ZELVAN_OK;
}

Status GuidedFilter_setPel(GuidedFilter* filter, Pel* pel) {
  if (filter == nullptr) return ZELVAN_ERROR_PARAM;
  filter->pel = pel;
  filter->coeff.pel = pel;
  return ImageProc2_setPel(&filter->resize, pel);
}

Status GuidedFilter_setRect(GuidedFilter* filter, const ImageRect* rect) {
  if (filter == nullptr) return ZELVAN_ERROR_PARAM;
  if (rect == nullptr) {
    setRects(filter, {});
    return ZELVAN_OK;
  }
  const int32_t n = filter->numShrink;
  setRects(filter, {rect->left & blockMask(n), rect->top & blockMask(n), blockCeil(rect->right, n, filter->width),
                    blockCeil(rect->bottom, n, filter->height)});
  return ZELVAN_OK;
}

Status GuidedFilter_execute(GuidedFilter* filter, Image* dst, Image* src, float epsilon, int32_t window) {
  return smooth(filter, dst, src, window, GuidedFilterCoeff_calcCoeff, epsilon);
}

Status GuidedFilter_execute_square(GuidedFilter* filter, Image* dst, Image* src, float epsilon, int32_t window) {
  return smooth(filter, dst, src, window, GuidedFilterCoeff_calcCoeff_square, epsilon);
}

Status GuidedFilter_execute_two_step(GuidedFilter* filter, Image* dst, Image* src, float epsilon1, float epsilon2,
                                     int32_t window) {
  return smooth(filter, dst, src, window, GuidedFilterCoeff_calcCoeff_two_step, epsilon1, epsilon2);
}

Status GuidedFilter_execute_two_step_lite(GuidedFilter* filter, Image* dst, Image* src, float epsilon1, float epsilon2,
                                          int32_t window) {
  if (filter != nullptr && filter->numShrink < 1) return ZELVAN_ERROR_UNSUPPORTED;
  return smooth(filter, dst, src, window, GuidedFilterCoeff_calcCoeff_two_step_lite, epsilon1, epsilon2);
}

Status GuidedFilter_execute_first_step(GuidedFilter* filter, Image* dst, Image* src, float epsilon, int32_t window) {
  return run(filter, dst, src, {epsilon}, window, [&](int32_t w) {
    const Status status = sumBlocks(filter);
    if (status != ZELVAN_OK) return status;
    return GuidedFilterCoeff_calcCoeff_first_step(&filter->coeff, &filter->aRect, &filter->bRect, &filter->guideRect,
                                                  &filter->squareRect, epsilon, w);
  });
}

Status GuidedFilter_execute_second_step(GuidedFilter* filter, Image* dst, Image* src, float epsilon, int32_t window) {
  return run(filter, dst, src, {epsilon}, window, [&](int32_t w) {
    const Status status = GuidedFilterCoeff_calcCoeff_second_step(&filter->coeff, &filter->aRect, &filter->bRect,
                                                                  &filter->guideRect, &filter->squareRect, epsilon, w);
    return status != ZELVAN_OK ? status : apply(filter);
  });
}

Status GuidedFilter_execute_with_epsilon_map(GuidedFilter* filter, Image* dst, Image* src, float epsilon,
                                             const Image* map, int32_t window) {
  if (map == nullptr) return ZELVAN_ERROR_PARAM;
  return run(filter, dst, src, {epsilon}, window, [&](int32_t w) {
    Status status = Image_init(&filter->epsilonMap, filter->a.width, filter->a.height, nullptr, IMAGE_UINT8);
    if (status != ZELVAN_OK) return status;
    const Scoped<Image, emptyImage> guard(&filter->epsilonMap);
    status = ImageProc2_resizeImage(&filter->resize, &filter->epsilonMap, map);
    if (status == ZELVAN_OK) status = cut(&filter->epsilonMapRect, &filter->epsilonMap, filter->shrunkRect);
    if (status == ZELVAN_OK) status = sumBlocks(filter);
    if (status != ZELVAN_OK) return status;
    status =
        GuidedFilterCoeff_calcCoeff_with_epsilon_map(&filter->coeff, &filter->aRect, &filter->bRect, &filter->guideRect,
                                                     &filter->squareRect, epsilon, &filter->epsilonMapRect, w);
    return status != ZELVAN_OK ? status : apply(filter);
  });
}
