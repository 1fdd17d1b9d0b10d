/* zelvan_tessaline4: a burst of hand-held frames in, one sharper and less noisy still out.
 *
 * The caller gives one buffer for all working memory; the library asks the system for nothing but its threads.
 *
 *   zelvan_Tessaline4 handle;
 *   int32_t bytes = zelvan_Tessaline4_getBufferSize(width, height, frameCount, "YVU420_SEMIPLANAR");
 *   zelvan_Tessaline4_initialize(&handle, buffer, bytes, width, height);
 *   ... setters ...
 *   zelvan_Tessaline4_start(&handle, &output, frameCount);
 *   for each frame: zelvan_Tessaline4_addImage(&handle, &frame);
 *   zelvan_Tessaline4_getResult(&handle);
 *   zelvan_Tessaline4_finalize(&handle);
 *
 * Frame buffers must stay valid until the merge is done, and the library may change their pixels. One caller thread
 * per instance; several instances may run side by side, each in its own buffer. docs/using.md tells the rest. */
#ifndef ZELVAN_TESSALINE4_H_
#define ZELVAN_TESSALINE4_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define ZELVAN_TESSALINE4_API __attribute__((visibility("default")))
#else
#define ZELVAN_TESSALINE4_API
#endif

/* Status words. The top bit marks a failure; functions of several steps return the bitwise OR of their steps. */
#define ZELVAN_TESSALINE4_OK 0u
#define ZELVAN_TESSALINE4_ERROR_GENERAL 0x80000000u /* a step failed, or the progress callback stopped the burst */
#define ZELVAN_TESSALINE4_ERROR_PARAM 0x80000001u
#define ZELVAN_TESSALINE4_ERROR_STATE 0x80000002u
#define ZELVAN_TESSALINE4_ERROR_NOMEM 0x80000004u
#define ZELVAN_TESSALINE4_ERROR_UNSUPPORTED 0x80000010u
#define ZELVAN_TESSALINE4_ERROR_TIMEOUT 0x80000080u
#define ZELVAN_TESSALINE4_ERROR_RESOURCE 0xC0000000u

/* What became of a frame: zelvan_Tessaline4_getMergeStatus. */
#define ZELVAN_TESSALINE4_MERGED 0
#define ZELVAN_TESSALINE4_BAD_MOTION 1 /* not tracked, or too little overlap with the base */
#define ZELVAN_TESSALINE4_BLURRED 2    /* much less sharp than the base */
#define ZELVAN_TESSALINE4_GHOST 3      /* too much of it differs from the base */
#define ZELVAN_TESSALINE4_NOT_USED 4   /* behind the number of frames to merge */

typedef struct zelvan_Tessaline4 {
  struct Tessal4Handle* pointer; /* inside the caller's buffer; null when there is no instance */
} zelvan_Tessaline4;

#ifndef ZELVAN_IMAGE_DATA_DEFINED
#define ZELVAN_IMAGE_DATA_DEFINED
typedef struct zelvan_ImageData {
  int32_t width;
  int32_t height;
  void* plane0; /* luma, or the interleaved pixels */
  void* plane1; /* chroma pairs, or U */
  void* plane2; /* V */
} zelvan_ImageData;

typedef struct zelvan_ImageDataEx {
  int32_t width;
  int32_t height;
  void* plane0;
  void* plane1;
  void* plane2;
  int32_t pitch0; /* bytes from row to row */
  int32_t pitch1;
  int32_t pitch2;
} zelvan_ImageDataEx;
#endif

ZELVAN_TESSALINE4_API const char* zelvan_Tessaline4_getVersion(void);
/* A status in English words, never null, valid for ever. Of several errors in one word the text names one. */
ZELVAN_TESSALINE4_API const char* zelvan_Tessaline4_getStatusText(uint32_t status);
/* Bytes of working memory for bursts of this size. 0 or less: too large, the bytes do not fit 31 bits (from about 160
 * megapixels on, 135 for YUV422_YUYV), or a negative side. */
ZELVAN_TESSALINE4_API int32_t zelvan_Tessaline4_getBufferSize(int32_t width, int32_t height, int32_t frameCount,
                                                              const char* format);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_initialize(zelvan_Tessaline4* handle, void* buffer, int32_t bufferSize,
                                                            int32_t width, int32_t height);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_finalize(zelvan_Tessaline4* handle);

ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_start(zelvan_Tessaline4* handle, zelvan_ImageData* output,
                                                       int32_t frameCount);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_startEx(zelvan_Tessaline4* handle, zelvan_ImageDataEx* output,
                                                         int32_t frameCount);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_reset(zelvan_Tessaline4* handle);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_addImage(zelvan_Tessaline4* handle, zelvan_ImageData* frame);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_addImageEx(zelvan_Tessaline4* handle, zelvan_ImageDataEx* frame);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getResult(zelvan_Tessaline4* handle);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_merge(zelvan_Tessaline4* handle);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_enhance(zelvan_Tessaline4* handle);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getMergeStatus(zelvan_Tessaline4* handle, int32_t* status,
                                                                int32_t index);

