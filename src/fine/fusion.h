// The merged picture: one pass over the result, every frame read once.
//
// A sample of the result is, in units of 1/64 level about 128,
//   base + sum over the frames of share x (sample of the frame, its drift taken out, - base),
// with shares in Q15 stretched bilinearly from level kMapLevel. What the shares leave is the base's. The sum goes, as
// 16-bit samples, through fine/dct_shrink.h where there is noise or sharpness to mend, and is rounded to bytes once.
//
// The result is cut into strips, and a strip goes down in bands of kBandRows rows of luma and half as many of chroma,
// which fit the cache; a band takes over what its blocks share with the one above. A strip makes the rows that its
// blocks reach beyond it for itself, so that strips are independent and any number of them gives the same bytes.
#ifndef ZVT4_FINE_FUSION_H_
#define ZVT4_FINE_FUSION_H_

#include "fine/dct_shrink.h"
#include "fine/weights.h"

namespace fine {

inline constexpr int32_t kBandRows = 16;
inline constexpr int32_t kMostFrames = 10;

struct FusionFrame {
  Image luma;  // views
  Image pairs;
  Mesh mesh;
  const Image* shares;  // "UINT16", Q15, at level kMapLevel; null for the base
  Drift drift;
};

// Denoising of a channel; off: the sums are rounded as they are.
struct FusionShrink {
  bool on;
  ShrinkTable table;
  uint16_t byLuma[256];  // 128 x standard deviation of a single frame by brightness
};

struct Fusion {
  Env* env;
  Pel* pel;
  bool baseMoves;  // the base is sampled through its mesh, too
  int32_t count;   // frames, the base first
  FusionFrame frames[kMostFrames];
  const Image* mapLuma;    // of the base, level kMapLevel
  const Image* left;       // "UINT8" there: 255 x share of a single frame's variance that is left
  FusionShrink shrink[3];  // luma, chroma bytes 0 and 1
  int32_t saturation;      // Q10
};

// weights: one "UINT8" map a frame after the base, strengths: what each counts, Q8. Fills the shares and left.
Status normaliseShares(Pel* pel, Image* const* shares, Image* left, const Image* const* weights,
                       const int32_t* strengths, int32_t count);

// output: semi-planar, of the result's size; odd edges of chroma repeat the last pair. ZELVAN_ERROR_NOMEM.
Status fuse(const Fusion& fusion, Image* output);

}  // namespace fine

#endif  // ZVT4_FINE_FUSION_H_
