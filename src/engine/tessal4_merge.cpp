#include <cstring>

#include "base/cpu_level.h"
#include "base/integer.h"
#include "engine/tessal4_impl.h"
#include "imageproc/arithmetic.h"
#include "imageproc/blur.h"
#include "imageproc/resize.h"
#include "pixels/image_func.h"
#include "pixels/row_split.h"
#include "tracker/vectral_util.h"

namespace {

constexpr double kGhostBlurSigma = 4.0;
constexpr uint8_t kGhostDifference = 65;
constexpr int32_t kGhostSlices = 32;
constexpr double kNarrowCorrectionSigma = 7.5;
constexpr double kWideCorrectionSigma = 60.0;
constexpr int32_t kMaxCorrection = 15;
constexpr int32_t kSureMaps = 2;

// Frames whose weights are known and whose pixels wait. Weights follow from the small frames alone, never from what is
// accumulated, so that one pass over the accumulator can take in many frames: it is as large as a frame and would else
// go through memory once for each of them. Weights stand in maps; further ones than the first are only taken while the
// arena has plenty of room, and with all of them full the frames go in.
class FrameQueue {
 public:
  explicit FrameQueue(Tessal4* engine) : engine_(engine) {
    for (Image& map : maps_) construct_Image(&map, engine->env);
  }
  ~FrameQueue() {
    for (Image& map : maps_) destruct_Image(&map);
  }
  FrameQueue(const FrameQueue&) = delete;
  FrameQueue& operator=(const FrameQueue&) = delete;

  // The map for the weights of this frame, which add then takes in. A frame that lies in the accumulator reads what the
  // frames before it left.
  Status nextMap(const Image* image, Image** map) {
    const bool full = count_ == mapCount_ && !(mayGrow() && addMap() == ZELVAN_OK);
    if (full || liesInAccumulator(image)) {
      if (const Status s = flush(); s != ZELVAN_OK) return s;
    }
    *map = &maps_[count_];
    return ZELVAN_OK;
  }
  Status add(const Image* image, const Mvec8Real* motion) {
    frames_[count_] = {image, motion, &maps_[count_]};
    ++count_;
    return liesInAccumulator(image) ? flush() : ZELVAN_OK;
  }
  Status flush() {
    const int32_t count = count_;
    count_ = 0;
    return count == 0 ? ZELVAN_OK : accumFrames(engine_->pel, engine_->env, engine_->accumulatorPtr, frames_, count);
  }
  Status addMap() {
    const Status s = Image_init(&maps_[mapCount_], engine_->workWidth, engine_->workHeight, nullptr, IMAGE_UINT8);
    if (s == ZELVAN_OK) ++mapCount_;
    return s;
  }

 private:
  bool liesInAccumulator(const Image* image) const { return image->plane0 == engine_->accumulatorPtr->plane0; }
  // Leaves the arena more than what a comparison and a pass over the accumulator ask for.
  bool mayGrow() const {
    const int64_t work = int64_t{engine_->workWidth} * engine_->workHeight;
    const int64_t reserve = 24 * work + int64_t{engine_->width} * engine_->workHeight;
    return mapCount_ < kAccumFrames && Heap2_getFreeSize(&engine_->env->heap) > reserve;
  }

