// Rows of a frame at the positions of a mesh, as 16-bit samples.
//
// A sample is 64 (s - 128), s the interpolated byte: bicubic after Catmull and Rom (Keys, "Cubic convolution
// interpolation for digital image processing", 1981, a = -1/2). Between its stages the value keeps six
// bits of fraction and is not clamped: overshoot stays until the frames are summed. With f in Q15 the taps are
//   w(-1) = (-f + 2 f^2 - f^3) / 2,  w(1) = (f + 4 f^2 - 3 f^3) / 2,  w(2) = (f^3 - f^2) / 2,  w(0) = 1 - the others,
// in Q14; a product is (a b + 2^14) >> 15. So all is done in 16-bit lanes, a row cut where the whole part of the
// position changes. Positions outside the picture read its edge.
#ifndef ZVT4_FINE_SAMPLER_H_
#define ZVT4_FINE_SAMPLER_H_

#include "fine/mesh.h"
#include "image/image.h"

namespace fine {

// What follows holds of every out: it has room for so many samples more, which are overwritten.
inline constexpr int32_t kSampleSlack = 32;

// Row y of the result: width samples, or pairs of samples for an image of pairs, on the mesh's own grid.
void sampleRow(int16_t* out, const Image& image, const Mesh& mesh, int32_t y, int32_t width);
// Row y of the chroma of the result: width pairs.
void sampleChroma(int16_t* out, const Image& pairs, const Mesh& mesh, int32_t y, int32_t width);

// count samples, or pairs, from (x, y) on, within one cell of the mesh. chroma: coordinates of the chroma of the
// result, as in sampleChroma; else of the mesh's own grid.
void sampleWindowRow(int16_t* out, const Image& image, const Mesh& mesh, int32_t x, int32_t y, int32_t count,
                     bool chroma);

}  // namespace fine

#endif  // ZVT4_FINE_SAMPLER_H_
