#include <cstring>
#include <initializer_list>
#include <limits>

#include "base/integer.h"
#include "engine/tessal4_impl.h"
#include "imageproc/resize.h"

namespace {

constexpr double kCropMargin = 8.0;
constexpr int32_t kArenaSlack = 4194304;
constexpr int64_t kMostBytes = std::numeric_limits<int32_t>::max();
constexpr int32_t kTooLarge = -1;

// Calls visit for every Image member but the stored small frames.
template <typename Visit>
void forEachImage(Tessal4* engine, const Visit& visit) {
  for (Image* image : {&engine->resultView, &engine->spareImages[0], &engine->spareImages[1], &engine->accumulator,
                       &engine->lumaView, &engine->chromaView, &engine->uvThresholdMap, &engine->epsilonMap,
                       &engine->compareImages[0], &engine->compareImages[1], &engine->warped, &engine->accWeight,
                       &engine->spareMap, &engine->diffMap, &engine->lumaCorrection, &engine->spareCorrection}) {
    visit(image);
  }
}

}  // namespace

Status Tessal4Params_setDefault(Tessal4Params* params, int32_t width, int32_t height) {
  if (params == nullptr) return ZELVAN_ERROR_GENERAL;
  int32_t level = 0;
  for (int32_t k = 1; k <= 4; ++k) {
    if ((width >> k) < 640 && (height >> k) < 480) break;
    level = k;
  }
  *params = Tessal4Params{
      .diffWeightMode = 0,
      .saturation = 1024,
      .objBlurCorrection = 0.4,
      .chromaCoring = 0,
      .contrast = 0,
      .lumaNrStrength = 4.0,
      .chromaNrStrength = 4.0,
      .thirdNrStrength = 4.0,
      .lumaNrTimes = 0,
      .denoiserKinds = {0, 1, 1},
      .denoiserCentreWeight = 3,
      .chromaNrTimes = 0,
      .sharpnessLevel = 900,
      .removeSpikeLevel = 0,
      .sharpnessSigma1 = 0.2,
      .sharpnessSigma2 = 0.8,
      .sharpnessMapFloor = 0.4,
      .sharpnessExtra = 0.0,
      .gain = 1.0,
      .gamma = 1.0,
      .gammaOffset = 0.0,
      .evalBlurEnable = 1,
      .evalBlurSigma = 0.7,
      .bindOutput = 0,
      .lumaCorrectionMode = 0,
      .keepAccumulator = 1,
      .autoScaling = 1,
      .keepMotionUncropped = 0,
      .storeShrinkLevel = level,
      .trackShrinkLevel = level,
      .workDivisor = 1 << level,
      .preBlurSigma = 8.0,
      .minOverlapPercent = 95,
      .maxGhostPercent = 15,
      .blurRatio = 0.85,
      .softBlurWeight = 0,
      .outputScale = 1.0,
      .outputWidth = -1,
      .outputHeight = -1,
      .lumaNrLevelPercent = 0,
  };
  return ZELVAN_OK;
}

