#include "imageproc/window_sums.h"

#include <algorithm>

#include "base/cpu_level.h"
#include "parallel/pel_rows.h"

namespace {

// Sums are kept modulo 2^32 in registers and modulo the width of the destination in memory; both are exact modulo the
// latter, so running sums give the wrapped true sum.

template <typename T>
inline constexpr int32_t kFormatOf = IMAGE_NONE;
template <>
inline constexpr int32_t kFormatOf<uint8_t> = IMAGE_UINT8;
template <>
inline constexpr int32_t kFormatOf<uint16_t> = IMAGE_UINT16;
template <>
inline constexpr int32_t kFormatOf<uint32_t> = IMAGE_INT32;

bool sameSize(const Image* a, const Image* b) {
  return a->width == b->width && a->height == b->height;
}

Status checkSum(const Image* dst, const Image* src, int32_t radius) {
  if (dst == nullptr || src == nullptr || dst->plane0 == nullptr || src->plane0 == nullptr) return ZELVAN_ERROR_PARAM;
  if (src->width < 1 || src->height < 1 || radius < 0 || !sameSize(dst, src)) return ZELVAN_ERROR_PARAM;
  return ZELVAN_OK;
}

template <typename In, typename Out>
Status checkForm(const Image* dst, const Image* src, int32_t radius) {
  if (const Status s = checkSum(dst, src, radius); s != ZELVAN_OK) return s;
  return src->format == kFormatOf<In> && dst->format == kFormatOf<Out> ? ZELVAN_OK : ZELVAN_ERROR_UNSUPPORTED;
}

// Calls put(x, sum) along one row of items that stand kStride apart.
template <int kStride, typename In, typename Put>
inline void slideRow(const In* src, int32_t width, int32_t radius, const Put& put) {
  const int32_t last = width - 1;
  const int32_t reach = std::min(radius, last);
  uint32_t sum =
      (static_cast<uint32_t>(radius) + 1) * src[0] + static_cast<uint32_t>(radius - reach) * src[last * kStride];
  for (int32_t k = 1; k <= reach; ++k) sum += src[k * kStride];
  put(0, sum);
  for (int32_t x = 1; x < width; ++x) {
    const int32_t in = x + std::min(radius, last - x);
    const int32_t out = x - 1 - std::min(radius, x - 1);
    sum += src[in * kStride];
    sum -= src[out * kStride];
    put(x, sum);
  }
}

// dst = the column sums round row 0 of src, then, per row that follows, dst = above + in - out.
template <typename In, typename Out>
inline void firstColumnSums(Out* __restrict dst, const Image* src, int32_t begin, int32_t count, int32_t radius) {
  const int32_t last = src->height - 1;
  const int32_t reach = std::min(radius, last);
  const auto add = [&](int32_t y, uint32_t times) {
    const In* row = imageRow<const In>(src, y) + begin;
    for (int32_t x = 0; x < count; ++x) dst[x] = static_cast<Out>(dst[x] + times * row[x]);
  };
  std::fill_n(dst, count, Out{0});
  add(0, static_cast<uint32_t>(radius) + 1);
  for (int32_t k = 1; k <= reach; ++k) add(k, 1);
  add(last, static_cast<uint32_t>(radius - reach));
}

template <typename In, typename Out>
ALWAYS_INLINE void slideSumsBody(Out* dst, const Out* before, const In* in, const In* out, int32_t count) {
  for (int32_t x = 0; x < count; ++x) {
    dst[x] = static_cast<Out>(static_cast<uint32_t>(before[x]) + in[x] - out[x]);
  }
}
template <typename In, typename Out>
void slideSums(Out* dst, const Out* before, const In* in, const In* out, int32_t count) {
  CpuRow<slideSumsBody<In, Out>>()(dst, before, in, out, count);
}

// Rows that enter and leave the column window on the step to row y >= 1.
struct Step {
  int32_t in;
  int32_t out;
};
Step stepTo(int32_t y, int32_t height, int32_t radius) {
  return {y + std::min(radius, height - 1 - y), y - 1 - std::min(radius, y - 1)};
}

struct SumJob {
  Image* dst;
  const Image* src;
  int32_t radius;
};

template <typename In, typename Out>
void horiRows(const SumJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    Out* dst = imageRow<Out>(job.dst, y);
    slideRow<1>(imageRow<const In>(job.src, y), job.src->width, job.radius,
                [=](int32_t x, uint32_t sum) { dst[x] = static_cast<Out>(sum); });
  }
}

