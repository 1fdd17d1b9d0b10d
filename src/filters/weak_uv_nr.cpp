#include "filters/weak_uv_nr.h"

#include <algorithm>
#include <cstring>

#include "base/integer.h"
#include "imageproc/resize.h"
#include "parallel/pel_kernel.h"

namespace {

// The rows of the cell images hold their items as planes, one run of values behind the other, so that loops over cells
// are contiguous.
enum Sum : int32_t { SUM_Y, SUM_U, SUM_V, SUM_YY, SUM_UU, SUM_VV, SUM_YU, SUM_YV, SUM_UV, kSums };
enum Coefficient : int32_t { U_Y, U_U, U_V, U_OFFSET, V_Y, V_U, V_V, V_OFFSET, kCoefficients };

constexpr int32_t kChunk = 256;              // values of a line in work at a time
constexpr float kFraction = 3.0517578e-05f;  // Q15 to float
constexpr int32_t kFlatMap = 32;             // m where there is no map

// Running a stage over its lines.

template <typename Job>
struct LinesBlock {
  const Job* job;
  int32_t lines;
};

template <typename Job, void (*Body)(const Job&, int32_t, int32_t, int32_t)>
Status linesPart(LinesBlock<Job>* block, int32_t begin, int32_t end, const PelContext* context) {
  const auto lineOf = [&](int32_t i) { return static_cast<int32_t>(int64_t{block->lines} * i / context->count); };
  Body(*block->job, context->workerIndex, lineOf(begin), lineOf(end));
  return ZELVAN_OK;
}

// Body(job, worker, begin, end).
template <typename Job, void (*Body)(const Job&, int32_t, int32_t, int32_t)>
Status runLines(Pel* pel, const Job& job, int32_t lines) {
  static constexpr PelKernel kKernel = pelRange<LinesBlock<Job>, linesPart<Job, Body>>();
  LinesBlock<Job> block = {&job, lines};
  return executeToEnd(pel, &kKernel, &block, std::min(5 * Pel_getNumberOfWorkers(pel), lines));
}

// Window sums. Integers wrap, which is meant.

// dst: planes of `cells` values, the window sums of src times scale.
template <typename T, int32_t kPlanes>
void sumAcross(T* __restrict dst, const T* __restrict src, int32_t cells, int32_t radius, T scale) {
  T sums[kPlanes];
  const int32_t last = cells - 1;
  for (int32_t c = 0; c < kPlanes; ++c) sums[c] = static_cast<T>(radius + 1) * src[c * cells];
  for (int32_t k = 1; k <= radius; ++k) {
    for (int32_t c = 0; c < kPlanes; ++c) sums[c] += src[c * cells + std::min(k, last)];
  }
  for (int32_t x = 0;;) {
    for (int32_t c = 0; c < kPlanes; ++c) dst[c * cells + x] = sums[c] * scale;
    if (++x > last) break;
    const int32_t entering = radius < last - x ? x + radius : last;
    const int32_t leaving = std::max(x - radius - 1, 0);
    for (int32_t c = 0; c < kPlanes; ++c) {
      sums[c] += src[c * cells + entering];
      sums[c] -= src[c * cells + leaving];
    }
  }
}

// Window sums down the columns, in place.
template <typename T>
struct DownJob {
  Image* image;
  int32_t radius;
  T scale;
  T* kept;        // per worker: the rows that have been overwritten and are still to leave the window
  int32_t slots;  // rows of kChunk values in it
};

template <typename T>
void sumDown(const DownJob<T>& job, int32_t worker, int32_t begin, int32_t end) {
  const int32_t radius = job.radius;
  const int32_t last = job.image->height - 1;
  T* const kept = job.kept + static_cast<ptrdiff_t>(worker) * job.slots * kChunk;
  for (int32_t left = begin; left < end; left += kChunk) {
    const int32_t count = std::min(kChunk, end - left);
    const auto row = [&](int32_t y) { return imageRow<T>(job.image, y) + left; };
    T first[kChunk];
    T sums[kChunk];
    std::memcpy(first, row(0), static_cast<size_t>(count) * sizeof(T));
    for (int32_t i = 0; i < count; ++i) sums[i] = static_cast<T>(radius + 1) * first[i];
    for (int32_t k = 1; k <= radius; ++k) {
      const T* __restrict next = row(std::min(k, last));
      for (int32_t i = 0; i < count; ++i) sums[i] += next[i];
    }
    for (int32_t y = 0; y <= last; ++y) {
      // Row y - radius - 1 leaves; its slot then takes row y.
      T* const slot = kept + static_cast<ptrdiff_t>(y % job.slots) * kChunk;
      if (y > 0) {
        const T* __restrict entering = row(radius < last - y ? y + radius : last);
        const T* __restrict leaving = y - 1 > radius ? slot : first;
        for (int32_t i = 0; i < count; ++i) {
          sums[i] += entering[i];
          sums[i] -= leaving[i];
        }
      }
      T* __restrict out = row(y);
      std::memcpy(slot, out, static_cast<size_t>(count) * sizeof(T));
      for (int32_t i = 0; i < count; ++i) out[i] = sums[i] * job.scale;
    }
  }
}

template <typename T>
Status sumColumns(Env* env, Pel* pel, Image* image, int32_t radius, T scale) {
  const int32_t slots = radius < image->height ? radius + 1 : image->height;
  const ScopedBlock<T> kept(env,
                            static_cast<size_t>(Pel_getNumberOfWorkers(pel)) * static_cast<size_t>(slots) * kChunk);
  if (!kept) return ZELVAN_ERROR_NOMEM;
  const DownJob<T> job = {image, radius, scale, kept.data(), slots};
  return runLines<DownJob<T>, sumDown<T>>(pel, job, image->width);
}

// Statistics: the sums of each cell, then across.

struct StatisticsJob {
  Image* dst;
  const Image* luma;
  const Image* chroma;
  int32_t cells;
  int32_t radius;
  uint32_t* rows;  // one per worker
};

void sumCells(uint32_t* __restrict dst, const StatisticsJob& job, int32_t y) {
  const int32_t cells = job.cells;
  std::memset(dst, 0, static_cast<size_t>(cells) * kSums * sizeof(uint32_t));
  for (int32_t row = 0; row < 2; ++row) {
    const uint8_t* __restrict luma = imageRow(job.luma, 2 * y + row);
    const uint8_t* __restrict chroma = imageRow(job.chroma, 2 * y + row);
    for (int32_t x = 0; x < cells; ++x) {
      const uint32_t y0 = luma[2 * x];
      const uint32_t y1 = luma[2 * x + 1];
      const uint32_t u0 = chroma[4 * x];
      const uint32_t v0 = chroma[4 * x + 1];
      const uint32_t u1 = chroma[4 * x + 2];
      const uint32_t v1 = chroma[4 * x + 3];
      dst[SUM_Y * cells + x] += y0 + y1;
      dst[SUM_U * cells + x] += u0 + u1;
      dst[SUM_V * cells + x] += v0 + v1;
      dst[SUM_YY * cells + x] += y0 * y0 + y1 * y1;
      dst[SUM_UU * cells + x] += u0 * u0 + u1 * u1;
      dst[SUM_VV * cells + x] += v0 * v0 + v1 * v1;
      dst[SUM_YU * cells + x] += y0 * u0 + y1 * u1;
      dst[SUM_YV * cells + x] += y0 * v0 + y1 * v1;
      dst[SUM_UV * cells + x] += u0 * v0 + u1 * v1;
    }
  }
}

void statisticsRows(const StatisticsJob& job, int32_t worker, int32_t begin, int32_t end) {
  uint32_t* const row = job.rows + static_cast<ptrdiff_t>(worker) * job.cells * kSums;
  for (int32_t y = begin; y < end; ++y) {
    sumCells(row, job, y);
    sumAcross<uint32_t, kSums>(imageRow<uint32_t>(job.dst, y), row, job.cells, job.radius, 1);
  }
}

// Model: the coefficients of each cell, then their mean across.

struct ModelJob {
  Image* dst;
  const Image* statistics;
  const Image* map;
  int32_t cells;
  int32_t radius;
  float n;              // pixels of a window
  float regularise[3];  // p p n / 1024 of Y, U, V
  float* rows;          // one per worker
};

// A block of cells, with planes of their own: across more of them than this the vectoriser gives up telling rows apart.
struct ModelBlock {
  float planes[kCoefficients][kChunk];
};

// sums and map: those of the first cell of the block.
void solveCells(ModelBlock* __restrict dst, const int32_t* __restrict sums, const uint8_t* __restrict map,
                const ModelJob& job, int32_t count) {
  const int32_t cells = job.cells;
  const float n = job.n;
  const float regulariseY = job.regularise[0];
  const float regulariseU = job.regularise[1];
  const float regulariseV = job.regularise[2];
  for (int32_t x = 0; x < count; ++x) {
    const float m = map[x];
    const auto sum = [=](Sum which) { return static_cast<float>(sums[which * cells + x]); };
    const float sy = sum(SUM_Y);
    const float su = sum(SUM_U);
    const float sv = sum(SUM_V);
    const float cyy = sum(SUM_YY) - sy * sy / n;
    const float cuu = sum(SUM_UU) - su * su / n;
    const float cvv = sum(SUM_VV) - sv * sv / n;
    const float cyu = sum(SUM_YU) - sy * su / n;
    const float cyv = sum(SUM_YV) - sy * sv / n;
    const float cuv = sum(SUM_UV) - su * sv / n;

    const float yy = cyy + regulariseY * m * m;
    const float uu = cuu + regulariseU * m * m;
    const float vv = cvv + regulariseV * m * m;
    const float cofactorYY = uu * vv - cuv * cuv;
    const float cofactorYU = cyv * cuv - cyu * vv;
    const float cofactorYV = cyu * cuv - cyv * uu;
    const float reciprocal = 1.0f / (yy * cofactorYY + cyu * cofactorYU + cyv * cofactorYV);
    const float inverseYY = cofactorYY * reciprocal;
    const float inverseYU = cofactorYU * reciprocal;
    const float inverseYV = cofactorYV * reciprocal;
    const float inverseUU = (yy * vv - cyv * cyv) * reciprocal;
    const float inverseUV = (cyu * cyv - yy * cuv) * reciprocal;
    const float inverseVV = (yy * uu - cyu * cyu) * reciprocal;

    const auto solve = [=](Coefficient first, float b0, float b1, float b2, float mean) {
      const float a0 = inverseYY * b0 + inverseYU * b1 + inverseYV * b2;
      const float a1 = inverseYU * b0 + inverseUU * b1 + inverseUV * b2;
      const float a2 = inverseYV * b0 + inverseUV * b1 + inverseVV * b2;
      dst->planes[first][x] = a0;
      dst->planes[first + 1][x] = a1;
      dst->planes[first + 2][x] = a2;
      dst->planes[first + 3][x] = (mean - (a0 * sy + a1 * su + a2 * sv)) / n;
    };
    solve(U_Y, cyu, cuu, cuv, su);
    solve(V_Y, cyv, cuv, cvv, sv);
  }
}

float windowReciprocal(int32_t radius) {
  return 1.0f / (2.0f * static_cast<float>(radius) + 1.0f);
}

void modelRows(const ModelJob& job, int32_t worker, int32_t begin, int32_t end) {
  float* const row = job.rows + static_cast<ptrdiff_t>(worker) * job.cells * kCoefficients;
  const float scale = windowReciprocal(job.radius);
  for (int32_t y = begin; y < end; ++y) {
    for (int32_t x = 0; x < job.cells; x += kChunk) {
      const int32_t count = std::min(kChunk, job.cells - x);
      ModelBlock block;
      solveCells(&block, imageRow<const int32_t>(job.statistics, y) + x, imageRow<const uint8_t>(job.map, y) + x, job,
                 count);
      for (int32_t c = 0; c < kCoefficients; ++c) {
        std::memcpy(row + c * job.cells + x, block.planes[c], static_cast<size_t>(count) * sizeof(float));
      }
    }
    sumAcross<float, kCoefficients>(imageRow<float>(job.dst, y), row, job.cells, job.radius, scale);
  }
}

// Horizontal stretch to the chroma width.

struct StretchJob {
  Image* dst;
  const Image* src;
  int32_t cells;
  int32_t width;
};

void stretchRows(const StretchJob& job, int32_t /*worker*/, int32_t begin, int32_t end) {
  const int64_t step = (int64_t{job.cells} << 15) / job.width;
  const int64_t start = (int64_t{job.cells} - job.width) * 32768 / (2 * int64_t{job.width});
  const int64_t limit = int64_t{job.cells - 1} << 15;
  for (int32_t left = 0; left < job.width; left += kChunk) {
    const int32_t count = std::min(kChunk, job.width - left);
    int32_t near[kChunk];
    int32_t far[kChunk];
    float f[kChunk];
    for (int32_t i = 0; i < count; ++i) {
      const int64_t p = start + (left + i) * step;
      const bool inside = p >= 0 && p < limit;
      near[i] = p < 0 ? 0 : p < limit ? static_cast<int32_t>(p >> 15) : job.cells - 1;
      far[i] = near[i] + inside;
      f[i] = inside ? static_cast<float>(p & 0x7fff) * kFraction : 0.0f;
    }
    for (int32_t y = begin; y < end; ++y) {
      for (int32_t c = 0; c < kCoefficients; ++c) {
        const float* __restrict src = imageRow<const float>(job.src, y) + c * job.cells;
        float* __restrict dst = imageRow<float>(job.dst, y) + c * job.width + left;
        for (int32_t i = 0; i < count; ++i) {
          // A repeated end is the coefficient itself.
          dst[i] = far[i] != near[i] ? (1.0f - f[i]) * src[near[i]] + f[i] * src[far[i]] : src[near[i]];
        }
      }
    }
  }
}

// Application.

struct ApplyJob {
  Image* dst;
  const Image* chroma;
  const Image* luma;
  const Image* coefficients;
  float gain;
};

inline uint8_t byteOf(float q, float gain) {
  const float value = gain * (q - 128.0f) + 128.0f;
  const float low = value > 0.0f ? value : 0.0f;  // NaN too becomes 0
  return static_cast<uint8_t>(static_cast<int32_t>(low < 255.0f ? low : 255.0f));
}

// a and b: the rows of coefficients above and below, width is the distance of their planes.
void applyRun(uint8_t* __restrict dst, const uint8_t* __restrict pairs, const uint8_t* __restrict luma,
              const float* __restrict a, const float* __restrict b, int32_t width, float f, float gain, int32_t count) {
  const float g = 1.0f - f;
  for (int32_t i = 0; i < count; ++i) {
    const float y0 = luma[i];
    const float c0 = pairs[2 * i];
    const float c1 = pairs[2 * i + 1];
    const auto model = [&](const float* row, Coefficient first) {
      const float* at = row + first * width + i;
      return at[0] * y0 + at[width] * c0 + at[2 * width] * c1 + at[3 * width];
    };
    dst[2 * i] = byteOf(g * model(a, U_Y) + f * model(b, U_Y), gain);
    dst[2 * i + 1] = byteOf(g * model(a, V_Y) + f * model(b, V_Y), gain);
  }
}

void applyRows(const ApplyJob& job, int32_t /*worker*/, int32_t begin, int32_t end) {
  const int32_t width = job.chroma->width;
  const int64_t height = job.chroma->height;
  const int64_t rows = job.coefficients->height;
  const int32_t last = job.coefficients->height - 1;
  for (int32_t y = begin; y < end; ++y) {
    const int64_t v = (2 * y * rows + rows - height) * 32768 / (2 * height);
    const auto above = static_cast<int32_t>(v >> 15);
    const float f = static_cast<float>(v & 0x7fff) * kFraction;
    const float* a = imageRow<const float>(job.coefficients, clampInt(above, 0, last));
    const float* b = imageRow<const float>(job.coefficients, clampInt(above + 1, 0, last));
    for (int32_t x = 0; x < width; x += kChunk) {
      const int32_t count = std::min(kChunk, width - x);
      uint8_t out[2 * kChunk];  // dst may be the source
      applyRun(out, imageRow(job.chroma, y) + 2 * x, imageRow(job.luma, y) + x, a + x, b + x, width, f, job.gain,
               count);
      std::memcpy(imageRow(job.dst, y) + 2 * x, out, static_cast<size_t>(count) * 2);
    }
  }
}

// Steps.

struct Context {
  Env* env;
  ImageProc2* proc;
  const Image* luma;
  const Image* chroma;
  const Image* map;
  const WeakUvNrParams* params;
  int32_t smallWidth;
  int32_t smallHeight;
  int32_t cells;  // of a row
  int32_t rows;
  int32_t radius;
};

Status makeStatistics(const Context& c, Image* statistics) {
  ScopedImage luma(c.env);
  Status status = Image_init(&luma, c.smallWidth, c.smallHeight, nullptr, IMAGE_UINT8);
  if (status == ZELVAN_OK) status = ImageProc2_averageShrink(c.proc, &luma, c.luma);
  if (status != ZELVAN_OK) return status;
  ScopedImage shrunkChroma(c.env);
  const Image* chroma = c.chroma;
  if (chroma->width != c.smallWidth || chroma->height != c.smallHeight) {
    status = Image_init(&shrunkChroma, c.smallWidth, c.smallHeight, nullptr, IMAGE_UINT88);
    if (status == ZELVAN_OK) status = ImageProc2_averageShrink(c.proc, &shrunkChroma, c.chroma);
    if (status != ZELVAN_OK) return status;
    chroma = &shrunkChroma;
  }
  Pel* const pel = c.proc->pel;
  {
    const ScopedBlock<uint32_t> rows(
        c.env, static_cast<size_t>(Pel_getNumberOfWorkers(pel)) * static_cast<size_t>(c.cells) * kSums);
    if (!rows) return ZELVAN_ERROR_NOMEM;
    const StatisticsJob job = {statistics, &luma, chroma, c.cells, c.radius, rows.data()};
    status = runLines<StatisticsJob, statisticsRows>(pel, job, c.rows);
    if (status != ZELVAN_OK) return status;
  }
  return sumColumns<uint32_t>(c.env, pel, statistics, c.radius, 1);
}

Status makeModel(const Context& c, Image* coefficients) {
  ScopedImage statistics(c.env);
  Status status = Image_init(&statistics, c.cells * kSums, c.rows, nullptr, IMAGE_INT32);
  if (status == ZELVAN_OK) status = makeStatistics(c, &statistics);
  if (status != ZELVAN_OK) return status;
  ScopedImage map(c.env);
  status = Image_init(&map, c.smallWidth, c.smallHeight, nullptr, IMAGE_UINT8);
  if (status != ZELVAN_OK) return status;
  if (c.map != nullptr) {
    status = ImageProc2_averageShrink(c.proc, &map, c.map);
    if (status != ZELVAN_OK) return status;
  } else {
    for (int32_t y = 0; y < map.height; ++y) std::memset(imageRow(&map, y), kFlatMap, static_cast<size_t>(map.width));
  }
  Pel* const pel = c.proc->pel;
  {
    const ScopedBlock<float> rows(
        c.env, static_cast<size_t>(Pel_getNumberOfWorkers(pel)) * static_cast<size_t>(c.cells) * kCoefficients);
    if (!rows) return ZELVAN_ERROR_NOMEM;
    const WeakUvNrParams& p = *c.params;
    const auto n = static_cast<float>(int64_t{4} * p.window * p.window);
    const auto regularise = [=](float r) { return r * r * n * 0.0009765625f; };
    const ModelJob job = {coefficients,
                          &statistics,
                          &map,
                          c.cells,
                          c.radius,
                          n,
                          {regularise(p.regularisationY), regularise(p.regularisationU), regularise(p.regularisationV)},
                          rows.data()};
    status = runLines<ModelJob, modelRows>(pel, job, c.rows);
    if (status != ZELVAN_OK) return status;
  }
  return sumColumns<float>(c.env, pel, coefficients, c.radius, windowReciprocal(c.radius));
}

Status makeStretchedModel(const Context& c, Image* stretched) {
  ScopedImage coefficients(c.env);
  Status status = Image_init(&coefficients, c.cells * kCoefficients, c.rows, nullptr, IMAGE_FLOAT);
  if (status == ZELVAN_OK) status = makeModel(c, &coefficients);
  if (status == ZELVAN_OK) {
    status = Image_init(stretched, c.chroma->width * kCoefficients, c.rows, nullptr, IMAGE_FLOAT);
  }
  if (status != ZELVAN_OK) return status;
  const StretchJob job = {stretched, &coefficients, c.cells, c.chroma->width};
  return runLines<StretchJob, stretchRows>(c.proc->pel, job, c.rows);
}

int32_t shrunkSide(int32_t side, int32_t divisor) {
  return truncToInt32(static_cast<float>(side) / static_cast<float>(divisor) + 0.5f);
}

}  // namespace

