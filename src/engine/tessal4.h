// Tessal4: the engine. Takes frames, ranks them, solves their motions, merges and finishes.
//
//   construct_Tessal4 -> Tessal4_setParallelExecutor -> Tessal4_init -> Tessal4_setOutput
//     -> Tessal4_setImage per frame -> Tessal4_getRecommendedOrder -> Tessal4_solve -> Tessal4_merge
//     -> Tessal4_noiseReduction -> (Tessal4_clean, Tessal4_setOutput for the next burst) -> destruct_Tessal4
//
// The caller's thread alone touches the record; kernels receive pointers for the length of one fork and join.
#ifndef ZVT4_ENGINE_TESSAL4_H_
#define ZVT4_ENGINE_TESSAL4_H_

#include "engine/tessal4_params.h"
#include "filters/denoiser.h"
#include "filters/denoiser2.h"
#include "filters/weak_uv_nr.h"
#include "imageproc/guided_filter.h"
#include "imageproc/image_proc.h"
#include "parallel/parallel_executor.h"
#include "tracker/vectral.h"

inline constexpr int32_t kTessal4Frames = 32;  // hard limit of the engine

enum Tessal4MergeStatus : int32_t {
  TESSAL4_MERGED = 0,
  TESSAL4_BAD_MOTION = 1,
  TESSAL4_BLURRED = 2,
  TESSAL4_GHOST = 3,
  TESSAL4_NOT_USED = 4,
};

struct Tessal4 {
  Env* env;
  ParallelExecutor ownExecutor;  // constructed and destructed only
  ParallelExecutor* executor;    // in use; may be null
  Pel* pel;                      // in use; may be null
  Thread thread;                 // constructed and destructed only
  ImageProc imageProc;
  ImageProc* imageProcPtr;
  ImageProc2 imageProc2;  // constructed and recycled only
  int32_t width;
  int32_t height;
  int32_t outWidth;
  int32_t outHeight;
  int32_t frameCount;
  int32_t addedCount;
  int32_t validCount;  // frames merged so far
  int32_t mergeCount;  // argument of the last merge
  int32_t usedCount;   // frames past the sharpness test
  Vectral tracker;
  Mvec8Real motions[kTessal4Frames];  // reference to frame, full-size pixels
  int32_t motionInvalid[kTessal4Frames];
  uint32_t trackFailure[kTessal4Frames];
  int32_t blurScore[kTessal4Frames];
  Image shrunk[kTessal4Frames];
  int32_t mergeStatus[kTessal4Frames];
  Tessal4Params params;
  double scale;  // 1 / workDivisor
  int32_t workWidth;
  int32_t workHeight;
  int32_t diffWeights[3];  // Q13
  int32_t trackedAtIntake;
  int32_t cropLeft;
  int32_t cropTop;
  int32_t cropRight;
  int32_t cropBottom;
  Image* output;
  Image* resultPtr;
  Image resultView;
  Image spareImages[2];
  Image accumulator;
  Image lumaView;
  Image chromaView;
  Image* accumulatorPtr;
  Mvec8Real cropMotion;
  int32_t trackWidth;
  int32_t trackHeight;
  Image uvThresholdMap;    // full size
  Image epsilonMap;        // working size
  Image compareImages[2];  // base and current frame at working size
  Tessal4Denoiser denoiser;
  Tessal4Denoiser2 denoiser2;
  Image warped;
  Image accWeight;  // "UINT16", working size
  Image spareMap;
  Image diffMap;
  Image lumaCorrection;
  Image spareCorrection;
  int32_t cropWidth;
  int32_t cropHeight;
  int32_t ghostScore[kTessal4Frames];
  GuidedFilter guidedFilter;
  GuidedFilterParam guidedFilterParam;
  uint8_t epsilonTable[129];
  uint8_t uvThresholdTable[129];
  float epsilonScale;
};

// Context.
extern "C" {
// Arena bytes of a burst, the larger of the peaks of merge and finish; params null: the defaults of the size. Negative
// for a negative side and where the sum does not fit 31 bits.
int32_t Tessal4_getBufferSize(int32_t width, int32_t height, int32_t frameCount, int32_t format,
                              const Tessal4Params* params) ZVT4_NAME(Tessal4_getBufferSize);
Status construct_Tessal4(Tessal4* engine, Env* env) ZVT4_NAME(construct_Tessal4);
Status destruct_Tessal4(Tessal4* engine) ZVT4_NAME(destruct_Tessal4);
Status Tessal4_setParallelExecutor(Tessal4* engine, ParallelExecutor* executor) ZVT4_NAME(Tessal4_setParallelExecutor);
Status Tessal4_init(Tessal4* engine, int32_t width, int32_t height, int32_t frameCount, const Tessal4Params* params)
    ZVT4_NAME(Tessal4_init);
Status Tessal4_clean(Tessal4* engine) ZVT4_NAME(Tessal4_clean);
}