  Tessal4* engine_;
  Image maps_[kAccumFrames];
  AccumFrame frames_[kAccumFrames];
  int32_t mapCount_ = 0;
  int32_t count_ = 0;
};

// A number above 0: how much the frame's sharpness lets it count. Fills mergeStatus of a frame that is refused.
double sharpnessWeight(Tessal4* engine, int32_t id, int32_t base, int32_t maxScore) {
  const Tessal4Params& params = engine->params;
  if (params.softBlurWeight == 0) {
    if (params.blurRatio * engine->blurScore[base] > engine->blurScore[id]) {
      engine->mergeStatus[id] = TESSAL4_BLURRED;
      return 0.0;
    }
    return 1.0;
  }
  return ((static_cast<double>(engine->blurScore[id]) / maxScore - params.blurRatio) + 1e-09) *
         (1.0 / ((1.0 - params.blurRatio) + 1e-09));
}

// Warps the stored small frame by its motion, brings it to working size and smooths it for the comparison. Failures
// are dropped: the comparison then works on what the images hold.
void prepareComparison(Tessal4* engine, int32_t id, Image* compare) {
  const Image* shrunk = &engine->shrunk[id];
  if (Image_init(&engine->warped, shrunk->width, shrunk->height, nullptr, shrunk->format) != ZELVAN_OK) {
    resetImage(&engine->warped, engine->env);  // an empty image, which the kernels pass over
  }
  Mvec8Real motion;
  VectralUtil_similarTransform(&motion, &engine->motions[id], nullptr,
                               static_cast<double>(shrunk->width) / engine->width, 0);
  if (engine->pel != nullptr) {
    Tessal4ImageFunc_render(engine->pel, engine->env, &engine->warped, shrunk, &motion);
  } else {
    Tessal4ImageFunc_accumWithLuminanceCorrection(engine->executor, engine->env, &engine->warped, shrunk, 0, 0,
                                                  &motion);
  }
  Tessal4_shrinkToFit(engine, compare, &engine->warped);

  ScopedImage luma(engine->env);
  ScopedImage chroma(engine->env);
  Image_initSubImageY(&luma, compare, 0, 0, compare->width, compare->height);
  Image_initSubImageUV(&chroma, compare, 0, 0, compare->width, compare->height);
  const double sigma = engine->params.preBlurSigma * engine->scale;
  Tessal4ImageFunc_blur_uint8(engine->executor, engine->env, &luma, &luma, sigma);
  Tessal4ImageFunc_blur_uint88(engine->executor, engine->env, &chroma, &chroma, 2 * sigma);
}

// The first usable frame becomes the accumulator's content.
Status startAccumulator(Tessal4* engine, const Image* frame, double weight) {
  if (const Status s = ImageProc_clearY(engine->imageProcPtr, &engine->accWeight, truncToInt32(weight * 128.0));
      s != ZELVAN_OK) {
    return s;
  }
  if (frame == engine->accumulatorPtr) return ZELVAN_OK;
  const int32_t width = engine->cropRight - engine->cropLeft;
  const int32_t height = engine->cropBottom - engine->cropTop;
  ScopedImage view(engine->env);
  if (const Status s = Image_initSubImage(&view, frame, engine->cropLeft, engine->cropTop, width, height);
      s != ZELVAN_OK) {
    return s;
  }
  Image* accumulator = engine->accumulatorPtr;
  return width == accumulator->width && height == accumulator->height
             ? ImageProc_cvt(engine->imageProcPtr, accumulator, &view)
             : ImageProc_resizeImage(engine->imageProcPtr, accumulator, &view);
}

// Brings the frame's luma near the base's, so that a change of brightness does not count as a difference. Failures
// are dropped.
void correctLuminance(Tessal4* engine) {
  Env* env = engine->env;
  const bool wide = engine->params.lumaCorrectionMode == 2;
  const int32_t width = engine->workWidth;
  const int32_t height = engine->workHeight;
  ScopedImage frameLuma(env);
  ScopedImage baseLuma(env);
  ScopedImage frameMean(env);
  ScopedImage baseMean(env);
  Status status = Image_initSubImageY(&frameLuma, &engine->compareImages[1], 0, 0, width, height);
  status |= Image_initSubImageY(&baseLuma, &engine->compareImages[0], 0, 0, width, height);
  status |= Image_init(&frameMean, width, height, nullptr, IMAGE_UINT8);
  status |= Image_init(&baseMean, width, height, nullptr, IMAGE_UINT8);
  if (wide) status |= Image_init(&engine->lumaCorrection, width, height, nullptr, IMAGE_UINT8);
  if (status != ZELVAN_OK) return;
  const double sigma = (wide ? kWideCorrectionSigma : kNarrowCorrectionSigma) * engine->scale;
  status = ImageProc_pgaussBlur(engine->imageProcPtr, &frameMean, &frameLuma, sigma);
  status |= ImageProc_pgaussBlur(engine->imageProcPtr, &baseMean, &baseLuma, sigma);
  if (status != ZELVAN_OK) return;
  const Tessal4LumaCorrectRows rows = {&frameLuma, &frameMean, &baseMean, wide ? &engine->lumaCorrection : nullptr,
                                       0,          height};
  forkRows<Tessal4LumaCorrectRows, Tessal4_lumaCorrectRows>(engine->executor, height, rows);
}

// Whether so much of the frame differs from the base that it must not be merged. The slices have a counter each, so
// that the sum does not depend on the threads.
bool isGhost(Tessal4* engine, int32_t id) {
  const int32_t limit = engine->params.maxGhostPercent;
  if (limit == 0) return false;
  int32_t counts[2 * kGhostSlices] = {};
  const Image* diffMap = &engine->diffMap;
  forkBands<Tessal4CountDiffRows, Tessal4_countDiffRows>(engine->executor, kGhostSlices, [&](int32_t k) {
    const RowRange rows = rowSlice(k, kGhostSlices, diffMap->height);
    return Tessal4CountDiffRows{diffMap, &counts[k], rows.begin, rows.end};
  });
  // The score is written before any pixel is counted; 0 is what the report shows.
  engine->ghostScore[id] = 0;
  int32_t total = 0;
  for (int32_t count : counts) total += count;
  return wrapMul(wrapMul(diffMap->width, diffMap->height), limit) < wrapMul(total, 100);
}

// Weight by difference: 128 up to a distance, a straight fall, then 0.
void fillWeightTable(uint8_t* table, double objBlurCorrection, double weight) {
  for (int32_t v = 0; v < 256; ++v) {
    const double line = objBlurCorrection * (v * -15.9375) + 255.0;
    const double clamped = line < 0.0 ? 0.0 : line > 128.0 ? 128.0 : line;
    table[v] = static_cast<uint8_t>(truncToInt32(weight * clamped));
  }
}

// Differences of a frame against the base decide where and how much it is blended in.
Status mergeFrame(Tessal4* engine, FrameQueue* queue, const Image* frame, int32_t id, double weight) {
  const Tessal4Params& params = engine->params;
  if (params.lumaCorrectionMode == 1 || params.lumaCorrectionMode == 2) correctLuminance(engine);
  Image* diffMap = &engine->diffMap;
  if (const Status s = Tessal4ImageFunc_diff(engine->executor, diffMap, &engine->compareImages[0],
                                             &engine->compareImages[1], engine->diffWeights);
      s != ZELVAN_OK) {
    return s;
  }
  if (const Status s = ImageProc_filterGaussianBlur7x7_uint8(engine->imageProcPtr, diffMap, diffMap, kGhostBlurSigma);
      s != ZELVAN_OK) {
    return s;
  }
  if (isGhost(engine, id)) {
    engine->mergeStatus[id] = TESSAL4_GHOST;
    return ZELVAN_OK;
  }
  Image* map = nullptr;
  if (const Status s = queue->nextMap(frame, &map); s != ZELVAN_OK) return s;
  uint8_t table[256];
  fillWeightTable(table, params.objBlurCorrection, weight);
  const Tessal4BlendMapRows rows = {table, diffMap, &engine->accWeight, map, 0, 0};
  forkRows<Tessal4BlendMapRows, Tessal4_blendMapRows>(engine->executor, engine->workHeight, rows);
  if (const Status s = queue->add(frame, &engine->motions[id]); s != ZELVAN_OK) return s;
  ++engine->validCount;
  return ZELVAN_OK;
}

// Which image accumulates: the base frame's own buffer, or, where the result is a scaled crop, a frame of the arena.
Status chooseAccumulator(Tessal4* engine, Image* images, int32_t base) {
  if (engine->params.autoScaling == 0) {
    engine->accumulatorPtr = &images[base];
  } else if (engine->accumulatorPtr == nullptr) {
    if (const Status s = Image_init(&engine->accumulator, engine->width, engine->height, nullptr, images[0].format);
        s != ZELVAN_OK) {
      return s;
    }
    engine->accumulatorPtr = &engine->accumulator;
  }
  return Image_initSubImage(&engine->resultView, engine->accumulatorPtr, 0, 0, engine->outWidth, engine->outHeight);
}

}  // namespace

