// How far a picture goes in a stream of bytes, told while they arrive.
#ifndef TESSALINE4_TOOLS_PICTURE_EXTENT_H_
#define TESSALINE4_TOOLS_PICTURE_EXTENT_H_

#include <cstddef>
#include <string>

#include "image_file_kinds.h"

namespace tool {

// A StillWanted (file_io.h) for a JPEG or a PNG, told by the first bytes; anything else is wanted no further than
// these, so that a stream can be read on from there. It walks along the marker segments or chunks and ends behind the
// last one, or where the structure breaks, which decoding then finds too. Throws Error naming the file when the size is
// refused, or when more bytes come than a picture of its size can have. A HEIC, AVIF, TIFF or camera's raw file has no
// end that could be told before its last byte: it is read up to a fixed length.
class PictureExtent {
 public:
  PictureExtent(std::string name, SizeCheck check) : name_(std::move(name)), check_(std::move(check)) {}

  size_t operator()(ByteView read);

 private:
  enum class Kind { kUnknown, kJpeg, kPng, kHeif, kTiff, kCameraRaw, kY4m };

  size_t detect(ByteView read);
  bool endsJpeg(ByteView read);
  bool endsPng(ByteView read);
  void takeSize(int64_t width, int64_t height);

  std::string name_;
  SizeCheck check_;
  Kind kind_ = Kind::kUnknown;
  size_t at_ = 0;  // what lies before it has been walked along
  size_t limit_ = 0;
  bool inScan_ = false;  // of a JPEG: among entropy-coded bytes
};

}  // namespace tool

#endif  // TESSALINE4_TOOLS_PICTURE_EXTENT_H_
