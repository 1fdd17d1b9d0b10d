#include <cstring>

#include "api/tessal4_handle.h"
#include "image/image_if.h"
#include "parallel/syscall.h"
#include "pixels/image_func.h"

namespace {

constexpr int32_t kPoolThreads = 64;
constexpr int32_t kPoolCapacity = 64;
constexpr uint32_t kClosed = TESSAL4_DONE | TESSAL4_STOPPED;  // no more frames, and no merge

Status flagsStatus(const zelvan_Tessaline4* handle, uint32_t mask, uint32_t wanted) {
  return (handle->pointer->stateFlags & mask) == wanted ? ZELVAN_OK : ZELVAN_ERROR_STATE;
}

// Both pools, by the core setting. A pool that cannot be had is no error: its work then runs in the caller.
void startPools(Tessal4Handle* self) {
  ParallelExecutor* executor = &self->executor;
  executor->threadCount = self->coreCount;
  executor->callerWorks = 0;
  executor->pin = self->corePin;
  executor->processorMask = self->coreMask;
  const bool forks = ParallelExecutor_init(executor, kPoolThreads, kPoolCapacity) == ZELVAN_OK;
  Tessal4_setParallelExecutor(&self->engine, forks ? executor : nullptr);

  Pel* pel = &self->pel;
  constexpr int32_t kMostWorkers = kPelThreads + 1;  // the caller is one of them
  int32_t workers = self->coreCount;
  if (workers < 1) workers = Syscall_getNumberOfProcessors(&self->env);
  pel->requested.numberOfWorkers = workers < kMostWorkers ? workers : kMostWorkers;
  pel->requested.affinityMask = self->coreMask;
  pel->requested.pinWorkers = 1;
  self->engine.pel = Pel_init(pel) == ZELVAN_OK ? pel : nullptr;
}

Status initEngine(Tessal4Handle* self) {
  if (self->fineMode != 0) return startFine(self);
  Status status = Tessal4_init(&self->engine, self->width, self->height, self->frameCount, &self->params);
  status |= Tessal4_clean(&self->engine);
  status |= Tessal4_setOutput(&self->engine, &self->output);
  return status;
}

template <typename Data>
Status start(zelvan_Tessaline4* handle, Data* output, int32_t frameCount, Status (*initOutput)(Tessal4Handle*, Data*)) {
  if (handle == nullptr || output == nullptr || handle->pointer == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status s = flagsStatus(handle, TESSAL4_EXISTS | TESSAL4_OPEN, TESSAL4_EXISTS); s != ZELVAN_OK) return s;
  if (frameCount < 1 || frameCount > kMaxFrames) return ZELVAN_ERROR_PARAM;
  Tessal4Handle* self = handle->pointer;
  self->frameCount = frameCount;
  if (self->mergeCount > frameCount) self->mergeCount = frameCount;
  self->width = output->width;
  self->height = output->height;
  if (self->imageFormat < 0) self->imageFormat = IMAGE_YVU420_SEMIPLANAR;
  self->addedCount = 0;
  self->progressPercent = 0;
  Status status = initOutput(self, output);
  startPools(self);
  zelvan_Tessaline4_setInternalParameter(handle);
  status |= initEngine(self);
  self->stateFlags |= TESSAL4_OPEN;
  return status;
}

template <typename Data>
Status addImage(zelvan_Tessaline4* handle, Data* frame, Status (*initFrame)(zelvan_Tessaline4*, Image*, Data*)) {
  if (handle == nullptr || frame == nullptr || handle->pointer == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status s = flagsStatus(handle, TESSAL4_OPEN | kClosed, TESSAL4_OPEN); s != ZELVAN_OK) return s;
  Tessal4Handle* self = handle->pointer;
  if (self->addedCount >= self->frameCount) return ZELVAN_ERROR_PARAM;
  const int32_t slot = self->addedCount;
  Image* image = &self->frames[slot];
  destruct_Image(image);  // a record that is refused must not leave the pixels of a burst before
  construct_Image(image, &self->env);
  Status status = initFrame(handle, image, frame);
  if (image->plane0 == nullptr || image->plane1 == nullptr) {  // the working formats have two planes
    status |= ZELVAN_ERROR_PARAM;
  } else {
    // gain, gamma and gammaOffset stand side by side in the parameters.
    const double curve[3] = {self->params.gain, self->params.gamma, self->params.gammaOffset};
    if (curve[0] > 0.0) Tessal4ImageFunc_gamma(self->engine.executor, image, image, curve);
    status |=
        self->fineMode != 0 ? fine::addFrame(&self->fine, *image, slot) : Tessal4_setImage(&self->engine, image, slot);
  }
  ++self->addedCount;
  self->stateFlags |= TESSAL4_FILLED;
  return status | tellProgress(self, PERCENT_TAKEN * self->addedCount / self->frameCount);
}

// Ranks, solves and merges; later steps run even if an earlier one failed, but not after a stop.
Status mergeBurst(Tessal4Handle* self) {
  if (const Status s = tellProgress(self, PERCENT_TAKEN); s != ZELVAN_OK) return s;
  if (self->fineMode != 0) {
    const Status status = mergeFine(self);
    return status | tellProgress(self, PERCENT_ALIGNED);  // the pixels are merged as the result is rendered
  }
  int32_t order[kTessal4Frames];
  int32_t scores[kTessal4Frames] = {};
  for (int32_t i = 0; i < kTessal4Frames; ++i) order[i] = i;
  Status status = Tessal4_getRecommendedOrder(&self->engine, order, scores);
  std::memcpy(self->order, order, sizeof(self->order));
  std::memcpy(self->scores, scores, sizeof(self->scores));
  status |= Tessal4_solve(&self->engine, order[0]);
  if (const Status s = tellProgress(self, PERCENT_ALIGNED); s != ZELVAN_OK) return status | s;
  status |= Tessal4_merge(&self->engine, self->frames, order, self->mergeCount);
  return status | tellProgress(self, PERCENT_MERGED);
}

// Makes a packed buffer read as a semi-planar image: its chroma lies behind its luma.
void derivePlane1(const Tessal4Handle* self, zelvan_ImageData* data) {
  data->plane1 = static_cast<uint8_t*>(data->plane0) + Image_getSize(data->width, data->height, self->imageFormat, 2);
}

Status enhanceBurst(Tessal4Handle* self) {
  return self->fineMode != 0 ? enhanceFine(self) : Tessal4_noiseReduction(&self->engine);
}

bool isStopped(const Tessal4Handle* self) {
  return (self->stateFlags & TESSAL4_STOPPED) != 0;
}

// Of a whole picture only: a caller that waits for the end must not be told of one that failed. Too late for a stop.
void tellWhole(Tessal4Handle* self, Status status) {
  if (status != ZELVAN_OK) return;
  tellProgress(self, PERCENT_WHOLE);
  self->stateFlags &= ~uint32_t{TESSAL4_STOPPED};
}

bool isWrapped(const Tessal4Handle* self) {
  return self->wrappedFormat == IMAGE_YUV422_YUYV || self->wrappedFormat == IMAGE_YUV420_PLANAR;
}

}  // namespace