/* What the merge knew about a frame. Open once it has run; index counts the frames as they were added, from 0.
 * ZELVAN_TESSALINE4_ERROR_PARAM: a null pointer, or an index outside the burst. ZELVAN_TESSALINE4_ERROR_STATE: before
 * the merge. */
typedef struct zelvan_FrameInfo {
  int32_t score;         /* sharpness; 0 for all with automatic sorting off */
  int32_t order;         /* place in the merge: 0 is the base, to which the others were aligned */
  int32_t mergeStatus;   /* as zelvan_Tessaline4_getMergeStatus gives it */
  uint32_t trackFailure; /* verdict bits of the tracker, 0 for a tracked frame */
  /* Row-major 3x3 projective motion with motion[8] = 1, from points of the base (with automatic scaling: of the
   * result) to points of the frame, in pixels. Identity for a frame that was not tracked. */
  double motion[9];
} zelvan_FrameInfo;
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getFrameInfo(zelvan_Tessaline4* handle, int32_t index,
                                                              zelvan_FrameInfo* info);

/* Settings: open between initialize and start. */
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setImageFormat(zelvan_Tessaline4* handle, const char* format);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getImageFormat(zelvan_Tessaline4* handle, char* text, int32_t size);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setNumberOfMergeImages(zelvan_Tessaline4* handle, int32_t count);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getNumberOfMergeImages(zelvan_Tessaline4* handle, int32_t* count);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setCoreSetting(zelvan_Tessaline4* handle, int32_t threads,
                                                                uint32_t mask);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getCoreSetting(zelvan_Tessaline4* handle, int32_t* threads,
                                                                uint32_t* mask);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setAutoScaling(zelvan_Tessaline4* handle, int32_t flag);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getAutoScaling(zelvan_Tessaline4* handle, int32_t* flag);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setAutoSorting(zelvan_Tessaline4* handle, int32_t flag);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getAutoSorting(zelvan_Tessaline4* handle, int32_t* flag);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setObjBlurCorrectionLevel(zelvan_Tessaline4* handle, int32_t level);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getObjBlurCorrectionLevel(zelvan_Tessaline4* handle, int32_t* level);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setLumaNoiseReductionLevel(zelvan_Tessaline4* handle, int32_t level);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getLumaNoiseReductionLevel(zelvan_Tessaline4* handle, int32_t* level);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setChromaNoiseReductionLevel(zelvan_Tessaline4* handle, int32_t level);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getChromaNoiseReductionLevel(zelvan_Tessaline4* handle,
                                                                              int32_t* level);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setSaturationLevel(zelvan_Tessaline4* handle, int32_t level);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getSaturationLevel(zelvan_Tessaline4* handle, int32_t* level);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setGain(zelvan_Tessaline4* handle, int32_t percent);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getGain(zelvan_Tessaline4* handle, int32_t* percent);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setGamma(zelvan_Tessaline4* handle, int32_t percent);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getGamma(zelvan_Tessaline4* handle, int32_t* percent);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setContrast(zelvan_Tessaline4* handle, int32_t value);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getContrast(zelvan_Tessaline4* handle, int32_t* value);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setSharpnessEnhanceLevel(zelvan_Tessaline4* handle, int32_t level);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getSharpnessEnhanceLevel(zelvan_Tessaline4* handle, int32_t* level);

/* 1: the fine mode, which aligns below the pixel, merges in one pass and chooses its noise reduction by the measured
 * noise; 0, the default: the exact road. */
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setFineMode(zelvan_Tessaline4* handle, int32_t mode);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getFineMode(zelvan_Tessaline4* handle, int32_t* mode);

/* What the fine mode found out about a burst and a frame. Open once the merge has run.
 * ZELVAN_TESSALINE4_ERROR_STATE: before, or without the fine mode. */
typedef struct zelvan_FineInfo {
  double noise[3];       /* typical standard deviation of a single frame: luma, first and second chroma byte */
  double lumaStrength;   /* chosen threshold of luma denoising, by the standard deviation of the noise that is left */
  double chromaStrength; /* likewise */
  int32_t mapWidth;      /* of the maps of zelvan_Tessaline4_getFineMap */
  int32_t mapHeight;
} zelvan_FineInfo;
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getFineInfo(zelvan_Tessaline4* handle, zelvan_FineInfo* info);

