#include "filters/denoiser2.h"

#include <algorithm>
#include <cstring>

#include "filters/denoiser2_pattern.h"
#include "filters/denoiser_kernels.h"
#include "filters/sharpen.h"
#include "imageproc/resize.h"
#include "parallel/pel_rows.h"

namespace {

using denoiser2::Offset;
using denoiser2::Scoreboard;

constexpr int32_t kBlock = 128;  // pixels of a row in work at a time
constexpr int32_t kMostLumaTaps = 64;
constexpr int32_t kMostRingTaps = 16;
constexpr int32_t kFullBlend = 0x400;
constexpr double kLumaRadii[5] = {3.0, 5.0, 8.0, 13.0, 20.0};  // by kind
constexpr double kChromaRadii[3] = {9.0, 5.0, 2.0};            // outer, middle and inner ring, in pairs

// count pixels of a row from (x, y) on, coordinates clamped; buffer serves where they leave the row.
template <int32_t kBytes>
const uint8_t* samples(const Image* image, int32_t x, int32_t y, int32_t count, uint8_t* buffer) {
  const uint8_t* row = imageRow(image, clampInt(y, 0, image->height - 1));
  if (x >= 0 && x + count <= image->width) return row + x * kBytes;
  for (int32_t i = 0; i < count; ++i) {
    std::memcpy(buffer + i * kBytes, row + clampInt(x + i, 0, image->width - 1) * kBytes, kBytes);
  }
  return buffer;
}

// -------------------------------------------------------------------------------------------------------------- luma

struct LumaPass {
  Image* dst;
  const Image* src;
  const Image* map;
  int32_t strength;
  int32_t mix;
  int32_t centreWeight;
  int32_t tapCount;
  Offset taps[kMostLumaTaps];
};

struct LumaBlock {
  int32_t reference[kBlock];
  int32_t threshold[kBlock];
  int32_t sum[kBlock];
  int32_t count[kBlock];
};

// rows: the pixels from one left of the block on, of the row above, the block's and the one below.
void openLuma(LumaBlock* __restrict block, const LumaPass& pass, const uint8_t* const* rows, const uint8_t* map,
              int32_t x0, int32_t n) {
  const uint8_t* up = rows[0];
  const uint8_t* row = rows[1];
  const uint8_t* down = rows[2];
  for (int32_t i = 0; i < n; ++i) {
    const int32_t c = row[i + 1];
    const int32_t axis = up[i + 1] + down[i + 1] + row[i] + row[i + 2];
    const int32_t diagonal = up[i] + up[i + 2] + down[i] + down[i + 2];
    const int32_t smooth = (4 * c + 2 * axis + diagonal + 8) >> 4;
    const int32_t m = map[(x0 + i) >> 3];
    const int32_t a = clampInt(pass.mix + m - 32, 0, 128);
    block->reference[i] = clampInt(((128 - a) * c + a * smooth + 64) >> 7, 0, 255);
    block->threshold[i] = (pass.strength * m) >> 3;
    block->sum[i] = pass.centreWeight * c;
    block->count[i] = pass.centreWeight;
  }
}

void addLumaTap(LumaBlock* __restrict block, const uint8_t* __restrict taps, int32_t n) {
  for (int32_t i = 0; i < n; ++i) {
    const int32_t t = taps[i];
    const int32_t near = std::abs(block->reference[i] - t) < block->threshold[i];
    block->sum[i] += t & -near;
    block->count[i] += near;
  }
}

void lumaRows(const LumaPass& pass, int32_t begin, int32_t end) {
  const Image* src = pass.src;
  for (int32_t y = begin; y < end; ++y) {
    uint8_t* dst = imageRow(pass.dst, y);
    const uint8_t* map = imageRow(pass.map, y >> 3);
    for (int32_t x = 0; x < src->width; x += kBlock) {
      const int32_t n = std::min(kBlock, src->width - x);
      uint8_t near[3][kBlock + 2];
      const uint8_t* rows[3];
      for (int32_t i = 0; i < 3; ++i) rows[i] = samples<1>(src, x - 1, y - 1 + i, n + 2, near[i]);
      LumaBlock block;
      openLuma(&block, pass, rows, map, x, n);
      for (const uint8_t* cross : {rows[0] + 1, rows[1], rows[1] + 2, rows[2] + 1}) addLumaTap(&block, cross, n);
      for (int32_t t = 0; t < pass.tapCount; ++t) {
        uint8_t far[kBlock];
        addLumaTap(&block, samples<1>(src, x + pass.taps[t].dx, y + pass.taps[t].dy, n, far), n);
      }
      for (int32_t i = 0; i < n; ++i) dst[x + i] = denoiser::meanOf(block.sum[i], block.count[i]);
    }
  }
}

struct SpikePass {
  Image* dst;
  const Image* src;
  const Image* map;
  uint32_t strength;
};

void spikeRows(const SpikePass& pass, int32_t begin, int32_t end) {
  const denoiser::Plane<true> luma(pass.src);
  for (int32_t y = begin; y < end; ++y) {
    uint8_t* dst = imageRow(pass.dst, y);
    const uint8_t* map = imageRow(pass.map, y >> 3);
    for (int32_t x = 0; x < pass.src->width; ++x) {
      dst[x] = denoiser::withoutSpike(luma(x, y), denoiser::Ring(luma, x, y, 2), denoiser::Ring(luma, x, y, 3),
                                      denoiser::neighbourSum(luma, x, y), pass.strength, map[x >> 3]);
    }
  }
}

// ------------------------------------------------------------------------------------------------------------ chroma

struct ChromaPass {
  Image* dst;
  const Image* src;
  const Image* guide;  // luma at the size of the chroma
  const Image* map;
  int32_t strength;
  int32_t tapCount;
  Offset taps[3 * kMostRingTaps];
};

struct ChromaBlock {
  int32_t lumaLimit[kBlock];
  int32_t limit[kBlock];
  int32_t sum0[kBlock];
  int32_t sum1[kBlock];
  int32_t count[kBlock];
};

void openChroma(ChromaBlock* __restrict block, const ChromaPass& pass, const uint8_t* const* rows, const uint8_t* map,
                int32_t x0, int32_t n) {
  const uint8_t* up = rows[0];
  const uint8_t* row = rows[1];
  const uint8_t* down = rows[2];
  for (int32_t i = 0; i < n; ++i) {
    const int32_t limit = map[(x0 + i) >> 2] + 10;
    block->lumaLimit[i] = limit >> 1;
    block->limit[i] = (pass.strength * limit + 32) >> 6;
    const int32_t at = 2 * (i + 1);
    block->sum0[i] = row[at] + row[at - 2] + row[at + 2] + up[at] + down[at];
    block->sum1[i] = row[at + 1] + row[at - 1] + row[at + 3] + up[at + 1] + down[at + 1];
    block->count[i] = 5;
  }
}

void addChromaTap(ChromaBlock* __restrict block, const uint8_t* __restrict centres, const uint8_t* __restrict luma,
                  const uint8_t* __restrict pairs, const uint8_t* __restrict guides, int32_t n) {
  for (int32_t i = 0; i < n; ++i) {
    const int32_t t0 = pairs[2 * i];
    const int32_t t1 = pairs[2 * i + 1];
    const int32_t near = (std::abs(luma[i] - guides[i]) < block->lumaLimit[i]) &
                         (std::abs(centres[2 * i] - t0) < block->limit[i]) &
                         (std::abs(centres[2 * i + 1] - t1) < block->limit[i]);
    block->sum0[i] += t0 & -near;
    block->sum1[i] += t1 & -near;
    block->count[i] += near;
  }
}

void chromaRows(const ChromaPass& pass, int32_t begin, int32_t end) {
  const Image* src = pass.src;
  for (int32_t y = begin; y < end; ++y) {
    uint8_t* dst = imageRow(pass.dst, y);
    const uint8_t* map = imageRow(pass.map, y >> 2);
    const uint8_t* guide = imageRow(pass.guide, y);
    for (int32_t x = 0; x < src->width; x += kBlock) {
      const int32_t n = std::min(kBlock, src->width - x);
      uint8_t near[3][2 * (kBlock + 2)];
      const uint8_t* rows[3];
      for (int32_t i = 0; i < 3; ++i) rows[i] = samples<2>(src, x - 1, y - 1 + i, n + 2, near[i]);
      ChromaBlock block;
      openChroma(&block, pass, rows, map, x, n);
      for (int32_t t = 0; t < pass.tapCount; ++t) {
        uint8_t farPairs[2 * kBlock];
        uint8_t farGuides[kBlock];
        const int32_t tx = x + pass.taps[t].dx;
        const int32_t ty = y + pass.taps[t].dy;
        addChromaTap(&block, rows[1] + 2, guide + x, samples<2>(src, tx, ty, n, farPairs),
                     samples<1>(pass.guide, tx, ty, n, farGuides), n);
      }
      for (int32_t i = 0; i < n; ++i) {
        dst[2 * (x + i)] = denoiser::meanOf(block.sum0[i], block.count[i]);
        dst[2 * (x + i) + 1] = denoiser::meanOf(block.sum1[i], block.count[i]);
      }
    }
  }
}

// The result against the input.
struct BlendJob {
  Image* dst;
  const Image* input;
  const Image* result;
  int32_t weight;
};

void blendRows(const BlendJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    uint8_t* dst = imageRow(job.dst, y);
    const uint8_t* input = imageRow(job.input, y);
    const uint8_t* result = imageRow(job.result, y);
    for (int32_t x = 0; x < 2 * job.dst->width; ++x) {
      const int32_t change = wrapAdd(wrapMul(result[x] - input[x], job.weight), 512) >> 10;
      dst[x] = clampByte(wrapAdd(input[x], change));
    }
  }
}