Status zelvan_Tessaline4_start(zelvan_Tessaline4* handle, zelvan_ImageData* output, int32_t frameCount) {
  return start<zelvan_ImageData>(handle, output, frameCount, [](Tessal4Handle* self, zelvan_ImageData* data) {
    if (self->wrappedFormat == IMAGE_YUV422_YUYV) {
      if (data->plane0 == nullptr) return ZELVAN_ERROR_PARAM;
      derivePlane1(self, data);
    }
    return IF_initImage(&self->output, data, self->imageFormat);
  });
}

Status zelvan_Tessaline4_startEx(zelvan_Tessaline4* handle, zelvan_ImageDataEx* output, int32_t frameCount) {
  return start<zelvan_ImageDataEx>(handle, output, frameCount, [](Tessal4Handle* self, zelvan_ImageDataEx* data) {
    return IF_initImageEx(&self->output, data, self->imageFormat);
  });
}

Status zelvan_Tessaline4_addImage(zelvan_Tessaline4* handle, zelvan_ImageData* frame) {
  return addImage<zelvan_ImageData>(handle, frame, [](zelvan_Tessaline4* h, Image* image, zelvan_ImageData* data) {
    const Tessal4Handle* self = h->pointer;
    if (isWrapped(self)) zelvan_Tessaline4_convertInput(h, data, self->wrappedFormat, IMAGE_YUV420_SEMIPLANAR);
    // A refused conversion shows in the picture alone. It leaves the record as it came, and what a packed one says of
    // its second plane means nothing.
    zelvan_ImageData record = *data;
    if (self->wrappedFormat == IMAGE_YUV422_YUYV && record.plane0 != nullptr) derivePlane1(self, &record);
    return IF_initImage(image, &record, self->imageFormat);
  });
}

