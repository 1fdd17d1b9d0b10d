// Rows of a frame at the positions of a mesh, as 16-bit samples.
//
// A sample is 64 (s - 128), s the interpolated byte: bicubic after Catmull and Rom (Keys, "Cubic convolution
// interpolation for digital image processing", 1981, a = -1/2), or bilinear. Between its stages the value keeps six
// bits of fraction and is not clamped: overshoot stays until the frames are summed. With f in Q15 the taps are
//   w(-1) = (-f + 2 f^2 - f^3) / 2,  w(1) = (f + 4 f^2 - 3 f^3) / 2,  w(2) = (f^3 - f^2) / 2,  w(0) = 1 - the others,
// in Q14; a product is (a b + 2^14) >> 15. So all is done in 16-bit lanes, a row cut where the whole part of the
// position changes. Positions outside the picture read its edge.
//
// The tables hold the same code for several processors; all give the same samples.
#ifndef ZVT4_FINE_SAMPLER_H_
#define ZVT4_FINE_SAMPLER_H_

#include "fine/mesh.h"
#include "image/image.h"

namespace fine {

// count: samples, of one or two interleaved channels. rows: the four source rows, at the tap left of the first
// sample's. out has room for kSampleSlack more. Fractions Q15, steps Q15 less one pixel.
inline constexpr int32_t kSampleSlack = 32;
struct SampleRun {
  const uint8_t* rows[4];
  uint16_t fx;
  uint16_t fy;
  uint16_t dx;
  uint16_t dy;
};
using SampleRow = void (*)(int16_t* out, const SampleRun& run, int32_t count);

struct Samplers {
  const char* name;
  SampleRow cubic[2];  // one channel, two channels
  SampleRow bilinear[2];
};

const Samplers* samplersAt(int32_t index);  // the first is the plain one; null behind the last that runs here
const Samplers* samplersBest();

// count samples of one channel along a line, bilinear. out has room for kSampleSlack samples more.
void sampleLine(int16_t* out, const Samplers& samplers, const Image& image, const MeshLine& line, int32_t count);

// Row y of the result: width samples, or pairs of samples for an image of pairs, on the mesh's own grid.
// out has room for kSampleSlack samples more.
void sampleRow(int16_t* out, const Samplers& samplers, bool cubic, const Image& image, const Mesh& mesh, int32_t y,
               int32_t width);
// Row y of the chroma of the result: width pairs.
void sampleChroma(int16_t* out, const Samplers& samplers, bool cubic, const Image& pairs, const Mesh& mesh, int32_t y,
                  int32_t width);

// count samples, or pairs, from (x, y) on, bicubic, within one cell of the mesh. chroma: coordinates of the chroma of
// the result, as in sampleChroma; else of the mesh's own grid.
void sampleWindowRow(int16_t* out, const Samplers& samplers, const Image& image, const Mesh& mesh, int32_t x, int32_t y,
                     int32_t count, bool chroma);

}  // namespace fine

#endif  // ZVT4_FINE_SAMPLER_H_
