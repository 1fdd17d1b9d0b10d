// The fine road: from the frames of a burst to one picture.
//
//   addFrame   pyramid, sharpness                                   fine/pyramid.h, sharpness.h
//   align      base and motions, noise, drift and weights           align.h, noise.h, weights.h
//   render     one pass over the result                             fusion.h, dct_shrink.h
//
// The base is the sharpest frame to which at least half of the others align; else the one to which most do. Frames must
// stay valid until render is done; they are only read. All memory is the arena's, and goes back with release.
#ifndef ZVT4_FINE_BURST_H_
#define ZVT4_FINE_BURST_H_

#include "fine/align.h"
#include "fine/fusion.h"
#include "fine/local_motion.h"
#include "fine/noise.h"
#include "fine/sharpness.h"
#include "parallel/parallel_executor.h"

namespace fine {

// What became of a frame; the numbers of the public header.
enum FrameStatus : int32_t { MERGED = 0, BAD_MOTION = 1, BLURRED = 2, GHOST = 3, NOT_USED = 4 };

struct Settings {
  int32_t mergeCount;   // frames of the order that are looked at
  int32_t sorting;      // 0: in order of capture, none refused as blurred
  int32_t scaling;      // crop to what all frames share, scaled to the frame
  double strictness;    // against ghosts, 1 = usual, 0: everything is merged
  double lumaStrength;  // of luma denoising, kStrengthOfOne = the limits of dct_shrink.h by the measured noise; 0: none
  double chromaStrength;
  double sharpen;          // share of what the warp takes that is given back
  int32_t saturation;      // Q10
  int32_t spikeLevel;      // above 0: specks are removed from the result
  int32_t sharpnessLevel;  // above 0: the adaptive sharpening of filters/sharpen.h follows
  double sharpnessSigmas[2];
  double sharpnessCoring;
};

inline constexpr double kStrengthOfOne = 1.8;
// What is chosen when a caller does not say.
inline constexpr double kUsualLumaStrength = 1.8;
inline constexpr double kUsualChromaStrength = 1.45;

struct FrameRecord {
  Image image;
  Pyramid pyramid;
  Sharpness sharpness;
  int32_t score;
  FrameStatus status;
  Alignment alignment;
  int32_t strength;  // what a pixel of it counts by one of the base, Q8
  ShiftField field;  // on top of the motion
  int32_t bent;      // nonzero: the field counts
  float share;       // mean weight of what it covers
  Drift drift;
  Mesh mesh;
  Image weights;  // "UINT8"
  Image shares;   // "UINT16"
};

struct Burst {
  Env* env;
  Pel* pel;
  int32_t width;
  int32_t height;
  int32_t count;
  int32_t added;
  Settings settings;
  FrameRecord frames[kMostFrames];
  int32_t ranked;              // frames that could be taken in
  int32_t order[kMostFrames];  // of these, the base first
  Mvec8Real crop;              // result to base
  int32_t cropped;             // nonzero: crop is not the identity
  Noise noise;
  MeshNode* nodes;  // of all meshes
  double* shifts;   // of all fields
  Image left;       // see Fusion
  Image mapLuma;    // the base on the result's grid at level kMapLevel
  Image mapColour;
  int32_t merged;
};

void construct(Burst* burst, Env* env);
void release(Burst* burst);
void init(Burst* burst, Pel* pel, int32_t width, int32_t height, int32_t count, const Settings& settings);
Status addFrame(Burst* burst, const Image& image, int32_t slot);
Status align(Burst* burst);
// executor: for the sharpening that a caller asks for; may be null.
Status render(Burst* burst, ParallelExecutor* executor, Image* output);
// A map at level kMapLevel without gaps: the weight of a frame, 255 = whole, or for -1 the number of frames that each
// place got, in 1/16.
void copyMap(const Burst& burst, int32_t id, uint8_t* out);
// From the result to a frame, identity for one that is not aligned.
Mvec8Real resultMotion(const Burst& burst, int32_t id);

}  // namespace fine

#endif  // ZVT4_FINE_BURST_H_