typedef struct zelvan_FineFrameInfo {
  double residual;    /* share of the base's structure that the frame did not show when laid over it, 0 to 1 */
  double cornerSigma; /* standard deviation of the motion at the worst corner, in pixels */
  double share;       /* of the picture that was used of the frame, 0 to 1 */
} zelvan_FineFrameInfo;
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getFineFrameInfo(zelvan_Tessaline4* handle, int32_t index,
                                                                  zelvan_FineFrameInfo* info);

/* mapWidth x mapHeight bytes, row after row. index of a frame: its weight, 255 = whole; index -1: how many frames each
 * place got, in 1/16. */
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getFineMap(zelvan_Tessaline4* handle, int32_t index, uint8_t* map);

/* How far a burst is, in per cent: after each frame taken, and between the steps of getResult, merge and enhance. The
 * number never decreases from start or reset to 100, which is told once the picture is whole.
 *
 * Called on the thread that calls the library, which waits for the answer: nonzero stops the burst, except at 100. The
 * call then returns ZELVAN_TESSALINE4_ERROR_GENERAL, and only the getters, reset and finalize are open. A stop at
 * up to ZELVAN_TESSALINE4_PERCENT_ALIGNED leaves the frames as they were, but for a gain, a gamma or a wrapped format,
 * which work in place as frames are taken. The callback must not call functions of the same instance, and must return.
 */
#define ZELVAN_TESSALINE4_PERCENT_ALIGNED 30
typedef int32_t (*zelvan_ProgressCallback)(void* user, int32_t percent);
/* A null callback, the default: none. Open whenever the instance exists; it stays over a reset. */
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setProgress(zelvan_Tessaline4* handle,
                                                             zelvan_ProgressCallback callback, void* user);

/* The raw values behind the levels. */
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setObjBlurCorrectionLevel_internal(zelvan_Tessaline4* handle,
                                                                                    double value);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getObjBlurCorrectionLevel_internal(zelvan_Tessaline4* handle,
                                                                                    double* value);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setLumaNoiseReductionLevel_internal(zelvan_Tessaline4* handle,
                                                                                     double percent);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getLumaNoiseReductionLevel_internal(zelvan_Tessaline4* handle,
                                                                                     double* percent);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setChromaNoiseReductionLevel_internal(zelvan_Tessaline4* handle,
                                                                                       double value);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getChromaNoiseReductionLevel_internal(zelvan_Tessaline4* handle,
                                                                                       double* value);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setLumaNoiseReductionTimes_internal(zelvan_Tessaline4* handle,
                                                                                     int32_t count);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getLumaNoiseReductionTimes_internal(zelvan_Tessaline4* handle,
                                                                                     int32_t* count);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setChromaNoiseReductionTimes_internal(zelvan_Tessaline4* handle,
                                                                                       int32_t count);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getChromaNoiseReductionTimes_internal(zelvan_Tessaline4* handle,
                                                                                       int32_t* count);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setRemoveSpikeNoiseLevel_internal(zelvan_Tessaline4* handle,
                                                                                   int32_t level);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getRemoveSpikeNoiseLevel_internal(zelvan_Tessaline4* handle,
                                                                                   int32_t* level);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setSharpnessEnhanceSigma_internal(zelvan_Tessaline4* handle,
                                                                                   double sigma1, double sigma2);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_getSharpnessEnhanceSigma_internal(zelvan_Tessaline4* handle,
                                                                                   double* sigma1, double* sigma2);

/* Strength by the number k of frames that agree at a pixel; items 0 to n are read, n at most 32. */
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setNoiseReductionLevels(zelvan_Tessaline4* handle, const float* levels,
                                                                         int32_t n);
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setUvNoiseReductionThres(zelvan_Tessaline4* handle,
                                                                          const int32_t* thresholds, int32_t n);

/* start calls this once; a second call would scale the strength tables again. */
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_setInternalParameter(zelvan_Tessaline4* handle);

/* In-place conversion of a caller's buffer from format 16 or 26 to the working format 27. A refused call changes
 * neither the record nor its pixels. */
ZELVAN_TESSALINE4_API uint32_t zelvan_Tessaline4_convertInput(zelvan_Tessaline4* handle, zelvan_ImageData* data,
                                                              int32_t fromFormat, int32_t toFormat);

#ifdef __cplusplus
}
#endif

#endif /* ZELVAN_TESSALINE4_H_ */
