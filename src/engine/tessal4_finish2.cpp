// The second finishing road, by generated patterns.
#include "base/integer.h"
#include "base/raw_double.h"
#include "engine/tessal4_impl.h"
#include "imageproc/resize.h"

namespace {

void fillDenoiser2Params(Tessal4Denoiser2Params* out, const Tessal4Params& params) {
  out->spike = params.removeSpikeLevel;
  out->lumaPasses = clampInt(params.lumaNrTimes, 0, kDenoiser2Passes);
  out->chromaPasses = clampInt(params.chromaNrTimes, 0, kDenoiser2Passes);
  for (int32_t i = 0; i < out->lumaPasses; ++i) {
    out->lumaKind[i] = params.denoiserKinds[i < 2 ? i : 2];
    out->lumaTaps[i] = 16;
    out->lumaCentreWeight[i] = params.denoiserCentreWeight;
    out->lumaStrength[i] = params.lumaNrStrength * RawDouble_incomplete_pow(0.8, i);
  }
  for (int32_t i = 0; i < out->chromaPasses; ++i) {
    out->chromaOuterTaps[i] = 16;
    out->chromaMiddleTaps[i] = 8;
    out->chromaInnerTaps[i] = 4;
    out->chromaStrength[i] = params.chromaNrStrength * RawDouble_incomplete_pow(0.8, i) * 0.5;
  }
  out->sharpen = params.sharpnessLevel;
  out->sharpenSigma1 = params.sharpnessSigma1;
  out->sharpenSigma2 = params.sharpnessSigma2;
  out->sharpenCoring = params.sharpnessExtra;
  out->blend = params.saturation;
}

}  // namespace

Status Tessal4_noiseReduction2(Tessal4* engine, const Tessal4Denoiser2Params* params) {
  Image* output = engine->output;
  if (output == nullptr) return ZELVAN_ERROR_STATE;
  for (Image& frame : engine->shrunk) resetImage(&frame, engine->env);
  Tessal4Denoiser2Params own = {};
  if (params == nullptr) {
    fillDenoiser2Params(&own, engine->params);
    params = &own;
  }
  if (const Status s = Tessal4_makeNrMaps(engine); s != ZELVAN_OK) return s;
  ScopedImage map(engine->env);
  if (const Status s = Image_init(&map, (output->width >> 3) + 1, (output->height >> 3) + 1, nullptr, IMAGE_UINT8);
      s != ZELVAN_OK) {
    return s;
  }
  if (const Status s = ImageProc_resizeImage(engine->imageProcPtr, &map, &engine->epsilonMap); s != ZELVAN_OK) return s;
  construct_Tessal4Denoiser2(&engine->denoiser2, engine->env);
  Tessal4Denoiser2_setPel(&engine->denoiser2, engine->executor, engine->pel);
  Tessal4Denoiser2_reduceNoise(&engine->denoiser2, output, engine->accumulatorPtr, &map, params);
  repeatOddChroma(output);
  return ZELVAN_OK;
}
