// Pictures from and to files: JPEG, PNG, raw 4:2:0 and 4:2:2, and Y4M streams.
#ifndef TESSALINE4_TOOLS_IMAGE_FILE_H_
#define TESSALINE4_TOOLS_IMAGE_FILE_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "picture.h"

namespace tool {

// Size and layout of raw files, which carry neither.
struct RawLayout {
  int32_t width = 0;
  int32_t height = 0;
  std::string format;  // "nv21", "nv12", "i420" or "yuyv"; empty: told by the ending of the file
};

// Reads the frames named by paths: picture files, raw files, or one Y4M stream ("-" is standard input). Throws Error
// for anything unreadable, for more than most frames and for frames of different size.
std::vector<Picture> readFrames(const std::vector<std::string>& paths, const std::optional<RawLayout>& raw,
                                size_t most);

// One picture of any kind.
Picture readPicture(const std::string& path, const std::optional<RawLayout>& raw = std::nullopt);
// The same without the detour through 4:2:0 where the file holds RGB.
RgbPicture readRgb(const std::string& path);

// Writes by the ending of path: .jpg .jpeg .png .y4m .nv21 .nv12 .i420 .yuv .yuyv. The file appears whole or not at
// all. Metadata goes into JPEG and PNG files; a line for each thing that is left out comes back.
std::vector<std::string> writePicture(const std::string& path, const Picture& picture, int jpegQuality = 95);
// Frames of one size as a stream.
void writeY4m(const std::string& path, const std::vector<Picture>& frames);
// Throws Error naming path when writePicture does not know the ending or the file cannot be made. Call it before
// long work.
void checkWritable(const std::string& path);

Picture toYuv420(const RgbPicture& rgb);
RgbPicture toRgb(const Picture& picture);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_IMAGE_FILE_H_
