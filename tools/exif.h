// EXIF blocks.
#ifndef TESSALINE4_TOOLS_EXIF_H_
#define TESSALINE4_TOOLS_EXIF_H_

#include <cstdint>
#include <vector>

namespace tool {

// An EXIF block made right for a new picture of this size: its pixel dimensions are the new ones, and the thumbnail,
// which shows the old picture, is gone. All else stays, orientation and the maker's notes included. Empty when exif is
// empty, cannot be read, or has become too large for a JPEG.
std::vector<uint8_t> exifForSize(const std::vector<uint8_t>& exif, int32_t width, int32_t height);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_EXIF_H_