int32_t Tessal4_getBufferSize(int32_t width, int32_t height, int32_t frameCount, int32_t format,
                              const Tessal4Params* params) {
  // The sum is more than twice the area. Up to here no term of it can overflow, those in 32 bits neither.
  const int64_t area = int64_t{width} * height;
  if (width < 0 || height < 0 || area > kMostBytes / 2) return kTooLarge;
  Tessal4Params defaults;
  if (params == nullptr) {
    Tessal4Params_setDefault(&defaults, width, height);
    params = &defaults;
  }
  const auto frame = static_cast<int64_t>(imageBytes(format, width, height));
  const bool holdsFrame = params->autoScaling != 0 || params->keepAccumulator == 0;
  const int64_t keep = (holdsFrame ? frame : 0) + kArenaSlack;
  const int64_t stored = frame >> (2 * params->storeShrinkLevel);
  if (frameCount > 0 && stored > kMostBytes / frameCount) return kTooLarge;
  const int64_t frames = frameCount > 0 ? frameCount : 0;

  int32_t workWidth = 0;
  int32_t workHeight = 0;
  const int32_t divisor = params->workDivisor > 0 ? params->workDivisor : 1;
  ImageProc_getSizeArea(&workWidth, &workHeight, width, height, static_cast<int32_t>(area / divisor / divisor));
  workWidth = evenDown(workWidth);
  workHeight = evenDown(workHeight);
  const int64_t work = int64_t{workWidth} * workHeight;
  const int64_t stretched = int64_t{workHeight} * width;
  const int64_t merge = 3 * work + frames * stored + (frame >> 2) + work + stretched +
                        2 * ((area >> (2 * params->trackShrinkLevel)) + stretched) + 2048;

  const int64_t rest = keep + int64_t{width} * 1280 + 2048;
  const int64_t maps = area + int64_t{width > height ? width : height} * 640;
  if (maps + rest > kMostBytes) return kTooLarge;
  GuidedFilterParam guided;
  GuidedFilterParam_setDefault(&guided);
  const int64_t filter = GuidedFilter_getBufferSize(width, height, format, &guided);
  if (filter < 0) return kTooLarge;
  const int64_t finish = maps + filter;
  const int64_t total = (finish > merge ? finish : merge) + rest;
  return total <= kMostBytes ? static_cast<int32_t>(total) : kTooLarge;
}

Status construct_Tessal4(Tessal4* engine, Env* env) {
  std::memset(static_cast<void*>(engine), 0, sizeof(*engine));
  engine->env = env;
  construct_ParallelExecutor(&engine->ownExecutor, env);
  construct_Thread(&engine->thread, env);
  construct_ImageProc(&engine->imageProc, env);
  construct_ImageProc2(&engine->imageProc2, env);
  construct_Vectral(&engine->tracker, env);
  for (Image& image : engine->shrunk) construct_Image(&image, env);
  forEachImage(engine, [env](Image* image) { construct_Image(image, env); });
  construct_GuidedFilter(&engine->guidedFilter, env);
  engine->imageProcPtr = &engine->imageProc;
  engine->resultPtr = &engine->resultView;
  Mvec8Real_setIdentity(&engine->cropMotion);
  Tessal4Params_setDefault(&engine->params, 0, 0);
  return ZELVAN_OK;
}

Status destruct_Tessal4(Tessal4* engine) {
  destruct_ImageProc(&engine->imageProc);
  ImageProc2_recycle(&engine->imageProc2);
  destruct_ParallelExecutor(&engine->ownExecutor);
  destruct_Thread(&engine->thread);
  destruct_Vectral(&engine->tracker);
  destruct_GuidedFilter(&engine->guidedFilter);
  for (Image& image : engine->shrunk) destruct_Image(&image);
  forEachImage(engine, [](Image* image) { destruct_Image(image); });
  return ZELVAN_OK;
}

Status Tessal4_setParallelExecutor(Tessal4* engine, ParallelExecutor* executor) {
  engine->executor = executor;
  return ZELVAN_OK;
}

