#include <cstdio>
#include <cstring>

#include "base/integer.h"
#include "base/raw_double.h"
#include "engine/tessal4_impl.h"
#include "imageproc/resize.h"
#include "pixels/image_func.h"
#include "tracker/vectral_util.h"

namespace {

// Readies the tracker for small frames of the base's size and gives it the base.
Status startTracker(Tessal4* engine, const Image* base) {
  const int32_t area =
      static_cast<int32_t>((int64_t{engine->width} * engine->height) >> (2 * engine->params.trackShrinkLevel));
  ImageProc_getSizeArea(&engine->trackWidth, &engine->trackHeight, engine->width, engine->height, area);
  engine->trackWidth = evenDown(engine->trackWidth);
  engine->trackHeight = evenDown(engine->trackHeight);
  Vectral& tracker = engine->tracker;
  tracker.solveMode = 3;
  tracker.coarseRange = 0;
  tracker.targetArea = area;
  tracker.minResoArea = 8640;
  tracker.maxFeatPnt = 96;
  tracker.lsmType = MILSM_8ST;
  tracker.normalizeBase = 0;
  tracker.executor = engine->executor;
  if (const Status s = Vectral_init(&tracker, base->width, base->height); s != ZELVAN_OK) return s;
  return Vectral_setBaseImage(&tracker, base);
}

// Reads the tracker's motion and brings it from a frame of the given width to full-size coordinates.
Status takeMotion(Tessal4* engine, int32_t id, double fullWidth, int32_t width) {
  Mvec8Real* motion = &engine->motions[id];
  if (const Status s = Vectral_outputMvecReal(&engine->tracker, motion); s != ZELVAN_OK) return s;
  return VectralUtil_similarTransform(motion, motion, nullptr, fullWidth / width, 0);
}

// A verdict of the tracker is no error: the frame's motion becomes identity and the merge passes it over.
void noteTrackFailure(Tessal4* engine, int32_t id) {
  if (engine->tracker.failureCode == 0) return;
  engine->trackFailure[id] = engine->tracker.failureCode;
  Mvec8Real_setIdentity(&engine->motions[id]);
}

// All frames against the base, in order of their ids.
Status trackAll(Tessal4* engine, int32_t base) {
  if (const Status s = startTracker(engine, &engine->shrunk[base]); s != ZELVAN_OK) return s;
  if (const Status s = takeMotion(engine, base, engine->width, engine->shrunk[base].width); s != ZELVAN_OK) return s;
  for (int32_t id = 0; id < engine->frameCount; ++id) {
    if (id == base) continue;
    if (const Status s = Vectral_addImage(&engine->tracker, &engine->shrunk[id]); s != ZELVAN_OK) return s;
    if (const Status s = takeMotion(engine, id, engine->width, engine->shrunk[id].width); s != ZELVAN_OK) return s;
    noteTrackFailure(engine, id);
  }
  return ZELVAN_OK;
}

// Makes the crop rectangle one of the frame's shape and folds it into the motions.
void scaleCrop(Tessal4* engine) {
  const double width = engine->width;
  const double height = engine->height;
  const double ratioX = (engine->cropRight - engine->cropLeft) / width;
  const double ratioY = (engine->cropBottom - engine->cropTop) / height;
  const double ratio = ratioX < ratioY ? ratioX : ratioY;
  const double cropWidth = ratio * width;
  const double cropHeight = ratio * height;
  const double top = truncToInt32((engine->cropTop + engine->cropBottom) * 0.5) - cropHeight * 0.5;
  const double left = truncToInt32((engine->cropLeft + engine->cropRight) * 0.5) - cropWidth * 0.5;
  engine->cropLeft = evenDown(truncToInt32(left) + 1);
  engine->cropTop = evenDown(truncToInt32(top) + 1);
  engine->cropBottom = evenDown(truncToInt32(cropHeight + top));
  engine->cropRight = evenDown(truncToInt32(cropWidth + left));

  Mvec8Real* crop = &engine->cropMotion;
  Mvec8Real_setIdentity(crop);
  crop->h[0] = ratio;
  crop->h[4] = ratio;
  crop->h[2] = (engine->cropLeft + engine->cropRight) * 0.5 - (engine->cropRight - engine->cropLeft) * 0.5;
  crop->h[5] = (engine->cropTop + engine->cropBottom) * 0.5 - (engine->cropBottom - engine->cropTop) * 0.5;
  if (engine->params.keepMotionUncropped != 0) return;
  for (int32_t id = 0; id < engine->frameCount; ++id) {
    Mvec8Real_mult(&engine->motions[id], &engine->motions[id], crop);
  }
}

}  // namespace

