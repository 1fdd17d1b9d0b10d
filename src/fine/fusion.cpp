#include "fine/fusion.h"

#include <algorithm>
#include <cstring>

#include "base/integer.h"
#include "base/scoped.h"
#include "fine/fusion_rows.h"
#include "parallel/pel_kernel.h"
#include "parallel/pel_rows.h"

namespace fine {
namespace {

constexpr int32_t kHalo = 4;  // rows of a block beyond a band
constexpr int32_t kHeld = kBandRows + 2 * kHalo;
static_assert(kBandRows % 8 == 0);
// Strips a worker: what one is later than the others is short beside the whole.
constexpr int32_t kStripsByWorker = 3;
constexpr int32_t kLeastStripRows = 64;

// Scratch of one worker.
struct Worker {
  int16_t* band;     // merged rows, padded: kHeld x stride; chroma keeps its two planes of half as many in it
  int16_t* result;   // rows of blocks are added up here, as many
  int16_t* sum;      // a row on its way into the band
  int16_t* base;     // a row of the base
  int16_t* sample;   // of a frame
  int16_t* weights;  // Q15
  uint16_t* line;    // a row of shares, stretched down
  int16_t* sigma;    // of a row of blocks
};

struct Layout {
  int32_t stride;
  size_t row;  // samples of a row of pairs with slack
  size_t band;
  size_t perWorker;
};

Layout layoutOf(int32_t width) {
  Layout layout;
  layout.stride = dctStride(width);
  layout.row = static_cast<size_t>(layout.stride) + kDctSlack;
  layout.band = static_cast<size_t>(kHeld) * static_cast<size_t>(layout.stride + 32);
  layout.perWorker = 2 * layout.band + 6 * layout.row;
  return layout;
}

Worker workerAt(int16_t* scratch, const Layout& layout, int32_t index) {
  int16_t* at = scratch + layout.perWorker * static_cast<size_t>(index);
  const auto take = [&](size_t n) {
    int16_t* p = at;
    at += n;
    return p;
  };
  Worker w;
  w.band = take(layout.band);
  w.result = take(layout.band);
  w.sum = take(layout.row);
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

// A band on its way down a strip: padded rows, of which the first is y - kHalo, and the sums of their blocks.
struct SlidingBand {
  int16_t* band;
  int16_t* result;
  ptrdiff_t stride;
  int32_t rows;  // of the band that stood here before, 0 for none: what the two share is there
};

// Takes what the band before shares with the one that follows it; 2 kHalo merged rows, and kHalo rows of sums that one
// row of blocks is still to be added to.
void moveOn(SlidingBand* band, int32_t rows) {
  const auto bytes = [&](ptrdiff_t n) { return static_cast<size_t>(n * band->stride) * sizeof(int16_t); };
  if (band->rows > 0) {
    std::memmove(band->band, band->band + band->rows * band->stride, bytes(2 * kHalo));
    std::memmove(band->result + kHalo * band->stride, band->result + (band->rows + kHalo) * band->stride, bytes(kHalo));
  }
  const int32_t kept = band->rows > 0 ? 2 * kHalo : 0;
  std::memset(band->result + kept * band->stride, 0, bytes(rows + 2 * kHalo - kept));
}

// The blocks of a band of so many rows, after which the sums of its own rows are whole.
void shrinkBand(SlidingBand* band, const Fusion& f, const FusionShrink& shrink, const uint8_t* roots, int16_t* sigma,
                int32_t y0, int32_t rows, int32_t width, int32_t cell) {
  const int32_t blocks = dctStride(width) / 4 - 1;
  for (int32_t j = band->rows > 0 ? kHalo : 0; j <= rows; j += kHalo) {
    sigmaRow(sigma, f, shrink, roots, y0 - kHalo + j, cell, blocks);
    shrinkBlocks(band->result + j * band->stride, band->band + j * band->stride, sigma, shrink.table, width);
  }
  band->rows = rows;
}

struct FuseJob {
  const Fusion* fusion;
  Image* output;
  int16_t* scratch;
  Layout layout;
  int32_t stripRows;
  uint8_t roots[256];
  uint8_t saturation[256];
};

void lumaStrip(const FuseJob& job, Worker* w, int32_t y0, int32_t y1) {
  const Fusion& f = *job.fusion;
  const int32_t width = job.output->width;
  const int32_t height = job.output->height;
  const FusionShrink& shrink = f.shrink[0];
  if (!shrink.on) {
    for (int32_t y = y0; y < y1; ++y) {
      mergeLumaRow(w->sum, f, w, y, width);
      kStoreFrom64(imageRow(job.output, y), w->sum, width);
    }
    return;
  }
  const int32_t stride = dctStride(width);
  SlidingBand band = {w->band, w->result, stride, 0};
  for (int32_t top = y0; top < y1; top += kBandRows) {
    const int32_t bottom = std::min(top + kBandRows, y1);
    const int32_t rows = (bottom - top + 3) & ~3;
    moveOn(&band, rows);
    for (int32_t j = band.rows > 0 ? 2 * kHalo : 0; j < rows + 2 * kHalo; ++j) {
      int16_t* row = w->band + static_cast<ptrdiff_t>(j) * stride;
      const int32_t y = top - kHalo + j;
      if (y >= height) {  // the last row again
        std::memcpy(row, row - stride, static_cast<size_t>(stride) * sizeof(int16_t));
        continue;
      }
      mergeLumaRow(w->sum, f, w, std::max(y, 0), width);
      kNarrow(row + kDctPad, w->sum, width, half8(y));
      padRow(row, width, stride);
    }
    shrinkBand(&band, f, shrink, job.roots, w->sigma, top, rows, width, 4);
    for (int32_t y = top; y < bottom; ++y) {
      kStoreFrom8(imageRow(job.output, y), w->result + static_cast<ptrdiff_t>(y - top + kHalo) * stride + kDctPad,
                  width, half8(y));
    }
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

void chromaStrip(const FuseJob& job, Worker* w, int32_t y0, int32_t y1) {
  const Fusion& f = *job.fusion;
  const int32_t width = job.output->width / 2;
  const int32_t height = job.output->height / 2;
  y1 = std::min(y1, height);
  if (!f.shrink[1].on && !f.shrink[2].on) {
    for (int32_t y = y0; y < y1; ++y) {
      mergeChromaRow(w->sum, f, w, y, width);
      kStoreFrom64(imageChromaRow(job.output, y), w->sum, 2 * width);
      finishChromaRow(job, imageChromaRow(job.output, y), width);
    }
    return;
  }
  constexpr int32_t kRows = kBandRows / 2;
  const int32_t stride = dctStride(width);
  const ptrdiff_t plane = static_cast<ptrdiff_t>(kRows + 2 * kHalo) * stride;
  SlidingBand bands[2] = {{w->band, w->result, stride, 0}, {w->band + plane, w->result + plane, stride, 0}};
  for (int32_t top = y0; top < y1; top += kRows) {
    const int32_t bottom = std::min(top + kRows, y1);
    const int32_t rows = (bottom - top + 3) & ~3;
    for (SlidingBand& band : bands) moveOn(&band, rows);
    for (int32_t j = bands[0].rows > 0 ? 2 * kHalo : 0; j < rows + 2 * kHalo; ++j) {
      int16_t* row = w->band + static_cast<ptrdiff_t>(j) * stride;
      const int32_t y = top - kHalo + j;
      if (y >= height) {
        std::memcpy(row, row - stride, static_cast<size_t>(stride) * sizeof(int16_t));
        std::memcpy(row + plane, row + plane - stride, static_cast<size_t>(stride) * sizeof(int16_t));
        continue;
      }
      mergeChromaRow(w->sum, f, w, std::max(y, 0), width);
      kNarrowPairs(row + kDctPad, row + plane + kDctPad, w->sum, width, half8(y));
      padRow(row, width, stride);
      padRow(row + plane, width, stride);
    }
    for (int32_t c = 0; c < 2; ++c) {
      shrinkBand(&bands[c], f, f.shrink[1 + c], job.roots, w->sigma, top, rows, width, 2);
    }
    for (int32_t y = top; y < bottom; ++y) {
      const int16_t* from = w->result + static_cast<ptrdiff_t>(y - top + kHalo) * stride + kDctPad;
      kStorePairsFrom8(imageChromaRow(job.output, y), from, from + plane, width, half8(y));
      finishChromaRow(job, imageChromaRow(job.output, y), width);
    }
  }
}

Status fuseStrip(FuseJob* job, int32_t index, const PelContext* context) {
  const Image& output = *job->output;
  Worker worker = workerAt(job->scratch, job->layout, context->workerIndex);
  const int32_t y0 = index * job->stripRows;
  const int32_t y1 = std::min(y0 + job->stripRows, output.height);
  lumaStrip(*job, &worker, y0, y1);
  chromaStrip(*job, &worker, y0 / 2, (y1 + 1) / 2);
  return ZELVAN_OK;
}

struct ShareJob {
  Image* const* shares;
  Image* left;
  const Image* const* weights;
  const int32_t* strengths;
  int32_t count;
};

void shareRows(const ShareJob& job, int32_t begin, int32_t end) {
  for (int32_t y = begin; y < end; ++y) {
    ShareRows rows = {{}, {}, imageRow(job.left, y), job.strengths, job.count};
    for (int32_t i = 0; i < job.count; ++i) {
      rows.weights[i] = imageRow(job.weights[i], y);
      rows.shares[i] = imageRow<uint16_t>(job.shares[i], y);
    }
    kNormalise(rows, job.left->width);
  }
}

}  // namespace

Status normaliseShares(Pel* pel, Image* const* shares, Image* left, const Image* const* weights,
                       const int32_t* strengths, int32_t count) {
  return executeRows<ShareJob, shareRows>(pel, {shares, left, weights, strengths, count}, left->height);
}

Status fuse(const Fusion& fusion, Image* output) {
  FuseJob job = {&fusion, output, nullptr, layoutOf(output->width), 0, {}, {}};
  fillRoots(job.roots);
  for (int32_t c = 0; c < 256; ++c) job.saturation[c] = clampByte((131584 + (c - 128) * fusion.saturation) >> 10);
  const int32_t workers = std::max(1, Pel_getNumberOfWorkers(fusion.pel));
  const ScopedBlock<int16_t> scratch(fusion.env, job.layout.perWorker * static_cast<size_t>(workers));
  if (!scratch) return ZELVAN_ERROR_NOMEM;
  job.scratch = scratch.data();
  const int32_t rows = std::max(kLeastStripRows, output->height / (kStripsByWorker * workers));
  job.stripRows = (rows + kBandRows - 1) / kBandRows * kBandRows;
  static constexpr PelKernel kKernel = pelIndexed<FuseJob, fuseStrip>();
  const Status status = executeToEnd(fusion.pel, &kKernel, &job, (output->height + job.stripRows - 1) / job.stripRows);
  if (status == ZELVAN_OK && output->height % 2 != 0) {
    const int32_t pairs = output->height / 2;
    std::memcpy(imageChromaRow(output, pairs), imageChromaRow(output, pairs - 1),
                static_cast<size_t>((output->width + 1) / 2) * 2);
  }
  return status;
}

}  // namespace fine
