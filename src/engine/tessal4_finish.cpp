#include <cstring>

#include "base/integer.h"
#include "engine/tessal4_impl.h"
#include "filters/sharpen.h"
#include "imageproc/arithmetic.h"
#include "imageproc/resize.h"
#include "pixels/image_func.h"
#include "pixels/row_split.h"

namespace {

constexpr int32_t kMaxAnchors = 32;
constexpr int32_t kGuidedWindow = 41;

void releaseSmallFrames(Tessal4* engine, int32_t count) {
  for (int32_t i = 0; i < count && i < kTessal4Frames; ++i) resetImage(&engine->shrunk[i], engine->env);
}

void releaseTracking(Tessal4* engine) {
  resetImage(&engine->warped, engine->env);
  destruct_Vectral(&engine->tracker);
  construct_Vectral(&engine->tracker, engine->env);
}

// Share of the merged frames that took part in a pixel, 0 to 128.
struct ConfidenceRows {
  Image* dst;
  const Image* weight;
  uint32_t scale;
  int32_t begin;
  int32_t end;
};

Status confidenceRows(ConfidenceRows* rows) {
  const int32_t width = rows->dst->width;
  for (int32_t y = rows->begin; y < rows->end; ++y) {
    const uint16_t* weight = imageRow<uint16_t>(rows->weight, y);
    uint8_t* dst = imageRow(rows->dst, y);
    for (int32_t x = 0; x < width; ++x) {
      const uint32_t c = (weight[x] * rows->scale) >> 7;
      dst[x] = static_cast<uint8_t>(c < 128 ? c : 128);
    }
  }
  return ZELVAN_OK;
}

// A byte operation on rows of chroma pairs.
struct ChromaRows {
  Image* dst;
  const Image* src;
  const uint8_t* table;
  int32_t begin;
  int32_t end;
};

Status chromaTableRows(ChromaRows* rows) {
  const int32_t bytes = rows->src->width * 2;
  for (int32_t y = rows->begin; y < rows->end; ++y) {
    const uint8_t* src = imageRow(rows->src, y);
    uint8_t* dst = imageRow(rows->dst, y);
    for (int32_t x = 0; x < bytes; ++x) dst[x] = rows->table[src[x]];
  }
  return ZELVAN_OK;
}

Status chromaCopyRows(ChromaRows* rows) {
  for (int32_t y = rows->begin; y < rows->end; ++y) {
    std::memcpy(imageRow(rows->dst, y), imageRow(rows->src, y), static_cast<size_t>(rows->src->width) * 2);
  }
  return ZELVAN_OK;
}

// 131584 is 128.5 in Q10, so the gained byte rounds.
void fillSaturationTable(uint8_t* table, int32_t saturation) {
  for (int32_t c = 0; c < 256; ++c) {
    table[c] =
        static_cast<uint8_t>(clampInt(static_cast<int32_t>((131584 + int64_t{c - 128} * saturation) >> 10), 0, 255));
  }
}

// Small chroma is suppressed by a square, larger chroma follows the saturation.
void fillCoringTable(uint8_t* table, int32_t saturation) {
  for (int32_t i = 0; i <= 128; ++i) {
    const int64_t x = int64_t{i} * saturation;
    const int64_t square = (x * x) >> 13;
    const int64_t y = square < x ? square : x;
    const auto byteOf = [](int64_t v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); };
    if (i < 128) table[128 + i] = byteOf((131584 + y) >> 10);
    table[128 - i] = byteOf((131584 - y) >> 10);
  }
}

Status moveChroma(Tessal4* engine, Image* output) {
  Image* chroma = &engine->chromaView;
  const int32_t saturation = engine->params.saturation;
  uint8_t table[256];
  if (engine->params.chromaCoring != 0) {
    fillCoringTable(table, saturation);
    forkRows<ChromaRows, chromaTableRows>(engine->executor, chroma->height, {chroma, chroma, table, 0, 0});
  }
  if (saturation != 1024) {
    fillSaturationTable(table, saturation);
    return forkRows<ChromaRows, chromaTableRows>(engine->executor, chroma->height, {output, chroma, table, 0, 0});
  }
  if (output->plane0 == chroma->plane0) return ZELVAN_OK;
  return forkRows<ChromaRows, chromaCopyRows>(engine->executor, chroma->height, {output, chroma, nullptr, 0, 0});
}

// The filter takes a source apart from its destination: luma that lies in the output is read from a copy. From here on
// luma is that of the output.
Status removeSpikes(Tessal4* engine) {
  Image* luma = &engine->lumaView;
  ScopedImage copy(engine->env);
  const bool bound = luma->plane0 == engine->output->plane0;
  if (bound) {
    if (const Status s = Image_copy(&copy, luma); s != ZELVAN_OK) return s;
  }
  Tessal4Denoiser_removeSpikePEL(engine->pel, engine->output, bound ? &copy : luma, &engine->uvThresholdMap,
                                 engine->params.removeSpikeLevel);
  return Image_initSubImageY(luma, engine->output, 0, 0, engine->width, engine->height);
}