struct CopyJob {
  Image* dst;
  const Image* src;
  size_t rowBytes;
};

void copyRows(const CopyJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) std::memcpy(imageRow(job.dst, y), imageRow(job.src, y), job.rowBytes);
}

// -------------------------------------------------------------------------------------------------- chains of passes

// Where the stages of one plane read and write: from the input to the destination by way of one scratch image, so that
// the last stage lands in the destination where that can be.
class Relay {
 public:
  // home: the destination, or a second scratch image where the destination must keep the input.
  Relay(const Image* input, Image* home, Image* scratch, int32_t stages)
      : current_(input), home_(home), scratch_(scratch), left_(stages) {}
  const Image* current() const { return current_; }
  // The image of the next stage, in *out; it becomes the current one.
  Status next(Image** out) {
    --left_;
    Image* wanted = left_ % 2 == 0 ? home_ : scratch_;
    if (wanted->plane0 == current_->plane0) wanted = wanted == home_ ? scratch_ : home_;
    if (wanted->plane0 == nullptr) {
      const Image* c = current_;
      if (const Status s = Image_init(wanted, c->width, c->height, nullptr, c->format); s != ZELVAN_OK) return s;
    }
    *out = wanted;
    current_ = wanted;
    return ZELVAN_OK;
  }

