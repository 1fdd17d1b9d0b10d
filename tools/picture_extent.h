// How far a picture goes in a stream of bytes, told while they arrive.
#ifndef TESSALINE4_TOOLS_PICTURE_EXTENT_H_
#define TESSALINE4_TOOLS_PICTURE_EXTENT_H_

#include <cstddef>
#include <string>

#include "image_file_kinds.h"

namespace tool {

// A StillWanted (file_io.h) for a JPEG, a PNG or a Y4M stream, told by the first bytes; anything else is wanted no
// further than these. It walks along the marker segments, chunks or frames and ends behind the last one, or where the
// structure breaks, which decoding then finds too. Throws Error naming the file when the size is refused, or when
// more bytes come than a picture of its size can have.
class PictureExtent {
 public:
  // mostFrames: of a Y4M stream; it is read one byte further, so that decoding sees when there are more.
  PictureExtent(std::string name, size_t mostFrames, SizeCheck check)
      : name_(std::move(name)), mostFrames_(mostFrames), check_(std::move(check)) {}

  size_t operator()(const Bytes& read);

 private:
  enum class Kind { kUnknown, kJpeg, kPng, kY4m };

  size_t detect(const Bytes& read);
  bool endsJpeg(const Bytes& read);
  bool endsPng(const Bytes& read);
  size_t y4mWanted(const Bytes& read);
  void takeSize(int64_t width, int64_t height);

  std::string name_;
  size_t mostFrames_;
  SizeCheck check_;
  Kind kind_ = Kind::kUnknown;
  size_t at_ = 0;  // what lies before it has been walked along
  size_t limit_ = 0;
  bool inScan_ = false;    // of a JPEG: among entropy-coded bytes
  size_t frames_ = 0;      // of Y4M: walked along
  size_t frameBytes_ = 0;  // of Y4M: without the FRAME line; 0 before the header
};

}  // namespace tool

#endif  // TESSALINE4_TOOLS_PICTURE_EXTENT_H_
