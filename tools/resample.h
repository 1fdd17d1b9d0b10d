// Pictures through a projective map.
#ifndef TESSALINE4_TOOLS_RESAMPLE_H_
#define TESSALINE4_TOOLS_RESAMPLE_H_

#include "homography.h"
#include "picture.h"

namespace tool {

// A picture of the same size whose pixel p is that of source at motion(p), by cubic convolution (Keys, "Cubic
// convolution interpolation for digital image processing", 1981, a = -0.5). Edges repeat.
Picture resample(const Picture& source, const Homography& motion);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_RESAMPLE_H_
