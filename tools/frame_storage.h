// How the frames of a simulated burst lie in their files.
#ifndef TESSALINE4_TOOLS_FRAME_STORAGE_H_
#define TESSALINE4_TOOLS_FRAME_STORAGE_H_

#include <string>
#include <vector>

#include "picture.h"

namespace tool {

struct FrameStorage {
  std::string format = "png";  // the ending, one of frameFormats
  int32_t jpegQuality = 95;
};
const std::vector<std::string>& frameFormats();

// A PNG reads back as the same 4:2:0 planes, but for rounding and clipping: the usual way to RGB blends each chroma
// sample with its neighbours, which would take half of the chroma noise away.
void writeFrame(const std::string& path, const Picture& frame, const FrameStorage& storage);

// The frame as it reads back from such a file.
Picture asStored(const Picture& frame, const FrameStorage& storage);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_FRAME_STORAGE_H_