// Gain of the sharpening by accumulated weight >> shift: low where few frames agreed.
void fillSharpnessTable(uint8_t* table, const Tessal4* engine, int32_t shift) {
  const double floor = engine->params.sharpnessMapFloor * 128.0;
  const int32_t top = (engine->usedCount * 128 - 128) >> shift;
  const int32_t base = -(128 >> shift);
  for (int32_t i = 0; i < 256; ++i) {
    const int32_t v = base + i > 0 ? base + i : 0;
    table[i] = static_cast<uint8_t>(truncToUint32(floor + (128.0 - floor) * (v / (top + 1e-9))));
  }
}

Status sharpen(Tessal4* engine) {
  const Tessal4Params& params = engine->params;
  int32_t shift = 2;  // by the announced frames, not the merged ones
  while (((engine->frameCount * 128) >> shift) > 128) ++shift;
  Image* map = &engine->uvThresholdMap;
  if (const Status s = Image_init(map, engine->width, engine->height, nullptr, IMAGE_UINT8); s != ZELVAN_OK) return s;
  if (const Status s = ImageProc_n_shift(engine->imageProcPtr, &engine->epsilonMap, &engine->accWeight, shift);
      s != ZELVAN_OK) {
    return s;
  }
  uint8_t table[256];
  fillSharpnessTable(table, engine, shift);
  if (const Status s = Tessal4ImageFunc_table(engine->pel, &engine->epsilonMap, &engine->epsilonMap, table);
      s != ZELVAN_OK) {
    return s;
  }
  if (const Status s = ImageProc_resizeImage(engine->imageProcPtr, map, &engine->epsilonMap); s != ZELVAN_OK) return s;
  return Tessal4ImageFunc_adaSharp5x5_uint8_withmap(engine->executor, engine->env, engine->output, &engine->lumaView,
                                                    map, params.sharpnessSigma2, params.sharpnessSigma1,
                                                    params.sharpnessLevel, params.sharpnessExtra);
}

}  // namespace

Status Tessal4_setEpsilonValues(Tessal4* engine, const float* values, int32_t n) {
  if (engine == nullptr || values == nullptr || n > kMaxAnchors) return ZELVAN_ERROR_PARAM;
  float anchors[kMaxAnchors + 2] = {};
  if (n < 1) {
    n = 0;
    engine->epsilonScale = 0.0f;
  } else {
    float most = 0.0f;
    for (int32_t k = 1; k <= n; ++k) most = values[k] > most ? values[k] : most;
    engine->epsilonScale = static_cast<float>(most * 32.0 / 255.0);
    for (int32_t k = 1; k <= n; ++k) anchors[k] = static_cast<float>(values[k] * 255.0 / most);
  }
  anchors[0] = anchors[1];
  anchors[n + 1] = anchors[n];
  for (int32_t i = 0; i <= 128; ++i) {
    const double t = i * n * 0.0078125;
    const int32_t k = truncToInt32(t);
    const float r = static_cast<float>(t - k);
    const float value = static_cast<float>((1.0 - r) * anchors[k] + anchors[k + 1] * r) + 0.5f;
    engine->epsilonTable[i] = static_cast<uint8_t>(truncToUint32(value));
  }
  return ZELVAN_OK;
}

Status Tessal4_setUvnrThresholdValues(Tessal4* engine, const int32_t* values, int32_t n) {
  if (engine == nullptr || values == nullptr || n > kMaxAnchors) return ZELVAN_ERROR_PARAM;
  int32_t anchors[kMaxAnchors + 2] = {};
  if (n < 0) n = 0;
  for (int32_t k = 0; k <= n; ++k) anchors[k] = values[k];
  anchors[0] = anchors[1];
  anchors[n + 1] = anchors[n];
  for (int32_t i = 0; i <= 128; ++i) {
    const float t = static_cast<float>(i * n * 0.0078125);
    const int32_t k = truncToInt32(t);
    const float r = t - k;
    const float value = static_cast<float>((1.0 - r) * anchors[k] + r * anchors[k + 1]) + 0.5f;
    engine->uvThresholdTable[i] = static_cast<uint8_t>(truncToUint32(value < 0.0f     ? 0.0f
                                                                     : value > 255.0f ? 255.0f
                                                                                      : value));
  }
  return ZELVAN_OK;
}