template <typename In, typename Out>
Status vertTask(SumJob* job, const PelContext*) {
  const int32_t width = job->src->width;
  const int32_t height = job->src->height;
  firstColumnSums<In>(imageRow<Out>(job->dst, 0), job->src, 0, width, job->radius);
  for (int32_t y = 1; y < height; ++y) {
    const Step step = stepTo(y, height, job->radius);
    slideSums(imageRow<Out>(job->dst, y), imageRow<const Out>(job->dst, y - 1), imageRow<const In>(job->src, step.in),
              imageRow<const In>(job->src, step.out), width);
  }
  return ZELVAN_OK;
}

// Sums along a diagonal. u counts columns in the direction in which the line runs as y grows: from the left for
// kSide = 1, from the right for kSide = -1. A window slides along its line, that is from (u - 1, y - 1) to (u, y).
template <typename In, typename Out, int kSide>
struct Lines {
  Image* dst;
  const Image* src;
  int32_t radius;
  int32_t width = src->width;
  int32_t height = src->height;
  int32_t origin = kSide > 0 ? 0 : width - 1;

  const In* from(int32_t u, int32_t y) const { return imageRow<const In>(src, y) + origin + kSide * u; }
  Out* to(int32_t u, int32_t y) const { return imageRow<Out>(dst, y) + origin + kSide * u; }

  void start(int32_t u, int32_t y) const {
    const int32_t back = std::min({radius, u, y});
    const int32_t ahead = std::min({radius, width - 1 - u, height - 1 - y});
    uint32_t sum = static_cast<uint32_t>(radius - back) * *from(u - back, y - back) +
                   static_cast<uint32_t>(radius - ahead) * *from(u + ahead, y + ahead);
    for (int32_t k = -back; k <= ahead; ++k) sum += *from(u + k, y + k);
    *to(u, y) = static_cast<Out>(sum);
  }

  void run() const {
    for (int32_t u = 0; u < width; ++u) start(u, 0);
    for (int32_t y = 1; y < height; ++y) {
      start(0, y);
      const int32_t ahead = std::min(radius, height - 1 - y);
      const int32_t back = std::min(radius, y - 1);
      const auto slide = [&](int32_t u) {
        const int32_t in = std::min(ahead, width - 1 - u);
        const int32_t out = std::min(back, u - 1);
        slideSumsBody(to(u, y), to(u - 1, y - 1), from(u + in, y + in), from(u - 1 - out, y - 1 - out), 1);
      };
      // Between bulkBegin and bulkEnd only the rows bound the window, so one shift holds for the whole run.
      const int32_t bulkBegin = std::min(back + 1, width);
      const int32_t bulkEnd = std::max(width - ahead, bulkBegin);
      for (int32_t u = 1; u < bulkBegin; ++u) slide(u);
      if (const int32_t count = bulkEnd - bulkBegin; count > 0) {
        const int32_t u = kSide > 0 ? bulkBegin : bulkEnd - 1;  // leftmost in memory
        slideSums(to(u, y), to(u - 1, y - 1), from(u + ahead, y + ahead), from(u - 1 - back, y - 1 - back), count);
      }
      for (int32_t u = bulkEnd; u < width; ++u) slide(u);
    }
  }
};

template <typename In, typename Out>
Status runHori(Image* dst, const Image* src, int32_t radius, Pel* pel) {
  if (const Status s = checkForm<In, Out>(dst, src, radius); s != ZELVAN_OK) return s;
  return executeRows<SumJob, horiRows<In, Out>>(pel, {dst, src, radius}, src->height);
}

template <typename In, typename Out>
Status runVert(Image* dst, const Image* src, int32_t radius, Pel* pel) {
  if (const Status s = checkForm<In, Out>(dst, src, radius); s != ZELVAN_OK) return s;
  static constexpr PelKernel kKernel = pelTask<SumJob, vertTask<In, Out>>();
  SumJob job = {dst, src, radius};
  return executeToEnd(pel, &kKernel, &job, 1);
}

template <typename In, typename Out, int kSide>
Status runLines(Image* dst, const Image* src, int32_t radius) {
  if (const Status s = checkForm<In, Out>(dst, src, radius); s != ZELVAN_OK) return s;
  Lines<In, Out, kSide>{dst, src, radius}.run();
  return ZELVAN_OK;
}

template <typename In, typename Out>
Status runSquare(Image* dst, const Image* src, Image* scratch, int32_t radius, Pel* pel) {
  const Status first = runHori<In, Out>(scratch, src, radius, pel);
  return first != ZELVAN_OK ? first : runVert<Out, Out>(dst, scratch, radius, pel);
}

template <typename Function>
struct Form {
  int32_t in;
  int32_t out;
  Function run;
};

template <typename Forms, typename... Tail>
Status dispatch(const Forms& forms, Image* dst, const Image* src, Tail... tail) {
  if (dst == nullptr || src == nullptr) return ZELVAN_ERROR_PARAM;
  for (const auto& form : forms) {
    if (form.in == src->format && form.out == dst->format) return form.run(dst, src, tail...);
  }
  return ZELVAN_ERROR_UNSUPPORTED;
}