Status Tessal4_storeFrame(Tessal4StoreFrame* arguments) {
  Tessal4* engine = arguments->engine;
  const Image* image = arguments->image;
  const int32_t slot = arguments->slot;
  const Tessal4Params& params = engine->params;
  const int32_t level = params.storeShrinkLevel;
  Image* shrunk = &engine->shrunk[slot];
  if (const Status s =
          Image_init(shrunk, evenDown(image->width >> level), evenDown(image->height >> level), nullptr, image->format);
      s != ZELVAN_OK) {
    return s;
  }

  Status status = ZELVAN_OK;
  if (image->width == 4 * shrunk->width && image->height == 4 * shrunk->height) {
    status = Tessal4ImageFunc_shrink4(engine->executor, shrunk, image);
  } else if (image->width == shrunk->width && image->height == shrunk->height) {
    status = Image_copy(shrunk, image);
  } else {
    status = Tessal4ImageFunc_shrinkImage(engine->executor, engine->pel, shrunk, image);
  }
  if (status != ZELVAN_OK) return status;

  if (params.evalBlurEnable != 0) {
    uint32_t score = 0;
    status = Tessal4ImageFunc_evalBlur(engine->executor, engine->env, &score, shrunk, 0, 0,
                                       params.evalBlurSigma * RawDouble_sqrt(2.0), params.evalBlurSigma);
    engine->blurScore[slot] = static_cast<int32_t>(score);
    if (status != ZELVAN_OK) return status;
  }
  if (arguments->track == 0) return ZELVAN_OK;

  const Image* source = params.storeShrinkLevel > params.trackShrinkLevel ? image : shrunk;
  const bool first = engine->addedCount == 0;
  status = first ? startTracker(engine, source) : Vectral_addImage(&engine->tracker, source);
  if (status != ZELVAN_OK) return status;
  if (const Status s = takeMotion(engine, slot, image->width, source->width); s != ZELVAN_OK) return s;
  if (!first) noteTrackFailure(engine, slot);
  return ZELVAN_OK;
}

Status Tessal4_setImage(Tessal4* engine, const Image* image, int32_t slot) {
  if (slot < 0 || slot >= kTessal4Frames) return ZELVAN_ERROR_PARAM;
  Tessal4StoreFrame arguments = {engine, image, slot, 0};
  const Status status = Tessal4_storeFrame(&arguments);
  if (status == ZELVAN_OK) ++engine->addedCount;
  return status;
}

Status Tessal4_addImage(Tessal4* engine, const Image* image) {
  if (engine->addedCount >= engine->frameCount || engine->addedCount >= kTessal4Frames) return ZELVAN_ERROR_STATE;
  Tessal4StoreFrame arguments = {engine, image, engine->addedCount, 1};
  const Status status = Tessal4_storeFrame(&arguments);
  if (status != ZELVAN_OK) return status;
  if (++engine->addedCount == engine->frameCount) engine->trackedAtIntake = 1;
  return ZELVAN_OK;
}

int32_t Tessal4_isMotionUsable(Tessal4* engine, ImageRect* rect, const Mvec8Real* motion) {
  const double width = engine->width;
  const double height = engine->height;
  Mvec8Real inverse;
  Mvec8Real_inv(&inverse, motion);
  double x[4];
  double y[4];
  Mvec8Real_trans2DReal(&inverse, &x[0], &y[0], 0.0, 0.0);
  Mvec8Real_trans2DReal(&inverse, &x[1], &y[1], 0.0, height);
  Mvec8Real_trans2DReal(&inverse, &x[2], &y[2], width, 0.0);
  Mvec8Real_trans2DReal(&inverse, &x[3], &y[3], width, height);

  const auto larger = [](double a, double b) { return truncToInt32(a > b ? a : b); };
  const auto smaller = [](double a, double b) { return truncToInt32(a < b ? a : b); };
  const int32_t left = larger(x[1], larger(x[0], 0.0));
  const int32_t top = larger(y[2], larger(y[0], 0.0));
  const int32_t right = smaller(x[3], smaller(x[2], width));
  const int32_t bottom = smaller(y[3], smaller(y[1], height));
  if (rect != nullptr) *rect = {left, top, right, bottom};
  const int64_t rectWidth = int64_t{right} - left;  // a wild motion gives sides at the ends of the range
  const int64_t rectHeight = int64_t{bottom} - top;
  if (rectWidth < 1 || rectHeight < 1) return 0;
  const double overlap = static_cast<double>(rectWidth * rectHeight) * 100.0;
  return overlap < width * height * engine->params.minOverlapPercent ? 0 : 1;
}

Status Tessal4_getRecommendedOrder(Tessal4* engine, int32_t* order, int32_t* scores) {
  const ScopedBlock<int64_t> keys(engine->env, kTessal4Frames);
  if (!keys) return ZELVAN_ERROR_NOMEM;
  std::memset(keys.data(), 0, kTessal4Frames * sizeof(int64_t));
  const int32_t n = engine->frameCount;
  for (int32_t id = 0; id < n; ++id) {
    const int32_t rank = n - 1 - id;  // the earlier frame wins a tie
    const bool usable =
        engine->trackFailure[id] == 0 && Tessal4_isMotionUsable(engine, nullptr, &engine->motions[id]) != 0;
    keys[id] = usable ? int64_t{engine->blurScore[id]} * (int64_t{1} << 32) + rank : rank;
  }
  for (int32_t i = 0; i < n; ++i) {
    for (int32_t j = i + 1; j < n; ++j) {
      if (keys[j] > keys[i]) {
        const int64_t key = keys[i];
        keys[i] = keys[j];
        keys[j] = key;
      }
    }
  }
  for (int32_t i = 0; i < n; ++i) {
    if (order != nullptr) order[i] = n - 1 - static_cast<int32_t>(keys[i] & 0xFFFFFFFF);
    if (scores != nullptr) scores[i] = static_cast<int32_t>(keys[i] >> 32);
  }
  return ZELVAN_OK;
}

