#include "fine/noise.h"

#include <algorithm>

#include "base/integer.h"
#include "base/raw_double.h"
#include "base/scoped.h"
#include "parallel/pel_kernel.h"

namespace fine {
namespace {

constexpr int32_t kFullWindow = 8;
constexpr int32_t kMapWindow = 4;
constexpr int32_t kMostWindows = kMostNoiseWindows;
constexpr double kFlattest = 0.4;
constexpr float kMostCoherence = 12.0f;
// Median of the variance of n - 1 degrees of freedom over its mean, 63 and 15.
constexpr double kFullRatio = 0.989;
constexpr double kMapRatio = 0.956;
// Of one frame alone a low quantile of second differences, which share pixels.
constexpr double kAloneQuantile = 0.3;
constexpr double kAloneRatio = 0.86;
// Share of a frame's variance that the bicubic taps keep on the mean over all fractions.
constexpr double kCubicKept = 0.745;

using Window = NoiseWindow;
using Windows = NoiseWindows;

// Of a window: differences, or sums, of samples in 1/64 levels.
struct WindowSums {
  int32_t sum = 0;
  int64_t squares = 0;
  void add(int32_t d) {
    sum += d;
    squares += int64_t{d} * d;
  }
  double variance(int32_t n) const {
    const double s = sum;
    return (static_cast<double>(squares) - s * s / n) / (n - 1) / 4096.0;
  }
};

bool inside(const Image& image, const MeshNode& p) {
  const int32_t x = p.x >> 15;
  const int32_t y = p.y >> 15;
  return x >= 2 && y >= 2 && x < image.width - 3 && y < image.height - 3;
}

// Another estimate of a curve is, at every brightness, much the same share of this one. Where this one is far above
// it, all that has this brightness moved, or has texture. scratch: windows.count items.
void boundCurve(NoiseCurve* curve, const NoiseCurve& other, const Windows& windows, float* scratch) {
  constexpr float kMostAbove = 3.0f;
  int32_t n = 0;
  for (int32_t i = 0; i < windows.count; ++i) {
    const float v = other.at(windows.items[i].luma);
    if (v > 0.0f) scratch[n++] = curve->at(windows.items[i].luma) / v;
  }
  if (n == 0) return;
  std::nth_element(scratch, scratch + n / 2, scratch + n);
  for (int32_t bin = 0; bin < kNoiseBins; ++bin) {
    const float most = kMostAbove * scratch[n / 2] * other.variance[bin] + 0.1f;
    curve->variance[bin] = std::min(curve->variance[bin], most);
  }
}

float typicalLevel(const NoiseCurve& curve, Windows windows) {
  double sum = 0.0;
  for (int32_t i = 0; i < windows.count; ++i) sum += curve.at(windows.items[i].luma);
  const double mean = windows.count > 0 ? sum / windows.count : 0.0;
  return static_cast<float>(mean > 0.0 ? RawDouble_sqrt(mean) : 0.0);
}

// Windows of the full-size frames on a grid. scale: variance of one frame by that of the difference.
void collectFull(Windows* out, const NoisePair& pair, int32_t most) {
  const Image& base = *pair.base;
  ScopedImage luma(base.env), pairs(base.env);
  Image_initSubImageY(&luma, pair.frame, 0, 0, base.width, base.height);
  Image_initSubImageUV(&pairs, pair.frame, 0, 0, base.width, base.height);
  int32_t step = 16;
  while ((base.width / step) * (base.height / step) > most) step += 16;
  const auto scale = static_cast<float>(1.0 / (1.0 + kCubicKept));
  for (int32_t y = 16; y + 32 < base.height; y += step) {
    for (int32_t x = 16; x + 32 < base.width; x += step) {
      // Within one cell of the mesh.
      const int32_t left = (x & (kMeshStep - 1)) > kMeshStep - 2 * kFullWindow ? x & -kMeshStep : x;
      if (!inside(luma, meshPosition(*pair.mesh, left, y)) ||
          !inside(luma, meshPosition(*pair.mesh, left + 2 * kFullWindow, y + 2 * kFullWindow))) {
        continue;
      }
      Window& window = out->items[out->count];
      WindowSums sums[3], shown;
      int32_t brightness = 0;
      for (int32_t j = 0; j < kFullWindow; ++j) {
        int16_t samples[2 * kFullWindow + kSampleSlack];
        sampleWindowRow(samples, luma, *pair.mesh, left, y + j, kFullWindow, false);
        const uint8_t* row = imageRow(&base, y + j) + left;
        for (int32_t i = 0; i < kFullWindow; ++i) {
          sums[0].add(samples[i] - (row[i] - 128) * 64);
          shown.add(samples[i] + (row[i] - 128) * 64);
          brightness += row[i];
        }
        sampleWindowRow(samples, pairs, *pair.mesh, left / 2, y / 2 + j, kFullWindow, true);
        const uint8_t* chroma = imageChromaRow(&base, y / 2 + j) + left / 2 * 2;
        for (int32_t i = 0; i < 2 * kFullWindow; ++i) sums[1 + i % 2].add(samples[i] - (chroma[i] - 128) * 64);
      }
      window.luma = static_cast<uint8_t>(brightness / (kFullWindow * kFullWindow));
      window.activity = static_cast<float>(shown.variance(kFullWindow * kFullWindow));
      for (int32_t c = 0; c < 3; ++c) {
        window.variance[c] = static_cast<float>(sums[c].variance(kFullWindow * kFullWindow)) * scale;
      }
      if (++out->count >= most) return;
    }
  }
}

void collectMap(Windows* out, const NoisePair& pair, int32_t most) {
  const Image& base = pair.basePyramid->level[kMapLevel];
  const Image& colour = pair.basePyramid->colour;
  const Image& frame = pair.framePyramid->level[kMapLevel];
  int32_t step = kMapWindow;
  while ((base.width / step) * (base.height / step) > most) step += kMapWindow;
  const auto scale = static_cast<float>(1.0 / (1.0 + kCubicKept));
  for (int32_t y = kMapWindow; y + 2 * kMapWindow < base.height; y += step) {
    for (int32_t x = kMapWindow; x + 2 * kMapWindow < base.width; x += step) {
      if (!inside(frame, meshPosition(*pair.mapMesh, x, y)) ||
          !inside(frame, meshPosition(*pair.mapMesh, x + kMapWindow, y + kMapWindow))) {
        continue;
      }
      Window& window = out->items[out->count];
      WindowSums sums[3], shown;
      int32_t brightness = 0;
      for (int32_t j = 0; j < kMapWindow; ++j) {
        int16_t samples[2 * kMapWindow + kSampleSlack];
        sampleWindowRow(samples, frame, *pair.mapMesh, x, y + j, kMapWindow, false);
        const uint8_t* row = imageRow(&base, y + j) + x;
        for (int32_t i = 0; i < kMapWindow; ++i) {
          sums[0].add(samples[i] - (row[i] - 128) * 64);
          shown.add(samples[i] + (row[i] - 128) * 64);
          brightness += row[i];
        }
        sampleWindowRow(samples, pair.framePyramid->colour, *pair.mapMesh, x, y + j, kMapWindow, false);
        const uint8_t* chroma = imageRow(&colour, y + j) + 2 * x;
        for (int32_t i = 0; i < 2 * kMapWindow; ++i) sums[1 + i % 2].add(samples[i] - (chroma[i] - 128) * 64);
      }
      window.luma = static_cast<uint8_t>(brightness / (kMapWindow * kMapWindow));
      window.activity = static_cast<float>(shown.variance(kMapWindow * kMapWindow));
      for (int32_t c = 0; c < 3; ++c) {
        window.variance[c] = static_cast<float>(sums[c].variance(kMapWindow * kMapWindow)) * scale;
        window.mean[c] = static_cast<float>(sums[c].sum) * (1.0f / (64 * kMapWindow * kMapWindow));
      }
      if (++out->count >= most) return;
    }
  }
}

// Pairs beside each other, each in a part of the items of its own, then without gaps.
struct CollectJob {
  Window* items;
  const NoisePair* pairs;
  int32_t most;  // a pair
  int32_t counts[kMostNoisePairs];
};

template <void (*Collect)(Windows*, const NoisePair&, int32_t)>
Status collectPair(CollectJob* job, int32_t i, const PelContext*) {
  Windows own = {job->items + static_cast<ptrdiff_t>(i) * job->most, 0};
  Collect(&own, job->pairs[i], job->most);
  job->counts[i] = own.count;
  return ZELVAN_OK;
}

template <void (*Collect)(Windows*, const NoisePair&, int32_t)>
Status collect(Windows* windows, Pel* pel, const NoisePair* pairs, int32_t count) {
  windows->count = 0;
  CollectJob job = {windows->items, pairs, kMostWindows / count, {}};
  static constexpr PelKernel kKernel = pelIndexed<CollectJob, collectPair<Collect>>();
  if (const Status s = executeToEnd(pel, &kKernel, &job, count); s != ZELVAN_OK) return s;
  for (int32_t i = 0; i < count; ++i) {
    const Window* own = windows->items + static_cast<ptrdiff_t>(i) * job.most;
    if (i > 0) std::copy(own, own + job.counts[i], windows->items + windows->count);
    windows->count += job.counts[i];
  }
  return ZELVAN_OK;
}

}  // namespace

double noiseColour(const Noise& noise, int32_t channel) {
  double full = 0.0, map = 0.0;
  for (int32_t v = 0; v < 256; ++v) {
    full += noise.full[channel].at(v);
    map += noise.map[channel].at(v) - 1.0 / 12;
  }
  const double area = channel == 0 ? 16.0 : 4.0;
  return full > 0.0 ? std::max(1.0, area * map / full) : 1.0;
}

Status estimateNoise(Noise* noise, Env* env, Pel* pel, const NoisePair* pairs, int32_t count) {
  *noise = {};
  const ScopedBlock<Window> items(env, kMostWindows);
  const ScopedBlock<float> scratch(env, kMostWindows);
  if (!items || !scratch) return ZELVAN_ERROR_NOMEM;
  Windows windows = {items.data(), 0};
  if (const Status s = collect<collectFull>(&windows, pel, pairs, count); s != ZELVAN_OK) return s;
  keepFlattest(&windows, kFlattest, scratch.data());
  NoiseCurve alone = {};
  {
    ScopedImage luma(env);
    Image_initSubImageY(&luma, pairs[0].base, 0, 0, pairs[0].base->width, pairs[0].base->height);
    if (const Status s = estimateCurve(&alone, env, luma); s != ZELVAN_OK) return s;
  }
  for (int32_t c = 0; c < 3; ++c) {
    fitCurve(&noise->full[c], windows, c, 0.5, kFullRatio, scratch.data());
    boundCurve(&noise->full[c], alone, windows, scratch.data());
    noise->level[c] = typicalLevel(noise->full[c], windows);
  }
  if (const Status s = collect<collectMap>(&windows, pel, pairs, count); s != ZELVAN_OK) return s;
  keepFlattest(&windows, kFlattest, scratch.data());
  for (int32_t c = 0; c < 3; ++c) {
    fitCurve(&noise->map[c], windows, c, 0.5, kMapRatio, scratch.data());
    boundCurve(&noise->map[c], noise->full[c], windows, scratch.data());
    const float patches = coherence(windows, noise->map[c], c, kMapWindow * kMapWindow, scratch.data());
    noise->coherence[c] = std::clamp(patches * static_cast<float>(1.0 / (1.0 + kCubicKept)), 1.0f, kMostCoherence);
  }
  return ZELVAN_OK;
}

Status estimateAlone(Noise* noise, Env* env, const Image& frame, const Pyramid&) {
  *noise = {};
  const ScopedBlock<Window> items(env, kMostWindows);
  const ScopedBlock<float> scratch(env, kMostWindows);
  if (!items || !scratch) return ZELVAN_ERROR_NOMEM;
  Windows windows = {items.data(), 0};
  int32_t step = 8;
  while ((frame.width / step) * (frame.height / step) > kMostWindows) step += 8;
  for (int32_t y = 2; y + 20 < frame.height; y += step) {
    for (int32_t x = 2; x + 20 < frame.width && windows.count < kMostWindows; x += step) {
      // Second differences along both diagonals: (a - b - c + d) has four times the variance of white noise.
      Window& window = windows.items[windows.count++];
      WindowSums sums[3];
      int32_t brightness = 0;
      for (int32_t j = 0; j < kFullWindow; ++j) {
        const uint8_t* row = imageRow(&frame, y + j) + x;
        const uint8_t* next = imageRow(&frame, y + j + 1) + x;
        const uint8_t* chroma = imageChromaRow(&frame, y / 2 + j) + x / 2 * 2;
        const uint8_t* below = imageChromaRow(&frame, y / 2 + j + 1) + x / 2 * 2;
        for (int32_t i = 0; i < kFullWindow; ++i) {
          brightness += row[i];
          sums[0].add(32 * (row[i] - row[i + 1] - next[i] + next[i + 1]));
          for (int32_t c = 0; c < 2; ++c) {
            const int32_t at = 2 * i + c;
            sums[1 + c].add(32 * (chroma[at] - chroma[at + 2] - below[at] + below[at + 2]));
          }
        }
      }
      window.luma = static_cast<uint8_t>(brightness / (kFullWindow * kFullWindow));
      window.activity = 0.0f;
      for (int32_t c = 0; c < 3; ++c) {
        window.variance[c] = static_cast<float>(sums[c].variance(kFullWindow * kFullWindow));
      }
    }
  }
  for (int32_t c = 0; c < 3; ++c) {
    noise->coherence[c] = 1.0f;
    fitCurve(&noise->full[c], windows, c, kAloneQuantile, kAloneRatio, scratch.data());
    noise->level[c] = typicalLevel(noise->full[c], windows);
    for (int32_t i = 0; i < kNoiseBins; ++i) noise->map[c].variance[i] = noise->full[c].variance[i] / (c == 0 ? 16 : 4);
  }
  return ZELVAN_OK;
}

}  // namespace fine
