#include "parallel/bands.h"
#include "parallel/pel_kernel.h"
#include "pixels/image_func.h"
#include "pixels/warp_rows.h"

namespace {

struct RenderJob {
  Image* dst;
  const Image* src;
  const Image* srcChroma;  // null for luma alone
  const Mvec8Real* motion;
  const WarpRows* rows;
};

// The last column and row are sampled without interpolation; further out is the fill value.
template <int32_t Channels>
WarpTaps checkedTaps(WarpTapBuffer* buffer, const WarpPlane& plane, const WarpLine& line, int32_t count,
                     const uint8_t* fill) {
  return collectTaps<Channels>(buffer, plane, line, count, [&](int32_t, int32_t ix, int32_t iy, uint8_t* const* to) {
    setCorners<Channels>(to, plane.contains(ix, iy) ? plane.at<Channels>(ix, iy) : fill);
  });
}

// The test of a span is made on luma. Its chroma can still reach the last row, where the neighbours below are out of
// the plane, or miss the plane by the rounding of its step: each neighbour is clamped by itself.
WarpTaps clampedChromaTaps(WarpTapBuffer* buffer, const WarpPlane& plane, const WarpLine& line, int32_t count) {
  return collectTaps<2>(buffer, plane, line, count, [&](int32_t, int32_t ix, int32_t iy, uint8_t* const* to) {
    for (int32_t i = 0; i < 4; ++i) {
      const uint8_t* from =
          plane.at<2>(clampInt(ix + (i & 1), 0, plane.width - 1), clampInt(iy + (i >> 1), 0, plane.height - 1));
      to[i][0] = from[0];
      to[i][1] = from[1];
    }
  });
}

void renderPair(const RenderJob& job, int32_t y) {
  constexpr uint8_t kBlack = 0;
  constexpr uint8_t kGrey[2] = {0x80, 0x80};
  const WarpPlane luma(job.src);
  WarpTapBuffer buffer;
  WarpSpans spans(job.motion, y, job.dst->width, job.src);
  for (WarpSpan span; spans.next(&span);) {
    const WarpRow lumaRow = span.inside ? job.rows->coarseLuma : job.rows->fineLuma;
    for (int32_t r = 0; r < 2; ++r) {
      const WarpLine& line = span.rows[r];
      lumaRow(imageRow(job.dst, y + r) + span.begin, checkedTaps<1>(&buffer, luma, line, span.count, &kBlack), line,
              span.count);
    }
    const int32_t pairs = span.count / 2;
    if (job.srcChroma == nullptr || pairs == 0) continue;
    const WarpPlane chroma(job.srcChroma);
    uint8_t* dst = imageChromaRow(job.dst, y >> 1) + span.begin;
    if (span.inside) {
      job.rows->coarseChroma(dst, clampedChromaTaps(&buffer, chroma, span.chroma, pairs), span.chroma, 2 * pairs);
    } else {
      job.rows->fineChroma(dst, checkedTaps<2>(&buffer, chroma, span.chroma, pairs, kGrey), span.chroma, 2 * pairs);
    }
  }
}

Status renderIndexed(RenderJob* job, int32_t index, const PelContext*) {
  renderPair(*job, 2 * index);
  return ZELVAN_OK;
}

constexpr PelKernel kRenderPair = pelIndexed<RenderJob, renderIndexed>();

struct RenderBand {
  const RenderJob* job;
  int32_t begin;  // even
  int32_t end;
};

Status renderBand(RenderBand* band) {
  for (int32_t y = band->begin; y + 1 < band->end; y += 2) renderPair(*band->job, y);
  return ZELVAN_OK;
}

// srcChroma: an empty record that becomes the view of the chroma.
Status makeJob(RenderJob* job, Image* srcChroma, Image* dst, const Image* src, const Mvec8Real* motion) {
  *job = {dst, src, nullptr, motion, warpRowsOf(cpuLevel())};
  if (dst->format == IMAGE_UINT8) return ZELVAN_OK;
  job->srcChroma = srcChroma;
  return Image_initSubImageUV(srcChroma, src, 0, 0, src->width, src->height);
}

}  // namespace

Status Tessal4ImageFunc_render(Pel* pel, Env* env, Image* dst, const Image* src, const Mvec8Real* motion) {
  ScopedImage srcChroma(env);
  RenderJob job;
  if (const Status s = makeJob(&job, &srcChroma, dst, src, motion); s != ZELVAN_OK) return s;
  return executeToEnd(pel, &kRenderPair, &job, dst->height >> 1);
}

Status Tessal4ImageFunc_accumWithLuminanceCorrection(ParallelExecutor* executor, Env* env, Image* dst, const Image* src,
                                                     uint32_t, uint32_t, const Mvec8Real* motion) {
  const int32_t n = ParallelExecutor_getNumberOfBands(executor);
  // Row scratch and its records, which the warp has no use for: callers count on the demand and on its failure.
  const ScopedBlock<uint8_t> rows(env, size_t{2} * static_cast<size_t>(n) * static_cast<size_t>(dst->width));
  const ScopedBlock<Image> records(env, static_cast<size_t>(n));
  if (!rows || !records) return ZELVAN_ERROR_NOMEM;
  ScopedImage srcChroma(env);
  RenderJob job;
  if (const Status s = makeJob(&job, &srcChroma, dst, src, motion); s != ZELVAN_OK) return s;
  const int64_t height = dst->height;
  const auto bound = [&](int32_t i) {
    const auto row = static_cast<int32_t>((height * i / n + 255) & ~int64_t{255});
    return row < dst->height ? row : dst->height;
  };
  return forkBands<RenderBand, renderBand>(executor, n, [&](int32_t i) {
    return RenderBand{&job, bound(i), bound(i + 1)};
  });
}