using Split = Status (*)(Image*, const Image*, int32_t, Pel*);
using Alone = Status (*)(Image*, const Image*, int32_t);
using Square = Status (*)(Image*, const Image*, Image*, int32_t, Pel*);

}  // namespace

#define WINDOW_SUM_SPLIT(in, out, In, Out)                                                  \
  Status sum_hori_##in##_to_##out(Image* dst, const Image* src, int32_t radius, Pel* pel) { \
    return runHori<In, Out>(dst, src, radius, pel);                                         \
  }                                                                                         \
  Status sum_vert_##in##_to_##out(Image* dst, const Image* src, int32_t radius, Pel* pel) { \
    return runVert<In, Out>(dst, src, radius, pel);                                         \
  }
#define WINDOW_SUM_ALONE(in, out, In, Out)                                                                  \
  Status sum_diag_##in##_to_##out(Image* dst, const Image* src, int32_t radius) {                           \
    return runLines<In, Out, 1>(dst, src, radius);                                                          \
  }                                                                                                         \
  Status sum_anti_##in##_to_##out(Image* dst, const Image* src, int32_t radius) {                           \
    return runLines<In, Out, -1>(dst, src, radius);                                                         \
  }                                                                                                         \
  Status sum_sqre_##in##_to_##out(Image* dst, const Image* src, Image* scratch, int32_t radius, Pel* pel) { \
    return runSquare<In, Out>(dst, src, scratch, radius, pel);                                              \
  }

WINDOW_SUM_SPLIT(u8, u16, uint8_t, uint16_t)
WINDOW_SUM_SPLIT(u16, u16, uint16_t, uint16_t)
WINDOW_SUM_SPLIT(u16, u32, uint16_t, uint32_t)
WINDOW_SUM_SPLIT(u32, u32, uint32_t, uint32_t)
WINDOW_SUM_ALONE(u8, u16, uint8_t, uint16_t)
WINDOW_SUM_ALONE(u16, u16, uint16_t, uint16_t)
WINDOW_SUM_ALONE(u8, u32, uint8_t, uint32_t)
WINDOW_SUM_ALONE(u16, u32, uint16_t, uint32_t)
WINDOW_SUM_ALONE(u32, u32, uint32_t, uint32_t)