// Intake, order, solve.
struct Tessal4StoreFrame {
  Tessal4* engine;
  const Image* image;
  int32_t slot;
  int32_t track;
};

extern "C" {
Status Tessal4_storeFrame(Tessal4StoreFrame* arguments) ZVT4_NAME(Tessal4_storeFrame);
Status Tessal4_setImage(Tessal4* engine, const Image* image, int32_t slot) ZVT4_NAME(Tessal4_setImage);
Status Tessal4_addImage(Tessal4* engine, const Image* image) ZVT4_NAME(Tessal4_addImage);
Status Tessal4_getRecommendedOrder(Tessal4* engine, int32_t* order, int32_t* scores)
    ZVT4_NAME(Tessal4_getRecommendedOrder);
Status Tessal4_getRecommendedID(Tessal4* engine, int32_t* outId) ZVT4_NAME(Tessal4_getRecommendedID);
Status Tessal4_solve(Tessal4* engine, int32_t base) ZVT4_NAME(Tessal4_solve);
Status Tessal4_getMotion(Tessal4* engine, Mvec8Real** out, int32_t id) ZVT4_NAME(Tessal4_getMotion);
Status Tessal4_setOutput(Tessal4* engine, Image* image) ZVT4_NAME(Tessal4_setOutput);
Status Tessal4_getDebugInfo(Tessal4* engine, char* text) ZVT4_NAME(Tessal4_getDebugInfo);
int32_t Tessal4_isMotionUsable(Tessal4* engine, ImageRect* rect, const Mvec8Real* motion)
    ZVT4_NAME(Tessal4_isMotionUsable);
}

// Merge.
struct Tessal4BlendMapRows {
  const uint8_t* table;  // 256 weights by difference
  const Image* diffMap;
  Image* accWeight;
  Image* mask;
  int32_t begin;
  int32_t end;
};
struct Tessal4CountDiffRows {
  const Image* diffMap;
  int32_t* count;
  int32_t begin;
  int32_t end;
};
struct Tessal4LumaCorrectRows {
  Image* luma;             // of the frame, corrected in place
  const Image* frameMean;  // its blurred luma
  const Image* baseMean;   // the base's blurred luma
  Image* correction;       // receives the correction + 128; may be null
  int32_t begin;
  int32_t end;
};

extern "C" {
Status Tessal4_merge(Tessal4* engine, Image* images, const int32_t* order, int32_t mergeCount) ZVT4_NAME(Tessal4_merge);
Status Tessal4_shrinkToFit(Tessal4* engine, Image* dst, const Image* src) ZVT4_NAME(Tessal4_shrinkToFit);
Status Tessal4_blendMapRows(Tessal4BlendMapRows* rows) ZVT4_NAME(Tessal4_blendMapRows);
Status Tessal4_countDiffRows(Tessal4CountDiffRows* rows) ZVT4_NAME(Tessal4_countDiffRows);
Status Tessal4_lumaCorrectRows(Tessal4LumaCorrectRows* rows) ZVT4_NAME(Tessal4_lumaCorrectRows);
}

// Finishing.
extern "C" {
Status Tessal4_setEpsilonValues(Tessal4* engine, const float* values, int32_t n) ZVT4_NAME(Tessal4_setEpsilonValues);
Status Tessal4_setUvnrThresholdValues(Tessal4* engine, const int32_t* values, int32_t n)
    ZVT4_NAME(Tessal4_setUvnrThresholdValues);
Status Tessal4_makeNrMaps(Tessal4* engine) ZVT4_NAME(Tessal4_makeNrMaps);
Status Tessal4_noiseReduction(Tessal4* engine) ZVT4_NAME(Tessal4_noiseReduction);
Status Tessal4_noiseReduction2(Tessal4* engine, const Tessal4Denoiser2Params* params)
    ZVT4_NAME(Tessal4_noiseReduction2);
// weakUvNr on the engine's Env and Pel. ZELVAN_ERROR_PARAM for a null engine, too.
__attribute__((visibility("default"))) Status zelvan_Tessaline4Internal_weakUvNr(Tessal4* engine, Image* dst,
                                                                                 const Image* src, const Image* map,
                                                                                 const WeakUvNrParams* params);
}

// Deconvolution of a "UINT8" image in place by Van Cittert's iteration. With G the 7-tap Gaussian blur, clamped to 0
// to 255 after each step:
//   X = 2 image - G(sigma1) image;   nine times X = image - G(sigma1) X + X;   image = G(0.1) G(sigma2) X
// Scratch: two images of this size and that of the blur. Rows on the executor; any split gives the same bytes.
// ZELVAN_ERROR_PARAM for null arguments and other formats; else the status of the step that failed, and the image is
// then as it was, unless the last blur failed.
extern "C" {
Status Tessal4_deconv(Tessal4* engine, Image* image, double sigma1, double sigma2) ZVT4_NAME(Tessal4_deconv);
}

#endif  // ZVT4_ENGINE_TESSAL4_H_
