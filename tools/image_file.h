// Pictures from and to files: JPEG, PNG, raw 4:2:0 and 4:2:2, and Y4M streams; from HEIC, AVIF, TIFF and cameras' raw
// files, too.
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

// Where the frames of a burst go while they are read.
class FrameTaker {
 public:
  virtual ~FrameTaker() = default;
  // First, and once: the size of all frames and their number.
  virtual void begin(int32_t width, int32_t height, size_t count) = 0;
  // Where frame index goes. Any thread may ask.
  virtual Planes room(size_t index) = 0;
  // Frame index is there. Called in their order, from the thread that reads the burst.
  virtual void take(size_t index, Metadata metadata) = 0;
};

// Which frames of a stream were read, where it has more than a burst takes. Empty: all.
struct StreamChoice {
  std::vector<size_t> taken;      // in their order
  std::vector<double> sharpness;  // of each frame of the stream
};

struct FrameList {
  std::vector<std::string> paths = {};
  std::optional<RawLayout> raw = std::nullopt;
  size_t most = 10;  // frames
  // Of a longer stream the most sharpest frames come, of equal ones the earlier, and this tells which. Null: such a
  // stream is an error.
  StreamChoice* choice = nullptr;
  SizeCheck check = nullptr;
  // A second thread decodes frames while others are taken. It changes neither what comes nor which error is told.
  bool readAhead = false;
};

// Reads the frames named by paths: picture files, raw files, or one Y4M stream ("-" is standard input). Throws Error
// for anything unreadable, for more than most files and for frames of different size. A file is read no further than
// it can be a picture, so that endless ones end with an error too.
void readFrames(const FrameList& list, FrameTaker* taker);
std::vector<Picture> readFrames(const FrameList& list);

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
std::vector<std::string> writePicture(const std::string& path, const ConstPlanes& picture, const Metadata& metadata,
                                      const WriteOptions& options = {});
inline std::vector<std::string> writePicture(const std::string& path, const Picture& picture,
                                             const WriteOptions& options = {}) {
  return writePicture(path, picture.planes(), picture.metadata, options);
}
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