 private:
  const Image* current_;
  Image* home_;
  Image* scratch_;
  int32_t left_;
};

struct Run {
  const Tessal4Denoiser2* denoiser;
  const Image* map;
  const Tessal4Denoiser2Params* params;
  Scoreboard* board;
};

// *result receives the image that holds the filtered luma: src, dst or scratch.
Status reduceLuma(const Run& run, Image* dst, const Image* src, Image* scratch, const Image** result) {
  const Tessal4Denoiser2Params& params = *run.params;
  Pel* pel = run.denoiser->pel;
  const int32_t passes = clampInt(params.lumaPasses, 0, kDenoiser2Passes);
  Relay relay(src, dst, scratch, passes + (params.spike != 0) + (params.sharpen > 0));
  if (params.spike != 0) {
    SpikePass pass = {nullptr, relay.current(), run.map, static_cast<uint32_t>(params.spike)};
    if (const Status s = relay.next(&pass.dst); s != ZELVAN_OK) return s;
    if (const Status s = executeRows<SpikePass, spikeRows>(pel, pass, src->height); s != ZELVAN_OK) return s;
  }
  run.board->clear();
  for (int32_t i = 0; i < passes; ++i) {
    LumaPass pass = {.dst = nullptr,
                     .src = relay.current(),
                     .map = run.map,
                     .strength = denoiser::byteStrength(params.lumaStrength[i]),
                     .mix = clampInt(params.lumaMix[i], 0, 128),
                     .centreWeight = clampInt(params.lumaCentreWeight[i], 1, 255),
                     .tapCount = clampInt(params.lumaTaps[i], 0, kMostLumaTaps),
                     .taps = {}};
    run.board->choose(pass.taps, pass.tapCount, kLumaRadii[clampInt(params.lumaKind[i], 0, 4)], i, passes);
    if (const Status s = relay.next(&pass.dst); s != ZELVAN_OK) return s;
    if (const Status s = executeRows<LumaPass, lumaRows>(pel, pass, src->height); s != ZELVAN_OK) return s;
  }
  *result = relay.current();
  return ZELVAN_OK;
}

Status copyPlane(Pel* pel, Image* dst, const Image* src, int32_t pixelBytes) {
  if (src->plane0 == dst->plane0) return ZELVAN_OK;
  const size_t rowBytes = static_cast<size_t>(dst->width) * static_cast<size_t>(pixelBytes);
  return executeRows<CopyJob, copyRows>(pel, {dst, src, rowBytes}, dst->height);
}

// The filtered luma into dst, sharpened if asked for.
Status finishLuma(const Run& run, Image* dst, const Image* filtered) {
  const Tessal4Denoiser2Params& params = *run.params;
  if (params.sharpen <= 0) return copyPlane(run.denoiser->pel, dst, filtered, 1);
  return Tessal4ImageFunc_adaSharp5x5_uint8(run.denoiser->executor, run.denoiser->env, dst, filtered,
                                            params.sharpenSigma2, params.sharpenSigma1, params.sharpen,
                                            params.sharpenCoring);
}

