#include <cstring>

#include "api/tessal4_handle.h"
#include "base/integer.h"

namespace {

struct LevelPreset {
  double objBlurCorrection;
  int32_t lumaNrLevelPercent;
  double chromaNrStrength;
  int32_t chromaNrTimes;
};

constexpr LevelPreset kLevels[] = {
    {0.0, 0, 0.0, 0},   {0.4, 5, 10.0, 1},   {0.8, 10, 20.0, 1},  {1.2, 15, 50.0, 1},
    {1.5, 25, 80.0, 1}, {2.0, 40, 100.0, 2}, {3.0, 60, 150.0, 2}, {5.0, 100, 200.0, 3},
};
constexpr uint32_t kMaxLevel = 7;
constexpr uint32_t kAnyValue = 0xFFFFFFFFu;

// Setters are open between initialize and start.
Status setterStatus(const zelvan_Tessaline4* handle) {
  if (handle == nullptr || handle->pointer == nullptr) return ZELVAN_ERROR_PARAM;
  const uint32_t flags = handle->pointer->stateFlags;
  return (flags & (TESSAL4_EXISTS | TESSAL4_OPEN)) == TESSAL4_EXISTS ? ZELVAN_OK : ZELVAN_ERROR_STATE;
}

// Getters and the strength tables are open as long as the instance exists.
Status existsStatus(const zelvan_Tessaline4* handle, const void* out) {
  if (handle == nullptr || out == nullptr || handle->pointer == nullptr) return ZELVAN_ERROR_PARAM;
  return (handle->pointer->stateFlags & TESSAL4_EXISTS) != 0 ? ZELVAN_OK : ZELVAN_ERROR_STATE;
}

// The value is compared unsigned: a negative one is too large.
Status setInt(zelvan_Tessaline4* handle, int32_t Tessal4Handle::*field, int32_t value, uint32_t most = kAnyValue) {
  if (const Status s = setterStatus(handle); s != ZELVAN_OK) return s;
  if (static_cast<uint32_t>(value) > most) return ZELVAN_ERROR_PARAM;
  handle->pointer->*field = value;
  return ZELVAN_OK;
}

Status setDouble(zelvan_Tessaline4* handle, double Tessal4Handle::*field, double value) {
  if (const Status s = setterStatus(handle); s != ZELVAN_OK) return s;
  handle->pointer->*field = value;
  return ZELVAN_OK;
}

template <typename T>
Status getField(const zelvan_Tessaline4* handle, T Tessal4Handle::*field, T* out) {
  if (const Status s = existsStatus(handle, out); s != ZELVAN_OK) return s;
  *out = handle->pointer->*field;
  return ZELVAN_OK;
}

Status getLevel(const zelvan_Tessaline4* handle, int32_t Tessal4Handle::*field, int32_t unset, int32_t* out) {
  const Status status = getField(handle, field, out);
  if (status == ZELVAN_OK && *out < 0) *out = unset;
  return status;
}

// Items 0 to n over the start of a strength table.
template <typename T>
Status setAnchors(zelvan_Tessaline4* handle, T (Tessal4Handle::*field)[kStrengthAnchors], const T* values, int32_t n) {
  if (const Status s = existsStatus(handle, values); s != ZELVAN_OK) return s;
  if (n >= kStrengthAnchors) return ZELVAN_ERROR_PARAM;
  for (int32_t k = 0; k <= n; ++k) (handle->pointer->*field)[k] = values[k];
  return ZELVAN_OK;
}

}  // namespace

Status zelvan_Tessaline4_setImageFormat(zelvan_Tessaline4* handle, const char* format) {
  if (const Status s = setterStatus(handle); s != ZELVAN_OK) return s;
  Tessal4Handle* self = handle->pointer;
  const int32_t id = Image_getImageFormat(format);
  switch (id) {
    case IMAGE_YUV422_YUYV:
    case IMAGE_YUV420_PLANAR:
      self->imageFormat = IMAGE_YUV420_SEMIPLANAR;
      self->wrappedFormat = id;
      return ZELVAN_OK;
    case IMAGE_YUV420_SEMIPLANAR:
    case IMAGE_YVU420_SEMIPLANAR:
      self->imageFormat = id;
      self->wrappedFormat = -1;
      return ZELVAN_OK;
    default:
      return ZELVAN_ERROR_UNSUPPORTED;
  }
}