Status Tessal4_init(Tessal4* engine, int32_t width, int32_t height, int32_t frameCount, const Tessal4Params* params) {
  if (frameCount > kTessal4Frames) return ZELVAN_ERROR_PARAM;
  engine->frameCount = frameCount;
  engine->width = width;
  engine->height = height;
  Tessal4_clean(engine);
  engine->imageProcPtr = &engine->imageProc;
  ImageProc_setParallelExecutor(&engine->imageProc, engine->executor);
  if (params != nullptr) engine->params = *params;
  const Tessal4Params& p = engine->params;
  engine->outWidth = p.outputWidth < 0 ? width : p.outputWidth;
  engine->outHeight = p.outputHeight < 0 ? height : p.outputHeight;

  engine->scale = 1.0 / p.workDivisor;
  const double area = static_cast<double>(int64_t{width} * height);
  const int32_t target = truncToInt32(engine->scale * (engine->scale * area));
  ImageProc_getSizeArea(&engine->workWidth, &engine->workHeight, width, height, target);
  engine->workWidth &= ~3;
  engine->workHeight &= ~3;
  const int32_t w = engine->workWidth;
  const int32_t h = engine->workHeight;
  if (const Status s = Image_init(&engine->diffMap, w, h, nullptr, IMAGE_UINT8); s != ZELVAN_OK) return s;
  if (const Status s = Image_init(&engine->accWeight, w, h, nullptr, IMAGE_UINT16); s != ZELVAN_OK) return s;
  // A burst of which no frame is usable never writes the weights, and its picture must not follow old arena content.
  if (w > 0 && h > 0) std::memset(engine->accWeight.plane0, 0, static_cast<size_t>(engine->accWeight.pitch0) * h);
  if (const Status s = Image_init(&engine->spareMap, w, h, nullptr, IMAGE_UINT8); s != ZELVAN_OK) return s;

  static constexpr int32_t kDiffWeights[2][3] = {{16383, 32767, 16383}, {32767, 29490, 4095}};
  std::memcpy(engine->diffWeights, kDiffWeights[p.diffWeightMode != 0], sizeof(engine->diffWeights));

  GuidedFilterParam_setDefault(&engine->guidedFilterParam);
  if (const Status s = GuidedFilter_init(&engine->guidedFilter, width, height, &engine->guidedFilterParam);
      s != ZELVAN_OK) {
    return s;
  }
  return GuidedFilter_setPel(&engine->guidedFilter, engine->pel);
}

Status Tessal4_clean(Tessal4* engine) {
  engine->trackedAtIntake = 0;
  engine->output = nullptr;
  engine->accumulatorPtr = nullptr;
  engine->addedCount = 0;
  engine->validCount = 0;
  engine->usedCount = 0;
  std::memset(engine->mergeStatus, 0, sizeof(engine->mergeStatus));
  std::memset(engine->motionInvalid, 0, sizeof(engine->motionInvalid));
  std::memset(engine->trackFailure, 0, sizeof(engine->trackFailure));
  std::memset(engine->blurScore, 0, sizeof(engine->blurScore));

  // The margin matters only for a result smaller than the frame.
  const int32_t outWidth = truncToInt32(engine->outWidth / engine->params.outputScale);
  const int32_t outHeight = truncToInt32(engine->outHeight / engine->params.outputScale);
  const double marginX = (engine->width - outWidth) * 0.5;
  const double marginY = (engine->height - outHeight) * 0.5;
  const int32_t left = truncToInt32(marginX - kCropMargin);
  const int32_t top = truncToInt32(marginY - kCropMargin);
  const int32_t right = truncToInt32(engine->width - marginX + kCropMargin);
  const int32_t bottom = truncToInt32(engine->height - marginY + kCropMargin);
  engine->cropLeft = evenUp(left > 0 ? left : 0);
  engine->cropTop = evenUp(top > 0 ? top : 0);
  engine->cropRight = evenDown(right < engine->width ? right : engine->width);
  engine->cropBottom = evenDown(bottom < engine->height ? bottom : engine->height);
  engine->cropWidth = engine->cropRight - engine->cropLeft;
  engine->cropHeight = engine->cropBottom - engine->cropTop;

  for (Mvec8Real& motion : engine->motions) Mvec8Real_setIdentity(&motion);
  for (Image* image : {&engine->warped, &engine->resultView, &engine->spareImages[0], &engine->spareImages[1],
                       &engine->lumaView, &engine->chromaView}) {
    resetImage(image, engine->env);
  }
  // The accumulator may own a frame from a burst before; a bare construct would lose the block.
  resetImage(&engine->accumulator, engine->env);
  return ZELVAN_OK;
}
