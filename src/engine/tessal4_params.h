// Tessal4Params: the settings of the engine.
#ifndef ZVT4_ENGINE_TESSAL4_PARAMS_H_
#define ZVT4_ENGINE_TESSAL4_PARAMS_H_

#include "base/export.h"
#include "base/status.h"

// Defaults in brackets; L is the shrink level of the frame size.
struct Tessal4Params {
  int32_t diffWeightMode;        // [0] which weights the colour distance takes
  int32_t saturation;            // [1024] chroma gain, Q10
  double objBlurCorrection;      // [0.4] slope of the merge weight table
  int32_t chromaCoring;          // [0] nonzero: small chroma is suppressed
  int32_t contrast;              // [0] kept, read by no stage
  double lumaNrStrength;         // [4.0]
  double chromaNrStrength;       // [4.0]
  double thirdNrStrength;        // [4.0]
  int32_t lumaNrTimes;           // [0]
  int32_t denoiserKinds[3];      // [0, 1, 1]
  int32_t denoiserCentreWeight;  // [3]
  int32_t chromaNrTimes;         // [0]
  int32_t sharpnessLevel;        // [900]
  int32_t removeSpikeLevel;      // [0]
  double sharpnessSigma1;        // [0.2]
  double sharpnessSigma2;        // [0.8]
  double sharpnessMapFloor;      // [0.4]
  double sharpnessExtra;         // [0.0] coring of the sharpening
  double gain;                   // [1.0] not above 0 switches the intake curve off
  double gamma;                  // [1.0]
  double gammaOffset;            // [0.0]
  int32_t evalBlurEnable;        // [1] 0: no sharpness scores
  double evalBlurSigma;          // [0.7]
  int32_t bindOutput;            // [0] nonzero: accumulate in the output image
  int32_t lumaCorrectionMode;    // [0] 0 none, 1 narrow, 2 wide
  int32_t keepAccumulator;       // [1] read by the size estimate only
  int32_t autoScaling;           // [1] crop to the common area and scale
  int32_t keepMotionUncropped;   // [0]
  int32_t storeShrinkLevel;      // [L] frames are stored at width >> L
  int32_t trackShrinkLevel;      // [L] tracker area is the frame's >> 2L
  int32_t workDivisor;           // [1 << L]
  double preBlurSigma;           // [8.0] in full-size pixels
  int32_t minOverlapPercent;     // [95]
  int32_t maxGhostPercent;       // [15] 0 switches the ghost test off
  double blurRatio;              // [0.85]
  int32_t softBlurWeight;        // [0] nonzero: sharpness gives a weight
  double outputScale;            // [1.0]
  int32_t outputWidth;           // [-1] below 0: the frame's
  int32_t outputHeight;          // [-1]
  int32_t lumaNrLevelPercent;    // [0] above 0: the guided filter runs
};

extern "C" {
Status Tessal4Params_setDefault(Tessal4Params* params, int32_t width, int32_t height)
    ZVT4_NAME(Tessal4Params_setDefault);
}

#endif  // ZVT4_ENGINE_TESSAL4_PARAMS_H_