Status zelvan_Tessaline4_getImageFormat(zelvan_Tessaline4* handle, char* text, int32_t size) {
  if (const Status s = existsStatus(handle, text); s != ZELVAN_OK) return s;
  const char* name = Image_getImageFormatStr(handle->pointer->output.format);
  const size_t room = size < 2 ? 0 : static_cast<size_t>(size - 1);
  const size_t length = std::strlen(name) < room ? std::strlen(name) : room;
  std::memcpy(text, name, length);
  text[length] = '\0';
  return ZELVAN_OK;
}

Status zelvan_Tessaline4_setNumberOfMergeImages(zelvan_Tessaline4* handle, int32_t count) {
  return setInt(handle, &Tessal4Handle::mergeCount, count);
}
Status zelvan_Tessaline4_getNumberOfMergeImages(zelvan_Tessaline4* handle, int32_t* count) {
  return getField(handle, &Tessal4Handle::mergeCount, count);
}

Status zelvan_Tessaline4_setCoreSetting(zelvan_Tessaline4* handle, int32_t threads, uint32_t mask) {
  if (const Status s = setterStatus(handle); s != ZELVAN_OK) return s;
  Tessal4Handle* self = handle->pointer;
  self->coreCount = threads;
  self->coreMask = mask;
  if (mask != 0) self->corePin = 1;
  return ZELVAN_OK;
}
Status zelvan_Tessaline4_getCoreSetting(zelvan_Tessaline4* handle, int32_t* threads, uint32_t* mask) {
  if (mask == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status s = existsStatus(handle, threads); s != ZELVAN_OK) return s;
  *threads = handle->pointer->coreCount;
  *mask = handle->pointer->coreMask;
  return ZELVAN_OK;
}

Status zelvan_Tessaline4_setAutoScaling(zelvan_Tessaline4* handle, int32_t flag) {
  return setInt(handle, &Tessal4Handle::autoScaling, flag != 0);
}
Status zelvan_Tessaline4_getAutoScaling(zelvan_Tessaline4* handle, int32_t* flag) {
  const Status status = getField(handle, &Tessal4Handle::autoScaling, flag);
  if (status == ZELVAN_OK) *flag = *flag == 1;
  return status;
}

Status zelvan_Tessaline4_setAutoSorting(zelvan_Tessaline4* handle, int32_t flag) {
  return setInt(handle, &Tessal4Handle::autoSorting, flag != 0);
}
Status zelvan_Tessaline4_getAutoSorting(zelvan_Tessaline4* handle, int32_t* flag) {
  const Status status = getField(handle, &Tessal4Handle::autoSorting, flag);
  if (status == ZELVAN_OK) *flag = *flag != 0;
  return status;
}

Status zelvan_Tessaline4_setObjBlurCorrectionLevel(zelvan_Tessaline4* handle, int32_t level) {
  return setInt(handle, &Tessal4Handle::objBlurLevel, level, kMaxLevel);
}
Status zelvan_Tessaline4_getObjBlurCorrectionLevel(zelvan_Tessaline4* handle, int32_t* level) {
  return getLevel(handle, &Tessal4Handle::objBlurLevel, 1, level);
}

Status zelvan_Tessaline4_setLumaNoiseReductionLevel(zelvan_Tessaline4* handle, int32_t level) {
  return setInt(handle, &Tessal4Handle::lumaNrLevel, level, kMaxLevel);
}
Status zelvan_Tessaline4_getLumaNoiseReductionLevel(zelvan_Tessaline4* handle, int32_t* level) {
  return getLevel(handle, &Tessal4Handle::lumaNrLevel, 0, level);
}

Status zelvan_Tessaline4_setChromaNoiseReductionLevel(zelvan_Tessaline4* handle, int32_t level) {
  return setInt(handle, &Tessal4Handle::chromaNrLevel, level, kMaxLevel);
}
Status zelvan_Tessaline4_getChromaNoiseReductionLevel(zelvan_Tessaline4* handle, int32_t* level) {
  return getLevel(handle, &Tessal4Handle::chromaNrLevel, 0, level);
}

Status zelvan_Tessaline4_setSaturationLevel(zelvan_Tessaline4* handle, int32_t level) {
  return setInt(handle, &Tessal4Handle::saturationLevel, level, 4096);
}
Status zelvan_Tessaline4_getSaturationLevel(zelvan_Tessaline4* handle, int32_t* level) {
  return getField(handle, &Tessal4Handle::saturationLevel, level);
}

Status zelvan_Tessaline4_setGain(zelvan_Tessaline4* handle, int32_t percent) {
  return setInt(handle, &Tessal4Handle::gain, percent, 1000);
}
Status zelvan_Tessaline4_getGain(zelvan_Tessaline4* handle, int32_t* percent) {
  return getField(handle, &Tessal4Handle::gain, percent);
}