Status weakUvNr(Env* env, Pel* pel, Image* dst, const Image* src, const Image* map, const WeakUvNrParams* params) {
  if (dst == nullptr || src == nullptr || params == nullptr) return ZELVAN_ERROR_PARAM;
  if (params->window < 0) return ZELVAN_ERROR_PARAM;
  ImageProc2 proc = {env, pel};
  ScopedImage luma(env);
  ScopedImage chroma(env);
  ScopedImage dstChroma(env);
  Status status = Image_initSubImageY(&luma, src, 0, 0, src->width, src->height);
  if (status == ZELVAN_OK) status = Image_initSubImageUV(&chroma, src, 0, 0, src->width, src->height);
  if (status == ZELVAN_OK) status = Image_initSubImageUV(&dstChroma, dst, 0, 0, src->width, src->height);
  if (status != ZELVAN_OK) return status;

  Context context = {env, &proc, &luma, &chroma, map, params, 0, 0, 0, 0, params->window >> 1};
  context.smallWidth = shrunkSide(luma.width, params->shrink);
  context.smallHeight = shrunkSide(luma.height, params->shrink);
  context.cells = context.smallWidth / 2;
  context.rows = context.smallHeight / 2;
  // Tested before scratch of any such size is asked for.
  if (context.smallWidth >= luma.width || context.smallHeight >= luma.height || context.cells < 1 || context.rows < 1) {
    return ZELVAN_ERROR_PARAM;
  }

  ScopedImage stretched(env);
  status = makeStretchedModel(context, &stretched);
  if (status != ZELVAN_OK) return status;
  ScopedImage halfLuma(env);
  const Image* guide = &luma;
  if (luma.width != chroma.width || luma.height != chroma.height) {
    status = Image_init(&halfLuma, chroma.width, chroma.height, nullptr, IMAGE_UINT8);
    if (status == ZELVAN_OK) status = ImageProc2_averageShrink(&proc, &halfLuma, &luma);
    if (status != ZELVAN_OK) return status;
    guide = &halfLuma;
  }
  const ApplyJob job = {&dstChroma, &chroma, guide, &stretched, params->gain};
  return runLines<ApplyJob, applyRows>(proc.pel, job, chroma.height);
}
