#include "imageproc/plane_view.h"
#include "imageproc/render_span.h"
#include "motion/similar_transform.h"
#include "parallel/bands.h"
#include "parallel/pel_kernel.h"

namespace {

constexpr int32_t kTile = 32;

// A tile: its columns, and the source positions of its two edges at its top with their steps per row.
struct RenderColumn {
  int32_t begin;
  int32_t count;  // 0: the tile is dropped
  int32_t wellInside;
  RenderPoint left;
  RenderPoint leftStep;
  RenderPoint right;
  RenderPoint rightStep;
};
static_assert(sizeof(RenderColumn) == 44);

struct RenderJob {
  const Image* dst;
  const Image* src;
  const Mvec8Real* motion;
  RenderColumn* columns;  // columnCount for each worker
  int32_t columnCount;
  int32_t bands;
};

// A result beyond 32 bits belongs to a single row or pixel, where nobody multiplies it.
int32_t stepOf(int32_t from, int32_t to, int32_t n) {
  return static_cast<int32_t>((int64_t{to} - from) / n);
}
RenderPoint stepOf(const RenderPoint& from, const RenderPoint& to, int32_t n) {
  return {stepOf(from.x, to.x, n), stepOf(from.y, to.y, n)};
}
RenderPoint advance(const RenderPoint& from, const RenderPoint& step, int32_t n) {
  return {wrapAdd(from.x, wrapMul(step.x, n)), wrapAdd(from.y, wrapMul(step.y, n))};
}

// The tiles of the rows from `top` on.
void mapColumns(const RenderJob& job, int32_t top, RenderColumn* columns) {
  const int32_t bottom = std::min(top + kTile, job.dst->height);
  const auto mapEdge = [&](int32_t x, RenderPoint* ends) {
    return renderMap(job.motion, x, top, &ends[0]) && renderMap(job.motion, x, bottom, &ends[1]);
  };
  RenderPoint left[2] = {};
  RenderPoint right[2] = {};
  bool leftSeen = mapEdge(0, left);
  for (int32_t i = 0; i < job.columnCount; ++i) {
    const int32_t begin = i * kTile;
    const int32_t end = std::min(begin + kTile, job.dst->width);
    const bool rightSeen = mapEdge(end, right);
    RenderColumn& column = columns[i];
    column = {};
    if (leftSeen && rightSeen) {
      const auto inside = [&](const RenderPoint& p) { return isWellInside(p, job.src); };
      column = {begin,
                end - begin,
                inside(left[0]) && inside(left[1]) && inside(right[0]) && inside(right[1]),
                left[0],
                stepOf(left[0], left[1], bottom - top),
                right[0],
                stepOf(right[0], right[1], bottom - top)};
    }
    leftSeen = rightSeen;
    std::copy_n(right, 2, left);
  }
}

template <typename Pixel>
Status renderRowsOnPel(RenderJob* job, int32_t index, const PelContext* context) {
  constexpr ImageProcRenderParam kKeep = {};
  RenderColumn* columns = job->columns + ptrdiff_t{context->workerIndex} * job->columnCount;
  const int32_t begin = bandStart(index, job->bands, job->dst->height);
  const int32_t end = bandStart(index + 1, job->bands, job->dst->height);
  for (int32_t y = begin; y < end; ++y) {
    const int32_t row = y % kTile;
    if (y == begin || row == 0) mapColumns(*job, y - row, columns);
    auto* dst = imageRow<typename Pixel::Sample>(job->dst, y);
    for (int32_t i = 0; i < job->columnCount; ++i) {
      const RenderColumn& column = columns[i];
      if (column.count == 0) continue;
      const RenderPoint from = advance(column.left, column.leftStep, row);
      const RenderPoint step = stepOf(from, advance(column.right, column.rightStep, row), column.count);
      renderRow<Pixel, RenderTwoRoundings>(dst + ptrdiff_t{column.begin} * Pixel::kChannels, job->src,
                                           {from.x, from.y, step.x, step.y}, column.count, column.wellInside != 0,
                                           kKeep);
    }
  }
  return ZELVAN_OK;
}

int32_t columnCountOf(int32_t width) {
  return static_cast<int32_t>((int64_t{width} + kTile - 1) / kTile);
}

template <typename Pixel>
Status renderOnPel(const ImageProc2* proc, const Image* dst, const Image* src, const Mvec8Real* motion) {
  static constexpr PelKernel kKernel = pelIndexed<RenderJob, renderRowsOnPel<Pixel>>();
  const int32_t workers = Pel_getNumberOfWorkers(proc->pel);
  const int32_t columnCount = columnCountOf(dst->width);
  const ScopedBlock<RenderColumn> columns(proc->env, static_cast<size_t>(workers) * static_cast<size_t>(columnCount));
  if (!columns) return ZELVAN_ERROR_NOMEM;
  RenderJob job = {dst, src, motion, columns.data(), columnCount, std::min(5 * workers, dst->height)};
  return executeToEnd(proc->pel, &kKernel, &job, job.bands);
}

}  // namespace

Status ImageProc2_render(ImageProc2* proc, Image* dst, const Image* src, const Mvec8Real* motion) {
  if (proc == nullptr || dst == nullptr || src == nullptr || motion == nullptr) return ZELVAN_ERROR_PARAM;
  if (dst->width < 1 || dst->height < 1 || src->width < 1 || src->height < 1) return ZELVAN_ERROR_PARAM;
  if (dst->format != src->format) return ZELVAN_ERROR_PARAM;
  switch (src->format) {
    case IMAGE_YUV420_SEMIPLANAR:
    case IMAGE_YVU420_SEMIPLANAR: {
      const Status status = onPlaneViews(proc->env, dst, src, Image_initSubImageY, [&](Image* d, const Image* s) {
        return renderOnPel<RenderY8>(proc, d, s, motion);
      });
      return status | onPlaneViews(proc->env, dst, src, Image_initSubImageUV, [&](Image* d, const Image* s) {
               Mvec8Real chroma = {};
               const double scale = static_cast<double>(d->width) / dst->width;
               const Status scaled = similarTransform(&chroma, motion, 0, 0, scale, false);
               return scaled | renderOnPel<RenderPair8>(proc, d, s, &chroma);
             });
    }
    case IMAGE_UINT8:
      return renderOnPel<RenderY8>(proc, dst, src, motion);
    case IMAGE_UINT16:
      return renderOnPel<RenderU16>(proc, dst, src, motion);
    default:
      return ZELVAN_ERROR_UNSUPPORTED;
  }
}

int32_t ImageProc2_getBufferSizeForRender(int32_t width, int32_t /*height*/) {
  const int32_t perProcessor = wrapMul(columnCountOf(width), static_cast<int32_t>(sizeof(RenderColumn)));
  return wrapAdd(wrapMul(perProcessor, Syscall_getNumberOfProcessors(nullptr)), 2048);
}