Status zelvan_Tessaline4_setGamma(zelvan_Tessaline4* handle, int32_t percent) {
  return setInt(handle, &Tessal4Handle::gamma, percent, 1000);
}
Status zelvan_Tessaline4_getGamma(zelvan_Tessaline4* handle, int32_t* percent) {
  return getField(handle, &Tessal4Handle::gamma, percent);
}

Status zelvan_Tessaline4_setContrast(zelvan_Tessaline4* handle, int32_t value) {
  return setInt(handle, &Tessal4Handle::contrast, value, 2000);
}
Status zelvan_Tessaline4_getContrast(zelvan_Tessaline4* handle, int32_t* value) {
  return getField(handle, &Tessal4Handle::contrast, value);
}

Status zelvan_Tessaline4_setSharpnessEnhanceLevel(zelvan_Tessaline4* handle, int32_t level) {
  const Status status = setInt(handle, &Tessal4Handle::sharpnessLevel, level, 10000);
  if (status == ZELVAN_OK) handle->pointer->sharpnessGiven = 1;
  return status;
}
Status zelvan_Tessaline4_getSharpnessEnhanceLevel(zelvan_Tessaline4* handle, int32_t* level) {
  return getField(handle, &Tessal4Handle::sharpnessLevel, level);
}

Status zelvan_Tessaline4_setFineMode(zelvan_Tessaline4* handle, int32_t mode) {
  return setInt(handle, &Tessal4Handle::fineMode, mode, 1);
}
Status zelvan_Tessaline4_getFineMode(zelvan_Tessaline4* handle, int32_t* mode) {
  return getField(handle, &Tessal4Handle::fineMode, mode);
}

Status zelvan_Tessaline4_setObjBlurCorrectionLevel_internal(zelvan_Tessaline4* handle, double value) {
  return setDouble(handle, &Tessal4Handle::objBlurCorrection, value);
}
Status zelvan_Tessaline4_getObjBlurCorrectionLevel_internal(zelvan_Tessaline4* handle, double* value) {
  return getField(handle, &Tessal4Handle::objBlurCorrection, value);
}

Status zelvan_Tessaline4_setLumaNoiseReductionLevel_internal(zelvan_Tessaline4* handle, double percent) {
  if (const Status s = setterStatus(handle); s != ZELVAN_OK) return s;
  if (!(percent >= 0.0 && percent <= 1000.0)) return ZELVAN_ERROR_PARAM;
  handle->pointer->lumaNrLevelPercent = truncToInt32(percent);
  return ZELVAN_OK;
}
Status zelvan_Tessaline4_getLumaNoiseReductionLevel_internal(zelvan_Tessaline4* handle, double* percent) {
  if (const Status s = existsStatus(handle, percent); s != ZELVAN_OK) return s;
  *percent = handle->pointer->lumaNrLevelPercent;
  return ZELVAN_OK;
}

Status zelvan_Tessaline4_setChromaNoiseReductionLevel_internal(zelvan_Tessaline4* handle, double value) {
  return setDouble(handle, &Tessal4Handle::chromaNrStrength, value);
}
Status zelvan_Tessaline4_getChromaNoiseReductionLevel_internal(zelvan_Tessaline4* handle, double* value) {
  return getField(handle, &Tessal4Handle::chromaNrStrength, value);
}

Status zelvan_Tessaline4_setLumaNoiseReductionTimes_internal(zelvan_Tessaline4* handle, int32_t count) {
  return setInt(handle, &Tessal4Handle::lumaNrTimes, count);
}
Status zelvan_Tessaline4_getLumaNoiseReductionTimes_internal(zelvan_Tessaline4* handle, int32_t* count) {
  return getField(handle, &Tessal4Handle::lumaNrTimes, count);
}

Status zelvan_Tessaline4_setChromaNoiseReductionTimes_internal(zelvan_Tessaline4* handle, int32_t count) {
  return setInt(handle, &Tessal4Handle::chromaNrTimes, count);
}
Status zelvan_Tessaline4_getChromaNoiseReductionTimes_internal(zelvan_Tessaline4* handle, int32_t* count) {
  return getField(handle, &Tessal4Handle::chromaNrTimes, count);
}

