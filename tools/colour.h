// Rows of RGB from and to planes, full-range BT.601. image_file.h has the same for whole pictures.
#ifndef TESSALINE4_TOOLS_COLOUR_H_
#define TESSALINE4_TOOLS_COLOUR_H_

#include <cstdint>
#include <vector>

#include "planes.h"

namespace tool {

// Rows y and y + 1, y even; where the last row stands alone, lower is upper.
void putRgbRows(const Planes& to, int32_t y, const uint8_t* upper, const uint8_t* lower);

// Rows of a picture as 8-bit interleaved RGB.
class RgbRows {
 public:
  explicit RgbRows(const ConstPlanes& planes);
  // Valid until the next call.
  const uint8_t* operator()(int32_t y);

 private:
  ConstPlanes planes_;
  std::vector<int32_t> blendU_;
  std::vector<int32_t> blendV_;
  std::vector<uint8_t> row_;
};

}  // namespace tool

#endif  // TESSALINE4_TOOLS_COLOUR_H_
