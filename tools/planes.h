// Where the samples of a picture lie.
#ifndef TESSALINE4_TOOLS_PLANES_H_
#define TESSALINE4_TOOLS_PLANES_H_

#include <cstddef>
#include <cstdint>

namespace tool {

// 4:2:0, 8 bits, full-range BT.601, in memory that somebody else owns. U and V have chromaWidth() x chromaHeight()
// samples, each at the centre of its 2x2 luma samples, step bytes apart: 1 in planes of their own, 2 where both lie in
// turn. Pitches are the bytes from row to row.
template <typename Byte>
struct PlanesOf {
  int32_t width = 0;
  int32_t height = 0;
  Byte* y = nullptr;
  Byte* u = nullptr;
  Byte* v = nullptr;
  size_t lumaPitch = 0;
  size_t chromaPitch = 0;
  size_t step = 1;

  int32_t chromaWidth() const { return (width + 1) / 2; }
  int32_t chromaHeight() const { return (height + 1) / 2; }
  Byte* lumaRow(int32_t row) const { return y + lumaPitch * static_cast<size_t>(row); }
  Byte* uRow(int32_t row) const { return u + chromaPitch * static_cast<size_t>(row); }
  Byte* vRow(int32_t row) const { return v + chromaPitch * static_cast<size_t>(row); }
  operator PlanesOf<const Byte>() const { return {width, height, y, u, v, lumaPitch, chromaPitch, step}; }
};
using Planes = PlanesOf<uint8_t>;
using ConstPlanes = PlanesOf<const uint8_t>;

// count samples from rows with a step each.
void copySamples(const uint8_t* from, size_t fromStep, uint8_t* to, size_t toStep, size_t count);
// Of one size.
void copyPlanes(const ConstPlanes& from, const Planes& to);
// All of U and V become 128.
void clearChroma(const Planes& planes);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_PLANES_H_
