#include "fine/fusion.h"

#include <algorithm>
#include <cstring>

#include "base/integer.h"
#include "base/scoped.h"
#include "fine/fusion_rows.h"
#include "parallel/pel_kernel.h"

namespace fine {
namespace {

constexpr int32_t kHalo = 4;  // rows of a block beyond a band

// Scratch of one worker.
struct Worker {
  int16_t* band;     // merged rows, padded: (kBandRows + 2 kHalo) x stride; chroma keeps its two planes in it
  int16_t* result;   // rows of blocks are added up here, as many
  int16_t* base;     // a row of the base
  int16_t* sample;   // of a frame
  int16_t* weights;  // Q15
  uint16_t* line;    // a row of shares, stretched down
  int16_t* sigma;    // of a row of blocks
};

struct Layout {
  int32_t stride;
  size_t row;  // samples of a row of pairs with slack
  size_t perWorker;
};

Layout layoutOf(int32_t width) {
  Layout layout;
  layout.stride = dctStride(width);
  layout.row = static_cast<size_t>(layout.stride) + kDctSlack;
  const size_t band = static_cast<size_t>(kBandRows + 2 * kHalo) * static_cast<size_t>(layout.stride + 32);
  layout.perWorker = 2 * band + 5 * layout.row;
  return layout;
}

Worker workerAt(int16_t* scratch, const Layout& layout, int32_t index) {
  const size_t band = static_cast<size_t>(kBandRows + 2 * kHalo) * static_cast<size_t>(layout.stride + 32);
  int16_t* at = scratch + layout.perWorker * static_cast<size_t>(index);
  const auto take = [&](size_t n) {
    int16_t* p = at;
    at += n;
    return p;
  };
  Worker w;
  w.band = take(band);
  w.result = take(band);
  w.base = take(layout.row);
  w.sample = take(layout.row);
  w.weights = take(layout.row);
  w.line = reinterpret_cast<uint16_t*>(take(layout.row));
  w.sigma = take(layout.row);
  return w;
}

// Shares at a row of the result whose pixels are 1 / factor of the map's: vertical, then horizontal. Returns whether
// any is above 0.
bool shareRow(Worker* w, const Image& shares, int32_t y, int32_t factor, int32_t width, int32_t channels) {
  const int32_t p = 2 * y + 1 - factor;  // position in 1 / (2 factor)
  const int32_t j = p >= 0 ? p / (2 * factor) : -1;
  const int32_t f = p - j * 2 * factor;
  const uint16_t* a = imageRow<uint16_t>(&shares, clampInt(j, 0, shares.height - 1));
  const uint16_t* b = imageRow<uint16_t>(&shares, clampInt(j + 1, 0, shares.height - 1));
  uint16_t* line = w->line + 1;
  if (kBetween(line, a, b, f * 4 / factor, shares.width) == 0) return false;
  line[-1] = line[0];
  line[shares.width] = line[shares.width - 1];
  int16_t* out = w->weights;
  const int32_t whole = std::min(width / factor, shares.width);
  if (factor == 4) {
    kStretchBy4(out, line, whole);
  } else {
    kStretchBy2(out, line, whole);
  }
  const int32_t made = whole * factor * channels;
  for (int32_t x = made; x < width * channels; ++x) out[x] = made > 0 ? out[made - 1] : 0;
  return true;
}

bool drifts(const Drift& d, int32_t channel) {
  return d.gain[channel] != 0 || d.offset[channel] != 0;
}

// Row y of luma, width samples of 1/64.
void mergeLumaRow(int16_t* sum, const Fusion& f, Worker* w, int32_t y, int32_t width) {
  const FusionFrame& base = f.frames[0];
  if (f.baseMoves) {
    sampleRow(w->base, base.luma, base.mesh, y, width);
  } else {
    kCentre(w->base, imageRow(&base.luma, y), width);
  }
  std::memcpy(sum, w->base, static_cast<size_t>(width) * sizeof(int16_t));
  for (int32_t i = 1; i < f.count; ++i) {
    const FusionFrame& frame = f.frames[i];
    if (!shareRow(w, *frame.shares, y, 4, width, 1)) continue;
    sampleRow(w->sample, frame.luma, frame.mesh, y, width);
    const Drift& d = frame.drift;
    if (drifts(d, 0)) {
      const int16_t gain[2] = {d.gain[0], d.gain[0]}, offset[2] = {d.offset[0], d.offset[0]};
      kUndrift(w->sample, gain, offset, width);
    }
    kAddFrame(sum, w->base, w->sample, w->weights, width);
  }
}

// Row y of chroma, width pairs.
void mergeChromaRow(int16_t* sum, const Fusion& f, Worker* w, int32_t y, int32_t width) {
  const FusionFrame& base = f.frames[0];
  if (f.baseMoves) {
    sampleChroma(w->base, base.pairs, base.mesh, y, width);
  } else {
    kCentre(w->base, imageRow(&base.pairs, y), 2 * width);
  }
  std::memcpy(sum, w->base, static_cast<size_t>(width) * 2 * sizeof(int16_t));
  for (int32_t i = 1; i < f.count; ++i) {
    const FusionFrame& frame = f.frames[i];
    if (!shareRow(w, *frame.shares, y, 2, width, 2)) continue;
    sampleChroma(w->sample, frame.pairs, frame.mesh, y, width);
    const Drift& d = frame.drift;
    if (drifts(d, 1) || drifts(d, 2)) kUndrift(w->sample, d.gain + 1, d.offset + 1, 2 * width);
    kAddFrame(sum, w->base, w->sample, w->weights, 2 * width);
  }
}

// Noise of the blocks of the row whose first pixel row is y; cell: side of a map pixel in pixels of the plane.
void sigmaRow(int16_t* sigma, const Fusion& f, const FusionShrink& shrink, const uint8_t* roots, int32_t y,
              int32_t cell, int32_t blocks) {
  // The two map pixels about the middle of a block, down and across; both when a block is two map pixels wide.
  const Image& luma = *f.mapLuma;
  const int32_t lower = clampInt((y + 4) / cell, 0, luma.height - 1);
  const int32_t upper = clampInt((y + 4) / cell - 1, 0, luma.height - 1);
  for (int32_t b = 0; b < blocks; ++b) {
    const int32_t middle = 4 * b / cell;  // block b begins at 4 (b - 1)
    const int32_t right = clampInt(middle, 0, luma.width - 1);
    const int32_t left = clampInt(middle - 1, 0, luma.width - 1);
    uint32_t sum = 0;
    for (const int32_t j : {upper, lower}) {
      const uint8_t* l = imageRow(&luma, j);
      const uint8_t* k = imageRow(f.left, j);
      sum += shrink.byLuma[l[left]] * uint32_t{roots[k[left]]} + shrink.byLuma[l[right]] * uint32_t{roots[k[right]]};
    }
    sigma[b] = static_cast<int16_t>(std::min<uint32_t>(sum / 1020, 32767));
  }
}

// 255 sqrt(k / 255), to nearest.
void fillRoots(uint8_t* roots) {
  int32_t r = 0;
  for (int32_t k = 0; k < 256; ++k) {
    while ((2 * r + 1) * (2 * r + 1) <= 4 * 255 * k) ++r;
    roots[k] = static_cast<uint8_t>(std::min(r, 255));
  }
}

// Halves go up in one row and down in the next: always up would lift a plane of few fraction bits by 1/16 level.
int32_t half8(int32_t y) {
  return 3 + (y & 1);
}

// Repeats the first and the last sample of a padded row.
void padRow(int16_t* row, int32_t width, int32_t stride) {
  std::fill_n(row, kDctPad, row[kDctPad]);
  std::fill_n(row + kDctPad + width, stride - kDctPad - width, row[kDctPad + width - 1]);
}

// rows + 2 kHalo padded rows of the band into result, whose middle rows are then whole.
void shrinkBand(const Fusion& f, const FusionShrink& shrink, const uint8_t* roots, const int16_t* band, int16_t* result,
                Worker* w, int32_t y0, int32_t rows, int32_t width, int32_t cell) {
  const int32_t stride = dctStride(width);
  const int32_t all = rows + 2 * kHalo;
  std::memset(result, 0, static_cast<size_t>(all) * static_cast<size_t>(stride) * sizeof(int16_t));
  for (int32_t j = 0; j + 8 <= all; j += 4) {
    sigmaRow(w->sigma, f, shrink, roots, y0 - kHalo + j, cell, stride / 4 - 1);
    shrinkBlocks(result + static_cast<ptrdiff_t>(j) * stride, band + static_cast<ptrdiff_t>(j) * stride, w->sigma,
                 shrink.table, width);
  }
}

struct FuseJob {
  const Fusion* fusion;
  Image* output;
  int16_t* scratch;
  Layout layout;
  uint8_t roots[256];
  uint8_t saturation[256];
};

void lumaBand(const FuseJob& job, Worker* w, int32_t y0, int32_t y1) {
  const Fusion& f = *job.fusion;
  const int32_t width = job.output->width;
  const int32_t height = job.output->height;
  const FusionShrink& shrink = f.shrink[0];
  if (!shrink.on) {
    for (int32_t y = y0; y < y1; ++y) {
      mergeLumaRow(w->band, f, w, y, width);
      kStoreFrom64(imageRow(job.output, y), w->band, width);
    }
    return;
  }
  const int32_t stride = dctStride(width);
  const int32_t rows = (y1 - y0 + 3) & ~3;
  for (int32_t j = 0; j < rows + 2 * kHalo; ++j) {
    int16_t* row = w->band + static_cast<ptrdiff_t>(j) * stride;
    const int32_t y = y0 - kHalo + j;
    if (y >= height) {  // the last row again
      std::memcpy(row, row - stride, static_cast<size_t>(stride) * sizeof(int16_t));
      continue;
    }
    mergeLumaRow(w->result, f, w, std::max(y, 0), width);
    kNarrow(row + kDctPad, w->result, width, half8(y));
    padRow(row, width, stride);
  }
  shrinkBand(f, shrink, job.roots, w->band, w->result, w, y0, rows, width, 4);
  for (int32_t y = y0; y < y1; ++y) {
    kStoreFrom8(imageRow(job.output, y), w->result + static_cast<ptrdiff_t>(y - y0 + kHalo) * stride + kDctPad, width,
                half8(y));
  }
}

void finishChromaRow(const FuseJob& job, uint8_t* row, int32_t pairs) {
  if (job.fusion->saturation != 1024) {
    for (int32_t x = 0; x < 2 * pairs; ++x) row[x] = job.saturation[row[x]];
  }
  if (job.output->width % 2 != 0) {
    row[2 * pairs] = row[2 * pairs - 2];
    row[2 * pairs + 1] = row[2 * pairs - 1];
  }
}

void chromaBand(const FuseJob& job, Worker* w, int32_t y0, int32_t y1) {
  const Fusion& f = *job.fusion;
  const int32_t width = job.output->width / 2;
  const int32_t height = job.output->height / 2;
  y1 = std::min(y1, height);
  if (!f.shrink[1].on && !f.shrink[2].on) {
    for (int32_t y = y0; y < y1; ++y) {
      mergeChromaRow(w->band, f, w, y, width);
      kStoreFrom64(imageChromaRow(job.output, y), w->band, 2 * width);
      finishChromaRow(job, imageChromaRow(job.output, y), width);
    }
    return;
  }
  const int32_t stride = dctStride(width);
  const int32_t rows = (y1 - y0 + 3) & ~3;
  const ptrdiff_t plane = static_cast<ptrdiff_t>(rows + 2 * kHalo) * stride;
  for (int32_t j = 0; j < rows + 2 * kHalo; ++j) {
    int16_t* row = w->band + static_cast<ptrdiff_t>(j) * stride;
    const int32_t y = y0 - kHalo + j;
    if (y >= height) {
      std::memcpy(row, row - stride, static_cast<size_t>(stride) * sizeof(int16_t));
      std::memcpy(row + plane, row + plane - stride, static_cast<size_t>(stride) * sizeof(int16_t));
      continue;
    }
    mergeChromaRow(w->result, f, w, std::max(y, 0), width);
    kNarrowPairs(row + kDctPad, row + plane + kDctPad, w->result, width, half8(y));
    padRow(row, width, stride);
    padRow(row + plane, width, stride);
  }
  for (int32_t c = 0; c < 2; ++c) {
    shrinkBand(f, f.shrink[1 + c], job.roots, w->band + c * plane, w->result + c * plane, w, y0, rows, width, 2);
  }
  for (int32_t y = y0; y < y1; ++y) {
    const int16_t* from = w->result + static_cast<ptrdiff_t>(y - y0 + kHalo) * stride + kDctPad;
    kStorePairsFrom8(imageChromaRow(job.output, y), from, from + plane, width, half8(y));
    finishChromaRow(job, imageChromaRow(job.output, y), width);
  }
}

Status fuseBand(FuseJob* job, int32_t index, const PelContext* context) {
  const Image& output = *job->output;
  Worker worker = workerAt(job->scratch, job->layout, context->workerIndex);
  const int32_t y0 = index * kBandRows;
  const int32_t y1 = std::min(y0 + kBandRows, output.height);
  lumaBand(*job, &worker, y0, y1);
  chromaBand(*job, &worker, y0 / 2, (y1 + 1) / 2);
  return ZELVAN_OK;
}

}  // namespace

void normaliseShares(Image* const* shares, Image* left, const Image* const* weights, const int32_t* strengths,
                     int32_t count) {
  // What the taps of the warp leave of the variance of a frame, 1/256.
  constexpr int64_t kKept = 191;
  for (int32_t y = 0; y < left->height; ++y) {
    uint8_t* leftRow = imageRow(left, y);
    for (int32_t x = 0; x < left->width; ++x) {
      int32_t w[kMostFrames];
      int32_t sum = 255 * 256;  // the base
      for (int32_t i = 0; i < count; ++i) {
        w[i] = imageRow(weights[i], y)[x] * strengths[i];
        sum += w[i];
      }
      int64_t squares = 0;
      int32_t rest = 32768;
      for (int32_t i = 0; i < count; ++i) {
        const auto share = static_cast<int32_t>((int64_t{w[i]} * 32768 + sum / 2) / sum);
        imageRow<uint16_t>(shares[i], y)[x] = static_cast<uint16_t>(share);
        rest -= share;
        squares += int64_t{share} * share;
      }
      const int64_t variance = int64_t{rest} * rest + squares * kKept / 256;
      leftRow[x] = static_cast<uint8_t>(std::min<int64_t>((variance * 255 + (1 << 29)) >> 30, 255));
    }
  }
}

Status fuse(const Fusion& fusion, Image* output) {
  FuseJob job = {&fusion, output, nullptr, layoutOf(output->width), {}, {}};
  fillRoots(job.roots);
  for (int32_t c = 0; c < 256; ++c) job.saturation[c] = clampByte((131584 + (c - 128) * fusion.saturation) >> 10);
  const int32_t workers = std::max(1, Pel_getNumberOfWorkers(fusion.pel));
  const ScopedBlock<int16_t> scratch(fusion.env, job.layout.perWorker * static_cast<size_t>(workers));
  if (!scratch) return ZELVAN_ERROR_NOMEM;
  job.scratch = scratch.data();
  static constexpr PelKernel kKernel = pelIndexed<FuseJob, fuseBand>();
  const Status status = executeToEnd(fusion.pel, &kKernel, &job, (output->height + kBandRows - 1) / kBandRows);
  if (status == ZELVAN_OK && output->height % 2 != 0) {
    const int32_t pairs = output->height / 2;
    std::memcpy(imageChromaRow(output, pairs), imageChromaRow(output, pairs - 1),
                static_cast<size_t>((output->width + 1) / 2) * 2);
  }
  return status;
}

}  // namespace fine
