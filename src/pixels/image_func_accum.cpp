#include <algorithm>

#include "base/cpu_level.h"
#include "parallel/bands.h"
#include "parallel/pel_kernel.h"
#include "pixels/blend_map.h"
#include "pixels/image_func.h"
#include "pixels/warp_rows.h"

namespace {

// The stretched rows of a map that a worker has at hand, an even and an odd one.
struct StretchedPair {
  const Image* map;
  uint8_t* rows;
  int32_t width;
  int32_t held[2] = {-1, -1};

  const uint8_t* row(int32_t y) {
    uint8_t* out = rows + static_cast<ptrdiff_t>(y & 1) * width;
    if (held[y & 1] != y) stretchMapRow(out, imageRow(map, y), map->width, width);
    held[y & 1] = y;
    return out;
  }
};

// As many row pairs as stay in the processor's cache while one frame after the other is blended into them.
constexpr int32_t kChunkPairs = 16;

struct AccumJob {
  Image* acc;
  const AccumFrame* frames;
  int32_t count;
  const WarpPlane* chroma;  // of each frame; null for luma alone
  uint8_t* scratch;         // at least two rows of acc for each worker
  const WarpRows* rows;
};

// Outside the source an item takes the accumulator's own bytes, which leaves them as they are.
template <int32_t Channels>
WarpTaps accumTaps(WarpTapBuffer* buffer, const WarpPlane& plane, const WarpLine& line, int32_t count,
                   const uint8_t* acc) {
  return collectTaps<Channels>(buffer, plane, line, count, [&](int32_t k, int32_t ix, int32_t iy, uint8_t* const* to) {
    setCorners<Channels>(to, plane.contains(ix, iy) ? plane.at<Channels>(ix, iy) : acc + k * Channels);
  });
}

void accumPair(const AccumJob& job, int32_t i, StretchedPair* map, int32_t pair) {
  const AccumFrame& frame = job.frames[i];
  const WarpPlane luma(frame.image);
  const MapRows rows(pair, frame.map->height, job.acc->height);
  const uint8_t* rowA = map->row(rows.a);
  const uint8_t* rowB = map->row(rows.b);
  uint8_t weights[kWarpSpan];
  uint8_t chromaWeights[kWarpSpan];
  WarpTapBuffer buffer;
  WarpSpans spans(frame.motion, 2 * pair, job.acc->width, frame.image);
  for (WarpSpan span; spans.next(&span);) {
    mapWeights(weights, rowA + span.begin, rowB + span.begin, rows.weight, span.count);
    for (int32_t r = 0; r < 2; ++r) {
      uint8_t* acc = imageRow(job.acc, 2 * pair + r) + span.begin;
      const WarpLine& line = span.rows[r];
      job.rows->blendLuma(acc, accumTaps<1>(&buffer, luma, line, span.count, acc), line, weights, span.count);
    }
    const int32_t pairs = span.count / 2;
    if (job.chroma == nullptr || pairs == 0) continue;
    pairWeights(chromaWeights, weights, 2 * pairs);
    uint8_t* acc = imageChromaRow(job.acc, pair) + span.begin;
    job.rows->blendChroma(acc, accumTaps<2>(&buffer, job.chroma[i], span.chroma, pairs, acc), span.chroma,
                          chromaWeights, 2 * pairs);
  }
}

Status accumChunk(AccumJob* job, int32_t index, const PelContext* context) {
  const int32_t width = job->acc->width;
  uint8_t* scratch = job->scratch + static_cast<ptrdiff_t>(2 * context->workerIndex) * width;
  const int32_t end = std::min((index + 1) * kChunkPairs, job->acc->height >> 1);
  for (int32_t i = 0; i < job->count; ++i) {
    StretchedPair map = {job->frames[i].map, scratch, width};
    for (int32_t pair = index * kChunkPairs; pair < end; ++pair) accumPair(*job, i, &map, pair);
  }
  return ZELVAN_OK;
}

constexpr PelKernel kAccumChunk = pelIndexed<AccumJob, accumChunk>();

Status accumFrames(Pel* pel, Env* env, Image* acc, const AccumFrame* frames, int32_t count, const WarpRows* rows) {
  WarpPlane chroma[kAccumFrames];
  const bool hasChroma = acc->format != IMAGE_UINT8;
  for (int32_t i = 0; hasChroma && i < count; ++i) {
    const Image* image = frames[i].image;
    ScopedImage view(env);
    const Status s = Image_initSubImageUV(&view, image, 0, 0, image->width, image->height);
    if (s != ZELVAN_OK) return s;
    chroma[i] = WarpPlane(&view);
  }
  int32_t scratchRows = 2 * Pel_getNumberOfWorkers(pel);
  for (int32_t i = 0; i < count; ++i) scratchRows = std::max(scratchRows, frames[i].map->height);
  const ScopedBlock<uint8_t> scratch(env, static_cast<size_t>(scratchRows) * static_cast<size_t>(acc->width));
  if (!scratch) return ZELVAN_ERROR_NOMEM;
  AccumJob job = {acc, frames, count, hasChroma ? chroma : nullptr, scratch.data(), rows};
  const int32_t pairs = acc->height >> 1;
  return executeToEnd(pel, &kAccumChunk, &job, (pairs + kChunkPairs - 1) / kChunkPairs);
}

struct UpdateBand {
  Image* dst;
  const Image* frame;
  const Image* const* maps;
  int32_t mapCount;
  uint8_t* scratch;  // two rows of dst for each map
  int32_t begin;     // even
  int32_t end;       // even
};

ALWAYS_INLINE void blendBytesBody(uint8_t* __restrict dst, const uint8_t* __restrict frame,
                                  const uint8_t* __restrict weights, int32_t count) {
  for (int32_t x = 0; x < count; ++x) {
    dst[x] = static_cast<uint8_t>(static_cast<uint16_t>(128 * frame[x] + weights[x] * (dst[x] - frame[x]) + 64) >> 7);
  }
}
constexpr CpuRow<blendBytesBody> blendBytes;

Status updateBand(UpdateBand* band) {
  Image* dst = band->dst;
  const int32_t width = dst->width;
  const bool chroma = dst->format != IMAGE_UINT8;
  for (int32_t m = 0; m < band->mapCount; ++m) {
    StretchedPair map = {band->maps[m], band->scratch + static_cast<ptrdiff_t>(2 * m) * width, width};
    for (int32_t y = band->begin; y < band->end; y += 2) {
      const MapRows rows(y / 2, map.map->height, dst->height);
      const uint8_t* rowA = map.row(rows.a);
      const uint8_t* rowB = map.row(rows.b);
      for (int32_t x = 0; x < width; x += kWarpSpan) {
        const int32_t count = width - x < kWarpSpan ? width - x : kWarpSpan;
        uint8_t weights[kWarpSpan];
        mapWeights(weights, rowA + x, rowB + x, rows.weight, count);
        for (int32_t r = 0; r < 2; ++r) {
          blendBytes(imageRow(dst, y + r) + x, imageRow(band->frame, y + r) + x, weights, count);
        }
        if (!chroma) continue;
        uint8_t chromaWeights[kWarpSpan];
        pairWeights(chromaWeights, weights, count & ~1);
        blendBytes(imageChromaRow(dst, y / 2) + x, imageChromaRow(band->frame, y / 2) + x, chromaWeights, count & ~1);
      }
    }
  }
  return ZELVAN_OK;
}

}  // namespace