namespace {

// The table's weights have gone into mask. The division is exact in floats: the quotient is below 128 or is 128 itself,
// and with a divisor below 2^17 no other one is as near to a whole number as half a step.
ALWAYS_INLINE void blendMapRowBody(uint8_t* __restrict mask, uint16_t* __restrict weights, int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    const int32_t a = weights[x];
    const int32_t sum = a + mask[x];
    const auto share = static_cast<int32_t>(static_cast<float>(a * 128) / static_cast<float>(sum != 0 ? sum : 1));
    mask[x] = static_cast<uint8_t>(sum != 0 ? share : 128);
    weights[x] = static_cast<uint16_t>(sum);
  }
}
constexpr CpuRow<blendMapRowBody> blendMapRow;

ALWAYS_INLINE int32_t countDiffRowBody(const uint8_t* diff, int32_t width) {
  int32_t count = 0;
  for (int32_t x = 0; x < width; ++x) count += diff[x] >= kGhostDifference;
  return count;
}
constexpr CpuRow<countDiffRowBody> countDiffRow;

}  // namespace

Status Tessal4_blendMapRows(Tessal4BlendMapRows* rows) {
  const int32_t width = rows->diffMap->width;
  for (int32_t y = rows->begin; y < rows->end; ++y) {
    const uint8_t* diff = imageRow(rows->diffMap, y);
    uint8_t* mask = imageRow(rows->mask, y);
    for (int32_t x = 0; x < width; ++x) mask[x] = rows->table[diff[x]];
    blendMapRow(mask, imageRow<uint16_t>(rows->accWeight, y), width);
  }
  return ZELVAN_OK;
}

