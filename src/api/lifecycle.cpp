#include <cstring>
#include <initializer_list>
#include <limits>

#include "api/tessal4_handle.h"
#include "base/integer.h"

namespace {

constexpr float kEpsilonLevels[] = {0, 100, 30, 10, 5, 2, 2, 2, 2, 2, 2};
constexpr int32_t kUvThresholdLevels[] = {0, 64, 32, 16, 8, 4, 4, 4, 4, 4, 4};
// Up to here the images of a burst are counted with two bytes a pixel, beyond with three.
constexpr int64_t kLargeArea = 15872256;

void setPublicDefaults(Tessal4Handle* self) {
  const Tessal4Params& params = self->params;
  self->autoScaling = 0;
  self->autoSorting = params.evalBlurEnable;
  self->objBlurCorrection = params.objBlurCorrection;
  self->lumaNrStrength = 0.0;
  self->chromaNrStrength = params.chromaNrStrength;
  self->chromaNrTimes = params.chromaNrTimes;
  self->saturationLevel = params.saturation;
  self->gain = truncToInt32(params.gain * 100.0);
  self->gamma = truncToInt32(params.gamma * 100.0);
  self->sharpnessLevel = params.sharpnessLevel;
  self->sharpnessSigma1 = params.sharpnessSigma1;
  self->sharpnessSigma2 = params.sharpnessSigma2;
  self->lumaNrLevelPercent = params.lumaNrLevelPercent;
  self->objBlurLevel = -1;
  self->lumaNrLevel = -1;
  self->chromaNrLevel = -1;
  std::memcpy(self->epsilonLevels, kEpsilonLevels, sizeof(kEpsilonLevels));
  std::memcpy(self->uvThresholdLevels, kUvThresholdLevels, sizeof(kUvThresholdLevels));
  self->imageFormat = -1;
  self->wrappedFormat = -1;
  self->mergeCount = 11;
  self->coreCount = -1;
  self->weakUvNrParams = {1, 4, 25, 2.0f, 2.0f, 1.0f, 1.0f};
  self->weakUvNrTimes = 1;
}

}  // namespace

const char* zelvan_Tessaline4_getVersion(void) {
  return "Zelvan Tessaline Ver.4.3.0 2018/11/06 RIMO";
}

int32_t zelvan_Tessaline4_getBufferSize(int32_t width, int32_t height, int32_t frameCount, const char* format) {
  const int32_t id = Image_getImageFormat(format);
  const int32_t engine = Tessal4_getBufferSize(width, height, frameCount, id, nullptr);
  if (engine < 0) return engine;
  const int64_t area = int64_t{width} * height;
  const int64_t images = area <= kLargeArea ? 2 * area : 3 * area - kLargeArea;
  const int64_t total = images + engine + 4 * static_cast<int64_t>(imageBytes(id, width, height));
  return total <= std::numeric_limits<int32_t>::max() ? static_cast<int32_t>(total) : -1;
}

Status zelvan_Tessaline4_initialize(zelvan_Tessaline4* handle, void* buffer, int32_t bufferSize, int32_t width,
                                    int32_t height) {
  if (handle == nullptr || buffer == nullptr || bufferSize < 1) return ZELVAN_ERROR_PARAM;
  if ((width > height ? width : height) < 640 || (width < height ? width : height) < 480) return ZELVAN_ERROR_PARAM;
  handle->pointer = nullptr;
  // A buffer that is not aligned for the record loses its first bytes.
  const uintptr_t skew = -reinterpret_cast<uintptr_t>(buffer) & (alignof(Tessal4Handle) - 1);
  const int64_t size = int64_t{bufferSize} - static_cast<int64_t>(skew);
  if (size < static_cast<int64_t>(sizeof(Tessal4Handle))) return ZELVAN_ERROR_RESOURCE;
  auto* self = reinterpret_cast<Tessal4Handle*>(static_cast<uint8_t*>(buffer) + skew);
  std::memset(static_cast<void*>(self), 0, sizeof(*self));
  Env* env = &self->env;
  Status status = construct_Env(env, self + 1, static_cast<uint32_t>(size - sizeof(*self)));
  if (isFailure(status)) return ZELVAN_ERROR_RESOURCE;
  status |= construct_Tessal4(&self->engine, env);
  status |= Tessal4Params_setDefault(&self->params, width, height);
  setPublicDefaults(self);
  for (Image& frame : self->frames) status |= construct_Image(&frame, env);
  for (Image* image : {&self->convertDst, &self->convertSrc, &self->output}) status |= construct_Image(image, env);
  status |= construct_ParallelExecutor(&self->executor, env);
  self->executor.threadCount = -1;
  self->executor.processorMask = 0;
  self->executor.pin = 0;
  status |= construct_Pel(&self->pel, env);
  fine::construct(&self->fine, env);
  handle->pointer = self;
  self->stateFlags = TESSAL4_EXISTS;
  return status;
}

Status zelvan_Tessaline4_finalize(zelvan_Tessaline4* handle) {
  if (handle == nullptr || handle->pointer == nullptr) return ZELVAN_ERROR_PARAM;
  Tessal4Handle* self = handle->pointer;
  if ((self->stateFlags & TESSAL4_EXISTS) == 0) return ZELVAN_ERROR_STATE;
  fine::release(&self->fine);
  destruct_Tessal4(&self->engine);
  destruct_Pel(&self->pel);
  destruct_ParallelExecutor(&self->executor);
  for (Image& frame : self->frames) destruct_Image(&frame);
  for (Image* image : {&self->convertDst, &self->convertSrc, &self->output}) destruct_Image(image);
  const Status status = destruct_Env(&self->env);
  if (isFailure(status)) return ZELVAN_ERROR_RESOURCE;
  std::memset(static_cast<void*>(self), 0, sizeof(*self));
  if (status != ZELVAN_OK) return ZELVAN_ERROR_RESOURCE;
  handle->pointer = nullptr;
  return ZELVAN_OK;
}

Status zelvan_Tessaline4_getMergeStatus(zelvan_Tessaline4* handle, int32_t* status, int32_t index) {
  if (handle == nullptr || status == nullptr || index < 0 || handle->pointer == nullptr) return ZELVAN_ERROR_PARAM;
  const Tessal4Handle* self = handle->pointer;
  if (index > self->mergeCount) return ZELVAN_ERROR_PARAM;
  if ((self->stateFlags & TESSAL4_DONE) == 0) return ZELVAN_ERROR_STATE;
  *status = self->engine.mergeStatus[index];
  return ZELVAN_OK;
}
