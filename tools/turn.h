// Pictures turned as their EXIF orientation asks for (CIPA DC-008: 1 is upright, 2 to 8 are mirrored or turned).
#ifndef TESSALINE4_TOOLS_TURN_H_
#define TESSALINE4_TOOLS_TURN_H_

#include <cstdint>

#include "homography.h"
#include "picture.h"

namespace tool {

// Whether width and height change places.
constexpr bool turnsSides(int32_t orientation) {
  return orientation >= 5;
}

// A point of the turned picture to the point of the stored one, which has this size, that is seen there.
Homography turnedToStored(int32_t orientation, int32_t width, int32_t height);

// Without metadata. Chroma is turned sample by sample: on odd sides it may move by half of a pixel.
Picture turned(const Picture& stored, int32_t orientation);
RgbPicture turned(const RgbPicture& stored, int32_t orientation);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_TURN_H_