Status Tessal4_countDiffRows(Tessal4CountDiffRows* rows) {
  const int32_t width = rows->diffMap->width;
  int32_t count = 0;
  for (int32_t y = rows->begin; y < rows->end; ++y) {
    count += countDiffRow(imageRow(rows->diffMap, y), width);
  }
  *rows->count += count;
  return ZELVAN_OK;
}

Status Tessal4_lumaCorrectRows(Tessal4LumaCorrectRows* rows) {
  const int32_t width = rows->luma->width;
  for (int32_t y = rows->begin; y < rows->end; ++y) {
    uint8_t* luma = imageRow(rows->luma, y);
    const uint8_t* frameMean = imageRow(rows->frameMean, y);
    const uint8_t* baseMean = imageRow(rows->baseMean, y);
    uint8_t* correction = rows->correction != nullptr ? imageRow(rows->correction, y) : nullptr;
    for (int32_t x = 0; x < width; ++x) {
      const int32_t d = clampInt(baseMean[x] - frameMean[x], -kMaxCorrection, kMaxCorrection);
      luma[x] = clampByte(luma[x] + d);
      if (correction != nullptr) correction[x] = static_cast<uint8_t>(d + 128);
    }
  }
  return ZELVAN_OK;
}

Status Tessal4_shrinkToFit(Tessal4* engine, Image* dst, const Image* src) {
  if (dst->width < 1 || dst->height < 1) return ZELVAN_ERROR_PARAM;
  const int32_t ratioX = src->width / dst->width;
  const int32_t ratioY = src->height / dst->height;
  ScopedImage smaller(engine->env);
  Status status = ZELVAN_OK;
  if (ratioX >= 4 && ratioY >= 4) {
    status = Image_init(&smaller, src->width / 8 * 2, src->height / 4 & ~1, nullptr, src->format);
    if (status != ZELVAN_OK) return status;
    status = Tessal4ImageFunc_shrink4(engine->executor, &smaller, src);
  } else if (ratioX >= 3 && ratioY >= 3) {
    status = Image_init(&smaller, src->width / 4 * 2, src->height / 2 & ~1, nullptr, src->format);
    if (status != ZELVAN_OK) return status;
    status = engine->pel != nullptr ? Tessal4ImageFunc_shrink2_PEL(engine->pel, &smaller, src)
                                    : Tessal4ImageFunc_shrink2(engine->executor, &smaller, src);
  } else {
    return ImageProc_resizeImage(engine->imageProcPtr, dst, src);
  }
  return status != ZELVAN_OK ? status : Tessal4_shrinkToFit(engine, dst, &smaller);
}