#define WINDOW_SUM_SPLIT_FORMS(kind)                                                                               \
  {                                                                                                                \
    {IMAGE_UINT8, IMAGE_UINT16, sum_##kind##_u8_to_u16}, {IMAGE_UINT16, IMAGE_UINT16, sum_##kind##_u16_to_u16},    \
        {IMAGE_UINT16, IMAGE_INT32, sum_##kind##_u16_to_u32}, {IMAGE_INT32, IMAGE_INT32, sum_##kind##_u32_to_u32}, \
  }
#define WINDOW_SUM_ALONE_FORMS(kind)                                                                              \
  {                                                                                                               \
    {IMAGE_UINT8, IMAGE_UINT16, sum_##kind##_u8_to_u16}, {IMAGE_UINT16, IMAGE_UINT16, sum_##kind##_u16_to_u16},   \
        {IMAGE_UINT8, IMAGE_INT32, sum_##kind##_u8_to_u32}, {IMAGE_UINT16, IMAGE_INT32, sum_##kind##_u16_to_u32}, \
        {IMAGE_INT32, IMAGE_INT32, sum_##kind##_u32_to_u32},                                                      \
  }

Status sum_hori(Image* dst, const Image* src, int32_t radius, Pel* pel) {
  static constexpr Form<Split> kForms[] = WINDOW_SUM_SPLIT_FORMS(hori);
  return dispatch(kForms, dst, src, radius, pel);
}

Status sum_vert(Image* dst, const Image* src, int32_t radius, Pel* pel) {
  static constexpr Form<Split> kForms[] = WINDOW_SUM_SPLIT_FORMS(vert);
  return dispatch(kForms, dst, src, radius, pel);
}

Status sum_diag(Image* dst, const Image* src, int32_t radius) {
  static constexpr Form<Alone> kForms[] = WINDOW_SUM_ALONE_FORMS(diag);
  return dispatch(kForms, dst, src, radius);
}

Status sum_anti(Image* dst, const Image* src, int32_t radius) {
  static constexpr Form<Alone> kForms[] = WINDOW_SUM_ALONE_FORMS(anti);
  return dispatch(kForms, dst, src, radius);
}

Status sum_sqre(Image* dst, const Image* src, Image* scratch, int32_t radius, Pel* pel) {
  static constexpr Form<Square> kForms[] = WINDOW_SUM_ALONE_FORMS(sqre);
  return dispatch(kForms, dst, src, scratch, radius, pel);
}

namespace {

// Box means. kChannels items a pixel; Column holds the sum of a column window.

struct BlurJob {
  Image* dst;
  const Image* src;
  Image* scratch;
  Image* rowScratch;
  int32_t radiusX;
  int32_t radiusY;
};

constexpr int32_t kBlurStrips = 8;

template <typename Item, typename Column, int kChannels>
struct BoxBlur {
  // (2 x 128 + 1) x 255 fills 16 bits, (2 x 32767 + 1) x 65535 and half the count 32.
  static constexpr int32_t kMaxRadius = sizeof(Item) == 1 ? 128 : 32767;

  static void rows(const BlurJob& job, int32_t begin, int32_t end) {
    const uint32_t count = 2 * static_cast<uint32_t>(job.radiusX) + 1;
    for (int32_t y = begin; y < end; ++y) {
      for (int32_t c = 0; c < kChannels; ++c) {
        Item* dst = imageRow<Item>(job.scratch, y) + c;
        slideRow<kChannels>(
            imageRow<const Item>(job.src, y) + c, job.src->width, job.radiusX,
            [=](int32_t x, uint32_t sum) { dst[x * kChannels] = static_cast<Item>((sum + count / 2) / count); });
      }
    }
  }

  static Status strip(BlurJob* job, int32_t index, const PelContext* context) {
    const int32_t items = job->src->width * kChannels;
    const int32_t height = job->src->height;
    const int32_t begin = static_cast<int32_t>(int64_t{items} * index / context->count);
    const int32_t count = static_cast<int32_t>(int64_t{items} * (index + 1) / context->count) - begin;
    const uint32_t n = 2 * static_cast<uint32_t>(job->radiusY) + 1;
    Column* sums = imageRow<Column>(job->rowScratch, 0) + begin;
    firstColumnSums<Item>(sums, job->scratch, begin, count, job->radiusY);
    for (int32_t y = 0; y < height; ++y) {
      if (y > 0) {
        const Step step = stepTo(y, height, job->radiusY);
        slideSums(sums, sums, imageRow<const Item>(job->scratch, step.in) + begin,
                  imageRow<const Item>(job->scratch, step.out) + begin, count);
      }
      Item* dst = imageRow<Item>(job->dst, y) + begin;
      for (int32_t x = 0; x < count; ++x) dst[x] = static_cast<Item>((sums[x] + n / 2) / n);
    }
    return ZELVAN_OK;
  }

  static Status run(const BlurJob& blur, int32_t format, int32_t width, int32_t height, Pel* pel) {
    BlurJob job = blur;
    if (job.rowScratch == nullptr || job.rowScratch->plane0 == nullptr || width < 1 || height < 1) {
      return ZELVAN_ERROR_PARAM;
    }
    Status status = checkSum(job.dst, job.src, 0);
    if (status == ZELVAN_OK) status = checkSum(job.scratch, job.src, 0);
    if (status != ZELVAN_OK) return status;
    if (job.rowScratch->width < job.src->width * kChannels) return ZELVAN_ERROR_PARAM;
    job.radiusX = width >> 1;
    job.radiusY = height >> 1;
    if (job.src->format != format || job.dst->format != format || job.scratch->format != format ||
        job.rowScratch->format != kFormatOf<Column> || std::max(job.radiusX, job.radiusY) > kMaxRadius) {
      return ZELVAN_ERROR_UNSUPPORTED;
    }
    static constexpr PelKernel kStrip = pelIndexed<BlurJob, strip>();
    status = executeRows<BlurJob, rows>(pel, job, job.src->height);
    return status != ZELVAN_OK ? status : executeToEnd(pel, &kStrip, &job, kBlurStrips);
  }
};

}  // namespace

Status box_blur_u8(Image* dst, const Image* src, Image* scratch, Image* rowScratch, int32_t width, int32_t height,
                   Pel* pel) {
  return BoxBlur<uint8_t, uint16_t, 1>::run({dst, src, scratch, rowScratch, 0, 0}, IMAGE_UINT8, width, height, pel);
}

Status box_blur_u88(Image* dst, const Image* src, Image* scratch, Image* rowScratch, int32_t width, int32_t height,
                    Pel* pel) {
  return BoxBlur<uint8_t, uint16_t, 2>::run({dst, src, scratch, rowScratch, 0, 0}, IMAGE_UINT88, width, height, pel);
}

Status box_blur_u16(Image* dst, const Image* src, Image* scratch, Image* rowScratch, int32_t width, int32_t height,
                    Pel* pel) {
  return BoxBlur<uint16_t, uint32_t, 1>::run({dst, src, scratch, rowScratch, 0, 0}, IMAGE_UINT16, width, height, pel);
}
