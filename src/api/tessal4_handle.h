// Tessal4Handle: the record of an instance, at the start of the caller's buffer. The arena follows it.
#ifndef ZVT4_API_TESSAL4_HANDLE_H_
#define ZVT4_API_TESSAL4_HANDLE_H_

#include "api/zelvan_tessaline4.h"
#include "engine/tessal4.h"
#include "fine/burst.h"

inline constexpr int32_t kMaxFrames = 10;
inline constexpr int32_t kStrengthAnchors = 33;

enum Tessal4StateFlag : uint32_t {
  TESSAL4_EXISTS = 1,    // initialize
  TESSAL4_OPEN = 2,      // start
  TESSAL4_FILLED = 4,    // at least one frame taken
  TESSAL4_DONE = 8,      // the merge has run
  TESSAL4_STOPPED = 16,  // the progress callback wanted no more
};

struct Tessal4Handle {
  Env env;
  Tessal4 engine;
  Tessal4Params params;  // what start hands to the engine
  int32_t autoScaling;
  int32_t autoSorting;
  double objBlurCorrection;
  double lumaNrStrength;
  double chromaNrStrength;
  int32_t lumaNrTimes;
  int32_t chromaNrTimes;
  int32_t removeSpikeLevel;
  int32_t saturationLevel;
  int32_t gain;   // percent
  int32_t gamma;  // percent
  int32_t sharpnessLevel;
  double sharpnessSigma1;
  double sharpnessSigma2;
  int32_t contrast;
  int32_t lumaNrLevelPercent;
  float epsilonLevels[kStrengthAnchors];        // item k: strength where k frames agree
  int32_t uvThresholdLevels[kStrengthAnchors];  // likewise
  int32_t objBlurLevel;                         // 0 to 7, -1 not set
  int32_t lumaNrLevel;
  int32_t chromaNrLevel;
  Image convertDst;
  Image convertSrc;
  Image frames[kMaxFrames];
  Image output;
  int32_t frameCount;
  int32_t width;
  int32_t height;
  int32_t imageFormat;    // working format; -1 not set
  int32_t wrappedFormat;  // 16 or 26 when the caller's format is converted on the way in and out
  int32_t addedCount;
  int32_t mergeCount;
  ParallelExecutor executor;
  Pel pel;
  uint32_t stateFlags;
  int32_t coreCount;
  uint32_t coreMask;
  int32_t corePin;
  WeakUvNrParams weakUvNrParams;
  int32_t weakUvNrTimes;
  int32_t order[kMaxFrames];   // frame ids as the merge went through them
  int32_t scores[kMaxFrames];  // of order[0], order[1] and so on
  int32_t fineMode;
  int32_t sharpnessGiven;  // nonzero once a caller has set sharpnessLevel
  fine::Burst fine;
  zelvan_ProgressCallback progress;  // may be null
  void* progressUser;
  int32_t progressPercent;  // the last that was told
};

// What each step leads to, by its usual share of the time.
enum ProgressPercent : int32_t {
  PERCENT_TAKEN = 15,  // all frames; each has its part of it
  PERCENT_ALIGNED = ZELVAN_TESSALINE4_PERCENT_ALIGNED,
  PERCENT_MERGED = 40,
  PERCENT_ENHANCED = 90,
  PERCENT_WHOLE = 100,
};

// Tells the caller, if it listens, how far the burst is. ZELVAN_ERROR_GENERAL: it wants no more, and the instance is
// marked stopped.
Status tellProgress(Tessal4Handle* self, int32_t percent);

// The fine road in place of the engine's (api/fine_mode.cpp); what it finds out is told in the engine's record.
Status startFine(Tessal4Handle* self);
Status mergeFine(Tessal4Handle* self);
Status enhanceFine(Tessal4Handle* self);

// The result goes back into a wrapped format: image is the library's own output record.
extern "C" __attribute__((visibility("default"))) Status zelvan_Tessaline4_convertOutput(zelvan_Tessaline4* handle,
                                                                                         Image* image,
                                                                                         int32_t fromFormat,
                                                                                         int32_t toFormat);

#endif  // ZVT4_API_TESSAL4_HANDLE_H_
