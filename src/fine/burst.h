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
#include "fine/noise.h"

namespace fine {

// What became of a frame; the numbers of the public header.
enum FrameStatus : int32_t { MERGED = 0, BAD_MOTION = 1, BLURRED = 2, GHOST = 3, NOT_USED = 4 };

struct Settings {
  int32_t mergeCount;   // frames of the order that are looked at
  int32_t sorting;      // 0: in order of capture, none refused as blurred
  int32_t scaling;      // crop to what all frames share, scaled to the frame
  double strictness;    // against ghosts, 1 = usual
  double lumaStrength;  // threshold of luma denoising by sigma; below 0: chosen
  double chromaStrength;
  double sharpen;      // gain of the finest frequencies, beyond what the warp took; below 0: chosen
  int32_t saturation;  // Q10
};

struct FrameRecord {
  Image image;
  Pyramid pyramid;
  int32_t score;
  FrameStatus status;
  Alignment alignment;
  float share;  // mean weight of what it covers
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
  int32_t order[kMostFrames];  // the base first
  Mvec8Real crop;              // result to base
  bool cropped;
  Noise noise;
  MeshNode* nodes;  // of all meshes
  Image left;       // see Fusion
  int32_t merged;
};

void construct(Burst* burst, Env* env);
void release(Burst* burst);
void init(Burst* burst, Pel* pel, int32_t width, int32_t height, int32_t count, const Settings& settings);
Status addFrame(Burst* burst, const Image& image, int32_t slot);
Status align(Burst* burst);
Status render(Burst* burst, Image* output);

}  // namespace fine

#endif  // ZVT4_FINE_BURST_H_