Status Tessal4_getRecommendedID(Tessal4* engine, int32_t* outId) {
  int32_t best = 0;
  for (int32_t id = 1; id < engine->frameCount; ++id) {
    if (engine->trackFailure[id] == 0 && Tessal4_isMotionUsable(engine, nullptr, &engine->motions[id]) != 0 &&
        engine->blurScore[id] > engine->blurScore[best]) {
      best = id;
    }
  }
  *outId = best;
  return ZELVAN_OK;
}

Status Tessal4_solve(Tessal4* engine, int32_t base) {
  const int32_t b = base > 0 ? base : 0;
  if (b >= kTessal4Frames) return ZELVAN_ERROR_GENERAL;
  if (engine->trackedAtIntake != 1) {
    if (const Status s = trackAll(engine, b); s != ZELVAN_OK) return s;
  } else if (base >= 1) {
    // The motions refer to frame 0: change the reference to the base.
    Mvec8Real inverse;
    Mvec8Real_inv(&inverse, &engine->motions[b]);
    for (int32_t id = 0; id < engine->frameCount; ++id) {
      Mvec8Real_mult(&engine->motions[id], &engine->motions[id], &inverse);
    }
  }

  for (int32_t id = 0; id < engine->frameCount; ++id) {
    ImageRect rect = {};
    if (engine->trackFailure[id] != 0 || Tessal4_isMotionUsable(engine, &rect, &engine->motions[id]) == 0) {
      engine->motionInvalid[id] = 1;
    } else if (engine->params.autoScaling != 0) {
      engine->cropLeft = evenUp(rect.left > engine->cropLeft ? rect.left : engine->cropLeft);
      engine->cropTop = evenUp(rect.top > engine->cropTop ? rect.top : engine->cropTop);
      engine->cropRight = evenDown(rect.right < engine->cropRight ? rect.right : engine->cropRight);
      engine->cropBottom = evenDown(rect.bottom < engine->cropBottom ? rect.bottom : engine->cropBottom);
    }
  }
  if (engine->params.autoScaling != 0) scaleCrop(engine);
  return ZELVAN_OK;
}

Status Tessal4_getMotion(Tessal4* engine, Mvec8Real** out, int32_t id) {
  if (id < 0) id = engine->frameCount - 1;
  *out = nullptr;
  if (id < 0 || id >= engine->frameCount) return ZELVAN_ERROR_GENERAL;
  if (engine->motionInvalid[id] == 0 && Tessal4_isMotionUsable(engine, nullptr, &engine->motions[id]) != 0) {
    *out = &engine->motions[id];
  } else {
    engine->mergeStatus[id] = TESSAL4_BAD_MOTION;
  }
  return ZELVAN_OK;
}

Status Tessal4_setOutput(Tessal4* engine, Image* image) {
  engine->output = image;
  if (engine->params.bindOutput == 0) return ZELVAN_OK;
  const Status status = Image_initSubImage(&engine->accumulator, image, 0, 0, engine->outWidth, engine->outHeight);
  engine->accumulatorPtr = &engine->accumulator;
  return status;
}

Status Tessal4_getDebugInfo(Tessal4* engine, char* text) {
  int32_t order[kTessal4Frames] = {};
  Tessal4_getRecommendedOrder(engine, order, nullptr);
  char* at = text;
  at += std::sprintf(at, "ZELVAN TESSAL4 DEBUGINFO NUM:%d ", engine->frameCount);
  at += std::sprintf(at, " MERGE_NUM:%d ", engine->mergeCount);
  at += std::sprintf(at, " VALID_NUM:%d ", engine->validCount);
  at += std::sprintf(at, " ORDER: ");
  const int32_t n = engine->mergeCount < kTessal4Frames ? engine->mergeCount : kTessal4Frames;
  for (int32_t i = 0; i < n; ++i) at += std::sprintf(at, " %d ", order[i]);
  for (int32_t i = 0; i < n; ++i) {
    const int32_t id = order[i];
    const double* h = engine->motions[id].h;
    at += std::sprintf(at, " | %d: ", id);
    at += std::sprintf(at, " FCODE:%d ", static_cast<int32_t>(engine->trackFailure[id]));
    at += std::sprintf(at, " DX:%d ", truncToInt32(h[2] * 32768.0 / h[8]));
    at += std::sprintf(at, " DY:%d ", truncToInt32(h[5] * 32768.0 / h[8]));
    if (i >= 1) at += std::sprintf(at, " GHOST:%d ", engine->ghostScore[id]);
  }
  return ZELVAN_OK;
}