Status Tessal4_merge(Tessal4* engine, Image* images, const int32_t* order, int32_t mergeCount) {
  engine->mergeCount = mergeCount;
  const int32_t frames = engine->frameCount;
  // A negative id means the last frame. Ids without a slot have nothing to look at.
  const auto idAt = [&](int32_t i) { return order[i] < 0 ? frames - 1 : order[i]; };
  const auto hasSlot = [](int32_t id) { return id >= 0 && id < kTessal4Frames; };
  const int32_t base = idAt(0);
  if (!hasSlot(base)) return ZELVAN_ERROR_GENERAL;
  const int32_t width = engine->workWidth;
  const int32_t height = engine->workHeight;
  FrameQueue queue(engine);
  for (int32_t i = 0; i < kSureMaps; ++i) {
    if (const Status s = queue.addMap(); s != ZELVAN_OK) return s;
  }
  for (Image& compare : engine->compareImages) {
    if (const Status s = Image_init(&compare, width, height, nullptr, images[0].format); s != ZELVAN_OK) return s;
  }
  if (const Status s = chooseAccumulator(engine, images, base); s != ZELVAN_OK) return s;

  int32_t maxScore = 0;
  for (int32_t i = 0; i < mergeCount && hasSlot(idAt(i)); ++i) {
    if (engine->blurScore[idAt(i)] > maxScore) maxScore = engine->blurScore[idAt(i)];
  }

  for (int32_t i = 0; i < mergeCount; ++i) {
    const int32_t id = idAt(i);
    if (!hasSlot(id)) return ZELVAN_ERROR_GENERAL;
    const double weight = sharpnessWeight(engine, id, base, maxScore);
    if (!(weight > 0.0)) continue;
    Mvec8Real* motion = nullptr;
    if (const Status s = Tessal4_getMotion(engine, &motion, id); s != ZELVAN_OK) return s;
    ++engine->usedCount;
    if (motion == nullptr) continue;  // mergeStatus tells
    prepareComparison(engine, id, &engine->compareImages[engine->validCount != 0]);
    if (engine->validCount == 0) {
      if (const Status s = startAccumulator(engine, &images[id], weight); s != ZELVAN_OK) return s;
      ++engine->validCount;
    } else if (const Status s = mergeFrame(engine, &queue, &images[id], id, weight); s != ZELVAN_OK) {
      return s;
    }
  }
  if (const Status s = queue.flush(); s != ZELVAN_OK) return s;
  for (int32_t i = mergeCount > 0 ? mergeCount : 0; i < engine->addedCount; ++i) {
    if (hasSlot(order[i])) engine->mergeStatus[order[i]] = TESSAL4_NOT_USED;
  }
  return ZELVAN_OK;
}