Status accumFrames(Pel* pel, Env* env, Image* acc, const AccumFrame* frames, int32_t count) {
  return accumFrames(pel, env, acc, frames, count, warpRowsOf(cpuLevel()));
}

Status Tessal4ImageFunc_renderAccum(Pel* pel, Env* env, Image* acc, const Image* src, const Mvec8Real* motion,
                                    const Image* map) {
  const AccumFrame frame = {src, motion, map};
  return accumFrames(pel, env, acc, &frame, 1, warpRowsOf(cpuLevel()));
}

Status Tessal4ImageFunc_renderAccum2(Pel* pel, Env* env, Image* acc, const Image* src, const Mvec8Real* motion,
                                     const Image* map) {
  const AccumFrame frame = {src, motion, map};
  return accumFrames(pel, env, acc, &frame, 1, warpRowsOf(CPU_PLAIN));
}

Status Tessal4ImageFunc_updateImage(ParallelExecutor* executor, Env* env, Image* dst, const Image* frame,
                                    const Image* map, const Image* secondMap) {
  const Image* const maps[2] = {map, secondMap};
  const int32_t mapCount = secondMap != nullptr ? 2 : 1;
  const int32_t n = ParallelExecutor_getNumberOfBands(executor);
  const size_t bandScratch = size_t{2} * static_cast<size_t>(mapCount) * static_cast<size_t>(dst->width);
  const ScopedBlock<uint8_t> scratch(env, bandScratch * static_cast<size_t>(n));
  if (!scratch) return ZELVAN_ERROR_NOMEM;
  const int64_t height = dst->height;
  return forkBands<UpdateBand, updateBand>(executor, n, [&](int32_t i) {
    return UpdateBand{dst,
                      frame,
                      maps,
                      mapCount,
                      scratch.data() + bandScratch * static_cast<size_t>(i),
                      static_cast<int32_t>(height * i / n) & ~1,
                      static_cast<int32_t>(height * (i + 1) / n) & ~1};
  });
}