Status reduceChroma(const Run& run, Image* dst, const Image* src, const Image* luma) {
  const Tessal4Denoiser2Params& params = *run.params;
  Env* env = run.denoiser->env;
  Pel* pel = run.denoiser->pel;
  const int32_t passes = clampInt(params.chromaPasses, 0, kDenoiser2Passes);
  ScopedImage guide(env);
  if (passes > 0) {
    ImageProc2 halver = {env, pel};
    if (const Status s = Image_init(&guide, src->width, src->height, nullptr, IMAGE_UINT8); s != ZELVAN_OK) return s;
    if (const Status s = ImageProc2_resizeImage(&halver, &guide, luma); s != ZELVAN_OK) return s;
  }
  ScopedImage scratch(env);
  ScopedImage second(env);
  const bool keepsInput = params.blend != kFullBlend && src->plane0 == dst->plane0;
  Relay relay(src, keepsInput ? &second : dst, &scratch, passes);
  run.board->clear();
  for (int32_t i = 0; i < passes; ++i) {
    ChromaPass pass = {.dst = nullptr,
                       .src = relay.current(),
                       .guide = &guide,
                       .map = run.map,
                       .strength = denoiser::byteStrength(params.chromaStrength[i]),
                       .tapCount = 0,
                       .taps = {}};
    const int32_t rings[3] = {params.chromaOuterTaps[i], params.chromaMiddleTaps[i], params.chromaInnerTaps[i]};
    for (int32_t ring = 0; ring < 3; ++ring) {
      const int32_t count = clampInt(rings[ring], 0, kMostRingTaps);
      run.board->choose(pass.taps + pass.tapCount, count, kChromaRadii[ring], i, passes);
      pass.tapCount += count;
    }
    if (const Status s = relay.next(&pass.dst); s != ZELVAN_OK) return s;
    if (const Status s = executeRows<ChromaPass, chromaRows>(pel, pass, src->height); s != ZELVAN_OK) return s;
  }
  if (params.blend != kFullBlend) {
    return executeRows<BlendJob, blendRows>(pel, {dst, src, relay.current(), params.blend}, dst->height);
  }
  return copyPlane(pel, dst, relay.current(), 2);
}

}  // namespace

Status construct_Tessal4Denoiser2(Tessal4Denoiser2* denoiser, Env* env) {
  if (denoiser == nullptr) return ZELVAN_ERROR_PARAM;
  *denoiser = {env, nullptr, nullptr};
  return ZELVAN_OK;
}

Status Tessal4Denoiser2_setPel(Tessal4Denoiser2* denoiser, ParallelExecutor* executor, Pel* pel) {
  if (denoiser == nullptr) return ZELVAN_ERROR_PARAM;
  denoiser->executor = executor;
  denoiser->pel = pel;
  return ZELVAN_OK;
}

Status Tessal4Denoiser2_reduceNoise(Tessal4Denoiser2* denoiser, Image* dst, const Image* src, const Image* map,
                                    const Tessal4Denoiser2Params* params) {
  if (denoiser == nullptr || dst == nullptr || src == nullptr || map == nullptr || params == nullptr) {
    return ZELVAN_ERROR_PARAM;
  }
  const int32_t width = dst->width;
  const int32_t height = dst->height;
  if (!isSemiplanar420(dst->format) || src->format != dst->format || src->width < width || src->height < height) {
    return ZELVAN_ERROR_PARAM;
  }
  if (map->format != IMAGE_UINT8 || map->width < (width >> 3) + 1 || map->height < (height >> 3) + 1) {
    return ZELVAN_ERROR_PARAM;
  }
  Env* env = denoiser->env;
  const ScopedBlock<Scoreboard> board(env, 1);
  if (!board) return ZELVAN_ERROR_NOMEM;
  const Run run = {denoiser, map, params, board.data()};
  ScopedImage from(env);
  ScopedImage to(env);
  if (const Status s = Image_initSubImageY(&from, src, 0, 0, width, height); s != ZELVAN_OK) return s;
  if (const Status s = Image_initSubImageY(&to, dst, 0, 0, width, height); s != ZELVAN_OK) return s;
  ScopedImage scratch(env);
  const Image* filtered = &from;
  if (const Status s = reduceLuma(run, &to, &from, &scratch, &filtered); s != ZELVAN_OK) return s;
  ScopedImage fromPairs(env);
  ScopedImage toPairs(env);
  if (const Status s = Image_initSubImageUV(&fromPairs, src, 0, 0, width, height); s != ZELVAN_OK) return s;
  if (const Status s = Image_initSubImageUV(&toPairs, dst, 0, 0, width, height); s != ZELVAN_OK) return s;
  if (fromPairs.width > 0 && fromPairs.height > 0) {
    if (const Status s = reduceChroma(run, &toPairs, &fromPairs, filtered); s != ZELVAN_OK) return s;
  }
  return finishLuma(run, &to, filtered);
}