Status Tessal4_makeNrMaps(Tessal4* engine) {
  const Image& weight = engine->accWeight;
  Image* epsilon = &engine->epsilonMap;
  if (const Status s = Image_init(epsilon, weight.width, weight.height, nullptr, IMAGE_UINT8); s != ZELVAN_OK) {
    return s;
  }
  const int32_t merged = engine->mergeCount > 1 ? engine->mergeCount : 1;
  const uint32_t scale = static_cast<uint32_t>((128 + (merged - 1) / 2) / merged);
  Status status =
      forkRows<ConfidenceRows, confidenceRows>(engine->executor, weight.height, {epsilon, &weight, scale, 0, 0});
  if (status != ZELVAN_OK) return status;

  ScopedImage thresholds(engine->env);
  status = Image_init(&thresholds, weight.width, weight.height, nullptr, IMAGE_UINT8);
  if (status != ZELVAN_OK) return status;
  status = Tessal4ImageFunc_table(engine->pel, &thresholds, epsilon, engine->uvThresholdTable);
  if (status != ZELVAN_OK) return status;
  status = Image_init(&engine->uvThresholdMap, engine->width, engine->height, nullptr, IMAGE_UINT8);
  if (status != ZELVAN_OK) return status;
  status = ImageProc_resizeImage(engine->imageProcPtr, &engine->uvThresholdMap, &thresholds);
  if (status != ZELVAN_OK) return status;
  return Tessal4ImageFunc_table(engine->pel, epsilon, epsilon, engine->epsilonTable);
}

Status Tessal4_noiseReduction(Tessal4* engine) {
  Tessal4Params& params = engine->params;
  Env* env = engine->env;
  Image* output = engine->output;
  if (output == nullptr) return ZELVAN_ERROR_STATE;
  // The arena is sized by the larger of two peaks: what the merge needed goes before the filters come.
  releaseSmallFrames(engine, engine->frameCount);
  if (const Status s = Tessal4_makeNrMaps(engine); s != ZELVAN_OK) return s;
  releaseTracking(engine);
  releaseSmallFrames(engine, kTessal4Frames);
  engine->denoiser = {env, engine->executor, engine->pel, engine->imageProcPtr};

  const int32_t width = engine->width;
  const int32_t height = engine->height;
  repeatOddChroma(engine->accumulatorPtr);
  ScopedImage merged(env);
  Image_initSubImage(&merged, engine->accumulatorPtr, 0, 0, width, height);
  params.denoiserCentreWeight = clampInt(params.denoiserCentreWeight, 2, 64);
  const double strengths[3] = {params.lumaNrStrength, params.chromaNrStrength, params.chromaNrStrength};

  if (params.lumaNrLevelPercent >= 1) {
    if (const Status s = GuidedFilter_execute_with_epsilon_map(
            &engine->guidedFilter, &merged, &merged, engine->epsilonScale, &engine->epsilonMap, kGuidedWindow);
        s != ZELVAN_OK) {
      return s;
    }
  }
  // The luma pass count is 0: lumaNrTimes and removeSpikeLevel only open this gate.
  if (params.removeSpikeLevel != 0 || params.lumaNrTimes != 0 || params.chromaNrTimes != 0) {
    Tessal4Denoiser_denoiseInplace(engine->pel, env, &merged, &engine->uvThresholdMap, 0, params.denoiserKinds, 0,
                                   params.denoiserCentreWeight, params.chromaNrTimes, strengths);
  }

  if (const Status s = Image_initSubImageY(&engine->lumaView, &merged, 0, 0, width, height); s != ZELVAN_OK) return s;
  if (const Status s = Image_initSubImageUV(&engine->chromaView, &merged, 0, 0, width, height); s != ZELVAN_OK) {
    return s;
  }
  {
    ScopedImage outputChroma(env);
    if (const Status s = Image_initSubImageUV(&outputChroma, output, 0, 0, merged.width, merged.height);
        s != ZELVAN_OK) {
      return s;
    }
    moveChroma(engine, &outputChroma);
    repeatOddChroma(output);
  }
  releaseTracking(engine);

  if (params.removeSpikeLevel != 0) {
    if (const Status s = removeSpikes(engine); s != ZELVAN_OK) return s;
  }
  if (params.sharpnessLevel != 0) return sharpen(engine);

  ScopedImage outputLuma(env);
  if (const Status s = Image_initSubImageY(&outputLuma, output, 0, 0, width, height); s != ZELVAN_OK) return s;
  Image_copy(&outputLuma, &engine->lumaView);
  return ZELVAN_OK;
}

Status zelvan_Tessaline4Internal_weakUvNr(Tessal4* engine, Image* dst, const Image* src, const Image* map,
                                          const WeakUvNrParams* params) {
  if (engine == nullptr) return ZELVAN_ERROR_PARAM;
  const Status status = weakUvNr(engine->env, engine->pel, dst, src, map, params);
  if (status == ZELVAN_OK && dst->width == src->width && dst->height == src->height) repeatOddChroma(dst);
  return status;
}
