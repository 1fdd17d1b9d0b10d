#include "imageproc/render.h"

#include "imageproc/plane_view.h"
#include "imageproc/render_quad.h"

namespace {

constexpr int32_t kTile = 128;
constexpr int32_t kSlices = 4;

using DrawQuad = void (*)(const Image* dst, const Image* src, const RenderQuad& quad, int32_t begin, int32_t end,
                          const ImageProcRenderParam& param);

struct RenderJob {
  Env* env;
  const Image* dst;
  const Image* src;
  DrawQuad draw;           // plane 0
  const Image* dstChroma;  // null: none
  const Image* srcChroma;
  const Mvec8Real* motion;  // null: one quad
  RenderQuad quad;
  ImageProcRenderParam param;
};

// Null for formats without a route.
DrawQuad drawQuadOf(int32_t format, bool fourPoints) {
  switch (format) {
    case IMAGE_YUV420_SEMIPLANAR:
    case IMAGE_YVU420_SEMIPLANAR:
    case IMAGE_UINT8:
      return renderQuad<RenderY8, RenderOneRounding>;
    case IMAGE_INT32:
      return fourPoints ? renderQuad<RenderI32, RenderOneRounding> : nullptr;
    case IMAGE_UINT16:
      return fourPoints ? renderQuad<RenderU16, RenderOneRounding> : nullptr;
    default:
      return Image_isUint8888(format) != 0 ? renderQuad<RenderRgba8, RenderOneRounding> : nullptr;
  }
}

void drawPlanes(const RenderJob& job, const RenderQuad& quad, int32_t begin, int32_t end,
                const ImageProcRenderParam& param) {
  job.draw(job.dst, job.src, quad, begin, end, param);
  if (job.dstChroma == nullptr) return;
  const int32_t chromaEnd = std::min((end + 1) >> 1, job.dstChroma->height);
  renderQuad<RenderPair8, RenderOneRounding>(job.dstChroma, job.srcChroma, renderHalved(quad), begin >> 1, chromaEnd,
                                             param);
}

// False for a tile to be dropped.
bool mapTile(const Mvec8Real* motion, int32_t left, int32_t top, int32_t right, int32_t bottom, RenderQuad* quad) {
  const int32_t xs[4] = {left, right, right, left};
  const int32_t ys[4] = {top, top, bottom, bottom};
  for (int32_t i = 0; i < 4; ++i) {
    RenderCorner& corner = quad->corners[i];
    corner.dstX = int64_t{xs[i]} * kRenderOne;
    corner.dstY = int64_t{ys[i]} * kRenderOne;
    if (!renderMap(motion, xs[i], ys[i], &corner.src)) return false;
  }
  return true;
}

void drawTiles(const RenderJob& job, int32_t begin, int32_t end) {
  for (int32_t top = begin; top < end; top += kTile) {
    const int32_t bottom = std::min(top + kTile, end);
    for (int32_t left = 0; left < job.dst->width; left += kTile) {
      const int32_t right = std::min(left + kTile, job.dst->width);
      RenderQuad quad;
      if (mapTile(job.motion, left, top, right, bottom, &quad)) {
        drawPlanes(job, quad, top, bottom, job.param);
      } else if (job.param.fillDropped != 0) {
        // All of it comes from a place outside the source.
        constexpr int64_t kOne = kRenderOne;
        constexpr RenderPoint kNowhere = {-2 * kRenderOne, -2 * kRenderOne};
        quad = {{{left * kOne, top * kOne, kNowhere},
                 {right * kOne, top * kOne, kNowhere},
                 {right * kOne, bottom * kOne, kNowhere},
                 {left * kOne, bottom * kOne, kNowhere}}};
        drawPlanes(job, quad, top, bottom, {1, 0, 0, 0});
      }
    }
  }
}

struct RenderSlice {
  const RenderJob* job;
  int32_t begin;  // even
  int32_t end;
};

Status renderSlice(void* block) {
  const auto* slice = static_cast<const RenderSlice*>(block);
  const RenderJob& job = *slice->job;
  if (job.motion == nullptr) {
    drawPlanes(job, job.quad, slice->begin, slice->end, job.param);
    return ZELVAN_OK;
  }
  // The kernel has no use for the row: callers count on the demand and on its failure.
  const ScopedBlock<uint16_t> row(job.env, static_cast<size_t>(job.src->width) + 8);
  if (!row) return ZELVAN_ERROR_NOMEM;
  drawTiles(job, slice->begin, slice->end);
  return ZELVAN_OK;
}

// The first failing status of a fork, else that of the join.
Status forkSlices(ParallelExecutor* executor, const RenderJob& job) {
  const int64_t height = job.dst->height;
  const auto bound = [&](int32_t i) {
    return i == kSlices ? job.dst->height : static_cast<int32_t>((height * i / kSlices) & ~int64_t{31});
  };
  Status forked = ZELVAN_OK;
  for (int32_t i = 0; i < kSlices; ++i) {
    const RenderSlice slice = {&job, bound(i), bound(i + 1)};
    const Status status = ParallelExecutor_fork(executor, renderSlice, &slice, sizeof(slice));
    if (forked == ZELVAN_OK) forked = status;
  }
  const Status joined = ParallelExecutor_join(executor);
  return forked != ZELVAN_OK ? forked : joined;
}

// Completes the job with the planes of the pictures and runs it. *status receives what became of the slices.
Status render(ImageProc* proc, Image* dst, const Image* src, RenderJob* job, Status* status) {
  if (dst->width < 1 || dst->height < 1 || src->width < 1 || src->height < 1) return ZELVAN_ERROR_PARAM;
  job->draw = drawQuadOf(dst->format, job->motion == nullptr);
  if (dst->format != src->format || job->draw == nullptr) return ZELVAN_ERROR_GENERAL;
  job->env = proc->env;
  job->dst = dst;
  job->src = src;
  job->dstChroma = nullptr;
  if (imagePlaneCount(dst->format) == 1) {
    *status = forkSlices(proc->executor, *job);
    return ZELVAN_OK;
  }
  ScopedImage dstChroma(proc->env);
  ScopedImage srcChroma(proc->env);
  if (const Status s = Image_initSubImageUV(&dstChroma, dst, 0, 0, dst->width, dst->height); s != ZELVAN_OK) return s;
  if (const Status s = Image_initSubImageUV(&srcChroma, src, 0, 0, src->width, src->height); s != ZELVAN_OK) return s;
  job->dstChroma = &dstChroma;
  job->srcChroma = &srcChroma;
  *status = forkSlices(proc->executor, *job);
  return ZELVAN_OK;
}

}  // namespace