Status zelvan_Tessaline4_addImageEx(zelvan_Tessaline4* handle, zelvan_ImageDataEx* frame) {
  return addImage<zelvan_ImageDataEx>(handle, frame, [](zelvan_Tessaline4* h, Image* image, zelvan_ImageDataEx* data) {
    return IF_initImageEx(image, data, h->pointer->imageFormat);
  });
}

Status zelvan_Tessaline4_getResult(zelvan_Tessaline4* handle) {
  if (handle == nullptr || handle->pointer == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status s = flagsStatus(handle, TESSAL4_FILLED | kClosed, TESSAL4_FILLED); s != ZELVAN_OK) return s;
  Tessal4Handle* self = handle->pointer;
  Status status = mergeBurst(self);
  if (isStopped(self)) return status;
  status |= enhanceBurst(self);
  status |= tellProgress(self, PERCENT_ENHANCED);
  if (isStopped(self)) return status;
  if (self->weakUvNrParams.enable != 0 && self->fineMode == 0) {
    for (int32_t i = 0; i < self->weakUvNrTimes; ++i) {
      if (const Status s = zelvan_Tessaline4Internal_weakUvNr(&self->engine, &self->output, &self->output, nullptr,
                                                              &self->weakUvNrParams);
          s != ZELVAN_OK) {
        return status | s;
      }
    }
  }
  if (isWrapped(self)) {
    zelvan_Tessaline4_convertOutput(handle, &self->output, self->imageFormat, self->wrappedFormat);
  }
  self->stateFlags |= TESSAL4_DONE;
  tellWhole(self, status);
  return status;
}

Status zelvan_Tessaline4_merge(zelvan_Tessaline4* handle) {
  if (handle == nullptr || handle->pointer == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status s = flagsStatus(handle, TESSAL4_FILLED | kClosed, TESSAL4_FILLED); s != ZELVAN_OK) return s;
  const Status status = mergeBurst(handle->pointer);
  if (!isStopped(handle->pointer)) handle->pointer->stateFlags |= TESSAL4_DONE;
  return status;
}

Status zelvan_Tessaline4_enhance(zelvan_Tessaline4* handle) {
  if (handle == nullptr || handle->pointer == nullptr) return ZELVAN_ERROR_PARAM;
  constexpr uint32_t kMerged = TESSAL4_FILLED | TESSAL4_DONE;
  if (const Status s = flagsStatus(handle, kMerged, kMerged); s != ZELVAN_OK) return s;
  const Status status = enhanceBurst(handle->pointer);
  tellWhole(handle->pointer, status);
  return status;
}

Status zelvan_Tessaline4_reset(zelvan_Tessaline4* handle) {
  if (handle == nullptr || handle->pointer == nullptr) return ZELVAN_ERROR_PARAM;
  if (const Status s = flagsStatus(handle, TESSAL4_OPEN, TESSAL4_OPEN); s != ZELVAN_OK) return s;
  Tessal4Handle* self = handle->pointer;
  Tessal4* engine = &self->engine;
  ParallelExecutor* executor = engine->executor;
  Pel* pel = engine->pel;
  // The strength tables are this instance's for good: the engine is rebuilt round them.
  uint8_t tables[2][sizeof(engine->epsilonTable)];
  std::memcpy(tables[0], engine->epsilonTable, sizeof(tables[0]));
  std::memcpy(tables[1], engine->uvThresholdTable, sizeof(tables[1]));
  const float epsilonScale = engine->epsilonScale;
  self->addedCount = 0;
  self->progressPercent = 0;
  fine::release(&self->fine);
  Status status = destruct_Tessal4(engine);
  status |= construct_Tessal4(engine, &self->env);
  std::memcpy(engine->epsilonTable, tables[0], sizeof(tables[0]));
  std::memcpy(engine->uvThresholdTable, tables[1], sizeof(tables[1]));
  engine->epsilonScale = epsilonScale;
  status |= Tessal4_setParallelExecutor(engine, executor);
  engine->pel = pel;
  status |= initEngine(self);
  self->stateFlags = TESSAL4_EXISTS | TESSAL4_OPEN;
  return status;
}