Status zelvan_Tessaline4_setRemoveSpikeNoiseLevel_internal(zelvan_Tessaline4* handle, int32_t level) {
  return setInt(handle, &Tessal4Handle::removeSpikeLevel, level);
}
Status zelvan_Tessaline4_getRemoveSpikeNoiseLevel_internal(zelvan_Tessaline4* handle, int32_t* level) {
  return getField(handle, &Tessal4Handle::removeSpikeLevel, level);
}

Status zelvan_Tessaline4_setSharpnessEnhanceSigma_internal(zelvan_Tessaline4* handle, double sigma1, double sigma2) {
  if (const Status s = setterStatus(handle); s != ZELVAN_OK) return s;
  handle->pointer->sharpnessSigma1 = sigma1;
  handle->pointer->sharpnessSigma2 = sigma2;
  return ZELVAN_OK;
}
Status zelvan_Tessaline4_getSharpnessEnhanceSigma_internal(zelvan_Tessaline4* handle, double* sigma1, double* sigma2) {
  if (sigma2 == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status s = existsStatus(handle, sigma1); s != ZELVAN_OK) return s;
  *sigma1 = handle->pointer->sharpnessSigma1;
  *sigma2 = handle->pointer->sharpnessSigma2;
  return ZELVAN_OK;
}

Status zelvan_Tessaline4_setNoiseReductionLevels(zelvan_Tessaline4* handle, const float* levels, int32_t n) {
  return setAnchors(handle, &Tessal4Handle::epsilonLevels, levels, n);
}

Status zelvan_Tessaline4_setUvNoiseReductionThres(zelvan_Tessaline4* handle, const int32_t* thresholds, int32_t n) {
  return setAnchors(handle, &Tessal4Handle::uvThresholdLevels, thresholds, n);
}

Status zelvan_Tessaline4_setInternalParameter(zelvan_Tessaline4* handle) {
  if (handle == nullptr || handle->pointer == nullptr) return ZELVAN_ERROR_PARAM;
  Tessal4Handle* self = handle->pointer;
  Tessal4Params& params = self->params;
  params.keepAccumulator = 0;
  params.autoScaling = self->autoScaling;
  params.evalBlurEnable = self->autoSorting;
  params.lumaNrTimes = self->lumaNrTimes;
  params.chromaNrTimes = self->chromaNrTimes;
  params.removeSpikeLevel = self->removeSpikeLevel;
  params.saturation = self->saturationLevel;
  params.objBlurCorrection = self->objBlurCorrection;
  params.lumaNrStrength = self->lumaNrStrength;
  params.chromaNrStrength = self->chromaNrStrength;
  if (self->gain != 0 || self->gamma != 0) {
    const bool neutral = self->gain == 100 && self->gamma == 100;  // no curve at all
    params.gammaOffset = 0.0;
    params.gamma = neutral ? -1.0 : self->gamma / 100.0;
    params.gain = neutral ? -1.0 : self->gain / 100.0;
  }
  params.sharpnessLevel = self->sharpnessLevel;
  params.contrast = self->contrast;
  params.lumaNrLevelPercent = self->lumaNrLevelPercent;
  params.sharpnessSigma1 = self->sharpnessSigma1;
  params.sharpnessSigma2 = self->sharpnessSigma2;
  if (self->mergeCount == 1) {
    params.thirdNrStrength = 1.0;
    params.sharpnessMapFloor = 1.0;
  }
  // Levels are presets over the raw values, and win.
  if (self->objBlurLevel >= 0) params.objBlurCorrection = kLevels[self->objBlurLevel].objBlurCorrection;
  if (self->lumaNrLevel >= 0) {
    params.lumaNrLevelPercent = kLevels[self->lumaNrLevel].lumaNrLevelPercent;
    params.lumaNrStrength = 0.0;
    params.lumaNrTimes = 0;
  }
  if (self->chromaNrLevel >= 0) {
    params.chromaNrStrength = kLevels[self->chromaNrLevel].chromaNrStrength;
    params.chromaNrTimes = kLevels[self->chromaNrLevel].chromaNrTimes;
  }
  for (int32_t k = 1; k <= self->frameCount && k < kStrengthAnchors; ++k) {
    self->epsilonLevels[k] = self->epsilonLevels[k] * static_cast<float>(params.lumaNrLevelPercent) / 100.0f;
    self->uvThresholdLevels[k] = truncToInt32(params.chromaNrStrength * self->uvThresholdLevels[k] / 100.0);
  }
  Tessal4_setEpsilonValues(&self->engine, self->epsilonLevels, self->mergeCount);
  Tessal4_setUvnrThresholdValues(&self->engine, self->uvThresholdLevels, self->mergeCount);
  return ZELVAN_OK;
}
