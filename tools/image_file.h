// Pictures from and to files: JPEG, PNG, raw 4:2:0 and 4:2:2, and Y4M streams.
#ifndef TESSALINE4_TOOLS_IMAGE_FILE_H_
#define TESSALINE4_TOOLS_IMAGE_FILE_H_

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "output_file.h"
#include "picture.h"

namespace tool {

// Size and layout of raw files, which carry neither.
struct RawLayout {
  int32_t width = 0;
  int32_t height = 0;
  std::string format;  // "nv21", "nv12", "i420" or "yuyv"; empty: told by the ending of the file
};

// Called with the size that a file's header or the raw layout tells, before pixels are read. Throws Error to refuse it.
using SizeCheck = std::function<void(const std::string& name, int64_t width, int64_t height)>;

// Reads the frames named by paths: picture files, raw files, or one Y4M stream ("-" is standard input). Throws Error
// for anything unreadable, for more than most frames and for frames of different size. A file is read no further than
// it can be a picture, so that endless ones end with an error too.
std::vector<Picture> readFrames(const std::vector<std::string>& paths, const std::optional<RawLayout>& raw, size_t most,
                                const SizeCheck& check = nullptr);

// One picture of any kind.
Picture readPicture(const std::string& path, const std::optional<RawLayout>& raw = std::nullopt);
// The same without the detour through 4:2:0 where the file holds RGB.
RgbPicture readRgb(const std::string& path);

struct WriteOptions {
  int jpegQuality = 95;
  std::string format;  // one of the endings, without the dot; empty: the path's own
  Existing existing = Existing::kReplace;
};
// Writes one of the kinds jpg, jpeg, png, y4m, nv21, nv12, i420, yuv (i420) and yuyv as output_file.h describes; "-" is
// standard output. Metadata goes into JPEG and PNG files; a line for each thing that is left out comes back.
std::vector<std::string> writePicture(const std::string& path, const Picture& picture,
                                      const WriteOptions& options = {});
// Frames of one size as a stream.
void writeY4m(const std::string& path, const std::vector<Picture>& frames);
// Both throw Error naming path when writePicture is known to fail: for the ending or the file, and for the size. Call
// them before long work.
void checkWritable(const std::string& path, const WriteOptions& options = {});
void checkWritableSize(const std::string& path, const WriteOptions& options, int64_t width, int64_t height);
// The kinds that writePicture knows.
const std::vector<std::string>& writableFormats();

Picture toYuv420(const RgbPicture& rgb);
RgbPicture toRgb(const Picture& picture);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_IMAGE_FILE_H_
