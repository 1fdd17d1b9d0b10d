// Renders an aligned burst: what the noise that is left asks of the one pass, then what a caller asks for.
#include <algorithm>

#include "base/integer.h"
#include "base/raw_double.h"
#include "base/scoped.h"
#include "filters/denoiser.h"
#include "filters/sharpen.h"
#include "fine/burst.h"
#include "fine/unclip.h"

namespace fine {
namespace {

constexpr uint8_t kSpikeMap = 8;

double root(double v) {
  return v > 0.0 ? RawDouble_sqrt(v) : 0.0;
}

// Power and amplitude of the bicubic taps at frequency k / 16 cycles a pixel, mean over fractions.
void tapResponse(int32_t k, double* power, double* amplitude) {
  constexpr int32_t kSteps = 16;
  const double omega = k * 3.141592653589793 / 8.0;
  *power = *amplitude = 0.0;
  for (int32_t i = 0; i < kSteps; ++i) {
    const double f = (i + 0.5) / kSteps;
    const double w[4] = {(-f + 2 * f * f - f * f * f) / 2, (2 - 5 * f * f + 3 * f * f * f) / 2,
                         (f + 4 * f * f - 3 * f * f * f) / 2, (f * f * f - f * f) / 2};
    double re = 0.0, im = 0.0;
    for (int32_t t = 0; t < 4; ++t) {
      re += w[t] * RawDouble_cos(omega * (t - 1 - f));
      im += w[t] * RawDouble_sin(omega * (t - 1 - f));
    }
    *power += (re * re + im * im) / kSteps;
    *amplitude += re / kSteps;
  }
}

// Noise and gains by frequency. baseShare: typical share of the base; colour: noise of level kMapLevel by what white
// noise would leave there, at least 1.
void fillTable(ShrinkTable* table, double strength, double sharpen, double baseShare, int32_t frames, double colour) {
  double power[8], amplitude[8];
  for (int32_t k = 0; k < 8; ++k) tapResponse(k, &power[k], &amplitude[k]);
  const double others = frames > 1 ? (1.0 - baseShare) * (1.0 - baseShare) / (frames - 1) : 0.0;
  const double whole = baseShare * baseShare + others * 0.745;
  // Noise of a colour of its own: more of it below.
  double shape[8][8];
  double mean = 0.0;
  for (int32_t v = 0; v < 8; ++v) {
    for (int32_t u = 0; u < 8; ++u) {
      shape[v][u] = 1.0 + (colour - 1.0) * RawDouble_exp(-(u * u + v * v) / 6.0);
      mean += shape[v][u] / 64.0;
    }
  }
  double noise[8][8];
  double least = 1e9;
  for (int32_t v = 0; v < 8; ++v) {
    for (int32_t u = 0; u < 8; ++u) {
      noise[v][u] = root((baseShare * baseShare + others * power[u] * power[v]) / whole * shape[v][u] / mean);
      if (u + v > 0) least = std::min(least, noise[v][u]);
    }
  }
  table->noise = static_cast<int16_t>(clampInt(truncToInt32(2048.0 * strength * least), 0, 32767));
  for (int32_t v = 0; v < 8; ++v) {
    for (int32_t u = 0; u < 8; ++u) {
      table->even[v][u] = static_cast<int16_t>(clampInt(truncToInt32(32768.0 * least / noise[v][u]), 0, 32767));
      const double kept = baseShare + (1.0 - baseShare) * amplitude[u] * amplitude[v];
      const double gain = sharpen * (1.0 / (kept < 0.5 ? 0.5 : kept) - 1.0);
      table->gain[v][u] = static_cast<int16_t>(clampInt(truncToInt32(32768.0 * gain), 0, 32767));
    }
  }
}

void fillFusion(Fusion* fusion, const Burst& burst) {
  *fusion = {};
  fusion->env = burst.env;
  fusion->pel = burst.pel;
  fusion->baseMoves = burst.cropped != 0;
  fusion->mapLuma = &burst.mapLuma;
  fusion->left = &burst.left;
  fusion->saturation = burst.settings.saturation;
  for (int32_t k = 0; k < burst.ranked; ++k) {
    const FrameRecord& frame = burst.frames[burst.order[k]];
    if (frame.status != MERGED) continue;
    FusionFrame& f = fusion->frames[fusion->count++];
    construct_Image(&f.luma, burst.env);
    construct_Image(&f.pairs, burst.env);
    Image_initSubImageY(&f.luma, &frame.image, 0, 0, burst.width, burst.height);
    Image_initSubImageUV(&f.pairs, &frame.image, 0, 0, burst.width, burst.height);
    f.mesh = frame.mesh;
    f.shares = k == 0 ? nullptr : &frame.shares;
    f.drift = frame.drift;
  }
  // Where much noise is left, the transform takes from strong edges, too: a little less of it, and more given back.
  const double left = burst.noise.level[0] / root(fusion->count);
  const double much = std::clamp((left - 3.2) / 1.6, 0.0, 1.0);
  const double strengths[3] = {burst.settings.lumaStrength * (1.0 - much / 6.0), burst.settings.chromaStrength,
                               burst.settings.chromaStrength};
  for (int32_t c = 0; c < 3; ++c) {
    FusionShrink& shrink = fusion->shrink[c];
    for (int32_t v = 0; v < 256; ++v) {
      const double deviation = root(burst.noise.full[c].at(v));
      shrink.byLuma[v] = static_cast<uint16_t>(clampInt(truncToInt32(128.0 * deviation), 0, 65535));
    }
    const double sharpen = c == 0 ? burst.settings.sharpen * (1.0 + much / 2.0) : 0.0;
    shrink.on = strengths[c] > 0.0 || (sharpen > 0.0 && fusion->count > 1);
    fillTable(&shrink.table, strengths[c] / kStrengthOfOne, sharpen, 1.0 / fusion->count, fusion->count,
              noiseColour(burst.noise, c));
  }
}

// Specks and the adaptive sharpening, on the luma of the result, where a caller asks for them.
Status finishAsAsked(const Burst& burst, ParallelExecutor* executor, Image* output) {
  const Settings& settings = burst.settings;
  if (settings.spikeLevel <= 0 && settings.sharpnessLevel <= 0) return ZELVAN_OK;
  ScopedImage luma(burst.env), copy(burst.env);
  Status status = Image_initSubImageY(&luma, output, 0, 0, output->width, output->height);
  if (status == ZELVAN_OK) status = Image_init(&copy, output->width, output->height, nullptr, IMAGE_UINT8);
  if (status == ZELVAN_OK && settings.spikeLevel > 0) {
    // Everywhere as strong as where all frames agree.
    ScopedImage map(burst.env);
    status = Image_init(&map, output->width, output->height, nullptr, IMAGE_UINT8);
    if (status == ZELVAN_OK) {
      for (int32_t y = 0; y < map.height; ++y) std::fill_n(imageRow(&map, y), map.width, kSpikeMap);
      status = Image_copy(&copy, &luma);
    }
    if (status == ZELVAN_OK) {
      status = Tessal4Denoiser_removeSpikePEL(burst.pel, &luma, &copy, &map, settings.spikeLevel);
    }
  }
  if (status == ZELVAN_OK && settings.sharpnessLevel > 0) {
    status = Image_copy(&copy, &luma);
    if (status == ZELVAN_OK) {
      status = Tessal4ImageFunc_adaSharp5x5_uint8(executor, burst.env, &luma, &copy, settings.sharpnessSigmas[1],
                                                  settings.sharpnessSigmas[0], settings.sharpnessLevel,
                                                  settings.sharpnessCoring);
    }
  }
  return status;
}

}  // namespace

Status render(Burst* burst, ParallelExecutor* executor, Image* output) {
  {
    const ScopedBlock<Fusion> block(burst->env, 1);
    if (!block) return ZELVAN_ERROR_NOMEM;
    fillFusion(&block[0], *burst);
    if (const Status s = fuse(block[0], output); s != ZELVAN_OK) return s;
    ScopedImage luma(burst->env);
    Image_initSubImageY(&luma, output, 0, 0, output->width, output->height);
    const FusionFrame& base = block[0].frames[0];
    if (const Status s = unclip(burst->pel, &luma, base.luma, base.mesh, burst->noise.full[0]); s != ZELVAN_OK)
      return s;
  }
  return finishAsAsked(*burst, executor, output);
}

}  // namespace fine
