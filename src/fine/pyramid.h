// The small copies of a frame that the fine road aligns and compares.
//
// Level 0 is the frame's own luma, a view; level k has floor(w / 2^k) by floor(h / 2^k) pixels, each the mean of 2x2
// of the level below, rounded to nearest. Levels end with the first whose longer side is below kCoarsestSide. colour
// holds the chroma pairs of the frame at the size of level kMapLevel, by the same means.
//
// Pixel i of level k is centred at (i + 0.5) 2^k - 0.5 of the frame: levelMotion brings a full-size motion there.
//
// Memory: about 0.46 bytes a pixel of the frame. Rows come in bands of one Pel index each, which build all levels while
// they are in the cache; any number of workers gives the same bytes.
#ifndef ZVT4_FINE_PYRAMID_H_
#define ZVT4_FINE_PYRAMID_H_

#include "image/image.h"
#include "motion/mvec8_real.h"
#include "parallel/pel.h"

namespace fine {

inline constexpr int32_t kMapLevel = 2;  // where frames are compared: a quarter of the frame
inline constexpr int32_t kCoarsestSide = 96;
inline constexpr int32_t kMostLevels = 12;

struct Pyramid {
  int32_t count;  // levels, 0 when nothing is held
  Image level[kMostLevels];
  Image colour;
};

void construct(Pyramid* pyramid, Env* env);
void release(Pyramid* pyramid);
// frame: semi-planar 8-bit YUV. Its luma must outlive the pyramid. ZELVAN_ERROR_NOMEM when the arena refuses; then
// nothing is held.
Status build(Pyramid* pyramid, Pel* pel, const Image* frame);
// Of w by h pixels, levels of a pyramid.
int32_t levelCount(int32_t width, int32_t height);

// A motion between full-size pixels as one between pixels of level k.
Mvec8Real levelMotion(const Mvec8Real& full, int32_t level);

}  // namespace fine

#endif  // ZVT4_FINE_PYRAMID_H_
