// A procedural scene to photograph: sky, buildings with edges at many angles, fine texture, smooth areas, small print
// and colour.
#ifndef TESSALINE4_TOOLS_SCENE_H_
#define TESSALINE4_TOOLS_SCENE_H_

#include <cstdint>

#include "picture.h"

namespace tool {

// The same seed and size give the same bytes.
RgbPicture drawScene(int32_t width, int32_t height, uint32_t seed);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_SCENE_H_
