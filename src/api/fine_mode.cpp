#include <algorithm>

#include "api/tessal4_handle.h"
#include "base/raw_double.h"

namespace {

double root(double v) {
  return v > 0.0 ? RawDouble_sqrt(v) : 0.0;
}

// The public levels in the terms of the fine road. Level k of a denoiser is about as strong as on the exact road; what
// nobody has set is chosen by the noise.
fine::Settings fineSettings(const Tessal4Handle* self) {
  const Tessal4Params& params = self->params;
  fine::Settings s = {};
  s.mergeCount = self->mergeCount;
  s.sorting = self->autoSorting;
  s.scaling = self->autoScaling;
  s.strictness = root(params.objBlurCorrection / 0.4);
  s.lumaStrength = fine::kUsualLumaStrength;
  if (self->lumaNrLevel >= 0 || self->lumaNrLevelPercent > 0) s.lumaStrength = 0.35 * root(params.lumaNrLevelPercent);
  s.chromaStrength = fine::kUsualChromaStrength;
  if (self->chromaNrLevel >= 0 || self->chromaNrTimes > 0) {
    s.chromaStrength = params.chromaNrTimes > 0 ? 0.45 * root(params.chromaNrStrength) : 0.0;
  }
  s.lumaStrength = std::min(s.lumaStrength, 8.0);
  s.chromaStrength = std::min(s.chromaStrength, 8.0);
  s.sharpen = 1.0;
  s.saturation = params.saturation;
  s.spikeLevel = params.removeSpikeLevel;
  s.sharpnessLevel = self->sharpnessGiven != 0 ? params.sharpnessLevel : 0;
  s.sharpnessSigmas[0] = params.sharpnessSigma1;
  s.sharpnessSigmas[1] = params.sharpnessSigma2;
  s.sharpnessCoring = params.sharpnessExtra;
  return s;
}

Status fineStatus(const zelvan_Tessaline4* handle) {
  const Tessal4Handle* self = handle->pointer;
  return (self->stateFlags & TESSAL4_DONE) != 0 && self->fineMode != 0 && self->fine.mapLuma.plane0 != nullptr
             ? ZELVAN_OK
             : ZELVAN_ERROR_STATE;
}

}  // namespace

Status startFine(Tessal4Handle* self) {
  if (self->output.plane0 == nullptr) return ZELVAN_ERROR_PARAM;
  fine::init(&self->fine, self->engine.pel, self->width, self->height, self->frameCount, fineSettings(self));
  return ZELVAN_OK;
}

Status mergeFine(Tessal4Handle* self) {
  const Status status = fine::align(&self->fine);
  Tessal4* engine = &self->engine;
  int32_t last = self->fine.ranked;
  for (int32_t i = 0; i < self->frameCount; ++i) {
    const fine::FrameRecord& frame = self->fine.frames[i];
    const bool ranked = i < self->fine.added && frame.pyramid.count > 0;
    if (!ranked) {  // behind those that are
      self->order[last] = i;
      self->scores[last] = 0;
      ++last;
    }
    engine->mergeStatus[i] = ranked ? static_cast<int32_t>(frame.status) : int32_t{TESSAL4_NOT_USED};
    engine->trackFailure[i] = frame.alignment.verdict;
    engine->motions[i] = fine::resultMotion(self->fine, i);
  }
  for (int32_t k = 0; k < self->fine.ranked; ++k) {
    self->order[k] = self->fine.order[k];
    self->scores[k] = self->fine.frames[self->order[k]].score;
  }
  return status;
}

Status enhanceFine(Tessal4Handle* self) {
  if (self->fine.left.plane0 == nullptr) return ZELVAN_ERROR_STATE;  // the merge failed
  return fine::render(&self->fine, self->engine.executor, &self->output);
}

Status zelvan_Tessaline4_getFineInfo(zelvan_Tessaline4* handle, zelvan_FineInfo* info) {
  if (handle == nullptr || info == nullptr || handle->pointer == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status s = fineStatus(handle); s != ZELVAN_OK) return s;
  const fine::Burst& burst = handle->pointer->fine;
  for (int32_t c = 0; c < 3; ++c) info->noise[c] = static_cast<double>(burst.noise.level[c]);
  info->lumaStrength = burst.settings.lumaStrength;
  info->chromaStrength = burst.settings.chromaStrength;
  info->mapWidth = burst.mapLuma.width;
  info->mapHeight = burst.mapLuma.height;
  return ZELVAN_OK;
}

Status zelvan_Tessaline4_getFineFrameInfo(zelvan_Tessaline4* handle, int32_t index, zelvan_FineFrameInfo* info) {
  if (handle == nullptr || info == nullptr || handle->pointer == nullptr || index < 0) return ZELVAN_ERROR_PARAM;
  if (const Status s = fineStatus(handle); s != ZELVAN_OK) return s;
  const fine::Burst& burst = handle->pointer->fine;
  if (index >= burst.added) return ZELVAN_ERROR_PARAM;
  const fine::FrameRecord& frame = burst.frames[index];
  info->residual = frame.alignment.unexplained;
  info->cornerSigma = frame.alignment.quality.cornerSigma;
  info->share = frame.status == fine::MERGED ? static_cast<double>(frame.share) : 0.0;
  return ZELVAN_OK;
}

Status zelvan_Tessaline4_getFineMap(zelvan_Tessaline4* handle, int32_t index, uint8_t* map) {
  if (handle == nullptr || map == nullptr || handle->pointer == nullptr || index < -1) return ZELVAN_ERROR_PARAM;
  if (const Status s = fineStatus(handle); s != ZELVAN_OK) return s;
  const fine::Burst& burst = handle->pointer->fine;
  if (index >= burst.added) return ZELVAN_ERROR_PARAM;
  fine::copyMap(burst, index, map);
  return ZELVAN_OK;
}