Status ImageProc_render(ImageProc* proc, Image* dst, const Image* src, const Mvec8Real* motion) {
  if (proc == nullptr || dst == nullptr || src == nullptr || motion == nullptr) return ZELVAN_ERROR_PARAM;
  RenderJob job = {};
  job.motion = motion;
  Status ignored;
  return render(proc, dst, src, &job, &ignored);
}

Status ImageProc_render_wParam(ImageProc* proc, const ImageProcRenderParam* param, Image* dst, const Image* src,
                               const Mvec8Real* motion) {
  if (proc == nullptr || param == nullptr || dst == nullptr || src == nullptr || motion == nullptr) {
    return ZELVAN_ERROR_PARAM;
  }
  RenderJob job = {};
  job.motion = motion;
  job.param = *param;
  Status slices = ZELVAN_OK;
  const Status status = render(proc, dst, src, &job, &slices);
  return status != ZELVAN_OK ? status : slices;
}

Status ImageProc_render_with4Points(ImageProc* proc, Image* dst, const int32_t* dstX, const int32_t* dstY,
                                    const Image* src, const int32_t* srcX, const int32_t* srcY) {
  if (proc == nullptr || dst == nullptr || dstX == nullptr || dstY == nullptr || src == nullptr || srcX == nullptr ||
      srcY == nullptr) {
    return ZELVAN_ERROR_PARAM;
  }
  RenderJob job = {};
  bool far = false;
  for (int32_t i = 0; i < 4; ++i) {
    job.quad.corners[i] = {dstX[i], dstY[i], {srcX[i], srcY[i]}};
    for (const int32_t c : {dstX[i], dstY[i], srcX[i], srcY[i]}) far = far || c < -(1 << 30) || c > 1 << 30;
  }
  if (far) job.quad = {};  // which has no rows
  if (!far && !isConvex(job.quad)) return ZELVAN_ERROR_PARAM;
  Status slices = ZELVAN_OK;
  const Status status = render(proc, dst, src, &job, &slices);
  return status != ZELVAN_OK ? status : slices;
}
